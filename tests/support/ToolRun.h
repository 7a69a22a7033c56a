#pragma once

// Runs zorcam-util (ZORCAM_UTIL, under ZORCAM_TEST_EMULATOR in a cross build) as a user runs it,
// and reads back the PNG files it writes.

#include <png.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace zorcam_test {

struct ToolRun {
    int status = -1;
    std::string output;  // stdout and stderr
};

inline ToolRun runTool(const std::string& args) {
    const std::string cmd =
            std::string(ZORCAM_TEST_EMULATOR " '") + ZORCAM_UTIL + "' " + args + " 2>&1";
    ToolRun run;
    FILE* pipe = popen(cmd.c_str(), "r");
    if (pipe == nullptr) return run;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) run.output.append(buf, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

struct Rgb {
    int width = 0, height = 0;
    std::vector<uint8_t> pixels;  // RGB, packed
    const uint8_t* at(int x, int y) const {
        return &pixels[(static_cast<size_t>(y) * width + x) * 3];
    }
};

inline bool readPng(const std::string& path, Rgb* out) {
    png_image image;
    memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    out->width = static_cast<int>(image.width);
    out->height = static_cast<int>(image.height);
    out->pixels.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, out->pixels.data(), 0, nullptr)) {
        png_image_free(&image);
        return false;
    }
    return true;
}

}  // namespace zorcam_test
