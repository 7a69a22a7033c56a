#include "FdCount.h"
#include "LogCapture.h"

#include <zorcam/utils/std/Sync.h>

#include <android/sw_sync.h>
#include <android/sync.h>
#include <cutils/trace.h>
#include <log/log.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using android::sp;
using NSCam::Utils::Sync::IFence;
using NSCam::Utils::Sync::ITimeline;
using namespace zorcam_test;

// ---- Recorders in place of libsync's and libcutils' functions (this program's definitions
// take their place for the library). They forward to the real ones unless a test says so.

namespace {

std::mutex sCallLock;
std::vector<int> sWaitTimeouts;
int sMergeCalls = 0;
std::vector<std::string> sTrace;
// When set, runs instead of the real sync_wait for bounded waits.
std::function<int(int fd, int timeout)> sBoundedWaitHook;

template <typename F>
F realFunction(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    std::function<int(int, int)> hook;
    {
        std::lock_guard<std::mutex> guard(sCallLock);
        sWaitTimeouts.push_back(timeout);
        if (timeout >= 0) hook = sBoundedWaitHook;
    }
    if (hook) return hook(fd, timeout);
    static auto real = realFunction<int (*)(int, int)>("sync_wait");
    return real(fd, timeout);
}

extern "C" int sync_merge(const char* name, int fd1, int fd2) {
    {
        std::lock_guard<std::mutex> guard(sCallLock);
        ++sMergeCalls;
    }
    static auto real = realFunction<int (*)(const char*, int, int)>("sync_merge");
    return real(name, fd1, fd2);
}

extern "C" void atrace_begin_body(const char* name) {
    std::lock_guard<std::mutex> guard(sCallLock);
    sTrace.push_back(std::string("B:") + name);
}

extern "C" void atrace_end_body() {
    std::lock_guard<std::mutex> guard(sCallLock);
    sTrace.push_back("E");
}

namespace {

struct UniqueFd {
    int fd;
    explicit UniqueFd(int f = -1) : fd(f) {}
    ~UniqueFd() {
        if (fd >= 0) close(fd);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& o) noexcept : fd(o.fd) { o.fd = -1; }
};

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

// A descriptor number that nothing holds, well above the ones the tests open.
int unusedFd() {
    const int fd = fcntl(0, F_DUPFD_CLOEXEC, 900);
    close(fd);
    return fd;
}

std::vector<sync_fence_info> recordsOf(int fd) {
    std::vector<sync_fence_info> out;
    struct sync_file_info* info = sync_file_info(fd);
    if (info == nullptr) return out;
    const sync_fence_info* r = sync_get_fence_info(info);
    out.assign(r, r + info->num_fences);
    sync_file_info_free(info);
    return out;
}

class SyncTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mTimeline.fd = sw_sync_timeline_create();
        ASSERT_GE(mTimeline.fd, 0);
        mSavedTags = atrace_enabled_tags;
        std::lock_guard<std::mutex> guard(sCallLock);
        sWaitTimeouts.clear();
        sMergeCalls = 0;
        sTrace.clear();
    }

    void TearDown() override {
        atrace_enabled_tags = mSavedTags;
        {
            std::lock_guard<std::mutex> guard(sCallLock);
            sBoundedWaitHook = nullptr;
        }
        LogCaptureTest::TearDown();
    }

    sp<IFence> fenceAt(unsigned value, const char* name = "fence") {
        return fenceOn(mTimeline.fd, value, name);
    }

    static sp<IFence> fenceOn(int timeline, unsigned value, const char* name = "fence") {
        const int fd = sw_sync_fence_create(timeline, name, value);
        EXPECT_GE(fd, 0) << "fence at " << value;
        return IFence::create(fd);
    }

    void advance(unsigned n = 1) { ASSERT_EQ(sw_sync_timeline_inc(mTimeline.fd, n), 0); }

    static std::vector<int> waitTimeouts() {
        std::lock_guard<std::mutex> guard(sCallLock);
        return sWaitTimeouts;
    }
    static int mergeCalls() {
        std::lock_guard<std::mutex> guard(sCallLock);
        return sMergeCalls;
    }
    static std::vector<std::string> trace() {
        std::lock_guard<std::mutex> guard(sCallLock);
        return sTrace;
    }

