#include <zorcam/utils/std/DebugScanLine.h>

#include "LogCapture.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

using namespace zorcam_test;
using NSCam::Utils::ULog::DETAILS_DEBUG;

namespace {

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kGuardBytes = 4096;

// A plane of `size` usable bytes followed by guard bytes that must never change.
struct Plane {
    int stride;
    int size;
    std::vector<uint8_t> bytes;
    Plane(int s, int n) : stride(s), size(n), bytes(static_cast<size_t>(n) + kGuardBytes, 0) {
        std::fill(bytes.begin() + n, bytes.end(), kGuard);
    }
    void clear() { std::fill(bytes.begin(), bytes.begin() + size, 0); }
    bool guardIntact() const {
        for (size_t i = size; i < bytes.size(); ++i)
            if (bytes[i] != kGuard) return false;
        return true;
    }
    // Runs of rows wholly `value`, as "a-b,c-d"; every other row must be wholly 0.
    std::string rowsOf(uint8_t value, int rows) const {
        std::string out;
        int runStart = -1;
        for (int r = 0; r <= rows; ++r) {
            bool set = false;
            if (r < rows) {
                const uint8_t* row = bytes.data() + static_cast<size_t>(r) * stride;
                set = row[0] == value;
                for (int i = 0; i < stride; ++i)
                    if (row[i] != (set ? value : 0)) return "mixed row " + std::to_string(r);
            }
            if (set && runStart < 0) runStart = r;
            if (!set && runStart >= 0) {
                out += (out.empty() ? "" : ",") + std::to_string(runStart) + "-" +
                       std::to_string(r - 1);
                runStart = -1;
            }
        }
        return out;
    }
};

}  // namespace

class DebugScanLineTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        mLine = DebugScanLine::createInstance();
    }
    void TearDown() override {
        mLine->destroyInstance();
        for (const char* key : {"value", "height", "width", "widthShift", "speed", "fullscreen"})
            property_set((std::string("vendor.debug.cam.scanline.") + key).c_str(), "");
        LogCaptureTest::TearDown();
    }
    static void set(const char* key, const char* value) {
        property_set((std::string("vendor.debug.cam.scanline.") + key).c_str(), value);
    }
    // Clears the plane and draws one frame of `rows` rows into it.
    void frame(Plane& p, int rows) {
        p.clear();
        mLine->drawScanLine(p.stride - 3, rows, p.bytes.data(), p.size, p.stride);
        EXPECT_TRUE(p.guardIntact());
    }

    DebugScanLine* mLine = nullptr;
};

TEST_F(DebugScanLineTest, DefaultBandMovesTwentyRowsPerFrameAndWraps) {
    Plane p(640, 640 * 480);
    frame(p, 480);
    char text[256];
    snprintf(text, sizeof(text),
             "[drawScanLine] para:(w,h,s,VA,size)=(637,480,640,%p,307200) "
             "prop:(v,h,w,s)=(255,100,0,100) line:(h,d)=(60,0)",
             static_cast<void*>(p.bytes.data()));
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/DebugScanLine", text);
    EXPECT_EQ(p.rowsOf(255, 480), "0-59");
    frame(p, 480);
    EXPECT_EQ(p.rowsOf(255, 480), "20-79");
    frame(p, 480);
    EXPECT_EQ(p.rowsOf(255, 480), "40-99");
    for (int call = 3; call < 21; ++call) frame(p, 480);
    EXPECT_EQ(p.rowsOf(255, 480), "400-459");  // call 20
    frame(p, 480);  // call 21: 420 mod 420
    EXPECT_EQ(p.rowsOf(255, 480), "0-59");
}

TEST_F(DebugScanLineTest, ShortBufferIsLeftAloneAndDoesNotAdvanceTheBand) {
    Plane good(100, 100 * 80);
    frame(good, 80);
    EXPECT_EQ(good.rowsOf(255, 80), "0-9");
    Plane shortOne(100, 100 * 80 - 1);
    clearLogs();
    frame(shortOne, 80);
    expectOnlyLine(3, DETAILS_DEBUG, "ZorCam/DebugScanLine",
                   "[drawScanLine] buffer size < stride*height, doesn't draw scan line");
    EXPECT_EQ(shortOne.rowsOf(255, 79), "");
    frame(good, 80);
    EXPECT_EQ(good.rowsOf(255, 80), "20-29");
}

