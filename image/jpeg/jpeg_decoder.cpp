// CNJpegCodec::Decode (being written).
#include "ncodecbase/jpeg_codec.h"

int CNJpegCodec::Decode(VideoFormatInfoTag*, VideoFormatInfoTag*, CNCodecBuffer*, CNCodecBuffer*,
                        CNCodecBuffer*, int) {
    return 0;
}
