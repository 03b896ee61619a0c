// The horizontal and vertical resize kernels on 128-bit registers, written
// once and instantiated by each instruction-set file with its own way of
// spreading two RGB32 pixels into channel pairs (SSE2: two unpacks; SSSE3:
// one byte shuffle). Internal linkage only: each kernel file compiles its own
// copy with its own flags.
//
// Horizontal: RGB32 pixels one at a time (two at a time where the
// instruction set has 256-bit registers: Ops::kPairSums), two taps per multiply-add of 16-bit
// pairs; one-byte planes four pixels at a time (two taps: eight), each
// pixel's taps in one or two registers against its weight run, then a
// transposed sum. Edge pixels gather their clamped taps into a small buffer
// first. Vertical: sixteen values per step, high-half products added with
// unsigned saturation. Row ends go to the scalar twins.
#pragma once

#include <emmintrin.h>

#include <cstring>

#include "video/resize/resize_rows.h"

namespace ncb::video {
namespace {

inline int32_t Load32(const void* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

inline int32_t Load16(const void* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

// Exactly T bytes from p into the low bytes of a register, the rest zero.
template <int T>
inline __m128i LoadTaps(const uint8_t* p) {
    const __m128i zero = _mm_setzero_si128();
    (void)zero;
    if constexpr (T == 2) return _mm_cvtsi32_si128(Load16(p));
    if constexpr (T == 4) return _mm_cvtsi32_si128(Load32(p));
    if constexpr (T == 6)
        return _mm_unpacklo_epi32(_mm_cvtsi32_si128(Load32(p)), _mm_cvtsi32_si128(Load16(p + 4)));
    if constexpr (T == 8) return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    if constexpr (T == 10)
        return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                                  _mm_cvtsi32_si128(Load16(p + 8)));
    if constexpr (T == 12)
        return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                                  _mm_cvtsi32_si128(Load32(p + 8)));
}

inline __m128i LoadW(const int16_t* w) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(w));
}

// The four 32-bit lanes of a, b, c, d each summed: {sum a, sum b, sum c, sum d}.
inline __m128i SumLanes4(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m128i ab = _mm_add_epi32(_mm_unpacklo_epi32(a, b), _mm_unpackhi_epi32(a, b));
    const __m128i cd = _mm_add_epi32(_mm_unpacklo_epi32(c, d), _mm_unpackhi_epi32(c, d));
    return _mm_add_epi32(_mm_unpacklo_epi64(ab, cd), _mm_unpackhi_epi64(ab, cd));
}

