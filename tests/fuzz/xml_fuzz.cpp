// Arbitrary bytes through the XML parser, whole and in two pieces: neither may crash or leak,
// both must end with the same status (and the same events when well formed), and text escaped
// by the service must come back unchanged whenever the escaped document parses.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"
#include "ox/xml.h"

namespace {

// Every event folded into one string; character data is joined however it was split.
struct Trace {
    XMLParseCB cb{};
    std::string events;
    std::string text;

    Trace() {
        cb.elemStart = [](void* ctx, UTF8CStr name, UTF8ByteLength nameL, const XMLAttribute* attrs, size_t count,
                          OXBoolean isEmpty) -> OXStatus {
            auto& t = *static_cast<Trace*>(ctx);
            t.events.append("<").append(name, nameL);
            for (size_t i = 0; i < count; ++i) {
                t.events.append(" ").append(attrs[i].name, attrs[i].nameL).append("=");
                t.events.append(attrs[i].value, attrs[i].valueL);
            }
            t.events.append(isEmpty ? "/>" : ">");
            return OX_OK;
        };
        cb.elemEnd = [](void* ctx, UTF8CStr name, UTF8ByteLength nameL) -> OXStatus {
            static_cast<Trace*>(ctx)->events.append("</").append(name, nameL).append(">");
            return OX_OK;
        };
        cb.charData = [](void* ctx, UTF8CStr text, UTF8ByteLength len) -> OXStatus {
            auto& t = *static_cast<Trace*>(ctx);
            t.events.append(text, len);
            t.text.append(text, len);
            return OX_OK;
        };
        cb.context = this;
    }
};

struct Host {
    OX_HNDL_S* h = oxHostInit();
    OXXMLExt_S* xml = nullptr;
    OX_POOL_S* pool = nullptr;

    Host() {
        const std::u32string name = U"oxexml";
        xml = reinterpret_cast<OXXMLExt_S*>(
            h->loadExtension(h, reinterpret_cast<const OXChar*>(name.data()), name.size(), nullptr));
        OXPoolCreateParms parms{};
        pool = h->poolCreate(h, &parms, nullptr, "xml fuzz");
        if (!xml || !pool) std::abort();
    }
};

Host& host() {
    static Host instance;
    return instance;
}

OXStatus parse(std::string_view doc, size_t split, Trace& trace) {
    XMLCreateParms parms{};
    parms.usePool = host().pool;
    parms.callBacks = &trace.cb;
    XMLParser_S* p = nullptr;
    if (host().xml->create(host().xml, &parms, &p) != OX_OK) std::abort();
    OXStatus st = p->parse(p, doc.data(), split, OX_FALSE);
    if (st == OX_OK) st = p->parse(p, doc.data() + split, doc.size() - split, OX_TRUE);
    p->generic.destroy(p);
    return st;
}

void checkSplitsAgree(std::string_view doc) {
    Trace whole;
    Trace pieces;
    const OXStatus a = parse(doc, 0, whole);
    const OXStatus b = parse(doc, doc.empty() ? 0 : static_cast<uint8_t>(doc[0]) % doc.size(), pieces);
    // Before a fault, how much of a run of text was reported may differ; after success, nothing.
    if (a != b || (a == OX_OK && whole.events != pieces.events)) std::abort();
}

void checkEscapeRoundTrip(std::string_view raw) {
    Trace probe;
    XMLCreateParms parms{};
    parms.usePool = host().pool;
    parms.callBacks = &probe.cb;
    XMLParser_S* p = nullptr;
    if (host().xml->create(host().xml, &parms, &p) != OX_OK) std::abort();
    for (bool attribute : {false, true}) {
        auto escape = attribute ? p->escAttrValInBuf : p->escElemValInBuf;
        UTF8ByteLength needed = 0;
        escape(p, raw.data(), raw.size(), nullptr, 0, &needed);
        std::string escaped(needed, '\0');
        if (escape(p, raw.data(), raw.size(), escaped.data(), escaped.size(), &needed) != OX_OK) std::abort();
        const std::string doc = attribute ? "<a v=\"" + escaped + "\"/>" : "<a>" + escaped + "</a>";
        Trace trace;
        if (parse(doc, 0, trace) != OX_OK) continue;  // bytes XML cannot carry at all
        const std::string delivered = attribute ? trace.events.substr(5, trace.events.size() - 7) : trace.text;
        if (delivered != raw) std::abort();
    }
    p->generic.destroy(p);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    checkSplitsAgree(bytes);
    checkEscapeRoundTrip(bytes);
    if (host().pool->blocksInUse(host().pool) != 0) std::abort();
    return 0;
}
