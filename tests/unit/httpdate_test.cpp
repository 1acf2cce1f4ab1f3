// Date texts of the web client service: the HTTP and ISO 8601 forms, both ways, always UTC.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include "ox/webclient.h"
#include "testhost.h"

namespace {

constexpr OXDateTime kRfcExample = 784111777;    // 1994-11-06T08:49:37Z, the HTTP RFCs' example
constexpr OXDateTime kLeapDay2024 = 1709210096;  // 2024-02-29T12:34:56Z
constexpr OXDateTime kS3Example = 1255369830;    // 2009-10-12T17:50:30Z

// The whole program runs in a local time zone far from UTC, so that any use of local time shows.
const bool kAwayFromUtc = (setenv("TZ", "America/St_Johns", 1), tzset(), true);

class DateTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(wc && kAwayFromUtc) << "the webclient service did not load"; }

    using Formatter = OXStatus (*)(OXDateTime, char*, size_t);
    static std::string format(Formatter f, OXDateTime when) {
        char out[64] = "";
        EXPECT_EQ(f(when, out, sizeof out), OX_OK) << "formatting " << when;
        return out;
    }
    OXStatus parseIso(std::string_view text, OXDateTime& when) {
        return wc->parseIsoDateTime(text.data(), text.size(), &when);
    }
    OXStatus parseHttp(std::string_view text, OXDateTime& when) {
        return wc->parseHttpDate(text.data(), text.size(), &when);
    }

    oxtest::Service<OXWebClient_S> wc{"webclient"};
};

TEST_F(DateTest, WritesAndReadsBackKnownInstantsInAllThreeForms) {
    const struct {
        OXDateTime when;
        std::string_view http, isoDate, isoDateTime;
    } known[] = {
        {0, "Thu, 01 Jan 1970 00:00:00 GMT", "19700101", "19700101T000000Z"},
        {-1, "Wed, 31 Dec 1969 23:59:59 GMT", "19691231", "19691231T235959Z"},
        {kRfcExample, "Sun, 06 Nov 1994 08:49:37 GMT", "19941106", "19941106T084937Z"},
        {kLeapDay2024, "Thu, 29 Feb 2024 12:34:56 GMT", "20240229", "20240229T123456Z"},
        {951868799, "Tue, 29 Feb 2000 23:59:59 GMT", "20000229", "20000229T235959Z"},
        {253402300799, "Fri, 31 Dec 9999 23:59:59 GMT", "99991231", "99991231T235959Z"},
    };
    for (const auto& k : known) {
        EXPECT_EQ(format(wc->formatHttpDate, k.when), k.http);
        EXPECT_EQ(format(wc->formatIsoDate, k.when), k.isoDate);
        EXPECT_EQ(format(wc->formatIsoDateTime, k.when), k.isoDateTime);
        OXDateTime back = 42;
        EXPECT_EQ(parseHttp(k.http, back), OX_OK) << k.http;
        EXPECT_EQ(back, k.when) << k.http;
        EXPECT_EQ(parseIso(k.isoDateTime, back), OX_OK) << k.isoDateTime;
        EXPECT_EQ(back, k.when) << k.isoDateTime;
    }
}

TEST_F(DateTest, FormattingDropsFractionsAndRefusesShortBuffersAndOutOfRangeInstants) {
    EXPECT_EQ(format(wc->formatIsoDateTime, kRfcExample + 0.999), "19941106T084937Z");
    EXPECT_EQ(format(wc->formatIsoDateTime, -0.5), "19691231T235959Z");
    char out[OX_HTTP_DATE_SIZE];
    EXPECT_EQ(wc->formatIsoDateTime(kS3Example, out, OX_ISO_DATETIME_SIZE), OX_OK);
    EXPECT_EQ(wc->formatIsoDateTime(kS3Example, out, OX_ISO_DATETIME_SIZE - 1), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(wc->formatHttpDate(kS3Example, out, OX_HTTP_DATE_SIZE - 1), OX_BUFFER_TOO_SMALL);
    EXPECT_EQ(wc->formatIsoDate(kS3Example, out, OX_ISO_DATE_SIZE - 1), OX_BUFFER_TOO_SMALL);
    for (OXDateTime bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                           253402300800.0, -62167219201.0, 1e300}) {
        EXPECT_EQ(wc->formatHttpDate(bad, out, sizeof out), OX_INVALID_ARGUMENT) << bad;
        EXPECT_EQ(wc->formatIsoDateTime(bad, out, sizeof out), OX_INVALID_ARGUMENT) << bad;
    }
}

