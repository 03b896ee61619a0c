// Scalar twins of the resize row kernels, written as the arithmetic is
// stated: 32-bit sums of sample x weight, shifted with the sign kept and
// saturated; vertical products as unsigned 16 x 16-bit high halves added with
// unsigned 16-bit saturation. Also the scalar kernel table.
#include <algorithm>

#include "video/resize/resize_rows.h"

namespace ncb::video {
namespace {

int16_t SatS16(int32_t v) { return static_cast<int16_t>(std::clamp(v, -32768, 32767)); }
uint8_t SatU8(int32_t v) { return static_cast<uint8_t>(std::clamp(v, 0, 255)); }

// Sum of one channel over the taps of destination pixel i.
template <int kBpp>
int32_t TapSum(const uint8_t* src, const ptrdiff_t* pos, const int16_t* w, int taps, int channel) {
    int32_t sum = 0;
    for (int k = 0; k < taps; ++k) sum += src[pos[k] + channel] * static_cast<int32_t>(w[k]);
    return sum;
}

// Runs `put(i, channel, sum)` for every pixel and channel of a table.
template <int kBpp, typename Put>
void HorizontalSums(const uint8_t* src, const ResizeHTable& t, Put&& put) {
    auto pixel = [&](int i, const ptrdiff_t* pos) {
        const int16_t* w = t.weights + static_cast<ptrdiff_t>(i) * t.taps;
        for (int c = 0; c < kBpp; ++c) put(i, c, TapSum<kBpp>(src, pos, w, t.taps, c));
    };
    WalkHTable(t, pixel, [&](int i, ptrdiff_t first) {
        ptrdiff_t pos[12];
        for (int k = 0; k < t.taps; ++k) pos[k] = first + k * kBpp;
        pixel(i, pos);
    });
}

}  // namespace

void ResizeHRgb32ToInter_c(const uint8_t* src, const ResizeHTable& t, int16_t* dst) {
    HorizontalSums<4>(src, t,
                      [&](int i, int c, int32_t sum) { dst[4 * i + c] = SatS16(sum >> 8); });
}

void ResizeHRgb32ToBytes_c(const uint8_t* src, const ResizeHTable& t, uint8_t* dst, uint8_t* tail) {
    const int tailStart = t.Width() - 2;
    HorizontalSums<4>(src, t, [&](int i, int c, int32_t sum) {
        uint8_t* out = i < tailStart ? dst + 4 * i : tail + 4 * (i - tailStart);
        out[c] = SatU8(sum >> 15);
    });
}

void ResizeHPlaneToInter_c(const uint8_t* src, const ResizeHTable& t, int16_t* dst) {
    HorizontalSums<1>(src, t, [&](int i, int, int32_t sum) { dst[i] = SatS16(sum >> 8); });
}

void ResizeHPlaneToBytes_c(const uint8_t* src, const ResizeHTable& t, uint8_t* dst) {
    HorizontalSums<1>(src, t, [&](int i, int, int32_t sum) { dst[i] = SatU8(sum >> 15); });
}

void ResizeVInter_c(const int16_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                    int x0, int count) {
    for (int x = x0; x < count; ++x) {
        uint32_t acc = 0;
        for (int r = 0; r < n; ++r) {
            const uint32_t value = static_cast<uint16_t>(rows[r][x]);
            acc = std::min<uint32_t>(acc + ((value * weights[8 * r]) >> 16), 65535);
        }
        dst[x] = SatU8(static_cast<int16_t>(acc) >> 6);
    }
}

void ResizeVBytes_c(const uint8_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                    int x0, int count) {
    for (int x = x0; x < count; ++x) {
        uint32_t acc = 0;
        for (int r = 0; r < n; ++r) {
            const uint32_t value = rows[r][x] * 256u;
            acc = std::min<uint32_t>(acc + ((value * weights[8 * r]) >> 16), 65535);
        }
        dst[x] = SatU8(static_cast<int16_t>(acc) >> 7);
    }
}

namespace {
void VInterScalar(const int16_t* const* rows, int n, const uint16_t* w, uint8_t* dst, int count) {
    ResizeVInter_c(rows, n, w, dst, 0, count);
}
void VBytesScalar(const uint8_t* const* rows, int n, const uint16_t* w, uint8_t* dst, int count) {
    ResizeVBytes_c(rows, n, w, dst, 0, count);
}
}  // namespace

void InstallResizeScalar(ResizeKernels* k) {
    k->hRgb32ToInter = ResizeHRgb32ToInter_c;
    k->hRgb32ToBytes = ResizeHRgb32ToBytes_c;
    k->hPlaneToInter = ResizeHPlaneToInter_c;
    k->hPlaneToBytes = ResizeHPlaneToBytes_c;
    k->vInter = VInterScalar;
    k->vBytes = VBytesScalar;
}

const ResizeKernels& GetResizeKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<ResizeKernels>(
        InstallResizeScalar, {InstallResizeSse2, InstallResizeSsse3, nullptr, InstallResizeAvx2});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
