// CNVideoRender: opening and closing the render on a window, Present, the
// render thread with its frame cap, retries and statistics seconds, the
// composition cascade with its failure policy, and the replacement window
// procedure.
//
// Why this way: one thread per render sleeps on a quit and a wake event with
// a time-out that never passes the next statistics second, so the whole loop
// is driven by the synchronisation domain's clock and can be stepped by a
// test. The thread holds the render lock for a whole composition; callers
// only flip the present state and set the wake event (auto reset: several
// presents before the thread wakes give one composition).
//
// Not here: the device back-ends, the surface cache and device set-up
// (video_render_ddraw.cpp), composing into memory (video_render_memory.cpp).
// The Direct3D and DXVA2 back-ends are part of the cascade but never chosen:
// nothing sets the capability bits that select them.
#include <algorithm>
#include <cstring>

#include "platform/ddraw/ddraw.h"
#include "platform/kernel/sync.h"
#include "platform/kernel/thread.h"
#include "platform/window/window.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;

namespace {

// Which render subclassed which window. Taken after a render's own lock
// (Open, Close), never the other way round: the window procedure looks its
// render up here and lets go before taking the render's lock.
struct WindowRecord {
    CNVideoRender* render;
    nplat::HWND window;
};
CNLock s_lockWindowProc;
CNDataList s_listWindowProc;

int FindWindowRecord(nplat::HWND window) {
    for (int i = 0; i < s_listWindowProc.GetParameterCount(); ++i) {
        auto* r = static_cast<WindowRecord*>(s_listWindowProc.GetBinaryData(i));
        if (r && r->window == window) return i;
    }
    return -1;
}

constexpr size_t kThreadStack = 0x100000;
constexpr uint32_t kCloseWaitMs = 30000;
constexpr uint32_t kRenderFlagRates = 0x10;
constexpr uint32_t kRenderFlagNotifyPath = 0x40;
constexpr uint32_t kRenderFlagOverlay = 0x80;
constexpr uint32_t kRenderFlagD3DSoft = 0x100;
constexpr uint32_t kCapUseD3D = 0x10;
constexpr uint32_t kCapUseDxva2 = 0x20;
constexpr uint32_t kMonitorDDrawOpen = 0x100000;

enum DueKind { kNotDue, kDuePresent, kDueRetry };

}  // namespace

