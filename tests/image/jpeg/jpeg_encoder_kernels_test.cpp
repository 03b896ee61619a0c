// The JPEG encoder's building blocks: the forward transform and quantisation
// kernels of every level against their scalar twin (kernel checker), the
// twin against a double-precision DCT, the Huffman code tables against the
// decoder's standard tables, and the block coder's bits for runs of zeros.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "image/jpeg/jpeg_encoder_scan.h"
#include "image/jpeg/jpeg_fdct.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/write_bit_stream.h"
#include "tests/support/kernel_checker.h"

namespace {

using ncb::jpeg::FdctKernelsFor;
using ncb::jpeg::KernelSet;
using ncbtest::CaseRandom;
using ncbtest::Plane;

struct BlockCase {
    Plane src, recip, out, nonZero;
    std::vector<const Plane*> Planes() const { return {&src, &recip, &out, &nonZero}; }
};

void RunForward(BlockCase& c, ncb::jpeg::ForwardQuantFn fn) {
    c.nonZero.As<uint64_t>()[0] =
        fn(c.src.Data(), c.src.Pitch(), c.recip.As<int16_t>(), c.out.As<int16_t>());
}

TEST(JpegEncoderKernels, ForwardQuantMatchesTwinAtEveryLevel) {
    ncbtest::KernelFamily<BlockCase> family{
        .name = "jpeg forward transform + quantisation",
        .make =
            [](CaseRandom& r) {
                BlockCase c;
                c.src = r.MakePlane(8, 8, 1, {.label = "src"});
                // Extremes (flat 0 or 255 blocks, checkerboards) hit the sums'
                // 16-bit limits; the rest is random bytes.
                const int style = r.Uniform(0, 5);
                for (int y = 0; y < 8; ++y) {
                    for (int x = 0; x < 8; ++x) {
                        uint8_t& p = c.src.Row(y)[x];
                        if (style == 0) p = 0;
                        if (style == 1) p = 255;
                        if (style == 2) p = ((x + y) & 1) ? 255 : 0;
                        if (style == 3) p = (y & 1) ? 255 : 0;
                    }
                }
                c.recip = r.MakeSamples<int16_t>(64, "recip");
                // Reciprocals of quantisers 5..255, the range of the tables.
                r.FillUniform<int16_t>(c.recip, 257, 13107);
                c.out = r.MakeSamples<int16_t>(64, "out");
                c.nonZero = r.MakeSamples<uint64_t>(1, "nonZero");
                return c;
            },
        .twin = [](BlockCase& c) { RunForward(c, ncb::jpeg::ForwardQuant_c); },
        .atLevel =
            [](BlockCase& c, int level) {
                KernelSet set;
                ASSERT_TRUE(ncb::video::KernelSetForLevel(level, &set));
                RunForward(c, FdctKernelsFor(set).forwardQuant);
            },
    };
    if (ncbtest::CpuHasAvx2())
        family.extra.push_back({"avx2 set", [](BlockCase& c) {
                                    RunForward(c, FdctKernelsFor(KernelSet::kAvx2).forwardQuant);
                                }});
    ncbtest::CheckAllLevels(family, {.cases = 400});
}

struct PairCase {
    Plane src, recip, out0, out1, nonZero;
    std::vector<const Plane*> Planes() const { return {&src, &recip, &out0, &out1, &nonZero}; }
};

void RunPair(PairCase& c, ncb::jpeg::ForwardQuantPairFn fn) {
    fn(c.src.Data(), c.src.Pitch(), c.recip.As<int16_t>(), c.out0.As<int16_t>(),
       c.out1.As<int16_t>(), c.nonZero.As<uint64_t>());
}

// Two side-by-side blocks at once: the same as the twin run on each.
TEST(JpegEncoderKernels, ForwardQuantPairMatchesTwinAtEveryLevel) {
    ncbtest::KernelFamily<PairCase> family{
        .name = "jpeg forward transform + quantisation, block pairs",
        .make =
            [](CaseRandom& r) {
                PairCase c;
                c.src = r.MakePlane(16, 8, 1, {.label = "src"});
                if (r.Chance(20)) {  // one flat white block beside a black one
                    for (int y = 0; y < 8; ++y)
                        for (int x = 0; x < 16; ++x) c.src.Row(y)[x] = x < 8 ? 255 : 0;
                }
                c.recip = r.MakeSamples<int16_t>(64, "recip");
                r.FillUniform<int16_t>(c.recip, 257, 13107);
                c.out0 = r.MakeSamples<int16_t>(64, "out0");
                c.out1 = r.MakeSamples<int16_t>(64, "out1");
                c.nonZero = r.MakeSamples<uint64_t>(2, "nonZero");
                return c;
            },
        .twin =
            [](PairCase& c) { RunPair(c, ncb::jpeg::PairOfSingles<ncb::jpeg::ForwardQuant_c>); },
        .atLevel =
            [](PairCase& c, int level) {
                KernelSet set;
                ASSERT_TRUE(ncb::video::KernelSetForLevel(level, &set));
                RunPair(c, FdctKernelsFor(set).forwardQuantPair);
            },
    };
    if (ncbtest::CpuHasAvx2())
        family.extra.push_back({"avx2 set", [](PairCase& c) {
                                    RunPair(c, FdctKernelsFor(KernelSet::kAvx2).forwardQuantPair);
                                }});
    ncbtest::CheckAllLevels(family, {.cases = 300});
}

// The twin against the textbook transform: through the finest quantiser of
// the tables (5) the result is round(coefficient / 5) of the exact DCT,
// off by one step at most where the 13-bit integer transform's own error
// crosses a rounding edge, which must stay rare.
TEST(JpegEncoderKernels, TwinFollowsTheOrthonormalDct) {
    std::mt19937 rng(7);
    std::vector<int16_t> recip(64, 13107);  // quantiser 5
    int worst = 0, exact = 0, total = 0;
    for (int trial = 0; trial < 300; ++trial) {
        uint8_t px[64];
        const int base = static_cast<int>(rng() % 256), spread = static_cast<int>(rng() % 256);
        for (uint8_t& p : px) {
            const int v = base + static_cast<int>(rng() % (spread + 1)) - spread / 2;
            p = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
        }
        int16_t out[64];
        ncb::jpeg::ForwardQuant_c(px, 8, recip.data(), out);
        for (int v = 0; v < 8; ++v) {
            for (int u = 0; u < 8; ++u) {
                double sum = 0;
                for (int y = 0; y < 8; ++y)
                    for (int x = 0; x < 8; ++x)
                        sum += px[8 * y + x] * std::cos((2 * x + 1) * u * M_PI / 16) *
                               std::cos((2 * y + 1) * v * M_PI / 16);
                const double cu = u ? 1 : M_SQRT1_2, cv = v ? 1 : M_SQRT1_2;
                double coefficient = sum * cu * cv / 4;
                if (u == 0 && v == 0) coefficient -= 1024;
                const int want = static_cast<int>(std::lround(coefficient / 5));
                const int diff = std::abs(out[8 * u + v] - want);
                worst = std::max(worst, diff);
                exact += diff == 0;
                ++total;
            }
        }
    }
    EXPECT_LE(worst, 1);
    EXPECT_GT(exact, total * 97 / 100) << exact << " of " << total;
}

// Canonical codes built here from the decoder's copies of the standard
// tables, compared entry by entry.
template <size_t N, typename T, size_t S>
void ExpectCodes(const std::array<uint8_t, 16>& counts, const std::array<uint8_t, S>& symbols,
                 const std::array<T, N>& entries, bool ac) {
    uint32_t code = 0;
    size_t k = 0;
    int seen = 0;
    for (int len = 1; len <= 16; ++len) {
        for (int i = 0; i < counts[len - 1]; ++i, ++k, ++code) {
            const int s = symbols[k];
            const int index = !ac         ? s
                              : s == 0    ? 160
                              : s == 0xF0 ? 161
                                          : (s >> 4) * 10 + (s & 15) - 1;
            EXPECT_EQ(entries[index] & 15, static_cast<T>(len - 1)) << "symbol " << s;
            EXPECT_EQ(entries[index] >> 4, code) << "symbol " << s;
            ++seen;
        }
        code <<= 1;
    }
    EXPECT_EQ(seen, static_cast<int>(N));
}

TEST(JpegEncoderKernels, HuffmanCodesAreTheStandardTables) {
    using C = CNJpegCodec;
    ExpectCodes(C::s_uDefDcHuffmanCodeNumY, C::s_uDefDcHuffmanCodeValueY,
                C::s_uHuffw16s_JpegDefaultDcHuffmanTableYData, false);
    ExpectCodes(C::s_uDefDcHuffmanCodeNumUV, C::s_uDefDcHuffmanCodeValueUV,
                C::s_uHuffw16s_JpegDefaultDcHuffmanTableUVData, false);
    ExpectCodes(C::s_uDefAcHuffmanCodeNumY, C::s_uDefAcHuffmanCodeValueY,
                C::s_uHuffw32s_JpegDefaultAcHuffmanTableYData, true);
    ExpectCodes(C::s_uDefAcHuffmanCodeNumUV, C::s_uDefAcHuffmanCodeValueUV,
                C::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData, true);
    // The codes the block coder relies on by value.
    EXPECT_EQ(C::s_uHuffw32s_JpegDefaultAcHuffmanTableYData[160], (0b1010u << 4) | 3);
    EXPECT_EQ(C::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData[160], (0b00u << 4) | 1);
    EXPECT_EQ(C::s_uHuffw32s_JpegDefaultAcHuffmanTableYData[161], (0b11111111001u << 4) | 10);
    EXPECT_EQ(C::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData[161], (0b1111111010u << 4) | 9);
}

TEST(JpegEncoderKernels, ReciprocalsMatchTheDqtBytes) {
    using C = CNJpegCodec;
    const std::array<uint8_t, 64>* dqt[6] = {&C::s_uStreamQuantMatrixY,
                                             &C::s_uStreamQuantMatrixUV,
                                             &C::s_uStreamQuantMatrixYQuality,
                                             &C::s_uStreamQuantMatrixUVQuality,
                                             &C::s_uStreamQuantMatrixYQualityHigh,
                                             &C::s_uStreamQuantMatrixUVQualityHigh};
    const std::array<int16_t, 64>* recip[6] = {&C::s_uQuantMatrixAsmY,
                                               &C::s_uQuantMatrixAsmUV,
                                               &C::s_uQuantMatrixAsmYQuality,
                                               &C::s_uQuantMatrixAsmUVQuality,
                                               &C::s_uQuantMatrixAsmYQualityHigh,
                                               &C::s_uQuantMatrixAsmUVQualityHigh};
    for (int t = 0; t < 6; ++t) {
        for (int k = 0; k < 64; ++k) {
            const int q = (*dqt[t])[k];
            const int at = C::s_uJpegZigZagReserveScanTable[k];
            EXPECT_EQ((*recip[t])[at], std::lround(65536.0 / q)) << "table " << t << " k " << k;
            // Level 1 halves level 0 (rounding down); level 2 caps level 1 at 8.
            if (t >= 2 && t < 4) {
                EXPECT_EQ(q, (*dqt[t - 2])[k] / 2);
            } else if (t >= 4) {
                EXPECT_EQ(q, std::min<int>((*dqt[t - 2])[k], 8));
            }
        }
    }
    EXPECT_EQ(C::s_uStreamQuantMatrixY[0], 16);  // Table K.1 starts 16, 11, 12
    EXPECT_EQ(C::s_uStreamQuantMatrixY[1], 11);
    EXPECT_EQ(C::s_uStreamQuantMatrixY[2], 12);
    EXPECT_EQ(C::s_uStreamQuantMatrixUV[63], 99);
}

// The bits one block produces, as a string of 0 and 1.
std::string CodeBlock(const int16_t* block, bool chroma) {
    using C = CNJpegCodec;
    ncb::jpeg::EncodeComponent component;
    component.dcCodes = chroma ? C::s_uHuffw16s_JpegDefaultDcHuffmanTableUVData.data()
                               : C::s_uHuffw16s_JpegDefaultDcHuffmanTableYData.data();
    component.acCodes = chroma ? C::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData.data()
                               : C::s_uHuffw32s_JpegDefaultAcHuffmanTableYData.data();
    uint64_t nonZero = 0;
    for (int i = 0; i < 64; ++i) nonZero |= static_cast<uint64_t>(block[i] != 0) << i;
    unsigned char bytes[256] = {};
    NDataStreamBufferInfoTag chain = {bytes, sizeof bytes};
    CNWriteBitStream bits;
    bits.Init(0, 1, &chain, 1, 0);
    int16_t predictor = 0;
    ncb::jpeg::HuffmanSink sink(&bits);
    ncb::jpeg::EncodeOneCoeffMatrix(block, nonZero, component, &predictor, &sink);
    sink.Flush();
    const int count = bits.GetCurPos();
    bits.Uninit(2);
    std::string text;
    for (int i = 0; i < count; ++i) text += (bytes[i / 8] >> (7 - i % 8)) & 1 ? '1' : '0';
    return text;
}

struct RunCase {
    const char* name;
    int zigzag;  // position of the one non-zero AC coefficient (0: none, -1: all)
    int value;
    bool chroma;
    const char* bits;  // DC 0 (00), then the AC codes
};

class JpegEncoderRuns : public testing::TestWithParam<RunCase> {};

TEST_P(JpegEncoderRuns, WritesTheStandardCodes) {
    const RunCase& c = GetParam();
    int16_t block[64] = {};
    for (int k = 1; k < 64; ++k) {
        if (c.zigzag == k || c.zigzag < 0)
            block[CNJpegCodec::s_uJpegZigZagReserveScanTable[k]] = static_cast<int16_t>(c.value);
    }
    std::string want = c.bits;
    if (c.zigzag < 0) {  // every AC coefficient 1: (0,1) 63 times, no EOB
        want = "00";
        for (int k = 1; k < 64; ++k) want += "001";
    }
    EXPECT_EQ(CodeBlock(block, c.chroma), want);
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, JpegEncoderRuns,
    testing::Values(
        // Luma: EOB 1010; (0,1) 00; ZRL 11111111001; (1,1) 1100; (15,1) 1111111111110101.
        RunCase{"empty", 0, 0, false, "001010"},
        RunCase{"first", 1, 1, false,
                "00"
                "001"
                "1010"},
        RunCase{"negative", 1, -1, false,
                "00"
                "000"
                "1010"},
        RunCase{"sixteenZeros", 17, 1, false,
                "00"
                "11111111001"
                "001"
                "1010"},
        RunCase{"fifteenZeros", 16, 1, false,
                "00"
                "1111111111110101"
                "1"
                "1010"},
        RunCase{"fullNoEob", -1, 1, false, ""}, RunCase{"chromaEob", 0, 0, true, "0000"},
        RunCase{"chromaZrl", 17, -3, true,
                "00"
                "1111111010"
                "10000"
                "00"}),
    [](const testing::TestParamInfo<RunCase>& info) { return info.param.name; });

}  // namespace
