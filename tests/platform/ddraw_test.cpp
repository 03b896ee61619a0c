// Software DirectDraw: enumeration and devices per monitor, caps and FOURCC
// lists, Blt (stretch, FOURCC sources, colour fill) onto a memory window
// through a clipper read back by snapshot, the keyed overlay in every primary
// format, lost surfaces and Restore, failing calls and object lifetimes.
//
// Expected pixels come from independent formulas written here in floating
// point (bilinear sampling, BT.601 studio-range YUV), not from the layer's
// own integer code.
#include "platform/ddraw/ddraw.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "ncodecbase/gdi_text.h"
#include "platform/kernel/fault.h"
#include "platform/window/window.h"

namespace {

using namespace nplat;

constexpr DWORD kYV12 = MAKEFOURCC('Y', 'V', '1', '2');
constexpr DWORD kNV12 = MAKEFOURCC('N', 'V', '1', '2');
constexpr DWORD kYUY2 = MAKEFOURCC('Y', 'U', 'Y', '2');
constexpr DWORD kUYVY = MAKEFOURCC('U', 'Y', 'V', 'Y');

template <typename T>
struct Ref {
    T* p = nullptr;
    ~Ref() { reset(); }
    void reset() {
        if (p) p->Release();
        p = nullptr;
    }
    T** out() { return &p; }
    T* operator->() const { return p; }
    T* get() const { return p; }
};

DDSURFACEDESC2 Desc(DWORD caps) {
    DDSURFACEDESC2 d;
    std::memset(&d, 0, sizeof(d));
    d.dwSize = sizeof(d);
    d.dwFlags = DDSD_CAPS;
    d.ddsCaps.dwCaps = caps;
    return d;
}

DDSURFACEDESC2 RgbDesc(int width, int height, int bits, DWORD green = 0xFF00) {
    DDSURFACEDESC2 d = Desc(DDSCAPS_OFFSCREENPLAIN | DDSCAPS_SYSTEMMEMORY);
    d.dwFlags |= DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
    d.dwWidth = static_cast<DWORD>(width);
    d.dwHeight = static_cast<DWORD>(height);
    d.ddpfPixelFormat.dwSize = sizeof(DDPIXELFORMAT);
    d.ddpfPixelFormat.dwFlags = DDPF_RGB;
    d.ddpfPixelFormat.dwRGBBitCount = static_cast<DWORD>(bits);
    d.ddpfPixelFormat.dwGBitMask = green;
    return d;
}

DDSURFACEDESC2 FourCCDesc(int width, int height, DWORD fourcc, DWORD caps) {
    DDSURFACEDESC2 d = Desc(caps);
    d.dwFlags |= DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
    d.dwWidth = static_cast<DWORD>(width);
    d.dwHeight = static_cast<DWORD>(height);
    d.ddpfPixelFormat.dwSize = sizeof(DDPIXELFORMAT);
    d.ddpfPixelFormat.dwFlags = DDPF_FOURCC;
    d.ddpfPixelFormat.dwFourCC = fourcc;
    d.ddpfPixelFormat.dwYUVBitCount = (fourcc == kYUY2 || fourcc == kUYVY) ? 16 : 12;
    return d;
}

// BT.601 studio range, the conversion a display applies to YUV.
uint32_t Bt601(int y, int u, int v) {
    auto clamp = [](double c) {
        return static_cast<uint32_t>(std::lround(std::fmin(255.0, std::fmax(0.0, c))));
    };
    const double c = 1.164383 * (y - 16);
    return clamp(c + 1.596027 * (v - 128)) << 16 |
           clamp(c - 0.391762 * (u - 128) - 0.812968 * (v - 128)) << 8 |
           clamp(c + 2.017232 * (u - 128));
}

bool Near(uint32_t a, uint32_t b, int tolerance) {
    for (int shift = 0; shift < 24; shift += 8) {
        if (std::abs(static_cast<int>((a >> shift) & 255) - static_cast<int>((b >> shift) & 255)) >
            tolerance) {
            return false;
        }
    }
    return true;
}

// A device on the primary monitor with its primary surface clipped to a
// memory window, as the video render sets one up.
class DDrawTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetScreen();
        ddtest::Reset();
        window = CreateMemoryWindow(200, 100, 96, 64);
        ASSERT_NE(window, nullptr);
        OpenDevice(nullptr);
    }
    void TearDown() override {
        clipper.reset();
        primary.reset();
        dd.reset();
        DestroyWindow(window);
        EXPECT_EQ(ddtest::LiveObjects(), 0);
        ddtest::Reset();
        ResetScreen();
    }
    void OpenDevice(GUID* guid) {
        clipper.reset();
        primary.reset();
        dd.reset();
        ASSERT_EQ(DirectDrawCreate(guid, dd.out(), nullptr), DD_OK);
        ASSERT_EQ(dd->SetCooperativeLevel(window, DDSCL_NORMAL), DD_OK);
        DDSURFACEDESC2 desc = Desc(DDSCAPS_PRIMARYSURFACE);
        ASSERT_EQ(dd->CreateSurface(&desc, primary.out(), nullptr), DD_OK);
        ASSERT_EQ(dd->CreateClipper(0, clipper.out(), nullptr), DD_OK);
        ASSERT_EQ(clipper->SetHWnd(0, window), DD_OK);
        ASSERT_EQ(primary->SetClipper(clipper.get()), DD_OK);
    }
    std::vector<uint32_t> Snapshot() {
        RECT r;
        GetClientRect(window, &r);
        std::vector<uint32_t> out(static_cast<size_t>(r.right) * r.bottom);
        EXPECT_EQ(SnapshotClient(window, out.data(), r.right * 4), 1);
        return out;
    }
    // Client rect -> primary (monitor) coordinates.
    RECT OnPrimary(RECT client) {
        POINT o{0, 0};
        ClientToScreen(window, &o);
        return {client.left + o.x, client.top + o.y, client.right + o.x, client.bottom + o.y};
    }
    void Fill(IDirectDrawSurface* s, RECT* r, DWORD value) {
        DDBLTFX fx;
        std::memset(&fx, 0, sizeof(fx));
        fx.dwSize = sizeof(fx);
        fx.dwFillColor = value;
        ASSERT_EQ(s->Blt(r, nullptr, nullptr, DDBLT_COLORFILL | DDBLT_WAIT, &fx), DD_OK);
    }

    HWND window = nullptr;
    Ref<IDirectDraw> dd;
    Ref<IDirectDrawSurface> primary;
    Ref<IDirectDrawClipper> clipper;
};

