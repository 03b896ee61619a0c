// CNAudioRender: life cycle, state changes, play configuration, statistics
// and the device list. The data path (render thread, conversion, chain) is
// in audio_render_thread.cpp, the play clock in audio_render_clock.cpp, the
// volumes in audio_render_volume.cpp.
//
// Every public operation holds the render's lock for its whole duration,
// except Close, which must let the thread take the lock to finish. Work
// buffers (conversion planes, chain staging, the device segment ring) are
// allocated when the chain is built (Open, or a rebuild on the render
// thread once the device has played out), never per buffer.
//
// Not here: checking the formats handed to Open and FormatChange (callers
// use CheckAudioFormatInfo); a format the chain cannot work with makes Open
// fail with error 10, or a later rebuild fatal.
#include <cstring>

#include "base/audio_format.h"
#include "ncodecbase/audio_processor.h"
#include "ncodecbase/helper.h"
#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"
#include "platform/kernel/thread.h"
#include "platform/sound/sound_system.h"
#include "render/audio/audio_render_internal.h"

using namespace ncb::render_audio;
using Guard = std::lock_guard<CNLock>;
using nplat::FAILED;
using nplat::SUCCEEDED;

CNAudioRender::CNAudioRender() { m_stStat.nSize = kStatInfoSize; }

CNAudioRender::~CNAudioRender() {
    if (m_nInited) Uninit();
    ClearQueue();
    m_listFormat.RemoveAll(0);
    ReleaseWorkBuffers();
}

int CNAudioRender::Init() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!EnumSourceDevice()) {
        m_nExtendError = kErrorEnumeration;
        return 0;
    }
    CNHelper::CPUInfoTag cpu;
    if (!CNHelper::GetCpuInfo(&cpu)) {
        m_nExtendError = kErrorCpuInfo;
        return 0;
    }
    if (!cpu.nSSE2) {
        m_nExtendError = kErrorNoSse2;
        return 0;
    }
    m_nLevel = cpu.nSSE41 ? 2 : cpu.nSSSE3 ? 1 : 0;
    m_stPendingConfig.nSize = kPlayConfigSize;
    m_stPendingConfig.nFlags = 0;
    m_stPendingConfig.nVolume = 256;
    m_stPendingConfig.nEqualizerBands = 0;
    m_stPendingConfig.nSpeed = 25;
    std::memset(&m_stStat, 0, sizeof(m_stStat));
    m_stStat.nSize = kStatInfoSize;
    m_nOsFlag = nplat::HasEndpointVolume() ? 1 : 0;
    m_nInited = 1;
    m_nOpened = 0;
    return 1;
}

int CNAudioRender::Uninit() {
    if (m_nOpened) Close();
    Guard guard(m_lock);
    m_nInited = 0;
    m_nOpened = 0;
    return 1;
}

