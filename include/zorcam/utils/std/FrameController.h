#pragma once

/// \file
/// Display frame pacing for a preview stream.

#include <zorcam/utils/std/Export.h>

#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstdint>

namespace NSCam {
namespace Utils {

/// Paces the preview frames of one stream towards the display. The owner calls bufferControl()
/// once per frame, in frame order, on the thread that is about to release the frame; the call
/// may sleep on that thread so that frames leave one frame interval apart while the display
/// delay stays inside a band above a target. Tuned by the "debug.camera.fctrl.*" properties
/// (read at construction) and the "debug.displaydelay.*" properties (read when pacing starts).
/// One controller serves one stream; its calls must not overlap. Held through android::sp.
class ZORCAM_EXPORT FrameController : public virtual android::RefBase {
public:
    /// Reads the "debug.camera.fctrl.*" properties.
    /// \param name the stream's name; it appears in every log line of the controller.
    explicit FrameController(android::String8 name);
    virtual ~FrameController();

    /// The controller's name.
    /// \return the name given at construction.
    virtual android::String8 getName();

    /// Paces one frame. The first five calls measure the display delay, the first frame at or
    /// under the measured average is held back once by the first-frame delay (15 ms by
    /// default), and every later call sleeps for what is left of the frame interval. A call
    /// whose sleep would reach the maximum sleep ("debug.camera.fctrl.smaxms", 1 s by default)
    /// does not sleep and logs the warning "Check Frame conrol parameters, something wrong".
    /// \param timestamp the frame's time stamp in ns on the clock of
    /// systemTime(SYSTEM_TIME_MONOTONIC).
    virtual void bufferControl(long timestamp);

private:
    ZORCAM_HIDDEN void measure(int64_t timestamp);
    ZORCAM_HIDDEN void waitForFastFrame(int64_t timestamp);
    ZORCAM_HIDDEN void pace(int64_t timestamp);

    android::String8 mName;
    int32_t miLogLevel;
    int32_t miStage;
    int64_t mAverageDisplayTime;
    int32_t miFrameCount;
    int64_t mFirstFrameDelay;
    int64_t mAdjDelay;
    int64_t mP2Delay;
    int64_t mLastFrameTime;
    int64_t mCurrentFrameTime;
    int64_t mLastReturnTime;
    int64_t mTargetDisplayDelay;
    int64_t mResetDisplayDelay;
    int64_t mAdjMinDisplayDelay;
    int64_t mAdjMaxDisplayDelay;
    int64_t mTimeInterval;
    int64_t mFrameInterval;
    int64_t mMaxDelay;
    int64_t mMaxSleep;
    int64_t mMinSleep;
    int64_t mAdjSleep;
    bool mbResetDelay;
    bool mbAdjDelay;
};

}  // namespace Utils
}  // namespace NSCam
