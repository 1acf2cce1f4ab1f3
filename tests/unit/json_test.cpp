// The JSON reader: documents of every shape become dictionaries, arrays and UTF-8 strings;
// bad documents give a status and the byte offset of the fault, and leave nothing behind.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

using Texts = std::vector<std::string_view>;
OXInstance* const kUntouched = reinterpret_cast<OXInstance*>(0x1);

std::string_view textOf(const OXInstance* inst) {
    auto* s = reinterpret_cast<const OXU8String*>(inst);
    return {s->stg, s->len};
}
OXDictionary asDict(OXInstance* inst) { return reinterpret_cast<OXDictionary>(inst); }
OXArray asArray(OXInstance* inst) { return reinterpret_cast<OXArray>(inst); }
bool is(OXInstance* inst, const char* type) { return inst && inst->isType(inst, type); }

OXInstance* member(OXInstance* dict, std::string_view name) {
    OXInstance* v = nullptr;
    EXPECT_EQ(asDict(dict)->getValueU8(asDict(dict), name.data(), name.size(), &v), OX_OK) << name;
    return v;
}
std::string_view text(OXInstance* dict, std::string_view name) {
    OXInstance* v = member(dict, name);
    return is(v, OX_TYPE_U8STRING) ? textOf(v) : std::string_view("<not a string>");
}
Texts texts(OXInstance* array) {
    Texts out;
    if (!is(array, OX_TYPE_ARRAY)) return out;
    for (int64_t i = 0; i < asArray(array)->count; ++i) out.push_back(textOf(asArray(array)->items[i]));
    return out;
}

class JsonReader : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(json); }
    void TearDown() override {
        oxPoolFailAfter(pool, -1);
        if (root && root != kUntouched) root->destroy(root);
    }
    OXStatus parse(std::string_view text) {
        if (root && root != kUntouched) root->destroy(root);
        root = kUntouched;
        offset = -1;
        return json->parse(json.get(), pool, text.data(), text.size(), &root, &offset);
    }

    oxtest::Service<OXInstJSON_S> json{"oxinstjson"};
    oxtest::TestPool pool;
    OXInstance* root = nullptr;
    int64_t offset = -1;
};

TEST_F(JsonReader, ObjectsAndArraysNestWithCaseSensitiveMembersAndTheLastRepeatWinning) {
    ASSERT_EQ(parse(R"( { "roles" : [ {"name":"r1","tags":["x","y"]}, [ "z" ] ], "Token":"a", "token":"b",
                       "k":"first", "k":"second", "o":{}, "a":[], "n": 1700000000 } )"),
              OX_OK);
    ASSERT_TRUE(is(root, OX_TYPE_DICTIONARY));
    EXPECT_TRUE(asDict(root)->caseSensitive);
    EXPECT_EQ(asDict(root)->count, 7);
    EXPECT_EQ(text(root, "n"), "1700000000");
    EXPECT_EQ(text(root, "Token"), "a");
    EXPECT_EQ(text(root, "token"), "b");
    EXPECT_EQ(text(root, "k"), "second");
    EXPECT_EQ(asDict(member(root, "o"))->count, 0);
    EXPECT_EQ(asArray(member(root, "a"))->count, 0);
    OXInstance* roles = member(root, "roles");
    ASSERT_TRUE(is(roles, OX_TYPE_ARRAY));
    ASSERT_EQ(asArray(roles)->count, 2);
    OXInstance* first = asArray(roles)->items[0];
    ASSERT_TRUE(is(first, OX_TYPE_DICTIONARY));
    EXPECT_EQ(text(first, "name"), "r1");
    EXPECT_EQ(texts(member(first, "tags")), (Texts{"x", "y"}));
    EXPECT_EQ(texts(asArray(roles)->items[1]), Texts{"z"});
}

TEST_F(JsonReader, ScalarsBecomeTheirTextInOrder) {
    ASSERT_EQ(parse(R"(["\"\\\/\b\f\n\r\t", "caf\u00e9", "a\u0000b", "\ud83d\ude00", "\uD834\uDD1E",)"
                    "\"gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80\","
                    "0,-0,-17,3.25,-2.5E-3,1E+2,18446744073709551616,123456789012345678901234567890, 6 ,"
                    "true,false,null]"),
              OX_OK);
    EXPECT_EQ(texts(root), (Texts{"\"\\/\b\f\n\r\t", "caf\xC3\xA9", std::string_view("a\0b", 3), "\xF0\x9F\x98\x80",
                                  "\xF0\x9D\x84\x9E", "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80", "0", "-0", "-17", "3.25",
                                  "-2.5E-3", "1E+2", "18446744073709551616", "123456789012345678901234567890", "6",
                                  "true", "false", "null"}));
    for (auto [top, value] : {std::pair{R"("just text")", "just text"}, {" 42 ", "42"}, {"7", "7"}}) {
        ASSERT_EQ(parse(top), OX_OK) << top;
        ASSERT_TRUE(is(root, OX_TYPE_U8STRING));
        EXPECT_EQ(textOf(root), value);
    }
}

