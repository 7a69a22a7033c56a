#pragma once

// A virtual monotonic clock for tests of time-dependent code. A test program that adds
// clock/VirtualClock.cpp (through its <name>_test.cmake) replaces libutils' systemTime() and the
// C library's usleep() for every caller: systemTime() answers the virtual time, whatever clock
// is asked for, and usleep() records the sleep and advances the virtual time by it.

#include <cstdint>
#include <vector>

namespace zorcam_test {
namespace vclock {

/// Sets the virtual time (ns) and forgets the recorded sleeps.
void reset(int64_t nowNs);
/// Moves the virtual time to nowNs (ns).
void set(int64_t nowNs);
void advance(int64_t ns);
int64_t now();
/// The microsecond counts of the usleep() calls since the last reset or takeSleeps().
std::vector<int64_t> takeSleeps();

}  // namespace vclock
}  // namespace zorcam_test
