#pragma once

// Reads back a numeric frame stamp drawn by DebugDrawID, by drawing every digit with the
// library's own stamp and matching the cells of the picture against them.

#include <cstddef>
#include <cstdint>

namespace zorcam_util {

/// Where and how a picture's stamp is drawn.
struct StampGeometry {
    unsigned digits;
    unsigned x;     // left edge, bytes
    unsigned y;     // top row
    unsigned size;  // cell edge, bytes and rows
    uint8_t bg;
    uint8_t fg;
};

/// The stamp the demo draws into a picture of width x height: as large as fits in the top
/// left corner, cells of 1 to 10.
StampGeometry stampGeometryFor(unsigned width, unsigned height, unsigned digits);

/// The number stamped in an 8-bit plane (rows `stride` bytes apart, `rows` rows), or -1 when
/// the box is outside the plane or a digit matches none of 0-9. `pixelStep` is the distance in
/// bytes between neighbouring samples (3 for the green channel of packed RGB).
long readStamp(const uint8_t* plane, size_t stride, size_t rows, size_t pixelStep,
               const StampGeometry& g);

}  // namespace zorcam_util
