// Locks and events across threads. Every wait is bounded and no test needs the scheduler to give
// a thread its turn, so a lock that lets a stream of readers hold off a writer still finishes.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::host;

constexpr int64_t kPatienceMs = 10000;  // only reached when something is broken

OX_LOCK_S* makeLock(bool rw, bool ownIt = false) {
    OXLockCreateParms parms{};
    parms.ownIt = ownIt ? OX_TRUE : OX_FALSE;
    parms.rw = rw ? OX_TRUE : OX_FALSE;
    return host()->lockCreate(host(), &parms, nullptr, "test lock");
}

OX_EVENT_S* makeEvent(bool posted = false) {
    OXEventCreateParms parms{};
    parms.postIt = posted ? OX_TRUE : OX_FALSE;
    return host()->eventCreate(host(), &parms, nullptr, "test event");
}

TEST(Locks, HeldLockKeepsOthersOutUntilReleasedUnlessBothRead) {
    const struct { const char* what; bool rw, ownIt, holdShared, otherShared, keptOut; } cases[] = {
        {"readers share a reader-writer lock", true, false, true, true, false},
        {"writer held, reader waits", true, false, false, true, true},
        {"reader held, writer waits", true, false, true, false, true},
        {"created owned, writer waits", false, true, false, false, true},
        {"shared hold of a plain lock is exclusive", false, false, true, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        OX_LOCK_S* l = makeLock(c.rw, c.ownIt);
        OX_EVENT_S* otherIn = makeEvent();
        ASSERT_TRUE(l && otherIn);
        if (!c.ownIt) {
            ASSERT_EQ(c.holdShared ? l->getShared(l) : l->get(l), OX_OK);
        }
        std::thread other([&] {
            c.otherShared ? l->getShared(l) : l->get(l);
            otherIn->post(otherIn);
            l->release(l);
        });
        if (c.keptOut) {
            // A correct lock can never fail this; a broken one lets the other thread in at once.
            EXPECT_EQ(otherIn->wait(otherIn, 100), OX_TIMED_OUT) << "got in while the lock was held";
            l->release(l);
        }
        EXPECT_EQ(otherIn->wait(otherIn, kPatienceMs), OX_OK);
        if (!c.keptOut) l->release(l);
        other.join();
        l->generic.destroy(l);
        otherIn->generic.destroy(otherIn);
    }
}

// Writers keep a == b between holds; a reader that sees them differ got in mid-write. Every
// thread does a fixed amount of work, so the test ends however the lock orders them.
TEST(Locks, ContendedHoldsNeverOverlapAWrite) {
    for (bool rw : {false, true}) {
        OX_LOCK_S* l = makeLock(rw);
        long a = 0, b = 0;
        std::atomic<long> inconsistent{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < 5000; ++i) {
                    if (t % 2 == 0) {
                        l->get(l);
                        ++a;
                        if (i % 64 == 0) std::this_thread::yield();
                        ++b;
                    } else {
                        l->getShared(l);
                        if (a != b) ++inconsistent;
                    }
                    l->release(l);
                }
            });
        for (auto& th : threads) th.join();
        EXPECT_EQ(inconsistent.load(), 0) << (rw ? "reader-writer lock" : "plain lock");
        EXPECT_EQ(a + b, 20000) << (rw ? "reader-writer lock" : "plain lock");
        l->generic.destroy(l);
    }
}

TEST(Events, StayPostedUntilClearedAndMirrorItInDone) {
    OX_EVENT_S* e = makeEvent();
    EXPECT_EQ(e->wait(e, 20), OX_TIMED_OUT);
    for (bool posted : {true, false, true}) {
        ASSERT_EQ(posted ? e->post(e) : e->clear(e), OX_OK);
        EXPECT_EQ(e->test(e), posted ? OX_TRUE : OX_FALSE);
        EXPECT_EQ(e->done, posted ? OX_TRUE : OX_FALSE);
        EXPECT_EQ(e->wait(e, 0), posted ? OX_OK : OX_TIMED_OUT);
    }
    EXPECT_EQ(e->wait(e, OX_WAIT_FOREVER), OX_OK);
    e->generic.destroy(e);
    e = makeEvent(true);
    EXPECT_EQ(e->wait(e, 0), OX_OK);
    e->generic.destroy(e);
}

TEST(Events, OnePostFromAnotherThreadWakesEveryWaiter) {
    OX_EVENT_S* e = makeEvent();
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int64_t timeout : {kPatienceMs, int64_t{OX_WAIT_FOREVER}, INT64_MAX})  // INT64_MAX overflows a clock
        waiters.emplace_back([&, timeout] { woken += e->wait(e, timeout) == OX_OK; });
    std::thread poster([&] { e->post(e); });
    for (auto& th : waiters) th.join();
    poster.join();
    EXPECT_EQ(woken.load(), 3);
    e->generic.destroy(e);
}

TEST(Events, WaiterMayDestroyTheEventAsSoonAsItWakes) {
    for (int i = 0; i < 200; ++i) {
        OX_EVENT_S* e = makeEvent();
        std::thread poster([e] { e->post(e); });
        EXPECT_EQ(e->wait(e, kPatienceMs), OX_OK);
        e->generic.destroy(e);
        poster.join();
    }
}

}  // namespace
