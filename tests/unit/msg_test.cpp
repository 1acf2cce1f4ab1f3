// The message catalogue: a sentence for every host status, module tables, formatting.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ox/msg.h"
#include "ox/status.h"

namespace {

constexpr OXStatus kHostStatuses[] = {
    OX_OK, OX_NO_MEMORY, OX_INVALID_ARGUMENT, OX_CANNOT_POSITION, OX_FAILED, OX_NOT_FOUND, OX_NOT_SUPPORTED,
    OX_TIMED_OUT, OX_END_OF_DATA, OX_SERVICE_MISSING, OX_WRONG_TYPE, OX_FILE_NOT_FOUND, OX_FILE_ACCESS_DENIED,
    OX_FILE_IO_ERROR, OX_FILE_IS_DIRECTORY, OX_FILE_NOT_OPEN, OX_BAD_UTF8, OX_BAD_CODE_POINT,
    OX_XML_MALFORMED, OX_XML_STOPPED, OX_JSON_MALFORMED, OX_JSON_TOO_DEEP, OX_BASE64_MALFORMED,
    OX_BUFFER_TOO_SMALL, OX_SOCKET_FAILED, OX_SOCKET_TIMED_OUT, OX_TLS_RECORD_FAILED, OX_HTTP_ALREADY_OPEN,
    OX_HTTP_WRONG_STATE, OX_HTTP_BAD_REQUEST_TEXT, OX_HTTP_BODY_OVERRUN, OX_HTTP_CONNECTION_RESET,
    OX_HTTP_RESPONSE_TRUNCATED, OX_HTTP_PEER_CLOSED, OX_HTTP_MALFORMED_RESPONSE, OX_HTTP_HEAD_TOO_LARGE,
    OX_HTTP_BAD_CHUNK, OX_HTTP_BAD_CONTENT_LENGTH, OX_HTTP_CONTINUE, OX_HTTP_OK, OX_HTTP_CREATED,
    OX_HTTP_ACCEPTED, OX_HTTP_NON_AUTHORITATIVE, OX_HTTP_OTHER_SUCCESS, OX_HTTP_RESET_CONTENT,
    OX_HTTP_PARTIAL_CONTENT, OX_HTTP_REDIRECT, OX_HTTP_MOVED_PERMANENTLY, OX_HTTP_FOUND, OX_HTTP_SEE_OTHER,
    OX_HTTP_NOT_MODIFIED, OX_HTTP_TEMPORARY_REDIRECT, OX_HTTP_PERMANENT_REDIRECT, OX_HTTP_BAD_REQUEST,
    OX_HTTP_UNAUTHORIZED, OX_HTTP_FORBIDDEN, OX_HTTP_NOT_FOUND, OX_HTTP_METHOD_NOT_ALLOWED,
    OX_HTTP_NOT_ACCEPTABLE, OX_HTTP_PROXY_AUTH_REQUIRED, OX_HTTP_REQUEST_TIMEOUT, OX_HTTP_CONFLICT,
    OX_HTTP_GONE, OX_HTTP_LENGTH_REQUIRED, OX_HTTP_PRECONDITION_FAILED, OX_HTTP_PAYLOAD_TOO_LARGE,
    OX_HTTP_URI_TOO_LONG, OX_HTTP_UNSUPPORTED_MEDIA, OX_HTTP_RANGE_NOT_SATISFIABLE,
    OX_HTTP_EXPECTATION_FAILED, OX_HTTP_TOO_MANY_REQUESTS, OX_HTTP_CLIENT_ERROR, OX_HTTP_SERVER_ERROR,
    OX_HTTP_NOT_IMPLEMENTED, OX_HTTP_BAD_GATEWAY, OX_HTTP_UNAVAILABLE, OX_HTTP_SERVER_ERROR_NO_BODY,
    OX_HTTP_UNAVAILABLE_NO_BODY, OX_HTTP_GATEWAY_TIMEOUT, OX_HTTP_VERSION_NOT_SUPPORTED,
    OX_HTTP_HOST_NOT_FOUND, OX_HTTP_TUNNEL_REFUSED, OX_HTTP_CONNECT_FAILED, OX_HTTP_ABORTED,
    OX_TLS_HANDSHAKE_FAILED, OX_TLS_CERT_UNTRUSTED, OX_TLS_HOST_MISMATCH, OX_TLS_BAD_OPTIONS,
    OX_DATE_NOT_IN_FORM, OX_CONFIG_BAD_LINE, OX_CONFIG_BAD_SECTION,
};

std::string formatted(OXStatus number) {
    char buf[512];
    oxMessageFormat(number, buf, sizeof buf);
    return buf;
}

// A sentence: starts with a capital, ends with a full stop, and says more than a word or two.
::testing::AssertionResult isSentence(const char* text) {
    if (!text) return ::testing::AssertionFailure() << "no text";
    std::string s(text);
    if (s.size() < 12 || !std::isupper(static_cast<unsigned char>(s.front())) || s.back() != '.')
        return ::testing::AssertionFailure() << "not a sentence: \"" << s << "\"";
    return ::testing::AssertionSuccess();
}

// Every "OX_S(0x...)" value written in status.h, so a status added there without a text fails.
std::vector<OXStatus> statusesDeclaredInHeader() {
    std::string here = __FILE__;
    std::string header = here.substr(0, here.rfind("tests/unit/")) + "host/include/ox/status.h";
    std::ifstream in(header);
    std::stringstream text;
    text << in.rdbuf();
    std::vector<OXStatus> found;
    static const std::regex value(R"(OX_S\((0x[0-9a-fA-F]+)\))");
    std::string body = text.str();
    for (auto it = std::sregex_iterator(body.begin(), body.end(), value); it != std::sregex_iterator(); ++it)
        found.push_back(static_cast<OXStatus>(std::stoul((*it)[1].str(), nullptr, 16)));
    return found;
}

TEST(MessageCatalogue, EveryHostStatusHasASentence) {
    for (OXStatus s : kHostStatuses) EXPECT_TRUE(isSentence(oxMessageText(s))) << std::hex << static_cast<uint32_t>(s);
}

TEST(MessageCatalogue, EveryStatusInTheHeaderHasASentence) {
    std::vector<OXStatus> declared = statusesDeclaredInHeader();
    ASSERT_GE(declared.size(), std::size(kHostStatuses) - 1) << "status.h not found next to the tests";
    for (OXStatus s : declared) EXPECT_TRUE(isSentence(oxMessageText(s))) << std::hex << static_cast<uint32_t>(s);
}

TEST(MessageCatalogue, TextsAreDistinct) {
    for (size_t i = 0; i < std::size(kHostStatuses); ++i)
        for (size_t j = i + 1; j < std::size(kHostStatuses); ++j)
            EXPECT_STRNE(oxMessageText(kHostStatuses[i]), oxMessageText(kHostStatuses[j]));
}

TEST(MessageCatalogue, UnknownNumberHasNoText) { EXPECT_EQ(oxMessageText(static_cast<OXStatus>(0x8abf0001)), nullptr); }

TEST(MessageFormat, KnownStatusGivesSentenceAndNumber) {
    EXPECT_EQ(formatted(OX_NOT_FOUND), std::string(oxMessageText(OX_NOT_FOUND)) + " (0x803fc00a)");
}

TEST(MessageFormat, UnknownStatusGivesItsNumber) {
    EXPECT_EQ(formatted(static_cast<OXStatus>(0x8abfc801)), "Unknown status 0x8abfc801");
    EXPECT_EQ(formatted(static_cast<OXStatus>(7)), "Unknown status 0x00000007");
}

TEST(MessageFormat, ShortBufferIsTerminatedAndNeededLengthReturned) {
    char buf[8];
    size_t needed = oxMessageFormat(static_cast<OXStatus>(0x8abfc801), buf, sizeof buf);
    EXPECT_EQ(needed, std::string("Unknown status 0x8abfc801").size());
    EXPECT_STREQ(buf, "Unknown");
    EXPECT_EQ(oxMessageFormat(OX_NOT_FOUND, nullptr, 0), formatted(OX_NOT_FOUND).size());
}

class ModuleMessages : public ::testing::Test {
protected:
    static constexpr OXMessage kTable[] = {
        {static_cast<OXStatus>(0x8abfc801), "The region is not known."},
        {static_cast<OXStatus>(0x8abfc805), "The path does not begin with a slash."},
    };
    void TearDown() override { oxMessageUnregister(kTable); }
};

TEST_F(ModuleMessages, RegisteredTableGivesItsTexts) {
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
    EXPECT_STREQ(oxMessageText(static_cast<OXStatus>(0x8abfc805)), "The path does not begin with a slash.");
    EXPECT_EQ(formatted(static_cast<OXStatus>(0x8abfc801)), "The region is not known. (0x8abfc801)");
}

TEST_F(ModuleMessages, UnregisteredTableIsForgotten) {
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
    oxMessageUnregister(kTable);
    EXPECT_EQ(oxMessageText(static_cast<OXStatus>(0x8abfc801)), nullptr);
}

TEST_F(ModuleMessages, RegisteringTwiceNeedsOneUnregister) {
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
    oxMessageUnregister(kTable);
    EXPECT_EQ(oxMessageText(static_cast<OXStatus>(0x8abfc801)), nullptr);
}

TEST_F(ModuleMessages, HostTextsCannotBeOverridden) {
    static constexpr OXMessage kOverride[] = {{OX_NOT_FOUND, "Something else."}};
    ASSERT_EQ(oxMessageRegister(kOverride, 1), OX_OK);
    EXPECT_STRNE(oxMessageText(OX_NOT_FOUND), "Something else.");
    oxMessageUnregister(kOverride);
}

TEST_F(ModuleMessages, NullTableWithEntriesIsRejected) { EXPECT_EQ(oxMessageRegister(nullptr, 3), OX_INVALID_ARGUMENT); }

TEST_F(ModuleMessages, LookupsStaySafeWhileTablesComeAndGo) {
    std::atomic<bool> stop{false};
    std::atomic<int> wrongTexts{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back([&] {
            while (!stop.load()) {
                const char* text = oxMessageText(static_cast<OXStatus>(0x8abfc801));
                if (text && std::string(text) != kTable[0].text) ++wrongTexts;
                if (!oxMessageText(OX_NO_MEMORY)) ++wrongTexts;
            }
        });
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
        oxMessageUnregister(kTable);
    }
    stop = true;
    for (auto& t : readers) t.join();
    EXPECT_EQ(wrongTexts.load(), 0);
}

}  // namespace
