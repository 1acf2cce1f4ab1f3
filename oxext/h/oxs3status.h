/* Statuses the S3 extension returns besides the host's (ox/status.h). Each has a sentence in
 * the extension's message table, registered with the host catalogue while it is loaded. */
#ifndef OXS3_STATUS_H
#define OXS3_STATUS_H

#include "ox/types.h"

#define OXS3_S(v) ((OXStatus)(v))

enum {
    OXS3_UNKNOWN_REGION = OXS3_S(0x8abfc801),
    OXS3_PATH_NOT_ABSOLUTE = OXS3_S(0x8abfc805),
    OXS3_NOT_A_NUMBER = OXS3_S(0x8abfc802), /* text that is not wholly a decimal number (a proxy port, a size) */
    /* S3 error Codes (AccessDenied and AllAccessDisabled share one) */
    OXS3_ACCESS_DENIED = OXS3_S(0x8abfc808),
    OXS3_ACCOUNT_PROBLEM = OXS3_S(0x8abfc809),
    OXS3_AMBIGUOUS_GRANT_BY_EMAIL_ADDRESS = OXS3_S(0x8abfc80a),
    OXS3_BAD_DIGEST = OXS3_S(0x8abfc80b),
    OXS3_BUCKET_ALREADY_EXISTS = OXS3_S(0x8abfc80c),
    OXS3_BUCKET_ALREADY_OWNED_BY_YOU = OXS3_S(0x8abfc80d),
    OXS3_BUCKET_NOT_EMPTY = OXS3_S(0x8abfc80e),
    OXS3_CREDENTIALS_NOT_SUPPORTED = OXS3_S(0x8abfc80f),
    OXS3_CROSS_LOCATION_LOGGING_PROHIBITED = OXS3_S(0x8abfc810),
    OXS3_ENTITY_TOO_SMALL = OXS3_S(0x8abfc811),
    OXS3_ENTITY_TOO_LARGE = OXS3_S(0x8abfc812),
    OXS3_EXPIRED_TOKEN = OXS3_S(0x8abfc813),
    OXS3_ILLEGAL_VERSIONING_CONFIGURATION_EXCEPTION = OXS3_S(0x8abfc814),
    OXS3_INCOMPLETE_BODY = OXS3_S(0x8abfc815),
    OXS3_INCORRECT_NUMBER_OF_FILES_IN_POST_REQUEST = OXS3_S(0x8abfc816),
    OXS3_INLINE_DATA_TOO_LARGE = OXS3_S(0x8abfc817),
    OXS3_INTERNAL_ERROR = OXS3_S(0x8abfc818),
    OXS3_INVALID_ACCESS_KEY_ID = OXS3_S(0x8abfc819),
    OXS3_INVALID_ADDRESSING_HEADER = OXS3_S(0x8abfc81a),
    OXS3_INVALID_ARGUMENT = OXS3_S(0x8abfc81b),
    OXS3_INVALID_BUCKET_NAME = OXS3_S(0x8abfc81c),
    OXS3_INVALID_BUCKET_STATE = OXS3_S(0x8abfc81d),
    OXS3_INVALID_DIGEST = OXS3_S(0x8abfc81e),
    OXS3_INVALID_ENCRYPTION_ALGORITHM_ERROR = OXS3_S(0x8abfc81f),
    OXS3_INVALID_LOCATION_CONSTRAINT = OXS3_S(0x8abfc820),
    OXS3_INVALID_OBJECT_STATE = OXS3_S(0x8abfc821),
    OXS3_INVALID_PART = OXS3_S(0x8abfc822),
    OXS3_INVALID_PART_ORDER = OXS3_S(0x8abfc823),
    OXS3_INVALID_PAYER = OXS3_S(0x8abfc824),
    OXS3_INVALID_POLICY_DOCUMENT = OXS3_S(0x8abfc825),
    OXS3_INVALID_RANGE = OXS3_S(0x8abfc826),
    OXS3_INVALID_REQUEST = OXS3_S(0x8abfc827),
    OXS3_INVALID_SECURITY = OXS3_S(0x8abfc828),
    OXS3_INVALID_SOAP_REQUEST = OXS3_S(0x8abfc829),
    OXS3_INVALID_STORAGE_CLASS = OXS3_S(0x8abfc82a),
    OXS3_INVALID_TARGET_BUCKET_FOR_LOGGING = OXS3_S(0x8abfc82b),
    OXS3_INVALID_TOKEN = OXS3_S(0x8abfc82c),
    OXS3_INVALID_URI = OXS3_S(0x8abfc82d),
    OXS3_KEY_TOO_LONG = OXS3_S(0x8abfc82e),
    OXS3_MALFORMED_ACL_ERROR = OXS3_S(0x8abfc82f),
    OXS3_MALFORMED_POST_REQUEST = OXS3_S(0x8abfc830),
    OXS3_MALFORMED_XML = OXS3_S(0x8abfc831),
    OXS3_MAX_MESSAGE_LENGTH_EXCEEDED = OXS3_S(0x8abfc832),
    OXS3_MAX_POST_PRE_DATA_LENGTH_EXCEEDED_ERROR = OXS3_S(0x8abfc833),
    OXS3_METADATA_TOO_LARGE = OXS3_S(0x8abfc834),
    OXS3_METHOD_NOT_ALLOWED = OXS3_S(0x8abfc835),
    OXS3_MISSING_ATTACHMENT = OXS3_S(0x8abfc836),
    OXS3_MISSING_CONTENT_LENGTH = OXS3_S(0x8abfc837),
    OXS3_MISSING_REQUEST_BODY_ERROR = OXS3_S(0x8abfc838),
    OXS3_MISSING_SECURITY_ELEMENT = OXS3_S(0x8abfc839),
    OXS3_MISSING_SECURITY_HEADER = OXS3_S(0x8abfc83a),
    OXS3_NO_LOGGING_STATUS_FOR_KEY = OXS3_S(0x8abfc83b),
    OXS3_NO_SUCH_BUCKET = OXS3_S(0x8abfc83c),
    OXS3_NO_SUCH_KEY = OXS3_S(0x8abfc83d),
    OXS3_NO_SUCH_LIFECYCLE_CONFIGURATION = OXS3_S(0x8abfc83e),
    OXS3_NO_SUCH_UPLOAD = OXS3_S(0x8abfc83f),
    OXS3_NO_SUCH_VERSION = OXS3_S(0x8abfc840),
    OXS3_NOT_IMPLEMENTED = OXS3_S(0x8abfc841),
    OXS3_NOT_SIGNED_UP = OXS3_S(0x8abfc842),
    OXS3_NO_SUCH_BUCKET_POLICY = OXS3_S(0x8abfc843),
    OXS3_OPERATION_ABORTED = OXS3_S(0x8abfc844),
    OXS3_PERMANENT_REDIRECT = OXS3_S(0x8abfc845),
    OXS3_PRECONDITION_FAILED = OXS3_S(0x8abfc846),
    OXS3_REDIRECT = OXS3_S(0x8abfc847),
    OXS3_RESTORE_ALREADY_IN_PROGRESS = OXS3_S(0x8abfc848),
    OXS3_REQUEST_IS_NOT_MULTI_PART_CONTENT = OXS3_S(0x8abfc849),
    OXS3_REQUEST_TIMEOUT = OXS3_S(0x8abfc84a),
    OXS3_REQUEST_TIME_TOO_SKEWED = OXS3_S(0x8abfc84b),
    OXS3_REQUEST_TORRENT_OF_BUCKET_ERROR = OXS3_S(0x8abfc84c),
    OXS3_SIGNATURE_DOES_NOT_MATCH = OXS3_S(0x8abfc84d),
    OXS3_SERVICE_UNAVAILABLE = OXS3_S(0x8abfc84e),
    OXS3_SLOW_DOWN = OXS3_S(0x8abfc84f),
    OXS3_TEMPORARY_REDIRECT = OXS3_S(0x8abfc850),
    OXS3_TOKEN_REFRESH_REQUIRED = OXS3_S(0x8abfc851),
    OXS3_TOO_MANY_BUCKETS = OXS3_S(0x8abfc852),
    OXS3_UNEXPECTED_CONTENT = OXS3_S(0x8abfc853),
    OXS3_UNRESOLVABLE_GRANT_BY_EMAIL_ADDRESS = OXS3_S(0x8abfc854),
    OXS3_USER_KEY_MUST_BE_SPECIFIED = OXS3_S(0x8abfc855),
    OXS3_KMS_NOT_FOUND = OXS3_S(0x8abfc88f),
    OXS3_X_AMZ_CONTENT_SHA256_MISMATCH = OXS3_S(0x8abfc894),
    OXS3_VALIDATION_ERROR = OXS3_S(0x8abfc89f),
    OXS3_ILLEGAL_LOCATION_CONSTRAINT_EXCEPTION = OXS3_S(0x8abfc8b3),
    OXS3_INVALID_CLIENT_TOKEN_ID = OXS3_S(0x8abfc8b4),
    OXS3_AUTHORIZATION_HEADER_MALFORMED = OXS3_S(0x8abfc8b5),
    /* S3 error answers refined by their Message, and mapped outside the Code table */
    OXS3_ENCRYPTION_PARAMETERS_MISMATCH = OXS3_S(0x8abfc890), /* InvalidRequest: other encryption than at upload */
    OXS3_SSE_HEADER_NOT_SUPPORTED = OXS3_S(0x8abfc891),       /* InvalidArgument: encryption header not allowed here */
    OXS3_ENCRYPTION_NOT_APPLICABLE = OXS3_S(0x8abfc892),      /* InvalidRequest: object not encrypted that way */
    OXS3_SOAP_REQUIRES_HTTPS = OXS3_S(0x8abfc893),            /* InvalidRequest: SOAP over plain HTTP */
    OXS3_IDENTITY_NOT_AUTHORIZED = OXS3_S(0x8abfc89d),        /* AccessDenied naming the identity and the action */
    OXS3_DURATION_EXCEEDS_MAX_SESSION = OXS3_S(0x8abfc89e),   /* ValidationError: DurationSeconds over the role's maximum */
    /* Regions, endpoints and locations */
    OXS3_LOCATION_NO_BUCKET = OXS3_S(0x8abfc857),          /* path text asked of a location without a bucket */
    OXS3_PATH_AUTHORITY_ENDS_IN_AT = OXS3_S(0x8abfc866),   /* credentials and "@" with no region name after them */
    OXS3_REGION_NOT_FOUND = OXS3_S(0x8abfc868),            /* location without region; custom region not defined */
    OXS3_LOCATION_NO_KEY_ID = OXS3_S(0x8abfc869),          /* location has no access key id */
    OXS3_LOCATION_NO_SECRET = OXS3_S(0x8abfc86a),          /* location has no secret access key */
    OXS3_KEY_ID_GIVEN_TWICE = OXS3_S(0x8abfc86b),          /* key id both in the path and as an argument */
    OXS3_SECRET_GIVEN_TWICE = OXS3_S(0x8abfc86c),          /* secret both in the path and as an argument */
    OXS3_REGION_GIVEN_TWICE = OXS3_S(0x8abfc86d),          /* region both in the path and as an argument */
    /* Directories */
    OXS3_DIRECTORY_NOT_EMPTY = OXS3_S(0x8abfc86e),         /* deleting a directory with keys under it, contents not asked */
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
