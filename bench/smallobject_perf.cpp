// Small objects on one kept-alive connection to the local S3 server: N PUTs then N GETs of
// objects of a few KiB through the connection's putObject and getObject, with operations per
// second and the client's CPU seconds for each phase; beside them in the same run the same
// requests sent by one curl process (--aws-sigv4, one connection for the whole URL list), the
// floor to beat.
//
//   smallobject_perf [--count N] [--size BYTES]
//
// Needs OXS3_TEST_ENV=DIR/env from scripts/s3server-start.sh DIR. The bucket is made for the run
// and emptied and removed at its end.
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bucketfixture.h"
#include "conffixture.h"

extern char** environ;

namespace {

struct Settings {
    int count = 1000;
    size_t size = 4096;
};

struct Sample {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    int failures = 0;
    bool ran = false;
};

double seconds(std::chrono::steady_clock::duration d) { return std::chrono::duration<double>(d).count(); }
double cpuOf(const rusage& u) {
    return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + u.ru_stime.tv_sec + u.ru_stime.tv_usec / 1e6;
}
double selfCpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return cpuOf(u);
}

std::string keyOf(const char* prefix, int i) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "/%s/%06d", prefix, i);
    return buf;
}

// Times a phase of count operations of ours; op(i) says whether operation i succeeded.
template <class Op>
Sample timed(int count, Op op) {
    Sample s;
    const double cpu0 = selfCpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) s.failures += !op(i);
    s.wallSeconds = seconds(std::chrono::steady_clock::now() - t0);
    s.cpuSeconds = selfCpuSeconds() - cpu0;
    s.ran = true;
    return s;
}

// One curl process over the URL list of config, stdout (one "-w" line per transfer) into
// report; failures are transfers whose line is not "200 <expected bytes>".
Sample runCurl(const std::string& config, const std::string& report, const std::string& user, size_t getBytes,
               int count) {
    Sample s;
    // The payload header is given, as this curl does not send one of its own; an "Expect:" header
    // removed with -H would still be signed, so curl's 100-continue is kept but not waited for.
    std::vector<std::string> args = {"curl", "-s", "-S", "-H", "x-amz-content-sha256: UNSIGNED-PAYLOAD",
                                     "--expect100-timeout", "0", "--aws-sigv4", "aws:amz:us-east-1:s3", "--user",
                                     user, "-w", "%{http_code} %{size_download}\\n", "--config", config};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, report.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid;
    const int spawned = posix_spawnp(&pid, "curl", &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (spawned != 0) return s;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return s;
    s.wallSeconds = seconds(std::chrono::steady_clock::now() - t0);
    s.cpuSeconds = cpuOf(usage);
    s.ran = WIFEXITED(status);
    std::ifstream in(report);
    const std::string expected = "200 " + std::to_string(getBytes);
    int lines = 0;
    for (std::string line; std::getline(in, line); ++lines) s.failures += line != expected;
    s.failures += std::max(0, count - lines);
    return s;
}

void printRow(const char* who, const char* phase, int count, const Sample& s) {
    if (!s.ran) {
        std::printf("  %-38s %-4s  not run\n", who, phase);
        return;
    }
    std::printf("  %-38s %-4s %9.0f ops/s %8.3f s wall %8.3f s CPU %7.1f us CPU/op%s\n", who, phase,
                count / s.wallSeconds, s.wallSeconds, s.cpuSeconds, s.cpuSeconds / count * 1e6,
                s.failures ? "  (failures!)" : "");
    if (s.failures) std::printf("  %-38s %-4s %d of %d failed\n", "", "", s.failures, count);
}

Settings parse(int argc, char** argv) {
    Settings s;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string flag = argv[i];
        const long long v = std::atoll(argv[i + 1]);
        if (flag == "--count") s.count = static_cast<int>(v);
        else if (flag == "--size") s.size = static_cast<size_t>(v);
    }
    s.count = std::max(1, s.count);
    return s;
}

