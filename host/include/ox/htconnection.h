/* HTTP/1.1 connections of the web client ("webclient" service, createConnection).
 *
 * One connection talks to one origin (host, port, TLS or not), directly or through a proxy,
 * over one socket that is kept alive between exchanges while the server allows it. An
 * exchange is driven step by step, which is what lets a caller wait for 100 Continue before
 * it sends a body, and read a body straight into its own memory:
 *
 *     sendRequest            head (and a small body) in one send
 *     [readResponse]         only with expectContinue: 100, or the final answer when refused
 *     [sendData ...]         the body in pieces, written from the caller's memory
 *     readResponse           status line and headers; HTTPStatus filled
 *     readInto / readData    the body; OX_END_OF_DATA marks its end
 *
 * sendRequest opens the socket when there is none, and before it reuses a kept-alive socket it
 * checks that the server has not closed it while idle (then it reconnects: nothing was lost).
 * Should the server close it just as it is reused, before any answer, a request that went out
 * whole (head and a small body) is sent once more on a new socket; one whose body came through
 * sendData is not, and fails with a transient status. A body the caller left unread is drained
 * first when short, else the socket is replaced.
 *
 * Statuses. readResponse returns 0 whenever it read a well-formed response head, whatever the
 * HTTP status; HTTPStatus.message then names the answer:
 *
 *     HTTP status            message                              HTTP status   message
 *     100                    OX_HTTP_CONTINUE          0x8bbff810   400           OX_HTTP_BAD_REQUEST       0x8bbff81f
 *     200, 204               OX_HTTP_OK                0x8bbff811   401           OX_HTTP_UNAUTHORIZED      0x8bbff820
 *     201                    OX_HTTP_CREATED           0x8bbff812   403           OX_HTTP_FORBIDDEN         0x8bbff821
 *     202                    OX_HTTP_ACCEPTED          0x8bbff813   404           OX_HTTP_NOT_FOUND         0x8bbff822
 *     203                    OX_HTTP_NON_AUTHORITATIVE 0x8bbff814   405 ... 417   0x8bbff823 ... 0x8bbff82f in order
 *     other 2xx              OX_HTTP_OTHER_SUCCESS     0x8bbff815   429           OX_HTTP_TOO_MANY_REQUESTS 0x8bbff830
 *     205                    OX_HTTP_RESET_CONTENT     0x8bbff816   other 4xx     OX_HTTP_CLIENT_ERROR      0x8bbff831
 *     206                    OX_HTTP_PARTIAL_CONTENT   0x8bbff817   500 + body    OX_HTTP_SERVER_ERROR      0x8bbff840
 *     300, other 3xx         OX_HTTP_REDIRECT          0x8bbff818   501           OX_HTTP_NOT_IMPLEMENTED   0x8bbff841
 *     301, 302, 303, 304     0x8bbff819 ... 0x8bbff81c              502           OX_HTTP_BAD_GATEWAY       0x8bbff842
 *     307                    OX_HTTP_TEMPORARY_REDIRECT 0x8bbff81d  503 + body    OX_HTTP_UNAVAILABLE       0x8bbff843
 *     308                    OX_HTTP_PERMANENT_REDIRECT 0x8bbff81e  500, no body  OX_HTTP_SERVER_ERROR_NO_BODY 0x8bbff844
 *     other 1xx              skipped, never reported                503, no body  OX_HTTP_UNAVAILABLE_NO_BODY  0x8bbff845
 *                                                                   504, 505      0x8bbff846, 0x8bbff847
 *                                                                   other 5xx     OX_HTTP_SERVER_ERROR      0x8bbff840
 *
 * ("no body": the answer announces no body bytes, so there is no error document to act on.)
 * Failures to reach or talk to the server are returned by the operations themselves:
 *
 *     host name unknown               OX_HTTP_HOST_NOT_FOUND      0x8bbff849
 *     no address accepts in time      OX_HTTP_CONNECT_FAILED      0x8bbff84b   (tcpError has the errno)
 *     proxy refuses CONNECT           OX_HTTP_TUNNEL_REFUSED      0x8bbff84a   (407: OX_HTTP_PROXY_AUTH_REQUIRED)
 *     TLS handshake                   OX_TLS_HANDSHAKE_FAILED     0x8bbff860
 *     certificate not trusted         OX_TLS_CERT_UNTRUSTED       0x8bbff861
 *     certificate for another host    OX_TLS_HOST_MISMATCH        0x8bbff862
 *     TLS options unusable            OX_TLS_BAD_OPTIONS          0x8bbff863
 *     reset by the peer (or EPIPE)    OX_HTTP_CONNECTION_RESET    0x8bbff805   transient
 *     closed before a response        OX_HTTP_PEER_CLOSED         0x8bbff807   transient
 *     closed inside a response        OX_HTTP_RESPONSE_TRUNCATED  0x8bbff806
 *     no progress within timeout      OX_SOCKET_TIMED_OUT         0x803fd003   transient
 *     TLS record failure              OX_TLS_RECORD_FAILED        0x803fd067   transient
 *     abort event posted              OX_HTTP_ABORTED             0x8bbff851
 *     malformed answer                OX_HTTP_MALFORMED_RESPONSE, OX_HTTP_BAD_CHUNK, OX_HTTP_BAD_CONTENT_LENGTH
 *     head over 64 KiB or 256 lines   OX_HTTP_HEAD_TOO_LARGE      0x8bbff809
 *     any other socket call failing   OX_SOCKET_FAILED            0x803fd001
 *
 * The transient statuses (oxHttpIsTransient) are exactly those a new attempt on a new socket
 * can cure. Every failure of an exchange leaves the socket closed (state htStateClosed), so the
 * next request starts on a fresh one. */
