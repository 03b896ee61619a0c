// Shared set-up for the graphics layer's tests: shader records built the way
// the shader resource holds them, a device on a memory window, quads in the
// vertex layout the renders write, and read-back of render targets.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/gfx/d3d9.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/gfx/shader_record.h"
#include "platform/window/window.h"

namespace gfxtests {

using namespace nplat;

// The token stream of one record (without the resource's byte count).
inline std::vector<DWORD> MakeShaderRecord(uint32_t number, DWORD version = 0,
                                           uint32_t samplers = 1,
                                           const std::string& glsl = "void main() {}") {
    if (version == 0) version = number < 4 ? D3DVS_VERSION_2_0 : D3DPS_VERSION_2_0;
    std::vector<DWORD> words;
    size_t textWords = (glsl.size() + 4) / 4;  // at least one NUL
    size_t payload = 3 + textWords;
    words.push_back(version);
    words.push_back(kShaderCommentToken | static_cast<DWORD>(payload) << 16);
    words.push_back(kShaderRecordMagic);
    words.push_back(number);
    words.push_back(samplers);
    size_t at = words.size();
    words.resize(at + textWords, 0);
    std::memcpy(&words[at], glsl.data(), glsl.size());
    words.push_back(kShaderEndToken);
    return words;
}

// Vertices as the renders write them: position (z = 1) then N texture
// coordinate pairs, corners top-left, top-right, bottom-left, bottom-right.
struct QuadCorner {
    float x, y;
    float tex[3][2];
};

class GfxDeviceTest : public ::testing::Test {
  protected:
    static constexpr int kWidth = 16;
    static constexpr int kHeight = 12;

    void SetUp() override {
        gfxtest::Reset();
        m_liveAtStart = gfxtest::Counters().liveObjects;
        m_window = CreateMemoryWindow(0, 0, kWidth, kHeight);
        ASSERT_NE(m_window, nullptr);
        ASSERT_EQ(Direct3DCreate9Ex(D3D_SDK_VERSION, &m_d3d), D3D_OK);
        D3DPRESENT_PARAMETERS pp = Params();
        ASSERT_EQ(m_d3d->CreateDeviceEx(0, D3DDEVTYPE_HAL, m_window, 0x80, &pp, nullptr, &m_device),
                  D3D_OK);
    }

    void TearDown() override {
        if (m_device) m_device->Release();
        if (m_d3d) m_d3d->Release();
        DestroyWindow(m_window);
        EXPECT_EQ(gfxtest::Counters().liveObjects, m_liveAtStart) << "graphics objects leaked";
        gfxtest::Reset();
    }

    D3DPRESENT_PARAMETERS Params(D3DSWAPEFFECT effect = D3DSWAPEFFECT_DISCARD) const {
        D3DPRESENT_PARAMETERS pp{};
        pp.BackBufferFormat = D3DFMT_X8R8G8B8;
        pp.BackBufferCount = 1;
        pp.SwapEffect = effect;
        pp.hDeviceWindow = m_window;
        pp.Windowed = 1;
        pp.Flags = D3DPRESENTFLAG_VIDEO;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_ONE;
        return pp;
    }

    IDirect3DPixelShader9* PixelShader(uint32_t number) {
        std::vector<DWORD> code = MakeShaderRecord(number);
        IDirect3DPixelShader9* s = nullptr;
        EXPECT_EQ(m_device->CreatePixelShader(code.data(), &s), D3D_OK) << number;
        return s;
    }

    IDirect3DVertexShader9* VertexShader(uint32_t number) {
        std::vector<DWORD> code = MakeShaderRecord(number);
        IDirect3DVertexShader9* s = nullptr;
        EXPECT_EQ(m_device->CreateVertexShader(code.data(), &s), D3D_OK) << number;
        return s;
    }

    // A texture filled row by row from 32-bit words (A8R8G8B8 / X8R8G8B8),
    // bytes (L8) or 16-bit words (A8L8, R5G6B5, X1R5G5B5).
    template <typename T>
    IDirect3DTexture9* Texture(int width, int height, D3DFORMAT format, const std::vector<T>& px) {
        IDirect3DTexture9* t = nullptr;
        EXPECT_EQ(m_device->CreateTexture(width, height, 1, D3DUSAGE_DYNAMIC, format,
                                          D3DPOOL_DEFAULT, &t, nullptr),
                  D3D_OK);
        if (!t) return nullptr;
        D3DLOCKED_RECT lr;
        EXPECT_EQ(t->LockRect(0, &lr, nullptr, D3DLOCK_DISCARD), D3D_OK);
        for (int y = 0; y < height; ++y)
            std::memcpy(static_cast<uint8_t*>(lr.pBits) + y * lr.Pitch, &px[y * width],
                        width * sizeof(T));
        EXPECT_EQ(t->UnlockRect(0), D3D_OK);
        return t;
    }

