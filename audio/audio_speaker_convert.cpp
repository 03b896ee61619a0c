// Speaker-layout mapping: rules keyed by input speaker masks, selection at
// Open, and per-buffer conversion through the Q14 down-mix kernels.
//
// Input planes: planar 16-bit input is used where it lies; anything else
// (8 or 24 bits, or interleaved) is first widened into one 16-byte aligned
// scratch block of planes. Output planes are 16-byte aligned too, so the
// down-mix takes its vector path whenever the frame count allows.
//
// Not here: matrix normalisation or clipping protection (the rule's
// coefficients are applied as given, with saturation), and rules of our own.
#include "ncodecbase/audio_speaker_convert.h"

#include <cstring>

#include "base/audio_format.h"
#include "base/checked_size.h"
#include "base/processor_level.h"
#include "ncodecbase/audio_processor.h"
#include "ncodecbase/helper.h"

namespace {

using Format = CNCodecBase::AudioFormatInfoTag;
using Rule = CNAudioSpeakerConvert::SpeakerMappingRuleTag;

// Fills I planes of `frames` 16-bit samples from the input's bytes.
void WidenToPlanes(const Format& f, bool interleaved, unsigned char* src, short* planes, int frames,
                   int channels, int level) {
    using AP = CNAudioProcessor;
    const int count = frames * channels;
    if (!interleaved || channels == 1) {
        if (f.nBitsPerSample == 8) AP::Convert8BitsTo16Bits(src, planes, count, level);
        if (f.nBitsPerSample == 24) AP::Convert24BitsTo16Bits(src, planes, count, level);
        if (f.nBitsPerSample == 16)
            AP::DirectCopy(src, reinterpret_cast<unsigned char*>(planes), 2 * count, level);
        return;
    }
    const bool demux = channels >= 2 && channels <= 6;
    switch (f.nBitsPerSample) {
        case 8:
            if (demux) return AP::Convert8BitsTo16Bits_Demux(src, planes, frames, channels, level);
            return AP::Convert8BitsTo16Bits_RemoveExtraChannle_Demux(src, planes, frames, channels,
                                                                     0, level);
        case 24:
            if (demux) return AP::Convert24BitsTo16Bits_Demux(src, planes, frames, channels, level);
            return AP::Convert24BitsTo16Bits_RemoveExtraChannle_Demux(src, planes, frames, channels,
                                                                      0, level);
        default:
            return AP::Convert16BitsTo16Bits_RemoveExtraChannle_Demux(src, planes, frames, channels,
                                                                      0, level);
    }
}

void MixChannel(const Rule& rule, int o, short* const* in, short* out, int frames, int level) {
    using AP = CNAudioProcessor;
    const auto& s = rule.nSlots[o];
    auto p = [&](int k) { return in[s[k][0]]; };
    auto c = [&](int k) { return s[k][1]; };
    switch (rule.nContributors[o]) {
        case 1:
            return AP::DownmixChannel_1(p(0), c(0), out, frames, level);
        case 2:
            return AP::DownmixChannel_2(p(0), c(0), p(1), c(1), out, frames, level);
        case 3:
            return AP::DownmixChannel_3(p(0), c(0), p(1), c(1), p(2), c(2), out, frames, level);
        case 4:
            return AP::DownmixChannel_4(p(0), c(0), p(1), c(1), p(2), c(2), p(3), c(3), out, frames,
                                        level);
        case 5:
            return AP::DownmixChannel_5(p(0), c(0), p(1), c(1), p(2), c(2), p(3), c(3), p(4), c(4),
                                        out, frames, level);
        default:
            std::memset(out, 0, static_cast<size_t>(frames) * 2);
    }
}

void CopyBufferWords(CNCodecBuffer* from, CNCodecBuffer* to) {
    to->SetBufferId(from->GetBufferId());
    to->SetTimeStamp(from->GetTimeStamp());
    to->SetBufferFlag(from->GetBufferFlag() & ~AUDIO_BUFFER_FLAG_INTERLEAVED);
    to->SetBufferFlagEx(from->GetBufferFlagEx());
    to->SetBufferUserData(from->GetBufferUserData());
    to->SetBufferUserDataEx(from->GetBufferUserDataEx());
    to->SetBufferFlagEx2(from->GetBufferFlagEx2());
    to->SetBufferUserDataEx2(from->GetBufferUserDataEx2());
}

}  // namespace

