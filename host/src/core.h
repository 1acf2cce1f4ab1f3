// The host handle's own operations, one group per file; handle.cpp puts them in the record.
#pragma once

#include "ox/handle.h"

OX_POOL_S* oxPoolCreate(OX_HNDL_S* h, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name);     // pool.cpp
OX_LOCK_S* oxLockCreate(OX_HNDL_S* h, const OXLockCreateParms* parms, OXJournal* jnl, const char* name);     // sync.cpp
OX_EVENT_S* oxEventCreate(OX_HNDL_S* h, const OXEventCreateParms* parms, OXJournal* jnl, const char* name);  // sync.cpp
OX_THREAD_S* oxThreadCreate(OX_HNDL_S* h, const OXThreadCreateParms* parms, OXJournal* jnl, const OXChar* name,
                            size_t nameL);                                                                   // thread.cpp
OXBoolean oxNameExists(OX_HNDL_S* h, const OXChar* name, size_t nameL);                                      // names.cpp
OXStatus oxNameGet(OX_HNDL_S* h, const OXChar* name, size_t nameL, OXChar* value, size_t valueL, size_t* valueLOut);
OXStatus oxNameSet(OX_HNDL_S* h, const OXChar* name, size_t nameL, const OXChar* value, size_t valueL);
const Log4QEL_S* oxLogFramework();                                                                           // log.cpp
