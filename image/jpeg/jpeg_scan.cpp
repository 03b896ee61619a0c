// Baseline and progressive scan decoding (ITU-T T.81 F.2.2 and G.1.2), with
// coefficients in the transposed block order the reconstruction expects.
//
// Decoding stops at the first block after the bit source reports an invalid
// code or runs past its data: the decode fails then anyway, and stopping
// keeps hostile input (a huge frame over a few bytes of data) from costing
// a full image's worth of work. Blocks with only
// a DC coefficient skip the transform; the shortcut gives the transform's
// exact result (a constant block of min(255, (dc + 4) >> 3)).
#include "image/jpeg/jpeg_scan.h"

#include <cstring>

#include "ncodecbase/jpeg_codec.h"

namespace ncb::jpeg {
namespace {

const uint8_t* ZigZag() { return CNJpegCodec::s_uJpegZigZagReserveScanTable.data(); }

inline __attribute__((always_inline)) int DecodeDcDiff(BitSource& bs, const FastHuffman& dc) {
    bs.Fill();
    const int s = DecodeSymbol(bs, dc);
    if (s == 0) return 0;
    if (s > 11) {
        bs.error = true;
        return 0;
    }
    return Extend(bs.Take(s), s);
}

}  // namespace

void ReconstructDcOnly(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch) {
    int dc =
        static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(block[0]) * quant[0]));
    dc += 1024;
    dc = dc < 0 ? 0 : (dc > 2047 ? 2047 : dc);
    int v = (dc + 4) >> 3;
    v = v > 255 ? 255 : v;
    uint64_t row;
    std::memset(&row, v, 8);
    for (int y = 0; y < 8; ++y) std::memcpy(dst + y * pitch, &row, 8);
    block[0] = 0;
}

namespace {

// Calls visit(component, bx, by) for every block of the scan in order, and
// restart() between restart units; stops when visit returns false.
template <typename Visit, typename Restart>
bool WalkScan(ScanSetup& scan, Visit visit, Restart restart) {
    int single = -1, present = 0;
    for (int c = 0; c < 3; ++c)
        if (scan.comp[c].present) ++present, single = c;
    const int ri = scan.restartInterval;
    int left = ri;
    if (present == 1) {
        const ScanComponent& sc = scan.comp[single];
        for (int by = 0; by < sc.areaH; ++by)
            for (int bx = 0; bx < sc.areaW; ++bx) {
                if (ri && left == 0) restart(), left = ri;
                if (!visit(single, bx, by)) return false;
                --left;
            }
        return true;
    }
    for (int my = 0; my < scan.mcuRows; ++my)
        for (int mx = 0; mx < scan.mcuCols; ++mx) {
            if (ri && left == 0) restart(), left = ri;
            for (int c = 0; c < 3; ++c) {
                const ScanComponent& sc = scan.comp[c];
                if (!sc.present) continue;
                for (int j = 0; j < sc.vBlocks; ++j)
                    for (int i = 0; i < sc.hBlocks; ++i)
                        if (!visit(c, mx * sc.hBlocks + i, my * sc.vBlocks + j)) return false;
            }
            --left;
        }
    return true;
}

// Progressive per-block procedures.
void DcFirst(BitSource& bs, int16_t* blk, const FastHuffman& dc, int16_t* pred, int al) {
    *pred = static_cast<int16_t>(*pred + DecodeDcDiff(bs, dc));
    blk[0] = static_cast<int16_t>(blk[0] + static_cast<int>(static_cast<uint32_t>(*pred) << al));
}

void DcRefine(BitSource& bs, int16_t* blk, int al) {
    bs.Fill();
    if (bs.TakeBit()) blk[0] = static_cast<int16_t>(blk[0] | (1 << al));
}

void AcFirst(BitSource& bs, int16_t* blk, const FastHuffman& ac, int ss, int se, int al,
             int* eobrun) {
    if (*eobrun > 0) {
        --*eobrun;
        return;
    }
    const uint8_t* zz = ZigZag();
    for (int k = ss; k <= se;) {
        bs.Fill();
        const int rs = DecodeSymbol(bs, ac);
        const int r = rs >> 4, s = rs & 15;
        if (s) {
            k += r;
            if (k > se) return;
            const int v = Extend(bs.Take(s), s);
            blk[zz[k]] = static_cast<int16_t>(static_cast<uint32_t>(v) << al);
            ++k;
        } else if (r == 15) {
            k += 16;
        } else {
            *eobrun = (1 << r) - 1 + (r ? static_cast<int>(bs.Take(r)) : 0);
            return;
        }
    }
}

void Correct(BitSource& bs, int16_t* coef, int p1) {
    bs.Fill();
    if (bs.TakeBit() && (*coef & p1) == 0)
        *coef = static_cast<int16_t>(*coef >= 0 ? *coef + p1 : *coef - p1);
}

void AcRefine(BitSource& bs, int16_t* blk, const FastHuffman& ac, int ss, int se, int al,
              int* eobrun) {
    const uint8_t* zz = ZigZag();
    const int p1 = 1 << al;
    int k = ss;
    if (*eobrun == 0) {
        for (; k <= se; ++k) {
            bs.Fill();
            const int rs = DecodeSymbol(bs, ac);
            int r = rs >> 4;
            int value = 0;
            if (rs & 15) {
                value = bs.TakeBit() ? p1 : -p1;
            } else if (r != 15) {
                *eobrun = (1 << r) + (r ? static_cast<int>(bs.Take(r)) : 0);
                break;
            }
            for (; k <= se; ++k) {
                int16_t* coef = &blk[zz[k]];
                if (*coef) {
                    Correct(bs, coef, p1);
                } else if (--r < 0) {
                    break;
                }
            }
            if (value && k <= se) blk[zz[k]] = static_cast<int16_t>(value);
        }
    }
    if (*eobrun > 0) {
        for (; k <= se; ++k)
            if (blk[zz[k]]) Correct(bs, &blk[zz[k]], p1);
        --*eobrun;
    }
}

}  // namespace

