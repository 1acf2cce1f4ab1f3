// The web client's pure operations, one group per file; webclient.cpp puts them in the record.
#pragma once

#include "ox/webclient.h"

// digest.cpp
OXStatus oxSha256(const void* bytes, OXMemSize len, uint8_t digest[OX_SHA256_LEN]);
OXStatus oxSha256Init(OX_POOL_S* pool, OXSha256_S** out);
OXStatus oxHmacSha256(const void* key, OXMemSize keyLen, const void* data, OXMemSize dataLen,
                      uint8_t mac[OX_SHA256_LEN]);
OXStatus oxMd5(const void* bytes, OXMemSize len, uint8_t digest[OX_MD5_LEN]);

// base64.cpp
OXStatus oxBase64Encode(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL);
OXStatus oxBase64EncodeU8(OXStringExt_S* oxstring, OX_POOL_S* pool, const void* bytes, OXMemSize len,
                          OXU8String** out);
OXStatus oxBase64Decode(UTF8CStr text, UTF8ByteLength len, uint8_t* out, size_t outCap, size_t* outL);
OXStatus oxHexLower(const void* bytes, OXMemSize len, char* out, size_t outCap, size_t* outL);

// httpdate.cpp
OXStatus oxFormatHttpDate(OXDateTime when, char* out, size_t outCap);
OXStatus oxFormatIsoDate(OXDateTime when, char* out, size_t outCap);
OXStatus oxFormatIsoDateTime(OXDateTime when, char* out, size_t outCap);
OXStatus oxParseIsoDateTime(UTF8CStr text, UTF8ByteLength len, OXDateTime* out);
OXStatus oxParseHttpDate(UTF8CStr text, UTF8ByteLength len, OXDateTime* out);
