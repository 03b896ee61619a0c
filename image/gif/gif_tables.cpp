// The constant tables of CNGifCodec: bit-reversal of 1- to 12-bit codes,
// low-bit masks, and palette bits by colour count, all computed by the
// compiler.
#include <array>
#include <cstdint>
#include <utility>

#include "ncodecbase/gif_codec.h"

namespace {

template <int N>
constexpr std::array<uint16_t, (1 << N)> Reversed() {
    std::array<uint16_t, (1 << N)> t{};
    for (int v = 0; v < (1 << N); ++v) {
        int r = 0;
        for (int b = 0; b < N; ++b)
            if (v & (1 << b)) r |= 1 << (N - 1 - b);
        t[static_cast<size_t>(v)] = static_cast<uint16_t>(r);
    }
    return t;
}

constexpr std::array<unsigned char, 256> RoundTable() {
    std::array<unsigned char, 256> t{};
    for (int colours = 1; colours <= 256; ++colours) {
        int bits = 2;
        while ((1 << bits) < colours) ++bits;
        t[static_cast<size_t>(colours - 1)] = static_cast<unsigned char>(bits);
    }
    return t;
}

}  // namespace

constinit const std::array<uint16_t, 2> CNGifCodec::s_uGifBitStreamCvt1 = Reversed<1>();
constinit const std::array<uint16_t, 4> CNGifCodec::s_uGifBitStreamCvt2 = Reversed<2>();
constinit const std::array<uint16_t, 8> CNGifCodec::s_uGifBitStreamCvt3 = Reversed<3>();
constinit const std::array<uint16_t, 16> CNGifCodec::s_uGifBitStreamCvt4 = Reversed<4>();
constinit const std::array<uint16_t, 32> CNGifCodec::s_uGifBitStreamCvt5 = Reversed<5>();
constinit const std::array<uint16_t, 64> CNGifCodec::s_uGifBitStreamCvt6 = Reversed<6>();
constinit const std::array<uint16_t, 128> CNGifCodec::s_uGifBitStreamCvt7 = Reversed<7>();
constinit const std::array<uint16_t, 256> CNGifCodec::s_uGifBitStreamCvt8 = Reversed<8>();
constinit const std::array<uint16_t, 512> CNGifCodec::s_uGifBitStreamCvt9 = Reversed<9>();
constinit const std::array<uint16_t, 1024> CNGifCodec::s_uGifBitStreamCvt10 = Reversed<10>();
constinit const std::array<uint16_t, 2048> CNGifCodec::s_uGifBitStreamCvt11 = Reversed<11>();
constinit const std::array<uint16_t, 4096> CNGifCodec::s_uGifBitStreamCvt12 = Reversed<12>();

constinit const uint16_t* const CNGifCodec::s_pGifBitStreamCvtIndex[13] = {
    nullptr,
    s_uGifBitStreamCvt1.data(),
    s_uGifBitStreamCvt2.data(),
    s_uGifBitStreamCvt3.data(),
    s_uGifBitStreamCvt4.data(),
    s_uGifBitStreamCvt5.data(),
    s_uGifBitStreamCvt6.data(),
    s_uGifBitStreamCvt7.data(),
    s_uGifBitStreamCvt8.data(),
    s_uGifBitStreamCvt9.data(),
    s_uGifBitStreamCvt10.data(),
    s_uGifBitStreamCvt11.data(),
    s_uGifBitStreamCvt12.data(),
};

constinit const unsigned int CNGifCodec::s_uInputDataMaskTable[9] = {0,  1,  3,   7,  15,
                                                                     31, 63, 127, 255};

constinit const std::array<unsigned char, 256> CNGifCodec::s_uColorIndexRoundTable = RoundTable();
