// HTTP/1.1 response framing as pure functions over bytes: the head (status line and header
// fields) and the chunked transfer coding. Nothing here touches a socket, so the fuzz target and
// the unit tests drive it directly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "ox/status.h"

namespace ox::http {

inline constexpr size_t kMaxHeadBytes = 64 * 1024;
inline constexpr size_t kMaxHeaderFields = 256;
inline constexpr size_t kMaxChunkLine = 4096;      // size and extensions of one chunk
inline constexpr size_t kMaxTrailerBytes = 64 * 1024;

// How the body of a response ends.
enum class Framing : uint8_t { None, Length, Chunked, UntilClose };

// Offsets into the head text, so a head can be moved or terminated in place.
struct Field {
    uint32_t nameOff, nameLen, valueOff, valueLen;
};

struct ResponseHead {
    int32_t code = 0;
    int32_t minorVersion = 1;
    uint32_t reasonOff = 0, reasonLen = 0;
    uint32_t fieldCount = 0;
    Field fields[kMaxHeaderFields];
    Framing framing = Framing::None;
    bool hasContentLength = false;
    uint64_t contentLength = 0;
    bool close = false;  // the connection ends with this response
};

// Where the head that starts buf ends (just past its blank line), or 0 while it is incomplete.
// from lets a caller resume the search after more bytes arrived.
size_t findHeadEnd(std::string_view buf, size_t from = 0);

// Parses a complete head. requestWasHead: the request was HEAD, so no body follows whatever the
// headers announce.
OXStatus parseResponseHead(std::string_view head, bool requestWasHead, ResponseHead& out);

bool equalsIgnoringCase(std::string_view a, std::string_view b);

// The first field of that name, compared ignoring ASCII case.
std::optional<std::string_view> findField(std::string_view head, const ResponseHead& parsed, std::string_view name);

// The chunked transfer coding, fed framing bytes and told of the data the caller took itself,
// so chunk data can go straight from the socket into the caller's memory.
class ChunkDecoder {
public:
    // Consumes framing from the front of in, stopping at chunk data or at the end of the body.
    OXStatus consume(std::string_view in, size_t& used);
    bool inData() const { return phase_ == Phase::Data; }
    uint64_t dataLeft() const { return left_; }
    void tookData(uint64_t n);
    bool done() const { return phase_ == Phase::Done; }
    void reset() { *this = ChunkDecoder{}; }

private:
    enum class Phase : uint8_t { Size, Extension, SizeLf, Data, DataCr, DataLf, TrailerStart, TrailerLine, TrailerLf, Done };
    OXStatus step(char c);
    OXStatus sizeDigit(char c);
    void endSizeLine();
    OXStatus countLine(size_t limit, OXStatus overflow);

    Phase phase_ = Phase::Size;
    uint64_t left_ = 0;
    uint32_t digits_ = 0;
    size_t lineBytes_ = 0;
    size_t trailerBytes_ = 0;
};

}  // namespace ox::http
