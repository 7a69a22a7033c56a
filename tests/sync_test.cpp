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

// Recorders in place of libsync's and libcutils' functions; sync_wait and sync_merge pass on to
// the real ones unless a test scripts the bounded wait.
namespace {
std::mutex sLock;
std::vector<int> sWaits;
int sMerges = 0;
std::vector<std::string> sTrace;
std::function<int()> sBoundedWait;

template <typename F>
F real(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    std::function<int()> scripted;
    {
        std::lock_guard<std::mutex> guard(sLock);
        sWaits.push_back(timeout);
        if (timeout >= 0) scripted = sBoundedWait;
    }
    if (scripted) return scripted();
    static auto fn = real<int (*)(int, int)>("sync_wait");
    return fn(fd, timeout);
}

extern "C" int sync_merge(const char* name, int fd1, int fd2) {
    {
        std::lock_guard<std::mutex> guard(sLock);
        ++sMerges;
    }
    static auto fn = real<int (*)(const char*, int, int)>("sync_merge");
    return fn(name, fd1, fd2);
}

extern "C" void atrace_begin_body(const char* name) {
    std::lock_guard<std::mutex> guard(sLock);
    sTrace.push_back(name);
}

extern "C" void atrace_end_body() {
    std::lock_guard<std::mutex> guard(sLock);
    sTrace.push_back("end");
}

namespace {

using NSCam::Utils::ULog::DETAILS_ERROR;
using NSCam::Utils::ULog::DETAILS_WARNING;

size_t recordCount(int fd) {
    struct sync_file_info* info = sync_file_info(fd);
    const size_t n = info != nullptr ? info->num_fences : 0;
    sync_file_info_free(info);
    return n;
}

class SyncTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mTimeline = newTimeline();
        mSavedTags = atrace_enabled_tags;
        sWaits.clear();
        sMerges = 0;
        sTrace.clear();
    }
    void TearDown() override {
        atrace_enabled_tags = mSavedTags;
        sBoundedWait = nullptr;
        for (int fd : mTimelines) close(fd);
        LogCaptureTest::TearDown();
    }

    int newTimeline() {
        mTimelines.push_back(sw_sync_timeline_create());
        EXPECT_GE(mTimelines.back(), 0);
        return mTimelines.back();
    }
    static sp<IFence> fenceOn(int timeline, unsigned value, const char* name = "fence") {
        return IFence::create(sw_sync_fence_create(timeline, name, value));
    }
    sp<IFence> fenceAt(unsigned value) { return fenceOn(mTimeline, value); }
    void advance(int timeline, unsigned n = 1) { ASSERT_EQ(sw_sync_timeline_inc(timeline, n), 0); }
    void advance() { advance(mTimeline); }
    // The bounded wait of waitForever runs out, and the fence signals just after it.
    void signalAfterBoundedWait() {
        sBoundedWait = [this] {
            advance();
            errno = ETIME;
            return -1;
        };
    }

    int mTimeline = -1;
    std::vector<int> mTimelines;
    uint64_t mSavedTags = 0;
};

TEST_F(SyncTest, InvalidFencesAnswerWithoutADescriptor) {
    const sp<IFence> created = IFence::create(-1);
    ASSERT_NE(IFence::NO_FENCE, nullptr);
    EXPECT_NE(created.get(), IFence::NO_FENCE.get());
    for (const sp<IFence>& f : {IFence::NO_FENCE, created}) {
        EXPECT_FALSE(f->isValid());
        EXPECT_EQ(f->getFd(), -1);
        EXPECT_STREQ(f->name(), "");
        EXPECT_EQ(f->wait(-1), 0);
        EXPECT_EQ(f->waitForever("cam"), 0);
        EXPECT_EQ(f->getSignalTime(), -1);
        EXPECT_EQ(f->dup(), -1);
    }
    EXPECT_TRUE(sWaits.empty());
    expectNoLines();
}

TEST_F(SyncTest, FenceOwnsItsDescriptorAndReadsItsName) {
    const int fd = sw_sync_fence_create(mTimeline, "preview-buffer-7", 1);
    sp<IFence> f = IFence::create(fd);
    EXPECT_TRUE(f->isValid());
    EXPECT_EQ(f->getFd(), fd);
    EXPECT_STREQ(f->name(), "preview-buffer-7");
    const int copy = f->dup();
    EXPECT_NE(copy, fd);
    f.clear();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    advance();
    EXPECT_EQ(sync_wait(copy, 0), 0);  // the copy is the same sync file
    close(copy);
}

