// Chunked puts: the head is sent and accepted (100 Continue) when the put starts; chunks are
// signed and written as the caller's data fills them, straight from the caller's memory when
// a whole chunk is at hand, else gathered in the put's buffer first.
#include "oxs3chunked.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ox/status.h"
#include "oxs3connection.h"
#include "oxs3encode.h"
#include "oxs3error.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3request.h"
#include "oxs3text.h"
#include "oxs3textbuf.h"
#include "oxs3write.h"

namespace s3 {
namespace {

// As for a single put, exhausted transient attempts leave the put started.
constexpr SendCycleOp kStart = {"oxs3PutObjectChunked",
                                U"oxs3PutObject (non-threaded): Write failed with result 0x%x. Retrying.", false,
                                AfterRetries::fixedStatus, OX_OK};

constexpr std::string_view kSignaturePrefix = ";chunk-signature=";
constexpr std::string_view kCrlf = "\r\n";
constexpr std::string_view kContentEncodingHeader = "Content-Encoding";
constexpr std::string_view kDecodedLengthHeader = "x-amz-decoded-content-length";

using ChunkInformation = OXS3ChunkInformation_S;

template <class T>
void release(T*& object) {
    if (object) reinterpret_cast<OXInstance*>(object)->destroy(object);
    object = nullptr;
}

void releaseChunkInformation(ChunkInformation* ci) {
    OX_POOL_S* pool = ci->pool;
    if (ci->buffer) pool->memFree(pool, ci->buffer);
    release(ci->seedSignature);
    release(ci->region);
    release(ci->emptySignature);
    if (ci->releaseConnection) release(ci->htConnection);
    pool->memFree(pool, ci);
}

OXStatus newText(OXS3Connection c, std::string_view text, OXU8String** out) {
    OXStringExt_S* strings = c->oxs3->oxstring;
    return strings->createU8(strings, c->pool, text.data(), text.size(), OX_STR_COPY, out);
}

OXStatus replaceText(OXS3Connection c, std::string_view text, OXU8String*& slot) {
    OXU8String* made = nullptr;
    const OXStatus st = newText(c, text, &made);
    if (st != OX_OK) return st;
    release(slot);
    slot = made;
    return OX_OK;
}

size_t formatHex(OXMemSize n, char (&text)[20]) {
    return static_cast<size_t>(std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(n)));
}

OXStatus send(ChunkInformation* ci, std::string_view bytes) {
    if (bytes.empty()) return OX_OK;
    const OXStatus st = ci->htConnection->sendData(ci->htConnection, bytes.data(), bytes.size());
    if (st == OX_OK) ci->dataWritten += bytes.size();
    return st;
}

// Signs the chunk (chained to the previous signature) and sends it with its framing.
OXStatus writeChunk(OXS3Connection c, ChunkInformation* ci, const void* data, OXMemSize length) {
    Owned<OXU8String> signature;
    OXStatus st = signChunkRequest(c, view(ci->seedSignature), view(ci->emptySignature), view(ci->region),
                                   ci->dateTime, data, length, signature.out());
    if (st != OX_OK) return st;
    release(ci->seedSignature);
    ci->seedSignature = signature.release();
    Logger_S* logger = c->oxs3->logger;
    OXS3_LOG(logger, LL_Trace, U"%hs", ci->seedSignature->stg);
    const bool last = ci->finalSize != 0 && ci->currentChunk == ci->count - 1;
    const std::string_view size = length == 0 ? std::string_view("0")
                                  : last      ? std::string_view(ci->finalSizeText, ci->finalSizeTextLen)
                                              : std::string_view(ci->sizeText, ci->sizeTextLen);
    char header[sizeof ci->sizeText + kSignaturePrefix.size() + kSignatureHexLen + 3];
    const std::string_view sig = view(ci->seedSignature);
    const int n = std::snprintf(header, sizeof header, "%.*s%.*s%.*s", static_cast<int>(size.size()), size.data(),
                                static_cast<int>(kSignaturePrefix.size()), kSignaturePrefix.data(),
                                static_cast<int>(sig.size()), sig.data());
    OXS3_LOG(logger, LL_Trace, U"Chunk header: %hs", header);
    std::memcpy(header + n, kCrlf.data(), kCrlf.size());
    st = send(ci, std::string_view(header, static_cast<size_t>(n) + kCrlf.size()));
    if (st == OX_OK) st = send(ci, std::string_view(static_cast<const char*>(data), length));
    if (st == OX_OK) st = send(ci, kCrlf);
    return st;
}

OXMemSize currentChunkSize(const ChunkInformation* ci) {
    return ci->finalSize != 0 && ci->currentChunk == ci->count - 1 ? ci->finalSize : ci->size;
}

OXStatus writeAndAdvance(OXS3Connection c, ChunkInformation* ci, const void* data, OXMemSize length) {
    const OXStatus st = writeChunk(c, ci, data, length);
    ++ci->currentChunk;
    ci->length = 0;
    ci->position = 0;
    return st;
}

// Announced bytes not yet taken.
OXMemSize bytesLeft(const ChunkInformation* ci) {
    const auto count = static_cast<OXMemSize>(ci->count);
    const OXMemSize total = (count - 1) * ci->size + (ci->finalSize ? ci->finalSize : ci->size);
    return total - static_cast<OXMemSize>(ci->currentChunk) * ci->size - ci->length;
}

OXStatus feedChunks(OXS3Connection c, ChunkInformation* ci, const char* data, OXMemSize length) {
    // Refused before anything is sent: a server may store an object whose chunks all came.
    if (length > bytesLeft(ci)) return OX_INVALID_ARGUMENT;
    while (length > 0) {
        if (ci->currentChunk >= ci->count) return OX_INVALID_ARGUMENT;  // more than announced
        const OXMemSize chunk = currentChunkSize(ci);
        if (ci->length == 0 && length >= chunk) {
            if (OXStatus st = writeAndAdvance(c, ci, data, chunk); st != OX_OK) return st;
            data += chunk;
            length -= chunk;
            continue;
        }
        const OXMemSize take = std::min(chunk - ci->length, length);
        std::memcpy(ci->buffer + ci->length, data, take);
        ci->length += take;
        ci->position = ci->length;
        data += take;
        length -= take;
        if (ci->length == chunk)
            if (OXStatus st = writeAndAdvance(c, ci, ci->buffer, chunk); st != OX_OK) return st;
    }
    return OX_OK;
}

void dropChunkedPut(OXS3Connection c) {
    c->activeChunk->htConnection->close(c->activeChunk->htConnection);
    releaseActiveChunk(c);
}

// ---- the start

OXStatus addChunkedHeaders(OXS3Connection c, OXDictionary headers, const PutArguments& put) {
    char decoded[24];
    const int n = std::snprintf(decoded, sizeof decoded, "%llu", static_cast<unsigned long long>(put.length));
    OXStatus st = addPutHeaders(c, headers, put);
    if (st == OX_OK) st = setText(headers, kContentEncodingHeader, "aws-chunked");
    if (st == OX_OK) st = setText(headers, kDecodedLengthHeader, std::string_view(decoded, static_cast<size_t>(n)));
    return st;
}

// The request's signature and region: where the chunk signatures chain from.
OXStatus takeChainStart(OXS3Connection c, OXDictionary headers) {
    ChunkInformation* ci = c->activeChunk;
    OXStatus st = OX_OK;
    for (auto [name, slot] : {std::pair{kSignatureEntry, &ci->seedSignature}, {kRegionEntry, &ci->region}}) {
        OXInstance* value = nullptr;
        if (st == OX_OK) st = headers->getValueU8(headers, name.data(), name.size(), &value);
        if (st == OX_OK) {
            TextBuffer text(c->pool);
            st = appendInstanceString(text, value);
            if (st == OX_OK) st = replaceText(c, text.view(), *slot);
        }
    }
    return st;
}

OXStatus startOnce(Attempt& a, const PutArguments& put, std::string_view path, uint64_t encoded) {
    OXS3Connection c = a.connection;
    const EncryptionArgs& e = put.encryption;
    Owned<OXDictionary_S> headers;
    OXStatus st = createRequest(c, e.key, e.keyAlgorithm, e.kmsKeyId, e.kmsKeyContext, headers.out(),
                                c->activeChunk->dateTime);
    if (st == OX_OK) st = addChunkedHeaders(c, headers.get(), put);
    if (st == OX_OK)
        st = buildRequest(c, a.http, nullptr, headers.get(), "PUT", put.target.bucket, path, nullptr,
                          kStreamingPayload, encoded);
    if (st == OX_OK) st = takeChainStart(c, headers.get());
    if (st == OX_OK) st = removeExtraHeaders(headers.get());
    if (st == OX_OK) st = sendHeadForContinue(a, headers.get(), encoded);
    HTTPStatus first{};
    if (st == OX_OK) st = a.http->readResponse(a.http, &first);
    if (st != OX_OK) return st;
    return first.message == OX_HTTP_CONTINUE ? OX_OK : refusedContinue(a, first);
}

OXStatus startChunkedPut(OXS3Connection c, const PutArguments& put, OXMemSize chunkSize) {
    const ChunkPlan plan = planChunks(put.length, chunkSize);
    ChosenClient client;
    OXStatus st = chooseClient(c, put.target, &client);
    if (st == OX_OK)
        st = attachChunkInformation(c, plan, oxzdtgmt(), client.http ? client.http : c->htConnection,
                                    client.http != nullptr, {}, {});
    if (st != OX_OK) return st;
    client.accelerated.release();  // the put's state owns it now
    const uint64_t encoded = encodedLength(plan);
    st = sendCycle(
        c, kStart, [&](Attempt& a) { return startOnce(a, put, client.path, encoded); }, client.http);
    if (st != OX_OK) releaseActiveChunk(c);
    return st;
}

}  // namespace

