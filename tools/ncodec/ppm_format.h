// PPM and PGM (binary P6 / P5, 8-bit samples) as a row of the image-format
// table: the simplest pictures a person can make with any tool, and a way in
// and out of `ncodec convert` that needs no codec of the library.
#pragma once

#include "tools/ncodec/image_formats.h"

namespace ncodec {

// {"PPM", {".ppm", ".pgm", ".pnm"}, ...}: decodes P6 and P5 (maxval up to
// 255) to RGB32 with alpha 255; encodes P6 (alpha dropped).
ImageFormat PpmImageFormat();

}  // namespace ncodec
