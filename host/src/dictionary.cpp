// The dictionary service "oxdictionary": named instances on an "oxeavl" tree whose keys are the
// dictionary's own UTF-8 name strings. Every operation variant (UTF-8 bytes, wide text, string
// record) turns its name into a UTF-8 view and calls one of the few entry operations below.
#include <algorithm>
#include <string_view>

#include "array_internal.h"
#include "builtin.h"
#include "dictionary_internal.h"
#include "eavl_internal.h"
#include "ox/owned.hpp"
#include "services.h"
#include "string_internal.h"

namespace {

constexpr uint32_t kDictionaryOven = OX_OVEN('d', 'i', 'c', 't');
constexpr size_t kShortName = 256;

using U8Owned = ox::Owned<OXU8String>;

struct Dictionary {
    OXDictionary_S rec;  // first, so the record pointer is the dictionary pointer
    OXEAVL tree;
    uint32_t flags;
};

Dictionary* dictOf(OXDictionary d) { return reinterpret_cast<Dictionary*>(d); }
std::string_view viewOf(const OXU8String* s) { return {s->stg, static_cast<size_t>(s->len)}; }
OXU8String* nameOf(const OXEAVLNode* n) { return static_cast<OXU8String*>(const_cast<void*>(n->key)); }
OXInstance* valueOf(const OXEAVLNode* n) { return static_cast<OXInstance*>(n->value); }

int compareExact(void*, const void* a, const void* b) {
    int c = viewOf(static_cast<const OXU8String*>(a)).compare(viewOf(static_cast<const OXU8String*>(b)));
    return c < 0 ? -1 : c > 0;
}

int compareCaseless(void*, const void* a, const void* b) {
    const auto* x = static_cast<const OXU8String*>(a);
    const auto* y = static_cast<const OXU8String*>(b);
    return oxzsu8NormCompare(x->stg, x->len, y->stg, y->len);
}

// A string header over a name, only for comparing with the tree's keys.
OXU8String probeFor(std::string_view name) {
    OXU8String probe{};
    probe.stg = const_cast<char*>(name.data());
    probe.len = name.size();
    return probe;
}

OXEAVLNode* findNode(Dictionary* d, std::string_view name) {
    OXU8String probe = probeFor(name);
    OXEAVLNode* node = nullptr;
    return d->tree->find(d->tree, &probe, &node) == OX_OK ? node : nullptr;
}

OXStatus copyString(OX_POOL_S* pool, std::string_view bytes, OXU8String** out) {
    OXStringExt_S* strings = oxStringService();
    if (!strings) return OX_SERVICE_MISSING;
    return strings->createU8(strings, pool, bytes.empty() ? "" : bytes.data(), bytes.size(), OX_STR_COPY, out);
}

void syncCount(Dictionary* d) { d->rec.count = d->tree->count; }

// ---- the entry operations every variant ends in

OXStatus insertNew(Dictionary* d, std::string_view name, OXInstance* value) {
    U8Owned key;
    OXStatus st = copyString(d->rec.pool, name, key.out());
    if (st == OX_OK) st = d->tree->insert(d->tree, key.get(), value, OX_FALSE, nullptr);
    if (st != OX_OK) return st;
    key.release();
    ox::retain(value);
    syncCount(d);
    return OX_OK;
}

// An existing entry keeps the spelling of its name and only takes the new value.
OXStatus setEntry(Dictionary* d, std::string_view name, OXInstance* value) {
    if (!value) return OX_INVALID_ARGUMENT;
    OXEAVLNode* node = findNode(d, name);
    if (!node) return insertNew(d, name, value);
    ox::retain(value);
    ox::release(static_cast<OXInstance*>(std::exchange(node->value, value)));
    return OX_OK;
}

OXStatus addEntry(Dictionary* d, std::string_view name, OXInstance* value) {
    if (!value) return OX_INVALID_ARGUMENT;
    if (findNode(d, name)) return OX_INVALID_ARGUMENT;
    return insertNew(d, name, value);
}

// The value becomes a new string holding a copy of the bytes.
OXStatus setBytesEntry(Dictionary* d, std::string_view name, std::string_view bytes) {
    U8Owned value;
    OXStatus st = copyString(d->rec.pool, bytes, value.out());
    return st == OX_OK ? setEntry(d, name, value.instance()) : st;
}

OXStatus getEntry(Dictionary* d, std::string_view name, OXInstance** value) {
    if (!value) return OX_INVALID_ARGUMENT;
    OXEAVLNode* node = findNode(d, name);
    if (!node) return OX_NOT_FOUND;
    *value = valueOf(node);
    return OX_OK;
}

OXStatus removeEntry(Dictionary* d, std::string_view name) {
    OXU8String probe = probeFor(name);
    OXEAVLNode removed{};
    OXStatus st = d->tree->remove(d->tree, &probe, &removed);
    if (st != OX_OK) return st;
    syncCount(d);
    ox::release(&nameOf(&removed)->instance);
    ox::release(valueOf(&removed));
    return OX_OK;
}

// ---- names given three ways

// Checks a byte name: null bytes are allowed only for the empty name.
bool u8Name(UTF8CStr name, UTF8ByteLength nameL, std::string_view& out) {
    if (!name && nameL) return false;
    out = nameL ? std::string_view(name, nameL) : std::string_view();
    return true;
}

// The UTF-8 form of a wide name: on the stack when short, else in the dictionary's pool.
class WideName {
public:
    explicit WideName(OX_POOL_S* pool) : pool_(pool) {}
    ~WideName() {
        if (heap_) pool_->memFree(pool_, heap_);
    }
    WideName(const WideName&) = delete;
    WideName& operator=(const WideName&) = delete;

