// The pieces zorcam-util's commands share (argument parsing, raw plane layouts, stamp reading,
// charts and pictures), and the command line of every sub-command.

#include <gtest/gtest.h>
#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/Format.h>

#include <filesystem>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "Args.h"
#include "Image.h"
#include "RawImage.h"
#include "StampReader.h"
#include "Svg.h"
#include "TempDir.h"
#include "ToolRun.h"

namespace {

namespace Fmt = NSCam::Utils::Format;
using namespace zorcam_util;
using zorcam_test::runTool, zorcam_test::TempDir, zorcam_test::ToolRun;

TEST(ZorcamUtilArgsTest, SizesAndFormatsAreParsedOrRefused) {
    uint64_t w = 0, h = 0;
    EXPECT_TRUE(parseSize("1920x1080", &w, &h) && w == 1920 && h == 1080);
    for (const char* bad : {"0x5", "5x0", "x5", "5x", "1x2x3", "-1x2", "2147483648x1", "12"})
        EXPECT_FALSE(parseSize(bad, &w, &h)) << bad;
    const auto map = Fmt::getMapper();
    for (const char* name : {"NV21", "nv21", "0x11", "17"}) {
        int id = 0;
        EXPECT_TRUE(findFormat(map, name, &id) != nullptr && id == Fmt::eImgFmt_NV21) << name;
    }
    EXPECT_EQ(findFormat(map, "bogus"), nullptr);
    EXPECT_EQ(findFormat(map, "0x7777"), nullptr);
}

TEST(ZorcamUtilRawLayoutTest, PlanesFollowTheRegistryAndTheStride) {
    // view_test covers NV21 with a stride, Y16 and the Bayer layouts through the tool.
    // Format, width, height, stride; offset/stride/rows of each plane, = total.
    const std::tuple<int, uint64_t, uint64_t, uint64_t, const char*> cases[] = {
            {Fmt::eImgFmt_YV12, 640, 480, 0, "0/640/480 307200/320/240 384000/320/240 = 460800"},
            {Fmt::eImgFmt_YV12, 640, 480, 704, "0/704/480 337920/352/240 422400/352/240 = 506880"},
            {Fmt::eImgFmt_YUY2, 100, 10, 0, "0/200/10 = 2000"},
            {Fmt::eImgFmt_BAYER10_MIPI, 100, 4, 0, "0/125/4 = 500"},
    };
    std::vector<PlaneLayout> planes;
    uint64_t total = 0;
    std::string error;
    for (const auto& [format, width, height, stride, want] : cases) {
        EXPECT_TRUE(rawLayout(format, width, height, stride, &planes, &total, &error));
        std::string got;
        for (const PlaneLayout& p : planes)
            got += std::to_string(p.offset) + "/" + std::to_string(p.stride) + "/" +
                   std::to_string(p.rows) + " ";
        EXPECT_EQ(got + "= " + std::to_string(total), want) << error;
    }
    EXPECT_FALSE(rawLayout(Fmt::eImgFmt_NV21, 640, 480, 639, &planes, &total, &error));
    EXPECT_NE(error.find("stride 639"), std::string::npos) << error;
    EXPECT_FALSE(rawLayout(0x7777, 640, 480, 0, &planes, &total, &error));
}

TEST(ZorcamUtilStampTest, NumbersStampedByTheLibraryReadBack) {
    // demo_test reads them off the green channel of RGB pictures.
    std::mt19937 rng(7);
    for (const auto& [w, h] : {std::pair{32u, 24u}, {320u, 240u}, {1920u, 1080u}, {4000u, 3000u}}) {
        const StampGeometry g = stampGeometryFor(w, h, 5);
        ASSERT_LE(g.x + 25 * g.size, w) << w << "x" << h << ": the stamp must fit a row";
        for (unsigned number : {0u, 7u, 12345u, 99999u, 100042u}) {
            // A noisy picture, so that only the stamp's cells decide.
            std::vector<uint8_t> plane(static_cast<size_t>(w) * h);
            for (uint8_t& b : plane) b = static_cast<uint8_t>(rng());
            DebugDrawID::draw(number, g.digits, g.x, g.y, reinterpret_cast<char*>(plane.data()), w,
                              h, w, static_cast<unsigned>(plane.size()), g.size,
                              static_cast<char>(g.bg), static_cast<char>(g.fg));
            EXPECT_EQ(readStamp(plane.data(), w, h, 1, g), number % 100000) << w << " " << number;
            // One cell of the last digit flipped (its column 0 is never ink): no digit looks so.
            plane[(g.y + 2 * g.size + g.size / 2) * w + g.x + 20 * g.size + g.size / 2] = g.fg;
            EXPECT_EQ(readStamp(plane.data(), w, h, 1, g), -1) << w << "x" << h;
        }
    }
    // Out of the plane: nothing is read outside it.
    const std::vector<uint8_t> small(100 * 20, 0);
    EXPECT_EQ(readStamp(small.data(), 100, 20, 1, stampGeometryFor(320, 240, 5)), -1);
}

TEST(ZorcamUtilSvgTest, HistogramPilesOutliersIntoTheEndBins) {
    std::ostringstream out;
    svgBegin(out, 1);
    // Four bins of 1 over 10 +- 2: [8,9) [9,10) [10,11) [11,12).
    svgHistogram(out, 0, "a <title> & more", {5, 9.5, 10.2, 10.7, 11.5, 50, 50}, 10, 1, 2);
    svgEnd(out);
    const std::string svg = out.str();
    std::vector<std::string> counts;
    const std::regex bar("<title>([0-9]+)</title>");
    for (std::sregex_iterator it(svg.begin(), svg.end(), bar), end; it != end; ++it)
        counts.push_back((*it)[1]);
    EXPECT_EQ(counts, (std::vector<std::string>{"1", "1", "2", "3"})) << svg;
    EXPECT_NE(svg.find("a &lt;title&gt; &amp; more"), std::string::npos) << svg;
    EXPECT_EQ(xmlEscape("\"it's\""), "&quot;it&#39;s&quot;");
}

TEST(ZorcamUtilImageTest, ThumbnailsSheetsAndPngFilesKeepTheirPixels) {
    Picture wide{400, 100, 1, std::vector<uint8_t>(400 * 100)};
    for (size_t i = 0; i < wide.pixels.size(); ++i)
        wide.pixels[i] = static_cast<uint8_t>(i % 400 / 4);
    const Picture t = thumbnail(wide, 100);
    EXPECT_TRUE(t.width == 100 && t.height == 25 && t.pixels.at(10 * 100 + 50) == 50);

    std::vector<Picture> thumbs;
    for (uint8_t v : {10, 20, 30}) thumbs.push_back({10, 5, 1, std::vector<uint8_t>(50, v)});
    const Picture sheet = contactSheet(thumbs, 2, 2);
    ASSERT_TRUE(sheet.width == 2 * 10 + 3 * 2 && sheet.height == 2 * 5 + 3 * 2);
    auto at = [&](int x, int y) { return sheet.pixels[y * sheet.width + x]; };
    EXPECT_EQ(at(2, 2), 10);       // first, top left
    EXPECT_EQ(at(14 + 9, 2), 20);  // second, its last column
    EXPECT_EQ(at(2, 9 + 4), 30);   // third, its last row
    EXPECT_EQ(at(14, 9 + 4), 0);   // no fourth
    EXPECT_EQ(at(2, 1), 0);        // the gap

    // A PNG file appears whole or not at all.
    TempDir dir;
    const Picture p{4, 2, 3, std::vector<uint8_t>(24, 128)};
    std::string error;
    const std::string path = dir / "x.png", missing = dir / "no/such/dir/x.png";
    ASSERT_TRUE(writePng(path, p, &error)) << error;
    EXPECT_TRUE(std::filesystem::exists(path) && !std::filesystem::exists(path + ".partial"));
    EXPECT_EQ(encodePng(p).substr(1, 3), "PNG");
    EXPECT_FALSE(writePng(missing, p, &error));
    EXPECT_NE(error.find(missing), std::string::npos) << error;
    EXPECT_FALSE(std::filesystem::exists(missing + ".partial"));
}

// Every sub-command has its help; what one cannot take gets one line and exit status 2, and
// nothing is written.
TEST(ZorcamUtilCommandLineTest, EveryCommandHasHelpAndRefusesWhatItCannotTake) {
    std::vector<std::string> refused = {"no-such-command", "report x --since 1 x",
                                        "view x --format Y8 --size 4x4 --bayer X"};
    for (const char* bad :
         {"--fps 0", "--size 8x8", "--format BAYER10", "--buffers 1", "--seconds", "--colour red"})
        refused.push_back(std::string("demo ") + bad);
    for (std::string command : {"demo", "format", "formats", "overlay", "pace", "report", "view"}) {
        const ToolRun help = runTool(command + " --help");
        EXPECT_TRUE(help.status == 0 &&
                    help.output.find("Usage: zorcam-util " + command) != help.output.npos)
                << command << ": " << help.output;
        refused.push_back(command + " --no-such-option 1");
    }
    TempDir dir;
    for (const std::string& args : refused) {
        const ToolRun run = runTool(args + " --out '" + dir / "out" + "'");
        EXPECT_TRUE(run.status == 2 && run.lines() == 1) << args << ": " << run.output;
        EXPECT_FALSE(std::filesystem::exists(dir / "out")) << args;
    }
    EXPECT_EQ(runTool("").status, 2);
}

}  // namespace
