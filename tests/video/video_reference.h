// A literal model of the video operations for the tests: every output sample
// is computed on its own from the rules (formulas, chroma siting, edges),
// with no rows, chunks or kernels. The operations at every level must give
// exactly these bytes. Addresses come from base/video_format.h, the one
// place for plane arithmetic, which has its own tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/video_format.h"
#include "ncodecbase/video_processor.h"

namespace ncbtest::ref {

using Config = CNVideoProcessor::ConvertConfigTag;
using ncb::PlaneSet;
using ncb::PlaneView;
using ncb::VideoFormatInfo;

inline int Clamp(int x, int lo, int hi) { return std::min(std::max(x, lo), hi); }
inline int Avg(int a, int b) { return (a + b + 1) >> 1; }
inline uint8_t* At(const PlaneView& v, int x, int y, int bytes = 1) {
    return v.data + static_cast<ptrdiff_t>(y) * v.pitch + static_cast<ptrdiff_t>(x) * bytes;
}

// ---- settings ----

enum class Mode { kPlain, kAdjust, kFixed };

struct Settings {
    Mode mode = Mode::kPlain;
    bool flip = false;
    int fixedU = 128, fixedV = 128, alpha = 255;
    int gainY = 256, gainU = 256, gainV = 256, offY = 0, offU = 0, offV = 0;
};

inline Settings ReadSettings(const Config* c) {
    Settings s;
    if (!c) return s;
    if (c->nFixedChroma != 0) {
        s.mode = Mode::kFixed;
    } else if (c->nOffsetY || c->nOffsetU || c->nOffsetV || c->nGainY != 256 || c->nGainU != 256 ||
               c->nGainV != 256) {
        s.mode = Mode::kAdjust;
    }
    s.flip = c->nFlip == 1;
    s.fixedU = c->nFixedU & 0xFF;
    s.fixedV = c->nFixedV & 0xFF;
    s.alpha = c->nAlpha & 0xFF;
    // Gains act as 16-bit values; offsets beyond +-65536 cannot move a result further.
    s.gainY = Clamp(c->nGainY, -32768, 32767);
    s.gainU = Clamp(c->nGainU, -32768, 32767);
    s.gainV = Clamp(c->nGainV, -32768, 32767);
    s.offY = c->nOffsetY;
    s.offU = c->nOffsetU;
    s.offV = c->nOffsetV;
    return s;
}

inline int AdjustLuma(const Settings& s, int y) {
    const int64_t v = ((int64_t{y} * s.gainY) >> 8) + s.offY;
    return static_cast<int>(std::clamp<int64_t>(v, 0, 255));
}

inline int AdjustChroma(int c, int gain, int offset) {
    const int64_t v = ((int64_t{c} * gain) >> 8) - (gain >> 1) + offset;
    return static_cast<int>(std::clamp<int64_t>(v, -128, 127) + 128);
}

// ---- the arithmetic ----

struct Rgb {
    int r, g, b;
};

inline int MulHigh(int a, int b) { return (a * b) >> 16; }

inline Rgb YuvToRgb(int y, int u8, int v8) {
    const int u = (u8 - 128) * 256, v = (v8 - 128) * 256;
    const int dr = MulHigh(v, 11485) + 16;
    const int db = MulHigh(u, 14516) + 16;
    const int dg = MulHigh(u, -2819) + MulHigh(v, -5850) + 16;
    return {Clamp((y * 32 + dr) >> 5, 0, 255), Clamp((y * 32 + dg) >> 5, 0, 255),
            Clamp((y * 32 + db) >> 5, 0, 255)};
}

inline int Luma14(Rgb p) {
    const int sum =
        ((p.b * 256 * 1868) >> 16) + ((p.g * 256 * 9617) >> 16) + ((p.r * 256 * 4899) >> 16) + 32;
    return Clamp(sum >> 6, 0, 255);
}

inline int Luma7(Rgb p) { return Clamp((38 * p.r + 75 * p.g + 15 * p.b + 64) >> 7, 0, 255); }

inline void Chroma14(Rgb c, int* u, int* v) {
    *u = Clamp((32 * c.b - ((256 * c.g * 5428) >> 16) - ((256 * c.r * 2764) >> 16) + 32) >> 6, -128,
               127) +
         128;
    *v = Clamp((32 * c.r - ((256 * c.g * 6860) >> 16) - ((256 * c.b * 1332) >> 16) + 32) >> 6, -128,
               127) +
         128;
}

inline void Chroma7(Rgb c, int* u, int* v) {
    *u = Clamp((64 * c.b - 42 * c.g - 22 * c.r + 16447) >> 7, 0, 255);
    *v = Clamp((64 * c.r - 54 * c.g - 10 * c.b + 16447) >> 7, 0, 255);
}

inline Rgb Mean(Rgb a, Rgb b) { return {Avg(a.r, b.r), Avg(a.g, b.g), Avg(a.b, b.b)}; }

// ---- opening pictures ----

struct Pair {
    PlaneSet in, out;
    int width = 0, height = 0;
    int inCode = 0, outCode = 0;
};

inline bool Open(const VideoFormatInfo& inF, uint8_t* inBase, const VideoFormatInfo& outF,
                 uint8_t* outBase, bool useRect, Pair* p, bool swapSize = false) {
    ncb::Region ri, ro;
    if (!ncb::ProcessingRegion(inF, inF, useRect, &ri) ||
        !ncb::ProcessingRegion(outF, inF, useRect, &ro))
        return false;
    if (swapSize) std::swap(ro.width, ro.height);
    if (!ncb::GetPlanes(inF, inBase, ri, &p->in) || !ncb::GetPlanes(outF, outBase, ro, &p->out))
        return false;
    p->width = ri.width;
    p->height = ri.height;
    p->inCode = inF.nCodecSubType;
    p->outCode = outF.nCodecSubType;
    return true;
}

inline void Flip(PlaneSet* s) {
    s->plane0 = ncb::FlipRows(s->plane0);
    if (s->count > 1) s->u = ncb::FlipRows(s->u);
    if (s->count > 2) s->v = ncb::FlipRows(s->v);
}

// ---- YUV layouts ----

enum class Kind { kPlanar, kNv12, kPacked, kAyuv };

struct Yuv {
    Kind kind = Kind::kPlanar;
    bool chroma = false;
    int sx = 0, sy = 0;
    int uByte = 0, vByte = 0, yByte = 0;  // packed 4:2:2: byte positions in a pair
};

inline bool DescribeYuv(int code, Yuv* y) {
    switch (code) {
        case 1:
            *y = {Kind::kPlanar, false, 0, 0};
            return true;
        case 2:
        case 6:
        case 8:
            *y = {Kind::kPlanar, true, 1, 1};
            return true;
        case 3:
            *y = {Kind::kPlanar, true, 1, 0};
            return true;
        case 4:
            *y = {Kind::kPlanar, true, 0, 0};
            return true;
        case 9:
            *y = {Kind::kNv12, true, 1, 1};
            return true;
        case 10:
            *y = {Kind::kPacked, true, 1, 0, 1, 3, 0};
            return true;
        case 11:
            *y = {Kind::kPacked, true, 1, 0, 3, 1, 0};
            return true;
        case 12:
            *y = {Kind::kPacked, true, 1, 0, 0, 2, 1};
            return true;
        case 13:
            *y = {Kind::kPacked, true, 1, 0, 2, 0, 1};
            return true;
        case 14:
            *y = {Kind::kAyuv, true, 0, 0};
            return true;
        default:
            return false;
    }
}

inline int ReadLuma(const Yuv& l, const PlaneSet& s, int x, int y) {
    switch (l.kind) {
        case Kind::kPacked:
            return At(s.plane0, x & ~1, y, 2)[l.yByte + 2 * (x & 1)];
        case Kind::kAyuv:
            return At(s.plane0, x, y, 4)[2];
        default:
            return *At(s.plane0, x, y);
    }
}

// Chroma sample (cx, cy) of plane 0 (U) or 1 (V) at the layout's resolution.
inline int ReadChroma(const Yuv& l, const PlaneSet& s, int plane, int cx, int cy) {
    switch (l.kind) {
        case Kind::kPlanar:
            return *At(plane ? s.v : s.u, cx, cy);
        case Kind::kNv12:
            return At(s.u, cx, cy, 2)[plane];
        case Kind::kPacked:
            return At(s.plane0, 2 * cx, cy, 2)[plane ? l.vByte : l.uByte];
        case Kind::kAyuv:
            return At(s.plane0, cx, cy, 4)[plane ? 0 : 1];
    }
    return 0;
}

// ---- YUV to YUV ----

struct YuvJob {
    Yuv src, dst;
    Settings s;
    int width, height;
    const PlaneSet* in;
};

// Chroma mode after "no chroma to adjust": Y-only input outside plain mode is fixed.
inline Mode ChromaMode(const YuvJob& j) {
    return !j.src.chroma && j.s.mode == Mode::kAdjust ? Mode::kFixed : j.s.mode;
}

inline int Finish(const YuvJob& j, int plane, int raw) {
    switch (ChromaMode(j)) {
        case Mode::kAdjust:
            return plane ? AdjustChroma(raw, j.s.gainV, j.s.offV)
                         : AdjustChroma(raw, j.s.gainU, j.s.offU);
        case Mode::kFixed:
            return plane ? j.s.fixedV : j.s.fixedU;
        default:
            return raw;
    }
}

// Source chroma row at source resolution read at output chroma row dcy
// (before horizontal resampling): one value per source column.
inline int SourceColumn(const YuvJob& j, int plane, int scx, int dcy) {
    const Yuv& s = j.src;
    const Yuv& d = j.dst;
    if (d.sy == 1 && s.sy == 0)
        return Avg(ReadChroma(s, *j.in, plane, scx, 2 * dcy),
                   ReadChroma(s, *j.in, plane, scx, 2 * dcy + 1));
    if (d.sy == 0 && s.sy == 1) {
        const int rows = j.height >> 1;
        if (rows == 0) return 128;
        return ReadChroma(s, *j.in, plane, scx, std::min(dcy >> 1, rows - 1));
    }
    return ReadChroma(s, *j.in, plane, scx, dcy);
}

inline int OutputChroma(const YuvJob& j, int plane, int dcx, int dcy) {
    if (ChromaMode(j) == Mode::kFixed) return Finish(j, plane, 0);
    if (!j.src.chroma) return 128;
    const Yuv& s = j.src;
    const Yuv& d = j.dst;
    int raw;
    if (s.sx == d.sx) {
        raw = SourceColumn(j, plane, dcx, dcy);
    } else if (s.sx == 0) {
        raw = Avg(SourceColumn(j, plane, 2 * dcx, dcy), SourceColumn(j, plane, 2 * dcx + 1, dcy));
    } else {
        const int available = j.width >> 1;
        raw = (dcx >> 1) < available ? SourceColumn(j, plane, dcx >> 1, dcy)
              : available > 0        ? SourceColumn(j, plane, available - 1, dcy)
                                     : 128;
    }
    return Finish(j, plane, raw);
}

// Chroma an odd last pixel of a 4:2:2 output writes: the pair before it, or
// 128 (then adjusted or fixed) in a one-pixel-wide picture.
inline int NeutralFinished(const YuvJob& j, int plane) {
    return ChromaMode(j) == Mode::kPlain ? 128 : Finish(j, plane, 128);
}

enum class YuvOp { kTo, kFrom, kAmong };

inline bool YuvCodesOk(YuvOp op, int in, int out) {
    auto generic = [](int c) { return c >= 1 && c <= 4; };
    auto surface = [](int c) { return c == 6 || (c >= 8 && c <= 14); };
    switch (op) {
        case YuvOp::kTo:
            return generic(in) && surface(out);
        case YuvOp::kFrom:
            return surface(in) && generic(out);
        default:
            return generic(in) && generic(out);
    }
}

inline void ConvertYuv(YuvOp op, const VideoFormatInfo& inF, uint8_t* inBase,
                       const VideoFormatInfo& outF, uint8_t* outBase, bool useRect,
                       const Config* config) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p) || !YuvCodesOk(op, p.inCode, p.outCode))
        return;
    YuvJob j;
    if (!DescribeYuv(p.inCode, &j.src) || !DescribeYuv(p.outCode, &j.dst)) return;
    j.s = op == YuvOp::kAmong ? Settings{} : ReadSettings(config);
    j.width = p.width;
    j.height = p.height;
    j.in = &p.in;
    if (j.s.flip) Flip(&p.out);
    const Yuv& d = j.dst;
    const int w = p.width, h = p.height;
    auto luma = [&](int x, int y) {
        const int v = ReadLuma(j.src, p.in, x, y);
        return j.s.mode == Mode::kPlain ? v : AdjustLuma(j.s, v);
    };
    const int cw = w >> d.sx, ch = h >> d.sy;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            switch (d.kind) {
                case Kind::kPlanar:
                case Kind::kNv12:
                    *At(p.out.plane0, x, y) = static_cast<uint8_t>(luma(x, y));
                    break;
                case Kind::kAyuv: {
                    uint8_t* o = At(p.out.plane0, x, y, 4);
                    o[0] = static_cast<uint8_t>(OutputChroma(j, 1, x, y));
                    o[1] = static_cast<uint8_t>(OutputChroma(j, 0, x, y));
                    o[2] = static_cast<uint8_t>(luma(x, y));
                    o[3] = static_cast<uint8_t>(j.s.alpha);
                    break;
                }
                case Kind::kPacked: {
                    uint8_t* pair = At(p.out.plane0, x & ~1, y, 2);
                    pair[d.yByte + 2 * (x & 1)] = static_cast<uint8_t>(luma(x, y));
                    if ((x & 1) == 0 && x + 1 < w) {
                        pair[d.uByte] = static_cast<uint8_t>(OutputChroma(j, 0, x >> 1, y));
                        pair[d.vByte] = static_cast<uint8_t>(OutputChroma(j, 1, x >> 1, y));
                    } else if ((x & 1) == 0) {
                        // Odd last pixel: first chroma byte of its position.
                        const int firstPlane = d.uByte < d.vByte ? 0 : 1;
                        const int at = std::min(d.uByte, d.vByte);
                        const int c = x > 0 ? OutputChroma(j, firstPlane, (x >> 1) - 1, y)
                                            : NeutralFinished(j, firstPlane);
                        pair[at == 0 ? 0 : 1] = static_cast<uint8_t>(c);
                    }
                    break;
                }
            }
        }
    }
    if (!d.chroma || d.kind == Kind::kPacked || d.kind == Kind::kAyuv) return;
    for (int cy = 0; cy < ch; ++cy) {
        for (int cx = 0; cx < cw; ++cx) {
            const int u = OutputChroma(j, 0, cx, cy), v = OutputChroma(j, 1, cx, cy);
            if (d.kind == Kind::kNv12) {
                uint8_t* o = At(p.out.u, cx, cy, 2);
                o[0] = static_cast<uint8_t>(u);
                o[1] = static_cast<uint8_t>(v);
            } else {
                *At(p.out.u, cx, cy) = static_cast<uint8_t>(u);
                *At(p.out.v, cx, cy) = static_cast<uint8_t>(v);
            }
        }
    }
}

