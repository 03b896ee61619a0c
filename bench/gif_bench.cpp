// GIF benchmarks: decoding and encoding a 50-frame 640x480 animation, ours
// against giflib, and the octree quantiser alone.
//
// Input: 50 deterministic "cartoon" frames (flat bands, a soft gradient
// strip and shapes that move from frame to frame), small enough as GIF that
// our encoder's 1 MiB cap holds all 50. The decode case is the file
// ImageMagick writes from those frames (made once at start-up with
// convert-im6.q16, no dithering, full frames with local palettes); without
// ImageMagick our own encoder's file stands in and the rows' label says so.
//
// Decode: ours is Decode + GetDecodedFrame for every frame (each frame a new
// RGB32 buffer, released at once). giflib is DGifSlurp from memory, then the
// same composition on a canvas (background fill, transparent index kept,
// disposal 2 restores the background) and a copy into a freshly allocated
// frame per frame, so both sides do the same job.
//
// Encode: ours is PrepareEncode + AddFrame (which quantises) for each frame
// + Encode. giflib gets frames quantised by the same octree quantiser, timed
// with it, and writes them with EGifPutImageDesc/EGifPutLine into memory,
// one local palette and one graphic control block per frame, as ours does.
// quant/octree times the quantiser on one frame.
//
// Names: gif/decode/<case>/{ours,giflib}, gif/encode/<case>/{ours,giflib},
//        quant/octree/<case>/ours.
#include <benchmark/benchmark.h>
#include <gif_lib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/video_processor.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int kWidth = 640, kHeight = 480, kFrames = 50;

// B, G, R, A pixels of frame k.
Bytes MakeFrame(int k) {
    Bytes p(size_t{kWidth} * kHeight * 4);
    static const uint8_t bands[6][3] = {{200, 120, 40},  {90, 160, 220}, {60, 200, 90},
                                        {220, 220, 200}, {40, 60, 120},  {180, 80, 160}};
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* px = &p[(static_cast<size_t>(y) * kWidth + x) * 4];
            const uint8_t* band = bands[(y / 80 + (x + 4 * k) / 160) % 6];
            px[0] = band[0];
            px[1] = band[1];
            px[2] = band[2];
            px[3] = 255;
            if (y >= 200 && y < 232) {  // a gradient strip in 16 steps
                px[0] = static_cast<uint8_t>((x / 40) * 16);
                px[1] = 128;
                px[2] = static_cast<uint8_t>(255 - (x / 40) * 16);
            }
            for (int s = 0; s < 4; ++s) {  // moving discs
                const int cx = (100 + 150 * s + 6 * k * (s + 1)) % kWidth;
                const int cy = 120 + 80 * s;
                const int dx = x - cx, dy = y - cy;
                if (dx * dx + dy * dy < 900 + 200 * s) {
                    px[0] = static_cast<uint8_t>(30 + 50 * s);
                    px[1] = static_cast<uint8_t>(230 - 40 * s);
                    px[2] = 250;
                }
            }
        }
    }
    return p;
}

const std::vector<Bytes>& Frames() {
    static const std::vector<Bytes> frames = [] {
        std::vector<Bytes> f;
        for (int k = 0; k < kFrames; ++k) f.push_back(MakeFrame(k));
        return f;
    }();
    return frames;
}

CNCodecBase::VideoFormatInfoTag Rgb32Format() {
    CNCodecBase::VideoFormatInfoTag f{};
    f.nStructSize = sizeof f;
    f.nCodecType = VIDEO_TYPE_RGB;
    f.nCodecSubType = VIDEO_FORMAT_RGB32;
    f.nWidth = f.nRectRight = f.nPictureWidth = f.nDisplayWidth = kWidth;
    f.nHeight = f.nRectBottom = f.nPictureHeight = f.nDisplayHeight = kHeight;
    return f;
}

Bytes OurEncode() {
    CNGifCodec codec;
    CNCodecBase::VideoFormatInfoTag in = Rgb32Format(), out{};
    codec.PrepareEncode(&in, &out);
    for (const Bytes& frame : Frames()) {
        CNCodecBuffer* picture = CNCodecBuffer::CreateWrapBuffer(
            const_cast<uint8_t*>(frame.data()), static_cast<int>(frame.size()),
            static_cast<int>(frame.size()), nullptr);
        codec.AddFrame(picture, 40, 0, 0);
        picture->Release();
    }
    CNCodecBuffer* file = CNCodecBuffer::CreateBuffer();
    Bytes bytes;
    if (codec.Encode(file)) {
        const auto* b = static_cast<const uint8_t*>(file->GetAddress());
        bytes.assign(b, b + file->GetDataSize());
    }
    file->Release();
    return bytes;
}

// The decode input, and whether ImageMagick made it.
struct DecodeInput {
    Bytes file;
    bool imageMagick = false;
};

