// Triangle rasteriser; see soft_raster.h for the rules. Spans are found per
// row by solving each edge inequality for x exactly (integer floor / ceil
// division), so the cost is per row and per pixel of output, never per pixel
// of the bounding box.
#include "platform/gfx/soft_raster.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nplat::gfx {

namespace {

constexpr int kSubBits = 8;
constexpr int64_t kSub = 1 << kSubBits;
constexpr double kMaxCoord = 4194304.0;  // 2^22 pixels

int64_t Snap(double v) {
    if (!(v > -kMaxCoord)) v = -kMaxCoord;  // NaN lands here too
    if (v > kMaxCoord) v = kMaxCoord;
    return static_cast<int64_t>(std::llround(v * static_cast<double>(kSub)));
}

int64_t FloorDiv(int64_t a, int64_t b) {  // b > 0
    int64_t q = a / b;
    if ((a % b != 0) && (a < 0)) --q;
    return q;
}

int64_t CeilDiv(int64_t a, int64_t b) {  // b > 0
    return -FloorDiv(-a, b);
}

struct Edge {
    int64_t ax, ay, dx, dy;  // start and direction, in 1/256 pixel
    int64_t threshold;       // 0 for top-left edges, 1 otherwise
};

// With the triangle wound clockwise on screen (y down), the inside of an
// edge a->b is where dx * (py - ay) - dy * (px - ax) > 0.
Edge MakeEdge(int64_t ax, int64_t ay, int64_t bx, int64_t by) {
    Edge e{ax, ay, bx - ax, by - ay, 1};
    bool top = e.dy == 0 && e.dx > 0;
    bool left = e.dy < 0;
    if (top || left) e.threshold = 0;
    return e;
}

struct Plane {
    double a, b, c;  // value = a x + b y + c
};

Plane MakePlane(const double x[3], const double y[3], const double f[3]) {
    double det = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
    double a = ((f[1] - f[0]) * (y[2] - y[0]) - (f[2] - f[0]) * (y[1] - y[0])) / det;
    double b = ((f[2] - f[0]) * (x[1] - x[0]) - (f[1] - f[0]) * (x[2] - x[0])) / det;
    return {a, b, f[0] - a * x[0] - b * y[0]};
}

}  // namespace

int RasterizeTriangle(const RasterVertex& v0, const RasterVertex& v1, const RasterVertex& v2,
                      int texSets, D3DCULL cull, const ClipRect& clip, SpanSink* sink) {
    if (texSets < 0) texSets = 0;
    if (texSets > kMaxTexSets) texSets = kMaxTexSets;
    const RasterVertex* v[3] = {&v0, &v1, &v2};
    int64_t X[3], Y[3];
    for (int i = 0; i < 3; ++i) {
        X[i] = Snap(v[i]->x);
        Y[i] = Snap(v[i]->y);
    }
    int64_t area = (X[1] - X[0]) * (Y[2] - Y[0]) - (Y[1] - Y[0]) * (X[2] - X[0]);
    if (area == 0) return 0;
    bool clockwise = area > 0;
    if ((cull == D3DCULL_CW && clockwise) || (cull == D3DCULL_CCW && !clockwise)) return 0;
    if (!clockwise) {
        std::swap(v[1], v[2]);
        std::swap(X[1], X[2]);
        std::swap(Y[1], Y[2]);
    }
    Edge edges[3] = {MakeEdge(X[0], Y[0], X[1], Y[1]), MakeEdge(X[1], Y[1], X[2], Y[2]),
                     MakeEdge(X[2], Y[2], X[0], Y[0])};

    double px[3], py[3];
    for (int i = 0; i < 3; ++i) {
        px[i] = static_cast<double>(X[i]) / kSub;
        py[i] = static_cast<double>(Y[i]) / kSub;
    }
    Plane planes[kMaxTexSets][2];
    TriangleGradients gradients{};
    for (int s = 0; s < texSets; ++s) {
        for (int c = 0; c < 2; ++c) {
            double f[3] = {v[0]->tex[s][c], v[1]->tex[s][c], v[2]->tex[s][c]};
            planes[s][c] = MakePlane(px, py, f);
        }
        gradients.d[s][0] = planes[s][0].a;
        gradients.d[s][1] = planes[s][1].a;
        gradients.d[s][2] = planes[s][0].b;
        gradients.d[s][3] = planes[s][1].b;
    }
    sink->BeginTriangle(gradients);

    int64_t minY = std::min({Y[0], Y[1], Y[2]});
    int64_t maxY = std::max({Y[0], Y[1], Y[2]});
    int64_t rowFirst = std::max<int64_t>(CeilDiv(minY, kSub), clip.top);
    int64_t rowLast = std::min<int64_t>(FloorDiv(maxY, kSub), clip.bottom - 1);
    SpanCoords coords{};
    for (int64_t row = rowFirst; row <= rowLast; ++row) {
        int64_t lo = clip.left;
        int64_t hi = clip.right - 1;
        int64_t sy = row * kSub;
        for (const Edge& e : edges) {
            // Inside: c + a * px >= threshold, px the pixel's integer x.
            int64_t a = -e.dy * kSub;
            int64_t c = e.dx * (sy - e.ay) + e.dy * e.ax;
            if (a > 0) {
                lo = std::max(lo, CeilDiv(e.threshold - c, a));
            } else if (a < 0) {
                hi = std::min(hi, FloorDiv(c - e.threshold, -a));
            } else if (c < e.threshold) {
                hi = lo - 1;
            }
        }
        if (lo > hi) continue;
        double x0 = static_cast<double>(lo);
        double y0 = static_cast<double>(row);
        for (int s = 0; s < texSets; ++s) {
            for (int c = 0; c < 2; ++c) {
                const Plane& p = planes[s][c];
                coords.base[s][c] = p.a * x0 + p.b * y0 + p.c;
                coords.step[s][c] = p.a;
            }
        }
        sink->Span(static_cast<int>(row), static_cast<int>(lo), static_cast<int>(hi - lo + 1),
                   coords);
    }
    return 1;
}

}  // namespace nplat::gfx
