// CNGifCodec, encoding side: AddFrame quantises each picture at once (the
// octree of CNVideoProcessor::ColorQuantToIndex256) and keeps only its
// indices and palette; Encode writes GIF89a in one go.
//
// The LZW codes go straight into the output: the bit writer is given a chain
// of 255-byte pieces that sit between the sub-block length bytes, so the
// data lands already split into sub-blocks and only the length bytes are
// filled in afterwards. Output room is capped at 1 MiB; a file that does not
// fit fails rather than being cut. Not done: a global palette, transparency,
// frame-difference cropping, the NETSCAPE loop extension.
#include <cstring>

#include "base/checked_size.h"
#include "image/gif/gif_lzw.h"
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/video_processor.h"
#include "ncodecbase/write_bit_stream.h"
#include "ncodecbase/write_byte_stream.h"
#include "platform/kernel/heap.h"

namespace {

struct EncodeRecord {
    int32_t width, height, left, top;
    int32_t interlaced;
    int32_t duration;
    int32_t transparentIndex;
    int32_t colourCount;
    int32_t paletteBits;
    int32_t paletteSize;
    int32_t lzwMinCodeSize;
    uint32_t palette[256];   // 0x00RRGGBB
    CNCodecBuffer* picture;  // width x height indices
};

constexpr int kFrameGrowth = 16;

template <typename T>
struct HeapBlock {
    T* p = nullptr;
    ~HeapBlock() { nplat::HeapFree(p); }
    bool Allocate(size_t count) {
        return (p = static_cast<T*>(nplat::HeapAlloc(count * sizeof(T))));
    }
};

EncodeRecord* Records(CNCodecBuffer* table) {
    return table ? static_cast<EncodeRecord*>(table->GetAddress()) : nullptr;
}

// Writes one frame's LZW data as sub-blocks at the writer's position and
// moves the writer past the terminator. False when the room runs out.
bool WriteImageData(const EncodeRecord& r, const int* rowOrder, ncb::gif::LzwEncodeTable* table,
                    NDataStreamBufferInfoTag* chain, uint8_t* file, int room,
                    CNWriteByteStream* bytes) {
    const int start = bytes->GetCurPos();
    int pieces = 0;
    for (int64_t pos = int64_t{start} + 1; pos < room; pos += 256) {
        chain[pieces].pBuffer = file + pos;
        chain[pieces].nSize = static_cast<int32_t>(room - pos < 255 ? room - pos : 255);
        ++pieces;
    }
    if (pieces == 0) return false;
    CNWriteBitStream bits;
    bits.Init(0, 0, chain, pieces, 0);  // plain, every byte bit-reversed
    ncb::gif::EncodeLzw(static_cast<const uint8_t*>(r.picture->GetAddress()), r.width, rowOrder,
                        r.height, r.lzwMinCodeSize, table, &bits);
    int written = 0;
    if (!bits.Uninit(2, &written)) return false;
    const int dataBytes = (written + 7) / 8;
    const int full = dataBytes / 255, rest = dataBytes % 255;
    for (int i = 0; i < full; ++i) file[start + 256 * i] = 255;
    int end = start + 256 * full;
    if (rest) {
        file[end] = static_cast<uint8_t>(rest);
        end += 1 + rest;
    }
    if (end >= room) return false;
    bytes->SetCurPos(end);
    bytes->WriteUint8(0);
    return !bytes->IsError();
}

}  // namespace

void CNGifCodec::ReleaseEncode() {
    if (m_nMode != 2) return;
    EncodeRecord* records = Records(m_pFrameTable);
    for (int i = 0; i < m_nFrameCount; ++i)
        if (records[i].picture) records[i].picture->Release();
    if (m_pFrameTable) m_pFrameTable->Release();
    m_pFrameTable = nullptr;
    m_nFrameCount = 0;
    m_nMode = 0;
}

int CNGifCodec::FreeEncodeResource() {
    ReleaseEncode();
    return 1;
}

