// Enumeration, device creation and the device object of the software
// DirectDraw.
//
// One device per monitor: the primary display driver (null GUID) is the
// primary monitor's, and with two or more monitors each gets an entry with a
// GUID of its own, the shape a multi-head Windows machine enumerates. Caps and
// FOURCCs come from the test controls (dd_controls.cpp).
//
// Not here: exclusive and full-screen cooperative levels, display modes,
// palettes, aggregation (outer must be null).
#include <cstdio>
#include <cstring>

#include "platform/ddraw/dd_surface.h"
#include "platform/kernel/heap.h"
#include "platform/window/window.h"

namespace nplat {

ULONG DDObject::AddRef() {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    return static_cast<ULONG>(++m_refs);
}

ULONG DDObject::Release() {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    const int left = --m_refs;
    if (left == 0) {
        // Every object was made by HeapNew of its final class, which derives
        // from this one alone, so its block starts at `this`.
        this->~DDObject();
        HeapFree(this);
    }
    return static_cast<ULONG>(left < 0 ? 0 : left);
}

namespace dd {
namespace {

constexpr int kMaxMonitors = 8;
constexpr uint32_t kGuidTag = 0x4E434244;  // "NCBD"

GUID MonitorGuid(int index) {
    return {kGuidTag, 0x4D4F, 0x4E49, {'T', 'O', 'R', 0, 0, 0, 0, static_cast<uint8_t>(index)}};
}

struct MonitorList {
    HMONITOR handles[kMaxMonitors];
    int count = 0;
    int primary = 0;
};

MonitorList ListMonitors() {
    MonitorList list;
    EnumDisplayMonitors(
        nullptr, nullptr,
        [](HMONITOR m, HDC, RECT*, LPARAM data) -> BOOL {
            auto* l = reinterpret_cast<MonitorList*>(data);
            MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
            if (GetMonitorInfoA(m, &info) && (info.dwFlags & MONITORINFOF_PRIMARY)) {
                l->primary = l->count;
            }
            l->handles[l->count++] = m;
            return l->count < kMaxMonitors;
        },
        reinterpret_cast<LPARAM>(&list));
    return list;
}

bool LayoutFromDesc(const DDSURFACEDESC2& desc, Layout* layout) {
    if (!(desc.dwFlags & DDSD_PIXELFORMAT)) {
        *layout = LayoutFromScreen(GetScreenFormat());
        return true;
    }
    const DDPIXELFORMAT& pf = desc.ddpfPixelFormat;
    if (pf.dwFlags & DDPF_FOURCC) return LayoutFromFourCC(pf.dwFourCC, layout);
    if (!(pf.dwFlags & DDPF_RGB)) return false;
    switch (pf.dwRGBBitCount) {
        case 32:
            *layout = Layout::kRGB32;
            return true;
        case 24:
            *layout = Layout::kRGB24;
            return true;
        case 16:
            if (pf.dwGBitMask == 0x7E0)
                *layout = Layout::kRGB565;
            else if (pf.dwGBitMask == 0x3E0)
                *layout = Layout::kRGB555;
            else
                return false;
            return true;
        default:
            return false;
    }
}

}  // namespace

Device::Device(HMONITOR m) : monitor(m) { CountObject(1); }
Device::~Device() { CountObject(-1); }

HRESULT Device::QueryInterface(const GUID& iid, void** out) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kQueryInterface);
    if (FAILED(hr)) return hr;
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    auto same = [&](const GUID& g) { return std::memcmp(&iid, &g, sizeof(GUID)) == 0; };
    if (!same(IID_IDirectDraw) && !same(IID_IDirectDraw4)) return E_NOINTERFACE;
    AddRef();
    *out = static_cast<IDirectDraw4*>(this);
    return DD_OK;
}

HRESULT Device::SetCooperativeLevel(HWND window, DWORD flags) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kSetCooperativeLevel);
    if (FAILED(hr)) return hr;
    if (flags != DDSCL_NORMAL) return DDERR_INVALIDPARAMS;
    if (window && !IsWindow(window)) return DDERR_INVALIDPARAMS;
    m_cooperative = true;
    return DD_OK;
}

HRESULT Device::GetCaps(DDCAPS* driverCaps, DDCAPS* emulationCaps) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kGetCaps);
    if (FAILED(hr)) return hr;
    if (!driverCaps && !emulationCaps) return DDERR_INVALIDPARAMS;
    for (DDCAPS* caps : {driverCaps, emulationCaps}) {
        if (!caps) continue;
        if (caps->dwSize < sizeof(DDCAPS)) return DDERR_INVALIDPARAMS;
        const DWORD size = caps->dwSize;
        std::memset(caps, 0, sizeof(DDCAPS));
        caps->dwSize = size;
        caps->dwCaps = Caps();
        DWORD codes[kMaxFourCC];
        caps->dwNumFourCCCodes = static_cast<DWORD>(OfferedFourCCs(codes));
        caps->dwMaxVisibleOverlays = (caps->dwCaps & DDCAPS_OVERLAY) ? 1 : 0;
        caps->dwVidMemTotal = caps->dwVidMemFree = 256u << 20;
    }
    return DD_OK;
}

HRESULT Device::GetFourCCCodes(DWORD* count, DWORD* codes) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kGetFourCCCodes);
    if (FAILED(hr)) return hr;
    if (!count) return DDERR_INVALIDPARAMS;
    DWORD offered[kMaxFourCC];
    const DWORD n = static_cast<DWORD>(OfferedFourCCs(offered));
    if (codes) std::memcpy(codes, offered, sizeof(DWORD) * (n < *count ? n : *count));
    *count = n;
    return DD_OK;
}

