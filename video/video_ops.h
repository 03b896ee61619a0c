// The picture operations of CNVideoProcessor with the kernel set chosen, so
// that tests can run them on the scalar twins (KernelSet::kScalar) and on
// each level's kernels. The public operations map their level argument to a
// set (or do nothing) and call these.
#pragma once

#include "ncodecbase/video_processor.h"
#include "video/frame_access.h"
#include "video/kernels/kernel_set.h"

namespace ncb::video {

using ConvertConfig = CNVideoProcessor::ConvertConfigTag;

// Colour conversion.
int ConvertToYuv(const PictureArgs& args, const ConvertConfig* config, KernelSet set);
int ConvertFromYuv(const PictureArgs& args, const ConvertConfig* config, KernelSet set);
int ConvertYuv(const PictureArgs& args, KernelSet set);
int ConvertToRgb(const PictureArgs& args, const ConvertConfig* config, KernelSet set);
int ConvertFromRgb(const PictureArgs& args, const ConvertConfig* config, KernelSet set);
int ConvertRgb(const PictureArgs& args, KernelSet set);
int ConvertAyuvToRgb32(const PictureArgs& args, bool flip, KernelSet set);
int ConvertRgb32ToAyuv(const PictureArgs& args, bool flip, KernelSet set);

// Copy, rotation and de-interlacing.
void CopyData(const uint8_t* src, uint8_t* dst, int rowBytes, int rows, ptrdiff_t srcPitch,
              ptrdiff_t dstPitch, KernelSet set);
int CopyYuv(const PictureArgs& args, bool flip, KernelSet set);
int CopyRgb(const PictureArgs& args, bool flip, KernelSet set);
int RotateRgb(const PictureArgs& args, int rotation, KernelSet set);
int RotateYuv(const PictureArgs& args, int rotation, KernelSet set);
int Deinterlace(const PictureArgs& args, KernelSet set);

}  // namespace ncb::video
