// CNHVideoRender: composes a picture from layers on a Direct3D 9-shaped
// device created on the host's window. The host builds a scene (bitmaps,
// videos, subtitles, static and video layers, and the mappings that place
// parts of layers on the back buffer) and calls Present on its own thread;
// the render has no thread.
//
// Results: every operation returns an int code. 0 success; 1 unknown id or
// refused argument; 2 out of memory (Init/SetConfig: processor unknown); 3
// device failure (the render is failed, status bit 0x1, and every operation
// but Init, Uninit, Close, GetConfig and SetConfig returns 3 until Close and
// a new Open); 4 no SSE2; 5 system too old; 6 graphics modules missing; 7
// window empty or presentation occluded; 8 display mode changed (device
// reset); 9 window size differs from the back buffer (call Update); 10
// presentation locked, present deferred. Scene operations on a render that
// is not open return 1.
//
// Ownership: pictures handed to AddBitmap are uploaded and not kept; a video
// or subtitle keeps one reference to its current picture until it is
// uploaded or replaced. The window stays the host's.
// Thread safety: every operation takes the render's lock for its whole run,
// so any thread may call; UnlockPresent drops the lock before presenting.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

// Descriptors that subtitle producers hand to the render. Only the words the
// render reads are named; the rest travel as they were given.
class NCB_API CNControlBase {
  public:
    struct SubTitleFormatInfoTag {
        int32_t nStructSize;  // 48
        int32_t nCodecType;   // -1 in a subtitle that has received no format
        int32_t nReserved[7];
        int32_t nCanvasWidth;  // the picture size the positions refer to
        int32_t nCanvasHeight;
        int32_t nReserved11;
    };
};

class NCB_API CNSubTitleDecoder {
  public:
    struct OutputAddiInfoTag {
        int32_t nStructSize;  // 140
        int32_t nReserved1;
        int32_t nReserved2;
        CNCodecBase::VideoFormatInfoTag tFormat;  // words 3-28; word 5 the sub-type
        int32_t nPositionX;                       // words 29, 30: where the piece goes
        int32_t nPositionY;
        int32_t nReserved31;
        int32_t nReserved32;
        int32_t nSizeNumerator;  // words 33, 34: rendered text size in rows
        int32_t nSizeDenominator;
    };
};

static_assert(sizeof(CNControlBase::SubTitleFormatInfoTag) == 48);
static_assert(offsetof(CNControlBase::SubTitleFormatInfoTag, nCanvasWidth) == 36);
static_assert(sizeof(CNSubTitleDecoder::OutputAddiInfoTag) == 140);
static_assert(offsetof(CNSubTitleDecoder::OutputAddiInfoTag, tFormat) == 12);
static_assert(offsetof(CNSubTitleDecoder::OutputAddiInfoTag, nPositionX) == 116);
static_assert(offsetof(CNSubTitleDecoder::OutputAddiInfoTag, nSizeNumerator) == 132);

class NCB_API CNHVideoRender {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;
    using SubTitleFormatInfoTag = CNControlBase::SubTitleFormatInfoTag;
    using OutputAddiInfoTag = CNSubTitleDecoder::OutputAddiInfoTag;
    using D3DFORMAT = uint32_t;  // a Direct3D 9 format code (D3DFMT_NV12 is 'NV12')

    struct ConfigInfoTag {
        uint32_t uSize;   // 24
        uint32_t uFlags;  // 0x1 always; 0x2 SSSE3, 0x4 SSE4.1; 0x8 fixed back buffer;
                          // 0x10 mapping sources in pixels; 0x20 flip-ex; 0x40 video
                          // processor service; 0x80 ps_2_0 de-interlacing only;
                          // 0x100 text subtitles only at the exact layer text height
        int32_t nWidth;   // back buffer with flag 0x8
        int32_t nHeight;
        uint32_t uBackgroundColor;  // 0xAARRGGBB
        int32_t nBackBufferCount;   // with flip-ex
    };

