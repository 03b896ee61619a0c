// The software device as a Direct3D 9Ex device: creation (the flip-ex
// refusal the render retries around, sizes from the window), format answers,
// shader records and the ps_2_a refusal, device states and presentation into
// the window, copies and fills, and every injected failure returning its
// code with nothing left behind.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "platform/gfx/dxva2.h"
#include "tests/platform/gfx_test_support.h"

namespace {

using namespace nplat;
using gfxtests::GfxDeviceTest;
using gfxtests::MakeShaderRecord;

class GfxDevice : public GfxDeviceTest {};

TEST_F(GfxDevice, BackBufferTakesTheClientSizeAndTheDeviceAnswersForItsInterface) {
    IDirect3DSurface9* bb = nullptr;
    ASSERT_EQ(m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb), D3D_OK);
    D3DSURFACE_DESC d;
    ASSERT_EQ(bb->GetDesc(&d), D3D_OK);
    EXPECT_EQ(d.Width, static_cast<UINT>(kWidth));
    EXPECT_EQ(d.Height, static_cast<UINT>(kHeight));
    EXPECT_EQ(d.Format, D3DFMT_X8R8G8B8);
    D3DLOCKED_RECT lr;
    EXPECT_EQ(bb->LockRect(&lr, nullptr, 0), D3DERR_INVALIDCALL);  // not lockable
    HDC dc;
    EXPECT_EQ(bb->GetDC(&dc), D3DERR_NOTAVAILABLE);
    bb->Release();
    EXPECT_EQ(m_device->GetBackBuffer(0, 1, D3DBACKBUFFER_TYPE_MONO, &bb), D3DERR_INVALIDCALL);

    IDirect3DDevice9* plain = nullptr;
    ASSERT_EQ(m_device->QueryInterface(IID_IDirect3DDevice9, reinterpret_cast<void**>(&plain)),
              S_OK);
    EXPECT_EQ(static_cast<IDirect3DDevice9*>(m_device), plain);
    plain->Release();
    void* other = nullptr;
    EXPECT_EQ(m_device->QueryInterface(IID_IDirectXVideoProcessorService, &other), E_NOINTERFACE);
}

TEST_F(GfxDevice, FlipExRefusalLeavesTheDiscardRetry) {
    gfxtest::SetRefuseFlipEx(true);
    D3DPRESENT_PARAMETERS pp = Params(D3DSWAPEFFECT_FLIPEX);
    pp.BackBufferCount = 2;
    IDirect3DDevice9Ex* dev = nullptr;
    EXPECT_EQ(m_d3d->CreateDeviceEx(0, D3DDEVTYPE_HAL, m_window, 0x80, &pp, nullptr, &dev),
              D3DERR_INVALIDCALL);
    EXPECT_EQ(dev, nullptr);
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.BackBufferCount = 1;
    ASSERT_EQ(m_d3d->CreateDeviceEx(0, D3DDEVTYPE_HAL, m_window, 0x80, &pp, nullptr, &dev), D3D_OK);
    EXPECT_EQ(gfxtest::Counters().lastSwapEffect, D3DSWAPEFFECT_DISCARD);
    dev->Release();

    gfxtest::SetRefuseFlipEx(false);
    pp = Params(D3DSWAPEFFECT_FLIPEX);
    pp.BackBufferCount = 2;
    pp.BackBufferWidth = 40;
    pp.BackBufferHeight = 30;
    ASSERT_EQ(m_d3d->CreateDeviceEx(0, D3DDEVTYPE_HAL, m_window, 0x80, &pp, nullptr, &dev), D3D_OK);
    EXPECT_EQ(gfxtest::Counters().lastSwapEffect, D3DSWAPEFFECT_FLIPEX);
    EXPECT_EQ(pp.BackBufferWidth, 40u);  // a fixed size is kept
    dev->Release();
}

