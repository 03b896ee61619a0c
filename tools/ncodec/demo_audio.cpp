// Demo step "audio": a two-second stereo tone sweep (50 Hz to 16 kHz) run
// through the audio chain: a three-band equalizer, tempo 1.25x and
// resampling from 44.1 to 48 kHz. Writes the sweep and the result as WAV
// files, and audio.txt with what was measured on the way: the equalizer's
// gain at its band centres, the tempo's output length, and the resampler's
// THD+N on a 1 kHz tone.
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "ncodecbase/audio_processor.h"
#include "tools/ncodec/audio_chain.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"
#include "tools/ncodec/wav_file.h"

namespace ncodec {
namespace {

constexpr int kRate = 44100;

std::vector<int16_t> Sweep(int frames) {
    std::vector<int16_t> s(2 * static_cast<size_t>(frames));
    const double f0 = 50, f1 = 16000, k = std::log(f1 / f0) / frames;
    for (int i = 0; i < frames; ++i) {
        // Phase of an exponential sweep: 2 pi f0 (e^(k i) - 1) / k / rate.
        const double phase = 2 * std::numbers::pi * f0 * (std::exp(k * i) - 1) / k / kRate;
        s[2 * i] = static_cast<int16_t>(std::lround(16000 * std::sin(phase)));
        s[2 * i + 1] = static_cast<int16_t>(std::lround(16000 * std::cos(phase)));
    }
    return s;
}

std::vector<int16_t> Tone(int frames, double f, double amplitude) {
    std::vector<int16_t> s(static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i)
        s[i] = static_cast<int16_t>(
            std::lround(amplitude * std::sin(2 * std::numbers::pi * f * i / kRate)));
    return s;
}

// Amplitude of frequency f in x[first, first + count) by correlation (the
// window holds whole periods closely enough for a demo figure).
double Amplitude(const std::vector<int16_t>& x, size_t first, size_t count, double f, int rate) {
    double c = 0, s = 0;
    for (size_t n = first; n < first + count; ++n) {
        const double w = 2 * std::numbers::pi * f * static_cast<double>(n) / rate;
        c += x[n] * std::cos(w);
        s += x[n] * std::sin(w);
    }
    return 2 * std::hypot(c, s) / static_cast<double>(count);
}

bool RunChain(const AudioChainOptions& options, const std::vector<int16_t>& in, int channels,
              std::vector<int16_t>* out, AudioStreamFormat* format, std::string* error) {
    AudioChain chain;
    if (!chain.Open({channels, kRate, 16, channels == 2 ? 0x3 : 0x4}, options, error)) return false;
    const int frames = static_cast<int>(in.size()) / channels;
    for (int at = 0; at < frames; at += 4096) {
        const int n = std::min(4096, frames - at);
        if (!chain.Process(reinterpret_cast<const uint8_t*>(in.data() + at * channels), n,
                           at + n >= frames, out, error))
            return false;
    }
    *format = chain.Output();
    return true;
}

void EqualizerFigures(DemoReport& r) {
    AudioChainOptions eq;
    eq.eq = {{100, 1.5f}, {1000, 0.75f}, {8000, 0.25f}};
    r.Line("equalizer: bands 100 Hz x1.5, 1000 Hz x0.75, 8000 Hz x0.25 (output = 0.25 in + bands)");
    for (double f : {100.0, 1000.0, 8000.0}) {
        std::vector<int16_t> out;
        AudioStreamFormat format;
        std::string error;
        if (!r.Check(RunChain(eq, Tone(kRate, f, 8000), 1, &out, &format, &error),
                     "equalizer chain"))
            return;
        const double gain = Amplitude(out, kRate / 2, kRate / 2, f, kRate) / 8000;
        r.Line("  %6.0f Hz: gain %.3f (%+.2f dB)", f, gain, 20 * std::log10(gain));
    }
}

void ResamplerFigures(DemoReport& r) {
    AudioChainOptions up;
    up.rate = 48000;
    std::vector<int16_t> out;
    AudioStreamFormat format;
    std::string error;
    if (!r.Check(RunChain(up, Tone(kRate, 1000, 16384), 1, &out, &format, &error),
                 "resampler chain"))
        return;
    // THD+N: what is left after removing the best-fitting 1 kHz sine.
    const size_t first = 4800, count = 38400;
    double c = 0, s = 0;
    for (size_t n = first; n < first + count; ++n) {
        const double w = 2 * std::numbers::pi * 1000 * static_cast<double>(n) / 48000;
        c += out[n] * std::cos(w);
        s += out[n] * std::sin(w);
    }
    c *= 2.0 / count;
    s *= 2.0 / count;
    double residual = 0;
    for (size_t n = first; n < first + count; ++n) {
        const double w = 2 * std::numbers::pi * 1000 * static_cast<double>(n) / 48000;
        const double e = out[n] - (c * std::cos(w) + s * std::sin(w));
        residual += e * e;
    }
    const double thdn =
        20 * std::log10(std::sqrt(residual / count) / (std::hypot(c, s) / std::sqrt(2.0)));
    r.Line("resampler 44100 -> 48000: 1 kHz at -6 dBFS, THD+N %.1f dB", thdn);
    r.Check(thdn < -75, "resampler THD+N below -75 dB");
}

}  // namespace

bool DemoAudio(const DemoContext& context, std::string* error) {
    DemoReport r;
    const int frames = 2 * kRate;
    const std::vector<int16_t> sweep = Sweep(frames);
    AudioChainOptions options;
    options.eq = {{100, 1.5f}, {1000, 0.75f}, {8000, 0.25f}};
    options.tempo = 1.25;
    options.rate = 48000;
    std::vector<int16_t> out;
    AudioStreamFormat format;
    std::string chainError;
    r.Line("sweep 50 Hz .. 16 kHz, 2 s stereo at 44100 Hz -> equalizer, tempo 1.25x, 48000 Hz");
    if (r.Check(RunChain(options, sweep, 2, &out, &format, &chainError),
                "sweep through the chain")) {
        const double seconds = static_cast<double>(out.size() / 2) / format.sampleRate;
        r.Line(
            "  output %zu frames at %d Hz = %.3f s (2 s / 1.25 = 1.6 s, plus the flushed blocks)",
            out.size() / 2, format.sampleRate, seconds);
        r.Check(std::abs(seconds - 1.6) < 0.05, "tempo output length within 50 ms of 1.6 s");
        std::string writeError;
        r.Check(WriteWav16((context.outDir / "audio_sweep_in.wav").string(), sweep.data(), frames,
                           2, kRate, 0x3, &writeError) &&
                    WriteWav16((context.outDir / "audio_sweep.wav").string(), out.data(),
                               static_cast<int>(out.size() / 2), 2, format.sampleRate, 0x3,
                               &writeError),
                "audio_sweep_in.wav and audio_sweep.wav written");
    } else {
        r.Line("  %s", chainError.c_str());
    }
    EqualizerFigures(r);
    ResamplerFigures(r);
    if (!context.WriteText("audio.txt", r.text(), error)) return false;
    if (!r.ok()) *error = "check failed: " + r.firstFailure();
    return r.ok();
}

}  // namespace ncodec
