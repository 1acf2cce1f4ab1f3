// The connection area inside the extension: making, cloning, closing and destroying
// connections, their proxies from the environment, the keep-alive rule and the error text.
#pragma once

#include <string_view>

#include "ox/htconnection.h"
#include "oxs3.h"
#include "oxs3sign.h"

namespace s3 {

// Milliseconds without progress before an HTTP exchange of a new connection gives up.
inline constexpr int32_t kConnectionTimeoutMillis = 300000;
// A kept-alive HTTP connection is reopened once it has served this many requests, or has been
// idle this long.
inline constexpr int64_t kMaxRequestsPerSocket = 90;
inline constexpr OXDateTime kMaxIdleSeconds = 18.0;
// Wide characters read from a proxy environment variable.
inline constexpr size_t kProxyValueChars = 1024;

OXS3Connection oxs3ConnectionCreate(OXS3Extension* ext, OX_POOL_S* pool, OXBoolean useSSL,
                                    struct SSLOptions_S* sslOptions, AWSRegion region, UTF8CStr accessKeyId,
                                    UTF8CStr secretAccessKey, UTF8CStr sessionToken, OXStatus* status);
// A sibling for a worker thread: its own HTTP connection, the same endpoint and credentials.
// It never starts threads of its own (thread counts and flags stay zero).
OXStatus oxs3ConnectionClone(OX_POOL_S* pool, OXS3Connection source, OXS3Connection* result);
OXStatus oxs3ConnectionClose(OXS3Connection connection);
OXStatus oxs3ConnectionDestroy(void* self);

// The signing keys the connection derived last (kept beside its record).
SigningKeyCache& signingKeyCache(OXS3Connection connection);

// Fills the extension record's createConnection slot.
void setConnectionOps(OXS3Extension* ext);

// Opens the HTTP connection, or keeps it while it is open, has served fewer than
// kMaxRequestsPerSocket requests and has been idle less than kMaxIdleSeconds.
OXStatus openS3Connection(HTConnection http);
// The clock the idle time is measured with; tests set their own (null restores the host's).
using KeepAliveClock = OXDateTime (*)();
void setKeepAliveClock(KeepAliveClock clock);

// Applies "OSENV.HTTP_PROXY" and "OSENV.HTTPS_PROXY" to an HTTP connection.
OXStatus setProxy(OXS3Extension* ext, OX_POOL_S* pool, HTConnection http);
// scheme "://" [user [":" password] "@"] host [":" port]; the port is 0 when absent. On failure
// every output is cleared.
OXStatus parseURL(OXStringExt_S* strings, OX_POOL_S* pool, const OXString* url, OXU8String** user,
                  OXU8String** password, OXU8String** host, int32_t* port);
// A host process-wide name as a new wide string of at most capacity characters; success with
// no string when the name does not exist.
OXStatus oxStringGetNameValue(OXS3Extension* ext, OX_POOL_S* pool, size_t capacity, std::u32string_view name,
                              OXString** value);

// The text of the connection's last S3 error: replaced, or dropped (null text).
OXStatus setErrorMessage(OXS3Connection connection, UTF8CStr text, UTF8ByteLength length);
void resetErrorMessage(OXS3Connection connection);

// What every public operation does first: forget the previous error and log its own name.
void beginOperation(OXS3Connection connection, const char32_t* name);

}  // namespace s3
