// Request heads. Every text that goes on the wire is checked first: a CR or LF smuggled into a
// path or header value would let a caller's data forge a second request.
#include "http_request.h"

#include <cinttypes>
#include <cstdio>

#include "http_parser.h"

namespace ox::http {

namespace {

constexpr std::string_view kMethodNames[] = {"GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH"};
constexpr std::string_view kCrlf = "\r\n";

bool isTokenChar(char c) {
    constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kSymbols.find(c) != std::string_view::npos;
}

bool isToken(std::string_view s) {
    if (s.empty()) return false;
    for (char c : s)
        if (!isTokenChar(c)) return false;
    return true;
}

// Field values may hold anything but control characters other than tab.
bool isFieldValue(std::string_view s) {
    for (char c : s) {
        auto u = static_cast<unsigned char>(c);
        if ((u < 0x20 && c != '\t') || u == 0x7f) return false;
    }
    return true;
}

// Request targets: no control characters, no blanks.
bool isTargetText(std::string_view s) {
    for (char c : s) {
        auto u = static_cast<unsigned char>(c);
        if (u <= 0x20 || u == 0x7f) return false;
    }
    return true;
}

bool appendAll(PoolBuffer<char>& out, std::initializer_list<std::string_view> parts) {
    for (std::string_view p : parts)
        if (!out.append(p.data(), p.size())) return false;
    return true;
}

bool appendNumber(PoolBuffer<char>& out, uint64_t n) {
    char digits[24];
    int len = std::snprintf(digits, sizeof digits, "%" PRIu64, n);
    return out.append(digits, static_cast<size_t>(len));
}

struct HeaderText {
    std::string_view name, value;
};

OXStatus textOf(OXU8String* name, OXInstance* value, HeaderText& out) {
    if (!name || !value) return OX_INVALID_ARGUMENT;
    out.name = {name->stg, name->len};
    if (value->isType(value, OX_TYPE_U8STRING)) {
        auto* s = reinterpret_cast<OXU8String*>(value);
        out.value = {s->stg, s->len};
    } else if (value->isType(value, OX_TYPE_DATA)) {
        auto* d = reinterpret_cast<OXData*>(value);
        out.value = {reinterpret_cast<const char*>(d->bytes), d->len};
    } else {
        return OX_WRONG_TYPE;
    }
    return isToken(out.name) && isFieldValue(out.value) ? OX_OK : OX_HTTP_BAD_REQUEST_TEXT;
}

// Calls f(HeaderText) for every header of the dictionary, in its order.
template <class F>
OXStatus eachHeader(OXDictionary headers, F f) {
    if (!headers) return OX_OK;
    void* cursor = nullptr;
    OXU8String* name = nullptr;
    OXInstance* value = nullptr;
    OXStatus st;
    while ((st = headers->nextValue(headers, &cursor, &name, &value)) == OX_OK) {
        HeaderText h;
        if (st = textOf(name, value, h); st != OX_OK) return st;
        if (st = f(h); st != OX_OK) return st;
    }
    return st == OX_END_OF_DATA ? OX_OK : st;
}

// What the caller's headers already say, so the client adds only what is missing.
struct GivenHeaders {
    bool host = false;
    bool length = false;
    bool transferCoding = false;
    bool expect = false;
    int64_t announced = -1;
};

int64_t decimalOrUnknown(std::string_view s) {
    if (s.empty() || s.size() > 18) return -1;
    int64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return -1;
        v = v * 10 + (c - '0');
    }
    return v;
}

OXStatus surveyHeaders(OXDictionary headers, GivenHeaders& given) {
    return eachHeader(headers, [&](const HeaderText& h) {
        given.host |= equalsIgnoringCase(h.name, "Host");
        given.expect |= equalsIgnoringCase(h.name, "Expect");
        given.transferCoding |= equalsIgnoringCase(h.name, "Transfer-Encoding");
        if (equalsIgnoringCase(h.name, "Content-Length")) {
            given.length = true;
            given.announced = decimalOrUnknown(h.value);
        }
        return OX_OK;
    });
}

bool appendRequestLine(PoolBuffer<char>& out, std::string_view method, const RequestParts& parts) {
    if (!appendAll(out, {method, " ", parts.origin, parts.path})) return false;
    if (!parts.query.empty() && !appendAll(out, {"?", parts.query})) return false;
    return appendAll(out, {" HTTP/1.1", kCrlf});
}

bool bodyExpected(HTTPMethod m) { return m == httpPost || m == httpPut || m == httpPatch; }

int64_t lengthToAnnounce(const RequestParts& parts) {
    if (parts.contentLength >= 0) return parts.contentLength;
    if (!parts.body.empty() || bodyExpected(parts.method)) return static_cast<int64_t>(parts.body.size());
    return -1;
}

bool appendClientHeaders(PoolBuffer<char>& out, const RequestParts& parts, const GivenHeaders& given,
                         int64_t& announced) {
    if (!given.host && !appendAll(out, {"Host: ", parts.authority, kCrlf})) return false;
    if (!given.length && !given.transferCoding && (announced = lengthToAnnounce(parts)) >= 0) {
        if (!appendAll(out, {"Content-Length: "}) || !appendNumber(out, static_cast<uint64_t>(announced)) ||
            !appendAll(out, {kCrlf}))
            return false;
    }
    if (parts.expectContinue && !given.expect && !appendAll(out, {"Expect: 100-continue", kCrlf})) return false;
    return appendAll(out, {parts.extraLines});
}

}  // namespace

std::optional<std::string_view> methodName(HTTPMethod method) {
    auto index = static_cast<size_t>(method);
    if (index >= std::size(kMethodNames)) return std::nullopt;
    return kMethodNames[index];
}

bool appendAuthority(PoolBuffer<char>& out, std::string_view host, uint16_t port, uint16_t defaultPort) {
    const bool ipv6 = host.find(':') != std::string_view::npos;
    if (!appendAll(out, {ipv6 ? "[" : "", host, ipv6 ? "]" : ""})) return false;
    return port == defaultPort || (appendAll(out, {":"}) && appendNumber(out, port));
}

OXStatus buildRequestHead(const RequestParts& parts, PoolBuffer<char>& out, int64_t& announced) {
    auto method = methodName(parts.method);
    if (!method) return OX_INVALID_ARGUMENT;
    if (parts.path.empty() || parts.path.front() != '/' || !isTargetText(parts.path) || !isTargetText(parts.query))
        return OX_HTTP_BAD_REQUEST_TEXT;
    GivenHeaders given;
    if (OXStatus st = surveyHeaders(parts.headers, given); st != OX_OK) return st;
    announced = given.transferCoding ? -1 : given.announced;
    out.clear();
    if (!appendRequestLine(out, *method, parts)) return OX_NO_MEMORY;
    OXStatus st = eachHeader(parts.headers, [&](const HeaderText& h) {
        return appendAll(out, {h.name, ": ", h.value, kCrlf}) ? OX_OK : OX_NO_MEMORY;
    });
    if (st != OX_OK) return st;
    if (!appendClientHeaders(out, parts, given, announced) || !appendAll(out, {kCrlf, parts.body})) return OX_NO_MEMORY;
    return OX_OK;
}

}  // namespace ox::http
