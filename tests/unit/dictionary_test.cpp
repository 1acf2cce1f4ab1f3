// Dictionaries: name order with and without case, the dictionary's own reference on each value,
// every way of naming an entry, cloning, and clean failure when the pool runs dry.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ox/dictionary.h"
#include "ox/instance.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::wide;
using Names = std::vector<std::string>;

std::string_view text(const OXU8String* s) { return {s->stg, static_cast<size_t>(s->len)}; }
std::string_view text(const OXInstance* v) { return text(reinterpret_cast<const OXU8String*>(v)); }

class Dictionary : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dicts && strings && (dict = make(0))); }
    void TearDown() override {
        oxPoolFailAfter(pool, -1);
        if (dict) release(&dict->instance);
        for (OXU8String* s : made) release(&s->instance);
    }
    OXDictionary make(uint32_t flags) {
        OXDictionary d = nullptr;
        EXPECT_EQ(dicts->create(dicts.get(), pool, flags, &d), OX_OK);
        return d;
    }
    OXU8String* str(std::string_view s) {  // released when the test ends
        OXU8String* out = nullptr;
        EXPECT_EQ(strings->createU8(strings.get(), pool, s.data(), s.size(), OX_STR_COPY, &out), OX_OK);
        return made.emplace_back(out);
    }
    OXInstance* inst(std::string_view s) { return &str(s)->instance; }
    static void release(OXInstance* i) { i->destroy(i); }
    static OXStatus set(OXDictionary d, std::string_view name, OXInstance* v) {
        return d->setValueU8(d, name.data(), name.size(), v);
    }
    static OXInstance* get(OXDictionary d, std::string_view name) {
        OXInstance* v = nullptr;
        return d->getValueU8(d, name.data(), name.size(), &v) == OX_OK ? v : nullptr;
    }
    static Names names(OXDictionary d) {
        Names out;
        void* cursor = nullptr;
        for (OXU8String* n = nullptr; d->nextValue(d, &cursor, &n, nullptr) == OX_OK;) out.emplace_back(text(n));
        return out;
    }

    oxtest::TestPool pool;
    oxtest::Service<OXDictionaryExt_S> dicts{"oxdictionary"};
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    OXDictionary dict = nullptr;
    std::vector<OXU8String*> made;
};

TEST_F(Dictionary, NamesAscendByBytesOrAfterFoldingCaseKeepingTheFirstSpelling) {
    OXDictionary exact = make(OX_DICT_CASE_SENSITIVE);
    for (const char* n : {"b", "B", "a", "A", "ab"}) ASSERT_EQ(set(exact, n, inst(n)), OX_OK);
    EXPECT_EQ(names(exact), (Names{"A", "B", "a", "ab", "b"}));
    EXPECT_EQ(get(exact, "AB"), nullptr);
    release(&exact->instance);
    OXInstance* first = inst("text/plain");
    for (const char* n : {"b", "A", "C", "ab", "\xC3\x84rger"}) ASSERT_EQ(set(dict, n, inst(n)), OX_OK);
    ASSERT_EQ(set(dict, "Content-Type", first), OX_OK);
    ASSERT_EQ(set(dict, "content-TYPE", inst("text/html")), OX_OK);
    EXPECT_EQ(names(dict), (Names{"A", "ab", "b", "C", "Content-Type", "\xC3\x84rger"}));
    EXPECT_EQ(text(get(dict, "CONTENT-TYPE")), "text/html");
    EXPECT_EQ(first->refCount, 1);
    EXPECT_NE(get(dict, "\xC3\xA4rger"), nullptr);  // "ärger" finds "Ärger"
}

