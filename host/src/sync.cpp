// Locks (plain and reader-writer) and events for any host thread.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "core.h"
#include "object.h"
#include "ox/status.h"

namespace {

constexpr uint32_t kLockOven = OX_OVEN('l', 'o', 'c', 'k');
constexpr uint32_t kEventOven = OX_OVEN('e', 'v', 'n', 't');

// Object names are kept in place, truncated, so making a lock or event allocates only once.
struct ShortName {
    char text[32]{};
    void assign(const char* name) {
        if (name) std::strncpy(text, name, sizeof text - 1);
    }
};

// ---- locks

struct Lock {
    OX_LOCK_S rec;  // first, so the record pointer is the lock pointer
    std::shared_mutex mutex;
    // Set while held exclusively. Then nobody holds it shared, so release knows which hold ends.
    std::atomic<bool> exclusive{false};
    ShortName name;
};

Lock* lockOf(OX_LOCK_S* l) { return reinterpret_cast<Lock*>(l); }

OXStatus lockGet(OX_LOCK_S* l) {
    if (!l) return OX_INVALID_ARGUMENT;
    lockOf(l)->mutex.lock();
    lockOf(l)->exclusive.store(true, std::memory_order_relaxed);
    return OX_OK;
}

OXStatus lockGetShared(OX_LOCK_S* l) {
    if (!l) return OX_INVALID_ARGUMENT;
    if (!l->rw) return lockGet(l);
    lockOf(l)->mutex.lock_shared();
    return OX_OK;
}

OXStatus lockRelease(OX_LOCK_S* l) {
    if (!l) return OX_INVALID_ARGUMENT;
    Lock* lock = lockOf(l);
    if (lock->exclusive.load(std::memory_order_relaxed)) {
        lock->exclusive.store(false, std::memory_order_relaxed);
        lock->mutex.unlock();
    } else {
        lock->mutex.unlock_shared();
    }
    return OX_OK;
}

OXStatus lockDestroy(void* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    delete static_cast<Lock*>(self);
    return OX_OK;
}

// ---- events: stay posted until cleared, and wake every waiter

struct Event {
    OX_EVENT_S rec;  // first, so the record pointer is the event pointer
    std::mutex mutex;
    std::condition_variable posted;
    ShortName name;
};

// Longer waits are waits forever; it also keeps the deadline arithmetic from overflowing.
constexpr int64_t kLongestTimedWaitMs = int64_t{365} * 24 * 3600 * 1000;

Event* eventOf(OX_EVENT_S* e) { return reinterpret_cast<Event*>(e); }

void setDone(OX_EVENT_S* e, bool value) { __atomic_store_n(&e->done, value ? OX_TRUE : OX_FALSE, __ATOMIC_RELEASE); }
bool isDone(OX_EVENT_S* e) { return __atomic_load_n(&e->done, __ATOMIC_ACQUIRE) != OX_FALSE; }

OXStatus eventPost(OX_EVENT_S* e) {
    if (!e) return OX_INVALID_ARGUMENT;
    Event* ev = eventOf(e);
    // Notified under the mutex: a woken waiter may destroy the event as soon as it returns.
    std::lock_guard lock(ev->mutex);
    setDone(e, true);
    ev->posted.notify_all();
    return OX_OK;
}

OXStatus eventClear(OX_EVENT_S* e) {
    if (!e) return OX_INVALID_ARGUMENT;
    std::lock_guard lock(eventOf(e)->mutex);
    setDone(e, false);
    return OX_OK;
}

OXBoolean eventTest(OX_EVENT_S* e) { return e && isDone(e) ? OX_TRUE : OX_FALSE; }

OXStatus eventWait(OX_EVENT_S* e, int64_t timeoutMs) {
    if (!e) return OX_INVALID_ARGUMENT;
    Event* ev = eventOf(e);
    std::unique_lock lock(ev->mutex);
    auto isPosted = [e] { return isDone(e); };
    if (timeoutMs < 0 || timeoutMs > kLongestTimedWaitMs) {
        ev->posted.wait(lock, isPosted);
        return OX_OK;
    }
    return ev->posted.wait_for(lock, std::chrono::milliseconds(timeoutMs), isPosted) ? OX_OK : OX_TIMED_OUT;
}

OXStatus eventDestroy(void* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    delete static_cast<Event*>(self);
    return OX_OK;
}

// A lock or event with its name and generic part set; null, journalled, without memory.
template <class Object>
Object* newObject(OXJournal* jnl, uint32_t oven, const char* name, OXStatus (*destroy)(void*)) {
    Object* object = new (std::nothrow) Object{};
    if (!object) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    object->name.assign(name);
    ox::initGeneric(object->rec.generic, oven, object->name.text, destroy);
    return object;
}

}  // namespace

OX_LOCK_S* oxLockCreate(OX_HNDL_S*, const OXLockCreateParms* parms, OXJournal* jnl, const char* name) {
    Lock* lock = newObject<Lock>(jnl, kLockOven, name, lockDestroy);
    if (!lock) return nullptr;
    lock->rec.get = lockGet;
    lock->rec.release = lockRelease;
    lock->rec.getShared = lockGetShared;
    lock->rec.rw = parms && parms->rw ? OX_TRUE : OX_FALSE;
    if (parms && parms->ownIt) lockGet(&lock->rec);
    return &lock->rec;
}

OX_EVENT_S* oxEventCreate(OX_HNDL_S*, const OXEventCreateParms* parms, OXJournal* jnl, const char* name) {
    Event* ev = newObject<Event>(jnl, kEventOven, name, eventDestroy);
    if (!ev) return nullptr;
    ev->rec.post = eventPost;
    ev->rec.clear = eventClear;
    ev->rec.test = eventTest;
    ev->rec.wait = eventWait;
    setDone(&ev->rec, parms && parms->postIt);
    return &ev->rec;
}
