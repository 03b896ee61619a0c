// Scalar twins of the compositing kernels, each the stated per-pixel rule
// written out, and the scalar table.
#include <cstring>

#include "video/composite/composite_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

uint32_t Get32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
void Put32(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }
uint32_t Get16(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}
void Put16(uint8_t* p, uint32_t v) {
    const uint16_t w = static_cast<uint16_t>(v);
    std::memcpy(p, &w, 2);
}

uint8_t Mix128(int s, int d, int a) { return static_cast<uint8_t>((s * a + d * (128 - a)) >> 7); }
int Mix127(int c, int d, int a) { return (c * a + d * (127 - a)) >> 7; }

uint32_t BlendWord(uint32_t s, uint32_t d, int a) {
    uint32_t out = 0;
    for (int b = 0; b < 32; b += 8) out |= uint32_t{Mix128(s >> b & 255, d >> b & 255, a)} << b;
    return out;
}

// Per-channel blend of 16-bit pixels whose channels have the given widths
// (blue at bit 0, green above, red at the top).
template <int kGreenBits, typename Mix>
uint32_t Mix16(uint32_t s, uint32_t d, Mix&& mix) {
    constexpr int kRedShift = 5 + kGreenBits;
    constexpr uint32_t kGreenMask = (1u << kGreenBits) - 1;
    const uint32_t b = mix(s & 31, d & 31);
    const uint32_t g = mix(s >> 5 & kGreenMask, d >> 5 & kGreenMask);
    const uint32_t r = mix(s >> kRedShift & 31, d >> kRedShift & 31);
    return b | g << 5 | r << kRedShift;
}

template <int kGreenBits>
void Blend16(const uint8_t* src, uint8_t* dst, int a, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t v = Mix16<kGreenBits>(Get16(src + 2 * x), Get16(dst + 2 * x),
                                             [a](int s, int d) { return Mix128(s, d, a); });
        Put16(dst + 2 * x, v);
    }
}

template <int kGreenBits>
void FillBlend16(uint8_t* dst, uint32_t colour, int a, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t v = Mix16<kGreenBits>(colour, Get16(dst + 2 * x),
                                             [a](int c, int d) { return Mix127(c, d, a); });
        Put16(dst + 2 * x, v);
    }
}

}  // namespace

FillPattern MakeFillPattern(const uint8_t* pixel, int size) {
    FillPattern p;
    for (int i = 0; i < 48; ++i) p.bytes[i] = pixel[i % size];
    return p;
}

void BlendBytes_c(const uint8_t* src, uint8_t* dst, int a, int x0, int bytes) {
    for (int x = x0; x < bytes; ++x) dst[x] = Mix128(src[x], dst[x], a);
}

void Blend555_c(const uint8_t* src, uint8_t* dst, int a, int x0, int width) {
    Blend16<5>(src, dst, a, x0, width);
}

void Blend565_c(const uint8_t* src, uint8_t* dst, int a, int x0, int width) {
    Blend16<6>(src, dst, a, x0, width);
}

void BlendPixelAlpha_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        Put32(dst + 4 * x, BlendWord(s, Get32(dst + 4 * x), static_cast<int>(s >> 24) >> 1));
    }
}

void BlendConstKey_c(const uint8_t* src, uint8_t* dst, int a, uint32_t key, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        if (s != key) Put32(dst + 4 * x, BlendWord(s, Get32(dst + 4 * x), a));
    }
}

void BlendPixelAlphaKey_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        if (s != key)
            Put32(dst + 4 * x, BlendWord(s, Get32(dst + 4 * x), static_cast<int>(s >> 24) >> 1));
    }
}

void Fill_c(uint8_t* dst, const FillPattern* p, int x0, int bytes) {
    for (int x = x0; x < bytes; ++x) dst[x] = p->bytes[x % 48];
}

void FillBlend_c(uint8_t* dst, const FillPattern* p, int a, int x0, int bytes) {
    for (int x = x0; x < bytes; ++x)
        dst[x] = static_cast<uint8_t>(Mix127(p->bytes[x % 48], dst[x], a));
}

void FillBlend555_c(uint8_t* dst, uint32_t colour, int a, int x0, int width) {
    FillBlend16<5>(dst, colour, a, x0, width);
}

