// The XML service: events in document order, pieces of any size, faults with their position,
// callbacks that stop the parse, hostile documents, and escaping that survives a round trip.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ox/xml.h"
#include "testhost.h"

namespace {

constexpr OXStatus kStopStatus = static_cast<OXStatus>(0x8abfc801);

// Writes every event as a line: "<a x=1>", "<b/>" for an empty-element tag, "</a>", and
// runs of character data joined into one "text" line however they were split.
struct Recorder {
    XMLParseCB cb{};  // first: with no context, callbacks get the record itself
    XMLParser_S* parser = nullptr;
    std::vector<std::string> events;
    std::vector<std::string> paths;
    std::string stopAt;  // an element whose start returns kStopStatus
    bool inText = false;

    Recorder() {
        cb.elemStart = onStart;
        cb.elemEnd = onEnd;
        cb.charData = onText;
        cb.docStart = onDocStart;
        cb.docEnd = onDocEnd;
    }

    static Recorder& of(void* ctx) { return *static_cast<Recorder*>(ctx); }

    void add(std::string event) {
        inText = false;
        events.push_back(std::move(event));
    }

    void notePath() {
        UTF8CStr text = nullptr;
        UTF8ByteLength len = 0;
        if (parser && parser->path(parser, &text, &len) == OX_OK) paths.emplace_back(text, len);
    }

    static OXStatus onStart(void* ctx, UTF8CStr name, UTF8ByteLength nameL, const XMLAttribute* attrs, size_t count,
                            OXBoolean isEmpty) {
        Recorder& r = of(ctx);
        std::string event = "<" + std::string(name, nameL);
        for (size_t i = 0; i < count; ++i)
            event += " " + std::string(attrs[i].name, attrs[i].nameL) + "=" + std::string(attrs[i].value, attrs[i].valueL);
        event += isEmpty ? "/>" : ">";
        r.add(event);
        r.notePath();
        return std::string_view(name, nameL) == r.stopAt ? kStopStatus : OX_OK;
    }

    static OXStatus onEnd(void* ctx, UTF8CStr name, UTF8ByteLength nameL) {
        Recorder& r = of(ctx);
        r.add("</" + std::string(name, nameL) + ">");
        r.notePath();
        return OX_OK;
    }

    static OXStatus onText(void* ctx, UTF8CStr text, UTF8ByteLength len) {
        Recorder& r = of(ctx);
        if (!r.inText) r.events.emplace_back();
        r.events.back().append(text, len);
        r.inText = true;
        return OX_OK;
    }

    static OXStatus onDocStart(void* ctx) {
        of(ctx).add("start-document");
        return OX_OK;
    }

    static OXStatus onDocEnd(void* ctx) {
        of(ctx).add("end-document");
        return OX_OK;
    }
};

using Events = std::vector<std::string>;

class XmlTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(xml);
        ASSERT_EQ(create(&parser), OX_OK);
        recorder.parser = parser;
    }
    void TearDown() override {
        if (parser) parser->generic.destroy(parser);
    }

    XMLCreateParms parms() {
        XMLCreateParms p{};
        p.docCEI = p.defCEI = p.cbCEI = NLS_CEI_UTF8;
        p.base = "/";
        p.baseL = 1;
        p.usePool = pool;
        p.callBacks = &recorder.cb;
        return p;
    }

    OXStatus create(XMLParser_S** out) {
        XMLCreateParms p = parms();
        return xml->create(xml.get(), &p, out);
    }

    OXStatus parseAll(std::string_view doc) { return parser->parse(parser, doc.data(), doc.size(), OX_TRUE); }

    OXStatus parseInPieces(std::string_view doc, size_t pieceSize) {
        for (size_t at = 0; at < doc.size(); at += pieceSize) {
            const std::string_view piece = doc.substr(at, pieceSize);
            if (OXStatus st = parser->parse(parser, piece.data(), piece.size(), OX_FALSE); st != OX_OK) return st;
        }
        return parser->parse(parser, nullptr, 0, OX_TRUE);
    }

    // The events between start-document and end-document.
    Events body() const {
        Events e = recorder.events;
        if (!e.empty() && e.front() == "start-document") e.erase(e.begin());
        if (!e.empty() && e.back() == "end-document") e.pop_back();
        return e;
    }

    oxtest::Service<OXXMLExt_S> xml{"oxexml"};
    oxtest::TestPool pool;
    Recorder recorder;
    XMLParser_S* parser = nullptr;
};

