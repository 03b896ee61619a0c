// Bit reader: the documented edge cases of every mode, Exp-Golomb and the
// interleaved code, Huffman look-ups, CABAC engine basics, then random reads
// over random chains checked against an independent escape-removal model.
#include "ncodecbase/read_bit_stream.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/stream/stream_test_util.h"

using stream_test::Chain;
using stream_test::RandomCuts;
using stream_test::Reverse8;

namespace {

uint8_t kJpegPad[4] = {0xFF, 0xD8, 0xD8, 0xFF};
uint8_t kZeroPad[4] = {0, 0, 0, 0};

struct Reader {
    Chain chain;
    CNReadBitStream r;
    Reader(std::vector<uint8_t> bytes, int mode, int flags = 1, std::vector<int> cuts = {},
           uint8_t* pad = kZeroPad, int firstBits = 8, int lastBits = 8) {
        if (cuts.empty()) cuts = {static_cast<int>(bytes.size())};
        chain.Cut(bytes, cuts);
        r.Init(mode, flags, chain.Tags(), chain.Count(), pad, 4, firstBits, lastBits);
    }
};

// Bits given as a string of '0'/'1' (spaces ignored), zero-padded to bytes.
std::vector<uint8_t> Bits(const std::string& s) {
    std::vector<uint8_t> out;
    int n = 0;
    for (char c : s) {
        if (c != '0' && c != '1') continue;
        if (n % 8 == 0) out.push_back(0);
        if (c == '1') out.back() |= 0x80 >> (n % 8);
        ++n;
    }
    return out;
}

TEST(ReadBitStream, PeekDoesNotConsume) {
    Reader t({0xA5, 0x0F}, 0);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(4), 0xAu);
    EXPECT_EQ(t.r.GetBitsUint32(8), 0x50u);
    EXPECT_EQ(t.r.GetCurPos(), 4);
    EXPECT_EQ(t.r.GetTotalSize(), 16);
}

TEST(ReadBitStream, FirstBitsSkipHighBitsOfFirstByte) {
    Reader t({0xFF, 0x00}, 0, 1, {}, kZeroPad, 3, 8);
    EXPECT_EQ(t.r.GetTotalSize(), 11);
    EXPECT_EQ(t.r.IsByteAlign(), 0);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(3), 7u);
    EXPECT_EQ(t.r.IsByteAlign(), 1);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(8), 0u);
}

TEST(ReadBitStream, H264EscapeRemovedAndLimitLowered) {
    Reader t({0x00, 0x00, 0x03, 0x01}, 1);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(24), 0x000001u);
    EXPECT_EQ(t.r.GetTotalSize(), 32);
    EXPECT_EQ(t.r.GetLeftSize(), 0);
    EXPECT_EQ(t.r.IsError(), 0);
}

TEST(ReadBitStream, EscapesInPadDoNotLowerLimit) {
    // 00 00 | pad 03 01 ..: the 03 is removed from the bits (the zero run
    // carries into the pad) but, lying outside the chain, leaves the limit.
    uint8_t pad[4] = {0x03, 0x01, 0x00, 0x00};
    Reader t({0x00, 0x00}, 1, 1, {1, 1}, pad);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(24), 0x000001u);
    EXPECT_EQ(t.r.GetTotalSize(), 16);
    EXPECT_EQ(t.r.GetLeftSize(), 0);
    EXPECT_EQ(t.r.IsError(), 1);

    // An escape whose zero run straddles three 1-byte blocks lowers it.
    Reader s({0x00, 0x00, 0x03, 0x04}, 1, 1, {1, 1, 1, 1});
    EXPECT_EQ(s.r.GetAndRemoveBitsUint32(24), 0x000004u);
    EXPECT_EQ(s.r.GetLeftSize(), 0);
    EXPECT_EQ(s.r.IsError(), 0);
}

