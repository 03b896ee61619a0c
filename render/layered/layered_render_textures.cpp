// CNHVideoRender: the shader resource and lazy shader creation, the texture
// loaders per picture format (one texture, packed 4:2:2 and planar YUV as
// three L8 planes, NV12 as L8 + A8L8), the de-interlacing pass into a
// render target, and the DXVA2 path for hardware samples.
//
// Planes keep their native sizes so the device interpolates chroma, and every
// loader returns whole-texture coordinates shifted by half a texel, so a 1:1
// draw samples texel centres. 16- and 24-bit RGB are uploaded as they are
// where the device holds them, else widened to 32 bits here. A picture is
// locked and copied once per upload; nothing is converted on the way that
// the shaders can do.
#include <cstring>

#include "base/video_format.h"
#include "ncodecbase/video_processor.h"
#include "platform/gfx/shader_record.h"
#include "platform/kernel/resource.h"
#include "render/layered/layered_render_internal.h"

using namespace ncb::layered;
using Impl = CNHVideoRender::Impl;

namespace {

constexpr uint32_t kSampleFormatWord = 0x288D1503;

bool IsPlanarYuv(int sub) {
    return sub == VIDEO_FORMAT_YUV420 || sub == VIDEO_FORMAT_YUV422 || sub == VIDEO_FORMAT_YUV444 ||
           sub == VIDEO_FORMAT_IYUV || sub == VIDEO_FORMAT_I420 || sub == VIDEO_FORMAT_YV12;
}

bool IsPacked422(int sub) {
    return sub == VIDEO_FORMAT_YUY2 || sub == VIDEO_FORMAT_YVYU || sub == VIDEO_FORMAT_UYVY ||
           sub == VIDEO_FORMAT_VYUY;
}

// Byte offsets of Y0, U, Y1, V inside each two-pixel group.
void PackedOrder(int sub, int order[4]) {
    static constexpr int kOrders[4][4] = {
        {0, 1, 2, 3},  // YUY2: Y0 U Y1 V
        {0, 3, 2, 1},  // YVYU: Y0 V Y1 U
        {1, 0, 3, 2},  // UYVY: U Y0 V Y1
        {1, 2, 3, 0},  // VYUY: V Y0 U Y1
    };
    std::memcpy(order, kOrders[sub - VIDEO_FORMAT_YUY2], sizeof(kOrders[0]));
}

// A locked texture level, unlocked and released on every path.
class LockedLevel {
  public:
    explicit LockedLevel(nplat::IDirect3DTexture9* texture) : m_texture(texture) {
        m_ok = nplat::SUCCEEDED(texture->LockRect(0, &m_rect, nullptr, nplat::D3DLOCK_DISCARD));
    }
    ~LockedLevel() {
        if (m_ok) m_texture->UnlockRect(0);
    }
    LockedLevel(const LockedLevel&) = delete;
    LockedLevel& operator=(const LockedLevel&) = delete;
    bool ok() const { return m_ok; }
    uint8_t* Row(int y) const {
        return static_cast<uint8_t*>(m_rect.pBits) + static_cast<ptrdiff_t>(y) * m_rect.Pitch;
    }
    int Pitch() const { return m_rect.Pitch; }

  private:
    nplat::IDirect3DTexture9* m_texture;
    nplat::D3DLOCKED_RECT m_rect{};
    bool m_ok = false;
};

void CopyRows(const LockedLevel& dst, const ncb::PlaneView& src, int rowBytes, int firstRow = 0,
              int step = 1) {
    int out = 0;
    for (int y = firstRow; y < src.height; y += step, ++out) {
        std::memcpy(dst.Row(out), src.data + static_cast<ptrdiff_t>(y) * src.pitch,
                    static_cast<size_t>(rowBytes));
    }
}

// 16- and 24-bit RGB widened to 0xFFRRGGBB with the low bits left 0.
void WidenRow(int sub, const uint8_t* src, uint32_t* dst, int width) {
    for (int x = 0; x < width; ++x) {
        uint32_t r, g, b;
        if (sub == VIDEO_FORMAT_RGB24) {
            b = src[3 * x], g = src[3 * x + 1], r = src[3 * x + 2];
        } else {
            const uint32_t v = src[2 * x] | src[2 * x + 1] << 8;
            if (sub == VIDEO_FORMAT_RGB565) {
                r = (v >> 11 & 31) << 3, g = (v >> 5 & 63) << 2, b = (v & 31) << 3;
            } else {
                r = (v >> 10 & 31) << 3, g = (v >> 5 & 31) << 3, b = (v & 31) << 3;
            }
        }
        dst[x] = 0xFF000000u | r << 16 | g << 8 | b;
    }
}

}  // namespace

