// The small result documents whose elements only carry text: a multipart upload's id
// (InitiateMultipartUploadResult), a copied part's ETag (CopyPartResult) and a bucket's
// transfer acceleration (AccelerateConfiguration).
#include <string_view>

#include "oxs3docs.h"
#include "oxs3text.h"
#include "oxs3xml.h"

namespace s3 {
namespace {

// Start and end callbacks of a document whose recognised elements each collect one field.
template <class Parser, const auto& Fields>
OXStatus collectingStart(S3XMLParser& frame, S3XMLElementType type, std::string_view, bool isEmpty) {
    Owned<OXU8String>* field = fieldFor(documentOf<Parser>(frame), Fields, type);
    return field ? collect(frame, *field, isEmpty) : OX_OK;
}

template <class Parser, const auto& Fields>
OXStatus collectingEnd(S3XMLParser& frame, S3XMLElementType type) {
    if (fieldFor(documentOf<Parser>(frame), Fields, type)) stopCollecting(frame);
    return OX_OK;
}

// Such a document's kind; none of them logs more than its failure line.
template <class Parser, const auto& Fields>
constexpr DocumentKind collectingDocument(const ElementName* elements, const char32_t* failureFormat) {
    return {elements, true, collectingStart<Parser, Fields>, collectingEnd<Parser, Fields>, {failureFormat, false}};
}

// ---- InitiateMultipartUploadResult

struct InitiateUploadParser {
    S3XMLParser frame;
    Owned<OXU8String> bucket;
    Owned<OXU8String> key;
    Owned<OXU8String> uploadId;
};

constexpr ElementName kInitiateUploadElements[] = {
    element("InitiateMultipartUploadResult", uploadInitiateResultElement),
    element("UploadId", uploadIdElement),
    element("Bucket", bucketElement),
    element("Key", keyElement),
    kEndOfTable,
};

constexpr CollectedField<InitiateUploadParser> kInitiateUploadFields[] = {
    {bucketElement, &InitiateUploadParser::bucket},
    {keyElement, &InitiateUploadParser::key},
    {uploadIdElement, &InitiateUploadParser::uploadId},
};

constexpr DocumentKind kInitiateUpload = collectingDocument<InitiateUploadParser, kInitiateUploadFields>(
    kInitiateUploadElements, U"parseInitiateUpload: 0x%x Line: %d Column: %d");

// ---- CopyPartResult

struct CopyPartResultParser {
    S3XMLParser frame;
    Owned<OXU8String> lastModified;
    Owned<OXU8String> eTag;
};

constexpr ElementName kCopyPartResultElements[] = {
    element("CopyPartResult", copyPartResultElement),
    element("LastModified", lastModifiedElement),
    element("ETag", eTagElement),
    kEndOfTable,
};

constexpr CollectedField<CopyPartResultParser> kCopyPartResultFields[] = {
    {lastModifiedElement, &CopyPartResultParser::lastModified},
    {eTagElement, &CopyPartResultParser::eTag},
};

constexpr DocumentKind kCopyPartResult = collectingDocument<CopyPartResultParser, kCopyPartResultFields>(
    kCopyPartResultElements, U"parseCopyPartResult: 0x%x Line: %d Column: %d");

// ---- AccelerateConfiguration

struct AccelerateResultParser {
    S3XMLParser frame;
    Owned<OXU8String> status;
};

constexpr ElementName kAccelerateResultElements[] = {
    element("AccelerateConfiguration", accelerateConfigurationElement),
    element("Status", statusElement),
    kEndOfTable,
};

constexpr CollectedField<AccelerateResultParser> kAccelerateResultFields[] = {
    {statusElement, &AccelerateResultParser::status},
};

struct AccelerateStatusName {
    std::string_view text;
    S3AccelerateState state;
};

constexpr AccelerateStatusName kAccelerateStates[] = {
    {"Enabled", s3AccelerateEnabled},
    {"Suspended", s3AccelerateSuspended},
};

constexpr DocumentKind kAccelerateResult = collectingDocument<AccelerateResultParser, kAccelerateResultFields>(
    kAccelerateResultElements, U"parseAccelerateResult: 0x%x Line: %d Column: %d");

// Any other text, or none (an unconfigured bucket's empty configuration), is unknown.
S3AccelerateState accelerateStateFor(const OXU8String* status) {
    if (!status) return s3AccelerateUnknown;
    for (const auto& row : kAccelerateStates)
        if (row.text == view(status)) return row.state;
    return s3AccelerateUnknown;
}

}  // namespace

OXStatus parseInitiateUpload(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                             OXU8String** bucket, OXU8String** key, OXU8String** uploadId) {
    if (!ext || !pool || !bucket || !key || !uploadId) return OX_INVALID_ARGUMENT;
    ParserRecord<InitiateUploadParser> p;
    if (OXStatus st = p.parse<kInitiateUpload>(ext, pool, body, bodyLength); st != OX_OK) return st;
    *bucket = p->bucket.release();
    *key = p->key.release();
    *uploadId = p->uploadId.release();
    return OX_OK;
}

OXStatus parseCopyPartResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                             OXU8String** eTag) {
    if (!ext || !pool || !eTag) return OX_INVALID_ARGUMENT;
    ParserRecord<CopyPartResultParser> p;
    if (OXStatus st = p.parse<kCopyPartResult>(ext, pool, body, bodyLength); st != OX_OK) return st;
    *eTag = p->eTag.release();
    return OX_OK;
}

OXStatus parseAccelerateResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                               S3AccelerateState* state) {
    if (!ext || !pool || !state) return OX_INVALID_ARGUMENT;
    ParserRecord<AccelerateResultParser> p;
    if (OXStatus st = p.parse<kAccelerateResult>(ext, pool, body, bodyLength); st != OX_OK) return st;
    *state = accelerateStateFor(p->status.get());
    return OX_OK;
}

}  // namespace s3
