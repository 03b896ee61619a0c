// CRC-32 by carry-less multiplication (PCLMULQDQ), for processors that have it.
//
// The data is treated as a polynomial over GF(2) in the reflected bit order
// of the ZIP CRC. Four 128-bit lanes are folded forward by 512 bits per round
// (multiplying each lane's halves by powers of x mod P and adding the next
// 64 bytes), then merged into one lane, folded by 128 bits per remaining
// 16-byte block, reduced from 128 to 32 bits and finished with a Barrett
// reduction. The constants are x^k mod P for the fold distances, P itself
// and floor(x^64 / P), all bit-reflected and shifted by one as reflected
// carry-less products require.
//
// Inputs below 64 bytes and the last length % 16 bytes go through the scalar
// twin, so the result is the twin's for every length and alignment.
#include <immintrin.h>

#include "archive/zip/crc32_kernels.h"

namespace ncb::zip {
namespace {

// Powers of x mod P for a fold over 512 bits (four lanes), one per lane half.
constexpr uint64_t kFold4Low = 0x154442BD4ull;
constexpr uint64_t kFold4High = 0x1C6E41596ull;
// The same for a fold over 128 bits (one lane).
constexpr uint64_t kFold1Low = 0x1751997D0ull;
constexpr uint64_t kFold1High = 0x0CCAA009Eull;
// The power of x mod P that folds the last 64 bits onto 32.
constexpr uint64_t kFold64 = 0x163CD6124ull;
// P (reflected, with x^32) and the Barrett constant floor(x^64 / P).
constexpr uint64_t kPoly = 0x1DB710641ull;
constexpr uint64_t kBarrett = 0x1F7011641ull;

// lane * x^k + next, with the fold constants {low, high} in `k`.
inline __m128i Fold(__m128i lane, __m128i k, __m128i next) {
    __m128i lo = _mm_clmulepi64_si128(lane, k, 0x00);
    __m128i hi = _mm_clmulepi64_si128(lane, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(lo, hi), next);
}

inline __m128i Load(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Reduces a 128-bit remainder to the 32-bit CRC register.
uint32_t Reduce(__m128i x) {
    const __m128i low32 = _mm_setr_epi32(-1, 0, -1, 0);
    const __m128i fold1 =
        _mm_set_epi64x(static_cast<long long>(kFold1High), static_cast<long long>(kFold1Low));
    // 128 -> 96 bits: the low half folded onto the high half.
    __m128i t = _mm_clmulepi64_si128(x, fold1, 0x10);
    x = _mm_xor_si128(_mm_srli_si128(x, 8), t);
    // 96 -> 64 bits.
    const __m128i fold64 = _mm_set_epi64x(0, static_cast<long long>(kFold64));
    t = _mm_srli_si128(x, 4);
    x = _mm_clmulepi64_si128(_mm_and_si128(x, low32), fold64, 0x00);
    x = _mm_xor_si128(x, t);
    // Barrett: q = (x mod x^32) * floor(x^64 / P); crc = x + (q mod x^32) * P.
    const __m128i barrett =
        _mm_set_epi64x(static_cast<long long>(kBarrett), static_cast<long long>(kPoly));
    t = _mm_clmulepi64_si128(_mm_and_si128(x, low32), barrett, 0x10);
    t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), barrett, 0x00);
    x = _mm_xor_si128(x, t);
    return static_cast<uint32_t>(_mm_extract_epi32(x, 1));
}

}  // namespace

uint32_t Crc32Update_pclmul(uint32_t reg, const uint8_t* data, size_t length) {
    if (length < 64) return Crc32Update_c(reg, data, length);

    __m128i x0 = _mm_xor_si128(Load(data), _mm_cvtsi32_si128(static_cast<int>(reg)));
    __m128i x1 = Load(data + 16);
    __m128i x2 = Load(data + 32);
    __m128i x3 = Load(data + 48);
    data += 64;
    length -= 64;

    const __m128i fold4 =
        _mm_set_epi64x(static_cast<long long>(kFold4High), static_cast<long long>(kFold4Low));
    while (length >= 64) {
        x0 = Fold(x0, fold4, Load(data));
        x1 = Fold(x1, fold4, Load(data + 16));
        x2 = Fold(x2, fold4, Load(data + 32));
        x3 = Fold(x3, fold4, Load(data + 48));
        data += 64;
        length -= 64;
    }

    const __m128i fold1 =
        _mm_set_epi64x(static_cast<long long>(kFold1High), static_cast<long long>(kFold1Low));
    __m128i x = Fold(x0, fold1, x1);
    x = Fold(x, fold1, x2);
    x = Fold(x, fold1, x3);
    while (length >= 16) {
        x = Fold(x, fold1, Load(data));
        data += 16;
        length -= 16;
    }
    return Crc32Update_c(Reduce(x), data, length);
}

}  // namespace ncb::zip
