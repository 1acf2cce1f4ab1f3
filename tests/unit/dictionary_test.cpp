#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ox/dictionary.h"
#include "ox/instance.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::wide;

std::string_view text(const OXU8String* s) { return {s->stg, static_cast<size_t>(s->len)}; }
std::string_view text(const OXInstance* v) { return text(reinterpret_cast<const OXU8String*>(v)); }

class DictionaryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dicts);
        ASSERT_TRUE(strings);
        dict = make(0);
    }
    void TearDown() override {
        if (dict) release(&dict->instance);
        for (OXU8String* s : made) release(&s->instance);
    }

    OXDictionary make(uint32_t flags) {
        OXDictionary d = nullptr;
        EXPECT_EQ(dicts->create(dicts.get(), pool, flags, &d), OX_OK);
        return d;
    }
    // A string the test owns; released at the end of the test.
    OXU8String* str(std::string_view s) {
        OXU8String* out = nullptr;
        EXPECT_EQ(strings->createU8(strings.get(), pool, s.data(), s.size(), OX_STR_COPY, &out), OX_OK);
        made.push_back(out);
        return out;
    }
    OXInstance* inst(std::string_view s) { return &str(s)->instance; }
    static void release(OXInstance* i) { i->destroy(i); }

    OXStatus set(OXDictionary d, std::string_view name, OXInstance* v) {
        return d->setValueU8(d, name.data(), name.size(), v);
    }
    OXInstance* get(OXDictionary d, std::string_view name) {
        OXInstance* v = nullptr;
        return d->getValueU8(d, name.data(), name.size(), &v) == OX_OK ? v : nullptr;
    }
    std::vector<std::string> names(OXDictionary d) {
        std::vector<std::string> out;
        void* cursor = nullptr;
        OXU8String* name = nullptr;
        while (d->nextValue(d, &cursor, &name, nullptr) == OX_OK) out.emplace_back(text(name));
        return out;
    }

    oxtest::TestPool pool;
    oxtest::Service<OXDictionaryExt_S> dicts{"oxdictionary"};
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    OXDictionary dict = nullptr;
    std::vector<OXU8String*> made;
};

// ---- order and case

class DictionaryOrder : public DictionaryTest {};

TEST_F(DictionaryOrder, CaseSensitiveNamesAscendByBytes) {
    OXDictionary d = make(OX_DICT_CASE_SENSITIVE);
    for (const char* n : {"b", "B", "a", "A", "ab"}) ASSERT_EQ(set(d, n, inst(n)), OX_OK);
    EXPECT_EQ(names(d), (std::vector<std::string>{"A", "B", "a", "ab", "b"}));
    EXPECT_EQ(d->count, 5);
    EXPECT_TRUE(d->caseSensitive);
    release(&d->instance);
}

TEST_F(DictionaryOrder, CaselessNamesAscendAfterFolding) {
    for (const char* n : {"b", "A", "C", "ab"}) ASSERT_EQ(set(dict, n, inst(n)), OX_OK);
    EXPECT_EQ(names(dict), (std::vector<std::string>{"A", "ab", "b", "C"}));
    EXPECT_FALSE(dict->caseSensitive);
}

TEST_F(DictionaryOrder, CaselessNamesDifferingInCaseAreOneEntry) {
    OXInstance* first = inst("text/plain");
    OXInstance* second = inst("text/html");
    ASSERT_EQ(set(dict, "Content-Type", first), OX_OK);
    ASSERT_EQ(set(dict, "content-TYPE", second), OX_OK);
    EXPECT_EQ(dict->count, 1);
    EXPECT_EQ(get(dict, "CONTENT-TYPE"), second);
    EXPECT_EQ(names(dict), std::vector<std::string>{"Content-Type"}) << "the first spelling stays";
    EXPECT_EQ(first->refCount, 1);
}

TEST_F(DictionaryOrder, CaselessNamesFoldBeyondAscii) {
    ASSERT_EQ(set(dict, "\xC3\x84rger", inst("x")), OX_OK);  // "Ärger"
    EXPECT_NE(get(dict, "\xC3\xA4rger"), nullptr);             // "ärger"
}

