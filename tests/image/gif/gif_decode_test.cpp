// GIF decoding against oracles nobody here wrote: the outcome, screen size
// and frame count recorded for every file of the shared test data, the
// frames ImageMagick composed for the made animations, animations that
// ImageMagick makes at test time (interlaced, each disposal method,
// transparency) compared frame by frame with its own -coalesce, and giflib's
// gif2rgb on single pictures. Disposal 3 is "leave in place" here while
// ImageMagick restores the previous frame, so live files get method 1 in its
// place before ImageMagick composes them; pixels ImageMagick leaves
// transparent are the background colour here. Alpha follows this codec's
// rule: palette colours carry alpha byte 0.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ncodecbase/gif_codec.h"
#include "ncodecbase/png_codec.h"
#include "tests/image/gif/gif_test_util.h"
#include "tests/support/test_paths.h"

namespace ncbtest::gif {
namespace {

std::string GifPath(const std::string& name) { return TestDataPath("gif/" + name); }

// ---- the table of expected outcomes ----------------------------------------

struct Expected {
    std::string file;
    bool decode = false;
    int width = 0, height = 0, frames = 0;
};

std::vector<Expected> ExpectedTable() {
    std::vector<Expected> rows;
    std::istringstream in(Text(ReadFile(GifPath("EXPECTED.tsv"))));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        Expected e;
        std::string expect, w, h, frames;
        if (!std::getline(fields, e.file, '\t') || !std::getline(fields, expect, '\t') ||
            !std::getline(fields, w, '\t') || !std::getline(fields, h, '\t') ||
            !std::getline(fields, frames, '\t')) {
            continue;
        }
        e.decode = expect == "decode";
        e.width = w == "-" ? 0 : std::stoi(w);
        e.height = h == "-" ? 0 : std::stoi(h);
        e.frames = std::stoi(frames);
        rows.push_back(e);
    }
    return rows;
}

class GifExpected : public testing::TestWithParam<Expected> {};

TEST_P(GifExpected, OutcomeSizeAndFrameCount) {
    const Expected& e = GetParam();
    const Bytes file = ReadFile(GifPath(e.file));
    const Decoded d = DecodeAll(file);
    if (!e.decode) {
        EXPECT_EQ(d.frameCount, 0);
        return;
    }
    ASSERT_EQ(d.frameCount, e.frames);
    EXPECT_EQ(d.format.nWidth, e.width);
    EXPECT_EQ(d.format.nHeight, e.height);
    EXPECT_EQ(static_cast<int>(d.frames.size()), e.frames) << "every frame composes";
    EXPECT_EQ(d.format.nCodecType, VIDEO_TYPE_RGB);
    EXPECT_EQ(d.format.nCodecSubType, VIDEO_FORMAT_RGB32);
    EXPECT_EQ(d.format.nRectRight, e.width);
    EXPECT_EQ(d.format.nRectBottom, e.height);
}

std::string RowName(const testing::TestParamInfo<Expected>& info) {
    std::string name = info.param.file;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(TestData, GifExpected, testing::ValuesIn(ExpectedTable()), RowName);

// ---- ImageMagick's composed frames ------------------------------------------

struct Picture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;
};

bool DecodePng(const std::string& path, Picture* p) {
    const Bytes file = ReadFile(path);
    FileBuffer in(file);
    CNCodecBase::VideoFormatInfoTag format{};
    CNCodecBuffer* out = nullptr;
    if (!CNPngCodec::Decode(nullptr, &format, in.buffer, &out)) return false;
    p->width = format.nWidth;
    p->height = format.nHeight;
    const auto* px = static_cast<const uint32_t*>(out->GetAddress());
    p->pixels.assign(px, px + static_cast<size_t>(p->width) * p->height);
    out->Release();
    return true;
}

// Compares one of our frames with an oracle frame given as 0xAARRGGBB
// words: colours must match wherever the oracle is opaque; where it is
// transparent ours shows the background colour.
void ExpectSameColours(const std::vector<uint32_t>& ours, const std::vector<uint32_t>& oracle,
                       int width, uint32_t background, const std::string& what) {
    ASSERT_EQ(ours.size(), oracle.size()) << what;
    int shown = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        const uint32_t want = (oracle[i] >> 24) == 0 ? background : oracle[i];
        if ((ours[i] & 0xFFFFFF) != (want & 0xFFFFFF) && shown++ < 5) {
            ADD_FAILURE() << what << " pixel " << i % width << "," << i / width << ": ours "
                          << std::hex << ours[i] << " oracle " << oracle[i];
        }
        EXPECT_EQ(ours[i] >> 24, 0u) << what << ": palette colours carry alpha 0";
        if (shown > 5) break;
    }
}

