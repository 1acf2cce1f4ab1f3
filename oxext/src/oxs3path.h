// S3 paths and the locations parsed from them: [s3:/][authority]/bucket[/object], where the
// authority is a region name, optionally preceded by a key id, ":" and a secret, and "@".
#pragma once

#include <string_view>

#include "oxs3.h"

namespace s3 {

// The parts of a path as views into its text. An empty view is a part the path lacks, except
// objectPath, which is "/" when the path names only a bucket and kept as written otherwise
// (without its leading "/", possibly empty).
struct S3PathParts {
    std::string_view keyId;
    std::string_view secret;
    std::string_view regionName;
    std::string_view bucket;
    std::string_view objectPath;
};

// OXS3_PATH_AUTHORITY_ENDS_IN_AT when "@" ends the authority. Logs nothing: paths can carry
// secrets.
OXStatus parseS3Path(std::string_view path, S3PathParts* parts);

// The text after an "s3:/" (or "S3:/") scheme, or the whole text when it holds none.
OXStatus stripBucketPrefix(OXS3Extension* ext, UTF8CStr text, UTF8CStr* rest);
// The same for "s3://" and "S3://": the normalisation a bucket name gets before it is checked
// or used.
OXStatus getBucketName(OXS3Extension* ext, UTF8CStr text, UTF8CStr* rest);

OXStatus oxs3ParseS3PathU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr path, OXS3Location* location);
// Parses the path, then adds the values given as arguments (a region of No_Region is none);
// a value given both ways fails.
OXStatus oxs3LocationCreateU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr keyId, UTF8CStr secretKey,
                              UTF8CStr sessionToken, AWSRegion region, UTF8CStr path, OXS3Location* location);
OXStatus oxs3LocationApplyDefaultsU8(OXS3Location location, UTF8CStr keyId, UTF8CStr secretKey, UTF8CStr sessionToken,
                                     UTF8CStr regionName);
// [keyId[:secret]@]regionName:/bucket followed by the object path as stored.
OXStatus locationGetPath(OXS3Location location, OX_POOL_S* pool, OXBoolean includeCredentials, OXU8String** path);
OXStatus oxs3ConnectionForLocation(OXS3Location location, OXBoolean useSSL, struct SSLOptions_S* sslOptions,
                                   OXS3Connection* connection);
// Releases the location's strings; the record itself goes with its last reference.
OXStatus oxs3ReleaseS3Location(OXS3Location location);

}  // namespace s3
