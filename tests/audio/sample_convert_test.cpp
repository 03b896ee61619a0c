// Sample conversion, peaks, down-mix and interleaving: the documented edge
// values, and every vector kernel against its scalar twin at every processor
// level with the kernel checker (counts that are and are not multiples of 16,
// unaligned planes, every channel count).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "audio/channel_mix.h"
#include "audio/sample_kernels.h"
#include "ncodecbase/audio_processor.h"
#include "tests/support/kernel_checker.h"

namespace {

using ncbtest::CaseRandom;
using ncbtest::CheckAllLevels;
using ncbtest::Plane;
using AP = CNAudioProcessor;

std::vector<int> Levels() { return ncbtest::SupportedLevels(); }

// ---- Documented values, at every level and both on and off the vector path ----

class SampleEdges : public ::testing::TestWithParam<int> {};

TEST_P(SampleEdges, DownmixSaturatesAndFloors) {
    const int level = GetParam();
    short a[16], b[16], out[16];
    for (short v : {short{20000}, short{-20000}}) {
        std::fill(a, a + 16, v);
        std::fill(b, b + 16, v);
        AP::DownmixChannel_2(a, 16384, b, 16384, out, 16, level);
        for (short o : out) ASSERT_EQ(o, v > 0 ? 32767 : -32768);
    }
    std::fill(a, a + 16, short{-3});
    AP::DownmixChannel_1(a, 8192, out, 16, level);
    for (short o : out) ASSERT_EQ(o, -2);  // floor(-1.5)
    AP::DownmixChannel_1(a, 8192, out, 3, level);
    EXPECT_EQ(out[0], -2);
}

TEST_P(SampleEdges, FiveExtremeTermsWrapIn32Bits) {
    // Five products of 2^30 sum to 5 x 2^30, which wraps to 2^30 in 32 bits:
    // >> 14 gives 65536, saturated to 32767.
    const int level = GetParam();
    std::array<short, 16> v;
    v.fill(-32768);
    short out[16];
    AP::DownmixChannel_5(v.data(), -32768, v.data(), -32768, v.data(), -32768, v.data(), -32768,
                         v.data(), -32768, out, 16, level);
    for (short o : out) ASSERT_EQ(o, 32767);
    short four[16];
    AP::DownmixChannel_4(v.data(), -32768, v.data(), -32768, v.data(), -32768, v.data(), -32768,
                         four, 16, level);
    for (short o : four) ASSERT_EQ(o, 0);  // 2^32 wraps to 0
}

TEST_P(SampleEdges, VolumeOfOneTwoAndZero) {
    const int level = GetParam();
    short src[20], dst[20];
    for (int i = 0; i < 20; ++i) src[i] = static_cast<short>(i * 3001 - 30000);
    AP::ConvertToDest_1_Adjust(src, 256, dst, 20, level);
    EXPECT_EQ(0, std::memcmp(src, dst, sizeof src));
    AP::ConvertToDest_1_Adjust(src, 512, dst, 20, level);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(dst[i], std::clamp(2 * src[i], -32768, 32767)) << "sample " << i;
    AP::ConvertToDest_1_Adjust(src, 0, dst, 20, level);
    for (short d : dst) ASSERT_EQ(d, 0);
}

TEST_P(SampleEdges, StereoChannelSelection) {
    const int level = GetParam();
    short src[4] = {1, 2, 3, 4}, dst[4];
    AP::ConvertToDest_2Mux_Right(src, dst, 2, level);
    EXPECT_EQ(std::vector<short>(dst, dst + 4), (std::vector<short>{2, 2, 4, 4}));
    AP::ConvertToDest_2Mux_Left(src, dst, 2, level);
    EXPECT_EQ(std::vector<short>(dst, dst + 4), (std::vector<short>{1, 1, 3, 3}));
    AP::ConvertToDest_2Mux_Left_Adjust(src, 512, dst, 2, level);
    EXPECT_EQ(std::vector<short>(dst, dst + 4), (std::vector<short>{2, 2, 6, 6}));
}

TEST_P(SampleEdges, PeaksIgnoreMinus32768) {
    const int level = GetParam();
    std::vector<short> s(32, 0);
    s[0] = -32768;
    s[1] = 5;
    EXPECT_EQ(AP::CalcMaxAbs(s.data(), 2, 0, level), 5);
    EXPECT_EQ(AP::CalcMaxAbs(s.data(), 32, 0, level), 5);
    s[20] = -32767;
    EXPECT_EQ(AP::CalcMaxAbs(s.data() + 20, 1, 0, level), 32767);
    EXPECT_EQ(AP::CalcMaxAbs(s.data(), 32, 0, level), 32767);
    std::vector<short> only(16, -32768);
    EXPECT_EQ(AP::CalcMaxAbs(only.data(), 16, 0, level), 0);
    EXPECT_EQ(AP::CalcMaxAbs(only.data(), 16, 7, level), 7);
    EXPECT_EQ(AP::CalcMaxAbs(only.data(), 0, 9, level), 9);

    std::vector<short> stereo(32, 0);
    stereo[4] = -300;  // left
    stereo[9] = 200;   // right
    stereo[10] = -32768;
    short left = 100, right = 250;
    AP::CalcMaxAbs_Stereo(stereo.data(), 16, &left, &right, level);
    EXPECT_EQ(left, 300);
    EXPECT_EQ(right, 250);  // 200 is not larger
}

TEST_P(SampleEdges, Widening) {
    const int level = GetParam();
    unsigned char bytes8[2] = {0x80, 0x7F};
    short out[2];
    AP::Convert8BitsTo16Bits(bytes8, out, 2, level);
    EXPECT_EQ(out[0], -32768);
    EXPECT_EQ(out[1], 32512);
    unsigned char bytes24[6] = {0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x80};
    AP::Convert24BitsTo16Bits(bytes24, out, 2, level);
    EXPECT_EQ(out[0], 32767);
    EXPECT_EQ(out[1], -32768);
}

TEST_P(SampleEdges, RemoveExtraChannels) {
    const int level = GetParam();
    const short frames16[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char in[16];
    std::memcpy(in, frames16, sizeof in);
    short out[4] = {};
    AP::Convert16BitsTo16Bits_RemoveExtraChannle(in, out, 2, 2, 2, level);
    EXPECT_EQ(std::vector<short>(out, out + 4), (std::vector<short>{1, 2, 5, 6}));
    AP::Convert16BitsTo16Bits_RemoveExtraChannle_Demux(in, out, 2, 2, 2, level);
    EXPECT_EQ(std::vector<short>(out, out + 4), (std::vector<short>{1, 5, 2, 6}));

    // Three channels of which one is extra, 8- and 24-bit.
    const unsigned char in8[6] = {0x01, 0x02, 0x03, 0x81, 0x82, 0x83};
    AP::Convert8BitsTo16Bits_RemoveExtraChannle(const_cast<unsigned char*>(in8), out, 2, 2, 1,
                                                level);
    EXPECT_EQ(std::vector<short>(out, out + 4), (std::vector<short>{0x100, 0x200, -32512, -32256}));
    AP::Convert8BitsTo16Bits_RemoveExtraChannle_Demux(const_cast<unsigned char*>(in8), out, 2, 2, 1,
                                                      level);
    EXPECT_EQ(std::vector<short>(out, out + 4), (std::vector<short>{0x100, -32512, 0x200, -32256}));
    const unsigned char in24[9] = {0x11, 0x34, 0x12, 0x22, 0x78, 0x56, 0x33, 0x00, 0x80};
    AP::Convert24BitsTo16Bits_RemoveExtraChannle(const_cast<unsigned char*>(in24), out, 3, 1, 0,
                                                 level);
    EXPECT_EQ(std::vector<short>(out, out + 3), (std::vector<short>{0x1234, 0x5678, -32768}));
    AP::Convert24BitsTo16Bits_RemoveExtraChannle_Demux(const_cast<unsigned char*>(in24), out, 1, 2,
                                                       1, level);
    EXPECT_EQ(std::vector<short>(out, out + 2), (std::vector<short>{0x1234, 0x5678}));
}

TEST_P(SampleEdges, NothingWrittenForBadCountsOrChannels) {
    const int level = GetParam();
    unsigned char src[64] = {};
    short dst[64];
    std::fill(dst, dst + 64, short{0x5a5a});
    AP::Convert8BitsTo16Bits(src, dst, 0, level);
    AP::Convert8BitsTo16Bits(src, dst, -5, level);
    AP::Convert8BitsTo16Bits_Demux(src, dst, 4, 1, level);
    AP::Convert8BitsTo16Bits_Demux(src, dst, 4, 7, level);
    AP::Convert24BitsTo16Bits_Demux(src, dst, 2, 7, level);
    AP::Convert24BitsTo16Bits_Demux(src, dst, 0, 2, level);
    AP::DownmixChannel_1(dst, 1, dst, 0, level);
    AP::ConvertToDest_2(dst, dst, dst, -1, level);
    AP::Convert16BitsTo16Bits_RemoveExtraChannle(src, dst, 0, 2, 0, level);
    for (short d : dst) ASSERT_EQ(d, 0x5a5a);
}

TEST_P(SampleEdges, DirectCopy) {
    unsigned char a[37], b[37] = {};
    for (int i = 0; i < 37; ++i) a[i] = static_cast<unsigned char>(i * 7);
    AP::DirectCopy(a, b, 37, GetParam());
    EXPECT_EQ(0, std::memcmp(a, b, 37));
}

INSTANTIATE_TEST_SUITE_P(Levels, SampleEdges, ::testing::ValuesIn(Levels()),
                         [](const auto& info) { return "level" + std::to_string(info.param); });

// ---- Vector kernels against the scalar twins ----

// Frame counts: often whole 16-frame steps (the vector path), otherwise any.
int Frames(CaseRandom& r, int most = 300) {
    return r.Chance(35) ? 16 * r.Uniform(1, most / 16) : r.Size(1, most);
}

// Sprinkles the value that has no 16-bit absolute value into sample data.
void SprinkleMinimum(CaseRandom& r, Plane& p) {
    int16_t* s = p.As<int16_t>();
    for (int i = 0; i < p.Width(); ++i)
        if (r.Chance(3)) s[i] = -32768;
}

struct WidenCase {
    int count = 0, bytes = 1;
    Plane src, dst;
    std::vector<const Plane*> Planes() const { return {&src, &dst}; }
    std::string Describe() const {
        return "count " + std::to_string(count) + ", " + std::to_string(8 * bytes) + "-bit";
    }
};

class Widening : public ::testing::TestWithParam<int> {};

TEST_P(Widening, MatchesTwinAtEveryLevel) {
    const int bytes = GetParam();
    CheckAllLevels<WidenCase>({
        .name = bytes == 1 ? "Convert8BitsTo16Bits" : "Convert24BitsTo16Bits",
        .make =
            [bytes](CaseRandom& r) {
                WidenCase c;
                c.count = Frames(r, 400);
                c.bytes = bytes;
                c.src = r.MakeSamples<uint8_t>(c.count * bytes, "src");
                c.dst = r.MakeSamples<int16_t>(c.count, "dst");
                return c;
            },
        .twin =
            [](WidenCase& c) {
                (c.bytes == 1 ? ncb::audio::Widen8_c : ncb::audio::Widen24_c)(
                    c.src.As<uint8_t>(), c.dst.As<int16_t>(), c.count);
            },
        .atLevel =
            [](WidenCase& c, int level) {
                (c.bytes == 1 ? AP::Convert8BitsTo16Bits : AP::Convert24BitsTo16Bits)(
                    c.src.As<uint8_t>(), c.dst.As<short>(), c.count, level);
            },
    });
}

INSTANTIATE_TEST_SUITE_P(Widths, Widening, ::testing::Values(1, 3),
                         [](const auto& info) { return std::to_string(8 * info.param) + "bit"; });

struct DemuxCase {
    int frames = 0, channels = 2, bytes = 1;
    Plane src, dst;
    std::vector<const Plane*> Planes() const { return {&src, &dst}; }
    std::string Describe() const {
        return "frames " + std::to_string(frames) + ", channels " + std::to_string(channels) +
               ", " + std::to_string(8 * bytes) + "-bit";
    }
};

class Demux : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Demux, MatchesTwinAtEveryLevel) {
    const auto [bytes, channels] = GetParam();
    CheckAllLevels<DemuxCase>({
        .name = "Demux",
        .make =
            [bytes, channels](CaseRandom& r) {
                DemuxCase c;
                c.frames = Frames(r);
                c.channels = channels;
                c.bytes = bytes;
                c.src = r.MakeSamples<uint8_t>(c.frames * channels * bytes, "src");
                c.dst = r.MakeSamples<int16_t>(c.frames * channels, "dst");
                return c;
            },
        .twin =
            [](DemuxCase& c) {
                (c.bytes == 1 ? ncb::audio::Demux8_c : ncb::audio::Demux24_c)(
                    c.src.As<uint8_t>(), c.dst.As<int16_t>(), c.frames, c.channels);
            },
        .atLevel =
            [](DemuxCase& c, int level) {
                (c.bytes == 1 ? AP::Convert8BitsTo16Bits_Demux : AP::Convert24BitsTo16Bits_Demux)(
                    c.src.As<uint8_t>(), c.dst.As<short>(), c.frames, c.channels, level);
            },
    });
}

INSTANTIATE_TEST_SUITE_P(WidthsAndChannels, Demux,
                         ::testing::Combine(::testing::Values(1, 3), ::testing::Range(2, 7)),
                         [](const auto& info) {
                             return std::to_string(8 * std::get<0>(info.param)) + "bit_" +
                                    std::to_string(std::get<1>(info.param)) + "ch";
                         });

// The twin itself against a plain reading of the layout rule.
TEST(DemuxLayout, PlaneCStartsAtCTimesFrames) {
    const int frames = 5, channels = 3;
    std::vector<uint8_t> in8(frames * channels);
    std::vector<uint8_t> in24(frames * channels * 3);
    for (int i = 0; i < frames * channels; ++i) {
        in8[i] = static_cast<uint8_t>(i);
        in24[3 * i] = 0xEE;
        in24[3 * i + 1] = static_cast<uint8_t>(i);
        in24[3 * i + 2] = static_cast<uint8_t>(0x10 + i);
    }
    std::vector<short> out(frames * channels);
    AP::Convert8BitsTo16Bits_Demux(in8.data(), out.data(), frames, channels, 0);
    for (int c = 0; c < channels; ++c)
        for (int f = 0; f < frames; ++f) ASSERT_EQ(out[c * frames + f], (f * channels + c) * 256);
    AP::Convert24BitsTo16Bits_Demux(in24.data(), out.data(), frames, channels, 0);
    for (int c = 0; c < channels; ++c)
        for (int f = 0; f < frames; ++f) {
            const int i = f * channels + c;
            ASSERT_EQ(out[c * frames + f], (0x10 + i) * 256 + i);
        }
}

struct PeakCase {
    int count = 0;
    bool stereo = false;
    int16_t previous = 0, left = 0, right = 0;
    Plane src, result;
    std::vector<const Plane*> Planes() const { return {&src, &result}; }
    std::string Describe() const {
        return (stereo ? "frames " : "count ") + std::to_string(count) + ", previous " +
               std::to_string(previous) + "/" + std::to_string(left) + "/" + std::to_string(right);
    }
};

PeakCase MakePeakCase(CaseRandom& r, bool stereo) {
    PeakCase c;
    c.stereo = stereo;
    c.count = Frames(r, 400);
    c.src = r.MakeSamples<int16_t>(c.count * (stereo ? 2 : 1), "src");
    SprinkleMinimum(r, c.src);
    // Small sample ranges make the starting peaks matter now and then.
    if (r.Chance(50)) r.FillUniform<int16_t>(c.src, -1000, 1000);
    c.previous = static_cast<int16_t>(r.Uniform(-40000, 40000) / 2);
    c.left = static_cast<int16_t>(r.Uniform(-2000, 2000));
    c.right = static_cast<int16_t>(r.Uniform(-2000, 2000));
    c.result = r.MakeSamples<int16_t>(2, "result");
    return c;
}

class Peaks : public ::testing::TestWithParam<bool> {};

TEST_P(Peaks, MatchTwinAtEveryLevel) {
    const bool stereo = GetParam();
    CheckAllLevels<PeakCase>({
        .name = stereo ? "CalcMaxAbs_Stereo" : "CalcMaxAbs",
        .make = [stereo](CaseRandom& r) { return MakePeakCase(r, stereo); },
        .twin =
            [](PeakCase& c) {
                int16_t* out = c.result.As<int16_t>();
                if (c.stereo) {
                    out[0] = c.left;
                    out[1] = c.right;
                    ncb::audio::MaxAbsStereo_c(c.src.As<int16_t>(), c.count, out, out + 1);
                } else {
                    out[0] = ncb::audio::MaxAbs_c(c.src.As<int16_t>(), c.count, c.previous);
                }
            },
        .atLevel =
            [](PeakCase& c, int level) {
                short* out = c.result.As<short>();
                if (c.stereo) {
                    out[0] = c.left;
                    out[1] = c.right;
                    AP::CalcMaxAbs_Stereo(c.src.As<short>(), c.count, out, out + 1, level);
                } else {
                    out[0] = AP::CalcMaxAbs(c.src.As<short>(), c.count, c.previous, level);
                }
            },
    });
}

INSTANTIATE_TEST_SUITE_P(Layouts, Peaks, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "stereo" : "mono"; });

