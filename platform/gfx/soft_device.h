// The software reference device: a Direct3D 9Ex device whose render targets,
// textures and vertex buffers live in memory, drawn by the rasteriser of
// soft_raster.h and the shader formulas of soft_shaders.h, and presented into
// the window's client pixels. It is the headless default and the reference
// other devices are compared against.
//
// Presentation: Present copies the back buffer into the window's client area
// (stretched with point sampling when their sizes differ). A window that is
// hidden or has an empty client area answers S_PRESENT_OCCLUDED; the test
// controls can queue other answers and device loss.
//
// Not here: anything of Direct3D 9 that gfx/d3d9.h leaves out.
#pragma once

#include <cstdint>

#include "platform/gfx/gfx_internal.h"
#include "platform/gfx/soft_resources.h"
#include "platform/gfx/soft_shaders.h"

namespace nplat::gfx {

class SoftDirect3D final : public IDirect3D9Ex {
  public:
    UINT GetAdapterCount() override { return 1; }
    HRESULT CheckDeviceFormat(UINT adapter, D3DDEVTYPE type, D3DFORMAT adapterFormat, DWORD usage,
                              D3DRESOURCETYPE resourceType, D3DFORMAT checkFormat) override;
    HRESULT CheckDeviceFormatConversion(UINT adapter, D3DDEVTYPE type, D3DFORMAT sourceFormat,
                                        D3DFORMAT targetFormat) override;
    HRESULT CreateDeviceEx(UINT adapter, D3DDEVTYPE type, HWND focusWindow, DWORD behaviorFlags,
                           D3DPRESENT_PARAMETERS* params, D3DDISPLAYMODEEX* fullscreenMode,
                           IDirect3DDevice9Ex** device) override;
};

class SoftDevice final : public GfxDevice {
  public:
    SoftDevice(SoftDirect3D* d3d, HWND focusWindow);
    ~SoftDevice() override;
    // Validates the parameters (filling in sizes and counts as Direct3D does)
    // and makes the back buffer.
    HRESULT Init(D3DPRESENT_PARAMETERS* params);

    HRESULT QueryInterface(const IID& iid, void** object) override;

    HRESULT TestCooperativeLevel() override;
    HRESULT Reset(D3DPRESENT_PARAMETERS* params) override;
    HRESULT Present(const RECT* src, const RECT* dst, HWND override,
                    const void* dirtyRegion) override;
    HRESULT GetBackBuffer(UINT swapChain, UINT index, D3DBACKBUFFER_TYPE type,
                          IDirect3DSurface9** surface) override;
    HRESULT CreateTexture(UINT width, UINT height, UINT levels, DWORD usage, D3DFORMAT format,
                          D3DPOOL pool, IDirect3DTexture9** texture, HANDLE* shared) override;
    HRESULT CreateVertexBuffer(UINT length, DWORD usage, DWORD fvf, D3DPOOL pool,
                               IDirect3DVertexBuffer9** buffer, HANDLE* shared) override;
    HRESULT CreateRenderTarget(UINT width, UINT height, D3DFORMAT format,
                               D3DMULTISAMPLE_TYPE multiSample, DWORD quality, BOOL lockable,
                               IDirect3DSurface9** surface, HANDLE* shared) override;
    HRESULT CreateOffscreenPlainSurface(UINT width, UINT height, D3DFORMAT format, D3DPOOL pool,
                                        IDirect3DSurface9** surface, HANDLE* shared) override;
    HRESULT GetRenderTargetData(IDirect3DSurface9* renderTarget, IDirect3DSurface9* dest) override;
    HRESULT StretchRect(IDirect3DSurface9* src, const RECT* srcRect, IDirect3DSurface9* dst,
                        const RECT* dstRect, D3DTEXTUREFILTERTYPE filter) override;
    HRESULT ColorFill(IDirect3DSurface9* surface, const RECT* rect, D3DCOLOR color) override;
    HRESULT SetRenderTarget(DWORD index, IDirect3DSurface9* surface) override;
    HRESULT GetRenderTarget(DWORD index, IDirect3DSurface9** surface) override;
    HRESULT BeginScene() override;
    HRESULT EndScene() override;
    HRESULT Clear(DWORD count, const D3DRECT* rects, DWORD flags, D3DCOLOR color, float z,
                  DWORD stencil) override;
    HRESULT SetViewport(const D3DVIEWPORT9* viewport) override;
    HRESULT GetViewport(D3DVIEWPORT9* viewport) override;
    HRESULT SetRenderState(D3DRENDERSTATETYPE state, DWORD value) override;
    HRESULT GetRenderState(D3DRENDERSTATETYPE state, DWORD* value) override;
    HRESULT SetTexture(DWORD stage, IDirect3DBaseTexture9* texture) override;
    HRESULT SetSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value) override;
    HRESULT DrawPrimitive(D3DPRIMITIVETYPE type, UINT startVertex, UINT count) override;
    HRESULT SetFVF(DWORD fvf) override;
    HRESULT SetStreamSource(UINT stream, IDirect3DVertexBuffer9* buffer, UINT offset,
                            UINT stride) override;
    HRESULT CreateVertexShader(const DWORD* code, IDirect3DVertexShader9** shader) override;
    HRESULT SetVertexShader(IDirect3DVertexShader9* shader) override;
    HRESULT CreatePixelShader(const DWORD* code, IDirect3DPixelShader9** shader) override;
    HRESULT SetPixelShader(IDirect3DPixelShader9* shader) override;
    HRESULT SetPixelShaderConstantF(UINT start, const float* data, UINT count4) override;

