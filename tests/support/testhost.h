// Test helpers for reaching the host: the handle, services loaded by name and released at
// the end of a test, and pools that check for leaks.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"

namespace oxtest {

inline std::u32string wide(std::string_view s) { return std::u32string(s.begin(), s.end()); }

inline const OXChar* chars(const std::u32string& s) { return reinterpret_cast<const OXChar*>(s.data()); }

inline OX_HNDL_S* host() { return oxHostInit(); }

// A service loaded by name for the life of the object.
template <class T>
class Service {
public:
    explicit Service(std::string_view name) {
        auto w = wide(name);
        ext_ = reinterpret_cast<T*>(host()->loadExtension(host(), chars(w), w.size(), nullptr));
    }
    ~Service() {
        if (ext_) reinterpret_cast<OXExtension*>(ext_)->generic.destroy(ext_);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    T* operator->() const { return ext_; }
    T* get() const { return ext_; }
    explicit operator bool() const { return ext_ != nullptr; }

private:
    T* ext_ = nullptr;
};

// A pool that must be empty again when the test ends, unless the test says otherwise.
class TestPool {
public:
    TestPool() {
        OXPoolCreateParms parms{};
        pool_ = host()->poolCreate(host(), &parms, nullptr, "test pool");
    }
    ~TestPool() {
        if (!pool_) return;
        if (checkLeaks_) {
            EXPECT_EQ(pool_->blocksInUse(pool_), 0u) << "blocks left in the test pool";
        }
        pool_->generic.destroy(pool_);
    }
    TestPool(const TestPool&) = delete;
    TestPool& operator=(const TestPool&) = delete;
    OX_POOL_S* get() const { return pool_; }
    operator OX_POOL_S*() const { return pool_; }
    OX_POOL_S* operator->() const { return pool_; }
    void allowLeftovers() { checkLeaks_ = false; }

private:
    OX_POOL_S* pool_ = nullptr;
    bool checkLeaks_ = true;
};

}  // namespace oxtest
