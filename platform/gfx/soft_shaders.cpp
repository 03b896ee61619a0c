// Samplers and the pixel formulas of shader records 4-42; see soft_shaders.h
// and the formula contract in shader_record.h. Families that differ only in
// their colour source, colour operation and alpha source are one template,
// instantiated per record, so each record's span loop is straight-line code.
#include "platform/gfx/soft_shaders.h"

#include <cmath>

namespace nplat::gfx {

namespace {

// ---- sampling ----

int FloorToInt(float v) {
    // Coordinates far outside the texture only need to stay far outside.
    if (!(v > -1.0e8f)) return -100000000;
    if (v > 1.0e8f) return 100000000;
    return static_cast<int>(std::floor(v));
}

int Mod(int a, int n) {
    int m = a % n;
    return m < 0 ? m + n : m;
}

// The texel index for address mode `mode`, or -1 for the border colour.
int Address(int i, int n, DWORD mode) {
    if (i >= 0 && i < n) return i;
    switch (mode) {
        case D3DTADDRESS_WRAP:
            return Mod(i, n);
        case D3DTADDRESS_MIRROR: {
            int m = Mod(i, 2 * n);
            return m < n ? m : 2 * n - 1 - m;
        }
        case D3DTADDRESS_BORDER:
            return -1;
        case D3DTADDRESS_MIRRORONCE:
            if (i < 0) i = -i - 1;
            return i < n ? i : n - 1;
        default:  // clamp
            return i < 0 ? 0 : n - 1;
    }
}

Float4 Texel(const SamplerView& s, int x, int y) {
    x = Address(x, s.width, s.addressU);
    y = Address(y, s.height, s.addressV);
    if (x < 0 || y < 0) return {0.0f, 0.0f, 0.0f, 0.0f};
    const uint8_t* p = s.bits + static_cast<ptrdiff_t>(y) * s.pitch + x * FormatBytes(s.format);
    return LoadPixel(s.format, p);
}

// The bilinear mix of texels top-left, top-right, bottom-left, bottom-right.
inline Float4 Weighted(const Float4 t[4], float wx, float wy) {
    const float w[4] = {(1.0f - wx) * (1.0f - wy), wx * (1.0f - wy), (1.0f - wx) * wy, wx * wy};
    Float4 o{0.0f, 0.0f, 0.0f, 0.0f};
    for (int i = 0; i < 4; ++i) {
        o.r += t[i].r * w[i];
        o.g += t[i].g * w[i];
        o.b += t[i].b * w[i];
        o.a += t[i].a * w[i];
    }
    return o;
}

// Bilinear filtering of four texels that all lie inside the texture, with
// the format known at compile time so the texel loads inline.
template <D3DFORMAT format>
Float4 BilinearInside(const SamplerView& s, int x0, int y0, float wx, float wy) {
    constexpr int bytes = FormatBytes(format);
    const uint8_t* p = s.bits + static_cast<ptrdiff_t>(y0) * s.pitch + x0 * bytes;
    const Float4 t[4] = {LoadPixel(format, p), LoadPixel(format, p + bytes),
                         LoadPixel(format, p + s.pitch), LoadPixel(format, p + s.pitch + bytes)};
    return Weighted(t, wx, wy);
}

// Splits a texel-space coordinate into the left texel and a weight in
// 1/256 steps.
void LinearSplit(float t, int* i0, float* w) {
    float f = t - 0.5f;
    int i = FloorToInt(f);
    int q = static_cast<int>((f - static_cast<float>(i)) * 256.0f + 0.5f);
    if (q >= 256) {
        ++i;
        q = 0;
    }
    *i0 = i;
    *w = static_cast<float>(q) * (1.0f / 256.0f);
}

}  // namespace

Float4 SampleTexture(const SamplerView& s, float u, float v, bool minified) {
    if (!s.bits) return {0.0f, 0.0f, 0.0f, 1.0f};
    float tu = u * static_cast<float>(s.width);
    float tv = v * static_cast<float>(s.height);
    DWORD filter = minified ? s.minFilter : s.magFilter;
    if (filter != D3DTEXF_LINEAR) return Texel(s, FloorToInt(tu), FloorToInt(tv));
    int x0, y0;
    float wx, wy;
    LinearSplit(tu, &x0, &wx);
    LinearSplit(tv, &y0, &wy);
    if (x0 >= 0 && y0 >= 0 && x0 + 1 < s.width && y0 + 1 < s.height) {
        // All four texels inside: no addressing needed (the common case).
        switch (s.format) {
            case D3DFMT_L8:
                return BilinearInside<D3DFMT_L8>(s, x0, y0, wx, wy);
            case D3DFMT_A8L8:
                return BilinearInside<D3DFMT_A8L8>(s, x0, y0, wx, wy);
            case D3DFMT_A8R8G8B8:
                return BilinearInside<D3DFMT_A8R8G8B8>(s, x0, y0, wx, wy);
            case D3DFMT_X8R8G8B8:
                return BilinearInside<D3DFMT_X8R8G8B8>(s, x0, y0, wx, wy);
            default:
                break;
        }
    }
    const Float4 t[4] = {Texel(s, x0, y0), Texel(s, x0 + 1, y0), Texel(s, x0, y0 + 1),
                         Texel(s, x0 + 1, y0 + 1)};
    return Weighted(t, wx, wy);
}

namespace {

// ---- formula building blocks ----

struct Tex {
    float u[kMaxTexSets];
    float v[kMaxTexSets];
};

inline Tex At(const SpanCoords& c, int i) {
    Tex t;
    double di = static_cast<double>(i);
    for (int s = 0; s < kMaxTexSets; ++s) {
        t.u[s] = static_cast<float>(c.base[s][0] + di * c.step[s][0]);
        t.v[s] = static_cast<float>(c.base[s][1] + di * c.step[s][1]);
    }
    return t;
}

inline Float4 Sample(const ShaderContext& ctx, int sampler, int set, const Tex& t) {
    return SampleTexture(ctx.samplers[sampler], t.u[set], t.v[set], ctx.minified[sampler][set]);
}

inline Float4 SampleAt(const ShaderContext& ctx, int sampler, float u, float v) {
    return SampleTexture(ctx.samplers[sampler], u, v, ctx.minified[sampler][0]);
}

inline const float* C0(const ShaderContext& ctx) { return ctx.constants[0]; }
inline const float* C1(const ShaderContext& ctx) { return ctx.constants[1]; }

inline float Luma(const Float4& c) { return 0.299f * c.r + 0.587f * c.g + 0.114f * c.b; }

struct Yuv {
    float y, u, v;
};

inline Yuv FromRgb(const Float4& c) {
    Yuv o;
    RgbToYuv(c.r, c.g, c.b, &o.y, &o.u, &o.v);
    return o;
}

inline Yuv FromPacked(const Float4& c) { return {c.r, c.g - 0.5f, c.b - 0.5f}; }

inline Float4 ToRgb(const Yuv& c, float a) { return YuvToRgb(c.y, c.u, c.v, a); }

// Tint keeps the luma (scaled by c0.y, offset by c0.x) and puts the constant
// chroma c0.z, c0.w in place of the picture's.
inline Yuv Tint(const ShaderContext& ctx, float y) {
    const float* c0 = C0(ctx);
    return {y * c0[1] + c0[0], c0[2], c0[3]};
}

inline Yuv Adjust(const ShaderContext& ctx, const Yuv& in) {
    const float* c0 = C0(ctx);
    const float* c1 = C1(ctx);
    return {in.y * c1[1] + c1[0], in.u * c0[1] + c0[0], in.v * c0[3] + c0[2]};
}

enum class Op { kPlain, kTint, kAdjust };
enum class AlphaFrom { kSample, kConstant, kMask };

// The constant that scales alpha: c0.x plain, c1.x tinted, c1.z adjusted.
template <Op op>
inline float AlphaConstant(const ShaderContext& ctx) {
    if constexpr (op == Op::kPlain) return C0(ctx)[0];
    if constexpr (op == Op::kTint) return C1(ctx)[0];
    return C1(ctx)[2];
}

// Records 12-29: one texture (RGB or packed YUV) on sampler 0 at set 0, a
// mask on sampler 1 at set 1.
template <bool yuv, Op op, AlphaFrom alpha>
void OneTexture(const ShaderContext& ctx, const SpanCoords& coords, int count, Float4* out) {
    float k = AlphaConstant<op>(ctx);
    for (int i = 0; i < count; ++i) {
        Tex t = At(coords, i);
        Float4 s = Sample(ctx, 0, 0, t);
        float a = k;
        if constexpr (alpha == AlphaFrom::kSample) a = s.a * k;
        if constexpr (alpha == AlphaFrom::kMask) a = Sample(ctx, 1, 1, t).r * k;
        Float4 o;
        if constexpr (op == Op::kPlain) {
            if constexpr (yuv) {
                o = ToRgb(FromPacked(s), a);
            } else {
                o = {s.r, s.g, s.b, a};
            }
        } else if constexpr (op == Op::kTint) {
            o = ToRgb(Tint(ctx, yuv ? s.r : Luma(s)), a);
        } else {
            o = ToRgb(Adjust(ctx, yuv ? FromPacked(s) : FromRgb(s)), a);
        }
        out[i] = o;
    }
}

// Records 30-41: Y on sampler 0 at set 0; chroma (U, V planes or one UV
// plane) at set 1; the mask after them at the next set. Tinted forms read Y
// (and the mask on sampler 1 at set 1) only.
template <bool twoPlanes, Op op, bool mask>
void Planes(const ShaderContext& ctx, const SpanCoords& coords, int count, Float4* out) {
    float k = AlphaConstant<op>(ctx);
    constexpr int kChromaSamplers = op == Op::kTint ? 0 : (twoPlanes ? 1 : 2);
    constexpr int kMaskSampler = 1 + kChromaSamplers;
    constexpr int kMaskSet = op == Op::kTint ? 1 : 2;
    for (int i = 0; i < count; ++i) {
        Tex t = At(coords, i);
        float y = Sample(ctx, 0, 0, t).r;
        float a = k;
        if constexpr (mask) a = Sample(ctx, kMaskSampler, kMaskSet, t).r * k;
        if constexpr (op == Op::kTint) {
            out[i] = ToRgb(Tint(ctx, y), a);
            continue;
        } else {
            Yuv c;
            if constexpr (twoPlanes) {
                Float4 uv = Sample(ctx, 1, 1, t);
                c = {y, uv.r - 0.5f, uv.a - 0.5f};
            } else {
                c = {y, Sample(ctx, 1, 1, t).r - 0.5f, Sample(ctx, 2, 1, t).r - 0.5f};
            }
            if constexpr (op == Op::kAdjust) c = Adjust(ctx, c);
            out[i] = ToRgb(c, a);
        }
    }
}

void SolidColour(const ShaderContext& ctx, const SpanCoords&, int count, Float4* out) {
    const float* c0 = C0(ctx);
    Float4 c{c0[0], c0[1], c0[2], c0[3]};
    for (int i = 0; i < count; ++i) out[i] = c;
}

void FixedFunction(const ShaderContext& ctx, const SpanCoords& coords, int count, Float4* out) {
    for (int i = 0; i < count; ++i) {
        if (!ctx.samplers[0].bits) {
            out[i] = {1.0f, 1.0f, 1.0f, 1.0f};
        } else {
            out[i] = Sample(ctx, 0, 0, At(coords, i));
        }
    }
}

// ---- de-interlacing (records 4-11) ----

enum class Layout { kRgb, kPacked, kThreePlanes, kTwoPlanes };

// What a de-interlacer reads at one place: the luma that steers it and the
// colour it outputs, as RGB (RGB sources) or as Y, U, V (YUV sources, chroma
// not yet centred). A planar source takes its chroma from the field texture
// of the row the coordinate falls in (top field: even rows).
struct Probe {
    float luma;
    Float4 colour;
};

template <Layout layout>
inline Probe ProbeAt(const ShaderContext& ctx, float u, float v, float th) {
    Float4 s = SampleAt(ctx, 0, u, v);
    if constexpr (layout == Layout::kRgb) return {Luma(s), {s.r, s.g, s.b, 1.0f}};
    if constexpr (layout == Layout::kPacked) return {s.r, {s.r, s.g, s.b, 1.0f}};
    int field = (th > 0.0f ? FloorToInt(v / th) : 0) & 1;
    if constexpr (layout == Layout::kTwoPlanes) {
        Float4 uv = SampleAt(ctx, 1 + field, u, v);
        return {s.r, {s.r, uv.r, uv.a, 1.0f}};
    } else {
        float cu = SampleAt(ctx, 1 + field, u, v).r;
        float cv = SampleAt(ctx, 3 + field, u, v).r;
        return {s.r, {s.r, cu, cv, 1.0f}};
    }
}

inline Float4 Average(const Float4& a, const Float4& b) {
    return {(a.r + b.r) * 0.5f, (a.g + b.g) * 0.5f, (a.b + b.b) * 0.5f, (a.a + b.a) * 0.5f};
}

// Records 4-11. Pixels on the kept field's rows pass through; the others
// keep their sample when its luma lies between the luma of the neighbour pair
// (the vertical pair, or for the edge-directed forms the best agreeing of the
// vertical and the two diagonal pairs, vertical first on ties) and take the
// pair's mean otherwise. The output is opaque.
template <Layout layout, bool edgeDirected>
void Deinterlace(const ShaderContext& ctx, const SpanCoords& coords, int count, Float4* out) {
    const float* c0 = C0(ctx);
    float tw = c0[0];
    float th = c0[1];
    int kept = c0[2] >= 0.5f ? 1 : 0;
    for (int i = 0; i < count; ++i) {
        Tex t = At(coords, i);
        float u = t.u[0];
        float v = t.v[0];
        int parity = (th > 0.0f ? FloorToInt(v / th) : 0) & 1;
        Probe cur = ProbeAt<layout>(ctx, u, v, th);
        Float4 s = cur.colour;
        if (parity != kept) {
            Probe up = ProbeAt<layout>(ctx, u, v - th, th);
            Probe down = ProbeAt<layout>(ctx, u, v + th, th);
            if constexpr (edgeDirected) {
                float best = std::fabs(up.luma - down.luma);
                Probe ul = ProbeAt<layout>(ctx, u - tw, v - th, th);
                Probe dr = ProbeAt<layout>(ctx, u + tw, v + th, th);
                if (std::fabs(ul.luma - dr.luma) < best) {
                    best = std::fabs(ul.luma - dr.luma);
                    up = ul;
                    down = dr;
                }
                Probe ur = ProbeAt<layout>(ctx, u + tw, v - th, th);
                Probe dl = ProbeAt<layout>(ctx, u - tw, v + th, th);
                if (std::fabs(ur.luma - dl.luma) < best) {
                    up = ur;
                    down = dl;
                }
            }
            float lo = std::fmin(up.luma, down.luma);
            float hi = std::fmax(up.luma, down.luma);
            if (cur.luma < lo || cur.luma > hi) s = Average(up.colour, down.colour);
        }
        if constexpr (layout == Layout::kRgb) {
            out[i] = s;
        } else {
            out[i] = YuvToRgb(s.r, s.g - 0.5f, s.b - 0.5f, 1.0f);
        }
    }
}

constexpr SpanShader kPixelShaders[43] = {
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    &Deinterlace<Layout::kRgb, false>,  // 4
    &Deinterlace<Layout::kRgb, true>,
    &Deinterlace<Layout::kPacked, false>,
    &Deinterlace<Layout::kPacked, true>,
    &Deinterlace<Layout::kThreePlanes, false>,
    &Deinterlace<Layout::kThreePlanes, true>,
    &Deinterlace<Layout::kTwoPlanes, false>,  // 10
    &Deinterlace<Layout::kTwoPlanes, true>,
    &OneTexture<false, Op::kPlain, AlphaFrom::kSample>,  // 12
    &OneTexture<false, Op::kPlain, AlphaFrom::kConstant>,
    &OneTexture<false, Op::kPlain, AlphaFrom::kMask>,
    &OneTexture<false, Op::kTint, AlphaFrom::kSample>,  // 15
    &OneTexture<false, Op::kTint, AlphaFrom::kConstant>,
    &OneTexture<false, Op::kTint, AlphaFrom::kMask>,
    &OneTexture<false, Op::kAdjust, AlphaFrom::kSample>,  // 18
    &OneTexture<false, Op::kAdjust, AlphaFrom::kConstant>,
    &OneTexture<false, Op::kAdjust, AlphaFrom::kMask>,
    &OneTexture<true, Op::kPlain, AlphaFrom::kSample>,  // 21
    &OneTexture<true, Op::kPlain, AlphaFrom::kConstant>,
    &OneTexture<true, Op::kPlain, AlphaFrom::kMask>,
    &OneTexture<true, Op::kTint, AlphaFrom::kSample>,  // 24
    &OneTexture<true, Op::kTint, AlphaFrom::kConstant>,
    &OneTexture<true, Op::kTint, AlphaFrom::kMask>,
    &OneTexture<true, Op::kAdjust, AlphaFrom::kSample>,  // 27
    &OneTexture<true, Op::kAdjust, AlphaFrom::kConstant>,
    &OneTexture<true, Op::kAdjust, AlphaFrom::kMask>,
    &Planes<false, Op::kPlain, false>,  // 30
    &Planes<false, Op::kPlain, true>,
    &Planes<false, Op::kTint, false>,  // 32
    &Planes<false, Op::kTint, true>,
    &Planes<false, Op::kAdjust, false>,  // 34
    &Planes<false, Op::kAdjust, true>,
    &Planes<true, Op::kPlain, false>,  // 36
    &Planes<true, Op::kPlain, true>,
    &Planes<true, Op::kTint, false>,  // 38
    &Planes<true, Op::kTint, true>,
    &Planes<true, Op::kAdjust, false>,  // 40
    &Planes<true, Op::kAdjust, true>,
    &SolidColour,  // 42
};

}  // namespace

SpanShader PixelShaderFor(uint32_t record) { return record < 43 ? kPixelShaders[record] : nullptr; }

SpanShader FixedFunctionShader() { return &FixedFunction; }

}  // namespace nplat::gfx
