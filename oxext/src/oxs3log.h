// Logging on the extension's logger: wide format strings rendered by the host only when the
// level is enabled, so disabled trace lines cost one call.
#pragma once

#include <cstdio>
#include <cstring>
#include <string_view>

#include "ox/log.h"

namespace s3 {

// The extension's logger, set once by the entry, for code with no record at hand.
extern Logger_S* oxs3logger;
// The logger of the encryption code (the same logger, kept under its own name).
extern Logger_S* encryptionLogger;

inline const OXChar* wide(const char32_t* text) { return reinterpret_cast<const OXChar*>(text); }

inline bool logEnabled(Logger_S* logger, int level) {
    return logger && logger->logSvcs && logger->logSvcs->IsEnabled(logger, level);
}

constexpr size_t kLogLineChars = 2048;

template <class... Args>
void logAt(Logger_S* logger, int level, const char* file, int line, const char32_t* format, Args... args) {
    if (!logEnabled(logger, level)) return;
    OXChar message[kLogLineChars];
    LoggerRender(message, kLogLineChars, wide(format), args...);
    char lineText[16];
    std::snprintf(lineText, sizeof lineText, "%d", line);
    logger->logSvcs->LogEvent(logger, level, 0, 0, 0, lineText, file, std::strlen(file), message, 0);
}

}  // namespace s3

#define OXS3_LOG(logger, level, format, ...) ::s3::logAt((logger), (level), __FILE__, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)
