// A software DirectDraw for the video render: enumeration of display
// devices, device caps and FOURCC lists, primary, off-screen and overlay
// surfaces in RGB or FOURCC layouts, stretch and colour-fill Blt, clippers
// bound to a window, an overlay shown through a destination colour key, lost
// surfaces with Restore, and DCs on surfaces for text.
//
// Why this shape: the render's DirectDraw back-end was written against these
// calls, so it reads line by line. Everything lives in memory: the primary
// surface of a device is its monitor's part of the screen, and a Blt onto it
// through a clipper bound to a window lands in that window's client pixels
// (window.h), which a memory window keeps and an X11 window scans out. The
// overlay is converted to RGB and handed to the window, which shows it where
// its client pixels equal the destination key.
//
// Not here: exclusive mode, flipping chains, palettes, attached surfaces,
// Z buffers, BltFast, source colour keys, raster operations, locking the
// primary surface (DDERR_UNSUPPORTED), Blt into a FOURCC surface other than
// a same-size copy of the same format.
//
// Thread safety: every function and method may be called from any thread;
// one process-wide lock serialises them. Objects are reference counted;
// Release of the last reference frees.
#pragma once

#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

using ULONG = uint32_t;

// ---- results (Windows' values) ----

constexpr HRESULT MAKE_DDHRESULT(uint32_t code) { return static_cast<HRESULT>(0x88760000u | code); }
constexpr HRESULT DD_OK = 0;
constexpr HRESULT DD_FALSE = S_FALSE;
constexpr HRESULT DDERR_GENERIC = E_FAIL;
constexpr HRESULT DDERR_INVALIDPARAMS = E_INVALIDARG;
constexpr HRESULT DDERR_OUTOFMEMORY = E_OUTOFMEMORY;
constexpr HRESULT DDERR_UNSUPPORTED = static_cast<HRESULT>(0x80004001u);  // E_NOTIMPL
constexpr HRESULT DDERR_INVALIDCAPS = MAKE_DDHRESULT(100);
constexpr HRESULT DDERR_INVALIDOBJECT = MAKE_DDHRESULT(130);
constexpr HRESULT DDERR_INVALIDPIXELFORMAT = MAKE_DDHRESULT(145);
constexpr HRESULT DDERR_INVALIDRECT = MAKE_DDHRESULT(150);
constexpr HRESULT DDERR_NOCOOPERATIVELEVELSET = MAKE_DDHRESULT(212);
constexpr HRESULT DDERR_NOOVERLAYHW = MAKE_DDHRESULT(260);
constexpr HRESULT DDERR_SURFACEBUSY = MAKE_DDHRESULT(430);
constexpr HRESULT DDERR_SURFACELOST = MAKE_DDHRESULT(450);
constexpr HRESULT DDERR_INVALIDDIRECTDRAWGUID = MAKE_DDHRESULT(561);
constexpr HRESULT DDERR_PRIMARYSURFACEALREADYEXISTS = MAKE_DDHRESULT(564);
constexpr HRESULT DDERR_NOCLIPPERATTACHED = MAKE_DDHRESULT(568);
constexpr HRESULT DDERR_NOHWND = MAKE_DDHRESULT(569);
constexpr HRESULT DDERR_NOTAOVERLAYSURFACE = MAKE_DDHRESULT(580);
constexpr HRESULT DDERR_NOTLOCKED = MAKE_DDHRESULT(584);
constexpr HRESULT DDERR_CANTCREATEDC = MAKE_DDHRESULT(585);
constexpr HRESULT DDERR_NODC = MAKE_DDHRESULT(586);
constexpr HRESULT DDERR_WRONGMODE = MAKE_DDHRESULT(587);

// ---- flags ----

constexpr DWORD DDENUM_ATTACHEDSECONDARYDEVICES = 0x1;
constexpr DWORD DDSCL_NORMAL = 0x8;