// ---- RGB pixels ----

inline Rgb ReadRgb(int code, const uint8_t* p) {
    switch (code) {
        case 257: {
            const int w = p[0] | p[1] << 8;
            return {((w >> 10) & 31) << 3, ((w >> 5) & 31) << 3, (w & 31) << 3};
        }
        case 258: {
            const int w = p[0] | p[1] << 8;
            return {(w >> 11) << 3, ((w >> 5) & 63) << 2, (w & 31) << 3};
        }
        default:
            return {p[2], p[1], p[0]};
    }
}

inline void WriteRgb(int code, uint8_t* p, Rgb c, int alpha) {
    switch (code) {
        case 257: {
            const int w = ((c.r >> 3) << 10) | ((c.g >> 3) << 5) | (c.b >> 3);
            p[0] = static_cast<uint8_t>(w);
            p[1] = static_cast<uint8_t>(w >> 8);
            break;
        }
        case 258: {
            const int w = ((c.r >> 3) << 11) | ((c.g >> 2) << 5) | (c.b >> 3);
            p[0] = static_cast<uint8_t>(w);
            p[1] = static_cast<uint8_t>(w >> 8);
            break;
        }
        default:
            p[0] = static_cast<uint8_t>(c.b);
            p[1] = static_cast<uint8_t>(c.g);
            p[2] = static_cast<uint8_t>(c.r);
            if (code == 260) p[3] = static_cast<uint8_t>(alpha);
    }
}

