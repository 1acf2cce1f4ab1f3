#include "sigv4.h"

#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <algorithm>
#include <ctime>

namespace oxtest {

namespace {

std::string hex(const unsigned char* bytes, size_t len) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < len; ++i) {
        out.push_back(digits[bytes[i] >> 4]);
        out.push_back(digits[bytes[i] & 15]);
    }
    return out;
}

std::string sha256Hex(const std::string& text) {
    unsigned char d[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), d);
    return hex(d, sizeof d);
}

std::string hmac(const std::string& key, const std::string& data) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(data.data()),
         data.size(), mac, &len);
    return std::string(reinterpret_cast<char*>(mac), len);
}

std::string canonicalQuery(const std::string& query) {
    if (query.empty() || query.find('=') != std::string::npos) return query;
    return query + "=";
}

}  // namespace

std::vector<std::pair<std::string, std::string>> sigV4Headers(const SigV4Request& req, const std::string& accessKey,
                                                               const std::string& secretKey,
                                                               const std::string& region) {
    char amzDate[17], day[9];
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(amzDate, sizeof amzDate, "%Y%m%dT%H%M%SZ", &utc);
    std::strftime(day, sizeof day, "%Y%m%d", &utc);

    std::vector<std::pair<std::string, std::string>> headers = req.headers;
    headers.emplace_back("host", req.host);
    headers.emplace_back("x-amz-content-sha256", "UNSIGNED-PAYLOAD");
    headers.emplace_back("x-amz-date", amzDate);
    std::sort(headers.begin(), headers.end());
    std::string canonicalHeaders, signedHeaders;
    for (const auto& [name, value] : headers) {
        canonicalHeaders += name + ":" + value + "\n";
        signedHeaders += (signedHeaders.empty() ? "" : ";") + name;
    }
    const std::string canonical = req.method + "\n" + req.path + "\n" + canonicalQuery(req.query) + "\n" +
                                  canonicalHeaders + "\n" + signedHeaders + "\nUNSIGNED-PAYLOAD";
    const std::string scope = std::string(day) + "/" + region + "/s3/aws4_request";
    const std::string toSign = "AWS4-HMAC-SHA256\n" + std::string(amzDate) + "\n" + scope + "\n" + sha256Hex(canonical);
    std::string key = hmac("AWS4" + secretKey, day);
    for (const char* part : {region.c_str(), "s3", "aws4_request"}) key = hmac(key, part);
    const std::string mac = hmac(key, toSign);
    headers.emplace_back("authorization", "AWS4-HMAC-SHA256 Credential=" + accessKey + "/" + scope +
                                              ", SignedHeaders=" + signedHeaders +
                                              ", Signature=" + hex(reinterpret_cast<const unsigned char*>(mac.data()),
                                                                   mac.size()));
    return headers;
}

}  // namespace oxtest
