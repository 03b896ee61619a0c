// CNAudioRender's data path: the input queue, the render thread, conversion
// to the device layout, the post-processing chain and the record of what was
// written where (device segments, read by the play clock).
//
// The thread holds the render's lock for each whole wake-up and never while
// it waits. It keeps about one second in the 1.5 s looping device buffer,
// pads 50 ms of silence once when the input runs dry so the loop does not
// replay old audio, and rebuilds the chain and the device buffer only after
// everything of the old configuration has played.
//
// Real-time discipline: everything the per-buffer path touches (conversion
// planes, chain staging and outputs, the segment ring) is allocated when the
// chain is built. Input is processed in chunks of kChunkFrames so these
// sizes do not depend on how large the host's buffers are. The processors'
// Allocate calls find their output blocks large enough and keep them.
//
// Not here: the play clock arithmetic (audio_render_clock.cpp).
#include <algorithm>
#include <cstring>

#include "ncodecbase/audio_processor.h"
#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"
#include "platform/kernel/thread.h"
#include "platform/sound/dsound.h"
#include "render/audio/audio_render_internal.h"

using namespace ncb::render_audio;
using Guard = std::lock_guard<CNLock>;
using nplat::FAILED;
using nplat::SUCCEEDED;
using AP = CNAudioProcessor;

// ---- Input queue ----

int CNAudioRender::AppendBuffer(CNCodecBuffer* buffer) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    if (!buffer) {
        m_nEndOfStream = 1;
    } else {
        QueueEntry entry{buffer, 0, 0, 0};
        int position;
        try {
            position = m_listInput.InsertBinary("", &entry, sizeof(entry), -1, 0);
        } catch (CNException* e) {
            e->FreeMe();
            return 0;
        }
        m_listInput.SetUserData1(position, static_cast<int16_t>(m_nLatestFormat));
        buffer->AddRef();
        if (m_nQueueBase == -1) {
            m_nQueueBase = 0;
            m_uPreviousTime = (m_uPreviousTime & ~0xFFFFFFFFull) | buffer->GetTimeStamp();
        }
        if (position == m_nQueuePos) LoadQueueEntry(position);
    }
    if (m_stStat.nState == kStatePlaying && m_nBufferPlaying &&
        CalcDirectSoundBufferedTimeMs() < 900)
        nplat::SetEvent(m_hWakeEvent);
    return 1;
}

// Makes the record at `position` the current input buffer; compares its
// format unless a rebuild is pending already. 0 when it needs a rebuild.
int CNAudioRender::LoadQueueEntry(int position) {
    auto* entry = static_cast<QueueEntry*>(m_listInput.GetBinaryData(position));
    const int format = m_listInput.GetUserData1(position);
    if (!entry->loaded) {
        entry->time = ExtendTimeStamp(entry->buffer->GetTimeStamp(), m_uPreviousTime);
        entry->loaded = 1;
        // A buffer whose data is shorter than its frame count announces is
        // played as empty rather than read past its end.
        const auto* f = FormatAt(format);
        const int64_t frames = entry->buffer->GetBufferUserData();
        const int64_t need = f ? frames * f->nChannels * (f->nBitsPerSample / 8) : -1;
        entry->frames =
            frames > 0 && need >= 0 && need <= entry->buffer->GetDataSize() && f->nChannels > 0
                ? static_cast<int32_t>(frames)
                : 0;
    }
    m_nCurrentFrames = entry->frames;
    m_nConsumed = 0;
    m_uCurrentTime = entry->time;
    if (m_nRebuildPending) return 0;
    if (CompareAudioFormatInfo(format)) {
        m_nRebuildPending = 1;
        return 0;
    }
    m_nCurrentFormat = format;
    return 1;
}

// ---- Render thread ----

nplat::DWORD CNAudioRender::AudioRenderThreadProcStub(void* render) {
    static_cast<CNAudioRender*>(render)->AudioRenderThread();
    return 0;
}

