// The software rasteriser's coverage rules, checked on triangles whose
// covered pixel centres are worked out by hand, and on random meshes where
// every pixel centre inside the mesh must be drawn exactly once.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "platform/gfx/soft_raster.h"

namespace {

using namespace nplat;
using namespace nplat::gfx;

// Counts how often each pixel of a grid is drawn.
class CoverageGrid final : public SpanSink {
  public:
    CoverageGrid(int w, int h) : width(w), height(h), hits(w * h, 0) {}
    void BeginTriangle(const TriangleGradients&) override {}
    void Span(int y, int x0, int count, const SpanCoords& coords) override {
        lastCoords = coords;
        for (int x = x0; x < x0 + count; ++x) {
            ASSERT_TRUE(x >= 0 && x < width && y >= 0 && y < height) << x << "," << y;
            ++hits[y * width + x];
        }
    }
    int At(int x, int y) const { return hits[y * width + x]; }
    int Total() const {
        int n = 0;
        for (int h : hits) n += h;
        return n;
    }

    int width, height;
    std::vector<int> hits;
    SpanCoords lastCoords{};
};

RasterVertex V(double x, double y, float u = 0, float v = 0) {
    RasterVertex r{};
    r.x = x;
    r.y = y;
    r.tex[0][0] = u;
    r.tex[0][1] = v;
    return r;
}

constexpr ClipRect kAll{0, 0, 64, 64};

TEST(GfxRaster, TopAndLeftEdgesAreInRightAndBottomEdgesOut) {
    // Triangle (0,0) (4,0) (0,4): centres with x + y < 4, the top edge y = 0
    // and the left edge x = 0 included, the hypotenuse excluded.
    CoverageGrid g(64, 64);
    EXPECT_EQ(RasterizeTriangle(V(0, 0), V(4, 0), V(0, 4), 0, D3DCULL_NONE, kAll, &g), 1);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) EXPECT_EQ(g.At(x, y), x + y < 4 ? 1 : 0) << x << "," << y;
    EXPECT_EQ(g.Total(), 10);

    // The other half of the square takes the hypotenuse's centres, but not
    // its own right (x = 4) and bottom (y = 4) edges.
    CoverageGrid h(64, 64);
    RasterizeTriangle(V(4, 0), V(4, 4), V(0, 4), 0, D3DCULL_NONE, kAll, &h);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(h.At(x, y), (x + y >= 4 && x < 4 && y < 4) ? 1 : 0) << x << "," << y;
    EXPECT_EQ(h.Total(), 6);
}

TEST(GfxRaster, HalfPixelOffsetsMoveCoverageAsDirect3DDoes) {
    // A square from 0.5 to 3.5 covers centres 1..3; one from -0.5 to 2.5
    // covers 0..2: a quad placed in half pixels lands on whole pixels.
    CoverageGrid g(64, 64);
    RasterizeTriangle(V(0.5, 0.5), V(3.5, 0.5), V(0.5, 3.5), 0, D3DCULL_NONE, kAll, &g);
    RasterizeTriangle(V(3.5, 0.5), V(3.5, 3.5), V(0.5, 3.5), 0, D3DCULL_NONE, kAll, &g);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x)
            EXPECT_EQ(g.At(x, y), (x >= 1 && x <= 3 && y >= 1 && y <= 3) ? 1 : 0);
}

TEST(GfxRaster, CullingFollowsScreenWinding) {
    // (0,0) -> (4,0) -> (0,4) turns clockwise on a screen whose y points down.
    struct Case {
        D3DCULL cull;
        bool clockwiseDrawn, counterDrawn;
    };
    for (Case c : {Case{D3DCULL_NONE, true, true}, Case{D3DCULL_CW, false, true},
                   Case{D3DCULL_CCW, true, false}}) {
        CoverageGrid cw(64, 64), ccw(64, 64);
        EXPECT_EQ(RasterizeTriangle(V(0, 0), V(4, 0), V(0, 4), 0, c.cull, kAll, &cw),
                  c.clockwiseDrawn ? 1 : 0);
        EXPECT_EQ(RasterizeTriangle(V(0, 0), V(0, 4), V(4, 0), 0, c.cull, kAll, &ccw),
                  c.counterDrawn ? 1 : 0);
        EXPECT_EQ(cw.Total(), c.clockwiseDrawn ? 10 : 0);
        EXPECT_EQ(ccw.Total(), c.counterDrawn ? 10 : 0);
    }
    CoverageGrid flat(64, 64);
    EXPECT_EQ(RasterizeTriangle(V(0, 0), V(4, 4), V(8, 8), 0, D3DCULL_NONE, kAll, &flat), 0);
}

