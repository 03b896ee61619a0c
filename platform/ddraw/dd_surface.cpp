// Surfaces and clippers of the software DirectDraw.
//
// A primary surface owns no pixels: it is its monitor's part of the screen,
// and what is written to it through a clipper lands in the clipper window's
// client pixels (monitor -> screen -> client coordinates, clipped to the
// client area, the monitor and what of the window is in view). Off-screen and
// overlay surfaces keep their pixels in the library heap. Every copy goes
// through 32-bit RGB unless source and destination share layout and size,
// which copies bytes, so a 16-bit value survives a blit exactly.
//
// Not here: reading back the primary (Lock, or Blt from it), source keys,
// Blt into FOURCC layouts other than a whole-surface copy of the same layout.
#include "platform/ddraw/dd_surface.h"

#include <cstring>

#include "ncodecbase/gdi_text.h"
#include "platform/kernel/heap.h"
#include "platform/window/window.h"
#include "platform/window/window_internal.h"

namespace nplat::dd {
namespace {

bool Inside(const RECT& r, int width, int height) {
    return r.left >= 0 && r.top >= 0 && r.right <= width && r.bottom <= height &&
           r.left < r.right && r.top < r.bottom;
}

// Heap rows of 0x00RRGGBB, freed with the holder.
struct RgbBuffer {
    explicit RgbBuffer(size_t pixels)
        : data(static_cast<uint32_t*>(HeapAlloc(pixels * sizeof(uint32_t)))) {}
    ~RgbBuffer() { HeapFree(data); }
    RgbBuffer(const RgbBuffer&) = delete;
    RgbBuffer& operator=(const RgbBuffer&) = delete;
    uint32_t* data;
};

uint32_t KeyMask(Layout layout) {
    return layout == Layout::kRGB565 || layout == Layout::kRGB555 ? 0xFFFF : 0xFFFFFF;
}

}  // namespace

// ---- clipper ----

Clipper::Clipper() { CountObject(1); }
Clipper::~Clipper() { CountObject(-1); }

HRESULT Clipper::SetHWnd(DWORD flags, HWND hwnd) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kSetHWnd);
    if (FAILED(hr)) return hr;
    if (flags != 0 || (hwnd && !IsWindow(hwnd))) return DDERR_INVALIDPARAMS;
    window = hwnd;
    return DD_OK;
}

HRESULT Clipper::GetHWnd(HWND* hwnd) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    if (!hwnd) return DDERR_INVALIDPARAMS;
    *hwnd = window;
    return DD_OK;
}

// ---- surface ----

Surface::Surface(Device* device, Role role, Layout layout, int width, int height)
    : m_device(device), m_role(role), m_layout(layout), m_width(width), m_height(height) {
    m_device->AddRef();
    AddLiveSurface(this);
    CountObject(1);
}

Surface::~Surface() {
    HideOverlay();
    if (m_dc) DeleteSurfaceDC(m_dc);
    if (m_clipper) m_clipper->Release();
    if (m_device->primary == this) m_device->primary = nullptr;
    HeapFree(m_bits);
    RemoveLiveSurface(this);
    CountObject(-1);
    m_device->Release();
}

bool Surface::Allocate() {
    if (m_role == Role::kPrimary) return true;
    m_pitch = PitchOf(m_layout, m_width);
    m_bits = static_cast<uint8_t*>(HeapAlloc(BytesOf(m_layout, m_pitch, m_height)));
    if (!m_bits) return false;
    FillBlack(m_layout, m_bits, m_pitch, m_width, m_height);
    return true;
}

Layout Surface::CurrentLayout() const {
    return m_role == Role::kPrimary ? LayoutFromScreen(GetScreenFormat()) : m_layout;
}

bool Surface::MonitorRect(RECT* out) const {
    MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
    if (!GetMonitorInfoA(m_device->monitor, &info)) return false;
    *out = info.rcMonitor;
    return true;
}

int Surface::Width() const {
    RECT m;
    if (m_role != Role::kPrimary) return m_width;
    return MonitorRect(&m) ? m.right - m.left : 0;
}

