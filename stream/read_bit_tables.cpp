// Decode tables of the bit reader, generated at compile time from their
// rules so they cannot drift from the decoders that use them:
// - s_uH264CavlcUeReadTable / SeReadTable: next 9 bits -> for codes with up
//   to 4 leading zeros (value << 6) | (length << 2) | 2; for 5 to 8 zeros
//   (zeros << 2) | 1; for nine zeros 0.
// - s_uH264CavlcPrefixReadTable: zero counting a byte at a time for long
//   codes, one table per byte of the next 24 bits.
// - s_uHuffr16OneVLCData: next 11 bits of an interleaved Exp-Golomb code ->
//   (value << 4) | (length - 1); codes that go on past 11 bits give
//   63 + (their first five data bits) with length 11.
// - The CABAC renormalisation shift for every range value.
#include "ncodecbase/read_bit_stream.h"

namespace {

constexpr int LeadingZeros9(int v) {
    int z = 0;
    while (z < 9 && !(v & (0x100 >> z))) ++z;
    return z;
}

template <bool kSigned>
constexpr auto MakeExpGolombTable() {
    std::array<std::conditional_t<kSigned, int16_t, uint16_t>, 512> t{};
    for (int v = 0; v < 512; ++v) {
        int z = LeadingZeros9(v);
        if (z <= 4) {
            int length = 2 * z + 1;
            int info = (v >> (9 - length)) & ((1 << z) - 1);
            int code = (1 << z) - 1 + info;
            int value = code;
            if (kSigned) value = (code & 1) ? (code + 1) / 2 : -(code / 2);
            t[v] = static_cast<decltype(t[0] + 0)>(value * 64 + (length << 2) + 2);
        } else if (z <= 8) {
            t[v] = static_cast<decltype(t[0] + 0)>((z << 2) | 1);
        } else {
            t[v] = 0;
        }
    }
    return t;
}

constexpr auto MakePrefixTable() {
    std::array<std::array<int16_t, 256>, 3> t{};
    for (int table = 0; table < 3; ++table) {
        for (int b = 0; b < 256; ++b) {
            if (b == 0) {
                t[table][b] = static_cast<int16_t>(table == 0   ? -1
                                                   : table == 1 ? -9
                                                                : (26 << 3) | 7);
                continue;
            }
            int k = 0;
            while (!(b & (0x80 >> k))) ++k;
            t[table][b] = static_cast<int16_t>(((8 * table + k) << 3) | k);
        }
    }
    return t;
}

constexpr auto MakeOneVlcTable() {
    std::array<uint16_t, 2048> t{};
    for (int v = 0; v < 2048; ++v) {
        int data = 0;
        int k = 0;
        int pos = 0;
        bool done = false;
        while (pos < 11) {
            if ((v >> (10 - pos)) & 1) {
                t[v] = static_cast<uint16_t>((((1 << k) - 1 + data) << 4) | pos);
                done = true;
                break;
            }
            if (pos + 1 >= 11) break;
            data = (data << 1) | ((v >> (9 - pos)) & 1);
            ++k;
            pos += 2;
        }
        if (!done) t[v] = static_cast<uint16_t>(((63 + data) << 4) | 10);
    }
    return t;
}

constexpr auto MakeRenormShift() {
    std::array<uint8_t, 512> t{};
    for (int r = 1; r < 512; ++r) {
        int bits = 0;
        while ((r >> bits) != 0) ++bits;
        t[r] = static_cast<uint8_t>(9 - bits);
    }
    t[0] = 0;
    return t;
}

constexpr auto MakeStartValues(bool signedCode) {
    std::array<uint32_t, 33> t{};
    for (int z = 0; z <= 32; ++z) {
        if (signedCode)
            t[z] = z == 0 ? 0u : static_cast<uint32_t>(1ull << (z - 1));
        else
            t[z] = static_cast<uint32_t>((1ull << z) - 1);
    }
    return t;
}

constexpr auto MakeEscapeBase() {
    std::array<uint16_t, 7> t{};
    for (int k = 6; k <= 12; ++k) t[k - 6] = static_cast<uint16_t>((1 << k) - 1);
    return t;
}

}  // namespace

constinit const std::array<uint16_t, 512> CNReadBitStream::s_uH264CavlcUeReadTable =
    MakeExpGolombTable<false>();
constinit const std::array<int16_t, 512> CNReadBitStream::s_uH264CavlcSeReadTable =
    MakeExpGolombTable<true>();
constinit const std::array<std::array<int16_t, 256>, 3>
    CNReadBitStream::s_uH264CavlcPrefixReadTable = MakePrefixTable();
constinit const std::array<uint32_t, 33> CNReadBitStream::s_uH264UeStartValue =
    MakeStartValues(false);
constinit const std::array<uint32_t, 33> CNReadBitStream::s_uH264SeStartValue =
    MakeStartValues(true);
constinit const std::array<uint16_t, 2048> CNReadBitStream::s_uHuffr16OneVLCData =
    MakeOneVlcTable();
constinit const std::array<uint16_t, 7> CNReadBitStream::s_uEscapeBase = MakeEscapeBase();
constinit const std::array<uint8_t, 512> CNReadBitStream::s_uCabacRenormShift = MakeRenormShift();
