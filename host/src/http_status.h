// The web client's table from HTTP statuses to host statuses (documented in htconnection.h).
#pragma once

#include <cstdint>

#include "ox/status.h"

namespace ox::http {

struct StatusRow {
    int32_t code;
    OXStatus status;
};

inline constexpr StatusRow kStatusTable[] = {
    {100, OX_HTTP_CONTINUE},
    {200, OX_HTTP_OK},
    {201, OX_HTTP_CREATED},
    {202, OX_HTTP_ACCEPTED},
    {203, OX_HTTP_NON_AUTHORITATIVE},
    {204, OX_HTTP_OK},
    {205, OX_HTTP_RESET_CONTENT},
    {206, OX_HTTP_PARTIAL_CONTENT},
    {300, OX_HTTP_REDIRECT},
    {301, OX_HTTP_MOVED_PERMANENTLY},
    {302, OX_HTTP_FOUND},
    {303, OX_HTTP_SEE_OTHER},
    {304, OX_HTTP_NOT_MODIFIED},
    {307, OX_HTTP_TEMPORARY_REDIRECT},
    {308, OX_HTTP_PERMANENT_REDIRECT},
    {400, OX_HTTP_BAD_REQUEST},
    {401, OX_HTTP_UNAUTHORIZED},
    {403, OX_HTTP_FORBIDDEN},
    {404, OX_HTTP_NOT_FOUND},
    {405, OX_HTTP_METHOD_NOT_ALLOWED},
    {406, OX_HTTP_NOT_ACCEPTABLE},
    {407, OX_HTTP_PROXY_AUTH_REQUIRED},
    {408, OX_HTTP_REQUEST_TIMEOUT},
    {409, OX_HTTP_CONFLICT},
    {410, OX_HTTP_GONE},
    {411, OX_HTTP_LENGTH_REQUIRED},
    {412, OX_HTTP_PRECONDITION_FAILED},
    {413, OX_HTTP_PAYLOAD_TOO_LARGE},
    {414, OX_HTTP_URI_TOO_LONG},
    {415, OX_HTTP_UNSUPPORTED_MEDIA},
    {416, OX_HTTP_RANGE_NOT_SATISFIABLE},
    {417, OX_HTTP_EXPECTATION_FAILED},
    {429, OX_HTTP_TOO_MANY_REQUESTS},
    {500, OX_HTTP_SERVER_ERROR},
    {501, OX_HTTP_NOT_IMPLEMENTED},
    {502, OX_HTTP_BAD_GATEWAY},
    {503, OX_HTTP_UNAVAILABLE},
    {504, OX_HTTP_GATEWAY_TIMEOUT},
    {505, OX_HTTP_VERSION_NOT_SUPPORTED},
};

// Statuses of the codes the table does not list, by class (1xx to 5xx).
inline constexpr OXStatus kClassStatus[] = {OX_HTTP_CONTINUE, OX_HTTP_OTHER_SUCCESS, OX_HTTP_REDIRECT,
                                            OX_HTTP_CLIENT_ERROR, OX_HTTP_SERVER_ERROR};

// A 500 or 503 without a body carries no error document, so nothing tells the caller more than
// that the server could not answer now: worth another attempt.
constexpr OXStatus statusForHttp(int32_t code, bool hasBody) {
    if (!hasBody && code == 500) return OX_HTTP_SERVER_ERROR_NO_BODY;
    if (!hasBody && code == 503) return OX_HTTP_UNAVAILABLE_NO_BODY;
    for (const auto& row : kStatusTable)
        if (row.code == code) return row.status;
    if (code < 100 || code > 599) return OX_HTTP_MALFORMED_RESPONSE;
    return kClassStatus[code / 100 - 1];
}

}  // namespace ox::http
