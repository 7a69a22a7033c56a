#include <zorcam/utils/std/DebugDrawID.h>

#include "LogCapture.h"

#include <zorcam/utils/std/Log.h>

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using namespace zorcam_test;

namespace {

// Camera log level seen by the property-gated path. The library reads the real one once at
// load (2 in tests, which keeps debug lines back); this replacement lets a test choose.
int gLogLevel = 3;

// Glyphs as drawn on paper: '#' foreground, '.' background.
const char* const kDigits[10][5] = {
    {".###.", ".#.#.", ".#.#.", ".#.#.", ".###."},
    {"...#.", "...#.", "...#.", "...#.", "...#."},
    {".###.", "...#.", ".###.", ".#...", ".###."},
    {".###.", "...#.", ".###.", "...#.", ".###."},
    {".#.#.", ".#.#.", ".###.", "...#.", "...#."},
    {".###.", ".#...", ".###.", "...#.", ".###."},
    {".#...", ".#...", ".###.", ".#.#.", ".###."},
    {".###.", ".#.#.", "...#.", "...#.", "...#."},
    {".###.", ".#.#.", ".###.", ".#.#.", ".###."},
    {".###.", ".#.#.", ".###.", "...#.", ".###."},
};
const char* const kLetters[26][5] = {
    {"..#...", ".#.#..", ".###..", "#...#.", "#...#."},  // A
    {"####..", "#...#.", "####..", "#...#.", "####.."},  // B
    {".###..", "#...#.", "#.....", "#...#.", ".###.."},  // C
    {"####..", "#...#.", "#...#.", "#...#.", "####.."},  // D
    {"#####.", "#.....", "####..", "#.....", "#####."},  // E
    {"#####.", "#.....", "###...", "#.....", "#....."},  // F
    {".####.", "#.....", "#.###.", "#..##.", ".##.#."},  // G
    {"#...#.", "#...#.", "#####.", "#...#.", "#...#."},  // H
    {"#####.", "..#...", "..#...", "..#...", "#####."},  // I
    {"#####.", "..#...", "..#...", "#.#...", ".#...."},  // J
    {"#...#.", "#..#..", "###...", "#..#..", "#...#."},  // K
    {"#.....", "#.....", "#.....", "#.....", "#####."},  // L
    {"#...#.", "##.##.", "#.#.#.", "#.#.#.", "#...#."},  // M
    {"#...#.", "##..#.", "#.#.#.", "#..##.", "#...#."},  // N
    {".###..", "#...#.", "#...#.", "#...#.", ".###.."},  // O
    {"####..", "#...#.", "####..", "#.....", "#....."},  // P
    {".###..", "#...#.", "#.#.#.", "#..##.", ".####."},  // Q
    {"####..", "#...#.", "#####.", "#..#..", "#...#."},  // R
    {".####.", "#.....", ".###..", "....#.", "####.."},  // S
    {"#####.", "..#...", "..#...", "..#...", "..#..."},  // T
    {"#...#.", "#...#.", "#...#.", "#...#.", ".###.."},  // U
    {"#...#.", "#...#.", ".#.#..", ".#.#..", "..#..."},  // V
    {"#...#.", "#.#.#.", "#.#.#.", "#.#.#.", ".#.#.."},  // W
    {"#...#.", ".#.#..", "..#...", ".#.#..", "#...#."},  // X
    {"#...#.", ".#.#..", "..#...", "..#...", "..#..."},  // Y
    {"#####.", "...#..", "..#...", ".#....", "#####."},  // Z
};

constexpr uint8_t kUntouched = 0x5A;
constexpr uint8_t kBg = 250;
constexpr uint8_t kFg = 20;

// Expected row r of a text: digits get one background column in front, letters are 6 wide.
std::string textRow(const std::string& shown, int r) {
    std::string row;
    for (char c : shown) row += c <= '9' ? std::string(".") + kDigits[c - '0'][r]
                                         : std::string(kLetters[c - 'A'][r]);
    return row;
}

std::string digitRow(const std::string& shown, int r) {
    std::string row;
    for (char c : shown) row += kDigits[c - '0'][r];
    return row;
}

struct Plane {
    unsigned stride;
    std::vector<uint8_t> bytes;
    Plane(unsigned s, unsigned rows) : stride(s), bytes(size_t{s} * rows, kUntouched) {}
    char* data() { return reinterpret_cast<char*>(bytes.data()); }
    unsigned size() const { return static_cast<unsigned>(bytes.size()); }

