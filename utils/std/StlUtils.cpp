// StlUtils: the job queue's locking helper and the scope worker.

#include <zorcam/utils/std/StlUtils.h>

#include "LogMacros.h"

#include <android/log.h>

#include <exception>

namespace NSCam {

namespace {
constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;
}  // namespace

bool JobQueueStatic::lock(std::unique_lock<std::mutex>& lk) noexcept {
    // unique_lock::lock throws std::system_error when it has no mutex (EPERM) or already owns
    // it (EDEADLK), in both cases before touching the mutex. Anything that is not a
    // std::exception leaves this noexcept function and ends the process.
    try {
        lk.lock();
        return true;
    } catch (const std::exception&) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "lock mutex throws exception");
        return false;
    }
}

ScopeWorker::~ScopeWorker() {
    // Destructors are noexcept: an exception other than std::exception ends the process here.
    try {
        mWork(mArg);
    } catch (const std::exception&) {
        CAM_ULOGE(kTag, "[%s] execute function throws exception", __func__);
    }
}

}  // namespace NSCam
