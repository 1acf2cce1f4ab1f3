// Placeholder until this service is written.
#include "core.h"
#include "services.h"

OXExtension* oxLoadWebClient(OX_HNDL_S*, OXJournal*) { return nullptr; }
