// The PNG codec's hot row kernels, one table per processor level: reversing
// a row's filter in place, and turning 8-bit RGB / RGBA samples into RGB32
// pixels. The decoder picks the table for the running processor once; tests
// run every level against the scalar twins (`_c`) and require equal bytes.
//
// Reads and writes stay inside the row: vector paths stop where a full load
// would pass the end and finish through the scalar twin.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::png {

// Reverses filter `filter` (1 Sub, 2 Up, 3 Average, 4 Paeth; any other value
// leaves the row as stored) on `bytes` bytes of `row` in place. `prev` is the
// previous row already unfiltered (all zeros for the first row of a pass);
// `unit` is the byte distance to the left neighbour (1 to 8).
using UnfilterRowFn = void (*)(int filter, uint8_t* row, const uint8_t* prev, size_t bytes,
                               int unit);
// `width` pixels of packed samples (R, G, B or R, G, B, A) to bytes B, G, R, A
// (alpha 255 for RGB), output pixels contiguous.
using SamplesToBgraFn = void (*)(const uint8_t* src, uint8_t* dst, int width);

struct PngKernels {
    UnfilterRowFn unfilterRow;
    SamplesToBgraFn rgbToBgra;
    SamplesToBgraFn rgbaToBgra;
};

// Scalar twins.
void UnfilterRow_c(int filter, uint8_t* row, const uint8_t* prev, size_t bytes, int unit);
void RgbToBgra_c(const uint8_t* src, uint8_t* dst, int width);
void RgbaToBgra_c(const uint8_t* src, uint8_t* dst, int width);

void UnfilterRow_sse2(int filter, uint8_t* row, const uint8_t* prev, size_t bytes, int unit);
void RgbaToBgra_sse2(const uint8_t* src, uint8_t* dst, int width);
void RgbToBgra_ssse3(const uint8_t* src, uint8_t* dst, int width);

const PngKernels& ScalarPngKernels();
// Level 0 (SSE2), 1 (SSSE3) or 2 (SSE4.1); other values give the scalar table.
const PngKernels& PngKernelsForLevel(int level);
// The table of the running processor, chosen on first use.
const PngKernels& ActivePngKernels();

}  // namespace ncb::png
