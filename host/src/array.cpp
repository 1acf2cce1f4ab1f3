// The array service "oxarray": instances indexed from 0 in a pool block that doubles as it
// fills. The array holds one reference on each item; every change takes the new reference
// before dropping the old one, so replacing an item with itself is safe.
#include <algorithm>
#include <cstring>
#include <utility>

#include "array_internal.h"
#include "builtin.h"
#include "object.h"
#include "ox/owned.hpp"
#include "ox/status.h"
#include "services.h"

namespace {

constexpr uint32_t kArrayOven = OX_OVEN('a', 'r', 'r', 'y');
constexpr int64_t kMinCapacity = 8;
constexpr int64_t kMaxCapacity = int64_t(1) << 40;

OXStatus destroyArray(void* self) {
    auto* a = static_cast<OXArray_S*>(self);
    if (!a) return OX_INVALID_ARGUMENT;
    if (!ox::dropReference(&a->instance)) return OX_OK;
    for (int64_t i = 0; i < a->count; ++i) ox::release(a->items[i]);
    a->pool->memFree(a->pool, a->items);
    a->pool->memFree(a->pool, a);
    return OX_OK;
}

// Room for `extra` more items.
OXStatus reserve(OXArray a, int64_t extra) {
    if (extra > kMaxCapacity - a->count) return OX_NO_MEMORY;
    const int64_t needed = a->count + extra;
    if (needed <= a->capacity) return OX_OK;
    const int64_t cap = std::max({needed, a->capacity * 2, kMinCapacity});
    void* items = a->pool->memRealloc(a->pool, a->items, static_cast<OXMemSize>(cap) * sizeof(OXInstance*), 0);
    if (!items) return OX_NO_MEMORY;
    a->items = static_cast<OXInstance**>(items);
    a->capacity = cap;
    return OX_OK;
}

bool validItem(const OXArray a, const OXInstance* item) { return a && item; }

OXStatus insertItem(OXArray a, int64_t index, OXInstance* item) {
    if (!validItem(a, item) || index < 0 || index > a->count) return OX_INVALID_ARGUMENT;
    if (OXStatus st = reserve(a, 1); st != OX_OK) return st;
    std::memmove(a->items + index + 1, a->items + index, static_cast<size_t>(a->count - index) * sizeof(OXInstance*));
    ox::retain(item);
    a->items[index] = item;
    ++a->count;
    return OX_OK;
}

OXStatus addItem(OXArray a, OXInstance* item) { return a ? insertItem(a, a->count, item) : OX_INVALID_ARGUMENT; }

// All or nothing: room for every item is made before any is taken.
OXStatus addItems(OXArray a, OXInstance* const* items, int64_t count) {
    if (!a || count < 0 || (!items && count)) return OX_INVALID_ARGUMENT;
    if (std::find(items, items + count, nullptr) != items + count) return OX_INVALID_ARGUMENT;
    if (OXStatus st = reserve(a, count); st != OX_OK) return st;
    for (int64_t i = 0; i < count; ++i) {
        ox::retain(items[i]);
        a->items[a->count++] = items[i];
    }
    return OX_OK;
}

OXStatus setItem(OXArray a, int64_t index, OXInstance* item) {
    if (!validItem(a, item) || index < 0 || index >= a->count) return OX_INVALID_ARGUMENT;
    ox::retain(item);
    ox::release(std::exchange(a->items[index], item));
    return OX_OK;
}

OXStatus removeItem(OXArray a, int64_t index) {
    if (!a || index < 0 || index >= a->count) return OX_INVALID_ARGUMENT;
    OXInstance* gone = a->items[index];
    std::memmove(a->items + index, a->items + index + 1, static_cast<size_t>(a->count - index - 1) * sizeof(OXInstance*));
    --a->count;
    ox::release(gone);
    return OX_OK;
}

OXStatus createArray(OXArrayExt_S*, OX_POOL_S* pool, int64_t initialCapacity, OXArray* out) {
    return oxArrayCreate(pool, initialCapacity, out);
}

void fillArrayOps(OXArrayExt_S& r) { r.create = createArray; }

}  // namespace

OXStatus oxArrayCreate(OX_POOL_S* pool, int64_t initialCapacity, OXArray* out) {
    if (!pool || !out || initialCapacity < 0) return OX_INVALID_ARGUMENT;
    ox::Owned<OXArray_S> a(static_cast<OXArray_S*>(pool->memAlloc(pool, sizeof(OXArray_S), OX_POOL_ZERO_FILL)));
    if (!a) return OX_NO_MEMORY;
    ox::initInstance(a->instance, kArrayOven, OX_TYPE_ARRAY, destroyArray);
    a->pool = pool;
    a->addItem = addItem;
    a->addItems = addItems;
    a->setItem = setItem;
    a->removeItem = removeItem;
    a->insertItem = insertItem;
    if (OXStatus st = reserve(a.get(), initialCapacity); st != OX_OK) return st;
    *out = a.release();
    return OX_OK;
}

OXExtension* oxLoadArray(OX_HNDL_S* h, OXJournal*) { return ox::loadedRecord<OXArrayExt_S>(h, "oxarray", fillArrayOps); }
