// The DXVA2-shaped video processor service that the layered render uses for
// hardware video samples: NV12 / YUY2 sample surfaces, the list of processor
// devices for a video description, and a processor whose VideoProcessBlt
// scales one sample onto a render target over a background colour.
//
// Why this shape: the render's hardware-video path was written against these
// calls. Structures keep Windows' layouts and the format words keep the
// DXVA2_ExtendedFormat bit fields, read through the accessors below.
//
// Not here: decoders, sub-streams, procamp and filter ranges (values are
// accepted and the neutral ones assumed), de-interlacing with reference
// frames (an interlaced sample is processed as one progressive picture),
// protected content.
#pragma once

#include <cstddef>

#include "platform/gfx/d3d9.h"

namespace nplat {

using USHORT = uint16_t;
using SHORT = int16_t;
using REFERENCE_TIME = int64_t;

// The bit fields of DXVA2_ExtendedFormat packed into one word, low bits
// first: SampleFormat 8, VideoChromaSubsampling 4, NominalRange 3,
// VideoTransferMatrix 3, VideoLighting 4, VideoPrimaries 5,
// VideoTransferFunction 5.
struct DXVA2_ExtendedFormat {
    UINT value;

    UINT SampleFormat() const { return value & 0xFF; }
    UINT VideoChromaSubsampling() const { return value >> 8 & 0xF; }
    UINT NominalRange() const { return value >> 12 & 0x7; }
    UINT VideoTransferMatrix() const { return value >> 15 & 0x7; }
    UINT VideoLighting() const { return value >> 18 & 0xF; }
    UINT VideoPrimaries() const { return value >> 22 & 0x1F; }
    UINT VideoTransferFunction() const { return value >> 27 & 0x1F; }
};
static_assert(sizeof(DXVA2_ExtendedFormat) == 4);

constexpr UINT DXVA2_NominalRange_0_255 = 1;
constexpr UINT DXVA2_NominalRange_16_235 = 2;
constexpr UINT DXVA2_VideoTransferMatrix_BT709 = 1;
constexpr UINT DXVA2_VideoTransferMatrix_BT601 = 2;

struct DXVA2_Frequency {
    UINT Numerator;
    UINT Denominator;
};

struct DXVA2_VideoDesc {
    UINT SampleWidth;
    UINT SampleHeight;
    DXVA2_ExtendedFormat SampleFormat;
    D3DFORMAT Format;
    DXVA2_Frequency InputSampleFreq;
    DXVA2_Frequency OutputFrameFreq;
    UINT UABProtectionLevel;
    UINT Reserved;
};
static_assert(sizeof(DXVA2_VideoDesc) == 40);

// A fixed-point number: Value + Fraction / 65536.
struct DXVA2_Fixed32 {
    USHORT Fraction;
    SHORT Value;
};
static_assert(sizeof(DXVA2_Fixed32) == 4);

inline DXVA2_Fixed32 DXVA2FloatToFixed(float v) {
    int32_t fixed = static_cast<int32_t>(v * 65536.0f);
    return DXVA2_Fixed32{static_cast<USHORT>(fixed & 0xFFFF), static_cast<SHORT>(fixed >> 16)};
}
inline float DXVA2FixedToFloat(DXVA2_Fixed32 v) {
    return static_cast<float>(v.Value) + static_cast<float>(v.Fraction) / 65536.0f;
}

struct DXVA2_AYUVSample8 {
    uint8_t Cr, Cb, Y, Alpha;
};

// 16-bit components: an 8-bit value shifted left by 8.
struct DXVA2_AYUVSample16 {
    USHORT Cr, Cb, Y, Alpha;
};
static_assert(sizeof(DXVA2_AYUVSample16) == 8);

struct DXVA2_ProcAmpValues {
    DXVA2_Fixed32 Brightness;
    DXVA2_Fixed32 Contrast;
    DXVA2_Fixed32 Hue;
    DXVA2_Fixed32 Saturation;
};

struct DXVA2_FilterValues {
    DXVA2_Fixed32 Level;
    DXVA2_Fixed32 Threshold;
    DXVA2_Fixed32 Radius;
};

struct DXVA2_VideoSample {
    REFERENCE_TIME Start;
    REFERENCE_TIME End;
    DXVA2_ExtendedFormat SampleFormat;
    IDirect3DSurface9* SrcSurface;
    RECT SrcRect;
    RECT DstRect;
    DXVA2_AYUVSample8 Pal[16];
    DXVA2_Fixed32 PlanarAlpha;
    DWORD SampleData;
};

struct DXVA2_VideoProcessBltParams {
    REFERENCE_TIME TargetFrame;
    RECT TargetRect;
    SIZE ConstrictionSize;
    UINT StreamingFlags;
    DXVA2_AYUVSample16 BackgroundColor;
    DXVA2_ExtendedFormat DestFormat;
    DXVA2_ProcAmpValues ProcAmpValues;
    DXVA2_Fixed32 Alpha;
    DXVA2_FilterValues NoiseFilterLuma;
    DXVA2_FilterValues NoiseFilterChroma;
    DXVA2_FilterValues DetailFilterLuma;
    DXVA2_FilterValues DetailFilterChroma;
    DWORD DestData;
};

// CreateSurface surface kinds.
constexpr DWORD DXVA2_VideoDecoderRenderTarget = 0;
constexpr DWORD DXVA2_VideoProcessorRenderTarget = 1;
constexpr DWORD DXVA2_VideoSoftwareRenderTarget = 2;

inline constexpr IID IID_IDirectXVideoProcessorService = {
    0xfc51a552, 0xd5e7, 0x11d9, {0xaf, 0x55, 0x00, 0x05, 0x4e, 0x43, 0xff, 0x02}};
inline constexpr GUID DXVA2_VideoProcProgressiveDevice = {
    0x5a54a0c9, 0xc7ec, 0x4bd9, {0x8e, 0xde, 0xf3, 0xc7, 0x5d, 0xc4, 0x39, 0x3b}};
inline constexpr GUID DXVA2_VideoProcBobDevice = {
    0x335aa36e, 0x7884, 0x43a4, {0x9c, 0x91, 0x7f, 0x87, 0xfa, 0xf3, 0xe3, 0x7e}};
inline constexpr GUID DXVA2_VideoProcSoftwareDevice = {
    0x4553d47f, 0xee7e, 0x4e3f, {0x94, 0x75, 0xdb, 0xf1, 0x37, 0x6c, 0x48, 0x10}};

class IDirectXVideoProcessor : public GfxObject {
  public:
    // Fills params->TargetRect of the target with the background colour, then
    // draws the first sample's SrcRect scaled onto its DstRect (clipped to the
    // target rect), converting YUV to RGB as its SampleFormat says.
    virtual HRESULT VideoProcessBlt(IDirect3DSurface9* renderTarget,
                                    const DXVA2_VideoProcessBltParams* params,
                                    const DXVA2_VideoSample* samples, UINT count,
                                    HANDLE* complete) = 0;
};

class IDirectXVideoProcessorService : public GfxObject {
  public:
    // backBuffers + 1 surfaces are written to surfaces[].
    virtual HRESULT CreateSurface(UINT width, UINT height, UINT backBuffers, D3DFORMAT format,
                                  D3DPOOL pool, DWORD usage, DWORD dxvaType,
                                  IDirect3DSurface9** surfaces, HANDLE* shared) = 0;
    // *guids is allocated with CoTaskMemAlloc; free it with CoTaskMemFree.
    virtual HRESULT GetVideoProcessorDeviceGuids(const DXVA2_VideoDesc* desc, UINT* count,
                                                 GUID** guids) = 0;
    virtual HRESULT CreateVideoProcessor(const GUID& device, const DXVA2_VideoDesc* desc,
                                         D3DFORMAT renderTargetFormat, UINT maxSubStreams,
                                         IDirectXVideoProcessor** processor) = 0;
};

// The entry point "dxva2.dll" exports. Only IID_IDirectXVideoProcessorService
// is known (E_NOINTERFACE otherwise); the device must come from
// Direct3DCreate9Ex of this layer.
HRESULT DXVA2CreateVideoService(IDirect3DDevice9* device, const IID& iid, void** service);
using DXVA2CreateVideoServiceFn = HRESULT (*)(IDirect3DDevice9*, const IID&, void**);

void* CoTaskMemAlloc(size_t bytes);
void CoTaskMemFree(void* block);

}  // namespace nplat
