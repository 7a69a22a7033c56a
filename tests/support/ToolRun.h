#pragma once

// Runs zorcam-util (ZORCAM_UTIL, under ZORCAM_TEST_EMULATOR in a cross build) as a user runs it,
// and reads back the figures it prints and the PNG files it writes.

#include <png.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

namespace zorcam_test {

struct ToolRun {
    int status = -1;
    std::string output;  // stdout and stderr
    long lines() const { return std::count(output.begin(), output.end(), '\n'); }
};

inline ToolRun runTool(const std::string& args) {
    ToolRun run;
    const std::string command = ZORCAM_TEST_EMULATOR " '" + std::string(ZORCAM_UTIL) + "' " + args;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return run;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) run.output.append(buf, n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

/// The numbers after `label` on the first line of text that starts with it ("12/-1" is two).
inline std::vector<double> numbers(const std::string& text, const std::string& label) {
    const size_t at = ("\n" + text).find("\n" + label);  // where the line starts in text
    if (at == std::string::npos) return {};
    const std::string line =
            text.substr(at + label.size(), text.find('\n', at) - at - label.size());
    static const std::regex number("-?[0-9]+(\\.[0-9]+)?");
    std::vector<double> v;
    for (std::sregex_iterator it(line.begin(), line.end(), number), e; it != e; ++it)
        v.push_back(std::stod(it->str()));
    return v;
}

struct Rgb {
    int width = 0, height = 0;
    std::vector<uint8_t> pixels;  // RGB, packed
};

inline bool readPng(const std::string& path, Rgb* out) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    *out = {static_cast<int>(image.width), static_cast<int>(image.height),
            std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    if (png_image_finish_read(&image, nullptr, out->pixels.data(), 0, nullptr)) return true;
    png_image_free(&image);
    return false;
}

}  // namespace zorcam_test
