// Edge-directed de-interlacing of generic planar YUV (codes 1-4), each plane
// at its own size: even rows are copied, every odd row is rebuilt from the
// output row above it and the source row below it (copy_rows.h has the
// rule). Rows are produced top to bottom, so the row above is always
// final, and input and output may be the same picture (even rows then stay
// where they are and the source row below is still unchanged).
#include "ncodecbase/video_processor.h"
#include "video/copy/copy_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

void DeinterlacePlane(const PlaneView& src, const PlaneView& dst, int width, const CopyKernels& k) {
    for (int y = 0; y < src.height; ++y) {
        const uint8_t* current = RowAt(src, y);
        uint8_t* out = RowAt(dst, y);
        if ((y & 1) == 0) {
            if (current != out) k.copyRow(current, out, width);
            continue;
        }
        const uint8_t* above = RowAt(dst, y - 1);
        const uint8_t* below = y + 1 < src.height ? RowAt(src, y + 1) : above;
        k.deinterlaceRow(above, current, below, out, width);
    }
}

}  // namespace

int Deinterlace(const PictureArgs& args, KernelSet set) {
    Pictures p;
    if (!OpenPictures(args, &p) || p.inCode != p.outCode || p.inCode < VIDEO_FORMAT_Y800 ||
        p.inCode > VIDEO_FORMAT_YUV444) {
        return 1;
    }
    const CopyKernels& k = GetCopyKernels(set);
    DeinterlacePlane(p.in.plane0, p.out.plane0, p.in.plane0.width, k);
    if (p.in.count > 1) DeinterlacePlane(p.in.u, p.out.u, p.in.u.width, k);
    if (p.in.count > 2) DeinterlacePlane(p.in.v, p.out.v, p.in.v.width, k);
    return 1;
}

}  // namespace ncb::video

int CNVideoProcessor::DeInterlacedYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                      VideoFormatInfoTag* pInputFormat,
                                      VideoFormatInfoTag* pOutputFormat, int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::Deinterlace(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect), set);
}
