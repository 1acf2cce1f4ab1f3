// The string service: reference counts, static strings, growth, conversions, and release of
// everything on allocation failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ox/instance.h"
#include "ox/string.h"
#include "testhost.h"

namespace {

std::string_view textOf(const OXU8String* s) { return {s->stg, s->len}; }
std::u32string_view textOf(const OXString* s) { return {reinterpret_cast<const char32_t*>(s->stg), size_t(s->len)}; }

class StringService : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(svc); }

    OXU8String* make(std::string_view text, uint32_t flags = OX_STR_COPY) {
        OXU8String* s = nullptr;
        EXPECT_EQ(svc->createU8(svc.get(), pool, text.data(), text.size(), flags, &s), OX_OK);
        return s;
    }
    static void drop(void* s) {
        if (s) static_cast<OXInstance*>(s)->destroy(s);
    }

    oxtest::Service<OXStringExt_S> svc{"oxstring"};
    oxtest::TestPool pool;
};

// ---- reference counting and ownership

TEST_F(StringService, CopyOwnsTerminatedBytesIndependentOfTheSource) {
    char source[] = "bucket-name";
    OXU8String* s = make(source);
    source[0] = 'X';
    EXPECT_EQ(textOf(s), "bucket-name");
    EXPECT_EQ(s->stg[s->len], '\0');
    EXPECT_TRUE(s->needsFree);
    EXPECT_FALSE(s->isStatic);
    EXPECT_EQ(s->encoding, NLS_CEI_UTF8);
    EXPECT_EQ(s->pool, pool.get());
    EXPECT_NE(s->extHandle, nullptr);
    EXPECT_TRUE(s->instance.isType(s, OX_TYPE_U8STRING));
    drop(s);
}

TEST_F(StringService, ReferringStringCopiesBeforeItsFirstChange) {
    const char source[] = "abc";
    OXU8String* s = make(source, 0);
    EXPECT_EQ(s->stg, source);
    EXPECT_FALSE(s->needsFree);
    ASSERT_EQ(svc->appendU8(s, "def", 3), OX_OK);
    EXPECT_EQ(textOf(s), "abcdef");
    EXPECT_STREQ(source, "abc");
    EXPECT_TRUE(s->needsFree);
    drop(s);
}

