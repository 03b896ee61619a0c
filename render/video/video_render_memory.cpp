// CNVideoRender: composing an off-screen buffer into a 32-bit RGB picture in
// memory, and the pieces the device back-ends share with it: the conversion
// chain of a frame to RGB32, clipping and scaling onto a target, the cached
// resize tables, the intermediate pictures, and the burn-in of background
// frames.
//
// RenderToMemory holds the render lock only while it checks the buffer,
// burns in background frames and copies the scene; the copy holds its own
// references to the frame pictures, so the host may change the scene while
// the picture is composed. The resize tables are shared with the render
// thread, and a table set serves one caller at a time, so a scaling step
// takes the lock for its own short run.
//
// Every frame picture is checked against its buffer's size before a
// processor call, because the processor trusts its descriptors. Not here:
// GDI text drawing (video_render_text.cpp) and anything device-bound.
#include <algorithm>
#include <climits>
#include <cstring>

#include "base/video_format.h"
#include "platform/kernel/heap.h"
#include "render/video/video_render_internal.h"

using namespace ncb::render_video;
using Guard = std::lock_guard<CNLock>;
using VideoFormatInfoTag = CNCodecBase::VideoFormatInfoTag;

namespace {

// The key of a resize table set, followed in the record by its buffer (a
// pointer does not fit the 32-bit user value of a record).
struct ResizeKey {
    int32_t words[9];
};
struct ResizeRecord {
    ResizeKey key;
    CNCodecBuffer* tables;
};

// The picture the descriptor describes lies inside the buffer, and its
// rectangle inside the picture.
bool PictureFits(const VideoFormatInfoTag& f, CNCodecBuffer* data) {
    ncb::FrameLayout layout;
    if (!data || !ncb::GetFrameLayout(f, &layout)) return false;
    if (layout.totalBytes > data->GetDataSize()) return false;
    return f.nRectLeft >= 0 && f.nRectTop >= 0 && f.nRectLeft <= f.nRectRight &&
           f.nRectTop <= f.nRectBottom && f.nRectRight <= f.nWidth && f.nRectBottom <= f.nHeight;
}

int RectWidth(const VideoFormatInfoTag& f) { return f.nRectRight - f.nRectLeft; }
int RectHeight(const VideoFormatInfoTag& f) { return f.nRectBottom - f.nRectTop; }

}  // namespace

// Two intermediate pictures used in turn by the conversion chain; released
// together when the frame is drawn.
struct CNVideoRender::WorkPictures {
    CNCodecBuffer* slot[2] = {nullptr, nullptr};
    int next = 0;
    ~WorkPictures() {
        for (CNCodecBuffer* b : slot)
            if (b) b->Release();
    }
    // The next slot, (re)allocated for the picture; null when memory runs out.
    CNCodecBuffer* Take(CNVideoRender* render, int subType, int width, int height,
                        VideoFormatInfoTag* format) {
        CNCodecBuffer*& b = slot[next];
        next ^= 1;
        CNCodecBuffer* got = render->AllocateCodecBufferAlone(subType, width, height, format, 0, b);
        if (!b) b = got;
        return got;
    }
};

