// Placeholder entry.
#include "ox/types.h"
OX_EXTERN_C OX_API OXExtension* oxs3(struct OX_HNDL_S*, struct OXJournal*, ...) { return nullptr; }
