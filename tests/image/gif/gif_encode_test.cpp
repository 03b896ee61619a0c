// The animated GIF encoder: its files read back by giflib's giftext and
// gif2rgb and by ImageMagick (frame count, delays, local palettes, pixels
// exactly the quantised picture), and by our own decoder; the byte layout
// the encoder promises (palette sizes and LZW code sizes by colour count,
// disposal and delay fields); the 1 MiB cap; refused arguments and memory.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/gif_codec.h"
#include "ncodecbase/video_processor.h"
#include "platform/kernel/fault.h"
#include "tests/image/gif/gif_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::gif {
namespace {

struct Picture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;  // 0xAARRGGBB
    CNCodecBase::VideoFormatInfoTag Format() const {
        CNCodecBase::VideoFormatInfoTag f{};
        f.nStructSize = sizeof f;
        f.nCodecType = VIDEO_TYPE_RGB;
        f.nCodecSubType = VIDEO_FORMAT_RGB32;
        f.nWidth = f.nRectRight = f.nPictureWidth = f.nDisplayWidth = width;
        f.nHeight = f.nRectBottom = f.nPictureHeight = f.nDisplayHeight = height;
        return f;
    }
};

enum class Kind { kGradient, kNoise, kFewColours, kShapes };

Picture Make(Kind kind, int w, int h, uint32_t seed) {
    Picture p;
    p.width = w;
    p.height = h;
    p.pixels.resize(static_cast<size_t>(w) * h);
    std::mt19937 rng(seed);
    const uint32_t few[5] = {0xFF0000, 0x00FF00, 0x0000FF, 0xFFFFFF, 0x808000};
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint32_t c = 0;
            switch (kind) {
                case Kind::kGradient:
                    c = uint32_t(x * 255 / w) << 16 | uint32_t(y * 255 / h) << 8 |
                        ((x + y + seed * 17) & 255);
                    break;
                case Kind::kNoise:
                    c = rng() & 0xFFFFFF;
                    break;
                case Kind::kFewColours:
                    c = few[(x / 3 + y / 2 + seed) % 5];
                    break;
                case Kind::kShapes: {
                    const int dx = x - w / 2 - static_cast<int>(seed), dy = y - h / 2;
                    c = dx * dx + dy * dy < w * h / 8 ? 0xE03020
                        : (x / 8 + y / 8) % 2         ? 0x2040A0
                                                      : 0xF0F0F0;
                    break;
                }
            }
            p.pixels[static_cast<size_t>(y) * w + x] = 0xFF000000u | c;
        }
    }
    return p;
}

// What the encoder stores for a picture: the quantiser's palette colours.
std::vector<uint32_t> Quantised(const Picture& p) {
    std::vector<uint8_t> indices(p.pixels.size());
    uint8_t palette[1024];
    int colours = 0;
    EXPECT_EQ(1, CNVideoProcessor::ColorQuantToIndex256(
                     p.width, p.height,
                     reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(p.pixels.data())),
                     indices.data(), p.width * 4, p.width, palette, &colours, 0));
    std::vector<uint32_t> out(p.pixels.size());
    for (size_t i = 0; i < out.size(); ++i) {
        const uint8_t* e = palette + 4 * indices[i];
        out[i] = uint32_t{e[2]} << 16 | uint32_t{e[1]} << 8 | e[0];
    }
    return out;
}

Bytes Encode(const std::vector<Picture>& frames, const std::vector<int>& durations,
             bool interlaced = false) {
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag in = frames[0].Format(), out{};
    EXPECT_EQ(codec.PrepareEncode(&in, &out), 1);
    for (size_t i = 0; i < frames.size(); ++i) {
        CNCodecBuffer* picture =
            CNCodecBuffer::CreateWrapBuffer(const_cast<uint32_t*>(frames[i].pixels.data()),
                                            static_cast<int>(frames[i].pixels.size() * 4),
                                            static_cast<int>(frames[i].pixels.size() * 4), nullptr);
        EXPECT_EQ(codec.AddFrame(picture, durations[i], interlaced ? 1 : 0, 0), 1);
        picture->Release();
    }
    EXPECT_EQ(codec.GetFrameCount(), static_cast<int>(frames.size()));
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    Bytes bytes;
    if (codec.Encode(file) == 1) {
        const auto* b = static_cast<const uint8_t*>(file->GetAddress());
        bytes.assign(b, b + file->GetDataSize());
    }
    file->Release();
    return bytes;
}

