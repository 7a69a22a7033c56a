#include "RawImage.h"

#include <zorcam/utils/std/Format.h>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <memory>

namespace zorcam_util {

namespace Fmt = NSCam::Utils::Format;

namespace {

// YUV formats that libswscale reads: its pixel format and, for planar ones, which stored plane
// holds Cb and which Cr (swscale wants Y, Cb, Cr).
struct YuvEntry {
    int format;
    AVPixelFormat av;
    int cb, cr;
    bool swapPairs;  // chroma stored VU where swscale only knows UV: swapped into a copy
};

const YuvEntry kYuv[] = {
        {Fmt::eImgFmt_I420, AV_PIX_FMT_YUV420P, 1, 2, false},
        {Fmt::eImgFmt_YV12, AV_PIX_FMT_YUV420P, 2, 1, false},
        {Fmt::eImgFmt_NV12, AV_PIX_FMT_NV12, 1, 1, false},
        {Fmt::eImgFmt_NV21, AV_PIX_FMT_NV21, 1, 1, false},
        {Fmt::eImgFmt_YV16, AV_PIX_FMT_YUV422P, 2, 1, false},
        {Fmt::eImgFmt_I422, AV_PIX_FMT_YUV422P, 2, 1, false},
        {Fmt::eImgFmt_NV16, AV_PIX_FMT_NV16, 1, 1, false},
        {Fmt::eImgFmt_NV61, AV_PIX_FMT_NV16, 1, 1, true},
        {Fmt::eImgFmt_YUY2, AV_PIX_FMT_YUYV422, 0, 0, false},
        {Fmt::eImgFmt_YVYU, AV_PIX_FMT_YVYU422, 0, 0, false},
        {Fmt::eImgFmt_UYVY, AV_PIX_FMT_UYVY422, 0, 0, false},
        {Fmt::eImgFmt_YUV_P010, AV_PIX_FMT_P010LE, 1, 1, false},
        {Fmt::eImgFmt_YUV_P210, AV_PIX_FMT_P210LE, 1, 1, false},
};

// Raw Bayer formats: bits per stored sample word and significant bits.
struct BayerEntry {
    int format;
    int wordBits;  // 8, 16, or 10 for MIPI packing
    int depth;
};

const BayerEntry kBayer[] = {
        {Fmt::eImgFmt_BAYER8, 8, 8},          {Fmt::eImgFmt_BAYER8_UNPAK, 16, 8},
        {Fmt::eImgFmt_BAYER10_UNPAK, 16, 10}, {Fmt::eImgFmt_BAYER12_UNPAK, 16, 12},
        {Fmt::eImgFmt_BAYER14_UNPAK, 16, 14}, {Fmt::eImgFmt_BAYER10_MIPI, 10, 10},
};

template <typename T, size_t N>
const T* find(const T (&table)[N], int format) {
    for (const T& e : table)
        if (e.format == format) return &e;
    return nullptr;
}

bool decodeYuv(const YuvEntry& e, const uint8_t* data, const std::vector<PlaneLayout>& planes,
               int width, int height, Picture* out, std::string* error) {
    std::unique_ptr<SwsContext, void (*)(SwsContext*)> sws(
            sws_getContext(width, height, e.av, width, height, AV_PIX_FMT_RGB24,
                           SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr,
                           nullptr),
            sws_freeContext);
    if (sws == nullptr) {
        *error = "the converter refused this size";
        return false;
    }
    const uint8_t* src[4] = {};
    int srcStride[4] = {};
    std::vector<uint8_t> swapped;
    src[0] = data + planes[0].offset;
    srcStride[0] = static_cast<int>(planes[0].stride);
    if (planes.size() == 2) {
        src[1] = data + planes[1].offset;
        srcStride[1] = static_cast<int>(planes[1].stride);
        if (e.swapPairs) {
            swapped.assign(src[1], src[1] + planes[1].stride * planes[1].rows);
            for (size_t i = 0; i + 1 < swapped.size(); i += 2)
                std::swap(swapped[i], swapped[i + 1]);
            src[1] = swapped.data();
        }
    } else if (planes.size() == 3) {
        src[1] = data + planes[e.cb].offset;
        src[2] = data + planes[e.cr].offset;
        srcStride[1] = static_cast<int>(planes[e.cb].stride);
        srcStride[2] = static_cast<int>(planes[e.cr].stride);
    }
    out->width = width;
    out->height = height;
    out->channels = 3;
    out->pixels.assign(static_cast<size_t>(width) * height * 3, 0);
    uint8_t* dst[4] = {out->pixels.data()};
    int dstStride[4] = {width * 3};
    if (sws_scale(sws.get(), src, srcStride, 0, height, dst, dstStride) != height) {
        *error = "the converter failed";
        return false;
    }
    return true;
}

// Samples of a raw row as 8-bit values.
void unpackRow(const BayerEntry& e, const uint8_t* row, int width, uint8_t* out) {
    for (int x = 0; x < width; ++x) {
        unsigned v;
        if (e.wordBits == 8) {
            v = row[x];
        } else if (e.wordBits == 16) {
            v = row[2 * x] | (row[2 * x + 1] << 8);
        } else {
            // MIPI RAW10: four pixels in five bytes, the high eight bits of each first, then
            // one byte of their low two bits, first pixel lowest.
            const uint8_t* group = row + (x / 4) * 5;
            v = (group[x % 4] << 2) | ((group[4] >> (2 * (x % 4))) & 3);
        }
        v &= (1u << e.depth) - 1;
        out[x] = static_cast<uint8_t>(v >> (e.depth - 8));
    }
}

// The colour (0 R, 1 G, 2 B) of the filter over pixel (x, y).
int filterColour(BayerOrder order, int x, int y) {
    static const int kColours[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {1, 2, 0, 1}, {2, 1, 1, 0}};
    return kColours[static_cast<int>(order)][(y & 1) * 2 + (x & 1)];
}

// Bilinear demosaic: each colour a pixel lacks is the mean of that colour's samples among its
// eight neighbours (two or four of them, fewer at the edges).
void demosaic(const std::vector<uint8_t>& mosaic, int width, int height, BayerOrder order,
              Picture* out) {
    out->width = width;
    out->height = height;
    out->channels = 3;
    out->pixels.assign(static_cast<size_t>(width) * height * 3, 0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* px = &out->pixels[(static_cast<size_t>(y) * width + x) * 3];
            const int own = filterColour(order, x, y);
            unsigned sum[3] = {}, count[3] = {};
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if ((dx == 0 && dy == 0) || nx < 0 || ny < 0 || nx >= width || ny >= height)
                        continue;
                    const int c = filterColour(order, nx, ny);
                    // Green at a green pixel comes from the pixel alone.
                    if (c == own) continue;
                    sum[c] += mosaic[static_cast<size_t>(ny) * width + nx];
                    ++count[c];
                }
            }
            for (int c = 0; c < 3; ++c) {
                if (c == own)
                    px[c] = mosaic[static_cast<size_t>(y) * width + x];
                else
                    px[c] = count[c] ? static_cast<uint8_t>((sum[c] + count[c] / 2) / count[c]) : 0;
            }
        }
    }
}

}  // namespace