struct Reference {
    const char* name;
    int frames;
};

class GifReferenceFrames : public testing::TestWithParam<Reference> {};

TEST_P(GifReferenceFrames, MatchImageMagickCoalesce) {
    const Reference r = GetParam();
    const Decoded d = DecodeAll(ReadFile(GifPath(std::string("made/") + r.name + ".gif")));
    ASSERT_EQ(d.frameCount, r.frames);
    ASSERT_EQ(static_cast<int>(d.frames.size()), r.frames);
    for (int k = 0; k < r.frames; ++k) {
        Picture ref;
        const std::string path =
            GifPath(std::string("reference/") + r.name + "-" + std::to_string(k) + ".png");
        ASSERT_TRUE(DecodePng(path, &ref)) << path;
        ASSERT_EQ(ref.width, d.format.nWidth);
        // Background: the file's background entry; frame 0's corner shows it
        // wherever ImageMagick left transparency.
        ExpectSameColours(d.frames[k].pixels, ref.pixels, ref.width,
                          d.frames[0].pixels[0] & 0xFFFFFF, path);
    }
}

// anim_dispose3 is left out: ImageMagick restores the previous frame there.
INSTANTIATE_TEST_SUITE_P(
    Made, GifReferenceFrames,
    testing::Values(Reference{"anim_dispose0", 4}, Reference{"anim_dispose1", 4},
                    Reference{"anim_dispose2", 4}, Reference{"anim_local_palettes_loop3", 3},
                    Reference{"anim_transparency", 3}, Reference{"gce_delay7_then_none", 2},
                    Reference{"rose_interlaced", 1}, Reference{"transparent_keeps_previous", 2}),
    [](const testing::TestParamInfo<Reference>& i) { return i.param.name; });

// ---- ImageMagick on the whole suite ----------------------------------------

// Every decodable suite file against ImageMagick's composition. Known
// differences are listed with their reasons.
TEST(GifSuiteOracle, MatchesImageMagickCoalesce) {
    if (!HaveTool("convert-im6.q16")) GTEST_SKIP() << "ImageMagick not installed";
    const std::set<std::string> differ = {
        "dispose-restore-previous",  // disposal 3 leaves the frame in place here
        "4095-codes",  // keeps a full table without a clear; the code after a full table is a clear
                       // here
        "high-color",  // no global palette: the background here is entry 0 of none, black
        "invalid-colors",
        "invalid-code",  // ImageMagick refuses them
        "max-width",
        "max-height",  // ImageMagick runs out of memory
    };
    int compared = 0;
    for (const Expected& e : ExpectedTable()) {
        if (!e.decode || e.file.rfind("suite/", 0) != 0) continue;
        const std::string stem = e.file.substr(6, e.file.size() - 10);
        if (differ.count(stem)) continue;
        const std::string path = GifPath(e.file);
        const Decoded d = DecodeAll(ReadFile(path));
        std::vector<Bytes> im;
        ASSERT_TRUE(ImageMagickFrames(path, d.format.nWidth, d.format.nHeight, &im)) << path;
        ASSERT_EQ(im.size(), d.frames.size()) << path;
        for (size_t k = 0; k < im.size(); ++k) {
            std::vector<uint32_t> oracle(im[k].size() / 4);
            for (size_t i = 0; i < oracle.size(); ++i) {
                const uint8_t* q = &im[k][4 * i];
                oracle[i] =
                    uint32_t{q[3]} << 24 | uint32_t{q[0]} << 16 | uint32_t{q[1]} << 8 | q[2];
                // Where ImageMagick shows nothing, its background rule is not ours.
                if (q[3] == 0) oracle[i] = d.frames[k].pixels[i] | 0xFF000000u;
            }
            ExpectSameColours(d.frames[k].pixels, oracle, d.format.nWidth, 0,
                              path + " frame " + std::to_string(k));
        }
        ++compared;
    }
    EXPECT_GT(compared, 50);
}

// ---- animations ImageMagick makes now ---------------------------------------

struct LiveCase {
    const char* name;
    int dispose;
    bool interlace;
};

