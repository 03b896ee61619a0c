// Scalar twins of the YUV <-> RGB32 row kernels, one pixel at a time in the
// integer arithmetic the vector kernels use (16-bit products shifted
// arithmetically), and the scalar table.
#include <algorithm>

#include "video/colour/rgb_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline int Clamp255(int x) { return std::clamp(x, 0, 255); }
inline int Average(int a, int b) { return (a + b + 1) >> 1; }

// (a * b) >> 16 with a signed 16-bit product, as pmulhw computes it.
inline int MulHigh(int a, int b) { return (a * b) >> 16; }

inline void YuvPixel(int y, int u8, int v8, uint8_t alpha, uint8_t* dst) {
    const int u = (u8 - 128) * 256;
    const int v = (v8 - 128) * 256;
    const int dr = MulHigh(v, 11485) + 16;
    const int db = MulHigh(u, 14516) + 16;
    const int dg = MulHigh(u, -2819) + MulHigh(v, -5850) + 16;
    dst[0] = static_cast<uint8_t>(Clamp255((y * 32 + db) >> 5));
    dst[1] = static_cast<uint8_t>(Clamp255((y * 32 + dg) >> 5));
    dst[2] = static_cast<uint8_t>(Clamp255((y * 32 + dr) >> 5));
    dst[3] = alpha;
}

struct Bgr {
    int b, g, r;
};

inline Bgr PixelAt(const uint8_t* row, int x) {
    return {row[4 * x], row[4 * x + 1], row[4 * x + 2]};
}

inline Bgr Mean(Bgr p, Bgr q) { return {Average(p.b, q.b), Average(p.g, q.g), Average(p.r, q.r)}; }

// The 2.14 chroma of the main loops.
inline void Chroma14(Bgr c, uint8_t* u, uint8_t* v) {
    const int cu = (32 * c.b - MulHigh(256 * c.g, 5428) - MulHigh(256 * c.r, 2764) + 32) >> 6;
    const int cv = (32 * c.r - MulHigh(256 * c.g, 6860) - MulHigh(256 * c.b, 1332) + 32) >> 6;
    *u = static_cast<uint8_t>(std::clamp(cu, -128, 127) + 128);
    *v = static_cast<uint8_t>(std::clamp(cv, -128, 127) + 128);
}

// The 1.7 chroma of the pixels after a 4:2:0 row's last whole block.
inline void Chroma7(Bgr c, uint8_t* u, uint8_t* v) {
    *u = static_cast<uint8_t>(Clamp255((64 * c.b - 42 * c.g - 22 * c.r + 16447) >> 7));
    *v = static_cast<uint8_t>(Clamp255((64 * c.r - 54 * c.g - 10 * c.b + 16447) >> 7));
}

}  // namespace

void Yuv422ToRgb32_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                     uint8_t alpha, int x0, int width) {
    for (int x = x0; x < (width & ~1); ++x)
        YuvPixel(y[x], u[x >> 1], v[x >> 1], alpha, dst + 4 * x);
}

void Yuv444ToRgb32_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                     uint8_t alpha, int x0, int width) {
    for (int x = x0; x < width; ++x) YuvPixel(y[x], u[x], v[x], alpha, dst + 4 * x);
}

void Rgb32ToLuma14_c(const uint8_t* src, uint8_t* y, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const Bgr p = PixelAt(src, x);
        // 256 x fits 16 bits unsigned; the products are pmulhuw's.
        const int sum = ((p.b * 256 * 1868) >> 16) + ((p.g * 256 * 9617) >> 16) +
                        ((p.r * 256 * 4899) >> 16) + 32;
        y[x] = static_cast<uint8_t>(Clamp255(sum >> 6));
    }
}

void Rgb32ToLuma_c(const uint8_t* src, uint8_t* y, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const Bgr p = PixelAt(src, x);
        y[x] = static_cast<uint8_t>(Clamp255((38 * p.r + 75 * p.g + 15 * p.b + 64) >> 7));
    }
}

void Rgb32ToChroma420_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v, int x0,
                        int width) {
    const int mainEnd = width & ~15;
    for (int x = x0; x + 1 < width; x += 2) {
        const Bgr left = Mean(PixelAt(src0, x), PixelAt(src1, x));
        const Bgr right = Mean(PixelAt(src0, x + 1), PixelAt(src1, x + 1));
        const Bgr c = Mean(left, right);
        if (x < mainEnd) {
            Chroma14(c, u + x / 2, v + x / 2);
        } else {
            Chroma7(c, u + x / 2, v + x / 2);
        }
    }
}

void Rgb32ToChroma422_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x + 1 < width; x += 2)
        Chroma14(Mean(PixelAt(src, x), PixelAt(src, x + 1)), u + x / 2, v + x / 2);
}

void Rgb32ToChroma444_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x < width; ++x) Chroma14(PixelAt(src, x), u + x, v + x);
}

void Rgb32ToYuv420_c(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1, uint8_t* u,
                     uint8_t* v, int x0, int width) {
    Rgb32ToLuma_c(src0, y0, x0, width);
    Rgb32ToLuma_c(src1, y1, x0, width);
    Rgb32ToChroma420_c(src0, src1, u, v, x0, width);
}

void InstallRgbRowsScalar(RgbRowKernels* k) {
    using ToRgb = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*, uint8_t)>;
    using ToLuma = Row<void(const uint8_t*, uint8_t*)>;
    using ToChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    k->yuv422ToRgb32 = ToRgb::Scalar<Yuv422ToRgb32_c>;
    k->yuv444ToRgb32 = ToRgb::Scalar<Yuv444ToRgb32_c>;
    k->rgb32ToLuma14 = ToLuma::Scalar<Rgb32ToLuma14_c>;
    k->rgb32ToLuma = ToLuma::Scalar<Rgb32ToLuma_c>;
    k->rgb32ToChroma420 =
        Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>::Scalar<Rgb32ToChroma420_c>;
    k->rgb32ToChroma422 = ToChroma::Scalar<Rgb32ToChroma422_c>;
    k->rgb32ToChroma444 = ToChroma::Scalar<Rgb32ToChroma444_c>;
    k->rgb32ToYuv420 = nullptr;
}

const RgbRowKernels& GetRgbRowKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<RgbRowKernels>(
        InstallRgbRowsScalar,
        {InstallRgbRowsSse2, InstallRgbRowsSsse3, nullptr, InstallRgbRowsAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
