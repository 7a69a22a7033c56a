#include <zorcam/utils/std/FrameController.h>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "LogMacros.h"
#include "VirtualClock.h"

#include <cutils/properties.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using android::sp;
using android::String8;
using NSCam::Utils::FrameController;
using namespace zorcam_test;

namespace {

constexpr const char* kTag = "ZorCam/FrameController";
constexpr int64_t kMs = 1000000;
constexpr int64_t kStart = 1000000 * kMs;
constexpr int64_t kFi = 33333333;

const char* const kKeys[] = {
        "debug.camera.fctrl.loglevel", "debug.camera.fctrl.fmd",     "debug.camera.fctrl.smaxms",
        "debug.camera.fctrl.sminus",   "debug.camera.fctrl.adjsleep", "debug.displaydelay.ms",
        "debug.displaydelay.adjdelay", "debug.displaydelay.p2",
};

using Sleeps = std::vector<int64_t>;

class FrameControllerTest : public LogCaptureTest {
protected:
    void SetUp() override {
        LogCaptureTest::SetUp();
        vclock::reset(kStart);
    }

    void TearDown() override {
        for (const char* key : kKeys) property_set(key, "");
        LogCaptureTest::TearDown();
    }

    static void setProperty(const char* key, long long value) {
        property_set(key, std::to_string(value).c_str());
    }

    void make() {
        mFc = new FrameController(String8("cam"));
        clearLogs();
    }

    // Hands the controller a frame stamped ts at virtual time at; the sleeps it took.
    Sleeps frame(int64_t ts, int64_t at) {
        vclock::set(at);
        mFc->bufferControl(ts);
        return vclock::takeSleeps();
    }

    // Five measuring frames and the first paced frame, each 10 ms old when handed over. The
    // last one starts pacing: it returns 25 ms after its time stamp, which is returned.
    int64_t startPacing() {
        int64_t ts = kStart;
        for (int i = 0; i < 5; ++i, ts += kFi) EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{});
        EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{15000});
        EXPECT_EQ(vclock::now(), ts + 25 * kMs);
        clearLogs();
        return ts;
    }

    std::vector<std::string> lines(int prio) {
        std::vector<std::string> out;
        for (const auto& l : androidLines(kTag))
            if (l.prio == prio) out.push_back(prio == 6 ? stripLocation(l.text) : l.text);
        return out;
    }

    sp<FrameController> mFc;
};

TEST_F(FrameControllerTest, ConstructionKeysOverrideDefaultsUnlessMinusOne) {
    struct Case {
        long long loglevel, fmd, smaxms, sminus, adjsleep;
        const char* line;
    };
    const Case cases[] = {
            {-1, -1, -1, -1, -1,
             "- miLogLevel(1), max delay(30000000), max sleep(1000000000 ns), min sleep(200 us), "
             "adj sleep(250000 ns)"},
            {0, 0, 0, 0, 0,
             "- miLogLevel(0), max delay(0), max sleep(0 ns), min sleep(0 us), adj sleep(0 ns)"},
            {3, 10, 2500, -5, 100,
             "- miLogLevel(3), max delay(10000000), max sleep(2500000000 ns), min sleep(-5 us), "
             "adj sleep(100 ns)"},
            {-2, -2, 2147483647, 7, -1,
             "- miLogLevel(-2), max delay(-2000000), max sleep(2147483647000000 ns), "
             "min sleep(7 us), adj sleep(250000 ns)"},
    };
    for (const Case& c : cases) {
        setProperty("debug.camera.fctrl.loglevel", c.loglevel);
        setProperty("debug.camera.fctrl.fmd", c.fmd);
        setProperty("debug.camera.fctrl.smaxms", c.smaxms);
        setProperty("debug.camera.fctrl.sminus", c.sminus);
        setProperty("debug.camera.fctrl.adjsleep", c.adjsleep);
        clearLogs();
        mFc = new FrameController(String8("cam"));
        EXPECT_EQ(lines(4), std::vector<std::string>{std::string("[FrameController][cam] ") +
                                                     c.line})
                << c.line;
        EXPECT_TRUE(ulogLines().empty());
    }
}