// ---- shaders ----

int Impl::LoadShaderResource() {
    static constexpr nplat::UINT kSizes[4] = {48, 80, 112, 144};
    static constexpr nplat::DWORD kFvf[4] = {
        nplat::D3DFVF_XYZ, nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX1,
        nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX2, nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX3};
    for (int i = 0; i < 4; ++i) {
        if (nplat::FAILED(device->CreateVertexBuffer(kSizes[i], nplat::D3DUSAGE_WRITEONLY, kFvf[i],
                                                     nplat::D3DPOOL_DEFAULT, &vertexBuffer[i],
                                                     nullptr))) {
            vertexBuffer[i] = nullptr;
            FreeShaderResource();
            return 0;
        }
    }
    nplat::HRSRC found = nplat::FindResourceA(nullptr, nplat::MAKEINTRESOURCEA(101), "shader");
    nplat::HGLOBAL loaded = found ? nplat::LoadResource(nullptr, found) : nullptr;
    const auto* bytes = static_cast<const uint8_t*>(loaded ? nplat::LockResource(loaded) : nullptr);
    const size_t total = found ? nplat::SizeofResource(nullptr, found) : 0;
    size_t offset = 0;
    for (int i = 0; bytes && i < kShaderCount; ++i) {
        uint32_t length = 0;
        if (offset + 4 > total) break;
        std::memcpy(&length, bytes + offset, 4);
        if (length > total - offset - 4) break;
        shaderCode[i] = reinterpret_cast<const nplat::DWORD*>(bytes + offset + 4);
        offset += 4 + length;
    }
    if (!bytes || !shaderCode[kShaderCount - 1]) {
        FreeShaderResource();
        return 0;
    }
    return 1;
}

void Impl::FreeShaderResource() {
    for (auto*& s : shader) {
        if (s) s->Release();
        s = nullptr;
    }
    for (auto*& code : shaderCode) code = nullptr;
    for (auto*& vb : vertexBuffer) {
        if (vb) vb->Release();
        vb = nullptr;
    }
}

int Impl::SetShader(int number) {
    if (number < 0 || number >= kShaderCount || !shaderCode[number]) return 0;
    const bool ps2a = number >= 5 && number <= 11 && (number & 1);
    if (ps2a && (active.uFlags & kCfgPs20Only)) number -= 1;
    if (!shader[number]) {
        if (number < 4) {
            nplat::IDirect3DVertexShader9* vs = nullptr;
            if (nplat::FAILED(device->CreateVertexShader(shaderCode[number], &vs))) return 0;
            shader[number] = vs;
        } else {
            nplat::IDirect3DPixelShader9* ps = nullptr;
            if (nplat::FAILED(device->CreatePixelShader(shaderCode[number], &ps)) &&
                (!ps2a || nplat::FAILED(device->CreatePixelShader(shaderCode[number - 1], &ps)))) {
                return 0;
            }
            shader[number] = ps;
        }
    }
    if (number < 4) {
        return nplat::SUCCEEDED(
            device->SetVertexShader(static_cast<nplat::IDirect3DVertexShader9*>(shader[number])));
    }
    return nplat::SUCCEEDED(
        device->SetPixelShader(static_cast<nplat::IDirect3DPixelShader9*>(shader[number])));
}

// ---- texture loaders ----