void CNAudioRender::AudioRenderThread() {
    nplat::DWORD timeout = nplat::INFINITE;
    for (;;) {
        const nplat::HANDLE events[2] = {m_hStopEvent, m_hWakeEvent};
        const nplat::DWORD r = nplat::WaitForMultipleObjects(2, events, false, timeout);
        if (r != nplat::WAIT_OBJECT_0 + 1 && r != nplat::WAIT_TIMEOUT) return;
        Guard guard(m_lock);
        if (m_nSegmentCount > 0) AccountPlayed();
        timeout = nplat::INFINITE;
        if (m_stStat.nState != kStatePlaying) continue;
        for (;;) {
            int buffered = CalcDirectSoundBufferedTimeMs();
            int room = 900 - buffered, want = 1000 - buffered;
            if (m_stActiveConfig.nFlags & kFlagSpeed) {
                room = room * m_stActiveConfig.nSpeed / 25;
                want = want * m_stActiveConfig.nSpeed / 25;
            }
            const bool queueEmpty = m_nQueuePos >= m_listInput.GetParameterCount();
            if (room > 0 && !m_nRebuildPending && !(queueEmpty && m_nBufferPlaying)) {
                const int ok =
                    m_nDirectMode ? FillDSBufferDirectMode(want) : FillDSBufferNotDirectMode(want);
                if (!ok) {
                    NotifyFatalErrorEvent();
                    return;
                }
            }
            buffered = CalcDirectSoundBufferedTimeMs();
            if (buffered > 0) {
                if (buffered <= 100 && !m_nSilencePadded && !WriteSilencePad()) {
                    NotifyFatalErrorEvent();
                    return;
                }
                int wait = std::min(buffered + 1, 10);
                if (m_nNotifyArmed) {
                    const uint64_t t = SegmentAt(0).uTime;
                    int64_t gap = static_cast<int64_t>(t > m_uNotifyTime ? t - m_uNotifyTime
                                                                         : m_uNotifyTime - t);
                    if (m_stActiveConfig.nFlags & kFlagSpeed)
                        gap = gap * 25 / m_stActiveConfig.nSpeed;
                    wait = static_cast<int>(std::min<int64_t>(wait, gap + 1));
                }
                if (!m_nBufferPlaying) {
                    if (FAILED(m_pBuffer->Play(0, 0, nplat::DSBPLAY_LOOPING))) {
                        NotifyFatalErrorEvent();
                        return;
                    }
                    m_nBufferPlaying = 1;
                }
                timeout = static_cast<nplat::DWORD>(wait);
                break;
            }
            if (m_nBufferPlaying) {
                m_nBufferPlaying = 0;
                if (FAILED(m_pBuffer->Stop()) ||
                    FAILED(m_pBuffer->SetCurrentPosition(static_cast<nplat::DWORD>(m_nWritePos)))) {
                    NotifyFatalErrorEvent();
                    return;
                }
            }
            if (!m_nRebuildPending) {
                m_stStat.nState = m_nEndOfStream ? kStateEnd : kStateDry;
                NotifyPlayStatusEvent();
                break;
            }
            if (!Rebuild()) {
                NotifyFatalErrorEvent();
                return;
            }
        }
    }
}

void CNAudioRender::NotifyFatalErrorEvent() {
    m_stStat.nState = kStateFatal;
    NotifyPlayStatusEvent();
}

void CNAudioRender::NotifyPlayStatusEvent() {
    if (m_hStatusEvent) nplat::SetEvent(m_hStatusEvent);
}

void CNAudioRender::NotifyPlayPosEvent() {
    if (m_hPositionEvent) nplat::SetEvent(m_hPositionEvent);
}

int CNAudioRender::WriteSilencePad() {
    void *p1, *p2;
    nplat::DWORD b1, b2;
    const int bytes = std::min(m_nBytes50ms, m_nDeviceBufferSize);
    if (bytes <= 0) return 1;
    if (FAILED(m_pBuffer->Lock(static_cast<nplat::DWORD>(m_nWritePos),
                               static_cast<nplat::DWORD>(bytes), &p1, &b1, &p2, &b2, 0)))
        return 0;
    std::memset(p1, 0, b1);
    if (p2) std::memset(p2, 0, b2);
    m_pBuffer->Unlock(p1, b1, p2, b2);
    m_nSilencePadded = 1;
    return 1;
}

// Rebuilds the chain and the device buffer for the format at the queue
// position and the pending configuration. The device has played out.
int CNAudioRender::Rebuild() {
    ReleaseAllPostProcessResource();
    m_stActiveConfig = m_stPendingConfig;
    if (m_nQueuePos < m_listInput.GetParameterCount())
        m_nCurrentFormat = m_listInput.GetUserData1(m_nQueuePos);
    m_nFinalFlushDone = 0;
    m_nSilencePadded = 0;
    m_nHasAcceptedCursor = 0;
    m_nWritePos = 0;
    ClearSegments();
    CalcPostProcessConfigFull();
    if (!InitAllPostProcessObject()) return 0;
    nplat::LONG volume = 0, pan = 0;
    if (FAILED(m_pBuffer->GetVolume(&volume)) || FAILED(m_pBuffer->GetPan(&pan))) return 0;
    m_pBuffer->Release();
    m_pBuffer = nullptr;
    m_nBufferPlaying = 0;
    if (!CreateDirectSoundBuffer(1, volume, pan)) return 0;
    m_nRebuildPending = 0;
    if (m_nQueuePos < m_listInput.GetParameterCount()) {
        m_nCurrentFormat = m_listInput.GetUserData1(m_nQueuePos);
        CompareAudioFormatInfo(m_nCurrentFormat);
    }
    return 1;
}

// ---- Device buffer and segments ----

int CNAudioRender::CreateDirectSoundBuffer(int restore, int32_t volume, int32_t pan) {
    if (!m_pDevice || m_nDeviceBufferSize <= 0) return 0;
    nplat::WAVEFORMATEXTENSIBLE wfx{};
    wfx.Format.wFormatTag = nplat::WAVE_FORMAT_EXTENSIBLE;
    wfx.Format.nChannels = static_cast<nplat::WORD>(m_nOutputChannels);
    wfx.Format.nSamplesPerSec = static_cast<nplat::DWORD>(m_nOutputRate);
    wfx.Format.nBlockAlign = static_cast<nplat::WORD>(m_nOutputChannels * 16 / 8);
    wfx.Format.nAvgBytesPerSec = wfx.Format.nBlockAlign * wfx.Format.nSamplesPerSec;
    wfx.Format.wBitsPerSample = 16;
    wfx.Format.cbSize = 22;
    wfx.wValidBitsPerSample = 16;
    wfx.dwChannelMask = static_cast<nplat::DWORD>(m_nOutputMask);
    wfx.SubFormat = nplat::KSDATAFORMAT_SUBTYPE_PCM;
    nplat::DSBUFFERDESC desc{};
    desc.dwSize = sizeof(desc);
    desc.dwFlags = nplat::DSBCAPS_CTRLFREQUENCY | nplat::DSBCAPS_CTRLPAN |
                   nplat::DSBCAPS_CTRLVOLUME | nplat::DSBCAPS_GLOBALFOCUS |
                   nplat::DSBCAPS_GETCURRENTPOSITION2 | nplat::DSBCAPS_LOCDEFER;
    desc.dwBufferBytes = static_cast<nplat::DWORD>(m_nDeviceBufferSize);
    desc.lpwfxFormat = &wfx.Format;
    nplat::IDirectSoundBuffer* buffer = nullptr;
    if (FAILED(m_pDevice->CreateSoundBuffer(&desc, &buffer, nullptr))) return 0;
    if (restore && (FAILED(buffer->SetVolume(volume)) || FAILED(buffer->SetPan(pan)))) {
        buffer->Release();
        return 0;
    }
    m_pBuffer = buffer;
    return 1;
}

