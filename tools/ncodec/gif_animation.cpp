// Animated GIF conversions behind `ncodec convert`: frames out of a GIF
// through CNGifCodec's in-order composition, and pictures into one through
// its encoder. Pictures of any layout the format table hands out (padding,
// bottom-up rows) are copied to plain top-down RGB32 first, so every frame
// given to the encoder has the layout of the first.
#include "tools/ncodec/gif_animation.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ncodecbase/gif_codec.h"
#include "tools/ncodec/image_formats.h"

namespace ncodec {
namespace {

int Fail(const std::string& message) {
    std::fprintf(stderr, "ncodec convert: %s\n", message.c_str());
    return 1;
}

// The picture's pixels as top-down rows of width x 4 bytes; empty when its
// descriptor has no plane arithmetic.
std::vector<uint32_t> Tight(const Picture& picture) {
    ncb::PlaneSet planes;
    auto* base = static_cast<uint8_t*>(picture.pixels->GetAddress());
    if (!ncb::GetPlanes(picture.format, base, false, &planes)) return {};
    const ncb::PlaneView& p = planes.plane0;
    std::vector<uint32_t> out(static_cast<size_t>(p.width) * p.height);
    for (int y = 0; y < p.height; ++y)
        std::memcpy(&out[static_cast<size_t>(y) * p.width], p.data + y * p.pitch,
                    static_cast<size_t>(p.width) * 4);
    return out;
}

bool ReadPicture(const std::string& path, Picture* picture, std::string* error) {
    BufferPtr file = ReadFileBuffer(path, error);
    if (!file) return false;
    const auto* bytes = static_cast<const uint8_t*>(file->GetAddress());
    const ImageFormat* format = FormatForData(bytes, static_cast<size_t>(file->GetDataSize()));
    if (!format) {
        *error = path + " is not a picture in a format ncodec reads";
        return false;
    }
    if (!format->decode(file.get(), picture)) {
        *error = path + ": the " + format->name + " decoder refused the file";
        return false;
    }
    return true;
}

// The pattern with its one %d, %0Nd or %Nd replaced by k; empty when the
// pattern has anything else after a %.
std::string FrameName(const std::string& pattern, int k) {
    const size_t at = pattern.find('%');
    if (at == std::string::npos) return {};
    size_t end = at + 1;
    const bool zeros = end < pattern.size() && pattern[end] == '0';
    int width = 0;
    while (end < pattern.size() && pattern[end] >= '0' && pattern[end] <= '9')
        width = std::min(width * 10 + (pattern[end++] - '0'), 32);
    if (end >= pattern.size() || pattern[end] != 'd' ||
        pattern.find('%', end) != std::string::npos) {
        return {};
    }
    std::string number = std::to_string(k);
    if (static_cast<int>(number.size()) < width)
        number.insert(0, static_cast<size_t>(width) - number.size(), zeros ? '0' : ' ');
    return pattern.substr(0, at) + number + pattern.substr(end + 1);
}

}  // namespace

bool IsFramePattern(const std::string& path) { return path.find('%') != std::string::npos; }

int ConvertGifFrames(const std::string& input, const std::string& outputPattern) {
    const ImageFormat* target = FormatForPath(outputPattern);
    if (!target || !target->encode) return Fail("cannot write this kind of file: " + outputPattern);
    std::string error;
    BufferPtr file = ReadFileBuffer(input, &error);
    if (!file) return Fail(error);
    CNGifCodec codec;
    Picture frame;
    const int frames = codec.Decode(nullptr, &frame.format, file.get(), 100, 0xFF000000u);
    if (frames < 1) return Fail(input + ": the GIF decoder refused the file");
    for (int k = 0; k < frames; ++k) {
        CNCodecBuffer* pixels = nullptr;
        int duration = 0;
        if (!codec.GetDecodedFrame(k, &pixels, &duration))
            return Fail("out of memory composing frame " + std::to_string(k));
        frame.pixels.reset(pixels);
        // Palette colours come with alpha 0, the background with alpha 255.
        auto* px = static_cast<uint32_t*>(pixels->GetAddress());
        const size_t count = static_cast<size_t>(frame.format.nWidth) * frame.format.nHeight;
        for (size_t i = 0; i < count; ++i) px[i] = (px[i] >> 24) ? 0u : px[i] | 0xFF000000u;
        const std::string name = FrameName(outputPattern, k);
        if (name.empty())
            return Fail("the output name takes one %d (or %03d) for the frame number");
        EncodeOptions options;
        options.alpha = HasTransparency(frame);
        BufferPtr encoded(CNCodecBuffer::CreateBuffer());
        if (!encoded || !target->encode(frame, options, encoded.get()))
            return Fail(std::string("the ") + target->name + " encoder failed on frame " +
                        std::to_string(k));
        if (!WriteFileBuffer(name, encoded.get(), &error)) return Fail(error);
        std::printf("frame %d (%d ms) -> %s\n", k, duration, name.c_str());
    }
    std::printf("%s: %d frames, %d x %d\n", input.c_str(), frames, frame.format.nWidth,
                frame.format.nHeight);
    return 0;
}

int ConvertToGifAnimation(const std::vector<std::string>& inputs, int delayCentiseconds,
                          const std::string& output) {
    if (inputs.empty()) return Fail("no input pictures");
    if (delayCentiseconds < 0 || delayCentiseconds > 65535)
        return Fail("--delay takes hundredths of a second, 0 to 65535");
    CNGifCodec codec;
    std::vector<std::vector<uint32_t>> frames;
    int width = 0, height = 0;
    for (const std::string& path : inputs) {
        Picture picture;
        std::string error;
        if (!ReadPicture(path, &picture, &error)) return Fail(error);
        if (frames.empty()) {
            width = picture.format.nWidth;
            height = picture.format.nHeight;
        } else if (picture.format.nWidth != width || picture.format.nHeight != height) {
            return Fail(path + " is not " + std::to_string(width) + " x " + std::to_string(height) +
                        " like the first picture");
        }
        frames.push_back(Tight(picture));
        if (frames.back().empty()) return Fail(path + ": unusable picture layout");
    }
    ncb::VideoFormatInfo in, out{};
    ncb::InitVideoFormat(&in, VIDEO_FORMAT_RGB32, width, height);
    if (!codec.PrepareEncode(&in, &out)) return Fail("GIF pictures are at most 65535 x 65535");
    for (std::vector<uint32_t>& f : frames) {
        const int bytes = static_cast<int>(f.size() * 4);
        BufferPtr picture(CNCodecBuffer::CreateWrapBuffer(f.data(), bytes, bytes, nullptr));
        if (!picture || !codec.AddFrame(picture.get(), delayCentiseconds * 10, 0, 0))
            return Fail("out of memory quantising the frames");
    }
    BufferPtr file(CNCodecBuffer::CreateBuffer());
    if (!file || !codec.Encode(file.get())) {
        return Fail("the GIF would be larger than the encoder's limit of " +
                    std::to_string(CNGifCodec::kMaxEncodedBytes) +
                    " bytes (1 MiB); use fewer, smaller or flatter pictures");
    }
    std::string error;
    if (!WriteFileBuffer(output, file.get(), &error)) return Fail(error);
    std::printf("%zu pictures -> %s (GIF, %d x %d, %d ms per frame), %d bytes\n", inputs.size(),
                output.c_str(), width, height, delayCentiseconds * 10, file->GetDataSize());
    return 0;
}

}  // namespace ncodec
