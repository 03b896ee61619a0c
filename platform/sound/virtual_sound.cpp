// The virtual sound system: rings in memory, a play cursor computed from the
// platform clock, and a capture of everything the cursor passed.
//
// The cursor is never moved by a timer. Each call that reads or changes a
// buffer first "catches up": it works out how many frames the cursor passed
// since the last catch-up and appends exactly those ring bytes to the
// capture. Because the ring is only written through Lock, which catches up
// first, the capture holds what was in the ring at the moment the cursor
// passed it, as on a real device (stale data and all).
//
// Not here: software mixing, write-cursor safety checks, lost buffers.
#include "platform/sound/virtual_sound.h"

#include <cstring>

#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"

namespace nplat {

struct VirtualSoundSystem::Device {
    VirtualDeviceConfig config;
    GUID guid{};
    uint8_t* capture = nullptr;
    size_t captureSize = 0;
    size_t captureCapacity = 0;
    bool truncated = false;
    Buffer* live = nullptr;  // the buffer created last and still alive
    int created = 0;
    DWORD speakerConfig = DSSPEAKER_STEREO;
    DWORD master[2] = {65535, 65535};
    DWORD waveOut[2] = {65535, 65535};
    DWORD masterMute[2] = {0, 0};
    DWORD waveOutMute[2] = {0, 0};
    float endpointLevel = 1.0f;

    ~Device() { HeapFree(capture); }

    void Append(const uint8_t* bytes, size_t count) {
        if (truncated || count == 0) return;
        if (captureSize + count > captureCapacity) {
            size_t capacity = captureCapacity ? captureCapacity : 65536;
            while (capacity < captureSize + count) capacity *= 2;
            auto* grown = static_cast<uint8_t*>(HeapRealloc(capture, capacity));
            if (!grown) {
                truncated = true;
                return;
            }
            capture = grown;
            captureCapacity = capacity;
        }
        std::memcpy(capture + captureSize, bytes, count);
        captureSize += count;
    }
};

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

GUID DeviceGuid(int index) {
    // A fixed family of GUIDs, one per device slot.
    GUID g = {0x6E636F64, 0x7673, 0x0001, {0x80, 0x00, 0x4E, 0x43, 0x42, 0x56, 0x00, 0x00}};
    g.Data4[7] = static_cast<uint8_t>(index + 1);
    return g;
}

}  // namespace

// ---- Buffer ----

class VirtualSoundSystem::Buffer final : public IDirectSoundBuffer {
  public:
    Buffer(VirtualSoundSystem* system, Device* device, uint8_t* ring, DWORD size,
           const WAVEFORMATEXTENSIBLE& format)
        : m_system(system),
          m_device(device),
          m_ring(ring),
          m_size(size),
          m_block(format.Format.nBlockAlign),
          m_frequency(format.Format.nSamplesPerSec),
          m_format(format) {}

    ~Buffer() override {
        Guard guard(m_system->Mutex());
        CatchUp();
        if (m_device->live == this) m_device->live = nullptr;
        HeapFree(m_ring);
    }

