// Drawing on the software device: DrawPrimitive (vertex fetch, the
// pass-through vertex stage, viewport transform, rasterisation, the pixel
// formula of the bound shader, blending, the write into the render target)
// and Clear.
//
// The pixel formula runs over whole spans into a float row buffer; blending
// and rounding to the target format happen in one pass over that row. Blend
// arithmetic is float on the destination's stored value expanded to 0..1,
// rounded once at the end like a UNORM8 target.
//
// Not here: index buffers, point and line primitives, depth test, fog.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/gfx/soft_device.h"
#include "platform/gfx/soft_raster.h"
#include "platform/kernel/heap.h"

namespace nplat::gfx {

namespace {

float Factor(DWORD blend, const Float4& src, const Float4& dst, int channel) {
    const float s[4] = {src.r, src.g, src.b, src.a};
    const float d[4] = {dst.r, dst.g, dst.b, dst.a};
    switch (blend) {
        case D3DBLEND_ZERO:
            return 0.0f;
        case D3DBLEND_ONE:
            return 1.0f;
        case D3DBLEND_SRCCOLOR:
            return s[channel];
        case D3DBLEND_INVSRCCOLOR:
            return 1.0f - s[channel];
        case D3DBLEND_SRCALPHA:
            return src.a;
        case D3DBLEND_INVSRCALPHA:
            return 1.0f - src.a;
        case D3DBLEND_DESTALPHA:
            return dst.a;
        case D3DBLEND_INVDESTALPHA:
            return 1.0f - dst.a;
        case D3DBLEND_DESTCOLOR:
            return d[channel];
        case D3DBLEND_INVDESTCOLOR:
            return 1.0f - d[channel];
        default:
            return 1.0f;
    }
}

float Combine(DWORD op, float s, float d) {
    switch (op) {
        case D3DBLENDOP_SUBTRACT:
            return s - d;
        case D3DBLENDOP_REVSUBTRACT:
            return d - s;
        case D3DBLENDOP_MIN:
            return std::fmin(s, d);
        case D3DBLENDOP_MAX:
            return std::fmax(s, d);
        default:
            return s + d;
    }
}

struct BlendState {
    bool enabled;
    DWORD src, dst, op;
};

// Shader colours are clamped to 0..1 before blending, as a UNORM target's
// blender sees them.
float Saturate(float v) { return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f; }

Float4 Blend(const BlendState& b, Float4 s, const Float4& d) {
    s = {Saturate(s.r), Saturate(s.g), Saturate(s.b), Saturate(s.a)};
    float in[4] = {s.r, s.g, s.b, s.a};
    float dv[4] = {d.r, d.g, d.b, d.a};
    float out[4];
    for (int c = 0; c < 4; ++c) {
        // MIN and MAX ignore the factors, as in Direct3D.
        if (b.op == D3DBLENDOP_MIN || b.op == D3DBLENDOP_MAX) {
            out[c] = Combine(b.op, in[c], dv[c]);
        } else {
            out[c] = Combine(b.op, in[c] * Factor(b.src, s, d, c), dv[c] * Factor(b.dst, s, d, c));
        }
    }
    return {out[0], out[1], out[2], out[3]};
}

class DrawSink final : public SpanSink {
  public:
    DrawSink(ShaderContext* ctx, SpanShader shader, SoftSurface* target, const BlendState& blend,
             Float4* row)
        : m_ctx(ctx), m_shader(shader), m_target(target), m_blend(blend), m_row(row) {}

    void BeginTriangle(const TriangleGradients& g) override {
        for (int s = 0; s < static_cast<int>(kSamplerCount); ++s) {
            const SamplerView& view = m_ctx->samplers[s];
            for (int set = 0; set < kMaxTexSets; ++set) {
                double w = view.width, h = view.height;
                double dx = std::hypot(g.d[set][0] * w, g.d[set][1] * h);
                double dy = std::hypot(g.d[set][2] * w, g.d[set][3] * h);
                m_ctx->minified[s][set] = std::fmax(dx, dy) > 1.0 + 1e-6;
            }
        }
    }

