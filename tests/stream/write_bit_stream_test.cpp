// Bit writer: the documented edge cases of every mode and end mode, then
// round trips: random field, Exp-Golomb, interleaved-code and Huffman
// sequences written in each escape mode and bit order into a random chain,
// re-cut at other random points (1-byte blocks included) and read back by
// the bit reader, with the written bytes checked for forbidden patterns.
// CABAC: bins encoded with random contexts and probabilities decode back.
#include "ncodecbase/write_bit_stream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "ncodecbase/read_bit_stream.h"
#include "tests/stream/stream_test_util.h"

using stream_test::Chain;
using stream_test::RandomCuts;
using stream_test::Reverse8;

namespace {

struct Writer {
    std::vector<uint8_t> buf;
    NDataStreamBufferInfoTag tag;
    CNWriteBitStream w;
    int written = 0, inserted = 0;
    explicit Writer(int mode, int size = 16, int flags = 1, uint8_t fill = 0, int startBits = 0)
        : buf(size, fill) {
        tag = {buf.data(), size};
        w.Init(mode, flags, &tag, 1, startBits);
    }
    std::vector<uint8_t> Finish(int endMode, int* ok = nullptr) {
        int r = w.Uninit(endMode, &written, &inserted);
        if (ok) *ok = r;
        int bytes = (written + inserted + 7) / 8;
        return std::vector<uint8_t>(buf.begin(), buf.begin() + std::min<int>(bytes, buf.size()));
    }
};

using Bytes = std::vector<uint8_t>;

TEST(WriteBitStream, H264EmulationPrevention) {
    Writer a(1);
    a.w.WriteBitsUint32(0x000001, 24);
    EXPECT_EQ(a.Finish(5), (Bytes{0x00, 0x00, 0x03, 0x01, 0x80}));
    EXPECT_EQ(a.inserted, 8);
    EXPECT_EQ(a.written, 32);

    Writer b(1);
    b.w.WriteBitsUint32(0, 32);
    int ok = 0;
    EXPECT_EQ(b.Finish(4, &ok), (Bytes{0x00, 0x00, 0x03, 0x00, 0x00, 0x03}));
    EXPECT_EQ(ok, 1);
    EXPECT_EQ(b.inserted, 16);

    Writer reversed(1, 16, 0);
    reversed.w.WriteBitsUint32(0x000002, 24);
    EXPECT_EQ(reversed.Finish(5), (Bytes{0x00, 0x00, 0xC0, 0x40, 0x01}));

    Writer bad(1);
    EXPECT_EQ(bad.w.Uninit(3, nullptr, nullptr), 0);
}

TEST(WriteBitStream, AvsPendingEscapeAtEnd) {
    Writer w(2);
    w.w.WriteBitsUint32(0, 22);
    EXPECT_EQ(w.Finish(3), (Bytes{0x00, 0x00, 0x02}));
    EXPECT_EQ(w.written, 22);
    EXPECT_EQ(w.inserted, 2);

    Writer v(2);
    v.w.WriteBitsUint32(0x000001, 24);                        // 00 00 then 00000001: escaped
    EXPECT_EQ(v.Finish(3), (Bytes{0x00, 0x00, 0x02, 0x7F}));  // 01 + six padding ones
}

TEST(WriteBitStream, AvsLongZeroRunsRoundTrip) {
    // Zero payload makes every third byte an escape carrying six bits, the
    // case where the accumulator drains slowest.
    std::mt19937 rng(99);
    std::vector<int> widths;
    std::vector<uint8_t> buf(4096, 0xEE);
    NDataStreamBufferInfoTag tag{buf.data(), 4096};
    CNWriteBitStream w;
    w.Init(2, 1, &tag, 1, 0);
    for (int i = 0; i < 600; ++i) {
        widths.push_back(25 + static_cast<int>(rng() % 8));
        w.WriteBitsUint32(i % 7 == 6 ? 0x80000001u : 0, widths.back());
    }
    int written = 0, inserted = 0;
    ASSERT_EQ(w.Uninit(3, &written, &inserted), 1);
    uint8_t pad[1] = {0x55};
    CNReadBitStream r;
    tag.nSize = (written + inserted) / 8;
    r.Init(2, 1, &tag, 1, pad, 1, 8, 8);
    for (size_t i = 0; i < widths.size(); ++i) {
        uint32_t want = i % 7 == 6 ? 0x80000001u & (~0u >> (32 - widths[i])) : 0;
        ASSERT_EQ(r.GetAndRemoveBitsUint32(widths[i]), want) << i;
    }
    EXPECT_EQ(r.IsError(), 0);
}

TEST(WriteBitStream, CabacZeroWords) {
    // 200 bins on a 16x16 picture: K = ceil(3 * (6400 - 3072) / 1024) = 10
    // bytes needed; 2 written + 1 extra leave 7: three words.
    Writer w(1, 32);
    w.w.WriteBitsUint32(0xABCD, 16);
    w.w.UninitCabac(1, 200, 1, 16, 16);
    Bytes out = w.Finish(4);
    EXPECT_EQ(out, (Bytes{0xAB, 0xCD, 0, 0, 3, 0, 0, 3, 0, 0, 3}));
}

TEST(WriteBitStream, JpegStuffingAndOnePadding) {
    Writer a(3);
    a.w.WriteBitsUint32(0xFFD9, 16);
    a.w.WriteBitsUint32(5, 3);
    EXPECT_EQ(a.Finish(3), (Bytes{0xFF, 0x00, 0xD9, 0xBF}));
    EXPECT_EQ(a.written, 24);
    EXPECT_EQ(a.inserted, 8);

    Writer b(3);
    b.w.WriteBitsUint32(0x7F, 7);  // pads to FF, which is stuffed too
    EXPECT_EQ(b.Finish(0), (Bytes{0xFF, 0x00}));
}

TEST(WriteBitStream, AlignmentAndPlainEndModes) {
    Writer zeros(0);
    zeros.w.WriteBitsUint32(7, 3);
    zeros.w.MakeByteAlign(1);
    EXPECT_TRUE(zeros.w.IsByteAlign());
    EXPECT_EQ(zeros.Finish(1), (Bytes{0xE0}));

    Writer ones(0);
    ones.w.WriteBitsUint32(0, 3);
    ones.w.MakeByteAlign(0);
    EXPECT_EQ(ones.Finish(1), (Bytes{0x1F}));

    Writer start(0, 2, 1, 0xE0, 3);
    start.w.WriteBitsUint32(0x15, 5);
    EXPECT_EQ(start.Finish(1)[0], 0xF5);

    for (int mode : {1, 2, 3}) {
        Writer merge(0, 1, 1, 0x0F);
        merge.w.WriteBitsUint32(0x5, 3);
        Bytes out = merge.Finish(mode);
        const uint8_t want[] = {0, 0xAF, 0xA0, 0xBF};
        EXPECT_EQ(out.at(0), want[mode]) << mode;
    }
}

TEST(WriteBitStream, ExpGolombBitPatterns) {
    Writer ue(0);
    for (unsigned v : {0u, 1u, 2u, 3u}) ue.w.H264WriteUe(v);
    // 1 010 011 00100 -> 1010 0110 0100 0000
    EXPECT_EQ(ue.Finish(2), (Bytes{0xA6, 0x40}));
    Writer se(0);
    for (int v : {1, -1, 2}) se.w.H264WriteSe(v);
    // 010 011 00100 -> 0100 1100 1000 0000
    EXPECT_EQ(se.Finish(2), (Bytes{0x4C, 0x80}));
}

TEST(WriteBitStream, OverflowDropsAndFlags) {
    Writer w(0, 2);
    w.w.WriteBitsUint32(0xABCD, 16);
    EXPECT_EQ(w.w.IsError(), 0);
    w.w.WriteBitsUint32(1, 1);
    EXPECT_EQ(w.w.IsError(), 1);
    int ok = 1;
    EXPECT_EQ(w.Finish(2, &ok), (Bytes{0xAB, 0xCD}));
    EXPECT_EQ(ok, 0);
}

TEST(WriteBitStream, SetCurPosRewritesMidByte) {
    Writer w(0, 4);
    w.w.WriteBitsUint32(0xFFFFFFFF, 32);
    w.w.SetCurPos(4);
    w.w.WriteBitsUint32(0, 8);
    EXPECT_EQ(w.w.GetCurPos(), 12);
    w.w.Uninit(1, nullptr, nullptr);
    EXPECT_EQ(w.buf, (Bytes{0xF0, 0x0F, 0xFF, 0xFF}));
}

// Canonical prefix code with random lengths (complete by construction).
struct TestCode {
    std::vector<int> length;
    std::vector<uint32_t> code;
    int maxLength = 0;

