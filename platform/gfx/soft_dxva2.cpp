// The software device's DXVA2 video processor service: sample surfaces in
// memory, the processor device list of the test controls, and a processor
// that fills the target rectangle with the background colour and scales the
// one sample onto it with a linear filter, converting YUV to RGB as the
// sample's format word says (BT.601 or BT.709, full or studio range).
//
// The background colour is a 16-bit AYUV sample; its top bytes convert with
// the full-range BT.601 equations (the render computes it that way).
//
// Not here: sub-streams, planar alpha other than 1 (the sample is opaque),
// procamp adjustments, de-interlacing (an interlaced sample is shown as one
// progressive picture).
#include <algorithm>

#include "platform/gfx/dxva2.h"
#include "platform/gfx/gfx_formats.h"
#include "platform/gfx/gfx_test_controls.h"
#include "platform/gfx/soft_device.h"
#include "platform/kernel/heap.h"

namespace nplat::gfx {

namespace {

constexpr int kMaxDevices = 16;
constexpr UINT kMaxSurfaces = 32;

bool KnownDevice(const GUID& device) {
    GUID list[kMaxDevices];
    int n = gfxtest::VideoProcessorDevices(list, kMaxDevices);
    for (int i = 0; i < n; ++i)
        if (GfxEqualGuid(list[i], device)) return true;
    return false;
}

class SoftVideoProcessor final : public IDirectXVideoProcessor {
  public:
    HRESULT VideoProcessBlt(IDirect3DSurface9* renderTarget,
                            const DXVA2_VideoProcessBltParams* params,
                            const DXVA2_VideoSample* samples, UINT count, HANDLE*) override {
        SoftSurface* target = AsSoftSurface(renderTarget);
        if (!target || !params || !target->Role().renderTarget || !IsRgbFormat(target->Format()) ||
            (count > 0 && !samples) || count > 1)
            return E_INVALIDARG;
        RECT area = params->TargetRect;
        if (!RectInside(area, target->Width(), target->Height())) return E_INVALIDARG;
        const DXVA2_VideoSample* sample = count ? &samples[0] : nullptr;
        SoftSurface* source = sample ? AsSoftSurface(sample->SrcSurface) : nullptr;
        if (sample) {
            if (!source || !RectInside(sample->SrcRect, source->Width(), source->Height()) ||
                sample->DstRect.left >= sample->DstRect.right ||
                sample->DstRect.top >= sample->DstRect.bottom)
                return E_INVALIDARG;
        }
        if (HRESULT hr = gfxtest::Injected(GfxCall::kVideoProcessBlt); FAILED(hr)) return hr;

        const DXVA2_AYUVSample16& bg = params->BackgroundColor;
        Float4 background = YuvToRgb((bg.Y >> 8) / 255.0f, ((bg.Cb >> 8) - 128) / 255.0f,
                                     ((bg.Cr >> 8) - 128) / 255.0f, (bg.Alpha >> 8) / 255.0f);
        FillSurfaceRect(target, area, background);
        if (sample) {
            YuvSourceRules rules;
            rules.limitedRange = sample->SampleFormat.NominalRange() == DXVA2_NominalRange_16_235;
            if (sample->SampleFormat.VideoTransferMatrix() == DXVA2_VideoTransferMatrix_BT709)
                rules.matrix = &kBt709;
            ScaleSurface(source, sample->SrcRect, target, sample->DstRect, area, D3DTEXF_LINEAR,
                         rules);
        }
        gfxtest::Count(&GfxCounters::videoProcessBlts);
        return S_OK;
    }
};

class SoftVideoService final : public IDirectXVideoProcessorService {
  public:
    explicit SoftVideoService(IDirect3DDevice9* device) : m_device(device) { m_device->AddRef(); }
    ~SoftVideoService() override { m_device->Release(); }

    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (!object) return E_POINTER;
        if (GfxEqualGuid(iid, IID_IDirectXVideoProcessorService)) {
            AddRef();
            *object = static_cast<IDirectXVideoProcessorService*>(this);
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }

