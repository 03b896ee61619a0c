// CNVideoRender: device set-up over all monitors, the DirectDraw device of a
// monitor, the cache of surfaces and memory pictures, the surface format
// decision, and the DirectDraw composition of a buffer with and without a
// background, plus the window fill.
//
// Why this way: every composition is built in one RGB32 surface of the
// window's client size with the same memory drawing that RenderToMemory
// uses (frames converted in software, clipped and scaled to their
// destination scaled from view to window), and reaches the primaries only in
// the last step, so nothing is half-drawn on screen. Surfaces and pictures
// come from a cache keyed exactly by kind, format, size and monitor, aged by
// the render thread.
//
// What this file does not do: convert frames into FOURCC surfaces and let
// Blt stretch them (frames are converted in software; the cache keeps no
// per-frame conversion, so frame word 49 stays empty), or the Direct3D
// family (video_render_device_d3d.cpp).
#include <algorithm>
#include <cstring>

#include "base/video_format.h"
#include "platform/ddraw/ddraw.h"
#include "platform/window/window.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using CacheEntry = CNVideoRender::CachedBufferInfoTag;

namespace {

constexpr uint32_t kMonitorSoftware = 0x7;
constexpr uint32_t kMonitorStraightFailed = 0x4;
constexpr uint32_t kMonitorPrimary = 0x8;
constexpr uint32_t kMonitorDDrawOpen = 0x100000;
constexpr int kKindMemory = 1;
constexpr int kKindSurface = 2;
constexpr uint32_t kPathSoftware = 0x8000;
constexpr uint32_t kPathRgb = 0x4000;

// The FOURCCs in the order of the monitor flag bits and the configuration
// words, with their output-path bits.
constexpr nplat::DWORD kFourCCs[8] = {
    nplat::MAKEFOURCC('I', 'Y', 'U', 'V'), nplat::MAKEFOURCC('I', '4', '2', '0'),
    nplat::MAKEFOURCC('Y', 'V', '1', '2'), nplat::MAKEFOURCC('N', 'V', '1', '2'),
    nplat::MAKEFOURCC('Y', 'U', 'Y', '2'), nplat::MAKEFOURCC('Y', 'V', 'Y', 'U'),
    nplat::MAKEFOURCC('U', 'Y', 'V', 'Y'), nplat::MAKEFOURCC('V', 'Y', 'U', 'Y')};
constexpr int kFourCCCodes[8] = {VIDEO_FORMAT_IYUV, VIDEO_FORMAT_I420, VIDEO_FORMAT_YV12,
                                 VIDEO_FORMAT_NV12, VIDEO_FORMAT_YUY2, VIDEO_FORMAT_YVYU,
                                 VIDEO_FORMAT_UYVY, VIDEO_FORMAT_VYUY};
enum { kIYUV, kI420, kYV12, kNV12, kYUY2, kYVYU, kUYVY, kVYUY };

int BytesPerPixel(int subType) {
    switch (subType) {
        case VIDEO_FORMAT_RGB32:
            return 4;
        case VIDEO_FORMAT_RGB24:
            return 3;
        case VIDEO_FORMAT_RGB555:
        case VIDEO_FORMAT_RGB565:
            return 2;
        default:
            return 1;
    }
}

// The pixel format of an off-screen surface of a sub-type; false when the
// sub-type has no surface form.
bool SurfacePixelFormat(int subType, nplat::DDPIXELFORMAT* pf) {
    std::memset(pf, 0, sizeof(*pf));
    pf->dwSize = sizeof(*pf);
    for (int i = 0; i < 8; ++i) {
        if (kFourCCCodes[i] != subType) continue;
        pf->dwFlags = nplat::DDPF_FOURCC;
        pf->dwFourCC = kFourCCs[i];
        pf->dwYUVBitCount = i <= kNV12 ? 12 : 16;
        return true;
    }
    pf->dwFlags = nplat::DDPF_RGB;
    switch (subType) {
        case VIDEO_FORMAT_RGB32:
        case VIDEO_FORMAT_RGB24:
            pf->dwRGBBitCount = subType == VIDEO_FORMAT_RGB32 ? 32 : 24;
            pf->dwRBitMask = 0xFF0000;
            pf->dwGBitMask = 0xFF00;
            pf->dwBBitMask = 0xFF;
            return true;
        case VIDEO_FORMAT_RGB565:
            pf->dwRGBBitCount = 16;
            pf->dwRBitMask = 0xF800;
            pf->dwGBitMask = 0x7E0;
            pf->dwBBitMask = 0x1F;
            return true;
        case VIDEO_FORMAT_RGB555:
            pf->dwRGBBitCount = 16;
            pf->dwRBitMask = 0x7C00;
            pf->dwGBitMask = 0x3E0;
            pf->dwBBitMask = 0x1F;
            return true;
        default:
            return false;
    }
}

// The window colour (0x00RRGGBB) as a fill value of a primary format.
uint32_t FillValue(int primaryFormat, uint32_t rgb) {
    const uint32_t r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
    if (primaryFormat == VIDEO_FORMAT_RGB555) return ((r >> 3) << 10) | ((g >> 3) << 5) | (b >> 3);
    if (primaryFormat == VIDEO_FORMAT_RGB565) return ((r >> 3) << 11) | ((g >> 2) << 5) | (b >> 3);
    return rgb & 0xFFFFFF;
}

int Scale(int value, int to, int from) {
    return from > 0 ? static_cast<int>(int64_t{value} * to / from) : value;
}

}  // namespace

// ---- Device set-up ----

int CNVideoRender::DDEnumCallbackEx(nplat::GUID* guid, char* description, char* name, void* context,
                                    nplat::HMONITOR monitor) {
    return static_cast<CNVideoRender*>(context)->DDEnumCallbackExProc(guid, description, name,
                                                                      monitor);
}

int CNVideoRender::DDEnumCallbackExProc(nplat::GUID* guid, char* description, char* name,
                                        nplat::HMONITOR monitor) {
    (void)description;
    (void)name;
    if (!guid || !monitor) return 1;
    if (m_nMonitorCount >= kMaxMonitors) return 0;
    MonitorInfoTag& m = m_monitors[m_nMonitorCount++];
    m = {};
    m.guid = *guid;
    m.hMonitor = monitor;
    return 1;
}

