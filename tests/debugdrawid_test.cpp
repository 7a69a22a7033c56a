#include <zorcam/utils/std/DebugDrawID.h>

#include <zorcam/utils/std/Log.h>

#include "DebugDrawIDStamp.h"
#include "LogCapture.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

using namespace zorcam_test;
using namespace NSCam::Utils::DrawID;

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
         "#...#..###..#......####.#...#.####....#....###....#....#.#..#...#...#...#####."}};

constexpr uint8_t kUntouched = 0x5A, kBg = 250, kFg = 20;

// A plane and the bytes it should hold: stamps are added to the expectation in the order they
// are drawn, rows top to bottom, so that a stamp wider than the stride runs on into the next
// rows and each row overwrites the run-on of the row above, as the library's do.
struct Plane {
    unsigned stride;
    std::vector<uint8_t> bytes, want;
    Plane(unsigned s, unsigned n) : stride(s), bytes(size_t{s} * n, kUntouched), want(bytes) {}
    char* data() { return reinterpret_cast<char*>(bytes.data()); }
    unsigned size() const { return static_cast<unsigned>(bytes.size()); }
    // The stamp of `shown` at (x, y) in cells of s bytes: plane row r shows glyph row g = r / s,
    // in a text stamp a digit with one background column in front.
    Plane& expect(size_t x, size_t y, unsigned s, const std::string& shown, bool text = false) {
        for (unsigned r = 0, g = 0; r < 5 * s; g = ++r / s) {
            std::string row;
            for (const int ch : shown) {
                const int l = ch - 'A';
                if (ch > '9') row += std::string(kLetters[l / 13][g] + l % 13 * 6, 6);
                for (int k = text ? -1 : 0; ch <= '9' && k < 5; ++k)
                    row += k >= 0 && kDigitFont[ch - '0'][g * 5 + k] ? '#' : '.';
            }
            for (size_t c = 0; c < row.size() * s; ++c)
                want.at(x + c + (y + r) * stride) = row[c / s] == '#' ? kFg : kBg;
        }
        return *this;
    }
    // The plane holds exactly the stamps expected, nothing else changed (else: the first wrong
    // byte).
    void check() const {
        const auto i = std::mismatch(want.begin(), want.end(), bytes.begin()).first - want.begin();
        EXPECT_EQ(i, want.end() - want.begin()) << "row " << i / stride << " column " << i % stride;
    }
};

// The property-gated path writes every line, debug ones included.
extern "C" int zorcam_testLog(const char* /*tag*/, int /*level*/) { return 1; }

using DebugDrawIDTest = LogCaptureTest;

// Stamps shown by their lowest digits, 0 left of a 32-bit number's ten, in an opaque box.
TEST_F(DebugDrawIDTest, NumericStampShowsTheLowestDigitsInAnOpaqueBox) {
    const struct { unsigned number, digit, size, stride; std::string shown; } cases[] = {
            // The last three: cells wider than any vector store, a box composed in pieces, a box
            // wider than the stride (its rows run on).
            {1234567, 5, 2, 400, "34567"}, {1234567890, 10, 1, 400, "1234567890"},
            {4294967295u, 12, 1, 400, "004294967295"}, {90, 2, 70, 716, "90"},
            {7, 900, 1, 4516, std::string(899, '0') + "7"}, {12, 2, 1, 8, "12"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.shown.substr(0, 16));
        Plane plane(c.stride, 5 * c.size + 6);
        DebugDrawID::draw(c.number, c.digit, 7, 3, plane.data(), 100, 10, plane.stride,
                          plane.size(), c.size, static_cast<char>(kBg), kFg);
        plane.expect(7, 3, c.size, c.shown).check();
    }
}

// Each vector path the processor has, not only the one the library picked, draws exactly the
// reference stamp: cell sizes and digit counts around the paths' limits (64 cells across,
// 8 vectors wide, cells of 16 and 64 bytes), boxes at any alignment, stride equal to the box.
TEST_F(DebugDrawIDTest, EveryVectorPathDrawsTheSameStamps) {
    for (const FastPath& path : kFastPaths) {
        for (unsigned size : {2u, 3u, 7u, 10u, 16u, 17u, 33u, 64u})
            for (unsigned digit : {1u, 2u, 5u, 8u, 12u, 13u, 20u})
                for (const unsigned x : {0u, 1u, 37u}) {
                    const uint64_t box = uint64_t{5} * size * digit;
                    if (!path.mSupported() || box < path.mWidth || box > kScratchBytes) continue;
                    SCOPED_TRACE(std::string(path.mName) + " size " + std::to_string(size) +
                                 " digits " + std::to_string(digit) + " x " + std::to_string(x));
                    Plane plane(static_cast<unsigned>(x + box + x % 2 * 64), 5 * size + 2);
                    const ShownDigits digits(3141592653u, digit);
                    path.mStamp({&digits, digit, size, kBg, kFg,
                                 plane.bytes.data() + x + plane.stride, plane.stride});
                    const std::string number = std::string(10, '0') + "3141592653";
                    plane.expect(x, 1, size, number.substr(20 - digit)).check();
                }
    }
}

