// CNJpegCodec: JPEG decoding into planar YUV and encoding of planar YUV as
// baseline JFIF. Every member is static; nothing is kept between calls except
// what the caller keeps in its Huffman table cache buffer, so any number of
// threads may decode at once as long as each uses its own cache buffer.
//
// Decode reads one baseline or progressive, Huffman-coded, 8-bit JPEG image
// with one component, or three with luma sampling 1x1, 2x1, 2x2 or 1x2 and
// chroma 1x1, and writes the planes (Y800, 4:2:0, 4:2:2 or 4:4:4; 1x2 comes
// out as 4:4:4 with every chroma row doubled) into the caller's output buffer,
// which it re-allocates. The stored size is the image size rounded up to 16;
// the rectangle and words 12-13, 16-17 carry the true size. Other processes
// (extended, lossless, hierarchical, arithmetic), 16-bit quantisation tables,
// other component counts and samplings are refused with 0.
//
// Memory: the output planes, a 512-byte table buffer and, for progressive
// images, 128 bytes per 8x8 block of the image. A header whose planes would
// exceed kMaxDecodePixels pixels of luma, or whose output would not fit a
// CNCodecBuffer, is refused before anything large is allocated.
//
// Huffman table cache: a caller-owned CNCodecBuffer (start empty) whose data
// are the decode tables of every DHT table seen so far, so that motion-JPEG
// frames repeating the same DHT segments do not rebuild them. The Huffman...
// functions below let the caller count, inspect and trim its records.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class CNReadBitStream;

class NCB_API CNJpegCodec {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;
    static_assert(sizeof(VideoFormatInfoTag) == 104, "the descriptor is 26 words");

    // Largest luma picture Decode accepts (after rounding to 16), in pixels.
    static constexpr int64_t kMaxDecodePixels = int64_t{1} << 28;

    // One record of the Huffman table cache, as it lies in the cache buffer
    // (32-bit words). Only size and hit count are meant for callers; the rest
    // is shared between the table builder and the scan decoders. The record
    // goes on with the symbols (symbolCount bytes, padded to 4), the sub-table
    // start array (at subTablePos) and the entries (at tablePos): 8-bit for DC
    // tables (one or two look-up levels), 16-bit for AC tables (one level).
    struct HuffmanTableTag {
        int32_t nSize;       // bytes of the whole record, a multiple of 4
        int32_t nHitCount;   // scans that used the table since the last reset
        int32_t nEntryBits;  // 8 (DC) or 16 (AC)
        int32_t nPeekBits;   // longest code length
        int32_t nLevels;     // 1 or 2
        int32_t nShifts[2];
        uint32_t uMasks[2];
        int32_t nDataShift;
        uint32_t uLenMask;
        int32_t nClass;        // 0 DC, 1 AC
        int32_t nSymbolCount;  // also the invalid value of the look-up
        int32_t nSubTablePos;  // byte position of the sub-table starts in the record
        int32_t nTablePos;     // byte position of the entries in the record
        uint8_t uCodeCounts[16];
    };
    static_assert(sizeof(HuffmanTableTag) == 76, "15 words and the 16 code counts");
    static_assert(offsetof(HuffmanTableTag, nHitCount) == 4);
    static_assert(offsetof(HuffmanTableTag, nTablePos) == 56);
    static_assert(offsetof(HuffmanTableTag, uCodeCounts) == 60);