int run(const Settings& set, const oxtest::S3Env& env) {
    // The extension loaded as the tests load it: a private host, no AWS settings from the
    // environment, a temporary home directory.
    oxtest::ScopedEnvironment scoped;
    std::string work = (std::filesystem::temp_directory_path() / "oxs3-smallobj-XXXXXX").string();
    if (!mkdtemp(work.data())) return 1;
    s3::overrideHomeDirectory(work.c_str());
    oxtest::PrivateHost privateHost;
    OXJournal jnl{};
    OXS3Extension* ext = oxs3(privateHost.handle(), &jnl);
    if (!ext) {
        std::fprintf(stderr, "the extension could not be loaded\n");
        return 1;
    }
    OXPoolCreateParms parms{};
    OX_POOL_S* pool = oxtest::host()->poolCreate(oxtest::host(), &parms, nullptr, "bench pool");
    const char* region = "rgwvhost";
    OXStatus st = ext->addCustomRegion(ext, region, env.vhostDomain.c_str(), static_cast<uint16_t>(env.port),
                                       static_cast<uint16_t>(env.tlsPort), nullptr, OX_TRUE, OX_FALSE, OX_FALSE,
                                       OX_FALSE);
    oxtest::Connection c(ext->createConnection(ext, pool, OX_FALSE, nullptr, ext->regionForNameU8(ext, region),
                                               env.accessKey.c_str(), env.secretKey.c_str(), nullptr, &st));
    int rc = 0;
    {
        oxtest::ScopedBucket bucket("smallobj");
        if (!c || st != OX_OK || !bucket.create()) {
            std::fprintf(stderr, "no connection or no bucket\n");
            rc = 1;
        } else {
            const std::string body(set.size, 'x');
            const char* b = bucket.name.c_str();
            std::printf("RADOS Gateway on loopback (%s), %d objects of %zu bytes, one connection each\n",
                        env.endpoint.c_str(), set.count, set.size);
            std::printf("  (CPU: getrusage RUSAGE_SELF for ours, wait4 rusage of the curl process)\n");

            const Sample put = timed(set.count, [&](int i) {
                return c->putObject(c.get(), b, keyOf("ox", i).c_str(), oxs3AccessDefault, nullptr, nullptr, nullptr,
                                    OX_FALSE, body.data(), body.size()) == OX_OK;
            });
            auto getPhase = [&](bool readThreads) {
                c->useReadThreads = readThreads ? OX_TRUE : OX_FALSE;
                return timed(set.count, [&](int i) {
                    void* data = nullptr;
                    OXMemSize length = 0;
                    const bool ok = c->getObject(c.get(), pool, b, keyOf("ox", i).c_str(), &data, &length) == OX_OK &&
                                    length == body.size();
                    if (data) pool->memFree(pool, data);
                    return ok;
                });
            };
            const Sample getDefault = getPhase(true);
            const Sample getPlain = getPhase(false);

            // curl: one process, one connection, the URL list in a config file.
            const std::string bodyFile = work + "/body", putConfig = work + "/put.conf",
                              getConfig = work + "/get.conf", report = work + "/report";
            std::ofstream(bodyFile, std::ios::binary) << body;
            {
                std::ofstream p(putConfig), g(getConfig);
                const std::string base = "http://" + env.host + ":" + std::to_string(env.port) + "/" + bucket.name;
                for (int i = 0; i < set.count; ++i) {
                    const std::string url = base + keyOf("curl", i);
                    p << "url = \"" << url << "\"\nupload-file = \"" << bodyFile << "\"\noutput = \"/dev/null\"\n";
                    g << "url = \"" << url << "\"\noutput = \"/dev/null\"\n";
                }
            }
            const std::string user = env.accessKey + ":" + env.secretKey;
            const Sample curlPut = runCurl(putConfig, report, user, 0, set.count);
            const Sample curlGet = runCurl(getConfig, report, user, set.size, set.count);

            printRow("putObject", "PUT", set.count, put);
            printRow("curl, one connection", "PUT", set.count, curlPut);
            printRow("getObject (read threads on: HEAD+GET)", "GET", set.count, getDefault);
            printRow("getObject (read threads off)", "GET", set.count, getPlain);
            printRow("curl, one connection", "GET", set.count, curlGet);
            rc = put.failures || getDefault.failures || getPlain.failures || curlPut.failures || curlGet.failures;

            // Cleanup: our connection first; what it could not remove goes to the fixture's signer.
            for (const char* prefix : {"ox", "curl"})
                for (int i = 0; i < set.count; ++i) {
                    const std::string key = keyOf(prefix, i);
                    if (c->deleteObject(c.get(), b, key.c_str(), nullptr, nullptr, nullptr) != OX_OK)
                        bucket.keys.push_back(key.substr(1));
                }
        }
        c = oxtest::Connection();
    }  // the bucket goes here
    pool->generic.destroy(pool);
    s3::oxs3RealDestroy(ext);
    s3::useHomeDirectoryFromPasswordDatabase();
    std::filesystem::remove_all(work);
    return rc;
}

}  // namespace

int main(int argc, char** argv) {
    const Settings set = parse(argc, argv);
    const char* envPath = std::getenv("OXS3_TEST_ENV");
    oxtest::S3Env env;
    std::string error;
    if (!envPath || !oxtest::S3Env::load(envPath, env, &error)) {
        std::fprintf(stderr, "set OXS3_TEST_ENV to a running server's env file (%s)\n", error.c_str());
        return 2;
    }
    return run(set, env);
}
