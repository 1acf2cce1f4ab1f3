// Reading objects: the object information of a HEAD, the whole object into memory, a byte
// range into the caller's buffer; and what single-request reads and writes share: the checked
// bucket and path, and the choice of the bucket's accelerated endpoint.
#pragma once

#include <string_view>

#include "oxs3.h"
#include "oxs3encrypt.h"
#include "oxs3owned.h"
#include "oxs3parallel.h"

namespace s3 {

// The host suffix of S3 transfer acceleration, after the bucket name.
inline constexpr std::string_view kAccelerateDomain = "s3-accelerate.amazonaws.com";

// ---- the connection slots

OXStatus oxs3GetObjectInformation(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                  OXS3ObjectInformation** result);
OXStatus oxs3GetEncryptedObjectInformation(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                           OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                           OXU8String* encKeyContext, OXS3ObjectInformation** result);
OXStatus oxs3GetObject(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path, void** data,
                       OXMemSize* length);
OXStatus oxs3GetEncryptedObject(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path,
                                OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                OXU8String* encKeyContext, void** data, OXMemSize* length);
OXStatus oxs3GetObjectRange(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                            uint64_t offset, OXMemSize length, OXMemSize* bytesRead);
OXStatus oxs3GetEncryptedObjectRange(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                                     uint64_t offset, OXMemSize length, OXInstance* encKey, OXU8String* encKeyAlg,
                                     OXU8String* encKeyId, OXU8String* encKeyContext, OXMemSize* bytesRead);

OXStatus destroyObjectInformation(void* info);

// ---- shared with writes

// The bucket (normalised, still terminated) and the object path of one request.
struct ObjectTarget {
    std::string_view bucket;
    std::string_view path;
};
// stripPrefix takes an "s3:/" scheme off the path first. OXS3_PATH_NOT_ABSOLUTE for a path not
// beginning with "/"; OX_INVALID_ARGUMENT for an absent or invalid bucket name.
OXStatus objectTarget(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, bool stripPrefix,
                      ObjectTarget* target);

// The rest of path after "/" and the bucket name, or path itself when it does not start so.
std::string_view pathWithoutBucket(std::string_view path, std::string_view bucket);

// An unopened HTTP connection to bucket "." kAccelerateDomain on the connection's port, TLS
// when the connection's is, with its TLS options and proxies.
OXStatus getAcceleratedClient(OXS3Connection connection, OX_POOL_S* pool, std::string_view bucket,
                              HTConnection* result);

// Where one single request goes: the accelerated client when the bucket has acceleration
// enabled (http set, path without the bucket), else the connection's own (http null).
struct ChosenClient {
    Owned<HTConnection_S> accelerated;
    HTConnection http = nullptr;
    std::string_view path;
};
// Asks the bucket's acceleration state; a failed question counts as not enabled.
OXStatus chooseClient(OXS3Connection connection, const ObjectTarget& target, ChosenClient* chosen);

// The split of length bytes over threads; log set: the steps are logged as a range read does.
ReadPlan planRead(uint64_t length, int threads, OXMemSize minBlockSize, Logger_S* log);

}  // namespace s3
