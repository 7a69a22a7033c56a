#include <zorcam/utils/std/Profile.h>

#include "LogCapture.h"
#include "VirtualClock.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

using NSCam::Utils::CameraProfile;
using NSCam::Utils::CamProfile;
using namespace zorcam_test;
namespace ULog = NSCam::Utils::ULog;

constexpr int64_t kUs = 1000, kMs = 1000000;

using ProfileTest = LogCaptureTest;

// Every checkpoint line of both profiles, one call a row after the clock moved on: its answer
// and its one line, written to both sinks (an Android log line of a CameraProfile has the
// prefix), or none. CamProfile's clock is 32-bit microseconds, and starts 1 ms before it wraps.
TEST_F(ProfileTest, CheckpointLines) {
    vclock::set((int64_t{1} << 32) * kUs - kMs);
    // The lines written since the last call, the Android log's ("A<priority> <tag>: text") and
    // then the unified logger's ("U<type> <tag>: text"). Clears the capture.
    auto seen = [this] {
        std::string out;
        for (const auto& l : androidLines())
            out += "A" + std::to_string(l.prio) + " " + l.tag + ": " + l.text + "\n";
        for (const auto& l : ulogLines()) {
            out += "U" + std::to_string(l.type) + " " + l.tag + ": " + l.text + "\n";
            EXPECT_EQ(l.moduleId, 0x40007001u) << l.text;
        }
        clearLogs();
        return out;
    };
    const CamProfile over("f", "C"), cam("configure", "Pipeline");
    std::optional<CameraProfile> camera;
    const auto D = ULog::DETAILS_DEBUG, I = ULog::DETAILS_INFO, W = ULog::DETAILS_WARNING;
    const int prio[] = {0, 6, 5, 4, 0, 3};  // of each type
    const struct { int64_t advance; std::function<void()> call; ULog::DetailsType type;
                   const char* line; } calls[] = {
            {15 * kMs, [&] { EXPECT_TRUE(over.print_overtime(10, "slow %s", "start")); }, I,
             "{CamProfile}[C::f] slow start: (0-th) ===> (overtime > 10 ms) [start-->now: 15 ms]"},
            // 1.999 ms counts as 1 ms, not over 1; numbered all the same.
            {1999 * kUs, [&] { EXPECT_FALSE(over.print_overtime(1, "fast")); }, I, ""},
            {15 * kMs, [&] { EXPECT_TRUE(over.print_overtime(10, "slow")); }, I,
             "{CamProfile}[C::f] slow: (2-th) ===> ( overtime > 10 ms) [start-->now: 31 ms] "
             "[last-->now: 15 ms]"},
            {1999 * kUs, [&] { EXPECT_TRUE(cam.print("open %d", 1)); }, D,
             "{CamProfile}[Pipeline::configure] open 1: (0-th) ===> [start-->now: 33 ms]"},
            // Debug kept back: not numbered, but the step restarts.
            {7 * kMs, [&] { setULog(0x3, 3, 0x40007000); EXPECT_TRUE(cam.print("hid")); }, D, ""},
            {2500 * kUs, [&] { setULog(0x3, 6, 0x40007000); EXPECT_TRUE(cam.print("map")); }, D,
             "{CamProfile}[Pipeline::configure] map: (1-th) ===> [start-->now: 43 ms] "
             "[last-->now: 2 ms]"},
            // Past what 32 bits of microseconds hold.
            {((int64_t{1} << 31) + 1000) * kUs, [&] { EXPECT_TRUE(cam.print("b")); }, D,
             "{CamProfile}[Pipeline::configure] b: (2-th) ===> [start-->now: -2147439 ms] "
             "[last-->now: -2147482 ms]"},
            {0, [&] { camera.emplace("Cam/Test", "pre: "); }, D, ""},
            {1234567, [&] { camera->print('D', "x%d", 1); }, D, "@0 x1 [start-->now: 1234 us]"},
            {kMs, [&] { camera->stopWatch(); }, D, ""},
            {2999, [&] { camera->print('X', "y"); }, D,
             "@1 y [start-->now: 2237 us][last-->now: 2 us]"},
            // Under the threshold: numbered, not printed.
            {500 * kUs, [&] { camera->print_overtime('W', 1000000, "fast"); }, W, ""},
            {1000001, [&] { camera->print_overtime('W', 1000000, "slow"); }, W,
             "@3 slow (overtime > 1000000 ns) [start-->now: 3737 us][last-->now: 1000 us]"}};
    for (const auto& c : calls) {
        vclock::advance(c.advance);
        c.call();
        // A CameraProfile's lines have its tag, and its prefix on the Android log.
        const std::string line = c.line, tag = line[0] == '@' ? " Cam/Test: " : " ZorCam/Utils: ";
        const std::string pre = line[0] == '@' ? "pre: " : "", type = std::to_string(c.type);
        const std::string want = "A" + std::to_string(prio[c.type]) + tag + pre + line + "\nU" +
                                 type + tag + line + "\n";
        EXPECT_EQ(seen(), line.empty() ? "" : want);
    }
    // The letter picks the unified-log type (E W I V D and any other: error 1, warning 2, info 3,
    // verbose 6, debug 5); the Android priority follows from it.
    for (const char letter : std::string("EWIVDX")) camera->print(letter, "n");
    std::string types;
    for (const auto& l : ulogLines()) types += std::to_string(l.type);
    EXPECT_EQ(types, "123655");
    clearLogs();
    setULog(0x0, 0, 0);  // gates every letter but 'F'
    camera->print('E', "gone");
    camera->print('F', "fatal %s", "x");
    EXPECT_EQ(seen(), "A7 Cam/Test: pre: @11 fatal x [start-->now: 3737 us][last-->now: 0 us]\n");
}
