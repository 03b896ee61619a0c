// Helpers the codec manager tests share: where the test plug-ins live, how
// many times a file is mapped into this process, and a snapshot of the
// manager's loaded-module records taken under its lock.
#pragma once

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "ncodecbase/codec_manager.h"
#include "platform/kernel/dynamic_library.h"
#include "tests/codec/test_decoder.h"

namespace ncbtest {

inline std::string CodecPluginDir(const std::string& folder) {
    return std::string(NCB_CODEC_PLUGIN_DIR) + "/" + folder;
}

// Number of mappings of `path` in /proc/self/maps: 0 once the system has
// really unloaded the library. Several rules share one file, so this is per
// file, never per rule.
inline int MappingCount(const std::string& path) {
    std::error_code error;
    std::string wanted = std::filesystem::weakly_canonical(path, error).string();
    std::ifstream maps("/proc/self/maps");
    std::string line;
    int count = 0;
    while (std::getline(maps, line)) {
        // address perms offset device inode path (the path may hold spaces)
        std::istringstream fields(line);
        std::string skip;
        for (int i = 0; i < 5; ++i) fields >> skip;
        std::string mapped;
        std::getline(fields >> std::ws, mapped);
        if (mapped == wanted) ++count;
    }
    return count;
}

struct RecordView {
    int key;    // user value 1: rule index, or -1 - index for video
    int count;  // user value 2: live instances
    int flags;
    nplat::HMODULE module;
};

inline std::vector<RecordView> LoadedRecords() {
    std::lock_guard<CNLock> guard(CNCodecManager::s_Lock);
    const CNDataList& list = CNCodecManager::m_listLoadedModule;
    std::vector<RecordView> records;
    for (int i = 0; i < list.GetParameterCount(); ++i) {
        const auto* record =
            static_cast<const CNCodecManager::LoadedModuleInfoTag*>(list.GetBinaryData(i));
        records.push_back(
            {list.GetUserData1(i), list.GetUserData2(i), record->nFlags, record->hModule});
    }
    return records;
}

// An exported test function of a loaded plug-in, cast to its type.
template <typename Proc>
Proc PluginProc(nplat::HMODULE module, const char* name) {
    return reinterpret_cast<Proc>(nplat::GetProcAddress(module, name));
}

inline int LiveInstances(nplat::HMODULE module) {
    auto live = PluginProc<NTestLiveInstancesProc>(module, "NTestLiveInstances");
    return live ? live() : -1;
}

}  // namespace ncbtest
