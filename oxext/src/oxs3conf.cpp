// Settings and configuration sources: the S3Settings record, the environment snapshot, the
// paths under the home directory, the extension's own file, and the merge of all sources into
// the caller's settings. The AWS shared files are read in oxs3awsfiles.cpp.
#include "oxs3conf.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ox/instance.h"
#include "ox/msg.h"
#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3instance.h"
#include "oxs3log.h"

namespace s3 {
namespace {

constexpr std::string_view kOwnFileName = "/.oxs3.conf";
constexpr std::string_view kAWSConfigName = "/.aws/config";
constexpr std::string_view kAWSCredentialsName = "/.aws/credentials";
// Room past the home directory for any of the names above and the terminator.
constexpr size_t kHomePathSlack = 30;
constexpr size_t kPasswdBufferStart = 1024;
constexpr size_t kPasswdBufferMax = size_t{1} << 20;
constexpr size_t kDetailChars = 512;

constexpr AWSEnvVar envRow(std::u32string_view name, std::string_view entryName) {
    return {name.data(), name.size(), entryName.data(), entryName.size()};
}

// ---- the settings record ----

void releaseString(OXU8String*& s) {
    if (s) s->instance.destroy(s);
    s = nullptr;
}

OXStatus copyText(OXStringExt_S* strings, OX_POOL_S* pool, UTF8CStr value, OXU8String*& into) {
    if (!value) return OX_OK;
    return strings->createU8(strings, pool, value, std::strlen(value), OX_STR_COPY, &into);
}

// ---- the home directory ----

struct HomeOverride {
    bool active = false;
    const char* home = nullptr;
};
HomeOverride homeOverride;

OXStatus noHomeDirectory(Logger_S* logger) {
    OXS3_LOG(logger, LL_Debug, U"The effective user has no entry in the password database, so there is no home directory.");
    return OXS3_NO_HOME_DIRECTORY;
}

// Calls use(home) while the password entry's text is valid. The reentrant lookup, because
// settings are read on any thread.
template <class Use>
OXStatus withHomeDirectory(Logger_S* logger, OX_POOL_S* pool, Use&& use) {
    if (homeOverride.active) return homeOverride.home ? use(std::string_view(homeOverride.home)) : noHomeDirectory(logger);
    long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    for (size_t size = hint > 0 ? static_cast<size_t>(hint) : kPasswdBufferStart; size <= kPasswdBufferMax; size *= 2) {
        auto buffer = PoolBlock<char>::allocate(pool, size);
        if (!buffer) return OX_NO_MEMORY;
        passwd entry{};
        passwd* found = nullptr;
        int err = getpwuid_r(geteuid(), &entry, buffer.get(), size, &found);
        if (err == ERANGE) continue;
        if (err != 0 || !found || !found->pw_dir) break;
        return use(std::string_view(found->pw_dir));
    }
    return noHomeDirectory(logger);
}

PoolBlock<char> homePath(OX_POOL_S* pool, std::string_view home, std::string_view name) {
    size_t size = home.size() + kHomePathSlack;
    auto path = PoolBlock<char>::allocate(pool, size);
    if (path) oxzFormatBuff(path.get(), size, "%.*s%.*s", static_cast<int>(home.size()), home.data(),
                            static_cast<int>(name.size()), name.data());
    return path;
}

// ---- configuration files ----

void describeStatus(OXStatus st, char (&sentence)[kDetailChars]) { oxMessageFormat(st, sentence, sizeof sentence); }

void logReadFailure(Logger_S* logger, const char* path, OXStatus st, int64_t line) {
    if (isConfigSyntaxError(st)) {
        OXS3_LOG(logger, LL_Error, U"The configuration file %hs is malformed at line %lld.", path,
                 static_cast<long long>(line));
        return;
    }
    char sentence[kDetailChars];
    describeStatus(st, sentence);
    OXS3_LOG(logger, LL_Debug, U"The configuration file %hs could not be read: %hs", path, sentence);
}

bool sslValueIsTrue(const OXU8String* value) {
    return oxzsu8NormCompare(value->stg, value->len, "true", 4) == 0 ||
           oxzsu8NormCompare(value->stg, value->len, "yes", 3) == 0;
}

// ---- the extension's own file ----

// The same four values as the AWS side, with the extension's secret kept as accessKey.
struct OwnFileValues {
    OXBoolean useSSL = OX_FALSE;
    OXBoolean sslSpecified = OX_FALSE;
    AWSValues values;
};

OXStatus readOwnFile(OXS3Extension* ext, OX_POOL_S* pool, const char* path, OwnFileValues& own, int64_t* errorLine) {
    AWSValues& v = own.values;
    return readOXS3Configuration(ext, pool, path, &own.useSSL, &own.sslSpecified, v.keyId.out(), v.accessKey.out(),
                                 v.sessionToken.out(), v.region.out(), errorLine);
}

void setErrorDetail(OXS3Extension* ext, OX_POOL_S* pool, OXStatus inner, OXU8String** errorDetail) {
    if (!errorDetail) return;
    char sentence[kDetailChars];
    describeStatus(inner, sentence);
    ext->oxstring->createU8(ext->oxstring, pool, sentence, std::strlen(sentence), OX_STR_COPY, errorDetail);
}

// The default file is optional: a missing one, or no home directory, leaves it out.
OXStatus readDefaultOwnFile(OXS3Extension* ext, OX_POOL_S* pool, OwnFileValues& own, OXU8String** errorDetail,
                            int64_t* errorLine) {
    Owned<OXU8String> path;
    OXStatus st = oxs3DefaultConfigPath(ext, pool, path.out());
    if (st == OXS3_NO_HOME_DIRECTORY) return OX_OK;
    if (st != OX_OK) return st;
    st = readOwnFile(ext, pool, path->stg, own, errorLine);
    if (st == OX_OK || st == OX_FILE_NOT_FOUND) return OX_OK;
    OXS3_LOG(ext->logger, LL_Error, U"The configuration file %hs exists but could not be read. 0x%x", path->stg, st);
    setErrorDetail(ext, pool, st, errorDetail);
    return OXS3_CONFIG_FILE_UNREADABLE;
}

OXStatus readAnyOwnFile(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr path, OwnFileValues& own,
                        OXU8String** errorDetail, int64_t* errorLine) {
    if (!path) return readDefaultOwnFile(ext, pool, own, errorDetail, errorLine);
    OXStatus st = readOwnFile(ext, pool, path, own, errorLine);
    if (st != OX_OK) OXS3_LOG(ext->logger, LL_Error, U"readOXS3Configuration returned result=0x%x", st);
    return st;
}

// ---- the whole merge ----

struct ConfigRequest {
    UTF8CStr oxs3ConfigPath;
    UTF8CStr awsConfigPath;
    UTF8CStr awsProfileName;
    UTF8CStr awsCredentialsPath;
    UTF8CStr awsCredentialsProfileName;
};

struct MergedConfiguration {
    OwnFileValues own;
    AWSValues aws;
};

// A string header over the caller's text, or null; nothing is allocated.
const OXU8String* staticText(OXS3Extension* ext, OXU8String& header, UTF8CStr value) {
    if (!value) return nullptr;
    ext->oxstring->initStaticU8(ext->oxstring, &header, value, std::strlen(value));
    return &header;
}

OXStatus gatherAWSValues(OXS3Extension* ext, OX_POOL_S* pool, const ConfigRequest& request, AWSValues& aws,
                         int64_t* errorLine) {
    OXU8String profile{}, credentialsProfile{};
    return getAWSConfigurationValues(ext, pool, staticText(ext, profile, request.awsProfileName),
                                     request.awsConfigPath,
                                     staticText(ext, credentialsProfile, request.awsCredentialsProfileName),
                                     request.awsCredentialsPath, aws.keyId.out(), aws.accessKey.out(),
                                     aws.sessionToken.out(), aws.region.out(), errorLine);
}

OXStatus mergeConfiguration(OXS3Extension* ext, OX_POOL_S* pool, const ConfigRequest& request,
                            MergedConfiguration& merged, OXU8String** errorDetail, int64_t* errorLine) {
    OXStatus st = gatherAWSValues(ext, pool, request, merged.aws, errorLine);
    if (st != OX_OK) {
        setErrorDetail(ext, pool, st, errorDetail);
        return OXS3_AWS_SETTINGS_FAILED;
    }
    return readAnyOwnFile(ext, pool, request.oxs3ConfigPath, merged.own, errorDetail, errorLine);
}

// The extension's file wins over everything the AWS side found.
OXU8String* preferOwnFile(Owned<OXU8String>& own, Owned<OXU8String>& aws) {
    return own ? own.release() : aws.release();
}

struct ConfigOutputs {
    OXBoolean* useSSL;
    OXBoolean* sslSpecified;
    OXU8String** keyId;
    OXU8String** secret;
    OXU8String** sessionToken;
    OXU8String** region;
};

void clearOutputs(const ConfigOutputs& out) {
    *out.useSSL = *out.sslSpecified = OX_FALSE;
    *out.keyId = *out.secret = *out.sessionToken = *out.region = nullptr;
}

void writeOutputs(MergedConfiguration& merged, const ConfigOutputs& out) {
    AWSValues& own = merged.own.values;
    AWSValues& aws = merged.aws;
    *out.useSSL = merged.own.useSSL;
    *out.sslSpecified = merged.own.sslSpecified;
    *out.keyId = preferOwnFile(own.keyId, aws.keyId);
    *out.secret = preferOwnFile(own.accessKey, aws.accessKey);
    *out.sessionToken = preferOwnFile(own.sessionToken, aws.sessionToken);
    *out.region = preferOwnFile(own.region, aws.region);
}

// ---- user settings ----

S3Settings* chooseSettings(const Owned<S3Settings>& explicitRecord, const Owned<S3Settings>& configured) {
    if (!settingsAreEmpty(explicitRecord.get())) return explicitRecord.get();
    if (!settingsAreEmpty(configured.get())) return configured.get();
    return nullptr;
}

// TLS is on unless some source turned it off.
void applyTLSRule(S3Settings* settings, OXBoolean useSSL, OXBoolean sslSpecified) {
    if (sslSpecified) {
        settings->sslSpecified = sslSpecified;
        settings->useSSL = useSSL;
    } else if (!settings->sslSpecified) {
        settings->useSSL = OX_TRUE;
    }
}

}  // namespace

// ---- the settings record ----

OXStatus destroyS3Settings(void* self) {
    auto* settings = static_cast<S3Settings*>(self);
    if (!settings) return OX_INVALID_ARGUMENT;
    if (!dropReference(settings->instance)) return OX_OK;
    releaseString(settings->region);
    releaseString(settings->session);
    releaseString(settings->secret);
    releaseString(settings->keyId);
    settings->pool->memFree(settings->pool, settings);
    return OX_OK;
}

void retainS3Settings(S3Settings* settings) {
    if (settings) oxAtomicAdd(&settings->instance.refCount, 1);
}

bool settingsAreEmpty(const S3Settings* settings) {
    return !settings || (!settings->keyId && !settings->secret && !settings->session);
}

OXStatus allocateS3Settings(OX_POOL_S* pool, S3Settings** settings) {
    if (!pool || !settings) return OX_INVALID_ARGUMENT;
    auto* record = static_cast<S3Settings*>(pool->memAlloc(pool, sizeof(S3Settings), OX_POOL_ZERO_FILL));
    if (!record) return OX_NO_MEMORY;
    initInstance(record->instance, OXS3_SETTINGS_TYPE, destroyS3Settings);
    record->pool = pool;
    *settings = record;
    return OX_OK;
}

OXStatus createS3Settings(OXInstanceSvc_S*, OXStringExt_S* strings, OX_POOL_S* pool, UTF8CStr keyId,
                          UTF8CStr secret, UTF8CStr session, UTF8CStr region, OXBoolean useSSL,
                          OXBoolean sslSpecified, S3Settings** settings) {
    if (!strings || !settings) return OX_INVALID_ARGUMENT;
    *settings = nullptr;
    Owned<S3Settings> record;
    OXStatus st = allocateS3Settings(pool, record.out());
    if (st == OX_OK) st = copyText(strings, pool, keyId, record->keyId);
    if (st == OX_OK) st = copyText(strings, pool, secret, record->secret);
    if (st == OX_OK) st = copyText(strings, pool, session, record->session);
    if (st == OX_OK) st = copyText(strings, pool, region, record->region);
    if (st != OX_OK) return st;
    record->useSSL = useSSL;
    record->sslSpecified = sslSpecified;
    *settings = record.release();
    return OX_OK;
}

// ---- the environment ----

extern constexpr AWSEnvVar awsSettingNames[] = {
    envRow(U"OSENV.AWS_CONFIG_FILE", "configFile"),
    envRow(U"OSENV.AWS_SHARED_CREDENTIALS_FILE", "credentialsFile"),
    envRow(U"OSENV.AWS_ACCESS_KEY_ID", "keyId"),
    envRow(U"OSENV.AWS_SECRET_ACCESS_KEY", "accessKey"),
    envRow(U"OSENV.AWS_SESSION_TOKEN", "sessionToken"),
    envRow(U"OSENV.AWS_DEFAULT_REGION", "region"),
    envRow(U"OSENV.AWS_DEFAULT_PROFILE", "profile"),
    envRow(U"OSENV.AWS_ROLE_ARN", "awsRoleArn"),
    envRow(U"OSENV.AWS_WEB_IDENTITY_TOKEN_FILE", "awsWebIdentityTokenFile"),
    envRow(U"OSENV.QEL_USE_AWS_SERVICE_ACCOUNT", "awsUseAWSServiceAccount"),
    {nullptr, 0, nullptr, 0},
};

OXStatus getEnvVar(OX_HNDL_S* h, OXStringExt_S* strings, OX_POOL_S* pool, const OXChar* name, size_t nameLen,
                   OXU8String** value) {
    if (!h || !strings || !pool || !name || !value) return OX_INVALID_ARGUMENT;
    if (!h->nameExists(h, name, nameLen)) {
        *value = nullptr;
        return OX_OK;
    }
    size_t needed = 0;
    OXStatus st = h->nameGet(h, name, nameLen, nullptr, 0, &needed);
    if (st != OX_OK && st != OX_BUFFER_TOO_SMALL) return st;
    if (needed > kMaxEnvValueChars) {
        OXS3_LOG(oxs3logger, LL_Error, U"The value of %.*s is longer than %zu characters.", static_cast<int>(nameLen),
                 name, kMaxEnvValueChars);
        return OXS3_ENV_VALUE_TOO_LONG;
    }
    auto buffer = PoolBlock<OXChar>::allocate(pool, needed + 1);
    if (!buffer) return OX_NO_MEMORY;
    size_t got = 0;
    if (needed > 0) st = h->nameGet(h, name, nameLen, buffer.get(), needed, &got);
    if (st != OX_OK) return st;  // including a value that grew between the two lookups
    buffer.get()[got] = 0;
    return strings->wideToU8(strings, pool, buffer.get(), static_cast<OXStrSize>(got), value);
}

namespace {

OXStatus addEnvValue(OXS3Extension* ext, OX_POOL_S* pool, const AWSEnvVar& row, OXDictionary env) {
    Owned<OXU8String> value;
    OXStatus st = getEnvVar(ext->exth.hndl, ext->oxstring, pool, wide(row.name), row.nameLen, value.out());
    if (st != OX_OK || !value) return st;
    return env->setValueU8(env, row.entryName, row.entryNameLen, value.instance());
}

}  // namespace

OXStatus getAWSEnvironment(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary* env) {
    if (!ext || !pool || !env) return OX_INVALID_ARGUMENT;
    Owned<OXDictionary_S> result;
    OXStatus st = ext->oxdictionary->create(ext->oxdictionary, pool, OX_DICT_CASE_SENSITIVE, result.out());
    for (const AWSEnvVar* row = awsSettingNames; st == OX_OK && row->name; ++row)
        st = addEnvValue(ext, pool, *row, result.get());
    if (st == OX_OK) *env = result.release();
    return st;
}

// ---- the home directory ----

void overrideHomeDirectory(const char* home) { homeOverride = {true, home}; }
void useHomeDirectoryFromPasswordDatabase() { homeOverride = {}; }

OXStatus defaultAWSConfigPaths(OXS3Extension* ext, OX_POOL_S* pool, char** configPath, char** credentialsPath) {
    if (!ext || !pool || !configPath || !credentialsPath) return OX_INVALID_ARGUMENT;
    return withHomeDirectory(ext->logger, pool, [&](std::string_view home) -> OXStatus {
        PoolBlock<char> credentials = homePath(pool, home, kAWSCredentialsName);
        if (!credentials) return OX_NO_MEMORY;
        PoolBlock<char> config = homePath(pool, home, kAWSConfigName);
        if (!config) return OX_NO_MEMORY;
        *configPath = config.release();
        *credentialsPath = credentials.release();
        return OX_OK;
    });
}

OXStatus oxs3DefaultConfigPath(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** path) {
    if (!ext || !pool || !path) return OX_INVALID_ARGUMENT;
    return withHomeDirectory(ext->logger, pool, [&](std::string_view home) -> OXStatus {
        PoolBlock<char> text = homePath(pool, home, kOwnFileName);
        if (!text) return OX_NO_MEMORY;
        return ext->oxstring->createU8(ext->oxstring, pool, text.get(), std::strlen(text.get()), OX_STR_COPY, path);
    });
}

// ---- configuration files ----

OXStatus readConfigurationFile(OXS3Extension* ext, OX_POOL_S* pool, const char* path, OXDictionary* result,
                               int64_t* errorLine) {
    OXS3_LOG(ext->logger, LL_Debug, U"Reading configuration %hs", path);
    int64_t line = 0;
    OXStatus st = ext->oxinstance->readConfigFile(ext->oxinstance, pool, path, result, &line);
    if (st != OX_OK) logReadFailure(ext->logger, path, st, line);
    if (errorLine) *errorLine = line;
    return st;
}

bool isConfigSyntaxError(OXStatus st) { return st == OX_CONFIG_BAD_LINE || st == OX_CONFIG_BAD_SECTION; }

OXU8String* stringEntry(OXS3Extension* ext, OXDictionary d, std::string_view name) {
    OXInstance* value = nullptr;
    if (!d || d->getValueU8(d, name.data(), name.size(), &value) != OX_OK) return nullptr;
    return ext->oxinstance->isU8String(value) ? reinterpret_cast<OXU8String*>(value) : nullptr;
}

OXDictionary dictionaryEntry(OXS3Extension* ext, OXDictionary d, std::string_view name) {
    OXInstance* value = nullptr;
    if (!d || d->getValueU8(d, name.data(), name.size(), &value) != OX_OK) return nullptr;
    return ext->oxinstance->isDictionary(value) ? reinterpret_cast<OXDictionary>(value) : nullptr;
}

Owned<OXU8String> takeString(OXS3Extension* ext, OXDictionary d, std::string_view name) {
    OXU8String* value = stringEntry(ext, d, name);
    if (value) ext->oxstring->retain(&value->instance);
    return Owned<OXU8String>(value);
}

// ---- the extension's own file ----

OXStatus readOXS3Configuration(OXS3Extension* ext, OX_POOL_S* pool, const char* path, OXBoolean* useSSL,
                               OXBoolean* sslSpecified, OXU8String** keyId, OXU8String** secret,
                               OXU8String** sessionToken, OXU8String** region, int64_t* errorLine) {
    if (!ext || !pool || !path || !useSSL || !sslSpecified || !keyId || !secret || !sessionToken || !region)
        return OX_INVALID_ARGUMENT;
    Owned<OXDictionary_S> file;
    OXStatus st = readConfigurationFile(ext, pool, path, file.out(), errorLine);
    if (st != OX_OK) return st;
    // The file has no sections: its keys are those the reader puts before any section.
    OXDictionary flat = dictionaryEntry(ext, file.get(), "");
    const OXU8String* ssl = stringEntry(ext, flat, "ssl");
    *useSSL = ssl && sslValueIsTrue(ssl) ? OX_TRUE : OX_FALSE;
    *sslSpecified = ssl ? OX_TRUE : OX_FALSE;
    *keyId = takeString(ext, flat, "keyId").release();
    *secret = takeString(ext, flat, "secret").release();
    *sessionToken = takeString(ext, flat, "sessionToken").release();
    *region = takeString(ext, flat, "region").release();
    return OX_OK;
}

// ---- the whole merge ----

OXStatus oxs3ReadConfiguration(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                               UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                               UTF8CStr awsCredentialsProfileName, OXBoolean* useSSL, OXBoolean* sslSpecified,
                               OXU8String** keyId, OXU8String** secret, OXU8String** sessionToken,
                               OXU8String** region, OXU8String** errorDetail, int64_t* errorLine) {
    if (!ext || !pool || !useSSL || !sslSpecified || !keyId || !secret || !sessionToken || !region)
        return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Trace, U"oxs3ReadConfiguration [ENTER]");
    const ConfigOutputs out{useSSL, sslSpecified, keyId, secret, sessionToken, region};
    clearOutputs(out);
    if (errorDetail) *errorDetail = nullptr;
    if (errorLine) *errorLine = 0;
    const ConfigRequest request{oxs3ConfigPath, awsConfigPath, awsProfileName, awsCredentialsPath,
                                awsCredentialsProfileName};
    MergedConfiguration merged;
    OXStatus st = mergeConfiguration(ext, pool, request, merged, errorDetail, errorLine);
    if (st == OX_OK) writeOutputs(merged, out);
    OXS3_LOG(ext->logger, LL_Trace, U"oxs3ReadConfiguration [EXIT]: result=0x%x", st);
    return st;
}

