// Encode-then-decode fuzz target for the PNG codec: the input describes an
// RGB32 picture and how it lies in memory; it is encoded with CNPngCodec and
// decoded again, and the decoded picture must equal the input (alpha forced
// to 255 when the file was written without it).
//
// Input: byte 0 width - 1 (0-63), byte 1 height - 1 (0-63), byte 2 layout
// (bit 0 alpha, bit 1 bottom-up rows, bits 2-3 left padding in pixels, bits
// 4-5 right padding in bytes, bit 6 one padding row on top), byte 3 faults
// (bit 7: arm a heap fault after bits 0-3 successful allocations); the rest
// are pixel bytes, repeated when short. Pictures stay small enough that
// their raw size plus 1024 bytes always holds zlib's output, so without a
// fault both steps must succeed.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "image/png/png_decoder.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "png_roundtrip: %s\n", what);
    std::abort();
}

struct Layout {
    int width, height, padLeft, padRight, padTop;
    bool alpha, bottomUp;
    int Pitch() const { return padLeft + 4 * width + padRight; }
    // Memory offset of picture pixel (x, y).
    size_t At(int x, int y) const {
        const int row = bottomUp ? height - 1 - y : y;
        return static_cast<size_t>(padTop + row) * Pitch() + padLeft + 4 * x;
    }
};

bool Decode(CNCodecBuffer* file, std::vector<uint8_t>* pixels) {
    ncb::VideoFormatInfo f{};
    CNCodecBuffer* out = nullptr;
    if (!CNPngCodec::Decode(nullptr, &f, file, &out)) return false;
    const auto* p = static_cast<const uint8_t*>(out->GetAddress());
    pixels->assign(p, p + out->GetDataSize());
    out->Release();
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    Layout l{data[0] % 64 + 1,   data[1] % 64 + 1,   4 * ((data[2] >> 2) & 3), (data[2] >> 4) & 3,
             (data[2] >> 6) & 1, (data[2] & 1) != 0, (data[2] & 2) != 0};
    const uint8_t* pixelBytes = data + 4;
    const size_t pixelCount = size - 4;

    std::vector<uint8_t> memory(static_cast<size_t>(l.Pitch()) * (l.padTop + l.height), 0xA5);
    size_t next = 0;
    for (int y = 0; y < l.height; ++y)
        for (int x = 0; x < l.width; ++x)
            for (int c = 0; c < 4; ++c, ++next)
                memory[l.At(x, y) + c] = pixelCount ? pixelBytes[next % pixelCount] : 0;

    ncb::VideoFormatInfo in{};
    ncb::InitVideoFormat(&in, VIDEO_FORMAT_RGB32, l.width, l.height);
    in.nFormatFlags = l.bottomUp ? FORMAT_FLAG_SWAPPED : 0;
    in.nPadLeft = l.padLeft;
    in.nPadRight = l.padRight;
    in.nPadTop = l.padTop;
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(memory.data(), int(memory.size()),
                                                           int(memory.size()), nullptr);
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    Check(input && file, "test buffers");

    const bool faults = data[3] & 0x80;
    ncb::VideoFormatInfo out{};
    if (faults) nplat::fault::Arm(nplat::fault::Kind::kHeap, data[3] & 15);
    const int encoded = CNPngCodec::Encode(&in, &out, input, file, l.alpha ? 1 : 0);
    std::vector<uint8_t> decoded;
    const bool decodedOk = encoded && Decode(file, &decoded);
    nplat::fault::Disarm();

    Check(out.nCodecType == VIDEO_TYPE_PNG && out.nWidth == l.width && out.nHeight == l.height,
          "output descriptor");
    if (!faults) Check(encoded && decodedOk, "round trip failed without a fault");
    if (decodedOk) {
        Check(decoded.size() == static_cast<size_t>(l.width) * l.height * 4, "decoded size");
        for (int y = 0; y < l.height; ++y)
            for (int x = 0; x < l.width; ++x) {
                const uint8_t* want = &memory[l.At(x, y)];
                const uint8_t* got = &decoded[(static_cast<size_t>(y) * l.width + x) * 4];
                Check(std::memcmp(want, got, 3) == 0 && got[3] == (l.alpha ? want[3] : 255),
                      "pixel differs");
            }
    }
    file->Release();
    input->Release();
    return 0;
}
