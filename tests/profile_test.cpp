#include <zorcam/utils/std/Profile.h>

#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <string>

using NSCam::Utils::CameraProfile;
using NSCam::Utils::CamProfile;
using namespace zorcam_test;
namespace ULog = NSCam::Utils::ULog;

namespace {

constexpr int64_t kUs = 1000;
constexpr int64_t kMs = 1000000;
constexpr const char* kTag = "ZorCam/Utils";

class CamProfileTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::reset(5000 * kMs);
    }

    void expectDebug(const std::string& text) {
        expectOnlyLine(3, ULog::DETAILS_DEBUG, kTag, text);
        clearLogs();
    }
};

TEST_F(CamProfileTest, NumbersCheckpointsAndTruncatesToMilliseconds) {
    CamProfile profile("configure", "Pipeline");
    vclock::advance(1999 * kUs);
    EXPECT_TRUE(profile.print("open %d", 1));
    expectDebug("{CamProfile}[Pipeline::configure] open 1: (0-th) ===> [start-->now: 1 ms]");
    vclock::advance(2500 * kUs);
    EXPECT_TRUE(profile.print("map"));
    expectDebug(
            "{CamProfile}[Pipeline::configure] map: (1-th) ===> [start-->now: 4 ms] "
            "[last-->now: 2 ms]");
    // Either sink alone still numbers the line.
    for (uint32_t mode : {0x1u, 0x2u}) {
        setULog(mode, 6, 0x40007000);
        EXPECT_TRUE(profile.print("x"));
    }
    const auto a = androidLines();
    const auto u = ulogLines();
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(u.size(), 1u);
    EXPECT_NE(a[0].text.find("(2-th)"), std::string::npos) << a[0].text;
    EXPECT_NE(u[0].text.find("(3-th)"), std::string::npos) << u[0].text;
}

TEST_F(CamProfileTest, LinesKeptBackAreNotNumberedButMoveTheStep) {
    CamProfile profile("f", "C");
    setULog(0x3, 3, 0x40007000);  // debug kept back
    vclock::advance(10 * kMs);
    EXPECT_TRUE(profile.print("hidden"));
    expectNoLines();
    setULog(0x3, 6, 0x40007000);
    vclock::advance(5 * kMs);
    EXPECT_TRUE(profile.print("first"));
    expectDebug("{CamProfile}[C::f] first: (0-th) ===> [start-->now: 15 ms]");
    setULog(0x0, 6, 0x40007000);
    vclock::advance(7 * kMs);
    EXPECT_TRUE(profile.print("hidden"));
    setULog(0x3, 6, 0x40007000);
    vclock::advance(3 * kMs);
    EXPECT_TRUE(profile.print("second"));
    expectDebug("{CamProfile}[C::f] second: (1-th) ===> [start-->now: 25 ms] [last-->now: 3 ms]");
}

TEST_F(CamProfileTest, OvertimeLogsOnlySlowStepsButNumbersEvery) {
    CamProfile profile("f", "C");
    vclock::advance(15 * kMs);
    EXPECT_TRUE(profile.print_overtime(10, "slow %s", "start"));
    expectOnlyLine(4, ULog::DETAILS_INFO, kTag,
                   "{CamProfile}[C::f] slow start: (0-th) ===> (overtime > 10 ms) "
                   "[start-->now: 15 ms]");
    clearLogs();
    vclock::advance(5 * kMs);
    EXPECT_FALSE(profile.print_overtime(10, "fast"));
    expectNoLines();
    vclock::advance(1999 * kUs);
    EXPECT_FALSE(profile.print_overtime(1, "fast"));
    vclock::advance(15 * kMs);
    EXPECT_TRUE(profile.print_overtime(10, "slow"));
    expectOnlyLine(4, ULog::DETAILS_INFO, kTag,
                   "{CamProfile}[C::f] slow: (3-th) ===> ( overtime > 10 ms) "
                   "[start-->now: 36 ms] [last-->now: 15 ms]");
    clearLogs();
    vclock::advance(2 * kMs);
    profile.print("next");
    expectDebug(
            "{CamProfile}[C::f] next: (4-th) ===> [start-->now: 38 ms] [last-->now: 2 ms]");
}

