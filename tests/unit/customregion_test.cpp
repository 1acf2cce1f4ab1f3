// Custom regions: defining, replacing and removing them, their text form, and keeping them
// between loads through the saved host option or the environment.
#include <gtest/gtest.h>

#include <string>

#include "conffixture.h"
#include "oxs3custom.h"
#include "oxs3regions.h"

namespace {

const std::u32string kSavedOption = U"oxs3regions";

class CustomRegionTest : public oxtest::ExtensionFixture {
protected:
    OXStatus add(const char* name, const char* host = "store.example.test", uint16_t port = 0, uint16_t sslPort = 0,
                 const char* prefix = nullptr, bool allowed = false, bool required = false, bool noSSL = false,
                 bool replace = false) {
        return ext->addCustomRegion(ext, name, host, port, sslPort, prefix, allowed, required, noSSL, replace);
    }
    AWSRegion regionOf(const char* name) { return ext->regionForNameU8(ext, name); }
    // host|port|TLS port|TLS rule|path prefix of a region's endpoint.
    std::string endpointOf(const char* name) {
        const AWSEndpoint* e = nullptr;
        if (s3::endpointForRegion(ext, regionOf(name), &e) != OX_OK) return "no endpoint";
        const char* tls = e->htEndpoint.sslRequired ? (e->htEndpoint.sslAllowed ? "tls" : "tls?!")
                                                    : (e->htEndpoint.sslAllowed ? "tls optional" : "no tls");
        return std::string(e->htEndpoint.host) + "|" + std::to_string(e->htEndpoint.port) + "|" +
               std::to_string(e->sslPort) + "|" + tls + "|" + (e->pathPrefix ? e->pathPrefix : "-");
    }
    std::string saved() {
        auto it = privateHost.names.find(kSavedOption);
        return it == privateHost.names.end() ? "<none>" : std::string(it->second.begin(), it->second.end());
    }
    // The load of a new process: the saved text is the given one or none.
    OXS3Extension* freshLoad(const char* environment, const char* savedText = nullptr) {
        unload();
        privateHost.names.erase(kSavedOption);
        if (savedText) privateHost.names[kSavedOption] = oxtest::wide(savedText);
        env.set("OXS3_CUSTOM_REGION", environment);
        return ext = load();
    }
};

TEST_F(CustomRegionTest, NewRegionTakesTheNextNumberAndCarriesItsEndpointAndTLSRule) {
    ASSERT_EQ(add("store", "s3.store.test", 8080, 8443, "/prefix"), OX_OK);
    ASSERT_EQ(add("other"), OX_OK);
    EXPECT_EQ(regionOf("store"), First_Custom_Region);
    EXPECT_EQ(regionOf("other"), First_Custom_Region + 1);
    EXPECT_EQ(endpointOf("store"), "s3.store.test|8080|8443|tls|/prefix");
    EXPECT_EQ(endpointOf("other"), "store.example.test|65535|65535|tls|-");  // ports of 0 are the default port
    const AWSEndpoint* e = nullptr;
    ASSERT_EQ(s3::endpointForRegion(ext, First_Custom_Region, &e), OX_OK);
    EXPECT_STREQ(e->name, "store");
    EXPECT_STREQ(e->locationConstraint, "");
    EXPECT_EQ(e->region, First_Custom_Region);
    const std::tuple<bool, bool, bool, const char*> flags[] = {  // TLS allowed, required, none: the rule
        {false, false, false, "tls"}, {false, true, false, "tls"}, {true, false, false, "tls optional"},
        {true, true, true, "no tls"}};
    for (const auto& [allowed, required, noSSL, tls] : flags) {
        ASSERT_EQ(add("t", "h", 0, 0, nullptr, allowed, required, noSSL, true), OX_OK);
        EXPECT_EQ(endpointOf("t"), std::string("h|65535|65535|") + tls + "|-");
    }
}

// A taken name without replace, any AWS region name ignoring case, and what the saved form
// could not hold: nothing changes.
TEST_F(CustomRegionTest, RefusedDefinitionsChangeNothing) {
    ASSERT_EQ(add("store"), OX_OK);
    const OXMemSize blocks = extensionBlocks();
    const std::tuple<const char*, const char*, const char*, OXStatus> cases[] = {  // name, host, prefix
        {"store", "elsewhere", nullptr, OXS3_REGION_NAME_IN_USE}, {"EU-West-1", "h", nullptr, OXS3_REGION_NAME_IN_USE},
        {"", "h", nullptr, OX_INVALID_ARGUMENT},      {"a", "", nullptr, OX_INVALID_ARGUMENT},
        {"a:b", "h", nullptr, OX_INVALID_ARGUMENT},   {"a,b", "h", nullptr, OX_INVALID_ARGUMENT},
        {"a", "h:9000", nullptr, OX_INVALID_ARGUMENT}, {"a", "h,i", nullptr, OX_INVALID_ARGUMENT},
        {"a", "h", "/p:q", OX_INVALID_ARGUMENT},      {nullptr, "h", nullptr, OX_INVALID_ARGUMENT},
        {"a", nullptr, nullptr, OX_INVALID_ARGUMENT},
    };
    for (const auto& [name, host, prefix, status] : cases)
        EXPECT_EQ(add(name, host, 0, 0, prefix), status) << (name ? name : "null") << " " << (host ? host : "null");
    EXPECT_EQ(add("us-east-1", "h", 0, 0, nullptr, false, false, false, true), OXS3_REGION_NAME_IN_USE) << "replacing";
    EXPECT_EQ(endpointOf("store"), "store.example.test|65535|65535|tls|-");
    EXPECT_EQ(ext->customRegionsById->count, 1);
    EXPECT_EQ(extensionBlocks(), blocks);
}

// Adding a new name and replacing one, each allocation failing in turn.
TEST_F(CustomRegionTest, RunningOutOfMemoryAtAnyStepChangesNothing) {
    ASSERT_EQ(add("first"), OX_OK);
    for (const char* name : {"second", "first"}) {
        for (int64_t countdown = 0;; ++countdown) {
            const OXMemSize blocks = extensionBlocks();
            oxPoolFailAfter(ext->pool, countdown);
            const OXStatus st = add(name, "h2", 0, 0, "/p", false, false, false, true);
            oxPoolFailAfter(ext->pool, -1);
            if (st == OX_OK) break;
            ASSERT_EQ(st, OX_NO_MEMORY);
            ASSERT_EQ(extensionBlocks(), blocks) << name << " after failing at allocation " << countdown;
            EXPECT_EQ(regionOf("first"), First_Custom_Region);
            EXPECT_EQ(ext->customRegionsById->count, name[0] == 's' ? 1 : 2);
        }
        EXPECT_EQ(endpointOf(name), "h2|65535|65535|tls|/p");
    }
}

// Replacing or removing a region empties its slot and keeps the other numbers; removing needs the
// exact name of a defined region.
TEST_F(CustomRegionTest, ReplacingAndRemovingEmptyTheSlotAndKeepOtherNumbers) {
    for (const char* name : {"store", "other", "third"}) ASSERT_EQ(add(name), OX_OK);
    ASSERT_EQ(add("store", "new.example.test", 9000, 0, nullptr, false, false, true, true), OX_OK);
    EXPECT_EQ(regionOf("store"), First_Custom_Region + 3);
    EXPECT_EQ(endpointOf("store"), "new.example.test|9000|65535|no tls|-");
    EXPECT_EQ(ext->removeCustomRegion(ext, "OTHER"), OXS3_REGION_NOT_FOUND);
    ASSERT_EQ(ext->removeCustomRegion(ext, "other"), OX_OK);
    EXPECT_EQ(regionOf("other"), Unknown_Region);
    for (AWSRegion emptied : {First_Custom_Region + 0, First_Custom_Region + 1})
        EXPECT_EQ(ext->nameForRegion(ext, emptied, nullptr), nullptr);
    EXPECT_STREQ(ext->nameForRegion(ext, First_Custom_Region + 2, nullptr), "third");
    EXPECT_EQ(ext->customRegions->count, 2);
    EXPECT_EQ(ext->customRegionsById->count, 4);
    oxtest::LogCapture log(ext->logger);
    EXPECT_EQ(ext->removeCustomRegion(ext, "other"), OXS3_REGION_NOT_FOUND);
    EXPECT_TRUE(log.contains("Custom region \"other\" is not defined."));
    EXPECT_EQ(ext->removeCustomRegion(ext, nullptr), OX_INVALID_ARGUMENT);
    ASSERT_EQ(add("other"), OX_OK);
    EXPECT_EQ(regionOf("other"), First_Custom_Region + 4);
}

// Name|host|port|TLS port|TLS required|TLS allowed|prefix, or "invalid" with the reason.
std::string parsed(const char* text) {
    s3::CustomRegionDefinition d;
    d.name = "untouched";
    const char32_t* problem = nullptr;
    if (s3::parseCustomRegionDefinition(text, &d, &problem) != OX_OK)
        return std::string("invalid") + (problem ? "" : ", no reason") + (d.name == "untouched" ? "" : ", written");
    return std::string(d.name) + "|" + std::string(d.host) + "|" + std::to_string(d.port) + "|" +
           std::to_string(d.sslPort) + "|" + (d.sslRequired ? "1" : "0") + "|" + (d.sslAllowed ? "1" : "0") + "|" +
           std::string(d.pathPrefix);
}

// Each field loses surrounding blanks and one quote at each end; only TRUE is true; TLS allowed
// follows TLS required; a port of 0 or none is the default; six fields at least, ports up to 65535.
TEST(CustomRegionText, DefinitionsParseIntoTheirFields) {
    const std::pair<const char*, const char*> cases[] = {
        {"'x','h',0,0,TRUE,FALSE", "x|h|65535|65535|1|1|"},
        {"a,h.test,8080,8443,FALSE,TRUE,/base", "a|h.test|8080|8443|0|1|/base"},
        {"\"\"a\"\",'h\",1,2,TRUE,TRUE", "\"a\"|h|1|2|1|1|"},
        {"\"a,h',1,2,TRUE,TRUE", "a|h|1|2|1|1|"},
        {" a , h , 1 , 2 , TRUE , FALSE ", "a|h|1|2|1|1|"},
        {"a,h,1,2,true,True", "a|h|1|2|0|0|"},
        {"a,h,,,FALSE,TRUE", "a|h|65535|65535|0|1|"},
        {"a,h,65535,1,TRUE,TRUE,/p,extra", "a|h|65535|1|1|1|/p"},
        {"", "invalid"}, {"a", "invalid"}, {"a,h,0,0,TRUE", "invalid"}, {",,,,", "invalid"},
        {"a,h,80a,0,TRUE,TRUE", "invalid"}, {"a,h,0,65536,TRUE,TRUE", "invalid"}, {"a,h,-1,0,TRUE,TRUE", "invalid"},
        {"a,h,0x50,0,TRUE,TRUE", "invalid"}, {"a,h,8 0,0,TRUE,TRUE", "invalid"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(parsed(text), expected) << text;
}

// Saved at destroy: names and hosts quoted, default ports as 0, no path prefix, removed and
// replaced regions left out; the next load numbers them afresh in saved order.
TEST_F(CustomRegionTest, RegionsAreSavedAtDestroyAndLoadedAtTheNextLoad) {
    for (const char* name : {"gone", "plain"}) ASSERT_EQ(add(name), OX_OK);
    ASSERT_EQ(add("store", "s3.store.test", 8080, 0, "/prefix", true), OX_OK);
    ASSERT_EQ(add("secure"), OX_OK);
    ASSERT_EQ(ext->removeCustomRegion(ext, "gone"), OX_OK);
    ASSERT_EQ(add("plain", "localhost", 9000, 8443, nullptr, false, false, true, true), OX_OK);
    unload();
    ASSERT_NE(ext = load(), nullptr);
    EXPECT_EQ(saved(), "\"store\",\"s3.store.test\",8080,0,FALSE,TRUE:\"secure\",\"store.example.test\",0,0,TRUE,TRUE:"
                       "\"plain\",\"localhost\",9000,8443,FALSE,FALSE");
    EXPECT_EQ(regionOf("store"), First_Custom_Region);
    EXPECT_EQ(regionOf("plain"), First_Custom_Region + 2);
    EXPECT_EQ(regionOf("gone"), Unknown_Region);
    EXPECT_EQ(endpointOf("store"), "s3.store.test|8080|65535|tls optional|-");
    EXPECT_EQ(endpointOf("plain"), "localhost|9000|8443|no tls|-");
}

TEST_F(CustomRegionTest, EnvironmentDefinesRegionsWhileNothingIsSaved) {
    ASSERT_NE(freshLoad(":local,localhost,8000,0,FALSE,FALSE::'x','h',0,0,TRUE,FALSE,/pre: "), nullptr);
    EXPECT_EQ(regionOf("local"), First_Custom_Region);
    EXPECT_EQ(regionOf("x"), First_Custom_Region + 1);
    EXPECT_EQ(endpointOf("local"), "localhost|8000|65535|no tls|-");
    EXPECT_EQ(endpointOf("x"), "h|65535|65535|tls|/pre");
    ASSERT_NE(freshLoad("fromenv,h,0,0,TRUE,TRUE", "saved,h,1,2,FALSE,TRUE"), nullptr);
    EXPECT_EQ(regionOf("saved"), First_Custom_Region);
    EXPECT_EQ(regionOf("fromenv"), Unknown_Region);
    ASSERT_NE(freshLoad("fromenv,h,0,0,TRUE,TRUE", ""), nullptr);
    EXPECT_EQ(ext->customRegionsById->count, 0) << "an empty saved text means no regions";
    const std::string atTheLimit = "a,h,0,0,TRUE,TRUE,/" + std::string(1024 - 19, 'p');
    ASSERT_NE(freshLoad(atTheLimit.c_str()), nullptr);
    EXPECT_EQ(endpointOf("a"), "h|65535|65535|tls|/" + std::string(1024 - 19, 'p'));
}

// A bad environment or saved text fails the load, says why and saves nothing; put right, the
// next load reads it again.
TEST_F(CustomRegionTest, BadTextFailsTheLoadWithASentenceAndSavesNothing) {
    const std::tuple<std::string, const char*, const char*> cases[] = {  // environment, saved text, sentence
        {"a,h,0,0,TRUE,TRUE:b,h,0,0,TRUE", nullptr, "Custom region definition 2: it has fewer than six"},
        {"a,h,http,0,TRUE,TRUE", nullptr, "Custom region definition 1: a port is not a number"},
        {"a,h,0,0,TRUE,TRUE:a,i,0,0,TRUE,TRUE", nullptr, "Custom region \"a\" is already defined."},
        {"us-west-2,h,0,0,TRUE,TRUE", nullptr, "has the name of an AWS region"},
        {"a,h,0,0,TRUE,TRUE,/" + std::string(1006, 'p'), nullptr, "at most 1024 are taken"},
        {"good,h,0,0,TRUE,TRUE", "\"a\",\"h\",0,0", "fewer than six"},
    };
    Logger_S* logger = oxtest::host()->log4qel->GetLogger(reinterpret_cast<const OXChar*>(U"App.ox.s3"), 9);
    for (const auto& [environment, savedText, sentence] : cases) {
        unload();
        oxtest::LogCapture log(logger);
        EXPECT_EQ(freshLoad(environment.c_str(), savedText), nullptr);
        EXPECT_EQ(jnl.count, 0u);
        EXPECT_TRUE(log.mentions(sentence)) << sentence;
        EXPECT_EQ(saved(), savedText ? savedText : "<none>") << sentence;
        ASSERT_NE(freshLoad("good,h,0,0,TRUE,TRUE"), nullptr);
        EXPECT_EQ(regionOf("good"), First_Custom_Region);
    }
}

}  // namespace