TEST_F(DictionaryOrder, SortedNamesComeBothWays) {
    for (const char* n : {"m", "z", "a"}) ASSERT_EQ(set(dict, n, inst(n)), OX_OK);
    OXArray up = nullptr, down = nullptr;
    ASSERT_EQ(dict->getNames(dict, &up), OX_OK);
    ASSERT_EQ(dict->sortedNames(dict, OX_TRUE, &down), OX_OK);
    ASSERT_EQ(up->count, 3);
    ASSERT_EQ(down->count, 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(up->items[i], down->items[2 - i]);
    EXPECT_EQ(text(up->items[0]), "a");
    EXPECT_EQ(text(up->items[2]), "z");
    release(&up->instance);
    release(&down->instance);
    EXPECT_EQ(names(dict), (std::vector<std::string>{"a", "m", "z"})) << "the arrays held their own references";
}

TEST_F(DictionaryOrder, NameArrayBorrowsTheNamesInOrder) {
    for (const char* n : {"y", "x"}) ASSERT_EQ(set(dict, n, inst(n)), OX_OK);
    OXU8String** list = nullptr;
    int64_t count = 0;
    ASSERT_EQ(dict->getNameArray(dict, pool, &list, &count), OX_OK);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(text(list[0]), "x");
    EXPECT_EQ(text(list[1]), "y");
    pool->memFree(pool, list);
}

TEST_F(DictionaryOrder, EmptyDictionaryHasNoNames) {
    OXArray none = nullptr;
    ASSERT_EQ(dict->getNames(dict, &none), OX_OK);
    EXPECT_EQ(none->count, 0);
    release(&none->instance);
    void* cursor = nullptr;
    EXPECT_EQ(dict->nextValue(dict, &cursor, nullptr, nullptr), OX_END_OF_DATA);
}

// ---- values and their references

class DictionaryValues : public DictionaryTest {};

TEST_F(DictionaryValues, SetTakesItsOwnReference) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "k", v), OX_OK);
    EXPECT_EQ(v->refCount, 2);
    release(&dict->instance);
    dict = nullptr;
    EXPECT_EQ(v->refCount, 1);
}

TEST_F(DictionaryValues, SetOnExistingNameReplacesAndReleasesTheOldValue) {
    OXInstance* old = inst("old");
    OXInstance* fresh = inst("new");
    ASSERT_EQ(set(dict, "k", old), OX_OK);
    ASSERT_EQ(set(dict, "k", fresh), OX_OK);
    EXPECT_EQ(old->refCount, 1);
    EXPECT_EQ(fresh->refCount, 2);
    EXPECT_EQ(get(dict, "k"), fresh);
    EXPECT_EQ(dict->count, 1);
}

TEST_F(DictionaryValues, SettingTheSameValueAgainKeepsOneReference) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "k", v), OX_OK);
    ASSERT_EQ(set(dict, "k", v), OX_OK);
    EXPECT_EQ(v->refCount, 2);
}

TEST_F(DictionaryValues, AddRefusesAnExistingName) {
    OXInstance* first = inst("1");
    OXInstance* second = inst("2");
    ASSERT_EQ(dict->addPairU8(dict, "k", 1, first), OX_OK);
    EXPECT_EQ(dict->addPairU8(dict, "K", 1, second), OX_INVALID_ARGUMENT);
    EXPECT_EQ(dict->addPairOX(dict, str("k"), second), OX_INVALID_ARGUMENT);
    EXPECT_EQ(get(dict, "k"), first);
    EXPECT_EQ(second->refCount, 1);
    EXPECT_EQ(dict->count, 1);
}

TEST_F(DictionaryValues, RemoveKeyReleasesTheValue) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "k", v), OX_OK);
    ASSERT_EQ(dict->removeKeyU8(dict, "k", 1), OX_OK);
    EXPECT_EQ(v->refCount, 1);
    EXPECT_EQ(dict->count, 0);
    EXPECT_EQ(dict->removeKeyU8(dict, "k", 1), OX_NOT_FOUND);
}

TEST_F(DictionaryValues, MissingNameIsNotFoundAndLeavesTheOutputAlone) {
    OXInstance* v = inst("sentinel");
    OXInstance* out = v;
    EXPECT_EQ(dict->getValueU8(dict, "nope", 4, &out), OX_NOT_FOUND);
    EXPECT_EQ(out, v);
    EXPECT_FALSE(dict->hasKeyU8(dict, "nope", 4));
}

