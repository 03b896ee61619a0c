// Conversions that stay in YUV: generic planar (codes 1-4) to the surface
// layouts (6, 8, 9, 10-13, 14), back, and among the generic planar codes.
//
// One engine serves all three. It walks the output in row groups (two luma
// rows and one chroma row for 4:2:0 outputs, else one row) and each group in
// chunks, and for every chunk: reads the source luma and chroma (in place for
// planar sources, unpacked into stack scratch otherwise), brings the chroma
// to the output's subsampling (up-rounded averages for fewer samples,
// repeats for more), adjusts or fixes the samples, and writes the output
// layout. Planar outputs are written in place, so the common pairs make one
// pass over the pixels.
//
// Edges: an odd last column or row of a subsampled source takes the chroma
// of the pair before it (128, then adjusted, where there is none); an odd
// last pixel of a packed 4:2:2 output writes its luma and the first chroma
// byte of its position with that chroma. Not here: RGB (video_processor_rgb),
// alpha beyond AYUV's constant output alpha.
#include <cstring>

#include "ncodecbase/video_processor.h"
#include "video/colour/yuv_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

enum class Layout { kPlanar, kNv12, kYuy2, kYvyu, kUyvy, kVyuy, kAyuv };

struct YuvFormat {
    Layout layout = Layout::kPlanar;
    bool chroma = true;
    int sx = 0;  // chroma subsampling shifts
    int sy = 0;
};

bool DescribeYuv(int code, YuvFormat* f) {
    switch (code) {
        case VIDEO_FORMAT_Y800:
            *f = {Layout::kPlanar, false, 0, 0};
            return true;
        case VIDEO_FORMAT_YUV420:
        case VIDEO_FORMAT_IYUV:
        case VIDEO_FORMAT_YV12:
            *f = {Layout::kPlanar, true, 1, 1};
            return true;
        case VIDEO_FORMAT_YUV422:
            *f = {Layout::kPlanar, true, 1, 0};
            return true;
        case VIDEO_FORMAT_YUV444:
            *f = {Layout::kPlanar, true, 0, 0};
            return true;
        case VIDEO_FORMAT_NV12:
            *f = {Layout::kNv12, true, 1, 1};
            return true;
        case VIDEO_FORMAT_YUY2:
            *f = {Layout::kYuy2, true, 1, 0};
            return true;
        case VIDEO_FORMAT_YVYU:
            *f = {Layout::kYvyu, true, 1, 0};
            return true;
        case VIDEO_FORMAT_UYVY:
            *f = {Layout::kUyvy, true, 1, 0};
            return true;
        case VIDEO_FORMAT_VYUY:
            *f = {Layout::kVyuy, true, 1, 0};
            return true;
        case VIDEO_FORMAT_AYUV:
            *f = {Layout::kAyuv, true, 0, 0};
            return true;
        default:
            return false;
    }
}

bool IsGeneric(int code) { return code >= VIDEO_FORMAT_Y800 && code <= VIDEO_FORMAT_YUV444; }

bool IsSurface(int code) {
    return code == VIDEO_FORMAT_IYUV || (code >= VIDEO_FORMAT_YV12 && code <= VIDEO_FORMAT_AYUV);
}

bool LumaFirst(Layout l) { return l == Layout::kYuy2 || l == Layout::kYvyu; }
bool SwapsChroma(Layout l) { return l == Layout::kYvyu || l == Layout::kVyuy; }

// Source chroma rows for one output chroma row: one row, or two to average.
struct ChromaSource {
    const uint8_t* u[2];
    const uint8_t* v[2];
    int rows = 1;
    bool inTarget = false;  // already written into the output rows
};

