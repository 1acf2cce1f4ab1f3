// The config file reader: sections of name = value lines with comments, continuations and
// duplicates; syntax errors on a known line; allocation failures and file errors.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "ox/dictionary.h"
#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

class ConfigReader : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(strings);
        svc = strings->oxinstance;
    }
    void TearDown() override {
        oxPoolFailAfter(pool, -1);
        if (result) result->instance.destroy(result);
    }
    OXStatus parse(std::string_view text) {
        return svc->parseConfigText(svc, pool, text.data(), text.size(), &result, &line);
    }
    OXDictionary section(std::string_view name) const {
        OXInstance* s = nullptr;
        if (!result || result->getValueU8(result, name.data(), name.size(), &s) != OX_OK) return nullptr;
        EXPECT_TRUE(svc->isDictionary(s));
        return reinterpret_cast<OXDictionary>(s);
    }
    std::optional<std::string> value(std::string_view sectionName, std::string_view key) const {
        OXDictionary s = section(sectionName);
        OXInstance* v = nullptr;
        if (!s || s->getValueU8(s, key.data(), key.size(), &v) != OX_OK) return std::nullopt;
        EXPECT_TRUE(svc->isU8String(v));
        auto* str = reinterpret_cast<OXU8String*>(v);
        return std::string(str->stg, str->len);
    }

    oxtest::TestPool pool;
    oxtest::Service<OXStringExt_S> strings{"oxstring"};
    OXInstanceSvc_S* svc = nullptr;
    OXDictionary result = nullptr;
    int64_t line = -1;
};

TEST_F(ConfigReader, SectionsBecomeDictionariesOfTrimmedValues) {
    ASSERT_EQ(parse("\xEF\xBB\xBFssl = yes\n"  // a byte order mark, then a key before any section
                    "# heading\n; another\n\n"
                    "  [ default ]  \r\n"
                    "\tkey\t=\t value with  inner  spaces \t\n"
                    "url = https://x/?a=b\nempty =\nhash = v # kept\n"
                    "k = first\nk = second\n"
                    "s3 =\n  max_concurrent_requests = 20\n# note\n\taddressing_style = path\n"
                    "crlf = v\r\n  w\r\n"
                    "ended = a\n\n  j = b\n"
                    "[Default]\nRegion = a\nregion = b\n"
                    "[empty]\n"
                    "[default]\nmerged = yes\nlast = z"),
              OX_OK);
    EXPECT_EQ(line, 0);
    const std::tuple<const char*, const char*, std::optional<std::string>> expected[] = {
        {"", "ssl", "yes"},
        {"default", "key", "value with  inner  spaces"},
        {"default", "url", "https://x/?a=b"},  // everything after the first equals sign
        {"default", "empty", ""},
        {"default", "hash", "v # kept"},
        {"default", "k", "second"},  // later duplicates replace earlier ones
        {"default", "s3", "\nmax_concurrent_requests = 20\naddressing_style = path"},
        {"default", "crlf", "v\nw"},
        {"default", "ended", "a"},  // a blank line ends a value
        {"default", "j", "b"},
        {"default", "merged", "yes"},  // sections of the same name merge
        {"default", "last", "z"},
        {"Default", "Region", "a"},  // names are case-sensitive
        {"Default", "region", "b"},
        {"default", "Region", std::nullopt},
        {"", "key", std::nullopt},
    };
    for (const auto& [sec, key, val] : expected) EXPECT_EQ(value(sec, key), val) << "[" << sec << "] " << key;
    EXPECT_EQ(result->count, 4);
    EXPECT_EQ(section("default")->count, 11);
    ASSERT_NE(section("empty"), nullptr);
    EXPECT_EQ(section("empty")->count, 0);
    result->instance.destroy(result);
    result = nullptr;
    ASSERT_EQ(parse(""), OX_OK);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->count, 0);
}

TEST_F(ConfigReader, SyntaxErrorGivesStatusAndLineAndNothingElse) {
    const struct { const char* text; OXStatus status; int64_t line; } bad[] = {
        {"[s]\nk = v\njust words\n", OX_CONFIG_BAD_LINE, 3},
        {"[s]\n= value\n", OX_CONFIG_BAD_LINE, 2},
        {"[s]\nk = a\n  b\n  c\noops\n", OX_CONFIG_BAD_LINE, 5},
        {"[s]\r\nk=v\r\nbad\r\n", OX_CONFIG_BAD_LINE, 3},
        {"[profile x\nk = v\n", OX_CONFIG_BAD_SECTION, 1},
        {"k = v\n\n[]\n", OX_CONFIG_BAD_SECTION, 3},
        {"[s]\n[  ]\n", OX_CONFIG_BAD_SECTION, 2},
        {"[s] trailing\n", OX_CONFIG_BAD_SECTION, 1},
    };
    for (const auto& b : bad) {
        EXPECT_EQ(parse(b.text), b.status) << b.text;
        EXPECT_EQ(line, b.line) << b.text;
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u);
    }
    EXPECT_EQ(svc->parseConfigText(svc, pool, nullptr, 3, &result, &line), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->parseConfigText(svc, pool, "", 0, nullptr, &line), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->parseConfigText(svc, nullptr, "", 0, &result, &line), OX_INVALID_ARGUMENT);
}

TEST_F(ConfigReader, OutOfMemoryAnywhereReturnsNothing) {
    for (int64_t budget = 0;; ++budget) {
        oxPoolFailAfter(pool, budget);
        OXStatus st = parse("[a]\nk = v\n  more\n[b]\nx = 1\ny = 2\n[a]\nz = 3\n");
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) break;
        ASSERT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after failing allocation " << budget;
        ASSERT_LT(budget, 100);
    }
    EXPECT_EQ(value("a", "k"), "v\nmore");
    EXPECT_EQ(value("a", "z"), "3");
}

TEST_F(ConfigReader, FilesAreReadWholeOrGiveTheirError) {
    std::string dir = (std::filesystem::temp_directory_path() / "oxcfgXXXXXX").string();
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    auto write = [&](const char* name, std::string_view text) {
        std::ofstream(dir + "/" + name, std::ios::binary) << text;
        return dir + "/" + name;
    };
    std::string big = "[big]\n";
    for (int i = 0; i < 5000; ++i) big += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    ASSERT_EQ(svc->readConfigFile(svc, pool, write("big", big).c_str(), &result, &line), OX_OK);
    EXPECT_EQ(section("big")->count, 5000);
    EXPECT_EQ(value("big", "key4999"), "value 4999");
    result->instance.destroy(result);
    result = nullptr;

    std::string secret = write("secret", "k = v\n");
    const bool root = geteuid() == 0;  // permissions do not stop root from reading
    ASSERT_EQ(chmod(secret.c_str(), 0), 0);
    const struct { std::string path; OXStatus status; int64_t line; } bad[] = {
        {write("config", "[default]\nregion = x\n\n[profile broken\n"), OX_CONFIG_BAD_SECTION, 4},
        {dir + "/absent", OX_FILE_NOT_FOUND, 0},
        {write("plain", "k = v\n") + "/inside", OX_FILE_NOT_FOUND, 0},
        {dir, OX_FILE_IO_ERROR, 0},
        {root ? dir : secret, root ? OX_FILE_IO_ERROR : OX_FILE_ACCESS_DENIED, 0},
    };
    for (const auto& b : bad) {
        EXPECT_EQ(svc->readConfigFile(svc, pool, b.path.c_str(), &result, &line), b.status) << b.path;
        EXPECT_EQ(line, b.line) << b.path;
        EXPECT_EQ(result, nullptr);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
