// zorcam-util report against what the library really writes: a demo run's own log, the same
// lines in every logcat form, bad captures, and the command line of every sub-command.

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"
#include "ToolRun.h"

namespace {

using zorcam_test::runTool;
using zorcam_test::TempDir;
using zorcam_test::ToolRun;

// The first number after `label` on a line of the tool's output that starts with it.
double figure(const std::string& output, const std::string& label, int index = 0) {
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(label, 0) != 0) continue;
        std::istringstream rest(line.substr(label.size()));
        std::string word;
        for (int i = 0; rest >> word;) {
            char* end = nullptr;
            const double v = strtod(word.c_str(), &end);
            if (end != word.c_str() && i++ == index) return v;
        }
    }
    ADD_FAILURE() << "no '" << label << "' line with figure " << index << " in:\n" << output;
    return NAN;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class ReportTest : public ::testing::Test {
protected:
    // A demo run with its log, the camera log level at 3 so the meters write too (as an
    // engineer sets it on a device), and the report of that log.
    static void SetUpTestSuite() {
        sDir = new TempDir();
        const std::string props = sDir->path() + "/levels.prop";
        std::ofstream(props) << "persist.vendor.zor.camera.log_level=3\n";
        setenv("ZORCAM_PROPERTIES", props.c_str(), 1);
        sDemo = new ToolRun(runTool("demo --seconds 2 --size 320x240 --dump-every 0 --out '" +
                                    sDir->path() + "/demo' --log '" + log() + "' 2>/dev/null"));
        unsetenv("ZORCAM_PROPERTIES");
        sReport = new ToolRun(report("'" + log() + "'", "report"));
    }
    static void TearDownTestSuite() {
        delete sReport;
        delete sDemo;
        delete sDir;
    }
    void SetUp() override {
        ASSERT_EQ(sDemo->status, 0) << sDemo->output;
        ASSERT_EQ(sReport->status, 0) << sReport->output;
    }
    static std::string log() { return sDir->path() + "/demo.log"; }
    static ToolRun report(const std::string& captures, const std::string& out) {
        return runTool("report " + captures + " --out '" + sDir->path() + "/" + out + "'");
    }
    // The report's stream row, from its summary: frames, paced, fps, delay p50, delay p99,
    // target, sleeps.
    static std::vector<double> streamRow(const std::string& output) {
        const std::regex row(
                "\ndemo \\[[0-9]+/-?[0-9]+\\] +([0-9]+) +([0-9]+) +([0-9.]+) +"
                "([0-9.]+) +([0-9.]+) +([0-9.]+) +([0-9]+)");
        std::smatch m;
        if (!std::regex_search(output, m, row)) {
            ADD_FAILURE() << "no stream row in:\n" << output;
            return {};
        }
        std::vector<double> v;
        for (size_t i = 1; i < m.size(); ++i) v.push_back(std::stod(m[i]));
        return v;
    }

    static inline TempDir* sDir = nullptr;
    static inline ToolRun* sDemo = nullptr;
    static inline ToolRun* sReport = nullptr;
};

TEST_F(ReportTest, FiguresAgreeWithTheDemosOwnMeasurements) {
    const std::vector<double> row = streamRow(sReport->output);
    ASSERT_EQ(row.size(), 7u);
    // Every frame shown went through the controller once: measured, then paced.
    EXPECT_EQ(row[0], figure(sDemo->output, "frames shown"));
    EXPECT_GT(row[1], row[0] - 10);
    const double demoFps = figure(sDemo->output, "fps achieved");
    EXPECT_NEAR(row[2], demoFps, demoFps * 0.01);
    EXPECT_NEAR(figure(sReport->output, "meter demo display", 1), demoFps, demoFps * 0.01);
    // A frame reaches the pacer after processing and before it leaves the pipeline.
    EXPECT_GE(row[3], figure(sDemo->output, "processing", 1));
    EXPECT_LE(row[4], figure(sDemo->output, "capture to out", 2) + 1);
    EXPECT_GT(row[5], row[3]);  // the target lies above the delays of a calm pipeline
    EXPECT_EQ(row[6], row[1]);  // each paced frame slept what was left of its interval

    // Every checkpoint the demo's profile wrote is in the page, numbers folded.
    const std::string page = readAll(sDir->path() + "/report/index.html");
    const std::regex checkpoint(R"(\{CamProfile\}\[Demo::display\] frame [0-9]+: ([a-z ]+):)");
    const std::string text = readAll(log());
    std::set<std::string> notes;
    for (std::sregex_iterator it(text.begin(), text.end(), checkpoint), end; it != end; ++it)
        notes.insert((*it)[1]);
    EXPECT_GE(notes.size(), 3u);
    for (const std::string& note : notes)
        EXPECT_NE(page.find("Demo::display: frame #: " + note), std::string::npos) << note;
}

