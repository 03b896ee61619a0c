// Hostile input for the PNG decoder: every suite file cut at every byte,
// headers promising pictures larger than the decoder will hold, streams that
// inflate to far more or less than the header promises, and the explicit
// memory limits. Whatever the input, the decoder must give the documented
// result without reading outside the input (every file is decoded from a
// block of exactly its size, so AddressSanitizer sees any overread).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "image/png/png_decoder.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"
#include "platform/kernel/fault.h"
#include "tests/image/png/png_oracle.h"
#include "tests/support/test_paths.h"

namespace ncbtest::png {
namespace {

uint32_t Be32At(const Bytes& b, size_t at) {
    return uint32_t{b[at]} << 24 | uint32_t{b[at + 1]} << 16 | uint32_t{b[at + 2]} << 8 | b[at + 3];
}

// Where the last IDAT chunk of a well-formed file ends (CRC included).
size_t EndOfImageData(const Bytes& file) {
    size_t at = 8, end = 0;
    while (at + 12 <= file.size()) {
        const size_t length = Be32At(file, at);
        if (std::memcmp(&file[at + 4], "IDAT", 4) == 0) end = at + 12 + length;
        at += 12 + length;
    }
    return end;
}

std::vector<std::string> SuiteFiles() {
    std::vector<std::string> files;
    for (const char* name :
         {"basn0g01", "basn0g02", "basn0g04", "basn0g08", "basn0g16", "basn2c08", "basn2c16",
          "basn3p01", "basn3p02", "basn3p04", "basn3p08", "basn4a08", "basn4a16", "basn6a08",
          "basn6a16", "basi0g01", "basi0g16", "basi2c16", "basi3p04", "basi4a08", "basi6a16",
          "f00n2c08", "f01n2c08", "f02n2c08", "f03n2c08", "f04n2c08", "f99n0g04", "g03n3p04",
          "oi1n2c16", "oi2n2c16", "oi4n0g16", "oi9n2c16", "s01i3p01", "s07i3p02", "s39i3p04",
          "tbbn2c16", "tbrn2c08", "tbwn0g16", "tm3n3p02", "tp1n3p08", "ctzn0g04", "cten0g04",
          "z00n2c08", "z09n2c08", "xhdn0g08", "xcsn0g01"}) {
        files.push_back(name);
    }
    return files;
}

class PngTruncation : public ::testing::TestWithParam<std::string> {};

// A cut that keeps every IDAT chunk whole decodes exactly as the whole file
// (later chunks, IEND included, are not needed); any earlier cut loses image
// data or the header and is refused.
TEST_P(PngTruncation, EveryCutDecodesWholeOrIsRefused) {
    const Bytes file = ReadFile(TestDataPath("png/" + GetParam() + ".png"));
    ASSERT_FALSE(file.empty());
    Picture whole;
    ASSERT_EQ(OurDecode(file, &whole), 1);
    const size_t dataEnd = EndOfImageData(file);
    ASSERT_GT(dataEnd, 0u);
    for (size_t cut = 0; cut < file.size(); ++cut) {
        Picture part;
        const int result = OurDecode(Bytes(file.begin(), file.begin() + cut), &part);
        if (cut >= dataEnd) {
            ASSERT_EQ(result, 1) << "cut at " << cut << " of " << file.size();
            ASSERT_TRUE(part == whole) << "cut at " << cut;
        } else {
            ASSERT_EQ(result, 0) << "cut at " << cut << ", image data ends at " << dataEnd;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Suite, PngTruncation, ::testing::ValuesIn(SuiteFiles()),
                         [](const auto& info) { return info.param; });

// A stated chunk length that runs past the end of the file ends the walk
// there: the chunk and everything behind it are not read.
TEST(PngHostile, OverlongChunkEndsTheFile) {
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(2, 1, 8, 0));
    AppendChunk(&file, "IDAT", Deflate({0, 9, 8}));
    const size_t gamma = file.size();
    AppendChunk(&file, "gAMA", {0, 1, 0x86, 0xA0});
    AppendChunk(&file, "IEND", {});
    for (uint32_t length : {17u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Bytes bad = file;
        bad[gamma] = uint8_t(length >> 24);
        bad[gamma + 1] = uint8_t(length >> 16);
        bad[gamma + 2] = uint8_t(length >> 8);
        bad[gamma + 3] = uint8_t(length);
        Picture p;
        ASSERT_EQ(OurDecode(bad, &p), 1) << length;
        EXPECT_EQ(p.bgra[0], 9) << "gAMA after a bad length must not apply";
    }
}

// ---- headers that promise too much ------------------------------------------

struct HugeCase {
    uint32_t width, height;
    int depth, colourType, interlace;
};

class PngHugeHeader : public ::testing::TestWithParam<HugeCase> {};

// The output frame or the inflated image would not fit a CNCodecBuffer: the
// decode is refused before a single allocation.
TEST_P(PngHugeHeader, IsRefusedBeforeAllocating) {
    const HugeCase& c = GetParam();
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(c.width, c.height, c.depth, c.colourType, c.interlace));
    AppendChunk(&file, "PLTE", {0, 0, 0});
    AppendChunk(&file, "IDAT", Deflate(Bytes(64, 0)));
    CNCodecBuffer* input =
        CNCodecBuffer::CreateWrapBuffer(file.data(), int(file.size()), int(file.size()), nullptr);
    CNCodecBase::VideoFormatInfoTag f{};
    CNCodecBuffer* output = nullptr;
    nplat::fault::Arm(nplat::fault::Kind::kHeap, 0, 1);
    EXPECT_EQ(CNPngCodec::Decode(nullptr, &f, input, &output), 0);
    EXPECT_TRUE(nplat::fault::ShouldFail(nplat::fault::Kind::kHeap)) << "the decode allocated";
    nplat::fault::Disarm();
    EXPECT_EQ(output, nullptr);
    input->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, PngHugeHeader,
    ::testing::Values(HugeCase{65536, 65536, 16, 6, 0}, HugeCase{65536, 65536, 1, 0, 0},
                      HugeCase{65536, 65536, 8, 3, 1}, HugeCase{65536, 8193, 8, 2, 0},
                      HugeCase{23171, 23171, 8, 6, 0}, HugeCase{65536, 4100, 16, 6, 0}),
    [](const auto& info) {
        const HugeCase& c = info.param;
        return std::to_string(c.width) + "x" + std::to_string(c.height) + "_type" +
               std::to_string(c.colourType) + "_depth" + std::to_string(c.depth) +
               (c.interlace ? "_adam7" : "");
    });

TEST(PngHostile, WidestRowDecodesFromShortData) {
    // 65536 x 1 at 16-bit RGBA: half a megabyte promised, a few bytes given.
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(65536, 1, 16, 6));
    AppendChunk(&file, "IDAT", Deflate(Bytes(100, 0)));
    Picture p;
    EXPECT_EQ(OurDecode(file, &p), 1);  // short data: the rest reads as zeros
    EXPECT_EQ(p.width, 65536);
    EXPECT_EQ(p.bgra[4 * 65535 + 3], 0);
}

// ---- streams that inflate to more or less than promised ---------------------

TEST(PngHostile, BombIsCutAtWhatTheHeaderPromises) {
    // 64 MiB of zeros behind a 16 x 16 grey header: refused, and only the
    // 16 x 17 bytes the header promises are ever inflated.
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(16, 16, 8, 0));
    AppendChunk(&file, "IDAT", Deflate(Bytes(64 << 20, 0), 9));
    AppendChunk(&file, "IEND", {});
    ASSERT_LT(file.size(), 100u * 1024);
    ncb::png::DecodeLimits limits;
    limits.maxInflatedBytes = 16 * 17;
    limits.maxOutputBytes = 16 * 16 * 4;
    CNCodecBase::VideoFormatInfoTag f{};
    CNCodecBuffer* output = nullptr;
    EXPECT_EQ(ncb::png::DecodeFile(file.data(), file.size(), &f, &output, limits), 0);
    EXPECT_EQ(output, nullptr);
}

TEST(PngHostile, HonestlyCompressedLargePictureDecodes) {
    // A thousandfold compression ratio is not an attack when the header says
    // so: 1024 x 1024 RGBA of zeros from about 4 KiB.
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(1024, 1024, 8, 6));
    AppendChunk(&file, "IDAT", Deflate(Bytes(1024 * 4097, 0), 9));
    AppendChunk(&file, "IEND", {});
    ASSERT_LT(file.size(), 8u * 1024);
    Picture p;
    ASSERT_EQ(OurDecode(file, &p), 1);
    EXPECT_EQ(p.bgra, Bytes(1024 * 1024 * 4, 0));
}

