// The logging framework: logger hierarchy and levels, OXLOG_LEVEL / OXLOG_FILE configuration,
// the output line, and rendering of wide format strings.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "../../host/src/logconfig.h"
#include "ox/log.h"
#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::host;
using oxtest::wide;

Logger_S* logger(std::string_view name) {
    std::u32string w = wide(name);
    return host()->log4qel->GetLogger(chars(w), w.size());
}
int levelOf(std::string_view name) { return oxLoggerEffectiveLevel(logger(name)); }
void setLevel(Logger_S* l, int level) { host()->log4qel->SetLevel(l, level); }

// Every test starts from and leaves the configuration of an empty environment.
class Logging : public ::testing::Test {
protected:
    void SetUp() override { oxLogConfigure(nullptr, nullptr); }
    void TearDown() override { oxLogConfigure(nullptr, nullptr); }
};

TEST_F(Logging, LoggersAreOnePerNameWithAncestorsMadeOnFirstUse) {
    Logger_S* leaf = logger("Tree.branch.leaf");
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(std::u32string(reinterpret_cast<const char32_t*>(leaf->name), leaf->nameL), U"Tree.branch.leaf");
    ASSERT_EQ(leaf->parent, logger("Tree.branch"));
    ASSERT_EQ(leaf->parent->parent, logger("Tree"));
    EXPECT_EQ(leaf->parent->parent->parent, nullptr);
    EXPECT_EQ(host()->log4qel->GetLogger(nullptr, 3), nullptr);
    EXPECT_EQ(host()->log4qel->GetLogger(chars(U"x"), 0), nullptr);
}

TEST_F(Logging, LevelComesFromTheNearestAncestorWithOne) {
    Logger_S* child = logger("Inherit.parent.child");
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Warn);
    setLevel(logger("Inherit"), LL_Debug);  // set after the child was made
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Debug);
    setLevel(logger("Inherit.parent"), LL_Error);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Error);
    EXPECT_EQ(levelOf("Inherit.sibling"), LL_Debug);
    setLevel(child, LL_Info);
    const LoggerServices_S* svc = child->logSvcs;
    EXPECT_FALSE(svc->IsEnabled(child, LL_Debug));
    EXPECT_TRUE(svc->IsEnabled(child, LL_Info));
    EXPECT_TRUE(svc->IsEnabled(child, LL_Fatal));
    EXPECT_FALSE(svc->IsEnabled(child, LL_Off));
    EXPECT_FALSE(svc->IsEnabled(nullptr, LL_Fatal));
    setLevel(child, LL_Uninitialized);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Error);
}

TEST_F(Logging, ConcurrentFirstUseMakesOneLoggerPerName) {
    std::vector<std::vector<Logger_S*>> seen(4);
    std::vector<std::thread> threads;
    for (auto& mine : seen)
        threads.emplace_back([&mine] {
            for (int i = 0; i < 200; ++i) mine.push_back(logger("Race.n" + std::to_string(i % 50) + ".leaf"));
        });
    for (auto& th : threads) th.join();
    for (auto& other : seen) EXPECT_EQ(other, seen[0]);
    for (Logger_S* l : seen[0]) ASSERT_NE(l, nullptr);
}