CNCodecBuffer* CNVideoRender::AllocateCodecBufferAlone(int subType, int width, int height,
                                                       VideoFormatInfoTag* format, int normalise,
                                                       CNCodecBuffer* reuse) {
    if (!format || width < 1 || height < 1) return nullptr;
    int64_t row;
    switch (subType) {
        case 1:
        case 2:
        case 3:
        case 4:
        case 6:
        case 7:
        case 8:
        case 9:
        case 15:
        case 16:
            row = width;
            break;
        case 10:
        case 11:
        case 12:
        case 13:
        case 257:
        case 258:
            row = int64_t{width} * 2;
            break;
        case 259:
            row = int64_t{width} * 3;
            break;
        case 14:
        case 260:
            row = int64_t{width} * 4;
            break;
        default:
            return nullptr;
    }
    const int64_t pad = (16 - row % 16) % 16;
    int64_t size = (row + pad) * height;
    if (subType == 2 || (subType >= 6 && subType <= 9))
        size = size * 3 / 2;
    else if (subType == 3)
        size *= 2;
    else if (subType == 4)
        size *= 3;
    if (size > INT_MAX - 64) return nullptr;

    VideoFormatInfoTag f = {};
    f.nStructSize = sizeof(VideoFormatInfoTag);
    f.nCodecType = subType < 256 ? VIDEO_TYPE_YUV : VIDEO_TYPE_RGB;
    f.nCodecSubType = subType;
    if (normalise == 1 && (subType == VIDEO_FORMAT_IYUV || subType == VIDEO_FORMAT_I420)) {
        f.nCodecSubType = VIDEO_FORMAT_YUV420;
    } else if (normalise == 1 && subType == VIDEO_FORMAT_YV12) {
        f.nCodecSubType = VIDEO_FORMAT_YUV420;
        f.nFormatFlags = FORMAT_FLAG_SWAPPED;
    } else if (normalise == 0 && subType == VIDEO_FORMAT_I420) {
        f.nCodecSubType = VIDEO_FORMAT_IYUV;
    }
    f.nWidth = f.nPictureWidth = f.nDisplayWidth = width;
    f.nHeight = f.nPictureHeight = f.nDisplayHeight = height;
    f.nRectRight = width;
    f.nRectBottom = height;
    f.nPadRight = static_cast<int32_t>(pad);
    if (subType == 2 || subType == 3 || (subType >= 6 && subType <= 8))
        f.nChromaPadRight = static_cast<int32_t>(pad / 2);
    else if (subType == 4 || subType == 9)
        f.nChromaPadRight = static_cast<int32_t>(pad);
    // Odd sizes of the subsampled codes: the planes the descriptor really
    // spans must fit the size the rule gives.
    ncb::FrameLayout layout;
    if (!ncb::GetFrameLayout(f, &layout) || layout.totalBytes > size) return nullptr;

    CNCodecBuffer* b = reuse ? reuse : CNCodecBuffer::CreateBuffer();
    if (!b) return nullptr;
    if (!b->Allocate(static_cast<int>(size), 16, 0)) {
        if (!reuse) b->Release();
        return nullptr;
    }
    b->SetDataSize(static_cast<int>(size));
    *format = f;
    return b;
}

