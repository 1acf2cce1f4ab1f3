// S3 paths and locations: parsing the path syntax, adding explicit and default values,
// printing a location back, and opening a connection for it. Also fills the record's region
// and location slots.
#include "oxs3path.h"

#include <initializer_list>

#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "oxs3custom.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3regions.h"
#include "oxs3text.h"

namespace s3 {
namespace {

constexpr std::string_view kRootObject = "/";
constexpr size_t kPathCapacity = 128;

// ---- the path syntax

// The scheme is searched anywhere but skipped from the start, where it is assumed to stand.
std::string_view skipScheme(std::string_view text, std::string_view lower, std::string_view upper) {
    const bool found = text.find(lower) != text.npos || text.find(upper) != text.npos;
    return found ? text.substr(lower.size()) : text;
}

std::string_view skipPathScheme(std::string_view text) { return skipScheme(text, "s3:/", "S3:/"); }

// [keyId[:secret]@]regionName
OXStatus splitAuthority(std::string_view authority, S3PathParts& parts) {
    const size_t at = authority.find('@');
    if (at == authority.npos) {
        parts.regionName = authority;
        return OX_OK;
    }
    if (at + 1 == authority.size()) return OXS3_PATH_AUTHORITY_ENDS_IN_AT;
    parts.regionName = authority.substr(at + 1);
    const std::string_view credentials = authority.substr(0, at);
    const size_t colon = credentials.find(':');
    parts.keyId = credentials.substr(0, colon);
    if (colon != credentials.npos) parts.secret = credentials.substr(colon + 1);
    return OX_OK;
}

// Logs the entry and exit lines of the two scheme strippers.
OXStatus stripLogged(OXS3Extension* ext, const char32_t* enter, const char32_t* exit, UTF8CStr text, UTF8CStr* rest,
                     std::string_view lower, std::string_view upper) {
    Logger_S* logger = ext ? ext->logger : oxs3logger;
    OXS3_LOG(logger, LL_Trace, enter, text ? text : "");
    OXStatus st = text && rest ? OX_OK : OX_INVALID_ARGUMENT;
    UTF8CStr out = "";
    if (st == OX_OK) {
        const std::string_view all(text);
        out = text + (all.size() - skipScheme(all, lower, upper).size());
        *rest = out;
    }
    OXS3_LOG(logger, LL_Trace, exit, out, st);
    return st;
}

// ---- the location record

OXStatus destroyLocation(void* self) {
    auto* location = static_cast<OXS3Location_S*>(self);
    if (!location) return OX_INVALID_ARGUMENT;
    if (!dropReference(location->instance)) return OX_OK;
    oxs3ReleaseS3Location(location);
    location->pool->memFree(location->pool, location);
    return OX_OK;
}

OXStatus newLocation(OXS3Extension* ext, OX_POOL_S* pool, Owned<OXS3Location_S>& out) {
    auto* location = static_cast<OXS3Location_S*>(pool->memAlloc(pool, sizeof(OXS3Location_S), OX_POOL_ZERO_FILL));
    if (!location) return OX_NO_MEMORY;
    initInstance(location->instance, OXS3_TYPE_LOCATION, destroyLocation);
    location->pool = pool;
    location->oxs3 = ext;
    location->region = No_Region;
    location->applyDefaultsU8 = oxs3LocationApplyDefaultsU8;
    location->connectionForLocation = oxs3ConnectionForLocation;
    location->getPath = locationGetPath;
    out.reset(location);
    return OX_OK;
}

// A copy of text in the location's pool; an empty text stays absent.
OXStatus copyPart(OXS3Location location, std::string_view text, Owned<OXU8String>& out) {
    if (text.empty()) return OX_OK;
    OXStringExt_S* strings = location->oxs3->oxstring;
    return strings->createU8(strings, location->pool, text.data(), text.size(), OX_STR_COPY, out.out());
}

void replaceField(OXU8String*& field, Owned<OXU8String>& value) {
    if (field) field->instance.destroy(field);
    field = value.release();
}

OXStatus fillLocation(OXS3Location location, const S3PathParts& parts) {
    Owned<OXU8String> keyId, secret, regionName, bucket, objectPath;
    OXStatus st = copyPart(location, parts.keyId, keyId);
    if (st == OX_OK) st = copyPart(location, parts.secret, secret);
    if (st == OX_OK) st = copyPart(location, parts.regionName, regionName);
    if (st == OX_OK) st = copyPart(location, parts.bucket, bucket);
    // An object path left empty by "bucket/" is still a path, unlike the other parts.
    OXStringExt_S* strings = location->oxs3->oxstring;
    if (st == OX_OK)
        st = strings->createU8(strings, location->pool, parts.objectPath.data(), parts.objectPath.size(), OX_STR_COPY,
                               objectPath.out());
    if (st != OX_OK) return st;
    replaceField(location->keyId, keyId);
    replaceField(location->secretKey, secret);
    replaceField(location->regionName, regionName);
    replaceField(location->bucketName, bucket);
    replaceField(location->objectPath, objectPath);
    return OX_OK;
}

bool given(UTF8CStr text) { return text && *text; }

OXStatus failWith(OXS3Extension* ext, OXStatus st, const char32_t* sentence) {
    OXS3_LOG(ext->logger, LL_Error, sentence);
    return st;
}

// The explicit values of a create: each may come from the path or the argument, not both.
OXStatus addExplicit(OXS3Location location, UTF8CStr keyId, UTF8CStr secretKey, UTF8CStr sessionToken,
                     AWSRegion region) {
    OXS3Extension* ext = location->oxs3;
    if (given(keyId) && location->keyId)
        return failWith(ext, OXS3_KEY_ID_GIVEN_TWICE, U"The key id is given both in the S3 path and as an argument.");
    if (given(secretKey) && location->secretKey)
        return failWith(ext, OXS3_SECRET_GIVEN_TWICE, U"The secret is given both in the S3 path and as an argument.");
    if (region != No_Region && location->regionName)
        return failWith(ext, OXS3_REGION_GIVEN_TWICE, U"The region is given both in the S3 path and as an argument.");
    std::string_view regionName;
    if (region != No_Region) {
        UTF8ByteLength length = 0;
        UTF8CStr name = nameForRegion(ext, region, &length);
        if (!name) return failWith(ext, OXS3_UNKNOWN_REGION, U"The region given for the location has no name.");
        regionName = std::string_view(name, length);
    }
    Owned<OXU8String> key, secret, token, name;
    OXStatus st = copyPart(location, given(keyId) ? keyId : "", key);
    if (st == OX_OK) st = copyPart(location, given(secretKey) ? secretKey : "", secret);
    if (st == OX_OK) st = copyPart(location, given(sessionToken) ? sessionToken : "", token);
    if (st == OX_OK) st = copyPart(location, regionName, name);
    if (st != OX_OK) return st;
    if (key) replaceField(location->keyId, key);
    if (secret) replaceField(location->secretKey, secret);
    if (token) replaceField(location->sessionToken, token);
    if (name) replaceField(location->regionName, name);
    if (region != No_Region)
        location->region = region;
    else if (location->regionName)
        location->region = regionForText(ext, view(location->regionName));
    return OX_OK;
}

}  // namespace

OXStatus parseS3Path(std::string_view path, S3PathParts* parts) {
    if (!parts) return OX_INVALID_ARGUMENT;
    const std::string_view rest = skipPathScheme(path);
    S3PathParts p;
    const size_t slash = rest.find('/');
    if (slash == rest.npos) {
        p.bucket = rest;
        p.objectPath = kRootObject;
    } else {
        const std::string_view afterAuthority = rest.substr(slash + 1);
        const size_t next = afterAuthority.find('/');
        p.bucket = afterAuthority.substr(0, next);
        p.objectPath = next == afterAuthority.npos ? kRootObject : afterAuthority.substr(next + 1);
        if (OXStatus st = splitAuthority(rest.substr(0, slash), p); st != OX_OK) return st;
    }
    *parts = p;
    return OX_OK;
}

OXStatus stripBucketPrefix(OXS3Extension* ext, UTF8CStr text, UTF8CStr* rest) {
    return stripLogged(ext, U"stripBucketPrefix [ENTER] inBucketName: %hs",
                       U"stripBucketPrefix [EXIT] outBucketName: %hs  result=0x%x", text, rest, "s3:/", "S3:/");
}

OXStatus getBucketName(OXS3Extension* ext, UTF8CStr text, UTF8CStr* rest) {
    return stripLogged(ext, U"getBucketName [ENTER] inBucketName: %hs",
                       U"getBucketName [EXIT] outBucketName: %hs  result=0x%x", text, rest, "s3://", "S3://");
}

OXStatus oxs3ParseS3PathU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr path, OXS3Location* location) {
    if (!ext || !pool || !path || !location) return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3ParseS3PathU8");
    S3PathParts parts;
    if (OXStatus st = parseS3Path(path, &parts); st != OX_OK)
        return failWith(ext, st, U"The S3 path has \"@\" after its credentials but no region name.");
    Owned<OXS3Location_S> result;
    OXStatus st = newLocation(ext, pool, result);
    if (st == OX_OK) st = fillLocation(result.get(), parts);
    if (st == OX_OK) *location = result.release();
    return st;
}

