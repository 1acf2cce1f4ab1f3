// Single-request puts. The head goes first with "Expect: 100-continue" so a refused put costs
// no body bytes; the body is written from the caller's memory.
#include "oxs3write.h"

#include "ox/status.h"
#include "oxs3aclheaders.h"
#include "oxs3chunked.h"
#include "oxs3connection.h"
#include "oxs3encode.h"
#include "oxs3error.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3parallel.h"
#include "oxs3request.h"
#include "oxs3sign.h"
#include "oxs3text.h"
#include "oxs3textbuf.h"

namespace s3 {
namespace {

// A put whose attempts all failed transiently reports success, as callers have always seen.
constexpr SendCycleOp kPut = {"oxs3PutObject",
                              U"oxs3PutObject (non-threaded): Write failed with result 0x%x. Retrying.", false,
                              AfterRetries::fixedStatus, OX_OK};

constexpr std::string_view kStorageClassHeader = "x-amz-storage-class";
constexpr std::string_view kRedirectHeader = "x-amz-website-redirect-location";

OXStatus readFinalAnswer(Attempt& a) {
    HTTPStatus status{};
    OXStatus st = readAnswer(a, status, {OX_HTTP_OK, OX_HTTP_CREATED, OX_HTTP_NOT_FOUND});
    if (st != OX_OK) return st;
    if (status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    return drainBody(a);
}

bool isSuccess(OXStatus message) { return message == OX_HTTP_OK || message == OX_HTTP_CREATED; }

OXStatus putOnce(Attempt& a, const PutArguments& put, std::string_view path, std::string_view payloadHash) {
    OXS3Connection c = a.connection;
    const EncryptionArgs& e = put.encryption;
    Owned<OXDictionary_S> headers;
    OXStatus st = createRequest(c, e.key, e.keyAlgorithm, e.kmsKeyId, e.kmsKeyContext, headers.out(), oxzdtgmt());
    if (st == OX_OK) st = addPutHeaders(c, headers.get(), put);
    if (st == OX_OK)
        st = buildRequest(c, a.http, nullptr, headers.get(), "PUT", put.target.bucket, path, nullptr, payloadHash,
                          put.length);
    if (st == OX_OK) st = removeExtraHeaders(headers.get());
    if (st == OX_OK) st = sendHeadForContinue(a, headers.get(), put.length);
    HTTPStatus first{};
    if (st == OX_OK) st = a.http->readResponse(a.http, &first);
    if (st != OX_OK) return st;
    // A server may answer an empty put at once, without the interim answer.
    if (isSuccess(first.message) && put.length == 0) return drainBody(a);
    if (first.message != OX_HTTP_CONTINUE) return refusedContinue(a, first);
    if (put.length) st = a.http->sendData(a.http, put.data, put.length);
    return st == OX_OK ? readFinalAnswer(a) : st;
}

OXStatus putData(OXS3Connection c, const PutArguments& put) {
    ChosenClient client;
    TextBuffer hash(c->pool);
    OXStatus st = chooseClient(c, put.target, &client);
    if (st == OX_OK)
        st = appendSha256Hex(webClient(c->oxs3),
                             std::string_view(static_cast<const char*>(put.data), put.data ? put.length : 0), hash);
    if (st != OX_OK) return st;
    return sendCycle(
        c, kPut, [&](Attempt& a) { return putOnce(a, put, client.path, hash.view()); }, client.http);
}

}  // namespace

OXStatus requestAddMetadata(OXS3Connection connection, OXDictionary headers, OXDictionary metadata) {
    if (!metadata) return OX_OK;
    void* cursor = nullptr;
    OXU8String* key = nullptr;
    OXInstance* value = nullptr;
    OXStatus st;
    while ((st = metadata->nextValue(metadata, &cursor, &key, &value)) == OX_OK) {
        TextBuffer name(connection->pool), text(connection->pool);
        if (!view(key).starts_with(kMetadataPrefix)) name.append(kMetadataPrefix);
        name.append(view(key));
        if (value && (st = appendInstanceString(text, value)) != OX_OK) return st;
        if (name.status() != OX_OK || text.status() != OX_OK) return OX_NO_MEMORY;
        if ((st = setText(headers, name.view(), text.view())) != OX_OK) return st;
    }
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus addPutHeaders(OXS3Connection connection, OXDictionary headers, const PutArguments& put) {
    OXStatus st = requestAddMetadata(connection, headers, put.metadata);
    if (st == OX_OK)
        st = setText(headers, kStorageClassHeader, put.useReducedRedundancy ? "REDUCED_REDUNDANCY" : "STANDARD");
    if (st == OX_OK && put.websiteRedirect) st = setText(headers, kRedirectHeader, put.websiteRedirect);
    if (st == OX_OK)
        st = addAccessHeaders(connection->oxs3->oxstring, headers, put.accessType, put.accessControl);
    return st;
}

OXStatus sendHeadForContinue(Attempt& attempt, OXDictionary headers, uint64_t contentLength) {
    const std::string_view path = view(attempt.connection->requestPath);
    return attempt.http->sendRequest(attempt.http, httpPut, path.data(), path.size(), "", 0, headers,
                                     static_cast<int64_t>(contentLength), nullptr, 0, OX_TRUE);
}

OXStatus refusedContinue(Attempt& attempt, const HTTPStatus& status) {
    if (status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    return errorFromBody(attempt, status);
}

OXStatus putObjectTo(OXS3Connection connection, const PutArguments& put) {
    if (connection->useWriteThreads) {
        bool taken = false;
        ParallelTransfer transfer{TransferKind::put, connection, put.target.bucket, put.target.path,
                                  put.encryption, {}};
        transfer.put = &put;
        const OXStatus st = runParallel(transfer, &taken);
        if (st != OX_OK || taken) return st;
    }
    return putData(connection, put);
}

OXStatus oxs3PutObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXS3AccessType accessType,
                       OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                       OXBoolean useReducedRedundancy, const void* data, OXMemSize length) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3PutObject");
    return oxs3PutEncryptedObject(connection, bucket, path, accessType, accessControl, metadata, websiteRedirect,
                                  useReducedRedundancy, connection->sseKey, connection->sseKeyAlgorithm,
                                  connection->kmsKeyId, connection->kmsKeyContext, data, length);
}

OXStatus oxs3PutEncryptedObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                OXS3AccessType accessType, OXS3ACL_S* accessControl, OXDictionary metadata,
                                UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext,
                                const void* data, OXMemSize length) {
    if (!connection || (!data && length)) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3PutEncryptedObject");
    PutArguments put{{}, accessType, accessControl, metadata, websiteRedirect, useReducedRedundancy,
                     withConnectionEncryption(connection, encKey, encKeyAlg, encKeyId, encKeyContext), data, length};
    const OXStatus st = objectTarget(connection, bucket, path, false, &put.target);
    return st == OX_OK ? putObjectTo(connection, put) : st;
}

void setObjectOps(OXS3Connection connection) {
    connection->getObjectInfo = oxs3GetObjectInformation;
    connection->getObject = oxs3GetObject;
    connection->getObjectRange = oxs3GetObjectRange;
    connection->getEncryptedObject = oxs3GetEncryptedObject;
    connection->getEncryptedObjectRange = oxs3GetEncryptedObjectRange;
    connection->getEncryptedObjectInformation = oxs3GetEncryptedObjectInformation;
    connection->putObject = oxs3PutObject;
    connection->putEncryptedObject = oxs3PutEncryptedObject;
    connection->startChunkedPut = oxs3PutObjectChunked;
    connection->putChunk = oxs3PutChunkData;
    connection->finishChunkedPut = oxs3FinishChunkedPut;
    connection->putEncryptedObjectChunked = oxs3PutEncryptedObjectChunked;
}

}  // namespace s3
