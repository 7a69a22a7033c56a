// Misc.h and StlUtils.h: fault reports and call-stack dumps, thread priority, the lock helpers
// and the scope worker.
//
// Fault reports reach the host's report stand-in, which writes each as a line on stderr and
// always accepts it. Priority changes run on threads of their own,
// so what they change dies with them. A failed lock leaves the unique_lock and its mutex as
// they were.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>
#include <zorcam/utils/std/StlUtils.h>

#include <backtrace/Backtrace.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <thread>

using namespace zorcam_test;
using namespace NSCam::Utils;
using NSCam::JobQueueStatic;
using NSCam::ScopeWorker;
using Lines = std::vector<std::string>;

using FaultsTest = LogCaptureTest;

// A report carries the module, the fixed flags and the formatted text, handed over as is,
// never used as a format again; the service's answer shows in the debug line only.
TEST_F(FaultsTest, ReportsCarryModuleFlagsAndFormattedText) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(triggerKfeWarning("cam", "ignored", "fps %d", 15), 0);
    EXPECT_EQ(triggerKfeException("isp", nullptr, "%s", "100% %s %n"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "kfe warning: module=cam path=(null) flags=0x10802c05 msg=fps 15\n"
              "kfe exception: module=isp path=(null) flags=0x10802c05 msg=100% %s %n\n");
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 2u);
    EXPECT_EQ(u[0].text + u[1].text, "[triggerKfeWarning] ret:0[triggerKfeException] ret:0");
}

// Out of line and not a tail call, so that it has a frame of its own in the stack.
__attribute__((noinline)) static void dumpFromNamedCaller(const char* suffix) {
    dumpCallStack(suffix);
    asm volatile("" ::: "memory");
}

