// The connection object: creation for built-in and custom regions, clones for worker threads,
// close and destroy, proxies from the environment, the keep-alive rule and the error text.
#include <cstring>

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3areas.h"
#include "oxs3bucket.h"
#include "oxs3chunked.h"
#include "oxs3connection.h"
#include "oxs3dir.h"
#include "oxs3encode.h"
#include "oxs3encrypt.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3regions.h"
#include "oxs3sign.h"
#include "oxs3text.h"
#include "oxs3write.h"

namespace s3 {
namespace {

constexpr int32_t kDefaultThreadCount = 10;
constexpr OXMemSize kDefaultMinBlockSize = 5242880;
constexpr int kOpenAttempts = 3;

KeepAliveClock keepAliveClock = oxzdtgmt;

// The record callers see, and beside it what only the extension uses.
struct ConnectionBlock {
    OXS3ConnectionStruct record;
    SigningKeyCache signingKeys;
};

template <class T>
void release(T*& object) {
    if (object) reinterpret_cast<OXInstance*>(object)->destroy(object);
    object = nullptr;
}

void fillConnectionSlots(OXS3Connection connection) {
    connection->close = oxs3ConnectionClose;
    connection->clone = oxs3ConnectionClone;
    connection->setEncryption = oxs3ConnectionSetEncryption;
    setBucketOps(connection);
    setObjectOps(connection);
    setDirectoryOps(connection);
}

// A zero-filled record with its head and slots, held so any later failure releases it.
OXStatus newRecord(OXS3Extension* ext, OX_POOL_S* pool, const AWSEndpoint* endpoint,
                   Owned<OXS3ConnectionStruct>& record) {
    auto block = PoolBlock<ConnectionBlock>::allocate(pool, 1);
    if (!block) return OX_NO_MEMORY;
    OXS3Connection connection = &block.release()->record;
    initInstance(connection->instance, OXS3_TYPE_CONNECTION, oxs3ConnectionDestroy);
    connection->pool = pool;
    connection->oxs3 = ext;
    connection->endPoint = endpoint;
    fillConnectionSlots(connection);
    record.reset(connection);
    return OX_OK;
}

OXStatus copyText(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr text, OXU8String** out) {
    if (!text) return OX_OK;
    return ext->oxstring->createU8(ext->oxstring, pool, text, std::strlen(text), OX_STR_COPY, out);
}

OXStatus copyString(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* from, OXU8String** out) {
    if (!from) return OX_OK;
    return ext->oxstring->createU8(ext->oxstring, pool, from->stg, from->len, OX_STR_COPY, out);
}

// A customer key stays what it was: key text, or key bytes.
OXStatus copyKey(OXS3Extension* ext, OX_POOL_S* pool, const OXInstance* from, OXInstance** out) {
    if (!from) return OX_OK;
    if (hasType(from, OX_TYPE_U8STRING))
        return copyString(ext, pool, reinterpret_cast<const OXU8String*>(from), reinterpret_cast<OXU8String**>(out));
    const auto* data = reinterpret_cast<const OXData*>(from);
    return ext->oxstring->createData(ext->oxstring, pool, data->bytes, data->len, reinterpret_cast<OXData**>(out));
}

OXStatus createHttp(OXS3Extension* ext, OX_POOL_S* pool, const AWSEndpoint& endpoint, uint16_t port, bool tls,
                    SSLOptions_S* sslOptions, Owned<HTConnection_S>& http) {
    OXWebClient_S* wc = webClient(ext);
    return wc->createConnection(wc, pool, endpoint.htEndpoint.host, port, tls ? OX_TRUE : OX_FALSE,
                                tls ? sslOptions : nullptr, http.out());
}

// The HTTP connection of a new connection: the TLS port with TLS, else the plain port with the
// options kept for later.
OXStatus createHttpForEndpoint(OXS3Extension* ext, OX_POOL_S* pool, const AWSEndpoint& endpoint, bool useSSL,
                               SSLOptions_S* sslOptions, Owned<HTConnection_S>& http) {
    const uint16_t port = useSSL ? endpoint.sslPort : endpoint.htEndpoint.port;
    OXStatus st = createHttp(ext, pool, endpoint, port, useSSL, sslOptions, http);
    if (st == OX_OK && !useSSL) st = http->setSSLOptions(http.get(), sslOptions);
    if (st == OX_OK) st = setProxy(ext, pool, http.get());
    if (st == OX_OK) http->timeout = kConnectionTimeoutMillis;
    return st;
}

OXStatus copyCredentials(OXS3Connection connection, UTF8CStr accessKeyId, UTF8CStr secretAccessKey,
                         UTF8CStr sessionToken) {
    OXS3Extension* ext = connection->oxs3;
    OX_POOL_S* pool = connection->pool;
    OXStatus st = copyText(ext, pool, accessKeyId, &connection->accessKeyId);
    if (st == OX_OK) st = copyText(ext, pool, secretAccessKey, &connection->secretAccessKey);
    if (st == OX_OK) st = copyText(ext, pool, sessionToken, &connection->sessionToken);
    return st;
}

// What a clone takes over: credentials and the encryption settings, not the algorithm.
OXStatus copySettings(const OXS3Connection source, OXS3Connection clone) {
    OXS3Extension* ext = clone->oxs3;
    OX_POOL_S* pool = clone->pool;
    OXStatus st = copyString(ext, pool, source->accessKeyId, &clone->accessKeyId);
    if (st == OX_OK) st = copyString(ext, pool, source->secretAccessKey, &clone->secretAccessKey);
    if (st == OX_OK) st = copyString(ext, pool, source->sessionToken, &clone->sessionToken);
    if (st == OX_OK) st = copyString(ext, pool, source->kmsKeyId, &clone->kmsKeyId);
    if (st == OX_OK) st = copyString(ext, pool, source->kmsKeyContext, &clone->kmsKeyContext);
    if (st == OX_OK) st = copyKey(ext, pool, source->sseKey, &clone->sseKey);
    return st;
}

// A clone's HTTP connection speaks TLS when the source's does, to the shared endpoint's own
// port, with the source's options; its time-out is the source's.
OXStatus cloneHttp(const OXS3Connection source, OXS3Connection clone) {
    const HTConnection from = source->htConnection;
    Owned<HTConnection_S> http;
    OXStatus st = createHttp(clone->oxs3, clone->pool, *clone->endPoint, clone->endPoint->htEndpoint.port,
                             from->useSSL, from->sslOptions, http);
    if (st == OX_OK) st = setProxy(clone->oxs3, clone->pool, http.get());
    if (st != OX_OK) return st;
    http->timeout = from->timeout;
    clone->htConnection = http.release();
    return OX_OK;
}

OXStatus openWithRetries(HTConnection http) {
    OXStatus st = OX_OK;
    int attempts = 0;
    do {
        st = http->open(http);
    } while (st == OX_HTTP_CONNECT_FAILED && ++attempts < kOpenAttempts);
    return st;
}

bool needsOpening(HTState state) {
    return state == htStateCreated || state == htStateClosedByServer || state == htStateClosed;
}

bool mayReuse(const HTConnection http) {
    if (http->requestCount >= kMaxRequestsPerSocket) return false;
    return http->lastActivityTime < 0 || keepAliveClock() - http->lastActivityTime < kMaxIdleSeconds;
}

// ---- proxies

struct ProxyVariable {
    std::u32string_view name;
    int32_t which;
};

constexpr ProxyVariable kProxyVariables[] = {
    {U"OSENV.HTTP_PROXY", OX_PROXY_HTTP},
    {U"OSENV.HTTPS_PROXY", OX_PROXY_HTTPS},
};

const OXChar* chars(std::u32string_view text) { return reinterpret_cast<const OXChar*>(text.data()); }

OXStatus applyProxy(OXS3Extension* ext, OX_POOL_S* pool, HTConnection http, const ProxyVariable& variable) {
    Owned<OXString> value;
    OXStatus st = oxStringGetNameValue(ext, pool, kProxyValueChars, variable.name, value.out());
    if (st != OX_OK || !value) return st;
    Owned<OXU8String> user, password, host;
    int32_t port = 0;
    st = parseURL(ext->oxstring, pool, value.get(), user.out(), password.out(), host.out(), &port);
    if (st != OX_OK) return st;
    return http->setProxyU8Stg(http, host.get(), port, user.get(), password.get(), variable.which);
}

// ---- proxy URLs

constexpr int64_t kMaxPort = 65535;
constexpr size_t kMaxPortChars = 16;

OXStatus wideToString(OXStringExt_S* strings, OX_POOL_S* pool, std::u32string_view text, OXU8String** out) {
    return strings->wideToU8(strings, pool, chars(text), static_cast<OXStrSize>(text.size()), out);
}

OXStatus portNumber(std::u32string_view text, int32_t* port) {
    char digits[kMaxPortChars];
    size_t len = 0;
    if (oxzsU32ToU8(chars(text), text.size(), digits, sizeof digits, &len) != OX_OK) return OXS3_NOT_A_NUMBER;
    int64_t value = 0;
    OXStatus st = u8StringToLong(std::string_view(digits, len), &value);
    if (st != OX_OK) return st;
    if (value < 0 || value > kMaxPort) return OXS3_NOT_A_NUMBER;
    *port = static_cast<int32_t>(value);
    return OX_OK;
}

struct ProxyURLParts {
    std::u32string_view user, password, host, port;
    bool hasPort = false;
};

OXStatus splitProxyURL(std::u32string_view text, ProxyURLParts& parts) {
    const size_t scheme = text.find(U"://");
    if (scheme == std::u32string_view::npos || scheme == 0 || scheme + 3 == text.size()) return OX_INVALID_ARGUMENT;
    std::u32string_view rest = text.substr(scheme + 3);
    if (const size_t at = rest.find(U'@'); at != std::u32string_view::npos) {
        const std::u32string_view userInfo = rest.substr(0, at);
        const size_t colon = userInfo.find(U':');
        parts.user = userInfo.substr(0, colon);
        if (colon != std::u32string_view::npos) parts.password = userInfo.substr(colon + 1);
        if (parts.user.empty()) return OX_INVALID_ARGUMENT;
        rest = rest.substr(at + 1);
    }
    const size_t colon = rest.find(U':');
    parts.host = rest.substr(0, colon);
    if (parts.host.empty()) return OX_INVALID_ARGUMENT;
    parts.hasPort = colon != std::u32string_view::npos;
    if (parts.hasPort) parts.port = rest.substr(colon + 1);
    return OX_OK;
}

}  // namespace

OXS3Connection oxs3ConnectionCreate(OXS3Extension* ext, OX_POOL_S* pool, OXBoolean useSSL,
                                    SSLOptions_S* sslOptions, AWSRegion region, UTF8CStr accessKeyId,
                                    UTF8CStr secretAccessKey, UTF8CStr sessionToken, OXStatus* status) {
    OXStatus ignored = OX_OK;
    OXStatus& st = status ? *status : ignored;
    if (!ext || !pool) {
        st = OX_INVALID_ARGUMENT;
        return nullptr;
    }
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3ConnectionCreate");
    const AWSEndpoint* endpoint = nullptr;
    Owned<HTConnection_S> http;
    Owned<OXS3ConnectionStruct> connection;
    st = endpointForRegion(ext, region, &endpoint);
    if (st == OX_OK) st = createHttpForEndpoint(ext, pool, *endpoint, useSSL, sslOptions, http);
    if (st == OX_OK) st = newRecord(ext, pool, endpoint, connection);
    if (st != OX_OK) return nullptr;
    connection->htConnection = http.release();
    connection->maxWriteThreadCount = kDefaultThreadCount;
    connection->maxReadThreadCount = kDefaultThreadCount;
    connection->minBlockSize = kDefaultMinBlockSize;
    connection->useReadThreads = OX_TRUE;
    connection->useWriteThreads = OX_TRUE;
    st = copyCredentials(connection.get(), accessKeyId, secretAccessKey, sessionToken);
    return st == OX_OK ? connection.release() : nullptr;
}

OXStatus oxs3ConnectionClone(OX_POOL_S* pool, OXS3Connection source, OXS3Connection* result) {
    if (!pool || !source || !result) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = source->oxs3;
    OXS3_LOG(ext->logger, LL_Trace, U"oxs3ConnectionClone");
    Owned<OXS3ConnectionStruct> clone;
    OXStatus st = newRecord(ext, pool, source->endPoint, clone);
    if (st != OX_OK) return st;
    clone->maxReadThreadCount = source->maxReadThreadCount;
    clone->minBlockSize = source->minBlockSize;
    st = cloneHttp(source, clone.get());
    if (st == OX_OK) st = copySettings(source, clone.get());
    if (st == OX_OK) *result = clone.release();
    return st;
}

OXStatus oxs3ConnectionClose(OXS3Connection connection) {
    if (!connection) return OX_INVALID_ARGUMENT;
    OXS3_LOG(connection->oxs3->logger, LL_Debug, U"oxs3ConnectionClose");
    resetErrorMessage(connection);
    return connection->htConnection->close(connection->htConnection);
}

OXStatus oxs3ConnectionDestroy(void* self) {
    auto* connection = static_cast<OXS3Connection>(self);
    if (!connection) return OX_INVALID_ARGUMENT;
    if (!dropReference(connection->instance)) return OX_OK;
    releaseActiveChunk(connection);  // before the HTTP connection it may send on
    release(connection->htConnection);
    release(connection->accessKeyId);
    release(connection->secretAccessKey);
    release(connection->errorMessage);
    release(connection->sessionToken);
    release(connection->kmsKeyId);
    release(connection->kmsKeyContext);
    release(connection->sseKey);
    release(connection->sseKeyAlgorithm);
    release(connection->requestPath);  // the last request's, which no later request replaces
    auto* block = reinterpret_cast<ConnectionBlock*>(connection);
    std::memset(static_cast<void*>(&block->signingKeys), 0, sizeof block->signingKeys);
    connection->pool->memFree(connection->pool, block);
    return OX_OK;
}

SigningKeyCache& signingKeyCache(OXS3Connection connection) {
    return reinterpret_cast<ConnectionBlock*>(connection)->signingKeys;
}

void setConnectionOps(OXS3Extension* ext) { ext->createConnection = oxs3ConnectionCreate; }

OXStatus openS3Connection(HTConnection http) {
    if (!http) return OX_INVALID_ARGUMENT;
    if (!needsOpening(http->state)) {
        if (mayReuse(http)) return OX_OK;
        http->close(http);
    }
    return openWithRetries(http);
}

void setKeepAliveClock(KeepAliveClock clock) { keepAliveClock = clock ? clock : oxzdtgmt; }

OXStatus setProxy(OXS3Extension* ext, OX_POOL_S* pool, HTConnection http) {
    if (!ext || !pool || !http) return OX_INVALID_ARGUMENT;
    for (const ProxyVariable& variable : kProxyVariables)
        if (OXStatus st = applyProxy(ext, pool, http, variable); st != OX_OK) return st;
    return OX_OK;
}

OXStatus parseURL(OXStringExt_S* strings, OX_POOL_S* pool, const OXString* url, OXU8String** user,
                  OXU8String** password, OXU8String** host, int32_t* port) {
    if (!strings || !pool || !url || !user || !password || !host || !port) return OX_INVALID_ARGUMENT;
    *user = *password = *host = nullptr;
    *port = 0;
    const std::u32string_view text(reinterpret_cast<const char32_t*>(url->stg), static_cast<size_t>(url->len));
    ProxyURLParts parts;
    Owned<OXU8String> userText, passwordText, hostText;
    int32_t number = 0;
    OXStatus st = splitProxyURL(text, parts);
    if (st == OX_OK && parts.hasPort) st = portNumber(parts.port, &number);
    if (st == OX_OK && !parts.user.empty()) st = wideToString(strings, pool, parts.user, userText.out());
    if (st == OX_OK && !parts.password.empty()) st = wideToString(strings, pool, parts.password, passwordText.out());
    if (st == OX_OK) st = wideToString(strings, pool, parts.host, hostText.out());
    if (st != OX_OK) return st;
    *user = userText.release();
    *password = passwordText.release();
    *host = hostText.release();
    *port = number;
    return OX_OK;
}

OXStatus oxStringGetNameValue(OXS3Extension* ext, OX_POOL_S* pool, size_t capacity, std::u32string_view name,
                              OXString** value) {
    if (!ext || !pool || !value) return OX_INVALID_ARGUMENT;
    *value = nullptr;
    OX_HNDL_S* h = ext->exth.hndl;
    if (!h->nameExists(h, chars(name), name.size())) return OX_OK;
    auto text = PoolBlock<OXChar>::allocate(pool, capacity);
    if (!text) return OX_NO_MEMORY;
    size_t length = 0;
    OXStatus st = h->nameGet(h, chars(name), name.size(), text.get(), capacity, &length);
    if (st != OX_OK) return st;
    return ext->oxstring->create(ext->oxstring, pool, text.get(), static_cast<OXStrSize>(length), OX_STR_COPY, value);
}

OXStatus setErrorMessage(OXS3Connection connection, UTF8CStr text, UTF8ByteLength length) {
    if (!connection) return OX_INVALID_ARGUMENT;
    resetErrorMessage(connection);
    if (!text) return OX_OK;
    OXStringExt_S* strings = connection->oxs3->oxstring;
    return strings->createU8(strings, connection->pool, text, length, OX_STR_COPY, &connection->errorMessage);
}

void resetErrorMessage(OXS3Connection connection) {
    if (connection) release(connection->errorMessage);
}

void beginOperation(OXS3Connection connection, const char32_t* name) {
    resetErrorMessage(connection);
    OXS3_LOG(connection->oxs3->logger, LL_Debug, name);
}

}  // namespace s3