bool rawLayout(int format, uint64_t width, uint64_t height, uint64_t stride,
               std::vector<PlaneLayout>* planes, uint64_t* total, std::string* error) {
    const Fmt::ImgFmtMap map = Fmt::getMapper();
    const ssize_t index = map.indexOfKey(format);
    if (index < 0) {
        *error = "unknown format";
        return false;
    }
    const Fmt::IImgFmt& fmt = *map.valueAt(index);
    planes->clear();
    uint64_t offset = 0;
    // Row bits of plane 0; the other planes' pitches are scaled from it.
    const uint64_t bits0 = fmt.getPlaneWidthInPixels(0, width) * fmt.getPlaneBitsPerPixel(0);
    const uint64_t packed0 = (bits0 + 7) / 8;
    if (stride != 0 && stride < packed0) {
        char text[128];
        snprintf(text, sizeof(text), "stride %" PRIu64 " is under the %" PRIu64 " bytes of one row",
                 stride, packed0);
        *error = text;
        return false;
    }
    for (size_t p = 0; p < fmt.getPlaneCount(); ++p) {
        const uint64_t bits = fmt.getPlaneWidthInPixels(p, width) * fmt.getPlaneBitsPerPixel(p);
        const uint64_t packed = (bits + 7) / 8;
        const uint64_t pitch =
                stride == 0 || bits0 == 0 ? packed : (stride * bits + bits0 - 1) / bits0;
        const uint64_t rows = fmt.getPlaneHeightInPixels(p, height);
        planes->push_back({offset, pitch, rows});
        offset += pitch * rows;
    }
    *total = offset;
    return true;
}

bool decodeRaw(const uint8_t* data, uint64_t size, int format, int width, int height,
               uint64_t stride, BayerOrder order, Picture* picture, std::string* error) {
    std::vector<PlaneLayout> planes;
    uint64_t total = 0;
    if (width <= 0 || height <= 0) {
        *error = "the size must be at least 1x1";
        return false;
    }
    if (!rawLayout(format, width, height, stride, &planes, &total, error)) return false;
    const std::string name = Fmt::queryImageFormatName(format);
    if (size != total) {
        char text[256];
        snprintf(text, sizeof(text),
                 "%s %dx%d needs %" PRIu64 " bytes, the data has %" PRIu64 " (%s)", name.c_str(),
                 width, height, total, size, size < total ? "too short" : "too long");
        *error = text;
        return false;
    }
    if (const YuvEntry* yuv = find(kYuv, format))
        return decodeYuv(*yuv, data, planes, width, height, picture, error);
    if (format == Fmt::eImgFmt_Y8 || format == Fmt::eImgFmt_Y16) {
        const bool wide = format == Fmt::eImgFmt_Y16;
        picture->width = width;
        picture->height = height;
        picture->channels = 1;
        picture->pixels.resize(static_cast<size_t>(width) * height);
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = data + y * planes[0].stride;
            for (int x = 0; x < width; ++x)
                picture->pixels[static_cast<size_t>(y) * width + x] =
                        wide ? row[2 * x + 1] : row[x];  // Y16: the high byte of each word
        }
        return true;
    }
    if (const BayerEntry* bayer = find(kBayer, format)) {
        if (bayer->wordBits == 10 && width % 4 != 0) {
            *error = name + " packs four pixels in five bytes: the width must be a multiple of 4";
            return false;
        }
        std::vector<uint8_t> mosaic(static_cast<size_t>(width) * height);
        for (int y = 0; y < height; ++y)
            unpackRow(*bayer, data + y * planes[0].stride, width,
                      &mosaic[static_cast<size_t>(y) * width]);
        demosaic(mosaic, width, height, order, picture);
        return true;
    }
    *error = "no decoder for " + name + " (YUV 4:2:0/4:2:2, Y8, Y16 and raw Bayer are known)";
    return false;
}

}  // namespace zorcam_util
