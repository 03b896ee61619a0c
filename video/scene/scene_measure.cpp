// The measures the scene detector takes from two frames: the block search,
// the inter-field score, the weighted prediction and the luma histogram.
//
// Block search: each of the 20 blocks of the current frame is matched
// against the previous frame. On rectangles of at least 96 x 96 a coarse
// grid of 11 x 7 displacements (multiples of the search ranges) finds the
// area, rounds of the 8 neighbours at half the larger range, halved each
// round down to 1, close in, and a walk over the 4 direct neighbours ends
// the search where no neighbour is better. Smaller rectangles only walk from
// the zero displacement. Ties keep the earlier candidate, so a still picture
// always settles on zero motion.
//
// The weighted-prediction test scales the previous frame's blocks by their
// brightness ratio, once with one ratio for the whole frame (a fade) and
// once with each block's own ratio (light changing in parts of the picture),
// and accepts when either prediction is good.
//
// Scratch for the candidates and the histogram counts is taken from the
// library heap per frame, so an allocation failure surfaces as the stage's
// failure and the detector's state stays untouched.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/kernel/heap.h"
#include "video/scene/scene_detector.h"

namespace ncb::video::scene {
namespace {

struct Scratch {
    const uint8_t* refs[kSceneMaxCandidates];
    uint32_t sads[kSceneMaxCandidates];
    int dx[kSceneMaxCandidates];
    int dy[kSceneMaxCandidates];
};

struct Displacement {
    int dx;
    int dy;
};

constexpr Displacement kEight[8] = {{-1, 0},  {1, 0},  {0, -1}, {0, 1},
                                    {-1, -1}, {1, -1}, {-1, 1}, {1, 1}};

class BlockSearch {
  public:
    BlockSearch(const SceneGeometry& g, const SceneKernels& k, const FramePair& f, Scratch* s,
                int x, int y)
        : g_(g), f_(f), s_(s), x_(x), y_(y), cur_(f.current + y * f.pitch + x) {
        search_ = g.blockSize == 16 ? k.search16 : k.search8;
    }

    void Run() {
        if (g_.fullSearch) {
            Add(0, 0);
            for (int j = -3; j <= 3; ++j)
                for (int i = -5; i <= 5; ++i)
                    if (i != 0 || j != 0) Add(i * g_.rangeH, j * g_.rangeV);
            Evaluate(true);
            for (int step = std::max(g_.rangeH, g_.rangeV) / 2; step >= 1; step /= 2) {
                const int cx = dx_, cy = dy_;
                for (const Displacement& d : kEight) Add(cx + step * d.dx, cy + step * d.dy);
                Evaluate(false);
            }
        } else {
            Add(0, 0);
            Evaluate(true);
        }
        for (int walk = 0; walk < g_.walkLimit; ++walk) {
            const int cx = dx_, cy = dy_;
            for (int n = 0; n < 4; ++n) Add(cx + kEight[n].dx, cy + kEight[n].dy);
            if (!Evaluate(false)) break;
        }
    }

    uint32_t Sad() const { return sad_; }
    int Dx() const { return dx_; }
    int Dy() const { return dy_; }

  private:
    void Add(int dx, int dy) {
        const int x = x_ + dx, y = y_ + dy;
        if (x < 0 || y < 0 || x + g_.blockSize > g_.width || y + g_.blockSize > g_.height) return;
        if (!g_.fullSearch && (std::abs(dx) > g_.rangeH || std::abs(dy) > g_.rangeV)) return;
        s_->refs[count_] = f_.previous + y * f_.pitch + x;
        s_->dx[count_] = dx;
        s_->dy[count_] = dy;
        ++count_;
    }

    // Runs the candidates added since the last call; true when the best
    // position moved (always taken on the first call).
    bool Evaluate(bool first) {
        const int n = count_;
        count_ = 0;
        if (n == 0) return false;
        const int best = search_(cur_, f_.pitch, s_->refs, f_.pitch, n, s_->sads);
        if (!first && s_->sads[best] >= sad_) return false;
        sad_ = s_->sads[best];
        dx_ = s_->dx[best];
        dy_ = s_->dy[best];
        return true;
    }

