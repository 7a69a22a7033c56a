// The host libsync, through the header names device code includes: sync_wait's contract, the
// older information calls and the in-process sw_sync emulation (forced on here even where the
// kernel has the driver). When points signal, what merges hold, the status, records and names
// of a fence and that nothing is left open are also checked against a model by
// fuzz/sync_fuzz.cpp (FuzzCorpus.sync replays it); the cases here are those a difference from
// the kernel's driver was once found in, and what the model leaves out.

#include "FdCount.h"

#include <sw_sync.h>
#include <sync/sync.h>
#include <android/sync_legacy.h>

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {
const int sForceEmulation = setenv("ZORCAM_SW_SYNC", "emulated", 1);

// A virtual monotonic clock and a scripted poll take the C library's place while armed.
bool sFakeClock = false;
int64_t sNowNs = 0;
std::function<int(struct pollfd*, nfds_t, int)> sPoll;

int realPoll(struct pollfd* fds, nfds_t n, int timeout) {
    struct timespec ts = {timeout / 1000, (timeout % 1000) * 1000000L};
    return ppoll(fds, n, timeout < 0 ? nullptr : &ts, nullptr);
}
}  // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec* ts) noexcept {
    if (!sFakeClock || clock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
    *ts = {sNowNs / 1000000000, sNowNs % 1000000000};
    return 0;
}

extern "C" int poll(struct pollfd* fds, nfds_t n, int timeout) {
    return sPoll ? sPoll(fds, n, timeout) : realPoll(fds, n, timeout);
}

namespace {

std::string record(const char* obj, const char* driver, int status, uint64_t timestampNs) {
    return ", " + std::string(obj) + " " + driver + " " + std::to_string(status) + " " +
           std::to_string(timestampNs);
}

// What sync_file_info tells of `fd`: its name and status, then each record.
std::string describe(int fd) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return "none";
    std::string text = std::string(info->name) + " " + std::to_string(info->status);
    for (uint32_t i = 0; i < info->num_fences; ++i) {
        const struct sync_fence_info& r = sync_get_fence_info(info)[i];
        text += record(r.obj_name, r.driver_name, r.status, r.timestamp_ns);
    }
    sync_file_info_free(info);
    return text;
}

// The same from the older information calls, which must tell it alike.
std::string describeOlder(int fd) {
    struct sync_fence_info_data* info = sync_fence_info(fd);
    if (info == nullptr) return "none";
    std::string text = std::string(info->name) + " " + std::to_string(info->status);
    size_t n = 0;
    for (struct sync_pt_info* pt = sync_pt_info(info, nullptr); pt != nullptr;
         pt = sync_pt_info(info, pt), ++n)
        text += record(pt->obj_name, pt->driver_name, pt->status, pt->timestamp_ns) +
                (pt->len == sizeof(*pt) ? "" : " (a wrong length)");
    if (info->len != sizeof(*info) + n * sizeof(struct sync_pt_info)) text += " (a wrong length)";
    sync_fence_info_free(info);
    return text;
}

class LibsyncTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sForceEmulation, 0); }
    void TearDown() override {
        sPoll = nullptr;
        sFakeClock = false;
        for (int fd : mFds) close(fd);
    }
    int own(int fd) { return mFds.emplace_back(fd); }  // closed at the end
    int fenceAt(unsigned value, int timeline = -1) {
        return own(sw_sync_fence_create(timeline < 0 ? mTimeline : timeline, "fence", value));
    }
    void advance(int timeline = -1) {
        ASSERT_EQ(sw_sync_timeline_inc(timeline < 0 ? mTimeline : timeline, 1), 0);
    }

    std::vector<int> mFds;
    const int mTimeline = own(sw_sync_timeline_create());
};

// A bad descriptor is refused; a poll that EINTR or EAGAIN cut short is made again for the
// time left, rounded up, and any other error ends the wait.
TEST_F(LibsyncTest, InterruptedWaitsPollAgainForTheTimeLeft) {
    EXPECT_TRUE(sync_wait(-1, 0) == -1 && errno == EINVAL);
    const int pending = fenceAt(1);
    sFakeClock = true;
    struct Case { int error; int64_t lostNs; int timeout; std::vector<int> polls; int result; };
    for (const Case& c : {Case{EAGAIN, 29500000, 100, {100, 71}, ETIME},  // rounded up
                          Case{EINTR, 150000000, 100, {100, 0}, ETIME},
                          Case{EINTR, 30000000, -1, {-1, -1}, ETIME},
                          Case{ENOMEM, 0, 100, {100}, ENOMEM}}) {
        SCOPED_TRACE(std::to_string(c.error) + "/" + std::to_string(c.lostNs));
        std::vector<int> polls;
        sPoll = [&](struct pollfd* fds, nfds_t n, int timeout) {
            polls.push_back(timeout);
            if (polls.size() > 1) return realPoll(fds, n, 0);
            return sNowNs += c.lostNs, errno = c.error, -1;  // the first one fails
        };
        EXPECT_EQ(sync_wait(pending, c.timeout), -1);
        EXPECT_EQ(errno, c.result);
        EXPECT_EQ(polls, c.polls);
    }
}

