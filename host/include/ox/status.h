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
    OX_BUFFER_TOO_SMALL = OX_S(0x803fc268),     /* the output buffer is too small; needed length written */

    OX_DATE_NOT_IN_FORM = OX_S(0x8bbff850),     /* date text not in the parser's form */
    OX_CONFIG_BAD_LINE = OX_S(0x8bbff853),      /* configuration file: a line that is no section, comment or key = value */
    OX_CONFIG_BAD_SECTION = OX_S(0x8bbff854),   /* configuration file: a malformed section header or a key before any section */
};

#endif