TEST_F(StringService, LastReferenceFreesBytesAndHeader) {
    OXU8String* s = make("value");
    svc->retain(&s->instance);
    EXPECT_EQ(s->instance.refCount, 2);
    drop(s);
    EXPECT_EQ(s->instance.refCount, 1);
    EXPECT_EQ(pool->blocksInUse(pool), 2u);
    drop(s);
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(StringService, InstanceOfAnOwnedStringIsTheStringItself) {
    OXU8String* s = make("x-amz-date");
    OXInstance* inst = nullptr;
    ASSERT_EQ(svc->toInstance(s, &inst), OX_OK);
    EXPECT_EQ(inst, &s->instance);
    EXPECT_EQ(s->instance.refCount, 2);
    drop(s);
    inst->destroy(inst);
}

// ---- static strings

class StaticString : public StringService {
protected:
    char bytes[8] = "static";
    OXU8String s{};
};

TEST_F(StaticString, PointsAtCallerBytesWithoutAllocating) {
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    EXPECT_EQ(s.stg, bytes);
    EXPECT_EQ(s.len, 6u);
    EXPECT_TRUE(s.isStatic);
    EXPECT_FALSE(s.needsFree);
    EXPECT_TRUE(s.instance.isType(&s, OX_TYPE_U8STRING));
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(StaticString, InitialisingClearsWhatTheHeaderHeld) {
    std::memset(&s, 0xA5, sizeof s);
    svc->initStaticU8(svc.get(), &s, bytes, 3);
    EXPECT_EQ(s.pool, nullptr);
    EXPECT_EQ(s.allocSize, 0u);
    EXPECT_EQ(s.instance.refCount, 1);
}

TEST_F(StaticString, RefusesChangesItCannotMake) {
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    EXPECT_EQ(svc->appendU8(&s, "x", 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->setU8(&s, "x", 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(textOf(&s), "static");
}

TEST_F(StaticString, DestroyingTwiceLeavesCallerBytesAlone) {
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    s.instance.destroy(&s);
    s.instance.destroy(&s);
    EXPECT_STREQ(bytes, "static");
    EXPECT_EQ(s.instance.refCount, 0);
    EXPECT_EQ(s.len, 0u);
}

TEST_F(StaticString, InstanceIsAnOwnedCopyInTheHeadersPool) {
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    s.pool = pool;
    OXInstance* inst = nullptr;
    ASSERT_EQ(svc->toInstance(&s, &inst), OX_OK);
    auto* copy = reinterpret_cast<OXU8String*>(inst);
    EXPECT_NE(copy, &s);
    EXPECT_FALSE(copy->isStatic);
    EXPECT_EQ(copy->pool, pool.get());
    bytes[0] = 'X';
    EXPECT_EQ(textOf(copy), "static");
    inst->destroy(inst);
}

TEST_F(StaticString, InstanceWithoutAPoolStillGetsAnOwnedCopy) {
    svc->initStaticU8(svc.get(), &s, bytes, 6);
    OXInstance* inst = nullptr;
    ASSERT_EQ(svc->toInstance(&s, &inst), OX_OK);
    EXPECT_EQ(textOf(reinterpret_cast<OXU8String*>(inst)), "static");
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    inst->destroy(inst);
}

// ---- growth and replacement

TEST_F(StringService, AppendGrowsGeometricallyAndStaysTerminated) {
    OXU8String* s = make("");
    std::string expected;
    std::set<UTF8ByteLength> capacities;
    for (int i = 0; i < 5000; ++i) {
        char c = static_cast<char>('a' + i % 26);
        ASSERT_EQ(svc->appendU8(s, &c, 1), OX_OK);
        expected.push_back(c);
        ASSERT_GT(s->allocSize, s->len);
        ASSERT_EQ(s->stg[s->len], '\0');
        capacities.insert(s->allocSize);
    }
    EXPECT_EQ(textOf(s), expected);
    EXPECT_LE(capacities.size(), 10u) << "each growth should at least double the room";
    drop(s);
}

TEST_F(StringService, AppendingTheStringToItselfSurvivesGrowth) {
    OXU8String* s = make("0123456789abcde");
    for (int i = 0; i < 6; ++i) ASSERT_EQ(svc->appendU8(s, s->stg, s->len), OX_OK);
    std::string expected = "0123456789abcde";
    for (int i = 0; i < 6; ++i) expected += expected;
    EXPECT_EQ(textOf(s), expected);
    drop(s);
}

TEST_F(StringService, SetReplacesContentsEvenFromItsOwnBytes) {
    OXU8String* s = make("Content-Length");
    ASSERT_EQ(svc->setU8(s, s->stg + 8, 6), OX_OK);
    EXPECT_EQ(textOf(s), "Length");
    ASSERT_EQ(svc->setU8(s, "a much longer replacement value than before", 43), OX_OK);
    EXPECT_EQ(textOf(s), "a much longer replacement value than before");
    ASSERT_EQ(svc->setU8(s, nullptr, 0), OX_OK);
    EXPECT_EQ(s->len, 0u);
    EXPECT_EQ(s->stg[0], '\0');
    drop(s);
}

TEST_F(StringService, EmptyStringHasTheRoomAskedFor) {
    OXU8String* s = nullptr;
    ASSERT_EQ(svc->createU8Empty(svc.get(), pool, 50, &s), OX_OK);
    EXPECT_EQ(s->len, 0u);
    EXPECT_EQ(s->stg[0], '\0');
    const char* before = s->stg;
    std::string fifty(50, '7');
    ASSERT_EQ(svc->appendU8(s, fifty.data(), fifty.size()), OX_OK);
    EXPECT_EQ(s->stg, before);
    EXPECT_EQ(textOf(s), fifty);
    drop(s);
}

TEST_F(StringService, MissingArgumentsAreRefused) {
    OXU8String* s = reinterpret_cast<OXU8String*>(0x1);
    EXPECT_EQ(svc->createU8(svc.get(), nullptr, "a", 1, OX_STR_COPY, &s), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->createU8(svc.get(), pool, nullptr, 4, OX_STR_COPY, &s), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->createU8(svc.get(), pool, "a", 1, OX_STR_COPY, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->appendU8(nullptr, "a", 1), OX_INVALID_ARGUMENT);
    EXPECT_EQ(svc->toInstance(nullptr, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(s, reinterpret_cast<OXU8String*>(0x1));
}

// ---- wide strings and data

TEST_F(StringService, WideStringsCopyAndAppend) {
    std::u32string text = U"h\u00e9llo";
    OXString* w = nullptr;
    ASSERT_EQ(svc->create(svc.get(), pool, reinterpret_cast<const OXChar*>(text.data()), OXStrSize(text.size()),
                          OX_STR_COPY, &w),
              OX_OK);
    std::u32string more = U" \U0001F600";
    ASSERT_EQ(svc->append(w, reinterpret_cast<const OXChar*>(more.data()), OXStrSize(more.size())), OX_OK);
    EXPECT_EQ(textOf(w), U"h\u00e9llo \U0001F600");
    EXPECT_EQ(w->stg[w->len], 0u);
    EXPECT_EQ(w->encoding, NLS_CEI_UTF32);
    EXPECT_TRUE(w->instance.isType(w, OX_TYPE_STRING));
    EXPECT_EQ(svc->append(w, reinterpret_cast<const OXChar*>(more.data()), -1), OX_INVALID_ARGUMENT);
    drop(w);
}

TEST_F(StringService, StaticWideStringNeedsNoPool) {
    const std::u32string text = U"name";
    OXString w{};
    svc->initStatic(svc.get(), &w, reinterpret_cast<const OXChar*>(text.data()), 4);
    EXPECT_TRUE(w.isStatic);
    EXPECT_EQ(textOf(&w), U"name");
    EXPECT_EQ(svc->append(&w, reinterpret_cast<const OXChar*>(text.data()), 1), OX_INVALID_ARGUMENT);
    w.instance.destroy(&w);
}

TEST_F(StringService, DataIsACopyOfTheBytes) {
    unsigned char key[32];
    for (int i = 0; i < 32; ++i) key[i] = static_cast<unsigned char>(i * 7);
    OXData* d = nullptr;
    ASSERT_EQ(svc->createData(svc.get(), pool, key, sizeof key, &d), OX_OK);
    key[0] = 0xFF;
    EXPECT_EQ(d->len, 32u);
    EXPECT_EQ(d->bytes[0], 0);
    EXPECT_EQ(d->bytes[31], static_cast<uint8_t>(31 * 7));
    EXPECT_TRUE(d->instance.isType(d, OX_TYPE_DATA));
    drop(d);
}

// ---- conversions through the service

TEST_F(StringService, ConvertsBetweenUtf8AndWideExactly) {
    const std::string u8 = "gr\u00fc\u00dfe \u20ac \U0001F600";
    OXString* w = nullptr;
    ASSERT_EQ(svc->u8ToWide(svc.get(), pool, u8.data(), u8.size(), &w), OX_OK);
    EXPECT_EQ(textOf(w), U"gr\u00fc\u00dfe \u20ac \U0001F600");
    OXU8String* back = nullptr;
    ASSERT_EQ(svc->wideToU8(svc.get(), pool, w->stg, w->len, &back), OX_OK);
    EXPECT_EQ(textOf(back), u8);
    EXPECT_EQ(back->stg[back->len], '\0');
    drop(w);
    drop(back);
}

TEST_F(StringService, InvalidTextConvertsToNothing) {
    OXString* w = reinterpret_cast<OXString*>(0x1);
    EXPECT_EQ(svc->u8ToWide(svc.get(), pool, "ab\xC3", 3, &w), OX_BAD_UTF8);
    EXPECT_EQ(w, reinterpret_cast<OXString*>(0x1));
    const OXChar surrogate[] = {'a', 0xD800};
    OXU8String* s = reinterpret_cast<OXU8String*>(0x1);
    EXPECT_EQ(svc->wideToU8(svc.get(), pool, surrogate, 2, &s), OX_BAD_CODE_POINT);
    EXPECT_EQ(s, reinterpret_cast<OXU8String*>(0x1));
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

// ---- running out of memory

// Runs op with the pool failing after 0, 1, 2... allocations until it succeeds. Every failure
// must report OX_NO_MEMORY, leave the output alone and leave nothing in the pool.
template <class Out, class Op>
Out* succeedDespiteFailures(OX_POOL_S* pool, Op op) {
    for (int64_t countdown = 0; countdown < 16; ++countdown) {
        Out* out = reinterpret_cast<Out*>(0x1);
        oxPoolFailAfter(pool, countdown);
        OXStatus st = op(&out);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) return out;
        EXPECT_EQ(st, OX_NO_MEMORY) << "after " << countdown << " allocations";
        EXPECT_EQ(out, reinterpret_cast<Out*>(0x1));
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after " << countdown << " allocations";
    }
    ADD_FAILURE() << "never succeeded";
    return nullptr;
}

TEST_F(StringService, FailedCreationsReleaseEverything) {
    drop(succeedDespiteFailures<OXU8String>(pool, [&](OXU8String** out) {
        return svc->createU8(svc.get(), pool, "abc", 3, OX_STR_COPY, out);
    }));
    drop(succeedDespiteFailures<OXU8String>(pool, [&](OXU8String** out) {
        return svc->createU8Empty(svc.get(), pool, 50, out);
    }));
    drop(succeedDespiteFailures<OXString>(pool, [&](OXString** out) {
        return svc->u8ToWide(svc.get(), pool, "\xF0\x9F\x98\x80", 4, out);
    }));
    const OXChar wide[] = {0x1F600, 'x'};
    drop(succeedDespiteFailures<OXU8String>(pool, [&](OXU8String** out) {
        return svc->wideToU8(svc.get(), pool, wide, 2, out);
    }));
    drop(succeedDespiteFailures<OXData>(pool, [&](OXData** out) {
        return svc->createData(svc.get(), pool, "key", 3, out);
    }));
}

TEST_F(StringService, FailedCopyOfAStaticStringReleasesEverything) {
    OXU8String s{};
    svc->initStaticU8(svc.get(), &s, "header value", 12);
    s.pool = pool;
    OXInstance* inst = succeedDespiteFailures<OXInstance>(pool, [&](OXInstance** out) { return svc->toInstance(&s, out); });
    ASSERT_NE(inst, nullptr);
    inst->destroy(inst);
}

TEST_F(StringService, FailedAppendKeepsTheOldContents) {
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

class Utf32Codec : public ::testing::Test {
protected:
    static std::u32string decode(std::string_view in) {
        size_t needed = 0;
        EXPECT_EQ(oxzsU8ToU32(in.data(), in.size(), nullptr, 0, &needed), in.empty() ? OX_OK : OX_BUFFER_TOO_SMALL);
        std::u32string out(needed, U'\0');
        size_t written = 0;
        EXPECT_EQ(oxzsU8ToU32(in.data(), in.size(), reinterpret_cast<OXChar*>(out.data()), out.size(), &written), OX_OK);
        EXPECT_EQ(written, needed);
        return out;
    }
    static std::string encode(std::u32string_view in) {
        std::string out(in.size() * 4, '\0');
        size_t written = 0;
        EXPECT_EQ(oxzsU32ToU8(reinterpret_cast<const OXChar*>(in.data()), in.size(), out.data(), out.size(), &written),
                  OX_OK);
        out.resize(written);
        return out;
    }
};

TEST_F(Utf32Codec, RoundTripsEveryEncodedLengthAtItsBoundaries) {
    const std::u32string samples[] = {
        std::u32string(1, U'\0'), U"\u007f", U"\u0080", U"\u07ff", U"\u0800", U"\uffff",
        U"\U00010000",            U"\U0010ffff", U"A\u00e9\u20ac\U0001F600",
    };
    for (const auto& wide : samples) EXPECT_EQ(decode(encode(wide)), wide);
}

TEST_F(Utf32Codec, EncodesFourByteSequencesAsUnicodeDoes) {
    EXPECT_EQ(encode(U"\U0001F600"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(encode(U"\U0010FFFF"), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(decode("\xF0\x90\x80\x80"), U"\U00010000");
}

struct BadSequence {
    const char* what;
    std::string bytes;
};

class InvalidUtf8 : public ::testing::TestWithParam<BadSequence> {};

TEST_P(InvalidUtf8, IsRefusedWithoutWritingAnything) {
    const std::string text = "ok" + GetParam().bytes + "ok";
    OXChar out[16];
    std::fill(std::begin(out), std::end(out), 0xAAAAAAAAu);
    size_t written = 99;
    EXPECT_EQ(oxzsU8ToU32(text.data(), text.size(), out, 16, &written), OX_BAD_UTF8) << GetParam().what;
    EXPECT_EQ(written, 99u);
    EXPECT_EQ(out[0], 0xAAAAAAAAu);
}

INSTANTIATE_TEST_SUITE_P(
    EveryClass, InvalidUtf8,
    ::testing::Values(BadSequence{"lone continuation byte", "\x80"}, BadSequence{"continuation run", "\xBF\xBF"},
                      BadSequence{"overlong two-byte C0", "\xC0\xAF"}, BadSequence{"overlong two-byte C1", "\xC1\xBF"},
                      BadSequence{"overlong three-byte", "\xE0\x80\xAF"},
                      BadSequence{"overlong three-byte just below U+0800", "\xE0\x9F\xBF"},
                      BadSequence{"overlong four-byte", "\xF0\x80\x80\xAF"},
                      BadSequence{"overlong four-byte just below U+10000", "\xF0\x8F\xBF\xBF"},
                      BadSequence{"high surrogate", "\xED\xA0\x80"}, BadSequence{"low surrogate", "\xED\xBF\xBF"},
                      BadSequence{"above U+10FFFF", "\xF4\x90\x80\x80"}, BadSequence{"lead F5", "\xF5\x80\x80\x80"},
                      BadSequence{"lead FF", "\xFF"}, BadSequence{"cut two-byte", "\xC3"},
                      BadSequence{"cut three-byte", "\xE2\x82"}, BadSequence{"cut four-byte", "\xF0\x9F\x98"},
                      BadSequence{"ASCII inside a sequence", "\xE2\x41\x82"}),
    [](const auto& info) {
        std::string name;
        for (char c : std::string(info.param.what)) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        return name;
    });

TEST_F(Utf32Codec, CutSequenceAtTheVeryEndIsRefused) {
    size_t written = 0;
    EXPECT_EQ(oxzsU8ToU32("\xF0\x9F\x98", 3, nullptr, 0, &written), OX_BAD_UTF8);
}

TEST_F(Utf32Codec, WideValuesThatAreNoCharactersAreRefused) {
    for (OXChar bad : {0xD800u, 0xDBFFu, 0xDC00u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
        const OXChar text[] = {'a', bad, 'b'};
        char out[16] = "untouched";
        size_t written = 99;
        EXPECT_EQ(oxzsU32ToU8(text, 3, out, sizeof out, &written), OX_BAD_CODE_POINT) << std::hex << bad;
        EXPECT_EQ(written, 99u);
        EXPECT_STREQ(out, "untouched");
    }
}

TEST_F(Utf32Codec, ShortBufferReportsTheLengthNeededAndWritesNothing) {
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
}

TEST_F(Utf32Codec, MissingArgumentsAreRefused) {
    size_t n = 0;
    EXPECT_EQ(oxzsU8ToU32(nullptr, 3, nullptr, 0, &n), OX_INVALID_ARGUMENT);
    EXPECT_EQ(oxzsU8ToU32("abc", 3, nullptr, 0, nullptr), OX_INVALID_ARGUMENT);
    EXPECT_EQ(oxzsU32ToU8(nullptr, 3, nullptr, 0, &n), OX_INVALID_ARGUMENT);
}

}  // namespace
