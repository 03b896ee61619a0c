// Byte reader and writer: the documented edge cases, then long random
// operation sequences over chains cut at random points, checked against a
// flat-array model of the same stream (positions, values, pad bytes, error
// flag, search results).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "ncodecbase/read_byte_stream.h"
#include "ncodecbase/write_byte_stream.h"
#include "tests/stream/stream_test_util.h"

using stream_test::Chain;
using stream_test::RandomCuts;
using stream_test::Reverse8;

namespace {

uint8_t kJpegPad[4] = {0xFF, 0xD8, 0xD8, 0xFF};

TEST(ReadByteStream, ThirtyTwoBitsAcrossThreeBlocks) {
    std::vector<uint8_t> bytes = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
    Chain chain(bytes, {1, 2, 5});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    EXPECT_EQ(r.ReadUint32(), 0x12345678u);
    int element = -1, offset = -1;
    EXPECT_EQ(r.GetCurPos(&element, &offset), 4);
    EXPECT_EQ(element, 2);
    EXPECT_EQ(offset, 1);
    EXPECT_EQ(r.Uninit(), 1);
}

TEST(ReadByteStream, LastByteOfBlockMovesToNextBlock) {
    std::vector<uint8_t> bytes = {1, 2, 3, 4};
    Chain chain(bytes, {2, 2});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    r.ReadUint16();
    int element = -1, offset = -1;
    r.GetCurPos(&element, &offset);
    EXPECT_EQ(element, 1);
    EXPECT_EQ(offset, 0);
    int left = 0;
    EXPECT_EQ(*r.GetCurDataAddress(&left), 3);
    EXPECT_EQ(left, 2);
}

TEST(ReadByteStream, ReadPastEndTakesPadAndRaisesError) {
    std::vector<uint8_t> bytes = {0xAB, 0xCD};
    Chain chain(bytes, {2});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    EXPECT_EQ(r.ReadUint32(), 0xABCDFFD8u);
    EXPECT_EQ(r.IsError(), 1);
    EXPECT_EQ(r.Uninit(), 0);
}

TEST(ReadByteStream, BitReversal) {
    std::vector<uint8_t> bytes = {0x01, 0xC0};
    Chain chain(bytes, {2});
    CNReadByteStream r;
    r.Init(0, chain.Tags(), chain.Count(), kJpegPad, 4);
    EXPECT_EQ(r.ReadUint8(), 0x80);
    EXPECT_EQ(r.ReadUint8(), 0x03);
}

TEST(ReadByteStream, JpegMarkerSearches) {
    std::vector<uint8_t> bytes = {0xFF, 0xFF, 0xD8};
    Chain chain(bytes, {3});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    unsigned char marker = 0;
    EXPECT_EQ(r.JpegNextMarker(&marker), 2);
    EXPECT_EQ(marker, 0xFF);
    r.SetCurPos(0);
    EXPECT_EQ(r.JpegNextMarkerSkipStuff(&marker), 3);
    EXPECT_EQ(marker, 0xD8);

    std::vector<uint8_t> stuffed = {0x12, 0xFF, 0x00, 0x34};
    Chain chain2(stuffed, {1, 1, 1, 1});
    r.Init(2, chain2.Tags(), chain2.Count(), kJpegPad, 4);
    EXPECT_EQ(r.JpegNextMarker(&marker), -1);
    EXPECT_EQ(r.GetCurPos(), 4);
    EXPECT_EQ(r.IsError(), 0);
    r.SetCurPos(0);
    EXPECT_EQ(r.JpegNextMarkerSkipStuff(&marker), -1);
    EXPECT_EQ(r.IsError(), 0);
}

TEST(ReadByteStream, StartCodeAndStraddlingMatch) {
    std::vector<uint8_t> bytes = {0x00, 0x00, 0x00, 0x01, 0xB3, 0x77};
    for (auto cuts : std::vector<std::vector<int>>{{6}, {3, 3}, {1, 1, 1, 1, 1, 1}, {4, 2}}) {
        Chain chain(bytes, cuts);
        CNReadByteStream r;
        r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
        unsigned char code = 0;
        EXPECT_EQ(r.MpegNextStartCode(&code), 5);
        EXPECT_EQ(code, 0xB3);
        EXPECT_EQ(r.ReadUint8(), 0x77);
        EXPECT_EQ(r.IsError(), 0);
    }
}

TEST(ReadByteStream, SeekToEndThenReadGivesPadFromStart) {
    std::vector<uint8_t> bytes = {1, 2, 3};
    Chain chain(bytes, {2, 1});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    r.SetCurPos(3);
    EXPECT_EQ(r.IsError(), 0);
    EXPECT_EQ(r.ReadUint16(), 0xFFD8);
    EXPECT_EQ(r.IsError(), 1);
}

TEST(ReadByteStream, SearchNeverReadsPad) {
    std::vector<uint8_t> bytes = {0x11, 0xFF};
    Chain chain(bytes, {2});
    CNReadByteStream r;
    r.Init(2, chain.Tags(), chain.Count(), kJpegPad, 4);
    unsigned char marker = 0;
    EXPECT_EQ(r.JpegNextMarker(&marker), -1);  // FF D8 would straddle into the pad
    EXPECT_EQ(r.GetCurPos(), 2);
    EXPECT_EQ(r.IsError(), 0);
    EXPECT_EQ(r.FindUint8(0x11), -1);  // at the end: nothing left to search
}

TEST(WriteByteStream, ByteOrdersAndReversal) {
    struct Case {
        int flags;
        uint8_t a, b;
    } cases[] = {{2, 0x12, 0x34}, {3, 0x34, 0x12}, {0, 0x48, 0x2C}};
    for (const auto& c : cases) {
        uint8_t buf[4] = {};
        NDataStreamBufferInfoTag tag{buf, 4};
        CNWriteByteStream w;
        w.Init(c.flags, &tag, 1);
        w.WriteUint16(0x1234);
        EXPECT_EQ(buf[0], c.a) << c.flags;
        EXPECT_EQ(buf[1], c.b) << c.flags;
    }
}

TEST(WriteByteStream, OverflowAccounting) {
    std::vector<uint8_t> zero(4, 0);
    Chain chain(zero, {1, 3});
    CNWriteByteStream w;
    w.Init(2, chain.Tags(), chain.Count());
    w.WriteUint32(0xA1B2C3D4);
    EXPECT_EQ(chain.Join(), (std::vector<uint8_t>{0xA1, 0xB2, 0xC3, 0xD4}));
    int element = -1;
    w.GetCurPos(&element, nullptr);
    EXPECT_EQ(element, 2);
    EXPECT_EQ(w.IsError(), 0);
    w.WriteUint16(0x5555);
    EXPECT_EQ(w.IsError(), 1);
    EXPECT_EQ(w.GetCurPos(), 6);
    w.WriteUint8(1);
    EXPECT_EQ(w.GetCurPos(), 6);
    w.WriteBuffer(zero.data(), 3);
    EXPECT_EQ(w.GetCurPos(), 9);
    EXPECT_EQ(w.Uninit(), 0);
    EXPECT_EQ(chain.Join(), (std::vector<uint8_t>{0xA1, 0xB2, 0xC3, 0xD4}));
}

TEST(WriteByteStream, SeekToEndDropsSingleByte) {
    std::vector<uint8_t> bytes = {7, 7, 7};
    Chain chain(bytes, {3});
    CNWriteByteStream w;
    w.Init(2, chain.Tags(), chain.Count());
    w.Skip(1);
    w.WriteUint8(9);
    EXPECT_EQ(chain.Join(), (std::vector<uint8_t>{7, 9, 7}));
    w.SetCurPos(3);
    EXPECT_EQ(w.IsError(), 0);
    w.WriteUint8(1);
    EXPECT_EQ(w.IsError(), 1);
    EXPECT_EQ(w.GetCurPos(), 3);
}

// Flat model of a reader: logical byte p is data[p] inside, pad[(p-n) % pad] after.
struct ReaderModel {
    std::vector<uint8_t> data;
    std::vector<uint8_t> pad;
    int flags = 2;
    int pos = 0;
    bool error = false;

