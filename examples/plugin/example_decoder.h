// The decoder interface that the example host and the example plug-in agree
// on. The codec manager only moves `void*` instances around; what an instance
// is belongs to the host and its plug-ins, and this header is that contract.
//
// A plug-in hands out objects of a class derived from ExampleAudioDecoder
// through NCreateInstance and deletes them in NDestroyInstance, so the host
// never news or deletes across the library boundary.
#pragma once

#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"

class ExampleAudioDecoder {
  public:
    // Describes the output for `input` (a 16-bit linear PCM stream with the
    // input's channels and rate). 0 when the input cannot be decoded.
    virtual int GetOutputFormat(const CNCodecBase::AudioFormatInfoTag& input,
                                CNCodecBase::AudioFormatInfoTag* output) = 0;
    // Decodes `size` bytes into `output`, which it sizes itself; the buffer
    // then carries the frame count in its user data and the interleaved flag.
    // 0 when memory runs out or the arguments are wrong.
    virtual int Decode(const uint8_t* input, int size, int channels, CNCodecBuffer* output) = 0;

  protected:
    ~ExampleAudioDecoder() = default;  // only the plug-in destroys its objects
};
