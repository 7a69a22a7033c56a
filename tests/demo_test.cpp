// zorcam-util demo, run as a user runs it: a short preview whose dumps, report and trace are
// read back with real decoders and parsers.

#include <gtest/gtest.h>
#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "StampReader.h"
#include "TempDir.h"
#include "ToolRun.h"

namespace {

namespace fs = std::filesystem;
using zorcam_test::readPng;
using zorcam_test::Rgb;
using zorcam_test::runTool;
using zorcam_test::ToolRun;

constexpr int kWidth = 320;
constexpr int kHeight = 240;

// libxml2 reports parse errors through this; the count is what the tests look at.
int sXmlErrors = 0;
void countXmlError(void*, xmlErrorPtr error) {
    if (error != nullptr && error->level >= XML_ERR_ERROR) {
        ++sXmlErrors;
        fprintf(stderr, "xml: %s", error->message);
    }
}

class DemoTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        sDir = new zorcam_test::TempDir();
        sRun = new ToolRun(runTool("demo --seconds 2 --size 320x240 --dump-every 5 --out '" +
                                   sDir->path() + "'"));
    }
    static void TearDownTestSuite() {
        delete sRun;
        delete sDir;
    }
    void SetUp() override { ASSERT_EQ(sRun->status, 0) << sRun->output; }

    // The number on the summary line that starts with label.
    static long summary(const std::string& label) {
        const std::regex line("(^|\n)" + label + " +(-?[0-9]+)");
        std::smatch m;
        if (!std::regex_search(sRun->output, m, line)) {
            ADD_FAILURE() << "no summary line '" << label << "' in:\n" << sRun->output;
            return -1;
        }
        return std::stol(m[2]);
    }

    static fs::path dir() { return sDir->path(); }

    static inline zorcam_test::TempDir* sDir = nullptr;
    static inline ToolRun* sRun = nullptr;
};

TEST_F(DemoTest, CountsAddUpAndNoDescriptorIsLeft) {
    const long in = summary("frames in"), shown = summary("frames shown");
    EXPECT_EQ(in, 60);
    EXPECT_GT(shown, 0);
    EXPECT_EQ(in, shown + summary("frames dropped"));
    const std::string& out = sRun->output;
    const std::regex fdLine("descriptors open +([0-9]+) before, ([0-9]+) after"),
            dropLine("frames dropped +([0-9]+) \\(no buffer ([0-9]+), late ([0-9]+)\\)"),
            fenceLine("fences +([0-9]+) made, ([0-9]+) merged");
    std::smatch fds, drops, fences;
    ASSERT_TRUE(std::regex_search(out, fds, fdLine) && std::regex_search(out, drops, dropLine) &&
                std::regex_search(out, fences, fenceLine))
            << out;
    EXPECT_EQ(fds[1], fds[2]) << "descriptors left open";
    const long noBuffer = std::stol(drops[2]);
    EXPECT_EQ(std::stol(drops[1]), noBuffer + std::stol(drops[3]));
    // An acquire fence for each frame that got a buffer; a release fence and a merge for each
    // frame shown.
    EXPECT_EQ(std::stol(fences[1]), (in - noBuffer) + shown);
    EXPECT_EQ(std::stol(fences[2]), shown);
}

TEST_F(DemoTest, EveryDumpHoldsTheStampOfItsFrame) {
    const zorcam_util::StampGeometry stamp = zorcam_util::stampGeometryFor(kWidth, kHeight, 5);
    const std::regex name("frame_([0-9]+)\\.nv21");
    int dumps = 0;
    for (const auto& entry : fs::directory_iterator(dir() / "sdcard" / "zorcam-demo")) {
        const std::string file = entry.path().filename().string();
        std::smatch m;
        ASSERT_TRUE(std::regex_match(file, m, name)) << file;
        const std::string bytes = zorcam_test::readFile(entry.path());
        ASSERT_EQ(bytes.size(), static_cast<size_t>(kWidth * kHeight * 3 / 2)) << file;
        const auto* luma = reinterpret_cast<const uint8_t*>(bytes.data());
        EXPECT_EQ(zorcam_util::readStamp(luma, kWidth, kHeight, 1, stamp), std::stol(m[1])) << file;

        // The same number off the report's picture, decoded through the colour conversion.
        Rgb picture;
        const std::string png = "frame_" + std::string(m[1]) + ".png";
        ASSERT_TRUE(readPng(dir() / png, &picture)) << png;
        ASSERT_EQ(picture.width, kWidth);
        ASSERT_EQ(picture.height, kHeight);
        EXPECT_EQ(zorcam_util::readStamp(picture.pixels.data() + 1, kWidth * 3, kHeight, 3, stamp),
                  std::stol(m[1]))
                << png << ", green channel";
        ++dumps;
    }
    EXPECT_GE(dumps, 6);
    EXPECT_EQ(dumps, summary("dumps written"));
}

