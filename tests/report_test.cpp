// zorcam-util report against what the library really writes: a demo run's own log, the same
// lines in other logcat forms, and bad captures.

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "TempDir.h"
#include "ToolRun.h"

namespace {

using namespace zorcam_test;

// A demo run with its log, the camera log level at 3 so the meters write too (as an engineer
// sets it on a device), and the report of that log: made once, for the tests that read it.
struct DemoLog {
    TempDir dir;
    ToolRun demo, report;
    std::string log = dir / "demo.log";
    DemoLog() {
        std::ofstream(dir / "levels.prop") << "persist.vendor.zor.camera.log_level=3\n";
        setenv("ZORCAM_PROPERTIES", (dir / "levels.prop").c_str(), 1);
        demo = runTool("demo --seconds 2 --size 320x240 --dump-every 0 --out '" + dir / "demo" +
                       "' --log '" + log + "' 2>/dev/null");
        unsetenv("ZORCAM_PROPERTIES");
        report = runTool("report '" + log + "' --out '" + dir / "report" + "'");
    }
};

const DemoLog& demoLog() {
    static const DemoLog d;
    return d;
}

// The figures of a report: library lines and unreadable ones, then the stream row (frames,
// paced, fps, delay p50, delay p99, target, sleeps, adjust, reset), the meter's and the profile's.
std::vector<double> figures(const std::string& output) {
    std::vector<double> v = numbers(output, "demo [");  // its pid and tid first
    const std::vector<double> read = numbers(output, "");
    v.at(0) = read.at(1);
    v.at(1) = read.at(2);
    for (const char* label : {"meter demo display", "profile Demo::display"})
        for (double x : numbers(output, label)) v.push_back(x);
    return v;
}

TEST(ReportTest, FiguresTraceAndCheckpointsAgreeWithTheDemo) {
    const DemoLog& d = demoLog();
    ASSERT_TRUE(d.demo.status == 0 && d.report.status == 0) << d.demo.output << d.report.output;
    const std::vector<double> row = numbers(d.report.output, "demo [");  // pid, tid, frames, ...
    ASSERT_GE(row.size(), 9u) << d.report.output;
    // Every frame shown went through the controller once: measured, then paced.
    EXPECT_EQ(row[2], numbers(d.demo.output, "frames shown").at(0));
    EXPECT_GT(row[3], row[2] - 10);
    const double fps = numbers(d.demo.output, "fps achieved").at(0);
    EXPECT_NEAR(row[4], fps, fps * 0.01);
    // The meter's figure is a mean over its one-second windows, warm-up included, so it only
    // comes near the demo's: a misread field lands far off.
    EXPECT_NEAR(numbers(d.report.output, "meter demo display").at(1), fps, fps * 0.05);
    // A frame reaches the pacer after processing and before it leaves the pipeline.
    EXPECT_GE(row[5], numbers(d.demo.output, "processing").at(1));
    EXPECT_LE(row[6], numbers(d.demo.output, "capture to out").at(2) + 1);
    EXPECT_GT(row[7], row[5]);  // the target lies above the delays of a calm pipeline
    // Paced frames sleep what is left of their interval; one that came late has none left.
    EXPECT_TRUE(row[8] > row[3] / 2 && row[8] <= row[3]) << row[8] << " sleeps";

    // Every checkpoint the demo's profile wrote is in the page, numbers folded.
    const std::string page = readFile(d.dir / "report/index.html"), log = readFile(d.log);
    const std::regex checkpoint(R"(\{CamProfile\}\[Demo::display\] frame [0-9]+: ([a-z ]+):)");
    std::set<std::string> notes;
    for (std::sregex_iterator it(log.begin(), log.end(), checkpoint), end; it != end; ++it)
        notes.insert((*it)[1]);
    EXPECT_GE(notes.size(), 3u);
    for (const std::string& note : notes)
        EXPECT_NE(page.find("Demo::display: frame #: " + note), std::string::npos) << note;

    // One track per thread that logged, each one of the demo's pipeline threads or its main one;
    // a sleep slice per sleep.
    std::set<int> tracks, demoThreads, logged;
    size_t counters = 0, sleeps = 0;
    nlohmann::json trace = nlohmann::json::parse(readFile(d.dir / "report/trace.json")),
                   demoTrace = nlohmann::json::parse(readFile(d.dir / "demo/trace.json"));
    for (const auto& e : trace["traceEvents"]) {
        if (e["name"] == "thread_name") tracks.insert(e["tid"].get<int>());
        counters += e["ph"] == "C";
        sleeps += e["ph"] == "X" && e["name"] == "sleep";
    }
    for (const auto& e : demoTrace["traceEvents"])
        if (e["name"] == "thread_name") demoThreads.insert(e["tid"].get<int>());
    const std::regex tidOf(R"((^|\n)\S+ \S \S+ \S+ +[0-9]+ +([0-9]+) )");  // of each line
    for (std::sregex_iterator it(log.begin(), log.end(), tidOf), end; it != end; ++it)
        logged.insert(std::stoi((*it)[2]));
    EXPECT_EQ(tracks, logged);
    for (int tid : tracks) EXPECT_TRUE(demoThreads.count(tid) || tid == row[0]) << tid;
    EXPECT_TRUE(counters > 0 && sleeps == row[8]) << counters << " counters, sleeps " << sleeps;
}

// The demo's lines rewritten in other logcat forms, gzip-compressed, among other processes'
// lines, give the same figures.
TEST(ReportTest, EveryCaptureFormGivesTheSameFigures) {
    const DemoLog& d = demoLog();
    ASSERT_TRUE(d.demo.status == 0 && d.report.status == 0) << d.demo.output << d.report.output;
    // The demo's lines, each followed by another process's line, in the host's form.
    const std::regex host(R"((\S+) (\S) (\S+) (\S+) +([0-9]+) +([0-9]+) ([^\n]*))");
    const std::string log = readFile(d.log);
    ASSERT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), host), {}),
              std::count(log.begin(), log.end(), '\n'));
    const std::string lines = std::regex_replace(
            log, host, "$&\nCameraService I $3 $4 4242 4243 onFrameAvailable: ZorCam/Utils frame");
    const char* const forms[] = {"$3 $4.000 $5 $6 $2 $1: $7",        // threadtime
                                 "2026-$3 $4.000000 $2/$1($5): $7",  // time
                                 "$2/$1($5): $7"};                   // brief
    const std::vector<double> expected = figures(d.report.output);
    for (size_t f = 0; f < std::size(forms); ++f) {
        const std::string capture =
                "--------- beginning of main\n" + std::regex_replace(lines, host, forms[f]);
        const std::string path = d.dir / (std::to_string(f) + ".txt.gz");
        gzFile gz = gzopen(path.c_str(), "wb");
        ASSERT_NE(gz, nullptr);
        gzwrite(gz, capture.data(), static_cast<unsigned>(capture.size()));
        gzclose(gz);
        const ToolRun run = runTool("report '" + path + "' --out '" + path + ".report'");
        ASSERT_EQ(run.status, 0) << forms[f] << run.output;
        EXPECT_EQ(figures(run.output), expected) << forms[f] << run.output;
    }
}