    // Reads glyph row r of a stamp at (x, y) with cells of s bytes as '#'/'.'; a cell that is
    // not uniformly fg or bg reads '?'.
    std::string readRow(unsigned x, unsigned y, unsigned s, int r, unsigned cells) const {
        std::string out;
        for (unsigned c = 0; c < cells; ++c) {
            const uint8_t first = bytes[x + c * s + (y + r * s) * stride];
            char cell = first == kFg ? '#' : first == kBg ? '.' : '?';
            for (unsigned j = 0; j < s; ++j)
                for (unsigned i = 0; i < s; ++i)
                    if (bytes[x + c * s + i + (y + r * s + j) * stride] != first) cell = '?';
            out += cell;
        }
        return out;
    }

    // Bytes outside the box [x, x + w) x [y, y + h) that changed.
    int changedOutside(unsigned x, unsigned y, unsigned w, unsigned h) const {
        int n = 0;
        for (size_t i = 0; i < bytes.size(); ++i) {
            const size_t row = i / stride, col = i % stride;
            const bool inside = row >= y && row < y + h && col >= x && col < x + w;
            if (!inside && bytes[i] != kUntouched) ++n;
        }
        return n;
    }
};

}  // namespace

extern "C" int zorcam_testLog(const char* /*tag*/, int level) {
    switch (level) {
        case 'E': return 1;
        case 'W': return gLogLevel > 0;
        case 'I': return gLogLevel > 1;
        case 'D': return gLogLevel > 2;
        case 'V': return gLogLevel > 3;
        default: return 0;
    }
}

class DebugDrawIDTest : public LogCaptureTest {
protected:
    void TearDown() override {
        for (const char* key : {"debug.cam.drawid", "debug.cam.draw.en", "debug.cam.drawid.digit",
                                "debug.cam.drawid.x", "debug.cam.drawid.y",
                                "debug.cam.drawid.size", "debug.cam.drawid.bg",
                                "debug.cam.drawid.fg"})
            property_set(key, "");
        gLogLevel = 3;
        LogCaptureTest::TearDown();
    }

    // The one debug line of the property-gated path, or "" when there is not exactly one.
    std::string onlyDebugLine() {
        auto lines = androidLines();
        EXPECT_TRUE(ulogLines().empty());
        if (lines.size() != 1) return "";
        EXPECT_EQ(lines[0].prio, 3);
        EXPECT_EQ(lines[0].tag, "ZorCam/DebugDrawID");
        return lines[0].text;
    }
};

TEST_F(DebugDrawIDTest, NumericStampShowsTheLowestDigitsInAnOpaqueBox) {
    struct Case { unsigned number, digit, size; const char* shown; };
    const Case cases[] = {{42, 5, 1, "00042"},  {1234567, 5, 2, "34567"},
                          {1234567, 1, 3, "7"}, {1234567890, 10, 1, "1234567890"},
                          {4294967295u, 12, 1, "004294967295"}, {90, 2, 20, "90"},
                          {7, 900, 1, nullptr}};  // wider than one composed piece
    for (const Case& c : cases) {
        const std::string shown = c.shown ? c.shown : std::string(899, '0') + "7";
        SCOPED_TRACE(shown.substr(0, 16));
        const unsigned x = 7, y = 3, w = 5 * c.size * c.digit;
        Plane plane(std::max(400u, w + 16), 5 * c.size + 6);
        DebugDrawID::draw(c.number, c.digit, x, y, plane.data(), 100, 10, plane.stride,
                          plane.size(), c.size, static_cast<char>(kBg), kFg);
        for (int r = 0; r < 5; ++r)
            EXPECT_EQ(plane.readRow(x, y, c.size, r, 5 * c.digit), digitRow(shown, r)) << r;
        EXPECT_EQ(plane.changedOutside(x, y, w, 5 * c.size), 0);
    }
    expectNoLines();
}

