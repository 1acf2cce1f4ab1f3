// The host handle: one per process, made by oxHostInit, filled with the handle operations of
// the other host files, and the loader that finds services by name.
#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "core.h"
#include "object.h"
#include "services.h"

OX_HNDL_S* Exported_OXHandle = nullptr;

namespace {

struct BuiltinService {
    const char* name;
    OXExtension* (*load)(OX_HNDL_S*, OXJournal*);
};

constexpr BuiltinService kBuiltins[] = {
    {"secsocket", oxLoadSecSocket},   {"oxstring", oxLoadString},   {"oxeavl", oxLoadEavl},
    {"oxexml", oxLoadXml},            {"webclient", oxLoadWebClient}, {"oxdictionary", oxLoadDictionary},
    {"oxarray", oxLoadArray},         {"oxioe", oxLoadIoe},         {"oxinstjson", oxLoadInstJson},
};

const BuiltinService* findBuiltin(std::string_view name) {
    for (const auto& s : kBuiltins)
        if (name == s.name) return &s;
    return nullptr;
}

// The directory this library was loaded from: modules are installed beside the host.
std::string hostDirectory() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&oxHostInit), &info) || !info.dli_fname) return {};
    std::string path = info.dli_fname;
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

void* openIn(const std::string& dir, const std::string& file) {
    return dir.empty() ? nullptr : dlopen((dir + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
}

// "oxs3" -> "liboxs3.so", looked for in OX_MODULE_PATH when set, then beside the host library,
// then the usual way (LD_LIBRARY_PATH, the system's directories); a name with a '/' or ending
// in ".so" is used as it is.
void* openModule(const std::string& name) {
    bool literal = name.find('/') != std::string::npos ||
                   (name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0);
    if (literal) return dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    std::string file = "lib" + name + ".so";
    const char* modulePath = std::getenv("OX_MODULE_PATH");
    if (void* lib = openIn(modulePath ? modulePath : "", file)) return lib;
    if (void* lib = openIn(hostDirectory(), file)) return lib;
    return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
}

std::string entryName(const std::string& name) {
    std::string base = name.substr(name.find_last_of('/') + 1);
    if (base.size() > 3 && base.compare(base.size() - 3, 3, ".so") == 0) base.resize(base.size() - 3);
    if (base.rfind("lib", 0) == 0) base.erase(0, 3);
    return base;
}

// Modules stay mapped once loaded: their code may still be on some thread's stack when the
// record is destroyed, so the loader never unmaps them.
OXExtension* loadModule(OX_HNDL_S* h, const std::string& name, OXJournal* jnl) {
    void* lib = openModule(name);
    if (!lib) {
        oxlStatusToJnl(jnl, OX_SERVICE_MISSING, 4);
        return nullptr;
    }
    auto entry = reinterpret_cast<OXExtensionEntry>(dlsym(lib, entryName(name).c_str()));
    if (!entry) {
        oxlStatusToJnl(jnl, OX_SERVICE_MISSING, 4);
        return nullptr;
    }
    OXExtension* ext = entry(h, jnl);
    if (ext) ext->handle = lib;
    return ext;
}

OXExtension* loadExtension(OX_HNDL_S* h, const OXChar* name, size_t nameL, OXJournal* jnl) {
    if (!name || nameL == 0) return nullptr;
    std::string ascii;
    try {
        ox::asciiOf(name, nameL, ascii);
        if (const BuiltinService* s = findBuiltin(ascii)) {
            OXExtension* ext = s->load(h, jnl);
            if (!ext) oxlStatusToJnl(jnl, OX_SERVICE_MISSING, 4);
            return ext;
        }
        return loadModule(h, ascii, jnl);
    } catch (...) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
}

OXStatus destroyHandle(void*) { return OX_OK; }  // the handle lives as long as the process

OX_HNDL_S theHandle;
std::once_flag handleOnce;

void makeHandle() {
    ox::initGeneric(theHandle.generic, OX_OVEN('h', 'n', 'd', 'l'), "OXHandle", destroyHandle);
    theHandle.poolCreate = oxPoolCreate;
    theHandle.lockCreate = oxLockCreate;
    theHandle.loadExtension = loadExtension;
    theHandle.eventCreate = oxEventCreate;
    theHandle.threadCreate = oxThreadCreate;
    theHandle.nameExists = oxNameExists;
    theHandle.nameGet = oxNameGet;
    theHandle.nameSet = oxNameSet;
    theHandle.log4qel = oxLogFramework();
    Exported_OXHandle = &theHandle;
}

}  // namespace

OX_HNDL_S* oxHostInit(void) {
    std::call_once(handleOnce, makeHandle);
    return &theHandle;
}
