#pragma once

// Reading log captures: one line of logcat text (threadtime, time or brief form, with or
// without year, usec and epoch time stamps) or of the host's liblog on stderr, and the
// library's own lines within it. No regular expressions: every line of a capture of hundreds
// of megabytes passes through here.

#include <cstdint>
#include <string>
#include <string_view>

namespace zorcam_util {

/// One log line, taken apart; the views point into the line.
struct LogEntry {
    int64_t timeNs = -1;       // the capture's time stamp in ns (see parseLogLine); -1: none
    int64_t resolutionNs = 0;  // what the time stamp resolves: 1 ms, 1 us, 1 s
    int pid = -1;
    int tid = -1;  // -1 where the form has none (time, brief)
    char level = '?';
    std::string_view tag;
    std::string_view message;
};

/// Takes a line apart; false for a line in none of the forms (it is then skipped). Dates
/// without a year count from 1 January of a common year; with a year or as epoch seconds, from
/// 1970. A trailing carriage return is ignored.
bool parseLogLine(std::string_view line, LogEntry* entry);

/// A time as the options take it: "[YYYY-]MM-DD HH:MM:SS[.fff]" or epoch seconds "S[.fff]",
/// in the same ns as parseLogLine gives. False for anything else.
bool parseTime(std::string_view text, int64_t* ns);

/// Whether a line may be one of the library's, decided from its bytes alone before it is taken
/// apart: its tags begin "ZorCam/", and CameraProfile lines (under the caller's tag) carry
/// "-->now: ". Most lines of a capture stop here.
bool mayBeLibraryLine(std::string_view line);

/// What a library line says, for the lines the report draws on.
struct LibraryEvent {
    enum Kind : uint8_t {
        kPaced,  // a paced frame: "off:ct(..),cft(..),..."  values: ct cft cddt oddt nddt max min
                 // fi ti stc st
        kPacedInReset,     // a frame while the delay is being reset: "on:..."  values: ct cft cddt
                           // oddt fi ti
        kAdjustStart,      // "start to adj frame delay"
        kAdjustStop,       // "stop adj frame delay"
        kResetStart,       // "start to reset frame delay"
        kResetStop,        // "stop reset frame delay"
        kMeasuring,        // "framecontrol stage(N)"  values: N
        kFirstFrameDelay,  // "FirstFrameDelay(N)ms"  values: N
        kFps,              // a frame-rate meter's line  values: count, elapsed ns; rate
        kCamProfile,  // a CamProfile checkpoint  values: index, start ms, step ms, threshold ms or
                      // -1
        kCameraProfile,  // a CameraProfile checkpoint  values: index, start us, step us, threshold
                         // ns or -1
        kOther,          // any other line of the library's tags
    };
    Kind kind = kOther;
    std::string_view name;  // the stream, meter or profile; the prefix of a CameraProfile
    std::string_view note;  // a profile checkpoint's note
    double rate = 0;        // kFps: the rate the meter printed
    int64_t values[11] = {};
};

enum class LibraryLine { kNotLibrary, kRead, kUnreadable };

/// Reads a library line of a taken-apart entry. kUnreadable: the line has the shape of one of
/// the library's figure lines but its figures cannot be read (garbled, cut short, out of range).
LibraryLine readLibraryLine(const LogEntry& entry, LibraryEvent* event);

}  // namespace zorcam_util
