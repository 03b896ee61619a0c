// Down-mix and interleaving of CNAudioProcessor: the public functions, the
// scalar twins and the kernel tables. The public functions gather their plane
// arguments into arrays so that one kernel per shape serves every arity.
#include "audio/channel_mix.h"

#include "audio/kernel_levels.h"
#include "ncodecbase/audio_processor.h"

namespace ncb::audio {

void DownmixTail_c(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int first,
                   int frames) {
    for (int i = first; i < frames; ++i) {
        uint32_t sum = 0;  // wraps like the vector multiply-add
        for (int k = 0; k < n; ++k) sum += static_cast<uint32_t>(int32_t{in[k][i]} * coef[k]);
        out[i] = Saturate16(static_cast<int32_t>(sum) >> 14);
    }
}

void Downmix_c(const int16_t* const* in, const int16_t* coef, int n, int16_t* out, int frames) {
    DownmixTail_c(in, coef, n, out, 0, frames);
}

void InterleaveTail_c(const int16_t* const* planes, int n, bool volume, int16_t volumeFactor,
                      int16_t* dst, int first, int frames) {
    for (int i = first; i < frames; ++i) {
        for (int c = 0; c < n; ++c) {
            const int16_t v = planes[c][i];
            dst[n * i + c] = volume ? ApplyVolume(v, volumeFactor) : v;
        }
    }
}

void Interleave_c(const int16_t* const* planes, int n, int16_t* dst, int frames) {
    InterleaveTail_c(planes, n, false, 0, dst, 0, frames);
}

void InterleaveVolume_c(const int16_t* const* planes, int n, int16_t volume, int16_t* dst,
                        int frames) {
    InterleaveTail_c(planes, n, true, volume, dst, 0, frames);
}

void Mux2_c(const int16_t* src, int channel, int16_t* dst, int frames) {
    for (int i = 0; i < frames; ++i) dst[2 * i] = dst[2 * i + 1] = src[2 * i + channel];
}

void Mux2Volume_c(const int16_t* src, int channel, int16_t volume, int16_t* dst, int frames) {
    for (int i = 0; i < frames; ++i)
        dst[2 * i] = dst[2 * i + 1] = ApplyVolume(src[2 * i + channel], volume);
}

const MixKernels& GetMixKernels(int level) {
    static const std::array<MixKernels, kLevelCount> tables = BuildLevelTables<MixKernels>(
        {Downmix_c, Interleave_c, InterleaveVolume_c, Mux2_c, Mux2Volume_c}, FillMixKernels_sse2,
        FillMixKernels_ssse3, nullptr);
    return tables[LevelIndex(level)];
}

namespace {

using Plane = const int16_t*;

int16_t* Out(short* p) { return reinterpret_cast<int16_t*>(p); }
Plane In(short* p) { return reinterpret_cast<Plane>(p); }

template <int N>
void Downmix(const Plane (&in)[N], const int16_t (&coef)[N], short* out, int frames, int level) {
    if (frames > 0) GetMixKernels(level).downmix(in, coef, N, Out(out), frames);
}

template <int N>
void Interleave(const Plane (&planes)[N], short* dst, int frames, int level) {
    if (frames > 0) GetMixKernels(level).interleave(planes, N, Out(dst), frames);
}

template <int N>
void InterleaveVolume(const Plane (&planes)[N], short volume, short* dst, int frames, int level) {
    if (frames > 0) GetMixKernels(level).interleaveVolume(planes, N, volume, Out(dst), frames);
}

}  // namespace
}  // namespace ncb::audio

using ncb::audio::In;

void CNAudioProcessor::DownmixChannel_1(short* in1, short c1, short* out, int frames, int level) {
    ncb::audio::Downmix<1>({In(in1)}, {c1}, out, frames, level);
}

void CNAudioProcessor::DownmixChannel_2(short* in1, short c1, short* in2, short c2, short* out,
                                        int frames, int level) {
    ncb::audio::Downmix<2>({In(in1), In(in2)}, {c1, c2}, out, frames, level);
}

void CNAudioProcessor::DownmixChannel_3(short* in1, short c1, short* in2, short c2, short* in3,
                                        short c3, short* out, int frames, int level) {
    ncb::audio::Downmix<3>({In(in1), In(in2), In(in3)}, {c1, c2, c3}, out, frames, level);
}

void CNAudioProcessor::DownmixChannel_4(short* in1, short c1, short* in2, short c2, short* in3,
                                        short c3, short* in4, short c4, short* out, int frames,
                                        int level) {
    ncb::audio::Downmix<4>({In(in1), In(in2), In(in3), In(in4)}, {c1, c2, c3, c4}, out, frames,
                           level);
}

