// zorcam-util overlay: renders the debug overlays over synthetic frames and writes them as
// grayscale PNG files, so the stamps and the band can be looked at.

#include "Command.h"

#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/DebugScanLine.h>

#include <cutils/properties.h>
#include <png.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kMaxEdge = 8192;
constexpr int kMaxFrames = 1000;
constexpr int kSheetColumns = 6;
constexpr int kSheetScale = 4;  // thumbnails are a quarter of the frame in each direction
constexpr int kSheetGap = 4;

struct Options {
    int width = 640;
    int height = 480;
    int frames = 24;
    std::string out;
    std::vector<std::pair<std::string, std::string>> props;
};

bool parseInt(const std::string& text, int lo, int hi, int* value) {
    char* end = nullptr;
    const long v = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v < lo || v > hi) return false;
    *value = static_cast<int>(v);
    return true;
}

// Fills `error` and returns false on the first bad argument.
bool parseArgs(const std::vector<std::string>& args, Options* o, std::string* error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (i + 1 >= args.size()) {
            *error = "missing value after " + a;
            return false;
        }
        const std::string& v = args[++i];
        if (a == "--size") {
            const size_t x = v.find('x');
            if (x == std::string::npos || !parseInt(v.substr(0, x), 1, kMaxEdge, &o->width) ||
                !parseInt(v.substr(x + 1), 1, kMaxEdge, &o->height)) {
                *error = "bad --size '" + v + "' (WIDTHxHEIGHT, 1 to 8192)";
                return false;
            }
        } else if (a == "--frames") {
            if (!parseInt(v, 1, kMaxFrames, &o->frames)) {
                *error = "bad --frames '" + v + "' (1 to 1000)";
                return false;
            }
        } else if (a == "--out") {
            o->out = v;
        } else if (a == "--prop") {
            const size_t eq = v.find('=');
            if (eq == std::string::npos || eq == 0 || v.size() - eq - 1 >= PROP_VALUE_MAX) {
                *error = "bad --prop '" + v + "' (key=value, value under 92 bytes)";
                return false;
            }
            o->props.emplace_back(v.substr(0, eq), v.substr(eq + 1));
        } else {
            *error = "unknown argument '" + a + "'";
            return false;
        }
    }
    if (o->out.empty()) {
        *error = "--out DIR is required";
        return false;
    }
    return true;
}

bool writeGray(const std::string& path, const uint8_t* pixels, int width, int height,
               int stride, std::string* error) {
    png_image image;
    memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_GRAY;
    if (!png_image_write_to_file(&image, path.c_str(), 0, pixels, stride, nullptr)) {
        *error = "cannot write " + path + ": " + image.message;
        png_image_free(&image);
        return false;
    }
    return true;
}

// A diagonal luma ramp that stays below the band's default 255 and the stamp's box.
void fillGradient(std::vector<uint8_t>& plane, int width, int height) {
    const int64_t w = width, h = height;
    for (int64_t y = 0; y < h; ++y)
        for (int64_t x = 0; x < w; ++x)
            plane[y * w + x] = static_cast<uint8_t>(30 + 170 * (x * h + y * w) / (2 * w * h));
}

int run(const std::vector<std::string>& args) {
    Options o;
    std::string error;
    if (!parseArgs(args, &o, &error)) {
        fprintf(stderr, "zorcam-util overlay: %s\n", error.c_str());
        return 2;
    }
    std::error_code ec;
    std::filesystem::create_directories(o.out, ec);
    if (ec) {
        fprintf(stderr, "zorcam-util overlay: cannot make %s: %s\n", o.out.c_str(),
                ec.message().c_str());
        return 1;
    }
    // Properties first: the stamp reads its settings when it is built, the band on every frame.
    for (const auto& [key, value] : o.props) property_set(key.c_str(), value.c_str());

    const int w = o.width, h = o.height;
    const int cols = std::min(kSheetColumns, o.frames);
    const int sheetRows = (o.frames + cols - 1) / cols;
    const int tw = std::max(1, w / kSheetScale), th = std::max(1, h / kSheetScale);
    const int sheetW = cols * tw + (cols + 1) * kSheetGap;
    const int sheetH = sheetRows * th + (sheetRows + 1) * kSheetGap;
    std::vector<uint8_t> sheet(static_cast<size_t>(sheetW) * sheetH, 0);
    std::vector<uint8_t> plane(static_cast<size_t>(w) * h);

    std::unique_ptr<DebugDrawID, void (*)(DebugDrawID*)> stamp(
            DebugDrawID::createInstance(), [](DebugDrawID* p) { p->destroyInstance(); });
    std::unique_ptr<DebugScanLine, void (*)(DebugScanLine*)> band(
            DebugScanLine::createInstance(), [](DebugScanLine* p) { p->destroyInstance(); });

    for (int f = 0; f < o.frames; ++f) {
        fillGradient(plane, w, h);
        band->drawScanLine(w, h, plane.data(), static_cast<int>(plane.size()), w);
        // Stamped after the band, so the number stays readable when the band passes over it.
        stamp->draw(static_cast<unsigned>(f), reinterpret_cast<char*>(plane.data()), w, h, w,
                    static_cast<unsigned>(plane.size()));
        char name[32];
        snprintf(name, sizeof(name), "frame_%03d.png", f);
        const std::string path = (std::filesystem::path(o.out) / name).string();
        if (!writeGray(path, plane.data(), w, h, w, &error)) {
            fprintf(stderr, "zorcam-util overlay: %s\n", error.c_str());
            return 1;
        }
        printf("%s\n", path.c_str());
        const int ox = kSheetGap + (f % cols) * (tw + kSheetGap);
        const int oy = kSheetGap + (f / cols) * (th + kSheetGap);
        for (int y = 0; y < th; ++y)
            for (int x = 0; x < tw; ++x)
                sheet[static_cast<size_t>(oy + y) * sheetW + ox + x] =
                        plane[static_cast<size_t>(y * h / th) * w + x * w / tw];
    }
    const std::string sheetPath = (std::filesystem::path(o.out) / "contact_sheet.png").string();
    if (!writeGray(sheetPath, sheet.data(), sheetW, sheetH, sheetW, &error)) {
        fprintf(stderr, "zorcam-util overlay: %s\n", error.c_str());
        return 1;
    }
    printf("%s\n", sheetPath.c_str());
    return 0;
}

zorcam_util::Command sCmd("overlay",
                          "--size WxH --frames N --out DIR [--prop key=value ...]  stamp frame "
                          "numbers and run the scan line over synthetic luma frames, as PNGs",
                          run);

}  // namespace