const DecodeInput& DecodeFile() {
    static const DecodeInput input = [] {
        DecodeInput in;
        char raw[] = "/tmp/ncodec-gif-bench-XXXXXX";
        const int fd = mkstemp(raw);
        if (fd >= 0) {
            std::FILE* f = fdopen(fd, "wb");
            for (const Bytes& frame : Frames()) {
                for (size_t i = 0; i < frame.size(); i += 4) {
                    const uint8_t rgb[3] = {frame[i + 2], frame[i + 1], frame[i]};
                    std::fwrite(rgb, 1, 3, f);
                }
            }
            std::fclose(f);
            const std::string gif = std::string(raw) + ".gif";
            const std::string command =
                "convert-im6.q16 -size 640x480 -depth 8 'rgb:" + std::string(raw) +
                "' -delay 4 +dither -loop 0 '" + gif + "' 2>/dev/null";
            if (std::system(command.c_str()) == 0) {
                if (std::FILE* g = std::fopen(gif.c_str(), "rb")) {
                    uint8_t chunk[65536];
                    size_t n;
                    while ((n = std::fread(chunk, 1, sizeof chunk, g)) > 0)
                        in.file.insert(in.file.end(), chunk, chunk + n);
                    std::fclose(g);
                    in.imageMagick = !in.file.empty();
                }
            }
            std::remove(gif.c_str());
            std::remove(raw);
        }
        if (!in.imageMagick) in.file = OurEncode();
        return in;
    }();
    return input;
}

// ---- decode ------------------------------------------------------------------

void BM_DecodeOurs(benchmark::State& state) {
    const Bytes& file = DecodeFile().file;
    state.SetLabel(DecodeFile().imageMagick ? "ImageMagick file" : "own file: no ImageMagick");
    CNCodecBuffer* input = CNCodecBuffer::CreateWrapBuffer(const_cast<uint8_t*>(file.data()),
                                                           static_cast<int>(file.size()),
                                                           static_cast<int>(file.size()), nullptr);
    for (auto _ : state) {
        CNGifCodec codec;
        CNCodecBase::VideoFormatInfoTag out{};
        const int frames = codec.Decode(nullptr, &out, input, 100, 0xFFFFFFFFu);
        if (frames != kFrames) state.SkipWithError("decode failed");
        for (int i = 0; i < frames; ++i) {
            CNCodecBuffer* frame = nullptr;
            codec.GetDecodedFrame(i, &frame, nullptr);
            benchmark::DoNotOptimize(frame->GetAddress());
            frame->Release();
        }
    }
    input->Release();
    state.SetItemsProcessed(state.iterations() * kFrames);
}

struct MemoryReader {
    const uint8_t* data;
    size_t size;
    size_t at;
};

int ReadFromMemory(GifFileType* gif, GifByteType* out, int length) {
    auto* r = static_cast<MemoryReader*>(gif->UserData);
    const size_t n = std::min(static_cast<size_t>(length), r->size - r->at);
    std::memcpy(out, r->data + r->at, n);
    r->at += n;
    return static_cast<int>(n);
}

void BM_DecodeGiflib(benchmark::State& state) {
    const Bytes& file = DecodeFile().file;
    state.SetLabel(DecodeFile().imageMagick ? "ImageMagick file" : "own file: no ImageMagick");
    for (auto _ : state) {
        MemoryReader reader{file.data(), file.size(), 0};
        int error = 0;
        GifFileType* gif = DGifOpen(&reader, ReadFromMemory, &error);
        if (!gif || DGifSlurp(gif) != GIF_OK) {
            state.SkipWithError("giflib refused the file");
            break;
        }
        const int w = gif->SWidth, h = gif->SHeight;
        std::vector<uint32_t> canvas(static_cast<size_t>(w) * h);
        uint32_t background = 0;
        if (gif->SColorMap && gif->SBackGroundColor < gif->SColorMap->ColorCount) {
            const GifColorType& c = gif->SColorMap->Colors[gif->SBackGroundColor];
            background = uint32_t{c.Red} << 16 | uint32_t{c.Green} << 8 | c.Blue;
        }
        std::fill(canvas.begin(), canvas.end(), background);
        for (int i = 0; i < gif->ImageCount; ++i) {
            const SavedImage& image = gif->SavedImages[i];
            GraphicsControlBlock gcb{};
            gcb.TransparentColor = NO_TRANSPARENT_COLOR;
            DGifSavedExtensionToGCB(gif, i, &gcb);
            const ColorMapObject* map =
                image.ImageDesc.ColorMap ? image.ImageDesc.ColorMap : gif->SColorMap;
            uint32_t palette[256] = {};
            for (int c = 0; map && c < map->ColorCount; ++c)
                palette[c] = uint32_t{map->Colors[c].Red} << 16 |
                             uint32_t{map->Colors[c].Green} << 8 | map->Colors[c].Blue;
            const GifImageDesc& d = image.ImageDesc;
            const uint8_t* src = image.RasterBits;
            for (int y = 0; y < d.Height; ++y) {
                uint32_t* row = &canvas[static_cast<size_t>(d.Top + y) * w + d.Left];
                for (int x = 0; x < d.Width; ++x, ++src)
                    if (*src != gcb.TransparentColor) row[x] = palette[*src];
            }
            auto* frame = static_cast<uint32_t*>(std::malloc(canvas.size() * 4));
            std::memcpy(frame, canvas.data(), canvas.size() * 4);
            benchmark::DoNotOptimize(frame);
            std::free(frame);
            if (gcb.DisposalMode == DISPOSE_BACKGROUND && i + 1 < gif->ImageCount) {
                for (int y = 0; y < d.Height; ++y)
                    std::fill_n(&canvas[static_cast<size_t>(d.Top + y) * w + d.Left], d.Width,
                                background);
            }
        }
        DGifCloseFile(gif, &error);
    }
    state.SetItemsProcessed(state.iterations() * kFrames);
}

