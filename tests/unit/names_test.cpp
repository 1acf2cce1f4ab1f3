// Process-wide names: stored values, the environment behind "OSENV." names, and the
// buffer-too-small protocol of nameGet.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::host;
using oxtest::wide;

class Names : public ::testing::Test {
protected:
    OXStatus set(const std::u32string& name, const std::u32string& value) {
        return host()->nameSet(host(), chars(name), name.size(), chars(value), value.size());
    }
    bool exists(const std::u32string& name) { return host()->nameExists(host(), chars(name), name.size()) != OX_FALSE; }

    // Asks for the length first, then reads into a buffer of exactly that size.
    OXStatus get(const std::u32string& name, std::u32string& value) {
        size_t needed = 0;
        OXStatus st = host()->nameGet(host(), chars(name), name.size(), nullptr, 0, &needed);
        if (st != OX_BUFFER_TOO_SMALL && st != OX_OK) return st;
        std::u32string buf(needed, U'\0');
        size_t got = 0;
        st = host()->nameGet(host(), chars(name), name.size(), reinterpret_cast<OXChar*>(buf.data()), buf.size(), &got);
        if (st == OX_OK) value = buf.substr(0, got);
        return st;
    }
};

TEST_F(Names, SetValueCanBeReadBack) {
    ASSERT_EQ(set(U"oxs3.isEC2Host", U"false"), OX_OK);
    EXPECT_TRUE(exists(U"oxs3.isEC2Host"));
    std::u32string value;
    ASSERT_EQ(get(U"oxs3.isEC2Host", value), OX_OK);
    EXPECT_EQ(value, U"false");
}

TEST_F(Names, SettingAgainReplacesTheValue) {
    ASSERT_EQ(set(U"names.replace", U"a long first value"), OX_OK);
    ASSERT_EQ(set(U"names.replace", U"short"), OX_OK);
    std::u32string value;
    ASSERT_EQ(get(U"names.replace", value), OX_OK);
    EXPECT_EQ(value, U"short");
}

TEST_F(Names, EmptyValueIsAValue) {
    ASSERT_EQ(host()->nameSet(host(), chars(U"names.empty"), 11, nullptr, 0), OX_OK);
    EXPECT_TRUE(exists(U"names.empty"));
    size_t len = 99;
    EXPECT_EQ(host()->nameGet(host(), chars(U"names.empty"), 11, nullptr, 0, &len), OX_OK);
    EXPECT_EQ(len, 0u);
}

TEST_F(Names, NamesAreExactAndCaseSensitive) {
    ASSERT_EQ(set(U"names.Case", U"1"), OX_OK);
    EXPECT_FALSE(exists(U"names.case"));
    EXPECT_FALSE(exists(U"names.Cas"));
}

TEST_F(Names, MissingNameIsNotFound) {
    EXPECT_FALSE(exists(U"names.never.set"));
    size_t len = 0;
    EXPECT_EQ(host()->nameGet(host(), chars(U"names.never.set"), 15, nullptr, 0, &len), OX_NOT_FOUND);
}

TEST_F(Names, ShortBufferGivesNeededLengthAndLeavesBufferAlone) {
    ASSERT_EQ(set(U"names.short", U"0123456789"), OX_OK);
    std::u32string buf(4, U'#');
    size_t needed = 0;
    EXPECT_EQ(host()->nameGet(host(), chars(U"names.short"), 11, reinterpret_cast<OXChar*>(buf.data()), buf.size(), &needed),
              OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 10u);
    EXPECT_EQ(buf, U"####");
}

TEST_F(Names, NonAsciiNamesAndValuesRoundTrip) {
    ASSERT_EQ(set(U"names.grüße", U"Grüße, мир 🌍"), OX_OK);
    std::u32string value;
    ASSERT_EQ(get(U"names.grüße", value), OX_OK);
    EXPECT_EQ(value, U"Grüße, мир 🌍");
}

TEST_F(Names, InvalidArgumentsAreRejected) {
    size_t len = 0;
    EXPECT_EQ(host()->nameSet(host(), nullptr, 3, chars(U"x"), 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameSet(host(), chars(U"x"), 0, chars(U"x"), 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameSet(host(), chars(U"x"), 1, nullptr, 4), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameGet(host(), chars(U"x"), 1, nullptr, 4, &len), OX_INVALID_ARGUMENT);
}

TEST_F(Names, ConcurrentWritersAndReadersSeeWholeValues) {
    const std::u32string name = U"names.concurrent";
    const std::u32string values[] = {U"first value", U"the second, longer value"};
    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                if (t % 2 == 0) {
                    set(name, values[i % 2]);
                    continue;
                }
                std::u32string v;
                OXStatus st = get(name, v);
                if (st == OX_OK && v != values[0] && v != values[1]) ++torn;
            }
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(torn.load(), 0);
}

class EnvironmentNames : public Names {
protected:
    void TearDown() override { unsetenv("OXTEST_NAMES_VAR"); }
};

TEST_F(EnvironmentNames, ReadTheEnvironment) {
    setenv("OXTEST_NAMES_VAR", "/home/me/.aws/config", 1);
    EXPECT_TRUE(exists(U"OSENV.OXTEST_NAMES_VAR"));
    std::u32string value;
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    EXPECT_EQ(value, U"/home/me/.aws/config");
}

TEST_F(EnvironmentNames, FollowChangesToTheEnvironment) {
    setenv("OXTEST_NAMES_VAR", "one", 1);
    std::u32string value;
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    setenv("OXTEST_NAMES_VAR", "two", 1);
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    EXPECT_EQ(value, U"two");
    unsetenv("OXTEST_NAMES_VAR");
    EXPECT_FALSE(exists(U"OSENV.OXTEST_NAMES_VAR"));
    EXPECT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_NOT_FOUND);
}

TEST_F(EnvironmentNames, DecodeUtf8Values) {
    setenv("OXTEST_NAMES_VAR", "Zürich-Москва", 1);
    std::u32string value;
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    EXPECT_EQ(value, U"Zürich-Москва");
}

TEST_F(EnvironmentNames, ReplaceInvalidUtf8WithReplacementCharacter) {
    setenv("OXTEST_NAMES_VAR", "a\xFF" "b", 1);
    std::u32string value;
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    EXPECT_EQ(value, U"a\uFFFDb");
}

TEST_F(EnvironmentNames, CannotBeSet) {
    EXPECT_EQ(set(U"OSENV.OXTEST_NAMES_VAR", U"x"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(std::getenv("OXTEST_NAMES_VAR"), nullptr);
    EXPECT_FALSE(exists(U"OSENV.OXTEST_NAMES_VAR"));
}

TEST_F(EnvironmentNames, EmptyVariableExistsWithEmptyValue) {
    setenv("OXTEST_NAMES_VAR", "", 1);
    std::u32string value = U"old";
    ASSERT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
    EXPECT_EQ(value, U"");
}

TEST_F(EnvironmentNames, PrefixAloneNamesNoVariable) { EXPECT_FALSE(exists(U"OSENV.")); }

}  // namespace
