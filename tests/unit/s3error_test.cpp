// S3 error answers: Codes and refining Messages mapped to statuses, the catalogue text of every
// Code status leading back to it, and what an error answer means for the operation and for the
// connection's error message, with XML bodies and without.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "ox/msg.h"
#include "oxs3areas.h"
#include "oxs3conn.h"
#include "oxs3connection.h"
#include "oxs3docs.h"
#include "oxs3error.h"
#include "parserhost.h"
#include "testhost.h"

namespace {

using ox::Owned;

std::string text(const OXU8String* s) { return s ? std::string(s->stg, s->len) : "<absent>"; }

constexpr std::string_view kDurationMessage =
    "The requested DurationSeconds exceeds the MaxSessionDuration set for this role.";

class S3ErrorTest : public ::testing::Test {
protected:
    oxtest::ParserHost host;
    oxtest::TestPool pool;

    OXS3Extension* ext() { return host.ext(); }

    OXU8String* string(std::optional<std::string_view> s) {
        OXU8String* out = nullptr;
        if (s) ext()->oxstring->createU8(ext()->oxstring, pool, s->data(), s->size(), OX_STR_COPY, &out);
        return out;
    }

    Owned<OXS3Error> error(std::optional<std::string_view> code, std::optional<std::string_view> message) {
        Owned<OXS3Error> e;
        EXPECT_EQ(s3::createS3Error(pool, e.out()), OX_OK);
        e->code = string(code);
        e->message = string(message);
        return e;
    }
};

TEST_F(S3ErrorTest, CodesAndRefiningMessagesMapToStatuses) {
    struct Case {
        std::optional<std::string_view> code, message;
        OXStatus status;
    };
    const Case cases[] = {
        {"AccessDenied", "Access Denied", OXS3_ACCESS_DENIED},
        {"AccessDenied",
         "User: arn:aws:iam::123456789012:user/alice is not authorized to perform: s3:ListBucket on resource: "
         "arn:aws:s3:::b",
         OXS3_IDENTITY_NOT_AUTHORIZED},
        {"AccessDenied", "Denied: User: x is not authorized to perform: y", OXS3_ACCESS_DENIED},
        {"InvalidRequest", "The provided encryption parameters did not match the ones used originally.",
         OXS3_ENCRYPTION_PARAMETERS_MISMATCH},
        {"InvalidRequest", std::nullopt, OXS3_INVALID_REQUEST},
        {"InvalidArgument", "x-amz-server-side-encryption header is not supported for this operation.",
         OXS3_SSE_HEADER_NOT_SUPPORTED},
        {"InvalidArgument", "Invalid argument.", OXS3_INVALID_ARGUMENT},
        {"ValidationError", kDurationMessage, OXS3_DURATION_EXCEEDS_MAX_SESSION},
        {"ValidationError", std::nullopt, OXS3_VALIDATION_ERROR},
        {"noSuchKey", std::nullopt, OX_FAILED},
        {"", std::nullopt, OX_FAILED},
        {std::nullopt, "A message without a code", OX_INVALID_ARGUMENT},
    };
    for (const Case& c : cases)
        EXPECT_EQ(s3::statusForS3Error(error(c.code, c.message).get()), c.status)
            << c.code.value_or("<no code>") << " / " << c.message.value_or("<no message>");
}

TEST_F(S3ErrorTest, EveryCodeStatusHasItsCodeAsTextAndMapsBackToIt) {
    ASSERT_EQ(s3::registerMessages(), OX_OK);
    std::vector<OXStatus> statuses;
    for (uint32_t v = 0x8abfc808; v <= 0x8abfc855; ++v) statuses.push_back(static_cast<OXStatus>(v));
    for (OXStatus later : {OXS3_KMS_NOT_FOUND, OXS3_X_AMZ_CONTENT_SHA256_MISMATCH, OXS3_VALIDATION_ERROR,
                           OXS3_ILLEGAL_LOCATION_CONSTRAINT_EXCEPTION, OXS3_INVALID_CLIENT_TOKEN_ID,
                           OXS3_AUTHORIZATION_HEADER_MALFORMED})
        statuses.push_back(later);
    for (OXStatus status : statuses) {
        const char* code = oxMessageText(status);
        ASSERT_NE(code, nullptr) << std::hex << status;
        EXPECT_EQ(s3::statusForS3Error(error(code, std::nullopt).get()), status) << code;
    }
    for (OXStatus refined : {OXS3_ENCRYPTION_PARAMETERS_MISMATCH, OXS3_SSE_HEADER_NOT_SUPPORTED,
                             OXS3_ENCRYPTION_NOT_APPLICABLE, OXS3_SOAP_REQUIRES_HTTPS, OXS3_IDENTITY_NOT_AUTHORIZED,
                             OXS3_DURATION_EXCEEDS_MAX_SESSION})
        EXPECT_NE(oxMessageText(refined), nullptr) << std::hex << refined;
    s3::unregisterMessages();
}

TEST_F(S3ErrorTest, RowsWithTerminatedTextsAreMeasuredWhenCompared) {
    constexpr s3::S3Error table[] = {
        {"Short", s3::kTerminatedName, OXS3_SLOW_DOWN},
        {"Other", s3::kTerminatedName - 1, OXS3_REDIRECT},
        {nullptr, 0, OX_FAILED},
        {"After", 5, OXS3_NO_SUCH_KEY},
    };
    EXPECT_EQ(s3::findErrorByName(table, error("Other", std::nullopt).get(), false), OXS3_REDIRECT);
    EXPECT_EQ(s3::findErrorByName(table, error("x", "Short").get(), true), OXS3_SLOW_DOWN);
    EXPECT_EQ(s3::findErrorByName(table, error("Shor", std::nullopt).get(), false), OX_FAILED);
    EXPECT_EQ(s3::findErrorByName(table, error("After", std::nullopt).get(), false), OX_FAILED) << "past the end row";
    EXPECT_EQ(s3::findErrorByName(table, error("Short", std::nullopt).get(), true), OX_FAILED) << "no message";
}

constexpr std::string_view kNoSuchKey = R"(<?xml version="1.0" encoding="UTF-8"?>
<Error><Code>NoSuchKey</Code><Message>The specified key does not exist.</Message><Key>photos/a.jpg</Key><RequestId>tx000001</RequestId><HostId>zone-a</HostId></Error>)";

