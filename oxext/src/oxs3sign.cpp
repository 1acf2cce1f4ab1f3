// AWS Signature Version 4: canonical request, string to sign, key derivation, Authorization,
// and the chained signatures of streaming chunks.
#include "oxs3sign.h"

#include <cstdio>
#include <cstring>
#include <span>

#include "ox/status.h"
#include "oxs3connection.h"
#include "oxs3encode.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3text.h"

namespace s3 {
namespace {

constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
constexpr std::string_view kChunkAlgorithm = "AWS4-HMAC-SHA256-PAYLOAD";
constexpr std::string_view kTerminator = "aws4_request";
constexpr std::string_view kS3Service = "s3";
constexpr std::string_view kAmzPrefix = "x-amz-";

constexpr std::string_view kAuthorizationHeader = "Authorization";

constexpr std::string_view kExtraEntries[] = {kRegionEntry, kIsoDateEntry, kScopeEntry, kSignatureEntry};

// The entries signing reads, found in one pass over the headers.
struct RequestEntries {
    const OXInstance* contentMD5 = nullptr;
    const OXInstance* contentType = nullptr;
    const OXInstance* host = nullptr;
    const OXInstance* range = nullptr;
    const OXInstance* payloadHash = nullptr;
    const OXInstance* dateTime = nullptr;
    const OXInstance* isoDate = nullptr;  // working entries from here on
    const OXInstance* region = nullptr;
    const OXInstance* service = nullptr;
};
using EntrySlot = const OXInstance* RequestEntries::*;

struct EntryName {
    std::string_view name;
    EntrySlot slot;
};
// The first kLeadingHeaderCount rows are the headers signed before the "x-amz-" ones, in this
// order, each when present.
constexpr size_t kLeadingHeaderCount = 4;
constexpr EntryName kEntryNames[] = {
    {"Content-MD5", &RequestEntries::contentMD5},
    {"Content-Type", &RequestEntries::contentType},
    {"Host", &RequestEntries::host},
    {"Range", &RequestEntries::range},
    {kPayloadHashHeader, &RequestEntries::payloadHash},
    {kDateTimeHeader, &RequestEntries::dateTime},
    {kIsoDateEntry, &RequestEntries::isoDate},
    {kRegionEntry, &RequestEntries::region},
    {kServiceNameEntry, &RequestEntries::service},
};

// ---- lower-case hexadecimal, two digits a byte

constexpr char kHexLower[] = "0123456789abcdef";

void hexInto(const uint8_t* bytes, size_t length, char* out) {
    for (size_t i = 0; i < length; ++i) {
        *out++ = kHexLower[bytes[i] >> 4];
        *out++ = kHexLower[bytes[i] & 0xf];
    }
}

void appendHex(TextBuffer& out, const uint8_t* bytes, size_t length) {
    if (char* at = out.reserve(2 * length)) {
        hexInto(bytes, length, at);
        out.commit(2 * length);
    }
}

// ---- dumps: the standard error stream with showAuthCalc, the logger at Trace

struct DumpLabel {
    const char* stderrFormat;
    const char32_t* logFormat;
};

constexpr DumpLabel kCanonicalRequestDump = {"canonicalRequest:\n%s\n", U"canonicalRequest: %hs"};
constexpr DumpLabel kStringToSignDump = {"stringToSign:\n%s\n", U"stringToSign: %hs"};
// Logged under the key label on purpose: readers of existing logs look for it there.
constexpr DumpLabel kChunkStringToSignDump = {"String to sign:\n%s\n", U"signingKey: %hs"};
constexpr DumpLabel kSignatureDump = {"signature:\n%s\n", U"signature: %hs"};

struct KeyDump {
    DumpLabel label;
    uint8_t (SigningKeys::*key)[OX_SHA256_LEN];
};
constexpr KeyDump kKeyDumps[] = {
    {{"dateKey:\n%s\n", U"dateKey: %hs"}, &SigningKeys::dateKey},
    {{"dateRegionKey:\n%s\n", U"dateRegionKey: %hs"}, &SigningKeys::dateRegionKey},
    {{"dateRegionServiceKey:\n%s\n", U"dateRegionServiceKey: %hs"}, &SigningKeys::dateRegionServiceKey},
    {{"signingKey:\n%s\n", U"signingKey: %hs"}, &SigningKeys::signingKey},
};

class SigningDump {
public:
    explicit SigningDump(const OXS3Extension* ext)
        : logger_(ext->logger), toStderr_(ext->showAuthCalc), toLog_(logEnabled(ext->logger, LL_Trace)) {}

