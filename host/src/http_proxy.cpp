// Forward proxies. Plain requests go to the proxy with an absolute-form target (built by the
// request code from the origin given here); TLS origins are reached through a CONNECT tunnel,
// so the proxy sees only the host and port, never the request.
#include "http_proxy.h"

#include <algorithm>

#include "http_request.h"
#include "ox/owned.hpp"
#include "string_internal.h"
#include "webclient_internal.h"

namespace ox::http {

namespace {

// user ":" password; longer credentials are refused rather than allocated for.
constexpr size_t kMaxCredentialBytes = 1024;
constexpr size_t kMaxEncodedCredentialBytes = (kMaxCredentialBytes + 2) / 3 * 4;

bool appendText(PoolBuffer<char>& out, std::string_view s) { return out.append(s.data(), s.size()); }

std::string_view textOf(const OXU8String* s) { return s ? std::string_view(s->stg, s->len) : std::string_view(); }

// Wipes a stack copy of credentials on every way out.
template <size_t N>
struct SecretBuffer {
    char bytes[N];
    ~SecretBuffer() { explicit_bzero(bytes, sizeof bytes); }
};

OXStatus holdString(OXU8String* s, OXU8String*& slot) {
    slot = nullptr;
    if (!s) return OX_OK;
    OXInstance* held = nullptr;
    if (OXStatus st = oxStringService()->toInstance(s, &held); st != OX_OK) return st;
    slot = reinterpret_cast<OXU8String*>(held);
    return OX_OK;
}

void dropString(OXU8String*& s) {
    if (s) s->instance.destroy(s);
    s = nullptr;
}

bool validPort(int32_t port) { return port >= 0 && port <= 65535; }

}  // namespace

const HTProxy* proxyFor(const HTConnection_S& c) {
    const HTProxy& p = c.useSSL ? c.httpsProxy : c.httpProxy;
    return p.host ? &p : nullptr;
}

uint16_t proxyPort(const HTProxy& proxy) {
    return proxy.port > 0 ? static_cast<uint16_t>(proxy.port) : kDefaultProxyPort;
}

OXStatus appendProxyAuthorization(PoolBuffer<char>& out, const HTProxy& proxy) {
    if (!proxy.user) return OX_OK;
    const std::string_view user = textOf(proxy.user), pass = textOf(proxy.pass);
    if (user.size() + 1 + pass.size() > kMaxCredentialBytes) return OX_INVALID_ARGUMENT;
    SecretBuffer<kMaxCredentialBytes> plain;
    SecretBuffer<kMaxEncodedCredentialBytes> encoded;
    const size_t plainL = user.size() + 1 + pass.size();
    char* end = std::copy(user.begin(), user.end(), plain.bytes);
    *end++ = ':';
    std::copy(pass.begin(), pass.end(), end);
    size_t encodedL = 0;
    if (OXStatus st = oxBase64Encode(plain.bytes, plainL, encoded.bytes, sizeof encoded.bytes, &encodedL); st != OX_OK)
        return st;
    const bool added = appendText(out, "Proxy-Authorization: Basic ") && appendText(out, {encoded.bytes, encodedL}) &&
                       appendText(out, "\r\n");
    return added ? OX_OK : OX_NO_MEMORY;
}

OXStatus openTunnel(Channel& ch, const IoLimits& limits, const HTProxy& proxy, std::string_view host, uint16_t port,
                    PoolBuffer<char>& scratch, ResponseReader& reader) {
    scratch.clear();
    const bool built = appendText(scratch, "CONNECT ") && appendAuthority(scratch, host, port, 0) &&
                       appendText(scratch, " HTTP/1.1\r\nHost: ") && appendAuthority(scratch, host, port, 0) &&
                       appendText(scratch, "\r\n");
    if (!built) return OX_NO_MEMORY;
    if (OXStatus st = appendProxyAuthorization(scratch, proxy); st != OX_OK) return st;
    if (!appendText(scratch, "\r\n")) return OX_NO_MEMORY;
    OXStatus st = ch.writeAll(scratch.data(), scratch.size(), limits);
    scratch.clear();
    if (st != OX_OK) return st;
    // A successful answer to CONNECT has no body whatever its headers say: read it as a HEAD's.
    reader.reset();
    st = reader.readHead(ch, limits, true);
    const int32_t code = reader.head().code;
    const bool leftover = reader.hasLeftover();
    reader.reset();
    if (st != OX_OK) return st;
    if (code == 407) return OX_HTTP_PROXY_AUTH_REQUIRED;
    if (code < 200 || code > 299) return OX_HTTP_TUNNEL_REFUSED;
    return leftover ? OX_HTTP_MALFORMED_RESPONSE : OX_OK;  // the proxy may not speak for the server
}

OXStatus setProxyStrings(HTProxy& proxy, OXU8String* host, int32_t port, OXU8String* user, OXU8String* pass) {
    if (!host || host->len == 0 || !validPort(port)) return OX_INVALID_ARGUMENT;
    HTProxy next{nullptr, port, nullptr, nullptr};
    OXStatus st = holdString(host, next.host);
    if (st == OX_OK) st = holdString(user && user->len ? user : nullptr, next.user);
    if (st == OX_OK) st = holdString(next.user ? pass : nullptr, next.pass);
    if (st != OX_OK) {
        clearProxySettings(next);
        return st;
    }
    clearProxySettings(proxy);
    proxy = next;
    return OX_OK;
}

OXStatus setProxyBytes(HTProxy& proxy, OX_POOL_S* pool, std::string_view host, int32_t port, std::string_view user,
                       std::string_view pass) {
    OXStringExt_S* strings = oxStringService();
    Owned<OXU8String> h, u, p;
    OXStatus st = strings->createU8(strings, pool, host.data(), host.size(), OX_STR_COPY, h.out());
    if (st == OX_OK && !user.empty()) st = strings->createU8(strings, pool, user.data(), user.size(), OX_STR_COPY, u.out());
    if (st == OX_OK && !user.empty() && pass.data())
        st = strings->createU8(strings, pool, pass.data(), pass.size(), OX_STR_COPY, p.out());
    return st == OX_OK ? setProxyStrings(proxy, h.get(), port, u.get(), p.get()) : st;
}

OXStatus setProxyWide(HTProxy& proxy, OX_POOL_S* pool, const OXChar* host, OXStrSize hostL, int32_t port,
                      const OXChar* user, OXStrSize userL, const OXChar* pass, OXStrSize passL) {
    OXStringExt_S* strings = oxStringService();
    Owned<OXU8String> h, u, p;
    OXStatus st = strings->wideToU8(strings, pool, host, hostL, h.out());
    if (st == OX_OK && user && userL > 0) st = strings->wideToU8(strings, pool, user, userL, u.out());
    if (st == OX_OK && user && userL > 0 && pass) st = strings->wideToU8(strings, pool, pass, passL, p.out());
    return st == OX_OK ? setProxyStrings(proxy, h.get(), port, u.get(), p.get()) : st;
}

void clearProxySettings(HTProxy& proxy) {
    dropString(proxy.host);
    dropString(proxy.user);
    dropString(proxy.pass);
    proxy.port = 0;
}

}  // namespace ox::http
