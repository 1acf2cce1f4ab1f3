// The configuration-file reader: INI-style text ("[section]", "key = value", comment and
// continuation lines) into a dictionary of section dictionaries of UTF-8 strings. The AWS
// shared config and credentials files and the extension's own flat file all go through it.
#include "configfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "dictionary_internal.h"
#include "ox/owned.hpp"
#include "ox/status.h"
#include "poolbuf.h"

namespace {

using DictOwned = ox::Owned<OXDictionary_S>;

constexpr std::string_view kSpace = " \t\r\f\v";
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

std::string_view trim(std::string_view s) {
    size_t from = s.find_first_not_of(kSpace);
    if (from == std::string_view::npos) return {};
    return s.substr(from, s.find_last_not_of(kSpace) - from + 1);
}

bool isIndented(std::string_view line) { return !line.empty() && (line[0] == ' ' || line[0] == '\t'); }
bool isComment(std::string_view text) { return text[0] == '#' || text[0] == ';'; }
bool isSyntaxError(OXStatus st) { return st == OX_CONFIG_BAD_LINE || st == OX_CONFIG_BAD_SECTION; }

// Lines split on '\n'; a '\r' before it goes with the trimmed white space.
class Lines {
public:
    explicit Lines(std::string_view text) : rest_(text) {}
    bool next(std::string_view& line) {
        if (rest_.empty()) return false;
        size_t end = rest_.find('\n');
        line = rest_.substr(0, end);
        rest_ = end == std::string_view::npos ? std::string_view() : rest_.substr(end + 1);
        ++number_;
        return true;
    }
    int64_t number() const { return number_; }

private:
    std::string_view rest_;
    int64_t number_ = 0;
};

// One pass over the text, keeping the result until it is complete.
class Parser {
public:
    explicit Parser(OX_POOL_S* pool) : pool_(pool), value_(pool) {}

    OXStatus run(std::string_view text, int64_t* errorLine) {
        OXStatus st = oxDictionaryCreate(pool_, OX_DICT_CASE_SENSITIVE, result_.out());
        if (text.starts_with(kUtf8Bom)) text.remove_prefix(kUtf8Bom.size());
        Lines lines(text);
        std::string_view raw;
        while (st == OX_OK && lines.next(raw)) st = line(raw);
        if (isSyntaxError(st) && errorLine) *errorLine = lines.number();
        return st == OX_OK ? finishKey() : st;
    }
    OXDictionary take() { return result_.release(); }

private:
    // Blank lines end a value; comment lines are skipped without ending one.
    OXStatus line(std::string_view raw) {
        std::string_view text = trim(raw);
        if (text.empty()) return finishKey();
        if (isComment(text)) return OX_OK;
        if (haveKey_ && isIndented(raw)) return continueValue(text);
        OXStatus st = finishKey();
        if (st != OX_OK) return st;
        return text[0] == '[' ? startSection(text) : startKey(text);
    }

    OXStatus startSection(std::string_view text) {
        if (text.back() != ']') return OX_CONFIG_BAD_SECTION;
        std::string_view name = trim(text.substr(1, text.size() - 2));
        return name.empty() ? OX_CONFIG_BAD_SECTION : enterSection(name);
    }

    // Sections of the same name merge, so an existing one is entered again.
    OXStatus enterSection(std::string_view name) {
        OXInstance* existing = nullptr;
        if (result_->getValueU8(result_.get(), name.data(), name.size(), &existing) == OX_OK) {
            section_ = reinterpret_cast<OXDictionary>(existing);
            return OX_OK;
        }
        DictOwned fresh;
        OXStatus st = oxDictionaryCreate(pool_, OX_DICT_CASE_SENSITIVE, fresh.out());
        if (st == OX_OK) st = result_->setValueU8(result_.get(), name.data(), name.size(), fresh.instance());
        if (st == OX_OK) section_ = fresh.get();  // the result holds it on after fresh lets go
        return st;
    }

    OXStatus startKey(std::string_view text) {
        size_t eq = text.find('=');
        if (eq == std::string_view::npos) return OX_CONFIG_BAD_LINE;
        std::string_view key = trim(text.substr(0, eq));
        if (key.empty()) return OX_CONFIG_BAD_LINE;
        OXStatus st = section_ ? OX_OK : enterSection("");
        value_.clear();
        if (st == OX_OK) st = append(trim(text.substr(eq + 1)));
        key_ = key;
        haveKey_ = st == OX_OK;
        return st;
    }

    OXStatus continueValue(std::string_view text) {
        OXStatus st = append("\n");
        return st == OX_OK ? append(text) : st;
    }

    OXStatus append(std::string_view s) { return value_.append(s.data(), s.size()) ? OX_OK : OX_NO_MEMORY; }

    // Later duplicates replace earlier ones: set, not add.
    OXStatus finishKey() {
        if (!haveKey_) return OX_OK;
        haveKey_ = false;
        std::string_view v = value_.empty() ? std::string_view("") : ox::view(value_);
        return section_->setU8ValueU8(section_, key_.data(), key_.size(), v.data(), v.size());
    }

    OX_POOL_S* pool_;
    DictOwned result_;
    OXDictionary section_ = nullptr;  // borrowed from result_
    std::string_view key_;
    bool haveKey_ = false;
    ox::PoolBuffer<char> value_;
};

struct ErrnoStatus {
    int err;
    OXStatus status;
};

constexpr ErrnoStatus kFileErrors[] = {
    {ENOENT, OX_FILE_NOT_FOUND},     {ENOTDIR, OX_FILE_NOT_FOUND}, {ENAMETOOLONG, OX_FILE_NOT_FOUND},
    {EACCES, OX_FILE_ACCESS_DENIED}, {EPERM, OX_FILE_ACCESS_DENIED}, {ENOMEM, OX_NO_MEMORY},
};

OXStatus fileStatus(int err) {
    for (const auto& e : kFileErrors)
        if (e.err == err) return e.status;
    return OX_FILE_IO_ERROR;
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

constexpr size_t kReadChunk = 8192;

// Reads to the end rather than trusting the size, so files that grow or report no size
// (pipes, /proc) are read whole.
OXStatus readWhole(const char* path, ox::PoolBuffer<char>& bytes) {
    FileDescriptor fd(open(path, O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return fileStatus(errno);
    char chunk[kReadChunk];
    for (;;) {
        ssize_t n = read(fd.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fileStatus(errno);
        if (n == 0) return OX_OK;
        if (!bytes.append(chunk, static_cast<size_t>(n))) return OX_NO_MEMORY;
    }
}

}  // namespace

OXStatus oxConfigParseText(OXInstanceSvc_S*, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXDictionary* out,
                           int64_t* errorLine) {
    if (errorLine) *errorLine = 0;
    if (!pool || !out || (!text && len)) return OX_INVALID_ARGUMENT;
    Parser parser(pool);
    OXStatus st = parser.run(len ? std::string_view(text, len) : std::string_view(), errorLine);
    if (st != OX_OK) return st;
    *out = parser.take();
    return OX_OK;
}

OXStatus oxConfigReadFile(OXInstanceSvc_S* svc, OX_POOL_S* pool, const char* path, OXDictionary* out,
                          int64_t* errorLine) {
    if (errorLine) *errorLine = 0;
    if (!pool || !path || !out) return OX_INVALID_ARGUMENT;
    ox::PoolBuffer<char> bytes(pool);
    OXStatus st = readWhole(path, bytes);
    if (st != OX_OK) return st;
    return oxConfigParseText(svc, pool, bytes.data(), bytes.size(), out, errorLine);
}
