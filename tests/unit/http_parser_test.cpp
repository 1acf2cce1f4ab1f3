// The response parser on its own, fed bytes directly: heads, framing decisions, and the chunk
// decoder split at every possible point.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "http_parser.h"

namespace {

using namespace ox::http;

struct Parsed {
    OXStatus status;
    ResponseHead head;
};

Parsed parse(std::string_view text, bool head = false) {
    Parsed p{};
    size_t end = findHeadEnd(text);
    p.status = end ? parseResponseHead(text.substr(0, end), head, p.head) : OX_HTTP_RESPONSE_TRUNCATED;
    return p;
}

TEST(HttpHeadEnd, FindsTheBlankLineWithOrWithoutCarriageReturns) {
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\n\r\nbody"), 19u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\n\nbody"), 17u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\nA: b\r\n"), 0u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\n\r"), 0u);
}

TEST(HttpHead, ReadsStatusReasonAndFields) {
    auto p = parse("HTTP/1.1 206 Partial Content\r\nContent-Length: 10\r\nContent-Range: bytes 0-9/100\r\n\r\n");
    ASSERT_EQ(p.status, OX_OK);
    EXPECT_EQ(p.head.code, 206);
    EXPECT_EQ(p.head.reasonLen, 15u);
    EXPECT_EQ(p.head.fieldCount, 2u);
    EXPECT_EQ(p.head.framing, Framing::Length);
    EXPECT_EQ(p.head.contentLength, 10u);
    EXPECT_FALSE(p.head.close);
}

TEST(HttpHead, AcceptsAnEmptyReasonAndBareLineFeeds) {
    EXPECT_EQ(parse("HTTP/1.1 200\r\n\r\n").status, OX_OK);
    EXPECT_EQ(parse("HTTP/1.1 200 \r\n\r\n").status, OX_OK);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\nX: y\n\n").status, OX_OK);
}

TEST(HttpHead, FindsFieldsIgnoringCaseAndTrimsBlanks) {
    std::string text = "HTTP/1.1 200 OK\r\nx-AMZ-request-ID:\t abc \r\nEmpty:\r\n\r\n";
    auto p = parse(text);
    ASSERT_EQ(p.status, OX_OK);
    EXPECT_EQ(findField(text, p.head, "X-Amz-Request-Id").value_or("?"), "abc");
    EXPECT_EQ(findField(text, p.head, "empty").value_or("?"), "");
    EXPECT_FALSE(findField(text, p.head, "missing"));
}

TEST(HttpHead, DecidesTheFraming) {
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n").head.framing, Framing::Chunked);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked, gzip\r\n\r\n").head.framing, Framing::UntilClose);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\n\r\n").head.framing, Framing::UntilClose);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n").head.framing, Framing::None);
    EXPECT_EQ(parse("HTTP/1.1 204 No Content\r\nContent-Length: 9\r\n\r\n").head.framing, Framing::None);
    EXPECT_EQ(parse("HTTP/1.1 304 Not Modified\r\n\r\n").head.framing, Framing::None);
    EXPECT_EQ(parse("HTTP/1.1 100 Continue\r\n\r\n").head.framing, Framing::None);
    auto head = parse("HTTP/1.1 200 OK\r\nContent-Length: 77\r\n\r\n", true);
    EXPECT_EQ(head.head.framing, Framing::None);
    EXPECT_EQ(head.head.contentLength, 77u);
}

TEST(HttpHead, ClosesWhereTheStreamCannotBeTrusted) {
    EXPECT_TRUE(parse("HTTP/1.1 200 OK\r\nConnection: keep-alive, Close\r\nContent-Length: 1\r\n\r\n").head.close);
    EXPECT_TRUE(parse("HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\n").head.close);
    EXPECT_FALSE(parse("HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 1\r\n\r\n").head.close);
    EXPECT_TRUE(parse("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n").head.close);
    EXPECT_TRUE(parse("HTTP/1.1 200 OK\r\n\r\n").head.close);
}