inline int RgbBytes(int code) { return code == 260 ? 4 : code == 259 ? 3 : 2; }

// ---- YUV to RGB ----

inline void ConvertToRgb(const VideoFormatInfo& inF, uint8_t* inBase, const VideoFormatInfo& outF,
                         uint8_t* outBase, bool useRect, const Config* config) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    if (p.inCode < 1 || p.inCode > 4 || p.outCode < 257 || p.outCode > 260) return;
    YuvJob j;
    DescribeYuv(p.inCode, &j.src);
    j.dst = {Kind::kPlanar, true, 0, 0};
    j.s = ReadSettings(config);
    j.width = p.width;
    j.height = p.height;
    j.in = &p.in;
    if (j.s.flip) Flip(&p.out);
    const Yuv& s = j.src;
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            int luma = ReadLuma(s, p.in, x, y);
            if (j.s.mode != Mode::kPlain) luma = AdjustLuma(j.s, luma);
            int c[2];
            for (int plane = 0; plane < 2; ++plane) {
                if (ChromaMode(j) == Mode::kFixed || !s.chroma) {
                    c[plane] = ChromaMode(j) == Mode::kFixed ? Finish(j, plane, 0) : 128;
                    continue;
                }
                const int rows = p.height >> s.sy, cols = p.width >> s.sx;
                int raw;
                if (rows == 0 || cols == 0) {
                    raw = 128;
                } else {
                    raw = ReadChroma(s, p.in, plane, std::min(x >> s.sx, cols - 1),
                                     std::min(y >> s.sy, rows - 1));
                }
                c[plane] = Finish(j, plane, raw);
            }
            const Rgb rgb = YuvToRgb(luma, c[0], c[1]);
            WriteRgb(p.outCode, At(p.out.plane0, x, y, RgbBytes(p.outCode)), rgb, j.s.alpha);
        }
    }
}

