/* The web client service "webclient": HTTP connections, and the digests, encodings and date
 * texts that requests to a web service are built from.
 *
 * Pure operations (digests, encodings, dates) need no service state and are safe from any
 * thread. Their outputs are written only on success. Encoders into a caller buffer follow one
 * protocol: *outL receives the length of the result (no terminator is written); when outCap is
 * smaller, the result is OX_BUFFER_TOO_SMALL with that needed length in *outL and nothing in out.
 * Date-times are host date-times (seconds since 1970-01-01T00:00:00Z) and always UTC. */
#ifndef OX_WEBCLIENT_H
#define OX_WEBCLIENT_H

#include "ox/pool.h"
#include "ox/secsocket.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_SHA256_LEN 32
#define OX_MD5_LEN 16

/* Text lengths of the date forms, and the buffer sizes that hold them with a terminator. */
#define OX_HTTP_DATE_LEN 29     /* "Sun, 06 Nov 1994 08:49:37 GMT" */
#define OX_ISO_DATE_LEN 8       /* "19941106" */
#define OX_ISO_DATETIME_LEN 16  /* "19941106T084937Z" */
#define OX_HTTP_DATE_SIZE (OX_HTTP_DATE_LEN + 1)
#define OX_ISO_DATE_SIZE (OX_ISO_DATE_LEN + 1)
#define OX_ISO_DATETIME_SIZE (OX_ISO_DATETIME_LEN + 1)

/* A port that asks for the scheme's default: 80, or 443 with TLS. */
#define OX_DEFAULT_PORT ((uint16_t)65535)

struct HTConnection_S;

/* SHA-256 over data given piece by piece, for payloads too large to hold at once. */
typedef struct OXSha256_S OXSha256_S;
struct OXSha256_S {
    OXGeneric generic; /* destroy releases the context */
    OXStatus (*update)(OXSha256_S* ctx, const void* bytes, OXMemSize len);
    /* The digest of everything given since the context was made or last finished; the context
     * then starts afresh. */
    OXStatus (*final)(OXSha256_S* ctx, uint8_t digest[OX_SHA256_LEN]);
};

typedef struct OXWebClient_S {
    OXExtension exth;

    /* A connection to host:port (OX_DEFAULT_PORT for the scheme's own), not yet open.
     * sslOptions (may be null) gives the TLS settings when useSSL is set. */
    OXStatus (*createConnection)(struct OXWebClient_S* wc, OX_POOL_S* pool, const char* host, uint16_t port,
                                 OXBoolean useSSL, struct SSLOptions_S* sslOptions, struct HTConnection_S** out);

    /* ---- digests ---- */
    OXStatus (*sha256)(const void* bytes, OXMemSize len, uint8_t digest[OX_SHA256_LEN]);
    /* A streaming context in pool. */
    OXStatus (*sha256Init)(OX_POOL_S* pool, OXSha256_S** out);
    OXStatus (*hmacSha256)(const void* key, OXMemSize keyLen, const void* data, OXMemSize dataLen,
                           uint8_t mac[OX_SHA256_LEN]);
    OXStatus (*md5)(const void* bytes, OXMemSize len, uint8_t digest[OX_MD5_LEN]);

    /* ---- encodings ---- */
    /* Standard Base64 alphabet with "=" padding, no line breaks. */
    OXStatus (*base64Encode)(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL);
    /* The same text as a new string in pool, made with the string service oxstring. */
    OXStatus (*base64EncodeU8)(OXStringExt_S* oxstring, OX_POOL_S* pool, const void* bytes, OXMemSize len,
                               OXU8String** out);
    /* Accepts only what base64Encode writes: padded groups of four, no white space, zero
     * unused bits. Anything else is OX_BASE64_MALFORMED. */
    OXStatus (*base64Decode)(UTF8CStr text, UTF8ByteLength len, uint8_t* out, size_t outCap, size_t* outL);
    /* Two lower-case hexadecimal digits a byte. */
    OXStatus (*hexLower)(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL);

    /* ---- dates ----
     * Formatters write the text and a terminator into out (outCap at least the matching
     * OX_..._SIZE, else OX_BUFFER_TOO_SMALL); fractions of a second are dropped. A date-time
     * outside the years 0000-9999 is OX_INVALID_ARGUMENT. */
    OXStatus (*formatHttpDate)(OXDateTime when, char* out, size_t outCap);     /* IMF-fixdate */
    OXStatus (*formatIsoDate)(OXDateTime when, char* out, size_t outCap);      /* YYYYMMDD */
    OXStatus (*formatIsoDateTime)(OXDateTime when, char* out, size_t outCap);  /* YYYYMMDDTHHMMSSZ */
    /* UTC ISO 8601 date-times: "2009-10-12T17:50:30Z" or "20091012T175030Z", either with an
     * optional fraction of a second ("2009-10-12T17:50:30.000Z"), which is kept. A seconds
     * value of 60 counts as the next minute. Other text is OX_DATE_NOT_IN_FORM. */
    OXStatus (*parseIsoDateTime)(UTF8CStr text, UTF8ByteLength len, OXDateTime* out);
    /* HTTP dates: IMF-fixdate "Sun, 06 Nov 1994 08:49:37 GMT", the obsolete RFC 850
     * "Sunday, 06-Nov-94 08:49:37 GMT" (a two-digit year more than 50 years ahead of now
     * belongs to the century before) and asctime "Sun Nov  6 08:49:37 1994". Spaces and tabs
     * around the text are ignored; other text is OX_DATE_NOT_IN_FORM. */
    OXStatus (*parseHttpDate)(UTF8CStr text, UTF8ByteLength len, OXDateTime* out);
} OXWebClient_S;

OX_END_DECLS

#endif