// OXLOG_LEVEL applies to loggers made before and after, replacing levels set at run time.
TEST_F(Logging, LevelTextSetsDefaultAndPerLoggerLevels) {
    const struct { const char* text; const char* logger; int level; } cases[] = {
        {"debug", "Conf.bare", LL_Debug},
        {"warn,App.ox.s3=debug", "App.ox.s3", LL_Debug},
        {"warn,App.ox.s3=debug", "App.ox", LL_Warn},
        {"warn,App.ox.s3=debug", "App.ox.s3x", LL_Warn},
        {" ERROR , Conf.spaced = Info ", "Conf.other", LL_Error},
        {" ERROR , Conf.spaced = Info ", "Conf.spaced", LL_Info},
        {"verbose,Conf.loud=shouting,,=debug,info", "Conf.loud", LL_Info},  // unknown items are skipped
        {"trace,Conf.twice=debug,fatal,Conf.twice=error", "Conf.twice", LL_Error},
        {"trace,Conf.twice=debug,fatal,Conf.twice=error", "Conf.y", LL_Fatal},
        {"off", "Conf.off", LL_Off},
    };
    for (const auto& c : cases) {
        Logger_S* early = logger(c.logger);
        setLevel(early, LL_Trace);
        oxLogConfigure(c.text, nullptr);
        EXPECT_EQ(oxLoggerEffectiveLevel(early), c.level) << c.text << " for " << c.logger;
        EXPECT_EQ(levelOf(std::string(c.logger) + ".later"), c.level) << c.text << " for " << c.logger;
    }
}

// ---- OXLOG_FILE and the line written

void log(const char* name, int level, const char32_t* message, const char* line = "42",
         std::string_view src = "/src/oxext/src/oxs3conn.cpp") {
    Logger_S* l = logger(name);
    l->logSvcs->LogEvent(l, level, 0, 0, 0, line, src.data(), src.size(), reinterpret_cast<const OXChar*>(message), 0);
}

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

class LogOutput : public Logging {
protected:
    void SetUp() override {
        Logging::SetUp();      // starts the framework; a fresh start is LogStartup's business
        unlink(path.c_str());  // a process that crashed with this id may have left it
        oxLogConfigure("info", path.c_str());
    }
    void TearDown() override {
        Logging::TearDown();
        unlink(path.c_str());
    }
    std::vector<std::string> lines() const { return linesOf(path); }
    const std::string path = ::testing::TempDir() + "oxlog_" + std::to_string(getpid()) + ".log";
};

// Run in a new process of its own, where nothing has used the logging framework yet: starting
// it must not undo the configuration that started it.
TEST(LogStartup, FirstConfigurationInAFreshProcessIsKept) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string path = ::testing::TempDir() + "oxlog_first_" + std::to_string(getpid()) + ".log";
    EXPECT_EXIT(
        {
            unlink(path.c_str());
            oxLogConfigure("info", path.c_str());
            log("App.ox.first", LL_Info, U"to the file");
            const bool kept = linesOf(path).size() == 1;
            unlink(path.c_str());
            std::exit(kept ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(LogOutput, LinesHaveTimeLevelLoggerSourceAndMessageAndAreAppended) {
    log("App.ox.s3", LL_Warn, U"Retrying after 503 — größe");
    log("App.ox.s3", LL_Debug, U"hidden");
    oxLogConfigure("info", path.c_str());
    log("App.ox.nosrc", LL_Error, U"plain", nullptr, "");
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 2u);
    static const std::regex shape(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z WARN App\.ox\.s3 \[oxs3conn\.cpp:42\] Retrying after 503 — größe)");
    EXPECT_TRUE(std::regex_match(written[0], shape)) << written[0];
    EXPECT_TRUE(std::regex_match(written[1], std::regex(R"(\S+Z ERROR App\.ox\.nosrc plain)"))) << written[1];
}

TEST_F(LogOutput, LinesFromManyThreadsNeverMix) {
    const std::u32string payload(300, U'x');
    std::vector<std::thread> threads;
    for (const char* name : {"App.ox.thread0", "App.ox.thread1", "App.ox.thread2", "App.ox.thread3"})
        threads.emplace_back([&, name] {
            for (int i = 0; i < 300; ++i) log(name, LL_Info, payload.c_str());
        });
    for (auto& th : threads) th.join();
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 1200u);
    static const std::regex whole(R"(\S+Z INFO App\.ox\.thread\d \[oxs3conn\.cpp:42\] x{300})");
    for (const std::string& line : written) ASSERT_TRUE(std::regex_match(line, whole)) << line;
}

TEST_F(LogOutput, UnopenablePathFallsBackToStderr) {
    oxLogConfigure("info", "/nonexistent-dir/oxlog.log");
    testing::internal::CaptureStderr();
    log("App.ox.fallback", LL_Info, U"to stderr");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("App.ox.fallback [oxs3conn.cpp:42] to stderr\n"), std::string::npos) << err;
}