// ---- Open / Close ----

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
    if (!InitDevice()) {
        m_nExtendError = kErrorDevice;
        return 0;
    }
    ReleaseAllOffScreenBuffers();
    m_listCache.RemoveAll(0);
    FreeAllResizeDependData();
    m_stPresentParams = {};
    m_stPresentParams.hDeviceWindow = window;
    m_stPresentParams.nWindowed = 1;
    m_stPresentParams.uBackBufferCount = 1;

    m_nOverlayAllowed = (m_stActiveConfig.uRenderFlags & kRenderFlagOverlay) ? 1 : 0;
    m_nOverlayFailed = 0;
    m_pOverlay = nullptr;
    m_nOverlayMonitor = -1;
    m_nLastComposedBuffer = -1;
    m_nGeometryChanged = 1;
    m_nRepaint = 1;
    const uint32_t key = m_stActiveConfig.uOverlayColorKey;
    const uint32_t r = (key >> 16) & 0xFF, g = (key >> 8) & 0xFF, b = key & 0xFF;
    m_uColorKey555 = ((r & 0xF8) << 7) | ((g & 0xF8) << 2) | (b >> 3);
    m_uColorKey565 = ((r & 0xF8) << 8) | ((g & 0xFC) << 3) | (b >> 3);

    m_uSecondStartTick = m_uLastAttemptTick = nplat::GetTickCount();
    m_uSecondPresents = m_uSecondAttempts = m_uSecondsCounted = 0;
    m_uTotalPresents = m_uTotalAttempts = 0;
    m_uFrameInterval = m_stActiveConfig.nFrameRate ? 1000 / m_stActiveConfig.nFrameRate : 0;

    // The window is subclassed before the thread starts, so that a refused
    // window never leaves a thread behind that would need killing.
    {
        Guard listGuard(s_lockWindowProc);
        int ok = FindWindowRecord(window) < 0;
        if (ok) {
            WindowRecord rec = {this, window};
            ok = s_listWindowProc.InsertBinary(nullptr, &rec, sizeof(rec), -1, 0) >= 0;
        }
        if (ok) {
            m_pPrevWindowProc = reinterpret_cast<nplat::WNDPROC>(
                nplat::SetWindowLongA(window, nplat::GWL_WNDPROC,
                                      reinterpret_cast<nplat::LONG_PTR>(&DisplayWindowProcStub)));
            if (!m_pPrevWindowProc) {
                s_listWindowProc.Remove(FindWindowRecord(window));
                ok = 0;
            }
        }
        if (!ok) {
            m_nExtendError = kErrorWindow;
            UninitDevice();
            return 0;
        }
    }
    m_hQuitEvent = nplat::CreateEvent(true, false);
    m_hWakeEvent = nplat::CreateEvent(false, false);
    if (m_hQuitEvent && m_hWakeEvent)
        m_pThread =
            nplat::Thread::Create(&VideoRenderThreadProcStub, this, kThreadStack, threadPriority);
    if (!m_pThread) {
        nplat::SetWindowLongA(window, nplat::GWL_WNDPROC,
                              reinterpret_cast<nplat::LONG_PTR>(m_pPrevWindowProc));
        {
            Guard listGuard(s_lockWindowProc);
            s_listWindowProc.Remove(FindWindowRecord(window));
        }
        m_pPrevWindowProc = nullptr;
        if (m_hQuitEvent) nplat::CloseHandle(m_hQuitEvent);
        if (m_hWakeEvent) nplat::CloseHandle(m_hWakeEvent);
        m_hQuitEvent = m_hWakeEvent = nullptr;
        UninitDevice();
        return 0;
    }
    m_nOpened = 1;
    m_nPresentState = 0;
    return 1;
}

void CNVideoRender::Close() {
    nplat::Thread* thread;
    nplat::HWND window;
    {
        Guard guard(m_lock);
        m_nExtendError = 0;
        if (!m_nOpened) return;
        thread = m_pThread;
        window = m_hWindow;
        if (m_hQuitEvent) nplat::SetEvent(m_hQuitEvent);
    }
    // The lock is free while waiting, so a composition in progress finishes.
    bool ended = !thread || nplat::WaitForSingleObject(thread->ExitEvent(), kCloseWaitMs) ==
                                nplat::WAIT_OBJECT_0;
    nplat::SetWindowLongA(window, nplat::GWL_WNDPROC,
                          reinterpret_cast<nplat::LONG_PTR>(m_pPrevWindowProc));
    nplat::SendMessageA(window, nplat::WM_NULL, 0, 0);

    Guard guard(m_lock);
    {
        Guard listGuard(s_lockWindowProc);
        s_listWindowProc.Remove(FindWindowRecord(window));
    }
    UninitDevice();
    ReleaseAllOffScreenBuffers();
    FreeAllResizeDependData();
    if (ended) {
        if (thread) nplat::Thread::Destroy(thread);
        nplat::CloseHandle(m_hQuitEvent);
        nplat::CloseHandle(m_hWakeEvent);
    } else {
        // No safe kill on Linux: the stuck thread keeps its thread object and
        // events (never freed), ends at its next turn on status 4, and the
        // caller learns of it through the status and the extended error.
        ChangeStatus(kStatusStopped);
        m_nExtendError = kErrorStopped;
    }
    m_pThread = nullptr;
    m_hQuitEvent = m_hWakeEvent = nullptr;
    m_pPrevWindowProc = nullptr;
    m_nOpened = 0;
}

int CNVideoRender::Reset() {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    UninitDevice();
    if (InitDevice()) return 1;
    ChangeStatus(kStatusStopped);
    m_nExtendError = kErrorDevice;
    return 0;
}

int CNVideoRender::Present(int countFrame, int immediate) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    if (countFrame == 1) {
        ++m_stStat.uPresentCount;
        ++m_uSecondPresents;
    }
    if (m_nPresentState == 0 || (m_nPresentState == 1 && immediate == 1)) {
        m_nPresentState = (m_nPresentState == 0 && !immediate) ? 1 : 2;
        if (m_hWakeEvent) nplat::SetEvent(m_hWakeEvent);
    }
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

