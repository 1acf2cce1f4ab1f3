// Writing objects with one request: the put's headers (metadata, storage class, website
// redirect, access control, encryption) and the 100-continue exchange that sends the body
// only once the server has accepted the head. Chunked puts share the headers and exchange.
#pragma once

#include <string_view>

#include "oxs3.h"
#include "oxs3encrypt.h"
#include "oxs3read.h"
#include "oxs3send.h"

namespace s3 {

inline constexpr std::string_view kMetadataPrefix = "x-amz-meta-";

// The arguments every put carries, in their order.
struct PutArguments {
    ObjectTarget target;
    OXS3AccessType accessType = oxs3AccessDefault;
    const OXS3ACL_S* accessControl = nullptr;
    OXDictionary metadata = nullptr;
    UTF8CStr websiteRedirect = nullptr;
    OXBoolean useReducedRedundancy = OX_FALSE;
    EncryptionArgs encryption;
    const void* data = nullptr;
    OXMemSize length = 0;
};

// ---- the connection slots

OXStatus oxs3PutObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXS3AccessType accessType,
                       OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                       OXBoolean useReducedRedundancy, const void* data, OXMemSize length);
OXStatus oxs3PutEncryptedObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                OXS3AccessType accessType, OXS3ACL_S* accessControl, OXDictionary metadata,
                                UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext,
                                const void* data, OXMemSize length);

// Fills the object read, write and chunked-put slots of a new or cloned connection.
void setObjectOps(OXS3Connection connection);

// ---- shared with chunked puts

// The put of a checked target: the parallel engine when it takes it, else one request.
OXStatus putObjectTo(OXS3Connection connection, const PutArguments& put);

// One "x-amz-meta-" header per metadata entry, in key order; a key that already carries the
// prefix is sent as it is.
OXStatus requestAddMetadata(OXS3Connection connection, OXDictionary headers, OXDictionary metadata);
// Metadata, storage class, website redirect and access headers of a put.
OXStatus addPutHeaders(OXS3Connection connection, OXDictionary headers, const PutArguments& put);

// Sends the head of the request last built, asking for 100 (Continue) before the body.
OXStatus sendHeadForContinue(Attempt& attempt, OXDictionary headers, uint64_t contentLength);
// The first answer was not 100: the client's status for 404, else the mapped error.
OXStatus refusedContinue(Attempt& attempt, const HTTPStatus& status);

}  // namespace s3