// Each public call into one plane: its whole output ("" for none), every line of the module
// among them, with the skips at their exact size limits (a box ends at x + (y + rows - 1) *
// stride + width, and must end before the buffer's size), and then what they drew.
TEST_F(DebugDrawIDTest, EachCallsLinesAndStamps) {
    Plane p(640, 250);
    DebugDrawID* const def = DebugDrawID::createInstance();  // needDraw() false
    // A digit count and cell size of 0 mean 1; fg 0x114 reaches the buffer as 20.
    const char* const props[][2] = {{"draw.en", "1"}, {"drawid.digit", "0"}, {"drawid.size", "0"},
                                    {"drawid.x", "300"}, {"drawid.y", "2"}, {"drawid.fg", "0x114"}};
    for (const auto& s : props) property_set((std::string("debug.cam.") + s[0]).c_str(), s[1]);
    std::unique_ptr<DebugDrawID> set;
    const char bg = static_cast<char>(kBg), fg = kFg;
    const std::pair<std::function<void()>, const char*> calls[] = {
            {[&] { set = std::make_unique<DebugDrawID>(5, 200, 200, 10, bg, 0); },
             "[DebugDrawID] need(1), digit(1), offset(300,2), pixel(1), bg(250), fg(276)"},
            {[&] { set->draw(1238, p.data(), 640, 250, 640, p.size()); },
             "[draw] MagicNumber:(1238)"},
            // The position form keeps the object's cell size and values, not its place or count.
            {[&] { set->draw(1238, 2, 100, 1, p.data(), 640, 250, 640, p.size()); }, ""},
            // 200 + (200 + 50 - 1) * 640 + 250 = 159810
            {[&] { def->draw(42, p.data(), 640, 250, 640, 159810); },
             "[draw] Skip: exceed bufSize(159810): digit(5) stride(640) (5x5)@(200,200) BPP(10)"},
            {[&] { def->draw(42, p.data(), 640, 250, 640, 159811); }, ""},
            {[&] { DebugDrawID::draw(1, 5, 0, 0, nullptr, 1, 1, 640, 5120, 1, 0, 0); },
             "[draw] Skip: No buffer"},
            {[&] { DebugDrawID::draw(1, 5, 0, 0, p.data(), 0, 8, 640, p.size(), 1, 0, 0); },
             "[draw] Skip: width(0) height(8) "},
            // Text: digits and capitals, lower case drawn as capitals, other bytes skipped.
            {[&] { def->draw("ABCDEFGHIJKLMnopqrstuvwxyz0123456789", 0, 20, p.data(), 1, 1, 640,
                             p.size(), 1, bg, fg); }, ""},
            {[&] { def->draw(std::string("a\0\xe1\xff z", 6), 0, 30, p.data(), 1, 1, 640,
                             p.size(), 3, bg, fg); }, ""},
            {[&] { def->draw("x", 0, 0, nullptr, 1, 1, 64, 704, 1, 1, 2); },
             "[draw] skip: no buffer"},
            {[&] { def->draw("x", 0, 0, p.data(), 5, 0, 640, p.size(), 1, 1, 2); },
             "[draw] skip: width(5) height(0) "},
            // 4 + (1 + 10 - 1) * 640 + 60 = 6464: the skipped bytes count too
            {[&] { def->draw("id-7b", 4, 1, p.data(), 1, 1, 640, 6464, 2, bg, fg); },
             "[draw] Skip: exceed buffer size(6464) : length(5), buffer stride(640), mask(6x5), "
             "offset(4,1), BPP(2)"},
            {[&] { def->draw("id-7b", 4, 1, p.data(), 1, 1, 640, 6465, 2, bg, fg); }, ""},
            {[&] { def->draw("", 0, 2, p.data(), 1, 1, 640, 3840, 1, 1, 2); },
             "[draw] Skip: exceed buffer size(3840) : length(0), buffer stride(640), mask(6x5), "
             "offset(0,2), BPP(1)"},
            {[&] { def->draw("", 0, 2, p.data(), 1, 1, 640, 3841, 1, 1, 2); }, ""}};
    for (const auto& [call, line] : calls) {
        call();
        std::string seen;
        for (const auto& l : androidLines()) seen += std::to_string(l.prio) + l.tag + l.text + "\n";
        EXPECT_EQ(seen, *line ? "3ZorCam/DebugDrawID" + std::string(line) + "\n" : "");
        clearLogs();
    }
    // Products that wrap in 32 bits to a small end (5 * 858993460 = 2^32 + 4; y or stride
    // 2^32 - 1), and a box width that wraps in 64 bits (5 * 3340214413 digits * cells of
    // 1104524548 = 2^64 + 4): each skipped with its line.
    const unsigned wraps[][5] = {{858993460, 0, 0, 640, 1}, {5, 0, ~0u, 640, 1},
                                 {5, 0, 0, ~0u, 1u << 31}, {3340214413u, 0, 0, 0, 1104524548u}};
    for (const auto& w : wraps) {
        DebugDrawID::draw(7, w[0], w[1], w[2], p.data(), 1, 1, w[3], p.size(), w[4], 0, 0);
        const auto a = androidLines();
        EXPECT_TRUE(a.size() == 1 && a[0].text.rfind("[draw] Skip: exceed bufSize(", 0) == 0);
        clearLogs();
    }
    for (const auto& s : props) property_set((std::string("debug.cam.") + s[0]).c_str(), "");
    EXPECT_TRUE(set->needDraw() && !def->needDraw());
    p.expect(300, 2, 1, "8").expect(100, 1, 1, "38").expect(200, 200, 10, "00042");
    p.expect(0, 20, 1, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", true).expect(0, 30, 3, "AZ", true);
    p.expect(4, 1, 2, "ID7B", true).check();
    def->destroyInstance();
}