    HRESULT CheckDeviceState(HWND window) override;
    HRESULT PresentEx(const RECT* src, const RECT* dst, HWND override, const void* dirtyRegion,
                      DWORD flags) override;
    HRESULT ResetEx(D3DPRESENT_PARAMETERS* params, D3DDISPLAYMODEEX* fullscreenMode) override;
    HRESULT SetMaximumFrameLatency(UINT) override { return D3D_OK; }

    HRESULT CreateVideoProcessorService(IDirectXVideoProcessorService** service) override;

  private:
    static constexpr int kRenderStates = 256;
    static constexpr int kSamplerStates = 14;

    HRESULT MakeBackBuffer(D3DPRESENT_PARAMETERS* params);
    void ResetViewportToTarget();
    HRESULT PresentWindow(const RECT* src, const RECT* dst, HWND override);
    bool PrepareShaderContext(ShaderContext* ctx);
    bool GrowSpanBuffer(int pixels);

    SoftDirect3D* m_d3d;
    HWND m_focusWindow;
    D3DPRESENT_PARAMETERS m_params{};
    SoftSurface* m_backBuffer = nullptr;
    SoftSurface* m_renderTarget = nullptr;
    D3DVIEWPORT9 m_viewport{};
    DWORD m_renderStates[kRenderStates] = {};
    SoftTexture* m_textures[kSamplerCount] = {};
    DWORD m_samplerStates[kSamplerCount][kSamplerStates] = {};
    SoftVertexBuffer* m_stream = nullptr;
    UINT m_streamOffset = 0;
    UINT m_streamStride = 0;
    DWORD m_fvf = 0;
    SoftVertexShader* m_vertexShader = nullptr;
    SoftPixelShader* m_pixelShader = nullptr;
    float m_constants[kPixelShaderConstantRegisters][4] = {};
    bool m_inScene = false;
    bool m_lost = false;
    Float4* m_spanBuffer = nullptr;
    int m_spanCapacity = 0;
    uint32_t* m_presentBuffer = nullptr;
    size_t m_presentCapacity = 0;
};

// Helpers shared with the DXVA2 processor (soft_blit.cpp).
SoftSurface* AsSoftSurface(IDirect3DSurface9* surface);
// A colour fill of `rect` (inside the surface) in any surface format.
void FillSurfaceRect(SoftSurface* surface, const RECT& rect, const Float4& colour);
// How a YUV source turns into RGB.
struct YuvSourceRules {
    bool limitedRange = false;
    const YuvMatrix* matrix = &kBt601;
};
// One source pixel of any surface format as an RGB colour.
Float4 ReadSurfacePixel(const SoftSurface* surface, int x, int y, const YuvSourceRules& rules);
// Scales src rect onto dst rect (both inside their surfaces), clipped to
// `clip` in destination coordinates, point or linear.
void ScaleSurface(const SoftSurface* src, const RECT& srcRect, SoftSurface* dst,
                  const RECT& dstRect, const RECT& clip, D3DTEXTUREFILTERTYPE filter,
                  const YuvSourceRules& rules);
bool RectInside(const RECT& r, int width, int height);

}  // namespace nplat::gfx
