// The DXVA2-shaped video processor of the software device: the device list
// the test controls set, sample surfaces, and VideoProcessBlt's background
// fill and YUV to RGB conversion (full and studio range), checked against
// the conversion worked out by hand. Also StretchRect of a YUV sample.
#include <gtest/gtest.h>

#include <vector>

#include "platform/gfx/dxva2.h"
#include "tests/platform/gfx_test_support.h"

namespace {

using namespace nplat;
using gfxtests::GfxDeviceTest;

class GfxDxva2 : public GfxDeviceTest {
  protected:
    void SetUp() override {
        GfxDeviceTest::SetUp();
        ASSERT_EQ(DXVA2CreateVideoService(m_device, IID_IDirectXVideoProcessorService,
                                          reinterpret_cast<void**>(&m_service)),
                  S_OK);
    }
    void TearDown() override {
        if (m_service) m_service->Release();
        GfxDeviceTest::TearDown();
    }

    // An NV12 sample of w x h filled with one colour.
    IDirect3DSurface9* Sample(int w, int h, uint8_t y, uint8_t u, uint8_t v) {
        IDirect3DSurface9* s = nullptr;
        EXPECT_EQ(m_service->CreateSurface(w, h, 0, D3DFMT_NV12, D3DPOOL_DEFAULT, 0,
                                           DXVA2_VideoProcessorRenderTarget, &s, nullptr),
                  S_OK);
        D3DLOCKED_RECT lr;
        EXPECT_EQ(s->LockRect(&lr, nullptr, 0), D3D_OK);
        auto* bits = static_cast<uint8_t*>(lr.pBits);
        for (int row = 0; row < h; ++row) std::memset(bits + row * lr.Pitch, y, w);
        for (int row = 0; row < h / 2; ++row) {
            uint8_t* c = bits + (h + row) * lr.Pitch;
            for (int x = 0; x < w; x += 2) {
                c[x] = u;
                c[x + 1] = v;
            }
        }
        s->UnlockRect();
        return s;
    }

    DXVA2_VideoDesc Desc() const {
        return DXVA2_VideoDesc{176, 144, {0x288D1503}, D3DFMT_NV12, {25, 1}, {25, 1}, 0, 0};
    }

    IDirectXVideoProcessorService* m_service = nullptr;
};

TEST_F(GfxDxva2, DeviceListComesFromTheTestControls) {
    DXVA2_VideoDesc desc = Desc();
    UINT count = 0;
    GUID* guids = nullptr;
    ASSERT_EQ(m_service->GetVideoProcessorDeviceGuids(&desc, &count, &guids), S_OK);
    ASSERT_EQ(count, 2u);
    EXPECT_TRUE(GfxEqualGuid(guids[0], DXVA2_VideoProcProgressiveDevice));
    EXPECT_TRUE(GfxEqualGuid(guids[1], DXVA2_VideoProcBobDevice));
    CoTaskMemFree(guids);

    const GUID vendor = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    gfxtest::SetVideoProcessorDevices(&vendor, 1);
    ASSERT_EQ(m_service->GetVideoProcessorDeviceGuids(&desc, &count, &guids), S_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_TRUE(GfxEqualGuid(guids[0], vendor));
    CoTaskMemFree(guids);
    IDirectXVideoProcessor* p = nullptr;
    EXPECT_EQ(
        m_service->CreateVideoProcessor(DXVA2_VideoProcBobDevice, &desc, D3DFMT_X8R8G8B8, 0, &p),
        E_INVALIDARG);  // no longer offered
    ASSERT_EQ(m_service->CreateVideoProcessor(vendor, &desc, D3DFMT_X8R8G8B8, 0, &p), S_OK);
    p->Release();

    gfxtest::SetVideoProcessorDevices(nullptr, 0);
    ASSERT_EQ(m_service->GetVideoProcessorDeviceGuids(&desc, &count, &guids), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(guids, nullptr);
}

TEST_F(GfxDxva2, BltFillsTheBackgroundAndConvertsTheSample) {
    DXVA2_VideoDesc desc = Desc();
    IDirectXVideoProcessor* p = nullptr;
    ASSERT_EQ(
        m_service->CreateVideoProcessor(DXVA2_VideoProcBobDevice, &desc, D3DFMT_X8R8G8B8, 0, &p),
        S_OK);
    IDirect3DSurface9* sample = Sample(176, 144, 150, 90, 180);
    IDirect3DSurface9* bb = nullptr;
    m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb);

    DXVA2_VideoProcessBltParams params{};
    params.TargetRect = {0, 0, kWidth, kHeight};
    params.BackgroundColor = {0x8000, 0x8000, 0x1000, 0xFFFF};  // Cr, Cb, Y 16, alpha
    params.DestFormat = {0x288C2002};
    params.Alpha = DXVA2FloatToFixed(1.0f);
    DXVA2_VideoSample s{};
    s.SampleFormat = {0x288D1503};  // full range, BT.601
    s.SrcSurface = sample;
    s.SrcRect = {0, 0, 176, 144};
    s.DstRect = {0, 0, kWidth / 2, kHeight};
    s.PlanarAlpha = DXVA2FloatToFixed(1.0f);
    ASSERT_EQ(p->VideoProcessBlt(bb, &params, &s, 1, nullptr), S_OK);
    std::vector<uint32_t> out = ReadBack(bb);
    // R = 150 + 1.402 x 52 = 222.9; G = 150 + 0.34413 x 38 - 0.71414 x 52 =
    // 125.9; B = 150 - 1.772 x 38 = 82.7.
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            uint32_t px = out[y * kWidth + x] & 0xFFFFFF;
            if (x < kWidth / 2) {
                EXPECT_NEAR(static_cast<int>(px >> 16), 223, 1);
                EXPECT_NEAR(static_cast<int>(px >> 8 & 0xFF), 126, 1);
                EXPECT_NEAR(static_cast<int>(px & 0xFF), 83, 1);
            } else {
                EXPECT_EQ(px, 0x101010u) << x << "," << y;
            }
        }
    }

