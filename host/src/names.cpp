// Placeholder until process-wide names are written.
#include "core.h"
#include "ox/status.h"

OXBoolean oxNameExists(OX_HNDL_S*, const OXChar*, size_t) { return OX_FALSE; }
OXStatus oxNameGet(OX_HNDL_S*, const OXChar*, size_t, OXChar*, size_t, size_t*) { return OX_NOT_FOUND; }
OXStatus oxNameSet(OX_HNDL_S*, const OXChar*, size_t, const OXChar*, size_t) { return OX_NOT_SUPPORTED; }
