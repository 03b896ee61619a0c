// ncodec: command-line front end of the library. main only dispatches; each
// subcommand lives in its own file.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/ncodec/commands.h"

namespace {

struct Command {
    const char* name;
    const char* usage;
    int (*run)(const ncodec::Args&);
};

constexpr Command kCommands[] = {
    {"cpu", "cpu                 processor identification, level and extensions", ncodec::RunCpu},
    {"demo",
     "demo [--out DIR] [--step NAME] [--list]\n"
     "                    run every capability, results under DIR (out/demo)",
     ncodec::RunDemo},
    {"convert",
     "convert [--alpha | --no-alpha] [--via LAYOUT] IN OUT\n"
     "                    re-encode a picture, format by OUT's extension (.png, .ppm),\n"
     "                    optionally through a pixel layout (nv12, yuy2, rgb565, ...)",
     ncodec::RunConvert},
    {"resize",
     "resize [--yuv420] WIDTHxHEIGHT IN OUT\n"
     "                    scale a picture with the polyphase resizer (as RGB32 or 4:2:0)",
     ncodec::RunResize},
    {"info", "info FILE           picture format, header fields and chunks of FILE",
     ncodec::RunInfo},
    {"plugins",
     "plugins [--audio DIR] [--video DIR]\n"
     "                    which codec mapping rules find a loadable plug-in",
     ncodec::RunPlugins},
    {"audio",
     "audio IN.wav OUT.wav [--rate HZ] [--tempo X] [--eq F:W,...] [--downmix MASK]\n"
     "      [--volume X]  run a WAV file through down-mix, equalizer, tempo, resampler, volume",
     ncodec::RunAudio},
    {"play",
     "play FILE.wav [--device N|virtual:OUT.wav] [--tempo X] [--eq F:G,...] [--volume X]\n"
     "                    play through the audio render, showing its play clock",
     ncodec::RunPlay},
    {"devices", "devices             sound devices and mixer lines the audio render sees",
     ncodec::RunDevices},
    {"zip",
     "zip list ARCHIVE | zip extract ARCHIVE [NAME|INDEX...] -o DIR [--password P]\n"
     "                    list a ZIP archive or extract entries into DIR",
     ncodec::RunZip},
    {"rar",
     "rar list ARCHIVE [--password P] | rar extract ARCHIVE [NAME|INDEX...] -o DIR\n"
     "      [--password P]  list a RAR archive or extract entries into DIR",
     ncodec::RunRar},
    {"scenes",
     "scenes [--size WxH] [--options BITS] FILE...\n"
     "                    scene cuts over pictures (or raw 4:2:0 frames): index, cut, confidence",
     ncodec::RunScenes},
    {"layers",
     "layers SCENE.json --out FILE [--device soft]\n"
     "                    compose static layers of pictures through the layered render",
     ncodec::RunLayers},
    {"show",
     "show IMAGE... [--text \"...\"] [--out FILE]\n"
     "                    compose pictures and a text through the video render (frame.png)",
     ncodec::RunShow},
};

void PrintUsage(std::FILE* to) {
    std::fprintf(to, "usage: ncodec --help | --version | COMMAND [ARGS]\ncommands:\n");
    for (const Command& c : kCommands) std::fprintf(to, "  %s\n", c.usage);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage(stderr);
        return 2;
    }
    const std::string first = argv[1];
    if (first == "--help" || first == "-h") {
        PrintUsage(stdout);
        return 0;
    }
    if (first == "--version") {
        std::printf("ncodec %s\n", NCB_VERSION_STRING);
        return 0;
    }
    for (const Command& c : kCommands) {
        if (first == c.name) return c.run(ncodec::Args(argv + 2, argv + argc));
    }
    std::fprintf(stderr, "ncodec: unknown command '%s'\n", first.c_str());
    PrintUsage(stderr);
    return 2;
}
