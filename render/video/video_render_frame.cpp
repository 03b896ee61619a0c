// CNVideoRender: frames and texts of an off-screen buffer.
//
// Frames are FrameInfoTag records kept in ascending frame id (background
// frames, id 0 in a buffer with a background, first in the order they were
// added); texts are TextInfoTag records in ascending text id. The caller's
// picture is held by reference and never copied here. Source rectangles are
// moved into buffer coordinates and aligned to the chroma grid of their
// format once, when the frame is added or configured, so every composition
// can use them as they are.
//
// Not here: drawing. A background frame is burnt into the background image
// by the composition (video_render_memory.cpp), or by RemoveFrame when the
// caller asks to keep its picture.
#include <algorithm>
#include <climits>
#include <cstring>

#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;

namespace {

// How a frame's source rectangle is aligned: horizontally to even columns,
// vertically to even rows (level 1) or to multiples of 4 (level 2).
struct Alignment {
    bool even = false;
    int vertical = 0;
};

// Kind and format check of AddFrame / ConfigFrame. False for combinations
// the render cannot draw.
bool CheckFrameFormat(uint32_t flags, int frameId, unsigned alpha, int type, int subType,
                      Alignment* align) {
    *align = {};
    if (flags & kFrameText)
        return frameId != 0 && type == VIDEO_TYPE_YUV && subType == VIDEO_FORMAT_AI44;
    if (flags & kFrameBitmap) {
        return frameId != 0 && ((type == VIDEO_TYPE_YUV && subType == VIDEO_FORMAT_AYUV) ||
                                (type == VIDEO_TYPE_RGB && subType == VIDEO_FORMAT_RGB32));
    }
    if (frameId == 0 && alpha != 255) return false;
    if (type == VIDEO_TYPE_RGB) return subType >= VIDEO_FORMAT_RGB555 && subType <= 260;
    if (type != VIDEO_TYPE_YUV) return false;
    switch (subType) {
        case 1:
        case 4:
        case 14:
            break;
        case 2:
        case 6:
        case 7:
        case 8:
        case 9:
            align->even = true;
            align->vertical = 1;
            break;
        case 3:
        case 10:
        case 11:
        case 12:
        case 13:
            align->even = true;
            break;
        default:
            return false;
    }
    if (flags & kFrameDeinterlace) ++align->vertical;
    return true;
}

int RoundUp4(int v) { return static_cast<int>((int64_t{v} + 3) & ~int64_t{3}); }
int RoundDown4(int v) { return v & ~3; }

// Moves the caller's rectangle (relative to the origin) into buffer
// coordinates, aligns it, and marks an empty result.
void PlaceSource(CNVideoRender::FrameInfoTag* f, const nplat::RECT& src, const Alignment& a) {
    auto& d = f->stFormat;
    d.nRectLeft = f->nOriginX + src.left;
    d.nRectRight = f->nOriginX + src.right;
    d.nRectTop = f->nOriginY + src.top;
    d.nRectBottom = f->nOriginY + src.bottom;
    if (a.even) {
        if (d.nRectLeft & 1) ++d.nRectLeft;
        if (d.nRectRight & 1) --d.nRectRight;
    }
    if (a.vertical == 1) {
        if (d.nRectTop & 1) ++d.nRectTop;
        if (d.nRectBottom & 1) --d.nRectBottom;
    } else if (a.vertical >= 2) {
        d.nRectTop = RoundUp4(d.nRectTop);
        d.nRectBottom = RoundDown4(d.nRectBottom);
    }
    f->uFlags &= ~kFrameEmpty;
    if (d.nRectLeft >= d.nRectRight || d.nRectTop >= d.nRectBottom) f->uFlags |= kFrameEmpty;
}

nplat::RECT WholeSource(const CNCodecBase::VideoFormatInfoTag& f) {
    return {0, 0, f.nRectRight - f.nRectLeft, f.nRectBottom - f.nRectTop};
}

void StoreConvert(CNVideoRender::FrameInfoTag* f, const CNVideoProcessor::ConvertConfigTag* c,
                  unsigned alpha) {
    f->stConvert = c ? *c : kNeutralConvert;
    f->stConvert.nAlpha = static_cast<int32_t>(alpha);
}

}  // namespace

