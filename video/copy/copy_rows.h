// Kernels of the copy, rotation and de-interlacing operations: row copies,
// block transposes (a quarter turn is a transpose of a picture whose rows
// are walked upward, or written upward), row reversal (the half turn) and the
// edge-directed de-interlacing of one odd row.
//
// Transposes take a width x height region of the source and write it as a
// height x width region of the destination: destination row x, column y is
// source row y, column x. Pitches may be negative.
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

struct CopyKernels {
    void (*copyRow)(const uint8_t* src, uint8_t* dst, int bytes);
    void (*transpose8)(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                       int width, int height);
    void (*transpose32)(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                        int width, int height);
    // dst[x] = src[width - 1 - x], for bytes and for 32-bit pixels.
    void (*reverse8)(const uint8_t* src, uint8_t* dst, int width);
    void (*reverse32)(const uint8_t* src, uint8_t* dst, int width);
    // One odd row: `above` is the output row before it, `current` the source
    // row, `below` the source row after it (or `above` for the last row).
    void (*deinterlaceRow)(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                           uint8_t* dst, int width);
};

const CopyKernels& GetCopyKernels(KernelSet set);

void InstallCopyScalar(CopyKernels* k);
void InstallCopySse2(CopyKernels* k);
void InstallCopySsse3(CopyKernels* k);

// Scalar twins.
void CopyRow_c(const uint8_t* src, uint8_t* dst, int x0, int bytes);
void Transpose8_c(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                  int width, int height);
void Transpose32_c(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                   int width, int height);
void Reverse8_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Reverse32_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void DeinterlaceRow_c(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                      uint8_t* dst, int x0, int width);

namespace {  // internal linkage: kernel files of every instruction set include this

// The columns [8, end) of a row of `width` where the de-interlacer looks at
// the diagonals: whole 16-column blocks from column 8 that keep column x + 1
// inside the row. Columns outside use the vertical pair only.
inline int DeinterlaceDirectionalEnd(int width) {
    return width >= 9 ? 8 + 16 * ((width - 9) / 16) : 8;
}

// Transposes the whole tiles of a region with `tile` (square tiles of
// kTile x kTile elements) and the strips to the right and below with the
// twin. The one place where 2-D kernels meet their edges.
template <int kTile, int kBytes>
void TransposeTiles(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                    int width, int height,
                    void (*tile)(const uint8_t*, ptrdiff_t, uint8_t*, ptrdiff_t),
                    void (*twin)(const uint8_t*, ptrdiff_t, uint8_t*, ptrdiff_t, int, int)) {
    const int wholeW = width - width % kTile;
    const int wholeH = height - height % kTile;
    for (int y = 0; y < wholeH; y += kTile) {
        for (int x = 0; x < wholeW; x += kTile) {
            tile(src + y * srcPitch + x * kBytes, srcPitch, dst + x * dstPitch + y * kBytes,
                 dstPitch);
        }
    }
    if (wholeW < width)
        twin(src + wholeW * kBytes, srcPitch, dst + wholeW * dstPitch, dstPitch, width - wholeW,
             height);
    if (wholeH < height)
        twin(src + wholeH * srcPitch, srcPitch, dst + wholeH * kBytes, dstPitch, wholeW,
             height - wholeH);
}

}  // namespace
}  // namespace ncb::video
