// CNVideoRender: off-screen buffers and their background images.
//
// A buffer is a BufferInfoTag record in the buffer list; it owns two lists
// made with NewDataList (frames, texts) and, with flag 0x1, an RGB32
// background image. The current display buffer is kept as an index into the
// buffer list, so removing a record in front of it moves the index down.
//
// Background pixels are written only through CNVideoProcessor at the
// render's level. Rectangles handed in by the caller are clipped to the
// image here, because the processor does not check sizes against buffers.
// What this file does not do: compose (the render thread and RenderToMemory
// do), or free cached conversions itself (the cache of the device back-end
// owns them; FreeBuffer gives an entry back).
#include <algorithm>
#include <climits>
#include <cstring>

#include "base/video_format.h"
#include "platform/kernel/sync.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;

namespace {

bool FitsId(int id) { return id >= SHRT_MIN && id <= SHRT_MAX; }

// Clips (x, y, w, h) to 0..width x 0..height; false when nothing is left.
bool ClipRect(int width, int height, int* x, int* y, int* w, int* h) {
    int64_t left = std::max<int64_t>(*x, 0), top = std::max<int64_t>(*y, 0);
    int64_t right = std::min<int64_t>(int64_t{*x} + *w, width);
    int64_t bottom = std::min<int64_t>(int64_t{*y} + *h, height);
    if (left >= right || top >= bottom) return false;
    *x = static_cast<int>(left);
    *y = static_cast<int>(top);
    *w = static_cast<int>(right - left);
    *h = static_cast<int>(bottom - top);
    return true;
}

}  // namespace

CNVideoRender::BufferInfoTag* CNVideoRender::FindBuffer(int id, int* index) {
    if (!FitsId(id)) return nullptr;
    int i = m_listBuffer.FindByUserData1(0, static_cast<int16_t>(id), -1);
    if (i < 0) return nullptr;
    if (index) *index = i;
    return static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(i));
}

void CNVideoRender::DescribeBackground(BufferInfoTag* buffer, VideoFormatInfoTag* format) {
    ncb::InitVideoFormat(format, VIDEO_FORMAT_RGB32, buffer->nBgWidth, buffer->nBgHeight);
}

// A new opaque image of the buffer's background size in the background
// colour; the old image (if any) is left to the caller.
static CNCodecBuffer* NewBackgroundImage(int width, int height, uint32_t colour, int level) {
    if (width < 1 || height < 1 || int64_t{width} * height > (INT_MAX - 8) / 4) return nullptr;
    CNCodecBuffer* image = CNCodecBuffer::CreateBuffer();
    if (!image) return nullptr;
    const int bytes = width * height * 4;
    if (!image->Allocate(bytes + 8, 16, 0)) {
        image->Release();
        return nullptr;
    }
    image->SetDataSize(bytes);
    CNCodecBase::VideoFormatInfoTag f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_RGB32, width, height);
    CNVideoProcessor::FillRectRGB(image, &f, colour, 0, 0, width, height, 0, level);
    return image;
}

int CNVideoRender::CreateBackgroundImage(BufferInfoTag* buffer) {
    buffer->pBgImage = NewBackgroundImage(buffer->nBgWidth, buffer->nBgHeight,
                                          OpaqueRgb(buffer->uBgColor), m_nLevel);
    return buffer->pBgImage ? 1 : 0;
}

int CNVideoRender::ResizeBackgroundImage(BufferInfoTag* buffer, int width, int height) {
    if (width == buffer->nBgWidth && height == buffer->nBgHeight && buffer->pBgImage) return 1;
    const uint32_t colour = OpaqueRgb(buffer->uBgColor);
    CNCodecBuffer* image = NewBackgroundImage(width, height, colour, m_nLevel);
    if (!image) return 0;
    // The new image starts in the background colour, so copying the
    // overlapping top-left part leaves the right and bottom strips painted.
    if (buffer->pBgImage) {
        VideoFormatInfoTag from, to;
        const int w = std::min(width, buffer->nBgWidth), h = std::min(height, buffer->nBgHeight);
        DescribeBackground(buffer, &from);
        ncb::InitVideoFormat(&to, VIDEO_FORMAT_RGB32, width, height);
        from.nRectRight = w;
        from.nRectBottom = h;
        CNVideoProcessor::DirectCopyRGB(buffer->pBgImage, image, &from, &to, 0, 1, m_nLevel);
        buffer->pBgImage->Release();
    }
    buffer->pBgImage = image;
    return 1;
}

