// CNZipDecoder's constant tables: the CRC-32 table, the bit-reversal tables
// for deflate's least-significant-first fields, the code-length order, bit
// masks, and the fixed literal/length code of deflate as one-level and
// two-level look-up tables.
//
// Every table is computed at compile time from its definition, so no
// hand-typed number can be wrong. Not here: the slice-by-8 tables (they
// belong to the CRC kernels).
#include <array>
#include <cstdint>

#include "ncodecbase/zip_decoder.h"

namespace {

constexpr std::array<uint32_t, 256> MakeCrcTable() {
    std::array<uint32_t, 256> t{};
    for (uint32_t n = 0; n < 256; ++n) {
        uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        t[n] = c;
    }
    return t;
}

template <typename T, size_t N>
constexpr std::array<T, N> MakeBitSwap() {
    int bits = 0;
    while ((size_t{1} << bits) < N) ++bits;
    std::array<T, N> t{};
    for (size_t v = 0; v < N; ++v) {
        size_t r = 0;
        for (int b = 0; b < bits; ++b) r |= ((v >> b) & 1) << (bits - 1 - b);
        t[v] = static_cast<T>(r);
    }
    return t;
}

// Code length of symbol `s` in deflate's fixed literal/length code.
constexpr int FixedLength(int s) { return s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8; }

// The canonical code of symbol `s` in the fixed code (RFC 1951 3.2.6).
constexpr int FixedCode(int s) {
    if (s < 144) return 0x30 + s;
    if (s < 256) return 0x190 + (s - 144);
    if (s < 280) return s - 256;
    return 0xC0 + (s - 280);
}

// Level-0 table indexed by `bits` bits: every index whose top bits are a
// symbol's code holds (symbol << 4) | (length - 1).
template <size_t N>
constexpr std::array<uint16_t, N> MakeFixedTable(int bits) {
    std::array<uint16_t, N> t{};
    for (int s = 0; s < 288; ++s) {
        int len = FixedLength(s);
        int base = FixedCode(s) << (bits - len);
        for (int j = 0; j < (1 << (bits - len)); ++j)
            t[base + j] = static_cast<uint16_t>((s << 4) | (len - 1));
    }
    return t;
}

// 12-bit first level (every fixed code fits it) plus one 6-bit sub-table that
// no code reaches, filled with the largest value as the invalid marker.
constexpr std::array<uint16_t, 4096 + 64> MakeFixedTwoLevel() {
    std::array<uint16_t, 4096 + 64> t{};
    std::array<uint16_t, 4096> first = MakeFixedTable<4096>(12);
    for (int i = 0; i < 4096; ++i) t[i] = first[i];
    for (int i = 0; i < 64; ++i) t[4096 + i] = static_cast<uint16_t>((0x7FF << 4) | 5);
    return t;
}

constexpr std::array<uint32_t, 20> MakeBitMask() {
    std::array<uint32_t, 20> t{};
    for (int n = 0; n < 20; ++n) t[n] = (1u << n) - 1;
    return t;
}

constexpr std::array<uint32_t, 32> MakeBitMaxValue() {
    std::array<uint32_t, 32> t{};
    for (int n = 1; n < 32; ++n) t[n] = 1u << n;
    return t;
}

}  // namespace

const std::array<uint32_t, 256> CNZipDecoder::s_CRCTable = MakeCrcTable();
const std::array<uint8_t, 4> CNZipDecoder::s_uBitSwapTable2 = MakeBitSwap<uint8_t, 4>();
const std::array<uint8_t, 8> CNZipDecoder::s_uBitSwapTable3 = MakeBitSwap<uint8_t, 8>();
const std::array<uint8_t, 16> CNZipDecoder::s_uBitSwapTable4 = MakeBitSwap<uint8_t, 16>();
const std::array<uint8_t, 32> CNZipDecoder::s_uBitSwapTable5 = MakeBitSwap<uint8_t, 32>();
const std::array<uint8_t, 64> CNZipDecoder::s_uBitSwapTable6 = MakeBitSwap<uint8_t, 64>();
const std::array<uint8_t, 128> CNZipDecoder::s_uBitSwapTable7 = MakeBitSwap<uint8_t, 128>();
const std::array<uint8_t, 256> CNZipDecoder::s_uBitSwapTable8 = MakeBitSwap<uint8_t, 256>();
const std::array<uint16_t, 512> CNZipDecoder::s_uBitSwapTable9 = MakeBitSwap<uint16_t, 512>();
const std::array<uint16_t, 1024> CNZipDecoder::s_uBitSwapTable10 = MakeBitSwap<uint16_t, 1024>();
const std::array<uint16_t, 2048> CNZipDecoder::s_uBitSwapTable11 = MakeBitSwap<uint16_t, 2048>();
const std::array<uint16_t, 4096> CNZipDecoder::s_uBitSwapTable12 = MakeBitSwap<uint16_t, 4096>();
const std::array<uint16_t, 8192> CNZipDecoder::s_uBitSwapTable13 = MakeBitSwap<uint16_t, 8192>();

const std::array<uint8_t, 19> CNZipDecoder::s_uLenHuffmanMappingTable = {
    16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
const std::array<uint32_t, 20> CNZipDecoder::s_uBitMask = MakeBitMask();
const std::array<uint32_t, 32> CNZipDecoder::s_uBitMaxValue = MakeBitMaxValue();

const std::array<uint16_t, 512> CNZipDecoder::s_uHuffr16DefalteLengthData = MakeFixedTable<512>(9);
const std::array<uint16_t, 4096 + 64> CNZipDecoder::s_uHuffr16DefalteHuffmanLengthData =
    MakeFixedTwoLevel();
const std::array<int, 3> CNZipDecoder::s_nHuffr16DefalteHuffmanLengthIndex = {0, 4096, 0};
const std::array<unsigned int, 2> CNZipDecoder::s_uHuffr16DefalteHuffmanLengthCheckMask = {0xFFF,
                                                                                           0x3F};
const std::array<int, 2> CNZipDecoder::s_nHuffr16DefalteHuffmanLengthCheckShiftBit = {6, 0};
