// CNVideoProcessor::ColorQuantToIndex256 and the octree key tables.
//
// The tables spread the bits of a channel over a 32-bit key so that each
// nibble, from the top, holds one bit of R, G and B: the child to take at
// one level of the octree (video/quantise/octree_quantiser.cpp).
#include "ncodecbase/video_processor.h"
#include "video/quantise/octree_quantiser.h"

namespace {

// Bit i of v moved to key bit 4i + shift.
constexpr unsigned int Spread(int v, int shift) {
    unsigned int key = 0;
    for (int i = 0; i < 8; ++i)
        if (v & (1 << i)) key |= 1u << (4 * i + shift);
    return key;
}

}  // namespace

#define NCB_ROW16(F, b)                                                                       \
    F(b + 0), F(b + 1), F(b + 2), F(b + 3), F(b + 4), F(b + 5), F(b + 6), F(b + 7), F(b + 8), \
        F(b + 9), F(b + 10), F(b + 11), F(b + 12), F(b + 13), F(b + 14), F(b + 15)
#define NCB_TABLE256(F)                                                                      \
    NCB_ROW16(F, 0), NCB_ROW16(F, 16), NCB_ROW16(F, 32), NCB_ROW16(F, 48), NCB_ROW16(F, 64), \
        NCB_ROW16(F, 80), NCB_ROW16(F, 96), NCB_ROW16(F, 112), NCB_ROW16(F, 128),            \
        NCB_ROW16(F, 144), NCB_ROW16(F, 160), NCB_ROW16(F, 176), NCB_ROW16(F, 192),          \
        NCB_ROW16(F, 208), NCB_ROW16(F, 224), NCB_ROW16(F, 240)
#define NCB_OCT_RED(i) Spread(i, 2)
#define NCB_OCT_GREEN(i) Spread(i, 1)
#define NCB_OCT_BLUE(i) Spread(i, 0)

constinit const unsigned int CNVideoProcessor::s_uOctTreeRedMask[256] = {NCB_TABLE256(NCB_OCT_RED)};
constinit const unsigned int CNVideoProcessor::s_uOctTreeGreenMask[256] = {
    NCB_TABLE256(NCB_OCT_GREEN)};
constinit const unsigned int CNVideoProcessor::s_uOctTreeBlueMask[256] = {
    NCB_TABLE256(NCB_OCT_BLUE)};
constinit const unsigned int CNVideoProcessor::s_uOctTreeLevelMask[8] = {
    0xF0000000u, 0xFF000000u, 0xFFF00000u, 0xFFFF0000u,
    0xFFFFF000u, 0xFFFFFF00u, 0xFFFFFFF0u, 0xFFFFFFFFu};

#undef NCB_OCT_RED
#undef NCB_OCT_GREEN
#undef NCB_OCT_BLUE
#undef NCB_TABLE256
#undef NCB_ROW16

int CNVideoProcessor::ColorQuantToIndex256(int nWidth, int nHeight, unsigned char* pSource,
                                           unsigned char* pIndices, int nSourcePitch,
                                           int nIndexPitch, unsigned char* pPalette,
                                           int* pColorCount, int nFlip) {
    ncb::quantise::QuantiseArgs args;
    args.width = nWidth;
    args.height = nHeight;
    args.source = pSource;
    args.sourcePitch = nSourcePitch;
    args.indices = pIndices;
    args.indexPitch = nIndexPitch;
    args.palette = pPalette;
    args.colourCount = pColorCount;
    args.flip = nFlip != 0;
    return ncb::quantise::QuantiseOctree(args) ? 1 : 0;
}
