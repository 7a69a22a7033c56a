#include "LogCapture.h"
#include "LogMacros.h"

#include <zorcam/utils/std/Log.h>

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

using namespace zorcam_test;
using NSCam::Utils::ULog::DETAILS_DEBUG;
using NSCam::Utils::ULog::DETAILS_ERROR;
using NSCam::Utils::ULog::DETAILS_INFO;
using NSCam::Utils::ULog::DETAILS_VERBOSE;
using NSCam::Utils::ULog::DETAILS_WARNING;

namespace {

constexpr const char* kTag = "ZorCam/Utils";

// Writes one message of each level, in the order E W I D V.
void writeAllLevels() {
    CAM_ULOGE(kTag, "[%s] e", __func__);
    CAM_ULOGW(kTag, "[%s] w", __func__);
    CAM_ULOGI(kTag, "[%s] i", __func__);
    CAM_ULOGD(kTag, "[%s] d", __func__);
    CAM_ULOGV(kTag, "[%s] v", __func__);
}

std::string levelsOf(const std::vector<AndroidLine>& lines) {
    std::string s;
    for (const auto& l : lines) s += stripLocation(l.text).back();
    return s;
}

std::string levelsOf(const std::vector<ULogLine>& lines) {
    std::string s;
    for (const auto& l : lines) s += l.text.back();
    return s;
}

}  // namespace

class LogFrontEndTest : public LogCaptureTest {};

TEST_F(LogFrontEndTest, GateAndSinksFollowTheSwitches) {
    struct Case {
        uint32_t mode, level, mask;
        const char* android;  // levels expected in the Android log
        const char* ulog;     // levels expected at the unified logger
    } cases[] = {
        {0x0, 6, 0x40007000, "", ""},               // no sink: nothing anywhere
        {0x1, 0, 0x40007000, "e", ""},               // errors ignore the level
        {0x2, 0, 0x40007000, "", "e"},
        {0x3, 2, 0x40007000, "ew", "ew"},
        {0x3, 3, 0x40007000, "ewi", "ewi"},
        {0x3, 4, 0x40007000, "ewi", "ewi"},          // 4 is below debug's 5
        {0x3, 6, 0x40007000, "ewid", "ewidv"},       // verbose never reaches the Android log
        {0x3, 6, 0x00007000, "ew", "ew"},            // bit 30 clear: the module test fails
        {0x3, 6, 0x40000000, "ew", "ew"},            // no category bit
        {0x3, 6, 0x40001000, "ewid", "ewidv"},       // one category bit is enough
        {0x8, 6, 0xFFFFFFFF, "", "ewidv"},           // any bit of 0xE selects the logger
        {0x1, 0xFFFFFFFF, 0xFFFFFFFF, "ewid", ""},   // level compared unsigned
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << "mode " << c.mode << " level " << c.level
                                        << " mask " << c.mask);
        setULog(c.mode, c.level, c.mask);
        clearLogs();
        writeAllLevels();
        EXPECT_EQ(levelsOf(androidLines()), c.android);
        EXPECT_EQ(levelsOf(ulogLines()), c.ulog);
    }
}