TEST_F(FrameControllerTest, MeasuresFiveFramesThenWaitsForAFastOne) {
    make();
    // Delays 10, 11, 12, 13 and 15 ms plus 3 ns: the average truncates to 12.2 ms.
    const int64_t delays[] = {10 * kMs, 11 * kMs, 12 * kMs, 13 * kMs, 15 * kMs + 3};
    int64_t ts = kStart;
    for (int64_t d : delays) {
        EXPECT_EQ(frame(ts, ts + d), Sleeps{});
        ts += kFi;
    }
    // Slower than the average: passes at once, and the controller keeps waiting.
    EXPECT_EQ(frame(ts, ts + 12200001), Sleeps{});
    EXPECT_EQ(frame(ts + kFi, ts + kFi + 20 * kMs), Sleeps{});
    EXPECT_TRUE(androidLines(kTag).empty());

    ts += 2 * kFi;
    EXPECT_EQ(frame(ts, ts + 12200000), Sleeps{15000});
    EXPECT_EQ(lines(4), (std::vector<std::string>{"[bufferControl][cam] FirstFrameDelay(15)ms",
                                                  "[bufferControl][cam] FirstFrameDelay(15)ms"}));

    // Already paced: 33.3 ms stamps apart, handed over 20 ms after the previous return.
    const int64_t ret = vclock::now();
    EXPECT_EQ(frame(ts + kFi, ret + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, SleepsForTheRestOfTheIntervalAndLogsEachFrame) {
    setProperty("debug.camera.fctrl.loglevel", 2);
    make();
    const int64_t ts6 = startPacing();
    const int64_t ts7 = ts6 + kFi;
    const int64_t ct = ts6 + 45 * kMs;  // 20 ms after the return
    EXPECT_EQ(frame(ts7, ct), Sleeps{13083});
    EXPECT_EQ(vclock::now(), ct + 13083000);
    const std::string off = "[bufferControl][cam] off:ct(" + std::to_string(ct) + "),cft(" +
                            std::to_string(ts7) +
                            "),cddt(24749667),oddt(78333333),nddt(108333333),max(83333333),"
                            "min(78333333),fi(33333333),ti(20000000),stc(0),st(13083 us)";
    EXPECT_EQ(lines(4), (std::vector<std::string>{"[bufferControl][cam] start sleep", off}));
    EXPECT_TRUE(lines(5).empty());
}

TEST_F(FrameControllerTest, PerFrameLinesAreDebugBelowLogLevelTwo) {
    make();
    const int64_t ts6 = startPacing();
    EXPECT_EQ(frame(ts6 + kFi, ts6 + 45 * kMs), Sleeps{13083});
    // Debug lines stay back at the camera log level of the tests.
    EXPECT_TRUE(androidLines(kTag).empty());
}

TEST_F(FrameControllerTest, ShortSleepsAreNotTakenAndNegativeSlackIsNotAWarning) {
    setProperty("debug.camera.fctrl.loglevel", 2);
    make();
    int64_t ts = startPacing();
    // s = 200999 ns gives 200 us: not more than the minimum, so not slept.
    ts += kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi - 250000 - 200999), Sleeps{});
    auto info = lines(4);
    ASSERT_EQ(info.size(), 1u);
    EXPECT_NE(info[0].find(",stc(0),st(0 us)"), std::string::npos) << info[0];
    clearLogs();
    // 201 us is.
    ts += kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi - 250000 - 201000), Sleeps{201});
    clearLogs();
    // Later than a frame interval after the previous return: no sleep, no warning.
    ts += kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi + 5 * kMs), Sleeps{});
    EXPECT_TRUE(lines(5).empty());
    info = lines(4);
    ASSERT_EQ(info.size(), 1u);
    EXPECT_NE(info[0].find(",st(0 us)"), std::string::npos) << info[0];
}