    // Decodes the JPEG image found from (input data + input user data) to the
    // end of the input's data. inFormat is not read. outFormat: its padding
    // words (18-25) are read as the caller set them (left and right pads are
    // rounded up to 16), the rest is written on success. output: re-allocated
    // (16-byte alignment) and filled, data size = plane total; it may hold
    // partial planes after a failure. huffmanCache: the table cache (null: a
    // temporary one for this call). kernelSelect 0, 1, 2: equivalent kernels.
    // On success the input's user data moves past the bytes consumed (to the
    // marker after the last baseline scan, or just after EOI), so a second
    // call decodes the next image of the same buffer. 1 on success, else 0
    // with the input's user data unchanged.
    static int Decode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                      CNCodecBuffer* input, CNCodecBuffer* output, CNCodecBuffer* huffmanCache,
                      int kernelSelect);

    // Compresses the planar picture at `pixels` (Y800, 4:2:0, 4:2:2 or 4:4:4,
    // FORMAT_FLAG_SWAPPED honoured, addressed with inFormat's padding words)
    // into a baseline JFIF 1.02 stream in `output`, with the standard Huffman
    // tables and the quantisation tables of `quality`: 0 the standard's
    // example tables, 1 those halved, 2 halved and capped at 8 (finest).
    // The image is nRectRight x nRectBottom pixels from the picture origin.
    // Edge blocks read pixels beyond the rectangle up to the width rounded to
    // 8 (grey, 4:4:4) or 16 (4:2:0, 4:2:2) and the height rounded to 8 (16
    // for 4:2:0): the caller's planes must cover that area.
    // output: re-allocated to the raw picture size (nWidth x nHeight planes)
    // plus 1024 bytes, which a picture that does not compress (noise at
    // quality 2) can overflow; data size = stream length on success, 0 when
    // the room ran out (refusals leave output untouched). outFormat: the JPEG
    // descriptor, written on success only.
    // kernelSelect 0, 1, 2: equivalent kernels.
    // Refused with 0: other format codes, quality or kernelSelect outside
    // 0..2, a rectangle whose left or top is not 0, that is empty, larger than
    // the picture or than 65535, negative padding words, and null arguments.
    // 1 on success.
    static int Encode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                      unsigned char* pixels, CNCodecBuffer* output, int quality, int kernelSelect);

    // --- Huffman table cache ---------------------------------------------
    // Offset of the record for this table (class 0 DC, 1 AC) in the cache,
    // found or newly appended; -1 for an over-full code table, a table whose
    // fields do not fit its entry width, or when memory runs out.
    static int DecodeRaiseHuffmanTable(unsigned char* codeCounts, unsigned char* symbols,
                                       int symbolCount, unsigned char tableClass,
                                       CNCodecBuffer* cache);
    // Unless a slot is already defined, raises the four standard tables into
    // DC and AC slots 0 (luminance) and 1 (chrominance). Arrays of 4 slots.
    static void DecodeRaiseDefaultHuffmanTable(int* dcDefined, int* dcOffset, int* acDefined,
                                               int* acOffset, CNCodecBuffer* cache);
    static int HuffmanGetCachedTableNumber(CNCodecBuffer* cache);
    // Size and hit count of the record at `offset`; the next record's offset,
    // or 0 after the last one. Iteration starts at 0.
    static int HuffmanGetCachedTableInfo(int offset, CNCodecBuffer* cache, int* size,
                                         int* hitCount);
    static int HuffmanRemoveCachedTableInfo(int offset, CNCodecBuffer* cache);
    static int HuffmanResetHitCount(CNCodecBuffer* cache);
    // Evicts records (smallest hit count when byHitCount is 1, else smallest
    // size; the first among equals) until at most maxTables remain.
    static int HuffmanAutoRemoveTable(int maxTables, CNCodecBuffer* cache, int byHitCount);

    // --- Block decoding ----------------------------------------------------
    // Decodes one baseline block from a JPEG-mode bit reader with the cache
    // records `dcTable` and `acTable`: the DC difference is added to
    // *dcPredictor, stored at position 0, and the non-zero AC coefficients at
    // their transposed positions. `block` must be all zero on entry. This is
    // the plain table walk the fast scan decoders are checked against.
    // Returns 1, or 0 when the reader's error flag is set afterwards.
    static int DecodeOneCoeffMatrixAsm(CNReadBitStream* reader, short* block,
                                       const HuffmanTableTag* dcTable,
                                       const HuffmanTableTag* acTable, short* dcPredictor);

    // Block position of zig-zag coefficient k: the standard zig-zag position
    // with row and column exchanged (blocks are held transposed).
    static const std::array<uint8_t, 64> s_uJpegZigZagReserveScanTable;
    // Magnitude categories 0..11: 2^(s-1) (0 for s = 0) and 2^s - 1.
    static const std::array<uint16_t, 12> s_uCoeffNegTable;
    static const std::array<uint16_t, 12> s_uCoeffMaskTable;
    // The standard tables (luminance and chrominance DC and AC): code counts
    // per length 1..16 and the symbols.
    static const std::array<uint8_t, 16> s_uDefDcHuffmanCodeNumY;
    static const std::array<uint8_t, 12> s_uDefDcHuffmanCodeValueY;
    static const std::array<uint8_t, 16> s_uDefDcHuffmanCodeNumUV;
    static const std::array<uint8_t, 12> s_uDefDcHuffmanCodeValueUV;
    static const std::array<uint8_t, 16> s_uDefAcHuffmanCodeNumY;
    static const std::array<uint8_t, 162> s_uDefAcHuffmanCodeValueY;
    static const std::array<uint8_t, 16> s_uDefAcHuffmanCodeNumUV;
    static const std::array<uint8_t, 162> s_uDefAcHuffmanCodeValueUV;

    // --- Encoder tables ----------------------------------------------------
    // Quantisation per quality level: the DQT bytes in zig-zag order, and the
    // rounded reciprocals 65536 / q in the transposed block order.
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixY;
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixUV;
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixYQuality;
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixUVQuality;
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixYQualityHigh;
    static const std::array<uint8_t, 64> s_uStreamQuantMatrixUVQualityHigh;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmY;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmUV;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmYQuality;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmUVQuality;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmYQualityHigh;
    static const std::array<int16_t, 64> s_uQuantMatrixAsmUVQualityHigh;
    // Standard Huffman codes as (code << 4) | (length - 1): DC by size
    // category 0..11; AC by run x 10 + size - 1, then EOB (160) and ZRL (161).
    static const std::array<uint16_t, 12> s_uHuffw16s_JpegDefaultDcHuffmanTableYData;
    static const std::array<uint16_t, 12> s_uHuffw16s_JpegDefaultDcHuffmanTableUVData;
    static const std::array<uint32_t, 162> s_uHuffw32s_JpegDefaultAcHuffmanTableYData;
    static const std::array<uint32_t, 162> s_uHuffw32s_JpegDefaultAcHuffmanTableUVData;
    static constexpr uint16_t s_uHuffw16s_JpegDefaultDcHuffmanTableYEntryLenMask = 15;
    static constexpr int s_nHuffw16s_JpegDefaultDcHuffmanTableYEntryDataShift = 4;
    static constexpr uint16_t s_uHuffw16s_JpegDefaultDcHuffmanTableUVEntryLenMask = 15;
    static constexpr int s_nHuffw16s_JpegDefaultDcHuffmanTableUVEntryDataShift = 4;
    static constexpr uint32_t s_uHuffw32s_JpegDefaultAcHuffmanTableYEntryLenMask = 15;
    static constexpr int s_nHuffw32s_JpegDefaultAcHuffmanTableYEntryDataShift = 4;
    static constexpr uint32_t s_uHuffw32s_JpegDefaultAcHuffmanTableUVEntryLenMask = 15;
    static constexpr int s_nHuffw32s_JpegDefaultAcHuffmanTableUVEntryDataShift = 4;
    // Size category (bit length) of each magnitude 0..2047.
    static const std::array<uint8_t, 2048> s_uCoeffSizeTable;
};