TEST_F(CamProfileTest, MicrosecondsWrapIn32Bits) {
    // The microsecond reading wraps 2^32 three milliseconds after construction.
    vclock::reset((int64_t{1} << 32) * kUs - 1000 * kUs);
    CamProfile profile("f", "C");
    vclock::advance(3 * kMs);
    profile.print("a");
    expectDebug("{CamProfile}[C::f] a: (0-th) ===> [start-->now: 3 ms]");
    // Past 2^31 us a step no longer fits the signed 32-bit difference.
    vclock::advance(((int64_t{1} << 31) + 1000) * kUs);
    profile.print("b");
    expectDebug(
            "{CamProfile}[C::f] b: (1-th) ===> [start-->now: -2147479 ms] "
            "[last-->now: -2147482 ms]");
}

class CameraProfileTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::reset(7000 * kMs);
    }
};

TEST_F(CameraProfileTest, FirstLineHasNoLastPartUntilTheStepMoves) {
    CameraProfile profile("Cam/Test", "pre: ");
    vclock::advance(1234567);
    profile.print('D', "x%d", 1);
    auto a = androidLines();
    auto u = ulogLines();
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(u.size(), 1u);
    EXPECT_EQ(a[0].prio, 3);
    EXPECT_EQ(a[0].tag, "Cam/Test");
    EXPECT_EQ(a[0].text, "pre: @0 x1 [start-->now: 1234 us]");
    EXPECT_EQ(u[0].text, "@0 x1 [start-->now: 1234 us]");
    EXPECT_EQ(u[0].moduleId, 0x40007001u);
    EXPECT_EQ(u[0].type, ULog::DETAILS_DEBUG);
    clearLogs();

    vclock::advance(1000 * kUs);
    profile.stopWatch();
    vclock::advance(2999);
    profile.print('I', "y");
    u = ulogLines();
    ASSERT_EQ(u.size(), 1u);
    EXPECT_EQ(u[0].text, "@1 y [start-->now: 2237 us][last-->now: 2 us]");
}

TEST_F(CameraProfileTest, LevelLetterChoosesThePrinter) {
    struct Case {
        char letter;
        int prio;
        ULog::DetailsType type;
    };
    const Case cases[] = {
            {'E', 6, ULog::DETAILS_ERROR},   {'W', 5, ULog::DETAILS_WARNING},
            {'I', 4, ULog::DETAILS_INFO},    {'D', 3, ULog::DETAILS_DEBUG},
            {'V', 2, ULog::DETAILS_VERBOSE}, {'X', 3, ULog::DETAILS_DEBUG},
            {'\xC6', 3, ULog::DETAILS_DEBUG},
    };
    CameraProfile profile("Cam/Test", nullptr);
    for (const Case& c : cases) {
        clearLogs();
        profile.print(c.letter, "n");
        const auto a = androidLines();
        const auto u = ulogLines();
        ASSERT_EQ(a.size(), 1u) << c.letter;
        ASSERT_EQ(u.size(), 1u) << c.letter;
        EXPECT_EQ(a[0].prio, c.prio) << c.letter;
        EXPECT_EQ(u[0].type, c.type) << c.letter;
    }
    // The unified logger's switches gate every letter but 'F'.
    setULog(0x0, 0, 0);
    clearLogs();
    profile.print('E', "gone");
    profile.print('F', "fatal %s", "x");
    const auto a = androidLines();
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0].prio, 7);
    EXPECT_EQ(a[0].tag, "Cam/Test");
    EXPECT_EQ(a[0].text, "@8 fatal x [start-->now: 0 us]");
    EXPECT_TRUE(ulogLines().empty());
}

TEST_F(CameraProfileTest, OvertimePrintsOnlySlowStepsButNumbersEvery) {
    CameraProfile profile("Cam/Test", "");
    vclock::advance(500 * kUs);
    profile.print_overtime('W', 1000000, "fast");
    expectNoLines();
    vclock::advance(1000001);
    profile.print_overtime('W', 1000000, "slow");
    expectOnlyLine(5, ULog::DETAILS_WARNING, "Cam/Test",
                   "@1 slow (overtime > 1000000 ns) [start-->now: 1500 us][last-->now: 1000 us]");
    clearLogs();
    vclock::advance(1000000);
    profile.print_overtime('W', 1000000, "at threshold");
    vclock::advance(1);
    profile.print('W', "z");
    expectOnlyLine(5, ULog::DETAILS_WARNING, "Cam/Test",
                   "@3 z [start-->now: 2500 us][last-->now: 0 us]");
}

}  // namespace
