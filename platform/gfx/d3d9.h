// The Direct3D 9Ex-shaped graphics device that the layered render draws
// with: the Direct3D object (adapter format queries, device creation on a
// window), the device (render states, samplers, shaders made from shader
// records, vertex buffers, triangle-strip draws, fills, stretch copies,
// read-back, presentation and device states), textures, surfaces and vertex
// buffers. The DXVA2 video processor lives in dxva2.h.
//
// Why this shape: the render's algorithms were written against these calls,
// so they read line by line. Names, argument orders, constant values and
// HRESULT codes are Windows' own. Direct3DCreate9Ex picks the implementation
// at run time (NCODEC_GFX: "soft", the default, is the software reference
// device); every implementation follows Direct3D 9's rules, including the
// pixel-centre convention (pixel centres sit on integer coordinates).
//
// Not here: the fixed-function pipeline beyond pass-through, depth and
// stencil buffers, index buffers, mipmap chains (textures have one level),
// cube and volume textures, multisampling, queries, state blocks, multiple
// render targets, full-screen modes, GDI interop (GetDC answers
// D3DERR_NOTAVAILABLE).
//
// Thread safety: a device and the objects it made are used by one thread at
// a time (the render holds its lock across every call); distinct devices may
// be used from different threads.
#pragma once

#include <atomic>
#include <cstdint>

#include "ncodecbase/win_types.h"

