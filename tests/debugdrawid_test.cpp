#include <zorcam/utils/std/DebugDrawID.h>

#include "DebugDrawIDStamp.h"
#include "LogCapture.h"

#include <zorcam/utils/std/Log.h>

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace zorcam_test;

namespace {

// Camera log level seen by the property-gated path. The library reads the real one once at
// load (2 in tests, which keeps debug lines back); the hook below lets a test choose.
int gLogLevel = 3;

// Letters as drawn on paper, side by side: '#' foreground, '.' background. Entry r of a block
// is glyph row r, 6 columns a letter. Digits come from the numeric stamp's own font.
const char* const kLetters[2][5] = {  // A to M, N to Z
        {"..#...####...###..####..#####.#####..####.#...#.#####.#####.#...#.#.....#...#.",
         ".#.#..#...#.#...#.#...#.#.....#.....#.....#...#...#.....#...#..#..#.....##.##.",
         ".###..####..#.....#...#.####..###...#.###.#####...#.....#...###...#.....#.#.#.",
         "#...#.#...#.#...#.#...#.#.....#.....#..##.#...#...#...#.#...#..#..#.....#.#.#.",
         "#...#.####...###..####..#####.#......##.#.#...#.#####..#....#...#.#####.#...#."},
        {"#...#..###..####...###..####...####.#####.#...#.#...#.#...#.#...#.#...#.#####.",
         "##..#.#...#.#...#.#...#.#...#.#.......#...#...#.#...#.#.#.#..#.#...#.#.....#..",
         "#.#.#.#...#.####..#.#.#.#####..###....#...#...#..#.#..#.#.#...#.....#.....#...",
         "#..##.#...#.#.....#..##.#..#......#...#...#...#..#.#..#.#.#..#.#....#....#....",
         "#...#..###..#......####.#...#.####....#....###....#....#.#..#...#...#...#####."},
};

constexpr uint8_t kUntouched = 0x5A;
constexpr uint8_t kBg = 250;
constexpr uint8_t kFg = 20;

// Expected glyph row r of `shown`; in a text stamp a digit has one background column in front.
std::string glyphRow(const std::string& shown, int r, bool text) {
    std::string row;
    for (char c : shown) {
        const int l = c - 'A';
        if (c > '9') row += std::string(kLetters[l / 13][r] + 6 * (l % 13), 6);
        for (int k = text ? -1 : 0; c <= '9' && k < 5; ++k)
            row += k >= 0 && NSCam::Utils::DrawID::kDigitFont[c - '0'][r * 5 + k] ? '#' : '.';
    }
    return row;
}

struct Plane {
    unsigned stride;
    std::vector<uint8_t> bytes;
    Plane(unsigned s, unsigned rows) : stride(s), bytes(size_t{s} * rows, kUntouched) {}
    char* data() { return reinterpret_cast<char*>(bytes.data()); }
    unsigned size() const { return static_cast<unsigned>(bytes.size()); }

    // Bytes outside the box [x, x + w) x [y, y + h) that changed.
    int changedOutside(size_t x, size_t y, size_t w, size_t h) const {
        int n = 0;
        for (size_t i = 0; i < bytes.size(); ++i) {
            const size_t row = i / stride, col = i % stride;
            n += bytes[i] != kUntouched && !(row >= y && row < y + h && col >= x && col < x + w);
        }
        return n;
    }

    // The plane holds exactly the stamp of `shown` at (x, y) with cells of s bytes: each cell
    // reads back as '#' (all fg) or '.' (all bg), '?' when mixed, and nothing outside changed.
    void expectStamp(size_t x, size_t y, unsigned s, const std::string& shown, bool text) const {
        const size_t cells = shown.size() * (text ? 6 : 5);
        for (unsigned r = 0; r < 5; ++r) {
            std::string row;
            for (size_t c = 0; c < cells; ++c) {
                const size_t at = x + c * s + (y + r * s) * stride;
                char cell = bytes[at] == kFg ? '#' : bytes[at] == kBg ? '.' : '?';
                for (unsigned j = 0; j < s * s; ++j)
                    if (bytes[at + j % s + j / s * stride] != bytes[at]) cell = '?';
                row += cell;
            }
            EXPECT_EQ(row, glyphRow(shown, r, text)) << "row " << r;
        }
        EXPECT_EQ(changedOutside(x, y, cells * s, 5 * s), 0);
    }
};

}  // namespace

extern "C" int zorcam_testLog(const char* /*tag*/, int level) {
    return level == 'E' || level == 'W' || level == 'I' || (level == 'D' && gLogLevel > 2);
}

class DebugDrawIDTest : public LogCaptureTest {
protected:
    void TearDown() override {
        for (const char* key : {"draw.en", "drawid.digit", "drawid.x", "drawid.y", "drawid.size",
                                "drawid.fg"})
            property_set((std::string("debug.cam.") + key).c_str(), "");
        gLogLevel = 3;
        LogCaptureTest::TearDown();
    }