int CNAudioRender::Open(nplat::HWND window, int device, CNCodecBase::AudioFormatInfoTag* format,
                        nplat::HANDLE positionEvent, nplat::HANDLE statusEvent, int reverse,
                        int priority) {
    if (m_nOpened) Close();
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (device == -1) device = 0;
    if (device < -1 || device >= m_nDeviceCount || !format) return 0;
    m_stActiveConfig = m_stPendingConfig;
    m_hWindow = window;
    m_nDevice = device;
    m_hPositionEvent = positionEvent;
    m_hStatusEvent = statusEvent;
    m_nReverse = reverse ? 1 : 0;
    m_nPriority = priority;

    nplat::DSCAPS caps;
    caps.dwSize = sizeof(caps);
    if (FAILED(nplat::DirectSoundCreate(&m_devices[device].guid, &m_pDevice, nullptr)) ||
        FAILED(m_pDevice->GetCaps(&caps)) ||
        FAILED(m_pDevice->SetCooperativeLevel(window, nplat::DSSCL_NORMAL))) {
        ReleaseDevice();
        m_nExtendError = kErrorDevice;
        return 0;
    }
    m_nMinRate = static_cast<int>(caps.dwMinSecondarySampleRate);
    m_nMaxRate = static_cast<int>(caps.dwMaxSecondarySampleRate);

    m_listFormat.RemoveAll(0);
    try {
        m_listFormat.InsertBinary("", format, sizeof(*format), -1, 0);
    } catch (CNException* e) {
        e->FreeMe();
        ReleaseDevice();
        return 0;
    }
    m_nCurrentFormat = m_nLatestFormat = 0;
    ClearQueue();
    ClearSegments();
    ResetClock();
    m_nRebuildPending = m_nEndOfStream = m_nFinalFlushDone = 0;
    m_nWritePos = 0;
    m_nSilencePadded = 0;
    m_nBufferPlaying = 0;

    CalcPostProcessConfigFull();
    if (!InitAllPostProcessObject()) {
        m_listFormat.RemoveAll(0);
        ReleaseDevice();
        m_nExtendError = kErrorChain;
        return 0;
    }
    if (!CreateDirectSoundBuffer(0, 0, 0)) {
        ReleaseAllPostProcessResource();
        m_listFormat.RemoveAll(0);
        ReleaseDevice();
        m_nExtendError = kErrorDevice;
        return 0;
    }
    m_hStopEvent = nplat::CreateEvent(true, false);
    m_hWakeEvent = nplat::CreateEvent(false, false);
    if (m_hStopEvent && m_hWakeEvent)
        m_pThread = nplat::Thread::Create(AudioRenderThreadProcStub, this, 0x100000, priority);
    if (!m_pThread) {
        nplat::CloseHandle(m_hStopEvent);
        nplat::CloseHandle(m_hWakeEvent);
        m_hStopEvent = m_hWakeEvent = nullptr;
        ReleaseAllPostProcessResource();
        m_listFormat.RemoveAll(0);
        ReleaseDevice();
        return 0;
    }
    m_nOpened = 1;
    m_stStat.nState = kStatePaused;
    return 1;
}

void CNAudioRender::ReleaseDevice() {
    if (m_pBuffer) m_pBuffer->Release();
    m_pBuffer = nullptr;
    if (m_pDevice) m_pDevice->Release();
    m_pDevice = nullptr;
    m_nBufferPlaying = 0;
}

int CNAudioRender::Close() {
    nplat::Thread* thread;
    {
        Guard guard(m_lock);
        m_nExtendError = 0;
        thread = m_pThread;
        m_pThread = nullptr;
        if (thread) nplat::SetEvent(m_hStopEvent);
    }
    if (thread) {
        // Our thread ends within one wake-up of the stop event; a thread
        // cannot be killed safely here, so after the grace period we go on
        // waiting rather than leave it running on freed state.
        nplat::WaitForSingleObject(thread->ExitEvent(), 30000);
        nplat::Thread::Destroy(thread);
    }
    Guard guard(m_lock);
    ReleaseDevice();
    nplat::CloseHandle(m_hStopEvent);
    nplat::CloseHandle(m_hWakeEvent);
    m_hStopEvent = m_hWakeEvent = nullptr;
    ReleaseAllPostProcessResource();
    m_listFormat.RemoveAll(0);
    ClearQueue();
    ClearSegments();
    ReleaseWorkBuffers();
    m_stStat.nState = kStateClosed;
    m_stStat.uPlayedTime = 0;
    m_nOpened = 0;
    return 1;
}

// Releases every queued buffer and empties the queue.
void CNAudioRender::ClearQueue() {
    const int n = m_listInput.GetParameterCount();
    for (int i = 0; i < n; ++i) {
        auto* entry = static_cast<QueueEntry*>(m_listInput.GetBinaryData(i));
        if (entry && entry->buffer) entry->buffer->Release();
    }
    m_listInput.RemoveAll(0);
    m_nQueuePos = 0;
    m_nQueueBase = -1;
    m_nCurrentFrames = m_nConsumed = 0;
}

int CNAudioRender::ConfigNotifyEvent(nplat::HANDLE positionEvent, nplat::HANDLE statusEvent) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    m_hPositionEvent = positionEvent;
    m_hStatusEvent = statusEvent;
    return 1;
}

