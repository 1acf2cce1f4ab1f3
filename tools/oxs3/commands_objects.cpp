// Object commands: put a local file, get one back, print one, show its information, remove
// one object or everything under a prefix. Large transfers go in blocks so progress can show.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"
#include "ox/owned.hpp"

namespace tool {
namespace {

// Files from this size move in blocks, with a progress line on a terminal.
constexpr uint64_t kBlockedTransfer = 8u << 20;
constexpr uint64_t kPutChunk = 1u << 20;
constexpr uint64_t kGetBlock = 8u << 20;

std::string text(const char* s) { return s ? s : ""; }

int systemFailure(std::string_view what, const std::string& file) {
    std::fprintf(stderr, "oxs3: %.*s: %s: %s.\n", static_cast<int>(what.size()), what.data(), file.c_str(),
                 std::strerror(errno));
    return 1;
}

// A local file mapped read-only for the length of a put.
class MappedFile {
public:
    ~MappedFile() {
        if (data_ && data_ != MAP_FAILED) munmap(data_, size_);
        if (fd_ >= 0) close(fd_);
    }
    bool open(const std::string& path) {
        fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat info {};
        if (fd_ < 0 || fstat(fd_, &info) != 0) return false;
        size_ = static_cast<uint64_t>(info.st_size);
        if (size_ == 0) return true;
        data_ = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd_, 0);
        return data_ != MAP_FAILED;
    }
    const char* data() const { return size_ ? static_cast<const char*>(data_) : nullptr; }
    uint64_t size() const { return size_; }

private:
    int fd_ = -1;
    void* data_ = nullptr;
    uint64_t size_ = 0;
};

// ---- put

OXStatus putChunked(OXS3Connection c, const S3Url& url, const MappedFile& file, Progress& progress) {
    OXStatus st = c->startChunkedPut(c, url.bucket.c_str(), url.path.c_str(), oxs3AccessDefault, nullptr, nullptr,
                                     nullptr, OX_FALSE, file.size(), kPutChunk);
    for (uint64_t done = 0; st == OX_OK && done < file.size();) {
        const uint64_t length = std::min(kPutChunk, file.size() - done);
        st = c->putChunk(c, file.data() + done, length);
        done += length;
        progress.update(done);
    }
    return st == OX_OK ? c->finishChunkedPut(c) : st;
}

int runPut(const GlobalOptions& options, const std::string& file, const std::string& target) {
    S3Url url;
    if (!requireS3Url("put", target, url, false)) return 2;
    if (url.path.ends_with('/')) url.path += file.substr(file.rfind('/') + 1);
    MappedFile in;
    if (!in.open(file)) return systemFailure("put", file);
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    OXStatus st;
    if (in.size() >= kBlockedTransfer && c->startChunkedPut && c->putChunk && c->finishChunkedPut) {
        Progress progress("upload", in.size());
        st = putChunked(c, url, in, progress);
    } else if (c->putObject) {
        st = c->putObject(c, url.bucket.c_str(), url.path.c_str(), oxs3AccessDefault, nullptr, nullptr, nullptr,
                          OX_FALSE, in.data(), in.size());
    } else {
        return s.missing("put");
    }
    if (st != OX_OK) return s.fail("put", st);
    std::printf("upload: %s to s3://%s%s\n", file.c_str(), url.bucket.c_str(), url.path.c_str());
    return 0;
}

// ---- get

bool writeAll(int fd, const char* data, uint64_t length) {
    while (length > 0) {
        const ssize_t n = write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        length -= static_cast<uint64_t>(n);
    }
    return true;
}

// The whole object in one request.
OXStatus getWhole(Session& s, const S3Url& url, int fd, bool& written) {
    OXS3Connection c = s.connection();
    void* data = nullptr;
    OXMemSize length = 0;
    const OXStatus st = c->getObject(c, s.pool(), url.bucket.c_str(), url.path.c_str(), &data, &length);
    if (st != OX_OK) return st;
    written = writeAll(fd, static_cast<const char*>(data), length);
    if (data) s.pool()->memFree(s.pool(), data);
    return OX_OK;
}

OXStatus getBlocks(Session& s, const S3Url& url, uint64_t size, int fd, bool& written) {
    OXS3Connection c = s.connection();
    ox::PoolBlock<char> buffer = ox::PoolBlock<char>::allocate(s.pool(), kGetBlock);
    if (!buffer) return OX_NO_MEMORY;
    Progress progress("download", size);
    written = true;
    for (uint64_t done = 0; done < size && written;) {
        OXMemSize got = 0;
        const OXStatus st = c->getObjectRange(c, url.bucket.c_str(), url.path.c_str(), buffer.get(), done,
                                              std::min(kGetBlock, size - done), &got);
        if (st != OX_OK) return st;
        if (got == 0) return OX_FAILED;  // the object shrank while being read
        written = writeAll(fd, buffer.get(), got);
        done += got;
        progress.update(done);
    }
    return OX_OK;
}

int runGet(const GlobalOptions& options, const std::string& source, const std::string& file) {
    S3Url url;
    if (!requireS3Url("get", source, url, true)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    if (!c->getObjectInfo || !c->getObject || !c->getObjectRange) return s.missing("get");
    ox::Owned<OXS3ObjectInformation> info;
    OXStatus st = c->getObjectInfo(c, url.bucket.c_str(), url.path.c_str(), info.out());
    if (st != OX_OK) return s.fail("get", st);
    // Written beside the target and renamed at the end, so a failed get leaves no partial file.
    const std::string partial = file + ".oxs3-partial";
    const int fd = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return systemFailure("get", partial);
    bool written = false;
    st = info->contentLength >= kBlockedTransfer ? getBlocks(s, url, info->contentLength, fd, written)
                                                 : getWhole(s, url, fd, written);
    const bool closed = close(fd) == 0;
    if (st != OX_OK || !written || !closed || rename(partial.c_str(), file.c_str()) != 0) {
        const int saved = errno;
        unlink(partial.c_str());
        if (st != OX_OK) return s.fail("get", st);
        errno = saved;
        return systemFailure("get", file);
    }
    std::printf("download: s3://%s%s to %s\n", url.bucket.c_str(), url.path.c_str(), file.c_str());
    return 0;
}

int runCat(const GlobalOptions& options, const std::string& source) {
    S3Url url;
    if (!requireS3Url("cat", source, url, true)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    if (!s.connection()->getObject) return s.missing("cat");
    bool written = false;
    const OXStatus st = getWhole(s, url, STDOUT_FILENO, written);
    if (st != OX_OK) return s.fail("cat", st);
    return written ? 0 : systemFailure("cat", "standard output");
}

int runStat(const GlobalOptions& options, const std::string& source) {
    S3Url url;
    if (!requireS3Url("stat", source, url, true)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    if (!c->getObjectInfo) return s.missing("stat");
    ox::Owned<OXS3ObjectInformation> info;
    const OXStatus st = c->getObjectInfo(c, url.bucket.c_str(), url.path.c_str(), info.out());
    if (st != OX_OK) return s.fail("stat", st);
    std::printf("Key: s3://%s%s\n", url.bucket.c_str(), url.path.c_str());
    std::printf("Size: %" PRIu64 "\n", static_cast<uint64_t>(info->contentLength));
    std::printf("Last-Modified: %s\n", text(info->lastModified).c_str());
    std::printf("ETag: %s\n", text(info->eTag).c_str());
    std::printf("Content-Type: %s\n", text(info->contentType).c_str());
    return 0;
}

// ---- rm

int runRemove(const GlobalOptions& options, const std::string& target, bool recursive) {
    S3Url url;
    if (!requireS3Url("rm", target, url, !recursive)) return 2;
    Session s;
    if (!s.open(options)) return 1;
    OXS3Connection c = s.connection();
    OXBoolean marker = OX_FALSE;
    OXStatus st;
    if (recursive) {
        if (!c->deleteDirectory) return s.missing("rm");
        ox::Owned<OXArray_S> errors;
        st = c->deleteDirectory(c, url.bucket.c_str(), url.path.c_str(), nullptr, &marker, OX_TRUE, errors.out());
    } else {
        if (!c->deleteObject) return s.missing("rm");
        st = c->deleteObject(c, url.bucket.c_str(), url.path.c_str(), nullptr, nullptr, &marker);
    }
    if (st != OX_OK) return s.fail("rm", st);
    std::printf("delete: s3://%s%s%s\n", url.bucket.c_str(), url.path.c_str(), recursive ? " (recursive)" : "");
    return 0;
}

}  // namespace

bool requireS3Url(std::string_view what, const std::string& text, S3Url& url, bool needKey) {
    if (parseS3Url(text, url) && (!needKey || url.path.size() > 1)) return true;
    std::fprintf(stderr, "oxs3: %.*s: \"%s\" is not an s3://bucket%s URL.\n", static_cast<int>(what.size()),
                 what.data(), text.c_str(), needKey ? "/key" : "[/key]");
    return false;
}

void addObjectCommands(CLI::App& app, Invocation& call) {
    auto* put = app.add_subcommand("put", "Upload a local file to s3://bucket/key (a key ending in / gets the file's name)");
    put->add_option("file", call.first, "local file")->required()->check(CLI::ExistingFile);
    put->add_option("target", call.second, "s3://bucket/key")->required();
    put->callback([&call] { call.exitStatus = runPut(call.options, call.first, call.second); });

    auto* get = app.add_subcommand("get", "Download s3://bucket/key to a local file");
    get->add_option("source", call.first, "s3://bucket/key")->required();
    get->add_option("file", call.second, "local file")->required();
    get->callback([&call] { call.exitStatus = runGet(call.options, call.first, call.second); });

    auto* cat = app.add_subcommand("cat", "Write an object to standard output");
    cat->add_option("source", call.first, "s3://bucket/key")->required();
    cat->callback([&call] { call.exitStatus = runCat(call.options, call.first); });

    auto* stat = app.add_subcommand("stat", "Show an object's size, date, ETag and content type");
    stat->add_option("source", call.first, "s3://bucket/key")->required();
    stat->callback([&call] { call.exitStatus = runStat(call.options, call.first); });

    auto* rm = app.add_subcommand("rm", "Remove an object, or with -r everything under a prefix");
    rm->add_flag("-r,--recursive", call.recursive, "remove every key under the prefix");
    rm->add_option("target", call.first, "s3://bucket/key-or-prefix")->required();
    rm->callback([&call] { call.exitStatus = runRemove(call.options, call.first, call.recursive); });
}

}  // namespace tool