int CNVideoRender::VideoProcessResize(VideoFormatInfoTag* srcFormat, CNCodecBuffer* src,
                                      nplat::RECT* srcRect, VideoFormatInfoTag* dstFormat,
                                      CNCodecBuffer* dst, nplat::RECT* dstRect) {
    if (!srcFormat || !src || !srcRect || !dstFormat || !dst || !dstRect) return 0;
    const int layout = srcFormat->nCodecSubType;
    const bool yuv420 = layout == 2 || layout == 6 || layout == 7 || layout == 8;
    if (layout != dstFormat->nCodecSubType &&
        !(yuv420 && (dstFormat->nCodecSubType == 2 || dstFormat->nCodecSubType == 6 ||
                     dstFormat->nCodecSubType == 8)))
        return 0;
    if (layout != VIDEO_FORMAT_RGB32 && layout != VIDEO_FORMAT_Y800 && !yuv420) return 0;
    if (!PictureFits(*srcFormat, src) || !PictureFits(*dstFormat, dst)) return 0;
    ncb::Region sr{srcRect->left, srcRect->top, srcRect->right - srcRect->left,
                   srcRect->bottom - srcRect->top};
    ncb::Region dr{dstRect->left, dstRect->top, dstRect->right - dstRect->left,
                   dstRect->bottom - dstRect->top};
    if (sr.width < 1 || sr.height < 1 || dr.width < 1 || dr.height < 1) return 0;
    ncb::PlaneSet sp, dp;
    if (!ncb::GetPlanes(*srcFormat, static_cast<uint8_t*>(src->GetAddress()), sr, &sp) ||
        !ncb::GetPlanes(*dstFormat, static_cast<uint8_t*>(dst->GetAddress()), dr, &dp))
        return 0;
    const int resizeLayout = yuv420 ? VIDEO_FORMAT_YUV420 : layout;
    ResizeKey key = {{resizeLayout, sr.width, sr.height, static_cast<int32_t>(sp.plane0.pitch),
                      dr.width, dr.height, static_cast<int32_t>(dp.plane0.pitch),
                      static_cast<int32_t>(yuv420 ? sp.u.pitch : 0),
                      static_cast<int32_t>(yuv420 ? dp.u.pitch : 0)}};

    Guard guard(m_lock);
    CNCodecBuffer* tables = nullptr;
    for (int i = 0; i < m_listResize.GetParameterCount() && !tables; ++i) {
        auto* r = static_cast<ResizeRecord*>(m_listResize.GetBinaryData(i));
        if (std::memcmp(&r->key, &key, sizeof(key)) == 0) tables = r->tables;
    }
    if (!tables) {
        tables = CNCodecBuffer::CreateBuffer();
        if (!tables) return 0;
        bool ok = CNVideoProcessor::ResizeInit(key.words[0], m_nLevel, key.words[1], key.words[2],
                                               key.words[3], key.words[7], key.words[4],
                                               key.words[5], key.words[6], key.words[8], tables);
        if (ok) {
            ResizeRecord record = {key, tables};
            try {
                m_listResize.InsertBinary("", &record, sizeof(record), -1, 0);
            } catch (CNException* e) {
                e->FreeMe();
                ok = false;
            }
        }
        if (!ok) {
            CNVideoProcessor::ResizeUninit(tables);
            tables->Release();
            return 0;
        }
    }
    if (layout == VIDEO_FORMAT_RGB32)
        return CNVideoProcessor::ResizeRGB32(sp.plane0.data, dp.plane0.data, tables);
    if (layout == VIDEO_FORMAT_Y800)
        return CNVideoProcessor::ResizeYUVMono(sp.plane0.data, dp.plane0.data, tables);
    return CNVideoProcessor::ResizeYUV420(sp.plane0.data, sp.u.data, sp.v.data, dp.plane0.data,
                                          dp.u.data, dp.v.data, tables);
}

void CNVideoRender::FreeAllResizeDependData() {
    Guard guard(m_lock);
    for (int i = 0; i < m_listResize.GetParameterCount(); ++i) {
        auto* r = static_cast<ResizeRecord*>(m_listResize.GetBinaryData(i));
        CNVideoProcessor::ResizeUninit(r->tables);
        r->tables->Release();
    }
    m_listResize.RemoveAll(0);
}

// ---- Placing an RGB32 picture onto a target ----

