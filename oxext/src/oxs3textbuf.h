// A growing byte buffer for the texts a request is built from (canonical request, string to
// sign, encoded paths): on the stack while short, in a pool beyond that, never throwing. The
// first failure sticks, so a sequence of appends is checked once at its end.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "ox/pool.h"
#include "ox/status.h"
#include "ox/string.h"

namespace s3 {

class TextBuffer {
public:
    explicit TextBuffer(OX_POOL_S* pool) : pool_(pool) {}
    ~TextBuffer() {
        if (data_ != inline_) pool_->memFree(pool_, data_);
    }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    // Room for n more bytes at the end, to be written and then committed; null after a failure.
    char* reserve(size_t n) {
        if (status_ != OX_OK) return nullptr;
        if (n >= cap_ - len_ && !grow(len_ + n + 1)) return nullptr;
        return data_ + len_;
    }
    void commit(size_t n) { len_ += n; }

    void append(std::string_view text) {
        if (char* at = reserve(text.size())) {
            if (!text.empty()) std::memcpy(at, text.data(), text.size());
            commit(text.size());
        }
    }
    void push(char c) {
        if (char* at = reserve(1)) {
            *at = c;
            commit(1);
        }
    }
    void clear() { len_ = 0; }
    // Keeps the first n bytes.
    void truncate(size_t n) {
        if (n < len_) len_ = n;
    }
    // Records a failure of a step that fed the buffer.
    void fail(OXStatus st) {
        if (status_ == OX_OK) status_ = st;
    }

    std::string_view view() const { return {data_, len_}; }
    size_t size() const { return len_; }
    // The text with a terminator after it (there is always room for one).
    const char* c_str() {
        data_[len_] = '\0';
        return data_;
    }
    OXStatus status() const { return status_; }
    OX_POOL_S* pool() const { return pool_; }

private:
    static constexpr size_t kInline = 1024;

    bool grow(size_t need) {
        size_t cap = cap_ * 2 > need ? cap_ * 2 : need;
        void* block = data_ == inline_ ? pool_->memAlloc(pool_, cap, 0) : pool_->memRealloc(pool_, data_, cap, 0);
        if (!block) {
            status_ = OX_NO_MEMORY;
            return false;
        }
        if (data_ == inline_) std::memcpy(block, inline_, len_);
        data_ = static_cast<char*>(block);
        cap_ = cap;
        return true;
    }

    OX_POOL_S* pool_;
    char inline_[kInline];
    char* data_ = inline_;
    size_t len_ = 0;
    size_t cap_ = kInline;
    OXStatus status_ = OX_OK;
};

// ASCII letters lower-cased, every other byte as it is.
inline void appendLowerAscii(TextBuffer& out, std::string_view text) {
    if (char* at = out.reserve(text.size())) {
        for (char c : text) *at++ = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        out.commit(text.size());
    }
}

// A new UTF-8 string holding a copy of the buffer's text, or the buffer's failure.
inline OXStatus copyToString(OXStringExt_S* strings, OX_POOL_S* pool, TextBuffer& text, OXU8String** out) {
    if (text.status() != OX_OK) return text.status();
    return strings->createU8(strings, pool, text.c_str(), text.size(), OX_STR_COPY, out);
}

}  // namespace s3
