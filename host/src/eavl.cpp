// The AVL tree service "oxeavl". Nodes carry parent links, so insert, remove and in-order
// stepping are loops without a stack; a removed node is unlinked rather than overwritten by its
// successor, which keeps every other node (and so every caller's cursor) valid.
#include <algorithm>
#include <utility>

#include "eavl_internal.h"
#include "object.h"
#include "services.h"

namespace {

constexpr uint32_t kTreeOven = OX_OVEN('e', 'a', 'v', 'l');

struct Node {
    OXEAVLNode pub;  // first, so a public node pointer is the node pointer
    Node* left;
    Node* right;
    Node* parent;
    int height;
};

struct Tree {
    OXEAVL_S rec;  // first, so the record pointer is the tree pointer
    Node* root;
    OXEAVLCompare compare;
    void* ctx;
};

Tree* treeOf(OXEAVL t) { return reinterpret_cast<Tree*>(t); }
Node* nodeOf(const OXEAVLNode* n) { return reinterpret_cast<Node*>(const_cast<OXEAVLNode*>(n)); }

int heightOf(const Node* n) { return n ? n->height : 0; }
int balanceOf(const Node* n) { return heightOf(n->left) - heightOf(n->right); }
void updateHeight(Node* n) { n->height = 1 + std::max(heightOf(n->left), heightOf(n->right)); }

Node* leftmost(Node* n) {
    while (n && n->left) n = n->left;
    return n;
}

Node* rightmost(Node* n) {
    while (n && n->right) n = n->right;
    return n;
}

// Puts replacement where old hung under parent (or at the root).
void relink(Tree* t, Node* parent, Node* old, Node* replacement) {
    if (!parent)
        t->root = replacement;
    else if (parent->left == old)
        parent->left = replacement;
    else
        parent->right = replacement;
    if (replacement) replacement->parent = parent;
}

using Side = Node* Node::*;

// Lifts x's child on side up into x's place; x becomes its child on side down.
Node* rotate(Tree* t, Node* x, Side up, Side down) {
    Node* y = x->*up;
    x->*up = y->*down;
    if (y->*down) (y->*down)->parent = x;
    relink(t, x->parent, x, y);
    y->*down = x;
    x->parent = y;
    updateHeight(x);
    updateHeight(y);
    return y;
}

Node* rotateLeft(Tree* t, Node* x) { return rotate(t, x, &Node::right, &Node::left); }
Node* rotateRight(Tree* t, Node* x) { return rotate(t, x, &Node::left, &Node::right); }

// Restores heights and balance on the path from n to the root.
void rebalanceUp(Tree* t, Node* n) {
    while (n) {
        updateHeight(n);
        int balance = balanceOf(n);
        if (balance > 1) {
            if (balanceOf(n->left) < 0) rotateLeft(t, n->left);
            n = rotateRight(t, n);
        } else if (balance < -1) {
            if (balanceOf(n->right) > 0) rotateRight(t, n->right);
            n = rotateLeft(t, n);
        }
        n = n->parent;
    }
}

// The node equal to probe, or null with *parent and *cmp saying where it would hang.
Node* search(Tree* t, const void* probe, Node** parent, int* cmp) {
    Node* p = nullptr;
    int c = 0;
    for (Node* n = t->root; n;) {
        c = t->compare(t->ctx, probe, n->pub.key);
        if (c == 0) return n;
        p = n;
        n = c < 0 ? n->left : n->right;
    }
    if (parent) *parent = p;
    if (cmp) *cmp = c;
    return nullptr;
}

OXStatus insertEntry(OXEAVL rec, const void* key, void* value, OXBoolean replace, OXEAVLNode* old) {
    Tree* t = treeOf(rec);
    if (!t) return OX_INVALID_ARGUMENT;
    Node* parent = nullptr;
    int cmp = 0;
    if (Node* found = search(t, key, &parent, &cmp)) {
        if (!replace) return OX_INVALID_ARGUMENT;
        if (old) *old = found->pub;
        found->pub = {key, value};
        return OX_OK;
    }
    auto* n = static_cast<Node*>(t->rec.pool->memAlloc(t->rec.pool, sizeof(Node), OX_POOL_ZERO_FILL));
    if (!n) return OX_NO_MEMORY;
    n->pub = {key, value};
    n->height = 1;
    n->parent = parent;
    if (!parent)
        t->root = n;
    else if (cmp < 0)
        parent->left = n;
    else
        parent->right = n;
    rebalanceUp(t, parent);
    ++t->rec.count;
    if (old) *old = {nullptr, nullptr};
    return OX_OK;
}

OXStatus findEntry(OXEAVL rec, const void* probe, OXEAVLNode** node) {
    Tree* t = treeOf(rec);
    if (!t || !node) return OX_INVALID_ARGUMENT;
    Node* n = search(t, probe, nullptr, nullptr);
    if (!n) return OX_NOT_FOUND;
    *node = &n->pub;
    return OX_OK;
}

// Unlinks z; a node with two children gives its place to its successor node.
void unlinkNode(Tree* t, Node* z) {
    Node* rebalanceFrom;
    if (!z->left || !z->right) {
        rebalanceFrom = z->parent;
        relink(t, z->parent, z, z->left ? z->left : z->right);
    } else {
        Node* y = leftmost(z->right);
        if (y->parent != z) {
            rebalanceFrom = y->parent;
            relink(t, y->parent, y, y->right);
            y->right = z->right;
            y->right->parent = y;
        } else {
            rebalanceFrom = y;
        }
        relink(t, z->parent, z, y);
        y->left = z->left;
        y->left->parent = y;
    }
    rebalanceUp(t, rebalanceFrom);
}

OXStatus removeEntry(OXEAVL rec, const void* probe, OXEAVLNode* removed) {
    Tree* t = treeOf(rec);
    if (!t) return OX_INVALID_ARGUMENT;
    Node* n = search(t, probe, nullptr, nullptr);
    if (!n) return OX_NOT_FOUND;
    unlinkNode(t, n);
    --t->rec.count;
    if (removed) *removed = n->pub;
    t->rec.pool->memFree(t->rec.pool, n);
    return OX_OK;
}

OXEAVLNode* firstEntry(OXEAVL rec) {
    Node* n = rec ? leftmost(treeOf(rec)->root) : nullptr;
    return n ? &n->pub : nullptr;
}

OXEAVLNode* lastEntry(OXEAVL rec) {
    Node* n = rec ? rightmost(treeOf(rec)->root) : nullptr;
    return n ? &n->pub : nullptr;
}

Node* successor(Node* n) {
    if (n->right) return leftmost(n->right);
    while (n->parent && n->parent->right == n) n = n->parent;
    return n->parent;
}

Node* predecessor(Node* n) {
    if (n->left) return rightmost(n->left);
    while (n->parent && n->parent->left == n) n = n->parent;
    return n->parent;
}

OXEAVLNode* nextEntry(OXEAVL, const OXEAVLNode* node) {
    Node* n = node ? successor(nodeOf(node)) : nullptr;
    return n ? &n->pub : nullptr;
}

OXEAVLNode* prevEntry(OXEAVL, const OXEAVLNode* node) {
    Node* n = node ? predecessor(nodeOf(node)) : nullptr;
    return n ? &n->pub : nullptr;
}

// Frees leaves first, climbing back through parent links instead of recursing.
void freeNodes(Tree* t) {
    OX_POOL_S* pool = t->rec.pool;
    for (Node* n = t->root; n;) {
        if (n->left) {
            n = std::exchange(n->left, nullptr);
        } else if (n->right) {
            n = std::exchange(n->right, nullptr);
        } else {
            Node* parent = n->parent;
            pool->memFree(pool, n);
            n = parent;
        }
    }
    t->root = nullptr;
}

OXStatus destroyTree(void* self) {
    Tree* t = static_cast<Tree*>(self);
    if (!t) return OX_INVALID_ARGUMENT;
    freeNodes(t);
    t->rec.pool->memFree(t->rec.pool, t);
    return OX_OK;
}

// The subtree's height, or -1 when anything below n is out of shape.
int64_t checkedHeight(const Node* n, const Node* parent) {
    if (!n) return 0;
    if (n->parent != parent) return -1;
    int64_t l = checkedHeight(n->left, n);
    int64_t r = checkedHeight(n->right, n);
    if (l < 0 || r < 0 || l - r > 1 || r - l > 1 || n->height != 1 + std::max(l, r)) return -1;
    return n->height;
}

bool keysAscend(Tree* t) {
    for (Node* n = leftmost(t->root); n; n = successor(n)) {
        Node* s = successor(n);
        if (s && t->compare(t->ctx, n->pub.key, s->pub.key) >= 0) return false;
    }
    return true;
}

OXStatus createFromService(OXEAVLExt_S*, OX_POOL_S* pool, OXEAVLCompare compare, void* ctx, OXEAVL* out) {
    return oxEavlCreate(pool, compare, ctx, out);
}

}  // namespace

