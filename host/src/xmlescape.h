// Escaping text for XML element content and attribute values, as pure functions over bytes:
// measure first, then write into exactly that much room.
#pragma once

#include <cstddef>
#include <string_view>

namespace ox::xml {

enum class EscapeKind { Element, Attribute };

size_t escapedLength(EscapeKind kind, std::string_view text) noexcept;

// out must have room for escapedLength(kind, text) bytes; returns the bytes written.
size_t escapeInto(EscapeKind kind, std::string_view text, char* out) noexcept;

}  // namespace ox::xml
