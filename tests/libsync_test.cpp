// The host libsync: sync_wait's contract, and the in-process sw_sync emulation (forced on here
// even where the kernel has the driver).

#include "FdCount.h"

#include <android/sw_sync.h>
#include <android/sync.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

const int sForceEmulation = setenv("ZORCAM_SW_SYNC", "emulated", 1);

// A virtual monotonic clock and a scripted poll, in place of the C library's for libsync while
// a test arms them; otherwise they pass through to the kernel.
bool sFakeClock = false;
int64_t sNowNs = 0;
std::function<int(struct pollfd*, nfds_t, int)> sPollHook;

int realPoll(struct pollfd* fds, nfds_t n, int timeout) {
    struct timespec ts = {timeout / 1000, (timeout % 1000) * 1000000L};
    return ppoll(fds, n, timeout < 0 ? nullptr : &ts, nullptr);
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec* ts) noexcept {
    if (sFakeClock && clock == CLOCK_MONOTONIC) {
        ts->tv_sec = sNowNs / 1000000000;
        ts->tv_nsec = sNowNs % 1000000000;
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
}

extern "C" int poll(struct pollfd* fds, nfds_t n, int timeout) {
    if (sPollHook) return sPollHook(fds, n, timeout);
    return realPoll(fds, n, timeout);
}

namespace {

using zorcam_test::openFdCount;

struct UniqueFd {
    int fd;
    explicit UniqueFd(int f = -1) : fd(f) {}
    ~UniqueFd() { reset(); }
    void reset() {
        if (fd >= 0) close(fd);
        fd = -1;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
};

bool readable(int fd) {
    struct pollfd pfd = {fd, POLLIN, 0};
    return realPoll(&pfd, 1, 0) == 1 && (pfd.revents & POLLIN);
}

struct Info {
    std::string name;
    int32_t status = 99;
    std::vector<sync_fence_info> records;
};

bool infoOf(int fd, Info* out) {
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return false;
    out->name.assign(info->name, strnlen(info->name, sizeof(info->name)));
    out->status = info->status;
    const sync_fence_info* r = sync_get_fence_info(info);
    out->records.assign(r, r + info->num_fences);
    sync_file_info_free(info);
    return true;
}

class LibsyncTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sForceEmulation, 0);
        mTimeline.fd = sw_sync_timeline_create();
        ASSERT_GE(mTimeline.fd, 0);
    }
    void TearDown() override {
        sPollHook = nullptr;
        sFakeClock = false;
    }

    int fenceAt(unsigned value, const char* name = "fence", int timeline = -1) {
        const int fd = sw_sync_fence_create(timeline < 0 ? mTimeline.fd : timeline, name, value);
        EXPECT_GE(fd, 0);
        return fd;
    }
    void advance(unsigned n = 1, int timeline = -1) {
        ASSERT_EQ(sw_sync_timeline_inc(timeline < 0 ? mTimeline.fd : timeline, n), 0);
    }

    UniqueFd mTimeline;
};

TEST_F(LibsyncTest, FencesTurnReadableWhenTheTimelineReachesThem) {
    UniqueFd f(fenceAt(2));
    EXPECT_FALSE(readable(f.fd));
    advance();
    EXPECT_FALSE(readable(f.fd));
    UniqueFd copy(dup(f.fd));
    advance();
    EXPECT_TRUE(readable(f.fd));
    EXPECT_TRUE(readable(copy.fd));
    EXPECT_EQ(sync_wait(f.fd, 0), 0);
    EXPECT_EQ(sync_wait(f.fd, -1), 0);
    EXPECT_TRUE(readable(f.fd));  // waiting does not consume the signal

    UniqueFd past(fenceAt(1));
    EXPECT_TRUE(readable(past.fd));
    advance(0);
    UniqueFd now(fenceAt(2));
    EXPECT_TRUE(readable(now.fd));
}

