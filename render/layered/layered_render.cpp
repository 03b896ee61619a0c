// CNHVideoRender, the scene model: lifecycle, configuration and statistics,
// and the four lists (bitmaps, videos, subtitles, layers) with their
// mappings and subtitle slots. Uploads and drawing live in the sibling files.
//
// Every public operation takes the render's lock for its whole run. A device
// error marks the render failed (status 0x1) and every scene operation then
// answers 3 until Close and a new Open. Arguments that would index past the
// four subtitle slots or pieces are refused before anything changes. Nothing
// here throws: list insertions that run out of memory are caught and freed.
#include <cstring>
#include <mutex>

#include "ncodecbase/helper.h"
#include "platform/kernel/dynamic_library.h"
#include "platform/kernel/heap.h"
#include "platform/kernel/sync.h"
#include "platform/window/window.h"
#include "render/layered/layered_render_internal.h"
#include "render/layered/os_version.h"

using namespace ncb::layered;
using Impl = CNHVideoRender::Impl;

namespace {

constexpr unsigned kNoId = 0xFFFFFFFFu;

template <typename T>
T* RecordAt(const CNDataList& list, int pos) {
    T* const* slot = static_cast<T* const*>(list.GetBinaryData(pos));
    return slot ? *slot : nullptr;
}

template <typename T>
T* FindRecord(const CNDataList& list, unsigned id, int* pos) {
    const int p = list.FindByUserData2(0, static_cast<int32_t>(id), -1);
    if (pos) *pos = p;
    return p < 0 ? nullptr : RecordAt<T>(list, p);
}

unsigned FlagsAt(const CNDataList& list, int pos) {
    return static_cast<uint16_t>(list.GetUserData1(pos));
}

// Scene operations: a render that is not open refuses, a failed one answers 3.
template <typename F>
int Scene(Impl* impl, F&& f) {
    if (!impl) return kRefused;
    std::lock_guard<CNLock> hold(impl->lock);
    if (impl->Failed()) return kDeviceFailed;
    if (!impl->opened) return kRefused;
    return f(*impl);
}

bool UsablePiece(const CNSubTitleDecoder::OutputAddiInfoTag& info, CNCodecBuffer* data) {
    const int sub = info.tFormat.nCodecSubType;
    return data && data->GetDataSize() > 0 && info.nSizeDenominator != 0 &&
           static_cast<double>(info.nSizeNumerator) / info.nSizeDenominator > 0.0 &&
           (sub == VIDEO_FORMAT_AI44 || sub == VIDEO_FORMAT_AYUV || sub == VIDEO_FORMAT_RGB32);
}

}  // namespace

// ---- records ----

void PictureTextures::Release() {
    for (auto*& t : tex) {
        if (t) t->Release();
        t = nullptr;
    }
    layout = TextureLayout::kNone;
    width = height = 0;
}

void VideoRecord::ReleasePicture() {
    if (picture) picture->Release();
    picture = nullptr;
    textures.Release();
}

void SubTitleRecord::ReleasePieces() {
    for (auto& p : piece) p.Release();
    pieceCount = 0;
}

// ---- Impl helpers ----

int Impl::Fail() {
    stat.uStatus |= kStatusFailed;
    return kDeviceFailed;
}

int Impl::Identify(int* lvl) const {
    CNHelper::CPUInfoTag cpu{};
    if (!CNHelper::GetCpuInfo(&cpu)) return kNoMemory;
    if (!cpu.nSSE2) return kNoSse2;
    *lvl = (cpu.nSSSE3 ? kCfgSsse3 : 0) | (cpu.nSSE41 ? kCfgSse41 : 0);
    return kOk;
}

int Impl::PixelsX(float value, unsigned layerFlags) const {
    if (layerFlags & kLayerPixels) return static_cast<int>(value);
    return static_cast<int>(value * static_cast<float>(stat.nWidth));
}

int Impl::PixelsY(float value, unsigned layerFlags) const {
    if (layerFlags & kLayerPixels) return static_cast<int>(value);
    return static_cast<int>(value * static_cast<float>(stat.nHeight));
}

void Impl::LayerPixels(LayerRecord* layer, unsigned flags) const {
    const int w = PixelsX(layer->width, flags), h = PixelsY(layer->height, flags);
    layer->pixelWidth = w < 1 ? 1 : w;
    layer->pixelHeight = h < 1 ? 1 : h;
    layer->pixelMargin[0] = PixelsX(layer->margin[0], flags);
    layer->pixelMargin[1] = PixelsX(layer->margin[1], flags);
    for (int i = 2; i < 6; ++i) layer->pixelMargin[i] = PixelsY(layer->margin[i], flags);
    if (layer->pixelMargin[5] < 1) layer->pixelMargin[5] = 1;
}

void Impl::MappingPixels(const LayerRecord& layer, unsigned flags, MappingSlot* m) const {
    (void)layer;
    const auto& g = m->given;
    m->source = {PixelsX(g.fSourceX, flags), PixelsY(g.fSourceY, flags),
                 PixelsX(g.fSourceWidth, flags), PixelsY(g.fSourceHeight, flags)};
    const unsigned destFlags =
        ((active.uFlags & kCfgSourcePixels) || (g.nFlags & 0x8)) ? kLayerPixels : 0;
    m->dest = {PixelsX(g.fDestX, destFlags), PixelsY(g.fDestY, destFlags),
               PixelsX(g.fDestWidth, destFlags), PixelsY(g.fDestHeight, destFlags)};
    if (m->dest.w == 0) m->dest.w = m->source.w;
    if (m->dest.h == 0) m->dest.h = m->source.h;
}

Impl::BitmapRecord* Impl::Bitmap(unsigned id, int* pos) const {
    return FindRecord<BitmapRecord>(bitmaps, id, pos);
}
Impl::VideoRecord* Impl::Video(unsigned id, int* pos) const {
    return FindRecord<VideoRecord>(videos, id, pos);
}
Impl::SubTitleRecord* Impl::SubTitle(unsigned id, int* pos) const {
    return FindRecord<SubTitleRecord>(subtitles, id, pos);
}
Impl::LayerRecord* Impl::Layer(unsigned id, int* pos) const {
    return FindRecord<LayerRecord>(layers, id, pos);
}

int Impl::Insert(CNDataList* list, void* record, unsigned id, unsigned flags, int position) {
    try {
        const int pos = list->InsertBinary("", &record, sizeof(record), position, 0);
        list->SetUserData1(pos, static_cast<int16_t>(flags));
        list->SetUserData2(pos, static_cast<int32_t>(id));
        return pos;
    } catch (CNException* e) {
        e->FreeMe();
        return -1;
    }
}

