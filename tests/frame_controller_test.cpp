#include <zorcam/utils/std/FrameController.h>
#include <zorcam/utils/std/Log.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "VirtualClock.h"

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using NSCam::Utils::FrameController;
using namespace zorcam_test;
using Sleeps = std::vector<int64_t>;
using Lines = std::vector<std::string>;

namespace {

constexpr int64_t kMs = 1000000;
constexpr int64_t kFi = 33333333;
const std::string kP = "[bufferControl][cam] ";

class FrameControllerTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::set(1000000 * kMs);
        vclock::takeSleeps();
    }
    void TearDown() override {
        for (const auto& key : mKeys) property_set(key.c_str(), "");
        LogCaptureTest::TearDown();
    }
    void props(std::initializer_list<std::pair<const char*, long long>> values) {
        for (const auto& [key, v] : values) {
            mKeys.push_back(key);
            property_set(key, std::to_string(v).c_str());
        }
    }
    void make() {
        clearLogs();
        mFc = new FrameController(android::String8("cam"));
    }
    // Hands over a frame stamped ts at virtual time at; the sleeps it took. Only the lines of
    // this frame stay recorded.
    Sleeps frame(int64_t ts, int64_t at) {
        clearLogs();
        vclock::set(at);
        mFc->bufferControl(ts);
        return vclock::takeSleeps();
    }
    // Five measuring frames and the first paced one, each 10 ms old; returns the last stamp.
    int64_t startPacing(int64_t firstFrameDelayMs = 15) {
        int64_t ts = vclock::now();
        for (int i = 0; i < 5; ++i, ts += kFi) EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{});
        EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{firstFrameDelayMs * 1000});
        return ts;
    }
    Lines lines(int prio) {
        Lines out;
        for (const auto& l : androidLines("ZorCam/FrameController"))
            if (l.prio == prio) out.push_back(l.text);
        return out;
    }
    static bool has(const Lines& lines, const std::string& part) {
        return !lines.empty() && lines.back().find(part) != std::string::npos;
    }

    std::vector<std::string> mKeys;
    android::sp<FrameController> mFc;
};

// Construction keys replace the defaults unless set to -1; the pacing keys are read when pacing
// starts and stored as read, -1 included.
TEST_F(FrameControllerTest, PropertyOverrides) {
    make();
    EXPECT_EQ(lines(4), Lines{"[FrameController][cam] - miLogLevel(1), max delay(30000000), max "
                              "sleep(1000000000 ns), min sleep(200 us), adj sleep(250000 ns)"});
    props({{"debug.camera.fctrl.loglevel", 2}, {"debug.camera.fctrl.fmd", -2},
           {"debug.camera.fctrl.smaxms", 2500}, {"debug.camera.fctrl.sminus", -1},
           {"debug.camera.fctrl.adjsleep", 100}});
    make();
    EXPECT_EQ(lines(4), Lines{"[FrameController][cam] - miLogLevel(2), max delay(-2000000), max "
                              "sleep(2500000000 ns), min sleep(200 us), adj sleep(100 ns)"});
    props({{"debug.displaydelay.ms", 7}, {"debug.displaydelay.adjdelay", -1},
           {"debug.displaydelay.p2", 1000}});
    const int64_t ts = startPacing(7) + kFi;
    EXPECT_EQ(lines(4), Lines(2, kP + "FirstFrameDelay(7)ms"));
    const int64_t ct = vclock::now() + 20 * kMs;
    EXPECT_EQ(frame(ts, ct), Sleeps{13333});
    EXPECT_EQ(lines(4), (Lines{kP + "start sleep",
                               kP + "off:ct(" + std::to_string(ct) + "),cft(" +
                                       std::to_string(ts) +
                                       "),cddt(16999667),oddt(40334333),nddt(38334333),max("
                                       "40334332),min(40334333),fi(33333333),ti(20000000),stc(0),"
                                       "st(13333 us)"}));
}

