// Host threads: start and exit events, the status main returns, waiting, names, joining.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::host;

constexpr int64_t kPatienceMs = 10000;

OX_EVENT_S* makeEvent() {
    OXEventCreateParms parms{};
    return host()->eventCreate(host(), &parms, nullptr, "thread test event");
}

// What a test thread is told and what it reports back.
struct Work {
    OX_EVENT_S* go = nullptr;  // main waits for it when given
    OXStatus result = OX_OK;
    OX_THREAD_S* seenSelf = nullptr;
    char osName[32] = "";
    std::atomic<int>* counter = nullptr;
};

OXStatus workMain(OX_THREAD_S* self, void* parms) {
    auto* work = static_cast<Work*>(parms);
    work->seenSelf = self;
    pthread_getname_np(pthread_self(), work->osName, sizeof work->osName);
    if (work->go) work->go->wait(work->go, kPatienceMs);
    if (work->counter) ++*work->counter;
    return work->result;
}

// An empty name is passed as no name at all.
OX_THREAD_S* start(Work& work, const std::u32string& name, OXMemSize stackSize = 0, OX_EVENT_S* entrE = nullptr,
                   OX_EVENT_S* exitE = nullptr) {
    OXThreadCreateParms parms{};
    parms.main = workMain;
    parms.parms = &work;
    parms.entrE = entrE;
    parms.exitE = exitE;
    parms.stackSize = stackSize;
    return host()->threadCreate(host(), &parms, nullptr, name.empty() ? nullptr : chars(name), name.size());
}

TEST(Threads, PostEntryThenExitAndReportWhatMainReturned) {
    OX_EVENT_S *go = makeEvent(), *entry = makeEvent(), *exit = makeEvent();
    Work work;
    work.go = go;
    work.result = OX_NOT_FOUND;
    OX_THREAD_S* t = start(work, U"worker", 0, entry, exit);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->oxtExitH, exit);
    ASSERT_EQ(entry->wait(entry, kPatienceMs), OX_OK);
    EXPECT_EQ(t->wait(t, 20), OX_TIMED_OUT);
    EXPECT_FALSE(exit->test(exit) || t->done(t));
    go->post(go);
    ASSERT_EQ(exit->wait(exit, kPatienceMs), OX_OK);
    EXPECT_TRUE(t->done(t) && t->doneflag);
    EXPECT_EQ(t->status, OX_NOT_FOUND);
    EXPECT_EQ(work.seenSelf, t);
    exit->clear(exit);  // the caller's event is the caller's to clear
    EXPECT_EQ(t->wait(t, 0), OX_OK);
    ASSERT_EQ(t->generic.destroy(t), OX_OK);
    for (OX_EVENT_S* e : {go, entry, exit}) e->generic.destroy(e);
}

// The OS name is cut to fifteen bytes, never inside a character; a thread without a name or
// an exit event gets its own, and a tiny stack is raised to what a thread needs.
TEST(Threads, NamesAndDefaults) {
    const std::tuple<std::u32string, const char*, const char*> cases[] = {
        {U"oxs3-transfer-worker-12", "oxs3-transfer-w", "oxs3-transfer-worker-12"},
        {U"abcdefghijklmnü", "abcdefghijklmn", "abcdefghijklmnü"},  // ü would take bytes 15 and 16
        {U"", nullptr, nullptr},
    };
    for (const auto& [name, osName, fullName] : cases) {
        Work work;
        OX_THREAD_S* t = start(work, name, 1);
        ASSERT_TRUE(t && t->oxtExitH);
        ASSERT_EQ(t->oxtExitH->wait(t->oxtExitH, kPatienceMs), OX_OK);
        EXPECT_TRUE(t->done(t));
        if (osName) {
            EXPECT_STREQ(work.osName, osName);
            EXPECT_STREQ(t->generic.name, fullName);
        }
        EXPECT_STRNE(t->generic.name, "");
        ASSERT_EQ(t->generic.destroy(t), OX_OK);
    }
}

TEST(Threads, DestroyJoinsRunningThreads) {
    std::atomic<int> finished{0};
    OX_EVENT_S* go = makeEvent();
    std::vector<Work> works(16);
    std::vector<OX_THREAD_S*> threads;
    for (Work& w : works) {
        w.counter = &finished;
        w.go = go;
        threads.push_back(start(w, U"many", 64 * 1024));
        ASSERT_NE(threads.back(), nullptr);
    }
    std::thread poster([&] { go->post(go); });
    for (OX_THREAD_S* t : threads) ASSERT_EQ(t->generic.destroy(t), OX_OK);
    EXPECT_EQ(finished.load(), 16);
    poster.join();
    go->generic.destroy(go);
}

TEST(Threads, MissingMainIsRejectedAndJournalled) {
    OXThreadCreateParms parms{};
    OXJournal jnl{};
    EXPECT_EQ(host()->threadCreate(host(), &parms, &jnl, chars(U"nothing"), 7), nullptr);
    ASSERT_EQ(jnl.count, 1u);
    EXPECT_EQ(jnl.entries[0].status, OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->threadCreate(host(), nullptr, nullptr, chars(U"nothing"), 7), nullptr);
}

}  // namespace
