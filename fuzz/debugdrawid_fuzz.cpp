// Drives every argument and every "debug.cam.drawid" property of the frame-ID stamps from the
// input, into a heap buffer of exactly bufSize bytes, so that any write outside it trips
// AddressSanitizer and any overflowing arithmetic trips UBSan.

#include <zorcam/utils/std/DebugDrawID.h>

#include "FuzzLog.h"

#include <cutils/properties.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

constexpr uint32_t kMaxBuffer = 1 << 20;

// Values where 32-bit products wrap or limits flip.
constexpr uint32_t kEdges[] = {0,          1,          4,          5,          799,
                               800,        0x33333333, 0x33333334, 858993460,  0x7FFFFFFF,
                               0x80000000, 0xFFFFFFFB, 0xFFFFFFFE, 0xFFFFFFFF, 159810};

uint32_t pick(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: return in.ConsumeIntegralInRange<uint32_t>(0, 64);
        case 1: return in.ConsumeIntegralInRange<uint32_t>(0, 4096);
        case 2: return in.PickValueInArray(kEdges);
        default: return in.ConsumeIntegral<uint32_t>();
    }
}

// Unset, a number (as the property parser reads it) or arbitrary text.
void setProperty(FuzzedDataProvider& in, const char* key) {
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: property_set(key, ""); break;
        case 1: property_set(key, std::to_string(static_cast<int32_t>(pick(in))).c_str()); break;
        default: property_set(key, in.ConsumeRandomLengthString(PROP_VALUE_MAX - 1).c_str());
    }
}

struct FreeDeleter {
    void operator()(char* p) const { free(p); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zorcam_fuzz::clearLog();  // the lines go to memory (fuzz/support), one input's at a time
    FuzzedDataProvider in(data, size);
    for (const char* key : {"debug.cam.drawid", "debug.cam.draw.en", "debug.cam.drawid.digit",
                            "debug.cam.drawid.x", "debug.cam.drawid.y", "debug.cam.drawid.size",
                            "debug.cam.drawid.bg", "debug.cam.drawid.fg"})
        setProperty(in, key);
    DebugDrawID id(pick(in), pick(in), pick(in), pick(in), in.ConsumeIntegral<char>(),
                   in.ConsumeIntegral<char>());

    const uint32_t bufSize = in.ConsumeIntegralInRange<uint32_t>(0, kMaxBuffer);
    std::unique_ptr<char, FreeDeleter> storage(static_cast<char*>(malloc(bufSize ? bufSize : 1)));
    char* const buffer = in.ConsumeIntegralInRange<int>(0, 15) == 0 ? nullptr : storage.get();

    const int calls = in.ConsumeIntegralInRange<int>(1, 4);
    for (int call = 0; call < calls && in.remaining_bytes() > 0; ++call) {
        const uint32_t width = pick(in), height = pick(in), stride = pick(in);
        switch (in.ConsumeIntegralInRange<int>(0, 3)) {
            case 0:
                id.draw(in.ConsumeIntegral<uint32_t>(), buffer, width, height, stride, bufSize);
                break;
            case 1:
                id.draw(in.ConsumeIntegral<uint32_t>(), pick(in), pick(in), pick(in), buffer,
                        width, height, stride, bufSize);
                break;
            case 2:
                DebugDrawID::draw(in.ConsumeIntegral<uint32_t>(), pick(in), pick(in), pick(in),
                                  buffer, width, height, stride, bufSize, pick(in),
                                  in.ConsumeIntegral<char>(), in.ConsumeIntegral<char>());
                break;
            default: {
                const uint32_t x = pick(in), y = pick(in), cell = pick(in);
                const char bg = in.ConsumeIntegral<char>(), fg = in.ConsumeIntegral<char>();
                id.draw(in.ConsumeRandomLengthString(256), x, y, buffer, width, height, stride,
                        bufSize, cell, bg, fg);
            }
        }
    }
    return 0;
}
