#include "VirtualClock.h"

#include <utils/Timers.h>

#include <unistd.h>

namespace zorcam_test {
namespace vclock {

namespace {
int64_t sNow = 0;
std::vector<int64_t> sSleeps;
}  // namespace

void set(int64_t nowNs) { sNow = nowNs; }
void advance(int64_t ns) { sNow += ns; }
int64_t now() { return sNow; }

std::vector<int64_t> takeSleeps() {
    std::vector<int64_t> out;
    out.swap(sSleeps);
    return out;
}

}  // namespace vclock
}  // namespace zorcam_test

nsecs_t systemTime(int /*clock*/) {
    return zorcam_test::vclock::now();
}

extern "C" int usleep(useconds_t us) {
    zorcam_test::vclock::sSleeps.push_back(us);
    zorcam_test::vclock::advance(static_cast<int64_t>(us) * 1000);
    return 0;
}