HRESULT Device::CreateSurface(DDSURFACEDESC2* desc, IDirectDrawSurface** out, void* outer) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kCreateSurface);
    if (FAILED(hr)) return hr;
    if (!desc || !out || outer || desc->dwSize < sizeof(DDSURFACEDESC2) ||
        !(desc->dwFlags & DDSD_CAPS)) {
        return DDERR_INVALIDPARAMS;
    }
    *out = nullptr;
    if (!m_cooperative) return DDERR_NOCOOPERATIVELEVELSET;
    const DWORD caps = desc->ddsCaps.dwCaps;
    if (caps & DDSCAPS_PRIMARYSURFACE) {
        if (primary) return DDERR_PRIMARYSURFACEALREADYEXISTS;
        auto* s = HeapNew<Surface>(this, Surface::Role::kPrimary, Layout::kRGB32, 0, 0);
        if (!s) return DDERR_OUTOFMEMORY;
        primary = s;
        *out = s;
        return DD_OK;
    }
    const bool overlay = (caps & DDSCAPS_OVERLAY) != 0;
    if (overlay && !(Caps() & DDCAPS_OVERLAY)) return DDERR_NOOVERLAYHW;
    if ((desc->dwFlags & (DDSD_WIDTH | DDSD_HEIGHT)) != (DDSD_WIDTH | DDSD_HEIGHT) ||
        desc->dwWidth < 1 || desc->dwHeight < 1 || desc->dwWidth > 16384 ||
        desc->dwHeight > 16384) {
        return DDERR_INVALIDPARAMS;
    }
    Layout layout;
    if (!LayoutFromDesc(*desc, &layout)) return DDERR_INVALIDPIXELFORMAT;
    if (IsFourCC(layout) && !IsOffered(FourCCOf(layout))) return DDERR_INVALIDPIXELFORMAT;
    if (overlay && !IsFourCC(layout)) return DDERR_INVALIDPIXELFORMAT;
    const int width = static_cast<int>(desc->dwWidth), height = static_cast<int>(desc->dwHeight);
    if (IsFourCC(layout) && ((width & 1) || (IsPlanar420(layout) && (height & 1)))) {
        return DDERR_INVALIDPARAMS;
    }
    auto* s = HeapNew<Surface>(this, overlay ? Surface::Role::kOverlay : Surface::Role::kOffscreen,
                               layout, width, height);
    if (!s) return DDERR_OUTOFMEMORY;
    if (!s->Allocate()) {
        s->Release();
        return DDERR_OUTOFMEMORY;
    }
    *out = s;
    return DD_OK;
}

HRESULT Device::CreateClipper(DWORD flags, IDirectDrawClipper** out, void* outer) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kCreateClipper);
    if (FAILED(hr)) return hr;
    if (!out || outer || flags) return DDERR_INVALIDPARAMS;
    auto* c = HeapNew<Clipper>();
    if (!c) return DDERR_OUTOFMEMORY;
    *out = c;
    return DD_OK;
}

HRESULT Device::TestCooperativeLevel() {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kTestCooperativeLevel);
    if (FAILED(hr)) return hr;
    return TakeWrongMode() ? DDERR_WRONGMODE : DD_OK;
}

}  // namespace dd

HRESULT DirectDrawEnumerateExA(LPDDENUMCALLBACKEXA callback, void* context, DWORD flags) {
    {
        std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
        HRESULT hr = dd::Enter(ddtest::Call::kEnumerate);
        if (FAILED(hr)) return hr;
    }
    if (!callback) return DDERR_INVALIDPARAMS;
    // The callback runs without the layer's lock: it may create devices.
    char description[] = "Primary Display Driver";
    char name[] = "display";
    if (!callback(nullptr, description, name, context, nullptr)) return DD_OK;
    const dd::MonitorList list = dd::ListMonitors();
    if (!(flags & DDENUM_ATTACHEDSECONDARYDEVICES) || list.count < 2) return DD_OK;
    for (int i = 0; i < list.count; ++i) {
        GUID guid = dd::MonitorGuid(i);
        char monitorDescription[32], monitorName[32];
        std::snprintf(monitorDescription, sizeof(monitorDescription), "Display %d", i + 1);
        std::snprintf(monitorName, sizeof(monitorName), "\\\\.\\DISPLAY%d", i + 1);
        if (!callback(&guid, monitorDescription, monitorName, context, list.handles[i])) break;
    }
    return DD_OK;
}

HRESULT DirectDrawCreate(GUID* guid, IDirectDraw** out, void* outer) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    HRESULT hr = dd::Enter(ddtest::Call::kCreate);
    if (FAILED(hr)) return hr;
    if (!out || outer) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    const dd::MonitorList list = dd::ListMonitors();
    if (list.count == 0) return DDERR_GENERIC;
    int index = list.primary;
    if (guid) {
        const GUID base = dd::MonitorGuid(0);
        index = guid->Data4[7];
        if (std::memcmp(guid, &base, 15) != 0 || index >= list.count) {
            return DDERR_INVALIDDIRECTDRAWGUID;
        }
    }
    auto* device = HeapNew<dd::Device>(list.handles[index]);
    if (!device) return DDERR_OUTOFMEMORY;
    *out = device;
    return DD_OK;
}

}  // namespace nplat