// One info entry straight to the Android log, past the front end and its switches, one frame
// per line: #00 is the dump itself, #01 the function that asked for it.
TEST_F(FaultsTest, CallStackIsOneInfoEntryStartingAtTheCaller) {
    setULog(0, 0, 0);
    const std::pair<const char*, const char*> cases[] = {
            {nullptr, "ZorCam/Utils"}, {"", "ZorCam/Utils/"}, {"Node", "ZorCam/Utils/Node"}};
    for (const auto& [suffix, tag] : cases) {
        clearLogs();
        dumpFromNamedCaller(suffix);
        const auto a = androidLines();
        ASSERT_EQ(a.size(), 1u);
        EXPECT_TRUE(a[0].prio == 4 && a[0].tag == tag) << a[0].tag;
        const std::string& text = a[0].text;
        const size_t second = text.find("\n#01 ") + 1;
        ASSERT_EQ(text.rfind("#00 ", 0), 0u) << text;
        EXPECT_NE(text.substr(0, second).find("dumpCallStack"), std::string::npos) << text;
        const std::string caller = text.substr(second, text.find('\n', second) - second);
        EXPECT_NE(caller.find("dumpFromNamedCaller("), std::string::npos) << text;
    }
    // On a kernel, unlike under qemu-user (no process_vm_readv), libbacktrace's own unwind
    // reaches this function, so the dump takes no other path.
    if (getenv("ZORCAM_KERNEL_STAGE") == nullptr) return;
    std::unique_ptr<Backtrace> own(
            Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
    ASSERT_TRUE(own && own->Unwind(0));
    bool reached = false;
    for (size_t i = 0; i < own->NumFrames(); ++i)
        reached |= own->GetFrame(i)->func_name.find("CallStackIsOneInfoEntry") != std::string::npos;
    EXPECT_TRUE(reached) << own->NumFrames() << " frames";
}

using PriorityTest = LogCaptureTest;

// Each change and what the thread has then, by getThreadPriority and by the kernel, with the
// lines of both calls. Nice values move up from the runner's, which needs no privilege; FIFO
// 1000 is out of range even with privileges, refused by the kernel yet reported as done.
// SCHED_FIFO 90 and nice -4 need CAP_SYS_NICE, or RLIMIT_RTPRIO >= 90 and RLIMIT_NICE >= 24:
// tried when a probe shows them allowed.
TEST_F(PriorityTest, RoundTripsOnTheCallingThreadOnly) {
    const int runnerNice = getpriority(PRIO_PROCESS, 0), nice = std::min(runnerNice + 3, 19);
    bool realTime = false;
    std::thread([&realTime] {
        const sched_param fifo{90}, other{0};
        realTime = sched_setscheduler(0, SCHED_FIFO, &fifo) == 0 &&
                   sched_setscheduler(0, SCHED_OTHER, &other) == 0 &&
                   setpriority(PRIO_PROCESS, 0, -4) == 0;
    }).join();
    const int steps[][4] = {{0, nice, 0, nice}, {SCHED_FIFO, 1000, 0, nice},
                            {SCHED_FIFO, 90, SCHED_FIFO, 90}, {0, -4, 0, -4}};
    Lines lines;
    std::thread([&] {
        auto line = [](const char* func, int policy, int priority) {
            return std::string(func) + "] tid(" + std::to_string(gettid()) + ") policy(" +
                   (policy ? "Real-Time:" : "SCHED_OTHER:") + std::to_string(policy) +
                   ") priority(" + std::to_string(priority) + ")";
        };
        for (const auto& s : steps) {
            if (s[1] == 90 && !realTime) break;
            int policy = -2, priority = -2;
            EXPECT_TRUE(setThreadPriority(s[0], s[1]) && getThreadPriority(policy, priority));
            EXPECT_TRUE(policy == s[2] && priority == s[3] && sched_getscheduler(0) == policy &&
                        (policy != 0 || getpriority(PRIO_PROCESS, 0) == priority))
                    << policy << " " << priority;
            lines.push_back(line("[setThreadPriority", s[0], s[1]));
            lines.push_back(line("[getThreadPriority", policy, priority));
        }
    }).join();
    EXPECT_TRUE(getpriority(PRIO_PROCESS, 0) == runnerNice && androidLines().empty());
    Lines texts;
    for (const auto& l : ulogLines()) texts.push_back(l.text);
    EXPECT_EQ(texts, lines);
    if (!realTime) GTEST_SKIP() << "this process may not use SCHED_FIFO 90 or nice -4";
}

// Whether another thread could take the mutex now.
static bool freeForOthers(std::mutex& m) {
    bool taken = false;
    std::thread([&] { taken = m.try_lock() && (m.unlock(), true); }).join();
    return taken;
}

using StlUtilsTest = LogCaptureTest;

// lockNoexcept never locks; JobQueueStatic::lock takes only a free mutex it does not own, and says
// why not straight to the Android log: untagged, without prefix or location.
TEST_F(StlUtilsTest, LockHelpers) {
    std::mutex m;
    std::unique_lock<std::mutex> none, lk(m, std::defer_lock);
    EXPECT_FALSE(lockNoexcept(lk) || !freeForOthers(m));
    EXPECT_TRUE(JobQueueStatic::lock(lk) && !freeForOthers(m));
    expectNoLines();
    EXPECT_FALSE(JobQueueStatic::lock(none) || JobQueueStatic::lock(lk));
    lk.unlock();  // held once, so one unlock frees it
    EXPECT_TRUE(freeForOthers(m));
    const auto a = androidLines();
    ASSERT_EQ(a.size(), 2u);
    for (const auto& l : a)
        EXPECT_TRUE(l.prio == 6 && l.tag.empty() && l.text == "lock mutex throws exception")
                << l.prio << " " << l.tag << ": " << l.text;
    EXPECT_TRUE(ulogLines().empty());
}

// Scopes end on many threads at once, with work of each kind: every worker runs its work
// once, on its own argument; each that throws a std::exception or has no work writes its error
// line once, whole, on both sinks, and work that throws is still destroyed.
TEST_F(StlUtilsTest, ScopeWorkersEndOnEightThreads) {
    constexpr int kThreads = 8, kWorkers = 320;
    std::vector<int> counts(kThreads);
    auto held = std::make_shared<int>(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&counts, held, t] {
            for (int i = 0; i < kWorkers; ++i) {
                if (i % 4 == 1) ScopeWorker{ScopeWorker::WorkFunction()};
                if (i % 4 == 2) ScopeWorker{std::function<void()>()};
                if (i % 4 == 3) ScopeWorker([&counts, t] { counts[t] += 10; });
                if (i % 4 != 0) continue;
                const int before = counts[t];
                ScopeWorker worker([held, i](void* arg) {
                    if (++*static_cast<int*>(arg), i % 8 == 0) throw std::runtime_error("boom");
                }, &counts[t]);
                EXPECT_EQ(counts[t], before) << "ran before its scope ended";
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counts, std::vector<int>(kThreads, kWorkers / 4 * 11));
    EXPECT_EQ(held.use_count(), 1);
    const std::string text = "[~ScopeWorker] execute function throws exception";
    const auto a = androidLines();
    const auto u = ulogLines();
    ASSERT_TRUE(a.size() == size_t{kThreads * kWorkers * 5 / 8} && u.size() == a.size())
            << a.size();
    for (size_t i = 0; i < a.size(); ++i)
        EXPECT_TRUE(stripLocation(a[i].text) == text && u[i].text == text) << a[i].text;
}

TEST(StlUtilsDeathTest, ScopeWorkerEndsTheProcessOnOtherExceptions) {
    EXPECT_DEATH({ ScopeWorker worker([](void*) { throw 42; }); }, "");
}
