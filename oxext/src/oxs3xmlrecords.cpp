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

// True when the reference dropped was the last: the caller releases the contents and the record.
template <class Record>
bool lastReference(void* self, Record*& record) {
    record = static_cast<Record*>(self);
    return record && dropReference(record->instance);
}

template <class Record>
void freeRecord(Record* record) {
    record->pool->memFree(record->pool, record);
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
    OXS3Bucket* b = nullptr;
    if (!lastReference(self, b)) return self ? OX_OK : OX_INVALID_ARGUMENT;
    releaseAll({b->name, b->creationDate});
    freeRecord(b);
    return OX_OK;
}

OXStatus releaseBucketList(void* self) {
    OXS3BucketList* l = nullptr;
    if (!lastReference(self, l)) return self ? OX_OK : OX_INVALID_ARGUMENT;
    releaseAll({l->bucketList, l->ownerName, l->ownerId});
    freeRecord(l);
    return OX_OK;
}

OXStatus destroyBucketEntry(void* self) {
    OXS3BucketEntry* e = nullptr;
    if (!lastReference(self, e)) return self ? OX_OK : OX_INVALID_ARGUMENT;
    releaseAll({e->name, e->lastModified, e->hash, e->ownerId, e->ownerDisplayName});
    freeRecord(e);
    return OX_OK;
}

OXStatus oxs3ErrorDestroy(void* self) {
    OXS3Error* e = nullptr;
    if (!lastReference(self, e)) return self ? OX_OK : OX_INVALID_ARGUMENT;
    releaseAll({e->code, e->message, e->requestId, e->hostId, e->details});
    freeRecord(e);
    return OX_OK;
}

OXStatus deleteErrorDestroy(void* self) {
    OXS3DeleteError* e = nullptr;
    if (!lastReference(self, e)) return self ? OX_OK : OX_INVALID_ARGUMENT;
    releaseAll({e->code, e->message, e->key, e->version});
    freeRecord(e);
    return OX_OK;
}

}  // namespace s3
