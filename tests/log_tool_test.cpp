#include <zorcam/utils/std/LogTool.h>

#include "LogCapture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

using NSCam::Utils::LogTool;
using NSCam::Utils::TimeTool;
using namespace zorcam_test;
namespace ULog = NSCam::Utils::ULog;

namespace {

// What CLOCK_REALTIME answers in this program: the real clock, a fixed time, or a failure.
enum class WallClock { kReal, kFixed, kFailing };
std::atomic<WallClock> sWallClock{WallClock::kReal};
timespec sFixed{};

timespec realNow() {
    timespec ts{};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &ts);
    return ts;
}

unsigned int packed(const timespec& ts) {
    const int64_t ms = static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    return static_cast<unsigned int>((ms % 86400000) / 3600000 * 10000000 +
                                     (ms % 3600000) / 60000 * 100000 + ms % 60000);
}

constexpr time_t kDay = 86400;
constexpr time_t kSomeDay = 20000 * kDay;  // 2024-10-04, a midnight UTC

class LogToolTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        const char* tz = getenv("TZ");
        mHadTz = tz != nullptr;
        if (mHadTz) mSavedTz = tz;
        setTimeZone("UTC");
    }

    void TearDown() override {
        sWallClock = WallClock::kReal;
        if (mHadTz) {
            setenv("TZ", mSavedTz.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
        LogCaptureTest::TearDown();
    }

    static void setTimeZone(const char* tz) {
        setenv("TZ", tz, 1);
        tzset();
    }

    static void fixWallClock(time_t sec, long nsec) {
        sFixed = {sec, nsec};
        sWallClock = WallClock::kFixed;
    }

    static std::string format(time_t sec, long nsec) {
        const timespec ts{sec, nsec};
        return LogTool::get()->convertToFormattedLogTime(&ts);
    }

    void expectError(const std::string& text) {
        expectOnlyLine(6, ULog::DETAILS_ERROR, "ZorCam/Utils", text);
        clearLogs();
    }

    bool mHadTz = false;
    std::string mSavedTz;
};

TEST_F(LogToolTest, ReadableTimeIsTheUtcTimeOfDay) {
    struct Case {
        time_t sec;
        long nsec;
        unsigned int expected;
    };
    const Case cases[] = {
            {kSomeDay + 13 * 3600 + 45 * 60 + 7, 123999999, 134507123},
            {kSomeDay, 0, 0},
            {kSomeDay + 9 * 3600 + 5 * 60 + 3, 7000000, 90503007},
            {kSomeDay + kDay - 1, 999999999, 235959999},
    };
    setTimeZone("ZZZ-5");  // no effect: the hour is the UTC hour
    for (const Case& c : cases) {
        fixWallClock(c.sec, c.nsec);
        EXPECT_EQ(TimeTool::getReadableTime(), c.expected) << c.expected;
    }
}

TEST_F(LogToolTest, ReadableTimeFollowsTheRealClock) {
    const timespec before = realNow();
    const unsigned int t = TimeTool::getReadableTime();
    const timespec after = realNow();
    if (packed(after) < packed(before)) GTEST_SKIP() << "crossed midnight";
    EXPECT_GE(t, packed(before));
    EXPECT_LE(t, packed(after));
}

TEST_F(LogToolTest, FormatsLocalTimeWithTruncatedMilliseconds) {
    EXPECT_EQ(format(0, 5000000), "01-01 00:00:00.005");
    EXPECT_EQ(format(86399, 999999999), "01-01 23:59:59.999");
    EXPECT_EQ(format(0, 999999), "01-01 00:00:00.000");
    EXPECT_EQ(format(kSomeDay + 13 * 3600 + 45 * 60 + 7, 123456789), "10-04 13:45:07.123");
    for (time_t sec : {time_t{0}, kSomeDay + 12345, time_t{4102444799}}) {
        for (long nsec : {0L, 1L, 999999L, 1000000L, 999999999L})
            EXPECT_EQ(format(sec, nsec).size(), 18u) << sec << " " << nsec;
    }
    setTimeZone("ZZZ-2");
    EXPECT_EQ(format(0, 0), "01-01 02:00:00.000");
    expectNoLines();
}

TEST_F(LogToolTest, OddNanosecondsStayInsideTheText) {
    // Not a valid timespec; the milliseconds field is cut, never written past the text.
    const std::string text = format(0, -2000000000L);
    EXPECT_EQ(text.compare(0, 15, "01-01 00:00:00."), 0) << text;
    EXPECT_EQ(text.size(), 14u + 17u);
}

TEST_F(LogToolTest, NullTimespecIsReported) {
    EXPECT_EQ(LogTool::get()->convertToFormattedLogTime(nullptr), "");
    expectError("[convertToFormattedLogTime] timespec is nullptr");
    EXPECT_FALSE(LogTool::get()->getCurrentLogTime(nullptr));
    expectError("[getCurrentLogTime] timespec is nullptr");
}

TEST_F(LogToolTest, CurrentTimeComesFromTheWallClock) {
    EXPECT_NE(LogTool::get(), nullptr);
    EXPECT_EQ(LogTool::get(), LogTool::get());
    fixWallClock(kSomeDay + 3723, 4999999);
    timespec ts{};
    EXPECT_TRUE(LogTool::get()->getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec, kSomeDay + 3723);
    EXPECT_EQ(ts.tv_nsec, 4999999);
    EXPECT_EQ(LogTool::get()->getFormattedLogTime(), "10-04 01:02:03.004");
    expectNoLines();
}

TEST_F(LogToolTest, ClockFailureZeroesTheTimespec) {
    sWallClock = WallClock::kFailing;
    timespec ts{123, 456};
    EXPECT_FALSE(LogTool::get()->getCurrentLogTime(&ts));
    EXPECT_EQ(ts.tv_sec, 0);
    EXPECT_EQ(ts.tv_nsec, 0);
    expectError("[getCurrentLogTime] clock_gettime: failure");
    // Not the formatting of time zero.
    EXPECT_EQ(LogTool::get()->getFormattedLogTime(), "");
    expectError("[getCurrentLogTime] clock_gettime: failure");
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* ts) noexcept {
    if (clock == CLOCK_REALTIME) {
        switch (sWallClock.load()) {
            case WallClock::kFixed:
                *ts = sFixed;
                return 0;
            case WallClock::kFailing:
                errno = EINVAL;
                return -1;
            case WallClock::kReal:
                break;
        }
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
}