void Impl::AdvanceNextId(CNDataList* list, uint32_t* next) const {
    while (list->FindByUserData2(0, static_cast<int32_t>(*next), -1) >= 0) ++*next;
}

void Impl::RetreatNextId(uint32_t removed, uint32_t* next) const {
    if (removed < *next) *next = removed;
}

void Impl::ReleaseAll() {
    for (int i = 0; i < bitmaps.GetParameterCount(); ++i) {
        BitmapRecord* b = RecordAt<BitmapRecord>(bitmaps, i);
        b->picture.Release();
        nplat::HeapDelete(b);
    }
    for (int i = 0; i < videos.GetParameterCount(); ++i) {
        VideoRecord* v = RecordAt<VideoRecord>(videos, i);
        v->ReleasePicture();
        v->mask.Release();
        if (v->processor) v->processor->Release();
        nplat::HeapDelete(v);
    }
    for (int i = 0; i < subtitles.GetParameterCount(); ++i) {
        SubTitleRecord* s = RecordAt<SubTitleRecord>(subtitles, i);
        s->ReleasePieces();
        nplat::HeapDelete(s);
    }
    for (int i = 0; i < layers.GetParameterCount(); ++i) {
        LayerRecord* l = RecordAt<LayerRecord>(layers, i);
        if (l->texture) l->texture->Release();
        nplat::HeapFree(l->mappings);
        nplat::HeapDelete(l);
    }
    bitmaps.RemoveAll(0);
    videos.RemoveAll(0);
    subtitles.RemoveAll(0);
    layers.RemoveAll(0);
}

void Impl::ReleaseDevice() {
    FreeShaderResource();
    if (service) service->Release();
    if (backBuffer) backBuffer->Release();
    if (device) device->Release();
    if (d3d) d3d->Release();
    service = nullptr, backBuffer = nullptr, device = nullptr, d3d = nullptr;
    target = nullptr;
    stat.pDevice = nullptr;
}

int Impl::ResizeStaticTexture(LayerRecord* layer, int width, int height, bool keep,
                              nplat::D3DTEXTUREFILTERTYPE filter) {
    nplat::IDirect3DTexture9* fresh = nullptr;
    if (nplat::FAILED(device->CreateTexture(width, height, 1, nplat::D3DUSAGE_RENDERTARGET,
                                            nplat::D3DFMT_A8R8G8B8, nplat::D3DPOOL_DEFAULT, &fresh,
                                            nullptr))) {
        return 0;
    }
    nplat::IDirect3DSurface9* dst = nullptr;
    bool ok = nplat::SUCCEEDED(fresh->GetSurfaceLevel(0, &dst)) &&
              nplat::SUCCEEDED(device->ColorFill(dst, nullptr, layer->colour));
    if (ok && keep && layer->texture) {
        nplat::IDirect3DSurface9* src = nullptr;
        ok = nplat::SUCCEEDED(layer->texture->GetSurfaceLevel(0, &src));
        if (ok) {
            nplat::RECT sr{0, 0, layer->pixelWidth, layer->pixelHeight};
            nplat::RECT dr{0, 0, width, height};
            if (filter == nplat::D3DTEXF_POINT) {
                // Keep the overlapping top-left part as it was.
                sr.right = dr.right = width < layer->pixelWidth ? width : layer->pixelWidth;
                sr.bottom = dr.bottom = height < layer->pixelHeight ? height : layer->pixelHeight;
            }
            ok = nplat::SUCCEEDED(device->StretchRect(src, &sr, dst, &dr, filter));
            src->Release();
        }
    }
    if (dst) dst->Release();
    if (!ok) {
        fresh->Release();
        return 0;
    }
    if (layer->texture) layer->texture->Release();
    layer->texture = fresh;
    return 1;
}

// ---- lifecycle ----

CNHVideoRender::CNHVideoRender() = default;

CNHVideoRender::~CNHVideoRender() {
    if (m_pImpl) {
        Uninit();
        nplat::HeapDelete(m_pImpl);
    }
}

int CNHVideoRender::Init() {
    if (!m_pImpl) {
        m_pImpl = nplat::HeapNew<Impl>();
        if (!m_pImpl) return kNoMemory;
    }
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    int cpu = 0;
    if (const int code = r.Identify(&cpu)) return code;
    OSVERSIONINFOEXA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExA(&version) || version.dwMajorVersion < 6) return kOldSystem;
    if (version.dwMajorVersion == 6 && version.dwMinorVersion < 2) {
        r.osLevel = version.dwMinorVersion == 0 ? 1 : 2;
    } else {
        OSVERSIONINFOEXA probe{};
        probe.dwOSVersionInfoSize = sizeof(probe);
        probe.dwMajorVersion = 10;
        if (VerifyVersionInfoA(&probe, VER_MAJORVERSION)) {
            r.osLevel = 5;
        } else {
            probe.dwMajorVersion = 6, probe.dwMinorVersion = 3;
            r.osLevel = VerifyVersionInfoA(&probe, VER_MAJORVERSION | VER_MINORVERSION) ? 4 : 3;
        }
    }
    nplat::HMODULE d3d9 = nplat::LoadLibrary("d3d9.dll");
    const bool hasEntry = d3d9 && nplat::GetProcAddress(d3d9, "Direct3DCreate9Ex");
    if (d3d9) nplat::FreeLibrary(d3d9);
    nplat::HMODULE dxva2 = hasEntry ? nplat::LoadLibrary("dxva2.dll") : nullptr;
    if (!dxva2) return kNoModules;
    nplat::FreeLibrary(dxva2);
    r.pending = ConfigInfoTag{24, 0x61u | static_cast<uint32_t>(cpu), 0, 0, 0xFF000000u, 2};
    r.inited = true;
    return kOk;
}

int CNHVideoRender::Uninit() {
    if (!m_pImpl) return kOk;
    std::lock_guard<CNLock> hold(m_pImpl->lock);
    if (m_pImpl->opened) Close();
    m_pImpl->inited = false;
    return kOk;
}

int CNHVideoRender::GetConfig(ConfigInfoTag* config) {
    if (!m_pImpl || !config) return kRefused;
    std::lock_guard<CNLock> hold(m_pImpl->lock);
    *config = m_pImpl->pending;
    return kOk;
}

int CNHVideoRender::SetConfig(const ConfigInfoTag* config) {
    if (!m_pImpl || !config) return kRefused;
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    int cpu = 0;
    if (const int code = r.Identify(&cpu)) return code == kNoSse2 ? kNoMemory : code;
    r.pending = *config;
    r.pending.uFlags |= kCfgAlways;
    r.pending.uFlags &= ~((kCfgSsse3 | kCfgSse41) & ~static_cast<uint32_t>(cpu));
    if (r.opened) {
        r.active.uBackgroundColor = r.pending.uBackgroundColor;
    }
    return kOk;
}

