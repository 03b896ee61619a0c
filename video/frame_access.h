// What every picture operation of CNVideoProcessor does before its kernels
// run: read the buffers' data addresses, turn both descriptors into plane
// views of the processing region (origin from each descriptor, size from the
// input), decide the conversion mode from ConvertConfigTag, and split rows
// into chunks that fit the operations' stack scratch.
//
// The plane arithmetic itself is base/video_format.h; nothing here repeats it.
#pragma once

#include <cstdint>

#include "base/video_format.h"
#include "ncodecbase/video_processor.h"
#include "video/colour/yuv_rows.h"
#include "video/kernels/kernel_set.h"

class CNCodecBuffer;

namespace ncb::video {

// The arguments every two-picture operation starts with.
struct PictureArgs {
    CNCodecBuffer* input = nullptr;
    CNCodecBuffer* output = nullptr;
    const VideoFormatInfo* inputFormat = nullptr;
    const VideoFormatInfo* outputFormat = nullptr;
    bool useRect = false;
};

PictureArgs MakePictureArgs(CNCodecBuffer* input, CNCodecBuffer* output,
                            const VideoFormatInfo* inputFormat, const VideoFormatInfo* outputFormat,
                            int useRect);

struct Pictures {
    int inCode = 0;
    int outCode = 0;
    int width = 0;  // of the processing region, in pixels
    int height = 0;
    PlaneSet in;
    PlaneSet out;
};

// False when a pointer is null, a buffer has no data, a descriptor has no
// plane arithmetic or the region does not lie inside either picture; the
// operation then does nothing. `outSize` is the region size to take for the
// output when it differs from the input's (the quarter turns); null keeps the
// input's.
bool OpenPictures(const PictureArgs& args, Pictures* pictures, const Region* outSize = nullptr);

// Every plane of the set walks its rows upward (the output is written
// bottom-up).
void FlipPlanes(PlaneSet* planes);

inline uint8_t* RowAt(const PlaneView& view, int y) {
    return view.data + static_cast<ptrdiff_t>(y) * view.pitch;
}

enum class ConvertMode { kPlain, kAdjust, kFixedChroma };

struct ConvertSettings {
    ConvertMode mode = ConvertMode::kPlain;
    bool flip = false;
    uint8_t fixedU = 128;
    uint8_t fixedV = 128;
    uint8_t alpha = 255;
    SampleAdjust luma;
    SampleAdjust u;
    SampleAdjust v;
};

// A null tag reads as the no-adjustment values.
ConvertSettings ReadConvertSettings(const CNVideoProcessor::ConvertConfigTag* config);

// Where a chroma sample is missing (a one-pixel-wide or one-row-high picture
// of a subsampled layout) the conversions read 128: the value that chroma
// takes after this call's adjustment or fixing.
void NeutralChroma(const ConvertSettings& settings, const YuvRowKernels& k, uint8_t* u, uint8_t* v);

// Pixels per chunk of a row. Scratch rows hold kChunk + 2 samples.
inline constexpr int kChunk = 2048;
inline constexpr int kScratch = kChunk + 16;

// Calls f(x0, n) over [0, width) in chunks of kChunk pixels, except that a
// last chunk of one pixel joins the one before it: every x0 is even, and an
// odd last pixel always has the pixel pair before it in its own chunk.
template <typename F>
void ForEachChunk(int width, F&& f) {
    for (int x0 = 0; x0 < width;) {
        int n = width - x0;
        if (n > kChunk) n = n == kChunk + 1 ? n : kChunk;
        f(x0, n);
        x0 += n;
    }
}

// The same with every chunk but the last a whole kChunk, for kernels whose
// result depends on a pixel's place in the row (kChunk is a multiple of 16).
template <typename F>
void ForEachBlockChunk(int width, F&& f) {
    for (int x0 = 0; x0 < width; x0 += kChunk) f(x0, width - x0 < kChunk ? width - x0 : kChunk);
}

}  // namespace ncb::video
