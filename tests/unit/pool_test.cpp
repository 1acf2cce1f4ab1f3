// Memory pools: accounting (also across threads), zero filling, reallocation, destruction with
// blocks still live, and injected allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "ox/pool.h"
#include "testhost.h"

namespace {

bool allZero(const unsigned char* mem, size_t len) {
    return std::all_of(mem, mem + len, [](unsigned char b) { return b == 0; });
}

class Pools : public ::testing::Test {
protected:
    void TearDown() override { oxPoolFailAfter(pool, -1); }
    oxtest::TestPool pool;
};

TEST_F(Pools, AccountingFollowsAllocReallocAndFreeWithZeroFill) {
    void* dirty = pool->memAlloc(pool, 4096, 0);
    std::memset(dirty, 0xAB, 4096);
    pool->memFree(pool, dirty);
    auto* zeroed = static_cast<unsigned char*>(pool->memAlloc(pool, 4096, OX_POOL_ZERO_FILL));  // likely reused
    void* empty = pool->memAlloc(pool, 0, 0);
    auto* mem = static_cast<unsigned char*>(pool->memRealloc(pool, nullptr, 16, OX_POOL_ZERO_FILL));
    ASSERT_TRUE(zeroed && empty && mem);
    EXPECT_TRUE(allZero(zeroed, 4096) && allZero(mem, 16));
    for (int i = 0; i < 16; ++i) mem[i] = static_cast<unsigned char>(i + 1);
    ASSERT_NE(mem = static_cast<unsigned char*>(pool->memRealloc(pool, mem, 100000, OX_POOL_ZERO_FILL)), nullptr);
    EXPECT_EQ(mem[15], 16);
    EXPECT_TRUE(allZero(mem + 16, 100000 - 16));
    EXPECT_EQ(pool->bytesInUse(pool), 104096u);
    ASSERT_NE(mem = static_cast<unsigned char*>(pool->memRealloc(pool, mem, 8, 0)), nullptr);
    EXPECT_EQ(mem[7], 8);
    EXPECT_EQ(pool->bytesInUse(pool), 4104u);
    EXPECT_EQ(pool->blocksInUse(pool), 3u);
    for (void* m : {static_cast<void*>(zeroed), empty, static_cast<void*>(mem), static_cast<void*>(nullptr)}) pool->memFree(pool, m);
    EXPECT_EQ(pool->memAlloc(pool, ~OXMemSize{0} - 8, 0), nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(pool->bytesInUse(pool), 0u);
}

TEST(PoolLifetime, DestroyReleasesBlocksStillAllocated) {  // leak checkers see what it leaves behind
    OXPoolCreateParms parms{};
    OX_POOL_S* pool = oxtest::host()->poolCreate(oxtest::host(), &parms, nullptr, "destroyed with live blocks");
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_NE(pool->memAlloc(pool, 64 + static_cast<OXMemSize>(i), 0), nullptr);
    ASSERT_NE(pool->memRealloc(pool, pool->memAlloc(pool, 10, 0), 5000, 0), nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 101u);
    EXPECT_EQ(pool->generic.destroy(pool), OX_OK);
}

TEST_F(Pools, InjectedFailuresFollowTheCountdownAndKeepOldBlocks) {
    auto* kept = static_cast<char*>(pool->memAlloc(pool, 6, 0));
    std::memcpy(kept, "keep!", 6);
    oxPoolFailAfter(pool, 1);
    void* one = pool->memAlloc(pool, 8, 0);
    EXPECT_NE(one, nullptr);
    EXPECT_EQ(pool->memAlloc(pool, 8, 0), nullptr);
    EXPECT_EQ(pool->memRealloc(pool, kept, 1000, 0), nullptr);
    EXPECT_STREQ(kept, "keep!");
    EXPECT_EQ(pool->bytesInUse(pool), 14u);
    oxPoolFailAfter(pool, -1);
    void* after = pool->memAlloc(pool, 8, 0);
    EXPECT_NE(after, nullptr);
    for (void* mem : {static_cast<void*>(kept), one, after}) pool->memFree(pool, mem);
}

// Frees race with allocations elsewhere, and the failure countdown is shared exactly.
TEST_F(Pools, AccountingAndFailureCountdownHoldAcrossThreads) {
    oxPoolFailAfter(pool, 5000);
    std::vector<int> succeeded(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            std::vector<void*> held;
            for (int i = 0; i < 2000; ++i) {
                if (void* mem = pool->memAlloc(pool, static_cast<OXMemSize>(1 + (i * 7 + t) % 300), 0)) {
                    held.push_back(mem);
                    ++succeeded[t];
                }
                if (i % 3 == 2 && !held.empty()) {
                    pool->memFree(pool, held.front());
                    held.erase(held.begin());
                }
            }
            for (void* mem : held) pool->memFree(pool, mem);
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(succeeded[0] + succeeded[1] + succeeded[2] + succeeded[3], 5000);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(pool->bytesInUse(pool), 0u);
}

}  // namespace
