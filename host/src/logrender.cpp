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

struct Conversion {
    char flags[8]{};  // as written, for snprintf
    int width = 0;
    int precision = -1;
    Length length = Length::None;
    char32_t letter = 0;
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

void readFlags(const OXChar*& p, Conversion& conv) {
    size_t n = 0;
    for (; isFlag(*p); ++p)
        if (n + 1 < sizeof conv.flags && !std::strchr(conv.flags, static_cast<char>(*p)))
            conv.flags[n++] = static_cast<char>(*p);
}

void readWidth(const OXChar*& p, Conversion& conv, Args& args) {
    if (*p != '*') {
        conv.width = readNumber(p, kMaxWidth);
        return;
    }
    ++p;
    int w = va_arg(args.ap, int);
    if (w < 0) {
        size_t n = std::strlen(conv.flags);
        if (n + 1 < sizeof conv.flags && !conv.leftAlign()) conv.flags[n] = '-';
        w = w == INT32_MIN ? kMaxWidth : -w;
    }
    conv.width = w < kMaxWidth ? w : kMaxWidth;
}

void readPrecision(const OXChar*& p, Conversion& conv, Args& args) {
    if (*p != '.') return;
    ++p;
    if (*p != '*') {
        conv.precision = readNumber(p, INT32_MAX);
        return;
    }
    ++p;
    int prec = va_arg(args.ap, int);
    conv.precision = prec < 0 ? -1 : prec;
}

void readLength(const OXChar*& p, Conversion& conv) {
    switch (*p) {
        case 'h': conv.length = p[1] == 'h' ? (++p, Length::HH) : Length::H; break;
        case 'l': conv.length = p[1] == 'l' ? (++p, Length::LL) : Length::L; break;
        case 'q': conv.length = Length::LL; break;
        case 'z': conv.length = Length::Z; break;
        case 'j': conv.length = Length::J; break;
        case 't': conv.length = Length::T; break;
        case 'L': conv.length = Length::BigL; break;
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
void putPadded(WideOut& out, const Conversion& conv, size_t chars, Emit&& emit) {
    size_t padding = static_cast<size_t>(conv.width) > chars ? static_cast<size_t>(conv.width) - chars : 0;
    if (!conv.leftAlign()) out.pad(padding);
    emit();
    if (conv.leftAlign()) out.pad(padding);
}

void putUtf8(WideOut& out, const Conversion& conv, const char* s) {
    if (!s) s = "(null)";
    size_t bytes = conv.precision < 0 ? std::strlen(s) : strnlen(s, static_cast<size_t>(conv.precision));
    std::string_view text(s, bytes);
    putPadded(out, conv, codePointCount(text), [&] { ox::utf8::forEachCodePoint(text, [&](char32_t c) { out.put(c); }); });
}

void putWide(WideOut& out, const Conversion& conv, const OXChar* s) {
    static constexpr OXChar kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    if (!s) s = kNull;
    size_t chars = wideLength(s, conv.precision);
    putPadded(out, conv, chars, [&] {
        for (size_t i = 0; i < chars; ++i) out.put(s[i]);
    });
}

void putString(WideOut& out, const Conversion& conv, Args& args) {
    if (conv.length == Length::H || conv.length == Length::HH)
        putUtf8(out, conv, va_arg(args.ap, const char*));
    else
        putWide(out, conv, va_arg(args.ap, const OXChar*));
}

void putChar(WideOut& out, const Conversion& conv, Args& args) {
    auto c = static_cast<char32_t>(va_arg(args.ap, unsigned int));
    putPadded(out, conv, 1, [&] { out.put(c); });
}

// ---- numbers, through snprintf

// "%<flags><width>.<precision><length><conversion>" for the value type chosen by the caller.
void narrowFormat(const Conversion& conv, const char* length, char* fmt, size_t fmtL) {
    char width[16] = "";
    if (conv.width > 0) std::snprintf(width, sizeof width, "%d", conv.width);
    char precision[16] = "";
    if (conv.precision >= 0)
        std::snprintf(precision, sizeof precision, ".%d", conv.precision < kMaxPrecision ? conv.precision : kMaxPrecision);
    std::snprintf(fmt, fmtL, "%%%s%s%s%s%c", conv.flags, width, precision, length, static_cast<char>(conv.letter));
}

template <class T>
void putNumber(WideOut& out, const Conversion& conv, const char* length, T value) {
    char fmt[48];
    narrowFormat(conv, length, fmt, sizeof fmt);
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

void putFloating(WideOut& out, const Conversion& conv, Args& args) {
    if (conv.length == Length::BigL)
        putNumber(out, conv, "L", va_arg(args.ap, long double));
    else
        putNumber(out, conv, "", va_arg(args.ap, double));
}

// ---- one conversion

bool isOneOf(char32_t c, std::string_view set) { return c < 0x80 && set.find(static_cast<char>(c)) != std::string_view::npos; }

// Writes one conversion; false for a conversion this renderer does not know (no argument taken).
bool putConversion(WideOut& out, const Conversion& conv, Args& args) {
    char32_t c = conv.letter;
    if (c == 's') putString(out, conv, args);
    else if (c == 'c') putChar(out, conv, args);
    else if (c == 'd' || c == 'i') putNumber(out, conv, "ll", signedArg(conv.length, args));
    else if (isOneOf(c, "uoxX")) putNumber(out, conv, "ll", unsignedArg(conv.length, args));
    else if (isOneOf(c, "fFeEgGaA")) putFloating(out, conv, args);
    else if (c == 'p') putNumber(out, conv, "", va_arg(args.ap, void*));
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
    Conversion conv;
    readFlags(p, conv);
    readWidth(p, conv, args);
    readPrecision(p, conv, args);
    readLength(p, conv);
    conv.letter = *p;
    if (*p && putConversion(out, conv, args)) return p + 1;
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
