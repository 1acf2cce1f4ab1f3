// Helpers for tests of the web client's HTTP connections: connections, header dictionaries and
// TLS option sets that release themselves, whole exchanges in one call, and fixtures.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "faultserver.h"
#include "ox/dictionary.h"
#include "ox/htconnection.h"
#include "ox/secsocket.h"
#include "ox/webclient.h"
#include "testhost.h"

namespace oxtest {

struct Release {
    void operator()(HTConnection_S* c) const { c->instance.destroy(c); }
    void operator()(SSLOptions_S* o) const { o->destroy(o); }
    void operator()(OXDictionary_S* d) const { d->instance.destroy(d); }
};
using HttpConnection = std::unique_ptr<HTConnection_S, Release>;
using TlsOptions = std::unique_ptr<SSLOptions_S, Release>;
using Headers = std::unique_ptr<OXDictionary_S, Release>;
using Fields = std::vector<std::pair<std::string_view, std::string_view>>;

struct HttpResponse {
    OXStatus sendStatus = OX_OK;
    OXStatus readStatus = OX_OK;
    OXStatus bodyStatus = OX_OK;
    HTTPStatus status{};
    std::string body;
};

// Sends a request head; length bytes of body are to follow through sendData (-1: none).
inline OXStatus sendHead(HTConnection c, HTTPMethod method, std::string_view path, int64_t length = -1,
                         bool expectContinue = false, OXDictionary headers = nullptr) {
    return c->sendRequest(c, method, path.data(), path.size(), nullptr, 0, headers, length, nullptr, 0,
                          expectContinue ? OX_TRUE : OX_FALSE);
}

// Sends a GET without body and reads the answer's head.
inline OXStatus getHead(HTConnection c, std::string_view path, HTTPStatus* st, OXDictionary headers = nullptr) {
    OXStatus s = sendHead(c, httpGet, path, -1, false, headers);
    return s == OX_OK ? c->readResponse(c, st) : s;
}

// The whole body through readInto in pieces of at most piece bytes; the last status in *st.
inline std::string readAllInto(HTConnection c, size_t piece, OXStatus* st) {
    std::string body, buf(piece, '\0');
    OXStatus s;
    do {
        OXMemSize got = 0;
        s = c->readInto(c, buf.data(), buf.size(), &got);
        if (s == OX_OK || s == OX_END_OF_DATA) body.append(buf.data(), got);
    } while (s == OX_OK);
    *st = s;
    return body;
}

// The whole body through readData; an empty body reads as OX_END_OF_DATA.
inline std::string readAllData(HTConnection c, OXStatus* st) {
    void* data = nullptr;
    OXMemSize len = 0;
    *st = c->readData(c, c->pool, &data, &len);
    std::string body(static_cast<const char*>(data ? data : ""), len);
    if (data) c->pool->memFree(c->pool, data);
    return body;
}

// Sends a request (with an optional small body) and reads the answer and its whole body.
inline HttpResponse exchange(HTConnection c, HTTPMethod method, std::string_view path, OXDictionary headers = nullptr,
                             std::string_view body = {}, std::string_view query = {}) {
    HttpResponse r;
    r.sendStatus = c->sendRequest(c, method, path.data(), path.size(), query.data(), query.size(), headers, -1,
                                  body.empty() ? nullptr : body.data(), body.size(), OX_FALSE);
    if (r.sendStatus == OX_OK && (r.readStatus = c->readResponse(c, &r.status)) == OX_OK)
        r.body = readAllData(c, &r.bodyStatus);
    return r;
}

inline std::string responseHeader(HTConnection c, std::string_view name) {
    UTF8CStr value = nullptr;
    UTF8ByteLength len = 0;
    if (c->getResponseHeader(c, name.data(), name.size(), &value, &len) != OX_OK) return "<none>";
    return std::string(value, len);
}

// The index of the first byte that differs from patternByte(first + i), or npos.
inline size_t patternMismatch(std::string_view data, uint64_t first = 0) {
    for (size_t i = 0; i < data.size(); ++i)
        if (data[i] != patternByte(first + i)) return i;
    return std::string_view::npos;
}

// A fixture with the web client, the dictionary and secure-socket services and a leak-checked pool.
class HttpTest : public ::testing::Test {
protected:
    Service<OXWebClient_S> web{"webclient"};
    Service<OXDictionaryExt_S> dictionaries{"oxdictionary"};
    Service<OXSecSocket_S> secsocket{"secsocket"};
    TestPool pool;

    void SetUp() override { ASSERT_TRUE(web && dictionaries && secsocket) << "host services missing"; }

    HttpConnection connect(const std::string& host, uint16_t port, bool tls = false, SSLOptions_S* opts = nullptr) {
        HTConnection_S* c = nullptr;
        const OXBoolean secure = tls ? OX_TRUE : OX_FALSE;
        EXPECT_EQ(web->createConnection(web.get(), pool, host.c_str(), port, secure, opts, &c), OX_OK);
        if (c) c->timeout = 10000;
        return HttpConnection(c);
    }
    Headers headers(const Fields& fields) {
        OXDictionary d = nullptr;
        EXPECT_EQ(dictionaries->create(dictionaries.get(), pool, 0, &d), OX_OK);
        for (auto [name, value] : fields)
            EXPECT_EQ(d->setU8ValueU8(d, name.data(), name.size(), value.data(), value.size()), OX_OK);
        return Headers(d);
    }
    TlsOptions tlsOptions(const Fields& values) {
        SSLOptions_S* o = nullptr;
        EXPECT_EQ(secsocket->createOptions(secsocket.get(), pool, &o), OX_OK);
        for (auto [name, value] : values)
            EXPECT_EQ(o->setOptionU8(o, name.data(), name.size(), value.data(), value.size()), OX_OK) << name;
        return TlsOptions(o);
    }
};

// An HttpTest with a loopback fault server and one plain connection to it.
class FaultServerTest : public HttpTest {
protected:
    FaultServer server;
    HttpConnection conn;

    void SetUp() override {
        HttpTest::SetUp();
        ASSERT_TRUE(server) << server.error();
        conn = connect("127.0.0.1", server.port());
        ASSERT_TRUE(conn);
    }
    HTConnection c() const { return conn.get(); }

    // Queues the reply and answers the status of its head, or of reading it.
    OXStatus headStatus(const FaultReply& reply) {
        server.push(reply);
        HTTPStatus st{};
        OXStatus s = getHead(c(), "/", &st);
        return s == OX_OK ? st.message : s;
    }
    // The next exchange works, whatever happened to the socket before.
    void expectFreshStart() {
        server.push(FaultReply::ok("recovered"));
        EXPECT_EQ(exchange(c(), httpGet, "/").body, "recovered");
    }
};

// A reply of these bytes as they are, closing the connection after them unless told not to.
inline FaultReply rawReply(std::string bytes, bool closeAfter = true) {
    FaultReply r;
    r.bytes = std::move(bytes);
    r.closeAfter = closeAfter;
    return r;
}

}  // namespace oxtest
