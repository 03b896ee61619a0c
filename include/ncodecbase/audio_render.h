// CNAudioRender: plays PCM audio through the sound device layer. The host
// opens it on a device with a first format, appends CNCodecBuffers (frame
// count in the user data, time stamp in ms, flag 0x100 when interleaved), and
// a thread of the render's own converts them to 16-bit interleaved PCM, runs
// the optional post-processing chain (equalizer, tempo, resampling) and keeps
// about one second queued in a looping 1.5 s device buffer. The play clock
// maps the device's play cursor back onto the input time stamps.
//
// States (StatInfoTag::nState): 0 closed, 1 playing, 2 paused (also right
// after Open), 3 input ran dry, 4 end of stream, 5 fatal error (sticky until
// Close). Extended error codes (GetExtendErrorCode, cleared on entry to every
// public operation): 1 single-channel mixer control, 3 a device call failed,
// 4 a mixer call failed, 5 device enumeration failed, 6 no CPU information,
// 7 no SSE2, 8 the render is in state 5, 10 the post-processing chain could
// not be built.
//
// Ownership: the render takes one reference to every appended buffer and
// releases it once the buffer has been played (or at Reset/Close). The
// events given to Open or ConfigNotifyEvent stay the host's; the render only
// sets them.
// Thread safety: every public operation may be called from any host thread
// (they serialise on the render's lock), except that Init, Uninit, Open,
// Close and destruction belong to the thread that owns the object and must
// not overlap one another. The render thread is internal. Results are 1 for
// success and 0 for failure unless stated.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/base_services.h"
#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

namespace nplat {
class IDirectSound;
class IDirectSoundBuffer;
class Thread;
}  // namespace nplat

class NCB_API CNAudioRender {
  public:
    struct PlayConfigInfoTag {
        int32_t nSize;            // 116
        int32_t nFlags;           // 0x01 left on both, 0x02 right on both, 0x04 volume,
                                  // 0x08 equalizer, 0x10 speed, 0x20 speed by sample rate
        int32_t nVolume;          // Q8 gain, 2..25600
        int32_t nEqualizerBands;  // 1..12
        int32_t nEqualizerFreq[12];
        float fEqualizerGain[12];
        int32_t nSpeed;  // 1/25 steps, 1..625 (25 normal)
    };
    struct StatInfoTag {
        int32_t nSize;  // 24
        int32_t nState;
        uint64_t uPlayedTime;   // microseconds
        int32_t nBufferedTime;  // milliseconds
        int32_t nReserved;      // not maintained
    };
    struct SoundDeviceInfoTag {
        int32_t nIndex;
        char chDescription[256];
    };

    CNAudioRender();
    ~CNAudioRender();
    CNAudioRender(const CNAudioRender&) = delete;
    CNAudioRender& operator=(const CNAudioRender&) = delete;

    // ---- Set-up (owner thread) ----
    // Lists the devices and the processor level; errors 5, 6, 7.
    int Init();
    int Uninit();
    // device -1 means 0; other indices outside the list fail with error 0.
    // Error 3 for a failing device, 10 for a chain that cannot be built.
    // Starts the render thread; the render waits paused (state 2).
    int Open(nplat::HWND window, int device, CNCodecBase::AudioFormatInfoTag* format,
             nplat::HANDLE positionEvent, nplat::HANDLE statusEvent, int reverse, int priority);
    // Stops the thread and releases everything; never fails, from any state.
    int Close();

