// The table of image formats behind `ncodec convert` and `ncodec info`, and
// the file and picture helpers they share. Each row adapts one codec of the
// library to the same picture form (RGB32 in a CNCodecBuffer).
#include "tools/ncodec/image_formats.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "image/gif/gif_index.h"
#include "image/png/png_chunks.h"
#include "ncodecbase/gif_codec.h"
#include "ncodecbase/jpeg_codec.h"
#include "ncodecbase/png_codec.h"
#include "ncodecbase/video_processor.h"
#include "tools/ncodec/ppm_format.h"

namespace ncodec {
namespace {

// ---- PNG ------------------------------------------------------------------

bool PngProbe(const uint8_t* data, size_t size) { return ncb::png::HasSignature(data, size); }

bool PngDecode(CNCodecBuffer* file, Picture* out) {
    out->format = {};
    CNCodecBuffer* pixels = nullptr;
    if (!CNPngCodec::Decode(nullptr, &out->format, file, &pixels)) return false;
    out->pixels.reset(pixels);
    return true;
}

bool PngEncode(const Picture& picture, const EncodeOptions& options, CNCodecBuffer* file) {
    ncb::VideoFormatInfo in = picture.format, out{};
    return CNPngCodec::Encode(&in, &out, picture.pixels.get(), file,
                              options.alpha ? CNPngCodec::ENCODE_FLAG_ALPHA : 0) != 0;
}

const char* ColourTypeName(int type) {
    switch (type) {
        case 0:
            return "grey";
        case 2:
            return "truecolour";
        case 3:
            return "palette";
        case 4:
            return "grey + alpha";
        case 6:
            return "truecolour + alpha";
        default:
            return "invalid";
    }
}

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char line[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    return std::string(line) + "\n";
}

std::string ChunkName(uint32_t type) {
    std::string name(4, '?');
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(type >> (24 - 8 * i));
        if (std::isalpha(static_cast<unsigned char>(c))) name[i] = c;
    }
    return name;
}

std::string PngDescribe(const uint8_t* data, size_t size) {
    using namespace ncb::png;
    if (!HasSignature(data, size)) return "no PNG signature\n";
    std::string text;
    ncb::png::ChunkReader reader(data, size);
    Chunk c;
    bool header = false;
    std::string chunks;
    while (reader.Next(&c)) {
        chunks += Format("  %s %10u bytes at %zu", ChunkName(c.type).c_str(), c.length, c.offset);
        if (c.type == kIHDR && !header) {
            header = true;
            ImageHeader h;
            if (ParseImageHeader(c, &h)) {
                text += Format("size: %d x %d", h.width, h.height);
                text += Format("colour type: %d (%s), bit depth %d, %s", h.colourType,
                               ColourTypeName(h.colourType), h.bitDepth,
                               h.interlace ? "Adam7 interlaced" : "not interlaced");
            } else {
                text += "invalid IHDR\n";
            }
        } else if (c.type == kGAMA && c.length >= 4) {
            text += Format("gAMA: %u (gamma %.5f)", LoadBigEndian32(c.data),
                           LoadBigEndian32(c.data) / 100000.0);
        } else if (c.type == kPLTE) {
            text += Format("palette: %u entries", c.length / 3);
        } else if (c.type == kTRNS) {
            text += Format("transparency: %u bytes", c.length);
        }
    }
    if (!header) text += "no IHDR\n";
    text += "chunks:\n" + chunks;
    if (reader.Position() < size)
        text += Format("%zu bytes after the last chunk read", size - reader.Position());
    return text;
}

// ---- GIF ------------------------------------------------------------------
//
// A GIF is one picture here: its first frame as composed on the screen.
// Palette colours come out of the codec with alpha 0 and the screen
// background with the colour we give, so the background is given with alpha
// 255 and the two are swapped: drawn pixels become opaque, uncovered or
// transparent ones transparent black. Writing makes a one-frame GIF89a.

bool GifProbe(const uint8_t* data, size_t size) {
    return size >= 6 && std::memcmp(data, "GIF8", 4) == 0 && (data[4] == '7' || data[4] == '9') &&
           data[5] == 'a';
}

bool GifDecode(CNCodecBuffer* file, Picture* out) {
    out->format = {};
    CNGifCodec codec;
    if (codec.Decode(nullptr, &out->format, file, 0, 0xFF000000u) < 1) return false;
    CNCodecBuffer* frame = nullptr;
    if (!codec.GetDecodedFrame(0, &frame, nullptr)) return false;
    out->pixels.reset(frame);
    auto* px = static_cast<uint32_t*>(frame->GetAddress());
    const size_t count = static_cast<size_t>(out->format.nWidth) * out->format.nHeight;
    for (size_t i = 0; i < count; ++i) px[i] = (px[i] >> 24) ? 0u : px[i] | 0xFF000000u;
    return true;
}

bool GifEncode(const Picture& picture, const EncodeOptions& options, CNCodecBuffer* file) {
    (void)options;  // GIF keeps no alpha here
    ncb::VideoFormatInfo in = picture.format, out{};
    const int flip = (in.nFormatFlags & FORMAT_FLAG_SWAPPED) ? 1 : 0;
    in.nFormatFlags = 0;
    CNGifCodec codec;
    if (!codec.PrepareEncode(&in, &out)) {
        std::fprintf(stderr, "ncodec: GIF pictures are at most 65535 x 65535\n");
        return false;
    }
    if (!codec.AddFrame(picture.pixels.get(), 100, 0, flip)) return false;
    if (codec.Encode(file)) return true;
    std::fprintf(stderr,
                 "ncodec: the GIF would be larger than the encoder's limit of %d bytes (1 MiB); "
                 "use a smaller or flatter picture\n",
                 CNGifCodec::kMaxEncodedBytes);
    return false;
}

std::string GifDescribe(const uint8_t* data, size_t size) {
    if (!GifProbe(data, size)) return "no GIF signature\n";
    std::string text = Format("version: %.6s", reinterpret_cast<const char*>(data));
    ncb::gif::FileIndex index;
    const bool ok = ncb::gif::IndexFile(data, static_cast<int>(std::min<size_t>(size, INT32_MAX)),
                                        -1, INT64_MAX, &index);
    text += Format("screen: %d x %d, background index %d, pixel aspect %d", index.width,
                   index.height, index.backgroundIndex, index.aspect);
    text += index.globalColourCount ? Format("global palette: %d entries", index.globalColourCount)
                                    : std::string("global palette: none\n");
    if (index.loopCount >= 0) text += Format("loop count: %d (0: for ever)", index.loopCount);
    if (index.comments) text += Format("comments: %d", index.comments);
    if (!ok) return text + Format("refused: %s", index.failure ? index.failure : "?");
    uint32_t total = 0;
    text += Format("frames: %d", index.frameCount);
    for (int i = 0; i < index.frameCount; ++i) {
        const ncb::gif::FrameRecord& f = *index.Frame(i);
        if (i < 100) {
            const std::string delay =
                f.hasControl ? std::to_string(f.duration) + " ms" : std::string("none");
            text +=
                Format("  %3d: %d x %d at (%d, %d), delay %s, %s, disposal %d%s%s, %d sub-blocks",
                       i, f.width, f.height, f.left, f.top, delay.c_str(),
                       f.transparentIndex >= 0
                           ? ("transparent index " + std::to_string(f.transparentIndex)).c_str()
                           : "opaque",
                       f.disposal, f.interlaced ? ", interlaced" : "",
                       f.localColourCount
                           ? (", local palette " + std::to_string(f.localColourCount)).c_str()
                           : "",
                       f.subBlockCount);
        } else if (i == 100) {
            text += "  ...\n";
        }
        total += f.hasControl ? static_cast<uint32_t>(f.duration) : 0;
    }
    text += Format("total delay: %u ms", total);
    return text;
}

// ---- JPEG -----------------------------------------------------------------
//
// The decoder's planes go through the library's YUV to RGB32 conversion
// (full-range BT.601, no adjustment) over the picture's true size. Encoding
// goes the other way into 4:2:0 whose planes cover the size rounded up to 16,
// because the encoder reads whole 16x16 blocks at the edges: the picture is
// first widened to that size by repeating its last column and row, so edge
// blocks hold no stray colour.

bool JpegProbe(const uint8_t* data, size_t size) {
    return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

bool JpegDecodePlanes(CNCodecBuffer* file, ncb::VideoFormatInfo* format, CNCodecBuffer* planes) {
    *format = {};
    file->SetBufferUserData(0);
    return CNJpegCodec::Decode(nullptr, format, file, planes, nullptr, 2) != 0;
}

bool JpegDecode(CNCodecBuffer* file, Picture* out) {
    ncb::VideoFormatInfo yuv{};
    BufferPtr planes(CNCodecBuffer::CreateBuffer());
    if (!planes || !JpegDecodePlanes(file, &yuv, planes.get())) return false;
    ncb::InitVideoFormat(&out->format, VIDEO_FORMAT_RGB32, yuv.nRectRight, yuv.nRectBottom);
    out->pixels.reset(CNCodecBuffer::CreateBuffer());
    if (!out->pixels || !ncb::AllocateFrame(out->pixels.get(), &out->format)) return false;
    CNVideoProcessor::ConvertConfigTag plain{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};
    return CNVideoProcessor::ConvertToRGB(planes.get(), out->pixels.get(), &yuv, &out->format,
                                          &plain, 1, 0) != 0;
}

// A copy of an RGB32 picture widened to width x height by repeating its last
// column and row.
bool ExtendEdges(const Picture& picture, int width, int height, Picture* out) {
    ncb::InitVideoFormat(&out->format, VIDEO_FORMAT_RGB32, width, height);
    out->pixels.reset(CNCodecBuffer::CreateBuffer());
    if (!out->pixels || !ncb::AllocateFrame(out->pixels.get(), &out->format)) return false;
    ncb::PlaneSet from, to;
    if (!ncb::GetPlanes(picture.format, static_cast<uint8_t*>(picture.pixels->GetAddress()), false,
                        &from) ||
        !ncb::GetPlanes(out->format, static_cast<uint8_t*>(out->pixels->GetAddress()), false, &to))
        return false;
    const int w = picture.format.nWidth, h = picture.format.nHeight;
    for (int y = 0; y < height; ++y) {
        const auto* src = reinterpret_cast<const uint32_t*>(from.plane0.data +
                                                            from.plane0.pitch * std::min(y, h - 1));
        auto* dst = reinterpret_cast<uint32_t*>(to.plane0.data + to.plane0.pitch * y);
        std::memcpy(dst, src, static_cast<size_t>(w) * 4);
        std::fill(dst + w, dst + width, src[w - 1]);
    }
    return true;
}

bool JpegEncode(const Picture& picture, const EncodeOptions& options, CNCodecBuffer* file) {
    const int width = picture.format.nWidth, height = picture.format.nHeight;
    if (width <= 0 || height <= 0 || width > 65535 || height > 65535) return false;
    Picture wide;
    if (!ExtendEdges(picture, (width + 15) & ~15, (height + 15) & ~15, &wide)) return false;
    ncb::VideoFormatInfo yuv{};
    ncb::InitVideoFormat(&yuv, VIDEO_FORMAT_YUV420, wide.format.nWidth, wide.format.nHeight);
    BufferPtr planes(CNCodecBuffer::CreateBuffer());
    if (!planes || !ncb::AllocateFrame(planes.get(), &yuv)) return false;
    CNVideoProcessor::ConvertConfigTag plain{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};
    if (!CNVideoProcessor::ConvertFromRGB(wide.pixels.get(), planes.get(), &wide.format, &yuv,
                                          &plain, 0, 2))
        return false;
    yuv.nRectRight = width;
    yuv.nRectBottom = height;
    ncb::VideoFormatInfo jpeg{};
    return CNJpegCodec::Encode(&yuv, &jpeg, static_cast<unsigned char*>(planes->GetAddress()), file,
                               options.quality, 2) != 0;
}

const char* JpegSamplingName(int nf, int sampling) {
    if (nf == 1) return "grey";
    switch (sampling) {
        case 0x11:
            return "4:4:4";
        case 0x21:
            return "4:2:2";
        case 0x22:
            return "4:2:0";
        case 0x12:
            return "1x2 (4:4:0)";
        default:
            return "unsupported";
    }
}

std::string JpegDescribe(const uint8_t* data, size_t size) {
    if (!JpegProbe(data, size)) return "no JPEG start of image\n";
    std::string text;
    size_t i = 2;
    int scans = 0, restart = 0;
    while (i + 4 <= size) {
        if (data[i] != 0xFF) break;
        const int m = data[i + 1];
        if (m == 0xFF) {
            ++i;
            continue;
        }
        if (m == 0xD9) break;
        const size_t len = (static_cast<size_t>(data[i + 2]) << 8) | data[i + 3];
        if (m == 0xDD && i + 6 <= size) restart = (data[i + 4] << 8) | data[i + 5];
        if (m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC && i + 10 <= size) {
            const int nf = data[i + 9];
            text += Format("size: %d x %d", (data[i + 7] << 8) | data[i + 8],
                           (data[i + 5] << 8) | data[i + 6]);
            text += Format("process: SOF%d (%s), precision %d, %d component%s", m - 0xC0,
                           m == 0xC0   ? "baseline"
                           : m == 0xC2 ? "progressive"
                                       : "not supported",
                           data[i + 4], nf, nf == 1 ? "" : "s");
            if (i + 12 <= size) text += Format("sampling: %s", JpegSamplingName(nf, data[i + 11]));
        }
        if (m == 0xDA) {
            ++scans;
            // Skip the entropy-coded data up to the next marker.
            size_t e = i + 2 + len;
            while (e + 1 < size && !(data[e] == 0xFF && data[e + 1] != 0 &&
                                     (data[e + 1] < 0xD0 || data[e + 1] > 0xD7)))
                ++e;
            i = e;
            continue;
        }
        i += 2 + len;
    }
    text += Format("restart interval: %d", restart);
    text += Format("scans: %d", scans);
    BufferPtr file(CNCodecBuffer::CreateBuffer());
    BufferPtr planes(CNCodecBuffer::CreateBuffer());
    ncb::VideoFormatInfo yuv{};
    if (!file || !file->Allocate(static_cast<int>(std::min<size_t>(size, INT_MAX)), 16, 0))
        return text;
    std::memcpy(file->GetAddress(), data, std::min<size_t>(size, INT_MAX));
    file->SetDataSize(static_cast<int>(std::min<size_t>(size, INT_MAX)));
    if (!JpegDecodePlanes(file.get(), &yuv, planes.get())) return text;
    const int code = yuv.nCodecSubType;
    text +=
        Format("planes: %s %d x %d (stored %d x %d), %d bytes consumed",
               code == VIDEO_FORMAT_Y800     ? "Y800"
               : code == VIDEO_FORMAT_YUV420 ? "YUV420"
               : code == VIDEO_FORMAT_YUV422 ? "YUV422"
                                             : "YUV444",
               yuv.nRectRight, yuv.nRectBottom, yuv.nWidth, yuv.nHeight, file->GetBufferUserData());
    return text;
}

}  // namespace

const std::vector<ImageFormat>& ImageFormats() {
    static const std::vector<ImageFormat> formats = {
        {"PNG", {".png"}, PngProbe, PngDecode, PngEncode, PngDescribe},
        {"GIF", {".gif"}, GifProbe, GifDecode, GifEncode, GifDescribe},
        {"JPEG", {".jpg", ".jpeg", ".jfif"}, JpegProbe, JpegDecode, JpegEncode, JpegDescribe},
        PpmImageFormat(),
    };
    return formats;
}

const ImageFormat* FormatForPath(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos) return nullptr;
    std::string ext = path.substr(dot);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const ImageFormat& f : ImageFormats())
        for (const char* e : f.extensions)
            if (ext == e) return &f;
    return nullptr;
}