constexpr DWORD DDCAPS_BLT = 0x40;
constexpr DWORD DDCAPS_BLTFOURCC = 0x100;
constexpr DWORD DDCAPS_BLTSTRETCH = 0x200;
constexpr DWORD DDCAPS_OVERLAY = 0x800;
constexpr DWORD DDCAPS_OVERLAYFOURCC = 0x2000;
constexpr DWORD DDCAPS_OVERLAYSTRETCH = 0x4000;
constexpr DWORD DDCAPS_COLORKEY = 0x400000;
constexpr DWORD DDCAPS_BLTCOLORFILL = 0x4000000;
constexpr DWORD DDCAPS_CANBLTSYSMEM = 0x80000000u;

constexpr DWORD DDSD_CAPS = 0x1;
constexpr DWORD DDSD_HEIGHT = 0x2;
constexpr DWORD DDSD_WIDTH = 0x4;
constexpr DWORD DDSD_PITCH = 0x8;
constexpr DWORD DDSD_LPSURFACE = 0x800;
constexpr DWORD DDSD_PIXELFORMAT = 0x1000;

constexpr DWORD DDSCAPS_OFFSCREENPLAIN = 0x40;
constexpr DWORD DDSCAPS_OVERLAY = 0x80;
constexpr DWORD DDSCAPS_PRIMARYSURFACE = 0x200;
constexpr DWORD DDSCAPS_SYSTEMMEMORY = 0x800;
constexpr DWORD DDSCAPS_VIDEOMEMORY = 0x4000;

constexpr DWORD DDPF_ALPHAPIXELS = 0x1;
constexpr DWORD DDPF_FOURCC = 0x4;
constexpr DWORD DDPF_RGB = 0x40;
constexpr DWORD DDPF_YUV = 0x200;

constexpr DWORD DDLOCK_WAIT = 0x1;
constexpr DWORD DDLOCK_READONLY = 0x10;
constexpr DWORD DDLOCK_WRITEONLY = 0x20;
constexpr DWORD DDLOCK_NOSYSLOCK = 0x800;

constexpr DWORD DDBLT_COLORFILL = 0x400;
constexpr DWORD DDBLT_DDFX = 0x800;
constexpr DWORD DDBLT_WAIT = 0x1000000;

constexpr DWORD DDOVER_HIDE = 0x200;
constexpr DWORD DDOVER_KEYDEST = 0x400;
constexpr DWORD DDOVER_KEYDESTOVERRIDE = 0x800;
constexpr DWORD DDOVER_SHOW = 0x4000;
constexpr DWORD DDOVER_DDFX = 0x80000;

// ---- structures ----

struct DDCOLORKEY {
    DWORD dwColorSpaceLowValue;
    DWORD dwColorSpaceHighValue;
};

struct DDPIXELFORMAT {
    DWORD dwSize;  // sizeof(DDPIXELFORMAT)
    DWORD dwFlags;
    DWORD dwFourCC;
    union {
        DWORD dwRGBBitCount;
        DWORD dwYUVBitCount;
    };
    union {
        DWORD dwRBitMask;
        DWORD dwYBitMask;
    };
    union {
        DWORD dwGBitMask;
        DWORD dwUBitMask;
    };
    union {
        DWORD dwBBitMask;
        DWORD dwVBitMask;
    };
    union {
        DWORD dwRGBAlphaBitMask;
        DWORD dwYUVAlphaBitMask;
    };
};
static_assert(sizeof(DDPIXELFORMAT) == 32);

struct DDSCAPS2 {
    DWORD dwCaps;
    DWORD dwCaps2;
    DWORD dwCaps3;
    DWORD dwCaps4;
};

// Lock fills lpSurface and lPitch. FOURCC planes follow each other from
// lpSurface: YV12 Y, V, U; I420/IYUV Y, U, V (chroma pitch lPitch / 2);
// NV12 Y then interleaved UV at lPitch; packed formats one plane.
struct DDSURFACEDESC2 {
    DWORD dwSize;  // sizeof(DDSURFACEDESC2)
    DWORD dwFlags;
    DWORD dwHeight;
    DWORD dwWidth;
    union {
        LONG lPitch;
        DWORD dwLinearSize;
    };
    DWORD dwBackBufferCount;
    DWORD dwMipMapCount;
    DWORD dwAlphaBitDepth;
    DWORD dwReserved;
    void* lpSurface;
    DDCOLORKEY ddckCKDestOverlay;
    DDCOLORKEY ddckCKDestBlt;
    DDCOLORKEY ddckCKSrcOverlay;
    DDCOLORKEY ddckCKSrcBlt;
    DDPIXELFORMAT ddpfPixelFormat;
    DDSCAPS2 ddsCaps;
    DWORD dwTextureStage;
};

