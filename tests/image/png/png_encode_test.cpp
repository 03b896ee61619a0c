// The PNG encoder: the exact bytes of the minimal file, libpng reading our
// files bit for bit (with its CRC checks on), round trips of random pictures
// of odd sizes through both decoders, the input layout (padding, bottom-up
// rows, ignored rectangle), the fixed output room and soft failures.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"
#include "platform/kernel/fault.h"
#include "tests/image/png/png_oracle.h"

namespace ncbtest::png {
namespace {

// An RGB32 picture in a buffer laid out as its descriptor says.
struct Input {
    CNCodecBase::VideoFormatInfoTag format{};
    std::vector<uint8_t> memory;
    CNCodecBuffer* buffer = nullptr;

    Input(int width, int height, int padLeft = 0, int padRight = 0, int padTop = 0,
          bool bottomUp = false) {
        format.nStructSize = 104;
        format.nCodecType = VIDEO_TYPE_RGB;
        format.nCodecSubType = VIDEO_FORMAT_RGB32;
        format.nFormatFlags = bottomUp ? FORMAT_FLAG_SWAPPED : 0;
        format.nWidth = format.nRectRight = width;
        format.nHeight = format.nRectBottom = height;
        format.nPadLeft = padLeft;
        format.nPadRight = padRight;
        format.nPadTop = padTop;
        memory.assign(static_cast<size_t>(Pitch()) * (padTop + height), 0xCD);
        buffer = CNCodecBuffer::CreateWrapBuffer(memory.data(), int(memory.size()),
                                                 int(memory.size()), nullptr);
    }
    ~Input() { buffer->Release(); }
    int Pitch() const { return format.nPadLeft + 4 * format.nWidth + format.nPadRight; }
    // Pixel (x, y) of the picture as the viewer sees it.
    uint8_t* At(int x, int y) {
        const int row = format.nFormatFlags & FORMAT_FLAG_SWAPPED ? format.nHeight - 1 - y : y;
        return memory.data() + static_cast<size_t>(format.nPadTop + row) * Pitch() +
               format.nPadLeft + 4 * x;
    }
    void Fill(std::mt19937& random, bool opaque) {
        for (int y = 0; y < format.nHeight; ++y)
            for (int x = 0; x < format.nWidth; ++x)
                for (int c = 0; c < 4; ++c)
                    At(x, y)[c] = c == 3 && opaque ? 255 : static_cast<uint8_t>(random());
    }
    Picture Expected(bool alpha) {
        Picture p{format.nWidth, format.nHeight, {}};
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) {
                const uint8_t* px = At(x, y);
                p.bgra.insert(p.bgra.end(), {px[0], px[1], px[2], alpha ? px[3] : uint8_t(255)});
            }
        return p;
    }
};

int Encode(Input& in, unsigned flags, Bytes* file, CNCodecBase::VideoFormatInfoTag* out = nullptr) {
    CNCodecBase::VideoFormatInfoTag local;
    CNCodecBuffer* output = CNCodecBuffer::CreateBuffer();
    const int result = CNPngCodec::Encode(&in.format, out ? out : &local, in.buffer, output, flags);
    const auto* data = static_cast<const uint8_t*>(output->GetAddress());
    file->assign(data, data + output->GetDataSize());
    output->Release();
    return result;
}

Bytes Inflate(const uint8_t* data, size_t size, size_t expected) {
    Bytes out(expected + 16);
    uLongf length = out.size();
    EXPECT_EQ(uncompress(out.data(), &length, data, size), Z_OK);
    out.resize(length);
    return out;
}

TEST(PngEncode, OnePixelWithoutAlphaIsTheMinimalFile) {
    Input in(1, 1);
    const uint32_t pixel = 0xFF102030;
    std::memcpy(in.At(0, 0), &pixel, 4);
    Bytes file;
    ASSERT_EQ(Encode(in, 0, &file), 1);
    ASSERT_GE(file.size(), 57u);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 8), Signature());
    const Bytes ihdr = {0, 0, 0, 13, 'I', 'H', 'D', 'R', 0, 0, 0, 1, 0, 0, 0, 1, 8, 2, 0, 0, 0};
    EXPECT_EQ(Bytes(file.begin() + 8, file.begin() + 29), ihdr);
    const uint32_t idatLength =
        uint32_t{file[33]} << 24 | file[34] << 16 | file[35] << 8 | file[36];
    EXPECT_EQ(file.size(), 8 + 25 + (12 + idatLength) + 12);
    EXPECT_EQ(0, std::memcmp(&file[37], "IDAT", 4));
    EXPECT_EQ(Inflate(&file[41], idatLength, 4), (Bytes{0, 0x10, 0x20, 0x30}));
    const Bytes iend = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    EXPECT_EQ(Bytes(file.end() - 12, file.end()), iend);
}