int CNVideoRender::InitDevice() {
    m_nMonitorCount = 0;
    m_uCapability = 0;
    const nplat::HRESULT hr = nplat::DirectDrawEnumerateExA(&DDEnumCallbackEx, this,
                                                            nplat::DDENUM_ATTACHEDSECONDARYDEVICES);
    if (nplat::FAILED(hr)) {
        m_stStat.uDDrawError = static_cast<uint32_t>(hr);
        return 0;
    }
    for (int i = 0; i < m_nMonitorCount; ++i) {
        MonitorInfoTag& m = m_monitors[i];
        const nplat::GUID guid = m.guid;
        const nplat::HMONITOR handle = m.hMonitor;
        m = {};
        m.guid = guid;
        m.hMonitor = handle;
        m.nAdapter = -1;
        nplat::MONITORINFO info = {};
        info.cbSize = sizeof(info);
        if (!nplat::GetMonitorInfoA(handle, &info)) {
            m_nMonitorCount = 0;
            return 0;
        }
        m.rcMonitor = info.rcMonitor;
        if (info.dwFlags & nplat::MONITORINFOF_PRIMARY) m.uDDrawFlags |= kMonitorPrimary;
    }
    if (m_nMonitorCount == 0) {
        // A single display: its only device has no GUID, so stand in for it
        // with the screen's size.
        const int w = nplat::GetSystemMetrics(nplat::SM_CXSCREEN);
        const int h = nplat::GetSystemMetrics(nplat::SM_CYSCREEN);
        if (w < 1 || h < 1) return 0;
        m_monitors[0] = {};
        m_monitors[0].rcMonitor = {0, 0, w, h};
        m_monitors[0].uDDrawFlags = kMonitorPrimary;
        m_monitors[0].nAdapter = -1;
        m_nMonitorCount = 1;
    }
    if (m_nMonitorCount == 1) m_monitors[0].nAdapter = 0;
    ClearAllBufferFailFlag();
    return 1;
}

void CNVideoRender::UninitDevice() {
    FreeCachedDataInOffScreenBufferAll();
    ReleaseBuffer(15);
    if (m_pOverlay) m_pOverlay->Release();
    m_pOverlay = nullptr;
    for (int i = 0; i < m_nMonitorCount; ++i) {
        CloseDevice_DDraw(i);
        CloseDevice_D3D(i);
    }
    m_nMonitorCount = 0;
}

int CNVideoRender::OpenDevice_DDraw(int monitor) {
    MonitorInfoTag& m = m_monitors[monitor];
    const bool zeroGuid = [&] {
        const auto* p = reinterpret_cast<const uint8_t*>(&m.guid);
        return std::all_of(p, p + sizeof(m.guid), [](uint8_t b) { return b == 0; });
    }();
    nplat::HRESULT hr = nplat::DirectDrawCreate(zeroGuid ? nullptr : &m.guid, &m.pDDraw, nullptr);
    if (nplat::SUCCEEDED(hr)) hr = m.pDDraw->SetCooperativeLevel(m_hWindow, nplat::DDSCL_NORMAL);
    nplat::DDCAPS caps = {};
    caps.dwSize = sizeof(caps);
    if (nplat::SUCCEEDED(hr)) hr = m.pDDraw->GetCaps(&caps, nullptr);
    m.uDDrawFlags &= kMonitorPrimary;
    if (nplat::SUCCEEDED(hr)) {
        const nplat::DWORD need =
            nplat::DDCAPS_BLT | nplat::DDCAPS_BLTSTRETCH | nplat::DDCAPS_CANBLTSYSMEM;
        if ((caps.dwCaps & need) != need) m.uDDrawFlags |= kMonitorSoftware;
        nplat::DWORD codes[256];
        nplat::DWORD count = 256;
        hr = m.pDDraw->GetFourCCCodes(&count, codes);
        for (nplat::DWORD c = 0; nplat::SUCCEEDED(hr) && c < std::min<nplat::DWORD>(count, 256);
             ++c)
            for (int f = 0; f < 8; ++f) {
                if (codes[c] != kFourCCs[f]) continue;
                m.uDDrawFlags |= 0x10u << f;
                if (!(m_stActiveConfig.uFormatFlags[f] & 0x20)) m.uDDrawFlags |= 0x1000u << f;
            }
    }
    nplat::DDSURFACEDESC2 desc = {};
    desc.dwSize = sizeof(desc);
    desc.dwFlags = nplat::DDSD_CAPS;
    desc.ddsCaps.dwCaps = nplat::DDSCAPS_PRIMARYSURFACE;
    if (nplat::SUCCEEDED(hr)) hr = m.pDDraw->CreateSurface(&desc, &m.pPrimary, nullptr);
    nplat::DDPIXELFORMAT pf = {};
    pf.dwSize = sizeof(pf);
    if (nplat::SUCCEEDED(hr)) hr = m.pPrimary->GetPixelFormat(&pf);
    if (nplat::SUCCEEDED(hr)) {
        switch (pf.dwRGBBitCount) {
            case 16:
                m.nPrimaryFormat =
                    pf.dwGBitMask == 0x7E0 ? VIDEO_FORMAT_RGB565 : VIDEO_FORMAT_RGB555;
                break;
            case 24:
                m.nPrimaryFormat = VIDEO_FORMAT_RGB24;
                break;
            case 32:
                m.nPrimaryFormat = VIDEO_FORMAT_RGB32;
                break;
            default:
                hr = nplat::DDERR_INVALIDPIXELFORMAT;
        }
    }
    if (nplat::SUCCEEDED(hr)) hr = m.pDDraw->CreateClipper(0, &m.pClipper, nullptr);
    if (nplat::SUCCEEDED(hr)) hr = m.pClipper->SetHWnd(0, m_hWindow);
    if (nplat::SUCCEEDED(hr)) hr = m.pPrimary->SetClipper(m.pClipper);
    if (nplat::FAILED(hr)) {
        m_stStat.uDDrawError = static_cast<uint32_t>(hr);
        CloseDevice_DDraw(monitor);
        return 0;
    }
    void* dd4 = nullptr;
    if (nplat::SUCCEEDED(m.pDDraw->QueryInterface(nplat::IID_IDirectDraw4, &dd4)))
        m.pDDraw4 = static_cast<nplat::IDirectDraw4*>(dd4);
    m.uDDrawFlags |= kMonitorDDrawOpen;
    return 1;
}

