/* The S3 extension's public interface: the extension record returned by the entry `oxs3`,
 * and the types its operation slots use. Slots whose areas are not built yet are null. */
#ifndef OXS3_H
#define OXS3_H

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/handle.h"
#include "ox/log.h"
#include "ox/status.h"
#include "ox/string.h"
#include "ox/types.h"
#include "oxs3acl.h"
#include "oxs3conn.h"
#include "oxs3records.h"
#include "oxs3status.h"

OX_BEGIN_DECLS

struct OXInstanceSvc_S;
struct SSLOptions_S;
struct OXS3ConnectionStruct;
struct OXS3ACL_S;
struct OXS3Location_S;
struct OXS3File_S;
struct OXS3FileParms_S;
struct S3Settings_S;

typedef struct OXS3ConnectionStruct* OXS3Connection;
typedef struct OXS3ACL_S* OXS3ACL;
typedef struct OXS3Location_S* OXS3Location;

/* Region numbers: 0..37 are built in (37 is Custom_Region); custom regions are 38 + their index
 * in the extension's customRegionsById. */
typedef int32_t AWSRegion;
enum {
    No_Region = -2,
    Unknown_Region = -1,
    US_Standard_Region = 0,
    US_East_Virginia_Region = 1,
    US_West_Oregon_Region = 2,
    US_West_California_Region = 3,
    EU_Ireland_Region = 4,
    EU_Frankfurt_Region = 5,
    Asia_Pacific_Singapore_Region = 6,
    Asia_Pacific_Sydney_Region = 7,
    Asia_Pacific_Tokyo_Region = 8,
    South_America_SaoPaulo_Region = 9,
    US_GovCloud = 10,
    US_GovCloud_FIPS = 11,
    Test_Region = 12,
    US_East_Ohio_Region = 13,
    CA_Central_Region = 14,
    Asia_Pacific_India_Region = 15,
    Asia_Pacific_Seoul_Region = 16,
    China_Beijing_Region = 17,
    China_Ningxia_Region = 18,
    EU_London_Region = 19,
    EU_Paris_Region = 20,
    Asia_Pacific_HongKong_Region = 21,
    EU_Milan_Region = 22,
    EU_Stockholm_Region = 23,
    Middle_East_Bahrain_Region = 24,
    Africa_CapeTown_Region = 25,
    Asia_Pacific_Osaka_Region = 26,
    EU_Zurich_Region = 27,
    Asia_Pacific_Hyderabad_Region = 28,
    Asia_Pacific_Jakarta_Region = 29,
    US_East_GovCloud = 30,
    US_East_GovCloud_FIPS = 31,
    EU_Spain_Region = 32,
    Middle_East_UAE_Region = 33,
    Asia_Pacific_Melbourne_Region = 34,
    CA_Calgary_Region = 35,
    Israel_Tel_Aviv_Region = 36,
    Custom_Region = 37,
    First_Custom_Region = 38
};

/* Where requests go: a host, its port (65535: the scheme's default) and its TLS rule. */
typedef struct HTEndpoint {
    UTF8CStr host;
    uint16_t port;
    OXBoolean sslRequired;
    OXBoolean sslAllowed;
} HTEndpoint;

/* A region's endpoint: a row of the built-in table, or the one inside a custom region. */
typedef struct AWSEndpoint {
    HTEndpoint htEndpoint;
    AWSRegion region;
    UTF8CStr name;               /* the AWS region name */
    UTF8CStr locationConstraint; /* for bucket creation; may be empty */
    uint16_t sslPort;            /* 65535: the default */
    UTF8CStr pathPrefix;         /* null when the endpoint has none */
} AWSEndpoint;

/* One known region in the list getRegions makes. */
typedef struct OXS3RegionEntry {
    AWSRegion region;
    UTF8CStr name;     /* the short code, or the custom region's name */
    UTF8CStr fullName; /* the AWS region name, or the custom region's name */
    UTF8CStr host;     /* the endpoint's host */
    OXBoolean custom;
} OXS3RegionEntry;

/* The built-in regions a caller can name, then the custom regions; freed by freeRegions. */
typedef struct OXS3RegionList_S {
    OX_POOL_S* pool;
    int64_t count;
    OXS3RegionEntry* entries;
} OXS3RegionList_S;

#define OXS3_EXTENSION_OVEN OX_OVEN('n', 'e', 'v', 'o')

/* Credentials, region and TLS choice gathered from the configuration sources: a host instance
 * of type "S3Settings", shared by reference count and freed to its pool at the last release.
 * The strings are owned by the record and may be absent. */
#define OXS3_SETTINGS_TYPE "S3Settings"

typedef struct S3Settings_S {
    OXInstance instance;
    OX_POOL_S* pool;
    OXU8String* keyId;
    OXU8String* secret;
    OXU8String* session;
    OXU8String* region;
    OXBoolean useSSL;
    OXBoolean sslSpecified; /* useSSL was set by a source, not defaulted */
} S3Settings;

typedef struct oxs3_ext OXS3Extension;
struct oxs3_ext {
    OXExtension exth;
    OX_POOL_S* pool;
    OXExtension* secSockets;
    struct OXStringExt_S* oxstring;
    OXExtension* oxeavl;
    OXExtension* oxexml;
    OXExtension* webclient;
    struct OXArrayExt_S* oxarray;
    struct OXDictionaryExt_S* oxdictionary;
    struct OXInstanceSvc_S* oxinstance; /* from the string service; not loaded or released separately */
    OXExtension* oxioe;
    Logger_S* logger;
    OXBoolean showAuthCalc;    /* also dump request signing to stderr; switched on by a holder of the record */
    OXBoolean showParallelOps; /* also report the parallel engine's work on stderr */

