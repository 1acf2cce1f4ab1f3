// Reading OXLOG_LEVEL: "warn,App.ox.s3=debug" and the level names it uses.
#include "logconfig.h"

#include <algorithm>

#include "utf8.h"

namespace ox::log {

namespace {

struct LevelName {
    std::string_view name;
    const char* label;
    int level;
};

constexpr LevelName kLevels[] = {
    {"trace", "TRACE", LL_Trace}, {"debug", "DEBUG", LL_Debug}, {"info", "INFO", LL_Info},
    {"warn", "WARN", LL_Warn},    {"error", "ERROR", LL_Error}, {"fatal", "FATAL", LL_Fatal},
    {"off", "OFF", LL_Off},
};

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
               return lower(x) == lower(y);
           });
}

std::string_view trimmed(std::string_view s) {
    constexpr std::string_view kSpace = " \t\r\n";
    size_t first = s.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(kSpace) - first + 1);
}

std::u32string wideOf(std::string_view utf8) {
    std::u32string wide;
    ox::utf8::forEachCodePoint(utf8, [&](char32_t c) { wide.push_back(c); });
    return wide;
}

void applyItem(std::string_view item, LevelSettings& settings) {
    size_t eq = item.find('=');
    std::optional<int> level = levelFromName(trimmed(eq == std::string_view::npos ? item : item.substr(eq + 1)));
    if (!level) return;
    if (eq == std::string_view::npos) {
        settings.defaultLevel = *level;
        return;
    }
    std::string_view logger = trimmed(item.substr(0, eq));
    if (!logger.empty()) settings.loggers.push_back({wideOf(logger), *level});
}

}  // namespace

std::optional<int> levelFromName(std::string_view name) {
    for (const LevelName& l : kLevels)
        if (equalsIgnoringAsciiCase(name, l.name)) return l.level;
    return std::nullopt;
}

const char* levelLabel(int level) {
    for (const LevelName& l : kLevels)
        if (l.level == level) return l.label;
    return "LEVEL";
}

int LevelSettings::levelFor(std::u32string_view logger) const {
    auto it = std::find_if(loggers.rbegin(), loggers.rend(), [&](const LoggerLevelSetting& s) { return s.logger == logger; });
    return it == loggers.rend() ? LL_Uninitialized : it->level;
}

LevelSettings parseLevelSettings(std::string_view text) {
    LevelSettings settings;
    while (!text.empty()) {
        size_t comma = text.find(',');
        applyItem(text.substr(0, comma), settings);
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
    return settings;
}

}  // namespace ox::log
