// The web client's read path measured: GiB/s of readInto for a large body from an in-process
// loopback server over plain TCP and over TLS, printed beside curl fetching the same body to
// /dev/null in the same run, with CPU seconds; then the latency of small GETs on one kept-alive
// connection to the local S3 server.
//
//   httpread_perf [--mib N] [--runs N] [--requests N] [--buffer KIB]
//
// The S3 part needs OXS3_TEST_ENV=DIR/env from scripts/s3server-start.sh DIR; without it that
// part is reported as not run.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "faultserver.h"
#include "httptest.h"
#include "publicbucket.h"
#include "s3env.h"
#include "testcert.h"

extern char** environ;

namespace {

struct Settings {
    uint64_t bodyBytes = 1ULL << 30;
    int runs = 3;
    int requests = 1000;
    size_t bufferBytes = 1 << 20;
};

struct Sample {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    bool ok = false;
};

double gibPerSecond(uint64_t bytes, const Sample& s) { return bytes / s.wallSeconds / (1ULL << 30); }

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

double seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }

// The web client and the services it needs, for the life of the program.
struct Client {
    oxtest::Service<OXWebClient_S> web{"webclient"};
    oxtest::Service<OXSecSocket_S> secsocket{"secsocket"};
    OX_POOL_S* pool = nullptr;

    Client() {
        OXPoolCreateParms parms{};
        pool = oxtest::host()->poolCreate(oxtest::host(), &parms, nullptr, "bench pool");
    }
    ~Client() { pool->generic.destroy(pool); }

    oxtest::HttpConnection connect(const std::string& host, uint16_t port, const std::string& caFile) {
        oxtest::TlsOptions opts;
        if (!caFile.empty()) {
            SSLOptions_S* o = nullptr;
            secsocket->createOptions(secsocket.get(), pool, &o);
            o->setOptionU8(o, OX_SSL_CAFILE, std::strlen(OX_SSL_CAFILE), caFile.data(), caFile.size());
            opts.reset(o);
        }
        HTConnection_S* c = nullptr;
        web->createConnection(web.get(), pool, host.c_str(), port, caFile.empty() ? OX_FALSE : OX_TRUE, opts.get(), &c);
        return oxtest::HttpConnection(c);
    }
};

Sample readWithClient(Client& client, const std::string& host, uint16_t port, const std::string& caFile,
                      uint64_t expected, size_t bufferBytes) {
    Sample s;
    std::vector<char> buf(bufferBytes);
    auto conn = client.connect(host, port, caFile);
    HTConnection c = conn.get();
    const double cpu0 = threadCpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    HTTPStatus st{};
    if (c->sendRequest(c, httpGet, "/", 1, nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE) != OX_OK ||
        c->readResponse(c, &st) != OX_OK || st.status != 200)
        return s;
    uint64_t total = 0;
    OXStatus rs;
    do {
        OXMemSize got = 0;
        rs = c->readInto(c, buf.data(), buf.size(), &got);
        total += got;
    } while (rs == OX_OK);
    s.wallSeconds = seconds(std::chrono::steady_clock::now() - t0);
    s.cpuSeconds = threadCpuSeconds() - cpu0;
    s.ok = rs == OX_END_OF_DATA && total == expected;
    return s;
}

Sample readWithCurl(const std::string& url, const std::string& caFile) {
    Sample s;
    std::vector<std::string> args = {"curl", "-s", "-f", "-o", "/dev/null"};
    if (!caFile.empty()) args.insert(args.end(), {"--cacert", caFile});
    args.push_back(url);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid;
    if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv.data(), environ) != 0) return s;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return s;
    s.wallSeconds = seconds(std::chrono::steady_clock::now() - t0);
    s.cpuSeconds = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec +
                   usage.ru_stime.tv_usec / 1e6;
    s.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return s;
}

// The run with the median wall time.
Sample median(std::vector<Sample> v) {
    std::sort(v.begin(), v.end(), [](const Sample& a, const Sample& b) { return a.wallSeconds < b.wallSeconds; });
    return v[v.size() / 2];
}

void printRow(const char* who, const char* scheme, uint64_t bytes, const Sample& s) {
    if (!s.ok) {
        std::printf("  %-18s %-6s  failed\n", who, scheme);
        return;
    }
    std::printf("  %-18s %-6s %7.2f GiB/s %8.2f s wall %8.2f s CPU\n", who, scheme, gibPerSecond(bytes, s),
                s.wallSeconds, s.cpuSeconds);
}

