#include "Image.h"

#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zorcam_util {

namespace {

png_image makeImage(int width, int height, int channels) {
    png_image image;
    memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    return image;
}

}  // namespace

bool writePng(const std::string& path, const uint8_t* pixels, int width, int height, int stride,
              int channels, std::string* error) {
    const std::string partial = path + ".partial";
    png_image image = makeImage(width, height, channels);
    if (!png_image_write_to_file(&image, partial.c_str(), 0, pixels, stride, nullptr)) {
        *error = "cannot write " + path + ": " + image.message;
        png_image_free(&image);
        unlink(partial.c_str());
        return false;
    }
    if (rename(partial.c_str(), path.c_str()) != 0) {
        *error = "cannot write " + path + ": " + strerror(errno);
        unlink(partial.c_str());
        return false;
    }
    return true;
}

bool writePng(const std::string& path, const Picture& picture, std::string* error) {
    return writePng(path, picture.pixels.data(), picture.width, picture.height,
                    picture.width * picture.channels, picture.channels, error);
}

std::string encodePng(const Picture& picture) {
    png_image image = makeImage(picture.width, picture.height, picture.channels);
    png_alloc_size_t size = 0;
    const int stride = picture.width * picture.channels;
    if (!png_image_write_get_memory_size(image, size, 0, picture.pixels.data(), stride, nullptr)) {
        png_image_free(&image);
        return {};
    }
    std::string out(size, '\0');
    image = makeImage(picture.width, picture.height, picture.channels);
    if (!png_image_write_to_memory(&image, out.data(), &size, 0, picture.pixels.data(), stride,
                                   nullptr)) {
        png_image_free(&image);
        return {};
    }
    out.resize(size);
    return out;
}

Picture thumbnail(const Picture& picture, int maxEdge) {
    const int longer = std::max(picture.width, picture.height);
    const int w = longer <= maxEdge ? picture.width : std::max(1, picture.width * maxEdge / longer);
    const int h =
            longer <= maxEdge ? picture.height : std::max(1, picture.height * maxEdge / longer);
    Picture t{w, h, picture.channels, {}};
    t.pixels.resize(static_cast<size_t>(w) * h * t.channels);
    for (int y = 0; y < h; ++y) {
        const size_t sy = static_cast<size_t>(y) * picture.height / h;
        for (int x = 0; x < w; ++x) {
            const size_t sx = static_cast<size_t>(x) * picture.width / w;
            memcpy(&t.pixels[(static_cast<size_t>(y) * w + x) * t.channels],
                   &picture.pixels[(sy * picture.width + sx) * picture.channels], t.channels);
        }
    }
    return t;
}

Picture contactSheet(const std::vector<Picture>& thumbs, int columns, int gap) {
    Picture sheet;
    if (thumbs.empty()) return sheet;
    columns = std::max(1, std::min<int>(columns, static_cast<int>(thumbs.size())));
    const int rows = (static_cast<int>(thumbs.size()) + columns - 1) / columns;
    int cellW = 1, cellH = 1;
    for (const Picture& t : thumbs) {
        cellW = std::max(cellW, t.width);
        cellH = std::max(cellH, t.height);
    }
    sheet.channels = thumbs[0].channels;
    sheet.width = columns * cellW + (columns + 1) * gap;
    sheet.height = rows * cellH + (rows + 1) * gap;
    sheet.pixels.assign(static_cast<size_t>(sheet.width) * sheet.height * sheet.channels, 0);
    for (size_t i = 0; i < thumbs.size(); ++i) {
        const Picture& t = thumbs[i];
        if (t.channels != sheet.channels) continue;
        const int ox = gap + static_cast<int>(i % columns) * (cellW + gap);
        const int oy = gap + static_cast<int>(i / columns) * (cellH + gap);
        for (int y = 0; y < t.height; ++y)
            memcpy(&sheet.pixels[(static_cast<size_t>(oy + y) * sheet.width + ox) * sheet.channels],
                   &t.pixels[static_cast<size_t>(y) * t.width * t.channels],
                   static_cast<size_t>(t.width) * t.channels);
    }
    return sheet;
}

}  // namespace zorcam_util
