// CNVideoRender: shows a described scene in a host window, or composes it
// into memory. The host does not hand over finished pictures: it builds
// off-screen buffers, each a canvas of a view size with an optional
// background image, an ordered list of frames (video pictures, AI44 text
// bitmaps, AYUV / RGB32 bitmaps with alpha or colour key) and an ordered list
// of GDI texts. One buffer is the current display buffer; Present asks the
// render thread to compose it into the window through the software
// DirectDraw of the platform layer, and RenderToMemory composes any buffer
// into a 32-bit RGB picture without a device.
//
// Z-order: frames by ascending frame id, texts by ascending text id, every
// text above every frame. In a buffer with a background (flag 0x1) frame id 0
// names the background frames, told apart by their sub id; they are burnt
// into the background image before each composition.
//
// Status (StatInfoTag::nStatus): 0 not composed yet, 1 running, 2 failed
// (devices closed, re-opened on the next attempt), 3 device lost, 4 stopped.
// Status 4 is sticky until Uninit + Init; operations marked (S) below then
// fail with extended error 2.
// Extended error codes (GetExtendErrorCode, cleared on entry to every public
// operation): 0 none, 2 stopped, 3 no CPU information, 4 no SSE2, 5 Open: the
// window already has a render or its procedure could not be replaced, 6
// device set-up failed in Open or Reset.
//
// Ownership: AddFrame and UpdateFrameData take one reference to the data
// buffer and release it when the frame is removed, its data replaced, a
// background frame burnt in, or the render closed. GetFrameInfo,
// GetOffScreenBufferBackground and RenderToMemory hand out buffers with one
// reference that the caller releases. A text's style DC stays the host's and
// must stay valid while the text exists; the render only reads its colours,
// background mode and font. Events given to Open / ConfigNotifyEvent stay the
// host's; the render only sets them.
//
// Thread safety: every public operation may be called from any thread; they
// serialise on the render's lock. Init, Uninit, Open, Close and destruction
// belong to the thread that owns the object and must not overlap.
//
// Linux has no safe way to kill a thread. Where Windows would terminate a
// render thread that does not stop (Close after 30 s, a failed Open), this
// render detaches it instead, keeps the objects the thread may still touch
// alive (it never frees them), and reports the failure.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/base_services.h"
#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/export.h"
#include "ncodecbase/video_processor.h"
#include "ncodecbase/win_types.h"

namespace nplat {
class Thread;
class IDirectDraw;
class IDirectDraw4;
class IDirectDrawSurface;
class IDirectDrawClipper;
class IDirect3D9;
class IDirect3DDevice9;
class IDirect3DSurface9;
class IDirectXVideoProcessorService;
}  // namespace nplat

class NCB_API CNVideoRender {
  public:
    using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;
    using ConvertConfigTag = CNVideoProcessor::ConvertConfigTag;

    // 16 words; Init writes the defaults, SetConfig copies all 64 bytes.
    struct ConfigInfoTag {
        uint32_t nSize;             // 64
        uint32_t uRenderFlags;      // 0x18F: 0x2 D3D, 0x4 DXVA2, 0x10 rates, 0x40 notify
                                    // path changes, 0x80 overlay, 0x100 D3D software
        uint32_t nFrameRate;        // composition cap per second, 0 none (60)
        uint32_t nRetryClosedMs;    // retry after status 2 (1000)
        uint32_t nRetryMs;          // retry after other failures (50)
        uint32_t nCacheAgeSeconds;  // free cache entries live this long (3)
        uint32_t nCacheByteLimit;   // bytes of free cache entries, 0 no limit
        uint32_t uFormatFlags[8];   // IYUV I420 YV12 NV12 YUY2 YVYU UYVY VYUY (31 each)
        uint32_t uOverlayColorKey;  // 0x00RRGGBB, taken at Open (0x100010)
    };

    struct StatInfoTag {
        uint32_t nSize;  // 72
        uint32_t nStatus;
        uint32_t uOutputPath;  // 1 DDraw, 2 D3D, 4 DXVA2, 0x8002 D3D software
        uint32_t uDDrawError;
        uint32_t uD3DError;
        uint32_t uDxva2Error;
        uint64_t uPresentCount;
        uint64_t uRenderCount;
        uint64_t uRenderSuccess;
        uint64_t uRenderFail;
        uint32_t uPresentRate;         // last whole second, x1000
        uint32_t uPresentRateAverage;  // since Open, x1000 (in GetStatInfo's copy)
        uint32_t uRenderRate;
        uint32_t uRenderRateAverage;
    };

