// The objects of the software DirectDraw: the device (one per monitor), its
// surfaces and clippers. Every method runs under the layer's lock.
#pragma once

#include <cstdint>

#include "platform/ddraw/dd_internal.h"
#include "platform/ddraw/dd_pixels.h"

namespace nplat::dd {

class Clipper final : public IDirectDrawClipper {
  public:
    Clipper();
    ~Clipper() override;
    HRESULT SetHWnd(DWORD flags, HWND window) override;
    HRESULT GetHWnd(HWND* window) override;
    HWND window = nullptr;
};

class Device;

class Surface final : public SurfaceBase {
  public:
    enum class Role { kPrimary, kOffscreen, kOverlay };

    Surface(Device* device, Role role, Layout layout, int width, int height);
    ~Surface() override;
    bool Allocate();  // pixel memory for off-screen and overlay surfaces

    HRESULT Lock(RECT* rect, DDSURFACEDESC2* desc, DWORD flags, HANDLE event) override;
    HRESULT Unlock(RECT* rect) override;
    HRESULT Blt(RECT* dstRect, IDirectDrawSurface* src, RECT* srcRect, DWORD flags,
                DDBLTFX* fx) override;
    HRESULT IsLost() override;
    HRESULT Restore() override;
    HRESULT GetPixelFormat(DDPIXELFORMAT* format) override;
    HRESULT GetSurfaceDesc(DDSURFACEDESC2* desc) override;
    HRESULT SetClipper(IDirectDrawClipper* clipper) override;
    HRESULT GetClipper(IDirectDrawClipper** clipper) override;
    HRESULT UpdateOverlay(RECT* srcRect, IDirectDrawSurface* dst, RECT* dstRect, DWORD flags,
                          DDOVERLAYFX* fx) override;
    HRESULT GetDC(HDC* dc) override;
    HRESULT ReleaseDC(HDC dc) override;
    void MarkLost() override;

  private:
    Layout CurrentLayout() const;  // the screen's for a primary
    int Width() const;
    int Height() const;
    bool MonitorRect(RECT* out) const;
    void FillDesc(DDSURFACEDESC2* desc) const;
    HRESULT BltFrom(const RECT& d, Surface* src, const RECT& s);
    // Writes rgb rows (d's size) or a fill value into the clipper's window.
    HRESULT WritePrimary(const RECT& d, const uint32_t* rgb, uint32_t fill);
    void WriteOffscreen(const RECT& d, const uint32_t* rgb, uint32_t fill, bool isFill);
    HRESULT ShowOverlay();
    void HideOverlay();

    Device* const m_device;
    const Role m_role;
    const Layout m_layout;
    const int m_width, m_height;
    int m_pitch = 0;
    uint8_t* m_bits = nullptr;
    bool m_lost = false;
    bool m_locked = false;
    HDC m_dc = nullptr;
    Clipper* m_clipper = nullptr;

    // Overlay shown: where, and through which key.
    bool m_shown = false;
    HWND m_target = nullptr;
    Surface* m_overlayDst = nullptr;  // referenced while shown
    RECT m_overlaySrc{}, m_overlayDstRect{};
    bool m_keyed = false;
    uint32_t m_key = 0;
};

class Device final : public IDirectDraw4 {
  public:
    explicit Device(HMONITOR monitor);
    ~Device() override;
    HRESULT QueryInterface(const GUID& iid, void** out) override;
    HRESULT SetCooperativeLevel(HWND window, DWORD flags) override;
    HRESULT GetCaps(DDCAPS* driverCaps, DDCAPS* emulationCaps) override;
    HRESULT GetFourCCCodes(DWORD* count, DWORD* codes) override;
    HRESULT CreateSurface(DDSURFACEDESC2* desc, IDirectDrawSurface** surface, void* outer) override;
    HRESULT CreateClipper(DWORD flags, IDirectDrawClipper** clipper, void* outer) override;
    HRESULT TestCooperativeLevel() override;

    const HMONITOR monitor;
    Surface* primary = nullptr;  // not referenced; cleared by the primary itself

  private:
    bool m_cooperative = false;
};

}  // namespace nplat::dd
