// TurboJPEG and cjpeg wrappers for the JPEG decoder tests (see jpeg_oracle.h).
#include "tests/image/jpeg/jpeg_oracle.h"

#include <turbojpeg.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "image/jpeg/jpeg_decoder.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/jpeg_codec.h"
#include "tests/support/test_paths.h"

namespace ncbtest::jpeg {
namespace {

void CopyPlane(const uint8_t* src, ptrdiff_t pitch, int w, int h, Bytes* out) {
    out->resize(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        std::memcpy(out->data() + static_cast<size_t>(y) * w, src + y * pitch, w);
}

void ExtractPlanes(const CNCodecBase::VideoFormatInfoTag& f, const uint8_t* base, Planes* p) {
    const int X = f.nRectRight, Y = f.nRectBottom;
    p->width = X;
    p->height = Y;
    const ptrdiff_t p0 = f.nPadLeft + f.nWidth + f.nPadRight;
    const ptrdiff_t r0 = f.nPadTop + f.nHeight + f.nPadBottom;
    CopyPlane(base + f.nPadTop * p0 + f.nPadLeft, p0, X, Y, &p->y);
    if (f.nCodecSubType == VIDEO_FORMAT_Y800) return;
    const bool half = f.nCodecSubType != VIDEO_FORMAT_YUV444;
    const int wc = half ? f.nWidth / 2 : f.nWidth;
    const int hc = f.nCodecSubType == VIDEO_FORMAT_YUV420 ? f.nHeight / 2 : f.nHeight;
    const ptrdiff_t pc = f.nChromaPadLeft + wc + f.nChromaPadRight;
    const ptrdiff_t rc = f.nChromaPadTop + hc + f.nChromaPadBottom;
    p->chromaWidth = half ? (X + 1) / 2 : X;
    p->chromaHeight = f.nCodecSubType == VIDEO_FORMAT_YUV420 ? (Y + 1) / 2 : Y;
    const uint8_t* u = base + p0 * r0 + f.nChromaPadTop * pc + f.nChromaPadLeft;
    CopyPlane(u, pc, p->chromaWidth, p->chromaHeight, &p->u);
    CopyPlane(u + pc * rc, pc, p->chromaWidth, p->chromaHeight, &p->v);
}

OursResult Finish(int ok, const CNCodecBase::VideoFormatInfoTag& f, CNCodecBuffer* out,
                  CNCodecBuffer* in) {
    OursResult r;
    r.ok = ok;
    r.format = f;
    r.userData = in->GetBufferUserData();
    if (ok) ExtractPlanes(f, static_cast<const uint8_t*>(out->GetAddress()), &r.planes);
    return r;
}

}  // namespace

OursResult DecodeOurs(const Bytes& data, int kernelSelect, int startOffset, const PadWords& pads) {
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(const_cast<uint8_t*>(data.data()),
                                                        static_cast<int>(data.size()),
                                                        static_cast<int>(data.size()), nullptr);
    in->SetBufferUserData(startOffset);
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBuffer* cache = CNCodecBuffer::CreateBuffer();
    CNCodecBase::VideoFormatInfoTag f{};
    f.nPadLeft = pads.left;
    f.nPadRight = pads.right;
    f.nPadTop = pads.top;
    f.nPadBottom = pads.bottom;
    f.nChromaPadLeft = pads.chromaLeft;
    f.nChromaPadRight = pads.chromaRight;
    f.nChromaPadTop = pads.chromaTop;
    f.nChromaPadBottom = pads.chromaBottom;
    const int ok = CNJpegCodec::Decode(nullptr, &f, in, out, cache, kernelSelect);
    OursResult r = Finish(ok, f, out, in);
    cache->Release();
    out->Release();
    in->Release();
    return r;
}

OursResult DecodeOursScalar(const Bytes& data) {
    CNCodecBuffer* in = CNCodecBuffer::CreateWrapBuffer(const_cast<uint8_t*>(data.data()),
                                                        static_cast<int>(data.size()),
                                                        static_cast<int>(data.size()), nullptr);
    CNCodecBuffer* out = CNCodecBuffer::CreateBuffer();
    CNCodecBase::VideoFormatInfoTag f{};
    int consumed = 0;
    const int ok = ncb::jpeg::DecodeImage(data.data(), static_cast<int>(data.size()), &f, out,
                                          nullptr, ncb::jpeg::KernelSet::kScalar, &consumed);
    OursResult r = Finish(ok, f, out, in);
    r.userData = consumed;
    out->Release();
    in->Release();
    return r;
}

bool DecodeTurbo(const Bytes& data, Planes* out) {
    tjhandle h = tjInitDecompress();
    if (!h) return false;
    int w = 0, hgt = 0, sub = 0, cs = 0;
    auto* src = const_cast<unsigned char*>(data.data());
    const auto size = static_cast<unsigned long>(data.size());
    bool ok = tjDecompressHeader3(h, src, size, &w, &hgt, &sub, &cs) == 0;
    if (ok) {
        const int comps = sub == TJSAMP_GRAY ? 1 : 3;
        Bytes planes[3];
        unsigned char* dst[3] = {};
        int strides[3] = {};
        for (int c = 0; c < comps; ++c) {
            strides[c] = tjPlaneWidth(c, w, sub);
            planes[c].resize(static_cast<size_t>(tjPlaneSizeYUV(c, w, 0, hgt, sub)));
            dst[c] = planes[c].data();
        }
        ok = tjDecompressToYUVPlanes(h, src, size, dst, w, strides, hgt, 0) == 0;
        if (ok) {
            out->width = w;
            out->height = hgt;
            CopyPlane(dst[0], strides[0], w, hgt, &out->y);
            if (comps == 3) {
                const bool halfW = sub == TJSAMP_420 || sub == TJSAMP_422;
                const bool halfH = sub == TJSAMP_420 || sub == TJSAMP_440;
                out->chromaWidth = halfW ? (w + 1) / 2 : w;
                const int rows = halfH ? (hgt + 1) / 2 : hgt;
                // Our 1x2 output repeats each chroma row.
                out->chromaHeight = sub == TJSAMP_440 ? hgt : rows;
                Bytes* targets[2] = {&out->u, &out->v};
                for (int c = 1; c < 3; ++c) {
                    Bytes& t = *targets[c - 1];
                    t.resize(static_cast<size_t>(out->chromaWidth) * out->chromaHeight);
                    for (int y = 0; y < out->chromaHeight; ++y) {
                        const int sy = sub == TJSAMP_440 ? y / 2 : y;
                        std::memcpy(t.data() + static_cast<size_t>(y) * out->chromaWidth,
                                    dst[c] + static_cast<size_t>(sy) * strides[c],
                                    out->chromaWidth);
                    }
                }
            }
        }
    }
    tjDestroy(h);
    return ok;
}

Difference Compare(const Planes& a, const Planes& b) {
    Difference d;
    if (a.width != b.width || a.height != b.height || a.chromaWidth != b.chromaWidth ||
        a.chromaHeight != b.chromaHeight || a.y.size() != b.y.size() || a.u.size() != b.u.size() ||
        a.v.size() != b.v.size()) {
        d.maxDiff = 256;
        return d;
    }
    double sq = 0;
    size_t n = 0;
    for (const auto& [pa, pb] : {std::pair{&a.y, &b.y}, {&a.u, &b.u}, {&a.v, &b.v}}) {
        for (size_t i = 0; i < pa->size(); ++i) {
            const int e = std::abs((*pa)[i] - (*pb)[i]);
            d.maxDiff = e > d.maxDiff ? e : d.maxDiff;
            sq += e * e;
        }
        n += pa->size();
    }
    d.psnr = sq == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * n / sq);
    return d;
}

Bytes ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

Bytes MakePicture(int width, int height, bool grey, uint32_t seed) {
    const std::string header = std::string(grey ? "P5\n" : "P6\n") + std::to_string(width) + " " +
                               std::to_string(height) + "\n255\n";
    Bytes out(header.begin(), header.end());
    uint32_t state = seed * 2654435761u + 1;
    auto noise = [&] {
        state = state * 1664525u + 1013904223u;
        return static_cast<int>(state >> 28) - 8;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double fx = static_cast<double>(x) / width, fy = static_cast<double>(y) / height;
            int r = static_cast<int>(40 + 180 * fx + 30 * std::sin(fy * 9 + fx * 3));
            int g = static_cast<int>(200 - 150 * fy * fx + ((x / 7 + y / 13) % 2) * 40);
            int b = static_cast<int>(128 + 100 * std::sin(fx * 17) * std::cos(fy * 5));
            r += noise();
            g += noise();
            b += noise();
            auto clamp = [](int v) {
                return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
            };
            if (grey) {
                out.push_back(clamp((r * 3 + g * 5 + b * 2) / 10));
            } else {
                out.push_back(clamp(r));
                out.push_back(clamp(g));
                out.push_back(clamp(b));
            }
        }
    return out;
}

Bytes RunCjpeg(const std::string& args, const Bytes& picture) {
    const std::string dir = ScratchDir();
    const std::string in = dir + "/in.pnm", out = dir + "/out.jpg";
    {
        std::ofstream f(in, std::ios::binary);
        f.write(reinterpret_cast<const char*>(picture.data()),
                static_cast<std::streamsize>(picture.size()));
    }
    const std::string cmd = "cjpeg " + args + " -outfile '" + out + "' '" + in + "' 2>/dev/null";
    if (std::system(cmd.c_str()) != 0) return {};
    return ReadFile(out);
}

Bytes StripDht(const Bytes& jpeg) {
    Bytes out;
    size_t i = 0;
    while (i + 3 < jpeg.size()) {
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC4) {
            i += 2 + ((jpeg[i + 2] << 8) | jpeg[i + 3]);
            continue;
        }
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) break;
        out.push_back(jpeg[i++]);
    }
    out.insert(out.end(), jpeg.begin() + static_cast<ptrdiff_t>(i), jpeg.end());
    return out;
}

}  // namespace ncbtest::jpeg