TEST_F(Dictionary, WalksAndNameListsGoInOrder) {
    OXArray up = nullptr, down = nullptr;
    ASSERT_EQ(dict->getNames(dict, &up), OX_OK);
    EXPECT_EQ(up->count, 0);
    release(&up->instance);
    OXInstance *m = inst("m"), *z = inst("z");
    for (auto [n, v] : {std::pair{"z", z}, {"m", m}, {"a", inst("a")}}) ASSERT_EQ(set(dict, n, v), OX_OK);
    void* cursor = nullptr;
    OXU8String* name = nullptr;
    OXInstance* value = nullptr;
    ASSERT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_OK);
    ASSERT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_OK);
    EXPECT_EQ(value, m);
    while (dict->nextValue(dict, &cursor, &name, &value) == OX_OK) {
    }
    EXPECT_EQ(value, z) << "outputs are written only on success";
    EXPECT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_END_OF_DATA);

    ASSERT_EQ(dict->getNames(dict, &up), OX_OK);
    ASSERT_EQ(dict->sortedNames(dict, OX_TRUE, &down), OX_OK);
    ASSERT_TRUE(up->count == 3 && down->count == 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(up->items[i], down->items[2 - i]);
    EXPECT_EQ(text(up->items[0]), "a");
    release(&up->instance);
    release(&down->instance);
    EXPECT_EQ(names(dict), (Names{"a", "m", "z"})) << "the lists held their own references";
    OXU8String** list = nullptr;  // borrowed names, in a block of the caller's pool
    int64_t count = 0;
    ASSERT_EQ(dict->getNameArray(dict, pool, &list, &count), OX_OK);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(text(list[2]), "z");
    pool->memFree(pool, list);
}

TEST_F(Dictionary, EntriesHoldTheirOwnReferenceOnTheirValues) {
    OXInstance *old = inst("old"), *fresh = inst("new");
    ASSERT_EQ(set(dict, "k", old), OX_OK);
    EXPECT_EQ(old->refCount, 2);
    ASSERT_EQ(set(dict, "k", fresh), OX_OK);
    ASSERT_EQ(set(dict, "k", fresh), OX_OK);
    EXPECT_EQ(old->refCount, 1);
    EXPECT_EQ(fresh->refCount, 2);
    EXPECT_EQ(dict->addPairU8(dict, "K", 1, old), OX_INVALID_ARGUMENT) << "add refuses an existing name";
    EXPECT_EQ(dict->addPairOX(dict, str("k"), old), OX_INVALID_ARGUMENT);
    EXPECT_EQ(get(dict, "k"), fresh);
    EXPECT_EQ(old->refCount, 1);
    ASSERT_EQ(dict->removeKeyU8(dict, "k", 1), OX_OK);
    EXPECT_EQ(fresh->refCount, 1);
    OXInstance* out = old;
    EXPECT_EQ(dict->getValueU8(dict, "k", 1, &out), OX_NOT_FOUND);
    EXPECT_EQ(out, old);

    ASSERT_EQ(set(dict, "k", old), OX_OK);
    oxAtomicAdd(&dict->instance.refCount, 1);
    release(&dict->instance);
    EXPECT_EQ(get(dict, "k"), old) << "an extra reference keeps the dictionary alive";
    release(&dict->instance);
    dict = nullptr;
    EXPECT_EQ(old->refCount, 1);
}

TEST_F(Dictionary, ValueLookupsAndRemovalGoByInstance) {
    OXInstance *shared = inst("v"), *other = inst("other");
    for (const char* n : {"zeta", "c", "alpha"}) ASSERT_EQ(set(dict, n, shared), OX_OK);
    for (const char* n : {"b", "d"}) ASSERT_EQ(set(dict, n, other), OX_OK);
    OXU8String* name = nullptr;
    ASSERT_EQ(dict->nameForValue(dict, shared, &name), OX_OK);
    EXPECT_EQ(text(name), "alpha");
    EXPECT_TRUE(dict->hasValue(dict, shared));
    OXInstance* stranger = inst("v");  // equal text, another instance
    EXPECT_FALSE(dict->hasValue(dict, stranger));
    EXPECT_EQ(dict->nameForValue(dict, stranger, &name), OX_NOT_FOUND);
    ASSERT_EQ(dict->removeValue(dict, shared), OX_OK);
    EXPECT_EQ(names(dict), (Names{"b", "d"}));
    EXPECT_EQ(shared->refCount, 1);
    EXPECT_EQ(other->refCount, 3);
    EXPECT_EQ(dict->removeValue(dict, shared), OX_NOT_FOUND);
}

