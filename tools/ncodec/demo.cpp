// `ncodec demo`: runs every step of the table below, each writing its files
// under the output folder, and reports each step's outcome. A failing step
// does not stop the others; the exit code says whether all succeeded.
#include "tools/ncodec/demo.h"

#include <cstdio>
#include <fstream>
#include <system_error>

#include "tools/ncodec/commands.h"
#include "tools/ncodec/demo_steps.h"

namespace ncodec {
namespace {

// One entry per capability, in the order the library grew.
constexpr DemoStep kDemoSteps[] = {
    {"cpu", "processor identification and level", DemoCpu},
    {"buffers", "owned, wrapping and pool buffers", DemoBuffers},
    {"formats", "plane layouts of the video and audio descriptors", DemoFormats},
    {"audio", "a tone sweep through equalizer, tempo and resampler", DemoAudio},
    {"png", "PNG files of a test picture, encoded and decoded back", DemoPng},
    {"gif", "an animated GIF of a bouncing ball, encoded and decoded back", DemoGif},
    {"jpeg", "a bundled JPEG decoded at every level and encoded again at three qualities",
     DemoJpeg},
    {"colour", "a picture through conversions, an adjustment and quarter turns", DemoColour},
    {"composite", "a picture scaled, with a box, a keyed logo, an inset and a subtitle",
     DemoComposite},
    {"play", "one second through the audio render on the virtual sound device", DemoPlay},
    {"render", "a scene of frames, a burnt-in background and captions composed by the video render",
     DemoRender},
    {"layers",
     "a video layer with a caption and a static layer mapped three ways, composed by the layered "
     "render",
     DemoLayers},
};

struct DemoOptions {
    std::filesystem::path outDir = "out/demo";
    std::string only;
    bool list = false;
};

bool ParseOptions(const Args& args, DemoOptions* options) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--out" && i + 1 < args.size()) {
            options->outDir = args[++i];
        } else if (a == "--step" && i + 1 < args.size()) {
            options->only = args[++i];
        } else if (a == "--list") {
            options->list = true;
        } else {
            std::fprintf(stderr, "ncodec demo: unexpected argument '%s'\n", a.c_str());
            return false;
        }
    }
    return true;
}

bool RunStep(const DemoStep& step, const DemoContext& context) {
    std::string error;
    const bool ok = step.run(context, &error);
    if (ok) {
        std::printf("[ ok ] %-10s %s\n", step.name, step.summary);
    } else {
        std::printf("[FAIL] %-10s %s\n", step.name, error.c_str());
    }
    return ok;
}

}  // namespace

bool DemoContext::WriteBytes(const std::string& name, const void* data, size_t size,
                             std::string* error) const {
    const std::filesystem::path path = outDir / name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    out.close();
    if (!out) {
        *error = "cannot write " + path.string();
        return false;
    }
    return true;
}

bool DemoContext::WriteText(const std::string& name, const std::string& text,
                            std::string* error) const {
    return WriteBytes(name, text.data(), text.size(), error);
}

int RunDemo(const Args& args) {
    DemoOptions options;
    if (!ParseOptions(args, &options)) return 2;
    if (options.list) {
        for (const DemoStep& step : kDemoSteps) std::printf("%-10s %s\n", step.name, step.summary);
        return 0;
    }
    std::error_code ec;
    std::filesystem::create_directories(options.outDir, ec);
    if (ec) {
        std::fprintf(stderr, "ncodec demo: cannot create %s: %s\n", options.outDir.string().c_str(),
                     ec.message().c_str());
        return 1;
    }
    const DemoContext context{options.outDir};
    int ran = 0, failed = 0;
    for (const DemoStep& step : kDemoSteps) {
        if (!options.only.empty() && options.only != step.name) continue;
        ++ran;
        if (!RunStep(step, context)) ++failed;
    }
    if (ran == 0) {
        std::fprintf(stderr, "ncodec demo: no step named '%s'\n", options.only.c_str());
        return 2;
    }
    std::printf("%d of %d steps succeeded; results in %s\n", ran - failed, ran,
                options.outDir.string().c_str());
    if (failed) std::fprintf(stderr, "ncodec demo: %d step(s) failed\n", failed);
    return failed ? 1 : 0;
}

}  // namespace ncodec