// mode -1: a video frame (alpha 255 copies, else constant-alpha blend);
// 0..3 blend in that AlphaBlendingRGB mode. background: copy or scale only.
int CNVideoRender::RenderMemoryPlaceRGB32(CNCodecBuffer* source, VideoFormatInfoTag* sourceFormat,
                                          const nplat::RECT& dst, CNCodecBuffer* target,
                                          VideoFormatInfoTag* targetFormat, int mode,
                                          unsigned alpha, unsigned colourKey) {
    const VideoFormatInfoTag& s = *sourceFormat;
    const VideoFormatInfoTag& t = *targetFormat;
    const int64_t dl = dst.left, dt = dst.top, dr = dst.right, db = dst.bottom;
    const int64_t cl = std::max<int64_t>(dl, t.nRectLeft), ct = std::max<int64_t>(dt, t.nRectTop);
    const int64_t cr = std::min<int64_t>(dr, t.nRectRight);
    const int64_t cb = std::min<int64_t>(db, t.nRectBottom);
    if (cl >= cr || ct >= cb || dl >= dr || dt >= db) return 1;
    // The part of the source the clipped destination shows, in proportion.
    const int64_t sw = RectWidth(s), sh = RectHeight(s);
    nplat::RECT sr;
    sr.left = static_cast<int32_t>((cl - dl) * sw / (dr - dl) + s.nRectLeft);
    sr.right = static_cast<int32_t>((cr - dl) * sw / (dr - dl) + s.nRectLeft);
    sr.top = static_cast<int32_t>((ct - dt) * sh / (db - dt) + s.nRectTop);
    sr.bottom = static_cast<int32_t>((cb - dt) * sh / (db - dt) + s.nRectTop);
    if (sr.left >= sr.right || sr.top >= sr.bottom) return 1;
    nplat::RECT dc = {static_cast<int32_t>(cl), static_cast<int32_t>(ct), static_cast<int32_t>(cr),
                      static_cast<int32_t>(cb)};
    VideoFormatInfoTag in = s;
    in.nRectLeft = sr.left;
    in.nRectTop = sr.top;
    in.nRectRight = sr.right;
    in.nRectBottom = sr.bottom;
    VideoFormatInfoTag out = t;
    out.nRectLeft = dc.left;
    out.nRectTop = dc.top;
    out.nRectRight = dc.right;
    out.nRectBottom = dc.bottom;
    const bool copy = mode < 0 && (alpha & 0xFF) == 255;
    const int blendMode = mode < 0 ? 0 : mode;
    const bool sameSize =
        sr.right - sr.left == dc.right - dc.left && sr.bottom - sr.top == dc.bottom - dc.top;
    if (sameSize) {
        if (copy) return CNVideoProcessor::DirectCopyRGB(source, target, &in, &out, 0, 1, m_nLevel);
        VideoFormatInfoTag whole = t;
        whole.nRectLeft = whole.nRectTop = 0;
        whole.nRectRight = t.nWidth;
        whole.nRectBottom = t.nHeight;
        return CNVideoProcessor::AlphaBlendingRGB(source, target, &in, &whole, dc.left, dc.top,
                                                  blendMode, alpha, colourKey, 1, m_nLevel);
    }
    if (copy) return VideoProcessResize(&in, source, &sr, &out, target, &dc);
    // Scale first into a picture of the destination size, then blend it.
    VideoFormatInfoTag mid;
    CNCodecBuffer* scaled = AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, dc.right - dc.left,
                                                     dc.bottom - dc.top, &mid, 0, nullptr);
    if (!scaled) return 0;
    nplat::RECT whole = {0, 0, mid.nWidth, mid.nHeight};
    int ok = VideoProcessResize(&in, source, &sr, &mid, scaled, &whole);
    if (ok) {
        VideoFormatInfoTag to = t;
        to.nRectLeft = to.nRectTop = 0;
        to.nRectRight = t.nWidth;
        to.nRectBottom = t.nHeight;
        ok = CNVideoProcessor::AlphaBlendingRGB(scaled, target, &mid, &to, dc.left, dc.top,
                                                blendMode, alpha, colourKey, 1, m_nLevel);
    }
    scaled->Release();
    return ok;
}

// ---- The conversion chain of a frame ----

