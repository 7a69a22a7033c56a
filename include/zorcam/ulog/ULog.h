#pragma once

// The camera stack's unified logger: its process-wide switches and the text operation that
// libzorcam_stdutils writes through. On a host this interface is provided by the stand-in
// library zorcam_ulog (platform/ulog), whose default object prints each message as one line
// on stderr.

#include <cstdint>

namespace NSCam {
namespace Utils {
namespace ULog {

/// Severity of a unified-log message. Other values may be passed as numbers.
enum DetailsType : uint32_t {
    DETAILS_ERROR = 1,
    DETAILS_WARNING = 2,
    DETAILS_INFO = 3,
    DETAILS_DEBUG = 5,
    DETAILS_VERBOSE = 6,
};

class ULogger {
public:
    /// Output switches: bit 0 writes to the Android log, any of bits 0xE hands messages to
    /// sULogger.
    static uint32_t sMode;
    /// Highest details type let through (unsigned comparison).
    static uint32_t sDetailsLevel;
    /// Enabled modules and categories, tested against module ids for details types >= 3.
    static uint32_t sNormalDetailsMask;
    /// The process's logger object; valid whenever a bit of 0xE is set in sMode.
    static ULogger* sULogger;

    virtual ~ULogger();

    /// Receives one message. text is NUL-terminated and at most length bytes are read.
    virtual void logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                         int64_t length);
};

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