int Surface::Height() const {
    RECT m;
    if (m_role != Role::kPrimary) return m_height;
    return MonitorRect(&m) ? m.bottom - m.top : 0;
}

void Surface::FillDesc(DDSURFACEDESC2* desc) const {
    std::memset(desc, 0, sizeof(*desc));
    desc->dwSize = sizeof(DDSURFACEDESC2);
    desc->dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
    desc->dwWidth = static_cast<DWORD>(Width());
    desc->dwHeight = static_cast<DWORD>(Height());
    DescribeLayout(CurrentLayout(), &desc->ddpfPixelFormat);
    desc->ddsCaps.dwCaps = m_role == Role::kPrimary   ? DDSCAPS_PRIMARYSURFACE
                           : m_role == Role::kOverlay ? DDSCAPS_OVERLAY | DDSCAPS_VIDEOMEMORY
                                                      : DDSCAPS_OFFSCREENPLAIN;
    if (m_role != Role::kPrimary) {
        desc->dwFlags |= DDSD_PITCH;
        desc->lPitch = m_pitch;
    }
}

HRESULT Surface::Lock(RECT* rect, DDSURFACEDESC2* desc, DWORD /*flags*/, HANDLE /*event*/) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kLock);
    if (FAILED(hr)) return hr;
    if (!desc || desc->dwSize < sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    if (m_role == Role::kPrimary) return DDERR_UNSUPPORTED;
    if (m_lost) return DDERR_SURFACELOST;
    if (m_locked) return DDERR_SURFACEBUSY;
    size_t offset = 0;
    if (rect) {
        if (!Inside(*rect, m_width, m_height)) return DDERR_INVALIDRECT;
        if (IsPlanar420(m_layout)) {
            if (rect->left || rect->top || rect->right != m_width || rect->bottom != m_height) {
                return DDERR_INVALIDRECT;
            }
        } else {
            DDPIXELFORMAT pf;
            DescribeLayout(m_layout, &pf);
            offset = static_cast<size_t>(rect->top) * m_pitch +
                     static_cast<size_t>(rect->left) * pf.dwRGBBitCount / 8;
        }
    }
    FillDesc(desc);
    desc->dwFlags |= DDSD_LPSURFACE;
    desc->lpSurface = m_bits + offset;
    m_locked = true;
    return DD_OK;
}

HRESULT Surface::Unlock(RECT* /*rect*/) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kUnlock);
    if (FAILED(hr)) return hr;
    if (!m_locked || m_dc) return DDERR_NOTLOCKED;
    m_locked = false;
    // A shown overlay displays what was just written.
    if (m_shown) ShowOverlay();
    return DD_OK;
}

HRESULT Surface::Blt(RECT* dstRect, IDirectDrawSurface* srcInterface, RECT* srcRect, DWORD flags,
                     DDBLTFX* fx) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kBlt);
    if (FAILED(hr)) return hr;
    if (m_lost) return DDERR_SURFACELOST;
    if (m_locked) return DDERR_SURFACEBUSY;
    const RECT d = dstRect ? *dstRect : RECT{0, 0, Width(), Height()};
    if (!Inside(d, Width(), Height())) return DDERR_INVALIDRECT;
    if (flags & DDBLT_COLORFILL) {
        if (!fx || fx->dwSize < sizeof(DDBLTFX)) return DDERR_INVALIDPARAMS;
        const Layout layout = CurrentLayout();
        if (IsFourCC(layout)) return DDERR_UNSUPPORTED;
        const uint32_t value =
            fx->dwFillColor & (layout == Layout::kRGB32 ? 0xFFFFFFFF : KeyMask(layout));
        if (m_role == Role::kPrimary) return WritePrimary(d, nullptr, value);
        WriteOffscreen(d, nullptr, value, true);
        return DD_OK;
    }
    auto* src = static_cast<Surface*>(srcInterface);
    if (!src) return DDERR_INVALIDPARAMS;
    if (src->m_lost) return DDERR_SURFACELOST;
    if (src->m_locked && src != this) return DDERR_SURFACEBUSY;
    if (src->m_role == Role::kPrimary) return DDERR_UNSUPPORTED;
    const RECT s = srcRect ? *srcRect : RECT{0, 0, src->m_width, src->m_height};
    if (!Inside(s, src->m_width, src->m_height)) return DDERR_INVALIDRECT;
    return BltFrom(d, src, s);
}

