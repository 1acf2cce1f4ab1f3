// Response heads and the chunked coding (RFC 9112), strict where leniency would let a
// malformed answer change how much of the stream is taken as body.
#include "http_parser.h"

#include <array>
#include <cstring>

namespace ox::http {

namespace {

constexpr std::array<bool, 256> kTokenChars = [] {
    std::array<bool, 256> t{};
    for (int c = '0'; c <= '9'; ++c) t[c] = true;
    for (int c = 'a'; c <= 'z'; ++c) t[c] = t[c - 'a' + 'A'] = true;
    for (char c : std::string_view("!#$%&'*+-.^_`|~")) t[static_cast<uint8_t>(c)] = true;
    return t;
}();

// Visible characters, obs-text, space and tab: what a field value or reason phrase may hold.
constexpr std::array<bool, 256> kTextChars = [] {
    std::array<bool, 256> t{};
    for (int c = 0x20; c < 0x7f; ++c) t[c] = true;
    for (int c = 0x80; c < 0x100; ++c) t[c] = true;
    t['\t'] = true;
    return t;
}();

constexpr bool isToken(char c) { return kTokenChars[static_cast<uint8_t>(c)]; }
constexpr bool isText(char c) { return kTextChars[static_cast<uint8_t>(c)]; }
constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isBlank(char c) { return c == ' ' || c == '\t'; }

constexpr int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string_view trimBlanks(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

// Splits off the next line (without its LF and an optional CR before it).
std::string_view nextLine(std::string_view& rest) {
    size_t lf = rest.find('\n');
    std::string_view line = rest.substr(0, lf);
    rest.remove_prefix(lf == std::string_view::npos ? rest.size() : lf + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

// Calls f for each comma-separated element of a list value, trimmed; false stops.
template <class F>
bool eachListElement(std::string_view value, F f) {
    while (true) {
        size_t comma = value.find(',');
        if (!f(trimBlanks(value.substr(0, comma)))) return false;
        if (comma == std::string_view::npos) return true;
        value.remove_prefix(comma + 1);
    }
}

std::optional<uint64_t> parseDecimal(std::string_view s) {
    if (s.empty() || s.size() > 18) return std::nullopt;  // 18 digits cannot overflow
    uint64_t v = 0;
    for (char c : s) {
        if (!isDigit(c)) return std::nullopt;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    return v;
}

OXStatus parseStatusLine(std::string_view line, ResponseHead& out, size_t lineOff) {
    constexpr std::string_view kProtocol = "HTTP/1.";
    if (line.size() < 12 || line.substr(0, kProtocol.size()) != kProtocol || !isDigit(line[7]) || line[8] != ' ')
        return OX_HTTP_MALFORMED_RESPONSE;
    if (!isDigit(line[9]) || !isDigit(line[10]) || !isDigit(line[11])) return OX_HTTP_MALFORMED_RESPONSE;
    out.minorVersion = line[7] - '0';
    out.code = (line[9] - '0') * 100 + (line[10] - '0') * 10 + (line[11] - '0');
    if (out.code < 100 || out.code > 599) return OX_HTTP_MALFORMED_RESPONSE;
    std::string_view reason = line.substr(12);
    if (!reason.empty()) {
        if (reason.front() != ' ') return OX_HTTP_MALFORMED_RESPONSE;
        reason.remove_prefix(1);
    }
    for (char c : reason)
        if (!isText(c)) return OX_HTTP_MALFORMED_RESPONSE;
    out.reasonOff = static_cast<uint32_t>(lineOff + 13);
    out.reasonLen = static_cast<uint32_t>(reason.size());
    if (reason.empty()) out.reasonOff = static_cast<uint32_t>(lineOff + 12);
    return OX_OK;
}

OXStatus parseField(std::string_view head, std::string_view line, Field& field) {
    size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos) return OX_HTTP_MALFORMED_RESPONSE;
    for (char c : line.substr(0, colon))
        if (!isToken(c)) return OX_HTTP_MALFORMED_RESPONSE;  // also refuses a blank before the colon
    std::string_view value = trimBlanks(line.substr(colon + 1));
    for (char c : value)
        if (!isText(c)) return OX_HTTP_MALFORMED_RESPONSE;
    const auto offsetOf = [&](std::string_view part) { return static_cast<uint32_t>(part.data() - head.data()); };
    field = {offsetOf(line), static_cast<uint32_t>(colon), offsetOf(value), static_cast<uint32_t>(value.size())};
    if (value.empty()) field.valueOff = offsetOf(line) + static_cast<uint32_t>(colon) + 1;
    return OX_OK;
}

struct FramingFields {
    std::optional<uint64_t> contentLength;
    bool badLength = false;
    bool hasTransferEncoding = false;
    bool chunkedLast = false;
    bool close = false;
    bool keepAlive = false;
};

void noteContentLength(std::string_view value, FramingFields& f) {
    eachListElement(value, [&](std::string_view v) {
        auto n = parseDecimal(v);
        if (!n || (f.contentLength && *f.contentLength != *n)) {
            f.badLength = true;
            return false;
        }
        f.contentLength = n;
        return true;
    });
}

void noteFramingField(std::string_view name, std::string_view value, FramingFields& f) {
    if (equalsIgnoringCase(name, "Content-Length")) {
        noteContentLength(value, f);
    } else if (equalsIgnoringCase(name, "Transfer-Encoding")) {
        f.hasTransferEncoding = true;
        eachListElement(value, [&](std::string_view coding) {
            if (!coding.empty()) f.chunkedLast = equalsIgnoringCase(coding, "chunked");
            return true;
        });
    } else if (equalsIgnoringCase(name, "Connection")) {
        eachListElement(value, [&](std::string_view option) {
            f.close |= equalsIgnoringCase(option, "close");
            f.keepAlive |= equalsIgnoringCase(option, "keep-alive");
            return true;
        });
    }
}

bool hasNoBody(int32_t code, bool requestWasHead) {
    return requestWasHead || code < 200 || code == 204 || code == 304;
}

void decideFraming(const FramingFields& f, bool requestWasHead, ResponseHead& out) {
    out.close = f.close || (out.minorVersion == 0 && !f.keepAlive);
    out.hasContentLength = f.contentLength.has_value();
    out.contentLength = f.contentLength.value_or(0);
    if (hasNoBody(out.code, requestWasHead)) {
        out.framing = Framing::None;
    } else if (f.hasTransferEncoding) {
        // A length beside a transfer coding is how request smuggling starts: never reuse the socket.
        out.framing = f.chunkedLast ? Framing::Chunked : Framing::UntilClose;
        out.close |= !f.chunkedLast || out.hasContentLength;
    } else if (out.hasContentLength) {
        out.framing = out.contentLength ? Framing::Length : Framing::None;
    } else {
        out.framing = Framing::UntilClose;
        out.close = true;
    }
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
        if (x != y) return false;
    }
    return true;
}

size_t findHeadEnd(std::string_view buf, size_t from) {
    for (size_t lf = buf.find('\n', from); lf != std::string_view::npos; lf = buf.find('\n', lf + 1)) {
        if (lf + 1 < buf.size() && buf[lf + 1] == '\n') return lf + 2;
        if (lf + 2 < buf.size() && buf[lf + 1] == '\r' && buf[lf + 2] == '\n') return lf + 3;
    }
    return 0;
}

OXStatus parseResponseHead(std::string_view head, bool requestWasHead, ResponseHead& out) {
    if (head.size() > kMaxHeadBytes) return OX_HTTP_HEAD_TOO_LARGE;
    out = ResponseHead{};
    std::string_view rest = head;
    if (OXStatus st = parseStatusLine(nextLine(rest), out, 0); st != OX_OK) return st;
    FramingFields framing;
    for (std::string_view line = nextLine(rest); !line.empty(); line = nextLine(rest)) {
        if (isBlank(line.front())) return OX_HTTP_MALFORMED_RESPONSE;  // obsolete line folding
        if (out.fieldCount == kMaxHeaderFields) return OX_HTTP_HEAD_TOO_LARGE;
        Field& field = out.fields[out.fieldCount];
        if (OXStatus st = parseField(head, line, field); st != OX_OK) return st;
        ++out.fieldCount;
        noteFramingField(line.substr(0, field.nameLen), head.substr(field.valueOff, field.valueLen), framing);
    }
    if (!rest.empty()) return OX_HTTP_MALFORMED_RESPONSE;  // bytes after the blank line are not head
    if (framing.badLength) return OX_HTTP_BAD_CONTENT_LENGTH;
    decideFraming(framing, requestWasHead, out);
    return OX_OK;
}

std::optional<std::string_view> findField(std::string_view head, const ResponseHead& parsed, std::string_view name) {
    for (uint32_t i = 0; i < parsed.fieldCount; ++i) {
        const Field& f = parsed.fields[i];
        if (equalsIgnoringCase(head.substr(f.nameOff, f.nameLen), name)) return head.substr(f.valueOff, f.valueLen);
    }
    return std::nullopt;
}

// ---- chunked coding ----

OXStatus ChunkDecoder::consume(std::string_view in, size_t& used) {
    used = 0;
    while (used < in.size() && phase_ != Phase::Data && phase_ != Phase::Done) {
        if (OXStatus st = step(in[used]); st != OX_OK) return st;
        ++used;
    }
    return OX_OK;
}

void ChunkDecoder::tookData(uint64_t n) {
    left_ -= n;
    if (left_ == 0) phase_ = Phase::DataCr;
}

OXStatus ChunkDecoder::countLine(size_t limit, OXStatus overflow) {
    return ++lineBytes_ > limit ? overflow : OX_OK;
}

OXStatus ChunkDecoder::sizeDigit(char c) {
    int v = hexValue(c);
    if (v >= 0) {
        if (++digits_ > 15) return OX_HTTP_BAD_CHUNK;  // 60 bits: more than any body could be
        left_ = left_ * 16 + static_cast<uint64_t>(v);
        return OX_OK;
    }
    if (digits_ == 0) return OX_HTTP_BAD_CHUNK;
    if (c == ';' || isBlank(c)) phase_ = Phase::Extension;
    else if (c == '\r') phase_ = Phase::SizeLf;
    else if (c == '\n') endSizeLine();
    else return OX_HTTP_BAD_CHUNK;
    return OX_OK;
}

void ChunkDecoder::endSizeLine() {
    phase_ = left_ ? Phase::Data : Phase::TrailerStart;
    digits_ = 0;
    lineBytes_ = 0;
}

OXStatus ChunkDecoder::step(char c) {
    switch (phase_) {
        case Phase::Size:
            if (OXStatus st = countLine(kMaxChunkLine, OX_HTTP_BAD_CHUNK); st != OX_OK) return st;
            return sizeDigit(c);
        case Phase::Extension:
            // Extensions carry nothing this client acts on; they are only bounded and skipped.
            if (OXStatus st = countLine(kMaxChunkLine, OX_HTTP_BAD_CHUNK); st != OX_OK) return st;
            if (c == '\r') phase_ = Phase::SizeLf;
            else if (c == '\n') endSizeLine();
            else if (!isText(c)) return OX_HTTP_BAD_CHUNK;
            return OX_OK;
        case Phase::SizeLf:
            if (c != '\n') return OX_HTTP_BAD_CHUNK;
            endSizeLine();
            return OX_OK;
        case Phase::DataCr:
            if (c == '\r') phase_ = Phase::DataLf;
            else if (c == '\n') phase_ = Phase::Size;
            else return OX_HTTP_BAD_CHUNK;
            return OX_OK;
        case Phase::DataLf:
            if (c != '\n') return OX_HTTP_BAD_CHUNK;
            phase_ = Phase::Size;
            return OX_OK;
        case Phase::TrailerStart:
        case Phase::TrailerLine:
            // Trailer fields are bounded and dropped: nothing the client does depends on them.
            if (++trailerBytes_ > kMaxTrailerBytes) return OX_HTTP_HEAD_TOO_LARGE;
            if (c == '\n') phase_ = phase_ == Phase::TrailerStart ? Phase::Done : Phase::TrailerStart;
            else if (c == '\r') phase_ = phase_ == Phase::TrailerStart ? Phase::TrailerLf : Phase::TrailerLine;
            else if (isText(c)) phase_ = Phase::TrailerLine;
            else return OX_HTTP_BAD_CHUNK;
            return OX_OK;
        case Phase::TrailerLf:
            if (c != '\n') return OX_HTTP_BAD_CHUNK;
            phase_ = Phase::Done;
            return OX_OK;
        case Phase::Data:
        case Phase::Done:
            break;
    }
    return OX_OK;
}

}  // namespace ox::http
