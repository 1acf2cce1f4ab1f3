/* Host statuses. Every value here has a text in the host's message catalogue (msg.h).
 * 0x803fcXXX: general host statuses; 0x803fdXXX: sockets; 0x8bbffXXX: the web client
 * and the readers it shares with the instance service. */
#ifndef OX_STATUS_H
#define OX_STATUS_H

#include "ox/types.h"

#define OX_S(v) ((OXStatus)(v))

enum {
    OX_OK = 0,
    OX_NO_MEMORY = OX_S(0x803fc002),            /* out of memory or host resources */
    OX_INVALID_ARGUMENT = OX_S(0x803fc003),     /* invalid argument or state */
    OX_CANNOT_POSITION = OX_S(0x803fc004),      /* a stream cannot be positioned */
    OX_FAILED = OX_S(0x803fc009),               /* general failure of a host call or lookup */
    OX_NOT_FOUND = OX_S(0x803fc00a),            /* no such name, key or item */
    OX_NOT_SUPPORTED = OX_S(0x803fc00b),        /* operation not supported by this object */
    OX_TIMED_OUT = OX_S(0x803fc00c),            /* a wait ended before its event was posted */
    OX_END_OF_DATA = OX_S(0x803fc064),          /* end of data: a read or parse finished cleanly */
    OX_SERVICE_MISSING = OX_S(0x803fc065),      /* a host service is not available */
    OX_WRONG_TYPE = OX_S(0x803fc066),           /* an instance is not of the type asked for */
    OX_FILE_NOT_FOUND = OX_S(0x803fc0a1),
    OX_FILE_ACCESS_DENIED = OX_S(0x803fc0a2),
    OX_FILE_IO_ERROR = OX_S(0x803fc0a3),
    OX_FILE_IS_DIRECTORY = OX_S(0x803fc0a4),
    OX_FILE_NOT_OPEN = OX_S(0x803fc0a5),
    OX_BAD_UTF8 = OX_S(0x803fc0b0),             /* bytes that are not valid UTF-8 */
    OX_BAD_CODE_POINT = OX_S(0x803fc0b1),       /* a wide character that is not a Unicode scalar */
    OX_XML_MALFORMED = OX_S(0x803fc0c0),        /* XML document not well formed */
    OX_XML_STOPPED = OX_S(0x803fc0c1),          /* a callback stopped the XML parse */
    OX_JSON_MALFORMED = OX_S(0x803fc0c8),       /* JSON text not well formed */
    OX_JSON_TOO_DEEP = OX_S(0x803fc0c9),        /* JSON nesting deeper than the reader allows */
    OX_BASE64_MALFORMED = OX_S(0x803fc0d0),     /* text that is not padded standard Base64 */
    OX_BUFFER_TOO_SMALL = OX_S(0x803fc268),     /* the output buffer is too small; needed length written */

    /* Sockets. Which failures a retry can cure is decided in htconnection.h (oxHttpIsTransient). */
    OX_SOCKET_FAILED = OX_S(0x803fd001),        /* a socket call failed; the errno is in the connection's tcpError */
    OX_SOCKET_TIMED_OUT = OX_S(0x803fd003),     /* no progress reading or writing within the time-out (transient) */
    OX_TLS_RECORD_FAILED = OX_S(0x803fd067),    /* a TLS record could not be read or written (transient) */

    /* The web client: its own failures. */
    OX_HTTP_ALREADY_OPEN = OX_S(0x8bbff801),    /* open on a connection that is open: not a failure */
    OX_HTTP_WRONG_STATE = OX_S(0x8bbff802),     /* an operation out of turn, e.g. reading a response before a request */
    OX_HTTP_BAD_REQUEST_TEXT = OX_S(0x8bbff803), /* method, target or a header holds what HTTP does not allow */
    OX_HTTP_BODY_OVERRUN = OX_S(0x8bbff804),    /* more body bytes sent than the request announced */
    OX_HTTP_CONNECTION_RESET = OX_S(0x8bbff805), /* the peer reset the connection (transient) */
    OX_HTTP_RESPONSE_TRUNCATED = OX_S(0x8bbff806), /* the peer closed in the middle of a response */
    OX_HTTP_PEER_CLOSED = OX_S(0x8bbff807),     /* the peer closed before any byte of a response (transient) */
    OX_HTTP_MALFORMED_RESPONSE = OX_S(0x8bbff808), /* status line or header line is not HTTP/1.x */
    OX_HTTP_HEAD_TOO_LARGE = OX_S(0x8bbff809),  /* response head or trailer section beyond the client's bounds */
    OX_HTTP_BAD_CHUNK = OX_S(0x8bbff80a),       /* chunked framing that does not parse */
    OX_HTTP_BAD_CONTENT_LENGTH = OX_S(0x8bbff80b), /* Content-Length not a number, or two that differ */

