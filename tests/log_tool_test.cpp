#include <zorcam/utils/std/LogTool.h>

#include "LogCapture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

using NSCam::Utils::LogTool;
using NSCam::Utils::TimeTool;
using namespace zorcam_test;

// CLOCK_REALTIME of this program (library and std::chrono alike): real, sFixed, or failing.
static enum class WallClock { kReal, kFixed, kFailing } sWallClock = WallClock::kReal;
static timespec sFixed{};

static void setTimeZone(const char* tz) { setenv("TZ", tz, 1), tzset(); }

using LogToolTest = LogCaptureTest;

// Log time is local time to the millisecond, truncated; an invalid tv_nsec is cut to the
// working buffer, never written past it. The wall clock read as a readable number (UTC) and as
// log time, and each failure with its error line.
TEST_F(LogToolTest, FormatsAndReadsTheWallClock) {
    LogTool& tool = *LogTool::get();
    const struct { const char* tz; timespec ts; const char* text; } cases[] = {
            {"UTC", {0, 5000000}, "01-01 00:00:00.005"},
            {"UTC", {86399, 999999999}, "01-01 23:59:59.999"},
            {"UTC", {0, -2000000000L}, "01-01 00:00:00.1844674407370954"},
            {"ZZZ-2", {0, 0}, "01-01 02:00:00.000"}};
    for (const auto& c : cases) {
        setTimeZone(c.tz);
        EXPECT_EQ(tool.convertToFormattedLogTime(&c.ts), c.text) << c.ts.tv_sec;
    }
    setTimeZone("ZZZ-5");
    constexpr time_t kSomeDay = 20000 * 86400;  // 2024-10-04, midnight UTC
    sFixed = {kSomeDay + 3723, 7999999};
    sWallClock = WallClock::kFixed;
    EXPECT_EQ(TimeTool::getReadableTime(), 10203007u);
    timespec ts{};
    EXPECT_TRUE(tool.getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec * 1000000000 + ts.tv_nsec, (kSomeDay + 3723) * 1000000000 + 7999999);
    EXPECT_EQ(tool.getFormattedLogTime(), "10-04 06:02:03.007");
    EXPECT_EQ(tool.convertToFormattedLogTime(nullptr), "");
    expectError("[convertToFormattedLogTime] timespec is nullptr");
    EXPECT_FALSE(tool.getCurrentLogTime(nullptr));
    expectError("[getCurrentLogTime] timespec is nullptr");
    sWallClock = WallClock::kFailing, ts = {123, 456};
    EXPECT_FALSE(tool.getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec + ts.tv_nsec, 0);
    expectError("[getCurrentLogTime] clock_gettime: failure");
    EXPECT_EQ(tool.getFormattedLogTime(), "");  // not the text of time zero
    expectError("[getCurrentLogTime] clock_gettime: failure");
    sWallClock = WallClock::kReal;
}

extern "C" int clock_gettime(clockid_t clock, timespec* ts) noexcept {
    if (clock != CLOCK_REALTIME || sWallClock == WallClock::kReal)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
    if (sWallClock == WallClock::kFixed) return *ts = sFixed, 0;
    return errno = EINVAL, -1;
}
