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
struct OXS3RegionList_S;

typedef struct OXS3ConnectionStruct* OXS3Connection;
typedef struct OXS3ACL_S* OXS3ACL;
typedef struct OXS3Location_S* OXS3Location;

/* Region numbers: 0..37 are built in (37 is Custom_Region); custom regions are 38 + index. */
typedef int32_t AWSRegion;
enum { Unknown_Region = -1, No_Region = -2, Test_Region = 12, Custom_Region = 37 };

#define OXS3_EXTENSION_OVEN OX_OVEN('n', 'e', 'v', 'o')

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
    OXStatus (*getRegions)(OXS3Extension* ext, OX_POOL_S* pool, struct OXS3RegionList_S** regions);
    OXStatus (*freeRegions)(OXS3Extension* ext, struct OXS3RegionList_S* regions);
    OXStatus (*locationCreateU8)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secretKey,
                                 UTF8CStr sessionToken, AWSRegion region, UTF8CStr path, OXS3Location* location);
    OXStatus (*getUserSettings)(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secret,
                                UTF8CStr session, UTF8CStr region, UTF8CStr oxs3ConfigPath, UTF8CStr awsConfigPath,
                                UTF8CStr awsProfileName, UTF8CStr awsCredentialsPath,
                                UTF8CStr awsCredentialsProfileName, OXBoolean useSSL, OXBoolean sslSpecified,
                                struct S3Settings_S** settings, OXU8String** errorDetail, int64_t* errorLine);
};

/* The entry: the host calls it once and gets the record, or null. */
OX_API OXS3Extension* oxs3(OX_HNDL_S* hndl, OXJournal* jnl, ...);

OX_END_DECLS

#endif
