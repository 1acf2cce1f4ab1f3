/* Memory pools: the only allocator modules use. A pool is safe to use from many threads at
 * once, and destroying it releases everything still allocated from it. */
#ifndef OX_POOL_H
#define OX_POOL_H

#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_POOL_ZERO_FILL 0x80000000u

typedef struct OXPoolCreateParms {
    uint32_t flags;
    OXMemSize initial; /* a hint only */
    int32_t numaNode;
} OXPoolCreateParms;

typedef struct OX_POOL_S OX_POOL_S;
struct OX_POOL_S {
    OXGeneric generic; /* destroy releases the pool and every block still in it */
    void* (*memAlloc)(OX_POOL_S* pool, OXMemSize size, uint32_t flags);
    void (*memFree)(OX_POOL_S* pool, void* mem);
    /* Keeps the old block when it fails (returns null). Zero-fills the grown part with the flag. */
    void* (*memRealloc)(OX_POOL_S* pool, void* mem, OXMemSize size, uint32_t flags);
    /* Accounting, for leak checks: live blocks and their bytes. */
    OXMemSize (*bytesInUse)(OX_POOL_S* pool);
    OXMemSize (*blocksInUse)(OX_POOL_S* pool);
};

OX_END_DECLS

#endif
