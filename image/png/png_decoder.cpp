// PNG decoding: one walk over the chunks gathers the header, palette,
// transparency, gamma and the size of the image data; the IDAT payloads are
// joined (or used in place when there is only one), inflated in one call to
// zlib's `uncompress` into a buffer of exactly the size the header promises,
// and then each stored row is unfiltered and converted straight into the
// output while it is still in cache.
//
// Why one-shot inflation: the output size is known from the header, so the
// whole image inflates with zlib's fast path and never past what the header
// promised, however much a hostile stream would expand. Data that inflates
// to less than promised is accepted as zlib reports it, the missing tail
// reading as zeros.
//
// Not done: CRC checks, ancillary chunks other than tRNS and gAMA, colour
// management beyond the gAMA exponent, progressive (row by row) output.
#include "image/png/png_decoder.h"

#include <zlib.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "base/checked_size.h"
#include "image/png/png_chunks.h"
#include "image/png/png_kernels.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"

namespace ncb::png {
namespace {

struct ReleaseBuffer {
    void operator()(CNCodecBuffer* b) const { b->Release(); }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, ReleaseBuffer>;

// Everything the chunk walk learns.
struct FileInfo {
    ImageHeader header;
    bool haveHeader = false;
    bool havePalette = false;
    bool haveTransparency = false;
    bool haveGamma = false;
    uint32_t palette[256];
    uint32_t key = 0;    // grey and 8-bit truecolour transparency key
    uint64_t key64 = 0;  // 16-bit truecolour transparency key
    uint32_t gamma = 0;
    size_t idatBytes = 0;
    int idatChunks = 0;
    const uint8_t* firstIdat = nullptr;
};

void ReadPalette(const Chunk& c, FileInfo* info) {
    const uint32_t entries = c.length / 3 < 256 ? c.length / 3 : 256;
    for (uint32_t i = 0; i < entries; ++i) {
        const uint8_t* rgb = c.data + 3 * i;
        info->palette[i] = 0xFF000000u | uint32_t{rgb[0]} << 16 | uint32_t{rgb[1]} << 8 | rgb[2];
    }
    info->havePalette = true;
}

// A tRNS too short for its colour type is ignored rather than read past.
void ReadTransparency(const Chunk& c, FileInfo* info) {
    const ImageHeader& h = info->header;
    const uint8_t* d = c.data;
    switch (h.colourType) {
        case 3: {
            const uint32_t n = c.length < 256 ? c.length : 256;
            for (uint32_t i = 0; i < n; ++i)
                info->palette[i] = (info->palette[i] & 0x00FFFFFFu) | uint32_t{d[i]} << 24;
            return;
        }
        case 0: {
            if (c.length < 2) return;
            const uint32_t grey = LoadBigEndian16(d);
            switch (h.bitDepth) {
                case 1:
                    info->key = grey * 255;
                    break;
                case 2:
                    info->key = grey * 85;
                    break;
                case 4:
                    info->key = grey * 17;
                    break;
                case 8:
                    info->key = grey;
                    break;
                default:
                    info->key = d[0] | uint32_t{d[1]} << 8;  // the bytes as they lie
                    break;
            }
            info->haveTransparency = true;
            return;
        }
        case 2:
            if (c.length < 6) return;
            if (h.bitDepth == 8) {
                info->key = uint32_t{d[1]} << 16 | uint32_t{d[3]} << 8 | d[5];
            } else {
                info->key64 = uint64_t{LoadBigEndian16(d)} << 32 |
                              uint64_t{LoadBigEndian16(d + 2)} << 16 | LoadBigEndian16(d + 4);
            }
            info->haveTransparency = true;
            return;
        default:
            return;  // grey + alpha and RGBA carry their own alpha
    }
}

// Returns false only for an invalid first IHDR.
bool WalkChunks(const uint8_t* data, size_t size, FileInfo* info) {
    for (uint32_t& entry : info->palette) entry = 0xFF000000u;  // beyond PLTE: opaque black
    ChunkReader reader(data, size);
    Chunk c;
    while (reader.Next(&c)) {
        if (c.type == kIHDR) {
            if (!info->haveHeader && !ParseImageHeader(c, &info->header)) return false;
            info->haveHeader = true;
        } else if (c.type == kPLTE) {
            if (!info->havePalette) ReadPalette(c, info);
        } else if (c.type == kTRNS) {
            if (info->haveHeader) ReadTransparency(c, info);
        } else if (c.type == kIDAT) {
            if (c.length == 0) continue;
            if (info->idatChunks++ == 0) info->firstIdat = c.data;
            info->idatBytes += c.length;
        } else if (c.type == kGAMA) {
            if (c.length >= 4) {
                info->gamma = LoadBigEndian32(c.data);
                info->haveGamma = true;
            }
        }
    }
    return true;
}

// Copies every IDAT payload, in order, to `out` (idatBytes long).
void JoinImageData(const uint8_t* data, size_t size, uint8_t* out) {
    ChunkReader reader(data, size);
    Chunk c;
    while (reader.Next(&c)) {
        if (c.type != kIDAT) continue;
        std::memcpy(out, c.data, c.length);
        out += c.length;
    }
}

// One Adam7 pass (or the whole image): first pixel, steps, size.
struct Pass {
    int x0, y0, stepX, stepY, width, height;
};

int PassList(const ImageHeader& h, Pass passes[7]) {
    const int w = h.width, ht = h.height;
    if (!h.interlace) {
        passes[0] = {0, 0, 1, 1, w, ht};
        return 1;
    }
    const Pass all[7] = {{0, 0, 8, 8, (w + 7) >> 3, (ht + 7) >> 3},
                         {4, 0, 8, 8, (w + 3) >> 3, (ht + 7) >> 3},
                         {0, 4, 4, 8, (w + 3) >> 2, (ht + 3) >> 3},
                         {2, 0, 4, 4, (w + 1) >> 2, (ht + 3) >> 2},
                         {0, 2, 2, 4, (w + 1) >> 1, (ht + 1) >> 2},
                         {1, 0, 2, 2, w >> 1, (ht + 1) >> 1},
                         {0, 1, 1, 2, w, ht >> 1}};
    int n = 0;
    for (const Pass& p : all)
        if (p.width > 0 && p.height > 0) passes[n++] = p;
    return n;
}

// The converter that fits the image's colour type, depth and key, chosen
// once per decode and run one stored row at a time.
class RowConverter {
  public:
    explicit RowConverter(const FileInfo& info) : m_info(info) {
        using C = CNPngCodec;
        const ImageHeader& h = info.header;
        const struct {
            int type, depth;
            PlainFn plain;
            KeyFn keyed;
            PaletteFn palette;
        } kTable[] = {
            {0, 1, C::ConvertFromGrey1Bits, C::ConvertFromGrey1Bits_Tran, nullptr},
            {0, 2, C::ConvertFromGrey2Bits, C::ConvertFromGrey2Bits_Tran, nullptr},
            {0, 4, C::ConvertFromGrey4Bits, C::ConvertFromGrey4Bits_Tran, nullptr},
            {0, 8, C::ConvertFromGrey8Bits, C::ConvertFromGrey8Bits_Tran, nullptr},
            {0, 16, C::ConvertFromGrey16Bits, C::ConvertFromGrey16Bits_Tran, nullptr},
            {2, 8, C::ConvertFromTrueColor8Bits, C::ConvertFromTrueColor8Bits_Tran, nullptr},
            {2, 16, C::ConvertFromTrueColor16Bits, nullptr, nullptr},  // 64-bit key below
            {3, 1, nullptr, nullptr, C::ConvertFromPal1Bits},
            {3, 2, nullptr, nullptr, C::ConvertFromPal2Bits},
            {3, 4, nullptr, nullptr, C::ConvertFromPal4Bits},
            {3, 8, nullptr, nullptr, C::ConvertFromPal8Bits},
            {4, 8, C::ConvertFromGreyAlpha8Bits, nullptr, nullptr},
            {4, 16, C::ConvertFromGreyAlpha16Bits, nullptr, nullptr},
            {6, 8, C::ConvertFromTrueColorAlpha8Bits, nullptr, nullptr},
            {6, 16, C::ConvertFromTrueColorAlpha16Bits, nullptr, nullptr},
        };
        for (const auto& e : kTable) {
            if (e.type != h.colourType || e.depth != h.bitDepth) continue;
            m_plain = e.plain;
            m_palette = e.palette;
            if (info.haveTransparency) m_keyed = e.keyed;
        }
        m_keyed64 = h.colourType == 2 && h.bitDepth == 16 && info.haveTransparency;
    }

