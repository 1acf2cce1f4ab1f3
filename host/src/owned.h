// A reference on a host instance held for the length of a scope: dropped on every early
// return, so a failing operation releases its partial results without further code.
#pragma once

#include <utility>

#include "ox/types.h"

namespace ox {

// T is any record that begins with an OXInstance head.
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

}  // namespace ox
