// Row kernels that move YUV samples between layouts without leaving YUV:
// chroma resampling (averages for fewer samples, repeats for more), the
// adjustment of ConvertConfigTag, NV12 interleaving, packed 4:2:2 and AYUV
// packing. One table per kernel set (kernel_set.h); the conversions of
// video_processor_yuv.cpp and video_processor_rgb.cpp compose them.
//
// Widths count output samples unless a comment says otherwise. Kernels read
// and write exactly the samples their width covers, never past them. The
// averages round up: (a + b + 1) >> 1, two by two.
#pragma once

#include <cstdint>

#include "video/kernels/kernel_set.h"

namespace ncb::video {

// out = clamp(((in * gain) >> 8) + offset, 0, 255) in 32-bit arithmetic.
// Luma uses the tag's offset; chroma folds "- gain / 2 + offset, clamp to
// -128..127, + 128" into offset = tag offset - (gain >> 1) + 128, which is
// the same clamp moved by 128. MakeSampleAdjust saturates the words so the
// sums cannot overflow: gains to 16 bits, offsets to +-65536 (any offset
// beyond already pins the result).
struct SampleAdjust {
    int32_t gain = 256;
    int32_t offset = 0;
};
SampleAdjust MakeLumaAdjust(int32_t gain, int32_t offset);
SampleAdjust MakeChromaAdjust(int32_t gain, int32_t offset);

struct YuvRowKernels {
    void (*fill)(uint8_t* dst, uint8_t value, int width);
    void (*copy)(const uint8_t* src, uint8_t* dst, int width);
    // dst[i] = avg(a[i], b[i])
    void (*averageRows)(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width);
    // dst[i] = avg(src[2i], src[2i + 1])
    void (*halveRow)(const uint8_t* src, uint8_t* dst, int width);
    // dst[i] = avg(avg(a[2i], b[2i]), avg(a[2i + 1], b[2i + 1]))
    void (*averageHalveRows)(const uint8_t* a, const uint8_t* b, uint8_t* dst, int width);
    // dst[i] = src[i >> 1]; width even
    void (*doubleRow)(const uint8_t* src, uint8_t* dst, int width);
    void (*adjust)(const uint8_t* src, uint8_t* dst, const SampleAdjust& adjust, int width);
    // NV12 chroma: width pairs
    void (*interleaveUV)(const uint8_t* u, const uint8_t* v, uint8_t* dst, int width);
    void (*splitUV)(const uint8_t* src, uint8_t* u, uint8_t* v, int width);
    // Packed 4:2:2, width pixels (even). YUY2 bytes Y0 U Y1 V; UYVY bytes
    // U Y0 V Y1. YVYU and VYUY are these with u and v exchanged.
    void (*packYuy2)(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width);
    void (*packUyvy)(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int width);
    void (*unpackYuy2Luma)(const uint8_t* src, uint8_t* y, int width);
    void (*unpackUyvyLuma)(const uint8_t* src, uint8_t* y, int width);
    // Chroma of width pixels (even) into width / 2 samples each.
    void (*unpackYuy2Chroma)(const uint8_t* src, uint8_t* u, uint8_t* v, int width);
    void (*unpackUyvyChroma)(const uint8_t* src, uint8_t* u, uint8_t* v, int width);
    // The same from two rows, averaged (4:2:2 to 4:2:0).
    void (*unpackYuy2ChromaRows)(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                                 int width);
    void (*unpackUyvyChromaRows)(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                                 int width);
    // AYUV bytes V U Y A.
    void (*packAyuv)(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                     uint8_t alpha, int width);
    void (*unpackAyuv)(const uint8_t* src, uint8_t* y, uint8_t* u, uint8_t* v, int width);
};

const YuvRowKernels& GetYuvRowKernels(KernelSet set);

void InstallYuvRowsScalar(YuvRowKernels* k);
void InstallYuvRowsSse2(YuvRowKernels* k);
void InstallYuvRowsSsse3(YuvRowKernels* k);
void InstallYuvRowsAvx2(YuvRowKernels* k);

}  // namespace ncb::video
