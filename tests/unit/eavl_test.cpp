// The balanced tree: order and balance against a model, pairs handed back, nodes that stay put.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include "ox/eavl.h"
#include "testhost.h"

namespace {

using Keys = std::vector<intptr_t>;

// Keys and values are small integers carried in the pointers themselves.
const void* key(intptr_t k) { return reinterpret_cast<const void*>(k); }
void* val(intptr_t v) { return reinterpret_cast<void*>(v); }
intptr_t num(const void* p) { return reinterpret_cast<intptr_t>(p); }

// The context, when given, says which way to order.
int ordered(void* ctx, const void* a, const void* b) {
    int sign = ctx ? *static_cast<int*>(ctx) : 1;
    return sign * (num(a) < num(b) ? -1 : num(a) > num(b));
}

// The most an AVL tree of n nodes can be high.
int64_t avlBound(size_t n) { return static_cast<int64_t>(1.4405 * std::log2(static_cast<double>(n) + 2) - 0.3277); }

class EavlTree : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(svc);
        ASSERT_EQ(svc->create(svc.get(), pool, ordered, nullptr, &tree), OX_OK);
    }
    void TearDown() override {
        oxPoolFailAfter(pool, -1);
        if (tree) tree->generic.destroy(tree);
    }
    OXStatus put(intptr_t k, intptr_t v, bool replace = false, OXEAVLNode* old = nullptr) {
        return tree->insert(tree, key(k), val(v), replace ? OX_TRUE : OX_FALSE, old);
    }
    intptr_t valueAt(intptr_t k) {
        OXEAVLNode* n = nullptr;
        return tree->find(tree, key(k), &n) == OX_OK ? num(n->value) : -1;
    }
    static Keys walk(OXEAVL t, bool forward = true) {
        Keys keys;
        for (OXEAVLNode* n = forward ? t->first(t) : t->last(t); n; n = forward ? t->next(t, n) : t->prev(t, n))
            keys.push_back(num(n->key));
        return keys;
    }

    oxtest::TestPool pool;
    oxtest::Service<OXEAVLExt_S> svc{"oxeavl"};
    OXEAVL tree = nullptr;
};

TEST_F(EavlTree, SortedAndRandomChangesKeepOrderAndBalance) {
    EXPECT_TRUE(tree->first(tree) == nullptr && tree->last(tree) == nullptr);
    EXPECT_EQ(oxEavlCheckedHeight(tree), 0);
    for (intptr_t k = 1; k <= 4096; ++k) ASSERT_EQ(put(k, k * 10), OX_OK);
    EXPECT_EQ(oxEavlCheckedHeight(tree), 13);
    for (intptr_t k = 1; k <= 4000; ++k) ASSERT_EQ(tree->remove(tree, key(k), nullptr), OX_OK);
    std::set<intptr_t> model;
    for (intptr_t k = 4001; k <= 4096; ++k) model.insert(k);
    std::mt19937 rng(20240607);
    std::uniform_int_distribution<intptr_t> pick(1, 1500);
    for (int step = 0; step < 6000; ++step) {
        intptr_t k = pick(rng);
        if (rng() % 3 != 0) {
            EXPECT_EQ(put(k, k * 10), model.count(k) ? OX_INVALID_ARGUMENT : OX_OK);
            model.insert(k);
        } else {
            EXPECT_EQ(tree->remove(tree, key(k), nullptr), model.erase(k) ? OX_OK : OX_NOT_FOUND);
        }
        int64_t height = oxEavlCheckedHeight(tree);
        ASSERT_GE(height, 0) << "tree out of shape after step " << step;
        ASSERT_LE(height, avlBound(model.size()));
        ASSERT_EQ(tree->count, static_cast<int64_t>(model.size()));
    }
    EXPECT_EQ(walk(tree), Keys(model.begin(), model.end()));
    EXPECT_EQ(walk(tree, false), Keys(model.rbegin(), model.rend()));
    for (intptr_t k : model) ASSERT_EQ(valueAt(k), k * 10);
}

TEST_F(EavlTree, InsertAndRemoveHandBackThePreviousPair) {
    OXEAVLNode old{key(1), val(1)};
    ASSERT_EQ(put(7, 70, true, &old), OX_OK);
    EXPECT_TRUE(old.key == nullptr && old.value == nullptr) << "a new key has no previous pair";
    old = {key(1), val(1)};
    EXPECT_EQ(put(7, 71, false, &old), OX_INVALID_ARGUMENT);
    EXPECT_EQ(num(old.key), 1) << "a refused insert must not write its output";
    ASSERT_EQ(put(7, 72, true, &old), OX_OK);
    EXPECT_TRUE(num(old.key) == 7 && num(old.value) == 70);
    EXPECT_EQ(valueAt(7), 72);
    EXPECT_EQ(tree->count, 1);
    OXEAVLNode* n = nullptr;
    EXPECT_EQ(tree->find(tree, key(3), &n), OX_NOT_FOUND);
    EXPECT_EQ(n, nullptr);
    EXPECT_EQ(tree->remove(tree, key(3), &old), OX_NOT_FOUND);
    ASSERT_EQ(tree->remove(tree, key(7), &old), OX_OK);
    EXPECT_TRUE(num(old.key) == 7 && num(old.value) == 72);
    EXPECT_EQ(tree->first(tree), nullptr);
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
    const std::set<intptr_t> gone = {32, 16, 48, 8};
    for (intptr_t k : gone) ASSERT_EQ(tree->remove(tree, key(k), nullptr), OX_OK);
    for (intptr_t k = 1; k <= 63; ++k)
        EXPECT_TRUE(gone.count(k) || (num(nodes[k - 1]->key) == k && num(nodes[k - 1]->value) == k * 2)) << k;
    EXPECT_EQ(num(tree->next(tree, nodes[30])->key), 33);
    EXPECT_EQ(tree->next(tree, tree->last(tree)), nullptr);
    EXPECT_EQ(tree->prev(tree, tree->first(tree)), nullptr);
    EXPECT_GE(oxEavlCheckedHeight(tree), 0);
}

TEST_F(EavlTree, ContextReachesTheComparatorAndFailuresChangeNothing) {
    int descending = -1;
    OXEAVL t = nullptr;
    ASSERT_EQ(svc->create(svc.get(), pool, ordered, &descending, &t), OX_OK);
    for (intptr_t k : {2, 3, 1}) ASSERT_EQ(t->insert(t, key(k), nullptr, OX_FALSE, nullptr), OX_OK);
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(t->insert(t, key(4), nullptr, OX_FALSE, nullptr), OX_NO_MEMORY);
    EXPECT_EQ(walk(t), (Keys{3, 2, 1}));
    t->generic.destroy(t);
    t = nullptr;
    EXPECT_EQ(svc->create(svc.get(), pool, ordered, nullptr, &t), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(svc->create(svc.get(), pool, nullptr, nullptr, &t), OX_INVALID_ARGUMENT);
    EXPECT_EQ(t, nullptr);
}

}  // namespace
