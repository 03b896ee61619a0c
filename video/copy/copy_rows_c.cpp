// Scalar twins of the copy, rotation and de-interlacing kernels, and the
// scalar table.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "video/copy/copy_rows.h"
#include "video/kernels/simd_row.h"

namespace ncb::video {

void CopyRow_c(const uint8_t* src, uint8_t* dst, int x0, int bytes) {
    for (int x = x0; x < bytes; ++x) dst[x] = src[x];
}

void Transpose8_c(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                  int width, int height) {
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) dst[x * dstPitch + y] = src[y * srcPitch + x];
    }
}

void Transpose32_c(const uint8_t* src, ptrdiff_t srcPitch, uint8_t* dst, ptrdiff_t dstPitch,
                   int width, int height) {
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            std::memcpy(dst + x * dstPitch + 4 * y, src + y * srcPitch + 4 * x, 4);
    }
}

void Reverse8_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) dst[x] = src[width - 1 - x];
}

void Reverse32_c(const uint8_t* src, uint8_t* dst, int x0, int width) {
    for (int x = x0; x < width; ++x) std::memcpy(dst + 4 * x, src + 4 * (width - 1 - x), 4);
}

void DeinterlaceRow_c(const uint8_t* above, const uint8_t* current, const uint8_t* below,
                      uint8_t* dst, int x0, int width) {
    const int directionalEnd = DeinterlaceDirectionalEnd(width);
    for (int x = x0; x < width; ++x) {
        int p = below[x], q = above[x];
        if (x >= 8 && x < directionalEnd) {
            const int d0 = std::abs(below[x] - above[x]);
            const int d1 = std::abs(below[x + 1] - above[x - 1]);
            const int d2 = std::abs(below[x - 1] - above[x + 1]);
            if (d1 < d0) {
                p = below[x + 1];
                q = above[x - 1];
            }
            if (d2 < std::min(d0, d1)) {
                p = below[x - 1];
                q = above[x + 1];
            }
        }
        const int lo = std::min(p, q), hi = std::max(p, q);
        const int s = current[x];
        dst[x] = static_cast<uint8_t>(lo <= s && s <= hi ? s : (lo + hi + 1) >> 1);
    }
}

void InstallCopyScalar(CopyKernels* k) {
    using Pair = Row<void(const uint8_t*, uint8_t*)>;
    k->copyRow = Pair::Scalar<CopyRow_c>;
    k->transpose8 = Transpose8_c;
    k->transpose32 = Transpose32_c;
    k->reverse8 = Pair::Scalar<Reverse8_c>;
    k->reverse32 = Pair::Scalar<Reverse32_c>;
    k->deinterlaceRow = Row<void(const uint8_t*, const uint8_t*, const uint8_t*,
                                 uint8_t*)>::Scalar<DeinterlaceRow_c>;
}

const CopyKernels& GetCopyKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<CopyKernels>(
        InstallCopyScalar, {InstallCopySse2, InstallCopySsse3, nullptr, nullptr});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
