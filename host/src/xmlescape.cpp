// Escaping for XML output. Element text needs only what would start markup, plus carriage
// return, which every reader normalises to a line feed. Attribute values also lose tab and
// line feed to normalisation, so those and both quote characters become references too.
#include "xmlescape.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace ox::xml {
namespace {

struct Replacement {
    char byte;
    std::string_view text;
};

constexpr Replacement kElementReplacements[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'\r', "&#13;"},
};

constexpr Replacement kAttributeReplacements[] = {
    {'&', "&amp;"},   {'<', "&lt;"},   {'>', "&gt;"}, {'\r', "&#13;"},
    {'"', "&quot;"}, {'\'', "&apos;"}, {'\t', "&#9;"}, {'\n', "&#10;"},
};

using ByteTable = std::array<std::string_view, 256>;  // empty: the byte stands for itself

template <size_t N>
constexpr ByteTable byteTable(const Replacement (&replacements)[N]) {
    ByteTable table{};
    for (const Replacement& r : replacements) table[static_cast<uint8_t>(r.byte)] = r.text;
    return table;
}

constexpr ByteTable kElementTable = byteTable(kElementReplacements);
constexpr ByteTable kAttributeTable = byteTable(kAttributeReplacements);

constexpr const ByteTable& tableFor(EscapeKind kind) {
    return kind == EscapeKind::Element ? kElementTable : kAttributeTable;
}

}  // namespace

size_t escapedLength(EscapeKind kind, std::string_view text) noexcept {
    const ByteTable& table = tableFor(kind);
    size_t len = text.size();
    for (char c : text) {
        const std::string_view r = table[static_cast<uint8_t>(c)];
        if (!r.empty()) len += r.size() - 1;
    }
    return len;
}

size_t escapeInto(EscapeKind kind, std::string_view text, char* out) noexcept {
    if (text.empty()) return 0;
    const ByteTable& table = tableFor(kind);
    char* const start = out;
    size_t run = 0;  // bytes copied as they are, flushed in one go before each replacement
    for (size_t i = 0; i < text.size(); ++i) {
        const std::string_view r = table[static_cast<uint8_t>(text[i])];
        if (r.empty()) {
            ++run;
            continue;
        }
        std::memcpy(out, text.data() + i - run, run);
        out += run;
        run = 0;
        std::memcpy(out, r.data(), r.size());
        out += r.size();
    }
    std::memcpy(out, text.data() + text.size() - run, run);
    return static_cast<size_t>(out + run - start);
}

}  // namespace ox::xml