TEST_F(DDrawTest, CapsAndFourCCsOfTheHeadlessDisplay) {
    DDCAPS caps;
    std::memset(&caps, 0, sizeof(caps));
    caps.dwSize = sizeof(caps);
    ASSERT_EQ(dd->GetCaps(&caps, nullptr), DD_OK);
    const DWORD needed = DDCAPS_BLT | DDCAPS_BLTSTRETCH | DDCAPS_CANBLTSYSMEM | DDCAPS_OVERLAY;
    EXPECT_EQ(caps.dwCaps & needed, needed);
    DWORD count = 0;
    ASSERT_EQ(dd->GetFourCCCodes(&count, nullptr), DD_OK);
    ASSERT_EQ(count, 4u);
    std::vector<DWORD> codes(count);
    ASSERT_EQ(dd->GetFourCCCodes(&count, codes.data()), DD_OK);
    EXPECT_EQ(codes, (std::vector<DWORD>{kYV12, kNV12, kYUY2, kUYVY}));

    ddtest::SetOfferedFourCCs(nullptr, 0);
    ASSERT_EQ(dd->GetCaps(&caps, nullptr), DD_OK);
    EXPECT_EQ(caps.dwCaps & DDCAPS_OVERLAY, 0u);
    Ref<IDirectDrawSurface> overlay;
    DDSURFACEDESC2 desc = FourCCDesc(16, 16, kYV12, DDSCAPS_OVERLAY);
    EXPECT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DDERR_NOOVERLAYHW);
    desc = FourCCDesc(16, 16, kYV12, DDSCAPS_OFFSCREENPLAIN);
    EXPECT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DDERR_INVALIDPIXELFORMAT);
}

TEST_F(DDrawTest, PrimaryFollowsTheScreenFormat) {
    struct Case {
        ScreenFormat format;
        DWORD bits, green;
    };
    for (const Case& c :
         {Case{ScreenFormat::kRGB32, 32, 0xFF00}, Case{ScreenFormat::kRGB24, 24, 0xFF00},
          Case{ScreenFormat::kRGB565, 16, 0x7E0}, Case{ScreenFormat::kRGB555, 16, 0x3E0}}) {
        SetScreenFormat(c.format);
        DDPIXELFORMAT pf;
        ASSERT_EQ(primary->GetPixelFormat(&pf), DD_OK);
        EXPECT_EQ(pf.dwFlags & DDPF_RGB, DDPF_RGB);
        EXPECT_EQ(pf.dwRGBBitCount, c.bits);
        EXPECT_EQ(pf.dwGBitMask, c.green);
    }
    DDSURFACEDESC2 desc = Desc(DDSCAPS_PRIMARYSURFACE);
    ASSERT_EQ(primary->GetSurfaceDesc(&desc), DD_OK);
    EXPECT_EQ(desc.dwWidth, 1920u);
    EXPECT_EQ(desc.dwHeight, 1080u);
    Ref<IDirectDrawSurface> second;
    EXPECT_EQ(dd->CreateSurface(&desc, second.out(), nullptr), DDERR_PRIMARYSURFACEALREADYEXISTS);
    DDSURFACEDESC2 locked = Desc(0);
    EXPECT_EQ(primary->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DDERR_UNSUPPORTED);
}

