// CNHVideoRender: drawing. Present renders the scene into the back buffer
// (or a static layer) layer by layer, each mapping as its own viewport with
// clip-space quads; static layers draw their render-target texture, video
// layers draw the video, the margin bands and the subtitle boxes. Also the
// host-driven draws into static layers (bitmaps and video layers) and the
// direct path of hardware videos onto the back buffer.
//
// Every quad goes through the vertex buffer of its vertex format, locked
// with discard, as a two-triangle strip. A device error anywhere ends the
// scene and reports 0 so the caller can mark the render failed.
#include <cstring>

#include "ncodecbase/video_processor.h"
#include "platform/window/window.h"
#include "render/layered/layered_render_internal.h"

using namespace ncb::layered;
using Impl = CNHVideoRender::Impl;

namespace {

constexpr unsigned kNoId = 0xFFFFFFFFu;

template <typename T>
T* RecordAt(const CNDataList& list, int pos) {
    T* const* slot = static_cast<T* const*>(list.GetBinaryData(pos));
    return slot ? *slot : nullptr;
}

unsigned FlagsAt(const CNDataList& list, int pos) {
    return static_cast<uint16_t>(list.GetUserData1(pos));
}

TexQuad Oriented(const TexQuad& whole, unsigned videoFlags) {
    return OrientTexCoords(whole.u[kTopLeft], whole.v[kTopLeft], whole.u[kBottomRight],
                           whole.v[kBottomRight], videoFlags);
}

// What a video layer shows, in layer pixels, worked out once per draw.
struct VideoLayerGeometry {
    bool videoValid = false;
    PixelRect video;
    MarginBands bands;
    PixelRect pixelBox[4];
    bool pixelShown[4] = {};
    TextSlotResult text[4];
};

}  // namespace

int Impl::DrawQuad(int sets, const Quad& quad, const TexQuad* tex) {
    static constexpr nplat::DWORD kFvf[4] = {
        nplat::D3DFVF_XYZ, nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX1,
        nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX2, nplat::D3DFVF_XYZ | nplat::D3DFVF_TEX3};
    nplat::IDirect3DVertexBuffer9* vb = vertexBuffer[sets];
    const int stride = 3 + 2 * sets;
    void* mem = nullptr;
    if (nplat::FAILED(vb->Lock(0, 0, &mem, nplat::D3DLOCK_DISCARD))) return 0;
    float* v = static_cast<float*>(mem);
    for (int c = 0; c < 4; ++c) {
        float* p = v + c * stride;
        p[0] = quad.x[c], p[1] = quad.y[c], p[2] = 1.0f;
        for (int s = 0; s < sets; ++s) p[3 + 2 * s] = tex[s].u[c], p[4 + 2 * s] = tex[s].v[c];
    }
    vb->Unlock();
    return nplat::SUCCEEDED(device->SetStreamSource(0, vb, 0, stride * 4)) &&
           nplat::SUCCEEDED(device->SetFVF(kFvf[sets])) &&
           nplat::SUCCEEDED(device->DrawPrimitive(nplat::D3DPT_TRIANGLESTRIP, 0, 2));
}

namespace {

void LinearClamp(nplat::IDirect3DDevice9Ex* device, int sampler) {
    device->SetSamplerState(sampler, nplat::D3DSAMP_MAGFILTER, nplat::D3DTEXF_LINEAR);
    device->SetSamplerState(sampler, nplat::D3DSAMP_MINFILTER, nplat::D3DTEXF_LINEAR);
    device->SetSamplerState(sampler, nplat::D3DSAMP_ADDRESSU, nplat::D3DTADDRESS_CLAMP);
    device->SetSamplerState(sampler, nplat::D3DSAMP_ADDRESSV, nplat::D3DTADDRESS_CLAMP);
}

void SetMappingViewport(nplat::IDirect3DDevice9Ex* device, const MappingPlacement& m,
                        int mappingFlags) {
    const nplat::D3DVIEWPORT9 vp{static_cast<nplat::DWORD>(m.viewport.x),
                                 static_cast<nplat::DWORD>(m.viewport.y),
                                 static_cast<nplat::DWORD>(m.viewport.w),
                                 static_cast<nplat::DWORD>(m.viewport.h),
                                 0.0f,
                                 1.0f};
    device->SetViewport(&vp);
    const bool flip = ((mappingFlags & 0x1) != 0) != ((mappingFlags & 0x2) != 0);
    device->SetRenderState(nplat::D3DRS_CULLMODE, flip ? nplat::D3DCULL_CW : nplat::D3DCULL_CCW);
}

int SetConstants(nplat::IDirect3DDevice9Ex* device, const ShaderChoice& s) {
    float regs[8];
    std::memcpy(regs, s.c0, sizeof(s.c0));
    std::memcpy(regs + 4, s.c1, sizeof(s.c1));
    return nplat::SUCCEEDED(device->SetPixelShaderConstantF(0, regs, s.twoConstants ? 2 : 1));
}

}  // namespace

