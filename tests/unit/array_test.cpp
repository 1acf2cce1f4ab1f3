// The array service: the array's own reference on each item, index checks, growth, and
// clean failure when the pool runs dry.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "ox/array.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

class ArrayService : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(arrays);
        ASSERT_TRUE(strings);
        ASSERT_EQ(arrays->create(arrays.get(), pool, 2, &a), OX_OK);
    }
    void TearDown() override {
        if (a) release(&a->instance);
        for (OXInstance* item : made) release(item);
    }

    // A string item the test holds one reference on until the end.
    OXInstance* item(std::string_view text) {
        OXU8String* s = nullptr;
        EXPECT_EQ(strings->createU8(strings.get(), pool, text.data(), text.size(), OX_STR_COPY, &s), OX_OK);
        made.push_back(&s->instance);
        return &s->instance;
    }
    static void release(OXInstance* inst) { inst->destroy(inst); }
    static std::string_view textAt(OXArray a, int64_t i) {
        auto* s = reinterpret_cast<OXU8String*>(a->items[i]);
        return {s->stg, s->len};
    }
    std::vector<std::string_view> contents() const {
        std::vector<std::string_view> out;
        for (int64_t i = 0; i < a->count; ++i) out.push_back(textAt(a, i));
        return out;
    }

    oxtest::Service<OXArrayExt_S> arrays{"oxarray"};
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    oxtest::TestPool pool;
    OXArray a = nullptr;
    std::vector<OXInstance*> made;
};

using Texts = std::vector<std::string_view>;

TEST_F(ArrayService, NewArrayIsAnEmptyArrayInstance) {
    EXPECT_EQ(a->count, 0);
    EXPECT_GE(a->capacity, 2);
    EXPECT_EQ(a->pool, pool.get());
    EXPECT_TRUE(a->instance.isType(a, OX_TYPE_ARRAY));
    EXPECT_FALSE(a->instance.isType(a, OX_TYPE_U8STRING));
}

TEST_F(ArrayService, AddingTakesTheArraysOwnReference) {
    OXInstance* x = item("x");
    ASSERT_EQ(a->addItem(a, x), OX_OK);
    EXPECT_EQ(x->refCount, 2);
    release(&a->instance);
    a = nullptr;
    EXPECT_EQ(x->refCount, 1);
}

TEST_F(ArrayService, GrowsPastItsInitialCapacityKeepingOrder) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i) texts.push_back(std::to_string(i));
    for (const auto& t : texts) ASSERT_EQ(a->addItem(a, item(t)), OX_OK);
    ASSERT_EQ(a->count, 100);
    EXPECT_GE(a->capacity, 100);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(textAt(a, i), texts[i]);
}

TEST_F(ArrayService, ArrayMadeWithoutRoomStillGrows) {
    OXArray empty = nullptr;
    ASSERT_EQ(arrays->create(arrays.get(), pool, 0, &empty), OX_OK);
    EXPECT_EQ(empty->items, nullptr);
    ASSERT_EQ(empty->addItem(empty, item("first")), OX_OK);
    EXPECT_EQ(empty->count, 1);
    release(&empty->instance);
}

TEST_F(ArrayService, InsertShiftsLaterItems) {
    ASSERT_EQ(a->addItem(a, item("b")), OX_OK);
    ASSERT_EQ(a->insertItem(a, 0, item("a")), OX_OK);
    ASSERT_EQ(a->insertItem(a, 2, item("d")), OX_OK);
    ASSERT_EQ(a->insertItem(a, 2, item("c")), OX_OK);
    EXPECT_EQ(contents(), (Texts{"a", "b", "c", "d"}));
}

TEST_F(ArrayService, RemoveClosesTheGapAndDropsTheReference) {
    OXInstance* middle = item("middle");
    ASSERT_EQ(a->addItem(a, item("first")), OX_OK);
    ASSERT_EQ(a->addItem(a, middle), OX_OK);
    ASSERT_EQ(a->addItem(a, item("last")), OX_OK);
    ASSERT_EQ(a->removeItem(a, 1), OX_OK);
    EXPECT_EQ(contents(), (Texts{"first", "last"}));
    EXPECT_EQ(middle->refCount, 1);
}

TEST_F(ArrayService, SetReplacesAndReleasesTheOldItem) {
    OXInstance* old = item("old");
    OXInstance* fresh = item("new");
    ASSERT_EQ(a->addItem(a, old), OX_OK);
    ASSERT_EQ(a->setItem(a, 0, fresh), OX_OK);
    EXPECT_EQ(old->refCount, 1);
    EXPECT_EQ(fresh->refCount, 2);
    EXPECT_EQ(contents(), Texts{"new"});
}

