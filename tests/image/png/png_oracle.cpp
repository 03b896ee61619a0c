// libpng oracle, chunk builder and decode wrapper for the PNG tests (see
// png_oracle.h). libpng's low-level API is used rather than the simplified
// one because the latter converts 16-bit and gamma-tagged images through
// linear light, which is not what a plain byte-for-byte comparison needs.
#include "tests/image/png/png_oracle.h"

#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <cmath>
#include <csetjmp>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"

namespace ncbtest::png {

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes{std::istreambuf_iterator<char>(in), {}};
}

namespace {

struct ReadSource {
    const Bytes* file;
    size_t position = 0;
};

void ReadCallback(png_structp png, png_bytep out, size_t length) {
    auto* source = static_cast<ReadSource*>(png_get_io_ptr(png));
    if (source->position + length > source->file->size()) png_error(png, "read past the end");
    std::memcpy(out, source->file->data() + source->position, length);
    source->position += length;
}

void ErrorCallback(png_structp png, png_const_charp message) {
    auto* error = static_cast<std::string*>(png_get_error_ptr(png));
    *error = message;
    png_longjmp(png, 1);
}

void WarningCallback(png_structp, png_const_charp) {}

bool Decode(const Bytes& file, bool ignoreCrc, Picture* out, uint32_t* gamma, std::string* error) {
    png_structp png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, error, ErrorCallback, WarningCallback);
    png_infop info = png_create_info_struct(png);
    ReadSource source{&file};
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, &source, ReadCallback);
    if (ignoreCrc) png_set_crc_action(png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
    png_set_benign_errors(png, 1);
    png_read_info(png, info);
    png_fixed_point fixedGamma = 0;
    if (gamma) *gamma = png_get_gAMA_fixed(png, info, &fixedGamma) ? fixedGamma : 0;
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_bgr(png);
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    out->width = static_cast<int>(png_get_image_width(png, info));
    out->height = static_cast<int>(png_get_image_height(png, info));
    if (png_get_rowbytes(png, info) != static_cast<size_t>(out->width) * 4) {
        *error = "libpng did not produce 4 bytes per pixel";
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    out->bgra.assign(static_cast<size_t>(out->width) * out->height * 4, 0);
    rows.resize(out->height);
    for (int y = 0; y < out->height; ++y)
        rows[y] = out->bgra.data() + static_cast<size_t>(y) * out->width * 4;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

void WriteCallback(png_structp png, png_bytep data, size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

void FlushCallback(png_structp) {}

}  // namespace

bool LibpngDecode(const Bytes& file, Picture* out, uint32_t* gamma, std::string* error) {
    return Decode(file, true, out, gamma, error);
}

bool LibpngDecodeStrict(const Bytes& file, Picture* out, std::string* error) {
    return Decode(file, false, out, nullptr, error);
}

int RawImage::RowBytes() const {
    const int channels = colourType == 2 ? 3 : colourType == 4 ? 2 : colourType == 6 ? 4 : 1;
    return (width * channels * bitDepth + 7) / 8;
}

Bytes LibpngWrite(const RawImage& image) {
    Bytes file;
    std::string error;
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, ErrorCallback, WarningCallback);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows(image.height);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &file, WriteCallback, FlushCallback);
    png_set_IHDR(png, info, image.width, image.height, image.bitDepth, image.colourType,
                 image.interlace ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_ALL_FILTERS);
    if (!image.palette.empty()) {
        std::vector<png_color> palette(image.palette.size() / 3);
        for (size_t i = 0; i < palette.size(); ++i)
            palette[i] = {image.palette[3 * i], image.palette[3 * i + 1], image.palette[3 * i + 2]};
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
    }
    if (!image.transparency.empty()) {
        const Bytes& t = image.transparency;
        if (image.colourType == 3) {
            png_set_tRNS(png, info, t.data(), static_cast<int>(t.size()), nullptr);
        } else {
            png_color_16 key{};
            key.gray = static_cast<png_uint_16>(t[0] << 8 | t[1]);
            if (t.size() >= 6) {
                key.red = static_cast<png_uint_16>(t[0] << 8 | t[1]);
                key.green = static_cast<png_uint_16>(t[2] << 8 | t[3]);
                key.blue = static_cast<png_uint_16>(t[4] << 8 | t[5]);
            }
            png_set_tRNS(png, info, nullptr, 0, &key);
        }
    }
    if (image.gamma) png_set_gAMA_fixed(png, info, static_cast<png_fixed_point>(image.gamma));
    png_write_info(png, info);
    png_set_interlace_handling(png);
    for (int y = 0; y < image.height; ++y)
        rows[y] =
            const_cast<png_bytep>(image.samples.data()) + static_cast<size_t>(y) * image.RowBytes();
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}