// The fields of the driver caps that this layer fills; dwSize must be at
// least sizeof(DDCAPS).
struct DDCAPS {
    DWORD dwSize;
    DWORD dwCaps;
    DWORD dwCaps2;
    DWORD dwCKeyCaps;
    DWORD dwFXCaps;
    DWORD dwNumFourCCCodes;
    DWORD dwMaxVisibleOverlays;
    DWORD dwCurrVisibleOverlays;
    DWORD dwVidMemTotal;
    DWORD dwVidMemFree;
};

struct DDBLTFX {
    DWORD dwSize;  // sizeof(DDBLTFX)
    DWORD dwDDFX;
    DWORD dwFillColor;  // a stored value of the destination's format
    DDCOLORKEY ddckDestColorkey;
    DDCOLORKEY ddckSrcColorkey;
};

struct DDOVERLAYFX {
    DWORD dwSize;  // sizeof(DDOVERLAYFX)
    DWORD dwDDFX;
    DDCOLORKEY dckDestColorkey;  // a stored value of the primary's format
    DDCOLORKEY dckSrcColorkey;
    DWORD dwFlags;
};

inline constexpr GUID IID_IDirectDraw = {
    0x6C14DB80, 0xA733, 0x11CE, {0xA5, 0x21, 0x00, 0x20, 0xAF, 0x0B, 0xE5, 0x60}};
inline constexpr GUID IID_IDirectDraw4 = {
    0x9C59509A, 0x39BD, 0x11D1, {0x8C, 0x4A, 0x00, 0xC0, 0x4F, 0xD9, 0x30, 0xC5}};

// ---- interfaces ----

class DDObject {
  public:
    ULONG AddRef();
    ULONG Release();

  protected:
    DDObject() = default;
    virtual ~DDObject() = default;

  private:
    int m_refs = 1;  // guarded by the layer's lock
};

class IDirectDrawClipper : public DDObject {
  public:
    // Binds the clipper to a window: Blts onto a primary through it land in
    // that window's client area. flags must be 0; a null window unbinds.
    virtual HRESULT SetHWnd(DWORD flags, HWND window) = 0;
    virtual HRESULT GetHWnd(HWND* window) = 0;
};

class IDirectDrawSurface : public DDObject {
  public:
    // rect null: the whole surface. DDERR_SURFACEBUSY when already locked.
    virtual HRESULT Lock(RECT* rect, DDSURFACEDESC2* desc, DWORD flags, HANDLE event) = 0;
    virtual HRESULT Unlock(RECT* rect) = 0;
    // Stretch copy (bilinear; FOURCC sources are converted to RGB) or, with
    // DDBLT_COLORFILL, a fill with fx->dwFillColor. Null rects mean whole
    // surfaces; rects must lie inside their surfaces. Onto a primary the
    // destination is clipped to its clipper's window.
    virtual HRESULT Blt(RECT* dstRect, IDirectDrawSurface* src, RECT* srcRect, DWORD flags,
                        DDBLTFX* fx) = 0;
    virtual HRESULT IsLost() = 0;   // DD_OK or DDERR_SURFACELOST
    virtual HRESULT Restore() = 0;  // contents become black
    virtual HRESULT GetPixelFormat(DDPIXELFORMAT* format) = 0;
    virtual HRESULT GetSurfaceDesc(DDSURFACEDESC2* desc) = 0;
    virtual HRESULT SetClipper(IDirectDrawClipper* clipper) = 0;  // primary only
    virtual HRESULT GetClipper(IDirectDrawClipper** clipper) = 0;
    // Overlay surfaces: shows (DDOVER_SHOW) srcRect of this surface stretched
    // to dstRect of `dst` (a primary, monitor coordinates), keyed with
    // fx->dckDestColorkey when DDOVER_KEYDESTOVERRIDE is set; or hides it.
    virtual HRESULT UpdateOverlay(RECT* srcRect, IDirectDrawSurface* dst, RECT* dstRect,
                                  DWORD flags, DDOVERLAYFX* fx) = 0;
    // A GDI-style DC on a 32-bit RGB surface (locks it until ReleaseDC).
    virtual HRESULT GetDC(HDC* dc) = 0;
    virtual HRESULT ReleaseDC(HDC dc) = 0;
};