// ---- RGB to YUV ----

inline void ConvertFromRgb(const VideoFormatInfo& inF, uint8_t* inBase, const VideoFormatInfo& outF,
                           uint8_t* outBase, bool useRect, const Config* config) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    if (p.inCode < 257 || p.inCode > 260 || p.outCode < 1 || p.outCode > 4) return;
    Yuv d;
    DescribeYuv(p.outCode, &d);
    const Settings s = ReadSettings(config);
    if (s.flip) Flip(&p.out);
    const int w = p.width, h = p.height, bytes = RgbBytes(p.inCode);
    auto pixel = [&](int x, int y) { return ReadRgb(p.inCode, At(p.in.plane0, x, y, bytes)); };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            int luma = d.chroma ? Luma7(pixel(x, y)) : Luma14(pixel(x, y));
            if (s.mode != Mode::kPlain) luma = AdjustLuma(s, luma);
            *At(p.out.plane0, x, y) = static_cast<uint8_t>(luma);
        }
    }
    if (!d.chroma) return;
    const int mainEnd = w & ~15;
    for (int cy = 0; cy < (h >> d.sy); ++cy) {
        for (int cx = 0; cx < (w >> d.sx); ++cx) {
            int u, v;
            if (d.sy == 1) {
                const int x = 2 * cx, y = 2 * cy;
                const Rgb c = Mean(Mean(pixel(x, y), pixel(x, y + 1)),
                                   Mean(pixel(x + 1, y), pixel(x + 1, y + 1)));
                (x < mainEnd ? Chroma14 : Chroma7)(c, &u, &v);
            } else if (d.sx == 1) {
                Chroma14(Mean(pixel(2 * cx, cy), pixel(2 * cx + 1, cy)), &u, &v);
            } else {
                Chroma14(pixel(cx, cy), &u, &v);
            }
            if (s.mode == Mode::kAdjust) {
                u = AdjustChroma(u, s.gainU, s.offU);
                v = AdjustChroma(v, s.gainV, s.offV);
            } else if (s.mode == Mode::kFixed) {
                u = s.fixedU;
                v = s.fixedV;
            }
            *At(p.out.u, cx, cy) = static_cast<uint8_t>(u);
            *At(p.out.v, cx, cy) = static_cast<uint8_t>(v);
        }
    }
}