int Impl::DrawStaticLayer(const LayerRecord& layer, unsigned flags) {
    (void)flags;
    if (!SetShader(1)) return 0;
    device->SetTexture(0, layer.texture);
    LinearClamp(device, 0);
    device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, 1);
    const PixelRect whole{0, 0, layer.pixelWidth, layer.pixelHeight};
    const TexQuad tex = HalfTexelCoords(layer.pixelWidth, layer.pixelHeight);
    int ok = 1;
    for (int i = 0; i < layer.mappingCount && ok; ++i) {
        const MappingSlot& m = layer.mappings[i];
        const auto& g = m.given;
        const MappingPlacement place = PlaceMapping(m.source, m.dest, targetWidth, targetHeight);
        if (place.empty) continue;
        Quad quad = ElementQuad(place, m.source, whole);
        OrientQuad(&quad, place.cx, place.cy, g.nFlags, g.nRotate);
        const ShaderChoice s = ChooseOverlayShader(g.nFlags, g.nAlpha, g.nTintU, g.nTintV,
                                                   g.nLumaOffset, g.nUOffset, g.nVOffset);
        SetMappingViewport(device, place, g.nFlags);
        ok = SetShader(s.shader) && SetConstants(device, s) && DrawQuad(1, quad, &tex);
    }
    device->SetTexture(0, nullptr);
    return ok;
}

