// Placeholder until this service is written.
#include "core.h"
#include "services.h"

OX_LOCK_S* oxLockCreate(OX_HNDL_S*, const OXLockCreateParms*, OXJournal*, const char*) { return nullptr; }
OX_EVENT_S* oxEventCreate(OX_HNDL_S*, const OXEventCreateParms*, OXJournal*, const char*) { return nullptr; }
