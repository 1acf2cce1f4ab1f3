// Reading objects. Every request goes through the send cycle; bodies go straight into the
// caller's buffer (ranges) or into memory of the caller's pool (whole objects).
#include "oxs3read.h"

#include <cstring>

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3bucket.h"
#include "oxs3connection.h"
#include "oxs3encode.h"
#include "oxs3error.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3path.h"
#include "oxs3request.h"
#include "oxs3send.h"
#include "oxs3sign.h"
#include "oxs3text.h"
#include "oxs3textbuf.h"

namespace s3 {
namespace {

// The doubled "d" of the exhausted-retries name is what log readers search for.
constexpr SendCycleOp kHead = {"oxs3GetEncrypteddObjectInformation",
                               U"oxs3GetObjectInformation: Request failed with result 0x%x. Retrying."};
constexpr SendCycleOp kGetData = {"getData", U"getData: Could not get data. result=0x%x. Retrying."};
constexpr SendCycleOp kGetDataRange = {"getDataRange", U"getData: Could not get data. result=0x%x. Retrying."};

constexpr std::string_view kLastModified = "Last-Modified";
constexpr std::string_view kETag = "ETag";
constexpr std::string_view kContentType = "Content-Type";
constexpr std::string_view kContentLength = "Content-Length";

// Reads answer with the customer key only: S3 refuses KMS headers on a GET or HEAD.
struct ReadKey {
    OXInstance* key;
    OXU8String* algorithm;
};
ReadKey readKey(const EncryptionArgs& args) { return {args.key, args.keyAlgorithm}; }

OXStatus buildRead(Attempt& a, const ObjectTarget& t, HTTPMethod method, ReadKey key, Owned<OXDictionary_S>& headers,
                   const uint64_t* rangeOffset = nullptr, OXMemSize rangeLength = 0) {
    OXS3Connection c = a.connection;
    OXStatus st = createRequest(c, key.key, key.algorithm, nullptr, nullptr, headers.out(), oxzdtgmt());
    if (st == OX_OK && rangeOffset) st = requestSetRange(headers.get(), {}, *rangeOffset, rangeLength);
    if (st == OX_OK)
        st = buildRequest(c, a.http, nullptr, headers.get(), methodText(method), t.bucket, t.path, nullptr,
                          kEmptyPayloadHash, 0);
    if (st == OX_OK) st = removeExtraHeaders(headers.get());
    if (st == OX_OK) st = sendBuiltRequest(a, method, nullptr, headers.get(), -1, nullptr, 0);
    return st;
}


// ---- object information

OXStatus cloneU8Text(OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength length, UTF8Str* result) {
    auto* copy = static_cast<char*>(pool->memAlloc(pool, length + 1, 0));
    if (!copy) return OX_NO_MEMORY;
    if (length) std::memcpy(copy, text, length);
    copy[length] = '\0';
    *result = copy;
    return OX_OK;
}

OXStatus releaseInformation(OXS3ObjectInformation* info) { return destroyObjectInformation(info); }

OXStatus newInformation(OX_POOL_S* pool, Owned<OXS3ObjectInformation>& info) {
    auto* record = static_cast<OXS3ObjectInformation*>(
        pool->memAlloc(pool, sizeof(OXS3ObjectInformation), OX_POOL_ZERO_FILL));
    if (!record) return OX_NO_MEMORY;
    initInstance(record->instance, OXS3_TYPE_OBJECT_INFORMATION, destroyObjectInformation);
    record->pool = pool;
    record->release = releaseInformation;
    info.reset(record);
    return OX_OK;
}

// The header's text copied into *out; success with nothing copied when it is missing.
OXStatus copyHeader(HTConnection http, OX_POOL_S* pool, std::string_view name, UTF8Str* out, bool* found) {
    UTF8CStr value = nullptr;
    UTF8ByteLength length = 0;
    *found = http->getResponseHeader(http, name.data(), name.size(), &value, &length) == OX_OK && value;
    return *found ? cloneU8Text(pool, value, length, out) : OX_OK;
}

OXStatus fillInformation(Attempt& a, OXS3ObjectInformation* info) {
    HTConnection http = a.http;
    OX_POOL_S* pool = info->pool;
    bool found = false;
    OXStatus st = copyHeader(http, pool, kLastModified, &info->lastModified, &found);
    if (st == OX_OK && found) {
        OXWebClient_S* wc = webClient(a.connection->oxs3);
        st = wc->parseHttpDate(info->lastModified, std::strlen(info->lastModified), &info->lastModifiedDate);
    }
    if (st == OX_OK) st = copyHeader(http, pool, kETag, &info->eTag, &found);
    if (st == OX_OK) st = copyHeader(http, pool, kContentType, &info->contentType, &found);
    UTF8CStr length = nullptr;
    UTF8ByteLength lengthLen = 0;
    if (st != OX_OK ||
        http->getResponseHeader(http, kContentLength.data(), kContentLength.size(), &length, &lengthLen) != OX_OK ||
        !length)
        return st;
    int64_t value = 0;
    st = u8StringToLong(std::string_view(length, lengthLen), &value);
    if (st != OX_OK) return st;
    info->hasContentLength = OX_TRUE;
    info->contentLength = static_cast<OXMemSize>(value);
    return OX_OK;
}

OXStatus headOnce(Attempt& a, const ObjectTarget& t, ReadKey key, Owned<OXS3ObjectInformation>& info) {
    Owned<OXDictionary_S> headers;
    OXStatus st = buildRead(a, t, httpHead, key, headers);
    HTTPStatus status{};
    if (st == OX_OK) st = a.http->readResponse(a.http, &status);
    if (st != OX_OK) return st;
    if (isTransient(status.message)) return status.message;
    switch (status.message) {
        case OX_HTTP_OK: break;
        case OX_HTTP_NOT_FOUND: return OX_HTTP_NOT_FOUND;  // no error document: the client's status
        case OX_HTTP_FORBIDDEN: return OXS3_REQUEST_FORBIDDEN;
        case OX_HTTP_BAD_REQUEST: {
            // the usual answer to a HEAD of a customer-key object without the right key
            st = drainBody(a);
            return st == OX_OK ? OXS3_BAD_REQUEST : st;
        }
        default: return errorFromBody(a, status);
    }
    a.http->responseContentLength = 0;  // the length is the object's; a HEAD carries no body
    if (st = drainBody(a); st != OX_OK) return st;
    Owned<OXS3ObjectInformation> made;
    st = newInformation(a.connection->pool, made);
    if (st == OX_OK) st = fillInformation(a, made.get());
    if (st == OX_OK) info = std::move(made);
    return st;
}

OXStatus objectInformation(OXS3Connection c, const ObjectTarget& t, const EncryptionArgs& args,
                           Owned<OXS3ObjectInformation>& info) {
    return sendCycle(c, kHead, [&](Attempt& a) { return headOnce(a, t, readKey(args), info); });
}

// ---- whole objects

OXStatus getDataOnce(Attempt& a, const ObjectTarget& t, ReadKey key, OX_POOL_S* pool, PoolBlock<char>& data,
                     OXMemSize& length) {
    Owned<OXDictionary_S> headers;
    OXStatus st = buildRead(a, t, httpGet, key, headers);
    HTTPStatus status{};
    if (st == OX_OK) st = readAnswer(a, status, {OX_HTTP_OK, OX_HTTP_NOT_FOUND});
    if (st != OX_OK) return st;
    if (status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    void* body = nullptr;
    length = 0;
    st = a.http->readData(a.http, pool, &body, &length);
    data = PoolBlock<char>(pool, static_cast<char*>(body));
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus getData(OXS3Connection c, OX_POOL_S* pool, const ObjectTarget& t, const EncryptionArgs& args, void** data,
                 OXMemSize* length) {
    ChosenClient client;
    OXStatus st = chooseClient(c, t, &client);
    if (st != OX_OK) return st;
    const ObjectTarget on{t.bucket, client.path};
    PoolBlock<char> body;
    OXMemSize got = 0;
    st = sendCycle(
        c, kGetData, [&](Attempt& a) { return getDataOnce(a, on, readKey(args), pool, body, got); }, client.http);
    if (st != OX_OK) return st;
    *data = body.release();
    *length = got;
    return OX_OK;
}

bool useReadThreads(OXS3Connection c) { return c->useReadThreads && c->maxReadThreadCount > 1; }

OXStatus getWholeObject(OXS3Connection c, OX_POOL_S* pool, const ObjectTarget& t, const EncryptionArgs& args,
                        void** data, OXMemSize* length) {
    if (!useReadThreads(c)) return getData(c, pool, t, args, data, length);
    Owned<OXS3ObjectInformation> info;
    OXStatus st = objectInformation(c, t, args, info);
    if (st != OX_OK) return st;
    if (info->hasContentLength && info->contentLength == 0) return OX_OK;  // no data, length 0: no GET
    if (!info->hasContentLength || info->contentLength < c->minBlockSize)
        return getData(c, pool, t, args, data, length);
    const ReadPlan plan = planRead(info->contentLength, c->maxReadThreadCount, c->minBlockSize, nullptr);
    if (plan.threadCount > 1) {
        bool taken = false;
        ParallelTransfer transfer{TransferKind::wholeObject, c, t.bucket, t.path, args, plan};
        transfer.pool = pool;
        transfer.data = data;
        transfer.length = length;
        st = runParallel(transfer, &taken);
        if (st != OX_OK || taken) return st;
    }
    return getData(c, pool, t, args, data, length);
}

// ---- ranges

// The first decimal number in the text; OX_FAILED when it holds no digit.
OXStatus leadingNumber(std::string_view text, uint64_t* value) {
    size_t at = 0;
    while (at < text.size() && (text[at] < '0' || text[at] > '9')) ++at;
    if (at == text.size()) return OX_FAILED;
    uint64_t n = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        n = n * 10 + static_cast<uint64_t>(text[at] - '0');
    *value = n;
    return OX_OK;
}

struct RangeRequest {
    void* buffer;
    uint64_t offset;
    OXMemSize length;
};

OXStatus readPartial(Attempt& a, const RangeRequest& r, OXMemSize& got) {
    UTF8CStr text = nullptr;
    UTF8ByteLength textLen = 0;
    got = 0;
    if (a.http->getResponseHeader(a.http, kContentLength.data(), kContentLength.size(), &text, &textLen) != OX_OK ||
        !text)
        return OX_OK;
    uint64_t announced = 0;
    OXStatus st = leadingNumber(std::string_view(text, textLen), &announced);
    if (st != OX_OK) return st;
    const OXMemSize want = announced < r.length ? announced : r.length;  // never past the caller's buffer
    st = a.http->readInto(a.http, r.buffer, want, &got);
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus getRangeOnce(Attempt& a, const ObjectTarget& t, ReadKey key, const RangeRequest& r, OXMemSize& got) {
    Owned<OXDictionary_S> headers;
    OXStatus st = buildRead(a, t, httpGet, key, headers, &r.offset, r.length);
    HTTPStatus status{};
    if (st == OX_OK) st = readAnswer(a, status, {OX_HTTP_OK, OX_HTTP_PARTIAL_CONTENT, OX_HTTP_NOT_FOUND});
    if (st != OX_OK) return st;
    if (status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    if (status.message == OX_HTTP_PARTIAL_CONTENT) return readPartial(a, r, got);
    st = a.http->readInto(a.http, r.buffer, r.length, &got);  // the whole object: its first bytes are asked
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus getDataRange(OXS3Connection c, const ObjectTarget& t, const EncryptionArgs& args, const RangeRequest& r,
                      OXMemSize* bytesRead) {
    ChosenClient client;
    OXStatus st = chooseClient(c, t, &client);
    if (st != OX_OK) return st;
    const ObjectTarget on{t.bucket, client.path};
    OXMemSize got = 0;
    st = sendCycle(
        c, kGetDataRange, [&](Attempt& a) { return getRangeOnce(a, on, readKey(args), r, got); }, client.http);
    if (st == OX_OK) *bytesRead = got;
    return st;
}

OXStatus getKnownRange(OXS3Connection c, const ObjectTarget& t, const EncryptionArgs& args, RangeRequest r,
                       OXMemSize contentLength, OXMemSize* bytesRead) {
    Logger_S* logger = c->oxs3->logger;
    if (r.offset > contentLength) return OX_INVALID_ARGUMENT;
    const int threads = c->useReadThreads ? c->maxReadThreadCount : 1;
    if (threads <= 1) return getDataRange(c, t, args, r, bytesRead);
    if (r.offset + r.length > contentLength)  // one byte short of the end, as the parallel path reads
        r.length = contentLength > r.offset ? contentLength - r.offset - 1 : 0;
    if (r.length == 0) {
        *bytesRead = 0;
        return OX_OK;
    }
    const ReadPlan plan = planRead(r.length, threads, c->minBlockSize, logger);
    if (plan.threadCount > 1) {
        bool taken = false;
        ParallelTransfer transfer{TransferKind::range, c, t.bucket, t.path, args, plan};
        transfer.buffer = r.buffer;
        transfer.offset = r.offset;
        transfer.rangeLength = r.length;
        OXStatus st = runParallel(transfer, &taken);
        if (st != OX_OK) return st;
        if (taken) {
            *bytesRead = r.length;
            return OX_OK;
        }
    }
    return getDataRange(c, t, args, r, bytesRead);
}

}  // namespace

// ---- shared with writes

OXStatus objectTarget(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, bool stripPrefix,
                      ObjectTarget* target) {
    if (!path || !bucket) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = connection->oxs3;
    UTF8CStr rest = path;
    if (stripPrefix) {
        if (OXStatus st = stripBucketPrefix(ext, path, &rest); st != OX_OK) return st;
    }
    if (rest[0] != '/') return OXS3_PATH_NOT_ABSOLUTE;
    UTF8CStr name = nullptr;
    OXBoolean valid = OX_FALSE;
    OXStatus st = getBucketName(ext, bucket, &name);
    if (st == OX_OK) st = oxs3IsValidBucketName(ext, name, &valid);
    if (st != OX_OK) return st;
    if (!valid) return OX_INVALID_ARGUMENT;
    *target = {name, rest};
    return OX_OK;
}

std::string_view pathWithoutBucket(std::string_view path, std::string_view bucket) {
    if (path.size() > bucket.size() && path.front() == '/' && path.substr(1, bucket.size()) == bucket)
        return path.substr(1 + bucket.size());
    return path;
}

OXStatus getAcceleratedClient(OXS3Connection connection, OX_POOL_S* pool, std::string_view bucket,
                              HTConnection* result) {
    if (!connection || !pool || !result) return OX_INVALID_ARGUMENT;
    const HTConnection own = connection->htConnection;
    TextBuffer host(pool);
    host.append(bucket);
    host.push('.');
    host.append(kAccelerateDomain);
    if (host.status() != OX_OK) return host.status();
    OXWebClient_S* wc = webClient(connection->oxs3);
    Owned<HTConnection_S> http;
    OXStatus st = wc->createConnection(wc, pool, host.c_str(), own->port, own->useSSL,
                                       own->useSSL ? own->sslOptions : nullptr, http.out());
    for (const auto& [proxy, which] : {std::pair{&own->httpProxy, OX_PROXY_HTTP}, {&own->httpsProxy, OX_PROXY_HTTPS}})
        if (st == OX_OK && proxy->host)
            st = http->setProxyU8Stg(http.get(), proxy->host, proxy->port, proxy->user, proxy->pass, which);
    if (st != OX_OK) return st;
    http->timeout = own->timeout;
    *result = http.release();
    return OX_OK;
}

OXStatus chooseClient(OXS3Connection connection, const ObjectTarget& target, ChosenClient* chosen) {
    chosen->path = target.path;
    S3AccelerateState state = s3AccelerateUnknown;
    if (oxs3GetBucketAccelerate(connection, target.bucket.data(), &state) != OX_OK) {
        resetErrorMessage(connection);  // the question's failure is not the operation's
        return OX_OK;
    }
    if (state != s3AccelerateEnabled) return OX_OK;
    OXStatus st = getAcceleratedClient(connection, connection->pool, target.bucket, chosen->accelerated.out());
    if (st != OX_OK) return st;
    chosen->http = chosen->accelerated.get();
    chosen->path = pathWithoutBucket(target.path, target.bucket);
    return OX_OK;
}

ReadPlan planRead(uint64_t length, int threads, OXMemSize minBlockSize, Logger_S* log) {
    const auto count = static_cast<uint64_t>(threads > 0 ? threads : 1);
    ReadPlan plan{static_cast<int>(count), length / count, length % count};
    if (log)
        OXS3_LOG(log, LL_Trace, U"threadCount = %d   blockSize = %ld   remainder=%ld", plan.threadCount,
                 static_cast<long>(plan.blockSize), static_cast<long>(plan.remainder));
    if (plan.blockSize >= minBlockSize || minBlockSize == 0) return plan;
    if (log)
        OXS3_LOG(log, LL_Trace,
                 U"Block sizes smaller than minimum. Adjusting thread count using minimum block size.");
    plan.threadCount = static_cast<int>(length / minBlockSize);
    plan.blockSize = minBlockSize;
    plan.remainder = length - static_cast<uint64_t>(plan.threadCount) * minBlockSize;
    if (log)
        OXS3_LOG(log, LL_Trace, U"Adjusted: threadCount = %d   blockSize = %ld   remainder=%ld", plan.threadCount,
                 static_cast<long>(plan.blockSize), static_cast<long>(plan.remainder));
    return plan;
}

// ---- the operations

OXStatus destroyObjectInformation(void* self) {
    auto* info = static_cast<OXS3ObjectInformation*>(self);
    if (!info) return OX_INVALID_ARGUMENT;
    if (!dropReference(info->instance)) return OX_OK;
    OX_POOL_S* pool = info->pool;
    for (UTF8Str text : {info->lastModified, info->contentType, info->eTag})
        if (text) pool->memFree(pool, text);
    pool->memFree(pool, info);
    return OX_OK;
}

OXStatus oxs3GetObjectInformation(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                  OXS3ObjectInformation** result) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetObjectInformation");
    return oxs3GetEncryptedObjectInformation(connection, bucket, path, nullptr, nullptr, nullptr, nullptr, result);
}

OXStatus oxs3GetEncryptedObjectInformation(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                           OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                           OXU8String* encKeyContext, OXS3ObjectInformation** result) {
    if (!connection || !result) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetEncryptedObjectInformation");
    const EncryptionArgs args = withConnectionEncryption(connection, encKey, encKeyAlg, encKeyId, encKeyContext);
    ObjectTarget target;
    Owned<OXS3ObjectInformation> info;
    OXStatus st = objectTarget(connection, bucket, path, true, &target);
    if (st == OX_OK) st = objectInformation(connection, target, args, info);
    if (st == OX_OK) *result = info.release();
    return st;
}

OXStatus oxs3GetObject(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path, void** data,
                       OXMemSize* length) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetObject");
    return oxs3GetEncryptedObject(connection, pool, bucket, path, nullptr, nullptr, nullptr, nullptr, data, length);
}

OXStatus oxs3GetEncryptedObject(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path,
                                OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                OXU8String* encKeyContext, void** data, OXMemSize* length) {
    if (!connection || !pool || !data || !length) return OX_INVALID_ARGUMENT;
    *data = nullptr;
    *length = 0;
    beginOperation(connection, U"oxs3GetEncryptedObject");
    EncryptionArgs args;
    ObjectTarget target;
    OXStatus st = chooseEncryption(connection, encKey, encKeyAlg, encKeyId, encKeyContext, &args);
    if (st == OX_OK) st = objectTarget(connection, bucket, path, true, &target);
    if (st == OX_OK) st = getWholeObject(connection, pool, target, args, data, length);
    return st;
}

OXStatus oxs3GetObjectRange(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                            uint64_t offset, OXMemSize length, OXMemSize* bytesRead) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetObjectRange");
    return oxs3GetEncryptedObjectRange(connection, bucket, path, buffer, offset, length, nullptr, nullptr, nullptr,
                                       nullptr, bytesRead);
}

OXStatus oxs3GetEncryptedObjectRange(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                                     uint64_t offset, OXMemSize length, OXInstance* encKey, OXU8String* encKeyAlg,
                                     OXU8String* encKeyId, OXU8String* encKeyContext, OXMemSize* bytesRead) {
    if (!connection || !bytesRead || (!buffer && length)) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetEncryptedObjectRange");
    Logger_S* logger = connection->oxs3->logger;
    OXS3_LOG(logger, LL_Trace, U"offset=%ld offsetLength=%ld", static_cast<long>(offset), static_cast<long>(length));
    const EncryptionArgs args = withConnectionEncryption(connection, encKey, encKeyAlg, encKeyId, encKeyContext);
    ObjectTarget target;
    Owned<OXS3ObjectInformation> info;
    OXStatus st = objectTarget(connection, bucket, path, true, &target);
    if (st == OX_OK) st = objectInformation(connection, target, args, info);
    if (st != OX_OK) return st;
    const bool known = info->hasContentLength;
    if (known) OXS3_LOG(logger, LL_Trace, U"Using contentLength=%ld", static_cast<long>(info->contentLength));
    if (length == 0) {
        *bytesRead = 0;
        return !known || offset <= info->contentLength ? OX_OK : OX_END_OF_DATA;
    }
    const RangeRequest request{buffer, offset, length};
    if (!known) return getDataRange(connection, target, args, request, bytesRead);
    return getKnownRange(connection, target, args, request, info->contentLength, bytesRead);
}

}  // namespace s3
