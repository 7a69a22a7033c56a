#pragma once

// Raw camera buffers (as dumped) turned into pictures, with the plane geometry of the
// image-format registry.

#include <cstdint>
#include <string>
#include <vector>

#include "Image.h"

namespace zorcam_util {

/// One plane of a raw buffer: where it starts, its row pitch and rows, in bytes.
struct PlaneLayout {
    uint64_t offset;
    uint64_t stride;
    uint64_t rows;
};

/// The planes of a width x height buffer of `format` and their total size. stride is plane 0's
/// row pitch in bytes (0: rows packed without padding); the other planes' pitches keep their
/// ratio to it. False with a message when the format is unknown or the stride too small.
bool rawLayout(int format, uint64_t width, uint64_t height, uint64_t stride,
               std::vector<PlaneLayout>* planes, uint64_t* total, std::string* error);

/// Order of the colour filter on the top-left 2 x 2 pixels of a raw Bayer picture.
enum class BayerOrder { RGGB, GRBG, GBRG, BGGR };

/// Turns `size` bytes of a raw buffer into a picture: YUV into RGB, Y8/Y16 into grey, raw
/// Bayer (8-bit, 8 to 14 bits in 16-bit words, 10-bit MIPI packed) into RGB by bilinear
/// demosaic. The size must match the layout exactly. False with a message otherwise, or when
/// the format is not one of those.
bool decodeRaw(const uint8_t* data, uint64_t size, int format, int width, int height,
               uint64_t stride, BayerOrder order, Picture* picture, std::string* error);

}  // namespace zorcam_util
