// Custom regions: S3-compatible stores a site defines by name, kept in the extension record's
// customRegions (by name) and customRegionsById (by index) under customRegionLock, loaded from
// the host option "oxs3regions" or the environment, and saved back to the option.
#pragma once

#include <string_view>

#include "oxs3.h"

namespace s3 {

#define OXS3_TYPE_ENDPOINT "EndpointInstance"

// One custom region: a host instance in the extension's pool. The endpoint's texts point into
// the strings below.
struct EndpointInstance {
    OXInstance instance;
    OX_POOL_S* pool;
    AWSEndpoint awsEndpoint;
    OXU8String* regionName;
    OXU8String* hostname;
    OXU8String* pathPrefix; /* null when none */
    AWSRegion region;       /* First_Custom_Region + index */
    int64_t index;          /* position in customRegionsById */
};

// Holds customRegionLock exclusively for a scope. While the extension loads there is no lock
// yet and nothing else can reach the tables, so the hold is empty.
class CustomRegionHold {
public:
    explicit CustomRegionHold(OXS3Extension* ext);
    ~CustomRegionHold();
    CustomRegionHold(const CustomRegionHold&) = delete;
    CustomRegionHold& operator=(const CustomRegionHold&) = delete;

private:
    OX_LOCK_S* lock_;
};

// The custom region in an array slot, or null for an emptied slot.
const EndpointInstance* asCustomRegion(const OXInstance* item);

// Borrowed lookups, each under the lock; the caller holds no lock.
AWSRegion customRegionForName(OXS3Extension* ext, std::string_view name);
// The entry of a region number above Custom_Region; null when not defined. The pointer is
// valid while the region stays defined.
const EndpointInstance* customRegionEntry(OXS3Extension* ext, AWSRegion region);
// A copy of a custom region's name in pool; OXS3_REGION_NOT_FOUND when not defined.
OXStatus copyCustomRegionName(OXS3Extension* ext, OX_POOL_S* pool, AWSRegion region, OXU8String** name);

// One definition of the text form: name, host, port, TLS port, TLS required, TLS allowed and
// an optional path prefix. The views point into the text.
struct CustomRegionDefinition {
    std::string_view name;
    std::string_view host;
    uint16_t port = 0;
    uint16_t sslPort = 0;
    bool sslRequired = false;
    bool sslAllowed = false;
    std::string_view pathPrefix;

    bool operator==(const CustomRegionDefinition&) const = default;
};

// Each field loses surrounding blanks and one quote at either end; a port of 0 (or none) is
// the default port, TLS allowed follows TLS required. OX_INVALID_ARGUMENT for fewer than six
// fields or a port that is not a number up to 65535, with a sentence saying which in *problem.
OXStatus parseCustomRegionDefinition(std::string_view text, CustomRegionDefinition* definition,
                                     const char32_t** problem = nullptr);
// Adds every definition of a ":"-separated text; the first failure ends it.
OXStatus addCustomRegionsFromText(OXS3Extension* ext, std::string_view text);
// The text form of one region (without its path prefix), appended to out.
OXStatus endpointToString(const EndpointInstance* entry, OXU8String* out);
// Every defined region's text form, joined with ":".
OXStatus customRegionsText(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** text);

OXStatus oxs3AddCustomRegion(OXS3Extension* ext, UTF8CStr regionName, UTF8CStr host, uint16_t port, uint16_t sslPort,
                             UTF8CStr pathPrefix, OXBoolean sslAllowed, OXBoolean sslRequired, OXBoolean noSSL,
                             OXBoolean replace);
OXStatus oxs3RemoveCustomRegion(OXS3Extension* ext, UTF8CStr regionName);

}  // namespace s3
