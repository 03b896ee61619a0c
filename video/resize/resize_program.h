// The resizer's compiled form: the work-buffer header words, the table
// builder of one plane (command list, horizontal table, vertical weight
// rows) and the executor that runs a command list over one plane.
//
// ResizeInit does every division, kernel evaluation and edge decision here,
// once; a frame call only walks the commands, adds offsets and runs the row
// kernels of the kernel set chosen from the level stored at set-up.
#pragma once

#include <cstdint>

#include "video/kernels/kernel_set.h"

class CNCodecBuffer;

namespace ncb::video::resize {

// Words of the 28-word (112-byte) work header.
enum HeaderWord : int {
    kLayout = 0,
    kLevel = 1,
    kDstWidth = 2,
    kDstChromaWidth = 3,
    kRowBytes = 4,  // intermediate row bytes and rows, luma (or RGB32) plane
    kRows = 5,
    kChromaRowBytes = 6,
    kChromaRows = 7,
    kSrcPitch = 8,
    kSrcChromaPitch = 9,
    kDstPitch = 10,
    kDstChromaPitch = 11,
    kInterBytes = 12,  // size of the intermediate-row area
    kTableWidth = 13,  // destination pixels the luma / RGB32 tables compute
    kChromaTableWidth = 14,
    kDstHeight = 15,
    kMaskLow = 16,  // store mask of the last RGB32 pixel pair
    kMaskHigh = 17,
    kCommands = 18,
    kChromaCommands = 19,
    kHTable = 20,
    kChromaHTable = 21,
    kVWeights = 22,
    kChromaVWeights = 23,
    kInter = 24,
};
inline constexpr int kHeaderWords = 28;
inline constexpr int kHeaderBytes = kHeaderWords * 4;
inline constexpr int kLayoutRgb32 = 260;

// Opcodes of the command list.
inline constexpr int kOpEnd = 0;
inline constexpr int kOpCopy = 1;
inline constexpr int kOpHInter = 2;   // + taps / 2 - 1
inline constexpr int kOpHBytes = 8;   // + taps / 2 - 1
inline constexpr int kOpVInter = 14;  // + rows - 2
inline constexpr int kOpVBytes = 25;  // + rows - 2

int TapCount(int source, int destination);
unsigned int PixelWeight(int taps, unsigned int distance);

struct PlaneGeometry {
    int srcWidth, srcHeight, srcPitch, dstWidth, dstHeight, dstPitch;
    int bpp;  // 4: RGB32 (tables for the width rounded up to even); 1: one byte per sample
};

struct PlaneResult {
    int rowBytes = 0;        // bytes of one intermediate row
    unsigned int rows = 0;   // intermediate rows the program cycles through
    uint64_t storeMask = 0;  // bytes of the last pixel pair that are stored
    int tableWidth = 0;      // destination pixels the tables compute
    int verticalCommands = 0;
};

// Builds the three tables of one plane into owned buffers (16-byte aligned,
// data size set). False on bad sizes or when memory runs out.
bool BuildPlaneTables(const PlaneGeometry& geometry, CNCodecBuffer* commands,
                      CNCodecBuffer* horizontal, CNCodecBuffer* vertical, PlaneResult* result);

// ResizeInit: the whole work buffer.
int Init(int layout, int level, int srcWidth, int srcHeight, int srcPitch, int srcChromaPitch,
         int dstWidth, int dstHeight, int dstPitch, int dstChromaPitch, CNCodecBuffer* work);

// A frame call. `layout` is what the caller expects the work buffer to hold
// (260, 2, 3, 4; 1 for luma alone, which any YUV work buffer serves).
// src / dst: plane 0, then U and V. Returns 0 for an empty or mismatched
// work buffer, 1 otherwise.
int Run(CNCodecBuffer* work, int layout, KernelSet set, const uint8_t* const src[3],
        uint8_t* const dst[3]);
// The kernel set of the level the work buffer was set up with; false for a
// level outside 0-2 (the frame calls then do nothing).
bool WorkKernelSet(CNCodecBuffer* work, KernelSet* set);

}  // namespace ncb::video::resize
