/* The connection record: one endpoint, one set of credentials, one HTTP connection of the web
 * client, the transfer tuning and encryption settings, and the operations that act on S3.
 * Made by the extension record's createConnection; a host instance of type "oxs3Connection"
 * whose destroy drops a reference and releases the connection with the last one. Slots whose
 * areas are not built yet are null. */
#ifndef OXS3_CONN_H
#define OXS3_CONN_H

#include "ox/array.h"
#include "ox/dictionary.h"
#include "ox/handle.h"
#include "ox/htconnection.h"
#include "ox/string.h"
#include "ox/types.h"
#include "oxs3records.h"

OX_BEGIN_DECLS

#define OXS3_TYPE_CONNECTION "oxs3Connection"

struct oxs3_ext;
struct AWSEndpoint;
struct OXS3ACL_S;
struct OXS3ObjectInformation_S;
struct OXS3ChunkInformation_S;
struct OXS3CopyOptions_S;

typedef struct OXS3ConnectionStruct* OXS3Connection;

/* The access choice of a write: a canned ACL, explicit grants from an ACL object, or no ACL
 * header at all. */
typedef int32_t OXS3AccessType;
enum {
    oxs3PrivateAccess = 0,
    oxs3PublicReadAccess = 1,
    oxs3PublicReadWriteAccess = 2,
    oxs3AuthenticatedReadAccess = 3,
    oxs3BucketOwnerReadAccess = 4,
    oxs3BucketOwnerFullAccess = 5,
    oxs3LogDeliveryWriteAccess = 6,
    oxs3AccessList = 7,
    oxs3AccessDefault = 8
};

/* Encryption arguments (key, algorithm, KMS key id, KMS context) travel as four values, all
 * null for none: the key is an OXU8String of key text or an OXData of key bytes. */
struct OXS3ConnectionStruct {
    OXInstance instance;
    OX_POOL_S* pool;
    struct oxs3_ext* oxs3;
    OXU8String* accessKeyId;
    OXU8String* secretAccessKey;
    const struct AWSEndpoint* endPoint; /* not owned */
    HTConnection htConnection;          /* owned */
    int32_t tcpError;
    OXBoolean useReadThreads;
    OXBoolean useWriteThreads;
    int32_t maxReadThreadCount;
    int32_t maxWriteThreadCount;
    OXMemSize minBlockSize;
    OXU8String* errorMessage; /* the last S3 error's text, or null */

