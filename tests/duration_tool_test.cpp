#include <zorcam/utils/std/DurationTool.h>
#include <zorcam/utils/std/Log.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <string>

using NSCam::Utils::DurationTool;
using namespace zorcam_test;

namespace {

class DurationToolTest : public LogCaptureTest {};

// The rate line is a debug line of the property-gated path: below camera log level 3 nothing
// is written, and the rest runs in a child at level 3.
TEST_F(DurationToolTest, RateLines) {
    DurationTool meter("preview", 0);
    for (int i = 1; i <= 30; ++i) meter.update(i * 1000000000L / 30);
    if (!zorcam_testLog(nullptr, 'D')) {
        meter.showFps();
        expectNoLines();
        EXPECT_TRUE(runWithCameraLogLevel("DurationToolTest.RateLines", 3));
        return;
    }
    // Each show writes one debug line of the library's tag.
    auto show = [this](DurationTool& m, const std::string& text) {
        m.showFps();
        const auto a = androidLines();
        clearLogs();
        ASSERT_EQ(a.size(), 1u);
        EXPECT_TRUE(a[0].prio == 3 && a[0].tag == "ZorCam/Utils") << a[0].tag;
        EXPECT_EQ(a[0].text, text);
    };
    show(meter, "[preview] fps: 30 / 1000000000 ns = 29.999998");
    meter.update(1500000000L);  // showing closed nothing
    show(meter, "[preview] fps: 31 / 1500000000 ns = 20.666666");
    meter.reset(2000000000L);
    show(meter, "[preview] fps: 0 / 0 ns = nan");
    meter.update(2000000000L);
    show(meter, "[preview] fps: 1 / 0 ns = inf");

    // Without a time the clock's is used, by the constructor and by reset() alike.
    vclock::set(7000000000L);
    DurationTool clocked("clock");
    vclock::advance(250000000);
    clocked.update();
    show(clocked, "[clock] fps: 1 / 250000000 ns = 4.000000");
    clocked.reset();
    vclock::advance(100000000);
    clocked.update();
    show(clocked, "[clock] fps: 1 / 100000000 ns = 10.000000");
}

}  // namespace
