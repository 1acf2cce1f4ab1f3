// Custom regions: defining, replacing and removing them, their text form, and keeping them
// between loads through the saved host option or the environment.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "conffixture.h"
#include "oxs3custom.h"
#include "oxs3regions.h"
#include "regionhost.h"

namespace s3 {

std::ostream& operator<<(std::ostream& os, const CustomRegionDefinition& d) {
    return os << "{" << d.name << "|" << d.host << "|" << d.port << "|" << d.sslPort << "|" << d.sslRequired << "|"
              << d.sslAllowed << "|" << d.pathPrefix << "}";
}

}  // namespace s3

namespace {

using oxtest::textOf;

constexpr const char* kSavedOption = "oxs3regions";

class CustomRegionTest : public oxtest::RegionFixture {
protected:
    OXStatus add(const char* name, const char* host = "store.example.test", uint16_t port = 0, uint16_t sslPort = 0,
                 const char* prefix = nullptr, bool allowed = false, bool required = false, bool noSSL = false,
                 bool replace = false) {
        return ext->addCustomRegion(ext, name, host, port, sslPort, prefix, allowed, required, noSSL, replace);
    }
    AWSRegion regionOf(const char* name) { return ext->regionForNameU8(ext, name); }
    const AWSEndpoint& endpointOf(const char* name) {
        const AWSEndpoint* e = nullptr;
        EXPECT_EQ(s3::endpointForRegion(ext, regionOf(name), &e), OX_OK) << name;
        static const AWSEndpoint none{};
        return e ? *e : none;
    }
    std::string text() {
        OXU8String* t = nullptr;
        EXPECT_EQ(s3::customRegionsText(ext, pool, &t), OX_OK);
        std::string out = textOf(t).value_or("<none>");
        oxtest::release(t);
        return out;
    }
    // The load of a new process: what the unload saved is forgotten, or replaced by saved.
    OXS3Extension* freshLoad(const char* environment, std::optional<std::string_view> saved = std::nullopt) {
        unload();
        regionHost.forgetOption(kSavedOption);
        if (saved) regionHost.setOption(kSavedOption, *saved);
        customRegionVariable.set(environment);
        ext = load();
        return ext;
    }
};

// ---- adding

TEST_F(CustomRegionTest, NewRegionTakesTheNextNumberAndCarriesItsEndpoint) {
    ASSERT_EQ(add("store", "s3.store.test", 8080, 8443, "/prefix"), OX_OK);
    ASSERT_EQ(add("other"), OX_OK);
    EXPECT_EQ(regionOf("store"), First_Custom_Region);
    EXPECT_EQ(regionOf("other"), First_Custom_Region + 1);
    const AWSEndpoint& e = endpointOf("store");
    EXPECT_STREQ(e.htEndpoint.host, "s3.store.test");
    EXPECT_EQ(e.htEndpoint.port, 8080);
    EXPECT_EQ(e.sslPort, 8443);
    EXPECT_STREQ(e.pathPrefix, "/prefix");
    EXPECT_STREQ(e.name, "store");
    EXPECT_STREQ(e.locationConstraint, "");
    EXPECT_EQ(e.region, First_Custom_Region);
    EXPECT_EQ(ext->customRegions->count, 2);
    EXPECT_EQ(ext->customRegionsById->count, 2);
}

TEST_F(CustomRegionTest, PortsOfZeroAreTheDefaultPort) {
    ASSERT_EQ(add("store"), OX_OK);
    EXPECT_EQ(endpointOf("store").htEndpoint.port, 65535);
    EXPECT_EQ(endpointOf("store").sslPort, 65535);
    EXPECT_EQ(endpointOf("store").pathPrefix, nullptr);
}

struct TLSCase {
    const char* name;
    bool allowed, required, noSSL;
    bool expectRequired, expectAllowed;
};

class TLSRule : public CustomRegionTest, public ::testing::WithParamInterface<TLSCase> {};

TEST_P(TLSRule, DecidesRequiredAndAllowed) {
    const TLSCase& c = GetParam();
    ASSERT_EQ(add("store", "h", 0, 0, nullptr, c.allowed, c.required, c.noSSL), OX_OK);
    EXPECT_EQ(endpointOf("store").htEndpoint.sslRequired, c.expectRequired);
    EXPECT_EQ(endpointOf("store").htEndpoint.sslAllowed, c.expectAllowed);
}

INSTANTIATE_TEST_SUITE_P(Flags, TLSRule,
                         ::testing::Values(TLSCase{"NoFlagRequiresTLS", false, false, false, true, true},
                                           TLSCase{"RequiredImpliesAllowed", false, true, false, true, true},
                                           TLSCase{"AllowedAloneIsOptional", true, false, false, false, true},
                                           TLSCase{"NoSSLTurnsItOff", true, true, true, false, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CustomRegionTest, ATakenNameIsRefusedWithoutReplace) {
    ASSERT_EQ(add("store"), OX_OK);
    const OXMemSize blocks = extensionBlocks();
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(add("store", "elsewhere"), OXS3_REGION_NAME_IN_USE);
    EXPECT_TRUE(log.contains("Custom region \"store\" is already defined."));
    EXPECT_STREQ(endpointOf("store").htEndpoint.host, "store.example.test");
    EXPECT_EQ(ext->customRegionsById->count, 1);
    EXPECT_EQ(extensionBlocks(), blocks);
}

TEST_F(CustomRegionTest, AWSRegionNamesAreRefusedIgnoringCaseEvenWithReplace) {
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(add("EU-West-1"), OXS3_REGION_NAME_IN_USE);
    EXPECT_EQ(add("us-east-1", "h", 0, 0, nullptr, false, false, false, true), OXS3_REGION_NAME_IN_USE);
    EXPECT_TRUE(log.contains("Custom region \"EU-West-1\" has the name of an AWS region."));
    EXPECT_EQ(ext->customRegionsById->count, 0);
}

TEST_F(CustomRegionTest, NamesAndHostsThatCouldNotBeSavedAreRefused) {
    for (auto [name, host] : std::initializer_list<std::pair<const char*, const char*>>{
             {"", "h"}, {"a", ""}, {"a:b", "h"}, {"a,b", "h"}, {"a", "h:9000"}, {"a", "h,i"}})
        EXPECT_EQ(add(name, host), OX_INVALID_ARGUMENT) << name << " " << host;
    EXPECT_EQ(add("a", "h", 0, 0, "/p:q"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->customRegionsById->count, 0);
}

TEST_F(CustomRegionTest, RefusesMissingArguments) {
    EXPECT_EQ(ext->addCustomRegion(ext, nullptr, "h", 0, 0, nullptr, 0, 0, 0, 0), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->addCustomRegion(ext, "a", nullptr, 0, 0, nullptr, 0, 0, 0, 0), OX_INVALID_ARGUMENT);
    EXPECT_EQ(ext->removeCustomRegion(ext, nullptr), OX_INVALID_ARGUMENT);
}

TEST_F(CustomRegionTest, RunningOutOfMemoryAtAnyStepChangesNothing) {
    ASSERT_EQ(add("first"), OX_OK);
    for (int64_t countdown = 0;; ++countdown) {
        const OXMemSize blocks = extensionBlocks();
        oxPoolFailAfter(ext->pool, countdown);
        const OXStatus st = add("first", "h2", 0, 0, "/p", false, false, false, true);
        oxPoolFailAfter(ext->pool, -1);
        if (st == OX_OK) break;
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(extensionBlocks(), blocks) << "after failing at allocation " << countdown;
        EXPECT_EQ(regionOf("first"), First_Custom_Region);
        EXPECT_EQ(ext->customRegionsById->count, 1);
    }
    EXPECT_STREQ(endpointOf("first").htEndpoint.host, "h2");
}

// ---- replacing and removing

TEST_F(CustomRegionTest, ReplacingGivesANewNumberAndEmptiesTheOldOne) {
    ASSERT_EQ(add("store"), OX_OK);
    ASSERT_EQ(add("other"), OX_OK);
    ASSERT_EQ(add("store", "new.example.test", 9000, 0, nullptr, false, false, true, true), OX_OK);
    EXPECT_EQ(regionOf("store"), First_Custom_Region + 2);
    EXPECT_STREQ(endpointOf("store").htEndpoint.host, "new.example.test");
    EXPECT_EQ(ext->nameForRegion(ext, First_Custom_Region, nullptr), nullptr);
    EXPECT_STREQ(ext->nameForRegion(ext, First_Custom_Region + 1, nullptr), "other");
    EXPECT_EQ(ext->customRegions->count, 2);
    EXPECT_EQ(ext->customRegionsById->count, 3);
}

TEST_F(CustomRegionTest, RemovingEmptiesTheSlotAndKeepsOtherNumbers) {
    ASSERT_EQ(add("store"), OX_OK);
    ASSERT_EQ(add("other"), OX_OK);
    ASSERT_EQ(ext->removeCustomRegion(ext, "store"), OX_OK);
    EXPECT_EQ(regionOf("store"), Unknown_Region);
    EXPECT_EQ(regionOf("other"), First_Custom_Region + 1);
    EXPECT_EQ(ext->nameForRegion(ext, First_Custom_Region, nullptr), nullptr);
    ASSERT_EQ(add("store"), OX_OK);
    EXPECT_EQ(regionOf("store"), First_Custom_Region + 2);
}

TEST_F(CustomRegionTest, RemovingAnUndefinedNameIsRefusedWithASentence) {
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(ext->removeCustomRegion(ext, "nothere"), OXS3_REGION_NOT_FOUND);
    EXPECT_TRUE(log.contains("Custom region \"nothere\" is not defined."));
    ASSERT_EQ(add("store"), OX_OK);
    ASSERT_EQ(ext->removeCustomRegion(ext, "store"), OX_OK);
    EXPECT_EQ(ext->removeCustomRegion(ext, "store"), OXS3_REGION_NOT_FOUND);
    EXPECT_EQ(ext->removeCustomRegion(ext, "STORE"), OXS3_REGION_NOT_FOUND);
}

// ---- the text form

struct DefinitionCase {
    const char* name;
    const char* text;
    s3::CustomRegionDefinition expected;
};

class DefinitionText : public ::testing::TestWithParam<DefinitionCase> {};

TEST_P(DefinitionText, ParsesIntoItsFields) {
    s3::CustomRegionDefinition d;
    ASSERT_EQ(s3::parseCustomRegionDefinition(GetParam().text, &d), OX_OK);
    EXPECT_EQ(d, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DefinitionText,
    ::testing::Values(
        DefinitionCase{
            "QuotedFieldsAndDefaultPorts", "'x','h',0,0,TRUE,FALSE", {"x", "h", 65535, 65535, true, true, ""}},
        DefinitionCase{
            "PortsAndPrefix", "a,h.test,8080,8443,FALSE,TRUE,/base", {"a", "h.test", 8080, 8443, false, true, "/base"}},
        DefinitionCase{"OneQuoteFromEachEndOnly", "\"\"a\"\",'h\",1,2,TRUE,TRUE", {"\"a\"", "h", 1, 2, true, true, ""}},
        DefinitionCase{"QuotesEachEndIndependently", "\"a,h',1,2,TRUE,TRUE", {"a", "h", 1, 2, true, true, ""}},
        DefinitionCase{"BlanksAroundFields", " a , h , 1 , 2 , TRUE , FALSE ", {"a", "h", 1, 2, true, true, ""}},
        DefinitionCase{"OnlyUpperCaseTRUEIsTrue", "a,h,1,2,true,True", {"a", "h", 1, 2, false, false, ""}},
        DefinitionCase{"EmptyPortsAreDefault", "a,h,,,FALSE,TRUE", {"a", "h", 65535, 65535, false, true, ""}},
        DefinitionCase{
            "FieldsAfterThePrefixAreIgnored", "a,h,1,2,TRUE,TRUE,/p,extra", {"a", "h", 1, 2, true, true, "/p"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DefinitionTextFaults, FewerThanSixFieldsIsInvalid) {
    s3::CustomRegionDefinition d;
    d.name = "untouched";
    const char32_t* problem = nullptr;
    for (const char* text : {"", "a", "a,h,0,0,TRUE", ",,,,"}) {
        EXPECT_EQ(s3::parseCustomRegionDefinition(text, &d, &problem), OX_INVALID_ARGUMENT) << text;
        EXPECT_EQ(d.name, "untouched");
    }
    ASSERT_NE(problem, nullptr);
    EXPECT_TRUE(std::u32string_view(problem).find(U"fewer than six fields") != std::u32string_view::npos);
}

TEST(DefinitionTextFaults, PortsMustBeNumbersUpTo65535) {
    s3::CustomRegionDefinition d;
    for (const char* text : {"a,h,80a,0,TRUE,TRUE", "a,h,0,65536,TRUE,TRUE", "a,h,-1,0,TRUE,TRUE",
                             "a,h,0x50,0,TRUE,TRUE", "a,h,8 0,0,TRUE,TRUE"})
        EXPECT_EQ(s3::parseCustomRegionDefinition(text, &d), OX_INVALID_ARGUMENT) << text;
    EXPECT_EQ(s3::parseCustomRegionDefinition("a,h,65535,1,TRUE,TRUE", &d), OX_OK);
}

TEST_F(CustomRegionTest, SavedFormQuotesNamesAndWritesDefaultPortsAsZero) {
    ASSERT_EQ(add("store", "s3.store.test", 8080, 0, "/prefix", true), OX_OK);
    ASSERT_EQ(add("secure"), OX_OK);
    ASSERT_EQ(add("plain", "localhost", 9000, 0, nullptr, false, false, true), OX_OK);
    EXPECT_EQ(text(),
              "\"store\",\"s3.store.test\",8080,0,FALSE,TRUE:"
              "\"secure\",\"store.example.test\",0,0,TRUE,TRUE:"
              "\"plain\",\"localhost\",9000,0,FALSE,FALSE");
}

TEST_F(CustomRegionTest, SavedFormLeavesOutRemovedAndReplacedRegions) {
    ASSERT_EQ(add("a"), OX_OK);
    ASSERT_EQ(add("b"), OX_OK);
    ASSERT_EQ(add("c"), OX_OK);
    ASSERT_EQ(ext->removeCustomRegion(ext, "a"), OX_OK);
    ASSERT_EQ(add("b", "h2", 0, 0, nullptr, false, false, true, true), OX_OK);
    EXPECT_EQ(text(), "\"c\",\"store.example.test\",0,0,TRUE,TRUE:\"b\",\"h2\",0,0,FALSE,FALSE");
}

// ---- between loads

TEST_F(CustomRegionTest, RegionsAreSavedAtDestroyAndLoadedAtTheNextLoad) {
    ASSERT_EQ(add("gone"), OX_OK);
    ASSERT_EQ(add("store", "s3.store.test", 8080, 8443, "/prefix", true), OX_OK);
    ASSERT_EQ(ext->removeCustomRegion(ext, "gone"), OX_OK);
    ASSERT_NE(reload(), nullptr);
    EXPECT_EQ(regionHost.option(kSavedOption), "\"store\",\"s3.store.test\",8080,8443,FALSE,TRUE");
    EXPECT_EQ(regionOf("store"), First_Custom_Region);
    EXPECT_EQ(regionOf("gone"), Unknown_Region);
    const AWSEndpoint& e = endpointOf("store");
    EXPECT_EQ(e.htEndpoint.port, 8080);
    EXPECT_EQ(e.sslPort, 8443);
    EXPECT_FALSE(e.htEndpoint.sslRequired);
    EXPECT_TRUE(e.htEndpoint.sslAllowed);
    EXPECT_EQ(e.pathPrefix, nullptr) << "the path prefix is not part of the saved form";
}

TEST_F(CustomRegionTest, EnvironmentDefinesRegionsWhileNothingIsSaved) {
    ASSERT_NE(freshLoad("local,localhost,8000,0,FALSE,FALSE:'x','h',0,0,TRUE,FALSE,/pre"), nullptr);
    EXPECT_EQ(regionOf("local"), First_Custom_Region);
    EXPECT_EQ(regionOf("x"), First_Custom_Region + 1);
    EXPECT_EQ(endpointOf("local").htEndpoint.port, 8000);
    EXPECT_FALSE(endpointOf("local").htEndpoint.sslAllowed);
    EXPECT_TRUE(endpointOf("x").htEndpoint.sslRequired);
    EXPECT_TRUE(endpointOf("x").htEndpoint.sslAllowed);
    EXPECT_STREQ(endpointOf("x").pathPrefix, "/pre");
}

TEST_F(CustomRegionTest, SavedRegionsWinOverTheEnvironment) {
    ASSERT_NE(freshLoad("fromenv,h,0,0,TRUE,TRUE", "saved,h,1,2,FALSE,TRUE"), nullptr);
    EXPECT_EQ(regionOf("saved"), First_Custom_Region);
    EXPECT_EQ(regionOf("fromenv"), Unknown_Region);
}

TEST_F(CustomRegionTest, AnEmptySavedTextMeansNoRegions) {
    ASSERT_NE(freshLoad("fromenv,h,0,0,TRUE,TRUE", ""), nullptr);
    EXPECT_EQ(ext->customRegionsById->count, 0);
}

TEST_F(CustomRegionTest, EmptyDefinitionsBetweenSeparatorsAreSkipped) {
    ASSERT_NE(freshLoad(":a,h,0,0,TRUE,TRUE::b,h,0,0,TRUE,TRUE: "), nullptr);
    EXPECT_EQ(regionOf("a"), First_Custom_Region);
    EXPECT_EQ(regionOf("b"), First_Custom_Region + 1);
}

TEST_F(CustomRegionTest, EnvironmentOfExactlyTheLimitIsTaken) {
    const std::string definition = "a,h,0,0,TRUE,TRUE,/";
    const std::string text = definition + std::string(1024 - definition.size(), 'p');
    ASSERT_NE(freshLoad(text.c_str()), nullptr);
    EXPECT_EQ(std::string(endpointOf("a").pathPrefix).size(), 1024 - definition.size() + 1);
}

struct BadLoad {
    const char* name;
    std::string environment;
    const char* sentence;
};

class BadEnvironment : public CustomRegionTest, public ::testing::WithParamInterface<BadLoad> {};

TEST_P(BadEnvironment, FailsTheLoadWithASentenceAndSavesNothing) {
    unload();
    regionHost.forgetOption(kSavedOption);
    customRegionVariable.set(GetParam().environment.c_str());
    Logger_S* logger = oxtest::host()->log4qel->GetLogger(reinterpret_cast<const OXChar*>(U"App.ox.s3"), 9);
    oxtest::LogCapture log(logger);
    EXPECT_EQ(load(), nullptr);
    EXPECT_EQ(jnl.count, 0u);
    EXPECT_TRUE(log.mentions(GetParam().sentence)) << GetParam().sentence;
    EXPECT_EQ(regionHost.option(kSavedOption), std::nullopt);
    // Put right, the environment is read again.
    customRegionVariable.set("good,h,0,0,TRUE,TRUE");
    ext = load();
    ASSERT_NE(ext, nullptr);
    EXPECT_EQ(regionOf("good"), First_Custom_Region);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, BadEnvironment,
    ::testing::Values(BadLoad{"FewerThanSixFields", "a,h,0,0,TRUE,TRUE:b,h,0,0,TRUE",
                              "Custom region definition 2: it has fewer than six"},
                      BadLoad{"BadPort", "a,h,http,0,TRUE,TRUE", "Custom region definition 1: a port is not a number"},
                      BadLoad{"DuplicateName", "a,h,0,0,TRUE,TRUE:a,i,0,0,TRUE,TRUE",
                              "Custom region \"a\" is already defined."},
                      BadLoad{"AWSRegionName", "us-west-2,h,0,0,TRUE,TRUE", "has the name of an AWS region"},
                      BadLoad{"TooLong", "a,h,0,0,TRUE,TRUE,/" + std::string(1006, 'p'), "at most 1024 are taken"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CustomRegionTest, BadSavedTextFailsTheLoadToo) {
    unload();
    regionHost.setOption(kSavedOption, "\"a\",\"h\",0,0");
    EXPECT_EQ(load(), nullptr);
    EXPECT_EQ(regionHost.option(kSavedOption), "\"a\",\"h\",0,0") << "a failed load rewrote the saved text";
}

}  // namespace