    HRESULT GetCurrentPosition(DWORD* play, DWORD* write) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kGetCurrentPosition, &hr)) return hr;
        CatchUp();
        const DWORD frames = m_size / m_block;
        DWORD frame = CursorFrame();
        const int jitter = m_system->TakeJitter();
        if (jitter > 0) frame = (frame + frames - static_cast<DWORD>(jitter) % frames) % frames;
        if (play) *play = frame * m_block;
        if (write) {
            const DWORD ahead = m_playing ? m_frequency / 100 : 0;
            *write = ((frame + ahead) % frames) * m_block;
        }
        return DS_OK;
    }

    HRESULT Lock(DWORD offset, DWORD bytes, void** part1, DWORD* bytes1, void** part2,
                 DWORD* bytes2, DWORD flags) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kLock, &hr)) return hr;
        if (flags & DSBLOCK_ENTIREBUFFER) bytes = m_size;
        if (!part1 || !bytes1 || offset >= m_size || bytes == 0 || bytes > m_size)
            return DSERR_INVALIDPARAM;
        CatchUp();
        const DWORD first = bytes < m_size - offset ? bytes : m_size - offset;
        *part1 = m_ring + offset;
        *bytes1 = first;
        if (part2) *part2 = bytes > first ? m_ring : nullptr;
        if (bytes2) *bytes2 = bytes - first;
        if (!part2 && bytes > first) return DSERR_INVALIDPARAM;
        return DS_OK;
    }

    HRESULT Unlock(void*, DWORD, void*, DWORD) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kUnlock, &hr)) return hr;
        return DS_OK;
    }

    HRESULT Play(DWORD, DWORD, DWORD flags) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kPlay, &hr)) return hr;
        CatchUp();
        m_looping = (flags & DSBPLAY_LOOPING) != 0;
        if (!m_playing) {
            m_playing = true;
            Rebase(m_stoppedFrame);
        }
        return DS_OK;
    }

    HRESULT Stop() override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kStop, &hr)) return hr;
        CatchUp();
        m_stoppedFrame = CursorFrame();
        m_playing = false;
        return DS_OK;
    }

    HRESULT SetCurrentPosition(DWORD play) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kSetCurrentPosition, &hr)) return hr;
        if (play >= m_size) return DSERR_INVALIDPARAM;
        CatchUp();
        m_stoppedFrame = play / m_block;
        if (m_playing) Rebase(m_stoppedFrame);
        return DS_OK;
    }

    HRESULT GetStatus(DWORD* status) override {
        Guard guard(m_system->Mutex());
        if (!status) return DSERR_INVALIDPARAM;
        CatchUp();
        *status = m_playing ? DSBSTATUS_PLAYING | (m_looping ? DSBSTATUS_LOOPING : 0) : 0;
        return DS_OK;
    }

    HRESULT SetFrequency(DWORD frequency) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kSetFrequency, &hr)) return hr;
        if (frequency == 0) frequency = m_format.Format.nSamplesPerSec;
        if (frequency < DSBFREQUENCY_MIN || frequency > DSBFREQUENCY_MAX) return DSERR_INVALIDPARAM;
        CatchUp();
        const DWORD frame = CursorFrame();
        m_frequency = frequency;
        if (m_playing) Rebase(frame);
        return DS_OK;
    }

    HRESULT GetFrequency(DWORD* frequency) override {
        Guard guard(m_system->Mutex());
        if (!frequency) return DSERR_INVALIDPARAM;
        *frequency = m_frequency;
        return DS_OK;
    }

    HRESULT SetVolume(LONG volume) override {
        return SetLevel(SoundCall::kSetVolume, volume, DSBVOLUME_MIN, DSBVOLUME_MAX, &m_volume);
    }
    HRESULT GetVolume(LONG* volume) override {
        return GetLevel(SoundCall::kGetVolume, m_volume, volume);
    }
    HRESULT SetPan(LONG pan) override {
        return SetLevel(SoundCall::kSetPan, pan, DSBPAN_LEFT, DSBPAN_RIGHT, &m_pan);
    }
    HRESULT GetPan(LONG* pan) override { return GetLevel(SoundCall::kGetPan, m_pan, pan); }

    void FillState(VirtualBufferState* state) {
        CatchUp();
        state->exists = true;
        state->playing = m_playing;
        state->frequency = m_frequency;
        state->volume = m_volume;
        state->pan = m_pan;
        state->size = m_size;
        state->format = m_format;
    }

    // Appends every frame the cursor passed since the last catch-up.
    void CatchUp() {
        if (!m_playing) return;
        const uint64_t now = GetTickCount64();
        const DWORD frames = m_size / m_block;
        uint64_t target = (now - m_startMs) * m_frequency / 1000;
        if (!m_looping && m_startFrame + target >= frames) target = frames - m_startFrame;
        while (m_passed < target) {
            const uint64_t frame = (m_startFrame + m_passed) % frames;
            const uint64_t run = std::min<uint64_t>(frames - frame, target - m_passed);
            m_device->Append(m_ring + frame * m_block, static_cast<size_t>(run * m_block));
            m_passed += run;
        }
        if (!m_looping && m_startFrame + m_passed >= frames) {
            m_playing = false;
            m_stoppedFrame = 0;
        }
    }

  private:
    DWORD CursorFrame() const {
        if (!m_playing) return m_stoppedFrame;
        return static_cast<DWORD>((m_startFrame + m_passed) % (m_size / m_block));
    }

    void Rebase(DWORD frame) {
        m_startFrame = frame;
        m_startMs = GetTickCount64();
        m_passed = 0;
    }

    HRESULT SetLevel(SoundCall call, LONG value, LONG low, LONG high, LONG* field) {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(call, &hr)) return hr;
        if (value < low || value > high) return DSERR_INVALIDPARAM;
        *field = value;
        return DS_OK;
    }

    HRESULT GetLevel(SoundCall call, LONG value, LONG* out) {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(call, &hr)) return hr;
        if (!out) return DSERR_INVALIDPARAM;
        *out = value;
        return DS_OK;
    }

    VirtualSoundSystem* m_system;
    Device* m_device;
    uint8_t* m_ring;
    DWORD m_size;
    DWORD m_block;
    DWORD m_frequency;
    WAVEFORMATEXTENSIBLE m_format;
    LONG m_volume = 0;
    LONG m_pan = 0;
    bool m_playing = false;
    bool m_looping = false;
    DWORD m_stoppedFrame = 0;
    uint64_t m_startFrame = 0;
    uint64_t m_startMs = 0;
    uint64_t m_passed = 0;  // frames appended since the last re-base
};

