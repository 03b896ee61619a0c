// The Huffman table cache: records are found again rather than rebuilt, hit
// counts follow the scans that use them, iteration and removal keep the
// records packed, eviction picks the smallest key (first among equals), and
// over-full code tables are refused.
#include <gtest/gtest.h>

#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"
#include "tests/image/jpeg/jpeg_oracle.h"
#include "tests/support/test_paths.h"

namespace ncbtest::jpeg {
namespace {

class JpegHuffmanCache : public ::testing::Test {
  protected:
    void SetUp() override { cache_ = CNCodecBuffer::CreateBuffer(); }
    void TearDown() override { cache_->Release(); }

    // A small DC table whose symbols are `first`, first + 1, ... so tables
    // differ by their symbols alone.
    int RaiseDc(unsigned char first, unsigned char tableClass = 0) {
        unsigned char counts[16] = {0, 3, 1};
        unsigned char symbols[4] = {first, static_cast<unsigned char>(first + 1),
                                    static_cast<unsigned char>(first + 2),
                                    static_cast<unsigned char>(first + 3)};
        return CNJpegCodec::DecodeRaiseHuffmanTable(counts, symbols, 4, tableClass, cache_);
    }

    std::vector<int> HitCounts() {
        std::vector<int> hits;
        int offset = 0;
        do {
            int size = 0, hit = -1;
            offset = CNJpegCodec::HuffmanGetCachedTableInfo(offset, cache_, &size, &hit);
            hits.push_back(hit);
        } while (offset != 0);
        return hits;
    }

    CNCodecBuffer* cache_ = nullptr;
};

TEST_F(JpegHuffmanCache, FindsTheSameTableAgain) {
    const int a = RaiseDc(0);
    ASSERT_EQ(a, 0);
    const int b = RaiseDc(0);
    EXPECT_EQ(b, a);
    EXPECT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), 1);
    // Same counts and symbols in the other class: a record of its own.
    const int c = RaiseDc(0, 1);
    EXPECT_GT(c, a);
    EXPECT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), 2);
    EXPECT_EQ(cache_->GetDataSize() % 4, 0);
}

TEST_F(JpegHuffmanCache, RefusesOverfullCodeTables) {
    unsigned char counts[16] = {3};  // three codes of length 1
    unsigned char symbols[3] = {0, 1, 2};
    EXPECT_EQ(CNJpegCodec::DecodeRaiseHuffmanTable(counts, symbols, 3, 0, cache_), -1);
    unsigned char full[16] = {2};  // 0 and 1: fits
    EXPECT_GE(CNJpegCodec::DecodeRaiseHuffmanTable(full, symbols, 2, 0, cache_), 0);
}

TEST_F(JpegHuffmanCache, IteratesAndRemoves) {
    for (unsigned char s = 0; s < 5; ++s) RaiseDc(static_cast<unsigned char>(s * 10));
    ASSERT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), 5);
    int offset = 0, visited = 0, last = 0;
    do {
        last = offset;
        int size = 0, hit = 0;
        offset = CNJpegCodec::HuffmanGetCachedTableInfo(offset, cache_, &size, &hit);
        ++visited;
    } while (offset != 0);
    EXPECT_EQ(visited, 5);
    CNJpegCodec::HuffmanRemoveCachedTableInfo(last, cache_);
    EXPECT_EQ(cache_->GetDataSize(), last);
    CNJpegCodec::HuffmanRemoveCachedTableInfo(0, cache_);
    EXPECT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), 3);
    // The records that moved down are still found by content.
    EXPECT_EQ(RaiseDc(10), 0);
}

TEST_F(JpegHuffmanCache, EvictsSmallestHitCountFirstAmongEquals) {
    const int hits[5] = {3, 1, 4, 1, 5};
    std::vector<int> offsets;
    for (int i = 0; i < 5; ++i) offsets.push_back(RaiseDc(static_cast<unsigned char>(i * 10)));
    for (int i = 0; i < 5; ++i) {
        auto* rec = reinterpret_cast<CNJpegCodec::HuffmanTableTag*>(
            static_cast<uint8_t*>(cache_->GetAddress()) + offsets[i]);
        rec->nHitCount = hits[i];
    }
    CNJpegCodec::HuffmanAutoRemoveTable(3, cache_, 1);
    EXPECT_EQ(HitCounts(), (std::vector<int>{3, 4, 5}));
    CNJpegCodec::HuffmanResetHitCount(cache_);
    EXPECT_EQ(HitCounts(), (std::vector<int>{0, 0, 0}));
}