void CNVideoRender::CloseDevice_DDraw(int monitor) {
    MonitorInfoTag& m = m_monitors[monitor];
    if (m.pClipper) m.pClipper->Release();
    if (m.pPrimary) m.pPrimary->Release();
    if (m.pDDraw4) m.pDDraw4->Release();
    if (m.pDDraw) m.pDDraw->Release();
    m.pClipper = nullptr;
    m.pPrimary = nullptr;
    m.pDDraw4 = nullptr;
    m.pDDraw = nullptr;
    m.uDDrawFlags &= kMonitorPrimary | kMonitorStraightFailed;
}

// ---- The cache ----

static int FindCacheEntry(CNDataList& cache, void* handle) {
    for (int i = 0; i < cache.GetParameterCount(); ++i)
        if (static_cast<CacheEntry*>(cache.GetBinaryData(i))->pObject == handle) return i;
    return -1;
}

static void ReleaseCacheObject(const CacheEntry& e) {
    if (!e.pObject) return;
    if (e.nKind == kKindMemory)
        static_cast<CNCodecBuffer*>(e.pObject)->Release();
    else if (e.nKind == kKindSurface)
        static_cast<nplat::IDirectDrawSurface*>(e.pObject)->Release();
}

void* CNVideoRender::AllocateBuffer(int kind, int subType, int width, int height, int systemMemory,
                                    int monitor) {
    for (int i = 0; i < m_listCache.GetParameterCount(); ++i) {
        auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
        if (m_listCache.GetUserData1(i) == -1 || e->nKind != kind || e->nSubType != subType ||
            e->nWidth != width || e->nHeight != height || e->nSystemMemory != systemMemory ||
            e->nMonitor != monitor)
            continue;
        m_listCache.SetUserData1(i, -1);
        return e->pObject;
    }
    CacheEntry e = {};
    e.nMonitor = monitor;
    e.nKind = kind;
    e.nWidth = width;
    e.nHeight = height;
    e.nSubType = subType;
    e.nSystemMemory = systemMemory;
    e.nBytesPerPixel = BytesPerPixel(subType);
    int64_t bytes = 0;
    if (kind == kKindMemory) {
        VideoFormatInfoTag f;
        CNCodecBuffer* b = AllocateCodecBufferAlone(subType, width, height, &f, 0, nullptr);
        if (!b) return nullptr;
        e.nRowPad = f.nPadRight;
        e.nRowBytes = width * e.nBytesPerPixel + f.nPadRight;
        e.pObject = b;
        bytes = b->GetDataSize();
    } else if (kind == kKindSurface) {
        if (monitor < 0 || monitor >= m_nMonitorCount || !m_monitors[monitor].pDDraw)
            return nullptr;
        nplat::DDSURFACEDESC2 desc = {};
        desc.dwSize = sizeof(desc);
        desc.dwFlags =
            nplat::DDSD_CAPS | nplat::DDSD_HEIGHT | nplat::DDSD_WIDTH | nplat::DDSD_PIXELFORMAT;
        desc.dwWidth = static_cast<nplat::DWORD>(width);
        desc.dwHeight = static_cast<nplat::DWORD>(height);
        desc.ddsCaps.dwCaps =
            nplat::DDSCAPS_OFFSCREENPLAIN | (systemMemory ? nplat::DDSCAPS_SYSTEMMEMORY : 0);
        if (!SurfacePixelFormat(subType, &desc.ddpfPixelFormat)) return nullptr;
        nplat::IDirectDrawSurface* s = nullptr;
        const nplat::HRESULT hr = m_monitors[monitor].pDDraw->CreateSurface(&desc, &s, nullptr);
        if (nplat::FAILED(hr) || !s) {
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return nullptr;
        }
        e.pObject = s;
        bytes = int64_t{width} * height * std::max(1, e.nBytesPerPixel);
    } else {
        return nullptr;
    }
    const int at = m_listCache.InsertBinary(nullptr, &e, sizeof(e), -1, 0);
    if (at < 0) {
        ReleaseCacheObject(e);
        return nullptr;
    }
    m_listCache.SetUserData1(at, -1);
    m_listCache.SetUserData2(at, static_cast<int32_t>(std::min<int64_t>(bytes, INT32_MAX)));
    return e.pObject;
}

void CNVideoRender::FreeBuffer(void* handle) {
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return;
    m_listCache.SetUserData1(i, 0);
    const uint32_t limit = m_stActiveConfig.nCacheByteLimit;
    if (limit == 0) return;
    for (;;) {
        int64_t total = 0;
        int oldest = -1;
        for (int k = 0; k < m_listCache.GetParameterCount(); ++k) {
            const int age = m_listCache.GetUserData1(k);
            if (age < 0) continue;
            total += m_listCache.GetUserData2(k);
            if (oldest < 0 || age > m_listCache.GetUserData1(oldest)) oldest = k;
        }
        if (total <= limit || oldest < 0) return;
        ReleaseCacheObject(*static_cast<CacheEntry*>(m_listCache.GetBinaryData(oldest)));
        m_listCache.Remove(oldest);
    }
}

void CNVideoRender::CheckAndReleaseBufferInternal() {
    for (int i = m_listCache.GetParameterCount() - 1; i >= 0; --i) {
        const int age = m_listCache.GetUserData1(i);
        if (age < 0) continue;
        if (static_cast<uint32_t>(age) + 1 >= m_stActiveConfig.nCacheAgeSeconds) {
            ReleaseCacheObject(*static_cast<CacheEntry*>(m_listCache.GetBinaryData(i)));
            m_listCache.Remove(i);
        } else {
            m_listCache.SetUserData1(i, static_cast<int16_t>(age + 1));
        }
    }
}

