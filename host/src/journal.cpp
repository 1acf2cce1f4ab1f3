// Placeholder journal until the logging framework is written.
#include "ox/handle.h"

void oxlStatusToJnl(OXJournal* jnl, OXStatus status, int severity) {
    if (!jnl) return;
    if (jnl->count < OX_JOURNAL_CAPACITY) jnl->entries[jnl->count] = {status, severity};
    ++jnl->count;
}
