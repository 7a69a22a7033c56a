// Thread priority. Each case runs on a thread of its own, so what it changes dies with that
// thread; nice values move up from the runner's own, which needs no privilege.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

using namespace zorcam_test;
using NSCam::Utils::getThreadPriority;
using NSCam::Utils::setThreadPriority;

namespace {

// What getThreadPriority answers, checked against the kernel's own view.
void expectPriority(int policy, int priority) {
    int p = -2, v = -2;
    EXPECT_TRUE(getThreadPriority(p, v));
    EXPECT_EQ(p, policy);
    EXPECT_EQ(v, priority);
    EXPECT_EQ(sched_getscheduler(0), policy);
    if (policy == SCHED_OTHER) { EXPECT_EQ(getpriority(PRIO_PROCESS, 0), priority); }
}

class PriorityTest : public LogCaptureTest {};

TEST_F(PriorityTest, NiceValueRoundTripOnTheCallingThreadOnly) {
    const int runnerNice = getpriority(PRIO_PROCESS, 0);
    const int nice = std::min(runnerNice + 3, 19);
    int tid = 0;
    std::thread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(0, nice));
        expectPriority(0, nice);
        // Out of range even with privileges: refused by the kernel, reported as done.
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 1000));
        expectPriority(0, nice);
    }).join();
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), runnerNice);
    EXPECT_TRUE(androidLines().empty());  // verbose: unified logger only
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 4u);
    const std::string rest = "] tid(" + std::to_string(tid) + ") policy(SCHED_OTHER:0) priority(" +
                             std::to_string(nice) + ")";
    EXPECT_EQ(u[0].text, "[setThreadPriority" + rest);
    EXPECT_EQ(u[1].text, "[getThreadPriority" + rest);
}

TEST_F(PriorityTest, RealTimeRoundTripAndBackToTimeSharing) {
    // Probe for what the round trip needs: SCHED_FIFO 90, then nice -4 on the way back.
    int error = 0;
    std::thread([&] {
        const sched_param fifo{90}, other{0};
        if (sched_setscheduler(0, SCHED_FIFO, &fifo) != 0 ||
            sched_setscheduler(0, SCHED_OTHER, &other) != 0 || setpriority(PRIO_PROCESS, 0, -4))
            error = errno;
    }).join();
    if (error != 0)
        GTEST_SKIP() << "this process may not use SCHED_FIFO 90 or nice -4 (" << strerror(error)
                     << "): needs CAP_SYS_NICE, or RLIMIT_RTPRIO >= 90 and RLIMIT_NICE >= 24";
    int tid = 0;
    std::thread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 90));
        expectPriority(SCHED_FIFO, 90);
        EXPECT_TRUE(setThreadPriority(0, -4));
        expectPriority(0, -4);
    }).join();
    ASSERT_EQ(ulogLines().size(), 4u);
    EXPECT_EQ(ulogLines()[1].text, "[getThreadPriority] tid(" + std::to_string(tid) +
                                           ") policy(Real-Time:1) priority(90)");
}

}  // namespace