std::vector<Picture> Animation(int w, int h) {
    return {Make(Kind::kGradient, w, h, 1), Make(Kind::kShapes, w, h, 3),
            Make(Kind::kFewColours, w, h, 2), Make(Kind::kNoise, w, h, 4),
            Make(Kind::kShapes, w, h, 9)};
}

const std::vector<int> kDurations = {100, 70, 1000, 10, 250};

void ExpectColours(const std::vector<uint32_t>& ours, const std::vector<uint32_t>& want,
                   const std::string& what) {
    ASSERT_EQ(ours.size(), want.size()) << what;
    int wrong = 0;
    for (size_t i = 0; i < ours.size(); ++i) wrong += (ours[i] & 0xFFFFFF) != (want[i] & 0xFFFFFF);
    EXPECT_EQ(wrong, 0) << what;
}

class GifEncodeRoundTrip : public testing::TestWithParam<bool> {};

TEST_P(GifEncodeRoundTrip, OurDecoderSeesTheQuantisedFrames) {
    const std::vector<Picture> frames = Animation(61, 37);
    const Bytes file = Encode(frames, kDurations, GetParam());
    ASSERT_FALSE(file.empty());
    const Decoded d = DecodeAll(file);
    ASSERT_EQ(d.frameCount, 5);
    ASSERT_EQ(d.frames.size(), 5u);
    uint32_t start = 0;
    for (size_t k = 0; k < frames.size(); ++k) {
        EXPECT_EQ(d.frames[k].duration, kDurations[k]);
        EXPECT_EQ(d.frames[k].timeStamp, start);
        EXPECT_EQ(d.frames[k].flag, 0);
        start += static_cast<uint32_t>(kDurations[k]);
        ExpectColours(d.frames[k].pixels, Quantised(frames[k]), "frame " + std::to_string(k));
    }
}

TEST_P(GifEncodeRoundTrip, ImageMagickSeesTheQuantisedFrames) {
    if (!HaveTool("convert-im6.q16")) GTEST_SKIP() << "ImageMagick not installed";
    const std::vector<Picture> frames = Animation(61, 37);
    const std::string path = ScratchDir() + "/anim.gif";
    ASSERT_TRUE(WriteFile(path, Encode(frames, kDurations, GetParam())));
    std::vector<Bytes> im;
    ASSERT_TRUE(ImageMagickFrames(path, 61, 37, &im));
    ASSERT_EQ(im.size(), frames.size());
    for (size_t k = 0; k < frames.size(); ++k) {
        std::vector<uint32_t> colours(im[k].size() / 4);
        for (size_t i = 0; i < colours.size(); ++i)
            colours[i] =
                uint32_t{im[k][4 * i]} << 16 | uint32_t{im[k][4 * i + 1]} << 8 | im[k][4 * i + 2];
        ExpectColours(colours, Quantised(frames[k]), "ImageMagick frame " + std::to_string(k));
    }
    Bytes delays;
    ASSERT_TRUE(RunCommand("identify-im6.q16 -format '%T %D|' '" + path + "'", &delays));
    EXPECT_EQ(Text(delays), "10 None|7 None|100 None|1 None|25 None|");
}

INSTANTIATE_TEST_SUITE_P(Interlace, GifEncodeRoundTrip, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& i) {
                             return i.param ? "interlaced" : "progressive";
                         });