    // Row `src` (filter byte first) to `width` pixels from `dst`, `step` apart.
    void Run(const uint8_t* src, uint8_t* dst, int width, int step) const {
        if (m_palette) {
            m_palette(src, dst, width, 1, 0, m_info.palette, step);
        } else if (m_keyed64) {
            CNPngCodec::ConvertFromTrueColor16Bits_Tran(src, dst, width, 1, 0, m_info.key64, step);
        } else if (m_keyed) {
            m_keyed(src, dst, width, 1, 0, m_info.key, step);
        } else if (m_plain) {
            m_plain(src, dst, width, 1, 0, step);
        }
    }

  private:
    using PlainFn = void (*)(const unsigned char*, unsigned char*, int, int, int, int);
    using KeyFn = void (*)(const unsigned char*, unsigned char*, int, int, int, unsigned int, int);
    using PaletteFn = void (*)(const unsigned char*, unsigned char*, int, int, int,
                               const unsigned int*, int);

    const FileInfo& m_info;
    PlainFn m_plain = nullptr;
    KeyFn m_keyed = nullptr;
    PaletteFn m_palette = nullptr;
    bool m_keyed64 = false;
};

// Sizes a decode needs, all checked against the limits before allocating.
struct Plan {
    Pass passes[7];
    int passCount = 0;
    int64_t inflatedBytes = 0;
    int64_t widestLine = 0;  // the zero row that stands above each pass
    int64_t pitch = 0;       // output bytes per row, padding included
    int64_t frameBytes = 0;  // output data size
};

bool MakePlan(const FileInfo& info, const VideoFormatInfo& pads, const DecodeLimits& limits,
              Plan* plan) {
    const ImageHeader& h = info.header;
    const int channels = ChannelCount(h.colourType);
    plan->passCount = PassList(h, plan->passes);
    for (int i = 0; i < plan->passCount; ++i) {
        const Pass& p = plan->passes[i];
        const int64_t line = CNPngCodec::CalcLineBytes(p.width, channels, h.bitDepth);
        if (!CheckedMulAdd(line, p.height, plan->inflatedBytes, &plan->inflatedBytes)) return false;
        if (line > plan->widestLine) plan->widestLine = line;
    }
    int64_t rows, scratch;
    if (!CheckedMulAdd(h.width, 4, pads.nPadLeft, &plan->pitch) ||
        !CheckedAdd<int64_t>(plan->pitch, pads.nPadRight, &plan->pitch) || pads.nPadRight < 0 ||
        !CheckedMulAdd(1, h.height, pads.nPadTop, &rows) || pads.nPadBottom < 0 ||
        !CheckedMulAdd(plan->pitch, rows + pads.nPadBottom, 0, &plan->frameBytes)) {
        return false;
    }
    // The inflated image sits behind one zero row; the output carries 8
    // spare bytes.
    return plan->inflatedBytes <= limits.maxInflatedBytes &&
           plan->frameBytes <= limits.maxOutputBytes &&
           CheckedAdd(plan->inflatedBytes, plan->widestLine, &scratch) && FitsBufferSize(scratch) &&
           FitsBufferSize(plan->frameBytes + 8);
}

void FillDescriptor(const ImageHeader& h, VideoFormatInfo* f) {
    f->nStructSize = sizeof(VideoFormatInfo);
    f->nCodecType = VIDEO_TYPE_RGB;
    f->nCodecSubType = VIDEO_FORMAT_RGB32;
    f->nReserved3 = f->nReserved4 = f->nFormatFlags = 0;
    f->nWidth = f->nRectRight = f->nPictureWidth = f->nDisplayWidth = h.width;
    f->nHeight = f->nRectBottom = f->nPictureHeight = f->nDisplayHeight = h.height;
    f->nRectLeft = f->nRectTop = 0;
    f->nReserved14 = f->nReserved15 = 0;
}

// A new owned buffer of `bytes` at `align`, or null.
BufferPtr NewBuffer(int64_t bytes, int align) {
    BufferPtr buffer(CNCodecBuffer::CreateBuffer());
    if (!buffer || !buffer->Allocate(static_cast<int>(bytes), align, 0)) return nullptr;
    return buffer;
}

// Inflates the IDAT data into `out` (exactly `bytes` long); a short stream
// leaves zeros behind what zlib produced.
bool Inflate(const uint8_t* data, size_t size, const FileInfo& info, uint8_t* out, int64_t bytes) {
    const uint8_t* compressed = info.firstIdat;
    BufferPtr joined;
    if (!FitsBufferSize(static_cast<int64_t>(info.idatBytes))) return false;
    if (info.idatChunks > 1) {
        joined = NewBuffer(static_cast<int64_t>(info.idatBytes), 1);
        if (!joined) return false;
        JoinImageData(data, size, static_cast<uint8_t*>(joined->GetAddress()));
        compressed = static_cast<const uint8_t*>(joined->GetAddress());
    }
    uLongf produced = static_cast<uLongf>(bytes);
    if (uncompress(out, &produced, compressed, static_cast<uLong>(info.idatBytes)) != Z_OK)
        return false;
    std::memset(out + produced, 0, static_cast<size_t>(bytes - static_cast<int64_t>(produced)));
    return true;
}

// Zeroes the caller's padding around the picture and the 8 spare bytes.
void ClearPadding(uint8_t* base, const Plan& plan, const ImageHeader& h, const VideoFormatInfo& f) {
    const size_t pitch = static_cast<size_t>(plan.pitch);
    std::memset(base, 0, pitch * static_cast<size_t>(f.nPadTop));
    if (f.nPadLeft || f.nPadRight) {
        for (int y = 0; y < h.height; ++y) {
            uint8_t* row = base + (static_cast<size_t>(f.nPadTop) + y) * pitch;
            std::memset(row, 0, static_cast<size_t>(f.nPadLeft));
            std::memset(row + f.nPadLeft + 4 * static_cast<size_t>(h.width), 0,
                        static_cast<size_t>(f.nPadRight));
        }
    }
    const size_t below = (static_cast<size_t>(f.nPadTop) + h.height) * pitch;
    std::memset(base + below, 0, static_cast<size_t>(plan.frameBytes) - below + 8);
}

void ApplyGamma(uint8_t* picture, int64_t pitch, const ImageHeader& h, const uint8_t table[256]) {
    for (int y = 0; y < h.height; ++y) {
        uint8_t* p = picture + y * pitch;
        for (int x = 0; x < h.width; ++x, p += 4) {
            p[0] = table[p[0]];
            p[1] = table[p[1]];
            p[2] = table[p[2]];
        }
    }
}

// Unfilters each pass row by row and converts it into the picture.
void Reconstruct(uint8_t* inflated, const uint8_t* zeroRow, const FileInfo& info, const Plan& plan,
                 uint8_t* picture) {
    const PngKernels& k = ActivePngKernels();
    const ImageHeader& h = info.header;
    const int channels = ChannelCount(h.colourType), unit = FilterUnit(h);
    const RowConverter convert(info);
    uint8_t* row = inflated;
    for (int i = 0; i < plan.passCount; ++i) {
        const Pass& p = plan.passes[i];
        const size_t line =
            static_cast<size_t>(CNPngCodec::CalcLineBytes(p.width, channels, h.bitDepth));
        const uint8_t* prev = zeroRow;
        for (int y = 0; y < p.height; ++y, prev = row, row += line) {
            k.unfilterRow(row[0], row + 1, prev + 1, line - 1, unit);
            uint8_t* out = picture + (p.y0 + int64_t{y} * p.stepY) * plan.pitch + 4 * p.x0;
            convert.Run(row, out, p.width, p.stepX);
        }
    }
}

}  // namespace

bool BuildGammaTable(uint32_t gammaValue, uint8_t table[256]) {
    const float g = static_cast<float>(gammaValue) * 0.00001f;
    const float exponent = g > 0.000001f ? 1.0f / (2.2f * g) : 1.0f;
    bool changes = false;
    for (int i = 0; i < 256; ++i) {
        const float v = std::pow(static_cast<float>(i) / 255.0f, exponent) * 255.0f + 0.5f;
        table[i] = static_cast<uint8_t>(static_cast<int>(v));
        changes |= table[i] != i;
    }
    return changes;
}

int DecodeFile(const uint8_t* data, size_t size, VideoFormatInfo* outFormat, CNCodecBuffer** output,
               const DecodeLimits& limits) {
    if (!output) return 0;
    *output = nullptr;
    if (!outFormat || !HasSignature(data, size)) return 0;
    FileInfo info;
    if (!WalkChunks(data, size, &info) || !info.haveHeader || info.idatBytes == 0 ||
        (info.header.colourType == 3 && !info.havePalette)) {
        return 0;
    }
    FillDescriptor(info.header, outFormat);
    Plan plan;
    if (!MakePlan(info, *outFormat, limits, &plan)) return 0;

    BufferPtr inflated = NewBuffer(plan.widestLine + plan.inflatedBytes, 16);
    if (!inflated) return 0;
    uint8_t* zeroRow = static_cast<uint8_t*>(inflated->GetAddress());
    std::memset(zeroRow, 0, static_cast<size_t>(plan.widestLine));
    uint8_t* rows = zeroRow + plan.widestLine;
    if (!Inflate(data, size, info, rows, plan.inflatedBytes)) return 0;

    BufferPtr out = NewBuffer(plan.frameBytes + 8, 4);
    if (!out) return 0;
    uint8_t* base = static_cast<uint8_t*>(out->GetAddress());
    out->SetDataSize(static_cast<int>(plan.frameBytes));
    ClearPadding(base, plan, info.header, *outFormat);
    uint8_t* picture = base + outFormat->nPadTop * plan.pitch + outFormat->nPadLeft;
    Reconstruct(rows, zeroRow, info, plan, picture);

    uint8_t table[256];
    if (info.haveGamma && BuildGammaTable(info.gamma, table))
        ApplyGamma(picture, plan.pitch, info.header, table);
    *output = out.release();
    return 1;
}

}  // namespace ncb::png
