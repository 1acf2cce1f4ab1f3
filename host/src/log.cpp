// The logging framework: named loggers in a dot-separated hierarchy, each with its own level or
// the nearest ancestor's, configured from the environment when first used.
#include <cstdlib>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "core.h"
#include "logconfig.h"
#include "logoutput.h"
#include "ox/log.h"
#include "ox/status.h"

namespace {

struct LoggerNode {
    Logger_S rec;  // first, so the record pointer is the node pointer
    std::u32string name;
};

// Loggers live as long as the process, so the registry is never destroyed.
struct Registry {
    std::shared_mutex mutex;
    std::unordered_map<std::u32string, LoggerNode*> byName;
    std::vector<LoggerNode*> inOrder;  // every parent before its children
    ox::log::LevelSettings settings;
};

int loadLevel(const volatile int& field) { return __atomic_load_n(&field, __ATOMIC_RELAXED); }
void storeLevel(volatile int& field, int level) { __atomic_store_n(&field, level, __ATOMIC_RELAXED); }

bool isOwnLevel(int level) { return level > LL_Null && level < LL_Uninitialized; }

int effectiveLevel(const Logger_S& logger) {
    int own = loadLevel(logger.level);
    return isOwnLevel(own) ? own : loadLevel(logger.ancestorlevel);
}

// Caller holds the registry exclusively.
void refreshInheritedLevels(Registry& r) {
    for (LoggerNode* node : r.inOrder) {
        const Logger_S* parent = node->rec.parent;
        storeLevel(node->rec.ancestorlevel, parent ? effectiveLevel(*parent) : r.settings.defaultLevel);
    }
}

void applySettings(Registry& r, ox::log::LevelSettings settings) {
    r.settings = std::move(settings);
    for (LoggerNode* node : r.inOrder) storeLevel(node->rec.level, r.settings.levelFor(node->name));
    refreshInheritedLevels(r);
}

ox::log::LevelSettings settingsFromText(const char* text) {
    try {
        return ox::log::parseLevelSettings(text ? text : "");
    } catch (...) {
        return {};
    }
}

Registry& registry() {
    static Registry* r = [] {
        auto* made = new Registry;
        made->settings = settingsFromText(std::getenv("OXLOG_LEVEL"));
        const char* file = std::getenv("OXLOG_FILE");
        ox::log::setOutput(file ? file : "");
        return made;
    }();
    return *r;
}

// ---- the services every logger carries

OXBoolean isEnabled(Logger_S* logger, int level) {
    return logger && level >= LL_Trace && level <= LL_Fatal && level >= effectiveLevel(*logger) ? OX_TRUE : OX_FALSE;
}

OXStatus logEvent(Logger_S* logger, int level, int, int, int, const char* lineText, const char* srcPath, size_t srcPathL,
                  const OXChar* message, int) {
    if (!isEnabled(logger, level)) return OX_OK;
    std::string_view path = srcPath ? std::string_view(srcPath, srcPathL) : std::string_view();
    std::u32string_view name(reinterpret_cast<const char32_t*>(logger->name), logger->nameL);
    return ox::log::writeLine({level, name, path, lineText, message});
}

constexpr LoggerServices_S kLoggerServices = {isEnabled, logEvent};

// ---- making loggers

// Caller holds the registry exclusively. Throws only std::bad_alloc.
LoggerNode* makeLogger(Registry& r, std::u32string_view name, LoggerNode* parent) {
    auto* node = new LoggerNode{};
    try {
        node->name = name;
        r.inOrder.reserve(r.inOrder.size() + 1);
        r.byName.emplace(node->name, node);
    } catch (...) {
        delete node;
        throw;
    }
    r.inOrder.push_back(node);
    Logger_S& rec = node->rec;
    rec.name = reinterpret_cast<const OXChar*>(node->name.data());
    rec.nameL = node->name.size();
    rec.logSvcs = &kLoggerServices;
    rec.level = r.settings.levelFor(node->name);
    rec.ancestorlevel = parent ? effectiveLevel(parent->rec) : r.settings.defaultLevel;
    rec.additive = OX_TRUE;
    rec.immutable = OX_FALSE;
    rec.desc = "";
    rec.parent = parent ? &parent->rec : nullptr;
    return node;
}

LoggerNode* findLogger(Registry& r, std::u32string_view name) {
    auto it = r.byName.find(std::u32string(name));
    return it == r.byName.end() ? nullptr : it->second;
}

// Makes each missing ancestor ("App", "App.ox") on the way to the full name.
LoggerNode* findOrMakeLineage(Registry& r, std::u32string_view name) {
    LoggerNode* parent = nullptr;
    for (size_t end = 0; end != std::u32string_view::npos;) {
        end = name.find(U'.', end + 1);
        std::u32string_view prefix = name.substr(0, end);
        LoggerNode* node = findLogger(r, prefix);
        parent = node ? node : makeLogger(r, prefix, parent);
    }
    return parent;
}

Logger_S* getLogger(const OXChar* name, size_t nameL) {
    if (!name || nameL == 0) return nullptr;
    std::u32string_view wanted(reinterpret_cast<const char32_t*>(name), nameL);
    Registry& r = registry();
    try {
        {
            std::shared_lock lock(r.mutex);
            if (LoggerNode* node = findLogger(r, wanted)) return &node->rec;
        }
        std::unique_lock lock(r.mutex);
        return &findOrMakeLineage(r, wanted)->rec;
    } catch (...) {
        return nullptr;
    }
}

void setLevel(Logger_S* logger, int level) {
    if (!logger || level < LL_Null || level > LL_Uninitialized) return;
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    storeLevel(logger->level, level);
    refreshInheritedLevels(r);
}

constexpr Log4QEL_S kFramework = {getLogger, setLevel};

}  // namespace

const Log4QEL_S* oxLogFramework() {
    registry();
    return &kFramework;
}

int oxLoggerEffectiveLevel(const Logger_S* logger) { return logger ? effectiveLevel(*logger) : LL_Off; }

void oxLogConfigure(const char* levelText, const char* fileText) {
    ox::log::LevelSettings settings = settingsFromText(levelText);
    // The registry reads the environment's configuration on first use: make it before the
    // output is set, or that first read would undo this one.
    Registry& r = registry();
    ox::log::setOutput(fileText ? fileText : "");
    std::unique_lock lock(r.mutex);
    applySettings(r, std::move(settings));
}
