// Memory pools. Every block carries a small header linking it into its pool's list, so
// destroying the pool frees whatever is still allocated and the pool can count what is live.
// One mutex per pool makes allocation safe from many threads.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "core.h"
#include "object.h"
#include "ox/status.h"

namespace {

constexpr uint32_t kPoolOven = OX_OVEN('p', 'o', 'o', 'l');
constexpr uint64_t kBlockMagic = 0x6b636f6c62786fULL;  // "oxblock"

struct alignas(16) BlockHeader {
    BlockHeader* prev;
    BlockHeader* next;
    OXMemSize size;
    uint64_t magic;
};

struct Pool {
    OX_POOL_S rec;  // first, so the record pointer is the pool pointer
    std::mutex mutex;
    BlockHeader head{&head, &head, 0, 0};  // circular list sentinel
    OXMemSize bytes = 0;
    OXMemSize blocks = 0;
    std::atomic<int64_t> failCountdown{-1};  // test support: allocations left before failing
    std::string name;
};

Pool* poolOf(OX_POOL_S* p) { return reinterpret_cast<Pool*>(p); }
BlockHeader* headerOf(void* mem) { return static_cast<BlockHeader*>(mem) - 1; }

bool injectedFailure(Pool* pool) {
    int64_t left = pool->failCountdown.load(std::memory_order_relaxed);
    while (left >= 0) {
        if (left == 0) return true;
        if (pool->failCountdown.compare_exchange_weak(left, left - 1)) return false;
    }
    return false;
}

void link(Pool* pool, BlockHeader* b) {
    std::lock_guard lock(pool->mutex);
    b->next = pool->head.next;
    b->prev = &pool->head;
    pool->head.next->prev = b;
    pool->head.next = b;
    pool->bytes += b->size;
    ++pool->blocks;
}

void unlink(Pool* pool, BlockHeader* b) {
    std::lock_guard lock(pool->mutex);
    b->prev->next = b->next;
    b->next->prev = b->prev;
    pool->bytes -= b->size;
    --pool->blocks;
}

void* memAlloc(OX_POOL_S* p, OXMemSize size, uint32_t flags) {
    Pool* pool = poolOf(p);
    if (!pool || injectedFailure(pool) || size > (1ULL << 48)) return nullptr;
    auto* b = static_cast<BlockHeader*>((flags & OX_POOL_ZERO_FILL) ? std::calloc(1, sizeof(BlockHeader) + size)
                                                                    : std::malloc(sizeof(BlockHeader) + size));
    if (!b) return nullptr;
    b->size = size;
    b->magic = kBlockMagic;
    link(pool, b);
    return b + 1;
}

void memFree(OX_POOL_S* p, void* mem) {
    if (!p || !mem) return;
    BlockHeader* b = headerOf(mem);
    if (b->magic != kBlockMagic) std::abort();  // a foreign or already freed pointer: stop before corrupting
    unlink(poolOf(p), b);
    b->magic = 0;
    std::free(b);
}

void* memRealloc(OX_POOL_S* p, void* mem, OXMemSize size, uint32_t flags) {
    if (!mem) return memAlloc(p, size, flags);
    Pool* pool = poolOf(p);
    BlockHeader* old = headerOf(mem);
    if (old->magic != kBlockMagic) std::abort();
    if (injectedFailure(pool) || size > (1ULL << 48)) return nullptr;
    OXMemSize oldSize = old->size;
    unlink(pool, old);
    auto* b = static_cast<BlockHeader*>(std::realloc(old, sizeof(BlockHeader) + size));
    if (!b) {
        link(pool, old);
        return nullptr;
    }
    b->size = size;
    link(pool, b);
    if ((flags & OX_POOL_ZERO_FILL) && size > oldSize) std::memset(reinterpret_cast<char*>(b + 1) + oldSize, 0, size - oldSize);
    return b + 1;
}

OXMemSize bytesInUse(OX_POOL_S* p) {
    std::lock_guard lock(poolOf(p)->mutex);
    return poolOf(p)->bytes;
}

OXMemSize blocksInUse(OX_POOL_S* p) {
    std::lock_guard lock(poolOf(p)->mutex);
    return poolOf(p)->blocks;
}

OXStatus destroyPool(void* self) {
    Pool* pool = static_cast<Pool*>(self);
    if (!pool) return OX_INVALID_ARGUMENT;
    for (BlockHeader* b = pool->head.next; b != &pool->head;) {
        BlockHeader* next = b->next;
        b->magic = 0;
        std::free(b);
        b = next;
    }
    delete pool;
    return OX_OK;
}

}  // namespace

OX_POOL_S* oxPoolCreate(OX_HNDL_S*, const OXPoolCreateParms*, OXJournal* jnl, const char* name) {
    Pool* pool = new (std::nothrow) Pool{};
    if (!pool) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    try {
        pool->name = name ? name : "";
    } catch (...) {  // the name is the only allocation that could throw
        delete pool;
        return nullptr;
    }
    ox::initGeneric(pool->rec.generic, kPoolOven, pool->name.c_str(), destroyPool);
    pool->rec.memAlloc = memAlloc;
    pool->rec.memFree = memFree;
    pool->rec.memRealloc = memRealloc;
    pool->rec.bytesInUse = bytesInUse;
    pool->rec.blocksInUse = blocksInUse;
    return &pool->rec;
}

void oxPoolFailAfter(OX_POOL_S* p, int64_t countdown) {
    if (p) poolOf(p)->failCountdown.store(countdown < 0 ? -1 : countdown);
}