TEST(ReadBitStream, JpegStuffingAndMarker) {
    Reader t({0x12, 0xFF, 0x00, 0x34}, 3, 1, {}, kZeroPad);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(24), 0x12FF34u);
    EXPECT_EQ(t.r.IsError(), 0);
    EXPECT_EQ(t.r.GetLeftSize(), 0);
    // With the decoder's pad FF D8 the load that reaches past the data meets
    // a marker in the pad: flagged, while the bits read stay the same.
    Reader p({0x12, 0xFF, 0x00, 0x34}, 3, 1, {}, kJpegPad);
    EXPECT_EQ(p.r.GetAndRemoveBitsUint32(24), 0x12FF34u);
    EXPECT_EQ(p.r.IsError(), 1);

    Reader m({0x12, 0xFF, 0xD9}, 3, 1, {}, kJpegPad);
    m.r.GetBitsUint32(4);
    EXPECT_EQ(m.r.IsError(), 1);
}

TEST(ReadBitStream, AvsEscapeKeepsSixZeroBits) {
    Reader t({0x00, 0x00, 0x02, 0x80}, 2);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(22), 0u);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(1), 1u);
    EXPECT_EQ(t.r.GetTotalSize() - t.r.GetLeftSize() - t.r.GetCurPos(), 2);
}

TEST(ReadBitStream, ReadingPastLimitKeepsGoingWithError) {
    Reader t({0xF0}, 0, 1, {}, kJpegPad);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(8), 0xF0u);
    EXPECT_EQ(t.r.IsError(), 0);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(16), 0xFFD8u);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(32), 0xD8FFFFD8u);
    EXPECT_EQ(t.r.IsError(), 1);
    int used = 0;
    EXPECT_EQ(t.r.Uninit(&used), 0);
    EXPECT_EQ(used, 56);
}

TEST(ReadBitStream, ExpGolombShortCodes) {
    Reader ue(Bits("1 010 011 00100"), 0);
    EXPECT_EQ(ue.r.H264GetUe(100), 0u);
    EXPECT_EQ(ue.r.H264GetUe(100), 1u);
    EXPECT_EQ(ue.r.H264GetUe(100), 2u);
    EXPECT_EQ(ue.r.H264GetUe(100), 3u);
    EXPECT_EQ(ue.r.GetCurPos(), 12);
    Reader se(Bits("1 010 011 00100"), 0);
    EXPECT_EQ(se.r.H264GetSe(-9, 9), 0);
    EXPECT_EQ(se.r.H264GetSe(-9, 9), 1);
    EXPECT_EQ(se.r.H264GetSe(-9, 9), -1);
    EXPECT_EQ(se.r.H264GetSe(-9, 9), 2);
    EXPECT_EQ(se.r.IsError(), 0);
}

TEST(ReadBitStream, ExpGolombRangeAndOverlongCodes) {
    Reader range(Bits("00100"), 0);
    EXPECT_EQ(range.r.H264GetUe(2), 3u);
    EXPECT_EQ(range.r.IsError(), 1);

    // 32 zeros, 1, 32 zero bits: the largest ue value, no error.
    std::string big(32, '0');
    Reader top(Bits(big + "1" + std::string(32, '0') + "1"), 0);
    EXPECT_EQ(top.r.H264GetUe(0xFFFFFFFFu), 0xFFFFFFFFu);
    EXPECT_EQ(top.r.IsError(), 0);
    EXPECT_EQ(top.r.GetCurPos(), 65);

    // More than 32 zeros: error, 33 zeros consumed, then 32 info bits.
    Reader over(Bits(std::string(40, '0') + "1" + std::string(40, '1')), 0);
    over.r.H264GetUe(0xFFFFFFFFu);
    EXPECT_EQ(over.r.IsError(), 1);
    EXPECT_EQ(over.r.GetCurPos(), 65);
}

TEST(ReadBitStream, TeAndMoreRbspData) {
    Reader te(Bits("1 0 011"), 0);
    EXPECT_EQ(te.r.H264GetTe(1), 0u);
    EXPECT_EQ(te.r.H264GetTe(1), 1u);
    EXPECT_EQ(te.r.H264GetTe(5), 2u);

    Reader stop({0x80}, 0);
    EXPECT_EQ(stop.r.H264MoreRbspData(), 0);
    Reader more({0x40}, 0);
    EXPECT_EQ(more.r.H264MoreRbspData(), 1);
    Reader longer({0x12, 0x80}, 0);
    EXPECT_EQ(longer.r.H264MoreRbspData(), 1);
    longer.r.RemoveBits(8);
    EXPECT_EQ(longer.r.H264MoreRbspData(), 0);
}

