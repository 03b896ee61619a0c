// `ncodec plugins --audio DIR --video DIR`: which rules of the codec
// manager's mapping tables find a loadable plug-in in those folders.
//
// Each file is probed once, the way the manager would use it: loaded from
// folder/file, both entry points resolved, then unloaded again. No instance
// is created, so a plug-in that would refuse every pair still counts as
// loadable. Folders are taken as plain bytes (no byte-order-mark handling).
#include <sys/stat.h>

#include <cstdio>
#include <map>
#include <string>

#include "ncodecbase/codec_manager.h"
#include "platform/kernel/dynamic_library.h"
#include "tools/ncodec/commands.h"

namespace ncodec {
namespace {

const char* Probe(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return "missing";
    nplat::HMODULE module = nplat::LoadLibrary(path.c_str());
    if (!module) return "not loadable";
    bool create = nplat::GetProcAddress(module, "NCreateInstance") != nullptr;
    bool destroy = nplat::GetProcAddress(module, "NDestroyInstance") != nullptr;
    nplat::FreeLibrary(module);
    if (!create && !destroy) return "no entry points";
    if (!create) return "no NCreateInstance";
    if (!destroy) return "no NDestroyInstance";
    return "ok";
}

std::string Hex(int value) {
    if (value < 0) return std::to_string(value);
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

// One line per rule, then how many rules found a loadable plug-in.
void ListFamily(const char* family, const CNCodecManager::CodecMappingRuleInfoTag* rules,
                const std::string& folder) {
    std::map<std::string, const char*> probed;  // several rules share a file
    int usable = 0, count = 0;
    std::printf("%s rules, folder %s\n", family, folder.c_str());
    std::printf("  %5s  %-7s %-8s %-26s %s\n", "index", "type", "subtype", "file", "status");
    for (; rules[count].nCodecType != -1; ++count) {
        const auto& rule = rules[count];
        auto [it, fresh] = probed.try_emplace(rule.pFileName, nullptr);
        if (fresh) it->second = Probe(folder + "/" + rule.pFileName);
        if (std::string(it->second) == "ok") ++usable;
        std::printf("  %5d  %-7s %-8s %-26s %s\n", count, Hex(rule.nCodecType).c_str(),
                    Hex(rule.nCodecSubType).c_str(), rule.pFileName, it->second);
    }
    std::printf("%s: %d of %d rules find a loadable plug-in\n", family, usable, count);
}

int Usage(const char* problem) {
    std::fprintf(stderr, "ncodec plugins: %s\nusage: ncodec plugins [--audio DIR] [--video DIR]\n",
                 problem);
    return 2;
}

}  // namespace

int RunPlugins(const Args& args) {
    std::string audio, video;
    for (size_t i = 0; i < args.size(); ++i) {
        if ((args[i] != "--audio" && args[i] != "--video") || i + 1 == args.size())
            return Usage(("unexpected argument '" + args[i] + "'").c_str());
        (args[i] == "--audio" ? audio : video) = args[i + 1];
        ++i;
    }
    if (audio.empty() && video.empty()) return Usage("give --audio, --video or both");
    if (!audio.empty()) ListFamily("audio", CNCodecManager::s_stAudioMappingRule, audio);
    if (!audio.empty() && !video.empty()) std::printf("\n");
    if (!video.empty()) ListFamily("video", CNCodecManager::s_stVideoMappingRule, video);
    return 0;
}

}  // namespace ncodec
