// The DirectSound-shaped sound device and the WINMM-shaped mixer that the
// audio render talks to: device enumeration with GUIDs, device caps with the
// secondary rate range, a looping secondary buffer with Lock/Unlock and play
// cursor, volume, pan and frequency, the speaker configuration, mixer devices
// with destination and source lines and their controls, and the endpoint
// volume of newer systems.
//
// Why this shape: the render's algorithms were written against these calls,
// so they read line by line. Every call dispatches to the current sound
// system (sound_system.h): the headless virtual device, or ALSA when a card
// is present. HRESULTs are the ones the render tests for.
//
// Not here: primary buffers, 3D buffers, notification positions, capture
// devices, effects, mixer list controls and callbacks.
//
// Thread safety: every function and interface method may be called from any
// thread; a buffer serialises its own calls.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

using LONG = int32_t;
using ULONG = uint32_t;
using WORD = uint16_t;
using UINT = uint32_t;
using MMRESULT = uint32_t;

constexpr HRESULT DS_OK = 0;
constexpr HRESULT DSERR_GENERIC = E_FAIL;
constexpr HRESULT DSERR_INVALIDPARAM = E_INVALIDARG;
constexpr HRESULT DSERR_OUTOFMEMORY = E_OUTOFMEMORY;
constexpr HRESULT DSERR_NODRIVER = static_cast<HRESULT>(0x88780078u);
constexpr HRESULT DSERR_BUFFERLOST = static_cast<HRESULT>(0x88780096u);

constexpr DWORD DSSCL_NORMAL = 1;
constexpr DWORD DSBPLAY_LOOPING = 0x1;
constexpr DWORD DSBSTATUS_PLAYING = 0x1;
constexpr DWORD DSBSTATUS_LOOPING = 0x4;
constexpr DWORD DSBLOCK_ENTIREBUFFER = 0x2;

constexpr DWORD DSBCAPS_LOCDEFER = 0x40000;
constexpr DWORD DSBCAPS_CTRLFREQUENCY = 0x20;
constexpr DWORD DSBCAPS_CTRLPAN = 0x40;
constexpr DWORD DSBCAPS_CTRLVOLUME = 0x80;
constexpr DWORD DSBCAPS_GLOBALFOCUS = 0x8000;
constexpr DWORD DSBCAPS_GETCURRENTPOSITION2 = 0x10000;

constexpr LONG DSBVOLUME_MIN = -10000;
constexpr LONG DSBVOLUME_MAX = 0;
constexpr LONG DSBPAN_LEFT = -10000;
constexpr LONG DSBPAN_RIGHT = 10000;
constexpr DWORD DSBFREQUENCY_MIN = 100;
constexpr DWORD DSBFREQUENCY_MAX = 200000;
constexpr DWORD DSBSIZE_MIN = 4;
constexpr DWORD DSBSIZE_MAX = 0x0FFFFFFF;

constexpr DWORD DSSPEAKER_DIRECTOUT = 0;
constexpr DWORD DSSPEAKER_HEADPHONE = 1;
constexpr DWORD DSSPEAKER_MONO = 2;
constexpr DWORD DSSPEAKER_QUAD = 3;
constexpr DWORD DSSPEAKER_STEREO = 4;
constexpr DWORD DSSPEAKER_SURROUND = 5;
constexpr DWORD DSSPEAKER_5POINT1 = 6;
constexpr DWORD DSSPEAKER_7POINT1 = 7;
constexpr DWORD DSSPEAKER_7POINT1_SURROUND = 8;
constexpr DWORD DSSPEAKER_5POINT1_SURROUND = 9;
constexpr DWORD DSSPEAKER_GEOMETRY_WIDE = 20;
constexpr DWORD DSSPEAKER_COMBINED(DWORD config, DWORD geometry) { return config | geometry << 16; }

constexpr WORD WAVE_FORMAT_PCM = 1;
constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

#pragma pack(push, 1)
struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};
struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    WORD wValidBitsPerSample;
    DWORD dwChannelMask;
    GUID SubFormat;
};
#pragma pack(pop)
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);

inline constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

inline bool IsEqualGUID(const GUID& a, const GUID& b) {
    return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
           __builtin_memcmp(a.Data4, b.Data4, 8) == 0;
}

// The pointer takes its natural width, so dwSize is the 64-bit sizeof.
struct DSBUFFERDESC {
    DWORD dwSize;
    DWORD dwFlags;
    DWORD dwBufferBytes;
    DWORD dwReserved;
    WAVEFORMATEX* lpwfxFormat;
    GUID guid3DAlgorithm;
};