TEST_F(DebugDrawIDTest, DefaultsSkipExactlyWhenTheLastByteWouldBeTheBuffersLast) {
    DebugDrawID* id = DebugDrawID::createInstance();
    EXPECT_FALSE(id->needDraw());
    expectNoLines();
    Plane fits(640, 250);
    id->draw(42, fits.data(), 640, 250, 640, 159811);
    for (int r = 0; r < 5; ++r) EXPECT_EQ(fits.readRow(200, 200, 10, r, 25), digitRow("00042", r));
    EXPECT_EQ(fits.changedOutside(200, 200, 250, 50), 0);
    expectNoLines();  // no MagicNumber line while stamping is switched off

    Plane tight(640, 250);
    id->draw(42, tight.data(), 640, 250, 640, 159810);
    EXPECT_EQ(tight.changedOutside(0, 0, 0, 0), 0);
    EXPECT_EQ(onlyDebugLine(),
              "[draw] Skip: exceed bufSize(159810): digit(5) stride(640) (5x5)@(200,200) BPP(10)");
    id->destroyInstance();
}

TEST_F(DebugDrawIDTest, PropertiesSetTheStampAndItsLines) {
    property_set("debug.cam.draw.en", "1");
    property_set("debug.cam.drawid.digit", "0");
    property_set("debug.cam.drawid.size", "0");
    property_set("debug.cam.drawid.x", "3");
    property_set("debug.cam.drawid.y", "2");
    property_set("debug.cam.drawid.fg", "0x1ff");  // only the low byte reaches the buffer
    DebugDrawID id(5, 200, 200, 10, static_cast<char>(kBg), kFg);
    EXPECT_TRUE(id.needDraw());
    EXPECT_EQ(onlyDebugLine(),
              "[DebugDrawID] need(1), digit(1), offset(3,2), pixel(1), bg(250), fg(511)");
    clearLogs();

    Plane plane(16, 8);
    id.draw(1238, plane.data(), 16, 8, 16, plane.size());
    EXPECT_EQ(onlyDebugLine(), "[draw] MagicNumber:(1238)");
    const char* const eight[5] = {".###.", ".#.#.", ".###.", ".#.#.", ".###."};
    for (unsigned r = 0; r < 5; ++r)
        for (unsigned c = 0; c < 5; ++c)
            EXPECT_EQ(plane.bytes[3 + c + (2 + r) * 16], eight[r][c] == '#' ? 0xFF : kBg);
    EXPECT_EQ(plane.changedOutside(3, 2, 5, 5), 0);

    // The position form keeps the object's cell size and values but not its place or count.
    Plane other(16, 8);
    id.draw(1238, 2, 0, 1, other.data(), 16, 8, 16, other.size());
    EXPECT_EQ(other.bytes[16 + 0], kBg);   // "38": '3' has a stroke in column 1 of row 0,
    EXPECT_EQ(other.bytes[16 + 1], 0xFF);  // '8' in columns 6 to 8
    EXPECT_EQ(other.bytes[16 + 6], 0xFF);
    EXPECT_EQ(other.changedOutside(0, 1, 10, 5), 0);

    // The same switch at the camera's usual level writes no line at all.
    gLogLevel = 2;
    clearLogs();
    DebugDrawID quiet(5, 0, 0, 1, 0, 0);
    quiet.draw(1, nullptr, 1, 1, 1, 1);
    expectNoLines();
}

TEST_F(DebugDrawIDTest, StampsThatCannotFitAreSkippedWithTheirLine) {
    Plane plane(640, 8);
    DebugDrawID::draw(1, 5, 0, 0, nullptr, 1, 1, 640, 5120, 1, 0, 0);
    EXPECT_EQ(onlyDebugLine(), "[draw] Skip: No buffer");
    clearLogs();
    DebugDrawID::draw(1, 5, 0, 0, plane.data(), 0, 8, 640, plane.size(), 1, 0, 0);
    EXPECT_EQ(onlyDebugLine(), "[draw] Skip: width(0) height(8) ");
    // Products that wrap in 32 bits to a small end: 5 * 858993460 = 2^32 + 4.
    const unsigned wraps[][5] = {{858993460, 0, 0, 640, 1},
                                 {5, 0, 0xFFFFFFFF, 640, 1},
                                 {5, 0, 0, 0xFFFFFFFFu, 0x80000000u},
                                 {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu,
                                  0xFFFFFFFFu}};
    for (const auto& w : wraps) {
        clearLogs();
        DebugDrawID::draw(7, w[0], w[1], w[2], plane.data(), 1, 1, w[3], plane.size(), w[4], 1, 2);
        EXPECT_NE(onlyDebugLine().find("Skip: exceed bufSize"), std::string::npos);
    }
    EXPECT_EQ(plane.changedOutside(0, 0, 0, 0), 0);
}