CNVideoRender::FrameInfoTag* CNVideoRender::FrameAt(BufferInfoTag* buffer, int position) {
    return static_cast<FrameInfoTag*>(buffer->pFrameList->GetBinaryData(position));
}

int CNVideoRender::FindFrame(BufferInfoTag* buffer, int frameId, int subId) {
    if (frameId < SHRT_MIN || frameId > SHRT_MAX) return -1;
    const auto id = static_cast<int16_t>(frameId);
    if (frameId == 0 && (buffer->uFlags & kBufferBackground))
        return buffer->pFrameList->FindByUserData1and2(0, id, subId, -1);
    return buffer->pFrameList->FindByUserData1(0, id, -1);
}

void CNVideoRender::MarkFrameChange(BufferInfoTag* buffer, int frameId) {
    if (frameId == 0) {
        buffer->uFlags |= kBufferMainChanged;
        m_nOverlayFailed = 0;  // a changed main frame may try the overlay again
    } else {
        buffer->uFlags |= kBufferRestChanged;
    }
}

int CNVideoRender::AddFrame(int bufferId, int frameId, int subId, VideoFormatInfoTag* format,
                            CNCodecBuffer* data, nplat::RECT* src, nplat::RECT* dst, unsigned flags,
                            unsigned colourKey, unsigned alpha, ConvertConfigTag* convert) {
    Alignment align;
    if (!format || !data || frameId < SHRT_MIN || frameId > SHRT_MAX) return 0;
    if (!CheckFrameFormat(flags, frameId, alpha, format->nCodecType, format->nCodecSubType, &align))
        return 0;

    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b) return 0;
    const bool background = frameId == 0 && (b->uFlags & kBufferBackground);
    int position;
    if (background) {
        if (FindFrame(b, 0, subId) >= 0) return 0;
        position = b->nBgFrameCount;
    } else {
        if (FindFrame(b, frameId, subId) >= 0) return 0;
        CNDataList* list = b->pFrameList;
        position = list->GetParameterCount();
        for (int i = 0; i < list->GetParameterCount(); ++i) {
            if (list->GetUserData1(i) >= frameId) {
                position = i;
                break;
            }
        }
    }

    FrameInfoTag f = {};
    f.uFlags = flags & 0xFFFF;
    f.stFormat = *format;
    f.nOriginX = format->nRectLeft;
    f.nOriginY = format->nRectTop;
    f.nOriginRight = format->nRectRight;
    f.nOriginBottom = format->nRectBottom;
    PlaceSource(&f, src ? *src : WholeSource(*format), align);
    const int sub = f.stFormat.nCodecSubType;
    if (f.stFormat.nCodecType == VIDEO_TYPE_YUV &&
        (sub == VIDEO_FORMAT_IYUV || sub == VIDEO_FORMAT_I420 || sub == VIDEO_FORMAT_YV12)) {
        if (sub == VIDEO_FORMAT_YV12) f.stFormat.nFormatFlags |= FORMAT_FLAG_SWAPPED;
        f.stFormat.nCodecSubType = VIDEO_FORMAT_YUV420;
    }
    f.rcDst = dst ? *dst : nplat::RECT{0, 0, b->nViewWidth, b->nViewHeight};
    f.uColorKey = colourKey;
    f.uAlpha = alpha;
    StoreConvert(&f, convert, alpha);
    f.pData = data;

    try {
        position = b->pFrameList->InsertBinary("", &f, sizeof(f), position, 0);
    } catch (CNException* e) {
        e->FreeMe();
        return 0;
    }
    b->pFrameList->SetUserData1(position, static_cast<int16_t>(frameId));
    b->pFrameList->SetUserData2(position, subId);
    FrameInfoTag* stored = FrameAt(b, position);
    if (background) {
        // An empty background frame has nothing to burn in: it keeps no data.
        if (stored->uFlags & kFrameEmpty)
            stored->pData = nullptr;
        else
            data->AddRef();
        ++b->nBgFrameCount;
    } else {
        data->AddRef();
    }
    MarkFrameChange(b, frameId);
    return 1;
}