    OXStatus convert(const OXChar* name, OXStrSize nameL) {
        if (nameL < 0 || (!name && nameL)) return OX_INVALID_ARGUMENT;
        if (nameL == 0) return OX_OK;
        size_t needed = 0;
        OXStatus st = oxzsU32ToU8(name, nameL, local_, sizeof local_, &needed);
        if (st == OX_OK) {
            text_ = {local_, needed};
            return OX_OK;
        }
        if (st != OX_BUFFER_TOO_SMALL) return st;
        heap_ = static_cast<char*>(pool_->memAlloc(pool_, needed, 0));
        if (!heap_) return OX_NO_MEMORY;
        st = oxzsU32ToU8(name, nameL, heap_, needed, &needed);
        if (st == OX_OK) text_ = {heap_, needed};
        return st;
    }
    std::string_view view() const { return text_; }

private:
    OX_POOL_S* pool_;
    char local_[kShortName];
    char* heap_ = nullptr;
    std::string_view text_;
};

// Runs op on the dictionary and the UTF-8 form of the name, whichever way it was given.
template <class Op>
OXStatus withU8(OXDictionary d, UTF8CStr name, UTF8ByteLength nameL, Op&& op) {
    std::string_view view;
    if (!d || !u8Name(name, nameL, view)) return OX_INVALID_ARGUMENT;
    return op(dictOf(d), view);
}

template <class Op>
OXStatus withWide(OXDictionary d, const OXChar* name, OXStrSize nameL, Op&& op) {
    if (!d) return OX_INVALID_ARGUMENT;
    WideName wide(d->pool);
    OXStatus st = wide.convert(name, nameL);
    return st == OX_OK ? op(dictOf(d), wide.view()) : st;
}

template <class Op>
OXStatus withOX(OXDictionary d, const OXU8String* name, Op&& op) {
    if (!d || !name) return OX_INVALID_ARGUMENT;
    return withU8(d, name->stg, name->len, op);
}

// Op-makers, so each slot below is one line.
auto setTo(OXInstance* value) {
    return [value](Dictionary* d, std::string_view n) { return setEntry(d, n, value); };
}
auto addTo(OXInstance* value) {
    return [value](Dictionary* d, std::string_view n) { return addEntry(d, n, value); };
}
auto setBytes(UTF8CStr value, UTF8ByteLength valueL) {
    return [value, valueL](Dictionary* d, std::string_view n) {
        std::string_view bytes;
        return u8Name(value, valueL, bytes) ? setBytesEntry(d, n, bytes) : OX_INVALID_ARGUMENT;
    };
}
auto setString(const OXU8String* value) {
    return [value](Dictionary* d, std::string_view n) {
        return value ? setBytesEntry(d, n, viewOf(value)) : OX_INVALID_ARGUMENT;
    };
}
auto getInto(OXInstance** value) {
    return [value](Dictionary* d, std::string_view n) { return getEntry(d, n, value); };
}
auto removeIt() {
    return [](Dictionary* d, std::string_view n) { return removeEntry(d, n); };
}
auto exists() {
    return [](Dictionary* d, std::string_view n) { return findNode(d, n) ? OX_OK : OX_NOT_FOUND; };
}

// ---- the slots

OXStatus getValueU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL, OXInstance** v) {
    return withU8(d, n, nL, getInto(v));
}
OXStatus getValue(OXDictionary d, const OXChar* n, OXStrSize nL, OXInstance** v) {
    return withWide(d, n, nL, getInto(v));
}
OXStatus getValueOX(OXDictionary d, const OXU8String* n, OXInstance** v) { return withOX(d, n, getInto(v)); }

