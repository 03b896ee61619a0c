// Scalar twins of the RGB layout kernels and the scalar table.
#include <cstring>

#include "video/colour/rgb_pack_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline uint16_t LoadWord(const uint8_t* p) {
    uint16_t w;
    std::memcpy(&w, p, 2);
    return w;
}

inline void StoreWord(uint8_t* p, uint32_t w) {
    const uint16_t v = static_cast<uint16_t>(w);
    std::memcpy(p, &v, 2);
}

inline void StorePixel(uint8_t* p, uint32_t b, uint32_t g, uint32_t r) {
    p[0] = static_cast<uint8_t>(b);
    p[1] = static_cast<uint8_t>(g);
    p[2] = static_cast<uint8_t>(r);
    p[3] = 0;
}

}  // namespace

void Rgb32ToRgb24_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        dst[3 * x] = src[4 * x];
        dst[3 * x + 1] = src[4 * x + 1];
        dst[3 * x + 2] = src[4 * x + 2];
    }
}

void Rgb32ToRgb565_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t b = src[4 * x], g = src[4 * x + 1], r = src[4 * x + 2];
        StoreWord(dst + 2 * x, (b >> 3) | ((g & 0xFC) << 3) | ((r & 0xF8) << 8));
    }
}

void Rgb32ToRgb555_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t b = src[4 * x], g = src[4 * x + 1], r = src[4 * x + 2];
        StoreWord(dst + 2 * x, ((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3));
    }
}

void Rgb24ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x)
        StorePixel(dst + 4 * x, src[3 * x], src[3 * x + 1], src[3 * x + 2]);
}

void Rgb565ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = width - 1; x >= x0; --x) {
        const uint32_t w = LoadWord(src + 2 * x);
        StorePixel(dst + 4 * x, (w & 31) << 3, ((w >> 5) & 63) << 2, (w >> 11) << 3);
    }
}

void Rgb555ToRgb32_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = width - 1; x >= x0; --x) {
        const uint32_t w = LoadWord(src + 2 * x);
        StorePixel(dst + 4 * x, (w & 31) << 3, ((w >> 5) & 31) << 3, ((w >> 10) & 31) << 3);
    }
}

void InstallRgbPackRowsScalar(RgbPackRowKernels* k) {
    using Pack = Row<void(const uint8_t*, uint8_t*)>;
    k->rgb32ToRgb24 = Pack::Scalar<Rgb32ToRgb24_c>;
    k->rgb32ToRgb565 = Pack::Scalar<Rgb32ToRgb565_c>;
    k->rgb32ToRgb555 = Pack::Scalar<Rgb32ToRgb555_c>;
    k->rgb24ToRgb32 = Pack::Scalar<Rgb24ToRgb32_c>;
    k->rgb565ToRgb32 = Pack::Scalar<Rgb565ToRgb32_c>;
    k->rgb555ToRgb32 = Pack::Scalar<Rgb555ToRgb32_c>;
}

const RgbPackRowKernels& GetRgbPackRowKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<RgbPackRowKernels>(
        InstallRgbPackRowsScalar,
        {InstallRgbPackRowsSse2, InstallRgbPackRowsSsse3, InstallRgbPackRowsSse41, nullptr});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