// ---- events

using XmlEventsTest = XmlTest;

TEST_F(XmlEventsTest, DeliversNestedElementsAndTextInDocumentOrder) {
    ASSERT_EQ(parseAll("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a><b>x</b><c>y<d>z</d></c></a>"), OX_OK);
    EXPECT_EQ(recorder.events, (Events{"start-document", "<a>", "<b>", "x", "</b>", "<c>", "y", "<d>", "z", "</d>",
                                       "</c>", "</a>", "end-document"}));
}

TEST_F(XmlEventsTest, PassesAttributesWithReferencesReplaced) {
    ASSERT_EQ(parseAll("<a id=\"7\" note='&lt;&#x41;&amp;&gt;'><b k=\"v\"></b></a>"), OX_OK);
    EXPECT_EQ(body(), (Events{"<a id=7 note=<A&>>", "<b k=v>", "</b>", "</a>"}));
}

TEST_F(XmlEventsTest, FlagsEmptyElementTagsAndSendsNoEndForThem) {
    ASSERT_EQ(parseAll("<a><b/><c></c><d x=\"/\" /></a>"), OX_OK);
    EXPECT_EQ(body(), (Events{"<a>", "<b/>", "<c>", "</c>", "<d x=//>", "</a>"}));
}

TEST_F(XmlEventsTest, DeliversTextSplitAcrossPiecesWhole) {
    const std::string doc = "<a>h\xC3\xA9llo w\xC3\xB6rld &amp; \xE2\x82\xAC<b>second</b></a>";
    ASSERT_EQ(parseInPieces(doc, 1), OX_OK);
    EXPECT_EQ(body(), (Events{"<a>", "h\xC3\xA9llo w\xC3\xB6rld & \xE2\x82\xAC", "<b>", "second", "</b>", "</a>"}));
}

TEST_F(XmlEventsTest, DeliversTheSameEventsForEveryPieceSize) {
    const std::string doc = "<r xmlns=\"urn:x\"><k a=\"1\">one</k><k/><k>th&#x72;ee</k></r>";
    ASSERT_EQ(parseAll(doc), OX_OK);
    const Events whole = recorder.events;
    for (size_t piece : {2, 3, 7, 16}) {
        recorder.events.clear();
        ASSERT_EQ(parser->reset(parser), OX_OK);
        ASSERT_EQ(parseInPieces(doc, piece), OX_OK) << "piece size " << piece;
        EXPECT_EQ(recorder.events, whole) << "piece size " << piece;
    }
}

TEST_F(XmlEventsTest, ReportsThePathOfOpenElements) {
    ASSERT_EQ(parseAll("<a><b><c/></b></a>"), OX_OK);
    EXPECT_EQ(recorder.paths, (Events{"/a", "/a/b", "/a/b/c", "/a/b", "/a"}));
    UTF8CStr text = nullptr;
    UTF8ByteLength len = 0;
    ASSERT_EQ(parser->path(parser, &text, &len), OX_OK);
    EXPECT_EQ(std::string_view(text, len), "/");
}

TEST_F(XmlEventsTest, HandsCallbacksTheirContextWhenGiven) {
    struct Seen {
        int starts = 0;
    } seen;
    XMLParseCB cb{};
    cb.context = &seen;
    cb.elemStart = [](void* ctx, UTF8CStr, UTF8ByteLength, const XMLAttribute*, size_t, OXBoolean) -> OXStatus {
        ++static_cast<Seen*>(ctx)->starts;
        return OX_OK;
    };
    XMLCreateParms p = parms();
    p.callBacks = &cb;
    XMLParser_S* own = nullptr;
    ASSERT_EQ(xml->create(xml.get(), &p, &own), OX_OK);
    const std::string_view doc = "<a><b/><c/></a>";
    EXPECT_EQ(own->parse(own, doc.data(), doc.size(), OX_TRUE), OX_OK);
    EXPECT_EQ(seen.starts, 3);
    own->generic.destroy(own);
}

