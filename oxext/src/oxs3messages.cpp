// The sentences for the extension's own statuses, registered with the host catalogue while
// the extension is loaded.
#include <iterator>

#include "ox/msg.h"
#include "oxs3areas.h"

namespace s3 {
namespace {

constexpr OXMessage kMessages[] = {
    {OXS3_UNKNOWN_REGION, "The region is not known."},
    {OXS3_PATH_NOT_ABSOLUTE, "The object path does not begin with \"/\"."},
    {OXS3_REQUEST_FORBIDDEN, "The server refused the request (HTTP 403) without saying why."},
    {OXS3_BAD_REQUEST, "The server rejected the request as malformed (HTTP 400) without saying why."},
};

}  // namespace

OXStatus registerMessages() { return oxMessageRegister(kMessages, std::size(kMessages)); }
void unregisterMessages() { oxMessageUnregister(kMessages); }

}  // namespace s3
