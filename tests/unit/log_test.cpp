// The logging framework: logger hierarchy and levels, OXLOG_LEVEL / OXLOG_FILE configuration,
// the output line, and rendering of wide format strings.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
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

std::string nameOf(const Logger_S* l) {
    std::string out;
    for (size_t i = 0; i < l->nameL; ++i) out.push_back(static_cast<char>(l->name[i]));
    return out;
}

// Every test starts from and leaves the configuration of an empty environment.
class Logging : public ::testing::Test {
protected:
    void SetUp() override { oxLogConfigure(nullptr, nullptr); }
    void TearDown() override { oxLogConfigure(nullptr, nullptr); }
};

// ---- hierarchy and levels

class LoggerHierarchy : public Logging {};

TEST_F(LoggerHierarchy, SameNameGivesSameLogger) {
    Logger_S* first = logger("App.ox.same");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(logger("App.ox.same"), first);
    EXPECT_EQ(nameOf(first), "App.ox.same");
}

TEST_F(LoggerHierarchy, AncestorsAreMadeOnFirstUse) {
    Logger_S* leaf = logger("Tree.branch.leaf");
    ASSERT_NE(leaf, nullptr);
    ASSERT_NE(leaf->parent, nullptr);
    EXPECT_EQ(nameOf(leaf->parent), "Tree.branch");
    ASSERT_NE(leaf->parent->parent, nullptr);
    EXPECT_EQ(nameOf(leaf->parent->parent), "Tree");
    EXPECT_EQ(leaf->parent->parent->parent, nullptr);
    EXPECT_EQ(logger("Tree.branch"), leaf->parent);
}

TEST_F(LoggerHierarchy, EmptyNameGivesNoLogger) {
    EXPECT_EQ(host()->log4qel->GetLogger(nullptr, 3), nullptr);
    EXPECT_EQ(host()->log4qel->GetLogger(chars(U"x"), 0), nullptr);
}

TEST_F(LoggerHierarchy, DefaultLevelIsWarn) {
    EXPECT_EQ(levelOf("Defaults.any"), LL_Warn);
    EXPECT_EQ(logger("Defaults.any")->level, LL_Uninitialized);
}

TEST_F(LoggerHierarchy, ChildInheritsAncestorLevelSetLater) {
    Logger_S* child = logger("Inherit.parent.child");
    host()->log4qel->SetLevel(logger("Inherit"), LL_Debug);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Debug);
    EXPECT_EQ(child->ancestorlevel, LL_Debug);
    host()->log4qel->SetLevel(logger("Inherit.parent"), LL_Error);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Error);
    EXPECT_EQ(levelOf("Inherit.sibling"), LL_Debug);
}

TEST_F(LoggerHierarchy, OwnLevelWinsUntilUnset) {
    Logger_S* child = logger("Own.child");
    host()->log4qel->SetLevel(logger("Own"), LL_Info);
    host()->log4qel->SetLevel(child, LL_Trace);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Trace);
    host()->log4qel->SetLevel(child, LL_Uninitialized);
    EXPECT_EQ(oxLoggerEffectiveLevel(child), LL_Info);
}

TEST_F(LoggerHierarchy, IsEnabledFromEffectiveLevelUp) {
    Logger_S* l = logger("Enabled.check");
    host()->log4qel->SetLevel(l, LL_Info);
    const LoggerServices_S* svc = l->logSvcs;
    EXPECT_FALSE(svc->IsEnabled(l, LL_Debug));
    EXPECT_TRUE(svc->IsEnabled(l, LL_Info));
    EXPECT_TRUE(svc->IsEnabled(l, LL_Fatal));
    EXPECT_FALSE(svc->IsEnabled(l, LL_Off));
    host()->log4qel->SetLevel(l, LL_Off);
    EXPECT_FALSE(svc->IsEnabled(l, LL_Fatal));
    EXPECT_FALSE(svc->IsEnabled(nullptr, LL_Fatal));
}

TEST_F(LoggerHierarchy, ConcurrentFirstUseMakesOneLoggerPerName) {
    constexpr int kThreads = 4;
    std::vector<std::vector<Logger_S*>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) seen[t].push_back(logger("Race.n" + std::to_string(i % 50) + ".leaf"));
        });
    for (auto& th : threads) th.join();
    for (int t = 1; t < kThreads; ++t) EXPECT_EQ(seen[t], seen[0]);
    for (Logger_S* l : seen[0]) ASSERT_NE(l, nullptr);
}

// ---- OXLOG_LEVEL

class LevelConfiguration : public Logging {};

TEST_F(LevelConfiguration, BareLevelSetsTheDefault) {
    oxLogConfigure("debug", nullptr);
    EXPECT_EQ(levelOf("Conf.bare"), LL_Debug);
}

TEST_F(LevelConfiguration, PerLoggerLevelsApplyToDescendants) {
    oxLogConfigure("warn,App.ox.s3=debug", nullptr);
    EXPECT_EQ(levelOf("App.ox.s3"), LL_Debug);
    EXPECT_EQ(levelOf("App.ox.s3.sign"), LL_Debug);
    EXPECT_EQ(levelOf("App.ox"), LL_Warn);
    EXPECT_EQ(levelOf("App.ox.s3x"), LL_Warn);
}

