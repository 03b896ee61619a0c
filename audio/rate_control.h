// Rate control (tempo change) internals: state layout and the cross-fade
// kernel table.
//
// State memory, 16-byte aligned: the 64-byte RateControlDataInfoTag, the
// fade-in table (O floats), the fade-out table (O floats) and the pending
// frames (W frames); O is a multiple of 4, so both tables stay 16-byte
// aligned. ((s + 1) W + 4 O) x 2 + 64 bytes in all.
#pragma once

#include <cstdint>

#include "ncodecbase/audio_processor.h"

namespace ncb::audio {

using RateControlState = CNAudioProcessor::RateControlDataInfoTag;

struct RateControlKernels {
    // out[k] = round(fresh[k] x fadeIn[k] + out[k] x fadeOut[k]) per frame,
    // both channels of a stereo frame with the same factor; rounded to
    // nearest with saturation. frames is a multiple of 4.
    void (*crossFade)(const int16_t* fresh, int16_t* out, const float* fadeIn, const float* fadeOut,
                      int frames, int channels);
};

const RateControlKernels& GetRateControlKernels(int level);

void CrossFade_c(const int16_t* fresh, int16_t* out, const float* fadeIn, const float* fadeOut,
                 int frames, int channels);

void FillRateControlKernels_sse2(RateControlKernels* table);

}  // namespace ncb::audio
