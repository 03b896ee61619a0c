// Drawing on the software device end to end: a half-texel-shifted quad
// reproduces its texture bit for bit, viewports clip and squeeze, culling
// follows the render's winding, samplers filter and address as Direct3D's
// do, alpha blending, and every pixel formula on hand-computed pixels.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/platform/gfx_test_support.h"

namespace {

using namespace nplat;
using gfxtests::GfxDeviceTest;
using gfxtests::QuadCorner;

uint32_t Channel(uint32_t px, int shift) { return px >> shift & 0xFF; }

void ExpectNear(uint32_t got, uint32_t want, int tolerance, const char* what) {
    for (int shift : {0, 8, 16, 24}) {
        int d = static_cast<int>(Channel(got, shift)) - static_cast<int>(Channel(want, shift));
        EXPECT_LE(std::abs(d), tolerance)
            << what << std::hex << ": got 0x" << got << " want 0x" << want;
    }
}

class GfxDraw : public GfxDeviceTest {
  protected:
    void UseLinearClamp(DWORD sampler) {
        m_device->SetSamplerState(sampler, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR);
        m_device->SetSamplerState(sampler, D3DSAMP_MINFILTER, D3DTEXF_LINEAR);
        m_device->SetSamplerState(sampler, D3DSAMP_ADDRESSU, D3DTADDRESS_CLAMP);
        m_device->SetSamplerState(sampler, D3DSAMP_ADDRESSV, D3DTADDRESS_CLAMP);
    }

    // An A8R8G8B8 render target of w x h, made current.
    IDirect3DSurface9* Target(int w, int h) {
        IDirect3DSurface9* rt = nullptr;
        EXPECT_EQ(m_device->CreateRenderTarget(w, h, D3DFMT_A8R8G8B8, D3DMULTISAMPLE_NONE, 0, 0,
                                               &rt, nullptr),
                  D3D_OK);
        EXPECT_EQ(m_device->SetRenderTarget(0, rt), D3D_OK);
        return rt;
    }

    void SetConstants(const float c0[4], const float c1[4]) {
        float c[8] = {c0[0], c0[1], c0[2], c0[3], c1[0], c1[1], c1[2], c1[3]};
        EXPECT_EQ(m_device->SetPixelShaderConstantF(0, c, 2), D3D_OK);
    }

    void DrawCopy(IDirect3DTexture9* tex, int texW, int texH) {
        QuadCorner q[4];
        FullQuad(q, texW, texH);
        const float c0[4] = {1, 0, 0, 0}, c1[4] = {};
        SetConstants(c0, c1);
        m_device->SetTexture(0, tex);
        IDirect3DPixelShader9* ps = PixelShader(12);
        DrawQuad(q, 1, ps);
        ps->Release();
        m_device->SetTexture(0, nullptr);
    }
};

TEST_F(GfxDraw, HalfTexelShiftedQuadCopiesTheTextureBitForBit) {
    std::mt19937 rng(7);
    std::vector<uint32_t> px(kWidth * kHeight);
    for (uint32_t& p : px) p = rng() | 0xFF000000u;
    IDirect3DTexture9* tex = Texture(kWidth, kHeight, D3DFMT_A8R8G8B8, px);
    UseLinearClamp(0);
    DrawCopy(tex, kWidth, kHeight);
    EXPECT_EQ(ReadBackBuffer(), px);
    tex->Release();
}

TEST_F(GfxDraw, ViewportClipsAndSqueezesTheQuad) {
    m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000, 1.0f, 0);
    // A 2x2 texture drawn into a 4x6 viewport at (5, 3): each texel covers a
    // 2x3 block there and nothing is drawn outside.
    std::vector<uint32_t> px = {0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFFFFFFFF};
    IDirect3DTexture9* tex = Texture(2, 2, D3DFMT_A8R8G8B8, px);
    D3DVIEWPORT9 vp{5, 3, 4, 6, 0.0f, 1.0f};
    ASSERT_EQ(m_device->SetViewport(&vp), D3D_OK);
    // Coordinates 0..1 without the half-texel shift: pixel centres sit on
    // integer coordinates, so viewport pixel i samples u = i / 4, point filter.
    DrawCopy(tex, 1 << 20, 1 << 20);
    std::vector<uint32_t> out = ReadBackBuffer();
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            uint32_t want = 0xFF000000;
            if (x >= 5 && x < 9 && y >= 3 && y < 9) want = px[((y - 3) / 3) * 2 + (x - 5) / 2];
            EXPECT_EQ(out[y * kWidth + x], want) << x << "," << y;
        }
    }
    D3DVIEWPORT9 outside{10, 0, 7, 4, 0.0f, 1.0f};
    EXPECT_EQ(m_device->SetViewport(&outside), D3DERR_INVALIDCALL);
    tex->Release();
}

