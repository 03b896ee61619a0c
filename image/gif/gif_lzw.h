// GIF's variable-width LZW, both ways, over the library's bit streams with
// byte bit-reversal: GIF packs codes least-significant bit first, our
// readers and writers work most-significant bit first, so every byte is
// reversed on the way and every code through s_pGifBitStreamCvtIndex.
#pragma once

#include <cstdint>

#include "ncodecbase/data_stream.h"

class CNWriteBitStream;

namespace ncb::gif {

struct LzwDecodeResult {
    int64_t produced = 0;  // indices written
    bool ranOut = false;   // the data ended before the end code
};

// Decodes the LZW data held in the chain (the frame's sub-blocks, in order)
// into at most `capacity` indices. Codes after the picture is full are still
// read, without producing anything, to find out whether the end code comes.
LzwDecodeResult DecodeLzw(NDataStreamBufferInfoTag* chain, int chainCount, int minCodeSize,
                          uint8_t* out, int64_t capacity);

// The table the encoder looks strings up in: 4096 prefixes x (1 << bits)
// indices (at most 256) of 16-bit codes, 0xFFFF for none. The places filled
// since the last reset are listed, so a reset clears only those.
struct LzwEncodeTable {
    uint16_t* entries = nullptr;  // kLzwTableEntries, all 0xFFFF between uses
    uint32_t* filled = nullptr;   // 4096 places
    int filledCount = 0;
};
inline constexpr int kLzwTableEntries = 4096 * 256;

// Writes the clear code, the codes of `count` indices (taken in the order
// `rowOrder` gives: rows of `width` pixels from `pixels`, row rowOrder[i]
// i-th) and the end code.
void EncodeLzw(const uint8_t* pixels, int width, const int* rowOrder, int height, int bits,
               LzwEncodeTable* table, CNWriteBitStream* out);

// Rows in the order of the four interlace passes (0, 8, ...; 4, 12, ...;
// 2, 6, ...; 1, 3, ...) or top to bottom.
void RowOrder(int height, bool interlaced, int* order);

}  // namespace ncb::gif
