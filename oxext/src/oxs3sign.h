// AWS Signature Version 4 ("AWS4-HMAC-SHA256") for every request the extension sends, and the
// chained chunk signatures of aws-chunked uploads. Digests come from the web client service.
//
// The header dictionary carries working entries besides the headers sent: "serviceName" (the
// AWS service of a non-S3 request, taken out when signing starts), "iso8601Date" and
// "endPointName" (date and region of the scope), and, set here, "x-amz-scope" and
// "aws-signature". Once signed they are removed, except for a streaming upload (payload hash
// kStreamingPayload): its caller takes "aws-signature" and "endPointName" to chain the chunk
// signatures from and then calls removeExtraHeaders itself.
#pragma once

#include <cstdint>
#include <string_view>

#include "ox/htconnection.h"
#include "ox/webclient.h"
#include "oxs3.h"
#include "oxs3textbuf.h"

namespace s3 {

inline constexpr std::string_view kStreamingPayload = "STREAMING-AWS4-HMAC-SHA256-PAYLOAD";
// The lower-case hex SHA-256 of no bytes.
inline constexpr std::string_view kEmptyPayloadHash =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
inline constexpr size_t kSignatureHexLen = 2 * OX_SHA256_LEN;

inline constexpr std::string_view kPayloadHashHeader = "x-amz-content-sha256";
inline constexpr std::string_view kDateTimeHeader = "x-amz-date";

// The working entries of a header dictionary.
inline constexpr std::string_view kServiceNameEntry = "serviceName";
inline constexpr std::string_view kIsoDateEntry = "iso8601Date";
inline constexpr std::string_view kRegionEntry = "endPointName";
inline constexpr std::string_view kScopeEntry = "x-amz-scope";
inline constexpr std::string_view kSignatureEntry = "aws-signature";

// Another endpoint a request goes to (a redirect's location, say): its HTTP connection gives
// the Host, and its query, when it has one, is signed as it stands.
struct RequestTarget {
    HTConnection connection = nullptr;
    std::string_view query;  // data() null when the target has no query

    bool hasQuery() const { return query.data() != nullptr; }
};

// What a signature is bound to: date (YYYYMMDD), region and service.
struct SigningScope {
    std::string_view date;
    std::string_view region;
    std::string_view service;
};

// The keys of the derivation, in order; the last one signs.
struct SigningKeys {
    uint8_t dateKey[OX_SHA256_LEN];
    uint8_t dateRegionKey[OX_SHA256_LEN];
    uint8_t dateRegionServiceKey[OX_SHA256_LEN];
    uint8_t signingKey[OX_SHA256_LEN];
};

// The keys a connection derived last, kept so that requests and chunks signed for the same
// secret, date, region and service skip the four derivation steps. Texts too long to keep are
// never cached.
class SigningKeyCache {
public:
    bool find(std::string_view secret, const SigningScope& scope, SigningKeys* keys) const;
    void keep(std::string_view secret, const SigningScope& scope, const SigningKeys& keys);

private:
    static constexpr size_t kMaxText = 128;
    struct Text {
        uint8_t length;
        char bytes[kMaxText];
        bool equals(std::string_view text) const;
        bool assign(std::string_view text);
    };
    bool valid_;
    Text secret_, date_, region_, service_;
    SigningKeys keys_;
};

// ---- the steps, each on its own

// The canonical request, and the names of the signed headers joined by ";". path is the
// unencoded request path; target and query may be null.
OXStatus buildCanonicalRequest(std::string_view method, std::string_view path, const RequestTarget* target,
                               OXDictionary query, OXDictionary headers, TextBuffer& canonical,
                               TextBuffer& signedHeaders);
// date/region/service/aws4_request
void appendScope(TextBuffer& out, const SigningScope& scope);
// "AWS4-HMAC-SHA256", the date-time, the scope and the hex SHA-256 of the canonical request.
OXStatus appendStringToSign(OXWebClient_S* wc, TextBuffer& out, std::string_view dateTime, std::string_view scope,
                            std::string_view canonicalRequest);
// The same for one chunk of a streaming upload, chained to the previous signature.
OXStatus appendChunkStringToSign(OXWebClient_S* wc, TextBuffer& out, std::string_view dateTime,
                                 std::string_view scope, std::string_view previousSignature,
                                 std::string_view emptyHash, std::string_view chunk);
OXStatus deriveSigningKeys(OXWebClient_S* wc, OX_POOL_S* pool, std::string_view secret, const SigningScope& scope,
                           SigningKeys* keys);
// The lower-case hex SHA-256 of the bytes, appended.
OXStatus appendSha256Hex(OXWebClient_S* wc, std::string_view bytes, TextBuffer& out);
// Lower-case hex HMAC-SHA256 of the text under the signing key, into kSignatureHexLen bytes.
OXStatus signatureHex(OXWebClient_S* wc, const SigningKeys& keys, std::string_view stringToSign, char* out);

// ---- the operations

// Adds "Authorization" to the headers of a request built by request construction.
OXStatus signRequest(OXS3Connection connection, const RequestTarget* target, std::string_view method,
                     std::string_view path, std::string_view bucket, OXDictionary query, OXDictionary headers);
// The signature of one chunk (empty for the final one), chained to the previous signature
// (the request's own for the first chunk). dateTime is the request's signing time.
OXStatus signChunkRequest(OXS3Connection connection, std::string_view previousSignature, std::string_view emptyHash,
                          std::string_view region, OXDateTime dateTime, const void* chunkData, OXMemSize chunkLength,
                          OXU8String** signature);
// A digest as a new string of lower-case hexadecimal digits.
OXStatus hashToHex(OXS3Extension* ext, OX_POOL_S* pool, const uint8_t* digest, size_t length, OXU8String** out);
// Removes "endPointName", "iso8601Date", "x-amz-scope" and "aws-signature".
OXStatus removeExtraHeaders(OXDictionary headers);

inline OXWebClient_S* webClient(const OXS3Extension* ext) { return reinterpret_cast<OXWebClient_S*>(ext->webclient); }

}  // namespace s3
