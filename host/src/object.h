// Helpers every host service uses to fill object heads: generic heads, reference-counted
// instance heads and loaded-service heads.
#pragma once

#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"

namespace ox {

// The host's own version, which modules compare with what they require.
inline constexpr uint64_t kHostVersion[3] = {7, 1, 1};

inline void initGeneric(OXGeneric& g, uint32_t oven, const char* name, OXStatus (*destroy)(void*)) {
    g.oven = oven;
    g.name = name;
    g.destroy = destroy;
}

// The type name of an instance is its generic name; isType compares with it.
inline OXBoolean instanceIsType(const void* self, const char* typeName) {
    const auto* inst = static_cast<const OXInstance*>(self);
    return inst && typeName && inst->generic.name && std::strcmp(inst->generic.name, typeName) == 0;
}

inline void initInstance(OXInstance& inst, uint32_t oven, const char* typeName, OXStatus (*destroy)(void*)) {
    initGeneric(inst.generic, oven, typeName, destroy);
    inst.refCount = 1;
    inst.isType = instanceIsType;
    inst.destroy = destroy;
}

inline void retain(OXInstance* inst) {
    if (inst) oxAtomicAdd(&inst->refCount, 1);
}

// Drops one reference; true when it was the last and the caller must free the object.
inline bool dropReference(OXInstance* inst) { return oxAtomicAdd(&inst->refCount, -1) == 0; }

inline void release(OXInstance* inst) {
    if (inst) inst->destroy(inst);
}

inline OXStatus hostVersion(void*, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    if (!major || !minor || !revision) return OX_INVALID_ARGUMENT;
    *major = kHostVersion[0];
    *minor = kHostVersion[1];
    *revision = kHostVersion[2];
    return OX_OK;
}

inline OXStatus noRequirement(void*, uint64_t* major, uint64_t* minor, uint64_t* revision) {
    if (!major || !minor || !revision) return OX_INVALID_ARGUMENT;
    *major = *minor = *revision = 0;
    return OX_OK;
}

// Fills the head of a built-in service record. destroy unloads (frees) the record.
inline void initServiceHead(OXExtension& head, OX_HNDL_S* h, const char* name, OXStatus (*destroy)(void*)) {
    initGeneric(head.generic, OX_OVEN('s', 'v', 'c', 'e'), name, destroy);
    head.getReqVersion = noRequirement;
    head.getVersion = hostVersion;
    head.hndl = h;
    head.realDestroy = destroy;
    head.findFunction = nullptr;
    head.handle = nullptr;
}

// Makes a zero-initialised service record with its head filled; null when out of memory.
// T's first member must be its OXExtension head. The record is freed by destroyService<T>.
template <class T>
OXStatus destroyService(void* self) {
    delete static_cast<T*>(self);
    return OX_OK;
}

template <class T>
T* newService(OX_HNDL_S* h, const char* name) {
    T* rec = new (std::nothrow) T{};
    if (rec) initServiceHead(*reinterpret_cast<OXExtension*>(rec), h, name, destroyService<T>);
    return rec;
}

// Wide text for names handed to the handle ("oxstring" as UTF-32). ASCII only.
inline std::u32string wideAscii(std::string_view s) { return std::u32string(s.begin(), s.end()); }

inline std::string_view asciiOf(const OXChar* name, size_t len, std::string& buf) {
    buf.clear();
    for (size_t i = 0; i < len; ++i) buf.push_back(name[i] < 0x80 ? static_cast<char>(name[i]) : '?');
    return buf;
}

}  // namespace ox
