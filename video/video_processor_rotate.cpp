// Quarter-turn rotations of RGB32 (RotateRGB) and of planar YUV and AYUV
// pictures (RotateYUV), each plane at its own resolution.
//
// A clockwise quarter turn is a transpose of the source walked from its last
// row up; a counter-clockwise one is a transpose written into the
// destination from its last row up; a half turn reverses every row into the
// mirrored row. So three kernels (8-bit transpose, 32-bit transpose, row
// reversal) cover every case, and the plane views carry the direction.
#include "ncodecbase/video_processor.h"
#include "video/copy/copy_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

bool RotatesYuv(int code) {
    return code == VIDEO_FORMAT_Y800 || code == VIDEO_FORMAT_YUV420 || code == VIDEO_FORMAT_IYUV ||
           code == VIDEO_FORMAT_YV12 || code == VIDEO_FORMAT_YUV444 || code == VIDEO_FORMAT_AYUV;
}

bool RotatesRgb(int code) { return code == VIDEO_FORMAT_RGB32; }

bool SameLayout(int in, int out) {
    auto planar420 = [](int c) {
        return c == VIDEO_FORMAT_YUV420 || c == VIDEO_FORMAT_IYUV || c == VIDEO_FORMAT_YV12;
    };
    return in == out || (planar420(in) && planar420(out));
}

void RotatePlane(const PlaneView& src, const PlaneView& dst, int rotation, bool wide,
                 const CopyKernels& k) {
    switch (rotation) {
        case 0: {
            const PlaneView up = FlipRows(src);
            (wide ? k.transpose32 : k.transpose8)(up.data, up.pitch, dst.data, dst.pitch, src.width,
                                                  src.height);
            break;
        }
        case 1: {
            const PlaneView down = FlipRows(dst);
            const auto reverse = wide ? k.reverse32 : k.reverse8;
            for (int y = 0; y < src.height; ++y) reverse(RowAt(src, y), RowAt(down, y), src.width);
            break;
        }
        default: {
            const PlaneView up = FlipRows(dst);
            (wide ? k.transpose32 : k.transpose8)(src.data, src.pitch, up.data, up.pitch, src.width,
                                                  src.height);
            break;
        }
    }
}

int Rotate(const PictureArgs& args, int rotation, KernelSet set, bool (*codeOk)(int)) {
    if (rotation < 0 || rotation > 2) return 0;
    if (!args.inputFormat) return 1;
    Region in;
    if (!ProcessingRegion(*args.inputFormat, args.useRect, &in)) return 1;
    Region outSize = in;
    if (rotation != 1) {
        outSize.width = in.height;
        outSize.height = in.width;
    }
    Pictures p;
    if (!OpenPictures(args, &p, &outSize) || !codeOk(p.inCode) || !SameLayout(p.inCode, p.outCode))
        return 1;
    const CopyKernels& k = GetCopyKernels(set);
    const bool wide = Bpp0(p.inCode) == 4;
    RotatePlane(p.in.plane0, p.out.plane0, rotation, wide, k);
    if (p.in.count > 1) RotatePlane(p.in.u, p.out.u, rotation, false, k);
    if (p.in.count > 2) RotatePlane(p.in.v, p.out.v, rotation, false, k);
    return 1;
}

}  // namespace

int RotateRgb(const PictureArgs& args, int rotation, KernelSet set) {
    return Rotate(args, rotation, set, RotatesRgb);
}

int RotateYuv(const PictureArgs& args, int rotation, KernelSet set) {
    return Rotate(args, rotation, set, RotatesYuv);
}

}  // namespace ncb::video

int CNVideoProcessor::RotateRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                                int nRotation, int nUseRect, int nLevel) {
    if (nRotation < 0 || nRotation > 2) return 0;
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::RotateRgb(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        nRotation, set);
}

int CNVideoProcessor::RotateYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                VideoFormatInfoTag* pInputFormat, VideoFormatInfoTag* pOutputFormat,
                                int nRotation, int nUseRect, int nLevel) {
    if (nRotation < 0 || nRotation > 2) return 0;
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::RotateYuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        nRotation, set);
}
