// Log lines: formatting and the one destination every logger shares.
#include "logoutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "logconfig.h"
#include "ox/status.h"
#include "utf8.h"

namespace ox::log {

namespace {

// Never destroyed: threads may still log while the process exits.
struct Output {
    std::mutex mutex;
    int fd = STDERR_FILENO;
};

Output& output() {
    static Output* o = new Output;
    return *o;
}

int openDestination(std::string_view fileText) {
    if (fileText.empty() || fileText == "stderr") return STDERR_FILENO;
    std::string path(fileText);
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    return fd < 0 ? STDERR_FILENO : fd;
}

void appendTimestamp(std::string& line) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char text[40];
    int n = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                          utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now.tv_nsec / 1000000));
    line.append(text, n > 0 ? static_cast<size_t>(n) : 0);
}

void appendWide(std::string& line, std::u32string_view text) {
    for (char32_t c : text) {
        char bytes[4];
        size_t len = ox::utf8::encode(c, bytes);
        if (len == 0) len = ox::utf8::encode(ox::utf8::kReplacement, bytes);
        line.append(bytes, len);
    }
}

std::u32string_view terminated(const OXChar* text) {
    return text ? std::u32string_view(reinterpret_cast<const char32_t*>(text)) : std::u32string_view();
}

std::string_view fileName(std::string_view path) {
    size_t slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string formatLine(const Event& event) {
    std::string line;
    line.reserve(128);
    appendTimestamp(line);
    line.append(" ").append(levelLabel(event.level)).append(" ");
    appendWide(line, event.logger);
    if (!event.srcPath.empty()) {
        line.append(" [").append(fileName(event.srcPath));
        if (event.lineText && *event.lineText) line.append(":").append(event.lineText);
        line.append("]");
    }
    line.append(" ");
    appendWide(line, terminated(event.message));
    line.append("\n");
    return line;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

}  // namespace

void setOutput(std::string_view fileText) {
    int fd;
    try {
        fd = openDestination(fileText);
    } catch (...) {
        fd = STDERR_FILENO;
    }
    Output& o = output();
    std::lock_guard lock(o.mutex);
    if (o.fd != STDERR_FILENO) ::close(o.fd);
    o.fd = fd;
}

OXStatus writeLine(const Event& event) {
    std::string line;
    try {
        line = formatLine(event);
    } catch (...) {
        return OX_NO_MEMORY;
    }
    Output& o = output();
    std::lock_guard lock(o.mutex);
    return writeAll(o.fd, line) ? OX_OK : OX_FILE_IO_ERROR;
}

}  // namespace ox::log
