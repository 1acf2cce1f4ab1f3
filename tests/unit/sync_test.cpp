// Locks and events from the host handle, used across threads.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "ox/status.h"
#include "testhost.h"

namespace {

using oxtest::host;

// Generous: only reached when something is broken.
constexpr int64_t kPatienceMs = 10000;

template <class T>
struct Destroy {
    void operator()(T* obj) const { obj->generic.destroy(obj); }
};
using LockPtr = std::unique_ptr<OX_LOCK_S, Destroy<OX_LOCK_S>>;
using EventPtr = std::unique_ptr<OX_EVENT_S, Destroy<OX_EVENT_S>>;

LockPtr makeLock(bool rw, bool ownIt = false) {
    OXLockCreateParms parms{};
    parms.rw = rw ? OX_TRUE : OX_FALSE;
    parms.ownIt = ownIt ? OX_TRUE : OX_FALSE;
    return LockPtr(host()->lockCreate(host(), &parms, nullptr, "test lock"));
}

EventPtr makeEvent(bool posted = false) {
    OXEventCreateParms parms{};
    parms.postIt = posted ? OX_TRUE : OX_FALSE;
    return EventPtr(host()->eventCreate(host(), &parms, nullptr, "test event"));
}

class Locks : public ::testing::Test {
protected:
    // The caller holds lock; another thread taking it gets in only once the caller releases it.
    static void expectKeptOutUntilReleased(OX_LOCK_S* lock, bool otherTakesShared) {
        EventPtr otherIn = makeEvent();
        std::thread other([&] {
            otherTakesShared ? lock->getShared(lock) : lock->get(lock);
            otherIn->post(otherIn.get());
            lock->release(lock);
        });
        EXPECT_EQ(otherIn->wait(otherIn.get(), 100), OX_TIMED_OUT) << "got in while the lock was held";
        lock->release(lock);
        EXPECT_EQ(otherIn->wait(otherIn.get(), kPatienceMs), OX_OK);
        other.join();
    }
};

TEST_F(Locks, PlainLockSerialisesWriters) {
    LockPtr lock = makeLock(false);
    ASSERT_TRUE(lock);
    EXPECT_EQ(lock->rw, OX_FALSE);
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                lock->get(lock.get());
                ++counter;
                lock->release(lock.get());
            }
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(counter, 80000);
}

TEST_F(Locks, ReadersShareAReaderWriterLock) {
    LockPtr lock = makeLock(true);
    ASSERT_TRUE(lock);
    EventPtr secondReaderIn = makeEvent();
    ASSERT_EQ(lock->getShared(lock.get()), OX_OK);
    std::thread reader([&] {
        lock->getShared(lock.get());
        secondReaderIn->post(secondReaderIn.get());
        lock->release(lock.get());
    });
    EXPECT_EQ(secondReaderIn->wait(secondReaderIn.get(), kPatienceMs), OX_OK) << "second reader was kept out";
    lock->release(lock.get());
    reader.join();
}

