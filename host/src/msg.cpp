// The message catalogue: the host's own texts and the tables modules register while loaded.
#include "ox/msg.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include "ox/status.h"

namespace {

constexpr OXMessage kHostMessages[] = {
    {OX_OK, "The operation completed successfully."},
    {OX_NO_MEMORY, "The host ran out of memory or of another resource."},
    {OX_INVALID_ARGUMENT, "An argument was not valid, or the object was not in a state that allows the operation."},
    {OX_CANNOT_POSITION, "The stream cannot be positioned."},
    {OX_FAILED, "A call to the host or a lookup failed."},
    {OX_NOT_FOUND, "The name, key or item was not found."},
    {OX_NOT_SUPPORTED, "This object does not support the operation."},
    {OX_TIMED_OUT, "The wait ended before the event it was waiting for was posted."},
    {OX_END_OF_DATA, "The end of the data was reached."},
    {OX_SERVICE_MISSING, "A host service could not be found or loaded."},
    {OX_WRONG_TYPE, "The object is not of the type the operation needs."},
    {OX_FILE_NOT_FOUND, "The file does not exist."},
    {OX_FILE_ACCESS_DENIED, "Access to the file was denied."},
    {OX_FILE_IO_ERROR, "Reading or writing the file failed."},
    {OX_FILE_IS_DIRECTORY, "The path names a directory where a file was expected."},
    {OX_FILE_NOT_OPEN, "The file is not open."},
    {OX_BAD_UTF8, "The text is not valid UTF-8."},
    {OX_BAD_CODE_POINT, "The text holds a character that is not a valid Unicode scalar value."},
    {OX_XML_MALFORMED, "The XML document is not well formed."},
    {OX_XML_STOPPED, "The XML parse was stopped by one of its callbacks."},
    {OX_JSON_MALFORMED, "The JSON text is not well formed."},
    {OX_JSON_TOO_DEEP, "The JSON text is nested more deeply than the reader allows."},
    {OX_BASE64_MALFORMED, "The text is not valid padded Base64."},
    {OX_BUFFER_TOO_SMALL, "The output buffer is too small; the length needed has been returned."},
    {OX_SOCKET_FAILED, "A socket operation failed."},
    {OX_SOCKET_TIMED_OUT, "Reading from or writing to the network did not progress within the time-out."},
    {OX_TLS_RECORD_FAILED, "A TLS record could not be read or written."},
    {OX_HTTP_ALREADY_OPEN, "The HTTP connection is already open."},
    {OX_HTTP_WRONG_STATE, "The HTTP connection is not at a step of the exchange that allows this operation."},
    {OX_HTTP_BAD_REQUEST_TEXT, "The request method, target or a header holds characters HTTP does not allow."},
    {OX_HTTP_BODY_OVERRUN, "More request body was sent than the request announced."},
    {OX_HTTP_CONNECTION_RESET, "The server reset the connection."},
    {OX_HTTP_RESPONSE_TRUNCATED, "The server closed the connection before the whole response was received."},
    {OX_HTTP_PEER_CLOSED, "The server closed the connection before sending a response."},
    {OX_HTTP_MALFORMED_RESPONSE, "The server's answer is not a well-formed HTTP/1.x response."},
    {OX_HTTP_HEAD_TOO_LARGE, "The response headers are larger than the client accepts."},
    {OX_HTTP_BAD_CHUNK, "The chunked response body is not correctly framed."},
    {OX_HTTP_BAD_CONTENT_LENGTH, "The response's Content-Length is not a valid length."},
    {OX_HTTP_CONTINUE, "The server asked for the request body (HTTP 100 Continue)."},
    {OX_HTTP_OK, "The request succeeded (HTTP 200 or 204)."},
    {OX_HTTP_CREATED, "The server created the resource (HTTP 201)."},
    {OX_HTTP_ACCEPTED, "The server accepted the request for later processing (HTTP 202)."},
    {OX_HTTP_NON_AUTHORITATIVE, "The request succeeded with information from another source (HTTP 203)."},
    {OX_HTTP_OTHER_SUCCESS, "The request succeeded with an HTTP success status the client has no name for."},
    {OX_HTTP_RESET_CONTENT, "The request succeeded and the view should be reset (HTTP 205)."},
    {OX_HTTP_PARTIAL_CONTENT, "The server sent part of the resource (HTTP 206)."},
    {OX_HTTP_REDIRECT, "The server redirected the request (HTTP 3xx)."},
    {OX_HTTP_MOVED_PERMANENTLY, "The resource has moved permanently (HTTP 301)."},
    {OX_HTTP_FOUND, "The resource is temporarily elsewhere (HTTP 302)."},
    {OX_HTTP_SEE_OTHER, "The answer is at another location (HTTP 303)."},
    {OX_HTTP_NOT_MODIFIED, "The resource has not changed (HTTP 304)."},
    {OX_HTTP_TEMPORARY_REDIRECT, "The request must be repeated at another location (HTTP 307)."},
    {OX_HTTP_PERMANENT_REDIRECT, "The request must be sent to another location from now on (HTTP 308)."},
    {OX_HTTP_BAD_REQUEST, "The server could not understand the request (HTTP 400)."},
    {OX_HTTP_UNAUTHORIZED, "The request needs authentication (HTTP 401)."},
    {OX_HTTP_FORBIDDEN, "The server refused the request (HTTP 403)."},
    {OX_HTTP_NOT_FOUND, "The resource was not found (HTTP 404)."},
    {OX_HTTP_METHOD_NOT_ALLOWED, "The method is not allowed for this resource (HTTP 405)."},
    {OX_HTTP_NOT_ACCEPTABLE, "The server has no form of the resource the request accepts (HTTP 406)."},
    {OX_HTTP_PROXY_AUTH_REQUIRED, "The proxy needs authentication (HTTP 407)."},
    {OX_HTTP_REQUEST_TIMEOUT, "The server timed out waiting for the request (HTTP 408)."},
    {OX_HTTP_CONFLICT, "The request conflicts with the state of the resource (HTTP 409)."},
    {OX_HTTP_GONE, "The resource is gone (HTTP 410)."},
    {OX_HTTP_LENGTH_REQUIRED, "The server needs a Content-Length (HTTP 411)."},
    {OX_HTTP_PRECONDITION_FAILED, "A precondition of the request did not hold (HTTP 412)."},
    {OX_HTTP_PAYLOAD_TOO_LARGE, "The request body is too large for the server (HTTP 413)."},
    {OX_HTTP_URI_TOO_LONG, "The request target is too long for the server (HTTP 414)."},
    {OX_HTTP_UNSUPPORTED_MEDIA, "The server does not support the body's media type (HTTP 415)."},
    {OX_HTTP_RANGE_NOT_SATISFIABLE, "The requested range is not within the resource (HTTP 416)."},
    {OX_HTTP_EXPECTATION_FAILED, "The server will not meet the request's Expect header (HTTP 417)."},
    {OX_HTTP_TOO_MANY_REQUESTS, "The server asks for fewer requests (HTTP 429)."},
    {OX_HTTP_CLIENT_ERROR, "The server rejected the request (HTTP 4xx)."},
    {OX_HTTP_SERVER_ERROR, "The server failed to answer the request (HTTP 5xx)."},
    {OX_HTTP_NOT_IMPLEMENTED, "The server does not implement the request (HTTP 501)."},
    {OX_HTTP_BAD_GATEWAY, "A gateway got a bad answer from the server behind it (HTTP 502)."},
    {OX_HTTP_UNAVAILABLE, "The service is unavailable (HTTP 503)."},
    {OX_HTTP_SERVER_ERROR_NO_BODY, "The server failed with HTTP 500 and gave no details; the request may be repeated."},
    {OX_HTTP_UNAVAILABLE_NO_BODY, "The service was unavailable (HTTP 503) and gave no details; the request may be repeated."},
    {OX_HTTP_GATEWAY_TIMEOUT, "A gateway timed out waiting for the server behind it (HTTP 504)."},
    {OX_HTTP_VERSION_NOT_SUPPORTED, "The server does not support the HTTP version of the request (HTTP 505)."},
    {OX_HTTP_HOST_NOT_FOUND, "The host name could not be resolved."},
    {OX_HTTP_TUNNEL_REFUSED, "The proxy refused to open a tunnel to the server."},
    {OX_HTTP_CONNECT_FAILED, "The connection to the server could not be made."},
    {OX_HTTP_ABORTED, "The transfer was stopped by its abort event."},
    {OX_TLS_HANDSHAKE_FAILED, "The TLS handshake with the server failed."},
    {OX_TLS_CERT_UNTRUSTED, "The server's certificate could not be verified against the trusted certificate authorities."},
    {OX_TLS_HOST_MISMATCH, "The server's certificate does not name the host that was asked for."},
    {OX_TLS_BAD_OPTIONS, "The TLS options cannot be used (unreadable CA file or directory, or a bad cipher list)."},
    {OX_DATE_NOT_IN_FORM, "The date text is not in the form the parser expects."},
    {OX_CONFIG_BAD_LINE, "A line of the configuration file is neither a section header, a comment nor a key = value setting."},
    {OX_CONFIG_BAD_SECTION, "The configuration file has a malformed section header."},
};

// A module loaded twice registers its table twice; it stays until the last unregistration.
struct Table {
    const OXMessage* entries;
    size_t count;
    int registrations;
};

// Registered module tables, in registration order. Never destroyed: modules may still look
// texts up while the process exits.
struct Registry {
    std::shared_mutex mutex;
    std::vector<Table> tables;
};

Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

const char* find(const OXMessage* entries, size_t count, OXStatus number) {
    for (size_t i = 0; i < count; ++i)
        if (entries[i].number == number) return entries[i].text;
    return nullptr;
}

const char* findRegistered(OXStatus number) {
    Registry& r = registry();
    std::shared_lock lock(r.mutex);
    for (const Table& t : r.tables)
        if (const char* text = find(t.entries, t.count, number)) return text;
    return nullptr;
}

}  // namespace

