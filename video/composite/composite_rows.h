// Row kernels of the compositing operations: alpha blends of one row onto
// another (constant alpha per byte, per-pixel alpha, with and without a
// colour key), rectangle fills (solid, or blended with the fill weights
// a and 127 - a) through a 48-byte colour pattern that serves every pixel
// size from 1 to 4 bytes, the keyed and alpha-tested RGB32 copies, alpha
// changes, and the AI44 palette expansions.
//
// Three alpha formulas live here on purpose: picture blends weigh with a and
// 128 - a, fills with a and 127 - a, and the keyed alpha copy with a and
// 255 - a over 8 bits. Every kernel writes only the row it is given; the
// destination row may also be the source row where the operation allows.
#pragma once

#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

// 48 bytes: a pixel of 1, 2, 3 or 4 bytes repeated, so that byte i of a row
// takes pattern[i % 48] and every 16-byte block of it is one load.
struct FillPattern {
    alignas(16) uint8_t bytes[48];
};
FillPattern MakeFillPattern(const uint8_t* pixel, int size);

struct CompositeKernels {
    // dst = (src x a + dst x (128 - a)) >> 7 per byte, a in 0..127.
    void (*blendBytes)(const uint8_t* src, uint8_t* dst, int a, int bytes);
    // The same per 5- or 6-bit channel of RGB555 / RGB565 words.
    void (*blend555)(const uint8_t* src, uint8_t* dst, int a, int width);
    void (*blend565)(const uint8_t* src, uint8_t* dst, int a, int width);
    // RGB32 / AYUV words. Per-pixel alpha a = (s >> 24) >> 1, every byte.
    void (*blendPixelAlpha)(const uint8_t* src, uint8_t* dst, int width);
    // Pixels equal to the key are skipped; the others as blendBytes with a
    // (a 128 copies) or with their own alpha.
    void (*blendConstKey)(const uint8_t* src, uint8_t* dst, int a, uint32_t key, int width);
    void (*blendPixelAlphaKey)(const uint8_t* src, uint8_t* dst, uint32_t key, int width);
    // Fills: byte i becomes pattern[i % 48], or (c x a + d x (127 - a)) >> 7.
    void (*fill)(uint8_t* dst, const FillPattern* p, int bytes);
    void (*fillBlend)(uint8_t* dst, const FillPattern* p, int a, int bytes);
    // RGB555 / RGB565 fills blended per channel at 5 / 6 bits; colour is the
    // already narrowed word.
    void (*fillBlend555)(uint8_t* dst, uint32_t colour, int a, int width);
    void (*fillBlend565)(uint8_t* dst, uint32_t colour, int a, int width);
    // RGB32 copies: alpha not 0; not the key; by alpha skipping the key.
    void (*copyAlphaNonZero)(const uint8_t* src, uint8_t* dst, int width);
    void (*copyNotKey)(const uint8_t* src, uint8_t* dst, uint32_t key, int width);
    void (*copyJustReadAlpha)(const uint8_t* src, uint8_t* dst, uint32_t key, int width);
    // 0xFF000000 becomes 0, everything else is copied.
    void (*copyModifyBackground)(const uint8_t* src, uint8_t* dst, int width);
    // Alpha of non-transparent pixels set to `value`; or every alpha scaled.
    void (*alphaSet)(const uint8_t* src, uint8_t* dst, uint32_t value, int width);
    void (*alphaScale)(const uint8_t* src, uint8_t* dst, uint32_t scale, int width);
    // Non-zero pixels ORed with alpha << 24, in place.
    void (*alphaFlat)(uint8_t* data, uint32_t alpha, int width);
};

const CompositeKernels& GetCompositeKernels(KernelSet set);

void InstallCompositeScalar(CompositeKernels* k);
void InstallCompositeSse2(CompositeKernels* k);
void InstallCompositeSse41(CompositeKernels* k);
void InstallCompositeAvx2(CompositeKernels* k);

// Scalar twins over [x0, n) (n bytes for the byte kernels, else pixels).
void BlendBytes_c(const uint8_t* src, uint8_t* dst, int a, int x0, int bytes);
void Blend555_c(const uint8_t* src, uint8_t* dst, int a, int x0, int width);
void Blend565_c(const uint8_t* src, uint8_t* dst, int a, int x0, int width);
void BlendPixelAlpha_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void BlendConstKey_c(const uint8_t* src, uint8_t* dst, int a, uint32_t key, int x0, int width);
void BlendPixelAlphaKey_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width);
void Fill_c(uint8_t* dst, const FillPattern* p, int x0, int bytes);
void FillBlend_c(uint8_t* dst, const FillPattern* p, int a, int x0, int bytes);
void FillBlend555_c(uint8_t* dst, uint32_t colour, int a, int x0, int width);
void FillBlend565_c(uint8_t* dst, uint32_t colour, int a, int x0, int width);
void CopyAlphaNonZero_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void CopyNotKey_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width);
void CopyJustReadAlpha_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width);
void CopyModifyBackground_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void AlphaSet_c(const uint8_t* src, uint8_t* dst, uint32_t value, int x0, int width);
void AlphaScale_c(const uint8_t* src, uint8_t* dst, uint32_t scale, int x0, int width);
void AlphaFlat_c(uint8_t* data, uint32_t alpha, int x0, int width);

}  // namespace ncb::video
