// CNPngCodec::Encode: an RGB32 picture as the smallest PNG that carries it
// whole: signature, IHDR, one IDAT made by zlib's `compress` over unfiltered
// rows, IEND.
//
// Why no filtering and one IDAT: the file is meant to be written fast and
// read by any decoder; size is zlib's business. The output room is fixed at
// the raw image size plus 1024 bytes, which holds everything zlib produces
// for compressible pictures; a large picture that does not compress fails
// with only the signature and IHDR written.
//
// Not done: palettes, grey or 16-bit output, interlacing, ancillary chunks,
// the processing rectangle (the whole picture is written).
#include <zlib.h>

#include <cstring>
#include <memory>

#include "base/checked_size.h"
#include "base/video_format.h"
#include "image/png/png_chunks.h"
#include "image/png/png_kernels.h"
#include "ncodecbase/png_codec.h"
#include "platform/kernel/heap.h"

namespace {

using ncb::png::StoreBigEndian32;

constexpr int kExtraRoom = 1024;
constexpr int kIhdrOffset = 8;
constexpr int kIdatOffset = 33;
constexpr int kIdatData = kIdatOffset + 8;
constexpr int kTrailer = 16;  // IDAT CRC and the whole IEND chunk
constexpr uint8_t kIend[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};

struct FreeHeap {
    void operator()(uint8_t* p) const { nplat::HeapFree(p); }
};

void FillDescriptor(const ncb::VideoFormatInfo& in, ncb::VideoFormatInfo* out) {
    ncb::InitVideoFormat(out, VIDEO_FORMAT_PNG, in.nWidth, in.nHeight);
    out->nCodecType = VIDEO_TYPE_PNG;
}

// Where the picture's first pixel lies and how far apart its rows are, once
// the input buffer is known to hold every row; false otherwise.
bool LocateRows(const ncb::VideoFormatInfo& f, CNCodecBuffer* input, const uint8_t** first,
                ptrdiff_t* pitch) {
    const auto* base = static_cast<const uint8_t*>(input->GetAddress());
    int64_t p, rowBytes, lastRow, end;
    if (!base || f.nWidth <= 0 || f.nHeight <= 0 || f.nPadRight < 0 ||
        !ncb::CheckedMulAdd(f.nWidth, 4, 0, &rowBytes) ||
        !ncb::CheckedMulAdd(1, rowBytes, f.nPadLeft, &p) ||
        !ncb::CheckedAdd<int64_t>(p, f.nPadRight, &p) ||
        !ncb::CheckedMulAdd(1, f.nHeight - 1, f.nPadTop, &lastRow) ||
        !ncb::CheckedMulAdd(lastRow, p, f.nPadLeft + rowBytes, &end) ||
        end > input->GetBufferSize()) {
        return false;
    }
    *pitch = static_cast<ptrdiff_t>(p);
    *first = base + f.nPadTop * p + f.nPadLeft;
    if (f.nFormatFlags & FORMAT_FLAG_SWAPPED) {
        *first += (f.nHeight - 1) * *pitch;
        *pitch = -*pitch;
    }
    return true;
}

void BgraToRgb(const uint8_t* src, uint8_t* dst, int width) {
    for (int x = 0; x < width; ++x, src += 4, dst += 3) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
    }
}

// Filter byte 0, then the samples, for every picture row top to bottom.
void BuildRawImage(const uint8_t* first, ptrdiff_t pitch, int width, int height, bool alpha,
                   uint8_t* raw) {
    // Swapping bytes 0 and 2 of each pixel turns B, G, R, A into R, G, B, A.
    const ncb::png::SamplesToBgraFn swap = ncb::png::ActivePngKernels().rgbaToBgra;
    const size_t line = static_cast<size_t>(width) * (alpha ? 4 : 3) + 1;
    for (int y = 0; y < height; ++y, raw += line) {
        const uint8_t* row = first + y * pitch;
        raw[0] = 0;
        if (alpha) {
            swap(row, raw + 1, width);
        } else {
            BgraToRgb(row, raw + 1, width);
        }
    }
}

void WriteHeader(uint8_t* out, int width, int height, bool alpha) {
    std::memcpy(out, ncb::png::kSignature, sizeof(ncb::png::kSignature));
    uint8_t* ihdr = out + kIhdrOffset;
    StoreBigEndian32(ihdr, 13);
    std::memcpy(ihdr + 4, "IHDR", 4);
    StoreBigEndian32(ihdr + 8, static_cast<uint32_t>(width));
    StoreBigEndian32(ihdr + 12, static_cast<uint32_t>(height));
    ihdr[16] = 8;
    ihdr[17] = alpha ? 6 : 2;
    ihdr[18] = ihdr[19] = ihdr[20] = 0;
    StoreBigEndian32(ihdr + 21, static_cast<uint32_t>(crc32(0, ihdr + 4, 17)));
}

}  // namespace

int CNPngCodec::Encode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                       CNCodecBuffer* input, CNCodecBuffer* output, unsigned int flags) {
    if (!inFormat || !outFormat) return 0;
    FillDescriptor(*inFormat, outFormat);
    const uint8_t* first;
    ptrdiff_t pitch;
    if (!input || !output || !LocateRows(*inFormat, input, &first, &pitch)) return 0;

    const bool alpha = (flags & ENCODE_FLAG_ALPHA) != 0;
    const int width = inFormat->nWidth, height = inFormat->nHeight;
    int64_t rawBytes;
    if (!ncb::CheckedMulAdd(width, alpha ? 4 : 3, 1, &rawBytes) ||
        !ncb::CheckedMulAdd(rawBytes, height, 0, &rawBytes) ||
        !ncb::FitsBufferSize(rawBytes + kExtraRoom)) {
        return 0;
    }
    std::unique_ptr<uint8_t, FreeHeap> raw(
        static_cast<uint8_t*>(nplat::HeapAlloc(static_cast<size_t>(rawBytes))));
    if (!raw) return 0;
    BuildRawImage(first, pitch, width, height, alpha, raw.get());

    auto* out =
        static_cast<uint8_t*>(output->Allocate(static_cast<int>(rawBytes) + kExtraRoom, 4, 0));
    if (!out) return 0;
    WriteHeader(out, width, height, alpha);
    uLongf length = static_cast<uLongf>(rawBytes + kExtraRoom - kIdatData - kTrailer);
    if (compress(out + kIdatData, &length, raw.get(), static_cast<uLong>(rawBytes)) != Z_OK)
        return 0;
    StoreBigEndian32(out + kIdatOffset, static_cast<uint32_t>(length));
    std::memcpy(out + kIdatOffset + 4, "IDAT", 4);
    uint8_t* trailer = out + kIdatData + length;
    StoreBigEndian32(trailer, static_cast<uint32_t>(
                                  crc32(0, out + kIdatOffset + 4, static_cast<uInt>(length + 4))));
    std::memcpy(trailer + 4, kIend, sizeof(kIend));
    output->SetDataSize(kIdatData + static_cast<int>(length) + kTrailer);
    return 1;
}
