// Set-up of the scene detector: where the 20 blocks lie, how far the search
// reaches, the histogram window and the inter-field bands, all from the luma
// plane of the descriptor given to SceneDetectInit.
//
// The blocks keep a margin from the rectangle's edges as wide as the search
// can travel (the coarse grid, the halving rounds and the closing walk), so
// in practice every candidate of the pattern lies inside the rectangle; the
// search still refuses any candidate that would not, which is what keeps
// small and odd rectangles safe.
#include <new>

#include "ncodecbase/codec_buffer.h"
#include "video/scene/scene_detector.h"

namespace ncb::video::scene {
namespace {

int RangeFor(int size, const int (&limits)[4]) {
    constexpr int kRanges[] = {4, 6, 8, 12};
    for (int i = 0; i < 4; ++i)
        if (size < limits[i]) return kRanges[i];
    return 16;
}

int RoundUp4(int v) { return (v + 3) & ~3; }

bool LumaPlaneOf(const VideoFormatInfo& f) {
    FormatLayout layout;
    return GetFormatLayout(f.nCodecSubType, &layout) && !layout.rgb && layout.bpp0 == 1 &&
           f.nCodecSubType >= VIDEO_FORMAT_Y800 && f.nCodecSubType <= VIDEO_FORMAT_NV12;
}

// Margins, block size and search reach for a rectangle of at least 64 x 64.
void PlaceSearch(SceneGeometry* g, bool align, int* marginX, int* marginY) {
    const int w = g->width, h = g->height;
    g->blockSize = w <= 96 && h <= 96 ? 8 : 16;
    g->fullSearch = w >= 96 && h >= 96;
    if (g->fullSearch) {
        SearchRanges(w, h, &g->rangeH, &g->rangeV);
        const int r = g->rangeH > g->rangeV ? g->rangeH : g->rangeV;
        // Halving rounds travel at most r - 1, the closing walk at most r.
        g->walkLimit = r;
        *marginX = 5 * g->rangeH + 2 * r;
        *marginY = 3 * g->rangeV + 2 * r;
    } else {
        g->rangeH = g->rangeV = 4;
        g->walkLimit = 4;
        *marginX = *marginY = 4;
    }
    const int extraX = g->blockSize + (align ? 15 : 0);
    const int extraY = g->blockSize + 1;  // the odd variant is one row lower
    if (w - 2 * *marginX < extraX) *marginX = (w - extraX) / 2;
    if (h - 2 * *marginY < extraY) *marginY = (h - extraY) / 2;
}

void PlaceBlocks(SceneGeometry* g, const VideoFormatInfo& f, const Region& r, bool align,
                 int marginX, int marginY) {
    const int columns = g->width >= g->height ? 5 : 4;
    const int rows = kBlocks / columns;
    const int usableW = g->width - 2 * marginX - g->blockSize - (align ? 15 : 0);
    const int usableH = g->height - 2 * marginY - g->blockSize - 1;
    const int stepX = usableW / (columns - 1);
    const int stepY = usableH / (rows - 1);
    for (int i = 0; i < kBlocks; ++i) {
        int x = marginX + (i % columns) * stepX;
        if (align) {
            const int inRow = f.nPadLeft + r.left + x;
            x += ((inRow + 15) & ~15) - inRow;
        }
        g->blockX[i] = x;
        g->blockY[i] = (marginY + (i / columns) * stepY) & ~1;
    }
}

}  // namespace

void SearchRanges(int width, int height, int* rangeH, int* rangeV) {
    *rangeH = RangeFor(width, {540, 720, 1080, 1440});
    *rangeV = RangeFor(height, {360, 480, 720, 960});
}

bool BuildGeometry(const VideoFormatInfo& f, uint32_t* options, SceneGeometry* out) {
    FrameLayout layout;
    Region r;
    if (!LumaPlaneOf(f) || !GetFrameLayout(f, &layout) || !ProcessingRegion(f, true, &r))
        return false;
    if (r.left < 0 || r.top < 0 || r.left + r.width > f.nWidth || r.top + r.height > f.nHeight ||
        r.width < 64 || r.height < 64)
        return false;
    SceneGeometry g;
    g.width = r.width;
    g.height = r.height;
    g.pitch = layout.pitch0;
    g.originOffset = (f.nPadTop + static_cast<int64_t>(r.top)) * g.pitch + f.nPadLeft + r.left;
    g.frameBytes = g.originOffset + (g.height - 1) * g.pitch + g.width;
    if (g.width < 97 || g.height < 97 || g.pitch % 16 != 0) *options &= ~kOptionAlignBlocks;
    const bool align = (*options & kOptionAlignBlocks) != 0;

    int marginX = 0, marginY = 0;
    PlaceSearch(&g, align, &marginX, &marginY);
    PlaceBlocks(&g, f, r, align, marginX, marginY);

    const int histX = RoundUp4(g.width / 16), histY = RoundUp4(g.height / 4);
    g.histLeft = histX;
    g.histTop = histY;
    g.histWidth = g.width - 2 * histX;
    g.histHeight = g.height - 2 * histY;
    for (int b = 0; b < 3; ++b) g.bandRow[b] = ((b + 1) * g.height / 4 - 4) & ~1;
    *out = g;
    return true;
}

void ForgetStream(SceneState* state) {
    state->frameCounter = 0;
    state->histogramValid = false;
    state->context = ContextState{};
}

SceneState* StateOf(CNCodecBuffer* work) {
    if (!work) return nullptr;
    void* memory = work->GetAddress();
    if (!memory || work->GetDataSize() != static_cast<int>(sizeof(SceneState))) return nullptr;
    SceneState* state = static_cast<SceneState*>(memory);
    return state->magic == kSceneStateMagic ? state : nullptr;
}

}  // namespace ncb::video::scene
