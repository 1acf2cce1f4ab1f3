// The JSON reader: documents of every shape become dictionaries, arrays and UTF-8 strings;
// bad documents give a status and the byte offset of the fault, and leave nothing behind.
#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

OXInstance* const kUntouched = reinterpret_cast<OXInstance*>(0x1);

std::string_view textOf(const OXInstance* inst) {
    auto* s = reinterpret_cast<const OXU8String*>(inst);
    return {s->stg, s->len};
}

OXDictionary asDict(OXInstance* inst) { return reinterpret_cast<OXDictionary>(inst); }
OXArray asArray(OXInstance* inst) { return reinterpret_cast<OXArray>(inst); }

class JsonReader : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(json); }
    void TearDown() override {
        if (root && root != kUntouched) root->destroy(root);
    }

    OXStatus parse(std::string_view text) {
        if (root && root != kUntouched) root->destroy(root);
        root = kUntouched;
        offset = -1;
        return json->parse(json.get(), pool, text.data(), text.size(), &root, &offset);
    }

    OXInstance* member(OXInstance* dict, std::string_view name) {
        OXInstance* v = nullptr;
        EXPECT_EQ(asDict(dict)->getValueU8(asDict(dict), name.data(), name.size(), &v), OX_OK) << name;
        return v;
    }
    std::string_view text(OXInstance* dict, std::string_view name) {
        OXInstance* v = member(dict, name);
        return v ? textOf(v) : std::string_view("<missing>");
    }
    static std::vector<std::string_view> texts(OXInstance* array) {
        std::vector<std::string_view> out;
        OXArray a = asArray(array);
        for (int64_t i = 0; i < a->count; ++i) out.push_back(textOf(a->items[i]));
        return out;
    }
    bool is(OXInstance* inst, const char* type) { return inst && inst->isType(inst, type); }

    oxtest::Service<OXInstJSON_S> json{"oxinstjson"};
    oxtest::TestPool pool;
    OXInstance* root = nullptr;
    int64_t offset = -1;
};

using Texts = std::vector<std::string_view>;

// ---- shapes

TEST_F(JsonReader, ObjectBecomesADictionaryOfItsMembers) {
    ASSERT_EQ(parse(R"({"AccessKeyId":"AKIDEXAMPLE","Code":"Success"})"), OX_OK);
    ASSERT_TRUE(is(root, OX_TYPE_DICTIONARY));
    EXPECT_EQ(asDict(root)->count, 2);
    EXPECT_EQ(text(root, "AccessKeyId"), "AKIDEXAMPLE");
    EXPECT_EQ(text(root, "Code"), "Success");
    EXPECT_TRUE(is(member(root, "Code"), OX_TYPE_U8STRING));
}

TEST_F(JsonReader, MemberNamesAreCaseSensitive) {
    ASSERT_EQ(parse(R"({"Token":"a","token":"b"})"), OX_OK);
    EXPECT_TRUE(asDict(root)->caseSensitive);
    EXPECT_EQ(asDict(root)->count, 2);
    EXPECT_EQ(text(root, "Token"), "a");
    EXPECT_EQ(text(root, "token"), "b");
}

TEST_F(JsonReader, RepeatedMemberKeepsTheLastValue) {
    ASSERT_EQ(parse(R"({"k":"first","k":"second"})"), OX_OK);
    EXPECT_EQ(asDict(root)->count, 1);
    EXPECT_EQ(text(root, "k"), "second");
}

TEST_F(JsonReader, ArrayKeepsItsOrder) {
    ASSERT_EQ(parse(R"(["c","a","b"])"), OX_OK);
    ASSERT_TRUE(is(root, OX_TYPE_ARRAY));
    EXPECT_EQ(texts(root), (Texts{"c", "a", "b"}));
}

TEST_F(JsonReader, EmptyContainersAreEmpty) {
    ASSERT_EQ(parse(R"({"o":{},"a":[]})"), OX_OK);
    EXPECT_EQ(asDict(member(root, "o"))->count, 0);
    EXPECT_EQ(asArray(member(root, "a"))->count, 0);
}

