// C++ holders for host objects, for modules written in C++: a reference on an instance, or a
// block of pool memory, released on every early return so a failing operation gives back its
// partial results without further code.
#pragma once

#include <utility>

#include "ox/pool.h"
#include "ox/types.h"

namespace ox {

// One reference on a host instance. T is any record that begins with an OXInstance head.
template <class T>
class Owned {
public:
    Owned() = default;
    explicit Owned(T* p) : p_(p) {}
    ~Owned() { reset(); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    Owned(Owned&& other) noexcept : p_(other.release()) {}
    Owned& operator=(Owned&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    explicit operator bool() const { return p_ != nullptr; }
    OXInstance* instance() const { return reinterpret_cast<OXInstance*>(p_); }

    // Hands the reference on: the holder forgets it.
    T* release() { return std::exchange(p_, nullptr); }
    void reset(T* p = nullptr) {
        if (p_) instance()->destroy(p_);
        p_ = p;
    }
    // For out-parameters: drops what is held and lets the callee fill the slot.
    T** out() {
        reset();
        return &p_;
    }

private:
    T* p_ = nullptr;
};

// A block allocated from a pool, freed back to it.
template <class T>
class PoolBlock {
public:
    PoolBlock() = default;
    PoolBlock(OX_POOL_S* pool, T* p) : pool_(pool), p_(p) {}
    ~PoolBlock() { reset(); }
    PoolBlock(const PoolBlock&) = delete;
    PoolBlock& operator=(const PoolBlock&) = delete;
    PoolBlock(PoolBlock&& other) noexcept : pool_(other.pool_), p_(other.release()) {}
    PoolBlock& operator=(PoolBlock&& other) noexcept {
        if (this != &other) {
            reset();
            pool_ = other.pool_;
            p_ = other.release();
        }
        return *this;
    }

    // count zero-filled elements; empty when the pool has no memory.
    static PoolBlock allocate(OX_POOL_S* pool, size_t count) {
        return PoolBlock(pool, static_cast<T*>(pool->memAlloc(pool, count * sizeof(T), OX_POOL_ZERO_FILL)));
    }

    T* get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    T* release() { return std::exchange(p_, nullptr); }
    void reset() {
        if (p_) pool_->memFree(pool_, p_);
        p_ = nullptr;
    }

private:
    OX_POOL_S* pool_ = nullptr;
    T* p_ = nullptr;
};

}  // namespace ox
