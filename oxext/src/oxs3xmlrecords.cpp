// The records parsed S3 documents become: zero-filled instances in the caller's pool that
// release their strings and containers with their last reference.
#include <initializer_list>

#include "oxs3docs.h"
#include "oxs3instance.h"

namespace s3 {
namespace {

void releaseAll(std::initializer_list<void*> instances) {
    for (void* instance : instances)
        if (instance) static_cast<OXInstance*>(instance)->destroy(instance);
}

template <class Record>
OXStatus createRecord(OX_POOL_S* pool, const char* typeName, OXStatus (*destroy)(void*), Record** out) {
    auto* record = static_cast<Record*>(pool->memAlloc(pool, sizeof(Record), OX_POOL_ZERO_FILL));
    if (!record) return OX_NO_MEMORY;
    initInstance(record->instance, typeName, destroy);
    record->pool = pool;
    *out = record;
    return OX_OK;
}

// A record's destroy: drops a reference; the last releases the contents and the record.
template <class Record, class ReleaseContents>
OXStatus destroyRecord(void* self, ReleaseContents releaseContents) {
    auto* record = static_cast<Record*>(self);
    if (!record) return OX_INVALID_ARGUMENT;
    if (!dropReference(record->instance)) return OX_OK;
    releaseContents(*record);
    record->pool->memFree(record->pool, record);
    return OX_OK;
}

}  // namespace

OXStatus createBucket(OX_POOL_S* pool, OXS3Bucket** bucket) {
    return createRecord(pool, OXS3_TYPE_BUCKET, destroyBucket, bucket);
}

OXStatus createBucketList(OX_POOL_S* pool, OXS3BucketList** list) {
    return createRecord(pool, OXS3_TYPE_BUCKET_LIST, releaseBucketList, list);
}

OXStatus createBucketEntry(OX_POOL_S* pool, OXS3BucketEntry** entry) {
    return createRecord(pool, OXS3_TYPE_BUCKET_ENTRY, destroyBucketEntry, entry);
}

OXStatus createS3Error(OX_POOL_S* pool, OXS3Error** error) {
    return createRecord(pool, OXS3_TYPE_ERROR, oxs3ErrorDestroy, error);
}

OXStatus createDeleteError(OX_POOL_S* pool, OXS3DeleteError** error) {
    return createRecord(pool, OXS3_TYPE_DELETE_ERROR, deleteErrorDestroy, error);
}

OXStatus destroyBucket(void* self) {
    return destroyRecord<OXS3Bucket>(self, [](auto& b) { releaseAll({b.name, b.creationDate}); });
}

OXStatus releaseBucketList(void* self) {
    return destroyRecord<OXS3BucketList>(self, [](auto& l) { releaseAll({l.bucketList, l.ownerName, l.ownerId}); });
}

OXStatus destroyBucketEntry(void* self) {
    return destroyRecord<OXS3BucketEntry>(
        self, [](auto& e) { releaseAll({e.name, e.lastModified, e.hash, e.ownerId, e.ownerDisplayName}); });
}

OXStatus oxs3ErrorDestroy(void* self) {
    return destroyRecord<OXS3Error>(
        self, [](auto& e) { releaseAll({e.code, e.message, e.requestId, e.hostId, e.details}); });
}

OXStatus deleteErrorDestroy(void* self) {
    return destroyRecord<OXS3DeleteError>(self, [](auto& e) { releaseAll({e.code, e.message, e.key, e.version}); });
}

}  // namespace s3
