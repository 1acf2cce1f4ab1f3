// A growable array of trivially copyable items in a pool, for host code that must not throw:
// growth reports failure instead of raising, and the block goes back to its pool on scope exit.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "ox/pool.h"

namespace ox {

template <class T>
class PoolBuffer {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit PoolBuffer(OX_POOL_S* pool) noexcept : pool_(pool) {}
    ~PoolBuffer() { release(); }
    PoolBuffer(const PoolBuffer&) = delete;
    PoolBuffer& operator=(const PoolBuffer&) = delete;

    T* data() noexcept { return items_; }
    const T* data() const noexcept { return items_; }
    size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }

    [[nodiscard]] bool reserve(size_t count) noexcept {
        if (count <= capacity_) return true;
        size_t grown = capacity_ ? capacity_ * 2 : 16;
        if (grown < count) grown = count;
        void* mem = pool_->memRealloc(pool_, items_, grown * sizeof(T), 0);
        if (!mem) return false;
        items_ = static_cast<T*>(mem);
        capacity_ = grown;
        return true;
    }

    [[nodiscard]] bool append(const T* items, size_t count) noexcept {
        if (count == 0) return true;
        if (count > SIZE_MAX / sizeof(T) - size_ || !reserve(size_ + count)) return false;
        std::memcpy(items_ + size_, items, count * sizeof(T));
        size_ += count;
        return true;
    }

    [[nodiscard]] bool push(const T& item) noexcept { return append(&item, 1); }

    void truncate(size_t count) noexcept {
        if (count < size_) size_ = count;
    }
    void clear() noexcept { size_ = 0; }

    // Gives the memory back to the pool; the buffer stays usable.
    void release() noexcept {
        if (items_) pool_->memFree(pool_, items_);
        items_ = nullptr;
        size_ = capacity_ = 0;
    }

private:
    OX_POOL_S* pool_;
    T* items_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

inline std::string_view view(const PoolBuffer<char>& b) noexcept { return {b.data(), b.size()}; }

}  // namespace ox