#ifndef OX_HTCONNECTION_H
#define OX_HTCONNECTION_H

#include "ox/dictionary.h"
#include "ox/handle.h"
#include "ox/pool.h"
#include "ox/secsocket.h"
#include "ox/status.h"
#include "ox/string.h"
#include "ox/types.h"

OX_BEGIN_DECLS

#define OX_TYPE_HTCONNECTION "HTConnection"

typedef enum HTState {
    htStateCreated = 0,        /* never opened */
    htStateOpen = 1,           /* socket up, no exchange yet */
    htStateRequestSent = 2,    /* head sent; body (if any) being sent */
    htStateContReqSent = 3,    /* head sent with Expect: 100-continue, interim answer not read */
    htStateContinueRead = 4,   /* 100 Continue read: send the body */
    htStateResponseRead = 5,   /* final head read; the body may still be unread */
    htStateClosedByServer = 6, /* the server closed (or asked to close) after the last exchange */
    htStateClosed = 7          /* closed by the client, or after a failure */
} HTState;

typedef enum HTTPMethod {
    httpGet = 0,
    httpHead = 1,
    httpPost = 2,
    httpPut = 3,
    httpDelete = 4,
    httpOptions = 5,
    httpTrace = 6,
    httpPatch = 7,
    httpUnknown = 8,
    httpNotSupported = 9
} HTTPMethod;

/* A forward proxy. Texts are string instances the connection holds a reference on; host null
 * means none. A port of 0 means 1080. */
typedef struct HTProxy {
    OXU8String* host;
    int32_t port;
    OXU8String* user;
    OXU8String* pass;
} HTProxy;

/* setProxy* and clearProxy: which proxy. The HTTP proxy carries plain requests (absolute-form
 * target); the HTTPS proxy carries TLS connections through a CONNECT tunnel. */
#define OX_PROXY_HTTP 0
#define OX_PROXY_HTTPS 1
#define OX_PROXY_BOTH 2 /* clearProxy only */

/* What readResponse read. statusText is the server's reason phrase, terminated, borrowed from
 * the connection until its next request or close. */
typedef struct HTTPStatus {
    OXStatus message; /* the table above */
    int32_t status;   /* the HTTP status code */
    UTF8CStr statusText;
} HTTPStatus;

typedef struct HTConnection_S HTConnection_S, *HTConnection;
struct HTConnection_S {
    OXInstance instance; /* destroy drops a reference; the last one closes and frees */
    OX_POOL_S* pool;
    OXBoolean useSSL;
    SSLOptions_S* sslOptions; /* the connection's own copy, or null for the defaults */
    int32_t tcpError;          /* errno of the last failed socket call, 0 when none */
    OXDateTime lastActivityTime; /* end of the last exchange, -1.0 when none since open */
    int64_t requestCount;      /* requests sent on the current socket */
    UTF8Str host;              /* terminated */
    uint16_t port;             /* the actual port: OX_DEFAULT_PORT is replaced at creation */
    HTState state;
    HTTPMethod method;         /* of the current exchange */
    OXBoolean responseIsChunked;
    int64_t responseContentLength; /* the response's Content-Length (a HEAD's too), -1 when none */
    OXBoolean closeRequired;   /* the socket is closed once this response has been read */
    HTProxy httpProxy;
    HTProxy httpsProxy;

