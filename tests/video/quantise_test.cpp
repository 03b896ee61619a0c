// Octree quantisation: the exact outcomes of small colour sets, the
// agreement of palette and index plane on pictures that force many folds
// (each palette entry must be the truncated mean of exactly the pixels that
// point at it, and each entry's pixels must form one octree cell), the leaf
// renumbering path, flip, alpha independence, refused allocations, and the
// error on a photograph against ImageMagick's own 256-colour reduction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/video_processor.h"
#include "platform/kernel/fault.h"
#include "video/quantise/octree_quantiser.h"

namespace {

struct Picture {
    int width = 0, height = 0;
    std::vector<uint8_t> bgra;  // width x 4 bytes per row
    void Resize(int w, int h) {
        width = w;
        height = h;
        bgra.assign(static_cast<size_t>(w) * h * 4, 0);
    }
    uint8_t* Pixel(int x, int y) { return &bgra[(static_cast<size_t>(y) * width + x) * 4]; }
    void Set(int x, int y, int r, int g, int b, int a = 255) {
        uint8_t* p = Pixel(x, y);
        p[0] = static_cast<uint8_t>(b);
        p[1] = static_cast<uint8_t>(g);
        p[2] = static_cast<uint8_t>(r);
        p[3] = static_cast<uint8_t>(a);
    }
};

struct Result {
    int ok = 0;
    int colours = -1;
    std::vector<uint8_t> palette = std::vector<uint8_t>(1024, 0xEE);
    std::vector<uint8_t> indices;
};

Result Quantise(Picture& p, int flip = 0) {
    Result r;
    r.indices.assign(static_cast<size_t>(p.width) * p.height, 0xEE);
    r.ok = CNVideoProcessor::ColorQuantToIndex256(p.width, p.height, p.bgra.data(),
                                                  r.indices.data(), p.width * 4, p.width,
                                                  r.palette.data(), &r.colours, flip);
    return r;
}

uint32_t Key(const uint8_t* px) {
    return CNVideoProcessor::s_uOctTreeBlueMask[px[0]] +
           CNVideoProcessor::s_uOctTreeGreenMask[px[1]] +
           CNVideoProcessor::s_uOctTreeRedMask[px[2]];
}

// Palette and index plane agree, and the entries' pixel sets are disjoint
// octree cells: every entry is used, is the truncated mean of its pixels,
// and no pixel of another entry falls inside the smallest cell that holds
// all of an entry's pixels.
void ExpectConsistent(Picture& p, const Result& r) {
    ASSERT_EQ(r.ok, 1);
    ASSERT_GE(r.colours, 1);
    ASSERT_LE(r.colours, 256);
    std::vector<uint64_t> sum(256 * 3, 0);
    std::vector<uint64_t> count(256, 0);
    std::vector<uint32_t> andKey(256, ~0u), orKey(256, 0);
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const int i = r.indices[static_cast<size_t>(y) * p.width + x];
            ASSERT_LT(i, r.colours) << "pixel " << x << "," << y;
            const uint8_t* px = p.Pixel(x, y);
            for (int c = 0; c < 3; ++c) sum[i * 3 + c] += px[c];
            ++count[i];
            andKey[i] &= Key(px);
            orKey[i] |= Key(px);
        }
    }
    std::vector<uint32_t> cellMask(256), cellKey(256);
    for (int i = 0; i < r.colours; ++i) {
        ASSERT_GT(count[i], 0u) << "entry " << i << " is never used";
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(r.palette[i * 4 + c], sum[i * 3 + c] / count[i]) << "entry " << i;
        EXPECT_EQ(r.palette[i * 4 + 3], 0);
        // Longest common nibble prefix of the entry's keys.
        const uint32_t differ = andKey[i] ^ orKey[i];
        int level = 7;
        while (level >= 0 && (differ & CNVideoProcessor::s_uOctTreeLevelMask[level])) --level;
        cellMask[i] = level >= 0 ? CNVideoProcessor::s_uOctTreeLevelMask[level] : 0;
        cellKey[i] = andKey[i] & cellMask[i];
    }
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const int own = r.indices[static_cast<size_t>(y) * p.width + x];
            const uint32_t key = Key(p.Pixel(x, y));
            for (int i = 0; i < r.colours; ++i) {
                if (i != own && cellMask[i] && (key & cellMask[i]) == cellKey[i])
                    FAIL() << "pixel " << x << "," << y << " (entry " << own
                           << ") lies in the cell of entry " << i;
            }
        }
    }
}

