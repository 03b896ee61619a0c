// What the graphics layer's entry points need from a device implementation
// beyond the Direct3D-shaped interface: the DXVA2 service of the device, and
// the factories of the implementations that NCODEC_GFX chooses between.
#pragma once

#include "platform/gfx/d3d9.h"
#include "platform/gfx/dxva2.h"

namespace nplat::gfx {

class GfxDevice : public IDirect3DDevice9Ex {
  public:
    virtual HRESULT CreateVideoProcessorService(IDirectXVideoProcessorService** service) = 0;
};

// The software reference device.
HRESULT CreateSoftDirect3D(IDirect3D9Ex** d3d);

}  // namespace nplat::gfx
