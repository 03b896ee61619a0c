// The backends behind the DirectSound- and WINMM-shaped calls of dsound.h.
//
// A sound system lists devices (the default one first), opens them, and
// describes its mixers as plain tables of lines and controls; the WINMM
// functions are written once over those tables. Which system serves is
// chosen once: ALSA when it was built in and lists a device, else the virtual
// device; NCODEC_AUDIO=alsa|virtual overrides that default, and tests install
// their own system with SetSoundSystem.
//
// Not here: hot-plugging (the device list is read when asked for).
#pragma once

#include "platform/sound/dsound.h"

namespace nplat {

constexpr int kSoundDescriptionChars = 256;

struct SoundDeviceDesc {
    GUID guid;
    char description[kSoundDescriptionChars];
    char module[kSoundDescriptionChars];
};

constexpr int kMixerMaxLines = 8;
constexpr int kMixerMaxControls = 4;

struct MixerControlDesc {
    DWORD id;
    DWORD type;  // MIXERCONTROL_CONTROLTYPE_...
    int channels;
    char name[MIXER_LONG_NAME_CHARS];
};

struct MixerLineDesc {
    DWORD id;
    DWORD componentType;
    int destination;
    int source;  // -1 for the destination line itself
    int channels;
    char name[MIXER_LONG_NAME_CHARS];
    int controlCount;
    MixerControlDesc controls[kMixerMaxControls];
};

// One mixer device: its lines (destinations before their sources) and the
// current values of its controls.
class MixerDevice {
  public:
    virtual ~MixerDevice() = default;
    char productName[MAXPNAMELEN] = {};
    int lineCount = 0;
    MixerLineDesc lines[kMixerMaxLines] = {};

    const MixerControlDesc* FindControl(DWORD id, const MixerLineDesc** line = nullptr) const;
    // `channels` values, 0..65535, left first.
    virtual MMRESULT ReadControl(const MixerControlDesc& control, int channels, DWORD* values) = 0;
    virtual MMRESULT WriteControl(const MixerControlDesc& control, int channels,
                                  const DWORD* values) = 0;
};

class SoundSystem {
  public:
    virtual ~SoundSystem() = default;
    virtual const char* Name() const = 0;
    // Called at the start of each enumeration; a failure fails it.
    virtual HRESULT BeginEnumeration() { return DS_OK; }
    virtual int DeviceCount() = 0;
    virtual bool GetDevice(int index, SoundDeviceDesc* desc) = 0;
    virtual HRESULT CreateDevice(int index, IDirectSound** device) = 0;

    virtual int MixerCount() = 0;
    // Opens mixer `index`; the caller deletes it with HeapDelete.
    virtual MMRESULT OpenMixer(int index, MixerDevice** mixer) = 0;

    virtual bool HasEndpointVolume() { return false; }
    virtual int EndpointCount() { return 0; }
    virtual bool EndpointId(int, WCHAR*, int) { return false; }
    virtual HRESULT GetEndpointVolume(int, float*) { return DSERR_GENERIC; }
    virtual HRESULT SetEndpointVolume(int, float) { return DSERR_GENERIC; }
};

// The system that serves the calls now.
SoundSystem* GetSoundSystem();
// Installs `system` (null: back to the default). The caller keeps ownership
// and must release every device it opened before uninstalling.
void SetSoundSystem(SoundSystem* system);
// The default, as chosen for this process (ALSA or virtual).
SoundSystem* GetDefaultSoundSystem();

// Backend constructors, each null when it cannot serve.
SoundSystem* CreateAlsaSoundSystem();

// Copies a string into a fixed field, always terminated.
void CopyName(char* dst, int capacity, const char* src);

}  // namespace nplat
