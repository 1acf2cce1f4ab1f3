// Helpers for tests of the web client's HTTP connections: connections, header dictionaries and
// TLS option sets that release themselves, and whole exchanges in one call.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ox/dictionary.h"
#include "ox/htconnection.h"
#include "ox/secsocket.h"
#include "ox/webclient.h"
#include "testhost.h"

namespace oxtest {

struct ConnectionRelease {
    void operator()(HTConnection_S* c) const {
        if (c) c->instance.destroy(c);
    }
};
using HttpConnection = std::unique_ptr<HTConnection_S, ConnectionRelease>;

struct OptionsRelease {
    void operator()(SSLOptions_S* o) const {
        if (o) o->destroy(o);
    }
};
using TlsOptions = std::unique_ptr<SSLOptions_S, OptionsRelease>;

struct DictionaryRelease {
    void operator()(OXDictionary_S* d) const {
        if (d) d->instance.destroy(d);
    }
};
using Headers = std::unique_ptr<OXDictionary_S, DictionaryRelease>;

struct HttpResponse {
    OXStatus sendStatus = OX_OK;
    OXStatus readStatus = OX_OK;
    OXStatus bodyStatus = OX_OK;
    HTTPStatus status{};
    std::string body;
};

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
    if (r.sendStatus != OX_OK) return r;
    r.readStatus = c->readResponse(c, &r.status);
    if (r.readStatus != OX_OK) return r;
    r.body = readAllData(c, &r.bodyStatus);
    return r;
}

inline std::string responseHeader(HTConnection c, std::string_view name) {
    UTF8CStr value = nullptr;
    UTF8ByteLength len = 0;
    if (c->getResponseHeader(c, name.data(), name.size(), &value, &len) != OX_OK) return "<none>";
    return std::string(value, len);
}

// A fixture with the web client, the dictionary and secure-socket services and a leak-checked pool.
class HttpTest : public ::testing::Test {
protected:
    Service<OXWebClient_S> web{"webclient"};
    Service<OXDictionaryExt_S> dictionaries{"oxdictionary"};
    Service<OXSecSocket_S> secsocket{"secsocket"};
    TestPool pool;

    void SetUp() override {
        ASSERT_TRUE(web && dictionaries && secsocket) << "host services missing";
    }

    HttpConnection connect(const std::string& host, uint16_t port, bool tls = false, SSLOptions_S* opts = nullptr) {
        HTConnection_S* c = nullptr;
        OXStatus st = web->createConnection(web.get(), pool, host.c_str(), port, tls ? OX_TRUE : OX_FALSE, opts, &c);
        EXPECT_EQ(st, OX_OK);
        if (c) c->timeout = 10000;
        return HttpConnection(c);
    }

    Headers headers(std::initializer_list<std::pair<std::string_view, std::string_view>> fields) {
        OXDictionary d = nullptr;
        EXPECT_EQ(dictionaries->create(dictionaries.get(), pool, 0, &d), OX_OK);
        for (auto [name, value] : fields)
            EXPECT_EQ(d->setU8ValueU8(d, name.data(), name.size(), value.data(), value.size()), OX_OK);
        return Headers(d);
    }

    TlsOptions tlsOptions(std::initializer_list<std::pair<std::string_view, std::string_view>> values) {
        SSLOptions_S* o = nullptr;
        EXPECT_EQ(secsocket->createOptions(secsocket.get(), pool, &o), OX_OK);
        for (auto [name, value] : values)
            EXPECT_EQ(o->setOptionU8(o, name.data(), name.size(), value.data(), value.size()), OX_OK) << name;
        return TlsOptions(o);
    }
};

}  // namespace oxtest
