// Helpers shared by the GIF tests: files, running the oracle tools
// (ImageMagick's convert-im6.q16, giflib's giftext and gif2rgb), and
// decoding every frame of a file with CNGifCodec.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"

namespace ncbtest::gif {

using Bytes = std::vector<uint8_t>;

inline Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline bool WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

inline bool HaveTool(const char* name) {
    return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

// Runs a shell command and collects its standard output; false on a
// non-zero exit.
inline bool RunCommand(const std::string& command, Bytes* out = nullptr) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return false;
    Bytes bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0)
        bytes.insert(bytes.end(), chunk, chunk + n);
    const int status = pclose(pipe);
    if (out) *out = std::move(bytes);
    return status == 0;
}

inline std::string Text(const Bytes& b) { return std::string(b.begin(), b.end()); }

// A buffer over a copy of `bytes` of exactly their size, so that
// AddressSanitizer sees any read past the end.
struct FileBuffer {
    explicit FileBuffer(const Bytes& bytes) : data(new uint8_t[bytes.empty() ? 1 : bytes.size()]) {
        std::copy(bytes.begin(), bytes.end(), data.get());
        buffer = CNCodecBuffer::CreateWrapBuffer(data.get(), static_cast<int>(bytes.size()),
                                                 static_cast<int>(bytes.size()), nullptr);
    }
    ~FileBuffer() { buffer->Release(); }
    FileBuffer(const FileBuffer&) = delete;
    FileBuffer& operator=(const FileBuffer&) = delete;
    std::unique_ptr<uint8_t[]> data;
    CNCodecBuffer* buffer;
};

struct Frame {
    std::vector<uint32_t> pixels;  // 0xAARRGGBB, screen-sized
    int duration = 0;
    uint32_t timeStamp = 0;
    int flag = 0;
};

struct Decoded {
    int frameCount = 0;
    CNCodecBase::VideoFormatInfoTag format{};
    std::vector<Frame> frames;
};

// Decodes every frame in order. The frame count is Decode's result; frames
// that GetDecodedFrame refuses end the list.
inline Decoded DecodeAll(const Bytes& file, int defaultDuration = 100,
                         unsigned int background = 0xFFFFFFFFu) {
    Decoded d;
    FileBuffer in(file);
    CNGifCodec codec;
    d.frameCount = codec.Decode(nullptr, &d.format, in.buffer, defaultDuration, background);
    for (int i = 0; i < d.frameCount; ++i) {
        CNCodecBuffer* out = nullptr;
        Frame f;
        if (!codec.GetDecodedFrame(i, &out, &f.duration)) break;
        const auto* px = static_cast<const uint32_t*>(out->GetAddress());
        f.pixels.assign(px, px + static_cast<size_t>(d.format.nWidth) * d.format.nHeight);
        f.timeStamp = out->GetTimeStamp();
        f.flag = out->GetBufferFlag();
        out->Release();
        d.frames.push_back(std::move(f));
    }
    return d;
}

// Raw RGBA frames as ImageMagick composes them (-coalesce), one vector per
// frame of width x height x 4 bytes.
inline bool ImageMagickFrames(const std::string& path, int width, int height,
                              std::vector<Bytes>* frames) {
    Bytes all;
    if (!RunCommand("convert-im6.q16 '" + path + "' -coalesce -depth 8 rgba:-", &all)) return false;
    const size_t size = static_cast<size_t>(width) * height * 4;
    if (size == 0 || all.size() % size != 0) return false;
    frames->clear();
    for (size_t at = 0; at < all.size(); at += size)
        frames->emplace_back(all.begin() + static_cast<ptrdiff_t>(at),
                             all.begin() + static_cast<ptrdiff_t>(at + size));
    return true;
}

}  // namespace ncbtest::gif
