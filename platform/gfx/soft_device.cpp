// The software device's object model: the Direct3D object's format answers
// and device creation, and the device's resource creation, state keeping,
// device states and presentation. Drawing lives in soft_draw.cpp and the
// copies and fills in soft_blit.cpp.
//
// Validation follows Direct3D 9 wherever a caller could rely on a refusal
// (unlockable render targets, one level per texture, viewports inside the
// render target, draws only inside BeginScene / EndScene), so code that runs
// here does not break on a stricter driver. One deliberate difference:
// Reset and ResetEx keep render, sampler and shader state (Direct3D returns
// it to its defaults); the viewport and render target go back to the new back
// buffer as there.
#include "platform/gfx/soft_device.h"

#include <cstring>

#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/gfx/shader_record.h"
#include "platform/kernel/heap.h"
#include "platform/window/window.h"

namespace nplat::gfx {

namespace {

constexpr UINT kMaxDimension = 16384;

bool ValidSize(UINT width, UINT height) {
    return width >= 1 && height >= 1 && width <= kMaxDimension && height <= kMaxDimension;
}

// YUV surfaces hold chroma for pixel pairs (and NV12 for row pairs too).
bool ValidYuvSize(D3DFORMAT format, UINT width, UINT height) {
    if (format == D3DFMT_NV12) return width % 2 == 0 && height % 2 == 0;
    if (format == D3DFMT_YUY2 || format == D3DFMT_UYVY) return width % 2 == 0;
    return true;
}

HRESULT OutOfMemory(D3DPOOL pool) {
    return pool == D3DPOOL_DEFAULT ? D3DERR_OUTOFVIDEOMEMORY : E_OUTOFMEMORY;
}

template <typename T>
void Replace(T** slot, T* value) {
    if (value) value->AddRef();
    if (*slot) (*slot)->Release();
    *slot = value;
}

}  // namespace

// ---- the Direct3D object ----

HRESULT SoftDirect3D::CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat,
                                        DWORD usage, D3DRESOURCETYPE resourceType,
                                        D3DFORMAT checkFormat) {
    if (adapter != D3DADAPTER_DEFAULT) return D3DERR_INVALIDCALL;
    if (type != D3DDEVTYPE_HAL || adapterFormat != D3DFMT_X8R8G8B8) return D3DERR_NOTAVAILABLE;
    bool renderTarget = (usage & D3DUSAGE_RENDERTARGET) != 0;
    bool known = false;
    switch (resourceType) {
        case D3DRTYPE_TEXTURE:
            known = renderTarget ? IsRenderTargetFormat(checkFormat) : IsTextureFormat(checkFormat);
            break;
        case D3DRTYPE_SURFACE:
            known = renderTarget ? IsRenderTargetFormat(checkFormat)
                                 : IsTextureFormat(checkFormat) || IsYuvSurfaceFormat(checkFormat);
            break;
        default:
            break;
    }
    if (usage & D3DUSAGE_DEPTHSTENCIL) known = false;
    if (!known || !gfxtest::IsFormatSupported(usage, checkFormat)) return D3DERR_NOTAVAILABLE;
    return D3D_OK;
}

HRESULT SoftDirect3D::CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type,
                                                  D3DFORMAT sourceFormat, D3DFORMAT targetFormat) {
    if (adapter != D3DADAPTER_DEFAULT) return D3DERR_INVALIDCALL;
    if (type != D3DDEVTYPE_HAL) return D3DERR_NOTAVAILABLE;
    bool source = IsRgbFormat(sourceFormat) || IsYuvSurfaceFormat(sourceFormat);
    if (!source || !IsRenderTargetFormat(targetFormat)) return D3DERR_NOTAVAILABLE;
    return D3D_OK;
}

