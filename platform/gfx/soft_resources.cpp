// Resources of the software device; see soft_resources.h. Lock rules follow
// Direct3D 9: only lockable surfaces lock, one lock at a time, and a locked
// rectangle must lie inside the surface.
#include "platform/gfx/soft_resources.h"

#include <cstring>

#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/kernel/heap.h"

namespace nplat::gfx {

// ---- surface ----

SoftSurface* SoftSurface::Create(int width, int height, D3DFORMAT format, D3DPOOL pool, DWORD usage,
                                 D3DRESOURCETYPE type, const SurfaceRole& role,
                                 GfxObject* container) {
    if (width < 1 || height < 1 || FormatBytes(format) == 0) return nullptr;
    SoftSurface* s = HeapNew<SoftSurface>();
    if (!s) return nullptr;
    s->m_width = width;
    s->m_height = height;
    s->m_pitch = SurfacePitch(format, width);
    size_t bytes = SurfaceBytes(format, s->m_pitch, height);
    s->m_bits = static_cast<uint8_t*>(HeapAlloc(bytes));
    if (!s->m_bits) {
        s->m_container = nullptr;
        s->Release();
        return nullptr;
    }
    // New memory starts black (and, for YUV, at neutral chroma) so that a
    // surface never shows heap garbage.
    std::memset(s->m_bits, 0, bytes);
    if (IsYuvSurfaceFormat(format)) {
        if (format == D3DFMT_NV12) {
            std::memset(s->m_bits + static_cast<size_t>(height) * s->m_pitch, 128,
                        bytes - static_cast<size_t>(height) * s->m_pitch);
        } else {
            for (int y = 0; y < height; ++y) {
                uint8_t* row = s->Row(y);
                for (int x = 0; x < width * 2; x += 2)
                    row[x + (format == D3DFMT_YUY2 ? 1 : 0)] = 128;
            }
        }
    }
    s->m_desc = D3DSURFACE_DESC{format,
                                type,
                                usage,
                                pool,
                                D3DMULTISAMPLE_NONE,
                                0,
                                static_cast<UINT>(width),
                                static_cast<UINT>(height)};
    s->m_role = role;
    s->m_container = container;
    return s;
}

SoftSurface::~SoftSurface() { HeapFree(m_bits); }

ULONG SoftSurface::AddRef() { return m_container ? m_container->AddRef() : GfxObject::AddRef(); }

ULONG SoftSurface::Release() { return m_container ? m_container->Release() : GfxObject::Release(); }

HRESULT SoftSurface::GetDesc(D3DSURFACE_DESC* desc) {
    if (!desc) return D3DERR_INVALIDCALL;
    *desc = m_desc;
    return D3D_OK;
}

HRESULT SoftSurface::LockRect(D3DLOCKED_RECT* locked, const RECT* rect, DWORD) {
    if (!locked || !m_role.lockable || m_locked) return D3DERR_INVALIDCALL;
    HRESULT injected;
    if (gfxtest::ShouldFail(GfxCall::kLockRect, &injected)) return injected;
    int left = 0, top = 0;
    if (rect) {
        // NV12's second plane makes a partial lock meaningless.
        if (rect->left < 0 || rect->top < 0 || rect->right > m_width || rect->bottom > m_height ||
            rect->left >= rect->right || rect->top >= rect->bottom || m_desc.Format == D3DFMT_NV12)
            return D3DERR_INVALIDCALL;
        left = rect->left;
        top = rect->top;
    }
    locked->Pitch = m_pitch;
    locked->pBits = Row(top) + left * FormatBytes(m_desc.Format);
    m_locked = true;
    return D3D_OK;
}

HRESULT SoftSurface::UnlockRect() {
    if (!m_locked) return D3DERR_INVALIDCALL;
    m_locked = false;
    return D3D_OK;
}

// GDI drawing into device surfaces is not offered; callers fall back.
HRESULT SoftSurface::GetDC(HDC* dc) {
    if (dc) *dc = nullptr;
    return D3DERR_NOTAVAILABLE;
}

HRESULT SoftSurface::ReleaseDC(HDC) { return D3DERR_INVALIDCALL; }

// ---- texture ----

SoftTexture* SoftTexture::Create(int width, int height, D3DFORMAT format, D3DPOOL pool,
                                 DWORD usage) {
    SoftTexture* t = HeapNew<SoftTexture>();
    if (!t) return nullptr;
    SurfaceRole role;
    role.renderTarget = (usage & D3DUSAGE_RENDERTARGET) != 0;
    role.lockable = !role.renderTarget && ((usage & D3DUSAGE_DYNAMIC) || pool != D3DPOOL_DEFAULT);
    role.textureLevel = true;
    t->m_level = SoftSurface::Create(width, height, format, pool, usage, D3DRTYPE_SURFACE, role, t);
    if (!t->m_level) {
        t->Release();
        return nullptr;
    }
    return t;
}

SoftTexture::~SoftTexture() {
    // The level counts with the texture, so it is destroyed directly.
    if (m_level) HeapDelete(m_level);
}

HRESULT SoftTexture::GetLevelDesc(UINT level, D3DSURFACE_DESC* desc) {
    if (level != 0) return D3DERR_INVALIDCALL;
    return m_level->GetDesc(desc);
}

HRESULT SoftTexture::GetSurfaceLevel(UINT level, IDirect3DSurface9** surface) {
    if (!surface) return D3DERR_INVALIDCALL;
    *surface = nullptr;
    if (level != 0) return D3DERR_INVALIDCALL;
    HRESULT injected;
    if (gfxtest::ShouldFail(GfxCall::kGetSurfaceLevel, &injected)) return injected;
    AddRef();
    *surface = m_level;
    return D3D_OK;
}

HRESULT SoftTexture::LockRect(UINT level, D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags) {
    if (level != 0) return D3DERR_INVALIDCALL;
    return m_level->LockRect(locked, rect, flags);
}

HRESULT SoftTexture::UnlockRect(UINT level) {
    if (level != 0) return D3DERR_INVALIDCALL;
    return m_level->UnlockRect();
}

// ---- vertex buffer ----

SoftVertexBuffer* SoftVertexBuffer::Create(UINT length, DWORD, DWORD) {
    if (length == 0) return nullptr;
    SoftVertexBuffer* b = HeapNew<SoftVertexBuffer>();
    if (!b) return nullptr;
    b->m_data = static_cast<uint8_t*>(HeapAlloc(length));
    if (!b->m_data) {
        b->Release();
        return nullptr;
    }
    std::memset(b->m_data, 0, length);
    b->m_length = length;
    return b;
}

SoftVertexBuffer::~SoftVertexBuffer() { HeapFree(m_data); }

HRESULT SoftVertexBuffer::Lock(UINT offset, UINT size, void** data, DWORD) {
    if (!data) return D3DERR_INVALIDCALL;
    *data = nullptr;
    if (m_locked || offset > m_length || (size != 0 && size > m_length - offset))
        return D3DERR_INVALIDCALL;
    HRESULT injected;
    if (gfxtest::ShouldFail(GfxCall::kVertexBufferLock, &injected)) return injected;
    *data = m_data + offset;
    m_locked = true;
    return D3D_OK;
}

HRESULT SoftVertexBuffer::Unlock() {
    if (!m_locked) return D3DERR_INVALIDCALL;
    m_locked = false;
    return D3D_OK;
}

}  // namespace nplat::gfx
