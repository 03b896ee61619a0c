// CNGifCodec: reads GIF files (any version, animations, transparency,
// disposal, interlacing) and writes animated GIF89a files.
//
// Unlike the other image codecs this is an object with state, used by one
// thread at a time.
//
// Decoding: Decode indexes the whole file (screen, palettes, frames with
// their timing, transparency, disposal and the places of their LZW data)
// without decompressing anything, and keeps a reference to the input
// buffer. GetDecodedFrame then composes one frame at a time on a canvas of
// the screen size and hands out a copy as a new RGB32 buffer. Frames build on
// one another, so they must be asked for in order from 0: frame 0 starts
// from a canvas filled with the background colour, a transparent index
// leaves the canvas pixel as it was, disposal method 2 restores the frame's
// rectangle to the background colour before the next frame (not after the
// last), and every other method, 3 included, leaves the frame in place.
// Palette colours come out with alpha byte 0; the background colour given to
// Decode is used as given. LZW data that ends before its end code gives the
// pixels decoded so far and buffer flag 8; a code beyond the string table
// ends the frame early without that flag.
//
// Encoding: PrepareEncode, then AddFrame for each picture (quantised at once
// to at most 256 colours with CNVideoProcessor::ColorQuantToIndex256 and kept
// as indices), then Encode writes the file: one local palette per frame, a
// graphic control extension with the frame's delay and disposal "leave in
// place", no global palette, no transparency, no loop extension.
//
// Limits: a frame with more than 1024 data sub-blocks, or a screen whose
// canvas would exceed kMaxCanvasBytes, is refused by Decode. Encode writes
// at most 1 MiB (kMaxEncodedBytes); a file that would not fit fails with the
// output's data size 0.
//
// Failure results: 0 (Decode: no frames) with the object left idle after a
// failed Decode, or unchanged otherwise; no partial index is ever usable.
#pragma once

#include <array>
#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNGifCodec {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;

    static constexpr int kMaxSubBlocks = 1024;
    static constexpr int kMaxEncodedBytes = 1048576;
    // Screen width x height x 4; larger screens are refused before anything
    // is allocated (a 40-byte file may claim 65535 x 65535).
    static constexpr int64_t kMaxCanvasBytes = int64_t{1} << 28;
    // Buffer flag of a frame whose LZW data ran out before the end code.
    static constexpr int kFlagTruncated = 8;

    CNGifCodec();
    ~CNGifCodec();
    CNGifCodec(const CNGifCodec&) = delete;
    CNGifCodec& operator=(const CNGifCodec&) = delete;

    // Indexes the GIF file held in `input` (data address, data size) and
    // returns its number of frames, or 0. `outputFormat` receives the RGB32
    // description of the screen; its padding words (18-25) are kept and
    // shape the frames GetDecodedFrame hands out. `inputFormat` is not read.
    // `defaultDuration` (ms) serves frames without a graphic control
    // extension. `backgroundColour` is 0xAARRGGBB, or 0xFFFFFFFF for the
    // file's background palette entry. Replaces an earlier decode.
    int Decode(VideoFormatInfoTag* inputFormat, VideoFormatInfoTag* outputFormat,
               CNCodecBuffer* input, int defaultDuration, unsigned int backgroundColour);
    // Composes frame `index` on the canvas and returns a copy in a new buffer
    // (one reference, the caller releases it) whose time stamp is the frame's
    // start time in ms; *duration (when given) receives its duration. 0 when
    // not decoding, for an index out of range, or when memory runs out.
    int GetDecodedFrame(int index, CNCodecBuffer** frame, int* duration);
    // Durations of the first min(count, frames) frames; returns that number.
    int GetDuration(int* durations, int count);
    // Frees the index and canvas and releases the input. Returns 1.
    int FreeDecodeResource();

    // Starts an encode of RGB32 pictures described by `inputFormat` (its
    // size and padding words; at most 65535 x 65535) and fills
    // `outputFormat` with the GIF description. 0 for another format or size.
    int PrepareEncode(VideoFormatInfoTag* inputFormat, VideoFormatInfoTag* outputFormat);
    // Quantises `picture` and keeps it as the next frame, shown for
    // `duration` ms (written in hundredths). interlaced: write the rows in
    // the four GIF passes; flip: the picture's rows are stored bottom-up.
    // 0 when not encoding, the buffer is smaller than the descriptor says,
    // or memory runs out.
    int AddFrame(CNCodecBuffer* picture, int duration, int interlaced, int flip);
    // Writes the file into the owned buffer `output` (data size = file
    // length). 0 without frames, when memory runs out or the file would
    // exceed kMaxEncodedBytes.
    int Encode(CNCodecBuffer* output);
    // Releases the stored frames. Returns 1.
    int FreeEncodeResource();

    // Frames indexed by Decode or added since PrepareEncode.
    int GetFrameCount() const { return m_nFrameCount; }

    // For N = 1..12: entry v is v with its N low bits in reverse order.
    static const std::array<uint16_t, 2> s_uGifBitStreamCvt1;
    static const std::array<uint16_t, 4> s_uGifBitStreamCvt2;
    static const std::array<uint16_t, 8> s_uGifBitStreamCvt3;
    static const std::array<uint16_t, 16> s_uGifBitStreamCvt4;
    static const std::array<uint16_t, 32> s_uGifBitStreamCvt5;
    static const std::array<uint16_t, 64> s_uGifBitStreamCvt6;
    static const std::array<uint16_t, 128> s_uGifBitStreamCvt7;
    static const std::array<uint16_t, 256> s_uGifBitStreamCvt8;
    static const std::array<uint16_t, 512> s_uGifBitStreamCvt9;
    static const std::array<uint16_t, 1024> s_uGifBitStreamCvt10;
    static const std::array<uint16_t, 2048> s_uGifBitStreamCvt11;
    static const std::array<uint16_t, 4096> s_uGifBitStreamCvt12;
    // Table N at index N; entry 0 is null.
    static const uint16_t* const s_pGifBitStreamCvtIndex[13];
    // Masks of 0-8 low bits.
    static const unsigned int s_uInputDataMaskTable[9];
    // Entry c - 1: palette bits for c colours (2 for 1-4, 3 for 5-8, ...).
    static const std::array<unsigned char, 256> s_uColorIndexRoundTable;

  private:
    void ReleaseDecode();
    void ReleaseEncode();

    int m_nMode = 0;  // 0 idle, 1 decoding, 2 encoding
    int m_nScreenWidth = 0;
    int m_nScreenHeight = 0;
    int m_nFrameCount = 0;
    int m_nBackgroundIndex = 0;
    int m_nAspect = 0;
    int m_nGlobalColourCount = 0;
    uint32_t m_uGlobalPalette[256] = {};
    CNCodecBuffer* m_pFrameTable = nullptr;  // decode or encode frame records
    CNCodecBuffer* m_pSubBlocks = nullptr;   // decode: (position, length) of every sub-block
    CNCodecBuffer* m_pCanvas = nullptr;      // decode: screen-sized RGB32 canvas
    CNCodecBuffer* m_pScratch = nullptr;     // decode: frame indices; encode: string table
    CNCodecBuffer* m_pInput = nullptr;
    VideoFormatInfoTag m_stInputFormat = {};
    VideoFormatInfoTag m_stOutputFormat = {};
    uint32_t m_uBackgroundColour = 0xFFFFFFFFu;
    int m_nNextFrame = 0;
};
