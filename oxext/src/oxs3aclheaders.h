// Access control inside the extension: the ACL object's operations, and the canned-ACL and
// grant headers that writes send and that answers carry back.
#pragma once

#include <cstddef>

#include "oxs3.h"

namespace s3 {

// One canned ACL: the access type and its "x-amz-acl" text.
struct CannedACL {
    OXS3AccessType accessType;
    const char* name;
    size_t nameLen;
};

// Access types 0 to 6 in order, then a row with an empty name.
inline constexpr CannedACL cannedACLList[] = {
    {oxs3PrivateAccess, "private", 7},
    {oxs3PublicReadAccess, "public-read", 11},
    {oxs3PublicReadWriteAccess, "public-read-write", 17},
    {oxs3AuthenticatedReadAccess, "authenticated-read", 18},
    {oxs3BucketOwnerReadAccess, "bucket-owner-read", 17},
    {oxs3BucketOwnerFullAccess, "bucket-owner-full-control", 25},
    {oxs3LogDeliveryWriteAccess, "log-delivery-write", 18},
    {oxs3AccessDefault, "", 0},
};

// The extension record's createACL slot: an empty ACL object in pool.
OXStatus oxs3CreateACL(OXS3Extension* ext, OX_POOL_S* pool, OXS3ACL* acl);
// The object's destroy: drops a reference; the last releases the lists and the object.
OXStatus oxs3DestroyACL(void* acl);

// "x-amz-acl" with the canned text of access types 0 to 6; any other is OX_INVALID_ARGUMENT.
OXStatus setCannedACLHeader(OXStringExt_S* strings, OXDictionary headers, OXS3AccessType accessType);
// The access type whose canned text "x-amz-acl" holds; OX_NOT_FOUND without the header or for
// a text that is no canned ACL.
OXStatus getCannedACLFromHeaders(OXDictionary headers, OXS3AccessType* accessType);
// One "x-amz-grant-..." header per non-empty list of acl.
OXStatus addACLHeaders(OXStringExt_S* strings, OXDictionary headers, const OXS3ACL_S* acl);
// A new ACL object from the grant headers of an answer; a piece that is not type=value is
// OX_INVALID_ARGUMENT. Quotes around a value are removed.
OXStatus getACLFromHeaders(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary headers, OXS3ACL* acl);

// The access headers of a write: the canned ACL for 0 to 6, the grants of acl for
// oxs3AccessList (which then must be given), nothing for oxs3AccessDefault.
OXStatus addAccessHeaders(OXStringExt_S* strings, OXDictionary headers, OXS3AccessType accessType,
                          const OXS3ACL_S* acl);

}  // namespace s3