    // ---- Host operations (any thread) ----
    int ConfigNotifyEvent(nplat::HANDLE positionEvent, nplat::HANDLE statusEvent);
    int Play();
    int Pause();
    // Drops everything queued and rewinds the clock; state 2.
    int Reset();
    // Buffers appended from now on carry this format.
    int FormatChange(CNCodecBase::AudioFormatInfoTag* format);
    // Queues a buffer (one reference taken); null marks the end of the stream.
    int AppendBuffer(CNCodecBuffer* buffer);
    int GetPlayConfig(PlayConfigInfoTag* config);
    // Takes the configuration, in place where it can (changes that need a new
    // chain wait until the device has played out). Checks nothing: pass only
    // configurations that CheckPlayConfig accepts. Always 1.
    int SetPlayConfig(PlayConfigInfoTag* config);
    static int CheckPlayConfig(PlayConfigInfoTag* config);
    int GetStatInfo(StatInfoTag* info);
    int ResetStatInfo();
    int GetCurrentInputFormatInfo(CNCodecBase::AudioFormatInfoTag* latest,
                                  CNCodecBase::AudioFormatInfoTag* current);
    int GetExtendErrorCode();
    int GetDeviceNumber();
    int GetDeviceInfo(SoundDeviceInfoTag* devices, int capacity);  // returns the count filled
    int RefreshDeviceInfo();
    static int CheckAudioFormatInfo(CNCodecBase::AudioFormatInfoTag* format);
    // The input time now audible (low 32 bits), 0 with error 8 in state 5.
    uint32_t GetCurrentPlayTime();
    // 1 armed, 2 already reached (position event set at once), 0 in state 5.
    int SetNotifyTime(uint32_t time);
    int ClearNotifyTime();
    // target 0 master, 1 wave-out, 2 the render's own buffer (opened only).
    // Volume 0..100, balance -100..100; either pointer may be null.
    int GetVolume(int device, int target, int* volume, int* balance);
    int SetVolume(int device, int target, int volume, int balance);
    // Codes 0 direct out, 1 headphone, 2 mono, 3 quad, 4 stereo, 5 surround,
    // 6 5.1, 7 7.1. The second argument is not used.
    int GetSpeakerConfig(int device, int unused, unsigned int* config);
    int SetSpeakerConfig(int device, int unused, unsigned int config);

  private:
    struct DeviceRecord {
        nplat::GUID guid;
        char chDescription[256];
        char chShortName[32];
        int nMixer;
        int nMasterControl;
        int nWaveControl;
    };
    struct Segment {
        int32_t nPosition;
        int32_t nFrames;
        uint64_t uTime;
        int32_t nInputIndex;
        int32_t nInputOffset;
    };
    struct QueueEntry;
    struct Stream;

    static constexpr int kMaxDevices = 8;
    static constexpr int kMaxStreams = 6;

    // Thread entry and loop (render thread).
    static nplat::DWORD AudioRenderThreadProcStub(void* render);
    void AudioRenderThread();
    // Everything below runs with the lock held.
    // Device list: Init and RefreshDeviceInfo (host threads).
    int EnumSourceDevice();
    static int DSEnumCallback(nplat::GUID* guid, const char* description, const char* module,
                              void* context);
    int DSEnumCallbackProc(nplat::GUID* guid, const char* description);
    void MatchMixers();
    // Chain and device set-up: Open (owner thread) and Rebuild (render
    // thread); the only places that allocate once playing has begun.
    void CalcPostProcessConfigFull();
    int CompareAudioFormatInfo(int index);  // also AppendBuffer (host threads)
    int CreateDirectSoundBuffer(int restore, int32_t volume, int32_t pan);
    int InitAllPostProcessObject();
    int InitEqualizer();
    int InitRateControl();
    int InitResample();
    void ReleaseAllPostProcessResource();
    int AllocateWorkBuffers();
    void ReleaseWorkBuffers();
    void ReleaseDevice();
    // Render thread only; none of these allocate.
    int FillDSBufferDirectMode(int wantMs);
    int FillDSBufferNotDirectMode(int wantMs);
    int CopyDataDirectMode(int frames);
    int ConvertDataWithPostProcess(int frames, int* producedMs);
    int ConvertDataWithPostProcessFinal(int* producedMs);
    int WriteStreams(int frames, uint64_t time, int inputIndex, int inputOffset);
    int RunChain(short** in, int frames, bool flush, uint64_t* time);
    void ConvertInput(int frames, int framesDone, short** planes);
    int WriteSilencePad();
    int Rebuild();
    void AccountPlayed();
    void ReleasePlayedInput(int64_t audibleIndex);
    int LoadQueueEntry(int position);  // also AppendBuffer (host threads)
    void NotifyFatalErrorEvent();
    void NotifyPlayStatusEvent();
    void NotifyPlayPosEvent();
    int MaxInputFrames(int outputFramesFree);
    // Clock and queue bookkeeping: host threads and the render thread.
    uint64_t InnerGetCurrentPlayTime();
    int InnerGetCurrentPlayPos(int* offset);
    uint64_t AdjustTimeStamp(uint64_t time, int frames, int mode);
    uint64_t ExtendTimeStamp(uint32_t stamp, uint64_t previous);
    int CalcDirectSoundBufferedTimeMs();
    int CalcInputBufferedTimeMs();
    int DeviceFramesBuffered();
    void ResetClock();
    void ClearQueue();
    void CutBackDeviceData();
    int SetPlayConfigSpeed();
    // Volume paths: host threads.
    int MixerVolume(int device, int target, int* volume, int* balance, int set);
    int BufferVolume(int* volume, int* balance, int set);
    int EndpointVolume(int device, int* volume, int* balance, int set);
    int ValidDevice(int* device);
    // Segment ring.
    Segment& SegmentAt(int i) { return m_pSegments[(m_nSegmentHead + i) % m_nSegmentCapacity]; }
    int PushSegment(const Segment& segment);
    void DropSegments(int count);
    void ClearSegments();
    CNCodecBase::AudioFormatInfoTag* FormatAt(int index);