int CNAudioRender::PushSegment(const Segment& segment) {
    if (m_nSegmentCount >= m_nSegmentCapacity) return 0;
    m_pSegments[(m_nSegmentHead + m_nSegmentCount) % m_nSegmentCapacity] = segment;
    ++m_nSegmentCount;
    m_nSegmentFrames += segment.nFrames;
    return 1;
}

void CNAudioRender::DropSegments(int count) {
    count = std::min(count, m_nSegmentCount);
    if (count <= 0) return;
    for (int i = 0; i < count; ++i) m_nSegmentFrames -= SegmentAt(i).nFrames;
    m_nSegmentHead = (m_nSegmentHead + count) % m_nSegmentCapacity;
    m_nSegmentCount -= count;
}

void CNAudioRender::ClearSegments() {
    m_nSegmentHead = m_nSegmentCount = 0;
    m_nSegmentFrames = 0;
}

int CNAudioRender::DeviceFramesBuffered() { return static_cast<int>(m_nSegmentFrames); }

// How many input frames may be taken now without overrunning the unplayed
// part of the device buffer or the segment ring; a multiple of 16.
int CNAudioRender::MaxInputFrames(int outputFramesFree) {
    if (m_nSegmentCapacity - m_nSegmentCount < 2 || outputFramesFree <= 0) return 0;
    int64_t in = outputFramesFree;
    if (!m_nDirectMode) {
        // Leave room for what the filters hold back and release later.
        in -= static_cast<int64_t>(m_nOutputRate) * 60 / 1000;
        in = in * m_nWorkingRate / m_nOutputRate;
        if (m_nTempoOn) in = in * m_stActiveConfig.nSpeed / 25;
        in = std::min<int64_t>(
            in, static_cast<int64_t>(m_nSegmentCapacity - m_nSegmentCount - 1) * kChunkFrames);
    }
    return in > 0 ? static_cast<int>(in & ~15) : 0;
}

// ---- Fills ----

// Frames of the current entry to hand on in one step: all that is left of
// it, unless that is over 100 ms more than still wanted (then what is wanted,
// in whole groups of 16 frames) or more than the device has room for. Sets
// *partial when the entry is not finished by this step.
static int FramesToTake(int available, int stillWantedMs, int rate, int roomFrames, bool* partial) {
    int frames = available;
    *partial = false;
    if (static_cast<int64_t>(available) * 1000 / rate > stillWantedMs + 100) {
        frames = static_cast<int>(static_cast<int64_t>(stillWantedMs) * rate / 1000) & ~15;
        *partial = true;
    }
    if (frames > roomFrames) {
        frames = roomFrames;
        *partial = true;
    }
    return frames;
}

int CNAudioRender::FillDSBufferDirectMode(int wantMs) {
    if (m_nQueuePos >= m_listInput.GetParameterCount()) return 1;
    if (wantMs < 1) {
        m_nSilencePadded = 0;
        return 1;
    }
    const int totalFrames = m_nDeviceBufferSize / (m_nOutputChannels * 2);
    int done = 0;
    for (;;) {
        const int available = m_nCurrentFrames - m_nConsumed;
        if (available > 0) {
            bool partial = false;
            const int frames =
                FramesToTake(available, wantMs - done, m_nWorkingRate,
                             MaxInputFrames(totalFrames - DeviceFramesBuffered()), &partial);
            if (frames <= 0) break;
            if (!CopyDataDirectMode(frames)) return 0;
            done += static_cast<int>(static_cast<int64_t>(frames) * 1000 / m_nWorkingRate);
            if (partial) {
                m_nConsumed += frames;
                break;
            }
        }
        m_nConsumed = m_nCurrentFrames;
        ++m_nQueuePos;
        if (m_nQueuePos >= m_listInput.GetParameterCount()) {
            m_uEndTime = AdjustTimeStamp(m_uCurrentTime, m_nCurrentFrames, 0);
            break;
        }
        if (!LoadQueueEntry(m_nQueuePos)) break;
        if (done >= wantMs) break;
    }
    m_nSilencePadded = 0;
    return 1;
}

