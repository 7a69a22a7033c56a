#include "FdCount.h"
#include "LogCapture.h"

#include <zorcam/utils/std/Sync.h>

#include <android/sw_sync.h>
#include <android/sync.h>
#include <cutils/trace.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
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

class SyncTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        atrace_enabled_tags = 0;
        sCalls.clear();
    }
    void TearDown() override {
        sBoundedWait = nullptr;
        for (int fd : mTimelines) close(fd);
        LogCaptureTest::TearDown();
    }

    int newTimeline() { return mTimelines.emplace_back(sw_sync_timeline_create()); }
    sp<IFence> fenceAt(unsigned value, int timeline = -1, const char* name = "fence") {
        return IFence::create(
                sw_sync_fence_create(timeline < 0 ? mTimeline : timeline, name, value));
    }
    void advance(unsigned n = 1, int timeline = -1) {
        ASSERT_EQ(sw_sync_timeline_inc(timeline < 0 ? mTimeline : timeline, n), 0);
    }

    std::vector<int> mTimelines;
    const int mTimeline = newTimeline();
};

// create(-1) makes a new invalid fence, which answers at once without a call; invalid inputs
// of a merge are left out (two give NO_FENCE without a sync_merge). A merged fence has a new
// descriptor, the inputs keep theirs, and its signal time is that of its latest point.
TEST_F(SyncTest, MergeCoversEveryValidityCombination) {
    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    for (int mask : {0, 1, 2, 3}) {
        SCOPED_TRACE(mask);
        const int first = newTimeline(), second = newTimeline();
        sp<IFence> a = (mask & 1) ? fenceAt(1, first) : IFence::create(-1);
        sp<IFence> b = (mask & 2) ? fenceAt(1, second) : IFence::NO_FENCE;
        sCalls.clear();
        if (mask == 0) {
            EXPECT_NE(a, IFence::NO_FENCE);
            EXPECT_EQ(a->wait(-1), 0);
            EXPECT_EQ(a->waitForever("cam"), 0);
            EXPECT_EQ(a->getSignalTime(), -1);
            EXPECT_EQ(IFence::merge("merged", a, b), IFence::NO_FENCE);
            EXPECT_EQ(sCalls, (Calls{"wait", "end", "waitForever", "end", "merge", "end"}));
            continue;
        }
        sp<IFence> m = IFence::merge("merged", a, b);
        EXPECT_STREQ(m->name(), "merged");
        for (const sp<IFence>& in : {a, b}) {
            EXPECT_NE(m->getFd(), in->getFd());
            EXPECT_EQ(fcntl(in->getFd(), F_GETFD) != -1, in->isValid());
        }
        advance(1, first);
        EXPECT_EQ(m->wait(0), (mask & 2) ? -ETIME : 0);
        EXPECT_EQ(m->getSignalTime(), (mask & 2) ? INT64_MAX : a->getSignalTime());
        advance(1, second);
        EXPECT_EQ(m->wait(0), 0);
        EXPECT_EQ(m->getSignalTime(), ((mask & 2) ? b : a)->getSignalTime());
        EXPECT_LT(a->getSignalTime(), mask == 3 ? b->getSignalTime() : INT64_MAX);
    }
    expectNoLines();
}

TEST_F(SyncTest, CreateTakesOverTheDescriptor) {
    sp<IFence> f = IFence::merge("preview-buffer-7", fenceAt(1), IFence::NO_FENCE);
    const int fd = f->getFd();
    EXPECT_STREQ(f->name(), "preview-buffer-7");
    const int copy = f->dup();
    f.clear();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    advance();
    EXPECT_EQ(sync_wait(copy, 0), 0);  // the copy is the same sync file
    close(copy);
}

TEST_F(SyncTest, FailuresWriteOneErrorLine) {
    sp<IFence> good = fenceAt(1);
    sp<IFence> plain = IFence::create(eventfd(0, EFD_CLOEXEC));  // not a sync file
    const std::string fds = std::to_string(plain->getFd()) + ", " + std::to_string(good->getFd());
    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    EXPECT_EQ(IFence::merge("bad", plain, good), IFence::NO_FENCE);
    EXPECT_EQ(sCalls, (Calls{"merge", "sync_merge", "end"}));
    expectError("[merge] Error merge: sync_merge(\"bad\", " + fds + ")");
    EXPECT_EQ(plain->getSignalTime(), -1);
    expectError("[getSignalTime] sync_fence_info returned NULL for fd " +
                std::to_string(plain->getFd()));
    EXPECT_EQ(ITimeline::create("cam"), nullptr);
    expectError("[create] sw_sync_timeline_create is no longer available ");
}

