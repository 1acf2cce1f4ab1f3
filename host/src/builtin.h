// Service records the host keeps for the whole process, for host code that calls a service
// directly instead of loading it: their destroy leaves them in place.
#pragma once

#include "object.h"

namespace ox {

inline OXStatus keepForever(void*) { return OX_OK; }

// A record whose first member is its OXExtension head, filled by fill.
template <class T>
T builtinRecord(const char* name, void (*fill)(T&)) {
    T rec{};
    initServiceHead(*reinterpret_cast<OXExtension*>(&rec), oxHostInit(), name, keepForever);
    fill(rec);
    return rec;
}

// The same record made for one load through the handle; destroying it frees it.
template <class T>
OXExtension* loadedRecord(OX_HNDL_S* h, const char* name, void (*fill)(T&)) {
    T* rec = newService<T>(h, name);
    if (!rec) return nullptr;
    fill(*rec);
    return reinterpret_cast<OXExtension*>(rec);
}

}  // namespace ox
