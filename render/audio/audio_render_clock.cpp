// CNAudioRender's play clock: 64-bit time stamps, the device segments read
// back through the play cursor, the position notification and the
// buffered-time figures.
//
// Times are milliseconds in 64 bits whose low word is the stream's own
// 32-bit stamp; the high word starts at 1 (forward) or 0xFFFFFFFE (reverse)
// so wrapped stamps stay positive either way. A cursor that steps back by
// up to 10 ms (jitter of real devices) is ignored so the clock never runs
// backwards on it.
//
// Not here: seeking (hosts call Reset), clock smoothing between wake-ups.
#include <cstdlib>

#include "platform/kernel/sync.h"
#include "platform/sound/dsound.h"
#include "render/audio/audio_render_internal.h"

using namespace ncb::render_audio;
using Guard = std::lock_guard<CNLock>;
using nplat::FAILED;
using nplat::SUCCEEDED;

void CNAudioRender::ResetClock() {
    const uint64_t high = m_nReverse ? kHighReverse : kHighForward;
    m_uCurrentTime = m_uPreviousTime = m_uEndTime = m_uNotifyTime = high;
    m_nQueueBase = -1;
    m_nQueuePos = 0;
    m_nCurrentFrames = m_nConsumed = 0;
    m_nNotifyArmed = 0;
    m_nHasAcceptedCursor = 0;
    m_uAcceptedCursor = 0;
}

uint64_t CNAudioRender::ExtendTimeStamp(uint32_t stamp, uint64_t previous) {
    uint64_t high = previous >> 32;
    const auto low = static_cast<uint32_t>(previous);
    if (!m_nReverse && stamp < low) ++high;
    if (m_nReverse && stamp > low) --high;
    return (high << 32) | stamp;
}

uint64_t CNAudioRender::AdjustTimeStamp(uint64_t time, int frames, int mode) {
    const PlayConfigInfoTag& c = m_stActiveConfig;
    int64_t d;
    if (mode == 4) {
        d = m_nOutputRate > 0 ? static_cast<int64_t>(frames) * 1000 / m_nOutputRate : 0;
        if (c.nFlags & kFlagSpeed) d = d * c.nSpeed / 25;
    } else {
        d = m_nWorkingRate > 0 ? static_cast<int64_t>(frames) * 1000 / m_nWorkingRate : 0;
        if (mode == 3 && m_nTempoOn) d = d * c.nSpeed / 25;
    }
    if (m_nReverse) d = -d;
    return time + static_cast<uint64_t>(d);
}

int CNAudioRender::CalcDirectSoundBufferedTimeMs() {
    if (m_nOutputRate <= 0) return 0;
    return static_cast<int>(static_cast<int64_t>(DeviceFramesBuffered()) * 1000 / m_nOutputRate);
}

int CNAudioRender::CalcInputBufferedTimeMs() {
    int64_t ms = 0;
    const int n = m_listInput.GetParameterCount();
    for (int i = m_nQueuePos; i < n; ++i) {
        const auto* f = FormatAt(m_listInput.GetUserData1(i));
        const auto* entry = static_cast<const QueueEntry*>(m_listInput.GetBinaryData(i));
        if (!f || f->nSampleRate <= 0) continue;
        int64_t frames = entry->loaded ? entry->frames : entry->buffer->GetBufferUserData();
        if (i == m_nQueuePos) frames -= m_nConsumed;
        if (frames > 0) ms += frames * 1000 / f->nSampleRate;
    }
    if (m_stActiveConfig.nFlags & kFlagSpeed) ms = ms * 25 / m_stActiveConfig.nSpeed;
    return static_cast<int>(ms);
}

int CNAudioRender::InnerGetCurrentPlayPos(int* offset) {
    if (!m_pBuffer || m_nDeviceBufferSize <= 0) return -1;
    nplat::DWORD cursor;
    if (FAILED(m_pBuffer->GetCurrentPosition(&cursor, nullptr))) return -1;
    auto c = static_cast<int64_t>(cursor);
    if (m_nHasAcceptedCursor) {
        const auto a = static_cast<int64_t>(m_uAcceptedCursor);
        const int64_t behind = c <= a ? a - c : m_nDeviceBufferSize - c + a;
        if (behind <= m_nBytes10ms)
            c = a;
        else
            m_uAcceptedCursor = static_cast<uint32_t>(c);
    } else {
        m_uAcceptedCursor = static_cast<uint32_t>(c);
        m_nHasAcceptedCursor = 1;
    }
    const int64_t size = m_nDeviceBufferSize;
    const int frameBytes = m_nOutputChannels * 2;
    for (int i = 0; i < m_nSegmentCount; ++i) {
        const Segment& s = SegmentAt(i);
        const int64_t p = s.nPosition, length = static_cast<int64_t>(s.nFrames) * frameBytes;
        if (p + length > size) {
            if (c >= p && c < size) {
                *offset = static_cast<int>(c - p);
                return i;
            }
            if (c < length - (size - p)) {
                *offset = static_cast<int>(c + (size - p));
                return i;
            }
        } else if (c >= p && c < p + length) {
            *offset = static_cast<int>(c - p);
            return i;
        }
    }
    return -1;
}

uint64_t CNAudioRender::InnerGetCurrentPlayTime() {
    int offset = 0;
    const int k = InnerGetCurrentPlayPos(&offset);
    if (k < 0) {
        if (m_nQueuePos >= m_listInput.GetParameterCount()) return m_uEndTime;
        return AdjustTimeStamp(m_uCurrentTime, m_nConsumed, 0);
    }
    const int frames = offset / (m_nOutputChannels * 2);
    return AdjustTimeStamp(SegmentAt(k).uTime, frames, 4);
}

uint32_t CNAudioRender::GetCurrentPlayTime() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    return static_cast<uint32_t>(InnerGetCurrentPlayTime());
}

int CNAudioRender::SetNotifyTime(uint32_t time) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    // Of the three readings of `time` around the previous stamp's wrap
    // count, the nearest one.
    const uint64_t base = (m_uPreviousTime & ~0xFFFFFFFFull) | time;
    const uint64_t candidates[3] = {base - (1ull << 32), base, base + (1ull << 32)};
    uint64_t best = candidates[0];
    uint64_t bestDistance = ~0ull;
    for (uint64_t t : candidates) {
        const uint64_t d = t > m_uPreviousTime ? t - m_uPreviousTime : m_uPreviousTime - t;
        if (d < bestDistance) {
            best = t;
            bestDistance = d;
        }
    }
    m_uNotifyTime = best;
    m_nNotifyArmed = 1;
    const uint64_t now = InnerGetCurrentPlayTime();
    if (m_nReverse ? now <= m_uNotifyTime : now >= m_uNotifyTime) {
        m_nNotifyArmed = 0;
        NotifyPlayPosEvent();
        return 2;
    }
    if (m_stStat.nState == kStatePlaying && m_nBufferPlaying && m_nSegmentCount > 0) {
        const auto first = static_cast<uint32_t>(SegmentAt(0).uTime);
        int64_t gap = std::llabs(static_cast<int64_t>(first) - static_cast<int64_t>(time));
        if (m_stActiveConfig.nFlags & kFlagSpeed) gap = gap * 25 / m_stActiveConfig.nSpeed;
        if (gap < 9) nplat::SetEvent(m_hWakeEvent);
    }
    return 1;
}

int CNAudioRender::ClearNotifyTime() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (m_stStat.nState == kStateFatal) {
        m_nExtendError = kErrorFatalState;
        return 0;
    }
    m_nNotifyArmed = 0;
    return 1;
}