OXStatus attachChunkInformation(OXS3Connection connection, const ChunkPlan& plan, OXDateTime dateTime,
                                HTConnection http, bool releaseConnection, std::string_view seed,
                                std::string_view region) {
    OX_POOL_S* pool = connection->pool;
    auto* ci = static_cast<ChunkInformation*>(pool->memAlloc(pool, sizeof(ChunkInformation), OX_POOL_ZERO_FILL));
    if (!ci) return OX_NO_MEMORY;
    releaseActiveChunk(connection);
    connection->activeChunk = ci;
    ci->pool = pool;
    ci->dateTime = dateTime;
    ci->htConnection = http;
    ci->size = plan.size;
    ci->finalSize = plan.finalSize;
    ci->count = plan.count;
    ci->sizeTextLen = formatHex(plan.size, ci->sizeText);
    if (plan.finalSize) ci->finalSizeTextLen = formatHex(plan.finalSize, ci->finalSizeText);
    ci->buffer = static_cast<char*>(pool->memAlloc(pool, plan.size ? plan.size : 1, 0));
    OXStatus st = ci->buffer ? OX_OK : OX_NO_MEMORY;
    if (st == OX_OK) st = newText(connection, kEmptyPayloadHash, &ci->emptySignature);
    if (st == OX_OK) st = newText(connection, seed, &ci->seedSignature);
    if (st == OX_OK) st = newText(connection, region, &ci->region);
    if (st != OX_OK) {
        releaseActiveChunk(connection);  // http stays the caller's
        return st;
    }
    ci->releaseConnection = releaseConnection ? OX_TRUE : OX_FALSE;
    return OX_OK;
}

