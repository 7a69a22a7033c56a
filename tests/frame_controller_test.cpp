#include <zorcam/utils/std/FrameController.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "LogMacros.h"
#include "VirtualClock.h"

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <string>
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
        for (const char* key : {"debug.camera.fctrl.loglevel", "debug.camera.fctrl.fmd",
                                "debug.camera.fctrl.smaxms", "debug.camera.fctrl.sminus",
                                "debug.camera.fctrl.adjsleep", "debug.displaydelay.ms",
                                "debug.displaydelay.adjdelay", "debug.displaydelay.p2"})
            property_set(key, "");
        LogCaptureTest::TearDown();
    }
    static void prop(const char* key, long long v) { property_set(key, std::to_string(v).c_str()); }

    void make() {
        mFc = new FrameController(android::String8("cam"));
        clearLogs();
    }
    // Hands over a frame stamped ts at virtual time at; the sleeps it took.
    Sleeps frame(int64_t ts, int64_t at) {
        vclock::set(at);
        mFc->bufferControl(ts);
        return vclock::takeSleeps();
    }
    // Five measuring frames and the first paced one, each 10 ms old; returns the last stamp.
    // The last call sleeps the first-frame delay and so returns 25 ms after its stamp.
    int64_t startPacing() {
        int64_t ts = vclock::now();
        for (int i = 0; i < 5; ++i, ts += kFi) EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{});
        EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{15000});
        clearLogs();
        return ts;
    }
    // The controller's lines of one priority, cleared afterwards.
    Lines take(int prio) {
        Lines out;
        for (const auto& l : androidLines("ZorCam/FrameController"))
            if (l.prio == prio) out.push_back(l.text);
        clearLogs();
        return out;
    }
    static bool has(const Lines& lines, const std::string& part) {
        return !lines.empty() && lines.back().find(part) != std::string::npos;
    }

    android::sp<FrameController> mFc;
};

TEST_F(FrameControllerTest, ConstructionKeysReplaceDefaultsUnlessMinusOne) {
    mFc = new FrameController(android::String8("cam"));
    EXPECT_EQ(take(4), Lines{"[FrameController][cam] - miLogLevel(1), max delay(30000000), max "
                             "sleep(1000000000 ns), min sleep(200 us), adj sleep(250000 ns)"});
    prop("debug.camera.fctrl.loglevel", 0);
    prop("debug.camera.fctrl.fmd", -2);
    prop("debug.camera.fctrl.smaxms", 2500);
    prop("debug.camera.fctrl.sminus", -1);
    prop("debug.camera.fctrl.adjsleep", 100);
    mFc = new FrameController(android::String8("cam"));
    EXPECT_EQ(take(4), Lines{"[FrameController][cam] - miLogLevel(0), max delay(-2000000), max "
                             "sleep(2500000000 ns), min sleep(200 us), adj sleep(100 ns)"});
}

TEST_F(FrameControllerTest, MeasuresFiveFramesThenWaitsForOneAtMostTheAverage) {
    make();
    int64_t ts = vclock::now();
    // The average of these truncates to 12200000 ns.
    for (int64_t d : {10 * kMs, 11 * kMs, 12 * kMs, 13 * kMs, 15 * kMs + 3})
        EXPECT_EQ(frame(ts, ts + d), Sleeps{}), ts += kFi;
    EXPECT_EQ(frame(ts, ts + 12200001), Sleeps{});
    EXPECT_EQ(frame(ts + kFi, ts + kFi + 20 * kMs), Sleeps{});
    ts += 2 * kFi;
    EXPECT_EQ(frame(ts, ts + 12200000), Sleeps{15000});
    EXPECT_EQ(take(4), Lines(2, kP + "FirstFrameDelay(15)ms"));
    EXPECT_EQ(frame(ts + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, SleepsWhatIsLeftOfTheInterval) {
    prop("debug.camera.fctrl.loglevel", 2);
    make();
    const int64_t ts = startPacing() + kFi;
    const int64_t ct = vclock::now() + 20 * kMs;
    EXPECT_EQ(frame(ts, ct), Sleeps{13083});
    EXPECT_EQ(take(4), (Lines{kP + "start sleep",
                              kP + "off:ct(" + std::to_string(ct) + "),cft(" +
                                      std::to_string(ts) +
                                      "),cddt(24749667),oddt(78333333),nddt(108333333),max("
                                      "83333333),min(78333333),fi(33333333),ti(20000000),stc(0),"
                                      "st(13083 us)"}));
}

TEST_F(FrameControllerTest, ShortSleepsAndNegativeSlackAreNotSlept) {
    prop("debug.camera.fctrl.loglevel", 2);
    make();
    int64_t ts = startPacing() + kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi - 250000 - 200999), Sleeps{});  // 200 us
    EXPECT_TRUE(has(take(4), ",stc(0),st(0 us)"));
    EXPECT_EQ(frame(ts += kFi, vclock::now() + kFi - 250000 - 201000), Sleeps{201});
    EXPECT_EQ(frame(ts += kFi, vclock::now() + kFi + 5 * kMs), Sleeps{});
    EXPECT_TRUE(has(take(4), ",st(0 us)"));
    EXPECT_EQ(take(5), Lines{});
}

