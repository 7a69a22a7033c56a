// zorcam-util view: turns a raw buffer dump into a PNG, with the plane geometry of the
// image-format registry.

#include <sys/stat.h>
#include <zorcam/utils/std/Format.h>
#include <zorcam/utils/std/Misc.h>

#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Args.h"
#include "Command.h"
#include "RawImage.h"

namespace zorcam_util {

namespace {

struct ViewOptions {
    std::string file, formatName, size, out;
    uint64_t stride = 0;
    BayerOrder order = BayerOrder::RGGB;
};

int fail(const std::string& message) {
    return badArgument("view", message);
}

int run(const ViewOptions& o) {
    const std::string& file = o.file;
    const std::string& formatName = o.formatName;
    const std::string& size = o.size;
    const std::string& out = o.out;
    const uint64_t stride = o.stride;
    const BayerOrder order = o.order;
    const auto map = NSCam::Utils::Format::getMapper();
    int format = 0;
    const auto fmt = findFormat(map, formatName, &format);
    if (fmt == nullptr) return fail("unknown format '" + formatName + "'");
    uint64_t width = 0, height = 0;
    if (!parseSize(size, &width, &height) || width > 16384 || height > 16384)
        return fail("bad --size '" + size + "' (WxH, 1 to 16384 each)");

    std::vector<PlaneLayout> planes;
    uint64_t total = 0;
    std::string error;
    if (!rawLayout(format, width, height, stride, &planes, &total, &error)) return fail(error);
    struct stat st;
    if (stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return fail("cannot read " + file);
    const uint64_t fileSize = static_cast<uint64_t>(st.st_size);
    if (fileSize != total) {
        char text[256];
        snprintf(text, sizeof(text),
                 "%s is %" PRIu64 " bytes, %s %" PRIu64 "x%" PRIu64 " needs %" PRIu64 " (file %s)",
                 file.c_str(), fileSize, fmt->getName(), width, height, total,
                 fileSize < total ? "too short" : "too long");
        return fail(text);
    }
    if (fileSize > std::numeric_limits<unsigned>::max()) return fail(file + " is too large");
    std::vector<uint8_t> data(fileSize);
    if (NSCam::Utils::loadFileToBuf(file.c_str(), data.data(), static_cast<unsigned>(fileSize)) !=
        fileSize) {
        return fail("cannot read " + file);
    }
    Picture picture;
    if (!decodeRaw(data.data(), data.size(), format, static_cast<int>(width),
                   static_cast<int>(height), stride, order, &picture, &error)) {
        return fail(error);
    }
    if (!writePng(out, picture, &error)) {
        fprintf(stderr, "zorcam-util view: %s\n", error.c_str());
        return 1;
    }
    printf("%s: %s %" PRIu64 "x%" PRIu64 " -> %s\n", file.c_str(), fmt->getName(), width, height,
           out.c_str());
    return 0;
}

const Command sView(
        "view", "Turn a raw buffer dump into a PNG picture.",
        [](CLI::App& command) -> Command::Runner {
            auto o = std::make_shared<ViewOptions>();
            command.add_option("file", o->file, "the raw dump")->required();
            command.add_option("--format", o->formatName, "format name or id")->required();
            command.add_option("--size", o->size, "image size, WxH")->required();
            command.add_option("--out", o->out, "the PNG to write")->required();
            command.add_option("--stride", o->stride,
                               "row pitch of plane 0 in bytes (default: packed)")
                    ->check(CLI::Range(uint64_t{1}, uint64_t{INT32_MAX}));
            const std::map<std::string, BayerOrder> orders = {{"RGGB", BayerOrder::RGGB},
                                                              {"GRBG", BayerOrder::GRBG},
                                                              {"GBRG", BayerOrder::GBRG},
                                                              {"BGGR", BayerOrder::BGGR}};
            command.add_option("--bayer", o->order, "colour order of raw Bayer (default RGGB)")
                    ->transform(CLI::CheckedTransformer(orders));
            return [o] { return run(*o); };
        });

}  // namespace

}  // namespace zorcam_util
