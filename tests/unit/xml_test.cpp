// The XML service: events in document order, pieces of any size, faults with their position,
// callbacks that stop the parse, hostile documents, and escaping that survives a round trip.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "ox/xml.h"
#include "testhost.h"

namespace {

constexpr OXStatus kStop = static_cast<OXStatus>(0x8abfc801);

// Every event into one log: "[" and "]" for the document's start and end, "<a x=1>", "<b/>" for
// an empty-element tag, "</a>", and runs of character data as one "'text'" however they were
// split. The open elements' path is logged at each tag.
struct Recorder {
    XMLParseCB cb{};  // first: with no context, callbacks get the record itself
    XMLParser_S* parser = nullptr;
    std::string log, paths, stopAt;  // stopAt: an element whose start returns kStop

    static Recorder& of(void* ctx) { return *static_cast<Recorder*>(ctx); }
    void add(std::string_view event, bool tag = true) {
        log += event;
        UTF8CStr p = nullptr;
        UTF8ByteLength len = 0;
        if (tag && parser->path(parser, &p, &len) == OX_OK) paths.append(p, len) += ' ';
    }
    Recorder() {
        cb.elemStart = [](void* ctx, UTF8CStr n, UTF8ByteLength nl, const XMLAttribute* a, size_t count,
                          OXBoolean empty) -> OXStatus {
            std::string e("<");
            e.append(n, nl);
            for (size_t i = 0; i < count; ++i)
                e.append(" ").append(a[i].name, a[i].nameL).append("=").append(a[i].value, a[i].valueL);
            of(ctx).add(e.append(empty ? "/>" : ">"));
            return std::string_view(n, nl) == of(ctx).stopAt ? kStop : OX_OK;
        };
        cb.elemEnd = [](void* ctx, UTF8CStr n, UTF8ByteLength nl) -> OXStatus {
            return of(ctx).add(std::string("</").append(n, nl).append(">")), OX_OK;
        };
        cb.charData = [](void* ctx, UTF8CStr t, UTF8ByteLength len) -> OXStatus {
            std::string& log = of(ctx).log;
            if (!log.empty() && log.back() == '\'')
                log.pop_back();  // the run goes on
            else
                log += '\'';
            return log.append(t, len) += '\'', OX_OK;
        };
        cb.docStart = [](void* ctx) -> OXStatus { return of(ctx).add("[", false), OX_OK; };
        cb.docEnd = [](void* ctx) -> OXStatus { return of(ctx).add("]", false), OX_OK; };
    }
};

class XmlTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(xml);
        XMLCreateParms p = parms();
        ASSERT_EQ(xml->create(xml.get(), &p, &parser), OX_OK);
        rec.parser = parser;
    }
    void TearDown() override { parser->generic.destroy(parser); }

    XMLCreateParms parms() {
        XMLCreateParms p{};
        p.docCEI = p.defCEI = p.cbCEI = NLS_CEI_UTF8;
        p.usePool = pool;
        p.callBacks = &rec.cb;
        return p;
    }
    OXStatus parse(std::string_view doc, size_t piece = SIZE_MAX) {
        for (size_t at = 0; piece < doc.size() && at < doc.size(); at += piece)
            if (OXStatus st = parser->parse(parser, doc.data() + at, std::min(piece, doc.size() - at), OX_FALSE))
                return st;
        return piece < doc.size() ? parser->parse(parser, nullptr, 0, OX_TRUE)
                                  : parser->parse(parser, doc.data(), doc.size(), OX_TRUE);
    }
    void restart() {
        rec.log.clear();
        ASSERT_EQ(parser->reset(parser), OX_OK);
    }

    oxtest::Service<OXXMLExt_S> xml{"oxexml"};
    oxtest::TestPool pool;
    Recorder rec;
    XMLParser_S* parser = nullptr;
};