TEST_F(ReportTest, TraceHasOneTrackPerThreadThatLogged) {
    const nlohmann::json trace =
            nlohmann::json::parse(readAll(sDir->path() + "/report/trace.json"));
    const nlohmann::json demoTrace =
            nlohmann::json::parse(readAll(sDir->path() + "/demo/trace.json"));
    std::set<int> tracks, demoThreads, logged;
    for (const auto& e : trace["traceEvents"])
        if (e["name"] == "thread_name") tracks.insert(e["tid"].get<int>());
    for (const auto& e : demoTrace["traceEvents"])
        if (e["name"] == "thread_name") demoThreads.insert(e["tid"].get<int>());
    std::istringstream lines(readAll(log()));
    int demoPid = 0;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string tag, level, date, time;
        int tid = 0;
        if (words >> tag >> level >> date >> time >> demoPid >> tid) logged.insert(tid);
    }
    EXPECT_EQ(tracks, logged);
    // Each is one of the demo's pipeline threads, or its main thread.
    for (int tid : tracks) EXPECT_TRUE(demoThreads.count(tid) || tid == demoPid) << tid;
    size_t counters = 0, sleeps = 0;
    for (const auto& e : trace["traceEvents"]) {
        counters += e["ph"] == "C";
        sleeps += e["ph"] == "X" && e["name"] == "sleep";
    }
    EXPECT_GT(counters, 0u);
    EXPECT_EQ(sleeps, static_cast<size_t>(streamRow(sReport->output)[6]));
}

// The demo's lines rewritten by hand in each logcat form, among other processes' lines, give
// the same figures; one of them gzip-compressed.
TEST_F(ReportTest, EveryCaptureFormGivesTheSameFigures) {
    struct Line {
        std::string tag, date, time, message;
        char level;
        int pid, tid;
    };
    std::vector<Line> lines;
    std::istringstream in(readAll(log()));
    for (std::string text; std::getline(in, text);) {
        std::istringstream words(text);
        Line l;
        words >> l.tag >> l.level >> l.date >> l.time >> l.pid >> l.tid;
        std::getline(words, l.message);
        l.message.erase(0, 1);
        lines.push_back(l);
    }
    ASSERT_GT(lines.size(), 100u);
    const std::map<std::string, std::function<std::string(const Line&)>> forms = {
            {"threadtime",
             [](const Line& l) {
                 char head[96];
                 snprintf(head, sizeof(head), "%s %s.000 %5d %5d %c %-8s: ", l.date.c_str(),
                          l.time.c_str(), l.pid, l.tid, l.level, l.tag.c_str());
                 return head + l.message;
             }},
            {"year-usec",
             [](const Line& l) {
                 return "2026-" + l.date + " " + l.time + ".000000 " + std::to_string(l.pid) + " " +
                        std::to_string(l.tid) + " " + l.level + " " + l.tag + ": " + l.message;
             }},
            {"time",
             [](const Line& l) {
                 char head[96];
                 snprintf(head, sizeof(head), "%s %s.000 %c/%-8s(%5d): ", l.date.c_str(),
                          l.time.c_str(), l.level, l.tag.c_str(), l.pid);
                 return head + l.message;
             }},
            {"brief", [](const Line& l) {
                 return std::string(1, l.level) + "/" + l.tag + "(" + std::to_string(l.pid) +
                        "): " + l.message;
             }}};
    const std::vector<double> expected = streamRow(sReport->output);
    for (const auto& [form, rewrite] : forms) {
        std::string capture = "--------- beginning of main\n";
        for (size_t i = 0; i < lines.size(); ++i) {
            capture += rewrite(lines[i]) + "\n";
            if (i % 3 == 0)  // another process in between
                capture += rewrite({"CameraService", lines[i].date, lines[i].time,
                                    "onFrameAvailable: ZorCam/Utils frame", 'I', 4242, 4243}) +
                           "\n";
        }
        std::string path = sDir->path() + "/" + form + ".txt";
        if (form == "time") {
            path += ".gz";
            gzFile gz = gzopen(path.c_str(), "wb");
            ASSERT_NE(gz, nullptr);
            gzwrite(gz, capture.data(), static_cast<unsigned>(capture.size()));
            gzclose(gz);
        } else {
            std::ofstream(path) << capture;
        }
        const ToolRun run = report("'" + path + "'", form);
        ASSERT_EQ(run.status, 0) << form << ": " << run.output;
        std::vector<double> row = streamRow(run.output);
        ASSERT_EQ(row.size(), expected.size()) << form;
        for (size_t i = 0; i < row.size(); ++i) EXPECT_EQ(row[i], expected[i]) << form << " " << i;
        EXPECT_EQ(figure(run.output, "meter demo display", 1),
                  figure(sReport->output, "meter demo display", 1))
                << form;
        EXPECT_EQ(figure(run.output, "profile Demo::display"),
                  figure(sReport->output, "profile Demo::display"))
                << form;
    }
}