class YuvEngine {
  public:
    YuvEngine(const Pictures& p, const YuvFormat& src, const YuvFormat& dst,
              const ConvertSettings& s, KernelSet set)
        : p_(p), src_(src), dst_(dst), s_(s), set_(set), k_(GetYuvRowKernels(set)) {
        chromaMode_ = s.mode;
        // A picture without chroma has nothing to adjust: outside plain mode
        // its chroma is the fixed pair.
        if (!src.chroma && s.mode == ConvertMode::kAdjust) chromaMode_ = ConvertMode::kFixedChroma;
        ConvertSettings cs = s;
        cs.mode = chromaMode_;
        NeutralChroma(cs, k_, &neutralU_, &neutralV_);
        std::memset(neutralRow_, 128, sizeof neutralRow_);
    }

    void Run() {
        // Planes that only need copying or adjusting go in one pass each
        // (whole-plane copies where rows lie back to back); the row groups
        // then do only what is left.
        lumaDone_ = PlanarLuma(src_.layout) && PlanarLuma(dst_.layout);
        if (lumaDone_) LumaPlane();
        chromaDone_ = src_.layout == Layout::kPlanar && dst_.layout == Layout::kPlanar &&
                      src_.chroma && dst_.chroma && src_.sx == dst_.sx && src_.sy == dst_.sy &&
                      chromaMode_ == ConvertMode::kPlain;
        if (chromaDone_) ChromaPlanes();
        if (lumaDone_ && (chromaDone_ || !dst_.chroma)) return;
        const int h = p_.height;
        if (dst_.chroma && dst_.sy == 1) {
            for (int cy = 0; cy < (h >> 1); ++cy) Group(2 * cy, 2, cy);
            if (h & 1) Group(h - 1, 1, -1);
        } else {
            for (int y = 0; y < h; ++y) Group(y, 1, dst_.chroma ? y : -1);
        }
    }

  private:
    static bool PlanarLuma(Layout l) { return l == Layout::kPlanar || l == Layout::kNv12; }

    void LumaPlane() {
        const PlaneView& in = p_.in.plane0;
        const PlaneView& out = p_.out.plane0;
        if (s_.mode == ConvertMode::kPlain) {
            CopyData(in.data, out.data, p_.width, p_.height, in.pitch, out.pitch, set_);
            return;
        }
        for (int y = 0; y < p_.height; ++y)
            k_.adjust(RowAt(in, y), RowAt(out, y), s_.luma, p_.width);
    }

    void ChromaPlanes() {
        const int w = p_.width >> src_.sx, h = p_.height >> src_.sy;
        CopyData(p_.in.u.data, p_.out.u.data, w, h, p_.in.u.pitch, p_.out.u.pitch, set_);
        CopyData(p_.in.v.data, p_.out.v.data, w, h, p_.in.v.pitch, p_.out.v.pitch, set_);
    }

    // Luma rows y0 .. y0 + rows - 1 and output chroma row cy (-1: none).
    void Group(int y0, int rows, int cy) {
        ForEachChunk(p_.width, [&](int x0, int n) {
            const uint8_t* luma[2] = {nullptr, nullptr};
            if (!lumaDone_)
                for (int r = 0; r < rows; ++r) luma[r] = Luma(y0 + r, r, x0, n);
            if (cy < 0 || chromaDone_) return;
            uint8_t* tu;
            uint8_t* tv;
            ChromaTargets(cy, x0, &tu, &tv);
            const uint8_t* u = tu;
            const uint8_t* v = tv;
            Chroma(cy, x0, n, &u, &v);
            Store(luma, cy, x0, n, u, v);
        });
    }

    // The output luma of row y, pixels [x0, x0 + n): written in place for
    // planar and NV12 outputs, else returned from scratch or the source.
    const uint8_t* Luma(int y, int r, int x0, int n) {
        const bool inPlace = dst_.layout == Layout::kPlanar || dst_.layout == Layout::kNv12;
        uint8_t* target = inPlace ? RowAt(p_.out.plane0, y) + x0 : lumaScratch_[r];
        const uint8_t* source = SourceLuma(y, r, x0, n, target);
        if (s_.mode != ConvertMode::kPlain) {
            k_.adjust(source, target, s_.luma, n);
            return target;
        }
        if (inPlace && source != target) k_.copy(source, target, n);
        return inPlace ? target : source;
    }

