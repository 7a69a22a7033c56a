#pragma once

// A virtual monotonic clock. A test program that adds clock/VirtualClock.cpp (from its
// <name>_test.cmake) replaces systemTime() and usleep() for every caller: systemTime()
// answers the virtual time whatever clock is asked for, and usleep() records the sleep and
// advances the virtual time by it. Single-threaded use.

#include <cstdint>
#include <utility>
#include <vector>

namespace zorcam_test::vclock {

inline int64_t sNow = 0;            // ns
inline std::vector<int64_t> sSleeps;  // microsecond counts of the usleep() calls

inline void set(int64_t nowNs) { sNow = nowNs; }
inline void advance(int64_t ns) { sNow += ns; }
inline int64_t now() { return sNow; }
/// The sleeps since the previous takeSleeps().
inline std::vector<int64_t> takeSleeps() { return std::exchange(sSleeps, {}); }

}  // namespace zorcam_test::vclock
