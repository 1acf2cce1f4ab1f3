// The frame every S3 XML document parser runs on: element names mapped to types by a table per
// document, a stack of open elements, and character data appended to the one string being
// collected. Documents are parsed by events; no tree is built.
#pragma once

#include <cstdint>
#include <new>
#include <string_view>
#include <type_traits>

#include "ox/status.h"
#include "ox/webclient.h"
#include "ox/xml.h"
#include "oxs3.h"
#include "oxs3owned.h"

namespace s3 {

// One enumeration for every document; the numbers are fixed.
enum S3XMLElementType : int32_t {
    unknownElement = 0,
    rootElement = 1,
    bucketListResultElement = 2,
    ownerElement = 3,
    idElement = 4,
    displayNameElement = 5,
    bucketListElement = 6,
    bucketElement = 7,
    nameElement = 8,
    creationDateElement = 9,
    bucketContentResultElement = 10,
    prefixElement = 11,
    markerElement = 12,
    maxKeysElement = 13,
    isTruncatedElement = 14,
    contentsElement = 15,
    keyElement = 16,
    lastModifiedElement = 17,
    eTagElement = 18,
    sizeElement = 19,
    storageClassElement = 20,
    nextMarkerElement = 21,
    commonPrefixesElement = 22,
    delimiterElement = 23,
    encodingTypeElement = 24,
    uploadInitiateResultElement = 25,
    uploadIdElement = 26,
    errorElement = 27,
    errorCodeElement = 28,
    errorMessageElement = 29,
    requestIdElement = 30,
    hostIdElement = 31,
    copyPartResultElement = 32,
    deleteResultElement = 33,
    deletedElement = 34,
    versionIdElement = 35,
    deleteMarkerElement = 36,
    deleteMarkerVersionIdElement = 37,
    nextContinuationTokenElement = 38,
    keyCount = 39,
    continuationTokenElement = 40,
    accelerateConfigurationElement = 41,
    statusElement = 42,
    // 43-70: the STS and IAM documents' types.
};

// One row of a document's table; the last row has no text, length 0 and unknownElement.
struct ElementName {
    const char* text;
    uint64_t length;
    S3XMLElementType elementType;
};

constexpr ElementName element(std::string_view name, S3XMLElementType type) {
    return {name.data(), name.size(), type};
}
inline constexpr ElementName kEndOfTable{nullptr, 0, unknownElement};

// Index 0 is never written, so 63 elements can be open at once.
inline constexpr int32_t kElementStackSize = 64;

// The state every document parser record begins with.
struct S3XMLParser {
    XMLParseCB callbacks;  // first: the host hands the callbacks this record
    OX_POOL_S* pool;
    OXStringExt_S* oxstring;
    OXArrayExt_S* oxarray;
    OXDictionaryExt_S* oxdictionary;
    OXInstanceSvc_S* oxinstance;
    OXWebClient_S* webclient;
    uint64_t parseResult;
    uint64_t errorLine;
    uint64_t errorColumn;
    int32_t currentElement;
    S3XMLElementType elements[kElementStackSize];
    OXU8String* currentText;  // borrowed: a field of the document parser owns it
};

// The type of the first row with exactly these bytes; unknownElement when none.
S3XMLElementType elementType(const ElementName* table, const char* name, uint64_t nameLength);

// The character-data callback of every document.
OXStatus xmlParserCharData(void* parser, UTF8CStr text, UTF8ByteLength textLength);

// Runs one whole document through the host XML service with parser as callback record. A
// malformed document leaves the host's position in errorLine and errorColumn.
OXStatus parseXML(OXXMLExt_S* xmlService, S3XMLParser* parser, const char* body, uint64_t bodyLength);

// ---- what callbacks share

// The parent of an element being started (not yet pushed), and of the element on top.
S3XMLElementType parentOfNew(const S3XMLParser& parser);
S3XMLElementType parentOfTop(const S3XMLParser& parser);

// Starts a new empty string in field (releasing the one there) and appends the element's
// text to it. An empty element has no text of its own: its string stays empty, and only text
// still due to an enclosing element collecting into the same field goes on into it.
OXStatus collect(S3XMLParser& parser, Owned<OXU8String>& field, bool isEmpty);
OXStatus collect(S3XMLParser& parser, OXU8String*& field, bool isEmpty);
inline void stopCollecting(S3XMLParser& parser) { parser.currentText = nullptr; }
// Releases a field's string; collection into it stops.
void releaseText(S3XMLParser& parser, Owned<OXU8String>& field);

// A LastModified or CreationDate text as a date-time: ISO 8601, else an HTTP date.
OXStatus convertDate(const S3XMLParser& parser, const OXU8String* text, OXDateTime* dateTime);

// Makes array when it is absent.
OXStatus ensureArray(S3XMLParser& parser, Owned<OXArray_S>& array);
// Appends an instance to an array, which takes its own reference; the caller keeps its own.
OXStatus appendItem(OXArray array, void* item);

// A start callback's steps around the document's own handling: look-up, the depth check,
// and the push.
using StartHandling = OXStatus (*)(S3XMLParser& parser, S3XMLElementType type, std::string_view name, bool isEmpty);
using EndHandling = OXStatus (*)(S3XMLParser& parser, S3XMLElementType type);

OXStatus startElement(void* parser, std::string_view name, bool isEmpty, const ElementName* table,
                      bool logUnknown, StartHandling handle);
// An end callback's: the type on top is handled, then popped.
OXStatus endElement(void* parser, EndHandling handle);

// How a document reports a failed parse: its own log line ("<name>: 0x%x Line: %d Column: %d"),
// and whether the raw body also goes to the standard error stream.
struct DocumentFailure {
    const char32_t* logFormat;
    bool echoBodyToStderr;
};

// All that sets one document apart: its element table, its own handling, and its failure report.
struct DocumentKind {
    const ElementName* elements;
    bool logUnknown;
    StartHandling start;
    EndHandling end;
    DocumentFailure failure;
};

// The host callbacks of a document kind.
template <const DocumentKind& Kind>
OXStatus documentStart(void* parser, UTF8CStr name, UTF8ByteLength nameLength, const XMLAttribute*, size_t,
                       OXBoolean isEmpty) {
    return startElement(parser, {name, nameLength}, isEmpty, Kind.elements, Kind.logUnknown, Kind.start);
}

template <const DocumentKind& Kind>
OXStatus documentEnd(void* parser, UTF8CStr, UTF8ByteLength) {
    return endElement(parser, Kind.end);
}

// Which element collects into which string field of a document parser.
template <class Parser>
struct CollectedField {
    S3XMLElementType type;
    Owned<OXU8String> Parser::*field;
};

// The field an element collects into, or null when it collects nothing.
template <class Parser, size_t N>
Owned<OXU8String>* fieldFor(Parser& parser, const CollectedField<Parser> (&fields)[N], S3XMLElementType type) {
    for (const auto& row : fields)
        if (row.type == type) return &(parser.*row.field);
    return nullptr;
}

// The document parser a callback was given.
template <class Parser>
Parser& documentOf(S3XMLParser& frame) {
    static_assert(std::is_standard_layout_v<Parser>, "the frame must be the record's first member");
    return *reinterpret_cast<Parser*>(&frame);
}

// Services from the extension record, the document's callbacks and a cleared state.
void fillFrame(S3XMLParser& frame, OXS3Extension* ext, OX_POOL_S* pool, decltype(XMLParseCB::elemStart) start,
               decltype(XMLParseCB::elemEnd) end);

// parseXML for a document function, logging a failure as the document asks.
OXStatus runDocument(OXS3Extension* ext, S3XMLParser& frame, const char* body, uint64_t bodyLength,
                     const DocumentFailure& failure);

// A document parser record for one parse: allocated zero-filled from the caller's pool, and
// released with every string it still holds.
template <class Parser>
class ParserRecord {
public:
    ParserRecord() = default;
    ~ParserRecord() {
        if (!parser_) return;
        parser_->~Parser();
        pool_->memFree(pool_, parser_);
    }
    ParserRecord(const ParserRecord&) = delete;
    ParserRecord& operator=(const ParserRecord&) = delete;

    OXStatus create(OXS3Extension* ext, OX_POOL_S* pool, decltype(XMLParseCB::elemStart) start,
                    decltype(XMLParseCB::elemEnd) end) {
        void* memory = pool->memAlloc(pool, sizeof(Parser), OX_POOL_ZERO_FILL);
        if (!memory) return OX_NO_MEMORY;
        pool_ = pool;
        parser_ = new (memory) Parser{};
        fillFrame(parser_->frame, ext, pool, start, end);
        return OX_OK;
    }

    // A new record for a document of Kind, with body run through it.
    template <const DocumentKind& Kind>
    OXStatus parse(OXS3Extension* ext, OX_POOL_S* pool, const char* body, uint64_t bodyLength) {
        OXStatus st = create(ext, pool, documentStart<Kind>, documentEnd<Kind>);
        return st == OX_OK ? runDocument(ext, parser_->frame, body, bodyLength, Kind.failure) : st;
    }

    Parser* operator->() const { return parser_; }
    Parser& operator*() const { return *parser_; }

private:
    OX_POOL_S* pool_ = nullptr;
    Parser* parser_ = nullptr;
};


}  // namespace s3