// The render's enumeration callback: entries without a GUID or monitor skipped.
struct Enumerated {
    std::vector<GUID> guids;
    std::vector<HMONITOR> monitors;
    int calls = 0;
};

BOOL RecordDevice(GUID* guid, char*, char*, void* context, HMONITOR monitor) {
    auto* e = static_cast<Enumerated*>(context);
    ++e->calls;
    if (guid && monitor) {
        e->guids.push_back(*guid);
        e->monitors.push_back(monitor);
    }
    return 1;
}

TEST_F(DDrawTest, SingleDisplayEnumeratesOnlyThePrimaryDriver) {
    Enumerated e;
    ASSERT_EQ(DirectDrawEnumerateExA(RecordDevice, &e, DDENUM_ATTACHEDSECONDARYDEVICES), DD_OK);
    EXPECT_EQ(e.calls, 1);
    EXPECT_TRUE(e.guids.empty());  // the render then builds its pseudo-monitor from the metrics
    EXPECT_EQ(GetSystemMetrics(SM_CXSCREEN), 1920);
}

TEST_F(DDrawTest, EachMonitorGetsADeviceWhosePrimaryIsThatMonitor) {
    const RECT monitors[2] = {{0, 0, 1920, 1080}, {1920, 0, 3200, 1024}};
    ASSERT_EQ(SetScreenMonitors(monitors, 2, 0), 1);
    Enumerated e;
    ASSERT_EQ(DirectDrawEnumerateExA(RecordDevice, &e, 0), DD_OK);
    EXPECT_EQ(e.calls, 1);
    ASSERT_EQ(DirectDrawEnumerateExA(RecordDevice, &e, DDENUM_ATTACHEDSECONDARYDEVICES), DD_OK);
    ASSERT_EQ(e.guids.size(), 2u);
    MONITORINFO info{sizeof(MONITORINFO), {}, {}, 0};
    ASSERT_EQ(GetMonitorInfoA(e.monitors[1], &info), 1);
    EXPECT_EQ(info.rcMonitor.left, 1920);

    // A window straddling both monitors: the second device's primary writes
    // only the part on its monitor, in that monitor's coordinates.
    MoveMemoryWindow(window, 1920 - 40, 10);
    OpenDevice(&e.guids[1]);
    DDSURFACEDESC2 desc = Desc(0);
    ASSERT_EQ(primary->GetSurfaceDesc(&desc), DD_OK);
    EXPECT_EQ(desc.dwWidth, 1280u);
    Fill(primary.get(), nullptr, 0x00FF00);
    const std::vector<uint32_t> shown = Snapshot();
    EXPECT_EQ(shown[5 * 96 + 39], 0u);
    EXPECT_EQ(shown[5 * 96 + 40], 0x00FF00u);

    GUID bogus = e.guids[1];
    bogus.Data4[7] = 7;
    Ref<IDirectDraw> none;
    EXPECT_EQ(DirectDrawCreate(&bogus, none.out(), nullptr), DDERR_INVALIDDIRECTDRAWGUID);
}

TEST_F(DDrawTest, ColourFillIsClippedToTheVisibleClientArea) {
    const RECT cover{0, 0, 10, 64};
    SetMemoryWindowCovered(window, &cover);
    RECT all{0, 0, 1920, 1080};
    Fill(primary.get(), &all, 0x404040);
    RECT part = OnPrimary({-5, 20, 30, 30});
    Fill(primary.get(), &part, 0xFF00FF);
    const std::vector<uint32_t> shown = Snapshot();
    EXPECT_EQ(shown[0 * 96 + 5], 0u);  // covered
    EXPECT_EQ(shown[0 * 96 + 10], 0x404040u);
    EXPECT_EQ(shown[25 * 96 + 29], 0xFF00FFu);
    EXPECT_EQ(shown[25 * 96 + 30], 0x404040u);
    EXPECT_EQ(shown[25 * 96 + 9], 0u);

    // Without a clipper the desktop receives the fill; the window keeps its pixels.
    ASSERT_EQ(primary->SetClipper(nullptr), DD_OK);
    Fill(primary.get(), &all, 0x123456);
    EXPECT_EQ(Snapshot()[25 * 96 + 29], 0xFF00FFu);
}

// Bilinear sampling with aligned pixel centres, in floating point.
uint32_t BilinearOracle(const std::vector<uint32_t>& src, int sw, int sh, int dw, int dh, int x,
                        int y) {
    auto coord = [](int i, int s, int d, int* i0, int* i1, double* f) {
        double p = (i + 0.5) * s / d - 0.5;
        if (p < 0) p = 0;
        *i0 = static_cast<int>(p);
        if (*i0 >= s - 1) *i0 = s - 1, p = *i0;
        *i1 = std::min(*i0 + 1, s - 1);
        *f = p - *i0;
    };
    int x0, x1, y0, y1;
    double fx, fy;
    coord(x, sw, dw, &x0, &x1, &fx);
    coord(y, sh, dh, &y0, &y1, &fy);
    uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        auto c = [&](int xx, int yy) { return (src[yy * sw + xx] >> shift) & 255; };
        const double v = (c(x0, y0) * (1 - fx) + c(x1, y0) * fx) * (1 - fy) +
                         (c(x0, y1) * (1 - fx) + c(x1, y1) * fx) * fy;
        out |= static_cast<uint32_t>(std::lround(v)) << shift;
    }
    return out;
}

