#pragma once

// The numeric frame-ID stamp's digit font and its vector paths, kept apart from the public
// class so that tests and benchmarks can run every path the processor has, not only the one
// picked at run time.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace NSCam {
namespace Utils {
namespace DrawID {

inline constexpr unsigned kGlyphRows = 5;
inline constexpr unsigned kDigitColumns = 5;

// Digit font: glyph of each digit value, 5 rows x 5 columns, 1 = foreground.
inline constexpr uint8_t kDigitFont[10][kGlyphRows * kDigitColumns] = {
    {0,1,1,1,0,  0,1,0,1,0,  0,1,0,1,0,  0,1,0,1,0,  0,1,1,1,0},  // 0
    {0,0,0,1,0,  0,0,0,1,0,  0,0,0,1,0,  0,0,0,1,0,  0,0,0,1,0},  // 1
    {0,1,1,1,0,  0,0,0,1,0,  0,1,1,1,0,  0,1,0,0,0,  0,1,1,1,0},  // 2
    {0,1,1,1,0,  0,0,0,1,0,  0,1,1,1,0,  0,0,0,1,0,  0,1,1,1,0},  // 3
    {0,1,0,1,0,  0,1,0,1,0,  0,1,1,1,0,  0,0,0,1,0,  0,0,0,1,0},  // 4
    {0,1,1,1,0,  0,1,0,0,0,  0,1,1,1,0,  0,0,0,1,0,  0,1,1,1,0},  // 5
    {0,1,0,0,0,  0,1,0,0,0,  0,1,1,1,0,  0,1,0,1,0,  0,1,1,1,0},  // 6
    {0,1,1,1,0,  0,1,0,1,0,  0,0,0,1,0,  0,0,0,1,0,  0,0,0,1,0},  // 7
    {0,1,1,1,0,  0,1,0,1,0,  0,1,1,1,0,  0,1,0,1,0,  0,1,1,1,0},  // 8
    {0,1,1,1,0,  0,1,0,1,0,  0,1,1,1,0,  0,0,0,1,0,  0,1,1,1,0},  // 9
};

// Glyph rows of the numeric stamp are composed in a scratch row of this many bytes before
// they are copied to the plane; wider rows are composed and copied in pieces.
inline constexpr uint64_t kScratchBytes = 4096;
// Cells up to kFastCell bytes wide are filled with one 16-byte store, and cells up to
// kWideCell with one 64-byte store, that the next cell overwrites; the scratch row has room
// for the store that runs past its end.
inline constexpr uint64_t kFastCell = 16;
inline constexpr uint64_t kWideCell = 64;

// The digits a stamp shows: a 32-bit number has at most ten, so every position further left
// than that shows 0.
class ShownDigits {
public:
    ShownDigits(uint32_t number, uint64_t count) : mCount(count) {
        for (uint64_t i = 0; i < 10; ++i) {
            // Digits left of the shown ones are not looked at; stop there.
            if (i == count) break;
            mLow[i] = static_cast<uint8_t>(number % 10);
            number /= 10;
        }
    }
    // Value at position k, 0 being the leftmost. Always inlined, also into the vector paths
    // built for other processor tunings.
    [[gnu::always_inline]] unsigned at(uint64_t k) const {
        const uint64_t power = mCount - 1 - k;
        return power >= 10 ? 0 : mLow[power];
    }

private:
    uint64_t mCount;
    uint8_t mLow[10];
};

// The fast paths of the numeric stamp take the usual stamp: cells of at most kWideCell bytes,
// a box at least one vector and at most kScratchBytes wide, and a stride no smaller than the
// box, so that no two rows of the box share a byte and they may be written in any order.
//
// Every glyph row of a digit is one of a few column patterns (a digit row always has empty
// outer columns). Each pattern is drawn once as a strip of 5 cells; a glyph row of the stamp
// is one strip copy per digit, and the `size` plane rows of a glyph row are the same bytes.
// Copies are fixed-size vector stores of W bytes that run on into the next digit or the
// scratch row's slack, and the plane rows are written from vectors held in registers, so the
// stamp costs about what a memcpy of its bytes does.

// The distinct 5-column patterns of the digit rows, found from the font when compiling.
struct DigitPatterns {
    unsigned mCount = 0;
    uint8_t mBits[kGlyphRows * 10] = {};  // bit c set: column c is foreground
    uint8_t mIndex[10][kGlyphRows] = {};  // pattern of row r of digit v
};

constexpr DigitPatterns findDigitPatterns() {
    DigitPatterns p;
    for (unsigned v = 0; v < 10; ++v) {
        for (unsigned r = 0; r < kGlyphRows; ++r) {
            unsigned bits = 0;
            for (unsigned c = 0; c < kDigitColumns; ++c)
                bits |= static_cast<unsigned>(kDigitFont[v][r * kDigitColumns + c]) << c;
            unsigned i = 0;
            while (i < p.mCount && p.mBits[i] != bits) ++i;
            if (i == p.mCount) p.mBits[p.mCount++] = static_cast<uint8_t>(bits);
            p.mIndex[v][r] = static_cast<uint8_t>(i);
        }
    }
    return p;
}

inline constexpr DigitPatterns kDigitPatterns = findDigitPatterns();
inline constexpr uint64_t kStripBytes = kDigitColumns * kWideCell + kWideCell;

template <size_t N>
[[gnu::always_inline]] inline void copyFixed(uint8_t* out, const uint8_t* in) {
    typedef uint8_t Vec __attribute__((vector_size(N)));
    Vec v;
    memcpy(&v, in, N);
    memcpy(out, &v, N);
}

// Writes the n bytes at row to `count` rows, the first at out, `stride` apart; W <= n and
// the rows do not overlap. A row of up to 8 vectors is loaded once, held in registers and
// stored row after row; a wider row is copied vector by vector. Each row is stored in
// ascending addresses, which the store path merges best, and its last vector ends at its last
// byte, overlapping the one before it.
template <size_t W, unsigned kVectors, typename Vec>
[[gnu::always_inline]] inline void storeHeldRows(uint8_t* out, uint64_t stride, uint64_t count,
                                                 const Vec (&v)[kVectors], uint64_t n) {
    for (uint64_t i = 0; i < count; ++i, out += stride) {
#pragma GCC unroll 8
        for (unsigned c = 0; c + 1 < kVectors; ++c) memcpy(out + c * W, &v[c], W);
        memcpy(out + n - W, &v[kVectors - 1], W);
    }
}

template <size_t W, unsigned kVectors>
[[gnu::always_inline]] inline void writeHeldRows(uint8_t* out, uint64_t stride, uint64_t count,
                                                 const uint8_t* row, uint64_t n) {
    typedef uint8_t Vec __attribute__((vector_size(W)));
    Vec v[kVectors];
#pragma GCC unroll 8
    for (unsigned c = 0; c + 1 < kVectors; ++c) memcpy(&v[c], row + c * W, W);
    memcpy(&v[kVectors - 1], row + n - W, W);
    storeHeldRows<W>(out, stride, count, v, n);
}

template <size_t W>
[[gnu::always_inline]] inline void writeRows(uint8_t* out, uint64_t stride, uint64_t count,
                                             const uint8_t* row, uint64_t n) {
    switch ((n + W - 1) / W) {
        case 1: return writeHeldRows<W, 1>(out, stride, count, row, n);
        case 2: return writeHeldRows<W, 2>(out, stride, count, row, n);
        case 3: return writeHeldRows<W, 3>(out, stride, count, row, n);
        case 4: return writeHeldRows<W, 4>(out, stride, count, row, n);
        case 5: return writeHeldRows<W, 5>(out, stride, count, row, n);
        case 6: return writeHeldRows<W, 6>(out, stride, count, row, n);
        case 7: return writeHeldRows<W, 7>(out, stride, count, row, n);
        case 8: return writeHeldRows<W, 8>(out, stride, count, row, n);
        default: break;
    }
    for (uint64_t i = 0; i < count; ++i, out += stride) {
        for (uint64_t o = 0; o + W < n; o += W) copyFixed<W>(out + o, row + o);
        copyFixed<W>(out + n - W, row + n - W);
    }
}

// Draws the strip of every digit pattern: cell c of pattern p at c * size, each cell one
// store of kCell bytes that the next one overwrites.
template <uint64_t kCell>
[[gnu::always_inline]] inline void drawStrips(uint64_t size, uint8_t bg, uint8_t fg,
                                              uint8_t (*strips)[kStripBytes]) {
    typedef uint8_t Vec __attribute__((vector_size(kCell)));
    const Vec bgCell = Vec{} + bg;
    const Vec fgCell = Vec{} + fg;
    for (unsigned p = 0; p < kDigitPatterns.mCount; ++p) {
        for (unsigned c = 0; c < kDigitColumns; ++c) {
            const Vec& cell = (kDigitPatterns.mBits[p] >> c & 1) ? fgCell : bgCell;
            memcpy(strips[p] + c * size, &cell, kCell);
        }
    }
}

/// One numeric stamp for a fast path.
struct FastStamp {
    const ShownDigits* mDigits;
    uint64_t mCount;  // digits
    uint64_t mSize;   // cell edge
    uint8_t mBg;
    uint8_t mFg;
    uint8_t* mOut;    // top-left byte of the box
    uint64_t mStride;
};

template <size_t W>
[[gnu::always_inline]] inline void stampFastBody(const FastStamp& job) {
    const uint64_t size = job.mSize;
    const uint64_t digitWidth = kDigitColumns * size;
    const uint64_t boxWidth = digitWidth * job.mCount;
    uint8_t strips[kDigitPatterns.mCount][kStripBytes];
    if (size <= kFastCell) {
        drawStrips<kFastCell>(size, job.mBg, job.mFg, strips);
    } else {
        drawStrips<kWideCell>(size, job.mBg, job.mFg, strips);
    }
    // As many glyph rows as fit are composed before any is written, so that the loads of a
    // row come well after the stores that composed it.
    uint8_t rows[kScratchBytes + kStripBytes];
    unsigned group = kGlyphRows;
    while (group > 1 && group * boxWidth > kScratchBytes) --group;
    for (unsigned first = 0; first < kGlyphRows; first += group) {
        const unsigned last = first + group < kGlyphRows ? first + group : kGlyphRows;
        uint8_t* o = rows;
        for (unsigned r = first; r < last; ++r) {
            for (uint64_t k = 0; k < job.mCount; ++k, o += digitWidth) {
                const uint8_t* strip = strips[kDigitPatterns.mIndex[job.mDigits->at(k)][r]];
                for (uint64_t b = 0; b < digitWidth; b += W) copyFixed<W>(o + b, strip + b);
            }
        }
        for (unsigned r = first; r < last; ++r) {
            writeRows<W>(job.mOut + r * size * job.mStride, job.mStride, size,
                         rows + (r - first) * boxWidth, boxWidth);
        }
    }
}

// One build for each vector width a processor may have.
#if defined(__x86_64__)
__attribute__((target("avx512bw"))) inline void stampFast64(const FastStamp& job) {
    stampFastBody<64>(job);
}

// With byte permutes (AVX-512 VBMI) a stamp of at most 64 cells across and 8 vectors wide is
// built in registers, nothing composed in memory: the glyph row's cells are a 64-byte table
// (cell i is fg or bg), and each vector of a plane row picks its bytes from that table by cell
// index, byte offset / size. The indexes are the same for every glyph row.
template <unsigned kVectors>
__attribute__((target("avx512bw,avx512vbmi"), always_inline)) inline void stampCells(
        const FastStamp& job, uint64_t n) {
    const uint64_t size = job.mSize;
    // floor(i / size) for i < 512 and 2 <= size <= 64, as (i * ceil(2^16 / size)) >> 16.
    const __m512i reciprocal = _mm512_set1_epi16(static_cast<short>((65536 + size - 1) / size));
    const __m512i iota = _mm512_set_epi16(31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19,
                                          18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4,
                                          3, 2, 1, 0);
    __m512i index[kVectors];
    for (unsigned c = 0; c < kVectors; ++c) {
        const uint64_t offset = c + 1 < kVectors ? c * 64 : n - 64;
        const __m512i low = _mm512_add_epi16(iota, _mm512_set1_epi16(static_cast<short>(offset)));
        const __m512i high = _mm512_add_epi16(low, _mm512_set1_epi16(32));
        // The zero-masking forms: the plain ones start from an undefined register, which
        // GCC 12 reports as maybe-uninitialized.
        const __m256i lowCells =
                _mm512_maskz_cvtepi16_epi8(~0u, _mm512_mulhi_epu16(low, reciprocal));
        const __m256i highCells =
                _mm512_maskz_cvtepi16_epi8(~0u, _mm512_mulhi_epu16(high, reciprocal));
        index[c] = _mm512_maskz_inserti64x4(0xFF, _mm512_castsi256_si512(lowCells), highCells, 1);
    }
    const __m512i bg = _mm512_set1_epi8(static_cast<char>(job.mBg));
    const __m512i fg = _mm512_set1_epi8(static_cast<char>(job.mFg));
    for (unsigned r = 0; r < kGlyphRows; ++r) {
        uint64_t cells = 0;  // bit i: cell i of this glyph row is foreground
        for (uint64_t k = 0; k < job.mCount; ++k) {
            const unsigned pattern = kDigitPatterns.mIndex[job.mDigits->at(k)][r];
            cells |= uint64_t{kDigitPatterns.mBits[pattern]} << (kDigitColumns * k);
        }
        const __m512i table = _mm512_mask_blend_epi8(cells, bg, fg);
        __m512i v[kVectors];
        for (unsigned c = 0; c < kVectors; ++c)
            v[c] = _mm512_maskz_permutexvar_epi8(~0ull, index[c], table);
        storeHeldRows<64>(job.mOut + r * size * job.mStride, job.mStride, size, v, n);
    }
}

__attribute__((target("avx512bw,avx512vbmi"))) inline void stampFast64Vbmi(
        const FastStamp& job) {
    const uint64_t n = kDigitColumns * job.mSize * job.mCount;
    if (kDigitColumns * job.mCount <= 64) {
        switch ((n + 63) / 64) {
            case 1: return stampCells<1>(job, n);
            case 2: return stampCells<2>(job, n);
            case 3: return stampCells<3>(job, n);
            case 4: return stampCells<4>(job, n);
            case 5: return stampCells<5>(job, n);
            case 6: return stampCells<6>(job, n);
            case 7: return stampCells<7>(job, n);
            case 8: return stampCells<8>(job, n);
            default: break;
        }
    }
    stampFastBody<64>(job);
}

// Tuned for the first processors with AVX2: generic tuning splits unaligned 32-byte loads and
// stores in two.
__attribute__((target("avx2,tune=haswell"))) inline void stampFast32(const FastStamp& job) {
    stampFastBody<32>(job);
}
#endif
inline void stampFast16(const FastStamp& job) {
    stampFastBody<16>(job);
}

using StampFast = void (*)(const FastStamp&);

struct FastPath {
    const char* mName;
    StampFast mStamp;
    uint64_t mWidth;  // vector width in bytes: narrower boxes take the general path
    bool (*mSupported)();
};

#if defined(__x86_64__)
inline bool hasAvx512Vbmi() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi");
}
inline bool hasAvx512() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512bw");
}
inline bool hasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
#endif
inline bool always() {
    return true;
}

/// Every path, best first; the last runs everywhere (16-byte vectors: SSE2, NEON).
inline constexpr FastPath kFastPaths[] = {
#if defined(__x86_64__)
        {"avx512vbmi", stampFast64Vbmi, 64, hasAvx512Vbmi},
        {"avx512bw", stampFast64, 64, hasAvx512},
        {"avx2", stampFast32, 32, hasAvx2},
#endif
        {"vector16", stampFast16, 16, always},
};

}  // namespace DrawID
}  // namespace Utils
}  // namespace NSCam
