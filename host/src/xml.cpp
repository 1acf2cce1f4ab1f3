// The XML service: an event parser on Expat that feeds a record of callbacks, keeps the open
// element path, and takes all of its memory (Expat's included) from the caller's pool; and
// the escaping operations, whose strings come from the string service.

// The system Expat is built with DTD support, which is what carries the entity amplification
// limit; its header declares the limit's setters only when told so.
#ifndef XML_DTD
#define XML_DTD
#endif
#include <expat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "builtin.h"
#include "ox/status.h"
#include "ox/xml.h"
#include "poolbuf.h"
#include "services.h"
#include "string_internal.h"
#include "xmlescape.h"

namespace {

using ox::xml::EscapeKind;

constexpr uint32_t kParserOven = OX_OVEN('x', 'm', 'l', 'p');

// Documents without entities expand by a factor of about 1, so the ratio check may start
// early; Expat's own default would let 8 MiB of expansion reach the callbacks first.
constexpr float kMaxAmplification = 100.0f;
constexpr unsigned long long kAmplificationThreshold = 1ULL << 20;

constexpr size_t kMaxPiece = 1U << 30;  // Expat takes int lengths

// ---- Expat's memory comes from the pool of the parser being worked on

// Expat's allocation hooks carry no context, so every call into Expat names its pool first.
thread_local OX_POOL_S* tExpatPool = nullptr;

class ExpatPoolScope {
public:
    explicit ExpatPoolScope(OX_POOL_S* pool) noexcept : saved_(tExpatPool) { tExpatPool = pool; }
    ~ExpatPoolScope() { tExpatPool = saved_; }
    ExpatPoolScope(const ExpatPoolScope&) = delete;
    ExpatPoolScope& operator=(const ExpatPoolScope&) = delete;

private:
    OX_POOL_S* saved_;
};

void* expatMalloc(size_t size) { return tExpatPool->memAlloc(tExpatPool, size, 0); }
void* expatRealloc(void* mem, size_t size) { return tExpatPool->memRealloc(tExpatPool, mem, size, 0); }
void expatFree(void* mem) {
    if (mem) tExpatPool->memFree(tExpatPool, mem);
}

const XML_Memory_Handling_Suite kExpatMemory = {expatMalloc, expatRealloc, expatFree};

// ---- the parser record

enum class ParseState { Ready, Parsing, Done, Failed, Stopped };

struct Parser {
    Parser(OX_POOL_S* p, const XMLParseCB* callbacks) noexcept
        : pool(p), cb(callbacks), ctx(callbacks->context ? callbacks->context : const_cast<XMLParseCB*>(callbacks)),
          path(p), attrs(p), base(p) {}