int CNHVideoRender::Open(nplat::HWND window) {
    if (!m_pImpl) return kDeviceFailed;
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    if (!r.inited || r.opened) return r.opened ? kRefused : kDeviceFailed;
    r.active = r.pending;
    r.level = (r.active.uFlags & kCfgSse41) ? 2 : (r.active.uFlags & kCfgSsse3) ? 1 : 0;
    r.stat = StatInfoTag{};
    r.stat.uSize = sizeof(StatInfoTag);
    r.stat.uTick = nplat::GetTickCount();
    r.presentLock = 0;
    r.presentPending = false;
    r.window = window;

    const bool flipEx = r.osLevel >= 2 && (r.active.uFlags & kCfgFlipEx);
    if (nplat::FAILED(nplat::Direct3DCreate9Ex(nplat::D3D_SDK_VERSION, &r.d3d))) {
        r.d3d = nullptr;
        return kDeviceFailed;
    }
    auto& p = r.params;
    p = nplat::D3DPRESENT_PARAMETERS{};
    const bool fixed = (r.active.uFlags & kCfgFixedSize) != 0;
    p.BackBufferWidth = fixed ? static_cast<nplat::UINT>(r.active.nWidth) : 0;
    p.BackBufferHeight = fixed ? static_cast<nplat::UINT>(r.active.nHeight) : 0;
    p.BackBufferFormat = nplat::D3DFMT_X8R8G8B8;
    p.BackBufferCount = flipEx ? static_cast<nplat::UINT>(r.active.nBackBufferCount) : 1;
    p.MultiSampleType = nplat::D3DMULTISAMPLE_NONE;
    p.SwapEffect = flipEx ? nplat::D3DSWAPEFFECT_FLIPEX : nplat::D3DSWAPEFFECT_DISCARD;
    p.hDeviceWindow = window;
    p.Windowed = 1;
    p.EnableAutoDepthStencil = 0;
    p.AutoDepthStencilFormat = nplat::D3DFMT_D24S8;
    p.Flags = nplat::D3DPRESENTFLAG_VIDEO;
    p.PresentationInterval = nplat::D3DPRESENT_INTERVAL_ONE;
    auto create = [&r, window]() {
        return r.d3d->CreateDeviceEx(nplat::D3DADAPTER_DEFAULT, nplat::D3DDEVTYPE_HAL, window,
                                     nplat::D3DCREATE_MIXED_VERTEXPROCESSING, &r.params, nullptr,
                                     &r.device);
    };
    nplat::HRESULT hr = create();
    bool usingFlipEx = flipEx;
    if (nplat::FAILED(hr) && flipEx) {
        p.BackBufferCount = 1;
        p.SwapEffect = nplat::D3DSWAPEFFECT_DISCARD;
        usingFlipEx = false;
        hr = create();
    }
    auto fail = [&r]() {
        r.ReleaseDevice();
        return kDeviceFailed;
    };
    if (nplat::FAILED(hr)) {
        r.device = nullptr;
        return fail();
    }
    if (usingFlipEx) r.stat.uStatus |= kStatusFlipEx;
    r.stat.pDevice = static_cast<nplat::IDirect3DDevice9*>(r.device);
    if (nplat::FAILED(
            r.device->GetBackBuffer(0, 0, nplat::D3DBACKBUFFER_TYPE_MONO, &r.backBuffer))) {
        r.backBuffer = nullptr;
        return fail();
    }
    nplat::D3DSURFACE_DESC desc{};
    r.backBuffer->GetDesc(&desc);
    r.stat.nWidth = static_cast<int32_t>(desc.Width);
    r.stat.nHeight = static_cast<int32_t>(desc.Height);
    r.target = r.backBuffer;
    r.device->SetRenderState(nplat::D3DRS_BLENDOP, nplat::D3DBLENDOP_ADD);
    r.device->SetRenderState(nplat::D3DRS_SRCBLEND, nplat::D3DBLEND_SRCALPHA);
    r.device->SetRenderState(nplat::D3DRS_DESTBLEND, nplat::D3DBLEND_INVSRCALPHA);

    static constexpr struct {
        nplat::DWORD usage;
        nplat::D3DFORMAT format;
    } kChecks[12] = {
        {nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_X8R8G8B8},
        {nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_A8R8G8B8},
        {0, nplat::D3DFMT_X8R8G8B8},
        {0, nplat::D3DFMT_A8R8G8B8},
        {0, nplat::D3DFMT_L8},
        {0, nplat::D3DFMT_A8L8},
        {nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_R8G8B8},
        {nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_X1R5G5B5},
        {nplat::D3DUSAGE_RENDERTARGET, nplat::D3DFMT_R5G6B5},
        {0, nplat::D3DFMT_R8G8B8},
        {0, nplat::D3DFMT_X1R5G5B5},
        {0, nplat::D3DFMT_R5G6B5},
    };
    r.support = 0;
    for (int i = 0; i < 12; ++i) {
        if (nplat::SUCCEEDED(r.d3d->CheckDeviceFormat(
                nplat::D3DADAPTER_DEFAULT, nplat::D3DDEVTYPE_HAL, nplat::D3DFMT_X8R8G8B8,
                kChecks[i].usage, nplat::D3DRTYPE_TEXTURE, kChecks[i].format))) {
            r.support |= 1u << i;
        }
    }
    if ((r.support & kSupportRequired) != kSupportRequired) return fail();
    if (r.active.uFlags & kCfgVideoService) {
        void* service = nullptr;
        if (nplat::SUCCEEDED(nplat::DXVA2CreateVideoService(
                r.device, nplat::IID_IDirectXVideoProcessorService, &service))) {
            r.service = static_cast<nplat::IDirectXVideoProcessorService*>(service);
        }
    }
    if (!r.LoadShaderResource()) return fail();
    r.opened = true;
    return kOk;
}

int CNHVideoRender::Close() {
    if (!m_pImpl) return kOk;
    Impl& r = *m_pImpl;
    std::lock_guard<CNLock> hold(r.lock);
    r.ReleaseAll();
    r.ReleaseDevice();
    r.opened = false;
    r.stat.uStatus = 0;
    r.window = nullptr;
    return kOk;
}