TEST_F(JsonReader, NestedContainersHangFromTheirParents) {
    ASSERT_EQ(parse(R"( { "roles" : [ {"name":"r1","tags":["x","y"]}, [ "z" ] ], "meta" : {"depth":{"n":"2"}} } )"),
              OX_OK);
    OXInstance* roles = member(root, "roles");
    ASSERT_TRUE(is(roles, OX_TYPE_ARRAY));
    ASSERT_EQ(asArray(roles)->count, 2);
    OXInstance* first = asArray(roles)->items[0];
    ASSERT_TRUE(is(first, OX_TYPE_DICTIONARY));
    EXPECT_EQ(text(first, "name"), "r1");
    EXPECT_EQ(texts(member(first, "tags")), (Texts{"x", "y"}));
    EXPECT_EQ(texts(asArray(roles)->items[1]), Texts{"z"});
    EXPECT_EQ(text(member(member(root, "meta"), "depth"), "n"), "2");
}

TEST_F(JsonReader, TopLevelScalarIsTheResult) {
    ASSERT_EQ(parse(R"("just text")"), OX_OK);
    EXPECT_TRUE(is(root, OX_TYPE_U8STRING));
    EXPECT_EQ(textOf(root), "just text");
    ASSERT_EQ(parse(" 42 "), OX_OK);
    EXPECT_EQ(textOf(root), "42");
    ASSERT_EQ(parse("7"), OX_OK);
    EXPECT_EQ(textOf(root), "7");
}

// ---- values

TEST_F(JsonReader, EscapesBecomeTheirCharacters) {
    ASSERT_EQ(parse(R"(["\"\\\/\b\f\n\r\t", "caf\u00e9", "\u20ac", "a\u0000b"])"), OX_OK);
    EXPECT_EQ(texts(root), (Texts{"\"\\/\b\f\n\r\t", "caf\xC3\xA9", "\xE2\x82\xAC", std::string_view("a\0b", 3)}));
}

TEST_F(JsonReader, SurrogatePairBecomesOneFourByteCharacter) {
    ASSERT_EQ(parse(R"(["\ud83d\ude00", "\uD834\uDD1E"])"), OX_OK);
    EXPECT_EQ(texts(root), (Texts{"\xF0\x9F\x98\x80", "\xF0\x9D\x84\x9E"}));
}

TEST_F(JsonReader, RawUtf8PassesThrough) {
    ASSERT_EQ(parse("[\"gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80\"]"), OX_OK);
    EXPECT_EQ(texts(root), Texts{"gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80"});
}

TEST_F(JsonReader, NumbersKeepTheirSourceText) {
    ASSERT_EQ(parse("[0,-0,42,-17,3.25,1e10,-2.5E-3,1E+2,18446744073709551615,18446744073709551616,"
                    "-9223372036854775809,123456789012345678901234567890, 6 ,0.0]"),
              OX_OK);
    EXPECT_EQ(texts(root), (Texts{"0", "-0", "42", "-17", "3.25", "1e10", "-2.5E-3", "1E+2", "18446744073709551615",
                                  "18446744073709551616", "-9223372036854775809", "123456789012345678901234567890", "6",
                                  "0.0"}));
}

TEST_F(JsonReader, NumbersAsMemberValues) {
    ASSERT_EQ(parse(R"({"Expiration":1700000000,"ratio":0.5,"neg":-3})"), OX_OK);
    EXPECT_EQ(text(root, "Expiration"), "1700000000");
    EXPECT_EQ(text(root, "ratio"), "0.5");
    EXPECT_EQ(text(root, "neg"), "-3");
}

TEST_F(JsonReader, LiteralsBecomeTheirText) {
    ASSERT_EQ(parse(R"([true,false,null])"), OX_OK);
    EXPECT_EQ(texts(root), (Texts{"true", "false", "null"}));
    EXPECT_TRUE(is(asArray(root)->items[2], OX_TYPE_U8STRING));
}

// ---- malformed documents

struct Malformed {
    const char* what;
    std::string text;
    int64_t offset;
};

class MalformedJson : public JsonReader, public ::testing::WithParamInterface<Malformed> {};

