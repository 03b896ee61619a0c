// Hostile and damaged GIF input: every sample cut at every byte, random
// byte damage, absurd screens, LZW data that runs out, codes beyond the
// table, indices past the palette, refused allocations, and an input that
// shrinks under the decoder. Files are decoded from blocks of exactly their
// size, so AddressSanitizer sees any read outside them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/gif_codec.h"
#include "platform/kernel/fault.h"
#include "tests/image/gif/gif_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::gif {
namespace {

Bytes Sample(const std::string& name) { return ReadFile(TestDataPath("gif/" + name)); }

// A GIF assembled field by field.
struct Builder {
    Bytes b;
    Builder(int w, int h, int globalBits) {
        for (char c : std::string("GIF89a")) b.push_back(static_cast<uint8_t>(c));
        Word(w);
        Word(h);
        b.push_back(static_cast<uint8_t>(globalBits ? 0x80 | (globalBits - 1) : 0));
        b.push_back(0);
        b.push_back(0);
        for (int i = 0; i < (globalBits ? 1 << globalBits : 0); ++i) {
            b.push_back(static_cast<uint8_t>(i * 40));
            b.push_back(static_cast<uint8_t>(255 - i * 40));
            b.push_back(static_cast<uint8_t>(i * 7));
        }
    }
    void Word(int v) {
        b.push_back(static_cast<uint8_t>(v));
        b.push_back(static_cast<uint8_t>(v >> 8));
    }
    void Image(int l, int t, int w, int h, int minCode, const std::vector<Bytes>& blocks) {
        b.push_back(0x2C);
        Word(l);
        Word(t);
        Word(w);
        Word(h);
        b.push_back(0);
        b.push_back(static_cast<uint8_t>(minCode));
        for (const Bytes& block : blocks) {
            b.push_back(static_cast<uint8_t>(block.size()));
            b.insert(b.end(), block.begin(), block.end());
        }
        b.push_back(0);
    }
    Bytes Done() {
        b.push_back(0x3B);
        return b;
    }
};

// LZW bits packed least significant first.
struct Codes {
    Bytes bytes;
    int bit = 0;
    void Put(int code, int width) {
        for (int i = 0; i < width; ++i, ++bit) {
            if (bit % 8 == 0) bytes.push_back(0);
            if (code >> i & 1) bytes.back() |= static_cast<uint8_t>(1 << (bit % 8));
        }
    }
};

void ExpectAllFramesCompose(const Bytes& file) {
    const Decoded d = DecodeAll(file);
    EXPECT_EQ(static_cast<int>(d.frames.size()), d.frameCount);
}

TEST(GifHostile, EveryCutIsRefused) {
    for (const char* name : {"made/anim_transparency.gif", "made/rose_interlaced.gif",
                             "made/anim_local_palettes_loop3.gif", "suite/plain-text.gif",
                             "made/gce_delay7_then_none.gif"}) {
        const Bytes file = Sample(name);
        ASSERT_GT(file.size(), 20u) << name;
        for (size_t cut = 0; cut < file.size(); ++cut) {
            const Decoded d =
                DecodeAll(Bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(cut)));
            // Every cut loses the trailer: the walk reads past the end.
            ASSERT_EQ(d.frameCount, 0) << name << " cut at " << cut;
        }
        EXPECT_GT(DecodeAll(file).frameCount, 0) << name;
    }
}

TEST(GifHostile, RandomDamageNeverCrashes) {
    std::mt19937 rng(20240611);
    const Bytes samples[] = {Sample("made/anim_dispose2.gif"), Sample("made/rose_interlaced.gif"),
                             Sample("made/anim_transparency.gif"), Sample("suite/high-color.gif")};
    int decoded = 0;
    for (int round = 0; round < 1500; ++round) {
        Bytes file = samples[round % 4];
        const int flips = 1 + static_cast<int>(rng() % 6);
        for (int i = 0; i < flips; ++i)
            file[rng() % file.size()] ^= static_cast<uint8_t>(1 + rng() % 255);
        const Decoded d = DecodeAll(file);
        ASSERT_EQ(static_cast<int>(d.frames.size()), d.frameCount) << "round " << round;
        decoded += d.frameCount > 0;
    }
    EXPECT_GT(decoded, 100);
}

