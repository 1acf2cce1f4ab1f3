// HTTP connections: the record, its operations and the exchange's steps. Sockets, TLS, proxies,
// request heads and response reading live in the http_* files; this file decides when a socket
// is opened, reused, drained or dropped, and keeps the fields the caller reads in step.
#include <cstring>
#include <new>
#include <string_view>

#include "htconnection_internal.h"
#include "http_channel.h"
#include "http_proxy.h"
#include "http_request.h"
#include "http_response.h"
#include "http_status.h"
#include "object.h"
#include "ox/htconnection.h"
#include "poolbuf.h"

namespace {

using namespace ox::http;
using ox::PoolBuffer;

constexpr uint32_t kConnectionOven = OX_OVEN('h', 't', 'c', 'n');
constexpr int32_t kDefaultTimeoutMs = 300000;
// Bodies up to this size are copied behind the head so the whole request is one send.
constexpr size_t kInlineBodyBytes = 16 * 1024;
// An unread rest of a body up to this size is read and dropped to keep the socket; a longer one
// costs less to abandon with its socket.
constexpr uint64_t kDrainLimit = 64 * 1024;

struct Connection {
    HTConnection_S rec{};  // first: the record's address is the connection's
    Channel channel;
    ResponseReader reader;
    PoolBuffer<char> out;      // the request head, and a small body behind it
    PoolBuffer<char> scratch;  // authority, proxy origin and credentials while a head is built
    int64_t bodyLeft = -1;     // request body bytes announced and not yet sent; -1 when not counted
    bool haveResponse = false; // a final head was read and its body may be read
    bool replayable = false;   // the request went out whole from `out` on a reused socket