// As the kernel answers: a fence is named after its driver, timeline, context and value, its
// one record after the driver and the timeline (the task that made it); a merge keeps its name
// (cut to 31 bytes) and the points of both that are still pending, by timeline in the order the
// timelines were made; with none pending it is the kernel's stub, signalled at the latest time.
// The status is that of the first record not signalled cleanly. A dup is the same sync file. A
// signalled fence polls as readable alone (no hang-up). The older information calls tell the
// same at every stage.
TEST_F(LibsyncTest, InfoDescribesNameStatusAndEveryPointAsTheKernelDoes) {
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);
    sFakeClock = true;
    const int doomed = sw_sync_timeline_create(), other = own(sw_sync_timeline_create());
    const int a = fenceAt(1);
    const std::string name = describe(a), pending = record(comm, "sw_sync", 0, 0);
    EXPECT_EQ(name.rfind("sw_sync-" + std::string(comm), 0), 0u) << name;
    EXPECT_EQ(name.substr(name.find(' ') - 2), "-1 0" + pending) << name;
    const int m = own(sync_merge("a-merge-name-longer-than-the-31-bytes", fenceAt(1, other), a));
    const std::string merged = "a-merge-name-longer-than-the-31 ";
    EXPECT_EQ(describe(m), merged + "0" + pending + pending);
    EXPECT_EQ(describeOlder(m), describe(m));
    sNowNs = 2000000000;
    advance();  // a, the first record's
    EXPECT_EQ(describe(m), merged + "0" + record(comm, "sw_sync", 1, 2000000000) + pending);
    EXPECT_EQ(describe(own(sync_merge("late", a, fenceAt(2)))), "late 0" + pending);
    sNowNs = 3000000000;
    advance(other);
    EXPECT_EQ(describe(own(dup(m))), merged + "1" + record(comm, "sw_sync", 1, 2000000000) +
                                             record(comm, "sw_sync", 1, 3000000000));
    struct pollfd pfd = {m, POLLIN, 0};  // readable, and no more than that
    EXPECT_TRUE(realPoll(&pfd, 1, 0) == 1 && pfd.revents == POLLIN) << pfd.revents;
    const int done = own(sync_merge("done", m, a));
    EXPECT_EQ(describe(done), "done 1" + record("stub", "stub", 1, 3000000000));
    // An error ahead of a pending point is the status, not the pending point.
    const int errored = own(sync_merge("errored", fenceAt(5, doomed), fenceAt(5, other)));
    close(doomed);
    EXPECT_EQ(describe(errored),
              "errored -2" + record(comm, "sw_sync", -ENOENT, 3000000000) + pending);
    for (int fd : {a, m, done, errored}) EXPECT_EQ(describeOlder(fd), describe(fd)) << fd;
    errno = 0;
    EXPECT_EQ(sync_fence_info(-1), nullptr);
    EXPECT_NE(errno, 0);
    sync_fence_info_free(nullptr);
}

// A timeline closed before its pending fence: the next call signals the fence into a file
// nobody reads, which must neither end the process nor leave a SIGPIPE behind; nothing of
// either stays open.
TEST_F(LibsyncTest, AnAbandonedFenceSignalsWithoutSigpipe) {
    const int before = zorcam_test::openFdCount(), doomed = sw_sync_timeline_create();
    const int abandoned = sw_sync_fence_create(doomed, "abandoned", 1);
    close(doomed);
    close(abandoned);
    sync_file_info_free(sync_file_info(-1));  // any call reaps what was closed
    sigset_t waiting;
    EXPECT_TRUE(sigpending(&waiting) == 0 && !sigismember(&waiting, SIGPIPE));
    EXPECT_EQ(zorcam_test::openFdCount(), before);
}

}  // namespace
