// The web client service record: HTTP connections from the connection files, digests,
// encodings and dates from their own files.
#include "htconnection_internal.h"
#include "object.h"
#include "ox/status.h"
#include "services.h"
#include "webclient_internal.h"

OXExtension* oxLoadWebClient(OX_HNDL_S* h, OXJournal* jnl) {
    auto* wc = ox::newService<OXWebClient_S>(h, "webclient");
    if (!wc) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    wc->createConnection = oxHtCreateConnection;
    wc->sha256 = oxSha256;
    wc->sha256Init = oxSha256Init;
    wc->hmacSha256 = oxHmacSha256;
    wc->md5 = oxMd5;
    wc->base64Encode = oxBase64Encode;
    wc->base64EncodeU8 = oxBase64EncodeU8;
    wc->base64Decode = oxBase64Decode;
    wc->hexLower = oxHexLower;
    wc->formatHttpDate = oxFormatHttpDate;
    wc->formatIsoDate = oxFormatIsoDate;
    wc->formatIsoDateTime = oxFormatIsoDateTime;
    wc->parseIsoDateTime = oxParseIsoDateTime;
    wc->parseHttpDate = oxParseHttpDate;
    return &wc->exth;
}
