// Audio descriptor arithmetic. Two speaker-mask widths coexist on purpose:
// the render only knows the six positions of 5.1 (and hands exactly those to
// the device), while the speaker converter keys its rules on all eighteen
// positions of the channel-mask standard. Keeping both counts here stops the
// two from drifting apart.
#include "base/audio_format.h"

#include <bit>

#include "base/checked_size.h"

namespace ncb {

int RenderSpeakerMask(const AudioFormatInfo& f) {
    return f.nSpeakerInfo & AUDIO_SPEAKER_MASK_RENDER;
}

int RenderSpeakerCount(const AudioFormatInfo& f) {
    return std::popcount(static_cast<uint32_t>(RenderSpeakerMask(f)));
}

int ConverterChannelCount(int speakerInfo) {
    return std::popcount(static_cast<uint32_t>(speakerInfo & AUDIO_SPEAKER_MASK_ALL));
}

int ExtraChannelCount(const AudioFormatInfo& f) { return f.nChannels - RenderSpeakerCount(f); }

bool IsJointStereo(const AudioFormatInfo& f) {
    return RenderSpeakerCount(f) == 2 && ExtraChannelCount(f) == 0 && f.nBitsPerSample == 16 &&
           (f.nFormatFlags & AUDIO_FLAG_JOINT_STEREO) != 0;
}

// Rounds toward zero like the render's integer division; rates are positive
// once the validity rule has passed.
int WorkingSampleRate(const AudioFormatInfo& f) {
    return f.nSampleRate / kRenderRateUnit * kRenderRateUnit;
}

bool IsRenderableAudioFormat(const AudioFormatInfo& f) {
    if (f.nCodecType != AUDIO_TYPE_PCM || f.nCodecSubType != AUDIO_FORMAT_PCM) return false;
    if (f.nSampleRate < kMinRenderSampleRate || f.nSampleRate > kMaxRenderSampleRate) return false;
    if (f.nBitsPerSample != 8 && f.nBitsPerSample != 16 && f.nBitsPerSample != 24) return false;
    return RenderSpeakerMask(f) != 0;
}

int SampleBytes(const AudioFormatInfo& f) { return f.nBitsPerSample / 8; }

bool SampleDataBytes(const AudioFormatInfo& f, int frames, int* bytes) {
    if (frames < 0 || f.nChannels < 0 || f.nBitsPerSample < 0) return false;
    int64_t bits;
    if (!CheckedMul<int64_t>(frames, f.nChannels, &bits) ||
        !CheckedMul<int64_t>(bits, f.nBitsPerSample, &bits)) {
        return false;
    }
    const int64_t size = bits / 8;
    if (!FitsBufferSize(size)) return false;
    *bytes = static_cast<int>(size);
    return true;
}

}  // namespace ncb