int Impl::DrawVideoLayer(const LayerRecord& layer, unsigned flags, unsigned id, int offsetX,
                         int offsetY, int tw, int th, bool directDrawn) {
    (void)id;
    VideoRecord* video = layer.videoId != kNoId ? Video(layer.videoId) : nullptr;
    int vpos = -1;
    if (video) Video(layer.videoId, &vpos);
    const unsigned vflags = video ? FlagsAt(videos, vpos) : 0;
    const PictureTextures* pic = video ? &video->textures : nullptr;
    const bool hasTextures = pic && pic->layout != TextureLayout::kNone && pic->tex[0];
    VideoLayerGeometry geo;
    const int W = layer.pixelWidth, H = layer.pixelHeight;
    const int* mg = layer.pixelMargin;
    if (video && (hasTextures || (video->textures.layout != TextureLayout::kNone))) {
        VideoAreaInput in;
        in.layerWidth = W, in.layerHeight = H;
        in.left = mg[0], in.right = mg[1], in.top = mg[2], in.bottom = mg[3];
        in.layerFlags = flags;
        VideoAspect(pic->width, pic->height, video->format.nDisplayWidth,
                    video->format.nDisplayHeight, vflags, &in.aspectX, &in.aspectY);
        in.hasPicture = true;
        geo.videoValid = CalcVideoRect(in, &geo.video);
    }
    geo.bands = CalcMarginBands(W, H, layer.colour, geo.videoValid, geo.video);
    for (int s = 0; s < 4 && geo.videoValid; ++s) {
        const SubTitleRecord* sub = SubTitle(layer.pixelSlot[s].subtitleId);
        if (!sub || sub->pieceCount < 1) continue;
        PixelSubTitleInput in;
        in.pieceX = sub->info[0].nPositionX, in.pieceY = sub->info[0].nPositionY;
        in.pieceWidth = sub->piece[0].width, in.pieceHeight = sub->piece[0].height;
        in.canvasWidth = sub->format.nCanvasWidth, in.canvasHeight = sub->format.nCanvasHeight;
        in.pictureWidth = pic->width, in.pictureHeight = pic->height;
        in.scale = layer.pixelSlot[s].scale;
        in.value1 = layer.pixelSlot[s].value[0];
        in.value2 = layer.pixelSlot[s].value[1];
        in.value3 = layer.pixelSlot[s].value[2];
        in.videoFlags = vflags;
        geo.pixelShown[s] = CalcPixelSubTitleRect(in, geo.video, &geo.pixelBox[s]);
    }
    TextPiece pieces[4][4];
    const TextPiece* piecePtr[4];
    int pieceCount[4] = {};
    for (int s = 0; s < 4; ++s) {
        piecePtr[s] = pieces[s];
        const SubTitleRecord* sub = SubTitle(layer.textSlot[s]);
        if (!sub) continue;
        pieceCount[s] = sub->pieceCount;
        for (int p = 0; p < sub->pieceCount; ++p) {
            pieces[s][p].width = sub->piece[p].width;
            pieces[s][p].height = sub->piece[p].height;
            pieces[s][p].size =
                static_cast<double>(sub->info[p].nSizeNumerator) / sub->info[p].nSizeDenominator;
        }
    }
    CalcTextSubTitleLayout(piecePtr, pieceCount, W, H, mg[4], mg[5], flags,
                           (active.uFlags & kCfgExactText) != 0, geo.text);

    int ok = 1;
    for (int i = 0; i < layer.mappingCount && ok; ++i) {
        const MappingSlot& m = layer.mappings[i];
        const auto& g = m.given;
        PixelRect dest = m.dest;
        dest.x += offsetX, dest.y += offsetY;
        const MappingPlacement place = PlaceMapping(m.source, dest, tw, th);
        if (place.empty) continue;
        SetMappingViewport(device, place, g.nFlags);
        auto element = [&](const PixelRect& r) {
            Quad q = ElementQuad(place, m.source, r);
            OrientQuad(&q, place.cx, place.cy, g.nFlags, g.nRotate);
            return q;
        };
        if (geo.videoValid && hasTextures && !directDrawn) {
            VideoShaderInput in;
            in.layout = pic->layout;
            in.alphaMode = vflags & kVideoAlphaMask;
            in.tint = (vflags & kVideoTint) || (g.nFlags & 0x4);
            in.tintU = (g.nFlags & 0x4) ? g.nTintU : video->adjust[0];
            in.tintV = (g.nFlags & 0x4) ? g.nTintV : video->adjust[1];
            in.constantAlpha = static_cast<int>(video->alpha);
            in.mappingAlpha = g.nAlpha;
            in.lumaOffset = video->adjust[2] + g.nLumaOffset;
            in.uOffset = video->adjust[3] + g.nUOffset;
            in.vOffset = video->adjust[4] + g.nVOffset;
            in.lumaGain = video->adjust[5], in.uGain = video->adjust[6];
            in.vGain = video->adjust[7];
            const ShaderChoice s = ChooseVideoShader(in);
            const bool planes = pic->layout == TextureLayout::kThreePlanes ||
                                pic->layout == TextureLayout::kTwoPlanes;
            const bool mask = in.alphaMode == kAlphaMask && video->mask.tex[0];
            TexQuad sets[3];
            int n = 0, sampler = 0;
            sets[n++] = Oriented(pic->set0, vflags);
            device->SetTexture(sampler, pic->tex[0]);
            LinearClamp(device, sampler++);
            if (planes && !in.tint) {
                sets[n++] = Oriented(pic->set1, vflags);
                for (int t = 1; t < 3 && pic->tex[t]; ++t) {
                    device->SetTexture(sampler, pic->tex[t]);
                    LinearClamp(device, sampler++);
                }
            }
            if (mask) {
                sets[n++] = Oriented(video->mask.set0, vflags);
                device->SetTexture(sampler, video->mask.tex[0]);
                LinearClamp(device, sampler++);
            }
            device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE,
                                   in.alphaMode != kAlphaOpaque || g.nAlpha != 255);
            ok = SetShader(n) && SetShader(s.shader) && SetConstants(device, s) &&
                 DrawQuad(n, element(geo.video), sets);
            for (int t = 0; t < sampler; ++t) device->SetTexture(t, nullptr);
        }
        if (ok && geo.bands.mask) {
            ShaderChoice s;
            s.shader = 42;
            s.c0[0] = static_cast<float>(layer.colour >> 16 & 0xFF) / 255.0f;
            s.c0[1] = static_cast<float>(layer.colour >> 8 & 0xFF) / 255.0f;
            s.c0[2] = static_cast<float>(layer.colour & 0xFF) / 255.0f;
            s.c0[3] = static_cast<float>(layer.colour >> 24) / 255.0f *
                      (static_cast<float>(g.nAlpha) / 255.0f);
            device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, s.c0[3] != 1.0f);
            ok = SetShader(0) && SetShader(42) && SetConstants(device, s);
            for (int b = 0; b < 4 && ok; ++b) {
                if (geo.bands.mask & (1u << b))
                    ok = DrawQuad(0, element(geo.bands.band[b]), nullptr);
            }
        }
        if (!ok) break;
        const ShaderChoice overlay = ChooseOverlayShader(g.nFlags, g.nAlpha, g.nTintU, g.nTintV,
                                                         g.nLumaOffset, g.nUOffset, g.nVOffset);
        bool prepared = false;
        auto drawPiece = [&](const PictureTextures& piece, const PixelRect& box,
                             const TexQuad& tex) {
            if (!prepared) {
                device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, 1);
                if (!SetShader(1)) return 0;
                prepared = true;
            }
            const int number = overlay.shader + (piece.layout == TextureLayout::kYuv ? 9 : 0);
            device->SetTexture(0, piece.tex[0]);
            LinearClamp(device, 0);
            const int done = SetShader(number) && SetConstants(device, overlay) &&
                             DrawQuad(1, element(box), &tex);
            device->SetTexture(0, nullptr);
            return done;
        };
        for (int s = 0; s < 4 && ok; ++s) {
            if (!geo.pixelShown[s]) continue;
            const SubTitleRecord* sub = SubTitle(layer.pixelSlot[s].subtitleId);
            ok = drawPiece(sub->piece[0], geo.pixelBox[s],
                           Oriented(sub->piece[0].set0, vflags & 0x30));
        }
        for (int s = 0; s < 4 && ok; ++s) {
            if (geo.text[s].piece < 0) continue;
            const SubTitleRecord* sub = SubTitle(layer.textSlot[s]);
            const PictureTextures& piece = sub->piece[geo.text[s].piece];
            ok = drawPiece(piece, geo.text[s].box, piece.set0);
        }
    }
    return ok;
}

