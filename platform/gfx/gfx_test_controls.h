// Test controls of the graphics layer: what the devices answer to format
// queries and shader profiles, the next device-state and present results,
// injected failures of named calls, the DXVA2 processor device list, and
// counters of what was created and drawn. They let render tests drive every
// failure path of the Direct3D-shaped calls without a broken GPU.
//
// The controls are process-wide and apply to every device (software or GPU).
// Defaults answer like a capable adapter: every format of the layer is
// supported for every usage, ps_2_a shaders are created, FLIPEX is accepted,
// no failures are armed, and the processor list holds the progressive and bob
// devices.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <cstdint>

#include "platform/gfx/d3d9.h"

namespace nplat {

enum class GfxCall {
    kDirect3DCreate9Ex,
    kCreateDeviceEx,
    kCreateTexture,
    kCreateVertexBuffer,
    kCreateRenderTarget,
    kCreateOffscreenPlainSurface,
    kCreateVertexShader,
    kCreatePixelShader,
    kGetBackBuffer,
    kGetSurfaceLevel,
    kLockRect,  // surfaces and texture levels
    kVertexBufferLock,
    kSetRenderTarget,
    kBeginScene,
    kEndScene,
    kClear,
    kDrawPrimitive,
    kColorFill,
    kStretchRect,
    kGetRenderTargetData,
    kResetEx,  // Reset and ResetEx
    kDXVA2CreateVideoService,
    kCreateSurface,
    kGetVideoProcessorDeviceGuids,
    kCreateVideoProcessor,
    kVideoProcessBlt,
    kCount
};

struct GfxCounters {
    int liveObjects = 0;     // objects of this layer not yet freed
    int devicesCreated = 0;  // successful CreateDeviceEx calls
    int createDeviceCalls = 0;
    D3DSWAPEFFECT lastSwapEffect = D3DSWAPEFFECT_DISCARD;  // of the last successful creation
    int shadersCreated[43] = {};  // successful Create*Shader per record number
    int drawPrimitive = 0;
    int trianglesDrawn = 0;  // after culling
    int clears = 0;
    int colorFills = 0;
    int stretchRects = 0;
    int getRenderTargetData = 0;
    int presents = 0;  // Present and PresentEx calls that returned a success code
    int resets = 0;
    int videoProcessBlts = 0;
};

namespace gfxtest {

// Everything back to its default, counters included (live objects are kept:
// they count objects that still exist).
void Reset();

// CheckDeviceFormat's answer for (usage, format); usage is matched exactly
// (0 or D3DUSAGE_RENDERTARGET, ...). Creating a texture, render target or
// off-screen surface of a refused format then fails with D3DERR_NOTAVAILABLE
// too, its usage reduced to D3DUSAGE_RENDERTARGET or 0 for the look-up.
void SetFormatSupported(DWORD usage, D3DFORMAT format, bool supported);
// CreatePixelShader of a ps_2_a record fails with D3DERR_INVALIDCALL.
void SetRefusePs2a(bool refuse);
// CreateDeviceEx with D3DSWAPEFFECT_FLIPEX fails with D3DERR_INVALIDCALL.
void SetRefuseFlipEx(bool refuse);

// Results handed out by the next calls of CheckDeviceState, and of Present /
// PresentEx, one per call in order; once the queue is empty the device
// answers by itself. A queued D3DERR_DEVICELOST also puts the device into the
// lost state (TestCooperativeLevel answers D3DERR_DEVICENOTRESET until a
// Reset or ResetEx).
void QueueDeviceState(HRESULT result);
void QueuePresentResult(HRESULT result);

// After `skip` successful calls of this kind, the next `count` fail with
// `result`.
void FailCall(GfxCall call, int skip, int count = 1, HRESULT result = D3DERR_INVALIDCALL);
void ClearFailures();

// The device list GetVideoProcessorDeviceGuids answers (at most 16).
void SetVideoProcessorDevices(const GUID* guids, int count);

GfxCounters Counters();

// Called by the implementations.
bool ShouldFail(GfxCall call, HRESULT* result);
// D3D_OK, or the armed failure's result.
HRESULT Injected(GfxCall call);
bool IsFormatSupported(DWORD usage, D3DFORMAT format);
bool RefusePs2a();
bool RefuseFlipEx();
bool NextDeviceState(HRESULT* result);
bool NextPresentResult(HRESULT* result);
int VideoProcessorDevices(GUID* guids, int capacity);
void Count(int GfxCounters::*counter, int amount = 1);
void CountShaderCreated(uint32_t record);
void CountDeviceCreated(D3DSWAPEFFECT effect);
void CountLiveObject(int delta);

}  // namespace gfxtest
}  // namespace nplat
