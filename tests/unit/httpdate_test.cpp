// Date texts of the web client service: the HTTP and ISO 8601 forms, both ways, always UTC.
#include <gtest/gtest.h>

#include <cmath>
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
constexpr OXDateTime kLeapDay2000 = 951868799;   // 2000-02-29T23:59:59Z
constexpr OXDateTime kS3Example = 1255369830;    // 2009-10-12T17:50:30Z

struct KnownInstant {
    OXDateTime when;
    std::string_view http;
    std::string_view isoDate;
    std::string_view isoDateTime;
};

constexpr KnownInstant kKnownInstants[] = {
    {0, "Thu, 01 Jan 1970 00:00:00 GMT", "19700101", "19700101T000000Z"},
    {-1, "Wed, 31 Dec 1969 23:59:59 GMT", "19691231", "19691231T235959Z"},
    {kRfcExample, "Sun, 06 Nov 1994 08:49:37 GMT", "19941106", "19941106T084937Z"},
    {kLeapDay2024, "Thu, 29 Feb 2024 12:34:56 GMT", "20240229", "20240229T123456Z"},
    {kLeapDay2000, "Tue, 29 Feb 2000 23:59:59 GMT", "20000229", "20000229T235959Z"},
    {253402300799, "Fri, 31 Dec 9999 23:59:59 GMT", "99991231", "99991231T235959Z"},
};

class DateTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(wc) << "the webclient service did not load"; }

    using Formatter = OXStatus (*)(OXDateTime, char*, size_t);

    static std::string format(Formatter f, OXDateTime when) {
        char out[64];
        OXStatus st = f(when, out, sizeof out);
        EXPECT_EQ(st, OX_OK) << "formatting " << when;
        return st == OX_OK ? std::string(out) : std::string();
    }
    std::string httpDate(OXDateTime when) { return format(wc->formatHttpDate, when); }
    std::string isoDate(OXDateTime when) { return format(wc->formatIsoDate, when); }
    std::string isoDateTime(OXDateTime when) { return format(wc->formatIsoDateTime, when); }

    OXStatus parseIso(std::string_view text, OXDateTime& when) {
        return wc->parseIsoDateTime(text.data(), text.size(), &when);
    }
    OXStatus parseHttp(std::string_view text, OXDateTime& when) {
        return wc->parseHttpDate(text.data(), text.size(), &when);
    }

    oxtest::Service<OXWebClient_S> wc{"webclient"};
};