TEST_F(DictionaryValues, RemoveValueRemovesEveryEntryHoldingIt) {
    OXInstance* shared = inst("shared");
    OXInstance* other = inst("other");
    for (const char* n : {"a", "c", "e"}) ASSERT_EQ(set(dict, n, shared), OX_OK);
    for (const char* n : {"b", "d"}) ASSERT_EQ(set(dict, n, other), OX_OK);
    EXPECT_EQ(shared->refCount, 4);
    ASSERT_EQ(dict->removeValue(dict, shared), OX_OK);
    EXPECT_EQ(names(dict), (std::vector<std::string>{"b", "d"}));
    EXPECT_EQ(shared->refCount, 1);
    EXPECT_EQ(other->refCount, 3);
    EXPECT_EQ(dict->removeValue(dict, shared), OX_NOT_FOUND);
}

TEST_F(DictionaryValues, ValueLookupsFindTheFirstNameInOrder) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "zeta", v), OX_OK);
    ASSERT_EQ(set(dict, "alpha", v), OX_OK);
    OXU8String* name = nullptr;
    ASSERT_EQ(dict->nameForValue(dict, v, &name), OX_OK);
    EXPECT_EQ(text(name), "alpha");
    EXPECT_TRUE(dict->hasValue(dict, v));
    OXInstance* stranger = inst("v");  // equal text, another instance
    EXPECT_FALSE(dict->hasValue(dict, stranger));
    EXPECT_EQ(dict->nameForValue(dict, stranger, &name), OX_NOT_FOUND);
}

TEST_F(DictionaryValues, BytesValuesAreCopies) {
    char buf[] = "eu-west-1";
    ASSERT_EQ(dict->setU8ValueU8(dict, "region", 6, buf, 9), OX_OK);
    buf[0] = 'X';
    EXPECT_EQ(text(get(dict, "region")), "eu-west-1");
    EXPECT_EQ(get(dict, "region")->refCount, 1);
}

TEST_F(DictionaryValues, StringValuesAreCopiesEvenOverCallerBytes) {
    char buf[] = "abc";
    OXU8String fixed{};
    strings->initStaticU8(strings.get(), &fixed, buf, 3);
    ASSERT_EQ(dict->setOXValueU8(dict, "k", 1, &fixed), OX_OK);
    buf[0] = 'z';
    EXPECT_EQ(text(get(dict, "k")), "abc");
}

TEST_F(DictionaryValues, NullValueIsRefused) {
    EXPECT_EQ(set(dict, "k", nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(dict->count, 0);
}

TEST_F(DictionaryValues, EmptyNameIsAName) {
    ASSERT_EQ(dict->setValueU8(dict, nullptr, 0, inst("v")), OX_OK);
    EXPECT_TRUE(dict->hasKeyU8(dict, "", 0));
    EXPECT_EQ(dict->setValueU8(dict, nullptr, 3, inst("v")), OX_INVALID_ARGUMENT);
}

TEST_F(DictionaryValues, ExtraReferenceKeepsTheDictionaryAlive) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "k", v), OX_OK);
    oxAtomicAdd(&dict->instance.refCount, 1);
    release(&dict->instance);
    EXPECT_EQ(get(dict, "k"), v);
    EXPECT_EQ(v->refCount, 2);
}

TEST_F(DictionaryValues, IsADictionaryInstance) {
    EXPECT_TRUE(dict->instance.isType(dict, OX_TYPE_DICTIONARY));
    EXPECT_FALSE(dict->instance.isType(dict, OX_TYPE_ARRAY));
    EXPECT_TRUE(strings->oxinstance->isDictionary(&dict->instance));
}

TEST_F(DictionaryValues, UnknownCreateFlagIsRefused) {
    OXDictionary d = nullptr;
    EXPECT_EQ(dicts->create(dicts.get(), pool, 0x80, &d), OX_INVALID_ARGUMENT);
    EXPECT_EQ(d, nullptr);
}

// ---- iteration and cloning

class DictionaryWalk : public DictionaryTest {};

TEST_F(DictionaryWalk, NextValueGivesPairsInOrderThenEndOfData) {
    OXInstance* one = inst("1");
    OXInstance* two = inst("2");
    ASSERT_EQ(set(dict, "two", two), OX_OK);
    ASSERT_EQ(set(dict, "one", one), OX_OK);
    void* cursor = nullptr;
    OXU8String* name = nullptr;
    OXInstance* value = nullptr;
    ASSERT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_OK);
    EXPECT_EQ(text(name), "one");
    EXPECT_EQ(value, one);
    ASSERT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_OK);
    EXPECT_EQ(text(name), "two");
    EXPECT_EQ(value, two);
    EXPECT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_END_OF_DATA);
    EXPECT_EQ(value, two) << "outputs are written only on success";
    EXPECT_EQ(dict->nextValue(dict, &cursor, &name, &value), OX_END_OF_DATA);
}

