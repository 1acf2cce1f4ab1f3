// Percent-encodings, query strings and the request engine's text-to-number conversions.
#include "oxs3encode.h"

#include <array>
#include <charconv>
#include <cstring>
#include <limits>

#include "ox/status.h"
#include "oxs3instance.h"
#include "oxs3owned.h"

namespace s3 {
namespace {

// ---- which bytes each encoding keeps

enum KeepBit : uint8_t { keptInURL = 1, keptInQuery = 2, keptInPath = 4 };

struct KeepRule {
    std::string_view extra;  // kept besides ASCII letters and digits
    uint8_t bit;
};

constexpr KeepRule kKeepRules[] = {
    {"-._~/", keptInURL},
    {"-._~", keptInQuery},
    {"./~", keptInPath},
};

constexpr bool isAlnum(unsigned c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr std::array<uint8_t, 256> kKeep = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned c = 0; c < 256; ++c)
        if (isAlnum(c)) table[c] = keptInURL | keptInQuery | keptInPath;
    for (const KeepRule& rule : kKeepRules)
        for (char c : rule.extra) table[static_cast<unsigned char>(c)] |= rule.bit;
    return table;
}();

constexpr char kHexUpper[] = "0123456789ABCDEF";
constexpr size_t kAllColons = std::numeric_limits<size_t>::max();

// Every byte the rule does not keep becomes "%XY"; a ":" is also kept below colonsKeptBelow.
void appendEncoded(TextBuffer& out, std::string_view text, uint8_t bit, size_t colonsKeptBelow = 0) {
    char* start = out.reserve(text.size() * 3);
    if (!start) return;
    char* at = start;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if ((kKeep[c] & bit) || (c == ':' && i < colonsKeptBelow)) {
            *at++ = static_cast<char>(c);
        } else {
            *at++ = '%';
            *at++ = kHexUpper[c >> 4];
            *at++ = kHexUpper[c & 0xf];
        }
    }
    out.commit(static_cast<size_t>(at - start));
}

// The index of the first "/" after the first "://", counted from just after the "://" and
// deliberately compared with indexes counted from the start of the whole text.
size_t colonsKeptBelow(std::string_view text) {
    const size_t scheme = text.find("://");
    if (scheme == std::string_view::npos) return 0;
    const size_t slash = text.substr(scheme + 3).find('/');
    return slash == std::string_view::npos ? kAllColons : slash;
}

// ---- query values

OXStatus deleteNoValue(void* self) {
    oxAtomicAdd(&static_cast<OXInstance*>(self)->refCount, -1);
    return OX_OK;
}

constexpr const char* kNoValueType = "oxs3QueryNoValue";

OXBoolean noValueIsType(const void*, const char* typeName) {
    return typeName && std::strcmp(typeName, kNoValueType) == 0;
}

// One process-wide instance that dictionaries take references on and never free.
OXInstance noValue = {{OXS3_EXTENSION_OVEN, kNoValueType, deleteNoValue}, 1, noValueIsType, deleteNoValue};

OXStatus appendQueryValue(TextBuffer& out, const OXInstance* value) {
    if (hasType(value, OX_TYPE_U8STRING)) {
        const auto* text = reinterpret_cast<const OXU8String*>(value);
        appendEncoded(out, std::string_view(text->stg, text->len), keptInQuery);
        return OX_OK;
    }
    TextBuffer plain(out.pool());
    OXStatus st = appendInstanceString(plain, value);
    if (st == OX_OK) appendEncoded(out, plain.view(), keptInQuery);
    return st;
}

OXStatus createQuery(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary* query) {
    return ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, query);
}

using Encoder = void (*)(TextBuffer&, std::string_view);

OXStatus encodeToString(Encoder encode, OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text,
                        OXU8String** out) {
    TextBuffer buffer(pool);
    encode(buffer, text);
    return copyToString(strings, pool, buffer, out);
}

OXStatus queryToString(QueryForm form, OXStringExt_S* strings, OX_POOL_S* pool, OXDictionary query,
                       OXU8String** out) {
    TextBuffer buffer(pool);
    OXStatus st = appendQueryString(buffer, query, form);
    return st == OX_OK ? copyToString(strings, pool, buffer, out) : st;
}

}  // namespace

void appendAwsURLEncoded(TextBuffer& out, std::string_view text) {
    appendEncoded(out, text, keptInURL, colonsKeptBelow(text));
}

void appendQueryEncoded(TextBuffer& out, std::string_view text) { appendEncoded(out, text, keptInQuery); }

