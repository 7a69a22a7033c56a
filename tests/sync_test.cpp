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

// libsync's sync_wait and sync_merge and libcutils' trace calls are recorded in call order, then
// passed on to the real ones; a test may script the bounded wait instead.
namespace {
using Calls = std::vector<std::string>;
std::mutex sLock;
Calls sCalls;
std::function<int()> sBoundedWait;

std::function<int()> record(const std::string& call) {
    std::lock_guard<std::mutex> guard(sLock);
    sCalls.push_back(call);
    return sBoundedWait;
}
}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    const std::function<int()> scripted = record("sync_wait " + std::to_string(timeout));
    if (scripted && timeout >= 0) return scripted();
    static auto real = reinterpret_cast<decltype(&sync_wait)>(dlsym(RTLD_NEXT, "sync_wait"));
    return real(fd, timeout);
}

extern "C" int sync_merge(const char* name, int fd1, int fd2) {
    record("sync_merge");
    static auto real = reinterpret_cast<decltype(&sync_merge)>(dlsym(RTLD_NEXT, "sync_merge"));
    return real(name, fd1, fd2);
}

extern "C" void atrace_begin_body(const char* name) { record(name); }
extern "C" void atrace_end_body() { record("end"); }

namespace {

using NSCam::Utils::ULog::DETAILS_ERROR;
using NSCam::Utils::ULog::DETAILS_WARNING;

class SyncTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mTimeline = newTimeline();
        atrace_enabled_tags = 0;
        sCalls.clear();
    }
    void TearDown() override {
        sBoundedWait = nullptr;
        for (int fd : mTimelines) close(fd);
        LogCaptureTest::TearDown();
    }

    int newTimeline() {
        mTimelines.push_back(sw_sync_timeline_create());
        EXPECT_GE(mTimelines.back(), 0);
        return mTimelines.back();
    }
    static sp<IFence> fenceOn(int timeline, unsigned value) {
        return IFence::create(sw_sync_fence_create(timeline, "fence", value));
    }
    sp<IFence> fenceAt(unsigned value) { return fenceOn(mTimeline, value); }
    void advance(int timeline, unsigned n = 1) { ASSERT_EQ(sw_sync_timeline_inc(timeline, n), 0); }
    void advance() { advance(mTimeline); }
    void expectError(const std::string& text) {
        expectOnlyLine(ANDROID_LOG_ERROR, DETAILS_ERROR, "ZorCam/Utils", text);
        clearLogs();
    }
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
};

TEST_F(SyncTest, CreateTakesOverTheDescriptor) {
    // -1 makes a new invalid fence; invalid fences answer at once, without a call or a line.
    const sp<IFence> invalid = IFence::create(-1);
    EXPECT_NE(invalid, IFence::NO_FENCE);
    for (const sp<IFence>& i : {IFence::NO_FENCE, invalid}) {
        EXPECT_EQ(i->wait(-1), 0);
        EXPECT_EQ(i->waitForever("cam"), 0);
        EXPECT_EQ(i->getSignalTime(), -1);
    }
    EXPECT_EQ(IFence::merge("none", IFence::NO_FENCE, invalid), IFence::NO_FENCE);
    EXPECT_TRUE(sCalls.empty());
    expectNoLines();

    const int fd = sw_sync_fence_create(mTimeline, "preview-buffer-7", 1);
    sp<IFence> f = IFence::create(fd);
    EXPECT_EQ(f->getFd(), fd);
    EXPECT_STREQ(f->name(), "preview-buffer-7");
    const int copy = f->dup();
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
        sp<IFence> m = IFence::merge("merged", a, b);
        EXPECT_STREQ(m->name(), "merged");
        for (const sp<IFence>& in : {a, b}) {  // the inputs keep their own descriptors
            EXPECT_NE(m->getFd(), in->getFd());
            EXPECT_EQ(fcntl(in->getFd(), F_GETFD) != -1, in->isValid());
        }
        advance(timeline);
        EXPECT_EQ(m->wait(0), (mask & 2) ? -ETIME : 0);
        advance(timeline);
        EXPECT_EQ(m->wait(0), 0);
    }
    expectNoLines();
}

TEST_F(SyncTest, FailuresWriteOneErrorLine) {
    sp<IFence> good = fenceAt(1);
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));  // not a sync file
    const std::string fds = std::to_string(plain->getFd()) + ", " + std::to_string(good->getFd());
    EXPECT_EQ(IFence::merge("bad", plain, good), IFence::NO_FENCE);
    expectError("[merge] Error merge: sync_merge(\"bad\", " + fds + ")");
    EXPECT_EQ(plain->getSignalTime(), -1);
    expectError("[getSignalTime] sync_fence_info returned NULL for fd " +
                std::to_string(plain->getFd()));
    EXPECT_EQ(ITimeline::create("cam"), nullptr);
    expectError("[create] sw_sync_timeline_create is no longer available ");
}

