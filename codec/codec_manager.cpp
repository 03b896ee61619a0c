// The process-wide decoder plug-in manager: loads a plug-in on the first
// request for one of its (type, subtype) pairs, keeps one loaded-module record
// per rule with the rule's live instance count, and unloads the plug-in when a
// rule's last instance goes unless the rule is frozen.
//
// One re-entrant lock is held across every operation, including the calls
// into NCreateInstance and NDestroyInstance: plug-ins then never see
// concurrent calls, and a plug-in cannot be unloaded while one of its
// functions runs. Records are found again by key after each such call, since
// a plug-in may call back into the manager and move them.
//
// Deliberately not here: validating instances (Free trusts the caller's
// pair), destroying live instances at Uninit, or any search path beyond the
// two configured folders.
#include "ncodecbase/codec_manager.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/kernel/dynamic_library.h"
#include "platform/win/text_conversion.h"

int CNCodecManager::s_nInited = 0;
constinit CNLock CNCodecManager::s_Lock;
char CNCodecManager::s_chAudioCodecPath[CODEC_PATH_SIZE] = {};
char CNCodecManager::s_chVideoCodecPath[CODEC_PATH_SIZE] = {};
constinit CNDataList CNCodecManager::m_listLoadedModule;

namespace {

using Manager = CNCodecManager;
using Rule = CNCodecManager::CodecMappingRuleInfoTag;
using Record = CNCodecManager::LoadedModuleInfoTag;
using Guard = std::lock_guard<CNLock>;

// The wide path buffer of the byte-order-mark branch: MAX_PATH units.
constexpr int kWidePathUnits = 260;
// Longest file name in the tables, with room to spare.
constexpr int kMaxFileName = 64;

// What differs between the audio and the video half of the manager.
struct Family {
    const Rule* rules;
    const char* folder;
    int32_t flag;
    bool video;
};

const Family kAudio{Manager::s_stAudioMappingRule, Manager::s_chAudioCodecPath,
                    Manager::MODULE_FLAG_AUDIO, false};
const Family kVideo{Manager::s_stVideoMappingRule, Manager::s_chVideoCodecPath,
                    Manager::MODULE_FLAG_VIDEO, true};

int FindRule(const Rule* rules, int codecType, int codecSubType) {
    for (int i = 0; rules[i].nCodecType != -1; ++i) {
        if (rules[i].nCodecType == codecType && rules[i].nCodecSubType == codecSubType) return i;
    }
    return -1;
}

// Video keys are negative so both tables share one list without collisions.
int16_t KeyOf(const Family& family, int rule) {
    return static_cast<int16_t>(family.video ? -1 - rule : rule);
}

int FindRecord(int16_t key) { return Manager::m_listLoadedModule.FindByUserData1(0, key, -1); }

Record* RecordAt(int position) {
    return static_cast<Record*>(Manager::m_listLoadedModule.GetBinaryData(position));
}

// The record of the pair's rule, or -1 when the pair has no rule or its
// plug-in is not loaded.
int FindLoadedRecord(const Family& family, int codecType, int codecSubType) {
    int rule = FindRule(family.rules, codecType, codecSubType);
    return rule < 0 ? -1 : FindRecord(KeyOf(family, rule));
}

// Folder and file joined with '/'. A folder that starts with a UTF-8
// byte-order mark goes through the wide-character loader with a path of at
// most 259 units; a longer one fails rather than loading a truncated path.
nplat::HMODULE LoadPlugin(const char* folder, const char* file) {
    char path[Manager::CODEC_PATH_SIZE + kMaxFileName];
    int length = std::snprintf(path, sizeof path, "%s/%s", folder, file);
    if (length < 0 || length >= static_cast<int>(sizeof path)) return nullptr;
    if (std::memcmp(path, "\xEF\xBB\xBF", 3) != 0) return nplat::LoadLibrary(path);
    nplat::WCHAR wide[kWidePathUnits] = {};
    if (!nplat::MultiByteToWideChar(nplat::CP_UTF8, 0, path + 3, -1, wide, kWidePathUnits))
        return nullptr;
    wide[kWidePathUnits - 1] = 0;
    return nplat::LoadLibraryW(wide);
}

// Loads the rule's plug-in and appends its record; the record's position, or
// -1 with nothing left loaded.
int LoadRecord(const Family& family, int rule, int16_t key) {
    nplat::HMODULE module = LoadPlugin(family.folder, family.rules[rule].pFileName);
    if (!module) return -1;
    Record record{family.flag, module,
                  reinterpret_cast<void*>(nplat::GetProcAddress(module, "NCreateInstance")),
                  reinterpret_cast<void*>(nplat::GetProcAddress(module, "NDestroyInstance"))};
    if (!record.pfnCreateInstance || !record.pfnDestroyInstance) {
        nplat::FreeLibrary(module);
        return -1;
    }
    CNDataList& list = Manager::m_listLoadedModule;
    try {
        int position = list.InsertBinary("", &record, sizeof record, -1, 0);
        list.SetUserData1(position, key);
        list.SetUserData2(position, 0);
        return position;
    } catch (CNException* e) {
        e->FreeMe();
        nplat::FreeLibrary(module);
        return -1;
    }
}

// Plug-ins written in C++ might throw; nothing of theirs crosses our interface.
void* CallCreate(void* function, int codecType, int codecSubType) {
    try {
        return reinterpret_cast<Manager::NCreateInstanceProc>(function)(codecType, codecSubType);
    } catch (...) {
        return nullptr;
    }
}

void CallDestroy(void* function, void* instance) {
    try {
        reinterpret_cast<Manager::NDestroyInstanceProc>(function)(instance);
    } catch (...) {
    }
}

void* Allocate(const Family& family, int codecType, int codecSubType) {
    Guard guard(Manager::s_Lock);
    if (!Manager::s_nInited) return nullptr;
    int rule = FindRule(family.rules, codecType, codecSubType);
    if (rule < 0) return nullptr;
    int16_t key = KeyOf(family, rule);
    int position = FindRecord(key);
    if (position < 0) position = LoadRecord(family, rule, key);
    if (position < 0) return nullptr;
    void* instance = CallCreate(RecordAt(position)->pfnCreateInstance, codecType, codecSubType);
    if (!instance) return nullptr;  // the plug-in stays loaded, its count unchanged
    position = FindRecord(key);
    if (position >= 0) Manager::m_listLoadedModule.IncrementUserData2(position);
    return instance;
}

void Free(const Family& family, void* instance, int codecType, int codecSubType) {
    Guard guard(Manager::s_Lock);
    if (!Manager::s_nInited) return;
    int rule = FindRule(family.rules, codecType, codecSubType);
    if (rule < 0) return;
    int16_t key = KeyOf(family, rule);
    CNDataList& list = Manager::m_listLoadedModule;
    int position = FindRecord(key);
    if (position < 0 || list.GetUserData2(position) == 0) return;
    list.DecrementUserData2(position);
    CallDestroy(RecordAt(position)->pfnDestroyInstance, instance);
    position = FindRecord(key);
    if (position < 0 || list.GetUserData2(position) != 0) return;
    const Record* record = RecordAt(position);
    if (record->nFlags & Manager::MODULE_FLAG_FROZEN) return;
    nplat::FreeLibrary(record->hModule);
    list.Remove(position);
}

int SetFrozen(const Family& family, int codecType, int codecSubType, bool frozen) {
    Guard guard(Manager::s_Lock);
    if (!Manager::s_nInited) return 0;
    int position = FindLoadedRecord(family, codecType, codecSubType);
    if (position < 0) return 0;
    Record* record = RecordAt(position);
    if (frozen)
        record->nFlags |= Manager::MODULE_FLAG_FROZEN;
    else
        record->nFlags &= ~Manager::MODULE_FLAG_FROZEN;
    return 1;
}

bool FolderFits(const char* folder) {
    return folder && std::strlen(folder) < static_cast<size_t>(Manager::CODEC_PATH_SIZE);
}

}  // namespace

