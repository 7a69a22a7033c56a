#pragma once

/// \file
/// Wall-clock time in the forms the camera's logs use.

#include <zorcam/utils/std/Export.h>

#include <ctime>
#include <string>

namespace NSCam {
namespace Utils {

/// Time-of-day stamps.
class ZORCAM_EXPORT TimeTool {
public:
    /// The time of day as one number.
    /// \return the current time of day in UTC packed as the decimal digits HHMMSSmmm (for
    /// example 134507123 at 13:45:07.123). Any thread.
    static unsigned int getReadableTime();
};

/// Wall-clock time as log-style text. A stateless process-wide object; any thread.
class ZORCAM_EXPORT LogTool {
public:
    /// The process-wide object.
    /// \return the one object of the process; never null.
    static LogTool* get();

    /// Reads the wall clock (CLOCK_REALTIME).
    /// \param ts receives the time; zeroed when the clock cannot be read.
    /// \return false, with an error line, for a null ts or when the clock cannot be read.
    bool getCurrentLogTime(timespec* ts);

    /// Formats a wall-clock time as a log line does.
    /// \param ts a wall-clock time.
    /// \return "MM-DD HH:MM:SS.mmm" (18 characters) in the process's local time zone,
    /// milliseconds truncated; empty, with an error line, for a null ts or a time that cannot
    /// be converted.
    std::string convertToFormattedLogTime(const timespec* ts);

    /// The current wall-clock time, formatted.
    /// \return the formatted log time of the current instant; empty when the clock cannot be
    /// read.
    std::string getFormattedLogTime();

    LogTool(const LogTool&) = delete;
    LogTool& operator=(const LogTool&) = delete;

private:
    constexpr LogTool() = default;
};

}  // namespace Utils
}  // namespace NSCam
