// Directories over object keys (a key prefix ending in "/", made visible by a zero-length
// placeholder object), deleting single objects, whole directory trees and several keys in one
// request, and splitting the bucket off a path.
#pragma once

#include <string_view>

#include "oxs3.h"

namespace s3 {

// ---- the connection slots

// bucket null: the path's first component is the bucket.
OXStatus oxs3PathIsDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXBoolean* isDir);
OXStatus oxs3CreateDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, OXS3AccessType accessType,
                             OXS3ACL_S* accessControl, OXDictionary metadata, OXBoolean useReducedRedundancy);
// contents set: everything under the directory goes, key by key; errorList is then required.
OXStatus oxs3DeleteDirectory(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, UTF8CStr multiFactorAuthCode,
                             OXBoolean* deleteMarker, OXBoolean contents, OXArray* errorList);
OXStatus oxs3DeleteObject(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, UTF8CStr multiFactorAuthCode,
                          UTF8CStr versionId, OXBoolean* deleteMarker);

// Fills the directory and delete slots of a new or cloned connection.
void setDirectoryOps(OXS3Connection connection);

// ---- inside the extension

// Deletes every key under dirPath, last listed first; *errorList is set to null. The first
// failure stops the walk; keys already deleted stay deleted.
OXStatus deleteDirectoryTree(OXS3Connection connection, UTF8CStr bucket, UTF8CStr dirPath, UTF8CStr multiFactorAuthCode,
                             OXArray* errorList);

// One listing page of the keys under prefix (no leading "/"), after marker when given, appended
// to contentList as entries named by their full keys.
OXStatus getDirContents(OXS3Connection connection, std::string_view bucket, std::string_view prefix,
                        const OXU8String* marker, OXArray contentList, OXU8String** nextMarker,
                        OXBoolean* isTruncated);

// A multi-object delete body up to its object entries, which the caller appends.
OXStatus startDeleteXML(OXStringExt_S* strings, OX_POOL_S* pool, OXU8String** xml);
// Closes the body and sends it; *errorList gets the keys the server could not delete (null
// when none).
OXStatus deleteFiles(OXS3Connection connection, UTF8CStr bucket, UTF8CStr mfaCode, OXU8String* xml,
                     OXArray* errorList);

// "bucket/rest/of/path" (a leading "/" allowed) into "bucket" and "/rest/of/path";
// OXS3_LOCATION_NO_BUCKET without both parts.
OXStatus bucketNameFromPath(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr objectPath, OXU8String** bucketName,
                            OXU8String** newPath);

}  // namespace s3
