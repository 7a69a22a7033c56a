#include "VirtualClock.h"

#include <utils/Timers.h>

#include <unistd.h>

#include <atomic>
#include <mutex>

namespace zorcam_test {
namespace vclock {

namespace {

std::atomic<int64_t> sNow{0};
std::mutex sLock;
std::vector<int64_t> sSleeps;

}  // namespace

void reset(int64_t nowNs) {
    sNow = nowNs;
    std::lock_guard<std::mutex> lock(sLock);
    sSleeps.clear();
}

void set(int64_t nowNs) {
    sNow = nowNs;
}

void advance(int64_t ns) {
    sNow += ns;
}

int64_t now() {
    return sNow;
}

std::vector<int64_t> takeSleeps() {
    std::lock_guard<std::mutex> lock(sLock);
    std::vector<int64_t> out;
    out.swap(sSleeps);
    return out;
}

}  // namespace vclock
}  // namespace zorcam_test

nsecs_t systemTime(int /*clock*/) {
    return zorcam_test::vclock::sNow;
}

extern "C" int usleep(useconds_t us) noexcept {
    {
        std::lock_guard<std::mutex> lock(zorcam_test::vclock::sLock);
        zorcam_test::vclock::sSleeps.push_back(us);
    }
    zorcam_test::vclock::sNow += static_cast<int64_t>(us) * 1000;
    return 0;
}