TEST_F(JpegHuffmanCache, DecodingTwiceReusesRecordsAndCountsScans) {
    const Bytes file = ReadFile(TestDataPath("jpeg/valid/rose_420_q75.jpg"));
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(const_cast<uint8_t*>(file.data()),
                                                        static_cast<int>(file.size()),
                                                        static_cast<int>(file.size()), nullptr);
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBase::VideoFormatInfoTag f{};
    ASSERT_EQ(CNJpegCodec::Decode(nullptr, &f, in, out, cache_, 0), 1);
    const int records = CNJpegCodec::HuffmanGetCachedTableNumber(cache_);
    EXPECT_EQ(records, 4);
    const std::vector<int> first = HitCounts();
    in->SetBufferUserData(0);
    ASSERT_EQ(CNJpegCodec::Decode(nullptr, &f, in, out, cache_, 0), 1);
    EXPECT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), records);
    const std::vector<int> second = HitCounts();
    for (size_t i = 0; i < first.size(); ++i) EXPECT_EQ(second[i], 2 * first[i]);
    out->Release();
    in->Release();
}

TEST_F(JpegHuffmanCache, StandardTablesFillSlotsZeroAndOne) {
    int dcDefined[4] = {}, dcOffset[4] = {}, acDefined[4] = {}, acOffset[4] = {};
    CNJpegCodec::DecodeRaiseDefaultHuffmanTable(dcDefined, dcOffset, acDefined, acOffset, cache_);
    EXPECT_EQ(dcDefined[0] + dcDefined[1] + acDefined[0] + acDefined[1], 4);
    EXPECT_EQ(dcDefined[2] + acDefined[3], 0);
    EXPECT_EQ(CNJpegCodec::HuffmanGetCachedTableNumber(cache_), 4);
    // Once any slot is defined, nothing more is raised.
    const int size = cache_->GetDataSize();
    CNJpegCodec::DecodeRaiseDefaultHuffmanTable(dcDefined, dcOffset, acDefined, acOffset, cache_);
    EXPECT_EQ(cache_->GetDataSize(), size);
}

// What cjpeg writes as its (standard) tables is what we install when a
// stream has none.
TEST(JpegStandardTables, EqualWhatCjpegWrites) {
    const Bytes jpeg = RunCjpeg("-quality 75", MakePicture(16, 16, false, 1));
    ASSERT_FALSE(jpeg.empty());
    int found = 0;
    for (size_t i = 0; i + 4 < jpeg.size(); ++i) {
        if (jpeg[i] != 0xFF || jpeg[i + 1] != 0xC4) continue;
        const size_t end = i + 2 + ((jpeg[i + 2] << 8) | jpeg[i + 3]);
        size_t p = i + 4;
        while (p < end) {
            const int tcth = jpeg[p];
            const uint8_t* counts = &jpeg[p + 1];
            int n = 0;
            for (int k = 0; k < 16; ++k) n += counts[k];
            const uint8_t* symbols = &jpeg[p + 17];
            const bool ac = tcth >> 4, chroma = tcth & 1;
            const uint8_t* want = ac ? (chroma ? CNJpegCodec::s_uDefAcHuffmanCodeValueUV.data()
                                               : CNJpegCodec::s_uDefAcHuffmanCodeValueY.data())
                                     : (chroma ? CNJpegCodec::s_uDefDcHuffmanCodeValueUV.data()
                                               : CNJpegCodec::s_uDefDcHuffmanCodeValueY.data());
            const uint8_t* wantCounts = ac ? (chroma ? CNJpegCodec::s_uDefAcHuffmanCodeNumUV.data()
                                                     : CNJpegCodec::s_uDefAcHuffmanCodeNumY.data())
                                           : (chroma ? CNJpegCodec::s_uDefDcHuffmanCodeNumUV.data()
                                                     : CNJpegCodec::s_uDefDcHuffmanCodeNumY.data());
            EXPECT_EQ(Bytes(counts, counts + 16), Bytes(wantCounts, wantCounts + 16));
            EXPECT_EQ(Bytes(symbols, symbols + n), Bytes(want, want + n));
            p += 17 + n;
            ++found;
        }
    }
    EXPECT_EQ(found, 4);
}

}  // namespace
}  // namespace ncbtest::jpeg
