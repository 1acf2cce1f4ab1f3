// The S3 XML documents the extension reads, and the records they become (oxs3records.h).
// Each parse takes the caller's pool and the body; results are stored only on success, and on
// failure every record made so far is released.
#pragma once

#include "oxs3.h"

namespace s3 {

// ---- result records (oxs3xmlrecords.cpp): new, with one reference, in pool

OXStatus createBucket(OX_POOL_S* pool, OXS3Bucket** bucket);
OXStatus createBucketList(OX_POOL_S* pool, OXS3BucketList** list);
OXStatus createBucketEntry(OX_POOL_S* pool, OXS3BucketEntry** entry);
OXStatus createS3Error(OX_POOL_S* pool, OXS3Error** error);
OXStatus createDeleteError(OX_POOL_S* pool, OXS3DeleteError** error);

// Their instance destroys: one reference less, and the record's contents with the last.
OXStatus destroyBucket(void* bucket);
OXStatus releaseBucketList(void* list);
OXStatus destroyBucketEntry(void* entry);
OXStatus oxs3ErrorDestroy(void* error);
OXStatus deleteErrorDestroy(void* error);

// ---- documents

// ListAllMyBucketsResult.
OXStatus parseBucketList(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                         OXS3BucketList** list);

// ListBucketResult of either listing version: objects and common prefixes as one array in key
// order (absent when the page is empty), the next marker or continuation token (absent when
// none), and whether the listing goes on.
OXStatus parseBucketContentList(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                                OXArray* contents, OXU8String** nextMarker, OXBoolean* truncated);

// InitiateMultipartUploadResult; each result absent when the document lacks it.
OXStatus parseInitiateUpload(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                             OXU8String** bucket, OXU8String** key, OXU8String** uploadId);

// An error document; *error absent (and success) when it holds no Error element.
OXStatus parseError(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength, OXS3Error** error);

// CopyPartResult (and CopyObjectResult's ETag): absent when missing.
OXStatus parseCopyPartResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                             OXU8String** eTag);

// DeleteResult: the keys that could not be deleted (OXS3DeleteError), absent when none.
OXStatus parseDeleteResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                           OXArray* errors);

// AccelerateConfiguration.
OXStatus parseAccelerateResult(OXS3Extension* ext, OX_POOL_S* pool, const char* body, OXMemSize bodyLength,
                               S3AccelerateState* state);

// Inserts an entry into an array kept in byte order of the names; an equal name goes to the
// search's low bound.
OXStatus addEntryInOrder(OXArray array, OXS3BucketEntry* entry);

}  // namespace s3
