// The built-in regions: the tables in their stored orders, host names and endpoint settings,
// lookups from names to numbers and back, titles from the catalogue, and the region list.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "conffixture.h"
#include "ox/msg.h"
#include "oxs3custom.h"
#include "oxs3regions.h"
#include "regionhost.h"

namespace {

using oxtest::textOf;

std::vector<AWSRegion> regionsOf(auto rows) {
    std::vector<AWSRegion> out;
    for (const auto& row : rows) out.push_back(row.region);
    return out;
}

// 14 through 36, which several tables store in number order.
std::vector<AWSRegion> withLaterRegions(std::vector<AWSRegion> first) {
    for (AWSRegion r = CA_Central_Region; r <= Israel_Tel_Aviv_Region; ++r) first.push_back(r);
    return first;
}

class RegionTables : public ::testing::Test {};

TEST_F(RegionTables, ShortCodesAreStoredWithOhioAfterVirginiaAndCustomLast) {
    auto expected = withLaterRegions({0, 1, 13, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    expected.push_back(Custom_Region);
    expected.push_back(Unknown_Region);
    EXPECT_EQ(regionsOf(s3::regionCodeRows()), expected);
}

TEST_F(RegionTables, AWSNamesLeaveOutVirginiaAndTheTestRegion) {
    auto expected = withLaterRegions({0, 13, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    expected.push_back(Unknown_Region);
    EXPECT_EQ(regionsOf(s3::awsRegionNameRows()), expected);
}

TEST_F(RegionTables, EndpointRowsAreStoredInTheirOwnOrderWithOsakaTwice) {
    const std::vector<AWSRegion> expected = {0,  1,  13, 2,  3,  14, 4,  19, 20, 5,  27, 15, 28,
                                             6,  7,  29, 8,  16, 26, 9,  17, 18, 30, 31, 10, 11,
                                             21, 22, 32, 23, 24, 33, 25, 26, 34, 35, 36, 12, Unknown_Region};
    EXPECT_EQ(regionsOf(s3::endpointRows()), expected);
    std::vector<const AWSEndpoint*> osaka;
    for (const AWSEndpoint& e : s3::endpointRows())
        if (e.region == Asia_Pacific_Osaka_Region) osaka.push_back(&e);
    ASSERT_EQ(osaka.size(), 2u);
    EXPECT_STREQ(osaka[0]->htEndpoint.host, osaka[1]->htEndpoint.host);
    EXPECT_STREQ(osaka[0]->name, osaka[1]->name);
}

TEST_F(RegionTables, EndRowsCarryTheUnknownRegionTitle) {
    EXPECT_EQ(s3::regionCodeRows().back().title, s3::titleUnknownRegion);
    EXPECT_EQ(s3::awsRegionNameRows().back().title, s3::titleUnknownRegion);
    EXPECT_EQ(static_cast<uint32_t>(s3::titleUnknownRegion), 0x8abfc865u);
    EXPECT_EQ(s3::endpointRows().back().htEndpoint.host, nullptr);
}

TEST_F(RegionTables, HostNamesFollowThePartitionRule) {
    for (const AWSEndpoint& e : s3::endpointRows()) {
        if (e.region == Unknown_Region || e.region == Test_Region) continue;
        const bool fips = e.region == US_GovCloud_FIPS || e.region == US_East_GovCloud_FIPS;
        const bool china = e.region == China_Beijing_Region || e.region == China_Ningxia_Region;
        std::string expected = fips ? "s3-fips." : "s3.";
        if (e.region != US_Standard_Region) expected += std::string(e.name) + ".";
        expected += china ? "amazonaws.com.cn" : "amazonaws.com";
        EXPECT_EQ(e.htEndpoint.host, expected) << "region " << e.region;
    }
}

TEST_F(RegionTables, WellKnownHostsAreSpelledOut) {
    EXPECT_STREQ(s3::builtInEndpoint(US_Standard_Region)->htEndpoint.host, "s3.amazonaws.com");
    EXPECT_STREQ(s3::builtInEndpoint(US_East_Virginia_Region)->htEndpoint.host, "s3.us-east-1.amazonaws.com");
    EXPECT_STREQ(s3::builtInEndpoint(US_GovCloud_FIPS)->htEndpoint.host, "s3-fips.us-gov-west-1.amazonaws.com");
    EXPECT_STREQ(s3::builtInEndpoint(China_Ningxia_Region)->htEndpoint.host, "s3.cn-northwest-1.amazonaws.com.cn");
}

TEST_F(RegionTables, OnlyTheWestFIPSRowRequiresTLSAndAllUseDefaultPorts) {
    for (const AWSEndpoint& e : s3::endpointRows()) {
        if (e.region == Unknown_Region) continue;
        EXPECT_EQ(e.htEndpoint.sslRequired, e.region == US_GovCloud_FIPS) << "region " << e.region;
        EXPECT_TRUE(e.htEndpoint.sslAllowed) << "region " << e.region;
        EXPECT_EQ(e.sslPort, 65535) << "region " << e.region;
        EXPECT_EQ(e.pathPrefix, nullptr) << "region " << e.region;
        EXPECT_EQ(e.htEndpoint.port, e.region == Test_Region ? 9194 : 65535) << "region " << e.region;
    }
}

TEST_F(RegionTables, TestRegionIsTheLocalHostOnPort9194) {
    const AWSEndpoint* e = s3::builtInEndpoint(Test_Region);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->htEndpoint.host, "localhost");
    EXPECT_EQ(e->htEndpoint.port, 9194);
    EXPECT_STREQ(e->name, "qel-internal-test");
}

TEST_F(RegionTables, LocationConstraintIsEmptyOnlyForVirginia) {
    EXPECT_STREQ(s3::builtInEndpoint(US_Standard_Region)->locationConstraint, "us-east-1");
    EXPECT_STREQ(s3::builtInEndpoint(US_East_Virginia_Region)->locationConstraint, "");
    EXPECT_STREQ(s3::builtInEndpoint(EU_Ireland_Region)->locationConstraint, "eu-west-1");
}

// ---- lookups through the extension record

class RegionLookup : public oxtest::RegionFixture {
protected:
    AWSRegion byName(const char* name) { return ext->regionForNameU8(ext, name); }
    AWSRegion byWideName(std::u32string_view name) {
        OXString* s = nullptr;
        EXPECT_EQ(ext->oxstring->create(ext->oxstring, pool, reinterpret_cast<const OXChar*>(name.data()),
                                        static_cast<OXStrSize>(name.size()), OX_STR_COPY, &s),
                  OX_OK);
        AWSRegion r = ext->regionForName(ext, s);
        oxtest::release(s);
        return r;
    }
    std::string name(AWSRegion r, UTF8CStr (*OXS3Extension::*slot)(OXS3Extension*, AWSRegion, UTF8ByteLength*)) {
        UTF8ByteLength len = 99;
        UTF8CStr text = (ext->*slot)(ext, r, &len);
        if (!text) return len == 0 ? "<none>" : "<bad length>";
        EXPECT_EQ(len, std::char_traits<char>::length(text));
        return text;
    }
    std::string shortName(AWSRegion r) { return name(r, &OXS3Extension::nameForRegion); }
    std::string fullName(AWSRegion r) { return name(r, &OXS3Extension::fullNameForRegion); }
    std::optional<std::string> title(AWSRegion r, OXStatus expected = OX_OK) {
        OXU8String* t = nullptr;
        EXPECT_EQ(ext->titleForRegion(ext, pool, nullptr, r, &t), expected);
        auto text = textOf(t);
        oxtest::release(t);
        return text;
    }
    AWSRegion addCustom(const char* name) {
        EXPECT_EQ(
            ext->addCustomRegion(ext, name, "store.example.test", 0, 0, nullptr, OX_FALSE, OX_FALSE, OX_TRUE, OX_FALSE),
            OX_OK);
        return byName(name);
    }
};

TEST_F(RegionLookup, ShortCodeComesBeforeAWSName) {
    EXPECT_EQ(byName("us-east-1"), US_Standard_Region);
    EXPECT_EQ(byName("useast"), US_East_Virginia_Region);
    EXPECT_EQ(byName("usstd"), US_Standard_Region);
    EXPECT_EQ(byName("useastoh"), US_East_Ohio_Region);
    EXPECT_EQ(byName("us-east-2"), US_East_Ohio_Region);
    EXPECT_EQ(byName("fips-us-gov-west-1"), US_GovCloud_FIPS);
    EXPECT_EQ(byName("custom"), Custom_Region);
}

TEST_F(RegionLookup, NamesAreCaseSensitive) {
    EXPECT_EQ(byName("US-EAST-1"), Unknown_Region);
    EXPECT_EQ(byName("UsStd"), Unknown_Region);
    EXPECT_EQ(byName("S3.AMAZONAWS.COM"), Unknown_Region);
}

TEST_F(RegionLookup, EndpointHostsNameTheirFirstRow) {
    EXPECT_EQ(byName("s3.amazonaws.com"), US_Standard_Region);
    EXPECT_EQ(byName("s3.us-east-1.amazonaws.com"), US_East_Virginia_Region);
    EXPECT_EQ(byName("s3-fips.us-gov-east-1.amazonaws.com"), US_East_GovCloud_FIPS);
    EXPECT_EQ(byName("s3.cn-north-1.amazonaws.com.cn"), China_Beijing_Region);
    EXPECT_EQ(byName("s3.ap-northeast-3.amazonaws.com"), Asia_Pacific_Osaka_Region);
    EXPECT_EQ(byName("localhost"), Test_Region);
}

TEST_F(RegionLookup, AbsentEmptyAndNearMissesAreUnknown) {
    EXPECT_EQ(ext->regionForNameU8(ext, nullptr), Unknown_Region);
    EXPECT_EQ(ext->regionForName(ext, nullptr), Unknown_Region);
    EXPECT_EQ(byName(""), Unknown_Region);
    EXPECT_EQ(byName("usstd "), Unknown_Region);
    EXPECT_EQ(byName("us-east"), Unknown_Region);
    EXPECT_EQ(byName("qel-internal-test"), Unknown_Region);
}

TEST_F(RegionLookup, WideNamesResolveAsTheirUTF8Forms) {
    EXPECT_EQ(byWideName(U"useast"), US_East_Virginia_Region);
    EXPECT_EQ(byWideName(U"eu-central-2"), EU_Zurich_Region);
    EXPECT_EQ(byWideName(U"US-EAST-1"), Unknown_Region);
    EXPECT_EQ(byWideName(U"z\u00fcrich"), Unknown_Region);
}

TEST_F(RegionLookup, EveryShortCodeNamesItsRegionBack) {
    for (const s3::RegionName& row : s3::regionCodeRows()) {
        if (row.region == Unknown_Region) continue;
        EXPECT_EQ(shortName(row.region), row.text);
        EXPECT_EQ(byName(shortName(row.region).c_str()), row.region);
    }
    EXPECT_EQ(shortName(Test_Region), "<none>");
    EXPECT_EQ(shortName(First_Custom_Region), "<none>");
}

TEST_F(RegionLookup, FullNameIsTheFirstEndpointRowsName) {
    EXPECT_EQ(fullName(US_Standard_Region), "us-east-1");
    EXPECT_EQ(fullName(US_East_Virginia_Region), "us-east-1");
    EXPECT_EQ(fullName(US_GovCloud_FIPS), "us-gov-west-1");
    EXPECT_EQ(fullName(China_Beijing_Region), "cn-north-1");
    EXPECT_EQ(fullName(Test_Region), "qel-internal-test");
    EXPECT_EQ(fullName(Custom_Region), "<none>");
    EXPECT_EQ(fullName(Unknown_Region), "<none>");
}

TEST_F(RegionLookup, CustomRegionsAnswerWithTheirOwnName) {
    const AWSRegion r = addCustom("mystore");
    EXPECT_EQ(r, First_Custom_Region);
    EXPECT_EQ(shortName(r), "mystore");
    EXPECT_EQ(fullName(r), "mystore");
    EXPECT_EQ(title(r), "mystore");
    EXPECT_EQ(byName("MyStore"), Unknown_Region);
}

TEST_F(RegionLookup, BuiltInNamesWinOverCustomNames) {
    ASSERT_EQ(ext->addCustomRegion(ext, "usstd", "h", 0, 0, nullptr, OX_FALSE, OX_FALSE, OX_TRUE, OX_FALSE), OX_OK);
    EXPECT_EQ(byName("usstd"), US_Standard_Region);
    EXPECT_EQ(shortName(First_Custom_Region), "usstd");
}

TEST_F(RegionLookup, TitlesComeFromTheCatalogue) {
    EXPECT_EQ(title(US_Standard_Region), "US Standard");
    EXPECT_EQ(title(US_East_Virginia_Region), "US East (N. Virginia)");
    EXPECT_EQ(title(South_America_SaoPaulo_Region), "South America (S\u00e3o Paulo)");
    EXPECT_EQ(title(Israel_Tel_Aviv_Region), "Israel (Tel Aviv)");
    EXPECT_EQ(title(Custom_Region), "Custom region");
}

TEST_F(RegionLookup, EveryCodeRowHasATitleText) {
    for (const s3::RegionName& row : s3::regionCodeRows())
        EXPECT_NE(oxMessageText(row.title), nullptr) << "region " << row.region;
}

TEST_F(RegionLookup, RegionsWithoutCodeRowGetTheUnknownTitle) {
    EXPECT_EQ(title(Test_Region), "Unknown region");
    EXPECT_EQ(title(Unknown_Region), "Unknown region");
}

TEST_F(RegionLookup, TitleFallsBackToTheShortCodeWithoutCatalogueText) {
    s3::unregisterMessages();
    EXPECT_EQ(title(EU_Ireland_Region), "euireland");
    EXPECT_EQ(title(Unknown_Region, OXS3_UNKNOWN_REGION), std::nullopt);
    ASSERT_EQ(s3::registerMessages(), OX_OK);
}

TEST_F(RegionLookup, UndefinedCustomRegionHasNoTitle) {
    EXPECT_EQ(title(First_Custom_Region + 3, OXS3_REGION_NOT_FOUND), std::nullopt);
}

TEST_F(RegionLookup, EndpointOfACustomRegionIsTheOneInsideIt) {
    const AWSRegion r = addCustom("mystore");
    const AWSEndpoint* e = nullptr;
    ASSERT_EQ(s3::endpointForRegion(ext, r, &e), OX_OK);
    EXPECT_STREQ(e->htEndpoint.host, "store.example.test");
    EXPECT_EQ(e->region, r);
    ASSERT_EQ(s3::endpointForRegion(ext, EU_Paris_Region, &e), OX_OK);
    EXPECT_STREQ(e->htEndpoint.host, "s3.eu-west-3.amazonaws.com");
}

TEST_F(RegionLookup, NumbersWithoutEndpointAreUnknownRegions) {
    const AWSEndpoint* e = nullptr;
    for (AWSRegion r :
         std::initializer_list<AWSRegion>{Custom_Region, Unknown_Region, No_Region, First_Custom_Region, 1000})
        EXPECT_EQ(s3::endpointForRegion(ext, r, &e), OXS3_UNKNOWN_REGION) << "region " << r;
    EXPECT_EQ(e, nullptr);
}

// ---- the region list

class RegionList : public RegionLookup {
protected:
    std::vector<std::string> names(const OXS3RegionList_S* list) {
        std::vector<std::string> out;
        for (int64_t i = 0; i < list->count; ++i) out.push_back(list->entries[i].name);
        return out;
    }
};

TEST_F(RegionList, ListsTheNamedBuiltInRegionsInCodeOrder) {
    OXS3RegionList_S* list = nullptr;
    ASSERT_EQ(ext->getRegions(ext, pool, &list), OX_OK);
    ASSERT_EQ(list->count, 36);
    EXPECT_EQ(list->entries[0].region, US_Standard_Region);
    EXPECT_STREQ(list->entries[0].fullName, "us-east-1");
    EXPECT_STREQ(list->entries[0].host, "s3.amazonaws.com");
    EXPECT_EQ(list->entries[2].region, US_East_Ohio_Region);
    for (int64_t i = 0; i < list->count; ++i) {
        EXPECT_FALSE(list->entries[i].custom);
        EXPECT_NE(list->entries[i].region, Test_Region);
        EXPECT_NE(list->entries[i].region, Custom_Region);
    }
    EXPECT_EQ(ext->freeRegions(ext, list), OX_OK);
}

TEST_F(RegionList, DefinedCustomRegionsFollowTheBuiltInOnes) {
    addCustom("one");
    addCustom("two");
    addCustom("three");
    ASSERT_EQ(ext->removeCustomRegion(ext, "two"), OX_OK);
    OXS3RegionList_S* list = nullptr;
    ASSERT_EQ(ext->getRegions(ext, pool, &list), OX_OK);
    ASSERT_EQ(list->count, 38);
    auto all = names(list);
    EXPECT_EQ(std::vector<std::string>(all.end() - 2, all.end()), (std::vector<std::string>{"one", "three"}));
    const OXS3RegionEntry& last = list->entries[37];
    EXPECT_TRUE(last.custom);
    EXPECT_EQ(last.region, First_Custom_Region + 2);
    EXPECT_STREQ(last.fullName, "three");
    EXPECT_STREQ(last.host, "store.example.test");
    EXPECT_EQ(ext->freeRegions(ext, list), OX_OK);
}

TEST_F(RegionList, RunningOutOfMemoryAtAnyStepGivesNoListAndLeaksNothing) {
    addCustom("one");
    addCustom("two");
    for (int64_t countdown = 0;; ++countdown) {
        oxPoolFailAfter(pool, countdown);
        OXS3RegionList_S* list = nullptr;
        const OXStatus st = ext->getRegions(ext, pool, &list);
        oxPoolFailAfter(pool, -1);
        if (st == OX_OK) {
            EXPECT_GT(countdown, 2);
            ext->freeRegions(ext, list);
            break;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(pool->blocksInUse(pool), 0u) << "after failing at allocation " << countdown;
    }
}

}  // namespace