// ---- Device ----

namespace {

class VirtualDirectSound final : public IDirectSound {
  public:
    VirtualDirectSound(VirtualSoundSystem* system, int index) : m_system(system), m_index(index) {}

    HRESULT GetCaps(DSCAPS* caps) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kGetCaps, &hr)) return hr;
        if (!caps || caps->dwSize != sizeof(DSCAPS)) return DSERR_INVALIDPARAM;
        auto* device = m_system->DeviceAt(m_index);
        std::memset(caps, 0, sizeof(*caps));
        caps->dwSize = sizeof(DSCAPS);
        caps->dwMinSecondarySampleRate = device->config.minRate;
        caps->dwMaxSecondarySampleRate = device->config.maxRate;
        caps->dwPrimaryBuffers = 1;
        return DS_OK;
    }

    HRESULT SetCooperativeLevel(HWND, DWORD level) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kSetCooperativeLevel, &hr)) return hr;
        return level >= 1 && level <= 4 ? DS_OK : DSERR_INVALIDPARAM;
    }

    HRESULT CreateSoundBuffer(const DSBUFFERDESC* desc, IDirectSoundBuffer** out, void*) override;

    HRESULT GetSpeakerConfig(DWORD* config) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kGetSpeakerConfig, &hr)) return hr;
        if (!config) return DSERR_INVALIDPARAM;
        *config = m_system->DeviceAt(m_index)->speakerConfig;
        return DS_OK;
    }

    HRESULT SetSpeakerConfig(DWORD config) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kSetSpeakerConfig, &hr)) return hr;
        if ((config & 0xFF) > DSSPEAKER_5POINT1_SURROUND) return DSERR_INVALIDPARAM;
        m_system->DeviceAt(m_index)->speakerConfig = config;
        return DS_OK;
    }

  private:
    VirtualSoundSystem* m_system;
    int m_index;
};

// A valid 16-bit (or 8-bit) PCM format, plain or extensible.
bool ReadFormat(const WAVEFORMATEX* wfx, WAVEFORMATEXTENSIBLE* out) {
    if (!wfx) return false;
    std::memset(out, 0, sizeof(*out));
    if (wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        if (wfx->cbSize < 22) return false;
        std::memcpy(out, wfx, sizeof(*out));
        if (!IsEqualGUID(out->SubFormat, KSDATAFORMAT_SUBTYPE_PCM)) return false;
    } else if (wfx->wFormatTag == WAVE_FORMAT_PCM) {
        std::memcpy(&out->Format, wfx, sizeof(WAVEFORMATEX));
    } else {
        return false;
    }
    const WAVEFORMATEX& f = out->Format;
    return (f.wBitsPerSample == 8 || f.wBitsPerSample == 16) && f.nChannels >= 1 &&
           f.nChannels <= 8 && f.nBlockAlign == f.nChannels * f.wBitsPerSample / 8 &&
           f.nSamplesPerSec >= DSBFREQUENCY_MIN && f.nSamplesPerSec <= DSBFREQUENCY_MAX;
}

}  // namespace