TEST_F(Dictionary, BadArgumentsChangeNothingButLongAndEmptyNamesWork) {
    const OXChar surrogate[] = {0xD800};
    EXPECT_EQ(set(dict, "k", nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(dict->setValueU8(dict, nullptr, 3, inst("v")), OX_INVALID_ARGUMENT);
    EXPECT_EQ(dict->setValue(dict, surrogate, 1, inst("v")), OX_BAD_CODE_POINT);
    EXPECT_EQ(dict->setValue(dict, surrogate, -1, inst("v")), OX_INVALID_ARGUMENT);
    EXPECT_EQ(dict->count, 0);
    OXDictionary d = nullptr;
    EXPECT_EQ(dicts->create(dicts.get(), pool, 0x80, &d), OX_INVALID_ARGUMENT);
    EXPECT_EQ(d, nullptr);
    ASSERT_EQ(dict->setValueU8(dict, nullptr, 0, inst("v")), OX_OK);
    EXPECT_TRUE(dict->hasKeyU8(dict, "", 0));
    std::u32string w = wide(std::string(1000, 'n')) + U'\u20AC';
    ASSERT_EQ(dict->setValue(dict, chars(w), static_cast<OXStrSize>(w.size()), inst("value")), OX_OK);
    EXPECT_NE(get(dict, std::string(1000, 'n') + "\xE2\x82\xAC"), nullptr);
}

TEST_F(Dictionary, CloneSharesValuesButNotEntriesAndKeepsTheCaseRule) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "a", v), OX_OK);
    ASSERT_EQ(set(dict, "b", v), OX_OK);
    oxtest::TestPool other;
    OXDictionary copy = nullptr;
    ASSERT_EQ(dict->clone(dict, other, &copy), OX_OK);
    EXPECT_EQ(v->refCount, 5);
    ASSERT_EQ(copy->removeKeyU8(copy, "A", 1), OX_OK);
    EXPECT_EQ(get(dict, "a"), v);
    release(&dict->instance);
    dict = make(OX_DICT_CASE_SENSITIVE);
    EXPECT_EQ(names(copy), Names{"b"}) << "the clone's names live in its own pool";
    release(&copy->instance);
    EXPECT_EQ(v->refCount, 1);
    ASSERT_EQ(set(dict, "K", v), OX_OK);
    ASSERT_EQ(dict->clone(dict, pool, &copy), OX_OK);
    EXPECT_EQ(get(copy, "k"), nullptr);
    release(&copy->instance);
}

