#include <zorcam/utils/std/DurationTool.h>
#include <zorcam/utils/std/Log.h>

#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <mutex>
#include <thread>

using NSCam::Utils::DurationTool;
using namespace zorcam_test;

// The rate line is a debug line of the property-gated path, written only when the camera log
// level lets debug lines through (the level of tests, 2, keeps them back); the hook below
// decides instead, debug lines let through while gDebug is set.
static bool gDebug = true;
using DurationToolTest = LogCaptureTest;

extern "C" int zorcam_testLog(const char* /*tag*/, int level) { return level != 'D' || gDebug; }

// Each call and then the rate line shown: frames counted over the time between the first and
// the last stamp, in single precision.
TEST_F(DurationToolTest, RateLines) {
    vclock::set(7000000000L);
    DurationTool meter("preview", 0), clocked("clock");
    const struct { DurationTool* meter; std::function<void()> call; const char* line; } calls[] = {
            {&meter, [&] { for (int i = 1; i <= 30; ++i) meter.update(i * 1000000000L / 30); },
             "[preview] fps: 30 / 1000000000 ns = 29.999998"},
            {&meter, [&] { meter.update(1500000000L); },  // showing closed nothing
             "[preview] fps: 31 / 1500000000 ns = 20.666666"},
            {&meter, [&] { meter.reset(2000000000L); }, "[preview] fps: 0 / 0 ns = nan"},
            {&meter, [&] { meter.update(2000000000L); }, "[preview] fps: 1 / 0 ns = inf"},
            // Without a time the clock's is used, by the constructor and by reset() alike.
            {&clocked, [&] { vclock::advance(250000000), clocked.update(); },
             "[clock] fps: 1 / 250000000 ns = 4.000000"},
            {&clocked, [&] { clocked.reset(), vclock::advance(100000000), clocked.update(); },
             "[clock] fps: 1 / 100000000 ns = 10.000000"}};
    for (const auto& c : calls) {
        c.call();
        gDebug = false, c.meter->showFps(), gDebug = true;  // none while debug lines are kept back
        expectNoLines();
        c.meter->showFps();
        std::string seen;
        for (const auto& l : androidLines()) seen += std::to_string(l.prio) + l.tag + " " + l.text;
        EXPECT_EQ(seen, "3ZorCam/Utils " + std::string(c.line));
        clearLogs();
    }
}

// A producer counts frames while a reader shows the rate, the owner serialising the two with
// its lock: every line shows a count the producer had reached, never fewer than the line
// before, with the elapsed time of exactly that many frames; the last shows them all.
TEST_F(DurationToolTest, ProducerCountsWhileAReaderShowsTheRate) {
    constexpr int kFrames = 3000, kShows = 300;
    constexpr long kFrameNs = 1000000;
    DurationTool meter("preview", 0);
    std::mutex owner;
    auto locked = [&owner](const std::function<void()>& f) { std::lock_guard lock(owner); f(); };
    std::thread producer([&] {
        for (long i = 1; i <= kFrames; ++i) locked([&] { meter.update(i * kFrameNs); });
    });
    for (int i = 0; i < kShows; ++i) locked([&] { meter.showFps(); });
    producer.join();
    meter.showFps();
    const auto lines = androidLines();
    ASSERT_EQ(lines.size(), size_t{kShows + 1});
    int count = 0, last = 0;
    long elapsed = 0;
    for (const auto& l : lines) {
        ASSERT_EQ(sscanf(l.text.c_str(), "[preview] fps: %d / %ld ns", &count, &elapsed), 2)
                << l.text;
        EXPECT_TRUE(count >= last && count <= kFrames && elapsed == count * kFrameNs) << l.text;
        last = count;
    }
    EXPECT_EQ(lines.back().text, "[preview] fps: 3000 / 3000000000 ns = 1000.000000");
}
