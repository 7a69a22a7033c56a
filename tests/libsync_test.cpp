// The host libsync, through the header names device code includes: sync_wait's contract, the
// older information calls and the in-process sw_sync emulation (forced on here even where the
// kernel has the driver).

#include <sw_sync.h>
#include <sync/sync.h>
#include <android/sync_legacy.h>

#include <dirent.h>
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <utility>
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

bool readable(int fd) {
    struct pollfd pfd = {fd, POLLIN, 0};
    return realPoll(&pfd, 1, 0) == 1 && (pfd.revents & POLLIN);
}

int openFdCount() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d) != nullptr) ++n;
        closedir(d);
    }
    return n;
}

// A copy of what sync_file_info answers; all zero when it fails.
struct Info {
    struct sync_file_info file = {};
    std::vector<struct sync_fence_info> records;
};

Info infoOf(int fd) {
    Info out;
    if (struct sync_file_info* info = sync_file_info(fd)) {
        out.file = *info;
        out.records.assign(sync_get_fence_info(info), sync_get_fence_info(info) + info->num_fences);
        sync_file_info_free(info);
    }
    return out;
}

class LibsyncTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(sForceEmulation, 0); }
    void TearDown() override {
        sPoll = nullptr;
        sFakeClock = false;
        for (int fd : mFds) close(fd);
    }
    // Descriptors the fixture closes at the end.
    int own(int fd) { return mFds.emplace_back(fd); }
    int fenceAt(unsigned value, int timeline = -1, const char* name = "fence") {
        return own(sw_sync_fence_create(timeline < 0 ? mTimeline : timeline, name, value));
    }
    void advance(unsigned n = 1, int timeline = -1) {
        ASSERT_EQ(sw_sync_timeline_inc(timeline < 0 ? mTimeline : timeline, n), 0);
    }

    std::vector<int> mFds;
    const int mTimeline = own(sw_sync_timeline_create());
};

// When a point signals, however far one advance goes and across the counter's wrap, and what a
// merge holds, are checked against a model by fuzz/sync_fuzz.cpp (FuzzCorpus.sync replays it).
// A bad descriptor is refused.
TEST_F(LibsyncTest, WaitRefusesABadDescriptor) {
    EXPECT_EQ(sync_wait(-1, 0), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(LibsyncTest, InterruptedWaitsPollAgainForTheTimeLeft) {
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
            sNowNs += c.lostNs;
            errno = c.error;
            return -1;
        };
        EXPECT_EQ(sync_wait(pending, c.timeout), -1);
        EXPECT_EQ(errno, c.result);
        EXPECT_EQ(polls, c.polls);
    }
}

// As the kernel answers: a fence is named after its driver, timeline, context and value; a
// merge keeps its name (cut to 31 bytes) and the points of both that are still pending, by
// timeline in the order the timelines were made; with none pending it is the kernel's stub,
// signalled at the latest time. The status is that of the first record not signalled cleanly.
// A dup is the same sync file.
TEST_F(LibsyncTest, InfoDescribesNameStatusAndEveryPointAsTheKernelDoes) {
    char comm[17] = {};
    prctl(PR_GET_NAME, comm);
    sFakeClock = true;
    const int doomed = sw_sync_timeline_create(), other = own(sw_sync_timeline_create());
    const int a = fenceAt(1);
    const std::string name = infoOf(a).file.name;
    EXPECT_EQ(name.rfind("sw_sync-" + std::string(comm), 0), 0u) << name;
    EXPECT_EQ(name.substr(name.size() - 2), "-1") << name;
    const int m = own(sync_merge("a-merge-name-longer-than-the-31-bytes-kept", fenceAt(1, other), a));
    Info info = infoOf(m);
    EXPECT_STREQ(info.file.name, "a-merge-name-longer-than-the-31");
    ASSERT_EQ(info.records.size(), 2u);
    EXPECT_STREQ(info.records[0].obj_name, comm);
    EXPECT_STREQ(info.records[1].driver_name, "sw_sync");

    sNowNs = 2000000000;
    advance();  // a, the first record's
    info = infoOf(m);
    EXPECT_TRUE(info.file.status == 0 && info.records[0].status == 1 &&
                info.records[0].timestamp_ns == 2000000000u && info.records[1].status == 0);
    EXPECT_EQ(infoOf(own(sync_merge("late", a, fenceAt(2)))).records.size(), 1u);
    sNowNs = 3000000000;
    advance(1, other);
    info = infoOf(own(dup(m)));
    EXPECT_EQ(info.file.status, 1);
    EXPECT_EQ(info.records[1].timestamp_ns, 3000000000u);

    info = infoOf(own(sync_merge("done", a, m)));
    ASSERT_EQ(info.records.size(), 1u);
    EXPECT_TRUE(!strcmp(info.records[0].obj_name, "stub") &&
                !strcmp(info.records[0].driver_name, "stub") && info.records[0].status == 1 &&
                info.records[0].timestamp_ns == 3000000000u);

    // An error ahead of a pending point is the status, not the pending point.
    const int errored = own(sync_merge("errored", fenceAt(5, doomed), fenceAt(5, other)));
    close(doomed);
    info = infoOf(errored);
    EXPECT_TRUE(info.file.status == -ENOENT && info.records.size() == 2u &&
                info.records[1].status == 0)
            << info.file.status;
}