void CNVideoRender::ReleaseBuffer(int kindMask) {
    for (int i = m_listCache.GetParameterCount() - 1; i >= 0; --i) {
        auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
        if (m_listCache.GetUserData1(i) < 0 || !(e->nKind & kindMask)) continue;
        ReleaseCacheObject(*e);
        m_listCache.Remove(i);
    }
}

CNCodecBuffer* CNVideoRender::LockBuffer(void* handle, nplat::RECT& rect,
                                         VideoFormatInfoTag* format, int flags) {
    (void)flags;
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return nullptr;
    auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
    ncb::InitVideoFormat(format, e->nSubType, e->nWidth, e->nHeight);
    rect = {0, 0, e->nWidth, e->nHeight};
    if (e->nKind == kKindMemory) {
        auto* b = static_cast<CNCodecBuffer*>(e->pObject);
        format->nPadRight = e->nRowPad;
        b->AddRef();
        return b;
    }
    auto* s = static_cast<nplat::IDirectDrawSurface*>(e->pObject);
    nplat::DDSURFACEDESC2 desc = {};
    desc.dwSize = sizeof(desc);
    nplat::HRESULT hr = s->Lock(nullptr, &desc, nplat::DDLOCK_WAIT, nullptr);
    if (nplat::FAILED(hr)) {
        m_stStat.uDDrawError = static_cast<uint32_t>(hr);
        return nullptr;
    }
    format->nPadRight = desc.lPitch - e->nWidth * e->nBytesPerPixel;
    const int size = desc.lPitch * e->nHeight;
    CNCodecBuffer* b = CNCodecBuffer::CreateWrapBuffer(desc.lpSurface, size, size, nullptr);
    if (!b) s->Unlock(nullptr);
    return b;
}

void CNVideoRender::UnlockBuffer(void* handle) {
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return;
    auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
    if (e->nKind == kKindSurface)
        static_cast<nplat::IDirectDrawSurface*>(e->pObject)->Unlock(nullptr);
}

int CNVideoRender::CheckBuffer(void* handle) {
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return 0;
    auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
    if (e->nKind != kKindSurface) return 1;
    return static_cast<nplat::IDirectDrawSurface*>(e->pObject)->IsLost() == nplat::DD_OK;
}

void CNVideoRender::AdjustBufferRect(void* handle, nplat::RECT* rect) {
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return;
    const int offset = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i))->nOffset;
    rect->left += offset;
    rect->right += offset;
}

void CNVideoRender::AdjustBufferPoint(void* handle, nplat::POINT* point) {
    const int i = FindCacheEntry(m_listCache, handle);
    if (i < 0) return;
    point->x += static_cast<CacheEntry*>(m_listCache.GetBinaryData(i))->nOffset;
}

int CNVideoRender::CheckCachedBufferIfLose() {
    for (int i = 0; i < m_listCache.GetParameterCount(); ++i) {
        auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
        if (e->nKind == kKindSurface &&
            static_cast<nplat::IDirectDrawSurface*>(e->pObject)->IsLost() != nplat::DD_OK)
            return 1;
    }
    return m_pOverlay && m_pOverlay->IsLost() != nplat::DD_OK;
}

int CNVideoRender::RestoreBuffer() {
    for (int i = 0; i < m_listCache.GetParameterCount(); ++i) {
        auto* e = static_cast<CacheEntry*>(m_listCache.GetBinaryData(i));
        if (e->nKind != kKindSurface) continue;
        const nplat::HRESULT hr = static_cast<nplat::IDirectDrawSurface*>(e->pObject)->Restore();
        if (nplat::FAILED(hr)) {
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return 0;
        }
    }
    if (m_pOverlay) {
        const nplat::HRESULT hr = m_pOverlay->Restore();
        if (nplat::FAILED(hr)) {
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return 0;
        }
    }
    return 1;
}

void CNVideoRender::FreeCachedDataInOffScreenBuffer(int index) {
    auto* b = static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(index));
    if (!b || !b->pFrameList) return;
    for (int i = 0; i < b->pFrameList->GetParameterCount(); ++i) DropFrameCache(FrameAt(b, i));
}

void CNVideoRender::FreeCachedDataInOffScreenBufferAll() {
    for (int i = 0; i < m_listBuffer.GetParameterCount(); ++i) FreeCachedDataInOffScreenBuffer(i);
}

void CNVideoRender::RenderFreeUnneedFrameCachedData(BufferInfoTag* buffer) {
    if (!buffer->pFrameList) return;
    for (int i = 0; i < buffer->pFrameList->GetParameterCount(); ++i) {
        FrameInfoTag* f = FrameAt(buffer, i);
        if (f->uFlags & kFrameReturnCache) DropFrameCache(f);
    }
}

// ---- Surface format ----

int CNVideoRender::RenderDecideSurfaceFormat_DDraw(int monitor, VideoFormatInfoTag* format) {
    static constexpr int kAll420[] = {kNV12, kYV12, kIYUV, kI420, kYUY2, kUYVY, kYVYU, kVYUY};
    static constexpr int kEven[] = {kNV12, kYV12, kIYUV, kI420};
    static constexpr int kPacked[] = {kYUY2, kUYVY, kYVYU, kVYUY};
    static constexpr int kYvyu[] = {kYVYU, kYUY2, kUYVY, kVYUY};
    static constexpr int kUyvy[] = {kUYVY, kYUY2, kYVYU, kVYUY};
    static constexpr int kVyuy[] = {kVYUY, kYUY2, kUYVY, kYVYU};
    const uint32_t enabled = m_monitors[monitor].uDDrawFlags;
    auto first = [&](const int* order, int n) {
        for (int k = 0; k < n; ++k)
            if (enabled & (0x1000u << order[k])) return order[k];
        return -1;
    };
    const int w = format->nRectRight - format->nRectLeft;
    const int h = format->nRectBottom - format->nRectTop;
    int pick = -1;
    switch (format->nCodecSubType) {
        case VIDEO_FORMAT_Y800:
            if (w % 2 == 0 && h % 2 == 0) pick = first(kEven, 4);
            if (pick < 0 && w % 2 == 0) pick = first(kPacked, 4);
            break;
        case VIDEO_FORMAT_YUV420:
        case VIDEO_FORMAT_NV12:
            pick = first(kAll420, 8);
            break;
        case VIDEO_FORMAT_YUV422:
        case VIDEO_FORMAT_YUY2:
            pick = first(kPacked, 4);
            break;
        case VIDEO_FORMAT_YVYU:
            pick = first(kYvyu, 4);
            break;
        case VIDEO_FORMAT_UYVY:
            pick = first(kUyvy, 4);
            break;
        case VIDEO_FORMAT_VYUY:
            pick = first(kVyuy, 4);
            break;
        default:
            break;
    }
    if (pick < 0) {
        StatusFlagAddOutFormat(kPathRgb);
        return VIDEO_FORMAT_RGB32;
    }
    StatusFlagAddOutFormat(0x8u << pick);
    return kFourCCCodes[pick];
}