TEST_F(XmlEventsTest, RefusesMorePiecesAfterTheFinalOne) {
    ASSERT_EQ(parseAll("<a/>"), OX_OK);
    EXPECT_EQ(parseAll("<a/>"), OX_INVALID_ARGUMENT);
}

TEST_F(XmlEventsTest, ResetStartsANewDocument) {
    ASSERT_EQ(parseAll("<a/>"), OX_OK);
    recorder.events.clear();
    ASSERT_EQ(parser->reset(parser), OX_OK);
    ASSERT_EQ(parseAll("<b>t</b>"), OX_OK);
    EXPECT_EQ(recorder.events, (Events{"start-document", "<b>", "t", "</b>", "end-document"}));
}

// ---- faults

using XmlFaultTest = XmlTest;

TEST_F(XmlFaultTest, MismatchedTagReportsItsLineAndColumn) {
    EXPECT_EQ(parseAll("<a>\n  <b></a>"), OX_XML_MALFORMED);
    EXPECT_EQ(parser->line(parser), 2u);
    EXPECT_EQ(parser->column(parser), 8u);
}

TEST_F(XmlFaultTest, ColumnsCountCharactersNotBytes) {
    EXPECT_EQ(parseAll("<a>\xC3\xA9\xC3\xA9<</a>"), OX_XML_MALFORMED);
    EXPECT_EQ(parser->line(parser), 1u);
    EXPECT_EQ(parser->column(parser), 7u);
}

TEST_F(XmlFaultTest, FaultInALaterPieceKeepsItsDocumentPosition) {
    const std::string doc = "<a>\n<b>ok</b>\n<c>&bogus;</c></a>";
    EXPECT_EQ(parseInPieces(doc, 5), OX_XML_MALFORMED);
    EXPECT_EQ(parser->line(parser), 3u);
    EXPECT_EQ(parser->column(parser), 4u);
}

TEST_F(XmlFaultTest, UnfinishedDocumentIsMalformedAtTheFinalPiece) {
    ASSERT_EQ(parser->parse(parser, "<a><b>", 6, OX_FALSE), OX_OK);
    EXPECT_EQ(parser->parse(parser, nullptr, 0, OX_TRUE), OX_XML_MALFORMED);
}

TEST_F(XmlFaultTest, StaysFailedUntilReset) {
    EXPECT_EQ(parseAll("<a></b>"), OX_XML_MALFORMED);
    EXPECT_EQ(parseAll("<a/>"), OX_XML_MALFORMED);
    ASSERT_EQ(parser->reset(parser), OX_OK);
    EXPECT_EQ(parseAll("<a/>"), OX_OK);
}

TEST_F(XmlFaultTest, CallbackStatusStopsTheParseAndIsReturned) {
    recorder.stopAt = "stop";
    EXPECT_EQ(parseAll("<a><b/><stop/><after/>text</a>"), kStopStatus);
    EXPECT_EQ(recorder.events, (Events{"start-document", "<a>", "<b/>", "<stop/>"}));
    EXPECT_EQ(parseAll("<a/>"), OX_XML_STOPPED);
}

TEST_F(XmlFaultTest, StopInAnEarlyPieceIgnoresTheRest) {
    recorder.stopAt = "b";
    ASSERT_EQ(parser->parse(parser, "<a>", 3, OX_FALSE), OX_OK);
    EXPECT_EQ(parser->parse(parser, "<b>x</b>", 8, OX_FALSE), kStopStatus);
    EXPECT_EQ(parser->parse(parser, "</a>", 4, OX_TRUE), OX_XML_STOPPED);
    EXPECT_EQ(body(), (Events{"<a>", "<b>"}));
    ASSERT_EQ(parser->reset(parser), OX_OK);
    recorder.stopAt.clear();
    EXPECT_EQ(parseAll("<a><b/></a>"), OX_OK);
}

TEST_F(XmlFaultTest, DocumentStartCallbackCanRefuseTheDocument) {
    recorder.cb.docStart = [](void*) { return kStopStatus; };
    EXPECT_EQ(parseAll("<a/>"), kStopStatus);
    EXPECT_TRUE(recorder.events.empty());
}

