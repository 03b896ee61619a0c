// Plane arithmetic of VideoFormatInfoTag, in one place: bytes per pixel of
// each format code, plane pitches and rows, where each plane starts, which
// chroma plane is U and which V, bottom-up RGB rows, the processing
// rectangle, and the allocation rule the library uses for its own frames.
//
// Every video operation turns its descriptors into PlaneSets here and hands
// the views to its kernels, so no call site repeats the address arithmetic.
// All sizes are computed in 64 bits and checked: a descriptor whose planes
// would not fit in a CNCodecBuffer (int sizes), that has negative words, or
// whose region lies outside its picture is refused (false) rather than
// producing an address outside the buffer. Compressed codes (JPEG, GIF, PNG)
// and unknown codes have no plane arithmetic and are refused too.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/codec_base.h"

class CNCodecBuffer;

namespace ncb {

using VideoFormatInfo = CNCodecBase::VideoFormatInfoTag;

// What a format code says about its planes.
struct FormatLayout {
    int bpp0 = 0;          // bytes per pixel of plane 0
    int chromaPlanes = 0;  // 0, 1 (NV12: one plane of U,V pairs) or 2
    int chromaShiftX = 0;  // chroma width = W >> chromaShiftX
    int chromaShiftY = 0;  // chroma height = H >> chromaShiftY
    bool rgb = false;      // FORMAT_FLAG_SWAPPED means bottom-up rows
    bool pairs = false;    // NV12: chroma rows hold interleaved U,V bytes
};

// False for codes without plane arithmetic (compressed or unknown).
bool GetFormatLayout(int code, FormatLayout* out);
// Bytes per pixel of plane 0; 0 for codes without plane arithmetic.
int Bpp0(int code);
// The family word that goes with an uncompressed or compressed code.
int CodecTypeOf(int code);
// Whether the first chroma plane in memory is V: code 8 always, codes 2-4
// with FORMAT_FLAG_SWAPPED.
bool ChromaVFirst(const VideoFormatInfo& f);
// RGB code with FORMAT_FLAG_SWAPPED: the first stored row is the last
// picture row.
bool IsBottomUp(const VideoFormatInfo& f);

// The whole frame as stored, before any rectangle is applied. Offsets are
// bytes from the buffer's data address.
struct FrameLayout {
    FormatLayout format;
    int64_t pitch0 = 0;         // nPadLeft + W * Bpp0 + nPadRight
    int64_t rows0 = 0;          // nPadTop + H + nPadBottom
    int chromaWidth = 0;        // samples per chroma row (NV12: U,V pairs)
    int chromaHeight = 0;       // chroma rows of picture
    int64_t chromaPitch = 0;    // nChromaPadLeft + chroma row bytes + nChromaPadRight
    int64_t chromaRows = 0;     // nChromaPadTop + chromaHeight + nChromaPadBottom
    int64_t firstChroma = -1;   // start of the first chroma plane in memory, -1 none
    int64_t secondChroma = -1;  // start of the second chroma plane, -1 none
    int64_t uPlane = -1;        // start of the U plane (NV12: the pair plane)
    int64_t vPlane = -1;        // start of the V plane (-1 for NV12)
    int64_t totalBytes = 0;     // bytes the planes span from the data address
};

// False for codes without plane arithmetic, negative sizes or paddings, and
// frames larger than a CNCodecBuffer can hold.
bool GetFrameLayout(const VideoFormatInfo& f, FrameLayout* out);

// The part of the picture an operation works on, in plane-0 pixels.
struct Region {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
};

// With useRect, origin (nRectLeft, nRectTop) of `originFrom` and size of the
// rectangle of `sizeFrom`; otherwise origin (0, 0) and nWidth x nHeight of
// `sizeFrom`. Operations pass their input as sizeFrom for both descriptors.
// False when the rectangle of `sizeFrom` is inverted.
bool ProcessingRegion(const VideoFormatInfo& originFrom, const VideoFormatInfo& sizeFrom,
                      bool useRect, Region* out);
inline bool ProcessingRegion(const VideoFormatInfo& f, bool useRect, Region* out) {
    return ProcessingRegion(f, f, useRect, out);
}

// Rows of one plane as a kernel walks them: data is the first sample of the
// first row to process, pitch the step to the next row (negative for
// bottom-up storage), width in pixels (plane 0), samples (chroma) or U,V
// pairs (NV12 chroma, two bytes each).
struct PlaneView {
    uint8_t* data = nullptr;
    ptrdiff_t pitch = 0;
    int width = 0;
    int height = 0;
};

// Plane 0 (luma, packed pixels or RGB), then U and V whatever their order in
// memory. NV12 has count 2: u is the pair plane and v stays empty. Single-
// plane codes have count 1.
struct PlaneSet {
    PlaneView plane0;
    PlaneView u;
    PlaneView v;
    int count = 0;
};

// Views of the region of a frame whose data starts at `base`. On chroma
// planes the origin is shifted along each subsampled axis (NV12: the column
// offset stays region.left bytes) and the size is the region's shifted.
// False when the frame is refused by GetFrameLayout or the region does not
// lie inside the picture.
bool GetPlanes(const VideoFormatInfo& f, uint8_t* base, const Region& region, PlaneSet* out);
// The descriptor's own region (ProcessingRegion of f with itself).
bool GetPlanes(const VideoFormatInfo& f, uint8_t* base, bool useRect, PlaneSet* out);

// The same rows walked from the last one up (flipped output).
PlaneView FlipRows(const PlaneView& view);

// A descriptor for a whole width x height picture of `code`: size word 104,
// family from the code, rectangle, picture and display sizes the whole
// picture, every padding and reserved word 0.
void InitVideoFormat(VideoFormatInfo* f, int code, int width, int height);

// The library's allocation rule for its own frames: plane-0 rows padded on
// the right to a multiple of 16 bytes, chroma rows padded by half or all of
// that (codes 2, 3, 6, 7, 8: half; 4 and 9: all), every other padding 0.
// Writes the padding words; false (f untouched) for codes without plane
// arithmetic or sizes that overflow.
bool ApplyAllocationRule(VideoFormatInfo* f);
// Buffer bytes the rule gives for a descriptor it laid out: P0 x H times
// 3/2 (codes 2, 6, 7, 8, 9), 2 (code 3), 3 (code 4) or 1 (others).
bool AllocationRuleSize(const VideoFormatInfo& f, int* bytes);
// Applies the rule to *f, then makes the owned buffer hold the frame at a
// 16-byte aligned address with its data size set to the frame size. Returns
// the data address, or null (f and buffer as they were) on refusal or when
// memory runs out.
uint8_t* AllocateFrame(CNCodecBuffer* buffer, VideoFormatInfo* f);

}  // namespace ncb