// ---- Composition ----

static CNVideoRender::FrameInfoTag* MainFrameOf(CNVideoRender::BufferInfoTag* buffer);

// Draws one frame onto the composition picture at its destination scaled
// from view to window.
static void ScaleDestination(const nplat::RECT& view, int vw, int vh, int cw, int ch,
                             nplat::RECT* out) {
    out->left = Scale(view.left, cw, vw);
    out->right = Scale(view.right, cw, vw);
    out->top = Scale(view.top, ch, vh);
    out->bottom = Scale(view.bottom, ch, vh);
}

int CNVideoRender::RenderDrawVideoFrame_DDraw(FrameInfoTag* frame, void* surface) {
    auto* target = static_cast<std::pair<CNCodecBuffer*, VideoFormatInfoTag*>*>(surface);
    return RenderMemoryDrawVideoFrame(frame, target->first, target->second);
}

int CNVideoRender::RenderDrawText_DDraw(FrameInfoTag* frame, void* surface) {
    auto* target = static_cast<std::pair<CNCodecBuffer*, VideoFormatInfoTag*>*>(surface);
    return RenderMemoryDrawText(frame, target->first, target->second);
}

int CNVideoRender::RenderDrawBitmap_DDraw(FrameInfoTag* frame, void* surface) {
    auto* target = static_cast<std::pair<CNCodecBuffer*, VideoFormatInfoTag*>*>(surface);
    return RenderMemoryDrawBitmap(frame, target->first, target->second);
}

int CNVideoRender::RenderNormalMode_DDraw(BufferInfoTag* buffer) {
    const bool software = m_nWindowMonitorCount > 1 || (buffer->uFlags & 0x600) == 0x200 ||
                          (m_monitors[m_nMainMonitor].uDDrawFlags & 0x1);
    FrameInfoTag* main = MainFrameOf(buffer);
    if (m_nOverlayTried && (buffer->uFlags & 0x800) && m_nWindowMonitorCount == 1 && !software &&
        main && !(main->uFlags & kFrameEmpty) && main->pData && (main->uFlags & kFrameVideo)) {
        if (m_pOverlay && !m_nOverlayRectChanged) {
            m_nOverlayShown = 1;
        } else if (RenderDrawMainVideoFrame_DDrawOverlap(buffer, main)) {
            m_nOverlayShown = 1;
        } else {
            m_nOverlayFailed = 1;
        }
        if (m_nOverlayShown) {
            StatusFlagAddOutFormat(0x10000);
            if (!m_nRestChanged) return 1;  // only the main frame changed
        }
    }
    return RenderSelectBGMode_DDraw(buffer);
}

int CNVideoRender::RenderSelectBGMode_DDraw(BufferInfoTag* buffer) {
    const int main = m_nMainMonitor;
    const bool background = (buffer->uFlags & kBufferBackground) && buffer->pBgImage;
    const bool software = m_nWindowMonitorCount > 1 || (buffer->uFlags & 0x600) == 0x200 ||
                          (m_monitors[main].uDDrawFlags & 0x1);
    if (software) StatusFlagAddOutFormat(kPathSoftware);
    const int cw = m_nClientWidth, ch = m_nClientHeight;
    const int vw = buffer->nViewWidth, vh = buffer->nViewHeight;
    void* comp = AllocateBuffer(kKindSurface, VIDEO_FORMAT_RGB32, cw, ch, software ? 1 : 0, main);
    if (!comp) return 0;
    nplat::RECT whole;
    VideoFormatInfoTag format;
    CNCodecBuffer* picture = LockBuffer(comp, whole, &format, 0);
    if (!picture) {
        FreeBuffer(comp);
        return 0;
    }
    int ok = 1;
    if (background) {
        VideoFormatInfoTag bg;
        DescribeBackground(buffer, &bg);
        bg.nRectLeft = buffer->nViewX;
        bg.nRectTop = buffer->nViewY;
        bg.nRectRight = buffer->nViewX + vw;
        bg.nRectBottom = buffer->nViewY + vh;
        ok = RenderMemoryPlaceRGB32(buffer->pBgImage, &bg, nplat::RECT{0, 0, cw, ch}, picture,
                                    &format, -1, 255, 0);
    } else {
        CNVideoProcessor::FillRectRGB(picture, &format, 0xFF000000u, 0, 0, cw, ch, 0, m_nLevel);
        if (buffer->uFlags & kBufferFillBackground) {
            const uint32_t colour = OpaqueRgb(buffer->uBgColor);
            auto fill = [&](int x, int y, int w, int h) {
                if (w > 0 && h > 0)
                    CNVideoProcessor::FillRectRGB(picture, &format, colour, x, y, w, h, 0,
                                                  m_nLevel);
            };
            CNDataList* frames = buffer->pFrameList;
            bool all = !frames || frames->GetParameterCount() == 0 || frames->GetUserData1(0) != 0;
            nplat::RECT r = {};
            if (!all) {
                ScaleDestination(FrameAt(buffer, 0)->rcDst, vw, vh, cw, ch, &r);
                r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, cw),
                     std::min(r.bottom, ch)};
                all = r.left >= r.right || r.top >= r.bottom;
            }
            if (all) {
                fill(0, 0, cw, ch);
            } else {
                fill(0, r.top, r.left, r.bottom - r.top);
                fill(r.right, r.top, cw - r.right, r.bottom - r.top);
                fill(0, 0, cw, r.top);
                fill(0, r.bottom, cw, ch - r.bottom);
            }
        }
    }
    std::pair<CNCodecBuffer*, VideoFormatInfoTag*> target(picture, &format);
    const int count = buffer->pFrameList ? buffer->pFrameList->GetParameterCount() : 0;
    for (int i = 0; ok && i < count; ++i) {
        FrameInfoTag frame = *FrameAt(buffer, i);
        if ((frame.uFlags & kFrameEmpty) || !frame.pData) continue;
        if (background && buffer->pFrameList->GetUserData1(i) == 0) continue;
        if (i == 0 && m_nOverlayShown && !background) {
            ok = FillBackgroundColorKey_DDrawOverlap(&target);
            continue;
        }
        if (frame.uFlags & kFrameVideo) StatusFlagAddOutFormat(kPathRgb);
        ScaleDestination(FrameAt(buffer, i)->rcDst, vw, vh, cw, ch, &frame.rcDst);
        if (frame.uFlags & kFrameVideo)
            ok = RenderDrawVideoFrame_DDraw(&frame, &target);
        else if (frame.uFlags & kFrameText)
            ok = RenderDrawText_DDraw(&frame, &target);
        else
            ok = RenderDrawBitmap_DDraw(&frame, &target);
    }
    picture->Release();
    UnlockBuffer(comp);
    if (ok) ok = RenderDrawText(0, comp, buffer->pTextList, 1);
    if (ok) ok = PutCompositionOnMonitors(comp);
    FreeBuffer(comp);
    return ok;
}