    // Source luma of row y; unpacking sources write into `preferred`.
    const uint8_t* SourceLuma(int y, int r, int x0, int n, uint8_t* preferred) {
        const uint8_t* row = RowAt(p_.in.plane0, y);
        switch (src_.layout) {
            case Layout::kPlanar:
            case Layout::kNv12:
                return row + x0;
            case Layout::kYuy2:
            case Layout::kYvyu:
                k_.unpackYuy2Luma(row + 2 * x0, preferred, n);
                return preferred;
            case Layout::kUyvy:
            case Layout::kVyuy:
                k_.unpackUyvyLuma(row + 2 * x0, preferred, n);
                return preferred;
            case Layout::kAyuv:
                // Its chroma comes along; the chroma step reads it from here.
                k_.unpackAyuv(row + 4 * x0, preferred, srcU_[r], srcV_[r], n);
                return preferred;
        }
        return row + x0;
    }

    void ChromaTargets(int cy, int x0, uint8_t** tu, uint8_t** tv) {
        if (dst_.layout == Layout::kPlanar) {
            *tu = RowAt(p_.out.u, cy) + (x0 >> dst_.sx);
            *tv = RowAt(p_.out.v, cy) + (x0 >> dst_.sx);
        } else {
            *tu = targetU_;
            *tv = targetV_;
        }
    }

    // Output chroma of chroma row cy for pixels [x0, x0 + n). *u and *v come
    // in as the targets; planar outputs are always written there, other
    // outputs may get the source row itself back when nothing changes.
    void Chroma(int cy, int x0, int n, const uint8_t** u, const uint8_t** v) {
        uint8_t* tu = const_cast<uint8_t*>(*u);
        uint8_t* tv = const_cast<uint8_t*>(*v);
        const int count = n >> dst_.sx;
        if (chromaMode_ == ConvertMode::kFixedChroma || !src_.chroma) {
            k_.fill(tu, chromaMode_ == ConvertMode::kFixedChroma ? s_.fixedU : 128, count);
            k_.fill(tv, chromaMode_ == ConvertMode::kFixedChroma ? s_.fixedV : 128, count);
            return;
        }
        const ChromaSource c = SourceChroma(cy, x0, n, tu, tv);
        if (c.inTarget) {
            *u = tu;
            *v = tv;
        } else {
            *u = Resample(c.u, c.rows, tu, n, count);
            *v = Resample(c.v, c.rows, tv, n, count);
        }
        if (chromaMode_ == ConvertMode::kAdjust) {
            k_.adjust(*u, tu, s_.u, count);
            k_.adjust(*v, tv, s_.v, count);
            *u = tu;
            *v = tv;
        }
    }

    // Source chroma rows at the source's subsampling, from column x0 >> sx.
    // Sources that must be unpacked anyway are unpacked straight into the
    // planar output's rows (tu, tv) when no resampling follows.
    ChromaSource SourceChroma(int cy, int x0, int n, uint8_t* tu, uint8_t* tv) {
        ChromaSource c;
        const bool direct = dst_.layout == Layout::kPlanar && src_.sx == dst_.sx;
        int srcRows[2];
        if (dst_.sy == 1 && src_.sy == 0) {
            c.rows = 2;
            srcRows[0] = 2 * cy;
            srcRows[1] = 2 * cy + 1;
        } else if (dst_.sy == 0 && src_.sy == 1) {
            // Each source chroma row serves two output rows; an odd last
            // row repeats the one before it.
            const int available = p_.height >> 1;
            if (available == 0) return Neutral();
            srcRows[0] = cy >> 1 < available ? cy >> 1 : available - 1;
        } else {
            srcRows[0] = cy;
        }
        switch (src_.layout) {
            case Layout::kPlanar:
                for (int r = 0; r < c.rows; ++r) {
                    c.u[r] = RowAt(p_.in.u, srcRows[r]) + (x0 >> src_.sx);
                    c.v[r] = RowAt(p_.in.v, srcRows[r]) + (x0 >> src_.sx);
                }
                return c;
            case Layout::kNv12:
                if (direct) {
                    k_.splitUV(RowAt(p_.in.u, srcRows[0]) + x0, tu, tv, n >> 1);
                    return InTarget();
                }
                k_.splitUV(RowAt(p_.in.u, srcRows[0]) + x0, srcU_[0], srcV_[0], n >> 1);
                return Scratch(1);
            case Layout::kAyuv:
                // Unpacked with the luma of this group's rows.
                return Scratch(c.rows);
            default:
                return PackedChroma(c.rows, srcRows, x0, n, direct ? tu : nullptr, tv);
        }
    }

