// The ALSA sound system: DirectSound-shaped buffers over ALSA PCMs and
// WINMM-shaped mixers over the cards' simple mixer elements.
//
// A buffer is a shadow ring in memory, as DirectSound's is; a feeder thread
// wakes every 10 ms and writes what lies ahead of the play cursor to the
// PCM, keeping about 40 ms queued, with the buffer's volume and pan applied
// (gains never above one; results saturated). The play cursor is the fed
// position minus the PCM's delay. An XRUN is recovered and feeding goes on.
//
// PCMs that never block and report no delay (null, file) would swallow a
// second of audio in a millisecond; for them the buffer runs "clocked": the
// cursor is computed from the platform clock, as on the virtual device, and
// the feeder (and every call that reads or changes the ring) writes exactly
// the frames the cursor has passed.
//
// Devices: "default" first (described as the first card's mixer, so the
// two match), then "plughw:N" per card. Without a card there are no
// devices, so the virtual system stays the default. Mixers: one per card
// with a Master (destination) or PCM (wave-out source) element, each line
// with a volume and a mute control.
//
// Not here: capture, hot-plug, channel maps beyond the order ALSA gives.
#include "platform/sound/sound_system.h"

#if NCB_HAVE_ALSA

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"
#include "platform/kernel/thread.h"
#include "platform/sound/alsa_sound.h"

namespace nplat {

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

void SilentErrorHandler(const char*, int, const char*, int, const char*, ...) {}

void SilenceAlsa() {
    static const bool done = [] {
        snd_lib_error_set_handler(SilentErrorHandler);
        return true;
    }();
    (void)done;
}

GUID NameGuid(const char* name) {
    // FNV-1a of the PCM name spread over the GUID, in a family of our own.
    uint64_t h = 1469598103934665603ull;
    for (const char* p = name; *p; ++p) h = (h ^ static_cast<uint8_t>(*p)) * 1099511628211ull;
    GUID g = {0x6E636F64, 0x616C, 0x0002, {}};
    for (int i = 0; i < 8; ++i) g.Data4[i] = static_cast<uint8_t>(h >> (8 * i));
    return g;
}

// Q15 gains for left and right from attenuation and pan in hundredths of a
// decibel.
void Gains(LONG volume, LONG pan, int* left, int* right) {
    const double base = std::pow(10.0, volume / 2000.0);
    const double l = base * (pan > 0 ? std::pow(10.0, -pan / 2000.0) : 1.0);
    const double r = base * (pan < 0 ? std::pow(10.0, pan / 2000.0) : 1.0);
    *left = static_cast<int>(std::lround(l * 32768));
    *right = static_cast<int>(std::lround(r * 32768));
}

// ---- Buffer ----

constexpr int kFeedPeriodMs = 10;
constexpr int kLatencyMs = 40;
constexpr int kChunkFrames = 4096;

class AlsaBuffer final : public IDirectSoundBuffer {
  public:
    static HRESULT Create(const char* pcmName, const WAVEFORMATEXTENSIBLE& format, DWORD size,
                          IDirectSoundBuffer** out) {
        auto* b = HeapNew<AlsaBuffer>(format, size);
        if (!b) return DSERR_OUTOFMEMORY;
        const HRESULT hr = b->Start(pcmName);
        if (FAILED(hr)) {
            b->Release();
            return hr;
        }
        *out = b;
        return DS_OK;
    }

    AlsaBuffer(const WAVEFORMATEXTENSIBLE& format, DWORD size)
        : m_size(size - size % format.Format.nBlockAlign),
          m_block(format.Format.nBlockAlign),
          m_channels(format.Format.nChannels),
          m_frequency(format.Format.nSamplesPerSec) {}

    ~AlsaBuffer() override {
        if (m_thread) {
            SetEvent(m_stop);
            Thread::Destroy(m_thread);
        }
        CloseHandle(m_stop);
        if (m_pcm) snd_pcm_close(m_pcm);
        HeapFree(m_ring);
        HeapFree(m_scratch);
    }