// Brings the frame's picture to RGB32 (steps normalise, de-interlace, rotate
// in YUV unless rotateInRgb, convert with the frame's settings, rotate in RGB
// when rotateInRgb). *out is the frame's own data when no step was needed.
int CNVideoRender::RenderConvertFrameToRGB32(FrameInfoTag* frame, int rotateInRgb,
                                             WorkPictures* pair, CNCodecBuffer** out,
                                             VideoFormatInfoTag* outFormat) {
    VideoFormatInfoTag cur = frame->stFormat;
    CNCodecBuffer* data = frame->pData;
    if (!PictureFits(cur, data) || RectWidth(cur) < 1 || RectHeight(cur) < 1) return 0;
    const int rotation = FrameRotation(frame->uFlags);
    if (cur.nCodecSubType == VIDEO_FORMAT_RGB32 && !(frame->uFlags & kFrameAlwaysConvert)) {
        *out = data;
        *outFormat = cur;
        return 1;
    }
    const int w = RectWidth(cur), h = RectHeight(cur);
    const int sub = cur.nCodecSubType;
    int planar = 0;
    if (sub == VIDEO_FORMAT_NV12)
        planar = VIDEO_FORMAT_YUV420;
    else if (sub >= VIDEO_FORMAT_YUY2 && sub <= VIDEO_FORMAT_VYUY)
        planar = (rotation != 3 && !rotateInRgb) ? VIDEO_FORMAT_YUV444 : VIDEO_FORMAT_YUV422;
    else if (sub == VIDEO_FORMAT_AYUV || cur.nCodecType == VIDEO_TYPE_RGB)
        planar = VIDEO_FORMAT_YUV444;
    CNCodecBuffer* pic = data;
    if (planar) {
        VideoFormatInfoTag f;
        CNCodecBuffer* b = pair->Take(this, planar, w, h, &f);
        if (!b) return 0;
        const int ok =
            cur.nCodecType == VIDEO_TYPE_RGB
                ? CNVideoProcessor::ConvertFromRGB(pic, b, &cur, &f, nullptr, 1, m_nLevel)
                : CNVideoProcessor::ConvertFromYUV(pic, b, &cur, &f, nullptr, 1, m_nLevel);
        if (!ok) return 0;
        pic = b;
        cur = f;
    }
    if (frame->uFlags & kFrameDeinterlace) {
        VideoFormatInfoTag f;
        CNCodecBuffer* b = pair->Take(this, cur.nCodecSubType, w, h, &f);
        if (!b) return 0;
        f.nFormatFlags = cur.nFormatFlags;
        if (!CNVideoProcessor::DeInterlacedYUV(pic, b, &cur, &f, 1, m_nLevel)) return 0;
        pic = b;
        cur = f;
    }
    const bool swap = rotation == 0 || rotation == 2;
    if (rotation != 3 && !rotateInRgb && cur.nCodecSubType == VIDEO_FORMAT_YUV422) {
        // The quarter turns have no 4:2:2 form: widen the chroma first.
        VideoFormatInfoTag f;
        CNCodecBuffer* b = pair->Take(this, VIDEO_FORMAT_YUV444, w, h, &f);
        if (!b || !CNVideoProcessor::ConvertYUV(pic, b, &cur, &f, 1, m_nLevel)) return 0;
        pic = b;
        cur = f;
    }
    if (rotation != 3 && !rotateInRgb) {
        VideoFormatInfoTag f;
        CNCodecBuffer* b = pair->Take(this, cur.nCodecSubType, swap ? h : w, swap ? w : h, &f);
        if (!b) return 0;
        f.nFormatFlags = cur.nFormatFlags;
        if (!CNVideoProcessor::RotateYUV(pic, b, &cur, &f, rotation, 1, m_nLevel)) return 0;
        pic = b;
        cur = f;
    }
    VideoFormatInfoTag rgb;
    CNCodecBuffer* b = pair->Take(this, VIDEO_FORMAT_RGB32, RectWidth(cur), RectHeight(cur), &rgb);
    if (!b) return 0;
    if (!CNVideoProcessor::ConvertToRGB(pic, b, &cur, &rgb, &frame->stConvert, 1, m_nLevel))
        return 0;
    pic = b;
    cur = rgb;
    if (rotation != 3 && rotateInRgb) {
        VideoFormatInfoTag f;
        CNCodecBuffer* r =
            pair->Take(this, VIDEO_FORMAT_RGB32, swap ? RectHeight(cur) : RectWidth(cur),
                       swap ? RectWidth(cur) : RectHeight(cur), &f);
        if (!r) return 0;
        if (!CNVideoProcessor::RotateRGB(pic, r, &cur, &f, rotation, 1, m_nLevel)) return 0;
        pic = r;
        cur = f;
    }
    *out = pic;
    *outFormat = cur;
    return 1;
}

int CNVideoRender::RenderMemoryDrawVideoFrame(FrameInfoTag* frame, CNCodecBuffer* target,
                                              VideoFormatInfoTag* targetFormat) {
    WorkPictures work;
    CNCodecBuffer* pic = nullptr;
    VideoFormatInfoTag f;
    if (!RenderConvertFrameToRGB32(frame, 0, &work, &pic, &f)) return 0;
    return RenderMemoryPlaceRGB32(pic, &f, frame->rcDst, target, targetFormat, -1, frame->uAlpha,
                                  0);
}