    // One off-screen buffer (the record of the buffer list). The three
    // pointer words take pointer width, in their original order.
    struct BufferInfoTag {
        uint32_t uFlags;
        int32_t nViewWidth;
        int32_t nViewHeight;
        int32_t nBgWidth;
        int32_t nBgHeight;
        int32_t nViewX;
        int32_t nViewY;
        uint32_t uBgColor;  // packed YUV, as CNVideoProcessor::YUV2RGB takes it
        int32_t nBgFrameCount;
        CNDataList* pFrameList;   // FrameInfoTag records; user 1 frame id, user 2 sub id
        CNDataList* pTextList;    // TextInfoTag records; user 1 text id, user 2 text flags
        CNCodecBuffer* pBgImage;  // RGB32, bgWidth x bgHeight, or null
        int32_t nLockCount;
    };

    // One frame (the record of a buffer's frame list).
    struct FrameInfoTag {
        uint32_t uFlags;
        VideoFormatInfoTag stFormat;  // rectangle in buffer coordinates
        CNCodecBuffer* pData;         // one reference held; null once burnt in
        int32_t nOriginX;
        int32_t nOriginY;
        int32_t nOriginRight;
        int32_t nOriginBottom;
        nplat::RECT rcDst;           // view coordinates
        uint32_t uColorKey;          // 0x00RRGGBB, bitmaps with flag 0x200
        uint32_t uAlpha;             // 255 opaque
        ConvertConfigTag stConvert;  // last word replaced by the alpha
        void* pCachedData;           // cache entry holding the converted frame, or null
    };

    struct TextInfoTag {
        unsigned char chText[256];  // as given, not terminated
        int32_t nLength;            // bytes
        int32_t nX;
        int32_t nY;
        nplat::HDC hStyle;
    };

    // One display device (at most 8).
    struct MonitorInfoTag {
        uint32_t uDDrawFlags;
        uint32_t uD3DFlags;
        nplat::HMONITOR hMonitor;
        nplat::RECT rcMonitor;   // screen coordinates
        int32_t nPrimaryFormat;  // VIDEO_FORMAT_RGB555 / 565 / 24 / 32
        nplat::GUID guid;        // all zero: the default device
        int32_t nAdapter;
        uint32_t uDxva2Formats[8];
        nplat::IDirectDraw* pDDraw;
        nplat::IDirectDraw4* pDDraw4;
        nplat::IDirectDrawSurface* pPrimary;
        nplat::IDirectDrawClipper* pClipper;
        nplat::IDirect3DDevice9* pD3DDevice;
        nplat::IDirect3DSurface9* pBackBuffer;
        nplat::IDirectXVideoProcessorService* pVideoService;
    };

    // An entry of the surface / picture cache (11 words, the object last).
    struct CachedBufferInfoTag {
        int32_t nMonitor;
        int32_t nKind;  // 1 memory picture, 2 DDraw surface, 4 / 8 D3D surfaces
        int32_t nWidth;
        int32_t nHeight;
        int32_t nSubType;
        int32_t nSystemMemory;
        int32_t nRowBytes;
        int32_t nRowPad;
        int32_t nBytesPerPixel;
        int32_t nOffset;  // of the usable area
        void* pObject;    // CNCodecBuffer* or a surface; the handle of the entry
    };

    CNVideoRender();
    ~CNVideoRender();
    CNVideoRender(const CNVideoRender&) = delete;
    CNVideoRender& operator=(const CNVideoRender&) = delete;

    // ---- Lifecycle (owner thread) ----
    // Identifies the processor level and writes the configuration defaults;
    // errors 3 and 4.
    int Init();
    // Closes an open render, then forgets Init.
    void Uninit();
    // Starts the render on a window (one render per window). notifyEvent may
    // be null; windowColour (0x00RRGGBB) fills the window while no display
    // buffer is current. Empties the scene. Errors 5 and 6.
    int Open(nplat::HWND window, void* notifyEvent, int threadPriority, unsigned windowColour);
    // Stops the thread, gives the window its procedure back and releases the
    // whole scene. Never fails.
    void Close();
    // (S) Re-creates the devices; failure stops the render (status 4, error 6).
    int Reset();
    // (S) Asks for a composition: countFrame 1 counts a present; immediate
    // bypasses the frame-rate cap. Returns at once.
    int Present(int countFrame, int immediate);
    int ConfigNotifyEvent(void* event);
    // (S) *count is capped at the monitor count; rects receive the monitor
    // rectangles; flag0 / flag1 bits 0 and 1 of the capability word.
    int GetMonitorInfoA(int* count, nplat::RECT* rects, int* flag0, int* flag1);