TEST(ReadBitStream, InterleavedCode) {
    Reader t(Bits("1 001 011 01001"), 0);
    EXPECT_EQ(t.r.RealGetOneVLC(), 0u);
    EXPECT_EQ(t.r.RealGetOneVLC(), 1u);
    EXPECT_EQ(t.r.RealGetOneVLC(), 2u);
    EXPECT_EQ(t.r.RealGetOneVLC(), 5u);
    // 12 data bits all ones: 4095 + 4095; 13 pairs without end: error, 8191.
    std::string twelve;
    for (int i = 0; i < 12; ++i) twelve += "01";
    Reader longest(Bits(twelve + "1" + twelve + "01"), 0);
    EXPECT_EQ(longest.r.RealGetOneVLC(), 8190u);
    EXPECT_EQ(longest.r.IsError(), 0);
    EXPECT_EQ(longest.r.RealGetOneVLC(), 8191u);
    EXPECT_EQ(longest.r.IsError(), 1);
}

TEST(ReadBitStream, HuffmanOneLevel) {
    // Code 0 -> 5 (length 1), 10 -> 6, 11 -> 7; lenMask 15, dataShift 4.
    short table[4] = {5 << 4 | 0, 5 << 4 | 0, 6 << 4 | 1, 7 << 4 | 1};
    int shifts[1] = {0};
    unsigned masks[1] = {3};
    Reader t(Bits("0 11 10"), 0);
    int length = 0;
    EXPECT_EQ(t.r.GetHuffman16Once(2, 99, 4, 15, table), 5);
    EXPECT_EQ(t.r.GetCurPos(), 1);
    EXPECT_EQ(t.r.GetHuffman16OnceTry(2, 99, 4, 15, table, &length), 7);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(t.r.GetCurPos(), 1);
    EXPECT_EQ(t.r.GetHuffman16Try(2, 99, 1, shifts, masks, 4, 15, nullptr, table, &length), 7);
    EXPECT_EQ(length, 2);
    EXPECT_EQ(t.r.GetHuffman16(2, 99, 1, shifts, masks, 4, 15, nullptr, table), 7);
    EXPECT_EQ(t.r.GetHuffman16(2, 99, 1, shifts, masks, 4, 15, nullptr, table), 6);
    EXPECT_EQ(t.r.GetCurPos(), 5);
    EXPECT_EQ(t.r.IsError(), 0);

    // An entry holding the invalid value: flagged by Once, not by OnceTry.
    short invalid[4] = {99 << 4 | 1, 99 << 4 | 1, 6 << 4 | 1, 7 << 4 | 1};
    Reader u(Bits("00"), 0);
    EXPECT_EQ(u.r.GetHuffman16OnceTry(2, 99, 4, 15, invalid, &length), 99);
    EXPECT_EQ(u.r.IsError(), 0);
    EXPECT_EQ(u.r.GetHuffman16Once(2, 99, 4, 15, invalid), 99);
    EXPECT_EQ(u.r.GetCurPos(), 2);
    EXPECT_EQ(u.r.IsError(), 1);
}

