// CNAudioSpeakerConvert: maps a multi-channel PCM stream from one speaker
// layout to another, buffer by buffer. Each output channel is a weighted sum
// (Q14 coefficients) of up to five input channels.
//
// Use: Init, then AddMappingRule for every input layout to be mapped (rules
// are keyed by the input speaker mask), then Open with the input format,
// which selects the rule for the input's mask and derives the output format;
// ConvertOneFrame turns each input buffer into a planar 16-bit buffer of the
// output layout. Without a matching rule buffers pass through unchanged. The
// library installs no rules of its own.
//
// Ownership: ConvertOneFrame returns a buffer holding one reference for the
// caller (a new buffer, or the input itself with one more reference); the
// caller keeps its own reference to the input. Thread safety: one thread at a
// time per object. Failures: 0 from the int operations, null from
// ConvertOneFrame (the input is left untouched).
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/base_services.h"
#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"

class NCB_API CNAudioSpeakerConvert {
  public:
    static constexpr int kMaxSpeakerChannels = 18;
    static constexpr int kMaxContributors = 5;

    // One rule as the rule list stores it (444 bytes). Channels are numbered
    // by their position among the set bits of a mask, lowest bit first.
    struct SpeakerMappingRuleTag {
        uint32_t uOutputMask;
        int32_t nInputChannels;                      // set bits among bits 0-17 of the input mask
        int32_t nOutputChannels;                     // the same for the output mask
        int32_t nContributors[kMaxSpeakerChannels];  // per output channel, 0..5
        // Per output channel: (input channel, Q14 coefficient) pairs; the
        // first nContributors[o] are used.
        int16_t nSlots[kMaxSpeakerChannels][kMaxContributors][2];
    };

    CNAudioSpeakerConvert();
    ~CNAudioSpeakerConvert();
    CNAudioSpeakerConvert(const CNAudioSpeakerConvert&) = delete;
    // Copies the flags, level, rules, selection and formats. When the rule
    // list cannot be copied (out of memory) this object is left as it was.
    CNAudioSpeakerConvert& operator=(const CNAudioSpeakerConvert& other);

    // 0 when the processor cannot be identified or lacks SSE2. Removes all rules.
    int Init();
    void Uninit();

    // coefficients: O x I Q14 values, output-major (output o, input i at
    // o x I + i); zeros are skipped. 0 when inMask has a rule already, when
    // an output channel would get more than five contributors, or when the
    // list runs out of memory; the list is then unchanged.
    int AddMappingRule(int inMask, int outMask, short* coefficients);
    int RemoveMappingRule(int inMask);

    // *out = *in with the selected rule's layout (16 bits when converting);
    // the rule for in->nSpeakerInfo is selected, or none (pass-through).
    // 0 only for a null input format.
    int Open(CNCodecBase::AudioFormatInfoTag* in, CNCodecBase::AudioFormatInfoTag* out);
    int FormatChange(CNCodecBase::AudioFormatInfoTag* in, CNCodecBase::AudioFormatInfoTag* out);
    void Close();

    // The buffer's user data is its frame count; the data must match the
    // input format (8, 16 or 24 bits, the rule's channel count, planar or
    // interleaved by flag 0x100). Null when memory runs out or the data is
    // shorter than the format says.
    CNCodecBuffer* ConvertOneFrame(CNCodecBuffer* in);

    // Set bits among bits 0-17.
    static int CalcChannelNumberFromSpeakerInfo(int mask);
    void InputFormat2OutputFormat(CNCodecBase::AudioFormatInfoTag* in,
                                  CNCodecBase::AudioFormatInfoTag* out);

  private:
    void SelectRule(int position);

    int m_nInited = 0;
    int m_nOpened = 0;
    int m_nLevel = 0;
    CNDataList m_listRule;
    int m_nCurrentRule = -1;  // position in the list, -1 when none or removed
    int m_nRuleSelected = 0;  // 1 while the last Open / FormatChange found a rule
    // The selected rule is kept as a copy, so later rule changes and
    // assignment can never leave it pointing into another or a removed record.
    SpeakerMappingRuleTag m_stSelectedRule{};
    CNCodecBase::AudioFormatInfoTag m_stInputFormat{};
    CNCodecBase::AudioFormatInfoTag m_stOutputFormat{};
};

static_assert(sizeof(CNAudioSpeakerConvert::SpeakerMappingRuleTag) == 444);
static_assert(offsetof(CNAudioSpeakerConvert::SpeakerMappingRuleTag, nContributors) == 12);
static_assert(offsetof(CNAudioSpeakerConvert::SpeakerMappingRuleTag, nSlots) == 84);
