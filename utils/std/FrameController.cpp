#include <zorcam/utils/std/FrameController.h>

#include "LogMacros.h"

#include <cutils/properties.h>
#include <utils/Timers.h>

#include <unistd.h>

namespace NSCam {
namespace Utils {

namespace {

constexpr const char* kTag = "ZorCam/FrameController";

int64_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

// Reads a construction-time key; -1 means the key is not set and the default stays.
template <typename T>
void readOverride(const char* key, int64_t scale, T* value) {
    const int32_t read = property_get_int32(key, -1);
    if (read != -1) *value = static_cast<T>(static_cast<int64_t>(read) * scale);
}

// usleep takes 32 bits and some C libraries refuse a second or more in one call; a zero or
// negative count (only reachable through odd property values) sleeps not at all.
void sleepUs(int64_t us) {
    constexpr int64_t kChunkUs = 999999;
    while (us > 0) {
        const int64_t part = us < kChunkUs ? us : kChunkUs;
        usleep(static_cast<useconds_t>(part));
        us -= part;
    }
}

}  // namespace

// The per-frame lines of the pacing stage: debug while miLogLevel is below 2, info from 2 on.
// Every line names the function and, through getName(), the controller.
#define FCTRL_LOG(fmt, ...)                                                                    \
    do {                                                                                       \
        if (miLogLevel >= 2)                                                                   \
            CAM_PLOGI(kTag, "[%s][%s]" fmt, "bufferControl", getName().c_str(), ##__VA_ARGS__); \
        else                                                                                   \
            CAM_PLOGD(kTag, "[%s][%s]" fmt, "bufferControl", getName().c_str(), ##__VA_ARGS__); \
    } while (0)

FrameController::FrameController(android::String8 name)
    : mName(name),
      miLogLevel(1),
      miStage(1),
      mAverageDisplayTime(0),
      miFrameCount(0),
      mFirstFrameDelay(0),
      mAdjDelay(0),
      mP2Delay(0),
      mLastFrameTime(0),
      mCurrentFrameTime(0),
      mLastReturnTime(0),
      mTargetDisplayDelay(0),
      mResetDisplayDelay(0),
      mAdjMinDisplayDelay(0),
      mAdjMaxDisplayDelay(0),
      mTimeInterval(0),
      mFrameInterval(0),
      mMaxDelay(30000000),
      mMaxSleep(1000000000),
      mMinSleep(200),
      mAdjSleep(250000),
      mbResetDelay(false),
      mbAdjDelay(false) {
    readOverride("debug.camera.fctrl.loglevel", 1, &miLogLevel);
    readOverride("debug.camera.fctrl.fmd", 1000000, &mMaxDelay);
    readOverride("debug.camera.fctrl.smaxms", 1000000, &mMaxSleep);
    readOverride("debug.camera.fctrl.sminus", 1, &mMinSleep);
    readOverride("debug.camera.fctrl.adjsleep", 1, &mAdjSleep);
    CAM_PLOGI(kTag,
              "[%s][%s] - miLogLevel(%d), max delay(%lld), max sleep(%lld ns), min sleep(%lld "
              "us), adj sleep(%lld ns)",
              __func__, getName().c_str(), miLogLevel, static_cast<long long>(mMaxDelay),
              static_cast<long long>(mMaxSleep), static_cast<long long>(mMinSleep),
              static_cast<long long>(mAdjSleep));
}

FrameController::~FrameController() = default;

android::String8 FrameController::getName() {
    return mName;
}

void FrameController::bufferControl(long timestamp) {
    mCurrentFrameTime = timestamp;
    switch (miStage) {
        case 1: measure(timestamp); break;
        case 2: waitForFastFrame(timestamp); break;
        case 3: pace(timestamp); break;
        default:
            CAM_PLOGE(kTag, "[%s][%s] Display control stage error, should not happened", __func__,
                      getName().c_str());
            break;
    }
    mLastReturnTime = now();
}

void FrameController::measure(int64_t timestamp) {
    CAM_PLOGD(kTag, "[%s][%s] framecontrol stage(%d)", "bufferControl", getName().c_str(),
              miStage);
    mAverageDisplayTime += now() - timestamp;
    if (++miFrameCount < 5) return;
    mAverageDisplayTime /= 5;
    miStage = 2;
    CAM_PLOGD(kTag, "[%s][%s] mAverageDisplayTime(%lld)", "bufferControl", getName().c_str(),
              static_cast<long long>(mAverageDisplayTime));
}

void FrameController::waitForFastFrame(int64_t timestamp) {
    CAM_PLOGD(kTag, "[%s][%s] framecontrol stage(%d)", "bufferControl", getName().c_str(),
              miStage);
    const int64_t delay = now() - timestamp;
    CAM_PLOGD(kTag, "[%s][%s] currentDisplayDelay(%lld),mAverageDisplayTime(%lld)",
              "bufferControl", getName().c_str(), static_cast<long long>(delay),
              static_cast<long long>(mAverageDisplayTime));
    // Pacing starts on a frame that came through the pipeline at least as fast as usual, so
    // that the first-frame delay is added to a typical display delay and not to a late one.
    if (delay > mAverageDisplayTime) return;

    mLastFrameTime = timestamp;
    mFirstFrameDelay = property_get_int32("debug.displaydelay.ms", 15);
    mAdjDelay = property_get_int32("debug.displaydelay.adjdelay", 5000000);
    mP2Delay = property_get_int32("debug.displaydelay.p2", 30000000);

    CAM_PLOGI(kTag, "[%s][%s] FirstFrameDelay(%lld)ms", "bufferControl", getName().c_str(),
              static_cast<long long>(mFirstFrameDelay));
    sleepUs(mFirstFrameDelay * 1000);
    CAM_PLOGI(kTag, "[%s][%s] FirstFrameDelay(%lld)ms", "bufferControl", getName().c_str(),
              static_cast<long long>(mFirstFrameDelay));
    miStage = 3;
    mFirstFrameDelay *= 1000000;
}

void FrameController::pace(int64_t timestamp) {
    const int64_t ct = now();
    const int64_t lastFrameTime = mLastFrameTime;
    mFrameInterval = timestamp - mLastFrameTime;
    mLastFrameTime = timestamp;

    const int64_t target = mP2Delay + mFrameInterval + mFirstFrameDelay;
    mTargetDisplayDelay = target;
    mAdjMinDisplayDelay = target;
    mAdjMaxDisplayDelay = target + mAdjDelay;
    mResetDisplayDelay = target + mMaxDelay;

    int64_t cddt = ct - timestamp;
    if (mbResetDelay) {
        FCTRL_LOG("  on:ct(%lld),cft(%lld),cddt(%lld),oddt(%lld),fi(%lld),ti(%lld)",
                  static_cast<long long>(ct), static_cast<long long>(timestamp),
                  static_cast<long long>(cddt), static_cast<long long>(mTargetDisplayDelay),
                  static_cast<long long>(mFrameInterval), static_cast<long long>(mTimeInterval));
        // Pacing resumes only once the delay has come down to the middle of the band between
        // target and reset threshold, so that it does not flap at the threshold.
        if (cddt <= (mTargetDisplayDelay + mResetDisplayDelay) / 2) {
            mbResetDelay = false;
            mbAdjDelay = false;
            FCTRL_LOG(" stop reset frame delay");
        }
        return;
    }

    mTimeInterval = now() - mLastReturnTime;
    const int64_t s = mFrameInterval - mTimeInterval - mAdjSleep;
    int64_t st = 0;
    bool sleep = false;
    if (s >= 1 && s < mMaxSleep) {
        st = s / 1000;
        if (mbAdjDelay) st -= 1000;
        sleep = st > mMinSleep;
        if (!sleep) st = 0;
    }
    cddt += st * 1000;

    if (cddt >= mResetDisplayDelay) {
        mbResetDelay = true;
        mbAdjDelay = false;
        FCTRL_LOG(" start to reset frame delay");
    }
    if (!mbResetDelay) {
        if (!mbAdjDelay && cddt >= mAdjMaxDisplayDelay) {
            mbAdjDelay = true;
            FCTRL_LOG(" start to adj frame delay");
        } else if (mbAdjDelay && cddt <= mAdjMinDisplayDelay) {
            mbAdjDelay = false;
            FCTRL_LOG(" stop adj frame delay");
        }
    }
    if (sleep) {
        FCTRL_LOG(" start sleep");
        sleepUs(st);
    }
    FCTRL_LOG(" off:ct(%lld),cft(%lld),cddt(%lld),oddt(%lld),nddt(%lld),max(%lld),min(%lld),"
              "fi(%lld),ti(%lld),stc(%d),st(%lld us)",
              static_cast<long long>(ct), static_cast<long long>(timestamp),
              static_cast<long long>(cddt), static_cast<long long>(mTargetDisplayDelay),
              static_cast<long long>(mResetDisplayDelay),
              static_cast<long long>(mAdjMaxDisplayDelay),
              static_cast<long long>(mAdjMinDisplayDelay), static_cast<long long>(mFrameInterval),
              static_cast<long long>(mTimeInterval), mbAdjDelay ? 1 : 0,
              static_cast<long long>(st));

    if (s >= mMaxSleep) {
        CAM_PLOGW(kTag, "[%s][%s] Check Frame conrol parameters, something wrong",
                  "bufferControl", getName().c_str());
        CAM_PLOGW(kTag, "[%s][%s] ct(%lld),cft(%lld),lft(%lld),cddt(%lld),nddt(%lld),fi(%lld),"
                  "ti(%lld)",
                  "bufferControl", getName().c_str(), static_cast<long long>(ct),
                  static_cast<long long>(timestamp), static_cast<long long>(lastFrameTime),
                  static_cast<long long>(cddt), static_cast<long long>(mResetDisplayDelay),
                  static_cast<long long>(mFrameInterval), static_cast<long long>(mTimeInterval));
    }
}

}  // namespace Utils
}  // namespace NSCam
