// Row kernels of the resizer: the horizontal pass of one source row through a
// plane's horizontal table (into 16-bit intermediates with 7 fraction bits,
// or straight into bytes), and the vertical pass that weighs 2 to 12 rows
// (intermediates or source bytes) into one destination row.
//
// All arithmetic truncates and saturates exactly as the scalar twins spell it
// out, so every level gives the same bytes. The horizontal kernels read only
// the source bytes the table names (no over-read of a row's end); they may
// read up to 16 bytes past the weight array, which the table builder pads.
#pragma once

#include <cstddef>
#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

// A parsed horizontal table: per destination pixel `taps` weights; source
// positions as byte steps from the previous listed position (the cursor
// starts at the row's first byte). Left-edge and right-edge pixels list every
// tap; inside pixels list their first tap and read the rest contiguously.
struct ResizeHTable {
    const int32_t* steps = nullptr;
    const int16_t* weights = nullptr;
    int taps = 2;
    int left = 0;
    int inside = 0;
    int right = 0;
    int Width() const { return left + inside + right; }
};

struct ResizeKernels {
    // RGB32: 4 int16 per pixel; to bytes, pixels [0, width - 2) go to dst and
    // the last pair (8 bytes) to `tail`, which the caller stores under the
    // store mask. The table width is even.
    void (*hRgb32ToInter)(const uint8_t* src, const ResizeHTable& t, int16_t* dst);
    void (*hRgb32ToBytes)(const uint8_t* src, const ResizeHTable& t, uint8_t* dst, uint8_t* tail);
    // One byte per sample.
    void (*hPlaneToInter)(const uint8_t* src, const ResizeHTable& t, int16_t* dst);
    void (*hPlaneToBytes)(const uint8_t* src, const ResizeHTable& t, uint8_t* dst);
    // `weights` holds one 16-byte group (the weight eight times) per row.
    void (*vInter)(const int16_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                   int count);
    void (*vBytes)(const uint8_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                   int count);
};

const ResizeKernels& GetResizeKernels(KernelSet set);

void InstallResizeScalar(ResizeKernels* k);
void InstallResizeSse2(ResizeKernels* k);
void InstallResizeSsse3(ResizeKernels* k);
void InstallResizeAvx2(ResizeKernels* k);

// Scalar twins. The vertical ones take a value range [x0, count).
void ResizeHRgb32ToInter_c(const uint8_t* src, const ResizeHTable& t, int16_t* dst);
void ResizeHRgb32ToBytes_c(const uint8_t* src, const ResizeHTable& t, uint8_t* dst, uint8_t* tail);
void ResizeHPlaneToInter_c(const uint8_t* src, const ResizeHTable& t, int16_t* dst);
void ResizeHPlaneToBytes_c(const uint8_t* src, const ResizeHTable& t, uint8_t* dst);
void ResizeVInter_c(const int16_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                    int x0, int count);
void ResizeVBytes_c(const uint8_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                    int x0, int count);

namespace {  // internal linkage: included by kernel files of every instruction set

// Walks a horizontal table: calls edge(i, positions) for edge pixels with the
// byte position of every tap, and inside(i, position) for inside pixels with
// the position of the first tap. Positions are offsets from the row start.
template <typename Edge, typename Inside>
inline void WalkHTable(const ResizeHTable& t, Edge&& edge, Inside&& inside) {
    const int32_t* step = t.steps;
    ptrdiff_t cursor = 0;
    ptrdiff_t pos[12];
    int i = 0;
    for (int e = 0; e < t.left; ++e, ++i) {
        for (int k = 0; k < t.taps; ++k) pos[k] = cursor += *step++;
        edge(i, pos);
    }
    for (int e = 0; e < t.inside; ++e, ++i) inside(i, cursor += *step++);
    for (int e = 0; e < t.right; ++e, ++i) {
        for (int k = 0; k < t.taps; ++k) pos[k] = cursor += *step++;
        edge(i, pos);
    }
}

}  // namespace
}  // namespace ncb::video
