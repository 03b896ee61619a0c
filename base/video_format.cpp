// Plane arithmetic of the video descriptor. One table says what each format
// code looks like; everything else (pitches, plane starts, the rectangle,
// bottom-up rows, the allocation rule) is derived from it with 64-bit checked
// arithmetic, so a hostile descriptor yields a refusal, never an address
// outside the frame.
//
// Not done here: checking a frame against the size of the buffer that holds
// it (callers guarantee that, and only they know the buffer), and any
// per-operation rule such as flipping the output, which kernels apply with
// FlipRows.
#include "base/video_format.h"

#include <algorithm>

#include "base/checked_size.h"
#include "ncodecbase/codec_buffer.h"

namespace ncb {
namespace {

constexpr int kDescriptorBytes = 104;
constexpr int kRowAlign = 16;

struct CodeEntry {
    int code;
    FormatLayout layout;
};

// bpp0, chroma planes, shift x, shift y, rgb, pairs
constexpr CodeEntry kCodes[] = {
    {VIDEO_FORMAT_Y800, {1, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_YUV420, {1, 2, 1, 1, false, false}},
    {VIDEO_FORMAT_YUV422, {1, 2, 1, 0, false, false}},
    {VIDEO_FORMAT_YUV444, {1, 2, 0, 0, false, false}},
    {VIDEO_FORMAT_YUV440, {1, 2, 0, 1, false, false}},
    {VIDEO_FORMAT_IYUV, {1, 2, 1, 1, false, false}},
    {VIDEO_FORMAT_I420, {1, 2, 1, 1, false, false}},
    {VIDEO_FORMAT_YV12, {1, 2, 1, 1, false, false}},
    {VIDEO_FORMAT_NV12, {1, 1, 1, 1, false, true}},
    {VIDEO_FORMAT_YUY2, {2, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_YVYU, {2, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_UYVY, {2, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_VYUY, {2, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_AYUV, {4, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_AI44, {1, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_IA44, {1, 0, 0, 0, false, false}},
    {VIDEO_FORMAT_RGB555, {2, 0, 0, 0, true, false}},
    {VIDEO_FORMAT_RGB565, {2, 0, 0, 0, true, false}},
    {VIDEO_FORMAT_RGB24, {3, 0, 0, 0, true, false}},
    {VIDEO_FORMAT_RGB32, {4, 0, 0, 0, true, false}},
};

const FormatLayout* FindLayout(int code) {
    for (const CodeEntry& e : kCodes) {
        if (e.code == code) return &e.layout;
    }
    return nullptr;
}

bool AllNonNegative(const VideoFormatInfo& f) {
    const int32_t words[] = {
        f.nWidth,     f.nHeight,        f.nPadLeft,        f.nPadRight,     f.nPadTop,
        f.nPadBottom, f.nChromaPadLeft, f.nChromaPadRight, f.nChromaPadTop, f.nChromaPadBottom};
    return std::all_of(std::begin(words), std::end(words), [](int32_t w) { return w >= 0; });
}

// Bytes of one chroma row of picture: samples, or both bytes of each pair
// (NV12 rows are nWidth bytes, odd widths included).
int64_t ChromaRowBytes(const FormatLayout& l, int width) {
    return l.pairs ? width : (width >> l.chromaShiftX);
}

bool FillChroma(const VideoFormatInfo& f, FrameLayout& out) {
    const FormatLayout& l = out.format;
    out.chromaWidth = f.nWidth >> l.chromaShiftX;
    out.chromaHeight = f.nHeight >> l.chromaShiftY;
    const int64_t rowBytes = ChromaRowBytes(l, f.nWidth);
    out.chromaPitch = int64_t{f.nChromaPadLeft} + rowBytes + f.nChromaPadRight;
    out.chromaRows = int64_t{f.nChromaPadTop} + out.chromaHeight + f.nChromaPadBottom;
    int64_t planeBytes;
    if (!CheckedMul(out.chromaPitch, out.chromaRows, &planeBytes)) return false;
    out.firstChroma = out.totalBytes;
    if (!CheckedAdd(out.totalBytes, planeBytes, &out.totalBytes)) return false;
    if (l.chromaPlanes == 1) {
        out.uPlane = out.firstChroma;
        return true;
    }
    out.secondChroma = out.totalBytes;
    if (!CheckedAdd(out.totalBytes, planeBytes, &out.totalBytes)) return false;
    const bool vFirst = ChromaVFirst(f);
    out.uPlane = vFirst ? out.secondChroma : out.firstChroma;
    out.vPlane = vFirst ? out.firstChroma : out.secondChroma;
    return true;
}

// Start of sample (column bytes, row) of a plane, as a byte offset.
int64_t SampleOffset(int64_t planeStart, int64_t pitch, int64_t padTop, int64_t padLeft,
                     int64_t row, int64_t columnBytes) {
    return planeStart + (padTop + row) * pitch + padLeft + columnBytes;
}

PlaneView ChromaView(const VideoFormatInfo& f, const FrameLayout& fl, uint8_t* base,
                     int64_t planeStart, const Region& r) {
    const FormatLayout& l = fl.format;
    const int64_t column = l.pairs ? r.left : (r.left >> l.chromaShiftX);
    const int64_t row = r.top >> l.chromaShiftY;
    PlaneView v;
    v.width = r.width >> l.chromaShiftX;
    v.height = r.height >> l.chromaShiftY;
    v.pitch = static_cast<ptrdiff_t>(fl.chromaPitch);
    // An empty view points at its plane so no address leaves the frame.
    const int64_t offset = v.width > 0 && v.height > 0
                               ? SampleOffset(planeStart, fl.chromaPitch, f.nChromaPadTop,
                                              f.nChromaPadLeft, row, column)
                               : planeStart;
    v.data = base + offset;
    return v;
}

PlaneView Plane0View(const VideoFormatInfo& f, const FrameLayout& fl, uint8_t* base,
                     const Region& r) {
    PlaneView v;
    v.width = r.width;
    v.height = r.height;
    v.pitch = static_cast<ptrdiff_t>(fl.pitch0);
    if (r.width <= 0 || r.height <= 0) {
        v.data = base;
        return v;
    }
    int64_t row = r.top;
    if (IsBottomUp(f)) {
        row = int64_t{f.nHeight} - 1 - r.top;
        v.pitch = -v.pitch;
    }
    const int64_t column = int64_t{r.left} * fl.format.bpp0;
    v.data = base + SampleOffset(0, fl.pitch0, f.nPadTop, f.nPadLeft, row, column);
    return v;
}

bool RegionInside(const VideoFormatInfo& f, const Region& r) {
    return r.left >= 0 && r.top >= 0 && r.width >= 0 && r.height >= 0 &&
           int64_t{r.left} + r.width <= f.nWidth && int64_t{r.top} + r.height <= f.nHeight;
}

// Multiplier of P0 x H in the rule's buffer size, as numerator / 2.
int SizeHalves(int code) {
    switch (code) {
        case VIDEO_FORMAT_YUV420:
        case VIDEO_FORMAT_IYUV:
        case VIDEO_FORMAT_I420:
        case VIDEO_FORMAT_YV12:
        case VIDEO_FORMAT_NV12:
            return 3;
        case VIDEO_FORMAT_YUV422:
            return 4;
        case VIDEO_FORMAT_YUV444:
            return 6;
        default:
            return 2;
    }
}

int ChromaPadRightByRule(int code, int padRight) {
    switch (code) {
        case VIDEO_FORMAT_YUV420:
        case VIDEO_FORMAT_YUV422:
        case VIDEO_FORMAT_IYUV:
        case VIDEO_FORMAT_I420:
        case VIDEO_FORMAT_YV12:
            return padRight / 2;
        case VIDEO_FORMAT_YUV444:
        case VIDEO_FORMAT_NV12:
            return padRight;
        default:
            return 0;
    }
}

}  // namespace

bool GetFormatLayout(int code, FormatLayout* out) {
    const FormatLayout* l = FindLayout(code);
    if (!l) return false;
    *out = *l;
    return true;
}

int Bpp0(int code) {
    const FormatLayout* l = FindLayout(code);
    return l ? l->bpp0 : 0;
}

int CodecTypeOf(int code) { return code & ~0xFF; }

bool ChromaVFirst(const VideoFormatInfo& f) {
    if (f.nCodecSubType == VIDEO_FORMAT_YV12) return true;
    const bool generic =
        f.nCodecSubType >= VIDEO_FORMAT_YUV420 && f.nCodecSubType <= VIDEO_FORMAT_YUV444;
    return generic && (f.nFormatFlags & FORMAT_FLAG_SWAPPED) != 0;
}

bool IsBottomUp(const VideoFormatInfo& f) {
    const FormatLayout* l = FindLayout(f.nCodecSubType);
    return l && l->rgb && (f.nFormatFlags & FORMAT_FLAG_SWAPPED) != 0;
}

bool GetFrameLayout(const VideoFormatInfo& f, FrameLayout* out) {
    FrameLayout fl;
    if (!GetFormatLayout(f.nCodecSubType, &fl.format) || !AllNonNegative(f)) return false;
    int64_t rowBytes;
    if (!CheckedMulAdd(f.nWidth, fl.format.bpp0, f.nPadLeft, &rowBytes)) return false;
    fl.pitch0 = rowBytes + f.nPadRight;
    fl.rows0 = int64_t{f.nPadTop} + f.nHeight + f.nPadBottom;
    if (!CheckedMul(fl.pitch0, fl.rows0, &fl.totalBytes)) return false;
    if (fl.format.chromaPlanes > 0 && !FillChroma(f, fl)) return false;
    if (!FitsBufferSize(fl.totalBytes)) return false;
    *out = fl;
    return true;
}

bool ProcessingRegion(const VideoFormatInfo& originFrom, const VideoFormatInfo& sizeFrom,
                      bool useRect, Region* out) {
    Region r;
    if (!useRect) {
        r.width = sizeFrom.nWidth;
        r.height = sizeFrom.nHeight;
    } else {
        const int64_t width = int64_t{sizeFrom.nRectRight} - sizeFrom.nRectLeft;
        const int64_t height = int64_t{sizeFrom.nRectBottom} - sizeFrom.nRectTop;
        if (width < 0 || height < 0 || width > INT32_MAX || height > INT32_MAX) return false;
        r.left = originFrom.nRectLeft;
        r.top = originFrom.nRectTop;
        r.width = static_cast<int>(width);
        r.height = static_cast<int>(height);
    }
    *out = r;
    return true;
}

bool GetPlanes(const VideoFormatInfo& f, uint8_t* base, const Region& region, PlaneSet* out) {
    FrameLayout fl;
    if (!GetFrameLayout(f, &fl) || !RegionInside(f, region)) return false;
    PlaneSet set;
    set.plane0 = Plane0View(f, fl, base, region);
    set.count = 1;
    if (fl.uPlane >= 0) {
        set.u = ChromaView(f, fl, base, fl.uPlane, region);
        set.count = 2;
    }
    if (fl.vPlane >= 0) {
        set.v = ChromaView(f, fl, base, fl.vPlane, region);
        set.count = 3;
    }
    *out = set;
    return true;
}

bool GetPlanes(const VideoFormatInfo& f, uint8_t* base, bool useRect, PlaneSet* out) {
    Region r;
    return ProcessingRegion(f, useRect, &r) && GetPlanes(f, base, r, out);
}

PlaneView FlipRows(const PlaneView& view) {
    PlaneView v = view;
    if (v.height > 0) v.data += static_cast<ptrdiff_t>(v.height - 1) * v.pitch;
    v.pitch = -v.pitch;
    return v;
}

void InitVideoFormat(VideoFormatInfo* f, int code, int width, int height) {
    *f = VideoFormatInfo{};
    f->nStructSize = kDescriptorBytes;
    f->nCodecType = CodecTypeOf(code);
    f->nCodecSubType = code;
    f->nWidth = width;
    f->nHeight = height;
    f->nRectRight = width;
    f->nRectBottom = height;
    f->nPictureWidth = width;
    f->nPictureHeight = height;
    f->nDisplayWidth = width;
    f->nDisplayHeight = height;
}

bool ApplyAllocationRule(VideoFormatInfo* f) {
    const int bpp = Bpp0(f->nCodecSubType);
    int64_t rowBytes;
    if (bpp == 0 || !CheckedMulAdd(f->nWidth, bpp, 0, &rowBytes)) return false;
    const int remainder = static_cast<int>(rowBytes % kRowAlign);
    const int padRight = remainder ? kRowAlign - remainder : 0;
    VideoFormatInfo g = *f;
    g.nPadLeft = g.nPadTop = g.nPadBottom = 0;
    g.nChromaPadLeft = g.nChromaPadTop = g.nChromaPadBottom = 0;
    g.nPadRight = padRight;
    g.nChromaPadRight = ChromaPadRightByRule(g.nCodecSubType, padRight);
    FrameLayout fl;
    int bytes;
    if (!GetFrameLayout(g, &fl) || !AllocationRuleSize(g, &bytes)) return false;
    *f = g;
    return true;
}

bool AllocationRuleSize(const VideoFormatInfo& f, int* bytes) {
    FrameLayout fl;
    if (!GetFrameLayout(f, &fl)) return false;
    int64_t size;
    if (!CheckedMulAdd(fl.pitch0, f.nHeight, 0, &size) ||
        !CheckedMul<int64_t>(size, SizeHalves(f.nCodecSubType), &size)) {
        return false;
    }
    size /= 2;
    if (!FitsBufferSize(size)) return false;
    *bytes = static_cast<int>(size);
    return true;
}

// The rule's size covers every code a frame is allocated for; code 5 (4:4:0,
// only ever inside the JPEG decoder) would outgrow P0 x H, so the frame's own
// extent is the floor.
uint8_t* AllocateFrame(CNCodecBuffer* buffer, VideoFormatInfo* f) {
    if (!buffer || !f) return nullptr;
    VideoFormatInfo g = *f;
    FrameLayout fl;
    int bytes;
    if (!ApplyAllocationRule(&g) || !AllocationRuleSize(g, &bytes) || !GetFrameLayout(g, &fl)) {
        return nullptr;
    }
    bytes = std::max(bytes, static_cast<int>(fl.totalBytes));
    auto* data = static_cast<uint8_t*>(buffer->Allocate(bytes, kRowAlign, 0));
    if (!data) return nullptr;
    buffer->SetDataSize(bytes);
    *f = g;
    return data;
}

}  // namespace ncb