// What cannot be read gets one message and exit status 2, and no report is left; lines that
// look like the library's but cannot be read are counted where a report is written.
TEST_F(ReportTest, BadCapturesAreRefusedOrCounted) {
    const std::string good =
            "ZorCam/FrameController I 11-24 12:00:01  100   101 [bufferControl][cam] "
            "off:ct(2000000000),cft(1980000000),cddt(20000000),oddt(78000000),nddt(108000000),"
            "max(83000000),min(78000000),fi(33333333),ti(20000000),stc(0),st(12000 us)\n";
    const std::string garbled =
            "ZorCam/FrameController I 11-24 12:00:02  100   101 [bufferControl][cam] "
            "off:ct(20x0),cft(1)\n";
    const std::string huge =
            "ZorCam/FrameController I 11-24 12:00:02  100   101 [bufferControl][cam] "
            "off:ct(99999999999999999999999),cft(1),cddt(1),oddt(1),nddt(1),max(1),min(1),"
            "fi(1),ti(1),stc(0),st(1 us)\n";
    const std::string earlier =
            "ZorCam/Utils W 11-24 11:59:00  100   101 [cam] a warning from the past\n";
    struct Case {
        const char* what;
        std::string content;  // none: the file is not made
        int status;
        const char* message;
    };
    const Case cases[] = {
            {"no such file", "", 2, "cannot read"},
            {"binary",
             std::string("\x7f"
                         "ELF\0\0\1\2",
                         8) +
                     good,
             2, "not text"},
            {"empty", "-", 2, "no library lines"},
            {"other lines only", "I/ActivityManager( 12): Start proc\nhello\n", 2,
             "no library lines"},
            {"garbled only", garbled + huge, 2, "could not be read, the first at"},
            {"garbled among good", good + garbled + huge + earlier, 0, "2 library lines"},
    };
    for (const Case& c : cases) {
        const std::string out = std::string("bad-") + c.what;
        const std::string path = sDir->path() + "/" + c.what + ".log";
        if (std::string(c.what) != "no such file")
            std::ofstream(path, std::ios::binary) << (c.content == "-" ? "" : c.content);
        const ToolRun run = report("'" + path + "'", out);
        EXPECT_EQ(run.status, c.status) << c.what << ": " << run.output;
        const bool wrote = std::filesystem::exists(sDir->path() + "/" + out + "/index.html");
        EXPECT_EQ(wrote, c.status == 0) << c.what;
        if (c.status == 2) {
            EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
            EXPECT_NE(run.output.find(c.message), std::string::npos) << c.what << run.output;
        } else {
            const std::string page = readAll(sDir->path() + "/" + out + "/index.html");
            EXPECT_NE(page.find(c.message), std::string::npos) << page;
            EXPECT_NE(page.find(path + ":2, " + path + ":3"), std::string::npos) << page;
            EXPECT_NE(page.find("1 library lines came out of time order"), std::string::npos);
        }
    }
}

TEST(ZorcamUtilCommandLine, EveryCommandHasHelpAndRefusesUnknownOptions) {
    for (const char* command : {"demo", "format", "formats", "overlay", "pace", "report", "view"}) {
        const ToolRun help = runTool(std::string(command) + " --help");
        EXPECT_EQ(help.status, 0) << command << help.output;
        EXPECT_NE(help.output.find(std::string("Usage: zorcam-util ") + command), std::string::npos)
                << help.output;
        const ToolRun bad = runTool(std::string(command) + " --no-such-option 1");
        EXPECT_EQ(bad.status, 2) << command << bad.output;
        EXPECT_EQ(std::count(bad.output.begin(), bad.output.end(), '\n'), 1) << bad.output;
    }
    EXPECT_EQ(runTool("no-such-command").status, 2);
    EXPECT_EQ(runTool("").status, 2);
}

}  // namespace
