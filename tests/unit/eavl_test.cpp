#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include "ox/eavl.h"
#include "testhost.h"

namespace {

// Keys and values are small integers carried in the pointers themselves.
const void* key(intptr_t k) { return reinterpret_cast<const void*>(k); }
void* val(intptr_t v) { return reinterpret_cast<void*>(v); }
intptr_t num(const void* p) { return reinterpret_cast<intptr_t>(p); }

int ascending(void*, const void* a, const void* b) { return num(a) < num(b) ? -1 : num(a) > num(b); }

// The context says which way to order.
int ordered(void* ctx, const void* a, const void* b) { return *static_cast<int*>(ctx) * ascending(nullptr, a, b); }

// The most an AVL tree of n nodes can be high.
int64_t avlBound(size_t n) { return static_cast<int64_t>(1.4405 * std::log2(static_cast<double>(n) + 2) - 0.3277); }

class EavlTree : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(svc);
        ASSERT_EQ(svc->create(svc.get(), pool, ascending, nullptr, &tree), OX_OK);
    }
    void TearDown() override {
        if (tree) tree->generic.destroy(tree);
    }

    OXStatus put(intptr_t k, intptr_t v, bool replace = false, OXEAVLNode* old = nullptr) {
        return tree->insert(tree, key(k), val(v), replace ? OX_TRUE : OX_FALSE, old);
    }
    intptr_t valueAt(intptr_t k) {
        OXEAVLNode* n = nullptr;
        return tree->find(tree, key(k), &n) == OX_OK ? num(n->value) : -1;
    }
    std::vector<intptr_t> forward() {
        std::vector<intptr_t> keys;
        for (OXEAVLNode* n = tree->first(tree); n; n = tree->next(tree, n)) keys.push_back(num(n->key));
        return keys;
    }
    std::vector<intptr_t> backward() {
        std::vector<intptr_t> keys;
        for (OXEAVLNode* n = tree->last(tree); n; n = tree->prev(tree, n)) keys.push_back(num(n->key));
        return keys;
    }

    oxtest::TestPool pool;
    oxtest::Service<OXEAVLExt_S> svc{"oxeavl"};
    OXEAVL tree = nullptr;
};

TEST_F(EavlTree, RandomInsertsAndRemovesKeepOrderAndBalance) {
    std::mt19937 rng(20240607);
    std::uniform_int_distribution<intptr_t> pick(1, 1500);
    std::set<intptr_t> model;
    for (int step = 0; step < 6000; ++step) {
        intptr_t k = pick(rng);
        if (rng() % 3 != 0) {
            OXStatus st = put(k, k * 10);
            EXPECT_EQ(st, model.count(k) ? OX_INVALID_ARGUMENT : OX_OK);
            model.insert(k);
        } else {
            EXPECT_EQ(tree->remove(tree, key(k), nullptr), model.erase(k) ? OX_OK : OX_NOT_FOUND);
        }
        int64_t height = oxEavlCheckedHeight(tree);
        ASSERT_GE(height, 0) << "tree out of shape after step " << step;
        ASSERT_LE(height, avlBound(model.size()));
        ASSERT_EQ(tree->count, static_cast<int64_t>(model.size()));
    }
    EXPECT_EQ(forward(), std::vector<intptr_t>(model.begin(), model.end()));
    EXPECT_EQ(backward(), std::vector<intptr_t>(model.rbegin(), model.rend()));
}

TEST_F(EavlTree, SortedInsertionStaysLogarithmic) {
    for (intptr_t k = 1; k <= 4096; ++k) ASSERT_EQ(put(k, k), OX_OK);
    EXPECT_EQ(oxEavlCheckedHeight(tree), 13);
    for (intptr_t k = 1; k <= 4000; ++k) ASSERT_EQ(tree->remove(tree, key(k), nullptr), OX_OK);
    int64_t height = oxEavlCheckedHeight(tree);
    EXPECT_GE(height, 0);
    EXPECT_LE(height, avlBound(96));
}

TEST_F(EavlTree, DuplicateIsRefusedWithoutReplace) {
    ASSERT_EQ(put(7, 70), OX_OK);
    OXEAVLNode old{key(1), val(1)};
    EXPECT_EQ(put(7, 71, false, &old), OX_INVALID_ARGUMENT);
    EXPECT_EQ(valueAt(7), 70);
    EXPECT_EQ(tree->count, 1);
    EXPECT_EQ(num(old.key), 1) << "a refused insert must not write its output";
}

TEST_F(EavlTree, ReplaceHandsBackThePreviousPair) {
    ASSERT_EQ(put(7, 70), OX_OK);
    OXEAVLNode old{};
    ASSERT_EQ(put(7, 71, true, &old), OX_OK);
    EXPECT_EQ(num(old.key), 7);
    EXPECT_EQ(num(old.value), 70);
    EXPECT_EQ(valueAt(7), 71);
    EXPECT_EQ(tree->count, 1);
}

TEST_F(EavlTree, NewKeyReportsNoPreviousPair) {
    OXEAVLNode old{key(1), val(1)};
    ASSERT_EQ(put(3, 30, true, &old), OX_OK);
    EXPECT_EQ(old.key, nullptr);
    EXPECT_EQ(old.value, nullptr);
}

