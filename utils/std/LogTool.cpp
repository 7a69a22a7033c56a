#include <zorcam/utils/std/LogTool.h>

#include "LogMacros.h"

#include <chrono>
#include <cstdio>
#include <cstring>

namespace NSCam {
namespace Utils {

namespace {

constexpr const char* kTag = ::NSCam::Utils::ULog::kUtilsTag;

}  // namespace

unsigned int TimeTool::getReadableTime() {
    using namespace std::chrono;
    const auto us = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const int64_t t = us / 1000;
    const int64_t hour = (t % 86400000) / 3600000;
    const int64_t minute = (t % 3600000) / 60000;
    const int64_t second = (t % 60000) / 1000;
    const int64_t millisecond = t % 1000;
    return static_cast<unsigned int>(hour * 10000000 + minute * 100000 + second * 1000 +
                                     millisecond);
}

LogTool* LogTool::get() {
    // Constant-initialised: usable from any static initialiser, nothing to construct.
    static LogTool sLogTool;
    return &sLogTool;
}

bool LogTool::getCurrentLogTime(timespec* ts) {
    if (ts == nullptr) {
        CAM_ULOGE(kTag, "[%s] timespec is nullptr", __func__);
        return false;
    }
    if (clock_gettime(CLOCK_REALTIME, ts) != 0) {
        CAM_ULOGE(kTag, "[%s] clock_gettime: failure", __func__);
        ts->tv_sec = 0;
        ts->tv_nsec = 0;
        return false;
    }
    return true;
}

std::string LogTool::convertToFormattedLogTime(const timespec* ts) {
    if (ts == nullptr) {
        CAM_ULOGE(kTag, "[%s] timespec is nullptr", __func__);
        return std::string();
    }
    tm local;
    const time_t seconds = ts->tv_sec;
    if (localtime_r(&seconds, &local) == nullptr) {
        CAM_ULOGE(kTag, "[%s] localtime_r: failure", __func__);
        return std::string();
    }
    // The sample text keeps the buffer's length fixed; strftime overwrites its first 15 bytes
    // and the milliseconds go right after the seconds. 14 + 18 bytes fit the 32 whatever
    // tv_nsec holds.
    char buffer[32] = "01-01 02:32:54.123000000";
    if (strftime(buffer, sizeof(buffer), "%m-%d %H:%M:%S", &local) == 0) {
        CAM_ULOGE(kTag, "[%s] strftime: failure", __func__);
        return std::string();
    }
    snprintf(buffer + 14, 18, ".%03lu", static_cast<unsigned long>(ts->tv_nsec / 1000000));
    return std::string(buffer);
}

std::string LogTool::getFormattedLogTime() {
    timespec ts;
    if (!getCurrentLogTime(&ts)) return std::string();
    return convertToFormattedLogTime(&ts);
}

}  // namespace Utils
}  // namespace NSCam
