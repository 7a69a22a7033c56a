// Frame-ID stamping into an 8-bit plane.

#include <zorcam/utils/std/DebugDrawID.h>

#include "DebugDrawIDStamp.h"
#include "LogMacros.h"

#include <cutils/properties.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace {

using namespace NSCam::Utils::DrawID;

constexpr const char* kTag = "ZorCam/DebugDrawID";

constexpr unsigned kTextColumns = 6;

// Text font: '0' to '9' (the digit glyphs one column to the right), then 'A' to 'Z'.
constexpr uint8_t kTextFont[36][kGlyphRows * kTextColumns] = {
    {0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,1,0,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0},  // 0
    {0,0,0,0,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0},  // 1
    {0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,1,1,1,0,  0,0,1,0,0,0,  0,0,1,1,1,0},  // 2
    {0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,1,1,1,0},  // 3
    {0,0,1,0,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0},  // 4
    {0,0,1,1,1,0,  0,0,1,0,0,0,  0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,1,1,1,0},  // 5
    {0,0,1,0,0,0,  0,0,1,0,0,0,  0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0},  // 6
    {0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0,  0,0,0,0,1,0},  // 7
    {0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0},  // 8
    {0,0,1,1,1,0,  0,0,1,0,1,0,  0,0,1,1,1,0,  0,0,0,0,1,0,  0,0,1,1,1,0},  // 9
    {0,0,1,0,0,0,  0,1,0,1,0,0,  0,1,1,1,0,0,  1,0,0,0,1,0,  1,0,0,0,1,0},  // A
    {1,1,1,1,0,0,  1,0,0,0,1,0,  1,1,1,1,0,0,  1,0,0,0,1,0,  1,1,1,1,0,0},  // B
    {0,1,1,1,0,0,  1,0,0,0,1,0,  1,0,0,0,0,0,  1,0,0,0,1,0,  0,1,1,1,0,0},  // C
    {1,1,1,1,0,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  1,1,1,1,0,0},  // D
    {1,1,1,1,1,0,  1,0,0,0,0,0,  1,1,1,1,0,0,  1,0,0,0,0,0,  1,1,1,1,1,0},  // E
    {1,1,1,1,1,0,  1,0,0,0,0,0,  1,1,1,0,0,0,  1,0,0,0,0,0,  1,0,0,0,0,0},  // F
    {0,1,1,1,1,0,  1,0,0,0,0,0,  1,0,1,1,1,0,  1,0,0,1,1,0,  0,1,1,0,1,0},  // G
    {1,0,0,0,1,0,  1,0,0,0,1,0,  1,1,1,1,1,0,  1,0,0,0,1,0,  1,0,0,0,1,0},  // H
    {1,1,1,1,1,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  1,1,1,1,1,0},  // I
    {1,1,1,1,1,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  1,0,1,0,0,0,  0,1,0,0,0,0},  // J
    {1,0,0,0,1,0,  1,0,0,1,0,0,  1,1,1,0,0,0,  1,0,0,1,0,0,  1,0,0,0,1,0},  // K
    {1,0,0,0,0,0,  1,0,0,0,0,0,  1,0,0,0,0,0,  1,0,0,0,0,0,  1,1,1,1,1,0},  // L
    {1,0,0,0,1,0,  1,1,0,1,1,0,  1,0,1,0,1,0,  1,0,1,0,1,0,  1,0,0,0,1,0},  // M
    {1,0,0,0,1,0,  1,1,0,0,1,0,  1,0,1,0,1,0,  1,0,0,1,1,0,  1,0,0,0,1,0},  // N
    {0,1,1,1,0,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  0,1,1,1,0,0},  // O
    {1,1,1,1,0,0,  1,0,0,0,1,0,  1,1,1,1,0,0,  1,0,0,0,0,0,  1,0,0,0,0,0},  // P
    {0,1,1,1,0,0,  1,0,0,0,1,0,  1,0,1,0,1,0,  1,0,0,1,1,0,  0,1,1,1,1,0},  // Q
    {1,1,1,1,0,0,  1,0,0,0,1,0,  1,1,1,1,1,0,  1,0,0,1,0,0,  1,0,0,0,1,0},  // R
    {0,1,1,1,1,0,  1,0,0,0,0,0,  0,1,1,1,0,0,  0,0,0,0,1,0,  1,1,1,1,0,0},  // S
    {1,1,1,1,1,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  0,0,1,0,0,0},  // T
    {1,0,0,0,1,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  1,0,0,0,1,0,  0,1,1,1,0,0},  // U
    {1,0,0,0,1,0,  1,0,0,0,1,0,  0,1,0,1,0,0,  0,1,0,1,0,0,  0,0,1,0,0,0},  // V
    {1,0,0,0,1,0,  1,0,1,0,1,0,  1,0,1,0,1,0,  1,0,1,0,1,0,  0,1,0,1,0,0},  // W
    {1,0,0,0,1,0,  0,1,0,1,0,0,  0,0,1,0,0,0,  0,1,0,1,0,0,  1,0,0,0,1,0},  // X
    {1,0,0,0,1,0,  0,1,0,1,0,0,  0,0,1,0,0,0,  0,0,1,0,0,0,  0,0,1,0,0,0},  // Y
    {1,1,1,1,1,0,  0,0,0,1,0,0,  0,0,1,0,0,0,  0,1,0,0,0,0,  1,1,1,1,1,0},  // Z
};

