// Caseless UTF-8 text: lower-casing in place, comparing and searching. Only characters whose
// lower case encodes in the same number of bytes are folded, so text never changes length and
// a caseless match always spans as many bytes as the needle.
#include "utf8.h"

#include "ox/handle.h"

namespace {

using ox::utf8::Decoded;

// A run of capitals. With `alternate` only every other code point, starting at `first`, is a
// capital (the lower case follows it); otherwise every code point maps by `delta`.
struct CaseRange {
    char32_t first;
    char32_t last;
    int32_t delta;
    bool alternate;
};

constexpr CaseRange kCapitals[] = {
    {0x0041, 0x005A, 0x20, false},   // Basic Latin
    {0x00C0, 0x00D6, 0x20, false},   // Latin-1 Supplement (U+00D7 is the multiplication sign)
    {0x00D8, 0x00DE, 0x20, false},
    {0x0100, 0x012F, 1, true},       // Latin Extended-A; U+0130 lowers to ASCII "i" and is left
    {0x0132, 0x0137, 1, true},
    {0x0139, 0x0148, 1, true},
    {0x014A, 0x0177, 1, true},
    {0x0178, 0x0178, -0x79, false},  // Y with diaeresis lowers into Latin-1
    {0x0179, 0x017E, 1, true},
    {0x0370, 0x0373, 1, true},       // Greek and Coptic
    {0x0376, 0x0376, 1, false},
    {0x037F, 0x037F, 0x74, false},
    {0x0386, 0x0386, 0x26, false},
    {0x0388, 0x038A, 0x25, false},
    {0x038C, 0x038C, 0x40, false},
    {0x038E, 0x038F, 0x3F, false},
    {0x0391, 0x03A1, 0x20, false},
    {0x03A3, 0x03AB, 0x20, false},
    {0x03CF, 0x03CF, 0x08, false},
    {0x03D8, 0x03EF, 1, true},
    {0x03F4, 0x03F4, -0x3C, false},
    {0x03F7, 0x03F7, 1, false},
    {0x03F9, 0x03F9, -0x07, false},
    {0x03FA, 0x03FA, 1, false},
    {0x03FD, 0x03FF, -0x82, false},
    {0x0400, 0x040F, 0x50, false},   // Cyrillic
    {0x0410, 0x042F, 0x20, false},
    {0x0460, 0x0481, 1, true},
    {0x048A, 0x04BF, 1, true},
    {0x04C0, 0x04C0, 0x0F, false},
    {0x04C1, 0x04CE, 1, true},
    {0x04D0, 0x052F, 1, true},       // Cyrillic and Cyrillic Supplement
};

constexpr char32_t lowerByTable(char32_t cp) {
    for (const CaseRange& r : kCapitals) {
        if (cp < r.first) break;
        if (cp > r.last) continue;
        if (r.alternate && (cp - r.first) % 2 != 0) return cp;
        return static_cast<char32_t>(static_cast<int32_t>(cp) + r.delta);
    }
    return cp;
}

constexpr bool tableKeepsLengths() {
    char32_t previousLast = 0;
    for (const CaseRange& r : kCapitals) {
        if (r.first > r.last || r.first < previousLast) return false;  // lowerByTable relies on order
        previousLast = r.last;
        for (char32_t cp = r.first; cp <= r.last; ++cp) {
            char32_t lo = lowerByTable(cp);
            if (ox::utf8::encodedLength(lo) != ox::utf8::encodedLength(cp)) return false;
        }
    }
    return true;
}
static_assert(tableKeepsLengths(), "a capital whose lower case has another UTF-8 length");

std::string_view view(UTF8CStr text, UTF8ByteLength len) {
    return text ? std::string_view(text, len) : std::string_view();
}

// What a character compares as, ignoring case. Invalid bytes become U+DC80..U+DCFF, values
// no valid character decodes to, so they only ever match the same byte.
char32_t foldedAt(std::string_view text, size_t pos, uint32_t& len) {
    const Decoded d = ox::utf8::decodeAt(text, pos);
    len = d.len;
    return d.valid ? ox::utf8::lower(d.cp) : 0xDC00 + d.cp;
}

// Characters are decoded from the whole text, so a match never ends inside one.
bool caselessMatchAt(std::string_view text, size_t pos, std::string_view needle) {
    if (text.size() - pos < needle.size()) return false;
    for (size_t i = 0; i < needle.size();) {
        uint32_t textLen = 0;
        uint32_t needleLen = 0;
        if (foldedAt(text, pos + i, textLen) != foldedAt(needle, i, needleLen) || textLen != needleLen) return false;
        i += needleLen;
    }
    return true;
}

int64_t caselessIndex(std::string_view text, std::string_view needle, size_t from) {
    for (size_t pos = from; pos + needle.size() <= text.size();) {
        if (caselessMatchAt(text, pos, needle)) return static_cast<int64_t>(pos);
        pos += ox::utf8::decodeAt(text, pos).len;
    }
    return -1;
}

}  // namespace

namespace ox::utf8 {

char32_t lower(char32_t cp) noexcept { return lowerByTable(cp); }

}  // namespace ox::utf8

void oxzsu8Lower(UTF8Str text, UTF8ByteLength len) {
    std::string_view bytes = view(text, len);
    for (size_t pos = 0; pos < bytes.size();) {
        const Decoded d = ox::utf8::decodeAt(bytes, pos);
        if (d.valid) {
            char32_t lo = ox::utf8::lower(d.cp);
            if (lo != d.cp) ox::utf8::encode(lo, text + pos);
        }
        pos += d.len;
    }
}

int oxzsu8NormCompare(UTF8CStr a, UTF8ByteLength aL, UTF8CStr b, UTF8ByteLength bL) {
    std::string_view left = view(a, aL);
    std::string_view right = view(b, bL);
    size_t i = 0;
    size_t j = 0;
    while (i < left.size() && j < right.size()) {
        uint32_t leftLen = 0;
        uint32_t rightLen = 0;
        char32_t l = foldedAt(left, i, leftLen);
        char32_t r = foldedAt(right, j, rightLen);
        if (l != r) return l < r ? -1 : 1;
        i += leftLen;
        j += rightLen;
    }
    if (i < left.size()) return 1;
    return j < right.size() ? -1 : 0;
}

int64_t oxzsu8IndexText(UTF8CStr text, UTF8ByteLength textL, UTF8CStr needle, UTF8ByteLength needleL,
                        UTF8ByteLength from, OXBoolean caseless) {
    std::string_view hay = view(text, textL);
    std::string_view pattern = view(needle, needleL);
    if (from > hay.size()) return -1;
    if (!caseless) {
        size_t at = hay.find(pattern, from);
        return at == std::string_view::npos ? -1 : static_cast<int64_t>(at);
    }
    return caselessIndex(hay, pattern, from);
}