namespace nplat {

using ULONG = uint32_t;
using UINT = uint32_t;
using INT = int32_t;
using IID = GUID;
using D3DCOLOR = DWORD;  // 0xAARRGGBB

constexpr D3DCOLOR D3DCOLOR_ARGB(uint32_t a, uint32_t r, uint32_t g, uint32_t b) {
    return (a & 0xFF) << 24 | (r & 0xFF) << 16 | (g & 0xFF) << 8 | (b & 0xFF);
}
constexpr D3DCOLOR D3DCOLOR_XRGB(uint32_t r, uint32_t g, uint32_t b) {
    return D3DCOLOR_ARGB(0xFF, r, g, b);
}

// ---- result codes ----

constexpr HRESULT MakeD3DResult(uint32_t code) { return static_cast<HRESULT>(0x88760000u | code); }
constexpr HRESULT MakeD3DStatus(uint32_t code) { return static_cast<HRESULT>(0x08760000u | code); }
constexpr HRESULT D3D_OK = S_OK;
constexpr HRESULT D3DERR_OUTOFVIDEOMEMORY = MakeD3DResult(380);
constexpr HRESULT D3DERR_WASSTILLDRAWING = MakeD3DResult(540);
constexpr HRESULT D3DERR_NOTFOUND = MakeD3DResult(2150);
constexpr HRESULT D3DERR_MOREDATA = MakeD3DResult(2151);
constexpr HRESULT D3DERR_DEVICELOST = MakeD3DResult(2152);            // 0x88760868
constexpr HRESULT D3DERR_DEVICENOTRESET = MakeD3DResult(2153);        // 0x88760869
constexpr HRESULT D3DERR_NOTAVAILABLE = MakeD3DResult(2154);          // 0x8876086A
constexpr HRESULT D3DERR_INVALIDDEVICE = MakeD3DResult(2155);         // 0x8876086B
constexpr HRESULT D3DERR_INVALIDCALL = MakeD3DResult(2156);           // 0x8876086C
constexpr HRESULT D3DERR_DEVICEREMOVED = MakeD3DResult(2160);         // 0x88760870
constexpr HRESULT D3DERR_DEVICEHUNG = MakeD3DResult(2164);            // 0x88760874
constexpr HRESULT S_NOT_RESIDENT = MakeD3DStatus(2165);               // 0x08760875
constexpr HRESULT S_RESIDENT_IN_SHARED_MEMORY = MakeD3DStatus(2166);  // 0x08760876
constexpr HRESULT S_PRESENT_MODE_CHANGED = MakeD3DStatus(2167);       // 0x08760877
constexpr HRESULT S_PRESENT_OCCLUDED = MakeD3DStatus(2168);           // 0x08760878

// ---- enumerations (Windows' values) ----

enum D3DFORMAT : uint32_t {
    D3DFMT_UNKNOWN = 0,
    D3DFMT_R8G8B8 = 20,
    D3DFMT_A8R8G8B8 = 21,
    D3DFMT_X8R8G8B8 = 22,
    D3DFMT_R5G6B5 = 23,
    D3DFMT_X1R5G5B5 = 24,
    D3DFMT_A1R5G5B5 = 25,
    D3DFMT_L8 = 50,
    D3DFMT_A8L8 = 51,
    D3DFMT_D24S8 = 75,
    D3DFMT_UYVY = 0x59565955,  // MAKEFOURCC('U','Y','V','Y')
    D3DFMT_YUY2 = 0x32595559,  // MAKEFOURCC('Y','U','Y','2')
    D3DFMT_NV12 = 0x3231564E,  // MAKEFOURCC('N','V','1','2')
};

enum D3DPOOL : uint32_t {
    D3DPOOL_DEFAULT = 0,
    D3DPOOL_MANAGED = 1,
    D3DPOOL_SYSTEMMEM = 2,
    D3DPOOL_SCRATCH = 3,
};

enum D3DRESOURCETYPE : uint32_t {
    D3DRTYPE_SURFACE = 1,
    D3DRTYPE_VOLUME = 2,
    D3DRTYPE_TEXTURE = 3,
    D3DRTYPE_VOLUMETEXTURE = 4,
    D3DRTYPE_CUBETEXTURE = 5,
    D3DRTYPE_VERTEXBUFFER = 6,
    D3DRTYPE_INDEXBUFFER = 7,
};

enum D3DDEVTYPE : uint32_t { D3DDEVTYPE_HAL = 1, D3DDEVTYPE_REF = 2, D3DDEVTYPE_SW = 3 };

enum D3DMULTISAMPLE_TYPE : uint32_t { D3DMULTISAMPLE_NONE = 0 };

enum D3DSWAPEFFECT : uint32_t {
    D3DSWAPEFFECT_DISCARD = 1,
    D3DSWAPEFFECT_FLIP = 2,
    D3DSWAPEFFECT_COPY = 3,
    D3DSWAPEFFECT_OVERLAY = 4,
    D3DSWAPEFFECT_FLIPEX = 5,
};

enum D3DBACKBUFFER_TYPE : uint32_t { D3DBACKBUFFER_TYPE_MONO = 0 };

enum D3DRENDERSTATETYPE : uint32_t {
    D3DRS_ZENABLE = 7,
    D3DRS_ZWRITEENABLE = 14,
    D3DRS_SRCBLEND = 19,
    D3DRS_DESTBLEND = 20,
    D3DRS_CULLMODE = 22,
    D3DRS_ALPHABLENDENABLE = 27,
    D3DRS_LIGHTING = 137,
    D3DRS_BLENDOP = 171,
};

enum D3DBLEND : uint32_t {
    D3DBLEND_ZERO = 1,
    D3DBLEND_ONE = 2,
    D3DBLEND_SRCCOLOR = 3,
    D3DBLEND_INVSRCCOLOR = 4,
    D3DBLEND_SRCALPHA = 5,
    D3DBLEND_INVSRCALPHA = 6,
    D3DBLEND_DESTALPHA = 7,
    D3DBLEND_INVDESTALPHA = 8,
    D3DBLEND_DESTCOLOR = 9,
    D3DBLEND_INVDESTCOLOR = 10,
};

enum D3DBLENDOP : uint32_t {
    D3DBLENDOP_ADD = 1,
    D3DBLENDOP_SUBTRACT = 2,
    D3DBLENDOP_REVSUBTRACT = 3,
    D3DBLENDOP_MIN = 4,
    D3DBLENDOP_MAX = 5,
};

enum D3DCULL : uint32_t { D3DCULL_NONE = 1, D3DCULL_CW = 2, D3DCULL_CCW = 3 };

enum D3DSAMPLERSTATETYPE : uint32_t {
    D3DSAMP_ADDRESSU = 1,
    D3DSAMP_ADDRESSV = 2,
    D3DSAMP_ADDRESSW = 3,
    D3DSAMP_BORDERCOLOR = 4,
    D3DSAMP_MAGFILTER = 5,
    D3DSAMP_MINFILTER = 6,
    D3DSAMP_MIPFILTER = 7,
};

enum D3DTEXTUREADDRESS : uint32_t {
    D3DTADDRESS_WRAP = 1,
    D3DTADDRESS_MIRROR = 2,
    D3DTADDRESS_CLAMP = 3,
    D3DTADDRESS_BORDER = 4,
    D3DTADDRESS_MIRRORONCE = 5,
};

enum D3DTEXTUREFILTERTYPE : uint32_t {
    D3DTEXF_NONE = 0,
    D3DTEXF_POINT = 1,
    D3DTEXF_LINEAR = 2,
};

enum D3DPRIMITIVETYPE : uint32_t {
    D3DPT_POINTLIST = 1,
    D3DPT_LINELIST = 2,
    D3DPT_LINESTRIP = 3,
    D3DPT_TRIANGLELIST = 4,
    D3DPT_TRIANGLESTRIP = 5,
    D3DPT_TRIANGLEFAN = 6,
};

// ---- flags ----

constexpr UINT D3D_SDK_VERSION = 32;
constexpr UINT D3DADAPTER_DEFAULT = 0;

constexpr DWORD D3DUSAGE_RENDERTARGET = 0x1;
constexpr DWORD D3DUSAGE_DEPTHSTENCIL = 0x2;
constexpr DWORD D3DUSAGE_WRITEONLY = 0x8;
constexpr DWORD D3DUSAGE_DYNAMIC = 0x200;

constexpr DWORD D3DLOCK_READONLY = 0x10;
constexpr DWORD D3DLOCK_NOOVERWRITE = 0x1000;
constexpr DWORD D3DLOCK_DISCARD = 0x2000;

constexpr DWORD D3DFVF_XYZ = 0x2;
constexpr DWORD D3DFVF_TEX1 = 0x100;
constexpr DWORD D3DFVF_TEX2 = 0x200;
constexpr DWORD D3DFVF_TEX3 = 0x300;
constexpr DWORD D3DFVF_TEX4 = 0x400;
constexpr DWORD D3DFVF_TEXCOUNT_MASK = 0xF00;
constexpr DWORD D3DFVF_TEXCOUNT_SHIFT = 8;

constexpr DWORD D3DCLEAR_TARGET = 0x1;
constexpr DWORD D3DCLEAR_ZBUFFER = 0x2;
constexpr DWORD D3DCLEAR_STENCIL = 0x4;

constexpr DWORD D3DCREATE_FPU_PRESERVE = 0x2;
constexpr DWORD D3DCREATE_MULTITHREADED = 0x4;
constexpr DWORD D3DCREATE_SOFTWARE_VERTEXPROCESSING = 0x20;
constexpr DWORD D3DCREATE_HARDWARE_VERTEXPROCESSING = 0x40;
constexpr DWORD D3DCREATE_MIXED_VERTEXPROCESSING = 0x80;

constexpr DWORD D3DPRESENTFLAG_LOCKABLE_BACKBUFFER = 0x1;
constexpr DWORD D3DPRESENTFLAG_VIDEO = 0x10;
constexpr UINT D3DPRESENT_INTERVAL_DEFAULT = 0;
constexpr UINT D3DPRESENT_INTERVAL_ONE = 1;
constexpr UINT D3DPRESENT_INTERVAL_IMMEDIATE = 0x80000000u;

// Shader version tokens (the first token of every shader's code).
constexpr DWORD D3DVS_VERSION_2_0 = 0xFFFE0200u;
constexpr DWORD D3DPS_VERSION_2_0 = 0xFFFF0200u;
constexpr DWORD D3DPS_VERSION_2_A = 0xFFFF0201u;

// Pixel-shader constant registers the devices keep (ps_2_0 has 32).
constexpr UINT kPixelShaderConstantRegisters = 32;
// Texture stages / samplers the devices keep.
constexpr UINT kSamplerCount = 16;

// ---- structures ----

struct D3DPRESENT_PARAMETERS {
    UINT BackBufferWidth;  // 0: the window's client width
    UINT BackBufferHeight;
    D3DFORMAT BackBufferFormat;
    UINT BackBufferCount;
    D3DMULTISAMPLE_TYPE MultiSampleType;
    DWORD MultiSampleQuality;
    D3DSWAPEFFECT SwapEffect;
    HWND hDeviceWindow;
    BOOL Windowed;
    BOOL EnableAutoDepthStencil;
    D3DFORMAT AutoDepthStencilFormat;
    DWORD Flags;
    UINT FullScreen_RefreshRateInHz;
    UINT PresentationInterval;
};

struct D3DDISPLAYMODEEX {
    UINT Size;
    UINT Width;
    UINT Height;
    UINT RefreshRate;
    D3DFORMAT Format;
    UINT ScanLineOrdering;
};

struct D3DLOCKED_RECT {
    INT Pitch;
    void* pBits;
};

struct D3DSURFACE_DESC {
    D3DFORMAT Format;
    D3DRESOURCETYPE Type;
    DWORD Usage;
    D3DPOOL Pool;
    D3DMULTISAMPLE_TYPE MultiSampleType;
    DWORD MultiSampleQuality;
    UINT Width;
    UINT Height;
};

struct D3DVIEWPORT9 {
    DWORD X;
    DWORD Y;
    DWORD Width;
    DWORD Height;
    float MinZ;
    float MaxZ;
};

struct D3DRECT {
    LONG x1, y1, x2, y2;
};

// ---- interface identifiers ----

inline constexpr IID IID_IDirect3DDevice9 = {
    0xd0223b96, 0xbf7a, 0x43fd, {0x92, 0xbd, 0xa4, 0x3b, 0x0d, 0x82, 0xb9, 0xeb}};
inline constexpr IID IID_IDirect3DDevice9Ex = {
    0xb18b10ce, 0x2649, 0x405a, {0x87, 0x0f, 0x95, 0xf7, 0x77, 0xd4, 0x31, 0x3a}};

inline bool GfxEqualGuid(const GUID& a, const GUID& b) {
    return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
           __builtin_memcmp(a.Data4, b.Data4, 8) == 0;
}

// ---- interfaces ----

// A reference-counted object: Release of the last reference frees it. Every
// object returned through an out-argument carries one reference for the
// caller. QueryInterface answers E_NOINTERFACE except where an interface
// says otherwise.
class GfxObject {
  public:
    virtual HRESULT QueryInterface(const IID& iid, void** object);
    virtual ULONG AddRef();
    virtual ULONG Release();