int CNHVideoRender::Update() {
    return Scene(m_pImpl, [](Impl& r) {
        if (r.active.uFlags & kCfgFixedSize) return kOk;
        nplat::RECT client{};
        if (!nplat::GetClientRect(r.window, &client)) return r.Fail();
        const int w = client.right - client.left, h = client.bottom - client.top;
        if (w <= 0 || h <= 0) return kOccluded;
        if (w != r.stat.nWidth || h != r.stat.nHeight) {
            r.params.BackBufferWidth = 0;
            r.params.BackBufferHeight = 0;
            if (r.backBuffer) r.backBuffer->Release();
            r.backBuffer = nullptr;
            if (nplat::FAILED(r.device->ResetEx(&r.params, nullptr)) ||
                nplat::FAILED(
                    r.device->GetBackBuffer(0, 0, nplat::D3DBACKBUFFER_TYPE_MONO, &r.backBuffer))) {
                r.backBuffer = nullptr;
                return r.Fail();
            }
            nplat::D3DSURFACE_DESC desc{};
            r.backBuffer->GetDesc(&desc);
            r.stat.nWidth = static_cast<int32_t>(desc.Width);
            r.stat.nHeight = static_cast<int32_t>(desc.Height);
            r.target = r.backBuffer;
        }
        for (int i = 0; i < r.layers.GetParameterCount(); ++i) {
            LayerRecord* layer = RecordAt<LayerRecord>(r.layers, i);
            const unsigned flags = FlagsAt(r.layers, i);
            if (!(flags & kLayerPixels)) {
                const int oldW = layer->pixelWidth, oldH = layer->pixelHeight;
                r.LayerPixels(layer, flags);
                if (!(flags & kLayerVideo) &&
                    (oldW != layer->pixelWidth || oldH != layer->pixelHeight)) {
                    const int newW = layer->pixelWidth, newH = layer->pixelHeight;
                    layer->pixelWidth = oldW, layer->pixelHeight = oldH;
                    const int ok =
                        r.ResizeStaticTexture(layer, newW, newH, true, nplat::D3DTEXF_LINEAR);
                    layer->pixelWidth = newW, layer->pixelHeight = newH;
                    if (!ok) return r.Fail();
                }
            }
            for (int m = 0; m < layer->mappingCount; ++m) {
                r.MappingPixels(*layer, flags, &layer->mappings[m]);
            }
        }
        r.stat.uStatus &= ~kStatusSizeDiffers;
        return kOk;
    });
}

int CNHVideoRender::CheckStatus(int countAsFrame) {
    return Scene(m_pImpl, [countAsFrame](Impl& r) {
        nplat::HRESULT hr = r.device->CheckDeviceState(r.window);
        if (hr == nplat::S_PRESENT_MODE_CHANGED) {
            if (r.backBuffer) r.backBuffer->Release();
            r.backBuffer = nullptr;
            if (nplat::FAILED(r.device->ResetEx(&r.params, nullptr)) ||
                nplat::FAILED(
                    r.device->GetBackBuffer(0, 0, nplat::D3DBACKBUFFER_TYPE_MONO, &r.backBuffer))) {
                r.backBuffer = nullptr;
                return r.Fail();
            }
            r.target = r.backBuffer;
            hr = r.device->CheckDeviceState(r.window);
        }
        uint32_t& counter = countAsFrame ? r.stat.uPresentedAsFrame : r.stat.uPresentSkipped;
        if (hr == nplat::S_OK) return kOk;
        if (hr == nplat::S_PRESENT_OCCLUDED) return ++counter, kOccluded;
        if (hr == nplat::S_PRESENT_MODE_CHANGED) return ++counter, kModeChanged;
        return r.Fail();
    });
}

int CNHVideoRender::GetStatInfo(StatInfoTag* info) {
    if (!m_pImpl || !info) return kRefused;
    std::lock_guard<CNLock> hold(m_pImpl->lock);
    *info = m_pImpl->stat;
    info->uSize = sizeof(StatInfoTag);
    return kOk;
}

int CNHVideoRender::ResetStatInfo() {
    return Scene(m_pImpl, [](Impl& r) {
        r.stat.uTick = nplat::GetTickCount();
        r.stat.uPresented = r.stat.uPresentedAsFrame = r.stat.uPresentSkipped = 0;
        r.stat.uFrameSkipped = r.stat.uPresentDeferred = 0;
        return kOk;
    });
}

// ---- presentation ----

int CNHVideoRender::Present(int countAsFrame) {
    return Scene(m_pImpl, [countAsFrame](Impl& r) { return r.DoPresent(countAsFrame); });
}

int CNHVideoRender::LockPresent() {
    return Scene(m_pImpl, [](Impl& r) { return ++r.presentLock, kOk; });
}

int CNHVideoRender::UnlockPresent(int presentNow) {
    bool present = false;
    const int code = Scene(m_pImpl, [presentNow, &present](Impl& r) {
        if (r.presentLock > 0 && --r.presentLock == 0) {
            present = r.presentPending || presentNow == 1;
            r.presentPending = false;
        }
        return kOk;
    });
    // The lock is released before presenting, as hosts expect.
    if (code == kOk && present) Present(1);
    return code;
}

int CNHVideoRender::SkipPresent() {
    return Scene(m_pImpl, [](Impl& r) { return ++r.stat.uFrameSkipped, kOk; });
}

int CNHVideoRender::PresentToLayer(unsigned layerId) {
    return Scene(m_pImpl, [layerId](Impl& r) {
        int pos = -1;
        LayerRecord* layer = r.Layer(layerId, &pos);
        if (!layer) return kRefused;
        const unsigned flags = FlagsAt(r.layers, pos);
        if ((flags & (kLayerVideo | kLayerVisible)) || layer->pixelWidth != r.stat.nWidth ||
            layer->pixelHeight != r.stat.nHeight) {
            return kRefused;
        }
        nplat::IDirect3DSurface9* surface = nullptr;
        if (nplat::FAILED(layer->texture->GetSurfaceLevel(0, &surface))) return r.Fail();
        const int ok = r.RenderScene(surface, layer->pixelWidth, layer->pixelHeight);
        surface->Release();
        return ok ? kOk : r.Fail();
    });
}

// ---- bitmaps ----

int CNHVideoRender::AddBitmap(unsigned id, unsigned flags, unsigned alpha,
                              VideoFormatInfoTag* format, CNCodecBuffer* data) {
    return Scene(m_pImpl, [&](Impl& r) {
        if (!format || !data) return kRefused;
        BitmapRecord* b = nplat::HeapNew<BitmapRecord>();
        if (!b) return kNoMemory;
        b->format = *format;
        const unsigned source = flags & 0xC0;
        b->alpha = source == 0x80 ? (alpha & 0xFF) : 255;
        auto mode = [](unsigned f, unsigned wrap, unsigned mirror) {
            return (f & wrap)     ? nplat::D3DTADDRESS_WRAP
                   : (f & mirror) ? nplat::D3DTADDRESS_MIRROR
                                  : nplat::D3DTADDRESS_CLAMP;
        };
        b->addressU = mode(flags, 0x1, 0x2);
        b->addressV = mode(flags, 0x10, 0x20);
        const int pos = r.Insert(&r.bitmaps, b, id, flags, -1);
        if (pos < 0) {
            nplat::HeapDelete(b);
            return kNoMemory;
        }
        if (!r.LoadTextureOne(data, format, source == 0, 0, &b->picture)) {
            r.bitmaps.Remove(pos);
            b->picture.Release();
            nplat::HeapDelete(b);
            return r.Fail();
        }
        if (id == r.stat.uNextBitmapId) r.AdvanceNextId(&r.bitmaps, &r.stat.uNextBitmapId);
        return kOk;
    });
}