int Impl::CreateDynamicTexture(int width, int height, nplat::D3DFORMAT format,
                               nplat::IDirect3DTexture9** texture) {
    *texture = nullptr;
    if (width < 1 || height < 1) return 0;
    if (nplat::FAILED(device->CreateTexture(width, height, 1, nplat::D3DUSAGE_DYNAMIC, format,
                                            nplat::D3DPOOL_DEFAULT, texture, nullptr))) {
        *texture = nullptr;
        return 0;
    }
    return 1;
}

int Impl::LoadTextureOne(CNCodecBuffer* data, VideoFormat* format, bool ownAlpha, int deinterlace,
                         PictureTextures* out) {
    *out = PictureTextures{};
    ncb::PlaneSet planes;
    if (!data || !format || !data->GetAddress() ||
        !ncb::GetPlanes(*format, static_cast<uint8_t*>(data->GetAddress()), true, &planes)) {
        return 0;
    }
    const int sub = format->nCodecSubType;
    const int w = planes.plane0.width, h = planes.plane0.height;
    nplat::D3DFORMAT texFormat;
    int bpp = 4;
    bool widen = false;
    TextureLayout layout = TextureLayout::kRgb;
    switch (sub) {
        case VIDEO_FORMAT_Y800:
            texFormat = nplat::D3DFMT_L8, bpp = 1;
            break;
        case VIDEO_FORMAT_RGB555:
        case VIDEO_FORMAT_RGB565:
        case VIDEO_FORMAT_RGB24: {
            const uint32_t bit = sub == VIDEO_FORMAT_RGB555   ? 0x400
                                 : sub == VIDEO_FORMAT_RGB565 ? 0x800
                                                              : 0x200;
            widen = !(support & bit);
            texFormat = widen                        ? nplat::D3DFMT_X8R8G8B8
                        : sub == VIDEO_FORMAT_RGB555 ? nplat::D3DFMT_X1R5G5B5
                        : sub == VIDEO_FORMAT_RGB565 ? nplat::D3DFMT_R5G6B5
                                                     : nplat::D3DFMT_R8G8B8;
            bpp = widen ? 4 : (sub == VIDEO_FORMAT_RGB24 ? 3 : 2);
            break;
        }
        case VIDEO_FORMAT_RGB32:
        case VIDEO_FORMAT_AYUV:
            texFormat = ownAlpha ? nplat::D3DFMT_A8R8G8B8 : nplat::D3DFMT_X8R8G8B8;
            layout = sub == VIDEO_FORMAT_AYUV ? TextureLayout::kYuv : TextureLayout::kRgb;
            break;
        case VIDEO_FORMAT_AI44:
            texFormat = nplat::D3DFMT_A8R8G8B8;
            layout = TextureLayout::kYuv;
            break;
        default:
            return 0;
    }
    nplat::IDirect3DTexture9* texture = nullptr;
    if (!CreateDynamicTexture(w, h, texFormat, &texture)) return 0;
    int ok = 0;
    {
        LockedLevel locked(texture);
        if (locked.ok()) {
            ok = 1;
            if (sub == VIDEO_FORMAT_AI44) {
                // The palette conversion writes AYUV straight into the texture.
                VideoFormat dst{};
                ncb::InitVideoFormat(&dst, VIDEO_FORMAT_AYUV, w, h);
                dst.nPadRight = locked.Pitch() - 4 * w;
                CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(
                    locked.Row(0), locked.Pitch() * h, locked.Pitch() * h, nullptr);
                ok = wrap &&
                     CNVideoProcessor::ConvertFromAI44(data, wrap, format, &dst, 0, 1, level);
                if (wrap) wrap->Release();
            } else if (widen) {
                for (int y = 0; y < h; ++y) {
                    WidenRow(sub,
                             planes.plane0.data + static_cast<ptrdiff_t>(y) * planes.plane0.pitch,
                             reinterpret_cast<uint32_t*>(locked.Row(y)), w);
                }
            } else {
                CopyRows(locked, planes.plane0, w * bpp);
            }
        }
    }
    if (!ok) {
        texture->Release();
        return 0;
    }
    out->tex[0] = texture;
    out->layout = layout;
    out->width = w, out->height = h;
    out->set0 = out->set1 = HalfTexelCoords(w, h);
    if (deinterlace) {
        nplat::D3DFORMAT rt = nplat::D3DFMT_X8R8G8B8;
        if (texFormat == nplat::D3DFMT_A8R8G8B8) {
            rt = texFormat;
        } else if ((texFormat == nplat::D3DFMT_R8G8B8 && (support & 0x40)) ||
                   (texFormat == nplat::D3DFMT_X1R5G5B5 && (support & 0x80)) ||
                   (texFormat == nplat::D3DFMT_R5G6B5 && (support & 0x100))) {
            rt = texFormat;
        }
        const int shaderNumber = layout == TextureLayout::kYuv ? 7 : 5;
        if (!DeinterlacePass(out, nullptr, 0, shaderNumber, deinterlace - 1, rt)) {
            out->Release();
            return 0;
        }
    }
    return 1;
}