    // The text of the one line written since the last call when it is a debug line of the
    // property-gated path with this module's tag, else "". Clears the capture.
    std::string takeDebugLine() {
        const auto lines = androidLines();
        const bool one = lines.size() == 1 && lines[0].prio == 3 &&
                         lines[0].tag == "ZorCam/DebugDrawID" && ulogLines().empty();
        clearLogs();
        return one ? lines[0].text : "";
    }
};

TEST_F(DebugDrawIDTest, NumericStampShowsTheLowestDigitsInAnOpaqueBoxRowByRow) {
    struct Case { unsigned number, digit, size; const char* shown; };
    const Case cases[] = {{1234567, 5, 2, "34567"}, {1234567890, 10, 1, "1234567890"},
                          {4294967295u, 12, 1, "004294967295"}, {90, 2, 20, "90"},
                          {7, 900, 1, nullptr}};  // wider than one composed piece
    for (const Case& c : cases) {
        const std::string shown = c.shown ? c.shown : std::string(899, '0') + "7";
        SCOPED_TRACE(shown.substr(0, 16));
        Plane plane(std::max(400u, 5 * c.size * c.digit + 16), 5 * c.size + 6);
        DebugDrawID::draw(c.number, c.digit, 7, 3, plane.data(), 100, 10, plane.stride,
                          plane.size(), c.size, static_cast<char>(kBg), kFg);
        plane.expectStamp(7, 3, c.size, shown, false);
    }
    // A stamp wider than the stride runs on into the next rows, and each row overwrites the
    // run-on of the row above.
    Plane plane(8, 6);
    DebugDrawID::draw(12, 2, 0, 0, plane.data(), 8, 6, 8, plane.size(), 1,
                      static_cast<char>(kBg), kFg);
    std::string expected, seen;
    for (int r = 0; r < 5; ++r) expected += glyphRow("12", r, false).substr(0, r < 4 ? 8 : 10);
    for (size_t i = 0; i < expected.size(); ++i) seen += plane.bytes[i] == kFg ? '#' : '.';
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(plane.bytes[expected.size()], kUntouched);
    expectNoLines();
}

// Each vector path the processor has, not only the one the library picked, draws exactly the
// reference stamp: cell sizes and digit counts around the paths' limits (64 cells across,
// 8 vectors wide, cells of 16 and 64 bytes), boxes at any alignment, stride equal to the box.
TEST_F(DebugDrawIDTest, EveryVectorPathDrawsTheSameStamps) {
    using namespace NSCam::Utils::DrawID;
    const std::string number = "3141592653";
    int paths = 0;
    for (const FastPath& path : kFastPaths) {
        if (!path.mSupported()) continue;
        ++paths;
        for (unsigned size : {2u, 3u, 7u, 10u, 16u, 17u, 33u, 64u}) {
            for (unsigned digit : {1u, 2u, 5u, 8u, 12u, 13u, 20u}) {
                const uint64_t box = uint64_t{5} * size * digit;
                if (box < path.mWidth || box > kScratchBytes) continue;
                const std::string shown = digit > 10 ? std::string(digit - 10, '0') + number
                                                     : number.substr(10 - digit);
                for (const unsigned x : {0u, 1u, 37u}) {
                    SCOPED_TRACE(std::string(path.mName) + " size " + std::to_string(size) +
                                 " digits " + std::to_string(digit) + " x " + std::to_string(x));
                    Plane plane(static_cast<unsigned>(x + box + x % 2 * 64), 5 * size + 2);
                    const ShownDigits digits(3141592653u, digit);
                    path.mStamp({&digits, digit, size, kBg, kFg,
                                 plane.bytes.data() + x + plane.stride, plane.stride});
                    plane.expectStamp(x, 1, size, shown, false);
                }
            }
        }
    }
    EXPECT_GT(paths, 0);
}

TEST_F(DebugDrawIDTest, DefaultsSkipExactlyWhenTheLastByteWouldBeTheBuffersLast) {
    DebugDrawID* id = DebugDrawID::createInstance();
    EXPECT_FALSE(id->needDraw());
    Plane plane(640, 250);
    id->draw(42, plane.data(), 640, 250, 640, 159810);
    EXPECT_EQ(plane.changedOutside(0, 0, 0, 0), 0);
    EXPECT_EQ(takeDebugLine(),
              "[draw] Skip: exceed bufSize(159810): digit(5) stride(640) (5x5)@(200,200) BPP(10)");
    id->draw(42, plane.data(), 640, 250, 640, 159811);
    plane.expectStamp(200, 200, 10, "00042", false);
    expectNoLines();  // no MagicNumber line while stamping is switched off
    id->destroyInstance();
}