// The debug lines of stages 1 and 2 are checked in a child whose camera log level admits them.
TEST_F(FrameControllerTest, MeasuresFiveFramesThenWaitsForOneAtMostTheAverage) {
    make();
    Lines debug;
    auto step = [&](int64_t ts, int64_t at) {
        const Sleeps slept = frame(ts, at);
        for (auto& l : lines(3)) debug.push_back(l);
        return slept;
    };
    int64_t ts = vclock::now();
    // The average of these truncates to 12200000 ns.
    for (int64_t d : {10 * kMs, 11 * kMs, 12 * kMs, 13 * kMs, 15 * kMs + 3})
        EXPECT_EQ(step(ts, ts + d), Sleeps{}), ts += kFi;
    EXPECT_EQ(step(ts, ts + 12200001), Sleeps{});
    ts += kFi;
    EXPECT_EQ(step(ts, ts + 12200000), Sleeps{15000});
    // 20 ms after the return, default settings: 33333333 - 20000000 - 250000 ns.
    EXPECT_EQ(step(ts + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
    if (!zorcam_testLog(nullptr, 'D')) {
        EXPECT_EQ(debug, Lines{});
        EXPECT_TRUE(runWithCameraLogLevel("*MeasuresFiveFramesThenWaitsForOneAtMostTheAverage", 3));
        return;
    }
    Lines expected(5, kP + "framecontrol stage(1)");
    for (const char* l : {"mAverageDisplayTime(12200000)", "framecontrol stage(2)",
                          "currentDisplayDelay(12200001),mAverageDisplayTime(12200000)",
                          "framecontrol stage(2)",
                          "currentDisplayDelay(12200000),mAverageDisplayTime(12200000)",
                          "start sleep"})
        expected.push_back(kP + l);
    ASSERT_EQ(debug.size(), expected.size() + 1);
    EXPECT_EQ(debug.back().rfind(kP + "off:ct(", 0), 0u) << debug.back();
    debug.pop_back();
    EXPECT_EQ(debug, expected);
}

// One stream through pacing, adjust and reset mode.
TEST_F(FrameControllerTest, PacesBetweenMinAndMaxSleepThroughAdjustAndResetModes) {
    props({{"debug.camera.fctrl.loglevel", 2}, {"debug.camera.fctrl.smaxms", 15},
           {"debug.camera.fctrl.fmd", 10}});
    make();
    int64_t ts = startPacing();
    // Each frame comes fi after the previous one, `after` the previous return or, when that is
    // 0, `age` after its stamp. Sleeping can fill what is left of fi less mAdjSleep.
    const int64_t left = kFi - 250000;
    const struct {
        int64_t fi, after, age, sleep;
        const char* event;  // transition line
        const char* tail;   // end of the last line
    } cases[] = {
            {kFi, 20 * kMs, 0, 13083, "",
             ",cddt(24749667),oddt(78333333),nddt(88333333),max(83333333),min(78333333),"
             "fi(33333333),ti(20000000),stc(0),st(13083 us)"},
            {kFi, left - 200999, 0, 0, "", ",stc(0),st(0 us)"},  // 200 us: at mMinSleep
            {kFi, left - 201000, 0, 201, "", ",stc(0),st(201 us)"},
            {kFi, kFi + 5 * kMs, 0, 0, "", ",stc(0),st(0 us)"},  // negative slack
            {kFi, left - 15 * kMs + 1, 0, 14999, "", ",stc(0),st(14999 us)"},
            {kFi, left - 15 * kMs, 0, 0, "", ",stc(0),st(0 us)"},  // at mMaxSleep: warns
            // Above target + 5 ms (83.3 ms), under the reset threshold; then each frame 20 ms
            // after the return leaves 1.25 ms earlier until the fifth is at the target.
            {kFi, 0, 84 * kMs, 0, "start to adj frame delay", ",stc(1),st(0 us)"},
            {kFi, 20 * kMs, 0, 12083, "", ",stc(1),st(12083 us)"},
            {kFi, 20 * kMs, 0, 12083, "", ",stc(1),st(12083 us)"},
            {kFi, 20 * kMs, 0, 12083, "", ",stc(1),st(12083 us)"},
            {kFi, 20 * kMs, 0, 12083, "", ",stc(1),st(12083 us)"},
            {kFi, 20 * kMs, 0, 12083, "stop adj frame delay", ",stc(0),st(12083 us)"},
            {kFi, 0, 80 * kMs, 0, "", ",stc(0),st(0 us)"},
            // A 20 ms interval lowers target and threshold to 65 and 75 ms; the sleep decided
            // projects the delay to 79.75 ms and is still taken as reset mode starts.
            {20 * kMs, 5 * kMs, 0, 14750, "start to reset frame delay",
             ",cddt(79750000),oddt(65000000),nddt(75000000),max(70000000),min(65000000),"
             "fi(20000000),ti(5000000),stc(0),st(14750 us)"},
            // Reset mode ends at the middle of target 78.3 ms and threshold 88.3 ms.
            {kFi, 0, 83333334, 0, "", "),cddt(83333334),oddt(78333333),fi(33333333),ti(5000000)"},
            {kFi, 0, 83333333, 0, "stop reset frame delay", "stop reset frame delay"},
            {kFi, 20 * kMs, 0, 13083, "", ",stc(0),st(13083 us)"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        ts += c.fi;
        const int64_t ct = c.after ? vclock::now() + c.after : ts + c.age;
        EXPECT_EQ(frame(ts, ct), c.sleep ? Sleeps{c.sleep} : Sleeps{});
        const Lines info = lines(4);
        Lines events = *c.event ? Lines{kP + c.event} : Lines{}, seen;
        if (c.sleep) events.push_back(kP + "start sleep");
        for (const auto& l : info)
            if (l.find("ct(") == std::string::npos) seen.push_back(l);
        EXPECT_EQ(seen, events);
        EXPECT_TRUE(has(info, c.tail)) << testing::PrintToString(info);
        EXPECT_TRUE(c.age != 83333334 || (has(info, "") && info[0].rfind(kP + " on:ct(", 0) == 0));
        const Lines warnings{kP + "Check Frame conrol parameters, something wrong",
                             kP + "ct(" + std::to_string(ct) + "),cft(" + std::to_string(ts) +
                                     "),lft(" + std::to_string(ts - c.fi) + "),cddt(" +
                                     std::to_string(ct - ts) +
                                     "),nddt(88333333),fi(33333333),ti(18083333)"};
        EXPECT_EQ(lines(5), c.after == left - 15 * kMs ? warnings : Lines{});
    }
}

// The display thread paces a stream while another thread reads what the controller logs: the
// reader only ever sees whole lines added in order, and the frames sleep and log exactly what
// the same frames do with nobody reading.
TEST_F(FrameControllerTest, PacesWhileAnotherThreadReadsTheLines) {
    props({{"debug.camera.fctrl.loglevel", 2}});
    constexpr int kFrames = 200;
    const int64_t start = vclock::now();
    auto stream = [start] {
        vclock::set(start);
        android::sp<FrameController> fc = new FrameController(android::String8("cam"));
        int64_t ts = start;
        for (int i = 0; i < kFrames; ++i, ts += kFi) {
            // Six frames 10 ms old start pacing; then each comes 10 to 24 ms after the return.
            vclock::set(i < 6 ? ts + 10 * kMs : vclock::now() + (10 + i % 15) * kMs);
            fc->bufferControl(ts);
        }
        return vclock::takeSleeps();
    };
    std::atomic<bool> done{false};
    Sleeps concurrent;
    std::thread display([&] {
        concurrent = stream();
        done = true;
    });
    Lines seen;
    while (!done.load()) {
        const Lines now = lines(4);
        EXPECT_TRUE(now.size() >= seen.size() && std::equal(seen.begin(), seen.end(), now.begin()));
        seen = now;
    }
    display.join();
    seen = lines(4);
    clearLogs();
    const Sleeps alone = stream();
    EXPECT_GT(alone.size(), size_t{kFrames / 2});
    EXPECT_EQ(concurrent, alone);
    EXPECT_EQ(seen, lines(4));
}

}  // namespace