struct DSCAPS {
    DWORD dwSize;  // 96
    DWORD dwFlags;
    DWORD dwMinSecondarySampleRate;
    DWORD dwMaxSecondarySampleRate;
    DWORD dwPrimaryBuffers;
    DWORD dwMaxHwMixingAllBuffers;
    DWORD dwMaxHwMixingStaticBuffers;
    DWORD dwMaxHwMixingStreamingBuffers;
    DWORD dwFreeHwMixingAllBuffers;
    DWORD dwFreeHwMixingStaticBuffers;
    DWORD dwFreeHwMixingStreamingBuffers;
    DWORD dwMaxHw3DAllBuffers;
    DWORD dwMaxHw3DStaticBuffers;
    DWORD dwMaxHw3DStreamingBuffers;
    DWORD dwFreeHw3DAllBuffers;
    DWORD dwFreeHw3DStaticBuffers;
    DWORD dwFreeHw3DStreamingBuffers;
    DWORD dwTotalHwMemBytes;
    DWORD dwFreeHwMemBytes;
    DWORD dwMaxContigFreeHwMemBytes;
    DWORD dwUnlockTransferRateHwBuffers;
    DWORD dwPlayCpuOverheadSwBuffers;
    DWORD dwReserved1;
    DWORD dwReserved2;
};
static_assert(sizeof(DSCAPS) == 96);

// A reference-counted object: Release of the last reference frees it.
class SoundObject {
  public:
    ULONG AddRef();
    ULONG Release();

  protected:
    SoundObject() = default;
    virtual ~SoundObject() = default;

  private:
    std::atomic<int> m_refs{1};
};

class IDirectSoundBuffer : public SoundObject {
  public:
    // Play cursor (block aligned) and write cursor; either may be null.
    virtual HRESULT GetCurrentPosition(DWORD* play, DWORD* write) = 0;
    // Up to two parts: from offset to the end of the ring, then from its start.
    virtual HRESULT Lock(DWORD offset, DWORD bytes, void** part1, DWORD* bytes1, void** part2,
                         DWORD* bytes2, DWORD flags) = 0;
    virtual HRESULT Unlock(void* part1, DWORD bytes1, void* part2, DWORD bytes2) = 0;
    virtual HRESULT Play(DWORD reserved, DWORD priority, DWORD flags) = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT SetCurrentPosition(DWORD play) = 0;
    virtual HRESULT GetStatus(DWORD* status) = 0;
    virtual HRESULT SetFrequency(DWORD frequency) = 0;
    virtual HRESULT GetFrequency(DWORD* frequency) = 0;
    virtual HRESULT SetVolume(LONG volume) = 0;  // hundredths of a dB, -10000..0
    virtual HRESULT GetVolume(LONG* volume) = 0;
    virtual HRESULT SetPan(LONG pan) = 0;  // -10000 (left) .. 10000 (right)
    virtual HRESULT GetPan(LONG* pan) = 0;
};

class IDirectSound : public SoundObject {
  public:
    virtual HRESULT GetCaps(DSCAPS* caps) = 0;
    virtual HRESULT SetCooperativeLevel(HWND window, DWORD level) = 0;
    virtual HRESULT CreateSoundBuffer(const DSBUFFERDESC* desc, IDirectSoundBuffer** buffer,
                                      void* outer) = 0;
    virtual HRESULT GetSpeakerConfig(DWORD* config) = 0;
    virtual HRESULT SetSpeakerConfig(DWORD config) = 0;
};

// The primary device comes first with a null GUID, then every device with
// its own GUID (the default one first). Return FALSE from the callback to stop.
using LPDSENUMCALLBACKA = BOOL (*)(GUID* guid, const char* description, const char* module,
                                   void* context);
HRESULT DirectSoundEnumerateA(LPDSENUMCALLBACKA callback, void* context);
// A null GUID opens the default device.
HRESULT DirectSoundCreate(const GUID* guid, IDirectSound** device, void* outer);

// ---- WINMM-shaped mixer ----

struct MixerHandle;
using HMIXER = MixerHandle*;

constexpr MMRESULT MMSYSERR_NOERROR = 0;
constexpr MMRESULT MMSYSERR_ERROR = 1;
constexpr MMRESULT MMSYSERR_BADDEVICEID = 2;
constexpr MMRESULT MMSYSERR_INVALHANDLE = 5;
constexpr MMRESULT MMSYSERR_NOMEM = 7;
constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
constexpr MMRESULT MIXERR_INVALLINE = 1024;
constexpr MMRESULT MIXERR_INVALCONTROL = 1025;

