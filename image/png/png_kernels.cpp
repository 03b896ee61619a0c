// Row kernels of the PNG codec: scalar twins, SSE2 variants and the per-level
// tables (see png_kernels.h).
//
// Filters are serial along a row (each pixel needs its unfiltered left
// neighbour), so the SSE2 paths vectorise across the bytes of one pixel
// rather than across pixels, widened to 16-bit lanes where Paeth needs signed
// distances. 4- and 8-byte pixels are loaded and stored one at a time. 3- and
// 6-byte pixels go in blocks of 12 bytes (see Blocks below), because a
// per-pixel 4- or 8-byte store would overlap the next pixel's load. Whatever
// is left at the row end goes through the scalar twin. Up has no dependency
// along the row and runs 16 bytes at a time.
#include "image/png/png_kernels.h"

#include <emmintrin.h>

#include <cstdlib>
#include <cstring>

#include "base/processor_level.h"

namespace ncb::png {

// ---- scalar twins --------------------------------------------------------

namespace {

inline uint8_t PaethPredictor(int a, int b, int c) {
    const int pa = std::abs(b - c);
    const int pb = std::abs(a - c);
    const int pc = std::abs(a + b - 2 * c);
    if (pa <= pb && pa <= pc) return static_cast<uint8_t>(a);
    if (pb <= pc) return static_cast<uint8_t>(b);
    return static_cast<uint8_t>(c);
}

// The scalar filters from byte `start` on; the vector paths finish with them.
void SubFrom(uint8_t* row, size_t start, size_t bytes, size_t unit) {
    for (size_t i = start < unit ? unit : start; i < bytes; ++i)
        row[i] = static_cast<uint8_t>(row[i] + row[i - unit]);
}

void UpFrom(uint8_t* row, const uint8_t* prev, size_t start, size_t bytes) {
    for (size_t i = start; i < bytes; ++i) row[i] = static_cast<uint8_t>(row[i] + prev[i]);
}

void AverageFrom(uint8_t* row, const uint8_t* prev, size_t start, size_t bytes, size_t unit) {
    size_t i = start;
    for (; i < bytes && i < unit; ++i) row[i] = static_cast<uint8_t>(row[i] + (prev[i] >> 1));
    for (; i < bytes; ++i) row[i] = static_cast<uint8_t>(row[i] + ((row[i - unit] + prev[i]) >> 1));
}

void PaethFrom(uint8_t* row, const uint8_t* prev, size_t start, size_t bytes, size_t unit) {
    size_t i = start;
    for (; i < bytes && i < unit; ++i) row[i] = static_cast<uint8_t>(row[i] + prev[i]);
    for (; i < bytes; ++i)
        row[i] =
            static_cast<uint8_t>(row[i] + PaethPredictor(row[i - unit], prev[i], prev[i - unit]));
}

}  // namespace

void UnfilterRow_c(int filter, uint8_t* row, const uint8_t* prev, size_t bytes, int unit) {
    const size_t u = static_cast<size_t>(unit);
    switch (filter) {
        case 1:
            SubFrom(row, 0, bytes, u);
            break;
        case 2:
            UpFrom(row, prev, 0, bytes);
            break;
        case 3:
            AverageFrom(row, prev, 0, bytes, u);
            break;
        case 4:
            PaethFrom(row, prev, 0, bytes, u);
            break;
        default:
            break;  // None, or an unknown filter: the row stays as stored
    }
}

void RgbToBgra_c(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x, src += 3, dst += 4) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
        dst[3] = 255;
    }
}

void RgbaToBgra_c(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x, src += 4, dst += 4) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
        dst[3] = src[3];
    }
}

// ---- SSE2 ----------------------------------------------------------------

namespace {

// One pixel of kUnit bytes moves as kLoad bytes (4 or 8) in the low lanes.
template <int kUnit>
constexpr int kLoad = kUnit <= 4 ? 4 : 8;

template <int kUnit>
inline __m128i LoadPixel(const uint8_t* p) {
    if constexpr (kLoad<kUnit> == 4) {
        int32_t v;
        std::memcpy(&v, p, 4);
        return _mm_cvtsi32_si128(v);
    } else {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    }
}

template <int kUnit>
inline void StorePixel(uint8_t* p, __m128i v) {
    if constexpr (kLoad<kUnit> == 4) {
        const int32_t x = _mm_cvtsi128_si32(v);
        std::memcpy(p, &x, 4);
    } else {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
    }
}

// All ones in the bytes of one pixel, zero in the loaded bytes beyond it.
template <int kUnit>
inline __m128i PixelMask8() {
    alignas(16) uint8_t m[16] = {};
    for (int i = 0; i < kUnit; ++i) m[i] = 0xFF;
    return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
}

inline __m128i Abs16(__m128i v) { return _mm_max_epi16(v, _mm_sub_epi16(_mm_setzero_si128(), v)); }

inline __m128i Select(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

template <int kUnit>
size_t SubPixels(uint8_t* row, size_t bytes) {
    const __m128i mask = PixelMask8<kUnit>();
    __m128i a = _mm_setzero_si128();
    size_t i = 0;
    for (; i + kLoad<kUnit> <= bytes; i += kUnit) {
        a = _mm_add_epi8(LoadPixel<kUnit>(row + i), _mm_and_si128(a, mask));
        StorePixel<kUnit>(row + i, a);
    }
    return i;
}

template <int kUnit>
size_t AveragePixels(uint8_t* row, const uint8_t* prev, size_t bytes) {
    const __m128i mask = PixelMask8<kUnit>();
    const __m128i one = _mm_set1_epi8(1);
    __m128i a = _mm_setzero_si128();
    size_t i = 0;
    for (; i + kLoad<kUnit> <= bytes; i += kUnit) {
        const __m128i b = LoadPixel<kUnit>(prev + i);
        // avg_epu8 rounds up; take the lost low bit back for floor((a + b) / 2).
        __m128i avg = _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), one));
        a = _mm_add_epi8(LoadPixel<kUnit>(row + i), _mm_and_si128(avg, mask));
        StorePixel<kUnit>(row + i, a);
    }
    return i;
}

