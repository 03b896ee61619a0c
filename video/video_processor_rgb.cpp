// Conversions between generic planar YUV (codes 1-4) and RGB (257-260).
//
// YUV to RGB: each output row takes its luma row and the chroma row that
// covers it (no interpolation), adjusts or fixes the samples in stack
// scratch when the mode asks for it, and converts them with the 16-bit
// arithmetic of rgb_rows.h straight into RGB32 rows, or through an RGB32
// chunk into the narrower layouts. RGB to YUV runs the other way: 16-, 24-
// bit rows are widened to RGB32 chunks first, luma and chroma are computed,
// and the adjustment is applied to the converted samples.
//
// Edges: an odd last column (row) of a subsampled source takes the chroma of
// the pair before it; subsampled outputs take chroma from whole pairs only,
// so an odd last column or row contributes luma alone. RGB-to-YUV chunks are
// whole multiples of 16 pixels, which keeps the 4:2:0 end-of-row rule where
// the row ends rather than where a chunk does.
#include "ncodecbase/video_processor.h"
#include "video/colour/rgb_pack_rows.h"
#include "video/colour/rgb_rows.h"
#include "video/colour/yuv_rows.h"
#include "video/frame_access.h"
#include "video/video_ops.h"

namespace ncb::video {
namespace {

bool IsGeneric(int code) { return code >= VIDEO_FORMAT_Y800 && code <= VIDEO_FORMAT_YUV444; }
bool IsRgb(int code) { return code >= VIDEO_FORMAT_RGB555 && code <= VIDEO_FORMAT_RGB32; }

// Chroma subsampling of a generic planar code; false for Y-only.
bool ChromaShifts(int code, int* sx, int* sy) {
    *sx = code == VIDEO_FORMAT_YUV444 ? 0 : 1;
    *sy = code == VIDEO_FORMAT_YUV420 ? 1 : 0;
    return code != VIDEO_FORMAT_Y800;
}

using NarrowRow = void (*)(const uint8_t*, uint8_t*, int);

NarrowRow NarrowFor(int code, const RgbPackRowKernels& k) {
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

NarrowRow WidenFor(int code, const RgbPackRowKernels& k) {
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

class ToRgbEngine {
  public:
    ToRgbEngine(const Pictures& p, const ConvertSettings& s, KernelSet set)
        : p_(p),
          s_(s),
          yuv_(GetYuvRowKernels(set)),
          rgb_(GetRgbRowKernels(set)),
          narrow_(NarrowFor(p.outCode, GetRgbPackRowKernels(set))),
          outBytes_(Bpp0(p.outCode)) {
        chroma_ = ChromaShifts(p.inCode, &sx_, &sy_);
        chromaMode_ = s.mode;
        if (!chroma_ && s.mode == ConvertMode::kAdjust) chromaMode_ = ConvertMode::kFixedChroma;
        // Without chroma of its own every pixel gets the same pair: 128 in
        // plain mode, the fixed pair otherwise.
        const bool fixed = chromaMode_ == ConvertMode::kFixedChroma || !chroma_;
        const uint8_t fu = chromaMode_ == ConvertMode::kFixedChroma ? s.fixedU : 128;
        const uint8_t fv = chromaMode_ == ConvertMode::kFixedChroma ? s.fixedV : 128;
        if (fixed) {
            yuv_.fill(fixedU_, fu, kScratch);
            yuv_.fill(fixedV_, fv, kScratch);
        }
        fixedChroma_ = fixed;
        yuv_.fill(neutralRow_, 128, kScratch);
        ConvertSettings cs = s;
        cs.mode = chromaMode_;
        NeutralChroma(cs, yuv_, &neutralU_, &neutralV_);
    }

    void Run() {
        for (int y = 0; y < p_.height; ++y)
            ForEachChunk(p_.width, [&](int x0, int n) { Chunk(y, x0, n); });
    }

  private:
    void Chunk(int y, int x0, int n) {
        const uint8_t* luma = RowAt(p_.in.plane0, y) + x0;
        if (s_.mode != ConvertMode::kPlain) {
            yuv_.adjust(luma, lumaScratch_, s_.luma, n);
            luma = lumaScratch_;
        }
        uint8_t* out = narrow_ ? rgbScratch_ : RowAt(p_.out.plane0, y) + 4 * x0;
        if (fixedChroma_) {
            rgb_.yuv444ToRgb32(luma, fixedU_, fixedV_, out, s_.alpha, n);
        } else {
            const uint8_t* u;
            const uint8_t* v;
            SourceChroma(y, x0, n, &u, &v);
            if (sx_ == 0) {
                rgb_.yuv444ToRgb32(luma, u, v, out, s_.alpha, n);
            } else {
                rgb_.yuv422ToRgb32(luma, u, v, out, s_.alpha, n & ~1);
                if (n & 1) LastPixel(luma, u, v, out, n);
            }
        }
        if (narrow_) narrow_(rgbScratch_, RowAt(p_.out.plane0, y) + outBytes_ * x0, n);
    }

    // The odd last pixel of a 4:2:x row uses the chroma of the pair before it.
    void LastPixel(const uint8_t* luma, const uint8_t* u, const uint8_t* v, uint8_t* out, int n) {
        const int i = n - 1;
        const uint8_t* cu = n > 1 ? u + (n >> 1) - 1 : &neutralU_;
        const uint8_t* cv = n > 1 ? v + (n >> 1) - 1 : &neutralV_;
        rgb_.yuv444ToRgb32(luma + i, cu, cv, out + 4 * i, s_.alpha, 1);
    }

    void SourceChroma(int y, int x0, int n, const uint8_t** u, const uint8_t** v) {
        const int count = n >> sx_;
        int row = y;
        if (sy_ == 1) {
            const int available = p_.height >> 1;
            row = (y >> 1) < available ? y >> 1 : available - 1;
        }
        if (row < 0) {
            *u = *v = neutralRow_;
        } else {
            *u = RowAt(p_.in.u, row) + (x0 >> sx_);
            *v = RowAt(p_.in.v, row) + (x0 >> sx_);
        }
        if (s_.mode == ConvertMode::kAdjust) {
            yuv_.adjust(*u, uScratch_, s_.u, count);
            yuv_.adjust(*v, vScratch_, s_.v, count);
            *u = uScratch_;
            *v = vScratch_;
        }
    }

    const Pictures& p_;
    ConvertSettings s_;
    const YuvRowKernels& yuv_;
    const RgbRowKernels& rgb_;
    NarrowRow narrow_;
    int outBytes_;
    bool chroma_ = false;
    int sx_ = 0, sy_ = 0;
    ConvertMode chromaMode_ = ConvertMode::kPlain;
    bool fixedChroma_ = false;
    uint8_t neutralU_ = 128, neutralV_ = 128;
    uint8_t fixedU_[kScratch], fixedV_[kScratch], neutralRow_[kScratch];
    uint8_t lumaScratch_[kScratch], uScratch_[kScratch], vScratch_[kScratch];
    alignas(16) uint8_t rgbScratch_[4 * kScratch];
};

class FromRgbEngine {
  public:
    FromRgbEngine(const Pictures& p, const ConvertSettings& s, KernelSet set)
        : p_(p),
          s_(s),
          yuv_(GetYuvRowKernels(set)),
          rgb_(GetRgbRowKernels(set)),
          widen_(WidenFor(p.inCode, GetRgbPackRowKernels(set))),
          inBytes_(Bpp0(p.inCode)) {
        chroma_ = ChromaShifts(p.outCode, &sx_, &sy_);
    }

    void Run() {
        const int h = p_.height;
        if (!chroma_) {
            for (int y = 0; y < h; ++y)
                ForEachBlockChunk(p_.width, [&](int x0, int n) {
                    uint8_t* luma = RowAt(p_.out.plane0, y) + x0;
                    rgb_.rgb32ToLuma14(Source(y, 0, x0, n), luma, n);
                    AdjustLuma(luma, n);
                });
            return;
        }
        if (sy_ == 1) {
            for (int cy = 0; cy < (h >> 1); ++cy) Rows(2 * cy, 2, cy);
            if (h & 1) Rows(h - 1, 1, -1);
        } else {
            for (int y = 0; y < h; ++y) Rows(y, 1, y);
        }
    }

  private:
    // RGB32 pixels [x0, x0 + n) of source row y (widened into scratch r).
    const uint8_t* Source(int y, int r, int x0, int n) {
        const uint8_t* row = RowAt(p_.in.plane0, y) + inBytes_ * x0;
        if (!widen_) return row;
        widen_(row, rgbScratch_[r], n);
        return rgbScratch_[r];
    }

    void AdjustLuma(uint8_t* luma, int n) {
        if (s_.mode != ConvertMode::kPlain) yuv_.adjust(luma, luma, s_.luma, n);
    }

    void Rows(int y0, int rows, int cy) {
        ForEachBlockChunk(p_.width, [&](int x0, int n) {
            const uint8_t* src[2] = {nullptr, nullptr};
            if (rows == 2 && rgb_.rgb32ToYuv420 && s_.mode != ConvertMode::kFixedChroma) {
                Fused(y0, cy, x0, n);
                return;
            }
            for (int r = 0; r < rows; ++r) {
                src[r] = Source(y0 + r, r, x0, n);
                uint8_t* luma = RowAt(p_.out.plane0, y0 + r) + x0;
                rgb_.rgb32ToLuma(src[r], luma, n);
                AdjustLuma(luma, n);
            }
            if (cy >= 0) Chroma(src, cy, x0, n);
        });
    }

    // Both luma rows and the chroma row from one pass over the pixels.
    void Fused(int y0, int cy, int x0, int n) {
        const uint8_t* src0 = Source(y0, 0, x0, n);
        const uint8_t* src1 = Source(y0 + 1, 1, x0, n);
        uint8_t* luma0 = RowAt(p_.out.plane0, y0) + x0;
        uint8_t* luma1 = RowAt(p_.out.plane0, y0 + 1) + x0;
        uint8_t* u = RowAt(p_.out.u, cy) + (x0 >> 1);
        uint8_t* v = RowAt(p_.out.v, cy) + (x0 >> 1);
        rgb_.rgb32ToYuv420(src0, src1, luma0, luma1, u, v, n);
        AdjustLuma(luma0, n);
        AdjustLuma(luma1, n);
        if (s_.mode == ConvertMode::kAdjust) {
            yuv_.adjust(u, u, s_.u, n >> 1);
            yuv_.adjust(v, v, s_.v, n >> 1);
        }
    }

    void Chroma(const uint8_t* const* src, int cy, int x0, int n) {
        uint8_t* u = RowAt(p_.out.u, cy) + (x0 >> sx_);
        uint8_t* v = RowAt(p_.out.v, cy) + (x0 >> sx_);
        const int count = n >> sx_;
        if (s_.mode == ConvertMode::kFixedChroma) {
            yuv_.fill(u, s_.fixedU, count);
            yuv_.fill(v, s_.fixedV, count);
            return;
        }
        if (sy_ == 1) {
            rgb_.rgb32ToChroma420(src[0], src[1], u, v, n);
        } else if (sx_ == 1) {
            rgb_.rgb32ToChroma422(src[0], u, v, n);
        } else {
            rgb_.rgb32ToChroma444(src[0], u, v, n);
        }
        if (s_.mode == ConvertMode::kAdjust) {
            yuv_.adjust(u, u, s_.u, count);
            yuv_.adjust(v, v, s_.v, count);
        }
    }

    const Pictures& p_;
    ConvertSettings s_;
    const YuvRowKernels& yuv_;
    const RgbRowKernels& rgb_;
    NarrowRow widen_;
    int inBytes_;
    bool chroma_ = false;
    int sx_ = 0, sy_ = 0;
    alignas(16) uint8_t rgbScratch_[2][4 * kChunk];
};

}  // namespace

int ConvertToRgb(const PictureArgs& args, const ConvertConfig* config, KernelSet set) {
    Pictures p;
    if (!OpenPictures(args, &p) || !IsGeneric(p.inCode) || !IsRgb(p.outCode)) return 1;
    const ConvertSettings settings = ReadConvertSettings(config);
    if (settings.flip) FlipPlanes(&p.out);
    ToRgbEngine engine(p, settings, set);
    engine.Run();
    return 1;
}

int ConvertFromRgb(const PictureArgs& args, const ConvertConfig* config, KernelSet set) {
    Pictures p;
    if (!OpenPictures(args, &p) || !IsRgb(p.inCode) || !IsGeneric(p.outCode)) return 1;
    const ConvertSettings settings = ReadConvertSettings(config);
    if (settings.flip) FlipPlanes(&p.out);
    FromRgbEngine engine(p, settings, set);
    engine.Run();
    return 1;
}

}  // namespace ncb::video

int CNVideoProcessor::ConvertToRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                   VideoFormatInfoTag* pInputFormat,
                                   VideoFormatInfoTag* pOutputFormat, ConvertConfigTag* pConfig,
                                   int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertToRgb(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        pConfig, set);
}

int CNVideoProcessor::ConvertFromRGB(CNCodecBuffer* pInput, CNCodecBuffer* pOutput,
                                     VideoFormatInfoTag* pInputFormat,
                                     VideoFormatInfoTag* pOutputFormat, ConvertConfigTag* pConfig,
                                     int nUseRect, int nLevel) {
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(nLevel, &set)) return 1;
    return ncb::video::ConvertFromRgb(
        ncb::video::MakePictureArgs(pInput, pOutput, pInputFormat, pOutputFormat, nUseRect),
        pConfig, set);
}