    bool active() const { return toStderr_ || toLog_; }

    void write(const DumpLabel& label, const char* text) const {
        if (toStderr_) std::fprintf(stderr, label.stderrFormat, text);
        if (toLog_) OXS3_LOG(logger_, LL_Trace, label.logFormat, text);
    }
    void write(const DumpLabel& label, TextBuffer& text) const {
        if (active()) write(label, text.c_str());
    }
    void writeKeys(const SigningKeys& keys) const {
        if (!active()) return;
        for (const KeyDump& dump : kKeyDumps) {
            char hex[kSignatureHexLen + 1] = {};
            hexInto(keys.*dump.key, OX_SHA256_LEN, hex);
            write(dump.label, hex);
        }
    }

private:
    Logger_S* logger_;
    bool toStderr_;
    bool toLog_;
};

// ---- header values

bool sameNameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char x = a[i], y = b[i];
        if (x != y && ((x | 0x20) != (y | 0x20) || (x | 0x20) < 'a' || (x | 0x20) > 'z')) return false;
    }
    return true;
}

// Calls use with each header's name and value in the dictionary's (ascending) order; the first
// failure ends it.
template <class F>
OXStatus forEachHeader(OXDictionary headers, F&& use) {
    void* cursor = nullptr;
    OXU8String* name = nullptr;
    OXInstance* value = nullptr;
    OXStatus st;
    while ((st = headers->nextValue(headers, &cursor, &name, &value)) == OX_OK)
        if ((st = use(std::string_view(name->stg, name->len), value)) != OX_OK) return st;
    return st == OX_END_OF_DATA ? OX_OK : st;
}

OXStatus collectEntries(OXDictionary headers, RequestEntries& entries) {
    return forEachHeader(headers, [&](std::string_view name, const OXInstance* value) {
        for (const EntryName& row : kEntryNames)
            if (sameNameIgnoringCase(name, row.name)) entries.*row.slot = value;
        return OXStatus(OX_OK);
    });
}

// The text of an entry; nothing when it is absent.
OXStatus appendEntry(TextBuffer& out, const OXInstance* value) {
    return value ? appendInstanceString(out, value) : OX_OK;
}

bool startsWithAmzPrefix(std::string_view name) {
    return name.size() >= kAmzPrefix.size() && sameNameIgnoringCase(name.substr(0, kAmzPrefix.size()), kAmzPrefix);
}

// The start of one canonical header line ("name:"), and the name in the signed-header list.
void beginSignedHeader(TextBuffer& canonical, TextBuffer& signedHeaders, std::string_view name) {
    appendLowerAscii(canonical, name);
    canonical.push(':');
    if (signedHeaders.size() != 0) signedHeaders.push(';');
    appendLowerAscii(signedHeaders, name);
}

OXStatus addSignedHeader(TextBuffer& canonical, TextBuffer& signedHeaders, std::string_view name,
                         const OXInstance* value) {
    beginSignedHeader(canonical, signedHeaders, name);
    OXStatus st = appendInstanceString(canonical, value);
    canonical.push('\n');
    return st;
}

OXStatus addLeadingHeaders(TextBuffer& canonical, TextBuffer& signedHeaders, const RequestTarget* target,
                           const RequestEntries& entries) {
    for (const EntryName& header : std::span(kEntryNames).first<kLeadingHeaderCount>()) {
        if (header.slot == &RequestEntries::host && target && target->connection) {
            beginSignedHeader(canonical, signedHeaders, header.name);
            canonical.append(target->connection->host ? target->connection->host : "");
            canonical.push('\n');
            continue;
        }
        const OXInstance* value = entries.*header.slot;
        if (!value) continue;
        if (OXStatus st = addSignedHeader(canonical, signedHeaders, header.name, value); st != OX_OK)
            return st;
    }
    return OX_OK;
}

// Every "x-amz-" header in the dictionary's (ascending) order.
OXStatus addAmzHeaders(TextBuffer& canonical, TextBuffer& signedHeaders, OXDictionary headers) {
    return forEachHeader(headers, [&](std::string_view name, const OXInstance* value) {
        return startsWithAmzPrefix(name) ? addSignedHeader(canonical, signedHeaders, name, value) : OXStatus(OX_OK);
    });
}

OXStatus appendCanonicalQuery(TextBuffer& canonical, const RequestTarget* target, OXDictionary query) {
    if (target && target->hasQuery()) {
        // A target's query is signed as it stands and followed by an extra empty line, which
        // signers of such requests must match.
        canonical.append(target->query);
        canonical.push('\n');
        return OX_OK;
    }
    return appendQueryString(canonical, query, QueryForm::canonical);
}

