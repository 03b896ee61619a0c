// MCU walk and block Huffman coding of the JPEG encoder.
//
// Each Huffman code and the magnitude bits that follow it form one field (at
// most 16 + 11 bits) in a local accumulator that reaches the bit writer a
// word at a time. The AC walk visits only the non-zero coefficients: the
// transform kernel reports them as a mask in block order, eight table
// look-ups turn it into zig-zag order, and runs of zeros come from bit
// positions instead of a test per coefficient.
//
// Not here: restart markers (never written), headers, validation.
#include "image/jpeg/jpeg_encoder_scan.h"

#include <array>
#include <bit>

#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/write_bit_stream.h"

namespace ncb::jpeg {
namespace {

constexpr int kEob = 160;
constexpr int kZrl = 161;

// For byte b of a block-order mask, the same bits at their zig-zag positions.
using ZigZagMaskTable = std::array<std::array<uint64_t, 256>, 8>;

const ZigZagMaskTable& ZigZagMasks() {
    static const ZigZagMaskTable table = [] {
        std::array<int, 64> zigzagOf{};
        for (int k = 0; k < 64; ++k) zigzagOf[CNJpegCodec::s_uJpegZigZagReserveScanTable[k]] = k;
        ZigZagMaskTable t{};
        for (int b = 0; b < 8; ++b)
            for (int m = 0; m < 256; ++m)
                for (int j = 0; j < 8; ++j)
                    if (m & (1 << j)) t[b][m] |= uint64_t{1} << zigzagOf[8 * b + j];
        return t;
    }();
    return table;
}

inline uint64_t ToZigZag(uint64_t mask, const ZigZagMaskTable& t) {
    uint64_t z = 0;
    for (int b = 0; b < 8; ++b) z |= t[b][(mask >> (8 * b)) & 0xFF];
    return z;
}

inline void PutEntry(HuffmanSink* sink, uint32_t entry) {
    sink->Put(entry >> 4, static_cast<int>(entry & 15) + 1);
}

// Code entry plus `size` magnitude bits of v (one's complement when
// negative), as one field.
inline void PutCoded(HuffmanSink* sink, uint32_t entry, int value, int size) {
    const uint32_t magnitude = static_cast<uint32_t>(value + (value >> 31)) & ((1u << size) - 1);
    sink->Put(((entry >> 4) << size) | magnitude, static_cast<int>(entry & 15) + 1 + size);
}

// Bit length of a non-zero value's magnitude: one bit scan, shorter on the
// critical path than a table load.
inline int SizeOf(int value) {
    const uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
    return std::bit_width(magnitude);
}

inline void CodeBlock(const int16_t* block, uint64_t nonZero, const EncodeComponent& component,
                      int16_t* predictor, HuffmanSink* sink, const ZigZagMaskTable& masks) {
    const auto diff = static_cast<int16_t>(block[0] - *predictor);
    *predictor = block[0];
    if (diff == 0) {
        PutEntry(sink, component.dcCodes[0]);
    } else {
        const int size = SizeOf(diff);
        PutCoded(sink, component.dcCodes[size], diff, size);
    }

    const uint32_t* ac = component.acCodes;
    uint64_t zigzag = ToZigZag(nonZero & ~uint64_t{1}, masks);
    const uint8_t* order = CNJpegCodec::s_uJpegZigZagReserveScanTable.data();
    int last = 0;
    while (zigzag) {
        const int k = std::countr_zero(zigzag);
        zigzag &= zigzag - 1;
        int run = k - last - 1;
        for (; run > 15; run -= 16) PutEntry(sink, ac[kZrl]);
        const int value = block[order[k]];
        const int size = SizeOf(value);
        PutCoded(sink, ac[run * 10 + size - 1], value, size);
        last = k;
    }
    if (last != 63) PutEntry(sink, ac[kEob]);
    sink->Drain();
}

}  // namespace

void HuffmanSink::DrainWords() {
    for (int i = 0; i < staged_; ++i) bits_->WriteBitsUint32(words_[i], 32);
    staged_ = 0;
}

void HuffmanSink::Flush() {
    DrainWords();
    if (count_ > 0) bits_->WriteBitsUint32(static_cast<uint32_t>(held_), count_);
    count_ = 0;
}

void EncodeOneCoeffMatrix(const int16_t* block, uint64_t nonZero, const EncodeComponent& component,
                          int16_t* predictor, HuffmanSink* sink) {
    CodeBlock(block, nonZero, component, predictor, sink, ZigZagMasks());
}

namespace {

// The quantised blocks of up to two MCUs, in coding order per MCU.
struct McuBlocks {
    alignas(16) int16_t block[6][64];
    uint64_t nonZero[6];
};

// Transforms MCUs mx and, when `two`, mx + 1 of MCU row my. Side-by-side
// blocks go through the pair kernel: the two luma blocks of a row of a
// 16-wide MCU, otherwise the same block of the two MCUs.
void TransformMcus(const EncodeScan& scan, int mx, int my, bool two, McuBlocks out[2]) {
    const FdctKernels& k = *scan.kernels;
    const EncodeComponent& luma = scan.component[0];
    const int mcuWidth = 8 * scan.lumaBlocksX, mcuHeight = 8 * scan.lumaBlocksY;
    const uint8_t* origin = luma.plane + static_cast<ptrdiff_t>(my) * mcuHeight * luma.pitch +
                            static_cast<ptrdiff_t>(mx) * mcuWidth;
    const int lumaBlocks = scan.lumaBlocksX * scan.lumaBlocksY;
    if (scan.lumaBlocksX == 2) {
        for (int m = 0; m < (two ? 2 : 1); ++m) {
            for (int by = 0; by < scan.lumaBlocksY; ++by) {
                k.forwardQuantPair(origin + 16 * m + 8 * by * luma.pitch, luma.pitch, luma.recip,
                                   out[m].block[2 * by], out[m].block[2 * by + 1],
                                   &out[m].nonZero[2 * by]);
            }
        }
    }
    for (int c = 0; c < scan.components; ++c) {
        if (c == 0 && scan.lumaBlocksX == 2) continue;
        const EncodeComponent& comp = scan.component[c];
        const uint8_t* at = c == 0 ? origin
                                   : comp.plane + static_cast<ptrdiff_t>(my) * 8 * comp.pitch +
                                         static_cast<ptrdiff_t>(mx) * 8;
        const int slot = c == 0 ? 0 : lumaBlocks + c - 1;
        if (two) {
            uint64_t nonZero[2];
            k.forwardQuantPair(at, comp.pitch, comp.recip, out[0].block[slot], out[1].block[slot],
                               nonZero);
            out[0].nonZero[slot] = nonZero[0];
            out[1].nonZero[slot] = nonZero[1];
        } else {
            out[0].nonZero[slot] = k.forwardQuant(at, comp.pitch, comp.recip, out[0].block[slot]);
        }
    }
}

}  // namespace

void EncodeScanData(const EncodeScan& scan, CNWriteBitStream* bits) {
    const ZigZagMaskTable& masks = ZigZagMasks();
    HuffmanSink sink(bits);
    McuBlocks mcus[2];
    int16_t predictor[3] = {0, 0, 0};
    const int lumaBlocks = scan.lumaBlocksX * scan.lumaBlocksY;
    for (int my = 0; my < scan.mcuRows && !bits->IsError(); ++my) {
        for (int mx = 0; mx < scan.mcuColumns; mx += 2) {
            const int count = mx + 1 < scan.mcuColumns ? 2 : 1;
            TransformMcus(scan, mx, my, count == 2, mcus);
            for (int m = 0; m < count; ++m) {
                for (int b = 0; b < lumaBlocks; ++b)
                    CodeBlock(mcus[m].block[b], mcus[m].nonZero[b], scan.component[0],
                              &predictor[0], &sink, masks);
                for (int c = 1; c < scan.components; ++c)
                    CodeBlock(mcus[m].block[lumaBlocks + c - 1],
                              mcus[m].nonZero[lumaBlocks + c - 1], scan.component[c], &predictor[c],
                              &sink, masks);
            }
        }
    }
    sink.Flush();
}

}  // namespace ncb::jpeg
