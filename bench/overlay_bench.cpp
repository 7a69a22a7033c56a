// Debug overlays against the plain memory operations that write the same bytes: the numeric
// stamp against memcpy, the scan-line band against memset, and the scan line's property
// reads on their own.

#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/DebugScanLine.h>

#include "DebugDrawIDStamp.h"
#include "DebugScanLinePaint.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kWidth = 1920;
constexpr unsigned kHeight = 1080;
constexpr unsigned kPlaneBytes = kWidth * kHeight;

uint64_t stampBytes(unsigned size, unsigned digits) {
    return uint64_t{5} * size * digits * 5 * size;
}

void BM_Stamp(benchmark::State& state) {
    const unsigned size = static_cast<unsigned>(state.range(0));
    const unsigned digits = static_cast<unsigned>(state.range(1));
    std::vector<char> plane(kPlaneBytes, 0);
    unsigned number = 0;
    for (auto _ : state) {
        DebugDrawID::draw(number++, digits, 200, 200, plane.data(), kWidth, kHeight, kWidth,
                          kPlaneBytes, size, static_cast<char>(250), 20);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stampBytes(size, digits)));
}

// The stamp through each vector path this processor has, the one the library picks and the
// ones it would pick on processors with less (the bounds checks and digit split included).
void BM_StampPath(benchmark::State& state, const NSCam::Utils::DrawID::FastPath* path) {
    using namespace NSCam::Utils::DrawID;
    const unsigned size = static_cast<unsigned>(state.range(0));
    const unsigned digits = static_cast<unsigned>(state.range(1));
    std::vector<uint8_t> plane(kPlaneBytes, 0);
    uint32_t number = 0;
    for (auto _ : state) {
        const ShownDigits shown(number++, digits);
        path->mStamp({&shown, digits, size, 250, 20, plane.data() + 200 + 200 * kWidth, kWidth});
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stampBytes(size, digits)));
}

const bool kPathsRegistered = [] {
    for (const auto& path : NSCam::Utils::DrawID::kFastPaths) {
        if (!path.mSupported()) continue;
        benchmark::RegisterBenchmark((std::string("BM_StampPath/") + path.mName).c_str(),
                                     BM_StampPath, &path)
                ->Args({10, 5})
                ->Args({40, 8});
    }
    return true;
}();

// The same number of bytes as the stamp, in one copy.
void BM_StampMemcpy(benchmark::State& state) {
    const uint64_t n = stampBytes(static_cast<unsigned>(state.range(0)),
                                  static_cast<unsigned>(state.range(1)));
    std::vector<char> plane(kPlaneBytes, 0);
    std::vector<char> source(n, 1);
    for (auto _ : state) {
        memcpy(plane.data() + 200 * kWidth, source.data(), n);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

// The stamp's rows copied from a ready row: the floor for any stamp that writes row by row.
void BM_StampRowsMemcpy(benchmark::State& state) {
    const unsigned size = static_cast<unsigned>(state.range(0));
    const size_t width = size_t{5} * size * static_cast<unsigned>(state.range(1));
    std::vector<char> plane(kPlaneBytes, 0);
    std::vector<char> source(width, 1);
    for (auto _ : state) {
        for (unsigned r = 0; r < 5 * size; ++r)
            memcpy(plane.data() + 200 + (200 + r) * kWidth, source.data(), width);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * width * 5 * size));
}

NSCam::Utils::ScanLine::Settings defaults() {
    return {255, 100, 0, 0, 100, 0};
}

void BM_ScanLinePaint(benchmark::State& state) {
    using namespace NSCam::Utils::ScanLine;
    std::vector<uint8_t> plane(kPlaneBytes, 0);
    const Settings settings = defaults();
    int32_t frame = 0;
    for (auto _ : state) {
        const Band band = placeBand(kHeight, frame++, settings);
        paint(plane.data(), kPlaneBytes, kWidth, kHeight, settings, band);
        benchmark::ClobberMemory();
    }
    const Band band = placeBand(kHeight, 0, settings);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * band.rows * kWidth));
}

// The band's bytes in one memset, moving as the band does.
void BM_ScanLineMemset(benchmark::State& state) {
    using namespace NSCam::Utils::ScanLine;
    std::vector<uint8_t> plane(kPlaneBytes, 0);
    const Settings settings = defaults();
    const int64_t rows = placeBand(kHeight, 0, settings).rows;
    const int64_t freeRows = kHeight - rows;
    int64_t frame = 0;
    for (auto _ : state) {
        const int64_t top = frame++ * 20 % freeRows;
        memset(plane.data() + top * kWidth, 255, static_cast<size_t>(rows * kWidth));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * rows * kWidth));
}

void BM_ScanLinePropertyReads(benchmark::State& state) {
    using namespace NSCam::Utils::ScanLine;
    for (auto _ : state) {
        Settings s = readSettings();
        s.fullscreen = readFullscreen();
        benchmark::DoNotOptimize(s);
    }
}

// The whole public call: reads, the gated debug line and the paint.
void BM_ScanLineDrawCall(benchmark::State& state) {
    std::vector<uint8_t> plane(kPlaneBytes, 0);
    DebugScanLine* line = DebugScanLine::createInstance();
    for (auto _ : state) {
        line->drawScanLine(kWidth, kHeight, plane.data(), kPlaneBytes, kWidth);
        benchmark::ClobberMemory();
    }
    line->destroyInstance();
}

}  // namespace

BENCHMARK(BM_Stamp)->Args({10, 5})->Args({40, 8});
BENCHMARK(BM_StampMemcpy)->Args({10, 5})->Args({40, 8});
BENCHMARK(BM_StampRowsMemcpy)->Args({10, 5})->Args({40, 8});
BENCHMARK(BM_ScanLinePaint);
BENCHMARK(BM_ScanLineMemset);
BENCHMARK(BM_ScanLinePropertyReads);
BENCHMARK(BM_ScanLineDrawCall);

BENCHMARK_MAIN();
