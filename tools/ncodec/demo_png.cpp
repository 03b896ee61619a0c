// Demo step "png": a test picture (hue sweep across, brightness down, alpha
// ramp on the right half) written as RGB and RGBA PNG files, each decoded
// again and compared with the picture; a bottom-up copy of it written too, to
// show that the file comes out upright. Results in png.txt.
#include <cstdint>
#include <cstring>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"
#include "tools/ncodec/demo_picture.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

constexpr int kWidth = 320, kHeight = 200;

uint8_t Ramp(int phase) {  // a triangle wave 0..255 over 0..767
    const int p = phase % 768;
    return static_cast<uint8_t>(p < 256 ? p : p < 512 ? 511 - p : 0);
}

// Pixel (x, y) of the test picture as B, G, R, A.
void TestPixel(int x, int y, uint8_t* px) {
    const int phase = x * 768 / kWidth;
    const int light = 255 - y * 200 / kHeight;
    px[2] = static_cast<uint8_t>(Ramp(phase) * light / 255);
    px[1] = static_cast<uint8_t>(Ramp(phase + 512) * light / 255);
    px[0] = static_cast<uint8_t>(Ramp(phase + 256) * light / 255);
    px[3] =
        x < kWidth / 2 ? 255 : static_cast<uint8_t>(255 - (x - kWidth / 2) * 255 / (kWidth / 2));
}

// Fills an RGB32 frame laid out by the library's allocation rule.
CNCodecBuffer* MakePicture(bool bottomUp, ncb::VideoFormatInfo* f) {
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    ncb::InitVideoFormat(f, VIDEO_FORMAT_RGB32, kWidth, kHeight);
    f->nFormatFlags = bottomUp ? FORMAT_FLAG_SWAPPED : 0;
    ncb::PlaneSet planes;
    uint8_t* data = buffer ? ncb::AllocateFrame(buffer, f) : nullptr;
    if (!data || !ncb::GetPlanes(*f, data, false, &planes)) {
        if (buffer) buffer->Release();
        return nullptr;
    }
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            TestPixel(x, y, planes.plane0.data + y * planes.plane0.pitch + 4 * x);
    return buffer;
}

// Decodes outDir's copy of the file bytes and compares with the test picture.
bool DecodesBack(CNCodecBuffer* file, bool alpha, DemoReport& r) {
    ncb::VideoFormatInfo f{};
    CNCodecBuffer* out = nullptr;
    if (!CNPngCodec::Decode(nullptr, &f, file, &out)) return false;
    bool same = f.nWidth == kWidth && f.nHeight == kHeight;
    const auto* p = static_cast<const uint8_t*>(out->GetAddress());
    for (int y = 0; same && y < kHeight; ++y) {
        for (int x = 0; same && x < kWidth; ++x) {
            uint8_t want[4];
            TestPixel(x, y, want);
            if (!alpha) want[3] = 255;
            same = std::memcmp(p + (y * kWidth + x) * 4, want, 4) == 0;
        }
    }
    out->Release();
    return same;
}

void EncodeAndCheck(const DemoContext& context, DemoReport& r, const char* name, bool alpha,
                    bool bottomUp, std::string* error) {
    ncb::VideoFormatInfo in;
    CNCodecBuffer* picture = MakePicture(bottomUp, &in);
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    if (r.Check(picture && file, "test picture and file buffers")) {
        ncb::VideoFormatInfo out{};
        const bool encoded = CNPngCodec::Encode(&in, &out, picture, file, alpha ? 1 : 0) != 0;
        if (r.Check(encoded, name)) {
            const int raw = kWidth * kHeight * (alpha ? 4 : 3);
            r.Line("%-24s %s%s: %d bytes (raw %d, %.1f%%)", name, alpha ? "RGBA" : "RGB",
                   bottomUp ? " from bottom-up rows" : "", file->GetDataSize(), raw,
                   100.0 * file->GetDataSize() / raw);
            r.Check(DecodesBack(file, alpha, r), "decodes back to the same pixels");
            r.Check(WritePicture(context, name, in, picture, alpha, error), "written");
        }
    }
    if (file) file->Release();
    if (picture) picture->Release();
}

}  // namespace

bool DemoPng(const DemoContext& context, std::string* error) {
    DemoReport r;
    r.Line("PNG encoder and decoder, %d x %d test picture", kWidth, kHeight);
    EncodeAndCheck(context, r, "png_picture.png", false, false, error);
    EncodeAndCheck(context, r, "png_picture_alpha.png", true, false, error);
    EncodeAndCheck(context, r, "png_picture_bottom_up.png", false, true, error);
    if (!context.WriteText("png.txt", r.text(), error)) return false;
    if (!r.ok()) *error = "check failed: " + r.firstFailure();
    return r.ok();
}

}  // namespace ncodec