TEST_F(SyncTest, MergeCoversEveryValidityCombination) {
    for (int mask : {3, 1, 2}) {
        SCOPED_TRACE(mask);
        const int timeline = newTimeline();
        sp<IFence> a = (mask & 1) ? fenceOn(timeline, 1) : IFence::NO_FENCE;
        sp<IFence> b = (mask & 2) ? fenceOn(timeline, 2) : IFence::NO_FENCE;
        const int aFd = a->getFd(), bFd = b->getFd();
        sp<IFence> m = IFence::merge("merged", a, b);
        EXPECT_NE(m->getFd(), aFd);
        EXPECT_NE(m->getFd(), bFd);
        EXPECT_STREQ(m->name(), "merged");
        EXPECT_EQ(recordCount(m->getFd()), 1u);  // one timeline, its later point
        EXPECT_EQ(fcntl(aFd, F_GETFD) != -1, (mask & 1) != 0);
        EXPECT_EQ(fcntl(bFd, F_GETFD) != -1, (mask & 2) != 0);
        advance(timeline);
        EXPECT_EQ(m->wait(0), (mask & 2) ? -ETIME : 0);
        advance(timeline);
        EXPECT_EQ(m->wait(0), 0);
    }
    const int merges = sMerges;
    EXPECT_EQ(IFence::merge("none", IFence::NO_FENCE, IFence::create(-1)), IFence::NO_FENCE);
    EXPECT_EQ(sMerges, merges);
    expectNoLines();
}

TEST_F(SyncTest, FailuresWriteOneErrorLine) {
    sp<IFence> good = fenceAt(1);
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));  // not a sync file
    EXPECT_TRUE(plain->isValid());
    EXPECT_STREQ(plain->name(), "");
    const std::string fds = std::to_string(plain->getFd()) + ", " + std::to_string(good->getFd());
    const int before = openFdCount();
    EXPECT_EQ(IFence::merge("bad", plain, good), IFence::NO_FENCE);
    EXPECT_EQ(openFdCount(), before);
    expectOnlyLine(ANDROID_LOG_ERROR, DETAILS_ERROR, "ZorCam/Utils",
                   "[merge] Error merge: sync_merge(\"bad\", " + fds + ")");
    EXPECT_NE(androidLines()[0].text, ulogLines()[0].text);  // with the location suffix

    clearLogs();
    EXPECT_EQ(plain->getSignalTime(), -1);
    expectOnlyLine(ANDROID_LOG_ERROR, DETAILS_ERROR, "ZorCam/Utils",
                   "[getSignalTime] sync_fence_info returned NULL for fd " +
                           std::to_string(plain->getFd()));
    clearLogs();
    EXPECT_EQ(ITimeline::create("cam"), nullptr);
    expectOnlyLine(ANDROID_LOG_ERROR, DETAILS_ERROR, "ZorCam/Utils",
                   "[create] sw_sync_timeline_create is no longer available ");
}

TEST_F(SyncTest, WaitReportsTimeOutAndKernelErrors) {
    sp<IFence> f = fenceAt(1);
    EXPECT_EQ(f->wait(0), -ETIME);
    advance();
    EXPECT_EQ(f->wait(0), 0);
    EXPECT_EQ(f->wait(-1), 0);
    const int closed = fcntl(0, F_DUPFD_CLOEXEC, 900);  // a number that nothing holds
    close(closed);
    sp<IFence> stale = IFence::create(closed);
    EXPECT_EQ(stale->wait(0), -EINVAL);
    EXPECT_EQ(stale->waitForever("cam"), -EINVAL);
    EXPECT_EQ(sWaits, (std::vector<int>{0, 0, -1, 0, 3000}));
    expectNoLines();
}

// A waiter that returned must find the fence signalled, whichever thread signalled it.
TEST_F(SyncTest, WaitersReturnWhenAnotherThreadSignals) {
    sp<IFence> f = fenceAt(1);
    std::atomic<int> ok{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 8; ++i)
        waiters.emplace_back([&f, &ok, i] {
            if (f->wait(i % 2 ? -1 : 60000) == 0 && f->getSignalTime() != INT64_MAX) ++ok;
        });
    advance();
    for (auto& t : waiters) t.join();
    EXPECT_EQ(ok.load(), 8);
}

TEST_F(SyncTest, SignalTimeIsTheLatestPoint) {
    const int other = newTimeline();
    sp<IFence> a = fenceAt(1), b = fenceOn(other, 1);
    sp<IFence> m = IFence::merge("m", a, b);
    EXPECT_EQ(m->getSignalTime(), INT64_MAX);
    advance();
    EXPECT_EQ(m->getSignalTime(), INT64_MAX);
    advance(other);
    EXPECT_LT(a->getSignalTime(), b->getSignalTime());
    EXPECT_EQ(m->getSignalTime(), b->getSignalTime());
    EXPECT_EQ(IFence::merge("again", b, m)->getSignalTime(), b->getSignalTime());
    expectNoLines();
}

