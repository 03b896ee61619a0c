// The DC of a Direct3D surface for the video render's text drawing, in a
// file of its own because the Direct3D and DirectDraw headers of the
// platform layer cannot be included together.
#include "platform/gfx/d3d9.h"
#include "render/video/video_render_internal.h"

namespace ncb::render_video {

nplat::HRESULT D3DSurfaceGetDC(void* surface, nplat::HDC* dc) {
    return static_cast<nplat::IDirect3DSurface9*>(surface)->GetDC(dc);
}

nplat::HRESULT D3DSurfaceReleaseDC(void* surface, nplat::HDC dc) {
    return static_cast<nplat::IDirect3DSurface9*>(surface)->ReleaseDC(dc);
}

}  // namespace ncb::render_video
