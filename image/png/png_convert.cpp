// CNPngCodec's sample converters, grey expansion tables and CalcLineBytes:
// stored PNG rows (filter byte first) to RGB32 pixels, bytes B, G, R, A.
//
// One row loop serves every source form; each converter only says how to
// read pixel x of a row. 16-bit samples keep their high byte. The two forms
// that dominate real files (8-bit RGB and RGBA, contiguous output) go through
// the level kernels; Adam7 passes (pixel step above 1) and the rarer forms
// stay scalar.
//
// Not done here: unfiltering and gamma (the decoder does both), and any check
// of the caller's buffers, whose sizes these functions cannot know.
#include <cstring>

#include "image/png/png_kernels.h"
#include "ncodecbase/png_codec.h"

const unsigned char CNPngCodec::s_uGreyMapTable1Bit[2] = {0, 255};
const unsigned char CNPngCodec::s_uGreyMapTable2Bit[4] = {0, 85, 170, 255};
const unsigned char CNPngCodec::s_uGreyMapTable4Bit[16] = {0,   17,  34,  51,  68,  85,  102, 119,
                                                           136, 153, 170, 187, 204, 221, 238, 255};

int CNPngCodec::CalcLineBytes(int width, int channels, int bitDepth) {
    if (width <= 0 || channels < 0 || bitDepth < 0) return 0;
    int64_t bytes;
    if (bitDepth == 1 || bitDepth == 2 || bitDepth == 4) {
        bytes = (static_cast<int64_t>(width) * bitDepth + 7) / 8 + 1;
    } else {
        bytes = static_cast<int64_t>(bitDepth / 8) * width * channels + 1;
    }
    return bytes <= INT32_MAX ? static_cast<int>(bytes) : 0;
}

namespace {

constexpr uint32_t kOpaque = 0xFF000000u;

inline uint32_t Grey(uint32_t g, uint32_t alpha) { return alpha << 24 | g * 0x010101u; }
inline uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b, uint32_t alpha) {
    return alpha << 24 | r << 16 | g << 8 | b;
}
inline void StorePixel(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }

// Runs `pixelAt(row, x)` (the RGB32 value of pixel x of a stored row, filter
// byte already skipped) over every pixel, rows `lineBytes` apart.
template <typename PixelAt>
void ConvertRows(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                 int pixelStep, int lineBytes, PixelAt pixelAt) {
    const ptrdiff_t step = static_cast<ptrdiff_t>(pixelStep) * 4;
    for (int y = 0; y < height; ++y) {
        const uint8_t* row = src + static_cast<ptrdiff_t>(y) * lineBytes + 1;
        uint8_t* out = dst + static_cast<ptrdiff_t>(y) * dstPitch;
        for (int x = 0; x < width; ++x, out += step) StorePixel(out, pixelAt(row, x));
    }
}

// Sample x of a row packed kBits to a byte, most significant bits first.
template <int kBits>
inline uint32_t PackedSample(const uint8_t* row, int x) {
    constexpr int kPerByte = 8 / kBits;
    const int shift = 8 - kBits * (x % kPerByte + 1);
    return (row[x / kPerByte] >> shift) & ((1u << kBits) - 1);
}

template <int kBits>
void ConvertGreyPacked(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                       const unsigned char* map, bool keyed, uint32_t key, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 1, kBits), [&](const uint8_t* row, int x) {
                    const uint32_t g = map[PackedSample<kBits>(row, x)];
                    return Grey(g, keyed && g == key ? 0 : 255);
                });
}

template <int kBits>
void ConvertPalettePacked(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                          const unsigned int* palette, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 1, kBits),
                [&](const uint8_t* row, int x) { return palette[PackedSample<kBits>(row, x)]; });
}

void ConvertGrey8(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch, bool keyed,
                  uint32_t key, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 1, 8), [&](const uint8_t* row, int x) {
                    const uint32_t g = row[x];
                    return Grey(g, keyed && g == key ? 0 : 255);
                });
}

