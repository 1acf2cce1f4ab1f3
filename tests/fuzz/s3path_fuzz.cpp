// Arbitrary bytes as S3 paths. Parsing must not crash or leak, must agree with the parser of
// byte ranges, must write its output only on success, and a parsed location must print as
// exactly its parts joined. Create and apply-defaults on the same text keep to the same rules.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"
#include "oxs3.h"
#include "oxs3path.h"
#include "oxs3text.h"

namespace {

struct Harness {
    OXS3Extension* ext = nullptr;
    OX_POOL_S* pool = nullptr;

    Harness() {
        unsetenv("OXS3_CUSTOM_REGION");
        OX_HNDL_S* h = oxHostInit();
        ext = oxs3(h, nullptr);
        OXPoolCreateParms parms{};
        pool = h->poolCreate(h, &parms, nullptr, "s3path fuzz");
        if (!ext || !pool) std::abort();
        h->log4qel->SetLevel(ext->logger, LL_Off);
    }
};

Harness& harness() {
    static Harness instance;
    return instance;
}

void check(bool condition) {
    if (!condition) std::abort();
}

std::string_view part(const OXU8String* s) { return s3::view(s); }

void checkParts(const OXS3Location_S* l, const s3::S3PathParts& p) {
    check(part(l->keyId) == p.keyId && (l->keyId != nullptr) == !p.keyId.empty());
    check(part(l->secretKey) == p.secret && (l->secretKey != nullptr) == !p.secret.empty());
    check(part(l->regionName) == p.regionName && (l->regionName != nullptr) == !p.regionName.empty());
    check(part(l->bucketName) == p.bucket && (l->bucketName != nullptr) == !p.bucket.empty());
    check(l->objectPath && part(l->objectPath) == p.objectPath);
    check(l->region == No_Region && l->sessionToken == nullptr);
}

void checkPrinted(OXS3Location l, const s3::S3PathParts& p) {
    Harness& hs = harness();
    OXU8String* text = nullptr;
    const OXStatus st = l->getPath(l, hs.pool, OX_TRUE, &text);
    const bool credentials = !p.keyId.empty() || !p.secret.empty();
    if (credentials && p.regionName.empty()) return check(st == OXS3_REGION_NOT_FOUND && !text);
    if (p.bucket.empty()) return check(st == OXS3_LOCATION_NO_BUCKET && !text);
    check(st == OX_OK);
    std::string expected(p.keyId);
    if (!p.secret.empty()) expected.append(":").append(p.secret);
    if (credentials) expected.append("@");
    expected.append(p.regionName).append(":/").append(p.bucket).append(p.objectPath);
    check(s3::view(text) == expected);
    text->instance.destroy(text);
}

// Every scheme stripper hands back a suffix of its text.
void checkStrippers(const char* path) {
    for (auto strip : {s3::stripBucketPrefix, s3::getBucketName}) {
        UTF8CStr rest = nullptr;
        check(strip(harness().ext, path, &rest) == OX_OK);
        check(rest >= path && rest <= path + std::strlen(path));
    }
}

void checkParse(const char* path) {
    Harness& hs = harness();
    s3::S3PathParts parts;
    const OXStatus pure = s3::parseS3Path(path, &parts);
    OXS3Location sentinel = reinterpret_cast<OXS3Location>(&hs);
    OXS3Location l = sentinel;
    const OXStatus st = hs.ext->parseS3PathU8(hs.ext, hs.pool, path, &l);
    check(st == pure);
    if (st != OX_OK) return check(st == OXS3_PATH_AUTHORITY_ENDS_IN_AT && l == sentinel);
    checkParts(l, parts);
    checkPrinted(l, parts);
    check(l->applyDefaultsU8(l, "K", "S", "T", "eu-west-1") == OX_OK);
    check(l->keyId && l->secretKey && l->sessionToken && l->regionName);
    check(l->region == hs.ext->regionForNameU8(hs.ext, l->regionName->stg));
    l->instance.destroy(l);
}

// The same text with explicit values chosen by its first byte.
void checkCreate(const char* path, uint8_t choice) {
    Harness& hs = harness();
    const char* key = choice & 1 ? "K" : nullptr;
    const char* secret = choice & 2 ? "S" : nullptr;
    const AWSRegion region = choice & 4 ? static_cast<AWSRegion>(choice >> 3) : No_Region;
    OXS3Location sentinel = reinterpret_cast<OXS3Location>(&hs);
    OXS3Location l = sentinel;
    const OXStatus st = hs.ext->createLocationU8(hs.ext, hs.pool, key, secret, "T", region, path, &l);
    if (st != OX_OK) {
        check(l == sentinel);
        check(st == OXS3_PATH_AUTHORITY_ENDS_IN_AT || st == OXS3_KEY_ID_GIVEN_TWICE || st == OXS3_SECRET_GIVEN_TWICE ||
              st == OXS3_REGION_GIVEN_TWICE || st == OXS3_UNKNOWN_REGION);
        return;
    }
    if (region != No_Region) check(l->region == region);
    check(l->sessionToken && s3::view(l->sessionToken) == "T");
    l->instance.destroy(l);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    // The operations take C strings: the text ends at the first 0 byte.
    const std::string path(bytes.substr(0, bytes.find('\0')));
    checkStrippers(path.c_str());
    checkParse(path.c_str());
    checkCreate(path.c_str(), size ? data[0] : 0);
    check(harness().pool->blocksInUse(harness().pool) == 0);
    return 0;
}