    // ---- Configuration and statistics (any thread) ----
    int SetConfig(const ConfigInfoTag* config);
    int GetConfig(ConfigInfoTag* config);
    int GetStatInfo(StatInfoTag* stat);
    int ResetStatInfo();       // (S)
    int ClearStatErrorCode();  // (S)
    int GetExtendErrorCode();

    // ---- Off-screen buffers ----
    int CreateOffScreenBuffer(int id, int viewWidth, int viewHeight, int bgWidth, int bgHeight,
                              int viewX, int viewY, unsigned flags, unsigned bgColour);  // (S)
    int ConfigOffScreenBuffer(int id, int viewWidth, int viewHeight, int bgWidth, int bgHeight,
                              int viewX, int viewY, unsigned flags);  // (S)
    int DestroyOffScreenBuffer(int id);                               // (S)
    int IsOffScreenBufferExisting(int id);
    int GetOffScreenBufferInfo(int id, int* viewWidth, int* viewHeight, int* bgWidth, int* bgHeight,
                               int* viewX, int* viewY, unsigned* flags, unsigned* bgColour);
    // (S) A locked buffer is neither composed nor rendered to memory. An
    // unlock of an unlocked buffer is refused (returns 0).
    int LockOffScreenBuffer(int id);
    int UnlockOffScreenBuffer(int id);
    int SetCurrentDisplayBuffer(int id);  // (S) -1: none
    int GetCurrentDisplayBuffer(int* id);

    // ---- Background image (buffers with flag 0x1; all (S)) ----
    int ClearOffScreenBufferBackground(int id);
    int ClearOffScreenBufferBackgroundRect(int id, int x, int y, int width, int height);
    int CopyOffScreenBufferBackground(int id, int x, int y, VideoFormatInfoTag* format,
                                      CNCodecBuffer* data);
    int MoveOffScreenBufferBackground(int id, int srcX, int srcY, int dstX, int dstY, int width,
                                      int height);
    int GetOffScreenBufferBackground(int id, int x, int y, int width, int height,
                                     VideoFormatInfoTag* format, CNCodecBuffer** data);

    // ---- Frames (all (S) but the two queries) ----
    // flags: exactly one of 0x1 video, 0x2 text (AI44), 0x4 bitmap (AYUV or
    // RGB32); 0x8, 0x10, 0x100, 0x200, 0x3000 rotation, 0x4000, 0x8000 as in
    // FrameInfoTag. src is relative to format's rectangle, dst in view
    // coordinates; convert may be null.
    int AddFrame(int bufferId, int frameId, int subId, VideoFormatInfoTag* format,
                 CNCodecBuffer* data, nplat::RECT* src, nplat::RECT* dst, unsigned flags,
                 unsigned colourKey, unsigned alpha, ConvertConfigTag* convert);
    int ConfigFrame(int bufferId, int frameId, nplat::RECT* src, nplat::RECT* dst, unsigned flags,
                    unsigned colourKey, unsigned alpha, ConvertConfigTag* convert);
    int UpdateFrameData(int bufferId, int frameId, int subId, CNCodecBuffer* data, unsigned* flags);
    int RemoveFrame(int bufferId, int frameId, int subId, int keepImage);
    int IsFrameExisting(int bufferId, int frameId, int subId);
    int GetFrameInfo(int bufferId, int frameId, int subId, VideoFormatInfoTag* format,
                     CNCodecBuffer** data, nplat::RECT* src, nplat::RECT* dst, unsigned* flags,
                     unsigned* colourKey, unsigned* alpha, ConvertConfigTag* convert);

    // ---- Texts (all (S) but the query) ----
    // flags: 0x1 UTF-16, 0x2 UTF-8 (else the ANSI code page), 0x4 not in
    // RenderToMemory, 0x8 hidden. A text longer than 256 bytes is refused.
    int AddText(int bufferId, int textId, unsigned char* text, int length, unsigned flags,
                nplat::POINT* position, nplat::HDC style);
    int RemoveText(int bufferId, int textId);
    int IsTextExisting(int bufferId, int textId);

