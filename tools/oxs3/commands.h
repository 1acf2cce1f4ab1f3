// The tool's command groups; each adds its subcommands to the application. A command's
// callback stores its exit status in the invocation.
#pragma once

#include <CLI/CLI.hpp>

#include "session.h"

namespace tool {

// What a command was given; one command runs per call, so the commands share it.
struct Invocation {
    GlobalOptions options;
    std::string first;   // the first positional argument
    std::string second;  // the second
    bool recursive = false;
    int exitStatus = 0;
};

void addBucketCommands(CLI::App& app, Invocation& call);  // ls, mb, rb
void addObjectCommands(CLI::App& app, Invocation& call);  // put, get, cat, stat, rm

// "oxs3: what: \"text\" is not an s3://bucket[/key] URL." and exit status 2 when it is not one.
bool requireS3Url(std::string_view what, const std::string& text, S3Url& url, bool needKey);

}  // namespace tool