HRESULT SoftDirect3D::CreateDeviceEx(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD,
                                     D3DPRESENT_PARAMETERS* params,
                                     D3DDISPLAYMODEEX* fullscreenMode,
                                     IDirect3DDevice9Ex** device) {
    if (!device) return D3DERR_INVALIDCALL;
    *device = nullptr;
    gfxtest::Count(&GfxCounters::createDeviceCalls);
    if (adapter != D3DADAPTER_DEFAULT || !params) return D3DERR_INVALIDCALL;
    if (type != D3DDEVTYPE_HAL) return D3DERR_NOTAVAILABLE;
    // Windowed devices only; a full-screen mode has nothing to drive here.
    if (!params->Windowed || fullscreenMode) return D3DERR_INVALIDCALL;
    if (params->SwapEffect == D3DSWAPEFFECT_FLIPEX && gfxtest::RefuseFlipEx())
        return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateDeviceEx); FAILED(hr)) return hr;
    SoftDevice* created = HeapNew<SoftDevice>(this, focusWindow);
    if (!created) return E_OUTOFMEMORY;
    HRESULT hr = created->Init(params);
    if (FAILED(hr)) {
        created->Release();
        return hr;
    }
    gfxtest::CountDeviceCreated(params->SwapEffect);
    *device = created;
    return D3D_OK;
}

HRESULT CreateSoftDirect3D(IDirect3D9Ex** d3d) {
    *d3d = HeapNew<SoftDirect3D>();
    return *d3d ? D3D_OK : E_OUTOFMEMORY;
}

// ---- device lifecycle ----

SoftDevice::SoftDevice(SoftDirect3D* d3d, HWND focusWindow)
    : m_d3d(d3d), m_focusWindow(focusWindow) {
    m_d3d->AddRef();
    m_renderStates[D3DRS_ZENABLE] = 0;
    m_renderStates[D3DRS_ZWRITEENABLE] = 1;
    m_renderStates[D3DRS_SRCBLEND] = D3DBLEND_ONE;
    m_renderStates[D3DRS_DESTBLEND] = D3DBLEND_ZERO;
    m_renderStates[D3DRS_CULLMODE] = D3DCULL_CCW;
    m_renderStates[D3DRS_ALPHABLENDENABLE] = 0;
    m_renderStates[D3DRS_LIGHTING] = 1;
    m_renderStates[D3DRS_BLENDOP] = D3DBLENDOP_ADD;
    for (auto& states : m_samplerStates) {
        states[D3DSAMP_ADDRESSU] = D3DTADDRESS_WRAP;
        states[D3DSAMP_ADDRESSV] = D3DTADDRESS_WRAP;
        states[D3DSAMP_ADDRESSW] = D3DTADDRESS_WRAP;
        states[D3DSAMP_MAGFILTER] = D3DTEXF_POINT;
        states[D3DSAMP_MINFILTER] = D3DTEXF_POINT;
        states[D3DSAMP_MIPFILTER] = D3DTEXF_NONE;
    }
}

SoftDevice::~SoftDevice() {
    for (SoftTexture*& t : m_textures) Replace<SoftTexture>(&t, nullptr);
    Replace<SoftVertexBuffer>(&m_stream, nullptr);
    Replace<SoftVertexShader>(&m_vertexShader, nullptr);
    Replace<SoftPixelShader>(&m_pixelShader, nullptr);
    Replace<SoftSurface>(&m_renderTarget, nullptr);
    Replace<SoftSurface>(&m_backBuffer, nullptr);
    HeapFree(m_spanBuffer);
    HeapFree(m_presentBuffer);
    m_d3d->Release();
}

HRESULT SoftDevice::Init(D3DPRESENT_PARAMETERS* params) { return MakeBackBuffer(params); }