    // Packed 4:2:2 chroma of one row, or of two rows averaged, into scratch
    // or (tu non-null) into the output rows.
    ChromaSource PackedChroma(int rows, const int* srcRows, int x0, int n, uint8_t* tu,
                              uint8_t* tv) {
        const bool lumaFirst = LumaFirst(src_.layout);
        const bool swap = SwapsChroma(src_.layout);
        uint8_t* su = tu ? tu : srcU_[0];
        uint8_t* sv = tu ? tv : srcV_[0];
        uint8_t* u = swap ? sv : su;
        uint8_t* v = swap ? su : sv;
        const uint8_t* row0 = RowAt(p_.in.plane0, srcRows[0]) + 2 * x0;
        if (rows == 2) {
            const uint8_t* row1 = RowAt(p_.in.plane0, srcRows[1]) + 2 * x0;
            (lumaFirst ? k_.unpackYuy2ChromaRows : k_.unpackUyvyChromaRows)(row0, row1, u, v, n);
        } else {
            (lumaFirst ? k_.unpackYuy2Chroma : k_.unpackUyvyChroma)(row0, u, v, n);
        }
        return tu ? InTarget() : Scratch(1);
    }

    ChromaSource InTarget() {
        ChromaSource c;
        c.inTarget = true;
        return c;
    }

    ChromaSource Scratch(int rows) {
        ChromaSource c;
        c.rows = rows;
        for (int r = 0; r < rows; ++r) {
            c.u[r] = srcU_[r];
            c.v[r] = srcV_[r];
        }
        return c;
    }

    ChromaSource Neutral() {
        ChromaSource c;
        c.u[0] = c.v[0] = neutralRow_;
        return c;
    }

    // Source chroma (one row or two to average) as `count` output samples in
    // t; a row that needs no change is handed back as it is unless the
    // output is planar (then t is the output row).
    const uint8_t* Resample(const uint8_t* const* s, int rows, uint8_t* t, int n, int count) {
        const int from = src_.sx, to = dst_.sx;
        if (rows == 2) {
            (from == to ? k_.averageRows : k_.averageHalveRows)(s[0], s[1], t, count);
        } else if (from == to) {
            if (dst_.layout != Layout::kPlanar) return s[0];
            k_.copy(s[0], t, count);
        } else if (from < to) {
            k_.halveRow(s[0], t, count);
        } else {
            k_.doubleRow(s[0], t, n & ~1);
            // An odd last pixel has no sample of its own: the pair before it
            // lends its sample, or 128 when the picture is one pixel wide.
            if (n & 1) t[n - 1] = n > 1 ? t[n - 2] : 128;
        }
        return t;
    }

