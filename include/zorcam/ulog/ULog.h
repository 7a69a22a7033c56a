#pragma once

/// \file
/// The camera stack's unified logger: its process-wide switches and the text operation that
/// libzorcam_stdutils writes through. On a host this interface is provided by the stand-in
/// library zorcam_ulog (platform/ulog), whose default object prints each message as one line
/// on stderr.

#include <cstdint>

/// The camera stack's namespace.
namespace NSCam {
/// Utilities shared by every camera component.
namespace Utils {
/// The unified logger and the printer that writes through it.
namespace ULog {

/// Severity of a unified-log message. Other values may be passed as numbers.
enum DetailsType : uint32_t {
    DETAILS_ERROR = 1,  ///< An error.
    DETAILS_WARNING = 2,  ///< A warning.
    DETAILS_INFO = 3,  ///< Information.
    DETAILS_DEBUG = 5,  ///< A debug message.
    DETAILS_VERBOSE = 6,  ///< A verbose message.
};

/// The unified logger. Its static switches are set when the process loads it (on a host, from
/// the "vendor.debug.zorcam.ulog.mode", ".level" and ".mask" system properties) and read by
/// every logging call; a component that wants the messages points sULogger at an object of a
/// derived class. Set the switches before other threads log: they are plain variables.
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

    /// Receives one message; called on the thread that logs, by any number of threads at once.
    /// \param moduleId the sender's module id.
    /// \param tag the log tag, NUL-terminated.
    /// \param type the message's severity.
    /// \param text the message, NUL-terminated; at most length bytes are read.
    /// \param length the message's length in bytes, without the NUL.
    virtual void logText(uint32_t moduleId, const char* tag, DetailsType type, const char* text,
                         int64_t length);
};

}  // namespace ULog
}  // namespace Utils
}  // namespace NSCam