OXStatus setValue(OXDictionary d, const OXChar* n, OXStrSize nL, OXInstance* v) { return withWide(d, n, nL, setTo(v)); }
OXStatus setValueU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL, OXInstance* v) { return withU8(d, n, nL, setTo(v)); }
OXStatus setValueOX(OXDictionary d, const OXU8String* n, OXInstance* v) { return withOX(d, n, setTo(v)); }

OXStatus setU8Value(OXDictionary d, const OXChar* n, OXStrSize nL, UTF8CStr v, UTF8ByteLength vL) {
    return withWide(d, n, nL, setBytes(v, vL));
}
OXStatus setU8ValueU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL, UTF8CStr v, UTF8ByteLength vL) {
    return withU8(d, n, nL, setBytes(v, vL));
}
OXStatus setU8ValueOX(OXDictionary d, const OXU8String* n, UTF8CStr v, UTF8ByteLength vL) {
    return withOX(d, n, setBytes(v, vL));
}
OXStatus setOXValueU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL, const OXU8String* v) {
    return withU8(d, n, nL, setString(v));
}
OXStatus setOXValueOX(OXDictionary d, const OXU8String* n, const OXU8String* v) { return withOX(d, n, setString(v)); }

OXStatus addPairOX(OXDictionary d, const OXU8String* n, OXInstance* v) { return withOX(d, n, addTo(v)); }
OXStatus addPairU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL, OXInstance* v) { return withU8(d, n, nL, addTo(v)); }

OXBoolean hasKey(OXDictionary d, const OXChar* n, OXStrSize nL) { return withWide(d, n, nL, exists()) == OX_OK; }
OXBoolean hasKeyU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL) { return withU8(d, n, nL, exists()) == OX_OK; }
OXBoolean hasKeyOX(OXDictionary d, const OXU8String* n) { return withOX(d, n, exists()) == OX_OK; }

OXStatus removeKey(OXDictionary d, const OXChar* n, OXStrSize nL) { return withWide(d, n, nL, removeIt()); }
OXStatus removeKeyU8(OXDictionary d, UTF8CStr n, UTF8ByteLength nL) { return withU8(d, n, nL, removeIt()); }
OXStatus removeKeyOX(OXDictionary d, const OXU8String* n) { return withOX(d, n, removeIt()); }

// ---- whole-dictionary operations