OXStatus canonicalRequestOf(std::string_view method, std::string_view path, const RequestTarget* target,
                            OXDictionary query, OXDictionary headers, const RequestEntries& entries,
                            TextBuffer& canonical, TextBuffer& signedHeaders) {
    canonical.append(method);
    canonical.push('\n');
    appendAwsURLEncoded(canonical, path);
    canonical.push('\n');
    OXStatus st = appendCanonicalQuery(canonical, target, query);
    canonical.push('\n');
    if (st == OX_OK) st = addLeadingHeaders(canonical, signedHeaders, target, entries);
    if (st == OX_OK) st = addAmzHeaders(canonical, signedHeaders, headers);
    if (st != OX_OK) return st;
    canonical.push('\n');
    canonical.append(signedHeaders.view());
    canonical.push('\n');
    st = appendEntry(canonical, entries.payloadHash);
    if (st != OX_OK) return st;
    return canonical.status() != OX_OK ? canonical.status() : signedHeaders.status();
}

OXStatus hmac(OXWebClient_S* wc, const uint8_t* key, size_t keyLen, std::string_view data,
              uint8_t (&mac)[OX_SHA256_LEN]) {
    return wc->hmacSha256(key, keyLen, data.data(), data.size(), mac);
}

// The service of the request: "s3" when none is named.
OXStatus serviceOf(const RequestEntries& entries, TextBuffer& service) {
    if (!entries.service) {
        service.append(kS3Service);
        return service.status();
    }
    return appendInstanceString(service, entries.service);
}

OXStatus requestScope(const RequestEntries& entries, std::string_view service, TextBuffer& date,
                      TextBuffer& region, TextBuffer& scope) {
    OXStatus st = appendEntry(date, entries.isoDate);
    if (st == OX_OK) st = appendEntry(region, entries.region);
    if (st != OX_OK) return st;
    appendScope(scope, {date.view(), region.view(), service});
    return scope.status();
}

OXStatus setAuthorization(OXS3Connection connection, OXDictionary headers, std::string_view scope,
                          std::string_view signedHeaders, std::string_view signature) {
    TextBuffer authorization(connection->pool);
    authorization.append(kAlgorithm);
    authorization.append(" Credential=");
    authorization.append(view(connection->accessKeyId));
    authorization.push('/');
    authorization.append(scope);
    authorization.append(",SignedHeaders=");
    authorization.append(signedHeaders);
    authorization.append(",Signature=");
    authorization.append(signature);
    if (authorization.status() != OX_OK) return authorization.status();
    return setText(headers, kAuthorizationHeader, authorization.view());
}

bool isStreaming(const RequestEntries& entries) {
    return hasType(entries.payloadHash, OX_TYPE_U8STRING) &&
           view(reinterpret_cast<const OXU8String*>(entries.payloadHash)) == kStreamingPayload;
}

OXStatus removeEntry(OXDictionary headers, std::string_view name) {
    return headers->removeKeyU8(headers, name.data(), name.size());
}

// The working entries go once the request is signed: all of them, except for a streaming
// upload, whose caller chains its chunk signatures from them and removes them itself.
OXStatus finishEntries(OXDictionary headers, const RequestEntries& entries, std::string_view scope,
                       std::string_view signature) {
    OXStatus st = entries.service ? removeEntry(headers, kServiceNameEntry) : OX_OK;
    if (st != OX_OK) return st;
    if (isStreaming(entries)) {
        st = setText(headers, kScopeEntry, scope);
        return st == OX_OK ? setText(headers, kSignatureEntry, signature) : st;
    }
    if (entries.isoDate) st = removeEntry(headers, kIsoDateEntry);
    if (st == OX_OK && entries.region) st = removeEntry(headers, kRegionEntry);
    return st;
}

OXStatus signingKeysFor(OXS3Connection connection, const SigningScope& scope, SigningKeys* keys) {
    SigningKeyCache& cache = signingKeyCache(connection);
    const std::string_view secret = view(connection->secretAccessKey);
    if (cache.find(secret, scope, keys)) return OX_OK;
    OXStatus st = deriveSigningKeys(webClient(connection->oxs3), connection->pool, secret, scope, keys);
    if (st == OX_OK) cache.keep(secret, scope, *keys);
    return st;
}