OXStatus readS3CredentialsFromConfig(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr oxs3ConfigPath,
                                     UTF8CStr awsConfigPath, UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                                     UTF8CStr awsCredentialsProfileName, S3Settings** settings,
                                     OXU8String** errorDetail, int64_t* errorLine) {
    if (!ext || !pool || !settings) return OX_INVALID_ARGUMENT;
    *settings = nullptr;
    if (!ext->readConfig) return OX_NOT_SUPPORTED;
    Owned<S3Settings> record;
    OXStatus st = allocateS3Settings(pool, record.out());
    if (st != OX_OK) return st;
    S3Settings* r = record.get();
    st = ext->readConfig(ext, pool, oxs3ConfigPath, awsConfigPath, awsProfileName, awsCredentialsPath,
                         awsCredentialsProfileName, &r->useSSL, &r->sslSpecified, &r->keyId, &r->secret, &r->session,
                         &r->region, errorDetail, errorLine);
    if (st == OX_OK) *settings = record.release();
    return st;
}

// ---- user settings ----

OXStatus oxs3GetUserSettings(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secret, UTF8CStr session,
                             UTF8CStr region, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                             UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                             UTF8CStr awsCredentialsProfileName, OXBoolean useSSL, OXBoolean sslSpecified,
                             S3Settings** settings, OXU8String** errorDetail, int64_t* errorLine) {
    if (!ext || !pool || !settings) return OX_INVALID_ARGUMENT;
    OXS3_LOG(ext->logger, LL_Debug, U"oxs3GetUserSettings");
    *settings = nullptr;
    Owned<S3Settings> explicitRecord, configured, role;
    OXStatus st = createS3Settings(ext->oxinstance, ext->oxstring, pool, keyId, secret, session, region, useSSL,
                                   sslSpecified, explicitRecord.out());
    if (st != OX_OK) return st;
    st = readS3CredentialsFromConfig(ext, pool, oxs3ConfigPath, awsConfigPath, awsProfileName, awsCredentialsPath,
                                     awsCredentialsProfileName, configured.out(), errorDetail, errorLine);
    if (st != OX_OK) return st;
    // Asked so that a failing metadata service is reported; its credentials reach a caller
    // through the connection, which falls back to the instance role when it has no keys.
    st = getS3CredentialsFromEC2Role(ext, pool, role.out());
    if (st != OX_OK) return st;
    S3Settings* result = chooseSettings(explicitRecord, configured);
    if (result) {
        retainS3Settings(result);
        applyTLSRule(result, useSSL, sslSpecified);
    }
    *settings = result;
    return OX_OK;
}

void setConfigOps(OXS3Extension* ext) {
    ext->readConfig = oxs3ReadConfiguration;
    ext->getUserSettings = oxs3GetUserSettings;
}

}  // namespace s3