TEST(GfxRaster, SpansStayInsideTheClipRectangle) {
    CoverageGrid g(64, 64);
    ClipRect clip{3, 2, 7, 5};
    RasterizeTriangle(V(-10, -10), V(40, -10), V(-10, 40), 0, D3DCULL_NONE, clip, &g);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            EXPECT_EQ(g.At(x, y), (x >= 3 && x < 7 && y >= 2 && y < 5) ? 1 : 0);
}

TEST(GfxRaster, TextureCoordinatesAreEvaluatedAtPixelCentres) {
    // u runs 0 at x = 0 to 1 at x = 8: pixel x sees u = x / 8.
    CoverageGrid g(64, 64);
    RasterizeTriangle(V(0, 0, 0, 0), V(8, 0, 1, 0), V(0, 8, 0, 1), 1, D3DCULL_NONE, kAll, &g);
    // The last span is row 7 at x = 0: u = 0, v = 7 / 8, step 1 / 8.
    EXPECT_DOUBLE_EQ(g.lastCoords.base[0][0], 0.0);
    EXPECT_DOUBLE_EQ(g.lastCoords.base[0][1], 7.0 / 8.0);
    EXPECT_DOUBLE_EQ(g.lastCoords.step[0][0], 1.0 / 8.0);
    EXPECT_DOUBLE_EQ(g.lastCoords.step[0][1], 0.0);
}

// A fan of random triangles around a random centre, and a grid of random
// quads split into triangles: the pieces tile the plane region, so every
// pixel centre must be drawn at most once and the ones strictly inside the
// union exactly once.
TEST(GfxRaster, SharedEdgesAreDrawnExactlyOnce) {
    std::mt19937 rng(1234);
    std::uniform_real_distribution<double> jitter(-0.45, 0.45);
    for (int trial = 0; trial < 50; ++trial) {
        SCOPED_TRACE(trial);
        // A 6x6 lattice of jittered points on a 7-pixel pitch, with some
        // points snapped exactly onto pixel centres to hit the tie cases.
        double px[7][7], py[7][7];
        for (int j = 0; j < 7; ++j) {
            for (int i = 0; i < 7; ++i) {
                bool exact = (i + j + trial) % 3 == 0;
                px[j][i] = 2 + i * 7 + (exact ? 0 : jitter(rng));
                py[j][i] = 2 + j * 7 + (exact ? 0 : jitter(rng));
            }
        }
        CoverageGrid g(64, 64);
        for (int j = 0; j < 6; ++j) {
            for (int i = 0; i < 6; ++i) {
                RasterVertex tl = V(px[j][i], py[j][i]), tr = V(px[j][i + 1], py[j][i + 1]);
                RasterVertex bl = V(px[j + 1][i], py[j + 1][i]);
                RasterVertex br = V(px[j + 1][i + 1], py[j + 1][i + 1]);
                // Alternate diagonals and windings.
                if ((i + j) % 2) {
                    RasterizeTriangle(tl, tr, bl, 0, D3DCULL_NONE, kAll, &g);
                    RasterizeTriangle(bl, br, tr, 0, D3DCULL_NONE, kAll, &g);
                } else {
                    RasterizeTriangle(tl, br, tr, 0, D3DCULL_NONE, kAll, &g);
                    RasterizeTriangle(bl, tl, br, 0, D3DCULL_NONE, kAll, &g);
                }
            }
        }
        for (int h : g.hits) ASSERT_LE(h, 1);
        // Centres well inside the lattice's outline are all drawn.
        for (int y = 4; y < 42; ++y)
            for (int x = 4; x < 42; ++x) ASSERT_EQ(g.At(x, y), 1) << x << "," << y;
    }
}

}  // namespace
