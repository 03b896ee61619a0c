// Sample conversion of CNAudioProcessor: widening 8- and 24-bit PCM to 16
// bits, de-interleaving, dropping channels that have no speaker, and peaks.
//
// The public functions check counts and channel numbers and hand the work to
// the kernel table of the caller's processor level; the scalar twins below are
// what every level must reproduce bit for bit. The _RemoveExtraChannle
// conversions run scalar at every level: they serve odd layouts (a stream
// with more channels than speakers) where the strided reads would leave a
// vector loop little to gain.
#include <algorithm>
#include <cstring>

#include "audio/kernel_levels.h"
#include "audio/sample_kernels.h"
#include "ncodecbase/audio_processor.h"

namespace ncb::audio {

void Widen8_c(const uint8_t* src, int16_t* dst, int count) {
    for (int i = 0; i < count; ++i) dst[i] = Widen8(src[i]);
}

void Widen24_c(const uint8_t* src, int16_t* dst, int count) {
    for (int i = 0; i < count; ++i) dst[i] = Widen24(src + 3 * i);
}

void DemuxFrames_c(const uint8_t* src, int bytes, int channels, int16_t* dst, int planeFrames,
                   int first, int count) {
    const uint8_t* frame = src + static_cast<ptrdiff_t>(first) * channels * bytes;
    for (int f = first; f < first + count; ++f) {
        for (int c = 0; c < channels; ++c, frame += bytes) {
            dst[static_cast<ptrdiff_t>(c) * planeFrames + f] =
                bytes == 1 ? Widen8(frame[0]) : Widen24(frame);
        }
    }
}

void Demux8_c(const uint8_t* src, int16_t* dst, int frames, int channels) {
    DemuxFrames_c(src, 1, channels, dst, frames, 0, frames);
}

void Demux24_c(const uint8_t* src, int16_t* dst, int frames, int channels) {
    DemuxFrames_c(src, 3, channels, dst, frames, 0, frames);
}

int16_t MaxAbs_c(const int16_t* src, int count, int16_t previous) {
    int16_t peak = previous;
    for (int i = 0; i < count; ++i) peak = std::max(peak, Abs16(src[i]));
    return peak;
}

void MaxAbsStereo_c(const int16_t* src, int frames, int16_t* left, int16_t* right) {
    int16_t l = *left, r = *right;
    for (int i = 0; i < frames; ++i) {
        l = std::max(l, Abs16(src[2 * i]));
        r = std::max(r, Abs16(src[2 * i + 1]));
    }
    *left = l;
    *right = r;
}

const SampleKernels& GetSampleKernels(int level) {
    static const std::array<SampleKernels, kLevelCount> tables = BuildLevelTables<SampleKernels>(
        {Widen8_c, Widen24_c, Demux8_c, Demux24_c, MaxAbs_c, MaxAbsStereo_c},
        FillSampleKernels_sse2, FillSampleKernels_ssse3, nullptr);
    return tables[LevelIndex(level)];
}

namespace {

constexpr int kMinDemuxChannels = 2;
constexpr int kMaxDemuxChannels = 6;

bool DemuxChannelsOk(int channels) {
    return channels >= kMinDemuxChannels && channels <= kMaxDemuxChannels;
}

// Keeps the first `kept` of every kept + extra channels; planar output puts
// channel c at c x frames, interleaved output keeps the frame order.
template <int kBytes>
void RemoveExtra(const uint8_t* src, int16_t* dst, int frames, int kept, int extra, bool planar) {
    if (frames < 1 || kept < 1 || extra < 0) return;
    const ptrdiff_t stride = static_cast<ptrdiff_t>(kept + extra) * kBytes;
    for (int f = 0; f < frames; ++f) {
        const uint8_t* frame = src + f * stride;
        for (int c = 0; c < kept; ++c) {
            const uint8_t* s = frame + c * kBytes;
            int16_t v;
            if constexpr (kBytes == 1) {
                v = Widen8(s[0]);
            } else if constexpr (kBytes == 2) {
                std::memcpy(&v, s, 2);
            } else {
                v = Widen24(s);
            }
            const ptrdiff_t at = planar ? static_cast<ptrdiff_t>(c) * frames + f
                                        : static_cast<ptrdiff_t>(f) * kept + c;
            dst[at] = v;
        }
    }
}

uint8_t* Bytes(unsigned char* p) { return p; }
int16_t* Samples(short* p) { return reinterpret_cast<int16_t*>(p); }

}  // namespace
}  // namespace ncb::audio