CNAudioSpeakerConvert::CNAudioSpeakerConvert() = default;

CNAudioSpeakerConvert::~CNAudioSpeakerConvert() {
    if (m_nInited) Uninit();
}

CNAudioSpeakerConvert& CNAudioSpeakerConvert::operator=(const CNAudioSpeakerConvert& other) {
    if (this == &other) return *this;
    try {
        m_listRule = other.m_listRule;
    } catch (CNException* e) {
        e->FreeMe();
        return *this;
    }
    m_nInited = other.m_nInited;
    m_nOpened = other.m_nOpened;
    m_nLevel = other.m_nLevel;
    m_nCurrentRule = other.m_nCurrentRule;
    m_nRuleSelected = other.m_nRuleSelected;
    m_stSelectedRule = other.m_stSelectedRule;
    m_stInputFormat = other.m_stInputFormat;
    m_stOutputFormat = other.m_stOutputFormat;
    return *this;
}

int CNAudioSpeakerConvert::Init() {
    CNHelper::CPUInfoTag info{};
    if (!CNHelper::GetCpuInfo(&info)) return 0;
    const int level = ncb::ProcessorLevelFromCpuInfo(info);
    if (level == ncb::kProcessorLevelNone) return 0;
    m_nLevel = level;
    m_listRule.RemoveAll(1);
    SelectRule(-1);
    m_nInited = 1;
    m_nOpened = 0;
    return 1;
}

void CNAudioSpeakerConvert::Uninit() {
    m_nOpened = 0;
    m_listRule.RemoveAll(1);
    SelectRule(-1);
    m_nInited = 0;
}

int CNAudioSpeakerConvert::CalcChannelNumberFromSpeakerInfo(int mask) {
    return ncb::ConverterChannelCount(mask);
}

int CNAudioSpeakerConvert::AddMappingRule(int inMask, int outMask, short* coefficients) {
    if (m_listRule.FindByUserData2(0, inMask, -1) >= 0) return 0;
    Rule rule{};
    rule.uOutputMask = static_cast<uint32_t>(outMask);
    rule.nInputChannels = CalcChannelNumberFromSpeakerInfo(inMask);
    rule.nOutputChannels = CalcChannelNumberFromSpeakerInfo(outMask);
    const int I = rule.nInputChannels;
    if (rule.nOutputChannels > 0 && I > 0 && !coefficients) return 0;
    for (int o = 0; o < rule.nOutputChannels; ++o) {
        for (int i = 0; i < I; ++i) {
            const short k = coefficients[o * I + i];
            if (k == 0) continue;
            int& n = rule.nContributors[o];
            if (n == kMaxContributors) return 0;
            rule.nSlots[o][n][0] = static_cast<int16_t>(i);
            rule.nSlots[o][n][1] = k;
            ++n;
        }
    }
    try {
        const int position = m_listRule.InsertBinary("", &rule, sizeof rule, -1, 0);
        m_listRule.SetUserData2(position, inMask);
    } catch (CNException* e) {
        e->FreeMe();
        return 0;
    }
    return 1;
}

int CNAudioSpeakerConvert::RemoveMappingRule(int inMask) {
    const int position = m_listRule.FindByUserData2(0, inMask, -1);
    if (position < 0) return 0;
    m_listRule.Remove(position);
    // The selection is a copy and stays in force until the next Open or
    // FormatChange; only its position in the list moves.
    if (m_nCurrentRule == position) m_nCurrentRule = -1;
    if (m_nCurrentRule > position) --m_nCurrentRule;
    return 1;
}

void CNAudioSpeakerConvert::SelectRule(int position) {
    m_nCurrentRule = position;
    m_nRuleSelected = position >= 0 ? 1 : 0;
    if (position >= 0)
        std::memcpy(&m_stSelectedRule, m_listRule.GetBinaryData(position), sizeof m_stSelectedRule);
    else
        m_stSelectedRule = {};
}