int CNVideoRender::PutCompositionOnMonitors(void* comp) {
    auto* source = static_cast<nplat::IDirectDrawSurface*>(comp);
    for (int k = 0; k < m_nWindowMonitorCount; ++k) {
        const WindowMonitorTag& wm = m_windowMonitors[k];
        MonitorInfoTag& m = m_monitors[wm.nMonitor];
        nplat::RECT src = wm.rcWindow;
        nplat::RECT dst = {wm.rcScreen.left - m.rcMonitor.left, wm.rcScreen.top - m.rcMonitor.top,
                           wm.rcScreen.right - m.rcMonitor.left,
                           wm.rcScreen.bottom - m.rcMonitor.top};
        const bool straight =
            wm.nMonitor == m_nMainMonitor &&
            (m.nPrimaryFormat == VIDEO_FORMAT_RGB32 || !(m.uDDrawFlags & kMonitorStraightFailed));
        if (straight) {
            const nplat::HRESULT hr =
                m.pPrimary->Blt(&dst, source, &src, nplat::DDBLT_WAIT, nullptr);
            if (nplat::SUCCEEDED(hr)) continue;
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            if (m.nPrimaryFormat == VIDEO_FORMAT_RGB32) return 0;
            m.uDDrawFlags |= kMonitorStraightFailed;
        }
        // Convert the visible part into the primary's own format first.
        const int w = src.right - src.left, h = src.bottom - src.top;
        void* part = AllocateBuffer(kKindSurface, m.nPrimaryFormat, w, h, 1, wm.nMonitor);
        if (!part) return 0;
        nplat::RECT r1, r2;
        VideoFormatInfoTag inFormat, outFormat;
        CNCodecBuffer* in = LockBuffer(comp, r1, &inFormat, 0);
        CNCodecBuffer* out = in ? LockBuffer(part, r2, &outFormat, 0) : nullptr;
        int ok = in && out;
        if (ok) {
            inFormat.nRectLeft = src.left;
            inFormat.nRectRight = src.right;
            inFormat.nRectTop = src.top;
            inFormat.nRectBottom = src.bottom;
            ok = m.nPrimaryFormat == VIDEO_FORMAT_RGB32
                     ? CNVideoProcessor::DirectCopyRGB(in, out, &inFormat, &outFormat, 0, 1,
                                                       m_nLevel)
                     : CNVideoProcessor::ConvertRGB(in, out, &inFormat, &outFormat, 1, m_nLevel);
        }
        if (out) {
            out->Release();
            UnlockBuffer(part);
        }
        if (in) {
            in->Release();
            UnlockBuffer(comp);
        }
        if (ok) {
            const nplat::HRESULT hr =
                m.pPrimary->Blt(&dst, static_cast<nplat::IDirectDrawSurface*>(part), nullptr,
                                nplat::DDBLT_WAIT, nullptr);
            if (nplat::FAILED(hr)) {
                m_stStat.uDDrawError = static_cast<uint32_t>(hr);
                ok = 0;
            }
        }
        FreeBuffer(part);
        if (!ok) return 0;
    }
    return 1;
}

int CNVideoRender::FillBackground_DDraw() {
    for (int k = 0; k < m_nWindowMonitorCount; ++k) {
        const WindowMonitorTag& wm = m_windowMonitors[k];
        const MonitorInfoTag& m = m_monitors[wm.nMonitor];
        nplat::RECT dst = {wm.rcScreen.left - m.rcMonitor.left, wm.rcScreen.top - m.rcMonitor.top,
                           wm.rcScreen.right - m.rcMonitor.left,
                           wm.rcScreen.bottom - m.rcMonitor.top};
        nplat::DDBLTFX fx = {};
        fx.dwSize = sizeof(fx);
        fx.dwFillColor = FillValue(m.nPrimaryFormat, m_uWindowColor);
        const nplat::HRESULT hr = m.pPrimary->Blt(&dst, nullptr, nullptr,
                                                  nplat::DDBLT_COLORFILL | nplat::DDBLT_WAIT, &fx);
        if (nplat::FAILED(hr)) {
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return 0;
        }
    }
    return 1;
}

// ---- Overlay ----

// The main frame (id 0, first in the list) of a buffer, or null.
static CNVideoRender::FrameInfoTag* MainFrameOf(CNVideoRender::BufferInfoTag* buffer) {
    CNDataList* frames = buffer->pFrameList;
    if (!frames || frames->GetParameterCount() == 0 || frames->GetUserData1(0) != 0) return nullptr;
    return static_cast<CNVideoRender::FrameInfoTag*>(frames->GetBinaryData(0));
}

