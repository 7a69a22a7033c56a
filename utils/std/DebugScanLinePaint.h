#pragma once

// The scan-line overlay's painting, apart from its property reads, so that it can be driven
// with settings given directly (benchmarks, fuzzing).

#include <cstdint>

namespace NSCam {
namespace Utils {
namespace ScanLine {

/// The six "vendor.debug.cam.scanline" settings, already converted to numbers.
struct Settings {
    int32_t value;       // byte painted (low 8 bits)
    int32_t height;      // band thickness in 1/800ths of the image height
    int32_t width;       // band width in bytes; < 1 means whole rows
    int32_t widthShift;  // left edge of a partial-width band, in bytes
    int32_t speed;       // rows moved per frame, in fifths
    int32_t fullscreen;  // non-zero: whole buffer (whole rows) or a fixed full-height stripe
};

/// Rows of the moving band: from row `top`, `rows` rows (64-bit, so never overflowed).
struct Band {
    int64_t top;
    int64_t rows;
};

/// Reads value, height, width, widthShift and speed, in that order; fullscreen is left 0.
Settings readSettings();
/// Reads the fullscreen setting, which the overlay reads last, after its debug line.
int32_t readFullscreen();

/// Where the band of frame frameCount lies in a picture of `height` rows.
Band placeBand(int height, int32_t frameCount, const Settings& settings);

/// Paints one frame: the band, the whole buffer or the stripe, as the settings say, clipped
/// to the size bytes from buffer (nothing for a null buffer).
void paint(void* buffer, int size, int stride, int height, const Settings& settings,
           const Band& band);

}  // namespace ScanLine
}  // namespace Utils
}  // namespace NSCam