struct StretchCase {
    const char* name;
    int srcWidth, srcHeight;
    RECT client;
};

class DDrawStretchTest : public DDrawTest, public ::testing::WithParamInterface<StretchCase> {};

TEST_P(DDrawStretchTest, StretchBltMatchesBilinearSampling) {
    const StretchCase& c = GetParam();
    Ref<IDirectDrawSurface> src;
    DDSURFACEDESC2 desc = RgbDesc(c.srcWidth, c.srcHeight, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, src.out(), nullptr), DD_OK);
    std::vector<uint32_t> picture(static_cast<size_t>(c.srcWidth) * c.srcHeight);
    for (size_t i = 0; i < picture.size(); ++i) {
        picture[i] = static_cast<uint32_t>((i * 2654435761u) >> 8) & 0xFFFFFF;
    }
    DDSURFACEDESC2 locked = Desc(0);
    ASSERT_EQ(src->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
    for (int y = 0; y < c.srcHeight; ++y) {
        std::memcpy(static_cast<uint8_t*>(locked.lpSurface) + y * locked.lPitch,
                    &picture[static_cast<size_t>(y) * c.srcWidth], c.srcWidth * 4u);
    }
    ASSERT_EQ(src->Unlock(nullptr), DD_OK);

    RECT dst = OnPrimary(c.client);
    ASSERT_EQ(primary->Blt(&dst, src.get(), nullptr, DDBLT_WAIT, nullptr), DD_OK);
    const std::vector<uint32_t> shown = Snapshot();
    const int dw = c.client.right - c.client.left, dh = c.client.bottom - c.client.top;
    for (int y = std::max(0, c.client.top); y < std::min(64, c.client.bottom); ++y) {
        for (int x = std::max(0, c.client.left); x < std::min(96, c.client.right); ++x) {
            const uint32_t expected = BilinearOracle(picture, c.srcWidth, c.srcHeight, dw, dh,
                                                     x - c.client.left, y - c.client.top);
            ASSERT_TRUE(Near(shown[y * 96 + x], expected, 2))
                << x << "," << y << " " << std::hex << shown[y * 96 + x] << " vs " << expected;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, DDrawStretchTest,
                         ::testing::Values(StretchCase{"Same", 96, 64, {0, 0, 96, 64}},
                                           StretchCase{"Up", 13, 7, {4, 3, 90, 60}},
                                           StretchCase{"Down", 200, 150, {0, 0, 96, 64}},
                                           StretchCase{"Mixed", 40, 90, {10, 5, 91, 40}},
                                           StretchCase{"PartlyOutside", 32, 32, {-20, -10, 50, 80}},
                                           StretchCase{"OnePixel", 1, 1, {3, 3, 17, 9}}),
                         [](const auto& info) { return std::string(info.param.name); });

// A FOURCC surface written through Lock with distinct values per plane, so a
// swapped plane order shows up as a wrong colour.
void WriteFlatYuv(IDirectDrawSurface* s, DWORD fourcc, int width, int height, uint8_t y, uint8_t u,
                  uint8_t v) {
    DDSURFACEDESC2 locked = Desc(0);
    ASSERT_EQ(s->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
    auto* bits = static_cast<uint8_t*>(locked.lpSurface);
    const int pitch = locked.lPitch;
    if (fourcc == kYUY2 || fourcc == kUYVY) {
        for (int row = 0; row < height; ++row) {
            for (int x = 0; x < width; x += 2) {
                uint8_t* p = bits + row * pitch + x * 2;
                const uint8_t yuy2[4] = {y, u, y, v}, uyvy[4] = {u, y, v, y};
                std::memcpy(p, fourcc == kYUY2 ? yuy2 : uyvy, 4);
            }
        }
    } else {
        for (int row = 0; row < height; ++row) std::memset(bits + row * pitch, y, width);
        uint8_t* chroma = bits + pitch * height;
        if (fourcc == kNV12) {
            for (int row = 0; row < height / 2; ++row) {
                for (int x = 0; x < width; x += 2) {
                    chroma[row * pitch + x] = u;
                    chroma[row * pitch + x + 1] = v;
                }
            }
        } else {  // YV12: V plane, then U plane, each pitch / 2 wide
            const int cpitch = pitch / 2;
            for (int row = 0; row < height / 2; ++row) {
                std::memset(chroma + row * cpitch, v, width / 2);
                std::memset(chroma + (height / 2 + row) * cpitch, u, width / 2);
            }
        }
    }
    ASSERT_EQ(s->Unlock(nullptr), DD_OK);
}

class DDrawFourCCTest : public DDrawTest, public ::testing::WithParamInterface<DWORD> {};

TEST_P(DDrawFourCCTest, FourCCSourceIsConvertedAndStretched) {
    const DWORD fourcc = GetParam();
    Ref<IDirectDrawSurface> src;
    DDSURFACEDESC2 desc = FourCCDesc(16, 8, fourcc, DDSCAPS_OFFSCREENPLAIN);
    ASSERT_EQ(dd->CreateSurface(&desc, src.out(), nullptr), DD_OK);
    WriteFlatYuv(src.get(), fourcc, 16, 8, 120, 60, 200);
    RECT dst = OnPrimary({8, 8, 56, 40});
    ASSERT_EQ(primary->Blt(&dst, src.get(), nullptr, DDBLT_WAIT, nullptr), DD_OK);
    const std::vector<uint32_t> shown = Snapshot();
    EXPECT_TRUE(Near(shown[20 * 96 + 30], Bt601(120, 60, 200), 2))
        << std::hex << shown[20 * 96 + 30] << " vs " << Bt601(120, 60, 200);
    EXPECT_EQ(shown[4 * 96 + 4], 0u);
}

TEST_P(DDrawFourCCTest, OverlayShowsThroughTheDestinationKey) {
    const DWORD fourcc = GetParam();
    Ref<IDirectDrawSurface> overlay;
    DDSURFACEDESC2 desc = FourCCDesc(32, 16, fourcc, DDSCAPS_OVERLAY);
    ASSERT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DD_OK);
    WriteFlatYuv(overlay.get(), fourcc, 32, 16, 180, 100, 150);
    const DWORD key = 0x100010;
    RECT keyed = OnPrimary({0, 0, 48, 64});
    Fill(primary.get(), &keyed, key);
    DDOVERLAYFX fx;
    std::memset(&fx, 0, sizeof(fx));
    fx.dwSize = sizeof(fx);
    fx.dckDestColorkey = {key, key};
    RECT dst = OnPrimary({16, 16, 80, 48});
    ASSERT_EQ(overlay->UpdateOverlay(nullptr, primary.get(), &dst,
                                     DDOVER_SHOW | DDOVER_KEYDESTOVERRIDE, &fx),
              DD_OK);
    std::vector<uint32_t> shown = Snapshot();
    EXPECT_TRUE(Near(shown[20 * 96 + 20], Bt601(180, 100, 150), 2));
    EXPECT_EQ(shown[20 * 96 + 60], 0u);  // in the overlay, not keyed
    EXPECT_EQ(shown[5 * 96 + 20], key);  // keyed, outside the overlay

    // New content reaches the screen at Unlock; hiding leaves the key.
    WriteFlatYuv(overlay.get(), fourcc, 32, 16, 60, 128, 128);
    EXPECT_TRUE(Near(Snapshot()[20 * 96 + 20], Bt601(60, 128, 128), 2));
    ASSERT_EQ(overlay->UpdateOverlay(nullptr, primary.get(), nullptr, DDOVER_HIDE, nullptr), DD_OK);
    EXPECT_EQ(Snapshot()[20 * 96 + 20], key);
}

std::string FourCCName(const ::testing::TestParamInfo<DWORD>& info) {
    std::string name(4, ' ');
    for (int i = 0; i < 4; ++i) name[i] = static_cast<char>(info.param >> (8 * i));
    return name;
}

INSTANTIATE_TEST_SUITE_P(Codes, DDrawFourCCTest, ::testing::Values(kYV12, kNV12, kYUY2, kUYVY),
                         FourCCName);

// The key in every primary format: the render passes the 15- or 16-bit form
// of its colour for 16-bit primaries and the 0x00RRGGBB value otherwise.
struct PrimaryCase {
    ScreenFormat format;
    const char* name;
};

class DDrawPrimaryFormatTest : public DDrawTest, public ::testing::WithParamInterface<PrimaryCase> {
  protected:
    void TearDown() override {
        SetScreenFormat(ScreenFormat::kRGB32);
        DDrawTest::TearDown();
    }
};

TEST_P(DDrawPrimaryFormatTest, KeyedOverlayAndStraightBlit) {
    const ScreenFormat format = GetParam().format;
    SetScreenFormat(format);
    const uint32_t keyRgb = 0x0A0B0C;
    const DWORD key = ScreenValueFromRGB(format, keyRgb);
    RECT all = OnPrimary({0, 0, 96, 64});
    Fill(primary.get(), &all, key);

    // A picture blitted over the right half hides the key there.
    Ref<IDirectDrawSurface> picture;
    DDSURFACEDESC2 desc = RgbDesc(48, 64, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, picture.out(), nullptr), DD_OK);
    Fill(picture.get(), nullptr, 0xE0C0A0);
    RECT right = OnPrimary({48, 0, 96, 64});
    ASSERT_EQ(primary->Blt(&right, picture.get(), nullptr, DDBLT_WAIT, nullptr), DD_OK);

    Ref<IDirectDrawSurface> overlay;
    desc = FourCCDesc(16, 16, kYUY2, DDSCAPS_OVERLAY);
    ASSERT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DD_OK);
    WriteFlatYuv(overlay.get(), kYUY2, 16, 16, 200, 90, 160);
    DDOVERLAYFX fx;
    std::memset(&fx, 0, sizeof(fx));
    fx.dwSize = sizeof(fx);
    fx.dckDestColorkey = {key, key};
    ASSERT_EQ(overlay->UpdateOverlay(nullptr, primary.get(), &all,
                                     DDOVER_SHOW | DDOVER_KEYDESTOVERRIDE, &fx),
              DD_OK);
    const std::vector<uint32_t> shown = Snapshot();
    EXPECT_TRUE(Near(shown[30 * 96 + 10], Bt601(200, 90, 160), 2));
    EXPECT_EQ(shown[30 * 96 + 70],
              RGBFromScreenValue(format, ScreenValueFromRGB(format, 0xE0C0A0)));
}

