/* The dictionary service "oxdictionary": instances by name, kept in ascending name order
 * (byte order of the UTF-8 names; case-folded first when the dictionary ignores case).
 *
 * Names are strings; a name given as bytes or wide text is copied. Values are instances and the
 * dictionary holds its own reference on each: every set or add takes one, removing, replacing
 * or destroying drops it, so the caller still releases its own. Setting a name that exists
 * replaces its value; adding one that exists fails with OX_INVALID_ARGUMENT. Lookups hand
 * back borrowed pointers (no reference taken). A missing name is OX_NOT_FOUND. */
#ifndef OX_DICTIONARY_H
#define OX_DICTIONARY_H

#include "ox/array.h"
#include "ox/pool.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_TYPE_DICTIONARY "OXDictionary"

/* create flag: names compare byte for byte. Without it names compare ignoring case. */
#define OX_DICT_CASE_SENSITIVE 0x1u

typedef struct OXDictionary_S OXDictionary_S, *OXDictionary;
struct OXDictionary_S {
    OXInstance instance;
    OX_POOL_S* pool;
    void* impl;
    /* Names (OXU8String) in ascending order, as a new array the caller destroys. */
    OXStatus (*getNames)(OXDictionary d, OXArray* out);
    /* Names in ascending order as a pool block of borrowed pointers (free it with memFree). */
    OXStatus (*getNameArray)(OXDictionary d, OX_POOL_S* pool, OXU8String*** names, int64_t* count);
    /* The name of the first entry (in order) whose value is this very instance. */
    OXStatus (*nameForValue)(OXDictionary d, const OXInstance* value, OXU8String** name);
    OXStatus (*getValueU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, OXInstance** value);
    OXStatus (*getValue)(OXDictionary d, const OXChar* name, OXStrSize nameL, OXInstance** value);
    OXStatus (*setValue)(OXDictionary d, const OXChar* name, OXStrSize nameL, OXInstance* value);
    OXStatus (*setValueU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, OXInstance* value);
    /* The value becomes a new UTF-8 string made from the bytes. */
    OXStatus (*setU8Value)(OXDictionary d, const OXChar* name, OXStrSize nameL, UTF8CStr value, UTF8ByteLength valueL);
    OXStatus (*setU8ValueU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr value,
                             UTF8ByteLength valueL);
    OXBoolean (*hasKey)(OXDictionary d, const OXChar* name, OXStrSize nameL);
    OXBoolean (*hasKeyU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL);
    /* A new dictionary in pool with the same names and the same value instances (shared). */
    OXStatus (*clone)(OXDictionary d, OX_POOL_S* pool, OXDictionary* out);
    OXStatus (*removeKey)(OXDictionary d, const OXChar* name, OXStrSize nameL);
    OXStatus (*removeKeyU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL);
    /* Names as a new array, ascending or descending. */
    OXStatus (*sortedNames)(OXDictionary d, OXBoolean descending, OXArray* out);
    OXStatus (*getValueOX)(OXDictionary d, const OXU8String* name, OXInstance** value);
    OXStatus (*setValueOX)(OXDictionary d, const OXU8String* name, OXInstance* value);
    OXStatus (*setU8ValueOX)(OXDictionary d, const OXU8String* name, UTF8CStr value, UTF8ByteLength valueL);
    OXStatus (*setOXValueU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, const OXU8String* value);
    OXStatus (*setOXValueOX)(OXDictionary d, const OXU8String* name, const OXU8String* value);
    OXBoolean (*hasKeyOX)(OXDictionary d, const OXU8String* name);
    OXStatus (*removeKeyOX)(OXDictionary d, const OXU8String* name);
    /* Removes every entry whose value is this very instance; OX_NOT_FOUND when none. */
    OXStatus (*removeValue)(OXDictionary d, const OXInstance* value);
    OXBoolean (*hasValue)(OXDictionary d, const OXInstance* value);
    /* Iteration in ascending order: *cursor starts null; each call gives the next entry and
     * OX_END_OF_DATA after the last. The dictionary must not change during an iteration. */
    OXStatus (*nextValue)(OXDictionary d, void** cursor, OXU8String** name, OXInstance** value);
    OXStatus (*addPairOX)(OXDictionary d, const OXU8String* name, OXInstance* value);
    OXStatus (*addPairU8)(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, OXInstance* value);
    int64_t count;
    OXBoolean caseSensitive;
};

typedef struct OXDictionaryExt_S {
    OXExtension exth;
    OXStatus (*create)(struct OXDictionaryExt_S* ext, OX_POOL_S* pool, uint32_t flags, OXDictionary* out);
} OXDictionaryExt_S;

OX_END_DECLS

#endif