OXEAVLNode* nodeWithValue(Dictionary* d, OXEAVLNode* from, const OXInstance* value) {
    OXEAVL t = d->tree;
    for (OXEAVLNode* n = from; n; n = t->next(t, n))
        if (n->value == value) return n;
    return nullptr;
}

OXStatus nameForValue(OXDictionary d, const OXInstance* value, OXU8String** name) {
    if (!d || !name) return OX_INVALID_ARGUMENT;
    OXEAVL t = dictOf(d)->tree;
    OXEAVLNode* n = nodeWithValue(dictOf(d), t->first(t), value);
    if (!n) return OX_NOT_FOUND;
    *name = nameOf(n);
    return OX_OK;
}

OXBoolean hasValue(OXDictionary d, const OXInstance* value) {
    return d && nodeWithValue(dictOf(d), dictOf(d)->tree->first(dictOf(d)->tree), value);
}

OXStatus removeValue(OXDictionary d, const OXInstance* value) {
    if (!d) return OX_INVALID_ARGUMENT;
    Dictionary* dict = dictOf(d);
    OXEAVL t = dict->tree;
    bool removed = false;
    // Removing an entry leaves every other node in place, so the next match is found from
    // the node after the one going.
    for (OXEAVLNode* n = nodeWithValue(dict, t->first(t), value); n;) {
        OXEAVLNode* after = t->next(t, n);
        removeEntry(dict, viewOf(nameOf(n)));
        removed = true;
        n = nodeWithValue(dict, after, value);
    }
    return removed ? OX_OK : OX_NOT_FOUND;
}

OXStatus nextValue(OXDictionary d, void** cursor, OXU8String** name, OXInstance** value) {
    if (!d || !cursor) return OX_INVALID_ARGUMENT;
    OXEAVL t = dictOf(d)->tree;
    OXEAVLNode* n = *cursor ? t->next(t, static_cast<OXEAVLNode*>(*cursor)) : t->first(t);
    if (!n) return OX_END_OF_DATA;
    *cursor = n;
    if (name) *name = nameOf(n);
    if (value) *value = valueOf(n);
    return OX_OK;
}

OXStatus sortedNames(OXDictionary d, OXBoolean descending, OXArray* out) {
    if (!d || !out) return OX_INVALID_ARGUMENT;
    OXEAVL t = dictOf(d)->tree;
    ox::Owned<OXArray_S> names;
    OXStatus st = oxArrayCreate(d->pool, std::max<int64_t>(t->count, 1), names.out());
    auto step = descending ? t->prev : t->next;
    for (OXEAVLNode* n = descending ? t->last(t) : t->first(t); st == OX_OK && n; n = step(t, n))
        st = names->addItem(names.get(), &nameOf(n)->instance);
    if (st != OX_OK) return st;
    *out = names.release();
    return OX_OK;
}

OXStatus getNames(OXDictionary d, OXArray* out) { return sortedNames(d, OX_FALSE, out); }

OXStatus getNameArray(OXDictionary d, OX_POOL_S* pool, OXU8String*** names, int64_t* count) {
    if (!d || !pool || !names || !count) return OX_INVALID_ARGUMENT;
    OXEAVL t = dictOf(d)->tree;
    auto* block = static_cast<OXU8String**>(
        pool->memAlloc(pool, sizeof(OXU8String*) * std::max<int64_t>(t->count, 1), OX_POOL_ZERO_FILL));
    if (!block) return OX_NO_MEMORY;
    int64_t i = 0;
    for (OXEAVLNode* n = t->first(t); n; n = t->next(t, n)) block[i++] = nameOf(n);
    *names = block;
    *count = i;
    return OX_OK;
}