TEST_F(LogFrontEndTest, LinesCarryPrioritiesTypesModuleAndSuffix) {
    writeAllLevels();
    const int line = __LINE__ - 1;
    auto a = androidLines();
    auto u = ulogLines();
    ASSERT_EQ(a.size(), 4u);
    ASSERT_EQ(u.size(), 5u);
    const int prios[] = {6, 5, 4, 3};
    const DetailsType types[] = {DETAILS_ERROR, DETAILS_WARNING, DETAILS_INFO, DETAILS_DEBUG,
                                 DETAILS_VERBOSE};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(a[i].prio, prios[i]);
        EXPECT_EQ(a[i].tag, kTag);
    }
    // Only the Android copy of an error carries the location, filled with the writer's name,
    // the line of the log statement and the source path.
    EXPECT_EQ(a[0].text.rfind("[writeAllLevels] e (writeAllLevels){#", 0), 0u) << a[0].text;
    EXPECT_NE(a[0].text.find(":tests/log_test.cpp}"), std::string::npos) << a[0].text;
    EXPECT_EQ(a[1].text, "[writeAllLevels] w");
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(u[i].moduleId, 0x40007001u);
        EXPECT_EQ(u[i].tag, kTag);
        EXPECT_EQ(u[i].type, types[i]);
        EXPECT_EQ(u[i].length, static_cast<int64_t>(u[i].text.size()));
    }
    EXPECT_EQ(u[0].text, "[writeAllLevels] e");
    (void)line;

    clearLogs();
    CAM_ULOGE(kTag, "[%s] code %d", __func__, -5);
    EXPECT_EQ(androidLines().at(0).text,
              withLocation("[TestBody] code -5", "TestBody", __LINE__ - 2, "tests/log_test.cpp"));
}

TEST_F(LogFrontEndTest, LongMessageIsCutForTheUnifiedLoggerOnly) {
    const std::string text(2000, 'x');
    CAM_ULOGW(kTag, "%s", text.c_str());
    auto a = androidLines();
    auto u = ulogLines();
    ASSERT_EQ(a.size(), 1u);
    ASSERT_EQ(u.size(), 1u);
    EXPECT_EQ(a[0].text, text);
    EXPECT_EQ(u[0].text, text.substr(0, 1023));
    EXPECT_EQ(u[0].length, 1023);

    clearLogs();
    const std::string exact(1023, 'y');
    CAM_ULOGW(kTag, "%s", exact.c_str());
    EXPECT_EQ(ulogLines().at(0).text, exact);
    EXPECT_EQ(ulogLines().at(0).length, 1023);
}

TEST_F(LogFrontEndTest, StoppedMessagesEvaluateNoArgument) {
    int evaluated = 0;
    auto arg = [&evaluated] { return ++evaluated; };

    setULog(0x3, 2, 0x40007000);
    CAM_ULOGD(kTag, "[%s] %d", __func__, arg());
    CAM_ULOGV(kTag, "[%s] %d", __func__, arg());
    setULog(0x3, 6, 0x00007000);
    CAM_ULOGI(kTag, "[%s] %d", __func__, arg());
    setULog(0x0, 6, 0x40007000);
    CAM_ULOGE(kTag, "[%s] %d", __func__, arg());
    // Verbose is not evaluated for the Android log, which it never reaches.
    setULog(0x1, 6, 0x40007000);
    CAM_ULOGV(kTag, "[%s] %d", __func__, arg());
    CAM_PLOGD(kTag, "[%s] %d", __func__, arg());  // camera log level 2 stops debug
    EXPECT_EQ(evaluated, 0);
    expectNoLines();

    setULog(0x2, 6, 0x40007000);
    CAM_ULOGV(kTag, "[%s] %d", __func__, arg());
    EXPECT_EQ(evaluated, 1);
}

TEST_F(LogFrontEndTest, PropertyGatedPathWritesTheAndroidLogOnly) {
    CAM_PLOGE("ZorCam/DebugDrawID", "[%s] bad %d", __func__, 1);
    CAM_PLOGW("ZorCam/DebugDrawID", "[%s] warn", __func__);
    CAM_PLOGI("ZorCam/DebugDrawID", "[%s] info", __func__);
    CAM_PLOGD("ZorCam/DebugDrawID", "[%s] debug", __func__);
    CAM_PLOGV("ZorCam/DebugDrawID", "[%s] verbose", __func__);
    auto a = androidLines();
    ASSERT_EQ(a.size(), 3u);
    EXPECT_EQ(a[0].prio, 6);
    EXPECT_EQ(a[0].text, withLocation("[TestBody] bad 1", "TestBody", __LINE__ - 8,
                                      "tests/log_test.cpp"));
    EXPECT_EQ(a[1].prio, 5);
    EXPECT_EQ(a[1].text, "[TestBody] warn");
    EXPECT_EQ(a[2].prio, 4);
    EXPECT_TRUE(ulogLines().empty());

    // The unified logger's switches do not gate this path.
    clearLogs();
    setULog(0x0, 0, 0);
    CAM_PLOGI("ZorCam/FrameController", "[%s] still", __func__);
    EXPECT_EQ(androidLines().size(), 1u);
}

