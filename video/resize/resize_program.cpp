// Table builder and executor of the resizer.
//
// Builder: per direction a tap count from the shrink factor, a source
// position per destination pixel in 15-bit fixed point, and weights from the
// piecewise quadratic kernel stretched to the tap count. Horizontally the
// clamped tap positions go into the table as they are (an edge pixel reads
// the border pixel several times); vertically the clamped taps merge into
// one entry per border row and taps below 128 are dropped. The program then
// says, row by row, which source rows to filter horizontally into a ring of
// intermediate rows and which rows to weigh into each destination row. A
// destination row left with one vertical tap takes no vertical step: it is
// the horizontally filtered source row (or the source row itself when the
// width does not change), which also makes a same-size resize a plain copy.
//
// Not here: rounding terms (everything truncates, as the kernels do) and
// re-normalising weights after a tap was dropped.
#include "video/resize/resize_program.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "ncodecbase/codec_buffer.h"
#include "video/resize/resize_rows.h"

namespace ncb::video::resize {
namespace {

constexpr int kMaxSize = 1 << 16;
constexpr int kMaxTaps = 12;

int64_t Align16(int64_t n) { return (n + 15) & ~int64_t{15}; }

// Source position of destination pixel i, 15 fraction bits.
int64_t SourcePosition(int source, int destination, int i) {
    if (destination <= 1) return 0;
    return (int64_t{source - 1} * i * 32768) / (destination - 1);
}

// Unclamped source index and distance of each tap of destination pixel i.
struct Taps {
    int count = 0;
    int index[kMaxTaps];
    unsigned int weight[kMaxTaps];
};

Taps TapsOf(int source, int destination, int taps, int i) {
    const int64_t p = SourcePosition(source, destination, i);
    const int n = static_cast<int>(p >> 15);
    const unsigned int f = static_cast<unsigned int>(p & 32767);
    const int h = taps / 2;
    Taps t;
    t.count = taps;
    for (int k = 0; k < h; ++k) {
        t.index[k] = n - (h - 1 - k);
        t.weight[k] = PixelWeight(taps, static_cast<unsigned int>(h - k - 1) * 32768 + f);
    }
    for (int j = 0; j < h; ++j) {
        t.index[h + j] = n + 1 + j;
        t.weight[h + j] = PixelWeight(taps, static_cast<unsigned int>(j + 1) * 32768 - f);
    }
    return t;
}

// Rows and weights of one destination row after merging the clamped taps
// and dropping the weak ones.
struct RowTaps {
    int count = 0;
    int row[kMaxTaps];
    uint16_t weight[kMaxTaps];
};

RowTaps VerticalTaps(int source, int destination, int taps, int i) {
    const Taps t = TapsOf(source, destination, taps, i);
    int rows[kMaxTaps];
    unsigned int sums[kMaxTaps];
    int merged = 0;
    for (int k = 0; k < t.count; ++k) {
        const int row = std::clamp(t.index[k], 0, source - 1);
        if (merged > 0 && rows[merged - 1] == row) {
            sums[merged - 1] += t.weight[k];
        } else {
            rows[merged] = row;
            sums[merged++] = t.weight[k];
        }
    }
    RowTaps out;
    for (int k = 0; k < merged; ++k) {
        if (sums[k] < 128) continue;
        out.row[out.count] = rows[k];
        out.weight[out.count++] = static_cast<uint16_t>(std::min(sums[k], 32767u));
    }
    return out;
}

// Appends words and weight groups, or only counts them on the first pass.
struct ProgramSink {
    int32_t* words = nullptr;
    uint16_t* groups = nullptr;
    int64_t wordCount = 0;
    int64_t groupCount = 0;
    int verticalCommands = 0;