HRESULT Surface::BltFrom(const RECT& d, Surface* src, const RECT& s) {
    const int dw = d.right - d.left, dh = d.bottom - d.top;
    const int sw = s.right - s.left, sh = s.bottom - s.top;
    if (IsFourCC(m_layout) && m_role != Role::kPrimary) {
        // Same layout, whole surface, same size: a plain copy of the planes.
        if (src->m_layout != m_layout || src->m_width != m_width || src->m_height != m_height ||
            sw != m_width || sh != m_height || dw != m_width || dh != m_height) {
            return DDERR_UNSUPPORTED;
        }
        if (src != this) std::memcpy(m_bits, src->m_bits, BytesOf(m_layout, m_pitch, m_height));
        return DD_OK;
    }
    if (m_role != Role::kPrimary && src->m_layout == m_layout && sw == dw && sh == dh &&
        src != this) {
        DDPIXELFORMAT pf;
        DescribeLayout(m_layout, &pf);
        const size_t bytes = pf.dwRGBBitCount / 8;
        for (int y = 0; y < dh; ++y) {
            std::memmove(
                m_bits + static_cast<size_t>(d.top + y) * m_pitch + d.left * bytes,
                src->m_bits + static_cast<size_t>(s.top + y) * src->m_pitch + s.left * bytes,
                static_cast<size_t>(dw) * bytes);
        }
        return DD_OK;
    }
    RgbBuffer read(static_cast<size_t>(sw) * sh);
    if (!read.data) return DDERR_OUTOFMEMORY;
    ReadRGB(src->m_layout, src->m_bits, src->m_pitch, src->m_height, s, read.data);
    const uint32_t* rows = read.data;
    RgbBuffer scaled(sw == dw && sh == dh ? 0 : static_cast<size_t>(dw) * dh);
    if (sw != dw || sh != dh) {
        if (!scaled.data) return DDERR_OUTOFMEMORY;
        Stretch(read.data, sw, sh, scaled.data, dw, dh);
        rows = scaled.data;
    }
    if (m_role == Role::kPrimary) return WritePrimary(d, rows, 0);
    WriteOffscreen(d, rows, 0, false);
    return DD_OK;
}

void Surface::WriteOffscreen(const RECT& d, const uint32_t* rgb, uint32_t fill, bool isFill) {
    ScreenFormat format;
    ScreenFromLayout(m_layout, &format);
    const int bytes = ScreenFormatBytes(format);
    const int w = d.right - d.left;
    for (int y = d.top; y < d.bottom; ++y) {
        uint8_t* row =
            m_bits + static_cast<size_t>(y) * m_pitch + static_cast<size_t>(d.left) * bytes;
        if (!isFill) {
            RowToScreen(format, rgb + static_cast<size_t>(y - d.top) * w, row, w);
            continue;
        }
        for (int x = 0; x < w; ++x) WriteScreenValue(format, row + x * bytes, fill);
    }
}

