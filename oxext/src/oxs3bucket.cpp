// Bucket operations. Each sends one request on the bucket's root path through the send cycle;
// only the bucket list makes a single attempt, then follows redirects to their location.
#include "oxs3bucket.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <initializer_list>

#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3aclheaders.h"
#include "oxs3connection.h"
#include "oxs3docs.h"
#include "oxs3encode.h"
#include "oxs3encrypt.h"
#include "oxs3error.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3path.h"
#include "oxs3request.h"
#include "oxs3send.h"
#include "oxs3sign.h"
#include "oxs3text.h"
#include "oxs3textbuf.h"

namespace s3 {
namespace {

constexpr size_t kMinNameLength = 3;
constexpr size_t kMaxNameLength = 63;
constexpr size_t kMaxNameText = kMaxNameLength + 16;  // room for an "s3://" prefix
// A redirect loop would otherwise never end.
constexpr int kMaxRedirects = 50;
constexpr int64_t kMaxPort = 65535;

constexpr std::string_view kRootPath = "/";
constexpr std::string_view kLocationHeader = "Location";
constexpr std::string_view kAuthorizationHeader = "Authorization";
constexpr std::string_view kDocumentNamespace = "http://s3.amazonaws.com/doc/2006-03-01/";

constexpr SendCycleOp kListPage = {"getBucketContents",
                                   U"getBucketContents: Request failed with result 0x%x. Retrying."};
// A create whose attempts all failed transiently counts as done, as a single put does.
constexpr SendCycleOp kCreate = {"oxs3CreateBucket", U"oxs3CreateBucket: Create failed with result 0x%x. Retrying.",
                                 false, AfterRetries::fixedStatus, OX_OK};
constexpr SendCycleOp kDelete = {"oxs3DeleteBucket", U"oxs3DeleteBucket: Request failed with result 0x%x. Retrying."};
// The texts lack the "s" of the operation's name; callers grep for them as they are.
constexpr SendCycleOp kGetAccelerate = {"oxs3GetBucketAccelerate",
                                        U"ox3GetBucketAccelerate: Request failed with result 0x%x. Retrying."};
constexpr SendCycleOp kSetAccelerate = {"oxs3SetBucketAccelerate",
                                        U"ox3SetBucketAccelerate: Request failed with result 0x%x. Retrying."};

int64_t listingPageLimit = 0;

// ---- bucket names

constexpr bool isLowerOrDigit(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }
constexpr bool isNameChar(char c) { return isLowerOrDigit(c) || c == '-' || c == '.'; }

// A dotted name whose every part is a number looks like an address.
bool allPartsNumeric(std::string_view name) {
    if (name.find('.') == std::string_view::npos) return false;
    for (size_t start = 0;;) {
        const size_t dot = name.find('.', start);
        int64_t number = 0;
        const std::string_view part = name.substr(start, dot == std::string_view::npos ? dot : dot - start);
        if (u8StringToLong(part, &number) != OX_OK) return false;
        if (dot == std::string_view::npos) return true;
        start = dot + 1;
    }
}

bool followsNameRules(std::string_view name) {
    if (name.size() < kMinNameLength || name.size() > kMaxNameLength) return false;
    if (name.find("..") != std::string_view::npos) return false;
    if (!isLowerOrDigit(name.front()) || !isLowerOrDigit(name.back())) return false;
    return std::ranges::all_of(name, isNameChar) && !allPartsNumeric(name);
}

// The bucket as requests name it; OX_INVALID_ARGUMENT for an absent or invalid name.
OXStatus requestBucket(OXS3Extension* ext, UTF8CStr bucket, std::string_view* name) {
    if (!bucket) return OX_INVALID_ARGUMENT;
    UTF8CStr normalised = nullptr;
    OXStatus st = getBucketName(ext, bucket, &normalised);
    if (st != OX_OK) return st;
    if (!followsNameRules(normalised)) return OX_INVALID_ARGUMENT;
    *name = normalised;
    return OX_OK;
}

// ---- one request and its answer

struct BucketRequest {
    HTTPMethod method;
    std::string_view bucket;  // empty: the service itself
    OXDictionary query = nullptr;
    std::string_view body = {};
    std::string_view payloadHash = kEmptyPayloadHash;
};

OXStatus sendSigned(Attempt& a, const BucketRequest& r, OXDictionary headers) {
    OXStatus st = buildRequest(a.connection, a.http, nullptr, headers, methodText(r.method), r.bucket, kRootPath,
                               r.query, r.payloadHash, r.body.size());
    if (st != OX_OK) return st;
    return sendBuiltRequest(a, r.method, r.query, headers, static_cast<int64_t>(r.body.size()),
                            r.body.empty() ? nullptr : r.body.data(), r.body.size());
}

// With the date headers only.
OXStatus sendPlain(Attempt& a, const BucketRequest& r) {
    Owned<OXDictionary_S> headers;
    OXStatus st = createRequest(a.connection, nullptr, nullptr, nullptr, nullptr, headers.out(), oxzdtgmt());
    return st == OX_OK ? sendSigned(a, r, headers.get()) : st;
}

// How an operation takes the answers it knows before any error document is read.
struct AnswerRules {
    bool createdIsSuccess = false;  // 201 as well as 200 and 204
    bool redirectIsAnswer = false;  // a 307 goes back to the caller
    bool notFoundAsIs = true;       // 404: the client's status
    bool forbiddenFixed = false;    // 403: OXS3_REQUEST_FORBIDDEN; a body-less 400: OXS3_BAD_REQUEST
};

bool hasNoBody(const HTConnection http) { return !http->responseIsChunked && http->responseContentLength == 0; }

OXStatus readBucketAnswer(Attempt& a, HTTPStatus& status, const AnswerRules& rules) {
    OXStatus st = readAnswer(a, status,
                             {OX_HTTP_OK, OX_HTTP_CREATED, OX_HTTP_TEMPORARY_REDIRECT, OX_HTTP_NOT_FOUND,
                              OX_HTTP_FORBIDDEN, OX_HTTP_BAD_REQUEST});
    if (st != OX_OK) return st;
    const OXStatus answer = status.message;
    if (answer == OX_HTTP_OK) return OX_OK;
    if (answer == OX_HTTP_CREATED && rules.createdIsSuccess) return OX_OK;
    if (answer == OX_HTTP_TEMPORARY_REDIRECT && rules.redirectIsAnswer) return OX_OK;
    if (answer == OX_HTTP_NOT_FOUND && rules.notFoundAsIs) return OX_HTTP_NOT_FOUND;
    if (answer == OX_HTTP_FORBIDDEN && rules.forbiddenFixed) return OXS3_REQUEST_FORBIDDEN;
    if (answer == OX_HTTP_BAD_REQUEST && rules.forbiddenFixed && hasNoBody(a.http)) return OXS3_BAD_REQUEST;
    return errorFromBody(a, status);
}

OXStatus bodyHash(OXS3Connection c, std::string_view body, TextBuffer& hash) {
    return appendSha256Hex(webClient(c->oxs3), body, hash);
}

void appendAll(TextBuffer& out, std::initializer_list<std::string_view> pieces) {
    for (std::string_view piece : pieces) out.append(piece);
}

// ---- the bucket list and its redirects

struct LocationParts {
    std::string_view host;
    uint16_t port = OX_DEFAULT_PORT;
};

// scheme "://" host [":" port] [path]: only where the list is now is used.
OXStatus splitLocation(std::string_view url, LocationParts& parts) {
    if (const size_t scheme = url.find("://"); scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
    const std::string_view authority = url.substr(0, url.find_first_of("/?"));
    const size_t colon = authority.rfind(':');
    parts.host = authority.substr(0, colon);
    if (parts.host.empty()) return OX_HTTP_MALFORMED_RESPONSE;
    if (colon == std::string_view::npos) return OX_OK;
    int64_t port = 0;
    if (u8StringToLong(authority.substr(colon + 1), &port) != OX_OK || port <= 0 || port > kMaxPort)
        return OX_HTTP_MALFORMED_RESPONSE;
    parts.port = static_cast<uint16_t>(port);
    return OX_OK;
}

OXStatus copyProxy(HTConnection to, const HTProxy& proxy, int32_t which) {
    return proxy.host ? to->setProxyU8Stg(to, proxy.host, proxy.port, proxy.user, proxy.pass, which) : OX_OK;
}

// A new HTTP connection to the redirect's host with the connection's TLS settings, proxies and
// time-out. (The web client keeps its buffer sizes to itself: the new one has the defaults.)
OXStatus connectionForLocation(OXS3Connection c, std::string_view url, Owned<HTConnection_S>& http) {
    LocationParts parts;
    OXStatus st = splitLocation(url, parts);
    if (st != OX_OK) return st;
    TextBuffer host(c->pool);
    host.append(parts.host);
    if (host.status() != OX_OK) return host.status();
    const HTConnection own = c->htConnection;
    OXWebClient_S* wc = webClient(c->oxs3);
    st = wc->createConnection(wc, c->pool, host.c_str(), parts.port, own->useSSL, own->sslOptions, http.out());
    if (st == OX_OK) st = copyProxy(http.get(), own->httpProxy, OX_PROXY_HTTP);
    if (st == OX_OK) st = copyProxy(http.get(), own->httpsProxy, OX_PROXY_HTTPS);
    if (st == OX_OK) http->timeout = own->timeout;
    return st;
}

OXStatus redirectLocation(HTConnection http, TextBuffer& location) {
    UTF8CStr value = nullptr;
    UTF8ByteLength length = 0;
    if (http->getResponseHeader(http, kLocationHeader.data(), kLocationHeader.size(), &value, &length) != OX_OK ||
        length == 0)
        return OX_HTTP_TEMPORARY_REDIRECT;
    location.append(std::string_view(value, length));
    return location.status();
}

// One exchange on http: the list (absent for an empty body), or a redirect's Location.
OXStatus listBucketsOnce(OXS3Connection c, HTConnection http, Owned<OXS3BucketList>& list, TextBuffer& location) {
    OXStatus st = openS3Connection(http);
    if (st != OX_OK && st != OX_HTTP_ALREADY_OPEN) return st;
    Attempt a{c, http, 1};
    HTTPStatus status{};
    st = sendPlain(a, {httpGet, {}});
    if (st == OX_OK) st = readBucketAnswer(a, status, {.redirectIsAnswer = true});
    if (st != OX_OK) return st;
    if (status.message == OX_HTTP_TEMPORARY_REDIRECT) return redirectLocation(http, location);
    PoolBlock<char> body;
    OXMemSize length = 0;
    st = readBody(a, body, length);
    if (st == OX_OK && length > 0) st = parseBucketList(c->oxs3, c->pool, body.get(), length, list.out());
    return st;
}

// ---- listing pages

struct Page {
    Owned<OXArray_S> entries;
    Owned<OXU8String> nextToken;
    OXBoolean truncated = OX_FALSE;
};

// The path without its leading "/"; null for the whole bucket.
UTF8CStr prefixOf(UTF8CStr path) {
    if (!path || std::string_view(path) == kRootPath) return nullptr;
    UTF8CStr prefix = path[0] == '/' ? path + 1 : path;
    return *prefix ? prefix : nullptr;
}

OXStatus pageQuery(OXS3Connection c, UTF8CStr prefix, const OXU8String* token, bool useDelimiter,
                   Owned<OXDictionary_S>& query) {
    OXStatus st = newQueryU8(c->oxs3, c->pool, "list-type", "2", query.out());
    if (st == OX_OK) st = querySetU8(query.get(), "fetch-owner", "true");
    if (st == OX_OK && useDelimiter) st = querySetU8(query.get(), "delimiter", "/");
    if (st == OX_OK && prefix) st = querySetU8(query.get(), "prefix", prefix);
    if (st == OX_OK && token) st = querySetU8(query.get(), "continuation-token", token->stg);
    if (st == OX_OK && listingPageLimit > 0) {
        char digits[24] = {};
        std::to_chars(digits, digits + sizeof digits - 1, listingPageLimit);
        st = querySetU8(query.get(), "max-keys", digits);
    }
    return st;
}

OXStatus fetchPage(Attempt& a, std::string_view bucket, OXDictionary query, Page& page) {
    page.entries.reset();
    page.nextToken.reset();
    page.truncated = OX_FALSE;
    HTTPStatus status{};
    OXStatus st = sendPlain(a, {httpGet, bucket, query});
    if (st == OX_OK) st = readBucketAnswer(a, status, {.forbiddenFixed = true});
    PoolBlock<char> body;
    OXMemSize length = 0;
    if (st == OX_OK) st = readBody(a, body, length);
    if (st != OX_OK || length == 0) return st;
    return parseBucketContentList(a.connection->oxs3, a.connection->pool, body.get(), length, page.entries.out(),
                                  page.nextToken.out(), &page.truncated);
}

std::string_view nameOf(const OXInstance* item) { return view(reinterpret_cast<const OXS3BucketEntry*>(item)->name); }

void dropMarker(OXArray entries, std::string_view prefix) {
    for (int64_t i = 0; i < entries->count; ++i)
        if (nameOf(entries->items[i]) == prefix) {
            entries->removeItem(entries, i);
            return;
        }
}

OXStatus makeRelative(OXS3Connection c, OXArray entries, std::string_view prefix) {
    OXStringExt_S* strings = c->oxs3->oxstring;
    for (int64_t i = 0; i < entries->count; ++i) {
        auto* entry = reinterpret_cast<OXS3BucketEntry*>(entries->items[i]);
        const std::string_view name = view(entry->name);
        if (name.size() <= prefix.size()) continue;
        const std::string_view rest = name.substr(prefix.size());
        OXU8String* relative = nullptr;
        OXStatus st = strings->createU8(strings, c->pool, rest.data(), rest.size(), OX_STR_COPY, &relative);
        if (st != OX_OK) return st;
        entry->name->instance.destroy(entry->name);
        entry->name = relative;
    }
    return OX_OK;
}

// Every page of one listing, appended to all in page order.
OXStatus appendPages(OXS3Connection c, std::string_view bucket, UTF8CStr path, bool useDelimiter, bool dropSelf,
                     OXArray all) {
    Owned<OXU8String> token;
    for (;;) {
        Owned<OXArray_S> page;
        Owned<OXU8String> next;
        OXBoolean truncated = OX_FALSE;
        OXStatus st = getBucketContents(c, bucket, path, token.get(), useDelimiter, page.out(), next.out(),
                                        &truncated, dropSelf);
        if (st == OX_OK && page) st = all->addItems(all, page->items, page->count);
        if (st != OX_OK) return st;
        // A truncated page without a token cannot be continued: asking again would repeat it.
        if (!truncated || !next) return OX_OK;
        token = std::move(next);
    }
}

// Until the directory area fills the pathIsDir slot: "/" is a directory, and so is any path
// with a key under it.
OXStatus pathHasKeysUnder(OXS3Connection c, std::string_view bucket, UTF8CStr path, OXBoolean* isDir) {
    const std::string_view text(path);
    if (text.empty() || text.front() != '/') return OXS3_PATH_NOT_ABSOLUTE;
    *isDir = OX_TRUE;
    if (text == kRootPath) return OX_OK;
    TextBuffer prefix(c->pool);
    prefix.append(text);
    if (!text.ends_with('/')) prefix.push('/');
    if (prefix.status() != OX_OK) return prefix.status();
    Owned<OXArray_S> page;
    Owned<OXU8String> next;
    OXBoolean truncated = OX_FALSE;
    OXStatus st = getBucketContents(c, bucket, prefix.c_str(), nullptr, false, page.out(), next.out(), &truncated, false);
    *isDir = st == OX_OK && page && page->count > 0 ? OX_TRUE : OX_FALSE;
    return st;
}

OXStatus pathIsDirectory(OXS3Connection c, UTF8CStr bucket, std::string_view name, UTF8CStr path, OXBoolean* isDir) {
    if (c->pathIsDir) return c->pathIsDir(c, bucket, path, isDir);
    return pathHasKeysUnder(c, name, path, isDir);
}

OXStatus listContents(OXS3Connection c, UTF8CStr bucket, UTF8CStr path, OXArray* result) {
    if (!path || !result) return OX_INVALID_ARGUMENT;
    std::string_view name;
    OXBoolean isDir = OX_FALSE;
    OXStatus st = requestBucket(c->oxs3, bucket, &name);
    if (st == OX_OK) st = pathIsDirectory(c, bucket, name, path, &isDir);
    if (st != OX_OK) return st;
    TextBuffer listed(c->pool);
    listed.append(path);
    if (isDir && !listed.view().ends_with('/')) listed.push('/');
    if (listed.status() != OX_OK) return listed.status();
    Owned<OXArray_S> all;
    st = c->oxs3->oxarray->create(c->oxs3->oxarray, c->pool, 0, all.out());
    if (st == OX_OK) st = appendPages(c, name, listed.c_str(), true, isDir, all.get());
    // A bucket whose delimited listing shows nothing is listed whole, flat.
    if (st == OX_OK && listed.view() == kRootPath && all->count == 0)
        st = appendPages(c, name, listed.c_str(), false, true, all.get());
    if (st == OX_OK) *result = all.release();
    return st;
}

// ---- bodies

OXStatus locationConstraintBody(OXS3Connection c, TextBuffer& body) {
    const AWSEndpoint* endpoint = c->endPoint;
    if (!endpoint->locationConstraint || !*endpoint->locationConstraint) return OX_OK;
    // The region's name goes in, not the constraint text.
    appendAll(body, {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", "<CreateBucketConfiguration xmlns=\"",
                     kDocumentNamespace, "\">\n", "    <LocationConstraint>", endpoint->name ? endpoint->name : "",
                     "</LocationConstraint>\n", "</CreateBucketConfiguration>\n"});
    return body.status();
}

OXStatus accelerateBody(S3AccelerateState state, TextBuffer& body) {
    appendAll(body, {"<AccelerateConfiguration xmlns=\"", kDocumentNamespace, "\">",
                     state == s3AccelerateEnabled ? "<Status>Enabled</Status>" : "<Status>Suspended</Status>",
                     "</AccelerateConfiguration>"});
    return body.status();
}

// ---- attempts

OXStatus createOnce(Attempt& a, const BucketRequest& r, OXS3AccessType accessType, const OXS3ACL_S* acl) {
    OXS3Connection c = a.connection;
    const EncryptionArgs enc = withConnectionEncryption(c, nullptr, nullptr, nullptr, nullptr);
    Owned<OXDictionary_S> headers;
    OXStatus st = createRequest(c, enc.key, enc.keyAlgorithm, enc.kmsKeyId, enc.kmsKeyContext, headers.out(),
                                oxzdtgmt());
    if (st == OX_OK) st = addAccessHeaders(c->oxs3->oxstring, headers.get(), accessType, acl);
    if (st == OX_OK) st = sendSigned(a, r, headers.get());
    HTTPStatus status{};
    if (st == OX_OK) st = readBucketAnswer(a, status, {.createdIsSuccess = true});
    return st;
}

OXStatus requestOnce(Attempt& a, const BucketRequest& r, const AnswerRules& rules) {
    HTTPStatus status{};
    OXStatus st = sendPlain(a, r);
    return st == OX_OK ? readBucketAnswer(a, status, rules) : st;
}

// Servers without transfer acceleration may answer "?accelerate" with a whole listing of the
// bucket, which says nothing about acceleration. Such an answer is recognised by its root
// element near the start, so a large listing is not parsed on every read and write.
bool namesAccelerateConfiguration(std::string_view body) {
    constexpr std::string_view kRoot = "<AccelerateConfiguration";
    constexpr size_t kProlog = 512;  // room for the XML declaration and white space before the root
    return body.substr(0, kProlog + kRoot.size()).find(kRoot) != std::string_view::npos;
}

OXStatus getAccelerateOnce(Attempt& a, const BucketRequest& r, S3AccelerateState& state) {
    HTTPStatus status{};
    OXStatus st = sendPlain(a, r);
    if (st == OX_OK) st = readBucketAnswer(a, status, {.forbiddenFixed = true});
    PoolBlock<char> body;
    OXMemSize length = 0;
    if (st == OX_OK) st = readBody(a, body, length);
    state = s3AccelerateUnknown;
    if (st == OX_OK && length > 0 && namesAccelerateConfiguration({body.get(), length}))
        st = parseAccelerateResult(a.connection->oxs3, a.connection->pool, body.get(), length, &state);
    return st;
}

}  // namespace

OXStatus oxs3TestAuthorization(OXS3Connection connection, UTF8CStr method, UTF8CStr bucket, UTF8CStr path,
                               OXDictionary query, UTF8CStr dateText, UTF8CStr dateTimeText) {
    if (!connection || !method || !path || !dateText || !dateTimeText) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3TestAuthorization");
    OXDictionaryExt_S* dictionaries = connection->oxs3->oxdictionary;
    Owned<OXDictionary_S> headers;
    OXStatus st = dictionaries->create(dictionaries, connection->pool, 0, headers.out());
    if (st == OX_OK) st = setText(headers.get(), kIsoDateEntry, dateText);
    if (st == OX_OK) st = setText(headers.get(), kDateTimeHeader, dateTimeText);
    if (st == OX_OK)
        st = buildRequest(connection, nullptr, nullptr, headers.get(), method, bucket ? bucket : "", path, query,
                          kEmptyPayloadHash, 0);
    OXInstance* authorization = nullptr;
    if (st == OX_OK)
        st = headers->getValueU8(headers.get(), kAuthorizationHeader.data(), kAuthorizationHeader.size(),
                                 &authorization);
    return st;
}

OXStatus oxs3GetUserBuckets(OXS3Connection connection, HTConnection http, OXS3BucketList** result) {
    if (!connection || !result) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetUserBuckets");
    Owned<HTConnection_S> redirected;  // the latest redirect's, destroyed when replaced
    HTConnection on = http ? http : connection->htConnection;
    for (int redirects = 0;; ++redirects) {
        Owned<OXS3BucketList> list;
        TextBuffer location(connection->pool);
        OXStatus st = listBucketsOnce(connection, on, list, location);
        if (st != OX_OK) {
            on->close(on);
            return st;
        }
        if (location.size() == 0) {
            *result = list.release();
            return OX_OK;
        }
        if (redirects == kMaxRedirects) return OX_HTTP_TEMPORARY_REDIRECT;
        Owned<HTConnection_S> next;
        st = connectionForLocation(connection, location.view(), next);
        if (st != OX_OK) return st;
        redirected = std::move(next);
        on = redirected.get();
    }
}

OXStatus oxs3GetBucketContents(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXArray* result) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3GetBucketContents");
    Logger_S* logger = connection->oxs3->logger;
    OXS3_LOG(logger, LL_Trace, U"oxs3GetBucketContents [ENTER] bucketName: %hs path: %hs", bucket ? bucket : "NULL",
             path ? path : "NULL");
    const OXStatus st = listContents(connection, bucket, path, result);
    OXS3_LOG(logger, LL_Trace, U"oxs3GetBucketContents [EXIT] result=0x%x", st);
    return st;
}

OXStatus getBucketContents(OXS3Connection connection, std::string_view bucket, UTF8CStr path,
                           const OXU8String* token, bool useDelimiter, OXArray* page, OXU8String** nextToken,
                           OXBoolean* truncated, bool dropSelf) {
    if (!connection || !page || !nextToken || !truncated) return OX_INVALID_ARGUMENT;
    UTF8CStr prefix = prefixOf(path);
    const std::string_view prefixText = prefix ? prefix : "";
    Owned<OXDictionary_S> query;
    Page got;
    OXStatus st = pageQuery(connection, prefix, token, useDelimiter, query);
    if (st == OX_OK)
        st = sendCycle(connection, kListPage, [&](Attempt& a) { return fetchPage(a, bucket, query.get(), got); });
    if (st == OX_OK && got.entries && useDelimiter && dropSelf) dropMarker(got.entries.get(), prefixText);
    if (st == OX_OK && got.entries && prefix) st = makeRelative(connection, got.entries.get(), prefixText);
    if (st != OX_OK) return st;
    *page = got.entries.release();
    *nextToken = got.nextToken.release();
    *truncated = got.truncated;
    return OX_OK;
}

OXStatus oxs3CreateBucket(OXS3Connection connection, UTF8CStr bucket, OXS3AccessType accessType,
                          OXS3ACL_S* accessControl) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3CreateBucket");
    std::string_view name;
    TextBuffer body(connection->pool), hash(connection->pool);
    OXStatus st = requestBucket(connection->oxs3, bucket, &name);
    if (st == OX_OK) st = locationConstraintBody(connection, body);
    if (st == OX_OK) st = bodyHash(connection, body.view(), hash);
    if (st != OX_OK) return st;
    const BucketRequest request{httpPut, name, nullptr, body.view(), hash.view()};
    return sendCycle(connection, kCreate,
                     [&](Attempt& a) { return createOnce(a, request, accessType, accessControl); });
}

