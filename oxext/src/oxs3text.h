// UTF-8 strings of the string service seen as byte ranges, and built from pieces.
#pragma once

#include <initializer_list>
#include <string_view>

#include "ox/status.h"
#include "ox/string.h"

namespace s3 {

// An absent string reads as empty.
inline std::string_view view(const OXU8String* s) {
    return s && s->stg ? std::string_view(s->stg, s->len) : std::string_view();
}

// Appends the pieces in order; the first failure ends it.
inline OXStatus appendText(OXU8String* out, std::initializer_list<std::string_view> pieces) {
    for (std::string_view piece : pieces)
        if (OXStatus st = out->extHandle->appendU8(out, piece.data(), piece.size()); st != OX_OK) return st;
    return OX_OK;
}

}  // namespace s3
