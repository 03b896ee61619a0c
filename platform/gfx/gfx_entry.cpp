// The two entry points the built-in modules "d3d9.dll" and "dxva2.dll"
// export, and the task-memory allocator of DXVA2's device lists.
//
// Direct3DCreate9Ex picks the implementation once per call: NCODEC_GFX names
// it ("soft", the default, is the software reference device). A name this
// build does not have gives D3DERR_NOTAVAILABLE, so a caller sees the same
// failure as on a machine without Direct3D rather than a silent substitute.
#include <cstdlib>
#include <cstring>

#include "platform/gfx/dxva2.h"
#include "platform/gfx/gfx_internal.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/kernel/heap.h"

namespace nplat {

namespace {

struct Backend {
    const char* name;
    HRESULT (*create)(IDirect3D9Ex**);
};

constexpr Backend kBackends[] = {
    {"soft", &gfx::CreateSoftDirect3D},
};

}  // namespace

HRESULT Direct3DCreate9Ex(UINT sdkVersion, IDirect3D9Ex** d3d) {
    if (!d3d) return D3DERR_INVALIDCALL;
    *d3d = nullptr;
    if (sdkVersion != D3D_SDK_VERSION) return D3DERR_NOTAVAILABLE;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kDirect3DCreate9Ex); FAILED(hr)) return hr;
    const char* choice = std::getenv("NCODEC_GFX");
    if (!choice || !*choice) choice = "soft";
    for (const Backend& b : kBackends)
        if (std::strcmp(b.name, choice) == 0) return b.create(d3d);
    return D3DERR_NOTAVAILABLE;
}

HRESULT DXVA2CreateVideoService(IDirect3DDevice9* device, const IID& iid, void** service) {
    if (!service) return E_POINTER;
    *service = nullptr;
    if (!device) return E_POINTER;
    if (!GfxEqualGuid(iid, IID_IDirectXVideoProcessorService)) return E_NOINTERFACE;
    auto* own = dynamic_cast<gfx::GfxDevice*>(device);
    if (!own) return E_INVALIDARG;
    if (HRESULT hr = gfxtest::Injected(GfxCall::kDXVA2CreateVideoService); FAILED(hr)) return hr;
    IDirectXVideoProcessorService* made = nullptr;
    HRESULT hr = own->CreateVideoProcessorService(&made);
    if (FAILED(hr)) return hr;
    *service = made;
    return S_OK;
}

void* CoTaskMemAlloc(size_t bytes) { return HeapAlloc(bytes); }
void CoTaskMemFree(void* block) { HeapFree(block); }

}  // namespace nplat