template <int kUnit>
size_t PaethPixels(uint8_t* row, const uint8_t* prev, size_t bytes) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i mask = _mm_unpacklo_epi8(PixelMask8<kUnit>(), PixelMask8<kUnit>());
    __m128i a = zero, c = zero;  // 16-bit lanes
    size_t i = 0;
    for (; i + kLoad<kUnit> <= bytes; i += kUnit) {
        const __m128i b = _mm_unpacklo_epi8(LoadPixel<kUnit>(prev + i), zero);
        const __m128i bc = _mm_sub_epi16(b, c);
        const __m128i ac = _mm_sub_epi16(a, c);
        const __m128i pa = Abs16(bc);
        const __m128i pb = Abs16(ac);
        const __m128i pc = Abs16(_mm_add_epi16(bc, ac));
        const __m128i least = _mm_min_epi16(pa, _mm_min_epi16(pb, pc));
        __m128i pred =
            Select(_mm_cmpeq_epi16(pa, least), a, Select(_mm_cmpeq_epi16(pb, least), b, c));
        pred = _mm_and_si128(pred, mask);
        const __m128i x = _mm_add_epi8(LoadPixel<kUnit>(row + i), _mm_packus_epi16(pred, zero));
        StorePixel<kUnit>(row + i, x);
        a = _mm_unpacklo_epi8(x, zero);
        c = b;
    }
    return i;
}

size_t UpBlocks(uint8_t* row, const uint8_t* prev, size_t bytes) {
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(prev + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + i), _mm_add_epi8(x, b));
    }
    return i;
}

// 3- and 6-byte pixels: a pixel stored as 4 or 8 bytes would overlap the
// next pixel's load, and the processor cannot forward such a store to that
// load. Instead 16 bytes of row and row above are loaded once and 12 bytes
// of results (four or two pixels) are gathered in a register and stored
// together, after everything they overlap has been read.
template <int kShift>
inline __m128i ShiftDown(__m128i v) {
    return _mm_srli_si128(v, kShift);
}

inline void Store12(uint8_t* p, __m128i v) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
    const int32_t high = _mm_cvtsi128_si32(_mm_srli_si128(v, 8));
    std::memcpy(p + 8, &high, 4);
}

// `step(raw, up)` reverses one pixel held in the low lanes and returns it
// with every other lane zero.
template <int kUnit, typename Step>
size_t Blocks(uint8_t* row, const uint8_t* prev, size_t bytes, Step& step) {
    static_assert(kUnit == 3 || kUnit == 6);
    size_t i = 0;
    for (; i + 16 <= bytes; i += 12) {
        const __m128i raw = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
        const __m128i up = _mm_loadu_si128(reinterpret_cast<const __m128i*>(prev + i));
        __m128i out = step(raw, up);
        out = _mm_or_si128(
            out, _mm_slli_si128(step(ShiftDown<kUnit>(raw), ShiftDown<kUnit>(up)), kUnit));
        if constexpr (kUnit == 3) {
            out = _mm_or_si128(out, _mm_slli_si128(step(ShiftDown<6>(raw), ShiftDown<6>(up)), 6));
            out = _mm_or_si128(out, _mm_slli_si128(step(ShiftDown<9>(raw), ShiftDown<9>(up)), 9));
        }
        Store12(row + i, out);
    }
    return i;
}

template <int kUnit>
size_t SubBlocks(uint8_t* row, size_t bytes) {
    const __m128i mask = PixelMask8<kUnit>();
    __m128i a = _mm_setzero_si128();
    auto step = [&](__m128i raw, __m128i) {
        a = _mm_and_si128(_mm_add_epi8(raw, a), mask);
        return a;
    };
    return Blocks<kUnit>(row, row, bytes, step);
}