TEST_F(GfxDevice, FormatAnswersFollowTheTestControls) {
    auto check = [&](DWORD usage, D3DFORMAT format) {
        return m_d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, usage, D3DRTYPE_TEXTURE,
                                        format);
    };
    for (D3DFORMAT f :
         {D3DFMT_X8R8G8B8, D3DFMT_A8R8G8B8, D3DFMT_R8G8B8, D3DFMT_X1R5G5B5, D3DFMT_R5G6B5}) {
        EXPECT_EQ(check(0, f), D3D_OK) << f;
        EXPECT_EQ(check(D3DUSAGE_RENDERTARGET, f), D3D_OK) << f;
    }
    EXPECT_EQ(check(0, D3DFMT_L8), D3D_OK);
    EXPECT_EQ(check(0, D3DFMT_A8L8), D3D_OK);
    EXPECT_EQ(check(D3DUSAGE_RENDERTARGET, D3DFMT_L8), D3DERR_NOTAVAILABLE);
    EXPECT_EQ(check(0, D3DFMT_NV12), D3DERR_NOTAVAILABLE);  // not a texture format

    gfxtest::SetFormatSupported(0, D3DFMT_R5G6B5, false);
    EXPECT_EQ(check(0, D3DFMT_R5G6B5), D3DERR_NOTAVAILABLE);
    EXPECT_EQ(check(D3DUSAGE_RENDERTARGET, D3DFMT_R5G6B5), D3D_OK);
    IDirect3DTexture9* t = nullptr;
    EXPECT_EQ(m_device->CreateTexture(4, 4, 1, D3DUSAGE_DYNAMIC, D3DFMT_R5G6B5, D3DPOOL_DEFAULT, &t,
                                      nullptr),
              D3DERR_NOTAVAILABLE);
    EXPECT_EQ(t, nullptr);
    EXPECT_EQ(m_d3d->CheckDeviceFormatConversion(0, D3DDEVTYPE_HAL, D3DFMT_NV12, D3DFMT_X8R8G8B8),
              D3D_OK);
}

TEST_F(GfxDevice, ShaderRecordsCreateShadersAndPs2aMayBeRefused) {
    std::vector<DWORD> ps2a = MakeShaderRecord(5, D3DPS_VERSION_2_A);
    IDirect3DPixelShader9* ps = nullptr;
    ASSERT_EQ(m_device->CreatePixelShader(ps2a.data(), &ps), D3D_OK);
    ps->Release();
    gfxtest::SetRefusePs2a(true);
    EXPECT_EQ(m_device->CreatePixelShader(ps2a.data(), &ps), D3DERR_INVALIDCALL);
    EXPECT_EQ(ps, nullptr);
    std::vector<DWORD> ps20 = MakeShaderRecord(4);
    ASSERT_EQ(m_device->CreatePixelShader(ps20.data(), &ps), D3D_OK);
    ps->Release();
    EXPECT_EQ(gfxtest::Counters().shadersCreated[5], 1);
    EXPECT_EQ(gfxtest::Counters().shadersCreated[4], 1);

    // A vertex record is no pixel shader, and the reverse.
    std::vector<DWORD> vs = MakeShaderRecord(1);
    EXPECT_EQ(m_device->CreatePixelShader(vs.data(), &ps), D3DERR_INVALIDCALL);
    IDirect3DVertexShader9* v = nullptr;
    EXPECT_EQ(m_device->CreateVertexShader(ps20.data(), &v), D3DERR_INVALIDCALL);
    EXPECT_EQ(m_device->CreateVertexShader(nullptr, &v), D3DERR_INVALIDCALL);
}

TEST_F(GfxDevice, PresentCopiesTheBackBufferIntoTheWindow) {
    ASSERT_EQ(m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF204080, 1.0f, 0), D3D_OK);
    D3DRECT part{2, 3, 6, 5};
    ASSERT_EQ(m_device->Clear(1, &part, D3DCLEAR_TARGET, 0xFFFFFFFF, 1.0f, 0), D3D_OK);
    ASSERT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), S_OK);
    std::vector<uint32_t> shown(kWidth * kHeight);
    ASSERT_EQ(SnapshotClient(m_window, shown.data(), kWidth * 4), 1);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            bool inside = x >= 2 && x < 6 && y >= 3 && y < 5;
            EXPECT_EQ(shown[y * kWidth + x] & 0xFFFFFF, inside ? 0xFFFFFFu : 0x204080u);
        }
    }
    EXPECT_EQ(gfxtest::Counters().presents, 1);
}

