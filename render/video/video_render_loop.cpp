// CNVideoRender: opening and closing the render, presenting, and the render
// thread.
//
// TEMPORARY: this file holds a minimal Open and Close that set up and take
// down the scene lists without touching the window, starting a thread or
// opening a device, so that the scene model and RenderToMemory can be used
// and tested on their own. Present, Reset and GetMonitorInfoA only answer.
// The render loop replaces this whole file.
#include <cstring>

#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;

int CNVideoRender::Open(nplat::HWND window, void* notifyEvent, int threadPriority,
                        unsigned windowColour) {
    if (m_nOpened) Close();
    Guard guard(m_lock);
    m_nExtendError = 0;
    m_stActiveConfig = m_stPendingConfig;
    m_hWindow = window;
    m_hNotifyEvent = static_cast<nplat::HANDLE>(notifyEvent);
    m_nThreadPriority = threadPriority;
    m_uWindowColor = windowColour;
    ReleaseAllOffScreenBuffers();
    m_listCache.RemoveAll(0);
    FreeAllResizeDependData();
    m_nOverlayAllowed = (m_stActiveConfig.uRenderFlags & 0x80) ? 1 : 0;
    m_uFrameInterval = m_stActiveConfig.nFrameRate ? 1000 / m_stActiveConfig.nFrameRate : 0;
    m_nPresentState = 0;
    m_nOpened = 1;
    return 1;
}

void CNVideoRender::Close() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    ReleaseAllOffScreenBuffers();
    FreeAllResizeDependData();
    m_nOpened = 0;
}

int CNVideoRender::Reset() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    return CheckStopped() ? 0 : 1;
}

int CNVideoRender::Present(int countFrame, int immediate) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    if (countFrame == 1) ++m_stStat.uPresentCount;
    (void)immediate;
    return 1;
}

int CNVideoRender::ConfigNotifyEvent(void* event) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    m_hNotifyEvent = static_cast<nplat::HANDLE>(event);
    return 1;
}

int CNVideoRender::GetMonitorInfoA(int* count, nplat::RECT* rects, int* flag0, int* flag1) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    if (count) {
        if (*count > m_nMonitorCount) *count = m_nMonitorCount;
        for (int i = 0; rects && i < *count; ++i) rects[i] = m_monitors[i].rcMonitor;
    }
    if (flag0) *flag0 = m_uCapability & 1;
    if (flag1) *flag1 = (m_uCapability >> 1) & 1;
    return 1;
}
