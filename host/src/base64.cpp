// Text encodings of bytes for the web client: padded standard Base64 (RFC 4648 section 4) and
// lower-case hexadecimal. The decoder is deliberately strict: a header value such as a key's
// MD5 has exactly one correct spelling, and accepting others would hide a corrupted value.
#include <array>
#include <cstdint>
#include <string_view>

#include "ox/status.h"
#include "webclient_internal.h"

namespace {

constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr char kPad = '=';
constexpr int8_t kNotBase64 = -1;

constexpr std::array<int8_t, 256> kBase64Values = [] {
    std::array<int8_t, 256> values{};
    values.fill(kNotBase64);
    for (size_t i = 0; i < kBase64Alphabet.size(); ++i)
        values[static_cast<uint8_t>(kBase64Alphabet[i])] = static_cast<int8_t>(i);
    return values;
}();

// The one buffer protocol of every encoder here: the needed length always reported, nothing
// written into a buffer that is too small.
OXStatus checkRoom(size_t needed, size_t outCap, size_t* outL) {
    *outL = needed;
    return needed <= outCap ? OX_OK : OX_BUFFER_TOO_SMALL;
}

constexpr size_t kMaxEncodable = SIZE_MAX / 4 * 3;

constexpr size_t base64Length(size_t len) { return (len + 2) / 3 * 4; }

char base64Digit(uint32_t group, int shift) { return kBase64Alphabet[(group >> shift) & 0x3f]; }

// Writes base64Length(len) characters; a slice whose length is a multiple of 3 encodes to the
// same text as it would inside a longer run, so callers may encode in pieces.
void encodeBase64(const uint8_t* in, size_t len, char* out) {
    for (; len >= 3; in += 3, len -= 3) {
        uint32_t group = (uint32_t{in[0]} << 16) | (uint32_t{in[1]} << 8) | in[2];
        *out++ = base64Digit(group, 18);
        *out++ = base64Digit(group, 12);
        *out++ = base64Digit(group, 6);
        *out++ = base64Digit(group, 0);
    }
    if (len == 0) return;
    uint32_t group = (uint32_t{in[0]} << 16) | (len == 2 ? uint32_t{in[1]} << 8 : 0);
    *out++ = base64Digit(group, 18);
    *out++ = base64Digit(group, 12);
    *out++ = len == 2 ? base64Digit(group, 6) : kPad;
    *out = kPad;
}

int base64Value(char c) { return kBase64Values[static_cast<uint8_t>(c)]; }

// Padding characters at the end of well-formed text: 0, 1 or 2.
size_t paddingOf(std::string_view text) {
    if (text.ends_with("==")) return 2;
    return text.ends_with(kPad) ? 1 : 0;
}

// Every character but the padding must be in the alphabet, and the bits that padding leaves
// over must be zero.
bool isWellFormedBase64(std::string_view text) {
    if (text.size() % 4 != 0) return false;
    size_t padding = paddingOf(text);
    std::string_view digits = text.substr(0, text.size() - padding);
    for (char c : digits)
        if (base64Value(c) == kNotBase64) return false;
    if (padding == 0) return true;
    int last = base64Value(digits.back());
    return padding == 2 ? (last & 0x0f) == 0 : (last & 0x03) == 0;
}

void decodeBase64(std::string_view digits, uint8_t* out) {
    uint32_t group = 0;
    int bits = 0;
    for (char c : digits) {
        group = (group << 6) | static_cast<uint32_t>(base64Value(c));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            *out++ = static_cast<uint8_t>(group >> bits);
        }
    }
}

// A stack buffer's worth of encoded text per append; a multiple of 3 input bytes.
constexpr size_t kEncodeSlice = 768;

OXStatus appendBase64(OXStringExt_S* oxstring, OXU8String* s, const uint8_t* in, size_t len) {
    char text[base64Length(kEncodeSlice)];
    for (size_t done = 0; done < len; done += kEncodeSlice) {
        size_t slice = len - done < kEncodeSlice ? len - done : kEncodeSlice;
        encodeBase64(in + done, slice, text);
        if (OXStatus st = oxstring->appendU8(s, text, base64Length(slice)); st != OX_OK) return st;
    }
    return OX_OK;
}

}  // namespace

OXStatus oxBase64Encode(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL) {
    if ((!bytes && len != 0) || (!out && outCap != 0) || !outL || len > kMaxEncodable) return OX_INVALID_ARGUMENT;
    size_t needed = base64Length(len);
    if (OXStatus st = checkRoom(needed, outCap, outL); st != OX_OK) return st;
    encodeBase64(static_cast<const uint8_t*>(bytes), len, out);
    return OX_OK;
}

OXStatus oxBase64EncodeU8(OXStringExt_S* oxstring, OX_POOL_S* pool, const void* bytes, OXMemSize len,
                          OXU8String** out) {
    if (!oxstring || !pool || !out || (!bytes && len != 0) || len > kMaxEncodable) return OX_INVALID_ARGUMENT;
    OXU8String* s = nullptr;
    OXStatus st = oxstring->createU8Empty(oxstring, pool, base64Length(len), &s);
    if (st != OX_OK) return st;
    st = appendBase64(oxstring, s, static_cast<const uint8_t*>(bytes), len);
    if (st != OX_OK) {
        s->instance.destroy(s);
        return st;
    }
    *out = s;
    return OX_OK;
}

OXStatus oxBase64Decode(UTF8CStr text, UTF8ByteLength len, uint8_t* out, size_t outCap, size_t* outL) {
    if ((!text && len != 0) || (!out && outCap != 0) || !outL) return OX_INVALID_ARGUMENT;
    std::string_view in(text ? text : "", len);
    if (!isWellFormedBase64(in)) return OX_BASE64_MALFORMED;
    size_t padding = paddingOf(in);
    if (OXStatus st = checkRoom(in.size() / 4 * 3 - padding, outCap, outL); st != OX_OK) return st;
    decodeBase64(in.substr(0, in.size() - padding), out);
    return OX_OK;
}

OXStatus oxHexLower(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL) {
    if ((!bytes && len != 0) || (!out && outCap != 0) || !outL || len > SIZE_MAX / 2) return OX_INVALID_ARGUMENT;
    if (OXStatus st = checkRoom(len * 2, outCap, outL); st != OX_OK) return st;
    for (const auto* in = static_cast<const uint8_t*>(bytes); len > 0; --len, ++in) {
        *out++ = kHexDigits[*in >> 4];
        *out++ = kHexDigits[*in & 0x0f];
    }
    return OX_OK;
}
