// PNG benchmarks: decode and encode of 1920x1080 pictures, ours against
// libspng and libpng (the libraries a host would otherwise pick).
//
// Input: one deterministic "photo-like" picture (smooth gradients and waves
// with a little noise, alpha a soft radial ramp) written by libpng at zlib
// level 6 with every filter allowed, so the decoders see the usual mix of
// Sub, Up, Average and Paeth rows. Every decoder produces 8-bit four-channel
// pixels (ours B, G, R, A; libspng R, G, B, A; libpng B, G, R, A) into memory
// allocated per call, as a host would. libspng and libpng run with their
// defaults, which include checking chunk CRCs (ours never does).
//
// Encoders: ours (unfiltered rows, zlib `compress` at its default level 6)
// against libpng at level 6 with filtering off, the same job; the file size
// each produces is reported as a counter.
//
// `zlib` rows time the inflate (decode) or deflate (encode) step alone on
// the same data, so ours / zlib shows how much of our time is zlib's.
//
// Names: png/decode/<case>/{ours,spng,libpng,zlib},
//        png/encode/<case>/{ours,libpng,zlib}.
#include <benchmark/benchmark.h>
#include <png.h>
#include <spng.h>
#include <zlib.h>

#include <cmath>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/video_format.h"
#include "image/png/png_chunks.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/png_codec.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int kWidth = 1920, kHeight = 1080;

// B, G, R, A rows, tightly packed.
const Bytes& Picture() {
    static const Bytes picture = [] {
        Bytes p(size_t{kWidth} * kHeight * 4);
        uint32_t noise = 12345;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                noise = noise * 1664525u + 1013904223u;
                const int n = static_cast<int>(noise >> 29) - 4;
                const double wave = 40 * std::sin(x * 0.013) * std::cos(y * 0.021);
                const double dx = x - kWidth / 2.0, dy = y - kHeight / 2.0;
                auto clamp = [](double v) {
                    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
                };
                uint8_t* px = &p[(size_t{static_cast<size_t>(y)} * kWidth + x) * 4];
                px[0] = clamp(60 + 120.0 * y / kHeight + wave + n);
                px[1] = clamp(30 + 180.0 * x / kWidth - wave / 2 + n);
                px[2] = clamp(200 - 150.0 * (x + y) / (kWidth + kHeight) + wave + n);
                px[3] = clamp(255 - std::sqrt(dx * dx + dy * dy) / 4);
            }
        }
        return p;
    }();
    return picture;
}

void WriteToVector(png_structp png, png_bytep data, size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}
void NoFlush(png_structp) {}

// libpng writes the picture as RGB or RGBA; `filters` as png_set_filter takes them.
Bytes LibpngEncode(bool alpha, int filters) {
    Bytes file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &file, WriteToVector, NoFlush);
    png_set_IHDR(png, info, kWidth, kHeight, 8, alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 6);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, filters);
    png_write_info(png, info);
    png_set_bgr(png);
    if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
    std::vector<png_bytep> rows(kHeight);
    for (int y = 0; y < kHeight; ++y)
        rows[y] =
            const_cast<png_bytep>(Picture().data()) + size_t{static_cast<size_t>(y)} * kWidth * 4;
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}

const Bytes& TestFile(bool alpha) {
    static const Bytes rgb = LibpngEncode(false, PNG_ALL_FILTERS);
    static const Bytes rgba = LibpngEncode(true, PNG_ALL_FILTERS);
    return alpha ? rgba : rgb;
}

// ---- decode -------------------------------------------------------------------

void DecodeOurs(benchmark::State& state, bool alpha) {
    Bytes file = TestFile(alpha);
    CNCodecBuffer* input =
        CNCodecBuffer::CreateWrapBuffer(file.data(), int(file.size()), int(file.size()), nullptr);
    for (auto _ : state) {
        CNCodecBase::VideoFormatInfoTag f{};
        CNCodecBuffer* out = nullptr;
        if (!CNPngCodec::Decode(nullptr, &f, input, &out)) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(out);
        if (out) out->Release();
    }
    input->Release();
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}

void DecodeSpng(benchmark::State& state, bool alpha) {
    const Bytes& file = TestFile(alpha);
    for (auto _ : state) {
        spng_ctx* ctx = spng_ctx_new(0);
        spng_set_png_buffer(ctx, file.data(), file.size());
        size_t size = 0;
        spng_decoded_image_size(ctx, SPNG_FMT_RGBA8, &size);
        void* out = std::malloc(size);
        if (spng_decode_image(ctx, out, size, SPNG_FMT_RGBA8, 0) != 0)
            state.SkipWithError("spng failed");
        benchmark::DoNotOptimize(out);
        std::free(out);
        spng_ctx_free(ctx);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}

struct ReadSource {
    const Bytes* file;
    size_t position;
};

void ReadFromVector(png_structp png, png_bytep out, size_t length) {
    auto* s = static_cast<ReadSource*>(png_get_io_ptr(png));
    if (s->position + length > s->file->size()) png_error(png, "short file");
    std::memcpy(out, s->file->data() + s->position, length);
    s->position += length;
}

bool LibpngDecode(const Bytes& file, uint8_t* out) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    ReadSource source{&file, 0};
    std::vector<png_bytep> rows(kHeight);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, &source, ReadFromVector);
    png_read_info(png, info);
    png_set_bgr(png);
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    png_read_update_info(png, info);
    for (int y = 0; y < kHeight; ++y) rows[y] = out + size_t{static_cast<size_t>(y)} * kWidth * 4;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