using ncb::audio::Bytes;
using ncb::audio::GetSampleKernels;
using ncb::audio::Samples;

void CNAudioProcessor::DirectCopy(unsigned char* src, unsigned char* dst, int bytes, int level) {
    if (bytes > 0) std::memmove(dst, src, static_cast<size_t>(bytes));
}

void CNAudioProcessor::Convert8BitsTo16Bits(unsigned char* src, short* dst, int count, int level) {
    if (count > 0) GetSampleKernels(level).widen8(Bytes(src), Samples(dst), count);
}

void CNAudioProcessor::Convert24BitsTo16Bits(unsigned char* src, short* dst, int count, int level) {
    if (count > 0) GetSampleKernels(level).widen24(Bytes(src), Samples(dst), count);
}

void CNAudioProcessor::Convert8BitsTo16Bits_Demux(unsigned char* src, short* dst, int frames,
                                                  int channels, int level) {
    if (frames > 0 && ncb::audio::DemuxChannelsOk(channels))
        GetSampleKernels(level).demux8(Bytes(src), Samples(dst), frames, channels);
}

void CNAudioProcessor::Convert24BitsTo16Bits_Demux(unsigned char* src, short* dst, int frames,
                                                   int channels, int level) {
    if (frames > 0 && ncb::audio::DemuxChannelsOk(channels))
        GetSampleKernels(level).demux24(Bytes(src), Samples(dst), frames, channels);
}

void CNAudioProcessor::Convert8BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst,
                                                               int frames, int kept, int extra,
                                                               int level) {
    ncb::audio::RemoveExtra<1>(src, Samples(dst), frames, kept, extra, false);
}

void CNAudioProcessor::Convert16BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst,
                                                                int frames, int kept, int extra,
                                                                int level) {
    ncb::audio::RemoveExtra<2>(src, Samples(dst), frames, kept, extra, false);
}

void CNAudioProcessor::Convert24BitsTo16Bits_RemoveExtraChannle(unsigned char* src, short* dst,
                                                                int frames, int kept, int extra,
                                                                int level) {
    ncb::audio::RemoveExtra<3>(src, Samples(dst), frames, kept, extra, false);
}

void CNAudioProcessor::Convert8BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src, short* dst,
                                                                     int frames, int kept,
                                                                     int extra, int level) {
    ncb::audio::RemoveExtra<1>(src, Samples(dst), frames, kept, extra, true);
}

void CNAudioProcessor::Convert16BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src,
                                                                      short* dst, int frames,
                                                                      int kept, int extra,
                                                                      int level) {
    ncb::audio::RemoveExtra<2>(src, Samples(dst), frames, kept, extra, true);
}

void CNAudioProcessor::Convert24BitsTo16Bits_RemoveExtraChannle_Demux(unsigned char* src,
                                                                      short* dst, int frames,
                                                                      int kept, int extra,
                                                                      int level) {
    ncb::audio::RemoveExtra<3>(src, Samples(dst), frames, kept, extra, true);
}

short CNAudioProcessor::CalcMaxAbs(short* src, int count, short previous, int level) {
    if (count < 1) return previous;
    return GetSampleKernels(level).maxAbs(Samples(src), count, previous);
}

void CNAudioProcessor::CalcMaxAbs_Stereo(short* src, int frames, short* maxLeft, short* maxRight,
                                         int level) {
    if (frames < 1) return;
    GetSampleKernels(level).maxAbsStereo(Samples(src), frames, Samples(maxLeft), Samples(maxRight));
}
