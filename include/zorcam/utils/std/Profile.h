#pragma once

/// \file
/// Stopwatches that log the stages of a function.

#include <zorcam/utils/std/Export.h>

#include <cstdint>

namespace NSCam {
namespace Utils {

/// Stopwatch for the stages of a function: each checkpoint logs a note with its number and
/// the milliseconds since construction and since the previous checkpoint (unified path, tag
/// "ZorCam/Utils"). Times are kept as 32-bit microseconds, right for steps under ~35 minutes.
/// The name pointers are kept, not copied: they must outlive the object. One thread at a time.
class ZORCAM_EXPORT CamProfile {
public:
    /// Starts the stopwatch now.
    /// \param functionName the function profiled, named in every line (null: "(null)"); kept,
    /// not copied.
    /// \param className its class, named in every line (null: "(null)"); kept, not copied.
    CamProfile(const char* functionName, const char* className);

    /// A checkpoint logged at debug level. Only checkpoints whose line is written are numbered;
    /// the step restarts either way.
    /// \param fmt printf format of the checkpoint's note, followed by its arguments.
    /// \return true: a profile is never switched off.
    bool print(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));

    /// A checkpoint logged at info level only when the step since the previous checkpoint
    /// exceeds msThreshold whole milliseconds; numbered either way.
    /// \param msThreshold the longest step, in ms, that is not logged.
    /// \param fmt printf format of the checkpoint's note, followed by its arguments.
    /// \return true when the threshold was exceeded.
    bool print_overtime(int msThreshold, const char* fmt, ...) const
            __attribute__((format(printf, 3, 4)));

private:
    const char* mClassName;
    const char* mFunctionName;
    mutable int32_t mIndex;
    int32_t mStartUs;
    mutable int32_t mLastUs;
    bool mEnabled;
};

/// Stopwatch with nanosecond times printing microseconds, each line through a printer chosen
/// by a level letter: 'F' goes to the Android log at fatal priority whatever the unified
/// logger's switches say; 'E', 'W', 'I', 'V' and anything else (debug) go through a
/// ULogPrinter under module id 0x40007001. tag and prefix are kept, not copied: they must
/// outlive the object. One thread at a time.
class ZORCAM_EXPORT CameraProfile {
public:
    /// Starts the stopwatch now.
    /// \param tag the log tag of every line; kept, not copied.
    /// \param prefix opens every line; kept, not copied.
    CameraProfile(const char* tag, const char* prefix);

    /// Starts a new step without logging or numbering a checkpoint.
    void stopWatch();

    /// A checkpoint: "@N note [start-->now: T us]", followed by "[last-->now: S us]" once a
    /// checkpoint or stopWatch() has moved the step's start.
    /// \param level the printer's level letter ('F', 'E', 'W', 'I', 'V'; other: debug).
    /// \param fmt printf format of the note, followed by its arguments.
    void print(char level, const char* fmt, ...) const __attribute__((format(printf, 3, 4)));

    /// A checkpoint that is printed only when the step exceeds nsThreshold nanoseconds; it is
    /// numbered and restarts the step either way.
    /// \param level the printer's level letter, as for print().
    /// \param nsThreshold the longest step, in ns, that is not printed.
    /// \param fmt printf format of the note, followed by its arguments.
    void print_overtime(char level, long nsThreshold, const char* fmt, ...) const
            __attribute__((format(printf, 4, 5)));

private:
    ZORCAM_HIDDEN void printLine(char level, const char* line) const;

    const char* mTag;
    const char* mPrefix;
    mutable int32_t mIndex;
    int64_t mStartTime;
    mutable int64_t mLastTime;
};

}  // namespace Utils
}  // namespace NSCam