TEST_F(DictionaryWalk, CloneSharesValuesButNotEntries) {
    OXInstance* v = inst("v");
    ASSERT_EQ(set(dict, "a", v), OX_OK);
    ASSERT_EQ(set(dict, "b", v), OX_OK);
    oxtest::TestPool other;
    OXDictionary copy = nullptr;
    ASSERT_EQ(dict->clone(dict, other, &copy), OX_OK);
    EXPECT_EQ(v->refCount, 5);
    EXPECT_EQ(get(copy, "a"), v);
    EXPECT_EQ(copy->caseSensitive, dict->caseSensitive);
    ASSERT_EQ(copy->removeKeyU8(copy, "a", 1), OX_OK);
    EXPECT_EQ(get(dict, "a"), v);
    release(&dict->instance);
    dict = nullptr;
    EXPECT_EQ(names(copy), std::vector<std::string>{"b"}) << "the clone's names live in its own pool";
    release(&copy->instance);
    EXPECT_EQ(v->refCount, 1);
}

TEST_F(DictionaryWalk, CloneKeepsTheCaseRule) {
    OXDictionary exact = make(OX_DICT_CASE_SENSITIVE);
    ASSERT_EQ(set(exact, "K", inst("1")), OX_OK);
    OXDictionary copy = nullptr;
    ASSERT_EQ(exact->clone(exact, pool, &copy), OX_OK);
    EXPECT_EQ(get(copy, "k"), nullptr);
    EXPECT_TRUE(copy->caseSensitive);
    release(&copy->instance);
    release(&exact->instance);
}

// ---- the name variants

// Every way of naming an entry: UTF-8 bytes, wide text and string records.
class DictionaryVariants : public DictionaryTest {
protected:
    void expectReachable(std::string_view name, OXInstance* expected) {
        std::u32string w = wide(name);
        OXU8String* ox = str(name);
        OXInstance *byU8 = nullptr, *byWide = nullptr, *byOX = nullptr;
        ASSERT_EQ(dict->getValueU8(dict, name.data(), name.size(), &byU8), OX_OK);
        ASSERT_EQ(dict->getValue(dict, chars(w), static_cast<OXStrSize>(w.size()), &byWide), OX_OK);
        ASSERT_EQ(dict->getValueOX(dict, ox, &byOX), OX_OK);
        EXPECT_EQ(byU8, byWide);
        EXPECT_EQ(byU8, byOX);
        if (expected) {
            EXPECT_EQ(byU8, expected);
        }
        EXPECT_EQ(text(byU8), "value");
        EXPECT_TRUE(dict->hasKeyU8(dict, name.data(), name.size()));
        EXPECT_TRUE(dict->hasKey(dict, chars(w), static_cast<OXStrSize>(w.size())));
        EXPECT_TRUE(dict->hasKeyOX(dict, ox));
        EXPECT_EQ(dict->count, 1);
    }
};

