// Signal helpers for the audio tests: test tones, a least-squares sine fit
// (amplitude, phase and what is left over, for gains and THD+N), a radix-2
// FFT for dominant frequencies, and decibels. Plain double-precision code,
// written independently of the library's filters so it can judge them.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

namespace ncbtest::audio {

inline double Db(double ratio) { return 20.0 * std::log10(ratio); }

// round(amplitude x sin(2 pi f t + phase)), interleaved over `channels`
// (every channel the same tone unless `channelPhase` shifts them).
inline std::vector<int16_t> Tone(int frames, double freq, int rate, double amplitude,
                                 int channels = 1, double channelPhase = 0.0) {
    std::vector<int16_t> out(static_cast<size_t>(frames) * channels);
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c) {
            const double v =
                amplitude * std::sin(2 * std::numbers::pi * freq * i / rate + c * channelPhase);
            out[static_cast<size_t>(i) * channels + c] =
                static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
        }
    return out;
}

// One channel of interleaved samples as doubles.
inline std::vector<double> Channel(const std::vector<int16_t>& s, int channels, int c) {
    std::vector<double> out(s.size() / channels);
    for (size_t i = 0; i < out.size(); ++i) out[i] = s[i * channels + c];
    return out;
}

struct SineFit {
    double amplitude = 0;  // of the fitted sine
    double dc = 0;
    double residualRms = 0;  // of what the sine and DC do not explain
    // Noise and distortion relative to the tone, in dB (THD+N).
    double ThdN() const { return Db(residualRms / (amplitude / std::sqrt(2.0))); }
};

// Least-squares fit of a cos + b sin + dc at a known frequency over
// x[first, first + count).
inline SineFit FitSine(const std::vector<double>& x, size_t first, size_t count, double freq,
                       double rate) {
    double m[3][3] = {}, r[3] = {};
    const double w = 2 * std::numbers::pi * freq / rate;
    for (size_t i = 0; i < count; ++i) {
        const double n = static_cast<double>(first + i);
        const double basis[3] = {std::cos(w * n), std::sin(w * n), 1.0};
        for (int a = 0; a < 3; ++a) {
            r[a] += basis[a] * x[first + i];
            for (int b = 0; b < 3; ++b) m[a][b] += basis[a] * basis[b];
        }
    }
    // Gaussian elimination on the 3x3 normal equations.
    for (int p = 0; p < 3; ++p) {
        for (int q = p + 1; q < 3; ++q) {
            const double f = m[q][p] / m[p][p];
            for (int k = p; k < 3; ++k) m[q][k] -= f * m[p][k];
            r[q] -= f * r[p];
        }
    }
    double coef[3];
    for (int p = 2; p >= 0; --p) {
        double s = r[p];
        for (int k = p + 1; k < 3; ++k) s -= m[p][k] * coef[k];
        coef[p] = s / m[p][p];
    }
    SineFit fit;
    fit.amplitude = std::hypot(coef[0], coef[1]);
    fit.dc = coef[2];
    double e = 0;
    for (size_t i = 0; i < count; ++i) {
        const double n = static_cast<double>(first + i);
        const double d =
            x[first + i] - (coef[0] * std::cos(w * n) + coef[1] * std::sin(w * n) + coef[2]);
        e += d * d;
    }
    fit.residualRms = std::sqrt(e / static_cast<double>(count));
    return fit;
}

// In-place radix-2 FFT; the size must be a power of two.
inline void Fft(std::vector<std::complex<double>>& a) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const std::complex<double> step =
            std::polar(1.0, -2 * std::numbers::pi / static_cast<double>(len));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w = 1;
            for (size_t k = 0; k < len / 2; ++k, w *= step) {
                const std::complex<double> u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
        }
    }
}

// Frequency of the strongest bin of a Hann-windowed FFT of `size` samples
// from `first`, and the bin width.
struct Peak {
    double freq = 0;
    double binWidth = 0;
};

inline Peak DominantFrequency(const std::vector<double>& x, size_t first, size_t size,
                              double rate) {
    std::vector<std::complex<double>> a(size);
    for (size_t i = 0; i < size; ++i) {
        const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * i / (size - 1));
        a[i] = x[first + i] * hann;
    }
    Fft(a);
    size_t best = 1;
    for (size_t k = 1; k < size / 2; ++k)
        if (std::abs(a[k]) > std::abs(a[best])) best = k;
    return {static_cast<double>(best) * rate / static_cast<double>(size),
            rate / static_cast<double>(size)};
}

}  // namespace ncbtest::audio
