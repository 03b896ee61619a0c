// Byte-shuffle masks for moving 16-bit samples between interleaved frames and
// planes with PSHUFB, for 2 to 6 channels, computed at compile time.
//
// Eight frames of N channels fill N vectors of eight words in either layout.
// De-interleave: plane vector c = OR over input vectors j of
// shuffle(in[j], gather[N][c][j]). Interleave: output vector j = OR over
// planes c of shuffle(plane[c], scatter[N][j][c]). A mask byte of 0x80
// yields zero, so each term contributes only its own words. Also the masks
// that pick the upper two bytes of sixteen 24-bit samples out of three
// vectors. Plain data: any translation unit may use it.
#pragma once

#include <cstdint>

namespace ncb::audio {

struct alignas(16) ByteMask {
    int8_t b[16];
};

inline constexpr int kMaxShuffleChannels = 6;

struct WordShuffles {
    ByteMask gather[kMaxShuffleChannels + 1][kMaxShuffleChannels][kMaxShuffleChannels];
    ByteMask scatter[kMaxShuffleChannels + 1][kMaxShuffleChannels][kMaxShuffleChannels];
    // [output vector 0..1][input vector 0..2] for 16 samples of 3 bytes.
    ByteMask widen24[2][3];
};

constexpr void SetWord(ByteMask* m, int word, int sourceWord) {
    m->b[2 * word] = static_cast<int8_t>(2 * sourceWord);
    m->b[2 * word + 1] = static_cast<int8_t>(2 * sourceWord + 1);
}

constexpr WordShuffles MakeWordShuffles() {
    WordShuffles s{};
    for (auto& perN : s.gather)
        for (auto& row : perN)
            for (ByteMask& m : row)
                for (int8_t& b : m.b) b = -128;
    for (auto& perN : s.scatter)
        for (auto& row : perN)
            for (ByteMask& m : row)
                for (int8_t& b : m.b) b = -128;
    for (int n = 2; n <= kMaxShuffleChannels; ++n) {
        for (int c = 0; c < n; ++c) {
            for (int f = 0; f < 8; ++f) {
                const int g = f * n + c;  // the word's position in interleaved order
                SetWord(&s.gather[n][c][g / 8], f, g % 8);
                SetWord(&s.scatter[n][g / 8][c], g % 8, f);
            }
        }
    }
    for (int out = 0; out < 2; ++out) {
        for (int in = 0; in < 3; ++in)
            for (int8_t& b : s.widen24[out][in].b) b = -128;
        for (int w = 0; w < 8; ++w) {
            const int sample = 8 * out + w;
            for (int half = 0; half < 2; ++half) {
                const int byte = 3 * sample + 1 + half;
                s.widen24[out][byte / 16].b[2 * w + half] = static_cast<int8_t>(byte % 16);
            }
        }
    }
    return s;
}

inline constexpr WordShuffles kWordShuffles = MakeWordShuffles();

}  // namespace ncb::audio