TEST_F(DebugDrawIDTest, PropertiesSetTheStampAndItsLines) {
    const char* const settings[][2] = {{"draw.en", "1"},  {"drawid.digit", "0"},
                                       {"drawid.size", "0"}, {"drawid.x", "3"},
                                       {"drawid.y", "2"},  {"drawid.fg", "0x114"}};
    for (const auto& s : settings) property_set((std::string("debug.cam.") + s[0]).c_str(), s[1]);
    DebugDrawID id(5, 200, 200, 10, static_cast<char>(kBg), 0);
    EXPECT_TRUE(id.needDraw());
    EXPECT_EQ(takeDebugLine(),
              "[DebugDrawID] need(1), digit(1), offset(3,2), pixel(1), bg(250), fg(276)");

    Plane plane(16, 8);  // fg 0x114 reaches the buffer as its low byte, 20
    id.draw(1238, plane.data(), 16, 8, 16, plane.size());
    EXPECT_EQ(takeDebugLine(), "[draw] MagicNumber:(1238)");
    plane.expectStamp(3, 2, 1, "8", false);

    // The position form keeps the object's cell size and values but not its place or count.
    Plane other(16, 8);
    id.draw(1238, 2, 0, 1, other.data(), 16, 8, 16, other.size());
    other.expectStamp(0, 1, 1, "38", false);

    // The same switch at the camera's usual level writes no line at all.
    gLogLevel = 2;
    DebugDrawID(5, 0, 0, 1, 0, 0).draw(1, nullptr, 1, 1, 1, 1);
    expectNoLines();
}

TEST_F(DebugDrawIDTest, StampsThatCannotFitAreSkippedWithTheirLine) {
    Plane plane(640, 8);
    DebugDrawID::draw(1, 5, 0, 0, nullptr, 1, 1, 640, 5120, 1, 0, 0);
    EXPECT_EQ(takeDebugLine(), "[draw] Skip: No buffer");
    DebugDrawID::draw(1, 5, 0, 0, plane.data(), 0, 8, 640, plane.size(), 1, 0, 0);
    EXPECT_EQ(takeDebugLine(), "[draw] Skip: width(0) height(8) ");
    // Products that wrap in 32 bits to a small end: 5 * 858993460 = 2^32 + 4; and a box width
    // that wraps in 64 bits: 5 * 3340214413 digits * cells of 1104524548 = 2^64 + 4.
    const unsigned wraps[][5] = {{858993460, 0, 0, 640, 1},
                                 {5, 0, 0xFFFFFFFFu, 640, 1},
                                 {5, 0, 0, 0xFFFFFFFFu, 0x80000000u},
                                 {3340214413u, 0, 0, 0, 1104524548u}};
    for (const auto& w : wraps) {
        DebugDrawID::draw(7, w[0], w[1], w[2], plane.data(), 1, 1, w[3], plane.size(), w[4], 1, 2);
        EXPECT_NE(takeDebugLine().find("Skip: exceed bufSize"), std::string::npos);
    }
    EXPECT_EQ(plane.changedOutside(0, 0, 0, 0), 0);
}

TEST_F(DebugDrawIDTest, TextStampDrawsDigitsAndCapitalsSkipsOtherBytesAndChecksItsSize) {
    struct Case { std::string text; const char* shown; unsigned size; };
    const Case cases[] = {{"ABCDEFGHIJKLMnopqrstuvwxyz0123456789",
                           "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", 1},
                          {std::string("a\0\xe1\xff z", 6), "AZ", 3}};
    DebugDrawID id(1, 0, 0, 1, 0, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.shown);
        Plane plane(300, 20);
        id.draw(c.text, 2, 1, plane.data(), 1, 1, plane.stride, plane.size(), c.size,
                static_cast<char>(kBg), kFg);
        plane.expectStamp(2, 1, c.size, c.shown, true);
    }

    // The size check counts every byte, skipped ones too, and an empty text writes nothing.
    // "id-7b" at size 2 from byte 4 of row 1, stride 64: end = 4 + 10 * 64 + 60 = 704.
    Plane plane(64, 12);
    id.draw("id-7b", 4, 1, plane.data(), 1, 1, 64, 704, 2, static_cast<char>(kBg), kFg);
    EXPECT_EQ(plane.changedOutside(0, 0, 0, 0), 0);
    EXPECT_EQ(takeDebugLine(),
              "[draw] Skip: exceed buffer size(704) : length(5), buffer stride(64), mask(6x5), "
              "offset(4,1), BPP(2)");
    id.draw("id-7b", 4, 1, plane.data(), 1, 1, 64, 705, 2, static_cast<char>(kBg), kFg);
    plane.expectStamp(4, 1, 2, "ID7B", true);
    id.draw("", 0, 2, plane.data(), 1, 1, 64, 64 * 6 + 1, 1, 1, 2);
    expectNoLines();
    id.draw("", 0, 2, plane.data(), 1, 1, 64, 64 * 6, 1, 1, 2);
    EXPECT_NE(takeDebugLine().find("length(0)"), std::string::npos);
    EXPECT_EQ(plane.changedOutside(4, 1, 48, 10), 0);

    id.draw("x", 0, 0, nullptr, 1, 1, 64, 704, 1, 1, 2);
    EXPECT_EQ(takeDebugLine(), "[draw] skip: no buffer");
    id.draw("x", 0, 0, plane.data(), 5, 0, 64, 704, 1, 1, 2);
    EXPECT_EQ(takeDebugLine(), "[draw] skip: width(5) height(0) ");
}
