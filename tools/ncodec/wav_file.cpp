// RIFF/WAVE parsing and writing for ncodec (see wav_file.h). The reader walks
// the chunks, takes "fmt " and "data", skips the rest, and checks every size
// against the file before it trusts it.
#include "tools/ncodec/wav_file.h"

#include <cstring>
#include <fstream>
#include <iterator>

namespace ncodec {
namespace {

constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatExtensible = 0xFFFE;

uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }
uint16_t Le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

void Put32(std::vector<uint8_t>* out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out->push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Put16(std::vector<uint8_t>* out, uint16_t v) {
    out->push_back(static_cast<uint8_t>(v));
    out->push_back(static_cast<uint8_t>(v >> 8));
}
void PutTag(std::vector<uint8_t>* out, const char* tag) { out->insert(out->end(), tag, tag + 4); }

bool Fail(std::string* error, const std::string& what) {
    *error = what;
    return false;
}

}  // namespace

int DefaultSpeakerMask(int channels) {
    switch (channels) {
        case 1:
            return 0x4;
        case 2:
            return 0x3;
        case 3:
            return 0x7;
        case 4:
            return 0x33;
        case 5:
            return 0x37;
        case 6:
            return 0x3F;
        case 7:
            return 0x13F;
        case 8:
            return 0x63F;
        default:
            return channels > 0 && channels < 18 ? (1 << channels) - 1 : 0;
    }
}

bool ReadWav(const std::string& path, WavAudio* audio, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return Fail(error, "cannot open " + path);
    const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)),
                                    std::istreambuf_iterator<char>());
    if (file.size() < 12 || std::memcmp(file.data(), "RIFF", 4) != 0 ||
        std::memcmp(file.data() + 8, "WAVE", 4) != 0)
        return Fail(error, path + " is not a RIFF/WAVE file");
    bool haveFormat = false, haveData = false;
    uint16_t format = 0;
    size_t at = 12;
    while (at + 8 <= file.size() && !haveData) {
        const uint8_t* chunk = file.data() + at;
        const size_t size = Le32(chunk + 4);
        const size_t body = at + 8;
        const size_t available = file.size() - body;
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            if (size < 16 || size > available) return Fail(error, "bad fmt chunk in " + path);
            const uint8_t* f = file.data() + body;
            format = Le16(f);
            audio->channels = Le16(f + 2);
            audio->sampleRate = static_cast<int>(Le32(f + 4));
            audio->bitsPerSample = Le16(f + 14);
            audio->speakerMask = DefaultSpeakerMask(audio->channels);
            if (format == kFormatExtensible && size >= 40) {
                audio->speakerMask = static_cast<int>(Le32(f + 20));
                format = Le16(f + 24);  // the sub-format GUID starts with the format code
            }
            haveFormat = true;
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (!haveFormat) return Fail(error, "data before fmt in " + path);
            // A truncated file keeps what it has; a size of 0xFFFFFFFF (streamed) too.
            const size_t take = std::min(size, available);
            audio->data.assign(file.begin() + static_cast<ptrdiff_t>(body),
                               file.begin() + static_cast<ptrdiff_t>(body + take));
            haveData = true;
        }
        at = body + size + (size & 1);
        if (at < body) break;  // wrapped
    }
    if (!haveFormat || !haveData) return Fail(error, "no fmt or data chunk in " + path);
    if (format != kFormatPcm) return Fail(error, path + ": only PCM WAV files are supported");
    if (audio->bitsPerSample != 8 && audio->bitsPerSample != 16 && audio->bitsPerSample != 24)
        return Fail(error, path + ": " + std::to_string(audio->bitsPerSample) +
                               "-bit samples are not supported (8, 16 or 24)");
    if (audio->channels < 1 || audio->channels > 18 || audio->sampleRate < 1)
        return Fail(error, path + ": bad channel count or sample rate");
    const size_t frameBytes = static_cast<size_t>(audio->channels) * audio->bitsPerSample / 8;
    audio->data.resize(audio->data.size() / frameBytes * frameBytes);
    if (audio->bitsPerSample == 8)
        for (uint8_t& b : audio->data) b ^= 0x80;  // unsigned on disk, signed in the library
    return true;
}

bool WriteWav16(const std::string& path, const int16_t* samples, int frames, int channels,
                int sampleRate, int speakerMask, std::string* error) {
    const bool extensible = channels > 2 || speakerMask != DefaultSpeakerMask(channels);
    const uint32_t dataBytes = static_cast<uint32_t>(frames) * channels * 2;
    std::vector<uint8_t> header;
    PutTag(&header, "RIFF");
    Put32(&header, 0);  // patched below
    PutTag(&header, "WAVE");
    PutTag(&header, "fmt ");
    Put32(&header, extensible ? 40 : 16);
    Put16(&header, extensible ? kFormatExtensible : kFormatPcm);
    Put16(&header, static_cast<uint16_t>(channels));
    Put32(&header, static_cast<uint32_t>(sampleRate));
    Put32(&header, static_cast<uint32_t>(sampleRate) * channels * 2);
    Put16(&header, static_cast<uint16_t>(channels * 2));
    Put16(&header, 16);
    if (extensible) {
        static const uint8_t kPcmGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        Put16(&header, 22);
        Put16(&header, 16);
        Put32(&header, static_cast<uint32_t>(speakerMask));
        Put16(&header, kFormatPcm);
        header.insert(header.end(), kPcmGuidTail, kPcmGuidTail + 14);
    }
    PutTag(&header, "data");
    Put32(&header, dataBytes);
    const uint32_t riffSize = static_cast<uint32_t>(header.size() - 8) + dataBytes;
    for (int i = 0; i < 4; ++i) header[4 + i] = static_cast<uint8_t>(riffSize >> (8 * i));

    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(header.data()),
              static_cast<std::streamsize>(header.size()));
    // Samples are little-endian on disk, as on the machines this runs on.
    out.write(reinterpret_cast<const char*>(samples), static_cast<std::streamsize>(dataBytes));
    out.close();
    if (!out) return Fail(error, "cannot write " + path);
    return true;
}

}  // namespace ncodec
