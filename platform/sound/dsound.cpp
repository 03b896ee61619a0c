// The DirectSound- and WINMM-shaped entry points, dispatched to the current
// sound system, and the choice of that system.
//
// The mixer functions are written once here over the line and control tables
// a backend fills in (MixerDevice), so both backends answer mixerGetLineInfo
// and friends with the same rules: a control takes one channel (all alike) or
// exactly its own channel count; anything else is MMSYSERR_INVALPARAM.
//
// Not here: mixer handles other than mixer handles (HMIXEROBJ of wave
// devices), mixer callbacks, line queries by component type or target.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "platform/kernel/heap.h"
#include "platform/sound/sound_system.h"
#include "platform/sound/virtual_sound.h"

namespace nplat {

ULONG SoundObject::AddRef() { return static_cast<ULONG>(++m_refs); }

ULONG SoundObject::Release() {
    const int left = --m_refs;
    if (left == 0) {
        // Objects are made with HeapNew; single inheritance keeps `this` at
        // the start of the block.
        this->~SoundObject();
        HeapFree(this);
    }
    return static_cast<ULONG>(left < 0 ? 0 : left);
}

void CopyName(char* dst, int capacity, const char* src) {
    if (capacity <= 0) return;
    int i = 0;
    for (; src && src[i] && i < capacity - 1; ++i) dst[i] = src[i];
    dst[i] = 0;
}

const MixerControlDesc* MixerDevice::FindControl(DWORD id, const MixerLineDesc** line) const {
    for (int l = 0; l < lineCount; ++l)
        for (int c = 0; c < lines[l].controlCount; ++c)
            if (lines[l].controls[c].id == id) {
                if (line) *line = &lines[l];
                return &lines[l].controls[c];
            }
    return nullptr;
}

// ---- System choice ----

namespace {

std::atomic<SoundSystem*> g_installed{nullptr};

SoundSystem* ChooseDefault() {
    const char* env = std::getenv("NCODEC_AUDIO");
    const bool wantVirtual = env && std::strcmp(env, "virtual") == 0;
    const bool wantAlsa = env && std::strcmp(env, "alsa") == 0;
    if (!wantVirtual) {
        SoundSystem* alsa = CreateAlsaSoundSystem();
        if (alsa && (wantAlsa || alsa->DeviceCount() > 0)) return alsa;
        HeapDelete(alsa);
    }
    return HeapNew<VirtualSoundSystem>();
}

}  // namespace

SoundSystem* GetDefaultSoundSystem() {
    // Made once and kept for the life of the process: devices opened on it
    // may outlive any owner we could name.
    static SoundSystem* const system = ChooseDefault();
    return system;
}

SoundSystem* GetSoundSystem() {
    SoundSystem* installed = g_installed.load(std::memory_order_acquire);
    return installed ? installed : GetDefaultSoundSystem();
}

void SetSoundSystem(SoundSystem* system) { g_installed.store(system, std::memory_order_release); }

// ---- DirectSound ----

HRESULT DirectSoundEnumerateA(LPDSENUMCALLBACKA callback, void* context) {
    if (!callback) return DSERR_INVALIDPARAM;
    SoundSystem* system = GetSoundSystem();
    if (!system) return DSERR_NODRIVER;
    const HRESULT hr = system->BeginEnumeration();
    if (FAILED(hr)) return hr;
    if (!callback(nullptr, "Primary Sound Driver", "", context)) return DS_OK;
    const int count = system->DeviceCount();
    for (int i = 0; i < count; ++i) {
        SoundDeviceDesc desc;
        if (!system->GetDevice(i, &desc)) continue;
        if (!callback(&desc.guid, desc.description, desc.module, context)) break;
    }
    return DS_OK;
}

HRESULT DirectSoundCreate(const GUID* guid, IDirectSound** device, void*) {
    if (!device) return DSERR_INVALIDPARAM;
    *device = nullptr;
    SoundSystem* system = GetSoundSystem();
    if (!system) return DSERR_NODRIVER;
    if (!guid) return system->CreateDevice(0, device);
    const int count = system->DeviceCount();
    for (int i = 0; i < count; ++i) {
        SoundDeviceDesc desc;
        if (system->GetDevice(i, &desc) && IsEqualGUID(desc.guid, *guid))
            return system->CreateDevice(i, device);
    }
    return DSERR_NODRIVER;
}

// ---- Mixer ----

struct MixerHandle {
    MixerDevice* device;
};

UINT mixerGetNumDevs() {
    SoundSystem* system = GetSoundSystem();
    return system ? static_cast<UINT>(system->MixerCount()) : 0;
}

MMRESULT mixerOpen(HMIXER* mixer, UINT id, uintptr_t, uintptr_t, DWORD flags) {
    if (!mixer || flags != MIXER_OBJECTF_MIXER) return MMSYSERR_INVALPARAM;
    *mixer = nullptr;
    SoundSystem* system = GetSoundSystem();
    if (!system || id >= static_cast<UINT>(system->MixerCount())) return MMSYSERR_BADDEVICEID;
    auto* handle = HeapNew<MixerHandle>();
    if (!handle) return MMSYSERR_NOMEM;
    const MMRESULT r = system->OpenMixer(static_cast<int>(id), &handle->device);
    if (r != MMSYSERR_NOERROR) {
        HeapDelete(handle);
        return r;
    }
    *mixer = handle;
    return MMSYSERR_NOERROR;
}

MMRESULT mixerClose(HMIXER mixer) {
    if (!mixer) return MMSYSERR_INVALHANDLE;
    HeapDelete(mixer->device);
    HeapDelete(mixer);
    return MMSYSERR_NOERROR;
}

MMRESULT mixerGetDevCapsA(UINT id, MIXERCAPSA* caps, UINT size) {
    if (!caps || size < sizeof(MIXERCAPSA)) return MMSYSERR_INVALPARAM;
    HMIXER mixer;
    const MMRESULT r = mixerOpen(&mixer, id, 0, 0, MIXER_OBJECTF_MIXER);
    if (r != MMSYSERR_NOERROR) return r;
    std::memset(caps, 0, sizeof(*caps));
    CopyName(caps->szPname, MAXPNAMELEN, mixer->device->productName);
    for (int l = 0; l < mixer->device->lineCount; ++l)
        if (mixer->device->lines[l].source < 0) caps->cDestinations++;
    mixerClose(mixer);
    return MMSYSERR_NOERROR;
}

namespace {

void FillLine(const MixerDevice& device, const MixerLineDesc& l, MIXERLINEA* line) {
    const DWORD size = line->cbStruct;
    std::memset(line, 0, sizeof(*line));
    line->cbStruct = size;
    line->dwDestination = static_cast<DWORD>(l.destination);
    line->dwSource = l.source < 0 ? 0 : static_cast<DWORD>(l.source);
    line->dwLineID = l.id;
    line->fdwLine = 1;  // active
    line->dwComponentType = l.componentType;
    line->cChannels = static_cast<DWORD>(l.channels);
    line->cControls = static_cast<DWORD>(l.controlCount);
    if (l.source < 0)
        for (int i = 0; i < device.lineCount; ++i)
            if (device.lines[i].source >= 0 && device.lines[i].destination == l.destination)
                line->cConnections++;
    CopyName(line->szShortName, MIXER_SHORT_NAME_CHARS, l.name);
    CopyName(line->szName, MIXER_LONG_NAME_CHARS, l.name);
    CopyName(line->Target.szPname, MAXPNAMELEN, device.productName);
}

void FillControl(const MixerControlDesc& c, MIXERCONTROLA* out) {
    std::memset(out, 0, sizeof(*out));
    out->cbStruct = sizeof(*out);
    out->dwControlID = c.id;
    out->dwControlType = c.type;
    out->fdwControl = c.channels == 1 ? 1 : 0;  // MIXERCONTROL_CONTROLF_UNIFORM
    CopyName(out->szShortName, MIXER_SHORT_NAME_CHARS, c.name);
    CopyName(out->szName, MIXER_LONG_NAME_CHARS, c.name);
    out->Bounds.dwMinimum = 0;
    out->Bounds.dwMaximum = c.type == MIXERCONTROL_CONTROLTYPE_VOLUME ? 65535 : 1;
    out->Metrics.cSteps = c.type == MIXERCONTROL_CONTROLTYPE_VOLUME ? 65536 : 2;
}

const MixerControlDesc* DetailsControl(HMIXER mixer, const MIXERCONTROLDETAILS* d,
                                       MMRESULT* error) {
    *error = MMSYSERR_INVALPARAM;
    if (!mixer) {
        *error = MMSYSERR_INVALHANDLE;
        return nullptr;
    }
    if (!d || d->cbStruct < sizeof(*d) || !d->paDetails ||
        d->cbDetails != sizeof(MIXERCONTROLDETAILS_UNSIGNED) || d->cMultipleItems != 0)
        return nullptr;
    const MixerControlDesc* c = mixer->device->FindControl(d->dwControlID);
    if (!c) {
        *error = MIXERR_INVALCONTROL;
        return nullptr;
    }
    if (d->cChannels != 1 && d->cChannels != static_cast<DWORD>(c->channels)) return nullptr;
    return c;
}

}  // namespace

MMRESULT mixerGetLineInfoA(HMIXER mixer, MIXERLINEA* line, DWORD flags) {
    if (!mixer) return MMSYSERR_INVALHANDLE;
    if (!line || line->cbStruct < sizeof(MIXERLINEA)) return MMSYSERR_INVALPARAM;
    const MixerDevice& d = *mixer->device;
    for (int i = 0; i < d.lineCount; ++i) {
        const MixerLineDesc& l = d.lines[i];
        bool match = false;
        switch (flags) {
            case MIXER_GETLINEINFOF_DESTINATION:
                match = l.source < 0 && static_cast<DWORD>(l.destination) == line->dwDestination;
                break;
            case MIXER_GETLINEINFOF_SOURCE:
                match = l.source >= 0 && static_cast<DWORD>(l.destination) == line->dwDestination &&
                        static_cast<DWORD>(l.source) == line->dwSource;
                break;
            case MIXER_GETLINEINFOF_LINEID:
                match = l.id == line->dwLineID;
                break;
            default:
                return MMSYSERR_INVALPARAM;
        }
        if (match) {
            FillLine(d, l, line);
            return MMSYSERR_NOERROR;
        }
    }
    return MIXERR_INVALLINE;
}

MMRESULT mixerGetLineControlsA(HMIXER mixer, MIXERLINECONTROLSA* controls, DWORD flags) {
    if (!mixer) return MMSYSERR_INVALHANDLE;
    if (!controls || controls->cbStruct < sizeof(*controls) || !controls->pamxctrl ||
        controls->cbmxctrl < sizeof(MIXERCONTROLA))
        return MMSYSERR_INVALPARAM;
    const MixerDevice& d = *mixer->device;
    if (flags == MIXER_GETLINECONTROLSF_ONEBYID) {
        const MixerLineDesc* line = nullptr;
        const MixerControlDesc* c = d.FindControl(controls->dwControlID, &line);
        if (!c) return MIXERR_INVALCONTROL;
        controls->dwLineID = line->id;
        FillControl(*c, controls->pamxctrl);
        return MMSYSERR_NOERROR;
    }
    for (int i = 0; i < d.lineCount; ++i) {
        const MixerLineDesc& l = d.lines[i];
        if (l.id != controls->dwLineID) continue;
        if (flags == MIXER_GETLINECONTROLSF_ALL) {
            if (controls->cControls != static_cast<DWORD>(l.controlCount))
                return MMSYSERR_INVALPARAM;
            for (int c = 0; c < l.controlCount; ++c)
                FillControl(l.controls[c], controls->pamxctrl + c);
            return MMSYSERR_NOERROR;
        }
        if (flags == MIXER_GETLINECONTROLSF_ONEBYTYPE) {
            for (int c = 0; c < l.controlCount; ++c)
                if (l.controls[c].type == controls->dwControlType) {
                    FillControl(l.controls[c], controls->pamxctrl);
                    return MMSYSERR_NOERROR;
                }
            return MIXERR_INVALCONTROL;
        }
        return MMSYSERR_INVALPARAM;
    }
    return MIXERR_INVALLINE;
}

MMRESULT mixerGetControlDetailsA(HMIXER mixer, MIXERCONTROLDETAILS* details, DWORD flags) {
    MMRESULT error;
    if (flags != MIXER_GETCONTROLDETAILSF_VALUE) return MMSYSERR_INVALPARAM;
    const MixerControlDesc* c = DetailsControl(mixer, details, &error);
    if (!c) return error;
    return mixer->device->ReadControl(*c, static_cast<int>(details->cChannels),
                                      static_cast<DWORD*>(details->paDetails));
}

MMRESULT mixerSetControlDetails(HMIXER mixer, MIXERCONTROLDETAILS* details, DWORD flags) {
    MMRESULT error;
    if (flags != MIXER_SETCONTROLDETAILSF_VALUE) return MMSYSERR_INVALPARAM;
    const MixerControlDesc* c = DetailsControl(mixer, details, &error);
    if (!c) return error;
    const auto* values = static_cast<const DWORD*>(details->paDetails);
    const DWORD top = c->type == MIXERCONTROL_CONTROLTYPE_VOLUME ? 65535 : 1;
    for (DWORD i = 0; i < details->cChannels; ++i)
        if (values[i] > top) return MMSYSERR_INVALPARAM;
    return mixer->device->WriteControl(*c, static_cast<int>(details->cChannels), values);
}

// ---- Endpoint volume ----

bool HasEndpointVolume() {
    SoundSystem* system = GetSoundSystem();
    return system && system->HasEndpointVolume();
}

int GetEndpointCount() {
    SoundSystem* system = GetSoundSystem();
    return system ? system->EndpointCount() : 0;
}

bool GetEndpointId(int index, WCHAR* id, int capacity) {
    SoundSystem* system = GetSoundSystem();
    return system && id && system->EndpointId(index, id, capacity);
}

HRESULT GetEndpointMasterVolume(int index, float* level) {
    SoundSystem* system = GetSoundSystem();
    return system ? system->GetEndpointVolume(index, level) : DSERR_NODRIVER;
}

HRESULT SetEndpointMasterVolume(int index, float level) {
    SoundSystem* system = GetSoundSystem();
    return system ? system->SetEndpointVolume(index, level) : DSERR_NODRIVER;
}

int StringFromGUID2(const GUID& g, WCHAR* out, int capacity) {
    if (!out || capacity < 39) return 0;
    static const char kHex[] = "0123456789ABCDEF";
    int n = 0;
    auto put = [&](uint64_t v, int digits) {
        for (int i = digits - 1; i >= 0; --i)
            out[n++] = static_cast<WCHAR>(kHex[(v >> (4 * i)) & 15]);
    };
    out[n++] = '{';
    put(g.Data1, 8);
    out[n++] = '-';
    put(g.Data2, 4);
    out[n++] = '-';
    put(g.Data3, 4);
    out[n++] = '-';
    put(g.Data4[0], 2);
    put(g.Data4[1], 2);
    out[n++] = '-';
    for (int i = 2; i < 8; ++i) put(g.Data4[i], 2);
    out[n++] = '}';
    out[n++] = 0;
    return n;
}

}  // namespace nplat
