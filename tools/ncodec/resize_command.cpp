// `ncodec resize WxH IN OUT`: decodes IN, scales it to W x H with the
// library's polyphase resizer and writes OUT (format by extension). The
// picture is scaled as RGB32, or with --yuv420 as planar 4:2:0 (converted
// there and back with CNVideoProcessor), the way a video render scales
// decoded frames. Alpha is kept when the picture has any transparency.
#include <cstdio>
#include <string>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

using Config = CNVideoProcessor::ConvertConfigTag;
constexpr Config kNoAdjust{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};

struct ResizeOptions {
    int width = 0, height = 0;
    bool yuv420 = false;
    std::string in, out;
};

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec resize: %s\n", message.c_str());
    return 1;
}

bool ParseSize(const std::string& text, int* w, int* h) {
    char x = 0;
    char rest = 0;
    return std::sscanf(text.c_str(), "%d%c%d%c", w, &x, h, &rest) == 3 && (x == 'x' || x == 'X') &&
           *w >= 1 && *h >= 1 && *w <= 16384 && *h <= 16384;
}

bool Parse(const Args& args, ResizeOptions* o) {
    std::vector<std::string> rest;
    for (const std::string& a : args) {
        if (a == "--yuv420") {
            o->yuv420 = true;
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "ncodec resize: unknown option '%s'\n", a.c_str());
            return false;
        } else {
            rest.push_back(a);
        }
    }
    if (rest.size() != 3 || !ParseSize(rest[0], &o->width, &o->height)) {
        std::fprintf(stderr, "usage: ncodec resize [--yuv420] WIDTHxHEIGHT IN OUT\n");
        return false;
    }
    o->in = rest[1];
    o->out = rest[2];
    return true;
}

int Level() { return ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel(); }

bool NewFrame(int code, int width, int height, ncb::VideoFormatInfo* f, BufferPtr* buffer) {
    ncb::InitVideoFormat(f, code, width, height);
    buffer->reset(CNCodecBuffer::CreateBuffer());
    return *buffer && ncb::AllocateFrame(buffer->get(), f);
}

ncb::PlaneSet Planes(const ncb::VideoFormatInfo& f, CNCodecBuffer* b) {
    ncb::PlaneSet p;
    ncb::GetPlanes(f, static_cast<uint8_t*>(b->GetAddress()), false, &p);
    return p;
}

// The picture scaled as RGB32: one work buffer, one frame call.
bool ScaleRgb32(const Picture& in, int w, int h, Picture* out) {
    if (!NewFrame(VIDEO_FORMAT_RGB32, w, h, &out->format, &out->pixels)) return false;
    const ncb::PlaneSet s = Planes(in.format, in.pixels.get());
    const ncb::PlaneSet d = Planes(out->format, out->pixels.get());
    CNCodecBuffer work;
    const bool ok =
        CNVideoProcessor::ResizeInit(VIDEO_FORMAT_RGB32, Level(), in.format.nWidth,
                                     in.format.nHeight, static_cast<int>(s.plane0.pitch), 0, w, h,
                                     static_cast<int>(d.plane0.pitch), 0, &work) == 1 &&
        CNVideoProcessor::ResizeRGB32(s.plane0.data, d.plane0.data, &work) == 1;
    CNVideoProcessor::ResizeUninit(&work);
    return ok;
}

// RGB32 -> 4:2:0 -> scaled 4:2:0 -> RGB32.
bool ScaleYuv420(const Picture& in, int w, int h, Picture* out) {
    ncb::VideoFormatInfo yf{}, zf{};
    BufferPtr yb, zb;
    Config config = kNoAdjust;
    const int level = Level();
    if (!NewFrame(VIDEO_FORMAT_YUV420, in.format.nWidth & ~1, in.format.nHeight & ~1, &yf, &yb) ||
        !NewFrame(VIDEO_FORMAT_YUV420, w, h, &zf, &zb) ||
        !NewFrame(VIDEO_FORMAT_RGB32, w, h, &out->format, &out->pixels))
        return false;
    ncb::VideoFormatInfo inF = in.format;
    inF.nWidth &= ~1;  // the 4:2:0 kernels take even sizes; an odd last column is dropped
    inF.nHeight &= ~1;
    inF.nPadRight += (in.format.nWidth & 1) * 4;
    CNVideoProcessor::ConvertFromRGB(in.pixels.get(), yb.get(), &inF, &yf, &config, 0, level);
    const ncb::PlaneSet s = Planes(yf, yb.get());
    const ncb::PlaneSet d = Planes(zf, zb.get());
    CNCodecBuffer work;
    const bool ok =
        CNVideoProcessor::ResizeInit(VIDEO_FORMAT_YUV420, level, yf.nWidth, yf.nHeight,
                                     static_cast<int>(s.plane0.pitch), static_cast<int>(s.u.pitch),
                                     w, h, static_cast<int>(d.plane0.pitch),
                                     static_cast<int>(d.u.pitch), &work) == 1 &&
        CNVideoProcessor::ResizeYUV420(s.plane0.data, s.u.data, s.v.data, d.plane0.data, d.u.data,
                                       d.v.data, &work) == 1;
    CNVideoProcessor::ResizeUninit(&work);
    if (!ok) return false;
    CNVideoProcessor::ConvertToRGB(zb.get(), out->pixels.get(), &zf, &out->format, &config, 0,
                                   level);
    return true;
}

}  // namespace

int RunResize(const Args& args) {
    ResizeOptions o;
    if (!Parse(args, &o)) return 2;
    const ImageFormat* target = FormatForPath(o.out);
    if (!target || !target->encode) return Fail("cannot write this kind of file: " + o.out);
    std::string error;
    BufferPtr file = ReadFileBuffer(o.in, &error);
    if (!file) return Fail(error);
    const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
    const ImageFormat* source = FormatForData(bytes, static_cast<size_t>(file->GetDataSize()));
    if (!source) return Fail(o.in + " is not a picture in a format ncodec reads");
    Picture picture;
    if (!source->decode(file.get(), &picture))
        return Fail(o.in + ": the " + source->name + " decoder refused the file");
    if (o.yuv420 &&
        (picture.format.nWidth < 2 || picture.format.nHeight < 2 || o.width < 2 || o.height < 2))
        return Fail("--yuv420 needs pictures of at least 2 x 2 pixels");
    Picture scaled;
    if (!(o.yuv420 ? ScaleYuv420 : ScaleRgb32)(picture, o.width, o.height, &scaled))
        return Fail("out of memory while scaling");
    EncodeOptions options;
    options.alpha = !o.yuv420 && HasTransparency(scaled);
    BufferPtr encoded(CNCodecBuffer::CreateBuffer());
    if (!encoded || !target->encode(scaled, options, encoded.get()))
        return Fail(std::string("the ") + target->name + " encoder failed");
    if (!WriteFileBuffer(o.out, encoded.get(), &error)) return Fail(error);
    std::printf("%s %d x %d -> %s %d x %d (%s)\n", o.in.c_str(), picture.format.nWidth,
                picture.format.nHeight, o.out.c_str(), o.width, o.height,
                o.yuv420 ? "planar 4:2:0" : "RGB32");
    return 0;
}

}  // namespace ncodec
