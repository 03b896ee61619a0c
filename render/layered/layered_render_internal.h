// The private state of CNHVideoRender and the records of its four lists,
// shared by the model (layered_render.cpp), the uploads
// (layered_render_textures.cpp) and the drawing (layered_render_draw.cpp).
//
// Each list entry holds a pointer to a heap record, so records keep their
// address while the lists grow, and they may hold device objects. User value
// 2 is the object's id, user value 1 its flags, as hosts expect of the lists.
// Geometry is not cached between presents: each draw recomputes it from the
// records, which costs little next to the device work and leaves no stale
// cache to invalidate.
#pragma once

#include <cstdint>

#include "ncodecbase/base_services.h"
#include "ncodecbase/layered_render.h"
#include "platform/gfx/d3d9.h"
#include "platform/gfx/dxva2.h"
#include "render/layered/layer_geometry.h"

namespace ncb::layered {

using VideoFormat = CNCodecBase::VideoFormatInfoTag;

// Result codes.
constexpr int kOk = 0;
constexpr int kRefused = 1;
constexpr int kNoMemory = 2;
constexpr int kDeviceFailed = 3;
constexpr int kNoSse2 = 4;
constexpr int kOldSystem = 5;
constexpr int kNoModules = 6;
constexpr int kOccluded = 7;
constexpr int kModeChanged = 8;
constexpr int kSizeDiffers = 9;
constexpr int kDeferred = 10;

// Configuration flags.
constexpr uint32_t kCfgAlways = 0x1;
constexpr uint32_t kCfgSsse3 = 0x2;
constexpr uint32_t kCfgSse41 = 0x4;
constexpr uint32_t kCfgFixedSize = 0x8;
constexpr uint32_t kCfgSourcePixels = 0x10;
constexpr uint32_t kCfgFlipEx = 0x20;
constexpr uint32_t kCfgVideoService = 0x40;
constexpr uint32_t kCfgPs20Only = 0x80;
constexpr uint32_t kCfgExactText = 0x100;

// Status bits.
constexpr uint32_t kStatusFailed = 0x1;
constexpr uint32_t kStatusFlipEx = 0x2;
constexpr uint32_t kStatusSizeDiffers = 0x4;

// Video flags.
constexpr unsigned kVideoHardware = 0x1;
constexpr unsigned kVideoAlphaMask = 0xE;
constexpr unsigned kAlphaOwn = 0x0, kAlphaOpaque = 0x2, kAlphaConstant = 0x4, kAlphaMask = 0x8;
constexpr unsigned kVideoTint = 0x400;
constexpr unsigned kVideoMaskAsUploaded = 0x800;

// Format-support bits of the device.
constexpr uint32_t kSupportRequired = 0x3F;

constexpr int kShaderCount = 43;

// Textures made from one picture, with what the shaders need to draw them.
struct PictureTextures {
    nplat::IDirect3DTexture9* tex[3] = {};
    TextureLayout layout = TextureLayout::kNone;
    int width = 0, height = 0;  // of plane 0
    TexQuad set0;               // plane 0 (whole texture, half-texel shifted)
    TexQuad set1;               // chroma planes
    void Release();
};

struct BitmapRecord {
    VideoFormat format{};
    unsigned alpha = 255;
    nplat::D3DTEXTUREADDRESS addressU = nplat::D3DTADDRESS_CLAMP;
    nplat::D3DTEXTUREADDRESS addressV = nplat::D3DTADDRESS_CLAMP;
    PictureTextures picture;
};

struct VideoRecord {
    VideoFormat maskFormat{};
    int layerCount = 0;
    unsigned alpha = 256;
    uint32_t d3dFormat = 0;
    int adjust[8] = {128, 128, 0, 0, 0, 256, 256, 256};  // tint U, V, offsets Y U V, gains Y U V
    VideoFormat format{};                                // nCodecType -1 until a format arrives
    CNCodecBuffer* picture = nullptr;
    PictureTextures mask;
    nplat::IDirectXVideoProcessor* processor = nullptr;
    PictureTextures textures;
    int processingMode = 0;  // hardware videos: 0 unchosen, 1-4
    int fieldOrder = 0;      // of the picture waiting for upload
    void ReleasePicture();
};

struct SubTitleRecord {
    CNControlBase::SubTitleFormatInfoTag format{};
    int slotCount = 0;
    int pieceCount = 0;
    CNSubTitleDecoder::OutputAddiInfoTag info[4]{};
    PictureTextures piece[4];
    void ReleasePieces();
};

struct PixelSlot {
    unsigned subtitleId = 0xFFFFFFFFu;
    float scale = 1.0f;
    int value[3] = {};
};

struct MappingSlot {
    CNHVideoRender::LayerMappingInfoTag given{};
    PixelRect source;
    PixelRect dest;
};

struct LayerRecord {
    uint32_t colour = 0;
    float width = 0.0f, height = 0.0f;
    unsigned videoId = 0xFFFFFFFFu;
    float margin[6] = {};  // left, right, top, bottom, text position, text height
    PixelSlot pixelSlot[4];
    unsigned textSlot[4] = {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu};
    nplat::IDirect3DTexture9* texture = nullptr;
    int pixelWidth = 1, pixelHeight = 1;
    int pixelMargin[6] = {0, 0, 0, 0, 0, 1};
    int mappingCount = 0;
    MappingSlot* mappings = nullptr;
};

}  // namespace ncb::layered