TEST_F(SyncTest, WaitsPassTimeOutsAndErrorsBack) {
    sp<IFence> f = fenceAt(1);
    EXPECT_EQ(f->wait(0), -ETIME);
    advance();
    EXPECT_EQ(f->wait(-1), 0);
    const int closed = fcntl(0, F_DUPFD_CLOEXEC, 900);  // a number that nothing holds
    close(closed);
    sp<IFence> stale = IFence::create(closed);
    EXPECT_EQ(stale->wait(0), -EINVAL);
    EXPECT_EQ(stale->waitForever("cam"), -EINVAL);  // neither a warning nor a second wait
    EXPECT_EQ(sCalls, (Calls{"sync_wait 0", "sync_wait -1", "sync_wait 0", "sync_wait 3000"}));
    expectNoLines();

    sp<IFence> late = fenceAt(2);
    sCalls.clear();
    signalAfterBoundedWait();
    EXPECT_EQ(late->waitForever("preview"), 0);
    EXPECT_EQ(sCalls, (Calls{"sync_wait 3000", "sync_wait -1"}));
    expectOnlyLine(ANDROID_LOG_WARN, DETAILS_WARNING, "ZorCam/Utils",
                   "[waitForever] preview: fence " + std::to_string(late->getFd()) +
                           " didn't signal in 3000 ms");
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
    advance();
    EXPECT_EQ(m->getSignalTime(), INT64_MAX);
    advance(other);
    EXPECT_LT(a->getSignalTime(), b->getSignalTime());
    EXPECT_EQ(m->getSignalTime(), b->getSignalTime());
    EXPECT_EQ(IFence::merge("again", b, m)->getSignalTime(), b->getSignalTime());
    expectNoLines();
}

TEST_F(SyncTest, TraceSectionsCloseOnEveryWayOut) {
    sp<IFence> f = fenceAt(1);
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));
    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    f->wait(0);
    IFence::NO_FENCE->waitForever("x");
    IFence::merge("none", IFence::NO_FENCE, IFence::NO_FENCE);
    IFence::merge("fail", plain, plain);
    signalAfterBoundedWait();
    f->waitForever("x");
    EXPECT_EQ(sCalls, (Calls{"wait", "sync_wait 0", "end", "waitForever", "end", "merge", "end",
                             "merge", "sync_merge", "end", "waitForever", "sync_wait 3000",
                             "sync_wait -1", "end"}));
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
        advance(mTimeline, 2);  // m and self signal
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
}

TEST_F(SyncTest, ConsumerWaitsOnMergedFencesOfSixteenProducers) {
    constexpr unsigned kRounds = 4096;
    std::vector<int> timelines(16);
    for (int& t : timelines) t = newTimeline();
    std::atomic<unsigned> done[16] = {};
    std::atomic<unsigned> faults{0};
    std::vector<std::thread> producers;
    for (size_t p = 0; p < timelines.size(); ++p)
        producers.emplace_back([&, p] {
            for (unsigned r = 1; r <= kRounds; ++r) {
                if (fenceAt(r)->wait(-1) != 0) ++faults;  // the consumer's go
                done[p].store(r);
                sw_sync_timeline_inc(timelines[p], 1);
            }
        });
    for (unsigned r = 1; r <= kRounds; ++r) {
        sp<IFence> all = IFence::NO_FENCE;
        for (int t : timelines) all = IFence::merge("round", all, fenceOn(t, r));
        advance();
        if (all->wait(-1) != 0) ++faults;
        for (auto& d : done) faults += d.load() != r;
    }
    for (auto& t : producers) t.join();
    EXPECT_EQ(faults.load(), 0u);
}

TEST_F(SyncTest, RandomMergesKeepOnePointPerTimeline) {
    std::vector<int> timelines(32);
    for (int& t : timelines) t = newTimeline();
    std::vector<unsigned> latest(timelines.size(), 0);
    std::mt19937 rng(1234);
    size_t distinct = 0;
    sp<IFence> merged = IFence::NO_FENCE;
    for (int i = 0; i < 32768; ++i) {
        const size_t t = rng() % timelines.size();
        const unsigned value = 1 + rng() % 1000;
        distinct += latest[t] == 0;
        latest[t] = std::max(latest[t], value);
        merged = IFence::merge("random", merged, fenceOn(timelines[t], value));
        struct sync_file_info* info = sync_file_info(merged->getFd());
        ASSERT_EQ(info != nullptr ? info->num_fences : 0u, distinct) << "merge " << i;
        sync_file_info_free(info);
    }
    // One short of the latest value on every timeline, then the last step one by one: only
    // the last step of all signals the merged fence.
    for (size_t t = 0; t < timelines.size(); ++t) advance(timelines[t], latest[t] - 1);
    std::shuffle(timelines.begin(), timelines.end(), rng);
    for (int t : timelines) {
        EXPECT_EQ(merged->wait(0), -ETIME);
        advance(t);
    }
    EXPECT_EQ(merged->wait(0), 0);
}

}  // namespace
