// Decoder behaviour beyond the suite: hand-made files for the rules a
// general-purpose decoder does not share (second IHDR ignored, short tRNS,
// keys in 16-bit truecolour, the gamma exponent, unknown filter bytes,
// palette indices past PLTE), the output layout with caller padding, random
// images of every colour type, depth and interlace written by libpng with
// every filter and compared with libpng's reading, and soft failure at every
// allocation.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
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

// A file from IHDR fields, raw stored rows (filter bytes included) and the
// chunks that go between IHDR and IDAT.
struct FileBuilder {
    Bytes ihdr;
    std::vector<std::pair<std::string, Bytes>> before;  // between IHDR and IDAT
    Bytes raw;
    bool goodCrc = true;

    Bytes Build() const {
        Bytes file = Signature();
        AppendChunk(&file, "IHDR", ihdr, goodCrc);
        for (const auto& [type, data] : before) AppendChunk(&file, type.c_str(), data, goodCrc);
        AppendChunk(&file, "IDAT", Deflate(raw), goodCrc);
        AppendChunk(&file, "IEND", {}, goodCrc);
        return file;
    }
};

uint32_t PixelAt(const Picture& p, int x, int y) {
    uint32_t v;
    std::memcpy(&v, p.bgra.data() + (static_cast<size_t>(y) * p.width + x) * 4, 4);
    return v;
}