int CNVideoRender::RenderMemoryDrawText(FrameInfoTag* frame, CNCodecBuffer* target,
                                        VideoFormatInfoTag* targetFormat) {
    VideoFormatInfoTag& s = frame->stFormat;
    if (!PictureFits(s, frame->pData) || RectWidth(s) < 1 || RectHeight(s) < 1) return 0;
    VideoFormatInfoTag f;
    CNCodecBuffer* rgb =
        AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, RectWidth(s), RectHeight(s), &f, 0, nullptr);
    if (!rgb) return 0;
    int ok = CNVideoProcessor::ConvertFromAI44(frame->pData, rgb, &s, &f, 0, 1, m_nLevel);
    if (ok) ok = RenderMemoryPlaceRGB32(rgb, &f, frame->rcDst, target, targetFormat, 1, 0, 0);
    rgb->Release();
    return ok;
}

int CNVideoRender::RenderMemoryDrawBitmap(FrameInfoTag* frame, CNCodecBuffer* target,
                                          VideoFormatInfoTag* targetFormat) {
    VideoFormatInfoTag s = frame->stFormat;
    if (!PictureFits(s, frame->pData) || RectWidth(s) < 1 || RectHeight(s) < 1) return 0;
    CNCodecBuffer* pic = frame->pData;
    CNCodecBuffer* rgb = nullptr;
    if (s.nCodecSubType == VIDEO_FORMAT_AYUV) {
        VideoFormatInfoTag f;
        rgb = AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, RectWidth(s), RectHeight(s), &f, 0,
                                       nullptr);
        if (!rgb) return 0;
        if (!CNVideoProcessor::ConvertAYUVtoRGB32(pic, rgb, &s, &f, 0, 1, m_nLevel)) {
            rgb->Release();
            return 0;
        }
        pic = rgb;
        s = f;
    }
    const bool keyed = frame->uFlags & kFrameColorKey;
    int ok = RenderMemoryPlaceRGB32(pic, &s, frame->rcDst, target, targetFormat, keyed ? 2 : 1,
                                    keyed ? 255 : 0, keyed ? frame->uColorKey : 0);
    if (rgb) rgb->Release();
    return ok;
}

// ---- Background frames ----

int CNVideoRender::RenderDrawBackground_RGB32(FrameInfoTag* frame, CNCodecBuffer* source,
                                              VideoFormatInfoTag* sourceFormat,
                                              BufferInfoTag* buffer) {
    VideoFormatInfoTag bg;
    DescribeBackground(buffer, &bg);
    return RenderMemoryPlaceRGB32(source, sourceFormat, frame->rcDst, buffer->pBgImage, &bg, -1,
                                  255, 0);
}

int CNVideoRender::RenderDrawBackground_PostProcess(FrameInfoTag* frame, BufferInfoTag* buffer) {
    WorkPictures work;
    CNCodecBuffer* pic = nullptr;
    VideoFormatInfoTag f;
    if (!RenderConvertFrameToRGB32(frame, 1, &work, &pic, &f)) return 0;
    return RenderDrawBackground_RGB32(frame, pic, &f, buffer);
}

int CNVideoRender::BurnInBackgroundFrame(BufferInfoTag* buffer, FrameInfoTag* frame) {
    if (!frame->pData) return 1;
    if (!buffer->pBgImage || !RenderDrawBackground_PostProcess(frame, buffer)) return 0;
    DropFrameCache(frame);
    frame->pData->Release();
    frame->pData = nullptr;
    buffer->uFlags |= kBufferMainChanged;
    return 1;
}

int CNVideoRender::BurnInBackgroundFrames(BufferInfoTag* buffer) {
    for (int i = 0; i < buffer->nBgFrameCount && i < buffer->pFrameList->GetParameterCount(); ++i)
        if (!BurnInBackgroundFrame(buffer, FrameAt(buffer, i))) return 0;
    return 1;
}

int CNVideoRender::RenderDrawBackground(BufferInfoTag* buffer) {
    return BurnInBackgroundFrames(buffer);
}

// ---- The duplicate scene ----