TEST_F(GfxDevice, DeviceStatesAndPresentResultsComeFromTheWindowAndTheQueue) {
    EXPECT_EQ(m_device->CheckDeviceState(m_window), S_OK);
    gfxtest::QueueDeviceState(S_PRESENT_MODE_CHANGED);
    gfxtest::QueueDeviceState(S_PRESENT_OCCLUDED);
    EXPECT_EQ(m_device->CheckDeviceState(m_window), S_PRESENT_MODE_CHANGED);
    EXPECT_EQ(m_device->CheckDeviceState(m_window), S_PRESENT_OCCLUDED);
    EXPECT_EQ(m_device->CheckDeviceState(m_window), S_OK);

    gfxtest::QueuePresentResult(S_PRESENT_OCCLUDED);
    EXPECT_EQ(m_device->PresentEx(nullptr, nullptr, nullptr, nullptr, 0), S_PRESENT_OCCLUDED);
    EXPECT_EQ(m_device->PresentEx(nullptr, nullptr, nullptr, nullptr, 0), S_OK);

    // A hidden window is occluded until it shows again.
    SetMemoryWindowVisible(m_window, false);
    EXPECT_EQ(m_device->CheckDeviceState(m_window), S_PRESENT_OCCLUDED);
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), S_PRESENT_OCCLUDED);
    SetMemoryWindowVisible(m_window, true);
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), S_OK);

    // A lost device stays lost until it is reset.
    gfxtest::QueuePresentResult(D3DERR_DEVICELOST);
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_DEVICELOST);
    EXPECT_EQ(m_device->TestCooperativeLevel(), D3DERR_DEVICENOTRESET);
    EXPECT_EQ(m_device->CheckDeviceState(m_window), D3DERR_DEVICELOST);
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_DEVICELOST);
    D3DPRESENT_PARAMETERS pp = Params();
    ASSERT_EQ(m_device->ResetEx(&pp, nullptr), D3D_OK);
    EXPECT_EQ(m_device->TestCooperativeLevel(), D3D_OK);
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), S_OK);
}

TEST_F(GfxDevice, ResetExFollowsANewWindowSize) {
    ASSERT_EQ(ResizeMemoryWindow(m_window, 30, 20), 1);
    D3DPRESENT_PARAMETERS pp = Params();
    ASSERT_EQ(m_device->ResetEx(&pp, nullptr), D3D_OK);
    EXPECT_EQ(pp.BackBufferWidth, 30u);
    EXPECT_EQ(pp.BackBufferHeight, 20u);
    IDirect3DSurface9* bb = nullptr;
    ASSERT_EQ(m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb), D3D_OK);
    D3DSURFACE_DESC d;
    bb->GetDesc(&d);
    EXPECT_EQ(d.Width, 30u);
    D3DVIEWPORT9 vp;
    m_device->GetViewport(&vp);
    EXPECT_EQ(vp.Width, 30u);
    EXPECT_EQ(vp.Height, 20u);
    bb->Release();
}

TEST_F(GfxDevice, StretchRectColorFillAndReadBack) {
    IDirect3DSurface9* src = nullptr;
    ASSERT_EQ(m_device->CreateRenderTarget(2, 2, D3DFMT_X8R8G8B8, D3DMULTISAMPLE_NONE, 0, 0, &src,
                                           nullptr),
              D3D_OK);
    RECT r{1, 0, 2, 2};
    ASSERT_EQ(m_device->ColorFill(src, nullptr, 0xFF000000), D3D_OK);
    ASSERT_EQ(m_device->ColorFill(src, &r, 0xFFFFFFFF), D3D_OK);
    IDirect3DSurface9* bb = nullptr;
    m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb);
    // 2 px -> 4 px: point keeps the edge hard; linear ramps 0, 64, 191, 255.
    RECT to{0, 0, 4, 1};
    RECT from{0, 0, 2, 1};
    ASSERT_EQ(m_device->StretchRect(src, &from, bb, &to, D3DTEXF_POINT), D3D_OK);
    std::vector<uint32_t> out = ReadBack(bb);
    EXPECT_EQ(out[0] & 0xFF, 0u);
    EXPECT_EQ(out[1] & 0xFF, 0u);
    EXPECT_EQ(out[2] & 0xFF, 255u);
    EXPECT_EQ(out[3] & 0xFF, 255u);
    ASSERT_EQ(m_device->StretchRect(src, &from, bb, &to, D3DTEXF_LINEAR), D3D_OK);
    out = ReadBack(bb);
    EXPECT_EQ(out[0] & 0xFF, 0u);
    EXPECT_EQ(out[1] & 0xFF, 64u);
    EXPECT_EQ(out[2] & 0xFF, 191u);
    EXPECT_EQ(out[3] & 0xFF, 255u);

    RECT outside{0, 0, 3, 1};
    EXPECT_EQ(m_device->StretchRect(src, &outside, bb, &to, D3DTEXF_POINT), D3DERR_INVALIDCALL);
    EXPECT_EQ(m_device->StretchRect(bb, nullptr, bb, nullptr, D3DTEXF_POINT), D3DERR_INVALIDCALL);
    IDirect3DSurface9* wrong = nullptr;
    ASSERT_EQ(m_device->CreateOffscreenPlainSurface(kWidth, kHeight, D3DFMT_A8R8G8B8,
                                                    D3DPOOL_SYSTEMMEM, &wrong, nullptr),
              D3D_OK);
    EXPECT_EQ(m_device->GetRenderTargetData(bb, wrong), D3DERR_INVALIDCALL);  // format differs
    wrong->Release();
    bb->Release();
    src->Release();
}