// ---- Status ----

void CNVideoRender::ChangeStatus(uint32_t status) {
    if (m_stStat.nStatus == status) return;
    m_stStat.nStatus = status;
    if (status != kStatusRunning) m_stStat.uOutputPath = 0;
    if (m_hNotifyEvent) nplat::SetEvent(m_hNotifyEvent);
}

void CNVideoRender::StatusFlagInit(uint32_t path) { m_uBuildingPath = path; }

void CNVideoRender::StatusFlagAddOutFormat(uint32_t bits) { m_uBuildingPath |= bits; }

void CNVideoRender::StatusFlagNotify() {
    if (m_stStat.uOutputPath == m_uBuildingPath) return;
    m_stStat.uOutputPath = m_uBuildingPath;
    if ((m_stActiveConfig.uRenderFlags & kRenderFlagNotifyPath) && m_hNotifyEvent)
        nplat::SetEvent(m_hNotifyEvent);
}

void CNVideoRender::ClearAllBufferFailFlag() {
    for (int i = 0; i < m_listBuffer.GetParameterCount(); ++i)
        static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(i))->uFlags &=
            ~(kBufferD3DFailed | kBufferDxva2Failed);
}

// ---- The render thread ----

nplat::DWORD CNVideoRender::VideoRenderThreadProcStub(void* render) {
    static_cast<CNVideoRender*>(render)->VideoRenderThread();
    return 0;
}

void CNVideoRender::VideoRenderThread() {
    nplat::HANDLE events[2];
    {
        Guard guard(m_lock);
        events[0] = m_hQuitEvent;
        events[1] = m_hWakeEvent;
    }
    if (nplat::WaitForMultipleObjects(2, events, false, 0) == nplat::WAIT_OBJECT_0) return;
    for (;;) {
        m_lock.Lock();
        if (m_stStat.nStatus == kStatusStopped) break;
        const uint32_t now = nplat::GetTickCount();
        const uint32_t elapsed = now - m_uSecondStartTick;
        uint32_t timeout;
        if (elapsed >= 1000) {
            if (m_stActiveConfig.uRenderFlags & kRenderFlagRates) {
                m_uTotalPresents += m_uSecondPresents;
                m_uTotalAttempts += m_uSecondAttempts;
                ++m_uSecondsCounted;
                m_stStat.uPresentRate = m_uSecondPresents * 1000;
                m_stStat.uRenderRate = m_uSecondAttempts * 1000;
            } else {
                m_stStat.uPresentRate = m_stStat.uRenderRate = 0;
            }
            m_uSecondPresents = m_uSecondAttempts = 0;
            if (elapsed < 1500) {
                timeout = m_uSecondStartTick + 2000 - now;
                m_uSecondStartTick += 1000;
            } else {
                m_uSecondStartTick = now;
                timeout = 1000;
            }
            CheckAndReleaseBufferInternal();
        } else {
            timeout = m_uSecondStartTick + 1000 - now;
        }
        const uint32_t sinceAttempt = now - m_uLastAttemptTick;
        const uint32_t retryMs = m_stStat.nStatus == kStatusFailed ? m_stActiveConfig.nRetryClosedMs
                                                                   : m_stActiveConfig.nRetryMs;
        DueKind due = kNotDue;
        switch (m_nPresentState) {
            case 1:
                if (sinceAttempt >= m_uFrameInterval)
                    due = kDuePresent;
                else
                    timeout = std::min(timeout, m_uFrameInterval - sinceAttempt);
                break;
            case 2:
            case kPresentWaitUnlock:
                due = kDuePresent;
                break;
            case 4:
                if (sinceAttempt >= retryMs)
                    due = kDueRetry;
                else
                    timeout = std::min(timeout, retryMs - sinceAttempt);
                break;
            case kRetryWaitUnlock:
                due = kDueRetry;
                break;
            default:
                break;
        }
        if (due != kNotDue) {
            auto* current =
                m_nCurrentBuffer >= 0
                    ? static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(m_nCurrentBuffer))
                    : nullptr;
            if (current && (current->uFlags & kBufferLocked)) {
                m_nPresentState = due == kDuePresent ? kPresentWaitUnlock : kRetryWaitUnlock;
            } else {
                ++m_stStat.uRenderCount;
                m_uLastAttemptTick = now;
                ++m_uSecondAttempts;
                if (RenderFrame()) {
                    ++m_stStat.uRenderSuccess;
                    m_nPresentState = 0;
                } else {
                    ++m_stStat.uRenderFail;
                    if (m_stStat.nStatus == kStatusStopped) {
                        m_nPresentState = 0;
                    } else {
                        m_nPresentState = 4;
                        const uint32_t retry = m_stStat.nStatus == kStatusFailed
                                                   ? m_stActiveConfig.nRetryClosedMs
                                                   : m_stActiveConfig.nRetryMs;
                        timeout = std::min(timeout, retry);
                    }
                }
            }
        }
        if (m_stStat.nStatus == kStatusStopped) break;
        m_lock.Unlock();
        if (nplat::WaitForMultipleObjects(2, events, false, timeout) == nplat::WAIT_OBJECT_0)
            return;
    }
    m_lock.Unlock();
}

