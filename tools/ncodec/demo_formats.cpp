// Demo step "formats": the plane layout that the video descriptor gives a few
// format codes under the library's allocation rule (pitches, plane offsets,
// U/V order, bottom-up rows, a processing rectangle), one frame allocated and
// filled through the plane views, and the derived quantities of a few audio
// descriptors. Written to formats.txt.
#include <cstdint>
#include <cstring>

#include "base/audio_format.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "tools/ncodec/demo_report.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

struct NamedCode {
    int code;
    int flags;
    const char* name;
};

constexpr NamedCode kShown[] = {
    {VIDEO_FORMAT_Y800, 0, "Y800"},
    {VIDEO_FORMAT_YUV420, 0, "YUV420"},
    {VIDEO_FORMAT_YUV420, FORMAT_FLAG_SWAPPED, "YUV420 swapped"},
    {VIDEO_FORMAT_YUV422, 0, "YUV422"},
    {VIDEO_FORMAT_YUV444, 0, "YUV444"},
    {VIDEO_FORMAT_YV12, 0, "YV12"},
    {VIDEO_FORMAT_NV12, 0, "NV12"},
    {VIDEO_FORMAT_YUY2, 0, "YUY2"},
    {VIDEO_FORMAT_AYUV, 0, "AYUV"},
    {VIDEO_FORMAT_RGB565, 0, "RGB565"},
    {VIDEO_FORMAT_RGB24, 0, "RGB24"},
    {VIDEO_FORMAT_RGB32, FORMAT_FLAG_SWAPPED, "RGB32 bottom-up"},
};

constexpr int kWidth = 37, kHeight = 21;

// The layouts are shown as offsets from this frame; every frame above fits.
uint8_t anchor[8192];

void VideoTable(DemoReport& r) {
    r.Line("video layouts, %d x %d, allocation rule (offsets in bytes from the data address)",
           kWidth, kHeight);
    r.Line("%-16s %4s %6s %6s %8s %6s %6s %6s %6s %8s", "format", "bpp", "pitch", "pad", "chroma",
           "cpitch", "U at", "V at", "row0 at", "size");
    for (const NamedCode& c : kShown) {
        ncb::VideoFormatInfo f;
        ncb::InitVideoFormat(&f, c.code, kWidth, kHeight);
        f.nFormatFlags = c.flags;
        ncb::FrameLayout fl;
        ncb::PlaneSet p;
        int size = 0;
        if (!r.Expect(ncb::ApplyAllocationRule(&f) && ncb::GetFrameLayout(f, &fl) &&
                          ncb::AllocationRuleSize(f, &size) && ncb::GetPlanes(f, anchor, false, &p),
                      c.name)) {
            continue;
        }
        char chroma[24] = "-", chromaPitch[24] = "-";
        if (fl.format.chromaPlanes) {
            std::snprintf(chroma, sizeof chroma, "%dx%d%s", fl.chromaWidth, fl.chromaHeight,
                          fl.format.pairs ? "p" : "");
            std::snprintf(chromaPitch, sizeof chromaPitch, "%lld",
                          static_cast<long long>(fl.chromaPitch));
        }
        r.Line("%-16s %4d %6lld %6d %8s %6s %6lld %6lld %6td %8d", c.name, fl.format.bpp0,
               static_cast<long long>(fl.pitch0), f.nPadRight, chroma, chromaPitch,
               static_cast<long long>(fl.uPlane), static_cast<long long>(fl.vPlane),
               p.plane0.data - anchor, size);
    }
    r.Line("(chroma WxHp: U,V pairs; row0 at: where picture row 0 starts; -1: no such plane)");
}

void RectangleExample(DemoReport& r) {
    ncb::VideoFormatInfo f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_YUV420, 16, 12);
    f.nRectLeft = 2;
    f.nRectRight = 6;
    f.nRectTop = 4;
    f.nRectBottom = 8;
    ncb::PlaneSet p;
    if (!r.Check(ncb::GetPlanes(f, anchor, true, &p), "rectangle (2, 6, 4, 8) on 16x12 4:2:0")) {
        return;
    }
    const ptrdiff_t uStart = 16 * 12;
    const ptrdiff_t uOffset = p.u.data - anchor - uStart;
    r.Line("rectangle (2, 6, 4, 8): luma at %td, chroma sample (%td, %td), %dx%d chroma",
           p.plane0.data - anchor, uOffset % p.u.pitch, uOffset / p.u.pitch, p.u.width, p.u.height);
}

