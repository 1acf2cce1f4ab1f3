/* The array service "oxarray": instances indexed from 0. An array holds its own reference on
 * each item: adding takes one, removing or destroying the array drops it. */
#ifndef OX_ARRAY_H
#define OX_ARRAY_H

#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_TYPE_ARRAY "OXArray"

typedef struct OXArray_S OXArray_S, *OXArray;
struct OXArray_S {
    OXInstance instance;
    OX_POOL_S* pool;
    OXInstance** items;
    int64_t count;
    int64_t capacity;
    OXStatus (*addItem)(OXArray a, OXInstance* item);
    OXStatus (*addItems)(OXArray a, OXInstance* const* items, int64_t count);
    OXStatus (*setItem)(OXArray a, int64_t index, OXInstance* item); /* replaces; index < count */
    OXStatus (*removeItem)(OXArray a, int64_t index);
    OXStatus (*insertItem)(OXArray a, int64_t index, OXInstance* item); /* index <= count */
};

typedef struct OXArrayExt_S {
    OXExtension exth;
    OXStatus (*create)(struct OXArrayExt_S* ext, OX_POOL_S* pool, int64_t initialCapacity, OXArray* out);
} OXArrayExt_S;

OX_END_DECLS

#endif
