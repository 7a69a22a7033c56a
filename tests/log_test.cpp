#include "LogCapture.h"
#include "LogMacros.h"
#include "TempDir.h"

#include <zorcam/utils/std/Log.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace zorcam_test;

namespace {

constexpr const char* kTag = "ZorCam/Utils";

void writeAllLevels() {
    CAM_ULOGE(kTag, "[%s] e", __func__);
    CAM_ULOGW(kTag, "[%s] w", __func__);
    CAM_ULOGI(kTag, "[%s] i", __func__);
    CAM_ULOGD(kTag, "[%s] d", __func__);
    CAM_ULOGV(kTag, "[%s] v", __func__);
}

// The last letters of the lines written, so "ewi" means error, warning and info.
template <typename Line>
std::string levelsOf(const std::vector<Line>& lines) {
    std::string s;
    for (const auto& l : lines) s += stripLocation(l.text).back();
    return s;
}

}  // namespace

class LogFrontEndTest : public LogCaptureTest {};

TEST_F(LogFrontEndTest, GateAndSinksFollowTheSwitches) {
    const struct { uint32_t mode, level, mask; const char *android, *ulog; } cases[] = {
        {0x0, 6, 0x40007000, "", ""},
        {0x1, 0, 0x40007000, "e", ""},              // errors ignore the level
        {0x2, 0, 0x40007000, "", "e"},
        {0x3, 4, 0x40007000, "ewi", "ewi"},         // 4 is below debug's 5
        {0x3, 6, 0x00007000, "ew", "ew"},           // bit 30 clear: the module test fails
        {0x3, 6, 0x40000000, "ew", "ew"},           // no category bit
        {0x3, 6, 0x40001000, "ewid", "ewidv"},      // verbose never reaches the Android log
        {0x8, 6, 0xFFFFFFFF, "", "ewidv"},          // any bit of 0xE selects the logger
        {0x1, 0xFFFFFFFF, 0xFFFFFFFF, "ewid", ""},  // the level is compared unsigned
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << "mode " << c.mode << " level " << c.level
                                        << " mask " << c.mask);
        setULog(c.mode, c.level, c.mask);
        clearLogs();
        writeAllLevels();
        EXPECT_EQ(levelsOf(androidLines()), c.android);
        EXPECT_EQ(levelsOf(ulogLines()), c.ulog);
        // Each line's priority and details type follow its level letter, e w i d v.
        const std::string letters = "ewidv";
        const int prios[] = {6, 5, 4, 3};
        const uint32_t types[] = {1, 2, 3, 5, 6};
        for (const auto& l : androidLines())
            EXPECT_EQ(l.prio, prios[letters.find(stripLocation(l.text).back())]) << l.text;
        for (const auto& l : ulogLines()) {
            EXPECT_EQ(l.type, types[letters.find(l.text.back())]) << l.text;
            EXPECT_TRUE(l.moduleId == 0x40007001u && l.tag == kTag &&
                        l.length == static_cast<int64_t>(l.text.size()));
        }
    }
}

TEST_F(LogFrontEndTest, OnlyTheAndroidErrorLineHasTheSuffixAndOnlyULogCutsTo1023) {
    // Only the Android copy of an error carries the location, and only the unified logger's
    // copy is cut to 1023 characters.
    const std::string text = "[TestBody] " + std::string(2000, 'x');
    CAM_ULOGE(kTag, "[%s] %s", __func__, text.c_str() + 11);
    CAM_ULOGW(kTag, "[%s] w", __func__);
    EXPECT_EQ(androidLines().at(0).text,
              withLocation(text, "TestBody", __LINE__ - 3, "tests/log_test.cpp"));
    EXPECT_EQ(androidLines().at(1).text, "[TestBody] w");
    EXPECT_TRUE(ulogLines().at(0).text == text.substr(0, 1023) && ulogLines()[0].length == 1023);
}

TEST_F(LogFrontEndTest, StoppedMessagesEvaluateNoArgument) {
    int evaluated = 0;
    auto arg = [&evaluated] { return ++evaluated; };
    setULog(0x3, 2, 0x40007000);
    CAM_ULOGD(kTag, "[%s] %d", __func__, arg());
    setULog(0x3, 6, 0x00007000);
    CAM_ULOGI(kTag, "[%s] %d", __func__, arg());
    setULog(0x0, 6, 0x40007000);
    CAM_ULOGE(kTag, "[%s] %d", __func__, arg());
    setULog(0x1, 6, 0x40007000);
    CAM_ULOGV(kTag, "[%s] %d", __func__, arg());  // verbose skips the Android log
    CAM_PLOGD(kTag, "[%s] %d", __func__, arg());  // camera log level 2 stops debug
    EXPECT_EQ(evaluated, 0);
    expectNoLines();
}

