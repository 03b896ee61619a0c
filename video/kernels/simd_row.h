// The one place where a vector row kernel meets the rest of its row, and the
// aligned / unaligned split every video kernel makes.
//
// A vector kernel is written as a "blocks" function that handles whole
// vectors from the start of the row and returns how many pixels it did; its
// scalar twin takes a pixel range [x0, width). Row<>::Vector glues them: it
// picks the aligned instantiation when every pointer argument is a multiple
// of 16 (rows of frames laid out with the library's allocation rule always
// are), runs it, and hands the rest of the row to the twin. Because the twin
// sees the whole row width, rules that depend on a pixel's place in the row
// (some conversions treat the end of a row differently) live in the twin and
// hold for every level. No kernel reads or writes past the samples its width
// covers, so rows may end where their buffer ends.
//
// Everything here has internal linkage: each kernel file is compiled with its
// own instruction-set flags, and a shared inline copy built with AVX2 must
// never be the one an SSE2 file ends up calling.
#pragma once

#include <emmintrin.h>

#include <cstdint>
#include <type_traits>

namespace ncb::video {
namespace {

template <typename T>
inline uintptr_t AddressBits(const T& value) {
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<uintptr_t>(value);
    } else {
        return 0;
    }
}

template <typename... A>
inline bool Aligned16(const A&... a) {
    return ((AddressBits(a) | ... | uintptr_t{0}) & 15) == 0;
}

template <bool kAligned>
inline __m128i Load(const void* p) {
    if constexpr (kAligned) {
        return _mm_load_si128(static_cast<const __m128i*>(p));
    } else {
        return _mm_loadu_si128(static_cast<const __m128i*>(p));
    }
}

template <bool kAligned>
inline void Store(void* p, __m128i v) {
    if constexpr (kAligned) {
        _mm_store_si128(static_cast<__m128i*>(p), v);
    } else {
        _mm_storeu_si128(static_cast<__m128i*>(p), v);
    }
}

template <typename Signature>
struct Row;

// Signature is the row kernel's type without its trailing `int width`.
template <typename... A>
struct Row<void(A...)> {
    using Blocks = int (*)(A..., int width);
    using Twin = void (*)(A..., int x0, int width);

    template <Blocks kAligned, Blocks kUnaligned, Twin kTwin>
    static void Vector(A... a, int width) {
        const int done = Aligned16(a...) ? kAligned(a..., width) : kUnaligned(a..., width);
        if (done < width) kTwin(a..., done, width);
    }

    // For kernels that walk a row from its end: the twin first does the
    // pixels after the last whole step of kStep, then the blocks do the
    // steps below it, highest first. Blocks stay at multiples of kStep from
    // the row start, so the aligned instantiation stays aligned.
    template <int kStep, Blocks kAligned, Blocks kUnaligned, Twin kTwin>
    static void Backward(A... a, int width) {
        const int whole = width - width % kStep;
        if (whole < width) kTwin(a..., whole, width);
        if (Aligned16(a...)) {
            kAligned(a..., whole);
        } else {
            kUnaligned(a..., whole);
        }
    }

    template <Twin kTwin>
    static void Scalar(A... a, int width) {
        kTwin(a..., 0, width);
    }
};

}  // namespace
}  // namespace ncb::video
