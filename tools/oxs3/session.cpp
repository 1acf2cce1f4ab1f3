// The tool's session: the extension, settings, endpoint and connection of one command.
#include "session.h"

#include <unistd.h>

#include <charconv>
#include <string>

#include "ox/msg.h"
#include "ox/status.h"

namespace tool {
namespace {

constexpr std::string_view kScheme = "s3://";
constexpr const char* kEndpointRegion = "oxs3toolendpoint";
// Transfers smaller than this finish before a progress line would help.
constexpr uint64_t kProgressThreshold = 4u << 20;

template <class T>
void release(T*& object) {
    if (object) reinterpret_cast<OXInstance*>(object)->destroy(object);
    object = nullptr;
}

std::string text(const OXU8String* s) { return s ? std::string(s->stg, s->len) : std::string(); }

const char* orNull(const std::string& s) { return s.empty() ? nullptr : s.c_str(); }

struct EndpointParts {
    bool tls = false;
    std::string host;
    uint16_t port = 0;
};

bool splitEndpoint(std::string_view url, EndpointParts& parts) {
    if (url.starts_with("https://")) {
        parts.tls = true;
        url.remove_prefix(8);
    } else if (url.starts_with("http://")) {
        url.remove_prefix(7);
    } else {
        return false;
    }
    url = url.substr(0, url.find('/'));
    const size_t colon = url.rfind(':');
    parts.host = std::string(url.substr(0, colon));
    parts.port = parts.tls ? 443 : 80;
    if (colon != std::string_view::npos) {
        const std::string_view digits = url.substr(colon + 1);
        auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), parts.port);
        if (ec != std::errc{} || end != digits.data() + digits.size() || parts.port == 0) return false;
    }
    return !parts.host.empty();
}

}  // namespace

bool parseS3Url(std::string_view text, S3Url& url) {
    if (!text.starts_with(kScheme)) return false;
    text.remove_prefix(kScheme.size());
    const size_t slash = text.find('/');
    url.bucket = std::string(text.substr(0, slash));
    url.path = slash == std::string_view::npos ? "/" : std::string(text.substr(slash));
    return !url.bucket.empty();
}

std::string statusSentence(OXStatus status) {
    char buffer[512];
    oxMessageFormat(status, buffer, sizeof buffer);
    return buffer;
}

Session::~Session() {
    if (connection_) connection_->close(connection_);
    release(connection_);
    if (pool_) pool_->generic.destroy(pool_);
    if (ext_) reinterpret_cast<OXExtension*>(ext_)->generic.destroy(ext_);
}

int Session::fail(std::string_view what, OXStatus status) const {
    std::string line = "oxs3: " + std::string(what) + ": " + statusSentence(status);
    if (connection_ && connection_->errorMessage && connection_->errorMessage->len > 0)
        line += ": " + text(connection_->errorMessage);
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    std::fprintf(stderr, "%s\n", line.c_str());
    return 1;
}

int Session::missing(std::string_view what) const {
    std::fprintf(stderr, "oxs3: %.*s: this build of the S3 extension does not offer the operation.\n",
                 static_cast<int>(what.size()), what.data());
    return 1;
}

bool Session::open(const GlobalOptions& options) {
    host_ = oxHostInit();
    const std::u32string name = U"oxs3";
    OXJournal journal{};
    ext_ = reinterpret_cast<OXS3Extension*>(
        host_->loadExtension(host_, reinterpret_cast<const OXChar*>(name.data()), name.size(), &journal));
    if (!ext_) {
        fail("the S3 extension could not be loaded", journal.count ? journal.entries[0].status : OX_SERVICE_MISSING);
        return false;
    }
    OXPoolCreateParms parms{};
    pool_ = host_->poolCreate(host_, &parms, nullptr, "oxs3 tool pool");
    if (!pool_) {
        fail("setting up", OX_NO_MEMORY);
        return false;
    }
    return connect(options);
}

// A custom region for the endpoint: TLS or plain from the scheme, the port as given.
bool Session::endpointRegion(const std::string& url, AWSRegion& region, bool& tls) {
    EndpointParts parts;
    if (!splitEndpoint(url, parts)) {
        std::fprintf(stderr, "oxs3: --endpoint: \"%s\" is not of the form http[s]://host[:port].\n", url.c_str());
        return false;
    }
    tls = parts.tls;
    const OXStatus st = ext_->addCustomRegion(ext_, kEndpointRegion, parts.host.c_str(), tls ? 0 : parts.port,
                                              tls ? parts.port : 0, nullptr, tls ? OX_TRUE : OX_FALSE,
                                              tls ? OX_TRUE : OX_FALSE, tls ? OX_FALSE : OX_TRUE, OX_TRUE);
    if (st != OX_OK) {
        fail("--endpoint", st);
        return false;
    }
    region = ext_->regionForNameU8(ext_, kEndpointRegion);
    return true;
}

bool Session::connect(const GlobalOptions& options) {
    S3Settings* settings = nullptr;
    OXU8String* detail = nullptr;
    int64_t line = 0;
    OXStatus st = ext_->getUserSettings(ext_, pool_, nullptr, nullptr, nullptr, orNull(options.region), nullptr,
                                        nullptr, nullptr, nullptr, nullptr, OX_TRUE, OX_FALSE, &settings, &detail,
                                        &line);
    if (st != OX_OK) {
        const std::string why = detail ? text(detail) : std::string();
        release(detail);
        std::fprintf(stderr, "oxs3: reading the AWS settings: %s%s%s\n", statusSentence(st).c_str(),
                     why.empty() ? "" : ": ", why.c_str());
        return false;
    }
    release(detail);
    if (!settings) {
        std::fprintf(stderr, "oxs3: no AWS credentials were found in the environment or the AWS files.\n");
        return false;
    }
    bool tls = settings->useSSL != OX_FALSE;
    AWSRegion region = No_Region;
    bool ok = true;
    if (!options.endpoint.empty()) {
        ok = endpointRegion(options.endpoint, region, tls);
    } else {
        const std::string name = text(settings->region);
        region = ext_->regionForNameU8(ext_, name.empty() ? "us-east-1" : name.c_str());
    }
    if (ok) {
        connection_ = ext_->createConnection(ext_, pool_, tls ? OX_TRUE : OX_FALSE, nullptr, region,
                                             orNull(text(settings->keyId)), orNull(text(settings->secret)),
                                             orNull(text(settings->session)), &st);
        if (!connection_) ok = fail("connecting", st) == 0;
    }
    release(settings);
    return ok;
}

Progress::Progress(std::string_view label, uint64_t total)
    : label_(label), total_(total), shown_(total >= kProgressThreshold && isatty(STDERR_FILENO)) {}

Progress::~Progress() {
    if (shown_) std::fprintf(stderr, "\n");
}

void Progress::update(uint64_t done) {
    if (!shown_ || total_ == 0) return;
    constexpr uint64_t kMiB = 1u << 20;
    std::fprintf(stderr, "\r%s: %llu of %llu MiB (%llu%%)", label_.c_str(), static_cast<unsigned long long>(done / kMiB),
                 static_cast<unsigned long long>(total_ / kMiB), static_cast<unsigned long long>(done * 100 / total_));
    std::fflush(stderr);
}

}  // namespace tool
