// The software device's resources: surfaces (off-screen plain surfaces,
// render targets, back buffers, texture levels, DXVA2 sample surfaces),
// one-level textures, vertex buffers and shaders made from records. Each owns
// its memory on the library heap; a texture level shares its texture's
// reference count, as in Direct3D.
//
// Not here: anything about drawing (soft_device.cpp, soft_raster.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/gfx/d3d9.h"

namespace nplat::gfx {

// Where a surface may be used, beyond what its D3DSURFACE_DESC says.
struct SurfaceRole {
    bool renderTarget = false;  // may be bound with SetRenderTarget / be drawn into
    bool lockable = false;      // LockRect succeeds
    bool backBuffer = false;
    bool textureLevel = false;
};

class SoftSurface final : public IDirect3DSurface9 {
  public:
    // Null when memory runs out. `container` (a texture) takes over the
    // reference counting; it must outlive the surface.
    SoftSurface() = default;  // use Create
    static SoftSurface* Create(int width, int height, D3DFORMAT format, D3DPOOL pool, DWORD usage,
                               D3DRESOURCETYPE type, const SurfaceRole& role, GfxObject* container);
    ~SoftSurface() override;

    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT GetDesc(D3DSURFACE_DESC* desc) override;
    HRESULT LockRect(D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags) override;
    HRESULT UnlockRect() override;
    HRESULT GetDC(HDC* dc) override;
    HRESULT ReleaseDC(HDC dc) override;

    int Width() const { return m_width; }
    int Height() const { return m_height; }
    D3DFORMAT Format() const { return m_desc.Format; }
    D3DPOOL Pool() const { return m_desc.Pool; }
    int Pitch() const { return m_pitch; }
    uint8_t* Bits() const { return m_bits; }
    uint8_t* Row(int y) const { return m_bits + static_cast<ptrdiff_t>(y) * m_pitch; }
    const SurfaceRole& Role() const { return m_role; }
    bool Locked() const { return m_locked; }
    // The Direct3D object a caller holds for this surface (the container for a
    // texture level), for comparisons such as "is this the render target".
    GfxObject* Owner() { return m_container ? m_container : this; }

  private:
    D3DSURFACE_DESC m_desc{};
    int m_width = 0;
    int m_height = 0;
    int m_pitch = 0;
    uint8_t* m_bits = nullptr;
    SurfaceRole m_role;
    GfxObject* m_container = nullptr;
    bool m_locked = false;
};

class SoftTexture final : public IDirect3DTexture9 {
  public:
    SoftTexture() = default;  // use Create
    static SoftTexture* Create(int width, int height, D3DFORMAT format, D3DPOOL pool, DWORD usage);
    ~SoftTexture() override;

    DWORD GetLevelCount() override { return 1; }
    HRESULT GetLevelDesc(UINT level, D3DSURFACE_DESC* desc) override;
    HRESULT GetSurfaceLevel(UINT level, IDirect3DSurface9** surface) override;
    HRESULT LockRect(UINT level, D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags) override;
    HRESULT UnlockRect(UINT level) override;

    SoftSurface* Level() const { return m_level; }

  private:
    SoftSurface* m_level = nullptr;
};

class SoftVertexBuffer final : public IDirect3DVertexBuffer9 {
  public:
    SoftVertexBuffer() = default;  // use Create
    static SoftVertexBuffer* Create(UINT length, DWORD usage, DWORD fvf);
    ~SoftVertexBuffer() override;

    HRESULT Lock(UINT offset, UINT size, void** data, DWORD flags) override;
    HRESULT Unlock() override;

    const uint8_t* Data() const { return m_data; }
    UINT Length() const { return m_length; }
    bool Locked() const { return m_locked; }

  private:
    uint8_t* m_data = nullptr;
    UINT m_length = 0;
    bool m_locked = false;
};

class SoftVertexShader final : public IDirect3DVertexShader9 {
  public:
    explicit SoftVertexShader(uint32_t record) : m_record(record) {}
    // Texture-coordinate sets passed on: vertex records 0-3 pass 0-3 sets.
    uint32_t TexSets() const { return m_record; }

  private:
    uint32_t m_record;
};

class SoftPixelShader final : public IDirect3DPixelShader9 {
  public:
    explicit SoftPixelShader(uint32_t record) : m_record(record) {}
    uint32_t Record() const { return m_record; }

  private:
    uint32_t m_record;
};

}  // namespace nplat::gfx
