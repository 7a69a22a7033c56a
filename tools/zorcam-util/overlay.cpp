// zorcam-util overlay: renders the debug overlays over synthetic frames and writes them as
// grayscale PNG files, so the stamps and the band can be looked at.

#include <cutils/properties.h>
#include <zorcam/utils/std/DebugDrawID.h>
#include <zorcam/utils/std/DebugScanLine.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Args.h"
#include "Command.h"
#include "Image.h"

namespace {

constexpr int kMaxEdge = 8192;
constexpr int kMaxFrames = 1000;
constexpr int kSheetColumns = 6;
constexpr int kSheetScale = 4;  // thumbnails are a quarter of the frame in each direction
constexpr int kSheetGap = 4;

using zorcam_util::Picture;

struct Options {
    int width = 640;
    int height = 480;
    int frames = 24;
    std::string out;
    std::vector<std::pair<std::string, std::string>> props;
};

bool parseInt(const std::string& text, int lo, int hi, int* value) {
    long v = 0;
    if (!zorcam_util::parseInt(text, lo, hi, &v)) return false;
    *value = static_cast<int>(v);
    return true;
}

// The command line as given; checked into Options by checkArgs.
struct Given {
    std::string size;
    int frames = 24;
    std::string out;
    std::vector<std::string> props;
};

// Fills `error` and returns false on the first bad argument.
bool checkArgs(const Given& g, Options* o, std::string* error) {
    if (!g.size.empty()) {
        const size_t x = g.size.find('x');
        if (x == std::string::npos || !parseInt(g.size.substr(0, x), 1, kMaxEdge, &o->width) ||
            !parseInt(g.size.substr(x + 1), 1, kMaxEdge, &o->height)) {
            *error = "bad --size '" + g.size + "' (WIDTHxHEIGHT, 1 to 8192)";
            return false;
        }
    }
    o->frames = g.frames;
    o->out = g.out;
    for (const std::string& v : g.props) {
        const size_t eq = v.find('=');
        if (eq == std::string::npos || eq == 0 || v.size() - eq - 1 >= PROP_VALUE_MAX) {
            *error = "bad --prop '" + v + "' (key=value, value under 92 bytes)";
            return false;
        }
        o->props.emplace_back(v.substr(0, eq), v.substr(eq + 1));
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

int run(const Given& given) {
    Options o;
    std::string error;
    if (!checkArgs(given, &o, &error)) return zorcam_util::badArgument("overlay", error);
    if (!zorcam_util::makeOutputDir("overlay", o.out)) return 1;
    // Properties first: the stamp reads its settings when it is built, the band on every frame.
    for (const auto& [key, value] : o.props) property_set(key.c_str(), value.c_str());

    const int w = o.width, h = o.height;
    Picture frame{w, h, 1, std::vector<uint8_t>(static_cast<size_t>(w) * h)};
    std::vector<uint8_t>& plane = frame.pixels;
    std::vector<Picture> thumbs;

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
        if (!zorcam_util::writePng(path, frame, &error)) {
            fprintf(stderr, "zorcam-util overlay: %s\n", error.c_str());
            return 1;
        }
        printf("%s\n", path.c_str());
        thumbs.push_back(zorcam_util::thumbnail(frame, std::max(1, std::max(w, h) / kSheetScale)));
    }
    const std::string sheetPath = (std::filesystem::path(o.out) / "contact_sheet.png").string();
    const Picture sheet = zorcam_util::contactSheet(thumbs, kSheetColumns, kSheetGap);
    if (!zorcam_util::writePng(sheetPath, sheet, &error)) {
        fprintf(stderr, "zorcam-util overlay: %s\n", error.c_str());
        return 1;
    }
    printf("%s\n", sheetPath.c_str());
    return 0;
}

zorcam_util::Command sCmd(
        "overlay", "Stamp frame numbers and run the scan line over synthetic luma frames, as PNGs.",
        [](CLI::App& command) -> zorcam_util::Command::Runner {
            auto g = std::make_shared<Given>();
            command.add_option("--size", g->size, "frame size, WxH (default 640x480)");
            command.add_option("--frames", g->frames, "frames to draw (default 24)")
                    ->check(CLI::Range(1, kMaxFrames));
            command.add_option("--out", g->out, "folder for the PNGs")->required();
            command.add_option("--prop", g->props,
                               "a system property set first, key=value (repeatable)")
                    ->allow_extra_args(false);
            return [g] { return run(*g); };
        });

}  // namespace
