// Forward proxies: which one a connection goes through, its credentials as a
// Proxy-Authorization line, CONNECT tunnels for TLS origins, and the proxy settings themselves.
#pragma once

#include <string_view>

#include "http_channel.h"
#include "http_response.h"
#include "ox/htconnection.h"
#include "poolbuf.h"

namespace ox::http {

inline constexpr uint16_t kDefaultProxyPort = 1080;  // curl's choice when a proxy names no port

// The proxy the connection's origin is reached through, or null: the HTTPS proxy for TLS
// origins, the HTTP proxy for plain ones.
const HTProxy* proxyFor(const HTConnection_S& c);
uint16_t proxyPort(const HTProxy& proxy);

// Appends "Proxy-Authorization: Basic ...\r\n" when the proxy has a user.
OXStatus appendProxyAuthorization(PoolBuffer<char>& out, const HTProxy& proxy);

// Over a channel connected to the proxy, asks for a tunnel to host:port. scratch is reused for
// the request; reader reads the answer and is left empty.
OXStatus openTunnel(Channel& ch, const IoLimits& limits, const HTProxy& proxy, std::string_view host, uint16_t port,
                    PoolBuffer<char>& scratch, ResponseReader& reader);

// Proxy settings. The strings are held by reference (copies of static ones).
OXStatus setProxyStrings(HTProxy& proxy, OXU8String* host, int32_t port, OXU8String* user, OXU8String* pass);
OXStatus setProxyBytes(HTProxy& proxy, OX_POOL_S* pool, std::string_view host, int32_t port, std::string_view user,
                       std::string_view pass);
OXStatus setProxyWide(HTProxy& proxy, OX_POOL_S* pool, const OXChar* host, OXStrSize hostL, int32_t port,
                      const OXChar* user, OXStrSize userL, const OXChar* pass, OXStrSize passL);
void clearProxySettings(HTProxy& proxy);

}  // namespace ox::http
