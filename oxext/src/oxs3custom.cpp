// Custom regions: defining, replacing and removing them under the custom-region lock, their
// text form, and loading and saving them through the host option "oxs3regions" (or, before
// anything was saved, the environment variable OXS3_CUSTOM_REGION).
#include "oxs3custom.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "oxs3instance.h"
#include "oxs3log.h"
#include "oxs3owned.h"
#include "oxs3regions.h"
#include "oxs3text.h"

namespace s3 {
namespace {

constexpr std::u32string_view kSavedOption = U"oxs3regions";
constexpr std::u32string_view kEnvironmentOption = U"OSENV.OXS3_CUSTOM_REGION";
constexpr size_t kMaxEnvironmentChars = 1024;

constexpr char kDefinitionSeparator = ':';
constexpr char kFieldSeparator = ',';
constexpr size_t kRequiredFields = 6;
constexpr size_t kKnownFields = 7;
constexpr std::string_view kTrue = "TRUE";
constexpr std::string_view kFalse = "FALSE";
constexpr uint16_t kDefaultPort = 65535;
constexpr size_t kTextCapacity = 256;

const OXChar* chars(std::u32string_view s) { return reinterpret_cast<const OXChar*>(s.data()); }

// ---- the entry instance

OXStatus destroyEndpoint(void* self) {
    auto* entry = static_cast<EndpointInstance*>(self);
    if (!entry) return OX_INVALID_ARGUMENT;
    if (!dropReference(entry->instance)) return OX_OK;
    for (OXU8String* s : {entry->regionName, entry->hostname, entry->pathPrefix})
        if (s) s->instance.destroy(s);
    entry->pool->memFree(entry->pool, entry);
    return OX_OK;
}

// What an add defines, once the TLS and port rules have been applied.
struct NewRegion {
    std::string_view name;
    std::string_view host;
    std::string_view pathPrefix;
    uint16_t port;
    uint16_t sslPort;
    bool sslRequired;
    bool sslAllowed;
};

uint16_t portOrDefault(uint16_t port) { return port == 0 ? kDefaultPort : port; }

// No TLS flag at all asks for TLS; noSSL turns it off entirely.
NewRegion withRules(const CustomRegionDefinition& d, bool noSSL) {
    NewRegion r{.name = d.name,
                .host = d.host,
                .pathPrefix = d.pathPrefix,
                .port = portOrDefault(d.port),
                .sslPort = portOrDefault(d.sslPort),
                .sslRequired = d.sslRequired,
                .sslAllowed = d.sslAllowed};
    if (noSSL) {
        r.sslRequired = r.sslAllowed = false;
    } else if (!r.sslRequired && !r.sslAllowed) {
        r.sslRequired = true;
    }
    r.sslAllowed = r.sslAllowed || r.sslRequired;
    return r;
}

OXStatus copyText(OXS3Extension* ext, std::string_view text, OXU8String** out) {
    return ext->oxstring->createU8(ext->oxstring, ext->pool, text.data(), text.size(), OX_STR_COPY, out);
}

OXStatus createEndpoint(OXS3Extension* ext, const NewRegion& r, Owned<EndpointInstance>& out) {
    auto* entry =
        static_cast<EndpointInstance*>(ext->pool->memAlloc(ext->pool, sizeof(EndpointInstance), OX_POOL_ZERO_FILL));
    if (!entry) return OX_NO_MEMORY;
    initInstance(entry->instance, OXS3_TYPE_ENDPOINT, destroyEndpoint);
    entry->pool = ext->pool;
    Owned<EndpointInstance> held(entry);
    OXStatus st = copyText(ext, r.name, &entry->regionName);
    if (st == OX_OK) st = copyText(ext, r.host, &entry->hostname);
    if (st == OX_OK && !r.pathPrefix.empty()) st = copyText(ext, r.pathPrefix, &entry->pathPrefix);
    if (st != OX_OK) return st;
    entry->awsEndpoint = {.htEndpoint = {entry->hostname->stg, r.port, r.sslRequired, r.sslAllowed},
                          .region = No_Region,
                          .name = entry->regionName->stg,
                          .locationConstraint = "",
                          .sslPort = r.sslPort,
                          .pathPrefix = entry->pathPrefix ? entry->pathPrefix->stg : nullptr};
    out = std::move(held);
    return OX_OK;
}

// The array keeps no nulls, so an emptied slot holds an empty string instead; the numbers of
// the other regions stay as they are.
OXStatus makeVacancy(OXS3Extension* ext, Owned<OXU8String>& out) { return copyText(ext, "", out.out()); }

const EndpointInstance* lookUp(OXDictionary byName, std::string_view name) {
    OXInstance* value = nullptr;
    if (byName->getValueU8(byName, name.data(), name.size(), &value) != OX_OK) return nullptr;
    return asCustomRegion(value);
}

// ---- changing the tables (the caller holds the lock)

void numberAt(EndpointInstance* entry, int64_t index) {
    entry->index = index;
    entry->region = static_cast<AWSRegion>(First_Custom_Region + index);
    entry->awsEndpoint.region = entry->region;
}

// Appends the entry and gives it its name; a replaced entry's slot is emptied last, so a
// failure leaves both tables as they were.
OXStatus install(OXS3Extension* ext, EndpointInstance* entry, OXU8String* vacancy) {
    OXArray byId = ext->customRegionsById;
    OXDictionary byName = ext->customRegions;
    const std::string_view name = view(entry->regionName);
    const EndpointInstance* old = vacancy ? lookUp(byName, name) : nullptr;
    const int64_t oldIndex = old ? old->index : -1;
    numberAt(entry, byId->count);
    if (OXStatus st = byId->addItem(byId, &entry->instance); st != OX_OK) return st;
    if (OXStatus st = byName->setValueU8(byName, name.data(), name.size(), &entry->instance); st != OX_OK) {
        byId->removeItem(byId, byId->count - 1);
        return st;
    }
    if (oldIndex >= 0) byId->setItem(byId, oldIndex, &vacancy->instance);
    return OX_OK;
}

// ---- checking a new definition

// The separators of the saved form, and a 0 byte, which would cut a name read as a C string.
constexpr std::string_view kUnsavable{":,\0", 3};

bool holdsSeparator(std::string_view text) { return text.find_first_of(kUnsavable) != text.npos; }

// Names and hosts must survive the text form they are saved in.
OXStatus checkSavable(OXS3Extension* ext, const NewRegion& r) {
    if (r.name.empty() || r.host.empty()) {
        OXS3_LOG(ext->logger, LL_Error, U"A custom region needs both a name and a host.");
        return OX_INVALID_ARGUMENT;
    }
    if (holdsSeparator(r.name) || holdsSeparator(r.host) || holdsSeparator(r.pathPrefix)) {
        OXS3_LOG(ext->logger, LL_Error,
                 U"Custom region \"%.*hs\": names, hosts and path prefixes cannot hold \":\", \",\" or a 0 byte.",
                 static_cast<int>(r.name.size()), r.name.data());
        return OX_INVALID_ARGUMENT;
    }
    return OX_OK;
}

OXStatus checkNameFree(OXS3Extension* ext, std::string_view name, bool replace) {
    if (!replace && customRegionForName(ext, name) != Unknown_Region) {
        OXS3_LOG(ext->logger, LL_Error, U"Custom region \"%.*hs\" is already defined.", static_cast<int>(name.size()),
                 name.data());
        return OXS3_REGION_NAME_IN_USE;
    }
    if (isAWSRegionName(name)) {
        OXS3_LOG(ext->logger, LL_Error, U"Custom region \"%.*hs\" has the name of an AWS region.",
                 static_cast<int>(name.size()), name.data());
        return OXS3_REGION_NAME_IN_USE;
    }
    return OX_OK;
}

OXStatus addRegion(OXS3Extension* ext, const NewRegion& r, bool replace) {
    if (OXStatus st = checkSavable(ext, r); st != OX_OK) return st;
    if (OXStatus st = checkNameFree(ext, r.name, replace); st != OX_OK) return st;
    Owned<EndpointInstance> entry;
    Owned<OXU8String> vacancy;
    OXStatus st = createEndpoint(ext, r, entry);
    if (st == OX_OK && replace) st = makeVacancy(ext, vacancy);
    if (st != OX_OK) return st;
    CustomRegionHold hold(ext);
    st = install(ext, entry.get(), vacancy.get());
    if (st == OX_OK)
        OXS3_LOG(ext->logger, LL_Debug, U"Custom region \"%.*hs\" is region %d.", static_cast<int>(r.name.size()),
                 r.name.data(), entry->region);
    return st;
}

// ---- the text form

std::string_view trimBlanks(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t");
    if (first == s.npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

bool isQuote(char c) { return c == '"' || c == '\''; }

// Hand-written definitions often put a blank after each comma; one quote goes from each end.
std::string_view fieldValue(std::string_view field) {
    std::string_view s = trimBlanks(field);
    if (!s.empty() && isQuote(s.front())) s.remove_prefix(1);
    if (!s.empty() && isQuote(s.back())) s.remove_suffix(1);
    return s;
}

// The first kKnownFields fields; returns how many there are in all.
size_t splitFields(std::string_view text, std::array<std::string_view, kKnownFields>& fields) {
    size_t count = 0;
    for (size_t start = 0;; ++count) {
        const size_t end = text.find(kFieldSeparator, start);
        if (count < fields.size()) fields[count] = fieldValue(text.substr(start, end - start));
        if (end == text.npos) return count + 1;
        start = end + 1;
    }
}

// Digits only; empty or 0 is the default port.
bool parsePort(std::string_view text, uint16_t* port) {
    if (text.empty()) {
        *port = kDefaultPort;
        return true;
    }
    uint16_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return false;
    *port = portOrDefault(value);
    return true;
}

// A port as saved: the default is written as 0.
std::string_view portText(uint16_t port, std::array<char, 8>& buffer) {
    const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), port == kDefaultPort ? 0 : port);
    return std::string_view(buffer.data(), written.ptr);
}

OXStatus addDefinition(OXS3Extension* ext, std::string_view text, int number) {
    CustomRegionDefinition d;
    const char32_t* problem = nullptr;
    if (OXStatus st = parseCustomRegionDefinition(text, &d, &problem); st != OX_OK) {
        OXS3_LOG(ext->logger, LL_Error, U"Custom region definition %d: %s", number, wide(problem));
        return st;
    }
    return addRegion(ext, withRules(d, !d.sslRequired && !d.sslAllowed), false);
}

// ---- the saved option and the environment

// The saved regions when there are any, else the environment's definitions, else nothing.
OXStatus readSourceText(OXS3Extension* ext, Owned<OXU8String>& text, std::u32string_view& source) {
    OX_HNDL_S* h = ext->exth.hndl;
    source = kSavedOption;
    OXStatus st = getEnvVar(h, ext->oxstring, ext->pool, chars(source), source.size(), text.out());
    if (st != OX_OK || text) return st;
    source = kEnvironmentOption;
    st = getEnvVar(h, ext->oxstring, ext->pool, chars(source), source.size(), text.out());
    if (st != OX_OK || !text) return st;
    const size_t characters =
        std::count_if(text->stg, text->stg + text->len, [](char c) { return (c & 0xC0) != 0x80; });
    if (characters > kMaxEnvironmentChars) {
        OXS3_LOG(ext->logger, LL_Error, U"OXS3_CUSTOM_REGION holds %zu characters; at most %zu are taken.", characters,
                 kMaxEnvironmentChars);
        return OXS3_ENV_VALUE_TOO_LONG;
    }
    return OX_OK;
}

OXStatus storeSavedOption(OXS3Extension* ext, const OXU8String* text) {
    Owned<OXString> value;
    OXStatus st = ext->oxstring->u8ToWide(ext->oxstring, ext->pool, text->stg, text->len, value.out());
    if (st != OX_OK) return st;
    OX_HNDL_S* h = ext->exth.hndl;
    return h->nameSet(h, chars(kSavedOption), kSavedOption.size(), value->stg, static_cast<size_t>(value->len));
}

}  // namespace

CustomRegionHold::CustomRegionHold(OXS3Extension* ext) : lock_(ext->customRegionLock) {
    if (lock_) lock_->get(lock_);
}

CustomRegionHold::~CustomRegionHold() {
    if (lock_) lock_->release(lock_);
}

const EndpointInstance* asCustomRegion(const OXInstance* item) {
    return hasType(item, OXS3_TYPE_ENDPOINT) ? reinterpret_cast<const EndpointInstance*>(item) : nullptr;
}

AWSRegion customRegionForName(OXS3Extension* ext, std::string_view name) {
    if (!ext->customRegions) return Unknown_Region;
    CustomRegionHold hold(ext);
    const EndpointInstance* entry = lookUp(ext->customRegions, name);
    return entry ? entry->region : Unknown_Region;
}

const EndpointInstance* customRegionEntry(OXS3Extension* ext, AWSRegion region) {
    OXArray byId = ext ? ext->customRegionsById : nullptr;
    if (!byId || region < First_Custom_Region) return nullptr;
    CustomRegionHold hold(ext);
    const int64_t index = region - First_Custom_Region;
    return index < byId->count ? asCustomRegion(byId->items[index]) : nullptr;
}

OXStatus copyCustomRegionName(OXS3Extension* ext, OX_POOL_S* pool, AWSRegion region, OXU8String** name) {
    if (!ext->customRegionsById || region < First_Custom_Region) return OXS3_REGION_NOT_FOUND;
    CustomRegionHold hold(ext);
    const int64_t index = region - First_Custom_Region;
    OXArray byId = ext->customRegionsById;
    const EndpointInstance* entry = index < byId->count ? asCustomRegion(byId->items[index]) : nullptr;
    if (!entry) return OXS3_REGION_NOT_FOUND;
    const std::string_view text = view(entry->regionName);
    return ext->oxstring->createU8(ext->oxstring, pool, text.data(), text.size(), OX_STR_COPY, name);
}

OXStatus parseCustomRegionDefinition(std::string_view text, CustomRegionDefinition* definition,
                                     const char32_t** problem) {
    if (!definition) return OX_INVALID_ARGUMENT;
    std::array<std::string_view, kKnownFields> fields;
    const size_t count = splitFields(text, fields);
    auto fail = [&](const char32_t* why) {
        if (problem) *problem = why;
        return OX_INVALID_ARGUMENT;
    };
    if (count < kRequiredFields)
        return fail(U"it has fewer than six fields (name, host, port, TLS port, TLS required, TLS allowed).");
    CustomRegionDefinition d;
    d.name = fields[0];
    d.host = fields[1];
    if (!parsePort(fields[2], &d.port) || !parsePort(fields[3], &d.sslPort))
        return fail(U"a port is not a number from 0 to 65535.");
    d.sslRequired = fields[4] == kTrue;
    d.sslAllowed = fields[5] == kTrue || d.sslRequired;
    if (count > kRequiredFields) d.pathPrefix = fields[6];
    *definition = d;
    return OX_OK;
}

OXStatus addCustomRegionsFromText(OXS3Extension* ext, std::string_view text) {
    if (!ext) return OX_INVALID_ARGUMENT;
    int number = 0;
    for (size_t start = 0; start <= text.size(); ++number) {
        size_t end = text.find(kDefinitionSeparator, start);
        if (end == text.npos) end = text.size();
        const std::string_view definition = text.substr(start, end - start);
        start = end + 1;
        if (trimBlanks(definition).empty()) continue;
        if (OXStatus st = addDefinition(ext, definition, number + 1); st != OX_OK) return st;
    }
    return OX_OK;
}

OXStatus endpointToString(const EndpointInstance* entry, OXU8String* out) {
    if (!entry || !out) return OX_INVALID_ARGUMENT;
    const HTEndpoint& ht = entry->awsEndpoint.htEndpoint;
    std::array<char, 8> port, sslPort;
    return appendText(out, {"\"", view(entry->regionName), "\",\"", view(entry->hostname), "\",",
                            portText(ht.port, port), ",", portText(entry->awsEndpoint.sslPort, sslPort), ",",
                            ht.sslRequired ? kTrue : kFalse, ",", ht.sslAllowed ? kTrue : kFalse});
}

OXStatus customRegionsText(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** text) {
    if (!ext || !pool || !text) return OX_INVALID_ARGUMENT;
    Owned<OXU8String> out;
    OXStatus st = ext->oxstring->createU8Empty(ext->oxstring, pool, kTextCapacity, out.out());
    CustomRegionHold hold(ext);
    OXArray byId = ext->customRegionsById;
    for (int64_t i = 0; st == OX_OK && i < byId->count; ++i) {
        const EndpointInstance* entry = asCustomRegion(byId->items[i]);
        if (!entry) continue;
        if (out->len) st = appendText(out.get(), {std::string_view(&kDefinitionSeparator, 1)});
        if (st == OX_OK) st = endpointToString(entry, out.get());
    }
    if (st == OX_OK) *text = out.release();
    return st;
}

OXStatus oxs3AddCustomRegion(OXS3Extension* ext, UTF8CStr regionName, UTF8CStr host, uint16_t port, uint16_t sslPort,
                             UTF8CStr pathPrefix, OXBoolean sslAllowed, OXBoolean sslRequired, OXBoolean noSSL,
                             OXBoolean replace) {
    if (!ext || !regionName || !host) return OX_INVALID_ARGUMENT;
    CustomRegionDefinition d{
        regionName, host, port, sslPort, sslRequired != 0, sslAllowed != 0, pathPrefix ? pathPrefix : ""};
    return addRegion(ext, withRules(d, noSSL != 0), replace != 0);
}

OXStatus oxs3RemoveCustomRegion(OXS3Extension* ext, UTF8CStr regionName) {
    if (!ext || !regionName) return OX_INVALID_ARGUMENT;
    const std::string_view name = regionName;
    Owned<OXU8String> vacancy;
    if (OXStatus st = makeVacancy(ext, vacancy); st != OX_OK) return st;
    CustomRegionHold hold(ext);
    const EndpointInstance* entry = lookUp(ext->customRegions, name);
    if (!entry) {
        OXS3_LOG(ext->logger, LL_Error, U"Custom region \"%hs\" is not defined.", regionName);
        return OXS3_REGION_NOT_FOUND;
    }
    OXArray byId = ext->customRegionsById;
    byId->setItem(byId, entry->index, &vacancy->instance);
    return ext->customRegions->removeKeyU8(ext->customRegions, name.data(), name.size());
}

OXStatus getCustomRegions(OXS3Extension* ext) {
    Owned<OXU8String> text;
    std::u32string_view source;
    OXStatus st = readSourceText(ext, text, source);
    if (st == OX_OK && text) st = addCustomRegionsFromText(ext, view(text.get()));
    if (st != OX_OK)
        OXS3_LOG(ext->logger, LL_Error, U"The custom regions in %s could not be loaded: result=0x%x.", chars(source),
                 st);
    return st;
}

// A load that stopped before the lock was made has nothing of its own to save, and must not
// replace what the next load reads.
OXStatus saveCustomRegions(OXS3Extension* ext) {
    if (!ext->customRegionLock) return OX_OK;
    Owned<OXU8String> text;
    OXStatus st = customRegionsText(ext, ext->pool, text.out());
    if (st == OX_OK) st = storeSavedOption(ext, text.get());
    if (st != OX_OK) OXS3_LOG(ext->logger, LL_Error, U"The custom regions could not be saved: result=0x%x.", st);
    return st;
}

}  // namespace s3
