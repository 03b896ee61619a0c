// CNAudioRender's volumes and speaker configuration: the device's master
// volume and wave-out line through the mixer controls found when the devices
// were listed (or the endpoint volume on systems that have one), the
// render's own buffer through its volume and pan, and the device's speaker
// configuration.
//
// Volumes are 0..100 and balances -100..100 on every path. Mixer controls
// that take one channel only still work, without balance (error 1).
//
// Not here: mute, per-application volumes, other mixer interfaces.
#include <algorithm>
#include <cstring>

#include "platform/sound/dsound.h"
#include "render/audio/audio_render_internal.h"

using namespace ncb::render_audio;
using Guard = std::lock_guard<CNLock>;
using nplat::FAILED;
using nplat::SUCCEEDED;

int CNAudioRender::ValidDevice(int* device) {
    if (*device == -1) *device = 0;
    return *device >= 0 && *device < m_nDeviceCount;
}

int CNAudioRender::GetVolume(int device, int target, int* volume, int* balance) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    int v = 0, b = 0, ok;
    if (target == 2) {
        ok = BufferVolume(&v, &b, 0);
    } else if (target == 0 || target == 1) {
        if (!ValidDevice(&device)) return 0;
        ok = target == 0 && m_nOsFlag ? EndpointVolume(device, &v, &b, 0)
                                      : MixerVolume(device, target, &v, &b, 0);
    } else {
        return 0;
    }
    if (!ok) return 0;
    if (volume) *volume = std::clamp(v, 0, 100);
    if (balance) *balance = std::clamp(b, -100, 100);
    return 1;
}

int CNAudioRender::SetVolume(int device, int target, int volume, int balance) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (target == 2) return BufferVolume(&volume, &balance, 1);
    if (target != 0 && target != 1) return 0;
    if (!ValidDevice(&device)) return 0;
    if (target == 0 && m_nOsFlag) return EndpointVolume(device, &volume, &balance, 1);
    return MixerVolume(device, target, &volume, &balance, 1);
}

int CNAudioRender::BufferVolume(int* volume, int* balance, int set) {
    if (!m_nOpened || !m_pBuffer) return 0;
    if (set) {
        const int64_t v = *volume == 0 ? -10000 : (static_cast<int64_t>(*volume) - 100) * 20;
        const int64_t p = (static_cast<int64_t>(*balance) + 100) * 20000 / 200 - 10000;
        if (FAILED(m_pBuffer->SetVolume(
                static_cast<nplat::LONG>(std::clamp<int64_t>(v, -10000, 0)))) ||
            FAILED(m_pBuffer->SetPan(
                static_cast<nplat::LONG>(std::clamp<int64_t>(p, -10000, 10000))))) {
            m_nExtendError = kErrorDevice;
            return 0;
        }
        return 1;
    }
    nplat::LONG attenuation, pan;
    if (FAILED(m_pBuffer->GetVolume(&attenuation)) || FAILED(m_pBuffer->GetPan(&pan))) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    *volume = attenuation < -2000 ? 0 : attenuation / 20 + 100;
    *balance = (pan + 10000) * 200 / 20000 - 100;
    return 1;
}

