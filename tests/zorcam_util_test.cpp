// The pieces zorcam-util's commands share: argument parsing, raw plane layouts, stamp reading,
// charts and pictures.

#include <gtest/gtest.h>
#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/Format.h>

#include <filesystem>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Args.h"
#include "Image.h"
#include "RawImage.h"
#include "StampReader.h"
#include "Svg.h"
#include "TempDir.h"

namespace {

namespace Fmt = NSCam::Utils::Format;
using namespace zorcam_util;

TEST(ZorcamUtilArgsTest, SizesAndFormatsAreParsedOrRefused) {
    uint64_t w = 0, h = 0;
    ASSERT_TRUE(parseSize("1920x1080", &w, &h));
    EXPECT_EQ(w, 1920u);
    EXPECT_EQ(h, 1080u);
    for (const char* bad : {"0x5", "5x0", "x5", "5x", "1x2x3", "-1x2", "99999999999x1", "12"})
        EXPECT_FALSE(parseSize(bad, &w, &h)) << bad;

    const auto map = Fmt::getMapper();
    for (const char* name : {"NV21", "nv21", "0x11", "17"}) {
        int id = 0;
        ASSERT_NE(findFormat(map, name, &id), nullptr) << name;
        EXPECT_EQ(id, Fmt::eImgFmt_NV21) << name;
    }
    EXPECT_EQ(findFormat(map, "bogus"), nullptr);
    EXPECT_EQ(findFormat(map, "0x7777"), nullptr);
}

TEST(ZorcamUtilRawLayoutTest, PlanesFollowTheRegistryAndTheStride) {
    // view_test covers NV21 with a stride, Y16 and the Bayer layouts through the tool.
    struct Case { int format; uint64_t width, height, stride; std::vector<PlaneLayout> planes;
                  uint64_t total; } cases[] = {
            {Fmt::eImgFmt_YV12, 640, 480, 0,
             {{0, 640, 480}, {307200, 320, 240}, {384000, 320, 240}}, 460800},
            {Fmt::eImgFmt_YV12, 640, 480, 704,
             {{0, 704, 480}, {337920, 352, 240}, {422400, 352, 240}}, 506880},
            {Fmt::eImgFmt_YUY2, 100, 10, 0, {{0, 200, 10}}, 2000},
            {Fmt::eImgFmt_BAYER10_MIPI, 100, 4, 0, {{0, 125, 4}}, 500},
    };
    std::vector<PlaneLayout> planes;
    uint64_t total = 0;
    std::string error;
    for (const Case& c : cases) {
        const std::string name =
                Fmt::queryImageFormatName(c.format) + " stride " + std::to_string(c.stride);
        ASSERT_TRUE(rawLayout(c.format, c.width, c.height, c.stride, &planes, &total, &error))
                << name << ": " << error;
        ASSERT_EQ(planes.size(), c.planes.size()) << name;
        for (size_t p = 0; p < planes.size(); ++p) {
            const PlaneLayout &got = planes[p], &want = c.planes[p];
            EXPECT_TRUE(got.offset == want.offset && got.stride == want.stride &&
                        got.rows == want.rows)
                    << name << " plane " << p << ": " << got.offset << " " << got.stride << " "
                    << got.rows;
        }
        EXPECT_EQ(total, c.total) << name;
    }
    EXPECT_FALSE(rawLayout(Fmt::eImgFmt_NV21, 640, 480, 639, &planes, &total, &error));
    EXPECT_NE(error.find("stride 639"), std::string::npos) << error;
    EXPECT_FALSE(rawLayout(0x7777, 640, 480, 0, &planes, &total, &error));
}

TEST(ZorcamUtilStampTest, NumbersStampedByTheLibraryReadBack) {
    std::mt19937 rng(7);
    const std::pair<unsigned, unsigned> sizes[] = {
            {32, 24}, {320, 240}, {1920, 1080}, {4000, 3000}};
    for (const auto& [w, h] : sizes) {
        const StampGeometry g = stampGeometryFor(w, h, 5);
        ASSERT_LE(g.x + 25 * g.size, w) << w << "x" << h << ": the stamp must fit a row";
        for (unsigned number : {0u, 7u, 12345u, 99999u, 100042u}) {
            // A noisy picture, so that only the stamp's cells decide.
            std::vector<uint8_t> plane(static_cast<size_t>(w) * h);
            for (uint8_t& b : plane) b = static_cast<uint8_t>(rng());
            DebugDrawID::draw(number, g.digits, g.x, g.y, reinterpret_cast<char*>(plane.data()), w,
                              h, w, static_cast<unsigned>(plane.size()), g.size,
                              static_cast<char>(g.bg), static_cast<char>(g.fg));
            EXPECT_EQ(readStamp(plane.data(), w, h, 1, g), number % 100000)
                    << w << "x" << h << " number " << number;

            // One cell of the last digit flipped: no digit looks like that.
            const size_t row = g.y + 2 * g.size + g.size / 2;
            const size_t col = g.x + (4 * 5 + 0) * g.size + g.size / 2;  // column 0 is never ink
            plane[row * w + col] = g.fg;
            EXPECT_EQ(readStamp(plane.data(), w, h, 1, g), -1) << w << "x" << h;
        }
    }
    // Out of the plane: nothing is read outside it.
    const StampGeometry g = stampGeometryFor(320, 240, 5);
    std::vector<uint8_t> small(100 * 20, 0);
    EXPECT_EQ(readStamp(small.data(), 100, 20, 1, g), -1);
}

TEST(ZorcamUtilStampTest, StampIsReadFromOneChannelOfPackedPixels) {
    const unsigned w = 320, h = 240;
    const StampGeometry g = stampGeometryFor(w, h, 5);
    std::vector<uint8_t> grey(static_cast<size_t>(w) * h, 90);
    DebugDrawID::draw(4321, g.digits, g.x, g.y, reinterpret_cast<char*>(grey.data()), w, h, w,
                      static_cast<unsigned>(grey.size()), g.size, static_cast<char>(g.bg),
                      static_cast<char>(g.fg));
    // RGB with the stamp in green only; red and blue hold its opposite.
    std::vector<uint8_t> rgb(grey.size() * 3);
    for (size_t i = 0; i < grey.size(); ++i) {
        rgb[3 * i] = rgb[3 * i + 2] = static_cast<uint8_t>(255 - grey[i]);
        rgb[3 * i + 1] = grey[i];
    }
    EXPECT_EQ(readStamp(rgb.data() + 1, w * 3, h, 3, g), 4321);
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
    for (auto it = std::sregex_iterator(svg.begin(), svg.end(), bar); it != std::sregex_iterator();
         ++it) {
        counts.push_back((*it)[1]);
    }
    EXPECT_EQ(counts, (std::vector<std::string>{"1", "1", "2", "3"})) << svg;
    EXPECT_NE(svg.find("a &lt;title&gt; &amp; more"), std::string::npos) << svg;
    EXPECT_EQ(xmlEscape("\"it's\""), "&quot;it&#39;s&quot;");
}

TEST(ZorcamUtilImageTest, ThumbnailsAndSheetKeepTheirPixels) {
    Picture wide{400, 100, 1, std::vector<uint8_t>(400 * 100)};
    for (int x = 0; x < 400; ++x)
        for (int y = 0; y < 100; ++y) wide.pixels[y * 400 + x] = static_cast<uint8_t>(x / 4);
    const Picture t = thumbnail(wide, 100);
    EXPECT_EQ(t.width, 100);
    EXPECT_EQ(t.height, 25);
    EXPECT_EQ(t.pixels[10 * 100 + 50], 50);

    std::vector<Picture> thumbs;
    for (uint8_t v : {10, 20, 30}) thumbs.push_back({10, 5, 1, std::vector<uint8_t>(50, v)});
    const Picture sheet = contactSheet(thumbs, 2, 2);
    ASSERT_EQ(sheet.width, 2 * 10 + 3 * 2);
    ASSERT_EQ(sheet.height, 2 * 5 + 3 * 2);
    EXPECT_EQ(sheet.pixels[2 * sheet.width + 2], 10);        // first, top left
    EXPECT_EQ(sheet.pixels[2 * sheet.width + 14 + 9], 20);   // second, its last column
    EXPECT_EQ(sheet.pixels[(9 + 4) * sheet.width + 2], 30);  // third, its last row
    EXPECT_EQ(sheet.pixels[(9 + 4) * sheet.width + 14], 0);  // no fourth
    EXPECT_EQ(sheet.pixels[1 * sheet.width + 2], 0);         // the gap
}

TEST(ZorcamUtilImageTest, PngFileAppearsWholeOrNotAtAll) {
    zorcam_test::TempDir dir;
    const Picture p{4, 2, 3, std::vector<uint8_t>(24, 128)};
    std::string error;
    const std::string path = dir / "x.png";
    ASSERT_TRUE(writePng(path, p, &error)) << error;
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(path + ".partial"));
    EXPECT_EQ(encodePng(p).substr(1, 3), "PNG");

    const std::string missing = dir / "no/such/dir/x.png";
    EXPECT_FALSE(writePng(missing, p, &error));
    EXPECT_NE(error.find(missing), std::string::npos) << error;
    EXPECT_FALSE(std::filesystem::exists(missing + ".partial"));
}

}  // namespace