OXStatus oxs3LocationCreateU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secretKey,
                              UTF8CStr sessionToken, AWSRegion region, UTF8CStr path, OXS3Location* location) {
    if (!ext || !pool || !path || !location) return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3LocationCreateU8");
    Owned<OXS3Location_S> result;
    OXStatus st = oxs3ParseS3PathU8(ext, pool, path, result.out());
    if (st == OX_OK) st = addExplicit(result.get(), keyId, secretKey, sessionToken, region);
    if (st == OX_OK) *location = result.release();
    return st;
}

OXStatus oxs3LocationApplyDefaultsU8(OXS3Location location, UTF8CStr keyId, UTF8CStr secretKey, UTF8CStr sessionToken,
                                     UTF8CStr regionName) {
    if (!location) return OX_INVALID_ARGUMENT;
    // Copies first, so that running out of memory changes nothing.
    Owned<OXU8String> key, secret, token, name;
    OXStatus st = copyPart(location, location->keyId || !keyId ? "" : keyId, key);
    if (st == OX_OK) st = copyPart(location, location->secretKey || !secretKey ? "" : secretKey, secret);
    if (st == OX_OK) st = copyPart(location, location->sessionToken || !sessionToken ? "" : sessionToken, token);
    if (st == OX_OK) st = copyPart(location, location->regionName || !regionName ? "" : regionName, name);
    if (st != OX_OK) return st;
    if (key) replaceField(location->keyId, key);
    if (secret) replaceField(location->secretKey, secret);
    if (token) replaceField(location->sessionToken, token);
    if (name) replaceField(location->regionName, name);
    location->region = regionForText(location->oxs3, view(location->regionName));
    return OX_OK;
}