TEST_P(MalformedJson, IsRefusedAtTheFaultWithNothingBuilt) {
    EXPECT_EQ(parse(GetParam().text), OX_JSON_MALFORMED);
    EXPECT_EQ(offset, GetParam().offset);
    EXPECT_EQ(root, kUntouched);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, MalformedJson,
    ::testing::Values(Malformed{"empty text", "", 0}, Malformed{"only spaces", "   ", 3},
                      Malformed{"trailing comma", R"(["a",])", 5}, Malformed{"missing colon", R"({"a" "b"})", 5},
                      Malformed{"missing comma", R"(["a" "b"])", 5}, Malformed{"number after number", "[1 2]", 3},
                      Malformed{"literal after member", R"({"a":1 true})", 7}, Malformed{"unclosed object", R"({"a":"b")", 8},
                      Malformed{"unclosed string", R"(["abc)", 5}, Malformed{"cut literal", "[tru", 4},
                      Malformed{"misspelt literal", "[nul1]", 4}, Malformed{"single quotes", "{'a':1}", 1},
                      Malformed{"bare name", "{a:1}", 1}, Malformed{"text after the document", R"({} x)", 3},
                      Malformed{"second document", R"({}{})", 2}, Malformed{"unknown escape", R"(["\x"])", 3},
                      Malformed{"control character in string", "[\"a\x01\"]", 3},
                      Malformed{"invalid UTF-8 in string", "[\"\xFF\"]", 2},
                      Malformed{"lone high surrogate", R"(["\ud800"])", 8},
                      Malformed{"lone low surrogate", R"(["\udc00"])", 7},
                      Malformed{"leading plus", "[+1]", 1}, Malformed{"cut exponent", "[1e]", 3},
                      Malformed{"mismatched bracket", R"({"a":[1})", 7}, Malformed{"comment", "[1 /* c */]", 3}),
    [](const auto& info) {
        std::string name;
        for (char c : std::string(info.param.what)) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        return name;
    });

// ---- depth

std::string nested(int levels, char open, char close) { return std::string(levels, open) + std::string(levels, close); }

TEST_F(JsonReader, NestingUpToTheLimitIsRead) {
    ASSERT_EQ(parse(nested(256, '[', ']')), OX_OK);
    OXInstance* inner = root;
    int depth = 1;
    while (asArray(inner)->count == 1) {
        inner = asArray(inner)->items[0];
        ++depth;
    }
    EXPECT_EQ(depth, 256);
}

TEST_F(JsonReader, NestingPastTheLimitIsRefusedAtTheBracket) {
    EXPECT_EQ(parse(nested(257, '[', ']')), OX_JSON_TOO_DEEP);
    EXPECT_EQ(offset, 256);
    EXPECT_EQ(root, kUntouched);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(JsonReader, DeepObjectsCountToo) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += R"({"a":)";
    text += "1" + std::string(300, '}');
    EXPECT_EQ(parse(text), OX_JSON_TOO_DEEP);
    EXPECT_EQ(offset, 256 * 5);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(JsonReader, HugeNestingFailsCleanly) {
    EXPECT_EQ(parse(nested(100000, '[', ']')), OX_JSON_TOO_DEEP);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

// ---- failures and arguments

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

TEST_F(JsonReader, OffsetIsOptional) {
    EXPECT_EQ(json->parse(json.get(), pool, "[", 1, &root, nullptr), OX_JSON_MALFORMED);
}

TEST_F(JsonReader, MissingArgumentsAreRefused) {
    EXPECT_EQ(json->parse(json.get(), nullptr, "[]", 2, &root, &offset), OX_INVALID_ARGUMENT);
    EXPECT_EQ(json->parse(json.get(), pool, nullptr, 2, &root, &offset), OX_INVALID_ARGUMENT);
    EXPECT_EQ(json->parse(json.get(), pool, "[]", 2, nullptr, &offset), OX_INVALID_ARGUMENT);
    EXPECT_EQ(root, nullptr);
    EXPECT_EQ(offset, -1);
}

TEST_F(JsonReader, TheInstanceServiceCarriesAWorkingReader) {
    oxtest::Service<OXStringExt_S> strings("oxstring");
    ASSERT_TRUE(strings);
    OXInstJSON_S* reader = strings->oxinstance->oxinstjson;
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->parse(reader, pool, R"({"a":["b"]})", 11, &root, nullptr), OX_OK);
    EXPECT_EQ(texts(member(root, "a")), Texts{"b"});
}

}  // namespace
