// NCodecBase umbrella header: everything a host needs, in one include.
// Hosts that care about build times may include the individual headers instead.
#pragma once

#include "ncodecbase/base_services.h"
#include "ncodecbase/export.h"
#include "ncodecbase/host_events.h"
#include "ncodecbase/win_types.h"

#if __has_include("ncodecbase/codec_buffer.h")
#include "ncodecbase/codec_buffer.h"
#endif
#if __has_include("ncodecbase/codec_flat_buffer.h")
#include "ncodecbase/codec_flat_buffer.h"
#endif
#if __has_include("ncodecbase/codec_base.h")
#include "ncodecbase/codec_base.h"
#endif
#if __has_include("ncodecbase/helper.h")
#include "ncodecbase/helper.h"
#endif
