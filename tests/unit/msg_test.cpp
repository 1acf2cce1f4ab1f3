// The message catalogue: a sentence for every host status, module tables, formatting.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ox/msg.h"
#include "ox/status.h"

namespace {

const auto kRegion = static_cast<OXStatus>(0x8abfc801);
const auto kPath = static_cast<OXStatus>(0x8abfc805);

std::string formatted(OXStatus number) {
    char buf[512];
    oxMessageFormat(number, buf, sizeof buf);
    return buf;
}

// Every "OX_S(0x...)" value written in status.h, so a status added there without a text fails.
std::vector<OXStatus> statusesDeclaredInHeader() {
    std::string here = __FILE__;
    std::ifstream in(here.substr(0, here.rfind("tests/unit/")) + "host/include/ox/status.h");
    std::stringstream text;
    text << in.rdbuf();
    std::string body = text.str();
    std::vector<OXStatus> found;
    static const std::regex value(R"(OX_S\((0x[0-9a-fA-F]+)\))");
    for (auto it = std::sregex_iterator(body.begin(), body.end(), value); it != std::sregex_iterator(); ++it)
        found.push_back(static_cast<OXStatus>(std::stoul((*it)[1].str(), nullptr, 16)));
    return found;
}

TEST(MessageCatalogue, EveryStatusInTheHeaderHasItsOwnSentence) {
    std::vector<OXStatus> declared = statusesDeclaredInHeader();
    ASSERT_GE(declared.size(), 80u) << "status.h not found next to the tests";
    declared.push_back(OX_OK);
    std::set<std::string> seen;
    for (OXStatus s : declared) {
        const std::string t = oxMessageText(s) ? oxMessageText(s) : "";
        // A sentence: starts with a capital, ends with a full stop, says more than a word or two.
        EXPECT_TRUE(t.size() >= 12 && std::isupper(static_cast<unsigned char>(t.front())) && t.back() == '.')
            << std::hex << static_cast<uint32_t>(s) << ": \"" << t << '"';
        EXPECT_TRUE(t.empty() || seen.insert(t).second) << "shared text: " << t;
    }
    EXPECT_EQ(oxMessageText(kRegion), nullptr);
}

TEST(MessageFormat, GivesSentenceAndNumberAndFitsTheBuffer) {
    EXPECT_EQ(formatted(OX_NOT_FOUND), std::string(oxMessageText(OX_NOT_FOUND)) + " (0x803fc00a)");
    EXPECT_EQ(formatted(kRegion), "Unknown status 0x8abfc801");
    EXPECT_EQ(formatted(static_cast<OXStatus>(7)), "Unknown status 0x00000007");
    char buf[8];
    EXPECT_EQ(oxMessageFormat(kRegion, buf, sizeof buf), std::string("Unknown status 0x8abfc801").size());
    EXPECT_STREQ(buf, "Unknown");
    EXPECT_EQ(oxMessageFormat(OX_NOT_FOUND, nullptr, 0), formatted(OX_NOT_FOUND).size());
}

class ModuleMessages : public ::testing::Test {
protected:
    static constexpr OXMessage kTable[] = {{kRegion, "The region is not known."}, {kPath, "The path is wrong."}};
    static constexpr OXMessage kOverride[] = {{OX_NOT_FOUND, "Something else."}};
    void TearDown() override {
        oxMessageUnregister(kTable);
        oxMessageUnregister(kOverride);
    }
};

TEST_F(ModuleMessages, RegisteredTableGivesItsTextsUntilUnregisteredButNeverOverridesTheHost) {
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);
    ASSERT_EQ(oxMessageRegister(kTable, std::size(kTable)), OX_OK);  // a module loaded twice
    ASSERT_EQ(oxMessageRegister(kOverride, 1), OX_OK);
    EXPECT_STREQ(oxMessageText(kPath), "The path is wrong.");
    EXPECT_EQ(formatted(kRegion), "The region is not known. (0x8abfc801)");
    EXPECT_STRNE(oxMessageText(OX_NOT_FOUND), "Something else.");
    oxMessageUnregister(kTable);
    EXPECT_STREQ(oxMessageText(kPath), "The path is wrong.") << "still registered once";
    oxMessageUnregister(kTable);
    EXPECT_EQ(oxMessageText(kRegion), nullptr);
    EXPECT_EQ(oxMessageRegister(nullptr, 3), OX_INVALID_ARGUMENT);
}

// Every thread does a fixed amount of work: the catalogue's lock may let readers hold off the
// writer, and the test must still end.
TEST_F(ModuleMessages, LookupsStaySafeWhileTablesComeAndGo) {
    std::atomic<int> wrongTexts{0};
    std::vector<std::thread> threads;
    threads.emplace_back([] {
        for (int i = 0; i < 2000; ++i) {
            oxMessageRegister(kTable, std::size(kTable));
            oxMessageUnregister(kTable);
        }
    });
    for (int r = 0; r < 3; ++r)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                const char* text = oxMessageText(kRegion);
                wrongTexts += (text && std::string(text) != kTable[0].text) || !oxMessageText(OX_NO_MEMORY);
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrongTexts.load(), 0);
}

}  // namespace
