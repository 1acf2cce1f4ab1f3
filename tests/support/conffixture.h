// A controlled world for the settings tests: the extension loaded, a temporary home directory
// in place of the user's, every environment variable the settings read saved and unset, and
// the extension's log lines captured.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ox/status.h"
#include "oxs3.h"
#include "oxs3areas.h"
#include "oxs3conf.h"
#include "testhost.h"

namespace oxtest {

// The variables the settings code reads; tests set only these, and each test starts without them.
inline constexpr const char* kSettingsVariables[] = {
    "AWS_CONFIG_FILE",       "AWS_SHARED_CREDENTIALS_FILE", "AWS_ACCESS_KEY_ID",
    "AWS_SECRET_ACCESS_KEY", "AWS_SESSION_TOKEN",           "AWS_DEFAULT_REGION",
    "AWS_DEFAULT_PROFILE",   "AWS_ROLE_ARN",                "AWS_WEB_IDENTITY_TOKEN_FILE",
    "QEL_USE_AWS_SERVICE_ACCOUNT",
};

class ScopedEnvironment {
public:
    ScopedEnvironment() {
        for (const char* name : kSettingsVariables) {
            const char* value = getenv(name);
            saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
            unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

class TempDirectory {
public:
    TempDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "oxs3conf-XXXXXX").string();
        if (mkdtemp(pattern.data())) path_ = pattern;
    }
    ~TempDirectory() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(std::string_view relative) const { return path_ + "/" + std::string(relative); }

    // Writes a file below the directory, making its parents; returns its full path.
    std::string write(std::string_view relative, std::string_view contents) const {
        std::string full = *this / relative;
        std::filesystem::create_directories(std::filesystem::path(full).parent_path());
        std::ofstream(full, std::ios::binary) << contents;
        return full;
    }
    std::string makeDirectory(std::string_view relative) const {
        std::string full = *this / relative;
        std::filesystem::create_directories(full);
        return full;
    }

private:
    std::string path_;
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
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<std::string>& lines() const { return lines_; }
    bool contains(std::string_view line) const {
        for (const auto& l : lines_)
            if (l == line) return true;
        return false;
    }
    bool mentions(std::string_view part) const {
        for (const auto& l : lines_)
            if (l.find(part) != std::string::npos) return true;
        return false;
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
    if (!s) return std::nullopt;
    return std::string(s->stg, s->len);
}

inline void release(auto*& instance) {
    if (instance) reinterpret_cast<OXInstance*>(instance)->destroy(instance);
    instance = nullptr;
}

// The extension loaded over the real host, a temporary home and a clean environment.
class ConfigFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(home.path().empty());
        ext = oxs3(oxHostInit(), &jnl);
        ASSERT_NE(ext, nullptr);
        extBlocks = ext->pool->blocksInUse(ext->pool);
        s3::overrideHomeDirectory(home.path().c_str());
    }
    void TearDown() override {
        s3::useHomeDirectoryFromPasswordDatabase();
        if (!ext) return;
        EXPECT_EQ(ext->pool->blocksInUse(ext->pool), extBlocks) << "the extension's pool grew";
        s3::oxs3RealDestroy(ext);
    }

    void withoutHome() { s3::overrideHomeDirectory(nullptr); }

    // A file under the home directory, e.g. ".aws/config".
    std::string writeHome(std::string_view relative, std::string_view contents) { return home.write(relative, contents); }

    ScopedEnvironment env;
    TempDirectory home;
    TestPool pool;
    OXJournal jnl{};
    OXS3Extension* ext = nullptr;
    OXMemSize extBlocks = 0;
};

}  // namespace oxtest