TEST(PngEncode, AlphaFlagWritesColourTypeSix) {
    Input in(1, 1);
    const uint32_t pixel = 0xFF102030;
    std::memcpy(in.At(0, 0), &pixel, 4);
    Bytes file;
    ASSERT_EQ(Encode(in, CNPngCodec::ENCODE_FLAG_ALPHA | 0xF0, &file), 1);
    EXPECT_EQ(file[25], 6);
    const uint32_t idatLength =
        uint32_t{file[33]} << 24 | file[34] << 16 | file[35] << 8 | file[36];
    EXPECT_EQ(Inflate(&file[41], idatLength, 5), (Bytes{0, 0x10, 0x20, 0x30, 0xFF}));
}

TEST(PngEncode, FillsTheOutputDescriptor) {
    Input in(7, 3, 4, 8, 2);
    in.format.nRectLeft = 1;  // the rectangle is not honoured
    in.format.nChromaPadLeft = 9;
    CNCodecBase::VideoFormatInfoTag out;
    std::memset(&out, 0x5A, sizeof out);
    Bytes file;
    ASSERT_EQ(Encode(in, 0, &file, &out), 1);
    const int32_t want[26] = {104,
                              VIDEO_TYPE_PNG,
                              VIDEO_FORMAT_PNG,
                              0,
                              0,
                              0,
                              7,
                              3,
                              0,
                              7,
                              0,
                              3,
                              7,
                              3,
                              0,
                              0,
                              7,
                              3,
                              0,
                              0,
                              0,
                              0,
                              0,
                              0,
                              0,
                              0};
    EXPECT_EQ(0, std::memcmp(&out, want, sizeof want));
}

struct RoundTrip {
    int width, height, padLeft, padRight, padTop;
    bool bottomUp, alpha;
};

class PngEncodeRoundTrip : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(PngEncodeRoundTrip, LibpngAndOurDecoderReadItBitExactly) {
    const RoundTrip& c = GetParam();
    std::mt19937 random(c.width * 977 + c.height);
    Input in(c.width, c.height, c.padLeft, c.padRight, c.padTop, c.bottomUp);
    in.Fill(random, false);
    Bytes file;
    ASSERT_EQ(Encode(in, c.alpha ? 1 : 0, &file), 1);
    const Picture want = in.Expected(c.alpha);

    Picture theirs, ours;
    std::string error;
    ASSERT_TRUE(LibpngDecodeStrict(file, &theirs, &error)) << error;
    EXPECT_TRUE(theirs == want);
    ASSERT_EQ(OurDecode(file, &ours), 1);
    EXPECT_TRUE(ours == want);
}

INSTANTIATE_TEST_SUITE_P(Pictures, PngEncodeRoundTrip,
                         ::testing::Values(RoundTrip{1, 1, 0, 0, 0, false, false},
                                           RoundTrip{1, 1, 0, 0, 0, false, true},
                                           RoundTrip{3, 5, 0, 0, 0, false, true},
                                           RoundTrip{17, 1, 0, 0, 0, true, false},
                                           RoundTrip{1, 29, 4, 0, 0, false, true},
                                           RoundTrip{31, 7, 0, 12, 3, false, false},
                                           RoundTrip{33, 33, 8, 4, 1, true, true},
                                           RoundTrip{257, 3, 0, 0, 0, false, true},
                                           RoundTrip{101, 67, 16, 16, 2, true, false},
                                           RoundTrip{640, 9, 0, 0, 0, false, true}),
                         [](const auto& info) {
                             const RoundTrip& c = info.param;
                             return std::to_string(c.width) + "x" + std::to_string(c.height) +
                                    (c.padLeft || c.padRight || c.padTop ? "_padded" : "") +
                                    (c.bottomUp ? "_bottomup" : "") + (c.alpha ? "_rgba" : "_rgb");
                         });

