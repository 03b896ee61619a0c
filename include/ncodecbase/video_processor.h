// CNVideoProcessor: static operations on pictures held in CNCodecBuffer
// objects and described by VideoFormatInfoTag descriptors. The class has no
// state; it groups the operations by family:
//
//   - colour conversion between the planar YUV, surface YUV and RGB layouts,
//     with the brightness / contrast / colour adjustment of ConvertConfigTag,
//     plus the fixed-point tables and single-colour helpers;
//   - copies, quarter-turn rotations and de-interlacing;
//   - (further families are added by their own sections below).
//
// Common rules for every picture operation:
//   - Arguments are (input buffer, output buffer, input descriptor, output
//     descriptor, operation settings..., use-rectangle, level). With
//     use-rectangle 1 each descriptor's own rectangle gives its origin and the
//     input rectangle gives the size; otherwise the whole input picture is
//     processed from (0, 0) of both.
//   - level is the processor level: 0 SSE2, 1 SSSE3, 2 SSE4.1. Every level
//     gives identical bytes; a level the running processor lacks is served by
//     the highest one it has. Any other value makes the operation do nothing.
//   - They return 1, also when they did nothing because a code, a pair of
//     codes, a descriptor or the level is not handled; only the rotations
//     return 0 (for a rotation code other than 0, 1, 2).
//   - Sizes are not checked against the buffers: the caller guarantees that
//     each buffer holds the planes its descriptor describes.
//
// Thread safety: every operation is re-entrant. Buffers are locked only to
// read their data addresses; the caller must keep them alive and unresized
// during a call.
#pragma once

#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/export.h"

class CNCodecBuffer;

class NCB_API CNVideoProcessor {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;

    // ------------------------------------------------------------------
    // Colour conversion
    // ------------------------------------------------------------------

    // Settings of a conversion. A call runs in fixed-chroma mode when
    // nFixedChroma is non-zero, else in adjust mode when an offset is
    // non-zero or a gain differs from 256, else in plain mode. An all-zero tag
    // is therefore adjust mode (luma 0 + offset, chroma 128): callers that
    // mean "no change" pass 0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255. A
    // null tag is taken as those no-change values.
    // Gains beyond +-32767 act as +-32767 (the arithmetic is 16-bit).
    struct ConvertConfigTag {
        int32_t nFixedChroma;  // non-zero: write nFixedU / nFixedV as every chroma sample
        int32_t nFlip;         // 1: write the output bottom-up
        int32_t nFixedU;       // chroma of the fixed-chroma mode (low byte)
        int32_t nFixedV;
        int32_t nOffsetY;  // added after the gain
        int32_t nOffsetU;
        int32_t nOffsetV;
        int32_t nGainY;  // 8.8 fixed point, 256 = 1.0
        int32_t nGainU;
        int32_t nGainV;
        int32_t nAlpha;  // alpha byte of RGB32 and AYUV outputs (low byte)
    };

