// The built-in region tables and the lookups between region names, numbers, endpoints and
// titles.
#include "oxs3regions.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ox/msg.h"
#include "ox/status.h"
#include "ox/webclient.h"
#include "oxs3custom.h"
#include "oxs3owned.h"

namespace s3 {
namespace {

// ---- host names, joined at compile time from the rule: "s3." or "s3-fips.", the endpoint's
// name and a dot (except on the global endpoint), and the partition's service domain.

template <size_t N>
struct Literal {
    char text[N]{};
    constexpr Literal(const char (&s)[N]) { std::copy_n(s, N, text); }
    static constexpr size_t size() { return N - 1; }
};

template <Literal... Parts>
struct Joined {
    static constexpr auto make() {
        std::array<char, (Parts.size() + ... + 1)> out{};
        size_t at = 0;
        ((std::copy_n(Parts.text, Parts.size(), out.begin() + at), at += Parts.size()), ...);
        return out;
    }
    static constexpr auto value = make();
};

constexpr Literal kAWSDomain{"amazonaws.com"};
constexpr Literal kChinaDomain{"amazonaws.com.cn"};
constexpr uint16_t kTestRegionPort = 9194;

constexpr AWSEndpoint endpoint(AWSRegion region, const char* host, const char* name, const char* constraint,
                               uint16_t port = OX_DEFAULT_PORT, bool tlsRequired = false) {
    return {{host, port, tlsRequired, OX_TRUE}, region, name, constraint, OX_DEFAULT_PORT, nullptr};
}

template <AWSRegion Region, Literal Name, Literal Constraint>
constexpr AWSEndpoint global() {
    return endpoint(Region, Joined<"s3.", kAWSDomain>::value.data(), Name.text, Constraint.text);
}

template <AWSRegion Region, Literal Name, Literal Constraint = Name, Literal Domain = kAWSDomain>
constexpr AWSEndpoint regional() {
    return endpoint(Region, Joined<"s3.", Name, ".", Domain>::value.data(), Name.text, Constraint.text);
}

template <AWSRegion Region, Literal Name>
constexpr AWSEndpoint china() {
    return regional<Region, Name, Name, kChinaDomain>();
}

template <AWSRegion Region, Literal Name, bool TLSRequired>
constexpr AWSEndpoint fips() {
    return endpoint(Region, Joined<"s3-fips.", Name, ".", kAWSDomain>::value.data(), Name.text, Name.text,
                    OX_DEFAULT_PORT, TLSRequired);
}

constexpr AWSEndpoint kEndRow = {
    {nullptr, OX_DEFAULT_PORT, OX_FALSE, OX_FALSE}, Unknown_Region, nullptr, nullptr, OX_DEFAULT_PORT, nullptr};

// ---- the tables

constexpr RegionName kRegionCodes[] = {
    {"usstd", US_Standard_Region, titleUSStandard},
    {"useast", US_East_Virginia_Region, titleUSEastVirginia},
    {"useastoh", US_East_Ohio_Region, titleUSEastOhio},
    {"uswest", US_West_Oregon_Region, titleUSWestOregon},
    {"uswestca", US_West_California_Region, titleUSWestCalifornia},
    {"euireland", EU_Ireland_Region, titleEUIreland},
    {"eufrankfurt", EU_Frankfurt_Region, titleEUFrankfurt},
    {"apsingapore", Asia_Pacific_Singapore_Region, titleAPSingapore},
    {"apsydney", Asia_Pacific_Sydney_Region, titleAPSydney},
    {"aptokyo", Asia_Pacific_Tokyo_Region, titleAPTokyo},
    {"sa", South_America_SaoPaulo_Region, titleSASaoPaulo},
    {"usgov", US_GovCloud, titleUSGovCloud},
    {"fips", US_GovCloud_FIPS, titleUSGovCloudFIPS},
    {"cacentral", CA_Central_Region, titleCACentral},
    {"apindia", Asia_Pacific_India_Region, titleAPIndia},
    {"apseoul", Asia_Pacific_Seoul_Region, titleAPSeoul},
    {"cnbeijing", China_Beijing_Region, titleCNBeijing},
    {"cnningxia", China_Ningxia_Region, titleCNNingxia},
    {"eulondon", EU_London_Region, titleEULondon},
    {"euparis", EU_Paris_Region, titleEUParis},
    {"aphongkong", Asia_Pacific_HongKong_Region, titleAPHongKong},
    {"eumilan", EU_Milan_Region, titleEUMilan},
    {"eustockholm", EU_Stockholm_Region, titleEUStockholm},
    {"mebahrain", Middle_East_Bahrain_Region, titleMEBahrain},
    {"afcapetown", Africa_CapeTown_Region, titleAFCapeTown},
    {"aposaka", Asia_Pacific_Osaka_Region, titleAPOsaka},
    {"euzurich", EU_Zurich_Region, titleEUZurich},
    {"aphyderabad", Asia_Pacific_Hyderabad_Region, titleAPHyderabad},
    {"apjakarta", Asia_Pacific_Jakarta_Region, titleAPJakarta},
    {"usgoveast", US_East_GovCloud, titleUSGovCloudEast},
    {"fipseast", US_East_GovCloud_FIPS, titleUSGovCloudEastFIPS},
    {"euspain", EU_Spain_Region, titleEUSpain},
    {"meuae", Middle_East_UAE_Region, titleMEUAE},
    {"apmelbourne", Asia_Pacific_Melbourne_Region, titleAPMelbourne},
    {"cacalgary", CA_Calgary_Region, titleCACalgary},
    {"iltelaviv", Israel_Tel_Aviv_Region, titleILTelAviv},
    {"custom", Custom_Region, titleCustomRegion},
    {{}, Unknown_Region, titleUnknownRegion},
};

// "us-east-1" belongs to the US Standard region, not to US East (N. Virginia).
constexpr RegionName kAWSRegionCodes[] = {
    {"us-east-1", US_Standard_Region, titleUSStandard},
    {"us-east-2", US_East_Ohio_Region, titleUSEastOhio},
    {"us-west-2", US_West_Oregon_Region, titleUSWestOregon},
    {"us-west-1", US_West_California_Region, titleUSWestCalifornia},
    {"eu-west-1", EU_Ireland_Region, titleEUIreland},
    {"eu-central-1", EU_Frankfurt_Region, titleEUFrankfurt},
    {"ap-southeast-1", Asia_Pacific_Singapore_Region, titleAPSingapore},
    {"ap-southeast-2", Asia_Pacific_Sydney_Region, titleAPSydney},
    {"ap-northeast-1", Asia_Pacific_Tokyo_Region, titleAPTokyo},
    {"sa-east-1", South_America_SaoPaulo_Region, titleSASaoPaulo},
    {"us-gov-west-1", US_GovCloud, titleUSGovCloud},
    {"fips-us-gov-west-1", US_GovCloud_FIPS, titleUSGovCloudFIPS},
    {"ca-central-1", CA_Central_Region, titleCACentral},
    {"ap-south-1", Asia_Pacific_India_Region, titleAPIndia},
    {"ap-northeast-2", Asia_Pacific_Seoul_Region, titleAPSeoul},
    {"cn-north-1", China_Beijing_Region, titleCNBeijing},
    {"cn-northwest-1", China_Ningxia_Region, titleCNNingxia},
    {"eu-west-2", EU_London_Region, titleEULondon},
    {"eu-west-3", EU_Paris_Region, titleEUParis},
    {"ap-east-1", Asia_Pacific_HongKong_Region, titleAPHongKong},
    {"eu-south-1", EU_Milan_Region, titleEUMilan},
    {"eu-north-1", EU_Stockholm_Region, titleEUStockholm},
    {"me-south-1", Middle_East_Bahrain_Region, titleMEBahrain},
    {"af-south-1", Africa_CapeTown_Region, titleAFCapeTown},
    {"ap-northeast-3", Asia_Pacific_Osaka_Region, titleAPOsaka},
    {"eu-central-2", EU_Zurich_Region, titleEUZurich},
    {"ap-south-2", Asia_Pacific_Hyderabad_Region, titleAPHyderabad},
    {"ap-southeast-3", Asia_Pacific_Jakarta_Region, titleAPJakarta},
    {"us-gov-east-1", US_East_GovCloud, titleUSGovCloudEast},
    {"fips-us-gov-east-1", US_East_GovCloud_FIPS, titleUSGovCloudEastFIPS},
    {"eu-south-2", EU_Spain_Region, titleEUSpain},
    {"me-central-1", Middle_East_UAE_Region, titleMEUAE},
    {"ap-southeast-4", Asia_Pacific_Melbourne_Region, titleAPMelbourne},
    {"ca-west-1", CA_Calgary_Region, titleCACalgary},
    {"il-central-1", Israel_Tel_Aviv_Region, titleILTelAviv},
    {{}, Unknown_Region, titleUnknownRegion},
};

// Osaka has two identical rows; the first one found is the one used.
constexpr AWSEndpoint kAWSEndpoints[] = {
    global<US_Standard_Region, "us-east-1", "us-east-1">(),
    regional<US_East_Virginia_Region, "us-east-1", "">(),
    regional<US_East_Ohio_Region, "us-east-2">(),
    regional<US_West_Oregon_Region, "us-west-2">(),
    regional<US_West_California_Region, "us-west-1">(),
    regional<CA_Central_Region, "ca-central-1">(),
    regional<EU_Ireland_Region, "eu-west-1">(),
    regional<EU_London_Region, "eu-west-2">(),
    regional<EU_Paris_Region, "eu-west-3">(),
    regional<EU_Frankfurt_Region, "eu-central-1">(),
    regional<EU_Zurich_Region, "eu-central-2">(),
    regional<Asia_Pacific_India_Region, "ap-south-1">(),
    regional<Asia_Pacific_Hyderabad_Region, "ap-south-2">(),
    regional<Asia_Pacific_Singapore_Region, "ap-southeast-1">(),
    regional<Asia_Pacific_Sydney_Region, "ap-southeast-2">(),
    regional<Asia_Pacific_Jakarta_Region, "ap-southeast-3">(),
    regional<Asia_Pacific_Tokyo_Region, "ap-northeast-1">(),
    regional<Asia_Pacific_Seoul_Region, "ap-northeast-2">(),
    regional<Asia_Pacific_Osaka_Region, "ap-northeast-3">(),
    regional<South_America_SaoPaulo_Region, "sa-east-1">(),
    china<China_Beijing_Region, "cn-north-1">(),
    china<China_Ningxia_Region, "cn-northwest-1">(),
    regional<US_East_GovCloud, "us-gov-east-1">(),
    fips<US_East_GovCloud_FIPS, "us-gov-east-1", false>(),
    regional<US_GovCloud, "us-gov-west-1">(),
    fips<US_GovCloud_FIPS, "us-gov-west-1", true>(),
    regional<Asia_Pacific_HongKong_Region, "ap-east-1">(),
    regional<EU_Milan_Region, "eu-south-1">(),
    regional<EU_Spain_Region, "eu-south-2">(),
    regional<EU_Stockholm_Region, "eu-north-1">(),
    regional<Middle_East_Bahrain_Region, "me-south-1">(),
    regional<Middle_East_UAE_Region, "me-central-1">(),
    regional<Africa_CapeTown_Region, "af-south-1">(),
    regional<Asia_Pacific_Osaka_Region, "ap-northeast-3">(),
    regional<Asia_Pacific_Melbourne_Region, "ap-southeast-4">(),
    regional<CA_Calgary_Region, "ca-west-1">(),
    regional<Israel_Tel_Aviv_Region, "il-central-1">(),
    endpoint(Test_Region, "localhost", "qel-internal-test", "qel-internal-test", kTestRegionPort),
    kEndRow,
};

// Every built-in region but Custom_Region has an endpoint row; Test_Region has no short code
// and neither it nor US East (N. Virginia) has an AWS name of its own.
static_assert(std::size(kAWSEndpoints) == Custom_Region + 2);
static_assert(std::size(kRegionCodes) == Custom_Region + 1);
static_assert(std::size(kAWSRegionCodes) == Custom_Region - 1);

// ---- walking the tables: each ends with its Unknown_Region row

template <class Row, class Match>
const Row& firstRow(std::span<const Row> rows, Match match) {
    for (const Row& row : rows)
        if (row.region == Unknown_Region || match(row)) return row;
    return rows.back();
}

const RegionName& codeRow(AWSRegion region) {
    return firstRow(regionCodeRows(), [&](const RegionName& r) { return r.region == region; });
}

const AWSEndpoint& endpointRow(AWSRegion region) {
    return firstRow(endpointRows(), [&](const AWSEndpoint& e) { return e.region == region; });
}

AWSRegion regionOfName(std::span<const RegionName> rows, std::string_view name) {
    return firstRow(rows, [&](const RegionName& r) { return r.text == name; }).region;
}

AWSRegion regionOfHost(std::string_view host) {
    return firstRow(endpointRows(), [&](const AWSEndpoint& e) { return std::string_view(e.htEndpoint.host) == host; })
        .region;
}

bool isCustomNumber(AWSRegion region) { return region >= First_Custom_Region; }

UTF8CStr withLength(UTF8CStr text, UTF8ByteLength* length) {
    if (length) *length = text ? std::strlen(text) : 0;
    return text;
}

UTF8CStr customName(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length) {
    const EndpointInstance* entry = customRegionEntry(ext, region);
    return withLength(entry ? entry->regionName->stg : nullptr, length);
}

// The title text of a built-in region: its catalogue message, else its short code.
std::string_view builtInTitle(AWSRegion region) {
    const RegionName& row = codeRow(region);
    const char* text = oxMessageText(row.title);
    return text ? std::string_view(text) : row.text;
}

// ---- the region list

// The regions a caller can name: every short code but the custom placeholder.
bool listed(const RegionName& row) { return row.region != Unknown_Region && row.region != Custom_Region; }

size_t builtInCount() { return std::ranges::count_if(regionCodeRows(), listed); }

void fillBuiltIns(OXS3RegionEntry* entries) {
    for (const RegionName& row : regionCodeRows()) {
        if (!listed(row)) continue;
        const AWSEndpoint& e = endpointRow(row.region);
        *entries++ = {row.region, row.text.data(), e.name, e.htEndpoint.host, OX_FALSE};
    }
}

// A custom entry's texts live in one pool block: the name, a 0, the host, a 0.
OXStatus fillCustom(OX_POOL_S* pool, const EndpointInstance* region, OXS3RegionEntry* entry) {
    std::string_view name(region->regionName->stg, region->regionName->len);
    std::string_view host(region->hostname->stg, region->hostname->len);
    auto* block = static_cast<char*>(pool->memAlloc(pool, name.size() + host.size() + 2, OX_POOL_ZERO_FILL));
    if (!block) return OX_NO_MEMORY;
    std::memcpy(block, name.data(), name.size());
    std::memcpy(block + name.size() + 1, host.data(), host.size());
    *entry = {region->region, block, block, block + name.size() + 1, OX_TRUE};
    return OX_OK;
}

void freeEntries(OX_POOL_S* pool, OXS3RegionEntry* entries, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        if (entries[i].custom) pool->memFree(pool, const_cast<char*>(entries[i].name));
    pool->memFree(pool, entries);
}

int64_t customCount(OXArray regions) {
    return std::count_if(regions->items, regions->items + regions->count,
                         [](const OXInstance* item) { return asCustomRegion(item) != nullptr; });
}

// Under the lock: the built-in rows, then a copy of every defined custom region.
OXStatus fillRegionList(OXS3Extension* ext, OXS3RegionList_S* list) {
    CustomRegionHold hold(ext);
    OXArray custom = ext->customRegionsById;
    const int64_t total = static_cast<int64_t>(builtInCount()) + customCount(custom);
    auto* entries = static_cast<OXS3RegionEntry*>(
        list->pool->memAlloc(list->pool, static_cast<OXMemSize>(total) * sizeof(OXS3RegionEntry), OX_POOL_ZERO_FILL));
    if (!entries) return OX_NO_MEMORY;
    fillBuiltIns(entries);
    int64_t filled = static_cast<int64_t>(builtInCount());
    for (int64_t i = 0; i < custom->count; ++i) {
        const EndpointInstance* region = asCustomRegion(custom->items[i]);
        if (!region) continue;
        if (OXStatus st = fillCustom(list->pool, region, &entries[filled]); st != OX_OK) {
            freeEntries(list->pool, entries, filled);
            return st;
        }
        ++filled;
    }
    list->entries = entries;
    list->count = filled;
    return OX_OK;
}

}  // namespace

std::span<const RegionName> regionCodeRows() { return kRegionCodes; }
std::span<const RegionName> awsRegionNameRows() { return kAWSRegionCodes; }
std::span<const AWSEndpoint> endpointRows() { return kAWSEndpoints; }

AWSRegion regionForText(OXS3Extension* ext, std::string_view name) {
    if (name.empty()) return Unknown_Region;
    if (AWSRegion r = regionOfName(regionCodeRows(), name); r != Unknown_Region) return r;
    if (AWSRegion r = regionOfName(awsRegionNameRows(), name); r != Unknown_Region) return r;
    if (AWSRegion r = regionOfHost(name); r != Unknown_Region) return r;
    return ext ? customRegionForName(ext, name) : Unknown_Region;
}

AWSRegion regionForName(OXS3Extension* ext, const OXString* name) {
    if (!ext || !name || !name->stg) return Unknown_Region;
    Owned<OXU8String> text;
    if (ext->oxstring->wideToU8(ext->oxstring, ext->pool, name->stg, name->len, text.out()) != OX_OK)
        return Unknown_Region;
    return regionForText(ext, std::string_view(text->stg, text->len));
}

AWSRegion regionForNameU8(OXS3Extension* ext, UTF8CStr name) {
    return name ? regionForText(ext, name) : Unknown_Region;
}

UTF8CStr nameForRegion(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length) {
    if (isCustomNumber(region)) return customName(ext, region, length);
    const RegionName& row = codeRow(region);
    return withLength(row.text.empty() ? nullptr : row.text.data(), length);
}

UTF8CStr fullNameForRegion(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length) {
    if (isCustomNumber(region)) return customName(ext, region, length);
    return withLength(endpointRow(region).name, length);
}

// The catalogue has one language, so the locale changes nothing.
OXStatus titleForRegion(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr, AWSRegion region, OXU8String** title) {
    if (!ext || !pool || !title) return OX_INVALID_ARGUMENT;
    if (isCustomNumber(region)) return copyCustomRegionName(ext, pool, region, title);
    std::string_view text = builtInTitle(region);
    if (text.empty()) return OXS3_UNKNOWN_REGION;
    return ext->oxstring->createU8(ext->oxstring, pool, text.data(), text.size(), OX_STR_COPY, title);
}

const AWSEndpoint* builtInEndpoint(AWSRegion region) {
    const AWSEndpoint& row = endpointRow(region);
    return row.region == Unknown_Region ? nullptr : &row;
}

OXStatus endpointForRegion(OXS3Extension* ext, AWSRegion region, const AWSEndpoint** endpoint) {
    if (!ext || !endpoint) return OX_INVALID_ARGUMENT;
    const AWSEndpoint* found = nullptr;
    if (isCustomNumber(region)) {
        const EndpointInstance* entry = customRegionEntry(ext, region);
        found = entry ? &entry->awsEndpoint : nullptr;
    } else if (region >= 0) {
        found = builtInEndpoint(region);
    }
    if (!found) return OXS3_UNKNOWN_REGION;
    *endpoint = found;
    return OX_OK;
}

bool isAWSRegionName(std::string_view name) {
    return std::ranges::any_of(awsRegionNameRows(), [&](const RegionName& row) {
        return row.region != Unknown_Region &&
               oxzsu8NormCompare(row.text.data(), row.text.size(), name.data(), name.size()) == 0;
    });
}

OXStatus oxs3GetRegions(OXS3Extension* ext, OX_POOL_S* pool, OXS3RegionList_S** regions) {
    if (!ext || !pool || !regions) return OX_INVALID_ARGUMENT;
    auto* list = static_cast<OXS3RegionList_S*>(pool->memAlloc(pool, sizeof(OXS3RegionList_S), OX_POOL_ZERO_FILL));
    if (!list) return OX_NO_MEMORY;
    list->pool = pool;
    if (OXStatus st = fillRegionList(ext, list); st != OX_OK) {
        pool->memFree(pool, list);
        return st;
    }
    *regions = list;
    return OX_OK;
}

OXStatus oxs3ReleaseRegions(OXS3Extension*, OXS3RegionList_S* regions) {
    if (!regions) return OX_INVALID_ARGUMENT;
    OX_POOL_S* pool = regions->pool;
    freeEntries(pool, regions->entries, regions->count);
    pool->memFree(pool, regions);
    return OX_OK;
}

}  // namespace s3
