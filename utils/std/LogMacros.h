#pragma once

// The library's log front end: the macros every module writes through.
//
// Unified path (CAM_ULOGE/W/I/D/V): gated by the unified logger's switches, written to the
// Android log (bit 0 of sMode; never for verbose) and to the unified logger object (bits 0xE)
// under module id 0x40007001.
// Property-gated path (CAM_PLOGE/W/I/D/V): gated by zorcam_testLog and the camera log level
// read at load, written to the Android log only.
//
// Every format begins "[%s]" and its first argument is __func__. Error lines in the Android
// log get the location suffix " (%s){#%d:%s}". The gate is decided inline from integer reads
// before anything is formatted; when a gate or a sink's mode bit stops a message its
// arguments are not evaluated. An argument may be evaluated once per enabled sink, so
// arguments must be free of side effects.

#include <zorcam/ulog/ULog.h>
#include <zorcam/utils/std/Log.h>

#include <log/log.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace NSCam {
namespace Utils {
namespace ULog {

/// The module id under which the whole library writes to the unified logger.
constexpr uint32_t kUtilsModuleId = 0x40007001;

/// The tag of the library at large; the overlays and the frame controller have their own.
constexpr const char* kUtilsTag = "ZorCam/Utils";

/// Reads one of the unified logger's switches. The logger library may change them while any
/// thread logs, so each is read with one relaxed atomic load: a message sees the old or the new
/// value, never a torn one, and the read is still a single plain load on every processor.
inline uint32_t loadSwitch(const uint32_t& value) {
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

/// The output switches, sMode.
inline uint32_t loadMode() {
    return loadSwitch(ULogger::sMode);
}

/// The unified logger object, read with acquire so that an object installed by another thread
/// is seen fully built.
inline ULogger* loadLogger() {
    return __atomic_load_n(&ULogger::sULogger, __ATOMIC_ACQUIRE);
}

/// The module test of the unified path: the masked id names a module (>= 0x100000) and at
/// least one of its categories (0xFF000).
inline bool moduleEnabled(uint32_t moduleId) {
    const uint32_t m = loadSwitch(ULogger::sNormalDetailsMask) & moduleId;
    return m >= 0x100000 && (m & 0xFF000) != 0;
}

/// Gate of a direct unified-path message of the library's own module.
inline bool unifiedPass(DetailsType type) {
    if (type == DETAILS_ERROR) return true;
    if (loadSwitch(ULogger::sDetailsLevel) < type) return false;
    return type == DETAILS_WARNING || moduleEnabled(kUtilsModuleId);
}

/// The message buffer of the unified logger: 1023 characters and the NUL.
constexpr size_t kMessageBufferSize = 1024;

/// Formats into buffer, cut to kMessageBufferSize - 1 characters and always NUL-terminated;
/// returns the length of what the buffer holds, so a logger handed it never reads past the
/// buffer for a message that was cut.
int64_t formatMessage(char (&buffer)[kMessageBufferSize], const char* fmt, va_list ap);

/// Formats into a 1024-byte stack buffer and hands it to ULogger::sULogger.
void writeUnified(const char* tag, DetailsType type, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam

#define ZORCAM_LOC_SUFFIX " (%s){#%d:%s}"

#define ZORCAM_ULOG_(type, prio, tag, fmt, ...)                                                 \
    do {                                                                                        \
        if (::NSCam::Utils::ULog::unifiedPass(type)) {                                          \
            if ((::NSCam::Utils::ULog::loadMode() & 0x1) &&                                     \
                (type) != ::NSCam::Utils::ULog::DETAILS_VERBOSE) {                              \
                if ((type) == ::NSCam::Utils::ULog::DETAILS_ERROR)                              \
                    __android_log_print(prio, tag, fmt ZORCAM_LOC_SUFFIX, ##__VA_ARGS__,        \
                                        __func__, __LINE__, __FILE__);                          \
                else                                                                            \
                    __android_log_print(prio, tag, fmt, ##__VA_ARGS__);                         \
            }                                                                                   \
            if (::NSCam::Utils::ULog::loadMode() & 0xE)                                         \
                ::NSCam::Utils::ULog::writeUnified(tag, type, fmt, ##__VA_ARGS__);              \
        }                                                                                       \
    } while (0)

#define CAM_ULOGE(tag, fmt, ...) \
    ZORCAM_ULOG_(::NSCam::Utils::ULog::DETAILS_ERROR, ANDROID_LOG_ERROR, tag, fmt, ##__VA_ARGS__)
#define CAM_ULOGW(tag, fmt, ...) \
    ZORCAM_ULOG_(::NSCam::Utils::ULog::DETAILS_WARNING, ANDROID_LOG_WARN, tag, fmt, ##__VA_ARGS__)
#define CAM_ULOGI(tag, fmt, ...) \
    ZORCAM_ULOG_(::NSCam::Utils::ULog::DETAILS_INFO, ANDROID_LOG_INFO, tag, fmt, ##__VA_ARGS__)
#define CAM_ULOGD(tag, fmt, ...) \
    ZORCAM_ULOG_(::NSCam::Utils::ULog::DETAILS_DEBUG, ANDROID_LOG_DEBUG, tag, fmt, ##__VA_ARGS__)
#define CAM_ULOGV(tag, fmt, ...)                                                       \
    ZORCAM_ULOG_(::NSCam::Utils::ULog::DETAILS_VERBOSE, ANDROID_LOG_VERBOSE, tag, fmt, \
                 ##__VA_ARGS__)

#define ZORCAM_PLOG_(letter, prio, tag, fmt, ...)                                               \
    do {                                                                                        \
        if (zorcam_testLog(tag, letter)) __android_log_print(prio, tag, fmt, ##__VA_ARGS__);    \
    } while (0)

#define CAM_PLOGE(tag, fmt, ...)                                                                \
    ZORCAM_PLOG_('E', ANDROID_LOG_ERROR, tag, fmt ZORCAM_LOC_SUFFIX, ##__VA_ARGS__, __func__,   \
                 __LINE__, __FILE__)
#define CAM_PLOGW(tag, fmt, ...) ZORCAM_PLOG_('W', ANDROID_LOG_WARN, tag, fmt, ##__VA_ARGS__)
#define CAM_PLOGI(tag, fmt, ...) ZORCAM_PLOG_('I', ANDROID_LOG_INFO, tag, fmt, ##__VA_ARGS__)
#define CAM_PLOGD(tag, fmt, ...) ZORCAM_PLOG_('D', ANDROID_LOG_DEBUG, tag, fmt, ##__VA_ARGS__)
#define CAM_PLOGV(tag, fmt, ...) ZORCAM_PLOG_('V', ANDROID_LOG_VERBOSE, tag, fmt, ##__VA_ARGS__)

namespace NSCam {
namespace Utils {
namespace ULog {
/// The camera log level read from "persist.vendor.zor.camera.log_level" at load (2 if unset).
int32_t cameraLogLevel();
}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam

// Order of the library's static initialisers; lower runs first, destruction is the reverse.
#define ZORCAM_INIT_MISC __attribute__((init_priority(1001)))
#define ZORCAM_INIT_FORMAT __attribute__((init_priority(1002)))
#define ZORCAM_INIT_PROPERTY __attribute__((init_priority(1003)))
#define ZORCAM_INIT_SYNC __attribute__((init_priority(1004)))