constexpr DWORD MIXER_OBJECTF_MIXER = 0;
constexpr DWORD MIXER_GETLINEINFOF_DESTINATION = 0;
constexpr DWORD MIXER_GETLINEINFOF_SOURCE = 1;
constexpr DWORD MIXER_GETLINEINFOF_LINEID = 2;
constexpr DWORD MIXER_GETLINECONTROLSF_ALL = 0;
constexpr DWORD MIXER_GETLINECONTROLSF_ONEBYID = 1;
constexpr DWORD MIXER_GETLINECONTROLSF_ONEBYTYPE = 2;
constexpr DWORD MIXER_GETCONTROLDETAILSF_VALUE = 0;
constexpr DWORD MIXER_SETCONTROLDETAILSF_VALUE = 0;

constexpr DWORD MIXERLINE_COMPONENTTYPE_DST_SPEAKERS = 4;
constexpr DWORD MIXERLINE_COMPONENTTYPE_SRC_WAVEOUT = 0x1008;
constexpr DWORD MIXERCONTROL_CONTROLTYPE_VOLUME = 0x50030001;
constexpr DWORD MIXERCONTROL_CONTROLTYPE_MUTE = 0x20010002;

constexpr int MAXPNAMELEN = 32;
constexpr int MIXER_SHORT_NAME_CHARS = 16;
constexpr int MIXER_LONG_NAME_CHARS = 64;

struct MIXERCAPSA {
    WORD wMid;
    WORD wPid;
    DWORD vDriverVersion;
    char szPname[MAXPNAMELEN];
    DWORD fdwSupport;
    DWORD cDestinations;
};

struct MIXERLINEA {
    DWORD cbStruct;
    DWORD dwDestination;
    DWORD dwSource;
    DWORD dwLineID;
    DWORD fdwLine;
    uintptr_t dwUser;
    DWORD dwComponentType;
    DWORD cChannels;
    DWORD cConnections;
    DWORD cControls;
    char szShortName[MIXER_SHORT_NAME_CHARS];
    char szName[MIXER_LONG_NAME_CHARS];
    struct {
        DWORD dwType;
        DWORD dwDeviceID;
        WORD wMid;
        WORD wPid;
        DWORD vDriverVersion;
        char szPname[MAXPNAMELEN];
    } Target;
};

struct MIXERCONTROLA {
    DWORD cbStruct;
    DWORD dwControlID;
    DWORD dwControlType;
    DWORD fdwControl;
    DWORD cMultipleItems;
    char szShortName[MIXER_SHORT_NAME_CHARS];
    char szName[MIXER_LONG_NAME_CHARS];
    union {
        struct {
            DWORD dwMinimum;
            DWORD dwMaximum;
        };
        DWORD dwReserved[6];
    } Bounds;
    union {
        DWORD cSteps;
        DWORD dwReserved[6];
    } Metrics;
};

struct MIXERLINECONTROLSA {
    DWORD cbStruct;
    DWORD dwLineID;
    union {
        DWORD dwControlID;
        DWORD dwControlType;
    };
    DWORD cControls;
    DWORD cbmxctrl;
    MIXERCONTROLA* pamxctrl;
};

struct MIXERCONTROLDETAILS {
    DWORD cbStruct;
    DWORD dwControlID;
    DWORD cChannels;
    DWORD cMultipleItems;
    DWORD cbDetails;
    void* paDetails;
};

struct MIXERCONTROLDETAILS_UNSIGNED {
    DWORD dwValue;
};

UINT mixerGetNumDevs();
MMRESULT mixerOpen(HMIXER* mixer, UINT id, uintptr_t callback, uintptr_t instance, DWORD flags);
MMRESULT mixerClose(HMIXER mixer);
MMRESULT mixerGetDevCapsA(UINT id, MIXERCAPSA* caps, UINT size);
MMRESULT mixerGetLineInfoA(HMIXER mixer, MIXERLINEA* line, DWORD flags);
MMRESULT mixerGetLineControlsA(HMIXER mixer, MIXERLINECONTROLSA* controls, DWORD flags);
// Values 0..65535, one DWORD per channel, left first. cChannels is 1 (every
// channel alike) or the control's channel count.
MMRESULT mixerGetControlDetailsA(HMIXER mixer, MIXERCONTROLDETAILS* details, DWORD flags);
MMRESULT mixerSetControlDetails(HMIXER mixer, MIXERCONTROLDETAILS* details, DWORD flags);

// ---- Endpoint volume (the path newer systems take for the master volume) ----

// True where the system has endpoint volumes, as workstation versions 6.0 to
// 6.3 do; the render then sets the master volume through them.
bool HasEndpointVolume();
// Active render endpoints: count, id (UTF-16, zero-terminated; the id holds
// the device GUID as StringFromIID writes it), and the scalar master level.
int GetEndpointCount();
bool GetEndpointId(int index, WCHAR* id, int capacity);
HRESULT GetEndpointMasterVolume(int index, float* level);
HRESULT SetEndpointMasterVolume(int index, float level);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" into 39 units.
int StringFromGUID2(const GUID& guid, WCHAR* out, int capacity);

}  // namespace nplat