int Impl::LoadTexturePlanes(CNCodecBuffer* data, VideoFormat* format, int deinterlace,
                            PictureTextures* out) {
    *out = PictureTextures{};
    ncb::PlaneSet planes;
    if (!data || !format || !data->GetAddress() ||
        !ncb::GetPlanes(*format, static_cast<uint8_t*>(data->GetAddress()), true, &planes)) {
        return 0;
    }
    const int sub = format->nCodecSubType;
    const bool packed = IsPacked422(sub), nv12 = sub == VIDEO_FORMAT_NV12;
    if (!packed && !nv12 && !IsPlanarYuv(sub)) return 0;
    const int w = planes.plane0.width, h = planes.plane0.height;
    int cw, ch;
    if (packed) {
        cw = (w + 1) / 2, ch = h;
    } else {
        cw = planes.u.width, ch = planes.u.height;
    }
    // With de-interlacing the chroma goes into one texture per field.
    const int fieldCount = deinterlace ? 2 : 1;
    const int chromaPlanes = nv12 ? 1 : 2;
    nplat::IDirect3DTexture9* tex[5] = {};
    auto cleanup = [&tex]() {
        for (auto*& t : tex) {
            if (t) t->Release();
            t = nullptr;
        }
        return 0;
    };
    if (!CreateDynamicTexture(w, h, nplat::D3DFMT_L8, &tex[0])) return cleanup();
    for (int p = 0; p < chromaPlanes; ++p) {
        for (int f = 0; f < fieldCount; ++f) {
            const int rows = fieldCount == 1 ? ch : (ch + 1 - f) / 2;
            if (!CreateDynamicTexture(cw, rows < 1 ? 1 : rows,
                                      nv12 ? nplat::D3DFMT_A8L8 : nplat::D3DFMT_L8,
                                      &tex[1 + p * fieldCount + f])) {
                return cleanup();
            }
        }
    }
    if (packed) {
        int order[4];
        PackedOrder(sub, order);
        LockedLevel ly(tex[0]);
        if (!ly.ok()) return cleanup();
        for (int f = 0; f < fieldCount; ++f) {
            LockedLevel lu(tex[1 + f]), lv(tex[1 + fieldCount + f]);
            if (!lu.ok() || !lv.ok()) return cleanup();
            for (int y = f, row = 0; y < h; y += fieldCount, ++row) {
                const uint8_t* s =
                    planes.plane0.data + static_cast<ptrdiff_t>(y) * planes.plane0.pitch;
                uint8_t *dy = ly.Row(y), *du = lu.Row(row), *dv = lv.Row(row);
                for (int x = 0; x < w; x += 2) {
                    const uint8_t* g = s + 2 * x;
                    dy[x] = g[order[0]];
                    if (x + 1 < w) {
                        dy[x + 1] = g[order[2]];
                        du[x / 2] = g[order[1]];
                        dv[x / 2] = g[order[3]];
                    } else {
                        // An odd last pixel has only the first two bytes of its group.
                        du[x / 2] = order[1] < 2 ? g[order[1]] : 128;
                        dv[x / 2] = order[3] < 2 ? g[order[3]] : 128;
                    }
                }
            }
        }
    } else {
        LockedLevel ly(tex[0]);
        if (!ly.ok()) return cleanup();
        CopyRows(ly, planes.plane0, w);
        const ncb::PlaneView* chroma[2] = {&planes.u, &planes.v};
        for (int p = 0; p < chromaPlanes; ++p) {
            for (int f = 0; f < fieldCount; ++f) {
                LockedLevel lc(tex[1 + p * fieldCount + f]);
                if (!lc.ok()) return cleanup();
                CopyRows(lc, *chroma[p], nv12 ? 2 * cw : cw, f, fieldCount);
            }
        }
    }
    out->width = w, out->height = h;
    out->set0 = HalfTexelCoords(w, h);
    out->set1 = HalfTexelCoords(cw, ch);
    out->layout = nv12 ? TextureLayout::kTwoPlanes : TextureLayout::kThreePlanes;
    if (!deinterlace) {
        for (int i = 0; i < 3; ++i) out->tex[i] = tex[i];
        return 1;
    }
    out->tex[0] = tex[0];
    const int ok = DeinterlacePass(out, tex + 1, 2 * chromaPlanes, nv12 ? 11 : 9, deinterlace - 1,
                                   nplat::D3DFMT_X8R8G8B8);
    for (int i = 1; i < 5; ++i) {
        if (tex[i]) tex[i]->Release();
    }
    if (!ok) out->Release();
    return ok;
}