// ---- LoggerRender

template <class... A>
std::u32string render(const char32_t* fmt, A... args) {
    OXChar buf[256];
    size_t n = LoggerRender(buf, std::size(buf), reinterpret_cast<const OXChar*>(fmt), args...);
    EXPECT_EQ(buf[n], 0u);
    return std::u32string(reinterpret_cast<const char32_t*>(buf), n);
}

TEST(LoggerRender, WideAndUtf8StringsCountCharacters) {
    EXPECT_EQ(render(U"[%s|%ls|%hs]", U"wide", U"also wide", "Grüße, 東京 🌍"), U"[wide|also wide|Grüße, 東京 🌍]");
    EXPECT_EQ(render(U"%hs", "a\xFF\xC3"), U"a\uFFFD\uFFFD");
    EXPECT_EQ(render(U"[%5hs][%-4s][%.2s][%*hs]", "ü", U"ab", U"abcdef", -3, "a"), U"[    ü][ab  ][ab][a  ]");
    const char unterminated[] = {'b', 'u', 'c', 'k', 'e', 't'};
    EXPECT_EQ(render(U"%.*hs/", 3, unterminated), U"buc/");
    EXPECT_EQ(render(U"%hs %s", static_cast<const char*>(nullptr), static_cast<const OXChar*>(nullptr)), U"(null) (null)");
}

TEST(LoggerRender, NumbersOfEveryLengthReachSnprintf) {
    EXPECT_EQ(render(U"%d %u %X %#x", -12, 4000000000u, 0xbeefu, 255u), U"-12 4000000000 BEEF 0xff");
    EXPECT_EQ(render(U"%ld %lu %lld %llu", -5L, 6UL, -9000000000LL, 18446744073709551615ULL),
              U"-5 6 -9000000000 18446744073709551615");
    EXPECT_EQ(render(U"%zu %hd %hhu", size_t{42}, 70000, 257), U"42 4464 1");
    EXPECT_EQ(render(U"[%08.3f] [%-6d] [%+d] [% d] [%5.2e] [%g]", 3.14159, 42, 7, 7, 12345.678, 0.5),
              U"[0003.142] [42    ] [+7] [ 7] [1.23e+04] [0.5]");
    EXPECT_EQ(render(U"[%*d] [%.*d]", 5, 1, 3, 2), U"[    1] [002]");
    int x = 0;
    char pointer[32];
    std::snprintf(pointer, sizeof pointer, "%p", static_cast<void*>(&x));
    EXPECT_EQ(render(U"%p %c%c%lc", static_cast<void*>(&x), 'o', 0x4E16, 0x1F30D), wide(pointer) + U" o世🌍");
    EXPECT_EQ(render(U"100%% done, %y and %"), U"100% done, %y and %");
    EXPECT_EQ(render(U"ab%n", &x), U"ab");
    EXPECT_EQ(x, 0) << "%n writes nothing";
}

TEST(LoggerRender, OutputIsBoundedByTheBuffer) {
    OXChar buf[6];
    EXPECT_EQ(LoggerRender(buf, std::size(buf), chars(U"%hs-%d"), "Grüße", 12345), 5u);
    EXPECT_EQ(std::u32string(reinterpret_cast<const char32_t*>(buf)), U"Grüße");
    OXChar sentinel = 0x41;
    EXPECT_EQ(LoggerRender(&sentinel, 0, chars(U"abc")), 0u);
    EXPECT_EQ(sentinel, 0x41u);
    EXPECT_EQ(LoggerRender(nullptr, 10, chars(U"abc")), 0u);
    EXPECT_EQ(render(U"%99999d|%.99999f", 1, 1.0).size(), 255u);
}

}  // namespace
