// Encode-then-decode fuzz target for the JPEG encoder: the input describes a
// small planar picture and how it lies in memory; CNJpegCodec::Encode
// compresses it and our decoder must read the result back at the same size
// and sampling.
//
// Input: byte 0 width - 1 (0-63), byte 1 height - 1 (0-63), byte 2 options
// (bits 0-1 format: grey, 4:2:0, 4:2:2, 4:4:4; bits 2-3 quality, 3 meaning
// an invalid one; bits 4-5 kernel select, 3 meaning an invalid one; bit 6
// padding words; bit 7 chroma planes swapped), byte 3 faults (bit 7: arm a
// heap fault after bits 0-3 successful allocations); the rest are sample
// bytes, repeated when short. The planes are allocated exactly up to the
// 16-rounded size the encoder may read, so AddressSanitizer sees any read
// beyond it.
//
// Checked: refusals and failures return 0 with the output's data size 0
// and the output descriptor untouched; a success is a stream from SOI to
// EOI within the output room, described as JPEG, that our decoder reads at
// the picture's size and sampling.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "jpeg_encode: %s\n", what);
    std::abort();
}

using Format = CNCodecBase::VideoFormatInfoTag;

constexpr int kCodes[4] = {VIDEO_FORMAT_Y800, VIDEO_FORMAT_YUV420, VIDEO_FORMAT_YUV422,
                           VIDEO_FORMAT_YUV444};

struct Picture {
    Format format{};
    std::vector<uint8_t> bytes;
};

Picture MakePicture(const uint8_t* data, size_t size) {
    Picture p;
    Format& f = p.format;
    const int code = kCodes[data[2] & 3];
    f.nStructSize = sizeof(Format);
    f.nCodecSubType = code;
    f.nRectRight = data[0] % 64 + 1;
    f.nRectBottom = data[1] % 64 + 1;
    f.nWidth = (f.nRectRight + 15) / 16 * 16;
    f.nHeight = (f.nRectBottom + 15) / 16 * 16;
    if (data[2] & 0x40) {
        f.nPadLeft = 3;
        f.nPadRight = 1;
        f.nPadTop = 2;
        f.nPadBottom = 1;
        f.nChromaPadLeft = 1;
        f.nChromaPadRight = 4;
        f.nChromaPadTop = 1;
    }
    if (data[2] & 0x80) f.nFormatFlags = FORMAT_FLAG_SWAPPED;
    const int sx = code == VIDEO_FORMAT_YUV420 || code == VIDEO_FORMAT_YUV422;
    const int sy = code == VIDEO_FORMAT_YUV420;
    size_t total = static_cast<size_t>(f.nPadLeft + f.nWidth + f.nPadRight) *
                   (f.nPadTop + f.nHeight + f.nPadBottom);
    if (code != VIDEO_FORMAT_Y800)
        total += 2 * static_cast<size_t>(f.nChromaPadLeft + (f.nWidth >> sx) + f.nChromaPadRight) *
                 (f.nChromaPadTop + (f.nHeight >> sy) + f.nChromaPadBottom);
    p.bytes.resize(total);
    const uint8_t* samples = data + 4;
    const size_t count = size - 4;
    for (size_t i = 0; i < total; ++i) p.bytes[i] = count ? samples[i % count] : 0x80;
    return p;
}

void CheckDecodes(CNCodecBuffer* jpeg, const Format& in) {
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBuffer* cache = CNCodecBuffer::CreateBuffer();
    Check(out && cache, "buffers");
    Format f{};
    jpeg->SetBufferUserData(0);
    Check(CNJpegCodec::Decode(nullptr, &f, jpeg, out, cache, 0) == 1, "our decoder reads it");
    Check(f.nCodecSubType == in.nCodecSubType, "sampling survives");
    Check(f.nRectRight == in.nRectRight && f.nRectBottom == in.nRectBottom, "size survives");
    cache->Release();
    out->Release();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    Picture picture = MakePicture(data, size);
    const int quality = (data[2] >> 2) & 3;
    const int kernel = (data[2] >> 4) & 3;
    const bool fault = (data[3] & 0x80) != 0;

    CNCodecBuffer* output = CNCodecBuffer::CreateBuffer();
    Check(output != nullptr, "output buffer");
    Format described{};
    described.nWidth = -1;
    if (fault) nplat::fault::Arm(nplat::fault::Kind::kHeap, data[3] & 15);
    const int ok = CNJpegCodec::Encode(&picture.format, &described, picture.bytes.data(), output,
                                       quality, kernel);
    nplat::fault::Disarm();

    if (quality == 3 || kernel == 3) Check(ok == 0, "invalid quality or kernel refused");
    if (!ok) {
        Check(output->GetDataSize() == 0, "no data after a failure");
        Check(described.nWidth == -1, "descriptor untouched after a failure");
    } else {
        const auto* s = static_cast<const uint8_t*>(output->GetAddress());
        const int n = output->GetDataSize();
        Check(n >= 4 && s[0] == 0xFF && s[1] == 0xD8 && s[n - 2] == 0xFF && s[n - 1] == 0xD9,
              "SOI ... EOI");
        Check(n <= output->GetBufferSize(), "inside the room");
        Check(
            described.nCodecType == VIDEO_TYPE_JPEG && described.nCodecSubType == VIDEO_FORMAT_JPEG,
            "JPEG descriptor");
        CheckDecodes(output, picture.format);
    }
    output->Release();
    return 0;
}