  protected:
    GfxObject();
    virtual ~GfxObject();
    GfxObject(const GfxObject&) = delete;
    GfxObject& operator=(const GfxObject&) = delete;

  private:
    std::atomic<int> m_refs{1};
};

class IDirect3DSurface9 : public GfxObject {
  public:
    virtual HRESULT GetDesc(D3DSURFACE_DESC* desc) = 0;
    // A null rect locks the whole surface. Only lockable surfaces (off-screen
    // plain surfaces, system-memory and dynamic texture levels) succeed.
    virtual HRESULT LockRect(D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags) = 0;
    virtual HRESULT UnlockRect() = 0;
    virtual HRESULT GetDC(HDC* dc) = 0;
    virtual HRESULT ReleaseDC(HDC dc) = 0;
};

class IDirect3DBaseTexture9 : public GfxObject {
  public:
    virtual DWORD GetLevelCount() = 0;
};

class IDirect3DTexture9 : public IDirect3DBaseTexture9 {
  public:
    virtual HRESULT GetLevelDesc(UINT level, D3DSURFACE_DESC* desc) = 0;
    // The level's surface shares the texture's reference count.
    virtual HRESULT GetSurfaceLevel(UINT level, IDirect3DSurface9** surface) = 0;
    virtual HRESULT LockRect(UINT level, D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags) = 0;
    virtual HRESULT UnlockRect(UINT level) = 0;
};

class IDirect3DVertexBuffer9 : public GfxObject {
  public:
    // offset and size 0 lock the whole buffer.
    virtual HRESULT Lock(UINT offset, UINT size, void** data, DWORD flags) = 0;
    virtual HRESULT Unlock() = 0;
};

class IDirect3DVertexShader9 : public GfxObject {};
class IDirect3DPixelShader9 : public GfxObject {};

class IDirect3DDevice9 : public GfxObject {
  public:
    virtual HRESULT TestCooperativeLevel() = 0;
    virtual HRESULT Reset(D3DPRESENT_PARAMETERS* params) = 0;
    virtual HRESULT Present(const RECT* src, const RECT* dst, HWND override,
                            const void* dirtyRegion) = 0;
    virtual HRESULT GetBackBuffer(UINT swapChain, UINT index, D3DBACKBUFFER_TYPE type,
                                  IDirect3DSurface9** surface) = 0;

