/* The message catalogue: a sentence for every status a host service or a loaded module can
 * return, and for other numbered messages (region titles, for example). The host carries its
 * own table; a module registers its table while it is loaded. */
#ifndef OX_MSG_H
#define OX_MSG_H

#include "ox/types.h"

OX_BEGIN_DECLS

typedef struct OXMessage {
    OXStatus number;
    const char* text; /* UTF-8, one sentence */
} OXMessage;

/* The text for a number, or null when no table has it. */
OX_API const char* oxMessageText(OXStatus number);

/* Writes "text (0x8abfc801)" or, for an unknown number, "Unknown status 0x8abfc801" into buf
 * (always terminated when bufL > 0). Returns the length the full text needs. */
OX_API size_t oxMessageFormat(OXStatus number, char* buf, size_t bufL);

/* Adds a table (kept by reference, so it must outlive the registration). Registrations are
 * counted: a table registered twice (a module loaded twice) stays until unregistered twice. */
OX_API OXStatus oxMessageRegister(const OXMessage* table, size_t count);
OX_API void oxMessageUnregister(const OXMessage* table);

OX_END_DECLS

#endif
