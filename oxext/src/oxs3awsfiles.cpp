// The AWS side of the settings: the environment snapshot, the shared config and credentials
// files in a selected profile, and an EKS service account, each value taken from the first
// of them that has it.
#include <cstring>

#include "ox/instance.h"
#include "ox/status.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "oxs3log.h"
#include "oxs3text.h"

namespace s3 {
namespace {

constexpr std::string_view kProfilePrefix = "profile ";
constexpr std::string_view kDefaultSection = "default";

enum class PathKind { Explicit, Environment, Default };

// How one of the two AWS files is found and what its read failures mean.
struct AWSFileKind {
    std::string_view envKey;
    const char32_t* readFailedLog;
    const char32_t* noPathLog;
    OXStatus explicitBadLine;
    OXStatus explicitBadSection;
    OXStatus explicitUnreadable;
    OXStatus implicitSyntaxError;  // any syntax error in a file found through the environment or the default
};

constexpr AWSFileKind kConfigFile{
    "configFile",
    U"AWS config read failed. 0x%x",
    U"No AWS config file specified and not found at default location.",
    OXS3_AWS_CONFIG_MALFORMED,
    OXS3_AWS_CONFIG_BAD_SECTION,
    OXS3_AWS_CONFIG_UNREADABLE,
    OXS3_AWS_CONFIG_MALFORMED,
};

constexpr AWSFileKind kCredentialsFile{
    "credentialsFile",
    U"AWS credentials read failed. 0x%x",
    U"No AWS credentials file specified and not found at default location.",
    OXS3_AWS_CREDENTIALS_MALFORMED,
    OXS3_AWS_CREDENTIALS_BAD_SECTION,
    OXS3_AWS_CREDENTIALS_UNREADABLE,
    OXS3_AWS_CREDENTIALS_MALFORMED,
};

// Where each value is kept in each kind of source.
struct AWSValueKeys {
    std::string_view environment;
    std::string_view file;
    std::string_view serviceAccount;
    Owned<OXU8String> AWSValues::*field;
};

constexpr AWSValueKeys kAWSValueKeys[] = {
    {"keyId", "aws_access_key_id", "keyId", &AWSValues::keyId},
    {"accessKey", "aws_secret_access_key", "accessKey", &AWSValues::accessKey},
    {"sessionToken", "aws_session_token", "sessionToken", &AWSValues::sessionToken},
    {"region", "region", "region", &AWSValues::region},
};

bool equalsIgnoringCase(const OXU8String* value, std::string_view expected) {
    return oxzsu8NormCompare(value->stg, value->len, expected.data(), expected.size()) == 0;
}

struct AWSRequest {
    const OXU8String* profileName;
    const char* configPath;
    const OXU8String* credentialsName;
    const char* credentialsPath;
};

struct AWSSources {
    Owned<OXDictionary_S> environment;
    Owned<OXDictionary_S> configFile;
    Owned<OXDictionary_S> credentialsFile;
    Owned<OXDictionary_S> serviceAccount;
};

struct DefaultPaths {
    PoolBlock<char> config;
    PoolBlock<char> credentials;
};

// No home directory just means there are no default files.
OXStatus findDefaultPaths(OXS3Extension* ext, OX_POOL_S* pool, DefaultPaths& paths) {
    char* config = nullptr;
    char* credentials = nullptr;
    OXStatus st = defaultAWSConfigPaths(ext, pool, &config, &credentials);
    if (st == OXS3_NO_HOME_DIRECTORY) return OX_OK;
    if (st != OX_OK) return st;
    paths.config = PoolBlock<char>(pool, config);
    paths.credentials = PoolBlock<char>(pool, credentials);
    return OX_OK;
}

// ---- the two files ----

struct ChosenPath {
    const char* path;
    PathKind kind;
};

ChosenPath choosePath(OXS3Extension* ext, const AWSFileKind& file, const char* explicitPath, OXDictionary env,
                      const char* defaultPath) {
    if (explicitPath) return {explicitPath, PathKind::Explicit};
    if (const OXU8String* fromEnv = stringEntry(ext, env, file.envKey)) return {fromEnv->stg, PathKind::Environment};
    return {defaultPath, PathKind::Default};
}

// What a reader failure means for the whole call: OX_OK when the file is simply left out.
OXStatus mapReadFailure(const AWSFileKind& file, PathKind kind, OXStatus reader) {
    if (kind == PathKind::Explicit) {
        if (reader == OX_CONFIG_BAD_LINE) return file.explicitBadLine;
        if (reader == OX_CONFIG_BAD_SECTION) return file.explicitBadSection;
        return file.explicitUnreadable;
    }
    // A file that is not where the environment or the default points is no error.
    return isConfigSyntaxError(reader) ? file.implicitSyntaxError : OX_OK;
}

OXStatus readAWSFile(OXS3Extension* ext, OX_POOL_S* pool, const AWSFileKind& file, ChosenPath chosen,
                     Owned<OXDictionary_S>& result, int64_t* errorLine) {
    if (!chosen.path) {
        OXS3_LOG(ext->logger, LL_Debug, file.noPathLog);
        return OX_OK;
    }
    OXStatus reader = readConfigurationFile(ext, pool, chosen.path, result.out(), errorLine);
    if (reader == OX_OK) return OX_OK;
    OXStatus st = mapReadFailure(file, chosen.kind, reader);
    OXS3_LOG(ext->logger, st == OX_OK ? LL_Debug : LL_Error, file.readFailedLog, reader);
    return st;
}

// ---- the service account ----

void readServiceAccount(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary env, Owned<OXDictionary_S>& result) {
    const OXU8String* use = stringEntry(ext, env, "awsUseAWSServiceAccount");
    if (use && equalsIgnoringCase(use, "false")) {
        OXS3_LOG(ext->logger, LL_Debug, U"QEL_USE_AWS_SERVICE_ACCOUNT=false");
        return;
    }
    const OXU8String* tokenFile = stringEntry(ext, env, "awsWebIdentityTokenFile");
    const OXU8String* roleArn = stringEntry(ext, env, "awsRoleArn");
    if (!tokenFile || !roleArn) return;
    OXS3_LOG(ext->logger, LL_Debug, U"Found AWS_WEB_IDENTITY_TOKEN_FILE and AWS_ROLE_ARN.");
    OXS3_LOG(ext->logger, LL_Debug, U"    Trying to acquire service account credentials.");
    if (getS3CredentialsForEKSServiceAccount(ext, pool, roleArn, tokenFile, result.out()) == OX_OK)
        OXS3_LOG(ext->logger, LL_Debug, U"AWS EKS Service Account credentials available.");
    else
        OXS3_LOG(ext->logger, LL_Debug, U"AWS EKS Service Account credentials not available.");
}

// ---- the profile ----

struct ProfileSections {
    OXDictionary config = nullptr;       // borrowed from the config file
    OXDictionary credentials = nullptr;  // borrowed from the credentials file
};

OXStatus profileMissing(OXS3Extension* ext, std::string_view name) {
    OXS3_LOG(ext->logger, LL_Error, U"The AWS profile %.*hs was found in neither the AWS config nor the AWS credentials file.",
             static_cast<int>(name.size()), name.data());
    return OXS3_PROFILE_NOT_FOUND;
}

// The config file names a profile's section "profile <name>".
OXStatus configSectionOfProfile(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary configFile,
                                const OXU8String* profile, OXDictionary& section) {
    size_t size = kProfilePrefix.size() + profile->len;
    auto name = PoolBlock<char>::allocate(pool, size);
    if (!name) return OX_NO_MEMORY;
    std::memcpy(name.get(), kProfilePrefix.data(), kProfilePrefix.size());
    std::memcpy(name.get() + kProfilePrefix.size(), profile->stg, profile->len);
    section = dictionaryEntry(ext, configFile, std::string_view(name.get(), size));
    return OX_OK;
}

OXStatus selectSections(OXS3Extension* ext, OX_POOL_S* pool, const AWSRequest& request, const AWSSources& sources,
                        ProfileSections& out) {
    OXDictionary configFile = sources.configFile.get();
    OXDictionary credentialsFile = sources.credentialsFile.get();
    ProfileSections s;
    const OXU8String* profile = request.profileName;
    if (profile) {
        OXStatus st = configSectionOfProfile(ext, pool, configFile, profile, s.config);
        if (st != OX_OK) return st;
    } else if ((profile = stringEntry(ext, sources.environment.get(), "profile"))) {
        // The environment's profile names the config section as it stands, without the
        // prefix; configurations written for this rule rely on it.
        s.config = dictionaryEntry(ext, configFile, view(profile));
    } else {
        s.config = dictionaryEntry(ext, configFile, kDefaultSection);
    }
    if (profile) s.credentials = dictionaryEntry(ext, credentialsFile, view(profile));
    if (const OXU8String* name = request.credentialsName) {
        s.credentials = dictionaryEntry(ext, credentialsFile, view(name));
        if (!s.credentials) return profileMissing(ext, view(name));
    }
    if (!s.credentials) s.credentials = dictionaryEntry(ext, credentialsFile, kDefaultSection);
    if (profile && !s.config && !s.credentials) return profileMissing(ext, view(profile));
    out = s;
    return OX_OK;
}

// ---- the whole AWS side ----

OXStatus gatherAWSValues(OXS3Extension* ext, OX_POOL_S* pool, const AWSRequest& request, AWSValues& values,
                         int64_t* errorLine) {
    AWSSources sources;
    OXStatus st = getAWSEnvironment(ext, pool, sources.environment.out());
    if (st != OX_OK) return st;
    DefaultPaths defaults;
    st = findDefaultPaths(ext, pool, defaults);
    if (st != OX_OK) return st;
    OXDictionary env = sources.environment.get();
    st = readAWSFile(ext, pool, kConfigFile, choosePath(ext, kConfigFile, request.configPath, env, defaults.config.get()),
                     sources.configFile, errorLine);
    if (st != OX_OK) return st;
    readServiceAccount(ext, pool, env, sources.serviceAccount);
    st = readAWSFile(ext, pool, kCredentialsFile,
                     choosePath(ext, kCredentialsFile, request.credentialsPath, env, defaults.credentials.get()),
                     sources.credentialsFile, errorLine);
    if (st != OX_OK) return st;
    ProfileSections sections;
    st = selectSections(ext, pool, request, sources, sections);
    if (st != OX_OK) return st;
    pickAWSValues(ext, {env, sections.credentials, sections.config, sources.serviceAccount.get()}, values);
    return OX_OK;
}

}  // namespace

void pickAWSValues(OXS3Extension* ext, const AWSValueSources& from, AWSValues& into) {
    for (const AWSValueKeys& keys : kAWSValueKeys) {
        const std::pair<OXDictionary, std::string_view> order[] = {
            {from.environment, keys.environment},
            {from.credentials, keys.file},
            {from.config, keys.file},
            {from.serviceAccount, keys.serviceAccount},
        };
        for (const auto& [source, name] : order) {
            Owned<OXU8String> value = takeString(ext, source, name);
            if (!value) continue;
            into.*keys.field = std::move(value);
            break;
        }
    }
}

OXStatus getAWSConfigurationValues(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* profileName,
                                   const char* awsConfigPath, const OXU8String* credentialsName,
                                   const char* awsCredentialsPath, OXU8String** keyId, OXU8String** accessKey,
                                   OXU8String** sessionToken, OXU8String** region, int64_t* errorLine) {
    if (!ext || !pool || !keyId || !accessKey || !sessionToken || !region) return OX_INVALID_ARGUMENT;
    *keyId = *accessKey = *sessionToken = *region = nullptr;
    OXS3_LOG(ext->logger, LL_Trace, U"getAWSConfigurationValues [ENTER]");
    AWSValues values;
    OXStatus st = gatherAWSValues(ext, pool, {profileName, awsConfigPath, credentialsName, awsCredentialsPath}, values,
                                  errorLine);
    if (st == OX_OK) {
        *keyId = values.keyId.release();
        *accessKey = values.accessKey.release();
        *sessionToken = values.sessionToken.release();
        *region = values.region.release();
    }
    OXS3_LOG(ext->logger, LL_Trace, U"getAWSConfigurationValues [EXIT]: result=0x%x", st);
    return st;
}

}  // namespace s3
