// The three percent-encodings (the path sent, the path signed, query names and values), query
// strings in both forms, and the text-to-number conversions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "connfixture.h"
#include "oxs3encode.h"

namespace {

struct Case {
    std::string in, signedPath, sentPath, query;
};

// Columns: awsURLEncode (signed), urlEncodePath (sent), awsURLEncodeQuery.
const Case kCases[] = {
    {"", "", "", ""},
    {"/a b/c-d_e.txt", "/a%20b/c-d_e.txt", "/a%20b/c%2Dd%5Fe.txt", "%2Fa%20b%2Fc-d_e.txt"},
    {"AZaz09.~", "AZaz09.~", "AZaz09.~", "AZaz09.~"},
    {"a+b=c&d", "a%2Bb%3Dc%26d", "a%2Bb%3Dc%26d", "a%2Bb%3Dc%26d"},
    {"/k:v", "/k%3Av", "/k%3Av", "%2Fk%3Av"},
    {"\xc3\xa9\xff", "%C3%A9%FF", "%C3%A9%FF", "%C3%A9%FF"},
    {"%", "%25", "%25", "%25"},
    // The ":" rule of awsURLEncode counts the first "/" after "://" from just after "://".
    {"http://h/k:v", "http%3A//h/k%3Av", "http%3A//h/k%3Av", "http%3A%2F%2Fh%2Fk%3Av"},
    {"s3://bucket:1", "s3://bucket:1", "s3%3A//bucket%3A1", "s3%3A%2F%2Fbucket%3A1"},
    {"a:b://cdefgh/x:y", "a:b://cdefgh/x%3Ay", "a%3Ab%3A//cdefgh/x%3Ay", "a%3Ab%3A%2F%2Fcdefgh%2Fx%3Ay"},
};

class Encoding : public oxtest::ConnectionFixture {
protected:
    using Encoder = void (*)(s3::TextBuffer&, std::string_view);
    std::string run(Encoder encode, std::string_view text) {
        s3::TextBuffer out(pool);
        encode(out, text);
        EXPECT_EQ(out.status(), OX_OK);
        return std::string(out.view());
    }
    std::string queryString(OXDictionary q, s3::QueryForm form) {
        s3::TextBuffer out(pool);
        EXPECT_EQ(s3::appendQueryString(out, q, form), OX_OK);
        return std::string(out.view());
    }
};

TEST_F(Encoding, EachEncodingKeepsItsOwnCharacters) {
    for (const Case& c : kCases) {
        EXPECT_EQ(run(s3::appendAwsURLEncoded, c.in), c.signedPath) << c.in;
        EXPECT_EQ(run(s3::appendPathEncoded, c.in), c.sentPath) << c.in;
        EXPECT_EQ(run(s3::appendQueryEncoded, c.in), c.query) << c.in;
    }
}

TEST_F(Encoding, StringFormsMatchTheBufferForms) {
    oxtest::U8String sent, signedPath, query;
    ASSERT_EQ(s3::urlEncodePath(ext->oxstring, pool, kCases[1].in, sent.out()), OX_OK);
    ASSERT_EQ(s3::awsURLEncode(ext->oxstring, pool, kCases[1].in, signedPath.out()), OX_OK);
    ASSERT_EQ(s3::awsURLEncodeQuery(ext->oxstring, pool, kCases[1].in, query.out()), OX_OK);
    EXPECT_EQ(oxtest::stringText(sent.get()), kCases[1].sentPath);
    EXPECT_EQ(oxtest::stringText(signedPath.get()), kCases[1].signedPath);
    EXPECT_EQ(oxtest::stringText(query.get()), kCases[1].query);
}

TEST_F(Encoding, QueryStringsSendABareNameAndSignItWithEquals) {
    oxtest::Dictionary q;
    ASSERT_EQ(s3::newQueryU8(ext, pool, "uploads", nullptr, q.out()), OX_OK);
    ASSERT_EQ(s3::querySetU8(q.get(), "prefix", "a/b c"), OX_OK);
    ASSERT_EQ(s3::querySetU8(q.get(), "delimiter", "/"), OX_OK);
    ASSERT_EQ(s3::querySetU8(q.get(), "empty", ""), OX_OK);
    EXPECT_EQ(queryString(q.get(), s3::QueryForm::sent), "delimiter=%2F&empty=&prefix=a%2Fb%20c&uploads");
    EXPECT_EQ(queryString(q.get(), s3::QueryForm::canonical), "delimiter=%2F&empty=&prefix=a%2Fb%20c&uploads=");
    oxtest::U8String sent, canonical;
    ASSERT_EQ(s3::buildQueryString(ext->oxstring, pool, nullptr, sent.out()), OX_OK);
    EXPECT_EQ(oxtest::stringText(sent.get()), "");
    ASSERT_EQ(s3::buildCanonicalQueryString(ext->oxstring, pool, q.get(), canonical.out()), OX_OK);
    EXPECT_EQ(oxtest::stringText(canonical.get()), "delimiter=%2F&empty=&prefix=a%2Fb%20c&uploads=");
}

TEST_F(Encoding, WideQueryNamesAndValuesAreSentAsUTF8) {
    s3::Owned<OXString> name, value;
    const std::u32string n = U"na\u00efve", v = U"\u20ac 1";
    ASSERT_EQ(ext->oxstring->create(ext->oxstring, pool, oxtest::chars(n), n.size(), OX_STR_COPY, name.out()), OX_OK);
    ASSERT_EQ(ext->oxstring->create(ext->oxstring, pool, oxtest::chars(v), v.size(), OX_STR_COPY, value.out()), OX_OK);
    oxtest::Dictionary q;
    ASSERT_EQ(s3::newQuery(ext, pool, name.get(), value.get(), q.out()), OX_OK);
    EXPECT_EQ(queryString(q.get(), s3::QueryForm::sent), "na%C3%AFve=%E2%82%AC%201");
}

TEST_F(Encoding, NumbersConvertOnlyWhenTheWholeTextIsOne) {
    const std::pair<const char*, int64_t> good[] = {{"0", 0}, {"8080", 8080}, {"+12", 12}, {"-7", -7},
                                                    {"9223372036854775807", INT64_MAX}};
    for (auto [text, expected] : good) {
        int64_t value = -1;
        EXPECT_EQ(s3::u8StringToLong(text, &value), OX_OK) << text;
        EXPECT_EQ(value, expected) << text;
    }
    for (const char* text : {"", "+", "-", "8080/", " 1", "1 ", "0x10", "9223372036854775808", "+-1"}) {
        int64_t value = 42;
        EXPECT_EQ(s3::u8StringToLong(text, &value), OXS3_NOT_A_NUMBER) << text;
        EXPECT_EQ(value, 42) << text;
    }
}

TEST_F(Encoding, HexDigitsMapBothCasesAndNothingElse) {
    const std::u32string digits = U"0123456789abcdefABCDEF";
    const uint32_t values[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 10, 11, 12, 13, 14, 15};
    for (size_t i = 0; i < digits.size(); ++i) EXPECT_EQ(s3::hexDigit(digits[i]), values[i]);
    for (char32_t c : {U'g', U'G', U'/', U':', U' ', U'\u0660'}) EXPECT_EQ(s3::hexDigit(c), s3::kNotHexDigit);
}

}  // namespace