HRESULT VirtualDirectSound::CreateSoundBuffer(const DSBUFFERDESC* desc, IDirectSoundBuffer** out,
                                              void*) {
    Guard guard(m_system->Mutex());
    HRESULT hr;
    if (m_system->ShouldFail(SoundCall::kCreateSoundBuffer, &hr)) return hr;
    if (!desc || !out || desc->dwSize != sizeof(DSBUFFERDESC)) return DSERR_INVALIDPARAM;
    WAVEFORMATEXTENSIBLE format;
    if (!ReadFormat(desc->lpwfxFormat, &format)) return DSERR_INVALIDPARAM;
    DWORD size = desc->dwBufferBytes;
    if (size < DSBSIZE_MIN || size > DSBSIZE_MAX) return DSERR_INVALIDPARAM;
    size -= size % format.Format.nBlockAlign;
    if (size == 0) return DSERR_INVALIDPARAM;
    auto* ring = static_cast<uint8_t*>(HeapAlloc(size));
    if (!ring) return DSERR_OUTOFMEMORY;
    std::memset(ring, 0, size);
    auto* device = m_system->DeviceAt(m_index);
    auto* buffer = HeapNew<VirtualSoundSystem::Buffer>(m_system, device, ring, size, format);
    if (!buffer) {
        HeapFree(ring);
        return DSERR_OUTOFMEMORY;
    }
    device->live = buffer;
    device->created++;
    *out = buffer;
    return DS_OK;
}

// ---- Mixer ----

namespace {

constexpr DWORD kMasterVolumeId = 1;
constexpr DWORD kMasterMuteId = 2;
constexpr DWORD kWaveVolumeId = 3;
constexpr DWORD kWaveMuteId = 4;

class VirtualMixer final : public MixerDevice {
  public:
    VirtualMixer(VirtualSoundSystem* system, int device) : m_system(system), m_device(device) {
        const VirtualDeviceConfig& c = system->DeviceAt(device)->config;
        CopyName(productName, MAXPNAMELEN, c.description);
        lineCount = 2;
        MakeLine(&lines[0], 0x10000, MIXERLINE_COMPONENTTYPE_DST_SPEAKERS, -1, "Master",
                 kMasterVolumeId, c.masterChannels, kMasterMuteId);
        MakeLine(&lines[1], 0x20000, MIXERLINE_COMPONENTTYPE_SRC_WAVEOUT, 0, "PCM", kWaveVolumeId,
                 c.waveOutChannels, kWaveMuteId);
    }

    MMRESULT ReadControl(const MixerControlDesc& control, int channels, DWORD* values) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kMixerGetDetails, &hr)) return MMSYSERR_ERROR;
        DWORD* stored = Values(control.id);
        for (int c = 0; c < channels; ++c) values[c] = stored[c < control.channels ? c : 0];
        return MMSYSERR_NOERROR;
    }

    MMRESULT WriteControl(const MixerControlDesc& control, int channels,
                          const DWORD* values) override {
        Guard guard(m_system->Mutex());
        HRESULT hr;
        if (m_system->ShouldFail(SoundCall::kMixerSetDetails, &hr)) return MMSYSERR_ERROR;
        DWORD* stored = Values(control.id);
        stored[0] = values[0];
        stored[1] = channels > 1 ? values[1] : values[0];
        return MMSYSERR_NOERROR;
    }

  private:
    static void MakeLine(MixerLineDesc* line, DWORD id, DWORD type, int source, const char* name,
                         DWORD volumeId, int channels, DWORD muteId) {
        line->id = id;
        line->componentType = type;
        line->destination = 0;
        line->source = source;
        line->channels = 2;
        CopyName(line->name, MIXER_LONG_NAME_CHARS, name);
        line->controlCount = 2;
        line->controls[0] = {volumeId, MIXERCONTROL_CONTROLTYPE_VOLUME, channels, "Volume"};
        line->controls[1] = {muteId, MIXERCONTROL_CONTROLTYPE_MUTE, 1, "Mute"};
    }

    DWORD* Values(DWORD id) {
        VirtualSoundSystem::Device* d = m_system->DeviceAt(m_device);
        if (id == kMasterVolumeId) return d->master;
        if (id == kWaveVolumeId) return d->waveOut;
        return id == kMasterMuteId ? d->masterMute : d->waveOutMute;
    }

    VirtualSoundSystem* m_system;
    int m_device;
};

}  // namespace