// ---- Composition ----

int CNVideoRender::RenderFrame() {
    auto* buffer = m_nCurrentBuffer >= 0
                       ? static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(m_nCurrentBuffer))
                       : nullptr;
    m_nOverlayShown = 0;
    if (m_nOverlayAllowed && !m_nOverlayFailed) {
        m_nOverlayRectChanged = m_nGeometryChanged;
        m_nRestChanged = m_nRepaint;
        m_nOverlayTried = 1;
        if (!m_pOverlay || m_nLastComposedBuffer != m_nCurrentBuffer) {
            m_nOverlayRectChanged = m_nRestChanged = 1;
        } else if (buffer) {
            if (buffer->uFlags & kBufferMainChanged) m_nOverlayRectChanged = 1;
            if (buffer->uFlags & kBufferRestChanged) m_nRestChanged = 1;
        }
    } else {
        m_nOverlayTried = 0;
    }
    const int ok = RenderFrameInner(buffer);
    if (ok && m_nOverlayShown && buffer) {
        m_nGeometryChanged = m_nRepaint = 0;
        m_nLastComposedBuffer = m_nCurrentBuffer;
        buffer->uFlags &= ~(kBufferMainChanged | kBufferRestChanged);
        int main = buffer->pFrameList ? buffer->pFrameList->FindByUserData1(0, 0, -1) : -1;
        if (main >= 0) DropFrameCache(FrameAt(buffer, main));
    } else if (m_pOverlay) {
        m_pOverlay->Release();
        m_pOverlay = nullptr;
    }
    return ok;
}

int CNVideoRender::RenderDecideDisplayWindowProp() {
    nplat::RECT client;
    nplat::POINT origin = {0, 0};
    if (!nplat::GetClientRect(m_hWindow, &client) || !nplat::ClientToScreen(m_hWindow, &origin)) {
        ChangeStatus(kStatusStopped);
        return 0;
    }
    m_nClientWidth = client.right - client.left;
    m_nClientHeight = client.bottom - client.top;
    m_rcClientScreen = {origin.x, origin.y, origin.x + m_nClientWidth, origin.y + m_nClientHeight};
    m_nWindowMonitorCount = 0;
    m_nMainMonitor = -1;
    int64_t largest = -1;
    for (int i = 0; i < m_nMonitorCount; ++i) {
        nplat::RECT part;
        if (!nplat::IntersectRect(&part, &m_rcClientScreen, &m_monitors[i].rcMonitor)) continue;
        WindowMonitorTag& w = m_windowMonitors[m_nWindowMonitorCount++];
        w.nMonitor = i;
        w.rcScreen = part;
        w.rcWindow = {part.left - origin.x, part.top - origin.y, part.right - origin.x,
                      part.bottom - origin.y};
        const int64_t area = int64_t{part.right - part.left} * (part.bottom - part.top);
        if (area > largest) {
            largest = area;
            m_nMainMonitor = i;
        }
    }
    return 1;
}

