// The copies of compositing: RGB32 pixels copied where their alpha is not 0,
// where they differ from a colour key, or mixed by their own alpha; AI44
// subtitle pictures drawn or expanded through their palette; opaque black
// made transparent; alpha levels set or scaled; and the flat alpha fill.
//
// The AI44 palette travels in the picture's additional information: 16
// AYUV entries, then (when the block is 128 bytes or more) the same 16 as
// RGB32, which are used as they are; a shorter block has its RGB32 entries
// converted on each call. Palette look-ups are scalar at every level: one
// table read per pixel is the whole work.
#include <cstring>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/composite/composite_ops.h"
#include "video/composite/composite_rows.h"

namespace ncb::video::composite {
namespace {

uint32_t Word(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
void PutWord(uint8_t* p, uint32_t v) { std::memcpy(p, &v, 4); }

template <typename F>
void ForRows(const Pictures& p, F&& f) {
    for (int y = 0; y < p.height; ++y) f(RowAt(p.in.plane0, y), RowAt(p.out.plane0, y));
}

bool OpenSame(const PictureArgs& args, int inCode, int outCode, bool flipInput, Pictures* p) {
    if (!OpenPictures(args, p) || p->inCode != inCode || p->outCode != outCode) return false;
    if (flipInput) p->in.plane0 = FlipRows(p->in.plane0);
    return true;
}

}  // namespace

bool ReadAi44Palette(CNCodecBuffer* buffer, Ai44Palette* out) {
    const auto* info = buffer ? static_cast<const uint8_t*>(buffer->GetAddiInfo()) : nullptr;
    const int size = buffer ? buffer->GetAddiInfoSize() : 0;
    if (!info || size < 64) return false;
    for (int i = 0; i < 16; ++i) {
        out->ayuv[i] = Word(info + 4 * i);
        out->rgb[i] = size >= 128 ? Word(info + 64 + 4 * i)
                                  : (CNVideoProcessor::YUV2RGB(out->ayuv[i] & 0x00FFFFFFu) |
                                     (out->ayuv[i] & 0xFF000000u));
    }
    return true;
}

int CopyKeyed(KeyedCopy kind, const PictureArgs& args, Placement at, uint32_t key, KernelSet set) {
    const int inCode = kind == KeyedCopy::kAi44 ? VIDEO_FORMAT_AI44 : VIDEO_FORMAT_RGB32;
    if (!args.inputFormat || !args.outputFormat || args.inputFormat->nCodecSubType != inCode ||
        args.outputFormat->nCodecSubType != VIDEO_FORMAT_RGB32)
        return 1;
    Pictures p;
    if (!OpenPlaced(args, at, &p)) return 1;
    const CompositeKernels& k = GetCompositeKernels(set);
    const int w = p.width;
    switch (kind) {
        case KeyedCopy::kAlphaNonZero:
            ForRows(p, [&](uint8_t* s, uint8_t* d) { k.copyAlphaNonZero(s, d, w); });
            break;
        case KeyedCopy::kNotKey:
            ForRows(p, [&](uint8_t* s, uint8_t* d) { k.copyNotKey(s, d, key, w); });
            break;
        case KeyedCopy::kJustReadAlpha:
            ForRows(p, [&](uint8_t* s, uint8_t* d) { k.copyJustReadAlpha(s, d, key, w); });
            break;
        case KeyedCopy::kAi44: {
            Ai44Palette palette;
            if (!ReadAi44Palette(args.input, &palette)) return 1;
            ForRows(p, [&](uint8_t* s, uint8_t* d) {
                for (int x = 0; x < w; ++x)
                    if (s[x] > 15) PutWord(d + 4 * x, palette.rgb[s[x] & 15]);
            });
            break;
        }
    }
    return 1;
}

int ConvertFromAi44(const PictureArgs& args, bool flip, KernelSet) {
    if (!args.outputFormat) return 1;
    const int out = args.outputFormat->nCodecSubType;
    if (out != VIDEO_FORMAT_AYUV && out != VIDEO_FORMAT_RGB32 && out != VIDEO_FORMAT_IA44) return 1;
    Pictures p;
    if (!OpenSame(args, VIDEO_FORMAT_AI44, out, flip, &p)) return 1;
    const int w = p.width;
    if (out == VIDEO_FORMAT_IA44) {
        ForRows(p, [w](uint8_t* s, uint8_t* d) {
            for (int x = 0; x < w; ++x) d[x] = static_cast<uint8_t>(s[x] << 4 | s[x] >> 4);
        });
        return 1;
    }
    Ai44Palette palette;
    if (!ReadAi44Palette(args.input, &palette)) return 1;
    const uint32_t* entries = out == VIDEO_FORMAT_AYUV ? palette.ayuv : palette.rgb;
    ForRows(p, [&](uint8_t* s, uint8_t* d) {
        for (int x = 0; x < w; ++x)
            PutWord(d + 4 * x, entries[s[x] & 15] | static_cast<uint32_t>((s[x] >> 4) * 0x11)
                                                        << 24);
    });
    return 1;
}

int CopyModifyBackground(const PictureArgs& args, bool flip, KernelSet set) {
    Pictures p;
    if (!OpenSame(args, VIDEO_FORMAT_RGB32, VIDEO_FORMAT_RGB32, flip, &p)) return 1;
    const CompositeKernels& k = GetCompositeKernels(set);
    ForRows(p, [&](uint8_t* s, uint8_t* d) { k.copyModifyBackground(s, d, p.width); });
    return 1;
}

int AdjustAlphaRgb(const PictureArgs& args, uint32_t value, uint32_t scale, KernelSet set) {
    Pictures p;
    if (!OpenSame(args, VIDEO_FORMAT_RGB32, VIDEO_FORMAT_RGB32, false, &p)) return 1;
    const CompositeKernels& k = GetCompositeKernels(set);
    ForRows(p, [&](uint8_t* s, uint8_t* d) {
        if (value != 0) {
            k.alphaSet(s, d, value, p.width);
        } else {
            k.alphaScale(s, d, scale, p.width);
        }
    });
    return 1;
}

int AdjustAlphaAi44(const PictureArgs& args, uint32_t value, uint32_t scale, KernelSet) {
    Pictures p;
    if (!OpenSame(args, VIDEO_FORMAT_AI44, VIDEO_FORMAT_AI44, false, &p)) return 1;
    const int w = p.width;
    ForRows(p, [&](uint8_t* s, uint8_t* d) {
        for (int x = 0; x < w; ++x) {
            const uint32_t b = s[x];
            if (value != 0) {
                d[x] = static_cast<uint8_t>((b & 0xF0) ? (value & 0xF0) | (b & 0x0F) : b);
            } else {
                d[x] = static_cast<uint8_t>((((b * scale) >> 8) & 0xF0) | (b & 0x0F));
            }
        }
    });
    return 1;
}

int FillAlphaFlat(uint8_t* data, int count, uint32_t alpha, KernelSet set) {
    if (!data || count <= 0) return 1;
    GetCompositeKernels(set).alphaFlat(data, alpha & 0xFF, count);
    return 1;
}

}  // namespace ncb::video::composite

namespace {

namespace cp = ncb::video::composite;
using Tag = CNVideoProcessor::VideoFormatInfoTag;

template <typename F>
int AtLevel(int level, F&& f) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(level, &set)) return 1;
    return f(set);
}