TEST(GifHostile, AbsurdScreensAreRefusedBeforeAllocating) {
    for (int side : {65535, 16385}) {
        Builder g(side, side, 1);
        Codes c;
        c.Put(2, 2);
        c.Put(1, 2);
        c.Put(3, 2);
        g.Image(0, 0, 1, 1, 1, {c.bytes});
        EXPECT_EQ(DecodeAll(g.Done()).frameCount, 0) << side;
    }
    Builder wide(65535, 1, 1);
    Codes c;
    c.Put(2, 2);
    c.Put(1, 2);
    c.Put(3, 2);
    wide.Image(65534, 0, 1, 1, 1, {c.bytes});
    const Decoded d = DecodeAll(wide.Done());
    ASSERT_EQ(d.frames.size(), 1u);
    EXPECT_EQ(d.frames[0].pixels[65534], 0x0028D707u) << "entry 1 at the far end";
}

TEST(GifHostile, FramesOutsideTheScreenOrEmptyAreRefused) {
    for (auto [l, t, w, h] : {std::array<int, 4>{7, 0, 2, 1},
                              {0, 5, 1, 2},
                              {0, 0, 0, 1},
                              {0, 0, 1, 0},
                              {65535, 65535, 65535, 65535}}) {
        Builder g(8, 6, 2);
        g.Image(l, t, w, h, 2, {{0x4C, 0x01}});
        EXPECT_EQ(DecodeAll(g.Done()).frameCount, 0) << l << "," << t << " " << w << "x" << h;
    }
}

// Our encoder's single-frame file split into the part before the LZW data,
// the data bytes, and nothing else (one frame, then the trailer).
struct Split {
    Bytes head;
    Bytes data;
};

Split EncodeAndSplit(int w, int h) {
    std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            pixels[static_cast<size_t>(y) * w + x] =
                0xFF000000u | uint32_t(x * 6) << 16 | uint32_t(y * 8) << 8 | 0x40;
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag in{}, out{};
    in.nCodecSubType = VIDEO_FORMAT_RGB32;
    in.nWidth = in.nRectRight = w;
    in.nHeight = in.nRectBottom = h;
    EXPECT_EQ(codec.PrepareEncode(&in, &out), 1);
    CNCodecBuffer* picture =
        CNCodecBuffer::CreateWrapBuffer(pixels.data(), w * h * 4, w * h * 4, nullptr);
    EXPECT_EQ(codec.AddFrame(picture, 10, 0, 0), 1);
    picture->Release();
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    EXPECT_EQ(codec.Encode(file), 1);
    const auto* b = static_cast<const uint8_t*>(file->GetAddress());
    const Bytes bytes(b, b + file->GetDataSize());
    file->Release();
    Split s;
    const size_t palette = size_t{3} << ((bytes[30] & 7) + 1);
    size_t at = 31 + palette + 1;  // past the minimum code size
    s.head.assign(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(at));
    while (bytes[at] != 0) {
        s.data.insert(s.data.end(), bytes.begin() + static_cast<ptrdiff_t>(at + 1),
                      bytes.begin() + static_cast<ptrdiff_t>(at + 1 + bytes[at]));
        at += 1 + bytes[at];
    }
    return s;
}

Bytes Join(const Split& s, size_t dataBytes) {
    Bytes file = s.head;
    for (size_t at = 0; at < dataBytes; at += 255) {
        const size_t n = std::min<size_t>(255, dataBytes - at);
        file.push_back(static_cast<uint8_t>(n));
        file.insert(file.end(), s.data.begin() + static_cast<ptrdiff_t>(at),
                    s.data.begin() + static_cast<ptrdiff_t>(at + n));
    }
    file.push_back(0);
    file.push_back(0x3B);
    return file;
}

// LZW data cut at every byte: the frame holds a prefix of the full picture
// (in row order), the rest shows the background, and the flag says so.
TEST(GifHostile, DataThatRunsOutGivesAFlaggedPartialFrame) {
    const Split s = EncodeAndSplit(40, 30);
    const uint32_t background = 0x55555555;
    const Decoded full = DecodeAll(Join(s, s.data.size()), 100, background);
    ASSERT_EQ(full.frames.size(), 1u);
    EXPECT_EQ(full.frames[0].flag, 0);
    size_t lastPrefix = 0;
    for (size_t cut = 0; cut < s.data.size(); ++cut) {
        const Decoded d = DecodeAll(Join(s, cut), 100, background);
        ASSERT_EQ(d.frames.size(), 1u) << cut;
        EXPECT_EQ(d.frames[0].flag, CNGifCodec::kFlagTruncated) << cut;
        const std::vector<uint32_t>& px = d.frames[0].pixels;
        size_t prefix = 0;
        while (prefix < px.size() && px[prefix] == full.frames[0].pixels[prefix]) ++prefix;
        for (size_t i = prefix; i < px.size(); ++i) ASSERT_EQ(px[i], background) << cut << " " << i;
        EXPECT_GE(prefix, lastPrefix) << cut;
        lastPrefix = prefix;
    }
    EXPECT_GT(lastPrefix, 40u * 29u);
}