TEST_F(ArrayService, SettingAnItemOverItselfKeepsIt) {
    OXU8String* s = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, "self", 4, OX_STR_COPY, &s), OX_OK);
    ASSERT_EQ(a->addItem(a, &s->instance), OX_OK);
    release(&s->instance);
    ASSERT_EQ(a->setItem(a, 0, a->items[0]), OX_OK);
    EXPECT_EQ(a->items[0]->refCount, 1);
    EXPECT_EQ(contents(), Texts{"self"});
}

TEST_F(ArrayService, IndexesOutsideTheArrayAreRefused) {
    OXInstance* x = item("x");
    ASSERT_EQ(a->addItem(a, x), OX_OK);
    EXPECT_EQ(a->setItem(a, 1, x), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->setItem(a, -1, x), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->removeItem(a, 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->removeItem(a, -1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->insertItem(a, 2, x), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->insertItem(a, -1, x), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->count, 1);
    EXPECT_EQ(x->refCount, 2);
}

TEST_F(ArrayService, NullItemsAreRefused) {
    EXPECT_EQ(a->addItem(a, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->count, 0);
}

TEST_F(ArrayService, AddingSeveralTakesAReferenceOnEach) {
    OXInstance* batch[] = {item("1"), item("2"), item("3")};
    ASSERT_EQ(a->addItem(a, item("0")), OX_OK);
    ASSERT_EQ(a->addItems(a, batch, 3), OX_OK);
    EXPECT_EQ(contents(), (Texts{"0", "1", "2", "3"}));
    for (OXInstance* i : batch) EXPECT_EQ(i->refCount, 2);
}

TEST_F(ArrayService, AddingSeveralIsAllOrNothing) {
    OXInstance* withHole[] = {item("1"), nullptr, item("3")};
    EXPECT_EQ(a->addItems(a, withHole, 3), OX_INVALID_ARGUMENT);
    EXPECT_EQ(a->count, 0);
    EXPECT_EQ(withHole[0]->refCount, 1);

    std::vector<OXInstance*> many;
    for (int i = 0; i < 20; ++i) many.push_back(item(std::to_string(i)));
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(a->addItems(a, many.data(), int64_t(many.size())), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(a->count, 0);
    for (OXInstance* i : many) EXPECT_EQ(i->refCount, 1);
}

TEST_F(ArrayService, FailedGrowthTakesNoReference) {
    while (a->count < a->capacity) ASSERT_EQ(a->addItem(a, item("fill")), OX_OK);
    OXInstance* extra = item("extra");
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(a->addItem(a, extra), OX_NO_MEMORY);
    EXPECT_EQ(a->insertItem(a, 0, extra), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(extra->refCount, 1);
    EXPECT_EQ(a->count, a->capacity);
}

TEST_F(ArrayService, DestroyingTheArrayReleasesItsItems) {
    OXU8String* s = nullptr;
    ASSERT_EQ(strings->createU8(strings.get(), pool, "only the array holds me", 23, OX_STR_COPY, &s), OX_OK);
    ASSERT_EQ(a->addItem(a, &s->instance), OX_OK);
    release(&s->instance);
    release(&a->instance);
    a = nullptr;
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(ArrayService, ASharedArraySurvivesUntilItsLastReference) {
    ASSERT_EQ(a->addItem(a, item("x")), OX_OK);
    oxAtomicAdd(&a->instance.refCount, 1);
    release(&a->instance);
    EXPECT_EQ(a->count, 1);
    EXPECT_EQ(textAt(a, 0), "x");
}

TEST_F(ArrayService, FailedCreationLeavesNothingBehind) {
    for (int64_t countdown : {0, 1}) {
        OXArray out = reinterpret_cast<OXArray>(0x1);
        oxPoolFailAfter(pool, countdown);
        EXPECT_EQ(arrays->create(arrays.get(), pool, 4, &out), OX_NO_MEMORY);
        oxPoolFailAfter(pool, -1);
        EXPECT_EQ(out, reinterpret_cast<OXArray>(0x1));
    }
    release(&a->instance);
    a = nullptr;
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(ArrayService, BadCreateArgumentsAreRefused) {
    OXArray out = nullptr;
    EXPECT_EQ(arrays->create(arrays.get(), nullptr, 1, &out), OX_INVALID_ARGUMENT);
    EXPECT_EQ(arrays->create(arrays.get(), pool, -1, &out), OX_INVALID_ARGUMENT);
    EXPECT_EQ(arrays->create(arrays.get(), pool, 1, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(out, nullptr);
}

}  // namespace