// ---- System ----

VirtualSoundSystem::VirtualSoundSystem() {
    VirtualDeviceConfig one;
    SetDevices(&one, 1);
}

VirtualSoundSystem::~VirtualSoundSystem() { ClearDevices(); }

void VirtualSoundSystem::ClearDevices() {
    for (int i = 0; i < m_count; ++i) HeapDelete(m_devices[i]);
    m_count = 0;
}

void VirtualSoundSystem::SetDevices(const VirtualDeviceConfig* devices, int count) {
    Guard guard(m_mutex);
    ClearDevices();
    for (int i = 0; i < count && i < kMaxDevices; ++i) {
        Device* d = HeapNew<Device>();
        if (!d) break;
        d->config = devices[i];
        d->guid = DeviceGuid(i);
        d->speakerConfig = devices[i].speakerConfig;
        d->endpointLevel = devices[i].endpointLevel;
        m_devices[m_count++] = d;
    }
}

void VirtualSoundSystem::SetEndpointVolume(bool present) {
    Guard guard(m_mutex);
    m_endpoint = present;
}

void VirtualSoundSystem::FailCall(SoundCall call, int nth, int count, HRESULT result) {
    Guard guard(m_mutex);
    Failure& f = m_failures[static_cast<int>(call)];
    f.skip = nth > 1 ? nth - 1 : 0;
    f.count = count;
    f.result = result;
}

void VirtualSoundSystem::ClearFailures() {
    Guard guard(m_mutex);
    for (Failure& f : m_failures) f = Failure{};
    m_jitterCount = 0;
}

bool VirtualSoundSystem::ShouldFail(SoundCall call, HRESULT* result) {
    Guard guard(m_mutex);
    Failure& f = m_failures[static_cast<int>(call)];
    if (f.count <= 0) return false;
    if (f.skip > 0) {
        --f.skip;
        return false;
    }
    --f.count;
    *result = f.result;
    return true;
}

void VirtualSoundSystem::InjectCursorJitter(int frames, int count) {
    Guard guard(m_mutex);
    m_jitterFrames = frames;
    m_jitterCount = count;
}

int VirtualSoundSystem::TakeJitter() {
    if (m_jitterCount <= 0) return 0;
    --m_jitterCount;
    return m_jitterFrames;
}

size_t VirtualSoundSystem::CaptureSize(int device) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    if (!d) return 0;
    if (d->live) d->live->CatchUp();
    return d->captureSize;
}

size_t VirtualSoundSystem::ReadCapture(int device, size_t offset, void* out, size_t bytes) {
    Guard guard(m_mutex);
    const size_t size = CaptureSize(device);
    if (offset >= size) return 0;
    const size_t n = std::min(bytes, size - offset);
    std::memcpy(out, DeviceAt(device)->capture + offset, n);
    return n;
}

void VirtualSoundSystem::ClearCapture(int device) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    if (!d) return;
    if (d->live) d->live->CatchUp();
    d->captureSize = 0;
    d->truncated = false;
}

bool VirtualSoundSystem::ReserveCapture(int device, size_t bytes) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    if (!d) return false;
    if (bytes <= d->captureCapacity) return true;
    auto* grown = static_cast<uint8_t*>(HeapRealloc(d->capture, bytes));
    if (!grown) return false;
    d->capture = grown;
    d->captureCapacity = bytes;
    return true;
}

bool VirtualSoundSystem::CaptureTruncated(int device) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    return d && d->truncated;
}

VirtualBufferState VirtualSoundSystem::GetBufferState(int device) {
    Guard guard(m_mutex);
    VirtualBufferState state;
    Device* d = DeviceAt(device);
    if (!d) return state;
    if (d->live) d->live->FillState(&state);
    state.created = d->created;
    return state;
}

DWORD VirtualSoundSystem::GetSpeakerConfigValue(int device) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    return d ? d->speakerConfig : 0;
}

bool VirtualSoundSystem::GetMixerValues(int device, bool master, DWORD* left, DWORD* right) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    if (!d || !d->config.hasMixer) return false;
    const DWORD* v = master ? d->master : d->waveOut;
    *left = v[0];
    *right = v[1];
    return true;
}