int CNVideoRender::FillBackgroundRect(BufferInfoTag* buffer, int x, int y, int width, int height) {
    if (!buffer->pBgImage) return 0;
    if (!ClipRect(buffer->nBgWidth, buffer->nBgHeight, &x, &y, &width, &height)) return 1;
    VideoFormatInfoTag f;
    DescribeBackground(buffer, &f);
    return CNVideoProcessor::FillRectRGB(buffer->pBgImage, &f, OpaqueRgb(buffer->uBgColor), x, y,
                                         width, height, 0, m_nLevel);
}

int CNVideoRender::CreateOffScreenBuffer(int id, int viewWidth, int viewHeight, int bgWidth,
                                         int bgHeight, int viewX, int viewY, unsigned flags,
                                         unsigned bgColour) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    if (id == -1 || !FitsId(id) || FindBuffer(id)) return 0;
    BufferInfoTag b = {};
    b.uFlags = flags & 0xFFFF;
    b.nViewWidth = viewWidth;
    b.nViewHeight = viewHeight;
    b.nBgWidth = bgWidth;
    b.nBgHeight = bgHeight;
    b.nViewX = viewX;
    b.nViewY = viewY;
    b.uBgColor = bgColour;
    b.pFrameList = CNDataList::NewDataList();
    b.pTextList = CNDataList::NewDataList();
    bool ok = b.pFrameList && b.pTextList;
    if (ok && (b.uFlags & kBufferBackground)) ok = CreateBackgroundImage(&b) != 0;
    if (ok) {
        try {
            int i = m_listBuffer.InsertBinary("", &b, sizeof(b), -1, 0);
            m_listBuffer.SetUserData1(i, static_cast<int16_t>(id));
            return 1;
        } catch (CNException* e) {
            e->FreeMe();
        }
    }
    ReleaseBufferContents(&b);
    return 0;
}

int CNVideoRender::ConfigOffScreenBuffer(int id, int viewWidth, int viewHeight, int bgWidth,
                                         int bgHeight, int viewX, int viewY, unsigned flags) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b) return 0;
    if ((b->uFlags & kBufferBackground) && !ResizeBackgroundImage(b, bgWidth, bgHeight)) return 0;
    b->nViewWidth = viewWidth;
    b->nViewHeight = viewHeight;
    b->nBgWidth = bgWidth;
    b->nBgHeight = bgHeight;
    b->nViewX = viewX;
    b->nViewY = viewY;
    b->uFlags = (b->uFlags & ~kBufferConfigMask) | (flags & kBufferConfigMask);
    b->uFlags |= kBufferMainChanged | kBufferRestChanged;
    return 1;
}

void CNVideoRender::DropFrameCache(FrameInfoTag* frame) {
    if (!frame->pCachedData) return;
    FreeBuffer(frame->pCachedData);
    frame->pCachedData = nullptr;
}

void CNVideoRender::ReleaseFrame(FrameInfoTag* frame) {
    DropFrameCache(frame);
    if (frame->pData) frame->pData->Release();
    frame->pData = nullptr;
}

void CNVideoRender::ReleaseBufferContents(BufferInfoTag* buffer) {
    if (buffer->pFrameList) {
        for (int i = 0; i < buffer->pFrameList->GetParameterCount(); ++i)
            ReleaseFrame(FrameAt(buffer, i));
        buffer->pFrameList->FreeMe();
    }
    if (buffer->pTextList) buffer->pTextList->FreeMe();
    if (buffer->pBgImage) buffer->pBgImage->Release();
    buffer->pFrameList = nullptr;
    buffer->pTextList = nullptr;
    buffer->pBgImage = nullptr;
}