TEST(OctreeTables, SpreadChannelBitsOverTheKey) {
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeRedMask[1], 4u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeRedMask[2], 0x40u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeRedMask[255], 0x44444444u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeGreenMask[255], 0x22222222u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeBlueMask[0x81], 0x10000001u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeLevelMask[0], 0xF0000000u);
    EXPECT_EQ(CNVideoProcessor::s_uOctTreeLevelMask[7], 0xFFFFFFFFu);
}

TEST(ColorQuant, OneColourGivesOneEntry) {
    Picture p;
    p.Resize(7, 5);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x) p.Set(x, y, 12, 200, 77, x * 30);
    Result r = Quantise(p);
    ASSERT_EQ(r.ok, 1);
    ASSERT_EQ(r.colours, 1);
    EXPECT_EQ(r.palette[0], 77);
    EXPECT_EQ(r.palette[1], 200);
    EXPECT_EQ(r.palette[2], 12);
    EXPECT_EQ(r.palette[3], 0);
    EXPECT_EQ(r.palette[4], 0xEE) << "entries past the count are not written";
    for (uint8_t i : r.indices) EXPECT_EQ(i, 0);
}

TEST(ColorQuant, ExactlyTwoHundredFiftySixColoursAreKept) {
    Picture p;
    p.Resize(32, 16);
    std::mt19937 rng(5);
    std::vector<uint32_t> colours;
    while (colours.size() < 256) {
        const uint32_t c = rng() & 0xFFFFFF;
        if (std::find(colours.begin(), colours.end(), c) == colours.end()) colours.push_back(c);
    }
    for (int i = 0; i < 512; ++i) {
        const uint32_t c = colours[(i * 7) % 256];
        p.Set(i % 32, i / 32, c >> 16, (c >> 8) & 255, c & 255);
    }
    Result r = Quantise(p);
    ExpectConsistent(p, r);
    EXPECT_EQ(r.colours, 256);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x) {
            const uint8_t* e = &r.palette[4 * r.indices[y * 32 + x]];
            EXPECT_EQ(0, std::memcmp(e, p.Pixel(x, y), 3)) << x << "," << y;
        }
    }
}

// 257 colours: reds 0..255 and one blue step. The blue pixel gives the
// first group (reds 0, 1) three members, so the first two-member group in
// creation order, reds 2 and 3, folds: its entry is the truncated mean over
// its pixels (one of red 2, three of red 3: 2.75 -> 2) and comes last, after
// all the full-depth leaves.
TEST(ColorQuant, TwoHundredFiftySeventhColourFoldsTheFirstPair) {
    Picture p;
    p.Resize(260, 1);
    for (int k = 0; k < 256; ++k) p.Set(k, 0, k, 0, 0);
    p.Set(256, 0, 0, 0, 1);
    p.Set(257, 0, 3, 0, 0);
    p.Set(258, 0, 3, 0, 0);
    p.Set(259, 0, 200, 0, 0);
    Result r = Quantise(p);
    ExpectConsistent(p, r);
    ASSERT_EQ(r.colours, 256);
    EXPECT_EQ(r.indices[2], 255);
    EXPECT_EQ(r.indices[3], 255);
    EXPECT_EQ(r.indices[257], 255);
    EXPECT_EQ(r.palette[255 * 4 + 2], 2);
    for (int k = 0; k < 256; ++k) {
        if (k == 2 || k == 3) continue;
        EXPECT_EQ(r.palette[4 * r.indices[k] + 2], k) << "red " << k << " kept exactly";
    }
    EXPECT_EQ(r.palette[4 * r.indices[256]], 1);
}

enum class Content { kNoise, kGradient, kStripes, kBlocks };

Picture MakePicture(Content c, int w, int h, uint32_t seed) {
    Picture p;
    p.Resize(w, h);
    std::mt19937 rng(seed);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            switch (c) {
                case Content::kNoise:
                    p.Set(x, y, rng() & 255, rng() & 255, rng() & 255);
                    break;
                case Content::kGradient:
                    p.Set(x, y, x * 255 / w, y * 255 / h, (x + y) * 127 / (w + h) + (rng() & 7));
                    break;
                case Content::kStripes:
                    p.Set(x, y, (x / 3) * 37 & 255, (y / 2) * 91 & 255, (x ^ y) & 255);
                    break;
                case Content::kBlocks: {
                    const uint32_t v = (x / 8 * 2654435761u) ^ (y / 8 * 40503u);
                    p.Set(x, y, v & 255, (v >> 8) & 255, (v >> 16) & 255);
                    break;
                }
            }
        }
    }
    return p;
}

