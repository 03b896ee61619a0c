// Plain copies: rows between two pitches (DirectCopyData) and whole pictures
// of one layout (DirectCopyYUV, DirectCopyRGB), plane by plane, with each
// descriptor's own padding, rectangle origin and bottom-up rows, optionally
// writing the destination bottom-up.
//
// Rows that lie back to back in both pictures are copied as one block.
// Pictures of different layouts are not converted here (the conversions do
// that); only the three 4:2:0 planar codes may be copied into one another,
// plane for plane.
#include <climits>

#include "ncodecbase/video_processor.h"
#include "video/copy/copy_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

bool IsPlanar420(int code) {
    return code == VIDEO_FORMAT_YUV420 || code == VIDEO_FORMAT_IYUV || code == VIDEO_FORMAT_YV12;
}

bool CopiesYuv(int code) {
    return (code >= VIDEO_FORMAT_Y800 && code <= VIDEO_FORMAT_YUV444) ||
           code == VIDEO_FORMAT_IYUV || (code >= VIDEO_FORMAT_YV12 && code <= VIDEO_FORMAT_IA44);
}

bool CopiesRgb(int code) { return code >= VIDEO_FORMAT_RGB555 && code <= VIDEO_FORMAT_RGB32; }

bool SameLayout(int in, int out) { return in == out || (IsPlanar420(in) && IsPlanar420(out)); }

void CopyView(const PlaneView& src, const PlaneView& dst, int rowBytes, KernelSet set) {
    CopyData(src.data, dst.data, rowBytes, src.height, src.pitch, dst.pitch, set);
}

int CopyPicture(const PictureArgs& args, bool flip, KernelSet set, bool (*codeOk)(int)) {
    Pictures p;
    if (!OpenPictures(args, &p) || !codeOk(p.inCode) || !SameLayout(p.inCode, p.outCode)) return 1;
    FormatLayout layout;
    if (!GetFormatLayout(p.inCode, &layout)) return 1;
    if (flip) FlipPlanes(&p.out);
    CopyView(p.in.plane0, p.out.plane0, p.width * layout.bpp0, set);
    const int chromaBytes = layout.pairs ? 2 : 1;
    if (p.in.count > 1) CopyView(p.in.u, p.out.u, p.in.u.width * chromaBytes, set);
    if (p.in.count > 2) CopyView(p.in.v, p.out.v, p.in.v.width, set);
    return 1;
}

}  // namespace

void CopyData(const uint8_t* src, uint8_t* dst, int rowBytes, int rows, ptrdiff_t srcPitch,
              ptrdiff_t dstPitch, KernelSet set) {
    if (!src || !dst || rowBytes <= 0 || rows <= 0) return;
    const auto copy = GetCopyKernels(set).copyRow;
    if (srcPitch == rowBytes && dstPitch == rowBytes) {
        // One block; int-sized pieces for the kernel.
        int64_t left = int64_t{rowBytes} * rows;
        while (left > 0) {
            const int piece = left > INT_MAX / 2 ? INT_MAX / 2 : static_cast<int>(left);
            copy(src, dst, piece);
            src += piece;
            dst += piece;
            left -= piece;
        }
        return;
    }
    for (int y = 0; y < rows; ++y) copy(src + y * srcPitch, dst + y * dstPitch, rowBytes);
}

int CopyYuv(const PictureArgs& args, bool flip, KernelSet set) {
    return CopyPicture(args, flip, set, CopiesYuv);
}

int CopyRgb(const PictureArgs& args, bool flip, KernelSet set) {
    return CopyPicture(args, flip, set, CopiesRgb);
}

}  // namespace ncb::video

void CNVideoProcessor::DirectCopyData(unsigned char* pSource, unsigned char* pDestination,
                                      int nRowBytes, int nRows, int nSourcePitch,
                                      int nDestinationPitch, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return;
    ncb::video::CopyData(pSource, pDestination, nRowBytes, nRows, nSourcePitch, nDestinationPitch,
                         set);
}

int CNVideoProcessor::DirectCopyYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                    VideoFormatInfoTag* pInputFormat,
                                    VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                    int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::CopyYuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        uFlip == 1, set);
}

int CNVideoProcessor::DirectCopyRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                    VideoFormatInfoTag* pInputFormat,
                                    VideoFormatInfoTag* pOutputFormat, unsigned int uFlip,
                                    int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::CopyRgb(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        uFlip == 1, set);
}
