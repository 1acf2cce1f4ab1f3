// LoggerRender: printf for wide formats. Strings and characters are written here; every
// numeric conversion is handed to snprintf with the same flags, width and precision.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <sys/types.h>

#include "ox/log.h"
#include "utf8.h"

namespace {

// Bounds what one numeric conversion can ask of the snprintf buffer below.
constexpr int kMaxWidth = 256;
constexpr int kMaxPrecision = 256;

struct Args {
    va_list ap;
};

class WideOut {
public:
    WideOut(OXChar* out, size_t cap) : out_(out), cap_(cap) {}
    void put(char32_t c) {
        if (len_ + 1 < cap_) out_[len_++] = c;
    }
    void putAscii(std::string_view s) {
        for (char c : s) put(static_cast<unsigned char>(c));
    }
    void pad(size_t n) {
        for (size_t i = 0; i < n && len_ + 1 < cap_; ++i) put(U' ');
    }
    size_t finish() {
        if (cap_) out_[len_] = 0;
        return len_;
    }

private:
    OXChar* out_;
    size_t cap_;
    size_t len_ = 0;
};

enum class Length { None, HH, H, L, LL, Z, J, T, BigL };

struct Spec {
    char flags[8]{};  // as written, for snprintf
    int width = 0;
    int precision = -1;
    Length length = Length::None;
    char32_t conversion = 0;
    bool leftAlign() const { return std::strchr(flags, '-') != nullptr; }
};

bool isFlag(char32_t c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0'; }
bool isDigit(char32_t c) { return c >= '0' && c <= '9'; }

// Digits as a number, saturating at limit.
int readNumber(const OXChar*& p, int limit) {
    int n = 0;
    for (; isDigit(*p); ++p) {
        int digit = static_cast<int>(*p - '0');
        n = n <= (limit - digit) / 10 ? n * 10 + digit : limit;
    }
    return n;
}

void readFlags(const OXChar*& p, Spec& spec) {
    size_t n = 0;
    for (; isFlag(*p); ++p)
        if (n + 1 < sizeof spec.flags && !std::strchr(spec.flags, static_cast<char>(*p)))
            spec.flags[n++] = static_cast<char>(*p);
}

void readWidth(const OXChar*& p, Spec& spec, Args& args) {
    if (*p != '*') {
        spec.width = readNumber(p, kMaxWidth);
        return;
    }
    ++p;
    int w = va_arg(args.ap, int);
    if (w < 0) {
        size_t n = std::strlen(spec.flags);
        if (n + 1 < sizeof spec.flags && !spec.leftAlign()) spec.flags[n] = '-';
        w = w == INT32_MIN ? kMaxWidth : -w;
    }
    spec.width = w < kMaxWidth ? w : kMaxWidth;
}

void readPrecision(const OXChar*& p, Spec& spec, Args& args) {
    if (*p != '.') return;
    ++p;
    if (*p != '*') {
        spec.precision = readNumber(p, INT32_MAX);
        return;
    }
    ++p;
    int prec = va_arg(args.ap, int);
    spec.precision = prec < 0 ? -1 : prec;
}

void readLength(const OXChar*& p, Spec& spec) {
    switch (*p) {
        case 'h': spec.length = p[1] == 'h' ? (++p, Length::HH) : Length::H; break;
        case 'l': spec.length = p[1] == 'l' ? (++p, Length::LL) : Length::L; break;
        case 'q': spec.length = Length::LL; break;
        case 'z': spec.length = Length::Z; break;
        case 'j': spec.length = Length::J; break;
        case 't': spec.length = Length::T; break;
        case 'L': spec.length = Length::BigL; break;
        default: return;
    }
    ++p;
}

// ---- strings and characters

size_t wideLength(const OXChar* s, int precision) {
    size_t n = 0;
    while ((precision < 0 || n < static_cast<size_t>(precision)) && s[n]) ++n;
    return n;
}

size_t codePointCount(std::string_view utf8) {
    size_t n = 0;
    ox::utf8::forEachCodePoint(utf8, [&](char32_t) { ++n; });
    return n;
}

template <class Emit>
void putPadded(WideOut& out, const Spec& spec, size_t chars, Emit&& emit) {
    size_t padding = static_cast<size_t>(spec.width) > chars ? static_cast<size_t>(spec.width) - chars : 0;
    if (!spec.leftAlign()) out.pad(padding);
    emit();
    if (spec.leftAlign()) out.pad(padding);
}

void putUtf8(WideOut& out, const Spec& spec, const char* s) {
    if (!s) s = "(null)";
    size_t bytes = spec.precision < 0 ? std::strlen(s) : strnlen(s, static_cast<size_t>(spec.precision));
    std::string_view text(s, bytes);
    putPadded(out, spec, codePointCount(text), [&] { ox::utf8::forEachCodePoint(text, [&](char32_t c) { out.put(c); }); });
}

void putWide(WideOut& out, const Spec& spec, const OXChar* s) {
    static constexpr OXChar kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    if (!s) s = kNull;
    size_t chars = wideLength(s, spec.precision);
    putPadded(out, spec, chars, [&] {
        for (size_t i = 0; i < chars; ++i) out.put(s[i]);
    });
}

void putString(WideOut& out, const Spec& spec, Args& args) {
    if (spec.length == Length::H || spec.length == Length::HH)
        putUtf8(out, spec, va_arg(args.ap, const char*));
    else
        putWide(out, spec, va_arg(args.ap, const OXChar*));
}

void putChar(WideOut& out, const Spec& spec, Args& args) {
    auto c = static_cast<char32_t>(va_arg(args.ap, unsigned int));
    putPadded(out, spec, 1, [&] { out.put(c); });
}

// ---- numbers, through snprintf

// "%<flags><width>.<precision><length><conversion>" for the value type chosen by the caller.
void narrowFormat(const Spec& spec, const char* length, char conversion, char* fmt, size_t fmtL) {
    char width[16] = "";
    if (spec.width > 0) std::snprintf(width, sizeof width, "%d", spec.width);
    char precision[16] = "";
    if (spec.precision >= 0)
        std::snprintf(precision, sizeof precision, ".%d", spec.precision < kMaxPrecision ? spec.precision : kMaxPrecision);
    std::snprintf(fmt, fmtL, "%%%s%s%s%s%c", spec.flags, width, precision, length, conversion);
}

template <class T>
void putNumber(WideOut& out, const Spec& spec, const char* length, T value) {
    char fmt[48];
    narrowFormat(spec, length, static_cast<char>(spec.conversion), fmt, sizeof fmt);
    char text[kMaxWidth + kMaxPrecision + 64];
    int n = std::snprintf(text, sizeof text, fmt, value);
    if (n > 0) out.putAscii(std::string_view(text, static_cast<size_t>(n) < sizeof text ? n : sizeof text - 1));
}

long long signedArg(Length length, Args& args) {
    switch (length) {
        case Length::HH: return static_cast<signed char>(va_arg(args.ap, int));
        case Length::H: return static_cast<short>(va_arg(args.ap, int));
        case Length::L: return va_arg(args.ap, long);
        case Length::LL: return va_arg(args.ap, long long);
        case Length::Z: return va_arg(args.ap, ssize_t);
        case Length::J: return va_arg(args.ap, intmax_t);
        case Length::T: return va_arg(args.ap, ptrdiff_t);
        default: return va_arg(args.ap, int);
    }
}

unsigned long long unsignedArg(Length length, Args& args) {
    switch (length) {
        case Length::HH: return static_cast<unsigned char>(va_arg(args.ap, unsigned int));
        case Length::H: return static_cast<unsigned short>(va_arg(args.ap, unsigned int));
        case Length::L: return va_arg(args.ap, unsigned long);
        case Length::LL: return va_arg(args.ap, unsigned long long);
        case Length::Z: return va_arg(args.ap, size_t);
        case Length::J: return va_arg(args.ap, uintmax_t);
        case Length::T: return static_cast<unsigned long long>(va_arg(args.ap, ptrdiff_t));
        default: return va_arg(args.ap, unsigned int);
    }
}

void putFloating(WideOut& out, const Spec& spec, Args& args) {
    if (spec.length == Length::BigL)
        putNumber(out, spec, "L", va_arg(args.ap, long double));
    else
        putNumber(out, spec, "", va_arg(args.ap, double));
}

// ---- one conversion

bool isOneOf(char32_t c, std::string_view set) { return c < 0x80 && set.find(static_cast<char>(c)) != std::string_view::npos; }

// Writes one conversion; false for a conversion this renderer does not know (no argument taken).
bool putConversion(WideOut& out, const Spec& spec, Args& args) {
    char32_t c = spec.conversion;
    if (c == 's') putString(out, spec, args);
    else if (c == 'c') putChar(out, spec, args);
    else if (c == 'd' || c == 'i') putNumber(out, spec, "ll", signedArg(spec.length, args));
    else if (isOneOf(c, "uoxX")) putNumber(out, spec, "ll", unsignedArg(spec.length, args));
    else if (isOneOf(c, "fFeEgGaA")) putFloating(out, spec, args);
    else if (c == 'p') putNumber(out, spec, "", va_arg(args.ap, void*));
    else if (c == 'n') va_arg(args.ap, void*);  // never written through: a format must not write memory
    else return false;
    return true;
}

// Renders the conversion starting after '%'; returns where the format continues.
const OXChar* renderConversion(WideOut& out, const OXChar* start, Args& args) {
    const OXChar* p = start;
    if (*p == '%') {
        out.put(U'%');
        return p + 1;
    }
    Spec spec;
    readFlags(p, spec);
    readWidth(p, spec, args);
    readPrecision(p, spec, args);
    readLength(p, spec);
    spec.conversion = *p;
    if (*p && putConversion(out, spec, args)) return p + 1;
    out.put(U'%');  // not a conversion: written as it stands
    return start;
}

}  // namespace

size_t LoggerRender(OXChar* out, size_t outL, const OXChar* fmt, ...) {
    WideOut text(out, out ? outL : 0);
    if (!fmt) return text.finish();
    Args args;
    va_start(args.ap, fmt);
    for (const OXChar* p = fmt; *p;) {
        if (*p != '%') {
            text.put(*p++);
            continue;
        }
        p = renderConversion(text, p + 1, args);
    }
    va_end(args.ap);
    return text.finish();
}
