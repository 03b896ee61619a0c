// `ncodec convert IN OUT`: decodes IN with the format its bytes announce and
// writes OUT in the format its extension names, through the library's own
// codecs. Alpha is kept when the picture has any transparency (or forced on
// or off by --alpha / --no-alpha) where the output format can carry it.
#include <cstdio>
#include <string>

#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"
#include "tools/ncodec/layout_convert.h"

namespace ncodec {
namespace {

enum class AlphaChoice { kAuto, kOn, kOff };

struct ConvertOptions {
    std::string in, out;
    AlphaChoice alpha = AlphaChoice::kAuto;
    std::string via;  // a pixel layout to pass through, see layout_convert.h
};

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
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "ncodec convert: unknown option '%s'\n", a.c_str());
            return false;
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) {
        std::fprintf(stderr,
                     "usage: ncodec convert [--alpha | --no-alpha] [--via LAYOUT] IN OUT\n"
                     "layouts: %s\n",
                     LayoutNames().c_str());
        return false;
    }
    o->in = files[0];
    o->out = files[1];
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
    if (!o.via.empty() && !ConvertThroughLayout(o.via, &picture, &error)) return Fail(error);
    EncodeOptions options;
    options.alpha =
        o.alpha == AlphaChoice::kOn || (o.alpha == AlphaChoice::kAuto && HasTransparency(picture));
    BufferPtr encoded(CNCodecBuffer::CreateBuffer());
    if (!encoded || !target->encode(picture, options, encoded.get()))
        return Fail(std::string("the ") + target->name + " encoder failed");
    if (!WriteFileBuffer(o.out, encoded.get(), &error)) return Fail(error);
    std::printf("%s (%s) -> %s (%s%s), %d x %d, %d bytes\n", o.in.c_str(), source->name,
                o.out.c_str(), target->name, options.alpha ? ", with alpha" : "",
                picture.format.nWidth, picture.format.nHeight, encoded->GetDataSize());
    return 0;
}

}  // namespace ncodec
