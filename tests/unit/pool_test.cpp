// Memory pools: accounting under concurrent use, zero filling, reallocation, destruction with
// blocks still live, and injected allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "ox/pool.h"
#include "testhost.h"

namespace {

using oxtest::host;
using oxtest::TestPool;

bool allZero(const void* mem, size_t len) {
    const auto* bytes = static_cast<const unsigned char*>(mem);
    return std::all_of(bytes, bytes + len, [](unsigned char b) { return b == 0; });
}

class Pools : public ::testing::Test {
protected:
    TestPool pool;
};

TEST_F(Pools, CountsLiveBlocksAndBytes) {
    void* a = pool->memAlloc(pool, 100, 0);
    void* b = pool->memAlloc(pool, 28, 0);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(pool->blocksInUse(pool), 2u);
    EXPECT_EQ(pool->bytesInUse(pool), 128u);
    pool->memFree(pool, a);
    EXPECT_EQ(pool->blocksInUse(pool), 1u);
    EXPECT_EQ(pool->bytesInUse(pool), 28u);
    pool->memFree(pool, b);
}

TEST_F(Pools, AccountingHoldsUnderManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<void*> held;
            for (int i = 0; i < kRounds; ++i) {
                void* mem = pool->memAlloc(pool, static_cast<OXMemSize>(1 + (i * 7 + t) % 300), 0);
                ASSERT_NE(mem, nullptr);
                std::memset(mem, t, 1);
                held.push_back(mem);
                if (i % 3 == 2) {  // free some as we go, so frees race with allocations elsewhere
                    pool->memFree(pool, held.front());
                    held.erase(held.begin());
                }
            }
            for (void* mem : held) pool->memFree(pool, mem);
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(pool->bytesInUse(pool), 0u);
}

TEST_F(Pools, ZeroFillFlagGivesZeroedMemory) {
    // Dirty a block and free it so the allocator is likely to hand the same memory back.
    void* dirty = pool->memAlloc(pool, 4096, 0);
    ASSERT_NE(dirty, nullptr);
    std::memset(dirty, 0xAB, 4096);
    pool->memFree(pool, dirty);
    void* mem = pool->memAlloc(pool, 4096, OX_POOL_ZERO_FILL);
    ASSERT_NE(mem, nullptr);
    EXPECT_TRUE(allZero(mem, 4096));
    pool->memFree(pool, mem);
}

TEST_F(Pools, ZeroSizedBlocksAreCounted) {
    void* mem = pool->memAlloc(pool, 0, 0);
    ASSERT_NE(mem, nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 1u);
    pool->memFree(pool, mem);
}

TEST_F(Pools, ReallocKeepsDataAndZeroFillsGrowth) {
    auto* mem = static_cast<unsigned char*>(pool->memAlloc(pool, 16, 0));
    ASSERT_NE(mem, nullptr);
    for (int i = 0; i < 16; ++i) mem[i] = static_cast<unsigned char>(i + 1);
    auto* grown = static_cast<unsigned char*>(pool->memRealloc(pool, mem, 100000, OX_POOL_ZERO_FILL));
    ASSERT_NE(grown, nullptr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(grown[i], i + 1);
    EXPECT_TRUE(allZero(grown + 16, 100000 - 16));
    EXPECT_EQ(pool->bytesInUse(pool), 100000u);
    auto* shrunk = static_cast<unsigned char*>(pool->memRealloc(pool, grown, 8, 0));
    ASSERT_NE(shrunk, nullptr);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(shrunk[i], i + 1);
    EXPECT_EQ(pool->bytesInUse(pool), 8u);
    EXPECT_EQ(pool->blocksInUse(pool), 1u);
    pool->memFree(pool, shrunk);
}

TEST_F(Pools, ReallocOfNullAllocates) {
    void* mem = pool->memRealloc(pool, nullptr, 32, OX_POOL_ZERO_FILL);
    ASSERT_NE(mem, nullptr);
    EXPECT_TRUE(allZero(mem, 32));
    pool->memFree(pool, mem);
}

TEST_F(Pools, FreeingNullIsHarmless) {
    pool->memFree(pool, nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(Pools, AbsurdSizesFail) {
    EXPECT_EQ(pool->memAlloc(pool, ~OXMemSize{0} - 8, 0), nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST(PoolLifetime, DestroyReleasesBlocksStillAllocated) {
    // Leak checkers (the sanitizer build) see anything this leaves behind.
    OXPoolCreateParms parms{};
    OX_POOL_S* pool = host()->poolCreate(host(), &parms, nullptr, "destroyed with live blocks");
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_NE(pool->memAlloc(pool, 64 + static_cast<OXMemSize>(i), 0), nullptr);
    void* grown = pool->memRealloc(pool, pool->memAlloc(pool, 10, 0), 5000, 0);
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 101u);
    EXPECT_EQ(pool->generic.destroy(pool), OX_OK);
}

TEST(PoolLifetime, PoolRecordIsNamed) {
    TestPool pool;
    EXPECT_STREQ(pool->generic.name, "test pool");
    EXPECT_EQ(pool->generic.oven, OX_OVEN('p', 'o', 'o', 'l'));
}

class InjectedFailures : public Pools {
protected:
    void TearDown() override { oxPoolFailAfter(pool, -1); }
};

TEST_F(InjectedFailures, FailAfterCountdownSuccesses) {
    oxPoolFailAfter(pool, 2);
    void* a = pool->memAlloc(pool, 8, 0);
    void* b = pool->memAlloc(pool, 8, 0);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(b, nullptr);
    EXPECT_EQ(pool->memAlloc(pool, 8, 0), nullptr);
    EXPECT_EQ(pool->memAlloc(pool, 8, 0), nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 2u);
    pool->memFree(pool, a);
    pool->memFree(pool, b);
}

TEST_F(InjectedFailures, MinusOneEndsTheFailures) {
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(pool->memAlloc(pool, 8, 0), nullptr);
    oxPoolFailAfter(pool, -1);
    void* mem = pool->memAlloc(pool, 8, 0);
    EXPECT_NE(mem, nullptr);
    pool->memFree(pool, mem);
}

TEST_F(InjectedFailures, FailedReallocKeepsTheOldBlock) {
    auto* mem = static_cast<char*>(pool->memAlloc(pool, 6, 0));
    ASSERT_NE(mem, nullptr);
    std::memcpy(mem, "keep!", 6);
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(pool->memRealloc(pool, mem, 1000, 0), nullptr);
    EXPECT_STREQ(mem, "keep!");
    EXPECT_EQ(pool->bytesInUse(pool), 6u);
    oxPoolFailAfter(pool, -1);
    pool->memFree(pool, mem);
}

TEST_F(InjectedFailures, CountdownIsSharedExactlyAcrossThreads) {
    constexpr int kAllowed = 500;
    oxPoolFailAfter(pool, kAllowed);
    std::vector<std::vector<void*>> got(4);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < got.size(); ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i)
                if (void* mem = pool->memAlloc(pool, 16, 0)) got[t].push_back(mem);
        });
    for (auto& th : threads) th.join();
    size_t total = 0;
    for (auto& list : got) {
        total += list.size();
        for (void* mem : list) pool->memFree(pool, mem);
    }
    EXPECT_EQ(total, static_cast<size_t>(kAllowed));
}

}  // namespace
