// An example decoder plug-in: G.711 mu-law and A-law to 16-bit PCM, built as
// "NAudioDecoderCommon.dll", the file the codec manager asks for the
// uncompressed audio family. It uses the WAVE format tags as subtypes (6
// A-law, 7 mu-law) and refuses every other pair, so the host gets null.
//
// Two things make a plug-in a good citizen: the entry points are plain C
// (extern "C", visible, nothing else exported), and the library exports no
// STB_GNU_UNIQUE symbols (built with -fno-gnu-unique), so the system really
// unloads it when the manager frees it.
#include <cstdlib>
#include <new>

#include "example_decoder.h"

namespace {

constexpr int kFormatALaw = 6;
constexpr int kFormatMuLaw = 7;

int16_t DecodeMuLaw(uint8_t code) {
    code = static_cast<uint8_t>(~code);
    int exponent = (code >> 4) & 7;
    int magnitude = ((((code & 0x0F) << 3) + 0x84) << exponent) - 0x84;
    return static_cast<int16_t>(code & 0x80 ? -magnitude : magnitude);
}

int16_t DecodeALaw(uint8_t code) {
    code ^= 0x55;
    int exponent = (code >> 4) & 7;
    int magnitude = ((code & 0x0F) << 4) + 8;
    if (exponent) magnitude = (magnitude + 0x100) << (exponent - 1);
    return static_cast<int16_t>(code & 0x80 ? magnitude : -magnitude);
}

class G711Decoder final : public ExampleAudioDecoder {
  public:
    explicit G711Decoder(int format) : m_nFormat(format) {}

    int GetOutputFormat(const CNCodecBase::AudioFormatInfoTag& input,
                        CNCodecBase::AudioFormatInfoTag* output) override {
        if (!output || input.nChannels < 1) return 0;
        *output = input;
        output->nCodecType = AUDIO_TYPE_PCM;
        output->nCodecSubType = AUDIO_FORMAT_PCM;
        output->nBitsPerSample = 16;
        output->nBitsPerSampleEx = 16;
        return 1;
    }

    int Decode(const uint8_t* input, int size, int channels, CNCodecBuffer* output) override {
        if (!input || size < 0 || channels < 1 || size % channels || !output) return 0;
        auto* samples = static_cast<int16_t*>(output->Allocate(size * 2, 16, 0));
        if (!samples) return 0;
        for (int i = 0; i < size; ++i)
            samples[i] = m_nFormat == kFormatMuLaw ? DecodeMuLaw(input[i]) : DecodeALaw(input[i]);
        output->SetDataSize(size * 2);
        output->SetBufferUserData(size / channels);
        output->SetBufferFlag(output->GetBufferFlag() | AUDIO_BUFFER_FLAG_INTERLEAVED);
        return 1;
    }

    ~G711Decoder() = default;

  private:
    int m_nFormat;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void* NCreateInstance(int codecType,
                                                                        int codecSubType) {
    if (codecType != AUDIO_TYPE_PCM) return nullptr;
    if (codecSubType != kFormatALaw && codecSubType != kFormatMuLaw) return nullptr;
    // The manager passes our instances around as void*: hand out the interface
    // pointer so the host's cast back to ExampleAudioDecoder* is exact.
    ExampleAudioDecoder* decoder = new (std::nothrow) G711Decoder(codecSubType);
    return decoder;
}

extern "C" __attribute__((visibility("default"))) int NDestroyInstance(void* instance) {
    delete static_cast<G711Decoder*>(static_cast<ExampleAudioDecoder*>(instance));
    return 1;
}
