// `ncodec convert IN OUT`: decodes IN with the format its bytes announce and
// writes OUT in the format its extension names, through the library's own
// codecs. Alpha is kept when the picture has any transparency (or forced on
// or off by --alpha / --no-alpha) where the output format can carry it.
// Two GIF forms go beyond one picture: a frame-number pattern as OUT writes
// every frame of a GIF, and several inputs with --delay make an animation.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/ncodec/commands.h"
#include "tools/ncodec/gif_animation.h"
#include "tools/ncodec/image_formats.h"
#include "tools/ncodec/layout_convert.h"

namespace ncodec {
namespace {

enum class AlphaChoice { kAuto, kOn, kOff };

struct ConvertOptions {
    std::vector<std::string> inputs;
    std::string out;
    AlphaChoice alpha = AlphaChoice::kAuto;
    std::string via;  // a pixel layout to pass through, see layout_convert.h
    int quality = 1;  // JPEG: 0 low, 1 medium, 2 high
    int delay = -1;   // animated GIF: hundredths of a second per frame
};

bool ParseQuality(const std::string& name, int* quality) {
    static const char* const kNames[] = {"low", "medium", "high"};
    for (int i = 0; i < 3; ++i) {
        if (name == kNames[i]) {
            *quality = i;
            return true;
        }
    }
    return false;
}

bool ParseDelay(const std::string& text, int* delay) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0 || value > 65535) return false;
    *delay = static_cast<int>(value);
    return true;
}

bool Parse(const Args& args, ConvertOptions* o) {
    std::vector<std::string> files;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--via" && i + 1 < args.size()) {
            o->via = args[++i];
        } else if (a == "--alpha") {
            o->alpha = AlphaChoice::kOn;
        } else if (a == "--no-alpha") {
            o->alpha = AlphaChoice::kOff;
        } else if (a == "--quality" && i + 1 < args.size()) {
            if (!ParseQuality(args[++i], &o->quality)) {
                std::fprintf(stderr, "ncodec convert: --quality takes low, medium or high\n");
                return false;
            }
        } else if (a == "--delay" && i + 1 < args.size()) {
            if (!ParseDelay(args[++i], &o->delay)) {
                std::fprintf(stderr, "ncodec convert: --delay takes 0 to 65535 hundredths\n");
                return false;
            }
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "ncodec convert: unknown option '%s'\n", a.c_str());
            return false;
        } else {
            files.push_back(a);
        }
    }
    const bool animation = o->delay >= 0;
    if (files.size() < 2 || (!animation && files.size() != 2)) {
        std::fprintf(stderr,
                     "usage: ncodec convert [--alpha | --no-alpha] [--via LAYOUT]\n"
                     "                      [--quality low|medium|high] IN OUT\n"
                     "       ncodec convert IN.gif OUT_%%03d.png   (every frame)\n"
                     "       ncodec convert --delay N IN... OUT.gif (animation, N/100 s)\n"
                     "layouts: %s\n",
                     LayoutNames().c_str());
        return false;
    }
    o->out = files.back();
    files.pop_back();
    o->inputs = std::move(files);
    return true;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec convert: %s\n", message.c_str());
    return 1;
}

}  // namespace

int RunConvert(const Args& args) {
    ConvertOptions o;
    if (!Parse(args, &o)) return 2;
    if (o.delay >= 0) return ConvertToGifAnimation(o.inputs, o.delay, o.out);
    const std::string& in = o.inputs.front();
    if (IsFramePattern(o.out)) return ConvertGifFrames(in, o.out);
    const ImageFormat* target = FormatForPath(o.out);
    if (!target || !target->encode) return Fail("cannot write this kind of file: " + o.out);

    std::string error;
    BufferPtr file = ReadFileBuffer(in, &error);
    if (!file) return Fail(error);
    const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
    const ImageFormat* source = FormatForData(bytes, static_cast<size_t>(file->GetDataSize()));
    if (!source) return Fail(in + " is not a picture in a format ncodec reads");

    Picture picture;
    if (!source->decode(file.get(), &picture))
        return Fail(in + ": the " + source->name + " decoder refused the file");
    if (!o.via.empty() && !ConvertThroughLayout(o.via, &picture, &error)) return Fail(error);
    EncodeOptions options;
    options.quality = o.quality;
    options.alpha =
        o.alpha == AlphaChoice::kOn || (o.alpha == AlphaChoice::kAuto && HasTransparency(picture));
    BufferPtr encoded(CNCodecBuffer::CreateBuffer());
    if (!encoded || !target->encode(picture, options, encoded.get()))
        return Fail(std::string("the ") + target->name + " encoder failed");
    if (!WriteFileBuffer(o.out, encoded.get(), &error)) return Fail(error);
    std::printf("%s (%s) -> %s (%s%s), %d x %d, %d bytes\n", in.c_str(), source->name,
                o.out.c_str(), target->name, options.alpha ? ", with alpha" : "",
                picture.format.nWidth, picture.format.nHeight, encoded->GetDataSize());
    return 0;
}

}  // namespace ncodec