TEST_F(FrameControllerTest, SleepAtOrAboveMaxSleepWarnsInstead) {
    setProperty("debug.camera.fctrl.smaxms", 10);
    make();
    int64_t ts = startPacing();
    // s one below the maximum is slept.
    ts += kFi;
    EXPECT_EQ(frame(ts, vclock::now() + kFi - 250000 - 10 * kMs + 1), Sleeps{9999});
    EXPECT_TRUE(lines(5).empty());
    // s exactly at the maximum is not, and raises the warning pair.
    ts += kFi;
    const int64_t ct = vclock::now() + kFi - 250000 - 10 * kMs;
    EXPECT_EQ(frame(ts, ct), Sleeps{});
    const std::string detail = "[bufferControl][cam] ct(" + std::to_string(ct) + "),cft(" +
                               std::to_string(ts) + "),lft(" + std::to_string(ts - kFi) +
                               "),cddt(" + std::to_string(ct - ts) +
                               "),nddt(108333333),fi(33333333),ti(23083333)";
    EXPECT_EQ(lines(5), (std::vector<std::string>{
                                "[bufferControl][cam] Check Frame conrol parameters, something "
                                "wrong",
                                detail}));
}

TEST_F(FrameControllerTest, AdjustModeShortensSleepsUntilTheDelayIsBackAtTarget) {
    setProperty("debug.camera.fctrl.loglevel", 2);
    make();
    const int64_t ts6 = startPacing();
    // Handed over 84 ms old: past target + 5 ms (83.3 ms) but under the reset threshold.
    const int64_t ts7 = ts6 + kFi;
    EXPECT_EQ(frame(ts7, ts7 + 84 * kMs), Sleeps{});
    auto info = lines(4);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info[0], "[bufferControl][cam] start to adj frame delay");
    EXPECT_NE(info[1].find(",stc(1),st(0 us)"), std::string::npos) << info[1];
    clearLogs();

    // 20 ms after the return: 13083 us less the adjustment.
    const int64_t ts8 = ts7 + kFi;
    EXPECT_EQ(frame(ts8, vclock::now() + 20 * kMs), Sleeps{12083});
    info = lines(4);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_NE(info[1].find(",stc(1),st(12083 us)"), std::string::npos) << info[1];
    clearLogs();

    // Each frame 20 ms after the return leaves 1.25 ms earlier than the one before; the
    // fourth is under the target (78.3 ms) and ends adjust mode.
    int64_t ts = ts8;
    for (int i = 0; i < 4; ++i) {
        ts += kFi;
        EXPECT_EQ(frame(ts, vclock::now() + 20 * kMs), Sleeps{12083}) << i;
        info = lines(4);
        ASSERT_EQ(info.size(), i < 3 ? 2u : 3u) << i;
        if (i == 3) {
            EXPECT_EQ(info[0], "[bufferControl][cam] stop adj frame delay");
        }
        EXPECT_NE(info.back().find(i < 3 ? ",stc(1)," : ",stc(0),"), std::string::npos)
                << info.back();
        clearLogs();
    }
    EXPECT_EQ(frame(ts + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, ResetModeStopsSleepingUntilTheDelayFallsToTheMiddle) {
    setProperty("debug.camera.fctrl.loglevel", 2);
    setProperty("debug.camera.fctrl.fmd", 10);
    make();
    const int64_t ts6 = startPacing();
    const int64_t ts7 = ts6 + kFi;
    EXPECT_EQ(frame(ts7, ts7 + 80 * kMs), Sleeps{});
    clearLogs();

    // A 20 ms interval lowers the target to 65 ms and the reset threshold to 75 ms; the sleep
    // projects the delay to 79.75 ms. Reset mode starts, and the sleep decided is still taken.
    const int64_t ts8 = ts7 + 20 * kMs;
    EXPECT_EQ(frame(ts8, vclock::now() + 5 * kMs), Sleeps{14750});
    auto info = lines(4);
    ASSERT_EQ(info.size(), 3u);
    EXPECT_EQ(info[0], "[bufferControl][cam] start to reset frame delay");
    EXPECT_EQ(info[1], "[bufferControl][cam] start sleep");
    EXPECT_NE(info[2].find(",cddt(79750000),oddt(65000000),nddt(75000000),max(70000000),"
                           "min(65000000),fi(20000000),ti(5000000),stc(0),st(14750 us)"),
              std::string::npos)
            << info[2];
    clearLogs();

    // In reset mode nothing is slept; middle of 78.3 and 88.3 ms is 83.3 ms.
    const int64_t ts9 = ts8 + kFi;
    const int64_t ct9 = ts9 + 83333334;
    EXPECT_EQ(frame(ts9, ct9), Sleeps{});
    EXPECT_EQ(lines(4), std::vector<std::string>{
                                "[bufferControl][cam]  on:ct(" + std::to_string(ct9) + "),cft(" +
                                std::to_string(ts9) +
                                "),cddt(83333334),oddt(78333333),fi(33333333),ti(5000000)"});
    clearLogs();

    const int64_t ts10 = ts9 + kFi;
    EXPECT_EQ(frame(ts10, ts10 + 83333333), Sleeps{});
    info = lines(4);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info[1], "[bufferControl][cam] stop reset frame delay");
    clearLogs();

    // Pacing again, with adjust mode off: 20 ms after the return sleeps the full 13083 us.
    EXPECT_EQ(frame(ts10 + kFi, vclock::now() + 20 * kMs), Sleeps{13083});
}

