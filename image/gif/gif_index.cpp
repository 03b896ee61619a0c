// One walk over a GIF file's blocks with the library's byte reader: screen
// descriptor, global palette, extensions and image descriptors, recording
// for every frame its geometry, timing, transparency, disposal, palette and
// the places of its LZW data sub-blocks.
//
// The walk is strict where a lenient decoder would guess: frames must lie
// inside the screen, only the four known extension labels pass, the trailer
// must be there (reading past the end refuses the file), and a frame may
// have at most 1024 data sub-blocks. Nothing is decompressed here; LZW
// errors surface when a frame is composed.
#include "image/gif/gif_index.h"

#include <cstring>

#include "base/checked_size.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/read_byte_stream.h"

namespace ncb::gif {
namespace {

constexpr int kFrameGrowth = 16;
constexpr int kSubBlockGrowth = 1024;

// Grows a table buffer to hold `count` records of `size` bytes, `growth`
// records at a time.
bool Reserve(CNCodecBuffer** table, int count, int size, int growth) {
    if (!*table) {
        *table = CNCodecBuffer::CreateBuffer();
        if (!*table) return false;
    }
    const int64_t need = int64_t{count} * size;
    if (need <= (*table)->GetBufferSize()) return true;
    const int64_t bytes = (int64_t{count} + growth) * size;
    if (!FitsBufferSize(bytes)) return false;
    return (*table)->Allocate(static_cast<int>(bytes), 8, 1) != nullptr;
}

struct Control {
    bool present = false;
    int duration = 0;
    int transparent = -1;
    int disposal = 0;
};

class Walker {
  public:
    Walker(const uint8_t* data, int size, FileIndex* out) : m_data(data), m_out(out) {
        m_chain.pBuffer = const_cast<uint8_t*>(data);
        m_chain.nSize = size;
        m_reader.Init(3, &m_chain, 1, m_pad, 1);  // little-endian, bytes as stored
    }

    bool Run(int defaultDuration, int64_t maxCanvasBytes);

  private:
    bool Fail(const char* why) {
        m_out->failure = why;
        return false;
    }
    bool Truncated() { return m_reader.IsError() != 0; }
    bool SkipSubBlocks();
    bool ReadExtension(Control* control);
    bool ReadImage(const Control& control, int defaultDuration);

