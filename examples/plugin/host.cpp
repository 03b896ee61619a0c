// An example host: points the codec manager at a plug-in folder, asks it for
// G.711 decoders, decodes a few codes through the plug-in, and hands
// everything back. Usage: example_plugin_host PLUGIN_FOLDER
//
// It checks the samples against the values Python's audioop module gives for
// the same codes and exits with 1 when anything differs, so it doubles as a
// smoke test of a plug-in build.
#include <cstdint>
#include <cstdio>

#include "example_decoder.h"
#include "ncodecbase/codec_manager.h"

namespace {

struct KnownCode {
    uint8_t code;
    int16_t sample;
};

constexpr int kCodesPerCase = 6;

struct Case {
    const char* name;
    int codecSubType;  // WAVE format tag
    KnownCode known[kCodesPerCase];
};

constexpr Case kCases[] = {
    {"mu-law", 7, {{0xFF, 0}, {0x80, 32124}, {0x00, -32124}, {0xFE, 8}, {0xCF, 924}, {0x9F, 8316}}},
    {"A-law", 6, {{0xD5, 8}, {0x55, -8}, {0xAA, 32256}, {0x2A, -32256}, {0xC5, 264}, {0x45, -264}}},
};

// Decodes the case's codes as one mono buffer; the number of wrong samples,
// or -1 when the decoder failed.
int CheckCase(ExampleAudioDecoder* decoder, const Case& c) {
    uint8_t codes[kCodesPerCase];
    for (int i = 0; i < kCodesPerCase; ++i) codes[i] = c.known[i].code;
    CNCodecBuffer* pcm = CNCodecBuffer::CreateBuffer();
    if (!pcm) return -1;
    int errors = -1;
    if (decoder->Decode(codes, kCodesPerCase, 1, pcm)) {
        const auto* samples = static_cast<const int16_t*>(pcm->GetAddress());
        errors = 0;
        for (int i = 0; i < kCodesPerCase; ++i) {
            std::printf("%-6s 0x%02X -> %6d\n", c.name, codes[i], samples[i]);
            if (samples[i] != c.known[i].sample) ++errors;
        }
    }
    pcm->Release();
    return errors;
}

int RunCase(const Case& c) {
    void* instance = CNCodecManager::AllocateAudioDecoder(AUDIO_TYPE_PCM, c.codecSubType);
    if (!instance) {
        std::fprintf(stderr, "no %s decoder\n", c.name);
        return 1;
    }
    int errors = CheckCase(static_cast<ExampleAudioDecoder*>(instance), c);
    CNCodecManager::FreeAudioDecoder(instance, AUDIO_TYPE_PCM, c.codecSubType);
    if (errors) std::fprintf(stderr, "%s: %s\n", c.name, errors < 0 ? "decode failed" : "wrong");
    return errors ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PLUGIN_FOLDER\n", argv[0]);
        return 2;
    }
    // One folder serves both families here; video is not used.
    if (!CNCodecManager::Init(argv[1], argv[1])) {
        std::fprintf(stderr, "cannot use folder %s\n", argv[1]);
        return 1;
    }
    int failures = 0;
    for (const Case& c : kCases) failures += RunCase(c);
    CNCodecManager::Uninit();
    return failures ? 1 : 0;
}
