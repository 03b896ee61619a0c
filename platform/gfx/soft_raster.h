// Triangle rasterisation with Direct3D 9's rules, for the software device.
//
// Positions arrive in screen space (after the viewport transform), where
// pixel centres sit on integer coordinates. They are snapped to 1/256 pixel,
// as hardware does, and coverage is decided exactly in 64-bit integers: a
// pixel is drawn when its centre lies inside the triangle, or on an edge that
// is a top edge (horizontal, with the triangle below it) or a left edge. So
// two triangles sharing an edge never both draw a pixel on it and never both
// skip it. Triangles are culled by their winding on the screen (clockwise or
// counter-clockwise with y pointing down), and every span is cut to the clip
// rectangle (the viewport within the render target).
//
// Texture coordinates are interpolated linearly (the vertex stage writes
// w = 1, so this equals perspective-correct interpolation), evaluated at each
// pixel centre in double precision.
//
// Not here: depth, perspective division, guard-band clipping beyond a sanity
// clamp of +-2^22 pixels (positions past it are clamped, which is exact for
// the axis-aligned quads the renders draw), points and lines.
#pragma once

#include <cstdint>

#include "platform/gfx/d3d9.h"

namespace nplat::gfx {

constexpr int kMaxTexSets = 4;

struct RasterVertex {
    double x, y;                // screen position
    float tex[kMaxTexSets][2];  // texture coordinates
};

struct ClipRect {
    int left, top, right, bottom;  // right and bottom exclusive
};

// Texture coordinates of a span: at pixel x0 + i of the span, set s has
// u = base[s][0] + i * step[s][0], v = base[s][1] + i * step[s][1].
struct SpanCoords {
    double base[kMaxTexSets][2];
    double step[kMaxTexSets][2];
};

// Per-triangle texel-space derivatives, for the min / mag filter choice:
// du/dx, dv/dx, du/dy, dv/dy of each set (in texture coordinates).
struct TriangleGradients {
    double d[kMaxTexSets][4];
};

class SpanSink {
  public:
    virtual void BeginTriangle(const TriangleGradients& gradients) = 0;
    // Pixels x0 .. x0 + count - 1 of row y, count >= 1.
    virtual void Span(int y, int x0, int count, const SpanCoords& coords) = 0;

  protected:
    ~SpanSink() = default;
};

// 1 when the triangle survived culling and had area (even if no pixel centre
// fell inside), 0 when it was culled or degenerate.
int RasterizeTriangle(const RasterVertex& v0, const RasterVertex& v1, const RasterVertex& v2,
                      int texSets, D3DCULL cull, const ClipRect& clip, SpanSink* sink);

}  // namespace nplat::gfx