    void Span(int y, int x0, int count, const SpanCoords& coords) override {
        m_shader(*m_ctx, coords, count, m_row);
        D3DFORMAT format = m_target->Format();
        int bytes = FormatBytes(format);
        uint8_t* p = m_target->Row(y) + static_cast<ptrdiff_t>(x0) * bytes;
        for (int i = 0; i < count; ++i, p += bytes) {
            Float4 c = m_row[i];
            if (m_blend.enabled) c = Blend(m_blend, c, LoadPixel(format, p));
            StorePixel(format, p, c);
        }
    }

  private:
    ShaderContext* m_ctx;
    SpanShader m_shader;
    SoftSurface* m_target;
    BlendState m_blend;
    Float4* m_row;
};

// Bytes of the vertex components before the texture coordinates.
int PositionBlockBytes(DWORD fvf) {
    int bytes = 12;               // D3DFVF_XYZ
    if (fvf & 0x10) bytes += 12;  // normal
    if (fvf & 0x20) bytes += 4;   // point size
    if (fvf & 0x40) bytes += 4;   // diffuse
    if (fvf & 0x80) bytes += 4;   // specular
    return bytes;
}

}  // namespace

bool SoftDevice::GrowSpanBuffer(int pixels) {
    if (pixels <= m_spanCapacity) return true;
    void* grown = HeapRealloc(m_spanBuffer, static_cast<size_t>(pixels) * sizeof(Float4));
    if (!grown) return false;
    m_spanBuffer = static_cast<Float4*>(grown);
    m_spanCapacity = pixels;
    return true;
}

bool SoftDevice::PrepareShaderContext(ShaderContext* ctx) {
    for (DWORD s = 0; s < kSamplerCount; ++s) {
        SamplerView& view = ctx->samplers[s];
        view = SamplerView{};
        const SoftTexture* t = m_textures[s];
        if (!t) continue;
        const SoftSurface* level = t->Level();
        if (level->Locked()) return false;  // Direct3D refuses to draw from a locked texture
        view.bits = level->Bits();
        view.pitch = level->Pitch();
        view.width = level->Width();
        view.height = level->Height();
        view.format = level->Format();
        view.addressU = m_samplerStates[s][D3DSAMP_ADDRESSU];
        view.addressV = m_samplerStates[s][D3DSAMP_ADDRESSV];
        view.magFilter = m_samplerStates[s][D3DSAMP_MAGFILTER];
        view.minFilter = m_samplerStates[s][D3DSAMP_MINFILTER];
    }
    std::memcpy(ctx->constants, m_constants, sizeof(m_constants));
    return true;
}

HRESULT SoftDevice::DrawPrimitive(D3DPRIMITIVETYPE type, UINT startVertex, UINT count) {
    if (!m_inScene || count == 0) return D3DERR_INVALIDCALL;
    uint64_t vertices;
    switch (type) {
        case D3DPT_TRIANGLELIST:
            vertices = static_cast<uint64_t>(count) * 3;
            break;
        case D3DPT_TRIANGLESTRIP:
        case D3DPT_TRIANGLEFAN:
            vertices = static_cast<uint64_t>(count) + 2;
            break;
        default:
            return D3DERR_INVALIDCALL;  // points and lines are not drawn here
    }
    if (!m_stream || m_stream->Locked() || (m_fvf & 0xE) != D3DFVF_XYZ) return D3DERR_INVALIDCALL;
    int fvfSets = static_cast<int>((m_fvf & D3DFVF_TEXCOUNT_MASK) >> D3DFVF_TEXCOUNT_SHIFT);
    if (fvfSets > kMaxTexSets) return D3DERR_INVALIDCALL;
    int texOffset = PositionBlockBytes(m_fvf);
    uint64_t needStride = static_cast<uint64_t>(texOffset) + 8u * fvfSets;
    if (m_streamStride < needStride) return D3DERR_INVALIDCALL;
    uint64_t end = m_streamOffset + (startVertex + vertices) * m_streamStride;
    if (end > m_stream->Length()) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kDrawPrimitive); FAILED(hr)) return hr;

    ShaderContext* ctx = HeapNew<ShaderContext>();
    if (!ctx) return E_OUTOFMEMORY;
    if (!PrepareShaderContext(ctx) || !GrowSpanBuffer(m_renderTarget->Width())) {
        HeapDelete(ctx);
        return m_spanCapacity < m_renderTarget->Width() ? E_OUTOFMEMORY : D3DERR_INVALIDCALL;
    }
    SpanShader shader =
        m_pixelShader ? PixelShaderFor(m_pixelShader->Record()) : FixedFunctionShader();
    int texSets = fvfSets;
    if (m_vertexShader && static_cast<int>(m_vertexShader->TexSets()) < texSets)
        texSets = static_cast<int>(m_vertexShader->TexSets());

    BlendState blend{m_renderStates[D3DRS_ALPHABLENDENABLE] != 0, m_renderStates[D3DRS_SRCBLEND],
                     m_renderStates[D3DRS_DESTBLEND], m_renderStates[D3DRS_BLENDOP]};
    DrawSink sink(ctx, shader, m_renderTarget, blend, m_spanBuffer);
    ClipRect clip{static_cast<int>(m_viewport.X), static_cast<int>(m_viewport.Y),
                  static_cast<int>(m_viewport.X + m_viewport.Width),
                  static_cast<int>(m_viewport.Y + m_viewport.Height)};
    auto cull = static_cast<D3DCULL>(m_renderStates[D3DRS_CULLMODE]);

    const uint8_t* base = m_stream->Data() + m_streamOffset;
    auto fetch = [&](uint64_t index) {
        const uint8_t* p = base + index * m_streamStride;
        float xyz[3];
        std::memcpy(xyz, p, sizeof(xyz));
        RasterVertex v{};
        // The vertex stage passes clip-space positions on with w = 1; the
        // viewport maps x -1..1 to the left..right edge and y 1..-1 to
        // top..bottom, so pixel centres land on integer coordinates.
        v.x = m_viewport.X + (static_cast<double>(xyz[0]) + 1.0) * 0.5 * m_viewport.Width;
        v.y = m_viewport.Y + (1.0 - static_cast<double>(xyz[1])) * 0.5 * m_viewport.Height;
        for (int s = 0; s < texSets; ++s) std::memcpy(v.tex[s], p + texOffset + 8 * s, 8);
        return v;
    };

    int drawn = 0;
    for (UINT i = 0; i < count; ++i) {
        uint64_t a, b, c;
        if (type == D3DPT_TRIANGLELIST) {
            a = startVertex + 3ull * i;
            b = a + 1;
            c = a + 2;
        } else if (type == D3DPT_TRIANGLESTRIP) {
            // Odd triangles of a strip swap their first two vertices so that
            // every triangle keeps the winding of the first.
            a = startVertex + i + (i & 1);
            b = startVertex + i + 1 - (i & 1);
            c = startVertex + i + 2;
        } else {
            a = startVertex;
            b = startVertex + i + 1;
            c = startVertex + i + 2;
        }
        drawn += RasterizeTriangle(fetch(a), fetch(b), fetch(c), texSets, cull, clip, &sink);
    }
    HeapDelete(ctx);
    gfxtest::Count(&GfxCounters::drawPrimitive);
    gfxtest::Count(&GfxCounters::trianglesDrawn, drawn);
    return D3D_OK;
}