void releaseActiveChunk(OXS3Connection connection) {
    if (!connection->activeChunk) return;
    releaseChunkInformation(connection->activeChunk);
    connection->activeChunk = nullptr;
}

OXStatus oxs3PutObjectChunked(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXS3AccessType accessType,
                              OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                              OXBoolean useReducedRedundancy, OXMemSize totalLength, OXMemSize chunkSize) {
    return oxs3PutEncryptedObjectChunked(connection, bucket, path, accessType, accessControl, metadata,
                                         websiteRedirect, useReducedRedundancy, nullptr, nullptr, nullptr, nullptr,
                                         totalLength, chunkSize);
}

OXStatus oxs3PutEncryptedObjectChunked(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                       OXS3AccessType accessType, OXS3ACL_S* accessControl, OXDictionary metadata,
                                       UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                       OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext,
                                       OXMemSize totalLength, OXMemSize chunkSize) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3PutObjectChunked");
    PutArguments put{{}, accessType, accessControl, metadata, websiteRedirect, useReducedRedundancy,
                     withConnectionEncryption(connection, encKey, encKeyAlg, encKeyId, encKeyContext), nullptr,
                     totalLength};
    const OXStatus st = objectTarget(connection, bucket, path, true, &put.target);
    if (st != OX_OK) return st;
    if (totalLength == 0) return putObjectTo(connection, put);  // an ordinary empty put
    return startChunkedPut(connection, put, chunkSize);
}

