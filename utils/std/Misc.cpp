// Misc: the log front end's process state and entry points, and the assorted utilities of
// NSCam::Utils (files, dumps, thread priority, lock helpers, fault reports).

#include <zorcam/utils/std/Misc.h>

#include "LogMacros.h"

#include <cutils/properties.h>

#include <cstdarg>
#include <cstdio>

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


// ---- Lock helpers


// ---- Fault reports and call stacks


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
