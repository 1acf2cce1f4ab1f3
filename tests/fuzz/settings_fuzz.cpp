// Arbitrary AWS config, AWS credentials and extension files, with arbitrary profile names from
// the arguments or the environment, through the whole settings merge: it may fail, but never
// crash, leave an output behind on failure, or leak.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"
#include "oxs3.h"
#include "oxs3conf.h"

namespace {

constexpr const char* kVariables[] = {
    "AWS_CONFIG_FILE",     "AWS_SHARED_CREDENTIALS_FILE", "AWS_ACCESS_KEY_ID",           "AWS_SECRET_ACCESS_KEY",
    "AWS_SESSION_TOKEN",   "AWS_DEFAULT_REGION",          "AWS_DEFAULT_PROFILE",         "AWS_ROLE_ARN",
    "AWS_WEB_IDENTITY_TOKEN_FILE", "QEL_USE_AWS_SERVICE_ACCOUNT",
};

struct World {
    OXS3Extension* ext = nullptr;
    OX_POOL_S* pool = nullptr;
    std::string home;

    World() {
        for (const char* v : kVariables) unsetenv(v);
        char pattern[] = "/tmp/oxs3settings-fuzz-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        home = pattern;
        if (mkdir((home + "/.aws").c_str(), 0700) != 0) abort();
        s3::overrideHomeDirectory(home.c_str());
        ext = oxs3(oxHostInit(), nullptr);
        OXPoolCreateParms parms{};
        pool = oxHostInit()->poolCreate(oxHostInit(), &parms, nullptr, "fuzz pool");
        if (!ext || !pool) abort();
    }

    void write(const std::string& relative, std::string_view text) const {
        FILE* f = fopen((home + "/" + relative).c_str(), "wb");
        if (!f) abort();
        fwrite(text.data(), 1, text.size(), f);
        fclose(f);
    }
};

World& world() {
    static World w;
    static const int cleanup = std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(world().home, ignored);
    });
    (void)cleanup;
    return w;
}

// The input's parts, separated by 0x1e: AWS config, AWS credentials, own file, profile,
// credentials profile. The first byte says which names are used and how.
struct Parts {
    std::string_view field[5];
    uint8_t flags = 0;
};

Parts split(const uint8_t* data, size_t size) {
    Parts p;
    if (size == 0) return p;
    p.flags = data[0];
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    for (auto& f : p.field) {
        size_t end = rest.find('\x1e');
        f = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return p;
}

void release(OXU8String*& s) {
    if (s) s->instance.destroy(s);
    s = nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    World& w = world();
    Parts p = split(data, size);
    w.write(".aws/config", p.field[0]);
    w.write(".aws/credentials", p.field[1]);
    w.write(".oxs3.conf", p.field[2]);
    std::string profile(p.field[3]), credentialsProfile(p.field[4]);
    bool hasNul = profile.find('\0') != std::string::npos || credentialsProfile.find('\0') != std::string::npos;
    if (hasNul) return 0;
    if (p.flags & 4)
        setenv("AWS_DEFAULT_PROFILE", profile.c_str(), 1);
    else
        unsetenv("AWS_DEFAULT_PROFILE");

    OXBoolean useSSL = OX_FALSE, sslSpecified = OX_FALSE;
    OXU8String *keyId = nullptr, *secret = nullptr, *token = nullptr, *region = nullptr, *detail = nullptr;
    int64_t line = 0;
    OXStatus st = s3::oxs3ReadConfiguration(w.ext, w.pool, nullptr, nullptr, (p.flags & 1) ? profile.c_str() : nullptr,
                                            nullptr, (p.flags & 2) ? credentialsProfile.c_str() : nullptr, &useSSL,
                                            &sslSpecified, &keyId, &secret, &token, &region, &detail, &line);
    if (st != OX_OK && (keyId || secret || token || region)) abort();
    for (OXU8String** s : {&keyId, &secret, &token, &region, &detail}) release(*s);
    if (w.pool->blocksInUse(w.pool) != 0) abort();
    return 0;
}
