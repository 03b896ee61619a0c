// Pictures from demo steps as files a person can open: every step that makes
// a picture writes it through here, as PNG.
#pragma once

#include <string>

#include "base/video_format.h"
#include "tools/ncodec/demo.h"

class CNCodecBuffer;

namespace ncodec {

// Writes the RGB32 picture (`format` describes `pixels`, padding and
// bottom-up rows included) to outDir/name as a PNG file, with its alpha
// channel when `alpha` is set. False with *error set on failure.
bool WritePicture(const DemoContext& context, const std::string& name,
                  const ncb::VideoFormatInfo& format, CNCodecBuffer* pixels, bool alpha,
                  std::string* error);

}  // namespace ncodec
