// Cost of a log message that the gate stops, against an empty out-of-line call.

#include "LogMacros.h"

#include <benchmark/benchmark.h>

using NSCam::Utils::ULog::ULogger;

namespace {

__attribute__((noinline)) void emptyCall(int value) {
    asm volatile("" : : "r"(value) : "memory");
}

void BM_EmptyOutOfLineCall(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) emptyCall(++i);
}
BENCHMARK(BM_EmptyOutOfLineCall);

// Debug stopped by the details level (the default switches keep warnings and errors).
void BM_DebugStoppedByLevel(benchmark::State& state) {
    ULogger::sMode = 0x3;
    ULogger::sDetailsLevel = 2;
    int i = 0;
    for (auto _ : state) CAM_ULOGD("ZorCam/Utils", "[%s] frame %d", __func__, ++i);
    benchmark::DoNotOptimize(i);
}
BENCHMARK(BM_DebugStoppedByLevel);

// Debug stopped by the module mask, the longer way through the gate.
void BM_DebugStoppedByMask(benchmark::State& state) {
    ULogger::sMode = 0x3;
    ULogger::sDetailsLevel = 6;
    ULogger::sNormalDetailsMask = 0x00007000;
    int i = 0;
    for (auto _ : state) CAM_ULOGD("ZorCam/Utils", "[%s] frame %d", __func__, ++i);
    benchmark::DoNotOptimize(i);
}
BENCHMARK(BM_DebugStoppedByMask);

// Debug on the property-gated path, stopped by the camera log level (2 when unset).
void BM_PropertyGatedDebugStopped(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) CAM_PLOGD("ZorCam/Utils", "[%s] frame %d", __func__, ++i);
    benchmark::DoNotOptimize(i);
}
BENCHMARK(BM_PropertyGatedDebugStopped);

}  // namespace

BENCHMARK_MAIN();
