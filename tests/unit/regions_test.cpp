// The built-in regions: host names and endpoint settings, lookups from names to numbers and
// back, titles from the catalogue, endpoints, and the region list.
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

#include "conffixture.h"
#include "ox/msg.h"
#include "oxs3custom.h"
#include "oxs3regions.h"

namespace {

using oxtest::textOf;

// Every endpoint row against the rule for hosts ("s3." or "s3-fips.", the name and a dot except on
// the global endpoint, the partition's domain), TLS, ports and location constraints.
TEST(RegionTables, EndpointRowsFollowTheHostTLSAndConstraintRules) {
    for (const AWSEndpoint& e : s3::endpointRows()) {
        if (e.region == Unknown_Region) continue;
        SCOPED_TRACE(testing::Message() << "region " << e.region);
        const bool fips = e.region == US_GovCloud_FIPS || e.region == US_East_GovCloud_FIPS;
        const bool china = e.region == China_Beijing_Region || e.region == China_Ningxia_Region;
        std::string host = fips ? "s3-fips." : "s3.";
        if (e.region != US_Standard_Region) host += std::string(e.name) + ".";
        host += china ? "amazonaws.com.cn" : "amazonaws.com";
        EXPECT_EQ(e.htEndpoint.host, e.region == Test_Region ? "localhost" : host);
        EXPECT_EQ(e.htEndpoint.port, e.region == Test_Region ? 9194 : 65535);
        EXPECT_EQ(e.htEndpoint.sslRequired, e.region == US_GovCloud_FIPS);
        EXPECT_TRUE(e.htEndpoint.sslAllowed);
        EXPECT_EQ(e.sslPort, 65535);
        EXPECT_EQ(e.pathPrefix, nullptr);
        EXPECT_STREQ(e.locationConstraint, e.region == US_East_Virginia_Region ? "" : e.name);
    }
    EXPECT_STREQ(s3::builtInEndpoint(Test_Region)->name, "qel-internal-test");
}

class RegionLookup : public oxtest::ExtensionFixture {
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
    std::string name(AWSRegion r, bool full) {
        UTF8ByteLength len = 99;
        UTF8CStr text = full ? ext->fullNameForRegion(ext, r, &len) : ext->nameForRegion(ext, r, &len);
        if (!text) return len == 0 ? "<none>" : "<bad length>";
        EXPECT_EQ(len, std::char_traits<char>::length(text));
        return text;
    }
    std::string title(AWSRegion r) {
        OXU8String* t = nullptr;
        OXStatus st = ext->titleForRegion(ext, pool, nullptr, r, &t);
        std::string out = st == OX_OK ? textOf(t).value_or("<null>") : "failed " + std::to_string(st);
        oxtest::release(t);
        return out;
    }
    AWSRegion addCustom(const char* name) {
        EXPECT_EQ(
            ext->addCustomRegion(ext, name, "store.example.test", 0, 0, nullptr, OX_FALSE, OX_FALSE, OX_TRUE, OX_FALSE),
            OX_OK);
        return byName(name);
    }
};

// Short codes, then AWS names, then endpoint hosts (first row wins), byte for byte.
TEST_F(RegionLookup, NamesResolveInOrderAndCaseSensitively) {
    const std::pair<const char*, AWSRegion> cases[] = {
        {"us-east-1", US_Standard_Region},          {"useast", US_East_Virginia_Region},
        {"useastoh", US_East_Ohio_Region},          {"us-east-2", US_East_Ohio_Region},
        {"fips-us-gov-west-1", US_GovCloud_FIPS},   {"custom", Custom_Region},
        {"s3.amazonaws.com", US_Standard_Region},   {"s3.us-east-1.amazonaws.com", US_East_Virginia_Region},
        {"s3.cn-north-1.amazonaws.com.cn", China_Beijing_Region},
        {"s3-fips.us-gov-east-1.amazonaws.com", US_East_GovCloud_FIPS},
        {"localhost", Test_Region},                 {"qel-internal-test", Unknown_Region},
        {"US-EAST-1", Unknown_Region},              {"UsStd", Unknown_Region},
        {"S3.AMAZONAWS.COM", Unknown_Region},       {"usstd ", Unknown_Region},
        {"us-east", Unknown_Region},                {"", Unknown_Region},
        {nullptr, Unknown_Region},
    };
    for (const auto& [name, region] : cases) {
        EXPECT_EQ(byName(name), region) << (name ? name : "null");
        EXPECT_EQ(name ? byWideName(oxtest::wide(name)) : ext->regionForName(ext, nullptr), region) << "wide";
    }
    EXPECT_EQ(byWideName(U"z\u00fcrich"), Unknown_Region);
}

TEST_F(RegionLookup, ShortNamesFullNamesAndTitles) {
    for (const s3::RegionName& row : s3::regionCodeRows()) {
        if (row.region == Unknown_Region) continue;
        EXPECT_EQ(name(row.region, false), row.text);
        EXPECT_EQ(byName(name(row.region, false).c_str()), row.region);
        EXPECT_NE(oxMessageText(row.title), nullptr) << "no title text for region " << row.region;
    }
    const std::tuple<AWSRegion, const char*, const char*, std::string> cases[] = {
        {US_Standard_Region, "usstd", "us-east-1", "US Standard"},
        {US_East_Virginia_Region, "useast", "us-east-1", "US East (N. Virginia)"},
        {South_America_SaoPaulo_Region, "sa", "sa-east-1", "South America (S\u00e3o Paulo)"},
        {China_Beijing_Region, "cnbeijing", "cn-north-1", "China (Beijing)"},
        {Test_Region, "<none>", "qel-internal-test", "Unknown region"},
        {Custom_Region, "custom", "<none>", "Custom region"},
        {Unknown_Region, "<none>", "<none>", "Unknown region"},
        {First_Custom_Region, "<none>", "<none>", "failed " + std::to_string(OXS3_REGION_NOT_FOUND)},
    };
    for (const auto& [region, shortName, fullName, text] : cases) {
        EXPECT_EQ(name(region, false), shortName) << "region " << region;
        EXPECT_EQ(name(region, true), fullName) << "region " << region;
        EXPECT_EQ(title(region), text) << "region " << region;
    }
}

TEST_F(RegionLookup, CustomRegionsAnswerWithTheirOwnNameAndEndpointButBuiltInNamesWin) {
    const AWSRegion r = addCustom("mystore");
    EXPECT_EQ(r, First_Custom_Region);
    EXPECT_EQ(name(r, false), "mystore");
    EXPECT_EQ(name(r, true), "mystore");
    EXPECT_EQ(title(r), "mystore");
    EXPECT_EQ(byName("MyStore"), Unknown_Region);
    EXPECT_EQ(addCustom("usstd"), US_Standard_Region);
    EXPECT_EQ(name(First_Custom_Region + 1, false), "usstd");
    const AWSEndpoint* e = nullptr;
    ASSERT_EQ(s3::endpointForRegion(ext, r, &e), OX_OK);
    EXPECT_STREQ(e->htEndpoint.host, "store.example.test");
    EXPECT_EQ(e->region, r);
    ASSERT_EQ(s3::endpointForRegion(ext, EU_Paris_Region, &e), OX_OK);
    EXPECT_STREQ(e->htEndpoint.host, "s3.eu-west-3.amazonaws.com");
    e = nullptr;
    for (AWSRegion r : std::initializer_list<AWSRegion>{Custom_Region, Unknown_Region, No_Region, 40, 1000})
        EXPECT_EQ(s3::endpointForRegion(ext, r, &e), OXS3_UNKNOWN_REGION) << "region " << r;
    EXPECT_EQ(e, nullptr);
}

TEST_F(RegionLookup, TitlesFallBackToTheShortCodeWithoutTheCatalogue) {
    s3::unregisterMessages();
    EXPECT_EQ(title(EU_Ireland_Region), "euireland");
    EXPECT_EQ(title(Unknown_Region), "failed " + std::to_string(OXS3_UNKNOWN_REGION));
    ASSERT_EQ(s3::registerMessages(), OX_OK);
}

TEST_F(RegionLookup, ListHasTheNamedBuiltInRegionsInCodeOrderThenTheDefinedCustomOnes) {
    for (const char* name : {"one", "two", "three"}) addCustom(name);
    ASSERT_EQ(ext->removeCustomRegion(ext, "two"), OX_OK);
    OXS3RegionList_S* list = nullptr;
    ASSERT_EQ(ext->getRegions(ext, pool, &list), OX_OK);
    std::vector<AWSRegion> expected = {0, 1, 13, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    for (AWSRegion r = CA_Central_Region; r <= Israel_Tel_Aviv_Region; ++r) expected.push_back(r);
    expected.insert(expected.end(), {First_Custom_Region, First_Custom_Region + 2});
    std::vector<AWSRegion> regions;
    std::vector<std::string> entries;
    for (const OXS3RegionEntry& e : std::span(list->entries, list->count)) {
        regions.push_back(e.region);
        entries.push_back(std::string(e.name) + "|" + e.fullName + "|" + e.host + (e.custom ? "|custom" : ""));
    }
    EXPECT_EQ(regions, expected);
    EXPECT_EQ(entries[0], "usstd|us-east-1|s3.amazonaws.com");
    EXPECT_EQ(entries[35], "iltelaviv|il-central-1|s3.il-central-1.amazonaws.com");
    EXPECT_EQ(entries[36], "one|one|store.example.test|custom");
    EXPECT_EQ(entries[37], "three|three|store.example.test|custom");
    EXPECT_EQ(ext->freeRegions(ext, list), OX_OK);
}

TEST_F(RegionLookup, ListRunningOutOfMemoryAtAnyStepGivesNoListAndLeaksNothing) {
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
        ASSERT_EQ(pool->blocksInUse(pool), 0u) << "after failing at allocation " << countdown;
    }
}

}  // namespace