TEST(PngHostile, ShortStreamLeavesTheMissingRowsZero) {
    // 3 x 4 RGB with data for two rows only: zlib reports success with short
    // output and the missing rows read as unfiltered zeros.
    Bytes raw;
    for (int y = 0; y < 2; ++y) raw.insert(raw.end(), {0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(3, 4, 8, 2));
    AppendChunk(&file, "IDAT", Deflate(raw));
    AppendChunk(&file, "IEND", {});
    Picture p;
    ASSERT_EQ(OurDecode(file, &p), 1);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 3; ++x) {
            const uint8_t* px = &p.bgra[(y * 3 + x) * 4];
            const uint8_t want[4] = {uint8_t(y < 2 ? 3 * x + 3 : 0), uint8_t(y < 2 ? 3 * x + 2 : 0),
                                     uint8_t(y < 2 ? 3 * x + 1 : 0), 255};
            EXPECT_EQ(0, std::memcmp(px, want, 4)) << x << "," << y;
        }
    }
}

TEST(PngHostile, ExtraDataAfterTheStreamIsIgnored) {
    Bytes stream = Deflate({0, 42});
    stream.insert(stream.end(), {1, 2, 3, 4, 5});
    Bytes file = Signature();
    AppendChunk(&file, "IHDR", IhdrData(1, 1, 8, 0));
    AppendChunk(&file, "IDAT", stream);
    Picture p;
    ASSERT_EQ(OurDecode(file, &p), 1);
    EXPECT_EQ(p.bgra[0], 42);
}

// ---- explicit limits ----------------------------------------------------------

TEST(PngHostile, LimitsRefuseAtTheByte) {
    // 100 x 10 RGBA, not interlaced: 10 x 401 bytes inflated, 4000 output.
    RawImage image;
    image.width = 100;
    image.height = 10;
    image.colourType = 6;
    image.samples.assign(4000, 7);
    const Bytes file = LibpngWrite(image);
    const struct {
        int64_t inflated, output;
        int result;
    } cases[] = {{4010, 4000, 1}, {4009, 4000, 0}, {4010, 3999, 0}};
    for (const auto& c : cases) {
        ncb::png::DecodeLimits limits{c.inflated, c.output};
        CNCodecBase::VideoFormatInfoTag f{};
        CNCodecBuffer* output = nullptr;
        EXPECT_EQ(ncb::png::DecodeFile(file.data(), file.size(), &f, &output, limits), c.result)
            << c.inflated << " / " << c.output;
        if (output) output->Release();
    }
}

}  // namespace
}  // namespace ncbtest::png
