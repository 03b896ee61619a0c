// Scalar twin of the block reconstruction and the per-level kernel tables.
//
// The transform follows the fast integer IDCT of the MPEG-2 reference
// decoder stage by stage: constants W1..W7 at scale 2048, the odd-part
// rotation by 181/256, a first pass over the horizontal frequencies of each
// vertical frequency (inputs scaled by 2^11, +128, >> 8) and a second pass
// down each column (inputs scaled by 2^8, +8192, >> 14). Blocks are stored
// transposed, so the first pass reads block columns. All sums are taken
// modulo 2^32, exactly as 32-bit vector lanes compute them.
#include "image/jpeg/jpeg_idct.h"

#include <array>

namespace ncb::jpeg {
namespace {

constexpr uint32_t W1 = 2841, W2 = 2676, W3 = 2408, W5 = 1609, W6 = 1108, W7 = 565;

int32_t Sra(uint32_t v, int s) { return static_cast<int32_t>(v) >> s; }
uint32_t U(int v) { return static_cast<uint32_t>(v); }
int16_t Sat16(int32_t v) {
    return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v));
}

// One 1-D transform. Row pass: scale 11, round 128, shift 8, no inner
// rounding; column pass: scale 8, round 8192, inner (+4) >> 3, shift 14.
template <bool kColumn>
void Transform(const int16_t in[8], int16_t out[8]) {
    constexpr int kScale = kColumn ? 8 : 11;
    constexpr uint32_t kRound = kColumn ? 8192 : 128;
    constexpr int kShift = kColumn ? 14 : 8;
    auto inner = [](uint32_t v) { return kColumn ? U(Sra(v + 4, 3)) : v; };

    uint32_t x0 = (U(in[0]) << kScale) + kRound;
    uint32_t x1 = U(in[4]) << kScale;
    uint32_t x2 = U(in[6]), x3 = U(in[2]), x4 = U(in[1]), x5 = U(in[7]);
    uint32_t x6 = U(in[5]), x7 = U(in[3]), x8;
    // first stage
    x8 = W7 * (x4 + x5);
    x4 = inner(x8 + (W1 - W7) * x4);
    x5 = inner(x8 - (W1 + W7) * x5);
    x8 = W3 * (x6 + x7);
    x6 = inner(x8 - (W3 - W5) * x6);
    x7 = inner(x8 - (W3 + W5) * x7);
    // second stage
    x8 = x0 + x1;
    x0 -= x1;
    x1 = W6 * (x3 + x2);
    x2 = inner(x1 - (W2 + W6) * x2);
    x3 = inner(x1 + (W2 - W6) * x3);
    x1 = x4 + x6;
    x4 -= x6;
    x6 = x5 + x7;
    x5 -= x7;
    // third stage
    x7 = x8 + x3;
    x8 -= x3;
    x3 = x0 + x2;
    x0 -= x2;
    x2 = U(Sra(181u * (x4 + x5) + 128, 8));
    x4 = U(Sra(181u * (x4 - x5) + 128, 8));
    // fourth stage
    out[0] = Sat16(Sra(x7 + x1, kShift));
    out[1] = Sat16(Sra(x3 + x2, kShift));
    out[2] = Sat16(Sra(x0 + x4, kShift));
    out[3] = Sat16(Sra(x8 + x6, kShift));
    out[4] = Sat16(Sra(x8 - x6, kShift));
    out[5] = Sat16(Sra(x0 - x4, kShift));
    out[6] = Sat16(Sra(x3 - x2, kShift));
    out[7] = Sat16(Sra(x7 - x1, kShift));
}

void InstallScalar(IdctKernels* k) { k->reconstruct = ReconstructBlock_c; }

}  // namespace

void ReconstructBlock_c(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch) {
    int16_t c[64];
    for (int i = 0; i < 64; ++i)
        c[i] = static_cast<int16_t>(static_cast<uint16_t>(U(block[i]) * quant[i]));
    const int dc = c[0] + 1024;
    c[0] = static_cast<int16_t>(dc < 0 ? 0 : (dc > 2047 ? 2047 : dc));

    // tmp[8 * v + x]: vertical frequency v, pixel column x.
    int16_t tmp[64];
    for (int v = 0; v < 8; ++v) {
        int16_t in[8], out[8];
        for (int u = 0; u < 8; ++u) in[u] = c[8 * u + v];
        Transform<false>(in, out);
        for (int x = 0; x < 8; ++x) tmp[8 * v + x] = out[x];
    }
    for (int x = 0; x < 8; ++x) {
        int16_t in[8], out[8];
        for (int v = 0; v < 8; ++v) in[v] = tmp[8 * v + x];
        Transform<true>(in, out);
        for (int y = 0; y < 8; ++y) {
            const int p = out[y];
            dst[y * pitch + x] = static_cast<uint8_t>(p < 0 ? 0 : (p > 255 ? 255 : p));
        }
    }
    for (int i = 0; i < 64; ++i) block[i] = 0;
}

const IdctKernels& IdctKernelsFor(KernelSet set) {
    static const std::array<IdctKernels, ncb::video::kKernelSetCount> tables =
        ncb::video::BuildKernelTables<IdctKernels>(
            InstallScalar, {InstallIdctSse2, nullptr, InstallIdctSse41, InstallIdctAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::jpeg
