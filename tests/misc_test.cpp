// Misc.h and StlUtils.h: fault reports and call-stack dumps, thread priority, the lock helpers
// and the scope worker.
//
// The program defines the fault-report functions itself, so the reports the library raises
// are recorded here instead of reaching libkfdv. Each priority case runs on a thread of its
// own, so what it changes dies with that thread; nice values move up from the runner's own,
// which needs no privilege. A failed lock leaves the unique_lock and its mutex as they were.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>
#include <zorcam/utils/std/StlUtils.h>

#include <backtrace/Backtrace.h>
#include <kfdv/kfe.h>
#include <utils/Mutex.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

using namespace zorcam_test;
using NSCam::JobQueueStatic;
using NSCam::ScopeWorker;
using NSCam::Utils::getThreadPriority;
using NSCam::Utils::setThreadPriority;

namespace {

// Each report as "<kind> <module> <path> <flags> <message>".
std::vector<std::string> gReports;

int record(const char* kind, const char* module, const char* path, unsigned flags,
           const char* msg) {
    char head[96];
    snprintf(head, sizeof(head), "%s %s %s %#x ", kind, module, path ? path : "(null)", flags);
    gReports.push_back(head + std::string(msg));
    return -5;  // the service's answer shows in the debug line only
}

class FaultsTest : public LogCaptureTest {};

TEST_F(FaultsTest, ReportsCarryModuleFlagsAndFormattedText) {
    using Trigger = int (*)(const char*, const char*, const char*, ...);
    const std::tuple<Trigger, std::string, std::string> cases[] = {
            {&NSCam::Utils::triggerKfeWarning, "warning", "triggerKfeWarning"},
            {&NSCam::Utils::triggerKfeException, "exception", "triggerKfeException"}};
    for (const auto& [trigger, kind, name] : cases) {
        SCOPED_TRACE(kind);
        gReports.clear();
        clearLogs();
        EXPECT_EQ(trigger("cam", "ignored", "fps %d", 15), 0);
        // The text is handed over as is, never used as a format again.
        EXPECT_EQ(trigger("isp", nullptr, "%s", "100% %s %n"), 0);
        EXPECT_EQ(gReports, (std::vector<std::string>{kind + " cam (null) 0x10802c05 fps 15",
                                                      kind + " isp (null) 0x10802c05 100% %s %n"}));
        const auto u = ulogLines();
        ASSERT_EQ(u.size(), 2u);
        EXPECT_EQ(u[0].type, NSCam::Utils::ULog::DETAILS_DEBUG);
        EXPECT_EQ(u[0].text, "[" + name + "] ret:-5");
    }
}

// Out of line and not a tail call, so that it has a frame of its own in the stack.
__attribute__((noinline)) void dumpFromNamedCaller(const char* suffix) {
    NSCam::Utils::dumpCallStack(suffix);
    asm volatile("" ::: "memory");
}

TEST_F(FaultsTest, CallStackIsOneInfoEntryStartingAtTheCaller) {
    setULog(0, 0, 0);  // the entry bypasses the front end and its switches
    const std::pair<const char*, const char*> cases[] = {
            {nullptr, "ZorCam/Utils"}, {"", "ZorCam/Utils/"}, {"Node", "ZorCam/Utils/Node"}};
    for (const auto& [suffix, tag] : cases) {
        SCOPED_TRACE(tag);
        clearLogs();
        dumpFromNamedCaller(suffix);
        const auto a = androidLines();
        ASSERT_EQ(a.size(), 1u);
        EXPECT_TRUE(a[0].prio == 4 && a[0].tag == tag && ulogLines().empty()) << a[0].tag;
        // One frame per line: #00 is the dump itself, #01 the function that asked for it.
        const std::string& text = a[0].text;
        const size_t second = text.find("\n#01 ") + 1;
        ASSERT_EQ(text.rfind("#00 ", 0), 0u) << text;
        EXPECT_NE(text.substr(0, second).find("dumpCallStack"), std::string::npos) << text;
        const std::string callerLine = text.substr(second, text.find('\n', second) - second);
        EXPECT_NE(callerLine.find("dumpFromNamedCaller("), std::string::npos) << text;
    }
    // On a kernel, unlike under qemu-user (no process_vm_readv), libbacktrace's own unwind
    // reaches this function, so the dump takes no other path.
    if (getenv("ZORCAM_KERNEL_STAGE") != nullptr) {
        std::unique_ptr<Backtrace> own(
                Backtrace::Create(BACKTRACE_CURRENT_PROCESS, BACKTRACE_CURRENT_THREAD));
        ASSERT_TRUE(own && own->Unwind(0));
        bool reached = false;
        for (size_t i = 0; i < own->NumFrames(); ++i)
            reached |= own->GetFrame(i)->func_name.find("CallStackIsOneInfoEntry") !=
                       std::string::npos;
        EXPECT_TRUE(reached) << own->NumFrames() << " frames";
    }
}

// What getThreadPriority answers, checked against the kernel's own view.
void expectPriority(int policy, int priority) {
    int p = -2, v = -2;
    EXPECT_TRUE(getThreadPriority(p, v) && p == policy && v == priority) << p << " " << v;
    EXPECT_EQ(sched_getscheduler(0), policy);
    if (policy == SCHED_OTHER) { EXPECT_EQ(getpriority(PRIO_PROCESS, 0), priority); }
}

class PriorityTest : public LogCaptureTest {};

TEST_F(PriorityTest, NiceValueRoundTripOnTheCallingThreadOnly) {
    const int runnerNice = getpriority(PRIO_PROCESS, 0);
    const int nice = std::min(runnerNice + 3, 19);
    int tid = 0;
    std::thread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(0, nice));
        expectPriority(0, nice);
        // Out of range even with privileges: refused by the kernel, reported as done.
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 1000));
        expectPriority(0, nice);
    }).join();
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), runnerNice);
    EXPECT_TRUE(androidLines().empty());  // verbose: unified logger only
    const auto u = ulogLines();
    ASSERT_EQ(u.size(), 4u);
    const std::string rest = "] tid(" + std::to_string(tid) + ") policy(SCHED_OTHER:0) priority(" +
                             std::to_string(nice) + ")";
    EXPECT_EQ(u[0].text, "[setThreadPriority" + rest);
    EXPECT_EQ(u[1].text, "[getThreadPriority" + rest);
}