int CNGifCodec::PrepareEncode(VideoFormatInfoTag* inputFormat, VideoFormatInfoTag* outputFormat) {
    if (!inputFormat || !outputFormat) return 0;
    const VideoFormatInfoTag& in = *inputFormat;
    if (in.nCodecSubType != VIDEO_FORMAT_RGB32 || in.nWidth < 1 || in.nWidth > 65535 ||
        in.nHeight < 1 || in.nHeight > 65535 || in.nPadLeft < 0 || in.nPadRight < 0 ||
        in.nPadTop < 0 || in.nPadBottom < 0) {
        return 0;
    }
    ReleaseDecode();
    ReleaseEncode();
    VideoFormatInfoTag out{};
    out.nStructSize = sizeof(VideoFormatInfoTag);
    out.nCodecType = VIDEO_TYPE_GIF;
    out.nCodecSubType = VIDEO_FORMAT_GIF;
    out.nWidth = in.nWidth;
    out.nHeight = in.nHeight;
    out.nRectLeft = in.nRectLeft;
    out.nRectRight = in.nRectRight;
    out.nRectTop = in.nRectTop;
    out.nRectBottom = in.nRectBottom;
    out.nPictureWidth = out.nDisplayWidth = in.nRectRight - in.nRectLeft;
    out.nPictureHeight = out.nDisplayHeight = in.nRectBottom - in.nRectTop;
    *outputFormat = out;
    m_nScreenWidth = in.nWidth;
    m_nScreenHeight = in.nHeight;
    m_nFrameCount = 0;
    m_nGlobalColourCount = 0;
    m_stInputFormat = in;
    m_stOutputFormat = out;
    m_nMode = 2;
    return 1;
}

int CNGifCodec::AddFrame(CNCodecBuffer* picture, int duration, int interlaced, int flip) {
    if (m_nMode != 2 || !picture) return 0;
    const VideoFormatInfoTag& in = m_stInputFormat;
    const int64_t pitch = in.nPadLeft + int64_t{m_nScreenWidth} * 4 + in.nPadRight;
    const int64_t origin = in.nPadTop * pitch + in.nPadLeft;
    auto* pixels = static_cast<uint8_t*>(picture->GetAddress());
    if (!pixels || pitch > INT32_MAX ||
        origin + (m_nScreenHeight - 1) * pitch + int64_t{m_nScreenWidth} * 4 >
            picture->GetBufferSize()) {
        return 0;
    }
    const int64_t pixelCount = int64_t{m_nScreenWidth} * m_nScreenHeight;
    if (!ncb::FitsBufferSize(pixelCount)) return 0;

    if (!m_pFrameTable && !(m_pFrameTable = CNCodecBuffer::CreateBuffer())) return 0;
    const int64_t need = (int64_t{m_nFrameCount} + 1) * sizeof(EncodeRecord);
    if (need > m_pFrameTable->GetBufferSize()) {
        const int64_t bytes = (int64_t{m_nFrameCount} + kFrameGrowth) * sizeof(EncodeRecord);
        if (!ncb::FitsBufferSize(bytes) ||
            !m_pFrameTable->Allocate(static_cast<int>(bytes), 8, 1)) {
            return 0;
        }
    }
    CNCodecBuffer* indices = CNCodecBuffer::CreateBuffer();
    if (!indices || !indices->Allocate(static_cast<int>(pixelCount), 16, 0)) {
        if (indices) indices->Release();
        return 0;
    }
    unsigned char palette[256 * 4];
    int colours = 0;
    if (!CNVideoProcessor::ColorQuantToIndex256(m_nScreenWidth, m_nScreenHeight, pixels + origin,
                                                static_cast<unsigned char*>(indices->GetAddress()),
                                                static_cast<int>(pitch), m_nScreenWidth, palette,
                                                &colours, flip)) {
        indices->Release();
        return 0;
    }
    indices->SetDataSize(static_cast<int>(pixelCount));

    EncodeRecord r{};
    r.width = m_nScreenWidth;
    r.height = m_nScreenHeight;
    r.interlaced = interlaced ? 1 : 0;
    r.duration = duration;
    r.transparentIndex = -1;
    r.colourCount = colours;
    r.paletteBits = s_uColorIndexRoundTable[static_cast<size_t>(colours - 1)];
    r.paletteSize = 1 << r.paletteBits;
    r.lzwMinCodeSize = r.paletteBits;
    for (int i = 0; i < colours; ++i) {
        const unsigned char* e = palette + 4 * i;
        r.palette[i] = uint32_t{e[2]} << 16 | uint32_t{e[1]} << 8 | e[0];
    }
    r.picture = indices;
    Records(m_pFrameTable)[m_nFrameCount++] = r;
    // The data size is what a growing Allocate carries over.
    m_pFrameTable->SetDataSize(m_nFrameCount * static_cast<int>(sizeof(EncodeRecord)));
    return 1;
}