// ---- hostile documents

using XmlHardeningTest = XmlTest;

TEST_F(XmlHardeningTest, RefusesBillionLaughs) {
    std::string doc = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol0 \"lollollollollollollollollollol\">\n";
    for (int i = 1; i < 10; ++i)
        doc += "<!ENTITY lol" + std::to_string(i) + " \"" + [&] {
            std::string refs;
            for (int j = 0; j < 10; ++j) refs += "&lol" + std::to_string(i - 1) + ";";
            return refs;
        }() + "\">\n";
    doc += "]>\n<lolz>&lol9;</lolz>";
    EXPECT_EQ(parseAll(doc), OX_XML_MALFORMED);
}

TEST_F(XmlHardeningTest, RefusesExternalEntities) {
    EXPECT_EQ(parseAll("<!DOCTYPE a [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><a>&x;</a>"), OX_XML_MALFORMED);
    EXPECT_EQ(body(), (Events{"<a>"}));
}

TEST_F(XmlHardeningTest, DoesNotFetchAnExternalDtd) {
    ASSERT_EQ(parseAll("<!DOCTYPE a SYSTEM \"http://dtd.invalid/a.dtd\"><a>t</a>"), OX_OK);
    EXPECT_EQ(body(), (Events{"<a>", "t", "</a>"}));
}

TEST_F(XmlHardeningTest, ExpandsSmallInternalEntities) {
    ASSERT_EQ(parseAll("<!DOCTYPE a [<!ENTITY e \"<b>in</b>\">]><a>&e;</a>"), OX_OK);
    EXPECT_EQ(body(), (Events{"<a>", "<b>", "in", "</b>", "</a>"}));
}

TEST_F(XmlHardeningTest, RunningOutOfMemoryFailsCleanlyAtEveryAllocation) {
    const std::string_view doc = "<a x=\"1\"><b>some text</b><c/><d>&amp;more</d></a>";
    bool completed = false;
    for (int64_t allowed = 0; allowed < 200 && !completed; ++allowed) {
        oxtest::TestPool local;
        XMLCreateParms p = parms();
        p.usePool = local;
        XMLParser_S* own = nullptr;
        oxPoolFailAfter(local, allowed);
        OXStatus st = xml->create(xml.get(), &p, &own);
        if (st == OX_OK) {
            st = own->parse(own, doc.data(), doc.size(), OX_TRUE);
            own->generic.destroy(own);
        }
        oxPoolFailAfter(local, -1);
        ASSERT_TRUE(st == OX_OK || st == OX_NO_MEMORY) << "status " << std::hex << st << " after " << allowed;
        completed = st == OX_OK;
    }
    EXPECT_TRUE(completed);
}

// ---- creation

using XmlCreateTest = XmlTest;

TEST_F(XmlCreateTest, NeedsAPoolAndCallbacks) {
    XMLParser_S* out = nullptr;
    OXJournal jnl{};
    XMLCreateParms p = parms();
    p.jnl = &jnl;
    p.usePool = nullptr;
    EXPECT_EQ(xml->create(xml.get(), &p, &out), OX_INVALID_ARGUMENT);
    p = parms();
    p.jnl = &jnl;
    p.callBacks = nullptr;
    EXPECT_EQ(xml->create(xml.get(), &p, &out), OX_INVALID_ARGUMENT);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(jnl.count, 2u);
}

TEST_F(XmlCreateTest, RefusesStylesheetsAndStreams) {
    XMLParser_S* out = nullptr;
    int somewhere = 0;
    XMLCreateParms p = parms();
    p.xslStream = &somewhere;
    EXPECT_EQ(xml->create(xml.get(), &p, &out), OX_NOT_SUPPORTED);
    p = parms();
    p.stream = &somewhere;
    EXPECT_EQ(xml->create(xml.get(), &p, &out), OX_NOT_SUPPORTED);
    EXPECT_EQ(out, nullptr);
}

