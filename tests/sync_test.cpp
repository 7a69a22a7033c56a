#include "FdCount.h"
#include "LogCapture.h"

#include <zorcam/utils/std/Sync.h>

#include <android/sw_sync.h>
#include <android/sync.h>
#include <cutils/trace.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using android::sp;
using NSCam::Utils::Sync::IFence;
using namespace zorcam_test;

// libsync's sync_wait and libcutils' trace calls are recorded in call order; sync_wait is then
// passed on to the real one, unless a test scripts the bounded wait.
namespace {
using Calls = std::vector<std::string>;
std::mutex sLock;
Calls sCalls;
std::function<int()> sBoundedWait;

void record(const std::string& call) {
    std::lock_guard<std::mutex> guard(sLock);
    sCalls.push_back(call);
}
}  // namespace

extern "C" int sync_wait(int fd, int timeout) {
    static auto real = reinterpret_cast<decltype(&sync_wait)>(dlsym(RTLD_NEXT, "sync_wait"));
    record("sync_wait " + std::to_string(timeout));
    return sBoundedWait && timeout >= 0 ? sBoundedWait() : real(fd, timeout);
}

extern "C" void atrace_begin_body(const char* name) { record(name); }
extern "C" void atrace_end_body() { record("end"); }

namespace {

class SyncTest : public LogCaptureTest {
protected:
    void TearDown() override {
        atrace_enabled_tags = 0;
        sBoundedWait = nullptr;
        for (int fd : mTimelines) close(fd);
        LogCaptureTest::TearDown();
    }
    int newTimeline() { return mTimelines.emplace_back(sw_sync_timeline_create()); }
    sp<IFence> fenceAt(unsigned value, int timeline = -1) {
        return IFence::create(
                sw_sync_fence_create(timeline < 0 ? mTimeline : timeline, "f", value));
    }
    void advance(int timeline = -1) {
        ASSERT_EQ(sw_sync_timeline_inc(timeline < 0 ? mTimeline : timeline, 1), 0);
    }

    std::vector<int> mTimelines;
    const int mTimeline = newTimeline();
};

// A merged fence has a new descriptor and its own name, a copy is the same sync file; the inputs
// keep theirs, an invalid one left out; its signal time is its latest point's. (That a fence
// closes its descriptor when it goes, the descriptor counts below tell.)
TEST_F(SyncTest, MergeCoversEveryValidityCombination) {
    for (int mask : {1, 2, 3}) {
        SCOPED_TRACE(mask);
        const int first = newTimeline(), second = newTimeline();
        sp<IFence> a = (mask & 1) ? fenceAt(1, first) : IFence::create(-1);
        sp<IFence> b = (mask & 2) ? fenceAt(1, second) : IFence::NO_FENCE;
        sp<IFence> m = IFence::merge("merged", a, b);
        EXPECT_STREQ(IFence::create(m->dup())->name(), "merged");
        for (const sp<IFence>& in : {a, b})
            EXPECT_TRUE(in->getFd() != m->getFd() &&
                        (fcntl(in->getFd(), F_GETFD) != -1) == in->isValid());
        advance(first);
        EXPECT_EQ(m->wait(0), (mask & 2) ? -ETIME : 0);
        EXPECT_EQ(m->getSignalTime(), (mask & 2) ? INT64_MAX : a->getSignalTime());
        advance(second);
        EXPECT_EQ(m->wait(0), 0);
        EXPECT_EQ(m->getSignalTime(), ((mask & 2) ? b : a)->getSignalTime());
        EXPECT_LT(a->getSignalTime(), mask == 3 ? b->getSignalTime() : INT64_MAX);
    }
}

// Each call in turn: what it returns, the calls it makes (its trace section closed on every way
// out) and its one log line, word for word, if any. An invalid fence (create(-1), a new one)
// answers at once, and two merge to NO_FENCE; a wait that fails otherwise than by running out
// makes neither a warning nor a second wait. `plain` is a descriptor of no sync file.
TEST_F(SyncTest, EachCallAnswersTracesAndLogs) {
    sp<IFence> none = IFence::create(-1), f = fenceAt(1), late = fenceAt(2);
    const int closed = fcntl(0, F_DUPFD_CLOEXEC, 900);  // a number that nothing holds
    close(closed);
    sp<IFence> stale = IFence::create(closed), plain = IFence::create(open("/dev/null", O_RDONLY));
    const std::string p = std::to_string(plain->getFd()), fd = std::to_string(f->getFd());
    struct Case { std::function<bool()> call; Calls calls; int prio = 0; std::string line = ""; };
    const Case cases[] = {
            {[&] {
                 return none != IFence::NO_FENCE && none->wait(-1) == 0 &&
                        none->waitForever("cam") == 0 && none->getSignalTime() == -1 &&
                        IFence::merge("m", none, IFence::NO_FENCE) == IFence::NO_FENCE;
             },
             {"wait", "end", "waitForever", "end", "merge", "end"}},
            {[&] { return f->wait(0) == -ETIME && (advance(), f->wait(-1) == 0); },
             {"wait", "sync_wait 0", "end", "wait", "sync_wait -1", "end"}},
            {[&] { return stale->wait(0) == -EINVAL && stale->waitForever("cam") == -EINVAL; },
             {"wait", "sync_wait 0", "end", "waitForever", "sync_wait 3000", "end"}},
            {[&] { return IFence::merge("bad", plain, f) == IFence::NO_FENCE; }, {"merge", "end"},
             6, "[merge] Error merge: sync_merge(\"bad\", " + p + ", " + fd + ")"},
            {[&] { return plain->getSignalTime() == -1; }, {}, 6,
             "[getSignalTime] sync_fence_info returned NULL for fd " + p},
            {[] { return NSCam::Utils::Sync::ITimeline::create("cam") == nullptr; }, {}, 6,
             "[create] sw_sync_timeline_create is no longer available "},
            {[&] {  // the bounded wait runs out, and the fence signals just after it
                 sBoundedWait = [this] { return advance(), errno = ETIME, -1; };
                 return late->waitForever("preview") == 0;
             },
             {"waitForever", "sync_wait 3000", "sync_wait -1", "end"}, 5,
             "[waitForever] preview: fence " + std::to_string(late->getFd()) +
                     " didn't signal in 3000 ms"}};
    atrace_enabled_tags = ATRACE_TAG_CAMERA;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.calls) + " " + c.line);
        sCalls.clear();
        EXPECT_TRUE(c.call());
        EXPECT_EQ(sCalls, c.calls);
        if (c.prio == 0) expectNoLines();
        else expectOnlyLine(c.prio, c.prio == 6 ? NSCam::Utils::ULog::DETAILS_ERROR
                                                : NSCam::Utils::ULog::DETAILS_WARNING,
                            "ZorCam/Utils", c.line);
    }
}

