// Layer draw geometry: integer rectangles in layer pixels first, clip-space
// quads last. Integer divisions truncate and the one halving of a possibly
// negative number (the crop offset) is an arithmetic shift, because hosts
// placed their own drawing by those exact pixels. Angles are turned in
// single precision as the device would. Nothing here touches a device.
#include "render/layered/layer_geometry.h"

#include <cmath>
#include <cstdlib>
#include <numbers>
#include <utility>

namespace ncb::layered {

TexQuad HalfTexelCoords(int width, int height) {
    const float u0 = 0.5f / static_cast<float>(width > 0 ? width : 1);
    const float v0 = 0.5f / static_cast<float>(height > 0 ? height : 1);
    return OrientTexCoords(u0, v0, 1.0f + u0, 1.0f + v0, 0);
}

bool CalcVideoRect(const VideoAreaInput& in, PixelRect* video) {
    *video = PixelRect{};
    if (!in.hasPicture) return false;
    const int64_t wa = in.layerWidth - in.left - in.right;
    const int64_t ha = in.layerHeight - in.top - in.bottom;
    if (wa < 1 || ha < 1) return false;
    const unsigned flags = in.layerFlags;
    if (!(flags & kLayerKeepAspect)) {
        *video = {in.left, in.top, static_cast<int>(wa), static_cast<int>(ha)};
        return true;
    }
    int64_t a = in.aspectX, b = in.aspectY;
    if (flags & kLayer4x3) {
        a = 4, b = 3;
    } else if (flags & kLayer16x9) {
        a = 16, b = 9;
    }
    if (a < 1 || b < 1) a = b = 1;
    const double area = static_cast<double>(wa) / static_cast<double>(ha);
    const double aspect = static_cast<double>(a) / static_cast<double>(b);
    int64_t x, y, w, h;
    if (flags & kLayerCrop) {
        if (area >= aspect) {
            w = wa, h = wa * b / a, x = in.left;
            y = (in.layerHeight - h) >> 1;
        } else {
            h = ha, w = ha * a / b, y = in.top;
            x = (in.layerWidth - w) >> 1;
        }
    } else if (aspect >= area) {
        w = wa, h = wa * b / a, x = in.left;
        if ((flags & kLayerCentre) || in.top == in.bottom) {
            y = in.top + (ha - h) / 2;
        } else {
            y = in.bottom <= in.top ? in.top + (ha - h) : in.top;
        }
    } else {
        h = ha, w = ha * a / b, y = in.top;
        if ((flags & kLayerCentre) || in.left == in.right) {
            x = in.left + (wa - w) / 2;
        } else {
            x = in.right <= in.left ? in.left + (wa - w) : in.left;
        }
    }
    *video = {static_cast<int>(x), static_cast<int>(y), static_cast<int>(w), static_cast<int>(h)};
    return true;
}

MarginBands CalcMarginBands(int layerWidth, int layerHeight, uint32_t layerColour, bool videoValid,
                            const PixelRect& video) {
    MarginBands m;
    if ((layerColour >> 24) == 0) return m;
    if (!videoValid) {
        m.band[0] = {0, 0, layerWidth, layerHeight};
        m.mask = 1;
        return m;
    }
    const int bottom = video.y + video.h, right = video.x + video.w;
    if (video.y >= 1) m.band[0] = {0, 0, layerWidth, video.y}, m.mask |= 1;
    if (bottom < layerHeight)
        m.band[1] = {0, bottom, layerWidth, layerHeight - bottom}, m.mask |= 2;
    if (video.x > 0) m.band[2] = {0, video.y, video.x, video.h}, m.mask |= 4;
    if (right < layerWidth) m.band[3] = {right, video.y, layerWidth - right, video.h}, m.mask |= 8;
    return m;
}

TexQuad OrientTexCoords(float u0, float v0, float u1, float v1, unsigned videoFlags) {
    // Which corner of the picture each screen corner shows, per quarter turn
    // clockwise: a turned picture shows its bottom-left at the top-left.
    static constexpr int kSourceCorner[4][4] = {
        {kTopLeft, kTopRight, kBottomLeft, kBottomRight},
        {kBottomLeft, kTopLeft, kBottomRight, kTopRight},
        {kBottomRight, kBottomLeft, kTopRight, kTopLeft},
        {kTopRight, kBottomRight, kTopLeft, kBottomLeft},
    };
    const float cu[4] = {u0, u1, u0, u1};
    const float cv[4] = {v0, v0, v1, v1};
    TexQuad t;
    const int turn = static_cast<int>((videoFlags >> 4) & 3);
    for (int c = 0; c < 4; ++c) {
        t.u[c] = cu[kSourceCorner[turn][c]];
        t.v[c] = cv[kSourceCorner[turn][c]];
    }
    auto swap_corners = [&t](int a, int b) {
        std::swap(t.u[a], t.u[b]);
        std::swap(t.v[a], t.v[b]);
    };
    if (videoFlags & 0x100)
        swap_corners(kTopLeft, kBottomLeft), swap_corners(kTopRight, kBottomRight);
    if (videoFlags & 0x200)
        swap_corners(kTopLeft, kTopRight), swap_corners(kBottomLeft, kBottomRight);
    return t;
}

void VideoAspect(int width, int height, int displayWidth, int displayHeight, unsigned videoFlags,
                 int* aspectX, int* aspectY) {
    int ax = width, ay = height;
    if (displayWidth > 0 && displayHeight > 0) ax = displayWidth, ay = displayHeight;
    const unsigned turn = videoFlags & 0x30;
    if (turn == 0x10 || turn == 0x30) std::swap(ax, ay);
    *aspectX = ax;
    *aspectY = ay;
}

bool CalcPixelSubTitleRect(const PixelSubTitleInput& in, const PixelRect& video, PixelRect* box) {
    *box = PixelRect{};
    int64_t x = in.pieceX > 0 ? in.pieceX : 0;
    int64_t y = in.pieceY > 0 ? in.pieceY : 0;
    int64_t w = in.pieceWidth, h = in.pieceHeight;
    const int64_t pw = in.pictureWidth, ph = in.pictureHeight;
    if (pw < 1 || ph < 1 || video.w < 1 || video.h < 1) return false;
    if (in.canvasWidth >= 1 && in.canvasHeight >= 1 &&
        (in.canvasWidth != pw || in.canvasHeight != ph)) {
        x = x * pw / in.canvasWidth, w = w * pw / in.canvasWidth;
        y = y * ph / in.canvasHeight, h = h * ph / in.canvasHeight;
    }
    w = static_cast<int64_t>(static_cast<double>(w) * in.scale);
    h = static_cast<int64_t>(static_cast<double>(h) * in.scale);
    if (in.value1 == 1) x = 0, y = 0;
    x += in.value2;
    y += in.value3;
    // Mirror the box inside the picture as the picture turns.
    int64_t tx = x, ty = y, tw = w, th = h, turnedW = pw, turnedH = ph;
    switch (in.videoFlags & 0x30) {
        case 0x10:
            tx = ph - y - h, ty = x, tw = h, th = w, turnedW = ph, turnedH = pw;
            break;
        case 0x20:
            tx = pw - x - w, ty = ph - y - h;
            break;
        case 0x30:
            tx = y, ty = pw - x - w, tw = h, th = w, turnedW = ph, turnedH = pw;
            break;
        default:
            break;
    }
    // The picture is shown on the video rectangle: carry the box there.
    box->x = static_cast<int>(video.x + tx * video.w / turnedW);
    box->y = static_cast<int>(video.y + ty * video.h / turnedH);
    box->w = static_cast<int>(tw * video.w / turnedW);
    box->h = static_cast<int>(th * video.h / turnedH);
    return box->w >= 1 && box->h >= 1;
}

void CalcTextSubTitleLayout(const TextPiece* const pieces[4], const int pieceCount[4],
                            int layerWidth, int layerHeight, int textPosition, int textHeight,
                            unsigned layerFlags, bool exactOnly, TextSlotResult out[4]) {
    const double s = textHeight;
    int blockHeight = 0;
    for (int slot = 0; slot < 4; ++slot) {
        out[slot] = TextSlotResult{};
        int best = -1;
        for (int i = 0; i < pieceCount[slot]; ++i) {
            if (pieces[slot][i].size <= 0.0) continue;
            if (best < 0 ||
                std::fabs(pieces[slot][i].size - s) < std::fabs(pieces[slot][best].size - s)) {
                best = i;
            }
        }
        if (best < 0) continue;
        const TextPiece& p = pieces[slot][best];
        if (p.size != s && exactOnly) continue;
        // Multiply before dividing so that exact ratios stay exact.
        const int w = static_cast<int>(p.width * s / p.size);
        const int h = static_cast<int>(p.height * s / p.size);
        if (w < 1 || h < 1) continue;
        out[slot].piece = best;
        out[slot].box = {(layerWidth - w) / 2, 0, w, h};
        blockHeight += h;
    }
    int top;
    if (layerFlags & kLayerTextBottom) {
        top = textPosition - blockHeight;
        if (top < 0 && (layerFlags & kLayerTextInside)) {
            top = blockHeight >= layerHeight ? layerHeight - blockHeight : 0;
        }
    } else {
        top = textPosition;
        if (textPosition + blockHeight > layerHeight && (layerFlags & kLayerTextInside)) {
            top = blockHeight < layerHeight ? layerHeight - blockHeight : 0;
        }
    }
    for (int slot = 0; slot < 4; ++slot) {
        if (out[slot].piece < 0) continue;
        out[slot].box.y = top;
        top += out[slot].box.h;
    }
}

MappingPlacement PlaceMapping(const PixelRect& source, const PixelRect& dest, int targetWidth,
                              int targetHeight) {
    MappingPlacement m;
    const int dx = dest.x, dy = dest.y, dw = dest.w, dh = dest.h;
    if (dw < 1 || dh < 1 || dx >= targetWidth || dy >= targetHeight || dx + dw < 1 || dy + dh < 1 ||
        source.w < 1 || source.h < 1) {
        return m;
    }
    const int left = dx > 0 ? dx : 0, top = dy > 0 ? dy : 0;
    const int right = dx + dw < targetWidth ? dx + dw : targetWidth;
    const int bottom = dy + dh < targetHeight ? dy + dh : targetHeight;
    m.empty = false;
    m.viewport = {left, top, right - left, bottom - top};
    const float cw = static_cast<float>(m.viewport.w), ch = static_cast<float>(m.viewport.h);
    float lx = -1.0f, rx = 1.0f, ty = 1.0f, by = -1.0f;
    if (dx < 0) lx = -1.0f + static_cast<float>(dx) * 2.0f / cw;
    if (dx + dw > targetWidth) rx = 1.0f + static_cast<float>(dx + dw - targetWidth) * 2.0f / cw;
    if (dy < 0) ty = 1.0f - static_cast<float>(dy) * 2.0f / ch;
    if (dy + dh > targetHeight) by = -1.0f - static_cast<float>(dy + dh - targetHeight) * 2.0f / ch;
    m.base.x[kTopLeft] = m.base.x[kBottomLeft] = lx;
    m.base.x[kTopRight] = m.base.x[kBottomRight] = rx;
    m.base.y[kTopLeft] = m.base.y[kTopRight] = ty;
    m.base.y[kBottomLeft] = m.base.y[kBottomRight] = by;
    m.cx = (lx + rx) / 2.0f;
    m.cy = (ty + by) / 2.0f;
    return m;
}

Quad ElementQuad(const MappingPlacement& placement, const PixelRect& source,
                 const PixelRect& element) {
    Quad q = placement.base;
    const Quad& b = placement.base;
    const float kx = (b.x[kTopRight] - b.x[kTopLeft]) / static_cast<float>(source.w);
    const float ky = (b.y[kBottomLeft] - b.y[kTopLeft]) / static_cast<float>(source.h);
    const float dl = static_cast<float>(element.x - source.x) * kx;
    const float dr = static_cast<float>(element.x + element.w - source.x - source.w) * kx;
    const float dt = static_cast<float>(element.y - source.y) * ky;
    const float db = static_cast<float>(element.y + element.h - source.y - source.h) * ky;
    q.x[kTopLeft] += dl, q.x[kBottomLeft] += dl;
    q.x[kTopRight] += dr, q.x[kBottomRight] += dr;
    q.y[kTopLeft] += dt, q.y[kTopRight] += dt;
    q.y[kBottomLeft] += db, q.y[kBottomRight] += db;
    return q;
}

void OrientQuad(Quad* quad, float cx, float cy, int mappingFlags, int degrees) {
    for (int c = 0; c < 4; ++c) {
        if (mappingFlags & 0x1) quad->y[c] = 2.0f * cy - quad->y[c];
        if (mappingFlags & 0x2) quad->x[c] = 2.0f * cx - quad->x[c];
    }
    if (degrees == 0) return;
    const float t = static_cast<float>(degrees) * std::numbers::pi_v<float> / 180.0f;
    const float cs = std::cos(t), sn = std::sin(t);
    for (int c = 0; c < 4; ++c) {
        const float x = quad->x[c] - cx, y = quad->y[c] - cy;
        quad->x[c] = x * cs + y * sn + cx;
        quad->y[c] = y * cs - x * sn + cy;
    }
}

ShaderChoice ChooseVideoShader(const VideoShaderInput& in) {
    ShaderChoice s;
    const bool mask = in.alphaMode == 0x8;
    const bool constant = in.alphaMode == 0x2 || in.alphaMode == 0x4;
    int family = 2;
    switch (in.layout) {
        case TextureLayout::kYuv:
            s.shader = mask ? 23 : constant ? 22 : 21, family = 3;
            break;
        case TextureLayout::kThreePlanes:
            s.shader = mask ? 31 : 30;
            break;
        case TextureLayout::kTwoPlanes:
            s.shader = mask ? 37 : 36;
            break;
        default:
            s.shader = mask ? 14 : constant ? 13 : 12, family = 3;
            break;
    }
    const float a = static_cast<float>(in.constantAlpha) / 255.0f *
                    (static_cast<float>(in.mappingAlpha) / 255.0f);
    const bool adjust = in.lumaOffset != 0 || in.uOffset != 0 || in.vOffset != 0 ||
                        in.lumaGain != 256 || in.uGain != 256 || in.vGain != 256;
    if (in.tint) {
        s.shader += family;
        s.c0[0] = static_cast<float>(in.lumaOffset) / 255.0f;
        s.c0[1] = static_cast<float>(in.lumaGain) / 256.0f;
        s.c0[2] = static_cast<float>(in.tintU) / 255.0f - 0.5f;
        s.c0[3] = static_cast<float>(in.tintV) / 255.0f - 0.5f;
        s.c1[0] = a;
        s.twoConstants = true;
    } else if (adjust) {
        s.shader += 2 * family;
        s.c0[0] = static_cast<float>(in.uOffset) / 255.0f;
        s.c0[1] = static_cast<float>(in.uGain) / 256.0f;
        s.c0[2] = static_cast<float>(in.vOffset) / 255.0f;
        s.c0[3] = static_cast<float>(in.vGain) / 256.0f;
        s.c1[0] = static_cast<float>(in.lumaOffset) / 255.0f;
        s.c1[1] = static_cast<float>(in.lumaGain) / 256.0f;
        s.c1[2] = a;
        s.twoConstants = true;
    } else {
        s.c0[0] = a;
    }
    return s;
}

ShaderChoice ChooseOverlayShader(int mappingFlags, int mappingAlpha, int tintU, int tintV,
                                 int lumaOffset, int uOffset, int vOffset) {
    ShaderChoice s;
    const float a = static_cast<float>(mappingAlpha) / 255.0f;
    if (mappingFlags & 0x4) {
        s.shader = 15;
        s.c0[0] = static_cast<float>(lumaOffset) / 255.0f;
        s.c0[1] = 1.0f;
        s.c0[2] = static_cast<float>(tintU) / 255.0f - 0.5f;
        s.c0[3] = static_cast<float>(tintV) / 255.0f - 0.5f;
        s.c1[0] = a;
        s.twoConstants = true;
    } else if (lumaOffset != 0 || uOffset != 0 || vOffset != 0) {
        s.shader = 18;
        s.c0[0] = static_cast<float>(uOffset) / 255.0f;
        s.c0[1] = 1.0f;
        s.c0[2] = static_cast<float>(vOffset) / 255.0f;
        s.c0[3] = 1.0f;
        s.c1[0] = static_cast<float>(lumaOffset) / 255.0f;
        s.c1[1] = 1.0f;
        s.c1[2] = a;
        s.twoConstants = true;
    } else {
        s.shader = 12;
        s.c0[0] = a;
    }
    return s;
}

}  // namespace ncb::layered