TEST(HttpHead, AcceptsRepeatedEqualLengthsOnly) {
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 5, 5\r\nContent-Length: 5\r\n\r\n").status, OX_OK);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 5, 6\r\n\r\n").status, OX_HTTP_BAD_CONTENT_LENGTH);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 1e3\r\n\r\n").status, OX_HTTP_BAD_CONTENT_LENGTH);
    EXPECT_EQ(parse("HTTP/1.1 200 OK\r\nContent-Length: 9999999999999999999\r\n\r\n").status,
              OX_HTTP_BAD_CONTENT_LENGTH);
}

TEST(HttpHead, RefusesWhatIsNotAHead) {
    for (const char* bad : {"HTTP/1.1 20 OK\r\n\r\n", "HTTP/1.1 600 Nope\r\n\r\n", "ICY 200 OK\r\n\r\n",
                            "HTTP/1.1 200 O\x01K\r\n\r\n", "HTTP/1.1 200 OK\r\n: empty-name\r\n\r\n",
                            "HTTP/1.1 200 OK\r\nName : v\r\n\r\n", "HTTP/1.1 200 OK\r\nX: a\x7f\r\n\r\n"})
        EXPECT_EQ(parse(bad).status, OX_HTTP_MALFORMED_RESPONSE) << bad;
}

TEST(HttpHead, BoundsTheNumberOfFields) {
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (size_t i = 0; i < kMaxHeaderFields; ++i) text += "F: v\r\n";
    EXPECT_EQ(parse(text + "\r\n").status, OX_OK);
    EXPECT_EQ(parse(text + "G: w\r\n\r\n").status, OX_HTTP_HEAD_TOO_LARGE);
}

// Feeds the chunked body in pieces of the given size, taking data the way the connection does.
struct Decoded {
    OXStatus status = OX_OK;
    std::string data;
    bool done = false;
    size_t consumed = 0;
};

Decoded decode(std::string_view body, size_t piece) {
    Decoded d;
    ChunkDecoder dec;
    size_t pos = 0;
    while (pos < body.size() && !dec.done()) {
        std::string_view window = body.substr(pos, piece);
        if (dec.inData()) {
            size_t n = std::min<uint64_t>(window.size(), dec.dataLeft());
            d.data.append(window.substr(0, n));
            dec.tookData(n);
            pos += n;
            continue;
        }
        size_t used = 0;
        d.status = dec.consume(window, used);
        pos += used;
        if (d.status != OX_OK) return d;
    }
    d.done = dec.done();
    d.consumed = pos;
    return d;
}

TEST(HttpChunks, DecodesTheSameAtEverySplit) {
    const std::string body = "5;ext=\"a;b\"\r\nhello\r\nA\r\n, chunked!\r\n1 ; x\r\n \r\n0;last\r\nTrailer: t\r\n\r\nNEXT";
    for (size_t piece = 1; piece <= body.size(); ++piece) {
        auto d = decode(body, piece);
        ASSERT_EQ(d.status, OX_OK) << "piece " << piece;
        EXPECT_TRUE(d.done) << "piece " << piece;
        EXPECT_EQ(d.data, "hello, chunked! ") << "piece " << piece;
        EXPECT_EQ(d.consumed, body.size() - 4) << "stops before what follows the body";
    }
}

TEST(HttpChunks, AcceptsBareLineFeeds) {
    auto d = decode("3\nabc\n0\n\n", 100);
    EXPECT_EQ(d.status, OX_OK);
    EXPECT_TRUE(d.done);
    EXPECT_EQ(d.data, "abc");
}

TEST(HttpChunks, RefusesBadFraming) {
    EXPECT_EQ(decode("g\r\n", 10).status, OX_HTTP_BAD_CHUNK);
    EXPECT_EQ(decode(";ext\r\n", 10).status, OX_HTTP_BAD_CHUNK);
    EXPECT_EQ(decode("3\r\nabcX\r\n", 10).status, OX_HTTP_BAD_CHUNK);
    EXPECT_EQ(decode("1234567890abcdef0\r\n", 30).status, OX_HTTP_BAD_CHUNK);
    EXPECT_EQ(decode("1;" + std::string(kMaxChunkLine, 'e') + "\r\n", 10000).status, OX_HTTP_BAD_CHUNK);
    EXPECT_EQ(decode("0\r\n" + std::string(kMaxTrailerBytes + 1, 't'), 100000).status, OX_HTTP_HEAD_TOO_LARGE);
}

}  // namespace
