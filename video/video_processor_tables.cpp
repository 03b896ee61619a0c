// The fixed-point colour tables, the clip table and the single-colour
// helpers of CNVideoProcessor.
//
// The tables are constant data, computed by the compiler: each entry is
// coefficient x index x 65536 truncated toward zero, formed in exact integer
// arithmetic from the coefficient's decimal digits (0.299 = 299 / 1000), so
// no entry depends on how a double rounds. The helpers use them with the
// clip table, one colour at a time; the bulk conversions have their own
// vector arithmetic and never touch these tables.
#include <cstdint>

#include "ncodecbase/video_processor.h"

namespace {

// numerator / denominator x (index - bias) x 65536, truncated toward zero.
constexpr int32_t Scaled(int64_t numerator, int64_t denominator, int index, int bias) {
    return static_cast<int32_t>(numerator * (index - bias) * 65536 / denominator);
}

constexpr uint8_t Clipped(int index) {
    return static_cast<uint8_t>(index < 256 ? 0 : index < 512 ? index - 256 : 255);
}

}  // namespace

// 256 entries of F(0) .. F(255); F is a one-argument macro.
#define NCB_ROW16(F, b)                                                                       \
    F(b + 0), F(b + 1), F(b + 2), F(b + 3), F(b + 4), F(b + 5), F(b + 6), F(b + 7), F(b + 8), \
        F(b + 9), F(b + 10), F(b + 11), F(b + 12), F(b + 13), F(b + 14), F(b + 15)
#define NCB_TABLE256(F)                                                                      \
    NCB_ROW16(F, 0), NCB_ROW16(F, 16), NCB_ROW16(F, 32), NCB_ROW16(F, 48), NCB_ROW16(F, 64), \
        NCB_ROW16(F, 80), NCB_ROW16(F, 96), NCB_ROW16(F, 112), NCB_ROW16(F, 128),            \
        NCB_ROW16(F, 144), NCB_ROW16(F, 160), NCB_ROW16(F, 176), NCB_ROW16(F, 192),          \
        NCB_ROW16(F, 208), NCB_ROW16(F, 224), NCB_ROW16(F, 240)

#define NCB_R2Y0299(i) Scaled(299, 1000, i, 0)
#define NCB_R2Y0587(i) Scaled(587, 1000, i, 0)
#define NCB_R2Y0114(i) Scaled(114, 1000, i, 0)
#define NCB_R2Y01687N(i) Scaled(-1687, 10000, i, 0)
#define NCB_R2Y03313N(i) Scaled(-3313, 10000, i, 0)
#define NCB_R2Y04187N(i) Scaled(-4187, 10000, i, 0)
#define NCB_R2Y00813N(i) Scaled(-813, 10000, i, 0)
#define NCB_Y2R1402(i) Scaled(1402, 1000, i, 128)
#define NCB_Y2R034413N(i) Scaled(-34413, 100000, i, 128)
#define NCB_Y2R071414N(i) Scaled(-71414, 100000, i, 128)
#define NCB_Y2R1772(i) Scaled(1772, 1000, i, 128)
#define NCB_CLIP0(i) Clipped(i)
#define NCB_CLIP1(i) Clipped(256 + i)
#define NCB_CLIP2(i) Clipped(512 + i)

constinit const int32_t CNVideoProcessor::s_nRgb2Yuv02990[256] = {NCB_TABLE256(NCB_R2Y0299)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv05870[256] = {NCB_TABLE256(NCB_R2Y0587)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv01140[256] = {NCB_TABLE256(NCB_R2Y0114)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv01687n[256] = {NCB_TABLE256(NCB_R2Y01687N)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv03313n[256] = {NCB_TABLE256(NCB_R2Y03313N)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv04187n[256] = {NCB_TABLE256(NCB_R2Y04187N)};
constinit const int32_t CNVideoProcessor::s_nRgb2Yuv00813n[256] = {NCB_TABLE256(NCB_R2Y00813N)};
constinit const int32_t CNVideoProcessor::s_nYuv2Rgb1402[256] = {NCB_TABLE256(NCB_Y2R1402)};
constinit const int32_t CNVideoProcessor::s_nYuv2Rgb034413n[256] = {NCB_TABLE256(NCB_Y2R034413N)};
constinit const int32_t CNVideoProcessor::s_nYuv2Rgb071414n[256] = {NCB_TABLE256(NCB_Y2R071414N)};
constinit const int32_t CNVideoProcessor::s_nYuv2Rgb1772[256] = {NCB_TABLE256(NCB_Y2R1772)};
constinit const uint8_t CNVideoProcessor::s_uClipTableU8[768] = {
    NCB_TABLE256(NCB_CLIP0), NCB_TABLE256(NCB_CLIP1), NCB_TABLE256(NCB_CLIP2)};
constinit const uint8_t* const CNVideoProcessor::s_pClipTableU8 =
    CNVideoProcessor::s_uClipTableU8 + 256;

#undef NCB_ROW16
#undef NCB_TABLE256
#undef NCB_R2Y0299
#undef NCB_R2Y0587
#undef NCB_R2Y0114
#undef NCB_R2Y01687N
#undef NCB_R2Y03313N
#undef NCB_R2Y04187N
#undef NCB_R2Y00813N
#undef NCB_Y2R1402
#undef NCB_Y2R034413N
#undef NCB_Y2R071414N
#undef NCB_Y2R1772
#undef NCB_CLIP0
#undef NCB_CLIP1
#undef NCB_CLIP2

unsigned int CNVideoProcessor::RGB2YUV(unsigned int uRGB) {
    const int r = (uRGB >> 16) & 0xFF, g = (uRGB >> 8) & 0xFF, b = uRGB & 0xFF;
    const uint8_t* clip = s_pClipTableU8;
    const int y =
        clip[(s_nRgb2Yuv02990[r] + s_nRgb2Yuv05870[g] + s_nRgb2Yuv01140[b] + 32768) >> 16];
    const int u = clip[(s_nRgb2Yuv01687n[r] + s_nRgb2Yuv03313n[g] + ((b + 257) << 15)) >> 16];
    const int v = clip[(s_nRgb2Yuv04187n[g] + s_nRgb2Yuv00813n[b] + ((r + 257) << 15)) >> 16];
    return static_cast<unsigned int>(y << 16 | u << 8 | v);
}

unsigned int CNVideoProcessor::YUV2RGB(unsigned int uYUV) {
    const int y = (uYUV >> 16) & 0xFF, u = (uYUV >> 8) & 0xFF, v = uYUV & 0xFF;
    const uint8_t* clip = s_pClipTableU8;
    const int base = (y << 16) + 32768;
    const int r = clip[(base + s_nYuv2Rgb1402[v]) >> 16];
    const int g = clip[(base + s_nYuv2Rgb034413n[u] + s_nYuv2Rgb071414n[v]) >> 16];
    const int b = clip[(base + s_nYuv2Rgb1772[u]) >> 16];
    return static_cast<unsigned int>(r << 16 | g << 8 | b);
}

unsigned int CNVideoProcessor::RGB32_RGB555(unsigned int uRGB) {
    const unsigned int r = (uRGB >> 16) & 0xFF, g = (uRGB >> 8) & 0xFF, b = uRGB & 0xFF;
    return ((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3);
}

unsigned int CNVideoProcessor::RGB32_RGB565(unsigned int uRGB) {
    const unsigned int r = (uRGB >> 16) & 0xFF, g = (uRGB >> 8) & 0xFF, b = uRGB & 0xFF;
    return ((r >> 3) << 11) | ((g >> 2) << 5) | (b >> 3);
}
