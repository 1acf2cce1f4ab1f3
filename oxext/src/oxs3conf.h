// Settings and their sources: explicit values, the extension's own file, the AWS environment
// variables and the AWS shared config and credentials files, merged by a fixed precedence
// into a reference-counted S3Settings record.
#pragma once

#include <string_view>

#include "oxs3.h"
#include "oxs3owned.h"

namespace s3 {

// ---- the settings record ----

OXStatus destroyS3Settings(void* self);
void retainS3Settings(S3Settings* settings);
// Absent, or without key id, secret and session token; the region does not count.
bool settingsAreEmpty(const S3Settings* settings);
// A zero-filled record with one reference.
OXStatus allocateS3Settings(OX_POOL_S* pool, S3Settings** settings);
// A record from C strings, each copied when given.
OXStatus createS3Settings(OXInstanceSvc_S* instances, OXStringExt_S* strings, OX_POOL_S* pool, UTF8CStr keyId,
                          UTF8CStr secret, UTF8CStr session, UTF8CStr region, OXBoolean useSSL,
                          OXBoolean sslSpecified, S3Settings** settings);

// ---- the environment ----

// One AWS environment variable: the host option it is read from, and the key it is kept under.
struct AWSEnvVar {
    const char32_t* name;
    size_t nameLen;
    const char* entryName;
    size_t entryNameLen;
};
extern const AWSEnvVar awsSettingNames[];  // ends with an all-zero row

// Longest environment value taken, in characters.
constexpr size_t kMaxEnvValueChars = 65536;

// One host option as UTF-8; success with no value when the option does not exist.
OXStatus getEnvVar(OX_HNDL_S* h, OXStringExt_S* strings, OX_POOL_S* pool, const OXChar* name, size_t nameLen,
                   OXU8String** value);
// The AWS variables that are set, by their entry names.
OXStatus getAWSEnvironment(OXS3Extension* ext, OX_POOL_S* pool, OXDictionary* env);

// ---- the home directory ----

// Tests give the home directory instead of the password database; null home means the user
// has no password entry.
void overrideHomeDirectory(const char* home);
void useHomeDirectoryFromPasswordDatabase();

// The default AWS file paths under the home directory, as pool blocks the caller frees.
OXStatus defaultAWSConfigPaths(OXS3Extension* ext, OX_POOL_S* pool, char** configPath, char** credentialsPath);
// The extension's own file under the home directory.
OXStatus oxs3DefaultConfigPath(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** path);

// ---- configuration files ----

// Reads one configuration file through the host reader, logging the path, and on a syntax
// error the line.
OXStatus readConfigurationFile(OXS3Extension* ext, OX_POOL_S* pool, const char* path, OXDictionary* result,
                               int64_t* errorLine);
// The reader's statuses for text that is no configuration file.
bool isConfigSyntaxError(OXStatus st);
// A string value of a dictionary, borrowed; null when absent or not a string.
OXU8String* stringEntry(OXS3Extension* ext, OXDictionary d, std::string_view name);
// A dictionary value of a dictionary, borrowed; null when absent or not a dictionary.
OXDictionary dictionaryEntry(OXS3Extension* ext, OXDictionary d, std::string_view name);
// A new reference on a string value, or an empty holder.
Owned<OXU8String> takeString(OXS3Extension* ext, OXDictionary d, std::string_view name);

// ---- the AWS side of the merge ----

// The dictionaries a value can come from, most important first; any may be absent.
struct AWSValueSources {
    OXDictionary environment;
    OXDictionary credentials;     // the selected credentials-file section
    OXDictionary config;          // the selected config-file section
    OXDictionary serviceAccount;  // credentials of an EKS service account
};

struct AWSValues {
    Owned<OXU8String> keyId;
    Owned<OXU8String> accessKey;
    Owned<OXU8String> sessionToken;
    Owned<OXU8String> region;
};

// Each value from the first source that has it.
void pickAWSValues(OXS3Extension* ext, const AWSValueSources& from, AWSValues& into);

OXStatus getAWSConfigurationValues(OXS3Extension* ext, OX_POOL_S* pool, const OXU8String* profileName,
                                   const char* awsConfigPath, const OXU8String* credentialsName,
                                   const char* awsCredentialsPath, OXU8String** keyId, OXU8String** accessKey,
                                   OXU8String** sessionToken, OXU8String** region, int64_t* errorLine);

// ---- the whole merge ----

OXStatus readOXS3Configuration(OXS3Extension* ext, OX_POOL_S* pool, const char* path, OXBoolean* useSSL,
                               OXBoolean* sslSpecified, OXU8String** keyId, OXU8String** secret,
                               OXU8String** sessionToken, OXU8String** region, int64_t* errorLine);

OXStatus oxs3ReadConfiguration(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                               UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                               UTF8CStr awsCredentialsProfileName, OXBoolean* useSSL, OXBoolean* sslSpecified,
                               OXU8String** keyId, OXU8String** secret, OXU8String** sessionToken,
                               OXU8String** region, OXU8String** errorDetail, int64_t* errorLine);

OXStatus readS3CredentialsFromConfig(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr oxs3ConfigPath,
                                     UTF8CStr awsConfigPath, UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                                     UTF8CStr awsCredentialsProfileName, S3Settings** settings,
                                     OXU8String** errorDetail, int64_t* errorLine);

OXStatus oxs3GetUserSettings(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secret, UTF8CStr session,
                             UTF8CStr region, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                             UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                             UTF8CStr awsCredentialsProfileName, OXBoolean useSSL, OXBoolean sslSpecified,
                             S3Settings** settings, OXU8String** errorDetail, int64_t* errorLine);

}  // namespace s3