// Down-mix of n planes and interleaving of n planes share one case shape.
struct PlanesCase {
    int frames = 0, n = 1;
    int16_t coef[5] = {}, volume = 256;
    Plane in[6];
    Plane out;
    std::vector<const Plane*> Planes() const {
        std::vector<const Plane*> all{&out};
        for (int k = 0; k < n; ++k) all.push_back(&in[k]);
        return all;
    }
    std::string Describe() const {
        std::string text = "frames " + std::to_string(frames) + ", planes " + std::to_string(n) +
                           ", volume " + std::to_string(volume) + ", coefficients";
        for (int k = 0; k < n && k < 5; ++k) text += " " + std::to_string(coef[k]);
        return text;
    }
    std::vector<const int16_t*> Inputs() {
        std::vector<const int16_t*> p;
        for (int k = 0; k < n; ++k) p.push_back(in[k].As<int16_t>());
        return p;
    }
};

PlanesCase MakePlanesCase(CaseRandom& r, int n, int outPerFrame) {
    PlanesCase c;
    c.n = n;
    c.frames = Frames(r);
    for (int k = 0; k < n; ++k) {
        c.in[k] = r.MakeSamples<int16_t>(c.frames, "in");
        if (r.Chance(20)) SprinkleMinimum(r, c.in[k]);
    }
    for (int16_t& k : c.coef)
        k = static_cast<int16_t>(r.Chance(70) ? r.Uniform(-16384, 16384)
                                              : r.Uniform(-32768, 32767));
    c.volume = static_cast<int16_t>(r.Chance(70) ? r.Uniform(0, 1024) : r.Uniform(-32768, 32767));
    c.out = r.MakeSamples<int16_t>(c.frames * outPerFrame, "out");
    return c;
}