// giftext lists the structure, gif2rgb paints a single picture.
TEST(GifEncodeGiflib, StructureAndPixels) {
    if (!HaveTool("giftext") || !HaveTool("gif2rgb")) GTEST_SKIP() << "giflib-tools not installed";
    const std::string dir = ScratchDir();
    const std::vector<Picture> frames = Animation(40, 30);
    ASSERT_TRUE(WriteFile(dir + "/anim.gif", Encode(frames, kDurations)));
    Bytes text;
    ASSERT_TRUE(RunCommand("giftext '" + dir + "/anim.gif'", &text));
    const std::string t = Text(text);
    size_t images = 0, localMaps = 0;
    for (size_t at = 0; (at = t.find("Image #", at)) != std::string::npos; ++at) ++images;
    for (size_t at = 0; (at = t.find("Image Has Color Map", at)) != std::string::npos; ++at)
        ++localMaps;
    EXPECT_EQ(images, 5u);
    EXPECT_EQ(localMaps, 5u);
    EXPECT_NE(t.find("No Global Color Map"), std::string::npos);
    EXPECT_NE(t.find("DelayTime: 7"), std::string::npos);
    EXPECT_NE(t.find("DelayTime: 100"), std::string::npos);
    EXPECT_NE(t.find("Disposal Mode: 1"), std::string::npos);
    EXPECT_NE(t.find("GIF file terminated normally"), std::string::npos);

    // Noise forces table resets; gif2rgb must see the same picture.
    for (int k : {0, 3}) {
        const std::string one = dir + "/one.gif", rgb = dir + "/one.rgb";
        ASSERT_TRUE(WriteFile(one, Encode({frames[static_cast<size_t>(k)]}, {50})));
        ASSERT_TRUE(RunCommand("gif2rgb -1 -o '" + rgb + "' '" + one + "'"));
        const Bytes raw = ReadFile(rgb);
        ASSERT_EQ(raw.size(), 40u * 30u * 3u);
        std::vector<uint32_t> colours(40 * 30);
        for (size_t i = 0; i < colours.size(); ++i)
            colours[i] =
                uint32_t{raw[3 * i]} << 16 | uint32_t{raw[3 * i + 1]} << 8 | raw[3 * i + 2];
        ExpectColours(colours, Quantised(frames[static_cast<size_t>(k)]), "gif2rgb");
    }
}

// Large noisy frames run the string table full many times; every decoder
// must agree on where the clears and the end code lie.
TEST(GifEncode, FullStringTablesDecodeEverywhere) {
    const Picture noise = Make(Kind::kNoise, 150, 120, 7);
    const Bytes file = Encode({noise}, {40});
    ASSERT_FALSE(file.empty());
    const Decoded d = DecodeAll(file);
    ASSERT_EQ(d.frames.size(), 1u);
    EXPECT_EQ(d.frames[0].flag, 0);
    ExpectColours(d.frames[0].pixels, Quantised(noise), "ours");
    if (!HaveTool("convert-im6.q16")) return;
    const std::string path = ScratchDir() + "/noise.gif";
    ASSERT_TRUE(WriteFile(path, file));
    std::vector<Bytes> im;
    ASSERT_TRUE(ImageMagickFrames(path, 150, 120, &im));
    ASSERT_EQ(im.size(), 1u);
    std::vector<uint32_t> colours(150 * 120);
    for (size_t i = 0; i < colours.size(); ++i)
        colours[i] =
            uint32_t{im[0][4 * i]} << 16 | uint32_t{im[0][4 * i + 1]} << 8 | im[0][4 * i + 2];
    EXPECT_EQ(colours, d.frames[0].pixels);
}

// More frames than the record tables start with, and more data sub-blocks
// in all than fit the first sub-block table: both tables grow and keep
// what they held.
TEST(GifEncode, LongAnimationsKeepEveryFrame) {
    std::vector<Picture> frames;
    std::vector<int> durations;
    for (int k = 0; k < 21; ++k) {
        frames.push_back(
            Make(k % 3 ? Kind::kNoise : Kind::kShapes, 128, 128, static_cast<uint32_t>(k)));
        durations.push_back(10 * (k + 1));
    }
    const Bytes file = Encode(frames, durations);
    ASSERT_FALSE(file.empty());
    const Decoded d = DecodeAll(file);
    ASSERT_EQ(d.frameCount, 21);
    ASSERT_EQ(d.frames.size(), 21u);
    for (size_t k = 0; k < frames.size(); ++k) {
        EXPECT_EQ(d.frames[k].duration, durations[k]);
        ExpectColours(d.frames[k].pixels, Quantised(frames[k]), "frame " + std::to_string(k));
    }
}

