/* Records made from the XML documents S3 answers with. Each is a host reference-counted
 * instance in the caller's pool, handed out with one reference; its destroy drops one and
 * releases the record's strings and containers with the last. Strings may be absent (null). */
#ifndef OXS3_RECORDS_H
#define OXS3_RECORDS_H

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/pool.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

typedef enum S8StorageClass { Standard = 0, ReducedRedundancy = 1, Glacier = 2 } S8StorageClass;

/* A bucket's transfer acceleration. NotSet is never the answer of a parsed configuration. */
typedef enum S3AccelerateState {
    s3AccelerateNotSet = 0,
    s3AccelerateEnabled = 1,
    s3AccelerateSuspended = 2,
    s3AccelerateUnknown = 3 /* any other Status text, or none (an unconfigured bucket) */
} S3AccelerateState;

#define OXS3_TYPE_BUCKET "oxs3Bucket"
#define OXS3_TYPE_BUCKET_LIST "oxs3BucketList"
#define OXS3_TYPE_BUCKET_ENTRY "oxs3BucketEntry"
#define OXS3_TYPE_ERROR "oxs3ErrorInstance"
#define OXS3_TYPE_DELETE_ERROR "oxs3DeleteError"

/* One bucket of the caller's bucket list. */
typedef struct OXS3Bucket {
    OXInstance instance;
    OX_POOL_S* pool;
    OXU8String* name;
    OXU8String* creationDate; /* as in the document */
    OXDateTime creationDateTime;
} OXS3Bucket;

typedef struct OXS3BucketList {
    OXInstance instance;
    OX_POOL_S* pool;
    OXArray bucketList; /* of OXS3Bucket; released with the list */
    OXU8String* ownerName;
    OXU8String* ownerId;
} OXS3BucketList;

/* One object, or one common prefix (a directory), of a bucket listing. A common prefix has
 * size 0, class Standard and empty date, hash and owner texts. */
typedef struct OXS3BucketEntry {
    OXInstance instance;
    OX_POOL_S* pool;
    OXU8String* name;         /* the key */
    OXU8String* lastModified; /* as in the document */
    OXU8String* hash;         /* the ETag, quotes included */
    OXMemSize size;
    S8StorageClass storageClass;
    OXU8String* ownerId;          /* absent when the listing names no owner */
    OXU8String* ownerDisplayName;
    OXDateTime lastModifiedDate;
} OXS3BucketEntry;

/* An S3 error document. details maps each further element under Error to its text; absent
 * when there are none. */
typedef struct OXS3Error {
    OXInstance instance;
    OX_POOL_S* pool;
    OXU8String* code;
    OXU8String* message;
    OXU8String* requestId;
    OXU8String* hostId;
    OXDictionary details;
} OXS3Error;

/* A key a multi-object delete could not delete. */
typedef struct OXS3DeleteError {
    OXInstance instance;
    OX_POOL_S* pool;
    OXU8String* code;
    OXU8String* message;
    OXU8String* key;
    OXU8String* version;
} OXS3DeleteError;

/* What a HEAD of an object tells: the answer's headers as texts (absent when the answer lacked
 * them) and their values. Allocated from the connection's pool. */
#define OXS3_TYPE_OBJECT_INFORMATION "oxs3ObjectInformation"
typedef struct OXS3ObjectInformation_S {
    OXInstance instance;
    OX_POOL_S* pool;
    OXStatus (*release)(struct OXS3ObjectInformation_S* info); /* drops a reference, as destroy */
    UTF8Str lastModified; /* "Last-Modified", terminated */
    UTF8Str contentType;  /* "Content-Type" */
    UTF8Str eTag;         /* "ETag", quotes included */
    OXBoolean hasContentLength;
    OXMemSize contentLength; /* 0 without "Content-Length" */
    OXDateTime lastModifiedDate; /* 0 without "Last-Modified" */
} OXS3ObjectInformation;

OX_END_DECLS

#endif