    HRESULT CreateSurface(UINT width, UINT height, UINT backBuffers, D3DFORMAT format, D3DPOOL pool,
                          DWORD, DWORD dxvaType, IDirect3DSurface9** surfaces, HANDLE*) override {
        if (!surfaces) return E_POINTER;
        if (backBuffers >= kMaxSurfaces || width < 1 || height < 1 || width > 16384 ||
            height > 16384 || (pool != D3DPOOL_DEFAULT && pool != D3DPOOL_SYSTEMMEM) ||
            dxvaType > DXVA2_VideoSoftwareRenderTarget)
            return E_INVALIDARG;
        bool yuv = IsYuvSurfaceFormat(format);
        if (!yuv && !IsRgbFormat(format)) return E_INVALIDARG;
        if ((format == D3DFMT_NV12 && (width % 2 || height % 2)) ||
            ((format == D3DFMT_YUY2 || format == D3DFMT_UYVY) && width % 2))
            return E_INVALIDARG;
        for (UINT i = 0; i <= backBuffers; ++i) surfaces[i] = nullptr;
        if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateSurface); FAILED(hr)) return hr;
        SurfaceRole role;
        role.lockable = true;
        role.renderTarget = !yuv && dxvaType == DXVA2_VideoProcessorRenderTarget;
        for (UINT i = 0; i <= backBuffers; ++i) {
            surfaces[i] = SoftSurface::Create(static_cast<int>(width), static_cast<int>(height),
                                              format, pool, 0, D3DRTYPE_SURFACE, role, nullptr);
            if (!surfaces[i]) {
                for (UINT j = 0; j < i; ++j) {
                    surfaces[j]->Release();
                    surfaces[j] = nullptr;
                }
                return E_OUTOFMEMORY;
            }
        }
        return S_OK;
    }

    HRESULT GetVideoProcessorDeviceGuids(const DXVA2_VideoDesc* desc, UINT* count,
                                         GUID** guids) override {
        if (!desc || !count || !guids) return E_POINTER;
        *count = 0;
        *guids = nullptr;
        if (HRESULT hr = gfxtest::Injected(GfxCall::kGetVideoProcessorDeviceGuids); FAILED(hr))
            return hr;
        GUID list[kMaxDevices];
        int n = gfxtest::VideoProcessorDevices(list, kMaxDevices);
        if (n == 0) return S_OK;
        auto* out = static_cast<GUID*>(CoTaskMemAlloc(sizeof(GUID) * static_cast<size_t>(n)));
        if (!out) return E_OUTOFMEMORY;
        std::copy(list, list + n, out);
        *count = static_cast<UINT>(n);
        *guids = out;
        return S_OK;
    }

    HRESULT CreateVideoProcessor(const GUID& device, const DXVA2_VideoDesc* desc,
                                 D3DFORMAT renderTargetFormat, UINT maxSubStreams,
                                 IDirectXVideoProcessor** processor) override {
        if (!processor) return E_POINTER;
        *processor = nullptr;
        if (!desc || maxSubStreams > 0 || !IsRgbFormat(renderTargetFormat) || !KnownDevice(device))
            return E_INVALIDARG;
        if (HRESULT hr = gfxtest::Injected(GfxCall::kCreateVideoProcessor); FAILED(hr)) return hr;
        SoftVideoProcessor* p = HeapNew<SoftVideoProcessor>();
        if (!p) return E_OUTOFMEMORY;
        *processor = p;
        return S_OK;
    }

  private:
    IDirect3DDevice9* m_device;
};

}  // namespace

HRESULT SoftDevice::CreateVideoProcessorService(IDirectXVideoProcessorService** service) {
    *service = HeapNew<SoftVideoService>(this);
    return *service ? S_OK : E_OUTOFMEMORY;
}

}  // namespace nplat::gfx