int CNAudioRender::FillDSBufferNotDirectMode(int wantMs) {
    const int totalFrames = m_nDeviceBufferSize / (m_nOutputChannels * 2);
    int done = 0;
    bool produced = false;
    while (m_listInput.GetParameterCount() > 0 && !m_nRebuildPending && wantMs >= 1) {
        const int available = m_nCurrentFrames - m_nConsumed;
        if (available > 0) {
            bool partial = false;
            const int frames =
                FramesToTake(available, wantMs - done, m_nWorkingRate,
                             MaxInputFrames(totalFrames - DeviceFramesBuffered()), &partial);
            if (frames <= 0) break;
            int ms = 0;
            if (!ConvertDataWithPostProcess(frames, &ms)) return 0;
            done += ms;
            produced = produced || ms > 0;
            if (partial) {
                m_nConsumed += frames;
                break;
            }
        }
        // Taken whole: released at once, the next buffer moves to position 0.
        auto* entry = static_cast<QueueEntry*>(m_listInput.GetBinaryData(0));
        m_uPreviousTime = entry->time;
        entry->buffer->Release();
        m_listInput.Remove(0);
        ++m_nQueueBase;
        m_nQueuePos = 0;
        if (m_listInput.GetParameterCount() == 0) {
            m_uEndTime = AdjustTimeStamp(m_uCurrentTime, m_nCurrentFrames, 0);
            m_nConsumed = m_nCurrentFrames;
            break;
        }
        if (!LoadQueueEntry(0)) break;
        if (done >= wantMs) break;
    }
    const bool queueEmpty = m_listInput.GetParameterCount() == 0;
    if (!m_nFinalFlushDone && (m_nRebuildPending || (queueEmpty && m_nEndOfStream))) {
        int ms = 0;
        if (!ConvertDataWithPostProcessFinal(&ms)) return 0;
        m_nFinalFlushDone = 1;
        produced = produced || ms > 0;
    }
    if (produced) m_nSilencePadded = 0;
    return 1;
}

// ---- Conversion ----

// Converts `frames` frames of the current input buffer, starting
// `framesDone` after the consumed position, into 16-bit streams: one plane
// per speaker, or the interleaved stereo data itself in joint stereo.
// frames <= kChunkFrames.
void CNAudioRender::ConvertInput(int frames, int framesDone, short** planes) {
    auto* entry = static_cast<QueueEntry*>(m_listInput.GetBinaryData(m_nQueuePos));
    CNCodecBuffer* buffer = entry->buffer;
    auto* data = static_cast<unsigned char*>(buffer->GetAddress());
    const int S = m_nSpeakers, E = m_nExtra, bytes = m_nBits / 8;
    const int64_t first = m_nConsumed + framesDone;
    const bool interleaved = (buffer->GetBufferFlag() & AUDIO_BUFFER_FLAG_INTERLEAVED) && S + E > 1;
    if (m_nJoint) {
        planes[0] = reinterpret_cast<short*>(data + first * 2 * 2);
        return;
    }
    if (interleaved) {
        unsigned char* src = data + first * (S + E) * bytes;
        short* dst = m_pPlanes;
        for (int c = 0; c < S; ++c) planes[c] = dst + c * frames;
        if (m_nBits == 8) {
            if (E == 0)
                AP::Convert8BitsTo16Bits_Demux(src, dst, frames, S, m_nLevel);
            else
                AP::Convert8BitsTo16Bits_RemoveExtraChannle_Demux(src, dst, frames, S, E, m_nLevel);
        } else if (m_nBits == 16) {
            AP::Convert16BitsTo16Bits_RemoveExtraChannle_Demux(src, dst, frames, S, E, m_nLevel);
        } else if (E == 0) {
            AP::Convert24BitsTo16Bits_Demux(src, dst, frames, S, m_nLevel);
        } else {
            AP::Convert24BitsTo16Bits_RemoveExtraChannle_Demux(src, dst, frames, S, E, m_nLevel);
        }
        return;
    }
    const int64_t bufferFrames = buffer->GetBufferUserData();
    for (int c = 0; c < S; ++c) {
        unsigned char* src = data + (c * bufferFrames + first) * bytes;
        if (m_nBits == 16) {
            planes[c] = reinterpret_cast<short*>(src);
            continue;
        }
        planes[c] = m_pPlanes + c * kChunkFrames;
        if (m_nBits == 8)
            AP::Convert8BitsTo16Bits(src, planes[c], frames, m_nLevel);
        else
            AP::Convert24BitsTo16Bits(src, planes[c], frames, m_nLevel);
    }
}

