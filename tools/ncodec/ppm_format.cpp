// Binary PPM / PGM for `ncodec convert` and `ncodec info`. The header is
// magic, width, height and maxval separated by whitespace (comments from '#'
// to the end of a line); one whitespace byte then the samples. Sizes are
// checked against the file length before a pixel is read. Not handled: the
// plain-text P1-P3 variants and 16-bit samples (maxval above 255).
#include "tools/ncodec/ppm_format.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace ncodec {
namespace {

struct PpmHeader {
    int channels = 0;  // 3 for P6, 1 for P5
    int width = 0, height = 0, maxval = 0;
    size_t pixelsAt = 0;  // offset of the first sample
};

// Reads the next unsigned decimal field, skipping whitespace and comments.
bool Field(const uint8_t* data, size_t size, size_t* at, int* value) {
    while (*at < size) {
        if (data[*at] == '#') {
            while (*at < size && data[*at] != '\n') ++*at;
        } else if (std::isspace(data[*at])) {
            ++*at;
        } else {
            break;
        }
    }
    int64_t v = 0;
    const size_t start = *at;
    while (*at < size && std::isdigit(data[*at]) && v <= 0xFFFFFF)
        v = v * 10 + (data[(*at)++] - '0');
    if (*at == start || v > 0xFFFFFF) return false;
    *value = static_cast<int>(v);
    return true;
}

bool ParseHeader(const uint8_t* data, size_t size, PpmHeader* h) {
    if (size < 3 || data[0] != 'P' || (data[1] != '6' && data[1] != '5')) return false;
    h->channels = data[1] == '6' ? 3 : 1;
    size_t at = 2;
    if (!Field(data, size, &at, &h->width) || !Field(data, size, &at, &h->height) ||
        !Field(data, size, &at, &h->maxval) || at >= size || !std::isspace(data[at]))
        return false;
    h->pixelsAt = at + 1;
    return h->width > 0 && h->height > 0 && h->maxval > 0 && h->maxval <= 255;
}

bool PpmProbe(const uint8_t* data, size_t size) {
    return size >= 3 && data[0] == 'P' && (data[1] == '6' || data[1] == '5') &&
           std::isspace(data[2]);
}

bool PpmDecode(CNCodecBuffer* file, Picture* out) {
    const auto* data = static_cast<const uint8_t*>(file->GetAddress());
    const size_t size = static_cast<size_t>(file->GetDataSize());
    PpmHeader h;
    if (!ParseHeader(data, size, &h)) return false;
    const uint64_t samples = uint64_t{static_cast<uint32_t>(h.width)} * h.height * h.channels;
    if (samples > size - h.pixelsAt) return false;
    out->format = {};
    ncb::InitVideoFormat(&out->format, VIDEO_FORMAT_RGB32, h.width, h.height);
    BufferPtr pixels(CNCodecBuffer::CreateBuffer());
    uint8_t* base = pixels ? ncb::AllocateFrame(pixels.get(), &out->format) : nullptr;
    ncb::PlaneSet planes;
    if (!base || !ncb::GetPlanes(out->format, base, false, &planes)) return false;
    const uint8_t* s = data + h.pixelsAt;
    for (int y = 0; y < h.height; ++y) {
        uint8_t* row = planes.plane0.data + y * planes.plane0.pitch;
        for (int x = 0; x < h.width; ++x, s += h.channels) {
            auto scale = [&](uint8_t v) { return static_cast<uint8_t>(v * 255 / h.maxval); };
            const uint8_t r = scale(s[0]);
            row[4 * x + 2] = r;
            row[4 * x + 1] = h.channels == 3 ? scale(s[1]) : r;
            row[4 * x + 0] = h.channels == 3 ? scale(s[2]) : r;
            row[4 * x + 3] = 255;
        }
    }
    out->pixels = std::move(pixels);
    return true;
}

bool PpmEncode(const Picture& picture, const EncodeOptions&, CNCodecBuffer* file) {
    ncb::PlaneSet planes;
    auto* base = static_cast<uint8_t*>(picture.pixels->GetAddress());
    if (picture.format.nCodecSubType != VIDEO_FORMAT_RGB32 ||
        !ncb::GetPlanes(picture.format, base, false, &planes))
        return false;
    const ncb::PlaneView& p = planes.plane0;
    char header[64];
    const int headerBytes =
        std::snprintf(header, sizeof header, "P6\n%d %d\n255\n", p.width, p.height);
    const int64_t total = headerBytes + int64_t{p.width} * p.height * 3;
    if (total > 0x7FFFFFF0) return false;
    auto* out = static_cast<uint8_t*>(file->Allocate(static_cast<int>(total), 16, 0));
    if (!out) return false;
    std::memcpy(out, header, static_cast<size_t>(headerBytes));
    uint8_t* d = out + headerBytes;
    for (int y = 0; y < p.height; ++y) {
        const uint8_t* row = p.data + y * p.pitch;
        for (int x = 0; x < p.width; ++x) {
            *d++ = row[4 * x + 2];
            *d++ = row[4 * x + 1];
            *d++ = row[4 * x + 0];
        }
    }
    file->SetDataSize(static_cast<int>(total));
    return true;
}

std::string PpmDescribe(const uint8_t* data, size_t size) {
    PpmHeader h;
    if (!ParseHeader(data, size, &h)) return "not a binary PPM / PGM header\n";
    char text[200];
    const uint64_t samples = uint64_t{static_cast<uint32_t>(h.width)} * h.height * h.channels;
    std::snprintf(text, sizeof text,
                  "magic: P%c (%s)\nsize: %d x %d\nmaxval: %d\nsamples: %llu of %zu bytes after "
                  "the header%s\n",
                  h.channels == 3 ? '6' : '5', h.channels == 3 ? "RGB" : "grey", h.width, h.height,
                  h.maxval, static_cast<unsigned long long>(samples), size - h.pixelsAt,
                  samples > size - h.pixelsAt ? " (truncated)" : "");
    return text;
}

}  // namespace

ImageFormat PpmImageFormat() {
    return {"PPM", {".ppm", ".pgm", ".pnm"}, PpmProbe, PpmDecode, PpmEncode, PpmDescribe};
}

}  // namespace ncodec
