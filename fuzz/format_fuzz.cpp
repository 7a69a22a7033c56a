// Asks the format registry about any id, plane index, width and height, under any setting of
// the unified logger's switches, and checks the answers against the map copy from
// getMapper() and the plane rules of the descriptors:
// - an id is answered exactly when the map holds it; otherwise 0, "unknown" or false, each
//   after the registry dump and the "Unsupported Image Format" warning (when let through);
// - plane 0 has the image's size, any other plane the size or half of it (rounded down), the
//   4:2:2 heights the size; a plane's bits are 0 at or beyond the plane count and from 3 on;
// - a format's image bits are its planes' bits weighted by their share of the pixels;
// - each query writes its verbose line exactly when the gate lets verbose lines through, and
//   only to the unified logger.

#include <fuzzer/FuzzedDataProvider.h>
#include <zorcam/ulog/ULog.h>
#include <zorcam/utils/std/Format.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzLog.h"

namespace {

namespace Format = NSCam::Utils::Format;
namespace ULog = NSCam::Utils::ULog;

[[noreturn]] void fail(const char* what, int id, size_t plane, size_t w, size_t h) {
    fprintf(stderr, "format_fuzz: %s (id %#x, plane %zu, size %zu x %zu)\n", what,
            static_cast<unsigned>(id), plane, w, h);
    abort();
}

// The unified logger object's lines.
class Recorder : public ULog::ULogger {
public:
    void logText(uint32_t, const char*, ULog::DetailsType type, const char* text,
                 int64_t length) override {
        lines.push_back({type, std::string(text, strnlen(text, static_cast<size_t>(length)))});
    }
    struct Line {
        ULog::DetailsType type;
        std::string text;
    };
    std::vector<Line> lines;
};

Recorder& recorder() {
    static auto* sRecorder = new Recorder;
    return *sRecorder;
}

const int kEdgeIds[] = {0,      1,      -1,         0x11,       0x2200,    0x2208,
                        0x2209, 0x201A, 0x32315659, 0x32315658, INT32_MIN, INT32_MAX};
const size_t kEdgeSizes[] = {0, 1, 2, 1919, 1920, 1921, SIZE_MAX, SIZE_MAX - 1, SIZE_MAX / 2};

int pickId(FuzzedDataProvider& in, const Format::ImgFmtMap& map) {
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: return map.keyAt(in.ConsumeIntegralInRange<size_t>(0, map.size() - 1));
        case 1: return in.PickValueInArray(kEdgeIds);
        default: return in.ConsumeIntegral<int>();
    }
}

size_t pickSize(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: return in.ConsumeIntegralInRange<size_t>(0, 8192);
        case 1: return in.PickValueInArray(kEdgeSizes);
        default: return in.ConsumeIntegral<size_t>();
    }
}

// The Android log and unified-logger lines that one gated message should make.
struct Gate {
    bool android, unified;
};

Gate gateFor(ULog::DetailsType type) {
    const bool pass = ULog::ULogger::sDetailsLevel >= type && (type <= ULog::DETAILS_WARNING || [] {
                          const uint32_t m = ULog::ULogger::sNormalDetailsMask & 0x40007001u;
                          return m >= 0x100000 && (m & 0xFF000) != 0;
                      }());
    return {pass && (ULog::ULogger::sMode & 1) && type != ULog::DETAILS_VERBOSE,
            pass && (ULog::ULogger::sMode & 0xE)};
}

// Checks the lines of one query on an unregistered id: the dump and then the warning.
void checkRefusal(const char* function, int id, size_t mapSize) {
    const Gate gate = gateFor(ULog::DETAILS_WARNING);
    char warning[96];
    snprintf(warning, sizeof(warning), "[%s] Unsupported Image Format: %#x", function,
             static_cast<unsigned>(id));
    const size_t want = mapSize + 2;  // size line, one line per entry, the warning
    const size_t count = zorcam_fuzz::logCount();
    if (count != (gate.android ? want : 0) ||
        (gate.android && zorcam_fuzz::logLine(count - 1).text != warning))
        fail("refusal lines wrong in the Android log", id, 0, 0, 0);
    auto& unified = recorder().lines;
    if (unified.size() != (gate.unified ? want : 0) ||
        (gate.unified && unified.back().text != warning))
        fail("refusal lines wrong in the unified logger", id, 0, 0, 0);
    zorcam_fuzz::clearLog();
    unified.clear();
}