int CNAudioRender::Play() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    if (m_stStat.nState != kStatePlaying) {
        m_stStat.nState = kStatePlaying;
        nplat::SetEvent(m_hWakeEvent);
    }
    return 1;
}

int CNAudioRender::Pause() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    if (m_stStat.nState == kStatePlaying) {
        if (m_nBufferPlaying && m_pBuffer) m_pBuffer->Stop();
        m_nBufferPlaying = 0;
        m_stStat.nState = kStatePaused;
    }
    return 1;
}

int CNAudioRender::Reset() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    if (m_pBuffer) m_pBuffer->Stop();
    m_nBufferPlaying = 0;
    ClearQueue();
    ClearSegments();
    for (int s = 0; m_pStreams && s < m_nStreamCount; ++s) {
        if (m_pStreams[s].rateControl)
            CNAudioProcessor::RateControlReset(m_pStreams[s].rateControl);
        if (m_pStreams[s].equalizer) CNAudioProcessor::EqualizerReset(m_pStreams[s].equalizer);
    }
    ResetClock();
    if (m_pBuffer) m_pBuffer->SetCurrentPosition(0);
    m_nWritePos = 0;
    m_nSilencePadded = 0;
    m_nEndOfStream = 0;
    m_nFinalFlushDone = 0;
    if (m_nOpened) m_stStat.nState = kStatePaused;
    nplat::SetEvent(m_hWakeEvent);
    return 1;
}

int CNAudioRender::FormatChange(CNCodecBase::AudioFormatInfoTag* format) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    if (!format || m_listFormat.GetParameterCount() >= 0x7FFF) return 0;
    try {
        m_nLatestFormat = m_listFormat.InsertBinary("", format, sizeof(*format), -1, 0);
    } catch (CNException* e) {
        e->FreeMe();
        return 0;
    }
    return 1;
}

CNCodecBase::AudioFormatInfoTag* CNAudioRender::FormatAt(int index) {
    return static_cast<CNCodecBase::AudioFormatInfoTag*>(m_listFormat.GetBinaryData(index));
}

int CNAudioRender::GetCurrentInputFormatInfo(CNCodecBase::AudioFormatInfoTag* latest,
                                             CNCodecBase::AudioFormatInfoTag* current) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    const auto* l = FormatAt(m_nLatestFormat);
    const auto* c = FormatAt(m_nCurrentFormat);
    if ((latest && !l) || (current && !c)) return 0;
    if (latest) *latest = *l;
    if (current) *current = *c;
    return 1;
}

int CNAudioRender::CheckAudioFormatInfo(CNCodecBase::AudioFormatInfoTag* f) {
    return f && ncb::IsRenderableAudioFormat(*f) ? 1 : 0;
}

void CNAudioRender::CalcPostProcessConfigFull() {
    const CNCodecBase::AudioFormatInfoTag* f = FormatAt(m_nCurrentFormat);
    const PlayConfigInfoTag& c = m_stActiveConfig;
    m_nWorkingRate = f ? ncb::WorkingSampleRate(*f) : 0;
    m_nBits = f ? f->nBitsPerSample : 0;
    m_nSpeakers = f ? ncb::RenderSpeakerCount(*f) : 0;
    m_nExtra = f ? ncb::ExtraChannelCount(*f) : 0;
    m_nJoint = f && ncb::IsJointStereo(*f) ? 1 : 0;
    m_nEqualizerOn = (c.nFlags & kFlagEqualizer) ? 1 : 0;
    m_nTempoOn = 0;
    m_nEffectiveRate = m_nWorkingRate;
    if ((c.nFlags & kFlagSpeed) && (c.nFlags & kFlagSpeedByRate))
        m_nEffectiveRate = static_cast<int>(static_cast<int64_t>(m_nWorkingRate) * c.nSpeed / 25);
    else if (c.nFlags & kFlagSpeed)
        m_nTempoOn = 1;
    m_nResampleOn = m_nEffectiveRate < m_nMinRate || m_nEffectiveRate > m_nMaxRate ? 1 : 0;
    m_nOutputRate = m_nResampleOn ? 44100 : m_nEffectiveRate;
    m_nOutputChannels = m_nSpeakers;
    m_nOutputMask = f ? f->nSpeakerInfo & AUDIO_SPEAKER_MASK_RENDER : 0;
    const int frameBytes = m_nSpeakers * 2;
    m_nDeviceBufferSize =
        static_cast<int>(static_cast<int64_t>(m_nOutputRate) * 1500 / 1000) * frameBytes;
    m_nBytes1s = m_nOutputRate * frameBytes;
    m_nBytes50ms = m_nOutputRate * 50 / 1000 * frameBytes;
    m_nBytes10ms = m_nOutputRate * 10 / 1000 * frameBytes;
    m_nDirectMode = !m_nEqualizerOn && !m_nTempoOn && !m_nResampleOn ? 1 : 0;
    m_nStreamCount = m_nJoint ? 1 : m_nSpeakers;
}