int CNCodecManager::Init(const char* audioPath, const char* videoPath) {
    Guard guard(s_Lock);
    if (s_nInited || !FolderFits(audioPath) || !FolderFits(videoPath)) return 0;
    std::strcpy(s_chAudioCodecPath, audioPath);
    std::strcpy(s_chVideoCodecPath, videoPath);
    s_nInited = 1;
    return 1;
}

int CNCodecManager::Uninit() {
    Guard guard(s_Lock);
    if (!s_nInited) return 0;
    for (int i = 0; i < m_listLoadedModule.GetParameterCount(); ++i)
        nplat::FreeLibrary(RecordAt(i)->hModule);
    m_listLoadedModule.RemoveAll(1);
    s_nInited = 0;
    return 1;
}

void* CNCodecManager::AllocateAudioDecoder(int codecType, int codecSubType) {
    return Allocate(kAudio, codecType, codecSubType);
}

void* CNCodecManager::AllocateVideoDecoder(int codecType, int codecSubType) {
    return Allocate(kVideo, codecType, codecSubType);
}

void CNCodecManager::FreeAudioDecoder(void* instance, int codecType, int codecSubType) {
    Free(kAudio, instance, codecType, codecSubType);
}

void CNCodecManager::FreeVideoDecoder(void* instance, int codecType, int codecSubType) {
    Free(kVideo, instance, codecType, codecSubType);
}

int CNCodecManager::FreezeAudioDecoder(int codecType, int codecSubType) {
    return SetFrozen(kAudio, codecType, codecSubType, true);
}

int CNCodecManager::FreezeVideoDecoder(int codecType, int codecSubType) {
    return SetFrozen(kVideo, codecType, codecSubType, true);
}

void CNCodecManager::UnfreezeAudioDecoder(int codecType, int codecSubType) {
    SetFrozen(kAudio, codecType, codecSubType, false);
}

void CNCodecManager::UnfreezeVideoDecoder(int codecType, int codecSubType) {
    SetFrozen(kVideo, codecType, codecSubType, false);
}

int CNCodecManager::FindAudioDecoderPos(int codecType, int codecSubType) {
    Guard guard(s_Lock);
    return FindRule(s_stAudioMappingRule, codecType, codecSubType);
}

int CNCodecManager::FindVideoDecoderPos(int codecType, int codecSubType) {
    Guard guard(s_Lock);
    return FindRule(s_stVideoMappingRule, codecType, codecSubType);
}