    /* The web client: HTTP answers (the table in htconnection.h). */
    OX_HTTP_CONTINUE = OX_S(0x8bbff810),        /* 100 Continue */
    OX_HTTP_OK = OX_S(0x8bbff811),              /* 200 OK and 204 No Content */
    OX_HTTP_CREATED = OX_S(0x8bbff812),         /* 201 */
    OX_HTTP_ACCEPTED = OX_S(0x8bbff813),        /* 202 */
    OX_HTTP_NON_AUTHORITATIVE = OX_S(0x8bbff814), /* 203 */
    OX_HTTP_OTHER_SUCCESS = OX_S(0x8bbff815),   /* any 2xx without a status of its own */
    OX_HTTP_RESET_CONTENT = OX_S(0x8bbff816),   /* 205 */
    OX_HTTP_PARTIAL_CONTENT = OX_S(0x8bbff817), /* 206 */
    OX_HTTP_REDIRECT = OX_S(0x8bbff818),        /* 300, and any 3xx without a status of its own */
    OX_HTTP_MOVED_PERMANENTLY = OX_S(0x8bbff819), /* 301 */
    OX_HTTP_FOUND = OX_S(0x8bbff81a),           /* 302 */
    OX_HTTP_SEE_OTHER = OX_S(0x8bbff81b),       /* 303 */
    OX_HTTP_NOT_MODIFIED = OX_S(0x8bbff81c),    /* 304 */
    OX_HTTP_TEMPORARY_REDIRECT = OX_S(0x8bbff81d), /* 307 */
    OX_HTTP_PERMANENT_REDIRECT = OX_S(0x8bbff81e), /* 308 */
    OX_HTTP_BAD_REQUEST = OX_S(0x8bbff81f),     /* 400 */
    OX_HTTP_UNAUTHORIZED = OX_S(0x8bbff820),    /* 401 */
    OX_HTTP_FORBIDDEN = OX_S(0x8bbff821),       /* 403 */
    OX_HTTP_NOT_FOUND = OX_S(0x8bbff822),       /* 404 */
    OX_HTTP_METHOD_NOT_ALLOWED = OX_S(0x8bbff823), /* 405 */
    OX_HTTP_NOT_ACCEPTABLE = OX_S(0x8bbff824),  /* 406 */
    OX_HTTP_PROXY_AUTH_REQUIRED = OX_S(0x8bbff825), /* 407 */
    OX_HTTP_REQUEST_TIMEOUT = OX_S(0x8bbff826), /* 408 */
    OX_HTTP_CONFLICT = OX_S(0x8bbff827),        /* 409 */
    OX_HTTP_GONE = OX_S(0x8bbff828),            /* 410 */
    OX_HTTP_LENGTH_REQUIRED = OX_S(0x8bbff829), /* 411 */
    OX_HTTP_PRECONDITION_FAILED = OX_S(0x8bbff82a), /* 412 */
    OX_HTTP_PAYLOAD_TOO_LARGE = OX_S(0x8bbff82b), /* 413 */
    OX_HTTP_URI_TOO_LONG = OX_S(0x8bbff82c),    /* 414 */
    OX_HTTP_UNSUPPORTED_MEDIA = OX_S(0x8bbff82d), /* 415 */
    OX_HTTP_RANGE_NOT_SATISFIABLE = OX_S(0x8bbff82e), /* 416 */
    OX_HTTP_EXPECTATION_FAILED = OX_S(0x8bbff82f), /* 417 */
    OX_HTTP_TOO_MANY_REQUESTS = OX_S(0x8bbff830), /* 429 */
    OX_HTTP_CLIENT_ERROR = OX_S(0x8bbff831),    /* any 4xx without a status of its own */
    OX_HTTP_SERVER_ERROR = OX_S(0x8bbff840),    /* 500 with a body, and any 5xx without a status of its own */
    OX_HTTP_NOT_IMPLEMENTED = OX_S(0x8bbff841), /* 501 */
    OX_HTTP_BAD_GATEWAY = OX_S(0x8bbff842),     /* 502 */
    OX_HTTP_UNAVAILABLE = OX_S(0x8bbff843),     /* 503 with a body */
    OX_HTTP_SERVER_ERROR_NO_BODY = OX_S(0x8bbff844), /* 500 with no body to explain it (transient) */
    OX_HTTP_UNAVAILABLE_NO_BODY = OX_S(0x8bbff845), /* 503 with no body to explain it (transient) */
    OX_HTTP_GATEWAY_TIMEOUT = OX_S(0x8bbff846), /* 504 */
    OX_HTTP_VERSION_NOT_SUPPORTED = OX_S(0x8bbff847), /* 505 */

    /* The web client: reaching the server. */
    OX_HTTP_HOST_NOT_FOUND = OX_S(0x8bbff849),  /* the host name did not resolve */
    OX_HTTP_TUNNEL_REFUSED = OX_S(0x8bbff84a),  /* the proxy answered CONNECT with other than 2xx */
    OX_HTTP_CONNECT_FAILED = OX_S(0x8bbff84b),  /* no address of the host accepted a connection in time */
    OX_HTTP_ABORTED = OX_S(0x8bbff851),         /* the connection's abort event was posted */
    OX_TLS_HANDSHAKE_FAILED = OX_S(0x8bbff860), /* the TLS handshake failed for a reason other than the certificate */
    OX_TLS_CERT_UNTRUSTED = OX_S(0x8bbff861),   /* the server certificate did not verify against the trusted CAs */
    OX_TLS_HOST_MISMATCH = OX_S(0x8bbff862),    /* the server certificate is not for the host name asked for */
    OX_TLS_BAD_OPTIONS = OX_S(0x8bbff863),      /* the TLS options cannot be used: unreadable CA file, bad cipher list */

    OX_DATE_NOT_IN_FORM = OX_S(0x8bbff850),     /* date text not in the parser's form */
    OX_CONFIG_BAD_LINE = OX_S(0x8bbff853),      /* configuration file: a line that is no section, comment or key = value */
    OX_CONFIG_BAD_SECTION = OX_S(0x8bbff854),   /* configuration file: a malformed section header */
};

#endif