void AppendChunk(Bytes* file, const char* type, const Bytes& data, bool goodCrc) {
    const uint32_t length = static_cast<uint32_t>(data.size());
    const size_t start = file->size();
    for (int shift = 24; shift >= 0; shift -= 8)
        file->push_back(static_cast<uint8_t>(length >> shift));
    file->insert(file->end(), type, type + 4);
    file->insert(file->end(), data.begin(), data.end());
    uint32_t crc = static_cast<uint32_t>(crc32(0, file->data() + start + 4, length + 4));
    if (!goodCrc) crc ^= 0xDEADBEEF;
    for (int shift = 24; shift >= 0; shift -= 8)
        file->push_back(static_cast<uint8_t>(crc >> shift));
}

Bytes Signature() { return {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A}; }

Bytes IhdrData(uint32_t width, uint32_t height, int bitDepth, int colourType, int interlace) {
    Bytes d;
    for (uint32_t v : {width, height})
        for (int shift = 24; shift >= 0; shift -= 8) d.push_back(static_cast<uint8_t>(v >> shift));
    d.insert(d.end(), {static_cast<uint8_t>(bitDepth), static_cast<uint8_t>(colourType), 0, 0,
                       static_cast<uint8_t>(interlace)});
    return d;
}

Bytes Deflate(const Bytes& raw, int level) {
    uLongf size = compressBound(raw.size());
    Bytes out(size);
    compress2(out.data(), &size, raw.data(), raw.size(), level);
    out.resize(size);
    return out;
}

int OurDecode(const Bytes& file, Picture* out, CNCodecBase::VideoFormatInfoTag* format) {
    CNCodecBase::VideoFormatInfoTag local{};
    if (!format) format = &local;
    // A wrap buffer over a copy of exactly the file's size, so any read past
    // the end is caught by AddressSanitizer.
    std::unique_ptr<uint8_t[]> exact(new uint8_t[file.size() ? file.size() : 1]);
    if (!file.empty()) std::memcpy(exact.get(), file.data(), file.size());
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(
        exact.get(), static_cast<int>(file.size()), static_cast<int>(file.size()), nullptr);
    CNCodecBuffer* output = reinterpret_cast<CNCodecBuffer*>(1);
    const int result = CNPngCodec::Decode(nullptr, format, input, &output);
    input->Release();
    if (!result) {
        if (output) ADD_FAILURE() << "a refused decode left an output buffer";
        return result;
    }
    const int pitch = format->nPadLeft + format->nWidth * 4 + format->nPadRight;
    const auto* base = static_cast<const uint8_t*>(output->GetAddress());
    out->width = format->nWidth;
    out->height = format->nHeight;
    out->bgra.resize(static_cast<size_t>(out->width) * out->height * 4);
    for (int y = 0; y < out->height; ++y) {
        std::memcpy(out->bgra.data() + static_cast<size_t>(y) * out->width * 4,
                    base + static_cast<size_t>(format->nPadTop + y) * pitch + format->nPadLeft,
                    static_cast<size_t>(out->width) * 4);
    }
    output->Release();
    return result;
}

void ApplyDocumentedGamma(uint32_t gamma, Picture* picture) {
    const float g = static_cast<float>(gamma) * 0.00001f;
    const float exponent = g > 0.000001f ? 1.0f / (2.2f * g) : 1.0f;
    uint8_t table[256];
    for (int i = 0; i < 256; ++i)
        table[i] = static_cast<uint8_t>(
            static_cast<int>(std::pow(static_cast<float>(i) / 255.0f, exponent) * 255.0f + 0.5f));
    for (size_t i = 0; i < picture->bgra.size(); i += 4)
        for (size_t c = 0; c < 3; ++c) picture->bgra[i + c] = table[picture->bgra[i + c]];
}

}  // namespace ncbtest::png