// Byte layout: header, one control extension and descriptor per frame.
struct Layout {
    int colours;
    int paletteEntries;
    int minCodeSize;
};

class GifEncodeLayout : public testing::TestWithParam<Layout> {};

TEST_P(GifEncodeLayout, PaletteSizeAndCodeSizeFollowTheColourCount) {
    const Layout l = GetParam();
    Picture p;
    p.width = 16;
    p.height = 4;
    for (int i = 0; i < 64; ++i)
        p.pixels.push_back(0xFF000000u | uint32_t(i % l.colours) * 0x1F0D07u);
    const Bytes file = Encode({p}, {123});
    ASSERT_GT(file.size(), 13u + 8 + 10);
    EXPECT_EQ(0, std::memcmp(file.data(), "GIF89a", 6));
    EXPECT_EQ(file[6] | file[7] << 8, 16);
    EXPECT_EQ(file[8] | file[9] << 8, 4);
    EXPECT_EQ(file[10], 0x70) << "no global palette";
    const uint8_t control[8] = {0x21, 0xF9, 0x04, 0x04, 12, 0, 0xFF, 0x00};
    EXPECT_EQ(0, std::memcmp(&file[13], control, 8));
    EXPECT_EQ(file[21], 0x2C);
    const int bits = file[30] & 7;
    EXPECT_EQ(file[30] & 0xC0, 0x80);
    EXPECT_EQ(1 << (bits + 1), l.paletteEntries);
    EXPECT_EQ(file[31 + 3 * l.paletteEntries], l.minCodeSize);
    EXPECT_EQ(file.back(), 0x3B);
    const Decoded d = DecodeAll(file);
    ASSERT_EQ(d.frames.size(), 1u);
    ExpectColours(d.frames[0].pixels, p.pixels, "few colours are kept exactly");
}

INSTANTIATE_TEST_SUITE_P(Colours, GifEncodeLayout,
                         testing::Values(Layout{1, 4, 2}, Layout{2, 4, 2}, Layout{5, 8, 3},
                                         Layout{9, 16, 4}, Layout{33, 64, 6}, Layout{64, 64, 6}));

TEST(GifEncode, DescriptorsPaddingAndFlip) {
    const Picture p = Make(Kind::kShapes, 20, 12, 1);
    // The same picture with padding and rows stored bottom-up.
    CNCodecBase::VideoFormatInfoTag in = p.Format(), out{};
    in.nPadLeft = 8;
    in.nPadRight = 4;
    in.nPadTop = 3;
    in.nPadBottom = 2;
    const int pitch = 8 + 80 + 4;
    std::vector<uint8_t> padded(static_cast<size_t>(pitch) * (3 + 12 + 2), 0x77);
    for (int y = 0; y < 12; ++y)
        std::memcpy(&padded[static_cast<size_t>(3 + 11 - y) * pitch + 8], &p.pixels[y * 20], 80);
    CNGifCodec codec;
    ASSERT_EQ(codec.PrepareEncode(&in, &out), 1);
    EXPECT_EQ(out.nStructSize, 104);
    EXPECT_EQ(out.nCodecType, VIDEO_TYPE_GIF);
    EXPECT_EQ(out.nCodecSubType, VIDEO_FORMAT_GIF);
    EXPECT_EQ(out.nWidth, 20);
    EXPECT_EQ(out.nPictureHeight, 12);
    EXPECT_EQ(out.nDisplayWidth, 20);
    EXPECT_EQ(out.nPadLeft, 0);
    CNCodecBuffer* picture = CNCodecBuffer::CreateWrapBuffer(
        padded.data(), static_cast<int>(padded.size()), static_cast<int>(padded.size()), nullptr);
    ASSERT_EQ(codec.AddFrame(picture, 40, 0, 1), 1);
    // A buffer one byte short of what the descriptor describes is refused.
    CNCodecBuffer* shortBuffer = CNCodecBuffer::CreateWrapBuffer(
        padded.data(), static_cast<int>(padded.size()) - 2 * pitch - 5, 0, nullptr);
    EXPECT_EQ(codec.AddFrame(shortBuffer, 40, 0, 1), 0);
    shortBuffer->Release();
    picture->Release();
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    ASSERT_EQ(codec.Encode(file), 1);
    const auto* b = static_cast<const uint8_t*>(file->GetAddress());
    const Decoded d = DecodeAll(Bytes(b, b + file->GetDataSize()));
    file->Release();
    ASSERT_EQ(d.frames.size(), 1u);
    ExpectColours(d.frames[0].pixels, Quantised(p), "flipped, padded input");
    EXPECT_EQ(codec.FreeEncodeResource(), 1);
    EXPECT_EQ(codec.GetFrameCount(), 0);
}

