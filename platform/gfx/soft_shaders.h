// The software device's samplers and pixel-shader formulas. Each shader
// record 4-42 has a C++ formula, picked once per draw by record number and
// run over whole spans (no per-pixel dispatch). The formulas compute in float
// and hand back float colours; the device rounds them to the target format
// (gfx_formats.h). Sampler-to-coordinate-set wiring and the constant
// registers follow the contract in shader_record.h.
//
// Samplers: point or linear filtering (linear weights quantised to 1/256 of a
// texel, as texture units do, so a sample exactly on a texel centre returns
// that texel), the wrap, mirror, clamp, border (black, transparent) and
// mirror-once address modes, and the magnification or minification filter
// chosen per triangle from the texel footprint. An unbound sampler reads
// (0, 0, 0, 1).
//
// Not here: mipmaps, anisotropy, sRGB.
#pragma once

#include <cstdint>

#include "platform/gfx/d3d9.h"
#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/soft_raster.h"

namespace nplat::gfx {

struct SamplerView {
    const uint8_t* bits = nullptr;  // null: nothing bound
    int pitch = 0;
    int width = 0;
    int height = 0;
    D3DFORMAT format = D3DFMT_UNKNOWN;
    DWORD addressU = D3DTADDRESS_WRAP;
    DWORD addressV = D3DTADDRESS_WRAP;
    DWORD magFilter = D3DTEXF_POINT;
    DWORD minFilter = D3DTEXF_POINT;
};

Float4 SampleTexture(const SamplerView& s, float u, float v, bool minified);

struct ShaderContext {
    SamplerView samplers[kSamplerCount];
    float constants[kPixelShaderConstantRegisters][4];
    // Per sampler and coordinate set, for the current triangle: whether the
    // texel footprint exceeds one texel (the minification filter applies).
    bool minified[kSamplerCount][kMaxTexSets];
};

using SpanShader = void (*)(const ShaderContext& ctx, const SpanCoords& coords, int count,
                            Float4* out);

// The formula of pixel record 4-42, or null for any other number.
SpanShader PixelShaderFor(uint32_t record);
// Without a pixel shader: the colour of sampler 0, or opaque white when it is
// unbound (the fixed-function default of one modulated stage).
SpanShader FixedFunctionShader();

}  // namespace nplat::gfx
