/* The string service "oxstring": reference-counted UTF-8 and wide (UTF-32) strings in pools.
 * Owned strings keep a terminating 0 after their bytes; static strings point at caller bytes
 * and never free them. */
#ifndef OX_STRING_H
#define OX_STRING_H

#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_TYPE_U8STRING "OXU8String"
#define OX_TYPE_STRING "OXString"
#define OX_TYPE_DATA "OXData"

struct OXStringExt_S;
struct OXInstanceSvc_S;

typedef struct OXU8String {
    OXInstance instance;
    struct OXStringExt_S* extHandle; /* the process's string service record, which outlives every string */
    OXBoolean isStatic;      /* over caller bytes: never freed, destroy only clears it */
    UTF8Str stg;
    UTF8ByteLength len;      /* bytes, without the terminator */
    NLScei encoding;
    OX_POOL_S* pool;
    OXBoolean needsFree;     /* stg was allocated from pool */
    UTF8ByteLength allocSize;
} OXU8String;

typedef struct OXString {
    OXInstance instance;
    struct OXStringExt_S* extHandle;
    OXBoolean isStatic;
    OXChar* stg;
    OXStrSize len;           /* characters, without the terminator */
    NLScei encoding;
    OX_POOL_S* pool;
    OXBoolean needsFree;
    OXStrSize allocSize;     /* characters */
} OXString;

/* Bytes: the key material and other binary values that travel where instances do. */
typedef struct OXData {
    OXInstance instance;
    uint8_t* bytes;
    OXMemSize len;
    OX_POOL_S* pool;
} OXData;

#define OX_STR_COPY 0x1u /* create: copy the bytes into the pool (else the string refers to them) */

typedef struct OXStringExt_S {
    OXExtension exth;
    struct OXInstanceSvc_S* oxinstance; /* the instance service */

    /* A UTF-8 string from bytes. With OX_STR_COPY the bytes are copied; without it the string
     * refers to the caller's bytes, which must outlive it. Invalid UTF-8 is accepted as bytes. */
    OXStatus (*createU8)(struct OXStringExt_S* ext, OX_POOL_S* pool, UTF8CStr bytes, UTF8ByteLength len,
                         uint32_t flags, OXU8String** out);
    /* An empty UTF-8 string with room for capacity bytes. */
    OXStatus (*createU8Empty)(struct OXStringExt_S* ext, OX_POOL_S* pool, UTF8ByteLength capacity, OXU8String** out);
    /* Points a caller-owned string header at caller bytes (no copy, no allocation). The
     * service never changes a static string: appendU8, setU8 and append refuse it with
     * OX_INVALID_ARGUMENT. */
    void (*initStaticU8)(struct OXStringExt_S* ext, OXU8String* s, UTF8CStr bytes, UTF8ByteLength len);
    OXStatus (*appendU8)(OXU8String* s, UTF8CStr bytes, UTF8ByteLength len);
    /* Replaces the contents. */
    OXStatus (*setU8)(OXU8String* s, UTF8CStr bytes, UTF8ByteLength len);

    OXStatus (*create)(struct OXStringExt_S* ext, OX_POOL_S* pool, const OXChar* text, OXStrSize len, uint32_t flags,
                       OXString** out);
    void (*initStatic)(struct OXStringExt_S* ext, OXString* s, const OXChar* text, OXStrSize len);
    OXStatus (*append)(OXString* s, const OXChar* text, OXStrSize len);

    /* Conversions; invalid input gives OX_BAD_UTF8 (ill-formed bytes: overlong forms, encoded
     * surrogates, values past U+10FFFF, cut sequences) / OX_BAD_CODE_POINT (a wide character
     * that is a surrogate or past U+10FFFF) and no output. */
    OXStatus (*u8ToWide)(struct OXStringExt_S* ext, OX_POOL_S* pool, UTF8CStr bytes, UTF8ByteLength len, OXString** out);
    OXStatus (*wideToU8)(struct OXStringExt_S* ext, OX_POOL_S* pool, const OXChar* text, OXStrSize len,
                         OXU8String** out);

    /* A header value instance a dictionary can hold: a new reference on s itself for owned
     * strings, an owned copy for static ones (in s->pool when its owner set one, else in the
     * string service's own pool). */
    OXStatus (*toInstance)(OXU8String* s, OXInstance** out);

    /* Takes one more reference on any instance. */
    void (*retain)(OXInstance* inst);

    /* Bytes in a pool, copied. */
    OXStatus (*createData)(struct OXStringExt_S* ext, OX_POOL_S* pool, const void* bytes, OXMemSize len, OXData** out);
} OXStringExt_S;

/* Conversions into caller buffers (no pool). outL receives the needed length in units of the
 * output (bytes or characters); a short buffer gives OX_BUFFER_TOO_SMALL. */
OX_API OXStatus oxzsU8ToU32(UTF8CStr in, UTF8ByteLength inL, OXChar* out, size_t outCap, size_t* outL);
OX_API OXStatus oxzsU32ToU8(const OXChar* in, size_t inL, char* out, size_t outCap, size_t* outL);

OX_END_DECLS

#endif
