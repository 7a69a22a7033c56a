#include <zorcam/utils/std/DurationTool.h>

#include "LogMacros.h"

#include <utils/Timers.h>

#include <cmath>

namespace NSCam {
namespace Utils {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;

}  // namespace

DurationTool::DurationTool(const char* name)
    : mName(name != nullptr ? name : ""),
      mCount(0),
      mStartTime(systemTime(SYSTEM_TIME_MONOTONIC)),
      mLastTime(systemTime(SYSTEM_TIME_MONOTONIC)) {}

DurationTool::DurationTool(const char* name, long timestamp)
    : mName(name != nullptr ? name : ""), mCount(0), mStartTime(timestamp), mLastTime(timestamp) {}

void DurationTool::reset() {
    reset(systemTime(SYSTEM_TIME_MONOTONIC));
}

void DurationTool::reset(long timestamp) {
    mCount = 0;
    mStartTime = timestamp;
    mLastTime = timestamp;
}

void DurationTool::update() {
    update(systemTime(SYSTEM_TIME_MONOTONIC));
}

void DurationTool::update(long timestamp) {
    mLastTime = timestamp;
    ++mCount;
}

void DurationTool::showFps() const {
    if (!zorcam_testLog(kTag, 'D')) return;
    const int64_t elapsed = mLastTime - mStartTime;
    // The rate is computed in single precision, so 30 frames in one second print as
    // 29.999998; a period without elapsed time prints inf, or nan without frames.
    float rate = static_cast<float>(mCount) / static_cast<float>(elapsed) * 1e9f;
    // 0/0 is a NaN whose sign depends on the processor (x86 sets it, Arm does not); print it
    // as "nan" everywhere.
    if (std::isnan(rate)) rate = std::fabs(rate);
    // The line names the meter, not the function, in its leading brackets.
    CAM_PLOGD(kTag, "[%s] fps: %d / %ld ns = %3f", mName.c_str(), mCount,
              static_cast<long>(elapsed), static_cast<double>(rate));
}

}  // namespace Utils
}  // namespace NSCam
