// Small runtime functions every module links with: time, formatting, atomics.
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "ox/handle.h"

OXDateTime oxzdtgmt(void) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

size_t oxzFormatBuff(char* buf, size_t bufL, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(buf, bufL, fmt, ap);
    va_end(ap);
    return n < 0 ? 0 : static_cast<size_t>(n);
}

int64_t oxAtomicAdd(volatile int64_t* target, int64_t delta) {
    return __atomic_add_fetch(target, delta, __ATOMIC_ACQ_REL);
}
