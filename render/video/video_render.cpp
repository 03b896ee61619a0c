// CNVideoRender: life cycle, configuration, statistics and the extended error
// code. The scene (buffers, backgrounds, frames, texts) is in
// video_render_scene.cpp and video_render_frame.cpp, composition into memory
// in video_render_memory.cpp, text drawing in video_render_text.cpp; the
// render thread, Open/Close and the window procedure live in
// video_render_loop.cpp, the device back-ends in video_render_ddraw.cpp.
//
// Every public operation holds the render's lock for its whole run and
// clears the extended error first, so a caller always reads the code of its
// own last call.
#include <cstring>

#include "ncodecbase/helper.h"
#include "platform/kernel/sync.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;

CNVideoRender::CNVideoRender() { m_stStat.nSize = kStatSize; }

CNVideoRender::~CNVideoRender() {
    if (m_nInited) Uninit();
    if (m_nOpened) Close();
    ReleaseAllOffScreenBuffers();
    FreeAllResizeDependData();
}

int CNVideoRender::Init() {
    Guard guard(m_lock);
    m_nExtendError = 0;
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
    ConfigInfoTag& c = m_stPendingConfig;
    c.nSize = kConfigSize;
    c.uRenderFlags = kDefaultRenderFlags;
    c.nFrameRate = kDefaultFrameRate;
    c.nRetryClosedMs = kDefaultRetryClosedMs;
    c.nRetryMs = kDefaultRetryMs;
    c.nCacheAgeSeconds = kDefaultCacheAge;
    c.nCacheByteLimit = 0;
    for (uint32_t& f : c.uFormatFlags) f = kDefaultFormatFlags;
    c.uOverlayColorKey = kDefaultColorKey;
    std::memset(&m_stStat, 0, sizeof(m_stStat));
    m_stStat.nSize = kStatSize;
    m_nInited = 1;
    m_nOpened = 0;
    return 1;
}

void CNVideoRender::Uninit() {
    if (m_nOpened) Close();
    Guard guard(m_lock);
    m_nInited = 0;
    m_nOpened = 0;
}

int CNVideoRender::CheckStopped() {
    if (m_stStat.nStatus != kStatusStopped) return 0;
    m_nExtendError = kErrorStopped;
    return 1;
}

int CNVideoRender::SetConfig(const ConfigInfoTag* config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!config) return 0;
    std::memcpy(&m_stPendingConfig, config, sizeof(m_stPendingConfig));
    if (!m_nOpened || m_stStat.nStatus == kStatusStopped) return 1;

    // The overlay colour key was converted for the primaries at Open; a new
    // key would not match the surfaces already keyed, so it waits for Open.
    const uint32_t key = m_stActiveConfig.uOverlayColorKey;
    m_stActiveConfig = m_stPendingConfig;
    m_stActiveConfig.uOverlayColorKey = key;
    const uint32_t flags = m_stActiveConfig.uRenderFlags;
    m_nOverlayAllowed = (flags & 0x80) ? 1 : 0;
    m_uCapability &= ~0x30u;
    if ((m_uCapability & 0x4) && (flags & 0x2)) m_uCapability |= 0x10;
    if ((m_uCapability & 0xC) == 0xC && (flags & 0x4)) m_uCapability |= 0x20;
    for (int i = 0; i < m_nMonitorCount; ++i) {
        MonitorInfoTag& m = m_monitors[i];
        m.uDDrawFlags &= ~0xFF000u;
        m.uD3DFlags &= ~0xFF00u;
        for (int f = 0; f < 8; ++f) {
            if (m_stActiveConfig.uFormatFlags[f] & 0x20) continue;
            if (m.uDDrawFlags & (0x10u << f)) m.uDDrawFlags |= 0x1000u << f;
            if (m.uD3DFlags & (0x1u << f)) m.uD3DFlags |= 0x100u << f;
        }
    }
    m_uFrameInterval = m_stActiveConfig.nFrameRate ? 1000 / m_stActiveConfig.nFrameRate : 0;
    return 1;
}

int CNVideoRender::GetConfig(ConfigInfoTag* config) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!config) return 0;
    *config = m_stPendingConfig;
    return 1;
}

int CNVideoRender::GetStatInfo(StatInfoTag* stat) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!stat) return 0;
    *stat = m_stStat;
    if (m_stStat.nStatus != kStatusStopped && m_uSecondsCounted > 0) {
        stat->uPresentRateAverage =
            static_cast<uint32_t>(m_uTotalPresents * 1000 / m_uSecondsCounted);
        stat->uRenderRateAverage =
            static_cast<uint32_t>(m_uTotalAttempts * 1000 / m_uSecondsCounted);
    }
    return 1;
}

int CNVideoRender::ResetStatInfo() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    m_stStat.uPresentCount = 0;
    m_stStat.uRenderCount = 0;
    m_stStat.uRenderSuccess = 0;
    m_stStat.uRenderFail = 0;
    m_stStat.uPresentRate = 0;
    m_stStat.uRenderRate = 0;
    return 1;
}

int CNVideoRender::ClearStatErrorCode() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    m_stStat.uDDrawError = 0;
    m_stStat.uD3DError = 0;
    m_stStat.uDxva2Error = 0;
    return 1;
}

int CNVideoRender::GetExtendErrorCode() {
    Guard guard(m_lock);
    return m_nExtendError;
}