TEST_F(GfxDraw, MirroredQuadIsCulledUnlessTheCullModeFlips) {
    std::vector<uint32_t> px = {0xFF336699};
    IDirect3DTexture9* tex = Texture(1, 1, D3DFMT_A8R8G8B8, px);
    m_device->SetTexture(0, tex);
    const float c0[4] = {1, 0, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    IDirect3DPixelShader9* ps = PixelShader(12);
    QuadCorner q[4];
    FullQuad(q, 1, 1);
    std::swap(q[0].x, q[1].x);  // left-right mirror: the strip turns counter-clockwise
    std::swap(q[2].x, q[3].x);
    struct Case {
        D3DCULL cull;
        bool drawn;
    };
    for (Case c : {Case{D3DCULL_CCW, false}, Case{D3DCULL_CW, true}, Case{D3DCULL_NONE, true}}) {
        m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000, 1.0f, 0);
        m_device->SetRenderState(D3DRS_CULLMODE, c.cull);
        DrawQuad(q, 1, ps);
        EXPECT_EQ(ReadBackBuffer()[5 * kWidth + 7], c.drawn ? 0xFF336699u : 0xFF000000u) << c.cull;
    }
    ps->Release();
    m_device->SetTexture(0, nullptr);
    tex->Release();
}

TEST_F(GfxDraw, LuminanceFormatsExpandToGreyWithTheirAlpha) {
    IDirect3DSurface9* rt = Target(1, 1);
    const float c0[4] = {1, 0, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    IDirect3DPixelShader9* ps = PixelShader(12);
    QuadCorner q[4];
    FullQuad(q, 1, 1);

    IDirect3DTexture9* l8 = Texture(1, 1, D3DFMT_L8, std::vector<uint8_t>{0x5A});
    m_device->SetTexture(0, l8);
    DrawQuad(q, 1, ps);
    EXPECT_EQ(ReadBack(rt)[0], 0xFF5A5A5Au);

    IDirect3DTexture9* a8l8 = Texture(1, 1, D3DFMT_A8L8, std::vector<uint16_t>{0x40C0});
    m_device->SetTexture(0, a8l8);
    DrawQuad(q, 1, ps);
    EXPECT_EQ(ReadBack(rt)[0], 0x40C0C0C0u);

    IDirect3DTexture9* x8 = Texture(1, 1, D3DFMT_X8R8G8B8, std::vector<uint32_t>{0x00123456});
    m_device->SetTexture(0, x8);
    DrawQuad(q, 1, ps);
    EXPECT_EQ(ReadBack(rt)[0], 0xFF123456u);  // X8 reads as opaque

    IDirect3DTexture9* r565 = Texture(1, 1, D3DFMT_R5G6B5, std::vector<uint16_t>{0xF81F});
    m_device->SetTexture(0, r565);
    DrawQuad(q, 1, ps);
    EXPECT_EQ(ReadBack(rt)[0], 0xFFFF00FFu);

    m_device->SetTexture(0, nullptr);
    for (IDirect3DTexture9* t : {l8, a8l8, x8, r565}) t->Release();
    ps->Release();
    rt->Release();
}

// Two texels, black and white, stretched over four pixels.
TEST_F(GfxDraw, PointAndLinearFiltersWeighTexelsAtPixelCentres) {
    IDirect3DSurface9* rt = Target(4, 1);
    IDirect3DTexture9* tex =
        Texture(2, 1, D3DFMT_A8R8G8B8, std::vector<uint32_t>{0xFF000000, 0xFFFFFFFF});
    m_device->SetTexture(0, tex);
    m_device->SetSamplerState(0, D3DSAMP_ADDRESSU, D3DTADDRESS_CLAMP);
    const float c0[4] = {1, 0, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    IDirect3DPixelShader9* ps = PixelShader(12);
    QuadCorner q[4];
    FullQuad(q, 1 << 20, 1 << 20);  // coordinates 0..1, no shift to speak of
    // Pixel centres sit on integer coordinates, so pixel x samples u = x / 4:
    // texel position 2u - 0.5 = -0.5, 0, 0.5, 1 for the linear filter.
    struct Case {
        DWORD filter;
        uint8_t want[4];
    };
    for (Case c : {Case{D3DTEXF_POINT, {0, 0, 255, 255}}, Case{D3DTEXF_LINEAR, {0, 0, 128, 255}}}) {
        m_device->SetSamplerState(0, D3DSAMP_MAGFILTER, c.filter);
        DrawQuad(q, 1, ps);
        std::vector<uint32_t> out = ReadBack(rt);
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(Channel(out[x], 8), c.want[x]) << c.filter << " " << x;
    }
    m_device->SetTexture(0, nullptr);
    tex->Release();
    ps->Release();
    rt->Release();
}

TEST_F(GfxDraw, AddressModesRepeatMirrorOrClampOutsideTheTexture) {
    IDirect3DSurface9* rt = Target(8, 1);
    IDirect3DTexture9* tex =
        Texture(2, 1, D3DFMT_A8R8G8B8, std::vector<uint32_t>{0xFF000000, 0xFFFFFFFF});
    m_device->SetTexture(0, tex);
    const float c0[4] = {1, 0, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    IDirect3DPixelShader9* ps = PixelShader(12);
    QuadCorner q[4];
    FullQuad(q, 1 << 20, 1 << 20);
    for (QuadCorner& c : q) c.tex[0][0] *= 2.0f;  // u from 0 to 2: texels 0 0 1 1 2 2 3 3
    struct Case {
        DWORD mode;
        int want[8];
    };
    for (Case c : {Case{D3DTADDRESS_WRAP, {0, 0, 1, 1, 0, 0, 1, 1}},
                   Case{D3DTADDRESS_MIRROR, {0, 0, 1, 1, 1, 1, 0, 0}},
                   Case{D3DTADDRESS_CLAMP, {0, 0, 1, 1, 1, 1, 1, 1}}}) {
        m_device->SetSamplerState(0, D3DSAMP_ADDRESSU, c.mode);
        DrawQuad(q, 1, ps);
        std::vector<uint32_t> out = ReadBack(rt);
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(Channel(out[x], 0), c.want[x] ? 255u : 0u) << c.mode << " " << x;
    }
    m_device->SetTexture(0, nullptr);
    tex->Release();
    ps->Release();
    rt->Release();
}

TEST_F(GfxDraw, AlphaBlendingMixesSourceOverDestination) {
    IDirect3DPixelShader9* ps = PixelShader(42);
    QuadCorner q[4];
    FullQuad(q, 1, 1);
    const float c0[4] = {1.0f, 0.0f, 0.0f, 0.25f}, c1[4] = {};
    SetConstants(c0, c1);
    m_device->SetRenderState(D3DRS_SRCBLEND, D3DBLEND_SRCALPHA);
    m_device->SetRenderState(D3DRS_DESTBLEND, D3DBLEND_INVSRCALPHA);
    m_device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF0000FF, 1.0f, 0);
    m_device->SetRenderState(D3DRS_ALPHABLENDENABLE, 1);
    DrawQuad(q, 0, ps);
    // red 255 x 0.25 = 63.75, blue 255 x 0.75 = 191.25
    EXPECT_EQ(ReadBackBuffer()[0], 0xFF4000BFu);
    m_device->SetRenderState(D3DRS_ALPHABLENDENABLE, 0);
    DrawQuad(q, 0, ps);
    EXPECT_EQ(ReadBackBuffer()[0], 0xFFFF0000u);
    ps->Release();
}

// ---- the pixel formulas ----

struct FormulaCase {
    int record;
    float c0[4];
    float c1[4];
    uint8_t want[4];  // R, G, B, A
};

// Inputs shared by every case (point-sampled 1x1 textures): an RGBA texel
// (200, 100, 50, 128); a packed YUV texel Y 150, U 90, V 180, A 200; planes
// Y 150, U 90, V 180 (and a UV plane of the same chroma); a mask of 64. The
// expected bytes follow from the formulas in double precision, rounded to
// nearest.
const FormulaCase kFormulaCases[] = {
    {12, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {200, 100, 50, 96}},
    {13, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {200, 100, 50, 191}},
    {14, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {200, 100, 50, 48}},
    {15, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {107, 125, 170, 77}},
    {16, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {107, 125, 170, 153}},
    {17, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {107, 125, 170, 38}},
    {18, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {198, 131, 73, 64}},
    {19, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {198, 131, 73, 128}},
    {20, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {198, 131, 73, 32}},
    {21, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 150}},
    {22, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 191}},
    {23, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 48}},
    {24, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 120}},
    {25, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 153}},
    {26, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 38}},
    {27, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 100}},
    {28, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 128}},
    {29, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 32}},
    {30, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 191}},
    {31, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 48}},
    {32, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 153}},
    {33, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 38}},
    {34, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 128}},
    {35, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 32}},
    {36, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 191}},
    {37, {0.75f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {224, 125, 84, 48}},
    {38, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 153}},
    {39, {0.05f, 0.9f, 0.1f, -0.05f}, {0.6f, 1.1f, 0.5f, 0}, {130, 148, 193, 38}},
    {40, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 128}},
    {41, {0.04f, 1.2f, -0.02f, 0.8f}, {0.03f, 1.1f, 0.5f, 0}, {224, 158, 111, 32}},
    {42, {0.2f, 0.4f, 0.6f, 0.8f}, {0.6f, 1.1f, 0.5f, 0}, {51, 102, 153, 204}},
};