class Downmix : public ::testing::TestWithParam<int> {};

TEST_P(Downmix, MatchesTwinAtEveryLevel) {
    const int n = GetParam();
    CheckAllLevels<PlanesCase>({
        .name = "DownmixChannel_" + std::to_string(n),
        .make = [n](CaseRandom& r) { return MakePlanesCase(r, n, 1); },
        .twin =
            [](PlanesCase& c) {
                ncb::audio::Downmix_c(c.Inputs().data(), c.coef, c.n, c.out.As<int16_t>(),
                                      c.frames);
            },
        .atLevel =
            [](PlanesCase& c, int level) {
                auto p = [&c](int k) { return c.in[k].As<short>(); };
                short* out = c.out.As<short>();
                const int16_t* k = c.coef;
                switch (c.n) {
                    case 1:
                        return AP::DownmixChannel_1(p(0), k[0], out, c.frames, level);
                    case 2:
                        return AP::DownmixChannel_2(p(0), k[0], p(1), k[1], out, c.frames, level);
                    case 3:
                        return AP::DownmixChannel_3(p(0), k[0], p(1), k[1], p(2), k[2], out,
                                                    c.frames, level);
                    case 4:
                        return AP::DownmixChannel_4(p(0), k[0], p(1), k[1], p(2), k[2], p(3), k[3],
                                                    out, c.frames, level);
                    default:
                        return AP::DownmixChannel_5(p(0), k[0], p(1), k[1], p(2), k[2], p(3), k[3],
                                                    p(4), k[4], out, c.frames, level);
                }
            },
    });
}

