#pragma once

// Pictures in memory and as PNG files, shared by the sub-commands that draw.

#include <cstdint>
#include <string>
#include <vector>

namespace zorcam_util {

/// Packed 8-bit samples, `channels` per pixel (1 grey, 3 RGB), rows `width * channels` bytes.
struct Picture {
    int width = 0;
    int height = 0;
    int channels = 1;
    std::vector<uint8_t> pixels;
};

/// Writes pixels (rows `stride` bytes apart) as a PNG. The file appears whole or not at all:
/// it is written beside the target and renamed over it. False with a message in error.
bool writePng(const std::string& path, const uint8_t* pixels, int width, int height, int stride,
              int channels, std::string* error);
bool writePng(const std::string& path, const Picture& picture, std::string* error);

/// The PNG encoding of a picture, for embedding; empty on failure.
std::string encodePng(const Picture& picture);

/// A picture scaled down by nearest neighbour so its longer side is at most maxEdge.
Picture thumbnail(const Picture& picture, int maxEdge);

/// Thumbnails laid out in rows of `columns` with a gap, on a black sheet; all of one channel
/// count (that of the first).
Picture contactSheet(const std::vector<Picture>& thumbs, int columns, int gap);

}  // namespace zorcam_util
