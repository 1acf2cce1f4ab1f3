// Response reading over a channel. The head stays at the start of the buffer while its body is
// read, so header texts handed to callers remain valid; framing bytes of a chunked body go
// into the buffer after it.
#include "http_response.h"

#include <algorithm>
#include <cstring>

namespace ox::http {

namespace {

// Room after a head for chunk framing reads, kept so the buffer never moves under the head.
constexpr size_t kMinBodySpace = 4 * 1024;
constexpr size_t kFirstWholeBodyBytes = 16 * 1024;
constexpr size_t kSkipScratchBytes = 8 * 1024;

}  // namespace

OXStatus ResponseReader::setBufferLength(size_t length) {
    if (length < kMinBufferBytes || length > kMaxBufferBytes) return OX_INVALID_ARGUMENT;
    bufferLength_ = length;
    if (end_ == 0) release();  // the next head allocates the new size
    return OX_OK;
}

bool ResponseReader::reserve(size_t cap) {
    if (cap <= cap_) return true;
    void* mem = pool_->memRealloc(pool_, buf_, cap, 0);
    if (!mem) return false;
    buf_ = static_cast<char*>(mem);
    cap_ = cap;
    return true;
}

void ResponseReader::reset() {
    headEnd_ = pos_ = end_ = 0;
    head_.fieldCount = 0;
    head_.reasonOff = 0;
    bodyDone_ = true;
}

void ResponseReader::release() {
    if (buf_) pool_->memFree(pool_, buf_);
    buf_ = nullptr;
    cap_ = 0;
    reset();
}

OXStatus ResponseReader::receive(Channel& ch, const IoLimits& limits, size_t& got) {
    OXStatus st = ch.readSome(buf_ + end_, cap_ - end_, got, limits);
    if (st == OX_OK) end_ += got;
    return st;
}

// Moves what followed the previous head (an interim answer's successor) to the front.
OXStatus ResponseReader::startHead() {
    const size_t carried = end_ - pos_;
    if (carried && pos_) std::memmove(buf_, buf_ + pos_, carried);
    headEnd_ = pos_ = 0;
    end_ = carried;
    head_.fieldCount = 0;
    return reserve(bufferLength_) ? OX_OK : OX_NO_MEMORY;
}

OXStatus ResponseReader::readHead(Channel& ch, const IoLimits& limits, bool requestWasHead) {
    if (OXStatus st = startHead(); st != OX_OK) return st;
    size_t headLen = 0;
    for (size_t scanned = 0; (headLen = findHeadEnd({buf_, std::min(end_, kMaxHeadBytes)}, scanned)) == 0;) {
        if (end_ >= kMaxHeadBytes) return OX_HTTP_HEAD_TOO_LARGE;
        scanned = end_ > 2 ? end_ - 2 : 0;  // a blank line may begin in the last two bytes
        if (end_ == cap_ && !reserve(std::min(cap_ * 2, kMaxHeadBytes + kMinBodySpace))) return OX_NO_MEMORY;
        size_t got = 0;
        if (OXStatus st = receive(ch, limits, got); st != OX_OK) return st;
        if (got == 0) return end_ == 0 ? OX_HTTP_PEER_CLOSED : OX_HTTP_RESPONSE_TRUNCATED;
    }
    if (OXStatus st = parseResponseHead({buf_, headLen}, requestWasHead, head_); st != OX_OK) return st;
    if (!reserve(headLen + kMinBodySpace)) return OX_NO_MEMORY;
    headEnd_ = pos_ = headLen;
    terminateTexts();
    startBody();
    return OX_OK;
}

// Each text is followed by a colon, blank, CR or LF that the parse no longer needs.
void ResponseReader::terminateTexts() {
    buf_[head_.reasonOff + head_.reasonLen] = '\0';
    for (uint32_t i = 0; i < head_.fieldCount; ++i) {
        const Field& f = head_.fields[i];
        buf_[f.nameOff + f.nameLen] = '\0';
        buf_[f.valueOff + f.valueLen] = '\0';
    }
}

void ResponseReader::startBody() {
    bodyDone_ = head_.framing == Framing::None;
    lengthLeft_ = head_.contentLength;
    chunks_.reset();
}

bool ResponseReader::fieldAt(size_t index, std::string_view& name, std::string_view& value) const {
    if (index >= head_.fieldCount) return false;
    const Field& f = head_.fields[index];
    name = {buf_ + f.nameOff, f.nameLen};
    value = {buf_ + f.valueOff, f.valueLen};
    return true;
}

std::optional<std::string_view> ResponseReader::field(std::string_view name) const {
    return findField({buf_, headEnd_}, head_, name);
}

// Body bytes that came with the head or framing are handed over from the buffer; everything
// else goes from the channel straight into dst. n == 0 means the peer closed.
OXStatus ResponseReader::takeBytes(Channel& ch, const IoLimits& limits, char* dst, size_t want, size_t& n) {
    if (pos_ < end_) {
        n = std::min(want, end_ - pos_);
        std::memcpy(dst, buf_ + pos_, n);
        pos_ += n;
        return OX_OK;
    }
    return ch.readSome(dst, want, n, limits);
}

OXStatus ResponseReader::readPlain(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& n) {
    const bool counted = head_.framing == Framing::Length;
    const size_t want = counted ? static_cast<size_t>(std::min<uint64_t>(len, lengthLeft_)) : len;
    if (OXStatus st = takeBytes(ch, limits, dst, want, n); st != OX_OK) return st;
    if (n == 0) {
        if (counted) return OX_HTTP_RESPONSE_TRUNCATED;
        bodyDone_ = true;
        return OX_OK;
    }
    if (counted && (lengthLeft_ -= n) == 0) bodyDone_ = true;
    return OX_OK;
}

OXStatus ResponseReader::readChunkFraming(Channel& ch, const IoLimits& limits) {
    if (pos_ == end_) {
        pos_ = end_ = headEnd_;
        size_t got = 0;
        if (OXStatus st = receive(ch, limits, got); st != OX_OK) return st;
        if (got == 0) return OX_HTTP_RESPONSE_TRUNCATED;
    }
    size_t used = 0;
    OXStatus st = chunks_.consume({buf_ + pos_, end_ - pos_}, used);
    pos_ += used;
    if (chunks_.done()) bodyDone_ = true;
    return st;
}

OXStatus ResponseReader::readChunked(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& n) {
    n = 0;
    if (!chunks_.inData()) return readChunkFraming(ch, limits);
    const size_t want = static_cast<size_t>(std::min<uint64_t>(len, chunks_.dataLeft()));
    if (OXStatus st = takeBytes(ch, limits, dst, want, n); st != OX_OK) return st;
    if (n == 0) return OX_HTTP_RESPONSE_TRUNCATED;
    chunks_.tookData(n);
    return OX_OK;
}

OXStatus ResponseReader::readBody(Channel& ch, const IoLimits& limits, char* dst, size_t len, size_t& got) {
    got = 0;
    while (got < len && !bodyDone_) {
        size_t n = 0;
        OXStatus st = head_.framing == Framing::Chunked ? readChunked(ch, limits, dst + got, len - got, n)
                                                         : readPlain(ch, limits, dst + got, len - got, n);
        if (st != OX_OK) return st;
        got += n;
    }
    return OX_OK;
}

size_t ResponseReader::wholeBodyGuess() const {
    if (head_.framing == Framing::Length) return static_cast<size_t>(lengthLeft_);
    return kFirstWholeBodyBytes;
}

OXStatus ResponseReader::readWholeBody(Channel& ch, const IoLimits& limits, OX_POOL_S* pool, char*& data,
                                       size_t& len) {
    size_t cap = wholeBodyGuess();
    char* mem = static_cast<char*>(pool->memAlloc(pool, cap + 1, 0));
    if (!mem) return OX_NO_MEMORY;
    size_t have = 0;
    while (!bodyDone_) {
        if (have == cap) {
            void* grown = pool->memRealloc(pool, mem, cap * 2 + 1, 0);
            if (!grown) {
                pool->memFree(pool, mem);
                return OX_NO_MEMORY;
            }
            mem = static_cast<char*>(grown);
            cap *= 2;
        }
        size_t got = 0;
        if (OXStatus st = readBody(ch, limits, mem + have, cap - have, got); st != OX_OK) {
            pool->memFree(pool, mem);
            return st;
        }
        have += got;
    }
    mem[have] = '\0';
    data = mem;
    len = have;
    return OX_OK;
}

OXStatus ResponseReader::skipBody(Channel& ch, const IoLimits& limits, uint64_t limit) {
    char scratch[kSkipScratchBytes];
    for (uint64_t skipped = 0; !bodyDone_ && skipped <= limit;) {
        size_t got = 0;
        if (OXStatus st = readBody(ch, limits, scratch, sizeof scratch, got); st != OX_OK) return st;
        skipped += got;
    }
    return OX_OK;
}

}  // namespace ox::http
