// Bucket operations: the caller's bucket list, a bucket's keys under a path (joined over every
// page), creating and deleting buckets, transfer acceleration, bucket-name rules and the
// signing check.
#pragma once

#include <string_view>

#include "oxs3.h"

namespace s3 {

// ---- the connection slots

OXStatus oxs3TestAuthorization(OXS3Connection connection, UTF8CStr method, UTF8CStr bucket, UTF8CStr path,
                               OXDictionary query, UTF8CStr dateText, UTF8CStr dateTimeText);
// http null: the connection's own. A 307 answer is followed to its Location.
OXStatus oxs3GetUserBuckets(OXS3Connection connection, HTConnection http, OXS3BucketList** result);
// The objects and common prefixes directly under path, names relative to it, in key order.
OXStatus oxs3GetBucketContents(OXS3Connection connection, UTF8CStr bucket, UTF8CStr path, OXArray* result);
OXStatus oxs3CreateBucket(OXS3Connection connection, UTF8CStr bucket, OXS3AccessType accessType,
                          OXS3ACL_S* accessControl);
OXStatus oxs3DeleteBucket(OXS3Connection connection, UTF8CStr bucket);
// *state is s3AccelerateUnknown unless the server said otherwise, also on failure: callers
// then simply do not use the accelerated endpoint.
OXStatus oxs3GetBucketAccelerate(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState* state);
OXStatus oxs3SetBucketAccelerate(OXS3Connection connection, UTF8CStr bucket, S3AccelerateState state);

// Fills the bucket slots of a new or cloned connection.
void setBucketOps(OXS3Connection connection);

// ---- bucket names

// 3 to 63 lower-case letters, digits, "-" and "." (after the "s3://" prefix is taken off),
// beginning and ending with a letter or digit, no "..", not all numbers between dots.
OXStatus oxs3IsValidBucketName(OXS3Extension* ext, UTF8CStr name, OXBoolean* valid);
// The extension record's validBucketName slot: the same rules on a counted text.
OXBoolean validBucketName(OXS3Extension* ext, UTF8CStr name, UTF8ByteLength length);

// ---- one listing page

// One page of a bucket listing under path ("/" or absent: the whole bucket), after the
// continuation token when one is given. With the delimiter, dropSelf removes the entry named
// like the prefix (a directory's own marker). Names longer than the prefix lose it. *page is
// absent for an empty page.
OXStatus getBucketContents(OXS3Connection connection, std::string_view bucket, UTF8CStr path,
                           const OXU8String* token, bool useDelimiter, OXArray* page, OXU8String** nextToken,
                           OXBoolean* truncated, bool dropSelf);

// Keys a listing page may hold ("max-keys"); 0, the default, sends none so the server's own
// maximum applies. Tests set a small one to see many pages.
void setListingPageLimit(int64_t keys);

}  // namespace s3