int CNVideoRender::RenderCheckDeviceIfLose() {
    for (int i = 0; i < m_nMonitorCount; ++i) {
        nplat::IDirectDrawSurface* primary = m_monitors[i].pPrimary;
        if (primary && primary->IsLost() != nplat::DD_OK) return 1;
    }
    return CheckCachedBufferIfLose();
}

void CNVideoRender::RenderProcessDeviceLose() {
    FreeCachedDataInOffScreenBufferAll();
    ReleaseBuffer(15);
    if (m_pOverlay) m_pOverlay->Release();
    m_pOverlay = nullptr;
    ClearAllBufferFailFlag();
    ChangeStatus(kStatusLost);
}

void CNVideoRender::RenderProcessFailRetry() {
    FreeCachedDataInOffScreenBufferAll();
    ReleaseBuffer(15);
    if (m_pOverlay) m_pOverlay->Release();
    m_pOverlay = nullptr;
    for (int i = 0; i < m_nMonitorCount; ++i) {
        CloseDevice_DDraw(i);
        CloseDevice_D3D(i);
    }
    ClearAllBufferFailFlag();
    ChangeStatus(kStatusFailed);
}

int CNVideoRender::RenderRestoreDevice() {
    for (int i = 0; i < m_nMonitorCount; ++i) {
        const MonitorInfoTag& m = m_monitors[i];
        if (m.pDDraw4 && m.pDDraw4->TestCooperativeLevel() != nplat::DD_OK) return 0;
    }
    m_stPresentParams.uBackBufferWidth = m_stPresentParams.uBackBufferHeight = 0;
    for (int i = 0; i < m_nMonitorCount; ++i) {
        if (!m_monitors[i].pPrimary) continue;
        const nplat::HRESULT hr = m_monitors[i].pPrimary->Restore();
        if (nplat::FAILED(hr)) {
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return 0;
        }
    }
    return RestoreBuffer();
}

int CNVideoRender::RenderFrameInner(BufferInfoTag* buffer) {
    if (!RenderDecideDisplayWindowProp()) return 0;
    if (m_nWindowMonitorCount == 0) return 1;
    for (int i = 0; i < m_nWindowMonitorCount; ++i) {
        const int m = m_windowMonitors[i].nMonitor;
        if ((m_monitors[m].uDDrawFlags & kMonitorDDrawOpen) || OpenDevice_DDraw(m)) continue;
        ChangeStatus(kStatusFailed);
        return 0;
    }
    if (m_stStat.nStatus == kStatusLost && !RenderRestoreDevice()) return 0;

    auto fail = [this]() {
        ReleaseAllD3DBackupSurface();
        if (RenderCheckDeviceIfLose())
            RenderProcessDeviceLose();
        else
            RenderProcessFailRetry();
        return 0;
    };
    auto succeed = [this, buffer]() {
        ReleaseAllD3DBackupSurface();
        if (buffer) RenderFreeUnneedFrameCachedData(buffer);
        StatusFlagNotify();
        ChangeStatus(kStatusRunning);
        return 1;
    };
    if (!buffer) {
        StatusFlagInit(1);
        if (!FillBackground_DDraw()) return fail();
        return succeed();
    }
    const bool useD3D = (m_uCapability & kCapUseD3D) && !(buffer->uFlags & kBufferD3DFailed);
    const bool useDxva2 = (m_uCapability & kCapUseDxva2) && !(buffer->uFlags & kBufferDxva2Failed);
    if (!useD3D)
        for (int i = 0; i < m_nMonitorCount; ++i) CloseDevice_D3D(i);
    const bool oneMonitor = m_nWindowMonitorCount == 1;
    const bool d3dHardware =
        oneMonitor && useD3D && (!(buffer->uFlags & 0x200) || (buffer->uFlags & 0x400));
    const bool d3dSoft = useD3D && (m_stActiveConfig.uRenderFlags & kRenderFlagD3DSoft) &&
                         !(buffer->uFlags & kBufferD3DFailed);
    int r = -1;
    if (buffer->uFlags & kBufferBackground) {
        if (!BurnInBackgroundFrames(buffer)) {
            ReleaseAllD3DBackupSurface();
            ChangeStatus(kStatusFailed);
            return 0;
        }
        if (d3dHardware) {
            StatusFlagInit(2);
            r = RenderSelectBGMode_D3D(buffer);
            if (r < 0) buffer->uFlags |= kBufferD3DFailed | kBufferDxva2Failed;
        }
        if (r < 0 && d3dSoft && !(buffer->uFlags & kBufferD3DFailed)) {
            StatusFlagInit(0x8002);
            r = RenderSelectBGMode_D3DSoft(buffer);
            if (r < 0) buffer->uFlags |= kBufferD3DFailed | kBufferDxva2Failed;
        }
        if (r < 0) {
            StatusFlagInit(1);
            r = RenderSelectBGMode_DDraw(buffer);
        }
    } else {
        const int frames = buffer->pFrameList ? buffer->pFrameList->GetParameterCount() : 0;
        if (oneMonitor && useDxva2 && frames <= 16) {
            StatusFlagInit(4);
            r = RenderNormalMode_DXVA2(buffer);
            if (r < 0) buffer->uFlags |= kBufferDxva2Failed;
        }
        if (r < 0 && d3dHardware) {
            StatusFlagInit(2);
            r = RenderNormalMode_D3D(buffer);
            if (r < 0) buffer->uFlags |= kBufferD3DFailed | kBufferDxva2Failed;
        }
        if (r < 0 && d3dSoft && !(buffer->uFlags & kBufferD3DFailed)) {
            StatusFlagInit(0x8002);
            r = RenderNormalMode_D3DSoft(buffer);
            if (r < 0) buffer->uFlags |= kBufferD3DFailed | kBufferDxva2Failed;
        }
        if (r < 0) {
            StatusFlagInit(1);
            r = RenderNormalMode_DDraw(buffer);
        }
    }
    return r == 1 ? succeed() : fail();
}