// Every way out of wait and waitForever closes its trace section. waitForever's bounded wait
// runs out and the fence signals just after it: one warning, then one unbounded wait.
TEST_F(SyncTest, WaitsPassTimeOutsAndErrorsBack) {
    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    sp<IFence> f = fenceAt(1);
    EXPECT_EQ(f->wait(0), -ETIME);
    advance();
    EXPECT_EQ(f->wait(-1), 0);
    const int closed = fcntl(0, F_DUPFD_CLOEXEC, 900);  // a number that nothing holds
    close(closed);
    sp<IFence> stale = IFence::create(closed);
    EXPECT_EQ(stale->wait(0), -EINVAL);
    EXPECT_EQ(stale->waitForever("cam"), -EINVAL);  // neither a warning nor a second wait
    EXPECT_EQ(IFence::NO_FENCE->waitForever("x"), 0);
    EXPECT_EQ(sCalls, (Calls{"wait", "sync_wait 0", "end", "wait", "sync_wait -1", "end",
                             "wait", "sync_wait 0", "end", "waitForever", "sync_wait 3000", "end",
                             "waitForever", "end"}));
    expectNoLines();

    sp<IFence> late = fenceAt(2);
    sCalls.clear();
    sBoundedWait = [this] {  // runs out, and the fence signals just after it
        advance();
        errno = ETIME;
        return -1;
    };
    EXPECT_EQ(late->waitForever("preview"), 0);
    EXPECT_EQ(sCalls, (Calls{"waitForever", "sync_wait 3000", "sync_wait -1", "end"}));
    expectOnlyLine(5, NSCam::Utils::ULog::DETAILS_WARNING, "ZorCam/Utils",
                   "[waitForever] preview: fence " + std::to_string(late->getFd()) +
                           " didn't signal in 3000 ms");
}

// Descriptors open once the emulation has released what was closed (at its next call, as a
// kernel does at the close).
int releasedFdCount() {
    sync_file_info_free(sync_file_info(-1));
    return openFdCount();
}

// One fence shared by many threads: four wait on it while four merge it, duplicate its
// descriptor and drop their references, and the test drops its own before it signals. Every
// waiter and every merged fence sees the one signal, and no descriptor outlives its fence.
TEST_F(SyncTest, SharedFenceIsWaitedOnWhileMergedDuplicatedAndReleased) {
    const int before = openFdCount();
    sp<IFence> shared = fenceAt(1, -1, "shared");
    constexpr int kPairs = 4, kRounds = 200;
    std::atomic<int> faults{0};
    std::vector<int64_t> waited(kPairs);
    std::vector<sp<IFence>> kept(kPairs);
    std::vector<std::thread> waiters, mergers;
    for (int t = 0; t < kPairs; ++t) {
        waiters.emplace_back([&faults, &waited, t, f = shared] {
            faults += f->wait(60000) != 0;
            waited[t] = f->getSignalTime();
        });
        mergers.emplace_back([&faults, &kept, t, f = shared] {
            for (int r = 0; r < kRounds; ++r) {
                const sp<IFence>& none = IFence::NO_FENCE;
                sp<IFence> m = IFence::merge("m", r % 3 == 0 ? none : f, r % 3 == 1 ? none : f);
                faults += !m->isValid() || m->getFd() == f->getFd();
                faults += std::string(m->name()) != "m";
                faults += m->wait(0) != -ETIME || m->getSignalTime() != INT64_MAX;
                sp<IFence> copy = IFence::create(f->dup());
                faults += copy->getFd() == f->getFd() || strcmp(copy->name(), f->name()) != 0;
                kept[t] = m;
            }
        });
    }
    for (auto& t : mergers) t.join();
    EXPECT_EQ(faults.load(), 0) << "before the signal";
    shared.clear();  // the waiters hold the last references
    advance();
    for (auto& t : waiters) t.join();
    EXPECT_EQ(faults.load(), 0);
    EXPECT_TRUE(waited[0] > 0 && waited[0] != INT64_MAX) << waited[0];
    for (int t = 0; t < kPairs; ++t) {
        EXPECT_EQ(waited[t], waited[0]) << "waiter " << t;
        EXPECT_TRUE(kept[t]->wait(0) == 0 && kept[t]->getSignalTime() == waited[0]) << t;
    }
    kept.clear();
    EXPECT_EQ(releasedFdCount(), before);
}

TEST_F(SyncTest, CyclesLeaveNoDescriptorOpen) {
    const int stuck = newTimeline();  // never advanced
    const int before = openFdCount();
    for (unsigned i = 0; i < 10000; ++i) {
        sp<IFence> a = fenceAt(2 * i + 1), b = fenceAt(2 * i + 2);
        sp<IFence> self = IFence::merge("self", IFence::merge("m", a, b), IFence::NO_FENCE);
        close(self->dup());
        b.clear();  // dropped before they signal
        IFence::merge("never", a, fenceAt(1, stuck));
        advance(2);
    }
    EXPECT_EQ(releasedFdCount(), before);
}

// ---- Stress, at the sizes platform sync suites use.

// Each round the consumer releases 16 producers and waits for all of them on one merged fence.
TEST_F(SyncTest, ConsumerWaitsOnMergedFencesOfSixteenProducers) {
    std::vector<int> timelines(16);
    for (int& t : timelines) t = newTimeline();
    std::atomic<unsigned> done[16] = {}, faults{0};
    std::vector<std::thread> producers;
    for (size_t p = 0; p < timelines.size(); ++p)
        producers.emplace_back([&, p] {
            for (unsigned r = 1; r <= 4096; ++r) {
                faults += fenceAt(r)->wait(-1) != 0;
                done[p].store(r);
                sw_sync_timeline_inc(timelines[p], 1);
            }
        });
    for (unsigned r = 1; r <= 4096; ++r) {
        sp<IFence> all = IFence::NO_FENCE;
        for (int t : timelines) all = IFence::merge("round", all, fenceAt(r, t));
        advance();
        faults += all->wait(-1) != 0;
        for (auto& d : done) faults += d.load() != r;
    }
    for (auto& t : producers) t.join();
    EXPECT_EQ(faults.load(), 0u);
}

}  // namespace