    HRESULT GetCurrentPosition(DWORD* play, DWORD* write) override {
        Guard guard(m_mutex);
        CatchUp();
        const DWORD frame = CursorFrame();
        if (play) *play = frame * m_block;
        if (write) *write = ((frame + m_frequency / 100) % Frames()) * m_block;
        return DS_OK;
    }

    HRESULT Lock(DWORD offset, DWORD bytes, void** part1, DWORD* bytes1, void** part2,
                 DWORD* bytes2, DWORD flags) override {
        Guard guard(m_mutex);
        if (flags & DSBLOCK_ENTIREBUFFER) bytes = m_size;
        if (!part1 || !bytes1 || offset >= m_size || bytes == 0 || bytes > m_size)
            return DSERR_INVALIDPARAM;
        CatchUp();
        const DWORD first = bytes < m_size - offset ? bytes : m_size - offset;
        if (!part2 && bytes > first) return DSERR_INVALIDPARAM;
        *part1 = m_ring + offset;
        *bytes1 = first;
        if (part2) *part2 = bytes > first ? m_ring : nullptr;
        if (bytes2) *bytes2 = bytes - first;
        return DS_OK;
    }

    HRESULT Unlock(void*, DWORD, void*, DWORD) override { return DS_OK; }

    HRESULT Play(DWORD, DWORD, DWORD flags) override {
        Guard guard(m_mutex);
        m_looping = (flags & DSBPLAY_LOOPING) != 0;
        if (m_playing) return DS_OK;
        if (snd_pcm_prepare(m_pcm) < 0) return DSERR_GENERIC;
        Rebase(m_stoppedFrame);
        m_playing = true;
        Feed();
        return DS_OK;
    }

    HRESULT Stop() override {
        Guard guard(m_mutex);
        if (!m_playing) return DS_OK;
        CatchUp();
        m_stoppedFrame = CursorFrame();
        m_playing = false;
        snd_pcm_drop(m_pcm);
        return DS_OK;
    }

    HRESULT SetCurrentPosition(DWORD play) override {
        Guard guard(m_mutex);
        if (play >= m_size) return DSERR_INVALIDPARAM;
        CatchUp();
        m_stoppedFrame = play / m_block;
        if (m_playing) {
            snd_pcm_drop(m_pcm);
            snd_pcm_prepare(m_pcm);
            Rebase(m_stoppedFrame);
        }
        return DS_OK;
    }

    HRESULT GetStatus(DWORD* status) override {
        Guard guard(m_mutex);
        if (!status) return DSERR_INVALIDPARAM;
        *status = m_playing ? DSBSTATUS_PLAYING | (m_looping ? DSBSTATUS_LOOPING : 0) : 0;
        return DS_OK;
    }

    // A new rate needs new hardware parameters: the stream is stopped,
    // re-configured and restarted where the cursor stood.
    HRESULT SetFrequency(DWORD frequency) override {
        Guard guard(m_mutex);
        if (frequency < DSBFREQUENCY_MIN || frequency > DSBFREQUENCY_MAX) return DSERR_INVALIDPARAM;
        CatchUp();
        const DWORD frame = CursorFrame();
        snd_pcm_drop(m_pcm);
        const DWORD old = m_frequency;
        m_frequency = frequency;
        if (!Configure()) {
            m_frequency = old;
            Configure();
            if (m_playing) {
                snd_pcm_prepare(m_pcm);
                Rebase(frame);
            }
            return DSERR_GENERIC;
        }
        if (m_playing) {
            snd_pcm_prepare(m_pcm);
            Rebase(frame);
        } else {
            m_stoppedFrame = frame;
        }
        return DS_OK;
    }

    HRESULT GetFrequency(DWORD* frequency) override {
        Guard guard(m_mutex);
        if (!frequency) return DSERR_INVALIDPARAM;
        *frequency = m_frequency;
        return DS_OK;
    }

