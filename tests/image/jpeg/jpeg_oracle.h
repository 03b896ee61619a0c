// Test helpers for the JPEG decoder: our decoder wrapped into plain planes,
// TurboJPEG decoding to planar YUV (no upsampling) as the independent
// oracle, cjpeg to make test files at test time, and the comparison that
// reports maximum difference and PSNR.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ncodecbase/codec_base.h"

namespace ncbtest::jpeg {

using Bytes = std::vector<uint8_t>;

// The visible samples of a decoded picture, tightly packed. Chroma planes
// have their coded size (4:2:0: ceil(w/2) x ceil(h/2); 4:2:2: ceil(w/2) x h;
// 4:4:4 and 1x2 after our row doubling: w x h); grey pictures have none.
struct Planes {
    int width = 0, height = 0;
    int chromaWidth = 0, chromaHeight = 0;
    Bytes y, u, v;
};

struct OursResult {
    int ok = 0;
    CNCodecBase::VideoFormatInfoTag format{};
    Planes planes;
    int userData = 0;  // the input buffer's user data afterwards
};

struct PadWords {
    int left = 0, right = 0, top = 0, bottom = 0;
    int chromaLeft = 0, chromaRight = 0, chromaTop = 0, chromaBottom = 0;
};

// CNJpegCodec::Decode on `data` (input user data = startOffset).
OursResult DecodeOurs(const Bytes& data, int kernelSelect = 0, int startOffset = 0,
                      const PadWords& pads = {});
// The same decode with the scalar reconstruction kernels.
OursResult DecodeOursScalar(const Bytes& data);

// TurboJPEG's planes; 1x2 chroma rows are doubled to match our layout.
bool DecodeTurbo(const Bytes& data, Planes* out);

struct Difference {
    int maxDiff = 0;
    double psnr = 0;  // 99 when equal
};
// Over all planes; sizes must agree (else maxDiff 256).
Difference Compare(const Planes& a, const Planes& b);

Bytes ReadFile(const std::string& path);
// A deterministic PPM (or PGM) picture with smooth areas, edges and texture,
// and no symmetry between rows and columns.
Bytes MakePicture(int width, int height, bool grey, uint32_t seed);
// Runs cjpeg with `args` on `picture`; empty when cjpeg fails.
Bytes RunCjpeg(const std::string& args, const Bytes& picture);
// The stream with every DHT segment removed.
Bytes StripDht(const Bytes& jpeg);

}  // namespace ncbtest::jpeg