TEST(ZorcamTestLog, AnswersByLetterAtTheDefaultLevel) {
    EXPECT_EQ(zorcam_testLog(nullptr, 'E'), 1);
    EXPECT_EQ(zorcam_testLog("any", 'W'), 1);
    EXPECT_EQ(zorcam_testLog("any", 'I'), 1);
    EXPECT_EQ(zorcam_testLog("any", 'D'), 0);
    EXPECT_EQ(zorcam_testLog("any", 'V'), 0);
    EXPECT_EQ(zorcam_testLog("any", 'X'), 0);
    EXPECT_EQ(zorcam_testLog("any", 'e'), 0);
    EXPECT_EQ(zorcam_testLog("any", 0), 0);
    setLogLevelToEngLoad();
    EXPECT_EQ(zorcam_testLog("any", 'D'), 0);
}

// The camera log level is read once at load, so each value needs a fresh process: the probe
// prints zorcam_testLog for E W I D V and stderr carries the load-time debug line.
class LoadTimeLogLevel : public testing::Test {
protected:
    struct Result {
        std::string letters;
        std::string stderrText;
    };

    Result runProbe(const char* value) {
        char dir[] = "/tmp/zorcam_loglevel_XXXXXX";
        EXPECT_NE(mkdtemp(dir), nullptr);
        const std::string props = std::string(dir) + "/props";
        const std::string out = std::string(dir) + "/out";
        const std::string err = std::string(dir) + "/err";
        {
            std::ofstream f(props);
            f << "# let debug lines of the unified path reach stderr\n";
            f << "vendor.debug.zorcam.ulog.mode=2\n";
            f << "vendor.debug.zorcam.ulog.level=5\n";
            if (value != nullptr) f << "persist.vendor.zor.camera.log_level=" << value << "\n";
        }
        const std::string cmd = "ZORCAM_PROPERTIES=" + props + " " LOGLEVEL_PROBE " >" + out +
                                " 2>" + err;
        EXPECT_EQ(system(cmd.c_str()), 0);
        Result r{slurp(out), slurp(err)};
        unlink(props.c_str());
        unlink(out.c_str());
        unlink(err.c_str());
        rmdir(dir);
        return r;
    }

    static std::string slurp(const std::string& path) {
        std::ifstream f(path);
        return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
};

TEST_F(LoadTimeLogLevel, UnsetMeansTwo) {
    Result r = runProbe(nullptr);
    EXPECT_EQ(r.letters, "11100\n");
    EXPECT_NE(r.stderrText.find("[load] ###### get camera log property =-1"), std::string::npos)
            << r.stderrText;
}

TEST_F(LoadTimeLogLevel, ValuesAreStoredAsRead) {
    struct Case {
        const char* value;
        const char* letters;
    } cases[] = {{"0", "10000\n"}, {"1", "11000\n"}, {"3", "11110\n"}, {"4", "11111\n"},
                 {"9", "11111\n"}, {"-5", "10000\n"}, {"junk", "11100\n"}};
    for (const auto& c : cases) {
        Result r = runProbe(c.value);
        EXPECT_EQ(r.letters, c.letters) << "log_level=" << c.value;
    }
    Result r = runProbe("4");
    EXPECT_NE(r.stderrText.find("###### get camera log property =4"), std::string::npos)
            << r.stderrText;
}