TEST(GifHostile, CodesBeyondTheTableEndTheFrameWithoutTheFlag) {
    Builder g(4, 2, 2);
    Codes c;
    c.Put(4, 3);  // clear
    c.Put(1, 3);
    c.Put(7, 3);  // next free is 6
    c.Put(2, 3);
    c.Put(5, 3);
    g.Image(0, 0, 4, 2, 2, {c.bytes});
    const Decoded d = DecodeAll(g.Done(), 100, 0);
    ASSERT_EQ(d.frames.size(), 1u);
    EXPECT_EQ(d.frames[0].flag, 0);
    EXPECT_EQ(d.frames[0].pixels[0], 0x0028D707u);
    EXPECT_EQ(d.frames[0].pixels[1], 0u);
    const Decoded sample = DecodeAll(Sample("corrupt/lzw_code_past_table.gif"));
    ASSERT_EQ(sample.frames.size(), 1u);
    EXPECT_EQ(sample.frames[0].flag, 0);
}

TEST(GifHostile, IndicesPastThePaletteAreBlack) {
    Builder g(2, 1, 1);  // two entries
    Codes c;
    c.Put(4, 3);  // minimum code size 2: indices up to 3 with a 2-entry table
    c.Put(3, 3);
    c.Put(1, 3);
    c.Put(5, 3);
    g.Image(0, 0, 2, 1, 2, {c.bytes});
    const Decoded d = DecodeAll(g.Done(), 100, 0x77777777);
    ASSERT_EQ(d.frames.size(), 1u);
    EXPECT_EQ(d.frames[0].pixels[0], 0u);
    EXPECT_EQ(d.frames[0].pixels[1], 0x0028D707u);
}

TEST(GifHostile, SubBlockLimit) {
    EXPECT_EQ(DecodeAll(Sample("made/subblocks_1024.gif")).frames.size(), 1u);
    EXPECT_EQ(DecodeAll(Sample("made/subblocks_1025.gif")).frameCount, 0);
}

TEST(GifHostile, RefusedAllocationsFailCleanly) {
    const Bytes file = Sample("made/anim_transparency.gif");
    for (int skip = 0; skip < 16; ++skip) {
        FileBuffer in(file);
        CNGifCodec codec;
        CNCodecBase::VideoFormatInfoTag format{};
        int frames = 0, composed = 0;
        {
            nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
            frames = codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu);
            for (int i = 0; i < frames; ++i) {
                CNCodecBuffer* out = nullptr;
                if (codec.GetDecodedFrame(i, &out, nullptr)) {
                    ++composed;
                    out->Release();
                } else {
                    EXPECT_EQ(out, nullptr);
                }
            }
        }
        EXPECT_TRUE(frames == 0 || frames == 3) << skip;
        EXPECT_EQ(in.buffer->GetRefCount(), frames ? 2 : 1);
    }
}

TEST(GifHostile, AnInputThatShrinksIsNotReadPastItsEnd) {
    const Bytes file = Sample("made/rose.gif");
    FileBuffer in(file);
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag format{};
    ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 1);
    in.buffer->SetDataSize(static_cast<int>(file.size() / 2));
    CNCodecBuffer* out = nullptr;
    EXPECT_EQ(codec.GetDecodedFrame(0, &out, nullptr), 0);
    EXPECT_EQ(out, nullptr);
}

TEST(GifHostile, CorruptSamplesAreRefusedOrComposeCompletely) {
    for (const char* name :
         {"corrupt/bad_signature.gif", "corrupt/empty.gif", "corrupt/extension_label_zero.gif",
          "corrupt/frame_one_past_right.gif", "corrupt/frame_outside_screen.gif",
          "corrupt/frame_zero_width.gif", "corrupt/header_only.gif",
          "corrupt/lzw_code_past_table.gif", "corrupt/lzw_min_code_size_0.gif",
          "corrupt/lzw_min_code_size_9.gif", "corrupt/no_colour_table.gif",
          "corrupt/no_trailer.gif", "corrupt/screen_width_zero.gif", "corrupt/stray_zero_byte.gif",
          "corrupt/truncated_mid_lzw.gif"}) {
        SCOPED_TRACE(name);
        ExpectAllFramesCompose(Sample(name));
    }
}

}  // namespace
}  // namespace ncbtest::gif