TEST_F(GfxDevice, DrawsNeedASceneAndAValidStream) {
    IDirect3DVertexBuffer9* vb = nullptr;
    ASSERT_EQ(
        m_device->CreateVertexBuffer(48, D3DUSAGE_WRITEONLY, 0, D3DPOOL_DEFAULT, &vb, nullptr),
        D3D_OK);
    m_device->SetFVF(D3DFVF_XYZ);
    m_device->SetStreamSource(0, vb, 0, 12);
    EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 2), D3DERR_INVALIDCALL);
    ASSERT_EQ(m_device->BeginScene(), D3D_OK);
    EXPECT_EQ(m_device->BeginScene(), D3DERR_INVALIDCALL);
    EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 2), D3D_OK);
    EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 1, 2), D3DERR_INVALIDCALL);  // past end
    m_device->SetStreamSource(0, vb, 0, 8);
    EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 1), D3DERR_INVALIDCALL);  // stride
    m_device->SetStreamSource(0, vb, 0, 12);
    void* data;
    ASSERT_EQ(vb->Lock(0, 0, &data, D3DLOCK_DISCARD), D3D_OK);
    EXPECT_EQ(vb->Lock(0, 0, &data, 0), D3DERR_INVALIDCALL);
    EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 2), D3DERR_INVALIDCALL);  // locked
    vb->Unlock();
    EXPECT_EQ(m_device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_INVALIDCALL);
    ASSERT_EQ(m_device->EndScene(), D3D_OK);
    EXPECT_EQ(m_device->EndScene(), D3DERR_INVALIDCALL);
    m_device->SetStreamSource(0, nullptr, 0, 0);
    vb->Release();
}

TEST_F(GfxDevice, RenderTargetTexturesAreDrawnIntoButNotLocked) {
    IDirect3DTexture9* t = nullptr;
    ASSERT_EQ(m_device->CreateTexture(8, 8, 1, D3DUSAGE_RENDERTARGET, D3DFMT_A8R8G8B8,
                                      D3DPOOL_DEFAULT, &t, nullptr),
              D3D_OK);
    D3DLOCKED_RECT lr;
    EXPECT_EQ(t->LockRect(0, &lr, nullptr, 0), D3DERR_INVALIDCALL);
    IDirect3DSurface9* level = nullptr;
    ASSERT_EQ(t->GetSurfaceLevel(0, &level), D3D_OK);
    EXPECT_EQ(m_device->SetRenderTarget(0, level), D3D_OK);
    EXPECT_EQ(m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0x80112233, 1.0f, 0), D3D_OK);
    EXPECT_EQ(ReadBack(level)[63], 0x80112233u);
    IDirect3DSurface9* bb = nullptr;
    m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb);
    m_device->SetRenderTarget(0, bb);
    bb->Release();
    level->Release();
    EXPECT_EQ(t->GetLevelCount(), 1u);
    t->Release();
    IDirect3DTexture9* chain = nullptr;
    EXPECT_EQ(
        m_device->CreateTexture(8, 8, 2, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &chain, nullptr),
        D3DERR_INVALIDCALL);  // one level only
    EXPECT_EQ(chain, nullptr);
}