template <int kUnit>
size_t AverageBlocks(uint8_t* row, const uint8_t* prev, size_t bytes) {
    const __m128i mask = PixelMask8<kUnit>();
    const __m128i one = _mm_set1_epi8(1);
    __m128i a = _mm_setzero_si128();
    auto step = [&](__m128i raw, __m128i b) {
        const __m128i avg =
            _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), one));
        a = _mm_and_si128(_mm_add_epi8(raw, avg), mask);
        return a;
    };
    return Blocks<kUnit>(row, prev, bytes, step);
}

template <int kUnit>
size_t PaethBlocks(uint8_t* row, const uint8_t* prev, size_t bytes) {
    const __m128i mask = PixelMask8<kUnit>();
    const __m128i zero = _mm_setzero_si128();
    __m128i a = zero, c = zero;  // 16-bit lanes
    auto step = [&](__m128i raw, __m128i up) {
        const __m128i b = _mm_unpacklo_epi8(up, zero);
        const __m128i bc = _mm_sub_epi16(b, c);
        const __m128i ac = _mm_sub_epi16(a, c);
        const __m128i pa = Abs16(bc);
        const __m128i pb = Abs16(ac);
        const __m128i pc = Abs16(_mm_add_epi16(bc, ac));
        const __m128i least = _mm_min_epi16(pa, _mm_min_epi16(pb, pc));
        const __m128i pred =
            Select(_mm_cmpeq_epi16(pa, least), a, Select(_mm_cmpeq_epi16(pb, least), b, c));
        const __m128i x = _mm_and_si128(_mm_add_epi8(raw, _mm_packus_epi16(pred, zero)), mask);
        a = _mm_unpacklo_epi8(x, zero);
        c = b;
        return x;
    };
    return Blocks<kUnit>(row, prev, bytes, step);
}

template <int kUnit>
void UnfilterPixels(int filter, uint8_t* row, const uint8_t* prev, size_t bytes) {
    constexpr bool kBlocks = kUnit == 3 || kUnit == 6;
    size_t done;
    switch (filter) {
        case 1:
            if constexpr (kBlocks) {
                done = SubBlocks<kUnit>(row, bytes);
            } else {
                done = SubPixels<kUnit>(row, bytes);
            }
            SubFrom(row, done, bytes, kUnit);
            break;
        case 3:
            if constexpr (kBlocks) {
                done = AverageBlocks<kUnit>(row, prev, bytes);
            } else {
                done = AveragePixels<kUnit>(row, prev, bytes);
            }
            AverageFrom(row, prev, done, bytes, kUnit);
            break;
        case 4:
            if constexpr (kBlocks) {
                done = PaethBlocks<kUnit>(row, prev, bytes);
            } else {
                done = PaethPixels<kUnit>(row, prev, bytes);
            }
            PaethFrom(row, prev, done, bytes, kUnit);
            break;
        default:
            break;
    }
}

}  // namespace

void UnfilterRow_sse2(int filter, uint8_t* row, const uint8_t* prev, size_t bytes, int unit) {
    if (filter == 2) {
        UpFrom(row, prev, UpBlocks(row, prev, bytes), bytes);
        return;
    }
    switch (unit) {
        case 3:
            UnfilterPixels<3>(filter, row, prev, bytes);
            break;
        case 4:
            UnfilterPixels<4>(filter, row, prev, bytes);
            break;
        case 6:
            UnfilterPixels<6>(filter, row, prev, bytes);
            break;
        case 8:
            UnfilterPixels<8>(filter, row, prev, bytes);
            break;
        default:
            UnfilterRow_c(filter, row, prev, bytes, unit);
            break;
    }
}

void RgbaToBgra_sse2(const uint8_t* src, uint8_t* dst, int width) {
    const __m128i keep = _mm_set1_epi32(static_cast<int>(0xFF00FF00u));
    const __m128i swap = _mm_set1_epi32(0x00FF00FF);
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * x));
        const __m128i rb = _mm_and_si128(v, swap);
        const __m128i br = _mm_or_si128(_mm_slli_epi32(rb, 16), _mm_srli_epi32(rb, 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * x),
                         _mm_or_si128(_mm_and_si128(v, keep), br));
    }
    RgbaToBgra_c(src + 4 * x, dst + 4 * x, width - x);
}

// ---- tables ----------------------------------------------------------------

namespace {

constexpr PngKernels kScalar = {UnfilterRow_c, RgbToBgra_c, RgbaToBgra_c};
constexpr PngKernels kSse2 = {UnfilterRow_sse2, RgbToBgra_c, RgbaToBgra_sse2};
constexpr PngKernels kSsse3 = {UnfilterRow_sse2, RgbToBgra_ssse3, RgbaToBgra_sse2};

}  // namespace

const PngKernels& ScalarPngKernels() { return kScalar; }

const PngKernels& PngKernelsForLevel(int level) {
    switch (level) {
        case kProcessorLevelSse2:
            return kSse2;
        case kProcessorLevelSsse3:
        case kProcessorLevelSse41:
            return kSsse3;
        default:
            return kScalar;
    }
}

const PngKernels& ActivePngKernels() {
    static const PngKernels& active = PngKernelsForLevel(ProcessorLevel());
    return active;
}

}  // namespace ncb::png
