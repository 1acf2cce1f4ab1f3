#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
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

namespace fs = std::filesystem;

class ConfigReader : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(strings);
        svc = strings->oxinstance;
        ASSERT_NE(svc, nullptr);
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

// ---- what a well-formed file gives

class ConfigText : public ConfigReader {};

TEST_F(ConfigText, SectionsMapToDictionariesOfStrings) {
    ASSERT_EQ(parse("[default]\n"
                    "aws_access_key_id = AKIDEXAMPLE\n"
                    "aws_secret_access_key=wJalrXUtnFEMI\n"
                    "\n"
                    "[profile dev]\n"
                    "region = eu-west-1\n"),
              OX_OK);
    EXPECT_EQ(line, 0);
    EXPECT_EQ(result->count, 2);
    EXPECT_EQ(value("default", "aws_access_key_id"), "AKIDEXAMPLE");
    EXPECT_EQ(value("default", "aws_secret_access_key"), "wJalrXUtnFEMI");
    EXPECT_EQ(value("profile dev", "region"), "eu-west-1");
    EXPECT_EQ(section("default")->count, 2);
}

TEST_F(ConfigText, WhiteSpaceAroundNamesAndValuesIsTrimmed) {
    ASSERT_EQ(parse("  [ default ]  \n\tkey\t=\t value with  inner  spaces \t\n"), OX_OK);
    EXPECT_EQ(value("default", "key"), "value with  inner  spaces");
}

TEST_F(ConfigText, ValueKeepsEverythingAfterTheFirstEquals) {
    ASSERT_EQ(parse("[s]\nurl = https://x/?a=b\nempty =\nhash = v # kept\n"), OX_OK);
    EXPECT_EQ(value("s", "url"), "https://x/?a=b");
    EXPECT_EQ(value("s", "empty"), "");
    EXPECT_EQ(value("s", "hash"), "v # kept");
}

TEST_F(ConfigText, CommentAndBlankLinesAreSkipped) {
    ASSERT_EQ(parse("# heading\n; another\n\n[s]\n  # indented comment\nk = v\n\n\n"), OX_OK);
    EXPECT_EQ(result->count, 1);
    EXPECT_EQ(section("s")->count, 1);
    EXPECT_EQ(value("s", "k"), "v");
}

TEST_F(ConfigText, KeysBeforeAnySectionBelongToTheUnnamedSection) {
    ASSERT_EQ(parse("ssl = yes\nregion = us-east-2\n[later]\nx = 1\n"), OX_OK);
    EXPECT_EQ(value("", "ssl"), "yes");
    EXPECT_EQ(value("", "region"), "us-east-2");
    EXPECT_EQ(value("later", "x"), "1");
    EXPECT_EQ(value("later", "ssl"), std::nullopt);
}

TEST_F(ConfigText, LaterDuplicateKeysReplaceEarlierOnes) {
    ASSERT_EQ(parse("[s]\nk = first\nk = second\n"), OX_OK);
    EXPECT_EQ(value("s", "k"), "second");
    EXPECT_EQ(section("s")->count, 1);
}

TEST_F(ConfigText, SectionsOfTheSameNameMerge) {
    ASSERT_EQ(parse("[s]\na = 1\nb = 2\n[t]\nc = 3\n[s]\nb = 20\nd = 4\n"), OX_OK);
    EXPECT_EQ(result->count, 2);
    EXPECT_EQ(value("s", "a"), "1");
    EXPECT_EQ(value("s", "b"), "20");
    EXPECT_EQ(value("s", "d"), "4");
}

TEST_F(ConfigText, NamesAreCaseSensitive) {
    ASSERT_EQ(parse("[Default]\nRegion = a\nregion = b\n[default]\nregion = c\n"), OX_OK);
    EXPECT_EQ(result->count, 2);
    EXPECT_EQ(value("Default", "Region"), "a");
    EXPECT_EQ(value("Default", "region"), "b");
    EXPECT_EQ(value("default", "region"), "c");
    EXPECT_EQ(value("default", "Region"), std::nullopt);
}

TEST_F(ConfigText, IndentedLinesContinueTheValue) {
    ASSERT_EQ(parse("[s]\nk = first\n  second\n\tthird\nnext = x\n"), OX_OK);
    EXPECT_EQ(value("s", "k"), "first\nsecond\nthird");
    EXPECT_EQ(value("s", "next"), "x");
}

TEST_F(ConfigText, NestedSettingsBecomeOneValue) {
    ASSERT_EQ(parse("[default]\ns3 =\n  max_concurrent_requests = 20\n  addressing_style = path\n"), OX_OK);
    EXPECT_EQ(value("default", "s3"), "\nmax_concurrent_requests = 20\naddressing_style = path");
    EXPECT_EQ(section("default")->count, 1);
}

TEST_F(ConfigText, CommentInsideAContinuationIsSkipped) {
    ASSERT_EQ(parse("[s]\nk = a\n# note\n  b\n"), OX_OK);
    EXPECT_EQ(value("s", "k"), "a\nb");
}

TEST_F(ConfigText, BlankLineEndsAValue) {
    ASSERT_EQ(parse("[s]\nk = a\n\n  j = b\n"), OX_OK);
    EXPECT_EQ(value("s", "k"), "a");
    EXPECT_EQ(value("s", "j"), "b");
}

TEST_F(ConfigText, CarriageReturnsBeforeLineEndsAreIgnored) {
    ASSERT_EQ(parse("[s]\r\nk = v\r\n  w\r\nlast = z"), OX_OK);
    EXPECT_EQ(value("s", "k"), "v\nw");
    EXPECT_EQ(value("s", "last"), "z");
}