int CNAudioRender::CompareAudioFormatInfo(int index) {
    if (index == m_nCurrentFormat) return 0;
    const CNCodecBase::AudioFormatInfoTag* f = FormatAt(index);
    if (!f) return 1;
    if (ncb::WorkingSampleRate(*f) != m_nWorkingRate) return 1;
    if ((f->nSpeakerInfo & AUDIO_SPEAKER_MASK_RENDER) != m_nOutputMask) return 1;
    if (m_nJoint && !ncb::IsJointStereo(*f)) return 1;
    if (f->nBitsPerSample != 8 && f->nBitsPerSample != 16 && f->nBitsPerSample != 24) return 1;
    m_nBits = f->nBitsPerSample;
    m_nExtra = f->nChannels - m_nSpeakers;
    return 0;
}

int CNAudioRender::GetPlayConfig(PlayConfigInfoTag* config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!config) return 0;
    *config = m_stPendingConfig;
    return 1;
}

int CNAudioRender::CheckPlayConfig(PlayConfigInfoTag* c) {
    if (!c || c->nSize != kPlayConfigSize) return 0;
    if ((c->nFlags & kFlagLeftBoth) && (c->nFlags & kFlagRightBoth)) return 0;
    if ((c->nFlags & kFlagVolume) && (c->nVolume < 2 || c->nVolume > 25600)) return 0;
    if (c->nFlags & kFlagEqualizer) {
        if (c->nEqualizerBands < 1 || c->nEqualizerBands > 12) return 0;
        for (int i = 0; i < c->nEqualizerBands; ++i)
            if (c->nEqualizerFreq[i] < 1) return 0;
    }
    if ((c->nFlags & kFlagSpeed) && (c->nSpeed < 1 || c->nSpeed > 625)) return 0;
    return 1;
}

int CNAudioRender::SetPlayConfig(PlayConfigInfoTag* config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!config) return 0;
    m_stPendingConfig = *config;
    if (!m_nOpened || m_nRebuildPending || m_stStat.nState == kStateFatal) return 1;
    PlayConfigInfoTag& a = m_stActiveConfig;
    const PlayConfigInfoTag& p = m_stPendingConfig;
    bool changed = false;
    if ((p.nFlags & 7) != (a.nFlags & 7)) {
        a.nFlags = (a.nFlags & ~7) | (p.nFlags & 7);
        changed = true;
    }
    if (p.nVolume != a.nVolume) {
        a.nVolume = p.nVolume;
        if (a.nFlags & kFlagVolume) changed = true;
    }
    const bool eqNew = (p.nFlags & kFlagEqualizer) != 0;
    const bool eqOld = (a.nFlags & kFlagEqualizer) != 0;
    bool sameBands = p.nEqualizerBands == a.nEqualizerBands;
    for (int i = 0; sameBands && i < p.nEqualizerBands && i < 12; ++i)
        sameBands = p.nEqualizerFreq[i] == a.nEqualizerFreq[i];
    if (eqNew != eqOld || (eqNew && !sameBands)) {
        m_nRebuildPending = 1;
    } else if (eqNew) {
        std::memcpy(a.fEqualizerGain, p.fEqualizerGain, sizeof(a.fEqualizerGain));
        float kept[12];
        int n = 0;
        for (int i = 0; i < a.nEqualizerBands && i < 12; ++i)
            if (2LL * a.nEqualizerFreq[i] <= m_nWorkingRate) kept[n++] = a.fEqualizerGain[i];
        for (int s = 0; m_pStreams && s < m_nStreamCount; ++s)
            if (m_pStreams[s].equalizer)
                CNAudioProcessor::EqualizerConfig(kept, m_pStreams[s].equalizer);
    } else {
        a.nEqualizerBands = p.nEqualizerBands;
        std::memcpy(a.nEqualizerFreq, p.nEqualizerFreq, sizeof(a.nEqualizerFreq));
        std::memcpy(a.fEqualizerGain, p.fEqualizerGain, sizeof(a.fEqualizerGain));
    }
    if (!m_nRebuildPending && !SetPlayConfigSpeed()) m_nRebuildPending = 1;
    if (!m_nRebuildPending && changed && m_nDirectMode) CutBackDeviceData();
    return 1;
}