OXStatus oxEavlCreate(OX_POOL_S* pool, OXEAVLCompare compare, void* ctx, OXEAVL* out) {
    if (!pool || !compare || !out) return OX_INVALID_ARGUMENT;
    auto* t = static_cast<Tree*>(pool->memAlloc(pool, sizeof(Tree), OX_POOL_ZERO_FILL));
    if (!t) return OX_NO_MEMORY;
    ox::initGeneric(t->rec.generic, kTreeOven, OX_TYPE_EAVL, destroyTree);
    t->rec.pool = pool;
    t->rec.insert = insertEntry;
    t->rec.find = findEntry;
    t->rec.remove = removeEntry;
    t->rec.first = firstEntry;
    t->rec.last = lastEntry;
    t->rec.next = nextEntry;
    t->rec.prev = prevEntry;
    t->compare = compare;
    t->ctx = ctx;
    *out = &t->rec;
    return OX_OK;
}

int64_t oxEavlCheckedHeight(OXEAVL rec) {
    Tree* t = treeOf(rec);
    if (!t) return -1;
    int64_t h = checkedHeight(t->root, nullptr);
    return h >= 0 && keysAscend(t) ? h : -1;
}

OXExtension* oxLoadEavl(OX_HNDL_S* h, OXJournal* jnl) {
    auto* svc = ox::newService<OXEAVLExt_S>(h, "oxeavl");
    if (!svc) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    svc->create = createFromService;
    return &svc->exth;
}
