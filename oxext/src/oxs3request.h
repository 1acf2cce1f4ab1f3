// Request construction: the header dictionary with its date, standard and encryption headers,
// the Host and the request path (virtual-hosted or path style), then signing and the encoding
// of the path that is sent. Requests to the AWS identity services are built here too.
//
// The connection's requestPath holds the path of the request last built: unencoded while it
// is signed, percent-encoded once signing succeeded, ready to be sent.
#pragma once

#include <string_view>

#include "ox/htconnection.h"
#include "oxs3.h"
#include "oxs3sign.h"

namespace s3 {

// A new header dictionary (names ignore case) with "Date", "iso8601Date" and "x-amz-date" for
// dateTime, and the encryption headers of the four encryption values (none when all are null).
OXStatus createRequest(OXS3Connection connection, OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                       OXU8String* encKeyContext, OXDictionary* headers, OXDateTime dateTime);

// createRequest then buildRequest; the headers are handed out only when both succeed. http is
// the HTTP connection the request goes on (null: the connection's own); target, when given,
// gives the Host (and the signed query) instead.
OXStatus startRequest(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                      std::string_view method, std::string_view path, std::string_view bucket, OXDictionary query,
                      std::string_view payloadHash, uint64_t contentLength, OXDictionary* headers,
                      OXDateTime dateTime);
OXStatus startRequestWithEncryption(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                                    std::string_view method, std::string_view path, std::string_view bucket,
                                    OXDictionary query, std::string_view payloadHash, uint64_t contentLength,
                                    OXInstance* encKey, OXU8String* encKeyAlg, OXU8String* encKeyId,
                                    OXU8String* encKeyContext, OXDictionary* headers, OXDateTime dateTime);

// Adds the standard headers and the Host, decides the request path, signs, and encodes the path.
OXStatus buildRequest(OXS3Connection connection, HTConnection http, const RequestTarget* target,
                      OXDictionary headers, std::string_view method, std::string_view bucket, std::string_view path,
                      OXDictionary query, std::string_view payloadHash, uint64_t contentLength);

// The path-style path: the endpoint's path prefix (or "/"), the bucket, the path.
OXStatus buildPathRequest(OXS3Connection connection, std::string_view bucket, std::string_view path,
                          OXU8String** out);

// A request to another AWS service (STS, IAM) over TLS on a new HTTP connection to its host,
// with the connection's TLS options and proxies. A POST carries its parameters as a form body.
struct ServiceRequest {
    std::string_view host;
    std::string_view service;  // "sts", "iam": the signing service
    std::string_view region;   // the signing region
    std::string_view method;
    std::string_view path;
    OXDictionary query;             // the parameters
    std::string_view payloadHash;   // of the body, when not POST
    uint64_t contentLength = 0;     // when not POST
};
// headers come from createRequest; on success *body holds the POST body (null otherwise) and
// *result the new HTTP connection, which the caller sends on and destroys.
OXStatus buildRequestForService(OXS3Connection connection, const ServiceRequest& request, OXDictionary headers,
                                OXU8String** body, HTConnection* result);

// "bytes=first-last" (inclusive) under headerName, "Range" when it is empty.
OXStatus requestSetRange(OXDictionary headers, std::string_view headerName, uint64_t offset, uint64_t length);

// Appends name, value and CRLF.
OXStatus appendHeader(OXU8String* string, UTF8CStr name, UTF8ByteLength nameLength, UTF8CStr value,
                      UTF8ByteLength valueLength);

// The method's text, as it is signed.
std::string_view methodText(HTTPMethod method);

}  // namespace s3
