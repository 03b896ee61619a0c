// CNZipDecoder::CreateHuffmanTable against the bit reader's look-ups: random
// complete and incomplete codes of every shape (one level with 8- and 16-bit
// entries, two levels) encode random symbols that GetHuffman8/16 and their
// Once forms must decode with exactly the code lengths consumed; codes no
// table can hold are refused. The static tables are checked against their
// definitions through the same functions.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/zip_decoder.h"

namespace ncbtest::archive {
namespace {

// Canonical codes (RFC 1951) for the lengths.
std::vector<uint32_t> CanonicalCodes(const std::vector<uint8_t>& lengths) {
    int count[20] = {}, next[21] = {};
    for (uint8_t l : lengths) ++count[l];
    count[0] = 0;
    int code = 0;
    for (int bits = 1; bits <= 19; ++bits) {
        code = (code + count[bits - 1]) << 1;
        next[bits] = code;
    }
    std::vector<uint32_t> codes(lengths.size());
    for (size_t s = 0; s < lengths.size(); ++s)
        if (lengths[s]) codes[s] = static_cast<uint32_t>(next[lengths[s]]++);
    return codes;
}

// A random complete prefix code over `symbols` symbols (some unused) with
// lengths up to `maxLength`: leaves are split at random until enough exist.
std::vector<uint8_t> RandomLengths(int symbols, int used, int maxLength, std::mt19937& rng) {
    std::vector<int> leaves = {0};
    while (static_cast<int>(leaves.size()) < used) {
        std::vector<size_t> splittable;
        for (size_t i = 0; i < leaves.size(); ++i)
            if (leaves[i] < maxLength) splittable.push_back(i);
        if (splittable.empty()) break;
        const size_t pick = splittable[rng() % splittable.size()];
        const int depth = leaves[pick] + 1;
        leaves[pick] = depth;
        leaves.push_back(depth);
    }
    std::vector<uint8_t> lengths(static_cast<size_t>(symbols), 0);
    std::vector<int> order(static_cast<size_t>(symbols));
    for (int i = 0; i < symbols; ++i) order[static_cast<size_t>(i)] = i;
    std::shuffle(order.begin(), order.end(), rng);
    for (size_t i = 0; i < leaves.size(); ++i)
        lengths[static_cast<size_t>(order[i])] = static_cast<uint8_t>(leaves[i]);
    return lengths;
}

struct Built {
    CNCodecBuffer* table = nullptr;
    int lookupBits, entryBits, levels, shifts[2], dataShift, invalid;
    unsigned masks[2], lenMask;
    std::vector<int> links;
    ~Built() {
        if (table) table->Release();
    }
};

int Build(std::vector<uint8_t> lengths, int peekBits, Built* b) {
    b->table = CNCodecBuffer::CreateBuffer();
    b->links.assign(lengths.size() + 1, -1);
    return CNZipDecoder::CreateHuffmanTable(lengths.data(), static_cast<int>(lengths.size()),
                                            peekBits, b->table, &b->lookupBits, &b->entryBits,
                                            &b->levels, b->shifts, b->masks, b->links.data(),
                                            &b->dataShift, &b->lenMask, &b->invalid);
}

int DecodeOne(CNReadBitStream& bs, const Built& b) {
    const void* t = b.table->GetAddress();
    if (b.levels == 1 && b.entryBits == 16)
        return bs.GetHuffman16Once(b.lookupBits, b.invalid, b.dataShift,
                                   static_cast<unsigned short>(b.lenMask),
                                   static_cast<const short*>(t));
    if (b.levels == 1)
        return bs.GetHuffman8Once(b.lookupBits, b.invalid, b.dataShift,
                                  static_cast<unsigned char>(b.lenMask),
                                  static_cast<const signed char*>(t));
    if (b.entryBits == 16)
        return bs.GetHuffman16(b.lookupBits, b.invalid, 2, b.shifts, b.masks, b.dataShift,
                               static_cast<unsigned short>(b.lenMask), b.links.data(),
                               static_cast<const short*>(t));
    return bs.GetHuffman8(b.lookupBits, b.invalid, 2, b.shifts, b.masks, b.dataShift,
                          static_cast<unsigned char>(b.lenMask), b.links.data(),
                          static_cast<const signed char*>(t));
}

// Packs codes most significant bit first.
std::vector<unsigned char> Pack(const std::vector<std::pair<uint32_t, int>>& codes) {
    std::vector<unsigned char> bytes;
    int fill = 0;
    for (const auto& [code, length] : codes) {
        for (int i = length - 1; i >= 0; --i) {
            if (fill == 0) bytes.push_back(0);
            bytes.back() |= static_cast<unsigned char>(((code >> i) & 1) << (7 - fill));
            fill = (fill + 1) & 7;
        }
    }
    bytes.resize(bytes.size() + 8, 0);
    return bytes;
}

struct Shape {
    const char* name;
    int symbols;
    int used;
    int maxLength;
    int peekBits;
    int levels;     // expected
    int entryBits;  // expected, 0: either
};

class HuffmanShapes : public ::testing::TestWithParam<Shape> {};

TEST_P(HuffmanShapes, RandomSymbolsDecodeWithTheirLengths) {
    const Shape s = GetParam();
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 rng(seed);
        const std::vector<uint8_t> lengths = RandomLengths(s.symbols, s.used, s.maxLength, rng);
        const int longest = *std::max_element(lengths.begin(), lengths.end());
        Built b;
        ASSERT_EQ(Build(lengths, s.peekBits, &b), 1) << "seed " << seed;
        EXPECT_EQ(b.levels, longest > s.peekBits ? 2 : 1);
        if (s.levels) {
            EXPECT_LE(b.levels, s.levels);
        }
        if (s.entryBits) {
            EXPECT_EQ(b.entryBits, s.entryBits);
        }
        EXPECT_GT(b.invalid, s.symbols - 1);

        const std::vector<uint32_t> codes = CanonicalCodes(lengths);
        std::vector<int> symbols;
        std::vector<std::pair<uint32_t, int>> stream;
        for (int i = 0; i < 500; ++i) {
            int sym;
            do sym = static_cast<int>(rng() % lengths.size());
            while (!lengths[static_cast<size_t>(sym)]);
            symbols.push_back(sym);
            stream.push_back({codes[static_cast<size_t>(sym)], lengths[static_cast<size_t>(sym)]});
        }
        std::vector<unsigned char> bytes = Pack(stream);
        NDataStreamBufferInfoTag chain{bytes.data(), static_cast<int>(bytes.size())};
        unsigned char pad[4] = {};
        CNReadBitStream bs;
        bs.Init(0, 1, &chain, 1, pad, 4, 8, 8);
        int position = 0;
        for (size_t i = 0; i < symbols.size(); ++i) {
            ASSERT_EQ(DecodeOne(bs, b), symbols[i]) << "seed " << seed << " symbol " << i;
            position += lengths[static_cast<size_t>(symbols[i])];
            ASSERT_EQ(bs.GetCurPos(), position);
        }
        EXPECT_EQ(bs.IsError(), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, HuffmanShapes,
                         ::testing::Values(Shape{"Literals12BitOneLevel", 286, 286, 12, 12, 1, 16},
                                           Shape{"Literals15BitTwoLevels", 286, 286, 15, 12, 2, 16},
                                           Shape{"SparseLiterals", 286, 40, 15, 12, 0, 16},
                                           Shape{"Distances", 30, 30, 15, 12, 0, 0},
                                           Shape{"CodeLengthCode", 19, 19, 7, 7, 1, 16},
                                           Shape{"TinyAlphabet8Bit", 5, 5, 4, 4, 1, 8},
                                           Shape{"TinyAlphabetTwoLevels8Bit", 6, 6, 5, 3, 2, 8},
                                           Shape{"TwoCodes", 30, 2, 1, 12, 1, 0}),
                         [](const ::testing::TestParamInfo<Shape>& info) {
                             return std::string(info.param.name);
                         });

// An incomplete code (one distance code of length 1): the unused half of
// the table reports the invalid value and sets the error flag.
TEST(ZipHuffman, UnreachedCodesAreInvalid) {
    std::vector<uint8_t> lengths(30, 0);
    lengths[7] = 1;
    Built b;
    ASSERT_EQ(Build(lengths, 12, &b), 1);
    unsigned char bytes[8] = {0x40, 0, 0, 0, 0, 0, 0, 0};  // bits 0 then 1
    NDataStreamBufferInfoTag chain{bytes, 8};
    CNReadBitStream bs;
    bs.Init(0, 1, &chain, 1, nullptr, 0, 8, 8);
    EXPECT_EQ(DecodeOne(bs, b), 7);
    EXPECT_EQ(bs.IsError(), 0);
    EXPECT_EQ(DecodeOne(bs, b), b.invalid);
    EXPECT_EQ(bs.IsError(), 1);
}

struct Refusal {
    const char* name;
    std::vector<uint8_t> lengths;
    int peekBits;
};

class HuffmanRefusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(HuffmanRefusals, AreRefused) {
    Built b;
    EXPECT_EQ(Build(GetParam().lengths, GetParam().peekBits, &b), 0);
}

std::vector<uint8_t> Fill(std::vector<uint8_t> head, size_t size) {
    head.resize(size, 0);
    return head;
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, HuffmanRefusals,
    ::testing::Values(Refusal{"Oversubscribed", {1, 1, 1}, 12},
                      Refusal{"OversubscribedDeep", Fill({2, 2, 2, 3, 3, 3}, 10), 12},
                      Refusal{"AllZero", std::vector<uint8_t>(30, 0), 12},
                      Refusal{"LengthAbove19", {20, 1}, 12},
                      Refusal{"ThreeLevels",
                              Fill({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 15}, 20), 4},
                      Refusal{"Empty", {}, 12}),
    [](const ::testing::TestParamInfo<Refusal>& info) { return std::string(info.param.name); });

TEST(ZipHuffman, NullArgumentsAreRefused) {
    unsigned char lengths[2] = {1, 1};
    int i[4];
    unsigned u[4];
    int links[3];
    CNCodecBuffer* table = CNCodecBuffer::CreateBuffer();
    EXPECT_EQ(
        CNZipDecoder::CreateHuffmanTable(nullptr, 2, 12, table, i, i, i, i, u, links, i, u, i), 0);
    EXPECT_EQ(
        CNZipDecoder::CreateHuffmanTable(lengths, 2, 12, nullptr, i, i, i, i, u, links, i, u, i),
        0);
    EXPECT_EQ(CNZipDecoder::CreateHuffmanTable(lengths, 2, 0, table, i, i, i, i, u, links, i, u, i),
              0);
    table->Release();
}

std::vector<uint8_t> FixedLengths() {
    std::vector<uint8_t> l(288);
    for (int s = 0; s < 288; ++s) l[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
    return l;
}

// The fixed literal/length table is what the builder makes of the fixed
// code's lengths for a 9-bit peek.
TEST(ZipHuffman, FixedTableEqualsTheBuiltOne) {
    Built b;
    ASSERT_EQ(Build(FixedLengths(), 9, &b), 1);
    ASSERT_EQ(b.levels, 1);
    ASSERT_EQ(b.entryBits, 16);
    ASSERT_EQ(b.dataShift, 4);
    const auto* built = static_cast<const uint16_t*>(b.table->GetAddress());
    for (int i = 0; i < 512; ++i)
        ASSERT_EQ(CNZipDecoder::s_uHuffr16DefalteLengthData[i], built[i]) << i;
}

// The prebuilt two-level table decodes the fixed code through GetHuffman16.
TEST(ZipHuffman, PrebuiltTwoLevelTableDecodesTheFixedCode) {
    const std::vector<uint8_t> lengths = FixedLengths();
    const std::vector<uint32_t> codes = CanonicalCodes(lengths);
    std::vector<std::pair<uint32_t, int>> stream;
    for (int s = 0; s < 288; ++s) stream.push_back({codes[s], lengths[s]});
    std::vector<unsigned char> bytes = Pack(stream);
    NDataStreamBufferInfoTag chain{bytes.data(), static_cast<int>(bytes.size())};
    CNReadBitStream bs;
    bs.Init(0, 1, &chain, 1, nullptr, 0, 8, 8);
    const auto& t = CNZipDecoder::s_uHuffr16DefalteHuffmanLengthData;
    for (int s = 0; s < 288; ++s) {
        ASSERT_EQ(bs.GetHuffman16(18, 0x7FF, 2,
                                  CNZipDecoder::s_nHuffr16DefalteHuffmanLengthCheckShiftBit.data(),
                                  CNZipDecoder::s_uHuffr16DefalteHuffmanLengthCheckMask.data(), 4,
                                  15, CNZipDecoder::s_nHuffr16DefalteHuffmanLengthIndex.data(),
                                  reinterpret_cast<const short*>(t.data())),
                  s);
    }
    EXPECT_EQ(bs.IsError(), 0);
}

TEST(ZipHuffman, SmallTablesFollowTheirDefinitions) {
    for (int v = 0; v < 8192; ++v) {
        int r = 0;
        for (int b = 0; b < 13; ++b) r |= ((v >> b) & 1) << (12 - b);
        ASSERT_EQ(CNZipDecoder::s_uBitSwapTable13[v], r);
    }
    EXPECT_EQ(CNZipDecoder::s_uBitSwapTable2[1], 2);
    EXPECT_EQ(CNZipDecoder::s_uBitSwapTable5[1], 16);
    EXPECT_EQ(CNZipDecoder::s_uBitSwapTable9[3], 0x180);
    EXPECT_EQ(CNZipDecoder::s_uLenHuffmanMappingTable[0], 16);
    EXPECT_EQ(CNZipDecoder::s_uLenHuffmanMappingTable[18], 15);
    EXPECT_EQ(CNZipDecoder::s_uBitMask[19], 0x7FFFFu);
    EXPECT_EQ(CNZipDecoder::s_uBitMaxValue[0], 0u);
    EXPECT_EQ(CNZipDecoder::s_uBitMaxValue[31], 0x80000000u);
}

}  // namespace
}  // namespace ncbtest::archive
