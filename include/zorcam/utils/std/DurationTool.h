#pragma once

/// \file
/// Frame-rate meter.

#include <zorcam/utils/std/Export.h>

#include <utils/String8.h>

#include <cstdint>

namespace NSCam {
namespace Utils {

/// Counts events (frames) over a period of the monotonic clock and logs the rate on request.
/// Never resets or prints by itself. One thread at a time.
class ZORCAM_EXPORT DurationTool {
public:
    /// Starts a period now (systemTime(SYSTEM_TIME_MONOTONIC)).
    /// \param name the meter's name, copied (null: empty); it opens every line it writes.
    explicit DurationTool(const char* name);
    /// Starts a period at timestamp.
    /// \param name the meter's name, copied (null: empty); it opens every line it writes.
    /// \param timestamp ns, on whatever base the caller uses throughout.
    DurationTool(const char* name, long timestamp);

    /// Starts a new period now, with a count of 0.
    void reset();
    /// Starts a new period at timestamp, with a count of 0.
    /// \param timestamp ns, on the base the meter was started with.
    void reset(long timestamp);

    /// Counts one event now.
    void update();
    /// Counts one event at timestamp.
    /// \param timestamp ns, on the base the meter was started with.
    void update(long timestamp);

    /// Writes the debug line "[name] fps: count / elapsed ns = rate" (property-gated path, tag
    /// "ZorCam/Utils"); the rate is computed in single precision and only when the line is
    /// written. Changes nothing.
    void showFps() const;

private:
    android::String8 mName;
    int32_t mCount;
    int64_t mStartTime;
    int64_t mLastTime;
};

}  // namespace Utils
}  // namespace NSCam