    const SceneGeometry& g_;
    const FramePair& f_;
    Scratch* s_;
    int x_, y_;
    const uint8_t* cur_;
    int (*search_)(const uint8_t*, ptrdiff_t, const uint8_t* const*, ptrdiff_t, int, uint32_t*);
    int count_ = 0;
    uint32_t sad_ = 0;
    int dx_ = 0, dy_ = 0;
};

int BlockRow(const SceneGeometry& g, int i, bool oddRows) {
    return g.blockY[i] + (oddRows ? 1 : 0);
}

// Brightness ratio cur / ref in 8.8 fixed point, rounded, within 0..32767.
int WeightOf(uint64_t cur, uint64_t ref) {
    if (ref == 0) return cur == 0 ? 256 : 32767;
    const uint64_t w = (cur * 256 + ref / 2) / ref;
    return w > 32767 ? 32767 : static_cast<int>(w);
}

// Whether the mean per pixel of the 14 smallest block measures is at most
// `threshold`.
bool GoodEnough(uint32_t (&e)[kBlocks], int pixels, double threshold) {
    std::sort(e, e + kBlocks);
    uint64_t sum = 0;
    for (int i = 0; i < 14; ++i) sum += e[i];
    return static_cast<double>(sum) / (pixels * 14.0) <= threshold;
}

// Four partial histograms, one per column modulo 4, so that runs of equal
// samples do not queue on one counter; `partial` has room for 4 x 256.
void CountWindow(const SceneGeometry& g, const uint8_t* origin, ptrdiff_t pitch, uint32_t* counts,
                 uint32_t* partial) {
    std::memset(partial, 0, 4 * 256 * sizeof(uint32_t));
    const int whole = g.histWidth & ~3;
    for (int y = 0; y < g.histHeight; ++y) {
        const uint8_t* row = origin + (g.histTop + y) * pitch + g.histLeft;
        for (int x = 0; x < whole; x += 4) {
            ++partial[row[x]];
            ++partial[256 + row[x + 1]];
            ++partial[512 + row[x + 2]];
            ++partial[768 + row[x + 3]];
        }
        for (int x = whole; x < g.histWidth; ++x) ++partial[row[x]];
    }
    for (int i = 0; i < 256; ++i)
        counts[i] = partial[i] + partial[256 + i] + partial[512 + i] + partial[768 + i];
}

double MeanOf(const uint32_t* counts, double pixels) {
    uint64_t sum = 0;
    for (int i = 0; i < 256; ++i) sum += static_cast<uint64_t>(i) * counts[i];
    return static_cast<double>(sum) / pixels;
}

}  // namespace

bool MeasureBlocks(const SceneGeometry& g, const SceneKernels& k, const FramePair& frames,
                   bool oddRows, BlockMeasures* out) {
    Scratch* scratch = static_cast<Scratch*>(nplat::HeapAlloc(sizeof(Scratch)));
    if (!scratch) return false;
    const double pixels = g.blockSize * g.blockSize;
    double sum = 0;
    for (int i = 0; i < kBlocks; ++i) {
        BlockSearch search(g, k, frames, scratch, g.blockX[i], BlockRow(g, i, oddRows));
        search.Run();
        out->v[i] = search.Sad() / pixels;
        out->dx[i] = search.Dx();
        out->dy[i] = search.Dy();
        sum += out->v[i];
    }
    out->mean = sum / kBlocks;
    nplat::HeapFree(scratch);
    return true;
}

double DissolveScore(const SceneGeometry& g, const SceneKernels& k, const uint8_t* origin,
                     ptrdiff_t pitch) {
    uint64_t sum = 0, pairs = 0;
    double score = 0;
    for (int band = 0; band < 3; ++band) {
        for (int pair = 0; pair < 4; ++pair) {
            const uint8_t* upper = origin + (g.bandRow[band] + 2 * pair) * pitch;
            sum += k.rowDiff(upper, upper + pitch, g.width);
            pairs += static_cast<uint64_t>(g.width);
        }
        score = static_cast<double>(sum) / static_cast<double>(pairs);
        if (score < 83.0 / 3.0) break;
    }
    return score;
}

int WeightedTest(const SceneGeometry& g, const SceneKernels& k, const FramePair& frames,
                 bool oddRows, const BlockMeasures& blocks) {
    const int size = g.blockSize, pixels = size * size;
    const uint8_t* cur[kBlocks];
    const uint8_t* ref[kBlocks];
    uint32_t curSum[kBlocks], refSum[kBlocks];
    uint64_t curTotal = 0, refTotal = 0;
    for (int i = 0; i < kBlocks; ++i) {
        const int x = g.blockX[i], y = BlockRow(g, i, oddRows);
        cur[i] = frames.current + y * frames.pitch + x;
        ref[i] = frames.previous + (y + blocks.dy[i]) * frames.pitch + x + blocks.dx[i];
        curSum[i] = k.blockSum(cur[i], frames.pitch, size);
        refSum[i] = k.blockSum(ref[i], frames.pitch, size);
        curTotal += curSum[i];
        refTotal += refSum[i];
    }
    const int frameWeight = WeightOf(curTotal, refTotal);
    uint32_t whole[kBlocks], own[kBlocks];
    bool allClose = true;
    const uint32_t limit = static_cast<uint32_t>(pixels) * 20;
    for (int i = 0; i < kBlocks; ++i) {
        whole[i] = k.weightedSad(cur[i], frames.pitch, ref[i], frames.pitch, size, frameWeight);
        own[i] = k.weightedSad(cur[i], frames.pitch, ref[i], frames.pitch, size,
                               WeightOf(curSum[i], refSum[i]));
        allClose = allClose && whole[i] <= limit && own[i] <= limit;
    }
    if (allClose) return 1;
    // One weight for the frame may miss more, so it gets the looser bound.
    if (GoodEnough(whole, pixels, 14.96)) return 1;
    return GoodEnough(own, pixels, 10.86) ? 1 : 0;
}

bool HistogramDifference(const SceneGeometry& g, const FramePair& frames, SceneState* state,
                         double* h, double* meanDiff) {
    uint32_t* counts = static_cast<uint32_t*>(nplat::HeapAlloc(6 * 256 * sizeof(uint32_t)));
    if (!counts) return false;
    uint32_t* current = counts;
    uint32_t* previous = counts + 256;
    uint32_t* partial = counts + 512;
    CountWindow(g, frames.current, frames.pitch, current, partial);
    if (state->histogramValid) {
        std::memcpy(previous, state->histogram, sizeof(state->histogram));
    } else {
        CountWindow(g, frames.previous, frames.pitch, previous, partial);
    }
    const double pixels = static_cast<double>(g.histWidth) * g.histHeight;
    uint64_t diff = 0;
    for (int i = 0; i < 256; ++i)
        diff += current[i] > previous[i] ? current[i] - previous[i] : previous[i] - current[i];
    *h = static_cast<double>(diff) / pixels;
    const double d = MeanOf(current, pixels) - MeanOf(previous, pixels);
    *meanDiff = d < 0 ? -d : d;
    std::memcpy(state->histogram, current, sizeof(state->histogram));
    state->histogramValid = true;
    nplat::HeapFree(counts);
    return true;
}

}  // namespace ncb::video::scene