TEST_F(DictionaryVariants, EverySetterReachesTheSameEntry) {
    const std::u32string w = wide("Region");
    const OXChar* wn = chars(w);
    const OXStrSize wl = static_cast<OXStrSize>(w.size());
    using D = OXDictionary;
    using V = OXInstance*;
    using N = OXU8String*;
    auto asString = [](V v) { return reinterpret_cast<OXU8String*>(v); };
    struct Case {
        const char* label;
        bool sharesValue;  // the entry holds the given instance rather than a copy of its text
        std::function<OXStatus(D, V, N)> set;
    };
    const std::vector<Case> cases = {
        {"setValue", true, [&](D d, V v, N) { return d->setValue(d, wn, wl, v); }},
        {"setValueU8", true, [&](D d, V v, N) { return d->setValueU8(d, "Region", 6, v); }},
        {"setValueOX", true, [&](D d, V v, N n) { return d->setValueOX(d, n, v); }},
        {"addPairU8", true, [&](D d, V v, N) { return d->addPairU8(d, "Region", 6, v); }},
        {"addPairOX", true, [&](D d, V v, N n) { return d->addPairOX(d, n, v); }},
        {"setU8Value", false, [&](D d, V, N) { return d->setU8Value(d, wn, wl, "value", 5); }},
        {"setU8ValueU8", false, [&](D d, V, N) { return d->setU8ValueU8(d, "Region", 6, "value", 5); }},
        {"setU8ValueOX", false, [&](D d, V, N n) { return d->setU8ValueOX(d, n, "value", 5); }},
        {"setOXValueU8", false, [&](D d, V v, N) { return d->setOXValueU8(d, "Region", 6, asString(v)); }},
        {"setOXValueOX", false, [&](D d, V v, N n) { return d->setOXValueOX(d, n, asString(v)); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        OXInstance* v = inst("value");
        ASSERT_EQ(c.set(dict, v, str("Region")), OX_OK);
        expectReachable("region", c.sharesValue ? v : nullptr);
        EXPECT_EQ(v->refCount, c.sharesValue ? 2 : 1);
        ASSERT_EQ(dict->removeKeyU8(dict, "REGION", 6), OX_OK);
    }
}

TEST_F(DictionaryVariants, EveryRemoverReachesTheSameEntry) {
    const std::u32string w = wide("region");
    using Remover = std::function<OXStatus(OXDictionary)>;
    const std::vector<std::pair<const char*, Remover>> removers = {
        {"removeKey", [&](OXDictionary d) { return d->removeKey(d, chars(w), static_cast<OXStrSize>(w.size())); }},
        {"removeKeyU8", [&](OXDictionary d) { return d->removeKeyU8(d, "region", 6); }},
        {"removeKeyOX", [&](OXDictionary d) { return d->removeKeyOX(d, str("region")); }},
    };
    for (const auto& [label, remover] : removers) {
        SCOPED_TRACE(label);
        OXInstance* v = inst("value");
        ASSERT_EQ(set(dict, "Region", v), OX_OK);
        ASSERT_EQ(remover(dict), OX_OK);
        EXPECT_EQ(dict->count, 0);
        EXPECT_EQ(v->refCount, 1);
        EXPECT_EQ(remover(dict), OX_NOT_FOUND);
    }
}

TEST_F(DictionaryVariants, LongWideNamesWork) {
    std::string longName(1000, 'n');
    longName += "\xE2\x82\xAC";  // a euro sign, three bytes in UTF-8
    std::u32string w = wide(std::string(1000, 'n'));
    w += U'\u20AC';
    ASSERT_EQ(dict->setValue(dict, chars(w), static_cast<OXStrSize>(w.size()), inst("value")), OX_OK);
    EXPECT_NE(get(dict, longName), nullptr);
    EXPECT_EQ(names(dict)[0].size(), 1003u);
}

TEST_F(DictionaryVariants, BadWideNamesAreRefused) {
    const OXChar surrogate[] = {0xD800};
    EXPECT_EQ(dict->setValue(dict, surrogate, 1, inst("v")), OX_BAD_CODE_POINT);
    EXPECT_EQ(dict->setValue(dict, surrogate, -1, inst("v")), OX_INVALID_ARGUMENT);
    EXPECT_FALSE(dict->hasKey(dict, surrogate, 1));
    EXPECT_EQ(dict->count, 0);
}

// ---- failures release what they made

class DictionaryFailures : public DictionaryTest {
protected:
    void TearDown() override { oxPoolFailAfter(pool, -1); DictionaryTest::TearDown(); }
};

TEST_F(DictionaryFailures, FailedSetLeavesNoTrace) {
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
    EXPECT_EQ(v->refCount, 2);
}

TEST_F(DictionaryFailures, FailedBytesSetKeepsTheOldValue) {
    ASSERT_EQ(dict->setU8ValueU8(dict, "k", 1, "old", 3), OX_OK);
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(dict->setU8ValueU8(dict, "k", 1, "new", 3), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(text(get(dict, "k")), "old");
}

TEST_F(DictionaryFailures, FailedCloneReleasesItsPartialCopy) {
    OXInstance* v = inst("v");
    for (const char* n : {"a", "b", "c", "d"}) ASSERT_EQ(set(dict, n, v), OX_OK);
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

TEST_F(DictionaryFailures, FailedNameListsReturnNothing) {
    for (const char* n : {"a", "b", "c"}) ASSERT_EQ(set(dict, n, inst(n)), OX_OK);
    OXArray out = nullptr;
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(dict->getNames(dict, &out), OX_NO_MEMORY);
    OXU8String** list = nullptr;
    int64_t count = -1;
    EXPECT_EQ(dict->getNameArray(dict, pool, &list, &count), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(count, -1);
}

}  // namespace