// Takes a speed change over in place when the chain's shape stays; 0 when
// it needs a rebuild.
int CNAudioRender::SetPlayConfigSpeed() {
    PlayConfigInfoTag& a = m_stActiveConfig;
    const PlayConfigInfoTag& p = m_stPendingConfig;
    const int speedBits = kFlagSpeed | kFlagSpeedByRate;
    int tempo = 0, effective = m_nWorkingRate;
    if ((p.nFlags & kFlagSpeed) && (p.nFlags & kFlagSpeedByRate))
        effective = static_cast<int>(static_cast<int64_t>(m_nWorkingRate) * p.nSpeed / 25);
    else if (p.nFlags & kFlagSpeed)
        tempo = 1;
    const int resample = effective < m_nMinRate || effective > m_nMaxRate ? 1 : 0;
    const int output = resample ? 44100 : effective;
    if (tempo != m_nTempoOn || resample != m_nResampleOn) return 0;
    if (tempo && p.nSpeed != a.nSpeed) return 0;
    if (resample && (effective != m_nEffectiveRate || output != m_nOutputRate)) return 0;
    if (output != m_nOutputRate &&
        (!m_pBuffer || FAILED(m_pBuffer->SetFrequency(static_cast<nplat::DWORD>(output)))))
        return 0;
    a.nFlags = (a.nFlags & ~speedBits) | (p.nFlags & speedBits);
    a.nSpeed = p.nSpeed;
    m_nEffectiveRate = effective;
    if (output != m_nOutputRate) {
        m_nOutputRate = output;
        const int frameBytes = m_nOutputChannels * 2;
        m_nBytes1s = output * frameBytes;
        m_nBytes50ms = output * 50 / 1000 * frameBytes;
        m_nBytes10ms = output * 10 / 1000 * frameBytes;
    }
    return 1;
}

int CNAudioRender::GetStatInfo(StatInfoTag* info) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!info) return 0;
    if (m_stStat.nState != kStateFatal && m_nOpened)
        m_stStat.nBufferedTime = CalcInputBufferedTimeMs() + CalcDirectSoundBufferedTimeMs();
    *info = m_stStat;
    return 1;
}

int CNAudioRender::ResetStatInfo() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    m_stStat.uPlayedTime = 0;
    return 1;
}

int CNAudioRender::GetExtendErrorCode() {
    Guard guard(m_lock);
    return m_nExtendError;
}

int CNAudioRender::GetDeviceNumber() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    return m_nDeviceCount;
}

int CNAudioRender::GetDeviceInfo(SoundDeviceInfoTag* devices, int capacity) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!devices) return 0;
    const int n = capacity < m_nDeviceCount ? capacity : m_nDeviceCount;
    for (int i = 0; i < n; ++i) {
        devices[i].nIndex = i;
        std::memcpy(devices[i].chDescription, m_devices[i].chDescription,
                    sizeof(devices[i].chDescription));
    }
    return n > 0 ? n : 0;
}

int CNAudioRender::RefreshDeviceInfo() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!EnumSourceDevice()) {
        m_nExtendError = kErrorEnumeration;
        return 0;
    }
    return 1;
}

