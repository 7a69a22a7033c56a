#pragma once

// A virtual monotonic clock. A test program that adds clock/VirtualClock.cpp (from its
// <name>_test.cmake) replaces systemTime() and usleep() for every caller: systemTime()
// answers the virtual time whatever clock is asked for, and usleep() records the sleep and
// advances the virtual time by it. Single-threaded use.

#include <cstdint>
#include <vector>

namespace zorcam_test {
namespace vclock {

/// Sets the virtual time in ns.
void set(int64_t nowNs);
void advance(int64_t ns);
int64_t now();
/// The microsecond counts of the usleep() calls since the previous takeSleeps().
std::vector<int64_t> takeSleeps();

}  // namespace vclock
}  // namespace zorcam_test