namespace {

inline __attribute__((always_inline)) bool DecodeBlockInline(BitSource& bs, int16_t* blk,
                                                             const FastHuffman& dc,
                                                             const FastHuffman& ac,
                                                             int16_t* predictor, bool* dcOnly) {
    *predictor = static_cast<int16_t>(*predictor + DecodeDcDiff(bs, dc));
    blk[0] = *predictor;
    const uint8_t* zz = ZigZag();
    bool only = true;
    for (int k = 1; k < 64;) {
        bs.Fill();
        const int fast = ac.fastAc[bs.Peek(kLookBits)];
        if (fast && k + ((fast >> 4) & 15) < 64) {
            k += (fast >> 4) & 15;
            bs.Skip(fast & 15);
            blk[zz[k]] = static_cast<int16_t>(fast >> 8);
            only = false;
            ++k;
            continue;
        }
        const int rs = DecodeSymbol(bs, ac);
        const int s = rs & 15;
        if (s) {
            k += rs >> 4;
            if (k >= 64) break;
            blk[zz[k]] = static_cast<int16_t>(Extend(bs.Take(s), s));
            only = false;
            ++k;
        } else {
            if (rs == 0) break;
            k += 16;
        }
    }
    *dcOnly = only;
    return !bs.error;
}

}  // namespace

bool DecodeBlockFast(BitSource& source, int16_t* blk, const FastHuffman& dc, const FastHuffman& ac,
                     int16_t* predictor, bool* dcOnly) {
    // A local copy keeps the bit buffer in registers across the coefficient
    // stores, which the compiler could not prove independent of it.
    BitSource bs = source;
    const bool ok = DecodeBlockInline(bs, blk, dc, ac, predictor, dcOnly);
    source = bs;
    return ok;
}

bool DecodeBaselineScan(BitSource& source, ScanSetup& scan) {
    BitSource bs = source;  // in registers for the whole scan
    int16_t pred[3] = {0, 0, 0};
    int16_t* blk = scan.block;
    const ReconstructFn reconstruct = scan.kernels->reconstruct;
    const bool ok = WalkScan(
        scan,
        [&](int c, int bx, int by) {
            const ScanComponent& sc = scan.comp[c];
            bool dcOnly;
            const bool good = DecodeBlockInline(bs, blk, *sc.dc, *sc.ac, &pred[c], &dcOnly);
            uint8_t* dst = sc.plane + by * sc.blockRowStride + bx * 8;
            if (dcOnly)
                ReconstructDcOnly(blk, sc.quant, dst, sc.storePitch);
            else
                reconstruct(blk, sc.quant, dst, sc.storePitch);
            return good && !bs.Overrun();
        },
        [&] {
            bs.ByteAlign();
            pred[0] = pred[1] = pred[2] = 0;
        });
    if (!ok) std::memset(blk, 0, 64 * sizeof(int16_t));
    source = bs;
    return ok && !bs.error && !bs.Overrun();
}

bool DecodeProgressiveScan(BitSource& source, ScanSetup& scan) {
    BitSource bs = source;  // in registers for the whole scan
    int16_t pred[3] = {0, 0, 0};
    int eobrun = 0;
    const int ss = scan.ss, se = scan.se, ah = scan.ah, al = scan.al;
    // A DC refinement must add exactly one bit; others are skipped unread.
    if (ss == 0 && ah > 0 && ah - al != 1) return true;
    const bool ok = WalkScan(
        scan,
        [&](int c, int bx, int by) {
            const ScanComponent& sc = scan.comp[c];
            int16_t* blk = sc.coef + (static_cast<ptrdiff_t>(by) * sc.gridW + bx) * 64;
            if (ss == 0) {
                if (ah == 0)
                    DcFirst(bs, blk, *sc.dc, &pred[c], al);
                else
                    DcRefine(bs, blk, al);
            } else if (ah == 0) {
                AcFirst(bs, blk, *sc.ac, ss, se, al, &eobrun);
            } else {
                AcRefine(bs, blk, *sc.ac, ss, se, al, &eobrun);
            }
            return !bs.error && !bs.Overrun();
        },
        [&] {
            bs.ByteAlign();
            pred[0] = pred[1] = pred[2] = 0;
            eobrun = 0;
        });
    source = bs;
    return ok && !bs.error && !bs.Overrun();
}

void ReconstructComponent(const ScanComponent& c, int gridH, const uint16_t* quant,
                          const IdctKernels& kernels) {
    for (int by = 0; by < gridH; ++by)
        for (int bx = 0; bx < c.gridW; ++bx) {
            int16_t* blk = c.coef + (static_cast<ptrdiff_t>(by) * c.gridW + bx) * 64;
            kernels.reconstruct(blk, quant, c.plane + by * c.blockRowStride + bx * 8, c.storePitch);
        }
}

}  // namespace ncb::jpeg