OXStatus locationGetPath(OXS3Location location, OX_POOL_S* pool, OXBoolean includeCredentials, OXU8String** path) {
    if (!location || !pool || !path) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = location->oxs3;
    const bool withSecret = includeCredentials && location->secretKey;
    const std::string_view keyId = includeCredentials ? view(location->keyId) : std::string_view();
    const bool credentials = !keyId.empty() || withSecret;
    if (credentials && !location->regionName)
        return failWith(ext, OXS3_REGION_NOT_FOUND, U"A location with credentials but no region has no path text.");
    if (!location->bucketName) return failWith(ext, OXS3_LOCATION_NO_BUCKET, U"The location has no bucket name.");
    Owned<OXU8String> text;
    OXStatus st = ext->oxstring->createU8Empty(ext->oxstring, pool, kPathCapacity, text.out());
    if (st == OX_OK)
        st = appendText(text.get(), {keyId, withSecret ? ":" : "", withSecret ? view(location->secretKey) : "",
                                     credentials ? "@" : "", view(location->regionName), ":/",
                                     view(location->bucketName), view(location->objectPath)});
    if (st == OX_OK) *path = text.release();
    return st;
}

OXStatus oxs3ConnectionForLocation(OXS3Location location, OXBoolean useSSL, struct SSLOptions_S* sslOptions,
                                   OXS3Connection* connection) {
    if (!location || !connection) return OX_INVALID_ARGUMENT;
    OXS3Extension* ext = location->oxs3;
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3ConnectionForLocation");
    if (location->region < 0) return failWith(ext, OXS3_REGION_NOT_FOUND, U"The location has no known region.");
    if (!location->keyId) return failWith(ext, OXS3_LOCATION_NO_KEY_ID, U"The location has no key id.");
    if (!location->secretKey) return failWith(ext, OXS3_LOCATION_NO_SECRET, U"The location has no secret key.");
    if (!ext->createConnection)
        return failWith(ext, OX_NOT_SUPPORTED, U"The extension cannot make connections: it has no connection support.");
    OXStatus st = OX_OK;
    OXS3Connection made =
        ext->createConnection(ext, location->pool, useSSL ? OX_TRUE : OX_FALSE, useSSL ? sslOptions : nullptr,
                              location->region, location->keyId->stg, location->secretKey->stg,
                              location->sessionToken ? location->sessionToken->stg : nullptr, &st);
    if (!made) return st != OX_OK ? st : OX_FAILED;
    *connection = made;
    return OX_OK;
}

OXStatus oxs3ReleaseS3Location(OXS3Location location) {
    if (!location) return OX_INVALID_ARGUMENT;
    for (OXU8String** field : {&location->keyId, &location->secretKey, &location->regionName, &location->bucketName,
                               &location->objectPath, &location->sessionToken}) {
        if (*field) (*field)->instance.destroy(*field);
        *field = nullptr;
    }
    return OX_OK;
}

// The region and location operations of the record.
void setPathOps(OXS3Extension* ext) {
    ext->regionForName = regionForName;
    ext->regionForNameU8 = regionForNameU8;
    ext->nameForRegion = nameForRegion;
    ext->titleForRegion = titleForRegion;
    ext->parseS3PathU8 = oxs3ParseS3PathU8;
    ext->createLocationU8 = oxs3LocationCreateU8;
    ext->fullNameForRegion = fullNameForRegion;
    ext->defaultConfigPath = oxs3DefaultConfigPath;
    ext->addCustomRegion = oxs3AddCustomRegion;
    ext->removeCustomRegion = oxs3RemoveCustomRegion;
    ext->getRegions = oxs3GetRegions;
    ext->freeRegions = oxs3ReleaseRegions;
}

}  // namespace s3
