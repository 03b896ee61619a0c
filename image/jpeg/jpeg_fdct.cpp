// Scalar twin of the forward transform and quantisation, and the per-level
// kernel tables.
//
// The transform is written stage by stage in 32-bit integers as the
// Loeffler-Ligtenberg-Moschytz flow graph computes it (sums, then the even
// rotation through z1 and the odd rotations through z1..z5), so it reads
// against the algorithm; the vector kernels fold the same products into
// multiply-add pairs, which gives identical integers because nothing is
// rounded between a product and its sum. Pixels enter unshifted and the
// level shift comes off the DC at the end; the vector kernels shift the
// pixels instead, which is exact as well (the DC sum moves by 32768, a
// multiple of its rounding step).
#include "image/jpeg/jpeg_fdct.h"

#include <array>

namespace ncb::jpeg {
namespace {

constexpr int kConstBits = 13;
constexpr int kPass1Bits = 2;
// The pass-2 shifts also take out the factor 8 the two passes leave, so the
// coefficients come out at orthonormal scale.
constexpr int kPass2Even = kPass1Bits + 3;
constexpr int kPass2Odd = kConstBits + kPass1Bits + 3;
constexpr int kPass1Odd = kConstBits - kPass1Bits;

constexpr int32_t k0_298631336 = 2446, k0_390180644 = 3196, k0_541196100 = 4433,
                  k0_765366865 = 6270, k0_899976223 = 7373, k1_175875602 = 9633,
                  k1_501321110 = 12299, k1_847759065 = 15137, k1_961570560 = 16069,
                  k2_053119869 = 16819, k2_562915447 = 20995, k3_072711026 = 25172;

int32_t Descale(int32_t v, int n) { return (v + (1 << (n - 1))) >> n; }

// One 1-D transform of in[0], in[step], ... in[7 * step]. Pass 1 keeps its
// results kPass1Bits up; pass 2 descales fully.
template <bool kPass2>
void Transform(const int32_t* in, int step, int32_t out[8]) {
    const int32_t tmp0 = in[0] + in[7 * step], tmp7 = in[0] - in[7 * step];
    const int32_t tmp1 = in[step] + in[6 * step], tmp6 = in[step] - in[6 * step];
    const int32_t tmp2 = in[2 * step] + in[5 * step], tmp5 = in[2 * step] - in[5 * step];
    const int32_t tmp3 = in[3 * step] + in[4 * step], tmp4 = in[3 * step] - in[4 * step];

    const int32_t tmp10 = tmp0 + tmp3, tmp13 = tmp0 - tmp3;
    const int32_t tmp11 = tmp1 + tmp2, tmp12 = tmp1 - tmp2;
    const int odd = kPass2 ? kPass2Odd : kPass1Odd;
    if (kPass2) {
        out[0] = Descale(tmp10 + tmp11, kPass2Even);
        out[4] = Descale(tmp10 - tmp11, kPass2Even);
    } else {
        out[0] = (tmp10 + tmp11) * (1 << kPass1Bits);
        out[4] = (tmp10 - tmp11) * (1 << kPass1Bits);
    }
    const int32_t z1 = (tmp12 + tmp13) * k0_541196100;
    out[2] = Descale(z1 + tmp13 * k0_765366865, odd);
    out[6] = Descale(z1 - tmp12 * k1_847759065, odd);

    int32_t o1 = tmp4 + tmp7, o2 = tmp5 + tmp6, o3 = tmp4 + tmp6, o4 = tmp5 + tmp7;
    const int32_t z5 = (o3 + o4) * k1_175875602;
    o1 *= -k0_899976223;
    o2 *= -k2_562915447;
    o3 = o3 * -k1_961570560 + z5;
    o4 = o4 * -k0_390180644 + z5;
    out[7] = Descale(tmp4 * k0_298631336 + o1 + o3, odd);
    out[5] = Descale(tmp5 * k2_053119869 + o2 + o4, odd);
    out[3] = Descale(tmp6 * k3_072711026 + o2 + o3, odd);
    out[1] = Descale(tmp7 * k1_501321110 + o1 + o4, odd);
}

int16_t Quantise(int32_t c, int16_t r) {
    const auto scaled = static_cast<int16_t>(static_cast<uint16_t>(c) << 3);
    const auto high = static_cast<int16_t>((int32_t{scaled} * r) >> 16);
    return static_cast<int16_t>((high + 4) >> 3);
}

void InstallScalar(FdctKernels* k) {
    k->forwardQuant = ForwardQuant_c;
    k->forwardQuantPair = PairOfSingles<ForwardQuant_c>;
}

}  // namespace

uint64_t ForwardQuant_c(const uint8_t* src, ptrdiff_t pitch, const int16_t* recip, int16_t* out) {
    int32_t pixels[64], columns[64];
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) pixels[8 * y + x] = src[y * pitch + x];
    // Pass 1 down column x: vertical frequency v lands in columns[8 v + x].
    for (int x = 0; x < 8; ++x) {
        int32_t t[8];
        Transform<false>(pixels + x, 8, t);
        for (int v = 0; v < 8; ++v) columns[8 * v + x] = t[v];
    }
    // Pass 2 along row v: horizontal frequency u goes to 8 u + v.
    uint64_t nonZero = 0;
    for (int v = 0; v < 8; ++v) {
        int32_t t[8];
        Transform<true>(columns + 8 * v, 1, t);
        if (v == 0) t[0] -= 1024;
        for (int u = 0; u < 8; ++u) {
            const int16_t q = Quantise(t[u], recip[8 * u + v]);
            out[8 * u + v] = q;
            nonZero |= static_cast<uint64_t>(q != 0) << (8 * u + v);
        }
    }
    return nonZero;
}

const FdctKernels& FdctKernelsFor(KernelSet set) {
    static const std::array<FdctKernels, ncb::video::kKernelSetCount> tables =
        ncb::video::BuildKernelTables<FdctKernels>(
            InstallScalar, {InstallFdctSse2, nullptr, nullptr, InstallFdctAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::jpeg
