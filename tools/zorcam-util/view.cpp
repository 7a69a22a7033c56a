// zorcam-util view: turns a raw buffer dump into a PNG, with the plane geometry of the
// image-format registry.

#include <sys/stat.h>
#include <zorcam/utils/std/Format.h>
#include <zorcam/utils/std/Misc.h>

#include <cinttypes>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "Args.h"
#include "Command.h"
#include "RawImage.h"

namespace zorcam_util {

namespace {

constexpr const char* kUsage =
        "FILE --format NAME --size WxH [--stride BYTES] [--bayer RGGB|GRBG|GBRG|BGGR] --out X.png"
        "  turn a raw dump into a PNG";

int fail(const std::string& message) {
    fprintf(stderr, "zorcam-util view: %s\n", message.c_str());
    return 2;
}

int run(const std::vector<std::string>& args) {
    std::string file, formatName, size, out;
    uint64_t stride = 0;
    BayerOrder order = BayerOrder::RGGB;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.rfind("--", 0) != 0) {
            if (!file.empty()) return fail("more than one input file: " + a);
            file = a;
            continue;
        }
        if (i + 1 >= args.size()) return fail(a + " needs a value");
        const std::string& v = args[++i];
        if (a == "--format") {
            formatName = v;
        } else if (a == "--size") {
            size = v;
        } else if (a == "--out") {
            out = v;
        } else if (a == "--stride") {
            long s = 0;
            if (!parseInt(v, 1, std::numeric_limits<int>::max(), &s))
                return fail("bad --stride '" + v + "' (bytes, 1 or more)");
            stride = static_cast<uint64_t>(s);
        } else if (a == "--bayer") {
            const char* names[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
            int found = -1;
            for (int k = 0; k < 4; ++k)
                if (v == names[k]) found = k;
            if (found < 0) return fail("bad --bayer '" + v + "' (RGGB, GRBG, GBRG or BGGR)");
            order = static_cast<BayerOrder>(found);
        } else {
            return fail("unknown argument '" + a + "'");
        }
    }
    if (file.empty() || formatName.empty() || size.empty() || out.empty())
        return fail(std::string("usage: view ") + kUsage);
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

const Command sView("view", kUsage, run);

}  // namespace

}  // namespace zorcam_util
