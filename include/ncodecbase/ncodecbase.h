// NCodecBase umbrella header: every exported class in one include.
// Hosts that care about build times may include the individual headers instead.
#pragma once

#include "ncodecbase/export.h"
#include "ncodecbase/gdi_text.h"
#include "ncodecbase/host_events.h"
#include "ncodecbase/host_windows.h"
#include "ncodecbase/win_types.h"

// Base services, buffers and descriptors, CPU helper.
#include "ncodecbase/base_services.h"
#include "ncodecbase/codec_base.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/codec_flat_buffer.h"
#include "ncodecbase/helper.h"

// Byte and bit streams.
#include "ncodecbase/data_stream.h"
#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/read_byte_stream.h"
#include "ncodecbase/write_bit_stream.h"
#include "ncodecbase/write_byte_stream.h"

// Image codecs.
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/png_codec.h"

// Video processing.
#include "ncodecbase/video_processor.h"

// Audio processing.
#include "ncodecbase/audio_processor.h"
#include "ncodecbase/audio_speaker_convert.h"

// Audio output.
#include "ncodecbase/audio_render.h"

// Video output: a described scene shown in a window or composed in memory.
#include "ncodecbase/video_render.h"

// Layered picture composition on a Direct3D 9-shaped device.
#include "ncodecbase/layered_render.h"

// Codec plug-in manager.
#include "ncodecbase/codec_manager.h"

// Archive readers.
#include "ncodecbase/rar_decoder.h"
#include "ncodecbase/zip_decoder.h"