namespace {

// Interleaves `n` frames of the streams (from frame `at`) into the device
// layout, with the channel selection and volume of the active flags.
void WriteDevice(short* const* src, int at, int n, short* dst, int speakers, int joint, int mask,
                 int flags, int volumeQ8, int level) {
    if (n <= 0) return;
    const bool volume = (flags & kFlagVolume) != 0;
    const auto v = static_cast<short>(volumeQ8);
    const bool pairSelect = mask == 0x3;
    const bool left = pairSelect && (flags & kFlagLeftBoth);
    const bool right = pairSelect && (flags & kFlagRightBoth);
    if (joint) {
        short* p = src[0] + at * 2;
        if (left)
            volume ? AP::ConvertToDest_2Mux_Left_Adjust(p, v, dst, n, level)
                   : AP::ConvertToDest_2Mux_Left(p, dst, n, level);
        else if (right)
            volume ? AP::ConvertToDest_2Mux_Right_Adjust(p, v, dst, n, level)
                   : AP::ConvertToDest_2Mux_Right(p, dst, n, level);
        else if (volume)
            AP::ConvertToDest_1_Adjust(p, v, dst, 2 * n, level);
        else
            AP::DirectCopy(reinterpret_cast<unsigned char*>(p),
                           reinterpret_cast<unsigned char*>(dst), n * 4, level);
        return;
    }
    short* c[6];
    for (int i = 0; i < speakers; ++i) c[i] = src[i] + at;
    switch (speakers) {
        case 1:
            volume ? AP::ConvertToDest_1_Adjust(c[0], v, dst, n, level)
                   : AP::DirectCopy(reinterpret_cast<unsigned char*>(c[0]),
                                    reinterpret_cast<unsigned char*>(dst), n * 2, level);
            break;
        case 2: {
            short* a = right ? c[1] : c[0];
            short* b = left ? c[0] : c[1];
            volume ? AP::ConvertToDest_2_Adjust(a, b, v, dst, n, level)
                   : AP::ConvertToDest_2(a, b, dst, n, level);
            break;
        }
        case 3:
            volume ? AP::ConvertToDest_3_Adjust(c[0], c[1], c[2], v, dst, n, level)
                   : AP::ConvertToDest_3(c[0], c[1], c[2], dst, n, level);
            break;
        case 4:
            volume ? AP::ConvertToDest_4_Adjust(c[0], c[1], c[2], c[3], v, dst, n, level)
                   : AP::ConvertToDest_4(c[0], c[1], c[2], c[3], dst, n, level);
            break;
        case 5:
            volume ? AP::ConvertToDest_5_Adjust(c[0], c[1], c[2], c[3], c[4], v, dst, n, level)
                   : AP::ConvertToDest_5(c[0], c[1], c[2], c[3], c[4], dst, n, level);
            break;
        default:
            volume
                ? AP::ConvertToDest_6_Adjust(c[0], c[1], c[2], c[3], c[4], c[5], v, dst, n, level)
                : AP::ConvertToDest_6(c[0], c[1], c[2], c[3], c[4], c[5], dst, n, level);
            break;
    }
}

}  // namespace

int CNAudioRender::CopyDataDirectMode(int frames) {
    const int frameBytes = m_nOutputChannels * 2;
    void *p1, *p2;
    nplat::DWORD b1, b2;
    const auto want = static_cast<nplat::DWORD>(frames * frameBytes);
    if (FAILED(
            m_pBuffer->Lock(static_cast<nplat::DWORD>(m_nWritePos), want, &p1, &b1, &p2, &b2, 0)))
        return 0;
    if (b1 + (p2 ? b2 : 0) != want) {
        m_pBuffer->Unlock(p1, b1, p2, b2);
        return 0;
    }
    const int frames1 = static_cast<int>(b1) / frameBytes;
    for (int done = 0; done < frames;) {
        const int n = std::min(kChunkFrames, frames - done);
        short* planes[kMaxStreams];
        ConvertInput(n, done, planes);
        // The chunk may straddle the wrap of the ring.
        const int inFirst = std::max(0, std::min(n, frames1 - done));
        WriteDevice(planes, 0, inFirst,
                    static_cast<short*>(p1) + static_cast<int64_t>(done) * m_nOutputChannels,
                    m_nSpeakers, m_nJoint, m_nOutputMask, m_stActiveConfig.nFlags,
                    m_stActiveConfig.nVolume, m_nLevel);
        if (n > inFirst)
            WriteDevice(planes, inFirst, n - inFirst,
                        static_cast<short*>(p2) +
                            static_cast<int64_t>(done + inFirst - frames1) * m_nOutputChannels,
                        m_nSpeakers, m_nJoint, m_nOutputMask, m_stActiveConfig.nFlags,
                        m_stActiveConfig.nVolume, m_nLevel);
        done += n;
    }
    m_pBuffer->Unlock(p1, b1, p2, b2);
    Segment s;
    s.nPosition = m_nWritePos;
    s.nFrames = frames;
    s.uTime = AdjustTimeStamp(m_uCurrentTime, m_nConsumed, 0);
    s.nInputIndex = static_cast<int32_t>(m_nQueueBase + m_nQueuePos);
    s.nInputOffset = m_nConsumed;
    PushSegment(s);
    m_nWritePos =
        static_cast<int>((m_nWritePos + static_cast<int64_t>(want)) % m_nDeviceBufferSize);
    return 1;
}

// Writes `frames` frames of the chain's outputs into the device and records
// a segment. Frames that would overrun unplayed audio are dropped (the fill
// sizes its input so that this does not happen).
int CNAudioRender::WriteStreams(int frames, uint64_t time, int inputIndex, int inputOffset) {
    const int frameBytes = m_nOutputChannels * 2;
    const int freeFrames = m_nDeviceBufferSize / frameBytes - DeviceFramesBuffered();
    frames = std::min(frames, freeFrames);
    if (frames <= 0) return 1;
    short* out[kMaxStreams];
    for (int s = 0; s < m_nStreamCount; ++s) out[s] = m_pPlaneOut[s];
    void *p1, *p2;
    nplat::DWORD b1, b2;
    const auto want = static_cast<nplat::DWORD>(frames * frameBytes);
    if (FAILED(
            m_pBuffer->Lock(static_cast<nplat::DWORD>(m_nWritePos), want, &p1, &b1, &p2, &b2, 0)))
        return 0;
    if (b1 + (p2 ? b2 : 0) != want) {
        m_pBuffer->Unlock(p1, b1, p2, b2);
        return 0;
    }
    const int frames1 = static_cast<int>(b1) / frameBytes;
    WriteDevice(out, 0, std::min(frames, frames1), static_cast<short*>(p1), m_nSpeakers, m_nJoint,
                m_nOutputMask, m_stActiveConfig.nFlags, m_stActiveConfig.nVolume, m_nLevel);
    if (frames > frames1)
        WriteDevice(out, frames1, frames - frames1, static_cast<short*>(p2), m_nSpeakers, m_nJoint,
                    m_nOutputMask, m_stActiveConfig.nFlags, m_stActiveConfig.nVolume, m_nLevel);
    m_pBuffer->Unlock(p1, b1, p2, b2);
    Segment s{m_nWritePos, frames, time, inputIndex, inputOffset};
    PushSegment(s);
    m_nWritePos =
        static_cast<int>((m_nWritePos + static_cast<int64_t>(want)) % m_nDeviceBufferSize);
    return 1;
}