// Disposal method 3 becomes 1 in every graphic control extension, so that
// ImageMagick composes what this decoder composes.
Bytes WithoutRestorePrevious(Bytes file) {
    for (size_t i = 0; i + 4 < file.size(); ++i) {
        if (file[i] == 0x21 && file[i + 1] == 0xF9 && file[i + 2] == 4 &&
            ((file[i + 3] >> 2) & 7) == 3) {
            file[i + 3] = static_cast<uint8_t>((file[i + 3] & ~0x1C) | (1 << 2));
        }
    }
    return file;
}

class GifLiveImageMagick : public testing::TestWithParam<LiveCase> {};

TEST_P(GifLiveImageMagick, FramesMatchCoalesce) {
    if (!HaveTool("convert-im6.q16")) GTEST_SKIP() << "ImageMagick not installed";
    const LiveCase c = GetParam();
    const std::string dir = ScratchDir();
    const std::string made = dir + "/made.gif", patched = dir + "/patched.gif";
    const std::string command =
        std::string("convert-im6.q16 -delay 7 -dispose ") + std::to_string(c.dispose) +
        " -size 36x24 gradient:skyblue-navy"
        " \\( -size 12x9 gradient:red-yellow -repage +3+2 \\)"
        " \\( -size 9x9 xc:none -fill green -draw 'circle 4,4 4,0' -repage +20+6 \\)"
        " \\( -size 14x6 plasma:fractal -seed 4 -repage +10+15 \\)"
        " \\( -size 5x5 xc:orange -repage +30+1 \\) " +
        (c.interlace ? "-interlace GIF " : "") + "-loop 0 '" + made + "'";
    ASSERT_TRUE(RunCommand(command)) << command;
    const Bytes file = WithoutRestorePrevious(ReadFile(made));
    ASSERT_TRUE(WriteFile(patched, file));
    const uint32_t background = 0x00ABCDEF;
    const Decoded d = DecodeAll(file, 100, background);
    ASSERT_EQ(d.frameCount, 5);
    std::vector<Bytes> im;
    ASSERT_TRUE(ImageMagickFrames(patched, 36, 24, &im));
    ASSERT_EQ(im.size(), 5u);
    for (size_t k = 0; k < im.size(); ++k) {
        EXPECT_EQ(d.frames[k].duration, 70);
        EXPECT_EQ(d.frames[k].timeStamp, 70u * k);
        EXPECT_EQ(d.frames[k].flag, 0);
        std::vector<uint32_t> oracle(im[k].size() / 4);
        for (size_t i = 0; i < oracle.size(); ++i) {
            const uint8_t* q = &im[k][4 * i];
            oracle[i] = uint32_t{q[3]} << 24 | uint32_t{q[0]} << 16 | uint32_t{q[1]} << 8 | q[2];
        }
        ExpectSameColours(d.frames[k].pixels, oracle, 36, background,
                          std::string(c.name) + " frame " + std::to_string(k));
    }
}

INSTANTIATE_TEST_SUITE_P(Made, GifLiveImageMagick,
                         testing::Values(LiveCase{"dispose0", 0, false},
                                         LiveCase{"dispose1", 1, false},
                                         LiveCase{"dispose2", 2, false},
                                         LiveCase{"dispose3", 3, false},
                                         LiveCase{"dispose2_interlaced", 2, true},
                                         LiveCase{"dispose1_interlaced", 1, true}),
                         [](const testing::TestParamInfo<LiveCase>& i) { return i.param.name; });

// giflib's gif2rgb paints a single picture without any composition rule.
TEST(GifGiflibOracle, SinglePicturesMatchGif2rgb) {
    if (!HaveTool("gif2rgb")) GTEST_SKIP() << "giflib-tools not installed";
    const std::string dir = ScratchDir();
    for (const char* name :
         {"made/rose.gif", "made/rose_interlaced.gif", "made/logo_256colours.gif",
          "suite/interlace.gif", "suite/all-blues.gif", "suite/4095-codes-clear.gif",
          "suite/large-codes.gif", "suite/255-codes.gif", "suite/many-clears.gif"}) {
        const std::string path = GifPath(name);
        const Decoded d = DecodeAll(ReadFile(path));
        ASSERT_EQ(d.frames.size(), 1u) << name;
        const std::string rgb = dir + "/out.rgb";
        ASSERT_TRUE(RunCommand("gif2rgb -1 -o '" + rgb + "' '" + path + "'")) << name;
        const Bytes oracle = ReadFile(rgb);
        ASSERT_EQ(oracle.size(), d.frames[0].pixels.size() * 3) << name;
        int wrong = 0;
        for (size_t i = 0; i < d.frames[0].pixels.size(); ++i) {
            const uint32_t o = d.frames[0].pixels[i];
            wrong += ((o >> 16) & 255) != oracle[3 * i] || ((o >> 8) & 255) != oracle[3 * i + 1] ||
                     (o & 255) != oracle[3 * i + 2];
        }
        EXPECT_EQ(wrong, 0) << name;
    }
}