    // ---- Render to memory and text drawing ----
    // (S) Composes a buffer into a new RGB32 picture (caller releases it);
    // wholeBackground 1 returns the whole background image only. On failure
    // *picture is null and format zeroed. Holds the lock only while it copies
    // the scene.
    int RenderToMemory(int bufferId, VideoFormatInfoTag* format, CNCodecBuffer** picture,
                       int wholeBackground);
    // A picture of the sub-type with rows padded to 16 bytes, in reuse when
    // given, else in a new buffer; null on failure.
    CNCodecBuffer* AllocateCodecBufferAlone(int subType, int width, int height,
                                            VideoFormatInfoTag* format, int normalise,
                                            CNCodecBuffer* reuse);
    // Scales srcRect of src onto dstRect of dst through the resize tables
    // kept for the life of the open render.
    int VideoProcessResize(VideoFormatInfoTag* srcFormat, CNCodecBuffer* src, nplat::RECT* srcRect,
                           VideoFormatInfoTag* dstFormat, CNCodecBuffer* dst, nplat::RECT* dstRect);
    // Draws a text list on a device surface (DirectDraw unless direct3D) or
    // into an RGB32 picture.
    int RenderDrawText(int direct3D, void* surface, CNDataList* texts, int adjust);
    int RenderDrawText_Memory(CNCodecBuffer* picture, VideoFormatInfoTag* format,
                              CNDataList* texts);

  private:
    static constexpr int kMaxMonitors = 8;

    // Intermediate pictures of one frame's conversion chain.
    struct WorkPictures;
    // A private copy of a buffer for composing outside the lock.
    struct DupBufferInfo {
        BufferInfoTag stBuffer;
        CNDataList* pFrames;
        CNDataList* pTexts;
    };
    // One monitor the window overlaps.
    struct WindowMonitorTag {
        int32_t nMonitor;
        nplat::RECT rcScreen;  // visible part, screen coordinates
        nplat::RECT rcWindow;  // the same in window coordinates
    };
    // The Direct3D present parameters that the back-ends use.
    struct PresentParamsTag {
        uint32_t uBackBufferWidth;
        uint32_t uBackBufferHeight;
        uint32_t uBackBufferFormat;
        uint32_t uBackBufferCount;
        uint32_t uSwapEffect;
        nplat::HWND hDeviceWindow;
        int32_t nWindowed;
        uint32_t uFlags;
        uint32_t uPresentationInterval;
    };

    // ---- Scene model helpers (any thread, lock held) ----
    BufferInfoTag* FindBuffer(int id, int* index = nullptr);
    int FindFrame(BufferInfoTag* buffer, int frameId, int subId);
    FrameInfoTag* FrameAt(BufferInfoTag* buffer, int position);
    int CheckStopped();
    int CreateBackgroundImage(BufferInfoTag* buffer);
    int ResizeBackgroundImage(BufferInfoTag* buffer, int width, int height);
    int FillBackgroundRect(BufferInfoTag* buffer, int x, int y, int width, int height);
    void DescribeBackground(BufferInfoTag* buffer, VideoFormatInfoTag* format);
    int BurnInBackgroundFrames(BufferInfoTag* buffer);
    int BurnInBackgroundFrame(BufferInfoTag* buffer, FrameInfoTag* frame);
    void DropFrameCache(FrameInfoTag* frame);
    void ReleaseFrame(FrameInfoTag* frame);
    void ReleaseBufferContents(BufferInfoTag* buffer);
    void ReleaseAllOffScreenBuffers();
    void WakeIfWaitingForUnlock();
    void MarkFrameChange(BufferInfoTag* buffer, int frameId);

