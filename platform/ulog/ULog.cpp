// Host unified logger. The switches start from fixed defaults (Android log only, errors and
// warnings, the camera utilities' module bits) and may be overridden from properties when
// the library is loaded:
//   vendor.debug.zorcam.ulog.mode   output switches (bit 0 Android log, 0xE this logger)
//   vendor.debug.zorcam.ulog.level  highest details type let through
//   vendor.debug.zorcam.ulog.mask   module mask
// The default object writes "<type> <module id> <tag>: <text>" on stderr.

#include <zorcam/ulog/ULog.h>

#include <cutils/properties.h>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace NSCam {
namespace Utils {
namespace ULog {

namespace {

char typeLetter(DetailsType type) {
    switch (type) {
        case DETAILS_ERROR: return 'E';
        case DETAILS_WARNING: return 'W';
        case DETAILS_INFO: return 'I';
        case DETAILS_DEBUG: return 'D';
        case DETAILS_VERBOSE: return 'V';
        default: return '?';
    }
}

ULogger sDefaultLogger;

uint32_t readSwitch(const char* key, uint32_t defaultValue) {
    return static_cast<uint32_t>(property_get_int64(key, defaultValue));
}

}  // namespace

uint32_t ULogger::sMode = 0x1;
uint32_t ULogger::sDetailsLevel = DETAILS_WARNING;
uint32_t ULogger::sNormalDetailsMask = 0x40007000;
ULogger* ULogger::sULogger = &sDefaultLogger;

ULogger::~ULogger() = default;

void ULogger::logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                      int64_t length) {
    if (text == nullptr || length < 0) length = 0;
    size_t n = text == nullptr ? 0 : strnlen(text, static_cast<size_t>(length));
    // One fprintf per message keeps concurrent lines whole.
    fprintf(stderr, "%c %08x %s: %.*s\n", typeLetter(type), moduleId, tag ? tag : "",
            static_cast<int>(n), text ? text : "");
}

namespace {

struct SwitchLoader {
    SwitchLoader() {
        ULogger::sMode = readSwitch("vendor.debug.zorcam.ulog.mode", ULogger::sMode);
        ULogger::sDetailsLevel =
                readSwitch("vendor.debug.zorcam.ulog.level", ULogger::sDetailsLevel);
        ULogger::sNormalDetailsMask =
                readSwitch("vendor.debug.zorcam.ulog.mask", ULogger::sNormalDetailsMask);
    }
} sSwitchLoader;

}  // namespace

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