    XMLParser_S rec;  // first, so the record pointer is the parser pointer
    OX_POOL_S* pool;
    const XMLParseCB* cb;
    void* ctx;
    XML_Parser expat = nullptr;
    ox::PoolBuffer<char> path;  // "/a/b" while inside b; empty outside the root
    ox::PoolBuffer<XMLAttribute> attrs;
    ox::PoolBuffer<char> base;
    ParseState state = ParseState::Ready;
    OXStatus outcome = OX_OK;        // why the parse stopped, once it has
    bool stoppedByCallback = false;
    bool skipNextEnd = false;        // the element just started was "<a/>": its end is not reported
    bool inExpat = false;            // a callback must not re-enter parse or reset
};

Parser& parserOf(void* self) { return *static_cast<Parser*>(self); }

UTF8ByteLength lengthOf(const char* s) { return s ? std::strlen(s) : 0; }

// ---- events: each stops the parse when its callback returns a status

void stop(Parser& p, OXStatus status, bool byCallback) {
    p.outcome = status;
    p.stoppedByCallback = byCallback;
    XML_StopParser(p.expat, XML_FALSE);
}

// Expat may still report an event or two after a stop; they are not passed on.
template <class Call>
void deliver(Parser& p, Call&& call) {
    if (p.outcome != OX_OK) return;
    const OXStatus status = call();
    if (status != OX_OK) stop(p, status, true);
}

bool enterPath(Parser& p, const char* name) { return p.path.push('/') && p.path.append(name, std::strlen(name)); }

void leavePath(Parser& p) {
    const std::string_view path = ox::view(p.path);
    p.path.truncate(path.rfind('/') == std::string_view::npos ? 0 : path.rfind('/'));
}

// Expat reports "<a/>" as a start and an end alike; the tag's own bytes tell them apart. Events
// from entity replacement text have no bytes of their own and count as not empty.
bool isEmptyElementTag(XML_Parser expat) {
    int offset = 0;
    int size = 0;
    const char* buffer = XML_GetInputContext(expat, &offset, &size);
    const int count = XML_GetCurrentByteCount(expat);
    if (!buffer || count < 2 || offset < 0 || offset > size - count) return false;
    return buffer[offset + count - 2] == '/' && buffer[offset + count - 1] == '>';
}

bool collectAttributes(Parser& p, const XML_Char** atts) {
    p.attrs.clear();
    for (size_t i = 0; atts && atts[i]; i += 2) {
        const XMLAttribute a{atts[i], lengthOf(atts[i]), atts[i + 1], lengthOf(atts[i + 1])};
        if (!p.attrs.push(a)) return false;
    }
    return true;
}

void XMLCALL onStartElement(void* self, const XML_Char* name, const XML_Char** atts) {
    Parser& p = parserOf(self);
    if (p.outcome != OX_OK) return;
    const size_t outer = p.path.size();
    if (!enterPath(p, name)) return stop(p, OX_NO_MEMORY, false);
    const bool empty = isEmptyElementTag(p.expat);
    if (p.cb->elemStart) {
        if (!collectAttributes(p, atts)) return stop(p, OX_NO_MEMORY, false);
        deliver(p, [&] {
            return p.cb->elemStart(p.ctx, name, lengthOf(name), p.attrs.data(), p.attrs.size(), empty ? OX_TRUE : OX_FALSE);
        });
    }
    if (empty) p.path.truncate(outer);
    p.skipNextEnd = empty;
}

void XMLCALL onEndElement(void* self, const XML_Char* name) {
    Parser& p = parserOf(self);
    if (p.skipNextEnd) {
        p.skipNextEnd = false;
        return;
    }
    if (p.outcome != OX_OK) return;
    if (p.cb->elemEnd) deliver(p, [&] { return p.cb->elemEnd(p.ctx, name, lengthOf(name)); });
    leavePath(p);
}

void XMLCALL onCharacterData(void* self, const XML_Char* text, int len) {
    Parser& p = parserOf(self);
    deliver(p, [&] { return p.cb->charData(p.ctx, text, static_cast<UTF8ByteLength>(len)); });
}

void XMLCALL onComment(void* self, const XML_Char* text) {
    Parser& p = parserOf(self);
    deliver(p, [&] { return p.cb->comment(p.ctx, text, lengthOf(text)); });
}

void XMLCALL onProcessingInstruction(void* self, const XML_Char* target, const XML_Char* data) {
    Parser& p = parserOf(self);
    deliver(p, [&] { return p.cb->pi(p.ctx, target, lengthOf(target), data, lengthOf(data)); });
}

void XMLCALL onXmlDecl(void* self, const XML_Char* version, const XML_Char* encoding, int standalone) {
    Parser& p = parserOf(self);
    deliver(p, [&] {
        return p.cb->xmlDecl(p.ctx, version, lengthOf(version), encoding, lengthOf(encoding), standalone);
    });
}

void XMLCALL onDoctype(void* self, const XML_Char* name, const XML_Char* systemId, const XML_Char* publicId, int) {
    Parser& p = parserOf(self);
    deliver(p, [&] {
        return p.cb->docTypeDecl(p.ctx, name, lengthOf(name), systemId, lengthOf(systemId), publicId,
                                 lengthOf(publicId));
    });
}

// Nothing outside the document is ever read: a reference to an external entity fails the parse.
int XMLCALL refuseExternalEntity(XML_Parser, const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
    return XML_STATUS_ERROR;
}

// Expat forgets all of this on reset, so it is applied after creation and after each reset.
bool configure(Parser& p) {
    XML_Parser x = p.expat;
    XML_SetUserData(x, &p);
    XML_SetElementHandler(x, onStartElement, onEndElement);
    XML_SetCharacterDataHandler(x, p.cb->charData ? onCharacterData : nullptr);
    XML_SetCommentHandler(x, p.cb->comment ? onComment : nullptr);
    XML_SetProcessingInstructionHandler(x, p.cb->pi ? onProcessingInstruction : nullptr);
    XML_SetXmlDeclHandler(x, p.cb->xmlDecl ? onXmlDecl : nullptr);
    XML_SetStartDoctypeDeclHandler(x, p.cb->docTypeDecl ? onDoctype : nullptr);
    XML_SetExternalEntityRefHandler(x, refuseExternalEntity);
    return XML_SetParamEntityParsing(x, XML_PARAM_ENTITY_PARSING_NEVER) &&
           XML_SetBillionLaughsAttackProtectionMaximumAmplification(x, kMaxAmplification) &&
           XML_SetBillionLaughsAttackProtectionActivationThreshold(x, kAmplificationThreshold);
}

// ---- parsing

// What a parse call gets once the document has ended one way or another.
OXStatus refusal(const Parser& p) {
    switch (p.state) {
        case ParseState::Done: return OX_INVALID_ARGUMENT;
        case ParseState::Failed: return p.outcome;
        case ParseState::Stopped: return OX_XML_STOPPED;
        default: return p.inExpat ? OX_INVALID_ARGUMENT : OX_OK;
    }
}

OXStatus failure(Parser& p) {
    const XML_Error error = XML_GetErrorCode(p.expat);
    if (error == XML_ERROR_ABORTED && p.outcome != OX_OK) {
        p.state = p.stoppedByCallback ? ParseState::Stopped : ParseState::Failed;
        return p.outcome;
    }
    p.state = ParseState::Failed;
    p.outcome = error == XML_ERROR_NO_MEMORY ? OX_NO_MEMORY : OX_XML_MALFORMED;
    return p.outcome;
}

// Runs a document-level callback; a status from it ends the document like any other stop.
OXStatus documentEvent(Parser& p, OXStatus (*event)(void*)) {
    const OXStatus status = event ? event(p.ctx) : OX_OK;
    if (status != OX_OK) {
        p.state = ParseState::Stopped;
        p.outcome = status;
        p.stoppedByCallback = true;
    }
    return status;
}

OXStatus feed(Parser& p, std::string_view bytes, bool isFinal) {
    p.inExpat = true;
    XML_Status result = XML_STATUS_OK;
    do {
        const size_t piece = std::min(bytes.size(), kMaxPiece);
        const bool last = piece == bytes.size();
        result = XML_Parse(p.expat, bytes.data(), static_cast<int>(piece), last && isFinal);
        bytes.remove_prefix(piece);
    } while (result == XML_STATUS_OK && !bytes.empty());
    p.inExpat = false;
    return result == XML_STATUS_OK ? OX_OK : failure(p);
}

OXStatus parse(XMLParser_S* self, UTF8CStr bytes, UTF8ByteLength len, OXBoolean isFinal) {
    if (!self || (!bytes && len)) return OX_INVALID_ARGUMENT;
    Parser& p = parserOf(self);
    if (const OXStatus refused = refusal(p); refused != OX_OK) return refused;
    if (p.state == ParseState::Ready) {
        p.state = ParseState::Parsing;
        if (const OXStatus status = documentEvent(p, p.cb->docStart); status != OX_OK) return status;
    }
    ExpatPoolScope scope(p.pool);
    if (const OXStatus status = feed(p, std::string_view(bytes ? bytes : "", len), isFinal); status != OX_OK)
        return status;
    if (!isFinal) return OX_OK;
    p.state = ParseState::Done;
    return documentEvent(p, p.cb->docEnd);
}

OXStatus reset(XMLParser_S* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    Parser& p = parserOf(self);
    if (p.inExpat) return OX_INVALID_ARGUMENT;
    ExpatPoolScope scope(p.pool);
    if (!XML_ParserReset(p.expat, nullptr) || !configure(p)) return OX_FAILED;
    p.path.clear();
    p.attrs.clear();
    p.state = ParseState::Ready;
    p.outcome = OX_OK;
    p.stoppedByCallback = false;
    p.skipNextEnd = false;
    return OX_OK;
}

// ---- positions and names

uint64_t line(XMLParser_S* self) { return self ? XML_GetCurrentLineNumber(parserOf(self).expat) : 0; }

uint64_t column(XMLParser_S* self) { return self ? XML_GetCurrentColumnNumber(parserOf(self).expat) + 1 : 0; }

OXStatus path(XMLParser_S* self, UTF8CStr* text, UTF8ByteLength* len) {
    if (!self || !text || !len) return OX_INVALID_ARGUMENT;
    const Parser& p = parserOf(self);
    *text = p.path.empty() ? "/" : p.path.data();
    *len = p.path.empty() ? 1 : p.path.size();
    return OX_OK;
}

OXStatus base(XMLParser_S* self, UTF8CStr* text, UTF8ByteLength* len) {
    if (!self || !text || !len) return OX_INVALID_ARGUMENT;
    const Parser& p = parserOf(self);
    *text = p.base.empty() ? "" : p.base.data();
    *len = p.base.size();
    return OX_OK;
}

// ---- escaping

OXStatus escapeInBuffer(EscapeKind kind, UTF8CStr text, UTF8ByteLength len, char* buf, UTF8ByteLength bufL,
                        UTF8ByteLength* outL) {
    if ((!text && len) || (!buf && bufL) || !outL) return OX_INVALID_ARGUMENT;
    const std::string_view in(text ? text : "", len);
    const size_t needed = ox::xml::escapedLength(kind, in);
    *outL = needed;
    if (needed > bufL) return OX_BUFFER_TOO_SMALL;
    ox::xml::escapeInto(kind, in, buf);
    return OX_OK;
}

OXStatus escapeToString(XMLParser_S* self, EscapeKind kind, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len,
                        OXU8String** out) {
    if (!self || (!text && len) || !out) return OX_INVALID_ARGUMENT;
    if (!pool) pool = parserOf(self).pool;
    OXStringExt_S* strings = oxStringService();
    const std::string_view in(text ? text : "", len);
    const size_t needed = ox::xml::escapedLength(kind, in);
    if (needed == in.size()) return strings->createU8(strings, pool, in.data(), in.size(), OX_STR_COPY, out);
    ox::PoolBuffer<char> escaped(pool);
    if (!escaped.reserve(needed)) return OX_NO_MEMORY;
    ox::xml::escapeInto(kind, in, escaped.data());
    return strings->createU8(strings, pool, escaped.data(), needed, OX_STR_COPY, out);
}

OXStatus escAttrVal(XMLParser_S* self, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXU8String** out) {
    return escapeToString(self, EscapeKind::Attribute, pool, text, len, out);
}

OXStatus escElemVal(XMLParser_S* self, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXU8String** out) {
    return escapeToString(self, EscapeKind::Element, pool, text, len, out);
}

OXStatus escAttrValInBuf(XMLParser_S*, UTF8CStr text, UTF8ByteLength len, char* buf, UTF8ByteLength bufL,
                         UTF8ByteLength* outL) {
    return escapeInBuffer(EscapeKind::Attribute, text, len, buf, bufL, outL);
}

OXStatus escElemValInBuf(XMLParser_S*, UTF8CStr text, UTF8ByteLength len, char* buf, UTF8ByteLength bufL,
                         UTF8ByteLength* outL) {
    return escapeInBuffer(EscapeKind::Element, text, len, buf, bufL, outL);
}

// ---- creation and release

OXStatus destroyParser(void* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    Parser* p = static_cast<Parser*>(self);
    OX_POOL_S* pool = p->pool;
    if (p->expat) {
        ExpatPoolScope scope(pool);
        XML_ParserFree(p->expat);
    }
    p->~Parser();
    pool->memFree(pool, p);
    return OX_OK;
}

constexpr XMLParser_S kParserOps = {
    {kParserOven, "OXXMLParser", destroyParser},
    reset, parse, base, column, line, path, escAttrVal, escElemVal, escAttrValInBuf, escElemValInBuf,
};

struct ParserDeleter {
    void operator()(Parser* p) const { destroyParser(p); }
};
using ParserHolder = std::unique_ptr<Parser, ParserDeleter>;

OXStatus checkParms(const XMLCreateParms& parms) {
    if (!parms.usePool || !parms.callBacks || (!parms.base && parms.baseL)) return OX_INVALID_ARGUMENT;
    if (parms.stream || parms.xslStream || parms.cbCEI == NLS_CEI_UTF32) return OX_NOT_SUPPORTED;
    return OX_OK;
}

OXStatus makeParser(const XMLCreateParms& parms, XMLParser_S** out) {
    OX_POOL_S* pool = parms.usePool;
    void* mem = pool->memAlloc(pool, sizeof(Parser), OX_POOL_ZERO_FILL);
    if (!mem) return OX_NO_MEMORY;
    ParserHolder p(new (mem) Parser(pool, parms.callBacks));
    p->rec = kParserOps;
    if (!p->base.append(parms.base, parms.baseL)) return OX_NO_MEMORY;
    {
        ExpatPoolScope scope(pool);
        p->expat = XML_ParserCreate_MM(nullptr, &kExpatMemory, nullptr);
    }
    if (!p->expat) return OX_NO_MEMORY;
    if (!configure(*p)) return OX_FAILED;
    *out = &p.release()->rec;
    return OX_OK;
}

// ---- the service record

OXStatus createParser(OXXMLExt_S*, const XMLCreateParms* parms, XMLParser_S** out) {
    if (!parms || !out) return OX_INVALID_ARGUMENT;
    OXStatus status = checkParms(*parms);
    if (status == OX_OK) status = makeParser(*parms, out);
    if (status != OX_OK && parms->jnl) oxlStatusToJnl(parms->jnl, status, 4);
    return status;
}

void fillXmlOps(OXXMLExt_S& rec) { rec.create = createParser; }

}  // namespace

OXExtension* oxLoadXml(OX_HNDL_S* h, OXJournal*) { return ox::loadedRecord<OXXMLExt_S>(h, "oxexml", fillXmlOps); }