HRESULT SoftDevice::Clear(DWORD count, const D3DRECT* rects, DWORD flags, D3DCOLOR color, float,
                          DWORD) {
    if ((count > 0 && !rects) || flags == 0 || (flags & ~D3DCLEAR_TARGET))
        return D3DERR_INVALIDCALL;  // no depth or stencil buffer to clear
    if (HRESULT hr = gfxtest::Injected(GfxCall::kClear); FAILED(hr)) return hr;
    RECT view{static_cast<LONG>(m_viewport.X), static_cast<LONG>(m_viewport.Y),
              static_cast<LONG>(m_viewport.X + m_viewport.Width),
              static_cast<LONG>(m_viewport.Y + m_viewport.Height)};
    Float4 colour = ColorToFloat4(color);
    if (count == 0) {
        FillSurfaceRect(m_renderTarget, view, colour);
    } else {
        for (DWORD i = 0; i < count; ++i) {
            RECT r{std::max(rects[i].x1, view.left), std::max(rects[i].y1, view.top),
                   std::min(rects[i].x2, view.right), std::min(rects[i].y2, view.bottom)};
            if (r.left < r.right && r.top < r.bottom) FillSurfaceRect(m_renderTarget, r, colour);
        }
    }
    gfxtest::Count(&GfxCounters::clears);
    return D3D_OK;
}

}  // namespace nplat::gfx