TEST(ReadBitStream, HuffmanTwoLevelsAndInvalid) {
    // Level 0: 2 bits; 00 -> 1 (len 1: entries 00, 01), 10 -> 2 (len 2),
    // 11 -> link to sub-table 1 (2 more bits): 1100 -> 3, 1101 -> 4,
    // 111x -> 9 (invalid). 8-bit entries, lenMask 3, dataShift 2.
    signed char table[8] = {
        1 << 2 | 0, 1 << 2 | 0, 2 << 2 | 1, static_cast<signed char>(-1 * 4 + 1),
        3 << 2 | 1, 4 << 2 | 1, 9 << 2 | 1, 9 << 2 | 1};
    int shifts[2] = {2, 0};
    unsigned masks[2] = {3, 3};
    int offsets[2] = {0, 4};
    Reader t(Bits("1101 0 1100 10 1110"), 0);
    EXPECT_EQ(t.r.GetHuffman8(4, 9, 2, shifts, masks, 2, 3, offsets, table), 4);
    EXPECT_EQ(t.r.GetCurPos(), 4);
    EXPECT_EQ(t.r.GetHuffman8(4, 9, 2, shifts, masks, 2, 3, offsets, table), 1);
    EXPECT_EQ(t.r.GetHuffman8(4, 9, 2, shifts, masks, 2, 3, offsets, table), 3);
    EXPECT_EQ(t.r.GetHuffman8(4, 9, 2, shifts, masks, 2, 3, offsets, table), 2);
    EXPECT_EQ(t.r.IsError(), 0);
    int length = 0;
    EXPECT_EQ(t.r.GetHuffman8Try(4, 9, 2, shifts, masks, 2, 3, offsets, table, &length), 9);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(t.r.IsError(), 1);
}

TEST(ReadBitStream, CabacEngineBasics) {
    // Context 0 at QP 26 in I slices: state 46, MPS 0, so the first LPS
    // range is 22 and range 510 splits at offset 488.
    Reader below({0xF3, 0x80}, 0);  // offset 487
    below.r.InitCabacContext(0, 26);
    below.r.InitCabacEngine();
    EXPECT_EQ(below.r.CabacDecodeNormal(0), 0);
    Reader at({0xF4, 0x00}, 0);  // offset 488
    at.r.InitCabacContext(0, 26);
    at.r.InitCabacEngine();
    EXPECT_EQ(at.r.CabacDecodeNormal(0), 1);
    EXPECT_EQ(at.r.GetCurPos(), 9 + 4);  // LPS range 22 renormalises by 4 bits

    Reader t({0xFE, 0x00}, 0);
    t.r.InitCabacEngine();
    EXPECT_EQ(t.r.GetCurPos(), 9);
    EXPECT_EQ(t.r.CabacDecodeTerminate(), 1);
    Reader z({0x00, 0x00}, 0);
    z.r.InitCabacEngine();
    EXPECT_EQ(z.r.CabacDecodeBypass(), 0);
}

TEST(ReadBitStream, SetCurPosMapsRawBytes) {
    std::vector<uint8_t> bytes = {0x12, 0x34, 0x56, 0x78, 0x9A};
    Reader t(bytes, 0, 1, {2, 1, 2});
    t.r.SetCurPos(12);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(12), 0x456u);
    t.r.SetCurPos(3);
    EXPECT_EQ(t.r.GetAndRemoveBitsUint32(5), 0x12u);
    EXPECT_EQ(t.r.IsError(), 0);
    t.r.SetCurPos(40);
    EXPECT_EQ(t.r.IsError(), 0);
    t.r.SetCurPos(41);
    EXPECT_EQ(t.r.IsError(), 1);
}

// Independent model: run the escape rule over chain bytes followed by the
// repeating pad, collecting payload bits.
struct PayloadModel {
    std::vector<uint8_t> bits;
    int chainEscapeBits = 0;
    bool markerInChain = false;

    PayloadModel(const std::vector<uint8_t>& data, const uint8_t* pad, int padSize, int mode,
                 bool reverse, int wantBits) {
        int zeroRun = 0;
        size_t i = 0;
        auto raw = [&](size_t k) {
            uint8_t b = k < data.size() ? data[k] : pad[(k - data.size()) % padSize];
            return reverse ? Reverse8(b) : b;
        };
        while (static_cast<int>(bits.size()) < wantBits) {
            bool inChain = i < data.size();
            uint8_t b = raw(i++);
            int keep = 8;
            if (mode == 1 && zeroRun == 2 && b == 3) {
                zeroRun = 0;
                if (inChain) chainEscapeBits += 8;
                continue;
            }
            if (mode == 2 && zeroRun == 2 && b == 2) {
                zeroRun = 0;
                if (inChain) chainEscapeBits += 2;
                keep = 6;
                b = 0;
            } else if (mode == 1 || mode == 2) {
                zeroRun = b ? 0 : std::min(zeroRun + 1, 2);
            }
            if (mode == 3 && b == 0xFF) {
                bool stuffIn = i < data.size();
                uint8_t s = raw(i++);
                if (stuffIn) {
                    chainEscapeBits += 8;
                    if (s != 0) markerInChain = true;
                }
            }
            for (int k = 0; k < keep; ++k) bits.push_back((b >> (7 - k)) & 1);
        }
    }
    uint32_t Get(int pos, int n) const {
        uint32_t v = 0;
        for (int k = 0; k < n; ++k) v = (v << 1) | bits[pos + k];
        return v;
    }
};

