// The documents that report failures: an S3 error answer (Error) and the keys a multi-object
// delete could not delete (DeleteResult).
#include <string_view>

#include "oxs3docs.h"
#include "oxs3xml.h"

namespace s3 {
namespace {

// ---- Error

struct ErrorParser {
    S3XMLParser frame;
    OXBoolean errorFound;
    Owned<OXU8String> code;
    Owned<OXU8String> message;
    Owned<OXU8String> requestId;
    Owned<OXU8String> hostId;
    Owned<OXDictionary_S> details;
};

constexpr ElementName kErrorElements[] = {
    element("Error", errorElement),
    element("Code", errorCodeElement),
    element("Message", errorMessageElement),
    element("RequestId", requestIdElement),
    element("HostId", hostIdElement),
    kEndOfTable,
};

// Taken wherever they occur: some services wrap Error and put the request id after it.
constexpr CollectedField<ErrorParser> kErrorFields[] = {
    {errorCodeElement, &ErrorParser::code},
    {errorMessageElement, &ErrorParser::message},
    {requestIdElement, &ErrorParser::requestId},
    {hostIdElement, &ErrorParser::hostId},
};

OXStatus collectDetail(ErrorParser& p, std::string_view name, bool isEmpty) {
    S3XMLParser& frame = p.frame;
    if (!p.details &&
        frame.oxdictionary->create(frame.oxdictionary, frame.pool, OX_DICT_CASE_SENSITIVE, p.details.out()) != OX_OK)
        return OX_NO_MEMORY;
    Owned<OXU8String> text;
    if (OXStatus st = frame.oxstring->createU8Empty(frame.oxstring, frame.pool, 0, text.out()); st != OX_OK) return st;
    OXDictionary details = p.details.get();
    if (OXStatus st = details->setValueU8(details, name.data(), name.size(), text.instance()); st != OX_OK) return st;
    frame.currentText = isEmpty ? nullptr : text.get();  // the dictionary keeps it alive
    return OX_OK;
}

// A detail holds text only: an element inside one, or anywhere after Error, is refused.
OXStatus errorStart(S3XMLParser& frame, S3XMLElementType type, std::string_view name, bool isEmpty) {
    auto& p = documentOf<ErrorParser>(frame);
    if (type == errorElement) {
        p.errorFound = OX_TRUE;
        return OX_OK;
    }
    if (Owned<OXU8String>* field = fieldFor(p, kErrorFields, type)) return collect(frame, *field, isEmpty);
    if (parentOfNew(frame) == errorElement) return collectDetail(p, name, isEmpty);
    return p.errorFound ? OX_INVALID_ARGUMENT : OX_OK;
}

OXStatus errorEnd(S3XMLParser& frame, S3XMLElementType type) {
    auto& p = documentOf<ErrorParser>(frame);
    if (type == unknownElement || fieldFor(p, kErrorFields, type)) stopCollecting(frame);
    return OX_OK;
}

constexpr DocumentKind kError{kErrorElements, false, errorStart, errorEnd,
                              {U"parseError: 0x%x Line: %d Column: %d", true}};

OXStatus errorResult(ErrorParser& p, OXS3Error** result) {
    if (!p.errorFound) {
        *result = nullptr;
        return OX_OK;
    }
    Owned<OXS3Error> error;
    if (createS3Error(p.frame.pool, error.out()) != OX_OK) return OX_NO_MEMORY;
    error->code = p.code.release();
    error->message = p.message.release();
    error->requestId = p.requestId.release();
    error->hostId = p.hostId.release();
    error->details = p.details.release();
    *result = error.release();
    return OX_OK;
}

// ---- DeleteResult

struct DeleteResultParser {
    S3XMLParser frame;
    Owned<OXU8String> code;
    Owned<OXU8String> message;
    Owned<OXU8String> key;
    Owned<OXU8String> version;
    Owned<OXArray_S> errorList;
};

// VersionId has a second row that is never reached; kept so the table reads as S3 documents it.
constexpr ElementName kDeleteResultElements[] = {
    element("DeleteResult", deleteResultElement),
    element("Deleted", deletedElement),
    element("VersionId", versionIdElement),
    element("DeleteMarker", deleteMarkerElement),
    element("DeleteMarkerVersionId", deleteMarkerVersionIdElement),
    element("Key", keyElement),
    element("VersionId", versionIdElement),
    element("Error", errorElement),
    element("Code", errorCodeElement),
    element("Message", errorMessageElement),
    kEndOfTable,
};

constexpr CollectedField<DeleteResultParser> kDeleteFields[] = {
    {keyElement, &DeleteResultParser::key},
    {versionIdElement, &DeleteResultParser::version},
    {errorCodeElement, &DeleteResultParser::code},
    {errorMessageElement, &DeleteResultParser::message},
};

// Deletions that succeeded leave nothing. A field this Error did not set keeps what an earlier
// element left, the version of a preceding Deleted entry for one.
OXStatus finishDeleteError(DeleteResultParser& p) {
    Owned<OXS3DeleteError> error;
    if (createDeleteError(p.frame.pool, error.out()) != OX_OK) return OX_NO_MEMORY;
    error->code = p.code.release();
    error->message = p.message.release();
    error->key = p.key.release();
    error->version = p.version.release();
    if (OXStatus st = ensureArray(p.frame, p.errorList); st != OX_OK) return st;
    return appendItem(p.errorList.get(), error.get());
}

OXStatus deleteResultStart(S3XMLParser& frame, S3XMLElementType type, std::string_view, bool isEmpty) {
    auto& p = documentOf<DeleteResultParser>(frame);
    if (Owned<OXU8String>* field = fieldFor(p, kDeleteFields, type)) return collect(frame, *field, isEmpty);
    return type == errorElement ? ensureArray(frame, p.errorList) : OX_OK;
}

OXStatus deleteResultEnd(S3XMLParser& frame, S3XMLElementType type) {
    auto& p = documentOf<DeleteResultParser>(frame);
    if (fieldFor(p, kDeleteFields, type)) stopCollecting(frame);
    return type == errorElement ? finishDeleteError(p) : OX_OK;
}

constexpr DocumentKind kDeleteResult{kDeleteResultElements, true, deleteResultStart, deleteResultEnd,
                                     {U"parseDeleteResult: 0x%x Line: %d Column: %d", false}};

}  // namespace

OXStatus parseError(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength, OXS3Error** error) {
    if (!ext || !pool || !error) return OX_INVALID_ARGUMENT;
    ParserRecord<ErrorParser> p;
    OXStatus st = p.parse<kError>(ext, pool, body, bodyLength);
    if (st == OX_OK) st = errorResult(*p, error);
    return st;
}

OXStatus parseDeleteResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                           OXArray* errors) {
    if (!ext || !pool || !errors) return OX_INVALID_ARGUMENT;
    ParserRecord<DeleteResultParser> p;
    if (OXStatus st = p.parse<kDeleteResult>(ext, pool, body, bodyLength); st != OX_OK) return st;
    *errors = p->errorList.release();
    return OX_OK;
}

}  // namespace s3
