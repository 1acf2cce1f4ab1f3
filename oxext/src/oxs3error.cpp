// S3 error answers: the error document's Code (refined by its Message for a few Codes) mapped
// to a status through fixed tables, and the text the connection keeps for the caller.
#include "oxs3error.h"

#include <utility>

#include "ox/msg.h"
#include "oxs3conn.h"
#include "oxs3connection.h"
#include "oxs3docs.h"
#include "oxs3log.h"
#include "oxs3text.h"

namespace s3 {
namespace {

// A search stops at the first row with this status, which is also "not found".
constexpr OXStatus kNotFound = OX_FAILED;
constexpr S3Error kEndOfErrors{nullptr, 0, kNotFound};

constexpr S3Error errorList[] = {
    {"AccessDenied", 12, OXS3_ACCESS_DENIED},
    {"AccountProblem", 14, OXS3_ACCOUNT_PROBLEM},
    {"AllAccessDisabled", 17, OXS3_ACCESS_DENIED},
    {"AmbiguousGrantByEmailAddress", 28, OXS3_AMBIGUOUS_GRANT_BY_EMAIL_ADDRESS},
    {"BadDigest", 9, OXS3_BAD_DIGEST},
    {"BucketAlreadyExists", 19, OXS3_BUCKET_ALREADY_EXISTS},
    {"BucketAlreadyOwnedByYou", 23, OXS3_BUCKET_ALREADY_OWNED_BY_YOU},
    {"BucketNotEmpty", 14, OXS3_BUCKET_NOT_EMPTY},
    {"CredentialsNotSupported", 23, OXS3_CREDENTIALS_NOT_SUPPORTED},
    {"CrossLocationLoggingProhibited", 30, OXS3_CROSS_LOCATION_LOGGING_PROHIBITED},
    {"EntityTooSmall", 14, OXS3_ENTITY_TOO_SMALL},
    {"EntityTooLarge", 14, OXS3_ENTITY_TOO_LARGE},
    {"ExpiredToken", 12, OXS3_EXPIRED_TOKEN},
    {"IllegalVersioningConfigurationException", 39, OXS3_ILLEGAL_VERSIONING_CONFIGURATION_EXCEPTION},
    {"IncompleteBody", 14, OXS3_INCOMPLETE_BODY},
    {"IncorrectNumberOfFilesInPostRequest", 35, OXS3_INCORRECT_NUMBER_OF_FILES_IN_POST_REQUEST},
    {"InlineDataTooLarge", 18, OXS3_INLINE_DATA_TOO_LARGE},
    {"InternalError", 13, OXS3_INTERNAL_ERROR},
    {"InvalidAccessKeyId", 18, OXS3_INVALID_ACCESS_KEY_ID},
    {"InvalidAddressingHeader", 23, OXS3_INVALID_ADDRESSING_HEADER},
    {"InvalidArgument", 15, OXS3_INVALID_ARGUMENT},
    {"InvalidBucketName", 17, OXS3_INVALID_BUCKET_NAME},
    {"InvalidBucketState", 18, OXS3_INVALID_BUCKET_STATE},
    {"InvalidDigest", 13, OXS3_INVALID_DIGEST},
    {"InvalidEncryptionAlgorithmError", 31, OXS3_INVALID_ENCRYPTION_ALGORITHM_ERROR},
    {"InvalidLocationConstraint", 25, OXS3_INVALID_LOCATION_CONSTRAINT},
    {"InvalidObjectState", 18, OXS3_INVALID_OBJECT_STATE},
    {"InvalidPart", 11, OXS3_INVALID_PART},
    {"InvalidPartOrder", 16, OXS3_INVALID_PART_ORDER},
    {"InvalidPayer", 12, OXS3_INVALID_PAYER},
    {"InvalidPolicyDocument", 21, OXS3_INVALID_POLICY_DOCUMENT},
    {"InvalidRange", 12, OXS3_INVALID_RANGE},
    {"InvalidRequest", 14, OXS3_INVALID_REQUEST},
    {"InvalidSecurity", 15, OXS3_INVALID_SECURITY},
    {"InvalidSOAPRequest", 18, OXS3_INVALID_SOAP_REQUEST},
    {"InvalidStorageClass", 19, OXS3_INVALID_STORAGE_CLASS},
    {"InvalidTargetBucketForLogging", 29, OXS3_INVALID_TARGET_BUCKET_FOR_LOGGING},
    {"InvalidToken", 12, OXS3_INVALID_TOKEN},
    {"InvalidURI", 10, OXS3_INVALID_URI},
    {"KeyTooLong", 10, OXS3_KEY_TOO_LONG},
    {"MalformedACLError", 17, OXS3_MALFORMED_ACL_ERROR},
    {"MalformedPOSTRequest", 20, OXS3_MALFORMED_POST_REQUEST},
    {"MalformedXML", 12, OXS3_MALFORMED_XML},
    {"MaxMessageLengthExceeded", 24, OXS3_MAX_MESSAGE_LENGTH_EXCEEDED},
    {"MaxPostPreDataLengthExceededError", 33, OXS3_MAX_POST_PRE_DATA_LENGTH_EXCEEDED_ERROR},
    {"MetadataTooLarge", 16, OXS3_METADATA_TOO_LARGE},
    {"MethodNotAllowed", 16, OXS3_METHOD_NOT_ALLOWED},
    {"MissingAttachment", 17, OXS3_MISSING_ATTACHMENT},
    {"MissingContentLength", 20, OXS3_MISSING_CONTENT_LENGTH},
    {"MissingRequestBodyError", 23, OXS3_MISSING_REQUEST_BODY_ERROR},
    {"MissingSecurityElement", 22, OXS3_MISSING_SECURITY_ELEMENT},
    {"MissingSecurityHeader", 21, OXS3_MISSING_SECURITY_HEADER},
    {"NoLoggingStatusForKey", 21, OXS3_NO_LOGGING_STATUS_FOR_KEY},
    {"NoSuchBucket", 12, OXS3_NO_SUCH_BUCKET},
    {"NoSuchKey", 9, OXS3_NO_SUCH_KEY},
    {"NoSuchLifecycleConfiguration", 28, OXS3_NO_SUCH_LIFECYCLE_CONFIGURATION},
    {"NoSuchUpload", 12, OXS3_NO_SUCH_UPLOAD},
    {"NoSuchVersion", 13, OXS3_NO_SUCH_VERSION},
    {"NotImplemented", 14, OXS3_NOT_IMPLEMENTED},
    {"NotSignedUp", 11, OXS3_NOT_SIGNED_UP},
    {"NoSuchBucketPolicy", 18, OXS3_NO_SUCH_BUCKET_POLICY},
    {"OperationAborted", 16, OXS3_OPERATION_ABORTED},
    {"PermanentRedirect", 17, OXS3_PERMANENT_REDIRECT},
    {"PreconditionFailed", 18, OXS3_PRECONDITION_FAILED},
    {"Redirect", 8, OXS3_REDIRECT},
    {"RestoreAlreadyInProgress", 24, OXS3_RESTORE_ALREADY_IN_PROGRESS},
    {"RequestIsNotMultiPartContent", 28, OXS3_REQUEST_IS_NOT_MULTI_PART_CONTENT},
    {"RequestTimeout", 14, OXS3_REQUEST_TIMEOUT},
    {"RequestTimeTooSkewed", 20, OXS3_REQUEST_TIME_TOO_SKEWED},
    {"RequestTorrentOfBucketError", 27, OXS3_REQUEST_TORRENT_OF_BUCKET_ERROR},
    {"SignatureDoesNotMatch", 21, OXS3_SIGNATURE_DOES_NOT_MATCH},
    {"ServiceUnavailable", 18, OXS3_SERVICE_UNAVAILABLE},
    {"SlowDown", 8, OXS3_SLOW_DOWN},
    {"TemporaryRedirect", 17, OXS3_TEMPORARY_REDIRECT},
    {"TokenRefreshRequired", 20, OXS3_TOKEN_REFRESH_REQUIRED},
    {"TooManyBuckets", 14, OXS3_TOO_MANY_BUCKETS},
    {"UnexpectedContent", 17, OXS3_UNEXPECTED_CONTENT},
    {"UnresolvableGrantByEmailAddress", 31, OXS3_UNRESOLVABLE_GRANT_BY_EMAIL_ADDRESS},
    {"UserKeyMustBeSpecified", 22, OXS3_USER_KEY_MUST_BE_SPECIFIED},
    {"KMS.NotFoundException", 21, OXS3_KMS_NOT_FOUND},
    {"XAmzContentSHA256Mismatch", 25, OXS3_X_AMZ_CONTENT_SHA256_MISMATCH},
    {"ValidationError", 15, OXS3_VALIDATION_ERROR},
    {"IllegalLocationConstraintException", 34, OXS3_ILLEGAL_LOCATION_CONSTRAINT_EXCEPTION},
    {"AuthorizationHeaderMalformed", 28, OXS3_AUTHORIZATION_HEADER_MALFORMED},
    {"InvalidClientTokenId", 20, OXS3_INVALID_CLIENT_TOKEN_ID},
    kEndOfErrors,
};

constexpr S3Error invalidArgumentErrorList[] = {
    {"x-amz-server-side-encryption header is not supported for this operation.", 72, OXS3_SSE_HEADER_NOT_SUPPORTED},
    kEndOfErrors,
};

constexpr S3Error invalidRequestErrorList[] = {
    {"The provided encryption parameters did not match the ones used originally.", 74,
     OXS3_ENCRYPTION_PARAMETERS_MISMATCH},
    {"The encryption parameters are not applicable to this object.", 60, OXS3_ENCRYPTION_NOT_APPLICABLE},
    {"SOAP requests must be made over an HTTPS connection.", 52, OXS3_SOAP_REQUIRES_HTTPS},
    kEndOfErrors,
};

template <size_t N>
constexpr bool lengthsMatch(const S3Error (&table)[N]) {
    for (const S3Error& row : table)
        if (row.name && std::string_view(row.name).size() != row.nameLen) return false;
    return true;
}
static_assert(lengthsMatch(errorList) && lengthsMatch(invalidArgumentErrorList) &&
              lengthsMatch(invalidRequestErrorList));

constexpr std::string_view kInvalidRequest = "InvalidRequest";
constexpr std::string_view kInvalidArgument = "InvalidArgument";
constexpr std::string_view kValidationError = "ValidationError";
constexpr std::string_view kAccessDenied = "AccessDenied";
constexpr std::string_view kDurationTooLong =
    "The requested DurationSeconds exceeds the MaxSessionDuration set for this role.";
constexpr std::string_view kIdentityPrefix = "User:";
constexpr std::string_view kNotAuthorized = "is not authorized to perform:";
constexpr std::string_view kXmlContentTypes[] = {"application/xml", "text/xml"};
constexpr std::string_view kContentType = "Content-Type";

std::string_view rowText(const S3Error& row) {
    return row.nameLen >= kTerminatedName - 1 ? std::string_view(row.name) : std::string_view(row.name, row.nameLen);
}

// A Code whose Message may name a more precise status; the general row otherwise.
OXStatus refinedByMessage(const S3Error* messages, const OXS3Error* error) {
    const OXStatus st = findErrorByName(messages, error, true);
    return st != kNotFound ? st : findErrorByName(errorList, error, false);
}

OXStatus validationStatus(const OXS3Error* error) {
    return error->message && view(error->message) == kDurationTooLong ? OXS3_DURATION_EXCEEDS_MAX_SESSION
                                                                       : OXS3_VALIDATION_ERROR;
}

// "User: arn:... is not authorized to perform: s3:GetObject ...": IAM naming who and what.
bool namesIdentity(const OXU8String* message) {
    const std::string_view text = view(message);
    return message && text.starts_with(kIdentityPrefix) && text.find(kNotAuthorized) != std::string_view::npos;
}

// Parameters after the type ("; charset=...") make it not XML here.
bool isXmlType(std::string_view contentType) {
    for (std::string_view type : kXmlContentTypes)
        if (contentType == type) return true;
    return false;
}

// A diagnostic hook for an error's further elements; it shows nothing.
void printDictionary(OXDictionary) {}

void logBody(Logger_S* logger, int level, std::string_view body) {
    OXS3_LOG(logger, level, U"%.*hs", static_cast<int>(body.size()), body.data());
}

void logStatusText(Logger_S* logger, OXStatus status) {
    if (!logEnabled(logger, LL_Debug)) return;
    char text[256];
    oxMessageFormat(status, text, sizeof text);
    OXS3_LOG(logger, LL_Debug, U"%hs", text);
}

// An XML body that cannot be understood, or holds no Error, does not fail the operation.
ErrorReply documentReply(OXS3Extension* ext, OX_POOL_S* pool, std::string_view body) {
    ErrorReply reply;
    Owned<OXS3Error> error;
    if (parseError(ext, pool, body.data(), body.size(), error.out()) != OX_OK || !error) return reply;
    if (ext->showAuthCalc && error->details) printDictionary(error->details);
    reply.status = statusForS3Error(error.get());
    if (reply.status == OXS3_VALIDATION_ERROR && error->message)
        OXS3_LOG(ext->logger, LL_Error, U"%hs", error->message->stg);
    reply.text = ErrorText::document;
    reply.message.reset(std::exchange(error->message, nullptr));
    logStatusText(ext->logger, reply.status);
    return reply;
}

ErrorReply xmlReply(OXS3Extension* ext, OX_POOL_S* pool, std::string_view body) {
    logBody(ext->logger, LL_Trace, body);
    ErrorReply reply = documentReply(ext, pool, body);
    logBody(ext->logger, LL_Trace, body);
    return reply;
}

ErrorReply bodyReply(OXS3Extension* ext, const HTTPStatus& httpStatus, std::string_view body) {
    logBody(ext->logger, LL_Debug, body);
    ErrorReply reply;
    reply.status = httpStatus.message;
    reply.text = ErrorText::body;
    return reply;
}

std::string_view contentTypeOf(HTConnection response) {
    UTF8CStr value = nullptr;
    UTF8ByteLength length = 0;
    if (!response ||
        response->getResponseHeader(response, kContentType.data(), kContentType.size(), &value, &length) != OX_OK)
        return {};
    return {value, length};
}

// The text the connection keeps says what the latest failed request was told.
void keepErrorText(OXS3Connection connection, ErrorReply& reply, std::string_view body) {
    switch (reply.text) {
        case ErrorText::keep: return;
        case ErrorText::document:
            resetErrorMessage(connection);
            connection->errorMessage = reply.message.release();
            return;
        case ErrorText::body: setErrorMessage(connection, body.data(), body.size()); return;
    }
}

}  // namespace

OXStatus findErrorByName(const S3Error* table, const OXS3Error* error, bool byMessage) {
    const OXU8String* field = byMessage ? error->message : error->code;
    if (!field) return kNotFound;
    for (const S3Error* row = table; row->status != kNotFound; ++row)
        if (rowText(*row) == view(field)) return row->status;
    return kNotFound;
}

OXStatus statusForS3Error(const OXS3Error* error) {
    if (!error || !error->code) return OX_INVALID_ARGUMENT;
    const std::string_view code = view(error->code);
    if (code == kInvalidRequest) return refinedByMessage(invalidRequestErrorList, error);
    if (code == kInvalidArgument) return refinedByMessage(invalidArgumentErrorList, error);
    if (code == kValidationError) return validationStatus(error);
    if (code == kAccessDenied && namesIdentity(error->message)) return OXS3_IDENTITY_NOT_AUTHORIZED;
    return findErrorByName(errorList, error, false);
}

ErrorReply interpretErrorResponse(OXS3Extension* ext, OX_POOL_S* pool, std::string_view contentType,
                                  const HTTPStatus& httpStatus, std::string_view body) {
    if (!body.empty() && isXmlType(contentType)) return xmlReply(ext, pool, body);
    return bodyReply(ext, httpStatus, body);
}

OXStatus s3ErrorResponse(OXS3Connection connection, HTConnection response, const HTTPStatus& httpStatus,
                         const void* body, OXMemSize bodyLength) {
    const std::string_view text = body ? std::string_view(static_cast<const char*>(body), bodyLength) : "";
    ErrorReply reply =
        interpretErrorResponse(connection->oxs3, connection->pool, contentTypeOf(response), httpStatus, text);
    keepErrorText(connection, reply, text);
    return reply.status;
}

}  // namespace s3
