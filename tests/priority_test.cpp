// Thread priority. Each case runs on a thread of its own, so what it changes dies with that
// thread; nice values move up from the runner's own, which needs no privilege.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>

#include <linux/capability.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

using namespace zorcam_test;
using NSCam::Utils::getThreadPriority;
using NSCam::Utils::setThreadPriority;

namespace {

template <typename F>
void onOwnThread(F body) {
    std::thread(body).join();
}

// What getThreadPriority answers, checked against the kernel's own view.
void expectPriority(int policy, int priority) {
    int p = -2, v = -2;
    EXPECT_TRUE(getThreadPriority(p, v));
    EXPECT_EQ(p, policy);
    EXPECT_EQ(v, priority);
    EXPECT_EQ(sched_getscheduler(0), policy);
}

class PriorityTest : public LogCaptureTest {};

TEST_F(PriorityTest, NiceValueRoundTripOnTheCallingThreadOnly) {
    const int runnerNice = getpriority(PRIO_PROCESS, 0);
    const int nice = std::min(runnerNice + 3, 19);
    int tid = 0;
    onOwnThread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(0, nice));
        EXPECT_EQ(getpriority(PRIO_PROCESS, 0), nice);
        expectPriority(0, nice);
    });
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), runnerNice);
    EXPECT_TRUE(androidLines().empty());  // verbose: unified logger only
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 2u);
    const std::string rest = "] tid(" + std::to_string(tid) + ") policy(SCHED_OTHER:0) priority(" +
                             std::to_string(nice) + ")";
    EXPECT_EQ(u[0].text, "[setThreadPriority" + rest);
    EXPECT_EQ(u[1].text, "[getThreadPriority" + rest);
}

TEST_F(PriorityTest, RefusedRealTimeRequestStillSucceedsAndChangesNothing) {
    // Without CAP_SYS_NICE (dropped for this thread only) and with RLIMIT_RTPRIO at 0 the
    // kernel refuses real-time policies.
    rlimit saved{};
    getrlimit(RLIMIT_RTPRIO, &saved);
    const rlimit zero{0, saved.rlim_max};
    setrlimit(RLIMIT_RTPRIO, &zero);
    const int nice = std::min(getpriority(PRIO_PROCESS, 0) + 7, 19);
    onOwnThread([&] {
        ASSERT_TRUE(setThreadPriority(0, nice));
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 1000));  // out of range even for root
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct caps[_LINUX_CAPABILITY_U32S_3] = {};
        ASSERT_EQ(syscall(SYS_capget, &header, caps), 0);
        caps[CAP_TO_INDEX(CAP_SYS_NICE)].effective &= ~CAP_TO_MASK(CAP_SYS_NICE);
        ASSERT_EQ(syscall(SYS_capset, &header, caps), 0);
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 50));
        expectPriority(0, nice);
    });
    setrlimit(RLIMIT_RTPRIO, &saved);
}

TEST_F(PriorityTest, RealTimeRoundTripAndBackToTimeSharing) {
    // Probe for what the round trip needs: SCHED_FIFO 90, then nice -4 on the way back.
    const char* refused = nullptr;
    int error = 0;
    onOwnThread([&] {
        sched_param param{90};
        if (sched_setscheduler(0, SCHED_FIFO, &param) != 0) refused = "SCHED_FIFO 90";
        param.sched_priority = 0;
        if (!refused && (sched_setscheduler(0, SCHED_OTHER, &param) != 0 ||
                         setpriority(PRIO_PROCESS, 0, -4) != 0))
            refused = "nice -4";
        error = errno;
    });
    if (refused) {
        GTEST_SKIP() << "this process may not use " << refused << " (" << strerror(error)
                     << "): needs CAP_SYS_NICE, or RLIMIT_RTPRIO >= 90 and RLIMIT_NICE >= 24";
    }
    int tid = 0;
    onOwnThread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 90));
        expectPriority(SCHED_FIFO, 90);
        EXPECT_TRUE(setThreadPriority(SCHED_RR, 10));
        expectPriority(SCHED_RR, 10);
        EXPECT_TRUE(setThreadPriority(0, -4));
        expectPriority(0, -4);
    });
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 6u);
    EXPECT_EQ(u[1].text, "[getThreadPriority] tid(" + std::to_string(tid) +
                                 ") policy(Real-Time:1) priority(90)");
}

}  // namespace
