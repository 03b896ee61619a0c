// colour/<pair>/<size>/<impl>: the common picture conversions, a quarter
// turn and a plane copy through CNVideoProcessor (ours at the best level
// this processor has, and ours_l0..ours_l2 per level) beside libyuv and
// libswscale doing the same job on the same frames, plus libc memcpy of the
// same bytes as the bandwidth these memory-bound loops cannot beat. Bytes
// processed count input and output once each.
//
// The rivals are asked for full-range BT.601 where they offer it (libyuv's
// J420 functions, swscale's YUVJ formats), so all do the same arithmetic
// work; the bytes differ in rounding only. libyuv picks its own kernels
// from the CPU; the flags it saw are printed as the benchmark label.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/processor_level.h"
#include "base/video_format.h"
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"

#if defined(NCB_BENCH_LIBYUV)
#include <libyuv.h>
#endif
#if defined(NCB_BENCH_SWSCALE)
extern "C" {
#include <libswscale/swscale.h>
}
#endif

namespace {

using ncb::VideoFormatInfo;
using Config = CNVideoProcessor::ConvertConfigTag;

constexpr Config kNoAdjust{0, 0, 128, 128, 0, 0, 0, 256, 256, 256, 255};

struct Size {
    int width, height;
    const char* name;
};
constexpr Size kSizes[] = {{1920, 1080, "1920x1080"}, {3840, 2160, "3840x2160"}};

// A frame laid out with the library's allocation rule (16-byte rows), filled
// with a deterministic pattern.
struct Frame {
    Frame(int code, int width, int height) : buffer(CNCodecBuffer::CreateBuffer()) {
        ncb::InitVideoFormat(&format, code, width, height);
        data = ncb::AllocateFrame(buffer, &format);
        ncb::GetPlanes(format, data, false, &planes);
        uint32_t seed = static_cast<uint32_t>(code) * 2654435761u;
        const int bytes = buffer->GetDataSize();
        for (int i = 0; i < bytes; ++i) {
            seed = seed * 1664525u + 1013904223u;
            data[i] = static_cast<uint8_t>(seed >> 24);
        }
    }
    ~Frame() { buffer->Release(); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    int Bytes() const { return buffer->GetDataSize(); }
    uint8_t* Plane(int i) const {
        return i == 0 ? planes.plane0.data : i == 1 ? planes.u.data : planes.v.data;
    }
    int Pitch(int i) const {
        return static_cast<int>(i == 0   ? planes.plane0.pitch
                                : i == 1 ? planes.u.pitch
                                         : planes.v.pitch);
    }

    CNCodecBuffer* buffer;
    VideoFormatInfo format{};
    uint8_t* data = nullptr;
    ncb::PlaneSet planes;
};

// One job: its codes, our call and the rivals' calls on the same frames.
struct Job {
    const char* pair;
    int inCode, outCode;
    bool turn;  // output is height x width
    int (*ours)(Frame& in, Frame& out, int level);
    void (*libyuv)(Frame& in, Frame& out);
    int swsIn, swsOut;  // AVPixelFormat values, -1 for none
};

int OursToRgb(Frame& in, Frame& out, int level) {
    Config c = kNoAdjust;
    return CNVideoProcessor::ConvertToRGB(in.buffer, out.buffer, &in.format, &out.format, &c, 0,
                                          level);
}
int OursFromRgb(Frame& in, Frame& out, int level) {
    Config c = kNoAdjust;
    return CNVideoProcessor::ConvertFromRGB(in.buffer, out.buffer, &in.format, &out.format, &c, 0,
                                            level);
}
int OursFromYuv(Frame& in, Frame& out, int level) {
    Config c = kNoAdjust;
    return CNVideoProcessor::ConvertFromYUV(in.buffer, out.buffer, &in.format, &out.format, &c, 0,
                                            level);
}
int OursToYuv(Frame& in, Frame& out, int level) {
    Config c = kNoAdjust;
    return CNVideoProcessor::ConvertToYUV(in.buffer, out.buffer, &in.format, &out.format, &c, 0,
                                          level);
}
int OursRgb(Frame& in, Frame& out, int level) {
    return CNVideoProcessor::ConvertRGB(in.buffer, out.buffer, &in.format, &out.format, 0, level);
}
int OursRotate(Frame& in, Frame& out, int level) {
    return CNVideoProcessor::RotateRGB(in.buffer, out.buffer, &in.format, &out.format, 0, 0, level);
}
int OursCopy(Frame& in, Frame& out, int level) {
    return CNVideoProcessor::DirectCopyYUV(in.buffer, out.buffer, &in.format, &out.format, 0, 0,
                                           level);
}

#if defined(NCB_BENCH_LIBYUV)
int W(const Frame& f) { return f.planes.plane0.width; }
int H(const Frame& f) { return f.planes.plane0.height; }

void YuvI420ToArgb(Frame& i, Frame& o) {
    libyuv::J420ToARGB(i.Plane(0), i.Pitch(0), i.Plane(1), i.Pitch(1), i.Plane(2), i.Pitch(2),
                       o.Plane(0), o.Pitch(0), W(i), H(i));
}
void YuvArgbToI420(Frame& i, Frame& o) {
    libyuv::ARGBToJ420(i.Plane(0), i.Pitch(0), o.Plane(0), o.Pitch(0), o.Plane(1), o.Pitch(1),
                       o.Plane(2), o.Pitch(2), W(i), H(i));
}
void YuvNv12ToI420(Frame& i, Frame& o) {
    libyuv::NV12ToI420(i.Plane(0), i.Pitch(0), i.Plane(1), i.Pitch(1), o.Plane(0), o.Pitch(0),
                       o.Plane(1), o.Pitch(1), o.Plane(2), o.Pitch(2), W(i), H(i));
}
void YuvYuy2ToI420(Frame& i, Frame& o) {
    libyuv::YUY2ToI420(i.Plane(0), i.Pitch(0), o.Plane(0), o.Pitch(0), o.Plane(1), o.Pitch(1),
                       o.Plane(2), o.Pitch(2), W(i), H(i));
}
void YuvI420ToYuy2(Frame& i, Frame& o) {
    libyuv::I420ToYUY2(i.Plane(0), i.Pitch(0), i.Plane(1), i.Pitch(1), i.Plane(2), i.Pitch(2),
                       o.Plane(0), o.Pitch(0), W(i), H(i));
}
void YuvRgb24ToArgb(Frame& i, Frame& o) {
    libyuv::RGB24ToARGB(i.Plane(0), i.Pitch(0), o.Plane(0), o.Pitch(0), W(i), H(i));
}
void YuvRotate90(Frame& i, Frame& o) {
    libyuv::ARGBRotate(i.Plane(0), i.Pitch(0), o.Plane(0), o.Pitch(0), W(i), H(i),
                       libyuv::kRotate90);
}
void YuvCopy(Frame& i, Frame& o) {
    libyuv::I420Copy(i.Plane(0), i.Pitch(0), i.Plane(1), i.Pitch(1), i.Plane(2), i.Pitch(2),
                     o.Plane(0), o.Pitch(0), o.Plane(1), o.Pitch(1), o.Plane(2), o.Pitch(2), W(i),
                     H(i));
}

std::string LibyuvPath() {
    struct Flag {
        int bit;
        const char* name;
    };
    const Flag flags[] = {{libyuv::kCpuHasSSSE3, "ssse3"},
                          {libyuv::kCpuHasAVX2, "avx2"},
                          {libyuv::kCpuHasERMS, "erms"},
                          {libyuv::kCpuHasAVX512BW, "avx512bw"},
                          {libyuv::kCpuHasAVX512VL, "avx512vl"}};
    std::string path = "libyuv:";
    for (const Flag& f : flags)
        if (libyuv::TestCpuFlag(f.bit)) path += std::string(" ") + f.name;
    return path;
}
#define NCB_LIBYUV(f) f
#else
#define NCB_LIBYUV(f) nullptr
#endif

#if defined(NCB_BENCH_SWSCALE)
#define NCB_SWS(f) static_cast<int>(f)
#else
#define NCB_SWS(f) -1
#endif

const Job kJobs[] = {
    {"i420_to_argb", VIDEO_FORMAT_YUV420, VIDEO_FORMAT_RGB32, false, OursToRgb,
     NCB_LIBYUV(YuvI420ToArgb), NCB_SWS(AV_PIX_FMT_YUVJ420P), NCB_SWS(AV_PIX_FMT_BGRA)},
    {"argb_to_i420", VIDEO_FORMAT_RGB32, VIDEO_FORMAT_YUV420, false, OursFromRgb,
     NCB_LIBYUV(YuvArgbToI420), NCB_SWS(AV_PIX_FMT_BGRA), NCB_SWS(AV_PIX_FMT_YUVJ420P)},
    {"nv12_to_i420", VIDEO_FORMAT_NV12, VIDEO_FORMAT_YUV420, false, OursFromYuv,
     NCB_LIBYUV(YuvNv12ToI420), NCB_SWS(AV_PIX_FMT_NV12), NCB_SWS(AV_PIX_FMT_YUV420P)},
    {"yuy2_to_i420", VIDEO_FORMAT_YUY2, VIDEO_FORMAT_YUV420, false, OursFromYuv,
     NCB_LIBYUV(YuvYuy2ToI420), NCB_SWS(AV_PIX_FMT_YUYV422), NCB_SWS(AV_PIX_FMT_YUV420P)},
    {"i420_to_yuy2", VIDEO_FORMAT_YUV420, VIDEO_FORMAT_YUY2, false, OursToYuv,
     NCB_LIBYUV(YuvI420ToYuy2), NCB_SWS(AV_PIX_FMT_YUV420P), NCB_SWS(AV_PIX_FMT_YUYV422)},
    {"rgb24_to_argb", VIDEO_FORMAT_RGB24, VIDEO_FORMAT_RGB32, false, OursRgb,
     NCB_LIBYUV(YuvRgb24ToArgb), NCB_SWS(AV_PIX_FMT_BGR24), NCB_SWS(AV_PIX_FMT_BGRA)},
    {"rotate90_argb", VIDEO_FORMAT_RGB32, VIDEO_FORMAT_RGB32, true, OursRotate,
     NCB_LIBYUV(YuvRotate90), -1, -1},
    {"copy_i420", VIDEO_FORMAT_YUV420, VIDEO_FORMAT_YUV420, false, OursCopy, NCB_LIBYUV(YuvCopy),
     NCB_SWS(AV_PIX_FMT_YUV420P), NCB_SWS(AV_PIX_FMT_YUV420P)},
};

struct Frames {
    Frames(const Job& job, const Size& size)
        : in(job.inCode, size.width, size.height),
          out(job.outCode, job.turn ? size.height : size.width,
              job.turn ? size.width : size.height) {}
    int64_t Bytes() const { return int64_t{in.Bytes()} + out.Bytes(); }
    Frame in, out;
};

void RunOurs(benchmark::State& state, const Job* job, const Size* size, int level) {
    if (level < 0 || level > ncb::ProcessorLevel()) {
        state.SkipWithError("processor level not available");
        return;
    }
    Frames f(*job, *size);
    for (auto _ : state) benchmark::DoNotOptimize(job->ours(f.in, f.out, level));
    state.SetBytesProcessed(state.iterations() * f.Bytes());
}

#if defined(NCB_BENCH_LIBYUV)
void RunLibyuv(benchmark::State& state, const Job* job, const Size* size) {
    Frames f(*job, *size);
    for (auto _ : state) {
        job->libyuv(f.in, f.out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * f.Bytes());
    state.SetLabel(LibyuvPath());
}
#endif

#if defined(NCB_BENCH_SWSCALE)
void RunSwscale(benchmark::State& state, const Job* job, const Size* size) {
    Frames f(*job, *size);
    const int w = size->width, h = size->height;
    SwsContext* context = sws_getContext(w, h, static_cast<AVPixelFormat>(job->swsIn), w, h,
                                         static_cast<AVPixelFormat>(job->swsOut), SWS_POINT,
                                         nullptr, nullptr, nullptr);
    if (!context) {
        state.SkipWithError("sws_getContext failed");
        return;
    }
    auto planes = [](Frame& fr, uint8_t** data, int* pitch) {
        for (int i = 0; i < 3; ++i) {
            data[i] = i < fr.planes.count ? fr.Plane(i) : nullptr;
            pitch[i] = i < fr.planes.count ? fr.Pitch(i) : 0;
        }
        data[3] = nullptr;
        pitch[3] = 0;
    };
    uint8_t* src[4];
    uint8_t* dst[4];
    int srcPitch[4], dstPitch[4];
    planes(f.in, src, srcPitch);
    planes(f.out, dst, dstPitch);
    for (auto _ : state)
        benchmark::DoNotOptimize(sws_scale(context, src, srcPitch, 0, h, dst, dstPitch));
    sws_freeContext(context);
    state.SetBytesProcessed(state.iterations() * f.Bytes());
}
#endif

// The same bytes as an I420 frame copied with memcpy: read once, written once.
void RunMemcpy(benchmark::State& state, const Size* size) {
    Frame in(VIDEO_FORMAT_YUV420, size->width, size->height);
    Frame out(VIDEO_FORMAT_YUV420, size->width, size->height);
    for (auto _ : state) {
        std::memcpy(out.data, in.data, static_cast<size_t>(in.Bytes()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * 2 * int64_t{in.Bytes()});
}

const int kRegistered = [] {
    for (const Size& size : kSizes) {
        for (const Job& job : kJobs) {
            const std::string prefix = std::string("colour/") + job.pair + "/" + size.name + "/";
            benchmark::RegisterBenchmark((prefix + "ours").c_str(), RunOurs, &job, &size,
                                         ncb::ProcessorLevel())
                ->Unit(benchmark::kMicrosecond);
            for (int level = 0; level <= 2; ++level)
                benchmark::RegisterBenchmark((prefix + "ours_l" + std::to_string(level)).c_str(),
                                             RunOurs, &job, &size, level)
                    ->Unit(benchmark::kMicrosecond);
#if defined(NCB_BENCH_LIBYUV)
            benchmark::RegisterBenchmark((prefix + "libyuv").c_str(), RunLibyuv, &job, &size)
                ->Unit(benchmark::kMicrosecond);
#endif
#if defined(NCB_BENCH_SWSCALE)
            if (job.swsIn >= 0)
                benchmark::RegisterBenchmark((prefix + "swscale").c_str(), RunSwscale, &job, &size)
                    ->Unit(benchmark::kMicrosecond);
#endif
        }
        benchmark::RegisterBenchmark((std::string("colour/memcpy/") + size.name + "/libc").c_str(),
                                     RunMemcpy, &size)
            ->Unit(benchmark::kMicrosecond);
    }
    return 0;
}();

}  // namespace
