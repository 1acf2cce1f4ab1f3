// The I/O service: files opened through engines found by eight-character name (the disk
// engine built in, modules' engines in a small process-wide table), and the information
// items of local files.
#include <array>
#include <mutex>
#include <optional>

#include "builtin.h"
#include "diskfile.h"
#include "ox/ioe.h"
#include "ox/status.h"
#include "services.h"

namespace {

using EngineName = std::array<char, OXIOE_ENGINE_NAME_LEN>;

constexpr EngineName kBlankName = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
constexpr EngineName kDiskName = {'D', 'I', 'S', 'K', ' ', ' ', ' ', ' '};

// Eight characters, blank padded; a shorter name ends at its 0. Null and blank are no name.
std::optional<EngineName> engineName(const char* name) {
    if (!name) return std::nullopt;
    EngineName padded = kBlankName;
    for (size_t i = 0; i < padded.size() && name[i]; ++i) padded[i] = name[i];
    if (padded == kBlankName) return std::nullopt;
    return padded;
}

// ---- modules' engines, shared by every loaded copy of the service

constexpr size_t kMaxEngines = 16;

struct EngineSlot {
    EngineName name;
    const OXIOEEngine* engine;
};

struct EngineTable {
    std::mutex mutex;
    EngineSlot slots[kMaxEngines]{};
    size_t count = 0;

    EngineSlot* find(const EngineName& name) {
        for (size_t i = 0; i < count; ++i)
            if (slots[i].name == name) return &slots[i];
        return nullptr;
    }
};

constinit EngineTable engines;

OXStatus registerEngine(OXIOE_EXTENSION_S*, const char* name, const OXIOEEngine* engine) {
    const std::optional<EngineName> key = engineName(name);
    if (!key || *key == kDiskName || !engine || !engine->open) return OX_INVALID_ARGUMENT;
    std::lock_guard lock(engines.mutex);
    if (engines.find(*key)) return OX_INVALID_ARGUMENT;
    if (engines.count == kMaxEngines) return OX_NO_MEMORY;
    engines.slots[engines.count++] = {*key, engine};
    return OX_OK;
}

OXStatus unregisterEngine(OXIOE_EXTENSION_S*, const char* name) {
    const std::optional<EngineName> key = engineName(name);
    if (!key) return OX_INVALID_ARGUMENT;
    std::lock_guard lock(engines.mutex);
    EngineSlot* slot = engines.find(*key);
    if (!slot) return OX_NOT_FOUND;
    *slot = engines.slots[--engines.count];
    return OX_OK;
}

const OXIOEEngine* registeredEngine(const EngineName& name) {
    std::lock_guard lock(engines.mutex);
    const EngineSlot* slot = engines.find(name);
    return slot ? slot->engine : nullptr;
}

// ---- the service's operations

OXStatus openFile(OXIOE_EXTENSION_S*, OX_POOL_S* pool, const char* engine, const char* accessName, const char* path,
                  OXIOEMode mode, OXIOEFile** out) {
    const std::optional<EngineName> key = engineName(engine);
    if (!key || !pool || !path || !out) return OX_INVALID_ARGUMENT;
    if (*key == kDiskName) return ox::disk::open(pool, accessName, path, mode, out);
    const OXIOEEngine* e = registeredEngine(*key);
    return e ? e->open(e, pool, accessName, path, mode, out) : OX_NOT_SUPPORTED;
}

OXStatus fileInfo(OXIOE_EXTENSION_S*, OX_POOL_S* pool, const char* path, OXDictionary* out) {
    return ox::disk::pathInfo(pool, path, out);
}

void fillIoeOps(OXIOE_EXTENSION_S& rec) {
    rec.fileInfo = fileInfo;
    rec.open = openFile;
    rec.registerEngine = registerEngine;
    rec.unregisterEngine = unregisterEngine;
}

}  // namespace

OXExtension* oxLoadIoe(OX_HNDL_S* h, OXJournal*) { return ox::loadedRecord<OXIOE_EXTENSION_S>(h, "oxioe", fillIoeOps); }
