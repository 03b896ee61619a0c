// CNGifCodec, decoding side: Decode indexes the file (gif_index.cpp) and
// allocates the canvas; GetDecodedFrame decompresses one frame's indices
// (gif_lzw.cpp), paints them onto the canvas through the frame's palette and
// hands out a copy of the canvas.
//
// The canvas lives as long as the decode, because GIF frames are deltas: a
// frame only paints its rectangle, and its transparent pixels show what the
// earlier frames left. Disposal is deliberately simple: method 2 restores the
// rectangle to the background colour, anything else leaves it, and "restore
// previous" (3) is not kept as a second canvas.
#include "ncodecbase/gif_codec.h"

#include <cstring>
#include <memory>

#include "base/checked_size.h"
#include "image/gif/gif_index.h"
#include "image/gif/gif_lzw.h"

namespace {

struct ReleaseBuffer {
    void operator()(CNCodecBuffer* b) const {
        if (b) b->Release();
    }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, ReleaseBuffer>;

void Drop(CNCodecBuffer** b) {
    if (*b) (*b)->Release();
    *b = nullptr;
}

// Room for `bytes` in *buffer, creating it when needed.
uint8_t* Ensure(CNCodecBuffer** buffer, int64_t bytes) {
    if (!ncb::FitsBufferSize(bytes)) return nullptr;
    if (!*buffer && !(*buffer = CNCodecBuffer::CreateBuffer())) return nullptr;
    return static_cast<uint8_t*>((*buffer)->Allocate(static_cast<int>(bytes), 16, 0));
}

struct OutputLayout {
    int64_t pitch = 0;
    int64_t bytes = 0;
    int64_t origin = 0;  // offset of pixel (0, 0)
};

bool GetOutputLayout(const CNCodecBase::VideoFormatInfoTag& f, OutputLayout* l) {
    int64_t rows;
    if (f.nPadLeft < 0 || f.nPadRight < 0 || f.nPadTop < 0 || f.nPadBottom < 0 ||
        !ncb::CheckedMulAdd(f.nWidth, 4, f.nPadLeft, &l->pitch) ||
        !ncb::CheckedAdd<int64_t>(l->pitch, f.nPadRight, &l->pitch) ||
        !ncb::CheckedMulAdd(1, f.nHeight, f.nPadTop, &rows) ||
        !ncb::CheckedMulAdd(l->pitch, rows + f.nPadBottom, 0, &l->bytes) ||
        !ncb::FitsBufferSize(l->bytes)) {
        return false;
    }
    l->origin = f.nPadTop * l->pitch + f.nPadLeft;
    return true;
}

void FillRect(uint32_t* canvas, int stride, int left, int top, int width, int height,
              uint32_t colour) {
    for (int y = 0; y < height; ++y) {
        uint32_t* row = canvas + static_cast<ptrdiff_t>(top + y) * stride + left;
        for (int x = 0; x < width; ++x) row[x] = colour;
    }
}

// Paints `count` decoded indices of one row onto the canvas.
void PaintRow(const uint8_t* indices, int count, const uint32_t* palette, int transparent,
              uint32_t* row) {
    if (transparent < 0) {
        for (int x = 0; x < count; ++x) row[x] = palette[indices[x]];
        return;
    }
    for (int x = 0; x < count; ++x)
        if (indices[x] != transparent) row[x] = palette[indices[x]];
}

}  // namespace

CNGifCodec::CNGifCodec() = default;

CNGifCodec::~CNGifCodec() {
    ReleaseDecode();
    ReleaseEncode();
}

void CNGifCodec::ReleaseDecode() {
    if (m_nMode != 1) return;
    Drop(&m_pFrameTable);
    Drop(&m_pSubBlocks);
    Drop(&m_pCanvas);
    Drop(&m_pScratch);
    Drop(&m_pInput);
    m_nFrameCount = 0;
    m_nMode = 0;
}

int CNGifCodec::FreeDecodeResource() {
    ReleaseDecode();
    return 1;
}

int CNGifCodec::Decode(VideoFormatInfoTag* inputFormat, VideoFormatInfoTag* outputFormat,
                       CNCodecBuffer* input, int defaultDuration, unsigned int backgroundColour) {
    (void)inputFormat;  // the file says everything
    ReleaseDecode();
    ReleaseEncode();
    if (!outputFormat || !input) return 0;
    VideoFormatInfoTag& out = *outputFormat;
    out.nStructSize = sizeof(VideoFormatInfoTag);
    out.nCodecType = VIDEO_TYPE_RGB;
    out.nCodecSubType = VIDEO_FORMAT_RGB32;
    out.nReserved3 = out.nReserved4 = out.nFormatFlags = 0;
    out.nReserved14 = out.nReserved15 = 0;

    ncb::gif::FileIndex index;
    const auto* data = static_cast<const uint8_t*>(input->GetAddress());
    if (!ncb::gif::IndexFile(data, input->GetDataSize(), defaultDuration, kMaxCanvasBytes, &index))
        return 0;
    out.nWidth = out.nRectRight = out.nPictureWidth = index.width;
    out.nHeight = out.nRectBottom = out.nPictureHeight = index.height;
    out.nRectLeft = out.nRectTop = 0;
    if (index.aspect != 0) {
        out.nDisplayWidth = index.aspect + 15;
        out.nDisplayHeight = 64;
    } else {
        out.nDisplayWidth = index.width;
        out.nDisplayHeight = index.height;
    }
    OutputLayout layout;
    if (!GetOutputLayout(out, &layout)) return 0;
    CNCodecBuffer* canvas = nullptr;
    if (!Ensure(&canvas, int64_t{index.width} * index.height * 4)) {
        Drop(&canvas);
        return 0;
    }
    input->AddRef();
    m_pInput = input;
    m_pCanvas = canvas;
    m_pFrameTable = index.frames;
    m_pSubBlocks = index.subBlocks;
    index.Detach();
    m_nScreenWidth = index.width;
    m_nScreenHeight = index.height;
    m_nFrameCount = index.frameCount;
    m_nBackgroundIndex = index.backgroundIndex;
    m_nAspect = index.aspect;
    m_nGlobalColourCount = index.globalColourCount;
    std::memcpy(m_uGlobalPalette, index.globalPalette, sizeof m_uGlobalPalette);
    m_stOutputFormat = out;
    if (inputFormat) m_stInputFormat = *inputFormat;
    m_uBackgroundColour = backgroundColour;
    m_nNextFrame = 0;
    m_nMode = 1;
    return m_nFrameCount;
}

int CNGifCodec::GetDuration(int* durations, int count) {
    if (m_nMode != 1 || !durations || count < 1) return 0;
    const int n = count < m_nFrameCount ? count : m_nFrameCount;
    const auto* frames = static_cast<const ncb::gif::FrameRecord*>(m_pFrameTable->GetAddress());
    for (int i = 0; i < n; ++i) durations[i] = frames[i].duration;
    return n;
}

int CNGifCodec::GetDecodedFrame(int index, CNCodecBuffer** frame, int* duration) {
    if (frame) *frame = nullptr;
    if (m_nMode != 1 || !frame || index < 0 || index >= m_nFrameCount) return 0;
    const auto& f = static_cast<const ncb::gif::FrameRecord*>(m_pFrameTable->GetAddress())[index];
    const auto* blocks = static_cast<const ncb::gif::SubBlock*>(
                             m_pSubBlocks ? m_pSubBlocks->GetAddress() : nullptr) +
                         f.firstSubBlock;
    auto* file = static_cast<uint8_t*>(m_pInput->GetAddress());
    const int fileSize = m_pInput->GetDataSize();
    // The input is the caller's; refuse rather than read outside it if it shrank.
    if (f.subBlockCount > 0 &&
        int64_t{blocks[f.subBlockCount - 1].position} + blocks[f.subBlockCount - 1].length >
            fileSize) {
        return 0;
    }
    if (f.localPalettePos >= 0 && int64_t{f.localPalettePos} + 3 * f.localColourCount > fileSize)
        return 0;

    OutputLayout layout;
    if (!GetOutputLayout(m_stOutputFormat, &layout)) return 0;
    BufferPtr out(CNCodecBuffer::CreateBuffer());
    const int64_t pixels = int64_t{f.width} * f.height;
    if (!out || !out->Allocate(static_cast<int>(layout.bytes), 16, 0) ||
        !Ensure(&m_pScratch, pixels)) {
        return 0;
    }
    auto* indices = static_cast<uint8_t*>(m_pScratch->GetAddress());

    uint32_t palette[256] = {};
    if (f.localColourCount > 0)
        ncb::gif::ReadPalette(file + f.localPalettePos, f.localColourCount, palette);
    else
        std::memcpy(palette, m_uGlobalPalette, sizeof palette);
    const uint32_t background = m_uBackgroundColour != 0xFFFFFFFFu
                                    ? m_uBackgroundColour
                                    : m_uGlobalPalette[m_nBackgroundIndex];
    auto* canvas = static_cast<uint32_t*>(m_pCanvas->GetAddress());
    const int stride = m_nScreenWidth;
    if (index == 0) FillRect(canvas, stride, 0, 0, m_nScreenWidth, m_nScreenHeight, background);

    NDataStreamBufferInfoTag chain[kMaxSubBlocks];
    for (int i = 0; i < f.subBlockCount; ++i) {
        chain[i].pBuffer = file + blocks[i].position;
        chain[i].nSize = blocks[i].length;
    }
    const ncb::gif::LzwDecodeResult lzw =
        ncb::gif::DecodeLzw(chain, f.subBlockCount, f.lzwMinCodeSize, indices, pixels);

    // Rows arrive in stream order: top to bottom, or the four interlace passes.
    static const int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    int64_t left = lzw.produced;
    const uint8_t* src = indices;
    for (int pass = f.interlaced ? 0 : 3; pass < 4 && left > 0; ++pass) {
        const int start = f.interlaced ? kStart[pass] : 0;
        const int step = f.interlaced ? kStep[pass] : 1;
        for (int y = start; y < f.height && left > 0; y += step) {
            const int count = left < f.width ? static_cast<int>(left) : f.width;
            PaintRow(src, count, palette, f.transparentIndex,
                     canvas + static_cast<ptrdiff_t>(f.top + y) * stride + f.left);
            src += count;
            left -= count;
        }
    }

    auto* dst = static_cast<uint8_t*>(out->GetAddress());
    if (layout.bytes > 0) std::memset(dst, 0, static_cast<size_t>(layout.bytes));
    for (int y = 0; y < m_nScreenHeight; ++y)
        std::memcpy(dst + layout.origin + y * layout.pitch,
                    canvas + static_cast<ptrdiff_t>(y) * stride, static_cast<size_t>(stride) * 4);
    out->SetDataSize(static_cast<int>(layout.bytes));
    out->SetTimeStamp(f.startTime);
    if (lzw.ranOut) out->SetBufferFlag(kFlagTruncated);

    m_nNextFrame = index + 1 < m_nFrameCount ? index + 1 : 0;
    if (f.restoreBackground && m_nNextFrame != 0)
        FillRect(canvas, stride, f.left, f.top, f.width, f.height, background);
    if (duration) *duration = f.duration;
    *frame = out.release();
    return 1;
}