    // Studio range: Y 235 with neutral chroma is white.
    IDirect3DSurface9* white = Sample(176, 144, 235, 128, 128);
    s.SrcSurface = white;
    s.SampleFormat = {(0x288D1503u & ~(7u << 12)) | DXVA2_NominalRange_16_235 << 12};
    ASSERT_EQ(p->VideoProcessBlt(bb, &params, &s, 1, nullptr), S_OK);
    EXPECT_EQ(ReadBack(bb)[0] & 0xFFFFFF, 0xFFFFFFu);
    EXPECT_EQ(gfxtest::Counters().videoProcessBlts, 2);

    s.SrcRect = {0, 0, 178, 144};  // past the sample
    EXPECT_EQ(p->VideoProcessBlt(bb, &params, &s, 1, nullptr), E_INVALIDARG);
    white->Release();
    sample->Release();
    bb->Release();
    p->Release();
}

TEST_F(GfxDxva2, StretchRectConvertsAYuvSampleAndKeepsSameFormatCopiesExact) {
    IDirect3DSurface9* sample = Sample(4, 4, 150, 90, 180);
    IDirect3DSurface9* bb = nullptr;
    m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb);
    ASSERT_EQ(m_device->StretchRect(sample, nullptr, bb, nullptr, D3DTEXF_POINT), D3D_OK);
    uint32_t px = ReadBack(bb)[kWidth * kHeight - 1] & 0xFFFFFF;
    EXPECT_NEAR(static_cast<int>(px >> 16), 223, 1);
    EXPECT_NEAR(static_cast<int>(px & 0xFF), 83, 1);

    IDirect3DSurface9* copy = Sample(4, 4, 0, 0, 0);
    ASSERT_EQ(m_device->StretchRect(sample, nullptr, copy, nullptr, D3DTEXF_NONE), D3D_OK);
    D3DLOCKED_RECT lr;
    ASSERT_EQ(copy->LockRect(&lr, nullptr, D3DLOCK_READONLY), D3D_OK);
    EXPECT_EQ(static_cast<uint8_t*>(lr.pBits)[0], 150);
    EXPECT_EQ(static_cast<uint8_t*>(lr.pBits)[4 * lr.Pitch + 1], 180);  // V of the first pair
    copy->UnlockRect();
    EXPECT_EQ(m_device->StretchRect(bb, nullptr, copy, nullptr, D3DTEXF_NONE),
              D3DERR_INVALIDCALL);  // no conversion into YUV
    copy->Release();
    sample->Release();
    bb->Release();
}

TEST_F(GfxDxva2, ServiceRefusesOtherInterfacesAndForeignDevices) {
    void* out = reinterpret_cast<void*>(1);
    EXPECT_EQ(DXVA2CreateVideoService(m_device, IID_IDirect3DDevice9, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(DXVA2CreateVideoService(nullptr, IID_IDirectXVideoProcessorService, &out), E_POINTER);
    IDirect3DSurface9* odd[2] = {};
    EXPECT_EQ(
        m_service->CreateSurface(175, 144, 0, D3DFMT_NV12, D3DPOOL_DEFAULT, 0, 1, odd, nullptr),
        E_INVALIDARG);
    ASSERT_EQ(
        m_service->CreateSurface(176, 144, 1, D3DFMT_YUY2, D3DPOOL_DEFAULT, 0, 1, odd, nullptr),
        S_OK);
    odd[0]->Release();
    odd[1]->Release();
}

}  // namespace