    virtual HRESULT CreateTexture(UINT width, UINT height, UINT levels, DWORD usage,
                                  D3DFORMAT format, D3DPOOL pool, IDirect3DTexture9** texture,
                                  HANDLE* shared) = 0;
    virtual HRESULT CreateVertexBuffer(UINT length, DWORD usage, DWORD fvf, D3DPOOL pool,
                                       IDirect3DVertexBuffer9** buffer, HANDLE* shared) = 0;
    virtual HRESULT CreateRenderTarget(UINT width, UINT height, D3DFORMAT format,
                                       D3DMULTISAMPLE_TYPE multiSample, DWORD quality,
                                       BOOL lockable, IDirect3DSurface9** surface,
                                       HANDLE* shared) = 0;
    virtual HRESULT CreateOffscreenPlainSurface(UINT width, UINT height, D3DFORMAT format,
                                                D3DPOOL pool, IDirect3DSurface9** surface,
                                                HANDLE* shared) = 0;

    // Copies a render target into a system-memory surface of the same size
    // and format.
    virtual HRESULT GetRenderTargetData(IDirect3DSurface9* renderTarget,
                                        IDirect3DSurface9* dest) = 0;
    virtual HRESULT StretchRect(IDirect3DSurface9* src, const RECT* srcRect, IDirect3DSurface9* dst,
                                const RECT* dstRect, D3DTEXTUREFILTERTYPE filter) = 0;
    virtual HRESULT ColorFill(IDirect3DSurface9* surface, const RECT* rect, D3DCOLOR color) = 0;

