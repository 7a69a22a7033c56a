#include <zorcam/utils/std/Profile.h>

#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

using NSCam::Utils::CameraProfile;
using NSCam::Utils::CamProfile;
using namespace zorcam_test;
namespace ULog = NSCam::Utils::ULog;

namespace {

constexpr int64_t kUs = 1000;
constexpr int64_t kMs = 1000000;

class ProfileTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::set((int64_t{1} << 32) * kUs - kMs);  // CamProfile's 32-bit µs clock wraps soon
    }
    // The text of the one unified line written since the last call.
    std::string ulogLine() {
        const auto u = ulogLines();
        clearLogs();
        EXPECT_EQ(u.size(), 1u);
        return u.empty() ? "" : u[0].text;
    }
};

TEST_F(ProfileTest, CamProfileNumbersOnlyTheLinesWritten) {
    CamProfile profile("configure", "Pipeline");
    vclock::advance(1999 * kUs);
    EXPECT_TRUE(profile.print("open %d", 1));
    expectOnlyLine(3, ULog::DETAILS_DEBUG, "ZorCam/Utils",
                   "{CamProfile}[Pipeline::configure] open 1: (0-th) ===> [start-->now: 1 ms]");
    setULog(0x3, 3, 0x40007000);  // debug kept back: not numbered, but the step restarts
    vclock::advance(7 * kMs);
    EXPECT_TRUE(profile.print("hidden"));
    expectNoLines();
    setULog(0x2, 6, 0x40007000);  // the unified logger alone
    vclock::advance(2500 * kUs);
    EXPECT_TRUE(profile.print("map"));
    EXPECT_TRUE(androidLines().empty());
    EXPECT_EQ(ulogLine(), "{CamProfile}[Pipeline::configure] map: (1-th) ===> "
                          "[start-->now: 11 ms] [last-->now: 2 ms]");
    vclock::advance(((int64_t{1} << 31) + 1000) * kUs);  // past what 32 bits hold
    profile.print("b");
    EXPECT_EQ(ulogLine(), "{CamProfile}[Pipeline::configure] b: (2-th) ===> "
                          "[start-->now: -2147471 ms] [last-->now: -2147482 ms]");
}

TEST_F(ProfileTest, CamProfileOvertimeNumbersEveryCheckpoint) {
    CamProfile profile("f", "C");
    vclock::advance(15 * kMs);
    EXPECT_TRUE(profile.print_overtime(10, "slow %s", "start"));
    expectOnlyLine(4, ULog::DETAILS_INFO, "ZorCam/Utils",
                   "{CamProfile}[C::f] slow start: (0-th) ===> (overtime > 10 ms) "
                   "[start-->now: 15 ms]");
    vclock::advance(1999 * kUs);  // 1.999 ms counts as 1 ms, not over 1
    EXPECT_FALSE(profile.print_overtime(1, "fast"));
    expectNoLines();
    vclock::advance(15 * kMs);
    EXPECT_TRUE(profile.print_overtime(10, "slow"));
    expectOnlyLine(4, ULog::DETAILS_INFO, "ZorCam/Utils",
                   "{CamProfile}[C::f] slow: (2-th) ===> ( overtime > 10 ms) "
                   "[start-->now: 31 ms] [last-->now: 15 ms]");
}

TEST_F(ProfileTest, CameraProfileLinesAndPrinters) {
    CameraProfile profile("Cam/Test", "pre: ");
    vclock::advance(1234567);
    profile.print('D', "x%d", 1);
    EXPECT_EQ(androidLines().at(0).text, "pre: @0 x1 [start-->now: 1234 us]");
    EXPECT_EQ(ulogLines().at(0).moduleId, 0x40007001u);
    EXPECT_EQ(ulogLine(), "@0 x1 [start-->now: 1234 us]");  // the prefix is the Android log's
    vclock::advance(kMs);
    profile.stopWatch();
    vclock::advance(2999);
    profile.print('X', "y");
    EXPECT_EQ(ulogLine(), "@1 y [start-->now: 2237 us][last-->now: 2 us]");
    vclock::advance(500 * kUs);  // under the threshold: numbered, not printed
    profile.print_overtime('W', 1000000, "fast");
    expectNoLines();
    vclock::advance(1000001);
    profile.print_overtime('W', 1000000, "slow");
    EXPECT_EQ(ulogLine(),
              "@3 slow (overtime > 1000000 ns) [start-->now: 3737 us][last-->now: 1000 us]");
    // The letter picks the unified-log type; the Android priority follows from it.
    const std::pair<char, ULog::DetailsType> cases[] = {
            {'E', ULog::DETAILS_ERROR}, {'W', ULog::DETAILS_WARNING}, {'I', ULog::DETAILS_INFO},
            {'V', ULog::DETAILS_VERBOSE}, {'D', ULog::DETAILS_DEBUG}, {'X', ULog::DETAILS_DEBUG}};
    for (const auto& [letter, type] : cases) {
        profile.print(letter, "n");
        EXPECT_EQ(ulogLines().at(0).type, type) << letter;
        clearLogs();
    }
    setULog(0x0, 0, 0);  // gates every letter but 'F'
    profile.print('E', "gone");
    profile.print('F', "fatal %s", "x");
    ASSERT_EQ(androidLines().size(), 1u);
    EXPECT_EQ(androidLines()[0].prio, 7);
    EXPECT_EQ(androidLines()[0].text, "pre: @11 fatal x [start-->now: 3737 us][last-->now: 0 us]");
    EXPECT_TRUE(ulogLines().empty());
}

}  // namespace