TEST_F(LibsyncTest, SyncWaitFailures) {
    errno = 0;
    EXPECT_EQ(sync_wait(-1, 0), -1);
    EXPECT_EQ(errno, EINVAL);

    UniqueFd pending(fenceAt(1));
    EXPECT_EQ(sync_wait(pending.fd, 0), -1);
    EXPECT_EQ(errno, ETIME);
    EXPECT_EQ(sync_wait(pending.fd, 2), -1);
    EXPECT_EQ(errno, ETIME);

    const int closed = dup(pending.fd);
    close(closed);
    errno = 0;
    EXPECT_EQ(sync_wait(closed, 0), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(LibsyncTest, InterruptedWaitsPollAgainForTheTimeLeft) {
    UniqueFd pending(fenceAt(1));
    sFakeClock = true;
    sNowNs = 5000000000;
    std::vector<int> timeouts;
    struct Case {
        int error;
        int64_t lostNs;
        int timeout;
        std::vector<int> expected;
    };
    for (const Case& c : {Case{EINTR, 30000000, 100, {100, 70}},
                          Case{EAGAIN, 29500000, 100, {100, 71}},
                          Case{EINTR, 150000000, 100, {100, 0}},
                          Case{EINTR, 30000000, -1, {-1, -1}}}) {
        SCOPED_TRACE(std::to_string(c.error) + "/" + std::to_string(c.timeout));
        timeouts.clear();
        sPollHook = [&](struct pollfd* fds, nfds_t n, int timeout) {
            timeouts.push_back(timeout);
            if (timeouts.size() == 1) {
                sNowNs += c.lostNs;
                errno = c.error;
                return -1;
            }
            return realPoll(fds, n, timeout < 0 ? 0 : timeout);
        };
        EXPECT_EQ(sync_wait(pending.fd, c.timeout), -1);
        EXPECT_EQ(errno, ETIME);
        EXPECT_EQ(timeouts, c.expected);
    }

    // Other poll failures come back as they are.
    sPollHook = [](struct pollfd*, nfds_t, int) {
        errno = ENOMEM;
        return -1;
    };
    EXPECT_EQ(sync_wait(pending.fd, 10), -1);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(LibsyncTest, InfoDescribesNameStatusAndEveryPoint) {
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);
    sFakeClock = true;
    sNowNs = 1000;

    UniqueFd other(sw_sync_timeline_create());
    UniqueFd a(fenceAt(1, "a-fence-name-longer-than-the-31-bytes-kept"));
    UniqueFd b(fenceAt(1, "b", other.fd));
    Info info;
    ASSERT_TRUE(infoOf(a.fd, &info));
    EXPECT_EQ(info.name, "a-fence-name-longer-than-the-31");
    EXPECT_EQ(info.status, 0);
    ASSERT_EQ(info.records.size(), 1u);
    EXPECT_STREQ(info.records[0].obj_name, comm);
    EXPECT_STREQ(info.records[0].driver_name, "sw_sync");
    EXPECT_EQ(info.records[0].status, 0);
    EXPECT_EQ(info.records[0].timestamp_ns, 0u);

    sNowNs = 2000000000;
    advance();
    UniqueFd m(sync_merge("merged", a.fd, b.fd));
    ASSERT_GE(m.fd, 0);
    ASSERT_TRUE(infoOf(m.fd, &info));
    EXPECT_EQ(info.name, "merged");
    EXPECT_EQ(info.status, 0);
    ASSERT_EQ(info.records.size(), 2u);
    EXPECT_EQ(info.records[0].status, 1);
    EXPECT_EQ(info.records[0].timestamp_ns, 2000000000u);
    EXPECT_EQ(info.records[1].status, 0);

    sNowNs = 3000000000;
    advance(1, other.fd);
    UniqueFd copy(dup(m.fd));
    for (int fd : {m.fd, copy.fd}) {
        ASSERT_TRUE(infoOf(fd, &info));
        EXPECT_EQ(info.name, "merged");
        EXPECT_EQ(info.status, 1);
        ASSERT_EQ(info.records.size(), 2u);
        EXPECT_EQ(info.records[0].timestamp_ns, 2000000000u);
        EXPECT_EQ(info.records[1].status, 1);
        EXPECT_EQ(info.records[1].timestamp_ns, 3000000000u);
        EXPECT_STREQ(info.records[1].driver_name, "sw_sync");
    }
    ASSERT_TRUE(infoOf(a.fd, &info));
    EXPECT_EQ(info.status, 1);
    EXPECT_EQ(info.name, "a-fence-name-longer-than-the-31");
}

TEST_F(LibsyncTest, MergeKeepsTheLaterPointOfEachTimeline) {
    UniqueFd early(fenceAt(3));
    UniqueFd late(fenceAt(5));
    UniqueFd m(sync_merge("m", early.fd, late.fd));
    UniqueFd self(sync_merge("self", early.fd, early.fd));
    ASSERT_GE(m.fd, 0);
    ASSERT_GE(self.fd, 0);
    EXPECT_NE(self.fd, early.fd);
    Info info;
    ASSERT_TRUE(infoOf(m.fd, &info));
    EXPECT_EQ(info.records.size(), 1u);
    advance(3);
    EXPECT_TRUE(readable(self.fd));
    EXPECT_FALSE(readable(m.fd));
    // A signalled point merged with a later pending one of its timeline: the pending one stays.
    UniqueFd mixed(sync_merge("mixed", late.fd, early.fd));
    ASSERT_TRUE(infoOf(mixed.fd, &info));
    ASSERT_EQ(info.records.size(), 1u);
    EXPECT_EQ(info.records[0].status, 0);
    advance(2);
    EXPECT_TRUE(readable(m.fd));
    EXPECT_TRUE(readable(mixed.fd));
    // Merging signalled fences gives a signalled fence.
    UniqueFd done(sync_merge("done", m.fd, early.fd));
    EXPECT_TRUE(readable(done.fd));
}

TEST_F(LibsyncTest, DescriptorsThatAreNotEmulatedFencesAreRefused) {
    UniqueFd plain(eventfd(0, EFD_CLOEXEC));
    UniqueFd fence(fenceAt(1));
    errno = 0;
    EXPECT_EQ(sync_merge("x", fence.fd, plain.fd), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sync_merge("x", plain.fd, fence.fd), -1);
    EXPECT_EQ(sync_merge("x", plain.fd, plain.fd), -1);
    EXPECT_EQ(sync_merge("x", mTimeline.fd, fence.fd), -1);
    EXPECT_EQ(sync_file_info(plain.fd), nullptr);
    EXPECT_EQ(sync_file_info(mTimeline.fd), nullptr);
    EXPECT_EQ(sync_file_info(-1), nullptr);
    EXPECT_EQ(sw_sync_fence_create(plain.fd, "x", 1), -1);
    EXPECT_EQ(sw_sync_fence_create(fence.fd, "x", 1), -1);
    EXPECT_EQ(sw_sync_timeline_inc(plain.fd, 1), -1);
    EXPECT_EQ(sw_sync_timeline_inc(fence.fd, 1), -1);
    EXPECT_FALSE(readable(fence.fd));
}

TEST_F(LibsyncTest, DupIsTheSameSyncFile) {
    int original = fenceAt(1, "shared");
    UniqueFd copy(dup(original));
    close(original);
    UniqueFd merged(sync_merge("from-copy", copy.fd, copy.fd));
    EXPECT_FALSE(readable(merged.fd));
    advance();
    EXPECT_TRUE(readable(copy.fd));
    EXPECT_TRUE(readable(merged.fd));
    Info info;
    ASSERT_TRUE(infoOf(copy.fd, &info));
    EXPECT_EQ(info.name, "shared");
    EXPECT_EQ(info.status, 1);
}

TEST_F(LibsyncTest, ClosingTheLastDescriptorFreesTheFence) {
    UniqueFd other(sw_sync_timeline_create());
    const int before = openFdCount();

    // Signalled fences are freed by the close itself.
    int f = fenceAt(1);
    advance();
    close(f);
    EXPECT_EQ(openFdCount(), before);

    // Pending ones, merged across timelines too, by the next call of the process.
    std::vector<int> pending;
    for (unsigned i = 0; i < 8; ++i) {
        const int a = fenceAt(10 + i);
        const int o = fenceAt(5, "o", other.fd);
        pending.insert(pending.end(), {a, o, sync_merge("m", a, o)});
    }
    EXPECT_GT(openFdCount(), before);
    for (int fd : pending) close(fd);
    advance(0);
    EXPECT_EQ(openFdCount(), before);
    // The timelines hold nothing of them any more.
    advance(100);
    advance(100, other.fd);
    EXPECT_EQ(openFdCount(), before);
}

TEST_F(LibsyncTest, ClosingATimelineSignalsItsFencesWithAnError) {
    const int before = openFdCount();
    int doomedTimeline = sw_sync_timeline_create();
    UniqueFd doomed(fenceAt(1, "doomed", doomedTimeline));
    UniqueFd live(fenceAt(1));
    UniqueFd both(sync_merge("both", doomed.fd, live.fd));
    close(doomedTimeline);

    Info info;
    ASSERT_TRUE(infoOf(doomed.fd, &info));
    EXPECT_TRUE(readable(doomed.fd));
    EXPECT_EQ(info.status, -ENOENT);
    ASSERT_EQ(info.records.size(), 1u);
    EXPECT_EQ(info.records[0].status, -ENOENT);
    ASSERT_TRUE(infoOf(both.fd, &info));
    EXPECT_EQ(info.status, 0);
    EXPECT_FALSE(readable(both.fd));

    advance();
    ASSERT_TRUE(infoOf(both.fd, &info));
    EXPECT_EQ(info.status, -ENOENT);
    EXPECT_TRUE(readable(both.fd));
    doomed.reset();
    live.reset();
    both.reset();
    EXPECT_EQ(openFdCount(), before);
}

TEST_F(LibsyncTest, TimelineValuesWrapAround) {
    advance(UINT_MAX - 1);
    UniqueFd last(fenceAt(UINT_MAX));
    UniqueFd wrapped(fenceAt(1));
    EXPECT_FALSE(readable(last.fd));
    advance();
    EXPECT_TRUE(readable(last.fd));
    EXPECT_FALSE(readable(wrapped.fd));
    advance(2);
    EXPECT_TRUE(readable(wrapped.fd));
}

}  // namespace
