// UTF-8 to UTF-32 and back into caller buffers, strictly: the host's wide strings hold only
// Unicode scalar values, so anything that is not one is refused rather than replaced.
// Both directions validate and count the whole input before writing, so a caller's buffer is
// only written when the conversion succeeds.
#include <string_view>

#include "ox/status.h"
#include "ox/string.h"
#include "utf8.h"

namespace {

bool isScalarValue(OXChar c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

bool badArguments(const void* in, size_t inL, const void* out, size_t outCap, const size_t* outL) {
    return !outL || (!in && inL) || (!out && outCap);
}

// Calls fn(code point) for each character; OX_BAD_UTF8 at the first ill-formed sequence.
template <class Fn>
OXStatus decodeAll(std::string_view text, Fn&& fn) {
    for (size_t pos = 0; pos < text.size();) {
        const ox::utf8::Decoded d = ox::utf8::decodeAt(text, pos);
        if (!d.valid) return OX_BAD_UTF8;
        fn(static_cast<OXChar>(d.cp));
        pos += d.len;
    }
    return OX_OK;
}

OXStatus encodedSize(const OXChar* in, size_t inL, size_t& bytes) {
    bytes = 0;
    for (size_t i = 0; i < inL; ++i) {
        if (!isScalarValue(in[i])) return OX_BAD_CODE_POINT;
        bytes += ox::utf8::encodedLength(in[i]);
    }
    return OX_OK;
}

}  // namespace

OXStatus oxzsU8ToU32(UTF8CStr in, UTF8ByteLength inL, OXChar* out, size_t outCap, size_t* outL) {
    if (badArguments(in, inL, out, outCap, outL)) return OX_INVALID_ARGUMENT;
    const std::string_view text = in ? std::string_view(in, inL) : std::string_view();
    size_t count = 0;
    if (OXStatus st = decodeAll(text, [&](OXChar) { ++count; }); st != OX_OK) return st;
    *outL = count;
    if (count > outCap) return OX_BUFFER_TOO_SMALL;
    decodeAll(text, [&](OXChar c) { *out++ = c; });
    return OX_OK;
}

OXStatus oxzsU32ToU8(const OXChar* in, size_t inL, char* out, size_t outCap, size_t* outL) {
    if (badArguments(in, inL, out, outCap, outL)) return OX_INVALID_ARGUMENT;
    size_t bytes = 0;
    if (OXStatus st = encodedSize(in, inL, bytes); st != OX_OK) return st;
    *outL = bytes;
    if (bytes > outCap) return OX_BUFFER_TOO_SMALL;
    for (size_t i = 0; i < inL; ++i) out += ox::utf8::encode(in[i], out);
    return OX_OK;
}