    // ---- Render to memory (caller's thread; lock held only in Dup) ----
    DupBufferInfo* RenderMemoryDupBufferInfo(BufferInfoTag* buffer);
    void RenderMemoryFreeDupBuffer(DupBufferInfo* dup);
    CNCodecBuffer* RenderMemory_NormalMode(DupBufferInfo* dup, VideoFormatInfoTag* format);
    int RenderMemory_SelectBGMode(DupBufferInfo* dup, CNCodecBuffer* picture,
                                  VideoFormatInfoTag* format);
    int RenderMemoryDrawFrames(DupBufferInfo* dup, CNCodecBuffer* picture,
                               VideoFormatInfoTag* format);
    int RenderMemoryDrawVideoFrame(FrameInfoTag* frame, CNCodecBuffer* target,
                                   VideoFormatInfoTag* targetFormat);
    int RenderMemoryDrawText(FrameInfoTag* frame, CNCodecBuffer* target,
                             VideoFormatInfoTag* targetFormat);
    int RenderMemoryDrawBitmap(FrameInfoTag* frame, CNCodecBuffer* target,
                               VideoFormatInfoTag* targetFormat);
    // Places an RGB32 picture (its rectangle) onto the target at the frame's
    // destination: clip, scale, then copy or blend by nMode / uAlpha / key.
    int RenderMemoryPlaceRGB32(CNCodecBuffer* source, VideoFormatInfoTag* sourceFormat,
                               const nplat::RECT& dst, CNCodecBuffer* target,
                               VideoFormatInfoTag* targetFormat, int mode, unsigned alpha,
                               unsigned colourKey);
    int RenderConvertFrameToRGB32(FrameInfoTag* frame, int rotateInRgb, WorkPictures* work,
                                  CNCodecBuffer** out, VideoFormatInfoTag* outFormat);
    int RenderDrawBackground(BufferInfoTag* buffer);
    int RenderDrawBackground_RGB32(FrameInfoTag* frame, CNCodecBuffer* source,
                                   VideoFormatInfoTag* sourceFormat, BufferInfoTag* buffer);
    int RenderDrawBackground_PostProcess(FrameInfoTag* frame, BufferInfoTag* buffer);
    void FreeAllResizeDependData();

    // ---- Render loop (render thread unless noted) ----
    static nplat::DWORD VideoRenderThreadProcStub(void* render);
    void VideoRenderThread();
    int RenderFrame();
    int RenderFrameInner(BufferInfoTag* buffer);
    int RenderDecideDisplayWindowProp();
    int RenderCheckDeviceIfLose();
    void RenderProcessDeviceLose();
    int RenderRestoreDevice();
    void RenderProcessFailRetry();
    void RenderFreeUnneedFrameCachedData(BufferInfoTag* buffer);
    void ChangeStatus(uint32_t status);  // any thread
    void StatusFlagInit(uint32_t path);
    void StatusFlagAddOutFormat(uint32_t bits);
    void StatusFlagNotify();
    void CheckAndReleaseBufferInternal();
    int CheckCachedBufferIfLose();
    void ClearAllBufferFailFlag();  // any thread
    // Window procedure (the window's thread).
    static nplat::LRESULT DisplayWindowProcStub(nplat::HWND window, nplat::UINT message,
                                                nplat::WPARAM wParam, nplat::LPARAM lParam);
    nplat::LRESULT DisplayWindowProc(nplat::HWND window, nplat::UINT message, nplat::WPARAM wParam,
                                     nplat::LPARAM lParam);