INSTANTIATE_TEST_SUITE_P(Inputs, Downmix, ::testing::Range(1, 6));

// (planes, with volume)
class Interleave : public ::testing::TestWithParam<std::tuple<int, bool>> {};

void RunConvertToDest(PlanesCase& c, bool volume, int level) {
    auto p = [&c](int k) { return c.in[k].As<short>(); };
    short* d = c.out.As<short>();
    const int f = c.frames;
    const short v = c.volume;
    if (volume) {
        switch (c.n) {
            case 1:
                return AP::ConvertToDest_1_Adjust(p(0), v, d, f, level);
            case 2:
                return AP::ConvertToDest_2_Adjust(p(0), p(1), v, d, f, level);
            case 3:
                return AP::ConvertToDest_3_Adjust(p(0), p(1), p(2), v, d, f, level);
            case 4:
                return AP::ConvertToDest_4_Adjust(p(0), p(1), p(2), p(3), v, d, f, level);
            case 5:
                return AP::ConvertToDest_5_Adjust(p(0), p(1), p(2), p(3), p(4), v, d, f, level);
            default:
                return AP::ConvertToDest_6_Adjust(p(0), p(1), p(2), p(3), p(4), p(5), v, d, f,
                                                  level);
        }
    }
    switch (c.n) {
        case 2:
            return AP::ConvertToDest_2(p(0), p(1), d, f, level);
        case 3:
            return AP::ConvertToDest_3(p(0), p(1), p(2), d, f, level);
        case 4:
            return AP::ConvertToDest_4(p(0), p(1), p(2), p(3), d, f, level);
        case 5:
            return AP::ConvertToDest_5(p(0), p(1), p(2), p(3), p(4), d, f, level);
        default:
            return AP::ConvertToDest_6(p(0), p(1), p(2), p(3), p(4), p(5), d, f, level);
    }
}