// ---- encode ------------------------------------------------------------------

void BM_EncodeOurs(benchmark::State& state) {
    size_t bytes = 0;
    for (auto _ : state) {
        const Bytes file = OurEncode();
        if (file.empty()) state.SkipWithError("encode failed (over 1 MiB?)");
        bytes = file.size();
    }
    state.counters["file_bytes"] = static_cast<double>(bytes);
    state.SetItemsProcessed(state.iterations() * kFrames);
}

struct MemoryWriter {
    Bytes bytes;
};

int WriteToMemory(GifFileType* gif, const GifByteType* data, int length) {
    auto* w = static_cast<MemoryWriter*>(gif->UserData);
    w->bytes.insert(w->bytes.end(), data, data + length);
    return length;
}

void BM_EncodeGiflib(benchmark::State& state) {
    size_t bytes = 0;
    std::vector<uint8_t> indices(size_t{kWidth} * kHeight);
    for (auto _ : state) {
        MemoryWriter writer;
        int error = 0;
        GifFileType* gif = EGifOpen(&writer, WriteToMemory, &error);
        EGifSetGifVersion(gif, true);
        EGifPutScreenDesc(gif, kWidth, kHeight, 8, 0, nullptr);
        for (const Bytes& frame : Frames()) {
            uint8_t palette[1024];
            int colours = 0;
            CNVideoProcessor::ColorQuantToIndex256(
                kWidth, kHeight, const_cast<uint8_t*>(frame.data()), indices.data(), kWidth * 4,
                kWidth, palette, &colours, 0);
            int bits = 1;
            while ((1 << bits) < colours) ++bits;
            ColorMapObject* map = GifMakeMapObject(1 << bits, nullptr);
            for (int c = 0; c < colours; ++c) {
                map->Colors[c].Red = palette[4 * c + 2];
                map->Colors[c].Green = palette[4 * c + 1];
                map->Colors[c].Blue = palette[4 * c];
            }
            GraphicsControlBlock gcb{};
            gcb.DisposalMode = DISPOSE_DO_NOT;
            gcb.DelayTime = 4;
            gcb.TransparentColor = NO_TRANSPARENT_COLOR;
            GifByteType extension[4];
            const size_t length = EGifGCBToExtension(&gcb, extension);
            EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension);
            EGifPutImageDesc(gif, 0, 0, kWidth, kHeight, false, map);
            for (int y = 0; y < kHeight; ++y)
                EGifPutLine(gif, &indices[static_cast<size_t>(y) * kWidth], kWidth);
            GifFreeMapObject(map);
        }
        EGifCloseFile(gif, &error);
        bytes = writer.bytes.size();
        benchmark::DoNotOptimize(writer.bytes.data());
    }
    state.counters["file_bytes"] = static_cast<double>(bytes);
    state.SetItemsProcessed(state.iterations() * kFrames);
}

void BM_QuantOctree(benchmark::State& state) {
    const Bytes& frame = Frames()[7];
    std::vector<uint8_t> indices(size_t{kWidth} * kHeight);
    uint8_t palette[1024];
    int colours = 0;
    for (auto _ : state) {
        CNVideoProcessor::ColorQuantToIndex256(kWidth, kHeight, const_cast<uint8_t*>(frame.data()),
                                               indices.data(), kWidth * 4, kWidth, palette,
                                               &colours, 0);
        benchmark::DoNotOptimize(indices.data());
    }
    state.counters["colours"] = colours;
    state.SetItemsProcessed(state.iterations());
}

void Register() {
    benchmark::RegisterBenchmark("gif/decode/640x480x50/ours", BM_DecodeOurs)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("gif/decode/640x480x50/giflib", BM_DecodeGiflib)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("gif/encode/640x480x50/ours", BM_EncodeOurs)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("gif/encode/640x480x50/giflib", BM_EncodeGiflib)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("quant/octree/640x480/ours", BM_QuantOctree)
        ->Unit(benchmark::kMillisecond);
}

const int registered = (Register(), 0);

}  // namespace