// ---- the codec's own rules ---------------------------------------------------

TEST(GifDecode, TransparentIndexKeepsTheEarlierFrame) {
    const Decoded d = DecodeAll(ReadFile(GifPath("made/transparent_keeps_previous.gif")));
    ASSERT_EQ(d.frames.size(), 2u);
    // Frame 0 is red where frame 1 is transparent; those pixels stay red.
    int kept = 0;
    for (size_t i = 0; i < d.frames[1].pixels.size(); ++i)
        kept +=
            d.frames[1].pixels[i] == d.frames[0].pixels[i] && d.frames[0].pixels[i] == 0xFF0000u;
    EXPECT_GT(kept, 0);
}

TEST(GifDecode, DelaysDefaultDurationAndStartTimes) {
    CNGifCodec codec;
    const Bytes file = ReadFile(GifPath("made/gce_delay7_then_none.gif"));
    FileBuffer in(file);
    CNCodecBase::VideoFormatInfoTag format{};
    ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 33, 0xFFFFFFFFu), 2);
    int durations[10] = {0};
    EXPECT_EQ(codec.GetDuration(durations, 10), 2);
    EXPECT_EQ(durations[0], 70);
    EXPECT_EQ(durations[1], 33);
    EXPECT_EQ(codec.GetDuration(durations, 1), 1);
    CNCodecBuffer* frame = nullptr;
    int duration = 0;
    ASSERT_EQ(codec.GetDecodedFrame(0, &frame, &duration), 1);
    EXPECT_EQ(frame->GetTimeStamp(), 0u);
    EXPECT_EQ(frame->GetRefCount(), 1);
    frame->Release();
    ASSERT_EQ(codec.GetDecodedFrame(1, &frame, &duration), 1);
    EXPECT_EQ(duration, 33);
    EXPECT_EQ(frame->GetTimeStamp(), 70u);
    frame->Release();
    EXPECT_EQ(codec.GetDecodedFrame(2, &frame, &duration), 0);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(codec.GetDecodedFrame(-1, &frame, &duration), 0);
}

TEST(GifDecode, GetDurationOnThreeFramesWritesThree) {
    CNGifCodec codec;
    FileBuffer in(ReadFile(GifPath("made/anim_local_palettes_loop3.gif")));
    CNCodecBase::VideoFormatInfoTag format{};
    ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 3);
    int durations[10];
    std::fill(durations, durations + 10, -7);
    EXPECT_EQ(codec.GetDuration(durations, 10), 3);
    EXPECT_EQ(durations[0], 70);
    EXPECT_EQ(durations[3], -7);
}

TEST(GifDecode, PixelAspectGivesTheDisplayPair) {
    const Decoded aspect = DecodeAll(ReadFile(GifPath("made/aspect49.gif")));
    EXPECT_EQ(aspect.format.nDisplayWidth, 64);
    EXPECT_EQ(aspect.format.nDisplayHeight, 64);
    EXPECT_EQ(aspect.format.nPictureWidth, 8);
    const Decoded plain = DecodeAll(ReadFile(GifPath("made/rose.gif")));
    EXPECT_EQ(plain.format.nDisplayWidth, 70);
    EXPECT_EQ(plain.format.nDisplayHeight, 46);
}

TEST(GifDecode, RestoreToBackgroundBeforeTheNextFrameOnly) {
    const uint32_t background = 0x80102030;
    const Decoded d = DecodeAll(ReadFile(GifPath("made/anim_dispose2.gif")), 100, background);
    ASSERT_EQ(d.frames.size(), 4u);
    // Frames 1-3 are 12x10 patches with disposal 2: each later frame shows the
    // background where the earlier patch was and its own patch is not there.
    int restored = 0;
    for (size_t i = 0; i < d.frames[3].pixels.size(); ++i)
        restored +=
            d.frames[2].pixels[i] != d.frames[1].pixels[i] && d.frames[3].pixels[i] == background;
    EXPECT_GT(restored, 0);
    // The caller's colour is used as given, alpha included.
    EXPECT_EQ(d.frames[0].pixels.size(), 40u * 30u);
}