CNCodecBuffer* CNVideoRender::LockOverlapSurface(VideoFormatInfoTag* format) {
    if (!m_pOverlay) return nullptr;
    nplat::DDSURFACEDESC2 desc = {};
    desc.dwSize = sizeof(desc);
    const nplat::HRESULT hr = m_pOverlay->Lock(nullptr, &desc, nplat::DDLOCK_WAIT, nullptr);
    if (nplat::FAILED(hr)) {
        m_stStat.uDDrawError = static_cast<uint32_t>(hr);
        return nullptr;
    }
    const int code = m_nOverlayFormat == VIDEO_FORMAT_I420 ? VIDEO_FORMAT_IYUV : m_nOverlayFormat;
    const bool packed = code >= VIDEO_FORMAT_YUY2 && code <= VIDEO_FORMAT_VYUY;
    ncb::InitVideoFormat(format, code, m_nOverlayWidth, m_nOverlayHeight);
    const int pad = desc.lPitch - m_nOverlayWidth * (packed ? 2 : 1);
    format->nPadRight = pad;
    format->nChromaPadRight = packed ? 0 : code == VIDEO_FORMAT_NV12 ? pad : pad / 2;
    const int size =
        packed ? desc.lPitch * m_nOverlayHeight : desc.lPitch * m_nOverlayHeight * 3 / 2;
    CNCodecBuffer* b = CNCodecBuffer::CreateWrapBuffer(desc.lpSurface, size, size, nullptr);
    if (!b) m_pOverlay->Unlock(nullptr);
    return b;
}

void CNVideoRender::UnlockOverlapSurface() {
    if (m_pOverlay) m_pOverlay->Unlock(nullptr);
}

// Converts the frame into the locked overlay picture: straight when it
// already has the overlay's layout, else through planar intermediates.
static int FillOverlay(CNVideoRender* render, CNVideoRender::FrameInfoTag* frame,
                       CNCodecBuffer* out, CNVideoRender::VideoFormatInfoTag* outFormat, int level);

int CNVideoRender::RenderDrawMainVideoFrame_DDrawOverlap(BufferInfoTag* buffer,
                                                         FrameInfoTag* frame) {
    const int mon = m_nMainMonitor;
    MonitorInfoTag& m = m_monitors[mon];
    const VideoFormatInfoTag& sf = frame->stFormat;
    int ow = sf.nRectRight - sf.nRectLeft, oh = sf.nRectBottom - sf.nRectTop;
    const int rotation = FrameRotation(frame->uFlags);
    if (rotation == 0 || rotation == 2) std::swap(ow, oh);
    VideoFormatInfoTag probe = sf;
    const int format = RenderDecideSurfaceFormat_DDraw(mon, &probe);
    if (format == VIDEO_FORMAT_RGB32 || ow < 1 || oh < 1 || !m.pDDraw) return 0;
    if (m_pOverlay && (m_nOverlayMonitor != mon || m_nOverlayWidth != ow ||
                       m_nOverlayHeight != oh || m_nOverlayFormat != format)) {
        m_pOverlay->Release();
        m_pOverlay = nullptr;
    }
    if (!m_pOverlay) {
        nplat::DDSURFACEDESC2 desc = {};
        desc.dwSize = sizeof(desc);
        desc.dwFlags =
            nplat::DDSD_CAPS | nplat::DDSD_HEIGHT | nplat::DDSD_WIDTH | nplat::DDSD_PIXELFORMAT;
        desc.ddsCaps.dwCaps = nplat::DDSCAPS_OVERLAY;
        desc.dwWidth = static_cast<nplat::DWORD>(ow);
        desc.dwHeight = static_cast<nplat::DWORD>(oh);
        SurfacePixelFormat(format, &desc.ddpfPixelFormat);
        const nplat::HRESULT hr = m.pDDraw->CreateSurface(&desc, &m_pOverlay, nullptr);
        if (nplat::FAILED(hr) || !m_pOverlay) {
            m_pOverlay = nullptr;
            m_stStat.uDDrawError = static_cast<uint32_t>(hr);
            return 0;
        }
        m_nOverlayMonitor = mon;
        m_nOverlayWidth = ow;
        m_nOverlayHeight = oh;
        m_nOverlayFormat = format;
    }
    VideoFormatInfoTag of;
    CNCodecBuffer* out = LockOverlapSurface(&of);
    if (!out) return 0;
    const int filled = FillOverlay(this, frame, out, &of, m_nLevel);
    out->Release();
    UnlockOverlapSurface();
    if (!filled) return 0;

    // Where it shows: the destination scaled to the window, clipped to the
    // client area and the monitor, and the matching part of the overlay.
    const int cw = m_nClientWidth, ch = m_nClientHeight;
    nplat::RECT scaled;
    ScaleDestination(frame->rcDst, buffer->nViewWidth, buffer->nViewHeight, cw, ch, &scaled);
    nplat::POINT mtl = {m.rcMonitor.left, m.rcMonitor.top};
    nplat::POINT mbr = {m.rcMonitor.right, m.rcMonitor.bottom};
    nplat::ScreenToClient(m_hWindow, &mtl);
    nplat::ScreenToClient(m_hWindow, &mbr);
    nplat::RECT clip = {std::max({scaled.left, 0, static_cast<int>(mtl.x)}),
                        std::max({scaled.top, 0, static_cast<int>(mtl.y)}),
                        std::min({scaled.right, cw, static_cast<int>(mbr.x)}),
                        std::min({scaled.bottom, ch, static_cast<int>(mbr.y)})};
    const int sw = scaled.right - scaled.left, sh = scaled.bottom - scaled.top;
    if (clip.left >= clip.right || clip.top >= clip.bottom || sw < 1 || sh < 1) return 0;
    nplat::RECT src;
    src.left = Scale(clip.left - scaled.left, ow, sw);
    src.right = src.left + Scale(clip.right - clip.left, ow, sw);
    src.top = Scale(clip.top - scaled.top, oh, sh);
    src.bottom = src.top + Scale(clip.bottom - clip.top, oh, sh);
    if (src.left >= src.right || src.top >= src.bottom) return 0;
    const int dx = m_rcClientScreen.left - m.rcMonitor.left;
    const int dy = m_rcClientScreen.top - m.rcMonitor.top;
    nplat::RECT dst = {clip.left + dx, clip.top + dy, clip.right + dx, clip.bottom + dy};
    nplat::DDOVERLAYFX fx = {};
    fx.dwSize = sizeof(fx);
    const uint32_t key = m.nPrimaryFormat == VIDEO_FORMAT_RGB555 ? m_uColorKey555
                         : m.nPrimaryFormat == VIDEO_FORMAT_RGB565
                             ? m_uColorKey565
                             : m_stActiveConfig.uOverlayColorKey;
    fx.dckDestColorkey.dwColorSpaceLowValue = key;
    fx.dckDestColorkey.dwColorSpaceHighValue = key;
    const nplat::HRESULT hr = m_pOverlay->UpdateOverlay(
        &src, m.pPrimary, &dst, nplat::DDOVER_SHOW | nplat::DDOVER_KEYDESTOVERRIDE, &fx);
    if (nplat::FAILED(hr)) {
        m_stStat.uDDrawError = static_cast<uint32_t>(hr);
        return 0;
    }
    return 1;
}

