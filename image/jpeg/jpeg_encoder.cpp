// CNJpegCodec::Encode: baseline JFIF encoding of planar YUV pictures.
//
// Placeholder until the encoder lands: it refuses every picture, so callers
// see the documented failure result rather than a missing symbol.
#include "ncodecbase/jpeg_codec.h"

int CNJpegCodec::Encode(VideoFormatInfoTag* /*inFormat*/, VideoFormatInfoTag* /*outFormat*/,
                        unsigned char* /*pixels*/, CNCodecBuffer* /*output*/, int /*quality*/,
                        int /*kernelSelect*/) {
    return 0;
}
