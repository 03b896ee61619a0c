// Scalar twins of the YUV row kernels and the scalar table. Each function is
// the rule written out one sample at a time; the vector kernels must agree
// with them bit for bit.
#include "video/colour/yuv_rows_c.h"

#include <algorithm>

#include "video/kernels/simd_row.h"

namespace ncb::video {
namespace {

inline uint8_t Average(int a, int b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

}  // namespace

SampleAdjust MakeLumaAdjust(int32_t gain, int32_t offset) {
    return {std::clamp(gain, -32768, 32767), std::clamp(offset, -65536, 65536)};
}

SampleAdjust MakeChromaAdjust(int32_t gain, int32_t offset) {
    const int32_t g = std::clamp(gain, -32768, 32767);
    // 64-bit so that no offset can overflow; the clamp cannot change a result.
    const int64_t folded = int64_t{offset} - (g >> 1) + 128;
    return {g, static_cast<int32_t>(std::clamp<int64_t>(folded, -65536, 65536))};
}

void Fill_c(uint8_t* dst, uint8_t value, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = value;
}

void Copy_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = src[x];
}

void AverageRows_c(const uint8_t* a, const uint8_t* b, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = Average(a[x], b[x]);
}

void HalveRow_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = Average(src[2 * x], src[2 * x + 1]);
}

void AverageHalveRows_c(const uint8_t* a, const uint8_t* b, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        dst[x] = Average(Average(a[2 * x], b[2 * x]), Average(a[2 * x + 1], b[2 * x + 1]));
    }
}

void DoubleRow_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = src[x >> 1];
}

void Adjust_c(const uint8_t* src, uint8_t* dst, const SampleAdjust& adjust, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        const int32_t value = ((src[x] * adjust.gain) >> 8) + adjust.offset;
        dst[x] = static_cast<uint8_t>(std::clamp(value, 0, 255));
    }
}

void InterleaveUV_c(const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        dst[2 * x] = u[x];
        dst[2 * x + 1] = v[x];
    }
}

void SplitUV_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        u[x] = src[2 * x];
        v[x] = src[2 * x + 1];
    }
}

void PackYuy2_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0,
                int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        uint8_t* d = dst + 2 * x;
        d[0] = y[x];
        d[1] = u[x >> 1];
        d[2] = y[x + 1];
        d[3] = v[x >> 1];
    }
}

void PackUyvy_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int x0,
                int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        uint8_t* d = dst + 2 * x;
        d[0] = u[x >> 1];
        d[1] = y[x];
        d[2] = v[x >> 1];
        d[3] = y[x + 1];
    }
}

void UnpackYuy2Luma_c(const uint8_t* src, uint8_t* y, int x0, int width) {
    for (int x = x0; x < width; ++x) y[x] = src[2 * x];
}

void UnpackUyvyLuma_c(const uint8_t* src, uint8_t* y, int x0, int width) {
    for (int x = x0; x < width; ++x) y[x] = src[2 * x + 1];
}

void UnpackYuy2Chroma_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        u[x >> 1] = src[2 * x + 1];
        v[x >> 1] = src[2 * x + 3];
    }
}

void UnpackUyvyChroma_c(const uint8_t* src, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        u[x >> 1] = src[2 * x];
        v[x >> 1] = src[2 * x + 2];
    }
}

void UnpackYuy2ChromaRows_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                            int x0, int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        u[x >> 1] = Average(src0[2 * x + 1], src1[2 * x + 1]);
        v[x >> 1] = Average(src0[2 * x + 3], src1[2 * x + 3]);
    }
}

void UnpackUyvyChromaRows_c(const uint8_t* src0, const uint8_t* src1, uint8_t* u, uint8_t* v,
                            int x0, int width) {
    for (int x = x0; x + 1 < width; x += 2) {
        u[x >> 1] = Average(src0[2 * x], src1[2 * x]);
        v[x >> 1] = Average(src0[2 * x + 2], src1[2 * x + 2]);
    }
}

void PackAyuv_c(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, uint8_t alpha,
                int x0, int width) {
    for (int x = x0; x < width; ++x) {
        dst[4 * x] = v[x];
        dst[4 * x + 1] = u[x];
        dst[4 * x + 2] = y[x];
        dst[4 * x + 3] = alpha;
    }
}

void UnpackAyuv_c(const uint8_t* src, uint8_t* y, uint8_t* u, uint8_t* v, int x0, int width) {
    for (int x = x0; x < width; ++x) {
        v[x] = src[4 * x];
        u[x] = src[4 * x + 1];
        y[x] = src[4 * x + 2];
    }
}

void InstallYuvRowsScalar(YuvRowKernels* k) {
    using Pack = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*)>;
    using Unpack = Row<void(const uint8_t*, uint8_t*)>;
    using UnpackChroma = Row<void(const uint8_t*, uint8_t*, uint8_t*)>;
    using Rows = Row<void(const uint8_t*, const uint8_t*, uint8_t*)>;
    using RowsChroma = Row<void(const uint8_t*, const uint8_t*, uint8_t*, uint8_t*)>;
    k->fill = Row<void(uint8_t*, uint8_t)>::Scalar<Fill_c>;
    k->copy = Unpack::Scalar<Copy_c>;
    k->averageRows = Rows::Scalar<AverageRows_c>;
    k->halveRow = Unpack::Scalar<HalveRow_c>;
    k->averageHalveRows = Rows::Scalar<AverageHalveRows_c>;
    k->doubleRow = Unpack::Scalar<DoubleRow_c>;
    k->adjust = Row<void(const uint8_t*, uint8_t*, const SampleAdjust&)>::Scalar<Adjust_c>;
    k->interleaveUV = Rows::Scalar<InterleaveUV_c>;
    k->splitUV = UnpackChroma::Scalar<SplitUV_c>;
    k->packYuy2 = Pack::Scalar<PackYuy2_c>;
    k->packUyvy = Pack::Scalar<PackUyvy_c>;
    k->unpackYuy2Luma = Unpack::Scalar<UnpackYuy2Luma_c>;
    k->unpackUyvyLuma = Unpack::Scalar<UnpackUyvyLuma_c>;
    k->unpackYuy2Chroma = UnpackChroma::Scalar<UnpackYuy2Chroma_c>;
    k->unpackUyvyChroma = UnpackChroma::Scalar<UnpackUyvyChroma_c>;
    k->unpackYuy2ChromaRows = RowsChroma::Scalar<UnpackYuy2ChromaRows_c>;
    k->unpackUyvyChromaRows = RowsChroma::Scalar<UnpackUyvyChromaRows_c>;
    k->packAyuv = Row<void(const uint8_t*, const uint8_t*, const uint8_t*, uint8_t*,
                           uint8_t)>::Scalar<PackAyuv_c>;
    k->unpackAyuv = Row<void(const uint8_t*, uint8_t*, uint8_t*, uint8_t*)>::Scalar<UnpackAyuv_c>;
}

const YuvRowKernels& GetYuvRowKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<YuvRowKernels>(
        InstallYuvRowsScalar,
        {InstallYuvRowsSse2, InstallYuvRowsSsse3, nullptr, InstallYuvRowsAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