    UniqueFd mTimeline;
    uint64_t mSavedTags = 0;
};

// Both kinds of invalid fence answer every operation without touching a descriptor.
TEST_F(SyncTest, InvalidFencesAnswerWithoutADescriptor) {
    ASSERT_NE(IFence::NO_FENCE, nullptr);
    const sp<IFence> created = IFence::create(-1);
    ASSERT_NE(created, nullptr);
    EXPECT_NE(created.get(), IFence::NO_FENCE.get());
    for (const sp<IFence>& f : {IFence::NO_FENCE, created}) {
        EXPECT_FALSE(f->isValid());
        EXPECT_EQ(f->getFd(), -1);
        EXPECT_STREQ(f->name(), "");
        EXPECT_EQ(f->wait(-1), 0);
        EXPECT_EQ(f->wait(0), 0);
        EXPECT_EQ(f->waitForever("cam"), 0);
        EXPECT_EQ(f->getSignalTime(), -1);
        errno = 0;
        EXPECT_EQ(f->dup(), -1);
        EXPECT_EQ(errno, EBADF);
    }
    EXPECT_TRUE(waitTimeouts().empty());
    expectNoLines();
}

TEST_F(SyncTest, FenceOwnsItsDescriptorAndReadsItsName) {
    const int fd = sw_sync_fence_create(mTimeline.fd, "preview-buffer-7", 1);
    ASSERT_GE(fd, 0);
    sp<IFence> f = IFence::create(fd);
    EXPECT_TRUE(f->isValid());
    EXPECT_EQ(f->getFd(), fd);
    EXPECT_STREQ(f->name(), "preview-buffer-7");

    const int copy = f->dup();
    ASSERT_GE(copy, 0);
    EXPECT_NE(copy, fd);
    UniqueFd owned(copy);
    advance();
    EXPECT_EQ(sync_wait(copy, 0), 0);
    EXPECT_EQ(recordsOf(copy).size(), 1u);

    f.clear();
    EXPECT_FALSE(isOpen(fd));
    EXPECT_TRUE(isOpen(copy));

    // A descriptor that is not a sync file still makes a valid fence, with no name.
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));
    EXPECT_TRUE(plain->isValid());
    EXPECT_STREQ(plain->name(), "");
}

TEST_F(SyncTest, MergeCoversEveryValidityCombination) {
    struct Case {
        const char* what;
        bool firstValid;
        bool secondValid;
    };
    for (const Case& c : {Case{"both valid", true, true}, Case{"first only", true, false},
                          Case{"second only", false, true}}) {
        SCOPED_TRACE(c.what);
        UniqueFd timeline(sw_sync_timeline_create());
        ASSERT_GE(timeline.fd, 0);
        sp<IFence> a = c.firstValid ? fenceOn(timeline.fd, 1, "a") : IFence::NO_FENCE;
        sp<IFence> b = c.secondValid ? fenceOn(timeline.fd, 2, "b") : IFence::NO_FENCE;
        const int aFd = a->getFd(), bFd = b->getFd();
        clearLogs();
        sp<IFence> m = IFence::merge("merged", a, b);
        ASSERT_TRUE(m->isValid());
        EXPECT_NE(m->getFd(), aFd);
        EXPECT_NE(m->getFd(), bFd);
        EXPECT_STREQ(m->name(), "merged");
        EXPECT_EQ(recordsOf(m->getFd()).size(), 1u);  // one timeline, its later point
        // The inputs keep their descriptors.
        EXPECT_EQ(a->getFd(), aFd);
        EXPECT_EQ(b->getFd(), bFd);
        EXPECT_EQ(isOpen(aFd), c.firstValid);
        EXPECT_EQ(isOpen(bFd), c.secondValid);

        ASSERT_EQ(sw_sync_timeline_inc(timeline.fd, 1), 0);
        EXPECT_EQ(m->wait(0), c.secondValid ? -ETIME : 0);
        ASSERT_EQ(sw_sync_timeline_inc(timeline.fd, 1), 0);
        EXPECT_EQ(m->wait(0), 0);
        expectNoLines();
    }

    const int callsBefore = mergeCalls();
    EXPECT_EQ(IFence::merge("none", IFence::NO_FENCE, IFence::create(-1)).get(),
              IFence::NO_FENCE.get());
    EXPECT_EQ(mergeCalls(), callsBefore);
    expectNoLines();
}

