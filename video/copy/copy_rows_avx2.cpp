// AVX2 kernels of the copy family, picked by level 2 on processors with AVX2.
#include <immintrin.h>

#include "video/copy/copy_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {

void InstallCopyAvx2(CopyKernels* k) { (void)k; }

}  // namespace ncb::video
