#include <zorcam/utils/std/DebugScanLine.h>

#include "LogCapture.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

using namespace zorcam_test;
using NSCam::Utils::ULog::DETAILS_DEBUG;

namespace {

constexpr uint8_t kGuard = 0xA5;

// A plane of `size` usable bytes followed by guard bytes that must never change.
struct Plane {
    int stride, size;
    std::vector<uint8_t> bytes;
    Plane(int s, int n) : stride(s), size(n), bytes(n + 4096u, kGuard) { clear(); }
    void clear() { std::fill_n(bytes.begin(), size, 0); }
    // Index of the first byte that is not `value` inside rows [r0, r1) x columns [c0, c1), not
    // 0 elsewhere in the plane or not the guard past it; -1 when there is none.
    int wrongByte(int r0, int r1, int c0, int c1, uint8_t value = 255) const {
        for (int i = 0; i < static_cast<int>(bytes.size()); ++i) {
            const int r = i / stride, c = i % stride;
            const bool in = r >= r0 && r < r1 && c >= c0 && c < c1;
            if (bytes[i] != (i >= size ? kGuard : in ? value : 0)) return i;
        }
        return -1;
    }
};

void set(const char* key, const char* value) {
    property_set((std::string("vendor.debug.cam.scanline.") + key).c_str(), value);
}

}  // namespace

class DebugScanLineTest : public LogCaptureTest {
protected:
    void TearDown() override {
        mLine->destroyInstance();
        for (const char* key : {"value", "height", "width", "widthShift", "speed", "fullscreen"})
            set(key, "");
        LogCaptureTest::TearDown();
    }
    // Clears the plane and draws one frame of `rows` rows into it.
    void frame(Plane& p, int rows) {
        p.clear();
        mLine->drawScanLine(p.stride - 3, rows, p.bytes.data(), p.size, p.stride);
    }

    DebugScanLine* mLine = DebugScanLine::createInstance();
};

TEST_F(DebugScanLineTest, DefaultBandMovesTwentyRowsPerDrawnFrameAndWraps) {
    Plane p(640, 640 * 480);
    frame(p, 480);
    char text[256];
    snprintf(text, sizeof(text),
             "[drawScanLine] para:(w,h,s,VA,size)=(637,480,640,%p,307200) "
             "prop:(v,h,w,s)=(255,100,0,100) line:(h,d)=(60,0)",
             static_cast<void*>(p.bytes.data()));
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/DebugScanLine", text);
    EXPECT_EQ(p.wrongByte(0, 60, 0, 640), -1);
    // A buffer one byte short of stride * height is left alone and does not move the band.
    Plane shortOne(640, 640 * 480 - 1);
    frame(shortOne, 480);
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/DebugScanLine",
                   "[drawScanLine] buffer size < stride*height, doesn't draw scan line");
    EXPECT_EQ(shortOne.wrongByte(0, 0, 0, 0), -1);
    // 20 rows further down on each call; call 21 is back at the top (420 mod (480 - 60) = 0).
    for (int call = 1; call <= 21; ++call) {
        frame(p, 480);
        const int top = call % 21 * 20;
        EXPECT_EQ(p.wrongByte(top, top + 60, 0, 640), -1) << "call " << call;
    }
    // A partial-width band under one row thick (1 * 480 < 800) paints nothing, yet counts.
    set("width", "64");
    set("height", "1");
    frame(p, 480);
    EXPECT_EQ(p.wrongByte(0, 0, 0, 0), -1);
    set("width", "0");
    set("height", "100");
    frame(p, 480);
    EXPECT_EQ(p.wrongByte(40, 100, 0, 640), -1);  // call 23: 460 mod 420
}

TEST_F(DebugScanLineTest, SettingsChooseValueBandStripeAndFullBuffer) {
    set("value", "1000");  // low byte 232
    set("speed", "7");     // 7/5 of a row per frame, truncated
    Plane p(64, 64 * 40);
    for (int top : {0, 1, 2, 4}) {
        frame(p, 40);
        EXPECT_EQ(p.wrongByte(top, top + 5, 0, 64, 232), -1) << top;
    }
    // A partial-width band: PW bytes from SH in each band row (call 4: row 5).
    set("width", "10");
    set("widthShift", "3");
    frame(p, 40);
    EXPECT_EQ(p.wrongByte(5, 10, 3, 13, 232), -1);
    // Fullscreen with a width: a stripe down every row that does not move with the count.
    set("fullscreen", "1");
    frame(p, 40);
    EXPECT_EQ(p.wrongByte(0, 40, 3, 13, 232), -1);

    // Fullscreen without a width: every byte of the buffer, past stride * height as well.
    set("width", "0");
    set("value", "abc");  // not a number: 0
    Plane big(64, 64 * 40 + 17);
    std::fill_n(big.bytes.begin(), big.size, 9);
    mLine->drawScanLine(50, 40, big.bytes.data(), big.size, 64);
    EXPECT_EQ(big.wrongByte(0, 0, 0, 0), -1);
}

TEST_F(DebugScanLineTest, ExtremeSettingsStayInsideTheBuffer) {
    // Settings in the order of `keys`; the frame after `calls` calls paints whole rows
    // [first, last) of a plane 16 bytes wide.
    const char* const keys[] = {"height", "speed", "width", "widthShift", "fullscreen"};
    struct Case { const char* why; const char* settings[5]; int rows, calls, first, last; };
    const Case cases[] = {
            {"no room to move", {"800", "100", "0", "0", "0"}, 40, 3, 0, 40},
            {"far taller than the plane", {"2000000000", "100", "0", "0", "0"}, 40, 2, 0, 40},
            {"negative thickness", {"-100", "100", "0", "0", "0"}, 40, 2, 0, 0},
            {"band starts above row 0", {"400", "-100", "0", "0", "0"}, 80, 2, 0, 20},
            {"count * speed past 32 bits", {"200", "2147483647", "0", "0", "0"}, 40, 3, 8, 18},
            {"rows spill backwards", {"100", "100", "32", "-16", "0"}, 80, 1, 0, 10},
            {"stripe past both ends", {"100", "100", "24", "-4", "1"}, 3, 1, 0, 3},
            {"no rows", {"800", "100", "3", "10", "1"}, 0, 1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        for (int i = 0; i < 5; ++i) set(keys[i], c.settings[i]);
        mLine->destroyInstance();
        mLine = DebugScanLine::createInstance();
        Plane p(16, 16 * std::max(c.rows, 3));
        for (int call = 0; call < c.calls; ++call) frame(p, c.rows);
        EXPECT_EQ(p.wrongByte(c.first, c.last, 0, 16), -1);
    }
    // No rows with a zero stride, where every row would share the same bytes: none painted.
    std::vector<uint8_t> bytes(16, 0);
    mLine->drawScanLine(16, 0, bytes.data(), 16, 0);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), 16);
}