HRESULT Surface::WritePrimary(const RECT& d, const uint32_t* rgb, uint32_t fill) {
    // Without a clipper the pixels fall on the desktop, which nothing keeps.
    HWND window = m_clipper ? m_clipper->window : nullptr;
    RECT monitor;
    if (!window) return DD_OK;
    if (!MonitorRect(&monitor)) return DDERR_SURFACELOST;
    POINT origin{0, 0};
    if (!ClientToScreen(window, &origin)) return DDERR_INVALIDOBJECT;
    const int dx = monitor.left - origin.x, dy = monitor.top - origin.y;  // monitor -> client
    const RECT target{d.left + dx, d.top + dy, d.right + dx, d.bottom + dy};
    ClientPixels cp;
    if (!LockClientPixels(window, &cp)) return DDERR_INVALIDOBJECT;
    const RECT monitorClient{monitor.left - origin.x, monitor.top - origin.y,
                             monitor.right - origin.x, monitor.bottom - origin.y};
    RECT r;
    if (!cp.visible || !IntersectRect(&r, &target, &monitorClient) ||
        !ClipToSize(&r, cp.width, cp.height)) {
        UnlockClientPixels(window, nullptr);
        return DD_OK;
    }
    const int bytes = ScreenFormatBytes(cp.format);
    const int w = d.right - d.left;
    const bool covered = !IsRectEmpty(&cp.covered);
    for (int y = r.top; y < r.bottom; ++y) {
        uint8_t* row = cp.bits + static_cast<size_t>(y) * cp.pitch;
        const uint32_t* in = rgb ? rgb + static_cast<size_t>(y - target.top) * w : nullptr;
        const bool rowCovered = covered && y >= cp.covered.top && y < cp.covered.bottom;
        for (int x = r.left; x < r.right; ++x) {
            if (rowCovered && x >= cp.covered.left && x < cp.covered.right) continue;
            const uint32_t value = in ? ScreenValueFromRGB(cp.format, in[x - target.left]) : fill;
            WriteScreenValue(cp.format, row + static_cast<size_t>(x) * bytes, value);
        }
    }
    UnlockClientPixels(window, &r);
    return DD_OK;
}

HRESULT Surface::IsLost() {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kIsLost);
    if (FAILED(hr)) return hr;
    return m_lost ? DDERR_SURFACELOST : DD_OK;
}

HRESULT Surface::Restore() {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kRestore);
    if (FAILED(hr)) return hr;
    if (m_lost && m_bits) FillBlack(m_layout, m_bits, m_pitch, m_width, m_height);
    m_lost = false;
    return DD_OK;
}

void Surface::MarkLost() {
    m_lost = true;
    // A lost overlay vanishes from the window at once, but keeps its
    // reference to the primary until it is hidden or released: a forced loss
    // walks the surface list and must not free surfaces under it.
    if (m_target) SetClientOverlay(m_target, {}, nullptr, 0, false, 0);
    m_target = nullptr;
}

HRESULT Surface::GetPixelFormat(DDPIXELFORMAT* format) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kGetPixelFormat);
    if (FAILED(hr)) return hr;
    if (!format) return DDERR_INVALIDPARAMS;
    DescribeLayout(CurrentLayout(), format);
    return DD_OK;
}

HRESULT Surface::GetSurfaceDesc(DDSURFACEDESC2* desc) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    if (!desc || desc->dwSize < sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    FillDesc(desc);
    return DD_OK;
}

HRESULT Surface::SetClipper(IDirectDrawClipper* clipper) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kSetClipper);
    if (FAILED(hr)) return hr;
    if (clipper) clipper->AddRef();
    if (m_clipper) m_clipper->Release();
    m_clipper = static_cast<Clipper*>(clipper);
    return DD_OK;
}

HRESULT Surface::GetClipper(IDirectDrawClipper** clipper) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    if (!clipper) return DDERR_INVALIDPARAMS;
    if (!m_clipper) return DDERR_NOCLIPPERATTACHED;
    m_clipper->AddRef();
    *clipper = m_clipper;
    return DD_OK;
}