int CNAudioRender::MixerVolume(int device, int target, int* volume, int* balance, int set) {
    const DeviceRecord& d = m_devices[device];
    const int control = target == 0 ? d.nMasterControl : d.nWaveControl;
    nplat::HMIXER mixer;
    if (d.nMixer < 0 || control < 0 ||
        nplat::mixerOpen(&mixer, static_cast<nplat::UINT>(d.nMixer), 0, 0,
                         nplat::MIXER_OBJECTF_MIXER) != 0) {
        m_nExtendError = kErrorMixer;
        return 0;
    }
    nplat::DWORD values[2];
    nplat::MIXERCONTROLDETAILS details{};
    details.cbStruct = sizeof(details);
    details.dwControlID = static_cast<nplat::DWORD>(control);
    details.cChannels = 2;
    details.cbDetails = sizeof(nplat::MIXERCONTROLDETAILS_UNSIGNED);
    details.paDetails = values;
    int ok = 1;
    if (set) {
        const int64_t full = static_cast<int64_t>(*volume) * 65535 / 100;
        int64_t left = full, right = full;
        if (*balance < 0) right = full + full * *balance / 100;
        if (*balance > 0) left = full - full * *balance / 100;
        values[0] = static_cast<nplat::DWORD>(std::clamp<int64_t>(left, 0, 65535));
        values[1] = static_cast<nplat::DWORD>(std::clamp<int64_t>(right, 0, 65535));
        if (nplat::mixerSetControlDetails(mixer, &details, 0) != 0) {
            details.cChannels = 1;
            values[0] = std::max(values[0], values[1]);
            if (nplat::mixerSetControlDetails(mixer, &details, 0) != 0) {
                m_nExtendError = kErrorMixer;
                ok = 0;
            } else {
                m_nExtendError = kErrorSingleChannel;
            }
        }
    } else {
        if (nplat::mixerGetControlDetailsA(mixer, &details, 0) != 0) {
            details.cChannels = 1;
            if (nplat::mixerGetControlDetailsA(mixer, &details, 0) != 0) {
                m_nExtendError = kErrorMixer;
                ok = 0;
            } else {
                values[1] = values[0];
                m_nExtendError = kErrorSingleChannel;
            }
        }
        if (ok) {
            const int64_t l = values[0], r = values[1];
            *volume = static_cast<int>(std::max(l, r) * 100 / 65535);
            *balance = l == r  ? 0
                       : r < l ? static_cast<int>((r - l) * 100 / l)
                               : static_cast<int>((r - l) * 100 / r);
        }
    }
    nplat::mixerClose(mixer);
    return ok;
}

namespace {

// Case-insensitive search for `needle` in the first `limit` units of `hay`.
bool ContainsNoCase(const nplat::WCHAR* hay, const nplat::WCHAR* needle, int limit) {
    auto lower = [](nplat::WCHAR c) {
        return c >= 'A' && c <= 'Z' ? static_cast<nplat::WCHAR>(c - 'A' + 'a') : c;
    };
    for (int i = 0; i < limit && hay[i]; ++i) {
        int j = 0;
        while (needle[j] && i + j < limit && hay[i + j] && lower(hay[i + j]) == lower(needle[j]))
            ++j;
        if (!needle[j]) return true;
    }
    return false;
}

}  // namespace

int CNAudioRender::EndpointVolume(int device, int* volume, int* balance, int set) {
    nplat::WCHAR guid[40];
    if (!nplat::StringFromGUID2(m_devices[device].guid, guid, 40)) return 0;
    const int count = nplat::GetEndpointCount();
    for (int i = 0; i < count; ++i) {
        nplat::WCHAR id[512];
        if (!nplat::GetEndpointId(i, id, 512) || !ContainsNoCase(id, guid, 4096)) continue;
        if (set)
            return SUCCEEDED(nplat::SetEndpointMasterVolume(i, static_cast<float>(*volume * 0.01)))
                       ? 1
                       : 0;
        float level;
        if (FAILED(nplat::GetEndpointMasterVolume(i, &level))) return 0;
        *volume = static_cast<int>(level * 100);
        *balance = 0;
        return 1;
    }
    return 0;
}

int CNAudioRender::GetSpeakerConfig(int device, int, unsigned int* config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!ValidDevice(&device) || !config) return 0;
    nplat::IDirectSound* ds = nullptr;
    if (FAILED(nplat::DirectSoundCreate(&m_devices[device].guid, &ds, nullptr))) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    nplat::DWORD value;
    const bool ok = SUCCEEDED(ds->GetSpeakerConfig(&value));
    ds->Release();
    if (!ok) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    const unsigned low = value & 0xFF;
    *config = low == nplat::DSSPEAKER_7POINT1_SURROUND   ? 7
              : low == nplat::DSSPEAKER_5POINT1_SURROUND ? 6
              : low <= 7                                 ? low
                                                         : 0;
    return 1;
}

int CNAudioRender::SetSpeakerConfig(int device, int, unsigned int config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!ValidDevice(&device)) return 0;
    nplat::IDirectSound* ds = nullptr;
    if (FAILED(nplat::DirectSoundCreate(&m_devices[device].guid, &ds, nullptr))) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    const nplat::DWORD value =
        config == 4
            ? nplat::DSSPEAKER_COMBINED(nplat::DSSPEAKER_STEREO, nplat::DSSPEAKER_GEOMETRY_WIDE)
            : config;
    const bool ok = SUCCEEDED(ds->SetSpeakerConfig(value));
    ds->Release();
    if (!ok) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    return 1;
}