TEST_F(XmlTest, DeliversTheSameEventsWholeAndInPiecesOfAnySize) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a><b>x</b><c>y<d>z</d></c></a>",
         "[<a><b>'x'</b><c>'y'<d>'z'</d></c></a>]"},
        {"<a id=\"7\" note='&lt;&#x41;&amp;&gt;'><b k=\"v\"></b></a>", "[<a id=7 note=<A&>><b k=v></b></a>]"},
        {"<a><b/><c></c><d x=\"/\" /></a>", "[<a><b/><c></c><d x=//></a>]"},
        {"<a>h\xC3\xA9llo &amp; \xE2\x82\xAC<b>2</b></a>", "[<a>'h\xC3\xA9llo & \xE2\x82\xAC'<b>'2'</b></a>]"},
        // small internal entities expand; an external DTD is never fetched
        {"<!DOCTYPE a [<!ENTITY e \"<b>in</b>\">]><a>&e;</a>", "[<a><b>'in'</b></a>]"},
        {"<!DOCTYPE a SYSTEM \"http://dtd.invalid/a.dtd\"><a>t</a>", "[<a>'t'</a>]"},
    };
    for (const auto& [doc, events] : cases) {
        for (size_t piece : {SIZE_MAX, size_t{1}, size_t{3}, size_t{7}}) {
            restart();
            ASSERT_EQ(parse(doc, piece), OX_OK) << doc << " in pieces of " << piece;
            EXPECT_EQ(rec.log, events) << doc << " in pieces of " << piece;
        }
    }
}

TEST_F(XmlTest, ReportsThePathOfOpenElements) {
    ASSERT_EQ(parse("<a><b><c/></b></a>"), OX_OK);
    EXPECT_EQ(rec.paths, "/a /a/b /a/b/c /a/b /a ");
    UTF8CStr text = nullptr;
    UTF8ByteLength len = 0;
    ASSERT_EQ(parser->path(parser, &text, &len), OX_OK);
    EXPECT_EQ(std::string_view(text, len), "/");
}

TEST_F(XmlTest, RefusesPiecesAfterTheEndAndStaysFailedUntilReset) {
    ASSERT_EQ(parse("<a/>"), OX_OK);
    EXPECT_EQ(parse("<a/>"), OX_INVALID_ARGUMENT);
    restart();
    EXPECT_EQ(parse("<a></b>"), OX_XML_MALFORMED);
    EXPECT_EQ(parse("<a/>"), OX_XML_MALFORMED);
    restart();
    EXPECT_EQ(parse("<a><b>", 2), OX_XML_MALFORMED) << "unfinished at the final piece";
    restart();
    ASSERT_EQ(parse("<b>t</b>"), OX_OK);
    EXPECT_EQ(rec.log, "[<b>'t'</b>]");
}

TEST_F(XmlTest, ReportsTheFaultsLineAndColumnInCharacters) {
    const struct { std::string_view doc; size_t piece; uint64_t line, column; } cases[] = {
        {"<a>\n  <b></a>", SIZE_MAX, 2, 8},
        {"<a>\xC3\xA9\xC3\xA9<</a>", SIZE_MAX, 1, 7},       // columns count characters, not bytes
        {"<a>\n<b>ok</b>\n<c>&bogus;</c></a>", 5, 3, 4},  // in a later piece
    };
    for (const auto& c : cases) {
        restart();
        EXPECT_EQ(parse(c.doc, c.piece), OX_XML_MALFORMED) << c.doc;
        EXPECT_EQ(parser->line(parser), c.line) << c.doc;
        EXPECT_EQ(parser->column(parser), c.column) << c.doc;
    }
}

TEST_F(XmlTest, CallbackStatusStopsTheParseAndIsReturned) {
    rec.stopAt = "stop";
    EXPECT_EQ(parse("<a><b/><stop/><after/>text</a>"), kStop);
    EXPECT_EQ(rec.log, "[<a><b/><stop/>");
    EXPECT_EQ(parse("<a/>"), OX_XML_STOPPED);
    restart();  // a stop in an early piece ignores the rest
    EXPECT_EQ(parse("<a><stop>x</stop></a>", 4), kStop);
    EXPECT_EQ(parser->parse(parser, "</a>", 4, OX_TRUE), OX_XML_STOPPED);
    EXPECT_EQ(rec.log, "[<a><stop>");
    restart();  // the document's start may refuse it
    rec.cb.docStart = [](void*) -> OXStatus { return kStop; };
    EXPECT_EQ(parse("<a/>"), kStop);
    EXPECT_EQ(rec.log, "");
}