INSTANTIATE_TEST_SUITE_P(Formats, DDrawPrimaryFormatTest,
                         ::testing::Values(PrimaryCase{ScreenFormat::kRGB32, "RGB32"},
                                           PrimaryCase{ScreenFormat::kRGB24, "RGB24"},
                                           PrimaryCase{ScreenFormat::kRGB565, "RGB565"},
                                           PrimaryCase{ScreenFormat::kRGB555, "RGB555"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(DDrawTest, SixteenBitSurfacesCopyValuesExactly) {
    Ref<IDirectDrawSurface> a, b;
    DDSURFACEDESC2 desc = RgbDesc(8, 8, 16, 0x3E0);
    ASSERT_EQ(dd->CreateSurface(&desc, a.out(), nullptr), DD_OK);
    ASSERT_EQ(dd->CreateSurface(&desc, b.out(), nullptr), DD_OK);
    Fill(a.get(), nullptr, 0x7FFF);
    RECT half{0, 0, 4, 8};
    ASSERT_EQ(b->Blt(&half, a.get(), &half, DDBLT_WAIT, nullptr), DD_OK);
    DDSURFACEDESC2 locked = Desc(0);
    ASSERT_EQ(b->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
    const auto* row = static_cast<const uint16_t*>(locked.lpSurface);
    EXPECT_EQ(row[3], 0x7FFF);
    EXPECT_EQ(row[4], 0);
    EXPECT_EQ(b->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DDERR_SURFACEBUSY);
    EXPECT_EQ(b->Blt(nullptr, a.get(), nullptr, DDBLT_WAIT, nullptr), DDERR_SURFACEBUSY);
    ASSERT_EQ(b->Unlock(nullptr), DD_OK);
    EXPECT_EQ(b->Unlock(nullptr), DDERR_NOTLOCKED);
}

TEST_F(DDrawTest, LostSurfacesFailUntilRestored) {
    Ref<IDirectDrawSurface> off;
    DDSURFACEDESC2 desc = RgbDesc(8, 8, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, off.out(), nullptr), DD_OK);
    Fill(off.get(), nullptr, 0xFFFFFF);
    Ref<IDirectDraw4> dd4;
    ASSERT_EQ(dd->QueryInterface(IID_IDirectDraw4, reinterpret_cast<void**>(dd4.out())), DD_OK);

    ddtest::ForceLoss(2);
    EXPECT_EQ(primary->IsLost(), DDERR_SURFACELOST);
    EXPECT_EQ(off->IsLost(), DDERR_SURFACELOST);
    EXPECT_EQ(primary->Blt(nullptr, off.get(), nullptr, DDBLT_WAIT, nullptr), DDERR_SURFACELOST);
    DDSURFACEDESC2 locked = Desc(0);
    EXPECT_EQ(off->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DDERR_SURFACELOST);
    EXPECT_EQ(dd4->TestCooperativeLevel(), DDERR_WRONGMODE);
    EXPECT_EQ(dd4->TestCooperativeLevel(), DDERR_WRONGMODE);
    EXPECT_EQ(dd4->TestCooperativeLevel(), DD_OK);

    ASSERT_EQ(primary->Restore(), DD_OK);
    ASSERT_EQ(off->Restore(), DD_OK);
    EXPECT_EQ(primary->IsLost(), DD_OK);
    ASSERT_EQ(off->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
    EXPECT_EQ(*static_cast<uint32_t*>(locked.lpSurface), 0u);  // contents are not kept
    off->Unlock(nullptr);
}

TEST_F(DDrawTest, LostOverlayLeavesTheWindowAndReleasesCleanly) {
    Ref<IDirectDrawSurface> overlay;
    DDSURFACEDESC2 desc = FourCCDesc(16, 16, kNV12, DDSCAPS_OVERLAY);
    ASSERT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DD_OK);
    WriteFlatYuv(overlay.get(), kNV12, 16, 16, 235, 128, 128);
    RECT dst = OnPrimary({0, 0, 16, 16});
    ASSERT_EQ(overlay->UpdateOverlay(nullptr, primary.get(), &dst, DDOVER_SHOW, nullptr), DD_OK);
    EXPECT_EQ(Snapshot()[0], 0xFFFFFFu);
    // The overlay holds the primary: releasing the primary first must not free it.
    primary.reset();
    ddtest::ForceLoss();
    EXPECT_EQ(Snapshot()[0], 0u);
    EXPECT_EQ(overlay->IsLost(), DDERR_SURFACELOST);
}

// Each call made to fail once after one success: the first call goes
// through, the second returns the armed result, the third goes through, and
// all three are counted.
struct Objects {
    IDirectDraw* dd;
    IDirectDrawSurface* primary;
    IDirectDrawSurface* off;
    IDirectDrawSurface* overlay;
    IDirectDrawClipper* clipper;
    HWND window;
};

struct FailCase {
    const char* name;
    HRESULT (*call)(const Objects&);
};

class DDrawFailTest : public DDrawTest, public ::testing::WithParamInterface<FailCase> {};

TEST_P(DDrawFailTest, ArmedFailureHitsExactlyTheChosenCall) {
    Ref<IDirectDrawSurface> off, overlay;
    DDSURFACEDESC2 desc = RgbDesc(4, 4, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, off.out(), nullptr), DD_OK);
    desc = FourCCDesc(4, 4, kYV12, DDSCAPS_OVERLAY);
    ASSERT_EQ(dd->CreateSurface(&desc, overlay.out(), nullptr), DD_OK);
    const Objects o{dd.get(), primary.get(), off.get(), overlay.get(), clipper.get(), window};

    ddtest::Call call;
    ASSERT_TRUE(ddtest::CallByName(GetParam().name, &call));
    EXPECT_STREQ(ddtest::CallName(call), GetParam().name);
    const int before = ddtest::CallCount(call);
    constexpr HRESULT kArmed = MAKE_DDHRESULT(1234);
    ddtest::FailCall(call, 1, 1, kArmed);
    EXPECT_EQ(GetParam().call(o), DD_OK);
    EXPECT_EQ(GetParam().call(o), kArmed);
    EXPECT_EQ(GetParam().call(o), DD_OK);
    EXPECT_EQ(ddtest::CallCount(call), before + 3);
}

HRESULT LockUnlock(IDirectDrawSurface* s) {
    DDSURFACEDESC2 locked = Desc(0);
    HRESULT hr = s->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr);
    if (SUCCEEDED(hr)) s->Unlock(nullptr);
    return hr;
}

const FailCase kFailCases[] = {
    {"DirectDrawEnumerateExA",
     [](const Objects&) {
         return DirectDrawEnumerateExA(
             [](GUID*, char*, char*, void*, HMONITOR) -> BOOL { return 1; }, nullptr, 0);
     }},
    {"DirectDrawCreate",
     [](const Objects&) {
         IDirectDraw* d = nullptr;
         const HRESULT hr = DirectDrawCreate(nullptr, &d, nullptr);
         if (d) d->Release();
         return hr;
     }},
    {"SetCooperativeLevel",
     [](const Objects& o) { return o.dd->SetCooperativeLevel(o.window, DDSCL_NORMAL); }},
    {"GetCaps",
     [](const Objects& o) {
         DDCAPS caps;
         caps.dwSize = sizeof(caps);
         return o.dd->GetCaps(&caps, nullptr);
     }},
    {"GetFourCCCodes",
     [](const Objects& o) {
         DWORD n = 0;
         return o.dd->GetFourCCCodes(&n, nullptr);
     }},
    {"CreateSurface",
     [](const Objects& o) {
         IDirectDrawSurface* s = nullptr;
         DDSURFACEDESC2 desc = RgbDesc(4, 4, 16, 0x7E0);
         const HRESULT hr = o.dd->CreateSurface(&desc, &s, nullptr);
         if (s) s->Release();
         return hr;
     }},
    {"CreateClipper",
     [](const Objects& o) {
         IDirectDrawClipper* c = nullptr;
         const HRESULT hr = o.dd->CreateClipper(0, &c, nullptr);
         if (c) c->Release();
         return hr;
     }},
    {"SetHWnd", [](const Objects& o) { return o.clipper->SetHWnd(0, o.window); }},
    {"SetClipper", [](const Objects& o) { return o.primary->SetClipper(o.clipper); }},
    {"QueryInterface",
     [](const Objects& o) {
         IDirectDraw4* d4 = nullptr;
         const HRESULT hr = o.dd->QueryInterface(IID_IDirectDraw4, reinterpret_cast<void**>(&d4));
         if (d4) d4->Release();
         return hr;
     }},
    {"TestCooperativeLevel",
     [](const Objects& o) {
         IDirectDraw4* d4 = nullptr;
         o.dd->QueryInterface(IID_IDirectDraw4, reinterpret_cast<void**>(&d4));
         const HRESULT hr = d4->TestCooperativeLevel();
         d4->Release();
         return hr;
     }},
    {"Lock", [](const Objects& o) { return LockUnlock(o.off); }},
    {"Blt",
     [](const Objects& o) {
         RECT small{0, 0, 8, 8};
         return o.primary->Blt(&small, o.off, nullptr, 0, nullptr);
     }},
    {"IsLost", [](const Objects& o) { return o.primary->IsLost(); }},
    {"Restore", [](const Objects& o) { return o.off->Restore(); }},
    {"GetPixelFormat",
     [](const Objects& o) {
         DDPIXELFORMAT pf;
         return o.primary->GetPixelFormat(&pf);
     }},
    {"UpdateOverlay",
     [](const Objects& o) {
         RECT small{0, 0, 8, 8};
         return o.overlay->UpdateOverlay(nullptr, o.primary, &small, DDOVER_SHOW, nullptr);
     }},
};

INSTANTIATE_TEST_SUITE_P(Calls, DDrawFailTest, ::testing::ValuesIn(kFailCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(DDrawTest, FailedAllocationsLeaveNothingBehind) {
    const int live = ddtest::LiveObjects();
    for (int skip = 0; skip < 2; ++skip) {
        Ref<IDirectDrawSurface> s;
        DDSURFACEDESC2 desc = RgbDesc(64, 64, 32);
        fault::Scope failHeap(fault::Kind::kHeap, skip, 1);
        EXPECT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DDERR_OUTOFMEMORY) << skip;
        EXPECT_EQ(s.get(), nullptr);
    }
    EXPECT_EQ(ddtest::LiveObjects(), live);
}

TEST_F(DDrawTest, RejectsMalformedRequests) {
    Ref<IDirectDrawSurface> s;
    DDSURFACEDESC2 desc = FourCCDesc(15, 8, kYV12, DDSCAPS_OFFSCREENPLAIN);
    EXPECT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DDERR_INVALIDPARAMS);  // odd width
    desc = RgbDesc(8, 8, 16, 0x1234);
    EXPECT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DDERR_INVALIDPIXELFORMAT);
    desc = RgbDesc(8, 8, 32);
    desc.dwSize = 8;
    EXPECT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DDERR_INVALIDPARAMS);
    desc = RgbDesc(8, 8, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DD_OK);
    RECT outside{4, 4, 9, 8};
    EXPECT_EQ(primary->Blt(nullptr, s.get(), &outside, 0, nullptr), DDERR_INVALIDRECT);
    EXPECT_EQ(s->Blt(nullptr, primary.get(), nullptr, 0, nullptr), DDERR_UNSUPPORTED);
    EXPECT_EQ(s->UpdateOverlay(nullptr, primary.get(), nullptr, DDOVER_SHOW, nullptr),
              DDERR_NOTAOVERLAYSURFACE);
    EXPECT_EQ(clipper->SetHWnd(0, reinterpret_cast<HWND>(&desc)), DDERR_INVALIDPARAMS);
    Ref<IDirectDraw> fresh;
    ASSERT_EQ(DirectDrawCreate(nullptr, fresh.out(), nullptr), DD_OK);
    Ref<IDirectDrawSurface> early;
    EXPECT_EQ(fresh->CreateSurface(&desc, early.out(), nullptr), DDERR_NOCOOPERATIVELEVELSET);
}