int Impl::DrawHardwareVideoDirect(VideoRecord* video, const LayerRecord& layer, unsigned flags) {
    auto* sample = static_cast<nplat::IDirect3DSurface9*>(
        video->picture ? video->picture->GetHardwareSample() : nullptr);
    if (!sample) return 0;
    const int W = layer.pixelWidth, H = layer.pixelHeight;
    const int* mg = layer.pixelMargin;
    int vpos = -1;
    Video(layer.videoId, &vpos);
    VideoAreaInput in;
    in.layerWidth = W, in.layerHeight = H;
    in.left = mg[0], in.right = mg[1], in.top = mg[2], in.bottom = mg[3];
    in.layerFlags = flags;
    in.hasPicture = true;
    VideoAspect(video->textures.width, video->textures.height, video->format.nDisplayWidth,
                video->format.nDisplayHeight, FlagsAt(videos, vpos), &in.aspectX, &in.aspectY);
    PixelRect v;
    if (!CalcVideoRect(in, &v)) return 1;
    const MarginBands bands = CalcMarginBands(W, H, layer.colour, true, v);
    // Clip the video to the layer and cut the picture in proportion.
    const VideoFormat& f = video->format;
    const int pw = f.nRectRight - f.nRectLeft, ph = f.nRectBottom - f.nRectTop;
    const int l = v.x < 0 ? 0 : v.x, t = v.y < 0 ? 0 : v.y;
    const int r = v.x + v.w > W ? W : v.x + v.w, b = v.y + v.h > H ? H : v.y + v.h;
    if (r <= l || b <= t) return 1;
    auto even_down = [](int x) { return x & ~1; };
    auto even_up = [](int x) { return (x + 1) & ~1; };
    nplat::RECT src{f.nRectLeft, f.nRectTop, f.nRectRight, f.nRectBottom};
    if (l > v.x) src.left += even_down(static_cast<int>(int64_t(l - v.x) * pw / v.w));
    if (t > v.y) src.top += even_down(static_cast<int>(int64_t(t - v.y) * ph / v.h));
    if (r < v.x + v.w) src.right -= even_up(static_cast<int>(int64_t(v.x + v.w - r) * pw / v.w));
    if (b < v.y + v.h) src.bottom -= even_up(static_cast<int>(int64_t(v.y + v.h - b) * ph / v.h));
    nplat::RECT dst{0, 0, stat.nWidth, stat.nHeight};
    if (bands.mask) {
        const int sx = stat.nWidth / W, sy = stat.nHeight / H;
        dst = nplat::RECT{l * sx, t * sy, r * sx, b * sy};
    }
    if (video->processingMode == 1) {
        if (bands.mask && nplat::FAILED(device->ColorFill(target, nullptr, layer.colour))) return 0;
        return nplat::SUCCEEDED(
            device->StretchRect(sample, &src, target, &dst, nplat::D3DTEXF_LINEAR));
    }
    const unsigned yuv = CNVideoProcessor::RGB2YUV(layer.colour & 0xFFFFFF);
    nplat::DXVA2_VideoSample s{};
    s.SampleFormat.value = 0x288D1503;
    s.SrcSurface = sample;
    s.SrcRect = src;
    s.DstRect = dst;
    s.PlanarAlpha = nplat::DXVA2FloatToFixed(1.0f);
    nplat::DXVA2_VideoProcessBltParams p{};
    p.TargetRect = nplat::RECT{0, 0, stat.nWidth, stat.nHeight};
    p.BackgroundColor = {static_cast<nplat::USHORT>((yuv & 0xFF) << 8),
                         static_cast<nplat::USHORT>((yuv >> 8 & 0xFF) << 8),
                         static_cast<nplat::USHORT>((yuv >> 16 & 0xFF) << 8), 0xFFFF};
    p.DestFormat.value = 0x288C2002;
    p.ProcAmpValues.Contrast = nplat::DXVA2FloatToFixed(1.0f);
    p.ProcAmpValues.Saturation = nplat::DXVA2FloatToFixed(1.0f);
    p.Alpha = nplat::DXVA2FloatToFixed(1.0f);
    return nplat::SUCCEEDED(video->processor->VideoProcessBlt(target, &p, &s, 1, nullptr));
}

