// Pixel formats and colour arithmetic; see gfx_formats.h. Plain per-pixel
// code: the devices call it per span, and clarity beats speed here.
#include "platform/gfx/gfx_formats.h"

#include <cstring>

namespace nplat::gfx {

const YuvMatrix kBt601 = {1.402f, 0.34413f, 0.71414f, 1.772f};
const YuvMatrix kBt709 = {1.5748f, 0.18732f, 0.46812f, 1.8556f};

bool IsRgbFormat(D3DFORMAT format) {
    switch (format) {
        case D3DFMT_A8R8G8B8:
        case D3DFMT_X8R8G8B8:
        case D3DFMT_R8G8B8:
        case D3DFMT_R5G6B5:
        case D3DFMT_X1R5G5B5:
        case D3DFMT_A1R5G5B5:
            return true;
        default:
            return false;
    }
}

bool IsYuvSurfaceFormat(D3DFORMAT format) {
    return format == D3DFMT_YUY2 || format == D3DFMT_UYVY || format == D3DFMT_NV12;
}

bool IsTextureFormat(D3DFORMAT format) {
    return IsRgbFormat(format) || format == D3DFMT_L8 || format == D3DFMT_A8L8;
}

bool IsRenderTargetFormat(D3DFORMAT format) { return IsRgbFormat(format); }

int SurfacePitch(D3DFORMAT format, int width) { return (width * FormatBytes(format) + 15) & ~15; }

size_t SurfaceBytes(D3DFORMAT format, int pitch, int height) {
    size_t rows = static_cast<size_t>(height);
    if (format == D3DFMT_NV12) rows += static_cast<size_t>((height + 1) / 2);
    return rows * static_cast<size_t>(pitch);
}

Float4 ColorToFloat4(D3DCOLOR color) {
    constexpr float kInv255 = 1.0f / 255.0f;
    return {static_cast<float>(color >> 16 & 0xFF) * kInv255,
            static_cast<float>(color >> 8 & 0xFF) * kInv255,
            static_cast<float>(color & 0xFF) * kInv255, static_cast<float>(color >> 24) * kInv255};
}

Float4 YuvToRgb(float y, float u, float v, float a, const YuvMatrix& m) {
    return {y + m.kr * v, y - m.kgu * u - m.kgv * v, y + m.kb * u, a};
}

void RgbToYuv(float r, float g, float b, float* y, float* u, float* v) {
    *y = 0.299f * r + 0.587f * g + 0.114f * b;
    *u = -0.1687f * r - 0.3313f * g + 0.5f * b;
    *v = 0.5f * r - 0.4187f * g - 0.0813f * b;
}

void LoadYuvPixel(D3DFORMAT format, const uint8_t* bits, int pitch, int height, int x, int y,
                  uint8_t yuv[3]) {
    const uint8_t* row = bits + static_cast<ptrdiff_t>(y) * pitch;
    switch (format) {
        case D3DFMT_YUY2: {
            const uint8_t* pair = row + (x & ~1) * 2;
            yuv[0] = pair[(x & 1) * 2];
            yuv[1] = pair[1];
            yuv[2] = pair[3];
            return;
        }
        case D3DFMT_UYVY: {
            const uint8_t* pair = row + (x & ~1) * 2;
            yuv[0] = pair[1 + (x & 1) * 2];
            yuv[1] = pair[0];
            yuv[2] = pair[2];
            return;
        }
        case D3DFMT_NV12: {
            const uint8_t* chroma = bits + static_cast<ptrdiff_t>(height) * pitch +
                                    static_cast<ptrdiff_t>(y / 2) * pitch + (x & ~1);
            yuv[0] = row[x];
            yuv[1] = chroma[0];
            yuv[2] = chroma[1];
            return;
        }
        default:
            yuv[0] = 0;
            yuv[1] = 128;
            yuv[2] = 128;
            return;
    }
}

void ExpandLimited(float* y, float* u, float* v) {
    *y = (*y - 16.0f / 255.0f) * (255.0f / 219.0f);
    *u = *u * (255.0f / 224.0f);
    *v = *v * (255.0f / 224.0f);
}

}  // namespace nplat::gfx
