// Scalar twins of the YUV row kernels, over the pixel range [x0, width) of a
// row. They are the literal form of each rule; the vector kernels finish
// their rows with them.
#pragma once

#include <cstdint>

#include "video/colour/yuv_rows.h"

namespace ncb::video {

void Fill_c(uint8_t* dst, uint8_t value, int x0, int width);
void Copy_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void AverageRows_c(const uint8_t* a, const uint8_t* b, uint8_t* dst, int x0, int width);
void HalveRow_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void AverageHalveRows_c(const uint8_t* a, const uint8_t* b, uint8_t* dst, int x0, int width);
void DoubleRow_c(const uint8_t* src, uint8_t* dst, int x0, int width);
void Adjust_c(const uint8_t* src, uint8_t* dst, const SampleAdjust& adjust, int x0, int width);
void InterleaveUV_c(const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0, int width);
void SplitUV_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width);
void PackYuy2_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0,
                int width);
void PackUyvy_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0,
                int width);
void UnpackYuy2Luma_c(const uint8_t* src, uint8_t* y, int x0, int width);
void UnpackUyvyLuma_c(const uint8_t* src, uint8_t* y, int x0, int width);
void UnpackYuy2Chroma_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width);
void UnpackUyvyChroma_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width);
void UnpackYuy2ChromaRows_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                            int x0, int width);
void UnpackUyvyChromaRows_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                            int x0, int width);
void PackAyuv_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, uint8_t alpha,
                int x0, int width);
void UnpackAyuv_c(const uint8_t* src, uint8_t* y, uint8_t* u, uint8_t* v, int x0, int width);

}  // namespace ncb::video
