// CNJpegCodec::Decode: the marker loop, frame and scan headers, entropy
// segment collection and the completion of the picture. The scan decoders
// (jpeg_scan.cpp) do the per-block work.
//
// The input is one contiguous block, so markers are found with memchr over
// it rather than through a byte-stream object; reads past the end return
// bytes of the FF D8 D8 FF pad and raise a sticky error flag that fails the
// decode after the marker that caused it. Every size a header promises is
// checked against DecodeLimits in 64-bit arithmetic before memory is taken.
//
// Not here: colour conversion, DNL markers, 12-bit samples, arithmetic
// coding; a failed decode may leave the output buffer partly written.
#include "image/jpeg/jpeg_decoder.h"

#include <cstring>
#include <new>

#include "image/jpeg/jpeg_entropy.h"
#include "image/jpeg/jpeg_huffman_cache.h"
#include "image/jpeg/jpeg_scan.h"
#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/heap.h"
#include "video/kernels/kernel_set.h"

namespace ncb::jpeg {
namespace {

constexpr uint8_t kPad[4] = {0xFF, 0xD8, 0xD8, 0xFF};

class ByteCursor {
  public:
    ByteCursor(const uint8_t* data, int size) : d_(data), size_(size) {}
    int Pos() const { return pos_; }
    void SetPos(int p) {
        pos_ = p;
        if (p > size_) error = true;
    }
    int U8() {
        if (pos_ < size_) return d_[pos_++];
        error = true;
        return kPad[(pos_++ - size_) & 3];
    }
    int U16() {
        const int hi = U8();
        return (hi << 8) | U8();
    }
    void Skip(int n) { SetPos(pos_ + n); }
    const uint8_t* Data() const { return d_; }
    int Size() const { return size_; }

    // Finds FF D8; the reader ends just after it. False when there is none.
    bool FindSoi() {
        for (int i = pos_; i + 1 < size_; ++i)
            if (d_[i] == 0xFF && d_[i + 1] == 0xD8) {
                pos_ = i + 2;
                return true;
            }
        return false;
    }
    // Next FF xx with xx neither 00 nor FF; the reader ends after it.
    int NextMarkerSkipStuff() {
        for (int i = pos_; i + 1 < size_; ++i) {
            if (d_[i] != 0xFF) continue;
            const uint8_t m = d_[i + 1];
            if (m != 0x00 && m != 0xFF) {
                pos_ = i + 2;
                return m;
            }
        }
        if (pos_ < size_) pos_ = size_;
        return -1;
    }
    // Next FF xx with xx not 00 (FF FF counts): its start, the reader after
    // it; -1 when there is none.
    int NextMarker(int* marker) {
        int i = pos_;
        while (i + 1 < size_) {
            const void* hit = std::memchr(d_ + i, 0xFF, static_cast<size_t>(size_ - 1 - i));
            if (!hit) break;
            i = static_cast<int>(static_cast<const uint8_t*>(hit) - d_);
            if (d_[i + 1] != 0x00) {
                *marker = d_[i + 1];
                pos_ = i + 2;
                return i;
            }
            i += 2;
        }
        if (pos_ < size_) pos_ = size_;
        return -1;
    }

    bool error = false;

  private:
    const uint8_t* d_;
    int size_;
    int pos_ = 0;
};

enum class Layout { kMono, k420, k422, k1x2, k444 };

struct Component {
    int id = 0;
    int quant = 0;
};

struct DecoderState {
    alignas(16) uint16_t quant[4][64];
    bool quantDefined[4] = {};
    int dcDefined[4] = {}, acDefined[4] = {};
    int dcOffset[4] = {}, acOffset[4] = {};
    FastHuffman dcFast[4], acFast[4];
    alignas(16) int16_t block[64] = {};
    int restartInterval = 0;
    int frameType = 0;  // 0 none, 1 baseline, 2 progressive
    Layout layout = Layout::kMono;
    int ncomp = 0;
    Component comp[3];
    int cols = 0, rows = 0;
    bool extraCol = false, extraRow = false;
    int width = 0, height = 0;
    int scansDone[3] = {};
    ScanComponent planes[3];
    int16_t* coef = nullptr;
    Segment* segs = nullptr;
    int segCapacity = 0;
    bool complete = false;
    VideoFormatInfo format{};

