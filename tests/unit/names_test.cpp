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
    st = host()->nameGet(host(), chars(name), name.size(), reinterpret_cast<OXChar*>(buf.data()), buf.size(), &needed);
    if (st == OX_OK) value = buf.substr(0, needed);
    return st;
}

TEST(Names, StoredValuesAreReplacedAndReadBackExactly) {
    const std::pair<std::u32string, std::u32string> values[] = {
        {U"names.replace", U"short"}, {U"names.grüße", U"Grüße, мир 🌍"}, {U"names.Case", U"1"}, {U"names.empty", U""}};
    ASSERT_EQ(set(U"names.replace", U"a long first value"), OX_OK);
    ASSERT_EQ(set(U"names.empty", U"not yet"), OX_OK);
    for (const auto& [name, value] : values) {  // an empty value may come without a pointer
        const OXChar* v = value.empty() ? nullptr : chars(value);
        ASSERT_EQ(host()->nameSet(host(), chars(name), name.size(), v, value.size()), OX_OK);
    }
    for (const auto& [name, value] : values) {
        std::u32string got = U"old";
        ASSERT_EQ(get(name, got), OX_OK);
        EXPECT_EQ(got, value);
        EXPECT_TRUE(exists(name));
    }
    for (const char32_t* absent : {U"names.case", U"names.Cas", U"names.never.set"}) EXPECT_FALSE(exists(absent));
    std::u32string got;
    EXPECT_EQ(get(U"names.never.set", got), OX_NOT_FOUND);
    size_t len = 0;
    EXPECT_EQ(host()->nameSet(host(), nullptr, 3, chars(U"x"), 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameSet(host(), chars(U"x"), 0, chars(U"x"), 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameSet(host(), chars(U"x"), 1, nullptr, 4), OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->nameGet(host(), chars(U"x"), 1, nullptr, 4, &len), OX_INVALID_ARGUMENT);
}

TEST(Names, ShortBufferGivesNeededLengthAndLeavesBufferAlone) {
    ASSERT_EQ(set(U"names.short", U"0123456789"), OX_OK);
    std::u32string buf(4, U'#');
    size_t needed = 0;
    EXPECT_EQ(host()->nameGet(host(), chars(U"names.short"), 11, reinterpret_cast<OXChar*>(buf.data()), 4, &needed),
              OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 10u);
    EXPECT_EQ(buf, U"####");
}

TEST(Names, ConcurrentWritersAndReadersSeeWholeValues) {
    const std::u32string values[] = {U"first value", U"the second, longer value"};
    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                std::u32string v;
                if (t % 2 == 0)
                    set(U"names.concurrent", values[i % 2]);
                else if (get(U"names.concurrent", v) == OX_OK && v != values[0] && v != values[1])
                    ++torn;
            }
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(torn.load(), 0);
}

TEST(EnvironmentNames, FollowTheEnvironmentDecodingUtf8AndCannotBeSet) {
    const std::pair<const char*, std::u32string> cases[] = {
        {"/home/me/.aws/config", U"/home/me/.aws/config"},
        {"Zürich-Москва", U"Zürich-Москва"},
        {"a\xFF" "b", U"a\uFFFDb"},  // invalid bytes become replacement characters
        {"", U""},
    };
    std::u32string value;
    for (const auto& [env, expected] : cases) {
        setenv("OXTEST_NAMES_VAR", env, 1);
        EXPECT_TRUE(exists(U"OSENV.OXTEST_NAMES_VAR"));
        value = U"old";
        EXPECT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_OK);
        EXPECT_EQ(value, expected) << env;
    }
    unsetenv("OXTEST_NAMES_VAR");
    EXPECT_FALSE(exists(U"OSENV.OXTEST_NAMES_VAR"));
    EXPECT_EQ(get(U"OSENV.OXTEST_NAMES_VAR", value), OX_NOT_FOUND);
    EXPECT_FALSE(exists(U"OSENV."));
    EXPECT_EQ(set(U"OSENV.OXTEST_NAMES_VAR", U"x"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(std::getenv("OXTEST_NAMES_VAR"), nullptr);
}

}  // namespace
