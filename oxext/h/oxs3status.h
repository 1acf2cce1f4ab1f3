/* Statuses the S3 extension returns besides the host's (ox/status.h). Each has a sentence in
 * the extension's message table, registered with the host catalogue while it is loaded. */
#ifndef OXS3_STATUS_H
#define OXS3_STATUS_H

#include "ox/types.h"

#define OXS3_S(v) ((OXStatus)(v))

enum {
    OXS3_UNKNOWN_REGION = OXS3_S(0x8abfc801),
    OXS3_PATH_NOT_ABSOLUTE = OXS3_S(0x8abfc805),
    OXS3_REQUEST_FORBIDDEN = OXS3_S(0x8abfc895),  /* HTTP 403 without a body */
    OXS3_BAD_REQUEST = OXS3_S(0x8abfc896),        /* HTTP 400 without a body */
};

#endif