int CNHVideoRender::RemoveBitmap(unsigned id) {
    return Scene(m_pImpl, [id](Impl& r) {
        int pos = -1;
        BitmapRecord* b = r.Bitmap(id, &pos);
        if (!b) return kRefused;
        b->picture.Release();
        nplat::HeapDelete(b);
        r.bitmaps.Remove(pos);
        r.RetreatNextId(id, &r.stat.uNextBitmapId);
        return kOk;
    });
}

int CNHVideoRender::GetBitmapInfo(unsigned id, unsigned* flags, unsigned* alpha,
                                  VideoFormatInfoTag* format) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        BitmapRecord* b = r.Bitmap(id, &pos);
        if (!b) return kRefused;
        if (flags) *flags = FlagsAt(r.bitmaps, pos);
        if (alpha) *alpha = b->alpha;
        if (format) *format = b->format;
        return kOk;
    });
}

// ---- videos ----

int Impl::UploadMask(VideoRecord* video, VideoFormat* format, CNCodecBuffer* data,
                     bool asUploaded) {
    PictureTextures mask;
    if (!format || !data || !LoadTextureOne(data, format, false, 0, &mask)) return 0;
    if (!asUploaded) {
        // Pull the far edges in by a texel so the mask never samples past its
        // last row or column.
        for (int c = 0; c < 4; ++c) {
            if (mask.set0.u[c] > 0.5f) mask.set0.u[c] -= 2.0f * mask.set0.u[kTopLeft];
            if (mask.set0.v[c] > 0.5f) mask.set0.v[c] -= 2.0f * mask.set0.v[kTopLeft];
        }
    }
    video->mask.Release();
    video->mask = mask;
    video->maskFormat = *format;
    return 1;
}

int CNHVideoRender::AddVideo(unsigned id, unsigned flags, D3DFORMAT format, unsigned alpha,
                             VideoFormatInfoTag* maskFormat, CNCodecBuffer* maskData) {
    return Scene(m_pImpl, [&](Impl& r) {
        VideoRecord* v = nplat::HeapNew<VideoRecord>();
        if (!v) return kNoMemory;
        v->d3dFormat = format;
        v->format.nCodecType = -1;
        v->alpha = (flags & kVideoAlphaMask) == kAlphaConstant ? (alpha & 0xFF) : 256;
        if ((flags & kVideoAlphaMask) == kAlphaMask &&
            !r.UploadMask(v, maskFormat, maskData, (flags & kVideoMaskAsUploaded) != 0)) {
            nplat::HeapDelete(v);
            return r.Fail();
        }
        const int pos = r.Insert(&r.videos, v, id, flags, -1);
        if (pos < 0) {
            v->mask.Release();
            nplat::HeapDelete(v);
            return kNoMemory;
        }
        if ((flags & kVideoHardware) && r.service) r.OpenVideoProcessor(v);
        if (id == r.stat.uNextVideoId) r.AdvanceNextId(&r.videos, &r.stat.uNextVideoId);
        return kOk;
    });
}

int CNHVideoRender::RemoveVideo(unsigned id) {
    return Scene(m_pImpl, [id](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v || v->layerCount > 0) return kRefused;
        v->ReleasePicture();
        v->mask.Release();
        if (v->processor) v->processor->Release();
        nplat::HeapDelete(v);
        r.videos.Remove(pos);
        r.RetreatNextId(id, &r.stat.uNextVideoId);
        return kOk;
    });
}

int Impl::UploadVideo(VideoRecord* video, unsigned flags, unsigned id) {
    int fieldOrder = 0;
    if (flags & 0xC0) {
        fieldOrder = (flags & 0x40) ? 1 : 2;
    } else if (video->picture && (video->picture->GetBufferFlag() & 0x800)) {
        fieldOrder = 1;
    }
    if (flags & kVideoHardware) return LoadHardwareVideoData(video, flags, id, fieldOrder);
    return LoadVideoData(video, flags, fieldOrder);
}

int CNHVideoRender::InputVideo(unsigned id, VideoFormatInfoTag* format, CNCodecBuffer* data,
                               int deferUpload) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v) return kRefused;
        if (!format && data && v->format.nCodecType == -1) return kRefused;
        const unsigned flags = FlagsAt(r.videos, pos);
        if (format) {
            v->format = *format;
            v->ReleasePicture();
            v->processingMode = 0;
        }
        const bool usable = data && ((flags & kVideoHardware) ? data->GetHardwareSample() != nullptr
                                                              : data->GetDataSize() > 0);
        if (!data) {
            v->ReleasePicture();
        } else if (usable) {
            data->AddRef();
            v->ReleasePicture();
            v->picture = data;
            if (!deferUpload && !r.UploadVideo(v, flags, id)) return r.Fail();
        }
        return kOk;
    });
}

int CNHVideoRender::ConfigVideo(unsigned id, unsigned* flags, unsigned* alpha, unsigned* tintU,
                                unsigned* tintV, int* lumaOffset, int* uOffset, int* vOffset,
                                int* lumaGain, int* uGain, int* vGain) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v) return kRefused;
        unsigned current = FlagsAt(r.videos, pos);
        if (flags) {
            current = (current & 0xF) | (*flags & ~0xFu);
            r.videos.SetUserData1(pos, static_cast<int16_t>(current));
            v->processingMode = 0;
        }
        if (alpha && (current & kVideoAlphaMask) == kAlphaConstant) v->alpha = *alpha & 0xFF;
        const int* words[8] = {reinterpret_cast<const int*>(tintU),
                               reinterpret_cast<const int*>(tintV),
                               lumaOffset,
                               uOffset,
                               vOffset,
                               lumaGain,
                               uGain,
                               vGain};
        for (int i = 0; i < 8; ++i) {
            if (words[i]) v->adjust[i] = *words[i];
        }
        return kOk;
    });
}

