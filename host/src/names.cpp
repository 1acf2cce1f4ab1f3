// Process-wide names: values any module can set and read by a wide name. Names beginning
// "OSENV." are read-only views of the process environment.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core.h"
#include "ox/status.h"
#include "utf8.h"

namespace {

constexpr std::u32string_view kEnvPrefix = U"OSENV.";

// Never destroyed: threads may still read names while the process exits.
struct NameTable {
    std::shared_mutex mutex;
    std::unordered_map<std::u32string, std::u32string> values;
};

NameTable& table() {
    static NameTable* t = new NameTable;
    return *t;
}

std::u32string_view wideView(const OXChar* text, size_t len) {
    static_assert(sizeof(OXChar) == sizeof(char32_t));
    return text ? std::u32string_view(reinterpret_cast<const char32_t*>(text), len) : std::u32string_view();
}

bool isEnvName(std::u32string_view name) { return name.starts_with(kEnvPrefix); }

// The environment value for an "OSENV." name, or nothing when the variable is not set or its
// name is not representable. Throws only std::bad_alloc.
std::optional<std::u32string> environmentValue(std::u32string_view name) {
    std::string variable;
    for (char32_t c : name.substr(kEnvPrefix.size())) {
        char bytes[4];
        size_t len = ox::utf8::encode(c, bytes);
        if (len == 0 || c == 0) return std::nullopt;
        variable.append(bytes, len);
    }
    const char* raw = std::getenv(variable.c_str());
    if (!raw) return std::nullopt;
    std::u32string value;
    ox::utf8::forEachCodePoint(raw, [&](char32_t c) { value.push_back(c); });
    return value;
}

std::optional<std::u32string> storedValue(std::u32string_view name) {
    NameTable& t = table();
    std::shared_lock lock(t.mutex);
    auto it = t.values.find(std::u32string(name));
    if (it == t.values.end()) return std::nullopt;
    return it->second;
}

std::optional<std::u32string> lookUp(std::u32string_view name) {
    return isEnvName(name) ? environmentValue(name) : storedValue(name);
}

}  // namespace

OXBoolean oxNameExists(OX_HNDL_S*, const OXChar* name, size_t nameL) {
    if (!name || nameL == 0) return OX_FALSE;
    try {
        return lookUp(wideView(name, nameL)).has_value() ? OX_TRUE : OX_FALSE;
    } catch (...) {
        return OX_FALSE;
    }
}

OXStatus oxNameGet(OX_HNDL_S*, const OXChar* name, size_t nameL, OXChar* value, size_t valueL, size_t* valueLOut) {
    if (!name || nameL == 0 || (!value && valueL)) return OX_INVALID_ARGUMENT;
    std::optional<std::u32string> found;
    try {
        found = lookUp(wideView(name, nameL));
    } catch (...) {
        return OX_NO_MEMORY;
    }
    if (!found) return OX_NOT_FOUND;
    if (found->size() > valueL) {
        if (valueLOut) *valueLOut = found->size();
        return OX_BUFFER_TOO_SMALL;
    }
    if (!found->empty()) std::memcpy(value, found->data(), found->size() * sizeof(OXChar));
    if (valueLOut) *valueLOut = found->size();
    return OX_OK;
}

OXStatus oxNameSet(OX_HNDL_S*, const OXChar* name, size_t nameL, const OXChar* value, size_t valueL) {
    if (!name || nameL == 0 || (!value && valueL)) return OX_INVALID_ARGUMENT;
    std::u32string_view key = wideView(name, nameL);
    if (isEnvName(key)) return OX_INVALID_ARGUMENT;
    NameTable& t = table();
    try {
        std::u32string newValue(wideView(value, valueL));
        std::unique_lock lock(t.mutex);
        t.values.insert_or_assign(std::u32string(key), std::move(newValue));
    } catch (...) {
        return OX_NO_MEMORY;
    }
    return OX_OK;
}
