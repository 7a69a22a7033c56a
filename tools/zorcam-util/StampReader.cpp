#include "StampReader.h"

#include <zorcam/utils/std/DebugDrawID.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace zorcam_util {

namespace {

constexpr unsigned kCells = 5;  // a digit is kCells x kCells cells

using Glyph = std::array<bool, kCells * kCells>;

// The cells of each digit as the library draws them, at one byte per cell.
const std::array<Glyph, 10>& glyphs() {
    static const std::array<Glyph, 10> sGlyphs = [] {
        std::array<Glyph, 10> all{};
        for (unsigned d = 0; d < 10; ++d) {
            // One byte more than the glyph: a stamp may not end on the buffer's last byte.
            char cells[kCells * kCells + 1] = {};
            DebugDrawID::draw(d, 1, 0, 0, cells, kCells, kCells, kCells, sizeof(cells), 1, 0, 1);
            for (unsigned i = 0; i < kCells * kCells; ++i) all[d][i] = cells[i] == 1;
        }
        return all;
    }();
    return sGlyphs;
}

}  // namespace

StampGeometry stampGeometryFor(unsigned width, unsigned height, unsigned digits) {
    StampGeometry g{digits, 0, 0, 1, 250, 20};
    const unsigned margin = std::max(1u, std::min(width, height) / 40);
    const unsigned fitW = width > 2 * margin ? (width - 2 * margin) / (kCells * digits * 2) : 1;
    const unsigned fitH = height > 2 * margin ? (height - 2 * margin) / (kCells * 4) : 1;
    g.size = std::clamp(std::min(fitW, fitH), 1u, 10u);
    g.x = margin;
    g.y = margin;
    return g;
}

long readStamp(const uint8_t* plane, size_t stride, size_t rows, size_t pixelStep,
               const StampGeometry& g) {
    const size_t boxW = static_cast<size_t>(kCells) * g.size * g.digits;
    const size_t boxH = static_cast<size_t>(kCells) * g.size;
    if (g.digits == 0 || g.size == 0 || g.y + boxH > rows || (g.x + boxW) * pixelStep > stride) {
        return -1;
    }
    const int threshold = (g.bg + g.fg) / 2;
    const bool fgAbove = g.fg > g.bg;
    long number = 0;
    for (unsigned d = 0; d < g.digits; ++d) {
        Glyph seen{};
        for (unsigned cy = 0; cy < kCells; ++cy) {
            for (unsigned cx = 0; cx < kCells; ++cx) {
                const size_t row = g.y + cy * g.size + g.size / 2;
                const size_t col =
                        g.x + (static_cast<size_t>(d) * kCells + cx) * g.size + g.size / 2;
                const int v = plane[row * stride + col * pixelStep];
                seen[cy * kCells + cx] = fgAbove ? v > threshold : v < threshold;
            }
        }
        const auto& all = glyphs();
        if (all[0] == all[1]) return -1;  // the library drew nothing to match against
        const auto match = std::find(all.begin(), all.end(), seen);
        if (match == all.end()) return -1;
        number = number * 10 + (match - all.begin());
    }
    return number;
}

}  // namespace zorcam_util