void DecodeLibpng(benchmark::State& state, bool alpha) {
    const Bytes& file = TestFile(alpha);
    for (auto _ : state) {
        auto* out = static_cast<uint8_t*>(std::malloc(size_t{kWidth} * kHeight * 4));
        if (!LibpngDecode(file, out)) state.SkipWithError("libpng failed");
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}

// The IDAT payloads joined, and the inflated size the header promises.
Bytes ImageData(const Bytes& file) {
    Bytes data;
    ncb::png::ChunkReader reader(file.data(), file.size());
    ncb::png::Chunk c;
    while (reader.Next(&c))
        if (c.type == ncb::png::kIDAT) data.insert(data.end(), c.data, c.data + c.length);
    return data;
}

void DecodeZlibOnly(benchmark::State& state, bool alpha) {
    const Bytes data = ImageData(TestFile(alpha));
    const size_t inflated = (size_t{kWidth} * (alpha ? 4 : 3) + 1) * kHeight;
    for (auto _ : state) {
        auto* out = static_cast<uint8_t*>(std::malloc(inflated));
        uLongf size = inflated;
        if (uncompress(out, &size, data.data(), data.size()) != Z_OK)
            state.SkipWithError("zlib failed");
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}

// ---- encode -------------------------------------------------------------------

void EncodeOurs(benchmark::State& state, bool alpha) {
    Bytes picture = Picture();
    ncb::VideoFormatInfo in;
    ncb::InitVideoFormat(&in, VIDEO_FORMAT_RGB32, kWidth, kHeight);
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(picture.data(), int(picture.size()),
                                                           int(picture.size()), nullptr);
    int64_t fileBytes = 0;
    for (auto _ : state) {
        CNCodecBase::VideoFormatInfoTag out{};
        CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
        if (!CNPngCodec::Encode(&in, &out, input, file, alpha ? 1 : 0))
            state.SkipWithError("encode failed");
        fileBytes = file->GetDataSize();
        file->Release();
    }
    input->Release();
    state.counters["file_bytes"] = static_cast<double>(fileBytes);
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}

void EncodeLibpng(benchmark::State& state, bool alpha) {
    int64_t fileBytes = 0;
    for (auto _ : state) {
        const Bytes file = LibpngEncode(alpha, PNG_FILTER_NONE);
        if (file.empty()) state.SkipWithError("libpng failed");
        fileBytes = static_cast<int64_t>(file.size());
    }
    state.counters["file_bytes"] = static_cast<double>(fileBytes);
    state.SetBytesProcessed(state.iterations() * int64_t{kWidth} * kHeight * 4);
}

void EncodeZlibOnly(benchmark::State& state, bool alpha) {
    // The raw image our encoder hands to zlib: filter byte 0 and the samples.
    const int channels = alpha ? 4 : 3;
    const size_t line = size_t{kWidth} * channels + 1;
    Bytes raw(line * kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            std::memcpy(&raw[y * line + 1 + x * channels],
                        &Picture()[(size_t{static_cast<size_t>(y)} * kWidth + x) * 4], channels);
    Bytes out(compressBound(raw.size()));
    for (auto _ : state) {
        uLongf size = out.size();
        if (compress(out.data(), &size, raw.data(), raw.size()) != Z_OK)
            state.SkipWithError("zlib failed");
        benchmark::DoNotOptimize(out.data());
    }
}

void Register() {
    for (bool alpha : {false, true}) {
        const std::string c = alpha ? "1920x1080_rgba" : "1920x1080_rgb";
        benchmark::RegisterBenchmark(("png/decode/" + c + "/ours").c_str(), DecodeOurs, alpha);
        benchmark::RegisterBenchmark(("png/decode/" + c + "/spng").c_str(), DecodeSpng, alpha);
        benchmark::RegisterBenchmark(("png/decode/" + c + "/libpng").c_str(), DecodeLibpng, alpha);
        benchmark::RegisterBenchmark(("png/decode/" + c + "/zlib").c_str(), DecodeZlibOnly, alpha);
        benchmark::RegisterBenchmark(("png/encode/" + c + "/ours").c_str(), EncodeOurs, alpha);
        benchmark::RegisterBenchmark(("png/encode/" + c + "/libpng").c_str(), EncodeLibpng, alpha);
        benchmark::RegisterBenchmark(("png/encode/" + c + "/zlib").c_str(), EncodeZlibOnly, alpha);
    }
}

const int registered = (Register(), 0);

}  // namespace