OXStatus oxs3DeleteBucket(OXS3Connection connection, UTF8CStr bucket) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3DeleteBucket");
    std::string_view name;
    OXStatus st = requestBucket(connection->oxs3, bucket, &name);
    if (st != OX_OK) return st;
    const BucketRequest request{httpDelete, name};
    return sendCycle(connection, kDelete, [&](Attempt& a) { return requestOnce(a, request, {.forbiddenFixed = true}); });
}

OXStatus oxs3GetBucketAccelerate(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState* state) {
    if (!connection || !state) return OX_INVALID_ARGUMENT;
    *state = s3AccelerateUnknown;
    beginOperation(connection, U"oxs3GetBucketAccelerate");
    std::string_view name;
    Owned<OXDictionary_S> query;
    OXStatus st = requestBucket(connection->oxs3, bucket, &name);
    if (st == OX_OK) st = newQueryU8(connection->oxs3, connection->pool, "accelerate", nullptr, query.out());
    if (st != OX_OK) return st;
    const BucketRequest request{httpGet, name, query.get()};
    S3AccelerateState answer = s3AccelerateUnknown;
    st = sendCycle(connection, kGetAccelerate, [&](Attempt& a) { return getAccelerateOnce(a, request, answer); });
    if (st == OX_OK) *state = answer;
    return st;
}

