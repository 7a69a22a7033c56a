// zorcam-util view, run as a user runs it on raw pictures of known content.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "TempDir.h"
#include "ToolRun.h"

namespace {

namespace fs = std::filesystem;
using zorcam_test::readPng;
using zorcam_test::Rgb;
using zorcam_test::runTool;
using zorcam_test::ToolRun;

void writeBytes(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

class ViewTest : public ::testing::Test {
protected:
    // Runs view on bytes; the picture when it succeeded.
    ToolRun view(const std::vector<uint8_t>& bytes, const std::string& args,
                 Rgb* picture = nullptr) {
        writeBytes(mInput, bytes);
        fs::remove(mOutput);
        ToolRun run = runTool("view '" + mInput.string() + "' " + args + " --out '" +
                              mOutput.string() + "'");
        if (picture != nullptr && run.status == 0) {
            EXPECT_TRUE(readPng(mOutput, picture));
        }
        return run;
    }

    zorcam_test::TempDir mDir;
    fs::path mInput = fs::path(mDir.path()) / "in.raw";
    fs::path mOutput = fs::path(mDir.path()) / "out.png";
};

// One 4:2:0 picture of a single colour in each YUV layout the registry has.
std::vector<uint8_t> yuv420(const std::string& layout, int w, int h, uint8_t y, uint8_t u,
                            uint8_t v) {
    std::vector<uint8_t> b(static_cast<size_t>(w) * h, y);
    const size_t quarter = static_cast<size_t>(w / 2) * (h / 2);
    for (size_t i = 0; i < quarter; ++i) {
        if (layout == "NV21") b.insert(b.end(), {v, u});
        if (layout == "NV12") b.insert(b.end(), {u, v});
    }
    if (layout == "I420") b.insert(b.end(), quarter, u), b.insert(b.end(), quarter, v);
    if (layout == "YV12") b.insert(b.end(), quarter, v), b.insert(b.end(), quarter, u);
    return b;
}

TEST_F(ViewTest, YuvChromaIsTakenFromTheRightPlaneAndOrder) {
    // Y 81, Cb 90, Cr 240 is saturated red in limited-range BT.601.
    for (const char* layout : {"NV21", "NV12", "I420", "YV12"}) {
        Rgb picture;
        const ToolRun run = view(yuv420(layout, 16, 8, 81, 90, 240),
                                 std::string("--format ") + layout + " --size 16x8", &picture);
        ASSERT_EQ(run.status, 0) << layout << ": " << run.output;
        const uint8_t* px = picture.at(7, 3);
        EXPECT_GT(px[0], 220) << layout;
        EXPECT_LT(px[1], 40) << layout;
        EXPECT_LT(px[2], 40) << layout;
    }
}

TEST_F(ViewTest, PaddedRowsAreSkipped) {
    // NV21 8x4 with rows of 12 bytes: the padding holds bright bytes that must not show.
    std::vector<uint8_t> b;
    for (int plane = 0; plane < 2; ++plane)
        for (int row = 0; row < (plane == 0 ? 4 : 2); ++row) {
            for (int x = 0; x < 8; ++x) b.push_back(plane == 0 ? 126 : 128);
            for (int x = 8; x < 12; ++x) b.push_back(255);
        }
    Rgb picture;
    const ToolRun run = view(b, "--format NV21 --size 8x4 --stride 12", &picture);
    ASSERT_EQ(run.status, 0) << run.output;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x)
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(picture.at(x, y)[c], 128, 2) << "pixel " << x << "," << y;
}

TEST_F(ViewTest, GreyFormatsShowTheirSamples) {
    Rgb picture;
    ASSERT_EQ(view({0, 50, 100, 200}, "--format Y8 --size 2x2", &picture).status, 0);
    EXPECT_EQ(picture.at(1, 1)[0], 200);
    EXPECT_EQ(picture.at(1, 0)[2], 50);
    // Y16: little-endian words, the high byte shown.
    ASSERT_EQ(view({0xff, 0x10, 0x00, 0x80}, "--format Y16 --size 2x1", &picture).status, 0);
    EXPECT_EQ(picture.at(0, 0)[1], 0x10);
    EXPECT_EQ(picture.at(1, 0)[1], 0x80);
}

// A width x height RGGB mosaic whose every sample is f(x, y, colour) on a 0-255 scale,
// stored as `format` stores it.
std::vector<uint8_t> mosaic(const std::string& format, int w, int h, int (*f)(int, int, int)) {
    std::vector<uint8_t> b;
    for (int y = 0; y < h; ++y) {
        std::vector<unsigned> row;
        for (int x = 0; x < w; ++x) {
            const int colour = (y & 1) == 0 ? ((x & 1) == 0 ? 0 : 1) : ((x & 1) == 0 ? 1 : 2);
            row.push_back(static_cast<unsigned>(f(x, y, colour)));
        }
        if (format == "BAYER8") {
            for (unsigned v : row) b.push_back(static_cast<uint8_t>(v));
        } else if (format == "BAYER10_MIPI") {
            for (size_t x = 0; x < row.size(); x += 4) {
                uint8_t low = 0;
                for (size_t k = 0; k < 4; ++k) {
                    const unsigned v10 = row[x + k] << 2 | 2;  // low bits that must not matter
                    b.push_back(static_cast<uint8_t>(v10 >> 2));
                    low |= static_cast<uint8_t>((v10 & 3) << (2 * k));
                }
                b.push_back(low);
            }
        } else {
            const int depth = std::stoi(format.substr(5, 2));  // BAYERnn_UNPAK
            for (unsigned v : row) {
                const unsigned word = v << (depth - 8) | 1u << (depth - 9);
                b.push_back(static_cast<uint8_t>(word & 0xff));
                b.push_back(static_cast<uint8_t>(word >> 8));
            }
        }
    }
    return b;
}

TEST_F(ViewTest, BayerDemosaicRestoresFlatColoursAndRamps) {
    const int w = 8, h = 6;
    // Flat colours, and a ramp across that bilinear interpolation reproduces exactly away from
    // the edges: each is f(x, y, colour) for the mosaic and the picture alike.
    const std::pair<const char*, int (*)(int, int, int)> patterns[] = {
            {"flat", [](int, int, int c) { return c == 0 ? 200 : c == 1 ? 100 : 50; }},
            {"ramp", [](int x, int, int c) { return 20 * x + 10 * c; }}};
    for (const char* format :
         {"BAYER8", "BAYER10_UNPAK", "BAYER12_UNPAK", "BAYER14_UNPAK", "BAYER10_MIPI"}) {
        for (const auto& [what, f] : patterns) {
            Rgb picture;
            const ToolRun run = view(mosaic(format, w, h, f),
                                     std::string("--format ") + format + " --size 8x6", &picture);
            ASSERT_EQ(run.status, 0) << format << ": " << run.output;
            for (int y = 1; y < h - 1; ++y)
                for (int x = 1; x < w - 1; ++x)
                    for (int c = 0; c < 3; ++c)
                        EXPECT_EQ(picture.at(x, y)[c], f(x, y, c))
                                << format << " " << what << ", pixel " << x << "," << y
                                << " colour " << c;
        }
    }
}

TEST_F(ViewTest, BadInputIsRefusedWithoutAPicture) {
    const std::vector<uint8_t> nv21_16x8 = yuv420("NV21", 16, 8, 100, 128, 128);
    std::vector<uint8_t> longer = nv21_16x8;
    longer.push_back(0);
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        std::string args;
        const char* message;
    } cases[] = {
            {"short file", std::vector<uint8_t>(nv21_16x8.begin(), nv21_16x8.end() - 1),
             "--format NV21 --size 16x8", "too short"},
            {"long file", longer, "--format NV21 --size 16x8", "too long"},
            {"unknown format", nv21_16x8, "--format NV99 --size 16x8", "unknown format"},
            {"zero width", nv21_16x8, "--format NV21 --size 0x8", "bad --size"},
            {"zero height", nv21_16x8, "--format NV21 --size 16x0", "bad --size"},
            {"stride under a row", nv21_16x8, "--format NV21 --size 16x8 --stride 15", "stride"},
            {"no decoder", std::vector<uint8_t>(16 * 8), "--format JPEG --size 16x8", "no decoder"},
            {"MIPI width", std::vector<uint8_t>(13 * 2), "--format BAYER10_MIPI --size 10x2",
             "multiple of 4"},
    };
    for (const Case& c : cases) {
        const ToolRun run = view(c.bytes, c.args);
        EXPECT_EQ(run.status, 2) << c.what << ": " << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << c.what << ": " << run.output;
        EXPECT_FALSE(fs::exists(mOutput)) << c.what;
        EXPECT_FALSE(fs::exists(mOutput.string() + ".partial")) << c.what;
    }
}

}  // namespace
