// The PNG decode behind CNPngCodec::Decode, with its memory limits made
// explicit so that fuzzers and tests can tighten them. The public entry uses
// the defaults: whatever a CNCodecBuffer can hold.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

#include "base/video_format.h"

class CNCodecBuffer;

namespace ncb::png {

struct DecodeLimits {
    // Bytes the header may promise for the inflated image (all passes, filter
    // bytes included) and for the output frame (padding included). A file
    // over either limit is refused before anything is allocated.
    int64_t maxInflatedBytes = INT_MAX;
    int64_t maxOutputBytes = INT_MAX;
};

// Decodes `size` bytes of a PNG file into a new RGB32 buffer (*output, one
// reference). `outFormat` supplies the padding words and receives the
// picture's descriptor. Returns 1, or 0 with *output null.
int DecodeFile(const uint8_t* data, size_t size, VideoFormatInfo* outFormat, CNCodecBuffer** output,
               const DecodeLimits& limits = {});

// The 256-entry gamma table for a gAMA value (gamma x 100000), in single
// precision as the decoder applies it: trunc(pow(i / 255, e) x 255 + 0.5)
// with e = 1 / (2.2 g), or e = 1 when g = value x 0.00001 is not above
// 0.000001. Returns false when every entry equals its index (no effect).
bool BuildGammaTable(uint32_t gammaValue, uint8_t table[256]);

}  // namespace ncb::png
