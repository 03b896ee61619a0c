// Alpha blending of pictures and rectangle fills.
//
// A blend places the source area (its rectangle, or the whole picture) at
// (x, y) of the destination and mixes every plane at its own resolution;
// RGB32 and AYUV choose between constant and per-pixel alpha, with or
// without a colour key, the other layouts always use the constant alpha.
// Fills cover a rectangle of one picture with a colour, written as it is at
// alpha 255 and mixed with the fill weights otherwise; subsampled chroma
// takes every chroma sample the rectangle touches, once.
//
// Both clip what they touch to the destination picture (the callers place
// pictures inside it; clipping only guards against those that do not).
#include <algorithm>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/composite/composite_ops.h"
#include "video/composite/composite_rows.h"

namespace ncb::video::composite {
namespace {

bool BlendsRgb(int code) { return code >= VIDEO_FORMAT_RGB555 && code <= VIDEO_FORMAT_RGB32; }
bool BlendsYuv(int code) {
    return code == VIDEO_FORMAT_IYUV || code == VIDEO_FORMAT_YV12 ||
           (code >= VIDEO_FORMAT_NV12 && code <= VIDEO_FORMAT_AYUV);
}

// Clips [origin, origin + size) to [0, limit); moves `shift` by what the
// start lost.
void ClipAxis(int* origin, int* size, int limit, int* shift) {
    if (*origin < 0) {
        *shift -= *origin;
        *size += *origin;
        *origin = 0;
    }
    *size = std::min(*size, limit - *origin);
}

template <typename F>
void ForRows(const PlaneView& s, const PlaneView& d, F&& f) {
    for (int y = 0; y < s.height; ++y) f(RowAt(s, y), RowAt(d, y));
}

void BlendPlane(const CompositeKernels& k, const PlaneView& s, const PlaneView& d, int bytes,
                int a) {
    ForRows(s, d, [&](uint8_t* sr, uint8_t* dr) { k.blendBytes(sr, dr, a, bytes); });
}

}  // namespace

bool OpenPlaced(const PictureArgs& args, Placement at, Pictures* pictures) {
    if (!args.input || !args.output || !args.inputFormat || !args.outputFormat) return false;
    const VideoFormatInfo& inF = *args.inputFormat;
    const VideoFormatInfo& outF = *args.outputFormat;
    Region in;
    if (!ProcessingRegion(inF, args.useRect, &in)) return false;
    Region out;
    out.left = (args.useRect ? outF.nRectLeft : 0) + at.x;
    out.top = (args.useRect ? outF.nRectTop : 0) + at.y;
    ClipAxis(&out.left, &in.width, outF.nWidth, &in.left);
    ClipAxis(&out.top, &in.height, outF.nHeight, &in.top);
    if (in.width <= 0 || in.height <= 0) return false;
    out.width = in.width;
    out.height = in.height;
    auto* inBase = static_cast<uint8_t*>(args.input->GetAddress());
    auto* outBase = static_cast<uint8_t*>(args.output->GetAddress());
    if (!inBase || !outBase) return false;
    Pictures p;
    if (!GetPlanes(inF, inBase, in, &p.in) || !GetPlanes(outF, outBase, out, &p.out)) return false;
    p.inCode = inF.nCodecSubType;
    p.outCode = outF.nCodecSubType;
    p.width = in.width;
    p.height = in.height;
    *pictures = p;
    return true;
}

int AlphaBlending(bool rgb, const PictureArgs& args, Placement at, int mode, uint32_t alpha,
                  uint32_t key, KernelSet set) {
    if (!args.outputFormat || !args.inputFormat) return 1;
    const int code = args.outputFormat->nCodecSubType;
    if (rgb ? !BlendsRgb(code) : !BlendsYuv(code)) return 1;
    const bool word = code == VIDEO_FORMAT_RGB32 || code == VIDEO_FORMAT_AYUV;
    if (word && (mode < 0 || mode > 3)) return 0;
    if (args.inputFormat->nCodecSubType != code) return 1;
    Pictures p;
    if (!OpenPlaced(args, at, &p)) return 1;
    const CompositeKernels& k = GetCompositeKernels(set);
    // alpha 255 copies: weight 128 of 128 is exactly the source.
    const int a = (alpha & 0xFF) == 255 ? 128 : static_cast<int>((alpha & 0xFF) >> 1);
    const int w = p.width;
    if (word) {
        ForRows(p.in.plane0, p.out.plane0, [&](uint8_t* s, uint8_t* d) {
            switch (mode) {
                case 0:
                    k.blendBytes(s, d, a, 4 * w);
                    break;
                case 1:
                    k.blendPixelAlpha(s, d, w);
                    break;
                case 2:
                    k.blendConstKey(s, d, a, key, w);
                    break;
                default:
                    k.blendPixelAlphaKey(s, d, key, w);
                    break;
            }
        });
        return 1;
    }
    switch (code) {
        case VIDEO_FORMAT_RGB555:
        case VIDEO_FORMAT_RGB565:
            ForRows(p.in.plane0, p.out.plane0, [&](uint8_t* s, uint8_t* d) {
                (code == VIDEO_FORMAT_RGB565 ? k.blend565 : k.blend555)(s, d, a, w);
            });
            return 1;
        case VIDEO_FORMAT_RGB24:
            BlendPlane(k, p.in.plane0, p.out.plane0, 3 * w, a);
            return 1;
        case VIDEO_FORMAT_NV12:
            BlendPlane(k, p.in.plane0, p.out.plane0, w, a);
            BlendPlane(k, p.in.u, p.out.u, 2 * p.in.u.width, a);
            return 1;
        case VIDEO_FORMAT_IYUV:
        case VIDEO_FORMAT_YV12:
            BlendPlane(k, p.in.plane0, p.out.plane0, w, a);
            BlendPlane(k, p.in.u, p.out.u, p.in.u.width, a);
            BlendPlane(k, p.in.v, p.out.v, p.in.v.width, a);
            return 1;
        default:  // packed 4:2:2
            BlendPlane(k, p.in.plane0, p.out.plane0, 2 * w, a);
            return 1;
    }
}

namespace {

// A fill of `bytes` bytes from `row`, solid or mixed.
struct FillOp {
    const CompositeKernels* k;
    FillPattern pattern;
    int a;  // -1: solid
    void Run(uint8_t* row, int bytes) const {
        if (bytes <= 0) return;
        if (a < 0) {
            k->fill(row, &pattern, bytes);
        } else {
            k->fillBlend(row, &pattern, a, bytes);
        }
    }
};

// Rows [top, top + h) and bytes [x0, x1) of a plane of the whole picture.
void FillBlock(const FillOp& op, const PlaneView& plane, int top, int h, int x0, int x1) {
    for (int y = top; y < top + h; ++y) op.Run(RowAt(plane, y) + x0, x1 - x0);
}

// A packed 4:2:2 row: whole pairs through the pattern, and for a pair that
// the rectangle covers by one pixel, that pixel's luma and the pair's
// chroma. Bytes past the row end (a pair cut by an odd picture width) stay.
void FillPackedRow(const FillOp& op, uint8_t* row, int rowBytes, int left, int w, int lumaFirst) {
    const FillOp one{op.k, {}, op.a};
    auto byte = [&](uint8_t* at, uint8_t value) {
        FillOp single = one;
        single.pattern = MakeFillPattern(&value, 1);
        single.Run(at, 1);
    };
    const uint8_t* pair = op.pattern.bytes;  // luma at lumaFirst and lumaFirst + 2
    auto partial = [&](int pairIndex, int pixelInPair) {
        uint8_t* at = row + 4 * pairIndex;
        for (int b = 0; b < 4; ++b) {
            const bool luma = b == lumaFirst || b == lumaFirst + 2;
            const bool mine = b == lumaFirst + 2 * pixelInPair;
            if ((!luma || mine) && 4 * pairIndex + b < rowBytes) byte(at + b, pair[b]);
        }
    };
    const int right = left + w;
    if (left & 1) partial(left >> 1, 1);
    const int first = (left + 1) >> 1, last = right >> 1;
    if (last > first) op.Run(row + 4 * first, std::min(4 * last, rowBytes) - 4 * first);
    if ((right & 1) && (right >> 1) >= first) partial(right >> 1, 0);
}

}  // namespace

int FillRect(bool rgb, CNCodecBuffer* buffer, const VideoFormatInfo* format, uint32_t colour, int x,
             int y, int width, int height, bool useRect, KernelSet set) {
    if (!format) return 0;
    const int code = format->nCodecSubType;
    if (rgb ? !BlendsRgb(code) : !BlendsYuv(code)) return 0;
    if (!buffer) return 1;
    int left = x + (useRect ? format->nRectLeft : 0);
    int top = y + (useRect ? format->nRectTop : 0);
    int unused = 0;
    ClipAxis(&left, &width, format->nWidth, &unused);
    ClipAxis(&top, &height, format->nHeight, &unused);
    auto* base = static_cast<uint8_t*>(buffer->GetAddress());
    PlaneSet planes;
    if (width <= 0 || height <= 0 || !base || !GetPlanes(*format, base, false, &planes)) return 1;

    const CompositeKernels& k = GetCompositeKernels(set);
    const uint32_t alpha = colour >> 24;
    FillOp op{&k, {}, alpha == 255 ? -1 : static_cast<int>(alpha >> 1)};
    const uint8_t c0 = colour & 255, c1 = colour >> 8 & 255, c2 = colour >> 16 & 255;
    const uint8_t c3 = colour >> 24;
    const int right = left + width;
    const int bpp = Bpp0(code);
    switch (code) {
        case VIDEO_FORMAT_RGB555:
        case VIDEO_FORMAT_RGB565: {
            const bool is565 = code == VIDEO_FORMAT_RGB565;
            const uint32_t word = is565 ? CNVideoProcessor::RGB32_RGB565(colour & 0xFFFFFF)
                                        : CNVideoProcessor::RGB32_RGB555(colour & 0xFFFFFF);
            if (op.a < 0) {
                const uint8_t px[2] = {static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8)};
                op.pattern = MakeFillPattern(px, 2);
                FillBlock(op, planes.plane0, top, height, 2 * left, 2 * right);
            } else {
                for (int r = top; r < top + height; ++r)
                    (is565 ? k.fillBlend565 : k.fillBlend555)(RowAt(planes.plane0, r) + 2 * left,
                                                              word, op.a, width);
            }
            return 1;
        }
        case VIDEO_FORMAT_RGB24:
        case VIDEO_FORMAT_RGB32:
        case VIDEO_FORMAT_AYUV: {
            const uint8_t px[4] = {c0, c1, c2, c3};
            op.pattern = MakeFillPattern(px, bpp);
            FillBlock(op, planes.plane0, top, height, bpp * left, bpp * right);
            return 1;
        }
        case VIDEO_FORMAT_IYUV:
        case VIDEO_FORMAT_YV12:
        case VIDEO_FORMAT_NV12: {
            // Y, then the chroma samples the rectangle touches.
            op.pattern = MakeFillPattern(&c2, 1);
            FillBlock(op, planes.plane0, top, height, left, right);
            const int ctop = top >> 1, cbottom = ((top + height - 1) >> 1) + 1;
            const int cleft = left >> 1, cright = ((right - 1) >> 1) + 1;
            const int rows = std::min(cbottom, planes.u.height) - ctop;
            const int cr = std::min(cright, planes.u.width);
            if (code == VIDEO_FORMAT_NV12) {
                const uint8_t uv[2] = {c1, c0};
                op.pattern = MakeFillPattern(uv, 2);
                FillBlock(op, planes.u, ctop, rows, 2 * cleft, 2 * cr);
            } else {
                op.pattern = MakeFillPattern(&c1, 1);
                FillBlock(op, planes.u, ctop, rows, cleft, cr);
                op.pattern = MakeFillPattern(&c0, 1);
                FillBlock(op, planes.v, ctop, rows, cleft, cr);
            }
            return 1;
        }
        default: {  // packed 4:2:2: Y0 U Y1 V and its three reorderings
            static const int kOrder[4][4] = {
                {2, 1, 2, 0}, {2, 0, 2, 1}, {1, 2, 0, 2}, {0, 2, 1, 2}};
            const uint8_t yuv[3] = {c0, c1, c2};  // V, U, Y
            const int* order = kOrder[code - VIDEO_FORMAT_YUY2];
            const uint8_t px[4] = {yuv[order[0]], yuv[order[1]], yuv[order[2]], yuv[order[3]]};
            op.pattern = MakeFillPattern(px, 4);
            const int lumaFirst = order[0] == 2 ? 0 : 1;
            for (int r = top; r < top + height; ++r)
                FillPackedRow(op, RowAt(planes.plane0, r), 2 * format->nWidth, left, width,
                              lumaFirst);
            return 1;
        }
    }
}

}  // namespace ncb::video::composite