int Impl::RenderScene(nplat::IDirect3DSurface9* surface, int width, int height) {
    target = surface;
    targetWidth = width, targetHeight = height;
    auto finish = [this](int ok) {
        if (target != backBuffer) device->SetRenderTarget(0, backBuffer);
        target = backBuffer;
        targetWidth = stat.nWidth, targetHeight = stat.nHeight;
        return ok;
    };
    const nplat::D3DVIEWPORT9 vp{
        0, 0, static_cast<nplat::DWORD>(width), static_cast<nplat::DWORD>(height), 0.0f, 1.0f};
    if (nplat::FAILED(device->SetRenderTarget(0, surface)) ||
        nplat::FAILED(device->SetViewport(&vp)) ||
        nplat::FAILED(
            device->Clear(0, nullptr, nplat::D3DCLEAR_TARGET, active.uBackgroundColor, 1.0f, 0))) {
        return finish(0);
    }
    for (int i = 0; i < layers.GetParameterCount(); ++i) {
        const LayerRecord& layer = *RecordAt<LayerRecord>(layers, i);
        const unsigned flags = FlagsAt(layers, i);
        if (!(flags & kLayerVisible) || layer.mappingCount == 0) continue;
        bool direct = false;
        if (flags & kLayerVideo) {
            int vpos = -1;
            VideoRecord* video = layer.videoId != kNoId ? Video(layer.videoId, &vpos) : nullptr;
            // A hardware picture drawn straight to the target stays held; when
            // its processing was invalidated it is processed again.
            const bool hardware = video && (FlagsAt(videos, vpos) & kVideoHardware);
            if (video && video->picture &&
                (video->textures.layout == TextureLayout::kNone ||
                 (hardware && video->processingMode == 0)) &&
                !UploadVideo(video, FlagsAt(videos, vpos), layer.videoId)) {
                return finish(0);
            }
            if (hardware && (video->processingMode == 1 || video->processingMode == 3) &&
                target == backBuffer) {
                if (!DrawHardwareVideoDirect(video, layer, flags)) return finish(0);
                direct = true;
            }
        }
        if (nplat::FAILED(device->BeginScene())) return finish(0);
        const int ok = (flags & kLayerVideo) ? DrawVideoLayer(layer, flags, layers.GetUserData2(i),
                                                              0, 0, width, height, direct)
                                             : DrawStaticLayer(layer, flags);
        if (nplat::FAILED(device->EndScene()) || !ok) return finish(0);
    }
    return finish(1);
}

