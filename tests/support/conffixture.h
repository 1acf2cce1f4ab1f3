// The extension loaded in a controlled world: a host handle whose process-wide names are private
// to the test (the real environment stays behind "OSENV." names), every environment variable the
// extension reads saved and unset, a temporary home directory, a log capture, and a check that
// every extension pool is empty when destroyed.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "oxs3areas.h"
#include "oxs3conf.h"
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
    void set(const char* value) { value ? setenv(name_.c_str(), value, 1) : unsetenv(name_.c_str()); }

private:
    std::string name_;
    std::optional<std::string> saved_;
};

// Every variable the extension reads (the AWS settings, the custom regions) unset for a scope;
// set() changes any of them (null unsets).
class ScopedEnvironment {
public:
    ScopedEnvironment() {
        for (const char* name : {"AWS_CONFIG_FILE", "AWS_SHARED_CREDENTIALS_FILE", "AWS_ACCESS_KEY_ID",
                                 "AWS_SECRET_ACCESS_KEY", "AWS_SESSION_TOKEN", "AWS_DEFAULT_REGION",
                                 "AWS_DEFAULT_PROFILE", "AWS_ROLE_ARN", "AWS_WEB_IDENTITY_TOKEN_FILE",
                                 "QEL_USE_AWS_SERVICE_ACCOUNT", "OXS3_CUSTOM_REGION"})
            saved_.emplace_back(name, nullptr);
    }
    static void set(const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); }
    static void set(const char* name, const std::string& value) { set(name, value.c_str()); }

private:
    std::list<ScopedVariable> saved_;
};

// Every line the logger renders, at every level, while the capture lives.
class LogCapture {
public:
    explicit LogCapture(Logger_S* logger) : logger_(logger), saved_(logger->logSvcs) {
        current_ = this;
        logger_->logSvcs = &services_;
    }
    ~LogCapture() {
        logger_->logSvcs = saved_;
        current_ = nullptr;
    }
    const std::vector<std::string>& lines() const { return lines_; }
    bool contains(std::string_view line) const { return std::ranges::find(lines_, line) != lines_.end(); }
    bool mentions(std::string_view part) const {
        return std::ranges::any_of(lines_, [&](const std::string& l) { return l.find(part) != l.npos; });
    }

private:
    static OXBoolean enabled(Logger_S*, int) { return OX_TRUE; }
    static OXStatus record(Logger_S*, int, int, int, int, const char*, const char*, size_t, const OXChar* message,
                           int) {
        std::string line;
        for (const OXChar* c = message; *c; ++c) line.push_back(*c < 0x80 ? static_cast<char>(*c) : '?');
        if (current_) current_->lines_.push_back(std::move(line));
        return OX_OK;
    }

    static inline LogCapture* current_ = nullptr;
    static inline const LoggerServices_S services_{enabled, record};
    Logger_S* logger_;
    const LoggerServices_S* saved_;
    std::vector<std::string> lines_;
};

inline std::optional<std::string> textOf(const OXU8String* s) {
    return s ? std::optional<std::string>(std::string(s->stg, s->len)) : std::nullopt;
}

inline void release(auto*& instance) {
    if (instance) reinterpret_cast<OXInstance*>(instance)->destroy(instance);
    instance = nullptr;
}

