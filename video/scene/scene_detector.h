// The scene detector behind CNVideoProcessor::SceneDetect*: its state (kept
// in the caller's work buffer), the geometry fixed at set-up, the measures
// taken from two frames, and the decisions made from those measures.
//
// Measures and decisions are split on purpose. The measures (block search,
// inter-field score, weighted prediction, histogram) read pixels through the
// kernels; the decisions are plain arithmetic over the 20 block values and
// whatever optional stage they ask for, through SceneStages, so each stage
// runs only when a decision needs it and tests can drive the decisions with
// hand-made numbers.
//
// A frame is analysed on a copy of the state that is written back only when
// every stage succeeded: a stage that cannot allocate leaves the detector
// exactly as it was, previous frame included.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/video_format.h"
#include "video/kernels/kernel_set.h"
#include "video/scene/scene_kernels.h"

class CNCodecBuffer;

namespace ncb::video::scene {

inline constexpr int kBlocks = 20;

// Option bits of SceneDetectInit.
inline constexpr uint32_t kOptionSsse3 = 0x02;
inline constexpr uint32_t kOptionSse41 = 0x04;
inline constexpr uint32_t kOptionAlignBlocks = 0x08;
inline constexpr uint32_t kOptionWeighted = 0x10;
inline constexpr uint32_t kOptionContext = 0x20;
inline constexpr uint32_t kOptionHistogram = 0x40;
inline constexpr uint32_t kOptionDissolvePrevious = 0x80;
inline constexpr uint32_t kOptionDissolve = 0x100;

inline constexpr double kInitialThreshold = 12.9;

// Where the detector looks, fixed by SceneDetectInit. Block and band
// positions are relative to the rectangle's origin.
struct SceneGeometry {
    int width = 0;  // of the processing rectangle
    int height = 0;
    int64_t originOffset = 0;  // bytes from a frame's data address to the rectangle's origin
    int64_t pitch = 0;         // luma pitch
    int64_t frameBytes = 0;    // bytes a frame's buffer must hold
    int blockSize = 16;
    int rangeH = 4;
    int rangeV = 4;
    bool fullSearch = false;  // coarse grid and 8-neighbour rounds (at least 96 x 96)
    int walkLimit = 0;        // steps of the closing four-neighbour refinement
    int blockX[kBlocks] = {};
    int blockY[kBlocks] = {};  // the even variant; the odd one is one row lower
    int histLeft = 0;
    int histTop = 0;
    int histWidth = 0;
    int histHeight = 0;
    int bandRow[3] = {};
};

// Context mode's memory of the stream.
struct ContextState {
    int motionMode = 0;
    double noCut[20] = {};
    int noCutCount = 0;
    int noCutNext = 0;
    double quiet[4] = {};
    int quietCount = 0;
    int quietNext = 0;
    int intervals[5] = {};
    int intervalCount = 0;
    int intervalNext = 0;
    double lower = kInitialThreshold;
    double upper = kInitialThreshold;
    bool haveCut = false;
    int64_t lastCutFrame = 0;
};

struct SceneState {
    uint32_t magic = 0;
    uint32_t options = 0;
    int level = 0;      // 0, 1, 2: the kernels the options and the processor allow
    int kernelSet = 0;  // the KernelSet the level maps to (tests may pick the scalar twins)
    bool disabled = false;
    SceneGeometry geometry;
    CNCodecBuffer* previous = nullptr;  // holds one reference
    int64_t frameCounter = 0;
    bool histogramValid = false;
    uint32_t histogram[256] = {};
    ContextState context;
};

inline constexpr uint32_t kSceneStateMagic = 0x53434e44;  // "SCND"

// The state a work buffer holds, or null when it holds none.
SceneState* StateOf(CNCodecBuffer* work);

// For tests: run a detector's kernels from another set (the scalar twins),
// and look at its state. False / null when the buffer holds no detector.
bool SetKernelSet(CNCodecBuffer* work, KernelSet set);
const SceneState* PeekState(CNCodecBuffer* work);

// Geometry for the luma plane of `format`; false when the detector must be
// disabled (no byte luma plane, rectangle outside the picture or below 64
// pixels). Clears kOptionAlignBlocks in *options where it cannot apply.
bool BuildGeometry(const VideoFormatInfo& format, uint32_t* options, SceneGeometry* out);
// The search ranges for a rectangle of width x height (both at least 96).
void SearchRanges(int width, int height, int* rangeH, int* rangeV);

// Forgets the stream: histories, stored histogram, counters, thresholds.
// The previous frame is the caller's to release.
void ForgetStream(SceneState* state);

// ---- Measures ----

struct BlockMeasures {
    double v[kBlocks] = {};  // best sum of absolute differences per pixel of each block
    double mean = 0;         // m
    int dx[kBlocks] = {};    // the displacement each block matched best at
    int dy[kBlocks] = {};
};

// Luma origins of the processing rectangle in two frames.
struct FramePair {
    const uint8_t* current = nullptr;
    const uint8_t* previous = nullptr;
    ptrdiff_t pitch = 0;
};

// The block search over the 20 blocks (odd rows: the odd variant). False
// when its scratch cannot be allocated.
bool MeasureBlocks(const SceneGeometry& g, const SceneKernels& k, const FramePair& frames,
                   bool oddRows, BlockMeasures* out);
// Mean |row 2k - row 2k+1| over the three bands, stopping early below 83/3.
double DissolveScore(const SceneGeometry& g, const SceneKernels& k, const uint8_t* origin,
                     ptrdiff_t pitch);
// The weighted-prediction test at the displacements the search found: 1
// when a brightness-scaled previous frame predicts the blocks well.
int WeightedTest(const SceneGeometry& g, const SceneKernels& k, const FramePair& frames,
                 bool oddRows, const BlockMeasures& blocks);
// Histogram difference h and mean difference g of the window against the
// stored histogram (or the previous frame's when none is stored); stores the
// current one. False when the counts cannot be allocated.
bool HistogramDifference(const SceneGeometry& g, const FramePair& frames, SceneState* state,
                         double* h, double* meanDiff);

// ---- Decisions ----

// The optional stages as the decisions ask for them.
class SceneStages {
  public:
    virtual ~SceneStages() = default;
    virtual double Dissolve() = 0;
    virtual int Weighted() = 0;
    // False when the stage cannot allocate.
    virtual bool Histogram(double* h, double* meanDiff) = 0;
    virtual void InvalidateHistogram() = 0;
};

// The small-object test over the 20 block values.
bool DetectMovingSmallObject(const double v[kBlocks], double m, double threshold);
// Context mode's motion mode for the next frame, from the no-cut history.
int UpdateMotionMode(ContextState* context);

// Cut confidence (75..100) or 0 in *result; false when a stage failed.
bool DecideWithoutContext(uint32_t options, const BlockMeasures& blocks, SceneStages& stages,
                          int* result);
bool DecideWithContext(uint32_t options, int64_t frame, ContextState* context,
                       const BlockMeasures& blocks, SceneStages& stages, int* result);

}  // namespace ncb::video::scene
