// The oxs3 command-line tool: a small S3 client over the extension.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "ox/handle.h"
#include "ox/msg.h"
#include "ox/status.h"
#include "commands.h"
#include "oxs3.h"

namespace {

// Loads the extension the way any host program does: by name, through the host handle.
OXS3Extension* loadExtension(std::string& error) {
    OX_HNDL_S* h = oxHostInit();
    const std::u32string name = U"oxs3";
    OXJournal jnl{};
    auto* ext = reinterpret_cast<OXS3Extension*>(
        h->loadExtension(h, reinterpret_cast<const OXChar*>(name.data()), name.size(), &jnl));
    if (!ext) {
        char text[256];
        oxMessageFormat(jnl.count ? jnl.entries[0].status : OX_SERVICE_MISSING, text, sizeof text);
        error = std::string("The S3 extension could not be loaded: ") + text;
    }
    return ext;
}

int printVersion() {
    std::string error;
    OXS3Extension* ext = loadExtension(error);
    if (!ext) {
        std::fprintf(stderr, "oxs3: %s\n", error.c_str());
        return 1;
    }
    uint64_t v[3] = {}, r[3] = {};
    ext->exth.getVersion(ext, &v[0], &v[1], &v[2]);
    ext->exth.getReqVersion(ext, &r[0], &r[1], &r[2]);
    std::printf("oxs3 extension %llu.%llu.%llu (needs host %llu.%llu.%llu)\n", (unsigned long long)v[0],
                (unsigned long long)v[1], (unsigned long long)v[2], (unsigned long long)r[0],
                (unsigned long long)r[1], (unsigned long long)r[2]);
    ext->exth.realDestroy(ext);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"oxs3: a small S3 client"};
    app.require_subcommand(1);
    tool::Invocation call;
    app.add_option("--endpoint", call.options.endpoint,
                   "S3 server to use instead of the region's, as http[s]://host[:port]; buckets are addressed "
                   "as subdomains of host");
    app.add_option("--region", call.options.region, "region name, when not the one of the AWS settings");
    app.add_subcommand("version", "Load the S3 extension and print its version")->callback([&call] {
        call.exitStatus = printVersion();
    });
    tool::addBucketCommands(app, call);
    tool::addObjectCommands(app, call);
    CLI11_PARSE(app, argc, argv);
    return call.exitStatus;
}