void CNVideoRender::ReleaseAllOffScreenBuffers() {
    for (int i = 0; i < m_listBuffer.GetParameterCount(); ++i)
        ReleaseBufferContents(static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(i)));
    m_listBuffer.RemoveAll(0);
    m_nCurrentBuffer = -1;
    m_nLastComposedBuffer = -1;
}

void CNVideoRender::WakeIfWaitingForUnlock() {
    if (m_nPresentState != kPresentWaitUnlock && m_nPresentState != kRetryWaitUnlock) return;
    if (m_hWakeEvent) nplat::SetEvent(m_hWakeEvent);
}

int CNVideoRender::DestroyOffScreenBuffer(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    int index = -1;
    BufferInfoTag* b = FindBuffer(id, &index);
    if (!b) return 0;
    ReleaseBufferContents(b);
    m_listBuffer.Remove(index);
    if (index == m_nCurrentBuffer) {
        m_nCurrentBuffer = -1;
        WakeIfWaitingForUnlock();
    } else if (index < m_nCurrentBuffer) {
        --m_nCurrentBuffer;
    }
    if (index == m_nLastComposedBuffer)
        m_nLastComposedBuffer = -1;
    else if (index < m_nLastComposedBuffer)
        --m_nLastComposedBuffer;
    return 1;
}

int CNVideoRender::IsOffScreenBufferExisting(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    return FindBuffer(id) ? 1 : 0;
}

int CNVideoRender::GetOffScreenBufferInfo(int id, int* viewWidth, int* viewHeight, int* bgWidth,
                                          int* bgHeight, int* viewX, int* viewY, unsigned* flags,
                                          unsigned* bgColour) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b) return 0;
    if (viewWidth) *viewWidth = b->nViewWidth;
    if (viewHeight) *viewHeight = b->nViewHeight;
    if (bgWidth) *bgWidth = b->nBgWidth;
    if (bgHeight) *bgHeight = b->nBgHeight;
    if (viewX) *viewX = b->nViewX;
    if (viewY) *viewY = b->nViewY;
    if (flags) *flags = b->uFlags;
    if (bgColour) *bgColour = b->uBgColor;
    return 1;
}

int CNVideoRender::LockOffScreenBuffer(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || b->nLockCount == INT_MAX) return 0;
    if (b->nLockCount++ == 0) b->uFlags |= kBufferLocked;
    return 1;
}

int CNVideoRender::UnlockOffScreenBuffer(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    int index = -1;
    BufferInfoTag* b = FindBuffer(id, &index);
    // An unbalanced unlock would leave a count that the next lock cannot
    // bring back above zero, so it is refused.
    if (!b || b->nLockCount <= 0) return 0;
    if (--b->nLockCount == 0) {
        b->uFlags &= ~kBufferLocked;
        if (index == m_nCurrentBuffer) WakeIfWaitingForUnlock();
    }
    return 1;
}

int CNVideoRender::SetCurrentDisplayBuffer(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    int index = -1;
    BufferInfoTag* b = nullptr;
    if (id != -1) {
        b = FindBuffer(id, &index);
        if (!b) return 0;
    }
    if (index != m_nCurrentBuffer && m_nCurrentBuffer >= 0) {
        auto* previous = static_cast<BufferInfoTag*>(m_listBuffer.GetBinaryData(m_nCurrentBuffer));
        if (previous && !(previous->uFlags & kBufferKeepCache))
            FreeCachedDataInOffScreenBuffer(m_nCurrentBuffer);
    }
    m_nCurrentBuffer = index;
    if (!b || !(b->uFlags & kBufferLocked)) WakeIfWaitingForUnlock();
    return 1;
}

int CNVideoRender::GetCurrentDisplayBuffer(int* id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (!id) return 0;
    *id = m_nCurrentBuffer >= 0 ? m_listBuffer.GetUserData1(m_nCurrentBuffer) : -1;
    return 1;
}

// ---- Background image ----