TEST_F(DebugScanLineTest, SettingsChooseValueBandStripeAndFullBuffer) {
    set("value", "1000");  // low byte 232
    set("speed", "7");     // 7/5 of a row per frame, truncated
    Plane p(64, 64 * 40);
    std::vector<std::string> tops;
    for (int call = 0; call < 4; ++call) {
        frame(p, 40);
        tops.push_back(p.rowsOf(232, 40));
    }
    EXPECT_EQ(tops, (std::vector<std::string>{"0-4", "1-5", "2-6", "4-8"}));

    // A partial-width band: PW bytes from SH in each band row (call 4: row 5).
    set("width", "10");
    set("widthShift", "3");
    frame(p, 40);
    for (int i = 0; i < p.size; ++i) {
        const int row = i / 64, col = i % 64;
        const bool in = row >= 5 && row < 10 && col >= 3 && col < 13;
        ASSERT_EQ(p.bytes[i], in ? 232 : 0) << i;
    }

    // Fullscreen with a width: the same stripe in every row on every call.
    set("fullscreen", "1");
    for (int call = 0; call < 2; ++call) {
        frame(p, 40);
        for (int i = 0; i < p.size; ++i)
            ASSERT_EQ(p.bytes[i], i % 64 >= 3 && i % 64 < 13 ? 232 : 0);
    }

    // Fullscreen without a width: every byte of the buffer, past stride * height as well.
    set("width", "0");
    set("value", "abc");  // not a number: 0
    Plane big(64, 64 * 40 + 17);
    std::fill(big.bytes.begin(), big.bytes.begin() + big.size, 9);
    mLine->drawScanLine(50, 40, big.bytes.data(), big.size, 64);
    for (int i = 0; i < big.size; ++i) ASSERT_EQ(big.bytes[i], 0) << i;
    EXPECT_TRUE(big.guardIntact());
}

TEST_F(DebugScanLineTest, ZeroThicknessPartialBandPaintsNothingButCounts) {
    set("width", "64");
    set("height", "5");  // 5 * 100 < 800
    Plane p(128, 128 * 100);
    frame(p, 100);
    EXPECT_EQ(p.rowsOf(255, 100), "");
    set("width", "0");
    set("height", "100");
    frame(p, 100);
    EXPECT_EQ(p.rowsOf(255, 100), "20-31");
}

TEST_F(DebugScanLineTest, ExtremeSettingsStayInsideTheBuffer) {
    struct Case { const char* height; const char* speed; const char* width; const char* shift;
                  int rows; int calls; const char* painted; };
    const Case cases[] = {
            {"800", "100", "0", "0", 40, 3, "0-39"},             // no room to move
            {"2000000000", "100", "0", "0", 40, 2, "0-39"},      // far taller than the plane
            {"-100", "100", "0", "0", 40, 2, ""},                // negative thickness
            {"400", "-100", "0", "0", 80, 2, "0-19"},            // band starts above row 0
            {"200", "2147483647", "0", "0", 40, 3, "8-17"},      // count * speed past 32 bits
            {"100", "100", "32", "-16", 80, 1, "0-9"},           // rows spill backwards
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.height) + " " + c.speed + " " + c.width + " " + c.shift);
        DebugScanLine* line = DebugScanLine::createInstance();
        set("height", c.height);
        set("speed", c.speed);
        set("width", c.width);
        set("widthShift", c.shift);
        Plane p(16, 16 * c.rows);
        for (int call = 0; call < c.calls; ++call) {
            p.clear();
            line->drawScanLine(16, c.rows, p.bytes.data(), p.size, 16);
        }
        EXPECT_TRUE(p.guardIntact());
        EXPECT_EQ(p.rowsOf(255, c.rows), c.painted);
        line->destroyInstance();
    }
}

TEST_F(DebugScanLineTest, PartialBandPastTheRowRunsOnAndIsClippedAtTheEnd) {
    set("width", "20");
    set("widthShift", "-4");
    set("fullscreen", "1");
    Plane p(16, 16 * 3);
    frame(p, 3);
    // Rows start at -4, 12, 28: bytes 0-15, 12-31 and 28-47 cover the plane once clipped.
    for (int i = 0; i < p.size; ++i) ASSERT_EQ(p.bytes[i], 255) << i;
    set("widthShift", "10");
    set("width", "3");
    frame(p, 0);  // no rows: nothing
    for (int i = 0; i < p.size; ++i) ASSERT_EQ(p.bytes[i], 0) << i;
    mLine->drawScanLine(1, -5, nullptr, 0, -16);
    mLine->drawScanLine(1, 3, p.bytes.data(), p.size, -16);
    EXPECT_TRUE(p.guardIntact());
}