const char* oxMessageText(OXStatus number) {
    if (const char* text = find(kHostMessages, std::size(kHostMessages), number)) return text;
    return findRegistered(number);
}

size_t oxMessageFormat(OXStatus number, char* buf, size_t bufL) {
    const char* text = oxMessageText(number);
    const auto hex = static_cast<uint32_t>(number);
    int n = text ? std::snprintf(buf, bufL, "%s (0x%08" PRIx32 ")", text, hex)
                 : std::snprintf(buf, bufL, "Unknown status 0x%08" PRIx32, hex);
    return n < 0 ? 0 : static_cast<size_t>(n);
}

OXStatus oxMessageRegister(const OXMessage* table, size_t count) {
    if (!table && count) return OX_INVALID_ARGUMENT;
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    auto known = std::find_if(r.tables.begin(), r.tables.end(), [&](const Table& t) { return t.entries == table; });
    if (known != r.tables.end()) {
        known->count = count;
        ++known->registrations;
        return OX_OK;
    }
    try {
        r.tables.push_back({table, count, 1});
    } catch (...) {
        return OX_NO_MEMORY;
    }
    return OX_OK;
}

void oxMessageUnregister(const OXMessage* table) {
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    auto known = std::find_if(r.tables.begin(), r.tables.end(), [&](const Table& t) { return t.entries == table; });
    if (known != r.tables.end() && --known->registrations == 0) r.tables.erase(known);
}