OXStatus deriveAndSign(OXS3Connection connection, const SigningScope& scope, TextBuffer& stringToSign,
                       const SigningDump& dump, char (&signature)[kSignatureHexLen + 1]) {
    OXWebClient_S* wc = webClient(connection->oxs3);
    SigningKeys keys;
    OXStatus st = signingKeysFor(connection, scope, &keys);
    if (st != OX_OK) return st;
    dump.writeKeys(keys);
    st = signatureHex(wc, keys, stringToSign.view(), signature);
    if (st == OX_OK) dump.write(kSignatureDump, signature);
    return st;
}

}  // namespace

bool SigningKeyCache::Text::equals(std::string_view text) const {
    return text.size() == length && std::memcmp(bytes, text.data(), length) == 0;
}

bool SigningKeyCache::Text::assign(std::string_view text) {
    if (text.size() > kMaxText) return false;
    length = static_cast<uint8_t>(text.size());
    if (length != 0) std::memcpy(bytes, text.data(), length);
    return true;
}

bool SigningKeyCache::find(std::string_view secret, const SigningScope& scope, SigningKeys* keys) const {
    if (!valid_ || !date_.equals(scope.date) || !region_.equals(scope.region) || !service_.equals(scope.service) ||
        !secret_.equals(secret))
        return false;
    *keys = keys_;
    return true;
}

void SigningKeyCache::keep(std::string_view secret, const SigningScope& scope, const SigningKeys& keys) {
    valid_ = secret_.assign(secret) && date_.assign(scope.date) && region_.assign(scope.region) &&
             service_.assign(scope.service);
    keys_ = keys;
}

OXStatus buildCanonicalRequest(std::string_view method, std::string_view path, const RequestTarget* target,
                               OXDictionary query, OXDictionary headers, TextBuffer& canonical,
                               TextBuffer& signedHeaders) {
    RequestEntries entries;
    OXStatus st = collectEntries(headers, entries);
    return st == OX_OK ? canonicalRequestOf(method, path, target, query, headers, entries, canonical, signedHeaders)
                       : st;
}

void appendScope(TextBuffer& out, const SigningScope& scope) {
    out.append(scope.date);
    out.push('/');
    out.append(scope.region);
    out.push('/');
    out.append(scope.service);
    out.push('/');
    out.append(kTerminator);
}

OXStatus appendStringToSign(OXWebClient_S* wc, TextBuffer& out, std::string_view dateTime, std::string_view scope,
                            std::string_view canonicalRequest) {
    out.append(kAlgorithm);
    out.push('\n');
    out.append(dateTime);
    out.push('\n');
    out.append(scope);
    out.push('\n');
    return appendSha256Hex(wc, canonicalRequest, out);
}

OXStatus appendChunkStringToSign(OXWebClient_S* wc, TextBuffer& out, std::string_view dateTime,
                                 std::string_view scope, std::string_view previousSignature,
                                 std::string_view emptyHash, std::string_view chunk) {
    for (std::string_view line : {kChunkAlgorithm, dateTime, scope, previousSignature, emptyHash}) {
        out.append(line);
        out.push('\n');
    }
    return appendSha256Hex(wc, chunk, out);
}

OXStatus deriveSigningKeys(OXWebClient_S* wc, OX_POOL_S* pool, std::string_view secret, const SigningScope& scope,
                           SigningKeys* keys) {
    TextBuffer seed(pool);
    seed.append("AWS4");
    seed.append(secret);
    if (seed.status() != OX_OK) return seed.status();
    const auto* seedBytes = reinterpret_cast<const uint8_t*>(seed.view().data());
    OXStatus st = hmac(wc, seedBytes, seed.size(), scope.date, keys->dateKey);
    if (st == OX_OK) st = hmac(wc, keys->dateKey, OX_SHA256_LEN, scope.region, keys->dateRegionKey);
    if (st == OX_OK) st = hmac(wc, keys->dateRegionKey, OX_SHA256_LEN, scope.service, keys->dateRegionServiceKey);
    if (st == OX_OK) st = hmac(wc, keys->dateRegionServiceKey, OX_SHA256_LEN, kTerminator, keys->signingKey);
    return st;
}

OXStatus appendSha256Hex(OXWebClient_S* wc, std::string_view bytes, TextBuffer& out) {
    uint8_t digest[OX_SHA256_LEN];
    OXStatus st = wc->sha256(bytes.data(), bytes.size(), digest);
    if (st == OX_OK) appendHex(out, digest, sizeof digest);
    return st == OX_OK ? out.status() : st;
}

