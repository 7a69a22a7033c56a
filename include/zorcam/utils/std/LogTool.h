#pragma once

#include <zorcam/utils/std/Export.h>

#include <ctime>
#include <string>

namespace NSCam {
namespace Utils {

class ZORCAM_EXPORT TimeTool {
public:
    /// The current time of day in UTC packed as the decimal digits HHMMSSmmm (for example
    /// 134507123 at 13:45:07.123). Any thread.
    static unsigned int getReadableTime();
};

/// Wall-clock time as log-style text. A stateless process-wide object; any thread.
class ZORCAM_EXPORT LogTool {
public:
    /// The one object of the process; never null.
    static LogTool* get();

    /// Fills *ts with the current wall-clock time (CLOCK_REALTIME). False, with an error line,
    /// for a null ts or when the clock cannot be read (*ts is then zeroed).
    bool getCurrentLogTime(timespec* ts);

    /// "MM-DD HH:MM:SS.mmm" (18 characters) in the process's local time zone, milliseconds
    /// truncated. Empty, with an error line, for a null ts or a time that cannot be converted.
    std::string convertToFormattedLogTime(const timespec* ts);

    /// The formatted log time of the current instant; empty when the clock cannot be read.
    std::string getFormattedLogTime();

    LogTool(const LogTool&) = delete;
    LogTool& operator=(const LogTool&) = delete;

private:
    constexpr LogTool() = default;
};

}  // namespace Utils
}  // namespace NSCam