// One fence shared by many threads: four wait on it while four merge it, duplicate its
// descriptor and drop what they made, and the test drops its own reference before it signals.
// Every waiter and every merged fence sees the one signal, and no descriptor outlives its fence
// (once the emulation has released what was closed, at its next call).
TEST_F(SyncTest, SharedFenceIsWaitedOnWhileMergedDuplicatedAndReleased) {
    const int before = openFdCount();
    sp<IFence> shared = fenceAt(1);
    std::atomic<int> faults{0};
    std::vector<int64_t> waited(4);
    std::vector<sp<IFence>> kept(4);
    std::vector<std::thread> waiters, mergers;
    for (int t = 0; t < 4; ++t) {
        waiters.emplace_back([&, t, f = shared] {
            faults += f->wait(60000) != 0;
            waited[t] = f->getSignalTime();
        });
        mergers.emplace_back([&, t, f = shared] {
            for (int r = 0; r < 200; ++r) {
                const sp<IFence>& none = IFence::NO_FENCE;
                kept[t] = IFence::merge("m", r % 3 == 0 ? none : f, r % 3 == 1 ? none : f);
                sp<IFence> copy = IFence::create(f->dup());
                faults += kept[t]->wait(0) != -ETIME || copy->getFd() == f->getFd() ||
                          copy->name() != std::string(f->name());
            }
        });
    }
    for (auto& t : mergers) t.join();
    shared.clear();  // the waiters hold the last references
    advance();
    for (auto& t : waiters) t.join();
    EXPECT_EQ(faults.load(), 0);
    EXPECT_TRUE(waited[0] > 0 && waited[0] != INT64_MAX) << waited[0];
    for (int t = 0; t < 4; ++t)
        EXPECT_TRUE(waited[t] == waited[0] && kept[t]->getSignalTime() == waited[0]) << t;
    kept.clear();
    sync_file_info_free(sync_file_info(-1));
    EXPECT_EQ(openFdCount(), before);
}

// Each round the consumer releases 16 producers and waits for all of them on one merged fence,
// which it also copies and merges with a fence that never signals, dropped at once. No
// descriptor outlives its fence.
TEST_F(SyncTest, ConsumerWaitsOnMergedFencesOfSixteenProducers) {
    std::vector<int> timelines(16);
    for (int& t : timelines) t = newTimeline();
    const int stuck = newTimeline(), before = openFdCount();  // stuck: never advanced
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
        close(all->dup());
        IFence::merge("never", all, fenceAt(1, stuck));
        advance();
        faults += all->wait(-1) != 0;
        for (auto& d : done) faults += d.load() != r;
    }
    for (auto& t : producers) t.join();
    EXPECT_EQ(faults.load(), 0u);
    sync_file_info_free(sync_file_info(-1));
    EXPECT_EQ(openFdCount(), before);
}

}  // namespace
