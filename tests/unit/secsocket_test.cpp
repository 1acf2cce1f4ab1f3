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
        if (opts) {
            EXPECT_EQ(opts->destroy(opts), OX_OK);
        }
    }

    static OXStatus set(SSLOptions o, std::string_view name, std::string_view value) {
        return o->setOptionU8(o, name.data(), name.size(), value.data(), value.size());
    }
    static std::string get(SSLOptions o, std::string_view name) {
        UTF8CStr value = nullptr;
        UTF8ByteLength len = 0;
        OXStatus st = o->getValueU8(o, name.data(), name.size(), &value, &len);
        if (st != OX_OK) return "<status " + std::to_string(st) + ">";
        EXPECT_EQ(value[len], '\0') << "values are terminated";
        return std::string(value, len);
    }
    static bool has(SSLOptions o, std::string_view name) { return o->hasValueU8(o, name.data(), name.size()); }

    oxtest::Service<OXSecSocket_S> ss{"secsocket"};
    oxtest::TestPool pool;
    SSLOptions opts = nullptr;
};

TEST_F(SslOptions, NewSetHasNoValues) {
    EXPECT_EQ(opts->pool, pool.get());
    EXPECT_EQ(opts->sslOptionCount, 0);
    EXPECT_FALSE(has(opts, OX_SSL_VERIFYPEER));
    UTF8CStr value = nullptr;
    UTF8ByteLength len = 0;
    EXPECT_EQ(opts->getValueU8(opts, "CAFILE", 6, &value, &len), OX_NOT_FOUND);
}

TEST_F(SslOptions, ReadsBackWhatWasSet) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/etc/ssl/certs/ca-certificates.crt"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_SNI, "s3.example.com"), OX_OK);
    EXPECT_TRUE(has(opts, OX_SSL_CAFILE));
    EXPECT_EQ(get(opts, OX_SSL_CAFILE), "/etc/ssl/certs/ca-certificates.crt");
    EXPECT_EQ(get(opts, OX_SSL_SNI), "s3.example.com");
    EXPECT_FALSE(has(opts, OX_SSL_CAPATH));
}

TEST_F(SslOptions, SettingANameAgainReplacesItsValue) {
    ASSERT_EQ(set(opts, OX_SSL_CIPHERS, "HIGH"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_CIPHERS, "ECDHE+AESGCM"), OX_OK);
    EXPECT_EQ(opts->sslOptionCount, 1);
    EXPECT_EQ(get(opts, OX_SSL_CIPHERS), "ECDHE+AESGCM");
}

TEST_F(SslOptions, NamesIgnoreCaseAndAreKeptInDocumentedSpelling) {
    ASSERT_EQ(set(opts, "cafile", "/tmp/ca.pem"), OX_OK);
    ASSERT_EQ(set(opts, "CaFile", "/tmp/other.pem"), OX_OK);
    EXPECT_EQ(opts->sslOptionCount, 1);
    EXPECT_STREQ(opts->sslOptionNames[0], OX_SSL_CAFILE);
    EXPECT_STREQ(opts->sslOptionValues[0], "/tmp/other.pem");
}

TEST_F(SslOptions, KeepsSwitchesAndVersionsInCanonicalSpelling) {
    ASSERT_EQ(set(opts, OX_SSL_VERIFYPEER, "FALSE"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYHOST, "True"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_MINVERSION, "tlsv1.3"), OX_OK);
    EXPECT_EQ(get(opts, OX_SSL_VERIFYPEER), OX_SSL_FALSE);
    EXPECT_EQ(get(opts, OX_SSL_VERIFYHOST), OX_SSL_TRUE);
    EXPECT_EQ(get(opts, OX_SSL_MINVERSION), OX_SSL_TLS13);
}