int Impl::Render() { return RenderScene(backBuffer, stat.nWidth, stat.nHeight); }

int Impl::DoPresent(int countAsFrame) {
    if (presentLock > 0) {
        ++stat.uPresentDeferred;
        presentPending = true;
        return kDeferred;
    }
    nplat::RECT client{};
    if (!nplat::GetClientRect(window, &client)) return Fail();
    const int w = client.right - client.left, h = client.bottom - client.top;
    if (w <= 0 || h <= 0) {
        ++stat.uPresentSkipped;
        return kOccluded;
    }
    if (!(active.uFlags & kCfgFixedSize)) {
        if (w != stat.nWidth || h != stat.nHeight) {
            stat.uStatus |= kStatusSizeDiffers;
            return kSizeDiffers;
        }
        stat.uStatus &= ~kStatusSizeDiffers;
    }
    if (!Render()) return Fail();
    device->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, 0);
    device->SetRenderState(nplat::D3DRS_CULLMODE, nplat::D3DCULL_CCW);
    const nplat::HRESULT hr = device->Present(nullptr, nullptr, nullptr, nullptr);
    uint32_t& counter = countAsFrame ? stat.uPresentedAsFrame : stat.uPresented;
    if (hr == nplat::S_OK) return ++counter, kOk;
    if (hr == nplat::S_PRESENT_OCCLUDED) return ++stat.uPresentSkipped, kOccluded;
    if (hr == nplat::S_PRESENT_MODE_CHANGED) return ++counter, kModeChanged;
    return Fail();
}

// ---- host draws into static layers ----