int CNHVideoRender::GetVideoInfo(unsigned id, int* layerCount, unsigned* flags, D3DFORMAT* format,
                                 unsigned* alpha, unsigned* tintU, unsigned* tintV, int* lumaOffset,
                                 int* uOffset, int* vOffset, int* lumaGain, int* uGain, int* vGain,
                                 int* hasPicture) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v) return kRefused;
        if (layerCount) *layerCount = v->layerCount;
        if (flags) *flags = FlagsAt(r.videos, pos);
        if (format) *format = v->d3dFormat;
        if (alpha) *alpha = v->alpha;
        if (tintU) *tintU = static_cast<unsigned>(v->adjust[0]);
        if (tintV) *tintV = static_cast<unsigned>(v->adjust[1]);
        int* outs[6] = {lumaOffset, uOffset, vOffset, lumaGain, uGain, vGain};
        for (int i = 0; i < 6; ++i) {
            if (outs[i]) *outs[i] = v->adjust[2 + i];
        }
        if (hasPicture) {
            *hasPicture = v->picture || v->textures.layout != TextureLayout::kNone;
        }
        return kOk;
    });
}

int CNHVideoRender::SetVideoAlphaChannel(unsigned id, VideoFormatInfoTag* maskFormat,
                                         CNCodecBuffer* maskData) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v) return kRefused;
        const unsigned flags = FlagsAt(r.videos, pos);
        if ((flags & kVideoAlphaMask) != kAlphaOpaque || !maskFormat || !maskData) {
            return kRefused;
        }
        if (!r.UploadMask(v, maskFormat, maskData, (flags & kVideoMaskAsUploaded) != 0)) {
            return r.Fail();
        }
        r.videos.SetUserData1(pos, static_cast<int16_t>((flags & ~kVideoAlphaMask) | kAlphaMask));
        v->processingMode = 0;
        return kOk;
    });
}

int CNHVideoRender::ClearVideoAlphaChannel(unsigned id) {
    return Scene(m_pImpl, [id](Impl& r) {
        int pos = -1;
        VideoRecord* v = r.Video(id, &pos);
        if (!v) return kRefused;
        const unsigned flags = FlagsAt(r.videos, pos);
        if ((flags & kVideoAlphaMask) != kAlphaMask) return kRefused;
        v->mask.Release();
        r.videos.SetUserData1(pos, static_cast<int16_t>((flags & ~kVideoAlphaMask) | kAlphaOpaque));
        v->processingMode = 0;
        return kOk;
    });
}

// ---- subtitles ----

int CNHVideoRender::AddSubTitle(unsigned id, unsigned flags) {
    return Scene(m_pImpl, [id, flags](Impl& r) {
        SubTitleRecord* s = nplat::HeapNew<SubTitleRecord>();
        if (!s) return kNoMemory;
        s->format.nCodecType = -1;
        if (r.Insert(&r.subtitles, s, id, flags, -1) < 0) {
            nplat::HeapDelete(s);
            return kNoMemory;
        }
        if (id == r.stat.uNextSubTitleId) r.AdvanceNextId(&r.subtitles, &r.stat.uNextSubTitleId);
        return kOk;
    });
}

int CNHVideoRender::RemoveSubTitle(unsigned id) {
    return Scene(m_pImpl, [id](Impl& r) {
        int pos = -1;
        SubTitleRecord* s = r.SubTitle(id, &pos);
        if (!s || s->slotCount > 0) return kRefused;
        s->ReleasePieces();
        nplat::HeapDelete(s);
        r.subtitles.Remove(pos);
        r.RetreatNextId(id, &r.stat.uNextSubTitleId);
        return kOk;
    });
}

int CNHVideoRender::InputSubTitle(unsigned id, SubTitleFormatInfoTag* format,
                                  OutputAddiInfoTag* info, CNCodecBuffer* data) {
    if (info && data) return InputSubTitleMulti(id, format, 1, info, &data);
    return InputSubTitleMulti(id, format, 0, nullptr, nullptr);
}

int CNHVideoRender::InputSubTitleMulti(unsigned id, SubTitleFormatInfoTag* format, int count,
                                       OutputAddiInfoTag* infos, CNCodecBuffer** datas) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        SubTitleRecord* s = r.SubTitle(id, &pos);
        if (!s || count < 0 || (count > 0 && (!infos || !datas))) return kRefused;
        const bool text = FlagsAt(r.subtitles, pos) & 0x1;
        if (!text && count >= 2) return kRefused;
        if (!format && count > 0 && s->format.nCodecType == -1) return kRefused;
        int usable = 0;
        for (int i = 0; i < count; ++i) usable += UsablePiece(infos[i], datas[i]);
        if (usable > 4) return kRefused;
        if (format) s->format = *format;
        s->ReleasePieces();
        for (int i = 0; i < count; ++i) {
            if (!UsablePiece(infos[i], datas[i])) continue;
            const int n = s->pieceCount++;
            s->info[n] = infos[i];
            if (!r.LoadTextureOne(datas[i], &s->info[n].tFormat, true, 0, &s->piece[n])) {
                return r.Fail();
            }
        }
        return kOk;
    });
}

int CNHVideoRender::GetSubTitleInfo(unsigned id, int* slotCount, unsigned* flags, int* heightCount,
                                    int* heights, int* pieceCount) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        SubTitleRecord* s = r.SubTitle(id, &pos);
        if (!s) return kRefused;
        const unsigned f = FlagsAt(r.subtitles, pos);
        if (slotCount) *slotCount = s->slotCount;
        if (flags) *flags = f;
        if (pieceCount) *pieceCount = s->pieceCount;
        if (heightCount && heights && (f & 0x1)) {
            int n = 0;
            for (int i = 0; i < r.layers.GetParameterCount() && n < 4; ++i) {
                const LayerRecord* l = RecordAt<LayerRecord>(r.layers, i);
                if (!(FlagsAt(r.layers, i) & kLayerVideo)) continue;
                bool shows = false;
                for (unsigned slot : l->textSlot) shows |= slot == id;
                if (!shows) continue;
                bool seen = false;
                for (int k = 0; k < n; ++k) seen |= heights[k] == l->pixelMargin[5];
                if (!seen) heights[n++] = l->pixelMargin[5];
            }
            *heightCount = n;
        }
        return kOk;
    });
}

// ---- layers ----

