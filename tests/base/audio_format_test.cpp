// The audio descriptor's derived quantities and the render's validity rule,
// at the documented boundaries.
#include "base/audio_format.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using ncb::AudioFormatInfo;

AudioFormatInfo Pcm(int channels, int mask, int rate, int bits, int flags = 0) {
    AudioFormatInfo f{};
    f.nStructSize = sizeof(AudioFormatInfo);
    f.nCodecType = AUDIO_TYPE_PCM;
    f.nCodecSubType = AUDIO_FORMAT_PCM;
    f.nChannels = channels;
    f.nSpeakerInfo = mask;
    f.nSampleRate = rate;
    f.nBitsPerSample = bits;
    f.nFormatFlags = flags;
    return f;
}

struct ValidityCase {
    const char* name;
    AudioFormatInfo format;
    bool renderable;
};

class RenderValidity : public ::testing::TestWithParam<ValidityCase> {};

TEST_P(RenderValidity, Rule) {
    EXPECT_EQ(ncb::IsRenderableAudioFormat(GetParam().format), GetParam().renderable);
}

AudioFormatInfo WithCodec(int type, int subType) {
    AudioFormatInfo f = Pcm(2, 3, 48000, 16);
    f.nCodecType = type;
    f.nCodecSubType = subType;
    return f;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RenderValidity,
    ::testing::Values(ValidityCase{"Rate4000", Pcm(2, 3, 4000, 16), true},
                      ValidityCase{"Rate192000", Pcm(2, 3, 192000, 16), true},
                      ValidityCase{"Rate3999", Pcm(2, 3, 3999, 16), false},
                      ValidityCase{"Rate192001", Pcm(2, 3, 192001, 16), false},
                      ValidityCase{"Bits8", Pcm(1, 4, 8000, 8), true},
                      ValidityCase{"Bits24", Pcm(6, 0x3F, 96000, 24), true},
                      ValidityCase{"Bits32", Pcm(2, 3, 48000, 32), false},
                      ValidityCase{"Bits12", Pcm(2, 3, 48000, 12), false},
                      ValidityCase{"SpeakerOnlyAboveBit5", Pcm(1, 0x40, 48000, 16), false},
                      ValidityCase{"NoSpeakers", Pcm(2, 0, 48000, 16), false},
                      ValidityCase{"CompressedFamily", WithCodec(0x100, 1), false},
                      ValidityCase{"NotLinearPcm", WithCodec(0, 2), false},
                      // The channel count is not checked against the mask.
                      ValidityCase{"ChannelsUnchecked", Pcm(0, 3, 48000, 16), true}),
    [](const auto& info) { return std::string(info.param.name); });

struct SpeakerCase {
    int mask;
    int renderSpeakers;
    int converterChannels;
};

class SpeakerCounts : public ::testing::TestWithParam<SpeakerCase> {};

TEST_P(SpeakerCounts, TwoMaskWidths) {
    const SpeakerCase& c = GetParam();
    const AudioFormatInfo f = Pcm(8, c.mask, 48000, 16);
    EXPECT_EQ(ncb::RenderSpeakerCount(f), c.renderSpeakers);
    EXPECT_EQ(ncb::RenderSpeakerMask(f), c.mask & 0x3F);
    EXPECT_EQ(ncb::ConverterChannelCount(c.mask), c.converterChannels);
}

INSTANTIATE_TEST_SUITE_P(Masks, SpeakerCounts,
                         ::testing::Values(SpeakerCase{0x3F, 6, 6}, SpeakerCase{0x60F, 4, 6},
                                           SpeakerCase{0x40, 0, 1}, SpeakerCase{0x3FFFF, 6, 18},
                                           SpeakerCase{0x40000, 0, 0}, SpeakerCase{-1, 6, 18}));

TEST(AudioFormat, ExtraChannelsAreThoseWithoutASpeaker) {
    EXPECT_EQ(ncb::ExtraChannelCount(Pcm(4, 0x3, 48000, 16)), 2);
    EXPECT_EQ(ncb::ExtraChannelCount(Pcm(6, 0x3F, 48000, 16)), 0);
    EXPECT_EQ(ncb::ExtraChannelCount(Pcm(2, 0x60F, 48000, 16)), -2);
}

TEST(AudioFormat, JointStereoNeedsTwoSpeakerChannelsOf16Bits) {
    EXPECT_TRUE(ncb::IsJointStereo(Pcm(2, 3, 48000, 16, AUDIO_FLAG_JOINT_STEREO)));
    EXPECT_FALSE(ncb::IsJointStereo(Pcm(2, 3, 48000, 16)));
    EXPECT_FALSE(ncb::IsJointStereo(Pcm(2, 3, 48000, 24, AUDIO_FLAG_JOINT_STEREO)));
    EXPECT_FALSE(ncb::IsJointStereo(Pcm(3, 3, 48000, 16, AUDIO_FLAG_JOINT_STEREO)));
    EXPECT_FALSE(ncb::IsJointStereo(Pcm(2, 0x41, 48000, 16, AUDIO_FLAG_JOINT_STEREO)));
    EXPECT_TRUE(ncb::IsJointStereo(Pcm(2, 0x44 | 0x1, 48000, 16, AUDIO_FLAG_JOINT_STEREO)));
}

TEST(AudioFormat, WorkingRateIsAMultipleOf25) {
    EXPECT_EQ(ncb::WorkingSampleRate(Pcm(2, 3, 44100, 16)), 44100);
    EXPECT_EQ(ncb::WorkingSampleRate(Pcm(2, 3, 44124, 16)), 44100);
    EXPECT_EQ(ncb::WorkingSampleRate(Pcm(2, 3, 4024, 16)), 4000);
    EXPECT_EQ(ncb::WorkingSampleRate(Pcm(2, 3, 11025, 16)), 11025);
}

TEST(AudioFormat, SampleDataBytes) {
    int bytes = 0;
    ASSERT_TRUE(ncb::SampleDataBytes(Pcm(6, 0x3F, 48000, 24), 1000, &bytes));
    EXPECT_EQ(bytes, 18000);
    ASSERT_TRUE(ncb::SampleDataBytes(Pcm(1, 4, 8000, 8), 7, &bytes));
    EXPECT_EQ(bytes, 7);
    EXPECT_EQ(ncb::SampleBytes(Pcm(2, 3, 48000, 16)), 2);
    bytes = 123;
    EXPECT_FALSE(ncb::SampleDataBytes(Pcm(2, 3, 48000, 16), -1, &bytes));
    EXPECT_FALSE(ncb::SampleDataBytes(Pcm(8, 0xFF, 48000, 24), INT_MAX, &bytes));
    EXPECT_FALSE(ncb::SampleDataBytes(Pcm(-2, 3, 48000, 16), 10, &bytes));
    EXPECT_EQ(bytes, 123);
}

}  // namespace