    const uint8_t* m_data;
    FileIndex* m_out;
    NDataStreamBufferInfoTag m_chain{};
    uint8_t m_pad[1] = {0};
    CNReadByteStream m_reader;
    uint32_t m_clock = 0;
};

bool Walker::SkipSubBlocks() {
    for (;;) {
        const int length = m_reader.ReadUint8();
        if (Truncated()) return Fail("read past the end");
        if (length == 0) return true;
        m_reader.Skip(length);
    }
}

bool Walker::ReadExtension(Control* control) {
    const int label = m_reader.ReadUint8();
    if (Truncated()) return Fail("read past the end");
    if (label == 0xF9) {
        const int size = m_reader.ReadUint8();
        const int start = m_reader.GetCurPos();
        if (size >= 4) {
            const int packed = m_reader.ReadUint8();
            const int delay = m_reader.ReadUint16();
            const int transparent = m_reader.ReadUint8();
            control->present = true;
            control->duration = delay * 10;
            control->transparent = (packed & 1) ? transparent : -1;
            control->disposal = (packed >> 2) & 7;
        }
        m_reader.SetCurPos(start + size);
        return SkipSubBlocks();
    }
    if (label == 0xFF) {
        // NETSCAPE2.0 loop count, for describing the file only.
        const int size = m_reader.ReadUint8();
        const int start = m_reader.GetCurPos();
        if (size == 11 && start + 16 <= m_chain.nSize &&
            std::memcmp(m_data + start, "NETSCAPE2.0", 11) == 0 && m_data[start + 11] >= 3 &&
            m_data[start + 12] == 1) {
            m_out->loopCount = m_data[start + 13] | m_data[start + 14] << 8;
        }
        m_reader.SetCurPos(start + size);
        return SkipSubBlocks();
    }
    if (label == 0xFE) ++m_out->comments;
    if (label == 0x01 || label == 0xFE) return SkipSubBlocks();
    return Fail("unknown extension label");
}

bool Walker::ReadImage(const Control& control, int defaultDuration) {
    FrameRecord f{};
    f.left = m_reader.ReadUint16();
    f.top = m_reader.ReadUint16();
    f.width = m_reader.ReadUint16();
    f.height = m_reader.ReadUint16();
    const int packed = m_reader.ReadUint8();
    if (Truncated()) return Fail("read past the end");
    if (f.width < 1 || f.height < 1) return Fail("frame of zero size");
    if (f.left + f.width > m_out->width || f.top + f.height > m_out->height)
        return Fail("frame outside the screen");
    f.interlaced = (packed >> 6) & 1;
    f.localPalettePos = -1;
    if (packed & 0x80) {
        f.localColourCount = 1 << ((packed & 7) + 1);
        f.localPalettePos = m_reader.GetCurPos();
        m_reader.Skip(3 * f.localColourCount);
    } else if (m_out->globalColourCount == 0) {
        return Fail("frame without a colour table");
    }
    f.lzwMinCodeSize = m_reader.ReadUint8();
    if (Truncated()) return Fail("read past the end");
    if (f.lzwMinCodeSize < 1 || f.lzwMinCodeSize > 8) return Fail("LZW minimum code size not 1-8");

    f.firstSubBlock = m_out->subBlockCount;
    for (;;) {
        const int length = m_reader.ReadUint8();
        if (Truncated()) return Fail("read past the end");
        if (length == 0) break;
        if (++f.subBlockCount > CNGifCodec::kMaxSubBlocks) return Fail("more than 1024 sub-blocks");
        if (!Reserve(&m_out->subBlocks, m_out->subBlockCount + 1, sizeof(SubBlock),
                     kSubBlockGrowth)) {
            return Fail("out of memory");
        }
        auto* blocks = static_cast<SubBlock*>(m_out->subBlocks->GetAddress());
        blocks[m_out->subBlockCount++] = {m_reader.GetCurPos(), length};
        // The data size is what a growing Allocate carries over.
        m_out->subBlocks->SetDataSize(m_out->subBlockCount * static_cast<int>(sizeof(SubBlock)));
        m_reader.Skip(length);
    }

    f.hasControl = control.present;
    f.duration = control.present ? control.duration : defaultDuration;
    f.transparentIndex = control.present ? control.transparent : -1;
    f.disposal = control.present ? control.disposal : 0;
    f.restoreBackground = f.disposal == 2;
    f.startTime = m_clock;
    m_clock += static_cast<uint32_t>(f.duration);
    if (!Reserve(&m_out->frames, m_out->frameCount + 1, sizeof(FrameRecord), kFrameGrowth))
        return Fail("out of memory");
    static_cast<FrameRecord*>(m_out->frames->GetAddress())[m_out->frameCount++] = f;
    m_out->frames->SetDataSize(m_out->frameCount * static_cast<int>(sizeof(FrameRecord)));
    return true;
}

bool Walker::Run(int defaultDuration, int64_t maxCanvasBytes) {
    if (m_chain.nSize < 1) return Fail("read past the end");
    uint8_t signature[3] = {0, 0, 0};
    m_reader.ReadBuffer(signature, 3);
    if (Truncated() || std::memcmp(signature, "GIF", 3) != 0) return Fail("no GIF signature");
    m_reader.Skip(3);
    m_out->width = m_reader.ReadUint16();
    m_out->height = m_reader.ReadUint16();
    const int packed = m_reader.ReadUint8();
    m_out->backgroundIndex = m_reader.ReadUint8();
    m_out->aspect = m_reader.ReadUint8();
    if (Truncated()) return Fail("read past the end");
    if (m_out->width < 1 || m_out->height < 1) return Fail("screen of zero size");
    if (int64_t{m_out->width} * m_out->height * 4 > maxCanvasBytes)
        return Fail("screen larger than the canvas limit");
    if (packed & 0x80) {
        m_out->globalColourCount = 1 << ((packed & 7) + 1);
        uint8_t rgb[768];
        m_reader.ReadBuffer(rgb, 3 * m_out->globalColourCount);
        ReadPalette(rgb, m_out->globalColourCount, m_out->globalPalette);
    }
    Control control;
    for (;;) {
        const int block = m_reader.ReadUint8();
        if (Truncated()) return Fail("read past the end");
        if (block == 0x3B) break;
        if (block == 0x21) {
            if (!ReadExtension(&control)) return false;
        } else if (block == 0x2C) {
            if (!ReadImage(control, defaultDuration)) return false;
            control = Control();
        } else {
            return Fail("unexpected block byte");
        }
        if (Truncated()) return Fail("read past the end");
    }
    if (m_out->frameCount < 1) return Fail("no image");
    return true;
}

void ReleaseTable(CNCodecBuffer** table) {
    if (*table) (*table)->Release();
    *table = nullptr;
}

}  // namespace

FileIndex::~FileIndex() {
    ReleaseTable(&frames);
    ReleaseTable(&subBlocks);
}

void FileIndex::Detach() {
    frames = nullptr;
    subBlocks = nullptr;
}

const FrameRecord* FileIndex::Frame(int i) const {
    return static_cast<const FrameRecord*>(frames->GetAddress()) + i;
}

const SubBlock* FileIndex::SubBlocks(const FrameRecord& f) const {
    if (!subBlocks) return nullptr;
    return static_cast<const SubBlock*>(subBlocks->GetAddress()) + f.firstSubBlock;
}

void ReadPalette(const uint8_t* rgb, int count, uint32_t* palette) {
    for (int i = 0; i < count; ++i, rgb += 3)
        palette[i] = uint32_t{rgb[0]} << 16 | uint32_t{rgb[1]} << 8 | rgb[2];
}

bool IndexFile(const uint8_t* data, int size, int defaultDuration, int64_t maxCanvasBytes,
               FileIndex* out) {
    out->failure = nullptr;
    if (!data) size = 0;
    Walker walker(data, size, out);
    if (walker.Run(defaultDuration, maxCanvasBytes)) return true;
    ReleaseTable(&out->frames);
    ReleaseTable(&out->subBlocks);
    out->frameCount = out->subBlockCount = 0;
    return false;
}

}  // namespace ncb::gif
