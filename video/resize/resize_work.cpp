// The work buffer of the resizer: ResizeInit lays the header and the tables
// of each plane kind into one 16-byte aligned block; the frame calls run the
// command lists over the planes.
//
// Layout after the 112-byte header (each part at a multiple of 16): luma or
// RGB32 command list, chroma command list, horizontal tables, vertical weight
// rows, then the intermediate rows, shared by the luma and chroma programs
// since they run one after the other.
#include <algorithm>
#include <cstring>

#include "ncodecbase/codec_buffer.h"
#include "video/resize/resize_program.h"
#include "video/resize/resize_rows.h"

namespace ncb::video::resize {
namespace {

int64_t Align16(int64_t n) { return (n + 15) & ~int64_t{15}; }

struct PlaneTables {
    CNCodecBuffer commands, horizontal, vertical;
    PlaneResult result;
};

void ChromaSize(int layout, int width, int height, int* cw, int* ch) {
    *cw = layout == 4 ? width : width >> 1;
    *ch = layout == 2 ? height >> 1 : height;
}

bool HasChroma(int layout) { return layout == 2 || layout == 3 || layout == 4; }

ResizeHTable ParseHTable(const uint8_t* table, int taps) {
    const auto* header = reinterpret_cast<const int32_t*>(table);
    ResizeHTable t;
    t.weights = reinterpret_cast<const int16_t*>(table + header[0]);
    t.left = header[1];
    t.inside = header[2];
    t.right = header[3];
    t.steps = header + 4;
    t.taps = taps;
    return t;
}

// Stores the bytes of the last pixel pair whose mask bytes are set, and no
// others: the pixel after an odd row end may belong to someone else.
void StoreMasked(uint8_t* dst, const uint8_t* pair, uint64_t mask) {
    for (int b = 0; b < 8; ++b)
        if ((mask >> (8 * b)) & 0xFF) dst[b] = pair[b];
}

struct PlaneRun {
    const int32_t* commands;
    const uint8_t* hTable;
    const uint16_t* vWeights;
    uint8_t* inter;
    int tableWidth;
    int dstWidth;
    int bpp;
    uint64_t mask;
};

void Execute(const PlaneRun& p, const ResizeKernels& k, const uint8_t* src, uint8_t* dst) {
    const int32_t* c = p.commands;
    const uint16_t* w = p.vWeights;
    const int values = p.tableWidth * p.bpp;
    const int bodyValues = p.bpp == 4 ? values - 8 : values;
    alignas(16) uint8_t pair[8];
    for (;;) {
        const int op = *c++;
        if (op == kOpEnd) return;
        if (op == kOpCopy) {
            std::memcpy(dst + c[1], src + c[0], static_cast<size_t>(p.dstWidth) * p.bpp);
            c += 2;
        } else if (op < kOpHBytes) {
            const ResizeHTable t = ParseHTable(p.hTable, 2 * (op - kOpHInter + 1));
            auto* out = reinterpret_cast<int16_t*>(p.inter + c[1]);
            (p.bpp == 4 ? k.hRgb32ToInter : k.hPlaneToInter)(src + c[0], t, out);
            c += 2;
        } else if (op < kOpVInter) {
            const ResizeHTable t = ParseHTable(p.hTable, 2 * (op - kOpHBytes + 1));
            if (p.bpp == 4) {
                k.hRgb32ToBytes(src + c[0], t, dst + c[1], pair);
                StoreMasked(dst + c[1] + bodyValues, pair, p.mask);
            } else {
                k.hPlaneToBytes(src + c[0], t, dst + c[1]);
            }
            c += 2;
        } else {
            const bool inter = op < kOpVBytes;
            const int n = op - (inter ? kOpVInter : kOpVBytes) + 2;
            uint8_t* out = dst + c[n];
            const uint8_t* rows[12];
            for (int r = 0; r < n; ++r) rows[r] = (inter ? p.inter : src) + c[r];
            auto run = [&](int offset, uint8_t* to, int count) {
                const uint8_t* at[12];
                if (inter) {
                    for (int r = 0; r < n; ++r) at[r] = rows[r] + 2 * offset;
                    k.vInter(reinterpret_cast<const int16_t* const*>(at), n, w, to, count);
                } else {
                    for (int r = 0; r < n; ++r) at[r] = rows[r] + offset;
                    k.vBytes(at, n, w, to, count);
                }
            };
            run(0, out, bodyValues);
            if (p.bpp == 4) {
                run(bodyValues, pair, 8);
                StoreMasked(out + bodyValues, pair, p.mask);
            }
            w += 8 * n;
            c += n + 1;
        }
    }
}

PlaneRun PlaneRunOf(uint8_t* work, bool chroma) {
    const auto* h = reinterpret_cast<const int32_t*>(work);
    PlaneRun p;
    p.commands = reinterpret_cast<const int32_t*>(work + h[chroma ? kChromaCommands : kCommands]);
    p.hTable = work + h[chroma ? kChromaHTable : kHTable];
    p.vWeights = reinterpret_cast<const uint16_t*>(work + h[chroma ? kChromaVWeights : kVWeights]);
    p.inter = work + h[kInter];
    p.tableWidth = h[chroma ? kChromaTableWidth : kTableWidth];
    p.dstWidth = h[chroma ? kDstChromaWidth : kDstWidth];
    p.bpp = h[kLayout] == kLayoutRgb32 && !chroma ? 4 : 1;
    p.mask = static_cast<uint32_t>(h[kMaskLow]) |
             static_cast<uint64_t>(static_cast<uint32_t>(h[kMaskHigh])) << 32;
    return p;
}

}  // namespace

int Init(int layout, int level, int srcWidth, int srcHeight, int srcPitch, int srcChromaPitch,
         int dstWidth, int dstHeight, int dstPitch, int dstChromaPitch, CNCodecBuffer* work) {
    if (!work) return 0;
    const bool rgb = layout == kLayoutRgb32;
    PlaneTables luma;
    const PlaneGeometry lumaGeometry{srcWidth,  srcHeight, srcPitch,   dstWidth,
                                     dstHeight, dstPitch,  rgb ? 4 : 1};
    if (!BuildPlaneTables(lumaGeometry, &luma.commands, &luma.horizontal, &luma.vertical,
                          &luma.result))
        return 0;
    int scw = 0, sch = 0, dcw = 0, dch = 0;
    const bool chroma = !rgb && HasChroma(layout);
    if (chroma) {
        ChromaSize(layout, srcWidth, srcHeight, &scw, &sch);
        ChromaSize(layout, dstWidth, dstHeight, &dcw, &dch);
    }
    // A picture one pixel wide or high has no chroma samples on that axis.
    const bool chromaTables = chroma && scw > 0 && sch > 0 && dcw > 0 && dch > 0;
    PlaneTables chromaT;
    if (chromaTables) {
        const PlaneGeometry geometry{scw, sch, srcChromaPitch, dcw, dch, dstChromaPitch, 1};
        if (!BuildPlaneTables(geometry, &chromaT.commands, &chromaT.horizontal, &chromaT.vertical,
                              &chromaT.result))
            return 0;
    }

    int64_t at = kHeaderBytes;
    auto place = [&at](CNCodecBuffer& b) {
        const int64_t here = at;
        at = Align16(at + b.GetDataSize());
        return here;
    };
    const int64_t commands = place(luma.commands);
    const int64_t chromaCommands = chromaTables ? place(chromaT.commands) : 0;
    const int64_t hTable = place(luma.horizontal);
    const int64_t chromaHTable = chromaTables ? place(chromaT.horizontal) : 0;
    const int64_t vWeights = place(luma.vertical);
    const int64_t chromaVWeights = chromaTables ? place(chromaT.vertical) : 0;
    const int64_t interBytes =
        std::max(int64_t{luma.result.rowBytes} * luma.result.rows,
                 chromaTables ? int64_t{chromaT.result.rowBytes} * chromaT.result.rows : 0);
    const int64_t inter = at;
    const int64_t total = inter + interBytes;
    if (total > INT32_MAX) return 0;

    auto* base = static_cast<uint8_t*>(work->Allocate(static_cast<int>(total), 16, 0));
    if (!base) return 0;
    int32_t header[kHeaderWords] = {};
    header[kLayout] = layout;
    header[kLevel] = level;
    header[kDstWidth] = dstWidth;
    header[kDstChromaWidth] = chromaTables ? dcw : 0;
    header[kRowBytes] = luma.result.rowBytes;
    header[kRows] = static_cast<int32_t>(luma.result.rows);
    header[kChromaRowBytes] = chromaT.result.rowBytes;
    header[kChromaRows] = static_cast<int32_t>(chromaT.result.rows);
    header[kSrcPitch] = srcPitch;
    header[kSrcChromaPitch] = rgb ? 0 : srcChromaPitch;
    header[kDstPitch] = dstPitch;
    header[kDstChromaPitch] = rgb ? 0 : dstChromaPitch;
    header[kInterBytes] = static_cast<int32_t>(interBytes);
    header[kTableWidth] = luma.result.tableWidth;
    header[kChromaTableWidth] = chromaT.result.tableWidth;
    header[kDstHeight] = dstHeight;
    header[kMaskLow] = static_cast<int32_t>(static_cast<uint32_t>(luma.result.storeMask));
    header[kMaskHigh] = static_cast<int32_t>(static_cast<uint32_t>(luma.result.storeMask >> 32));
    header[kCommands] = static_cast<int32_t>(commands);
    header[kChromaCommands] = static_cast<int32_t>(chromaCommands);
    header[kHTable] = static_cast<int32_t>(hTable);
    header[kChromaHTable] = static_cast<int32_t>(chromaHTable);
    header[kVWeights] = static_cast<int32_t>(vWeights);
    header[kChromaVWeights] = static_cast<int32_t>(chromaVWeights);
    header[kInter] = static_cast<int32_t>(inter);
    std::memset(base, 0, static_cast<size_t>(inter));
    std::memcpy(base, header, sizeof header);
    auto copy = [base](int64_t offset, CNCodecBuffer& b) {
        if (b.GetDataSize() > 0)
            std::memcpy(base + offset, b.GetAddress(), static_cast<size_t>(b.GetDataSize()));
    };
    copy(commands, luma.commands);
    copy(hTable, luma.horizontal);
    copy(vWeights, luma.vertical);
    if (chromaTables) {
        copy(chromaCommands, chromaT.commands);
        copy(chromaHTable, chromaT.horizontal);
        copy(chromaVWeights, chromaT.vertical);
    }
    work->SetDataSize(static_cast<int>(total));
    return 1;
}

bool WorkKernelSet(CNCodecBuffer* work, KernelSet* set) {
    const auto* h = work ? static_cast<const int32_t*>(work->GetAddress()) : nullptr;
    return h && KernelSetForLevel(h[kLevel], set);
}

int Run(CNCodecBuffer* work, int layout, KernelSet set, const uint8_t* const src[3],
        uint8_t* const dst[3]) {
    if (!work || work->GetDataSize() < kHeaderBytes) return 0;
    auto* base = static_cast<uint8_t*>(work->GetAddress());
    const auto* h = reinterpret_cast<const int32_t*>(base);
    const int stored = h[kLayout];
    const bool storedRgb = stored == kLayoutRgb32;
    if (layout == kLayoutRgb32 ? !storedRgb : storedRgb) return 0;
    if (layout != kLayoutRgb32 && layout != 1 && layout != stored) return 0;
    const ResizeKernels& k = GetResizeKernels(set);
    Execute(PlaneRunOf(base, false), k, src[0], dst[0]);
    if (layout != 1 && layout != kLayoutRgb32 && h[kChromaCommands] != 0) {
        const PlaneRun chroma = PlaneRunOf(base, true);
        Execute(chroma, k, src[1], dst[1]);
        Execute(chroma, k, src[2], dst[2]);
    }
    return 1;
}

}  // namespace ncb::video::resize
