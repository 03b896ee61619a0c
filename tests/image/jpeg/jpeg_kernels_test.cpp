// Block reconstruction kernels: every processor level (and the SSE4.1 and
// AVX2 sets where the CPU has them) equals the scalar twin bit for bit, on
// realistic sparse blocks and on hostile full-range coefficients that drive
// the 32-bit sums round and the 16-bit results into saturation. The DC-only
// shortcut equals the full transform for every DC value.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "image/jpeg/jpeg_idct.h"
#include "image/jpeg/jpeg_scan.h"
#include "tests/support/kernel_checker.h"

namespace ncbtest::jpeg {
namespace {

using ncb::jpeg::IdctKernelsFor;
using ncb::jpeg::KernelSet;

struct BlockCase {
    Plane block, quant, dst;
    bool hostile = false;
    std::vector<const Plane*> Planes() const { return {&block, &quant, &dst}; }
    std::string Describe() const { return hostile ? "full-range coefficients" : "sparse block"; }
};

BlockCase MakeCase(CaseRandom& r) {
    BlockCase c;
    c.block = r.MakeSamples<int16_t>(64, "block");
    c.quant = r.MakeSamples<uint16_t>(64, "quant");
    c.dst = r.MakePlane(8, 8, 1, {.label = "dst"});
    c.hostile = r.Chance(30);
    auto* b = c.block.As<int16_t>();
    auto* q = c.quant.As<uint16_t>();
    if (!c.hostile) {
        // Few non-zero coefficients, mostly low frequencies, quantisers 1..99.
        const int nonZero = r.Uniform(0, 12);
        std::memset(b, 0, 128);
        for (int i = 0; i < nonZero; ++i)
            b[r.Uniform(0, r.Chance(70) ? 20 : 63)] = static_cast<int16_t>(r.Uniform(-200, 200));
        b[0] = static_cast<int16_t>(r.Uniform(-128, 128));
        for (int i = 0; i < 64; ++i) q[i] = static_cast<uint16_t>(r.Uniform(1, 99));
    }
    return c;
}

void RunKernel(BlockCase& c, KernelSet set) {
    IdctKernelsFor(set).reconstruct(c.block.As<int16_t>(), c.quant.As<uint16_t>(), c.dst.Data(),
                                    c.dst.Pitch());
}

TEST(JpegKernels, ReconstructionMatchesScalarTwin) {
    KernelFamily<BlockCase> family{
        .name = "jpeg reconstruct",
        .make = MakeCase,
        .twin = [](BlockCase& c) { RunKernel(c, KernelSet::kScalar); },
        .atLevel =
            [](BlockCase& c, int level) {
                KernelSet set;
                ASSERT_TRUE(ncb::video::KernelSetForLevel(level, &set));
                RunKernel(c, set);
            },
    };
    for (KernelSet set : {KernelSet::kSse2, KernelSet::kSse41, KernelSet::kAvx2})
        if (ncb::video::KernelSetSupported(set))
            family.extra.push_back(
                {ncb::video::KernelSetName(set), [set](BlockCase& c) { RunKernel(c, set); }});
    CheckAllLevels(family, {.cases = 500});
}

TEST(JpegKernels, DcOnlyShortcutEqualsTransform) {
    const uint16_t quants[] = {1, 3, 16, 1000};
    for (uint16_t q : quants)
        for (int dc = -4200; dc <= 4200; dc += 1) {
            alignas(16) int16_t a[64] = {}, b[64] = {};
            alignas(16) uint16_t quant[64];
            for (uint16_t& v : quant) v = q;
            a[0] = b[0] = static_cast<int16_t>(dc);
            uint8_t pa[64], pb[64];
            ncb::jpeg::ReconstructBlock_c(a, quant, pa, 8);
            ncb::jpeg::ReconstructDcOnly(b, quant, pb, 8);
            ASSERT_EQ(std::memcmp(pa, pb, 64), 0) << "dc " << dc << " q " << q;
            ASSERT_EQ(b[0], 0);
        }
}

// One coefficient at a time: a horizontal frequency gives columns that vary
// left to right and rows that are equal, whatever the sign.
TEST(JpegKernels, HorizontalFrequencyVariesAcrossColumns) {
    for (int u = 1; u < 8; ++u) {
        alignas(16) int16_t block[64] = {};
        alignas(16) uint16_t quant[64];
        for (uint16_t& v : quant) v = 1;
        block[8 * u] = 300;  // transposed: row u holds horizontal frequency u
        uint8_t px[64];
        ncb::jpeg::ReconstructBlock_c(block, quant, px, 8);
        for (int y = 1; y < 8; ++y) EXPECT_EQ(std::memcmp(px, px + 8 * y, 8), 0) << "u " << u;
        bool varies = false;
        for (int x = 1; x < 8; ++x) varies |= px[x] != px[0];
        EXPECT_TRUE(varies) << "u " << u;
    }
}

}  // namespace
}  // namespace ncbtest::jpeg
