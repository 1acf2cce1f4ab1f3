/* Statuses the S3 extension returns besides the host's (ox/status.h). Each has a sentence in
 * the extension's message table, registered with the host catalogue while it is loaded. */
#ifndef OXS3_STATUS_H
#define OXS3_STATUS_H

#include "ox/types.h"

#define OXS3_S(v) ((OXStatus)(v))

enum {
    OXS3_UNKNOWN_REGION = OXS3_S(0x8abfc801),
    OXS3_PATH_NOT_ABSOLUTE = OXS3_S(0x8abfc805),
    /* Regions, endpoints and locations */
    OXS3_LOCATION_NO_BUCKET = OXS3_S(0x8abfc857),          /* path text asked of a location without a bucket */
    OXS3_PATH_AUTHORITY_ENDS_IN_AT = OXS3_S(0x8abfc866),   /* credentials and "@" with no region name after them */
    OXS3_REGION_NOT_FOUND = OXS3_S(0x8abfc868),            /* location without region; custom region not defined */
    OXS3_LOCATION_NO_KEY_ID = OXS3_S(0x8abfc869),          /* location has no access key id */
    OXS3_LOCATION_NO_SECRET = OXS3_S(0x8abfc86a),          /* location has no secret access key */
    OXS3_KEY_ID_GIVEN_TWICE = OXS3_S(0x8abfc86b),          /* key id both in the path and as an argument */
    OXS3_SECRET_GIVEN_TWICE = OXS3_S(0x8abfc86c),          /* secret both in the path and as an argument */
    OXS3_REGION_GIVEN_TWICE = OXS3_S(0x8abfc86d),          /* region both in the path and as an argument */
    /* Settings and configuration sources */
    OXS3_PROFILE_NOT_FOUND = OXS3_S(0x8abfc87b),           /* the selected AWS profile section does not exist */
    OXS3_ENV_VALUE_TOO_LONG = OXS3_S(0x8abfc87c),          /* an environment value beyond what the extension takes */
    OXS3_AWS_CONFIG_MALFORMED = OXS3_S(0x8abfc87d),        /* AWS config file does not parse */
    OXS3_AWS_CONFIG_BAD_SECTION = OXS3_S(0x8abfc87e),      /* named AWS config file: malformed section header */
    OXS3_AWS_CREDENTIALS_MALFORMED = OXS3_S(0x8abfc87f),   /* AWS credentials file does not parse */
    OXS3_AWS_CREDENTIALS_BAD_SECTION = OXS3_S(0x8abfc880), /* named AWS credentials file: malformed section header */
    OXS3_AWS_SETTINGS_FAILED = OXS3_S(0x8abfc881),         /* gathering the AWS values failed; the detail says why */
    OXS3_CONFIG_FILE_UNREADABLE = OXS3_S(0x8abfc882),      /* the default extension file exists but cannot be read */
    OXS3_NO_HOME_DIRECTORY = OXS3_S(0x8abfc883),           /* the effective user has no password entry */
    OXS3_AWS_CONFIG_UNREADABLE = OXS3_S(0x8abfc884),       /* named AWS config file cannot be read */
    OXS3_AWS_CREDENTIALS_UNREADABLE = OXS3_S(0x8abfc88e),  /* named AWS credentials file or service-account exchange */
    OXS3_REQUEST_FORBIDDEN = OXS3_S(0x8abfc895),  /* HTTP 403 without a body */
    OXS3_BAD_REQUEST = OXS3_S(0x8abfc896),        /* HTTP 400 without a body */
    OXS3_REGION_NAME_IN_USE = OXS3_S(0x8abfc898),  /* custom region name taken, or an AWS region name */
};

#endif