// Byte by byte: every byte of a character beyond ASCII is encoded, which is what encoding
// the character's UTF-8 bytes gives, and ill-formed bytes are encoded as well.
void appendPathEncoded(TextBuffer& out, std::string_view text) { appendEncoded(out, text, keptInPath); }

OXStatus appendQueryString(TextBuffer& out, OXDictionary query, QueryForm form) {
    if (!query) return OX_OK;
    void* cursor = nullptr;
    OXU8String* name = nullptr;
    OXInstance* value = nullptr;
    bool first = true;
    OXStatus st;
    while ((st = query->nextValue(query, &cursor, &name, &value)) == OX_OK) {
        if (!first) out.push('&');
        first = false;
        appendQueryEncoded(out, std::string_view(name->stg, name->len));
        if (value == &noValue) {
            if (form == QueryForm::canonical) out.push('=');
            continue;
        }
        out.push('=');
        if ((st = appendQueryValue(out, value)) != OX_OK) return st;
    }
    return st == OX_END_OF_DATA ? out.status() : st;
}

OXStatus awsURLEncode(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out) {
    return encodeToString(appendAwsURLEncoded, strings, pool, text, out);
}

OXStatus awsURLEncodeQuery(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out) {
    return encodeToString(appendQueryEncoded, strings, pool, text, out);
}

OXStatus urlEncodePath(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out) {
    return encodeToString(appendPathEncoded, strings, pool, text, out);
}

OXStatus buildQueryString(OXStringExt_S* strings, OX_POOL_S* pool, OXDictionary query, OXU8String** out) {
    return queryToString(QueryForm::sent, strings, pool, query, out);
}

OXStatus buildCanonicalQueryString(OXStringExt_S* strings, OX_POOL_S* pool, OXDictionary query, OXU8String** out) {
    return queryToString(QueryForm::canonical, strings, pool, query, out);
}

OXInstance* queryNoValue() { return &noValue; }

OXStatus newQuery(OXS3Extension* ext, OX_POOL_S* pool, const OXString* name, const OXString* value,
                  OXDictionary* query) {
    if (!ext || !pool || !query) return OX_INVALID_ARGUMENT;
    Owned<OXDictionary_S> made;
    OXStatus st = createQuery(ext, pool, made.out());
    if (st == OX_OK && name) {
        auto* v = value ? const_cast<OXInstance*>(&value->instance) : &noValue;
        st = made->setValue(made.get(), name->stg, name->len, v);
    }
    if (st == OX_OK) *query = made.release();
    return st;
}

OXStatus newQueryU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr name, UTF8CStr value, OXDictionary* query) {
    if (!ext || !pool || !query) return OX_INVALID_ARGUMENT;
    Owned<OXDictionary_S> made;
    OXStatus st = createQuery(ext, pool, made.out());
    if (st == OX_OK && name) st = querySetU8(made.get(), name, value);
    if (st == OX_OK) *query = made.release();
    return st;
}

OXStatus querySetU8(OXDictionary query, std::string_view name, UTF8CStr value) {
    if (!query) return OX_INVALID_ARGUMENT;
    if (!value) return query->setValueU8(query, name.data(), name.size(), &noValue);
    return query->setU8ValueU8(query, name.data(), name.size(), value, std::strlen(value));
}

OXStatus appendInstanceString(TextBuffer& out, const OXInstance* value) {
    if (hasType(value, OX_TYPE_U8STRING)) {
        const auto* text = reinterpret_cast<const OXU8String*>(value);
        out.append(std::string_view(text->stg, text->len));
        return out.status();
    }
    if (!hasType(value, OX_TYPE_STRING)) return OX_INVALID_ARGUMENT;
    const auto* wideText = reinterpret_cast<const OXString*>(value);
    const auto length = static_cast<size_t>(wideText->len);
    char* at = out.reserve(length * 4);
    if (!at) return out.status();
    size_t written = 0;
    OXStatus st = oxzsU32ToU8(wideText->stg, length, at, length * 4, &written);
    if (st == OX_OK) out.commit(written);
    return st;
}

OXStatus u8StringToLong(std::string_view text, int64_t* value) {
    if (!value) return OX_INVALID_ARGUMENT;
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    int64_t parsed = 0;
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, parsed);
    if (text.empty() || ec != std::errc() || ptr != end) return OXS3_NOT_A_NUMBER;
    *value = parsed;
    return OX_OK;
}

uint32_t hexDigit(char32_t c) {
    if (c >= U'0' && c <= U'9') return c - U'0';
    if (c >= U'a' && c <= U'f') return c - U'a' + 10;
    if (c >= U'A' && c <= U'F') return c - U'A' + 10;
    return kNotHexDigit;
}

}  // namespace s3