TEST_F(S3ErrorTest, AnErrorAnswerGivesTheStatusToReturnAndTheTextToKeep) {
    struct Case {
        const char* name;
        std::string_view contentType;
        HTTPStatus http;
        std::string_view body;
        OXStatus status;
        s3::ErrorText text;
        std::string message;
    };
    using s3::ErrorText;
    const Case cases[] = {
        {"S3CodeFromXml", "application/xml", {OX_HTTP_NOT_FOUND, 404, "Not Found"}, kNoSuchKey, OXS3_NO_SUCH_KEY,
         ErrorText::document, "The specified key does not exist."},
        {"ValidationError", "text/xml", {OX_HTTP_BAD_REQUEST, 400, "Bad Request"},
         "<ErrorResponse><Error><Code>ValidationError</Code><Message>bad</Message></Error></ErrorResponse>",
         OXS3_VALIDATION_ERROR, ErrorText::document, "bad"},
        {"UnknownCode", "application/xml", {OX_HTTP_BAD_REQUEST, 400, "Bad Request"},
         "<Error><Code>Mystery</Code><Message>?</Message></Error>", OX_FAILED, ErrorText::document, "?"},
        {"ParametersMakeItNotXml", "application/xml; charset=utf-8", {OX_HTTP_NOT_FOUND, 404, "Not Found"}, kNoSuchKey,
         OX_HTTP_NOT_FOUND, ErrorText::body, "<absent>"},
        {"Html", "text/html", {OX_HTTP_BAD_GATEWAY, 502, "Bad Gateway"}, "<html>upstream down</html>",
         OX_HTTP_BAD_GATEWAY, ErrorText::body, "<absent>"},
        {"MalformedXml", "application/xml", {OX_HTTP_FORBIDDEN, 403, "Forbidden"}, "<Error><Code>AccessDenied</Code>",
         OX_OK, ErrorText::keep, "<absent>"},
        {"XmlWithoutError", "application/xml", {OX_HTTP_FORBIDDEN, 403, "Forbidden"}, "<Other>x</Other>", OX_OK,
         ErrorText::keep, "<absent>"},
        {"Forbidden", "application/xml", {OX_HTTP_FORBIDDEN, 403, "Forbidden"}, "", OX_HTTP_FORBIDDEN, ErrorText::body,
         "<absent>"},
    };
    for (const Case& c : cases) {
        s3::ErrorReply reply = s3::interpretErrorResponse(ext(), pool, c.contentType, c.http, c.body);
        EXPECT_EQ(reply.status, c.status) << c.name;
        EXPECT_EQ(reply.text, c.text) << c.name;
        EXPECT_EQ(text(reply.message.get()), c.message) << c.name;
    }
}

// A connection record with just what the error mapping touches, answering with a scripted
// Content-Type.
class ConnectionErrorTest : public S3ErrorTest {
protected:
    OXS3ConnectionStruct connection{};
    HTConnection_S http{};
    static inline std::string_view contentType;

    void SetUp() override {
        connection.pool = pool;
        connection.oxs3 = ext();
        http.getResponseHeader = header;
        ASSERT_EQ(s3::setErrorMessage(&connection, "an earlier error", 16), OX_OK);
    }
    void TearDown() override { s3::resetErrorMessage(&connection); }

    static OXStatus header(HTConnection, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr* value, UTF8ByteLength* valueL) {
        if (contentType.empty() || std::string_view(name, nameL) != "Content-Type") return OX_NOT_FOUND;
        *value = contentType.data();
        *valueL = contentType.size();
        return OX_OK;
    }

    OXStatus answer(std::string_view type, OXStatus httpStatus, std::string_view body) {
        contentType = type;
        const HTTPStatus status{httpStatus, 0, ""};
        return s3::s3ErrorResponse(&connection, &http, status, body.empty() ? nullptr : body.data(), body.size());
    }
};

TEST_F(ConnectionErrorTest, TheConnectionKeepsTheTextOfTheLatestFailure) {
    struct Case {
        std::string_view contentType;
        OXStatus httpStatus;
        std::string_view body;
        OXStatus status;
        std::string errorMessage;
    };
    const Case cases[] = {
        {"application/xml", OX_HTTP_NOT_FOUND, kNoSuchKey, OXS3_NO_SUCH_KEY, "The specified key does not exist."},
        {"application/xml", OX_HTTP_UNAVAILABLE, "<Error><Code>SlowDown</Code></Error>", OXS3_SLOW_DOWN, "<absent>"},
        {"text/plain", OX_HTTP_BAD_GATEWAY, "upstream unavailable", OX_HTTP_BAD_GATEWAY, "upstream unavailable"},
        {"application/xml", OX_HTTP_FORBIDDEN, "<Error><Code>", OX_OK, "an earlier error"},
        {"", OX_HTTP_FORBIDDEN, "", OX_HTTP_FORBIDDEN, ""},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(s3::setErrorMessage(&connection, "an earlier error", 16), OX_OK);
        EXPECT_EQ(answer(c.contentType, c.httpStatus, c.body), c.status) << c.body;
        EXPECT_EQ(text(connection.errorMessage), c.errorMessage) << c.body;
    }
}

}  // namespace