void ConvertGrey16(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                   bool keyed, uint32_t key, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 1, 16), [&](const uint8_t* row, int x) {
                    const uint8_t* s = row + 2 * x;
                    const uint32_t asStored = s[0] | static_cast<uint32_t>(s[1]) << 8;
                    return Grey(s[0], keyed && asStored == key ? 0 : 255);
                });
}

void ConvertTrueColor8(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                       bool keyed, uint32_t key, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 3, 8), [&](const uint8_t* row, int x) {
                    const uint8_t* s = row + 3 * x;
                    const uint32_t rgb = Rgb(s[0], s[1], s[2], 0);
                    return rgb | (keyed && rgb == key ? 0 : kOpaque);
                });
}

void ConvertTrueColor16(const uint8_t* src, uint8_t* dst, int width, int height, int dstPitch,
                        bool keyed, uint64_t key, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep,
                CNPngCodec::CalcLineBytes(width, 3, 16), [&](const uint8_t* row, int x) {
                    const uint8_t* s = row + 6 * x;
                    const uint64_t samples = static_cast<uint64_t>(s[0] << 8 | s[1]) << 32 |
                                             static_cast<uint64_t>(s[2] << 8 | s[3]) << 16 |
                                             static_cast<uint64_t>(s[4] << 8 | s[5]);
                    return Rgb(s[0], s[2], s[4], keyed && samples == key ? 0 : 255);
                });
}

// 8-bit RGB or RGBA: contiguous rows through the level kernel.
bool ConvertContiguous(ncb::png::SamplesToBgraFn kernel, int channels, const uint8_t* src,
                       uint8_t* dst, int width, int height, int dstPitch, int pixelStep) {
    if (pixelStep != 1) return false;
    const int lineBytes = CNPngCodec::CalcLineBytes(width, channels, 8);
    for (int y = 0; y < height; ++y) {
        kernel(src + static_cast<ptrdiff_t>(y) * lineBytes + 1,
               dst + static_cast<ptrdiff_t>(y) * dstPitch, width);
    }
    return true;
}

}  // namespace