int CNVideoRender::ConfigFrame(int bufferId, int frameId, nplat::RECT* src, nplat::RECT* dst,
                               unsigned flags, unsigned colourKey, unsigned alpha,
                               ConvertConfigTag* convert) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b) return 0;
    // A background frame is named by frame id 0 alone here: the first one.
    int i = (frameId == 0 && (b->uFlags & kBufferBackground)) ? (b->nBgFrameCount > 0 ? 0 : -1)
                                                              : FindFrame(b, frameId, 0);
    if (i < 0) return 0;
    FrameInfoTag* f = FrameAt(b, i);
    const uint32_t newFlags = (f->uFlags & ~kFrameConfigMask) | (flags & kFrameConfigMask);
    Alignment align;
    // Only the alignment is taken again: the kind and format were accepted
    // by AddFrame and the kind bits cannot change here.
    if (!CheckFrameFormat(newFlags, frameId, 255, f->stFormat.nCodecType, f->stFormat.nCodecSubType,
                          &align))
        return 0;
    f->uFlags = newFlags;
    nplat::RECT whole = {0, 0, f->nOriginRight - f->nOriginX, f->nOriginBottom - f->nOriginY};
    PlaceSource(f, src ? *src : whole, align);
    f->rcDst = dst ? *dst : nplat::RECT{0, 0, b->nViewWidth, b->nViewHeight};
    f->uColorKey = colourKey;
    f->uAlpha = alpha;
    StoreConvert(f, convert, alpha);
    DropFrameCache(f);
    MarkFrameChange(b, frameId);
    return 1;
}

int CNVideoRender::UpdateFrameData(int bufferId, int frameId, int subId, CNCodecBuffer* data,
                                   unsigned* flags) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b || !data) return 0;
    int i = FindFrame(b, frameId, subId);
    if (i < 0) return 0;
    FrameInfoTag* f = FrameAt(b, i);
    const bool background = frameId == 0 && (b->uFlags & kBufferBackground);
    data->AddRef();
    if (f->pData) f->pData->Release();
    f->pData = data;
    DropFrameCache(f);
    if (flags) {
        const uint32_t bits = kFrameDeinterlace | kFrameAlwaysConvert;
        f->uFlags = (f->uFlags & ~bits) | (*flags & bits);
    }
    if (background && (f->uFlags & kFrameEmpty)) {
        f->pData->Release();
        f->pData = nullptr;
    }
    MarkFrameChange(b, frameId);
    return 1;
}

int CNVideoRender::RemoveFrame(int bufferId, int frameId, int subId, int keepImage) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b) return 0;
    int i = FindFrame(b, frameId, subId);
    if (i < 0) return 0;
    FrameInfoTag* f = FrameAt(b, i);
    const bool background = frameId == 0 && (b->uFlags & kBufferBackground);
    if (background) {
        const bool burnt = !f->pData && !(f->uFlags & kFrameEmpty);
        // Burning in first: a failure leaves the frame and the count as they were.
        if (keepImage && f->pData && !BurnInBackgroundFrame(b, f)) return 0;
        if (!keepImage && burnt) {
            const nplat::RECT& r = f->rcDst;
            int64_t w = int64_t{r.right} - r.left, h = int64_t{r.bottom} - r.top;
            if (w > 0 && h > 0)
                FillBackgroundRect(b, r.left, r.top,
                                   static_cast<int>(std::min<int64_t>(w, INT_MAX)),
                                   static_cast<int>(std::min<int64_t>(h, INT_MAX)));
        }
        --b->nBgFrameCount;
    }
    ReleaseFrame(f);
    b->pFrameList->Remove(i);
    MarkFrameChange(b, frameId);
    return 1;
}

