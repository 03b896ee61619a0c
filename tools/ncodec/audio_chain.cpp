// The offline audio chain (see audio_chain.h). Each stage keeps its state in
// a CNCodecBuffer exactly as the render does, so the command line exercises
// the same calls, pieces and flushes that playback makes.
#include "tools/ncodec/audio_chain.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>

#include "base/processor_level.h"
#include "ncodecbase/audio_processor.h"

namespace ncodec {
namespace {

using AP = CNAudioProcessor;

constexpr short kUnity = 16384;
constexpr short kMinus3Db = 11585;  // 1 / sqrt 2 in Q14

enum class Side { kLeft, kRight, kCentre, kLfe };

// The side of each speaker-mask bit (front L/R/C, LFE, back L/R, front
// left/right of centre, back centre, side L/R, then the top positions).
constexpr Side kSides[18] = {
    Side::kLeft, Side::kRight,  Side::kCentre, Side::kLfe,  Side::kLeft,   Side::kRight,
    Side::kLeft, Side::kRight,  Side::kCentre, Side::kLeft, Side::kRight,  Side::kCentre,
    Side::kLeft, Side::kCentre, Side::kRight,  Side::kLeft, Side::kCentre, Side::kRight};

// Position of `bit` among the set bits of `mask` (the channel number).
int ChannelOf(int mask, int bit) {
    return std::popcount(static_cast<unsigned>(mask & ((1 << bit) - 1)));
}

bool Has(int mask, int bit) { return (mask >> bit & 1) != 0; }

// First output bit on the given side, or -1.
int FirstOnSide(int mask, Side side) {
    for (int b = 0; b < 18; ++b)
        if (Has(mask, b) && kSides[b] == side) return b;
    return -1;
}

struct BufferDeleter {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};

}  // namespace

std::vector<short> SpeakerFoldRule(int inMask, int outMask, std::string* error) {
    inMask &= 0x3FFFF;
    outMask &= 0x3FFFF;
    const int I = std::popcount(static_cast<unsigned>(inMask));
    const int O = std::popcount(static_cast<unsigned>(outMask));
    if (I == 0 || O == 0) {
        *error = "a speaker mask names no speaker";
        return {};
    }
    std::vector<short> table(static_cast<size_t>(O) * I, 0);
    auto add = [&](int outBit, int inBit, short k) {
        table[static_cast<size_t>(ChannelOf(outMask, outBit)) * I + ChannelOf(inMask, inBit)] = k;
    };
    const int centre = FirstOnSide(outMask, Side::kCentre);
    const int left = FirstOnSide(outMask, Side::kLeft), right = FirstOnSide(outMask, Side::kRight);
    for (int b = 0; b < 18; ++b) {
        if (!Has(inMask, b)) continue;
        if (Has(outMask, b)) {
            add(b, b, kUnity);
            continue;
        }
        switch (kSides[b]) {
            case Side::kLfe:
                break;  // dropped unless the output has its own LFE
            case Side::kCentre:
                if (centre >= 0) {
                    add(centre, b, kUnity);
                } else if (left >= 0 && right >= 0) {
                    add(left, b, kMinus3Db);
                    add(right, b, kMinus3Db);
                } else {
                    add(left >= 0 ? left : right, b, kMinus3Db);
                }
                break;
            case Side::kLeft:
            case Side::kRight: {
                const int same = kSides[b] == Side::kLeft ? left : right;
                add(same >= 0 ? same : centre, b, kMinus3Db);
                break;
            }
        }
    }
    for (int o = 0; o < O; ++o) {
        int used = 0;
        for (int i = 0; i < I; ++i) used += table[static_cast<size_t>(o) * I + i] != 0;
        if (used > CNAudioSpeakerConvert::kMaxContributors) {
            *error = "the down-mix would need more than five inputs for one speaker";
            return {};
        }
    }
    return table;
}

AudioChain::~AudioChain() {
    if (m_eq) {
        AP::EqualizerUninit(m_eq);
        m_eq->Release();
    }
    if (m_tempo) {
        AP::RateControlUninit(m_tempo);
        m_tempo->Release();
    }
    if (m_resampler) {
        AP::AccurateResampleUninit(nullptr, m_resampler);
        m_resampler->Release();
    }
}

bool AudioChain::Open(const AudioStreamFormat& in, const AudioChainOptions& options,
                      std::string* error) {
    m_in = in;
    m_out = in;
    m_out.bitsPerSample = 16;
    m_options = options;
    m_level = std::max(0, ncb::ProcessorLevel());
    if (options.downmixMask && options.downmixMask != in.speakerMask) {
        if (CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(in.speakerMask) !=
            in.channels) {
            *error = "the down-mix needs one speaker in the input's mask per channel";
            return false;
        }
        std::vector<short> rule = SpeakerFoldRule(in.speakerMask, options.downmixMask, error);
        if (rule.empty()) return false;
        CNCodecBase::AudioFormatInfoTag fin{}, fout{};
        fin.nCodecSubType = 1;
        fin.nChannels = in.channels;
        fin.nSpeakerInfo = in.speakerMask;
        fin.nSampleRate = in.sampleRate;
        fin.nBitsPerSample = in.bitsPerSample;
        if (!m_speakers.Init() ||
            !m_speakers.AddMappingRule(in.speakerMask, options.downmixMask, rule.data()) ||
            !m_speakers.Open(&fin, &fout)) {
            *error = "cannot set up the speaker mapping";
            return false;
        }
        m_downmix = true;
        m_out.channels = fout.nChannels;
        m_out.speakerMask = fout.nSpeakerInfo;
    }
    const bool needsStereo = !options.eq.empty() || options.tempo != 1.0 ||
                             (options.rate && options.rate != in.sampleRate);
    if (needsStereo && m_out.channels > 2) {
        *error = "the equalizer, tempo and rate stages take mono or stereo: add --downmix 0x3";
        return false;
    }
    const int stereo = m_out.channels == 2 ? 1 : 0;
    if (!options.eq.empty()) {
        std::vector<int> freqs;
        std::vector<float> gains;
        for (const auto& [f, g] : options.eq) {
            freqs.push_back(f);
            gains.push_back(g);
        }
        m_eq = CNCodecBuffer::CreateBuffer();
        if (!m_eq || !AP::EqualizerInit(in.sampleRate, static_cast<int>(freqs.size()), freqs.data(),
                                        gains.data(), stereo, m_level, m_eq)) {
            *error = "the equalizer refused its bands (at most 12, each with a filter)";
            return false;
        }
    }
    if (options.tempo != 1.0) {
        const double target = std::round(in.sampleRate / options.tempo);
        m_tempo = CNCodecBuffer::CreateBuffer();
        if (!m_tempo || target < 1 || target > 1e9 ||
            !AP::RateControlInit(in.sampleRate, static_cast<int>(target), stereo, m_level, 0,
                                 m_tempo)) {
            *error = "the tempo stage refused the rate or factor";
            return false;
        }
    }
    if (options.rate && options.rate != in.sampleRate) {
        m_resampler = CNCodecBuffer::CreateBuffer();
        if (!m_resampler || !AP::AccurateResampleInit(in.sampleRate, options.rate, m_out.channels,
                                                      m_level, m_resampler)) {
            *error = "the resampler cannot be set up for these rates";
            return false;
        }
        m_out.sampleRate = options.rate;
    }
    return true;
}

bool AudioChain::Widen(const uint8_t* data, int frames, std::vector<int16_t>* samples,
                       std::string* error) {
    auto* src = const_cast<unsigned char*>(data);
    if (!m_downmix) {
        const int count = frames * m_in.channels;
        samples->resize(static_cast<size_t>(count));
        if (m_in.bitsPerSample == 8) AP::Convert8BitsTo16Bits(src, samples->data(), count, m_level);
        if (m_in.bitsPerSample == 24)
            AP::Convert24BitsTo16Bits(src, samples->data(), count, m_level);
        if (m_in.bitsPerSample == 16)
            std::memcpy(samples->data(), data, static_cast<size_t>(count) * 2);
        return true;
    }
    const int bytes = frames * m_in.channels * m_in.bitsPerSample / 8;
    std::unique_ptr<CNCodecBuffer, BufferDeleter> in(
        CNCodecBuffer::CreateWrapBuffer(src, bytes, bytes, nullptr));
    if (!in) return false;
    in->SetBufferUserData(frames);
    in->SetBufferFlag(AUDIO_BUFFER_FLAG_INTERLEAVED);
    std::unique_ptr<CNCodecBuffer, BufferDeleter> planar(m_speakers.ConvertOneFrame(in.get()));
    if (!planar) {
        *error = "out of memory in the speaker mapping";
        return false;
    }
    const int C = m_out.channels;
    auto* p = static_cast<short*>(planar->GetAddress());
    samples->resize(static_cast<size_t>(frames) * C);
    short* dst = samples->data();
    auto plane = [&](int c) { return p + static_cast<ptrdiff_t>(c) * frames; };
    switch (C) {
        case 1:
            std::memcpy(dst, p, static_cast<size_t>(frames) * 2);
            break;
        case 2:
            AP::ConvertToDest_2(plane(0), plane(1), dst, frames, m_level);
            break;
        case 3:
            AP::ConvertToDest_3(plane(0), plane(1), plane(2), dst, frames, m_level);
            break;
        case 4:
            AP::ConvertToDest_4(plane(0), plane(1), plane(2), plane(3), dst, frames, m_level);
            break;
        case 5:
            AP::ConvertToDest_5(plane(0), plane(1), plane(2), plane(3), plane(4), dst, frames,
                                m_level);
            break;
        case 6:
            AP::ConvertToDest_6(plane(0), plane(1), plane(2), plane(3), plane(4), plane(5), dst,
                                frames, m_level);
            break;
        default:
            for (int f = 0; f < frames; ++f)
                for (int c = 0; c < C; ++c) dst[f * C + c] = plane(c)[f];
    }
    return true;
}

// Tempo and resampling take and give CNCodecBuffers.
bool AudioChain::RunBufferStage(bool tempo, std::vector<int16_t>* samples, bool last,
                                std::string* error) {
    std::unique_ptr<CNCodecBuffer, BufferDeleter> in(CNCodecBuffer::CreateBuffer());
    std::unique_ptr<CNCodecBuffer, BufferDeleter> out(CNCodecBuffer::CreateBuffer());
    const int bytes = static_cast<int>(samples->size() * 2);
    if (!in || !out || (bytes > 0 && !in->Allocate(bytes, 16, 0))) {
        *error = "out of memory";
        return false;
    }
    if (bytes > 0) std::memcpy(in->GetAddress(), samples->data(), static_cast<size_t>(bytes));
    in->SetDataSize(bytes);
    int ok;
    if (tempo) {
        ok = AP::RateControlFilter(in.get(), out.get(), last ? 1 : 0, m_tempo);
    } else {
        ok = (last ? AP::AccurateResampleLast : AP::AccurateResample)(in.get(), out.get(),
                                                                      m_resampler);
    }
    if (!ok) {
        *error = tempo ? "the tempo stage ran out of memory" : "the resampler ran out of memory";
        return false;
    }
    const auto* p = static_cast<const int16_t*>(out->GetAddress());
    samples->assign(p, p + (p ? out->GetDataSize() / 2 : 0));
    return true;
}

bool AudioChain::Process(const uint8_t* data, int frames, bool last, std::vector<int16_t>* out,
                         std::string* error) {
    std::vector<int16_t> samples;
    if (frames > 0 && !Widen(data, frames, &samples, error)) return false;
    const int C = m_out.channels;
    if (m_eq && !samples.empty())
        AP::EqualizerFilter(samples.data(), static_cast<int>(samples.size()) / C, m_eq);
    if (m_tempo && !RunBufferStage(true, &samples, last, error)) return false;
    if (m_resampler && !RunBufferStage(false, &samples, last, error)) return false;
    if (m_options.volume != 1.0 && !samples.empty()) {
        const double q8 = std::clamp(std::round(m_options.volume * 256), -32768.0, 32767.0);
        AP::ConvertToDest_1_Adjust(samples.data(), static_cast<short>(q8), samples.data(),
                                   static_cast<int>(samples.size()), m_level);
    }
    out->insert(out->end(), samples.begin(), samples.end());
    return true;
}

}  // namespace ncodec
