// The octree behind CNVideoProcessor::ColorQuantToIndex256, with the size of
// its leaf-id space made explicit so that tests can shrink it and drive the
// renumbering that long, colourful pictures need.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::quantise {

// Leaf ids are 16-bit and the remap table holds this many of them
// (65534 bytes); when a picture uses them all, the live leaves are
// renumbered and the ids already recorded for pixels are rewritten.
inline constexpr int kDefaultLeafIdSpace = 32767;

struct QuantiseArgs {
    int width = 0;
    int height = 0;
    const uint8_t* source = nullptr;  // RGB32 rows, bytes B, G, R, A
    ptrdiff_t sourcePitch = 0;
    uint8_t* indices = nullptr;  // one byte per pixel
    ptrdiff_t indexPitch = 0;
    uint8_t* palette = nullptr;  // 256 x 4 bytes B, G, R, 0
    int* colourCount = nullptr;
    bool flip = false;  // write index rows bottom-up
};

// Returns false (outputs untouched) when a work buffer cannot be allocated
// or the arguments are unusable. leafIdSpace below 600 counts as 600: a
// renumbering must leave room for at least one reduction's worth of ids.
bool QuantiseOctree(const QuantiseArgs& args, int leafIdSpace = kDefaultLeafIdSpace);

}  // namespace ncb::quantise