int CNHVideoRender::AddLayer(unsigned id, unsigned flags, unsigned long colour, float width,
                             float height, unsigned videoId) {
    return Scene(m_pImpl, [&](Impl& r) {
        VideoRecord* video = nullptr;
        if (videoId != kNoId) {
            video = r.Video(videoId);
            if (!video) return kRefused;
        }
        int position = r.layers.GetParameterCount();
        for (int i = 0; i < r.layers.GetParameterCount(); ++i) {
            if (static_cast<uint32_t>(r.layers.GetUserData2(i)) > id) {
                position = i;
                break;
            }
        }
        LayerRecord* l = nplat::HeapNew<LayerRecord>();
        if (!l) return kNoMemory;
        l->colour = static_cast<uint32_t>(colour);
        l->width = width, l->height = height;
        l->videoId = videoId;
        r.LayerPixels(l, flags);
        if (!(flags & kLayerVideo) &&
            !r.ResizeStaticTexture(l, l->pixelWidth, l->pixelHeight, false, nplat::D3DTEXF_NONE)) {
            nplat::HeapDelete(l);
            return r.Fail();
        }
        if (r.Insert(&r.layers, l, id, flags, position) < 0) {
            if (l->texture) l->texture->Release();
            nplat::HeapDelete(l);
            return kNoMemory;
        }
        if (video) {
            ++video->layerCount;
            video->processingMode = 0;
        }
        if (id == r.stat.uNextLayerId) r.AdvanceNextId(&r.layers, &r.stat.uNextLayerId);
        return kOk;
    });
}

int CNHVideoRender::RemoveLayer(unsigned id) {
    return Scene(m_pImpl, [id](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        if (!l) return kRefused;
        if (l->texture) l->texture->Release();
        nplat::HeapFree(l->mappings);
        if (VideoRecord* v = l->videoId != kNoId ? r.Video(l->videoId) : nullptr) {
            --v->layerCount;
            v->processingMode = 0;
        }
        for (const PixelSlot& slot : l->pixelSlot) {
            if (SubTitleRecord* s = r.SubTitle(slot.subtitleId)) --s->slotCount;
        }
        for (unsigned slot : l->textSlot) {
            if (SubTitleRecord* s = r.SubTitle(slot)) --s->slotCount;
        }
        nplat::HeapDelete(l);
        r.layers.Remove(pos);
        r.RetreatNextId(id, &r.stat.uNextLayerId);
        return kOk;
    });
}

int CNHVideoRender::ConfigLayer(unsigned id, unsigned* flags, unsigned long* colour,
                                float* leftMargin, float* rightMargin, float* topMargin,
                                float* bottomMargin, float* textPosition, float* textHeight) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        if (!l) return kRefused;
        unsigned current = FlagsAt(r.layers, pos);
        if (flags) {
            const unsigned next = (current & 0xF) | (*flags & ~0xFu);
            if ((next & kLayerVideo) && !(next & (kLayerCrop | kLayerKeepAspect))) {
                return kRefused;
            }
            current = next;
            r.layers.SetUserData1(pos, static_cast<int16_t>(current));
        }
        if (colour) l->colour = static_cast<uint32_t>(*colour);
        const float* values[6] = {leftMargin,   rightMargin,  topMargin,
                                  bottomMargin, textPosition, textHeight};
        for (int i = 0; i < 6; ++i) {
            if (values[i]) l->margin[i] = *values[i];
        }
        const int w = l->pixelWidth, h = l->pixelHeight;
        r.LayerPixels(l, current);
        l->pixelWidth = w, l->pixelHeight = h;  // only ChangeLayerSize and Update resize
        return kOk;
    });
}

int CNHVideoRender::GetLayerInfo(unsigned id, unsigned* flags, unsigned long* colour, float* width,
                                 float* height, unsigned* videoId, float* leftMargin,
                                 float* rightMargin, float* topMargin, float* bottomMargin,
                                 float* textPosition, float* textHeight) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        if (!l) return kRefused;
        if (flags) *flags = FlagsAt(r.layers, pos);
        if (colour) *colour = l->colour;
        if (width) *width = l->width;
        if (height) *height = l->height;
        if (videoId) *videoId = l->videoId;
        float* outs[6] = {leftMargin,   rightMargin,  topMargin,
                          bottomMargin, textPosition, textHeight};
        for (int i = 0; i < 6; ++i) {
            if (outs[i]) *outs[i] = l->margin[i];
        }
        return kOk;
    });
}

int CNHVideoRender::ChangeLayerSize(unsigned id, float width, float height, int keepContent) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        if (!l) return kRefused;
        const unsigned flags = FlagsAt(r.layers, pos);
        int w = r.PixelsX(width, flags), h = r.PixelsY(height, flags);
        w = w < 1 ? 1 : w, h = h < 1 ? 1 : h;
        l->width = width, l->height = height;
        if (w == l->pixelWidth && h == l->pixelHeight) return kOk;
        if (!(flags & kLayerVideo) &&
            !r.ResizeStaticTexture(l, w, h, keepContent == 1, nplat::D3DTEXF_POINT)) {
            return r.Fail();
        }
        l->pixelWidth = w, l->pixelHeight = h;
        return kOk;
    });
}

int CNHVideoRender::FillLayer(unsigned id, int count, FillLayerInfoTag* items) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        const unsigned flags = l ? FlagsAt(r.layers, pos) : 0;
        if (!l || (flags & kLayerVideo) || count < 0 || (count > 0 && !items)) return kRefused;
        nplat::IDirect3DSurface9* surface = nullptr;
        if (nplat::FAILED(l->texture->GetSurfaceLevel(0, &surface))) return r.Fail();
        int code = kOk;
        for (int i = 0; i < count && code == kOk; ++i) {
            const int x = r.PixelsX(items[i].fX, flags), y = r.PixelsY(items[i].fY, flags);
            nplat::RECT rc{x, y, x + r.PixelsX(items[i].fWidth, flags),
                           y + r.PixelsY(items[i].fHeight, flags)};
            rc.left = rc.left < 0 ? 0 : rc.left;
            rc.top = rc.top < 0 ? 0 : rc.top;
            rc.right = rc.right > l->pixelWidth ? l->pixelWidth : rc.right;
            rc.bottom = rc.bottom > l->pixelHeight ? l->pixelHeight : rc.bottom;
            if (rc.right <= rc.left || rc.bottom <= rc.top) continue;
            if (nplat::FAILED(r.device->ColorFill(surface, &rc, items[i].uColor))) {
                code = r.Fail();
            }
        }
        surface->Release();
        return code;
    });
}