TEST_F(DDrawTest, DeviceContextDrawsOnThirtyTwoBitSurfacesOnly) {
    Ref<IDirectDrawSurface> s, sixteen;
    DDSURFACEDESC2 desc = RgbDesc(32, 16, 32);
    ASSERT_EQ(dd->CreateSurface(&desc, s.out(), nullptr), DD_OK);
    desc = RgbDesc(32, 16, 16, 0x7E0);
    ASSERT_EQ(dd->CreateSurface(&desc, sixteen.out(), nullptr), DD_OK);
    HDC dc = nullptr;
    EXPECT_EQ(sixteen->GetDC(&dc), DDERR_CANTCREATEDC);
    EXPECT_EQ(primary->GetDC(&dc), DDERR_CANTCREATEDC);
    ASSERT_EQ(s->GetDC(&dc), DD_OK);
    ASSERT_NE(dc, nullptr);
    DDSURFACEDESC2 locked = Desc(0);
    EXPECT_EQ(s->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DDERR_SURFACEBUSY);
    EXPECT_EQ(s->ReleaseDC(reinterpret_cast<HDC>(&locked)), DDERR_NODC);
    EXPECT_EQ(s->ReleaseDC(dc), DD_OK);
    EXPECT_EQ(LockUnlock(s.get()), DD_OK);
}

}  // namespace