    // ---- Device back-ends (render thread, or Open / Reset / Close) ----
    int InitDevice();
    void UninitDevice();
    int OpenDevice_DDraw(int monitor);
    void CloseDevice_DDraw(int monitor);
    int OpenDevice_D3D(int monitor);
    void CloseDevice_D3D(int monitor);
    static int DDEnumCallbackEx(nplat::GUID* guid, char* description, char* name, void* context,
                                nplat::HMONITOR monitor);
    int DDEnumCallbackExProc(nplat::GUID* guid, char* description, char* name,
                             nplat::HMONITOR monitor);
    void* AllocateBuffer(int kind, int subType, int width, int height, int systemMemory,
                         int monitor);
    void FreeBuffer(void* handle);  // any thread, lock held
    CNCodecBuffer* LockBuffer(void* handle, nplat::RECT& rect, VideoFormatInfoTag* format,
                              int flags);
    void UnlockBuffer(void* handle);
    int CheckBuffer(void* handle);
    void AdjustBufferRect(void* handle, nplat::RECT* rect);
    void AdjustBufferPoint(void* handle, nplat::POINT* point);
    void ReleaseBuffer(int kindMask);
    int RestoreBuffer();
    void FreeCachedDataInOffScreenBuffer(int index);  // any thread, lock held
    void FreeCachedDataInOffScreenBufferAll();
    int RenderDecideSurfaceFormat_DDraw(int monitor, VideoFormatInfoTag* format);
    int RenderDecideSurfaceFormat_D3D(int monitor, VideoFormatInfoTag* format);
    int RenderNormalMode_DDraw(BufferInfoTag* buffer);
    int RenderSelectBGMode_DDraw(BufferInfoTag* buffer);
    int RenderDrawVideoFrame_DDraw(FrameInfoTag* frame, void* surface);
    int RenderDrawVideoFrameJustOne_DDraw(BufferInfoTag* buffer, FrameInfoTag* frame);
    int RenderDrawText_DDraw(FrameInfoTag* frame, void* surface);
    int RenderDrawBitmap_DDraw(FrameInfoTag* frame, void* surface);
    int FillBackground_DDraw();
    // Puts the composition surface's visible parts on each overlapped monitor.
    int PutCompositionOnMonitors(void* composition);
    int RenderDrawMainVideoFrame_DDrawOverlap(BufferInfoTag* buffer, FrameInfoTag* frame);
    int FillBackgroundColorKey_DDrawOverlap(void* surface);
    CNCodecBuffer* LockOverlapSurface(VideoFormatInfoTag* format);
    void UnlockOverlapSurface();
    // The Direct3D family: never selected (no capability bit enables it);
    // each returns its "cannot serve" result.
    int RenderNormalMode_D3D(BufferInfoTag* buffer);
    int RenderSelectBGMode_D3D(BufferInfoTag* buffer);
    int RenderDrawVideoFrame_D3D(FrameInfoTag* frame);
    int RenderDrawText_D3D(FrameInfoTag* frame);
    int RenderDrawBitmap_D3D(FrameInfoTag* frame);
    int RenderNormalMode_D3DSoft(BufferInfoTag* buffer);
    int RenderSelectBGMode_D3DSoft(BufferInfoTag* buffer);
    int RenderDrawVideoFrame_D3DSoft(FrameInfoTag* frame);
    int RenderDrawText_D3DSoft(FrameInfoTag* frame);
    int RenderDrawBitmap_D3DSoft(FrameInfoTag* frame);
    int LockD3DBackupSurface(int monitor);
    void UnlockD3DBackupSurface(int monitor);
    void ReleaseAllD3DBackupSurface();
    int CheckYUVSupport_DXVA2(int monitor);
    uint32_t DecideDXVA2_YUVFlag(int format, uint32_t uses);
    int RenderDecideMainVideoFormat_DXVA2(FrameInfoTag* frame);
    int RenderDecideTextFormat_DXVA2(FrameInfoTag* frame);
    int RenderNormalMode_DXVA2(BufferInfoTag* buffer);
    int RenderPrepareMainVideoFrame_DXVA2(FrameInfoTag* frame);
    int RenderPrepareSubVideoFrame_DXVA2(FrameInfoTag* frame);
    int RenderPrepareText_DXVA2(FrameInfoTag* frame);
    int RenderPrepareBitmap_DXVA2(FrameInfoTag* frame);

    // ---- State, in the order the object keeps it ----
    int m_nMonitorCount = 0;
    uint32_t m_uCapability = 0;
    MonitorInfoTag m_monitors[kMaxMonitors] = {};
    nplat::IDirect3D9* m_pD3D = nullptr;
    PresentParamsTag m_stPresentParams = {};
    int m_nCurrentBuffer = -1;
    CNDataList m_listBuffer;  // BufferInfoTag; user 1 buffer id
    CNDataList m_listCache;   // CachedBufferInfoTag; user 1 age or -1, user 2 bytes
    uint32_t m_uComposeFlags = 0;
    int m_nLastComposedBuffer = -1;
    CNDataList m_listResize;  // 36-byte keys; user 2 -> the tables' CNCodecBuffer
    int m_nInited = 0;
    int m_nOpened = 0;
    int m_nLevel = 0;
    int m_nExtendError = 0;
    ConfigInfoTag m_stPendingConfig = {};
    ConfigInfoTag m_stActiveConfig = {};
    StatInfoTag m_stStat = {};
    uint32_t m_uOutputPath = 0;
    nplat::HWND m_hWindow = nullptr;
    nplat::WNDPROC m_pPrevWindowProc = nullptr;
    nplat::HANDLE m_hNotifyEvent = nullptr;
    int m_nThreadPriority = 0;
    uint32_t m_uWindowColor = 0;
    CNLock m_lock;

