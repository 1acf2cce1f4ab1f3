/* The secure-socket service "secsocket": sets of TLS options that an HTTP connection reads
 * when it makes its TLS context.
 *
 * An option set maps names to UTF-8 values. Names compare ignoring ASCII case; only the
 * names below are accepted (anything else is OX_NOT_SUPPORTED), and boolean and version
 * values are checked when set and kept in the canonical spelling shown, so a reader can
 * compare them byte for byte. A value that does not fit its option is OX_INVALID_ARGUMENT.
 *
 *   CAFILE      path of a PEM file of trusted CA certificates (replaces the system store)
 *   CAPATH      directory of hashed CA certificates, as made by "openssl rehash"
 *   VERIFYPEER  "true" (the default when absent) or "false": "false" is the one explicit
 *               way to accept a server whose certificate does not verify
 *   VERIFYHOST  "true" (the default when absent) or "false": match the certificate to the host name
 *   SNI         the server name to send and to verify instead of the connection's host
 *   CIPHERS     an OpenSSL cipher list for TLS 1.2 and below
 *   MINVERSION  "TLSv1.2" or "TLSv1.3": the oldest protocol version to accept */
#ifndef OX_SECSOCKET_H
#define OX_SECSOCKET_H

#include "ox/pool.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_SSL_CAFILE "CAFILE"
#define OX_SSL_CAPATH "CAPATH"
#define OX_SSL_VERIFYPEER "VERIFYPEER"
#define OX_SSL_VERIFYHOST "VERIFYHOST"
#define OX_SSL_SNI "SNI"
#define OX_SSL_CIPHERS "CIPHERS"
#define OX_SSL_MINVERSION "MINVERSION"

#define OX_SSL_TRUE "true"
#define OX_SSL_FALSE "false"
#define OX_SSL_TLS12 "TLSv1.2"
#define OX_SSL_TLS13 "TLSv1.3"

typedef struct SSLOptions_S SSLOptions_S, *SSLOptions;
struct SSLOptions_S {
    OX_POOL_S* pool;                 /* where the set and its texts live */
    OXStringExt_S* oxstring;         /* converts wide names and values; null leaves only the UTF-8 forms */
    UTF8Str* sslOptionNames;         /* terminated UTF-8 names, in the order first set */
    UTF8Str* sslOptionValues;        /* terminated UTF-8 values, parallel to the names */
    int64_t sslOptionCount;
    int64_t sslOptionSize;           /* capacity of both arrays */

    /* Sets a name to a value, replacing the value it had. */
    OXStatus (*setOption)(SSLOptions opts, const OXChar* name, OXStrSize nameL, const OXChar* value,
                          OXStrSize valueL);
    OXStatus (*setOptionU8)(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr value,
                            UTF8ByteLength valueL);
    /* An independent copy in pool (for cloned connections): later changes to either set leave
     * the other as it was. */
    OXStatus (*duplicate)(SSLOptions opts, OX_POOL_S* pool, SSLOptions* out);
    /* Releases the set and every text in it. */
    OXStatus (*destroy)(SSLOptions opts);
    /* Whether the name has a value. */
    OXBoolean (*hasValue)(SSLOptions opts, const OXChar* name, OXStrSize nameL);
    OXBoolean (*hasValueU8)(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL);
    /* The value of a name, borrowed and terminated: valid until the name is set again or the
     * set is destroyed. OX_NOT_FOUND when the name has none. */
    OXStatus (*getValueU8)(SSLOptions opts, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr* value,
                           UTF8ByteLength* valueL);
};

typedef struct OXSecSocket_S {
    OXExtension exth;
    OXStringExt_S* oxstring; /* loaded with this service and handed to every set it makes; may be null */
    /* An empty option set in pool. Sets must not outlive this service. */
    OXStatus (*createOptions)(struct OXSecSocket_S* ss, OX_POOL_S* pool, SSLOptions* out);
} OXSecSocket_S;

OX_END_DECLS

#endif
