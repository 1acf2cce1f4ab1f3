// Reading responses from a channel: the head into the connection's buffer, the body straight
// into the caller's memory. Only body bytes that arrived together with the head (or with chunk
// framing) pass through the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "http_channel.h"
#include "http_parser.h"
#include "ox/pool.h"

namespace ox::http {

inline constexpr size_t kDefaultBufferBytes = 64 * 1024;
inline constexpr size_t kMinBufferBytes = 4 * 1024;
inline constexpr size_t kMaxBufferBytes = 16 * 1024 * 1024;

class ResponseReader {
public:
    explicit ResponseReader(OX_POOL_S* pool) noexcept : pool_(pool) {}
    ~ResponseReader() { release(); }
    ResponseReader(const ResponseReader&) = delete;
    ResponseReader& operator=(const ResponseReader&) = delete;

    OXStatus setBufferLength(size_t length);
    size_t bufferLength() const { return bufferLength_; }

    // Reads the next head. Bytes that followed an interim (1xx) head are used first.
    OXStatus readHead(Channel& ch, const IoLimits& limits, bool requestWasHead);
    const ResponseHead& head() const { return head_; }
    // Terminated texts in the buffer, valid until the next head is read.
    const char* reason() const { return buf_ + head_.reasonOff; }
    bool fieldAt(size_t index, std::string_view& name, std::string_view& value) const;
    std::optional<std::string_view> field(std::string_view name) const;

    // Fills dst until len bytes or the end of the body, whichever comes first.
    OXStatus readBody(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& got);
    // The rest of the body in memory from pool, with a 0 byte after it.
    OXStatus readWholeBody(Channel& ch, const IoLimits& limits, OX_POOL_S* pool, char*& data, size_t& len);
    // Reads and drops the rest of the body when it is at most limit bytes; bodyDone() tells.
    OXStatus skipBody(Channel& ch, const IoLimits& limits, uint64_t limit);
    bool bodyDone() const { return bodyDone_; }
    // Bytes received beyond the end of the response.
    bool hasLeftover() const { return pos_ < end_; }
    // Forgets the head and every buffered byte: the socket they came from is gone.
    void reset();
    void release();

private:
    bool reserve(size_t cap);
    OXStatus receive(Channel& ch, const IoLimits& limits, size_t& got);
    OXStatus startHead();
    void terminateTexts();
    void startBody();
    OXStatus takeBytes(Channel& ch, const IoLimits& limits, char* dst, size_t want, size_t& n);
    OXStatus readPlain(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& n);
    OXStatus readChunked(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& n);
    OXStatus readChunkFraming(Channel& ch, const IoLimits& limits);
    size_t wholeBodyGuess() const;

    OX_POOL_S* pool_;
    char* buf_ = nullptr;
    size_t cap_ = 0;
    size_t bufferLength_ = kDefaultBufferBytes;
    size_t headEnd_ = 0;  // the head occupies [0, headEnd_)
    size_t pos_ = 0;      // unread bytes are [pos_, end_)
    size_t end_ = 0;
    ResponseHead head_;
    bool bodyDone_ = true;
    uint64_t lengthLeft_ = 0;
    ChunkDecoder chunks_;
};

}  // namespace ox::http