// The real host but for process-wide names, private to one instance at a time (what one load
// saves is seen by the next load of the same test only), and pool destroys, which count pools
// still holding blocks. The EC2 answer is stored as "no", so no load probes for it.
class PrivateHost {
public:
    PrivateHost() : handle_(*host()) {
        handle_.nameExists = [](OX_HNDL_S*, const OXChar* name, size_t len) -> OXBoolean {
            return isEnvironment(name, len) ? host()->nameExists(host(), name, len) : saved().contains(key(name, len));
        };
        handle_.nameGet = [](OX_HNDL_S*, const OXChar* name, size_t len, OXChar* value, size_t cap, size_t* out) {
            if (isEnvironment(name, len)) return host()->nameGet(host(), name, len, value, cap, out);
            auto it = saved().find(key(name, len));
            if (it == saved().end()) return OXStatus(OX_NOT_FOUND);
            if (out) *out = it->second.size();
            if (it->second.size() > cap) return OXStatus(OX_BUFFER_TOO_SMALL);
            std::copy(it->second.begin(), it->second.end(), value);
            return OXStatus(OX_OK);
        };
        handle_.nameSet = [](OX_HNDL_S*, const OXChar* name, size_t len, const OXChar* value, size_t valueL) {
            if (isEnvironment(name, len)) return OXStatus(OX_INVALID_ARGUMENT);
            saved()[key(name, len)] = key(value, valueL);
            return OXStatus(OX_OK);
        };
        handle_.poolCreate = [](OX_HNDL_S*, const OXPoolCreateParms* parms, OXJournal* jnl, const char* name) {
            OX_POOL_S* pool = host()->poolCreate(host(), parms, jnl, name);
            if (pool) originals_[pool] = std::exchange(pool->generic.destroy, checkedDestroy);
            return pool;
        };
        current_ = this;
        names[U"oxs3.isEC2Host"] = U"FALSE";
    }
    ~PrivateHost() { current_ = nullptr; }
    OX_HNDL_S* handle() { return &handle_; }

    std::map<std::u32string, std::u32string> names;
    int poolsDestroyedWithBlocks = 0;

private:
    static std::map<std::u32string, std::u32string>& saved() { return current_->names; }
    static std::u32string key(const OXChar* name, size_t len) {
        return std::u32string(reinterpret_cast<const char32_t*>(name), len);
    }
    static bool isEnvironment(const OXChar* name, size_t len) { return key(name, len).starts_with(U"OSENV."); }
    static OXStatus checkedDestroy(void* self) {
        auto* pool = static_cast<OX_POOL_S*>(self);
        if (current_ && pool->blocksInUse(pool) != 0) ++current_->poolsDestroyedWithBlocks;
        auto destroy = originals_.at(self);
        originals_.erase(self);
        return destroy(self);
    }

    static inline PrivateHost* current_ = nullptr;
    static inline std::map<void*, OXStatus (*)(void*)> originals_;
    OX_HNDL_S handle_;
};

// The extension loaded once a test over a PrivateHost with a temporary home directory; every load
// must give back all of its pool when it is destroyed.
class ExtensionFixture : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "oxs3conf-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        home = pattern;
        s3::overrideHomeDirectory(home.c_str());
        ASSERT_NE(ext = load(), nullptr);
    }
    void TearDown() override {
        unload();
        s3::useHomeDirectoryFromPasswordDatabase();
        if (!home.empty()) std::filesystem::remove_all(home);
        EXPECT_EQ(privateHost.poolsDestroyedWithBlocks, 0) << "the extension's pool held blocks when destroyed";
    }

    OXS3Extension* load() { return oxs3(privateHost.handle(), &jnl); }
    void unload() {
        if (ext) s3::oxs3RealDestroy(ext);
        ext = nullptr;
    }
    OXMemSize extensionBlocks() const { return ext->pool->blocksInUse(ext->pool); }

    void withoutHome() { s3::overrideHomeDirectory(nullptr); }
    // A path below the home directory; write makes its parents and returns it.
    std::string at(std::string_view relative) const { return home + "/" + std::string(relative); }
    std::string write(std::string_view relative, std::string_view contents) const {
        std::filesystem::create_directories(std::filesystem::path(at(relative)).parent_path());
        std::ofstream(at(relative), std::ios::binary) << contents;
        return at(relative);
    }

    ScopedEnvironment env;
    std::string home;
    PrivateHost privateHost;
    TestPool pool;
    OXJournal jnl{};
    OXS3Extension* ext = nullptr;
};

}  // namespace oxtest
