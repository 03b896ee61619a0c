// CNPngCodec::Decode: the public entry over the decoder in png_decoder.cpp,
// reading the file from the input buffer's data with the default limits.
#include "ncodecbase/png_codec.h"

#include "image/png/png_decoder.h"

int CNPngCodec::Decode(VideoFormatInfoTag* inFormat, VideoFormatInfoTag* outFormat,
                       CNCodecBuffer* input, CNCodecBuffer** output) {
    (void)inFormat;  // the file says everything
    if (!output) return 0;
    *output = nullptr;
    if (!input) return 0;
    const int size = input->GetDataSize();
    const auto* data = static_cast<const uint8_t*>(input->GetAddress());
    if (!data || size < 8) return 0;
    return ncb::png::DecodeFile(data, static_cast<size_t>(size), outFormat, output);
}
