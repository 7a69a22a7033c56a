// Drives every argument and every "vendor.debug.cam.scanline" property of the scan-line
// overlay from the input, over several frames, into a heap buffer of exactly `size` bytes
// (none when size is 0 or negative), so that any write outside it trips AddressSanitizer.
// The painting is also driven directly with arbitrary frame counts, which calls alone could
// only reach after billions of frames.

#include <zorcam/utils/std/DebugScanLine.h>

#include "DebugScanLinePaint.h"

#include "FuzzLog.h"

#include <cutils/properties.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

constexpr int kMaxBuffer = 1 << 20;

constexpr int32_t kEdges[] = {0,       1,      -1,      5,       799,      800,       801,
                              1600,    100,    -100,    INT_MAX, INT_MIN,  INT_MAX / 5,
                              INT_MIN + 1,     1 << 16, -(1 << 16), 21474837};

int32_t pick(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: return in.ConsumeIntegralInRange<int32_t>(-8, 64);
        case 1: return in.ConsumeIntegralInRange<int32_t>(-2048, 4096);
        case 2: return in.PickValueInArray(kEdges);
        default: return in.ConsumeIntegral<int32_t>();
    }
}

const char* const kKeys[] = {
        "vendor.debug.cam.scanline.value",      "vendor.debug.cam.scanline.height",
        "vendor.debug.cam.scanline.width",      "vendor.debug.cam.scanline.widthShift",
        "vendor.debug.cam.scanline.speed",      "vendor.debug.cam.scanline.fullscreen"};

void setProperty(FuzzedDataProvider& in, const char* key) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: property_set(key, ""); break;
        case 1: property_set(key, std::to_string(pick(in)).c_str()); break;
        case 2: property_set(key, std::to_string(in.ConsumeIntegral<int64_t>()).c_str()); break;
        default: property_set(key, in.ConsumeRandomLengthString(PROP_VALUE_MAX - 1).c_str());
    }
}

struct FreeDeleter {
    void operator()(void* p) const { free(p); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zorcam_fuzz::clearLog();  // the lines go to memory (fuzz/support), one input's at a time
    FuzzedDataProvider in(data, size);
    const int bufSize = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-16, kMaxBuffer)
                                         : in.ConsumeIntegralInRange<int>(INT_MIN, kMaxBuffer);
    const size_t bytes = bufSize > 0 ? static_cast<size_t>(bufSize) : 0;
    std::unique_ptr<void, FreeDeleter> storage(malloc(bytes ? bytes : 1));
    void* const buffer = in.ConsumeIntegralInRange<int>(0, 15) == 0 ? nullptr : storage.get();

    for (const char* key : kKeys) setProperty(in, key);
    DebugScanLine* line = DebugScanLine::createInstance();
    const int frames = in.ConsumeIntegralInRange<int>(1, 6);
    for (int f = 0; f < frames && in.remaining_bytes() > 0; ++f) {
        if (in.ConsumeBool()) setProperty(in, in.PickValueInArray(kKeys));
        const int width = pick(in), height = pick(in), stride = pick(in);
        line->drawScanLine(width, height, buffer, bufSize, stride);
    }
    line->destroyInstance();

    using namespace NSCam::Utils::ScanLine;
    Settings settings = readSettings();
    settings.fullscreen = readFullscreen();
    const int height = pick(in), stride = pick(in);
    const Band band = placeBand(height, in.ConsumeIntegral<int32_t>(), settings);
    paint(buffer, bufSize, stride, height, settings, band);
    return 0;
}
