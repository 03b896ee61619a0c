// Speaker converter: rules (slots, limits, duplicates, removal), output
// formats, pass-through, conversion of every input shape against a plain
// reading of the rule and against sox's remix, the buffer words that travel
// along, failures without leaks, and assignment.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "ncodecbase/audio_speaker_convert.h"
#include "platform/kernel/fault.h"
#include "tests/audio/signal_util.h"
#include "tests/audio/sox_util.h"

namespace {

using Format = CNCodecBase::AudioFormatInfoTag;
using Rule = CNAudioSpeakerConvert::SpeakerMappingRuleTag;
namespace sig = ncbtest::audio;

struct BufferDeleter {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, BufferDeleter>;

Format Pcm(int channels, int mask, int bits, int rate = 48000) {
    Format f{};
    f.nStructSize = sizeof f;
    f.nCodecType = AUDIO_TYPE_PCM;
    f.nCodecSubType = AUDIO_FORMAT_PCM;
    f.nChannels = channels;
    f.nSpeakerInfo = mask;
    f.nSampleRate = rate;
    f.nBitsPerSample = bits;
    f.nBitsPerSampleEx = bits;
    f.nReserved13 = 1313;  // words the converter does not know travel too
    return f;
}

// A buffer of raw bytes with frames as user data.
BufferPtr AudioBuffer(const void* bytes, int size, int frames, bool interleaved) {
    BufferPtr b(CNCodecBuffer::CreateBuffer());
    std::memcpy(b->Allocate(size, 16, 0), bytes, size);
    b->SetDataSize(size);
    b->SetBufferUserData(frames);
    b->SetBufferFlag(0x4000 | (interleaved ? AUDIO_BUFFER_FLAG_INTERLEAVED : 0));
    b->SetTimeStamp(0xFFFFFF00u);
    b->SetBufferId(77);
    b->SetBufferFlagEx(5);
    b->SetBufferUserDataEx(6);
    b->SetBufferFlagEx2(7);
    b->SetBufferUserDataEx2(8);
    return b;
}

std::vector<int16_t> Plane(CNCodecBuffer* b, int plane, int frames) {
    const auto* p = static_cast<const int16_t*>(b->GetAddress()) + plane * frames;
    return {p, p + frames};
}

// 5.1 to stereo: left = L + 0.7071 C + 0.7071 BL, right = R + 0.7071 C + 0.7071 BR.
constexpr int k51 = 0x3F;
const std::array<short, 12> kFoldDown = {16384, 0,     11585, 0, 11585, 0,
                                         0,     16384, 11585, 0, 0,     11585};

class SpeakerConvert : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(conv.Init(), 1); }
    CNAudioSpeakerConvert conv;
};

TEST_F(SpeakerConvert, ChannelCountsUseEighteenBits) {
    EXPECT_EQ(CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(0x3F), 6);
    EXPECT_EQ(CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(0x60F), 6);
    EXPECT_EQ(CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(0x3FFFF), 18);
    EXPECT_EQ(CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(0x7FFFFFFF), 18);
    EXPECT_EQ(CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(0x40), 1);
}

TEST_F(SpeakerConvert, NoRulePassesBuffersThrough) {
    Format in = Pcm(2, 0x3, 24), out{};
    ASSERT_EQ(conv.Open(&in, &out), 1);
    EXPECT_EQ(std::memcmp(&in, &out, sizeof in), 0);
    const uint8_t bytes[12] = {};
    BufferPtr b = AudioBuffer(bytes, 12, 2, true);
    CNCodecBuffer* got = conv.ConvertOneFrame(b.get());
    EXPECT_EQ(got, b.get());
    EXPECT_EQ(b->GetRefCount(), 2);
    got->Release();
}

TEST_F(SpeakerConvert, FoldDownRuleSlotsAndOutputFormat) {
    short coefs[12];
    std::copy(kFoldDown.begin(), kFoldDown.end(), coefs);
    ASSERT_EQ(conv.AddMappingRule(k51, 0x3, coefs), 1);
    Format in = Pcm(6, k51, 24), out{};
    ASSERT_EQ(conv.Open(&in, &out), 1);
    EXPECT_EQ(out.nChannels, 2);
    EXPECT_EQ(out.nSpeakerInfo, 0x3);
    EXPECT_EQ(out.nBitsPerSample, 16);
    EXPECT_EQ(out.nBitsPerSampleEx, 16);
    EXPECT_EQ(out.nSampleRate, 48000);
    EXPECT_EQ(out.nReserved13, 1313);
    // 16-bit input keeps its width words as they were.
    Format in16 = Pcm(6, k51, 16), out16{};
    in16.nBitsPerSampleEx = 99;
    conv.FormatChange(&in16, &out16);
    EXPECT_EQ(out16.nBitsPerSampleEx, 99);
}