TEST_F(SyncTest, FailedMergeLogsAndGivesNoFence) {
    sp<IFence> good = fenceAt(1);
    sp<IFence> notSync = IFence::create(eventfd(0, EFD_CLOEXEC));
    const int before = openFdCount();
    sp<IFence> m = IFence::merge("bad", notSync, good);
    EXPECT_EQ(m.get(), IFence::NO_FENCE.get());
    EXPECT_EQ(openFdCount(), before);
    const std::string text = "[merge] Error merge: sync_merge(\"bad\", " +
                             std::to_string(notSync->getFd()) + ", " +
                             std::to_string(good->getFd()) + ")";
    expectOnlyLine(ANDROID_LOG_ERROR, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils", text);
    EXPECT_NE(androidLines()[0].text, text);  // the location suffix is there
}

TEST_F(SyncTest, WaitReportsTimeOutAndKernelErrors) {
    sp<IFence> f = fenceAt(1);
    EXPECT_EQ(f->wait(0), -ETIME);
    EXPECT_EQ(f->wait(1), -ETIME);
    advance();
    EXPECT_EQ(f->wait(0), 0);
    EXPECT_EQ(f->wait(-1), 0);

    sp<IFence> closed = IFence::create(unusedFd());
    EXPECT_TRUE(closed->isValid());
    EXPECT_EQ(closed->wait(0), -EINVAL);
    EXPECT_EQ(closed->waitForever("cam"), -EINVAL);
    EXPECT_EQ(waitTimeouts(), (std::vector<int>{0, 1, 0, -1, 0, 3000}));
    expectNoLines();
}

// Waiters return only once the fence has really signalled: a fence read after the wait must
// carry a signal time.
TEST_F(SyncTest, WaitersReturnWhenAnotherThreadSignals) {
    constexpr int kWaiters = 8;
    sp<IFence> f = fenceAt(1);
    std::atomic<int> ok{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&f, &ok, i] {
            const int r = (i % 2 == 0) ? f->wait(-1) : f->wait(60000);
            if (r == 0 && f->getSignalTime() != INT64_MAX) ++ok;
        });
    }
    advance();
    for (auto& t : waiters) t.join();
    EXPECT_EQ(ok.load(), kWaiters);
}

TEST_F(SyncTest, SignalTimeIsTheLatestPoint) {
    UniqueFd other(sw_sync_timeline_create());
    ASSERT_GE(other.fd, 0);
    sp<IFence> a = fenceAt(1, "a");
    sp<IFence> b = fenceOn(other.fd, 1, "b");
    sp<IFence> m = IFence::merge("m", a, b);
    EXPECT_EQ(m->getSignalTime(), INT64_MAX);
    advance();
    const int64_t aTime = a->getSignalTime();
    EXPECT_GT(aTime, 0);
    EXPECT_NE(aTime, INT64_MAX);
    EXPECT_EQ(m->getSignalTime(), INT64_MAX);
    ASSERT_EQ(sw_sync_timeline_inc(other.fd, 1), 0);
    const int64_t bTime = b->getSignalTime();
    EXPECT_GE(bTime, aTime);
    EXPECT_EQ(m->getSignalTime(), bTime);
    // Merging again keeps the same points and so the same time.
    EXPECT_EQ(IFence::merge("again", b, m)->getSignalTime(), bTime);
    expectNoLines();

    sp<IFence> notSync = IFence::create(eventfd(0, EFD_CLOEXEC));
    EXPECT_EQ(notSync->getSignalTime(), -1);
    expectOnlyLine(ANDROID_LOG_ERROR, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils",
                   "[getSignalTime] sync_fence_info returned NULL for fd " +
                           std::to_string(notSync->getFd()));
    EXPECT_NE(androidLines()[0].text, ulogLines()[0].text);
}