int CNGifCodec::Encode(CNCodecBuffer* output) {
    if (m_nMode != 2 || m_nFrameCount < 1 || !output) return 0;
    int64_t room = (int64_t{m_nScreenWidth} * m_nScreenHeight + 1280) * m_nFrameCount + 4096;
    if (room > kMaxEncodedBytes) room = kMaxEncodedBytes;
    auto* file = static_cast<uint8_t*>(output->Allocate(static_cast<int>(room), 16, 0));
    if (!file) return 0;
    output->SetDataSize(0);

    ncb::gif::LzwEncodeTable table;
    HeapBlock<uint16_t> entries;
    HeapBlock<uint32_t> filled;
    HeapBlock<NDataStreamBufferInfoTag> chain;
    HeapBlock<int> rows;
    if (!entries.Allocate(ncb::gif::kLzwTableEntries) || !filled.Allocate(4096) ||
        !chain.Allocate(room / 256 + 2) || !rows.Allocate(static_cast<size_t>(m_nScreenHeight))) {
        return 0;
    }
    std::memset(entries.p, 0xFF, sizeof(uint16_t) * ncb::gif::kLzwTableEntries);
    table.entries = entries.p;
    table.filled = filled.p;

    NDataStreamBufferInfoTag whole{file, static_cast<int32_t>(room)};
    CNWriteByteStream bytes;
    bytes.Init(3, &whole, 1);  // little-endian, bytes as given
    bytes.WriteBuffer(reinterpret_cast<unsigned char*>(const_cast<char*>("GIF89a")), 6);
    bytes.WriteUint16(static_cast<uint16_t>(m_nScreenWidth));
    bytes.WriteUint16(static_cast<uint16_t>(m_nScreenHeight));
    bytes.WriteUint8(0x70);  // no global table; colour resolution 8 bits
    bytes.WriteUint8(0);     // background index
    bytes.WriteUint8(0);     // pixel aspect

    const EncodeRecord* records = Records(m_pFrameTable);
    for (int i = 0; i < m_nFrameCount; ++i) {
        const EncodeRecord& r = records[i];
        const int delay = r.duration <= 0 ? 0 : (r.duration / 10 > 65535 ? 65535 : r.duration / 10);
        const uint8_t control[8] = {
            0x21, 0xF9, 0x04, 0x04, static_cast<uint8_t>(delay), static_cast<uint8_t>(delay >> 8),
            0xFF, 0x00};
        bytes.WriteBuffer(const_cast<uint8_t*>(control), 8);
        bytes.WriteUint8(0x2C);
        bytes.WriteUint16(static_cast<uint16_t>(r.left));
        bytes.WriteUint16(static_cast<uint16_t>(r.top));
        bytes.WriteUint16(static_cast<uint16_t>(r.width));
        bytes.WriteUint16(static_cast<uint16_t>(r.height));
        bytes.WriteUint8(
            static_cast<uint8_t>(0x80 | (r.interlaced ? 0x40 : 0) | (r.paletteBits - 1)));
        uint8_t rgb[768] = {};
        for (int c = 0; c < r.colourCount; ++c) {
            rgb[3 * c] = static_cast<uint8_t>(r.palette[c] >> 16);
            rgb[3 * c + 1] = static_cast<uint8_t>(r.palette[c] >> 8);
            rgb[3 * c + 2] = static_cast<uint8_t>(r.palette[c]);
        }
        bytes.WriteBuffer(rgb, 3 * r.paletteSize);
        bytes.WriteUint8(static_cast<uint8_t>(r.lzwMinCodeSize));
        if (bytes.IsError()) return 0;
        ncb::gif::RowOrder(r.height, r.interlaced != 0, rows.p);
        if (!WriteImageData(r, rows.p, &table, chain.p, file, static_cast<int>(room), &bytes))
            return 0;
    }
    bytes.WriteUint8(0x3B);
    if (bytes.IsError()) return 0;
    output->SetDataSize(bytes.GetCurPos());
    return 1;
}