TEST_F(LevelConfiguration, AppliesToLoggersMadeBefore) {
    Logger_S* early = logger("Conf.early.one");
    oxLogConfigure("Conf.early=trace", nullptr);
    EXPECT_EQ(oxLoggerEffectiveLevel(early), LL_Trace);
}

TEST_F(LevelConfiguration, NamesIgnoreCaseAndSpaces) {
    oxLogConfigure(" ERROR , Conf.spaced = Info ", nullptr);
    EXPECT_EQ(levelOf("Conf.other"), LL_Error);
    EXPECT_EQ(levelOf("Conf.spaced"), LL_Info);
}

TEST_F(LevelConfiguration, UnknownItemsAreSkipped) {
    oxLogConfigure("verbose,Conf.loud=shouting,,=debug,info", nullptr);
    EXPECT_EQ(levelOf("Conf.loud"), LL_Info);
    EXPECT_EQ(levelOf("Conf.x"), LL_Info);
}

TEST_F(LevelConfiguration, LaterItemsWin) {
    oxLogConfigure("trace,Conf.twice=debug,fatal,Conf.twice=error", nullptr);
    EXPECT_EQ(levelOf("Conf.twice"), LL_Error);
    EXPECT_EQ(levelOf("Conf.y"), LL_Fatal);
}

TEST_F(LevelConfiguration, OffSilencesEverything) {
    oxLogConfigure("off", nullptr);
    Logger_S* l = logger("Conf.off");
    EXPECT_FALSE(l->logSvcs->IsEnabled(l, LL_Fatal));
}

TEST_F(LevelConfiguration, ReconfiguringReplacesRunTimeLevels) {
    Logger_S* l = logger("Conf.runtime");
    host()->log4qel->SetLevel(l, LL_Trace);
    oxLogConfigure("error", nullptr);
    EXPECT_EQ(l->level, LL_Uninitialized);
    EXPECT_EQ(oxLoggerEffectiveLevel(l), LL_Error);
}

// ---- OXLOG_FILE and the line written

class LogOutput : public Logging {
protected:
    void SetUp() override {
        path_ = ::testing::TempDir() + "oxlog_" + std::to_string(getpid()) + ".log";
        unlink(path_.c_str());
        oxLogConfigure("info", path_.c_str());
    }
    void TearDown() override {
        Logging::TearDown();
        unlink(path_.c_str());
    }
    std::vector<std::string> lines() const {
        std::ifstream in(path_);
        std::vector<std::string> out;
        for (std::string line; std::getline(in, line);) out.push_back(line);
        return out;
    }
    static void log(Logger_S* l, int level, const char32_t* message, const char* line = "42",
                    std::string_view src = "/src/oxext/src/oxs3conn.cpp") {
        l->logSvcs->LogEvent(l, level, 0, 0, 0, line, src.data(), src.size(), reinterpret_cast<const OXChar*>(message), 0);
    }
    std::string path_;
};

TEST_F(LogOutput, LineHasTimeLevelLoggerSourceAndMessage) {
    log(logger("App.ox.s3"), LL_Warn, U"Retrying after 503 — größe");
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 1u);
    static const std::regex shape(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z WARN App\.ox\.s3 \[oxs3conn\.cpp:42\] Retrying after 503 — größe)");
    EXPECT_TRUE(std::regex_match(written[0], shape)) << written[0];
}

TEST_F(LogOutput, SourceIsLeftOutWhenNotGiven) {
    log(logger("App.ox.nosrc"), LL_Error, U"plain", nullptr, "");
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_NE(written[0].find(" ERROR App.ox.nosrc plain"), std::string::npos) << written[0];
}

TEST_F(LogOutput, EventsBelowTheLevelAreNotWritten) {
    Logger_S* l = logger("App.ox.quiet");
    log(l, LL_Debug, U"hidden");
    log(l, LL_Info, U"shown");
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_NE(written[0].find("shown"), std::string::npos);
}

TEST_F(LogOutput, FileIsAppendedTo) {
    log(logger("App.ox.append"), LL_Info, U"one");
    oxLogConfigure("info", path_.c_str());
    log(logger("App.ox.append"), LL_Info, U"two");
    EXPECT_EQ(lines().size(), 2u);
}

TEST_F(LogOutput, LinesFromManyThreadsNeverMix) {
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    const std::u32string payload(300, U'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            Logger_S* l = logger("App.ox.thread" + std::to_string(t));
            for (int i = 0; i < kLines; ++i) log(l, LL_Info, payload.c_str());
        });
    for (auto& th : threads) th.join();
    std::vector<std::string> written = lines();
    ASSERT_EQ(written.size(), static_cast<size_t>(kThreads * kLines));
    static const std::regex whole(R"(\S+Z INFO App\.ox\.thread\d \[oxs3conn\.cpp:42\] x{300})");
    for (const std::string& line : written) ASSERT_TRUE(std::regex_match(line, whole)) << line;
}

