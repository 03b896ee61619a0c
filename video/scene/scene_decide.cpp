// The scene detector's decisions: from the 20 block values (and the
// optional stages, asked for only when a rule needs them) to a cut and its
// confidence, without and with the stream context.
//
// Without context the thresholds are fixed. With context they follow the
// stream: a quiet-history average scales the motion measure, the threshold
// rises right after a cut and relaxes as the usual cut interval passes, and
// a high-motion mode (entered when the frames without a cut have moved a lot
// for a while) asks for more evidence. Nothing here reads pixels.
#include <algorithm>
#include <functional>

#include "video/scene/scene_detector.h"

namespace ncb::video::scene {
namespace {

constexpr double kCutMean = 35.1;
constexpr double kDissolveCut = 41.5;
constexpr double kDissolveStrong = 60.0;

template <typename T, int N>
void Push(T (&ring)[N], int* count, int* next, T value) {
    ring[*next] = value;
    *next = (*next + 1) % N;
    if (*count < N) ++*count;
}

template <typename T, int N>
double Average(const T (&ring)[N], int count) {
    double sum = 0;
    for (int i = 0; i < count; ++i) sum += ring[i];
    return sum / count;
}

int Confidence(double score) {
    const int c = 75 + static_cast<int>(score);
    return std::clamp(c, 75, 100);
}

double QuietAverage(const ContextState& c) {
    const double cm = c.quietCount == 0 ? 1024.0 : Average(c.quiet, c.quietCount);
    return cm < 0.001 ? 0.001 : cm;
}

double ContextThreshold(const ContextState& c, int64_t frame) {
    double t = c.lower;
    if (c.intervalCount > 0) {
        int sum = 0;
        for (int i = 0; i < c.intervalCount; ++i) sum += c.intervals[i];
        const int average = sum / c.intervalCount;
        const double since = static_cast<double>(frame - c.lastCutFrame);
        if (average > 0) t = c.lower + (c.upper - c.lower) * (1.0 - since / average);
        t = std::max(t, c.lower);
    }
    return c.motionMode == 1 ? t + 0.2 : t;
}

double RatioLimit(int mode, double m) {
    if (mode == 0) return m > 25 ? 2.8 - 0.02 * m : 5.3992 - 0.124 * m;
    return m > 25 ? 2.2 - 0.02 * m : 2.3199 - 0.0248 * m;
}

// The stages after the motion decision, shared by both analyses: the
// inter-field test, the weighted prediction and the histogram, whose verdict
// `histogramRule` applies. False when a stage failed.
struct Refined {
    bool cut;
    bool smallObject;
};

bool Refine(uint32_t options, double m, SceneStages& stages, Refined* r,
            const std::function<void(double h, double g, bool* cut)>& histogramRule) {
    double dissolve = -1;
    if ((options & kOptionDissolve) && !r->cut && !r->smallObject && m >= 0.6) {
        dissolve = stages.Dissolve();
        if (dissolve >= kDissolveCut) r->cut = true;
    }
    int weighted = 0;
    if ((options & kOptionWeighted) && r->cut) {
        weighted = stages.Weighted();
        if (weighted == 1) r->cut = false;
    }
    if (!(options & kOptionHistogram)) return true;
    if (r->cut && dissolve >= kDissolveStrong) {
        stages.InvalidateHistogram();
        return true;
    }
    if (r->cut || (!r->smallObject && weighted == 0 && m >= 10)) {
        double h = 0, g = 0;
        if (!stages.Histogram(&h, &g)) return false;
        histogramRule(h, g, &r->cut);
    }
    return true;
}

}  // namespace

bool DetectMovingSmallObject(const double v[kBlocks], double m, double threshold) {
    double sorted[kBlocks];
    std::copy(v, v + kBlocks, sorted);
    std::sort(sorted, sorted + kBlocks, std::greater<double>());
    double top5 = 0, all = 0;
    for (int i = 0; i < kBlocks; ++i) {
        all += sorted[i];
        if (i < 5) top5 += sorted[i];
    }
    all = std::max(all, 0.001);
    const double rest = (all - top5) / 15.0;
    if (top5 / all > threshold) return true;
    return m <= 19 ? rest < 5.9 : rest < 7.2;
}

int UpdateMotionMode(ContextState* c) {
    if (c->noCutCount >= 20) {
        const double average = Average(c->noCut, c->noCutCount);
        if (c->motionMode == 0 && average > 4.3) c->motionMode = 1;
        if (c->motionMode == 1 && average < 3.4) c->motionMode = 0;
    }
    return c->motionMode;
}

bool DecideWithoutContext(uint32_t options, const BlockMeasures& blocks, SceneStages& stages,
                          int* result) {
    const double m = blocks.mean;
    Refined r{false, false};
    if (m >= kCutMean) {
        r.smallObject = DetectMovingSmallObject(blocks.v, m, 0.84);
        r.cut = !r.smallObject;
    }
    auto rule = [m](double h, double g, bool* cut) {
        if ((h >= 0.64 && g >= 25.5) || (h >= 0.32 && m >= 16.7)) {
            *cut = true;
        } else if (h < 0.19 || g < 2.6) {
            *cut = false;
        }
    };
    if (!Refine(options, m, stages, &r, rule)) return false;
    *result = r.cut ? Confidence(25.0 * m / 70.2) : 0;
    return true;
}

bool DecideWithContext(uint32_t options, int64_t frame, ContextState* c,
                       const BlockMeasures& blocks, SceneStages& stages, int* result) {
    const double m = blocks.mean;
    const int mode = c->motionMode;
    const double cm = QuietAverage(*c);
    const double ratio = m / cm;
    const int64_t since = c->haveCut ? frame - c->lastCutFrame : INT64_MAX;

    Refined r{false, false};
    if (m >= ContextThreshold(*c, frame) && ratio >= RatioLimit(mode, m)) {
        r.cut = true;
    } else if (since > 3) {
        r.cut = mode == 0 ? m >= 9.3 && ratio >= 4.1 : m >= 11.3 && ratio >= 3.1;
    }
    if (r.cut) {
        r.smallObject = DetectMovingSmallObject(blocks.v, m, mode == 0 ? 0.84 : 0.76);
        r.cut = !r.smallObject;
    }
    auto confirm = [](double h, double g, bool* cut) {
        if (h >= 0.64 && g >= 25.5) *cut = true;
    };
    if (!Refine(options, m, stages, &r, confirm)) return false;

    if (r.cut && since == 1) r.cut = false;
    if (r.cut) {
        if (c->haveCut)
            Push(c->intervals, &c->intervalCount, &c->intervalNext,
                 static_cast<int>(std::min<int64_t>(since, INT32_MAX)));
        c->haveCut = true;
        c->lastCutFrame = frame;
        c->upper = std::min(cm + c->lower, 30.0);
    }
    const double quietLow = mode == 0 ? 0.6 : 1.6;
    if (m >= quietLow && m <= 27.5) Push(c->quiet, &c->quietCount, &c->quietNext, m);
    if (!r.cut) Push(c->noCut, &c->noCutCount, &c->noCutNext, m);
    *result = r.cut ? Confidence(0.5 * m / cm) : 0;
    return true;
}

}  // namespace ncb::video::scene