OXStatus oxs3SetBucketAccelerate(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState state) {
    if (!connection) return OX_INVALID_ARGUMENT;
    beginOperation(connection, U"oxs3SetBucketAccelerate");
    if (state != s3AccelerateEnabled && state != s3AccelerateSuspended) return OX_INVALID_ARGUMENT;
    std::string_view name;
    Owned<OXDictionary_S> query;
    TextBuffer body(connection->pool), hash(connection->pool);
    OXStatus st = requestBucket(connection->oxs3, bucket, &name);
    if (st == OX_OK) st = newQueryU8(connection->oxs3, connection->pool, "accelerate", nullptr, query.out());
    if (st == OX_OK) st = accelerateBody(state, body);
    if (st == OX_OK) st = bodyHash(connection, body.view(), hash);
    if (st != OX_OK) return st;
    const BucketRequest request{httpPut, name, query.get(), body.view(), hash.view()};
    return sendCycle(connection, kSetAccelerate,
                     [&](Attempt& a) { return requestOnce(a, request, {.notFoundAsIs = false}); });
}

void setBucketOps(OXS3Connection connection) {
    connection->testauth = oxs3TestAuthorization;
    connection->getUserBuckets = oxs3GetUserBuckets;
    connection->getBucketContents = oxs3GetBucketContents;
    connection->createBucket = oxs3CreateBucket;
    connection->deleteBucket = oxs3DeleteBucket;
    connection->getAccelerate = oxs3GetBucketAccelerate;
    connection->setAccelerate = oxs3SetBucketAccelerate;
}

OXStatus oxs3IsValidBucketName(OXS3Extension* ext, UTF8CStr name, OXBoolean* valid) {
    if (!ext || !name || !valid) return OX_INVALID_ARGUMENT;
    std::string_view normalised;
    const OXStatus st = requestBucket(ext, name, &normalised);
    if (st != OX_OK && st != OX_INVALID_ARGUMENT) return st;
    *valid = st == OX_OK ? OX_TRUE : OX_FALSE;
    return OX_OK;
}

OXBoolean validBucketName(OXS3Extension* ext, UTF8CStr name, UTF8ByteLength length) {
    char text[kMaxNameText + 1];
    if (!name || length > kMaxNameText) return OX_FALSE;
    std::memcpy(text, name, length);
    text[length] = '\0';
    OXBoolean valid = OX_FALSE;
    return oxs3IsValidBucketName(ext, text, &valid) == OX_OK ? valid : OX_FALSE;
}

void setListingPageLimit(int64_t keys) { listingPageLimit = keys > 0 ? keys : 0; }

}  // namespace s3
