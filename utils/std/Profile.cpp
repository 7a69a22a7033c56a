#include <zorcam/utils/std/Profile.h>

#include <zorcam/utils/std/ULogPrinter.h>

#include "LogMacros.h"

#include <utils/Printer.h>
#include <utils/String8.h>
#include <utils/Timers.h>

#include <cstdarg>

namespace NSCam {
namespace Utils {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;

using ULog::DetailsType;
using ULog::ULogger;

// The monotonic clock in microseconds, cut to 32 bits; differences of two such readings are
// taken modulo 2^32, so they stay right across a wrap.
int32_t clockUs() {
    return static_cast<int32_t>(
            static_cast<uint32_t>(static_cast<uint64_t>(systemTime(SYSTEM_TIME_MONOTONIC) / 1000)));
}

int32_t elapsedMs(int32_t now, int32_t then) {
    return static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(then)) / 1000;
}

// Whether a unified-path line of this type reaches at least one sink. Checked before the note
// is formatted, so that a checkpoint whose line is kept back costs only its clock read.
bool unifiedWrites(DetailsType type) {
    return ULog::unifiedPass(type) && (ULog::loadMode() & 0xF) != 0;
}

android::String8 formatNote(const char* fmt, va_list ap) {
    if (fmt == nullptr) return android::String8();
    return android::String8::formatV(fmt, ap);
}

const char* orNull(const char* s) {
    return s != nullptr ? s : "(null)";
}

}  // namespace

CamProfile::CamProfile(const char* functionName, const char* className)
    : mClassName(className),
      mFunctionName(functionName),
      mIndex(0),
      mStartUs(clockUs()),
      mLastUs(clockUs()),
      mEnabled(true) {}

bool CamProfile::print(const char* fmt, ...) const {
    if (!mEnabled) return false;
    const int32_t now = clockUs();
    const int32_t k = mIndex;
    if (unifiedWrites(ULog::DETAILS_DEBUG)) {
        va_list ap;
        va_start(ap, fmt);
        const android::String8 note = formatNote(fmt, ap);
        va_end(ap);
        if (k == 0) {
            CAM_ULOGD(kTag, "{CamProfile}[%s::%s] %s: (%d-th) ===> [start-->now: %d ms]",
                      orNull(mClassName), orNull(mFunctionName), note.c_str(), k,
                      elapsedMs(now, mStartUs));
        } else {
            CAM_ULOGD(kTag,
                      "{CamProfile}[%s::%s] %s: (%d-th) ===> [start-->now: %d ms] "
                      "[last-->now: %d ms]",
                      orNull(mClassName), orNull(mFunctionName), note.c_str(), k,
                      elapsedMs(now, mStartUs), elapsedMs(now, mLastUs));
        }
        mIndex = k + 1;
    }
    mLastUs = now;
    return true;
}

bool CamProfile::print_overtime(int msThreshold, const char* fmt, ...) const {
    if (!mEnabled) return false;
    const int32_t now = clockUs();
    const int32_t k = mIndex;
    const int32_t step = elapsedMs(now, k != 0 ? mLastUs : mStartUs);
    const bool over = step > msThreshold;
    if (over && unifiedWrites(ULog::DETAILS_INFO)) {
        va_list ap;
        va_start(ap, fmt);
        const android::String8 note = formatNote(fmt, ap);
        va_end(ap);
        if (k == 0) {
            CAM_ULOGI(kTag,
                      "{CamProfile}[%s::%s] %s: (%d-th) ===> (overtime > %d ms) "
                      "[start-->now: %d ms]",
                      orNull(mClassName), orNull(mFunctionName), note.c_str(), k, msThreshold,
                      step);
        } else {
            CAM_ULOGI(kTag,
                      "{CamProfile}[%s::%s] %s: (%d-th) ===> ( overtime > %d ms) "
                      "[start-->now: %d ms] [last-->now: %d ms]",
                      orNull(mClassName), orNull(mFunctionName), note.c_str(), k, msThreshold,
                      elapsedMs(now, mStartUs), step);
        }
    }
    mIndex = k + 1;
    mLastUs = now;
    return over;
}

CameraProfile::CameraProfile(const char* tag, const char* prefix)
    : mTag(tag), mPrefix(prefix), mIndex(0) {
    mStartTime = systemTime(SYSTEM_TIME_MONOTONIC);
    mLastTime = mStartTime;
}

void CameraProfile::stopWatch() {
    mLastTime = systemTime(SYSTEM_TIME_MONOTONIC);
}

void CameraProfile::print(char level, const char* fmt, ...) const {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    va_list ap;
    va_start(ap, fmt);
    const android::String8 note = formatNote(fmt, ap);
    va_end(ap);
    android::String8 line = android::String8::format("@%d %s [start-->now: %ld us]", mIndex,
                                                     note.c_str(),
                                                     static_cast<long>((now - mStartTime) / 1000));
    if (mStartTime != mLastTime)
        line.appendFormat("[last-->now: %ld us]", static_cast<long>((now - mLastTime) / 1000));
    printLine(level, line.c_str());
    ++mIndex;
    mLastTime = now;
}

void CameraProfile::print_overtime(char level, long nsThreshold, const char* fmt, ...) const {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    if (now - mLastTime > nsThreshold) {
        va_list ap;
        va_start(ap, fmt);
        const android::String8 note = formatNote(fmt, ap);
        va_end(ap);
        android::String8 line = android::String8::format(
                "@%d %s (overtime > %ld ns) [start-->now: %ld us]", mIndex, note.c_str(),
                nsThreshold, static_cast<long>((now - mStartTime) / 1000));
        if (mStartTime != mLastTime)
            line.appendFormat("[last-->now: %ld us]", static_cast<long>((now - mLastTime) / 1000));
        printLine(level, line.c_str());
    }
    ++mIndex;
    mLastTime = now;
}

void CameraProfile::printLine(char level, const char* line) const {
    DetailsType type;
    switch (static_cast<unsigned char>(level)) {
        case 'F': {
            // A fatal report must not be lost to the unified logger's switches: it goes to the
            // Android log directly.
            android::LogPrinter printer(mTag, ANDROID_LOG_FATAL, mPrefix, false);
            printer.printLine(line);
            return;
        }
        case 'E': type = ULog::DETAILS_ERROR; break;
        case 'W': type = ULog::DETAILS_WARNING; break;
        case 'I': type = ULog::DETAILS_INFO; break;
        case 'V': type = ULog::DETAILS_VERBOSE; break;
        default: type = ULog::DETAILS_DEBUG; break;
    }
    ULog::ULogPrinter printer(ULog::kUtilsModuleId, mTag, type, mPrefix, false);
    printer.printLine(line);
}

}  // namespace Utils
}  // namespace NSCam