// Runs one chunk (or, with `flush`, the tails) through the chain. Leaves
// the outputs in m_pPlaneOut and returns their frame count (-1 on failure);
// `time` moves back by the filters' delays.
int CNAudioRender::RunChain(short** in, int frames, bool flush, uint64_t* time) {
    int outFrames = -1;
    for (int s = 0; s < m_nStreamCount; ++s) {
        Stream& st = m_pStreams[s];
        const int frameBytes = 2 * st.channels;
        short* cur = flush ? nullptr : in[s];
        int n = flush ? 0 : frames;
        auto* stage = static_cast<short*>(st.stage->GetAddress());
        if (m_nEqualizerOn && !flush) {
            if (!AP::EqualizerFilter(cur, n, st.equalizer, stage)) return -1;
            cur = stage;
        }
        CNCodecBuffer* carrier = nullptr;  // the CNCodecBuffer that holds `cur`
        if (m_nTempoOn || m_nResampleOn) {
            carrier = flush ? st.empty : st.stage;
            if (flush) {
                st.empty->SetDataSize(0);
            } else {
                if (cur != stage) std::memcpy(stage, cur, static_cast<size_t>(n) * frameBytes);
                st.stage->SetDataSize(n * frameBytes);
            }
        }
        int rcDelay = 0, rsDelay = 0;
        if (m_nTempoOn) {
            if (!AP::RateControlFilter(carrier, st.rateOut, flush ? 1 : 0, st.rateControl))
                return -1;
            n = st.rateOut->GetDataSize() / frameBytes;
            rcDelay = st.rateOut->GetBufferUserData();
            carrier = st.rateOut;
            cur = static_cast<short*>(st.rateOut->GetAddress());
        }
        if (m_nResampleOn) {
            const int ok = flush ? AP::AccurateResampleLast(carrier, st.resampleOut, st.resampler)
                                 : AP::AccurateResample(carrier, st.resampleOut, st.resampler);
            if (!ok) return -1;
            n = st.resampleOut->GetDataSize() / frameBytes;
            rsDelay = st.resampleOut->GetBufferUserData();
            cur = static_cast<short*>(st.resampleOut->GetAddress());
        }
        m_pPlaneOut[s] = cur;
        if (s == 0) {
            if (m_nTempoOn && n > 0) *time = AdjustTimeStamp(*time, -rcDelay, 2);
            if (m_nResampleOn && n > 0) *time = AdjustTimeStamp(*time, -rsDelay, 3);
        }
        outFrames = outFrames < 0 ? n : std::min(outFrames, n);
    }
    return outFrames < 0 ? 0 : outFrames;
}

int CNAudioRender::ConvertDataWithPostProcess(int frames, int* producedMs) {
    int64_t produced = 0;
    for (int done = 0; done < frames;) {
        const int n = std::min(kChunkFrames, frames - done);
        short* planes[kMaxStreams];
        ConvertInput(n, done, planes);
        uint64_t time = AdjustTimeStamp(m_uCurrentTime, m_nConsumed + done, 0);
        const int out = RunChain(planes, n, false, &time);
        if (out < 0) return 0;
        if (out > 0 && !WriteStreams(out, time, 0, 0)) return 0;
        produced += out;
        done += n;
    }
    *producedMs = static_cast<int>(produced * 1000 / m_nOutputRate);
    return 1;
}

int CNAudioRender::ConvertDataWithPostProcessFinal(int* producedMs) {
    *producedMs = 0;
    if (!m_nTempoOn && !m_nResampleOn) return 1;
    uint64_t time = m_listInput.GetParameterCount() == 0
                        ? m_uEndTime
                        : AdjustTimeStamp(m_uCurrentTime, m_nConsumed, 0);
    const int out = RunChain(nullptr, 0, true, &time);
    if (out < 0) return 0;
    if (out > 0 && !WriteStreams(out, time, 0, 0)) return 0;
    *producedMs = static_cast<int>(static_cast<int64_t>(out) * 1000 / m_nOutputRate);
    return 1;
}

// ---- Chain set-up ----

int CNAudioRender::InitEqualizer() {
    const PlayConfigInfoTag& c = m_stActiveConfig;
    for (int s = 0; s < m_nStreamCount; ++s) {
        CNCodecBuffer* state = CNCodecBuffer::CreateBuffer();
        if (!state) return 0;
        m_pStreams[s].equalizer = state;
        if (!AP::EqualizerInit(m_nWorkingRate, c.nEqualizerBands,
                               const_cast<int*>(c.nEqualizerFreq),
                               const_cast<float*>(c.fEqualizerGain), m_nJoint, m_nLevel, state))
            return 0;
    }
    return 1;
}

