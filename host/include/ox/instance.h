/* The instance service, reached through the string service's record: type tests on instances,
 * the configuration-file reader and the JSON reader "oxinstjson". */
#ifndef OX_INSTANCE_H
#define OX_INSTANCE_H

#include "ox/dictionary.h"
#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

/* The JSON reader, also loadable by name as "oxinstjson". A document becomes instances:
 * objects are dictionaries (case-sensitive names), arrays are arrays, strings are UTF-8
 * strings, and numbers, true, false and null are UTF-8 strings of their text. */
typedef struct OXInstJSON_S {
    OXExtension exth;
    /* OX_JSON_MALFORMED for text that is not JSON (with the byte offset of the fault in
     * *errorOffset when given), OX_JSON_TOO_DEEP past 256 levels of nesting. */
    OXStatus (*parse)(struct OXInstJSON_S* json, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len, OXInstance** out,
                      int64_t* errorOffset);
} OXInstJSON_S;

typedef struct OXInstanceSvc_S {
    OXGeneric generic;
    /* The type name the instance answers to, tested with its own isType. */
    OXBoolean (*isType)(const OXInstance* inst, const char* typeName);
    OXBoolean (*isU8String)(const OXInstance* inst);
    OXBoolean (*isString)(const OXInstance* inst);
    OXBoolean (*isData)(const OXInstance* inst);
    OXBoolean (*isDictionary)(const OXInstance* inst);
    OXBoolean (*isArray)(const OXInstance* inst);

    /* Reads an INI-style file: "[section]" headers, "key = value" lines, comments from "#" or
     * ";" at the start of a line, blank lines. Indented lines after a key continue its value
     * (joined with "\n"). Keys before any section belong to the section "". The result maps
     * each section name to a dictionary of its keys (both case-sensitive, later duplicates
     * replace earlier ones, sections of the same name merge).
     * Statuses: OX_FILE_NOT_FOUND / OX_FILE_ACCESS_DENIED / OX_FILE_IO_ERROR for the file,
     * OX_CONFIG_BAD_LINE or OX_CONFIG_BAD_SECTION with the 1-based line in *errorLine. */
    OXStatus (*readConfigFile)(struct OXInstanceSvc_S* svc, OX_POOL_S* pool, const char* path, OXDictionary* out,
                               int64_t* errorLine);
    OXStatus (*parseConfigText)(struct OXInstanceSvc_S* svc, OX_POOL_S* pool, UTF8CStr text, UTF8ByteLength len,
                                OXDictionary* out, int64_t* errorLine);

    OXInstJSON_S* oxinstjson; /* null when the host has no JSON reader */
} OXInstanceSvc_S;

OX_END_DECLS

#endif