// End offset (one past the last byte) of a box whose top-left byte is x of row y, `rows`
// rows high and `width` bytes wide, as x + (y + rows - 1) * stride + width. false when it does
// not fit in 64 bits; the caller then treats the box as exceeding any buffer.
bool boxEnd(uint64_t x, uint64_t y, uint64_t rows, uint64_t stride, uint64_t width,
            int64_t* end) {
    // y < 2^32 and rows < 2^35 here, so the last row is exact; it is -1 for an empty box at 0.
    const int64_t lastRow = static_cast<int64_t>(y) + static_cast<int64_t>(rows) - 1;
    int64_t e = 0;
    if (__builtin_mul_overflow(lastRow, static_cast<int64_t>(stride), &e)) return false;
    if (__builtin_add_overflow(e, static_cast<int64_t>(x), &e)) return false;
    if (width > static_cast<uint64_t>(INT64_MAX)) return false;
    if (__builtin_add_overflow(e, static_cast<int64_t>(width), &e)) return false;
    *end = e;
    return true;
}

struct Fill {
    uint8_t mValue;
    uint8_t mWide[kFastCell];  // mValue repeated, for the fixed-size stores
    explicit Fill(uint8_t value) : mValue(value) { memset(mWide, value, sizeof(mWide)); }
};

// Composes bytes [begin, end) of glyph row r of the numeric stamp into out, cell by cell.
// out must have kFastCell bytes of room past end - begin.
void composeDigitRow(const ShownDigits& digits, uint64_t size, unsigned r, uint64_t begin,
                     uint64_t end, const Fill& bg, const Fill& fg, uint8_t* out) {
    uint64_t cell = begin / size;
    uint64_t pos = begin;
    uint64_t k = cell / kDigitColumns;
    uint64_t column = cell % kDigitColumns;
    const uint8_t* glyph = kDigitFont[digits.at(k)] + r * kDigitColumns;
    while (pos < end) {
        if (column == kDigitColumns) {
            column = 0;
            glyph = kDigitFont[digits.at(++k)] + r * kDigitColumns;
        }
        const Fill& f = glyph[column] ? fg : bg;
        const uint64_t cellEnd = std::min((cell + 1) * size, end);
        if (size <= kFastCell) {
            memcpy(out + (pos - begin), f.mWide, kFastCell);
        } else {
            memset(out + (pos - begin), f.mValue, cellEnd - pos);
        }
        pos = cellEnd;
        ++cell;
        ++column;
    }
}

// The best vector path this processor has, picked on first use.
const FastPath& fastPath() {
    static const FastPath& path = *std::find_if(std::begin(kFastPaths), std::end(kFastPaths),
                                                [](const FastPath& p) { return p.mSupported(); });
    return path;
}

// Text-font glyph of a byte, or null for a byte that is not drawn.
const uint8_t* textGlyph(unsigned char byte) {
    const int u = toupper(byte);
    if (u >= '0' && u <= '9') return kTextFont[u - '0'];
    if (u >= 'A' && u <= 'Z') return kTextFont[u - 'A' + 10];
    return nullptr;
}

}  // namespace

DebugDrawID* DebugDrawID::createInstance() {
    return new DebugDrawID(5, 200, 200, 10, static_cast<char>(250), 20);
}