// ---- among RGB layouts, AYUV <-> RGB32 ----

inline void ConvertRgb(const VideoFormatInfo& inF, uint8_t* inBase, const VideoFormatInfo& outF,
                       uint8_t* outBase, bool useRect) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    if (p.inCode < 257 || p.inCode > 260 || p.outCode < 257 || p.outCode > 260) return;
    const int ib = RgbBytes(p.inCode), ob = RgbBytes(p.outCode);
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const uint8_t* in = At(p.in.plane0, x, y, ib);
            uint8_t* out = At(p.out.plane0, x, y, ob);
            if (p.inCode == p.outCode) {
                std::memcpy(out, in, ib);
            } else {
                WriteRgb(p.outCode, out, ReadRgb(p.inCode, in), 0);
            }
        }
    }
}

inline void ConvertAyuvRgb32(bool toRgb, const VideoFormatInfo& inF, uint8_t* inBase,
                             const VideoFormatInfo& outF, uint8_t* outBase, bool useRect,
                             bool flip) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    if (p.inCode != (toRgb ? 14 : 260) || p.outCode != (toRgb ? 260 : 14)) return;
    if (flip) Flip(&p.out);
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            const uint8_t* in = At(p.in.plane0, x, y, 4);
            uint8_t* out = At(p.out.plane0, x, y, 4);
            const unsigned int word = in[2] << 16 | in[1] << 8 | in[0];
            const unsigned int r =
                toRgb ? CNVideoProcessor::YUV2RGB(word) : CNVideoProcessor::RGB2YUV(word);
            out[0] = static_cast<uint8_t>(r);
            out[1] = static_cast<uint8_t>(r >> 8);
            out[2] = static_cast<uint8_t>(r >> 16);
            out[3] = in[3];
        }
    }
}