TEST(GifEncode, RefusesWhatItCannotDo) {
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag in = Make(Kind::kNoise, 4, 4, 0).Format(), out{};
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    EXPECT_EQ(codec.Encode(file), 0) << "not encoding";
    in.nCodecSubType = VIDEO_FORMAT_RGB24;
    EXPECT_EQ(codec.PrepareEncode(&in, &out), 0);
    in.nCodecSubType = VIDEO_FORMAT_RGB32;
    in.nWidth = 70000;
    EXPECT_EQ(codec.PrepareEncode(&in, &out), 0);
    in.nWidth = 4;
    ASSERT_EQ(codec.PrepareEncode(&in, &out), 1);
    EXPECT_EQ(codec.Encode(file), 0) << "no frames";
    EXPECT_EQ(codec.AddFrame(nullptr, 10, 0, 0), 0);
    file->Release();
}

// Noise does not compress: a file that would pass 1 MiB fails cleanly.
TEST(GifEncode, FilesOverOneMebibyteFail) {
    const Picture noise = Make(Kind::kNoise, 1024, 1024, 5);
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag in = noise.Format(), out{};
    ASSERT_EQ(codec.PrepareEncode(&in, &out), 1);
    CNCodecBuffer* picture = CNCodecBuffer::CreateWrapBuffer(
        const_cast<uint32_t*>(noise.pixels.data()), 4 << 20, 4 << 20, nullptr);
    ASSERT_EQ(codec.AddFrame(picture, 10, 0, 0), 1);
    picture->Release();
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    EXPECT_EQ(codec.Encode(file), 0);
    EXPECT_EQ(file->GetDataSize(), 0);
    EXPECT_LE(file->GetBufferSize(), CNGifCodec::kMaxEncodedBytes + 16);
    file->Release();
}

TEST(GifEncode, RefusedAllocationsLeaveNothingBehind) {
    const Picture p = Make(Kind::kGradient, 24, 16, 1);
    for (int skip = 0; skip < 12; ++skip) {
        CNGifCodec codec;
        CNCodecBase::VideoFormatInfoTag in = p.Format(), out{};
        ASSERT_EQ(codec.PrepareEncode(&in, &out), 1);
        CNCodecBuffer* picture = CNCodecBuffer::CreateWrapBuffer(
            const_cast<uint32_t*>(p.pixels.data()), 24 * 16 * 4, 24 * 16 * 4, nullptr);
        CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
        int added = 0, encoded = 0;
        {
            nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
            added = codec.AddFrame(picture, 10, 0, 0);
            if (added) encoded = codec.Encode(file);
        }
        if (encoded) {
            const auto* b = static_cast<const uint8_t*>(file->GetAddress());
            EXPECT_EQ(DecodeAll(Bytes(b, b + file->GetDataSize())).frames.size(), 1u);
        } else {
            EXPECT_EQ(file->GetDataSize(), 0);
        }
        picture->Release();
        file->Release();
    }
}

}  // namespace
}  // namespace ncbtest::gif