OXStatus clone(OXDictionary d, OX_POOL_S* pool, OXDictionary* out) {
    if (!d || !pool || !out) return OX_INVALID_ARGUMENT;
    ox::Owned<OXDictionary_S> copy;
    OXStatus st = oxDictionaryCreate(pool, dictOf(d)->flags, copy.out());
    OXEAVL t = dictOf(d)->tree;
    for (OXEAVLNode* n = t->first(t); st == OX_OK && n; n = t->next(t, n))
        st = insertNew(dictOf(copy.get()), viewOf(nameOf(n)), valueOf(n));
    if (st != OX_OK) return st;
    *out = copy.release();
    return OX_OK;
}

void releaseEntries(Dictionary* d) {
    OXEAVL t = d->tree;
    for (OXEAVLNode* n = t->first(t); n; n = t->next(t, n)) {
        ox::release(&nameOf(n)->instance);
        ox::release(valueOf(n));
    }
}

OXStatus destroyDictionary(void* self) {
    auto* d = static_cast<Dictionary*>(self);
    if (!d) return OX_INVALID_ARGUMENT;
    if (!ox::dropReference(&d->rec.instance)) return OX_OK;
    releaseEntries(d);
    d->tree->generic.destroy(d->tree);
    d->rec.pool->memFree(d->rec.pool, d);
    return OX_OK;
}

void fillSlots(OXDictionary_S& r) {
    r.getNames = getNames;
    r.getNameArray = getNameArray;
    r.nameForValue = nameForValue;
    r.getValueU8 = getValueU8;
    r.getValue = getValue;
    r.setValue = setValue;
    r.setValueU8 = setValueU8;
    r.setU8Value = setU8Value;
    r.setU8ValueU8 = setU8ValueU8;
    r.hasKey = hasKey;
    r.hasKeyU8 = hasKeyU8;
    r.clone = clone;
    r.removeKey = removeKey;
    r.removeKeyU8 = removeKeyU8;
    r.sortedNames = sortedNames;
    r.getValueOX = getValueOX;
    r.setValueOX = setValueOX;
    r.setU8ValueOX = setU8ValueOX;
    r.setOXValueU8 = setOXValueU8;
    r.setOXValueOX = setOXValueOX;
    r.hasKeyOX = hasKeyOX;
    r.removeKeyOX = removeKeyOX;
    r.removeValue = removeValue;
    r.hasValue = hasValue;
    r.nextValue = nextValue;
    r.addPairOX = addPairOX;
    r.addPairU8 = addPairU8;
}

OXStatus createFromService(OXDictionaryExt_S*, OX_POOL_S* pool, uint32_t flags, OXDictionary* out) {
    return oxDictionaryCreate(pool, flags, out);
}

void fillService(OXDictionaryExt_S& svc) { svc.create = createFromService; }

}  // namespace

OXStatus oxDictionaryCreate(OX_POOL_S* pool, uint32_t flags, OXDictionary* out) {
    if (!pool || !out || (flags & ~OX_DICT_CASE_SENSITIVE)) return OX_INVALID_ARGUMENT;
    auto* d = static_cast<Dictionary*>(pool->memAlloc(pool, sizeof(Dictionary), OX_POOL_ZERO_FILL));
    if (!d) return OX_NO_MEMORY;
    bool exact = flags & OX_DICT_CASE_SENSITIVE;
    OXStatus st = oxEavlCreate(pool, exact ? compareExact : compareCaseless, nullptr, &d->tree);
    if (st != OX_OK) {
        pool->memFree(pool, d);
        return st;
    }
    ox::initInstance(d->rec.instance, kDictionaryOven, OX_TYPE_DICTIONARY, destroyDictionary);
    d->rec.pool = pool;
    d->rec.impl = d->tree;
    d->rec.caseSensitive = exact;
    d->flags = flags;
    fillSlots(d->rec);
    *out = &d->rec;
    return OX_OK;
}

OXExtension* oxLoadDictionary(OX_HNDL_S* h, OXJournal* jnl) {
    OXExtension* svc = ox::loadedRecord<OXDictionaryExt_S>(h, "oxdictionary", fillService);
    if (!svc) oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
    return svc;
}
