// Scene detection operations of CNVideoProcessor: the life cycle of the
// detector state in the caller's work buffer and the per-frame driver that
// measures two frames and hands the measures to the decisions.
//
// The state is one plain structure placed in the work buffer (marked so that
// a buffer holding anything else is refused rather than misread). A frame is
// analysed on a copy of it; only a frame that went through every stage
// writes the copy back and becomes the previous frame.
//
// Not here: checking that frames have the geometry given at set-up beyond
// the buffer holding the rectangle's bytes, and any use of the chroma planes.
#include <new>

#include "base/processor_level.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/scene/scene_detector.h"

namespace ncb::video::scene {
namespace {

// The optional stages over one pair of frames, each run at most once.
class FrameStages final : public SceneStages {
  public:
    FrameStages(SceneState* state, const SceneKernels& k, const FramePair& frames,
                const BlockMeasures& blocks, bool oddRows)
        : state_(state), k_(k), frames_(frames), blocks_(blocks), oddRows_(oddRows) {}

    double Dissolve() override {
        const bool previous = (state_->options & kOptionDissolvePrevious) != 0;
        return DissolveScore(state_->geometry, k_, previous ? frames_.previous : frames_.current,
                             frames_.pitch);
    }
    int Weighted() override {
        return WeightedTest(state_->geometry, k_, frames_, oddRows_, blocks_);
    }
    bool Histogram(double* h, double* meanDiff) override {
        return HistogramDifference(state_->geometry, frames_, state_, h, meanDiff);
    }
    void InvalidateHistogram() override { state_->histogramValid = false; }

  private:
    SceneState* state_;
    const SceneKernels& k_;
    const FramePair& frames_;
    const BlockMeasures& blocks_;
    bool oddRows_;
};

const uint8_t* LumaOrigin(CNCodecBuffer* frame, const SceneGeometry& g) {
    uint8_t* data = static_cast<uint8_t*>(frame->GetAddress());
    if (!data || frame->GetBufferSize() < g.frameBytes) return nullptr;
    return data + g.originOffset;
}

// Measures and decides on the copy `s`; false when a stage failed.
bool Analyse(SceneState* s, const uint8_t* current, const uint8_t* previous, int* result) {
    const SceneKernels& k = GetSceneKernels(static_cast<KernelSet>(s->kernelSet));
    const bool context = (s->options & kOptionContext) != 0;
    const int mode = context ? UpdateMotionMode(&s->context) : 0;
    const bool oddRows = mode == 1 && s->geometry.fullSearch;
    const FramePair frames{current, previous, static_cast<ptrdiff_t>(s->geometry.pitch)};
    BlockMeasures blocks;
    if (!MeasureBlocks(s->geometry, k, frames, oddRows, &blocks)) return false;
    FrameStages stages(s, k, frames, blocks, oddRows);
    return context
               ? DecideWithContext(s->options, s->frameCounter, &s->context, blocks, stages, result)
               : DecideWithoutContext(s->options, blocks, stages, result);
}

int LevelFor(uint32_t options, int have) {
    if ((options & kOptionSse41) && have >= kProcessorLevelSse41) return 2;
    if ((options & kOptionSsse3) && have >= kProcessorLevelSsse3) return 1;
    return 0;
}

}  // namespace

bool SetKernelSet(CNCodecBuffer* work, KernelSet set) {
    SceneState* state = StateOf(work);
    if (!state) return false;
    state->kernelSet = static_cast<int>(set);
    return true;
}

const SceneState* PeekState(CNCodecBuffer* work) { return StateOf(work); }

}  // namespace ncb::video::scene

namespace sd = ncb::video::scene;

int CNVideoProcessor::SceneDetectInit(VideoFormatInfoTag* pFormat, unsigned int uOptions,
                                      CNCodecBuffer* pWork) {
    const int have = ncb::ProcessorLevel();
    if (!pFormat || !pWork || have < ncb::kProcessorLevelSse2) return 0;
    if (sd::SceneState* old = sd::StateOf(pWork)) {
        if (old->previous) old->previous->Release();
        old->previous = nullptr;
    }
    void* memory = pWork->Allocate(static_cast<int>(sizeof(sd::SceneState)), 16, 0);
    if (!memory) return 0;
    pWork->SetDataSize(static_cast<int>(sizeof(sd::SceneState)));
    sd::SceneState* s = new (memory) sd::SceneState();
    s->magic = sd::kSceneStateMagic;
    s->disabled = !sd::BuildGeometry(*pFormat, &uOptions, &s->geometry);
    s->options = uOptions;
    s->level = sd::LevelFor(uOptions, have);
    ncb::video::KernelSet set = ncb::video::KernelSet::kSse2;
    ncb::video::KernelSetForLevel(s->level, &set);
    s->kernelSet = static_cast<int>(set);
    return 1;
}

int CNVideoProcessor::SceneDetect(CNCodecBuffer* pFrame, int* pResult, CNCodecBuffer* pWork) {
    sd::SceneState* live = sd::StateOf(pWork);
    if (!live || !pResult) return 0;
    sd::SceneState s = *live;
    ++s.frameCounter;
    int result = 0;
    if (!s.disabled) {
        const uint8_t* current = pFrame ? sd::LumaOrigin(pFrame, s.geometry) : nullptr;
        if (!current) return 0;
        if (s.previous) {
            const uint8_t* previous = sd::LumaOrigin(s.previous, s.geometry);
            if (!previous || !sd::Analyse(&s, current, previous, &result)) return 0;
        }
        pFrame->AddRef();
        if (s.previous) s.previous->Release();
        s.previous = pFrame;
    }
    *live = s;
    *pResult = result;
    return 1;
}

int CNVideoProcessor::SceneDetectReset(CNCodecBuffer* pWork) {
    sd::SceneState* s = sd::StateOf(pWork);
    if (!s) return 0;
    if (s->previous) s->previous->Release();
    s->previous = nullptr;
    sd::ForgetStream(s);
    return 1;
}

int CNVideoProcessor::SceneDetectUninit(CNCodecBuffer* pWork) {
    if (sd::SceneState* s = sd::StateOf(pWork)) {
        if (s->previous) s->previous->Release();
        s->magic = 0;
    }
    if (pWork) pWork->Free();
    return 1;
}