int CNAudioRender::InitRateControl() {
    const int target =
        static_cast<int>(static_cast<int64_t>(m_nWorkingRate) * 25 / m_stActiveConfig.nSpeed);
    for (int s = 0; s < m_nStreamCount; ++s) {
        CNCodecBuffer* state = CNCodecBuffer::CreateBuffer();
        if (!state) return 0;
        m_pStreams[s].rateControl = state;
        if (!AP::RateControlInit(m_nWorkingRate, target, m_nJoint, m_nLevel, 0, state)) return 0;
    }
    return 1;
}

int CNAudioRender::InitResample() {
    for (int s = 0; s < m_nStreamCount; ++s) {
        CNCodecBuffer* state = CNCodecBuffer::CreateBuffer();
        if (!state) return 0;
        m_pStreams[s].resampler = state;
        if (!AP::AccurateResampleInit(m_nEffectiveRate, m_nOutputRate, m_nJoint + 1, m_nLevel,
                                      state))
            return 0;
    }
    return 1;
}

namespace {

CNCodecBuffer* WorkBuffer(int64_t bytes) {
    if (bytes > 0x7FFFFFF0) return nullptr;
    CNCodecBuffer* b = CNCodecBuffer::CreateBuffer();
    if (!b) return nullptr;
    if (bytes > 0 && !b->Allocate(static_cast<int>(bytes), 16, 0)) {
        b->Release();
        return nullptr;
    }
    b->SetDataSize(0);
    return b;
}

}  // namespace

int CNAudioRender::InitAllPostProcessObject() {
    ReleaseAllPostProcessResource();
    if (m_nWorkingRate < 25 || m_nSpeakers < 1 || m_nSpeakers > kMaxStreams || m_nExtra < 0 ||
        (m_nBits != 8 && m_nBits != 16 && m_nBits != 24) || m_nOutputRate < 1 ||
        ((m_stActiveConfig.nFlags & kFlagSpeed) &&
         (m_stActiveConfig.nSpeed < 1 || m_stActiveConfig.nSpeed > 625)))
        return 0;
    if (!AllocateWorkBuffers()) return 0;
    m_pStreams = static_cast<Stream*>(nplat::HeapAlloc(sizeof(Stream) * kMaxStreams));
    if (!m_pStreams) return 0;
    std::memset(m_pStreams, 0, sizeof(Stream) * kMaxStreams);
    // Staging and output sizes: a chunk plus what the filters hold back,
    // scaled by the tempo (slow speeds lengthen) and the resampling ratio.
    const int channels = m_nJoint ? 2 : 1;
    const int64_t block = static_cast<int64_t>(m_nWorkingRate) * 20 / 1000 + 16;
    const int64_t rateFrames =
        m_nTempoOn ? (kChunkFrames + 2 * block) * 25 / m_stActiveConfig.nSpeed + 64 : 0;
    const int64_t resampleIn = m_nTempoOn ? rateFrames : kChunkFrames + 2 * block;
    const int64_t resampleFrames =
        m_nResampleOn ? resampleIn * m_nOutputRate / m_nEffectiveRate + 8192 : 0;
    bool ok = true;
    for (int s = 0; s < m_nStreamCount && ok; ++s) {
        Stream& st = m_pStreams[s];
        st.channels = channels;
        st.stage = WorkBuffer((kChunkFrames + 2 * block) * 2 * channels);
        st.empty = WorkBuffer(2 * block * 2 * channels);
        st.rateOut = m_nTempoOn ? WorkBuffer(rateFrames * 2 * channels) : nullptr;
        st.resampleOut = m_nResampleOn ? WorkBuffer(resampleFrames * 2 * channels) : nullptr;
        ok = st.stage && st.empty && (!m_nTempoOn || st.rateOut) &&
             (!m_nResampleOn || st.resampleOut);
    }
    if (ok && m_nEqualizerOn) ok = InitEqualizer();
    if (ok && m_nTempoOn) ok = InitRateControl();
    if (ok && m_nResampleOn) ok = InitResample();
    if (!ok) ReleaseAllPostProcessResource();
    return ok ? 1 : 0;
}

void CNAudioRender::ReleaseAllPostProcessResource() {
    if (!m_pStreams) return;
    for (int s = 0; s < kMaxStreams; ++s) {
        Stream& st = m_pStreams[s];
        if (st.equalizer) {
            AP::EqualizerUninit(st.equalizer);
            st.equalizer->Release();
        }
        if (st.rateControl) {
            AP::RateControlUninit(st.rateControl);
            st.rateControl->Release();
        }
        if (st.resampler) {
            AP::AccurateResampleUninit(nullptr, st.resampler);
            st.resampler->Release();
        }
        for (CNCodecBuffer* b : {st.stage, st.rateOut, st.resampleOut, st.empty})
            if (b) b->Release();
    }
    nplat::HeapFree(m_pStreams);
    m_pStreams = nullptr;
}