TEST_F(DebugDrawIDTest, WideStampRunsOnIntoTheNextRowsAndLaterRowsWin) {
    Plane plane(8, 6);
    DebugDrawID::draw(12, 2, 0, 0, plane.data(), 8, 6, 8, plane.size(), 1,
                      static_cast<char>(kBg), kFg);
    std::string expected;
    for (int r = 0; r < 4; ++r) expected += digitRow("12", r).substr(0, 8);
    expected += digitRow("12", 4);
    std::string seen;
    for (size_t i = 0; i < expected.size(); ++i) seen += plane.bytes[i] == kFg ? '#' : '.';
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(plane.bytes[expected.size()], kUntouched);
}

TEST_F(DebugDrawIDTest, TextStampDrawsDigitsAndCapitalsAndSkipsOtherBytes) {
    struct Case { std::string text; const char* shown; unsigned size; };
    const Case cases[] = {{"ABCDEFGHIJKLM", "ABCDEFGHIJKLM", 1},
                          {"nopqrstuvwxyz", "NOPQRSTUVWXYZ", 1},
                          {"0123456789", "0123456789", 1},
                          {"id-7b", "ID7B", 2},
                          {std::string("a\0\xe1\xff z", 6), "AZ", 3}};
    DebugDrawID* id = DebugDrawID::createInstance();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.shown);
        Plane plane(300, 20);
        const unsigned x = 2, y = 1, cells = 6 * static_cast<unsigned>(strlen(c.shown));
        id->draw(c.text, x, y, plane.data(), 1, 1, plane.stride, plane.size(), c.size,
                 static_cast<char>(kBg), kFg);
        for (int r = 0; r < 5; ++r)
            EXPECT_EQ(plane.readRow(x, y, c.size, r, cells), textRow(c.shown, r)) << r;
        EXPECT_EQ(plane.changedOutside(x, y, cells * c.size, 5 * c.size), 0);
    }
    id->destroyInstance();
    expectNoLines();
}

TEST_F(DebugDrawIDTest, TextCheckCountsEveryByteAndAnEmptyTextWritesNothing) {
    DebugDrawID id(1, 0, 0, 1, 0, 0);
    // "id-7b" at size 2 from byte 4 of row 1, stride 64: end = 4 + 10 * 64 + 60 = 704.
    Plane plane(64, 12);
    id.draw("id-7b", 4, 1, plane.data(), 1, 1, 64, 704, 2, 1, 2);
    EXPECT_EQ(plane.changedOutside(0, 0, 0, 0), 0);
    EXPECT_EQ(onlyDebugLine(),
              "[draw] Skip: exceed buffer size(704) : length(5), buffer stride(64), mask(6x5), "
              "offset(4,1), BPP(2)");
    clearLogs();
    id.draw("id-7b", 4, 1, plane.data(), 1, 1, 64, 705, 2, 1, 2);
    EXPECT_EQ(plane.changedOutside(4, 1, 48, 10), 0);
    EXPECT_EQ(plane.bytes[4 + 64], 2);  // 'I' starts with a foreground cell
    expectNoLines();

    Plane empty(64, 12);
    id.draw("", 0, 2, empty.data(), 1, 1, 64, 64 * 6 + 1, 1, 1, 2);
    expectNoLines();
    id.draw("", 0, 2, empty.data(), 1, 1, 64, 64 * 6, 1, 1, 2);
    EXPECT_NE(onlyDebugLine().find("length(0)"), std::string::npos);
    EXPECT_EQ(empty.changedOutside(0, 0, 0, 0), 0);

    clearLogs();
    id.draw("x", 0, 0, nullptr, 1, 1, 64, 704, 1, 1, 2);
    EXPECT_EQ(onlyDebugLine(), "[draw] skip: no buffer");
    clearLogs();
    id.draw("x", 0, 0, plane.data(), 5, 0, 64, 704, 1, 1, 2);
    EXPECT_EQ(onlyDebugLine(), "[draw] skip: width(5) height(0) ");
}