void CNAudioProcessor::DownmixChannel_5(short* in1, short c1, short* in2, short c2, short* in3,
                                        short c3, short* in4, short c4, short* in5, short c5,
                                        short* out, int frames, int level) {
    ncb::audio::Downmix<5>({In(in1), In(in2), In(in3), In(in4), In(in5)}, {c1, c2, c3, c4, c5}, out,
                           frames, level);
}

void CNAudioProcessor::ConvertToDest_2(short* ch0, short* ch1, short* dst, int frames, int level) {
    ncb::audio::Interleave<2>({In(ch0), In(ch1)}, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_3(short* ch0, short* ch1, short* ch2, short* dst, int frames,
                                       int level) {
    ncb::audio::Interleave<3>({In(ch0), In(ch1), In(ch2)}, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_4(short* ch0, short* ch1, short* ch2, short* ch3, short* dst,
                                       int frames, int level) {
    ncb::audio::Interleave<4>({In(ch0), In(ch1), In(ch2), In(ch3)}, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_5(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                       short* dst, int frames, int level) {
    ncb::audio::Interleave<5>({In(ch0), In(ch1), In(ch2), In(ch3), In(ch4)}, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_6(short* ch0, short* ch1, short* ch2, short* ch3, short* ch4,
                                       short* ch5, short* dst, int frames, int level) {
    ncb::audio::Interleave<6>({In(ch0), In(ch1), In(ch2), In(ch3), In(ch4), In(ch5)}, dst, frames,
                              level);
}

void CNAudioProcessor::ConvertToDest_1_Adjust(short* src, short volume, short* dst, int frames,
                                              int level) {
    ncb::audio::InterleaveVolume<1>({In(src)}, volume, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_2_Adjust(short* ch0, short* ch1, short volume, short* dst,
                                              int frames, int level) {
    ncb::audio::InterleaveVolume<2>({In(ch0), In(ch1)}, volume, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_3_Adjust(short* ch0, short* ch1, short* ch2, short volume,
                                              short* dst, int frames, int level) {
    ncb::audio::InterleaveVolume<3>({In(ch0), In(ch1), In(ch2)}, volume, dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_4_Adjust(short* ch0, short* ch1, short* ch2, short* ch3,
                                              short volume, short* dst, int frames, int level) {
    ncb::audio::InterleaveVolume<4>({In(ch0), In(ch1), In(ch2), In(ch3)}, volume, dst, frames,
                                    level);
}

void CNAudioProcessor::ConvertToDest_5_Adjust(short* ch0, short* ch1, short* ch2, short* ch3,
                                              short* ch4, short volume, short* dst, int frames,
                                              int level) {
    ncb::audio::InterleaveVolume<5>({In(ch0), In(ch1), In(ch2), In(ch3), In(ch4)}, volume, dst,
                                    frames, level);
}

void CNAudioProcessor::ConvertToDest_6_Adjust(short* ch0, short* ch1, short* ch2, short* ch3,
                                              short* ch4, short* ch5, short volume, short* dst,
                                              int frames, int level) {
    ncb::audio::InterleaveVolume<6>({In(ch0), In(ch1), In(ch2), In(ch3), In(ch4), In(ch5)}, volume,
                                    dst, frames, level);
}

void CNAudioProcessor::ConvertToDest_2Mux_Left(short* src, short* dst, int frames, int level) {
    if (frames > 0) ncb::audio::GetMixKernels(level).mux2(In(src), 0, ncb::audio::Out(dst), frames);
}

void CNAudioProcessor::ConvertToDest_2Mux_Right(short* src, short* dst, int frames, int level) {
    if (frames > 0) ncb::audio::GetMixKernels(level).mux2(In(src), 1, ncb::audio::Out(dst), frames);
}

void CNAudioProcessor::ConvertToDest_2Mux_Left_Adjust(short* src, short volume, short* dst,
                                                      int frames, int level) {
    if (frames > 0)
        ncb::audio::GetMixKernels(level).mux2Volume(In(src), 0, volume, ncb::audio::Out(dst),
                                                    frames);
}

void CNAudioProcessor::ConvertToDest_2Mux_Right_Adjust(short* src, short volume, short* dst,
                                                       int frames, int level) {
    if (frames > 0)
        ncb::audio::GetMixKernels(level).mux2Volume(In(src), 1, volume, ncb::audio::Out(dst),
                                                    frames);
}