// UTF-8 bytes, wide text and string records all name the same entry.
TEST_F(Dictionary, EverySetterAndRemoverReachesTheSameEntry) {
    const std::u32string w = wide("Region"), lower = wide("region");
    const OXChar* wn = chars(w);
    const auto wl = static_cast<OXStrSize>(w.size());
    char buf[] = "value";  // bytes and static strings given as values must be copied
    OXU8String fixed{};
    strings->initStaticU8(strings.get(), &fixed, buf, 5);
    using D = OXDictionary;
    using V = OXInstance*;
    using N = OXU8String*;
    const std::pair<bool, std::function<OXStatus(D, V, N)>> setters[] = {  // first: the entry holds the instance
        {true, [&](D d, V v, N) { return d->setValue(d, wn, wl, v); }},
        {true, [&](D d, V v, N) { return d->setValueU8(d, "Region", 6, v); }},
        {true, [&](D d, V v, N n) { return d->setValueOX(d, n, v); }},
        {true, [&](D d, V v, N) { return d->addPairU8(d, "Region", 6, v); }},
        {true, [&](D d, V v, N n) { return d->addPairOX(d, n, v); }},
        {false, [&](D d, V, N) { return d->setU8Value(d, wn, wl, buf, 5); }},
        {false, [&](D d, V, N) { return d->setU8ValueU8(d, "Region", 6, buf, 5); }},
        {false, [&](D d, V, N n) { return d->setU8ValueOX(d, n, buf, 5); }},
        {false, [&](D d, V, N) { return d->setOXValueU8(d, "Region", 6, &fixed); }},
        {false, [&](D d, V, N n) { return d->setOXValueOX(d, n, &fixed); }},
    };
    const std::function<OXStatus(D)> removers[] = {
        [&](D d) { return d->removeKey(d, chars(lower), static_cast<OXStrSize>(lower.size())); },
        [&](D d) { return d->removeKeyU8(d, "REGION", 6); },
        [&](D d) { return d->removeKeyOX(d, str("region")); },
    };
    for (size_t i = 0; i < std::size(setters); ++i) {
        const auto& [sharesValue, setter] = setters[i];
        SCOPED_TRACE(i);
        OXInstance* v = inst("value");
        buf[0] = 'v';
        ASSERT_EQ(setter(dict, v, str("Region")), OX_OK);
        buf[0] = 'X';
        OXU8String* ox = str("region");
        OXInstance *byU8 = nullptr, *byWide = nullptr, *byOX = nullptr;
        ASSERT_EQ(dict->getValueU8(dict, "region", 6, &byU8), OX_OK);
        ASSERT_EQ(dict->getValue(dict, chars(lower), static_cast<OXStrSize>(lower.size()), &byWide), OX_OK);
        ASSERT_EQ(dict->getValueOX(dict, ox, &byOX), OX_OK);
        EXPECT_TRUE(byU8 == byWide && byU8 == byOX);
        EXPECT_EQ(byU8 == v, sharesValue);
        EXPECT_EQ(text(byU8), "value");
        EXPECT_TRUE(dict->hasKey(dict, chars(lower), static_cast<OXStrSize>(lower.size())));
        EXPECT_TRUE(dict->hasKeyOX(dict, ox));
        EXPECT_EQ(v->refCount, sharesValue ? 2 : 1);
        const auto& remove = removers[i % std::size(removers)];
        ASSERT_EQ(remove(dict), OX_OK);
        EXPECT_EQ(v->refCount, 1);
        EXPECT_EQ(remove(dict), OX_NOT_FOUND);
    }
}

TEST_F(Dictionary, FailedSetsNameListsAndClonesLeaveNoTrace) {
    OXInstance* v = inst("v");
    for (int64_t budget = 0;; ++budget) {
        oxPoolFailAfter(pool, budget);
        OXStatus st = set(dict, "name", v);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) break;
        ASSERT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(dict->count, 0);
        EXPECT_EQ(v->refCount, 1);
        ASSERT_LT(budget, 10);
    }
    for (const char* n : {"a", "b", "c"}) ASSERT_EQ(set(dict, n, v), OX_OK);
    ASSERT_EQ(dict->setU8ValueU8(dict, "k", 1, "old", 3), OX_OK);
    OXArray out = nullptr;
    OXU8String** list = nullptr;
    int64_t count = -1;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(dict->setU8ValueU8(dict, "k", 1, "new", 3), OX_NO_MEMORY);
    EXPECT_EQ(dict->getNames(dict, &out), OX_NO_MEMORY);
    EXPECT_EQ(dict->getNameArray(dict, pool, &list, &count), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(text(get(dict, "k")), "old");
    EXPECT_TRUE(out == nullptr && list == nullptr && count == -1);

    oxtest::TestPool other;
    for (int64_t budget = 0;; ++budget) {
        OXDictionary copy = nullptr;
        oxPoolFailAfter(other, budget);
        OXStatus st = dict->clone(dict, other, &copy);
        oxPoolFailAfter(other, -1);
        if (st == OX_OK) {
            release(&copy->instance);
            break;
        }
        ASSERT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(v->refCount, 5);
        EXPECT_EQ(other->blocksInUse(other), 0u);
        ASSERT_LT(budget, 40);
    }
    EXPECT_EQ(v->refCount, 5);
}

}  // namespace