void DebugDrawID::destroyInstance() {
    delete this;
}

DebugDrawID::DebugDrawID(unsigned int digit, unsigned int x, unsigned int y, unsigned int size,
                         char bg, char fg) {
    mNeedDraw = property_get_int32("debug.cam.drawid", 0) != 0;
    if (!mNeedDraw) mNeedDraw = property_get_int32("debug.cam.draw.en", 0) != 0;
    // The unsigned properties are read as 32-bit values and kept bit for bit.
    mDigit = static_cast<unsigned int>(
            property_get_int32("debug.cam.drawid.digit", static_cast<int32_t>(digit)));
    if (mDigit == 0) mDigit = 1;
    mOffsetX = static_cast<unsigned int>(
            property_get_int32("debug.cam.drawid.x", static_cast<int32_t>(x)));
    mOffsetY = static_cast<unsigned int>(
            property_get_int32("debug.cam.drawid.y", static_cast<int32_t>(y)));
    mPixelSize = static_cast<unsigned int>(
            property_get_int32("debug.cam.drawid.size", static_cast<int32_t>(size)));
    if (mPixelSize == 0) mPixelSize = 1;
    // char is an unsigned byte on the device; keep 250 as 250 on hosts where char is signed.
    mBg = property_get_int32("debug.cam.drawid.bg", static_cast<unsigned char>(bg));
    mFg = property_get_int32("debug.cam.drawid.fg", static_cast<unsigned char>(fg));
    if (mNeedDraw) {
        CAM_PLOGD(kTag, "[%s] need(%d), digit(%d), offset(%d,%d), pixel(%d), bg(%d), fg(%d)",
                  __func__, mNeedDraw ? 1 : 0, mDigit, mOffsetX, mOffsetY, mPixelSize, mBg, mFg);
    }
}

DebugDrawID::~DebugDrawID() {}

bool DebugDrawID::needDraw() const {
    return mNeedDraw;
}

void DebugDrawID::draw(unsigned int magicNumber, char* buffer, unsigned int width,
                       unsigned int height, unsigned int stride, unsigned int bufSize) const {
    if (mNeedDraw) CAM_PLOGD(kTag, "[%s] MagicNumber:(%d)", __func__, magicNumber);
    draw(magicNumber, mDigit, mOffsetX, mOffsetY, buffer, width, height, stride, bufSize,
         mPixelSize, static_cast<char>(mBg), static_cast<char>(mFg));
}

void DebugDrawID::draw(unsigned int number, unsigned int digit, unsigned int x, unsigned int y,
                       char* buffer, unsigned int width, unsigned int height, unsigned int stride,
                       unsigned int bufSize) const {
    draw(number, digit, x, y, buffer, width, height, stride, bufSize, mPixelSize,
         static_cast<char>(mBg), static_cast<char>(mFg));
}

