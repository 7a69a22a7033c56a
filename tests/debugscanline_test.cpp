#include <zorcam/utils/std/DebugScanLine.h>

#include "LogCapture.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

using namespace zorcam_test;

constexpr uint8_t kGuard = 0xA5;
const char* const kKeys[] = {"value", "height", "width", "widthShift", "speed", "fullscreen"};

// A plane of `size` usable bytes followed by guard bytes that must never change.
struct Plane {
    int stride, size;
    std::vector<uint8_t> bytes;
    Plane(int s, int n) : stride(s), size(n), bytes(n + 4096u, kGuard) {}
    // Index of the first byte that is not `value` inside rows [r0, r1) x columns [c0, c1), not
    // 0 elsewhere in the plane or not the guard past it; -1 when there is none.
    int wrongByte(int r0, int r1, int c0, int c1, int value) const {
        for (int i = 0; i < static_cast<int>(bytes.size()); ++i) {
            const int r = i / stride, c = i % stride;
            const bool in = r >= r0 && r < r1 && c >= c0 && c < c1;
            if (bytes[i] != (i >= size ? kGuard : in ? value : 0)) return i;
        }
        return -1;
    }
};

// Sets the settings of a text "key=value ...".
static void set(const std::string& settings) {
    std::istringstream in(settings);
    for (std::string kv; in >> kv;)
        property_set(("vendor.debug.cam.scanline." + kv.substr(0, kv.find('='))).c_str(),
                     kv.substr(kv.find('=') + 1).c_str());
}

using DebugScanLineTest = LogCaptureTest;

// Frame after frame, each into a cleared plane: the band (height/800 of the rows, moving
// speed/5 rows a frame and wrapping over the rows left free), a partial band of `width`
// bytes from `widthShift`, the fullscreen stripe or buffer, and settings that put the band
// above row 0, past the end or past 32 bits, clipped to the buffer. After `calls` frames the
// plane holds `value` in rows [r0, r1) x columns [c0, c1) and 0 elsewhere, and the last frame
// wrote `line` (%p: the buffer), when given: both lines of the overlay, settings read as atoi
// would, saturated to 32 bits.
TEST_F(DebugScanLineTest, Frames) {
    struct Frame { bool fresh; const char* settings; int stride, rows, size, calls, r0, r1, c0, c1,
                   value; const char* line = nullptr; };
    const Frame frames[] = {
            {true, "", 640, 480, 0, 1, 0, 60, 0, 640, 255,
             "[drawScanLine] para:(w,h,s,VA,size)=(637,480,640,%p,307200) "
             "prop:(v,h,w,s)=(255,100,0,100) line:(h,d)=(60,0)"},
            {false, "", 640, 480, 640 * 480 - 1, 1, 0, 0, 0, 0, 0,  // skipped, not counted
             "[drawScanLine] buffer size < stride*height, doesn't draw scan line"},
            {false, "", 640, 480, 0, 1, 20, 80, 0, 640, 255},
            {false, "", 640, 480, 0, 20, 0, 60, 0, 640, 255},  // 420 mod (480 - 60)
            {false, "width=64 height=1", 640, 480, 0, 1, 0, 0, 0, 0, 0},  // 1 * 480 < 800: none
            {false, "width=0 height=100", 640, 480, 0, 1, 40, 100, 0, 640, 255},  // yet counted
            // 24 * 2147483647 / 5 rows down, modulo 480 + 4; too thin to paint.
            {false, "value=abc height=-7 width=12 speed=99999999999", 640, 480, 0, 1, 0, 0, 0, 0, 0,
             "[drawScanLine] para:(w,h,s,VA,size)=(637,480,640,%p,307200) "
             "prop:(v,h,w,s)=(0,-7,12,2147483647) line:(h,d)=(-4,233)"},
            {true, "value=1000 speed=7", 64, 40, 0, 4, 4, 9, 0, 64, 232},  // 3 * 7/5 rows down
            {false, "width=10 widthShift=3", 64, 40, 0, 1, 5, 10, 3, 13, 232},
            {false, "fullscreen=1", 64, 40, 0, 1, 0, 40, 3, 13, 232},  // a stripe that stays
            {false, "width=0 value=9", 64, 40, 64 * 40 + 17, 1, 0, 41, 0, 64, 9},  // all bytes
            {true, "height=800", 16, 40, 0, 3, 0, 40, 0, 16, 255},  // no room to move
            {true, "height=2000000000", 16, 40, 0, 2, 0, 40, 0, 16, 255},
            {true, "height=-100", 16, 40, 0, 2, 0, 0, 0, 16, 255},
            {true, "height=400 speed=-100", 16, 80, 0, 2, 0, 20, 0, 16, 255},  // above row 0
            {true, "height=200 speed=2147483647", 16, 40, 0, 3, 8, 18, 0, 16, 255},
            {true, "width=32 widthShift=-16", 16, 80, 0, 1, 0, 10, 0, 16, 255},  // spills back
            {true, "width=24 widthShift=-4 fullscreen=1", 16, 3, 48, 1, 0, 3, 0, 16, 255},
            {true, "height=800 width=3 widthShift=10 fullscreen=1", 16, 0, 48, 1, 0, 0, 0, 0, 0}};
    DebugScanLine* line = nullptr;
    for (const Frame& f : frames) {
        SCOPED_TRACE(std::string(f.settings) + " in frame " + std::to_string(&f - frames));
        if (f.fresh) {
            for (const char* key : kKeys) set(std::string(key) + "=");
            if (line != nullptr) line->destroyInstance();
            line = DebugScanLine::createInstance();
        }
        set(f.settings);
        Plane p(f.stride, f.size ? f.size : f.stride * f.rows);
        for (int call = 0; call < f.calls; ++call) {
            std::fill_n(p.bytes.begin(), p.size, 0), clearLogs();
            line->drawScanLine(p.stride - 3, f.rows, p.bytes.data(), p.size, p.stride);
        }
        EXPECT_EQ(p.wrongByte(f.r0, f.r1, f.c0, f.c1, f.value), -1);
        char text[256];
        if (f.line && snprintf(text, sizeof(text), f.line, static_cast<void*>(p.bytes.data())))
            expectOnlyLine(3, NSCam::Utils::ULog::DETAILS_DEBUG, "ZorCam/DebugScanLine", text);
    }
    // No rows with a zero stride, where every row would share the same bytes: none painted.
    std::vector<uint8_t> bytes(16, 0);
    line->drawScanLine(16, 0, bytes.data(), 16, 0);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), 16);
    // With rows they all land on the first `width` bytes; a one-byte plane gets its byte.
    for (const char* key : kKeys) set(std::string(key) + "=");
    set("width=8");
    line->drawScanLine(16, 40, bytes.data(), 16, 0);
    set("width= height=800");
    line->drawScanLine(1, 1, bytes.data() + 15, 1, 1);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 255), 9);
    line->destroyInstance();
    for (const char* key : kKeys) set(std::string(key) + "=");
}
