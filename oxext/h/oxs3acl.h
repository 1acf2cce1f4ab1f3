/* The access-control list object: the grantees of the five S3 permissions, filled by its add
 * operations and sent as the "x-amz-grant-..." headers of a write. Made by the extension
 * record's createACL; a host instance of type "oxs3ACL" whose destroy drops a reference and
 * releases the lists (and their grantees) with the last one. */
#ifndef OXS3_ACL_H
#define OXS3_ACL_H

#include "ox/array.h"
#include "ox/pool.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OXS3_TYPE_ACL "oxs3ACL"

struct oxs3_ext;

/* Which grant list an add operation fills. */
typedef int32_t OXS3AccessListType;
enum {
    oxs3ReadAccess = 0,
    oxs3WriteAccess = 1,
    oxs3ReadACLAccess = 2,
    oxs3WriteACLAccess = 3,
    oxs3FullAccess = 4
};

typedef struct OXS3ACL_S OXS3AccessControlStruct;
typedef struct OXS3ACL_S* OXS3AccessControl;

/* Each list holds grantees in the order added: dictionaries with the strings "type"
 * ("emailAddress", "id" or "uri") and "value". An add operation takes one grantee as wide or
 * UTF-8 (U8) text, or a wide text of grantees separated by "," (List, each item trimmed, empty
 * items skipped). A list type outside 0 to 4 is OX_INVALID_ARGUMENT; a failing add leaves the
 * list as it was before the call. */
struct OXS3ACL_S {
    OXInstance instance;
    OX_POOL_S* pool;
    struct oxs3_ext* oxs3;
    OXArray readList;
    OXArray writeList;
    OXArray readACLList;
    OXArray writeACLList;
    OXArray fullAccessList;
    OXStatus (*addAddresses)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* address);
    OXStatus (*addAddressesU8)(struct OXS3ACL_S* acl, OXS3AccessListType listType, UTF8CStr address);
    OXStatus (*addAddressList)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* addresses);
    OXStatus (*addUserIds)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* userId);
    OXStatus (*addUserIdsU8)(struct OXS3ACL_S* acl, OXS3AccessListType listType, UTF8CStr userId);
    OXStatus (*addUserIdList)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* userIds);
    OXStatus (*addURI)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* uri);
    OXStatus (*addURIU8)(struct OXS3ACL_S* acl, OXS3AccessListType listType, UTF8CStr uri);
    OXStatus (*addURIList)(struct OXS3ACL_S* acl, OXS3AccessListType listType, const OXString* uris);
};

OX_END_DECLS

#endif