namespace {

namespace cp = ncb::video::composite;

int Blend(bool rgb, CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
          CNVideoProcessor::VideoFormatInfoTag* pSourceFormat,
          CNVideoProcessor::VideoFormatInfoTag* pDestinationFormat, int nX, int nY, int nMode,
          unsigned int uAlpha, unsigned int uColorKey, int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return cp::AlphaBlending(rgb,
                             ncb::video::MakePictureArgs(pSource, pDestination, pSourceFormat,
                                                         pDestinationFormat, nUseRect),
                             {nX, nY}, nMode, uAlpha, uColorKey, set);
}

int Fill(bool rgb, CNCodecBuffer* pBuffer, CNVideoProcessor::VideoFormatInfoTag* pFormat,
         unsigned int uColor, int nX, int nY, int nWidth, int nHeight, int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return cp::FillRect(rgb, pBuffer, pFormat, uColor, nX, nY, nWidth, nHeight, nUseRect == 1, set);
}

}  // namespace

int CNVideoProcessor::AlphaBlendingRGB(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                       VideoFormatInfoTag* pSourceFormat,
                                       VideoFormatInfoTag* pDestinationFormat, int nX, int nY,
                                       int nMode, unsigned int uAlpha, unsigned int uColorKey,
                                       int nUseRect, int nLevel) {
    return Blend(true, pSource, pDestination, pSourceFormat, pDestinationFormat, nX, nY, nMode,
                 uAlpha, uColorKey, nUseRect, nLevel);
}

