// Derived quantities of AudioFormatInfoTag that the audio render, the sample
// converter and the speaker converter share: speaker counts over the two mask
// widths in use, extra channels, joint stereo, the render's working rate, the
// render's validity rule and sample byte sizes.
//
// Pure functions of the descriptor; nothing is allocated or kept.
#pragma once

#include <cstdint>

#include "ncodecbase/codec_base.h"

namespace ncb {

using AudioFormatInfo = CNCodecBase::AudioFormatInfoTag;

inline constexpr int kMinRenderSampleRate = 4000;
inline constexpr int kMaxRenderSampleRate = 192000;
// The render works in units of 1/25 s.
inline constexpr int kRenderRateUnit = 25;

// Speakers the render plays: set bits among bits 0-5 of nSpeakerInfo.
int RenderSpeakerCount(const AudioFormatInfo& f);
// The mask the render hands to the sound device.
int RenderSpeakerMask(const AudioFormatInfo& f);
// Channels of a layout as the speaker converter counts them: bits 0-17.
int ConverterChannelCount(int speakerInfo);
// Trailing channels without a render speaker (nChannels - speakers); may be
// negative when the mask names more speakers than the data carries.
int ExtraChannelCount(const AudioFormatInfo& f);
// Two speaker channels, no extras, 16 bits and the joint-stereo flag.
bool IsJointStereo(const AudioFormatInfo& f);
// nSampleRate rounded down to a multiple of 25.
int WorkingSampleRate(const AudioFormatInfo& f);
// The render's validity rule: linear PCM, rate 4000..192000, 8/16/24 bits,
// at least one speaker in bits 0-5. nChannels is not looked at.
bool IsRenderableAudioFormat(const AudioFormatInfo& f);
// Bytes per sample of one channel (nBitsPerSample / 8).
int SampleBytes(const AudioFormatInfo& f);
// Bytes of `frames` sample frames: frames x nChannels x nBitsPerSample / 8;
// false for negative counts or a size beyond int.
bool SampleDataBytes(const AudioFormatInfo& f, int frames, int* bytes);

}  // namespace ncb
