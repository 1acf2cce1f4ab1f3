/* The host handle: the one record a module receives at load time. It makes pools, locks,
 * events and threads, keeps process-wide names, loads services by name and gives the logging
 * framework. The runtime functions below it are linked into every module. */
#ifndef OX_HANDLE_H
#define OX_HANDLE_H

#include "ox/log.h"
#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

/* ---- journal: where load-time failures are written for the loader to read ---- */

#define OX_JOURNAL_CAPACITY 16
typedef struct OXJournalEntry {
    OXStatus status;
    int severity;
} OXJournalEntry;

typedef struct OXJournal {
    uint32_t count; /* entries written, including those no longer kept */
    OXJournalEntry entries[OX_JOURNAL_CAPACITY]; /* the first OX_JOURNAL_CAPACITY entries */
} OXJournal;

/* Records a status with a severity and logs its catalogue text on "App.ox.journal".
 * A null journal only logs. */
OX_API void oxlStatusToJnl(OXJournal* jnl, OXStatus status, int severity);

/* ---- locks ---- */

typedef struct OXLockCreateParms {
    OXBoolean ownIt; /* create it already held by the caller */
    OXBoolean rw;    /* reader-writer lock */
    void* reserved1;
    void* reserved2;
} OXLockCreateParms;

typedef struct OX_LOCK_S OX_LOCK_S;
struct OX_LOCK_S {
    OXGeneric generic;
    OXStatus (*get)(OX_LOCK_S* lock);       /* exclusive */
    OXStatus (*release)(OX_LOCK_S* lock);   /* ends an exclusive or a shared hold */
    OXStatus (*getShared)(OX_LOCK_S* lock); /* reader-writer locks only; plain locks take it exclusively */
    OXBoolean rw;
};

/* ---- events ---- */

typedef struct OXEventCreateParms {
    OXBoolean postIt; /* create it posted */
    OXBoolean alien;  /* reserved: posted from outside the host's threads */
    void* reserved1;
    void* reserved2;
} OXEventCreateParms;

#define OX_WAIT_FOREVER (-1)

typedef struct OX_EVENT_S OX_EVENT_S;
struct OX_EVENT_S {
    OXGeneric generic;
    OXStatus (*post)(OX_EVENT_S* ev);
    OXStatus (*clear)(OX_EVENT_S* ev);
    OXBoolean (*test)(OX_EVENT_S* ev);
    /* 0 when posted, OX_TIMED_OUT when timeoutMs passed first (OX_WAIT_FOREVER waits on). */
    OXStatus (*wait)(OX_EVENT_S* ev, int64_t timeoutMs);
    volatile OXBoolean done; /* mirrors the posted state */
};

/* ---- threads ---- */

typedef struct OX_THREAD_S OX_THREAD_S;

typedef struct OXThreadCreateParms {
    OXStatus (*main)(OX_THREAD_S* thread, void* parms);
    const OXChar* loadName; /* reserved: module to run the thread in; null for the caller's */
    size_t loadNameL;
    void* parms;
    OX_EVENT_S* entrE;   /* posted once the thread runs, when given */
    OX_EVENT_S* exitE;   /* posted after main returns, when given */
    OXMemSize stackSize; /* 0: the default */
    uint32_t flags;
    int32_t numaNode;
    void* reserved;
} OXThreadCreateParms;

struct OX_THREAD_S {
    OXGeneric generic; /* destroy waits for the thread, then releases it */
    OXStatus (*wait)(OX_THREAD_S* thread, int64_t timeoutMs);
    OXBoolean (*done)(OX_THREAD_S* thread);
    volatile OXBoolean doneflag;
    volatile OXStatus status; /* what main returned, once done */
    OX_EVENT_S* oxtExitH;     /* the exit event: the caller's exitE, or one of the thread's own */
};

/* ---- the handle ---- */

typedef struct OX_HNDL_S OX_HNDL_S;
struct OX_HNDL_S {
    OXGeneric generic;
    OX_POOL_S* (*poolCreate)(OX_HNDL_S* h, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name);
    OX_LOCK_S* (*lockCreate)(OX_HNDL_S* h, const OXLockCreateParms* parms, OXJournal* jnl, const char* name);
    /* Built-in services by name; any other name loads the shared library "lib<name>.so" (or the
     * name itself when it contains a '/' or ends in ".so") and calls its function <name>. */
    OXExtension* (*loadExtension)(OX_HNDL_S* h, const OXChar* name, size_t nameL, OXJournal* jnl);
    OX_EVENT_S* (*eventCreate)(OX_HNDL_S* h, const OXEventCreateParms* parms, OXJournal* jnl, const char* name);
    OX_THREAD_S* (*threadCreate)(OX_HNDL_S* h, const OXThreadCreateParms* parms, OXJournal* jnl,
                                 const OXChar* name, size_t nameL);
    /* Process-wide names. Names beginning "OSENV." read the process environment (read only). */
    OXBoolean (*nameExists)(OX_HNDL_S* h, const OXChar* name, size_t nameL);
    /* Copies the value into value (capacity valueL characters, no terminator written) and its
     * length into *valueLOut. A buffer too small gives OX_BUFFER_TOO_SMALL with the needed
     * length in *valueLOut; a missing name gives OX_NOT_FOUND. */
    OXStatus (*nameGet)(OX_HNDL_S* h, const OXChar* name, size_t nameL, OXChar* value, size_t valueL,
                        size_t* valueLOut);
    OXStatus (*nameSet)(OX_HNDL_S* h, const OXChar* name, size_t nameL, const OXChar* value, size_t valueL);
    const Log4QEL_S* log4qel;
};

/* The process's handle, made by oxHostInit. */
OX_API extern OX_HNDL_S* Exported_OXHandle;

/* Makes the handle once per process (reads the logging configuration); later calls return it. */
OX_API OX_HNDL_S* oxHostInit(void);

/* ---- runtime functions ---- */

/* Current time as a host date-time. */
OX_API OXDateTime oxzdtgmt(void);

/* snprintf into a byte buffer; returns the length the full text needs. */
OX_API size_t oxzFormatBuff(char* buf, size_t bufL, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

/* Lower-cases UTF-8 text in place. Characters whose lower case has another encoded length
 * are left as they are, so the byte length never changes. */
OX_API void oxzsu8Lower(UTF8Str text, UTF8ByteLength len);

/* Case-insensitive compare of two UTF-8 texts: <0, 0, >0. */
OX_API int oxzsu8NormCompare(UTF8CStr a, UTF8ByteLength aL, UTF8CStr b, UTF8ByteLength bL);

/* Byte offset of the first occurrence of needle in text at or after from, or -1.
 * caseless asks for a case-insensitive search. */
OX_API int64_t oxzsu8IndexText(UTF8CStr text, UTF8ByteLength textL, UTF8CStr needle, UTF8ByteLength needleL,
                               UTF8ByteLength from, OXBoolean caseless);

/* Atomic add; returns the new value. */
OX_API int64_t oxAtomicAdd(volatile int64_t* target, int64_t delta);

/* Test support: make the next allocations of a pool fail. After `countdown` more successful
 * allocations every allocation fails until called with -1. */
OX_API void oxPoolFailAfter(OX_POOL_S* pool, int64_t countdown);

OX_END_DECLS

#endif