// Renders the uploaded picture once through a de-interlacing shader into a
// render target of its size, which then stands in for the picture as one
// RGB texture. `fields` are the chroma field textures in sampler order.
int Impl::DeinterlacePass(PictureTextures* planes, nplat::IDirect3DTexture9** fields,
                          int fieldCount, int shaderNumber, int parity, nplat::D3DFORMAT format) {
    const int w = planes->width, h = planes->height;
    nplat::IDirect3DTexture9* rt = nullptr;
    nplat::IDirect3DSurface9* surface = nullptr;
    if (nplat::FAILED(device->CreateTexture(w, h, 1, nplat::D3DUSAGE_RENDERTARGET, format,
                                            nplat::D3DPOOL_DEFAULT, &rt, nullptr))) {
        return 0;
    }
    bool ok = nplat::SUCCEEDED(rt->GetSurfaceLevel(0, &surface)) &&
              nplat::SUCCEEDED(device->SetRenderTarget(0, surface));
    const nplat::D3DVIEWPORT9 vp{
        0, 0, static_cast<nplat::DWORD>(w), static_cast<nplat::DWORD>(h), 0.0f, 1.0f};
    if (ok) {
        nplat::IDirect3DBaseTexture9* samplers[5] = {planes->tex[0]};
        for (int i = 0; i < fieldCount; ++i) samplers[1 + i] = fields[i];
        const float c0[4] = {1.0f / static_cast<float>(w), 1.0f / static_cast<float>(h),
                             static_cast<float>(parity), 0.0f};
        device->SetViewport(&vp);
        device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, 0);
        device->SetRenderState(nplat::D3DRS_CULLMODE, nplat::D3DCULL_CCW);
        ok = nplat::SUCCEEDED(device->BeginScene());
        if (ok) {
            for (int i = 0; i < 1 + fieldCount; ++i) {
                device->SetTexture(i, samplers[i]);
                device->SetSamplerState(i, nplat::D3DSAMP_MAGFILTER, nplat::D3DTEXF_POINT);
                device->SetSamplerState(i, nplat::D3DSAMP_MINFILTER, nplat::D3DTEXF_POINT);
                device->SetSamplerState(i, nplat::D3DSAMP_ADDRESSU, nplat::D3DTADDRESS_CLAMP);
                device->SetSamplerState(i, nplat::D3DSAMP_ADDRESSV, nplat::D3DTADDRESS_CLAMP);
            }
            Quad unit = PlaceMapping({0, 0, w, h}, {0, 0, w, h}, w, h).base;
            ok = SetShader(1) && SetShader(shaderNumber) &&
                 nplat::SUCCEEDED(device->SetPixelShaderConstantF(0, c0, 1)) &&
                 DrawQuad(1, unit, &planes->set0);
            for (int i = 0; i < 1 + fieldCount; ++i) device->SetTexture(i, nullptr);
            ok = nplat::SUCCEEDED(device->EndScene()) && ok;
        }
    }
    if (target) device->SetRenderTarget(0, target);
    if (surface) surface->Release();
    if (!ok) {
        rt->Release();
        return 0;
    }
    planes->Release();
    planes->tex[0] = rt;
    planes->layout = TextureLayout::kRgb;
    planes->width = w, planes->height = h;
    planes->set0 = planes->set1 = HalfTexelCoords(w, h);
    return 1;
}

