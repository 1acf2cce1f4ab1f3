// The extension's entry: loads the host services, builds the extension record and tears it
// down again. Only the entry is exported from the library.
#include <string_view>
#include <type_traits>

#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3bucket.h"
#include "oxs3log.h"

namespace s3 {

Logger_S* oxs3logger = nullptr;
Logger_S* encryptionLogger = nullptr;

namespace {

constexpr uint64_t kRequiredHostVersion[3] = {7, 1, 1};
constexpr uint64_t kVersion[3] = {2, 0, 0};
constexpr int kJournalSeverity = 4;
constexpr std::u32string_view kLoggerName = U"App.ox.s3";

const OXChar* chars(std::u32string_view s) { return reinterpret_cast<const OXChar*>(s.data()); }

OXStatus writeVersion(const uint64_t (&v)[3], uint64_t* major, uint64_t* minor, uint64_t* revision) {
    if (!major || !minor || !revision) return OX_INVALID_ARGUMENT;
    *major = v[0];
    *minor = v[1];
    *revision = v[2];
    return OX_OK;
}

// Each service's record field, typed as the service it holds.
template <auto Field>
void storeService(OXS3Extension* ext, OXExtension* service) {
    using Record = std::remove_reference_t<decltype(ext->*Field)>;
    ext->*Field = reinterpret_cast<Record>(service);
}

template <auto Field>
OXExtension* takeService(OXS3Extension* ext) {
    auto* service = reinterpret_cast<OXExtension*>(ext->*Field);
    ext->*Field = nullptr;
    return service;
}

struct ServiceSlot {
    std::u32string_view name;
    void (*store)(OXS3Extension*, OXExtension*);
    OXExtension* (*take)(OXS3Extension*);
};

template <auto Field>
constexpr ServiceSlot slot(std::u32string_view name) {
    return {name, storeService<Field>, takeService<Field>};
}

// Load order.
constexpr ServiceSlot kServices[] = {
    slot<&OXS3Extension::secSockets>(U"secsocket"),      slot<&OXS3Extension::oxstring>(U"oxstring"),
    slot<&OXS3Extension::oxeavl>(U"oxeavl"),             slot<&OXS3Extension::oxexml>(U"oxexml"),
    slot<&OXS3Extension::webclient>(U"webclient"),       slot<&OXS3Extension::oxdictionary>(U"oxdictionary"),
    slot<&OXS3Extension::oxarray>(U"oxarray"),           slot<&OXS3Extension::oxioe>(U"oxioe"),
};

// Unload order, which is not quite the reverse of loading.
constexpr ServiceSlot kUnloadOrder[] = {
    slot<&OXS3Extension::oxioe>(U"oxioe"),               slot<&OXS3Extension::oxarray>(U"oxarray"),
    slot<&OXS3Extension::webclient>(U"webclient"),       slot<&OXS3Extension::oxdictionary>(U"oxdictionary"),
    slot<&OXS3Extension::oxexml>(U"oxexml"),             slot<&OXS3Extension::oxeavl>(U"oxeavl"),
    slot<&OXS3Extension::oxstring>(U"oxstring"),         slot<&OXS3Extension::secSockets>(U"secsocket"),
};

OXStatus loadServices(OXS3Extension* ext, OX_HNDL_S* h, OXJournal* jnl) {
    for (const auto& s : kServices) {
        OXExtension* service = h->loadExtension(h, chars(s.name), s.name.size(), jnl);
        if (!service) return OX_SERVICE_MISSING;
        s.store(ext, service);
    }
    return OX_OK;
}

void unloadServices(OXS3Extension* ext) {
    for (const auto& s : kUnloadOrder)
        if (OXExtension* service = s.take(ext)) service->generic.destroy(service);
}

void fillSlots(OXS3Extension* ext) {
    setConnectionOps(ext);
    setACLFunctions(ext);
    ext->validBucketName = validBucketName;
    setPathOps(ext);
    setConfigOps(ext);
    setFileOps(ext);
    ext->getEC2Region = nullptr;      // join with the instance-metadata client
    ext->getEC2RoleName = nullptr;
    ext->getIAMRole = nullptr;
    ext->locationCreateU8 = ext->createLocationU8;
}

OXStatus createCustomRegionTables(OXS3Extension* ext) {
    OXStatus st = ext->oxarray->create(ext->oxarray, ext->pool, 0, &ext->customRegionsById);
    if (st != OX_OK) return st;
    st = ext->oxdictionary->create(ext->oxdictionary, ext->pool, OX_DICT_CASE_SENSITIVE, &ext->customRegions);
    if (st != OX_OK) return st;
    return getCustomRegions(ext);
}

OX_LOCK_S* createCustomRegionLock(OX_HNDL_S* h, OXJournal* jnl) {
    OXLockCreateParms parms{};
    parms.ownIt = OX_FALSE;
    parms.rw = OX_TRUE;
    return h->lockCreate(h, &parms, jnl, "oxs3 custom region lock");
}

void destroyInstance(auto*& object) {
    if (object) reinterpret_cast<OXInstance*>(object)->destroy(object);
    object = nullptr;
}

OXStatus getReqVersion(void*, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    return writeVersion(kRequiredHostVersion, major, minor, revision);
}

OXStatus getVersion(void*, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    return writeVersion(kVersion, major, minor, revision);
}

OXStatus realDestroy(void* self);

// Steps up to the record: logger, pool, record. Each failure here is journalled.
OXS3Extension* makeRecord(OX_HNDL_S* h, OXJournal* jnl) {
    Logger_S* logger = h->log4qel ? h->log4qel->GetLogger(chars(kLoggerName), kLoggerName.size()) : nullptr;
    if (!logger) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, kJournalSeverity);
        return nullptr;
    }
    oxs3logger = logger;
    encryptionLogger = logger;
    OXPoolCreateParms poolParms{};
    OX_POOL_S* pool = h->poolCreate(h, &poolParms, jnl, "oxs3 pool");
    if (!pool) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, kJournalSeverity);
        return nullptr;
    }
    auto* ext = static_cast<OXS3Extension*>(pool->memAlloc(pool, sizeof(OXS3Extension), OX_POOL_ZERO_FILL));
    if (!ext) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, kJournalSeverity);
        pool->generic.destroy(pool);
        return nullptr;
    }
    ext->pool = pool;
    ext->logger = logger;
    ext->showAuthCalc = OX_FALSE;
    ext->exth.generic.oven = OXS3_EXTENSION_OVEN;
    ext->exth.generic.name = "oxs3";
    ext->exth.generic.destroy = realDestroy;
    ext->exth.getReqVersion = getReqVersion;
    ext->exth.getVersion = getVersion;
    ext->exth.realDestroy = realDestroy;
    ext->exth.hndl = h;
    return ext;
}

