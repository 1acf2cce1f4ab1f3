// Server-side encryption: the connection's SSE-KMS or SSE-C settings and the request headers
// that carry them.
#pragma once

#include "oxs3.h"

namespace s3 {

// Adds the encryption headers of one request: SSE-KMS when kmsKeyId is given, else SSE-C when
// key is given (an OXU8String of key text or an OXData of key bytes), else nothing.
// copySource selects the copy-source header names (SSE-C only).
OXStatus setEncryptionHeaders(OXS3Extension* ext, OXDictionary headers, const OXInstance* key,
                              const OXU8String* keyAlgorithm, const OXU8String* kmsKeyId,
                              const OXU8String* kmsKeyContext, bool copySource);

// The connection's setEncryption slot: SSE-KMS (kmsKeyId, optional kmsKeyContext) or SSE-C
// (key as hexadecimal text when keyIsHex, else key text). The kind set replaces the other.
OXStatus oxs3ConnectionSetEncryption(OXS3Connection connection, UTF8CStr kmsKeyId, UTF8CStr kmsKeyContext,
                                     UTF8CStr key, OXBoolean keyIsHex);

// The four encryption values of one request (borrowed, not owned).
struct EncryptionArgs {
    OXInstance* key = nullptr;
    OXU8String* keyAlgorithm = nullptr;
    OXU8String* kmsKeyId = nullptr;
    OXU8String* kmsKeyContext = nullptr;
};

// The call's values when any of the four is given, else the connection's settings.
EncryptionArgs withConnectionEncryption(OXS3Connection connection, OXInstance* key, OXU8String* keyAlgorithm,
                                        OXU8String* kmsKeyId, OXU8String* kmsKeyContext);

// OX_INVALID_ARGUMENT unless the values name one kind of encryption: a key with a KMS key id
// or context, or a KMS key id with a key algorithm, is refused.
OXStatus validateKeys(const OXInstance* key, const OXU8String* keyAlgorithm, const OXU8String* kmsKeyId,
                      const OXU8String* kmsKeyContext);

// withConnectionEncryption, then validateKeys; *chosen is written only when they agree.
OXStatus chooseEncryption(OXS3Connection connection, OXInstance* key, OXU8String* keyAlgorithm,
                          OXU8String* kmsKeyId, OXU8String* kmsKeyContext, EncryptionArgs* chosen);

}  // namespace s3