TEST_F(PriorityTest, RealTimeRoundTripAndBackToTimeSharing) {
    // Probe for what the round trip needs: SCHED_FIFO 90, then nice -4 on the way back.
    int error = 0;
    std::thread([&] {
        const sched_param fifo{90}, other{0};
        if (sched_setscheduler(0, SCHED_FIFO, &fifo) != 0 ||
            sched_setscheduler(0, SCHED_OTHER, &other) != 0 || setpriority(PRIO_PROCESS, 0, -4))
            error = errno;
    }).join();
    if (error != 0)
        GTEST_SKIP() << "this process may not use SCHED_FIFO 90 or nice -4 (" << strerror(error)
                     << "): needs CAP_SYS_NICE, or RLIMIT_RTPRIO >= 90 and RLIMIT_NICE >= 24";
    int tid = 0;
    std::thread([&] {
        tid = gettid();
        EXPECT_TRUE(setThreadPriority(SCHED_FIFO, 90));
        expectPriority(SCHED_FIFO, 90);
        EXPECT_TRUE(setThreadPriority(0, -4));
        expectPriority(0, -4);
    }).join();
    ASSERT_EQ(ulogLines().size(), 4u);
    EXPECT_EQ(ulogLines()[1].text, "[getThreadPriority] tid(" + std::to_string(tid) +
                                           ") policy(Real-Time:1) priority(90)");
}

// Whether another thread could take the mutex now.
bool freeForOthers(std::mutex& m) {
    bool taken = false;
    std::thread([&] { taken = m.try_lock() && (m.unlock(), true); }).join();
    return taken;
}

class StlUtilsTest : public LogCaptureTest {};

