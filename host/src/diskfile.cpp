// Local files for the "DISK    " engine: descriptors opened close-on-exec, every call retried
// when a signal interrupts it, and errno turned into the host's file statuses by one table.
#include "diskfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "dictionary_internal.h"
#include "object.h"
#include "ox/owned.hpp"
#include "ox/status.h"

namespace ox::disk {
namespace {

constexpr uint32_t kFileOven = OX_OVEN('f', 'i', 'l', 'e');
constexpr OXMemSize kMaxIo = 1U << 30;  // one system call moves at most this much

struct ErrnoStatus {
    int error;
    OXStatus status;
};

// Anything not listed is an I/O error.
constexpr ErrnoStatus kErrnoStatuses[] = {
    {ENOENT, OX_FILE_NOT_FOUND},       {ENOTDIR, OX_FILE_NOT_FOUND},     {EACCES, OX_FILE_ACCESS_DENIED},
    {EPERM, OX_FILE_ACCESS_DENIED},    {EROFS, OX_FILE_ACCESS_DENIED},   {ETXTBSY, OX_FILE_ACCESS_DENIED},
    {EISDIR, OX_FILE_IS_DIRECTORY},    {EBADF, OX_FILE_NOT_OPEN},        {ESPIPE, OX_CANNOT_POSITION},
    {ENOMEM, OX_NO_MEMORY},            {EMFILE, OX_NO_MEMORY},           {ENFILE, OX_NO_MEMORY},
    {ENAMETOOLONG, OX_INVALID_ARGUMENT},
};

OXStatus statusOf(int error) {
    for (const ErrnoStatus& e : kErrnoStatuses)
        if (e.error == error) return e.status;
    return OX_FILE_IO_ERROR;
}

template <class Call>
auto retryInterrupted(Call&& call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

constexpr int kOpenFlags[] = {
    O_RDONLY,                       // OXIOE_READ
    O_WRONLY | O_CREAT | O_TRUNC,   // OXIOE_WRITE
    O_WRONLY | O_CREAT | O_APPEND,  // OXIOE_APPEND
};

constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};

// ---- information items

// Seconds since 1970 with the fraction written exactly; before 1970 the fraction counts
// towards zero, as the sign of the text says.
std::string_view dateTimeText(const timespec& t, char (&buf)[48]) {
    const bool negative = t.tv_sec < 0;
    long long whole = t.tv_sec;
    long fraction = t.tv_nsec;
    if (negative && fraction > 0) {
        whole += 1;
        fraction = 1000000000L - fraction;
    }
    const int len = std::snprintf(buf, sizeof buf, "%s%lld.%09ld", negative ? "-" : "", negative ? -whole : whole, fraction);
    return {buf, static_cast<size_t>(std::max(len, 0))};
}

struct Item {
    std::string_view name;
    std::string_view value;
};

OXStatus describe(OX_POOL_S* pool, const struct stat& st, OXDictionary* out) {
    if (!pool || !out) return OX_INVALID_ARGUMENT;
    char size[24];
    const int sizeL = std::snprintf(size, sizeof size, "%" PRIu64, static_cast<uint64_t>(st.st_size));
    char modified[48];
    const Item items[] = {
        {OXIOE_FILESIZE, {size, static_cast<size_t>(sizeL)}},
        {OXIOE_MODIFIED, dateTimeText(st.st_mtim, modified)},
        {OXIOE_ISDIRECTORY, S_ISDIR(st.st_mode) ? "true" : "false"},
    };
    ox::Owned<OXDictionary_S> dict;
    if (const OXStatus status = oxDictionaryCreate(pool, 0, dict.out()); status != OX_OK) return status;
    for (const Item& item : items) {
        const OXStatus status =
            dict->setU8ValueU8(dict.get(), item.name.data(), item.name.size(), item.value.data(), item.value.size());
        if (status != OX_OK) return status;
    }
    *out = dict.release();
    return OX_OK;
}

// ---- the file record

struct DiskFile {
    OXIOEFile rec;  // first, so the record pointer is the file pointer
    int fd;
    OXIOEMode mode;
    // the access name follows in the same block
};

DiskFile& fileOf(OXIOEFile* f) { return *reinterpret_cast<DiskFile*>(f); }

OXStatus checkOpen(OXIOEFile* f) {
    if (!f) return OX_INVALID_ARGUMENT;
    return fileOf(f).fd < 0 ? OX_FILE_NOT_OPEN : OX_OK;
}

// A failure after some bytes arrived is left for the next call to report, so no byte is lost.
OXStatus readFile(OXIOEFile* f, void* buf, OXMemSize len, OXMemSize* got) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if ((!buf && len) || !got) return OX_INVALID_ARGUMENT;
    const DiskFile& d = fileOf(f);
    if (d.mode != OXIOE_READ) return OX_NOT_SUPPORTED;
    auto* out = static_cast<char*>(buf);
    OXMemSize done = 0;
    while (done < len) {
        const ssize_t n = retryInterrupted([&] { return ::read(d.fd, out + done, std::min(len - done, kMaxIo)); });
        if (n == 0) break;
        if (n < 0) {
            if (done > 0) break;
            return statusOf(errno);
        }
        done += static_cast<OXMemSize>(n);
    }
    *got = done;
    return done == 0 && len > 0 ? OX_END_OF_DATA : OX_OK;
}

OXStatus writeFile(OXIOEFile* f, const void* buf, OXMemSize len) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if (!buf && len) return OX_INVALID_ARGUMENT;
    const DiskFile& d = fileOf(f);
    if (d.mode == OXIOE_READ) return OX_NOT_SUPPORTED;
    const auto* in = static_cast<const char*>(buf);
    while (len > 0) {
        const ssize_t n = retryInterrupted([&] { return ::write(d.fd, in, std::min(len, kMaxIo)); });
        if (n < 0) return statusOf(errno);
        if (n == 0) return OX_FILE_IO_ERROR;  // no progress and no reason: do not spin
        in += n;
        len -= static_cast<OXMemSize>(n);
    }
    return OX_OK;
}

