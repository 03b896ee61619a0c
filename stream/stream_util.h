// Small helpers shared by the stream readers and writers: per-byte bit
// reversal, unaligned loads and stores, and the checked sum of a chain.
// Header-only so the hot paths inline them.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "ncodecbase/data_stream.h"

namespace ncb_stream {

constexpr std::array<uint8_t, 256> MakeBitReverseTable() {
    std::array<uint8_t, 256> t{};
    for (int v = 0; v < 256; ++v) {
        int r = 0;
        for (int b = 0; b < 8; ++b) r |= ((v >> b) & 1) << (7 - b);
        t[v] = static_cast<uint8_t>(r);
    }
    return t;
}
inline constexpr std::array<uint8_t, 256> kBitReverse = MakeBitReverseTable();

// Reverses the bits inside every byte of a word, leaving byte order alone.
inline uint64_t ReverseBitsInBytes(uint64_t v) {
    v = ((v >> 1) & 0x5555555555555555ull) | ((v & 0x5555555555555555ull) << 1);
    v = ((v >> 2) & 0x3333333333333333ull) | ((v & 0x3333333333333333ull) << 2);
    v = ((v >> 4) & 0x0F0F0F0F0F0F0F0Full) | ((v & 0x0F0F0F0F0F0F0F0Full) << 4);
    return v;
}
inline uint32_t ReverseBitsInBytes32(uint32_t v) {
    return static_cast<uint32_t>(ReverseBitsInBytes(v));
}

inline uint32_t LoadBe32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}
inline void StoreBe32(unsigned char* p, uint32_t v) {
    v = __builtin_bswap32(v);
    std::memcpy(p, &v, 4);
}

// Positions saturate instead of wrapping when a caller keeps reading or
// seeking far past the end.
inline int SatAdd(int a, int b) {
    int64_t s = static_cast<int64_t>(a) + b;
    return s > INT32_MAX ? INT32_MAX : s < INT32_MIN ? INT32_MIN : static_cast<int>(s);
}

// Non-zero when some byte of v is zero.
inline uint32_t HasZeroByte(uint32_t v) { return (v - 0x01010101u) & ~v & 0x80808080u; }

// Usable size of element i: its size, or 0 for a missing or bad element.
inline int ElementSize(const NDataStreamBufferInfoTag* chain, int count, int i) {
    if (!chain || i < 0 || i >= count || !chain[i].pBuffer) return 0;
    return chain[i].nSize > 0 ? chain[i].nSize : 0;
}

// Number of leading elements that hold data: the chain ends at the first
// element of size 0 (or a null block), as documented for the tag.
inline int UsableElements(const NDataStreamBufferInfoTag* chain, int count) {
    int n = 0;
    while (n < count && ElementSize(chain, count, n) > 0) ++n;
    return n;
}

// Sum of the usable elements' sizes, clamped to what an int holds.
inline int ChainBytes(const NDataStreamBufferInfoTag* chain, int usable) {
    int64_t sum = 0;
    for (int i = 0; i < usable; ++i) sum += chain[i].nSize;
    return sum > INT32_MAX ? INT32_MAX : static_cast<int>(sum);
}

}  // namespace ncb_stream