void DebugDrawID::draw(unsigned int number, unsigned int digit, unsigned int x, unsigned int y,
                       char* buffer, unsigned int width, unsigned int height, unsigned int stride,
                       unsigned int bufSize, unsigned int size, char bg, char fg) {
    if (buffer == nullptr) {
        CAM_PLOGD(kTag, "[%s] Skip: No buffer", __func__);
        return;
    }
    if (width == 0 || height == 0) {
        CAM_PLOGD(kTag, "[%s] Skip: width(%d) height(%d) ", __func__, width, height);
        return;
    }
    // Every row written ends at or before the last row's end, and the first starts at
    // x + y * stride >= 0, so end < bufSize keeps every write inside the buffer.
    const uint64_t s = size;
    const uint64_t rows = kGlyphRows * s;
    uint64_t boxWidth = 0;  // up to 5 * (2^32 - 1)^2: may not fit
    int64_t end = 0;
    if (__builtin_mul_overflow(kDigitColumns * s, uint64_t{digit}, &boxWidth) ||
        !boxEnd(x, y, rows, stride, boxWidth, &end) || end >= static_cast<int64_t>(bufSize)) {
        CAM_PLOGD(kTag,
                  "[%s] Skip: exceed bufSize(%d): digit(%d) stride(%d) (%dx%d)@(%d,%d) BPP(%d)",
                  __func__, bufSize, digit, stride, kDigitColumns, kGlyphRows, x, y, size);
        return;
    }
    if (boxWidth == 0) return;

    const ShownDigits shown(number, digit);
    uint8_t* const plane = reinterpret_cast<uint8_t*>(buffer);
    const FastPath& fast = fastPath();
    if (s <= kWideCell && boxWidth >= fast.mWidth && boxWidth <= kScratchBytes &&
        stride >= boxWidth) {
        fast.mStamp({&shown, digit, s, static_cast<uint8_t>(bg), static_cast<uint8_t>(fg),
                     plane + x + uint64_t{y} * stride, stride});
        return;
    }

    const Fill bgFill(static_cast<unsigned char>(bg));
    const Fill fgFill(static_cast<unsigned char>(fg));
    uint8_t scratch[kScratchBytes + kFastCell];
    // Rows are written top to bottom, each before the next, so that where a stamp is wider
    // than the stride the later row is the one that stays. Such a row is written only up to
    // where the next row starts, as the next row overwrites the rest anyway; that keeps the
    // work within the buffer's size even for a zero stride.
    for (unsigned r = 0; r < kGlyphRows; ++r) {
        const bool composed = boxWidth <= kScratchBytes;
        if (composed) composeDigitRow(shown, s, r, 0, boxWidth, bgFill, fgFill, scratch);
        for (uint64_t j = 0; j < s; ++j) {
            const uint64_t row = r * s + j;
            const uint64_t n = row + 1 == rows ? boxWidth : std::min<uint64_t>(stride, boxWidth);
            uint8_t* const out = plane + x + (y + row) * stride;
            if (composed) {
                memcpy(out, scratch, n);
                continue;
            }
            for (uint64_t begin = 0; begin < n; begin += kScratchBytes) {
                const uint64_t pieceEnd = std::min(n, begin + kScratchBytes);
                composeDigitRow(shown, s, r, begin, pieceEnd, bgFill, fgFill, scratch);
                memcpy(out + begin, scratch, pieceEnd - begin);
            }
        }
    }
}

void DebugDrawID::draw(std::string text, unsigned int x, unsigned int y, char* buffer,
                       unsigned int width, unsigned int height, unsigned int stride,
                       unsigned int bufSize, unsigned int size, char bg, char fg) const {
    if (buffer == nullptr) {
        CAM_PLOGD(kTag, "[%s] skip: no buffer", __func__);
        return;
    }
    if (width == 0 || height == 0) {
        CAM_PLOGD(kTag, "[%s] skip: width(%d) height(%d) ", __func__, width, height);
        return;
    }
    const uint64_t s = size;
    const uint64_t length = text.size();
    uint64_t boxWidth = 0;
    int64_t end = 0;
    if (__builtin_mul_overflow(kTextColumns * s, length, &boxWidth) ||
        !boxEnd(x, y, kGlyphRows * s, stride, boxWidth, &end) ||
        end >= static_cast<int64_t>(bufSize)) {
        CAM_PLOGD(kTag,
                  "[%s] Skip: exceed buffer size(%d) : length(%d), buffer stride(%d), "
                  "mask(%dx%d), offset(%d,%d), BPP(%d)",
                  __func__, bufSize, static_cast<unsigned int>(length), stride, kTextColumns,
                  kGlyphRows, x, y, size);
        return;
    }

    if (boxWidth == 0) return;

    const uint8_t bgValue = static_cast<unsigned char>(bg);
    const uint8_t fgValue = static_cast<unsigned char>(fg);
    uint8_t* const plane = reinterpret_cast<uint8_t*>(buffer);
    const uint64_t rows = kGlyphRows * s;
    for (uint64_t i = 0; i < rows; ++i) {
        uint8_t* out = plane + x + (y + i) * stride;
        // As in the numeric stamp, a row stops where the next row starts; the last row, and
        // every row when the stride is wide enough, is written whole.
        uint64_t room = i + 1 == rows ? boxWidth : std::min<uint64_t>(stride, boxWidth);
        const uint64_t r = i / s;
        for (const char c : text) {
            const uint8_t* glyph = textGlyph(static_cast<unsigned char>(c));
            if (glyph == nullptr) continue;
            for (unsigned column = 0; column < kTextColumns && room > 0; ++column) {
                const uint64_t n = std::min(s, room);
                memset(out, glyph[r * kTextColumns + column] ? fgValue : bgValue, n);
                out += n;
                room -= n;
            }
            if (room == 0) break;
        }
    }
}
