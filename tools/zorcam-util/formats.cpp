// zorcam-util formats / format: the image-format registry from the command line.

#include <zorcam/utils/std/Format.h>

#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "Args.h"
#include "Command.h"

namespace zorcam_util {

namespace {

using NSCam::Utils::Format::IImgFmt;
using NSCam::Utils::Format::ImgFmtMap;

// The chroma subsampling a descriptor's plane rules give, read off plane 1 of a 2 x 2 image.
const char* subsampling(const IImgFmt& fmt) {
    if (fmt.getPlaneCount() < 2) return "-";
    const size_t w = fmt.getPlaneWidthInPixels(1, 2);
    const size_t h = fmt.getPlaneHeightInPixels(1, 2);
    if (w == 1 && h == 1) return "4:2:0";
    if (w == 1 && h == 2) return "4:2:2";
    return "full";
}

int listFormats() {
    const ImgFmtMap map = NSCam::Utils::Format::getMapper();
    printf("%-10s  %-20s  %6s  %10s  %-12s  %s\n", "id", "name", "planes", "image bits",
           "plane bits", "subsampling");
    for (size_t i = 0; i < map.size(); ++i) {
        const IImgFmt& fmt = *map.valueAt(i);
        char bits[32];
        snprintf(bits, sizeof(bits), "%d/%d/%d", fmt.getPlaneBitsPerPixel(0),
                 fmt.getPlaneBitsPerPixel(1), fmt.getPlaneBitsPerPixel(2));
        printf("%#-10x  %-20s  %6zu  %10d  %-12s  %s\n", map.keyAt(i), fmt.getName(),
               fmt.getPlaneCount(), fmt.getImageBitsPerPixel(), bits, subsampling(fmt));
    }
    printf("%zu formats\n", map.size());
    return 0;
}

int describeFormat(const std::string& name, const std::string& size) {
    const ImgFmtMap map = NSCam::Utils::Format::getMapper();
    const android::sp<IImgFmt> fmt = findFormat(map, name);
    if (fmt == nullptr) return badArgument("format", "unknown format '" + name + "'");
    uint64_t width = 0;
    uint64_t height = 0;
    if (!parseSize(size, &width, &height))
        return badArgument("format", "bad size '" + size + "' (expected WxH, e.g. 1920x1080)");
    printf("%s %" PRIu64 "x%" PRIu64 ": %zu plane(s), %d bits per pixel\n", fmt->getName(), width,
           height, fmt->getPlaneCount(), fmt->getImageBitsPerPixel());
    unsigned __int128 total = 0;
    for (size_t p = 0; p < fmt->getPlaneCount(); ++p) {
        const uint64_t w = fmt->getPlaneWidthInPixels(p, width);
        const uint64_t h = fmt->getPlaneHeightInPixels(p, height);
        const int bits = fmt->getPlaneBitsPerPixel(p);
        // Up to (2^31)^2 x 48 bits: wider than 64 bits before the division.
        const unsigned __int128 bitCount = static_cast<unsigned __int128>(w) * h * bits;
        const uint64_t bytes = static_cast<uint64_t>((bitCount + 7) / 8);
        total += bytes;
        printf("plane %zu: %" PRIu64 " x %" PRIu64 " pixels, %d bits per pixel, %" PRIu64
               " bytes\n",
               p, w, h, bits, bytes);
    }
    printf("total: %" PRIu64 " bytes\n", static_cast<uint64_t>(total));
    return 0;
}

const Command sFormats("formats", "List the image-format registry.",
                       [](CLI::App&) -> Command::Runner { return listFormats; });

const Command sFormat(
        "format", "Plane sizes of one format at one image size.",
        [](CLI::App& command) -> Command::Runner {
            auto name = std::make_shared<std::string>();
            auto size = std::make_shared<std::string>();
            command.add_option("format", *name, "format name or id (0x...)")->required();
            command.add_option("size", *size, "image size, WxH")->required();
            return [name, size] { return describeFormat(*name, *size); };
        });

}  // namespace

}  // namespace zorcam_util
