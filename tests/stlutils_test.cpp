// Lock helpers and the scope worker: no exception escapes, and a failed lock leaves the
// unique_lock and its mutex as they were.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>
#include <zorcam/utils/std/StlUtils.h>

#include <utils/Mutex.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

using namespace zorcam_test;
using NSCam::JobQueueStatic;
using NSCam::ScopeWorker;

namespace {

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

TEST(StlUtilsDeathTest, ScopeWorkerEndsTheProcessOnOtherExceptions) {
    EXPECT_DEATH({ ScopeWorker worker([](void*) { throw 42; }); }, "");
}

}  // namespace
