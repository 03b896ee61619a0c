// The decoder's constant tables: the transposed zig-zag order, the magnitude
// tables of the JPEG EXTEND rule and the standard Huffman tables (ITU-T T.81
// Tables K.3 to K.6), installed when a stream carries no DHT segment.
//
// The zig-zag table is computed from the natural order at compile time, so
// the transposition is written once and cannot drift from it.
#include <array>
#include <cstdint>

#include "image/jpeg/jpeg_standard_tables.h"
#include "ncodecbase/jpeg_codec.h"

namespace {

using ncb::jpeg::kNaturalOrder;

constexpr std::array<uint8_t, 64> Transposed() {
    std::array<uint8_t, 64> t{};
    for (int k = 0; k < 64; ++k) {
        const int n = kNaturalOrder[k];
        t[k] = static_cast<uint8_t>((n % 8) * 8 + n / 8);
    }
    return t;
}

constexpr std::array<uint16_t, 12> NegTable() {
    std::array<uint16_t, 12> t{};
    for (int s = 1; s < 12; ++s) t[s] = static_cast<uint16_t>(1u << (s - 1));
    return t;
}

constexpr std::array<uint16_t, 12> MaskTable() {
    std::array<uint16_t, 12> t{};
    for (int s = 0; s < 12; ++s) t[s] = static_cast<uint16_t>((1u << s) - 1);
    return t;
}

}  // namespace

const std::array<uint8_t, 64> CNJpegCodec::s_uJpegZigZagReserveScanTable = Transposed();
const std::array<uint16_t, 12> CNJpegCodec::s_uCoeffNegTable = NegTable();
const std::array<uint16_t, 12> CNJpegCodec::s_uCoeffMaskTable = MaskTable();

const std::array<uint8_t, 16> CNJpegCodec::s_uDefDcHuffmanCodeNumY = ncb::jpeg::kDcCountsY;
const std::array<uint8_t, 12> CNJpegCodec::s_uDefDcHuffmanCodeValueY = ncb::jpeg::kDcSymbols;
const std::array<uint8_t, 16> CNJpegCodec::s_uDefDcHuffmanCodeNumUV = ncb::jpeg::kDcCountsUV;
const std::array<uint8_t, 12> CNJpegCodec::s_uDefDcHuffmanCodeValueUV = ncb::jpeg::kDcSymbols;
const std::array<uint8_t, 16> CNJpegCodec::s_uDefAcHuffmanCodeNumY = ncb::jpeg::kAcCountsY;
const std::array<uint8_t, 162> CNJpegCodec::s_uDefAcHuffmanCodeValueY = ncb::jpeg::kAcSymbolsY;
const std::array<uint8_t, 16> CNJpegCodec::s_uDefAcHuffmanCodeNumUV = ncb::jpeg::kAcCountsUV;
const std::array<uint8_t, 162> CNJpegCodec::s_uDefAcHuffmanCodeValueUV = ncb::jpeg::kAcSymbolsUV;
