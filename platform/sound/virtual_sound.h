// The headless sound system: devices whose looping buffers are real rings
// and whose play cursor advances with the platform clock, so a test that
// drives a manual clock hears exactly what a listener would.
//
// Cursor: while playing, the cursor stands at
//   (start + floor(elapsed_ms x frequency / 1000)) x blockAlign mod size,
// re-based whenever play starts, the frequency changes, the buffer stops or
// the position is set. Every frame the cursor passes is appended to the
// device's capture, stale replays and silence included; the capture is
// brought up to date before any call reads or changes the ring, and before a
// test reads it.
//
// Test hooks: make any call fail on its n-th use, let the cursor step back
// (jitter), and read a buffer's frequency, volume, pan and play state. The
// mixer keeps its control values in memory; a control can be made
// single-channel, and a device can be left without a mixer.
//
// Not here: mixing of several buffers into one capture (the render plays one
// buffer per device at a time; two playing buffers simply interleave their
// captures in call order).
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/sound/sound_system.h"

namespace nplat {

enum class SoundCall {
    kEnumerate,
    kCreateDevice,
    kGetCaps,
    kSetCooperativeLevel,
    kCreateSoundBuffer,
    kGetCurrentPosition,
    kLock,
    kUnlock,
    kPlay,
    kStop,
    kSetCurrentPosition,
    kSetFrequency,
    kSetVolume,
    kGetVolume,
    kSetPan,
    kGetPan,
    kGetSpeakerConfig,
    kSetSpeakerConfig,
    kMixerOpen,
    kMixerGetDetails,
    kMixerSetDetails,
    kEndpointVolume,
    kCount
};

struct VirtualDeviceConfig {
    char description[kSoundDescriptionChars] = "NCodec virtual sound device";
    DWORD minRate = DSBFREQUENCY_MIN;
    DWORD maxRate = DSBFREQUENCY_MAX;
    DWORD speakerConfig = DSSPEAKER_STEREO;
    bool hasMixer = true;     // a mixer whose product name matches the description
    int masterChannels = 2;   // channels of the master volume control (1 or 2)
    int waveOutChannels = 2;  // channels of the wave-out volume control
    float endpointLevel = 1.0f;
};

struct VirtualBufferState {
    bool exists = false;  // a buffer of this device is alive
    bool playing = false;
    DWORD frequency = 0;
    LONG volume = 0;
    LONG pan = 0;
    DWORD size = 0;
    WAVEFORMATEXTENSIBLE format{};
    int created = 0;  // buffers created on this device so far
};

class VirtualSoundSystem final : public SoundSystem {
  public:
    static constexpr int kMaxDevices = 16;

    VirtualSoundSystem();  // one device with the defaults
    ~VirtualSoundSystem() override;

    // Replaces the device list; call before anything is opened.
    void SetDevices(const VirtualDeviceConfig* devices, int count);
    // Report endpoint volumes (as workstation 6.x does) or not.
    void SetEndpointVolume(bool present);

    // The n-th use of `call` from now (1: the next) fails with `result`, and
    // `count` uses in a row from there.
    void FailCall(SoundCall call, int nth, int count = 1, HRESULT result = DSERR_GENERIC);
    void ClearFailures();
    // The next `count` cursor reads report the play cursor `frames` earlier.
    void InjectCursorJitter(int frames, int count);

    // Bytes played on `device` so far (brings the capture up to date).
    size_t CaptureSize(int device);
    // Copies up to `bytes` from `offset`; returns the number copied.
    size_t ReadCapture(int device, size_t offset, void* out, size_t bytes);
    void ClearCapture(int device);
    // Makes room for `bytes` of capture up front, so recording allocates
    // nothing until then (for tests that make every allocation fail).
    bool ReserveCapture(int device, size_t bytes);
    // True once memory ran out while recording (the capture is then short).
    bool CaptureTruncated(int device);
    VirtualBufferState GetBufferState(int device);
    DWORD GetSpeakerConfigValue(int device);
    // Current values of a mixer control of `device` (false when none).
    bool GetMixerValues(int device, bool master, DWORD* left, DWORD* right);
    float GetEndpointLevel(int device);

    // SoundSystem
    const char* Name() const override { return "virtual"; }
    HRESULT BeginEnumeration() override;
    int DeviceCount() override;
    bool GetDevice(int index, SoundDeviceDesc* desc) override;
    HRESULT CreateDevice(int index, IDirectSound** device) override;
    int MixerCount() override;
    MMRESULT OpenMixer(int index, MixerDevice** mixer) override;
    bool HasEndpointVolume() override;
    int EndpointCount() override;
    bool EndpointId(int index, WCHAR* id, int capacity) override;
    HRESULT GetEndpointVolume(int index, float* level) override;
    HRESULT SetEndpointVolume(int index, float level) override;

    // For the objects of this system.
    class Buffer;
    struct Device;
    std::recursive_mutex& Mutex() { return m_mutex; }
    // True (and the failure result) when this use of `call` must fail.
    bool ShouldFail(SoundCall call, HRESULT* result);
    int TakeJitter();
    Device* DeviceAt(int index) {
        return index >= 0 && index < m_count ? m_devices[index] : nullptr;
    }

  private:
    struct Failure {
        int skip = 0;
        int count = 0;
        HRESULT result = DSERR_GENERIC;
    };

    void ClearDevices();
    int MixerDeviceIndex(int mixer) const;

    std::recursive_mutex m_mutex;
    Device* m_devices[kMaxDevices] = {};
    int m_count = 0;
    bool m_endpoint = false;
    Failure m_failures[static_cast<int>(SoundCall::kCount)];
    int m_jitterFrames = 0;
    int m_jitterCount = 0;
};

}  // namespace nplat