    ~DecoderState() {
        nplat::HeapFree(coef);
        nplat::HeapFree(segs);
    }
};

struct Context {
    ByteCursor in;
    DecoderState* st;
    CNCodecBuffer* output;
    CNCodecBuffer* cache;
    const IdctKernels* kernels;
    const DecodeLimits& limits;
};

bool AnyHuffmanDefined(const DecoderState& st) {
    for (int i = 0; i < 4; ++i)
        if (st.dcDefined[i] || st.acDefined[i]) return true;
    return false;
}

bool InstallDefaults(Context& cx) {
    DecoderState& st = *cx.st;
    if (AnyHuffmanDefined(st)) return true;
    CNJpegCodec::DecodeRaiseDefaultHuffmanTable(st.dcDefined, st.dcOffset, st.acDefined,
                                                st.acOffset, cx.cache);
    struct Def {
        const uint8_t* counts;
        const uint8_t* symbols;
        int n;
        bool ac;
        FastHuffman* fast;
    };
    const Def defs[4] = {
        {CNJpegCodec::s_uDefDcHuffmanCodeNumY.data(), CNJpegCodec::s_uDefDcHuffmanCodeValueY.data(),
         12, false, &st.dcFast[0]},
        {CNJpegCodec::s_uDefDcHuffmanCodeNumUV.data(),
         CNJpegCodec::s_uDefDcHuffmanCodeValueUV.data(), 12, false, &st.dcFast[1]},
        {CNJpegCodec::s_uDefAcHuffmanCodeNumY.data(), CNJpegCodec::s_uDefAcHuffmanCodeValueY.data(),
         162, true, &st.acFast[0]},
        {CNJpegCodec::s_uDefAcHuffmanCodeNumUV.data(),
         CNJpegCodec::s_uDefAcHuffmanCodeValueUV.data(), 162, true, &st.acFast[1]},
    };
    for (const Def& d : defs) BuildFastHuffman(d.counts, d.symbols, d.n, d.ac, d.fast);
    // The standard tables are raised without checks; a cache that could not
    // take them leaves the slots undefined, and scans that need them fail.
    return true;
}

bool ParseDqt(Context& cx) {
    ByteCursor& in = cx.in;
    const int n = in.U16() - 2;
    if (n < 0) return false;
    if (n % 65) {
        in.Skip(n);
        return true;
    }
    for (int t = 0; t < n / 65; ++t) {
        const int pqtq = in.U8();
        const int tq = pqtq & 15;
        if (pqtq >= 16 || tq > 3) {
            in.Skip(64);
            continue;
        }
        cx.st->quantDefined[tq] = true;
        for (int k = 0; k < 64; ++k)
            cx.st->quant[tq][CNJpegCodec::s_uJpegZigZagReserveScanTable[k]] =
                static_cast<uint16_t>(in.U8());
    }
    return true;
}

bool ParseDht(Context& cx) {
    ByteCursor& in = cx.in;
    const int length = in.U16();
    if (length < 2) return false;
    const int end = in.Pos() - 2 + length;
    while (in.Pos() < end) {
        const int tcth = in.U8();
        const int tc = tcth >> 4, th = tcth & 15;
        if (tc > 1 || th > 3) return false;
        uint8_t counts[16];
        int sum = 0;
        for (uint8_t& c : counts) sum += c = static_cast<uint8_t>(in.U8());
        if (sum > (tc == 0 ? 12 : 176)) return false;
        uint8_t symbols[256];
        for (int i = 0; i < sum; ++i) symbols[i] = static_cast<uint8_t>(in.U8());
        if (in.error) return false;
        const int offset = CNJpegCodec::DecodeRaiseHuffmanTable(
            counts, symbols, sum, static_cast<unsigned char>(tc), cx.cache);
        if (offset < 0) return false;
        FastHuffman* fast = tc == 0 ? &cx.st->dcFast[th] : &cx.st->acFast[th];
        if (!BuildFastHuffman(counts, symbols, sum, tc == 1, fast)) return false;
        (tc == 0 ? cx.st->dcDefined : cx.st->acDefined)[th] = 1;
        (tc == 0 ? cx.st->dcOffset : cx.st->acOffset)[th] = offset;
    }
    return true;
}

// Zeroes every byte of a plane region (pitch x rows) outside the
// coveredW x coveredH area at (left, top) that the blocks will write.
void ClearUncovered(uint8_t* region, int64_t pitch, int64_t rows, int64_t top, int64_t left,
                    int64_t coveredW, int64_t coveredH) {
    std::memset(region, 0, static_cast<size_t>(top * pitch));
    const int64_t right = pitch - left - coveredW;
    if (left > 0 || right > 0)
        for (int64_t y = top; y < top + coveredH; ++y) {
            uint8_t* row = region + y * pitch;
            std::memset(row, 0, static_cast<size_t>(left));
            std::memset(row + left + coveredW, 0, static_cast<size_t>(right));
        }
    const int64_t below = rows - top - coveredH;
    std::memset(region + (top + coveredH) * pitch, 0, static_cast<size_t>(below * pitch));
}

int64_t RoundPad(int32_t p) { return (static_cast<int64_t>(p) + 15) & ~int64_t{15}; }

// Plane geometry, output allocation and the per-component scan targets.
bool SetUpOutput(Context& cx, bool progressive) {
    DecoderState& st = *cx.st;
    VideoFormatInfo& f = st.format;
    const int X = st.width, Y = st.height;
    const int64_t w16 = (static_cast<int64_t>(X) + 15) & ~int64_t{15};
    const int64_t h16 = (static_cast<int64_t>(Y) + 15) & ~int64_t{15};
    if (w16 * h16 > cx.limits.maxPixels) return false;
    for (int i = 18; i < 26; ++i)
        if ((&f.nStructSize)[i] < 0) return false;
    const bool fullChroma = st.layout == Layout::k444 || st.layout == Layout::k1x2;
    const int64_t padL = RoundPad(f.nPadLeft), padR = RoundPad(f.nPadRight);
    const int64_t cPadL = fullChroma ? RoundPad(f.nChromaPadLeft) : f.nChromaPadLeft;
    const int64_t cPadR = fullChroma ? RoundPad(f.nChromaPadRight) : f.nChromaPadRight;
    const int64_t p0 = padL + w16 + padR;
    const int64_t r0 = static_cast<int64_t>(f.nPadTop) + h16 + f.nPadBottom;
    const int64_t wc = st.layout == Layout::k420 || st.layout == Layout::k422 ? w16 / 2 : w16;
    const int64_t hc = st.layout == Layout::k420 ? h16 / 2 : h16;
    const int64_t pc = cPadL + wc + cPadR;
    const int64_t rc = static_cast<int64_t>(f.nChromaPadTop) + hc + f.nChromaPadBottom;
    const bool mono = st.layout == Layout::kMono;
    const int64_t total = p0 * r0 + (mono ? 0 : 2 * pc * rc);
    if (total > cx.limits.maxOutputBytes || total > INT_MAX) return false;

    int64_t coefBytes = 0;
    const int64_t n = static_cast<int64_t>(st.cols) * st.rows;
    if (progressive) {
        const int64_t chroma = st.layout == Layout::k420   ? n / 4
                               : st.layout == Layout::k444 ? n
                               : mono                      ? 0
                                                           : n / 2;
        coefBytes = 128 * (n + 2 * chroma);
        if (coefBytes > cx.limits.maxCoefficientBytes) return false;
    }

    f.nStructSize = 104;
    f.nCodecType = VIDEO_TYPE_YUV;
    f.nCodecSubType = mono                        ? VIDEO_FORMAT_Y800
                      : st.layout == Layout::k420 ? VIDEO_FORMAT_YUV420
                      : st.layout == Layout::k422 ? VIDEO_FORMAT_YUV422
                      : st.layout == Layout::k1x2 ? VIDEO_FORMAT_YUV440
                                                  : VIDEO_FORMAT_YUV444;
    f.nReserved3 = f.nReserved4 = f.nFormatFlags = 0;
    f.nWidth = static_cast<int32_t>(w16);
    f.nHeight = static_cast<int32_t>(h16);
    f.nRectLeft = 0;
    f.nRectRight = X;
    f.nRectTop = 0;
    f.nRectBottom = Y;
    f.nPictureWidth = f.nDisplayWidth = X;
    f.nPictureHeight = f.nDisplayHeight = Y;
    f.nReserved14 = f.nReserved15 = 0;
    f.nPadLeft = static_cast<int32_t>(padL);
    f.nPadRight = static_cast<int32_t>(padR);
    f.nChromaPadLeft = static_cast<int32_t>(cPadL);
    f.nChromaPadRight = static_cast<int32_t>(cPadR);

    auto* base = static_cast<uint8_t*>(cx.output->Allocate(static_cast<int>(total), 16, 0));
    if (!base) return false;
    cx.output->SetDataSize(static_cast<int>(total));
    // Bytes that no block reaches (padding, the rows and columns between
    // the block grid and the stored size) start as zero; 1x2 chroma, whose
    // odd rows are filled in at the end, is cleared whole.
    const int cw = st.layout == Layout::k420 || st.layout == Layout::k422 ? st.cols / 2 : st.cols;
    const int ch = st.layout == Layout::k420 || st.layout == Layout::k1x2 ? st.rows / 2 : st.rows;
    ClearUncovered(base, p0, r0, f.nPadTop, padL, 8 * int64_t{st.cols}, 8 * int64_t{st.rows});
    if (!mono) {
        for (int c = 0; c < 2; ++c) {
            uint8_t* plane = base + p0 * r0 + c * pc * rc;
            if (st.layout == Layout::k1x2)
                std::memset(plane, 0, static_cast<size_t>(pc * rc));
            else
                ClearUncovered(plane, pc, rc, f.nChromaPadTop, cPadL, 8 * int64_t{cw},
                               8 * int64_t{ch});
        }
    }

    if (progressive) {
        st.coef = static_cast<int16_t*>(nplat::HeapAlloc(static_cast<size_t>(coefBytes)));
        if (!st.coef) return false;
        std::memset(st.coef, 0, static_cast<size_t>(coefBytes));
    }

    ScanComponent& y = st.planes[0];
    y.plane = base + f.nPadTop * p0 + padL;
    y.storePitch = p0;
    y.blockRowStride = 8 * p0;
    y.gridW = st.cols;
    y.areaW = st.cols - st.extraCol;
    y.areaH = st.rows - st.extraRow;
    y.hBlocks = st.layout == Layout::k420 || st.layout == Layout::k422 ? 2 : 1;
    y.vBlocks = st.layout == Layout::k420 || st.layout == Layout::k1x2 ? 2 : 1;
    y.coef = st.coef;
    if (mono) return true;
    for (int c = 1; c < 3; ++c) {
        ScanComponent& s = st.planes[c];
        uint8_t* start = base + p0 * r0 + (c - 1) * pc * rc;
        s.plane = start + f.nChromaPadTop * pc + cPadL;
        const bool doubled = st.layout == Layout::k1x2;
        s.storePitch = doubled ? 2 * pc : pc;
        s.blockRowStride = doubled ? 16 * pc : 8 * pc;
        s.gridW = s.areaW = cw;
        s.areaH = ch;
        if (st.coef) s.coef = st.coef + 64 * (n + static_cast<int64_t>(c - 1) * cw * ch);
    }
    return true;
}

bool ParseFrame(Context& cx, bool progressive) {
    DecoderState& st = *cx.st;
    InstallDefaults(cx);
    ByteCursor& in = cx.in;
    in.U16();
    if (in.U8() != 8) return false;
    const int Y = in.U16();
    const int X = in.U16();
    if (Y < 1 || X < 1) return false;
    const int nf = in.U8();
    if (nf != 1 && nf != 3) return false;
    int sampling = 0;
    for (int i = 0; i < nf; ++i) {
        st.comp[i].id = in.U8();
        const int s = in.U8();
        const int tq = in.U8();
        if (tq > 3 || !st.quantDefined[tq]) return false;
        st.comp[i].quant = tq;
        if (i == 0) sampling = s;
        if (i > 0 && s != 0x11) return false;
    }
    if (in.error) return false;
    if (nf == 1) {
        if (sampling != 0x11 && sampling != 0x22) return false;
        st.layout = Layout::kMono;
    } else {
        switch (sampling) {
            case 0x11:
                st.layout = Layout::k444;
                break;
            case 0x21:
                st.layout = Layout::k422;
                break;
            case 0x22:
                st.layout = Layout::k420;
                break;
            case 0x12:
                st.layout = Layout::k1x2;
                break;
            default:
                return false;
        }
    }
    st.ncomp = nf;
    st.width = X;
    st.height = Y;
    const bool wide = st.layout == Layout::k420 || st.layout == Layout::k422;
    const bool tall = st.layout == Layout::k420 || st.layout == Layout::k1x2;
    st.cols = wide ? 2 * ((X + 15) / 16) : (X + 7) / 8;
    st.rows = tall ? 2 * ((Y + 15) / 16) : (Y + 7) / 8;
    st.extraCol = st.cols * 8 - X >= 8;
    st.extraRow = st.rows * 8 - Y >= 8;
    if (!SetUpOutput(cx, progressive)) return false;
    st.frameType = progressive ? 2 : 1;
    return true;
}

// Entropy-coded segments from the current position: one run to the next
// marker, or with restarts up to the bound while RSTn markers follow. The
// reader ends at the start of the marker that ended the scan.
bool CollectSegments(Context& cx, int* count) {
    DecoderState& st = *cx.st;
    ByteCursor& in = cx.in;
    const int64_t bound =
        st.restartInterval ? static_cast<int64_t>(st.cols) * st.rows / st.restartInterval + 1 : 1;
    int n = 0;
    for (int64_t collected = 0; collected < bound;) {
        const int start = in.Pos();
        int marker = 0;
        const int at = in.NextMarker(&marker);
        if (at < 0) return false;
        ++collected;
        if (at > start) {
            if (n == st.segCapacity) {
                const int grown = st.segCapacity ? 2 * st.segCapacity : 16;
                void* p = nplat::HeapRealloc(st.segs, sizeof(Segment) * static_cast<size_t>(grown));
                if (!p) return false;
                st.segs = static_cast<Segment*>(p);
                st.segCapacity = grown;
            }
            st.segs[n++] = {in.Data() + start, at - start};
        }
        if (!st.restartInterval || marker < 0xD0 || marker > 0xD7 || collected == bound) {
            in.SetPos(at);
            break;
        }
    }
    *count = n;
    return true;
}

void RaiseHit(Context& cx, int offset, int* raised, int* nRaised) {
    for (int i = 0; i < *nRaised; ++i)
        if (raised[i] == offset) return;
    raised[(*nRaised)++] = offset;
    auto* data = static_cast<uint8_t*>(cx.cache->GetAddress());
    const HuffmanRecord* r = RecordAt(data, cx.cache->GetDataSize(), offset);
    if (r) ++const_cast<HuffmanRecord*>(r)->nHitCount;
}

bool ParseScan(Context& cx) {
    DecoderState& st = *cx.st;
    ByteCursor& in = cx.in;
    InstallDefaults(cx);
    in.U16();
    const int ns = in.U8();
    if (ns < 1 || ns > 3) return false;
    int ids[3], tables[3];
    for (int i = 0; i < ns; ++i) {
        ids[i] = in.U8();
        tables[i] = in.U8();
    }
    const int ss = in.U8(), se = in.U8(), ahal = in.U8();
    if (in.error) return false;
    const bool progressive = st.frameType == 2;

    ScanSetup scan;
    scan.restartInterval = st.restartInterval;
    scan.kernels = cx.kernels;
    scan.block = st.block;
    scan.ss = ss;
    scan.se = se;
    scan.ah = ahal >> 4;
    scan.al = ahal & 15;
    const bool acScan = progressive && ss > 0;
    if (progressive && (ss > se || se > 63 || (ss == 0 && se != 0) || (ss > 0 && ns != 1)))
        return false;
    if (st.ncomp == 1 && ns != 1) return false;
    int matched = 0;
    for (int i = 0; i < ns; ++i) {
        int c = -1;
        for (int k = 0; k < st.ncomp; ++k)
            if (st.comp[k].id == ids[i]) c = k;
        const int td = tables[i] >> 4, ta = tables[i] & 15;
        if (td > 3 || ta > 3) return false;
        if (c < 0) {
            if (st.ncomp == 1 || progressive) return false;
            continue;
        }
        ScanComponent& sc = scan.comp[c];
        if (sc.present) return false;
        if (!st.dcDefined[td]) return false;
        if ((!progressive || acScan) && !st.acDefined[ta]) return false;
        if (!progressive && st.scansDone[c]) return false;
        sc = st.planes[c];
        sc.present = true;
        sc.dc = &st.dcFast[td];
        sc.ac = &st.acFast[ta];
        sc.quant = st.quant[st.comp[c].quant];
        ++matched;
    }
    if (!matched) return false;

    int segCount = 0;
    if (!CollectSegments(cx, &segCount)) return false;

    int raised[6], nRaised = 0;
    for (int i = 0; i < ns; ++i) {
        const int td = tables[i] >> 4, ta = tables[i] & 15;
        if (!progressive || (ss == 0 && scan.ah == 0))
            RaiseHit(cx, st.dcOffset[td], raised, &nRaised);
        if (!progressive || acScan) RaiseHit(cx, st.acOffset[ta], raised, &nRaised);
    }

    const ScanComponent& first = st.planes[0];
    scan.mcuCols = (st.cols + first.hBlocks - 1) / first.hBlocks;
    scan.mcuRows = (st.rows + first.vBlocks - 1) / first.vBlocks;
    BitSource bs;
    bs.Init(st.segs, segCount);
    const bool ok = progressive ? DecodeProgressiveScan(bs, scan) : DecodeBaselineScan(bs, scan);
    if (!ok) return false;
    if (!progressive) {
        bool all = true;
        for (int c = 0; c < st.ncomp; ++c) {
            st.scansDone[c] += scan.comp[c].present;
            all = all && st.scansDone[c];
        }
        st.complete = all;
    }
    return true;
}

void CompleteProgressive(Context& cx) {
    DecoderState& st = *cx.st;
    for (int c = 0; c < st.ncomp; ++c) {
        const ScanComponent& sc = st.planes[c];
        const int gridH = c == 0                                                   ? st.rows
                          : st.layout == Layout::k420 || st.layout == Layout::k1x2 ? st.rows / 2
                                                                                   : st.rows;
        ReconstructComponent(sc, gridH, st.quant[st.comp[c].quant], *cx.kernels);
    }
    st.complete = true;
}

void DoubleChromaRows(DecoderState& st) {
    for (int c = 1; c < 3; ++c) {
        const ScanComponent& sc = st.planes[c];
        const ptrdiff_t pitch = sc.storePitch / 2;
        for (int y = 0; y + 1 < st.height; y += 2)
            std::memcpy(sc.plane + (y + 1) * pitch, sc.plane + y * pitch,
                        static_cast<size_t>(st.width));
    }
    st.format.nCodecSubType = VIDEO_FORMAT_YUV444;
}

bool IsUnsupportedSof(int m) {
    return m == 0xC1 || m == 0xC3 || (m >= 0xC5 && m <= 0xC7) || (m >= 0xC9 && m <= 0xCB) ||
           (m >= 0xCD && m <= 0xCF);
}

bool HandleMarker(Context& cx, int m) {
    DecoderState& st = *cx.st;
    ByteCursor& in = cx.in;
    if (m == 0xC0 || m == 0xC2) return st.frameType != 0 || ParseFrame(cx, m == 0xC2);
    if (IsUnsupportedSof(m)) return false;
    if (m == 0xC4) return ParseDht(cx);
    if (m >= 0xD0 && m <= 0xD8) return true;
    if (m == 0xD9) {
        if (st.frameType == 2) CompleteProgressive(cx);
        return true;
    }
    if (m == 0xDA) return st.frameType == 0 || ParseScan(cx);
    if (m == 0xDB) return ParseDqt(cx);
    if (m == 0xDD) {
        in.U16();
        st.restartInterval = in.U16();
        return true;
    }
    const int length = in.U16();
    if (length < 2) return false;
    in.Skip(length - 2);
    return true;
}

}  // namespace

int DecodeImage(const uint8_t* data, int size, VideoFormatInfo* outFormat, CNCodecBuffer* output,
                CNCodecBuffer* cache, KernelSet kernels, int* consumed,
                const DecodeLimits& limits) {
    if (!data || size < 1 || !outFormat || !output) return 0;
    CNCodecBuffer localCache;
    DecoderState* st = nplat::HeapNew<DecoderState>();
    if (!st) return 0;
    st->format = *outFormat;
    Context cx{ByteCursor(data, size),   st,    output, cache ? cache : &localCache,
               &IdctKernelsFor(kernels), limits};
    int result = 0;
    if (cx.in.FindSoi()) {
        for (;;) {
            const int m = cx.in.NextMarkerSkipStuff();
            if (m < 0 || !HandleMarker(cx, m)) break;
            if (st->complete) {
                if (st->layout == Layout::k1x2) DoubleChromaRows(*st);
                *outFormat = st->format;
                *consumed = cx.in.Pos();
                result = 1;
                break;
            }
            if (cx.in.error) break;
        }
    }
    nplat::HeapDelete(st);
    return result;
}

}  // namespace ncb::jpeg

int CNJpegCodec::Decode(VideoFormatInfoTag* /*inFormat*/, VideoFormatInfoTag* outFormat,
                        CNCodecBuffer* input, CNCodecBuffer* output, CNCodecBuffer* huffmanCache,
                        int kernelSelect) {
    if (!input || !output || !outFormat) return 0;
    ncb::video::KernelSet set;
    if (!ncb::video::KernelSetForLevel(kernelSelect, &set)) return 0;
    const int offset = input->GetBufferUserData();
    const int dataSize = input->GetDataSize();
    const auto* base = static_cast<const uint8_t*>(input->GetAddress());
    if (!base || offset < 0 || dataSize - offset < 1) return 0;
    int consumed = 0;
    if (!ncb::jpeg::DecodeImage(base + offset, dataSize - offset, outFormat, output, huffmanCache,
                                set, &consumed))
        return 0;
    input->SetBufferUserData(offset + consumed);
    return 1;
}