class BitReaderModel : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(BitReaderModel, RandomReadsMatchModel) {
    const int mode = std::get<0>(GetParam());
    const int flags = std::get<1>(GetParam());
    for (int round = 0; round < 80; ++round) {
        uint32_t seed = 0xb1700000u + static_cast<uint32_t>(round * 8 + mode * 2 + flags);
        SCOPED_TRACE(testing::Message()
                     << "seed " << seed << " mode " << mode << " flags " << flags);
        std::mt19937 rng(seed);
        int size = 1 + static_cast<int>(rng() % 120);
        std::vector<uint8_t> data(size);
        // Escape-prone alphabet.
        const uint8_t alphabet[] = {0x00, 0x00, 0x03, 0x02, 0x01, 0xFF, 0x80, 0x5A};
        for (auto& b : data) b = rng() % 4 ? alphabet[rng() % 8] : static_cast<uint8_t>(rng());
        if (mode == 3) {
            // Keep stuffing valid inside the chain so the error flag only
            // reflects the limit (markers get their own test).
            for (int i = 0; i + 1 < size; ++i)
                if (data[i] == (flags & 1 ? 0xFF : 0xFF)) data[i + 1] = 0;
            if (data[size - 1] == 0xFF) data[size - 1] = 0x7F;
            if (!(flags & 1))
                for (auto& b : data) b = Reverse8(b);
        }
        uint8_t pad[3] = {static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()), 0x11};
        Chain chain(data, RandomCuts(rng, size));
        CNReadBitStream r;
        r.Init(mode, flags, chain.Tags(), chain.Count(), pad, 3, 8, 8);
        int want = 8 * size + 200;
        PayloadModel model(data, pad, 3, mode, !(flags & 1), want);
        int pos = 0;
        while (pos < 8 * size + 100) {
            int n = 1 + static_cast<int>(rng() % 32);
            int op = static_cast<int>(rng() % 4);
            if (op == 0) {
                ASSERT_EQ(r.GetBitsUint32(n), model.Get(pos, n)) << "pos " << pos;
            } else if (op == 1) {
                r.RemoveBits(n);
                pos += n;
            } else if (op == 2) {
                int align = (8 - pos % 8) % 8;
                if (mode != 2) {  // AVS payload is not byte-aligned in general
                    r.MakeByteAlign();
                    pos += align;
                }
            } else {
                ASSERT_EQ(r.GetAndRemoveBitsUint32(n), model.Get(pos, n)) << "pos " << pos;
                pos += n;
            }
            ASSERT_EQ(r.GetCurPos(), pos);
        }
        // Everything in the chain has been loaded by now: the limit is exact.
        EXPECT_EQ(r.GetTotalSize(), 8 * size);
        EXPECT_EQ(r.GetLeftSize(), 0);
        EXPECT_EQ(r.GetUsedBits(), pos);
        EXPECT_EQ(r.IsError(), 1);
        r.SetCurPos(0);
        r.ClearError();
        int payload = 8 * size - model.chainEscapeBits;
        for (int p = 0; p + 32 <= payload; p += 32) r.RemoveBits(32);
        EXPECT_EQ(r.IsError(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(ModesAndFlags, BitReaderModel,
                         ::testing::Combine(::testing::Values(0, 1, 2, 3),
                                            ::testing::Values(0, 1)));

}  // namespace