    OXS3Connection (*createConnection)(OXS3Extension* ext, OX_POOL_S* pool, OXBoolean useSSL,
                                       struct SSLOptions_S* sslOptions, AWSRegion region, UTF8CStr accessKeyId,
                                       UTF8CStr secretAccessKey, UTF8CStr sessionToken, OXStatus* status);
    OXStatus (*createACL)(OXS3Extension* ext, OX_POOL_S* pool, OXS3ACL* acl);
    OXBoolean (*validBucketName)(OXS3Extension* ext, UTF8CStr name, UTF8ByteLength nameL);
    AWSRegion (*regionForName)(OXS3Extension* ext, const OXString* name);
    AWSRegion (*regionForNameU8)(OXS3Extension* ext, UTF8CStr name);
    UTF8CStr (*nameForRegion)(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length);
    OXStatus (*titleForRegion)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr locale, AWSRegion region,
                               OXU8String** title);
    OXStatus (*parseS3PathU8)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr path, OXS3Location* location);
    OXStatus (*createLocationU8)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secretKey,
                                 UTF8CStr sessionToken, AWSRegion region, UTF8CStr path, OXS3Location* location);
    OXStatus (*readConfig)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                           UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath, UTF8CStr awsCredentialsProfileName,
                           OXBoolean* useSSL, OXBoolean* sslSpecified, OXU8String** keyId, OXU8String** secret,
                           OXU8String** sessionToken, OXU8String** region, OXU8String** errorDetail,
                           int64_t* errorLine);
    UTF8CStr (*fullNameForRegion)(OXS3Extension* ext, AWSRegion region, UTF8ByteLength* length);
    OXStatus (*defaultConfigPath)(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** path);
    OXStatus (*fileCreate)(OXS3Extension* ext, OX_POOL_S* pool, OXS3Connection connection,
                           struct OXS3FileParms_S* fileParms, struct OXS3File_S** file);
    OXStatus (*getEC2Region)(OXS3Extension* ext, OXU8String** region);
    OXStatus (*getEC2RoleName)(OXS3Extension* ext, OX_POOL_S* pool, OXU8String** roleName);
    OXStatus (*getIAMRole)(OXS3Extension* ext, UTF8CStr roleName, OX_POOL_S* pool, OXDictionary* role);
    OXBoolean isEC2Host;
    OXU8String* ec2Region;
    OXDictionary customRegions;    /* by name */
    OXArray customRegionsById;     /* by index: region number 38 + index */
    OX_LOCK_S* customRegionLock;
    OXStatus (*addCustomRegion)(OXS3Extension* ext, UTF8CStr regionName, UTF8CStr host, uint16_t port,
                                uint16_t sslPort, UTF8CStr pathPrefix, OXBoolean sslAllowed, OXBoolean sslRequired,
                                OXBoolean noSSL, OXBoolean replace);
    OXStatus (*removeCustomRegion)(OXS3Extension* ext, UTF8CStr regionName);
    OXStatus (*getRegions)(OXS3Extension* ext, OX_POOL_S* pool, OXS3RegionList_S** regions);
    OXStatus (*freeRegions)(OXS3Extension* ext, OXS3RegionList_S* regions);
    OXStatus (*locationCreateU8)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secretKey,
                                 UTF8CStr sessionToken, AWSRegion region, UTF8CStr path, OXS3Location* location);
    OXStatus (*getUserSettings)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secret,
                                UTF8CStr session, UTF8CStr region, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                                UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                                UTF8CStr awsCredentialsProfileName, OXBoolean useSSL, OXBoolean sslSpecified,
                                struct S3Settings_S** settings, OXU8String** errorDetail, int64_t* errorLine);
};

#define OXS3_TYPE_LOCATION "oxs3Location"

/* A parsed S3 path: credentials, region, bucket and object path. A host instance in pool;
 * destroy drops a reference and releases the strings with the last one. */
struct OXS3Location_S {
    OXInstance instance;
    OX_POOL_S* pool;
    OXS3Extension* oxs3;
    OXU8String* keyId;
    OXU8String* secretKey;
    OXU8String* regionName;
    AWSRegion region; /* No_Region until create or applyDefaultsU8 resolves it */
    OXU8String* bucketName;
    OXU8String* objectPath;
    /* Fills what the location lacks; the region number is recomputed from the region name. */
    OXStatus (*applyDefaultsU8)(OXS3Location location, UTF8CStr keyId, UTF8CStr secretKey, UTF8CStr sessionToken,
                                UTF8CStr regionName);
    OXStatus (*connectionForLocation)(OXS3Location location, OXBoolean useSSL, struct SSLOptions_S* sslOptions,
                                      OXS3Connection* connection);
    OXStatus (*getPath)(OXS3Location location, OX_POOL_S* pool, OXBoolean includeCredentials, OXU8String** path);
    OXU8String* sessionToken;
};

/* The entry: the host calls it once and gets the record, or null. */
OX_API OXS3Extension* oxs3(OX_HNDL_S* hndl, OXJournal* jnl, ...);

OX_END_DECLS

#endif