TEST_F(EavlTree, MissingKeysAreNotFound) {
    ASSERT_EQ(put(2, 20), OX_OK);
    OXEAVLNode* n = nullptr;
    EXPECT_EQ(tree->find(tree, key(3), &n), OX_NOT_FOUND);
    EXPECT_EQ(n, nullptr);
    EXPECT_EQ(tree->remove(tree, key(3), nullptr), OX_NOT_FOUND);
    EXPECT_EQ(tree->count, 1);
}

TEST_F(EavlTree, RemoveHandsBackTheRemovedPair) {
    ASSERT_EQ(put(5, 50), OX_OK);
    OXEAVLNode removed{};
    ASSERT_EQ(tree->remove(tree, key(5), &removed), OX_OK);
    EXPECT_EQ(num(removed.key), 5);
    EXPECT_EQ(num(removed.value), 50);
    EXPECT_EQ(tree->count, 0);
    EXPECT_EQ(tree->first(tree), nullptr);
}

TEST_F(EavlTree, EmptyTreeHasNoEnds) {
    EXPECT_EQ(tree->first(tree), nullptr);
    EXPECT_EQ(tree->last(tree), nullptr);
    EXPECT_EQ(oxEavlCheckedHeight(tree), 0);
}

TEST_F(EavlTree, TraversalStopsAtBothEnds) {
    for (intptr_t k : {40, 10, 30, 20, 50}) ASSERT_EQ(put(k, k), OX_OK);
    EXPECT_EQ(forward(), (std::vector<intptr_t>{10, 20, 30, 40, 50}));
    EXPECT_EQ(backward(), (std::vector<intptr_t>{50, 40, 30, 20, 10}));
    EXPECT_EQ(tree->next(tree, tree->last(tree)), nullptr);
    EXPECT_EQ(tree->prev(tree, tree->first(tree)), nullptr);
}

TEST_F(EavlTree, RemovingAnEntryLeavesOtherNodesInPlace) {
    std::vector<OXEAVLNode*> nodes;
    for (intptr_t k = 1; k <= 63; ++k) ASSERT_EQ(put(k, k * 2), OX_OK);
    for (intptr_t k = 1; k <= 63; ++k) {
        OXEAVLNode* n = nullptr;
        ASSERT_EQ(tree->find(tree, key(k), &n), OX_OK);
        nodes.push_back(n);
    }
    // 32 is the root of a full tree: both its children are there, so a successor moves up.
    for (intptr_t k : {32, 16, 48, 8}) ASSERT_EQ(tree->remove(tree, key(k), nullptr), OX_OK);
    for (intptr_t k = 1; k <= 63; ++k) {
        if (k == 32 || k == 16 || k == 48 || k == 8) continue;
        EXPECT_EQ(num(nodes[k - 1]->key), k);
        EXPECT_EQ(num(nodes[k - 1]->value), k * 2);
    }
    EXPECT_EQ(num(tree->next(tree, nodes[30])->key), 33);
    EXPECT_GE(oxEavlCheckedHeight(tree), 0);
}

TEST_F(EavlTree, ValueChangedInPlaceIsFoundLater) {
    ASSERT_EQ(put(9, 90), OX_OK);
    OXEAVLNode* n = nullptr;
    ASSERT_EQ(tree->find(tree, key(9), &n), OX_OK);
    n->value = val(91);
    EXPECT_EQ(valueAt(9), 91);
}

TEST_F(EavlTree, FailedNodeAllocationLeavesTreeUnchanged) {
    ASSERT_EQ(put(1, 10), OX_OK);
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(put(2, 20), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(tree->count, 1);
    EXPECT_EQ(valueAt(2), -1);
    EXPECT_EQ(forward(), std::vector<intptr_t>{1});
}

class EavlComparator : public ::testing::Test {
protected:
    oxtest::TestPool pool;
    oxtest::Service<OXEAVLExt_S> svc{"oxeavl"};
};

TEST_F(EavlComparator, ContextReachesTheComparator) {
    int descending = -1;
    OXEAVL t = nullptr;
    ASSERT_EQ(svc->create(svc.get(), pool, ordered, &descending, &t), OX_OK);
    for (intptr_t k : {2, 3, 1}) ASSERT_EQ(t->insert(t, key(k), nullptr, OX_FALSE, nullptr), OX_OK);
    EXPECT_EQ(num(t->first(t)->key), 3);
    EXPECT_EQ(num(t->last(t)->key), 1);
    EXPECT_GE(oxEavlCheckedHeight(t), 0);
    t->generic.destroy(t);
}

TEST_F(EavlComparator, CreateNeedsAComparator) {
    OXEAVL t = nullptr;
    EXPECT_EQ(svc->create(svc.get(), pool, nullptr, nullptr, &t), OX_INVALID_ARGUMENT);
    EXPECT_EQ(t, nullptr);
}

TEST_F(EavlComparator, CreateFailsCleanlyWithoutMemory) {
    OXEAVL t = nullptr;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(svc->create(svc.get(), pool, ascending, nullptr, &t), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(t, nullptr);
}

}  // namespace