CNVideoRender::DupBufferInfo* CNVideoRender::RenderMemoryDupBufferInfo(BufferInfoTag* buffer) {
    auto* dup = static_cast<DupBufferInfo*>(nplat::HeapAlloc(sizeof(DupBufferInfo)));
    if (!dup) return nullptr;
    *dup = {};
    dup->stBuffer.uFlags = buffer->uFlags;
    dup->stBuffer.nViewWidth = buffer->nViewWidth;
    dup->stBuffer.nViewHeight = buffer->nViewHeight;
    dup->stBuffer.uBgColor = buffer->uBgColor;
    dup->pFrames = CNDataList::NewDataList();
    dup->pTexts = CNDataList::NewDataList();
    if (!dup->pFrames || !dup->pTexts) {
        RenderMemoryFreeDupBuffer(dup);
        return nullptr;
    }
    CNDataList* from = buffer->pFrameList;
    try {
        for (int i = buffer->nBgFrameCount; i < from->GetParameterCount(); ++i) {
            FrameInfoTag f = *FrameAt(buffer, i);
            if ((f.uFlags & (kFrameEmpty | kFrameNotInMemory)) || !f.pData) continue;
            f.pCachedData = nullptr;
            int at = dup->pFrames->InsertBinary("", &f, sizeof(f), -1, 0);
            dup->pFrames->SetUserData1(at, from->GetUserData1(i));
            dup->pFrames->SetUserData2(at, from->GetUserData2(i));
            f.pData->AddRef();
        }
        *dup->pTexts = *buffer->pTextList;
    } catch (CNException* e) {
        e->FreeMe();
        RenderMemoryFreeDupBuffer(dup);
        return nullptr;
    }
    return dup;
}

void CNVideoRender::RenderMemoryFreeDupBuffer(DupBufferInfo* dup) {
    if (!dup) return;
    if (dup->pFrames) {
        for (int i = 0; i < dup->pFrames->GetParameterCount(); ++i) {
            auto* f = static_cast<FrameInfoTag*>(dup->pFrames->GetBinaryData(i));
            if (f->pData) f->pData->Release();
        }
        dup->pFrames->FreeMe();
    }
    if (dup->pTexts) dup->pTexts->FreeMe();
    nplat::HeapFree(dup);
}

int CNVideoRender::RenderMemoryDrawFrames(DupBufferInfo* dup, CNCodecBuffer* picture,
                                          VideoFormatInfoTag* format) {
    for (int i = 0; i < dup->pFrames->GetParameterCount(); ++i) {
        auto* f = static_cast<FrameInfoTag*>(dup->pFrames->GetBinaryData(i));
        int ok;
        if (f->uFlags & kFrameVideo)
            ok = RenderMemoryDrawVideoFrame(f, picture, format);
        else if (f->uFlags & kFrameText)
            ok = RenderMemoryDrawText(f, picture, format);
        else
            ok = RenderMemoryDrawBitmap(f, picture, format);
        if (!ok) return 0;
    }
    return 1;
}

int CNVideoRender::RenderMemory_SelectBGMode(DupBufferInfo* dup, CNCodecBuffer* picture,
                                             VideoFormatInfoTag* format) {
    return RenderMemoryDrawFrames(dup, picture, format);
}

