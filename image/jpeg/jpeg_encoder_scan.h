// The entropy-coded part of a baseline JPEG: MCUs in raster order, each
// block transformed, quantised and Huffman-coded into a JPEG-mode bit writer.
//
// The caller (CNJpegCodec::Encode) has checked the picture and located its
// planes; nothing here validates or allocates.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/jpeg/jpeg_fdct.h"
#include "ncodecbase/write_bit_stream.h"

namespace ncb::jpeg {

struct EncodeComponent {
    const uint8_t* plane = nullptr;  // the sample at (0, 0)
    ptrdiff_t pitch = 0;
    const int16_t* recip = nullptr;     // 64 quantisation reciprocals, transposed
    const uint16_t* dcCodes = nullptr;  // 12 entries (code << 4) | (length - 1)
    const uint32_t* acCodes = nullptr;  // 162 entries, EOB at 160, ZRL at 161
};

struct EncodeScan {
    int mcuColumns = 0;
    int mcuRows = 0;
    int lumaBlocksX = 1;  // luma blocks per MCU across (1 or 2) and down (1 or 2)
    int lumaBlocksY = 1;
    int components = 1;  // 1 (grey) or 3
    EncodeComponent component[3];
    const FdctKernels* kernels = nullptr;
};

// Huffman codes collect in a local 64-bit register; every full 32-bit word
// goes to a small staging array without a branch (the store always happens,
// the index advances only when a word is complete), because whether a code
// completes a word is as good as random and a mispredicted branch per code
// costs more than the store. The words reach the JPEG-mode bit writer once
// per block, so its per-call bookkeeping (counts, room, stuffing) runs in a
// tight, predictable loop.
class HuffmanSink {
  public:
    explicit HuffmanSink(CNWriteBitStream* bits) : bits_(bits) {}
    // Appends `length` (1..32) bits; `code` has no bits above them.
    void Put(uint32_t code, int length) {
        held_ = (held_ << length) | code;
        count_ += length;
        const int full = count_ >= 32;
        words_[staged_] = static_cast<uint32_t>(held_ >> ((count_ - 32) & 63));
        staged_ += full;
        count_ -= 32 * full;
    }
    // Hands the staged words to the writer; call between blocks, since one
    // block stages at most 57 words.
    void Drain() {
        if (staged_ >= kDrainAt) DrainWords();
    }
    // Hands every bit still held to the writer.
    void Flush();

  private:
    static constexpr int kDrainAt = 64;
    void DrainWords();

    CNWriteBitStream* bits_;
    uint64_t held_ = 0;  // the last `count_` bits are pending
    int count_ = 0;      // below 32 between calls
    int staged_ = 0;     // complete words in words_
    uint32_t words_[kDrainAt + 64];
};

// Writes every block of the scan through a sink of its own, flushed at the
// end; stops early once the writer reports an error (out of room). The DC
// predictors start at 0.
void EncodeScanData(const EncodeScan& scan, CNWriteBitStream* bits);

// Huffman-codes one quantised block (transposed order) whose DC predictor
// is *predictor; `nonZero` has bit i set when block[i] is not 0.
void EncodeOneCoeffMatrix(const int16_t* block, uint64_t nonZero, const EncodeComponent& component,
                          int16_t* predictor, HuffmanSink* sink);

}  // namespace ncb::jpeg
