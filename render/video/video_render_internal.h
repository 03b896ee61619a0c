// Constants shared by the video render's source files: flag bits of buffers,
// frames and texts, status values, error codes and configuration defaults.
// Not part of the interface.
#pragma once

#include <cstdint>

#include "ncodecbase/video_render.h"

namespace ncb::render_video {

constexpr uint32_t kConfigSize = 64;
constexpr uint32_t kStatSize = 72;
constexpr uint32_t kDefaultRenderFlags = 0x18F;
constexpr uint32_t kDefaultFrameRate = 60;
constexpr uint32_t kDefaultRetryClosedMs = 1000;
constexpr uint32_t kDefaultRetryMs = 50;
constexpr uint32_t kDefaultCacheAge = 3;
constexpr uint32_t kDefaultFormatFlags = 31;
constexpr uint32_t kDefaultColorKey = 0x100010;

// Status (StatInfoTag::nStatus).
constexpr uint32_t kStatusNone = 0;
constexpr uint32_t kStatusRunning = 1;
constexpr uint32_t kStatusFailed = 2;
constexpr uint32_t kStatusLost = 3;
constexpr uint32_t kStatusStopped = 4;

// Extended error codes.
constexpr int kErrorStopped = 2;
constexpr int kErrorCpuInfo = 3;
constexpr int kErrorNoSse2 = 4;
constexpr int kErrorWindow = 5;
constexpr int kErrorDevice = 6;

// Buffer flags.
constexpr uint32_t kBufferBackground = 0x1;
constexpr uint32_t kBufferKeepCache = 0x2;
constexpr uint32_t kBufferFillBackground = 0x100;
constexpr uint32_t kBufferConfigMask = 0xFF00;
constexpr uint32_t kBufferLocked = 0x10000;
constexpr uint32_t kBufferD3DFailed = 0x20000;
constexpr uint32_t kBufferDxva2Failed = 0x40000;
constexpr uint32_t kBufferMainChanged = 0x80000;
constexpr uint32_t kBufferRestChanged = 0x100000;

// Frame flags.
constexpr uint32_t kFrameVideo = 0x1;
constexpr uint32_t kFrameText = 0x2;
constexpr uint32_t kFrameBitmap = 0x4;
constexpr uint32_t kFrameReturnCache = 0x8;
constexpr uint32_t kFrameNotInMemory = 0x10;
constexpr uint32_t kFrameEmpty = 0x100;
constexpr uint32_t kFrameColorKey = 0x200;
constexpr uint32_t kFrameRotationMask = 0x3000;
constexpr int kFrameRotationShift = 12;
constexpr uint32_t kFrameDeinterlace = 0x4000;
constexpr uint32_t kFrameAlwaysConvert = 0x8000;
constexpr uint32_t kFrameConfigMask = 0xFF00;

// Text flags.
constexpr uint32_t kTextUtf16 = 0x1;
constexpr uint32_t kTextUtf8 = 0x2;
constexpr uint32_t kTextScreenOnly = 0x4;
constexpr uint32_t kTextHidden = 0x8;
constexpr int kTextMaxBytes = 256;

// Present states of the render loop.
constexpr int kPresentWaitUnlock = 3;
constexpr int kRetryWaitUnlock = 5;

// The eleven words of the conversion settings used where a caller passes
// none: no fixed chroma, no flip, neutral offsets and gains, opaque.
inline constexpr CNVideoProcessor::ConvertConfigTag kNeutralConvert = {0, 0,   128, 128, 0,  0,
                                                                       0, 256, 256, 256, 255};

// Rotation code of a frame: 0..2 rotate, 3 none.
inline int FrameRotation(uint32_t flags) {
    return static_cast<int>((flags & kFrameRotationMask) >> kFrameRotationShift);
}

// Background colour as an opaque RGB32 pixel.
inline uint32_t OpaqueRgb(uint32_t yuv) { return CNVideoProcessor::YUV2RGB(yuv) | 0xFF000000u; }

}  // namespace ncb::render_video