    /* Drops the socket; the connection stays usable and the next open or request reconnects. */
    OXStatus (*close)(HTConnection c);
    /* The whole (rest of the) body into memory from pool, with a 0 byte after it (not counted).
     * OX_END_OF_DATA with *data null and *length 0 when there was no body to read. */
    OXStatus (*readData)(HTConnection c, OX_POOL_S* pool, void** data, OXMemSize* length);
    /* Body bytes straight into buffer until it is full (0) or the body ends first
     * (OX_END_OF_DATA; *bytesRead may be 0). */
    OXStatus (*readInto)(HTConnection c, void* buffer, OXMemSize length, OXMemSize* bytesRead);
    /* Request body bytes, written from the caller's memory. */
    OXStatus (*sendData)(HTConnection c, const void* data, OXMemSize length);
    /* Starts an exchange. path begins with "/" (percent-encoded by the caller); query is the
     * text after "?" (may be empty); headers (may be null) is a dictionary of string (or OXData)
     * values. A "Host" header is added unless given, "Content-Length" is added from
     * contentLength (>= 0) or else from body unless headers carry one. body (at most a few KiB
     * is best) goes out with the head in one send; with expectContinue the body must be null and
     * sent with sendData after readResponse reported 100. */
    OXStatus (*sendRequest)(HTConnection c, HTTPMethod method, UTF8CStr path, UTF8ByteLength pathL, UTF8CStr query,
                            UTF8ByteLength queryL, OXDictionary headers, int64_t contentLength,
                            const void* body, OXMemSize bodyL, OXBoolean expectContinue);
    /* Connects (through the proxy, with TLS when useSSL). OX_HTTP_ALREADY_OPEN when open. */
    OXStatus (*open)(HTConnection c);
    /* Reads the next answer's head: after expectContinue the interim answer (100, or the final
     * answer when the server refuses), else the final answer, skipping other 1xx. */
    OXStatus (*readResponse)(HTConnection c, HTTPStatus* status);
    /* A new, unopened connection in pool to the same origin with the same settings (TLS options,
     * proxies, timeout, buffer length); the abort event is not copied. */
    OXStatus (*clone)(HTConnection c, OX_POOL_S* pool, HTConnection* out);
    /* Size of the connection's receive buffer (4 KiB to 16 MiB; default 64 KiB). Response heads
     * may grow it up to 64 KiB. */
    OXStatus (*setBufferLength)(HTConnection c, OXMemSize length);

    int32_t timeout;         /* milliseconds without progress before connect, read or write fail; <= 0: none */
    OX_EVENT_S* abortEvent;  /* tested while connecting, sending and reading; not owned */

    OXStatus (*setEvent)(HTConnection c, OX_EVENT_S* abortEvent);
    OXStatus (*setProxy)(HTConnection c, const OXChar* host, OXStrSize hostL, int32_t port, const OXChar* user,
                         OXStrSize userL, const OXChar* pass, OXStrSize passL, int32_t which);
    OXStatus (*setProxyU8)(HTConnection c, UTF8CStr host, UTF8ByteLength hostL, int32_t port, UTF8CStr user,
                           UTF8ByteLength userL, UTF8CStr pass, UTF8ByteLength passL, int32_t which);
    /* Takes references on the strings (copies of static ones); user and pass may be null. */
    OXStatus (*setProxyU8Stg)(HTConnection c, OXU8String* host, int32_t port, OXU8String* user, OXU8String* pass,
                              int32_t which);
    OXStatus (*clearProxy)(HTConnection c, int32_t which);
    /* Keeps its own copy of opts (null: the defaults); used from the next open. */
    OXStatus (*setSSLOptions)(HTConnection c, SSLOptions_S* opts);

    /* Response headers of the last answer, borrowed and terminated until the next request or
     * close. Names compare ignoring ASCII case; the first of repeated headers is found. */
    OXStatus (*getResponseHeader)(HTConnection c, UTF8CStr name, UTF8ByteLength nameL, UTF8CStr* value,
                                  UTF8ByteLength* valueL);
    /* The index-th header in the order received; OX_END_OF_DATA past the last. */
    OXStatus (*getResponseHeaderAt)(HTConnection c, int64_t index, UTF8CStr* name, UTF8ByteLength* nameL,
                                    UTF8CStr* value, UTF8ByteLength* valueL);
};

/* The failures a new attempt on a new socket can cure. */
static inline OXBoolean oxHttpIsTransient(OXStatus s) {
    return s == OX_HTTP_CONNECTION_RESET || s == OX_HTTP_PEER_CLOSED || s == OX_HTTP_SERVER_ERROR_NO_BODY ||
           s == OX_HTTP_UNAVAILABLE_NO_BODY || s == OX_SOCKET_TIMED_OUT || s == OX_TLS_RECORD_FAILED;
}

OX_END_DECLS

#endif
