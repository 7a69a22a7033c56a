#pragma once

/// \file
/// Locking and scoped work for camera code that must not let an exception escape.

#include <zorcam/utils/std/Export.h>

#include <functional>
#include <mutex>

/// The camera stack's namespace.
namespace NSCam {

/// Static helpers of the camera job queue.
struct ZORCAM_EXPORT JobQueueStatic {
    /// Locks lk's mutex, blocking until it is free like std::mutex::lock; true when lk now owns
    /// it. When lk has no mutex, already owns it, or the lock fails, writes "lock mutex throws
    /// exception" to the Android log and returns false with lk unchanged. Never throws.
    /// \param lk the lock to take; any thread may call with its own lock.
    /// \return true when lk owns its mutex on return.
    static bool lock(std::unique_lock<std::mutex>& lk) noexcept;
};

/// Runs a piece of work when the scope that holds the worker ends. An exception derived from
/// std::exception thrown by the work (an empty function included) is logged and swallowed; any
/// other exception ends the process. Used by one thread, the one whose scope it guards.
class ZORCAM_EXPORT ScopeWorker {
public:
    /// The work: called once with the argument given at construction.
    using WorkFunction = std::function<void(void*)>;

    /// Runs work(arg) at destruction. arg is not owned; it must stay valid until then.
    /// \param work the work; an empty function is logged as a failure when the scope ends.
    /// \param arg handed to work.
    explicit ScopeWorker(WorkFunction work, void* arg = nullptr)
        : mArg(arg), mWork(std::move(work)) {}

    /// Runs work() at destruction.
    /// \param work the work; an empty function is logged as a failure when the scope ends.
    explicit ScopeWorker(std::function<void()> work)
        : mArg(nullptr), mWork(work ? WorkFunction([w = std::move(work)](void*) { w(); })
                                    : WorkFunction()) {}

    ~ScopeWorker();

    // The work runs exactly once, so a worker is neither copied nor moved.
    ScopeWorker(const ScopeWorker&) = delete;
    ScopeWorker& operator=(const ScopeWorker&) = delete;

private:
    void* mArg;
    WorkFunction mWork;
};

}  // namespace NSCam
