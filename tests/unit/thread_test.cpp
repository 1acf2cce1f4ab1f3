// Host threads: start and exit events, the status main returns, waiting, names, joining.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::chars;
using oxtest::host;

constexpr int64_t kPatienceMs = 10000;

struct EventDestroy {
    void operator()(OX_EVENT_S* ev) const { ev->generic.destroy(ev); }
};
using EventPtr = std::unique_ptr<OX_EVENT_S, EventDestroy>;

EventPtr makeEvent() {
    OXEventCreateParms parms{};
    return EventPtr(host()->eventCreate(host(), &parms, nullptr, "thread test event"));
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
    if (work->go) work->go->wait(work->go, OX_WAIT_FOREVER);
    if (work->counter) ++*work->counter;
    return work->result;
}

class Threads : public ::testing::Test {
protected:
    // An empty name is passed as no name at all.
    OX_THREAD_S* start(Work& work, const std::u32string& name = U"worker", OX_EVENT_S* entrE = nullptr,
                       OX_EVENT_S* exitE = nullptr, OXMemSize stackSize = 0) {
        OXThreadCreateParms parms{};
        parms.main = workMain;
        parms.parms = &work;
        parms.entrE = entrE;
        parms.exitE = exitE;
        parms.stackSize = stackSize;
        return host()->threadCreate(host(), &parms, nullptr, name.empty() ? nullptr : chars(name), name.size());
    }
    static void finish(OX_THREAD_S* t) { ASSERT_EQ(t->generic.destroy(t), OX_OK); }
};

TEST_F(Threads, PostsEntryWhenRunningAndExitAfterMainReturns) {
    EventPtr go = makeEvent(), entry = makeEvent(), exit = makeEvent();
    Work work;
    work.go = go.get();
    OX_THREAD_S* t = start(work, U"worker", entry.get(), exit.get());
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->oxtExitH, exit.get());
    ASSERT_EQ(entry->wait(entry.get(), kPatienceMs), OX_OK);
    EXPECT_FALSE(exit->test(exit.get()));
    EXPECT_FALSE(t->done(t));
    go->post(go.get());
    ASSERT_EQ(exit->wait(exit.get(), kPatienceMs), OX_OK);
    EXPECT_TRUE(t->done(t));
    EXPECT_TRUE(t->doneflag);
    finish(t);
}

TEST_F(Threads, HasItsOwnExitEventWhenNoneIsGiven) {
    Work work;
    OX_THREAD_S* t = start(work);
    ASSERT_NE(t, nullptr);
    ASSERT_NE(t->oxtExitH, nullptr);
    EXPECT_EQ(t->oxtExitH->wait(t->oxtExitH, kPatienceMs), OX_OK);
    EXPECT_TRUE(t->done(t));
    finish(t);
}

TEST_F(Threads, ReportsWhatMainReturned) {
    Work work;
    work.result = OX_NOT_FOUND;
    OX_THREAD_S* t = start(work);
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->wait(t, kPatienceMs), OX_OK);
    EXPECT_EQ(t->status, OX_NOT_FOUND);
    EXPECT_EQ(work.seenSelf, t);
    finish(t);
}

TEST_F(Threads, WaitTimesOutWhileMainRuns) {
    EventPtr go = makeEvent();
    Work work;
    work.go = go.get();
    OX_THREAD_S* t = start(work);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->wait(t, 20), OX_TIMED_OUT);
    EXPECT_FALSE(t->doneflag);
    go->post(go.get());
    EXPECT_EQ(t->wait(t, OX_WAIT_FOREVER), OX_OK);
    finish(t);
}

TEST_F(Threads, WaitStillWorksWhenTheCallerClearsItsExitEvent) {
    EventPtr exit = makeEvent();
    Work work;
    OX_THREAD_S* t = start(work, U"worker", nullptr, exit.get());
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(exit->wait(exit.get(), kPatienceMs), OX_OK);
    exit->clear(exit.get());
    EXPECT_EQ(t->wait(t, 0), OX_OK);
    finish(t);
}

TEST_F(Threads, OsNameIsTheNameCutToFifteenBytes) {
    Work work;
    OX_THREAD_S* t = start(work, U"oxs3-transfer-worker-12");
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->wait(t, kPatienceMs), OX_OK);
    EXPECT_STREQ(work.osName, "oxs3-transfer-w");
    EXPECT_STREQ(t->generic.name, "oxs3-transfer-worker-12");
    finish(t);
}

TEST_F(Threads, OsNameIsNeverCutInsideACharacter) {
    Work work;
    OX_THREAD_S* t = start(work, U"abcdefghijklmnü");  // the ü would take bytes 15 and 16
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->wait(t, kPatienceMs), OX_OK);
    EXPECT_STREQ(work.osName, "abcdefghijklmn");
    EXPECT_STREQ(t->generic.name, "abcdefghijklmnü");
    finish(t);
}

TEST_F(Threads, DestroyJoinsARunningThread) {
    std::atomic<int> finished{0};
    Work work;
    work.counter = &finished;
    EventPtr go = makeEvent();
    work.go = go.get();
    OX_THREAD_S* t = start(work);
    ASSERT_NE(t, nullptr);
    std::thread poster([&] { go->post(go.get()); });
    finish(t);
    EXPECT_EQ(finished.load(), 1);
    poster.join();
}

TEST_F(Threads, ManyThreadsRunToCompletion) {
    std::atomic<int> finished{0};
    std::vector<Work> works(16);
    std::vector<OX_THREAD_S*> threads;
    for (Work& w : works) {
        w.counter = &finished;
        threads.push_back(start(w, U"many", nullptr, nullptr, 64 * 1024));
        ASSERT_NE(threads.back(), nullptr);
    }
    for (OX_THREAD_S* t : threads) finish(t);
    EXPECT_EQ(finished.load(), 16);
}

TEST_F(Threads, TinyStackIsRaisedToTheMinimum) {
    Work work;
    OX_THREAD_S* t = start(work, U"tiny", nullptr, nullptr, 1);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->wait(t, kPatienceMs), OX_OK);
    finish(t);
}

TEST_F(Threads, MissingMainIsRejectedAndJournalled) {
    OXThreadCreateParms parms{};
    OXJournal jnl{};
    std::u32string name = U"nothing";
    EXPECT_EQ(host()->threadCreate(host(), &parms, &jnl, chars(name), name.size()), nullptr);
    ASSERT_EQ(jnl.count, 1u);
    EXPECT_EQ(jnl.entries[0].status, OX_INVALID_ARGUMENT);
    EXPECT_EQ(host()->threadCreate(host(), nullptr, nullptr, chars(name), name.size()), nullptr);
}

TEST_F(Threads, UnnamedThreadGetsADefaultName) {
    Work work;
    OX_THREAD_S* t = start(work, U"");
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->wait(t, kPatienceMs), OX_OK);
    EXPECT_STRNE(t->generic.name, "");
    finish(t);
}

}  // namespace
