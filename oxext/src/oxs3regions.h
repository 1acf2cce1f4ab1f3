// The built-in regions (short codes, AWS region names, endpoints) and the lookups between
// region names and numbers, which also reach the custom regions.
#pragma once

#include <span>
#include <string_view>

#include "oxs3.h"

namespace s3 {

// Catalogue numbers of the region titles; their texts are in the extension's message table.
enum RegionTitle : OXStatus {
    titleUSStandard = OXS3_S(0x8abfc859),
    titleUSEastVirginia = OXS3_S(0x8abfc85a),
    titleUSWestOregon = OXS3_S(0x8abfc85b),
    titleUSWestCalifornia = OXS3_S(0x8abfc85c),
    titleEUIreland = OXS3_S(0x8abfc85d),
    titleEUFrankfurt = OXS3_S(0x8abfc85e),
    titleAPSingapore = OXS3_S(0x8abfc85f),
    titleAPSydney = OXS3_S(0x8abfc860),
    titleAPTokyo = OXS3_S(0x8abfc861),
    titleSASaoPaulo = OXS3_S(0x8abfc862),
    titleUSGovCloud = OXS3_S(0x8abfc863),
    titleUSGovCloudFIPS = OXS3_S(0x8abfc864),
    titleUnknownRegion = OXS3_S(0x8abfc865),
    titleCACentral = OXS3_S(0x8abfc885),
    titleAPIndia = OXS3_S(0x8abfc886),
    titleAPSeoul = OXS3_S(0x8abfc887),
    titleCNBeijing = OXS3_S(0x8abfc888),
    titleCNNingxia = OXS3_S(0x8abfc889),
    titleEULondon = OXS3_S(0x8abfc88a),
    titleEUParis = OXS3_S(0x8abfc88b),
    titleUSEastOhio = OXS3_S(0x8abfc88c),
    titleCustomRegion = OXS3_S(0x8abfc897),
    titleAPHongKong = OXS3_S(0x8abfc8a3),
    titleEUMilan = OXS3_S(0x8abfc8a4),
    titleEUStockholm = OXS3_S(0x8abfc8a5),
    titleMEBahrain = OXS3_S(0x8abfc8a6),
    titleAFCapeTown = OXS3_S(0x8abfc8a7),
    titleAPOsaka = OXS3_S(0x8abfc8a8),
    titleEUZurich = OXS3_S(0x8abfc8a9),
    titleEUSpain = OXS3_S(0x8abfc8aa),
    titleMEUAE = OXS3_S(0x8abfc8ab),
    titleAPHyderabad = OXS3_S(0x8abfc8ac),
    titleAPJakarta = OXS3_S(0x8abfc8ad),
    titleUSGovCloudEast = OXS3_S(0x8abfc8ae),
    titleUSGovCloudEastFIPS = OXS3_S(0x8abfc8af),
    titleAPMelbourne = OXS3_S(0x8abfc8b0),
    titleCACalgary = OXS3_S(0x8abfc8b1),
    titleILTelAviv = OXS3_S(0x8abfc8b2),
};

// A row of the short-code or the AWS-name table.
struct RegionName {
    std::string_view text;
    AWSRegion region;
    OXStatus title;
};

// The tables in their stored order, each with its closing Unknown_Region row.
std::span<const RegionName> regionCodeRows();
std::span<const RegionName> awsRegionNameRows();
std::span<const AWSEndpoint> endpointRows();

// Unknown_Region for an absent or unknown name. Names compare byte for byte: short codes,
// then AWS region names, then endpoint hosts, then custom region names.
AWSRegion regionForText(OXS3Extension* ext, std::string_view name);
AWSRegion regionForName(OXS3Extension* ext, const OXString* name);
AWSRegion regionForNameU8(OXS3Extension* ext, UTF8CStr name);

// The short code (custom regions: their name); null with length 0 when the region has none.
UTF8CStr nameForRegion(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length);
// The AWS region name of the region's first endpoint row (custom regions: their name).
UTF8CStr fullNameForRegion(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length);
// The display title from the message catalogue, a copy of a custom region's name.
OXStatus titleForRegion(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr locale, AWSRegion region, OXU8String** title);

// The first built-in endpoint row of a region, or null.
const AWSEndpoint* builtInEndpoint(AWSRegion region);
// The endpoint a connection to a region uses: a built-in row, or the endpoint inside a custom
// region (valid while that region stays defined). OXS3_UNKNOWN_REGION when there is none.
OXStatus endpointForRegion(OXS3Extension* ext, AWSRegion region, const AWSEndpoint** endpoint);

// Whether a name equals an AWS region name, ignoring case.
bool isAWSRegionName(std::string_view name);

OXStatus oxs3GetRegions(OXS3Extension* ext, OX_POOL_S* pool, OXS3RegionList_S** regions);
OXStatus oxs3ReleaseRegions(OXS3Extension* ext, OXS3RegionList_S* regions);

}  // namespace s3
