// Percent-encodings of request paths and queries, query strings from query dictionaries, and
// the small text-to-number conversions the request engine shares.
//
// Three encodings on purpose: the path sent (urlEncodePath) also encodes "-" and "_", while
// the path signed (awsURLEncode) keeps them; query names and values (awsURLEncodeQuery) encode
// "/" and ":" as well.
#pragma once

#include <string_view>

#include "oxs3.h"
#include "oxs3textbuf.h"

namespace s3 {

// ---- into a buffer

// Keeps letters, digits, "-", ".", "_", "~", "/" and the ":" before the host part of a URL.
void appendAwsURLEncoded(TextBuffer& out, std::string_view text);
// Keeps letters, digits, "-", ".", "_", "~".
void appendQueryEncoded(TextBuffer& out, std::string_view text);
// Keeps letters, digits, ".", "/", "~".
void appendPathEncoded(TextBuffer& out, std::string_view text);

// name[=value] pairs joined by "&" in the dictionary's (ascending) order. The canonical form
// writes "=" after every name, the sent form only before a value.
enum class QueryForm { sent, canonical };
OXStatus appendQueryString(TextBuffer& out, OXDictionary query, QueryForm form);

// ---- as new strings in pool

OXStatus awsURLEncode(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out);
OXStatus awsURLEncodeQuery(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out);
OXStatus urlEncodePath(OXStringExt_S* strings, OX_POOL_S* pool, std::string_view text, OXU8String** out);
// An absent or empty query gives an empty string.
OXStatus buildQueryString(OXStringExt_S* strings, OX_POOL_S* pool, OXDictionary query, OXU8String** out);
OXStatus buildCanonicalQueryString(OXStringExt_S* strings, OX_POOL_S* pool, OXDictionary query, OXU8String** out);

// ---- dictionaries of texts

// Sets name to a new string of the value's bytes.
inline OXStatus setText(OXDictionary d, std::string_view name, std::string_view value) {
    return d->setU8ValueU8(d, name.data(), name.size(), value.data(), value.size());
}

// Query dictionaries: names compare byte for byte; a value is a string, or none.

// The value of a parameter sent without "=".
OXInstance* queryNoValue();
// A new query in pool, with a first pair when name is given (value null: a bare name).
OXStatus newQuery(OXS3Extension* ext, OX_POOL_S* pool, const OXString* name, const OXString* value,
                  OXDictionary* query);
OXStatus newQueryU8(OXS3Extension* ext, OX_POOL_S* pool, UTF8CStr name, UTF8CStr value, OXDictionary* query);
// Sets one more pair; value null for a bare name.
OXStatus querySetU8(OXDictionary query, std::string_view name, UTF8CStr value);

// ---- instance texts

// Appends the text of an OXU8String, or of an OXString as UTF-8; any other instance is
// OX_INVALID_ARGUMENT.
OXStatus appendInstanceString(TextBuffer& out, const OXInstance* value);

// ---- numbers

// Decimal text with an optional sign, all of it; OXS3_NOT_A_NUMBER otherwise.
OXStatus u8StringToLong(std::string_view text, int64_t* value);
// 0-9 for "0"-"9", 10-15 for "a"-"f" and "A"-"F", all ones for anything else.
constexpr uint32_t kNotHexDigit = ~uint32_t{0};
uint32_t hexDigit(char32_t c);

}  // namespace s3