TEST_F(LogOutput, UnopenablePathFallsBackToStderr) {
    oxLogConfigure("info", "/nonexistent-dir/oxlog.log");
    testing::internal::CaptureStderr();
    log(logger("App.ox.fallback"), LL_Info, U"to stderr");
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

TEST(LoggerRender, WideAndUtf8Strings) {
    EXPECT_EQ(render(U"[%s|%ls|%hs]", U"wide", U"also wide", "utf8"), U"[wide|also wide|utf8]");
    EXPECT_EQ(render(U"%hs", "Grüße, Москва, 東京 🌍"), U"Grüße, Москва, 東京 🌍");
}

TEST(LoggerRender, InvalidUtf8BecomesReplacementCharacters) {
    EXPECT_EQ(render(U"%hs", "a\xFF\xC3"), U"a\uFFFD\uFFFD");
}

TEST(LoggerRender, StringWidthAndPrecisionCountCharacters) {
    EXPECT_EQ(render(U"[%5hs]", "ü"), U"[    ü]");
    EXPECT_EQ(render(U"[%-4s]", U"ab"), U"[ab  ]");
    EXPECT_EQ(render(U"[%.2s]", U"abcdef"), U"[ab]");
    EXPECT_EQ(render(U"[%*hs]", -3, "a"), U"[a  ]");
}

TEST(LoggerRender, Utf8PrecisionLimitsBytesRead) {
    const char unterminated[] = {'b', 'u', 'c', 'k', 'e', 't'};
    EXPECT_EQ(render(U"%.*hs/", 3, unterminated), U"buc/");
}

TEST(LoggerRender, NullStrings) { EXPECT_EQ(render(U"%hs %s", static_cast<const char*>(nullptr), static_cast<const OXChar*>(nullptr)), U"(null) (null)"); }

TEST(LoggerRender, IntegersOfEveryLength) {
    EXPECT_EQ(render(U"%d %i %u", -12, 34, 4000000000u), U"-12 34 4000000000");
    EXPECT_EQ(render(U"%x %X %#x", 0xbeefu, 0xbeefu, 255u), U"beef BEEF 0xff");
    EXPECT_EQ(render(U"%ld %lu %lx", -5L, 6UL, 0xabcUL), U"-5 6 abc");
    EXPECT_EQ(render(U"%lld %llu %llx", -9000000000LL, 18446744073709551615ULL, 0x1234567890ULL),
              U"-9000000000 18446744073709551615 1234567890");
    EXPECT_EQ(render(U"%zu %hd %hhu", size_t{42}, 70000, 257), U"42 4464 1");
}

TEST(LoggerRender, FlagsWidthAndPrecisionReachSnprintf) {
    EXPECT_EQ(render(U"[%08.3f] [%-6d] [%+d] [% d] [%5.2e] [%g]", 3.14159, 42, 7, 7, 12345.678, 0.5),
              U"[0003.142] [42    ] [+7] [ 7] [1.23e+04] [0.5]");
    EXPECT_EQ(render(U"[%*d] [%.*d]", 5, 1, 3, 2), U"[    1] [002]");
    EXPECT_EQ(render(U"%08x", 0x8abfc801u), U"8abfc801");
}

TEST(LoggerRender, PointersAndCharacters) {
    int x = 0;
    char expected[32];
    std::snprintf(expected, sizeof expected, "%p", static_cast<void*>(&x));
    EXPECT_EQ(render(U"%p", static_cast<void*>(&x)), wide(expected));
    EXPECT_EQ(render(U"%c%c%lc", 'o', 0x4E16, 0x1F30D), U"o世🌍");
}

TEST(LoggerRender, PercentAndUnknownConversionsStayAsWritten) {
    EXPECT_EQ(render(U"100%% done"), U"100% done");
    EXPECT_EQ(render(U"%y and %"), U"%y and %");
}

TEST(LoggerRender, PercentNWritesNothing) {
    int target = 7;
    EXPECT_EQ(render(U"ab%n", &target), U"ab");
    EXPECT_EQ(target, 7);
}

TEST(LoggerRender, TruncatesToTheBufferAndTerminates) {
    OXChar buf[6];
    size_t n = LoggerRender(buf, std::size(buf), chars(U"%hs-%d"), "Grüße", 12345);
    EXPECT_EQ(n, 5u);
    EXPECT_EQ(std::u32string(reinterpret_cast<const char32_t*>(buf)), U"Grüße");
}

TEST(LoggerRender, ZeroCapacityWritesNothing) {
    OXChar sentinel = 0x41;
    EXPECT_EQ(LoggerRender(&sentinel, 0, chars(U"abc")), 0u);
    EXPECT_EQ(sentinel, 0x41u);
    EXPECT_EQ(LoggerRender(nullptr, 10, chars(U"abc")), 0u);
}

TEST(LoggerRender, HugeWidthIsBoundedSafely) {
    std::u32string out = render(U"%99999d|%.99999f", 1, 1.0);
    EXPECT_EQ(out.size(), 255u);
}

}  // namespace