int Impl::LoadVideoData(VideoRecord* video, unsigned flags, int fieldOrder) {
    if (!video->picture) return 1;
    VideoFormat* f = &video->format;
    const int sub = f->nCodecSubType;
    const int deinterlace = fieldOrder ? (fieldOrder == 1 ? 1 : 2) : 0;
    PictureTextures fresh;
    int ok;
    if (f->nCodecType == VIDEO_TYPE_RGB || sub == VIDEO_FORMAT_Y800 || sub == VIDEO_FORMAT_AYUV ||
        sub == VIDEO_FORMAT_AI44) {
        ok = LoadTextureOne(video->picture, f, (flags & kVideoAlphaMask) == kAlphaOwn, deinterlace,
                            &fresh);
    } else {
        ok = LoadTexturePlanes(video->picture, f, deinterlace, &fresh);
    }
    if (!ok) return 0;
    video->textures.Release();
    video->textures = fresh;
    video->picture->Release();
    video->picture = nullptr;
    return 1;
}

// ---- hardware videos ----

int Impl::OpenVideoProcessor(VideoRecord* video) {
    nplat::DXVA2_VideoDesc desc{};
    desc.SampleWidth = 176, desc.SampleHeight = 144;
    desc.SampleFormat.value = kSampleFormatWord;
    desc.Format = static_cast<nplat::D3DFORMAT>(video->d3dFormat);
    desc.InputSampleFreq = {25, 1};
    desc.OutputFrameFreq = {25, 1};
    nplat::UINT count = 0;
    nplat::GUID* guids = nullptr;
    if (nplat::FAILED(service->GetVideoProcessorDeviceGuids(&desc, &count, &guids))) return 0;
    const nplat::GUID* chosen = nullptr;
    for (nplat::UINT i = 0; i < count && !chosen; ++i) {
        if (!nplat::GfxEqualGuid(guids[i], nplat::DXVA2_VideoProcProgressiveDevice) &&
            !nplat::GfxEqualGuid(guids[i], nplat::DXVA2_VideoProcBobDevice) &&
            !nplat::GfxEqualGuid(guids[i], nplat::DXVA2_VideoProcSoftwareDevice)) {
            chosen = &guids[i];
        }
    }
    for (nplat::UINT i = 0; i < count && !chosen; ++i) {
        if (nplat::GfxEqualGuid(guids[i], nplat::DXVA2_VideoProcBobDevice)) chosen = &guids[i];
    }
    int ok = 0;
    if (chosen && nplat::SUCCEEDED(service->CreateVideoProcessor(
                      *chosen, &desc, nplat::D3DFMT_X8R8G8B8, 0, &video->processor))) {
        ok = 1;
    } else {
        video->processor = nullptr;
    }
    nplat::CoTaskMemFree(guids);
    return ok;
}

bool Impl::HardwareVideoCanUseDirectMode(const VideoRecord& video, unsigned flags,
                                         unsigned id) const {
    if ((flags & kVideoAlphaMask) != kAlphaOpaque || (flags & 0x730)) return false;
    for (int i = 2; i < 5; ++i) {
        if (video.adjust[i] != 0 || video.adjust[i + 3] != 256) return false;
    }
    for (int i = 0; i < layers.GetParameterCount(); ++i) {
        const auto* const* slot = static_cast<LayerRecord* const*>(layers.GetBinaryData(i));
        const LayerRecord& l = **slot;
        if (l.videoId != id) continue;
        const unsigned lf = static_cast<uint16_t>(layers.GetUserData1(i));
        if (lf & kLayerIntoStatic) return false;
        if (!(lf & kLayerVisible) || l.mappingCount == 0) continue;
        if ((l.colour >> 24) != 0xFF || l.mappingCount != 1) return false;
        const MappingSlot& m = l.mappings[0];
        const auto& g = m.given;
        if (m.source.x != 0 || m.source.y != 0 || m.source.w != l.pixelWidth ||
            m.source.h != l.pixelHeight || m.dest.x != 0 || m.dest.y != 0 ||
            m.dest.w != stat.nWidth || m.dest.h != stat.nHeight || (g.nFlags & 0x7) ||
            g.nRotate != 0 || g.nAlpha != 255 || g.nLumaOffset || g.nUOffset || g.nVOffset) {
            return false;
        }
    }
    return true;
}

