#include "LogCapture.h"
#include "LogMacros.h"
#include "TempDir.h"

#include <atomic>
#include <cstdio>
#include <map>
#include <thread>

using namespace zorcam_test;
using LogFrontEndTest = LogCaptureTest;

static constexpr const char* kTag = "ZorCam/Utils";


// One line of each level (e w i d v) under each set of switches: which reach each sink, with
// the priority and details type of their level.
TEST_F(LogFrontEndTest, GateAndSinksFollowTheSwitches) {
    const struct { uint32_t mode, level, mask; const char *android, *ulog; } cases[] = {
        // No sink; errors ignore the level, on either sink; 4 is below debug's 5.
        {0x0, 6, 0x40007000, "", ""}, {0x1, 0, 0x40007000, "e", ""},
        {0x2, 0, 0x40007000, "", "e"}, {0x3, 4, 0x40007000, "ewi", "ewi"},
        // Bit 30 clear (the module test fails); no category bit; verbose never reaches the
        // Android log.
        {0x3, 6, 0x00007000, "ew", "ew"}, {0x3, 6, 0x40000000, "ew", "ew"},
        {0x3, 6, 0x40001000, "ewid", "ewidv"},
        // Any bit of 0xE selects the logger; the level is compared unsigned.
        {0x8, 6, 0xFFFFFFFF, "", "ewidv"}, {0x1, 0xFFFFFFFF, 0xFFFFFFFF, "ewid", ""}};
    const std::string letters = "ewidv", prios = "6543", types = "12356";
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.mode << " " << c.level << " " << c.mask);
        setULog(c.mode, c.level, c.mask);
        clearLogs();
        CAM_ULOGE(kTag, "[%s] %c", __func__, 'e');
        CAM_ULOGW(kTag, "[%s] %c", __func__, 'w');
        CAM_ULOGI(kTag, "[%s] %c", __func__, 'i');
        CAM_ULOGD(kTag, "[%s] %c", __func__, 'd');
        CAM_ULOGV(kTag, "[%s] %c", __func__, 'v');
        std::string android, ulog;
        for (const auto& l : androidLines()) {
            android += stripLocation(l.text).back();
            EXPECT_TRUE(char('0' + l.prio) == prios[letters.find(android.back())] && l.tag == kTag)
                    << l.text;
        }
        for (const auto& l : ulogLines()) {
            ulog += l.text.back();
            EXPECT_TRUE(char('0' + l.type) == types[letters.find(ulog.back())] && l.tag == kTag &&
                        l.moduleId == 0x40007001u && l.length == int64_t(l.text.size())) << l.text;
        }
        EXPECT_EQ(android, c.android);
        EXPECT_EQ(ulog, c.ulog);
    }
}

TEST_F(LogFrontEndTest, OnlyTheAndroidErrorLineHasTheSuffixAndOnlyULogCutsTo1023) {
    const std::string text = "[TestBody] " + std::string(2000, 'x');
    CAM_ULOGE(kTag, "[%s] %s", __func__, text.c_str() + 11);
    CAM_ULOGW(kTag, "[%s] w", __func__);
    EXPECT_EQ(androidLines().at(0).text, text + " (TestBody){#" + std::to_string(__LINE__ - 2) +
                                                 ":tests/log_test.cpp}");
    EXPECT_EQ(androidLines().at(1).text, "[TestBody] w");
    EXPECT_TRUE(ulogLines().at(0).text == text.substr(0, 1023) && ulogLines()[0].length == 1023);
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
    for (uint32_t flip = 1; running.load() > 0; ++flip, ++flips)
        setULog(flip & 1 ? 0x3 : 0x1, flip & 2 ? 6 : 0, flip & 4 ? 0x40007000 : 0);
    for (auto& t : threads) t.join();

    // Each (letter, thread, line) seen once per sink ('a' or 'u'), whole; returns the letter.
    std::map<std::string, int> seen;
    auto tally = [&seen](char sink, const std::string& text) {
        char letter = 0;
        int t = -1, i = -1, end = 0;
        sscanf(text.c_str(), "[log] %c %d %d%n", &letter, &t, &i, &end);
        EXPECT_TRUE(t >= 0 && t < kThreads && i >= 0 && i < kLines &&
                    static_cast<size_t>(end) == text.size() && ++seen[sink + text] == 1) << text;
        return letter;
    };
    const auto android = androidLines();
    EXPECT_EQ(android.size(), size_t{kThreads * kLines});
    for (const auto& l : android)
        EXPECT_TRUE(tally('a', stripLocation(l.text)) == 'e' && l.prio == 6 &&
                    l.text != stripLocation(l.text)) << l.text;
    for (const auto& l : ulogLines())
        EXPECT_TRUE(l.type == (tally('u', l.text) == 'e' ? 1u : 6u) &&
                    l.length == static_cast<int64_t>(l.text.size())) << l.text;
}

// The property-gated path writes the Android log only, whatever the unified logger's switches;
// at the default camera log level 2, which the engineering-load switch leaves alone, debug and
// verbose lines are stopped before their arguments are evaluated.
TEST_F(LogFrontEndTest, PropertyGatedPathWritesTheAndroidLogOnly) {
    setULog(0x0, 0, 0);
    setLogLevelToEngLoad();
    int evaluated = 0;
    CAM_PLOGE(kTag, "[%s] bad %d", __func__, 1);
    CAM_PLOGW(kTag, "[%s] w", __func__);
    CAM_PLOGI(kTag, "[%s] info", __func__);
    CAM_PLOGD(kTag, "[%s] %d", __func__, ++evaluated);
    CAM_PLOGV(kTag, "[%s] %d", __func__, ++evaluated);
    std::string lines;
    for (const auto& l : androidLines()) lines += std::to_string(l.prio) + " " + l.text + "\n";
    EXPECT_EQ(lines, "6 [TestBody] bad 1 (TestBody){#" + std::to_string(__LINE__ - 7) +
                             ":tests/log_test.cpp}\n5 [TestBody] w\n4 [TestBody] info\n");
    EXPECT_TRUE(ulogLines().empty() && evaluated == 0);
}

// The camera log level is read once at load, so each value needs a fresh process: the probe
// prints zorcam_testLog for E W I D V and two letters that are no level (X, e), and stderr
// carries the load-time debug line.
TEST(LoadTimeLogLevel, EachValueInAFreshProcess) {
    TempDir dir;
    for (auto [value, letters] : {std::pair<std::string, const char*>{"", "1110000\n"},
                                  {"0", "1000000\n"}, {"1", "1100000\n"}, {"3", "1111000\n"},
                                  {"4", "1111100\n"}, {"-5", "1000000\n"}}) {
        std::ofstream(dir / "props") << "vendor.debug.zorcam.ulog.mode=2\n"
                                        "vendor.debug.zorcam.ulog.level=5\n"
                                        "persist.vendor.zor.camera.log_level=" << value;
        ASSERT_EQ(system(("ZORCAM_PROPERTIES=" + (dir / "props") + " " ZORCAM_TEST_EMULATOR
                          " " LOGLEVEL_PROBE " >" + (dir / "out") + " 2>" + (dir / "err")).c_str()),
                  0);
        EXPECT_EQ(readFile(dir / "out"), letters) << value;
        EXPECT_NE(readFile(dir / "err").find("[load] ###### get camera log property =" +
                                             (value.empty() ? "-1" : value) + "\n"),
                  std::string::npos) << value;
    }
}
