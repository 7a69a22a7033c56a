// Misc: the log front end's process state and entry points, and the assorted utilities of
// NSCam::Utils (files, dumps, thread priority, lock helpers, fault reports).

#include <zorcam/utils/std/Misc.h>

#include "LogMacros.h"

#include <cutils/properties.h>
#include <kfdv/kfe.h>
#include <stavex/UnwindBT.h>
#include <utils/String8.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

namespace NSCam {
namespace Utils {
namespace ULog {

namespace {

constexpr const char* kTag = "ZorCam/Utils";

// The camera log level, read once when the library is loaded and never written afterwards.
struct CameraLogLevel {
    int32_t mLevel;
    CameraLogLevel() : mLevel(load()) {}

    static int32_t load() {
        const int32_t value = property_get_int32("persist.vendor.zor.camera.log_level", -1);
        CAM_ULOGD(kTag, "[%s] ###### get camera log property =%d", __func__, value);
        // Unset: errors, warnings and info lines of the property-gated path are written.
        return value == -1 ? 2 : value;
    }
};

ZORCAM_INIT_MISC CameraLogLevel sCameraLogLevel;

}  // namespace

int32_t cameraLogLevel() {
    return sCameraLogLevel.mLevel;
}

void writeUnified(const char* tag, DetailsType type, const char* fmt, ...) {
    char buffer[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(buffer, sizeof(buffer), fmt, ap);
    va_end(ap);
    buffer[sizeof(buffer) - 1] = '\0';
    // The logger is handed the length of what the buffer holds, so it can never be led past
    // the buffer's end by a message that was cut.
    int64_t length = 0;
    if (n > 0) length = n < static_cast<int>(sizeof(buffer)) ? n : sizeof(buffer) - 1;
    else buffer[0] = '\0';
    ULogger::sULogger->logText(kUtilsModuleId, tag, type, buffer, length);
}

}  // namespace ULog

// ---- Directories and plain files


// ---- Dump through the camera-dump service


// ---- Thread priority

bool setThreadPriority(int policy, int priority) {
    // pid 0 and PRIO_PROCESS who 0 name the calling thread on Linux, not the whole process.
    // The kernel's answers are deliberately not examined: a refused change keeps the thread's
    // scheduling as it was, and callers only ever get true.
    sched_param param{};
    if (policy != SCHED_OTHER) {
        param.sched_priority = priority;
        sched_setscheduler(0, policy, &param);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(Real-Time:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    } else {
        sched_setscheduler(0, SCHED_OTHER, &param);
        setpriority(PRIO_PROCESS, 0, priority);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(SCHED_OTHER:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    }
    return true;
}

bool getThreadPriority(int& policy, int& priority) {
    policy = sched_getscheduler(0);
    if (policy != SCHED_OTHER) {
        // A failed read (-1) is reported like a real-time policy, with whatever
        // sched_getparam yields (0 when it fails too).
        sched_param param{};
        sched_getparam(0, &param);
        priority = param.sched_priority;
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(Real-Time:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    } else {
        priority = getpriority(PRIO_PROCESS, 0);
        CAM_ULOGV(ULog::kTag, "[%s] tid(%d) policy(SCHED_OTHER:%d) priority(%d)", __func__,
                  gettid(), policy, priority);
    }
    return true;
}

// ---- Lock helpers

template <typename MutexType>
bool lockNoexcept(std::unique_lock<MutexType>& /*lk*/) noexcept {
    return false;
}

template bool lockNoexcept<std::mutex>(std::unique_lock<std::mutex>& lk) noexcept;
template bool lockNoexcept<android::Mutex>(std::unique_lock<android::Mutex>& lk) noexcept;

// ---- Fault reports and call stacks

namespace {

// What the exception-report service collects with each report; passed through unchanged.
constexpr unsigned int kKfeFlags = 0x10802C05;

android::String8 formatKfeMessage(const char* format, va_list ap) {
    return format != nullptr ? android::String8::formatV(format, ap) : android::String8();
}

}  // namespace

int triggerKfeWarning(char const* module, char const* /*unused*/, char const* format, ...) {
    va_list ap;
    va_start(ap, format);
    const android::String8 message = formatKfeMessage(format, ap);
    va_end(ap);
    const int ret = kfe_system_warning(module, nullptr, kKfeFlags, message.c_str());
    CAM_ULOGD(ULog::kTag, "[%s] ret:%d", __func__, ret);
    return 0;
}

int triggerKfeException(char const* module, char const* /*unused*/, char const* format, ...) {
    va_list ap;
    va_start(ap, format);
    const android::String8 message = formatKfeMessage(format, ap);
    va_end(ap);
    const int ret = kfe_system_exception(module, nullptr, kKfeFlags, message.c_str());
    CAM_ULOGD(ULog::kTag, "[%s] ret:%d", __func__, ret);
    return 0;
}

void dumpCallStack(char const* suffix) {
    try {
        std::string backtrace;
        UnwindCurThreadBT(backtrace);
        std::string tag(ULog::kTag);
        if (suffix != nullptr) {
            tag += '/';
            tag += suffix;
        }
        // The stack goes straight to the Android log as one entry, past the front end's gates,
        // so it is there whatever the unified logger is set to.
        __android_log_write(ANDROID_LOG_INFO, tag.c_str(), backtrace.c_str());
    } catch (const std::exception& e) {
        CAM_ULOGE(ULog::kTag, "[%s] cannot dump the call stack: %s", __func__, e.what());
    }
}

}  // namespace Utils
}  // namespace NSCam

extern "C" int zorcam_testLog(const char* /*tag*/, int level) {
    const int32_t camLevel = NSCam::Utils::ULog::cameraLogLevel();
    switch (level) {
        case 'E': return 1;
        case 'W': return camLevel > 0;
        case 'I': return camLevel > 1;
        case 'D': return camLevel > 2;
        case 'V': return camLevel > 3;
        default: return 0;
    }
}

extern "C" void setLogLevelToEngLoad(void) {}