    // The device pointer takes pointer width, so the counters start at 24
    // and the size word says 64.
    struct StatInfoTag {
        uint32_t uSize;    // 64
        uint32_t uStatus;  // 0x1 failed, 0x2 flip-ex, 0x4 window differs from back buffer
        int32_t nWidth;    // back buffer
        int32_t nHeight;
        void* pDevice;  // the device's IDirect3DDevice9, for the host's own drawing
        uint32_t uNextBitmapId;
        uint32_t uNextVideoId;
        uint32_t uNextSubTitleId;
        uint32_t uNextLayerId;
        uint32_t uTick;  // GetTickCount at Open or the last ResetStatInfo
        uint32_t uPresented;
        uint32_t uPresentedAsFrame;
        uint32_t uPresentSkipped;  // empty window or occluded
        uint32_t uFrameSkipped;    // SkipPresent
        uint32_t uPresentDeferred;
    };

    // Part of a layer (x, y, width, height) placed onto the back buffer.
    struct LayerMappingInfoTag {
        float fSourceX, fSourceY, fSourceWidth, fSourceHeight;
        float fDestX, fDestY, fDestWidth, fDestHeight;  // 0 size: the source's
        int32_t nFlags;   // 0x1 mirror top-bottom, 0x2 left-right, 0x4 tint, 0x8 dest pixels
        int32_t nRotate;  // whole degrees, clockwise on the screen
        int32_t nAlpha;   // 0-255
        int32_t nTintU, nTintV;
        int32_t nLumaOffset, nUOffset, nVOffset;
    };

    struct FillLayerInfoTag {
        uint32_t uColor;  // 0xAARRGGBB
        float fX, fY, fWidth, fHeight;
    };

    struct DrawLayerBitmapInfoTag {
        int32_t nSourceX, nSourceY, nSourceWidth, nSourceHeight;  // bitmap pixels
        float fDestX, fDestY, fDestWidth, fDestHeight;            // 0 size: the source's
    };

    CNHVideoRender();
    ~CNHVideoRender();  // closes an open render
    CNHVideoRender(const CNHVideoRender&) = delete;
    CNHVideoRender& operator=(const CNHVideoRender&) = delete;

    // ---- Lifecycle ----
    int Init();
    int Uninit();
    int GetConfig(ConfigInfoTag* config);
    int SetConfig(const ConfigInfoTag* config);
    int Open(nplat::HWND window);
    int Close();
    int Update();
    int CheckStatus(int countAsFrame);
    int GetStatInfo(StatInfoTag* info);
    int ResetStatInfo();

    // ---- Presentation ----
    int Present(int countAsFrame);
    int LockPresent();
    int UnlockPresent(int presentNow);
    int SkipPresent();
    int PresentToLayer(unsigned layerId);

    // ---- Bitmaps ----
    int AddBitmap(unsigned id, unsigned flags, unsigned alpha, VideoFormatInfoTag* format,
                  CNCodecBuffer* data);
    int RemoveBitmap(unsigned id);
    int GetBitmapInfo(unsigned id, unsigned* flags, unsigned* alpha, VideoFormatInfoTag* format);

    // ---- Videos ----
    int AddVideo(unsigned id, unsigned flags, D3DFORMAT format, unsigned alpha,
                 VideoFormatInfoTag* maskFormat, CNCodecBuffer* maskData);
    int RemoveVideo(unsigned id);
    int InputVideo(unsigned id, VideoFormatInfoTag* format, CNCodecBuffer* data, int deferUpload);
    int ConfigVideo(unsigned id, unsigned* flags, unsigned* alpha, unsigned* tintU, unsigned* tintV,
                    int* lumaOffset, int* uOffset, int* vOffset, int* lumaGain, int* uGain,
                    int* vGain);
    int GetVideoInfo(unsigned id, int* layerCount, unsigned* flags, D3DFORMAT* format,
                     unsigned* alpha, unsigned* tintU, unsigned* tintV, int* lumaOffset,
                     int* uOffset, int* vOffset, int* lumaGain, int* uGain, int* vGain,
                     int* hasPicture);
    int SetVideoAlphaChannel(unsigned id, VideoFormatInfoTag* maskFormat, CNCodecBuffer* maskData);
    int ClearVideoAlphaChannel(unsigned id);