HRESULT SoftDevice::MakeBackBuffer(D3DPRESENT_PARAMETERS* params) {
    if (!params) return D3DERR_INVALIDCALL;
    HWND window = params->hDeviceWindow ? params->hDeviceWindow : m_focusWindow;
    if (!window) return D3DERR_INVALIDCALL;
    if (params->MultiSampleType != D3DMULTISAMPLE_NONE || params->EnableAutoDepthStencil)
        return D3DERR_NOTAVAILABLE;
    if (params->SwapEffect < D3DSWAPEFFECT_DISCARD || params->SwapEffect > D3DSWAPEFFECT_FLIPEX ||
        params->SwapEffect == D3DSWAPEFFECT_OVERLAY)
        return D3DERR_INVALIDCALL;
    D3DFORMAT format =
        params->BackBufferFormat == D3DFMT_UNKNOWN ? D3DFMT_X8R8G8B8 : params->BackBufferFormat;
    if (format != D3DFMT_X8R8G8B8 && format != D3DFMT_A8R8G8B8) return D3DERR_INVALIDCALL;
    if (params->BackBufferCount > 30) return D3DERR_INVALIDCALL;
    UINT width = params->BackBufferWidth;
    UINT height = params->BackBufferHeight;
    if (width == 0 || height == 0) {
        RECT client;
        if (!GetClientRect(window, &client)) return D3DERR_INVALIDCALL;
        if (width == 0) width = static_cast<UINT>(client.right > 1 ? client.right : 1);
        if (height == 0) height = static_cast<UINT>(client.bottom > 1 ? client.bottom : 1);
    }
    if (!ValidSize(width, height)) return D3DERR_INVALIDCALL;

    SurfaceRole role;
    role.renderTarget = true;
    role.backBuffer = true;
    role.lockable = (params->Flags & D3DPRESENTFLAG_LOCKABLE_BACKBUFFER) != 0;
    SoftSurface* buffer = SoftSurface::Create(static_cast<int>(width), static_cast<int>(height),
                                              format, D3DPOOL_DEFAULT, D3DUSAGE_RENDERTARGET,
                                              D3DRTYPE_SURFACE, role, nullptr);
    if (!buffer) return D3DERR_OUTOFVIDEOMEMORY;

    params->BackBufferWidth = width;
    params->BackBufferHeight = height;
    params->BackBufferFormat = format;
    if (params->BackBufferCount == 0) params->BackBufferCount = 1;
    m_params = *params;
    m_params.hDeviceWindow = window;
    Replace(&m_backBuffer, buffer);
    buffer->Release();  // the device's slot holds the one reference
    Replace(&m_renderTarget, m_backBuffer);
    ResetViewportToTarget();
    return D3D_OK;
}

void SoftDevice::ResetViewportToTarget() {
    m_viewport = D3DVIEWPORT9{0,
                              0,
                              static_cast<DWORD>(m_renderTarget->Width()),
                              static_cast<DWORD>(m_renderTarget->Height()),
                              0.0f,
                              1.0f};
}

HRESULT SoftDevice::QueryInterface(const IID& iid, void** object) {
    if (!object) return E_POINTER;
    if (GfxEqualGuid(iid, IID_IDirect3DDevice9) || GfxEqualGuid(iid, IID_IDirect3DDevice9Ex)) {
        AddRef();
        *object = static_cast<IDirect3DDevice9Ex*>(this);
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

// ---- device states and presentation ----

HRESULT SoftDevice::TestCooperativeLevel() { return m_lost ? D3DERR_DEVICENOTRESET : D3D_OK; }

HRESULT SoftDevice::Reset(D3DPRESENT_PARAMETERS* params) { return ResetEx(params, nullptr); }

HRESULT SoftDevice::ResetEx(D3DPRESENT_PARAMETERS* params, D3DDISPLAYMODEEX* fullscreenMode) {
    if (!params || m_inScene || fullscreenMode || !params->Windowed) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kResetEx); FAILED(hr)) return hr;
    HRESULT hr = MakeBackBuffer(params);
    if (FAILED(hr)) return hr;
    m_lost = false;
    gfxtest::Count(&GfxCounters::resets);
    return D3D_OK;
}