TEST_F(SpeakerConvert, RuleLimitsAndDuplicates) {
    short six[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(conv.AddMappingRule(k51, 0x4, six), 0);  // six contributors for one output
    short five[6] = {1, 2, 0, 4, 5, 6};
    EXPECT_EQ(conv.AddMappingRule(k51, 0x4, five), 1);
    EXPECT_EQ(conv.AddMappingRule(k51, 0x4, five), 0);  // the mask has a rule already
    EXPECT_EQ(conv.RemoveMappingRule(0x3), 0);
    EXPECT_EQ(conv.RemoveMappingRule(k51), 1);
    EXPECT_EQ(conv.AddMappingRule(k51, 0x4, five), 1);
    // Out of memory inside the list: refused, and the list is unchanged.
    {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0, 100);
        EXPECT_EQ(conv.AddMappingRule(0x3, 0x4, five), 0);
    }
    EXPECT_EQ(conv.RemoveMappingRule(0x3), 0);
    EXPECT_EQ(conv.AddMappingRule(0x3, 0x4, five), 1);
}

// (bits, interleaved): every input shape through the fold-down rule, against
// the rule read plainly: out = saturate((sum in x c) >> 14).
class FoldDown : public SpeakerConvert,
                 public ::testing::WithParamInterface<std::tuple<int, bool>> {};

TEST_P(FoldDown, EveryInputShape) {
    const auto [bits, interleaved] = GetParam();
    short coefs[12];
    std::copy(kFoldDown.begin(), kFoldDown.end(), coefs);
    ASSERT_EQ(conv.AddMappingRule(k51, 0x3, coefs), 1);
    Format in = Pcm(6, k51, bits), out{};
    conv.Open(&in, &out);
    for (int frames : {1, 15, 16, 333}) {
        // Channel values as 16-bit samples; bytes built for the width.
        std::vector<std::vector<int16_t>> ch(6, std::vector<int16_t>(frames));
        for (int c = 0; c < 6; ++c)
            ch[c] = sig::Tone(frames, 300.0 * (c + 1), 48000, c == 2 ? 32767 : 20000);
        const int bytesPer = bits / 8;
        std::vector<uint8_t> raw(static_cast<size_t>(frames) * 6 * bytesPer);
        for (int f = 0; f < frames; ++f)
            for (int c = 0; c < 6; ++c) {
                const size_t at =
                    static_cast<size_t>(interleaved ? f * 6 + c : c * frames + f) * bytesPer;
                const uint16_t v = static_cast<uint16_t>(ch[c][f]);
                if (bits == 8) {
                    ch[c][f] = static_cast<int16_t>(v & 0xFF00);  // what 8 bits can carry
                    raw[at] = static_cast<uint8_t>(v >> 8);
                } else if (bits == 16) {
                    raw[at] = static_cast<uint8_t>(v);
                    raw[at + 1] = static_cast<uint8_t>(v >> 8);
                } else {
                    raw[at] = 0xA5;  // the dropped low byte
                    raw[at + 1] = static_cast<uint8_t>(v);
                    raw[at + 2] = static_cast<uint8_t>(v >> 8);
                }
            }
        BufferPtr b = AudioBuffer(raw.data(), static_cast<int>(raw.size()), frames, interleaved);
        BufferPtr o(conv.ConvertOneFrame(b.get()));
        ASSERT_NE(o, nullptr);
        ASSERT_NE(o.get(), b.get());
        EXPECT_EQ(b->GetRefCount(), 1);
        EXPECT_EQ(o->GetDataSize(), 2 * frames * 2);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(o->GetAddress()) % 16, 0u);
        for (int side = 0; side < 2; ++side) {
            const std::vector<int16_t> got = Plane(o.get(), side, frames);
            for (int f = 0; f < frames; ++f) {
                const int32_t sum =
                    ch[side][f] * 16384 + ch[2][f] * 11585 + ch[4 + side][f] * 11585;
                ASSERT_EQ(got[f], std::clamp(sum >> 14, -32768, 32767))
                    << "frames " << frames << ", side " << side << ", frame " << f;
            }
        }
        // The words that travel along; the output is planar.
        EXPECT_EQ(o->GetBufferUserData(), frames);
        EXPECT_EQ(o->GetTimeStamp(), 0xFFFFFF00u);
        EXPECT_EQ(o->GetBufferId(), 77);
        EXPECT_EQ(o->GetBufferFlag(), 0x4000);
        EXPECT_EQ(o->GetBufferFlagEx(), 5);
        EXPECT_EQ(o->GetBufferUserDataEx(), 6);
        EXPECT_EQ(o->GetBufferFlagEx2(), 7);
        EXPECT_EQ(o->GetBufferUserDataEx2(), 8);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, FoldDown,
                         ::testing::Combine(::testing::Values(8, 16, 24), ::testing::Bool()),
                         [](const auto& info) {
                             return std::to_string(std::get<0>(info.param)) + "bit_" +
                                    (std::get<1>(info.param) ? "interleaved" : "planar");
                         });

