// MCU walk and block Huffman coding of the JPEG encoder.
//
// Each Huffman code and the magnitude bits that follow it leave in one
// write (at most 16 + 11 bits), so the bit writer's per-call work is paid
// once per coefficient. The AC walk first gathers the zig-zag sequence and a
// mask of its non-zero positions, then visits only those: runs come from
// bit counts instead of a branch per coefficient.
//
// Not here: restart markers (never written), headers, validation.
#include "image/jpeg/jpeg_encoder_scan.h"

#include <bit>

#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/write_bit_stream.h"

namespace ncb::jpeg {
namespace {

constexpr int kEob = 160;
constexpr int kZrl = 161;

// Code entry plus `size` magnitude bits of v (one's complement when
// negative), as one write.
inline void WriteCoded(CNWriteBitStream* bits, uint32_t entry, int value, int size) {
    const int length = static_cast<int>(entry & 15) + 1;
    const uint32_t code = entry >> 4;
    const uint32_t magnitude =
        static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1u << size) - 1);
    bits->WriteBitsUint32((code << size) | magnitude, length + size);
}

inline void WriteEntry(CNWriteBitStream* bits, uint32_t entry) {
    bits->WriteBitsUint32(entry >> 4, static_cast<int>(entry & 15) + 1);
}

inline int SizeOf(int value) {
    return CNJpegCodec::s_uCoeffSizeTable[static_cast<unsigned>(value < 0 ? -value : value)];
}

}  // namespace

void EncodeOneCoeffMatrix(const int16_t* block, int zeros, const EncodeComponent& component,
                          int16_t* predictor, CNWriteBitStream* bits) {
    const auto diff = static_cast<int16_t>(block[0] - *predictor);
    *predictor = block[0];
    if (diff == 0) {
        WriteEntry(bits, component.dcCodes[0]);
    } else {
        const int size = SizeOf(diff);
        WriteCoded(bits, component.dcCodes[size], diff, size);
    }

    const uint32_t* ac = component.acCodes;
    if (zeros + (block[0] != 0) == 64) {
        WriteEntry(bits, ac[kEob]);
        return;
    }
    const auto& order = CNJpegCodec::s_uJpegZigZagReserveScanTable;
    int16_t zigzag[64];
    uint64_t nonZero = 0;
    for (int k = 1; k < 64; ++k) {
        zigzag[k] = block[order[k]];
        nonZero |= static_cast<uint64_t>(zigzag[k] != 0) << k;
    }
    int last = 0;
    while (nonZero) {
        const int k = std::countr_zero(nonZero);
        nonZero &= nonZero - 1;
        int run = k - last - 1;
        for (; run > 15; run -= 16) WriteEntry(bits, ac[kZrl]);
        const int value = zigzag[k];
        const int size = SizeOf(value);
        WriteCoded(bits, ac[run * 10 + size - 1], value, size);
        last = k;
    }
    if (last != 63) WriteEntry(bits, ac[kEob]);
}

void EncodeScanData(const EncodeScan& scan, CNWriteBitStream* bits) {
    alignas(16) int16_t block[64];
    int16_t predictor[3] = {0, 0, 0};
    const int lumaWidth = 8 * scan.lumaBlocksX, lumaHeight = 8 * scan.lumaBlocksY;
    for (int my = 0; my < scan.mcuRows && !bits->IsError(); ++my) {
        for (int mx = 0; mx < scan.mcuColumns; ++mx) {
            const EncodeComponent& luma = scan.component[0];
            const uint8_t* origin =
                luma.plane + my * lumaHeight * luma.pitch + mx * static_cast<ptrdiff_t>(lumaWidth);
            for (int by = 0; by < scan.lumaBlocksY; ++by) {
                for (int bx = 0; bx < scan.lumaBlocksX; ++bx) {
                    const int zeros = scan.forwardQuant(origin + 8 * by * luma.pitch + 8 * bx,
                                                        luma.pitch, luma.recip, block);
                    EncodeOneCoeffMatrix(block, zeros, luma, &predictor[0], bits);
                }
            }
            for (int c = 1; c < scan.components; ++c) {
                const EncodeComponent& chroma = scan.component[c];
                const uint8_t* at = chroma.plane + 8 * my * chroma.pitch + 8 * mx;
                const int zeros = scan.forwardQuant(at, chroma.pitch, chroma.recip, block);
                EncodeOneCoeffMatrix(block, zeros, chroma, &predictor[c], bits);
            }
        }
    }
}

}  // namespace ncb::jpeg