// ---- injected failures ----

struct FailureCase {
    GfxCall call;
    const char* name;
};

class GfxFailure : public GfxDeviceTest, public ::testing::WithParamInterface<FailureCase> {
  protected:
    // Runs the operation the call belongs to and returns its result.
    HRESULT Run(GfxCall call) {
        IDirect3DTexture9* t = nullptr;
        IDirect3DSurface9* s = nullptr;
        IDirect3DVertexBuffer9* vb = nullptr;
        HRESULT hr = E_FAIL;
        switch (call) {
            case GfxCall::kDirect3DCreate9Ex: {
                IDirect3D9Ex* d3d = nullptr;
                hr = Direct3DCreate9Ex(D3D_SDK_VERSION, &d3d);
                if (d3d) d3d->Release();
                return hr;
            }
            case GfxCall::kCreateDeviceEx: {
                IDirect3DDevice9Ex* dev = nullptr;
                D3DPRESENT_PARAMETERS pp = Params();
                hr = m_d3d->CreateDeviceEx(0, D3DDEVTYPE_HAL, m_window, 0, &pp, nullptr, &dev);
                if (dev) dev->Release();
                return hr;
            }
            case GfxCall::kCreateTexture:
                hr = m_device->CreateTexture(4, 4, 1, 0, D3DFMT_L8, D3DPOOL_DEFAULT, &t, nullptr);
                break;
            case GfxCall::kCreateVertexBuffer:
                hr = m_device->CreateVertexBuffer(80, 0, 0, D3DPOOL_DEFAULT, &vb, nullptr);
                break;
            case GfxCall::kCreateRenderTarget:
                hr = m_device->CreateRenderTarget(4, 4, D3DFMT_X8R8G8B8, D3DMULTISAMPLE_NONE, 0, 0,
                                                  &s, nullptr);
                break;
            case GfxCall::kCreateOffscreenPlainSurface:
                hr = m_device->CreateOffscreenPlainSurface(4, 4, D3DFMT_NV12, D3DPOOL_DEFAULT, &s,
                                                           nullptr);
                break;
            case GfxCall::kCreateVertexShader: {
                std::vector<DWORD> code = MakeShaderRecord(0);
                IDirect3DVertexShader9* v = nullptr;
                hr = m_device->CreateVertexShader(code.data(), &v);
                if (v) v->Release();
                return hr;
            }
            case GfxCall::kCreatePixelShader: {
                std::vector<DWORD> code = MakeShaderRecord(42);
                IDirect3DPixelShader9* p = nullptr;
                hr = m_device->CreatePixelShader(code.data(), &p);
                if (p) p->Release();
                return hr;
            }
            case GfxCall::kGetBackBuffer:
                hr = m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &s);
                break;
            case GfxCall::kGetSurfaceLevel:
                m_device->CreateTexture(4, 4, 1, 0, D3DFMT_L8, D3DPOOL_DEFAULT, &t, nullptr);
                hr = t->GetSurfaceLevel(0, &s);
                break;
            case GfxCall::kLockRect: {
                m_device->CreateTexture(4, 4, 1, D3DUSAGE_DYNAMIC, D3DFMT_L8, D3DPOOL_DEFAULT, &t,
                                        nullptr);
                D3DLOCKED_RECT lr;
                hr = t->LockRect(0, &lr, nullptr, D3DLOCK_DISCARD);
                if (SUCCEEDED(hr)) t->UnlockRect(0);
                break;
            }
            case GfxCall::kVertexBufferLock: {
                m_device->CreateVertexBuffer(80, 0, 0, D3DPOOL_DEFAULT, &vb, nullptr);
                void* data;
                hr = vb->Lock(0, 0, &data, D3DLOCK_DISCARD);
                if (SUCCEEDED(hr)) vb->Unlock();
                break;
            }
            case GfxCall::kSetRenderTarget:
                m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &s);
                hr = m_device->SetRenderTarget(0, s);
                break;
            case GfxCall::kBeginScene:
                hr = m_device->BeginScene();
                if (SUCCEEDED(hr)) m_device->EndScene();
                break;
            case GfxCall::kEndScene:
                m_device->BeginScene();
                hr = m_device->EndScene();
                EXPECT_EQ(m_device->BeginScene(), D3D_OK);  // the scene ended anyway
                m_device->EndScene();
                break;
            case GfxCall::kClear:
                hr = m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0, 1.0f, 0);
                break;
            case GfxCall::kDrawPrimitive:
                m_device->CreateVertexBuffer(48, 0, 0, D3DPOOL_DEFAULT, &vb, nullptr);
                m_device->SetFVF(D3DFVF_XYZ);
                m_device->SetStreamSource(0, vb, 0, 12);
                m_device->BeginScene();
                hr = m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 2);
                m_device->EndScene();
                m_device->SetStreamSource(0, nullptr, 0, 0);
                break;
            case GfxCall::kColorFill:
                m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &s);
                hr = m_device->ColorFill(s, nullptr, 0);
                break;
            case GfxCall::kStretchRect: {
                m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &s);
                IDirect3DSurface9* src = nullptr;
                m_device->CreateOffscreenPlainSurface(4, 4, D3DFMT_YUY2, D3DPOOL_DEFAULT, &src,
                                                      nullptr);
                hr = m_device->StretchRect(src, nullptr, s, nullptr, D3DTEXF_LINEAR);
                src->Release();
                break;
            }
            case GfxCall::kGetRenderTargetData: {
                m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &s);
                IDirect3DSurface9* sys = nullptr;
                m_device->CreateOffscreenPlainSurface(kWidth, kHeight, D3DFMT_X8R8G8B8,
                                                      D3DPOOL_SYSTEMMEM, &sys, nullptr);
                hr = m_device->GetRenderTargetData(s, sys);
                sys->Release();
                break;
            }
            case GfxCall::kResetEx: {
                D3DPRESENT_PARAMETERS pp = Params();
                hr = m_device->ResetEx(&pp, nullptr);
                break;
            }
            default:
                return RunDxva(call);
        }
        if (t) t->Release();
        if (s) s->Release();
        if (vb) vb->Release();
        return hr;
    }

    HRESULT RunDxva(GfxCall call) {
        IDirectXVideoProcessorService* service = nullptr;
        HRESULT hr = DXVA2CreateVideoService(m_device, IID_IDirectXVideoProcessorService,
                                             reinterpret_cast<void**>(&service));
        if (call == GfxCall::kDXVA2CreateVideoService || FAILED(hr)) {
            if (service) service->Release();
            return hr;
        }
        DXVA2_VideoDesc desc{176, 144, {0x288D1503}, D3DFMT_NV12, {25, 1}, {25, 1}, 0, 0};
        IDirect3DSurface9* sample = nullptr;
        if (call == GfxCall::kCreateSurface) {
            hr = service->CreateSurface(176, 144, 0, D3DFMT_NV12, D3DPOOL_DEFAULT, 0,
                                        DXVA2_VideoProcessorRenderTarget, &sample, nullptr);
        } else if (call == GfxCall::kGetVideoProcessorDeviceGuids) {
            UINT count = 0;
            GUID* guids = nullptr;
            hr = service->GetVideoProcessorDeviceGuids(&desc, &count, &guids);
            CoTaskMemFree(guids);
        } else {
            IDirectXVideoProcessor* processor = nullptr;
            hr = service->CreateVideoProcessor(DXVA2_VideoProcBobDevice, &desc, D3DFMT_X8R8G8B8, 0,
                                               &processor);
            if (call == GfxCall::kVideoProcessBlt && processor) {
                service->CreateSurface(176, 144, 0, D3DFMT_NV12, D3DPOOL_DEFAULT, 0,
                                       DXVA2_VideoProcessorRenderTarget, &sample, nullptr);
                IDirect3DSurface9* bb = nullptr;
                m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb);
                DXVA2_VideoProcessBltParams params{};
                params.TargetRect = {0, 0, kWidth, kHeight};
                DXVA2_VideoSample s{};
                s.SrcSurface = sample;
                s.SrcRect = {0, 0, 176, 144};
                s.DstRect = params.TargetRect;
                hr = processor->VideoProcessBlt(bb, &params, &s, 1, nullptr);
                bb->Release();
            }
            if (processor) processor->Release();
        }
        if (sample) sample->Release();
        service->Release();
        return hr;
    }
};

