// Encode-then-decode fuzz target for the GIF codec: the input describes a
// short animation of small RGB32 pictures; it is encoded with CNGifCodec and
// decoded again, and every frame must come back as exactly the colours the
// quantiser chose for it, with its delay rounded down to 10 ms.
//
// Input: byte 0 width - 1 (0-47), byte 1 height - 1 (0-47), byte 2 frames
// - 1 (0-3), byte 3 options (bit 0 interlaced, bit 1 bottom-up rows, bit 7
// arm a heap fault after bits 2-5 successful allocations); the rest are
// pixel bytes, repeated when short, each frame starting further along.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/video_processor.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "gif_roundtrip: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    const int w = data[0] % 48 + 1, h = data[1] % 48 + 1, frames = data[2] % 4 + 1;
    const uint8_t options = data[3];
    const bool interlaced = options & 1, flip = options & 2;
    const uint8_t* bytes = data + 4;
    const size_t count = size - 4;
    std::vector<std::vector<uint32_t>> pictures(static_cast<size_t>(frames));
    for (int k = 0; k < frames; ++k) {
        pictures[k].resize(static_cast<size_t>(w) * h);
        for (size_t i = 0; i < pictures[k].size(); ++i) {
            const size_t at = (i * 3 + static_cast<size_t>(k) * 7) % count;
            pictures[k][i] = uint32_t{bytes[at]} << 16 | uint32_t{bytes[(at + 1) % count]} << 8 |
                             bytes[(at + 2) % count];
        }
    }
    CNCodecBase::VideoFormatInfoTag in{}, out{};
    in.nCodecSubType = VIDEO_FORMAT_RGB32;
    in.nWidth = in.nRectRight = w;
    in.nHeight = in.nRectBottom = h;
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    bool encoded = true;
    {
        CNGifCodec codec;
        Check(codec.PrepareEncode(&in, &out) == 1, "prepare");
        if (options & 0x80) nplat::fault::Arm(nplat::fault::Kind::kHeap, (options >> 2) & 15);
        for (int k = 0; k < frames && encoded; ++k) {
            CNCodecBuffer* picture =
                CNCodecBuffer::CreateWrapBuffer(pictures[k].data(), w * h * 4, w * h * 4, nullptr);
            encoded = picture && codec.AddFrame(picture, 10 * k + 5, interlaced, flip) == 1;
            if (picture) picture->Release();
        }
        encoded = encoded && codec.Encode(file) == 1;
        nplat::fault::Disarm();
    }
    if (!encoded) {
        Check(options & 0x80, "encode failed without a fault");
        file->Release();
        return 0;
    }
    CNGifCodec decoder;
    CNCodecBase::VideoFormatInfoTag decoded{};
    Check(decoder.Decode(nullptr, &decoded, file, 0, 0xFFFFFFFFu) == frames, "frame count");
    for (int k = 0; k < frames; ++k) {
        std::vector<uint8_t> indices(static_cast<size_t>(w) * h);
        uint8_t palette[1024];
        int colours = 0;
        Check(CNVideoProcessor::ColorQuantToIndex256(
                  w, h, reinterpret_cast<unsigned char*>(pictures[k].data()), indices.data(), w * 4,
                  w, palette, &colours, flip) == 1,
              "quantise");
        CNCodecBuffer* frame = nullptr;
        int duration = -1;
        Check(decoder.GetDecodedFrame(k, &frame, &duration) == 1, "compose");
        Check(duration == k * 10, "duration");
        Check(frame->GetBufferFlag() == 0, "complete data");
        const auto* px = static_cast<const uint32_t*>(frame->GetAddress());
        for (size_t i = 0; i < indices.size(); ++i) {
            const uint8_t* e = palette + 4 * indices[i];
            const uint32_t want = uint32_t{e[2]} << 16 | uint32_t{e[1]} << 8 | e[0];
            Check(px[i] == want, "pixel");
        }
        frame->Release();
    }
    file->Release();
    return 0;
}