// A fence merged from many timelines acts as any other: pending until its last point, one
// record per point, mergeable, and gone with its last descriptor.
TEST_F(LibsyncTest, AFenceOfManyPointsActsAsAnyOther) {
    const int before = openFdCount();
    std::vector<int> timelines(48);
    int all = sw_sync_fence_create(mTimeline, "start", 0);  // signalled: no part of a merge
    for (int& t : timelines) {
        t = sw_sync_timeline_create();
        const int f = sw_sync_fence_create(t, "point", 1);
        const int m = sync_merge("all", all, f);
        close(f);
        close(all);
        all = m;
    }
    EXPECT_EQ(infoOf(all).records.size(), 48u);
    const int copy = dup(all);
    for (size_t i = 0; i < timelines.size(); ++i) {
        EXPECT_FALSE(readable(copy)) << i;
        advance(1, timelines[i]);
    }
    EXPECT_EQ(sync_wait(copy, 0), 0);
    const Info info = infoOf(copy);
    EXPECT_STREQ(info.file.name, "all");
    EXPECT_EQ(info.file.status, 1);
    EXPECT_EQ(info.records.size(), 48u);
    const int pending = sw_sync_fence_create(mTimeline, "pending", 1);
    const int more = sync_merge("more", copy, pending);
    EXPECT_EQ(infoOf(more).records.size(), 1u);  // only the pending point
    EXPECT_EQ(infoOf(more).file.status, 0);
    for (int fd : {all, copy, pending, more}) close(fd);
    for (int t : timelines) close(t);

    // A timeline closed before its pending fence: the next call signals the fence into a file
    // nobody reads, which must neither end the process nor leave a SIGPIPE behind.
    const int doomed = sw_sync_timeline_create();
    const int abandoned = sw_sync_fence_create(doomed, "abandoned", 1);
    close(doomed);
    close(abandoned);
    sync_file_info_free(sync_file_info(-1));  // any call reaps what was closed
    sigset_t waiting;
    sigpending(&waiting);
    EXPECT_FALSE(sigismember(&waiting, SIGPIPE));
    EXPECT_EQ(openFdCount(), before);
}

// The older information calls describe the same sync file as sync_file_info, point for point.
TEST_F(LibsyncTest, OlderInfoAgreesWithFileInfo) {
    sFakeClock = true;
    const int doomedTimeline = sw_sync_timeline_create(), other = own(sw_sync_timeline_create());
    const int active = fenceAt(2, -1, "active"), signalled = fenceAt(1, -1, "signalled");
    const int errored = fenceAt(1, doomedTimeline, "errored");
    sNowNs = 5000000000;
    advance();
    close(doomedTimeline);
    const int merged = own(sync_merge("merged", signalled, fenceAt(1, other)));
    const int mergedErrored = own(sync_merge("merged-errored", errored, active));
    const std::pair<const char*, int> cases[] = {{"active", active}, {"signalled", signalled},
                                                 {"errored", errored}, {"merged", merged},
                                                 {"merged-errored", mergedErrored}};
    for (const auto& [name, fd] : cases) {
        SCOPED_TRACE(name);
        const Info fresh = infoOf(fd);
        struct sync_fence_info_data* old = sync_fence_info(fd);
        ASSERT_NE(old, nullptr);
        EXPECT_STREQ(old->name, fresh.file.name);
        EXPECT_EQ(old->status, fresh.file.status);
        size_t i = 0;
        for (struct sync_pt_info* pt = sync_pt_info(old, nullptr); pt != nullptr;
             pt = sync_pt_info(old, pt), ++i) {
            ASSERT_LT(i, fresh.records.size());
            const struct sync_fence_info& r = fresh.records[i];
            EXPECT_TRUE(pt->len == sizeof(*pt) && !strcmp(pt->obj_name, r.obj_name) &&
                        !strcmp(pt->driver_name, r.driver_name) && pt->status == r.status &&
                        pt->timestamp_ns == r.timestamp_ns)
                    << "point " << i;
        }
        EXPECT_EQ(i, fresh.records.size());
        EXPECT_EQ(old->len, sizeof(*old) + i * sizeof(struct sync_pt_info));
        sync_fence_info_free(old);
    }
    EXPECT_EQ(infoOf(mergedErrored).records.size(), 1u);
    EXPECT_EQ(infoOf(errored).file.status, -ENOENT);
    EXPECT_EQ(infoOf(signalled).records.at(0).timestamp_ns, 5000000000u);
    errno = 0;
    EXPECT_EQ(sync_fence_info(-1), nullptr);
    EXPECT_NE(errno, 0);
    sync_fence_info_free(nullptr);
}

}  // namespace