int CNVideoRender::ClearOffScreenBufferBackground(int id) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || !b->pBgImage) return 0;
    if (!FillBackgroundRect(b, 0, 0, b->nBgWidth, b->nBgHeight)) return 0;
    b->uFlags |= kBufferMainChanged;
    return 1;
}

int CNVideoRender::ClearOffScreenBufferBackgroundRect(int id, int x, int y, int width, int height) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || !b->pBgImage) return 0;
    if (!FillBackgroundRect(b, x, y, width, height)) return 0;
    b->uFlags |= kBufferMainChanged;
    return 1;
}

int CNVideoRender::CopyOffScreenBufferBackground(int id, int x, int y, VideoFormatInfoTag* format,
                                                 CNCodecBuffer* data) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || !b->pBgImage || !format || !data) return 0;
    ncb::FrameLayout layout;
    if (format->nCodecSubType != VIDEO_FORMAT_RGB32 || !ncb::GetFrameLayout(*format, &layout) ||
        layout.totalBytes > data->GetDataSize())
        return 0;
    VideoFormatInfoTag src = *format;
    int w = src.nRectRight - src.nRectLeft, h = src.nRectBottom - src.nRectTop;
    if (src.nRectLeft < 0 || src.nRectTop < 0 || src.nRectRight > src.nWidth ||
        src.nRectBottom > src.nHeight)
        return 0;
    // Clip the destination to the background and cut the source to match.
    int dx = x, dy = y, dw = w, dh = h;
    if (!ClipRect(b->nBgWidth, b->nBgHeight, &dx, &dy, &dw, &dh)) return 1;
    src.nRectLeft += dx - x;
    src.nRectTop += dy - y;
    src.nRectRight = src.nRectLeft + dw;
    src.nRectBottom = src.nRectTop + dh;
    VideoFormatInfoTag dst;
    DescribeBackground(b, &dst);
    dst.nRectLeft = dx;
    dst.nRectTop = dy;
    if (!CNVideoProcessor::DirectCopyRGB(data, b->pBgImage, &src, &dst, 0, 1, m_nLevel)) return 0;
    b->uFlags |= kBufferMainChanged;
    return 1;
}

int CNVideoRender::MoveOffScreenBufferBackground(int id, int srcX, int srcY, int dstX, int dstY,
                                                 int width, int height) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || !b->pBgImage) return 0;
    // Clip the block so that both its source and its destination lie inside.
    int sx = srcX, sy = srcY, sw = width, sh = height;
    if (!ClipRect(b->nBgWidth, b->nBgHeight, &sx, &sy, &sw, &sh)) return 1;
    int dx = dstX + (sx - srcX), dy = dstY + (sy - srcY), dw = sw, dh = sh;
    if (!ClipRect(b->nBgWidth, b->nBgHeight, &dx, &dy, &dw, &dh)) return 1;
    sx += dx - (dstX + (sx - srcX));
    sy += dy - (dstY + (sy - srcY));
    // Overlapping blocks: copy rows in the direction that reads each row
    // before it is overwritten (memmove handles the columns).
    auto* base = static_cast<uint8_t*>(b->pBgImage->GetAddress());
    const int pitch = b->nBgWidth * 4;
    const bool upward = dy > sy;
    for (int r = 0; r < dh; ++r) {
        int row = upward ? dh - 1 - r : r;
        std::memmove(base + int64_t{dy + row} * pitch + dx * 4,
                     base + int64_t{sy + row} * pitch + sx * 4, static_cast<size_t>(dw) * 4);
    }
    b->uFlags |= kBufferMainChanged;
    return 1;
}

int CNVideoRender::GetOffScreenBufferBackground(int id, int x, int y, int width, int height,
                                                VideoFormatInfoTag* format, CNCodecBuffer** data) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(id);
    if (!b || !b->pBgImage || !format || !data) return 0;
    DescribeBackground(b, format);
    format->nRectLeft = x;
    format->nRectRight = x + width;
    format->nRectTop = y;
    format->nRectBottom = y + height;
    b->pBgImage->AddRef();
    *data = b->pBgImage;
    return 1;
}
