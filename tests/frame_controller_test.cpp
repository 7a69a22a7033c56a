#include <zorcam/utils/std/FrameController.h>
#include <zorcam/utils/std/Log.h>

#include "LogCapture.h"
#include "VirtualClock.h"

#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using NSCam::Utils::FrameController;
using namespace zorcam_test;
using Sleeps = std::vector<int64_t>;
using Lines = std::vector<std::string>;

// Every line of the property-gated path is written: the camera's own level (2 in tests) would
// keep the debug lines back.
extern "C" int zorcam_testLog(const char* /*tag*/, int /*level*/) { return 1; }

constexpr int64_t kMs = 1000000, kFi = 33333333;
const std::string kP = "[bufferControl][cam] ";

class FrameControllerTest : public LogCaptureTest {
protected:
    void SetUp() override { LogCaptureTest::SetUp(); vclock::set(1 << 30); vclock::takeSleeps(); }
    void TearDown() override {
        for (const auto& key : mKeys) property_set(key.c_str(), "");
        LogCaptureTest::TearDown();
    }
    void props(std::initializer_list<std::pair<const char*, long long>> values) {
        for (const auto& [key, v] : values)
            mKeys.push_back(key), property_set(key, std::to_string(v).c_str());
    }
    // Hands over a frame stamped ts at virtual time at; the sleeps it took. Only the lines of
    // this frame stay recorded.
    Sleeps frame(int64_t ts, int64_t at) {
        clearLogs();
        vclock::set(at);
        mFc->bufferControl(ts);
        return vclock::takeSleeps();
    }
    // The lines of this priority, or of all each after its priority, without the prefix
    // "[bufferControl][cam] " of the pacing lines.
    Lines lines(int prio = 0) {
        Lines out;
        for (const auto& l : androidLines("ZorCam/FrameController")) {
            const std::string text = l.text.substr(l.text.rfind(kP, 0) ? 0 : kP.size());
            if (prio == 0 || l.prio == prio)
                out.push_back(prio ? text : std::to_string(l.prio) + " " + text);
        }
        return out;
    }

    std::vector<std::string> mKeys;
    android::sp<FrameController> mFc;
};

