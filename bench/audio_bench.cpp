// audio/*: 60 s of stereo at 44.1 kHz through our resampler, tempo changer,
// equalizer and speaker down-mix, beside the libraries a host would otherwise
// pick: speexdsp (quality 4 and 10) and soxr (medium and high quality) for
// 44.1 -> 48 kHz, SoundTouch for tempo 1.25x and 0.8x.
//
// Every implementation gets the same input in the same 4096-frame pieces, as
// a player feeds them, and is created and flushed inside the timed loop. The
// resamplers' quality is printed beside their time as counters: the SNR of a
// three-tone signal per channel (a joint least-squares fit of the tones with
// free gain and phase, so delay and passband gain do not count; what is left
// is noise, aliasing and distortion). Our filter is fixed to the bit, so its
// SNR is what it is; speed comes from the kernels.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

#include "base/processor_level.h"
#include "ncodecbase/audio_processor.h"
#include "ncodecbase/audio_speaker_convert.h"

#if defined(NCB_BENCH_AUDIO_RIVALS)
#include <SoundTouch.h>
#include <soxr.h>
#include <speex/speex_resampler.h>
#endif

namespace {

using AP = CNAudioProcessor;

constexpr int kRate = 44100;
constexpr int kSeconds = 60;
constexpr int kFrames = kRate * kSeconds;
constexpr int kPiece = 4096;
constexpr double kTones[2][3] = {{440, 3000, 12000}, {660, 5000, 15500}};
constexpr double kAmplitude = 6000;

const std::vector<int16_t>& Input() {
    static const std::vector<int16_t> samples = [] {
        std::vector<int16_t> s(2 * static_cast<size_t>(kFrames));
        for (int i = 0; i < kFrames; ++i)
            for (int c = 0; c < 2; ++c) {
                double v = 0;
                for (double f : kTones[c])
                    v += kAmplitude * std::sin(2 * std::numbers::pi * f * i / kRate + c);
                s[2 * static_cast<size_t>(i) + c] = static_cast<int16_t>(std::lround(v));
            }
        return s;
    }();
    return samples;
}

// SNR of channel c of an interleaved stereo output at `rate`: the tones fitted
// jointly (free gain and phase) over one second from the middle.
double ToneSnr(const std::vector<int16_t>& out, int rate, int c) {
    const size_t frames = out.size() / 2;
    if (frames < static_cast<size_t>(3 * rate)) return 0;
    const size_t first = frames / 2, count = static_cast<size_t>(rate);
    constexpr int K = 7;
    double m[K][K] = {}, r[K] = {};
    auto basis = [&](size_t n, double* b) {
        for (int t = 0; t < 3; ++t) {
            const double w = 2 * std::numbers::pi * kTones[c][t] / rate * static_cast<double>(n);
            b[2 * t] = std::cos(w);
            b[2 * t + 1] = std::sin(w);
        }
        b[6] = 1;
    };
    for (size_t n = first; n < first + count; ++n) {
        double b[K];
        basis(n, b);
        const double y = out[2 * n + c];
        for (int i = 0; i < K; ++i) {
            r[i] += b[i] * y;
            for (int j = 0; j < K; ++j) m[i][j] += b[i] * b[j];
        }
    }
    for (int p = 0; p < K; ++p)
        for (int q = p + 1; q < K; ++q) {
            const double f = m[q][p] / m[p][p];
            for (int k = p; k < K; ++k) m[q][k] -= f * m[p][k];
            r[q] -= f * r[p];
        }
    double x[K];
    for (int p = K - 1; p >= 0; --p) {
        double s = r[p];
        for (int k = p + 1; k < K; ++k) s -= m[p][k] * x[k];
        x[p] = s / m[p][p];
    }
    double signal = 0, noise = 0;
    for (size_t n = first; n < first + count; ++n) {
        double b[K], fit = 0;
        basis(n, b);
        for (int i = 0; i < K; ++i) fit += x[i] * b[i];
        const double e = out[2 * n + c] - fit;
        signal += (fit - x[6]) * (fit - x[6]);
        noise += e * e;
    }
    return 10 * std::log10(signal / noise);
}

void ReportSnr(benchmark::State& state, const std::vector<int16_t>& out, int rate) {
    state.counters["snr_db"] = std::min(ToneSnr(out, rate, 0), ToneSnr(out, rate, 1));
    state.counters["out_frames"] = static_cast<double>(out.size() / 2);
}

struct BufferDeleter {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, BufferDeleter>;
BufferPtr NewBuffer() { return BufferPtr(CNCodecBuffer::CreateBuffer()); }

// ---- Resampling 44.1 -> 48 kHz ----

void ResampleOurs(benchmark::State& state) {
    const std::vector<int16_t>& in = Input();
    std::vector<int16_t> out;
    for (auto _ : state) {
        out.clear();
        BufferPtr st = NewBuffer(), output = NewBuffer();
        AP::AccurateResampleInit(kRate, 48000, 2, ncb::ProcessorLevel(), st.get());
        for (int at = 0; at < kFrames; at += kPiece) {
            const int n = std::min(kPiece, kFrames - at);
            BufferPtr piece(CNCodecBuffer::CreateWrapBuffer(const_cast<int16_t*>(&in[2 * at]),
                                                            n * 4, n * 4, nullptr));
            const bool last = at + n >= kFrames;
            (last ? AP::AccurateResampleLast : AP::AccurateResample)(piece.get(), output.get(),
                                                                     st.get());
            const auto* p = static_cast<const int16_t*>(output->GetAddress());
            out.insert(out.end(), p, p + output->GetDataSize() / 2);
        }
        AP::AccurateResampleUninit(nullptr, st.get());
    }
    ReportSnr(state, out, 48000);
}

#if defined(NCB_BENCH_AUDIO_RIVALS)
void ResampleSpeex(benchmark::State& state, int quality) {
    const std::vector<int16_t>& in = Input();
    std::vector<int16_t> out;
    std::vector<int16_t> chunk(2 * kPiece * 2);
    for (auto _ : state) {
        out.clear();
        int err = 0;
        SpeexResamplerState* st = speex_resampler_init(2, kRate, 48000, quality, &err);
        for (int at = 0; at < kFrames;) {
            spx_uint32_t inLen = static_cast<spx_uint32_t>(std::min(kPiece, kFrames - at));
            spx_uint32_t outLen = static_cast<spx_uint32_t>(chunk.size() / 2);
            speex_resampler_process_interleaved_int(st, &in[2 * static_cast<size_t>(at)], &inLen,
                                                    chunk.data(), &outLen);
            out.insert(out.end(), chunk.begin(), chunk.begin() + 2 * outLen);
            at += static_cast<int>(inLen);
        }
        speex_resampler_destroy(st);
    }
    ReportSnr(state, out, 48000);
}

void ResampleSoxr(benchmark::State& state, unsigned long recipe) {
    const std::vector<int16_t>& in = Input();
    std::vector<int16_t> out;
    std::vector<int16_t> chunk(2 * kPiece * 2);
    for (auto _ : state) {
        out.clear();
        const soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
        const soxr_quality_spec_t q = soxr_quality_spec(recipe, 0);
        soxr_error_t err = nullptr;
        soxr_t s = soxr_create(kRate, 48000, 2, &err, &io, &q, nullptr);
        for (int at = 0; at <= kFrames;) {
            const bool flush = at == kFrames;
            const size_t n = flush ? 0 : static_cast<size_t>(std::min(kPiece, kFrames - at));
            size_t used = 0, made = 0;
            soxr_process(s, flush ? nullptr : &in[2 * static_cast<size_t>(at)], n, &used,
                         chunk.data(), chunk.size() / 2, &made);
            out.insert(out.end(), chunk.begin(), chunk.begin() + 2 * made);
            if (flush && made == 0) break;
            at += static_cast<int>(used);
        }
        soxr_delete(s);
    }
    ReportSnr(state, out, 48000);
}
#endif

// ---- Tempo ----

void TempoOurs(benchmark::State& state, double speed) {
    const std::vector<int16_t>& in = Input();
    const int target = static_cast<int>(std::lround(kRate / speed));
    size_t produced = 0;
    for (auto _ : state) {
        produced = 0;
        BufferPtr st = NewBuffer(), output = NewBuffer();
        AP::RateControlInit(kRate, target, 1, ncb::ProcessorLevel(), 0, st.get());
        for (int at = 0; at < kFrames; at += kPiece) {
            const int n = std::min(kPiece, kFrames - at);
            BufferPtr piece = NewBuffer();  // the flush may grow it, so a copy
            std::memcpy(piece->Allocate(n * 4, 16, 0), &in[2 * static_cast<size_t>(at)], n * 4);
            piece->SetDataSize(n * 4);
            AP::RateControlFilter(piece.get(), output.get(), at + n >= kFrames, st.get());
            produced += static_cast<size_t>(output->GetDataSize() / 4);
            benchmark::DoNotOptimize(output->GetAddress());
        }
        AP::RateControlUninit(st.get());
    }
    state.counters["out_frames"] = static_cast<double>(produced);
}

#if defined(NCB_BENCH_AUDIO_RIVALS)
void TempoSoundTouch(benchmark::State& state, double speed) {
    const std::vector<int16_t>& in = Input();
    std::vector<soundtouch::SAMPLETYPE> piece(2 * kPiece), out(2 * 8192);
    size_t produced = 0;
    for (auto _ : state) {
        produced = 0;
        soundtouch::SoundTouch st;
        st.setSampleRate(kRate);
        st.setChannels(2);
        st.setTempo(speed);
        for (int at = 0; at < kFrames; at += kPiece) {
            const int n = std::min(kPiece, kFrames - at);
            for (int i = 0; i < 2 * n; ++i)
                piece[i] =
                    static_cast<soundtouch::SAMPLETYPE>(in[2 * static_cast<size_t>(at) + i]) /
                    32768.0f;
            st.putSamples(piece.data(), static_cast<unsigned>(n));
            for (unsigned got; (got = st.receiveSamples(out.data(), 8192)) != 0;) produced += got;
        }
        st.flush();
        for (unsigned got; (got = st.receiveSamples(out.data(), 8192)) != 0;) produced += got;
    }
    state.counters["out_frames"] = static_cast<double>(produced);
}
#endif

// ---- Equalizer and down-mix ----

void EqualizerOurs(benchmark::State& state) {
    std::vector<int16_t> work = Input();
    int freqs[12] = {31, 62, 125, 250, 500, 1000, 2000, 4000, 8000, 12000, 16000, 20000};
    float gains[12] = {1.5f, 1.2f, 1.0f, 0.8f, 0.7f, 0.75f, 0.8f, 0.9f, 1.0f, 1.1f, 1.2f, 0.5f};
    for (auto _ : state) {
        BufferPtr st = NewBuffer();
        AP::EqualizerInit(kRate, 12, freqs, gains, 1, ncb::ProcessorLevel(), st.get());
        for (int at = 0; at < kFrames; at += kPiece)
            AP::EqualizerFilter(&work[2 * static_cast<size_t>(at)], std::min(kPiece, kFrames - at),
                                st.get());
        AP::EqualizerUninit(st.get());
        benchmark::DoNotOptimize(work.data());
    }
}

void DownmixOurs(benchmark::State& state) {
    // 60 s of planar 5.1 in pieces, folded to stereo by a speaker rule.
    std::vector<int16_t> planar(6 * static_cast<size_t>(kPiece));
    for (size_t i = 0; i < planar.size(); ++i) planar[i] = Input()[i % Input().size()];
    CNAudioSpeakerConvert conv;
    conv.Init();
    short coefs[12] = {16384, 0, 11585, 0, 11585, 0, 0, 16384, 11585, 0, 0, 11585};
    conv.AddMappingRule(0x3F, 0x3, coefs);
    CNCodecBase::AudioFormatInfoTag in{}, out{};
    in.nChannels = 6;
    in.nSpeakerInfo = 0x3F;
    in.nSampleRate = kRate;
    in.nBitsPerSample = 16;
    conv.Open(&in, &out);
    BufferPtr piece(
        CNCodecBuffer::CreateWrapBuffer(planar.data(), kPiece * 12, kPiece * 12, nullptr));
    piece->SetBufferUserData(kPiece);
    for (auto _ : state) {
        for (int at = 0; at < kFrames; at += kPiece) {
            CNCodecBuffer* o = conv.ConvertOneFrame(piece.get());
            benchmark::DoNotOptimize(o->GetAddress());
            o->Release();
        }
    }
}

BENCHMARK(ResampleOurs)
    ->Name("audio/resample/44100_to_48000_stereo_60s/ours")
    ->Unit(benchmark::kMillisecond);
#if defined(NCB_BENCH_AUDIO_RIVALS)
BENCHMARK_CAPTURE(ResampleSpeex, q4, 4)
    ->Name("audio/resample/44100_to_48000_stereo_60s/speex_q4")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ResampleSpeex, q10, 10)
    ->Name("audio/resample/44100_to_48000_stereo_60s/speex_q10")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ResampleSoxr, mq, SOXR_MQ)
    ->Name("audio/resample/44100_to_48000_stereo_60s/soxr_mq")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ResampleSoxr, hq, SOXR_HQ)
    ->Name("audio/resample/44100_to_48000_stereo_60s/soxr_hq")
    ->Unit(benchmark::kMillisecond);
#endif
BENCHMARK_CAPTURE(TempoOurs, x125, 1.25)
    ->Name("audio/tempo/x1.25_stereo_60s/ours")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(TempoOurs, x080, 0.8)
    ->Name("audio/tempo/x0.8_stereo_60s/ours")
    ->Unit(benchmark::kMillisecond);
#if defined(NCB_BENCH_AUDIO_RIVALS)
BENCHMARK_CAPTURE(TempoSoundTouch, x125, 1.25)
    ->Name("audio/tempo/x1.25_stereo_60s/soundtouch")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(TempoSoundTouch, x080, 0.8)
    ->Name("audio/tempo/x0.8_stereo_60s/soundtouch")
    ->Unit(benchmark::kMillisecond);
#endif
BENCHMARK(EqualizerOurs)->Name("audio/eq/12band_stereo_60s/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(DownmixOurs)->Name("audio/downmix/5.1_to_stereo_60s/ours")->Unit(benchmark::kMillisecond);

}  // namespace