// ---- copy, rotation, de-interlacing ----

inline bool Planar420(int c) { return c == 2 || c == 6 || c == 8; }

// Bytes per element of each plane of a set.
inline void ElementBytes(int code, int* plane0, int* chroma) {
    ncb::FormatLayout l;
    ncb::GetFormatLayout(code, &l);
    *plane0 = l.bpp0;
    *chroma = l.pairs ? 2 : 1;
}

inline void CopyPicture(bool rgb, const VideoFormatInfo& inF, uint8_t* inBase,
                        const VideoFormatInfo& outF, uint8_t* outBase, bool useRect, bool flip) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    const int in = p.inCode, out = p.outCode;
    const bool listed =
        rgb ? (in >= 257 && in <= 260) : ((in >= 1 && in <= 4) || in == 6 || (in >= 8 && in <= 16));
    if (!listed || !(in == out || (Planar420(in) && Planar420(out)))) return;
    if (flip) Flip(&p.out);
    int b0, bc;
    ElementBytes(in, &b0, &bc);
    auto copy = [](const PlaneView& s, const PlaneView& d, int bytes) {
        for (int y = 0; y < s.height; ++y) std::memcpy(At(d, 0, y), At(s, 0, y), s.width * bytes);
    };
    copy(p.in.plane0, p.out.plane0, b0);
    if (p.in.count > 1) copy(p.in.u, p.out.u, bc);
    if (p.in.count > 2) copy(p.in.v, p.out.v, 1);
}