TEST_F(SslOptions, RejectsValuesThatDoNotFitLeavingSetAsItWas) {
    ASSERT_EQ(set(opts, OX_SSL_VERIFYPEER, "true"), OX_OK);
    EXPECT_EQ(set(opts, OX_SSL_VERIFYPEER, "no"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(set(opts, OX_SSL_VERIFYPEER, "0"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(set(opts, OX_SSL_MINVERSION, "TLSv1.1"), OX_INVALID_ARGUMENT);
    EXPECT_EQ(set(opts, OX_SSL_CAFILE, ""), OX_INVALID_ARGUMENT);
    EXPECT_EQ(set(opts, OX_SSL_CAFILE, std::string_view("/tmp/a\0b", 8)), OX_INVALID_ARGUMENT);
    EXPECT_EQ(opts->sslOptionCount, 1);
    EXPECT_EQ(get(opts, OX_SSL_VERIFYPEER), OX_SSL_TRUE);
}

TEST_F(SslOptions, RejectsUnknownNames) {
    EXPECT_EQ(set(opts, "VERIFYPEERS", "false"), OX_NOT_SUPPORTED);
    EXPECT_EQ(set(opts, "", "x"), OX_NOT_SUPPORTED);
    EXPECT_EQ(opts->sslOptionCount, 0);
    EXPECT_FALSE(has(opts, "VERIFYPEERS"));
}

TEST_F(SslOptions, AnswersWideNameQueries) {
    ASSERT_EQ(set(opts, OX_SSL_CAPATH, "/etc/ssl/certs"), OX_OK);
    std::u32string name = oxtest::wide("capath");
    EXPECT_TRUE(opts->hasValue(opts, oxtest::chars(name), name.size()));
    std::u32string unknown = oxtest::wide("CAPATH\u00e9");
    EXPECT_FALSE(opts->hasValue(opts, oxtest::chars(unknown), unknown.size()));
}

TEST_F(SslOptions, SetsWideValuesAsUtf8) {
    ASSERT_NE(opts->oxstring, nullptr) << "the secsocket service found no string service";
    std::u32string name = oxtest::wide(OX_SSL_CAFILE);
    std::u32string value = U"/tmp/caf\u00e9.pem";
    ASSERT_EQ(opts->setOption(opts, oxtest::chars(name), name.size(), oxtest::chars(value), value.size()), OX_OK);
    EXPECT_EQ(get(opts, OX_SSL_CAFILE), "/tmp/caf\xc3\xa9.pem");
}

class SslOptionCopies : public SslOptions {
protected:
    oxtest::TestPool otherPool;
};

TEST_F(SslOptionCopies, DuplicateLivesInItsOwnPoolAndChangesIndependently) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/one.pem"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYHOST, "false"), OX_OK);
    SSLOptions copy = nullptr;
    ASSERT_EQ(opts->duplicate(opts, otherPool, &copy), OX_OK);
    EXPECT_EQ(copy->pool, otherPool.get());

    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/two.pem"), OX_OK);
    ASSERT_EQ(set(copy, OX_SSL_SNI, "copy.example.com"), OX_OK);
    EXPECT_EQ(get(copy, OX_SSL_CAFILE), "/tmp/one.pem");
    EXPECT_EQ(get(copy, OX_SSL_VERIFYHOST), OX_SSL_FALSE);
    EXPECT_FALSE(has(opts, OX_SSL_SNI));

    ASSERT_EQ(opts->destroy(opts), OX_OK);
    opts = nullptr;
    EXPECT_EQ(get(copy, OX_SSL_CAFILE), "/tmp/one.pem");
    EXPECT_EQ(copy->destroy(copy), OX_OK);
}

TEST_F(SslOptionCopies, DestroyReleasesEveryBlock) {
    for (const char* name : {OX_SSL_CAFILE, OX_SSL_CAPATH, OX_SSL_SNI, OX_SSL_CIPHERS})
        for (int round = 0; round < 3; ++round) ASSERT_EQ(set(opts, name, "value" + std::to_string(round)), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYPEER, "false"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_VERIFYHOST, "false"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_MINVERSION, "TLSv1.2"), OX_OK);
    SSLOptions copy = nullptr;
    ASSERT_EQ(opts->duplicate(opts, otherPool, &copy), OX_OK);
    EXPECT_EQ(copy->sslOptionCount, 7);
    EXPECT_EQ(copy->destroy(copy), OX_OK);
    EXPECT_EQ(otherPool->blocksInUse(otherPool), 0u);
    EXPECT_EQ(opts->destroy(opts), OX_OK);
    opts = nullptr;
    EXPECT_EQ(pool->blocksInUse(pool), 0u);
}

TEST_F(SslOptionCopies, FailedDuplicateLeavesNothingBehind) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/ca.pem"), OX_OK);
    ASSERT_EQ(set(opts, OX_SSL_SNI, "host"), OX_OK);
    for (int64_t allowed = 0; allowed < 8; ++allowed) {
        SSLOptions copy = nullptr;
        oxPoolFailAfter(otherPool, allowed);
        OXStatus st = opts->duplicate(opts, otherPool, &copy);
        oxPoolFailAfter(otherPool, -1);
        if (st == OX_OK) {
            copy->destroy(copy);
            continue;
        }
        EXPECT_EQ(st, OX_NO_MEMORY);
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(otherPool->blocksInUse(otherPool), 0u) << "after " << allowed << " allocations";
    }
}

TEST_F(SslOptions, FailedSetLeavesSetAsItWas) {
    ASSERT_EQ(set(opts, OX_SSL_CAFILE, "/tmp/ca.pem"), OX_OK);
    for (int64_t allowed = 0; allowed < 4; ++allowed) {
        oxPoolFailAfter(pool, allowed);
        OXStatus replaced = set(opts, OX_SSL_CAFILE, "/tmp/new.pem");
        OXStatus added = set(opts, OX_SSL_SNI, "host");
        oxPoolFailAfter(pool, -1);
        if (replaced != OX_OK) {
            EXPECT_EQ(get(opts, OX_SSL_CAFILE), "/tmp/ca.pem");
        }
        if (added != OX_OK) {
            EXPECT_FALSE(has(opts, OX_SSL_SNI));
        }
        if (added == OX_OK) break;
    }
}

}  // namespace