void FillBlend565_c(uint8_t* dst, uint32_t colour, int a, int x0, int width) {
    FillBlend16<6>(dst, colour, a, x0, width);
}

void CopyAlphaNonZero_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        if (s > 0x00FFFFFFu) Put32(dst + 4 * x, s);
    }
}

void CopyNotKey_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        if (s != key) Put32(dst + 4 * x, s);
    }
}

void CopyJustReadAlpha_c(const uint8_t* src, uint8_t* dst, uint32_t key, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        if (s == key) continue;
        if (s >= 0xFF000000u) {
            Put32(dst + 4 * x, s);
            continue;
        }
        const uint32_t a = s >> 24, d = Get32(dst + 4 * x);
        uint32_t out = 0;  // the alpha byte of a mixed pixel is 0
        for (int b = 0; b < 24; b += 8)
            out |= (((d >> b & 255) * (255 - a) + (s >> b & 255) * a) >> 8) << b;
        Put32(dst + 4 * x, out);
    }
}

void CopyModifyBackground_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        Put32(dst + 4 * x, s == 0xFF000000u ? 0u : s);
    }
}

void AlphaSet_c(const uint8_t* src, uint8_t* dst, uint32_t value, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        Put32(dst + 4 * x, (s >> 24) != 0 ? (s & 0x00FFFFFFu) | (value & 0xFF) << 24 : s);
    }
}

void AlphaScale_c(const uint8_t* src, uint8_t* dst, uint32_t scale, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(src + 4 * x);
        const uint32_t alpha = ((s >> 8) * scale) >> 24;
        Put32(dst + 4 * x, (s & 0x00FFFFFFu) | alpha << 24);
    }
}

void AlphaFlat_c(uint8_t* data, uint32_t alpha, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const uint32_t s = Get32(data + 4 * x);
        if (s != 0) Put32(data + 4 * x, s | alpha << 24);
    }
}

void InstallCompositeScalar(CompositeKernels* k) {
    using BlendRow = Row<void(const uint8_t*, uint8_t*, int)>;
    using PlainRow = Row<void(const uint8_t*, uint8_t*)>;
    using KeyRow = Row<void(const uint8_t*, uint8_t*, uint32_t)>;
    k->blendBytes = BlendRow::Scalar<BlendBytes_c>;
    k->blend555 = BlendRow::Scalar<Blend555_c>;
    k->blend565 = BlendRow::Scalar<Blend565_c>;
    k->blendPixelAlpha = PlainRow::Scalar<BlendPixelAlpha_c>;
    k->blendConstKey = Row<void(const uint8_t*, uint8_t*, int, uint32_t)>::Scalar<BlendConstKey_c>;
    k->blendPixelAlphaKey = KeyRow::Scalar<BlendPixelAlphaKey_c>;
    k->fill = Row<void(uint8_t*, const FillPattern*)>::Scalar<Fill_c>;
    k->fillBlend = Row<void(uint8_t*, const FillPattern*, int)>::Scalar<FillBlend_c>;
    k->fillBlend555 = Row<void(uint8_t*, uint32_t, int)>::Scalar<FillBlend555_c>;
    k->fillBlend565 = Row<void(uint8_t*, uint32_t, int)>::Scalar<FillBlend565_c>;
    k->copyAlphaNonZero = PlainRow::Scalar<CopyAlphaNonZero_c>;
    k->copyNotKey = KeyRow::Scalar<CopyNotKey_c>;
    k->copyJustReadAlpha = KeyRow::Scalar<CopyJustReadAlpha_c>;
    k->copyModifyBackground = PlainRow::Scalar<CopyModifyBackground_c>;
    k->alphaSet = KeyRow::Scalar<AlphaSet_c>;
    k->alphaScale = KeyRow::Scalar<AlphaScale_c>;
    k->alphaFlat = Row<void(uint8_t*, uint32_t)>::Scalar<AlphaFlat_c>;
}

const CompositeKernels& GetCompositeKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<CompositeKernels>(
        InstallCompositeScalar,
        {InstallCompositeSse2, nullptr, InstallCompositeSse41, InstallCompositeAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