OXStatus signatureHex(OXWebClient_S* wc, const SigningKeys& keys, std::string_view stringToSign, char* out) {
    uint8_t mac[OX_SHA256_LEN];
    OXStatus st = hmac(wc, keys.signingKey, OX_SHA256_LEN, stringToSign, mac);
    if (st != OX_OK) return st;
    hexInto(mac, OX_SHA256_LEN, out);
    out[kSignatureHexLen] = '\0';
    return OX_OK;
}

OXStatus signRequest(OXS3Connection connection, const RequestTarget* target, std::string_view method,
                     std::string_view path, std::string_view /*bucket: not part of the canonical form*/,
                     OXDictionary query, OXDictionary headers) {
    if (!connection || !headers) return OX_INVALID_ARGUMENT;
    OX_POOL_S* pool = connection->pool;
    OXWebClient_S* wc = webClient(connection->oxs3);
    const SigningDump dump(connection->oxs3);

    RequestEntries entries;
    TextBuffer service(pool), canonical(pool), signedHeaders(pool);
    OXStatus st = collectEntries(headers, entries);
    if (st == OX_OK) st = serviceOf(entries, service);
    if (st == OX_OK)
        st = canonicalRequestOf(method, path, target, query, headers, entries, canonical, signedHeaders);
    if (st != OX_OK) return st;
    dump.write(kCanonicalRequestDump, canonical);

    TextBuffer date(pool), region(pool), scope(pool), dateTime(pool), stringToSign(pool);
    st = requestScope(entries, service.view(), date, region, scope);
    if (st == OX_OK) st = appendEntry(dateTime, entries.dateTime);
    if (st == OX_OK) st = appendStringToSign(wc, stringToSign, dateTime.view(), scope.view(), canonical.view());
    if (st != OX_OK) return st;
    dump.write(kStringToSignDump, stringToSign);

    char signature[kSignatureHexLen + 1];
    st = deriveAndSign(connection, {date.view(), region.view(), service.view()}, stringToSign, dump, signature);
    if (st == OX_OK) st = setAuthorization(connection, headers, scope.view(), signedHeaders.view(), signature);
    if (st == OX_OK) st = finishEntries(headers, entries, scope.view(), signature);
    return st;
}

OXStatus signChunkRequest(OXS3Connection connection, std::string_view previousSignature, std::string_view emptyHash,
                          std::string_view region, OXDateTime dateTime, const void* chunkData, OXMemSize chunkLength,
                          OXU8String** signature) {
    if (!connection || !signature || (!chunkData && chunkLength)) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = connection->oxs3;
    OXWebClient_S* wc = webClient(ext);
    char date[OX_ISO_DATE_SIZE], time[OX_ISO_DATETIME_SIZE];
    OXStatus st = wc->formatIsoDate(dateTime, date, sizeof date);
    if (st == OX_OK) st = wc->formatIsoDateTime(dateTime, time, sizeof time);
    if (st != OX_OK) return st;

    const SigningScope scope = {date, region, kS3Service};
    TextBuffer scopeText(connection->pool), stringToSign(connection->pool);
    appendScope(scopeText, scope);
    const std::string_view chunk(static_cast<const char*>(chunkData), chunkLength);
    st = appendChunkStringToSign(wc, stringToSign, time, scopeText.view(), previousSignature, emptyHash, chunk);
    if (st != OX_OK) return st;
    const SigningDump dump(ext);
    dump.write(kChunkStringToSignDump, stringToSign);

    char hex[kSignatureHexLen + 1];
    st = deriveAndSign(connection, scope, stringToSign, dump, hex);
    if (st != OX_OK) return st;
    return ext->oxstring->createU8(ext->oxstring, connection->pool, hex, kSignatureHexLen, OX_STR_COPY, signature);
}

OXStatus hashToHex(OXS3Extension* ext, OX_POOL_S* pool, const uint8_t* digest, size_t length, OXU8String** out) {
    if (!ext || !pool || (!digest && length) || !out) return OX_INVALID_ARGUMENT;
    TextBuffer hex(pool);
    appendHex(hex, digest, length);
    return copyToString(ext->oxstring, pool, hex, out);
}

OXStatus removeExtraHeaders(OXDictionary headers) {
    if (!headers) return OX_INVALID_ARGUMENT;
    for (std::string_view name : kExtraEntries) {
        OXStatus st = headers->removeKeyU8(headers, name.data(), name.size());
        if (st != OX_OK && st != OX_NOT_FOUND) return st;
    }
    return OX_OK;
}

}  // namespace s3