TEST_F(SpeakerConvert, InterleavedStereo24ToMono) {
    short coefs[2] = {8192, 8192};
    ASSERT_EQ(conv.AddMappingRule(0x3, 0x4, coefs), 1);
    Format in = Pcm(2, 0x3, 24), out{};
    conv.Open(&in, &out);
    EXPECT_EQ(out.nBitsPerSample, 16);
    EXPECT_EQ(out.nChannels, 1);
    // Frames (1000, 3000), (-1000, -3001): means 2000 and -2001.
    const uint8_t raw[12] = {0, 0xE8, 0x03, 0, 0xB8, 0x0B, 0, 0x18, 0xFC, 0, 0x47, 0xF4};
    BufferPtr b = AudioBuffer(raw, 12, 2, true);
    BufferPtr o(conv.ConvertOneFrame(b.get()));
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Plane(o.get(), 0, 2), (std::vector<int16_t>{2000, -2001}));
    EXPECT_EQ(o->GetBufferFlag() & AUDIO_BUFFER_FLAG_INTERLEAVED, 0);
}

TEST_F(SpeakerConvert, SilentRowAndEmptyBuffers) {
    // Three outputs from stereo: left, nothing, right.
    short coefs[6] = {16384, 0, 0, 0, 0, 16384};
    ASSERT_EQ(conv.AddMappingRule(0x3, 0x7, coefs), 1);
    Format in = Pcm(2, 0x3, 16), out{};
    conv.Open(&in, &out);
    EXPECT_EQ(out.nChannels, 3);
    std::vector<int16_t> planar = {1, 2, 3, 4, 5, 6, 7, 8};  // L 1-4, R 5-8
    BufferPtr b = AudioBuffer(planar.data(), 16, 4, false);
    BufferPtr o(conv.ConvertOneFrame(b.get()));
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Plane(o.get(), 0, 4), (std::vector<int16_t>{1, 2, 3, 4}));
    EXPECT_EQ(Plane(o.get(), 1, 4), (std::vector<int16_t>{0, 0, 0, 0}));
    EXPECT_EQ(Plane(o.get(), 2, 4), (std::vector<int16_t>{5, 6, 7, 8}));
    // User data 0: the input comes back with one more reference.
    b->SetBufferUserData(0);
    CNCodecBuffer* same = conv.ConvertOneFrame(b.get());
    EXPECT_EQ(same, b.get());
    EXPECT_EQ(b->GetRefCount(), 2);
    same->Release();
    EXPECT_EQ(conv.ConvertOneFrame(nullptr), nullptr);
}

TEST_F(SpeakerConvert, FailuresLeaveTheInputUntouched) {
    short coefs[12];
    std::copy(kFoldDown.begin(), kFoldDown.end(), coefs);
    ASSERT_EQ(conv.AddMappingRule(k51, 0x3, coefs), 1);
    Format in = Pcm(6, k51, 24), out{};
    conv.Open(&in, &out);
    std::vector<uint8_t> raw(6 * 3 * 32, 0x11);
    BufferPtr b = AudioBuffer(raw.data(), static_cast<int>(raw.size()), 32, true);
    // Scratch planes, the new buffer, its memory: each failure gives null.
    for (int skip = 0; skip < 3; ++skip) {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
        EXPECT_EQ(conv.ConvertOneFrame(b.get()), nullptr) << "allocation " << skip;
        EXPECT_EQ(b->GetRefCount(), 1);
    }
    // Shorter data than the format says.
    b->SetBufferUserData(33);
    EXPECT_EQ(conv.ConvertOneFrame(b.get()), nullptr);
    b->SetBufferUserData(32);
    BufferPtr o(conv.ConvertOneFrame(b.get()));
    EXPECT_NE(o, nullptr);
}