// What cannot be read gets one message and exit status 2, and no report is left; lines that
// look like the library's but cannot be read are counted where a report is written.
TEST(ReportTest, BadCapturesAreRefusedOrCounted) {
    const std::string head =
            "ZorCam/FrameController I 11-24 12:00:01  100   101 [bufferControl][cam] ";
    const std::string good =
            head +
            "off:ct(2000000000),cft(1980000000),cddt(20000000),oddt(78000000),nddt(108000000),"
            "max(83000000),min(78000000),fi(33333333),ti(20000000),stc(0),st(12000 us)\n";
    // A garbled figure and a line cut short; lines earlier and later than the good one.
    const std::string unreadable = head + "off:ct(20x0),cft(1)\n" + good.substr(0, 110) + "\n";
    const std::string earlier = "ZorCam/Utils W 11-24 11:59:00  100   101 [cam] a warning\n",
                      later = "ZorCam/Utils W 11-24 12:01:00  100   101 [cam] a warning\n";
    const std::tuple<const char*, std::string, int, const char*> cases[] = {
            {"missing", "", 2, "cannot read"},
            {"binary", std::string("\x7f\x45LF\0\2", 6) + good, 2, "not text"},
            {"empty", "", 2, "no library lines"},
            {"others only", "I/ActivityManager( 12): Start proc\nhello\n", 2, "no library lines"},
            {"unreadable only", unreadable, 2, "could not be read, the first at"},
            {"unreadable among good", good + unreadable + earlier + later, 0, "2 library lines"},
    };
    TempDir dir;
    for (const auto& [what, content, status, message] : cases) {
        const std::string path = dir / (std::string(what) + ".log"), out = dir / what;
        if (what != std::string("missing")) std::ofstream(path, std::ios::binary) << content;
        const ToolRun run = runTool("report '" + path + "' --out '" + out + "'");
        EXPECT_EQ(run.status, status) << what << ": " << run.output;
        if (status == 2) {
            EXPECT_TRUE(run.lines() == 1 && run.output.find(message) != std::string::npos)
                    << what << ": " << run.output;
            EXPECT_FALSE(std::filesystem::exists(out)) << what;
            continue;
        }
        const std::string page = readFile(out + "/index.html");
        for (const std::string& said : {std::string(message), path + ":2, " + path + ":3",
                                        std::string("1 library lines came out of time order")})
            EXPECT_NE(page.find(said), std::string::npos) << said << "\n" << page;
    }
}

}  // namespace