HRESULT SoftDevice::CheckDeviceState(HWND window) {
    HRESULT queued;
    if (gfxtest::NextDeviceState(&queued)) {
        if (queued == D3DERR_DEVICELOST) m_lost = true;
        return queued;
    }
    if (m_lost) return D3DERR_DEVICELOST;
    if (!window) window = m_params.hDeviceWindow;
    if (!IsWindow(window)) return D3DERR_INVALIDCALL;
    RECT client;
    if (!IsWindowVisible(window) || !GetClientRect(window, &client) || IsRectEmpty(&client))
        return S_PRESENT_OCCLUDED;
    return S_OK;
}

HRESULT SoftDevice::Present(const RECT* src, const RECT* dst, HWND override,
                            const void* dirtyRegion) {
    return PresentEx(src, dst, override, dirtyRegion, 0);
}

HRESULT SoftDevice::PresentEx(const RECT* src, const RECT* dst, HWND override, const void*, DWORD) {
    if (m_inScene) return D3DERR_INVALIDCALL;
    HRESULT queued;
    if (gfxtest::NextPresentResult(&queued)) {
        if (queued == D3DERR_DEVICELOST) m_lost = true;
        if (queued == S_PRESENT_MODE_CHANGED) PresentWindow(src, dst, override);
        if (SUCCEEDED(queued)) gfxtest::Count(&GfxCounters::presents);
        return queued;
    }
    if (m_lost) return D3DERR_DEVICELOST;
    HRESULT hr = PresentWindow(src, dst, override);
    if (SUCCEEDED(hr)) gfxtest::Count(&GfxCounters::presents);
    return hr;
}

// Builds the window's picture (0x00RRGGBB, the destination rect's size) from
// the source part of the back buffer with point sampling, then hands it over
// in one transfer.
HRESULT SoftDevice::PresentWindow(const RECT* src, const RECT* dst, HWND override) {
    HWND window = override ? override : m_params.hDeviceWindow;
    if (!IsWindow(window)) return D3DERR_INVALIDCALL;
    RECT client;
    if (!IsWindowVisible(window) || !GetClientRect(window, &client) || IsRectEmpty(&client))
        return S_PRESENT_OCCLUDED;
    RECT from = src ? *src : RECT{0, 0, m_backBuffer->Width(), m_backBuffer->Height()};
    RECT to = dst ? *dst : client;
    if (!RectInside(from, m_backBuffer->Width(), m_backBuffer->Height()) || to.right <= to.left ||
        to.bottom <= to.top)
        return D3DERR_INVALIDCALL;
    int width = to.right - to.left;
    int height = to.bottom - to.top;
    size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (pixels > m_presentCapacity) {
        void* grown = HeapRealloc(m_presentBuffer, pixels * sizeof(uint32_t));
        if (!grown) return E_OUTOFMEMORY;
        m_presentBuffer = static_cast<uint32_t*>(grown);
        m_presentCapacity = pixels;
    }
    int fromWidth = from.right - from.left;
    int fromHeight = from.bottom - from.top;
    for (int y = 0; y < height; ++y) {
        int sy = from.top + static_cast<int>(static_cast<int64_t>(y) * fromHeight / height);
        const uint8_t* row = m_backBuffer->Row(sy);
        uint32_t* out = m_presentBuffer + static_cast<size_t>(y) * width;
        for (int x = 0; x < width; ++x) {
            int sx = from.left + static_cast<int>(static_cast<int64_t>(x) * fromWidth / width);
            uint32_t v;
            std::memcpy(&v, row + sx * 4, 4);
            out[x] = v & 0x00FFFFFFu;
        }
    }
    if (!PutClientPixels(window, to, m_presentBuffer, width * 4)) return E_OUTOFMEMORY;
    return S_OK;
}

HRESULT SoftDevice::GetBackBuffer(UINT swapChain, UINT index, D3DBACKBUFFER_TYPE type,
                                  IDirect3DSurface9** surface) {
    if (!surface) return D3DERR_INVALIDCALL;
    *surface = nullptr;
    if (swapChain != 0 || index >= m_params.BackBufferCount || type != D3DBACKBUFFER_TYPE_MONO)
        return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kGetBackBuffer); FAILED(hr)) return hr;
    m_backBuffer->AddRef();
    *surface = m_backBuffer;
    return D3D_OK;
}