TEST_F(XmlTest, RefusesBillionLaughsAndExternalEntities) {
    std::string doc = "<!DOCTYPE lolz [\n<!ENTITY lol0 \"lollollollollollollollollollol\">\n";
    for (int i = 1; i < 10; ++i) {
        doc += "<!ENTITY lol" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) doc += "&lol" + std::to_string(i - 1) + ";";
        doc += "\">\n";
    }
    EXPECT_EQ(parse(doc + "]>\n<lolz>&lol9;</lolz>"), OX_XML_MALFORMED);
    restart();
    EXPECT_EQ(parse("<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>"), OX_XML_MALFORMED);
    EXPECT_EQ(rec.log, "[<a>");
}

TEST_F(XmlTest, RunningOutOfMemoryFailsCleanlyAtEveryAllocation) {
    const std::string_view doc = "<a x=\"1\"><b>some text</b><c/><d>&amp;more</d></a>";
    XMLParseCB withContext = rec.cb;  // callbacks get the context when one is given
    withContext.context = &rec;
    OXStatus st = OX_NO_MEMORY;
    for (int64_t allowed = 0; allowed < 200 && st != OX_OK; ++allowed) {
        oxtest::TestPool local;  // checks for leaks when it goes
        XMLCreateParms p = parms();
        p.usePool = local;
        p.callBacks = &withContext;
        XMLParser_S* own = nullptr;
        oxPoolFailAfter(local, allowed);
        if ((st = xml->create(xml.get(), &p, &own)) == OX_OK) {
            st = own->parse(own, doc.data(), doc.size(), OX_TRUE);
            own->generic.destroy(own);
        }
        oxPoolFailAfter(local, -1);
        ASSERT_TRUE(st == OX_OK || st == OX_NO_MEMORY) << std::hex << st << " after " << allowed;
    }
    EXPECT_EQ(st, OX_OK);
    EXPECT_EQ(rec.log.back(), ']');
}

// ---- escaping

std::string escaped(XMLParser_S* p, bool attribute, std::string_view text) {
    auto fn = attribute ? p->escAttrValInBuf : p->escElemValInBuf;
    UTF8ByteLength needed = 0, written = 0;
    EXPECT_EQ(fn(p, text.data(), text.size(), nullptr, 0, &needed), text.empty() ? OX_OK : OX_BUFFER_TOO_SMALL);
    std::string out(needed, '\0');
    EXPECT_EQ(fn(p, text.data(), text.size(), out.data(), out.size(), &written), OX_OK);
    EXPECT_EQ(written, needed);
    return out;
}

TEST_F(XmlTest, EscapedTextSurvivesARoundTripInElementsAndEitherQuotes) {
    const std::string awkward = "a&b<c>d\"e'f\tg\nh\ri&amp;\xE2\x82\xAC";
    ASSERT_EQ(parse("<a>" + escaped(parser, false, awkward) + "</a>"), OX_OK);
    EXPECT_EQ(rec.log, "[<a>'" + awkward + "'</a>]");
    for (char q : {'"', '\''}) {
        restart();
        ASSERT_EQ(parse(std::string("<a v=") + q + escaped(parser, true, awkward) + q + "/>"), OX_OK) << q;
        EXPECT_EQ(rec.log, "[<a v=" + awkward + "/>]");
    }
}

TEST_F(XmlTest, EscapingWritesTheExpectedReferencesIntoBuffersAndStrings) {
    EXPECT_EQ(escaped(parser, false, "<&>\"'\t\n\r"), "&lt;&amp;&gt;\"'\t\n&#13;");
    EXPECT_EQ(escaped(parser, true, "<&>\"'\t\n\r"), "&lt;&amp;&gt;&quot;&apos;&#9;&#10;&#13;");
    EXPECT_EQ(escaped(parser, false, ""), "");
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    UTF8ByteLength needed = 0;
    EXPECT_EQ(parser->escElemValInBuf(parser, "a<b", 3, buf, 5, &needed), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 6u);
    EXPECT_EQ(std::string_view(buf, sizeof buf), "########") << "a short buffer stays untouched";
    oxtest::TestPool other;
    OXU8String* s = nullptr;
    ASSERT_EQ(parser->escAttrVal(parser, other, "q\"", 2, &s), OX_OK);
    EXPECT_EQ(std::string_view(s->stg, s->len), "q&quot;");
    EXPECT_GT(other->blocksInUse(other), 0u) << "made in the given pool";
    s->instance.destroy(s);
}

}  // namespace