TEST_F(SyncTest, WaitForeverWarnsOnceWhenTheBoundedWaitRunsOut) {
    sp<IFence> f = fenceAt(1);
    // The bounded wait runs out, and the fence signals just after it.
    sBoundedWaitHook = [this](int, int) {
        advance();
        errno = ETIME;
        return -1;
    };
    EXPECT_EQ(f->waitForever("preview"), 0);
    EXPECT_EQ(waitTimeouts(), (std::vector<int>{3000, -1}));
    expectOnlyLine(ANDROID_LOG_WARN, NSCam::Utils::ULog::DETAILS_WARNING, "ZorCam/Utils",
                   "[waitForever] preview: fence " + std::to_string(f->getFd()) +
                           " didn't signal in 3000 ms");

    // Below details level 2 the warning is not written, and the wait is the same.
    sp<IFence> g = fenceAt(2);
    clearLogs();
    setULog(0x3, 1, 0x40007000);
    EXPECT_EQ(g->waitForever("preview"), 0);
    expectNoLines();

    // A fence that signalled in time, and a bounded wait failing otherwise: one wait, no line.
    sBoundedWaitHook = nullptr;
    setULog(0x3, 6, 0x40007000);
    sWaitTimeouts.clear();
    EXPECT_EQ(g->waitForever("preview"), 0);
    sBoundedWaitHook = [](int, int) {
        errno = EINTR;
        return -1;
    };
    EXPECT_EQ(fenceAt(9)->waitForever("preview"), -EINTR);
    EXPECT_EQ(waitTimeouts(), (std::vector<int>{3000, 3000}));
    expectNoLines();
}

TEST_F(SyncTest, TraceSectionsCloseOnEveryWayOut) {
    sp<IFence> pending = fenceAt(1);
    sp<IFence> notSync = IFence::create(eventfd(0, EFD_CLOEXEC));

    atrace_enabled_tags = 0;
    pending->wait(0);
    IFence::merge("m", pending, pending);
    EXPECT_TRUE(trace().empty());

    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    EXPECT_EQ(pending->wait(0), -ETIME);
    EXPECT_EQ(IFence::NO_FENCE->wait(0), 0);
    EXPECT_EQ(IFence::NO_FENCE->waitForever("x"), 0);
    IFence::merge("none", IFence::NO_FENCE, IFence::NO_FENCE);
    IFence::merge("fail", notSync, notSync);
    IFence::merge("ok", pending, IFence::NO_FENCE);
    sBoundedWaitHook = [this](int, int) {
        advance();
        errno = ETIME;
        return -1;
    };
    EXPECT_EQ(pending->waitForever("x"), 0);
    EXPECT_EQ(trace(), (std::vector<std::string>{"B:wait", "E", "B:wait", "E", "B:waitForever",
                                                 "E", "B:merge", "E", "B:merge", "E", "B:merge",
                                                 "E", "B:waitForever", "E"}));
}

TEST_F(SyncTest, TimelinesAreNotAvailable) {
    EXPECT_EQ(ITimeline::create("cam"), nullptr);
    expectOnlyLine(ANDROID_LOG_ERROR, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils",
                   "[create] sw_sync_timeline_create is no longer available ");
}

TEST_F(SyncTest, CyclesLeaveNoDescriptorOpen) {
    constexpr unsigned kCycles = 10000;
    const int before = openFdCount();
    for (unsigned i = 0; i < kCycles; ++i) {
        sp<IFence> a = fenceAt(2 * i + 1, "a");
        sp<IFence> b = fenceAt(2 * i + 2, "b");
        sp<IFence> m = IFence::merge("m", a, b);
        sp<IFence> self = IFence::merge("self", m, IFence::NO_FENCE);
        const int copy = self->dup();
        ASSERT_GE(copy, 0);
        close(copy);
        b.clear();  // dropped before it signals
        advance();
        ASSERT_EQ(a->wait(0), 0);
        ASSERT_EQ(m->wait(0), -ETIME);
        advance();
        ASSERT_EQ(self->wait(0), 0);
    }
    EXPECT_EQ(openFdCount(), before);
}

// ---- Stress, at the sizes platform sync suites use.