// ---- resources ----

HRESULT SoftDevice::CreateTexture(UINT width, UINT height, UINT levels, DWORD usage,
                                  D3DFORMAT format, D3DPOOL pool, IDirect3DTexture9** texture,
                                  HANDLE*) {
    if (!texture) return D3DERR_INVALIDCALL;
    *texture = nullptr;
    bool renderTarget = (usage & D3DUSAGE_RENDERTARGET) != 0;
    // One level only: 0 ("a full chain") is granted as one level too.
    if (!ValidSize(width, height) || levels > 1 || pool > D3DPOOL_SCRATCH)
        return D3DERR_INVALIDCALL;
    if (renderTarget && pool != D3DPOOL_DEFAULT) return D3DERR_INVALIDCALL;
    if ((usage & D3DUSAGE_DYNAMIC) && pool == D3DPOOL_MANAGED) return D3DERR_INVALIDCALL;
    bool known = renderTarget ? IsRenderTargetFormat(format) : IsTextureFormat(format);
    if (!known) return D3DERR_INVALIDCALL;
    if (!gfxtest::IsFormatSupported(usage & D3DUSAGE_RENDERTARGET, format))
        return D3DERR_NOTAVAILABLE;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateTexture); FAILED(hr)) return hr;
    SoftTexture* t =
        SoftTexture::Create(static_cast<int>(width), static_cast<int>(height), format, pool, usage);
    if (!t) return OutOfMemory(pool);
    *texture = t;
    return D3D_OK;
}

HRESULT SoftDevice::CreateVertexBuffer(UINT length, DWORD usage, DWORD fvf, D3DPOOL pool,
                                       IDirect3DVertexBuffer9** buffer, HANDLE*) {
    if (!buffer) return D3DERR_INVALIDCALL;
    *buffer = nullptr;
    if (length == 0 || length > (1u << 28) || pool > D3DPOOL_SYSTEMMEM) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateVertexBuffer); FAILED(hr)) return hr;
    SoftVertexBuffer* b = SoftVertexBuffer::Create(length, usage, fvf);
    if (!b) return OutOfMemory(pool);
    *buffer = b;
    return D3D_OK;
}

HRESULT SoftDevice::CreateRenderTarget(UINT width, UINT height, D3DFORMAT format,
                                       D3DMULTISAMPLE_TYPE multiSample, DWORD, BOOL lockable,
                                       IDirect3DSurface9** surface, HANDLE*) {
    if (!surface) return D3DERR_INVALIDCALL;
    *surface = nullptr;
    if (!ValidSize(width, height) || !IsRenderTargetFormat(format)) return D3DERR_INVALIDCALL;
    if (multiSample != D3DMULTISAMPLE_NONE) return D3DERR_NOTAVAILABLE;
    if (!gfxtest::IsFormatSupported(D3DUSAGE_RENDERTARGET, format)) return D3DERR_NOTAVAILABLE;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateRenderTarget); FAILED(hr)) return hr;
    SurfaceRole role;
    role.renderTarget = true;
    role.lockable = lockable != 0;
    SoftSurface* s = SoftSurface::Create(static_cast<int>(width), static_cast<int>(height), format,
                                         D3DPOOL_DEFAULT, D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE,
                                         role, nullptr);
    if (!s) return D3DERR_OUTOFVIDEOMEMORY;
    *surface = s;
    return D3D_OK;
}

