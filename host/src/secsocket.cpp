// The secure-socket service: TLS option sets, kept as parallel arrays of terminated UTF-8
// texts in the set's own pool so that a connection can read them without copying.
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>

#include "object.h"
#include "ox/secsocket.h"
#include "ox/status.h"
#include "services.h"

namespace {

enum class ValueKind { Text, Boolean, TlsVersion };

struct OptionRule {
    std::string_view name;
    ValueKind kind;
};

constexpr OptionRule kOptionRules[] = {
    {OX_SSL_CAFILE, ValueKind::Text},        {OX_SSL_CAPATH, ValueKind::Text},
    {OX_SSL_VERIFYPEER, ValueKind::Boolean}, {OX_SSL_VERIFYHOST, ValueKind::Boolean},
    {OX_SSL_SNI, ValueKind::Text},           {OX_SSL_CIPHERS, ValueKind::Text},
    {OX_SSL_MINVERSION, ValueKind::TlsVersion},
};

constexpr std::string_view kBooleanValues[] = {OX_SSL_TRUE, OX_SSL_FALSE};
constexpr std::string_view kTlsVersions[] = {OX_SSL_TLS12, OX_SSL_TLS13};

// Long enough for every option name; a longer name cannot be one.
constexpr size_t kMaxNameLength = 16;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

const OptionRule* findRule(std::string_view name) {
    for (const auto& rule : kOptionRules)
        if (equalsIgnoringCase(rule.name, name)) return &rule;
    return nullptr;
}

template <size_t N>
std::optional<std::string_view> canonicalOf(const std::string_view (&choices)[N], std::string_view value) {
    for (auto choice : choices)
        if (equalsIgnoringCase(choice, value)) return choice;
    return std::nullopt;
}

// The spelling a value is kept in, or nothing when it does not fit its option.
std::optional<std::string_view> canonicalValue(ValueKind kind, std::string_view value) {
    switch (kind) {
        case ValueKind::Boolean: return canonicalOf(kBooleanValues, value);
        case ValueKind::TlsVersion: return canonicalOf(kTlsVersions, value);
        case ValueKind::Text: break;
    }
    if (value.empty() || value.find('\0') != std::string_view::npos) return std::nullopt;
    return value;
}

// Wide option names are ASCII; anything else cannot name an option.
std::optional<std::string_view> narrowName(const OXChar* name, OXStrSize nameL, char (&buf)[kMaxNameLength]) {
    if (!name || nameL < 0 || static_cast<size_t>(nameL) > kMaxNameLength) return std::nullopt;
    for (OXStrSize i = 0; i < nameL; ++i) {
        if (name[i] >= 0x80) return std::nullopt;
        buf[i] = static_cast<char>(name[i]);
    }
    return std::string_view(buf, static_cast<size_t>(nameL));
}

std::optional<std::string_view> viewOf(UTF8CStr text, UTF8ByteLength len) {
    if (!text && len != 0) return std::nullopt;
    return std::string_view(text ? text : "", len);
}

UTF8Str copyText(OX_POOL_S* pool, std::string_view text) {
    auto* copy = static_cast<char*>(pool->memAlloc(pool, text.size() + 1, 0));
    if (!copy) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

int64_t indexOf(const SSLOptions_S* opts, std::string_view canonicalName) {
    for (int64_t i = 0; i < opts->sslOptionCount; ++i)
        if (canonicalName == opts->sslOptionNames[i]) return i;
    return -1;
}

int64_t indexOfName(const SSLOptions_S* opts, std::string_view name) {
    const OptionRule* rule = findRule(name);
    return rule ? indexOf(opts, rule->name) : -1;
}

bool growArray(OX_POOL_S* pool, UTF8Str*& array, int64_t capacity) {
    void* grown = pool->memRealloc(pool, array, static_cast<OXMemSize>(capacity) * sizeof(UTF8Str), 0);
    if (!grown) return false;
    array = static_cast<UTF8Str*>(grown);
    return true;
}

// Room for one more option; the set is unchanged when there is none.
bool reserveOne(SSLOptions_S* opts) {
    if (opts->sslOptionCount < opts->sslOptionSize) return true;
    int64_t capacity = opts->sslOptionSize ? opts->sslOptionSize * 2 : 8;
    if (!growArray(opts->pool, opts->sslOptionNames, capacity) ||
        !growArray(opts->pool, opts->sslOptionValues, capacity))
        return false;
    opts->sslOptionSize = capacity;
    return true;
}

OXStatus appendOption(SSLOptions_S* opts, std::string_view canonicalName, UTF8Str value) {
    if (!reserveOne(opts)) return OX_NO_MEMORY;
    UTF8Str name = copyText(opts->pool, canonicalName);
    if (!name) return OX_NO_MEMORY;
    opts->sslOptionNames[opts->sslOptionCount] = name;
    opts->sslOptionValues[opts->sslOptionCount] = value;
    ++opts->sslOptionCount;
    return OX_OK;
}

OXStatus setCanonical(SSLOptions_S* opts, const OptionRule& rule, std::string_view value) {
    UTF8Str copy = copyText(opts->pool, value);
    if (!copy) return OX_NO_MEMORY;
    if (int64_t i = indexOf(opts, rule.name); i >= 0) {
        opts->pool->memFree(opts->pool, opts->sslOptionValues[i]);
        opts->sslOptionValues[i] = copy;
        return OX_OK;
    }
    OXStatus st = appendOption(opts, rule.name, copy);
    if (st != OX_OK) opts->pool->memFree(opts->pool, copy);
    return st;
}

OXStatus setOptionText(SSLOptions_S* opts, std::string_view name, std::string_view value) {
    const OptionRule* rule = findRule(name);
    if (!rule) return OX_NOT_SUPPORTED;
    std::optional<std::string_view> canonical = canonicalValue(rule->kind, value);
    if (!canonical) return OX_INVALID_ARGUMENT;
    return setCanonical(opts, *rule, *canonical);
}

OXStatus setOptionU8(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr value, UTF8ByteLength valueL) {
    auto nameText = viewOf(name, nameL);
    auto valueText = viewOf(value, valueL);
    if (!opts || !nameText || !valueText) return OX_INVALID_ARGUMENT;
    return setOptionText(opts, *nameText, *valueText);
}

OXStatus setOption(SSLOptions opts, const OXChar* name, OXStrSize nameL, const OXChar* value, OXStrSize valueL) {
    char buf[kMaxNameLength];
    if (!opts || (!value && valueL != 0) || valueL < 0) return OX_INVALID_ARGUMENT;
    auto nameText = narrowName(name, nameL, buf);
    if (!nameText || !findRule(*nameText)) return OX_NOT_SUPPORTED;
    if (!opts->oxstring) return OX_SERVICE_MISSING;
    OXU8String* utf8 = nullptr;
    OXStatus st = opts->oxstring->wideToU8(opts->oxstring, opts->pool, value, valueL, &utf8);
    if (st != OX_OK) return st;
    st = setOptionText(opts, *nameText, std::string_view(utf8->stg, utf8->len));
    utf8->instance.destroy(utf8);
    return st;
}

OXBoolean hasValueU8(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL) {
    auto nameText = viewOf(name, nameL);
    return opts && nameText && indexOfName(opts, *nameText) >= 0;
}

OXBoolean hasValue(SSLOptions opts, const OXChar* name, OXStrSize nameL) {
    char buf[kMaxNameLength];
    auto nameText = narrowName(name, nameL, buf);
    return opts && nameText && indexOfName(opts, *nameText) >= 0;
}

OXStatus getValueU8(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr* value, UTF8ByteLength* valueL) {
    auto nameText = viewOf(name, nameL);
    if (!opts || !nameText || !value || !valueL) return OX_INVALID_ARGUMENT;
    int64_t i = indexOfName(opts, *nameText);
    if (i < 0) return OX_NOT_FOUND;
    *value = opts->sslOptionValues[i];
    *valueL = std::strlen(opts->sslOptionValues[i]);
    return OX_OK;
}

OXStatus destroyOptions(SSLOptions opts) {
    if (!opts) return OX_INVALID_ARGUMENT;
    OX_POOL_S* pool = opts->pool;
    for (int64_t i = 0; i < opts->sslOptionCount; ++i) {
        pool->memFree(pool, opts->sslOptionNames[i]);
        pool->memFree(pool, opts->sslOptionValues[i]);
    }
    pool->memFree(pool, opts->sslOptionNames);
    pool->memFree(pool, opts->sslOptionValues);
    pool->memFree(pool, opts);
    return OX_OK;
}

OXStatus duplicateOptions(SSLOptions opts, OX_POOL_S* pool, SSLOptions* out);

OXStatus makeOptions(OX_POOL_S* pool, OXStringExt_S* oxstring, SSLOptions* out) {
    if (!pool || !out) return OX_INVALID_ARGUMENT;
    auto* opts = static_cast<SSLOptions_S*>(pool->memAlloc(pool, sizeof(SSLOptions_S), OX_POOL_ZERO_FILL));
    if (!opts) return OX_NO_MEMORY;
    opts->pool = pool;
    opts->oxstring = oxstring;
    opts->setOption = setOption;
    opts->setOptionU8 = setOptionU8;
    opts->duplicate = duplicateOptions;
    opts->destroy = destroyOptions;
    opts->hasValue = hasValue;
    opts->hasValueU8 = hasValueU8;
    opts->getValueU8 = getValueU8;
    *out = opts;
    return OX_OK;
}

OXStatus duplicateOptions(SSLOptions opts, OX_POOL_S* pool, SSLOptions* out) {
    if (!opts || !out) return OX_INVALID_ARGUMENT;
    SSLOptions copy = nullptr;
    OXStatus st = makeOptions(pool, opts->oxstring, &copy);
    for (int64_t i = 0; st == OX_OK && i < opts->sslOptionCount; ++i)
        st = setOptionText(copy, opts->sslOptionNames[i], opts->sslOptionValues[i]);
    if (st != OX_OK) {
        if (copy) destroyOptions(copy);
        return st;
    }
    *out = copy;
    return OX_OK;
}

OXStatus createOptions(OXSecSocket_S* ss, OX_POOL_S* pool, SSLOptions* out) {
    if (!ss) return OX_INVALID_ARGUMENT;
    return makeOptions(pool, ss->oxstring, out);
}

OXStatus unloadSecSocket(void* self) {
    auto* ss = static_cast<OXSecSocket_S*>(self);
    if (ss->oxstring) ss->oxstring->exth.generic.destroy(ss->oxstring);
    delete ss;
    return OX_OK;
}

OXStringExt_S* loadStringService(OX_HNDL_S* h) {
    if (!h || !h->loadExtension) return nullptr;
    static constexpr OXChar kName[] = {'o', 'x', 's', 't', 'r', 'i', 'n', 'g'};
    return reinterpret_cast<OXStringExt_S*>(h->loadExtension(h, kName, std::size(kName), nullptr));
}

}  // namespace

OXExtension* oxLoadSecSocket(OX_HNDL_S* h, OXJournal* jnl) {
    auto* ss = new (std::nothrow) OXSecSocket_S{};
    if (!ss) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    ox::initServiceHead(ss->exth, h, "secsocket", unloadSecSocket);
    ss->oxstring = loadStringService(h);
    ss->createOptions = createOptions;
    return &ss->exth;
}