TEST_F(ConfigText, SectionWithoutKeysIsKept) {
    ASSERT_EQ(parse("[empty]\n[full]\nk = v"), OX_OK);
    ASSERT_NE(section("empty"), nullptr);
    EXPECT_EQ(section("empty")->count, 0);
}

TEST_F(ConfigText, EmptyTextGivesAnEmptyDictionary) {
    ASSERT_EQ(parse(""), OX_OK);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->count, 0);
}

TEST_F(ConfigText, ByteOrderMarkIsSkipped) {
    ASSERT_EQ(parse("\xEF\xBB\xBF[default]\nregion = x\n"), OX_OK);
    EXPECT_EQ(value("default", "region"), "x");
}

TEST_F(ConfigText, MissingArgumentsAreRefused) {
    EXPECT_EQ(svc->parseConfigText(svc, pool, nullptr, 3, &result, &line), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->parseConfigText(svc, pool, "", 0, nullptr, &line), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->parseConfigText(svc, nullptr, "", 0, &result, &line), OX_INVALID_ARGUMENT);
    EXPECT_EQ(result, nullptr);
}

// ---- syntax errors: the status, the line, and nothing left behind

struct BadText {
    const char* label;
    const char* text;
    OXStatus status;
    int64_t line;
};

constexpr BadText kBadTexts[] = {
    {"words without equals", "[s]\nk = v\njust words\n", OX_CONFIG_BAD_LINE, 3},
    {"empty key", "[s]\n= value\n", OX_CONFIG_BAD_LINE, 2},
    {"after a continuation", "[s]\nk = a\n  b\n  c\noops\n", OX_CONFIG_BAD_LINE, 5},
    {"with CRLF line ends", "[s]\r\nk=v\r\nbad\r\n", OX_CONFIG_BAD_LINE, 3},
    {"unclosed header", "[profile x\nk = v\n", OX_CONFIG_BAD_SECTION, 1},
    {"empty header", "k = v\n\n[]\n", OX_CONFIG_BAD_SECTION, 3},
    {"blank header", "[s]\n[  ]\n", OX_CONFIG_BAD_SECTION, 2},
    {"text after header", "[s] trailing\n", OX_CONFIG_BAD_SECTION, 1},
};

class ConfigSyntax : public ConfigReader, public ::testing::WithParamInterface<BadText> {};

TEST_P(ConfigSyntax, ReportsStatusAndLineAndReturnsNothing) {
    const BadText& bad = GetParam();
    EXPECT_EQ(parse(bad.text), bad.status);
    EXPECT_EQ(line, bad.line);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

INSTANTIATE_TEST_SUITE_P(BadLines, ConfigSyntax, ::testing::ValuesIn(kBadTexts),
                         [](const ::testing::TestParamInfo<BadText>& info) {
                             std::string name;
                             for (const char* c = info.param.label; *c; ++c)
                                 if (std::isalnum(static_cast<unsigned char>(*c))) name += *c;
                             return name;
                         });

TEST_F(ConfigText, OutOfMemoryAnywhereReturnsNothing) {
    const std::string_view text = "[a]\nk = v\n  more\n[b]\nx = 1\ny = 2\n[a]\nz = 3\n";
    for (int64_t budget = 0;; ++budget) {
        oxPoolFailAfter(pool, budget);
        OXStatus st = parse(text);
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

// ---- files

class ConfigFile : public ConfigReader {
protected:
    void SetUp() override {
        ConfigReader::SetUp();
        std::string tmpl = (fs::temp_directory_path() / "oxcfgXXXXXX").string();
        ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
        dir = tmpl;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir, ec);
        ConfigReader::TearDown();
    }
    std::string write(const std::string& name, std::string_view text) {
        std::string path = (dir / name).string();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    OXStatus read(const std::string& path) { return svc->readConfigFile(svc, pool, path.c_str(), &result, &line); }

    fs::path dir;
};

TEST_F(ConfigFile, ReadsTheFileItNames) {
    ASSERT_EQ(read(write("credentials", "[default]\naws_access_key_id = AKID\n")), OX_OK);
    EXPECT_EQ(value("default", "aws_access_key_id"), "AKID");
}

TEST_F(ConfigFile, LargeFileIsReadWhole) {
    std::string text = "[big]\n";
    for (int i = 0; i < 5000; ++i) text += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    ASSERT_EQ(read(write("big", text)), OX_OK);
    EXPECT_EQ(section("big")->count, 5000);
    EXPECT_EQ(value("big", "key4999"), "value 4999");
}

TEST_F(ConfigFile, SyntaxErrorGivesItsLine) {
    EXPECT_EQ(read(write("config", "[default]\nregion = x\n\n[profile broken\n")), OX_CONFIG_BAD_SECTION);
    EXPECT_EQ(line, 4);
    EXPECT_EQ(result, nullptr);
}

TEST_F(ConfigFile, MissingFileIsNotFound) {
    EXPECT_EQ(read((dir / "absent").string()), OX_FILE_NOT_FOUND);
    EXPECT_EQ(line, 0);
    EXPECT_EQ(result, nullptr);
}

TEST_F(ConfigFile, PathThroughAFileIsNotFound) {
    std::string file = write("plain", "k = v\n");
    EXPECT_EQ(read(file + "/inside"), OX_FILE_NOT_FOUND);
}

TEST_F(ConfigFile, DirectoryCannotBeRead) {
    EXPECT_EQ(read(dir.string()), OX_FILE_IO_ERROR);
    EXPECT_EQ(result, nullptr);
}

TEST_F(ConfigFile, UnreadableFileIsAccessDenied) {
    if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop root from reading";
    std::string path = write("secret", "k = v\n");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    EXPECT_EQ(read(path), OX_FILE_ACCESS_DENIED);
    EXPECT_EQ(result, nullptr);
}

}  // namespace
