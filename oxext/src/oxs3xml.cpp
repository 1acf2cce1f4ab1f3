// The parse frame shared by every S3 XML document: the host parser set up for one body, the
// element stack and the collection of character data.
#include "oxs3xml.h"

#include <cstdio>

#include "oxs3log.h"

namespace s3 {
namespace {

constexpr UTF8CStr kBase = "/";
constexpr uint32_t kParserFlags = 0x20000000;
constexpr int32_t kDeepestOpen = kElementStackSize - 1;
// Room for the usual element text (keys, ETags, dates, owner ids) without growing the string.
constexpr UTF8ByteLength kTextCapacity = 64;

S3XMLParser& frameOf(void* parser) { return *static_cast<S3XMLParser*>(parser); }

XMLCreateParms creationParms(S3XMLParser* parser) {
    XMLCreateParms parms{};
    parms.docCEI = NLS_CEI_UTF8;
    parms.defCEI = NLS_CEI_UTF8;
    parms.cbCEI = NLS_CEI_UTF8;
    parms.base = kBase;
    parms.baseL = 1;
    parms.flags = kParserFlags;
    parms.usePool = parser->pool;
    parms.callBacks = &parser->callbacks;
    return parms;
}

void logUnknownElement(std::string_view name) {
    OXS3_LOG(oxs3logger, LL_Debug, U"Unknown element: %.*hs, ignoring.", static_cast<int>(name.size()), name.data());
}

void push(S3XMLParser& parser, S3XMLElementType type) { parser.elements[++parser.currentElement] = type; }

void logFailure(OXS3Extension* ext, const S3XMLParser& frame, const char* body, uint64_t bodyLength,
                const DocumentFailure& failure) {
    OXS3_LOG(ext->logger, LL_Debug, failure.logFormat, static_cast<unsigned>(frame.parseResult),
             static_cast<int>(frame.errorLine), static_cast<int>(frame.errorColumn));
    OXS3_LOG(ext->logger, LL_Debug, U"%.*hs", static_cast<int>(bodyLength), body ? body : "");
}

}  // namespace

S3XMLElementType elementType(const ElementName* table, const char* name, uint64_t nameLength) {
    const std::string_view wanted(name, nameLength);
    for (const ElementName* row = table; row->text; ++row)
        if (row->length == nameLength && std::string_view(row->text, row->length) == wanted) return row->elementType;
    return unknownElement;
}

OXStatus xmlParserCharData(void* parser, UTF8CStr text, UTF8ByteLength textLength) {
    OXU8String* into = frameOf(parser).currentText;
    return into ? into->extHandle->appendU8(into, text, textLength) : OX_OK;
}

OXStatus parseXML(OXXMLExt_S* xmlService, S3XMLParser* parser, const char* body, uint64_t bodyLength) {
    const XMLCreateParms parms = creationParms(parser);
    XMLParser_S* xml = nullptr;
    if (xmlService->create(xmlService, &parms, &xml) != OX_OK) return OX_FAILED;
    OXStatus st = xml->parse(xml, body, bodyLength, OX_TRUE);
    if (st == OX_END_OF_DATA) st = OX_OK;
    if (st != OX_OK) {
        parser->errorLine = xml->line(xml);
        parser->errorColumn = xml->column(xml);
    }
    parser->parseResult = static_cast<uint32_t>(st);
    xml->generic.destroy(xml);
    return st;
}

void fillFrame(S3XMLParser& frame, OXS3Extension* ext, OX_POOL_S* pool, decltype(XMLParseCB::elemStart) start,
               decltype(XMLParseCB::elemEnd) end) {
    frame.callbacks.elemStart = start;
    frame.callbacks.elemEnd = end;
    frame.callbacks.charData = xmlParserCharData;
    frame.pool = pool;
    frame.oxstring = ext->oxstring;
    frame.oxarray = ext->oxarray;
    frame.oxdictionary = ext->oxdictionary;
    frame.oxinstance = ext->oxinstance;
    frame.webclient = reinterpret_cast<OXWebClient_S*>(ext->webclient);
    frame.parseResult = frame.errorLine = frame.errorColumn = 0;
    frame.currentElement = 0;
}

S3XMLElementType parentOfNew(const S3XMLParser& parser) {
    return parser.currentElement > 0 ? parser.elements[parser.currentElement] : rootElement;
}

S3XMLElementType parentOfTop(const S3XMLParser& parser) {
    return parser.currentElement > 1 ? parser.elements[parser.currentElement - 1] : rootElement;
}

OXStatus collect(S3XMLParser& parser, Owned<OXU8String>& field, bool isEmpty) {
    OXU8String* text = nullptr;
    if (OXStatus st = parser.oxstring->createU8Empty(parser.oxstring, parser.pool, kTextCapacity, &text); st != OX_OK)
        return st;
    // Text still due to an enclosing element that collected into this field goes on into the
    // new string, never into the released one.
    const bool wasCollecting = field && parser.currentText == field.get();
    field.reset(text);
    if (!isEmpty || wasCollecting) parser.currentText = text;
    return OX_OK;
}

void releaseText(S3XMLParser& parser, Owned<OXU8String>& field) {
    if (field && parser.currentText == field.get()) stopCollecting(parser);
    field.reset();
}

OXStatus collect(S3XMLParser& parser, OXU8String*& field, bool isEmpty) {
    Owned<OXU8String> held(field);
    field = nullptr;
    OXStatus st = collect(parser, held, isEmpty);
    field = held.release();
    return st;
}

OXStatus convertDate(const S3XMLParser& parser, const OXU8String* text, OXDateTime* dateTime) {
    const std::string_view date = text ? std::string_view(text->stg, text->len) : std::string_view();
    OXStatus st = parser.webclient->parseIsoDateTime(date.data(), date.size(), dateTime);
    if (st == OX_DATE_NOT_IN_FORM) st = parser.webclient->parseHttpDate(date.data(), date.size(), dateTime);
    return st;
}

OXStatus ensureArray(S3XMLParser& parser, Owned<OXArray_S>& array) {
    if (array) return OX_OK;
    return parser.oxarray->create(parser.oxarray, parser.pool, 0, array.out()) == OX_OK ? OX_OK : OX_NO_MEMORY;
}

OXStatus appendItem(OXArray array, void* item) { return array->addItem(array, static_cast<OXInstance*>(item)); }

OXStatus startElement(void* parser, std::string_view name, bool isEmpty, const ElementName* table,
                      bool logUnknown, StartHandling handle) {
    S3XMLParser& frame = frameOf(parser);
    const S3XMLElementType type = elementType(table, name.data(), name.size());
    if (type == unknownElement && logUnknown) logUnknownElement(name);
    if (frame.currentElement >= kDeepestOpen) return OX_INVALID_ARGUMENT;
    if (OXStatus st = handle(frame, type, name, isEmpty); st != OX_OK) return st;
    if (!isEmpty) push(frame, type);
    return OX_OK;
}

OXStatus endElement(void* parser, EndHandling handle) {
    S3XMLParser& frame = frameOf(parser);
    if (frame.currentElement <= 0) return OX_INVALID_ARGUMENT;
    OXStatus st = handle(frame, frame.elements[frame.currentElement]);
    --frame.currentElement;
    return st;
}

OXStatus runDocument(OXS3Extension* ext, S3XMLParser& frame, const char* body, uint64_t bodyLength,
                     const DocumentFailure& failure) {
    OXStatus st = parseXML(reinterpret_cast<OXXMLExt_S*>(ext->oxexml), &frame, body, bodyLength);
    if (st == OX_OK) return OX_OK;
    if (failure.echoBodyToStderr && body) {
        std::fwrite(body, 1, bodyLength, stderr);
        std::fputc('\n', stderr);
    }
    logFailure(ext, frame, body, bodyLength, failure);
    return st;
}

}  // namespace s3