ncb::video::PictureArgs Args(CNCodecBuffer* s, CNCodecBuffer* d, Tag* sf, Tag* df, int useRect) {
    return ncb::video::MakePictureArgs(s, d, sf, df, useRect);
}

}  // namespace

int CNVideoProcessor::FillRectRGB32_NoRead(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                           VideoFormatInfoTag* pSourceFormat,
                                           VideoFormatInfoTag* pDestinationFormat, int nX, int nY,
                                           int nUseRect, int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::CopyKeyed(
            cp::KeyedCopy::kAlphaNonZero,
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), {nX, nY}, 0,
            set);
    });
}

int CNVideoProcessor::FillRectRGB32WithColorKey_NoRead(CNCodecBuffer* pSource,
                                                       CNCodecBuffer* pDestination,
                                                       VideoFormatInfoTag* pSourceFormat,
                                                       VideoFormatInfoTag* pDestinationFormat,
                                                       int nX, int nY, unsigned int uColorKey,
                                                       int nUseRect, int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::CopyKeyed(
            cp::KeyedCopy::kNotKey,
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), {nX, nY},
            uColorKey, set);
    });
}

int CNVideoProcessor::FillRectRGB32WithColorKey_JustReadAlpha(
    CNCodecBuffer* pSource, CNCodecBuffer* pDestination, VideoFormatInfoTag* pSourceFormat,
    VideoFormatInfoTag* pDestinationFormat, int nX, int nY, unsigned int uColorKey, int nUseRect,
    int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::CopyKeyed(
            cp::KeyedCopy::kJustReadAlpha,
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), {nX, nY},
            uColorKey, set);
    });
}

int CNVideoProcessor::FillRectRGB32WithAI44_NoRead(CNCodecBuffer* pSource,
                                                   CNCodecBuffer* pDestination,
                                                   VideoFormatInfoTag* pSourceFormat,
                                                   VideoFormatInfoTag* pDestinationFormat, int nX,
                                                   int nY, int nUseRect, int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::CopyKeyed(
            cp::KeyedCopy::kAi44,
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), {nX, nY}, 0,
            set);
    });
}

int CNVideoProcessor::ConvertFromAI44(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                      VideoFormatInfoTag* pSourceFormat,
                                      VideoFormatInfoTag* pDestinationFormat, unsigned int uFlip,
                                      int nUseRect, int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::ConvertFromAi44(
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), uFlip == 1,
            set);
    });
}

int CNVideoProcessor::CopyRGB32_ModifyBackground(CNCodecBuffer* pSource,
                                                 CNCodecBuffer* pDestination,
                                                 VideoFormatInfoTag* pSourceFormat,
                                                 VideoFormatInfoTag* pDestinationFormat,
                                                 unsigned int uFlip, int nUseRect, int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::CopyModifyBackground(
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), uFlip == 1,
            set);
    });
}

int CNVideoProcessor::AdjustAlphaLevelRGB(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                          VideoFormatInfoTag* pSourceFormat,
                                          VideoFormatInfoTag* pDestinationFormat,
                                          unsigned int uLevel, unsigned int uScale, int nUseRect,
                                          int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::AdjustAlphaRgb(
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), uLevel,
            uScale, set);
    });
}

int CNVideoProcessor::AdjustAlphaLevelYUV(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                          VideoFormatInfoTag* pSourceFormat,
                                          VideoFormatInfoTag* pDestinationFormat,
                                          unsigned int uLevel, unsigned int uScale, int nUseRect,
                                          int nLevel) {
    return AtLevel(nLevel, [&](auto set) {
        return cp::AdjustAlphaAi44(
            Args(pSource, pDestination, pSourceFormat, pDestinationFormat, nUseRect), uLevel,
            uScale, set);
    });
}

int CNVideoProcessor::FillAlphaRGB32_InPlaceFlat(unsigned char* pData, int nPixelCount,
                                                 unsigned int uAlpha, int nLevel) {
    return AtLevel(nLevel,
                   [&](auto set) { return cp::FillAlphaFlat(pData, nPixelCount, uAlpha, set); });
}