CNCodecBuffer* CNVideoRender::RenderMemory_NormalMode(DupBufferInfo* dup,
                                                      VideoFormatInfoTag* format) {
    const BufferInfoTag& b = dup->stBuffer;
    CNCodecBuffer* picture = AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, b.nViewWidth,
                                                      b.nViewHeight, format, 0, nullptr);
    if (!picture) return nullptr;
    const int w = b.nViewWidth, h = b.nViewHeight;
    if (b.uFlags & kBufferFillBackground) {
        const uint32_t colour = OpaqueRgb(b.uBgColor);
        auto fill = [&](int x, int y, int fw, int fh) {
            if (fw > 0 && fh > 0)
                CNVideoProcessor::FillRectRGB(picture, format, colour, x, y, fw, fh, 0, m_nLevel);
        };
        CNDataList* frames = dup->pFrames;
        bool whole = frames->GetParameterCount() == 0 || frames->GetUserData1(0) != 0;
        nplat::RECT r = {};
        if (!whole) {
            const nplat::RECT& d = static_cast<FrameInfoTag*>(frames->GetBinaryData(0))->rcDst;
            r = {std::max(d.left, 0), std::max(d.top, 0), std::min(d.right, w),
                 std::min(d.bottom, h)};
            whole = r.left >= r.right || r.top >= r.bottom;
        }
        if (whole) {
            fill(0, 0, w, h);
        } else {
            fill(0, r.top, r.left, r.bottom - r.top);
            fill(r.right, r.top, w - r.right, r.bottom - r.top);
            fill(0, 0, w, r.top);
            fill(0, r.bottom, w, h - r.bottom);
        }
    } else {
        // Without the fill the view starts black and transparent rather than
        // with whatever the allocation held.
        std::memset(picture->GetAddress(), 0, static_cast<size_t>(picture->GetDataSize()));
    }
    if (!RenderMemoryDrawFrames(dup, picture, format)) {
        picture->Release();
        return nullptr;
    }
    return picture;
}

int CNVideoRender::RenderToMemory(int bufferId, VideoFormatInfoTag* format, CNCodecBuffer** picture,
                                  int wholeBackground) {
    if (picture) *picture = nullptr;
    if (format) std::memset(format, 0, sizeof(*format));
    m_lock.Lock();
    m_nExtendError = 0;
    BufferInfoTag* b = nullptr;
    if (!format || !picture || CheckStopped() || !(b = FindBuffer(bufferId)) ||
        (b->uFlags & kBufferLocked)) {
        m_lock.Unlock();
        return 0;
    }
    CNCodecBuffer* out = nullptr;
    VideoFormatInfoTag f = {};
    DupBufferInfo* dup = nullptr;
    if (b->uFlags & kBufferBackground) {
        VideoFormatInfoTag bg;
        DescribeBackground(b, &bg);
        if (!b->pBgImage || !BurnInBackgroundFrames(b)) {
            m_lock.Unlock();
            return 0;
        }
        if (wholeBackground == 1) {
            out = AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, b->nBgWidth, b->nBgHeight, &f, 0,
                                           nullptr);
            if (out) CNVideoProcessor::DirectCopyRGB(b->pBgImage, out, &bg, &f, 0, 0, m_nLevel);
            m_lock.Unlock();
            if (!out) return 0;
            *picture = out;
            *format = f;
            return 1;
        }
        out = AllocateCodecBufferAlone(VIDEO_FORMAT_RGB32, b->nViewWidth, b->nViewHeight, &f, 0,
                                       nullptr);
        if (out) {
            // The view may reach past the background: what lies outside
            // shows the background colour.
            CNVideoProcessor::FillRectRGB(out, &f, OpaqueRgb(b->uBgColor), 0, 0, f.nWidth,
                                          f.nHeight, 0, m_nLevel);
            const nplat::RECT at = {-b->nViewX, -b->nViewY, b->nBgWidth - b->nViewX,
                                    b->nBgHeight - b->nViewY};
            if (!RenderMemoryPlaceRGB32(b->pBgImage, &bg, at, out, &f, -1, 255, 0)) {
                out->Release();
                out = nullptr;
            }
        }
        if (out) dup = RenderMemoryDupBufferInfo(b);
        m_lock.Unlock();
        if (!out || !dup) {
            if (out) out->Release();
            RenderMemoryFreeDupBuffer(dup);
            return 0;
        }
        if (!RenderMemory_SelectBGMode(dup, out, &f)) {
            out->Release();
            out = nullptr;
        }
    } else {
        dup = RenderMemoryDupBufferInfo(b);
        m_lock.Unlock();
        if (!dup) return 0;
        out = RenderMemory_NormalMode(dup, &f);
    }
    if (out && !RenderDrawText_Memory(out, &f, dup->pTexts)) {
        out->Release();
        out = nullptr;
    }
    RenderMemoryFreeDupBuffer(dup);
    if (!out) return 0;
    *picture = out;
    *format = f;
    return 1;
}