TEST_F(StlUtilsTest, LockNoexceptNeverLocks) {
    std::mutex m;
    std::unique_lock<std::mutex> lk(m, std::defer_lock);
    EXPECT_FALSE(NSCam::Utils::lockNoexcept(lk));
    EXPECT_TRUE(freeForOthers(m));
    // The library exports the Android mutex's build separately.
    android::Mutex am;
    std::unique_lock<android::Mutex> androidLock(am, std::defer_lock);
    EXPECT_FALSE(NSCam::Utils::lockNoexcept(androidLock));
    EXPECT_EQ(am.tryLock(), 0);
    am.unlock();
    expectNoLines();
}

TEST_F(StlUtilsTest, JobQueueLockTakesOnlyAFreeMutexItDoesNotOwn) {
    std::mutex m;
    std::unique_lock<std::mutex> none, lk(m, std::defer_lock);
    EXPECT_TRUE(JobQueueStatic::lock(lk));
    EXPECT_FALSE(freeForOthers(m));
    expectNoLines();
    EXPECT_FALSE(JobQueueStatic::lock(none));
    EXPECT_FALSE(JobQueueStatic::lock(lk));
    lk.unlock();  // held once, so one unlock frees it
    EXPECT_TRUE(freeForOthers(m));
    // Straight to the Android log: untagged, without prefix or location.
    const auto a = androidLines();
    ASSERT_EQ(a.size(), 2u);
    for (const auto& l : a)
        EXPECT_TRUE(l.prio == 6 && l.tag.empty() && l.text == "lock mutex throws exception")
                << l.prio << " " << l.tag << ": " << l.text;
    EXPECT_TRUE(ulogLines().empty());
}

TEST_F(StlUtilsTest, ScopeWorkerRunsTheWorkAndLogsWhatItThrows) {
    int count = 0;
    {
        ScopeWorker worker([](void* arg) { ++*static_cast<int*>(arg); }, &count);
        ScopeWorker other([&count] { count += 10; });
        EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(count, 11);
    expectNoLines();
    // A std::exception and empty work are logged; the throwing work is still destroyed.
    auto held = std::make_shared<int>(0);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        EXPECT_NO_THROW({
            if (round == 0) ScopeWorker([held](void*) { throw std::runtime_error("boom"); });
            if (round == 1) ScopeWorker{ScopeWorker::WorkFunction()};
            if (round == 2) ScopeWorker{std::function<void()>()};
        });
        expectError("[~ScopeWorker] execute function throws exception");
    }
    EXPECT_EQ(held.use_count(), 1);
}

// Scopes end on many threads at once: every worker runs its work once, each on its own
// argument, and each one that throws writes its error line once, whole, on both sinks.
TEST_F(StlUtilsTest, ScopeWorkersEndOnEightThreads) {
    constexpr int kThreads = 8, kWorkers = 300;  // every third one throws
    std::vector<int> counts(kThreads);
    std::atomic<int> shared{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&counts, &shared, t] {
            for (int i = 0; i < kWorkers; ++i) {
                ScopeWorker worker(
                        [i, &shared](void* arg) {
                            ++*static_cast<int*>(arg);
                            ++shared;
                            if (i % 3 == 0) throw std::runtime_error("boom");
                        },
                        &counts[t]);
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counts, std::vector<int>(kThreads, kWorkers));
    EXPECT_EQ(shared.load(), kThreads * kWorkers);
    const std::string text = "[~ScopeWorker] execute function throws exception";
    const auto a = androidLines();
    const auto u = ulogLines();
    ASSERT_EQ(a.size(), size_t{kThreads * kWorkers / 3});
    ASSERT_EQ(u.size(), a.size());
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(stripLocation(a[i].text), text) << a[i].text;
        EXPECT_EQ(u[i].text, text);
    }
}

TEST(StlUtilsDeathTest, ScopeWorkerEndsTheProcessOnOtherExceptions) {
    EXPECT_DEATH({ ScopeWorker worker([](void*) { throw 42; }); }, "");
}

}  // namespace

extern "C" int kfe_system_warning(const char* m, const char* p, unsigned f, const char* msg) {
    return record("warning", m, p, f, msg);
}
extern "C" int kfe_system_exception(const char* m, const char* p, unsigned f, const char* msg) {
    return record("exception", m, p, f, msg);
}