    void Word(int64_t w) {
        if (words) words[wordCount] = static_cast<int32_t>(w);
        ++wordCount;
    }
    void Group(uint16_t w) {
        if (groups) std::fill_n(groups + 8 * groupCount, 8, w);
        ++groupCount;
    }
};

void EmitProgram(const PlaneGeometry& s, int tableWidth, int hTaps, int vTaps, int rowBytes,
                 ProgramSink* sink) {
    const bool hScale = s.srcWidth != tableWidth;
    int slotRow[kMaxTaps];
    std::fill_n(slotRow, kMaxTaps, -1);
    for (int i = 0; i < s.dstHeight; ++i) {
        const RowTaps rt = VerticalTaps(s.srcHeight, s.dstHeight, vTaps, i);
        const int64_t dstOffset = int64_t{i} * s.dstPitch;
        if (rt.count == 1) {
            sink->Word(hScale ? kOpHBytes + hTaps / 2 - 1 : kOpCopy);
            sink->Word(int64_t{rt.row[0]} * s.srcPitch);
            sink->Word(dstOffset);
            continue;
        }
        if (hScale) {
            for (int k = 0; k < rt.count; ++k) {
                const int slot = rt.row[k] % vTaps;
                if (slotRow[slot] == rt.row[k]) continue;
                slotRow[slot] = rt.row[k];
                sink->Word(kOpHInter + hTaps / 2 - 1);
                sink->Word(int64_t{rt.row[k]} * s.srcPitch);
                sink->Word(int64_t{slot} * rowBytes);
            }
        }
        sink->Word((hScale ? kOpVInter : kOpVBytes) + rt.count - 2);
        for (int k = 0; k < rt.count; ++k) {
            sink->Word(hScale ? int64_t{rt.row[k] % vTaps} * rowBytes
                              : int64_t{rt.row[k]} * s.srcPitch);
            sink->Group(rt.weight[k]);
        }
        sink->Word(dstOffset);
        ++sink->verticalCommands;
    }
    sink->Word(kOpEnd);
}

bool FitsInt(int64_t v) { return v >= INT_MIN && v <= INT_MAX; }

bool BuildHorizontal(const PlaneGeometry& s, int tableWidth, int taps, CNCodecBuffer* out) {
    const bool hScale = s.srcWidth != tableWidth;
    int left = 0, right = 0;
    if (hScale) {
        for (int i = 0; i < tableWidth; ++i) {
            const Taps t = TapsOf(s.srcWidth, tableWidth, taps, i);
            if (t.index[0] < 0) {
                left = i + 1;
            } else if (t.index[taps - 1] >= s.srcWidth) {
                right = tableWidth - i;
                break;
            }
        }
    }
    const int inside = hScale ? tableWidth - left - right : 0;
    const int64_t entries = int64_t{left + right} * taps + inside;
    const int64_t weightOffset = Align16(16 + entries * 4);
    const int64_t bytes = weightOffset + (hScale ? int64_t{tableWidth} * taps * 2 : 0) + 16;
    if (!FitsInt(bytes)) return false;
    auto* base = static_cast<uint8_t*>(out->Allocate(static_cast<int>(bytes), 16, 0));
    if (!base) return false;
    std::memset(base, 0, static_cast<size_t>(bytes));
    auto* header = reinterpret_cast<int32_t*>(base);
    header[0] = static_cast<int32_t>(weightOffset);
    header[1] = left;
    header[2] = inside;
    header[3] = right;
    int32_t* step = header + 4;
    auto* weights = reinterpret_cast<int16_t*>(base + weightOffset);
    int64_t cursor = 0;
    auto to = [&](int index) {
        const int64_t pos = int64_t{std::clamp(index, 0, s.srcWidth - 1)} * s.bpp;
        *step++ = static_cast<int32_t>(pos - cursor);
        cursor = pos;
    };
    for (int i = 0; hScale && i < tableWidth; ++i) {
        const Taps t = TapsOf(s.srcWidth, tableWidth, taps, i);
        const bool edge = i < left || i >= left + inside;
        for (int k = 0; k < taps; ++k) {
            weights[int64_t{i} * taps + k] = static_cast<int16_t>(t.weight[k]);
            if (edge || k == 0) to(t.index[k]);
        }
    }
    out->SetDataSize(static_cast<int>(bytes));
    return true;
}

}  // namespace

int TapCount(int source, int destination) {
    if (source <= destination || destination <= 0) return 2;
    const int64_t q = int64_t{source} * 1100 / destination;
    const int64_t r = q / 1000;
    return static_cast<int>(std::clamp<int64_t>(2 * r + 2, 4, 12));
}

unsigned int PixelWeight(int taps, unsigned int distance) {
    const int64_t d = distance;
    int64_t w;
    auto piece = [d](int64_t inner, int64_t outer, int64_t core, int64_t divisor, bool shift,
                     int shiftBits) -> int64_t {
        int64_t v;
        if (d < inner) {
            v = core - d * d;
        } else if (d < outer) {
            v = (outer - d) * (outer - d);
        } else {
            return 0;
        }
        return shift ? v >> shiftBits : v / divisor;
    };
    switch (taps) {
        case 2:
            w = d >= 32768 ? 0 : 32768 - d;
            break;
        case 4:
            w = piece(32768, 65536, int64_t{1} << 31, 0, true, 17);
            break;
        case 6:
            w = piece(49152, 98304, (int64_t{9} << 30) / 2, 442368, false, 0);
            break;
        case 8:
            w = piece(65536, 131072, int64_t{1} << 33, 0, true, 20);
            break;
        case 10:
            w = piece(81920, 163840, (int64_t{25} << 30) / 2, 2048000, false, 0);
            break;
        case 12:
            w = piece(98304, 196608, int64_t{18} << 30, 3538944, false, 0);
            break;
        default:
            w = taps;
            break;
    }
    return static_cast<unsigned int>(std::clamp<int64_t>(w, 0, 32767));
}

bool BuildPlaneTables(const PlaneGeometry& s, CNCodecBuffer* commands, CNCodecBuffer* horizontal,
                      CNCodecBuffer* vertical, PlaneResult* result) {
    if (!commands || !horizontal || !vertical) return false;
    if (s.srcWidth < 1 || s.srcHeight < 1 || s.dstWidth < 1 || s.dstHeight < 1 ||
        s.srcWidth > kMaxSize || s.srcHeight > kMaxSize || s.dstWidth > kMaxSize ||
        s.dstHeight > kMaxSize)
        return false;
    if (!FitsInt(int64_t{s.srcHeight} * s.srcPitch) || !FitsInt(int64_t{s.dstHeight} * s.dstPitch))
        return false;
    const int tableWidth = s.bpp == 4 ? (s.dstWidth + 1) & ~1 : s.dstWidth;
    const int hTaps = TapCount(s.srcWidth, tableWidth);
    const int vTaps = TapCount(s.srcHeight, s.dstHeight);
    const bool hScale = s.srcWidth != tableWidth;
    const int rowBytes = hScale ? static_cast<int>(Align16(int64_t{tableWidth} * s.bpp * 2)) : 0;

    ProgramSink count;
    EmitProgram(s, tableWidth, hTaps, vTaps, rowBytes, &count);
    const int64_t commandBytes = count.wordCount * 4;
    const int64_t groupBytes = std::max<int64_t>(count.groupCount * 16, 16);
    if (!FitsInt(commandBytes) || !FitsInt(groupBytes)) return false;
    auto* words = static_cast<int32_t*>(commands->Allocate(static_cast<int>(commandBytes), 16, 0));
    if (!words) return false;
    auto* groups = static_cast<uint16_t*>(vertical->Allocate(static_cast<int>(groupBytes), 16, 0));
    if (!groups) return false;
    if (!BuildHorizontal(s, tableWidth, hTaps, horizontal)) return false;
    ProgramSink sink{words, groups};
    EmitProgram(s, tableWidth, hTaps, vTaps, rowBytes, &sink);
    commands->SetDataSize(static_cast<int>(commandBytes));
    vertical->SetDataSize(static_cast<int>(count.groupCount * 16));

    PlaneResult r;
    r.rowBytes = rowBytes;
    r.rows = hScale ? static_cast<unsigned int>(vTaps) : 0u;
    r.storeMask = s.bpp == 4 && (s.dstWidth & 1) ? 0x00000000FFFFFFFFull : ~0ull;
    r.tableWidth = tableWidth;
    r.verticalCommands = sink.verticalCommands;
    if (result) *result = r;
    return true;
}

}  // namespace ncb::video::resize