    // Render loop.
    nplat::Thread* m_pThread = nullptr;
    nplat::HANDLE m_hQuitEvent = nullptr;
    nplat::HANDLE m_hWakeEvent = nullptr;
    int m_nPresentState = 0;  // 0 idle .. 5 retry waiting for unlock
    uint32_t m_uSecondStartTick = 0;
    uint32_t m_uLastAttemptTick = 0;
    uint32_t m_uSecondPresents = 0;
    uint32_t m_uSecondAttempts = 0;
    uint32_t m_uSecondsCounted = 0;
    uint64_t m_uTotalPresents = 0;
    uint64_t m_uTotalAttempts = 0;
    uint32_t m_uFrameInterval = 0;
    uint32_t m_uBuildingPath = 0;

    // Window geometry.
    nplat::RECT m_rcClientScreen = {};
    int m_nClientWidth = 0;
    int m_nClientHeight = 0;
    int m_nWindowMonitorCount = 0;
    WindowMonitorTag m_windowMonitors[kMaxMonitors] = {};
    int m_nMainMonitor = -1;

    // Overlay.
    int m_nOverlayAllowed = 0;
    int m_nOverlayFailed = 0;
    int m_nOverlayTried = 0;
    nplat::IDirectDrawSurface* m_pOverlay = nullptr;
    int m_nOverlayMonitor = -1;
    int m_nOverlayFormat = 0;
    int m_nOverlayWidth = 0;
    int m_nOverlayHeight = 0;
    int m_nGeometryChanged = 0;
    int m_nRepaint = 0;
    int m_nOverlayRectChanged = 0;
    int m_nRestChanged = 0;
    int m_nOverlayShown = 0;
    uint32_t m_uColorKey555 = 0;
    uint32_t m_uColorKey565 = 0;
};

static_assert(sizeof(CNVideoRender::ConfigInfoTag) == 64);
static_assert(offsetof(CNVideoRender::ConfigInfoTag, uFormatFlags) == 28);
static_assert(offsetof(CNVideoRender::ConfigInfoTag, uOverlayColorKey) == 60);
static_assert(sizeof(CNVideoRender::StatInfoTag) == 72);
static_assert(offsetof(CNVideoRender::StatInfoTag, uDxva2Error) == 20);
static_assert(offsetof(CNVideoRender::StatInfoTag, uPresentCount) == 24);
static_assert(offsetof(CNVideoRender::StatInfoTag, uRenderFail) == 48);
static_assert(offsetof(CNVideoRender::StatInfoTag, uPresentRate) == 56);
static_assert(offsetof(CNVideoRender::StatInfoTag, uRenderRateAverage) == 68);
static_assert(offsetof(CNVideoRender::BufferInfoTag, nBgFrameCount) == 32);
static_assert(offsetof(CNVideoRender::BufferInfoTag, pFrameList) == 40);
static_assert(offsetof(CNVideoRender::BufferInfoTag, pBgImage) == 56);
static_assert(offsetof(CNVideoRender::BufferInfoTag, nLockCount) == 64);
static_assert(sizeof(CNVideoRender::BufferInfoTag) == 72);
static_assert(offsetof(CNVideoRender::FrameInfoTag, stFormat) == 4);
static_assert(offsetof(CNVideoRender::FrameInfoTag, pData) == 112);
static_assert(offsetof(CNVideoRender::FrameInfoTag, nOriginX) == 120);
static_assert(offsetof(CNVideoRender::FrameInfoTag, rcDst) == 136);
static_assert(offsetof(CNVideoRender::FrameInfoTag, uColorKey) == 152);
static_assert(offsetof(CNVideoRender::FrameInfoTag, stConvert) == 160);
static_assert(offsetof(CNVideoRender::FrameInfoTag, pCachedData) == 208);
static_assert(sizeof(CNVideoRender::FrameInfoTag) == 216);
static_assert(offsetof(CNVideoRender::TextInfoTag, nLength) == 256);
static_assert(offsetof(CNVideoRender::TextInfoTag, hStyle) == 272);
static_assert(sizeof(CNVideoRender::TextInfoTag) == 280);
static_assert(offsetof(CNVideoRender::CachedBufferInfoTag, pObject) == 40);
static_assert(sizeof(CNVideoRender::CachedBufferInfoTag) == 48);
