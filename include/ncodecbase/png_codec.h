// CNPngCodec: PNG decoding into RGB32 pictures and encoding of RGB32 pictures
// as minimal PNG files. Every member is static; nothing is kept between calls,
// so any number of threads may decode and encode at once.
//
// Decode reads a complete PNG file (every colour type and bit depth, palettes,
// tRNS transparency, Adam7 interlacing, gAMA gamma) from the input buffer's
// data and hands out a new RGB32 buffer (bytes B, G, R, A) with one reference,
// which the caller releases. Chunk CRCs are not checked, and a chunk cut short
// by the end of the input ends the file as IEND would. Failure: 0 and a null
// output, every temporary freed.
//
// Memory: besides the output frame, Decode holds the concatenated IDAT data
// (at most the input size) and the inflated image, whose size follows from
// the header alone and is never exceeded, however much the data would
// inflate. Both the inflated image and the output frame must fit a
// CNCodecBuffer (below 2 GiB); a header promising more is refused before
// anything is allocated.
//
// Encode writes signature, IHDR, one IDAT (zlib `compress`, no filtering, no
// interlacing) and IEND, 8-bit RGB or RGBA, into the caller's owned buffer.
// The room it allocates is the raw image size plus 1024 bytes, so a large
// picture that zlib cannot shrink fails (0) with only the signature and IHDR
// written and the data size left as it was.
#pragma once

#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNPngCodec {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;

    // Encode flag: write the alpha channel (colour type 6) instead of RGB only.
    static constexpr unsigned int ENCODE_FLAG_ALPHA = 1;

    // Decodes the PNG file held in `input` (data address, data size). The
    // input descriptor is not read. The padding words (18-25) of `outFormat`
    // are read as the caller set them and shape the output rows; words 0-17
    // are overwritten with the RGB32 picture. 1 and *output set on success.
    static int Decode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                      CNCodecBuffer* input, CNCodecBuffer** output);

    // Writes the RGB32 picture of `input` (described by `inFormat`: width,
    // height, left/right/top padding and bottom-up rows are honoured, the
    // rectangle is not) as a PNG file into the owned buffer `output`, and
    // fills `outFormat` with the PNG descriptor (before any allocation). Flag
    // bit 0 (ENCODE_FLAG_ALPHA) selects RGBA. 1 on success.
    static int Encode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                      CNCodecBuffer* input, CNCodecBuffer* output, unsigned int flags);

    // Bytes of one stored row including its filter byte: 0 for width 0;
    // ceil(width x bitDepth / 8) + 1 for depths 1, 2 and 4; otherwise
    // (bitDepth / 8) x width x channels + 1. Negative arguments, and results
    // that do not fit an int, give 0.
    static int CalcLineBytes(int width, int channels, int bitDepth);

    // Sample converters. Each reads `height` stored rows (every row begins with
    // its filter byte, which is skipped; rows lie CalcLineBytes apart) and
    // writes RGB32 pixels: pixel x of row y goes to dst + y x dstPitch +
    // x x pixelStep x 4. The pixel step is 1, or the Adam7 column step.
    static void ConvertFromGrey1Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, int pixelStep);
    static void ConvertFromGrey2Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, int pixelStep);
    static void ConvertFromGrey4Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, int pixelStep);
    static void ConvertFromGrey8Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, int pixelStep);
    static void ConvertFromGrey16Bits(const unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstPitch, int pixelStep);
    static void ConvertFromGreyAlpha8Bits(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, int pixelStep);
    static void ConvertFromGreyAlpha16Bits(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, int pixelStep);
    static void ConvertFromTrueColor8Bits(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, int pixelStep);
    static void ConvertFromTrueColor16Bits(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, int pixelStep);
    static void ConvertFromTrueColorAlpha8Bits(const unsigned char* src, unsigned char* dst,
                                               int width, int height, int dstPitch, int pixelStep);
    static void ConvertFromTrueColorAlpha16Bits(const unsigned char* src, unsigned char* dst,
                                                int width, int height, int dstPitch, int pixelStep);

    // Transparency-key variants: alpha 0 where the sample equals the key, else
    // 255. Grey 1/2/4 bits: the key is the expanded 8-bit value (grey x 255,
    // x 85, x 17); 8 bits: the grey value; 16 bits: the two sample bytes as a
    // little-endian word loaded from where they lie (first byte in bits 0-7).
    // Truecolour 8 bits: R << 16 | G << 8 | B. Truecolour 16 bits: the three
    // 16-bit samples as R << 32 | G << 16 | B.
    static void ConvertFromGrey1Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, unsigned int key,
                                          int pixelStep);
    static void ConvertFromGrey2Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, unsigned int key,
                                          int pixelStep);
    static void ConvertFromGrey4Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, unsigned int key,
                                          int pixelStep);
    static void ConvertFromGrey8Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                          int height, int dstPitch, unsigned int key,
                                          int pixelStep);
    static void ConvertFromGrey16Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, unsigned int key,
                                           int pixelStep);
    static void ConvertFromTrueColor8Bits_Tran(const unsigned char* src, unsigned char* dst,
                                               int width, int height, int dstPitch,
                                               unsigned int key, int pixelStep);
    static void ConvertFromTrueColor16Bits_Tran(const unsigned char* src, unsigned char* dst,
                                                int width, int height, int dstPitch, uint64_t key,
                                                int pixelStep);

    // Palette images: `palette` holds 256 RGB32 entries (A << 24 | R << 16 |
    // G << 8 | B); each index is replaced by its entry, alpha included.
    static void ConvertFromPal1Bits(const unsigned char* src, unsigned char* dst, int width,
                                    int height, int dstPitch, const unsigned int* palette,
                                    int pixelStep);
    static void ConvertFromPal2Bits(const unsigned char* src, unsigned char* dst, int width,
                                    int height, int dstPitch, const unsigned int* palette,
                                    int pixelStep);
    static void ConvertFromPal4Bits(const unsigned char* src, unsigned char* dst, int width,
                                    int height, int dstPitch, const unsigned int* palette,
                                    int pixelStep);
    static void ConvertFromPal8Bits(const unsigned char* src, unsigned char* dst, int width,
                                    int height, int dstPitch, const unsigned int* palette,
                                    int pixelStep);

    // Grey expansion of 1-, 2- and 4-bit samples to 8 bits: i x 255, i x 85,
    // i x 17.
    static const unsigned char s_uGreyMapTable1Bit[2];
    static const unsigned char s_uGreyMapTable2Bit[4];
    static const unsigned char s_uGreyMapTable4Bit[16];
};