    TestCode(std::mt19937& rng, int symbols, int limit) {
        std::vector<int> lens = {1, 1};
        while (static_cast<int>(lens.size()) < symbols) {
            int i = static_cast<int>(rng() % lens.size());
            if (lens[i] >= limit) continue;
            int l = ++lens[i];
            lens.push_back(l);
        }
        std::shuffle(lens.begin(), lens.end(), rng);
        length = lens;
        code.resize(symbols);
        uint32_t next = 0;
        int prev = 0;
        for (int l = 1; l <= limit; ++l) {
            for (int s = 0; s < symbols; ++s) {
                if (length[s] != l) continue;
                next <<= (l - prev);
                prev = l;
                code[s] = next++;
            }
        }
        maxLength = *std::max_element(length.begin(), length.end());
    }

    // Two-level table: level 0 of b0 bits, sub-tables of maxLength - b0 bits.
    template <typename Entry>
    void Build(int b0, int dataShift, std::vector<Entry>& table, std::vector<int>& offsets) const {
        int L = maxLength;
        int b1 = L - b0;
        table.assign(1u << b0, 0);
        offsets.assign(1, 0);
        std::vector<int> sub(1u << b0, 0);
        for (size_t s = 0; s < length.size(); ++s) {
            int l = length[s];
            uint32_t c = code[s];
            if (l <= b0) {
                for (uint32_t i = 0; i < (1u << (b0 - l)); ++i)
                    table[(c << (b0 - l)) | i] = static_cast<Entry>((s << dataShift) | (l - 1));
                continue;
            }
            uint32_t prefix = c >> (l - b0);
            if (!sub[prefix]) {
                sub[prefix] = static_cast<int>(offsets.size());
                offsets.push_back(static_cast<int>(table.size()));
                table.resize(table.size() + (1u << b1), 0);
                table[prefix] = static_cast<Entry>((-sub[prefix] * (1 << dataShift)) | (b0 - 1));
            }
            int rest = l - b0;
            int base = offsets[sub[prefix]];
            uint32_t low = c & ((1u << rest) - 1);
            for (uint32_t i = 0; i < (1u << (b1 - rest)); ++i)
                table[base + ((low << (b1 - rest)) | i)] =
                    static_cast<Entry>((s << dataShift) | (rest - 1));
        }
    }
};

struct Item {
    int kind;
    uint32_t value;
    int bits;
};

std::vector<uint8_t> Logical(std::vector<uint8_t> bytes, int flags) {
    if (!(flags & 1))
        for (auto& b : bytes) b = Reverse8(b);
    return bytes;
}

class BitRoundTrip : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(BitRoundTrip, ReaderReturnsWhatWriterWrote) {
    const int mode = std::get<0>(GetParam());
    const int flags = std::get<1>(GetParam());
    for (int round = 0; round < 40; ++round) {
        uint32_t seed = 0x7e170000u + static_cast<uint32_t>(round * 8 + mode * 2 + flags);
        SCOPED_TRACE(testing::Message()
                     << "seed " << seed << " mode " << mode << " flags " << flags);
        std::mt19937 rng(seed);
        TestCode huff(rng, 12, 12);
        std::vector<uint32_t> wtable(12);
        for (int s = 0; s < 12; ++s) wtable[s] = (huff.code[s] << 5) | (huff.length[s] - 1);
        int b0 = std::min(huff.maxLength, 1 + static_cast<int>(rng() % 8));
        if (huff.maxLength - b0 > 8) b0 = huff.maxLength - 8;
        std::vector<signed char> t8;
        std::vector<short> t16;
        std::vector<int> t32, off8, off16, off32;
        huff.Build(b0, 3, t8, off8);
        huff.Build(b0, 4, t16, off16);
        huff.Build(b0, 8, t32, off32);
        std::vector<short> once;
        std::vector<int> offOnce;
        huff.Build(huff.maxLength, 4, once, offOnce);
        int shifts[2] = {huff.maxLength - b0, 0};
        unsigned masks[2] = {(1u << b0) - 1, (1u << (huff.maxLength - b0)) - 1};

        int count = 1 + static_cast<int>(rng() % 150);
        std::vector<Item> items;
        for (int i = 0; i < count; ++i) {
            int kind = static_cast<int>(rng() % 9);
            uint32_t v = rng();
            int bits = 1 + static_cast<int>(rng() % 32);
            if (kind == 0) v &= bits == 32 ? ~0u : (1u << bits) - 1;
            if (kind == 1) v = rng() % 3 ? v % 3000 : v;  // ue
            if (kind == 2)
                v = rng() % 3 ? static_cast<uint32_t>(static_cast<int>(v % 5000) - 2500) : v;  // se
            if (kind == 3) v = rng() % 8191;                 // interleaved
            if (kind >= 4 && kind <= 7) v = rng() % 12;      // Huffman
            if (kind == 8) v = rng() % 2;                    // te, range 1
            if (mode == 2 && kind == 0 && rng() % 2) v = 0;  // zero runs
            items.push_back({kind, v, bits});
        }
        int capacity = 64 + count * 16;
        std::vector<uint8_t> blank(capacity, 0);
        Chain out(blank, RandomCuts(rng, capacity));
        CNWriteBitStream w;
        w.Init(mode, flags, out.Tags(), out.Count(), 0);
        for (const auto& it : items) {
            switch (it.kind) {
                case 0:
                    w.WriteBitsUint32(it.value, it.bits);
                    break;
                case 1:
                    w.H264WriteUe(it.value);
                    break;
                case 2:
                    w.H264WriteSe(static_cast<int>(it.value));
                    break;
                case 3:
                    w.RealWriteOneVLC(static_cast<int>(it.value));
                    break;
                case 8:
                    w.H264WriteTe(it.value, 1);
                    break;
                default:
                    w.WriteHuffman32(static_cast<int>(it.value), 5, 31, wtable.data());
                    break;
            }
        }
        int payloadBits = w.GetCurPos();
        int written = 0, inserted = 0;
        int endMode = mode == 1 ? 5 : mode == 0 ? 2 : 3;
        ASSERT_EQ(w.Uninit(endMode, &written, &inserted), 1);
        ASSERT_EQ(written % 8 == 0 || mode == 2, true);
        int bytes = (written + inserted) / 8;
        ASSERT_EQ((written + inserted) % 8, 0);
        std::vector<uint8_t> joined = out.Join();
        std::vector<uint8_t> stream(joined.begin(), joined.begin() + bytes);

        // Forbidden patterns in what was stored.
        std::vector<uint8_t> logical = Logical(stream, flags);
        for (size_t i = 0; i + 2 < logical.size(); ++i) {
            if (logical[i] || logical[i + 1]) continue;
            if (mode == 1) {
                ASSERT_GT(logical[i + 2], 2) << "at " << i;
            }
            if (mode == 2) {
                ASSERT_TRUE(logical[i + 2] == 2 || logical[i + 2] >= 4) << "at " << i;
            }
        }
        if (mode == 3) {
            for (size_t i = 0; i < logical.size(); ++i) {
                if (logical[i] == 0xFF) {
                    ASSERT_TRUE(i + 1 < logical.size() && logical[i + 1] == 0);
                }
            }
        }

        Chain in(stream, RandomCuts(rng, bytes));
        uint8_t pad[4] = {0xFF, 0xD8, 0xD8, 0xFF};
        CNReadBitStream r;
        r.Init(mode, flags, in.Tags(), in.Count(), pad, 4, 8, 8);
        for (size_t i = 0; i < items.size(); ++i) {
            const auto& it = items[i];
            int length = 0;
            switch (it.kind) {
                case 0:
                    ASSERT_EQ(r.GetAndRemoveBitsUint32(it.bits), it.value) << i;
                    break;
                case 1:
                    ASSERT_EQ(r.H264GetUe(0xFFFFFFFFu), it.value) << i;
                    break;
                case 2:
                    ASSERT_EQ(r.H264GetSe(INT32_MIN, INT32_MAX), static_cast<int>(it.value)) << i;
                    break;
                case 3:
                    ASSERT_EQ(r.RealGetOneVLC(), it.value) << i;
                    break;
                case 4:
                    ASSERT_EQ(r.GetHuffman8(huff.maxLength, 99, 2, shifts, masks, 3, 7, off8.data(),
                                            t8.data()),
                              static_cast<int>(it.value));
                    break;
                case 5:
                    ASSERT_EQ(r.GetHuffman16Try(huff.maxLength, 99, 2, shifts, masks, 4, 15,
                                                off16.data(), t16.data(), &length),
                              static_cast<int>(it.value));
                    ASSERT_EQ(length, huff.length[it.value]);
                    r.RemoveBits(length);
                    break;
                case 6:
                    ASSERT_EQ(r.GetHuffman32(huff.maxLength, 99, 2, shifts, masks, 8, 255,
                                             off32.data(), t32.data()),
                              static_cast<int>(it.value));
                    break;
                case 7:
                    ASSERT_EQ(r.GetHuffman16Once(huff.maxLength, 99, 4, 15, once.data()),
                              static_cast<int>(it.value));
                    break;
                case 8:
                    ASSERT_EQ(r.H264GetTe(1), it.value) << i;
                    break;
            }
        }
        ASSERT_EQ(r.GetCurPos(), payloadBits);
        if (mode == 1) {
            EXPECT_EQ(r.H264MoreRbspData(), 0);
            EXPECT_EQ(r.GetAndRemoveBitsUint32(1), 1u);  // stop bit
        }
        if (mode != 3) {
            EXPECT_EQ(r.IsError(), 0);  // JPEG: the pad's FF D8 reads as a marker
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ModesAndOrders, BitRoundTrip,
                         ::testing::Combine(::testing::Values(0, 1, 2, 3),
                                            ::testing::Values(0, 1)));

TEST(WriteBitStream, ExpGolombExtremes) {
    const int64_t signedValues[] = {INT32_MIN,     INT32_MIN + 1, -1024,      1024,
                                    INT32_MAX - 1, INT32_MAX,     -(1 << 20), (1 << 30) + 7};
    const uint32_t unsignedValues[] = {2047,        2048,        0x7FFFFFFFu,
                                       0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu};
    std::vector<uint8_t> buf(256, 0);
    NDataStreamBufferInfoTag tag{buf.data(), 256};
    CNWriteBitStream w;
    w.Init(1, 1, &tag, 1, 0);
    for (auto v : signedValues) w.H264WriteSe(static_cast<int>(v));
    for (auto v : unsignedValues) w.H264WriteUe(v);
    ASSERT_EQ(w.Uninit(5, nullptr, nullptr), 1);
    uint8_t pad[1] = {0};
    CNReadBitStream r;
    r.Init(1, 1, &tag, 1, pad, 1, 8, 8);
    for (auto v : signedValues) EXPECT_EQ(r.H264GetSe(INT32_MIN, INT32_MAX), v);
    for (auto v : unsignedValues) EXPECT_EQ(r.H264GetUe(0xFFFFFFFFu), v);
    EXPECT_EQ(r.IsError(), 0);
}

class CabacRoundTrip : public ::testing::TestWithParam<int> {};

TEST_P(CabacRoundTrip, DecoderAgreesWithEncoder) {
    const int column = GetParam();
    for (int round = 0; round < 20; ++round) {
        uint32_t seed = 0xcabac000u + static_cast<uint32_t>(round * 4 + column);
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        int qp = static_cast<int>(rng() % 60) - 4;
        struct Bin {
            int kind, context, bin;
        };
        std::vector<Bin> bins;
        int n = 1 + static_cast<int>(rng() % 3000);
        // Per-context bias so the states travel over their whole range.
        std::vector<int> bias(460);
        for (auto& b : bias) b = static_cast<int>(rng() % 101);
        for (int i = 0; i < n; ++i) {
            int kind = rng() % 10 == 0 ? 1 : (rng() % 50 == 0 ? 2 : 0);
            int ctx = static_cast<int>(rng() % (rng() % 2 ? 8 : 460));
            int bin = static_cast<int>(rng() % 100) < bias[ctx] ? 1 : 0;
            if (kind == 1) bin = static_cast<int>(rng() % 2);
            if (kind == 2) bin = 0;
            bins.push_back({kind, ctx, bin});
        }
        int mode = static_cast<int>(rng() % 2);  // plain or H.264 escapes
        std::vector<uint8_t> blank(n + 64, 0);
        Chain out(blank, RandomCuts(rng, n + 64));
        CNWriteBitStream w;
        w.Init(mode, 1, out.Tags(), out.Count(), 0);
        w.WriteBitsUint32(0x5, 3);  // a header before the slice data
        w.InitCabacContext(column, qp);
        w.InitCabacEngine();
        for (const auto& b : bins) {
            if (b.kind == 0) w.CabacEncodeNormal(b.context, b.bin);
            if (b.kind == 1) w.CabacEncodeBypass(b.bin);
            if (b.kind == 2) w.CabacEncodeTerminateNot();
        }
        w.CabacEncodeTerminate();
        EXPECT_EQ(w.UninitCabac(0, 0, 0, 16, 16), n + 1);
        int written = 0, inserted = 0;
        ASSERT_EQ(w.Uninit(mode == 1 ? 4 : 1, &written, &inserted), 1);
        int bytes = (written + inserted + 7) / 8;
        std::vector<uint8_t> joined = out.Join();
        std::vector<uint8_t> stream(joined.begin(), joined.begin() + bytes);
        Chain in(stream, RandomCuts(rng, bytes));
        uint8_t pad[1] = {0};
        CNReadBitStream r;
        r.Init(mode, 1, in.Tags(), in.Count(), pad, 1, 8, 8);
        ASSERT_EQ(r.GetAndRemoveBitsUint32(3), 5u);
        r.InitCabacContext(column, qp);
        r.InitCabacEngine();
        for (size_t i = 0; i < bins.size(); ++i) {
            const auto& b = bins[i];
            int got = b.kind == 0   ? r.CabacDecodeNormal(b.context)
                      : b.kind == 1 ? r.CabacDecodeBypass()
                                    : r.CabacDecodeTerminate();
            ASSERT_EQ(got, b.bin) << "bin " << i;
        }
        EXPECT_EQ(r.CabacDecodeTerminate(), 1);
        // The terminating bin leaves the reader just past the stop bit that
        // the flush wrote: only alignment zeros follow.
        int left = r.GetLeftSize();
        EXPECT_LT(left, 8);
        if (left > 0) {
            EXPECT_EQ(r.GetBitsUint32(left), 0u);
        }
        EXPECT_EQ(r.IsError(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Columns, CabacRoundTrip, ::testing::Values(0, 1, 2, 3));

}  // namespace
