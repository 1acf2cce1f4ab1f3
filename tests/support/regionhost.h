// The extension loaded over a host handle of its own, for the region, path and custom-region
// tests: process-wide names private to the handle (what one load saves is seen by the next load
// of the same test and by no other test), the real environment behind "OSENV." names, and a
// count of extension pools destroyed while still holding blocks.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "ox/handle.h"
#include "ox/status.h"
#include "oxs3.h"
#include "oxs3areas.h"
#include "testhost.h"

namespace oxtest {

// One environment variable set (or unset, for a null value) for a scope, restored after it.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const char* value) : name_(name) {
        if (const char* old = getenv(name)) saved_ = old;
        set(value);
    }
    ~ScopedVariable() { set(saved_ ? saved_->c_str() : nullptr); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

    void set(const char* value) {
        if (value)
            setenv(name_.c_str(), value, 1);
        else
            unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> saved_;
};

inline std::u32string fromUTF8(std::string_view text) {
    std::u32string out(text.size(), U'\0');
    size_t len = 0;
    EXPECT_EQ(oxzsU8ToU32(text.data(), text.size(), reinterpret_cast<OXChar*>(out.data()), out.size(), &len), OX_OK);
    out.resize(len);
    return out;
}

inline std::string toUTF8(std::u32string_view text) {
    std::string out(text.size() * 4, '\0');
    size_t len = 0;
    EXPECT_EQ(oxzsU32ToU8(reinterpret_cast<const OXChar*>(text.data()), text.size(), out.data(), out.size(), &len),
              OX_OK);
    out.resize(len);
    return out;
}

class RegionHost {
public:
    RegionHost() {
        handle_.h = *host();
        handle_.owner = this;
        handle_.h.nameExists = nameExists;
        handle_.h.nameGet = nameGet;
        handle_.h.nameSet = nameSet;
        handle_.h.poolCreate = poolCreate;
        current_ = this;
    }
    ~RegionHost() { current_ = nullptr; }
    RegionHost(const RegionHost&) = delete;
    RegionHost& operator=(const RegionHost&) = delete;

    OX_HNDL_S* handle() { return &handle_.h; }

    void setOption(std::string_view name, std::string_view value) { names_[fromUTF8(name)] = fromUTF8(value); }
    void forgetOption(std::string_view name) { names_.erase(fromUTF8(name)); }
    std::optional<std::string> option(std::string_view name) const {
        auto it = names_.find(fromUTF8(name));
        if (it == names_.end()) return std::nullopt;
        return toUTF8(it->second);
    }

    int poolsDestroyedWithBlocks = 0;

private:
    struct Handle {
        OX_HNDL_S h;
        RegionHost* owner;
    };

    static RegionHost& of(OX_HNDL_S* h) { return *reinterpret_cast<Handle*>(h)->owner; }

    static bool isEnvironment(const OXChar* name, size_t len) {
        static const std::u32string prefix = U"OSENV.";
        return std::u32string_view(reinterpret_cast<const char32_t*>(name), len).starts_with(prefix);
    }
    static std::u32string key(const OXChar* name, size_t len) {
        return std::u32string(reinterpret_cast<const char32_t*>(name), len);
    }

    static OXBoolean nameExists(OX_HNDL_S* h, const OXChar* name, size_t len) {
        if (isEnvironment(name, len)) return host()->nameExists(host(), name, len);
        return of(h).names_.contains(key(name, len));
    }
    static OXStatus nameGet(OX_HNDL_S* h, const OXChar* name, size_t len, OXChar* value, size_t cap, size_t* out) {
        if (isEnvironment(name, len)) return host()->nameGet(host(), name, len, value, cap, out);
        auto& names = of(h).names_;
        auto it = names.find(key(name, len));
        if (it == names.end()) return OX_NOT_FOUND;
        if (out) *out = it->second.size();
        if (it->second.size() > cap) return OX_BUFFER_TOO_SMALL;
        std::copy(it->second.begin(), it->second.end(), value);
        return OX_OK;
    }
    static OXStatus nameSet(OX_HNDL_S* h, const OXChar* name, size_t len, const OXChar* value, size_t valueL) {
        if (isEnvironment(name, len)) return OX_INVALID_ARGUMENT;
        of(h).names_[key(name, len)] = std::u32string(reinterpret_cast<const char32_t*>(value), valueL);
        return OX_OK;
    }

    static OX_POOL_S* poolCreate(OX_HNDL_S*, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name) {
        OX_POOL_S* pool = host()->poolCreate(host(), parms, jnl, name);
        if (pool) {
            originals_[pool] = pool->generic.destroy;
            pool->generic.destroy = checkedDestroy;
        }
        return pool;
    }
    static OXStatus checkedDestroy(void* self) {
        auto* pool = static_cast<OX_POOL_S*>(self);
        if (current_ && pool->blocksInUse(pool) != 0) ++current_->poolsDestroyedWithBlocks;
        auto destroy = originals_.at(self);
        originals_.erase(self);
        return destroy(self);
    }

    static inline RegionHost* current_ = nullptr;
    static inline std::map<void*, OXStatus (*)(void*)> originals_;

    Handle handle_{};
    std::map<std::u32string, std::u32string> names_;
};

// The extension loaded once a test over a RegionHost, with OXS3_CUSTOM_REGION unset unless the
// test sets it; every load must give back all of its pool when it is destroyed.
class RegionFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ext = load();
        ASSERT_NE(ext, nullptr);
    }
    void TearDown() override {
        unload();
        EXPECT_EQ(regionHost.poolsDestroyedWithBlocks, 0) << "the extension's pool held blocks when destroyed";
    }

    OXS3Extension* load() { return oxs3(regionHost.handle(), &jnl); }
    void unload() {
        if (ext) s3::oxs3RealDestroy(ext);
        ext = nullptr;
    }
    // Saves the custom regions and reads them back, as the next load of a process would.
    OXS3Extension* reload() {
        unload();
        ext = load();
        return ext;
    }

    OXMemSize extensionBlocks() const { return ext->pool->blocksInUse(ext->pool); }

    ScopedVariable customRegionVariable{"OXS3_CUSTOM_REGION", nullptr};
    RegionHost regionHost;
    TestPool pool;
    OXJournal jnl{};
    OXS3Extension* ext = nullptr;
};

}  // namespace oxtest
