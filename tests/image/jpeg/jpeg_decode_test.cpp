// Decoder behaviour beyond pixel agreement: the fast block decoder against
// the plain table walk of the bit reader, consumed-bytes bookkeeping over
// back-to-back images and start offsets, the caller's padding, descriptor
// words of partial MCUs, and hostile input (every truncation point, byte
// flips, absurd frame sizes, broken start offsets) refused or decoded
// without harm.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "image/jpeg/jpeg_entropy.h"
#include "image/jpeg/jpeg_huffman_cache.h"
#include "image/jpeg/jpeg_scan.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/data_stream.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/read_bit_stream.h"
#include "tests/image/jpeg/jpeg_oracle.h"
#include "tests/support/test_paths.h"

namespace ncbtest::jpeg {
namespace {

Bytes TestFile(const char* name) { return ReadFile(TestDataPath(std::string("jpeg/") + name)); }

// The DC and AC table 0 and the entropy data of a one-component baseline file.
struct MonoScan {
    Bytes dcCounts, dcSymbols, acCounts, acSymbols;
    size_t dataStart = 0, dataEnd = 0;
};

bool ParseMono(const Bytes& j, MonoScan* out) {
    size_t i = 2;
    while (i + 4 <= j.size() && j[i] == 0xFF) {
        const int m = j[i + 1];
        const size_t len = (j[i + 2] << 8) | j[i + 3];
        if (m == 0xC4) {
            for (size_t p = i + 4; p < i + 2 + len;) {
                int n = 0;
                for (int k = 0; k < 16; ++k) n += j[p + 1 + k];
                Bytes counts(j.begin() + p + 1, j.begin() + p + 17);
                Bytes symbols(j.begin() + p + 17, j.begin() + p + 17 + n);
                if (j[p] == 0x00) out->dcCounts = counts, out->dcSymbols = symbols;
                if (j[p] == 0x10) out->acCounts = counts, out->acSymbols = symbols;
                p += 17 + n;
            }
        }
        if (m == 0xDA) {
            out->dataStart = i + 2 + len;
            size_t e = out->dataStart;
            while (e + 1 < j.size() && !(j[e] == 0xFF && j[e + 1] != 0)) ++e;
            out->dataEnd = e;
            return true;
        }
        i += 2 + len;
    }
    return false;
}

class JpegBlockDecoder : public ::testing::TestWithParam<const char*> {};

TEST_P(JpegBlockDecoder, FastTablesMatchTheTableWalk) {
    const Bytes jpeg = RunCjpeg(GetParam(), MakePicture(120, 72, true, 5));
    MonoScan scan;
    ASSERT_TRUE(ParseMono(jpeg, &scan));
    CNCodecBuffer* cache = CNCodecBuffer::CreateBuffer();
    const int dcAt =
        CNJpegCodec::DecodeRaiseHuffmanTable(scan.dcCounts.data(), scan.dcSymbols.data(),
                                             static_cast<int>(scan.dcSymbols.size()), 0, cache);
    const int acAt =
        CNJpegCodec::DecodeRaiseHuffmanTable(scan.acCounts.data(), scan.acSymbols.data(),
                                             static_cast<int>(scan.acSymbols.size()), 1, cache);
    ASSERT_GE(dcAt, 0);
    ASSERT_GE(acAt, 0);
    const auto* base = static_cast<const uint8_t*>(cache->GetAddress());
    const auto* dcRec = reinterpret_cast<const CNJpegCodec::HuffmanTableTag*>(base + dcAt);
    const auto* acRec = reinterpret_cast<const CNJpegCodec::HuffmanTableTag*>(base + acAt);

    ncb::jpeg::FastHuffman dc, ac;
    ASSERT_TRUE(ncb::jpeg::BuildFastHuffman(scan.dcCounts.data(), scan.dcSymbols.data(),
                                            static_cast<int>(scan.dcSymbols.size()), false, &dc));
    ASSERT_TRUE(ncb::jpeg::BuildFastHuffman(scan.acCounts.data(), scan.acSymbols.data(),
                                            static_cast<int>(scan.acSymbols.size()), true, &ac));
    const int size = static_cast<int>(scan.dataEnd - scan.dataStart);
    NDataStreamBufferInfoTag chain{const_cast<uint8_t*>(jpeg.data() + scan.dataStart), size};
    unsigned char pad[4] = {0xFF, 0xD8, 0xD8, 0xFF};
    CNReadBitStream reader;
    reader.Init(3, 1, &chain, 1, pad, 4, 8, 8);
    ncb::jpeg::Segment seg{jpeg.data() + scan.dataStart, size};
    ncb::jpeg::BitSource bs;
    bs.Init(&seg, 1);

    const int blocks = 15 * 9;
    short predA = 0;
    int16_t predB = 0;
    for (int b = 0; b < blocks; ++b) {
        short want[64] = {};
        alignas(16) int16_t got[64] = {};
        CNJpegCodec::DecodeOneCoeffMatrixAsm(&reader, want, dcRec, acRec, &predA);
        bool dcOnly = false;
        ASSERT_TRUE(ncb::jpeg::DecodeBlockFast(bs, got, dc, ac, &predB, &dcOnly));
        ASSERT_EQ(std::memcmp(want, got, sizeof got), 0) << "block " << b;
    }
    EXPECT_FALSE(bs.Overrun());
    cache->Release();
}

INSTANTIATE_TEST_SUITE_P(Cjpeg, JpegBlockDecoder,
                         ::testing::Values("-grayscale -quality 75", "-grayscale -quality 98",
                                           "-grayscale -quality 30 -optimize"));

TEST(JpegDecode, BackToBackImagesFromOneBuffer) {
    const Bytes both = TestFile("valid/rose_420_then_gray.jpg");
    const OursResult first = DecodeOurs(both);
    ASSERT_EQ(first.ok, 1);
    EXPECT_EQ(first.format.nCodecSubType, VIDEO_FORMAT_YUV420);
    ASSERT_LT(first.userData + 1, static_cast<int>(both.size()));
    EXPECT_EQ(both[first.userData], 0xFF);
    EXPECT_EQ(both[first.userData + 1], 0xD9);
    const OursResult second = DecodeOurs(both, 0, first.userData);
    ASSERT_EQ(second.ok, 1);
    EXPECT_EQ(second.format.nCodecSubType, VIDEO_FORMAT_Y800);
    const OursResult gray = DecodeOurs(TestFile("valid/rose_gray_q75.jpg"));
    EXPECT_EQ(second.planes.y, gray.planes.y);
    // Nothing decodable after the second image.
    EXPECT_EQ(DecodeOurs(both, 0, second.userData).ok, 0);
}

TEST(JpegDecode, GarbageBeforeStartOfImage) {
    const Bytes plain = TestFile("valid/rose_420_q75.jpg");
    const uint8_t prefix[] = {'G', 'A', 0xFF, 0x00, 0xFF, 0xD9, 0x12};
    Bytes garbage(sizeof prefix + plain.size());
    std::memcpy(garbage.data(), prefix, sizeof prefix);
    std::memcpy(garbage.data() + sizeof prefix, plain.data(), plain.size());
    const OursResult a = DecodeOurs(plain), b = DecodeOurs(garbage, 0, 1);
    ASSERT_EQ(b.ok, 1);
    EXPECT_EQ(a.planes.y, b.planes.y);
    EXPECT_EQ(b.userData, a.userData + static_cast<int>(garbage.size() - plain.size()));
}

TEST(JpegDecode, StartOffsetAtOrPastTheEndFails) {
    const Bytes plain = TestFile("valid/rose_420_q75.jpg");
    const int n = static_cast<int>(plain.size());
    EXPECT_EQ(DecodeOurs(plain, 0, n).ok, 0);
    EXPECT_EQ(DecodeOurs(plain, 0, n + 100).userData, n + 100);
    EXPECT_EQ(DecodeOurs(plain, 0, -5).ok, 0);
    EXPECT_EQ(DecodeOurs(plain, 7).ok, 0) << "kernel selector outside 0..2";
}

TEST(JpegDecode, PaddingShapesThePlanesNotThePixels) {
    for (const char* name : {"valid/rose_420_q75.jpg", "valid/rose_444_q90.jpg",
                             "valid/rose_440_q80.jpg", "valid/rose_gray_prog.jpg"}) {
        const Bytes file = TestFile(name);
        const OursResult plain = DecodeOurs(file);
        const OursResult padded = DecodeOurs(file, 1, 0, {5, 3, 2, 1, 7, 9, 3, 4});
        ASSERT_EQ(padded.ok, 1) << name;
        EXPECT_EQ(padded.format.nPadLeft, 16);
        EXPECT_EQ(padded.format.nPadRight, 16);
        EXPECT_EQ(padded.format.nPadTop, 2);
        EXPECT_EQ(padded.format.nPadBottom, 1);
        const bool full = padded.format.nCodecSubType == VIDEO_FORMAT_YUV444;
        EXPECT_EQ(padded.format.nChromaPadLeft, full ? 16 : 7) << name;
        EXPECT_EQ(padded.format.nChromaPadRight, full ? 16 : 9) << name;
        EXPECT_EQ(padded.planes.y, plain.planes.y) << name;
        EXPECT_EQ(padded.planes.u, plain.planes.u) << name;
        EXPECT_EQ(padded.planes.v, plain.planes.v) << name;
    }
}

TEST(JpegDecode, PartialMcuDescriptor) {
    const OursResult r = DecodeOurs(TestFile("valid/odd17x9_420.jpg"));
    ASSERT_EQ(r.ok, 1);
    EXPECT_EQ(r.format.nWidth, 32);
    EXPECT_EQ(r.format.nHeight, 16);
    EXPECT_EQ(r.format.nRectLeft, 0);
    EXPECT_EQ(r.format.nRectRight, 17);
    EXPECT_EQ(r.format.nRectTop, 0);
    EXPECT_EQ(r.format.nRectBottom, 9);
    EXPECT_EQ(r.format.nStructSize, 104);
}

// Every cut of a baseline and a progressive file, and random byte changes:
// refused or decoded, never a crash, an overrun or a leak (ASan watches).
TEST(JpegHostile, EveryTruncationPoint) {
    for (const char* name : {"valid/odd17x9_444_rst1b.jpg", "valid/odd17x9_422_prog.jpg"}) {
        const Bytes file = TestFile(name);
        // Every point inside the headers, then a spread over the data.
        for (size_t cut = 0; cut < file.size(); cut += cut < 700 ? 1 : 7) {
            Bytes part(file.begin(), file.begin() + static_cast<ptrdiff_t>(cut));
            const OursResult r = DecodeOurs(part);
            if (cut + 2 < file.size()) {
                EXPECT_EQ(r.ok, 0) << name << " cut at " << cut;
            }
        }
    }
}

TEST(JpegHostile, RandomByteChanges) {
    std::mt19937 rng(20261123);
    for (const char* name :
         {"valid/rose_420_q75.jpg", "valid/rose_422_prog.jpg", "valid/rose_440_rst2b.jpg"}) {
        const Bytes file = TestFile(name);
        for (int round = 0; round < 80; ++round) {
            Bytes bad = file;
            const int changes = 1 + static_cast<int>(rng() % 4);
            for (int k = 0; k < changes; ++k) bad[rng() % bad.size()] = static_cast<uint8_t>(rng());
            DecodeOurs(bad);
        }
    }
}

TEST(JpegHostile, AbsurdFrameSizesAreRefusedCheaply) {
    const Bytes file = TestFile("valid/rose_420_q75.jpg");
    size_t sof = 0;
    for (size_t i = 0; i + 1 < file.size(); ++i)
        if (file[i] == 0xFF && file[i + 1] == 0xC0) {
            sof = i;
            break;
        }
    ASSERT_GT(sof, 0u);
    for (auto [w, h] : {std::pair{65535, 65535}, {65535, 1}, {1, 65535}, {16000, 16000}}) {
        Bytes bad = file;
        bad[sof + 5] = static_cast<uint8_t>(h >> 8);
        bad[sof + 6] = static_cast<uint8_t>(h);
        bad[sof + 7] = static_cast<uint8_t>(w >> 8);
        bad[sof + 8] = static_cast<uint8_t>(w);
        EXPECT_EQ(DecodeOurs(bad).ok, 0) << w << "x" << h;
    }
}

}  // namespace
}  // namespace ncbtest::jpeg
