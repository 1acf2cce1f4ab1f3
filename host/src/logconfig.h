// Logging configuration: the OXLOG_LEVEL and OXLOG_FILE texts and what they mean.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ox/log.h"
#include "ox/types.h"

OX_BEGIN_DECLS

// Applies these texts as if the host had started with them in OXLOG_LEVEL and OXLOG_FILE
// (null for unset). Levels set at run time are replaced. For tests and diagnostics.
OX_API void oxLogConfigure(const char* levelText, const char* fileText);

OX_END_DECLS

namespace ox::log {

inline constexpr int kDefaultLevel = LL_Warn;

struct LoggerLevelSetting {
    std::u32string logger;
    int level;
};

struct LevelSettings {
    int defaultLevel = kDefaultLevel;
    std::vector<LoggerLevelSetting> loggers;  // in the order given; later ones win

    // The level configured for exactly this logger, or LL_Uninitialized.
    int levelFor(std::u32string_view logger) const;
};

// "trace".."off" in any case.
std::optional<int> levelFromName(std::string_view name);

// The name written in log lines: "TRACE".."FATAL".
const char* levelLabel(int level);

// Parses an OXLOG_LEVEL text. Items naming no known level are skipped. Throws only std::bad_alloc.
LevelSettings parseLevelSettings(std::string_view text);

}  // namespace ox::log