void CNAudioSpeakerConvert::InputFormat2OutputFormat(Format* in, Format* out) {
    if (!in || !out) return;
    *out = *in;
    const int position = m_listRule.FindByUserData2(0, in->nSpeakerInfo, -1);
    SelectRule(position);
    if (position < 0) return;
    out->nChannels = m_stSelectedRule.nOutputChannels;
    out->nSpeakerInfo = static_cast<int32_t>(m_stSelectedRule.uOutputMask);
    if (in->nBitsPerSample != 16) {
        out->nBitsPerSample = 16;
        out->nBitsPerSampleEx = 16;
    }
}

int CNAudioSpeakerConvert::FormatChange(Format* in, Format* out) {
    if (!in) return 0;
    Format derived;
    InputFormat2OutputFormat(in, &derived);
    m_stInputFormat = *in;
    m_stOutputFormat = derived;
    if (out) *out = derived;
    return 1;
}

int CNAudioSpeakerConvert::Open(Format* in, Format* out) {
    if (!FormatChange(in, out)) return 0;
    m_nOpened = 1;
    return 1;
}

void CNAudioSpeakerConvert::Close() { m_nOpened = 0; }

CNCodecBuffer* CNAudioSpeakerConvert::ConvertOneFrame(CNCodecBuffer* in) {
    if (!in) return nullptr;
    const int frames = in->GetBufferUserData();
    if (frames < 1 || !m_nRuleSelected) {
        in->AddRef();
        return in;
    }
    const Rule& rule = m_stSelectedRule;
    const int I = rule.nInputChannels, O = rule.nOutputChannels;
    const int bits = m_stInputFormat.nBitsPerSample;
    if (bits != 8 && bits != 16 && bits != 24) return nullptr;
    int64_t inBytes = 0, planeBytes = 0, outBytes = 0;
    if (!ncb::CheckedMulAdd(int64_t{frames} * I, bits / 8, 0, &inBytes) ||
        !ncb::CheckedMulAdd(int64_t{frames} * I, 2, 0, &planeBytes) ||
        !ncb::CheckedMulAdd(int64_t{frames} * O, 2, 0, &outBytes) ||
        !ncb::FitsBufferSize(planeBytes) || !ncb::FitsBufferSize(outBytes) ||
        in->GetDataSize() < inBytes)
        return nullptr;

    auto* data = static_cast<unsigned char*>(in->GetAddress());
    const bool interleaved = (in->GetBufferFlag() & AUDIO_BUFFER_FLAG_INTERLEAVED) != 0;
    short* scratch = nullptr;
    short* base = reinterpret_cast<short*>(data);
    if (bits != 16 || interleaved) {
        scratch = static_cast<short*>(
            CNCodecBuffer::NewByteAlignBuffer(static_cast<int>(planeBytes), 16));
        if (!scratch) return nullptr;
        WidenToPlanes(m_stInputFormat, interleaved, data, scratch, frames, I, m_nLevel);
        base = scratch;
    }
    short* planes[kMaxSpeakerChannels];
    for (int c = 0; c < I; ++c) planes[c] = base + static_cast<ptrdiff_t>(c) * frames;

    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    short* dst = nullptr;
    if (out && outBytes > 0)
        dst = static_cast<short*>(out->Allocate(static_cast<int>(outBytes), 16, 0));
    if (!out || (outBytes > 0 && !dst)) {
        if (out) out->Release();
        CNCodecBuffer::DeleteByteAlignBuffer(scratch);
        return nullptr;
    }
    out->SetDataSize(static_cast<int>(outBytes));
    CopyBufferWords(in, out);
    for (int o = 0; o < O; ++o)
        MixChannel(rule, o, planes, dst + static_cast<ptrdiff_t>(o) * frames, frames, m_nLevel);
    if (scratch) CNCodecBuffer::DeleteByteAlignBuffer(scratch);
    return out;
}