OXStatus setUp(OXS3Extension* ext, OX_HNDL_S* h, OXJournal* jnl) {
    OXStatus st = loadServices(ext, h, jnl);
    if (st != OX_OK) return st;
    ext->oxinstance = ext->oxstring->oxinstance;
    fillSlots(ext);
    initEC2Info(ext, ext->pool);
    st = createCustomRegionTables(ext);
    if (st != OX_OK) return st;
    ext->customRegionLock = createCustomRegionLock(h, jnl);
    if (!ext->customRegionLock) return OX_NO_MEMORY;
    return registerMessages();
}

OXStatus realDestroy(void* self) {
    auto* ext = static_cast<OXS3Extension*>(self);
    if (!ext) return OX_INVALID_ARGUMENT;
    if (ext->customRegionLock) unregisterMessages();  // registered last, so only a complete load has it
    destroyInstance(ext->ec2Region);
    if (ext->customRegions && ext->customRegionsById) saveCustomRegions(ext);
    destroyInstance(ext->customRegionsById);
    destroyInstance(ext->customRegions);
    if (ext->customRegionLock) ext->customRegionLock->generic.destroy(ext->customRegionLock);
    ext->customRegionLock = nullptr;
    unloadServices(ext);
    OX_POOL_S* pool = ext->pool;
    pool->memFree(pool, ext);
    pool->generic.destroy(pool);
    return OX_OK;
}

}  // namespace

OXStatus oxs3GetReqVersion(OXS3Extension* ext, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    return getReqVersion(ext, major, minor, revision);
}

OXStatus oxs3GetVersion(OXS3Extension* ext, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    return getVersion(ext, major, minor, revision);
}

OXStatus oxs3RealDestroy(OXS3Extension* ext) { return realDestroy(ext); }

}  // namespace s3

OXS3Extension* oxs3(OX_HNDL_S* hndl, OXJournal* jnl, ...) {
    if (!hndl) return nullptr;
    OXS3Extension* ext = s3::makeRecord(hndl, jnl);
    if (!ext) return nullptr;
    if (s3::setUp(ext, hndl, jnl) != OX_OK) {
        s3::oxs3RealDestroy(ext);  // deliberately not journalled: only the first three failures are
        return nullptr;
    }
    return ext;
}
