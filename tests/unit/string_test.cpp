// The string service: reference counts, static strings, growth, conversions, and release of
// everything on allocation failure; the UTF-8 / UTF-32 codec underneath.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

std::string_view textOf(const OXU8String* s) { return {s->stg, s->len}; }
std::u32string_view textOf(const OXString* s) { return {reinterpret_cast<const char32_t*>(s->stg), size_t(s->len)}; }
const OXChar* chars(std::u32string_view s) { return reinterpret_cast<const OXChar*>(s.data()); }
template <class T>
T** as(void** out) { return reinterpret_cast<T**>(out); }

class StringService : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(svc); }
    void TearDown() override { oxPoolFailAfter(pool, -1); }
    OXU8String* make(std::string_view text, uint32_t flags = OX_STR_COPY) {
        OXU8String* s = nullptr;
        EXPECT_EQ(svc->createU8(svc.get(), pool, text.data(), text.size(), flags, &s), OX_OK);
        return s;
    }
    static void drop(void* s) { static_cast<OXInstance*>(s)->destroy(s); }

    oxtest::Service<OXStringExt_S> svc{"oxstring"};
    oxtest::TestPool pool;
};

TEST_F(StringService, CopiesOwnTheirBytesAndTheLastReferenceFreesThem) {
    char source[] = "bucket-name";
    OXU8String* copy = make(source);
    OXU8String* referring = make(source, 0);  // refers to the caller's bytes until its first change
    EXPECT_EQ(referring->stg, source);
    source[0] = 'X';
    EXPECT_EQ(textOf(copy), "bucket-name");
    EXPECT_EQ(copy->stg[copy->len], '\0');
    ASSERT_EQ(svc->appendU8(referring, "-2", 2), OX_OK);
    EXPECT_EQ(textOf(referring), "Xucket-name-2");
    EXPECT_STREQ(source, "Xucket-name");
    drop(referring);
    OXInstance* inst = nullptr;
    ASSERT_EQ(svc->toInstance(copy, &inst), OX_OK);  // an owned string is its own instance
    EXPECT_EQ(inst, &copy->instance);
    svc->retain(inst);
    drop(copy);
    drop(copy);
    EXPECT_EQ(pool->blocksInUse(pool), 2u);
    drop(copy);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(StringService, StaticStringUsesCallerBytesAndItsInstanceIsAnOwnedCopy) {
    char bytes[8] = "static";
    OXU8String s;
    std::memset(&s, 0xA5, sizeof s);
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    EXPECT_TRUE(s.stg == bytes && s.pool == nullptr && s.instance.refCount == 1);
    EXPECT_EQ(svc->appendU8(&s, "x", 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->setU8(&s, "x", 1), OX_INVALID_ARGUMENT);
    for (OX_POOL_S* owner : {static_cast<OX_POOL_S*>(pool), static_cast<OX_POOL_S*>(nullptr)}) {
        s.pool = owner;
        OXInstance* inst = nullptr;
        ASSERT_EQ(svc->toInstance(&s, &inst), OX_OK);
        EXPECT_EQ(pool->blocksInUse(pool), owner ? 2u : 0u);
        bytes[0] = 'X';
        EXPECT_EQ(textOf(reinterpret_cast<OXU8String*>(inst)), "static");
        bytes[0] = 's';
        drop(inst);
    }
    s.instance.destroy(&s);
    s.instance.destroy(&s);
    EXPECT_STREQ(bytes, "static");
    OXString w{};
    svc->initStatic(svc.get(), &w, chars(U"name"), 4);
    EXPECT_EQ(svc->append(&w, chars(U"x"), 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(textOf(&w), U"name");
}

TEST_F(StringService, AppendAndSetGrowGeometricallyAndSurviveTheirOwnBytes) {
    OXU8String* s = nullptr;
    ASSERT_EQ(svc->createU8Empty(svc.get(), pool, 50, &s), OX_OK);
    const char* before = s->stg;
    std::string expected(50, '7');
    ASSERT_EQ(svc->appendU8(s, expected.data(), 50), OX_OK);
    EXPECT_EQ(s->stg, before) << "the room asked for is there";
    std::set<UTF8ByteLength> capacities;
    for (int i = 0; i < 5000; ++i) {
        char c = static_cast<char>('a' + i % 26);
        ASSERT_EQ(svc->appendU8(s, &c, 1), OX_OK);
        expected.push_back(c);
        ASSERT_EQ(s->stg[s->len], '\0');
        capacities.insert(s->allocSize);
    }
    EXPECT_LE(capacities.size(), 10u) << "each growth should at least double the room";
    for (int i = 0; i < 3; ++i) ASSERT_EQ(svc->appendU8(s, s->stg, s->len), OX_OK);
    for (int i = 0; i < 3; ++i) expected += expected;
    EXPECT_EQ(textOf(s), expected);
    ASSERT_EQ(svc->setU8(s, s->stg + 50, 6), OX_OK);
    EXPECT_EQ(textOf(s), "abcdef");
    ASSERT_EQ(svc->setU8(s, nullptr, 0), OX_OK);
    EXPECT_EQ(s->stg[0], '\0');
    drop(s);
}

TEST_F(StringService, WideStringsAndDataAreCopies) {
    std::u32string text = U"h\u00e9llo \U0001F600";
    OXString* w = nullptr;
    ASSERT_EQ(svc->create(svc.get(), pool, chars(text), 5, OX_STR_COPY, &w), OX_OK);
    ASSERT_EQ(svc->append(w, chars(text) + 5, 2), OX_OK);
    text[0] = U'X';
    EXPECT_EQ(textOf(w), U"h\u00e9llo \U0001F600");
    EXPECT_EQ(w->stg[w->len], 0u);
    EXPECT_EQ(svc->append(w, chars(text), -1), OX_INVALID_ARGUMENT);
    OXU8String* u8 = nullptr;
    ASSERT_EQ(svc->wideToU8(svc.get(), pool, w->stg, w->len, &u8), OX_OK);
    EXPECT_EQ(textOf(u8), "h\u00e9llo \U0001F600");
    unsigned char key[] = {0, 0xFF, 7};
    OXData* d = nullptr;
    ASSERT_EQ(svc->createData(svc.get(), pool, key, sizeof key, &d), OX_OK);
    key[0] = 1;
    EXPECT_TRUE(d->len == 3 && d->bytes[0] == 0 && d->bytes[1] == 0xFF && d->bytes[2] == 7);
    for (void* s : {static_cast<void*>(w), static_cast<void*>(u8), static_cast<void*>(d)}) drop(s);
}

TEST_F(StringService, BadInputMakesNothing) {
    void* out = reinterpret_cast<void*>(0x1);
    const OXChar surrogate[] = {'a', 0xD800};
    EXPECT_EQ(svc->u8ToWide(svc.get(), pool, "ab\xC3", 3, as<OXString>(&out)), OX_BAD_UTF8);
    EXPECT_EQ(svc->wideToU8(svc.get(), pool, surrogate, 2, as<OXU8String>(&out)), OX_BAD_CODE_POINT);
    EXPECT_EQ(svc->createU8(svc.get(), nullptr, "a", 1, OX_STR_COPY, as<OXU8String>(&out)), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->createU8(svc.get(), pool, nullptr, 4, OX_STR_COPY, as<OXU8String>(&out)), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->createU8(svc.get(), pool, "a", 1, OX_STR_COPY, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->appendU8(nullptr, "a", 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->toInstance(nullptr, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(out, reinterpret_cast<void*>(0x1));
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

// Each maker runs with the pool failing after 0, 1, 2... allocations until it succeeds. Every
// failure must report OX_NO_MEMORY, leave the output alone and leave nothing in the pool.
TEST_F(StringService, FailedAllocationsReleaseEverythingAndKeepOldContents) {
    OXU8String fixed{};
    svc->initStaticU8(svc.get(), &fixed, "header value", 12);
    fixed.pool = pool;
    const OXChar wide[] = {0x1F600, 'x'};
    const std::function<OXStatus(void**)> makers[] = {
        [&](void** o) { return svc->createU8(svc.get(), pool, "abc", 3, OX_STR_COPY, as<OXU8String>(o)); },
        [&](void** o) { return svc->createU8Empty(svc.get(), pool, 50, as<OXU8String>(o)); },
        [&](void** o) { return svc->u8ToWide(svc.get(), pool, "\xF0\x9F\x98\x80", 4, as<OXString>(o)); },
        [&](void** o) { return svc->wideToU8(svc.get(), pool, wide, 2, as<OXU8String>(o)); },
        [&](void** o) { return svc->createData(svc.get(), pool, "key", 3, as<OXData>(o)); },
        [&](void** o) { return svc->toInstance(&fixed, as<OXInstance>(o)); },
    };
    for (size_t m = 0; m < std::size(makers); ++m) {
        OXStatus st = OX_NO_MEMORY;
        for (int64_t countdown = 0; st == OX_NO_MEMORY && countdown < 16; ++countdown) {
            void* out = reinterpret_cast<void*>(0x1);
            oxPoolFailAfter(pool, countdown);
            st = makers[m](&out);
            oxPoolFailAfter(pool, -1);
            if (st == OX_OK) {
                drop(out);
                break;
            }
            EXPECT_TRUE(st == OX_NO_MEMORY && out == reinterpret_cast<void*>(0x1) && pool->blocksInUse(pool) == 0)
                << "maker " << m << " after " << countdown << " allocations: status " << std::hex << st;
        }
        EXPECT_EQ(st, OX_OK) << "maker " << m;
    }
    OXU8String* s = make("short");
    const std::string big(1000, 'b');
    oxPoolFailAfter(pool, 0);
    EXPECT_EQ(svc->appendU8(s, big.data(), big.size()), OX_NO_MEMORY);
    EXPECT_EQ(svc->setU8(s, big.data(), big.size()), OX_NO_MEMORY);
    oxPoolFailAfter(pool, -1);
    EXPECT_EQ(textOf(s), "short");
    drop(s);
}

// ---- the UTF-8 / UTF-32 codec

TEST(Utf32Codec, RoundTripsEveryEncodedLengthAtItsBoundaries) {
    const std::pair<std::u32string, std::string> samples[] = {
        {std::u32string(1, U'\0'), std::string(1, '\0')}, {U"\u007f", "\x7F"}, {U"\u0080", "\xC2\x80"},
        {U"\u07ff", "\xDF\xBF"}, {U"\u0800", "\xE0\xA0\x80"}, {U"\uffff", "\xEF\xBF\xBF"},
        {U"\U00010000", "\xF0\x90\x80\x80"}, {U"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
        {U"A\u00e9\u20ac\U0001F600", "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
    };
    for (const auto& [wide, u8] : samples) {
        std::string out(wide.size() * 4, '\0');
        size_t n = 0;
        ASSERT_EQ(oxzsU32ToU8(chars(wide), wide.size(), out.data(), out.size(), &n), OX_OK);
        EXPECT_EQ(out.substr(0, n), u8);
        std::u32string back(wide.size(), U'\0');
        ASSERT_EQ(oxzsU8ToU32(u8.data(), u8.size(), reinterpret_cast<OXChar*>(back.data()), back.size(), &n), OX_OK);
        EXPECT_EQ(back.substr(0, n), wide);
    }
}

TEST(Utf32Codec, InvalidTextIsRefusedWithoutWritingAnything) {
    const std::string badU8[] = {
        "\x80",                                                      // lone continuation byte
        "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",  // overlong, up to the bounds
        "\xED\xA0\x80", "\xED\xBF\xBF",                              // surrogates
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",              // beyond U+10FFFF and bad leads
        "\xF0\x9F\x98", "\xE2\x41\x82",                              // cut short, ASCII inside a sequence
    };
    OXChar out[16];
    for (const std::string& bytes : badU8) {
        const std::string text = "ok" + bytes + "ok";
        out[0] = 0xAAAAAAAAu;
        size_t written = 99;
        EXPECT_EQ(oxzsU8ToU32(text.data(), text.size(), out, 16, &written), OX_BAD_UTF8) << testing::PrintToString(bytes);
        EXPECT_EQ(oxzsU8ToU32(bytes.data(), bytes.size(), nullptr, 0, &written), OX_BAD_UTF8) << "at the very end";
        EXPECT_EQ(written, 99u);
        EXPECT_EQ(out[0], 0xAAAAAAAAu);
    }
    for (OXChar bad : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
        const OXChar wide[] = {'a', bad, 'b'};
        char u8[16] = "untouched";
        size_t written = 99;
        EXPECT_EQ(oxzsU32ToU8(wide, 3, u8, sizeof u8, &written), OX_BAD_CODE_POINT) << std::hex << bad;
        EXPECT_EQ(written, 99u);
        EXPECT_STREQ(u8, "untouched");
    }
}

TEST(Utf32Codec, ShortBufferReportsTheLengthNeededAndWritesNothing) {
    char out[4] = {'x', 'x', 'x', 'x'};
    size_t needed = 0;
    const OXChar text[] = {0x20AC, 0x20AC};
    EXPECT_EQ(oxzsU32ToU8(text, 2, out, sizeof out, &needed), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 6u);
    EXPECT_EQ(out[0], 'x');
    OXChar wide[1] = {7};
    EXPECT_EQ(oxzsU8ToU32("ab", 2, wide, 1, &needed), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, 2u);
    EXPECT_EQ(wide[0], 7u);
    EXPECT_EQ(oxzsU8ToU32(nullptr, 3, nullptr, 0, &needed), OX_INVALID_ARGUMENT);
    EXPECT_EQ(oxzsU8ToU32("abc", 3, nullptr, 0, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(oxzsU32ToU8(nullptr, 3, nullptr, 0, &needed), OX_INVALID_ARGUMENT);
}

}  // namespace
