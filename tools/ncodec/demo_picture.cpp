// Demo pictures written as PNG through the library's own encoder.
#include "tools/ncodec/demo_picture.h"

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"

namespace ncodec {

bool WritePicture(const DemoContext& context, const std::string& name,
                  const ncb::VideoFormatInfo& format, CNCodecBuffer* pixels, bool alpha,
                  std::string* error) {
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    ncb::VideoFormatInfo in = format, out{};
    const bool encoded = file && CNPngCodec::Encode(&in, &out, pixels, file,
                                                    alpha ? CNPngCodec::ENCODE_FLAG_ALPHA : 0);
    bool ok = false;
    if (!encoded) {
        *error = "cannot encode " + name + " as PNG";
    } else {
        ok = context.WriteBytes(name, file->GetAddress(), static_cast<size_t>(file->GetDataSize()),
                                error);
    }
    if (file) file->Release();
    return ok;
}

}  // namespace ncodec