class IDirectDraw : public DDObject {
  public:
    // IID_IDirectDraw and IID_IDirectDraw4 give this object (AddRef'd).
    virtual HRESULT QueryInterface(const GUID& iid, void** out) = 0;
    virtual HRESULT SetCooperativeLevel(HWND window, DWORD flags) = 0;
    // Either pointer may be null; the emulation caps are the same as the driver caps.
    virtual HRESULT GetCaps(DDCAPS* driverCaps, DDCAPS* emulationCaps) = 0;
    // codes null: *count receives the number of codes. Otherwise up to *count
    // codes are written and *count receives the number offered.
    virtual HRESULT GetFourCCCodes(DWORD* count, DWORD* codes) = 0;
    virtual HRESULT CreateSurface(DDSURFACEDESC2* desc, IDirectDrawSurface** surface,
                                  void* outer) = 0;
    virtual HRESULT CreateClipper(DWORD flags, IDirectDrawClipper** clipper, void* outer) = 0;
};

class IDirectDraw4 : public IDirectDraw {
  public:
    // DD_OK while surfaces can be restored; DDERR_WRONGMODE while a forced
    // mode change is pending (test control).
    virtual HRESULT TestCooperativeLevel() = 0;
};

// Called once per display device: first the primary display driver (null
// GUID, null monitor), then, with DDENUM_ATTACHEDSECONDARYDEVICES on a
// screen of two or more monitors, one entry per monitor with its own GUID.
// Return 0 to stop.
using LPDDENUMCALLBACKEXA = BOOL (*)(GUID* guid, char* description, char* name, void* context,
                                     HMONITOR monitor);
HRESULT DirectDrawEnumerateExA(LPDDENUMCALLBACKEXA callback, void* context, DWORD flags);
// A null GUID opens the device of the primary monitor.
HRESULT DirectDrawCreate(GUID* guid, IDirectDraw** out, void* outer);

// ---- test controls ----

namespace ddtest {

// The calls that can be counted and made to fail.
enum class Call {
    kEnumerate,
    kCreate,
    kSetCooperativeLevel,
    kGetCaps,
    kGetFourCCCodes,
    kCreateSurface,
    kCreateClipper,
    kSetHWnd,
    kSetClipper,
    kQueryInterface,
    kTestCooperativeLevel,
    kLock,
    kUnlock,
    kBlt,
    kIsLost,
    kRestore,
    kGetPixelFormat,
    kUpdateOverlay,
    kGetDC,
    kCount
};
const char* CallName(Call call);  // "Blt", "CreateSurface", ...
// Looks a call up by name; false for an unknown name.
bool CallByName(const char* name, Call* call);

// After `skip` successful calls, the next `count` calls return `result`
// (count -1: every one).
void FailCall(Call call, int skip, int count, HRESULT result = DDERR_GENERIC);
int CallCount(Call call);  // calls made since the last Reset

// Offered FOURCC codes (null/0: none). Default headless: YV12, NV12, YUY2,
// UYVY; on an X11 screen: none.
void SetOfferedFourCCs(const DWORD* codes, int count);
// The primary surface's pixel format is the screen's: SetScreenFormat
// (window.h) chooses RGB32, RGB565, RGB555 or RGB24.
// Driver caps. Default: BLT, BLTSTRETCH, CANBLTSYSMEM, BLTCOLORFILL,
// BLTFOURCC and, with FOURCCs, the overlay caps.
void SetCaps(DWORD caps);
// Every surface alive becomes lost (IsLost DDERR_SURFACELOST until Restore);
// TestCooperativeLevel returns DDERR_WRONGMODE for its next `wrongModeCalls`.
void ForceLoss(int wrongModeCalls = 0);
int LiveObjects();  // DirectDraw objects, surfaces and clippers not yet released
// Back to the defaults: no failures, counters zero, default FOURCCs and caps.
void Reset();

}  // namespace ddtest

}  // namespace nplat