float VirtualSoundSystem::GetEndpointLevel(int device) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(device);
    return d ? d->endpointLevel : 0.0f;
}

HRESULT VirtualSoundSystem::BeginEnumeration() {
    HRESULT hr;
    return ShouldFail(SoundCall::kEnumerate, &hr) ? hr : DS_OK;
}

int VirtualSoundSystem::DeviceCount() {
    Guard guard(m_mutex);
    return m_count;
}

bool VirtualSoundSystem::GetDevice(int index, SoundDeviceDesc* desc) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(index);
    if (!d) return false;
    desc->guid = d->guid;
    CopyName(desc->description, kSoundDescriptionChars, d->config.description);
    CopyName(desc->module, kSoundDescriptionChars, "virtual");
    return true;
}

HRESULT VirtualSoundSystem::CreateDevice(int index, IDirectSound** device) {
    Guard guard(m_mutex);
    HRESULT hr;
    if (ShouldFail(SoundCall::kCreateDevice, &hr)) return hr;
    if (!DeviceAt(index)) return DSERR_NODRIVER;
    auto* ds = HeapNew<VirtualDirectSound>(this, index);
    if (!ds) return DSERR_OUTOFMEMORY;
    *device = ds;
    return DS_OK;
}

int VirtualSoundSystem::MixerDeviceIndex(int mixer) const {
    for (int i = 0; i < m_count; ++i)
        if (m_devices[i]->config.hasMixer && mixer-- == 0) return i;
    return -1;
}

int VirtualSoundSystem::MixerCount() {
    Guard guard(m_mutex);
    int n = 0;
    for (int i = 0; i < m_count; ++i) n += m_devices[i]->config.hasMixer ? 1 : 0;
    return n;
}

MMRESULT VirtualSoundSystem::OpenMixer(int index, MixerDevice** mixer) {
    Guard guard(m_mutex);
    HRESULT hr;
    if (ShouldFail(SoundCall::kMixerOpen, &hr)) return MMSYSERR_ERROR;
    const int device = MixerDeviceIndex(index);
    if (device < 0) return MMSYSERR_BADDEVICEID;
    auto* m = HeapNew<VirtualMixer>(this, device);
    if (!m) return MMSYSERR_NOMEM;
    *mixer = m;
    return MMSYSERR_NOERROR;
}

bool VirtualSoundSystem::HasEndpointVolume() {
    Guard guard(m_mutex);
    return m_endpoint;
}

int VirtualSoundSystem::EndpointCount() {
    Guard guard(m_mutex);
    return m_endpoint ? m_count : 0;
}

bool VirtualSoundSystem::EndpointId(int index, WCHAR* id, int capacity) {
    Guard guard(m_mutex);
    Device* d = DeviceAt(index);
    static const char kPrefix[] = "{0.0.0.00000000}.";
    const int prefix = sizeof(kPrefix) - 1;
    if (!d || !m_endpoint || capacity < prefix + 39) return false;
    for (int i = 0; i < prefix; ++i) id[i] = static_cast<WCHAR>(kPrefix[i]);
    // Endpoint ids spell the GUID in lower case; matching ignores case.
    StringFromGUID2(d->guid, id + prefix, capacity - prefix);
    for (WCHAR* p = id + prefix; *p; ++p)
        if (*p >= 'A' && *p <= 'F') *p = static_cast<WCHAR>(*p - 'A' + 'a');
    return true;
}

HRESULT VirtualSoundSystem::GetEndpointVolume(int index, float* level) {
    Guard guard(m_mutex);
    HRESULT hr;
    if (ShouldFail(SoundCall::kEndpointVolume, &hr)) return hr;
    Device* d = DeviceAt(index);
    if (!d || !level) return DSERR_INVALIDPARAM;
    *level = d->endpointLevel;
    return DS_OK;
}

HRESULT VirtualSoundSystem::SetEndpointVolume(int index, float level) {
    Guard guard(m_mutex);
    HRESULT hr;
    if (ShouldFail(SoundCall::kEndpointVolume, &hr)) return hr;
    Device* d = DeviceAt(index);
    if (!d || !(level >= 0.0f && level <= 1.0f)) return DSERR_INVALIDPARAM;
    d->endpointLevel = level;
    return DS_OK;
}

}  // namespace nplat
