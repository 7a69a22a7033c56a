// Thread priority. Every case runs on a thread of its own, so the scheduling it changes dies
// with that thread and never reaches the test runner's.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

using namespace zorcam_test;
using NSCam::Utils::getThreadPriority;
using NSCam::Utils::setThreadPriority;

namespace {

void onOwnThread(const std::function<void()>& body) {
    std::thread(body).join();
}

std::string line(const char* func, int tid, bool realTime, int policy, int priority) {
    return std::string("[") + func + "] tid(" + std::to_string(tid) + ") policy(" +
           (realTime ? "Real-Time:" : "SCHED_OTHER:") + std::to_string(policy) + ") priority(" +
           std::to_string(priority) + ")";
}

// Removes CAP_SYS_NICE from the calling thread's effective set; capabilities are per thread, so
// the rest of the program keeps it.
void dropSysNiceOnThisThread() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    ASSERT_EQ(syscall(SYS_capget, &header, data), 0) << strerror(errno);
    data[CAP_TO_INDEX(CAP_SYS_NICE)].effective &= ~CAP_TO_MASK(CAP_SYS_NICE);
    ASSERT_EQ(syscall(SYS_capset, &header, data), 0) << strerror(errno);
}

// Lowers a soft resource limit for the life of the object.
class ScopedSoftLimit {
public:
    ScopedSoftLimit(int resource, rlim_t soft) : mResource(resource) {
        getrlimit(mResource, &mSaved);
        rlimit lowered = mSaved;
        lowered.rlim_cur = soft;
        setrlimit(mResource, &lowered);
    }
    ~ScopedSoftLimit() { setrlimit(mResource, &mSaved); }

private:
    int mResource;
    rlimit mSaved{};
};

class PriorityTest : public LogCaptureTest {};

TEST_F(PriorityTest, TimeSharingNiceValueRoundTrip) {
    // Only raising the nice value needs no privilege; start from the runner's own.
    const int runnerNice = getpriority(PRIO_PROCESS, 0);
    const int first = std::min(runnerNice + 3, 18);
    const int second = first + 1;
    int tid = 0;
    onOwnThread([&] {
        tid = gettid();
        for (int nice : {first, second}) {
            EXPECT_TRUE(setThreadPriority(0, nice));
            EXPECT_EQ(getpriority(PRIO_PROCESS, 0), nice);
            int policy = -2, priority = -2;
            EXPECT_TRUE(getThreadPriority(policy, priority));
            EXPECT_EQ(policy, 0);
            EXPECT_EQ(priority, nice);
        }
    });
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), runnerNice);

    // Verbose lines reach the unified logger only.
    EXPECT_TRUE(androidLines().empty());
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 4u);
    EXPECT_EQ(u[0].type, NSCam::Utils::ULog::DETAILS_VERBOSE);
    EXPECT_EQ(u[0].tag, "ZorCam/Utils");
    EXPECT_EQ(u[0].text, line("setThreadPriority", tid, false, 0, first));
    EXPECT_EQ(u[1].text, line("getThreadPriority", tid, false, 0, first));
    EXPECT_EQ(u[3].text, line("getThreadPriority", tid, false, 0, second));
}

TEST_F(PriorityTest, RefusedRequestsLeaveTheThreadAsItWas) {
    // Without CAP_SYS_NICE and with both soft limits at 0 the kernel refuses a real-time policy
    // and any lowering of the nice value.
    ScopedSoftLimit rtprio(RLIMIT_RTPRIO, 0);
    ScopedSoftLimit nice(RLIMIT_NICE, 0);
    const int base = std::min(getpriority(PRIO_PROCESS, 0) + 7, 19);
    int tid = 0;
    onOwnThread([&] {
        tid = gettid();
        ASSERT_TRUE(setThreadPriority(0, base));
        // Out of range for any policy, privileged or not.
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 1000));
        dropSysNiceOnThisThread();
        clearLogs();
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 50));
        EXPECT_TRUE(setThreadPriority(0, base - 4));
        int policy = -2, priority = -2;
        EXPECT_TRUE(getThreadPriority(policy, priority));
        EXPECT_EQ(policy, 0);
        EXPECT_EQ(priority, base);
        EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    });
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 3u);
    // The request is logged as made, even though the kernel refused it.
    EXPECT_EQ(u[0].text, line("setThreadPriority", tid, true, SCHED_FIFO, 50));
    EXPECT_EQ(u[1].text, line("setThreadPriority", tid, false, 0, base - 4));
    EXPECT_EQ(u[2].text, line("getThreadPriority", tid, false, 0, base));
}

TEST_F(PriorityTest, RealTimeRoundTripAndBack) {
    // Probe on a throw-away thread for what the round trip needs: a real-time policy at 90, and
    // a nice value below 0 on the way back.
    const char* refused = nullptr;
    int probeErrno = 0;
    onOwnThread([&] {
        sched_param param{};
        param.sched_priority = 90;
        if (sched_setscheduler(0, SCHED_FIFO, &param) != 0) {
            refused = "SCHED_FIFO 90";
        } else {
            param.sched_priority = 0;
            if (sched_setscheduler(0, SCHED_OTHER, &param) != 0 ||
                setpriority(PRIO_PROCESS, 0, -4) != 0) {
                refused = "nice -4";
            }
        }
        if (refused != nullptr) probeErrno = errno;
    });
    if (refused != nullptr) {
        GTEST_SKIP() << "this process may not use " << refused << " (" << strerror(probeErrno)
                     << "): needs CAP_SYS_NICE, or RLIMIT_RTPRIO >= 90 and RLIMIT_NICE >= 24";
    }

    int tid = 0;
    onOwnThread([&] {
        tid = gettid();
        int policy = -2, priority = -2;
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 90));
        EXPECT_EQ(sched_getscheduler(0), SCHED_FIFO);
        EXPECT_TRUE(getThreadPriority(policy, priority));
        EXPECT_EQ(policy, SCHED_FIFO);
        EXPECT_EQ(priority, 90);

        EXPECT_TRUE(setThreadPriority(SCHED_RR, 10));
        EXPECT_TRUE(getThreadPriority(policy, priority));
        EXPECT_EQ(policy, SCHED_RR);
        EXPECT_EQ(priority, 10);

        // From real time back to time-sharing, with a nice value only a privileged thread gets.
        EXPECT_TRUE(setThreadPriority(0, -4));
        EXPECT_TRUE(getThreadPriority(policy, priority));
        EXPECT_EQ(policy, 0);
        EXPECT_EQ(priority, -4);
    });
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 6u);
    EXPECT_EQ(u[1].text, line("getThreadPriority", tid, true, SCHED_FIFO, 90));
    EXPECT_EQ(u[2].text, line("setThreadPriority", tid, true, SCHED_RR, 10));
    EXPECT_EQ(u[4].text, line("setThreadPriority", tid, false, 0, -4));
}

}  // namespace
