// Conversions among the RGB layouts (ConvertRGB) and between AYUV and RGB32.
//
// ConvertRGB handles every ordered pair of codes 257-260: a plain row copy
// for equal codes, one kernel for pairs with RGB32 on either side, and a
// widen-then-narrow pass through an RGB32 chunk for the others (exact, since
// widening leaves the low bits 0 and narrowing drops them).
//
// The AYUV pair uses the fixed-point tables one pixel at a time, as the
// single-colour helpers do, and carries alpha across; it has no vector
// kernels, so every level runs the same code.
#include "ncodecbase/video_processor.h"
#include "video/colour/rgb_pack_rows.h"
#include "video/copy/copy_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

bool IsRgb(int code) { return code >= VIDEO_FORMAT_RGB555 && code <= VIDEO_FORMAT_RGB32; }

using PackRow = void (*)(const uint8_t*, uint8_t*, int);

PackRow ToRgb32(int code, const RgbPackRowKernels& k) {
    switch (code) {
        case VIDEO_FORMAT_RGB24:
            return k.rgb24ToRgb32;
        case VIDEO_FORMAT_RGB565:
            return k.rgb565ToRgb32;
        case VIDEO_FORMAT_RGB555:
            return k.rgb555ToRgb32;
        default:
            return nullptr;
    }
}

PackRow FromRgb32(int code, const RgbPackRowKernels& k) {
    switch (code) {
        case VIDEO_FORMAT_RGB24:
            return k.rgb32ToRgb24;
        case VIDEO_FORMAT_RGB565:
            return k.rgb32ToRgb565;
        case VIDEO_FORMAT_RGB555:
            return k.rgb32ToRgb555;
        default:
            return nullptr;
    }
}

void ConvertRgbRow(const uint8_t* src, uint8_t* dst, int width, int inBytes, int outBytes,
                   PackRow widen, PackRow narrow) {
    alignas(16) uint8_t scratch[4 * kChunk];
    ForEachBlockChunk(width, [&](int x0, int n) {
        widen(src + inBytes * x0, scratch, n);
        narrow(scratch, dst + outBytes * x0, n);
    });
}

void AyuvToRgb32Row(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x) {
        const uint8_t* s = src + 4 * x;
        const unsigned int rgb = CNVideoProcessor::YUV2RGB(s[2] << 16 | s[1] << 8 | s[0]);
        uint8_t* d = dst + 4 * x;
        d[0] = static_cast<uint8_t>(rgb);
        d[1] = static_cast<uint8_t>(rgb >> 8);
        d[2] = static_cast<uint8_t>(rgb >> 16);
        d[3] = s[3];
    }
}

void Rgb32ToAyuvRow(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x) {
        const uint8_t* s = src + 4 * x;
        const unsigned int yuv = CNVideoProcessor::RGB2YUV(s[2] << 16 | s[1] << 8 | s[0]);
        uint8_t* d = dst + 4 * x;
        d[0] = static_cast<uint8_t>(yuv);
        d[1] = static_cast<uint8_t>(yuv >> 8);
        d[2] = static_cast<uint8_t>(yuv >> 16);
        d[3] = s[3];
    }
}

int RunTablePair(const PictureArgs& args, bool flip, int inCode, int outCode,
                 void (*row)(const uint8_t*, uint8_t*, int)) {
    Pictures p;
    if (!OpenPictures(args, &p) || p.inCode != inCode || p.outCode != outCode) return 1;
    if (flip) FlipPlanes(&p.out);
    for (int y = 0; y < p.height; ++y) row(RowAt(p.in.plane0, y), RowAt(p.out.plane0, y), p.width);
    return 1;
}

}  // namespace

int ConvertRgb(const PictureArgs& args, KernelSet set) {
    Pictures p;
    if (!OpenPictures(args, &p) || !IsRgb(p.inCode) || !IsRgb(p.outCode)) return 1;
    const RgbPackRowKernels& k = GetRgbPackRowKernels(set);
    const int inBytes = Bpp0(p.inCode), outBytes = Bpp0(p.outCode);
    const PackRow widen = ToRgb32(p.inCode, k);
    const PackRow narrow = FromRgb32(p.outCode, k);
    const auto copy = GetCopyKernels(set).copyRow;
    for (int y = 0; y < p.height; ++y) {
        const uint8_t* src = RowAt(p.in.plane0, y);
        uint8_t* dst = RowAt(p.out.plane0, y);
        if (p.inCode == p.outCode) {
            copy(src, dst, p.width * inBytes);
        } else if (!widen) {
            narrow(src, dst, p.width);
        } else if (!narrow) {
            widen(src, dst, p.width);
        } else {
            ConvertRgbRow(src, dst, p.width, inBytes, outBytes, widen, narrow);
        }
    }
    return 1;
}

int ConvertAyuvToRgb32(const PictureArgs& args, bool flip, KernelSet) {
    return RunTablePair(args, flip, VIDEO_FORMAT_AYUV, VIDEO_FORMAT_RGB32, AyuvToRgb32Row);
}

int ConvertRgb32ToAyuv(const PictureArgs& args, bool flip, KernelSet) {
    return RunTablePair(args, flip, VIDEO_FORMAT_RGB32, VIDEO_FORMAT_AYUV, Rgb32ToAyuvRow);
}

}  // namespace ncb::video

int CNVideoProcessor::ConvertRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                 VideoFormatInfoTag* pInputFormat,
                                 VideoFormatInfoTag* pOutputFormat, int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertRgb(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect), set);
}

int CNVideoProcessor::ConvertAYUVtoRGB32(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                         VideoFormatInfoTag* pInputFormat,
                                         VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                         int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertAyuvToRgb32(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        uFlip == 1, set);
}

int CNVideoProcessor::ConvertRGB32toAYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                         VideoFormatInfoTag* pInputFormat,
                                         VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                         int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertRgb32ToAyuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        uFlip == 1, set);
}
