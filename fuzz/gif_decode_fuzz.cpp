// Fuzz target for the GIF decoder. The input is a GIF file followed by one
// option byte (a plain GIF works as it is: its trailer is taken as the
// options and the walk then reads past the end, which is a refusal path
// worth covering too).
//
// Option byte: bits 0-1 pick the caller's padding words; bit 2 asks for the
// file's own background entry instead of a given colour; bit 7 arms a heap
// fault after (bits 3-5) successful allocations.
//
// Checked: a refused decode gives 0 frames and keeps no reference to the
// input; a successful one composes every frame (at most 64) into buffers of
// exactly the described size, with time stamps that add up the durations,
// and every byte of each frame is read so AddressSanitizer sees it all.
// Screens are capped at 4 MiB of canvas here (the same walk as the codec's,
// with a lower bound) so that libFuzzer's memory limit is not the finding.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "image/gif/gif_index.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"
#include "platform/kernel/fault.h"

namespace {

void Check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "gif_decode: %s\n", what);
    std::abort();
}

void ReadAll(CNCodecBuffer* frame) {
    const auto* p = static_cast<const uint8_t*>(frame->GetAddress());
    unsigned sum = 0;
    for (int i = 0; i < frame->GetDataSize(); ++i) sum += p[i];
    volatile unsigned sink = sum;
    (void)sink;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > (1 << 24)) return 0;
    const uint8_t options = data[size - 1];
    const int fileSize = static_cast<int>(size - 1);
    {
        ncb::gif::FileIndex probe;
        if (!ncb::gif::IndexFile(data, fileSize, 0, 4 << 20, &probe)) return 0;
    }
    CNCodecBase::VideoFormatInfoTag f{};
    if (options & 1) {
        f.nPadLeft = 12;
        f.nPadRight = 4;
    }
    if (options & 2) {
        f.nPadTop = 2;
        f.nPadBottom = 1;
    }
    CNCodecBuffer* input =
        CNCodecBuffer::CreateWrapBuffer(const_cast<uint8_t*>(data), fileSize, fileSize, nullptr);
    Check(input != nullptr, "input buffer");
    const unsigned int background = (options & 4) ? 0xFFFFFFFFu : 0x80402010u;
    if (options & 0x80) nplat::fault::Arm(nplat::fault::Kind::kHeap, (options >> 3) & 7);
    {
        CNGifCodec codec;
        const int frames = codec.Decode(nullptr, &f, input, 40, background);
        Check(frames >= 0, "frame count");
        Check(input->GetRefCount() == (frames ? 2 : 1), "input reference");
        if (frames) {
            Check(f.nCodecSubType == VIDEO_FORMAT_RGB32 && f.nWidth >= 1 && f.nHeight >= 1,
                  "descriptor");
            const int64_t pitch = f.nPadLeft + int64_t{f.nWidth} * 4 + f.nPadRight;
            const int64_t bytes = pitch * (f.nPadTop + int64_t{f.nHeight} + f.nPadBottom);
            uint32_t clock = 0;
            for (int i = 0; i < frames && i < 64; ++i) {
                CNCodecBuffer* frame = nullptr;
                int duration = -1;
                if (!codec.GetDecodedFrame(i, &frame, &duration)) {
                    Check(frame == nullptr, "refused frame left a buffer");
                    continue;
                }
                Check(frame->GetDataSize() == bytes, "frame size");
                Check(frame->GetTimeStamp() == clock, "time stamp");
                Check(frame->GetBufferFlag() == 0 ||
                          frame->GetBufferFlag() == CNGifCodec::kFlagTruncated,
                      "frame flag");
                clock += static_cast<uint32_t>(duration);
                ReadAll(frame);
                frame->Release();
            }
        }
    }
    nplat::fault::Disarm();
    Check(input->GetRefCount() == 1, "input released");
    input->Release();
    return 0;
}
