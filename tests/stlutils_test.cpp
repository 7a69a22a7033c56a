// Lock helpers and the scope worker: no exception escapes, and a failed lock leaves the
// unique_lock and its mutex exactly as they were.

#include "LogCapture.h"

#include <zorcam/utils/std/Misc.h>
#include <zorcam/utils/std/StlUtils.h>

#include <gtest/gtest.h>

#include <utils/Mutex.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

using namespace zorcam_test;
using NSCam::JobQueueStatic;
using NSCam::ScopeWorker;
using NSCam::Utils::lockNoexcept;
using NSCam::Utils::ULog::DETAILS_ERROR;

namespace {

constexpr const char* kLockFailure = "lock mutex throws exception";

// Whether another thread could take the mutex right now.
bool freeForOthers(std::mutex& m) {
    bool taken = false;
    std::thread([&] {
        taken = m.try_lock();
        if (taken) m.unlock();
    }).join();
    return taken;
}

class LockTest : public LogCaptureTest {
protected:
    // The failure goes straight to the Android log, untagged and without prefix or suffix.
    void expectLockFailureLine() {
        const auto a = androidLines();
        ASSERT_EQ(a.size(), 1u);
        EXPECT_EQ(a[0].prio, 6);
        EXPECT_EQ(a[0].tag, "");
        EXPECT_EQ(a[0].text, kLockFailure);
        EXPECT_TRUE(ulogLines().empty());
    }
};

TEST_F(LockTest, LockNoexceptNeverTouchesTheLock) {
    std::mutex m;
    std::unique_lock<std::mutex> deferred(m, std::defer_lock);
    EXPECT_FALSE(lockNoexcept(deferred));
    EXPECT_FALSE(deferred.owns_lock());
    EXPECT_TRUE(freeForOthers(m));

    std::unique_lock<std::mutex> owning(m);
    EXPECT_FALSE(lockNoexcept(owning));
    EXPECT_TRUE(owning.owns_lock());
    owning.unlock();

    std::unique_lock<std::mutex> empty;
    EXPECT_FALSE(lockNoexcept(empty));

    android::Mutex am;
    std::unique_lock<android::Mutex> androidLock(am, std::defer_lock);
    EXPECT_FALSE(lockNoexcept(androidLock));
    EXPECT_FALSE(androidLock.owns_lock());
    EXPECT_EQ(am.tryLock(), 0);
    am.unlock();
    expectNoLines();
}

TEST_F(LockTest, JobQueueLockWithoutMutexFails) {
    std::unique_lock<std::mutex> empty;
    EXPECT_FALSE(JobQueueStatic::lock(empty));
    EXPECT_FALSE(empty.owns_lock());
    EXPECT_EQ(empty.mutex(), nullptr);
    expectLockFailureLine();
}

TEST_F(LockTest, JobQueueLockAlreadyOwnedFailsWithoutLockingAgain) {
    std::mutex m;
    std::unique_lock<std::mutex> lk(m);
    EXPECT_FALSE(JobQueueStatic::lock(lk));
    EXPECT_TRUE(lk.owns_lock());
    expectLockFailureLine();
    // Held once: a single unlock frees it for everyone.
    EXPECT_FALSE(freeForOthers(m));
    lk.unlock();
    EXPECT_TRUE(freeForOthers(m));
}

TEST_F(LockTest, JobQueueLockTakesAFreeMutex) {
    std::mutex m;
    std::unique_lock<std::mutex> lk(m, std::defer_lock);
    EXPECT_TRUE(JobQueueStatic::lock(lk));
    EXPECT_TRUE(lk.owns_lock());
    EXPECT_FALSE(freeForOthers(m));
    expectNoLines();
}

TEST_F(LockTest, JobQueueLockWaitsForTheHolder) {
    std::mutex m;
    std::atomic<bool> held{false};
    std::atomic<bool> released{false};
    std::thread holder([&] {
        std::lock_guard<std::mutex> guard(m);
        held = true;
        // Gives the other side a chance to block; correctness does not depend on it.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        released = true;
    });
    while (!held) std::this_thread::yield();
    std::unique_lock<std::mutex> lk(m, std::defer_lock);
    EXPECT_TRUE(JobQueueStatic::lock(lk));
    EXPECT_TRUE(released);
    lk.unlock();
    holder.join();
}

class ScopeWorkerTest : public LogCaptureTest {
protected:
    static constexpr const char* kThrowLine = "[~ScopeWorker] execute function throws exception";
};

TEST_F(ScopeWorkerTest, RunsTheWorkOnceAtScopeEnd) {
    int count = 0;
    {
        ScopeWorker worker([](void* arg) { ++*static_cast<int*>(arg); }, &count);
        EXPECT_EQ(count, 0);
    }
    EXPECT_EQ(count, 1);
    {
        ScopeWorker worker([&count] { count += 10; });
    }
    EXPECT_EQ(count, 11);
    expectNoLines();
}

TEST_F(ScopeWorkerTest, StdExceptionIsLoggedAndSwallowed) {
    auto token = std::make_shared<int>(0);
    EXPECT_NO_THROW({
        ScopeWorker worker([token](void*) { throw std::runtime_error("boom"); });
    });
    expectOnlyLine(6, DETAILS_ERROR, "ZorCam/Utils", kThrowLine);
    // The work function and what it holds are released even when it threw.
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(ScopeWorkerTest, EmptyWorkIsLogged) {
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        clearLogs();
        EXPECT_NO_THROW({
            if (round == 0) {
                ScopeWorker worker{ScopeWorker::WorkFunction()};
            } else {
                ScopeWorker worker{std::function<void()>()};
            }
        });
        expectOnlyLine(6, DETAILS_ERROR, "ZorCam/Utils", kThrowLine);
    }
}

TEST(ScopeWorkerDeathTest, OtherExceptionsEndTheProcess) {
    EXPECT_DEATH({ ScopeWorker worker([](void*) { throw 42; }); }, "");
}

}  // namespace