// Checks the verbose line of one query on a registered id (none when the gate stops it).
void checkVerbose(const std::string& text, int id) {
    const Gate gate = gateFor(ULog::DETAILS_VERBOSE);
    if (zorcam_fuzz::logCount() != 0) fail("verbose line in the Android log", id, 0, 0, 0);
    auto& unified = recorder().lines;
    if (unified.size() != (gate.unified ? 1u : 0u) ||
        (gate.unified && (unified[0].text != text || unified[0].type != ULog::DETAILS_VERBOSE)))
        fail("verbose line wrong", id, 0, 0, 0);
    unified.clear();
}

void checkQuiet(int id) {
    if (zorcam_fuzz::logCount() != 0 || !recorder().lines.empty())
        fail("a query on a registered id wrote a line", id, 0, 0, 0);
}

// The catalogue's own consistency, once per process.
void checkCatalogue(const Format::ImgFmtMap& map) {
    for (size_t i = 0; i < map.size(); ++i) {
        const android::sp<Format::IImgFmt>& fmt = map.valueAt(i);
        const int id = map.keyAt(i);
        const size_t planes = fmt->getPlaneCount();
        if (planes < 1 || planes > 3) fail("plane count out of 1..3", id, planes, 0, 0);
        if (i > 0 && map.keyAt(i - 1) >= id) fail("map not sorted", id, 0, 0, 0);
        if (!fmt->checkValidBufferInfo()) continue;  // UFO Bayer: compressed, no plane sum
        // Image bits × pixels = sum of plane bits × plane pixels, over a 1024 × 1024 image.
        uint64_t sum = 0;
        for (size_t p = 0; p < planes; ++p)
            sum += uint64_t(fmt->getPlaneBitsPerPixel(p)) * fmt->getPlaneWidthInPixels(p, 1024) *
                   fmt->getPlaneHeightInPixels(p, 1024);
        if (sum != uint64_t(fmt->getImageBitsPerPixel()) * 1024 * 1024)
            fail("image bits differ from the planes' bits", id, 0, 1024, 1024);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Format::ImgFmtMap sMap = [] {
        Format::ImgFmtMap map = Format::getMapper();
        checkCatalogue(map);
        return map;
    }();
    FuzzedDataProvider in(data, size);
    ULog::ULogger::sMode = in.ConsumeIntegralInRange<uint32_t>(0, 0xF);
    ULog::ULogger::sDetailsLevel = in.ConsumeIntegralInRange<uint32_t>(0, 7);
    ULog::ULogger::sNormalDetailsMask =
            in.ConsumeBool() ? 0x40007000 : in.ConsumeIntegral<uint32_t>();
    ULog::ULogger::sULogger = &recorder();
    zorcam_fuzz::clearLog();
    recorder().lines.clear();

    const int queries = in.ConsumeIntegralInRange<int>(1, 4);
    for (int q = 0; q < queries && in.remaining_bytes() > 0; ++q) {
        const int id = pickId(in, sMap);
        const size_t plane = in.ConsumeBool() ? in.ConsumeIntegralInRange<size_t>(0, 4)
                                              : in.ConsumeIntegral<size_t>();
        const size_t w = pickSize(in), h = pickSize(in);
        const ssize_t index = sMap.indexOfKey(id);
        if (index < 0) {
            // One query a time: each refusal writes the whole registry to the log.
            using Refused = bool (*)(int id, size_t plane, size_t w, size_t h);
            static const std::pair<const char*, Refused> kQueries[] = {
                    {"checkValidFormat", [](int i, size_t, size_t, size_t) {
                         return !Format::checkValidFormat(i); }},
                    {"queryImageFormatName", [](int i, size_t, size_t, size_t) {
                         return Format::queryImageFormatName(i) == "unknown"; }},
                    {"queryPlaneCount", [](int i, size_t, size_t, size_t) {
                         return Format::queryPlaneCount(i) == 0; }},
                    {"queryPlaneWidthInPixels", [](int i, size_t p, size_t width, size_t) {
                         return Format::queryPlaneWidthInPixels(i, p, width) == 0; }},
                    {"queryPlaneHeightInPixels", [](int i, size_t p, size_t, size_t height) {
                         return Format::queryPlaneHeightInPixels(i, p, height) == 0; }},
                    {"queryPlaneBitsPerPixel", [](int i, size_t p, size_t, size_t) {
                         return Format::queryPlaneBitsPerPixel(i, p) == 0; }},
                    {"queryImageBitsPerPixel", [](int i, size_t, size_t, size_t) {
                         return Format::queryImageBitsPerPixel(i) == 0; }},
                    {"checkValidBufferInfo", [](int i, size_t, size_t, size_t) {
                         return !Format::checkValidBufferInfo(i); }}};
            const auto& [function, refused] = kQueries[in.ConsumeIntegralInRange<int>(0, 7)];
            const bool ok = refused(id, plane, w, h);
            if (!ok) fail(function, id, plane, w, h);
            checkRefusal(function, id, sMap.size());
            continue;
        }

        const android::sp<Format::IImgFmt> fmt = sMap.valueAt(static_cast<size_t>(index));
        const std::string name = fmt->getName();
        const size_t planes = fmt->getPlaneCount();
        if (!Format::checkValidFormat(id)) fail("registered id invalid", id, plane, w, h);
        checkQuiet(id);
        if (Format::queryImageFormatName(id) != name) fail("name differs", id, plane, w, h);
        checkQuiet(id);
        if (Format::checkValidBufferInfo(id) != fmt->checkValidBufferInfo())
            fail("buffer info differs", id, plane, w, h);
        checkQuiet(id);
        char text[160];

        if (Format::queryPlaneCount(id) != planes) fail("plane count differs", id, plane, w, h);
        snprintf(text, sizeof(text), "[queryPlaneCount] [%s] plane count %zu", name.c_str(),
                 planes);
        checkVerbose(text, id);

        const size_t pw = Format::queryPlaneWidthInPixels(id, plane, w);
        if (pw != fmt->getPlaneWidthInPixels(plane, w)) fail("width differs", id, plane, w, h);
        if (plane == 0 ? pw != w : pw != w && pw != w / 2) fail("width rule", id, plane, w, h);
        snprintf(text, sizeof(text),
                 "[queryPlaneWidthInPixels] [%s] Width in pixels %zu @ %zu-th plane", name.c_str(),
                 pw, plane);
        checkVerbose(text, id);

        const size_t ph = Format::queryPlaneHeightInPixels(id, plane, h);
        if (ph != fmt->getPlaneHeightInPixels(plane, h)) fail("height differs", id, plane, w, h);
        if (plane == 0 ? ph != h : ph != h && ph != h / 2) fail("height rule", id, plane, w, h);
        // Halved heights only where widths are halved (4:2:0); full widths keep full heights.
        if (fmt->getPlaneWidthInPixels(plane, 1024) == 1024 && ph != h)
            fail("height halved on a full-width plane", id, plane, w, h);
        snprintf(text, sizeof(text),
                 "[queryPlaneHeightInPixels] [%s] Height in pixels %zu @ %zu-th plane",
                 name.c_str(), ph, plane);
        checkVerbose(text, id);

        const int bits = Format::queryPlaneBitsPerPixel(id, plane);
        if (bits != fmt->getPlaneBitsPerPixel(plane)) fail("plane bits differ", id, plane, w, h);
        if ((plane >= planes || plane >= 3) && bits != 0)
            fail("bits beyond the planes", id, plane, w, h);
        // The compressed UFO Bayer formats leave some planes without bits; no other does.
        if (fmt->checkValidBufferInfo() && plane < planes && bits <= 0)
            fail("plane without bits", id, plane, w, h);
        snprintf(text, sizeof(text),
                 "[queryPlaneBitsPerPixel] [%s] bits per pixel %d @ %zu-th plane", name.c_str(),
                 bits, plane);
        checkVerbose(text, id);

        const int imageBits = Format::queryImageBitsPerPixel(id);
        if (imageBits != fmt->getImageBitsPerPixel() || imageBits <= 0)
            fail("image bits differ", id, plane, w, h);
        snprintf(text, sizeof(text), "[queryImageBitsPerPixel] [%s] bits per pixel %d",
                 name.c_str(), imageBits);
        checkVerbose(text, id);
    }
    return 0;
}
