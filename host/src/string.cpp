// The string service "oxstring": UTF-8 and wide strings and byte data, reference-counted in
// pools. The two string kinds share one implementation; StringKind says how they differ.
//
// A string's storage is in one of three states: owned (needsFree: a pool block of allocSize
// characters, always terminated), referring (bytes the creator keeps alive; the first change
// copies them into an owned block) or static (a caller-owned header over caller bytes, which
// the service never changes or frees).
#include <algorithm>
#include <cstring>
#include <functional>
#include <type_traits>

#include "builtin.h"
#include "instance_internal.h"
#include "object.h"
#include "ox/owned.hpp"
#include "ox/status.h"
#include "services.h"
#include "string_internal.h"

namespace {

template <class S>
struct StringKind;

template <>
struct StringKind<OXU8String> {
    static constexpr uint32_t oven = OX_OVEN('u', '8', 's', 't');
    static constexpr const char* typeName = OX_TYPE_U8STRING;
    static constexpr NLScei encoding = NLS_CEI_UTF8;
};

template <>
struct StringKind<OXString> {
    static constexpr uint32_t oven = OX_OVEN('w', 's', 't', 'r');
    static constexpr const char* typeName = OX_TYPE_STRING;
    static constexpr NLScei encoding = NLS_CEI_UTF32;
};

template <class S>
using CharOf = std::remove_pointer_t<decltype(S::stg)>;

constexpr uint32_t kDataOven = OX_OVEN('d', 'a', 't', 'a');
constexpr uint64_t kMaxBytes = uint64_t(1) << 48;  // the most a pool hands out in one block
constexpr uint64_t kMinCapacity = 16;

template <class C>
constexpr uint64_t kMaxChars = kMaxBytes / sizeof(C) - 1;

// What a referring string made from no characters at all points at.
template <class C>
constexpr C kEmptyText[1] = {};

// ---- lifetime

template <class S>
void clearStatic(S& s) {
    s.stg = nullptr;
    s.len = 0;
}

template <class S>
OXStatus destroyString(void* self) {
    auto* s = static_cast<S*>(self);
    if (!s) return OX_INVALID_ARGUMENT;
    if (s->isStatic) {
        // A static header belongs to its caller: at zero it is only emptied, and a destroy
        // too many leaves it as it is.
        if (s->instance.refCount > 0 && ox::dropReference(&s->instance)) clearStatic(*s);
        return OX_OK;
    }
    if (!ox::dropReference(&s->instance)) return OX_OK;
    if (s->needsFree) s->pool->memFree(s->pool, s->stg);
    s->pool->memFree(s->pool, s);
    return OX_OK;
}

template <class S>
void initHeader(S& s) {
    using Kind = StringKind<S>;
    s = S{};
    ox::initInstance(s.instance, Kind::oven, Kind::typeName, destroyString<S>);
    s.extHandle = oxStringService();
    s.encoding = Kind::encoding;
}

template <class S>
S* allocString(OX_POOL_S* pool) {
    auto* s = static_cast<S*>(pool->memAlloc(pool, sizeof(S), OX_POOL_ZERO_FILL));
    if (!s) return nullptr;
    initHeader(*s);
    s->pool = pool;
    return s;
}

template <class S>
void initStaticString(S* s, const CharOf<S>* text, uint64_t len) {
    if (!s) return;
    initHeader(*s);
    s->isStatic = OX_TRUE;
    s->stg = const_cast<CharOf<S>*>(text);
    s->len = text ? len : 0;
}

// ---- storage

template <class S>
bool pointsInto(const S& s, const CharOf<S>* p) {
    using C = const CharOf<S>*;
    return p && s.stg && std::less_equal<C>{}(s.stg, p) && std::less_equal<C>{}(p, s.stg + s.len);
}

template <class S>
void setLength(S& s, uint64_t len) {
    s.len = len;
    s.stg[len] = 0;
}

template <class S>
uint64_t grownCapacity(const S& s, uint64_t chars) {
    const uint64_t doubled = std::min<uint64_t>(static_cast<uint64_t>(s.allocSize) * 2, kMaxChars<CharOf<S>> + 1);
    return std::max({chars + 1, doubled, kMinCapacity});
}

// Moves owned storage to a larger block; src, when it points into it, moves along.
template <class S>
OXStatus regrow(S& s, uint64_t cap, const CharOf<S>*& src) {
    using C = CharOf<S>;
    const bool moveSrc = pointsInto(s, src);
    const ptrdiff_t offset = moveSrc ? src - s.stg : 0;
    auto* stg = static_cast<C*>(s.pool->memRealloc(s.pool, s.stg, cap * sizeof(C), 0));
    if (!stg) return OX_NO_MEMORY;
    s.stg = stg;
    s.allocSize = cap;
    if (moveSrc) src = stg + offset;
    return OX_OK;
}

// Copies a referring string's characters (as many as the new contents keep) into a block of
// its own. The referred bytes stay valid, so a source inside them needs no moving.
template <class S>
OXStatus takeOwnership(S& s, uint64_t cap, uint64_t chars) {
    using C = CharOf<S>;
    auto* stg = static_cast<C*>(s.pool->memAlloc(s.pool, cap * sizeof(C), 0));
    if (!stg) return OX_NO_MEMORY;
    const uint64_t keep = std::min<uint64_t>(s.len, chars);
    if (keep) std::memcpy(stg, s.stg, keep * sizeof(C));
    s.stg = stg;
    s.allocSize = cap;
    s.needsFree = OX_TRUE;
    setLength(s, keep);
    return OX_OK;
}

// Room for `chars` characters and the terminator in storage the string owns, keeping its
// contents. src, when it points into the old storage, is moved along with it.
template <class S>
OXStatus reserve(S& s, uint64_t chars, const CharOf<S>*& src) {
    using C = CharOf<S>;
    if (chars > kMaxChars<C>) return OX_NO_MEMORY;
    if (s.needsFree && chars < static_cast<uint64_t>(s.allocSize)) return OX_OK;
    const uint64_t cap = grownCapacity(s, chars);
    return s.needsFree ? regrow(s, cap, src) : takeOwnership(s, cap, chars);
}

template <class S>
bool changeable(const S* s, const CharOf<S>* src, uint64_t n) {
    return s && !s->isStatic && s->pool && (src || n == 0);
}

template <class S>
OXStatus appendChars(S* s, const CharOf<S>* src, uint64_t n) {
    if (!changeable(s, src, n)) return OX_INVALID_ARGUMENT;
    if (n == 0) return OX_OK;
    const uint64_t len = s->len;
    if (n > kMaxChars<CharOf<S>> - len) return OX_NO_MEMORY;
    if (OXStatus st = reserve(*s, len + n, src); st != OX_OK) return st;
    std::memmove(s->stg + len, src, n * sizeof(CharOf<S>));
    setLength(*s, len + n);
    return OX_OK;
}

template <class S>
OXStatus setChars(S* s, const CharOf<S>* src, uint64_t n) {
    if (!changeable(s, src, n)) return OX_INVALID_ARGUMENT;
    if (OXStatus st = reserve(*s, n, src); st != OX_OK) return st;
    if (n) std::memmove(s->stg, src, n * sizeof(CharOf<S>));
    setLength(*s, n);
    return OX_OK;
}

// ---- creation

template <class S>
OXStatus createString(OX_POOL_S* pool, const CharOf<S>* src, uint64_t n, uint32_t flags, S** out) {
    if (!pool || !out || (!src && n)) return OX_INVALID_ARGUMENT;
    ox::Owned<S> s(allocString<S>(pool));
    if (!s) return OX_NO_MEMORY;
    if (flags & OX_STR_COPY) {
        if (OXStatus st = setChars(s.get(), src, n); st != OX_OK) return st;
    } else {
        s->stg = const_cast<CharOf<S>*>(src ? src : kEmptyText<CharOf<S>>);
        s->len = n;
    }
    *out = s.release();
    return OX_OK;
}

template <class S>
OXStatus createEmptyString(OX_POOL_S* pool, uint64_t capacity, S** out) {
    if (!pool || !out) return OX_INVALID_ARGUMENT;
    ox::Owned<S> s(allocString<S>(pool));
    if (!s) return OX_NO_MEMORY;
    const CharOf<S>* none = nullptr;
    if (OXStatus st = reserve(*s, capacity, none); st != OX_OK) return st;
    setLength(*s, 0);
    *out = s.release();
    return OX_OK;
}

// Measures with the codec (which validates), then converts into a string of exactly that size.
template <class Out, class In>
using Codec = OXStatus (*)(const In*, size_t, CharOf<Out>*, size_t, size_t*);

template <class Out, class In>
OXStatus convertInto(OX_POOL_S* pool, const In* in, size_t inL, Codec<Out, In> codec, Out** out) {
    if (!pool || !out) return OX_INVALID_ARGUMENT;
    size_t needed = 0;
    if (OXStatus st = codec(in, inL, nullptr, 0, &needed); st != OX_OK && st != OX_BUFFER_TOO_SMALL) return st;
    ox::Owned<Out> s;
    if (OXStatus st = createEmptyString<Out>(pool, needed, s.out()); st != OX_OK) return st;
    if (OXStatus st = codec(in, inL, s->stg, needed, &needed); st != OX_OK) return st;
    setLength(*s, needed);
    *out = s.release();
    return OX_OK;
}

// Copies of static strings need a pool and a static header has none unless its owner set one.
OX_POOL_S* servicePool() {
    static OX_POOL_S* pool = [] {
        OXPoolCreateParms parms{};
        return oxHostInit()->poolCreate(oxHostInit(), &parms, nullptr, "oxstring pool");
    }();
    return pool;
}

// ---- the record's operations

OXStatus createU8(OXStringExt_S*, OX_POOL_S* pool, UTF8CStr bytes, UTF8ByteLength len, uint32_t flags,
                  OXU8String** out) {
    return createString<OXU8String>(pool, bytes, len, flags, out);
}

OXStatus createU8Empty(OXStringExt_S*, OX_POOL_S* pool, UTF8ByteLength capacity, OXU8String** out) {
    return createEmptyString<OXU8String>(pool, capacity, out);
}

void initStaticU8(OXStringExt_S*, OXU8String* s, UTF8CStr bytes, UTF8ByteLength len) {
    initStaticString(s, bytes, len);
}

OXStatus appendU8(OXU8String* s, UTF8CStr bytes, UTF8ByteLength len) { return appendChars(s, bytes, len); }

OXStatus setU8(OXU8String* s, UTF8CStr bytes, UTF8ByteLength len) { return setChars(s, bytes, len); }

OXStatus createWide(OXStringExt_S*, OX_POOL_S* pool, const OXChar* text, OXStrSize len, uint32_t flags,
                    OXString** out) {
    if (len < 0) return OX_INVALID_ARGUMENT;
    return createString<OXString>(pool, text, static_cast<uint64_t>(len), flags, out);
}

void initStaticWide(OXStringExt_S*, OXString* s, const OXChar* text, OXStrSize len) {
    initStaticString(s, text, len < 0 ? 0 : static_cast<uint64_t>(len));
}

OXStatus appendWide(OXString* s, const OXChar* text, OXStrSize len) {
    if (len < 0) return OX_INVALID_ARGUMENT;
    return appendChars(s, text, static_cast<uint64_t>(len));
}

OXStatus u8ToWide(OXStringExt_S*, OX_POOL_S* pool, UTF8CStr bytes, UTF8ByteLength len, OXString** out) {
    return convertInto<OXString, char>(pool, bytes, len, oxzsU8ToU32, out);
}

OXStatus wideToU8(OXStringExt_S*, OX_POOL_S* pool, const OXChar* text, OXStrSize len, OXU8String** out) {
    if (len < 0) return OX_INVALID_ARGUMENT;
    return convertInto<OXU8String, OXChar>(pool, text, static_cast<size_t>(len), oxzsU32ToU8, out);
}

OXStatus toInstance(OXU8String* s, OXInstance** out) {
    if (!s || !out) return OX_INVALID_ARGUMENT;
    if (!s->isStatic) {
        ox::retain(&s->instance);
        *out = &s->instance;
        return OX_OK;
    }
    OX_POOL_S* pool = s->pool ? s->pool : servicePool();
    if (!pool) return OX_NO_MEMORY;
    OXU8String* copy = nullptr;
    if (OXStatus st = createString<OXU8String>(pool, s->stg, s->len, OX_STR_COPY, &copy); st != OX_OK) return st;
    *out = &copy->instance;
    return OX_OK;
}

void retainInstance(OXInstance* inst) { ox::retain(inst); }

OXStatus destroyData(void* self) {
    auto* d = static_cast<OXData*>(self);
    if (!d) return OX_INVALID_ARGUMENT;
    if (ox::dropReference(&d->instance)) d->pool->memFree(d->pool, d);
    return OX_OK;
}

// Header and bytes in one block: data never grows.
OXStatus createData(OXStringExt_S*, OX_POOL_S* pool, const void* bytes, OXMemSize len, OXData** out) {
    if (!pool || !out || (!bytes && len)) return OX_INVALID_ARGUMENT;
    if (len > kMaxBytes) return OX_NO_MEMORY;
    auto* d = static_cast<OXData*>(pool->memAlloc(pool, sizeof(OXData) + len, 0));
    if (!d) return OX_NO_MEMORY;
    *d = OXData{};
    ox::initInstance(d->instance, kDataOven, OX_TYPE_DATA, destroyData);
    d->bytes = reinterpret_cast<uint8_t*>(d + 1);
    d->len = len;
    d->pool = pool;
    if (len) std::memcpy(d->bytes, bytes, len);
    *out = d;
    return OX_OK;
}

void fillStringOps(OXStringExt_S& r) {
    r.oxinstance = oxInstanceService();
    r.createU8 = createU8;
    r.createU8Empty = createU8Empty;
    r.initStaticU8 = initStaticU8;
    r.appendU8 = appendU8;
    r.setU8 = setU8;
    r.create = createWide;
    r.initStatic = initStaticWide;
    r.append = appendWide;
    r.u8ToWide = u8ToWide;
    r.wideToU8 = wideToU8;
    r.toInstance = toInstance;
    r.retain = retainInstance;
    r.createData = createData;
}

}  // namespace

OXStringExt_S* oxStringService() {
    static OXStringExt_S rec = ox::builtinRecord<OXStringExt_S>("oxstring", fillStringOps);
    return &rec;
}

OXExtension* oxLoadString(OX_HNDL_S* h, OXJournal*) {
    return ox::loadedRecord<OXStringExt_S>(h, "oxstring", fillStringOps);
}
