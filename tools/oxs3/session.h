// What every S3 command of the tool shares: the extension loaded through the host, the
// caller's settings (AWS environment variables and files), an optional endpoint of its own,
// one open connection, and the one-line sentences failures are reported with.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "oxs3.h"

namespace tool {

// Options every S3 command takes.
struct GlobalOptions {
    std::string endpoint;  // scheme "://" host [":" port]; empty: the region's own
    std::string region;    // empty: from the settings
};

// "s3://bucket[/key]": the bucket and the key with a leading "/" ("/" when there is none).
struct S3Url {
    std::string bucket;
    std::string path;
};
// False for a text that is not an s3:// URL with a bucket.
bool parseS3Url(std::string_view text, S3Url& url);

class Session {
public:
    Session() = default;
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Loads the extension and opens a connection; false with the sentence printed on failure.
    bool open(const GlobalOptions& options);

    OXS3Extension* ext() const { return ext_; }
    OX_POOL_S* pool() const { return pool_; }
    OXS3Connection connection() const { return connection_; }

    // Prints "oxs3: what: sentence[: server message]" to stderr and returns the exit status.
    int fail(std::string_view what, OXStatus status) const;
    // A slot the extension does not offer yet.
    int missing(std::string_view what) const;

private:
    bool connect(const GlobalOptions& options);
    bool endpointRegion(const std::string& url, AWSRegion& region, bool& tls);

    OX_HNDL_S* host_ = nullptr;
    OXS3Extension* ext_ = nullptr;
    OX_POOL_S* pool_ = nullptr;
    OXS3Connection connection_ = nullptr;
};

// The host catalogue's sentence for a status.
std::string statusSentence(OXStatus status);

// One progress line on stderr, rewritten in place, for large transfers to a terminal.
class Progress {
public:
    Progress(std::string_view label, uint64_t total);
    ~Progress();
    void update(uint64_t done);

private:
    std::string label_;
    uint64_t total_;
    bool shown_;
};

}  // namespace tool
