// 256-bit loads and stores for the AVX2 kernel files, aligned or not as
// simd_row.h's 128-bit ones. Include only from *_avx2.cpp files.
#pragma once

#include <immintrin.h>

namespace ncb::video {
namespace {

template <bool kAligned>
inline __m256i Load256(const void* p) {
    if constexpr (kAligned) {
        return _mm256_load_si256(static_cast<const __m256i*>(p));
    } else {
        return _mm256_loadu_si256(static_cast<const __m256i*>(p));
    }
}

template <bool kAligned>
inline void Store256(void* p, __m256i v) {
    if constexpr (kAligned) {
        _mm256_store_si256(static_cast<__m256i*>(p), v);
    } else {
        _mm256_storeu_si256(static_cast<__m256i*>(p), v);
    }
}

}  // namespace
}  // namespace ncb::video
