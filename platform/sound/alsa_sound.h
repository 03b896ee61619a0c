// The ALSA sound system (built when ALSA is found; see alsa_sound.cpp for
// how buffers, the feeder thread and clocked mode work).
//
// Tests and tools may build one over PCM names of their own choosing
// ("null", "file:'/tmp/x.raw',raw", ...) instead of the cards found.
#pragma once

#include <mutex>

#include "platform/sound/sound_system.h"

namespace nplat {

class AlsaSoundSystem final : public SoundSystem {
  public:
    static constexpr int kMaxDevices = 16;

    // With names: exactly those PCMs, each described by its name, and no
    // mixers. Without (null): "default" and one device per card.
    AlsaSoundSystem(const char* const* pcmNames, int count);

    const char* Name() const override { return "alsa"; }
    int DeviceCount() override { return m_count; }
    bool GetDevice(int index, SoundDeviceDesc* desc) override;
    HRESULT CreateDevice(int index, IDirectSound** device) override;
    int MixerCount() override;
    MMRESULT OpenMixer(int index, MixerDevice** mixer) override;

    const char* PcmName(int index) const { return m_pcm[index]; }
    DWORD SpeakerConfig();
    void SetSpeakerConfig(DWORD config);
    // True when `buffer` (made by this system) paces itself by the clock.
    static bool IsClocked(IDirectSoundBuffer* buffer);

  private:
    void Add(const char* pcm, const char* description);

    int m_count = 0;
    char m_pcm[kMaxDevices][kSoundDescriptionChars] = {};
    char m_description[kMaxDevices][kSoundDescriptionChars] = {};
    int m_cardCount = 0;
    int m_cards[kMaxDevices] = {};
    char m_cardNames[kMaxDevices][MAXPNAMELEN] = {};
    std::mutex m_speakerMutex;
    DWORD m_speakerConfig = DSSPEAKER_STEREO;
};

}  // namespace nplat