TEST(PngEncode, RandomPicturesOfOddSizesRoundTrip) {
    std::mt19937 random(::testing::UnitTest::GetInstance()->random_seed());
    for (int i = 0; i < 40; ++i) {
        const int width = 1 + 2 * (random() % 60), height = 1 + 2 * (random() % 40);
        const bool alpha = random() % 2, bottomUp = random() % 2;
        Input in(width, height, 4 * (random() % 3), random() % 9, random() % 3, bottomUp);
        in.Fill(random, random() % 4 == 0);
        Bytes file;
        ASSERT_EQ(Encode(in, alpha, &file), 1);
        Picture ours, theirs;
        std::string error;
        ASSERT_EQ(OurDecode(file, &ours), 1);
        ASSERT_TRUE(LibpngDecodeStrict(file, &theirs, &error)) << error;
        const Picture want = in.Expected(alpha);
        ASSERT_TRUE(ours == want) << width << "x" << height;
        ASSERT_TRUE(theirs == want) << width << "x" << height;
    }
}

// Noise does not compress; past a few megabytes zlib's overhead outgrows the
// fixed 1024 spare bytes and the encode fails, leaving the signature and IHDR
// in the output and its data size as Allocate left it.
TEST(PngEncode, LargeNoiseOverflowsTheFixedRoom) {
    std::mt19937 random(3);
    Input in(2048, 1024);
    in.Fill(random, false);
    CNCodecBase::VideoFormatInfoTag out;
    CNCodecBuffer* output = CNCodecBuffer::CreateBuffer();
    EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, in.buffer, output, 1), 0);
    EXPECT_EQ(output->GetDataSize(), 0);
    ASSERT_GE(output->GetBufferSize(), 2048 * 1024 * 4 + 1024);
    const auto* data = static_cast<const uint8_t*>(output->GetAddress());
    EXPECT_EQ(Bytes(data, data + 8), Signature());
    EXPECT_EQ(0, std::memcmp(data + 12, "IHDR", 4));
    EXPECT_EQ(out.nCodecType, VIDEO_TYPE_PNG);
    output->Release();

    // Small noise still fits: its overhead is far below 1024 bytes.
    Input small(128, 128);
    small.Fill(random, false);
    Bytes file;
    EXPECT_EQ(Encode(small, 1, &file), 1);
}

TEST(PngEncode, RefusesWhatItCannotWrite) {
    Input in(4, 4);
    CNCodecBase::VideoFormatInfoTag out{};
    CNCodecBuffer* owned = CNCodecBuffer::CreateBuffer();
    uint8_t room[4096];
    CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(room, sizeof room, 0, nullptr);

    EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, in.buffer, wrap, 0), 0);  // cannot allocate
    EXPECT_EQ(out.nCodecSubType, VIDEO_FORMAT_PNG) << "descriptor filled before allocating";
    EXPECT_EQ(CNPngCodec::Encode(nullptr, &out, in.buffer, owned, 0), 0);
    EXPECT_EQ(CNPngCodec::Encode(&in.format, nullptr, in.buffer, owned, 0), 0);
    EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, nullptr, owned, 0), 0);
    EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, in.buffer, nullptr, 0), 0);

    // The input buffer must hold every row the descriptor describes.
    CNCodecBase::VideoFormatInfoTag tooTall = in.format;
    tooTall.nHeight = 5;
    EXPECT_EQ(CNPngCodec::Encode(&tooTall, &out, in.buffer, owned, 0), 0);
    CNCodecBase::VideoFormatInfoTag empty = in.format;
    empty.nWidth = 0;
    EXPECT_EQ(CNPngCodec::Encode(&empty, &out, in.buffer, owned, 0), 0);
    CNCodecBase::VideoFormatInfoTag negative = in.format;
    negative.nPadLeft = -4;
    EXPECT_EQ(CNPngCodec::Encode(&negative, &out, in.buffer, owned, 0), 0);
    EXPECT_EQ(owned->GetDataSize(), 0);
    wrap->Release();
    owned->Release();
}

TEST(PngEncode, AllocationFailuresAreSoft) {
    Input in(9, 9);
    CNCodecBase::VideoFormatInfoTag out{};
    CNCodecBuffer* output = CNCodecBuffer::CreateBuffer();
    for (int skip = 0; skip < 2; ++skip) {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
        EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, in.buffer, output, 0), 0) << skip;
    }
    EXPECT_EQ(output->GetDataSize(), 0);
    EXPECT_EQ(CNPngCodec::Encode(&in.format, &out, in.buffer, output, 0), 1);
    EXPECT_GT(output->GetDataSize(), 57);
    output->Release();
}

}  // namespace
}  // namespace ncbtest::png
