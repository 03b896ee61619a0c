// Test helpers for the PNG codec: libpng as the independent decoder (with the
// transforms that give 8-bit B, G, R, A and no gamma) and writer (any colour
// type, depth, interlace and filter choice), a small chunk writer for files
// libpng would refuse to make, and our decoder wrapped into the same picture
// form so results compare with ==.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ncodecbase/codec_base.h"

namespace ncbtest::png {

using Bytes = std::vector<uint8_t>;

// Tightly packed B, G, R, A rows.
struct Picture {
    int width = 0;
    int height = 0;
    Bytes bgra;
    bool operator==(const Picture&) const = default;
};

Bytes ReadFile(const std::string& path);

// libpng's reading of `file`: palette, low depths and tRNS expanded, 16-bit
// samples cut to their high byte, grey widened to RGB, alpha 255 where the
// image has none, no gamma transform. CRC errors are ignored. `gamma` gets
// the gAMA value (gamma x 100000) or 0 when there is none. False with
// `error` set when libpng refuses the file.
bool LibpngDecode(const Bytes& file, Picture* out, uint32_t* gamma, std::string* error);
// The same with libpng's default CRC checking (for our encoder's output).
bool LibpngDecodeStrict(const Bytes& file, Picture* out, std::string* error);

// What LibpngWrite writes: samples as PNG stores them (big-endian 16-bit,
// packed low depths), rows of RowBytes() each, no filter byte.
struct RawImage {
    int width = 1;
    int height = 1;
    int colourType = 0;
    int bitDepth = 8;
    bool interlace = false;
    Bytes samples;
    Bytes palette;       // R, G, B triples (colour type 3)
    Bytes transparency;  // tRNS payload as stored, empty for none
    uint32_t gamma = 0;  // 0: no gAMA chunk
    int RowBytes() const;
};
// libpng writes `image` with every filter allowed (adaptive choice).
Bytes LibpngWrite(const RawImage& image);

// Chunk-level builder for hand-made files.
void AppendChunk(Bytes* file, const char* type, const Bytes& data, bool goodCrc = true);
Bytes Signature();
Bytes IhdrData(uint32_t width, uint32_t height, int bitDepth, int colourType, int interlace = 0);
Bytes Deflate(const Bytes& raw, int level = 6);

// Our decoder on `file` with the caller's padding words in `format`. On
// success `out` holds the picture without padding and `format` the
// descriptor; returns what CNPngCodec::Decode returned.
int OurDecode(const Bytes& file, Picture* out, CNCodecBase::VideoFormatInfoTag* format = nullptr);

// The decoder's gamma mapping, computed the way the codec documents it
// (single precision): entry i = trunc(pow(i / 255, 1 / (2.2 g)) x 255 + 0.5).
void ApplyDocumentedGamma(uint32_t gamma, Picture* picture);

}  // namespace ncbtest::png