int CNVideoRender::IsFrameExisting(int bufferId, int frameId, int subId) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    return b && FindFrame(b, frameId, subId) >= 0 ? 1 : 0;
}

int CNVideoRender::GetFrameInfo(int bufferId, int frameId, int subId, VideoFormatInfoTag* format,
                                CNCodecBuffer** data, nplat::RECT* src, nplat::RECT* dst,
                                unsigned* flags, unsigned* colourKey, unsigned* alpha,
                                ConvertConfigTag* convert) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b) return 0;
    int i = FindFrame(b, frameId, subId);
    if (i < 0) return 0;
    FrameInfoTag* f = FrameAt(b, i);
    if (format) *format = f->stFormat;
    if (data) {
        if (f->pData) f->pData->AddRef();
        *data = f->pData;
    }
    if (src) {
        src->left = f->stFormat.nRectLeft - f->nOriginX;
        src->right = f->stFormat.nRectRight - f->nOriginX;
        src->top = f->stFormat.nRectTop - f->nOriginY;
        src->bottom = f->stFormat.nRectBottom - f->nOriginY;
    }
    if (dst) *dst = f->rcDst;
    if (flags) *flags = f->uFlags;
    if (colourKey) *colourKey = f->uColorKey;
    if (alpha) *alpha = f->uAlpha;
    if (convert) *convert = f->stConvert;
    return 1;
}

// ---- Texts ----

int CNVideoRender::AddText(int bufferId, int textId, unsigned char* text, int length,
                           unsigned flags, nplat::POINT* position, nplat::HDC style) {
    if (length < 0 || length > kTextMaxBytes || (length > 0 && !text)) return 0;
    if (textId < SHRT_MIN || textId > SHRT_MAX) return 0;
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b) return 0;
    CNDataList* list = b->pTextList;
    if (list->FindByUserData1(0, static_cast<int16_t>(textId), -1) >= 0) return 0;
    int at = list->GetParameterCount();
    for (int i = 0; i < list->GetParameterCount(); ++i) {
        if (list->GetUserData1(i) > textId) {
            at = i;
            break;
        }
    }
    TextInfoTag t = {};
    if (length > 0) std::memcpy(t.chText, text, static_cast<size_t>(length));
    t.nLength = length;
    t.nX = position ? position->x : 0;
    t.nY = position ? position->y : 0;
    t.hStyle = style;
    try {
        at = list->InsertBinary("", &t, sizeof(t), at, 0);
    } catch (CNException* e) {
        e->FreeMe();
        return 0;
    }
    list->SetUserData1(at, static_cast<int16_t>(textId));
    list->SetUserData2(at, static_cast<int32_t>(flags & 0xFFFF));
    b->uFlags |= kBufferRestChanged;
    return 1;
}

int CNVideoRender::RemoveText(int bufferId, int textId) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    if (CheckStopped()) return 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b || textId < SHRT_MIN || textId > SHRT_MAX) return 0;
    int i = b->pTextList->FindByUserData1(0, static_cast<int16_t>(textId), -1);
    if (i < 0) return 0;
    b->pTextList->Remove(i);
    b->uFlags |= kBufferRestChanged;
    return 1;
}

int CNVideoRender::IsTextExisting(int bufferId, int textId) {
    Guard guard(m_lock);
    m_nExtendError = 0;
    BufferInfoTag* b = FindBuffer(bufferId);
    if (!b || textId < SHRT_MIN || textId > SHRT_MAX) return 0;
    return b->pTextList->FindByUserData1(0, static_cast<int16_t>(textId), -1) >= 0 ? 1 : 0;
}