TEST_F(SyncTest, WaitForeverWarnsOnceWhenTheBoundedWaitRunsOut) {
    sp<IFence> f = fenceAt(1);
    signalAfterBoundedWait();
    EXPECT_EQ(f->waitForever("preview"), 0);
    EXPECT_EQ(sWaits, (std::vector<int>{3000, -1}));
    expectOnlyLine(ANDROID_LOG_WARN, DETAILS_WARNING, "ZorCam/Utils",
                   "[waitForever] preview: fence " + std::to_string(f->getFd()) +
                           " didn't signal in 3000 ms");

    clearLogs();
    sBoundedWait = [] {
        errno = EINTR;
        return -1;
    };
    sWaits.clear();
    EXPECT_EQ(fenceAt(9)->waitForever("preview"), -EINTR);
    EXPECT_EQ(sWaits, (std::vector<int>{3000}));
    expectNoLines();
}

TEST_F(SyncTest, TraceSectionsCloseOnEveryWayOut) {
    sp<IFence> f = fenceAt(1);
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));
    atrace_enabled_tags = ~uint64_t{ATRACE_TAG_CAMERA};
    f->wait(0);
    IFence::merge("m", f, f);
    EXPECT_TRUE(sTrace.empty());

    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    f->wait(0);
    IFence::NO_FENCE->waitForever("x");
    IFence::merge("none", IFence::NO_FENCE, IFence::NO_FENCE);
    IFence::merge("fail", plain, plain);
    IFence::merge("ok", f, IFence::NO_FENCE);
    signalAfterBoundedWait();
    f->waitForever("x");
    EXPECT_EQ(sTrace, (std::vector<std::string>{"wait", "end", "waitForever", "end", "merge",
                                                "end", "merge", "end", "merge", "end",
                                                "waitForever", "end"}));
}

TEST_F(SyncTest, CyclesLeaveNoDescriptorOpen) {
    const int stuck = newTimeline();  // never advanced
    const int before = openFdCount();
    for (unsigned i = 0; i < 10000; ++i) {
        sp<IFence> a = fenceAt(2 * i + 1), b = fenceAt(2 * i + 2);
        sp<IFence> m = IFence::merge("m", a, b);
        sp<IFence> self = IFence::merge("self", m, IFence::NO_FENCE);
        close(self->dup());
        b.clear();  // dropped before they signal
        IFence::merge("never", a, fenceOn(stuck, 1));
        advance();
        ASSERT_EQ(m->wait(0), -ETIME);
        advance();
        ASSERT_EQ(self->wait(0), 0);
    }
    EXPECT_EQ(openFdCount(), before);
}

// ---- Stress, at the sizes platform sync suites use.

TEST_F(SyncTest, TwoThreadsTakeTurnsThroughFences) {
    constexpr unsigned kTurns = 65536;
    std::atomic<unsigned> turn{0}, faults{0};
    auto player = [&](unsigned first) {
        for (unsigned i = first; i < kTurns; i += 2) {
            if (fenceAt(i)->wait(-1) != 0 || turn.load() != i) ++faults;
            turn.store(i + 1);
            sw_sync_timeline_inc(mTimeline, 1);
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
    std::vector<int> timelines;
    for (int p = 0; p < kProducers; ++p) timelines.push_back(newTimeline());
    std::atomic<unsigned> done[kProducers] = {};
    std::atomic<unsigned> faults{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (unsigned r = 0; r < kRounds; ++r) {
                if (fenceAt(r + 1)->wait(-1) != 0) ++faults;  // the consumer's go
                done[p].store(r + 1);
                sw_sync_timeline_inc(timelines[p], 1);
            }
        });
    for (unsigned r = 0; r < kRounds; ++r) {
        sp<IFence> all = IFence::NO_FENCE;
        for (int p = 0; p < kProducers; ++p)
            all = IFence::merge("round", all, fenceOn(timelines[p], r + 1));
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
    std::vector<int> timelines;
    for (int t = 0; t < kTimelines; ++t) timelines.push_back(newTimeline());
    std::mt19937 rng(1234);
    std::vector<unsigned> latest(kTimelines, 0);
    size_t distinct = 0;
    sp<IFence> merged = IFence::NO_FENCE;
    for (int i = 0; i < 32768; ++i) {
        const int t = static_cast<int>(rng() % kTimelines);
        const unsigned value = 1 + rng() % 1000;
        if (latest[t] == 0) ++distinct;
        latest[t] = std::max(latest[t], value);
        merged = IFence::merge("random", merged, fenceOn(timelines[t], value));
        ASSERT_EQ(recordCount(merged->getFd()), distinct) << "merge " << i;
    }
    ASSERT_EQ(distinct, size_t{kTimelines});
    // One short of the latest value on every timeline, then the last step one by one: only
    // the last step of all signals the merged fence.
    for (int t = 0; t < kTimelines; ++t) advance(timelines[t], latest[t] - 1);
    std::shuffle(timelines.begin(), timelines.end(), rng);
    for (int t = 0; t < kTimelines; ++t) {
        EXPECT_EQ(merged->wait(0), -ETIME) << "step " << t;
        advance(timelines[t]);
    }
    EXPECT_EQ(merged->wait(0), 0);
}

}  // namespace
