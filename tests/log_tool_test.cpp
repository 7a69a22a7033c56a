#include <zorcam/utils/std/LogTool.h>

#include "LogCapture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

using NSCam::Utils::LogTool;
using NSCam::Utils::TimeTool;
using namespace zorcam_test;

namespace {

// CLOCK_REALTIME of this program (library and std::chrono alike): real, fixed or failing.
enum class WallClock { kReal, kFixed, kFailing } sWallClock = WallClock::kReal;
timespec sFixed{};

constexpr time_t kSomeDay = 20000 * 86400;  // 2024-10-04, midnight UTC

void fixWallClock(time_t sec, long nsec) {
    sFixed = {sec, nsec};
    sWallClock = WallClock::kFixed;
}

void setTimeZone(const char* tz) {
    setenv("TZ", tz, 1);
    tzset();
}

class LogToolTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        setTimeZone("UTC");
    }
    void TearDown() override {
        sWallClock = WallClock::kReal;
        LogCaptureTest::TearDown();
    }
};

TEST_F(LogToolTest, FormatsLocalTimeWithTruncatedMilliseconds) {
    auto format = [](time_t sec, long nsec) {
        const timespec ts{sec, nsec};
        return LogTool::get()->convertToFormattedLogTime(&ts);
    };
    EXPECT_EQ(format(0, 5000000), "01-01 00:00:00.005");
    EXPECT_EQ(format(86399, 999999999), "01-01 23:59:59.999");
    // An invalid tv_nsec is cut to the working buffer, never written past it.
    EXPECT_EQ(format(0, -2000000000L), "01-01 00:00:00.1844674407370954");
    setTimeZone("ZZZ-2");
    EXPECT_EQ(format(0, 0), "01-01 02:00:00.000");
    expectNoLines();
}

TEST_F(LogToolTest, WallClockReadsAndTheirFailures) {
    setTimeZone("ZZZ-5");  // the readable time is UTC; the formatted one is local
    fixWallClock(kSomeDay + 3723, 7999999);
    EXPECT_EQ(TimeTool::getReadableTime(), 10203007u);
    timespec ts{};
    EXPECT_TRUE(LogTool::get()->getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec * 1000000000 + ts.tv_nsec, (kSomeDay + 3723) * 1000000000 + 7999999);
    EXPECT_EQ(LogTool::get()->getFormattedLogTime(), "10-04 06:02:03.007");
    expectNoLines();

    EXPECT_EQ(LogTool::get()->convertToFormattedLogTime(nullptr), "");
    expectError("[convertToFormattedLogTime] timespec is nullptr");
    EXPECT_FALSE(LogTool::get()->getCurrentLogTime(nullptr));
    expectError("[getCurrentLogTime] timespec is nullptr");

    sWallClock = WallClock::kFailing;
    ts = {123, 456};
    EXPECT_FALSE(LogTool::get()->getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec + ts.tv_nsec, 0);
    expectError("[getCurrentLogTime] clock_gettime: failure");
    EXPECT_EQ(LogTool::get()->getFormattedLogTime(), "");  // not the text of time zero
    expectError("[getCurrentLogTime] clock_gettime: failure");
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* ts) noexcept {
    if (clock == CLOCK_REALTIME && sWallClock != WallClock::kReal) {
        if (sWallClock == WallClock::kFixed) return *ts = sFixed, 0;
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
}
