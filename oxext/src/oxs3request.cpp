// Request construction: headers, addressing, the path sent, and requests to other services.
#include "oxs3request.h"

#include <charconv>
#include <cstdio>

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3encode.h"
#include "oxs3encrypt.h"
#include "oxs3owned.h"
#include "oxs3text.h"

namespace s3 {
namespace {

constexpr std::string_view kDateHeader = "Date";
constexpr std::string_view kAcceptHeader = "Accept";
constexpr std::string_view kAnyType = "*/*";
constexpr std::string_view kContentLengthHeader = "Content-Length";
constexpr std::string_view kTokenHeader = "x-amz-security-token";
constexpr std::string_view kHostHeader = "Host";
constexpr std::string_view kContentTypeHeader = "Content-Type";
constexpr std::string_view kFormType = "application/x-www-form-urlencoded";
constexpr std::string_view kRangeHeader = "Range";

constexpr std::string_view kMethodTexts[] = {"GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH"};

using DateFormatter = OXStatus (*)(OXDateTime, char*, size_t);

OXStatus setDate(OXDictionary headers, std::string_view name, DateFormatter format, OXDateTime when) {
    char text[OX_HTTP_DATE_SIZE];
    OXStatus st = format(when, text, sizeof text);
    return st == OX_OK ? setText(headers, name, text) : st;
}

OXStatus setDateHeaders(OXWebClient_S* wc, OXDictionary headers, OXDateTime when) {
    OXStatus st = setDate(headers, kDateHeader, wc->formatHttpDate, when);
    if (st == OX_OK) st = setDate(headers, kIsoDateEntry, wc->formatIsoDate, when);
    if (st == OX_OK) st = setDate(headers, kDateTimeHeader, wc->formatIsoDateTime, when);
    return st;
}

OXStatus setNumber(OXDictionary headers, std::string_view name, uint64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return setText(headers, name, std::string_view(digits, static_cast<size_t>(end - digits)));
}

// Accept, Content-Length, the payload hash and the session token.
OXStatus addStandardHeaders(OXS3Connection connection, OXDictionary headers, std::string_view payloadHash,
                            uint64_t contentLength) {
    OXStatus st = setText(headers, kAcceptHeader, kAnyType);
    if (st == OX_OK) st = setNumber(headers, kContentLengthHeader, contentLength);
    if (st == OX_OK) st = setText(headers, kPayloadHashHeader, payloadHash);
    if (st == OX_OK && connection->sessionToken) st = setText(headers, kTokenHeader, view(connection->sessionToken));
    return st;
}

// A proxy carries requests of the HTTP connection's scheme.
bool proxied(const HTConnection http) {
    const HTProxy& proxy = http->useSSL ? http->httpsProxy : http->httpProxy;
    return proxy.host != nullptr;
}

std::string_view pathPrefix(const AWSEndpoint* endpoint) { return endpoint->pathPrefix ? endpoint->pathPrefix : ""; }

// Where the request goes, and how the bucket is addressed.
struct Addressing {
    HTConnection http;          // the HTTP connection the request goes on
    bool otherHttp;             // not the connection's own
    std::string_view baseHost;  // the given HTTP connection's host, else the endpoint's
};

Addressing addressingOf(OXS3Connection connection, HTConnection http) {
    const bool given = http != nullptr;
    HTConnection used = given ? http : connection->htConnection;
    const char* host = given ? http->host : connection->endPoint->htEndpoint.host;
    return {used, given && http != connection->htConnection, host ? host : ""};
}

// A server on a port other than its scheme's own sees the port in the Host header (a proxy
// writes it there too), so the signed Host must carry it or the signatures differ.
void appendPortIfNotDefault(TextBuffer& host, HTConnection http) {
    if (!http || http->port == 0 || http->port == (http->useSSL ? 443 : 80)) return;
    char port[8];
    int n = std::snprintf(port, sizeof port, ":%u", static_cast<unsigned>(http->port));
    host.append(std::string_view(port, static_cast<size_t>(n)));
}

OXStatus setHostHeader(OXS3Connection connection, const Addressing& to, const RequestTarget* target,
                       std::string_view bucket, OXDictionary headers) {
    TextBuffer host(connection->pool);
    HTConnection server = to.http;
    if (target && target->connection) {
        server = target->connection;
        host.append(server->host ? server->host : "");
    } else if (to.otherHttp) {
        host.append(to.baseHost);
    } else if (!bucket.empty() && connection->endPoint->region != Test_Region &&
               (!proxied(to.http) || to.http->useSSL)) {
        appendLowerAscii(host, bucket);
        host.push('.');
        host.append(to.baseHost);
    } else {
        host.append(to.baseHost);
    }
    appendPortIfNotDefault(host, server);
    return host.status() == OX_OK ? setText(headers, kHostHeader, host.view()) : host.status();
}

void replaceRequestPath(OXS3Connection connection, OXU8String* path) {
    if (connection->requestPath) connection->requestPath->instance.destroy(connection->requestPath);
    connection->requestPath = path;
}

OXStatus setRequestPath(OXS3Connection connection, const Addressing& to, std::string_view bucket,
                        std::string_view path) {
    replaceRequestPath(connection, nullptr);
    const bool virtualHosted = !proxied(to.http) || to.http->useSSL || bucket.empty() || to.otherHttp;
    Owned<OXU8String> made;
    OXStatus st;
    if (virtualHosted && pathPrefix(connection->endPoint).empty()) {
        OXStringExt_S* strings = connection->oxs3->oxstring;
        st = strings->createU8(strings, connection->pool, path.data(), path.size(), OX_STR_COPY, made.out());
    } else {
        st = buildPathRequest(connection, bucket, path, made.out());
    }
    if (st == OX_OK) replaceRequestPath(connection, made.release());
    return st;
}

// Signs with the unencoded path, then puts the encoded one in its place.
OXStatus signAndEncodePath(OXS3Connection connection, const RequestTarget* target, std::string_view method,
                           std::string_view bucket, OXDictionary query, OXDictionary headers) {
    OXStatus st = signRequest(connection, target, method, view(connection->requestPath), bucket, query, headers);
    Owned<OXU8String> encoded;
    if (st == OX_OK)
        st = urlEncodePath(connection->oxs3->oxstring, connection->pool, view(connection->requestPath), encoded.out());
    if (st == OX_OK) replaceRequestPath(connection, encoded.release());
    return st;
}

// ---- other services

bool isPost(std::string_view method) {
    return method.size() == 4 && oxzsu8NormCompare(method.data(), method.size(), "POST", 4) == 0;
}

OXStatus copyProxy(HTConnection to, const HTProxy& proxy, int32_t which) {
    if (!proxy.host) return OX_OK;
    return to->setProxyU8Stg(to, proxy.host, proxy.port, proxy.user, proxy.pass, which);
}

OXStatus createServiceConnection(OXS3Connection connection, std::string_view host, Owned<HTConnection_S>& http) {
    TextBuffer name(connection->pool);
    name.append(host);
    if (name.status() != OX_OK) return name.status();
    OXWebClient_S* wc = webClient(connection->oxs3);
    const HTConnection own = connection->htConnection;
    OXStatus st = wc->createConnection(wc, connection->pool, name.c_str(), OX_DEFAULT_PORT, OX_TRUE, own->sslOptions,
                                       http.out());
    if (st == OX_OK) st = copyProxy(http.get(), own->httpProxy, OX_PROXY_HTTP);
    if (st == OX_OK) st = copyProxy(http.get(), own->httpsProxy, OX_PROXY_HTTPS);
    return st;
}

// A POST's form body and the hash of its bytes.
OXStatus formBody(OXS3Connection connection, OXDictionary query, Owned<OXU8String>& body, TextBuffer& hash) {
    OXS3Extension* ext = connection->oxs3;
    OXStatus st = buildQueryString(ext->oxstring, connection->pool, query, body.out());
    if (st != OX_OK) return st;
    return appendSha256Hex(webClient(ext), view(body.get()), hash);
}

OXStatus addServiceHeaders(OXS3Connection connection, const ServiceRequest& request, OXDictionary headers,
                           const OXU8String* body, std::string_view payloadHash) {
    const uint64_t length = body ? body->len : request.contentLength;
    OXStatus st = addStandardHeaders(connection, headers, payloadHash, length);
    if (st == OX_OK && body) st = setText(headers, kContentTypeHeader, kFormType);
    if (st == OX_OK) st = setText(headers, kServiceNameEntry, request.service);
    if (st == OX_OK) st = setText(headers, kHostHeader, request.host);
    if (st == OX_OK) st = setText(headers, kRegionEntry, request.region);
    return st;
}

}  // namespace

OXStatus createRequest(OXS3Connection connection, OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                       OXU8String* encKeyContext, OXDictionary* headers, OXDateTime dateTime) {
    if (!connection || !headers) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = connection->oxs3;
    Owned<OXDictionary_S> made;
    OXStatus st = ext->oxdictionary->create(ext->oxdictionary, connection->pool, 0, made.out());
    if (st == OX_OK) st = setDateHeaders(webClient(ext), made.get(), dateTime);
    if (st == OX_OK && (encKey || encKeyAlg || encKeyId || encKeyContext))
        st = setEncryptionHeaders(ext, made.get(), encKey, encKeyAlg, encKeyId, encKeyContext, false);
    if (st == OX_OK) *headers = made.release();
    return st;
}

OXStatus startRequest(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                      std::string_view method, std::string_view path, std::string_view bucket, OXDictionary query,
                      std::string_view payloadHash, uint64_t contentLength, OXDictionary* headers,
                      OXDateTime dateTime) {
    return startRequestWithEncryption(connection, http, target, method, path, bucket, query, payloadHash,
                                      contentLength, nullptr, nullptr, nullptr, nullptr, headers, dateTime);
}

OXStatus startRequestWithEncryption(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                                    std::string_view method, std::string_view path, std::string_view bucket,
                                    OXDictionary query, std::string_view payloadHash, uint64_t contentLength,
                                    OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                    OXU8String* encKeyContext, OXDictionary* headers, OXDateTime dateTime) {
    if (!headers) return OX_INVALID_ARGUMENT;
    Owned<OXDictionary_S> made;
    OXStatus st = createRequest(connection, encKey, encKeyAlg, encKeyId, encKeyContext, made.out(), dateTime);
    if (st == OX_OK)
        st = buildRequest(connection, http, target, made.get(), method, bucket, path, query, payloadHash,
                          contentLength);
    if (st == OX_OK) *headers = made.release();
    return st;
}

OXStatus buildRequest(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                      OXDictionary headers, std::string_view method, std::string_view bucket, std::string_view path,
                      OXDictionary query, std::string_view payloadHash, uint64_t contentLength) {
    if (!connection || !headers) return OX_INVALID_ARGUMENT;
    const Addressing to = addressingOf(connection, http);
    OXStatus st = addStandardHeaders(connection, headers, payloadHash, contentLength);
    if (st == OX_OK) st = setHostHeader(connection, to, target, bucket, headers);
    if (st == OX_OK) st = setText(headers, kRegionEntry, connection->endPoint->name);
    if (st == OX_OK) st = setRequestPath(connection, to, bucket, path);
    if (st == OX_OK) st = signAndEncodePath(connection, target, method, bucket, query, headers);
    return st;
}

OXStatus buildPathRequest(OXS3Connection connection, std::string_view bucket, std::string_view path,
                          OXU8String** out) {
    if (!connection || !out) return OX_INVALID_ARGUMENT;
    TextBuffer text(connection->pool);
    const std::string_view prefix = pathPrefix(connection->endPoint);
    if (prefix.empty() || prefix.front() != '/') text.push('/');
    text.append(prefix);
    if (text.view().back() != '/') text.push('/');
    // A request to the service itself names no bucket: its path follows the prefix directly
    // rather than after an empty bucket segment.
    if (bucket.empty()) text.truncate(text.size() - 1);
    text.append(bucket);
    text.append(path);
    return copyToString(connection->oxs3->oxstring, connection->pool, text, out);
}

OXStatus buildRequestForService(OXS3Connection connection, const ServiceRequest& request, OXDictionary headers,
                                OXU8String** body, HTConnection* result) {
    if (!connection || !headers || !body || !result) return OX_INVALID_ARGUMENT;
    const bool post = isPost(request.method);
    if (post && (!request.query || request.query->count == 0)) return OX_INVALID_ARGUMENT;
    Owned<HTConnection_S> http;
    Owned<OXU8String> form;
    TextBuffer hash(connection->pool);
    OXStatus st = createServiceConnection(connection, request.host, http);
    if (st == OX_OK && post) st = formBody(connection, request.query, form, hash);
    if (st != OX_OK) return st;
    const std::string_view payloadHash = post ? hash.view() : request.payloadHash;
    st = addServiceHeaders(connection, request, headers, form.get(), payloadHash);
    Owned<OXU8String> path;
    OXStringExt_S* strings = connection->oxs3->oxstring;
    if (st == OX_OK)
        st = strings->createU8(strings, connection->pool, request.path.data(), request.path.size(), OX_STR_COPY,
                               path.out());
    if (st == OX_OK) replaceRequestPath(connection, path.release());
    if (st == OX_OK)
        st = signAndEncodePath(connection, nullptr, request.method, {}, post ? nullptr : request.query, headers);
    if (st != OX_OK) return st;
    *body = form.release();
    *result = http.release();
    return OX_OK;
}

OXStatus requestSetRange(OXDictionary headers, std::string_view headerName, uint64_t offset, uint64_t length) {
    if (!headers) return OX_INVALID_ARGUMENT;
    char text[64];
    const int len = std::snprintf(text, sizeof text, "bytes=%llu-%llu", static_cast<unsigned long long>(offset),
                                  static_cast<unsigned long long>(offset + length - 1));
    const std::string_view name = headerName.empty() ? kRangeHeader : headerName;
    return setText(headers, name, std::string_view(text, static_cast<size_t>(len)));
}

OXStatus appendHeader(OXU8String* string, UTF8CStr name, UTF8ByteLength nameLength, UTF8CStr value,
                      UTF8ByteLength valueLength) {
    if (!string || (!name && nameLength) || (!value && valueLength)) return OX_INVALID_ARGUMENT;
    return appendText(string, {std::string_view(name ? name : "", nameLength),
                               std::string_view(value ? value : "", valueLength), "\r\n"});
}

std::string_view methodText(HTTPMethod method) {
    const auto index = static_cast<size_t>(method);
    return index < std::size(kMethodTexts) ? kMethodTexts[index] : std::string_view();
}

}  // namespace s3