TEST_F(DemoTest, ReportPicturesDecodeAndChartsAndPageParse) {
    // The pictures decode and the charts parse; the frame pictures, the trace and the page
    // are read by the other tests and below.
    xmlSetStructuredErrorFunc(nullptr, countXmlError);
    for (const char* file :
         {"contact_sheet.png", "pacing_histogram.svg", "frame_intervals.svg", "fps.svg"}) {
        const std::string path = dir() / file;
        Rgb picture;
        if (fs::path(file).extension() == ".png") {
            EXPECT_TRUE(readPng(path, &picture) && picture.width > 0) << file;
            continue;
        }
        sXmlErrors = 0;
        xmlDocPtr doc = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NONET);
        ASSERT_NE(doc, nullptr) << file;
        EXPECT_STREQ(reinterpret_cast<const char*>(xmlDocGetRootElement(doc)->name), "svg");
        xmlFreeDoc(doc);
        EXPECT_EQ(sXmlErrors, 0) << file;
    }

    sXmlErrors = 0;
    htmlDocPtr page = htmlReadFile((dir() / "index.html").c_str(), "utf-8", HTML_PARSE_NONET);
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(sXmlErrors, 0) << "index.html";
    // The page's counts are the summary's.
    const std::string text = zorcam_test::readFile(dir() / "index.html");
    const std::regex fdRow("descriptors open before / after</th><td>([0-9]+) / ([0-9]+)<");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(text, m, fdRow));
    EXPECT_EQ(m[1], m[2]);
    EXPECT_NE(text.find("frames shown</th><td>" + std::to_string(summary("frames shown")) + "<"),
              std::string::npos);
    // Self-contained: every picture is inside the page, nothing is fetched.
    xmlXPathContextPtr xpath = xmlXPathNewContext(page);
    xmlXPathObjectPtr refs = xmlXPathEvalExpression(BAD_CAST "//@src | //@href", xpath);
    ASSERT_NE(refs, nullptr);
    int images = 0;
    for (int i = 0; refs->nodesetval != nullptr && i < refs->nodesetval->nodeNr; ++i) {
        xmlChar* value = xmlNodeGetContent(refs->nodesetval->nodeTab[i]);
        const std::string ref = reinterpret_cast<const char*>(value);
        xmlFree(value);
        EXPECT_EQ(ref.rfind("data:image/", 0), 0u) << ref.substr(0, 60);
        ++images;
    }
    // Three charts, the contact sheet and one picture per dump.
    EXPECT_EQ(images, 4 + summary("dumps written"));
    xmlXPathFreeObject(refs);
    xmlXPathFreeContext(xpath);
    xmlFreeDoc(page);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
}

TEST_F(DemoTest, TraceHasOneTrackPerPipelineThread) {
    const auto trace = nlohmann::json::parse(zorcam_test::readFile(dir() / "trace.json"));
    std::map<long, std::string> threads;
    long pid = -1;
    for (const auto& e : trace.at("traceEvents")) {
        if (e.at("ph") == "M" && e.at("name") == "thread_name")
            threads[e.at("tid").get<long>()] = e.at("args").at("name").get<std::string>();
        if (e.at("ph") == "M" && e.at("name") == "process_name") pid = e.at("pid").get<long>();
    }
    std::multiset<std::string> names;  // one track per thread
    for (const auto& [tid, name] : threads) names.insert(name);
    EXPECT_EQ(names, (std::multiset<std::string>{"sensor", "processing", "display"}));

    std::map<std::string, std::set<long>> framesByEvent;
    for (const auto& e : trace.at("traceEvents")) {
        if (e.at("ph") != "X") continue;
        const long tid = e.at("tid").get<long>();
        ASSERT_EQ(threads.count(tid), 1u) << e.dump();
        EXPECT_EQ(e.at("pid").get<long>(), pid) << e.dump();
        EXPECT_GE(e.at("dur").get<double>(), 0) << e.dump();
        framesByEvent[threads[tid] + "/" + e.at("name").get<std::string>()].insert(
                e.at("args").at("frame").get<long>());
    }
    const long shown = summary("frames shown");
    for (const char* event : {"sensor/fill", "processing/process", "display/fence wait",
                              "display/overlays", "display/pace hold"}) {
        EXPECT_GE(static_cast<long>(framesByEvent[event].size()), shown) << event;
    }
    EXPECT_EQ(static_cast<long>(framesByEvent["display/dump"].size()), summary("dumps written"));
}

TEST(DemoArgumentsTest, BadArgumentsExitWithTwo) {
    for (const char* args : {"--fps 0", "--size 8x8", "--format BAYER10", "--buffers 1",
                             "--seconds", "--colour red"}) {
        const ToolRun run = runTool(std::string("demo ") + args + " --out /nonexistent/never");
        EXPECT_EQ(run.status, 2) << args << ": " << run.output;
        EXPECT_FALSE(fs::exists("/nonexistent/never")) << args;
    }
}

}  // namespace