struct CNHVideoRender::Impl {
    using BitmapRecord = ncb::layered::BitmapRecord;
    using VideoRecord = ncb::layered::VideoRecord;
    using SubTitleRecord = ncb::layered::SubTitleRecord;
    using LayerRecord = ncb::layered::LayerRecord;

    bool inited = false, opened = false;
    int level = 0;
    int osLevel = 0;
    ConfigInfoTag pending{};
    ConfigInfoTag active{};
    StatInfoTag stat{};
    CNLock lock;
    int presentLock = 0;
    bool presentPending = false;
    nplat::HWND window = nullptr;
    nplat::D3DPRESENT_PARAMETERS params{};
    nplat::IDirect3D9Ex* d3d = nullptr;
    nplat::IDirect3DDevice9Ex* device = nullptr;
    nplat::IDirect3DSurface9* backBuffer = nullptr;
    nplat::IDirectXVideoProcessorService* service = nullptr;
    uint32_t support = 0;
    const nplat::DWORD* shaderCode[ncb::layered::kShaderCount] = {};
    nplat::GfxObject* shader[ncb::layered::kShaderCount] = {};
    nplat::IDirect3DVertexBuffer9* vertexBuffer[4] = {};
    CNDataList bitmaps, videos, subtitles, layers;
    nplat::IDirect3DSurface9* target = nullptr;  // what scene draws go to
    int targetWidth = 0, targetHeight = 0;

    // ---- model (layered_render.cpp) ----
    int Fail();  // marks the render failed, returns 3
    bool Failed() const { return (stat.uStatus & ncb::layered::kStatusFailed) != 0; }
    int Identify(int* level) const;
    void ReleaseAll();
    void ReleaseDevice();
    int PixelsX(float value, unsigned layerFlags) const;
    int PixelsY(float value, unsigned layerFlags) const;
    void LayerPixels(LayerRecord* layer, unsigned flags) const;
    void MappingPixels(const LayerRecord& layer, unsigned flags,
                       ncb::layered::MappingSlot* m) const;
    int ResizeStaticTexture(LayerRecord* layer, int width, int height, bool keep,
                            nplat::D3DTEXTUREFILTERTYPE filter);
    BitmapRecord* Bitmap(unsigned id, int* pos = nullptr) const;
    VideoRecord* Video(unsigned id, int* pos = nullptr) const;
    SubTitleRecord* SubTitle(unsigned id, int* pos = nullptr) const;
    LayerRecord* Layer(unsigned id, int* pos = nullptr) const;
    int Insert(CNDataList* list, void* record, unsigned id, unsigned flags, int position);
    void AdvanceNextId(CNDataList* list, uint32_t* next) const;
    void RetreatNextId(uint32_t removed, uint32_t* next) const;
    int UploadMask(VideoRecord* video, ncb::layered::VideoFormat* format, CNCodecBuffer* data,
                   bool asUploaded);
    int UploadVideo(VideoRecord* video, unsigned flags, unsigned id);

    // ---- shaders and textures (layered_render_textures.cpp) ----
    int LoadShaderResource();
    void FreeShaderResource();
    int SetShader(int number);
    int CreateDynamicTexture(int width, int height, nplat::D3DFORMAT format,
                             nplat::IDirect3DTexture9** texture);
    int LoadTextureOne(CNCodecBuffer* data, ncb::layered::VideoFormat* format, bool ownAlpha,
                       int deinterlace, ncb::layered::PictureTextures* out);
    int LoadTexturePlanes(CNCodecBuffer* data, ncb::layered::VideoFormat* format, int deinterlace,
                          ncb::layered::PictureTextures* out);
    int DeinterlacePass(ncb::layered::PictureTextures* planes, nplat::IDirect3DTexture9** fields,
                        int fieldCount, int shader, int parity, nplat::D3DFORMAT format);
    int LoadVideoData(VideoRecord* video, unsigned flags, int fieldOrder);
    int LoadHardwareVideoData(VideoRecord* video, unsigned flags, unsigned id, int fieldOrder);
    int OpenVideoProcessor(VideoRecord* video);
    bool HardwareVideoCanUseDirectMode(const VideoRecord& video, unsigned flags, unsigned id) const;

    // ---- drawing (layered_render_draw.cpp) ----
    int DrawQuad(int sets, const ncb::layered::Quad& quad, const ncb::layered::TexQuad* tex);
    int Render();
    int RenderScene(nplat::IDirect3DSurface9* target, int width, int height);
    int DrawStaticLayer(const LayerRecord& layer, unsigned flags);
    int DrawVideoLayer(const LayerRecord& layer, unsigned flags, unsigned id, int offsetX,
                       int offsetY, int targetWidth, int targetHeight, bool directDrawn);
    int DrawHardwareVideoDirect(VideoRecord* video, const LayerRecord& layer, unsigned flags);
    int DoPresent(int countAsFrame);
};