    // Draws one quad as a two-triangle strip with `sets` coordinate sets,
    // through vertex shader `sets` and the given pixel shader.
    void DrawQuad(const QuadCorner corners[4], int sets, IDirect3DPixelShader9* ps) {
        UINT stride = 12 + 8 * sets;
        IDirect3DVertexBuffer9* vb = nullptr;
        ASSERT_EQ(m_device->CreateVertexBuffer(4 * stride, D3DUSAGE_WRITEONLY, 0, D3DPOOL_DEFAULT,
                                               &vb, nullptr),
                  D3D_OK);
        void* data = nullptr;
        ASSERT_EQ(vb->Lock(0, 0, &data, D3DLOCK_DISCARD), D3D_OK);
        for (int i = 0; i < 4; ++i) {
            float v[3 + 6] = {corners[i].x, corners[i].y, 1.0f};
            for (int s = 0; s < sets; ++s) {
                v[3 + 2 * s] = corners[i].tex[s][0];
                v[4 + 2 * s] = corners[i].tex[s][1];
            }
            std::memcpy(static_cast<uint8_t*>(data) + i * stride, v, stride);
        }
        ASSERT_EQ(vb->Unlock(), D3D_OK);
        IDirect3DVertexShader9* vs = VertexShader(static_cast<uint32_t>(sets));
        EXPECT_EQ(m_device->SetFVF(D3DFVF_XYZ | (static_cast<DWORD>(sets) << 8)), D3D_OK);
        EXPECT_EQ(m_device->SetStreamSource(0, vb, 0, stride), D3D_OK);
        EXPECT_EQ(m_device->SetVertexShader(vs), D3D_OK);
        EXPECT_EQ(m_device->SetPixelShader(ps), D3D_OK);
        EXPECT_EQ(m_device->BeginScene(), D3D_OK);
        EXPECT_EQ(m_device->DrawPrimitive(D3DPT_TRIANGLESTRIP, 0, 2), D3D_OK);
        EXPECT_EQ(m_device->EndScene(), D3D_OK);
        m_device->SetStreamSource(0, nullptr, 0, 0);
        m_device->SetVertexShader(nullptr);
        m_device->SetPixelShader(nullptr);
        vs->Release();
        vb->Release();
    }

    // The whole-target quad with every set spanning 0..1 shifted by half a
    // texel of a texW x texH texture.
    static void FullQuad(QuadCorner q[4], int texW, int texH) {
        float u0 = 0.5f / texW, v0 = 0.5f / texH;
        const float xs[4] = {-1, 1, -1, 1}, ys[4] = {1, 1, -1, -1};
        for (int i = 0; i < 4; ++i) {
            q[i].x = xs[i];
            q[i].y = ys[i];
            for (auto& t : q[i].tex) {
                t[0] = (i & 1 ? 1.0f : 0.0f) + u0;
                t[1] = (i & 2 ? 1.0f : 0.0f) + v0;
            }
        }
    }

    // The pixels of a render target as 32-bit words.
    std::vector<uint32_t> ReadBack(IDirect3DSurface9* rt) {
        D3DSURFACE_DESC d;
        EXPECT_EQ(rt->GetDesc(&d), D3D_OK);
        IDirect3DSurface9* sys = nullptr;
        EXPECT_EQ(m_device->CreateOffscreenPlainSurface(d.Width, d.Height, d.Format,
                                                        D3DPOOL_SYSTEMMEM, &sys, nullptr),
                  D3D_OK);
        std::vector<uint32_t> out(d.Width * d.Height);
        if (!sys) return out;
        EXPECT_EQ(m_device->GetRenderTargetData(rt, sys), D3D_OK);
        D3DLOCKED_RECT lr;
        EXPECT_EQ(sys->LockRect(&lr, nullptr, D3DLOCK_READONLY), D3D_OK);
        for (UINT y = 0; y < d.Height; ++y)
            std::memcpy(&out[y * d.Width], static_cast<uint8_t*>(lr.pBits) + y * lr.Pitch,
                        d.Width * 4);
        sys->UnlockRect();
        sys->Release();
        return out;
    }

    std::vector<uint32_t> ReadBackBuffer() {
        IDirect3DSurface9* bb = nullptr;
        EXPECT_EQ(m_device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb), D3D_OK);
        std::vector<uint32_t> out = ReadBack(bb);
        bb->Release();
        return out;
    }

    int m_liveAtStart = 0;
    HWND m_window = nullptr;
    IDirect3D9Ex* m_d3d = nullptr;
    IDirect3DDevice9Ex* m_device = nullptr;
};

}  // namespace gfxtests