    uint8_t At(int p) {
        int n = static_cast<int>(data.size());
        uint8_t b;
        if (p < n) {
            b = data[p];
        } else {
            error = true;
            b = pad[(p - n) % pad.size()];
        }
        return (flags & 2) ? b : Reverse8(b);
    }
    uint64_t Read(int bytes) {
        uint64_t v = 0;
        for (int i = 0; i < bytes; ++i) {
            uint64_t b = At(pos + i);
            if (flags & 1)
                v |= b << (8 * i);
            else
                v = (v << 8) | b;
        }
        pos += bytes;
        return v;
    }
    void Seek(int p) {
        if (p > static_cast<int>(data.size())) error = true;
        pos = p;
    }
    // Window search over chain bytes only.
    int Search(int n, const std::function<bool(uint64_t)>& match, uint64_t* window) {
        int total = static_cast<int>(data.size());
        if (pos >= total - (n - 1)) {
            if (pos < total) pos = total;
            return -1;
        }
        uint64_t mask = n == 8 ? ~0ull : (1ull << (8 * n)) - 1;
        uint64_t w = 0;
        for (int p = pos; p < total; ++p) {
            uint8_t b = (flags & 2) ? data[p] : Reverse8(data[p]);
            w = ((w << 8) | b) & mask;
            if (p - pos + 1 >= n && match(w)) {
                *window = w;
                pos = p + 1;
                return pos;
            }
        }
        pos = total;
        return -1;
    }
};

class ByteReaderRandom : public ::testing::TestWithParam<int> {};

TEST_P(ByteReaderRandom, MatchesFlatModel) {
    const int flags = GetParam();
    for (int round = 0; round < 60; ++round) {
        uint32_t seed = 0x5eed0000u + static_cast<uint32_t>(round * 4 + flags);
        SCOPED_TRACE(testing::Message() << "seed " << seed << " flags " << flags);
        std::mt19937 rng(seed);
        int size = 1 + static_cast<int>(rng() % 300);
        std::vector<uint8_t> data(size);
        // Sparse alphabet so searches find things.
        const uint8_t alphabet[] = {0x00, 0x01, 0xFF, 0xD8, 0x47, 0xB3, 0x80, 0x03};
        for (auto& b : data) b = rng() % 3 ? alphabet[rng() % 8] : static_cast<uint8_t>(rng());
        Chain chain(data, RandomCuts(rng, size));
        std::vector<uint8_t> pad(1 + rng() % 5);
        for (auto& b : pad) b = static_cast<uint8_t>(rng());

        CNReadByteStream r;
        r.Init(flags, chain.Tags(), chain.Count(), pad.data(), static_cast<int>(pad.size()));
        ReaderModel m{data, pad, flags};
        ASSERT_EQ(r.GetTotalSize(), size);
        for (int op = 0; op < 200; ++op) {
            int kind = static_cast<int>(rng() % 14);
            switch (kind) {
                case 0:
                    ASSERT_EQ(r.ReadUint8(), m.Read(1));
                    break;
                case 1:
                    ASSERT_EQ(r.ReadUint16(), m.Read(2));
                    break;
                case 2:
                    ASSERT_EQ(r.ReadUint32(), m.Read(4));
                    break;
                case 3:
                    ASSERT_EQ(r.ReadUint64(), m.Read(8));
                    break;
                case 4: {
                    int n = static_cast<int>(rng() % 40);
                    std::vector<uint8_t> got(n + 1, 0xEE), want(n + 1, 0xEE);
                    r.ReadBuffer(got.data(), n);
                    for (int i = 0; i < n; ++i) want[i] = static_cast<uint8_t>(m.Read(1));
                    ASSERT_EQ(got, want);
                    break;
                }
                case 5: {
                    int p = static_cast<int>(rng() % (size + 12));
                    r.SetCurPos(p);
                    m.Seek(p);
                    break;
                }
                case 6: {
                    int d = static_cast<int>(rng() % 20) - 10;
                    if (m.pos + d < 0) d = -m.pos;
                    r.Skip(d);
                    m.Seek(m.pos + d);
                    break;
                }
                case 7: {
                    uint8_t v = alphabet[rng() % 8];
                    uint64_t w;
                    ASSERT_EQ(r.FindUint8(v), m.Search(
                                                  1, [v](uint64_t x) { return x == v; }, &w));
                    break;
                }
                case 8: {
                    uint16_t v =
                        static_cast<uint16_t>(alphabet[rng() % 8] << 8 | alphabet[rng() % 8]);
                    uint64_t w;
                    ASSERT_EQ(r.FindUint16(v), m.Search(
                                                   2, [v](uint64_t x) { return x == v; }, &w));
                    break;
                }
                case 9: {
                    unsigned char code = 0;
                    uint64_t w = 0;
                    int want = m.Search(
                        4, [](uint64_t x) { return (x & ~0xFFull) == 0x100; }, &w);
                    ASSERT_EQ(r.MpegNextStartCode(&code), want);
                    if (want >= 0) {
                        ASSERT_EQ(code, w & 0xFF);
                    }
                    break;
                }
                case 10: {
                    unsigned char marker = 0;
                    uint64_t w = 0;
                    int want = m.Search(
                        2, [](uint64_t x) { return (x >> 8) == 0xFF && (x & 0xFF) != 0; }, &w);
                    ASSERT_EQ(r.JpegNextMarker(&marker), want);
                    if (want >= 0) {
                        ASSERT_EQ(marker, w & 0xFF);
                    }
                    break;
                }
                case 11: {
                    unsigned char marker = 0;
                    uint64_t w = 0;
                    int want = m.Search(
                        2,
                        [](uint64_t x) {
                            return (x >> 8) == 0xFF && (x & 0xFF) != 0 && (x & 0xFF) != 0xFF;
                        },
                        &w);
                    ASSERT_EQ(r.JpegNextMarkerSkipStuff(&marker), want);
                    if (want >= 0) {
                        ASSERT_EQ(marker, w & 0xFF);
                    }
                    break;
                }
                case 12: {
                    unsigned int word = 0;
                    uint64_t w = 0;
                    int want = m.Search(
                        4, [](uint64_t x) { return (x & 0xFFE00000u) == 0xFFE00000u; }, &w);
                    ASSERT_EQ(r.MpegAudioNextSyncWord(&word, 0xFFE00000u, 0xFFE00000u), want);
                    if (want >= 0) {
                        ASSERT_EQ(word, w);
                    }
                    break;
                }
                default: {
                    // The contiguous run must be exactly the model's next bytes.
                    int left = -1;
                    unsigned char* p = r.GetCurDataAddress(&left);
                    if (m.pos < size) {
                        ASSERT_GT(left, 0);
                        ASSERT_EQ(p[0], data[m.pos]);
                    }
                    break;
                }
            }
            ASSERT_EQ(r.GetCurPos(), m.pos) << "op " << kind;
            ASSERT_EQ(r.IsError(), m.error ? 1 : 0) << "op " << kind;
        }
        EXPECT_EQ(r.Uninit(), m.error ? 0 : 1);
    }
}

INSTANTIATE_TEST_SUITE_P(AllFlags, ByteReaderRandom, ::testing::Values(0, 1, 2, 3));

class ByteWriterRoundTrip : public ::testing::TestWithParam<int> {};

// Random writes into a random chain, read back by the reader with the same
// flags; every byte the writer reports as written must read back, dropped
// writes must leave the chain untouched past its end.
TEST_P(ByteWriterRoundTrip, ReaderSeesWhatWriterWrote) {
    const int flags = GetParam();
    for (int round = 0; round < 60; ++round) {
        uint32_t seed = 0xb17e0000u + static_cast<uint32_t>(round * 4 + flags);
        SCOPED_TRACE(testing::Message() << "seed " << seed << " flags " << flags);
        std::mt19937 rng(seed);
        int size = 1 + static_cast<int>(rng() % 200);
        std::vector<uint8_t> blank(size, 0);
        Chain chain(blank, RandomCuts(rng, size));
        CNWriteByteStream w;
        w.Init(flags, chain.Tags(), chain.Count());
        struct Item {
            int bytes;
            uint64_t value;
            int pos;
        };
        std::vector<Item> items;
        int pos = 0;
        bool overflow = false;
        while (true) {
            int kind = static_cast<int>(rng() % 5);
            int bytes = kind == 4 ? 1 + static_cast<int>(rng() % 8) : (1 << kind);
            uint64_t v = (static_cast<uint64_t>(rng()) << 32) | rng();
            if (bytes < 8) v &= (1ull << (8 * bytes)) - 1;
            if (kind == 0) w.WriteUint8(static_cast<uint8_t>(v));
            if (kind == 1) w.WriteUint16(static_cast<uint16_t>(v));
            if (kind == 2) w.WriteUint32(static_cast<uint32_t>(v));
            if (kind == 3) w.WriteUint64(v);
            if (kind == 4) {
                uint8_t buf[8];
                for (int i = 0; i < 8; ++i) buf[i] = static_cast<uint8_t>(v >> (8 * (7 - i)));
                w.WriteBuffer(buf + 8 - bytes, bytes);
            }
            if (pos + bytes > size) {
                overflow = true;
                ASSERT_EQ(w.IsError(), 1);
                ASSERT_EQ(w.GetCurPos(), kind == 0 && pos == size ? pos : pos + bytes);
                break;
            }
            items.push_back({kind == 4 ? -bytes : bytes, v, pos});
            pos += bytes;
            ASSERT_EQ(w.GetCurPos(), pos);
            ASSERT_EQ(w.IsError(), 0);
        }
        EXPECT_EQ(w.Uninit(), overflow ? 0 : 1);

        uint8_t pad[1] = {0};
        CNReadByteStream r;
        r.Init(flags, chain.Tags(), chain.Count(), pad, 1);
        for (const auto& it : items) {
            if (it.bytes < 0) {  // buffers are big-endian byte strings whatever the flags
                std::vector<uint8_t> got(-it.bytes);
                r.ReadBuffer(got.data(), -it.bytes);
                for (int i = 0; i < -it.bytes; ++i) {
                    ASSERT_EQ(got[i], static_cast<uint8_t>(it.value >> (8 * (-it.bytes - 1 - i))));
                }
                continue;
            }
            uint64_t got = it.bytes == 1   ? r.ReadUint8()
                           : it.bytes == 2 ? r.ReadUint16()
                           : it.bytes == 4 ? r.ReadUint32()
                                           : r.ReadUint64();
            ASSERT_EQ(got, it.value) << "at " << it.pos;
        }
        EXPECT_EQ(r.IsError(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(AllFlags, ByteWriterRoundTrip, ::testing::Values(0, 1, 2, 3));

}  // namespace