int CNVideoProcessor::AlphaBlendingYUV(CNCodecBuffer* pSource, CNCodecBuffer* pDestination,
                                       VideoFormatInfoTag* pSourceFormat,
                                       VideoFormatInfoTag* pDestinationFormat, int nX, int nY,
                                       int nMode, unsigned int uAlpha, unsigned int uColorKey,
                                       int nUseRect, int nLevel) {
    return Blend(false, pSource, pDestination, pSourceFormat, pDestinationFormat, nX, nY, nMode,
                 uAlpha, uColorKey, nUseRect, nLevel);
}

int CNVideoProcessor::FillRectRGB(CNCodecBuffer* pBuffer, VideoFormatInfoTag* pFormat,
                                  unsigned int uColor, int nX, int nY, int nWidth, int nHeight,
                                  int nUseRect, int nLevel) {
    return Fill(true, pBuffer, pFormat, uColor, nX, nY, nWidth, nHeight, nUseRect, nLevel);
}

int CNVideoProcessor::FillRectYUV(CNCodecBuffer* pBuffer, VideoFormatInfoTag* pFormat,
                                  unsigned int uColor, int nX, int nY, int nWidth, int nHeight,
                                  int nUseRect, int nLevel) {
    return Fill(false, pBuffer, pFormat, uColor, nX, nY, nWidth, nHeight, nUseRect, nLevel);
}
