// Cost of the timing helpers when their lines are kept back, against the clock reads they
// cannot avoid, measured in the same run.

#include <zorcam/ulog/ULog.h>
#include <zorcam/utils/std/DurationTool.h>
#include <zorcam/utils/std/FrameController.h>
#include <zorcam/utils/std/Profile.h>

#include <benchmark/benchmark.h>
#include <cutils/properties.h>
#include <utils/Timers.h>

namespace {

using NSCam::Utils::ULog::ULogger;

constexpr int64_t kFrameInterval = 33333333;

// The baseline: one read of the monotonic clock, what CamProfile::print and
// DurationTool::update each have to make.
void BM_ClockRead(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(systemTime(SYSTEM_TIME_MONOTONIC));
}
BENCHMARK(BM_ClockRead);

// Debug lines kept back by the unified logger's level (warnings only).
void BM_CamProfilePrint_DebugKeptBack(benchmark::State& state) {
    const uint32_t savedMode = ULogger::sMode, savedLevel = ULogger::sDetailsLevel;
    ULogger::sMode = 0x3;
    ULogger::sDetailsLevel = 2;
    NSCam::Utils::CamProfile profile("bench", "TimingBench");
    int i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(profile.print("frame %d", ++i));
    ULogger::sMode = savedMode;
    ULogger::sDetailsLevel = savedLevel;
}
BENCHMARK(BM_CamProfilePrint_DebugKeptBack);

// The camera log level of a process without properties is 2: the rate line stays back.
void BM_DurationToolShowFps_DebugKeptBack(benchmark::State& state) {
    NSCam::Utils::DurationTool meter("bench", 0);
    for (int i = 1; i <= 30; ++i) meter.update(i * kFrameInterval);
    for (auto _ : state) meter.showFps();
}
BENCHMARK(BM_DurationToolShowFps_DebugKeptBack);

// The pacing stage with every sleep under the minimum (so none is taken), no first-frame
// delay, and the per-frame lines at debug level, kept back by the camera log level.
void BM_FrameControllerBufferControl_Stage3(benchmark::State& state) {
    property_set("debug.camera.fctrl.sminus", "2000000000");
    property_set("debug.displaydelay.ms", "0");
    android::sp<NSCam::Utils::FrameController> fc =
            new NSCam::Utils::FrameController(android::String8("bench"));
    for (int i = 0; i < 5; ++i) fc->bufferControl(systemTime(SYSTEM_TIME_MONOTONIC) - 10000000);
    int64_t ts = systemTime(SYSTEM_TIME_MONOTONIC);
    fc->bufferControl(ts);  // at most the average delay: pacing starts
    for (auto _ : state) {
        ts += kFrameInterval;
        fc->bufferControl(ts);
    }
    property_set("debug.camera.fctrl.sminus", "");
    property_set("debug.displaydelay.ms", "");
}
BENCHMARK(BM_FrameControllerBufferControl_Stage3);

}  // namespace

BENCHMARK_MAIN();