int Impl::LoadHardwareVideoData(VideoRecord* video, unsigned flags, unsigned id, int fieldOrder) {
    if (!video->picture) return 1;
    auto* sample = static_cast<nplat::IDirect3DSurface9*>(video->picture->GetHardwareSample());
    if (!sample) return 0;
    const bool interlaced = fieldOrder != 0;
    const bool processed = interlaced && video->processor;
    if (video->processingMode == 0) {
        const bool direct = HardwareVideoCanUseDirectMode(*video, flags, id);
        video->processingMode = direct ? (processed ? 3 : 1) : (processed ? 4 : 2);
    } else if (video->processor) {
        const bool direct = video->processingMode == 1 || video->processingMode == 3;
        video->processingMode = direct ? (processed ? 3 : 1) : (processed ? 4 : 2);
    }
    const VideoFormat& f = video->format;
    const int w = f.nRectRight - f.nRectLeft, h = f.nRectBottom - f.nRectTop;
    if (w < 1 || h < 1) return 0;
    video->textures.Release();
    video->textures.width = w, video->textures.height = h;
    video->textures.set0 = video->textures.set1 = HalfTexelCoords(w, h);
    video->textures.layout = TextureLayout::kRgb;
    if (video->processingMode == 1 || video->processingMode == 3) return 1;
    nplat::IDirect3DTexture9* rt = nullptr;
    nplat::IDirect3DSurface9* surface = nullptr;
    if (nplat::FAILED(device->CreateTexture(w, h, 1, nplat::D3DUSAGE_RENDERTARGET,
                                            nplat::D3DFMT_X8R8G8B8, nplat::D3DPOOL_DEFAULT, &rt,
                                            nullptr))) {
        video->textures.layout = TextureLayout::kNone;
        return 0;
    }
    const nplat::RECT src{f.nRectLeft, f.nRectTop, f.nRectRight, f.nRectBottom};
    bool ok = nplat::SUCCEEDED(rt->GetSurfaceLevel(0, &surface));
    if (ok && video->processingMode == 2) {
        ok = nplat::SUCCEEDED(
            device->StretchRect(sample, &src, surface, nullptr, nplat::D3DTEXF_POINT));
    } else if (ok) {
        nplat::DXVA2_VideoSample s{};
        s.SampleFormat.value = kSampleFormatWord;
        s.SrcSurface = sample;
        s.SrcRect = src;
        s.DstRect = nplat::RECT{0, 0, w, h};
        s.PlanarAlpha = nplat::DXVA2FloatToFixed(1.0f);
        nplat::DXVA2_VideoProcessBltParams p{};
        p.TargetRect = s.DstRect;
        p.BackgroundColor = {0x8000, 0x8000, 0x1000, 0xFFFF};
        p.DestFormat.value = 0x288C2002;
        p.ProcAmpValues.Contrast = nplat::DXVA2FloatToFixed(1.0f);
        p.ProcAmpValues.Saturation = nplat::DXVA2FloatToFixed(1.0f);
        p.Alpha = nplat::DXVA2FloatToFixed(1.0f);
        ok = nplat::SUCCEEDED(video->processor->VideoProcessBlt(surface, &p, &s, 1, nullptr));
    }
    if (surface) surface->Release();
    if (!ok) {
        rt->Release();
        video->textures.layout = TextureLayout::kNone;
        return 0;
    }
    video->textures.tex[0] = rt;
    video->picture->Release();
    video->picture = nullptr;
    return 1;
}