int CNHVideoRender::CopyLayerData(unsigned id, VideoFormatInfoTag* format, CNCodecBuffer* data) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(id, &pos);
        if (!l || (FlagsAt(r.layers, pos) & kLayerVideo) || !format || !data) return kRefused;
        const int w = l->pixelWidth, h = l->pixelHeight;
        nplat::IDirect3DSurface9* src = nullptr;
        nplat::IDirect3DSurface9* mem = nullptr;
        auto done = [&](int code) {
            if (src) src->Release();
            if (mem) mem->Release();
            return code;
        };
        if (nplat::FAILED(l->texture->GetSurfaceLevel(0, &src)) ||
            nplat::FAILED(r.device->CreateOffscreenPlainSurface(
                w, h, nplat::D3DFMT_A8R8G8B8, nplat::D3DPOOL_SYSTEMMEM, &mem, nullptr)) ||
            nplat::FAILED(r.device->GetRenderTargetData(src, mem))) {
            return done(r.Fail());
        }
        const int64_t bytes = static_cast<int64_t>(w) * h * 4;
        if (bytes > 0x7FFFFFFF) return done(kNoMemory);
        auto* out = static_cast<uint8_t*>(data->Allocate(static_cast<int>(bytes), 16, 0));
        if (!out) return done(kNoMemory);
        nplat::D3DLOCKED_RECT locked{};
        if (nplat::FAILED(mem->LockRect(&locked, nullptr, nplat::D3DLOCK_READONLY))) {
            return done(r.Fail());
        }
        for (int y = 0; y < h; ++y) {
            std::memcpy(
                out + static_cast<int64_t>(y) * w * 4,
                static_cast<const uint8_t*>(locked.pBits) + static_cast<int64_t>(y) * locked.Pitch,
                static_cast<size_t>(w) * 4);
        }
        mem->UnlockRect();
        data->SetDataSize(static_cast<int>(bytes));
        std::memset(format, 0, sizeof(*format));
        format->nStructSize = sizeof(*format);
        format->nCodecType = VIDEO_TYPE_RGB;
        format->nCodecSubType = VIDEO_FORMAT_RGB32;
        format->nWidth = format->nPictureWidth = format->nDisplayWidth = w;
        format->nHeight = format->nPictureHeight = format->nDisplayHeight = h;
        format->nRectRight = w;
        format->nRectBottom = h;
        return done(kOk);
    });
}

int CNHVideoRender::ConfigVideoLayerPixelSubTitle(unsigned layerId, int slot, unsigned subtitleId,
                                                  float scale, int value1, int value2, int value3) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(layerId, &pos);
        if (!l || slot < 0 || slot > 3 || !(FlagsAt(r.layers, pos) & kLayerVideo)) return kRefused;
        PixelSlot& s = l->pixelSlot[slot];
        if (subtitleId != s.subtitleId && subtitleId != kNoId) {
            int spos = -1;
            SubTitleRecord* sub = r.SubTitle(subtitleId, &spos);
            if (!sub || (FlagsAt(r.subtitles, spos) & 0x1) || sub->slotCount >= 4) return kRefused;
            ++sub->slotCount;
        }
        if (subtitleId != s.subtitleId) {
            if (SubTitleRecord* old = r.SubTitle(s.subtitleId)) --old->slotCount;
            s.subtitleId = subtitleId;
        }
        s.scale = scale;
        s.value[0] = value1, s.value[1] = value2, s.value[2] = value3;
        return kOk;
    });
}

int CNHVideoRender::ConfigVideoLayerTextSubTitle(unsigned layerId, int slot, unsigned subtitleId) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(layerId, &pos);
        if (!l || slot < 0 || slot > 3 || !(FlagsAt(r.layers, pos) & kLayerVideo)) return kRefused;
        unsigned& s = l->textSlot[slot];
        if (subtitleId == s) return kOk;
        if (subtitleId != kNoId) {
            int spos = -1;
            SubTitleRecord* sub = r.SubTitle(subtitleId, &spos);
            if (!sub || !(FlagsAt(r.subtitles, spos) & 0x1) || sub->slotCount >= 4) {
                return kRefused;
            }
            ++sub->slotCount;
        }
        if (SubTitleRecord* old = r.SubTitle(s)) --old->slotCount;
        s = subtitleId;
        return kOk;
    });
}

int CNHVideoRender::GetVideoLayerPixelSubTitleInfo(unsigned layerId, int slot, unsigned* subtitleId,
                                                   float* scale, int* value1, int* value2,
                                                   int* value3) {
    return Scene(m_pImpl, [&](Impl& r) {
        LayerRecord* l = r.Layer(layerId);
        if (!l || slot < 0 || slot > 3) return kRefused;
        const PixelSlot& s = l->pixelSlot[slot];
        if (subtitleId) *subtitleId = s.subtitleId;
        if (scale) *scale = s.scale;
        if (value1) *value1 = s.value[0];
        if (value2) *value2 = s.value[1];
        if (value3) *value3 = s.value[2];
        return kOk;
    });
}

int CNHVideoRender::GetVideoLayerTextSubTitleInfo(unsigned layerId, int slot,
                                                  unsigned* subtitleId) {
    return Scene(m_pImpl, [&](Impl& r) {
        LayerRecord* l = r.Layer(layerId);
        if (!l || slot < 0 || slot > 3) return kRefused;
        if (subtitleId) *subtitleId = l->textSlot[slot];
        return kOk;
    });
}

int CNHVideoRender::ConfigLayerMappingInfo(unsigned layerId, int count,
                                           LayerMappingInfoTag* mappings) {
    return Scene(m_pImpl, [&](Impl& r) {
        int pos = -1;
        LayerRecord* l = r.Layer(layerId, &pos);
        if (!l || count < 0 || (count > 0 && !mappings)) return kRefused;
        MappingSlot* slots = nullptr;
        if (count > 0) {
            slots = static_cast<MappingSlot*>(
                nplat::HeapAlloc(sizeof(MappingSlot) * static_cast<size_t>(count)));
            if (!slots) return kNoMemory;
        }
        const unsigned flags = FlagsAt(r.layers, pos);
        for (int i = 0; i < count; ++i) {
            slots[i] = MappingSlot{};
            slots[i].given = mappings[i];
            r.MappingPixels(*l, flags, &slots[i]);
        }
        nplat::HeapFree(l->mappings);
        l->mappings = slots;
        l->mappingCount = count;
        if (VideoRecord* v = l->videoId != kNoId ? r.Video(l->videoId) : nullptr) {
            v->processingMode = 0;
        }
        return kOk;
    });
}

int CNHVideoRender::GetLayerMappingNumber(unsigned layerId, int* count) {
    return Scene(m_pImpl, [&](Impl& r) {
        LayerRecord* l = r.Layer(layerId);
        if (!l) return kRefused;
        if (count) *count = l->mappingCount;
        return kOk;
    });
}

int CNHVideoRender::GetLayerMappingInfo(unsigned layerId, int index, LayerMappingInfoTag* mapping) {
    return Scene(m_pImpl, [&](Impl& r) {
        LayerRecord* l = r.Layer(layerId);
        if (!l || index < 0 || index >= l->mappingCount) return kRefused;
        if (mapping) *mapping = l->mappings[index].given;
        return kOk;
    });
}
