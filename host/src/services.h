// The host's built-in services: each has a load function that makes its record, and the
// handle's loadExtension finds them by name in the table in handle.cpp.
#pragma once

#include "ox/handle.h"

OXExtension* oxLoadSecSocket(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadString(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadEavl(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadXml(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadWebClient(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadDictionary(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadArray(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadIoe(OX_HNDL_S* h, OXJournal* jnl);
OXExtension* oxLoadInstJson(OX_HNDL_S* h, OXJournal* jnl);