HRESULT Surface::UpdateOverlay(RECT* srcRect, IDirectDrawSurface* dstInterface, RECT* dstRect,
                               DWORD flags, DDOVERLAYFX* fx) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kUpdateOverlay);
    if (FAILED(hr)) return hr;
    if (m_role != Role::kOverlay) return DDERR_NOTAOVERLAYSURFACE;
    if (flags & DDOVER_HIDE) {
        HideOverlay();
        return DD_OK;
    }
    if (!(flags & DDOVER_SHOW)) return DDERR_INVALIDPARAMS;
    auto* dst = static_cast<Surface*>(dstInterface);
    if (!dst || dst->m_role != Role::kPrimary) return DDERR_INVALIDPARAMS;
    if (m_lost || dst->m_lost) return DDERR_SURFACELOST;
    const bool keyed = (flags & DDOVER_KEYDESTOVERRIDE) != 0;
    if (keyed && (!fx || fx->dwSize < sizeof(DDOVERLAYFX))) return DDERR_INVALIDPARAMS;
    const RECT s = srcRect ? *srcRect : RECT{0, 0, m_width, m_height};
    const RECT d = dstRect ? *dstRect : RECT{0, 0, dst->Width(), dst->Height()};
    if (!Inside(s, m_width, m_height) || IsRectEmpty(&d)) return DDERR_INVALIDRECT;
    HideOverlay();
    dst->AddRef();
    m_overlayDst = dst;
    m_target = dst->m_clipper ? dst->m_clipper->window : nullptr;
    m_overlaySrc = s;
    m_overlayDstRect = d;
    m_keyed = keyed;
    m_key = keyed ? fx->dckDestColorkey.dwColorSpaceLowValue & KeyMask(dst->CurrentLayout()) : 0;
    m_shown = true;
    hr = ShowOverlay();
    if (FAILED(hr)) HideOverlay();
    return hr;
}

HRESULT Surface::ShowOverlay() {
    // Shown on the desktop only: nothing keeps it.
    if (!m_target) return DD_OK;
    RECT monitor;
    POINT origin{0, 0};
    if (!m_overlayDst->MonitorRect(&monitor)) return DDERR_SURFACELOST;
    if (!ClientToScreen(m_target, &origin)) return DDERR_INVALIDOBJECT;
    const int dx = monitor.left - origin.x, dy = monitor.top - origin.y;
    const RECT& d = m_overlayDstRect;
    const RECT& s = m_overlaySrc;
    const int dw = d.right - d.left, dh = d.bottom - d.top;
    const int sw = s.right - s.left, sh = s.bottom - s.top;
    RgbBuffer read(static_cast<size_t>(sw) * sh);
    RgbBuffer scaled(static_cast<size_t>(dw) * dh);
    if (!read.data || !scaled.data) return DDERR_OUTOFMEMORY;
    ReadRGB(m_layout, m_bits, m_pitch, m_height, s, read.data);
    Stretch(read.data, sw, sh, scaled.data, dw, dh);
    const RECT client{d.left + dx, d.top + dy, d.right + dx, d.bottom + dy};
    if (!SetClientOverlay(m_target, client, scaled.data, dw * 4, m_keyed, m_key)) {
        return DDERR_OUTOFMEMORY;
    }
    return DD_OK;
}

void Surface::HideOverlay() {
    if (!m_shown) return;
    if (m_target) SetClientOverlay(m_target, {}, nullptr, 0, false, 0);
    m_shown = false;
    m_target = nullptr;
    Surface* dst = m_overlayDst;
    m_overlayDst = nullptr;
    if (dst) dst->Release();
}

HRESULT Surface::GetDC(HDC* dc) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    HRESULT hr = Enter(ddtest::Call::kGetDC);
    if (FAILED(hr)) return hr;
    if (!dc) return DDERR_INVALIDPARAMS;
    if (m_role == Role::kPrimary || m_layout != Layout::kRGB32) return DDERR_CANTCREATEDC;
    if (m_lost) return DDERR_SURFACELOST;
    if (m_locked) return DDERR_SURFACEBUSY;
    m_dc = CreateSurfaceDC(m_bits, m_width, m_height, m_pitch);
    if (!m_dc) return DDERR_CANTCREATEDC;
    m_locked = true;
    *dc = m_dc;
    return DD_OK;
}

HRESULT Surface::ReleaseDC(HDC dc) {
    std::lock_guard<std::recursive_mutex> lock(LayerLock());
    if (!m_dc || dc != m_dc) return DDERR_NODC;
    DeleteSurfaceDC(m_dc);
    m_dc = nullptr;
    m_locked = false;
    if (m_shown) ShowOverlay();
    return DD_OK;
}

}  // namespace nplat::dd