struct Shape {
    Content content;
    int width, height;
};

class ColorQuantPictures : public testing::TestWithParam<Shape> {};

TEST_P(ColorQuantPictures, PaletteAndIndicesAgreeAfterFolds) {
    const Shape s = GetParam();
    Picture p = MakePicture(s.content, s.width, s.height, 11);
    Result r = Quantise(p);
    ExpectConsistent(p, r);
}

// Running out of leaf ids renumbers the live leaves; the outcome must be the
// same as with room to spare.
TEST_P(ColorQuantPictures, RenumberingLeafIdsChangesNothing) {
    const Shape s = GetParam();
    Picture p = MakePicture(s.content, s.width, s.height, 11);
    Result wide = Quantise(p);
    Result tight;
    tight.indices.assign(wide.indices.size(), 0);
    ncb::quantise::QuantiseArgs a;
    a.width = p.width;
    a.height = p.height;
    a.source = p.bgra.data();
    a.sourcePitch = p.width * 4;
    a.indices = tight.indices.data();
    a.indexPitch = p.width;
    a.palette = tight.palette.data();
    a.colourCount = &tight.colours;
    ASSERT_TRUE(ncb::quantise::QuantiseOctree(a, 600));
    EXPECT_EQ(tight.colours, wide.colours);
    EXPECT_EQ(tight.palette, wide.palette);
    EXPECT_EQ(tight.indices, wide.indices);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ColorQuantPictures,
    testing::Values(Shape{Content::kNoise, 97, 61}, Shape{Content::kGradient, 160, 90},
                    Shape{Content::kStripes, 128, 33}, Shape{Content::kBlocks, 200, 64},
                    Shape{Content::kNoise, 1, 700}, Shape{Content::kNoise, 700, 1}));

TEST(ColorQuant, AlphaDoesNotMatter) {
    Picture a = MakePicture(Content::kNoise, 40, 30, 3);
    Picture b = a;
    std::mt19937 rng(9);
    for (size_t i = 3; i < b.bgra.size(); i += 4) b.bgra[i] = static_cast<uint8_t>(rng());
    Result ra = Quantise(a), rb = Quantise(b);
    EXPECT_EQ(ra.colours, rb.colours);
    EXPECT_EQ(ra.palette, rb.palette);
    EXPECT_EQ(ra.indices, rb.indices);
}

TEST(ColorQuant, FlipWritesTheRowsBottomUp) {
    Picture p = MakePicture(Content::kGradient, 23, 17, 4);
    Result down = Quantise(p), up = Quantise(p, 1);
    ASSERT_EQ(up.colours, down.colours);
    EXPECT_EQ(up.palette, down.palette);
    for (int y = 0; y < 17; ++y)
        EXPECT_EQ(0, std::memcmp(&up.indices[(16 - y) * 23], &down.indices[y * 23], 23));
}

TEST(ColorQuant, PitchesAreHonoured) {
    Picture p = MakePicture(Content::kStripes, 10, 6, 1);
    std::vector<uint8_t> padded(64 * 6, 0x5A);
    for (int y = 0; y < 6; ++y) std::memcpy(&padded[y * 64], p.Pixel(0, y), 40);
    std::vector<uint8_t> indices(16 * 6, 0xEE);
    std::vector<uint8_t> palette(1024);
    int colours = 0;
    ASSERT_EQ(1, CNVideoProcessor::ColorQuantToIndex256(10, 6, padded.data(), indices.data(), 64,
                                                        16, palette.data(), &colours, 0));
    Result plain = Quantise(p);
    EXPECT_EQ(colours, plain.colours);
    for (int y = 0; y < 6; ++y) {
        EXPECT_EQ(0, std::memcmp(&indices[y * 16], &plain.indices[y * 10], 10));
        for (int x = 10; x < 16; ++x) EXPECT_EQ(indices[y * 16 + x], 0xEE);
    }
}

TEST(ColorQuant, RefusesWhenWorkMemoryFails) {
    Picture p = MakePicture(Content::kNoise, 16, 16, 2);
    for (int skip = 0; skip < 3; ++skip) {
        nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
        Result r = Quantise(p);
        EXPECT_EQ(r.ok, 0) << "allocation " << skip;
        EXPECT_EQ(r.colours, -1);
        EXPECT_EQ(r.indices[0], 0xEE);
    }
}

