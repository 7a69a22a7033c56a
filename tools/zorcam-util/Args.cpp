#include "Args.h"

#include <strings.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace zorcam_util {

using NSCam::Utils::Format::IImgFmt;
using NSCam::Utils::Format::ImgFmtMap;

bool parseSize(const std::string& text, uint64_t* width, uint64_t* height) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos) return false;
    auto parse = [](const std::string& s, uint64_t* out) {
        if (s.empty() || s.find_first_not_of("0123456789") != std::string::npos) return false;
        if (s.size() > 10) return false;
        *out = strtoull(s.c_str(), nullptr, 10);
        return *out >= 1 && *out <= INT32_MAX;
    };
    return parse(text.substr(0, x), width) && parse(text.substr(x + 1), height);
}

android::sp<IImgFmt> findFormat(const ImgFmtMap& map, const std::string& text, int* id) {
    for (size_t i = 0; i < map.size(); ++i) {
        if (strcasecmp(map.valueAt(i)->getName(), text.c_str()) == 0) {
            if (id != nullptr) *id = map.keyAt(i);
            return map.valueAt(i);
        }
    }
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0 || number < INT32_MIN || number > INT32_MAX)
        return nullptr;
    const ssize_t index = map.indexOfKey(static_cast<int>(number));
    if (index < 0) return nullptr;
    if (id != nullptr) *id = map.keyAt(index);
    return map.valueAt(index);
}

bool parseInt(const std::string& text, long lo, long hi, long* value) {
    char* end = nullptr;
    errno = 0;
    const long v = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || v < lo || v > hi) return false;
    *value = v;
    return true;
}

bool parseDouble(const std::string& text, double lo, double hi, double* value) {
    char* end = nullptr;
    errno = 0;
    const double v = strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(v >= lo && v <= hi)) return false;
    *value = v;
    return true;
}

bool makeOutputDir(const char* command, const std::string& dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        fprintf(stderr, "zorcam-util %s: cannot make %s: %s\n", command, dir.c_str(),
                ec.message().c_str());
        return false;
    }
    return true;
}

}  // namespace zorcam_util