class GfxFormula : public GfxDraw, public ::testing::WithParamInterface<FormulaCase> {};

// Which texture each sampler of a record reads, in the order the record
// lists its samplers.
enum Input { kRgba, kPacked, kY, kU, kV, kUV, kMask };

std::vector<Input> InputsOf(int record) {
    if (record == 42) return {};
    if (record >= 12 && record <= 29) {
        Input colour = record >= 21 ? kPacked : kRgba;
        bool mask = (record - 12) % 3 == 2;
        return mask ? std::vector<Input>{colour, kMask} : std::vector<Input>{colour};
    }
    bool two = record >= 36;
    int r = record - (two ? 36 : 30);
    bool tint = r / 2 == 1, mask = r % 2 == 1;
    std::vector<Input> in = {kY};
    if (!tint) {
        if (two) {
            in.push_back(kUV);
        } else {
            in.push_back(kU);
            in.push_back(kV);
        }
    }
    if (mask) in.push_back(kMask);
    return in;
}

TEST_P(GfxFormula, ComputesTheHandComputedPixel) {
    const FormulaCase& c = GetParam();
    IDirect3DSurface9* rt = Target(1, 1);
    std::vector<IDirect3DTexture9*> textures;
    for (Input in : InputsOf(c.record)) {
        IDirect3DTexture9* t = nullptr;
        switch (in) {
            case kRgba:
                t = Texture(1, 1, D3DFMT_A8R8G8B8, std::vector<uint32_t>{0x80C86432});
                break;
            case kPacked:
                t = Texture(1, 1, D3DFMT_A8R8G8B8, std::vector<uint32_t>{0xC8965AB4});
                break;
            case kY:
                t = Texture(1, 1, D3DFMT_L8, std::vector<uint8_t>{150});
                break;
            case kU:
                t = Texture(1, 1, D3DFMT_L8, std::vector<uint8_t>{90});
                break;
            case kV:
                t = Texture(1, 1, D3DFMT_L8, std::vector<uint8_t>{180});
                break;
            case kUV:
                t = Texture(1, 1, D3DFMT_A8L8, std::vector<uint16_t>{180 << 8 | 90});
                break;
            case kMask:
                t = Texture(1, 1, D3DFMT_L8, std::vector<uint8_t>{64});
                break;
        }
        m_device->SetTexture(static_cast<DWORD>(textures.size()), t);
        textures.push_back(t);
    }
    SetConstants(c.c0, c.c1);
    IDirect3DPixelShader9* ps = PixelShader(c.record);
    QuadCorner q[4];
    FullQuad(q, 1, 1);
    DrawQuad(q, 3, ps);
    uint32_t want =
        static_cast<uint32_t>(c.want[3]) << 24 | c.want[0] << 16 | c.want[1] << 8 | c.want[2];
    ExpectNear(ReadBack(rt)[0], want, 1, "formula");
    for (size_t i = 0; i < textures.size(); ++i) {
        m_device->SetTexture(static_cast<DWORD>(i), nullptr);
        textures[i]->Release();
    }
    ps->Release();
    rt->Release();
}