TEST_F(Locks, WritersExcludeReaders) {
    LockPtr lock = makeLock(true);
    ASSERT_TRUE(lock);
    // A writer keeps a == b between holds; a reader that ever sees them differ got in mid-write.
    long a = 0;
    long b = 0;
    std::atomic<bool> stop{false};
    std::atomic<long> inconsistent{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back([&] {
            while (!stop.load()) {
                lock->getShared(lock.get());
                if (a != b) ++inconsistent;
                lock->release(lock.get());
            }
        });
    for (int i = 0; i < 20000; ++i) {
        lock->get(lock.get());
        ++a;
        std::this_thread::yield();
        ++b;
        lock->release(lock.get());
    }
    stop = true;
    for (auto& th : readers) th.join();
    EXPECT_EQ(inconsistent.load(), 0);
    EXPECT_EQ(a, 20000);
}

TEST_F(Locks, WriterWaitsForReadersToLeave) {
    LockPtr lock = makeLock(true);
    ASSERT_TRUE(lock);
    ASSERT_EQ(lock->getShared(lock.get()), OX_OK);
    expectKeptOutUntilReleased(lock.get(), false);
}

TEST_F(Locks, LockCreatedOwnedIsHeldByItsCreator) {
    LockPtr lock = makeLock(false, true);
    ASSERT_TRUE(lock);
    expectKeptOutUntilReleased(lock.get(), false);
}

TEST_F(Locks, SharedHoldOfAPlainLockIsExclusive) {
    LockPtr lock = makeLock(false);
    ASSERT_TRUE(lock);
    ASSERT_EQ(lock->getShared(lock.get()), OX_OK);
    expectKeptOutUntilReleased(lock.get(), true);
}

class Events : public ::testing::Test {};

TEST_F(Events, PostedStateIsMirroredInDone) {
    EventPtr ev = makeEvent();
    ASSERT_TRUE(ev);
    EXPECT_FALSE(ev->test(ev.get()));
    EXPECT_FALSE(ev->done);
    ASSERT_EQ(ev->post(ev.get()), OX_OK);
    EXPECT_TRUE(ev->test(ev.get()));
    EXPECT_TRUE(ev->done);
    ASSERT_EQ(ev->clear(ev.get()), OX_OK);
    EXPECT_FALSE(ev->test(ev.get()));
    EXPECT_FALSE(ev->done);
}

TEST_F(Events, CanBeCreatedPosted) {
    EventPtr ev = makeEvent(true);
    ASSERT_TRUE(ev);
    EXPECT_TRUE(ev->done);
    EXPECT_EQ(ev->wait(ev.get(), 0), OX_OK);
}

TEST_F(Events, WaitTimesOutWhenNothingPosts) {
    EventPtr ev = makeEvent();
    EXPECT_EQ(ev->wait(ev.get(), 0), OX_TIMED_OUT);
    EXPECT_EQ(ev->wait(ev.get(), 20), OX_TIMED_OUT);
}

TEST_F(Events, StaysPostedUntilCleared) {
    EventPtr ev = makeEvent();
    ev->post(ev.get());
    EXPECT_EQ(ev->wait(ev.get(), 0), OX_OK);
    EXPECT_EQ(ev->wait(ev.get(), OX_WAIT_FOREVER), OX_OK);
    ev->clear(ev.get());
    EXPECT_EQ(ev->wait(ev.get(), 0), OX_TIMED_OUT);
}

TEST_F(Events, PostFromAnotherThreadWakesAWaiter) {
    EventPtr ev = makeEvent();
    std::thread poster([&] { ev->post(ev.get()); });
    EXPECT_EQ(ev->wait(ev.get(), OX_WAIT_FOREVER), OX_OK);
    poster.join();
}

TEST_F(Events, OnePostWakesEveryWaiter) {
    EventPtr ev = makeEvent();
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            if (ev->wait(ev.get(), kPatienceMs) == OX_OK) ++woken;
        });
    ev->post(ev.get());
    for (auto& th : waiters) th.join();
    EXPECT_EQ(woken.load(), 4);
}

TEST_F(Events, WaiterMayDestroyTheEventAsSoonAsItWakes) {
    for (int i = 0; i < 200; ++i) {
        OXEventCreateParms parms{};
        OX_EVENT_S* ev = host()->eventCreate(host(), &parms, nullptr, "short-lived");
        ASSERT_NE(ev, nullptr);
        std::thread poster([ev] { ev->post(ev); });
        ASSERT_EQ(ev->wait(ev, kPatienceMs), OX_OK);
        ev->generic.destroy(ev);
        poster.join();
    }
}

TEST_F(Events, HugeTimeoutWaitsForThePost) {
    EventPtr ev = makeEvent();
    std::thread poster([&] { ev->post(ev.get()); });
    EXPECT_EQ(ev->wait(ev.get(), INT64_MAX), OX_OK);
    poster.join();
}

}  // namespace
