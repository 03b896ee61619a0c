// `ncodec scenes FILE...`: runs the library's scene detector over a sequence
// of pictures (any format the image table reads, all of one size) or over
// the frames of raw planar 4:2:0 files (`--size WxH`), and prints one line
// per frame: its index, "cut" or "-", and the confidence (0 without a cut).
//
// Pictures are decoded to RGB32 and turned into luma by the library's own
// conversion; raw frames are handed to the detector in place, as views into
// the file's buffer. The option bits go to SceneDetectInit unchanged, so the
// command shows exactly what a host would get.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/video_processor.h"
#include "tools/ncodec/commands.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

using VP = CNVideoProcessor;

constexpr unsigned int kDefaultOptions = VP::SCENE_DETECT_SSSE3 | VP::SCENE_DETECT_SSE41 |
                                         VP::SCENE_DETECT_CONTEXT | VP::SCENE_DETECT_HISTOGRAM |
                                         VP::SCENE_DETECT_DISSOLVE | VP::SCENE_DETECT_WEIGHTED;

struct ScenesOptions {
    std::vector<std::string> files;
    int width = 0;  // --size: raw 4:2:0 frames
    int height = 0;
    unsigned int options = kDefaultOptions;
};

const char* kUsage =
    "usage: ncodec scenes [--size WxH] [--options BITS] FILE...\n"
    "  FILE...       pictures of one size (PNG, GIF, ...), one frame each, or with\n"
    "                --size raw planar 4:2:0 files of W x H frames\n"
    "  --options     SceneDetectInit option bits, e.g. 0x20 (default 0x%x:\n"
    "                SSSE3/SSE4.1 kernels, context, histogram, inter-field, weighted)\n";

bool Parse(const Args& args, ScenesOptions* o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--size" && i + 1 < args.size()) {
            if (std::sscanf(args[++i].c_str(), "%dx%d", &o->width, &o->height) != 2 ||
                o->width < 1 || o->height < 1) {
                std::fprintf(stderr, "ncodec scenes: --size wants WxH, e.g. 1920x1080\n");
                return false;
            }
        } else if (a == "--options" && i + 1 < args.size()) {
            char* end = nullptr;
            o->options = static_cast<unsigned int>(std::strtoul(args[++i].c_str(), &end, 0));
            if (!end || *end) {
                std::fprintf(stderr, "ncodec scenes: --options wants a number\n");
                return false;
            }
        } else if (!a.empty() && a[0] == '-') {
            std::fprintf(stderr, "ncodec scenes: unknown option '%s'\n", a.c_str());
            return false;
        } else {
            o->files.push_back(a);
        }
    }
    if (o->files.empty()) {
        std::fprintf(stderr, kUsage, kDefaultOptions);
        return false;
    }
    return true;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec scenes: %s\n", message.c_str());
    return 1;
}

// A detector over frames of one geometry; prints a line per frame.
class Detector {
  public:
    ~Detector() {
        if (started_) VP::SceneDetectUninit(&work_);
    }
    bool Start(ncb::VideoFormatInfo* format, unsigned int options) {
        started_ = VP::SceneDetectInit(format, options, &work_) == 1;
        return started_;
    }
    bool Frame(CNCodecBuffer* frame) {
        int result = 0;
        if (!VP::SceneDetect(frame, &result, &work_)) return false;
        std::printf("%d\t%s\t%d\n", index_++, result ? "cut" : "-", result);
        return true;
    }

  private:
    CNCodecBuffer work_;
    bool started_ = false;
    int index_ = 0;
};

// The luma of a decoded picture as a new Y800 frame.
BufferPtr LumaOf(Picture& picture, ncb::VideoFormatInfo* luma) {
    ncb::InitVideoFormat(luma, VIDEO_FORMAT_Y800, picture.format.nWidth, picture.format.nHeight);
    BufferPtr frame(CNCodecBuffer::CreateBuffer());
    if (!frame || !ncb::AllocateFrame(frame.get(), luma)) return nullptr;
    VP::ConvertFromRGB(picture.pixels.get(), frame.get(), &picture.format, luma, nullptr, 0, 0);
    return frame;
}

int RunPictures(const ScenesOptions& o) {
    Detector detector;
    ncb::VideoFormatInfo first{};
    for (size_t i = 0; i < o.files.size(); ++i) {
        const std::string& path = o.files[i];
        std::string error;
        BufferPtr file = ReadFileBuffer(path, &error);
        if (!file) return Fail(error);
        const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
        const ImageFormat* format = FormatForData(bytes, static_cast<size_t>(file->GetDataSize()));
        Picture picture;
        if (!format || !format->decode(file.get(), &picture))
            return Fail(path + " is not a picture ncodec can decode");
        ncb::VideoFormatInfo luma;
        BufferPtr frame = LumaOf(picture, &luma);
        if (!frame) return Fail("out of memory");
        if (i == 0) {
            first = luma;
            if (!detector.Start(&first, o.options)) return Fail("the detector did not start");
        } else if (luma.nWidth != first.nWidth || luma.nHeight != first.nHeight) {
            return Fail(path + " is " + std::to_string(luma.nWidth) + "x" +
                        std::to_string(luma.nHeight) + ", the first picture " +
                        std::to_string(first.nWidth) + "x" + std::to_string(first.nHeight));
        }
        if (!detector.Frame(frame.get())) return Fail("the detector failed on " + path);
    }
    return 0;
}

int RunRaw(const ScenesOptions& o) {
    ncb::VideoFormatInfo format;
    ncb::InitVideoFormat(&format, VIDEO_FORMAT_YUV420, o.width, o.height);
    ncb::FrameLayout layout;
    if (!ncb::GetFrameLayout(format, &layout)) return Fail("frame size too large");
    const int64_t frameBytes = layout.totalBytes;
    Detector detector;
    if (!detector.Start(&format, o.options)) return Fail("the detector did not start");
    for (const std::string& path : o.files) {
        std::string error;
        BufferPtr file = ReadFileBuffer(path, &error);
        if (!file) return Fail(error);
        const int64_t size = file->GetDataSize();
        if (size % frameBytes != 0)
            std::fprintf(stderr, "ncodec scenes: %s ends with a partial frame, left out\n",
                         path.c_str());
        auto* base = static_cast<uint8_t*>(file->GetAddress());
        for (int64_t at = 0; at + frameBytes <= size; at += frameBytes) {
            BufferPtr frame(CNCodecBuffer::CreateWrapBuffer(
                base + at, static_cast<int>(frameBytes), static_cast<int>(frameBytes), file.get()));
            if (!frame || !detector.Frame(frame.get()))
                return Fail("the detector failed in " + path);
        }
    }
    return 0;
}

}  // namespace

int RunScenes(const Args& args) {
    ScenesOptions o;
    if (!Parse(args, &o)) return 2;
    return o.width ? RunRaw(o) : RunPictures(o);
}

}  // namespace ncodec