    virtual HRESULT SetRenderTarget(DWORD index, IDirect3DSurface9* surface) = 0;
    virtual HRESULT GetRenderTarget(DWORD index, IDirect3DSurface9** surface) = 0;

    virtual HRESULT BeginScene() = 0;
    virtual HRESULT EndScene() = 0;
    // Clears the parts of the rects (all of it for none) inside the viewport.
    virtual HRESULT Clear(DWORD count, const D3DRECT* rects, DWORD flags, D3DCOLOR color, float z,
                          DWORD stencil) = 0;
    virtual HRESULT SetViewport(const D3DVIEWPORT9* viewport) = 0;
    virtual HRESULT GetViewport(D3DVIEWPORT9* viewport) = 0;
    virtual HRESULT SetRenderState(D3DRENDERSTATETYPE state, DWORD value) = 0;
    virtual HRESULT GetRenderState(D3DRENDERSTATETYPE state, DWORD* value) = 0;
    virtual HRESULT SetTexture(DWORD stage, IDirect3DBaseTexture9* texture) = 0;
    virtual HRESULT SetSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value) = 0;

    virtual HRESULT DrawPrimitive(D3DPRIMITIVETYPE type, UINT startVertex, UINT count) = 0;
    virtual HRESULT SetFVF(DWORD fvf) = 0;
    virtual HRESULT SetStreamSource(UINT stream, IDirect3DVertexBuffer9* buffer, UINT offset,
                                    UINT stride) = 0;

    // code points at a shader record's token stream (shader_record.h).
    virtual HRESULT CreateVertexShader(const DWORD* code, IDirect3DVertexShader9** shader) = 0;
    virtual HRESULT SetVertexShader(IDirect3DVertexShader9* shader) = 0;
    virtual HRESULT CreatePixelShader(const DWORD* code, IDirect3DPixelShader9** shader) = 0;
    virtual HRESULT SetPixelShader(IDirect3DPixelShader9* shader) = 0;
    virtual HRESULT SetPixelShaderConstantF(UINT start, const float* data, UINT count4) = 0;
};

class IDirect3DDevice9Ex : public IDirect3DDevice9 {
  public:
    // S_OK, S_PRESENT_OCCLUDED, S_PRESENT_MODE_CHANGED or a device error.
    virtual HRESULT CheckDeviceState(HWND window) = 0;
    virtual HRESULT PresentEx(const RECT* src, const RECT* dst, HWND override,
                              const void* dirtyRegion, DWORD flags) = 0;
    virtual HRESULT ResetEx(D3DPRESENT_PARAMETERS* params, D3DDISPLAYMODEEX* fullscreenMode) = 0;
    virtual HRESULT SetMaximumFrameLatency(UINT frames) = 0;
};

class IDirect3D9 : public GfxObject {
  public:
    virtual UINT GetAdapterCount() = 0;
    virtual HRESULT CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat,
                                      DWORD usage, D3DRESOURCETYPE resourceType,
                                      D3DFORMAT checkFormat) = 0;
    virtual HRESULT CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type,
                                                D3DFORMAT sourceFormat, D3DFORMAT targetFormat) = 0;
};

class IDirect3D9Ex : public IDirect3D9 {
  public:
    virtual HRESULT CreateDeviceEx(UINT adapter, D3DDEVTYPE type, HWND focusWindow,
                                   DWORD behaviorFlags, D3DPRESENT_PARAMETERS* params,
                                   D3DDISPLAYMODEEX* fullscreenMode,
                                   IDirect3DDevice9Ex** device) = 0;
};

// The entry point "d3d9.dll" exports. D3DERR_NOTAVAILABLE when the chosen
// implementation cannot start, E_OUTOFMEMORY when memory runs out.
HRESULT Direct3DCreate9Ex(UINT sdkVersion, IDirect3D9Ex** d3d);
using Direct3DCreate9ExFn = HRESULT (*)(UINT, IDirect3D9Ex**);

}  // namespace nplat
