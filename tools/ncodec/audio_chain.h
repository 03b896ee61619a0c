// The offline audio chain of `ncodec audio` and the demo, in the order the
// audio render runs its post-processing: speaker down-mix (or plain widening
// to 16 bits), equalizer, tempo change, resampling, volume. Input arrives in
// pieces of interleaved frames of the source format; output leaves as
// interleaved 16-bit frames.
//
// The equalizer, tempo changer and resampler take mono or stereo only, so
// wider streams need a down-mix first. Not here: dithering, gain staging
// beyond the volume factor (samples saturate), formats other than PCM.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ncodecbase/audio_speaker_convert.h"
#include "ncodecbase/codec_buffer.h"

namespace ncodec {

struct AudioChainOptions {
    int rate = 0;                           // output sample rate; 0 keeps the input's
    double tempo = 1.0;                     // speed factor: 1.25 plays 25 % faster, same pitch
    std::vector<std::pair<int, float>> eq;  // (centre Hz, band weight)
    int downmixMask = 0;                    // output speaker mask; 0 keeps the layout
    double volume = 1.0;
};

struct AudioStreamFormat {
    int channels = 0, sampleRate = 0, bitsPerSample = 16, speakerMask = 0;
};

// A mapping from one speaker layout to another in Q14, output-major, with
// at most five inputs per output; empty (and *error set) when there is none.
std::vector<short> SpeakerFoldRule(int inMask, int outMask, std::string* error);

class AudioChain {
  public:
    AudioChain() = default;
    ~AudioChain();
    AudioChain(const AudioChain&) = delete;
    AudioChain& operator=(const AudioChain&) = delete;

    bool Open(const AudioStreamFormat& in, const AudioChainOptions& options, std::string* error);
    // Runs `frames` frames of the input format; `last` flushes every stage.
    bool Process(const uint8_t* data, int frames, bool last, std::vector<int16_t>* out,
                 std::string* error);

    const AudioStreamFormat& Output() const { return m_out; }

  private:
    bool Widen(const uint8_t* data, int frames, std::vector<int16_t>* samples, std::string* error);
    bool RunBufferStage(bool tempo, std::vector<int16_t>* samples, bool last, std::string* error);

    AudioStreamFormat m_in, m_out;
    AudioChainOptions m_options;
    int m_level = 0;
    bool m_downmix = false;
    CNAudioSpeakerConvert m_speakers;
    CNCodecBuffer* m_eq = nullptr;
    CNCodecBuffer* m_tempo = nullptr;
    CNCodecBuffer* m_resampler = nullptr;
};

}  // namespace ncodec