// ---- The window procedure ----

nplat::LRESULT CNVideoRender::DisplayWindowProcStub(nplat::HWND window, nplat::UINT message,
                                                    nplat::WPARAM wParam, nplat::LPARAM lParam) {
    CNVideoRender* render = nullptr;
    {
        Guard listGuard(s_lockWindowProc);
        int i = FindWindowRecord(window);
        if (i >= 0) render = static_cast<WindowRecord*>(s_listWindowProc.GetBinaryData(i))->render;
    }
    if (!render) return nplat::DefWindowProcA(window, message, wParam, lParam);
    return render->DisplayWindowProc(window, message, wParam, lParam);
}

nplat::LRESULT CNVideoRender::DisplayWindowProc(nplat::HWND window, nplat::UINT message,
                                                nplat::WPARAM wParam, nplat::LPARAM lParam) {
    nplat::WNDPROC previous;
    {
        Guard guard(m_lock);
        previous = m_nOpened ? m_pPrevWindowProc : nullptr;
    }
    if (message == nplat::WM_ERASEBKGND) return 0;
    const nplat::LRESULT result =
        previous ? nplat::CallWindowProcA(previous, window, message, wParam, lParam)
                 : nplat::DefWindowProcA(window, message, wParam, lParam);
    Guard guard(m_lock);
    if (!m_nOpened) return result;
    auto wake = [this]() {
        if (m_nPresentState != 0) return;
        m_nPresentState = 1;
        if (m_hWakeEvent) nplat::SetEvent(m_hWakeEvent);
    };
    switch (message) {
        case nplat::WM_MOVE:
            if (m_nMonitorCount < 2 && !m_nOverlayShown) break;
            wake();
            m_nOverlayFailed = 0;
            m_nGeometryChanged = 1;
            break;
        case nplat::WM_SIZE:
            wake();
            m_nRepaint = 1;
            m_nOverlayFailed = 0;
            m_nGeometryChanged = 1;
            break;
        case nplat::WM_PAINT:
            wake();
            m_nRepaint = 1;
            break;
        case nplat::WM_DISPLAYCHANGE:
            UninitDevice();
            if (!InitDevice()) ChangeStatus(kStatusStopped);
            break;
        default:
            break;
    }
    return result;
}