template <typename Ops>
struct ResizeSimd {
    // Channel sums (B, G, R, A) of one RGB32 pixel whose T taps lie
    // contiguously at p: four taps per 16-byte load, each pair of them
    // spread into channel pairs and multiplied by the pair's weights.
    template <int T>
    static __m128i Rgb32Sums(const uint8_t* p, const int16_t* w) {
        __m128i acc = _mm_setzero_si128();
#pragma GCC unroll 3
        for (int quad = 0; quad < T / 4; ++quad) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * quad));
            const __m128i wq = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(w + 4 * quad));
            acc = _mm_add_epi32(acc, _mm_madd_epi16(Ops::SpreadPair(v), _mm_shuffle_epi32(wq, 0)));
            acc = _mm_add_epi32(
                acc, _mm_madd_epi16(Ops::SpreadHighPair(v), _mm_shuffle_epi32(wq, 0x55)));
        }
        if constexpr (T % 4 != 0) {
            const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 16 * (T / 4)));
            const __m128i weights = _mm_set1_epi32(Load32(w + T - 2));
            acc = _mm_add_epi32(acc, _mm_madd_epi16(Ops::SpreadPair(v), weights));
        }
        return acc;
    }

    // put2(i, sums of i, sums of i + 1) for pixel pairs inside the picture
    // whose second pixel is before `pairEnd`, put1(i, sums) for the others.
    template <int T, typename Put2, typename Put1>
    static void Rgb32Row(const uint8_t* src, const ResizeHTable& t, int pairEnd, Put2&& put2,
                         Put1&& put1) {
        const int16_t* w = t.weights;
        const int32_t* step = t.steps;
        ptrdiff_t cursor = 0;
        alignas(16) uint8_t gathered[4 * 12];
        auto edge = [&](int i) {
            for (int k = 0; k < T; ++k) std::memcpy(gathered + 4 * k, src + (cursor += *step++), 4);
            put1(i, Rgb32Sums<T>(gathered, w + i * T));
        };
        int i = 0;
        for (int e = 0; e < t.left; ++e) edge(i++);
        const int insideEnd = i + t.inside;
        const int pairsEnd = insideEnd < pairEnd ? insideEnd : pairEnd;
        for (; i + 2 <= pairsEnd; i += 2) {
            const uint8_t* p0 = src + (cursor += step[0]);
            const uint8_t* p1 = src + (cursor += step[1]);
            step += 2;
            if constexpr (Ops::kPairSums) {
                __m128i a, b;
                Ops::template Rgb32PairSums<T>(p0, p1, w + i * T, w + (i + 1) * T, &a, &b);
                put2(i, a, b);
            } else {
                put2(i, Rgb32Sums<T>(p0, w + i * T), Rgb32Sums<T>(p1, w + (i + 1) * T));
            }
        }
        for (; i < insideEnd; ++i) put1(i, Rgb32Sums<T>(src + (cursor += *step++), w + i * T));
        for (int e = 0; e < t.right; ++e) edge(i++);
    }

    template <int T>
    static void Rgb32ToInterT(const uint8_t* src, const ResizeHTable& t, int16_t* dst) {
        Rgb32Row<T>(
            src, t, t.Width(),
            [dst](int i, __m128i a, __m128i b) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * i),
                                 _mm_packs_epi32(_mm_srai_epi32(a, 8), _mm_srai_epi32(b, 8)));
            },
            [dst](int i, __m128i sums) {
                const __m128i v = _mm_srai_epi32(sums, 8);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 4 * i), _mm_packs_epi32(v, v));
            });
    }

    template <int T>
    static void Rgb32ToBytesT(const uint8_t* src, const ResizeHTable& t, uint8_t* dst,
                              uint8_t* tail) {
        const int tailStart = t.Width() - 2;
        Rgb32Row<T>(
            src, t, tailStart,
            [dst](int i, __m128i a, __m128i b) {
                const __m128i v = _mm_packs_epi32(_mm_srai_epi32(a, 15), _mm_srai_epi32(b, 15));
                _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 4 * i), _mm_packus_epi16(v, v));
            },
            [=](int i, __m128i sums) {
                __m128i v = _mm_srai_epi32(sums, 15);
                v = _mm_packs_epi32(v, v);
                const int32_t px = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
                std::memcpy(i < tailStart ? dst + 4 * i : tail + 4 * (i - tailStart), &px, 4);
            });
    }

    // Sums of one plane pixel: T taps at p against T weights at w (lanes past
    // T multiply zero samples).
    template <int T>
    static __m128i PlaneLanes(const uint8_t* p, const int16_t* w) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i v = LoadTaps<T>(p);
        __m128i acc = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), LoadW(w));
        if constexpr (T > 8) {
            const __m128i hw = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(w + 8));
            acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), hw));
        }
        return acc;
    }

    // put4(i, sums of pixels i..i+3) and put1(i, sum) over the whole table.
    template <int T, typename Put4, typename Put1>
    static void PlaneRow(const uint8_t* src, const ResizeHTable& t, Put4&& put4, Put1&& put1) {
        const int16_t* w = t.weights;
        auto single = [&](int i, const uint8_t* p) {
            const __m128i s = PlaneLanes<T>(p, w + i * T);
            put1(i, _mm_cvtsi128_si32(SumLanes4(s, s, s, s)));
        };
        const int32_t* step = t.steps;
        ptrdiff_t cursor = 0;
        alignas(16) uint8_t gathered[16];
        auto edge = [&](int i) {
            for (int k = 0; k < T; ++k) gathered[k] = src[cursor += *step++];
            single(i, gathered);
        };
        int i = 0;
        for (int e = 0; e < t.left; ++e) edge(i++);
        const int insideEnd = i + t.inside;
        if constexpr (T == 2) {
            const __m128i zero = _mm_setzero_si128();
            for (; i + 8 <= insideEnd; i += 8) {
                __m128i v = zero;
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[0])), 0);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[1])), 1);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[2])), 2);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[3])), 3);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[4])), 4);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[5])), 5);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[6])), 6);
                v = _mm_insert_epi16(v, Load16(src + (cursor += step[7])), 7);
                step += 8;
                const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), LoadW(w + 2 * i));
                const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), LoadW(w + 2 * i + 8));
                put4(i, lo);
                put4(i + 4, hi);
            }
        } else if constexpr (T == 4) {
            const __m128i zero = _mm_setzero_si128();
            for (; i + 4 <= insideEnd; i += 4) {
                const int32_t a = Load32(src + (cursor += step[0]));
                const int32_t b = Load32(src + (cursor += step[1]));
                const int32_t c = Load32(src + (cursor += step[2]));
                const int32_t d = Load32(src + (cursor += step[3]));
                step += 4;
                const __m128i v = _mm_setr_epi32(a, b, c, d);
                // Pixels i, i + 1 and i + 2, i + 3: their 8 weights lie together.
                const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), LoadW(w + 4 * i));
                const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), LoadW(w + 4 * i + 8));
                const __m128 l = _mm_castsi128_ps(lo), h = _mm_castsi128_ps(hi);
                put4(i, _mm_add_epi32(
                            _mm_castps_si128(_mm_shuffle_ps(l, h, _MM_SHUFFLE(2, 0, 2, 0))),
                            _mm_castps_si128(_mm_shuffle_ps(l, h, _MM_SHUFFLE(3, 1, 3, 1)))));
            }
        } else {
            for (; i + 4 <= insideEnd; i += 4) {
                const uint8_t* p0 = src + (cursor += step[0]);
                const uint8_t* p1 = src + (cursor += step[1]);
                const uint8_t* p2 = src + (cursor += step[2]);
                const uint8_t* p3 = src + (cursor += step[3]);
                step += 4;
                put4(i, SumLanes4(PlaneLanes<T>(p0, w + i * T), PlaneLanes<T>(p1, w + (i + 1) * T),
                                  PlaneLanes<T>(p2, w + (i + 2) * T),
                                  PlaneLanes<T>(p3, w + (i + 3) * T)));
            }
        }
        for (; i < insideEnd; ++i) single(i, src + (cursor += *step++));
        for (int e = 0; e < t.right; ++e) edge(i++);
    }

    template <int T>
    static void PlaneToInterT(const uint8_t* src, const ResizeHTable& t, int16_t* dst) {
        PlaneRow<T>(
            src, t,
            [dst](int i, __m128i sums) {
                const __m128i v = _mm_srai_epi32(sums, 8);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + i), _mm_packs_epi32(v, v));
            },
            [dst](int i, int32_t sum) {
                const int32_t v = sum >> 8;
                dst[i] = static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
            });
    }

    template <int T>
    static void PlaneToBytesT(const uint8_t* src, const ResizeHTable& t, uint8_t* dst) {
        PlaneRow<T>(
            src, t,
            [dst](int i, __m128i sums) {
                __m128i v = _mm_srai_epi32(sums, 15);
                v = _mm_packs_epi32(v, v);
                const int32_t px = _mm_cvtsi128_si32(_mm_packus_epi16(v, v));
                std::memcpy(dst + i, &px, 4);
            },
            [dst](int i, int32_t sum) {
                const int32_t v = sum >> 15;
                dst[i] = static_cast<uint8_t>(v > 255 ? 255 : v < 0 ? 0 : v);
            });
    }

    // One instantiation per tap count, picked per row.
    template <template <int> class F, typename... A>
    static void ByTaps(int taps, A... a) {
        switch (taps) {
            case 2:
                return F<2>::Run(a...);
            case 4:
                return F<4>::Run(a...);
            case 6:
                return F<6>::Run(a...);
            case 8:
                return F<8>::Run(a...);
            case 10:
                return F<10>::Run(a...);
            default:
                return F<12>::Run(a...);
        }
    }
    template <int T>
    struct HRgbInter {
        static void Run(const uint8_t* s, const ResizeHTable* t, int16_t* d) {
            Rgb32ToInterT<T>(s, *t, d);
        }
    };
    template <int T>
    struct HRgbBytes {
        static void Run(const uint8_t* s, const ResizeHTable* t, uint8_t* d, uint8_t* tail) {
            Rgb32ToBytesT<T>(s, *t, d, tail);
        }
    };
    template <int T>
    struct HPlaneInter {
        static void Run(const uint8_t* s, const ResizeHTable* t, int16_t* d) {
            PlaneToInterT<T>(s, *t, d);
        }
    };
    template <int T>
    struct HPlaneBytes {
        static void Run(const uint8_t* s, const ResizeHTable* t, uint8_t* d) {
            PlaneToBytesT<T>(s, *t, d);
        }
    };

    static void HRgb32ToInter(const uint8_t* s, const ResizeHTable& t, int16_t* d) {
        ByTaps<HRgbInter>(t.taps, s, &t, d);
    }
    static void HRgb32ToBytes(const uint8_t* s, const ResizeHTable& t, uint8_t* d, uint8_t* tail) {
        ByTaps<HRgbBytes>(t.taps, s, &t, d, tail);
    }
    static void HPlaneToInter(const uint8_t* s, const ResizeHTable& t, int16_t* d) {
        ByTaps<HPlaneInter>(t.taps, s, &t, d);
    }
    static void HPlaneToBytes(const uint8_t* s, const ResizeHTable& t, uint8_t* d) {
        ByTaps<HPlaneBytes>(t.taps, s, &t, d);
    }

    static void VInter(const int16_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                       int count) {
        int x = 0;
        for (; x + 16 <= count; x += 16) {
            __m128i a0 = _mm_setzero_si128(), a1 = a0;
            for (int r = 0; r < n; ++r) {
                const __m128i w = LoadW(reinterpret_cast<const int16_t*>(weights + 8 * r));
                const __m128i* row = reinterpret_cast<const __m128i*>(rows[r] + x);
                a0 = _mm_adds_epu16(a0, _mm_mulhi_epu16(_mm_loadu_si128(row), w));
                a1 = _mm_adds_epu16(a1, _mm_mulhi_epu16(_mm_loadu_si128(row + 1), w));
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x),
                             _mm_packus_epi16(_mm_srai_epi16(a0, 6), _mm_srai_epi16(a1, 6)));
        }
        if (x < count) ResizeVInter_c(rows, n, weights, dst, x, count);
    }

    static void VBytes(const uint8_t* const* rows, int n, const uint16_t* weights, uint8_t* dst,
                       int count) {
        const __m128i zero = _mm_setzero_si128();
        int x = 0;
        for (; x + 16 <= count; x += 16) {
            __m128i a0 = zero, a1 = zero;
            for (int r = 0; r < n; ++r) {
                const __m128i w = LoadW(reinterpret_cast<const int16_t*>(weights + 8 * r));
                const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[r] + x));
                a0 = _mm_adds_epu16(a0, _mm_mulhi_epu16(_mm_unpacklo_epi8(zero, v), w));
                a1 = _mm_adds_epu16(a1, _mm_mulhi_epu16(_mm_unpackhi_epi8(zero, v), w));
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x),
                             _mm_packus_epi16(_mm_srai_epi16(a0, 7), _mm_srai_epi16(a1, 7)));
        }
        if (x < count) ResizeVBytes_c(rows, n, weights, dst, x, count);
    }

    static void Install(ResizeKernels* k) {
        k->hRgb32ToInter = HRgb32ToInter;
        k->hRgb32ToBytes = HRgb32ToBytes;
        k->hPlaneToInter = HPlaneToInter;
        k->hPlaneToBytes = HPlaneToBytes;
        k->vInter = VInter;
        k->vBytes = VBytes;
    }
};

}  // namespace
}  // namespace ncb::video
