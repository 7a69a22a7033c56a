#pragma once

// The monotonic clock the library paces and profiles on, for the sub-commands that run frames.

#include <utils/Timers.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace zorcam_util {

constexpr int64_t kNsPerMs = 1000000;

/// ns of systemTime(SYSTEM_TIME_MONOTONIC).
inline int64_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

/// Sleeps until the monotonic clock reads t (ns), whatever signals arrive meanwhile.
inline void sleepUntil(int64_t t) {
    timespec ts{static_cast<time_t>(t / 1000000000), static_cast<long>(t % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) == EINTR) {
    }
}

/// CPU time the calling thread has used, ns.
inline int64_t threadCpuNow() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

}  // namespace zorcam_util