    HRESULT SetVolume(LONG volume) override {
        Guard guard(m_mutex);
        if (volume < DSBVOLUME_MIN || volume > DSBVOLUME_MAX) return DSERR_INVALIDPARAM;
        m_volume = volume;
        Gains(m_volume, m_pan, &m_gainLeft, &m_gainRight);
        return DS_OK;
    }
    HRESULT GetVolume(LONG* volume) override {
        Guard guard(m_mutex);
        if (!volume) return DSERR_INVALIDPARAM;
        *volume = m_volume;
        return DS_OK;
    }
    HRESULT SetPan(LONG pan) override {
        Guard guard(m_mutex);
        if (pan < DSBPAN_LEFT || pan > DSBPAN_RIGHT) return DSERR_INVALIDPARAM;
        m_pan = pan;
        Gains(m_volume, m_pan, &m_gainLeft, &m_gainRight);
        return DS_OK;
    }
    HRESULT GetPan(LONG* pan) override {
        Guard guard(m_mutex);
        if (!pan) return DSERR_INVALIDPARAM;
        *pan = m_pan;
        return DS_OK;
    }

    bool Clocked() const { return m_clocked; }

  private:
    DWORD Frames() const { return m_size / m_block; }

    HRESULT Start(const char* pcmName) {
        m_ring = static_cast<uint8_t*>(HeapAlloc(m_size));
        m_scratch = static_cast<int16_t*>(HeapAlloc(static_cast<size_t>(kChunkFrames) * m_block));
        m_stop = CreateEvent(true, false);
        if (!m_ring || !m_scratch || !m_stop || m_size == 0) return DSERR_OUTOFMEMORY;
        std::memset(m_ring, 0, m_size);
        if (snd_pcm_open(&m_pcm, pcmName, SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0) {
            m_pcm = nullptr;
            return DSERR_NODRIVER;
        }
        const snd_pcm_type_t type = snd_pcm_type(m_pcm);
        m_clocked = type == SND_PCM_TYPE_NULL || type == SND_PCM_TYPE_FILE;
        if (!Configure()) return DSERR_GENERIC;
        Gains(m_volume, m_pan, &m_gainLeft, &m_gainRight);
        m_thread = Thread::Create(FeederProc, this, 0, THREAD_PRIORITY_HIGHEST);
        return m_thread ? DS_OK : DSERR_OUTOFMEMORY;
    }

    bool Configure() {
        snd_pcm_hw_params_t* hw;
        snd_pcm_hw_params_alloca(&hw);
        unsigned rate = m_frequency;
        unsigned bufferUs = 100000, periodUs = kFeedPeriodMs * 1000;
        snd_pcm_hw_free(m_pcm);  // may fail on a fresh stream; the new set-up decides
        return snd_pcm_hw_params_any(m_pcm, hw) >= 0 &&
               snd_pcm_hw_params_set_access(m_pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) >= 0 &&
               snd_pcm_hw_params_set_format(m_pcm, hw, SND_PCM_FORMAT_S16_LE) >= 0 &&
               snd_pcm_hw_params_set_channels(m_pcm, hw, m_channels) >= 0 &&
               snd_pcm_hw_params_set_rate(m_pcm, hw, rate, 0) >= 0 &&
               snd_pcm_hw_params_set_buffer_time_near(m_pcm, hw, &bufferUs, nullptr) >= 0 &&
               snd_pcm_hw_params_set_period_time_near(m_pcm, hw, &periodUs, nullptr) >= 0 &&
               snd_pcm_hw_params(m_pcm, hw) >= 0;
    }

    static DWORD FeederProc(void* self) {
        auto* b = static_cast<AlsaBuffer*>(self);
        while (WaitForSingleObject(b->m_stop, kFeedPeriodMs) == WAIT_TIMEOUT) {
            Guard guard(b->m_mutex);
            b->Feed();
        }
        return 0;
    }

    void Rebase(DWORD frame) {
        m_startFrame = frame;
        m_startMs = GetTickCount64();
        m_fed = 0;
    }

    // Frames the cursor has passed since the last re-base.
    uint64_t ClockFrames() const {
        uint64_t frames = (GetTickCount64() - m_startMs) * m_frequency / 1000;
        if (!m_looping && m_startFrame + frames > Frames()) frames = Frames() - m_startFrame;
        return frames;
    }

    DWORD CursorFrame() {
        if (!m_playing) return m_stoppedFrame;
        uint64_t played = m_fed;
        if (m_clocked) {
            played = ClockFrames();
        } else {
            snd_pcm_sframes_t delay = 0;
            if (snd_pcm_delay(m_pcm, &delay) < 0 || delay < 0) delay = 0;
            played = m_fed > static_cast<uint64_t>(delay) ? m_fed - delay : 0;
        }
        return static_cast<DWORD>((m_startFrame + played) % Frames());
    }

    void CatchUp() {
        if (m_playing && m_clocked) Feed();
    }

    // Writes what is due: in clocked mode every frame the cursor passed, else
    // enough to keep about kLatencyMs queued.
    void Feed() {
        if (!m_playing) return;
        uint64_t target;
        if (m_clocked) {
            target = ClockFrames();
        } else {
            snd_pcm_sframes_t delay = 0;
            if (snd_pcm_delay(m_pcm, &delay) < 0) {
                snd_pcm_recover(m_pcm, -EPIPE, 1);
                delay = 0;
            }
            const uint64_t latency = static_cast<uint64_t>(m_frequency) * kLatencyMs / 1000;
            target = m_fed + (static_cast<uint64_t>(delay) < latency ? latency - delay : 0);
            if (!m_looping) target = std::min<uint64_t>(target, Frames() - m_startFrame);
        }
        while (m_fed < target) {
            const uint64_t frame = (m_startFrame + m_fed) % Frames();
            const auto n = static_cast<snd_pcm_uframes_t>(
                std::min<uint64_t>({Frames() - frame, target - m_fed, uint64_t{kChunkFrames}}));
            Scale(m_ring + frame * m_block, n);
            snd_pcm_sframes_t w = snd_pcm_writei(m_pcm, m_scratch, n);
            if (w == -EAGAIN) {
                if (!m_clocked) break;
                w = static_cast<snd_pcm_sframes_t>(n);  // a clocked PCM is never late
            } else if (w < 0) {
                if (snd_pcm_recover(m_pcm, static_cast<int>(w), 1) < 0) break;
                continue;
            }
            m_fed += static_cast<uint64_t>(w);
        }
        if (!m_looping && m_startFrame + m_fed >= Frames() && (m_clocked || m_fed >= target)) {
            m_playing = false;
            m_stoppedFrame = 0;
        }
    }

    void Scale(const uint8_t* src, snd_pcm_uframes_t frames) {
        const auto* in = reinterpret_cast<const int16_t*>(src);
        const size_t samples = frames * m_channels;
        if (m_gainLeft == 32768 && m_gainRight == 32768) {
            std::memcpy(m_scratch, in, samples * 2);
            return;
        }
        for (size_t i = 0; i < samples; ++i) {
            const size_t c = i % m_channels;
            const int gain = c == 1   ? m_gainRight
                             : c == 0 ? m_gainLeft
                                      : (m_gainLeft + m_gainRight) / 2;
            const int v = (in[i] * gain) >> 15;
            m_scratch[i] = static_cast<int16_t>(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
        }
    }

    std::recursive_mutex m_mutex;
    snd_pcm_t* m_pcm = nullptr;
    Thread* m_thread = nullptr;
    HANDLE m_stop = nullptr;
    uint8_t* m_ring = nullptr;
    int16_t* m_scratch = nullptr;
    DWORD m_size;
    DWORD m_block;
    DWORD m_channels;
    DWORD m_frequency;
    bool m_clocked = false;
    bool m_playing = false;
    bool m_looping = false;
    LONG m_volume = 0;
    LONG m_pan = 0;
    int m_gainLeft = 32768;
    int m_gainRight = 32768;
    DWORD m_stoppedFrame = 0;
    DWORD m_startFrame = 0;
    uint64_t m_startMs = 0;
    uint64_t m_fed = 0;
};

// ---- Device ----

class AlsaDirectSound final : public IDirectSound {
  public:
    AlsaDirectSound(AlsaSoundSystem* system, int index) : m_system(system), m_index(index) {}

    HRESULT GetCaps(DSCAPS* caps) override {
        if (!caps || caps->dwSize != sizeof(DSCAPS)) return DSERR_INVALIDPARAM;
        snd_pcm_t* pcm;
        if (snd_pcm_open(&pcm, m_system->PcmName(m_index), SND_PCM_STREAM_PLAYBACK,
                         SND_PCM_NONBLOCK) < 0)
            return DSERR_NODRIVER;
        snd_pcm_hw_params_t* hw;
        snd_pcm_hw_params_alloca(&hw);
        unsigned low = DSBFREQUENCY_MIN, high = DSBFREQUENCY_MAX;
        if (snd_pcm_hw_params_any(pcm, hw) >= 0) {
            snd_pcm_hw_params_get_rate_min(hw, &low, nullptr);
            snd_pcm_hw_params_get_rate_max(hw, &high, nullptr);
        }
        snd_pcm_close(pcm);
        std::memset(caps, 0, sizeof(*caps));
        caps->dwSize = sizeof(DSCAPS);
        caps->dwMinSecondarySampleRate = std::max<DWORD>(low, DSBFREQUENCY_MIN);
        caps->dwMaxSecondarySampleRate = std::min<DWORD>(high, DSBFREQUENCY_MAX);
        caps->dwPrimaryBuffers = 1;
        return DS_OK;
    }

    HRESULT SetCooperativeLevel(HWND, DWORD level) override {
        return level >= 1 && level <= 4 ? DS_OK : DSERR_INVALIDPARAM;
    }

    HRESULT CreateSoundBuffer(const DSBUFFERDESC* desc, IDirectSoundBuffer** out, void*) override {
        if (!desc || !out || desc->dwSize != sizeof(DSBUFFERDESC) || !desc->lpwfxFormat)
            return DSERR_INVALIDPARAM;
        WAVEFORMATEXTENSIBLE format{};
        const WAVEFORMATEX* w = desc->lpwfxFormat;
        std::memcpy(
            &format, w,
            w->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? sizeof(format) : sizeof(WAVEFORMATEX));
        const WAVEFORMATEX& f = format.Format;
        if (f.wBitsPerSample != 16 || f.nChannels < 1 || f.nChannels > 8 ||
            f.nBlockAlign != f.nChannels * 2 || f.nSamplesPerSec < DSBFREQUENCY_MIN ||
            f.nSamplesPerSec > DSBFREQUENCY_MAX || desc->dwBufferBytes < f.nBlockAlign ||
            desc->dwBufferBytes > DSBSIZE_MAX)
            return DSERR_INVALIDPARAM;
        return AlsaBuffer::Create(m_system->PcmName(m_index), format, desc->dwBufferBytes, out);
    }

    HRESULT GetSpeakerConfig(DWORD* config) override {
        if (!config) return DSERR_INVALIDPARAM;
        *config = m_system->SpeakerConfig();
        return DS_OK;
    }
    HRESULT SetSpeakerConfig(DWORD config) override {
        m_system->SetSpeakerConfig(config);
        return DS_OK;
    }

  private:
    AlsaSoundSystem* m_system;
    int m_index;
};

// ---- Mixer ----

constexpr DWORD kMasterBase = 0x10;
constexpr DWORD kPcmBase = 0x20;

class AlsaMixer final : public MixerDevice {
  public:
    ~AlsaMixer() override {
        if (m_mixer) snd_mixer_close(m_mixer);
    }

    bool Open(int card, const char* name) {
        char hw[32];
        std::snprintf(hw, sizeof(hw), "hw:%d", card);
        if (snd_mixer_open(&m_mixer, 0) < 0) return false;
        if (snd_mixer_attach(m_mixer, hw) < 0 ||
            snd_mixer_selem_register(m_mixer, nullptr, nullptr) < 0 || snd_mixer_load(m_mixer) < 0)
            return false;
        CopyName(productName, MAXPNAMELEN, name);
        m_master = Find("Master");
        m_pcm = Find("PCM");
        if (!m_master && !m_pcm) return false;
        AddLine(0, -1, MIXERLINE_COMPONENTTYPE_DST_SPEAKERS, "Master", m_master, kMasterBase);
        if (m_pcm) AddLine(1, 0, MIXERLINE_COMPONENTTYPE_SRC_WAVEOUT, "PCM", m_pcm, kPcmBase);
        return true;
    }

    MMRESULT ReadControl(const MixerControlDesc& control, int channels, DWORD* values) override {
        snd_mixer_elem_t* e = Element(control.id);
        if (!e) return MMSYSERR_ERROR;
        for (int c = 0; c < channels; ++c) {
            const auto ch = static_cast<snd_mixer_selem_channel_id_t>(control.channels > 1 ? c : 0);
            if (control.type == MIXERCONTROL_CONTROLTYPE_VOLUME) {
                long low = 0, high = 0, v = 0;
                snd_mixer_selem_get_playback_volume_range(e, &low, &high);
                if (snd_mixer_selem_get_playback_volume(e, ch, &v) < 0) return MMSYSERR_ERROR;
                values[c] = high > low ? static_cast<DWORD>((v - low) * 65535 / (high - low)) : 0;
            } else {
                int on = 1;
                if (snd_mixer_selem_has_playback_switch(e) &&
                    snd_mixer_selem_get_playback_switch(e, ch, &on) < 0)
                    return MMSYSERR_ERROR;
                values[c] = on ? 0 : 1;
            }
        }
        return MMSYSERR_NOERROR;
    }

    MMRESULT WriteControl(const MixerControlDesc& control, int channels,
                          const DWORD* values) override {
        snd_mixer_elem_t* e = Element(control.id);
        if (!e) return MMSYSERR_ERROR;
        for (int c = 0; c < (control.channels > 1 ? 2 : 1); ++c) {
            const DWORD value = values[channels > 1 ? c : 0];
            const auto ch = static_cast<snd_mixer_selem_channel_id_t>(c);
            int r;
            if (control.type == MIXERCONTROL_CONTROLTYPE_VOLUME) {
                long low = 0, high = 0;
                snd_mixer_selem_get_playback_volume_range(e, &low, &high);
                const long v =
                    low + static_cast<long>((high - low) * static_cast<int64_t>(value) / 65535);
                r = control.channels > 1 ? snd_mixer_selem_set_playback_volume(e, ch, v)
                                         : snd_mixer_selem_set_playback_volume_all(e, v);
            } else {
                if (!snd_mixer_selem_has_playback_switch(e)) return MMSYSERR_ERROR;
                r = control.channels > 1 ? snd_mixer_selem_set_playback_switch(e, ch, !value)
                                         : snd_mixer_selem_set_playback_switch_all(e, !value);
            }
            if (r < 0) return MMSYSERR_ERROR;
        }
        return MMSYSERR_NOERROR;
    }

  private:
    snd_mixer_elem_t* Find(const char* name) {
        snd_mixer_selem_id_t* id;
        snd_mixer_selem_id_alloca(&id);
        snd_mixer_selem_id_set_name(id, name);
        snd_mixer_elem_t* e = snd_mixer_find_selem(m_mixer, id);
        return e && snd_mixer_selem_has_playback_volume(e) ? e : nullptr;
    }

    snd_mixer_elem_t* Element(DWORD id) const {
        return (id & ~0xFu) == kMasterBase ? m_master : (id & ~0xFu) == kPcmBase ? m_pcm : nullptr;
    }

    void AddLine(int index, int source, DWORD type, const char* name, snd_mixer_elem_t* e,
                 DWORD base) {
        MixerLineDesc& l = lines[lineCount++];
        l.id = 0x10000 * (index + 1);
        l.componentType = type;
        l.destination = 0;
        l.source = source;
        l.channels = 2;
        CopyName(l.name, MIXER_LONG_NAME_CHARS, name);
        l.controlCount = 0;
        if (!e) return;
        const int channels = snd_mixer_selem_is_playback_mono(e) ? 1 : 2;
        l.controls[l.controlCount++] = {base + 1, MIXERCONTROL_CONTROLTYPE_VOLUME, channels,
                                        "Volume"};
        // Always two controls, as the render takes a line only with 2 to 15;
        // an element without a switch reads as never muted.
        l.controls[l.controlCount++] = {base + 2, MIXERCONTROL_CONTROLTYPE_MUTE, channels, "Mute"};
    }

    snd_mixer_t* m_mixer = nullptr;
    snd_mixer_elem_t* m_master = nullptr;
    snd_mixer_elem_t* m_pcm = nullptr;
};

}  // namespace

// ---- System ----

AlsaSoundSystem::AlsaSoundSystem(const char* const* pcmNames, int count) {
    SilenceAlsa();
    if (pcmNames) {
        for (int i = 0; i < count && m_count < kMaxDevices; ++i) Add(pcmNames[i], pcmNames[i]);
        return;
    }
    int card = -1;
    bool first = true;
    while (snd_card_next(&card) == 0 && card >= 0 && m_cardCount < kMaxDevices) {
        char* name = nullptr;
        if (snd_card_get_name(card, &name) < 0) continue;
        char description[MAXPNAMELEN];
        std::snprintf(description, sizeof(description), "ALSA %s", name);
        std::free(name);
        if (first) Add("default", description);
        first = false;
        char pcm[32], direct[kSoundDescriptionChars];
        std::snprintf(pcm, sizeof(pcm), "plughw:%d", card);
        std::snprintf(direct, sizeof(direct), "%s (direct)", description);
        Add(pcm, direct);
        m_cards[m_cardCount] = card;
        CopyName(m_cardNames[m_cardCount++], MAXPNAMELEN, description);
    }
}

void AlsaSoundSystem::Add(const char* pcm, const char* description) {
    CopyName(m_pcm[m_count], kSoundDescriptionChars, pcm);
    CopyName(m_description[m_count], kSoundDescriptionChars, description);
    ++m_count;
}

bool AlsaSoundSystem::GetDevice(int index, SoundDeviceDesc* desc) {
    if (index < 0 || index >= m_count) return false;
    desc->guid = NameGuid(m_pcm[index]);
    CopyName(desc->description, kSoundDescriptionChars, m_description[index]);
    CopyName(desc->module, kSoundDescriptionChars, m_pcm[index]);
    return true;
}

HRESULT AlsaSoundSystem::CreateDevice(int index, IDirectSound** device) {
    if (index < 0 || index >= m_count) return DSERR_NODRIVER;
    auto* ds = HeapNew<AlsaDirectSound>(this, index);
    if (!ds) return DSERR_OUTOFMEMORY;
    *device = ds;
    return DS_OK;
}

int AlsaSoundSystem::MixerCount() { return m_cardCount; }

MMRESULT AlsaSoundSystem::OpenMixer(int index, MixerDevice** mixer) {
    if (index < 0 || index >= m_cardCount) return MMSYSERR_BADDEVICEID;
    auto* m = HeapNew<AlsaMixer>();
    if (!m) return MMSYSERR_NOMEM;
    if (!m->Open(m_cards[index], m_cardNames[index])) {
        HeapDelete(m);
        return MMSYSERR_ERROR;
    }
    *mixer = m;
    return MMSYSERR_NOERROR;
}

DWORD AlsaSoundSystem::SpeakerConfig() {
    std::lock_guard<std::mutex> guard(m_speakerMutex);
    return m_speakerConfig;
}

void AlsaSoundSystem::SetSpeakerConfig(DWORD config) {
    std::lock_guard<std::mutex> guard(m_speakerMutex);
    m_speakerConfig = config;
}

bool AlsaSoundSystem::IsClocked(IDirectSoundBuffer* buffer) {
    return buffer && static_cast<AlsaBuffer*>(buffer)->Clocked();
}

SoundSystem* CreateAlsaSoundSystem() { return HeapNew<AlsaSoundSystem>(nullptr, 0); }

}  // namespace nplat

#else

namespace nplat {

SoundSystem* CreateAlsaSoundSystem() { return nullptr; }

}  // namespace nplat

#endif
