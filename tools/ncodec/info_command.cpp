// `ncodec info FILE`: what kind of picture a file holds and how it is built
// (header fields, chunks), then whether the library's decoder accepts it.
#include <cstdio>
#include <string>

#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {

int RunInfo(const Args& args) {
    if (args.size() != 1) {
        std::fprintf(stderr, "usage: ncodec info FILE\n");
        return 2;
    }
    std::string error;
    BufferPtr file = ReadFileBuffer(args[0], &error);
    if (!file) {
        std::fprintf(stderr, "ncodec info: %s\n", error.c_str());
        return 1;
    }
    const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
    const size_t size = static_cast<size_t>(file->GetDataSize());
    const ImageFormat* format = FormatForData(bytes, size);
    if (!format) format = FormatForPath(args[0]);
    std::printf("file: %s (%zu bytes)\n", args[0].c_str(), size);
    if (!format) {
        std::printf("format: unknown\n");
        return 1;
    }
    std::printf("format: %s\n%s", format->name, format->describe(bytes, size).c_str());
    Picture picture;
    if (!format->decode(file.get(), &picture)) {
        std::printf("decode: refused\n");
        return 1;
    }
    std::printf("decode: ok, RGB32 %d x %d%s\n", picture.format.nWidth, picture.format.nHeight,
                HasTransparency(picture) ? ", with transparency" : "");
    return 0;
}

}  // namespace ncodec
