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

// Huffman codes collect in a local 64-bit register and go to the JPEG-mode
// bit writer 32 bits at a time, so the writer's per-call bookkeeping (counts,
// room, stuffing) is paid once per word rather than once per code.
class HuffmanSink {
  public:
    explicit HuffmanSink(CNWriteBitStream* bits) : bits_(bits) {}
    // Appends `length` (1..32) bits; `code` has no bits above them.
    void Put(uint32_t code, int length) {
        held_ = (held_ << length) | code;
        count_ += length;
        if (count_ >= 32) {
            count_ -= 32;
            bits_->WriteBitsUint32(static_cast<uint32_t>(held_ >> count_), 32);
        }
    }
    // Hands the bits still held to the writer.
    void Flush();

  private:
    CNWriteBitStream* bits_;
    uint64_t held_ = 0;  // the last `count_` bits are pending
    int count_ = 0;      // below 32 between calls
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
