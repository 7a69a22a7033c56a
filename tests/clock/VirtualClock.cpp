#include "VirtualClock.h"

#include <utils/Timers.h>

#include <unistd.h>

nsecs_t systemTime(int /*clock*/) { return zorcam_test::vclock::now(); }

extern "C" int usleep(useconds_t us) {
    zorcam_test::vclock::sSleeps.push_back(us);
    zorcam_test::vclock::advance(static_cast<int64_t>(us) * 1000);
    return 0;
}
