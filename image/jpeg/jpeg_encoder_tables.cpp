// The encoder's constant tables, all computed at compile time from the
// standard's own tables (ITU-T T.81 Tables K.1 to K.6) so that nothing
// derived is typed in by hand: the DQT bytes and quantisation reciprocals of
// the three quality levels, the Huffman codes as (code << 4) | (length - 1)
// and the size category of every magnitude.
#include <array>
#include <cstdint>

#include "image/jpeg/jpeg_standard_tables.h"
#include "ncodecbase/jpeg_codec.h"

namespace {

using namespace ncb::jpeg;

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
