#include <zorcam/utils/std/DurationTool.h>
#include <zorcam/utils/std/Log.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

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

// A producer counts frames while a reader shows the rate, the owner serialising the two with
// its lock: every line shows a count the producer had reached, never fewer than the line
// before, with the elapsed time of exactly that many frames; the last shows them all.
TEST_F(DurationToolTest, ProducerCountsWhileAReaderShowsTheRate) {
    if (!zorcam_testLog(nullptr, 'D')) {
        EXPECT_TRUE(runWithCameraLogLevel("DurationToolTest.ProducerCountsWhileAReaderShows*", 3));
        return;
    }
    constexpr int kFrames = 3000, kShows = 300;
    constexpr long kFrameNs = 1000000;
    DurationTool meter("preview", 0);
    std::mutex owner;
    std::thread producer([&] {
        for (int i = 1; i <= kFrames; ++i) {
            std::lock_guard<std::mutex> lock(owner);
            meter.update(i * kFrameNs);
        }
    });
    for (int i = 0; i < kShows; ++i) {
        std::lock_guard<std::mutex> lock(owner);
        meter.showFps();
    }
    producer.join();
    meter.showFps();
    const auto lines = androidLines();
    ASSERT_EQ(lines.size(), size_t{kShows + 1});
    int last = 0;
    for (const auto& l : lines) {
        int count = -1;
        long elapsed = -1;
        ASSERT_EQ(sscanf(l.text.c_str(), "[preview] fps: %d / %ld ns", &count, &elapsed), 2)
                << l.text;
        EXPECT_TRUE(count >= last && count <= kFrames && elapsed == count * kFrameNs) << l.text;
        last = count;
    }
    EXPECT_EQ(lines.back().text, "[preview] fps: 3000 / 3000000000 ns = 1000.000000");
}

}  // namespace