TEST_F(SpeakerConvert, SelectionIsFixedAtOpen) {
    short up[2] = {16384, 16384};  // mono to stereo
    ASSERT_EQ(conv.AddMappingRule(0x4, 0x3, up), 1);
    Format in = Pcm(1, 0x4, 16), out{};
    conv.Open(&in, &out);
    // Removing and replacing the rule while open does not change the stream.
    conv.RemoveMappingRule(0x4);
    short quiet[2] = {0, 4096};
    conv.AddMappingRule(0x4, 0x3, quiet);
    const int16_t samples[2] = {400, -400};
    BufferPtr b = AudioBuffer(samples, 4, 2, false);
    BufferPtr o(conv.ConvertOneFrame(b.get()));
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Plane(o.get(), 0, 2), (std::vector<int16_t>{400, -400}));
    // The next FormatChange picks the new rule.
    conv.FormatChange(&in, &out);
    BufferPtr o2(conv.ConvertOneFrame(b.get()));
    EXPECT_EQ(Plane(o2.get(), 0, 2), (std::vector<int16_t>{0, 0}));
    EXPECT_EQ(Plane(o2.get(), 1, 2), (std::vector<int16_t>{100, -100}));
    conv.Close();
    conv.Uninit();
    EXPECT_EQ(conv.RemoveMappingRule(0x4), 0);
}

TEST_F(SpeakerConvert, AssignmentCopiesRulesSelectionAndFormats) {
    short up[2] = {16384, 8192};
    ASSERT_EQ(conv.AddMappingRule(0x4, 0x3, up), 1);
    Format in = Pcm(1, 0x4, 16), out{};
    conv.Open(&in, &out);
    CNAudioSpeakerConvert copy;
    copy = conv;
    conv.Uninit();  // the copy owns its own list
    const int16_t samples[1] = {1000};
    BufferPtr b = AudioBuffer(samples, 2, 1, false);
    BufferPtr o(copy.ConvertOneFrame(b.get()));
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(Plane(o.get(), 1, 1), (std::vector<int16_t>{500}));
    EXPECT_EQ(copy.AddMappingRule(0x4, 0x3, up), 0);  // the rule came along
    // An assignment that runs out of memory leaves the target as it was.
    CNAudioSpeakerConvert target;
    ASSERT_EQ(target.Init(), 1);
    short other[2] = {1, 1};
    target.AddMappingRule(0x8, 0x3, other);
    {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, 0, 100);
        target = copy;
    }
    EXPECT_EQ(target.AddMappingRule(0x8, 0x3, other), 0);  // still its own rule
    EXPECT_EQ(target.RemoveMappingRule(0x4), 0);
}

// sox's remix computes the same fold-down in floating point with rounding;
// ours floors after the Q14 sum, so the two differ by at most one step.
TEST_F(SpeakerConvert, FoldDownAgreesWithSoxRemix) {
    if (!sig::SoxAvailable()) GTEST_SKIP() << "sox is not installed";
    short coefs[12];
    std::copy(kFoldDown.begin(), kFoldDown.end(), coefs);
    ASSERT_EQ(conv.AddMappingRule(k51, 0x3, coefs), 1);
    Format in = Pcm(6, k51, 16), out{};
    conv.Open(&in, &out);
    const int frames = 4800;
    std::vector<int16_t> interleaved(frames * 6);
    for (int c = 0; c < 6; ++c) {
        const std::vector<int16_t> t = sig::Tone(frames, 200.0 + 170 * c, 48000, 9000);
        for (int f = 0; f < frames; ++f) interleaved[f * 6 + c] = t[f];
    }
    BufferPtr b = AudioBuffer(interleaved.data(), frames * 12, frames, true);
    BufferPtr o(conv.ConvertOneFrame(b.get()));
    ASSERT_NE(o, nullptr);

    const std::string src = sig::ScratchPath("in.raw"), dst = sig::ScratchPath("out.raw");
    sig::WriteRaw(src, interleaved);
    const double g = 11585.0 / 16384.0;
    const std::string command = "sox -D " + sig::RawFormat(48000, 6) + " " + src + " " +
                                sig::RawFormat(48000, 2) + " " + dst + " remix 1,3v" +
                                std::to_string(g) + ",5v" + std::to_string(g) + " 2,3v" +
                                std::to_string(g) + ",6v" + std::to_string(g);
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    const std::vector<int16_t> sox = sig::ReadRaw(dst);
    std::filesystem::remove(src);
    std::filesystem::remove(dst);
    ASSERT_EQ(sox.size(), static_cast<size_t>(frames * 2));
    int worst = 0;
    for (int side = 0; side < 2; ++side) {
        const std::vector<int16_t> ours = Plane(o.get(), side, frames);
        for (int f = 0; f < frames; ++f)
            worst = std::max(worst, std::abs(ours[f] - sox[f * 2 + side]));
    }
    EXPECT_LE(worst, 1);
}

}  // namespace