TEST(ColorQuant, RefusesEmptyPicturesAndNullPointers) {
    uint8_t px[4] = {1, 2, 3, 4}, index = 0xEE, palette[1024];
    int colours = -1;
    EXPECT_EQ(0,
              CNVideoProcessor::ColorQuantToIndex256(0, 1, px, &index, 4, 1, palette, &colours, 0));
    EXPECT_EQ(
        0, CNVideoProcessor::ColorQuantToIndex256(1, -1, px, &index, 4, 1, palette, &colours, 0));
    EXPECT_EQ(0, CNVideoProcessor::ColorQuantToIndex256(1, 1, nullptr, &index, 4, 1, palette,
                                                        &colours, 0));
    EXPECT_EQ(0,
              CNVideoProcessor::ColorQuantToIndex256(1, 1, px, &index, 4, 1, palette, nullptr, 0));
    EXPECT_EQ(colours, -1);
    EXPECT_EQ(1,
              CNVideoProcessor::ColorQuantToIndex256(1, 1, px, &index, 4, 1, palette, &colours, 0));
    EXPECT_EQ(colours, 1);
    EXPECT_EQ(index, 0);
}

// ---- against ImageMagick ---------------------------------------------------

bool ReadCommand(const std::string& command, size_t bytes, std::vector<uint8_t>* out) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return false;
    out->assign(bytes, 0);
    const size_t got = std::fread(out->data(), 1, bytes, pipe);
    return pclose(pipe) == 0 && got == bytes;
}

struct Error {
    double mean[3] = {0, 0, 0};
    int max[3] = {0, 0, 0};
};

Error Compare(const std::vector<uint8_t>& rgb, const std::vector<uint8_t>& reduced) {
    Error e;
    const size_t n = rgb.size() / 3;
    for (size_t i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            const int d = std::abs(int{rgb[i * 3 + c]} - int{reduced[i * 3 + c]});
            e.mean[c] += d;
            e.max[c] = std::max(e.max[c], d);
        }
    }
    for (double& m : e.mean) m /= static_cast<double>(n);
    return e;
}

// A photograph (ImageMagick's built-in rose, enlarged so it holds thousands
// of colours) reduced by us and by ImageMagick's -colors 256 without
// dithering. The figures are recorded; ours must stay in the same league.
TEST(ColorQuantOracle, PhotographErrorAgainstImageMagick) {
    if (std::system("command -v convert-im6.q16 >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "ImageMagick (convert-im6.q16) not installed";
    const int w = 280, h = 184;
    const std::string source = "convert-im6.q16 rose: -resize 280x184! -depth 8 ";
    std::vector<uint8_t> rgb, im;
    ASSERT_TRUE(ReadCommand(source + "rgb:-", static_cast<size_t>(w) * h * 3, &rgb));
    ASSERT_TRUE(ReadCommand(source + "+dither -colors 256 -depth 8 rgb:-",
                            static_cast<size_t>(w) * h * 3, &im));
    Picture p;
    p.Resize(w, h);
    for (int i = 0; i < w * h; ++i) p.Set(i % w, i / w, rgb[i * 3], rgb[i * 3 + 1], rgb[i * 3 + 2]);
    Result r = Quantise(p);
    ExpectConsistent(p, r);
    std::vector<uint8_t> ours(rgb.size());
    for (int i = 0; i < w * h; ++i) {
        const uint8_t* e = &r.palette[4 * r.indices[i]];
        ours[i * 3] = e[2];
        ours[i * 3 + 1] = e[1];
        ours[i * 3 + 2] = e[0];
    }
    const Error a = Compare(rgb, ours), b = Compare(rgb, im);
    const char* names[3] = {"red", "green", "blue"};
    for (int c = 0; c < 3; ++c) {
        char line[160];
        std::snprintf(line, sizeof line,
                      "%s: octree mean %.2f max %d, ImageMagick mean %.2f max %d", names[c],
                      a.mean[c], a.max[c], b.mean[c], b.max[c]);
        RecordProperty(names[c], line);
        std::printf("%s\n", line);
        EXPECT_LT(a.mean[c], 3 * b.mean[c] + 2.0) << line;
        EXPECT_LE(a.max[c], 128) << line;
    }
}

}  // namespace
