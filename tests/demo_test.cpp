// zorcam-util demo, run as a user runs it: a short preview whose dumps, report and trace are
// read back with real decoders and parsers.

#include <gtest/gtest.h>
#include <libxml/HTMLparser.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "StampReader.h"
#include "TempDir.h"
#include "ToolRun.h"

namespace {

using namespace zorcam_test;

constexpr int kWidth = 320, kHeight = 240;

// The run the tests read, made once.
struct Demo {
    TempDir dir;
    ToolRun run =
            runTool("demo --seconds 2 --size 320x240 --dump-every 5 --out '" + dir.path() + "'");
    // The i-th number on the summary line that starts with label.
    long summary(const char* label, size_t i = 0) const {
        return std::lround(numbers(run.output, label).at(i));
    }
};

class DemoTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(d.run.status, 0) << d.run.output; }
    const Demo& d = *[] {
        static const Demo demo;
        return &demo;
    }();
};

TEST_F(DemoTest, EveryDumpHoldsTheStampOfItsFrame) {
    // Its number off the raw luma, and off the green channel of the report's picture of it,
    // decoded through the colour conversion.
    const zorcam_util::StampGeometry stamp = zorcam_util::stampGeometryFor(kWidth, kHeight, 5);
    const std::regex name("frame_([0-9]+)\\.nv21");
    long dumps = 0;
    for (const auto& entry : std::filesystem::directory_iterator(d.dir / "sdcard/zorcam-demo")) {
        const std::string file = entry.path().filename(), bytes = readFile(entry.path());
        std::smatch m;
        Rgb rgb;
        ASSERT_TRUE(std::regex_match(file, m, name) && bytes.size() == kWidth * kHeight * 3 / 2u &&
                    readPng(d.dir / ("frame_" + m[1].str() + ".png"), &rgb) &&
                    rgb.width == kWidth && rgb.height == kHeight)
                << file;
        const auto* luma = reinterpret_cast<const uint8_t*>(bytes.data());
        EXPECT_EQ(zorcam_util::readStamp(luma, kWidth, kHeight, 1, stamp), std::stol(m[1])) << file;
        EXPECT_EQ(zorcam_util::readStamp(rgb.pixels.data() + 1, kWidth * 3, kHeight, 3, stamp),
                  std::stol(m[1]))
                << file;
        ++dumps;
    }
    EXPECT_GE(dumps, 6);
    EXPECT_EQ(dumps, d.summary("dumps written"));
}

TEST_F(DemoTest, CountsAddUpAndThePageShowsThem) {
    const long in = d.summary("frames in"), shown = d.summary("frames shown");
    const long dropped = d.summary("frames dropped"), noBuffer = d.summary("frames dropped", 1);
    EXPECT_EQ(in, 60);
    EXPECT_GT(shown, 0);
    EXPECT_EQ(in, shown + dropped);
    EXPECT_EQ(dropped, noBuffer + d.summary("frames dropped", 2));  // no buffer, late
    EXPECT_EQ(d.summary("descriptors open"), d.summary("descriptors open", 1)) << "left open";
    // An acquire fence for each frame that got a buffer; a release fence and a merge for each
    // frame shown.
    EXPECT_EQ(d.summary("fences"), in - noBuffer + shown);
    EXPECT_EQ(d.summary("fences", 1), shown);

    // The pictures decode, the charts and the page parse.
    static int errors = 0;  // libxml2's parse errors
    xmlSetStructuredErrorFunc(nullptr, [](void*, auto* e) { errors += e->level >= XML_ERR_ERROR; });
    Rgb sheet;
    EXPECT_TRUE(readPng(d.dir / "contact_sheet.png", &sheet) && sheet.width > 0);
    for (const char* chart : {"pacing_histogram.svg", "frame_intervals.svg", "fps.svg"}) {
        xmlDocPtr doc = xmlReadFile((d.dir / chart).c_str(), nullptr, XML_PARSE_NONET);
        EXPECT_TRUE(doc && xmlStrEqual(xmlDocGetRootElement(doc)->name, BAD_CAST "svg")) << chart;
        xmlFreeDoc(doc);
    }
    const std::string path = d.dir / "index.html", text = readFile(path);
    htmlDocPtr page = htmlReadFile(path.c_str(), "utf-8", HTML_PARSE_NONET);
    EXPECT_TRUE(page != nullptr && errors == 0) << errors;
    xmlFreeDoc(page);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    // The page's counts are the summary's, descriptors counted after the run.
    const std::string fds = std::to_string(d.summary("descriptors open")) + " / " +
                            std::to_string(d.summary("descriptors open", 1));
    EXPECT_NE(text.find("frames shown</th><td>" + std::to_string(shown) + "<"), text.npos);
    EXPECT_NE(text.find("descriptors open before / after</th><td>" + fds + "<"), text.npos);
    // Self-contained: every picture is inside the page, nothing is fetched; three charts, the
    // contact sheet and one picture per dump.
    long refs = 0;
    for (const std::string attr : {" src=", " href="})
        for (size_t at = 0; (at = text.find(attr, at)) != std::string::npos; ++refs)
            EXPECT_EQ(text.compare(at += attr.size(), 12, "\"data:image/"), 0) << attr << at;
    EXPECT_EQ(refs, 4 + d.summary("dumps written"));
}

TEST_F(DemoTest, TraceHasOneTrackPerPipelineThread) {
    const auto trace = nlohmann::json::parse(readFile(d.dir / "trace.json"));
    std::map<long, std::string> threads;
    long pid = -1;
    for (const auto& e : trace.at("traceEvents")) {
        if (e.at("ph") != "M") continue;
        if (e.at("name") == "thread_name")
            threads[e.at("tid").get<long>()] = e.at("args").at("name").get<std::string>();
        if (e.at("name") == "process_name") pid = e.at("pid").get<long>();
    }
    std::multiset<std::string> names;  // one track per thread
    for (const auto& [tid, name] : threads) names.insert(name);
    EXPECT_EQ(names, (std::multiset<std::string>{"sensor", "processing", "display"}));
    std::map<std::string, std::set<long>> frames;  // by "thread/event"
    for (const auto& e : trace.at("traceEvents")) {
        if (e.at("ph") != "X") continue;
        const long tid = e.at("tid").get<long>();
        ASSERT_EQ(threads.count(tid), 1u) << e.dump();
        EXPECT_TRUE(e.at("pid") == pid && e.at("dur").get<double>() >= 0) << e.dump();
        frames[threads[tid] + "/" + e.at("name").get<std::string>()].insert(
                e.at("args").at("frame").get<long>());
    }
    for (const char* event : {"sensor/fill", "processing/process", "display/fence wait",
                              "display/overlays", "display/pace hold"})
        EXPECT_GE(static_cast<long>(frames[event].size()), d.summary("frames shown")) << event;
    EXPECT_EQ(static_cast<long>(frames["display/dump"].size()), d.summary("dumps written"));
}

}  // namespace