    OXStatus (*close)(OXS3Connection connection);
    OXStatus (*clone)(OX_POOL_S* pool, OXS3Connection source, OXS3Connection* result);
    OXStatus (*testauth)(OXS3Connection connection, UTF8CStr method, UTF8CStr bucket, UTF8CStr path,
                         OXDictionary query, UTF8CStr dateText, UTF8CStr dateTimeText);
    OXStatus (*getUserBuckets)(OXS3Connection connection, HTConnection http, OXS3BucketList** result);
    OXStatus (*getBucketContents)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXArray* result);
    OXStatus (*getObjectInfo)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                              struct OXS3ObjectInformation_S** result);
    OXStatus (*getObject)(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path, void** data,
                          OXMemSize* length);
    OXStatus (*putObject)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXS3AccessType accessType,
                          struct OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                          OXBoolean useReducedRedundancy, const void* data, OXMemSize length);
    OXStatus (*deleteObject)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, UTF8CStr multiFactorAuthCode,
                             UTF8CStr versionId, OXBoolean* deleteMarker);
    OXStatus (*putFile)(OXS3Connection connection, UTF8CStr srcPath, OXS3AccessType accessType,
                        struct OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                        OXBoolean useReducedRedundancy, UTF8CStr bucket, UTF8CStr objectPath);
    OXStatus (*getFile)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr objectPath, UTF8CStr destPath);
    OXStatus (*pathIsDir)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXBoolean* isDir);
    OXStatus (*createBucket)(OXS3Connection connection, UTF8CStr bucket, OXS3AccessType accessType,
                             struct OXS3ACL_S* accessControl);
    OXStatus (*deleteBucket)(OXS3Connection connection, UTF8CStr bucket);
    OXStatus (*createDirectory)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath,
                                OXS3AccessType accessType, struct OXS3ACL_S* accessControl, OXDictionary metadata,
                                OXBoolean useReducedRedundancy);
    OXStatus (*deleteDirectory)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath,
                                UTF8CStr multiFactorAuthCode, OXBoolean* deleteMarker, OXBoolean contents,
                                OXArray* errorList);
    OXStatus (*getObjectRange)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                               uint64_t offset, OXMemSize length, OXMemSize* bytesRead);
    OXStatus (*mergeBlocks)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr blockDirectory, UTF8CStr destPath,
                            OXS3AccessType accessType, struct OXS3ACL_S* accessControl, OXDictionary metadata,
                            OXBoolean useReducedRedundancy);
    OXStatus (*copyObject)(OXS3Connection connection, UTF8CStr sourceBucket, UTF8CStr sourceObject,
                           UTF8CStr destBucket, UTF8CStr destObject, struct OXS3CopyOptions_S* copyOptions);
    OXU8String* sessionToken; /* temporary credentials' session token, or null */
    OXStatus (*getAccelerate)(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState* state);
    OXStatus (*setAccelerate)(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState state);
    OXU8String* requestPath; /* the path of the request being built: unencoded until signed, then encoded */
    OXStatus (*initiateUpload)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr filePath,
                               OXS3AccessType accessType, struct OXS3ACL_S* accessControl, OXDictionary metadata,
                               UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXU8String** uploadKey,
                               OXU8String** uploadId);
    OXStatus (*uploadPart)(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState* isAccelerated,
                           UTF8CStr objectPath, UTF8CStr uploadId, int32_t partNumber, const void* data,
                           OXMemSize length, int32_t* tcpError, OX_EVENT_S* abortEvent, OXU8String** partId);
    OXStatus (*completeUpload)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr filePath, OXArray partList,
                               UTF8CStr uploadId);
    OXStatus (*abortUpload)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr filePath, UTF8CStr uploadId);
    struct OXS3ChunkInformation_S* activeChunk; /* the chunked put in progress, or null */
    OXStatus (*startChunkedPut)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                OXS3AccessType accessType, struct OXS3ACL_S* accessControl, OXDictionary metadata,
                                UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXMemSize totalLength,
                                OXMemSize chunkSize);
    OXStatus (*putChunk)(OXS3Connection connection, const void* data, OXMemSize length);
    OXStatus (*finishChunkedPut)(OXS3Connection connection);
    OXStatus (*getEncryptedObject)(OXS3Connection connection, OX_POOL_S* pool, UTF8CStr bucket, UTF8CStr path,
                                   OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                   OXU8String* encKeyContext, void** data, OXMemSize* length);
    OXStatus (*getEncryptedObjectRange)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, void* buffer,
                                        uint64_t offset, OXMemSize length, OXInstance* encKey, OXU8String* encKeyAlg,
                                        OXU8String* encKeyId, OXU8String* encKeyContext, OXMemSize* bytesRead);
    OXStatus (*putEncryptedObject)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                   OXS3AccessType accessType, struct OXS3ACL_S* accessControl, OXDictionary metadata,
                                   UTF8CStr websiteRedirect, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                   OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext,
                                   const void* data, OXMemSize length);
    OXStatus (*getEncryptedFile)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr objectPath, UTF8CStr destPath,
                                 OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                 OXU8String* encKeyContext);
    OXStatus (*putEncryptedFile)(OXS3Connection connection, UTF8CStr srcPath, OXS3AccessType accessType,
                                 struct OXS3ACL_S* accessControl, OXDictionary metadata, UTF8CStr websiteRedirect,
                                 OXBoolean useReducedRedundancy, UTF8CStr bucket, UTF8CStr objectPath,
                                 OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                 OXU8String* encKeyContext);
    OXStatus (*mergeEncryptedBlocks)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr blockDirectory,
                                     UTF8CStr destPath, OXS3AccessType accessType, struct OXS3ACL_S* accessControl,
                                     OXDictionary metadata, OXBoolean useReducedRedundancy, OXInstance* encKey,
                                     OXU8String* encKeyAlg, OXU8String* encKeyId, OXU8String* encKeyContext);
    OXStatus (*copyEncryptedObject)(OXS3Connection connection, UTF8CStr sourceBucket, UTF8CStr sourceObject,
                                    OXInstance* srcEncKey, OXU8String* srcEncKeyAlg, OXU8String* srcEncKeyId,
                                    OXU8String* srcEncKeyContext, UTF8CStr destBucket, UTF8CStr destObject,
                                    OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                    OXU8String* encKeyContext, struct OXS3CopyOptions_S* copyOptions);
    OXStatus (*getEncryptedObjectInformation)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                              OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                              OXU8String* encKeyContext, struct OXS3ObjectInformation_S** result);
    OXStatus (*putEncryptedObjectChunked)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path,
                                          OXS3AccessType accessType, struct OXS3ACL_S* accessControl,
                                          OXDictionary metadata, UTF8CStr websiteRedirect,
                                          OXBoolean useReducedRedundancy, OXInstance* encKey, OXU8String* encKeyAlg,
                                          OXU8String* encKeyId, OXU8String* encKeyContext, OXMemSize totalLength,
                                          OXMemSize chunkSize);
    OXStatus (*completeEncryptedUpload)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr filePath,
                                        OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                        OXU8String* encKeyContext, OXArray partList, UTF8CStr uploadId);
    OXStatus (*initiateEncryptedUpload)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr filePath,
                                        OXS3AccessType accessType, struct OXS3ACL_S* accessControl,
                                        OXDictionary metadata, UTF8CStr websiteRedirect,
                                        OXBoolean useReducedRedundancy, OXInstance* encKey, OXU8String* encKeyAlg,
                                        OXU8String* encKeyId, OXU8String* encKeyContext, OXU8String** uploadKey,
                                        OXU8String** uploadId);
    OXStatus (*uploadEncryptedPart)(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState* isAccelerated,
                                    UTF8CStr objectPath, UTF8CStr uploadId, int32_t partNumber, const void* data,
                                    OXMemSize length, OXInstance* encKey, OXU8String* encKeyAlg,
                                    OXU8String* encKeyId, OXU8String* encKeyContext, int32_t* tcpError,
                                    OX_EVENT_S* abortEvent, OXU8String** partId);
    /* UploadPartCopy: the part's bytes are a range of a source object. */
    OXStatus (*uploadEncryptedObjectPart)(OXS3Connection connection, UTF8CStr bucket, UTF8CStr objectPath,
                                          UTF8CStr uploadId, int32_t partNumber, UTF8CStr sourceBucket,
                                          UTF8CStr sourceObject, uint64_t offset, OXMemSize length,
                                          OXInstance* srcEncKey, OXU8String* srcEncKeyAlg, OXU8String* srcEncKeyId,
                                          OXU8String* srcEncKeyContext, OXInstance* encKey, OXU8String* encKeyAlg,
                                          OXU8String* encKeyId, OXU8String* encKeyContext, OXU8String** partId);
    /* SSE-KMS (kmsKeyId, optional kmsKeyContext) or SSE-C (key as hexadecimal text when keyIsHex,
     * else as key text); exactly one kind. */
    OXStatus (*setEncryption)(OXS3Connection connection, UTF8CStr kmsKeyId, UTF8CStr kmsKeyContext, UTF8CStr key,
                              OXBoolean keyIsHex);
    OXU8String* kmsKeyId;
    OXU8String* kmsKeyContext;
    OXInstance* sseKey; /* an OXU8String of key text or an OXData of key bytes */
    OXU8String* sseKeyAlgorithm;
    OXStatus (*getRoleCredentials)(OXS3Connection connection, UTF8CStr roleName, UTF8CStr roleArn,
                                   OXDictionary* credentials);
    OXStatus (*getRoleByName)(OXS3Connection connection, UTF8CStr roleName, OXDictionary* roleInfo);
    OXStatus (*getRoleByArn)(OXS3Connection connection, UTF8CStr roleArn, OXDictionary* roleInfo);
};

OX_END_DECLS

#endif