    CNLock m_lock;
    CNDataList m_listFormat;
    CNDataList m_listInput;
    int m_nInited = 0;
    int m_nOpened = 0;
    int m_nExtendError = 0;
    int m_nLevel = 0;
    int m_nOsFlag = 0;
    int m_nDeviceCount = 0;
    DeviceRecord m_devices[kMaxDevices] = {};

    PlayConfigInfoTag m_stPendingConfig = {};
    PlayConfigInfoTag m_stActiveConfig = {};
    StatInfoTag m_stStat = {};

    nplat::HWND m_hWindow = nullptr;
    int m_nDevice = 0;
    nplat::HANDLE m_hPositionEvent = nullptr;
    nplat::HANDLE m_hStatusEvent = nullptr;
    int m_nReverse = 0;
    int m_nPriority = 0;

    nplat::IDirectSound* m_pDevice = nullptr;
    int m_nMinRate = 0;
    int m_nMaxRate = 0;
    nplat::IDirectSoundBuffer* m_pBuffer = nullptr;
    int m_nBufferPlaying = 0;

    nplat::Thread* m_pThread = nullptr;
    nplat::HANDLE m_hStopEvent = nullptr;
    nplat::HANDLE m_hWakeEvent = nullptr;

    int m_nCurrentFormat = 0;
    int m_nLatestFormat = 0;

    // Derived from the current format and the active configuration.
    int m_nWorkingRate = 0;
    int m_nEffectiveRate = 0;
    int m_nBits = 0;
    int m_nSpeakers = 0;
    int m_nExtra = 0;
    int m_nJoint = 0;
    int m_nOutputRate = 0;
    int m_nOutputChannels = 0;
    int m_nOutputMask = 0;
    int m_nDeviceBufferSize = 0;
    int m_nBytes1s = 0;
    int m_nBytes50ms = 0;
    int m_nBytes10ms = 0;
    int m_nDirectMode = 0;
    int m_nStreamCount = 0;
    int m_nEqualizerOn = 0;
    int m_nTempoOn = 0;
    int m_nResampleOn = 0;
    int m_nRebuildPending = 0;
    int m_nEndOfStream = 0;
    int m_nFinalFlushDone = 0;

    // Reading state.
    int m_nQueuePos = 0;
    int64_t m_nQueueBase = -1;
    int m_nCurrentFrames = 0;
    int m_nConsumed = 0;
    uint64_t m_uCurrentTime = 0;
    uint64_t m_uPreviousTime = 0;
    uint64_t m_uEndTime = 0;
    uint64_t m_uNotifyTime = 0;
    int m_nNotifyArmed = 0;
    uint32_t m_uAcceptedCursor = 0;
    int m_nHasAcceptedCursor = 0;

    // Device state.
    int m_nWritePos = 0;
    int m_nSilencePadded = 0;
    Segment* m_pSegments = nullptr;
    int m_nSegmentCapacity = 0;
    int m_nSegmentHead = 0;
    int m_nSegmentCount = 0;
    int64_t m_nSegmentFrames = 0;  // frames of all segments together

    // Post-processing, one slot per stream, and the conversion work buffers.
    Stream* m_pStreams = nullptr;
    short* m_pPlanes = nullptr;            // kMaxStreams planes of kChunkFrames samples
    short* m_pPlaneOut[kMaxStreams] = {};  // the chain's outputs of the last chunk
};

static_assert(sizeof(CNAudioRender::PlayConfigInfoTag) == 116);
static_assert(offsetof(CNAudioRender::PlayConfigInfoTag, nEqualizerFreq) == 16);
static_assert(offsetof(CNAudioRender::PlayConfigInfoTag, fEqualizerGain) == 64);
static_assert(offsetof(CNAudioRender::PlayConfigInfoTag, nSpeed) == 112);
static_assert(sizeof(CNAudioRender::StatInfoTag) == 24);
static_assert(offsetof(CNAudioRender::StatInfoTag, uPlayedTime) == 8);
static_assert(offsetof(CNAudioRender::StatInfoTag, nBufferedTime) == 16);
static_assert(sizeof(CNAudioRender::SoundDeviceInfoTag) == 260);