TEST(GifDecode, BackgroundColourFillsFrameZeroOnly) {
    const Bytes file = ReadFile(GifPath("made/version_gif87a_screen_larger.gif"));
    const Decoded own = DecodeAll(file, 100, 0xFFFFFFFFu);
    const Decoded given = DecodeAll(file, 100, 0x11223344);
    ASSERT_EQ(own.frames.size(), 1u);
    EXPECT_EQ(given.frames[0].pixels[0], 0x11223344u) << "outside the 8x6 image at (3,2)";
    EXPECT_EQ(own.frames[0].pixels[0] >> 24, 0u);
    EXPECT_EQ(own.frames[0].pixels[3 + 2 * 12], given.frames[0].pixels[3 + 2 * 12]);
}

TEST(GifDecode, InterlacedAndProgressiveRoseAgree) {
    const Decoded a = DecodeAll(ReadFile(GifPath("made/rose.gif")));
    const Decoded b = DecodeAll(ReadFile(GifPath("made/rose_interlaced.gif")));
    ASSERT_EQ(a.frames.size(), 1u);
    ASSERT_EQ(b.frames.size(), 1u);
    EXPECT_EQ(a.frames[0].pixels, b.frames[0].pixels);
}

TEST(GifDecode, FramesRequestedOutOfOrderStillCompose) {
    CNGifCodec codec;
    FileBuffer in(ReadFile(GifPath("made/anim_dispose1.gif")));
    CNCodecBase::VideoFormatInfoTag format{};
    ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 4);
    std::vector<uint32_t> first;
    for (int index : {0, 3, 0}) {
        CNCodecBuffer* frame = nullptr;
        ASSERT_EQ(codec.GetDecodedFrame(index, &frame, nullptr), 1);
        const auto* px = static_cast<const uint32_t*>(frame->GetAddress());
        std::vector<uint32_t> pixels(px, px + 40 * 30);
        frame->Release();
        if (first.empty()) first = pixels;
        if (index == 0) {
            EXPECT_EQ(pixels, first) << "frame 0 starts from a fresh canvas";
        }
    }
}

TEST(GifDecode, PaddingWordsShapeTheFrames) {
    const Bytes file = ReadFile(GifPath("made/rose.gif"));
    const Decoded plain = DecodeAll(file);
    CNGifCodec codec;
    FileBuffer in(file);
    CNCodecBase::VideoFormatInfoTag format{};
    format.nPadLeft = 8;
    format.nPadRight = 4;
    format.nPadTop = 2;
    format.nPadBottom = 1;
    ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 1);
    EXPECT_EQ(format.nPadLeft, 8);
    CNCodecBuffer* frame = nullptr;
    ASSERT_EQ(codec.GetDecodedFrame(0, &frame, nullptr), 1);
    const int pitch = 8 + 70 * 4 + 4;
    ASSERT_EQ(frame->GetDataSize(), pitch * (2 + 46 + 1));
    const auto* base = static_cast<const uint8_t*>(frame->GetAddress());
    for (int y = 0; y < 46; ++y)
        EXPECT_EQ(0, std::memcmp(base + (2 + y) * pitch + 8, &plain.frames[0].pixels[y * 70], 280));
    frame->Release();
}

TEST(GifDecode, ReleasesTheInputWhenFreed) {
    FileBuffer in(ReadFile(GifPath("made/rose.gif")));
    CNCodecBase::VideoFormatInfoTag format{};
    {
        CNGifCodec codec;
        ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 1);
        EXPECT_EQ(in.buffer->GetRefCount(), 2);
        EXPECT_EQ(codec.FreeDecodeResource(), 1);
        EXPECT_EQ(in.buffer->GetRefCount(), 1);
        CNCodecBuffer* frame = nullptr;
        EXPECT_EQ(codec.GetDecodedFrame(0, &frame, nullptr), 0);
        ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 1);
        ASSERT_EQ(codec.Decode(nullptr, &format, in.buffer, 0, 0xFFFFFFFFu), 1);
        EXPECT_EQ(in.buffer->GetRefCount(), 2) << "a second Decode replaces the first";
    }
    EXPECT_EQ(in.buffer->GetRefCount(), 1) << "the destructor frees the decode";
}

}  // namespace
}  // namespace ncbtest::gif
