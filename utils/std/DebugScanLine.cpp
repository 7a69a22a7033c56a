// Scan-line overlay: a band that moves down an 8-bit plane by calls, tuned by properties.

#include <zorcam/utils/std/DebugScanLine.h>

#include "DebugScanLinePaint.h"
#include "LogMacros.h"

#include <cutils/properties.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace NSCam {
namespace Utils {
namespace ScanLine {

namespace {

// A decimal property as atoi reads it (leading blanks, a sign, digits; anything else is 0),
// but saturated to the int range instead of leaving an out-of-range value undefined.
int32_t readInt(const char* key, const char* defaultText) {
    char value[PROP_VALUE_MAX];
    property_get(key, value, defaultText);
    const long long n = strtoll(value, nullptr, 10);
    return static_cast<int32_t>(std::clamp<long long>(n, INT32_MIN, INT32_MAX));
}

int64_t floorDiv(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

int64_t ceilDiv(int64_t a, int64_t b) {
    return -floorDiv(-a, b);
}

// Sets bytes [begin, end) of the buffer, clipped to its `size` bytes.
void fillClipped(uint8_t* buffer, int64_t size, int64_t begin, int64_t end, uint8_t value) {
    begin = std::max<int64_t>(begin, 0);
    end = std::min(end, size);
    if (begin < end) memset(buffer + begin, value, static_cast<size_t>(end - begin));
}

// Sets `width` bytes from shift + r * stride for every row r in [first, last), keeping only
// what lies inside the buffer. Rows that miss the buffer are not visited, so a band of
// billions of rows costs no more than the buffer has rows. A negative stride places no row
// anywhere sensible and paints nothing; a zero stride puts every row on the same bytes.
void paintRows(uint8_t* buffer, int64_t size, int64_t stride, int64_t shift, int64_t width,
               int64_t first, int64_t last, uint8_t value) {
    if (first >= last || width < 1 || size <= 0 || stride < 0) return;
    if (stride == 0) {
        fillClipped(buffer, size, shift, shift + width, value);
        return;
    }
    // Row r touches the buffer when shift + r * stride < size and shift + r * stride + width
    // > 0. Within these bounds r * stride stays within a few times 2^32.
    first = std::max(first, floorDiv(-shift - width, stride) + 1);
    last = std::min(last, ceilDiv(size - shift, stride));
    if (first >= last) return;
    if (width >= stride) {
        // Neighbouring rows touch or overlap: the band is one run of bytes.
        fillClipped(buffer, size, shift + first * stride, shift + (last - 1) * stride + width,
                    value);
        return;
    }
    for (int64_t r = first; r < last; ++r) {
        fillClipped(buffer, size, shift + r * stride, shift + r * stride + width, value);
    }
}

int32_t toInt(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

}  // namespace

Settings readSettings() {
    Settings s{};
    s.value = readInt("vendor.debug.cam.scanline.value", "255");
    s.height = readInt("vendor.debug.cam.scanline.height", "100");
    s.width = readInt("vendor.debug.cam.scanline.width", "0");
    s.widthShift = readInt("vendor.debug.cam.scanline.widthShift", "0");
    s.speed = readInt("vendor.debug.cam.scanline.speed", "100");
    return s;
}

int32_t readFullscreen() {
    return readInt("vendor.debug.cam.scanline.fullscreen", "0");
}

Band placeBand(int height, int32_t frameCount, const Settings& settings) {
    Band band;
    band.rows = static_cast<int64_t>(settings.height) * height / 800;
    // 64-bit, so the band keeps cycling where a 32-bit product would have turned negative.
    const int64_t position = static_cast<int64_t>(frameCount) * settings.speed / 5;
    const int64_t freeRows = static_cast<int64_t>(height) - band.rows;
    // A band as high as the picture or higher (or a picture of no rows) has no room to move:
    // it stays at the top, and what reaches past the buffer is clipped when painting.
    band.top = freeRows > 0 ? position % freeRows : 0;
    return band;
}

void paint(void* buffer, int size, int stride, int height, const Settings& settings,
           const Band& band) {
    if (buffer == nullptr || size <= 0) return;
    uint8_t* const bytes = static_cast<uint8_t*>(buffer);
    const uint8_t value = static_cast<uint8_t>(settings.value);
    // Whatever the settings, paint is clipped to the buffer: a band that starts above row 0
    // (negative speed or height setting) or runs past the end keeps only its part inside.
    if (settings.width < 1) {
        if (settings.fullscreen != 0) {
            memset(bytes, value, static_cast<size_t>(size));
        } else {
            paintRows(bytes, size, stride, 0, stride, band.top, band.top + band.rows, value);
        }
        return;
    }
    if (settings.fullscreen != 0) {
        paintRows(bytes, size, stride, settings.widthShift, settings.width, 0, height, value);
        return;
    }
    if (static_cast<int64_t>(settings.height) * height < 800) return;
    paintRows(bytes, size, stride, settings.widthShift, settings.width, band.top,
              band.top + band.rows, value);
}

}  // namespace ScanLine
}  // namespace Utils
}  // namespace NSCam

namespace {
constexpr const char* kTag = "ZorCam/DebugScanLine";
}  // namespace

DebugScanLine* DebugScanLine::createInstance() {
    return new DebugScanLineImp;
}

DebugScanLine::~DebugScanLine() {}

DebugScanLineImp::DebugScanLineImp() : mFrameCount(0) {}

DebugScanLineImp::~DebugScanLineImp() {}

void DebugScanLineImp::destroyInstance() {
    delete this;
}

void DebugScanLineImp::drawScanLine(int width, int height, void* buffer, int size, int stride) {
    using namespace NSCam::Utils::ScanLine;
    if (static_cast<int64_t>(stride) * height > size) {
        CAM_ULOGD(kTag, "[%s] buffer size < stride*height, doesn't draw scan line", __func__);
        return;
    }
    Settings settings = readSettings();
    const Band band = placeBand(height, mFrameCount, settings);
    const int32_t lineHeight = toInt(band.rows);
    const int32_t lineTop = toInt(band.top);
    CAM_ULOGD(kTag,
              "[%s] para:(w,h,s,VA,size)=(%d,%d,%d,%p,%d) prop:(v,h,w,s)=(%d,%d,%d,%d) "
              "line:(h,d)=(%d,%d)",
              __func__, width, height, stride, buffer, size, settings.value, settings.height,
              settings.width, settings.speed, lineHeight, lineTop);
    settings.fullscreen = readFullscreen();
    paint(buffer, size, stride, height, settings, band);
    // The count only places the band; after INT_MAX frames it starts again from the top
    // rather than overflowing.
    mFrameCount = mFrameCount == INT32_MAX ? 0 : mFrameCount + 1;
}
