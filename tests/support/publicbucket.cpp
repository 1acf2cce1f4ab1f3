#include "publicbucket.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "faultserver.h"
#include "rawhttp.h"
#include "s3env.h"
#include "sigv4.h"

namespace oxtest {

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

RawHttpResponse signedExchange(const S3Env& env, const std::string& method, const std::string& path,
                               const std::string& body = "", Fields extra = {}) {
    SigV4Request req{method, env.host + ":" + std::to_string(env.port), path, "", std::move(extra)};
    std::string text = method + " " + path + " HTTP/1.1\r\n";
    for (const auto& [name, value] : sigV4Headers(req, env.accessKey, env.secretKey, env.region))
        text += name + ": " + value + "\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    return rawHttpExchange(env.host, env.port, text);
}

std::string uniqueName(const char* prefix) {
    const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
    return std::string(prefix) + "-" + std::to_string(::getpid()) + "-" + std::to_string(ticks % 1000000007);
}

std::string patternBody(uint64_t size) {
    std::string b(size, '\0');
    for (size_t i = 0; i < b.size(); ++i) b[i] = patternByte(i);
    return b;
}

void removeAll(const PublicBuckets& b) {
    const S3Env& env = requireS3Env();
    for (const char* key : {PublicBuckets::kSmallKey, PublicBuckets::kPageKey, PublicBuckets::kBigKey})
        signedExchange(env, "DELETE", "/" + b.open + "/" + key);
    for (const std::string& bucket : {b.open, b.closed}) {
        auto r = signedExchange(env, "DELETE", "/" + bucket);
        if (r.status != 204) std::fprintf(stderr, "could not remove test bucket %s: %d\n", bucket.c_str(), r.status);
    }
}

PublicBuckets makeBuckets() {
    PublicBuckets b;
    const S3Env& env = requireS3Env();
    if (!env) {
        b.error = "no S3 server";
        return b;
    }
    b.open = uniqueName("oxhttp-open");
    b.closed = uniqueName("oxhttp-closed");
    const Fields publicRead = {{"x-amz-acl", "public-read"}};
    const struct {
        const char* what;
        std::string path, body;
        Fields extra;
    } steps[] = {
        {"creating the open bucket", "/" + b.open, "", {{"x-amz-acl", "public-read-write"}}},
        {"creating the private bucket", "/" + b.closed, "", {}},
        {"storing the small object", "/" + b.open + "/" + PublicBuckets::kSmallKey, PublicBuckets::kSmallText,
         publicRead},
        {"storing the page object", "/" + b.open + "/" + PublicBuckets::kPageKey, patternBody(PublicBuckets::kPageSize),
         publicRead},
        {"storing the large object", "/" + b.open + "/" + PublicBuckets::kBigKey, patternBody(PublicBuckets::kBigSize),
         publicRead},
    };
    for (const auto& s : steps) {
        const auto r = signedExchange(env, "PUT", s.path, s.body, s.extra);
        if (r.status != 200) {
            b.error = std::string(s.what) + ": HTTP " + std::to_string(r.status) + " " + r.error + " " + r.body;
            break;
        }
    }
    return b;
}

}  // namespace

const PublicBuckets& publicBuckets() {
    // Never destroyed: the exit handler that removes the buckets still reads it.
    static const PublicBuckets* buckets = [] {
        auto* b = new PublicBuckets(makeBuckets());
        if (!b->open.empty()) std::atexit([] { removeAll(publicBuckets()); });
        return b;
    }();
    return *buckets;
}

}  // namespace oxtest