Bytes Be16(uint16_t v) { return {static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)}; }
Bytes Be32(uint32_t v) {
    return {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
}

// ---- the exported helpers --------------------------------------------------

struct LineBytesCase {
    int width, channels, depth, expected;
};

class PngLineBytes : public ::testing::TestWithParam<LineBytesCase> {};

TEST_P(PngLineBytes, CountsTheFilterByte) {
    const LineBytesCase& c = GetParam();
    EXPECT_EQ(CNPngCodec::CalcLineBytes(c.width, c.channels, c.depth), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, PngLineBytes,
                         ::testing::Values(LineBytesCase{10, 1, 1, 3}, LineBytesCase{10, 3, 16, 61},
                                           LineBytesCase{0, 3, 8, 0}, LineBytesCase{1, 1, 1, 2},
                                           LineBytesCase{9, 1, 2, 4}, LineBytesCase{3, 1, 4, 3},
                                           LineBytesCase{7, 4, 8, 29},
                                           LineBytesCase{65536, 4, 16, 524289},
                                           LineBytesCase{-5, 3, 8, 0},
                                           LineBytesCase{0x7FFFFFFF, 4, 16, 0}));

TEST(PngGreyTables, ExpandToTheFullRange) {
    EXPECT_EQ(CNPngCodec::s_uGreyMapTable1Bit[0], 0);
    EXPECT_EQ(CNPngCodec::s_uGreyMapTable1Bit[1], 255);
    const unsigned char two[] = {0, 85, 170, 255};
    EXPECT_EQ(0, std::memcmp(CNPngCodec::s_uGreyMapTable2Bit, two, 4));
    for (int i = 0; i < 16; ++i) EXPECT_EQ(CNPngCodec::s_uGreyMapTable4Bit[i], i * 17);
}

// Every converter writes pixel x of row y at dst + y * pitch + x * step * 4
// and nothing in between: run each with step 1 and with a column step and a
// wide pitch, and compare.
struct ConverterCase {
    const char* name;
    int channels, depth;
    void (*run)(const unsigned char*, unsigned char*, int, int, int, int);
};

const unsigned int kPalette[256] = {0x11223344, 0x55667788, 0x99AABBCC, 0xDDEEFF00, 0x01020304};

#define NCB_PLAIN(fn)                                                           \
    [](const unsigned char* s, unsigned char* d, int w, int h, int p, int st) { \
        CNPngCodec::fn(s, d, w, h, p, st);                                      \
    }
#define NCB_KEYED(fn, key)                                                      \
    [](const unsigned char* s, unsigned char* d, int w, int h, int p, int st) { \
        CNPngCodec::fn(s, d, w, h, p, key, st);                                 \
    }

const ConverterCase kConverters[] = {
    {"Grey1", 1, 1, NCB_PLAIN(ConvertFromGrey1Bits)},
    {"Grey2", 1, 2, NCB_PLAIN(ConvertFromGrey2Bits)},
    {"Grey4", 1, 4, NCB_PLAIN(ConvertFromGrey4Bits)},
    {"Grey8", 1, 8, NCB_PLAIN(ConvertFromGrey8Bits)},
    {"Grey16", 1, 16, NCB_PLAIN(ConvertFromGrey16Bits)},
    {"GreyAlpha8", 2, 8, NCB_PLAIN(ConvertFromGreyAlpha8Bits)},
    {"GreyAlpha16", 2, 16, NCB_PLAIN(ConvertFromGreyAlpha16Bits)},
    {"TrueColor8", 3, 8, NCB_PLAIN(ConvertFromTrueColor8Bits)},
    {"TrueColor16", 3, 16, NCB_PLAIN(ConvertFromTrueColor16Bits)},
    {"TrueColorAlpha8", 4, 8, NCB_PLAIN(ConvertFromTrueColorAlpha8Bits)},
    {"TrueColorAlpha16", 4, 16, NCB_PLAIN(ConvertFromTrueColorAlpha16Bits)},
    {"Grey1Tran", 1, 1, NCB_KEYED(ConvertFromGrey1Bits_Tran, 255u)},
    {"Grey2Tran", 1, 2, NCB_KEYED(ConvertFromGrey2Bits_Tran, 170u)},
    {"Grey4Tran", 1, 4, NCB_KEYED(ConvertFromGrey4Bits_Tran, 34u)},
    {"Grey8Tran", 1, 8, NCB_KEYED(ConvertFromGrey8Bits_Tran, 7u)},
    {"Grey16Tran", 1, 16, NCB_KEYED(ConvertFromGrey16Bits_Tran, 0x0307u)},
    {"TrueColor8Tran", 3, 8, NCB_KEYED(ConvertFromTrueColor8Bits_Tran, 0x010203u)},
    {"TrueColor16Tran", 3, 16, NCB_KEYED(ConvertFromTrueColor16Bits_Tran, 0x000100020003ull)},
    {"Pal1", 1, 1, NCB_KEYED(ConvertFromPal1Bits, kPalette)},
    {"Pal2", 1, 2, NCB_KEYED(ConvertFromPal2Bits, kPalette)},
    {"Pal4", 1, 4, NCB_KEYED(ConvertFromPal4Bits, kPalette)},
    {"Pal8", 1, 8, NCB_KEYED(ConvertFromPal8Bits, kPalette)},
};
#undef NCB_PLAIN
#undef NCB_KEYED

class PngConverters : public ::testing::TestWithParam<ConverterCase> {};

TEST_P(PngConverters, HonourPitchAndPixelStep) {
    const ConverterCase& c = GetParam();
    std::mt19937 random(7);
    for (int width : {1, 2, 3, 5, 8, 9, 17}) {
        const int height = 3;
        const int line = CNPngCodec::CalcLineBytes(width, c.channels, c.depth);
        Bytes src(static_cast<size_t>(line) * height);
        for (uint8_t& b : src)
            b = static_cast<uint8_t>(random() % 5);  // small: keys and palette hit
        Bytes tight(static_cast<size_t>(width) * height * 4, 0xEE);
        c.run(src.data(), tight.data(), width, height, width * 4, 1);

        const int step = 3, pitch = width * step * 4 + 8;
        Bytes spread(static_cast<size_t>(pitch) * height, 0xEE);
        c.run(src.data(), spread.data(), width, height, pitch, step);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width * step; ++x) {
                const uint8_t* got = spread.data() + static_cast<size_t>(y) * pitch + x * 4;
                if (x % step == 0) {
                    const uint8_t* want =
                        tight.data() + (static_cast<size_t>(y) * width + x / step) * 4;
                    ASSERT_EQ(0, std::memcmp(got, want, 4)) << c.name << " width " << width;
                } else {
                    ASSERT_EQ(got[0] & got[1] & got[2] & got[3], 0xEE)
                        << c.name << " wrote between steps";
                }
            }
            const uint8_t* tail = spread.data() + static_cast<size_t>(y) * pitch + width * step * 4;
            for (int i = 0; i < 8; ++i)
                ASSERT_EQ(tail[i], 0xEE) << c.name << " wrote into the pitch";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, PngConverters, ::testing::ValuesIn(kConverters),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- rules of the chunk walk -------------------------------------------------

TEST(PngDecode, SecondIhdrIsIgnored) {
    FileBuilder f{IhdrData(2, 1, 8, 0), {{"IHDR", IhdrData(1, 1, 8, 2)}}, {0, 10, 200}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(p.width, 2);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF0A0A0Au);
    EXPECT_EQ(PixelAt(p, 1, 0), 0xFFC8C8C8u);
}

TEST(PngDecode, WrongCrcsEverywhereStillDecode) {
    FileBuilder f{IhdrData(1, 1, 8, 2), {}, {0, 1, 2, 3}};
    f.goodCrc = false;
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF010203u);
}

TEST(PngDecode, ShortPaletteTransparencyKeepsTheRestOpaque) {
    Bytes plte;
    for (int i = 0; i < 6; ++i)
        plte.insert(plte.end(), {uint8_t(i * 40), uint8_t(i), uint8_t(255 - i)});
    FileBuilder f{
        IhdrData(6, 1, 8, 3), {{"PLTE", plte}, {"tRNS", {10, 20, 30}}}, {0, 0, 1, 2, 3, 4, 5}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    const uint32_t alphas[] = {10, 20, 30, 255, 255, 255};
    for (int i = 0; i < 6; ++i) {
        const uint32_t rgb = uint32_t(i * 40) << 16 | uint32_t(i) << 8 | uint32_t(255 - i);
        EXPECT_EQ(PixelAt(p, i, 0), alphas[i] << 24 | rgb) << i;
    }
}

TEST(PngDecode, IndicesPastThePaletteAreOpaqueBlack) {
    FileBuilder f{IhdrData(2, 1, 8, 3), {{"PLTE", {1, 2, 3}}}, {0, 0, 200}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF010203u);
    EXPECT_EQ(PixelAt(p, 1, 0), 0xFF000000u);
}

TEST(PngDecode, TransparencyBeforeTheHeaderIsIgnored) {
    Bytes file = Signature();
    AppendChunk(&file, "tRNS", {0, 5});
    AppendChunk(&file, "IHDR", IhdrData(1, 1, 8, 0));
    AppendChunk(&file, "IDAT", Deflate({0, 5}));
    AppendChunk(&file, "IEND", {});
    Picture p;
    ASSERT_EQ(OurDecode(file, &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF050505u);
}

TEST(PngDecode, Grey2BitKeyMarksTheExpandedSample) {
    // Samples 0, 1, 2, 3 in one byte; key grey 2 (expanded 170).
    FileBuilder f{IhdrData(4, 1, 2, 0), {{"tRNS", Be16(2)}}, {0, 0b00011011}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF000000u);
    EXPECT_EQ(PixelAt(p, 1, 0), 0xFF555555u);
    EXPECT_EQ(PixelAt(p, 2, 0), 0x00AAAAAAu);
    EXPECT_EQ(PixelAt(p, 3, 0), 0xFFFFFFFFu);
}

TEST(PngDecode, TrueColour16KeyNeedsAllSixBytes) {
    Bytes key = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    Bytes raw = {0};
    raw.insert(raw.end(), key.begin(), key.end());                // the key: transparent
    raw.insert(raw.end(), {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBD});  // low byte differs
    raw.insert(raw.end(), {0x12, 0x00, 0x56, 0x78, 0x9A, 0xBC});  // R low byte differs
    FileBuilder f{IhdrData(3, 1, 16, 2), {{"tRNS", key}}, raw};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0x0012569Au);
    EXPECT_EQ(PixelAt(p, 1, 0), 0xFF12569Au);
    EXPECT_EQ(PixelAt(p, 2, 0), 0xFF12569Au);
}

TEST(PngDecode, TruncatedTransparencyIsIgnored) {
    FileBuilder f{IhdrData(1, 1, 8, 2), {{"tRNS", {0, 1, 0, 2}}}, {0, 1, 2, 3}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF010203u);
}

TEST(PngDecode, UnknownFilterByteLeavesTheRowAsStored) {
    FileBuilder f{IhdrData(2, 2, 8, 0), {}, {0, 50, 60, 7, 5, 6}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 1), 0xFF050505u);
    EXPECT_EQ(PixelAt(p, 1, 1), 0xFF060606u);
}

TEST(PngDecode, FirstRowFiltersSeeAZeroRowAbove) {
    // One grey row per filter, each the first row of its own image.
    const struct {
        uint8_t filter;
        uint8_t want0, want1;
    } cases[] = {{1, 10, 30}, {2, 10, 20}, {3, 10, 25}, {4, 10, 30}};
    for (const auto& c : cases) {
        FileBuilder f{IhdrData(2, 1, 8, 0), {}, {c.filter, 10, 20}};
        Picture p;
        ASSERT_EQ(OurDecode(f.Build(), &p), 1);
        EXPECT_EQ(PixelAt(p, 0, 0) & 0xFF, c.want0) << "filter " << int{c.filter};
        EXPECT_EQ(PixelAt(p, 1, 0) & 0xFF, c.want1) << "filter " << int{c.filter};
    }
}

TEST(PngDecode, InterlacedOnePixelUsesOnlyTheFirstPass) {
    FileBuilder f{IhdrData(1, 1, 8, 6, 1), {}, {0, 1, 2, 3, 4}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0x04010203u);
}

// ---- gamma ------------------------------------------------------------------

TEST(PngDecode, GammaNearOneOverTwoPointTwoChangesNothing) {
    Bytes raw = {0};
    for (int i = 0; i < 256; ++i) raw.push_back(static_cast<uint8_t>(i));
    FileBuilder f{IhdrData(256, 1, 8, 0), {{"gAMA", Be32(45455)}}, raw};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(PixelAt(p, i, 0) & 0xFF, uint32_t(i));
}

TEST(PngDecode, LinearGammaIsBroughtToDisplayGammaButAlphaIsNot) {
    FileBuilder f{IhdrData(3, 1, 8, 4), {{"gAMA", Be32(100000)}}, {0, 1, 1, 255, 255, 0, 0}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0x01151515u);  // 1 becomes 21, alpha 1 stays
    EXPECT_EQ(PixelAt(p, 1, 0), 0xFFFFFFFFu);
    EXPECT_EQ(PixelAt(p, 2, 0), 0x00000000u);
}

TEST(PngDecode, GammaTableMatchesItsDefinition) {
    uint8_t table[256];
    EXPECT_FALSE(ncb::png::BuildGammaTable(45455, table));
    EXPECT_FALSE(ncb::png::BuildGammaTable(0, table));  // no usable gamma: exponent 1
    ASSERT_TRUE(ncb::png::BuildGammaTable(100000, table));
    EXPECT_EQ(table[0], 0);
    EXPECT_EQ(table[1], 21);
    EXPECT_EQ(table[255], 255);
}

TEST(PngDecode, ShortGammaChunkIsIgnored) {
    FileBuilder f{IhdrData(1, 1, 8, 0), {{"gAMA", {0, 1, 0x86}}}, {0, 1}};
    Picture p;
    ASSERT_EQ(OurDecode(f.Build(), &p), 1);
    EXPECT_EQ(PixelAt(p, 0, 0), 0xFF010101u);
}

// ---- refusals ---------------------------------------------------------------

struct RefusalCase {
    const char* name;
    Bytes file;
};

Bytes WithChunks(std::initializer_list<std::pair<const char*, Bytes>> chunks) {
    Bytes file = Signature();
    for (const auto& [type, data] : chunks) AppendChunk(&file, type, data);
    return file;
}

std::vector<RefusalCase> RefusalCases() {
    const Bytes idat = Deflate({0, 1});
    Bytes ihdr12 = IhdrData(1, 1, 8, 0);
    ihdr12.pop_back();
    Bytes badCompression = IhdrData(1, 1, 8, 0);
    badCompression[10] = 1;
    Bytes badFilter = IhdrData(1, 1, 8, 0);
    badFilter[11] = 1;
    Bytes sevenBytes = Signature();
    sevenBytes.pop_back();
    return {
        {"Empty", {}},
        {"SignatureOnly", Signature()},
        {"SevenSignatureBytes", sevenBytes},
        {"NoHeader", WithChunks({{"IDAT", idat}, {"IEND", {}}})},
        {"HeaderTooShort", WithChunks({{"IHDR", ihdr12}, {"IDAT", idat}})},
        {"WidthZero", WithChunks({{"IHDR", IhdrData(0, 1, 8, 0)}, {"IDAT", idat}})},
        {"Width65537", WithChunks({{"IHDR", IhdrData(65537, 1, 8, 0)}, {"IDAT", idat}})},
        {"HeightZero", WithChunks({{"IHDR", IhdrData(1, 0, 8, 0)}, {"IDAT", idat}})},
        {"Grey3Bits", WithChunks({{"IHDR", IhdrData(1, 1, 3, 0)}, {"IDAT", idat}})},
        {"TrueColour4Bits", WithChunks({{"IHDR", IhdrData(1, 1, 4, 2)}, {"IDAT", idat}})},
        {"Palette16Bits", WithChunks({{"IHDR", IhdrData(1, 1, 16, 3)}, {"IDAT", idat}})},
        {"ColourType5", WithChunks({{"IHDR", IhdrData(1, 1, 8, 5)}, {"IDAT", idat}})},
        {"CompressionMethod1", WithChunks({{"IHDR", badCompression}, {"IDAT", idat}})},
        {"FilterMethod1", WithChunks({{"IHDR", badFilter}, {"IDAT", idat}})},
        {"Interlace2", WithChunks({{"IHDR", IhdrData(1, 1, 8, 0, 2)}, {"IDAT", idat}})},
        {"PaletteMissing", WithChunks({{"IHDR", IhdrData(1, 1, 8, 3)}, {"IDAT", idat}})},
        {"NoImageData", WithChunks({{"IHDR", IhdrData(1, 1, 8, 0)}, {"IEND", {}}})},
        {"EmptyImageData", WithChunks({{"IHDR", IhdrData(1, 1, 8, 0)}, {"IDAT", {}}})},
        {"ImageDataAfterEnd",
         WithChunks({{"IHDR", IhdrData(1, 1, 8, 0)}, {"IEND", {}}, {"IDAT", idat}})},
        {"NotZlib", WithChunks({{"IHDR", IhdrData(1, 1, 8, 0)}, {"IDAT", {1, 2, 3, 4, 5, 6}}})},
        {"StreamCutShort", WithChunks({{"IHDR", IhdrData(1, 1, 8, 0)},
                                       {"IDAT", Bytes(idat.begin(), idat.end() - 3)}})},
    };
}

class PngRefusal : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(PngRefusal, ReturnsZeroAndNoBuffer) {
    Picture p;
    EXPECT_EQ(OurDecode(GetParam().file, &p), 0);
}

INSTANTIATE_TEST_SUITE_P(Files, PngRefusal, ::testing::ValuesIn(RefusalCases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(PngDecode, RefusesMissingArguments) {
    const Bytes file = FileBuilder{IhdrData(1, 1, 8, 0), {}, {0, 1}}.Build();
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(
        const_cast<uint8_t*>(file.data()), int(file.size()), int(file.size()), nullptr);
    CNCodecBase::VideoFormatInfoTag format{};
    CNCodecBuffer* output = input;
    EXPECT_EQ(CNPngCodec::Decode(nullptr, &format, nullptr, &output), 0);
    EXPECT_EQ(output, nullptr);
    output = input;
    EXPECT_EQ(CNPngCodec::Decode(nullptr, nullptr, input, &output), 0);
    EXPECT_EQ(output, nullptr);
    EXPECT_EQ(CNPngCodec::Decode(nullptr, &format, input, nullptr), 0);
    // Only the data size counts: a buffer holding the file with data size 7 is refused.
    input->SetDataSize(7);
    EXPECT_EQ(CNPngCodec::Decode(nullptr, &format, input, &output), 0);
    input->SetDataSize(int(file.size()));
    ASSERT_EQ(CNPngCodec::Decode(nullptr, &format, input, &output), 1);
    EXPECT_EQ(output->GetRefCount(), 1);
    output->Release();
    input->Release();
}

// ---- the output buffer and descriptor ----------------------------------------

TEST(PngDecode, FillsTheDescriptorAndHonoursPadding) {
    const Bytes file = ReadFile(TestDataPath("png/basn6a08.png"));
    Picture plain;
    ASSERT_EQ(OurDecode(file, &plain), 1);

    CNCodecBase::VideoFormatInfoTag f;
    std::memset(&f, 0x5A, sizeof f);  // words 0-17 must all be overwritten
    f.nPadLeft = 12;
    f.nPadRight = 4;
    f.nPadTop = 3;
    f.nPadBottom = 2;
    f.nChromaPadLeft = 7;
    std::vector<uint8_t> exact(file.begin(), file.end());
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(exact.data(), int(exact.size()),
                                                           int(exact.size()), nullptr);
    CNCodecBuffer* output = nullptr;
    ASSERT_EQ(CNPngCodec::Decode(nullptr, &f, input, &output), 1);
    input->Release();

    const int32_t want[18] = {
        104, VIDEO_TYPE_RGB, VIDEO_FORMAT_RGB32, 0, 0, 0, 32, 32, 0, 32, 0, 32, 32, 32, 0, 0, 32,
        32};
    EXPECT_EQ(0, std::memcmp(&f, want, sizeof want));
    EXPECT_EQ(f.nPadLeft, 12);
    EXPECT_EQ(f.nPadBottom, 2);
    EXPECT_EQ(f.nChromaPadLeft, 7);

    const int pitch = 12 + 32 * 4 + 4, rows = 3 + 32 + 2;
    EXPECT_EQ(output->GetDataSize(), pitch * rows);
    EXPECT_GE(output->GetBufferSize(), pitch * rows + 8);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(output->GetAddress()) % 4, 0u);
    const auto* base = static_cast<const uint8_t*>(output->GetAddress());
    for (int y = 0; y < 32; ++y) {
        EXPECT_EQ(0, std::memcmp(base + (3 + y) * pitch + 12, plain.bgra.data() + y * 128, 128))
            << y;
    }
    output->Release();
}

TEST(PngDecode, RefusesNegativePadding) {
    const Bytes file = FileBuilder{IhdrData(1, 1, 8, 0), {}, {0, 1}}.Build();
    for (int word = 18; word < 22; ++word) {
        CNCodecBase::VideoFormatInfoTag f{};
        reinterpret_cast<int32_t*>(&f)[word] = -1;
        Picture p;
        EXPECT_EQ(OurDecode(file, &p, &f), 0) << "word " << word;
    }
}

// ---- random images of every kind against libpng -------------------------------

struct Kind {
    int colourType, depth;
    bool interlace, transparency;
};

std::string KindName(const ::testing::TestParamInfo<Kind>& info) {
    const Kind& k = info.param;
    return "type" + std::to_string(k.colourType) + "_depth" + std::to_string(k.depth) +
           (k.interlace ? "_adam7" : "") + (k.transparency ? "_trns" : "");
}

std::vector<Kind> AllKinds() {
    const std::pair<int, std::vector<int>> depths[] = {
        {0, {1, 2, 4, 8, 16}}, {2, {8, 16}}, {3, {1, 2, 4, 8}}, {4, {8, 16}}, {6, {8, 16}}};
    std::vector<Kind> kinds;
    for (const auto& [type, list] : depths)
        for (int depth : list)
            for (bool interlace : {false, true})
                for (bool trns : {false, true})
                    if (!trns || type == 0 || type == 2 || type == 3)
                        kinds.push_back({type, depth, interlace, trns});
    return kinds;
}

class PngRandomImages : public ::testing::TestWithParam<Kind> {};

// Samples drawn from few values, so runs, keys and every filter occur.
RawImage RandomImage(const Kind& k, std::mt19937& random) {
    RawImage image;
    image.width = 1 + random() % 41;
    image.height = 1 + random() % 23;
    image.colourType = k.colourType;
    image.bitDepth = k.depth;
    image.interlace = k.interlace;
    const int levels = k.depth >= 8 ? 256 : 1 << k.depth;
    const int paletteSize = k.colourType == 3 ? 1 + random() % levels : 0;
    image.samples.resize(static_cast<size_t>(image.RowBytes()) * image.height);
    for (uint8_t& b : image.samples) b = random() % 4 == 0 ? 0 : static_cast<uint8_t>(random());
    if (k.colourType == 3) {
        // Indices must stay inside the palette for libpng: rewrite packed samples.
        const int perByte = 8 / std::min(k.depth, 8);
        for (uint8_t& b : image.samples) {
            uint8_t v = 0;
            for (int i = 0; i < perByte; ++i)
                v = static_cast<uint8_t>(v << k.depth | (random() % paletteSize));
            b = v;
        }
        for (int i = 0; i < 3 * paletteSize; ++i)
            image.palette.push_back(static_cast<uint8_t>(random()));
    }
    if (k.transparency) {
        if (k.colourType == 3) {
            image.transparency.resize(1 + random() % paletteSize);
            for (uint8_t& a : image.transparency) a = static_cast<uint8_t>(random());
        } else {
            // The key is a sample that occurs: the first one of the image.
            const int channels = k.colourType == 2 ? 3 : 1;
            for (int c = 0; c < channels; ++c) {
                uint16_t v;
                if (k.depth == 16) {
                    v = static_cast<uint16_t>(image.samples[2 * c] << 8 | image.samples[2 * c + 1]);
                } else if (k.depth == 8) {
                    v = image.samples[c];
                } else {
                    v = static_cast<uint16_t>(image.samples[0] >> (8 - k.depth));
                }
                image.transparency.push_back(static_cast<uint8_t>(v >> 8));
                image.transparency.push_back(static_cast<uint8_t>(v));
            }
        }
    }
    return image;
}

TEST_P(PngRandomImages, MatchLibpng) {
    std::mt19937 random(static_cast<unsigned>(::testing::UnitTest::GetInstance()->random_seed()) ^
                        static_cast<unsigned>(GetParam().colourType * 131 + GetParam().depth));
    for (int round = 0; round < 12; ++round) {
        const RawImage image = RandomImage(GetParam(), random);
        const Bytes file = LibpngWrite(image);
        ASSERT_FALSE(file.empty());
        Picture ours, oracle;
        std::string error;
        ASSERT_TRUE(LibpngDecode(file, &oracle, nullptr, &error)) << error;
        ASSERT_EQ(OurDecode(file, &ours), 1) << image.width << "x" << image.height;
        ASSERT_TRUE(ours == oracle) << image.width << "x" << image.height << " round " << round;
    }
}

INSTANTIATE_TEST_SUITE_P(AllKinds, PngRandomImages, ::testing::ValuesIn(AllKinds()), KindName);

// ---- allocation failures --------------------------------------------------------

class PngAllocationFailure : public ::testing::TestWithParam<const char*> {};

TEST_P(PngAllocationFailure, EveryAllocationFailsSoftly) {
    const Bytes file = ReadFile(TestDataPath(std::string("png/") + GetParam()));
    Picture want;
    ASSERT_EQ(OurDecode(file, &want), 1);
    Bytes copy = file;
    CNCodecBuffer* input =
        CNCodecBuffer::CreateWrapBuffer(copy.data(), int(copy.size()), int(copy.size()), nullptr);
    for (int skip = 0;; ++skip) {
        ASSERT_LT(skip, 50) << "decode never finished";
        CNCodecBase::VideoFormatInfoTag f{};
        CNCodecBuffer* output = input;
        int result;
        {
            nplat::fault::Scope fail(nplat::fault::Kind::kHeap, skip);
            result = CNPngCodec::Decode(nullptr, &f, input, &output);
        }
        if (!result) {
            EXPECT_EQ(output, nullptr);
            continue;
        }
        EXPECT_EQ(0, std::memcmp(output->GetAddress(), want.bgra.data(), want.bgra.size()));
        EXPECT_GT(skip, 2) << "the decode allocates at least three times";
        output->Release();
        break;
    }
    input->Release();
}

INSTANTIATE_TEST_SUITE_P(Files, PngAllocationFailure,
                         ::testing::Values("basn2c08.png", "oi4n2c16.png", "basi3p02.png"),
                         [](const auto& info) { return std::string(info.param).substr(0, 8); });

}  // namespace
}  // namespace ncbtest::png
