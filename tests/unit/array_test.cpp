// The array service: its own reference on each item, index checks, growth, clean failure.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "ox/array.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

using Texts = std::vector<std::string_view>;

class ArrayService : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(arrays && strings);
        ASSERT_EQ(arrays->create(arrays.get(), pool, 2, &a), OX_OK);
    }
    void TearDown() override {
        oxPoolFailAfter(pool, -1);
        if (a) release(&a->instance);
        for (OXInstance* item : made) release(item);
    }
    // A string item the test holds one reference on until the end.
    OXInstance* item(std::string_view text) {
        OXU8String* s = nullptr;
        EXPECT_EQ(strings->createU8(strings.get(), pool, text.data(), text.size(), OX_STR_COPY, &s), OX_OK);
        return made.emplace_back(&s->instance);
    }
    static void release(OXInstance* inst) { inst->destroy(inst); }
    Texts contents() const {
        Texts out;
        for (int64_t i = 0; i < a->count; ++i) out.emplace_back(reinterpret_cast<OXU8String*>(a->items[i])->stg);
        return out;
    }

    oxtest::Service<OXArrayExt_S> arrays{"oxarray"};
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    oxtest::TestPool pool;
    OXArray a = nullptr;
    std::vector<OXInstance*> made;
};

TEST_F(ArrayService, EditsKeepOrderAndTheArraysOwnReferences) {
    OXInstance *b = item("b"), *old = item("old");
    ASSERT_EQ(a->addItem(a, b), OX_OK);
    EXPECT_EQ(b->refCount, 2);
    ASSERT_EQ(a->insertItem(a, 0, item("a")), OX_OK);
    ASSERT_EQ(a->insertItem(a, 2, old), OX_OK);
    OXU8String* c = nullptr;  // only the array holds it
    ASSERT_EQ(strings->createU8(strings.get(), pool, "c", 1, OX_STR_COPY, &c), OX_OK);
    ASSERT_EQ(a->insertItem(a, 2, &c->instance), OX_OK);
    release(&c->instance);
    EXPECT_EQ(contents(), (Texts{"a", "b", "c", "old"}));
    ASSERT_EQ(a->setItem(a, 3, item("d")), OX_OK);
    EXPECT_EQ(old->refCount, 1);
    ASSERT_EQ(a->setItem(a, 2, a->items[2]), OX_OK);  // set over itself keeps it
    EXPECT_EQ(a->items[2]->refCount, 1);
    ASSERT_EQ(a->removeItem(a, 1), OX_OK);
    EXPECT_EQ(b->refCount, 1);
    EXPECT_EQ(contents(), (Texts{"a", "c", "d"}));
    OXInstance* batch[] = {item("e"), item("f")};
    ASSERT_EQ(a->addItems(a, batch, 2), OX_OK);
    EXPECT_EQ(contents(), (Texts{"a", "c", "d", "e", "f"}));
    for (OXInstance* i : batch) EXPECT_EQ(i->refCount, 2);
}

TEST_F(ArrayService, GrowsFromNoRoomKeepingOrder) {
    release(&a->instance);
    ASSERT_EQ(arrays->create(arrays.get(), pool, 0, &a), OX_OK);
    Texts expected;
    for (int i = 0; i < 100; ++i) {
        OXInstance* x = item(std::to_string(i));
        ASSERT_EQ(a->addItem(a, x), OX_OK);
        expected.emplace_back(reinterpret_cast<OXU8String*>(x)->stg);
    }
    EXPECT_EQ(contents(), expected);
}

TEST_F(ArrayService, LastReferenceToTheArrayReleasesItsItems) {
    OXU8String* s = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, "only the array holds me", 23, OX_STR_COPY, &s), OX_OK);
    ASSERT_EQ(a->addItem(a, &s->instance), OX_OK);
    release(&s->instance);
    oxAtomicAdd(&a->instance.refCount, 1);
    release(&a->instance);
    EXPECT_EQ(contents(), Texts{"only the array holds me"}) << "a shared array lives until its last reference";
    release(&a->instance);
    a = nullptr;
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(ArrayService, BadArgumentsChangeNothing) {
    OXInstance* x = item("x");
    ASSERT_EQ(a->addItem(a, x), OX_OK);
    for (int64_t bad : {-1, 1}) {  // one item: 0 is the only index, and 1 the only other place to insert
        EXPECT_EQ(a->setItem(a, bad, x), OX_INVALID_ARGUMENT);
        EXPECT_EQ(a->removeItem(a, bad), OX_INVALID_ARGUMENT);
        EXPECT_EQ(a->insertItem(a, bad < 0 ? bad : bad + 1, x), OX_INVALID_ARGUMENT);
    }
    EXPECT_EQ(a->addItem(a, nullptr), OX_INVALID_ARGUMENT);
    OXInstance* withHole[] = {item("1"), nullptr, item("3")};
    EXPECT_EQ(a->addItems(a, withHole, 3), OX_INVALID_ARGUMENT);
    EXPECT_EQ(withHole[0]->refCount, 1);
    EXPECT_EQ(a->count, 1);
    EXPECT_EQ(x->refCount, 2);
    OXArray out = nullptr;
    EXPECT_EQ(arrays->create(arrays.get(), pool, -1, &out), OX_INVALID_ARGUMENT);
    EXPECT_EQ(out, nullptr);
}

TEST_F(ArrayService, FailedAllocationsTakeNoReferenceAndLeaveNothing) {
    while (a->count < a->capacity) ASSERT_EQ(a->addItem(a, item("fill")), OX_OK);
    const int64_t full = a->count;
    std::vector<OXInstance*> many;
    for (int i = 0; i < 20; ++i) many.push_back(item(std::to_string(i)));
    const size_t blocks = pool->blocksInUse(pool);
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(a->addItem(a, many[0]), OX_NO_MEMORY);
    EXPECT_EQ(a->insertItem(a, 0, many[0]), OX_NO_MEMORY);
    EXPECT_EQ(a->addItems(a, many.data(), int64_t(many.size())), OX_NO_MEMORY);
    for (int64_t countdown : {0, 1}) {
        OXArray out = reinterpret_cast<OXArray>(0x1);
        oxPoolFailAfter(pool, countdown);
        EXPECT_EQ(arrays->create(arrays.get(), pool, 4, &out), OX_NO_MEMORY);
        EXPECT_EQ(out, reinterpret_cast<OXArray>(0x1));
    }
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(a->count, full);
    for (OXInstance* i : many) EXPECT_EQ(i->refCount, 1);
    EXPECT_EQ(pool->blocksInUse(pool), blocks);
}

}  // namespace
