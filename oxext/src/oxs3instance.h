// Heads of the extension's reference-counted records: the type name a record answers to and
// the reference count its destroy drops.
#pragma once

#include <cstring>

#include "ox/handle.h"
#include "oxs3.h"

namespace s3 {

// The type name of an extension record is its generic name.
inline OXBoolean instanceIsType(const void* self, const char* typeName) {
    const auto* inst = static_cast<const OXInstance*>(self);
    return inst && typeName && inst->generic.name && std::strcmp(inst->generic.name, typeName) == 0;
}

// One reference, the extension's eye-catcher, and destroy as both the generic and the
// instance operation.
inline void initInstance(OXInstance& inst, const char* typeName, OXStatus (*destroy)(void*)) {
    inst.generic.oven = OXS3_EXTENSION_OVEN;
    inst.generic.name = typeName;
    inst.generic.destroy = destroy;
    inst.refCount = 1;
    inst.isType = instanceIsType;
    inst.destroy = destroy;
}

// Drops one reference; true when it was the last and the caller frees the record.
inline bool dropReference(OXInstance& inst) { return oxAtomicAdd(&inst.refCount, -1) == 0; }

// Whether a borrowed instance is of the type asked for.
inline bool hasType(const OXInstance* inst, const char* typeName) {
    return inst && inst->isType && inst->isType(inst, typeName);
}

}  // namespace s3
