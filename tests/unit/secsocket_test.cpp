// TLS option sets of the secure-socket service.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "ox/secsocket.h"
#include "testhost.h"

namespace {

class SslOptions : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(ss) << "the secsocket service did not load";
        ASSERT_EQ(ss->createOptions(ss.get(), pool, &opts), OX_OK);
    }
    void TearDown() override {
        EXPECT_TRUE(!opts || opts->destroy(opts) == OX_OK);
    }

    static OXStatus set(SSLOptions o, std::string_view name, std::string_view value) {
        return o->setOptionU8(o, name.data(), name.size(), value.data(), value.size());
    }
    static std::string get(SSLOptions o, std::string_view name) {
        UTF8CStr value = nullptr;
        UTF8ByteLength len = 0;
        OXStatus st = o->getValueU8(o, name.data(), name.size(), &value, &len);
        if (st != OX_OK) return st == OX_NOT_FOUND ? "<not found>" : "<status " + std::to_string(st) + ">";
        EXPECT_EQ(value[len], '\0') << "values are terminated";
        return std::string(value, len);
    }

    oxtest::Service<OXSecSocket_S> ss{"secsocket"};
    oxtest::TestPool pool, otherPool;
    SSLOptions opts = nullptr;
};

TEST_F(SslOptions, KeepsOneEntryPerNameInCanonicalSpelling) {
    ASSERT_EQ(set(opts, "cafile", "/tmp/ca.pem"), OX_OK);
    ASSERT_EQ(set(opts, "CaFile", "/tmp/other.pem"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYPEER, "FALSE"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYHOST, "True"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_MINVERSION, "tlsv1.3"), OX_OK);
    EXPECT_EQ(opts->sslOptionCount, 4);
    EXPECT_STREQ(opts->sslOptionNames[0], OX_SSL_CAFILE);
    EXPECT_EQ(get(opts, OX_SSL_CAFILE), "/tmp/other.pem");
    EXPECT_EQ(get(opts, OX_SSL_VERIFYPEER), OX_SSL_FALSE);
    EXPECT_EQ(get(opts, OX_SSL_VERIFYHOST), OX_SSL_TRUE);
    EXPECT_EQ(get(opts, OX_SSL_MINVERSION), OX_SSL_TLS13);
    EXPECT_EQ(get(opts, OX_SSL_SNI), "<not found>");
}

TEST_F(SslOptions, RejectsUnknownNamesAndUnfitValuesLeavingTheSetAsItWas) {
    ASSERT_EQ(set(opts, OX_SSL_VERIFYPEER, "true"), OX_OK);
    const std::pair<std::string_view, std::string_view> invalid[] = {
        {OX_SSL_VERIFYPEER, "no"}, {OX_SSL_VERIFYPEER, "0"}, {OX_SSL_MINVERSION, "TLSv1.1"},
        {OX_SSL_CAFILE, ""},       {OX_SSL_CAFILE, std::string_view("/tmp/a\0b", 8)}};
    for (const auto& [name, value] : invalid) EXPECT_EQ(set(opts, name, value), OX_INVALID_ARGUMENT) << name;
    EXPECT_EQ(set(opts, "VERIFYPEERS", "false"), OX_NOT_SUPPORTED);
    EXPECT_EQ(set(opts, "", "x"), OX_NOT_SUPPORTED);
    EXPECT_EQ(opts->sslOptionCount, 1);
    EXPECT_EQ(get(opts, OX_SSL_VERIFYPEER), OX_SSL_TRUE);
    EXPECT_FALSE(opts->hasValueU8(opts, "VERIFYPEERS", 11));
}

TEST_F(SslOptions, DuplicateLivesInItsOwnPoolAndChangesIndependently) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/one.pem"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYHOST, "false"), OX_OK);
    SSLOptions copy = nullptr;
    ASSERT_EQ(opts->duplicate(opts, otherPool, &copy), OX_OK);
    EXPECT_EQ(copy->pool, otherPool.get());
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/two.pem"), OX_OK);
    ASSERT_EQ(set(copy, OX_SSL_SNI, "copy.example.com"), OX_OK);
    EXPECT_EQ(get(opts, OX_SSL_SNI), "<not found>");
    ASSERT_EQ(opts->destroy(opts), OX_OK);
    opts = nullptr;
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
    EXPECT_EQ(get(copy, OX_SSL_CAFILE), "/tmp/one.pem");
    EXPECT_EQ(get(copy, OX_SSL_VERIFYHOST), OX_SSL_FALSE);
    EXPECT_EQ(copy->destroy(copy), OX_OK);
    EXPECT_EQ(otherPool->blocksInUse(otherPool), 0u);
}

TEST_F(SslOptions, RunningOutOfMemoryLeavesTheSetAsItWasAndNoHalfCopy) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/ca.pem"), OX_OK);
    std::string cafile = "/tmp/ca.pem";
    for (int64_t allowed = 0; allowed < 4; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        OXStatus replaced = set(opts, OX_SSL_CAFILE, "/tmp/new.pem"), added = set(opts, OX_SSL_SNI, "host");
        oxPoolFailAfter(pool, -1);
        if (replaced == OX_OK) cafile = "/tmp/new.pem";
        EXPECT_EQ(get(opts, OX_SSL_CAFILE), cafile);
        EXPECT_EQ(get(opts, OX_SSL_SNI), added == OX_OK ? "host" : "<not found>");
        if (added == OX_OK) break;
    }
    for (int64_t allowed = 0; allowed < 8; ++allowed) {
        SSLOptions copy = nullptr;
        oxPoolFailAfter(otherPool, allowed);
        OXStatus st = opts->duplicate(opts, otherPool, &copy);
        oxPoolFailAfter(otherPool, -1);
        if (st == OX_OK) {
            EXPECT_EQ(get(copy, OX_SSL_SNI), "host");
            copy->destroy(copy);
            continue;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(otherPool->blocksInUse(otherPool), 0u) << "after " << allowed << " allocations";
    }
}

}  // namespace