HRESULT SoftDevice::CreateOffscreenPlainSurface(UINT width, UINT height, D3DFORMAT format,
                                                D3DPOOL pool, IDirect3DSurface9** surface,
                                                HANDLE*) {
    if (!surface) return D3DERR_INVALIDCALL;
    *surface = nullptr;
    if (!ValidSize(width, height) || pool == D3DPOOL_MANAGED || pool > D3DPOOL_SCRATCH)
        return D3DERR_INVALIDCALL;
    if (!IsTextureFormat(format) && !IsYuvSurfaceFormat(format)) return D3DERR_INVALIDCALL;
    if (!ValidYuvSize(format, width, height)) return D3DERR_INVALIDCALL;
    if (!gfxtest::IsFormatSupported(0, format)) return D3DERR_NOTAVAILABLE;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateOffscreenPlainSurface); FAILED(hr))
        return hr;
    SurfaceRole role;
    role.lockable = true;
    SoftSurface* s = SoftSurface::Create(static_cast<int>(width), static_cast<int>(height), format,
                                         pool, 0, D3DRTYPE_SURFACE, role, nullptr);
    if (!s) return OutOfMemory(pool);
    *surface = s;
    return D3D_OK;
}

// ---- state ----

HRESULT SoftDevice::SetRenderTarget(DWORD index, IDirect3DSurface9* surface) {
    if (index >= 4) return D3DERR_INVALIDCALL;
    if (index > 0) return surface ? D3DERR_INVALIDCALL : D3D_OK;  // one target only
    SoftSurface* s = AsSoftSurface(surface);
    if (!s || !s->Role().renderTarget) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kSetRenderTarget); FAILED(hr)) return hr;
    Replace(&m_renderTarget, s);
    ResetViewportToTarget();
    return D3D_OK;
}

HRESULT SoftDevice::GetRenderTarget(DWORD index, IDirect3DSurface9** surface) {
    if (!surface) return D3DERR_INVALIDCALL;
    *surface = nullptr;
    if (index != 0) return index < 4 ? D3DERR_NOTFOUND : D3DERR_INVALIDCALL;
    m_renderTarget->AddRef();
    *surface = m_renderTarget;
    return D3D_OK;
}

HRESULT SoftDevice::BeginScene() {
    if (m_inScene) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kBeginScene); FAILED(hr)) return hr;
    m_inScene = true;
    return D3D_OK;
}

HRESULT SoftDevice::EndScene() {
    if (!m_inScene) return D3DERR_INVALIDCALL;
    m_inScene = false;
    return gfxtest::Injected(GfxCall::kEndScene);
}

HRESULT SoftDevice::SetViewport(const D3DVIEWPORT9* viewport) {
    if (!viewport || viewport->Width == 0 || viewport->Height == 0) return D3DERR_INVALIDCALL;
    uint64_t right = static_cast<uint64_t>(viewport->X) + viewport->Width;
    uint64_t bottom = static_cast<uint64_t>(viewport->Y) + viewport->Height;
    if (right > static_cast<uint64_t>(m_renderTarget->Width()) ||
        bottom > static_cast<uint64_t>(m_renderTarget->Height()))
        return D3DERR_INVALIDCALL;
    if (!(viewport->MinZ >= 0.0f && viewport->MaxZ <= 1.0f && viewport->MinZ <= viewport->MaxZ))
        return D3DERR_INVALIDCALL;
    m_viewport = *viewport;
    return D3D_OK;
}

HRESULT SoftDevice::GetViewport(D3DVIEWPORT9* viewport) {
    if (!viewport) return D3DERR_INVALIDCALL;
    *viewport = m_viewport;
    return D3D_OK;
}

HRESULT SoftDevice::SetRenderState(D3DRENDERSTATETYPE state, DWORD value) {
    if (state >= kRenderStates) return D3DERR_INVALIDCALL;
    m_renderStates[state] = value;
    return D3D_OK;
}

HRESULT SoftDevice::GetRenderState(D3DRENDERSTATETYPE state, DWORD* value) {
    if (!value || state >= kRenderStates) return D3DERR_INVALIDCALL;
    *value = m_renderStates[state];
    return D3D_OK;
}

HRESULT SoftDevice::SetTexture(DWORD stage, IDirect3DBaseTexture9* texture) {
    if (stage >= kSamplerCount) return stage >= 256 && stage <= 260 ? D3D_OK : D3DERR_INVALIDCALL;
    SoftTexture* t = nullptr;
    if (texture) {
        t = dynamic_cast<SoftTexture*>(texture);
        if (!t) return D3DERR_INVALIDCALL;
    }
    Replace(&m_textures[stage], t);
    return D3D_OK;
}