TEST_P(Interleave, MatchesTwinAtEveryLevel) {
    const auto [n, volume] = GetParam();
    CheckAllLevels<PlanesCase>({
        .name = "ConvertToDest_" + std::to_string(n) + (volume ? "_Adjust" : ""),
        .make = [n](CaseRandom& r) { return MakePlanesCase(r, n, n); },
        .twin =
            [volume](PlanesCase& c) {
                if (volume) {
                    ncb::audio::InterleaveVolume_c(c.Inputs().data(), c.n, c.volume,
                                                   c.out.As<int16_t>(), c.frames);
                } else {
                    ncb::audio::Interleave_c(c.Inputs().data(), c.n, c.out.As<int16_t>(), c.frames);
                }
            },
        .atLevel = [volume](PlanesCase& c, int level) { RunConvertToDest(c, volume, level); },
    });
}

// A single plane without volume has no interleaving function (DirectCopy).
INSTANTIATE_TEST_SUITE_P(PlanesAndVolume, Interleave,
                         ::testing::Values(std::tuple{1, true}, std::tuple{2, false},
                                           std::tuple{2, true}, std::tuple{3, false},
                                           std::tuple{3, true}, std::tuple{4, false},
                                           std::tuple{4, true}, std::tuple{5, false},
                                           std::tuple{5, true}, std::tuple{6, false},
                                           std::tuple{6, true}),
                         [](const auto& info) {
                             return std::to_string(std::get<0>(info.param)) + "planes" +
                                    (std::get<1>(info.param) ? "_volume" : "");
                         });

