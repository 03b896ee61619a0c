// Demo step "gif": a short animation (a ball bouncing over a hue sweep)
// quantised frame by frame and written as an animated GIF, then decoded
// again: frame count, delays and how far each frame's colours moved in the
// quantisation. The first decoded frame is also written as PNG. Results in
// gif.txt.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"
#include "tools/ncodec/demo_picture.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

constexpr int kWidth = 160, kHeight = 120, kFrames = 24, kDelayMs = 60;

// Frame k as B, G, R, A words: a hue sweep with a ball on a bouncing path.
std::vector<uint32_t> Frame(int k) {
    std::vector<uint32_t> px(static_cast<size_t>(kWidth) * kHeight);
    const double t = 2 * M_PI * k / kFrames;
    const int cx = kWidth / 2 + static_cast<int>(50 * std::cos(t));
    const int cy = kHeight - 25 - static_cast<int>(70 * std::fabs(std::sin(t)));
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int h = (x * 6 * 256 / kWidth + k * 32) % (6 * 256), f = h % 256;
            const int up[6] = {255, 255 - f, 0, 0, f, 255}, rise[6] = {f, 255, 255, 255 - f, 0, 0};
            const int r = up[h / 256], g = rise[h / 256], b = 255 - (r + g) / 2;
            const int light = 120 + y;
            uint32_t c = 0xFF000000u | uint32_t(r * light / 240) << 16 |
                         uint32_t(g * light / 240) << 8 | uint32_t(b * light / 240);
            const int dx = x - cx, dy = y - cy;
            if (dx * dx + dy * dy < 14 * 14)
                c = 0xFFF0F0F0u - uint32_t(dx * dx + dy * dy) * 0x10101u / 4;
            px[static_cast<size_t>(y) * kWidth + x] = c;
        }
    }
    return px;
}

ncb::VideoFormatInfo Format() {
    ncb::VideoFormatInfo f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_RGB32, kWidth, kHeight);
    return f;
}

}  // namespace

bool DemoGif(const DemoContext& context, std::string* error) {
    DemoReport r;
    r.Line("Animated GIF: %d frames of %d x %d, %d ms each, octree-quantised", kFrames, kWidth,
           kHeight, kDelayMs);
    std::vector<std::vector<uint32_t>> frames;
    for (int k = 0; k < kFrames; ++k) frames.push_back(Frame(k));

    CNGifCodec encoder;
    ncb::VideoFormatInfo in = Format(), out{};
    bool added = encoder.PrepareEncode(&in, &out) == 1;
    for (int k = 0; added && k < kFrames; ++k) {
        CNCodecBuffer* picture = CNCodecBuffer::CreateWrapBuffer(
            frames[k].data(), kWidth * kHeight * 4, kWidth * kHeight * 4, nullptr);
        added = picture && encoder.AddFrame(picture, kDelayMs, 0, 0) == 1;
        if (picture) picture->Release();
    }
    r.Check(added, "frames quantised and stored");
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    if (!r.Check(file && added && encoder.Encode(file) == 1, "GIF89a written")) {
        if (file) file->Release();
        *error = "check failed: " + r.firstFailure();
        return false;
    }
    r.Line("gif_animation.gif: %d bytes (raw RGB %d)", file->GetDataSize(),
           kWidth * kHeight * 3 * kFrames);
    r.Check(context.WriteBytes("gif_animation.gif", file->GetAddress(),
                               static_cast<size_t>(file->GetDataSize()), error),
            "written");

    CNGifCodec decoder;
    ncb::VideoFormatInfo decoded{};
    const int count = decoder.Decode(nullptr, &decoded, file, 100, 0xFFFFFFFFu);
    r.Check(count == kFrames, "decodes back to every frame");
    double worst = 0;
    for (int k = 0; k < count; ++k) {
        CNCodecBuffer* frame = nullptr;
        int duration = 0;
        if (!r.Expect(decoder.GetDecodedFrame(k, &frame, &duration) == 1, "frame composed")) break;
        r.Expect(duration == kDelayMs, "delay kept");
        const auto* px = static_cast<const uint32_t*>(frame->GetAddress());
        double sum = 0;
        for (size_t i = 0; i < frames[k].size(); ++i)
            for (int shift = 0; shift < 24; shift += 8)
                sum += std::abs(int((px[i] >> shift) & 255) - int((frames[k][i] >> shift) & 255));
        const double mean = sum / (3.0 * frames[k].size());
        if (mean > worst) worst = mean;
        if (k == 0) {
            // Palette colours carry alpha 0; the PNG copy is shown opaque.
            std::vector<uint32_t> opaque(px, px + frames[k].size());
            for (uint32_t& p : opaque) p |= 0xFF000000u;
            CNCodecBuffer* wrap = CNCodecBuffer::CreateWrapBuffer(
                opaque.data(), kWidth * kHeight * 4, kWidth * kHeight * 4, nullptr);
            r.Check(wrap && WritePicture(context, "gif_frame0.png", Format(), wrap, false, error),
                    "first frame written as PNG");
            if (wrap) wrap->Release();
        }
        frame->Release();
    }
    r.Line("largest mean colour error of a frame: %.2f levels of 255", worst);
    r.Check(worst < 12, "quantisation error within 12 levels");
    file->Release();
    if (!context.WriteText("gif.txt", r.text(), error)) return false;
    if (!r.ok()) *error = "check failed: " + r.firstFailure();
    return r.ok();
}

}  // namespace ncodec
