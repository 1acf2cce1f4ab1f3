// Named threads that report their start and end through events.
#include <pthread.h>

#include <climits>
#include <new>
#include <string_view>

#include "core.h"
#include "object.h"
#include "ox/status.h"
#include "utf8.h"

namespace {

constexpr uint32_t kThreadOven = OX_OVEN('t', 'h', 'r', 'd');
constexpr size_t kOsNameBytes = 16;  // Linux limit, terminator included

struct Thread {
    OX_THREAD_S rec;  // first, so the record pointer is the thread pointer
    pthread_t id{};
    OXStatus (*main)(OX_THREAD_S*, void*) = nullptr;
    void* parms = nullptr;
    OX_EVENT_S* entrE = nullptr;
    OX_EVENT_S* exitE = nullptr;
    // Always ours: wait and destroy rely on it even when the caller clears its own exitE.
    OX_EVENT_S* finished = nullptr;
    char name[64]{};
    char osName[kOsNameBytes]{};
};

Thread* threadOf(OX_THREAD_S* t) { return reinterpret_cast<Thread*>(t); }

void* runThread(void* arg) {
    auto* t = static_cast<Thread*>(arg);
    pthread_setname_np(pthread_self(), t->osName);
    if (t->entrE) t->entrE->post(t->entrE);
    OXStatus status = t->main(&t->rec, t->parms);
    __atomic_store_n(&t->rec.status, status, __ATOMIC_RELAXED);
    __atomic_store_n(&t->rec.doneflag, OX_TRUE, __ATOMIC_RELEASE);
    if (t->exitE) t->exitE->post(t->exitE);
    t->finished->post(t->finished);
    return nullptr;
}

OXStatus threadWait(OX_THREAD_S* t, int64_t timeoutMs) {
    if (!t) return OX_INVALID_ARGUMENT;
    OX_EVENT_S* finished = threadOf(t)->finished;
    return finished->wait(finished, timeoutMs);
}

OXBoolean threadDone(OX_THREAD_S* t) {
    return t && __atomic_load_n(&t->doneflag, __ATOMIC_ACQUIRE) ? OX_TRUE : OX_FALSE;
}

void freeThread(Thread* t) {
    if (t->finished) t->finished->generic.destroy(t->finished);
    delete t;
}

OXStatus threadDestroy(void* self) {
    if (!self) return OX_INVALID_ARGUMENT;
    auto* t = static_cast<Thread*>(self);
    if (pthread_equal(t->id, pthread_self())) return OX_INVALID_ARGUMENT;  // it would join itself
    pthread_join(t->id, nullptr);
    freeThread(t);
    return OX_OK;
}

void nameThread(Thread* t, const OXChar* name, size_t nameL) {
    std::u32string_view wide = name ? std::u32string_view(reinterpret_cast<const char32_t*>(name), nameL)
                                    : std::u32string_view(U"oxthread");
    ox::utf8::encodeTruncated(wide, t->name, sizeof t->name);
    ox::utf8::encodeTruncated(wide, t->osName, sizeof t->osName);
}

bool startThread(Thread* t, OXMemSize stackSize) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return false;
    const auto smallest = static_cast<OXMemSize>(PTHREAD_STACK_MIN);
    if (stackSize) pthread_attr_setstacksize(&attr, stackSize < smallest ? smallest : stackSize);
    bool started = pthread_create(&t->id, &attr, runThread, t) == 0;
    pthread_attr_destroy(&attr);
    return started;
}

}  // namespace

OX_THREAD_S* oxThreadCreate(OX_HNDL_S* h, const OXThreadCreateParms* parms, OXJournal* jnl, const OXChar* name,
                            size_t nameL) {
    if (!parms || !parms->main) {
        oxlStatusToJnl(jnl, OX_INVALID_ARGUMENT, 4);
        return nullptr;
    }
    Thread* t = new (std::nothrow) Thread{};
    if (!t) {
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    OXEventCreateParms eventParms{};
    t->finished = oxEventCreate(h, &eventParms, jnl, "thread finished");
    if (!t->finished) {
        freeThread(t);
        return nullptr;
    }
    nameThread(t, name, nameL);
    ox::initGeneric(t->rec.generic, kThreadOven, t->name, threadDestroy);
    t->rec.wait = threadWait;
    t->rec.done = threadDone;
    t->rec.oxtExitH = parms->exitE ? parms->exitE : t->finished;
    t->main = parms->main;
    t->parms = parms->parms;
    t->entrE = parms->entrE;
    t->exitE = parms->exitE;
    if (!startThread(t, parms->stackSize)) {
        freeThread(t);
        oxlStatusToJnl(jnl, OX_NO_MEMORY, 4);
        return nullptr;
    }
    return &t->rec;
}