// Camera threads log while the unified logger's switches change under them. An error always
// passes and bit 0 stays set, so each error reaches the Android log exactly once; everything
// else may or may not pass, but at most once, whole, and verbose lines never reach the Android
// log.
TEST_F(LogFrontEndTest, EightThreadsLogWhileTheSwitchesChange) {
    constexpr int kThreads = 8, kLines = 400;
    std::atomic<int> running{kThreads}, flips{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &running, &flips] {
            for (int i = 0; i < kLines; ++i) {
                // Every eighth line waits for one more change, so the switches change at
                // least fifty times while each thread logs, however the threads are scheduled.
                while (flips.load() < i / 8) std::this_thread::yield();
                CAM_ULOGE(kTag, "[%s] e %d %d", "log", t, i);
                CAM_ULOGV(kTag, "[%s] v %d %d", "log", t, i);
            }
            --running;
        });
    for (uint32_t flip = 1; running.load() > 0; ++flip) {
        setULog(flip & 1 ? 0x3 : 0x1, flip & 2 ? 6 : 0, flip & 4 ? 0x40007000 : 0);
        ++flips;
    }
    for (auto& t : threads) t.join();

    // Each (letter, thread, line) seen once per sink, with the text and type its letter has.
    auto tally = [](const std::string& text, std::map<std::string, int>& seen) {
        char letter = 0;
        int t = -1, i = -1, end = 0;
        const bool parsed = sscanf(text.c_str(), "[log] %c %d %d%n", &letter, &t, &i, &end) == 3;
        EXPECT_TRUE(parsed && t >= 0 && t < kThreads && i >= 0 && i < kLines &&
                    static_cast<size_t>(end) == text.size()) << text;
        EXPECT_EQ(++seen[text.substr(0, end)], 1) << text;
        return letter;
    };
    std::map<std::string, int> android, ulog;
    for (const auto& l : androidLines()) {
        EXPECT_EQ(tally(stripLocation(l.text), android), 'e') << l.text;
        EXPECT_TRUE(l.prio == 6 && l.text != stripLocation(l.text)) << l.text;
    }
    EXPECT_EQ(android.size(), size_t{kThreads * kLines});
    for (const auto& l : ulogLines()) {
        const char letter = tally(l.text, ulog);
        EXPECT_EQ(l.type, letter == 'e' ? 1u : 6u) << l.text;
        EXPECT_EQ(l.length, static_cast<int64_t>(l.text.size())) << l.text;
    }
}

TEST_F(LogFrontEndTest, PropertyGatedPathWritesTheAndroidLogOnly) {
    setULog(0x0, 0, 0);  // the unified logger's switches do not gate this path
    constexpr const char* kDrawTag = "ZorCam/DebugDrawID";
    CAM_PLOGE(kDrawTag, "[%s] bad %d", __func__, 1);
    CAM_PLOGW(kDrawTag, "[%s] w", __func__);
    CAM_PLOGI(kDrawTag, "[%s] info", __func__);
    const auto a = androidLines();
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[0].text, withLocation("[TestBody] bad 1", "TestBody", __LINE__ - 5,
                                      "tests/log_test.cpp"));
    EXPECT_TRUE(a[0].prio == 6 && a[1].prio == 5 && a[2].prio == 4);
    EXPECT_EQ(a[2].text, "[TestBody] info");
    EXPECT_TRUE(ulogLines().empty());
}

TEST(ZorcamTestLog, EngLoadSwitchLeavesTheLevelAlone) {
    setLogLevelToEngLoad();
    EXPECT_EQ(zorcam_testLog("t", 'D'), 0);
}

// The camera log level is read once at load, so each value needs a fresh process: the probe
// prints zorcam_testLog for E W I D V and two letters that are no level (X, e), and stderr
// carries the load-time debug line.
TEST(LoadTimeLogLevel, EachValueInAFreshProcess) {
    const struct { const char *value, *letters, *logged; } cases[] = {
        {nullptr, "1110000\n", "-1"}, {"0", "1000000\n", "0"},   {"1", "1100000\n", "1"},
        {"3", "1111000\n", "3"},
        {"4", "1111100\n", "4"},      {"-5", "1000000\n", "-5"}, {"junk", "1110000\n", "-1"}};
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value ? c.value : "unset");
        std::ofstream(dir / "props")
                << "vendor.debug.zorcam.ulog.mode=2\nvendor.debug.zorcam.ulog.level=5\n"
                << (c.value ? std::string("persist.vendor.zor.camera.log_level=") + c.value : "");
        const std::string cmd = "ZORCAM_PROPERTIES=" + (dir / "props") +
                                " " ZORCAM_TEST_EMULATOR " " LOGLEVEL_PROBE " >" + (dir / "out") +
                                " 2>" + (dir / "err");
        ASSERT_EQ(system(cmd.c_str()), 0);
        EXPECT_EQ(zorcam_test::readFile(dir / "out"), c.letters);
        EXPECT_NE(zorcam_test::readFile(dir / "err").find(std::string("[load] ###### get camera log property =") +
                                          c.logged + "\n"),
                  std::string::npos);
    }
}
