// Placeholder until this service is written.
#include "core.h"
#include "services.h"

OX_THREAD_S* oxThreadCreate(OX_HNDL_S*, const OXThreadCreateParms*, OXJournal*, const OXChar*, size_t) { return nullptr; }