TEST_F(FrameControllerTest, PacingKeysAreReadWhenPacingStartsAndStoredAsRead) {
    setProperty("debug.camera.fctrl.loglevel", 2);
    make();
    // Set after construction: still taken, since they are read when pacing starts.
    setProperty("debug.displaydelay.ms", 7);
    setProperty("debug.displaydelay.adjdelay", -1);
    setProperty("debug.displaydelay.p2", 1000);
    int64_t ts = kStart;
    for (int i = 0; i < 5; ++i, ts += kFi) frame(ts, ts + 10 * kMs);
    EXPECT_EQ(frame(ts, ts + 10 * kMs), Sleeps{7000});
    EXPECT_EQ(lines(4), (std::vector<std::string>{"[bufferControl][cam] FirstFrameDelay(7)ms",
                                                  "[bufferControl][cam] FirstFrameDelay(7)ms"}));
    clearLogs();
    frame(ts + kFi, vclock::now() + 20 * kMs);
    // target = 1000 ns + 33333333 ns + 7 ms; the band above it is -1 ns wide.
    auto info = lines(4);
    ASSERT_FALSE(info.empty());
    EXPECT_NE(info.back().find(",oddt(40334333),nddt(70334333),max(40334332),min(40334333),"),
              std::string::npos)
            << info.back();
}

// Runs in a child whose camera log level lets debug lines through.
class FrameControllerDebugTest : public FrameControllerTest {
protected:
    void SetUp() override {
        if (NSCam::Utils::ULog::cameraLogLevel() < 3) GTEST_SKIP() << "needs log level 3";
        FrameControllerTest::SetUp();
    }
};

TEST_F(FrameControllerDebugTest, StageLines) {
    make();
    const int64_t delays[] = {10 * kMs, 11 * kMs, 12 * kMs, 13 * kMs, 15 * kMs + 3};
    int64_t ts = kStart;
    for (int64_t d : delays) frame(ts, ts + d), ts += kFi;
    frame(ts, ts + 13 * kMs);
    std::vector<std::string> expected(5, "[bufferControl][cam] framecontrol stage(1)");
    expected.push_back("[bufferControl][cam] mAverageDisplayTime(12200000)");
    expected.push_back("[bufferControl][cam] framecontrol stage(2)");
    expected.push_back(
            "[bufferControl][cam] currentDisplayDelay(13000000),mAverageDisplayTime(12200000)");
    EXPECT_EQ(lines(3), expected);

    // Pacing lines are debug lines at the default controller log level.
    clearLogs();
    ts += kFi;
    frame(ts, ts + 10 * kMs);
    frame(ts + kFi, vclock::now() + 20 * kMs);
    auto debug = lines(3);
    ASSERT_EQ(debug.size(), 4u);
    EXPECT_EQ(debug[2], "[bufferControl][cam] start sleep");
    EXPECT_EQ(debug[3].rfind("[bufferControl][cam] off:ct(", 0), 0u) << debug[3];
}

TEST(FrameControllerLevelTest, DebugLinesAtCameraLogLevelThree) {
    EXPECT_TRUE(runWithCameraLogLevel("FrameControllerDebugTest.*", 3));
}

}  // namespace