INSTANTIATE_TEST_SUITE_P(Records, GfxFormula, ::testing::ValuesIn(kFormulaCases),
                         [](const ::testing::TestParamInfo<FormulaCase>& info) {
                             return "record" + std::to_string(info.param.record);
                         });

// ---- de-interlacing ----

struct DeinterlaceCase {
    int record;
    const char* name;
};

class GfxDeinterlace : public GfxDraw, public ::testing::WithParamInterface<DeinterlaceCase> {};

// A 3 x 4 grey picture whose even rows are kept. Row 1 has a bright spike in
// its middle column outside the range of its neighbours (replaced by their
// average) and matches them elsewhere (kept). Row 3's neighbour below is
// clamped to itself, so it is kept.
TEST_P(GfxDeinterlace, RebuildsOnlyTheRowsOfTheDroppedFieldThatStandOut) {
    const int record = GetParam().record;
    IDirect3DSurface9* rt = Target(3, 4);
    const uint8_t luma[4][3] = {{100, 100, 100}, {110, 250, 110}, {120, 120, 120}, {30, 30, 30}};
    const uint8_t want[4][3] = {{100, 100, 100}, {110, 110, 110}, {120, 120, 120}, {30, 30, 30}};
    std::vector<IDirect3DTexture9*> textures;
    auto bind = [&](IDirect3DTexture9* t) {
        m_device->SetTexture(static_cast<DWORD>(textures.size()), t);
        m_device->SetSamplerState(static_cast<DWORD>(textures.size()), D3DSAMP_ADDRESSU,
                                  D3DTADDRESS_CLAMP);
        m_device->SetSamplerState(static_cast<DWORD>(textures.size()), D3DSAMP_ADDRESSV,
                                  D3DTADDRESS_CLAMP);
        textures.push_back(t);
    };
    std::vector<uint32_t> rgb, packed;
    std::vector<uint8_t> y, chroma(3 * 2, 128);
    for (auto& row : luma) {
        for (uint8_t l : row) {
            rgb.push_back(0xFF000000u | l << 16 | l << 8 | l);
            packed.push_back(0xFF000000u | l << 16 | 128 << 8 | 128);
            y.push_back(l);
        }
    }
    if (record <= 5) {
        bind(Texture(3, 4, D3DFMT_A8R8G8B8, rgb));
    } else if (record <= 7) {
        bind(Texture(3, 4, D3DFMT_A8R8G8B8, packed));
    } else if (record <= 9) {
        bind(Texture(3, 4, D3DFMT_L8, y));
        for (int i = 0; i < 4; ++i) bind(Texture(3, 2, D3DFMT_L8, chroma));
    } else {
        bind(Texture(3, 4, D3DFMT_L8, y));
        std::vector<uint16_t> uv(3 * 2, 0x8080);
        for (int i = 0; i < 2; ++i) bind(Texture(3, 2, D3DFMT_A8L8, uv));
    }
    const float c0[4] = {1.0f / 3, 1.0f / 4, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    IDirect3DPixelShader9* ps = PixelShader(record);
    QuadCorner q[4];
    FullQuad(q, 3, 4);
    DrawQuad(q, 1, ps);
    std::vector<uint32_t> out = ReadBack(rt);
    for (int r = 0; r < 4; ++r) {
        for (int x = 0; x < 3; ++x) {
            uint32_t l = want[r][x];
            ExpectNear(out[r * 3 + x] & 0xFFFFFF, l << 16 | l << 8 | l, 1, GetParam().name);
        }
    }
    for (size_t i = 0; i < textures.size(); ++i) {
        m_device->SetTexture(static_cast<DWORD>(i), nullptr);
        textures[i]->Release();
    }
    ps->Release();
    rt->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Records, GfxDeinterlace,
    ::testing::Values(DeinterlaceCase{4, "rgb_lines"}, DeinterlaceCase{5, "rgb_edges"},
                      DeinterlaceCase{6, "packed_lines"}, DeinterlaceCase{7, "packed_edges"},
                      DeinterlaceCase{8, "planes_lines"}, DeinterlaceCase{9, "planes_edges"},
                      DeinterlaceCase{10, "nv12_lines"}, DeinterlaceCase{11, "nv12_edges"}),
    [](const ::testing::TestParamInfo<DeinterlaceCase>& info) {
        return std::string(info.param.name);
    });

// The edge-directed form follows a diagonal: a dropped row whose vertical
// neighbours disagree but whose diagonal pair agrees takes that pair's mean.
TEST_F(GfxDraw, EdgeDirectedDeinterlacerFollowsTheDiagonal) {
    IDirect3DSurface9* rt = Target(3, 3);
    const uint8_t luma[3][3] = {{200, 0, 0}, {60, 250, 60}, {0, 0, 200}};
    std::vector<uint32_t> rgb;
    for (auto& row : luma)
        for (uint8_t l : row) rgb.push_back(0xFF000000u | l << 16 | l << 8 | l);
    IDirect3DTexture9* tex = Texture(3, 3, D3DFMT_A8R8G8B8, rgb);
    m_device->SetTexture(0, tex);
    m_device->SetSamplerState(0, D3DSAMP_ADDRESSU, D3DTADDRESS_CLAMP);
    m_device->SetSamplerState(0, D3DSAMP_ADDRESSV, D3DTADDRESS_CLAMP);
    const float c0[4] = {1.0f / 3, 1.0f / 3, 0, 0}, c1[4] = {};
    SetConstants(c0, c1);
    QuadCorner q[4];
    FullQuad(q, 3, 3);
    // Centre pixel: vertical pair (0, 0), up-left/down-right (200, 200),
    // up-right/down-left (0, 0). Lines average the vertical pair (0); edges
    // pick the pair that differs least, the vertical one first (0 vs 0).
    for (int record : {4, 5}) {
        IDirect3DPixelShader9* ps = PixelShader(record);
        DrawQuad(q, 1, ps);
        EXPECT_EQ(ReadBack(rt)[4] & 0xFF, 0u) << record;
        ps->Release();
    }
    // Make the vertical pair disagree: up 0 -> 100. Both diagonal pairs now
    // agree better (200/200 and 0/0); the first of them, up-left/down-right,
    // is taken.
    rgb[1] = 0xFF646464;
    IDirect3DTexture9* tex2 = Texture(3, 3, D3DFMT_A8R8G8B8, rgb);
    m_device->SetTexture(0, tex2);
    IDirect3DPixelShader9* lines = PixelShader(4);
    DrawQuad(q, 1, lines);
    EXPECT_EQ(ReadBack(rt)[4] & 0xFF, 50u);  // (100 + 0) / 2
    IDirect3DPixelShader9* edges = PixelShader(5);
    DrawQuad(q, 1, edges);
    EXPECT_EQ(ReadBack(rt)[4] & 0xFF, 200u);
    m_device->SetTexture(0, nullptr);
    for (auto* t : {tex, tex2}) t->Release();
    lines->Release();
    edges->Release();
    rt->Release();
}

}  // namespace