void throughput(Client& client, const Settings& set) {
    auto identity = oxtest::makeTestIdentity({"localhost"}, {"127.0.0.1"});
    oxtest::FaultServer plain;
    oxtest::FaultServer secure(identity);
    plain.setFallback(oxtest::FaultReply::generated(set.bodyBytes));
    secure.setFallback(oxtest::FaultReply::generated(set.bodyBytes));
    std::printf("loopback read of a %.2f GiB body, median of %d runs (client CPU: the reading thread; curl: the "
                "process)\n",
                set.bodyBytes / double(1ULL << 30), set.runs);
    struct Scheme {
        const char* name;
        uint16_t port;
        std::string caFile;
        std::string url;
    };
    const Scheme schemes[] = {
        {"plain", plain.port(), "", "http://127.0.0.1:" + std::to_string(plain.port()) + "/"},
        {"TLS", secure.port(), identity.caFile, "https://127.0.0.1:" + std::to_string(secure.port()) + "/"},
    };
    for (const Scheme& sc : schemes) {
        std::vector<Sample> ours, curls;
        for (int i = 0; i < set.runs; ++i) {
            ours.push_back(readWithClient(client, "127.0.0.1", sc.port, sc.caFile, set.bodyBytes, set.bufferBytes));
            curls.push_back(readWithCurl(sc.url, sc.caFile));
        }
        char who[64];
        std::snprintf(who, sizeof who, "readInto %zu KiB", set.bufferBytes / 1024);
        printRow(who, sc.name, set.bodyBytes, median(ours));
        printRow("curl", sc.name, set.bodyBytes, median(curls));
    }
}

struct Latency {
    double meanMs = 0, p50Ms = 0, p99Ms = 0;
    int failures = 0;
};

Latency smallGets(HTConnection c, const std::string& path, int count, bool newConnectionEach) {
    std::vector<double> ms;
    Latency l;
    char buf[oxtest::PublicBuckets::kPageSize];
    for (int i = 0; i < count; ++i) {
        if (newConnectionEach) c->close(c);
        const auto t0 = std::chrono::steady_clock::now();
        HTTPStatus st{};
        OXMemSize got = 0;
        bool ok = c->sendRequest(c, httpGet, path.data(), path.size(), nullptr, 0, nullptr, -1, nullptr, 0, OX_FALSE) ==
                      OX_OK &&
                  c->readResponse(c, &st) == OX_OK && st.status == 200 &&
                  c->readInto(c, buf, sizeof buf, &got) == OX_OK && got == sizeof buf;
        ms.push_back(seconds(std::chrono::steady_clock::now() - t0) * 1000);
        l.failures += !ok;
    }
    std::sort(ms.begin(), ms.end());
    for (double v : ms) l.meanMs += v / ms.size();
    l.p50Ms = ms[ms.size() / 2];
    l.p99Ms = ms[std::min(ms.size() - 1, ms.size() * 99 / 100)];
    return l;
}

void printLatency(const char* what, int count, const Latency& l) {
    std::printf("  %-44s %5d GETs  mean %.3f ms  p50 %.3f ms  p99 %.3f ms%s\n", what, count, l.meanMs, l.p50Ms,
                l.p99Ms, l.failures ? "  (some failed)" : "");
}

void latency(Client& client, const Settings& set) {
    const char* envPath = std::getenv("OXS3_TEST_ENV");
    oxtest::S3Env env;
    std::string error;
    if (!envPath || !oxtest::S3Env::load(envPath, env, &error)) {
        std::printf("S3 latency: not run (set OXS3_TEST_ENV to a running server's env file)\n");
        return;
    }
    const auto& buckets = oxtest::publicBuckets();
    if (!buckets) {
        std::printf("S3 latency: not run (%s)\n", buckets.error.c_str());
        return;
    }
    const std::string path = "/" + buckets.open + "/" + oxtest::PublicBuckets::kPageKey;
    std::printf("RADOS Gateway on loopback, anonymous GET of a 4 KiB public object (%s)\n", path.c_str());
    auto plain = client.connect(env.host, static_cast<uint16_t>(env.port), "");
    smallGets(plain.get(), path, 20, false);  // warm-up
    printLatency("one kept-alive connection, plain", set.requests, smallGets(plain.get(), path, set.requests, false));
    auto tls = client.connect("localhost", static_cast<uint16_t>(env.tlsPort), env.tlsCaFile);
    smallGets(tls.get(), path, 20, false);
    printLatency("one kept-alive connection, TLS", set.requests, smallGets(tls.get(), path, set.requests, false));
    const int fresh = std::max(1, set.requests / 5);
    printLatency("a new connection for each GET, plain", fresh, smallGets(plain.get(), path, fresh, true));
}

Settings parse(int argc, char** argv) {
    Settings s;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        const long long v = std::atoll(argv[i + 1]);
        if (flag == "--mib") s.bodyBytes = static_cast<uint64_t>(v) << 20;
        else if (flag == "--runs") s.runs = static_cast<int>(v);
        else if (flag == "--requests") s.requests = static_cast<int>(v);
        else if (flag == "--buffer") s.bufferBytes = static_cast<size_t>(v) << 10;
    }
    s.runs = std::max(1, s.runs);
    s.requests = std::max(1, s.requests);
    s.bufferBytes = std::max<size_t>(4096, s.bufferBytes);
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    const Settings set = parse(argc, argv);
    Client client;
    if (!client.web || !client.secsocket) {
        std::fprintf(stderr, "the web client service could not be loaded\n");
        return 1;
    }
    throughput(client, set);
    latency(client, set);
    return 0;
}
