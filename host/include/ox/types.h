/* Basic types shared by every host service and by the modules the host loads.
 * Everything here has C layout so that records can cross module boundaries. */
#ifndef OX_TYPES_H
#define OX_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define OX_EXTERN_C extern "C"
#define OX_BEGIN_DECLS extern "C" {
#define OX_END_DECLS }
#else
#define OX_EXTERN_C
#define OX_BEGIN_DECLS
#define OX_END_DECLS
#endif

#define OX_API __attribute__((visibility("default")))

OX_BEGIN_DECLS

typedef int32_t OXStatus;          /* 0 is success, anything else a host or module status */
typedef uint8_t OXBoolean;
typedef uint64_t OXMemSize;
typedef int64_t OXStrSize;
typedef uint32_t OXChar;           /* wide characters are UTF-32 code points */
typedef char* UTF8Str;             /* UTF-8 bytes, not necessarily terminated */
typedef const char* UTF8CStr;
typedef uint64_t UTF8ByteLength;
typedef int32_t NLScei;            /* encoding identifier carried by strings */
typedef double OXDateTime;         /* seconds since 1970-01-01T00:00:00Z */

#define OX_TRUE ((OXBoolean)1)
#define OX_FALSE ((OXBoolean)0)

enum { NLS_CEI_UTF8 = 20, NLS_CEI_UTF32 = 21 };

/* Four ASCII bytes read as a number, so an eye-catcher is readable in a memory dump. */
#define OX_OVEN(a, b, c, d) \
    ((uint32_t)(uint8_t)(a) | ((uint32_t)(uint8_t)(b) << 8) | ((uint32_t)(uint8_t)(c) << 16) | ((uint32_t)(uint8_t)(d) << 24))

/* Head of every host object. */
typedef struct OXGeneric {
    uint32_t oven;
    const char* name;
    OXStatus (*destroy)(void* self);
} OXGeneric;

/* Head of every reference-counted object: strings, containers, connections, records. */
typedef struct OXInstance {
    OXGeneric generic;
    volatile int64_t refCount;
    OXBoolean (*isType)(const void* self, const char* typeName);
    OXStatus (*destroy)(void* self); /* drops one reference, frees at zero */
} OXInstance;

struct OX_HNDL_S;
struct OXJournal;

/* Head of every loaded service record. Destroying the generic head unloads the service. */
typedef struct OXExtension {
    OXGeneric generic;
    OXStatus (*getReqVersion)(void* ext, uint64_t* major, uint64_t* minor, uint64_t* revision);
    OXStatus (*getVersion)(void* ext, uint64_t* major, uint64_t* minor, uint64_t* revision);
    struct OX_HNDL_S* hndl;
    OXStatus (*realDestroy)(void* ext);
    void* (*findFunction)(void* ext, const char* name);
    void* handle; /* the shared library it came from, when it was loaded from one */
} OXExtension;

/* The signature of a loadable module's entry: the name of the function is the module's name. */
typedef OXExtension* (*OXExtensionEntry)(struct OX_HNDL_S* hndl, struct OXJournal* jnl, ...);

OX_END_DECLS

#endif
