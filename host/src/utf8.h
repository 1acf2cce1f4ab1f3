// UTF-8 decoding, encoding and same-length case folding shared by the host's text code
// (names, logging, the oxzsu8 runtime functions).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ox::utf8 {

inline constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
    char32_t cp;   // the code point; for an invalid byte, the byte itself
    uint32_t len;  // bytes consumed, at least 1 while pos < text.size()
    bool valid;
};

// Decodes one character at pos. Overlong forms, surrogates, values past U+10FFFF and cut
// sequences are invalid and consume exactly one byte, so callers can leave them untouched.
constexpr Decoded decodeAt(std::string_view text, size_t pos) noexcept {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t b0 = byte(pos);
    const Decoded bad{b0, 1, false};
    if (b0 < 0x80) return {b0, 1, true};
    uint32_t len = b0 >= 0xF0 ? 4 : b0 >= 0xE0 ? 3 : b0 >= 0xC0 ? 2 : 0;
    if (len == 0 || b0 > 0xF4 || text.size() - pos < len) return bad;
    char32_t cp = b0 & (0x7F >> len);
    for (uint32_t i = 1; i < len; ++i) {
        const uint8_t b = byte(pos + i);
        if ((b & 0xC0) != 0x80) return bad;
        cp = (cp << 6) | (b & 0x3F);
    }
    constexpr char32_t kSmallest[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kSmallest[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return bad;
    return {cp, len, true};
}

// Bytes the UTF-8 form of cp takes; 0 for surrogates and values past U+10FFFF.
constexpr size_t encodedLength(char32_t cp) noexcept {
    if (cp < 0x80) return 1;
    if (cp < 0x800) return 2;
    if (cp >= 0xD800 && cp <= 0xDFFF) return 0;
    if (cp < 0x10000) return 3;
    return cp <= 0x10FFFF ? 4 : 0;
}

// Writes the UTF-8 form of cp into out (room for 4 bytes); returns its length, 0 when cp is
// not a Unicode scalar value.
constexpr size_t encode(char32_t cp, char* out) noexcept {
    const size_t len = encodedLength(cp);
    if (len == 1) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    constexpr uint8_t kLead[5] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (size_t i = len; i > 1; --i) {
        out[i - 1] = static_cast<char>(0x80 | (cp & 0x3F));
        cp >>= 6;
    }
    if (len) out[0] = static_cast<char>(kLead[len] | cp);
    return len;
}

// Writes as many whole characters of text as fit in cap - 1 bytes, then a terminator (cap > 0).
// Characters that are not Unicode scalar values become U+FFFD. Returns the bytes written.
constexpr size_t encodeTruncated(std::u32string_view text, char* out, size_t cap) noexcept {
    size_t used = 0;
    for (char32_t cp : text) {
        if (encodedLength(cp) == 0) cp = kReplacement;
        if (used + encodedLength(cp) > cap - 1) break;
        used += encode(cp, out + used);
    }
    out[used] = '\0';
    return used;
}

// Calls fn(char32_t) for each character of text, U+FFFD for each invalid byte.
template <class Fn>
constexpr void forEachCodePoint(std::string_view text, Fn&& fn) {
    for (size_t pos = 0; pos < text.size();) {
        const Decoded d = decodeAt(text, pos);
        fn(d.valid ? d.cp : kReplacement);
        pos += d.len;
    }
}

// The lower case of cp when it has one of the same UTF-8 length, else cp itself.
char32_t lower(char32_t cp) noexcept;

}  // namespace ox::utf8