int CNAudioRender::EnumSourceDevice() {
    m_nDeviceCount = 0;
    if (FAILED(nplat::DirectSoundEnumerateA(
            [](nplat::GUID* guid, const char* description, const char* module, void* context) {
                return DSEnumCallback(guid, description, module, context);
            },
            this)))
        return 0;
    MatchMixers();
    return 1;
}

int CNAudioRender::DSEnumCallback(nplat::GUID* guid, const char* description, const char*,
                                  void* context) {
    return static_cast<CNAudioRender*>(context)->DSEnumCallbackProc(guid, description);
}

int CNAudioRender::DSEnumCallbackProc(nplat::GUID* guid, const char* description) {
    if (m_nDeviceCount >= kMaxDevices || !guid) return 1;
    DeviceRecord& d = m_devices[m_nDeviceCount++];
    d.guid = *guid;
    nplat::CopyName(d.chDescription, sizeof(d.chDescription), description);
    nplat::CopyName(d.chShortName, sizeof(d.chShortName), description);
    d.nMixer = d.nMasterControl = d.nWaveControl = -1;
    return 1;
}

namespace {

// The id of the first volume control of a line with 2 to 15 controls, or -1.
int FirstVolumeControl(nplat::HMIXER mixer, const nplat::MIXERLINEA& line) {
    if (line.cControls < 2 || line.cControls > 15) return -1;
    nplat::MIXERCONTROLA controls[15];
    nplat::MIXERLINECONTROLSA query{};
    query.cbStruct = sizeof(query);
    query.dwLineID = line.dwLineID;
    query.cControls = line.cControls;
    query.cbmxctrl = sizeof(nplat::MIXERCONTROLA);
    query.pamxctrl = controls;
    if (nplat::mixerGetLineControlsA(mixer, &query, nplat::MIXER_GETLINECONTROLSF_ALL) != 0)
        return -1;
    for (nplat::DWORD i = 0; i < line.cControls; ++i)
        if (controls[i].dwControlType == nplat::MIXERCONTROL_CONTROLTYPE_VOLUME)
            return static_cast<int>(controls[i].dwControlID);
    return -1;
}

}  // namespace

void CNAudioRender::MatchMixers() {
    const nplat::UINT count = nplat::mixerGetNumDevs();
    for (nplat::UINT m = 0; m < count; ++m) {
        nplat::HMIXER mixer;
        if (nplat::mixerOpen(&mixer, m, 0, 0, nplat::MIXER_OBJECTF_MIXER) != 0) continue;
        nplat::MIXERCAPSA caps;
        DeviceRecord* d = nullptr;
        if (nplat::mixerGetDevCapsA(m, &caps, sizeof(caps)) == 0 && caps.cDestinations > 0)
            for (int i = 0; i < m_nDeviceCount && !d; ++i)
                if (m_devices[i].nMixer == -1 &&
                    std::strcmp(m_devices[i].chDescription, caps.szPname) == 0)
                    d = &m_devices[i];
        if (d) {
            d->nMixer = static_cast<int>(m);
            nplat::MIXERLINEA line{};
            line.cbStruct = sizeof(line);
            line.dwDestination = 0;
            if (nplat::mixerGetLineInfoA(mixer, &line, nplat::MIXER_GETLINEINFOF_DESTINATION) ==
                0) {
                d->nMasterControl = FirstVolumeControl(mixer, line);
                const nplat::DWORD sources = line.cConnections;
                for (nplat::DWORD s = 0; s < sources; ++s) {
                    nplat::MIXERLINEA src{};
                    src.cbStruct = sizeof(src);
                    src.dwDestination = 0;
                    src.dwSource = s;
                    if (nplat::mixerGetLineInfoA(mixer, &src, nplat::MIXER_GETLINEINFOF_SOURCE) !=
                        0)
                        continue;
                    if (src.dwComponentType != nplat::MIXERLINE_COMPONENTTYPE_SRC_WAVEOUT) continue;
                    d->nWaveControl = FirstVolumeControl(mixer, src);
                    break;
                }
            }
        }
        nplat::mixerClose(mixer);
    }
}
