// `ncodec convert --via LAYOUT`: sends a decoded RGB32 picture through one
// of the library's pixel layouts and back with CNVideoProcessor, so that a
// person can look at what a layout keeps (4:2:0 chroma, 5-6-5 bits, grey).
#pragma once

#include <string>

#include "tools/ncodec/image_formats.h"

namespace ncodec {

// Names accepted by ConvertThroughLayout, separated by spaces.
std::string LayoutNames();

// Replaces *picture (RGB32) by the picture converted to the named layout
// (y800, yuv420, yuv422, yuv444, iyuv, yv12, nv12, yuy2, yvyu, uyvy, vyuy,
// ayuv, rgb555, rgb565, rgb24, rgb32) and back to RGB32. YUV surface layouts
// go through YUV 4:4:4 on the way in and out. False with *error set.
bool ConvertThroughLayout(const std::string& name, Picture* picture, std::string* error);

}  // namespace ncodec