    // Generic planar YUV (codes 1-4) to a surface layout (6, 8, 9, 10-13, 14).
    static int ConvertToYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                            VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                            ConvertConfigTag* pConfig, int nUseRect, int nLevel);
    // A surface layout (6, 8, 9, 10-13, 14) to generic planar YUV (1-4).
    static int ConvertFromYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                              VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                              ConvertConfigTag* pConfig, int nUseRect, int nLevel);
    // Generic planar YUV (1-4) to RGB (257-260).
    static int ConvertToRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                            VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                            ConvertConfigTag* pConfig, int nUseRect, int nLevel);
    // RGB (257-260) to generic planar YUV (1-4).
    static int ConvertFromRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                              VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                              ConvertConfigTag* pConfig, int nUseRect, int nLevel);
    // Among the generic planar YUV codes (1-4), without adjustment.
    static int ConvertYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                          VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                          int nUseRect, int nLevel);
    // Among the RGB codes (257-260), every ordered pair. Narrowing keeps the
    // top bits; widening leaves the low bits 0 and writes alpha 0.
    static int ConvertRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                          VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                          int nUseRect, int nLevel);
    // AYUV (14) to RGB32 (260) and back with the tables, alpha carried across.
    // uFlip 1 writes the output bottom-up.
    static int ConvertAYUVtoRGB32(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                  VideoFormatInfoTag* pInputFormat,
                                  VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                  int nUseRect, int nLevel);
    static int ConvertRGB32toAYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                  VideoFormatInfoTag* pInputFormat,
                                  VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                  int nUseRect, int nLevel);

    // Single colours: 0x00RRGGBB <-> 0x00YYUUVV (full-range BT.601, tables).
    static unsigned int RGB2YUV(unsigned int uRGB);
    static unsigned int YUV2RGB(unsigned int uYUV);
    // 0x00RRGGBB to a 16-bit pixel, keeping the top bits of each channel.
    static unsigned int RGB32_RGB555(unsigned int uRGB);
    static unsigned int RGB32_RGB565(unsigned int uRGB);

    // Coefficient x index (x (index - 128) for the YUV-to-RGB tables) x 65536,
    // truncated toward zero.
    static const int32_t s_nRgb2Yuv02990[256];
    static const int32_t s_nRgb2Yuv05870[256];
    static const int32_t s_nRgb2Yuv01140[256];
    static const int32_t s_nRgb2Yuv01687n[256];
    static const int32_t s_nRgb2Yuv03313n[256];
    static const int32_t s_nRgb2Yuv04187n[256];
    static const int32_t s_nRgb2Yuv00813n[256];
    static const int32_t s_nYuv2Rgb1402[256];
    static const int32_t s_nYuv2Rgb034413n[256];
    static const int32_t s_nYuv2Rgb071414n[256];
    static const int32_t s_nYuv2Rgb1772[256];
    // 256 zeros, 0..255, 256 x 255; s_pClipTableU8 points at entry 256 so
    // that s_pClipTableU8[x] clamps any x in -256..511.
    static const uint8_t s_uClipTableU8[768];
    static const uint8_t* const s_pClipTableU8;

    // ------------------------------------------------------------------
    // Copy, rotation and de-interlacing
    // ------------------------------------------------------------------

    // Copies nRows rows of nRowBytes bytes between two pitches (negative
    // pitches walk upward). Nothing for a level other than 0, 1, 2.
    static void DirectCopyData(unsigned char* pSource, unsigned char* pDestination, int nRowBytes,
                               int nRows, int nSourcePitch, int nDestinationPitch, int nLevel);
    // Same-layout copies of every plane (YUV codes 1-4, 6, 8-16; RGB codes
    // 257-260), with each descriptor's padding, rectangle and bottom-up rows.
    // Input and output codes must match, except that the 4:2:0 planar codes
    // 2, 6 and 8 copy into one another plane for plane. uFlip 1 writes the
    // destination bottom-up.
    static int DirectCopyYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                             VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                             unsigned int uFlip, int nUseRect, int nLevel);
    static int DirectCopyRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                             VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                             unsigned int uFlip, int nUseRect, int nLevel);
    // Rotation 0: 90 degrees clockwise, 1: 180 degrees, 2: 90 degrees
    // counter-clockwise; 0 and 2 exchange width and height, and the output
    // descriptor must describe the turned size. Returns 0 for any other
    // rotation. RotateRGB: code 260; RotateYUV: codes 1, 2, 4, 6, 8, 14, the
    // output of the same code (or another 4:2:0 planar code).
    static int RotateRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                         VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                         int nRotation, int nUseRect, int nLevel);
    static int RotateYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                         VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                         int nRotation, int nUseRect, int nLevel);
    // Edge-directed de-interlacing of codes 1-4: even rows are copied, each
    // odd row keeps its pixels where they lie between the best-matching pair
    // of neighbours above and below, and takes that pair's mean elsewhere.
    // Input and output may be the same picture.
    static int DeInterlacedYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                               VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                               int nUseRect, int nLevel);

    // ------------------------------------------------------------------
    // Resize
    // ------------------------------------------------------------------

    // A separable polyphase scaler whose tap count grows with the shrink
    // factor (2 taps when enlarging, 4 to 12 when shrinking). ResizeInit
    // computes every position, weight and edge decision once into the
    // caller's work buffer (a 112-byte header of 28 words, then the command
    // lists, tables and intermediate rows, each at a multiple of 16 bytes);
    // the frame calls only run those tables, at the level fixed by
    // ResizeInit. A changed size or pitch needs a new ResizeInit.
    //
    // nLayout: 260 (RGB32) or a generic YUV code; 2, 3 and 4 get chroma
    // tables for their chroma size, any other value the luma tables only.
    // Pitches are in bytes and may be negative (rows walked upward). Returns
    // 0 for sizes outside 1..65536, a null work buffer, offsets beyond 32
    // bits, or when memory runs out (the work buffer then keeps what
    // Allocate left). An odd RGB32 destination width is computed for the
    // width rounded up to even and the extra pixel is never stored. A level
    // outside 0..2 is stored as given and makes the frame calls do nothing.
    // A work buffer serves one caller at a time.
    static int ResizeInit(int nLayout, int nLevel, int nSrcWidth, int nSrcHeight, int nSrcPitch,
                          int nSrcChromaPitch, int nDstWidth, int nDstHeight, int nDstPitch,
                          int nDstChromaPitch, CNCodecBuffer* pWork);
    // The tables of one plane (RGB32 pixels, or one byte per sample) into
    // three owned buffers: command list, horizontal table, vertical weight
    // rows. Out-pointers (each may be null): intermediate row bytes,
    // intermediate rows, store mask of the last pixel pair (bytes kept),
    // destination pixels the tables compute, vertical commands. 1 or 0.
    static int ResizeCreateTable_RGB32(int nSrcWidth, int nSrcHeight, int nSrcPitch, int nDstWidth,
                                       int nDstHeight, int nDstPitch, CNCodecBuffer* pCommand,
                                       CNCodecBuffer* pHorizontal, CNCodecBuffer* pVertical,
                                       int* pnRowBytes, unsigned int* puRows, uint64_t* puStoreMask,
                                       int* pnTableWidth, int* pnVerticalCommands);
    static int ResizeCreateTable_YUV(int nSrcWidth, int nSrcHeight, int nSrcPitch, int nDstWidth,
                                     int nDstHeight, int nDstPitch, CNCodecBuffer* pCommand,
                                     CNCodecBuffer* pHorizontal, CNCodecBuffer* pVertical,
                                     int* pnRowBytes, unsigned int* puRows, uint64_t* puStoreMask,
                                     int* pnTableWidth, int* pnVerticalCommands);
    // The filter kernel: weight (32768 = 1.0, at most 32767) of a tap at
    // uDistance source pixels (15 fraction bits) for a filter of nTaps taps.
    static unsigned int ResizeGetPixelWeight(int nTaps, unsigned int uDistance);
    // One frame: pointers at the first sample of the area to scale; pitches
    // come from the work buffer. 0 when the work buffer is empty or was set
    // up for another layout (ResizeYUVMono takes any YUV work buffer and
    // scales its luma plane), else 1.
    static int ResizeRGB32(unsigned char* pSource, unsigned char* pDestination,
                           CNCodecBuffer* pWork);
    static int ResizeYUV420(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                            unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                            CNCodecBuffer* pWork);
    static int ResizeYUV422(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                            unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                            CNCodecBuffer* pWork);
    static int ResizeYUV444(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                            unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                            CNCodecBuffer* pWork);
    static int ResizeYUVMono(unsigned char* pSource, unsigned char* pDestination,
                             CNCodecBuffer* pWork);
    // Releases the work buffer's memory. 0 for a null buffer.
    static int ResizeUninit(CNCodecBuffer* pWork);

    // ------------------------------------------------------------------
    // Compositing
    // ------------------------------------------------------------------

    // Putting one picture onto another. Buffers and descriptors are
    // (source, destination); nX, nY place the source area (its rectangle with
    // use-rectangle 1, else the whole picture) in the destination, relative
    // to the destination rectangle with use-rectangle 1, else to its origin.
    // What falls outside the destination picture is left out. RGB
    // descriptors with FORMAT_FLAG_SWAPPED are bottom-up. A level outside
    // 0..2 does nothing and returns 1.
    //
    // Three alpha weights, on purpose: picture blends use a = alpha >> 1 and
    // (s x a + d x (128 - a)) >> 7 (alpha 255 copies); fills use
    // (c x a + d x (127 - a)) >> 7 (alpha 255 writes the colour); the keyed
    // alpha copy uses (d x (255 - a) + s x a) >> 8.

    // Same layout on both sides: RGB 257-260, YUV 6, 8, 9, 10-13, 14. The
    // 16/24-bit RGB and the YUV surface layouts blend every sample (chroma
    // at its resolution) with the constant alpha. RGB32 and AYUV take nMode:
    // 0 constant alpha, 1 each source pixel's alpha (every byte, alpha
    // included), 2 and 3 the same skipping pixels equal to uColorKey (all 32
    // bits). Returns 0 for a mode above 3 on RGB32 / AYUV; other
    // destination codes, or a source of another layout, return 1 unchanged.
    static int AlphaBlendingRGB(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                VideoFormatInfoTag* pSourceFormat,
                                VideoFormatInfoTag* pDestinationFormat, int nX, int nY, int nMode,
                                unsigned int uAlpha, unsigned int uColorKey, int nUseRect,
                                int nLevel);
    static int AlphaBlendingYUV(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                VideoFormatInfoTag* pSourceFormat,
                                VideoFormatInfoTag* pDestinationFormat, int nX, int nY, int nMode,
                                unsigned int uAlpha, unsigned int uColorKey, int nUseRect,
                                int nLevel);
    // The rectangle (nX, nY, nWidth, nHeight), offset by the descriptor's
    // rectangle origin with use-rectangle 1. FillRectRGB takes an RGB32
    // colour and codes 257-260 (RGB555 / RGB565 cut the channels to 5 / 6
    // bits first); FillRectYUV an AYUV colour and codes 6, 8, 9, 10-13, 14,
    // writing Y to the luma samples and U, V to every chroma sample the
    // rectangle touches. Colour alpha 255 writes the colour, else each byte
    // is mixed with the fill weights. 0 for a code outside the list.
    static int FillRectRGB(CNCodecBuffer* pBuffer, VideoFormatInfoTag* pFormat, unsigned int uColor,
                           int nX, int nY, int nWidth, int nHeight, int nUseRect, int nLevel);
    static int FillRectYUV(CNCodecBuffer* pBuffer, VideoFormatInfoTag* pFormat, unsigned int uColor,
                           int nX, int nY, int nWidth, int nHeight, int nUseRect, int nLevel);
    // RGB32 onto RGB32: the source pixels whose alpha is not 0 replace the
    // destination pixels, which are never read.
    static int FillRectRGB32_NoRead(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                    VideoFormatInfoTag* pSourceFormat,
                                    VideoFormatInfoTag* pDestinationFormat, int nX, int nY,
                                    int nUseRect, int nLevel);
    // The source pixels that differ from uColorKey replace the destination.
    static int FillRectRGB32WithColorKey_NoRead(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                                VideoFormatInfoTag* pSourceFormat,
                                                VideoFormatInfoTag* pDestinationFormat, int nX,
                                                int nY, unsigned int uColorKey, int nUseRect,
                                                int nLevel);
    // Key pixels are skipped, opaque ones copied, the others mixed by their
    // alpha into R, G, B with alpha byte 0.
    static int FillRectRGB32WithColorKey_JustReadAlpha(CNCodecBuffer* pSource,
                                                       CNCodecBuffer* pDestination,
                                                       VideoFormatInfoTag* pSourceFormat,
                                                       VideoFormatInfoTag* pDestinationFormat,
                                                       int nX, int nY, unsigned int uColorKey,
                                                       int nUseRect, int nLevel);
    // AI44 (code 15) onto RGB32: bytes with a non-zero alpha nibble become
    // the RGB32 palette entry of their index. The palette is the source
    // buffer's additional information: 16 AYUV entries (bytes V, U, Y, A),
    // and when it holds 128 bytes or more, the same 16 as RGB32 at bytes
    // 64-127, used as they are; otherwise they are converted on each call.
    // Nothing is drawn when it holds fewer than 64 bytes.
    static int FillRectRGB32WithAI44_NoRead(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                            VideoFormatInfoTag* pSourceFormat,
                                            VideoFormatInfoTag* pDestinationFormat, int nX, int nY,
                                            int nUseRect, int nLevel);
    // AI44 to AYUV (14) or RGB32 (260): palette[b & 15] OR the alpha nibble
    // times 0x11 in the top byte; to IA44 (16): nibbles exchanged. Other
    // destination codes: nothing. uFlip 1 reads the source bottom-up.
    static int ConvertFromAI44(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                               VideoFormatInfoTag* pSourceFormat,
                               VideoFormatInfoTag* pDestinationFormat, unsigned int uFlip,
                               int nUseRect, int nLevel);
    // RGB32 copy that writes 0xFF000000 (opaque black) as 0. uFlip 1 reads
    // the source bottom-up.
    static int CopyRGB32_ModifyBackground(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                          VideoFormatInfoTag* pSourceFormat,
                                          VideoFormatInfoTag* pDestinationFormat,
                                          unsigned int uFlip, int nUseRect, int nLevel);
    // RGB32: uLevel not 0 gives every pixel with alpha the alpha uLevel &
    // 0xFF; uLevel 0 makes each alpha the top byte of (pixel >> 8) x uScale
    // (256 keeps it). Colour bytes are kept.
    static int AdjustAlphaLevelRGB(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                   VideoFormatInfoTag* pSourceFormat,
                                   VideoFormatInfoTag* pDestinationFormat, unsigned int uLevel,
                                   unsigned int uScale, int nUseRect, int nLevel);
    // AI44: uLevel not 0 sets the alpha nibble of bytes with alpha to
    // uLevel & 0xF0; uLevel 0 makes each byte ((b x uScale) >> 8) & 0xF0 |
    // (b & 0x0F).
    static int AdjustAlphaLevelYUV(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                   VideoFormatInfoTag* pSourceFormat,
                                   VideoFormatInfoTag* pDestinationFormat, unsigned int uLevel,
                                   unsigned int uScale, int nUseRect, int nLevel);
    // nPixelCount 32-bit pixels from pData: each non-zero pixel is ORed with
    // uAlpha << 24; zero pixels stay 0. Returns 1.
    static int FillAlphaRGB32_InPlaceFlat(unsigned char* pData, int nPixelCount,
                                          unsigned int uAlpha, int nLevel);

    // ------------------------------------------------------------------
    // Colour quantisation
    // ------------------------------------------------------------------

    // Reduces an RGB32 picture (bytes B, G, R, A; alpha ignored) to at most
    // 256 colours with an octree built in one pass, and writes one palette
    // index per pixel (nWidth bytes per row, nIndexPitch apart; with nFlip
    // non-zero source row 0 goes to the last index row). pPalette receives
    // *pColorCount entries of 4 bytes B, G, R, 0 (room for 256 is needed).
    // Work memory: about 200 KiB plus 2 bytes per pixel. Returns 1, or 0
    // with nothing written when a size is below 1, a pointer is null or the
    // work memory cannot be allocated. Re-entrant.
    static int ColorQuantToIndex256(int nWidth, int nHeight, unsigned char* pSource,
                                    unsigned char* pIndices, int nSourcePitch, int nIndexPitch,
                                    unsigned char* pPalette, int* pColorCount, int nFlip);

    // Octree keys: bit i of a channel value moves to key bit 4i + 2 (red),
    // 4i + 1 (green) or 4i (blue); a colour's key is the sum of its three
    // entries, and its top nibble picks the child at the root. Level k's
    // mask keeps the nibbles of levels 0..k.
    static const unsigned int s_uOctTreeRedMask[256];
    static const unsigned int s_uOctTreeGreenMask[256];
    static const unsigned int s_uOctTreeBlueMask[256];
    static const unsigned int s_uOctTreeLevelMask[8];

    // ------------------------------------------------------------------
    // Scene detection
    // ------------------------------------------------------------------

    // Decides frame by frame whether a frame starts a new scene, from the
    // luma plane only: 20 blocks are matched against the previous frame by
    // block motion search, and optional stages refine the verdict. The state
    // lives in the caller's work buffer (an owned CNCodecBuffer): Init fills
    // it, SceneDetect takes it back for every frame of one stream, Reset
    // starts a new stream, Uninit frees it. One work buffer serves one stream
    // on one thread at a time; the detector keeps one reference to the
    // previous frame until the next frame, Reset or Uninit.

    // Option bits of SceneDetectInit.
    static constexpr unsigned int SCENE_DETECT_SSSE3 = 0x02;  // SSSE3 kernels where present
    static constexpr unsigned int SCENE_DETECT_SSE41 = 0x04;  // SSE4.1 kernels (before 0x02)
    // Blocks start on 16-byte boundaries; ignored for rectangles below 97 x 97
    // or luma pitches that are not multiples of 16.
    static constexpr unsigned int SCENE_DETECT_ALIGN = 0x08;
    static constexpr unsigned int SCENE_DETECT_WEIGHTED = 0x10;   // weighted-prediction test
    static constexpr unsigned int SCENE_DETECT_CONTEXT = 0x20;    // thresholds follow the stream
    static constexpr unsigned int SCENE_DETECT_HISTOGRAM = 0x40;  // luma histogram comparison
    // The inter-field test, on the current frame or (with 0x80) the previous one.
    static constexpr unsigned int SCENE_DETECT_DISSOLVE = 0x100;
    static constexpr unsigned int SCENE_DETECT_DISSOLVE_PREVIOUS = 0x80;

    // Builds the state for pictures described by pFormat (its luma plane:
    // rectangle, padding, pitch; codes 1-9). A rectangle below 64 pixels in
    // either direction, or a layout without a byte luma plane, gives a
    // disabled detector that reports 0 for every frame. 0 when the processor
    // lacks SSE2 or the state cannot be allocated; a work buffer that held a
    // detector releases its previous frame first.
    static int SceneDetectInit(VideoFormatInfoTag* pFormat, unsigned int uOptions,
                               CNCodecBuffer* pWork);
    // Analyses the next frame (of the geometry given to Init): *pResult is 0
    // (no cut) or the confidence of a cut, 75 to 100. The first frame after
    // Init or Reset only becomes the previous frame. Returns 1; 0 with
    // nothing changed (previous frame, histories) when a stage cannot
    // allocate, when pWork holds no detector, pResult is null, or the frame
    // is null or smaller than the rectangle's bytes.
    static int SceneDetect(CNCodecBuffer* pFrame, int* pResult, CNCodecBuffer* pWork);
    // Forgets the previous frame, the frame counter, the histories and the
    // stored histogram. 0 when pWork holds no detector.
    static int SceneDetectReset(CNCodecBuffer* pWork);
    // Releases the previous frame and the state memory. Always 1.
    static int SceneDetectUninit(CNCodecBuffer* pWork);
};

static_assert(sizeof(CNVideoProcessor::ConvertConfigTag) == 44);
