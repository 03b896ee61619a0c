// The decode behind CNJpegCodec::Decode, with its limits and kernel choice
// made explicit so that tests can force the scalar twin through a whole
// image and fuzzers can tighten the memory bounds.
#pragma once

#include <climits>
#include <cstdint>

#include "base/video_format.h"
#include "image/jpeg/jpeg_idct.h"
#include "ncodecbase/jpeg_codec.h"

class CNCodecBuffer;

namespace ncb::jpeg {

struct DecodeLimits {
    // Luma pixels of the stored picture (size rounded up to 16), output bytes
    // with padding, and progressive coefficient bytes. A header over any of
    // them is refused before the large allocations.
    int64_t maxPixels = CNJpegCodec::kMaxDecodePixels;
    int64_t maxOutputBytes = INT_MAX;
    int64_t maxCoefficientBytes = int64_t{1} << 32;
};

// Decodes the image in [data, data + size). On success returns 1, fills
// *outFormat, and stores in *consumed the bytes taken from `data`.
int DecodeImage(const uint8_t* data, int size, VideoFormatInfo* outFormat, CNCodecBuffer* output,
                CNCodecBuffer* cache, KernelSet kernels, int* consumed,
                const DecodeLimits& limits = {});

}  // namespace ncb::jpeg
