// Image file formats as `ncodec convert` and `ncodec info` see them: one row
// per format (extensions, signature test, decode to an RGB32 picture, encode
// from one, a description of the file's structure). A codec joins the tools
// by adding its row to the table in image_formats.cpp; nothing else changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"

namespace ncodec {

struct ReleaseBuffer {
    void operator()(CNCodecBuffer* b) const {
        if (b) b->Release();
    }
};
using BufferPtr = std::unique_ptr<CNCodecBuffer, ReleaseBuffer>;

// An RGB32 picture: the descriptor and the buffer holding its pixels.
struct Picture {
    ncb::VideoFormatInfo format{};
    BufferPtr pixels;
};

struct EncodeOptions {
    bool alpha = true;  // keep the alpha channel where the format can
    int quality = 1;    // lossy formats: 0 low, 1 medium, 2 high
};

struct ImageFormat {
    const char* name;                     // "PNG"
    std::vector<const char*> extensions;  // lower case, with the dot
    bool (*probe)(const uint8_t* data, size_t size);
    bool (*decode)(CNCodecBuffer* file, Picture* out);
    // Null when the format is read-only here.
    bool (*encode)(const Picture& picture, const EncodeOptions& options, CNCodecBuffer* file);
    // Lines describing the file's structure (header fields, chunks, ...).
    std::string (*describe)(const uint8_t* data, size_t size);
};

const std::vector<ImageFormat>& ImageFormats();
// By the file name's extension (case-insensitive); null when none matches.
const ImageFormat* FormatForPath(const std::string& path);
// By the first bytes of the file; null when none recognises them.
const ImageFormat* FormatForData(const uint8_t* data, size_t size);

// The whole file in a new buffer (data size = file size); null with *error
// set when it cannot be read.
BufferPtr ReadFileBuffer(const std::string& path, std::string* error);
bool WriteFileBuffer(const std::string& path, CNCodecBuffer* buffer, std::string* error);

// Whether any pixel of an RGB32 picture has alpha below 255.
bool HasTransparency(const Picture& picture);

}  // namespace ncodec
