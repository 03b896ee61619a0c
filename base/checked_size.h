// Overflow-checked size arithmetic. Every size the library derives from
// caller-supplied widths, heights, paddings or counts goes through these, so a
// huge or negative value becomes a refusal instead of a wrapped, too-small
// allocation or an address far outside the buffer.
#pragma once

#include <climits>
#include <cstdint>
#include <type_traits>

namespace ncb {

// The checked operations write *out only when they succeed.
template <typename T>
[[nodiscard]] bool CheckedAdd(T a, T b, T* out) {
    static_assert(std::is_integral_v<T>);
    T r;
    if (__builtin_add_overflow(a, b, &r)) return false;
    *out = r;
    return true;
}

template <typename T>
[[nodiscard]] bool CheckedMul(T a, T b, T* out) {
    static_assert(std::is_integral_v<T>);
    T r;
    if (__builtin_mul_overflow(a, b, &r)) return false;
    *out = r;
    return true;
}

// a * b + c, all three non-negative.
[[nodiscard]] inline bool CheckedMulAdd(int64_t a, int64_t b, int64_t c, int64_t* out) {
    if (a < 0 || b < 0 || c < 0) return false;
    int64_t product;
    return CheckedMul(a, b, &product) && CheckedAdd(product, c, out);
}

// A byte count that a CNCodecBuffer (int sizes) can hold.
[[nodiscard]] inline bool FitsBufferSize(int64_t bytes) { return bytes >= 0 && bytes <= INT_MAX; }

}  // namespace ncb
