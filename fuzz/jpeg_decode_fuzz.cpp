// Fuzz target for the JPEG decoder. The input is a JPEG stream followed by
// one option byte (a plain JPEG works as it is: its last byte, D9, is taken
// as the options and the cut EOI ends the data just the same, which
// exercises the search for a missing marker).
//
// Option byte: bits 0-1 pick the caller's padding words (none, left/right,
// top/bottom, all); bits 2-3 the kernel set (scalar, SSE2, SSE4.1, the
// level-2 choice); bit 7 arms a heap fault after (bits 4-6) successful
// allocations, so every allocation of a decode fails at some point.
//
// Checked: a successful decode hands out exactly the planes its descriptor
// describes, every byte of which is read (so AddressSanitizer sees them
// all), and its consumed count stays inside the input; the Huffman cache it
// leaves behind walks cleanly and trims to nothing. Leaks are caught by
// LeakSanitizer. The limits are lowered (4 Mpixels, 64 MiB) so headers that
// promise huge pictures stay under libFuzzer's memory limit; the default
// limits take the same path with larger bounds.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "image/jpeg/jpeg_decoder.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "jpeg_decode: %s\n", what);
    std::abort();
}

void CheckPlanes(const ncb::VideoFormatInfo& f, CNCodecBuffer* out) {
    Check(f.nStructSize == 104 && f.nCodecType == VIDEO_TYPE_YUV, "descriptor type words");
    const int code = f.nCodecSubType;
    Check(code == VIDEO_FORMAT_Y800 || code == VIDEO_FORMAT_YUV420 || code == VIDEO_FORMAT_YUV422 ||
              code == VIDEO_FORMAT_YUV444,
          "format code");
    Check(f.nWidth % 16 == 0 && f.nHeight % 16 == 0 && f.nRectRight <= f.nWidth &&
              f.nRectBottom <= f.nHeight && f.nRectRight > f.nWidth - 16 &&
              f.nRectBottom > f.nHeight - 16,
          "picture size");
    const int64_t p0 = int64_t{f.nPadLeft} + f.nWidth + f.nPadRight;
    const int64_t r0 = int64_t{f.nPadTop} + f.nHeight + f.nPadBottom;
    int64_t bytes = p0 * r0;
    if (code != VIDEO_FORMAT_Y800) {
        const int64_t wc = code == VIDEO_FORMAT_YUV444 ? f.nWidth : f.nWidth / 2;
        const int64_t hc = code == VIDEO_FORMAT_YUV420 ? f.nHeight / 2 : f.nHeight;
        bytes += 2 * (int64_t{f.nChromaPadLeft} + wc + f.nChromaPadRight) *
                 (int64_t{f.nChromaPadTop} + hc + f.nChromaPadBottom);
    }
    Check(out->GetDataSize() == bytes && out->GetBufferSize() >= bytes, "buffer size");
    const auto* p = static_cast<const uint8_t*>(out->GetAddress());
    unsigned sum = 0;
    for (int64_t i = 0; i < bytes; ++i) sum += p[i];
    volatile unsigned sink = sum;
    (void)sink;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > (1 << 24)) return 0;
    const uint8_t options = data[size - 1];
    ncb::VideoFormatInfo f{};
    if (options & 1) f.nPadLeft = 5, f.nPadRight = 17, f.nChromaPadLeft = 3;
    if (options & 2) f.nPadTop = 2, f.nPadBottom = 1, f.nChromaPadBottom = 3;
    const ncb::jpeg::KernelSet sets[4] = {ncb::jpeg::KernelSet::kScalar,
                                          ncb::jpeg::KernelSet::kSse2, ncb::jpeg::KernelSet::kSse41,
                                          ncb::jpeg::KernelSet::kAvx2};
    ncb::jpeg::KernelSet set = sets[(options >> 2) & 3];
    if (!ncb::video::KernelSetSupported(set)) set = ncb::jpeg::KernelSet::kSse2;
    ncb::jpeg::DecodeLimits limits;
    limits.maxPixels = 4 << 20;
    limits.maxOutputBytes = 64 << 20;
    limits.maxCoefficientBytes = 64 << 20;

    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBuffer* cache = CNCodecBuffer::CreateBuffer();
    Check(out && cache, "buffers");
    int consumed = -1;
    if (options & 0x80) nplat::fault::Arm(nplat::fault::Kind::kHeap, (options >> 4) & 7);
    const int result = ncb::jpeg::DecodeImage(data, static_cast<int>(size - 1), &f, out, cache, set,
                                              &consumed, limits);
    nplat::fault::Disarm();

    if (result) {
        Check(consumed >= 2 && consumed <= static_cast<int>(size - 1), "consumed bytes");
        CheckPlanes(f, out);
    }
    int records = 0;
    for (int offset = 0, next;; offset = next) {
        int recordSize = 0, hits = 0;
        next = CNJpegCodec::HuffmanGetCachedTableInfo(offset, cache, &recordSize, &hits);
        if (recordSize > 0) ++records;
        if (next == 0) break;
        Check(next > offset, "cache walk moves forward");
    }
    Check(records == CNJpegCodec::HuffmanGetCachedTableNumber(cache), "cache record count");
    CNJpegCodec::HuffmanAutoRemoveTable(0, cache, 1);
    Check(CNJpegCodec::HuffmanGetCachedTableNumber(cache) == 0, "cache trims to nothing");
    cache->Release();
    out->Release();
    return 0;
}