int CNHVideoRender::DrawLayerBitmap(unsigned layerId, unsigned bitmapId, int count,
                                    DrawLayerBitmapInfoTag* items, int pixelUnits) {
    if (!m_pImpl) return kRefused;
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    if (r.Failed()) return kDeviceFailed;
    int lpos = -1, bpos = -1;
    LayerRecord* layer = r.opened ? r.Layer(layerId, &lpos) : nullptr;
    BitmapRecord* bitmap = r.opened ? r.Bitmap(bitmapId, &bpos) : nullptr;
    if (!layer || !bitmap || (FlagsAt(r.layers, lpos) & kLayerVideo) || count < 0 ||
        (count > 0 && !items)) {
        return kRefused;
    }
    const unsigned lflags = FlagsAt(r.layers, lpos) | (pixelUnits ? kLayerPixels : 0);
    const unsigned bflags = FlagsAt(r.bitmaps, bpos);
    nplat::IDirect3DSurface9* surface = nullptr;
    if (nplat::FAILED(layer->texture->GetSurfaceLevel(0, &surface))) return r.Fail();
    nplat::IDirect3DDevice9Ex* d = r.device;
    const PictureTextures& pic = bitmap->picture;
    const bool yuv = pic.layout == TextureLayout::kYuv;
    ShaderChoice s;
    s.shader = (bflags & 0xC0) == 0 ? (yuv ? 21 : 12) : (yuv ? 22 : 13);
    s.c0[0] = static_cast<float>(bitmap->alpha) / 255.0f;
    d->SetTexture(0, pic.tex[0]);
    d->SetSamplerState(0, nplat::D3DSAMP_MAGFILTER, nplat::D3DTEXF_LINEAR);
    d->SetSamplerState(0, nplat::D3DSAMP_MINFILTER, nplat::D3DTEXF_LINEAR);
    d->SetSamplerState(0, nplat::D3DSAMP_ADDRESSU, bitmap->addressU);
    d->SetSamplerState(0, nplat::D3DSAMP_ADDRESSV, bitmap->addressV);
    d->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, (bflags & 0x40) ? 1 : 0);
    d->SetRenderState(nplat::D3DRS_CULLMODE, nplat::D3DCULL_CCW);
    bool ok = r.SetShader(1) && r.SetShader(s.shader) && SetConstants(d, s) &&
              nplat::SUCCEEDED(d->SetRenderTarget(0, surface)) && nplat::SUCCEEDED(d->BeginScene());
    const bool inScene = ok;
    const float u0 = pic.set0.u[kTopLeft], v0 = pic.set0.v[kTopLeft];
    const float du = (pic.set0.u[kBottomRight] - u0) / static_cast<float>(pic.width);
    const float dv = (pic.set0.v[kBottomRight] - v0) / static_cast<float>(pic.height);
    for (int i = 0; i < count && ok; ++i) {
        const DrawLayerBitmapInfoTag& it = items[i];
        PixelRect dest{r.PixelsX(it.fDestX, lflags), r.PixelsY(it.fDestY, lflags),
                       r.PixelsX(it.fDestWidth, lflags), r.PixelsY(it.fDestHeight, lflags)};
        if (dest.w == 0) dest.w = it.nSourceWidth;
        if (dest.h == 0) dest.h = it.nSourceHeight;
        const MappingPlacement place =
            PlaceMapping({0, 0, 1, 1}, dest, layer->pixelWidth, layer->pixelHeight);
        if (place.empty) continue;
        SetMappingViewport(d, place, 0);
        TexQuad tex;
        const float left = u0 + static_cast<float>(it.nSourceX) * du;
        const float right = u0 + static_cast<float>(it.nSourceX + it.nSourceWidth) * du;
        const float top = v0 + static_cast<float>(it.nSourceY) * dv;
        const float bottom = v0 + static_cast<float>(it.nSourceY + it.nSourceHeight) * dv;
        tex = OrientTexCoords(left, top, right, bottom, 0);
        ok = r.DrawQuad(1, place.base, &tex);
    }
    if (inScene && nplat::FAILED(d->EndScene())) ok = false;
    d->SetTexture(0, nullptr);
    d->SetRenderTarget(0, r.backBuffer);
    surface->Release();
    d->SetRenderState(nplat::D3DRS_ALPHABLENDENABLE, 0);
    return ok ? kOk : r.Fail();
}

int CNHVideoRender::DrawLayerVideo(unsigned targetLayerId, unsigned videoLayerId, int x, int y) {
    if (!m_pImpl) return kRefused;
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    if (r.Failed()) return kDeviceFailed;
    int tpos = -1, vpos = -1;
    LayerRecord* dst = r.opened ? r.Layer(targetLayerId, &tpos) : nullptr;
    LayerRecord* src = r.opened ? r.Layer(videoLayerId, &vpos) : nullptr;
    if (!dst || !src || (FlagsAt(r.layers, tpos) & kLayerVideo)) return kRefused;
    const unsigned flags = FlagsAt(r.layers, vpos);
    if ((flags & (kLayerVideo | kLayerIntoStatic)) != (kLayerVideo | kLayerIntoStatic)) {
        return kRefused;
    }
    int videoPos = -1;
    VideoRecord* video = src->videoId != kNoId ? r.Video(src->videoId, &videoPos) : nullptr;
    if (video && video->picture && video->textures.layout == TextureLayout::kNone &&
        !r.UploadVideo(video, FlagsAt(r.videos, videoPos), src->videoId)) {
        return r.Fail();
    }
    nplat::IDirect3DSurface9* surface = nullptr;
    if (nplat::FAILED(dst->texture->GetSurfaceLevel(0, &surface))) return r.Fail();
    r.target = surface;
    bool ok = nplat::SUCCEEDED(r.device->SetRenderTarget(0, surface)) &&
              nplat::SUCCEEDED(r.device->BeginScene());
    if (ok) {
        ok = r.DrawVideoLayer(*src, flags, videoLayerId, x, y, dst->pixelWidth, dst->pixelHeight,
                              false);
        ok = nplat::SUCCEEDED(r.device->EndScene()) && ok;
    }
    r.device->SetRenderTarget(0, r.backBuffer);
    r.target = r.backBuffer;
    surface->Release();
    return ok ? kOk : r.Fail();
}