// Fills the main frame's place in the composition with the overlay's
// colour key, so the overlay shows through it.
int CNVideoRender::FillBackgroundColorKey_DDrawOverlap(void* surface) {
    auto* target = static_cast<std::pair<CNCodecBuffer*, VideoFormatInfoTag*>*>(surface);
    auto* buffer = static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(m_nCurrentBuffer));
    FrameInfoTag* main = buffer ? MainFrameOf(buffer) : nullptr;
    if (!main) return 0;
    nplat::RECT r;
    ScaleDestination(main->rcDst, buffer->nViewWidth, buffer->nViewHeight, m_nClientWidth,
                     m_nClientHeight, &r);
    r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, m_nClientWidth),
         std::min(r.bottom, m_nClientHeight)};
    if (r.left >= r.right || r.top >= r.bottom) return 1;
    return CNVideoProcessor::FillRectRGB(
        target->first, target->second, (m_stActiveConfig.uOverlayColorKey & 0xFFFFFF) | 0xFF000000u,
        r.left, r.top, r.right - r.left, r.bottom - r.top, 0, m_nLevel);
}

static int FillOverlay(CNVideoRender* render, CNVideoRender::FrameInfoTag* frame,
                       CNCodecBuffer* out, CNVideoRender::VideoFormatInfoTag* outFormat,
                       int level) {
    using Format = CNVideoRender::VideoFormatInfoTag;
    Format cur = frame->stFormat;
    const int sub = cur.nCodecSubType;
    if (!(frame->uFlags & kFrameAlwaysConvert) &&
        (sub == outFormat->nCodecSubType ||
         (sub == VIDEO_FORMAT_I420 && outFormat->nCodecSubType == VIDEO_FORMAT_IYUV)))
        return CNVideoProcessor::DirectCopyYUV(frame->pData, out, &cur, outFormat, 0, 1, level);
    CNCodecBuffer* temps[4] = {};
    int used = 0;
    auto take = [&](int code, int w, int h, Format* f) -> CNCodecBuffer* {
        if (used == 4) return nullptr;
        CNCodecBuffer* b = render->AllocateCodecBufferAlone(code, w, h, f, 0, nullptr);
        if (b) temps[used++] = b;
        return b;
    };
    const int rotation = FrameRotation(frame->uFlags);
    const int w = cur.nRectRight - cur.nRectLeft, h = cur.nRectBottom - cur.nRectTop;
    int planar = 0;
    if (sub >= VIDEO_FORMAT_IYUV && sub <= VIDEO_FORMAT_NV12)
        planar = VIDEO_FORMAT_YUV420;
    else if (sub >= VIDEO_FORMAT_YUY2 && sub <= VIDEO_FORMAT_VYUY)
        planar = rotation != 3 ? VIDEO_FORMAT_YUV444 : VIDEO_FORMAT_YUV422;
    else if (sub == VIDEO_FORMAT_AYUV || cur.nCodecType == VIDEO_TYPE_RGB)
        planar = VIDEO_FORMAT_YUV444;
    CNCodecBuffer* pic = frame->pData;
    int ok = 1;
    if (planar) {
        Format f;
        CNCodecBuffer* b = take(planar, w, h, &f);
        ok = b &&
             (cur.nCodecType == VIDEO_TYPE_RGB
                  ? CNVideoProcessor::ConvertFromRGB(
                        pic, b, &cur, &f,
                        const_cast<CNVideoProcessor::ConvertConfigTag*>(&kNeutralConvert), 1, level)
                  : CNVideoProcessor::ConvertFromYUV(
                        pic, b, &cur, &f,
                        const_cast<CNVideoProcessor::ConvertConfigTag*>(&kNeutralConvert), 1,
                        level));
        pic = b;
        cur = f;
    }
    if (ok && (frame->uFlags & kFrameDeinterlace)) {
        Format f;
        CNCodecBuffer* b = take(cur.nCodecSubType, w, h, &f);
        ok = b && CNVideoProcessor::DeInterlacedYUV(pic, b, &cur, &f, 1, level);
        pic = b;
        cur = f;
    }
    if (ok && rotation != 3 && cur.nCodecSubType == VIDEO_FORMAT_YUV422) {
        Format f;
        CNCodecBuffer* b = take(VIDEO_FORMAT_YUV444, w, h, &f);
        ok = b && CNVideoProcessor::ConvertYUV(pic, b, &cur, &f, 1, level);
        pic = b;
        cur = f;
    }
    if (ok && rotation != 3) {
        const bool swap = rotation == 0 || rotation == 2;
        Format f;
        CNCodecBuffer* b = take(cur.nCodecSubType, swap ? h : w, swap ? w : h, &f);
        ok = b && CNVideoProcessor::RotateYUV(pic, b, &cur, &f, rotation, 1, level);
        pic = b;
        cur = f;
    }
    if (ok)
        ok = CNVideoProcessor::ConvertToYUV(pic, out, &cur, outFormat, &frame->stConvert, 1, level);
    for (int i = 0; i < used; ++i) temps[i]->Release();
    return ok;
}
