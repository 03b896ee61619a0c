// Fuzz target for the PNG decoder. The input is a PNG file followed by one
// option byte (a plain PNG works as it is: its last byte is taken as the
// options and the cut IEND ends the file just the same).
//
// Option byte: bits 0-1 pick the caller's padding words (none, left/right,
// top/bottom, all four); bit 7 arms a heap fault after (bits 2-4) successful
// allocations, so every allocation of the decode fails at some point.
//
// Checked: a refused decode hands out no buffer; a successful one hands out
// a buffer of exactly the frame the descriptor describes, whose every byte
// is read (so AddressSanitizer sees the whole frame), with the descriptor
// words as documented. Leaks are caught by LeakSanitizer.
//
// The decoder's limits are lowered to 64 MiB each so a header that promises
// a huge picture stays under libFuzzer's memory limit; the default (2 GiB)
// path is the same code with a larger bound.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "image/png/png_decoder.h"
#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "png_decode: %s\n", what);
    std::abort();
}

void SetPadding(uint8_t options, ncb::VideoFormatInfo* f) {
    if (options & 1) {
        f->nPadLeft = 12;
        f->nPadRight = 3;
    }
    if (options & 2) {
        f->nPadTop = 2;
        f->nPadBottom = 1;
    }
}

void CheckPicture(const ncb::VideoFormatInfo& f, CNCodecBuffer* out) {
    Check(f.nStructSize == 104 && f.nCodecType == VIDEO_TYPE_RGB &&
              f.nCodecSubType == VIDEO_FORMAT_RGB32 && f.nFormatFlags == 0,
          "descriptor type words");
    Check(f.nWidth >= 1 && f.nWidth <= 65536 && f.nHeight >= 1 && f.nHeight <= 65536,
          "picture size");
    Check(f.nRectLeft == 0 && f.nRectTop == 0 && f.nRectRight == f.nWidth &&
              f.nRectBottom == f.nHeight && f.nPictureWidth == f.nWidth &&
              f.nDisplayHeight == f.nHeight,
          "descriptor size words");
    const int64_t pitch = f.nPadLeft + int64_t{f.nWidth} * 4 + f.nPadRight;
    const int64_t bytes = pitch * (f.nPadTop + int64_t{f.nHeight} + f.nPadBottom);
    Check(out->GetDataSize() == bytes && out->GetBufferSize() >= bytes + 8, "buffer size");
    const auto* p = static_cast<const uint8_t*>(out->GetAddress());
    unsigned sum = 0;
    for (int64_t i = 0; i < bytes + 8; ++i) sum += p[i];
    volatile unsigned sink = sum;
    (void)sink;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t options = data[size - 1];
    ncb::VideoFormatInfo f{};
    SetPadding(options, &f);
    ncb::png::DecodeLimits limits;
    limits.maxInflatedBytes = 64 << 20;
    limits.maxOutputBytes = 64 << 20;

    CNCodecBuffer* out = nullptr;
    if (options & 0x80) nplat::fault::Arm(nplat::fault::Kind::kHeap, (options >> 2) & 7);
    const int result = ncb::png::DecodeFile(data, size - 1, &f, &out, limits);
    nplat::fault::Disarm();

    if (!result) {
        Check(out == nullptr, "refused decode left a buffer");
        return 0;
    }
    Check(out != nullptr && out->GetRefCount() == 1, "output buffer");
    CheckPicture(f, out);
    out->Release();
    return 0;
}