    void Store(const uint8_t* const* luma, int cy, int x0, int n, const uint8_t* tu,
               const uint8_t* tv) {
        switch (dst_.layout) {
            case Layout::kPlanar:
                return;
            case Layout::kNv12:
                k_.interleaveUV(tu, tv, RowAt(p_.out.u, cy) + x0, n >> 1);
                return;
            case Layout::kAyuv:
                k_.packAyuv(luma[0], tu, tv, RowAt(p_.out.plane0, cy) + 4 * x0, s_.alpha, n);
                return;
            default:
                return StorePacked(luma[0], cy, x0, n, tu, tv);
        }
    }

    void StorePacked(const uint8_t* luma, int y, int x0, int n, const uint8_t* tu,
                     const uint8_t* tv) {
        const bool swap = SwapsChroma(dst_.layout);
        const bool lumaFirst = LumaFirst(dst_.layout);
        const uint8_t* first = swap ? tv : tu;
        const uint8_t* second = swap ? tu : tv;
        uint8_t* row = RowAt(p_.out.plane0, y) + 2 * x0;
        (lumaFirst ? k_.packYuy2 : k_.packUyvy)(luma, first, second, row, n & ~1);
        if (n & 1) {
            // The odd last pixel: its luma and its position's first chroma
            // byte, from the pair before it.
            const uint8_t c = n > 1 ? first[(n >> 1) - 1] : (swap ? neutralV_ : neutralU_);
            uint8_t* last = row + 2 * (n - 1);
            last[lumaFirst ? 0 : 1] = luma[n - 1];
            last[lumaFirst ? 1 : 0] = c;
        }
    }

    const Pictures& p_;
    YuvFormat src_, dst_;
    ConvertSettings s_;
    KernelSet set_;
    const YuvRowKernels& k_;
    ConvertMode chromaMode_;
    bool lumaDone_ = false;
    bool chromaDone_ = false;
    uint8_t neutralU_ = 128, neutralV_ = 128;
    uint8_t neutralRow_[kScratch];
    uint8_t lumaScratch_[2][kScratch];
    uint8_t srcU_[2][kScratch];
    uint8_t srcV_[2][kScratch];
    uint8_t targetU_[kScratch];
    uint8_t targetV_[kScratch];
};

int RunYuv(const PictureArgs& args, const ConvertSettings& settings, KernelSet set,
           bool (*inputOk)(int), bool (*outputOk)(int)) {
    Pictures p;
    if (!OpenPictures(args, &p) || !inputOk(p.inCode) || !outputOk(p.outCode)) return 1;
    YuvFormat src, dst;
    if (!DescribeYuv(p.inCode, &src) || !DescribeYuv(p.outCode, &dst)) return 1;
    if (settings.flip) FlipPlanes(&p.out);
    YuvEngine engine(p, src, dst, settings, set);
    engine.Run();
    return 1;
}

}  // namespace

int ConvertToYuv(const PictureArgs& args, const ConvertConfig* config, KernelSet set) {
    return RunYuv(args, ReadConvertSettings(config), set, IsGeneric, IsSurface);
}

int ConvertFromYuv(const PictureArgs& args, const ConvertConfig* config, KernelSet set) {
    return RunYuv(args, ReadConvertSettings(config), set, IsSurface, IsGeneric);
}

int ConvertYuv(const PictureArgs& args, KernelSet set) {
    return RunYuv(args, ConvertSettings{}, set, IsGeneric, IsGeneric);
}

}  // namespace ncb::video

int CNVideoProcessor::ConvertToYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                   VideoFormatInfoTag* pInputFormat,
                                   VideoFormatInfoTag* pOutputFormat, ConvertConfigTag* pConfig,
                                   int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertToYuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        pConfig, set);
}

int CNVideoProcessor::ConvertFromYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                     VideoFormatInfoTag* pInputFormat,
                                     VideoFormatInfoTag* pOutputFormat, ConvertConfigTag* pConfig,
                                     int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertFromYuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        pConfig, set);
}

int CNVideoProcessor::ConvertYUV(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                 VideoFormatInfoTag* pInputFormat,
                                 VideoFormatInfoTag* pOutputFormat, int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertYuv(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect), set);
}
