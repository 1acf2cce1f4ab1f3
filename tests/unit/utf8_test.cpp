// Caseless UTF-8: lower-casing in place, comparing, searching.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ox/handle.h"
#include "ox/status.h"
#include "ox/string.h"

namespace {

std::string lowered(std::string text) {
    oxzsu8Lower(text.data(), text.size());
    return text;
}

int compare(std::string_view a, std::string_view b) { return oxzsu8NormCompare(a.data(), a.size(), b.data(), b.size()); }

TEST(Utf8Lower, FoldsCapitalsThatKeepTheirLength) {
    const std::pair<std::string, std::string> cases[] = {
        {"My-Bucket.2024_X ÀÉÎÕÜÞ × ŁÓDŹ ŒUVRE Ÿ", "my-bucket.2024_x àéîõüþ × łódź œuvre ÿ"},
        {"ΑΘΉΝΑ ΌΛΥΜΠΟΣ МОСКВА ЁЖИК ЇЖАК", "αθήνα όλυμποσ москва ёжик їжак"},
        // İ lowers to ASCII "i", ẞ to ß and the Kelvin sign to "k": all shorter, so left alone.
        {"İ ẞ \u212A", "İ ẞ \u212A"},
        // Invalid bytes (stray, cut, overlong, surrogate) stay as they are.
        {"A\xFF" "B\xC3" "\xC0\x80" "C\xED\xA0\x80" "D\xC3", "a\xFF" "b\xC3" "\xC0\x80" "c\xED\xA0\x80" "d\xC3"},
        {"", ""},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(lowered(in), out);
    oxzsu8Lower(nullptr, 0);
}

TEST(Utf8Lower, NeverChangesLengthAndIsStableForEveryCharacter) {
    for (char32_t cp = 1; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        char bytes[4];
        size_t len = 0;
        ASSERT_EQ(oxzsU32ToU8(reinterpret_cast<const OXChar*>(&cp), 1, bytes, sizeof bytes, &len), OX_OK);
        const std::string once = lowered(std::string(bytes, len));
        ASSERT_EQ(once.size(), len) << "U+" << std::hex << static_cast<uint32_t>(cp);
        ASSERT_EQ(lowered(once), once) << "U+" << std::hex << static_cast<uint32_t>(cp);
    }
}

TEST(Utf8Compare, IgnoresCaseAndOrdersByFoldedCharacters) {
    const struct { const char *a, *b; int sign; } cases[] = {  // sign 2: any order, but not equal
        {"Content-Type", "content-TYPE", 0}, {"ÄÖÜ Straße", "äöü STRAßE", 0}, {"ΚΑΛΗΜΕΡΑ", "καλημερα", 0},
        {"apple", "Banana", -1}, {"Banana", "apple", 1}, {"abc", "ABCD", -1}, {"abcd", "ABC", 1}, {"", "", 0},
        {"z", "é", -1}, {"a\xFF", "A\xFF", 0}, {"a\xFF", "a\xFE", 2}, {"\xC3", "\xC3\xA4", 2},
        {"\xC3\xA4", "\xC3\x84\x80", 2},
    };
    for (const auto& c : cases) {
        int got = compare(c.a, c.b);
        EXPECT_TRUE(c.sign == 2 ? got != 0 : (got > 0) - (got < 0) == c.sign) << c.a << " vs " << c.b;
    }
}

TEST(Utf8Search, FindsExactOrCaselessNeverSplittingACharacter) {
    const struct { const char *text, *needle; size_t from; bool caseless; int64_t at; } cases[] = {
        {"a/b/c/b", "/b", 0, false, 1}, {"a/b/c/b", "/b", 2, false, 5}, {"a/b/c/b", "/B", 0, false, -1},
        {"abc", "abcd", 0, false, -1}, {"say Hello", "hELLO", 0, true, 4}, {"мир МИР", "мир", 1, true, 7},
        {"größe GRÖSSE GRÖßE", "GRÖßE", 1, true, 16}, {"abc", "x", 0, true, -1},
        {"abc", "", 2, false, 2}, {"abc", "", 3, true, 3},    // an empty needle matches where the search starts
        {"abc", "", 4, false, -1}, {"abc", "c", 9, true, -1},  // starting beyond the text finds nothing
        {"xÄ", "\xC3", 0, true, -1}, {"x\xC3", "\xC3", 0, true, 1},  // "Ä" is C3 84: no match for C3 alone
    };
    for (const auto& c : cases)
        EXPECT_EQ(oxzsu8IndexText(c.text, std::strlen(c.text), c.needle, std::strlen(c.needle), c.from, c.caseless), c.at)
            << c.text << " / " << c.needle << " from " << c.from;
}

}  // namespace