// The interleaving twin against the layout rule, with a volume that saturates.
TEST(InterleaveLayout, FrameMajorWithSaturatingVolume) {
    const int frames = 3;
    short planes[6][frames];
    for (int c = 0; c < 6; ++c)
        for (int f = 0; f < frames; ++f) planes[c][f] = static_cast<short>(1000 * c + f - 2000);
    short dst[6 * frames];
    AP::ConvertToDest_6_Adjust(planes[0], planes[1], planes[2], planes[3], planes[4], planes[5],
                               8192, dst, frames, 0);
    for (int f = 0; f < frames; ++f)
        for (int c = 0; c < 6; ++c)
            ASSERT_EQ(dst[6 * f + c], std::clamp(planes[c][f] * 32, -32768, 32767));
}

struct MuxCase {
    int frames = 0, channel = 0;
    bool volume = false;
    int16_t factor = 256;
    Plane src, dst;
    std::vector<const Plane*> Planes() const { return {&src, &dst}; }
    std::string Describe() const {
        return "frames " + std::to_string(frames) + (channel ? ", right" : ", left") +
               (volume ? ", volume " + std::to_string(factor) : "");
    }
};

class Mux : public ::testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(Mux, MatchesTwinAtEveryLevel) {
    const auto [channel, volume] = GetParam();
    CheckAllLevels<MuxCase>({
        .name = "ConvertToDest_2Mux",
        .make =
            [channel, volume](CaseRandom& r) {
                MuxCase c;
                c.frames = Frames(r);
                c.channel = channel;
                c.volume = volume;
                c.factor = static_cast<int16_t>(r.Uniform(-2000, 2000));
                c.src = r.MakeSamples<int16_t>(2 * c.frames, "src");
                c.dst = r.MakeSamples<int16_t>(2 * c.frames, "dst");
                return c;
            },
        .twin =
            [](MuxCase& c) {
                if (c.volume) {
                    ncb::audio::Mux2Volume_c(c.src.As<int16_t>(), c.channel, c.factor,
                                             c.dst.As<int16_t>(), c.frames);
                } else {
                    ncb::audio::Mux2_c(c.src.As<int16_t>(), c.channel, c.dst.As<int16_t>(),
                                       c.frames);
                }
            },
        .atLevel =
            [](MuxCase& c, int level) {
                short* s = c.src.As<short>();
                short* d = c.dst.As<short>();
                if (c.volume) {
                    (c.channel
                         ? AP::ConvertToDest_2Mux_Right_Adjust
                         : AP::ConvertToDest_2Mux_Left_Adjust)(s, c.factor, d, c.frames, level);
                } else {
                    (c.channel ? AP::ConvertToDest_2Mux_Right : AP::ConvertToDest_2Mux_Left)(
                        s, d, c.frames, level);
                }
            },
    });
}

INSTANTIATE_TEST_SUITE_P(ChannelAndVolume, Mux,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param) ? "right" : "left") +
                                    (std::get<1>(info.param) ? "_volume" : "");
                         });

}  // namespace
