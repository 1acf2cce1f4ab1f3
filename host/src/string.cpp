// Placeholder until this service is written.
#include "core.h"
#include "services.h"

OXExtension* oxLoadString(OX_HNDL_S*, OXJournal*) { return nullptr; }