TEST_F(DateTest, ReadsIsoFormsWithFractions) {
    const std::pair<std::string_view, OXDateTime> accepted[] = {
        {"2009-10-12T17:50:30.000Z", kS3Example},   {"2009-10-12T17:50:30Z", kS3Example},
        {"20091012T175030Z", kS3Example},           {"2009-10-12T17:50:30.250Z", kS3Example + 0.25},
        {"20091012T175030.5Z", kS3Example + 0.5},   {"2024-02-29T12:34:56Z", kLeapDay2024},
        {"2009-10-12T17:50:30.123456789Z", kS3Example + 0.123456789},
    };
    for (const auto& [text, expected] : accepted) {
        OXDateTime when = 0;
        ASSERT_EQ(parseIso(text, when), OX_OK) << text;
        EXPECT_NEAR(when, expected, 1e-6) << text;
    }
}

TEST_F(DateTest, ReadsHttpFormsIncludingObsoleteOnes) {
    const std::pair<std::string_view, OXDateTime> accepted[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT", kRfcExample},      {"Sunday, 06-Nov-94 08:49:37 GMT", kRfcExample},
        {"Sun Nov  6 08:49:37 1994", kRfcExample},           {"Thu Feb 29 12:34:56 2024", kLeapDay2024},
        {" \tSun, 06 Nov 1994 08:49:37 GMT  ", kRfcExample},
    };
    for (const auto& [text, expected] : accepted) {
        OXDateTime when = 0;
        ASSERT_EQ(parseHttp(text, when), OX_OK) << text;
        EXPECT_EQ(when, expected) << text;
    }
    // A two-digit year is the one nearest today: next year's stays in this century.
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "Monday, 01-Jan-%02d 00:00:00 GMT", (tm.tm_year + 1900 + 1) % 100);
    OXDateTime when = 0;
    ASSERT_EQ(parseHttp(text, when), OX_OK);
    EXPECT_GT(when, static_cast<OXDateTime>(now));
    EXPECT_LT(when, static_cast<OXDateTime>(now) + 367 * 86400.0);
}

TEST_F(DateTest, RejectsOtherTextLeavingOutputAlone) {
    constexpr std::string_view kNotIso[] = {
        "", "2009-10-12", "2009-10-12T17:50:30" /* no zone */, "2009-10-12T17:50:30+00:00",
        "2009-10-12 17:50:30Z", "2009-10-12t17:50:30z", "2009-1012T175030Z" /* forms mixed */,
        "2009-10-12T17:50:30.Z", "2009-10-12T17:50:30Zjunk", " 2009-10-12T17:50:30Z", "09-10-12T17:50:30Z",
        "2009-13-12T17:50:30Z", "2009-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2009-04-31T00:00:00Z",
        "2009-10-12T24:00:00Z", "2009-10-12T17:60:00Z", "2009-10-12T17:50:61Z", "Mon, 12 Oct 2009 17:50:30 GMT"};
    constexpr std::string_view kNotHttp[] = {
        "", "   ", "Sun, 06 Nov 1994 08:49:37 UTC", "Sun, 06 Nov 1994 08:49:37", "Sun, 6 Nov 1994 08:49:37 GMT",
        "Sun, 06 nov 1994 08:49:37 GMT", "Sun 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 94 08:49:37 GMT",
        "Sun, 31 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 8:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 GMTx",
        "Xyz, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-1994 08:49:37 GMT", "Sun, 06-Nov-94 08:49:37 GMT",
        "Sun Nov 6 08:49:37 1994", "Sun Nov  6 08:49:37 94", "2009-10-12T17:50:30.000Z"};
    for (std::string_view text : kNotIso) {
        OXDateTime when = 42;
        EXPECT_EQ(parseIso(text, when), OX_DATE_NOT_IN_FORM) << text;
        EXPECT_EQ(when, 42) << text;
    }
    for (std::string_view text : kNotHttp) {
        OXDateTime when = 42;
        EXPECT_EQ(parseHttp(text, when), OX_DATE_NOT_IN_FORM) << text;
        EXPECT_EQ(when, 42) << text;
    }
}

TEST_F(DateTest, ParsersReadBackWhatFormattersWrite) {
    std::mt19937_64 random(7231);
    std::uniform_int_distribution<int64_t> seconds(-2208988800, 4102444800);  // 1900 to 2100
    for (int i = 0; i < 2000; ++i) {
        auto when = static_cast<OXDateTime>(seconds(random));
        OXDateTime back = 0;
        ASSERT_EQ(parseHttp(format(wc->formatHttpDate, when), back), OX_OK) << when;
        EXPECT_EQ(back, when);
        ASSERT_EQ(parseIso(format(wc->formatIsoDateTime, when), back), OX_OK) << when;
        EXPECT_EQ(back, when);
    }
}

}  // namespace
