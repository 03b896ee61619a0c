// The encoder's constant tables, all computed at compile time from the
// standard's own tables (ITU-T T.81 Tables K.1 to K.6) so that nothing
// derived is typed in by hand: the DQT bytes and quantisation reciprocals of
// the three quality levels, the Huffman codes as (code << 4) | (length - 1)
// and the size category of every magnitude.
//
// The Huffman counts and symbols are repeated here (the decoder's copies are
// not constant expressions in this file); a test checks both against each
// other.
#include <array>
#include <cstdint>

#include "ncodecbase/jpeg_codec.h"

namespace {

using Table64 = std::array<uint8_t, 64>;

// Tables K.1 and K.2, natural (row-major) order.
constexpr Table64 kLumaK1 = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                             14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                             18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                             49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr Table64 kChromaK2 = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                               24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                               99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                               99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

constexpr Table64 kNaturalOrder = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                   12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                   35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                   58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// Halved (rounded down) when halve is set, then capped at `cap`.
constexpr Table64 Scaled(const Table64& natural, bool halve, int cap) {
    Table64 t{};
    for (int i = 0; i < 64; ++i) {
        const int q = halve ? natural[i] / 2 : natural[i];
        t[i] = static_cast<uint8_t>(q < cap ? q : cap);
    }
    return t;
}

constexpr Table64 ZigZag(const Table64& natural) {
    Table64 t{};
    for (int k = 0; k < 64; ++k) t[k] = natural[kNaturalOrder[k]];
    return t;
}

// 65536 / q to the nearest integer, at 8 x column + row.
constexpr std::array<int16_t, 64> Reciprocals(const Table64& natural) {
    std::array<int16_t, 64> t{};
    for (int r = 0; r < 8; ++r) {
        for (int c = 0; c < 8; ++c) {
            const int q = natural[8 * r + c];
            t[8 * c + r] = static_cast<int16_t>((65536 + q / 2) / q);
        }
    }
    return t;
}

constexpr Table64 kLuma1 = Scaled(kLumaK1, true, 255);
constexpr Table64 kChroma1 = Scaled(kChromaK2, true, 255);
constexpr Table64 kLuma2 = Scaled(kLumaK1, true, 8);
constexpr Table64 kChroma2 = Scaled(kChromaK2, true, 8);

// Tables K.3 to K.6: code counts per length and symbols.
constexpr std::array<uint8_t, 16> kDcCountsY = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
constexpr std::array<uint8_t, 16> kDcCountsUV = {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
constexpr std::array<uint8_t, 12> kDcSymbols = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr std::array<uint8_t, 16> kAcCountsY = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d};
constexpr std::array<uint8_t, 16> kAcCountsUV = {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77};
constexpr std::array<uint8_t, 162> kAcSymbolsY = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61,
    0x07, 0x22, 0x71, 0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52,
    0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72, 0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25,
    0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45,
    0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63, 0x64,
    0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99,
    0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6,
    0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3,
    0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8,
    0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};
constexpr std::array<uint8_t, 162> kAcSymbolsUV = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61,
    0x71, 0x13, 0x22, 0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33,
    0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1, 0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18,
    0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3a, 0x43, 0x44,
    0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a, 0x63,
    0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97,
    0x98, 0x99, 0x9a, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4,
    0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca,
    0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7,
    0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa};

// Where a symbol's code goes: DC by size category; AC by run x 10 + size - 1,
// EOB (00) at 160 and ZRL (F0) at 161.
constexpr int EntryIndex(bool ac, int symbol) {
    if (!ac) return symbol;
    if (symbol == 0x00) return 160;
    if (symbol == 0xF0) return 161;
    return (symbol >> 4) * 10 + (symbol & 15) - 1;
}

// Canonical codes (T.81 Annex C) in entry form (code << 4) | (length - 1).
template <typename T, size_t N, size_t S>
constexpr std::array<T, N> Codes(const std::array<uint8_t, 16>& counts,
                                 const std::array<uint8_t, S>& symbols, bool ac) {
    std::array<T, N> t{};
    uint32_t code = 0;
    size_t k = 0;
    for (int len = 1; len <= 16; ++len, code <<= 1) {
        for (int i = 0; i < counts[len - 1]; ++i, ++code, ++k)
            t[EntryIndex(ac, symbols[k])] = static_cast<T>((code << 4) | (len - 1));
    }
    return t;
}

constexpr std::array<uint8_t, 2048> SizeTable() {
    std::array<uint8_t, 2048> t{};
    for (int m = 1; m < 2048; ++m) t[m] = static_cast<uint8_t>(t[m >> 1] + 1);
    return t;
}

}  // namespace

const Table64 CNJpegCodec::s_uStreamQuantMatrixY = ZigZag(kLumaK1);
const Table64 CNJpegCodec::s_uStreamQuantMatrixUV = ZigZag(kChromaK2);
const Table64 CNJpegCodec::s_uStreamQuantMatrixYQuality = ZigZag(kLuma1);
const Table64 CNJpegCodec::s_uStreamQuantMatrixUVQuality = ZigZag(kChroma1);
const Table64 CNJpegCodec::s_uStreamQuantMatrixYQualityHigh = ZigZag(kLuma2);
const Table64 CNJpegCodec::s_uStreamQuantMatrixUVQualityHigh = ZigZag(kChroma2);

const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmY = Reciprocals(kLumaK1);
const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmUV = Reciprocals(kChromaK2);
const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmYQuality = Reciprocals(kLuma1);
const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmUVQuality = Reciprocals(kChroma1);
const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmYQualityHigh = Reciprocals(kLuma2);
const std::array<int16_t, 64> CNJpegCodec::s_uQuantMatrixAsmUVQualityHigh = Reciprocals(kChroma2);

const std::array<uint16_t, 12> CNJpegCodec::s_uHuffw16s_JpegDefaultDcHuffmanTableYData =
    Codes<uint16_t, 12>(kDcCountsY, kDcSymbols, false);
const std::array<uint16_t, 12> CNJpegCodec::s_uHuffw16s_JpegDefaultDcHuffmanTableUVData =
    Codes<uint16_t, 12>(kDcCountsUV, kDcSymbols, false);
const std::array<uint32_t, 162> CNJpegCodec::s_uHuffw32s_JpegDefaultAcHuffmanTableYData =
    Codes<uint32_t, 162>(kAcCountsY, kAcSymbolsY, true);
const std::array<uint32_t, 162> CNJpegCodec::s_uHuffw32s_JpegDefaultAcHuffmanTableUVData =
    Codes<uint32_t, 162>(kAcCountsUV, kAcSymbolsUV, true);

const std::array<uint8_t, 2048> CNJpegCodec::s_uCoeffSizeTable = SizeTable();
