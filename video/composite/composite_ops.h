// The compositing operations of CNVideoProcessor with the kernel set chosen,
// so that tests can run them on the scalar twins and on each level. The
// public operations map their level argument to a set (or do nothing and
// return 1) and call these.
#pragma once

#include <cstdint>

#include "video/frame_access.h"
#include "video/kernels/kernel_set.h"

namespace ncb::video::composite {

// A source placed at (x, y) of the destination (relative to the destination
// rectangle with use-rectangle), clipped to the destination picture.
struct Placement {
    int x = 0;
    int y = 0;
};

// Planes of the source area and of the place it lands on, clipped to the
// destination picture. False when nothing remains or a descriptor is
// refused.
bool OpenPlaced(const PictureArgs& args, Placement at, Pictures* pictures);

int AlphaBlending(bool rgb, const PictureArgs& args, Placement at, int mode, uint32_t alpha,
                  uint32_t key, KernelSet set);
int FillRect(bool rgb, CNCodecBuffer* buffer, const VideoFormatInfo* format, uint32_t colour, int x,
             int y, int width, int height, bool useRect, KernelSet set);

enum class KeyedCopy { kAlphaNonZero, kNotKey, kJustReadAlpha, kAi44 };
int CopyKeyed(KeyedCopy kind, const PictureArgs& args, Placement at, uint32_t key, KernelSet set);

int ConvertFromAi44(const PictureArgs& args, bool flip, KernelSet set);
int CopyModifyBackground(const PictureArgs& args, bool flip, KernelSet set);
int AdjustAlphaRgb(const PictureArgs& args, uint32_t value, uint32_t scale, KernelSet set);
int AdjustAlphaAi44(const PictureArgs& args, uint32_t value, uint32_t scale, KernelSet set);
int FillAlphaFlat(uint8_t* data, int count, uint32_t alpha, KernelSet set);

// The 16 AYUV entries (bytes 0-63 of the additional information) and their
// RGB32 forms (bytes 64-127 when the block holds 128 bytes, else converted
// here). False when the buffer carries fewer than 64 bytes.
struct Ai44Palette {
    uint32_t ayuv[16];
    uint32_t rgb[16];
};
bool ReadAi44Palette(CNCodecBuffer* buffer, Ai44Palette* out);

}  // namespace ncb::video::composite
