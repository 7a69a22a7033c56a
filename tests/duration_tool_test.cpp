#include <zorcam/utils/std/DurationTool.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "LogMacros.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using NSCam::Utils::DurationTool;
using namespace zorcam_test;

namespace {

constexpr int64_t kMs = 1000000;

class DurationToolTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::reset(3000 * kMs);
    }

    // The rate line written by the last showFps(), checked to be the only line.
    std::string rateLine() {
        const auto a = androidLines();
        EXPECT_TRUE(ulogLines().empty());
        if (a.size() != 1u) {
            ADD_FAILURE() << a.size() << " lines";
            return "";
        }
        EXPECT_EQ(a[0].prio, 3);
        EXPECT_EQ(a[0].tag, "ZorCam/Utils");
        clearLogs();
        return a[0].text;
    }
};

TEST_F(DurationToolTest, NothingAtTheDefaultCameraLogLevel) {
    DurationTool meter("preview", 0);
    for (int i = 1; i <= 30; ++i) meter.update(i * 1000000000L / 30);
    meter.showFps();
    expectNoLines();
}

// The rate line is a debug line of the property-gated path: these run in a child whose camera
// log level lets it through.
class DurationToolDebugTest : public DurationToolTest {
protected:
    void SetUp() override {
        if (NSCam::Utils::ULog::cameraLogLevel() < 3) GTEST_SKIP() << "needs log level 3";
        DurationToolTest::SetUp();
    }
};

TEST_F(DurationToolDebugTest, RateInSinglePrecision) {
    DurationTool meter("preview", 0);
    for (int i = 1; i <= 30; ++i) meter.update(i * 1000000000L / 30);
    meter.showFps();
    EXPECT_EQ(rateLine(), "[preview] fps: 30 / 1000000000 ns = 29.999998");
    // Showing changes nothing: the period keeps growing until a reset.
    meter.update(1500000000L);
    meter.showFps();
    EXPECT_EQ(rateLine(), "[preview] fps: 31 / 1500000000 ns = 20.666666");
    meter.reset(2000000000L);
    meter.update(2500000000L);
    meter.showFps();
    EXPECT_EQ(rateLine(), "[preview] fps: 1 / 500000000 ns = 2.000000");
}

TEST_F(DurationToolDebugTest, NoElapsedTimeGivesNanOrInf) {
    DurationTool meter("m", 77);
    meter.showFps();
    EXPECT_EQ(rateLine(), "[m] fps: 0 / 0 ns = nan");
    meter.update(77);
    meter.update(77);
    meter.showFps();
    EXPECT_EQ(rateLine(), "[m] fps: 2 / 0 ns = inf");
}

TEST_F(DurationToolDebugTest, ClockOperationsReadTheMonotonicClock) {
    DurationTool meter("clock");
    vclock::advance(250 * kMs);
    meter.update();
    vclock::advance(250 * kMs);
    meter.update();
    meter.showFps();
    EXPECT_EQ(rateLine(), "[clock] fps: 2 / 500000000 ns = 4.000000");
    vclock::advance(kMs);
    meter.reset();
    vclock::advance(100 * kMs);
    meter.update();
    meter.showFps();
    EXPECT_EQ(rateLine(), "[clock] fps: 1 / 100000000 ns = 10.000000");
}

TEST(DurationToolLevelTest, RateLinesAtCameraLogLevelThree) {
    EXPECT_TRUE(runWithCameraLogLevel("DurationToolDebugTest.*", 3));
}

}  // namespace