void CNPngCodec::ConvertFromGrey1Bits(const unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstPitch, int pixelStep) {
    ConvertGreyPacked<1>(src, dst, width, height, dstPitch, s_uGreyMapTable1Bit, false, 0,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey2Bits(const unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstPitch, int pixelStep) {
    ConvertGreyPacked<2>(src, dst, width, height, dstPitch, s_uGreyMapTable2Bit, false, 0,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey4Bits(const unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstPitch, int pixelStep) {
    ConvertGreyPacked<4>(src, dst, width, height, dstPitch, s_uGreyMapTable4Bit, false, 0,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey8Bits(const unsigned char* src, unsigned char* dst, int width,
                                      int height, int dstPitch, int pixelStep) {
    ConvertGrey8(src, dst, width, height, dstPitch, false, 0, pixelStep);
}

void CNPngCodec::ConvertFromGrey16Bits(const unsigned char* src, unsigned char* dst, int width,
                                       int height, int dstPitch, int pixelStep) {
    ConvertGrey16(src, dst, width, height, dstPitch, false, 0, pixelStep);
}

void CNPngCodec::ConvertFromGreyAlpha8Bits(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep, CalcLineBytes(width, 2, 8),
                [](const uint8_t* row, int x) { return Grey(row[2 * x], row[2 * x + 1]); });
}

void CNPngCodec::ConvertFromGreyAlpha16Bits(const unsigned char* src, unsigned char* dst, int width,
                                            int height, int dstPitch, int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep, CalcLineBytes(width, 2, 16),
                [](const uint8_t* row, int x) { return Grey(row[4 * x], row[4 * x + 2]); });
}

void CNPngCodec::ConvertFromTrueColor8Bits(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, int pixelStep) {
    if (ConvertContiguous(ncb::png::ActivePngKernels().rgbToBgra, 3, src, dst, width, height,
                          dstPitch, pixelStep)) {
        return;
    }
    ConvertTrueColor8(src, dst, width, height, dstPitch, false, 0, pixelStep);
}

void CNPngCodec::ConvertFromTrueColor16Bits(const unsigned char* src, unsigned char* dst, int width,
                                            int height, int dstPitch, int pixelStep) {
    ConvertTrueColor16(src, dst, width, height, dstPitch, false, 0, pixelStep);
}

void CNPngCodec::ConvertFromTrueColorAlpha8Bits(const unsigned char* src, unsigned char* dst,
                                                int width, int height, int dstPitch,
                                                int pixelStep) {
    if (ConvertContiguous(ncb::png::ActivePngKernels().rgbaToBgra, 4, src, dst, width, height,
                          dstPitch, pixelStep)) {
        return;
    }
    ConvertRows(src, dst, width, height, dstPitch, pixelStep, CalcLineBytes(width, 4, 8),
                [](const uint8_t* row, int x) {
                    const uint8_t* s = row + 4 * x;
                    return Rgb(s[0], s[1], s[2], s[3]);
                });
}

void CNPngCodec::ConvertFromTrueColorAlpha16Bits(const unsigned char* src, unsigned char* dst,
                                                 int width, int height, int dstPitch,
                                                 int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep, CalcLineBytes(width, 4, 16),
                [](const uint8_t* row, int x) {
                    const uint8_t* s = row + 8 * x;
                    return Rgb(s[0], s[2], s[4], s[6]);
                });
}

void CNPngCodec::ConvertFromGrey1Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, unsigned int key,
                                           int pixelStep) {
    ConvertGreyPacked<1>(src, dst, width, height, dstPitch, s_uGreyMapTable1Bit, true, key,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey2Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, unsigned int key,
                                           int pixelStep) {
    ConvertGreyPacked<2>(src, dst, width, height, dstPitch, s_uGreyMapTable2Bit, true, key,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey4Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, unsigned int key,
                                           int pixelStep) {
    ConvertGreyPacked<4>(src, dst, width, height, dstPitch, s_uGreyMapTable4Bit, true, key,
                         pixelStep);
}

void CNPngCodec::ConvertFromGrey8Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                           int height, int dstPitch, unsigned int key,
                                           int pixelStep) {
    ConvertGrey8(src, dst, width, height, dstPitch, true, key, pixelStep);
}

void CNPngCodec::ConvertFromGrey16Bits_Tran(const unsigned char* src, unsigned char* dst, int width,
                                            int height, int dstPitch, unsigned int key,
                                            int pixelStep) {
    ConvertGrey16(src, dst, width, height, dstPitch, true, key, pixelStep);
}

void CNPngCodec::ConvertFromTrueColor8Bits_Tran(const unsigned char* src, unsigned char* dst,
                                                int width, int height, int dstPitch,
                                                unsigned int key, int pixelStep) {
    ConvertTrueColor8(src, dst, width, height, dstPitch, true, key, pixelStep);
}

void CNPngCodec::ConvertFromTrueColor16Bits_Tran(const unsigned char* src, unsigned char* dst,
                                                 int width, int height, int dstPitch, uint64_t key,
                                                 int pixelStep) {
    ConvertTrueColor16(src, dst, width, height, dstPitch, true, key, pixelStep);
}

void CNPngCodec::ConvertFromPal1Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, const unsigned int* palette,
                                     int pixelStep) {
    ConvertPalettePacked<1>(src, dst, width, height, dstPitch, palette, pixelStep);
}

void CNPngCodec::ConvertFromPal2Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, const unsigned int* palette,
                                     int pixelStep) {
    ConvertPalettePacked<2>(src, dst, width, height, dstPitch, palette, pixelStep);
}

void CNPngCodec::ConvertFromPal4Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, const unsigned int* palette,
                                     int pixelStep) {
    ConvertPalettePacked<4>(src, dst, width, height, dstPitch, palette, pixelStep);
}

void CNPngCodec::ConvertFromPal8Bits(const unsigned char* src, unsigned char* dst, int width,
                                     int height, int dstPitch, const unsigned int* palette,
                                     int pixelStep) {
    ConvertRows(src, dst, width, height, dstPitch, pixelStep, CalcLineBytes(width, 1, 8),
                [&](const uint8_t* row, int x) { return palette[row[x]]; });
}
