// S3 error answers: the Code (and for a few Codes the Message) of an error document mapped to
// a status, and the connection's error message kept for the caller.
#pragma once

#include <string_view>

#include "ox/htconnection.h"
#include "oxs3.h"
#include "oxs3owned.h"

namespace s3 {

// One row of a mapping table. A nameLen of kTerminatedName or kTerminatedName - 1 means the
// text is 0-terminated and measured when compared.
struct S3Error {
    const char* name;
    uint64_t nameLen;
    OXStatus status;
};

inline constexpr uint64_t kTerminatedName = ~uint64_t{0};

// The status of the first row whose text equals the error's Code (byMessage false) or Message
// (byMessage true); OX_FAILED when none does, or when that field is absent.
OXStatus findErrorByName(const S3Error* table, const OXS3Error* error, bool byMessage);

// The status a parsed error document stands for: OX_INVALID_ARGUMENT without a Code, OX_FAILED
// for a Code no table knows.
OXStatus statusForS3Error(const OXS3Error* error);

// What becomes of the connection's error message after an error answer.
enum class ErrorText {
    keep,      // an XML body that could not be understood: the message stays as it was
    document,  // the S3 Message replaces it (message; absent when the document has none)
    body,      // not an XML answer: the body text replaces it
};

struct ErrorReply {
    OXStatus status = OX_OK;
    ErrorText text = ErrorText::keep;
    Owned<OXU8String> message;  // with ErrorText::document only
};

// The meaning of an error answer without touching a connection: contentType is the value of
// its "Content-Type" header (empty when it has none), body the body as read. Strings are made
// in pool.
ErrorReply interpretErrorResponse(OXS3Extension* ext, OX_POOL_S* pool, std::string_view contentType,
                                  const HTTPStatus& httpStatus, std::string_view body);

// Ends an operation whose HTTP status is not one it accepts: the status to return, with the
// connection's error message replaced as interpretErrorResponse says. response is asked for
// its "Content-Type" header; body may be empty.
OXStatus s3ErrorResponse(OXS3Connection connection, HTConnection response, const HTTPStatus& httpStatus,
                         const void* body, OXMemSize bodyLength);

}  // namespace s3