TEST_F(XmlCreateTest, KeepsTheBase) {
    UTF8CStr text = nullptr;
    UTF8ByteLength len = 0;
    ASSERT_EQ(parser->base(parser, &text, &len), OX_OK);
    EXPECT_EQ(std::string_view(text, len), "/");
}

// ---- escaping

using XmlEscapeTest = XmlTest;

constexpr std::string_view kAwkward = "a&b<c>d\"e'f\tg\nh\ri&amp;\xE2\x82\xAC";

std::string escapeInBuf(XMLParser_S* p, bool attribute, std::string_view text) {
    auto fn = attribute ? p->escAttrValInBuf : p->escElemValInBuf;
    UTF8ByteLength needed = 0;
    EXPECT_EQ(fn(p, text.data(), text.size(), nullptr, 0, &needed), text.empty() ? OX_OK : OX_BUFFER_TOO_SMALL);
    std::string out(needed, '\0');
    UTF8ByteLength written = 0;
    EXPECT_EQ(fn(p, text.data(), text.size(), out.data(), out.size(), &written), OX_OK);
    EXPECT_EQ(written, needed);
    return out;
}

TEST_F(XmlEscapeTest, ElementTextSurvivesARoundTrip) {
    const std::string doc = "<a>" + escapeInBuf(parser, false, kAwkward) + "</a>";
    ASSERT_EQ(parseAll(doc), OX_OK) << doc;
    EXPECT_EQ(body(), (Events{"<a>", std::string(kAwkward), "</a>"}));
}

TEST_F(XmlEscapeTest, AttributeValueSurvivesARoundTripInEitherQuotes) {
    const std::string escaped = escapeInBuf(parser, true, kAwkward);
    for (char quote : {'"', '\''}) {
        recorder.events.clear();
        ASSERT_EQ(parser->reset(parser), OX_OK);
        const std::string doc = std::string("<a v=") + quote + escaped + quote + "/>";
        ASSERT_EQ(parseAll(doc), OX_OK) << doc;
        EXPECT_EQ(body(), (Events{"<a v=" + std::string(kAwkward) + "/>"}));
    }
}

TEST_F(XmlEscapeTest, WritesTheExpectedReferences) {
    EXPECT_EQ(escapeInBuf(parser, false, "<&>\"'\t\n\r"), "&lt;&amp;&gt;\"'\t\n&#13;");
    EXPECT_EQ(escapeInBuf(parser, true, "<&>\"'\t\n\r"), "&lt;&amp;&gt;&quot;&apos;&#9;&#10;&#13;");
    EXPECT_EQ(escapeInBuf(parser, false, "plain"), "plain");
    EXPECT_EQ(escapeInBuf(parser, false, ""), "");
}

TEST_F(XmlEscapeTest, TooSmallBufferGivesTheNeededLengthAndStaysUntouched) {
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    UTF8ByteLength needed = 0;
    EXPECT_EQ(parser->escElemValInBuf(parser, "a<b", 3, buf, 5, &needed), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 6u);
    EXPECT_EQ(std::string_view(buf, sizeof buf), "########");
    EXPECT_EQ(parser->escElemValInBuf(parser, "a<b", 3, buf, 6, &needed), OX_OK);
    EXPECT_EQ(std::string_view(buf, 6), "a&lt;b");
    EXPECT_EQ(buf[6], '#');
}

TEST_F(XmlEscapeTest, MakesStringsInTheGivenPool) {
    oxtest::TestPool other;
    OXU8String* s = nullptr;
    ASSERT_EQ(parser->escElemVal(parser, other, "x>y", 3, &s), OX_OK);
    EXPECT_EQ(std::string_view(s->stg, s->len), "x&gt;y");
    EXPECT_GT(other->blocksInUse(other), 0u);
    s->instance.destroy(s);

    ASSERT_EQ(parser->escAttrVal(parser, nullptr, "q\"", 2, &s), OX_OK);
    EXPECT_EQ(std::string_view(s->stg, s->len), "q&quot;");
    s->instance.destroy(s);

    ASSERT_EQ(parser->escAttrVal(parser, nullptr, "", 0, &s), OX_OK);
    EXPECT_EQ(s->len, 0u);
    s->instance.destroy(s);
}

}  // namespace