// A local time zone far from UTC, so that any use of local time shows.
class AwayFromUtc : public DateTest {
protected:
    void SetUp() override {
        DateTest::SetUp();
        if (const char* tz = std::getenv("TZ")) saved_ = tz, hadTz_ = true;
        setenv("TZ", "America/St_Johns", 1);
        tzset();
    }
    void TearDown() override {
        if (hadTz_)
            setenv("TZ", saved_.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    std::string saved_;
    bool hadTz_ = false;
};

// ---- formatting

using DateFormatting = AwayFromUtc;

TEST_F(DateFormatting, WritesKnownInstantsInAllThreeForms) {
    for (const auto& k : kKnownInstants) {
        EXPECT_EQ(httpDate(k.when), k.http);
        EXPECT_EQ(isoDate(k.when), k.isoDate);
        EXPECT_EQ(isoDateTime(k.when), k.isoDateTime);
    }
}

TEST_F(DateFormatting, DropsFractionsOfASecond) {
    EXPECT_EQ(isoDateTime(kRfcExample + 0.999), "19941106T084937Z");
    EXPECT_EQ(isoDateTime(-0.5), "19691231T235959Z");
}

TEST_F(DateFormatting, FitsExactlySizedBufferAndRejectsSmallerOne) {
    char out[OX_ISO_DATETIME_SIZE];
    EXPECT_EQ(wc->formatIsoDateTime(kS3Example, out, sizeof out), OX_OK);
    EXPECT_EQ(std::string_view(out), "20091012T175030Z");
    EXPECT_EQ(wc->formatIsoDateTime(kS3Example, out, sizeof out - 1), OX_BUFFER_TOO_SMALL);
    char http[OX_HTTP_DATE_SIZE];
    EXPECT_EQ(wc->formatHttpDate(kS3Example, http, sizeof http - 1), OX_BUFFER_TOO_SMALL);
    char date[OX_ISO_DATE_SIZE];
    EXPECT_EQ(wc->formatIsoDate(kS3Example, date, sizeof date - 1), OX_BUFFER_TOO_SMALL);
}

TEST_F(DateFormatting, RejectsInstantsBeyondFourDigitYears) {
    char out[64];
    for (OXDateTime bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                           253402300800.0, -62167219201.0, 1e300}) {
        EXPECT_EQ(wc->formatHttpDate(bad, out, sizeof out), OX_INVALID_ARGUMENT) << bad;
        EXPECT_EQ(wc->formatIsoDateTime(bad, out, sizeof out), OX_INVALID_ARGUMENT) << bad;
    }
}

// ---- ISO 8601 parsing

using IsoParsing = AwayFromUtc;

TEST_F(IsoParsing, ReadsExtendedFormWithMilliseconds) {
    OXDateTime when = 0;
    ASSERT_EQ(parseIso("2009-10-12T17:50:30.000Z", when), OX_OK);
    EXPECT_EQ(when, kS3Example);
}

TEST_F(IsoParsing, ReadsExtendedFormWithoutFraction) {
    OXDateTime when = 0;
    ASSERT_EQ(parseIso("2009-10-12T17:50:30Z", when), OX_OK);
    EXPECT_EQ(when, kS3Example);
}

TEST_F(IsoParsing, ReadsBasicForm) {
    OXDateTime when = 0;
    ASSERT_EQ(parseIso("20091012T175030Z", when), OX_OK);
    EXPECT_EQ(when, kS3Example);
}

TEST_F(IsoParsing, KeepsFractionOfASecond) {
    OXDateTime when = 0;
    ASSERT_EQ(parseIso("2009-10-12T17:50:30.250Z", when), OX_OK);
    EXPECT_DOUBLE_EQ(when, kS3Example + 0.25);
    ASSERT_EQ(parseIso("20091012T175030.5Z", when), OX_OK);
    EXPECT_DOUBLE_EQ(when, kS3Example + 0.5);
    ASSERT_EQ(parseIso("2009-10-12T17:50:30.123456789Z", when), OX_OK);
    EXPECT_NEAR(when - kS3Example, 0.123456789, 1e-6);
}

TEST_F(IsoParsing, ReadsLeapDaysAndTheEpoch) {
    OXDateTime when = 1;
    ASSERT_EQ(parseIso("2024-02-29T12:34:56Z", when), OX_OK);
    EXPECT_EQ(when, kLeapDay2024);
    ASSERT_EQ(parseIso("20000229T235959Z", when), OX_OK);
    EXPECT_EQ(when, kLeapDay2000);
    ASSERT_EQ(parseIso("1970-01-01T00:00:00Z", when), OX_OK);
    EXPECT_EQ(when, 0);
}

TEST_F(IsoParsing, RejectsOtherTextLeavingOutputAlone) {
    constexpr std::string_view kRejected[] = {
        "",
        "2009-10-12",
        "2009-10-12T17:50:30",         // no zone
        "2009-10-12T17:50:30+00:00",   // offsets are not UTC text
        "2009-10-12 17:50:30Z",
        "2009-10-12t17:50:30z",
        "2009-1012T175030Z",           // extended and basic mixed
        "20091012T17:50:30Z",
        "2009-10-12T17:50:30.Z",       // a point without digits
        "2009-10-12T17:50:30Zjunk",
        " 2009-10-12T17:50:30Z",
        "09-10-12T17:50:30Z",
        "2009-13-12T17:50:30Z",        // month 13
        "2009-00-12T17:50:30Z",
        "2009-02-29T00:00:00Z",        // not a leap year
        "1900-02-29T00:00:00Z",        // centuries are not leap years unless divisible by 400
        "2009-04-31T00:00:00Z",
        "2009-10-12T24:00:00Z",
        "2009-10-12T17:60:00Z",
        "2009-10-12T17:50:61Z",
        "Mon, 12 Oct 2009 17:50:30 GMT",
    };
    for (std::string_view text : kRejected) {
        OXDateTime when = 42;
        EXPECT_EQ(parseIso(text, when), OX_DATE_NOT_IN_FORM) << text;
        EXPECT_EQ(when, 42) << text;
    }
}

// ---- HTTP dates

using HttpDateParsing = AwayFromUtc;

TEST_F(HttpDateParsing, ReadsImfFixdate) {
    OXDateTime when = 0;
    ASSERT_EQ(parseHttp("Sun, 06 Nov 1994 08:49:37 GMT", when), OX_OK);
    EXPECT_EQ(when, kRfcExample);
}

TEST_F(HttpDateParsing, ReadsObsoleteRfc850Form) {
    OXDateTime when = 0;
    ASSERT_EQ(parseHttp("Sunday, 06-Nov-94 08:49:37 GMT", when), OX_OK);
    EXPECT_EQ(when, kRfcExample);
}

TEST_F(HttpDateParsing, ReadsAsctimeFormWithPaddedOrTwoDigitDay) {
    OXDateTime when = 0;
    ASSERT_EQ(parseHttp("Sun Nov  6 08:49:37 1994", when), OX_OK);
    EXPECT_EQ(when, kRfcExample);
    ASSERT_EQ(parseHttp("Thu Feb 29 12:34:56 2024", when), OX_OK);
    EXPECT_EQ(when, kLeapDay2024);
}

TEST_F(HttpDateParsing, ReadsTwoDigitYearsNearTodayInThisCentury) {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    OXDateTime when = 0;
    char text[64];
    std::snprintf(text, sizeof text, "Monday, 01-Jan-%02d 00:00:00 GMT", (tm.tm_year + 1900 + 1) % 100);
    ASSERT_EQ(parseHttp(text, when), OX_OK);
    EXPECT_GT(when, static_cast<OXDateTime>(now));
}

TEST_F(HttpDateParsing, IgnoresSurroundingSpacesAndTabs) {
    OXDateTime when = 0;
    ASSERT_EQ(parseHttp(" \tSun, 06 Nov 1994 08:49:37 GMT  ", when), OX_OK);
    EXPECT_EQ(when, kRfcExample);
}

TEST_F(HttpDateParsing, RejectsOtherTextLeavingOutputAlone) {
    constexpr std::string_view kRejected[] = {
        "",
        "   ",
        "Sun, 06 Nov 1994 08:49:37 UTC",
        "Sun, 06 Nov 1994 08:49:37",
        "Sun, 6 Nov 1994 08:49:37 GMT",
        "Sun, 06 nov 1994 08:49:37 GMT",
        "Sun 06 Nov 1994 08:49:37 GMT",
        "Sun, 06 Nov 94 08:49:37 GMT",
        "Sun, 31 Nov 1994 08:49:37 GMT",
        "Sun, 06 Nov 1994 8:49:37 GMT",
        "Sun, 06 Nov 1994 08:49:37 GMTx",
        "Xyz, 06 Nov 1994 08:49:37 GMT",
        "Sunday, 06-Nov-1994 08:49:37 GMT",
        "Sun, 06-Nov-94 08:49:37 GMT",
        "Sun Nov 6 08:49:37 1994",
        "Sun Nov  6 08:49:37 94",
        "2009-10-12T17:50:30.000Z",
    };
    for (std::string_view text : kRejected) {
        OXDateTime when = 42;
        EXPECT_EQ(parseHttp(text, when), OX_DATE_NOT_IN_FORM) << text;
        EXPECT_EQ(when, 42) << text;
    }
}

// ---- round trips

using DateRoundTrip = AwayFromUtc;

TEST_F(DateRoundTrip, ParsersReadBackWhatFormattersWrite) {
    std::mt19937_64 random(7231);
    std::uniform_int_distribution<int64_t> seconds(-2208988800, 4102444800);  // 1900 to 2100
    for (int i = 0; i < 2000; ++i) {
        auto when = static_cast<OXDateTime>(seconds(random));
        OXDateTime back = 0;
        ASSERT_EQ(parseHttp(httpDate(when), back), OX_OK) << when;
        EXPECT_EQ(back, when);
        ASSERT_EQ(parseIso(isoDateTime(when), back), OX_OK) << when;
        EXPECT_EQ(back, when);
    }
}

TEST_F(DateRoundTrip, FormattersRewriteWhatParsersRead) {
    for (const auto& k : kKnownInstants) {
        OXDateTime when = 0;
        ASSERT_EQ(parseHttp(k.http, when), OX_OK) << k.http;
        EXPECT_EQ(httpDate(when), k.http);
        ASSERT_EQ(parseIso(k.isoDateTime, when), OX_OK) << k.isoDateTime;
        EXPECT_EQ(isoDateTime(when), k.isoDateTime);
    }
}

}  // namespace