OXStatus seekFile(OXIOEFile* f, int64_t offset, OXIOEWhence whence) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if (whence < OXIOE_SEEK_SET || whence > OXIOE_SEEK_END) return OX_INVALID_ARGUMENT;
    return ::lseek(fileOf(f).fd, offset, kWhence[whence]) < 0 ? OX_CANNOT_POSITION : OX_OK;
}

OXStatus tellFile(OXIOEFile* f, OXMemSize* position) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if (!position) return OX_INVALID_ARGUMENT;
    const off_t at = ::lseek(fileOf(f).fd, 0, SEEK_CUR);
    if (at < 0) return OX_CANNOT_POSITION;
    *position = static_cast<OXMemSize>(at);
    return OX_OK;
}

OXStatus sizeOfFile(OXIOEFile* f, OXMemSize* size) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if (!size) return OX_INVALID_ARGUMENT;
    struct stat st {};
    if (::fstat(fileOf(f).fd, &st) != 0) return statusOf(errno);
    *size = static_cast<OXMemSize>(st.st_size);
    return OX_OK;
}

// Descriptors that cannot be synchronised (EINVAL) have nothing waiting for a device.
OXStatus flushFile(OXIOEFile* f) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    if (retryInterrupted([&] { return ::fdatasync(fileOf(f).fd); }) == 0 || errno == EINVAL) return OX_OK;
    return statusOf(errno);
}

// The descriptor is gone even when close reports a failure, so it is never retried.
OXStatus closeFile(OXIOEFile* f) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    const int fd = std::exchange(fileOf(f).fd, -1);
    return ::close(fd) == 0 || errno == EINTR ? OX_OK : OX_FILE_IO_ERROR;
}

OXStatus infoOfFile(OXIOEFile* f, OX_POOL_S* pool, OXDictionary* out) {
    if (const OXStatus status = checkOpen(f); status != OX_OK) return status;
    struct stat st {};
    if (::fstat(fileOf(f).fd, &st) != 0) return statusOf(errno);
    return describe(pool, st, out);
}

OXStatus destroyFile(void* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    auto* d = static_cast<DiskFile*>(self);
    if (d->fd >= 0) ::close(d->fd);
    d->rec.pool->memFree(d->rec.pool, d);
    return OX_OK;
}

constexpr OXIOEFile kFileOps = {
    {kFileOven, "", destroyFile}, nullptr, readFile, writeFile, seekFile, tellFile, sizeOfFile, flushFile, closeFile,
    infoOfFile,
};

struct FileDeleter {
    void operator()(DiskFile* d) const { destroyFile(d); }
};

// The record comes first, so a failed allocation never strands an open descriptor.
DiskFile* newFile(OX_POOL_S* pool, std::string_view accessName, OXIOEMode mode) {
    void* mem = pool->memAlloc(pool, sizeof(DiskFile) + accessName.size() + 1, OX_POOL_ZERO_FILL);
    if (!mem) return nullptr;
    auto* d = static_cast<DiskFile*>(mem);
    char* name = reinterpret_cast<char*>(d + 1);
    if (!accessName.empty()) std::memcpy(name, accessName.data(), accessName.size());
    d->rec = kFileOps;
    d->rec.generic.name = name;
    d->rec.pool = pool;
    d->fd = -1;
    d->mode = mode;
    return d;
}

// Linux opens a directory for reading without complaint; a file's reader must not get one.
OXStatus openDescriptor(const char* path, OXIOEMode mode, int& fd) {
    const int opened = retryInterrupted([&] { return ::open(path, kOpenFlags[mode] | O_CLOEXEC | O_NOCTTY, 0666); });
    if (opened < 0) return statusOf(errno);
    struct stat st {};
    OXStatus status = OX_OK;
    if (::fstat(opened, &st) != 0)
        status = statusOf(errno);
    else if (S_ISDIR(st.st_mode))
        status = OX_FILE_IS_DIRECTORY;
    if (status != OX_OK) {
        ::close(opened);
        return status;
    }
    fd = opened;
    return OX_OK;
}

}  // namespace

OXStatus open(OX_POOL_S* pool, const char* accessName, const char* path, OXIOEMode mode, OXIOEFile** out) {
    if (!pool || !path || !out || mode < OXIOE_READ || mode > OXIOE_APPEND) return OX_INVALID_ARGUMENT;
    std::unique_ptr<DiskFile, FileDeleter> file(newFile(pool, accessName ? accessName : "", mode));
    if (!file) return OX_NO_MEMORY;
    if (const OXStatus status = openDescriptor(path, mode, file->fd); status != OX_OK) return status;
    *out = &file.release()->rec;
    return OX_OK;
}

OXStatus pathInfo(OX_POOL_S* pool, const char* path, OXDictionary* out) {
    if (!path) return OX_INVALID_ARGUMENT;
    struct stat st {};
    if (retryInterrupted([&] { return ::stat(path, &st); }) != 0) return statusOf(errno);
    return describe(pool, st, out);
}

}  // namespace ox::disk
