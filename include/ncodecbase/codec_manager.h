// CNCodecManager: hands out audio and video decoder instances that live in
// plug-in libraries outside this library. Two built-in mapping tables name,
// for every (codec type, codec subtype) pair, the plug-in file that decodes it;
// the manager loads that file from the audio or video folder on the first
// request for the pair and keeps it loaded while instances made through it
// exist, or while the pair is frozen.
//
// A plug-in is a shared library (it keeps its ".dll" name) that exports two
// plain C functions:
//   void* NCreateInstance(int codecType, int codecSubType);  // null: refused
//   int NDestroyInstance(void* instance);                    // result ignored
// The decoder objects and their interface belong to the plug-ins and hosts.
// A plug-in must not export STB_GNU_UNIQUE symbols (C++ inline or template
// statics do unless built with -fno-gnu-unique): the system never unloads such
// a library, so it would outlive its last instance.
//
// Ownership: an instance belongs to the caller until it hands it back with the
// Free call of the same pair; Uninit unloads every plug-in without destroying
// live instances, which must not be used afterwards.
// Thread safety: one process-wide manager; every operation holds s_Lock, also
// while it calls into a plug-in, so NCreateInstance and NDestroyInstance never
// run concurrently. s_Lock is re-entrant: a plug-in may call the manager.
// Failures: null from Allocate, 0 from Init, Uninit and Freeze, nothing from
// Free and Unfreeze; a failed call changes nothing and loads nothing lasting
// (a plug-in whose NCreateInstance refused stays loaded with no instances).
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/base_services.h"
#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

class NCB_API CNCodecManager {
  public:
    // One row of a mapping table. A table ends with a row whose nCodecType is
    // -1. nCodecSubType -1 is an ordinary value: callers ask for it to get the
    // family's general decoder. nFlag is not read by the manager.
    struct CodecMappingRuleInfoTag {
        int32_t nFlag;
        int32_t nCodecType;
        int32_t nCodecSubType;
        const char* pFileName;  // file in the audio or video folder
    };

    // Payload of a record of m_listLoadedModule. User value 1 is the rule
    // index for audio and -1 - index for video; user value 2 counts the live
    // instances made through the record. A file named by several rules gets a
    // record per rule; the system's load count keeps one copy mapped.
    struct LoadedModuleInfoTag {
        int32_t nFlags;  // MODULE_FLAG_...
        nplat::HMODULE hModule;
        void* pfnCreateInstance;
        void* pfnDestroyInstance;
    };

    static constexpr int32_t MODULE_FLAG_AUDIO = 0x1;
    static constexpr int32_t MODULE_FLAG_VIDEO = 0x2;
    static constexpr int32_t MODULE_FLAG_FROZEN = 0x4;
    // Size of each folder buffer; folders of this many bytes or more are refused.
    static constexpr int CODEC_PATH_SIZE = 780;

    using NCreateInstanceProc = void* (*)(int codecType, int codecSubType);
    using NDestroyInstanceProc = int (*)(void* instance);

    // Copies both folders (UTF-8; a leading byte-order mark EF BB BF makes the
    // manager load through the wide-character path). 0 when already inited, for
    // a null folder, or for a folder of CODEC_PATH_SIZE bytes or more.
    static int Init(const char* audioPath, const char* videoPath);
    // Unloads every plug-in, frozen or in use, and forgets them; live
    // instances are not destroyed. 0 when not inited.
    static int Uninit();

    // A new decoder instance for the pair, loading its plug-in on first use;
    // null when not inited, when no rule names the pair, when the plug-in
    // cannot be loaded or lacks an entry point, when memory runs out, or when
    // NCreateInstance refuses.
    static void* AllocateAudioDecoder(int codecType, int codecSubType);
    static void* AllocateVideoDecoder(int codecType, int codecSubType);
    // Destroys an instance made for the same pair and unloads the plug-in when
    // it was the pair's last one and the pair is not frozen. Does nothing when
    // not inited, for an unknown pair, or when the pair has no live instance.
    static void FreeAudioDecoder(void* instance, int codecType, int codecSubType);
    static void FreeVideoDecoder(void* instance, int codecType, int codecSubType);

    // Keeps the pair's plug-in loaded with no instances. 0 when not inited,
    // for an unknown pair, or when the pair's plug-in is not loaded (Freeze
    // never loads it).
    static int FreezeAudioDecoder(int codecType, int codecSubType);
    static int FreezeVideoDecoder(int codecType, int codecSubType);
    // Clears the mark; an idle plug-in goes at the next Free that brings its
    // count to 0, or at Uninit.
    static void UnfreezeAudioDecoder(int codecType, int codecSubType);
    static void UnfreezeVideoDecoder(int codecType, int codecSubType);

    // Index of the first rule with this type and subtype, -1 when none.
    static int FindAudioDecoderPos(int codecType, int codecSubType);
    static int FindVideoDecoderPos(int codecType, int codecSubType);

    // The manager's state, open to inspection: hold s_Lock while reading it
    // and never change it from outside.
    static int s_nInited;
    static CNLock s_Lock;
    static char s_chAudioCodecPath[CODEC_PATH_SIZE];
    static char s_chVideoCodecPath[CODEC_PATH_SIZE];
    static CNDataList m_listLoadedModule;
    static const CodecMappingRuleInfoTag s_stAudioMappingRule[];
    static const CodecMappingRuleInfoTag s_stVideoMappingRule[];
};

// The plug-in file name moved to pointer width in its original place.
static_assert(offsetof(CNCodecManager::CodecMappingRuleInfoTag, nCodecType) == 4);
static_assert(offsetof(CNCodecManager::CodecMappingRuleInfoTag, nCodecSubType) == 8);
static_assert(offsetof(CNCodecManager::CodecMappingRuleInfoTag, pFileName) == 16);
static_assert(sizeof(CNCodecManager::CodecMappingRuleInfoTag) == 24);
static_assert(offsetof(CNCodecManager::LoadedModuleInfoTag, hModule) == 8);
static_assert(offsetof(CNCodecManager::LoadedModuleInfoTag, pfnCreateInstance) == 16);
static_assert(offsetof(CNCodecManager::LoadedModuleInfoTag, pfnDestroyInstance) == 24);
static_assert(sizeof(CNCodecManager::LoadedModuleInfoTag) == 32);