    explicit Connection(OX_POOL_S* pool) noexcept : reader(pool), out(pool), scratch(pool) {}
};

Connection& self(HTConnection c) { return *reinterpret_cast<Connection*>(c); }

IoLimits limitsOf(const HTConnection_S& c) { return {c.timeout, c.abortEvent}; }

uint16_t schemePort(bool tls) { return tls ? 443 : 80; }

// ---- socket life ----

void dropSocket(Connection& k, HTState next) {
    k.channel.close();
    k.rec.state = next;
}

// Every failure of an exchange leaves no socket behind: what is on it can no longer be trusted.
OXStatus fail(Connection& k, OXStatus st) {
    k.rec.tcpError = k.channel.socket().lastErrno();
    dropSocket(k, htStateClosed);
    k.reader.reset();
    k.haveResponse = false;
    return st;
}

OXStatus connectChannel(Connection& k) {
    HTConnection_S& c = k.rec;
    const IoLimits limits = limitsOf(c);
    const HTProxy* proxy = proxyFor(c);
    k.channel.close();
    k.reader.reset();
    k.haveResponse = false;
    c.tcpError = 0;
    OXStatus st = proxy ? k.channel.socket().connect(proxy->host->stg, proxyPort(*proxy), limits)
                        : k.channel.socket().connect(c.host, c.port, limits);
    if (st == OX_OK && proxy && c.useSSL) st = openTunnel(k.channel, limits, *proxy, c.host, c.port, k.scratch, k.reader);
    if (st == OX_OK && c.useSSL) st = k.channel.tls().handshake(k.channel.socket(), c.sslOptions, c.host, limits);
    if (st != OX_OK) return fail(k, st);
    c.state = htStateOpen;
    c.requestCount = 0;
    c.lastActivityTime = -1.0;
    return OX_OK;
}

bool idle(const Connection& k) {
    return k.rec.state == htStateOpen || (k.rec.state == htStateResponseRead && k.reader.bodyDone());
}

// Closes after a finished body when the server asked for it or sent more than the response.
void finishBody(Connection& k) {
    k.rec.lastActivityTime = oxzdtgmt();
    if (k.rec.closeRequired || k.reader.hasLeftover()) dropSocket(k, htStateClosedByServer);
}

// Makes the socket ready for a new request: a fresh one, or the kept-alive one once its last
// body is out of the way and the server has not closed it while it was idle.
OXStatus prepareSocket(Connection& k) {
    if (!k.channel.isOpen()) return connectChannel(k);
    if (k.rec.state == htStateResponseRead && !k.reader.bodyDone()) {
        if (k.reader.skipBody(k.channel, limitsOf(k.rec), kDrainLimit) != OX_OK || !k.reader.bodyDone())
            return connectChannel(k);
        finishBody(k);
        if (!k.channel.isOpen()) return connectChannel(k);
    }
    if (!idle(k)) return connectChannel(k);  // an exchange was left half done
    if (k.channel.inputPending()) {
        dropSocket(k, htStateClosedByServer);
        return connectChannel(k);
    }
    return OX_OK;
}

// ---- request ----

struct RequestArgs {
    HTTPMethod method;
    std::string_view path, query;
    OXDictionary headers;
    int64_t contentLength;
    std::string_view body;
    bool expectContinue;
};

// The authority, and for a plain proxy the absolute-form origin and credentials, in scratch:
// [0, authorityEnd) is "host[:port]", the rest the origin prefix and then the header lines.
OXStatus describeTarget(Connection& k, RequestParts& parts) {
    HTConnection_S& c = k.rec;
    PoolBuffer<char>& s = k.scratch;
    s.clear();
    const HTProxy* proxy = c.useSSL ? nullptr : proxyFor(c);  // a tunnel hides the proxy from requests
    if (!appendAuthority(s, c.host, c.port, schemePort(c.useSSL))) return OX_NO_MEMORY;
    const size_t authorityEnd = s.size();
    // Reserved first: the origin repeats the authority from the same buffer.
    if (proxy && !(s.reserve(2 * authorityEnd + 7) && s.append("http://", 7) && s.append(s.data(), authorityEnd)))
        return OX_NO_MEMORY;
    const size_t originEnd = s.size();
    if (proxy) {
        if (OXStatus st = appendProxyAuthorization(s, *proxy); st != OX_OK) return st;
    }
    parts.authority = {s.data(), authorityEnd};
    parts.origin = {s.data() + authorityEnd, originEnd - authorityEnd};
    parts.extraLines = {s.data() + originEnd, s.size() - originEnd};
    return OX_OK;
}

// The head (with a small body) and then a large body from the caller's memory.
OXStatus transmit(Connection& k, std::string_view largeBody) {
    const IoLimits limits = limitsOf(k.rec);
    OXStatus st = k.channel.writeAll(k.out.data(), k.out.size(), limits, !largeBody.empty());
    if (st == OX_OK && !largeBody.empty()) st = k.channel.writeAll(largeBody.data(), largeBody.size(), limits);
    return st;
}

// A kept-alive socket can be closed by the server just as it is reused, after the idle check:
// the loss shows as a reset or close before any answer, and the request was never taken.
bool lostOnReuse(OXStatus st) { return st == OX_HTTP_PEER_CLOSED || st == OX_HTTP_CONNECTION_RESET; }

OXStatus writeRequest(Connection& k, const RequestArgs& a) {
    const bool inlineBody = a.body.size() <= kInlineBodyBytes;
    RequestParts parts;
    parts.method = a.method;
    parts.path = a.path;
    parts.query = a.query;
    parts.headers = a.headers;
    parts.contentLength = a.contentLength >= 0 || a.body.empty() ? a.contentLength : static_cast<int64_t>(a.body.size());
    parts.body = inlineBody ? a.body : std::string_view();
    parts.expectContinue = a.expectContinue;
    if (OXStatus st = describeTarget(k, parts); st != OX_OK) return st;
    int64_t announced = -1;
    if (OXStatus st = buildRequestHead(parts, k.out, announced); st != OX_OK) return st;
    const std::string_view largeBody = inlineBody ? std::string_view() : a.body;
    bool reused = k.rec.requestCount > 0;
    OXStatus st = transmit(k, largeBody);
    if (st != OX_OK && reused && lostOnReuse(st)) {
        reused = false;
        if ((st = connectChannel(k)) == OX_OK) st = transmit(k, largeBody);
    }
    if (st != OX_OK) return fail(k, st);
    k.bodyLeft = announced < 0 ? -1 : announced - static_cast<int64_t>(a.body.size());
    k.replayable = reused && inlineBody && !a.expectContinue;
    return OX_OK;
}

void startExchange(Connection& k, HTTPMethod method, bool expectContinue) {
    HTConnection_S& c = k.rec;
    c.state = expectContinue ? htStateContReqSent : htStateRequestSent;
    c.method = method;
    ++c.requestCount;
    c.lastActivityTime = oxzdtgmt();
    c.closeRequired = OX_FALSE;
    c.responseIsChunked = OX_FALSE;
    c.responseContentLength = -1;
}

OXStatus sendRequest(HTConnection c, HTTPMethod method, UTF8CStr path, UTF8ByteLength pathL, UTF8CStr query,
                     UTF8ByteLength queryL, OXDictionary headers, int64_t contentLength, const void* body,
                     OXMemSize bodyL, OXBoolean expectContinue) {
    if (!c || !path || (queryL && !query) || (bodyL && !body) || (expectContinue && bodyL)) return OX_INVALID_ARGUMENT;
    if (!methodName(method)) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    if (OXStatus st = prepareSocket(k); st != OX_OK) return st;
    k.reader.reset();
    k.haveResponse = false;
    const RequestArgs args{method,        {path, pathL},
                           {query ? query : "", queryL}, headers,
                           contentLength, {static_cast<const char*>(body), bodyL},
                           expectContinue != 0};
    if (OXStatus st = writeRequest(k, args); st != OX_OK) return st;
    startExchange(k, method, expectContinue != 0);
    return OX_OK;
}

OXStatus sendData(HTConnection c, const void* data, OXMemSize length) {
    if (!c || (length && !data)) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    const HTState s = c->state;
    if (s != htStateRequestSent && s != htStateContReqSent && s != htStateContinueRead) return OX_HTTP_WRONG_STATE;
    if (k.bodyLeft >= 0 && length > static_cast<OXMemSize>(k.bodyLeft)) return OX_HTTP_BODY_OVERRUN;
    k.replayable = false;  // the body is the caller's and may be gone
    if (OXStatus st = k.channel.writeAll(data, length, limitsOf(*c)); st != OX_OK) return fail(k, st);
    if (k.bodyLeft >= 0) k.bodyLeft -= static_cast<int64_t>(length);
    c->state = htStateRequestSent;  // from here the interim answer, if any comes, is skipped
    c->lastActivityTime = oxzdtgmt();
    return OX_OK;
}

// ---- response ----

bool bodyNotSent(const Connection& k, bool interimWanted) {
    return k.bodyLeft > 0 || (interimWanted && k.bodyLeft < 0);
}

void reportStatus(const Connection& k, HTTPStatus* status) {
    const ResponseHead& head = k.reader.head();
    status->message = statusForHttp(head.code, head.framing != Framing::None);
    status->status = head.code;
    status->statusText = k.reader.reason();
}

// After a final head: the fields the caller reads. A body the server did not receive in full
// leaves the socket in an unknown place, so it is not kept.
void noteFinalHead(Connection& k, bool interimWanted) {
    HTConnection_S& c = k.rec;
    const ResponseHead& head = k.reader.head();
    c.state = htStateResponseRead;
    c.closeRequired = head.close || bodyNotSent(k, interimWanted);
    c.responseIsChunked = head.framing == Framing::Chunked;
    c.responseContentLength = head.hasContentLength ? static_cast<int64_t>(head.contentLength) : -1;
    c.lastActivityTime = oxzdtgmt();
    k.haveResponse = true;
    if (k.reader.bodyDone()) finishBody(k);
}

// Sends the request once more on a new socket when the reused one died before answering.
OXStatus replay(Connection& k) {
    const HTState state = k.rec.state;
    k.replayable = false;
    OXStatus st = connectChannel(k);
    if (st == OX_OK) st = transmit(k, {});
    if (st != OX_OK) return st;
    k.rec.state = state;
    k.rec.requestCount = 1;
    return OX_OK;
}

OXStatus readHeadOrReplay(Connection& k) {
    const bool requestWasHead = k.rec.method == httpHead;
    OXStatus st = k.reader.readHead(k.channel, limitsOf(k.rec), requestWasHead);
    if (st != OX_OK && k.replayable && lostOnReuse(st) && (st = replay(k)) == OX_OK)
        st = k.reader.readHead(k.channel, limitsOf(k.rec), requestWasHead);
    k.replayable = false;
    return st;
}

OXStatus readResponse(HTConnection c, HTTPStatus* status) {
    if (!c || !status) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    const HTState s = c->state;
    if (s != htStateRequestSent && s != htStateContReqSent && s != htStateContinueRead) return OX_HTTP_WRONG_STATE;
    const bool interimWanted = s == htStateContReqSent;
    while (true) {
        if (OXStatus st = readHeadOrReplay(k); st != OX_OK) return fail(k, st);
        const int32_t code = k.reader.head().code;
        if (code >= 200) break;
        if (code == 100 && interimWanted) {
            c->state = htStateContinueRead;
            reportStatus(k, status);
            return OX_OK;
        }
    }
    noteFinalHead(k, interimWanted);
    reportStatus(k, status);
    return OX_OK;
}

OXStatus readInto(HTConnection c, void* buffer, OXMemSize length, OXMemSize* bytesRead) {
    if (!c || !bytesRead || (length && !buffer)) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    if (!k.haveResponse) return OX_HTTP_WRONG_STATE;
    size_t got = 0;
    if (!k.reader.bodyDone()) {
        OXStatus st = k.reader.readBody(k.channel, limitsOf(*c), static_cast<char*>(buffer), length, got);
        if (st != OX_OK) return fail(k, st);
        if (k.reader.bodyDone()) finishBody(k);
    }
    *bytesRead = got;
    return got < length || (length == 0 && k.reader.bodyDone()) ? OX_END_OF_DATA : OX_OK;
}

OXStatus readData(HTConnection c, OX_POOL_S* pool, void** data, OXMemSize* length) {
    if (!c || !pool || !data || !length) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    if (!k.haveResponse) return OX_HTTP_WRONG_STATE;
    char* body = nullptr;
    size_t len = 0;
    if (!k.reader.bodyDone()) {
        OXStatus st = k.reader.readWholeBody(k.channel, limitsOf(*c), pool, body, len);
        if (st != OX_OK) return fail(k, st);
        finishBody(k);
    }
    if (len == 0) {
        if (body) pool->memFree(pool, body);
        *data = nullptr;
        *length = 0;
        return OX_END_OF_DATA;
    }
    *data = body;
    *length = len;
    return OX_OK;
}

OXStatus getResponseHeader(HTConnection c, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr* value,
                           UTF8ByteLength* valueL) {
    if (!c || !name || !value || !valueL) return OX_INVALID_ARGUMENT;
    auto found = self(c).reader.field({name, nameL});
    if (!found) return OX_NOT_FOUND;
    *value = found->data();
    *valueL = found->size();
    return OX_OK;
}

OXStatus getResponseHeaderAt(HTConnection c, int64_t index, UTF8CStr* name, UTF8ByteLength* nameL, UTF8CStr* value,
                             UTF8ByteLength* valueL) {
    if (!c || index < 0 || !name || !nameL || !value || !valueL) return OX_INVALID_ARGUMENT;
    std::string_view n, v;
    if (!self(c).reader.fieldAt(static_cast<size_t>(index), n, v)) return OX_END_OF_DATA;
    *name = n.data();
    *nameL = n.size();
    *value = v.data();
    *valueL = v.size();
    return OX_OK;
}

// ---- opening and closing ----

OXStatus openConnection(HTConnection c) {
    if (!c) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    if (k.channel.isOpen()) {
        if (!idle(k) || !k.channel.inputPending()) return OX_HTTP_ALREADY_OPEN;
        dropSocket(k, htStateClosedByServer);
    }
    return connectChannel(k);
}

OXStatus closeConnection(HTConnection c) {
    if (!c) return OX_INVALID_ARGUMENT;
    Connection& k = self(c);
    dropSocket(k, htStateClosed);
    k.reader.reset();
    k.haveResponse = false;
    return OX_OK;
}

// ---- settings ----

OXStatus setBufferLength(HTConnection c, OXMemSize length) {
    if (!c) return OX_INVALID_ARGUMENT;
    return self(c).reader.setBufferLength(static_cast<size_t>(length));
}

OXStatus setEvent(HTConnection c, OX_EVENT_S* abortEvent) {
    if (!c) return OX_INVALID_ARGUMENT;
    c->abortEvent = abortEvent;
    return OX_OK;
}

HTProxy* proxySlot(HTConnection c, int32_t which) {
    if (which == OX_PROXY_HTTP) return &c->httpProxy;
    if (which == OX_PROXY_HTTPS) return &c->httpsProxy;
    return nullptr;
}

OXStatus setProxy(HTConnection c, const OXChar* host, OXStrSize hostL, int32_t port, const OXChar* user,
                  OXStrSize userL, const OXChar* pass, OXStrSize passL, int32_t which) {
    HTProxy* slot = c && host ? proxySlot(c, which) : nullptr;
    if (!slot) return OX_INVALID_ARGUMENT;
    return setProxyWide(*slot, c->pool, host, hostL, port, user, userL, pass, passL);
}

OXStatus setProxyU8(HTConnection c, UTF8CStr host, UTF8ByteLength hostL, int32_t port, UTF8CStr user,
                    UTF8ByteLength userL, UTF8CStr pass, UTF8ByteLength passL, int32_t which) {
    HTProxy* slot = c && host ? proxySlot(c, which) : nullptr;
    if (!slot) return OX_INVALID_ARGUMENT;
    return setProxyBytes(*slot, c->pool, {host, hostL}, port, user ? std::string_view(user, userL) : std::string_view(),
                         pass ? std::string_view(pass, passL) : std::string_view());
}

OXStatus setProxyU8Stg(HTConnection c, OXU8String* host, int32_t port, OXU8String* user, OXU8String* pass,
                       int32_t which) {
    HTProxy* slot = c ? proxySlot(c, which) : nullptr;
    if (!slot) return OX_INVALID_ARGUMENT;
    return setProxyStrings(*slot, host, port, user, pass);
}

OXStatus clearProxy(HTConnection c, int32_t which) {
    if (!c || which < OX_PROXY_HTTP || which > OX_PROXY_BOTH) return OX_INVALID_ARGUMENT;
    if (which != OX_PROXY_HTTPS) clearProxySettings(c->httpProxy);
    if (which != OX_PROXY_HTTP) clearProxySettings(c->httpsProxy);
    return OX_OK;
}

OXStatus setSSLOptions(HTConnection c, SSLOptions_S* opts) {
    if (!c) return OX_INVALID_ARGUMENT;
    SSLOptions_S* copy = nullptr;
    if (opts) {
        if (OXStatus st = opts->duplicate(opts, c->pool, &copy); st != OX_OK) return st;
    }
    if (c->sslOptions) c->sslOptions->destroy(c->sslOptions);
    c->sslOptions = copy;
    return OX_OK;
}

// ---- making and releasing ----

void freeConnection(Connection& k) {
    OX_POOL_S* pool = k.rec.pool;
    k.channel.close();
    clearProxySettings(k.rec.httpProxy);
    clearProxySettings(k.rec.httpsProxy);
    if (k.rec.sslOptions) k.rec.sslOptions->destroy(k.rec.sslOptions);
    if (k.rec.host) pool->memFree(pool, k.rec.host);
    k.~Connection();
    pool->memFree(pool, &k);
}

OXStatus destroyConnection(void* rec) {
    if (!rec) return OX_INVALID_ARGUMENT;
    auto* c = static_cast<HTConnection>(rec);
    if (ox::dropReference(&c->instance)) freeConnection(self(c));
    return OX_OK;
}

OXStatus cloneConnection(HTConnection c, OX_POOL_S* pool, HTConnection* out);

void fillOperations(HTConnection_S& c) {
    c.close = closeConnection;
    c.readData = readData;
    c.readInto = readInto;
    c.sendData = sendData;
    c.sendRequest = sendRequest;
    c.open = openConnection;
    c.readResponse = readResponse;
    c.clone = cloneConnection;
    c.setBufferLength = setBufferLength;
    c.setEvent = setEvent;
    c.setProxy = setProxy;
    c.setProxyU8 = setProxyU8;
    c.setProxyU8Stg = setProxyU8Stg;
    c.clearProxy = clearProxy;
    c.setSSLOptions = setSSLOptions;
    c.getResponseHeader = getResponseHeader;
    c.getResponseHeaderAt = getResponseHeaderAt;
}

Connection* newConnection(OX_POOL_S* pool, std::string_view host, uint16_t port, bool useSSL) {
    void* mem = pool->memAlloc(pool, sizeof(Connection), OX_POOL_ZERO_FILL);
    auto* hostCopy = static_cast<char*>(pool->memAlloc(pool, host.size() + 1, 0));
    if (!mem || !hostCopy) {
        pool->memFree(pool, mem);
        pool->memFree(pool, hostCopy);
        return nullptr;
    }
    std::memcpy(hostCopy, host.data(), host.size());
    hostCopy[host.size()] = '\0';
    auto* k = new (mem) Connection(pool);
    HTConnection_S& c = k->rec;
    ox::initInstance(c.instance, kConnectionOven, OX_TYPE_HTCONNECTION, destroyConnection);
    c.pool = pool;
    c.useSSL = useSSL ? OX_TRUE : OX_FALSE;
    c.host = hostCopy;
    c.port = port == OX_DEFAULT_PORT ? schemePort(useSSL) : port;
    c.state = htStateCreated;
    c.method = httpUnknown;
    c.lastActivityTime = -1.0;
    c.responseContentLength = -1;
    c.timeout = kDefaultTimeoutMs;
    fillOperations(c);
    return k;
}

OXStatus cloneConnection(HTConnection c, OX_POOL_S* pool, HTConnection* out) {
    if (!c || !pool || !out) return OX_INVALID_ARGUMENT;
    HTConnection copy = nullptr;
    OXStatus st = oxHtCreateConnection(nullptr, pool, c->host, c->port, c->useSSL, c->sslOptions, &copy);
    if (st != OX_OK) return st;
    copy->timeout = c->timeout;
    st = self(copy).reader.setBufferLength(self(c).reader.bufferLength());
    for (int32_t which : {OX_PROXY_HTTP, OX_PROXY_HTTPS}) {
        const HTProxy& p = *proxySlot(c, which);
        if (st == OX_OK && p.host) st = setProxyStrings(*proxySlot(copy, which), p.host, p.port, p.user, p.pass);
    }
    if (st != OX_OK) {
        destroyConnection(copy);
        return st;
    }
    *out = copy;
    return OX_OK;
}

}  // namespace

OXStatus oxHtCreateConnection(OXWebClient_S*, OX_POOL_S* pool, const char* host, uint16_t port, OXBoolean useSSL,
                              SSLOptions_S* sslOptions, HTConnection_S** out) {
    if (!pool || !host || !*host || !out) return OX_INVALID_ARGUMENT;
    Connection* k = newConnection(pool, host, port, useSSL != 0);
    if (!k) return OX_NO_MEMORY;
    if (OXStatus st = setSSLOptions(&k->rec, sslOptions); st != OX_OK) {
        freeConnection(*k);
        return st;
    }
    *out = &k->rec;
    return OX_OK;
}
