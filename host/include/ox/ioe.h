/* The I/O service "oxioe": files through named engines. The engine "DISK    " (local files)
 * is built in; a module adds its own engine under another eight-character name while it is
 * loaded. Engine names are compared as eight characters, blank padded: "DISK" names the
 * same engine as "DISK    ".
 *
 * Statuses: OX_FILE_NOT_FOUND, OX_FILE_ACCESS_DENIED, OX_FILE_IS_DIRECTORY, OX_FILE_IO_ERROR,
 * OX_FILE_NOT_OPEN (an operation on a closed file), OX_CANNOT_POSITION (a seek the file
 * refuses), OX_NOT_SUPPORTED (no such engine, or an operation the open mode does not allow),
 * OX_NO_MEMORY (memory or descriptors exhausted), OX_INVALID_ARGUMENT. */
#ifndef OX_IOE_H
#define OX_IOE_H

#include "ox/dictionary.h"
#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OXIOE_ENGINE_NAME_LEN 8
#define OXIOE_DISK_ENGINE "DISK    "

typedef enum OXIOEMode {
    OXIOE_READ = 0,   /* an existing file, from its start */
    OXIOE_WRITE = 1,  /* created when missing, emptied when present */
    OXIOE_APPEND = 2  /* created when missing; every write goes to the end */
} OXIOEMode;

typedef enum OXIOEWhence { OXIOE_SEEK_SET = 0, OXIOE_SEEK_CUR = 1, OXIOE_SEEK_END = 2 } OXIOEWhence;

/* The information items of a file, as UTF-8 string values of a dictionary (names ignore case):
 *   "FILESIZE"     the size in bytes, decimal
 *   "MODIFIED"     the last modification as host date-time text, seconds since 1970 with a
 *                  nine-digit fraction ("1700000000.123456789")
 *   "ISDIRECTORY"  "true" or "false" */
#define OXIOE_FILESIZE "FILESIZE"
#define OXIOE_MODIFIED "MODIFIED"
#define OXIOE_ISDIRECTORY "ISDIRECTORY"

typedef struct OXIOEFile OXIOEFile;
struct OXIOEFile {
    OXGeneric generic; /* name: the access name given to open; destroy closes when open, then frees */
    OX_POOL_S* pool;
    /* Up to len bytes into buf; *got is how many. Fewer than len only at the end of the file;
     * at the end itself: OX_END_OF_DATA with *got 0. */
    OXStatus (*read)(OXIOEFile* f, void* buf, OXMemSize len, OXMemSize* got);
    /* All len bytes, or a status. */
    OXStatus (*write)(OXIOEFile* f, const void* buf, OXMemSize len);
    /* Positions past the end are allowed (a later write leaves a gap of zeros); before the
     * start they give OX_CANNOT_POSITION. */
    OXStatus (*seek)(OXIOEFile* f, int64_t offset, OXIOEWhence whence);
    OXStatus (*tell)(OXIOEFile* f, OXMemSize* position);
    OXStatus (*size)(OXIOEFile* f, OXMemSize* size);
    /* Pushes what was written to the storage device (the data is already visible to readers
     * without it; it costs a device round trip). */
    OXStatus (*flush)(OXIOEFile* f);
    /* Closes the file; the record stays until destroyed and answers OX_FILE_NOT_OPEN. */
    OXStatus (*close)(OXIOEFile* f);
    /* The information items of the open file (see above), as a new dictionary in pool. */
    OXStatus (*info)(OXIOEFile* f, OX_POOL_S* pool, OXDictionary* out);
};

/* A module's engine. The service keeps the pointer, so the record must stay valid until the
 * engine is unregistered. open must make a complete OXIOEFile (any op it cannot serve returns
 * OX_NOT_SUPPORTED). */
typedef struct OXIOEEngine {
    void* context; /* the module's own */
    OXStatus (*open)(const struct OXIOEEngine* engine, OX_POOL_S* pool, const char* accessName, const char* path,
                     OXIOEMode mode, OXIOEFile** out);
} OXIOEEngine;

typedef struct OXIOE_EXTENSION_S {
    OXExtension exth;
    /* The information items of a local file or directory (following symbolic links). */
    OXStatus (*fileInfo)(struct OXIOE_EXTENSION_S* ext, OX_POOL_S* pool, const char* path, OXDictionary* out);
    /* engineName: eight characters, or fewer ended by a 0. accessName: a label for the file
     * (may be null). path: 0-terminated UTF-8. A directory opened as a file gives
     * OX_FILE_IS_DIRECTORY; an unknown engine OX_NOT_SUPPORTED. */
    OXStatus (*open)(struct OXIOE_EXTENSION_S* ext, OX_POOL_S* pool, const char* engineName, const char* accessName,
                     const char* path, OXIOEMode mode, OXIOEFile** out);
    /* Process-wide. A name already registered, the built-in disk engine's name or a blank name
     * gives OX_INVALID_ARGUMENT; a full table OX_NO_MEMORY. */
    OXStatus (*registerEngine)(struct OXIOE_EXTENSION_S* ext, const char* engineName, const OXIOEEngine* engine);
    /* OX_NOT_FOUND when no engine has that name. Files already open stay usable. */
    OXStatus (*unregisterEngine)(struct OXIOE_EXTENSION_S* ext, const char* engineName);
} OXIOE_EXTENSION_S;

OX_END_DECLS

#endif
