/* The AVL tree service "oxeavl": an ordered map of caller pointers (key, value) under a caller
 * comparator, with its nodes in a pool. The tree never looks inside keys or values and never
 * frees them; what it hands back after a replace or a remove belongs to the caller again.
 * Dictionaries are built on it. */
#ifndef OX_EAVL_H
#define OX_EAVL_H

#include "ox/pool.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_TYPE_EAVL "OXEAVL"

/* <0, 0, >0 as probe orders before, with or after an entry's key. */
typedef int (*OXEAVLCompare)(void* ctx, const void* probe, const void* key);

/* The visible part of an entry. A node stays valid until its entry is removed or the tree is
 * destroyed; its value may be changed in place, its key must not. */
typedef struct OXEAVLNode {
    const void* key;
    void* value;
} OXEAVLNode;

typedef struct OXEAVL_S OXEAVL_S, *OXEAVL;
struct OXEAVL_S {
    OXGeneric generic; /* destroy frees the nodes and the tree */
    OX_POOL_S* pool;
    int64_t count;
    /* Adds an entry. For a key already present: with replace, its key and value are replaced
     * and the old pair written to *old (when given); without, OX_INVALID_ARGUMENT and no
     * change. A new key writes {null, null} to *old. */
    OXStatus (*insert)(OXEAVL t, const void* key, void* value, OXBoolean replace, OXEAVLNode* old);
    /* The entry whose key compares equal to the probe, or OX_NOT_FOUND. */
    OXStatus (*find)(OXEAVL t, const void* probe, OXEAVLNode** node);
    /* Removes the entry equal to the probe and writes its pair to *removed (when given).
     * Other entries' nodes stay valid. */
    OXStatus (*remove)(OXEAVL t, const void* probe, OXEAVLNode* removed);
    /* In-order traversal; null past either end. */
    OXEAVLNode* (*first)(OXEAVL t);
    OXEAVLNode* (*last)(OXEAVL t);
    OXEAVLNode* (*next)(OXEAVL t, const OXEAVLNode* node);
    OXEAVLNode* (*prev)(OXEAVL t, const OXEAVLNode* node);
};

typedef struct OXEAVLExt_S {
    OXExtension exth;
    /* ctx is handed to every compare call. */
    OXStatus (*create)(struct OXEAVLExt_S* ext, OX_POOL_S* pool, OXEAVLCompare compare, void* ctx, OXEAVL* out);
} OXEAVLExt_S;

/* Test support: the tree's height when every node's links, stored height and balance are
 * right and the keys ascend strictly; -1 otherwise. */
OX_API int64_t oxEavlCheckedHeight(OXEAVL t);

OX_END_DECLS

#endif
