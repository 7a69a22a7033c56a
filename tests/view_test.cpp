// zorcam-util view, run as a user runs it on raw pictures of known content.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "TempDir.h"
#include "ToolRun.h"

namespace {

using namespace zorcam_test;
using Bytes = std::vector<uint8_t>;

// Runs view on bytes written to a file in dir, the picture going to dir/out.png.
ToolRun view(const TempDir& dir, const Bytes& bytes, const std::string& args) {
    std::ofstream(dir / "in.raw", std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    std::filesystem::remove(dir / "out.png");
    return runTool("view '" + dir / "in.raw" + "' " + args + " --out '" + dir / "out.png" + "'");
}

// One 4:2:0 picture of a single colour in a YUV layout of the registry.
Bytes yuv420(const std::string& layout, int w, int h, uint8_t y, uint8_t u, uint8_t v) {
    Bytes b(static_cast<size_t>(w) * h, y);
    const size_t quarter = static_cast<size_t>(w / 2) * (h / 2);
    const bool vu = layout == "NV21" || layout == "YV12";  // Cr stored first
    const uint8_t first = vu ? v : u, second = vu ? u : v;
    for (size_t i = 0; i < quarter && layout[0] == 'N'; ++i) b.insert(b.end(), {first, second});
    if (layout[0] != 'N') b.insert(b.end(), quarter, first), b.insert(b.end(), quarter, second);
    return b;
}

// A w x h RGGB mosaic whose every sample is f(x, y, colour) on a 0-255 scale, stored as
// `format` stores it, with low bits that must not matter.
Bytes mosaic(const std::string& format, int w, int h, int (*f)(int, int, int)) {
    Bytes b;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const unsigned v = static_cast<unsigned>(f(x, y, (x & 1) + (y & 1)));
            if (format == "BAYER8" || format == "BAYER10_MIPI")
                b.push_back(static_cast<uint8_t>(v));
            if (format == "BAYER10_MIPI" && x % 4 == 3) b.push_back(0xaa);  // low bits 2 each
            if (format.find("UNPAK") == std::string::npos) continue;
            const int depth = std::stoi(format.substr(5, 2));  // in little-endian words
            const unsigned word = v << (depth - 8) | 1u << (depth - 9);
            b.insert(b.end(), {static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8)});
        }
    }
    return b;
}

TEST(ViewTest, PicturesShowTheirColours) {
    TempDir dir;
    // Views bytes as a w x h picture, which must be want(x, y, colour) (0 red, 1 green, 2 blue)
    // within tolerance, away from `margin` pixels of edge.
    auto check = [&](const std::string& args, int w, int h, const Bytes& bytes, int tolerance,
                     int margin, const std::function<int(int, int, int)>& want) {
        SCOPED_TRACE(args + " " + std::to_string(w) + "x" + std::to_string(h));
        const ToolRun run =
                view(dir, bytes, args + " --size " + std::to_string(w) + "x" + std::to_string(h));
        Rgb rgb;
        ASSERT_TRUE(run.status == 0 && readPng(dir / "out.png", &rgb)) << run.output;
        ASSERT_TRUE(rgb.width == w && rgb.height == h);
        for (int i = 0; i < w * h * 3; ++i) {
            const int x = i / 3 % w, y = i / 3 / w;
            if (x < margin || x >= w - margin || y < margin || y >= h - margin) continue;
            EXPECT_NEAR(rgb.pixels[i], want(x, y, i % 3), tolerance) << x << "," << y;
        }
    };
    // Y 81, Cb 90, Cr 240 is saturated red in limited-range BT.601: chroma from the right plane
    // and in the right order.
    for (const std::string layout : {"NV21", "NV12", "I420", "YV12"})
        check("--format " + layout, 16, 8, yuv420(layout, 16, 8, 81, 90, 240), 24, 0,
              [](int, int, int c) { return c == 0 ? 255 : 0; });
    Bytes padded(6 * 12, 255);  // NV21 8x4 in rows of 12 bytes: the bright padding must not show
    for (size_t i = 0; i < padded.size(); ++i)
        if (i % 12 < 8) padded[i] = i < 4 * 12 ? 126 : 128;
    check("--format NV21 --stride 12", 8, 4, padded, 2, 0, [](int, int, int) { return 128; });
    check("--format Y8", 2, 2, {0, 50, 100, 150}, 0, 0,
          [](int x, int y, int) { return 50 * (2 * y + x); });
    // Y16: little-endian words, the high byte shown.
    check("--format Y16", 2, 1, {0xff, 0x10, 0x00, 0x80}, 0, 0,
          [](int x, int, int) { return x == 0 ? 0x10 : 0x80; });
    // Flat colours, and a ramp across that bilinear interpolation reproduces exactly away from
    // the edges.
    using Pattern = int (*)(int, int, int);
    const Pattern flat = [](int, int, int c) { return c == 0 ? 200 : c == 1 ? 100 : 50; };
    const Pattern ramp = [](int x, int, int c) { return 20 * x + 10 * c; };
    for (const std::string format :
         {"BAYER8", "BAYER10_UNPAK", "BAYER12_UNPAK", "BAYER14_UNPAK", "BAYER10_MIPI"})
        for (Pattern f : {flat, ramp})
            check("--format " + format, 8, 6, mosaic(format, 8, 6, f), 0, 1, f);
}

TEST(ViewTest, BadInputIsRefusedWithoutAPicture) {
    const Bytes nv21 = yuv420("NV21", 16, 8, 100, 128, 128);
    const std::tuple<Bytes, const char*, const char*> cases[] = {
            {Bytes(nv21.size() - 1), "--format NV21 --size 16x8", "too short"},
            {Bytes(nv21.size() + 1), "--format NV21 --size 16x8", "too long"},
            {nv21, "--format NV99 --size 16x8", "unknown format"},
            {nv21, "--format NV21 --size 0x8", "bad --size"},
            {nv21, "--format NV21 --size 16x8 --stride 15", "stride"},
            {Bytes(16 * 8), "--format JPEG --size 16x8", "no decoder"},
            {Bytes(13 * 2), "--format BAYER10_MIPI --size 10x2", "multiple of 4"},
    };
    TempDir dir;
    for (const auto& [bytes, args, message] : cases) {
        const ToolRun run = view(dir, bytes, args);
        EXPECT_TRUE(run.status == 2 && run.output.find(message) != std::string::npos)
                << args << ": " << run.output;
        // Nothing is left beside the input: no picture, whole or partial.
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1) << args;
    }
}

}  // namespace