inline int Rotate(bool rgb, const VideoFormatInfo& inF, uint8_t* inBase,
                  const VideoFormatInfo& outF, uint8_t* outBase, bool useRect, int rotation) {
    if (rotation < 0 || rotation > 2) return 0;
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p, rotation != 1)) return 1;
    const int in = p.inCode, out = p.outCode;
    const bool listed = rgb ? in == 260 : (in == 1 || in == 4 || in == 14 || Planar420(in));
    if (!listed || !(in == out || (Planar420(in) && Planar420(out)))) return 1;
    auto turn = [rotation](const PlaneView& s, const PlaneView& d, int bytes) {
        const int w = s.width, h = s.height;
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                int dx, dy;
                if (rotation == 0) {
                    dx = h - 1 - y, dy = x;
                } else if (rotation == 1) {
                    dx = w - 1 - x, dy = h - 1 - y;
                } else {
                    dx = y, dy = w - 1 - x;
                }
                std::memcpy(At(d, dx, dy, bytes), At(s, x, y, bytes), bytes);
            }
        }
    };
    int b0, bc;
    ElementBytes(in, &b0, &bc);
    turn(p.in.plane0, p.out.plane0, b0);
    if (p.in.count > 1) turn(p.in.u, p.out.u, 1);
    if (p.in.count > 2) turn(p.in.v, p.out.v, 1);
    return 1;
}

inline void DeinterlacePlane(const PlaneView& s, const PlaneView& d) {
    const int w = s.width;
    const int blocks = w >= 9 ? (w - 9) / 16 : 0;
    const int directionalEnd = 8 + 16 * blocks;
    for (int y = 0; y < s.height; ++y) {
        if ((y & 1) == 0) {
            std::memmove(At(d, 0, y), At(s, 0, y), w);
            continue;
        }
        const uint8_t* a = At(d, 0, y - 1);
        const uint8_t* b = y + 1 < s.height ? At(s, 0, y + 1) : a;
        const uint8_t* src = At(s, 0, y);
        uint8_t* out = At(d, 0, y);
        for (int x = 0; x < w; ++x) {
            int pp = b[x], qq = a[x];
            if (x >= 8 && x < directionalEnd) {
                const int d0 = std::abs(b[x] - a[x]);
                const int d1 = std::abs(b[x + 1] - a[x - 1]);
                const int d2 = std::abs(b[x - 1] - a[x + 1]);
                if (d1 < d0) pp = b[x + 1], qq = a[x - 1];
                if (d2 < std::min(d0, d1)) pp = b[x - 1], qq = a[x + 1];
            }
            const int lo = std::min(pp, qq), hi = std::max(pp, qq);
            out[x] =
                static_cast<uint8_t>(src[x] >= lo && src[x] <= hi ? src[x] : (lo + hi + 1) >> 1);
        }
    }
}

inline void Deinterlace(const VideoFormatInfo& inF, uint8_t* inBase, const VideoFormatInfo& outF,
                        uint8_t* outBase, bool useRect) {
    Pair p;
    if (!Open(inF, inBase, outF, outBase, useRect, &p)) return;
    if (p.inCode != p.outCode || p.inCode < 1 || p.inCode > 4) return;
    DeinterlacePlane(p.in.plane0, p.out.plane0);
    if (p.in.count > 1) DeinterlacePlane(p.in.u, p.out.u);
    if (p.in.count > 2) DeinterlacePlane(p.in.v, p.out.v);
}

}  // namespace ncbtest::ref