TEST_F(FrameControllerTest, SleepAtOrAboveMaxSleepWarnsInstead) {
    prop("debug.camera.fctrl.smaxms", 10);
    make();
    int64_t ts = startPacing() + kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi - 250000 - 10 * kMs + 1), Sleeps{9999});
    EXPECT_EQ(take(5), Lines{});
    const int64_t ct = vclock::now() + kFi - 250000 - 10 * kMs;
    ts += kFi;
    EXPECT_EQ(frame(ts, ct), Sleeps{});
    EXPECT_EQ(take(5), (Lines{kP + "Check Frame conrol parameters, something wrong",
                              kP + "ct(" + std::to_string(ct) + "),cft(" + std::to_string(ts) +
                                      "),lft(" + std::to_string(ts - kFi) + "),cddt(" +
                                      std::to_string(ct - ts) +
                                      "),nddt(108333333),fi(33333333),ti(23083333)"}));
}

TEST_F(FrameControllerTest, AdjustModeShortensSleepsUntilTheTargetIsReached) {
    prop("debug.camera.fctrl.loglevel", 2);
    make();
    int64_t ts = startPacing() + kFi;
    // 84 ms old: above target + 5 ms (83.3 ms), under the reset threshold.
    EXPECT_EQ(frame(ts, ts + 84 * kMs), Sleeps{});
    Lines info = take(4);
    EXPECT_EQ(info.front(), kP + "start to adj frame delay");
    EXPECT_TRUE(has(info, ",stc(1),st(0 us)"));
    // Each frame 20 ms after the return leaves 1.25 ms earlier; the fifth is at the target.
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(frame(ts += kFi, vclock::now() + 20 * kMs), Sleeps{12083});
        info = take(4);
        EXPECT_EQ(info.front() == kP + "stop adj frame delay", i == 4) << i;
        EXPECT_TRUE(has(info, i < 4 ? ",stc(1)," : ",stc(0),")) << info.back();
    }
    EXPECT_EQ(frame(ts + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, ResetModeStopsSleepingUntilTheDelayFallsToTheMiddle) {
    prop("debug.camera.fctrl.loglevel", 2);
    prop("debug.camera.fctrl.fmd", 10);
    make();
    int64_t ts = startPacing() + kFi;
    frame(ts, ts + 80 * kMs);
    take(4);
    // A 20 ms interval lowers target and threshold to 65 and 75 ms; the sleep decided
    // projects the delay to 79.75 ms and is still taken as reset mode starts.
    ts += 20 * kMs;
    EXPECT_EQ(frame(ts, vclock::now() + 5 * kMs), Sleeps{14750});
    Lines info = take(4);
    EXPECT_EQ(info.front(), kP + "start to reset frame delay");
    EXPECT_TRUE(has(info, ",cddt(79750000),oddt(65000000),nddt(75000000),max(70000000),min("
                          "65000000),fi(20000000),ti(5000000),stc(0),st(14750 us)"));
    // Middle of target 78.3 ms and threshold 88.3 ms: 83.3 ms.
    ts += kFi;
    EXPECT_EQ(frame(ts, ts + 83333334), Sleeps{});
    EXPECT_EQ(take(4), Lines{kP + " on:ct(" + std::to_string(ts + 83333334) + "),cft(" +
                             std::to_string(ts) +
                             "),cddt(83333334),oddt(78333333),fi(33333333),ti(5000000)"});
    ts += kFi;
    EXPECT_EQ(frame(ts, ts + 83333333), Sleeps{});
    EXPECT_EQ(take(4).back(), kP + "stop reset frame delay");
    EXPECT_EQ(frame(ts + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, PacingKeysAreReadWhenPacingStartsAndStoredAsRead) {
    prop("debug.camera.fctrl.loglevel", 2);
    make();
    prop("debug.displaydelay.ms", 7);
    prop("debug.displaydelay.adjdelay", -1);
    prop("debug.displaydelay.p2", 1000);
    int64_t ts = vclock::now();
    for (int i = 0; i < 5; ++i, ts += kFi) frame(ts, ts + 10 * kMs);
    EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{7000});
    EXPECT_EQ(take(4), Lines(2, kP + "FirstFrameDelay(7)ms"));
    frame(ts + kFi, vclock::now() + 20 * kMs);
    EXPECT_TRUE(has(take(4), ",oddt(40334333),nddt(70334333),max(40334332),min(40334333),"));
}

// Runs in a child whose camera log level lets debug lines through.
TEST_F(FrameControllerTest, DebugLinesAtLogLevelThree) {
    if (NSCam::Utils::ULog::cameraLogLevel() < 3) {
        EXPECT_TRUE(runWithCameraLogLevel("*DebugLinesAtLogLevelThree", 3));
        return;
    }
    make();
    int64_t ts = vclock::now();
    for (int64_t d : {10 * kMs, 11 * kMs, 12 * kMs, 13 * kMs, 15 * kMs + 3})
        frame(ts, ts + d), ts += kFi;
    frame(ts, ts + 13 * kMs);
    Lines expected(5, kP + "framecontrol stage(1)");
    expected.push_back(kP + "mAverageDisplayTime(12200000)");
    expected.push_back(kP + "framecontrol stage(2)");
    expected.push_back(kP + "currentDisplayDelay(13000000),mAverageDisplayTime(12200000)");
    EXPECT_EQ(take(3), expected);
    ts += kFi;
    frame(ts, ts + 10 * kMs);
    frame(ts + kFi, vclock::now() + 20 * kMs);
    const Lines debug = take(3);
    ASSERT_EQ(debug.size(), 4u);
    EXPECT_EQ(debug[2], kP + "start sleep");
    EXPECT_EQ(debug[3].rfind(kP + "off:ct(", 0), 0u) << debug[3];
}

}  // namespace
