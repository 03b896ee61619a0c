// A small WAV reader and writer for the audio subcommand and the demo: PCM
// at 8, 16 or 24 bits, plain or WAVE_FORMAT_EXTENSIBLE (which carries the
// speaker mask). Not part of the library: the library works on sample
// buffers and never touches files.
//
// Samples come back as the library expects them: 8-bit WAV samples (unsigned
// on disk) are made signed, 16 and 24 bits stay little-endian. Not here:
// float or compressed WAV, RIFF64, cue or list chunks (skipped).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ncodec {

struct WavAudio {
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 16;
    int speakerMask = 0;        // the file's mask, or the usual one for its channel count
    std::vector<uint8_t> data;  // interleaved frames, signed samples

    int Frames() const {
        const int frameBytes = channels * bitsPerSample / 8;
        return frameBytes > 0 ? static_cast<int>(data.size() / frameBytes) : 0;
    }
};

// The usual speaker mask for a channel count (mono centre, stereo, ..., 7.1).
int DefaultSpeakerMask(int channels);

bool ReadWav(const std::string& path, WavAudio* audio, std::string* error);
// Writes 16-bit PCM, interleaved; extensible when the mask is not the
// default of the channel count or there are more than two channels.
bool WriteWav16(const std::string& path, const int16_t* samples, int frames, int channels,
                int sampleRate, int speakerMask, std::string* error);

}  // namespace ncodec