// One stream at log level 2: stage 1 measures five frames and stage 2 waits for one at most
// their average old (debug lines at any level); then pacing, adjust and reset mode, with the
// pacing lines of every frame as info lines. Construction keys of -1 keep their defaults.
TEST_F(FrameControllerTest, MeasuresThenPacesBetweenMinAndMaxSleepThroughAdjustAndResetModes) {
    props({{"debug.camera.fctrl.loglevel", 2}, {"debug.camera.fctrl.smaxms", 15},
           {"debug.camera.fctrl.fmd", 10}, {"debug.camera.fctrl.sminus", -1}});
    mFc = new FrameController(android::String8("cam"));
    EXPECT_EQ(lines(4), Lines{"[FrameController][cam] - miLogLevel(2), max delay(10000000), max "
                              "sleep(15000000 ns), min sleep(200 us), adj sleep(250000 ns)"});
    // Frames a frame interval apart, each `age` old; the five measured average 12200000 ns,
    // truncated.
    const Lines one{"3 framecontrol stage(1)"};
    const struct { int64_t age, sleep; Lines lines; } first[] = {
            {10 * kMs, 0, one}, {11 * kMs, 0, one}, {12 * kMs, 0, one}, {13 * kMs, 0, one},
            {15 * kMs + 3, 0, {one[0], "3 mAverageDisplayTime(12200000)"}},
            {12200001, 0, {"3 framecontrol stage(2)",
                           "3 currentDisplayDelay(12200001),mAverageDisplayTime(12200000)"}},
            {12200000, 15000, {"3 framecontrol stage(2)",
                               "3 currentDisplayDelay(12200000),mAverageDisplayTime(12200000)",
                               "4 FirstFrameDelay(15)ms", "4 FirstFrameDelay(15)ms"}}};
    int64_t ts = vclock::now() - kFi;
    for (const auto& f : first) {
        ts += kFi;
        EXPECT_EQ(frame(ts, ts + f.age), f.sleep ? Sleeps{f.sleep} : Sleeps{});
        EXPECT_EQ(lines(), f.lines);
    }
    // Each frame, n times over, comes fi after the previous one, `after` the previous return or,
    // when that is 0, `age` after its stamp: the sleep it takes, its transition line and the end
    // of its last line. Sleeping can fill what is left of fi less mAdjSleep.
    const int64_t left = kFi - 250000;
    const struct { int64_t fi, after, age, sleep; const char *event, *tail; int n = 1; } cases[] = {
            {kFi, 20 * kMs, 0, 13083, "",
             ",cddt(26949667),oddt(78333333),nddt(88333333),max(83333333),min(78333333),"
             "fi(33333333),ti(20000000),stc(0),st(13083 us)"},
            {kFi, left - 200999, 0, 0, "", ",stc(0),st(0 us)"},  // 200 us: at mMinSleep
            {kFi, left - 201000, 0, 201, "", ",stc(0),st(201 us)"},
            {kFi, kFi + 5 * kMs, 0, 0, "", ",stc(0),st(0 us)"},  // negative slack
            {kFi, left - 15 * kMs + 1, 0, 14999, "", ",stc(0),st(14999 us)"},
            {kFi, left - 15 * kMs, 0, 0, "", ",stc(0),st(0 us)"},  // at mMaxSleep: warns
            // Above target + 5 ms (83.3 ms), under the reset threshold; then each frame 20 ms
            // after the return leaves 1.25 ms earlier until the fifth is at the target.
            {kFi, 0, 84 * kMs, 0, "start to adj frame delay", ",stc(1),st(0 us)"},
            {kFi, 20 * kMs, 0, 12083, "", ",stc(1),st(12083 us)", 4},
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
    for (const auto& c : cases) for (int k = 0; k < c.n; ++k) {
        SCOPED_TRACE(&c - cases);
        ts += c.fi;
        const int64_t ct = c.after ? vclock::now() + c.after : ts + c.age;
        EXPECT_EQ(frame(ts, ct), c.sleep ? Sleeps{c.sleep} : Sleeps{});
        const Lines info = lines(4);
        Lines events = *c.event ? Lines{c.event} : Lines{}, seen;
        if (c.sleep) events.push_back("start sleep");
        const std::string now = "ct(" + std::to_string(ct) + "),cft(" + std::to_string(ts);
        for (const auto& l : info)
            if (l.find("ct(") == std::string::npos) seen.push_back(l);
            else EXPECT_TRUE(l.rfind("off:" + now + "),cddt(", 0) == 0 ||
                             l.rfind(" on:" + now + "),cddt(", 0) == 0) << l;
        EXPECT_EQ(seen, events);
        EXPECT_THAT(info.empty() ? "" : info.back(), testing::EndsWith(c.tail));
        const Lines warnings{
                "Check Frame conrol parameters, something wrong",
                now + "),lft(" + std::to_string(ts - c.fi) + "),cddt(" + std::to_string(ct - ts) +
                        "),nddt(88333333),fi(33333333),ti(18083333)"};
        EXPECT_EQ(lines(5), c.after == left - 15 * kMs ? warnings : Lines{});
    }
}

// The display thread paces a stream while another thread reads what the controller logs: the
// reader only ever sees whole lines added in order, and the frames sleep and log exactly what
// the same frames do with nobody reading. At log level 1 the pacing lines are debug lines; the
// construction keys are scaled in 64 bits and kept when negative but -1; the display keys are
// read when pacing starts and stored as read, -1 included.
TEST_F(FrameControllerTest, PacesWhileAnotherThreadReadsTheLines) {
    props({{"debug.displaydelay.ms", 7}, {"debug.displaydelay.adjdelay", -1},
           {"debug.displaydelay.p2", 1000}, {"debug.camera.fctrl.smaxms", 2500},
           {"debug.camera.fctrl.sminus", -3}, {"debug.camera.fctrl.adjsleep", 100}});
    const int64_t start = vclock::now();
    auto stream = [start] {
        vclock::set(start);
        android::sp<FrameController> fc = new FrameController(android::String8("cam"));
        for (int64_t i = 0, ts = start; i < 200; ++i, ts += kFi) {
            // Six frames 10 ms old start pacing; then each comes 10 to 24 ms after the return.
            vclock::set(i < 6 ? ts + 10 * kMs : vclock::now() + (10 + i % 15) * kMs);
            fc->bufferControl(ts);
        }
        return vclock::takeSleeps();
    };
    std::atomic<bool> done{false};
    Sleeps concurrent;
    std::thread display([&] { concurrent = stream(); done = true; });
    for (Lines seen; !done.load();) {
        const Lines now = lines(3);
        EXPECT_TRUE(now.size() >= seen.size() && std::equal(seen.begin(), seen.end(), now.begin()));
        seen = now;
    }
    display.join();
    const Lines seen = lines(3);
    EXPECT_EQ(lines(4).at(0), "[FrameController][cam] - miLogLevel(1), max delay(30000000), max "
                              "sleep(2500000000 ns), min sleep(-3 us), adj sleep(100 ns)");
    EXPECT_THAT(seen.back(), testing::HasSubstr(",oddt(40334333),nddt(70334333),max(40334332),"
                                                "min(40334333),fi(33333333),"));
    clearLogs();
    const Sleeps alone = stream();
    EXPECT_TRUE(alone.size() > 100 && alone[0] == 7000);
    EXPECT_EQ(concurrent, alone);
    EXPECT_EQ(seen, lines(3));
}
