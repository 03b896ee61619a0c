// Texts drawn straight onto a DirectDraw surface through its DC: every text
// but a hidden one appears (screen-only texts included), in its style's
// colours; an empty list needs no DC; a DC that cannot be had fails the call
// and leaves its error in the statistics.
#include "ncodecbase/gdi_text.h"
#include "platform/ddraw/ddraw.h"
#include "tests/render/video/video_render_harness.h"

namespace ncbtest::render_video {
namespace {

using nplat::ddtest::Call;

class SurfaceTextTest : public RenderTest {
  protected:
    void SetUp() override {
        RenderTest::SetUp();
        nplat::ddtest::Reset();
        ASSERT_EQ(nplat::DirectDrawCreate(nullptr, &dd, nullptr), nplat::DD_OK);
        ASSERT_EQ(dd->SetCooperativeLevel(window, nplat::DDSCL_NORMAL), nplat::DD_OK);
        nplat::DDSURFACEDESC2 d = {};
        d.dwSize = sizeof(d);
        d.dwFlags =
            nplat::DDSD_CAPS | nplat::DDSD_WIDTH | nplat::DDSD_HEIGHT | nplat::DDSD_PIXELFORMAT;
        d.dwWidth = 64;
        d.dwHeight = 32;
        d.ddsCaps.dwCaps = nplat::DDSCAPS_OFFSCREENPLAIN | nplat::DDSCAPS_SYSTEMMEMORY;
        d.ddpfPixelFormat.dwSize = sizeof(d.ddpfPixelFormat);
        d.ddpfPixelFormat.dwFlags = nplat::DDPF_RGB;
        d.ddpfPixelFormat.dwRGBBitCount = 32;
        d.ddpfPixelFormat.dwRBitMask = 0xFF0000;
        d.ddpfPixelFormat.dwGBitMask = 0xFF00;
        d.ddpfPixelFormat.dwBBitMask = 0xFF;
        ASSERT_EQ(dd->CreateSurface(&d, &surface, nullptr), nplat::DD_OK);
        nplat::DDBLTFX fx = {};
        fx.dwSize = sizeof(fx);
        ASSERT_EQ(surface->Blt(nullptr, nullptr, nullptr,
                               nplat::DDBLT_COLORFILL | nplat::DDBLT_WAIT, &fx),
                  nplat::DD_OK);
        style = nplat::CreateCompatibleDC(nullptr);
        font =
            nplat::CreateFontW(16, 0, 0, 0, nplat::FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, u"NCB Box");
        nplat::SelectObject(style, font);
        nplat::SetTextColor(style, nplat::RGB(255, 255, 255));
        nplat::SetBkMode(style, nplat::TRANSPARENT);
    }
    void TearDown() override {
        if (surface) surface->Release();
        if (dd) dd->Release();
        nplat::DeleteDC(style);
        nplat::DeleteObject(font);
        nplat::ddtest::Reset();
        RenderTest::TearDown();
    }

    void Add(int id, const char* text, int x, unsigned flags) {
        CNVideoRender::TextInfoTag t = {};
        std::memcpy(t.chText, text, std::strlen(text));
        t.nLength = static_cast<int>(std::strlen(text));
        t.nX = x;
        t.nY = 2;
        t.hStyle = style;
        const int at = texts.InsertBinary("", &t, sizeof(t), -1, 0);
        texts.SetUserData1(at, static_cast<int16_t>(id));
        texts.SetUserData2(at, static_cast<int32_t>(flags));
    }

    uint32_t SurfacePixel(int x, int y) {
        nplat::DDSURFACEDESC2 d = {};
        d.dwSize = sizeof(d);
        EXPECT_EQ(surface->Lock(nullptr, &d, nplat::DDLOCK_WAIT, nullptr), nplat::DD_OK);
        uint32_t v;
        std::memcpy(&v, static_cast<uint8_t*>(d.lpSurface) + y * d.lPitch + 4 * x, 4);
        surface->Unlock(nullptr);
        return v & 0xFFFFFF;
    }

    nplat::IDirectDraw* dd = nullptr;
    nplat::IDirectDrawSurface* surface = nullptr;
    nplat::HDC style = nullptr;
    nplat::HFONT font = nullptr;
    CNDataList texts;
};

TEST_F(SurfaceTextTest, DrawsEveryTextButHiddenOnes) {
    Add(1, "T", 2, 0x2);
    Add(2, "H", 20, 0x2 | 0x8);
    Add(3, "S", 40, 0x2 | 0x4);
    ASSERT_EQ(render.RenderDrawText(0, surface, &texts, 0), 1);
    EXPECT_EQ(SurfacePixel(2, 2), 0xFFFFFFu);
    EXPECT_EQ(SurfacePixel(4, 4), 0u);  // transparent: inside the glyph stays black
    EXPECT_EQ(SurfacePixel(20, 2), 0u);
    EXPECT_EQ(SurfacePixel(40, 2), 0xFFFFFFu);
}

TEST_F(SurfaceTextTest, NeedsNoDcForNoTextsAndReportsAFailedOne) {
    const int before = nplat::ddtest::CallCount(Call::kGetDC);
    EXPECT_EQ(render.RenderDrawText(0, surface, &texts, 0), 1);
    EXPECT_EQ(nplat::ddtest::CallCount(Call::kGetDC), before);
    Add(1, "T", 2, 0x2);
    nplat::ddtest::FailCall(Call::kGetDC, 0, 1);
    EXPECT_EQ(render.RenderDrawText(0, surface, &texts, 0), 0);
    CNVideoRender::StatInfoTag s;
    ASSERT_EQ(render.GetStatInfo(&s), 1);
    EXPECT_EQ(s.uDDrawError, static_cast<uint32_t>(nplat::DDERR_GENERIC));
    EXPECT_EQ(SurfacePixel(2, 2), 0u);
    EXPECT_EQ(render.RenderDrawText(0, surface, &texts, 0), 1);
    EXPECT_EQ(SurfacePixel(2, 2), 0xFFFFFFu);
}

}  // namespace
}  // namespace ncbtest::render_video