// Allocates an NV12 frame by the rule and writes a gradient through the views.
void AllocatedFrame(DemoReport& r) {
    CNCodecBuffer* buffer = CNCodecBuffer::CreateBuffer();
    if (!r.Check(buffer != nullptr, "CreateBuffer for a frame")) return;
    ncb::VideoFormatInfo f;
    ncb::InitVideoFormat(&f, VIDEO_FORMAT_NV12, kWidth, kHeight);
    uint8_t* data = ncb::AllocateFrame(buffer, &f);
    ncb::PlaneSet p;
    if (r.Check(data && ncb::GetPlanes(f, data, false, &p), "AllocateFrame NV12 37x21")) {
        for (int y = 0; y < p.plane0.height; ++y) {
            std::memset(p.plane0.data + y * p.plane0.pitch, 16 + 8 * y, p.plane0.width);
        }
        for (int y = 0; y < p.u.height; ++y)
            std::memset(p.u.data + y * p.u.pitch, 128, 2 * p.u.width);
        r.Line("NV12 frame: address %% 16 = %d, buffer %d bytes, pitch %td, chroma pitch %td",
               static_cast<int>(reinterpret_cast<uintptr_t>(data) % 16), buffer->GetBufferSize(),
               p.plane0.pitch, p.u.pitch);
    }
    buffer->Release();
}

struct NamedAudio {
    const char* name;
    int channels, mask, rate, bits, flags;
};

constexpr NamedAudio kAudio[] = {
    {"stereo 44.1k 16", 2, 0x3, 44100, 16, AUDIO_FLAG_JOINT_STEREO},
    {"5.1 48k 24", 6, 0x3F, 48000, 24, 0},
    {"4ch mask 0x3", 4, 0x3, 22050, 16, 0},
    {"mask 0x60F", 6, 0x60F, 96000, 16, 0},
    {"top only 0x40", 1, 0x40, 48000, 16, 0},
    {"32-bit", 2, 0x3, 48000, 32, 0},
    {"rate 3999", 1, 0x4, 3999, 8, 0},
};

void AudioTable(DemoReport& r) {
    r.Line("%s", "");
    r.Line("audio descriptors");
    r.Line("%-16s %9s %8s %8s %6s %6s %8s %10s", "format", "speakers", "convert", "extra", "joint",
           "valid", "work Hz", "bytes/1000");
    for (const NamedAudio& a : kAudio) {
        ncb::AudioFormatInfo f{};
        f.nStructSize = sizeof f;
        f.nCodecType = AUDIO_TYPE_PCM;
        f.nCodecSubType = AUDIO_FORMAT_PCM;
        f.nChannels = a.channels;
        f.nSpeakerInfo = a.mask;
        f.nSampleRate = a.rate;
        f.nBitsPerSample = a.bits;
        f.nFormatFlags = a.flags;
        int bytes = -1;
        ncb::SampleDataBytes(f, 1000, &bytes);
        r.Line("%-16s %9d %8d %8d %6d %6d %8d %10d", a.name, ncb::RenderSpeakerCount(f),
               ncb::ConverterChannelCount(a.mask), ncb::ExtraChannelCount(f),
               ncb::IsJointStereo(f) ? 1 : 0, ncb::IsRenderableAudioFormat(f) ? 1 : 0,
               ncb::WorkingSampleRate(f), bytes);
    }
}

}  // namespace

bool DemoFormats(const DemoContext& context, std::string* error) {
    DemoReport r;
    VideoTable(r);
    RectangleExample(r);
    AllocatedFrame(r);
    AudioTable(r);
    if (!context.WriteText("formats.txt", r.text(), error)) return false;
    if (!r.ok()) *error = "check failed: " + r.firstFailure();
    return r.ok();
}

}  // namespace ncodec