TEST_P(GfxFailure, InjectedFailureReturnsItsCodeAndLeavesNothingBehind) {
    const GfxCall call = GetParam().call;
    const HRESULT code = static_cast<HRESULT>(0x8876ABCDu);
    ASSERT_TRUE(SUCCEEDED(Run(call))) << "the operation works without the failure";
    gfxtest::FailCall(call, 0, 1, code);
    EXPECT_EQ(Run(call), code);
    EXPECT_TRUE(SUCCEEDED(Run(call))) << "one failure only";
    // TearDown checks that every object was freed.
}

INSTANTIATE_TEST_SUITE_P(
    Calls, GfxFailure,
    ::testing::Values(FailureCase{GfxCall::kDirect3DCreate9Ex, "Direct3DCreate9Ex"},
                      FailureCase{GfxCall::kCreateDeviceEx, "CreateDeviceEx"},
                      FailureCase{GfxCall::kCreateTexture, "CreateTexture"},
                      FailureCase{GfxCall::kCreateVertexBuffer, "CreateVertexBuffer"},
                      FailureCase{GfxCall::kCreateRenderTarget, "CreateRenderTarget"},
                      FailureCase{GfxCall::kCreateOffscreenPlainSurface, "CreateOffscreenPlain"},
                      FailureCase{GfxCall::kCreateVertexShader, "CreateVertexShader"},
                      FailureCase{GfxCall::kCreatePixelShader, "CreatePixelShader"},
                      FailureCase{GfxCall::kGetBackBuffer, "GetBackBuffer"},
                      FailureCase{GfxCall::kGetSurfaceLevel, "GetSurfaceLevel"},
                      FailureCase{GfxCall::kLockRect, "LockRect"},
                      FailureCase{GfxCall::kVertexBufferLock, "VertexBufferLock"},
                      FailureCase{GfxCall::kSetRenderTarget, "SetRenderTarget"},
                      FailureCase{GfxCall::kBeginScene, "BeginScene"},
                      FailureCase{GfxCall::kEndScene, "EndScene"},
                      FailureCase{GfxCall::kClear, "Clear"},
                      FailureCase{GfxCall::kDrawPrimitive, "DrawPrimitive"},
                      FailureCase{GfxCall::kColorFill, "ColorFill"},
                      FailureCase{GfxCall::kStretchRect, "StretchRect"},
                      FailureCase{GfxCall::kGetRenderTargetData, "GetRenderTargetData"},
                      FailureCase{GfxCall::kResetEx, "ResetEx"},
                      FailureCase{GfxCall::kDXVA2CreateVideoService, "DXVA2CreateVideoService"},
                      FailureCase{GfxCall::kCreateSurface, "CreateSurface"},
                      FailureCase{GfxCall::kGetVideoProcessorDeviceGuids, "DeviceGuids"},
                      FailureCase{GfxCall::kCreateVideoProcessor, "CreateVideoProcessor"},
                      FailureCase{GfxCall::kVideoProcessBlt, "VideoProcessBlt"}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return std::string(info.param.name); });

TEST(GfxEntry, UnknownDeviceNameIsNotAvailable) {
    const char* old = std::getenv("NCODEC_GFX");
    std::string saved = old ? old : "";
    setenv("NCODEC_GFX", "no-such-device", 1);
    IDirect3D9Ex* d3d = reinterpret_cast<IDirect3D9Ex*>(1);
    EXPECT_EQ(Direct3DCreate9Ex(D3D_SDK_VERSION, &d3d), D3DERR_NOTAVAILABLE);
    EXPECT_EQ(d3d, nullptr);
    setenv("NCODEC_GFX", "soft", 1);
    EXPECT_EQ(Direct3DCreate9Ex(31, &d3d), D3DERR_NOTAVAILABLE);  // wrong SDK version
    ASSERT_EQ(Direct3DCreate9Ex(D3D_SDK_VERSION, &d3d), D3D_OK);
    d3d->Release();
    if (old) {
        setenv("NCODEC_GFX", saved.c_str(), 1);
    } else {
        unsetenv("NCODEC_GFX");
    }
}

}  // namespace
