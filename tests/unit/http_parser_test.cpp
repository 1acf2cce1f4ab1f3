// The response parser on its own, fed bytes directly: heads, framing decisions, and the chunk
// decoder split at every possible point.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "http_parser.h"

namespace {

using namespace ox::http;

OXStatus parse(std::string_view text, ResponseHead& head, bool requestWasHead = false) {
    size_t end = findHeadEnd(text);
    return end ? parseResponseHead(text.substr(0, end), requestWasHead, head) : OX_HTTP_RESPONSE_TRUNCATED;
}

TEST(HttpHead, FindsTheBlankLineWithOrWithoutCarriageReturns) {
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\n\r\nbody"), 19u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\n\nbody"), 17u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\nA: b\r\n"), 0u);
    EXPECT_EQ(findHeadEnd("HTTP/1.1 200 OK\r\n\r"), 0u);
}

TEST(HttpHead, DecidesStatusFramingLengthAndWhetherTheConnectionCloses) {
    constexpr auto N = Framing::None, L = Framing::Length, C = Framing::Chunked, U = Framing::UntilClose;
    const struct {
        std::string_view text;
        bool requestWasHead;
        int code;
        Framing framing;
        uint64_t length;
        bool close;
    } cases[] = {
        {"HTTP/1.1 206 Partial Content\r\nContent-Length: 10\r\nContent-Range: bytes 0-9/100\r\n\r\n", false, 206,
         L, 10, false},
        {"HTTP/1.1 200\r\nContent-Length: 1\r\n\r\n", false, 200, L, 1, false},
        {"HTTP/1.1 200 \nContent-Length: 1\n\n", false, 200, L, 1, false},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n", false, 200, C, 0, false},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked, gzip\r\n\r\n", false, 200, U, 0, true},
        {"HTTP/1.1 200 OK\r\n\r\n", false, 200, U, 0, true},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", false, 200, N, 0, false},
        {"HTTP/1.1 204 No Content\r\nContent-Length: 9\r\n\r\n", false, 204, N, 9, false},
        {"HTTP/1.1 304 Not Modified\r\n\r\n", false, 304, N, 0, false},
        {"HTTP/1.1 100 Continue\r\n\r\n", false, 100, N, 0, false},
        {"HTTP/1.1 200 OK\r\nContent-Length: 77\r\n\r\n", true, 200, N, 77, false},
        {"HTTP/1.1 200 OK\r\nConnection: keep-alive, Close\r\nContent-Length: 1\r\n\r\n", false, 200, L, 1, true},
        {"HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\n", false, 200, L, 1, true},
        {"HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 1\r\n\r\n", false, 200, L, 1, false},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n", false, 200, C, 5, true},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5, 5\r\nContent-Length: 5\r\n\r\n", false, 200, L, 5, false},
    };
    for (const auto& k : cases) {
        ResponseHead h;
        ASSERT_EQ(parse(k.text, h, k.requestWasHead), OX_OK) << k.text;
        EXPECT_EQ(h.code, k.code) << k.text;
        EXPECT_EQ(h.framing, k.framing) << k.text;
        EXPECT_EQ(h.contentLength, k.length) << k.text;
        EXPECT_EQ(h.close, k.close) << k.text;
    }
}

TEST(HttpHead, RefusesMalformedHeadsLengthsAndTooManyFields) {
    const std::pair<std::string_view, OXStatus> cases[] = {
        {"HTTP/1.1 20 OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 600 Nope\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"ICY 200 OK\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 O\x01K\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\n: empty-name\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nName : v\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nX: a\x7f\r\n\r\n", OX_HTTP_MALFORMED_RESPONSE},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5, 6\r\n\r\n", OX_HTTP_BAD_CONTENT_LENGTH},
        {"HTTP/1.1 200 OK\r\nContent-Length: 1e3\r\n\r\n", OX_HTTP_BAD_CONTENT_LENGTH},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9999999999999999999\r\n\r\n", OX_HTTP_BAD_CONTENT_LENGTH},
    };
    for (const auto& [text, expected] : cases) {
        ResponseHead h;
        EXPECT_EQ(parse(text, h), expected) << text;
    }
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (size_t i = 0; i < kMaxHeaderFields; ++i) text += "F: v\r\n";
    ResponseHead h;
    EXPECT_EQ(parse(text + "\r\n", h), OX_OK);
    EXPECT_EQ(parse(text + "G: w\r\n\r\n", h), OX_HTTP_HEAD_TOO_LARGE);
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
    while (d.consumed < body.size() && !dec.done()) {
        std::string_view window = body.substr(d.consumed, piece);
        size_t used = 0;
        if (dec.inData()) {
            used = std::min<uint64_t>(window.size(), dec.dataLeft());
            d.data.append(window.substr(0, used));
            dec.tookData(used);
        } else if ((d.status = dec.consume(window, used)) != OX_OK) {
            return d;
        }
        d.consumed += used;
    }
    d.done = dec.done();
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
    auto bare = decode("3\nabc\n0\n\n", 100);
    EXPECT_TRUE(bare.status == OX_OK && bare.done && bare.data == "abc") << "bare line feeds";
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
