// Caseless UTF-8: lower-casing in place, comparing, searching.
#include <gtest/gtest.h>

#include <string>

#include "ox/handle.h"

namespace {

std::string lowered(std::string text) {
    oxzsu8Lower(text.data(), text.size());
    return text;
}

int compare(std::string_view a, std::string_view b) { return oxzsu8NormCompare(a.data(), a.size(), b.data(), b.size()); }

int64_t indexOf(std::string_view text, std::string_view needle, size_t from = 0, bool caseless = false) {
    return oxzsu8IndexText(text.data(), text.size(), needle.data(), needle.size(), from, caseless ? OX_TRUE : OX_FALSE);
}

std::string utf8Of(char32_t cp) {
    std::string out;
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return out;
}

TEST(Utf8Lower, FoldsAsciiCapitals) { EXPECT_EQ(lowered("My-Bucket.2024_X"), "my-bucket.2024_x"); }

TEST(Utf8Lower, FoldsLatinGreekAndCyrillicCapitals) {
    EXPECT_EQ(lowered("ÀÉÎÕÜÞ ×"), "àéîõüþ ×");
    EXPECT_EQ(lowered("ŁÓDŹ ŒUVRE Ÿ"), "łódź œuvre ÿ");
    EXPECT_EQ(lowered("ΑΘΉΝΑ ΌΛΥΜΠΟΣ"), "αθήνα όλυμποσ");
    EXPECT_EQ(lowered("МОСКВА ЁЖИК ЇЖАК"), "москва ёжик їжак");
}

TEST(Utf8Lower, LeavesCapitalsWhoseLowerCaseHasAnotherLength) {
    // İ lowers to ASCII "i", ẞ to ß and the Kelvin sign to "k": all shorter.
    EXPECT_EQ(lowered("İ ẞ \u212A"), "İ ẞ \u212A");
}

TEST(Utf8Lower, LeavesInvalidBytesUntouched) {
    const std::string broken = std::string("A\xFF") + "B\xC3" + "\xC0\x80" + "C\xED\xA0\x80" + "D\xC3";
    const std::string expected = std::string("a\xFF") + "b\xC3" + "\xC0\x80" + "c\xED\xA0\x80" + "d\xC3";
    EXPECT_EQ(lowered(broken), expected);
}

TEST(Utf8Lower, ToleratesEmptyAndNullText) {
    oxzsu8Lower(nullptr, 0);
    EXPECT_EQ(lowered(""), "");
}

TEST(Utf8Lower, NeverChangesLengthAndIsStableForEveryCharacter) {
    for (char32_t cp = 1; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        const std::string once = lowered(utf8Of(cp));
        ASSERT_EQ(once.size(), utf8Of(cp).size()) << "U+" << std::hex << static_cast<uint32_t>(cp);
        ASSERT_EQ(lowered(once), once) << "U+" << std::hex << static_cast<uint32_t>(cp);
    }
}

TEST(Utf8Compare, IgnoresCase) {
    EXPECT_EQ(compare("Content-Type", "content-TYPE"), 0);
    EXPECT_EQ(compare("ÄÖÜ Straße", "äöü STRAßE"), 0);
    EXPECT_EQ(compare("ΚΑΛΗΜΕΡΑ", "καλημερα"), 0);
}

TEST(Utf8Compare, OrdersByFoldedCharacters) {
    EXPECT_LT(compare("apple", "Banana"), 0);
    EXPECT_GT(compare("Banana", "apple"), 0);
    EXPECT_LT(compare("abc", "ABCD"), 0);
    EXPECT_GT(compare("abcd", "ABC"), 0);
    EXPECT_EQ(compare("", ""), 0);
    EXPECT_LT(compare("z", "é"), 0);
}

TEST(Utf8Compare, InvalidBytesEqualOnlyThemselves) {
    EXPECT_EQ(compare("a\xFF", "A\xFF"), 0);
    EXPECT_NE(compare("a\xFF", "a\xFE"), 0);
    EXPECT_NE(compare("\xC3", "\xC3\xA4"), 0);
    EXPECT_NE(compare("\xC3\xA4", "\xC3\x84\x80"), 0);
}

TEST(Utf8Search, FindsExactBytes) {
    EXPECT_EQ(indexOf("a/b/c/b", "/b"), 1);
    EXPECT_EQ(indexOf("a/b/c/b", "/b", 2), 5);
    EXPECT_EQ(indexOf("a/b/c/b", "/B"), -1);
    EXPECT_EQ(indexOf("abc", "abcd"), -1);
}

TEST(Utf8Search, FindsIgnoringCase) {
    EXPECT_EQ(indexOf("say Hello", "hELLO", 0, true), 4);
    EXPECT_EQ(indexOf("größe GRÖSSE GRÖßE", "GRÖßE", 1, true), 16);
    EXPECT_EQ(indexOf("мир МИР", "мир", 1, true), 7);
    EXPECT_EQ(indexOf("abc", "x", 0, true), -1);
}

TEST(Utf8Search, EmptyNeedleMatchesAtStart) {
    EXPECT_EQ(indexOf("abc", "", 2), 2);
    EXPECT_EQ(indexOf("abc", "", 3, true), 3);
}

TEST(Utf8Search, StartBeyondTheTextFindsNothing) {
    EXPECT_EQ(indexOf("abc", "", 4), -1);
    EXPECT_EQ(indexOf("abc", "c", 9, true), -1);
}

TEST(Utf8Search, CaselessMatchNeverSplitsACharacter) {
    // "Ä" is C3 84; a needle of its first byte alone is not a match for the character.
    EXPECT_EQ(indexOf("xÄ", "\xC3", 0, true), -1);
    EXPECT_EQ(indexOf("x\xC3", "\xC3", 0, true), 1);
}

}  // namespace