HRESULT SoftDevice::SetSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value) {
    if (sampler >= kSamplerCount || type == 0 || type >= kSamplerStates) return D3DERR_INVALIDCALL;
    m_samplerStates[sampler][type] = value;
    return D3D_OK;
}

HRESULT SoftDevice::SetFVF(DWORD fvf) {
    m_fvf = fvf;
    return D3D_OK;
}

HRESULT SoftDevice::SetStreamSource(UINT stream, IDirect3DVertexBuffer9* buffer, UINT offset,
                                    UINT stride) {
    if (stream >= 16) return D3DERR_INVALIDCALL;
    if (stream != 0) return buffer ? D3DERR_INVALIDCALL : D3D_OK;  // one stream only
    SoftVertexBuffer* b = nullptr;
    if (buffer) {
        b = dynamic_cast<SoftVertexBuffer*>(buffer);
        if (!b) return D3DERR_INVALIDCALL;
    }
    Replace(&m_stream, b);
    m_streamOffset = offset;
    m_streamStride = stride;
    return D3D_OK;
}

HRESULT SoftDevice::CreateVertexShader(const DWORD* code, IDirect3DVertexShader9** shader) {
    if (!shader) return D3DERR_INVALIDCALL;
    *shader = nullptr;
    ShaderRecordInfo info;
    if (!code || !ParseShaderRecord(code, ShaderRecordTokenBytes(code), &info) ||
        info.IsPixelShader())
        return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateVertexShader); FAILED(hr)) return hr;
    SoftVertexShader* s = HeapNew<SoftVertexShader>(info.number);
    if (!s) return E_OUTOFMEMORY;
    gfxtest::CountShaderCreated(info.number);
    *shader = s;
    return D3D_OK;
}

HRESULT SoftDevice::SetVertexShader(IDirect3DVertexShader9* shader) {
    SoftVertexShader* s = nullptr;
    if (shader) {
        s = dynamic_cast<SoftVertexShader*>(shader);
        if (!s) return D3DERR_INVALIDCALL;
    }
    Replace(&m_vertexShader, s);
    return D3D_OK;
}

HRESULT SoftDevice::CreatePixelShader(const DWORD* code, IDirect3DPixelShader9** shader) {
    if (!shader) return D3DERR_INVALIDCALL;
    *shader = nullptr;
    ShaderRecordInfo info;
    if (!code || !ParseShaderRecord(code, ShaderRecordTokenBytes(code), &info) ||
        !info.IsPixelShader() || !PixelShaderFor(info.number))
        return D3DERR_INVALIDCALL;
    if (info.version == D3DPS_VERSION_2_A && gfxtest::RefusePs2a()) return D3DERR_INVALIDCALL;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kCreatePixelShader); FAILED(hr)) return hr;
    SoftPixelShader* s = HeapNew<SoftPixelShader>(info.number);
    if (!s) return E_OUTOFMEMORY;
    gfxtest::CountShaderCreated(info.number);
    *shader = s;
    return D3D_OK;
}

HRESULT SoftDevice::SetPixelShader(IDirect3DPixelShader9* shader) {
    SoftPixelShader* s = nullptr;
    if (shader) {
        s = dynamic_cast<SoftPixelShader*>(shader);
        if (!s) return D3DERR_INVALIDCALL;
    }
    Replace(&m_pixelShader, s);
    return D3D_OK;
}

HRESULT SoftDevice::SetPixelShaderConstantF(UINT start, const float* data, UINT count4) {
    if (!data || start > kPixelShaderConstantRegisters ||
        count4 > kPixelShaderConstantRegisters - start)
        return D3DERR_INVALIDCALL;
    std::memcpy(m_constants[start], data, static_cast<size_t>(count4) * 4 * sizeof(float));
    return D3D_OK;
}

}  // namespace nplat::gfx