    // ---- Subtitles ----
    int AddSubTitle(unsigned id, unsigned flags);
    int RemoveSubTitle(unsigned id);
    int InputSubTitle(unsigned id, SubTitleFormatInfoTag* format, OutputAddiInfoTag* info,
                      CNCodecBuffer* data);
    // At most four usable pieces; a fifth is refused (code 1) before anything changes.
    int InputSubTitleMulti(unsigned id, SubTitleFormatInfoTag* format, int count,
                           OutputAddiInfoTag* infos, CNCodecBuffer** datas);
    int GetSubTitleInfo(unsigned id, int* slotCount, unsigned* flags, int* heightCount,
                        int* heights, int* pieceCount);

    // ---- Layers ----
    int AddLayer(unsigned id, unsigned flags, unsigned long colour, float width, float height,
                 unsigned videoId);
    int RemoveLayer(unsigned id);
    int ConfigLayer(unsigned id, unsigned* flags, unsigned long* colour, float* leftMargin,
                    float* rightMargin, float* topMargin, float* bottomMargin, float* textPosition,
                    float* textHeight);
    int GetLayerInfo(unsigned id, unsigned* flags, unsigned long* colour, float* width,
                     float* height, unsigned* videoId, float* leftMargin, float* rightMargin,
                     float* topMargin, float* bottomMargin, float* textPosition, float* textHeight);
    int ChangeLayerSize(unsigned id, float width, float height, int keepContent);
    int FillLayer(unsigned id, int count, FillLayerInfoTag* items);
    int DrawLayerBitmap(unsigned layerId, unsigned bitmapId, int count,
                        DrawLayerBitmapInfoTag* items, int pixelUnits);
    int DrawLayerVideo(unsigned targetLayerId, unsigned videoLayerId, int x, int y);
    int CopyLayerData(unsigned id, VideoFormatInfoTag* format, CNCodecBuffer* data);
    // Slots are 0-3; any other slot is refused (code 1).
    int ConfigVideoLayerPixelSubTitle(unsigned layerId, int slot, unsigned subtitleId, float scale,
                                      int value1, int value2, int value3);
    int ConfigVideoLayerTextSubTitle(unsigned layerId, int slot, unsigned subtitleId);
    int GetVideoLayerPixelSubTitleInfo(unsigned layerId, int slot, unsigned* subtitleId,
                                       float* scale, int* value1, int* value2, int* value3);
    int GetVideoLayerTextSubTitleInfo(unsigned layerId, int slot, unsigned* subtitleId);
    int ConfigLayerMappingInfo(unsigned layerId, int count, LayerMappingInfoTag* mappings);
    int GetLayerMappingNumber(unsigned layerId, int* count);
    int GetLayerMappingInfo(unsigned layerId, int index, LayerMappingInfoTag* mapping);

    // The private state (device interfaces, lists, caches) lives beside the
    // sources so that this header carries no device types.
    struct Impl;

  private:
    Impl* m_pImpl = nullptr;  // made by the first Init, freed with the object
};

static_assert(sizeof(CNHVideoRender::ConfigInfoTag) == 24);
static_assert(offsetof(CNHVideoRender::ConfigInfoTag, uBackgroundColor) == 16);
static_assert(offsetof(CNHVideoRender::ConfigInfoTag, nBackBufferCount) == 20);
static_assert(sizeof(CNHVideoRender::StatInfoTag) == 64);
static_assert(offsetof(CNHVideoRender::StatInfoTag, pDevice) == 16);
static_assert(offsetof(CNHVideoRender::StatInfoTag, uNextBitmapId) == 24);
static_assert(offsetof(CNHVideoRender::StatInfoTag, uTick) == 40);
static_assert(offsetof(CNHVideoRender::StatInfoTag, uPresentDeferred) == 60);
static_assert(sizeof(CNHVideoRender::LayerMappingInfoTag) == 64);
static_assert(offsetof(CNHVideoRender::LayerMappingInfoTag, nFlags) == 32);
static_assert(offsetof(CNHVideoRender::LayerMappingInfoTag, nVOffset) == 60);
static_assert(sizeof(CNHVideoRender::FillLayerInfoTag) == 20);
static_assert(sizeof(CNHVideoRender::DrawLayerBitmapInfoTag) == 32);
static_assert(offsetof(CNHVideoRender::DrawLayerBitmapInfoTag, fDestX) == 16);