TEST_F(SyncTest, TwoThreadsTakeTurnsThroughFences) {
    constexpr unsigned kTurns = 65536;
    std::atomic<unsigned> turn{0};
    std::atomic<unsigned> faults{0};
    auto player = [&](unsigned first) {
        for (unsigned i = first; i < kTurns; i += 2) {
            sp<IFence> mine = fenceAt(i, "turn");
            if (mine->wait(-1) != 0 || turn.load() != i) {
                ++faults;
                return;
            }
            turn.store(i + 1);
            if (sw_sync_timeline_inc(mTimeline.fd, 1) != 0) ++faults;
        }
    };
    std::thread other(player, 1u);
    player(0);
    other.join();
    EXPECT_EQ(faults.load(), 0u);
    EXPECT_EQ(turn.load(), kTurns);
}

TEST_F(SyncTest, ConsumerWaitsOnMergedFencesOfSixteenProducers) {
    constexpr int kProducers = 16;
    constexpr unsigned kRounds = 4096;
    std::vector<UniqueFd> timelines;
    for (int p = 0; p < kProducers; ++p) {
        timelines.emplace_back(sw_sync_timeline_create());
        ASSERT_GE(timelines.back().fd, 0);
    }
    std::atomic<unsigned> done[kProducers] = {};
    std::atomic<unsigned> faults{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (unsigned r = 0; r < kRounds; ++r) {
                if (fenceAt(r + 1, "go")->wait(-1) != 0) ++faults;
                done[p].store(r + 1);
                if (sw_sync_timeline_inc(timelines[p].fd, 1) != 0) ++faults;
            }
        });
    }
    for (unsigned r = 0; r < kRounds; ++r) {
        sp<IFence> all = IFence::NO_FENCE;
        for (int p = 0; p < kProducers; ++p)
            all = IFence::merge("round", all, fenceOn(timelines[p].fd, r + 1, "done"));
        advance();
        if (all->wait(-1) != 0) ++faults;
        for (int p = 0; p < kProducers; ++p)
            if (done[p].load() != r + 1) ++faults;
    }
    for (auto& t : producers) t.join();
    EXPECT_EQ(faults.load(), 0u);
}

TEST_F(SyncTest, RandomMergesKeepOnePointPerTimeline) {
    constexpr int kTimelines = 32;
    constexpr int kMerges = 32768;
    std::vector<UniqueFd> timelines;
    for (int t = 0; t < kTimelines; ++t) {
        timelines.emplace_back(sw_sync_timeline_create());
        ASSERT_GE(timelines.back().fd, 0);
    }
    std::mt19937 rng(1234);
    std::vector<unsigned> latest(kTimelines, 0);
    size_t distinct = 0;
    sp<IFence> merged = IFence::NO_FENCE;
    for (int i = 0; i < kMerges; ++i) {
        const int t = static_cast<int>(rng() % kTimelines);
        const unsigned value = 1 + rng() % 1000;
        if (latest[t] == 0) ++distinct;
        latest[t] = std::max(latest[t], value);
        merged = IFence::merge("random", merged, fenceOn(timelines[t].fd, value, "r"));
        ASSERT_TRUE(merged->isValid()) << "merge " << i;
        ASSERT_EQ(recordsOf(merged->getFd()).size(), distinct) << "merge " << i;
    }
    // Each timeline one short of its latest value: the merged fence keeps waiting.
    for (int t = 0; t < kTimelines; ++t)
        ASSERT_EQ(sw_sync_timeline_inc(timelines[t].fd, latest[t] - 1), 0);
    EXPECT_EQ(merged->wait(0), -ETIME);
    ASSERT_EQ(distinct, static_cast<size_t>(kTimelines));
    std::vector<int> order(kTimelines);
    for (int t = 0; t < kTimelines; ++t) order[t] = t;
    std::shuffle(order.begin(), order.end(), rng);
    for (size_t k = 0; k < order.size(); ++k) {
        const int t = order[k];
        ASSERT_EQ(sw_sync_timeline_inc(timelines[t].fd, 1), 0);
        if (k + 1 < order.size()) {
            EXPECT_EQ(merged->wait(0), -ETIME) << "after timeline " << t;
        }
    }
    EXPECT_EQ(merged->wait(0), 0);
    EXPECT_NE(merged->getSignalTime(), INT64_MAX);
}

}  // namespace