TEST_F(JsonReader, MalformedDocumentIsRefusedAtTheFaultWithNothingBuilt) {
    const std::pair<std::string, int64_t> cases[] = {  // the text and the offset of its fault
        {"", 0}, {"   ", 3}, {R"(["a",])", 5}, {R"({"a" "b"})", 5}, {R"(["a" "b"])", 5}, {R"({"a":1 true})", 7},
        {R"({"a":"b")", 8}, {R"(["abc)", 5}, {"[tru", 4}, {"[nul1]", 4}, {"{'a':1}", 1}, {"{a:1}", 1},
        {R"({} x)", 3}, {R"({}{})", 2}, {R"(["\x"])", 3}, {"[\"a\x01\"]", 3}, {"[\"\xFF\"]", 2},
        {R"(["\ud800"])", 8}, {R"(["\udc00"])", 7}, {"[+1]", 1}, {"[1e]", 3}, {R"({"a":[1})", 7},
        {"[1 /* c */]", 3},
    };
    for (const auto& [text, at] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(parse(text), OX_JSON_MALFORMED);
        EXPECT_EQ(offset, at);
        EXPECT_EQ(root, kUntouched);
        EXPECT_EQ(pool->blocksInUse(pool), 0u);
    }
}

TEST_F(JsonReader, NestingIsReadTo256LevelsAndRefusedBeyond) {
    ASSERT_EQ(parse(std::string(256, '[') + std::string(256, ']')), OX_OK);
    int depth = 1;
    for (OXInstance* inner = root; asArray(inner)->count == 1; inner = asArray(inner)->items[0]) ++depth;
    EXPECT_EQ(depth, 256);

    std::string objects;
    for (int i = 0; i < 300; ++i) objects += R"({"a":)";
    const std::pair<std::string, int64_t> tooDeep[] = {
        {std::string(257, '[') + std::string(257, ']'), 256},
        {objects + std::string(1, '1') + std::string(300, '}'), 256 * 5},  // objects count too
        {std::string(100000, '[') + std::string(100000, ']'), 256},
    };
    for (const auto& [doc, at] : tooDeep) {
        EXPECT_EQ(parse(doc), OX_JSON_TOO_DEEP);
        EXPECT_EQ(offset, at);
        EXPECT_EQ(root, kUntouched);
        EXPECT_EQ(pool->blocksInUse(pool), 0u);
    }
}

TEST_F(JsonReader, EveryAllocationFailureReleasesWhatWasBuilt) {
    const std::string doc = R"({"Code":"Success","Roles":[{"n":1},{"n":true}],"Token":"x","Deep":[[["y"]]]})";
    OXStatus st = OX_NO_MEMORY;
    int64_t countdown = 0;
    for (; st == OX_NO_MEMORY && countdown < 500; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        st = parse(doc);
        oxPoolFailAfter(pool, -1);
        if (st == OX_NO_MEMORY) {
            ASSERT_EQ(root, kUntouched) << "after " << countdown << " allocations";
            ASSERT_EQ(pool->blocksInUse(pool), 0u) << "after " << countdown << " allocations";
        }
    }
    ASSERT_EQ(st, OX_OK);
    EXPECT_GT(countdown, 10);
    EXPECT_EQ(text(root, "Token"), "x");
}

TEST_F(JsonReader, MissingArgumentsAreRefusedButTheOffsetIsOptional) {
    root = nullptr;
    EXPECT_EQ(json->parse(json.get(), pool, nullptr, 2, &root, &offset), OX_INVALID_ARGUMENT);
    EXPECT_EQ(json->parse(json.get(), pool, "[]", 2, nullptr, &offset), OX_INVALID_ARGUMENT);
    EXPECT_TRUE(root == nullptr && offset == -1);
    EXPECT_EQ(json->parse(json.get(), pool, "[", 1, &root, nullptr), OX_JSON_MALFORMED);
}

}  // namespace