OXStatus oxs3PutChunkData(OXS3Connection connection, const void* data, OXMemSize length) {
    if (!connection || !connection->activeChunk || (!data && length)) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3PutChunkData");
    Logger_S* logger = connection->oxs3->logger;
    OXS3_LOG(logger, LL_Trace, U"Put chunk data: len=%ld", static_cast<long>(length));
    if (length == 0) return OX_OK;
    const OXStatus st = feedChunks(connection, connection->activeChunk, static_cast<const char*>(data), length);
    if (st != OX_OK) dropChunkedPut(connection);
    return st;
}

OXStatus oxs3FinishChunkedPut(OXS3Connection connection) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3FinishChunkedPut");
    Logger_S* logger = connection->oxs3->logger;
    ChunkInformation* ci = connection->activeChunk;
    if (!ci) {
        OXS3_LOG(logger, LL_Error, U"oxs3FinishChunkedPut called but chunked send has not been started.");
        return OX_INVALID_ARGUMENT;
    }
    if (ci->currentChunk != ci->count) {  // finished early: the server must not keep a short object
        dropChunkedPut(connection);
        return OX_INVALID_ARGUMENT;
    }
    HTConnection http = ci->htConnection;
    OXS3_LOG(logger, LL_Trace, U"Writing end chunk.");
    OXStatus st = writeChunk(connection, ci, nullptr, 0);
    if (st != OX_OK) {
        http->close(http);
        return st;
    }
    OXS3_LOG(logger, LL_Trace, U"Wrote %ld bytes, data and chunk metadata.", static_cast<long>(ci->dataWritten));
    HTTPStatus status{};
    st = http->readResponse(http, &status);
    if (st == OX_OK && status.message == OX_HTTP_NOT_FOUND) return OX_HTTP_NOT_FOUND;
    void* body = nullptr;
    OXMemSize length = 0;
    if (st == OX_OK) st = http->readData(http, connection->pool, &body, &length);
    PoolBlock<char> held(connection->pool, static_cast<char*>(body));
    if (st != OX_OK && st != OX_END_OF_DATA) {
        http->close(http);
        return st;
    }
    if (status.message != OX_HTTP_OK && status.message != OX_HTTP_CREATED) {
        st = s3ErrorResponse(connection, http, status, body, length);
        OXS3_LOG(logger, LL_Debug, U"%.*hs", static_cast<int>(length), body ? static_cast<const char*>(body) : "");
        http->close(http);
        return st;
    }
    releaseActiveChunk(connection);
    return OX_OK;
}

}  // namespace s3
