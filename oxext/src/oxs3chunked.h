// Chunked ("aws-chunked") puts: the caller announces the total length, streams the data in
// pieces of any size, and every chunk of the body carries a signature chained to the one
// before it, starting from the request's own. A connection has at most one in progress.
//
// The encoded body: per chunk its size in hex, ";chunk-signature=", the signature, CRLF, the
// data, CRLF; then "0;chunk-signature=", the last signature and two CRLFs.
#pragma once

#include <cstdint>
#include <string_view>

#include "oxs3.h"
#include "oxs3sign.h"

// The state of the chunked put of one connection (its activeChunk), from its pool.
struct OXS3ChunkInformation_S {
    OX_POOL_S* pool;
    OXDateTime dateTime;  // the signing time of the request and every chunk
    HTConnection htConnection;
    OXBoolean releaseConnection;  // htConnection is an accelerated client this put destroys
    OXBoolean directWrite;        // never set: data is always streamed
    OXMemSize size;               // the regular chunk size
    OXMemSize length;             // bytes gathered in buffer
    char* buffer;                 // size bytes
    int32_t count;                // data chunks
    int32_t currentChunk;         // index of the next data chunk
    OXMemSize finalSize;          // the shorter last chunk's size, 0 when there is none
    OXMemSize position;           // write position within the current chunk
    char sizeText[20];
    size_t sizeTextLen;
    char finalSizeText[20];
    size_t finalSizeTextLen;
    OXU8String* seedSignature;  // the previous chunk's signature
    OXU8String* region;         // the signing region
    OXU8String* emptySignature; // hex SHA-256 of no bytes
    OXMemSize dataWritten;      // every body byte sent so far
};

namespace s3 {

inline constexpr OXMemSize kDefaultChunkSize = 8192;
// Bytes of a chunk besides its size text and data: ";chunk-signature=", CRLF, CRLF.
inline constexpr uint64_t kChunkFrameBytes = 21;
// Bytes of the end chunk besides its signature: "0;chunk-signature=", CRLF, CRLF.
inline constexpr uint64_t kEndChunkBytes = 22;

struct ChunkPlan {
    OXMemSize size = 0;
    OXMemSize finalSize = 0;
    int32_t count = 0;
};

constexpr uint64_t hexDigits(uint64_t n) {
    uint64_t digits = 1;
    while (n >>= 4) ++digits;
    return digits;
}

// chunkSize 0 is kDefaultChunkSize; total must not be 0.
constexpr ChunkPlan planChunks(OXMemSize total, OXMemSize chunkSize) {
    if (chunkSize == 0) chunkSize = kDefaultChunkSize;
    if (total < chunkSize) return {total, 0, 1};
    const OXMemSize finalSize = total % chunkSize;
    return {chunkSize, finalSize, static_cast<int32_t>(total / chunkSize + (finalSize ? 1 : 0))};
}

// The Content-Length of the encoded body.
constexpr uint64_t encodedLength(const ChunkPlan& p) {
    const uint64_t L = kSignatureHexLen;
    const uint64_t count = static_cast<uint64_t>(p.count);
    const uint64_t sizeTextLen = hexDigits(p.size);
    const uint64_t chunks = p.finalSize != 0
                                ? count * kChunkFrameBytes + p.finalSize + hexDigits(p.finalSize) + count * L +
                                      (count - 1) * (p.size + sizeTextLen)
                                : count * kChunkFrameBytes + count * (L + sizeTextLen + p.size);
    return chunks + L + kEndChunkBytes;
}

// ---- the connection slots

OXStatus oxs3PutObjectChunked(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXS3AccessType accessType,
                              OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                              OXBoolean useReducedRedundancy, OXMemSize totalLength, OXMemSize chunkSize);
OXStatus oxs3PutEncryptedObjectChunked(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                       OXS3AccessType accessType, OXS3ACL_S* accessControl, OXDictionary metadata,
                                       UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                       OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext,
                                       OXMemSize totalLength, OXMemSize chunkSize);
OXStatus oxs3PutChunkData(OXS3Connection connection, const void* data, OXMemSize length);
OXStatus oxs3FinishChunkedPut(OXS3Connection connection);

// ---- the state

// A new activeChunk for the plan (replacing any), chaining from seed; the put's head has been
// sent on http already. releaseConnection: http is destroyed with the state.
OXStatus attachChunkInformation(OXS3Connection connection, const ChunkPlan& plan, OXDateTime dateTime,
                                HTConnection http, bool releaseConnection, std::string_view seed,
                                std::string_view region);
// Drops the connection's activeChunk, if any.
void releaseActiveChunk(OXS3Connection connection);

}  // namespace s3