int CNAudioRender::AllocateWorkBuffers() {
    const int64_t deviceFrames = static_cast<int64_t>(m_nOutputRate) * 1500 / 1000;
    const int capacity = static_cast<int>(deviceFrames / 16 + 64);
    if (!m_pPlanes) {
        m_pPlanes = static_cast<short*>(
            CNCodecBuffer::NewByteAlignBuffer(kMaxStreams * kChunkFrames * 2, 16));
        if (!m_pPlanes) return 0;
    }
    if (capacity != m_nSegmentCapacity) {
        auto* ring = static_cast<Segment*>(nplat::HeapAlloc(sizeof(Segment) * capacity));
        if (!ring) return 0;
        nplat::HeapFree(m_pSegments);
        m_pSegments = ring;
        m_nSegmentCapacity = capacity;
    }
    ClearSegments();
    return 1;
}

void CNAudioRender::ReleaseWorkBuffers() {
    CNCodecBuffer::DeleteByteAlignBuffer(m_pPlanes);
    m_pPlanes = nullptr;
    nplat::HeapFree(m_pSegments);
    m_pSegments = nullptr;
    m_nSegmentCapacity = 0;
    ClearSegments();
}

// ---- Played-part accounting ----

void CNAudioRender::AccountPlayed() {
    int offset = 0;
    const int n = m_nSegmentCount;
    int k = InnerGetCurrentPlayPos(&offset);
    if (k < 0) k = n;
    const int frameBytes = m_nOutputChannels * 2;
    int64_t played = 0;
    for (int i = 0; i < k; ++i) played += SegmentAt(i).nFrames;
    uint64_t audibleTime;
    int64_t audibleIndex;
    if (k < n) {
        Segment& s = SegmentAt(k);
        const int f = offset / frameBytes;
        s.nPosition = static_cast<int32_t>((s.nPosition + static_cast<int64_t>(f) * frameBytes) %
                                           m_nDeviceBufferSize);
        s.nFrames -= f;
        m_nSegmentFrames -= f;
        played += f;
        s.uTime = AdjustTimeStamp(s.uTime, f, 4);
        s.nInputOffset += f;
        audibleTime = s.uTime;
        audibleIndex = s.nInputIndex;
    } else {
        audibleTime = m_nQueuePos < m_listInput.GetParameterCount()
                          ? AdjustTimeStamp(m_uCurrentTime, m_nConsumed, 0)
                          : m_uEndTime;
        audibleIndex = m_nQueueBase + m_nQueuePos;
    }
    m_stStat.uPlayedTime += static_cast<uint64_t>(played) * 1000000 / m_nOutputRate;
    if (m_nNotifyArmed &&
        (m_nReverse ? audibleTime <= m_uNotifyTime : audibleTime >= m_uNotifyTime)) {
        m_nNotifyArmed = 0;
        NotifyPlayPosEvent();
    }
    DropSegments(k);
    if (m_nDirectMode) ReleasePlayedInput(audibleIndex);
}

// Direct mode: releases the input buffers that lie wholly before the
// first unplayed frame.
void CNAudioRender::ReleasePlayedInput(int64_t audibleIndex) {
    if (m_nQueueBase < 0) return;
    const int64_t count = std::min<int64_t>(audibleIndex - m_nQueueBase, m_nQueuePos);
    if (count <= 0) return;
    for (int i = 0; i < count; ++i)
        static_cast<QueueEntry*>(m_listInput.GetBinaryData(i))->buffer->Release();
    m_listInput.RemoveGroup(0, static_cast<int>(count));
    m_nQueueBase += count;
    m_nQueuePos -= static_cast<int>(count);
    if (m_listInput.GetParameterCount() > 0) {
        auto* first = static_cast<QueueEntry*>(m_listInput.GetBinaryData(0));
        m_uPreviousTime = first->loaded
                              ? first->time
                              : ExtendTimeStamp(first->buffer->GetTimeStamp(), m_uPreviousTime);
    }
}

// Direct mode, after an in-place change: keeps 100 ms of what is queued in
// the device and moves the reader back so the rest is converted again with
// the new settings.
void CNAudioRender::CutBackDeviceData() {
    const int64_t keepFrames = static_cast<int64_t>(m_nOutputRate) * 100 / 1000;
    const int frameBytes = m_nOutputChannels * 2;
    int64_t sum = 0;
    for (int i = 0; i < m_nSegmentCount; ++i) {
        Segment& s = SegmentAt(i);
        if (sum + s.nFrames <= keepFrames) {
            sum += s.nFrames;
            continue;
        }
        const int keep = static_cast<int>(keepFrames - sum);
        s.nFrames = keep;
        m_nWritePos = static_cast<int>((s.nPosition + static_cast<int64_t>(keep) * frameBytes) %
                                       m_nDeviceBufferSize);
        const int64_t position = s.nInputIndex - m_nQueueBase;
        const int offset = s.nInputOffset + keep;
        m_nSegmentCount = keep > 0 ? i + 1 : i;
        m_nSegmentFrames = keepFrames;
        if (position >= 0 && position < m_listInput.GetParameterCount()) {
            m_nQueuePos = static_cast<int>(position);
            auto* entry = static_cast<QueueEntry*>(m_listInput.GetBinaryData(m_nQueuePos));
            m_nCurrentFormat = m_listInput.GetUserData1(m_nQueuePos);
            if (const auto* f = FormatAt(m_nCurrentFormat)) {
                m_nBits = f->nBitsPerSample;
                m_nExtra = f->nChannels - m_nSpeakers;
            }
            m_nCurrentFrames = entry->frames;
            m_nConsumed = offset;
            m_uCurrentTime = entry->time;
            m_uPreviousTime = entry->time;
        }
        m_nSilencePadded = 0;
        nplat::SetEvent(m_hWakeEvent);
        return;
    }
}