const ImageFormat* FormatForData(const uint8_t* data, size_t size) {
    for (const ImageFormat& f : ImageFormats())
        if (f.probe(data, size)) return &f;
    return nullptr;
}

BufferPtr ReadFileBuffer(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) {
        *error = "cannot open " + path;
        return nullptr;
    }
    const std::streamoff size = in.tellg();
    if (size < 0 || size > 0x7FFFFFF0) {
        *error = path + " is too large";
        return nullptr;
    }
    BufferPtr buffer(CNCodecBuffer::CreateBuffer());
    if (!buffer || !buffer->Allocate(static_cast<int>(size) + 1, 16, 0)) {
        *error = "out of memory reading " + path;
        return nullptr;
    }
    in.seekg(0);
    in.read(static_cast<char*>(buffer->GetAddress()), size);
    if (!in) {
        *error = "cannot read " + path;
        return nullptr;
    }
    buffer->SetDataSize(static_cast<int>(size));
    return buffer;
}

bool WriteFileBuffer(const std::string& path, CNCodecBuffer* buffer, std::string* error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(buffer->GetAddress()), buffer->GetDataSize());
    out.close();
    if (!out) *error = "cannot write " + path;
    return static_cast<bool>(out);
}

bool HasTransparency(const Picture& picture) {
    ncb::PlaneSet planes;
    const auto* base = static_cast<uint8_t*>(picture.pixels->GetAddress());
    if (!ncb::GetPlanes(picture.format, const_cast<uint8_t*>(base), false, &planes)) return false;
    const ncb::PlaneView& p = planes.plane0;
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x)
            if (p.data[y * p.pitch + 4 * x + 3] != 255) return true;
    return false;
}

}  // namespace ncodec
