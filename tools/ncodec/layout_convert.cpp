// RGB32 -> layout -> RGB32 through the conversion calls a host would use:
// ConvertRGB for the RGB layouts, ConvertFromRGB / ConvertToRGB for generic
// planar YUV, the table pair for AYUV, and generic 4:4:4 plus ConvertToYUV /
// ConvertFromYUV for the other surface layouts. No adjustment anywhere.
#include "tools/ncodec/layout_convert.h"

#include <vector>

#include "base/processor_level.h"
#include "ncodecbase/video_processor.h"

namespace ncodec {
namespace {

struct Layout {
    const char* name;
    int code;
};

constexpr Layout kLayouts[] = {
    {"y800", VIDEO_FORMAT_Y800},     {"yuv420", VIDEO_FORMAT_YUV420},
    {"yuv422", VIDEO_FORMAT_YUV422}, {"yuv444", VIDEO_FORMAT_YUV444},
    {"iyuv", VIDEO_FORMAT_IYUV},     {"yv12", VIDEO_FORMAT_YV12},
    {"nv12", VIDEO_FORMAT_NV12},     {"yuy2", VIDEO_FORMAT_YUY2},
    {"yvyu", VIDEO_FORMAT_YVYU},     {"uyvy", VIDEO_FORMAT_UYVY},
    {"vyuy", VIDEO_FORMAT_VYUY},     {"ayuv", VIDEO_FORMAT_AYUV},
    {"rgb555", VIDEO_FORMAT_RGB555}, {"rgb565", VIDEO_FORMAT_RGB565},
    {"rgb24", VIDEO_FORMAT_RGB24},   {"rgb32", VIDEO_FORMAT_RGB32},
};

using Config = CNVideoProcessor::ConvertConfigTag;
constexpr Config kNoAdjust{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};

bool NewFrame(int code, int width, int height, Picture* frame) {
    ncb::InitVideoFormat(&frame->format, code, width, height);
    frame->pixels.reset(CNCodecBuffer::CreateBuffer());
    return frame->pixels && ncb::AllocateFrame(frame->pixels.get(), &frame->format);
}

// One conversion step from `in` to a new frame of `code`.
bool Step(Picture& in, int code, Picture* out) {
    if (!NewFrame(code, in.format.nWidth, in.format.nHeight, out)) return false;
    const int level = ncb::ProcessorLevel() < 0 ? 0 : ncb::ProcessorLevel();
    Config c = kNoAdjust;
    CNCodecBuffer* a = in.pixels.get();
    CNCodecBuffer* b = out->pixels.get();
    const int from = in.format.nCodecSubType;
    auto* fa = &in.format;
    auto* fb = &out->format;
    const bool fromRgb = from >= VIDEO_FORMAT_RGB555, toRgb = code >= VIDEO_FORMAT_RGB555;
    const bool fromGeneric = from <= VIDEO_FORMAT_YUV444, toGeneric = code <= VIDEO_FORMAT_YUV444;
    if (from == VIDEO_FORMAT_RGB32 && code == VIDEO_FORMAT_AYUV)
        return CNVideoProcessor::ConvertRGB32toAYUV(a, b, fa, fb, 0, 0, level);
    if (from == VIDEO_FORMAT_AYUV && code == VIDEO_FORMAT_RGB32)
        return CNVideoProcessor::ConvertAYUVtoRGB32(a, b, fa, fb, 0, 0, level);
    if (fromRgb && toRgb) return CNVideoProcessor::ConvertRGB(a, b, fa, fb, 0, level);
    if (fromRgb) return CNVideoProcessor::ConvertFromRGB(a, b, fa, fb, &c, 0, level);
    if (toRgb) return CNVideoProcessor::ConvertToRGB(a, b, fa, fb, &c, 0, level);
    if (fromGeneric && !toGeneric)
        return CNVideoProcessor::ConvertToYUV(a, b, fa, fb, &c, 0, level);
    return CNVideoProcessor::ConvertFromYUV(a, b, fa, fb, &c, 0, level);
}

void MakeOpaque(const Picture& p) {
    ncb::PlaneSet planes;
    if (!ncb::GetPlanes(p.format, static_cast<uint8_t*>(p.pixels->GetAddress()), false, &planes))
        return;
    for (int y = 0; y < planes.plane0.height; ++y) {
        uint8_t* row = planes.plane0.data + y * planes.plane0.pitch;
        for (int x = 0; x < planes.plane0.width; ++x) row[4 * x + 3] = 255;
    }
}

}  // namespace

std::string LayoutNames() {
    std::string names;
    for (const Layout& l : kLayouts) names += std::string(names.empty() ? "" : " ") + l.name;
    return names;
}

bool ConvertThroughLayout(const std::string& name, Picture* picture, std::string* error) {
    const Layout* layout = nullptr;
    for (const Layout& l : kLayouts)
        if (name == l.name) layout = &l;
    if (!layout) {
        *error = "unknown layout '" + name + "' (one of: " + LayoutNames() + ")";
        return false;
    }
    const int code = layout->code;
    const bool surface = code >= VIDEO_FORMAT_IYUV && code <= VIDEO_FORMAT_VYUY;
    // The chain of codes from RGB32 back to RGB32.
    std::vector<int> chain;
    if (surface) {
        chain = {VIDEO_FORMAT_YUV444, code, VIDEO_FORMAT_YUV444, VIDEO_FORMAT_RGB32};
    } else {
        chain = {code, VIDEO_FORMAT_RGB32};
    }
    Picture current = std::move(*picture);
    for (int next : chain) {
        Picture out;
        if (!Step(current, next, &out)) {
            *error = "conversion through " + name + " failed (out of memory?)";
            *picture = std::move(current);
            return false;
        }
        current = std::move(out);
    }
    // Widening from 16 or 24 bits writes alpha 0; those layouts carry no
    // alpha, so the picture comes back opaque.
    if (code == VIDEO_FORMAT_RGB555 || code == VIDEO_FORMAT_RGB565 || code == VIDEO_FORMAT_RGB24)
        MakeOpaque(current);
    *picture = std::move(current);
    return true;
}

}  // namespace ncodec
