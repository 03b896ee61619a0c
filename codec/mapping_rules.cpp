// The two built-in mapping tables: for every (codec type, codec subtype) pair
// the plug-in file that decodes it. A rule's position is its index, which
// becomes the key of the plug-in's loaded-module record, so rows are never
// reordered or inserted in the middle; several rules may name one file.
//
// The first word is a flag kept for hosts that read the tables; the manager
// never looks at it. Not here: any knowledge of what a subtype means.
#include <iterator>

#include "ncodecbase/codec_manager.h"

namespace {

constexpr const char* kMpeg = "NAudioDecoderMpeg.dll";
constexpr const char* kAac = "NAudioDecoderAAC.dll";
constexpr const char* kAc3 = "NAudioDecoderAC3.dll";
constexpr const char* kDts = "NAudioDecoderDTS.dll";
constexpr const char* kVorbis = "NAudioDecoderVorbis.dll";
constexpr const char* kRealAudio = "NAudioDecoderReal.dll";
constexpr const char* kWma = "NAudioDecoderWMA.dll";
constexpr const char* kWmaDmo = "NAudioDecoderWMA_DMO.dll";
constexpr const char* kAmr = "NAudioDecoderAMR.dll";
constexpr const char* kApe = "NAudioDecoderAPE.dll";
constexpr const char* kFlac = "NAudioDecoderFlac.dll";
constexpr const char* kAudioCommon = "NAudioDecoderCommon.dll";

constexpr const char* kMpeg12 = "NVideoDecoderMpeg12.dll";
constexpr const char* kMpeg4 = "NVideoDecoderMpeg4.dll";
constexpr const char* k263 = "NVideoDecoder263.dll";
constexpr const char* k264 = "NVideoDecoder264.dll";
constexpr const char* kRealVideo = "NVideoDecoderReal.dll";
constexpr const char* kVc1 = "NVideoDecoderVC1.dll";
constexpr const char* kWmv = "NVideoDecoderWMV.dll";
constexpr const char* kWmvDmo = "NVideoDecoderWMV_DMO.dll";
constexpr const char* kVideoCommon = "NVideoDecoderCommon.dll";

}  // namespace

// One line per family, in table order; the comment gives the first index.
// clang-format off
const CNCodecManager::CodecMappingRuleInfoTag CNCodecManager::s_stAudioMappingRule[] = {
    /*  0 */ {1, 0x100, -1, kMpeg}, {1, 0x100, 0x101, kMpeg}, {1, 0x100, 0x102, kMpeg},
             {1, 0x100, 0x103, kMpeg}, {1, 0x100, 0x104, kMpeg}, {1, 0x100, 0x105, kMpeg},
             {1, 0x100, 0x106, kMpeg}, {1, 0x100, 0x107, kMpeg}, {1, 0x100, 0x108, kMpeg},
             {1, 0x100, 0x109, kMpeg},
    /* 10 */ {1, 0x200, -1, kAac}, {1, 0x200, 0x201, kAac}, {1, 0x200, 0x202, kAac},
             {1, 0x200, 0x203, kAac}, {1, 0x200, 0x204, kAac},
    /* 15 */ {1, 0x400, -1, kAc3}, {1, 0x400, 0x401, kAc3}, {1, 0x400, 0x402, kAc3},
             {1, 0x400, 0x403, kAc3},
    /* 19 */ {1, 0x500, -1, kDts}, {1, 0x500, 0x501, kDts}, {1, 0x500, 0x504, kDts},
    /* 22 */ {1, 0x800, -1, kVorbis}, {1, 0x800, 0x801, kVorbis},
    /* 24 */ {1, 0x600, -1, kRealAudio}, {1, 0x600, 0x601, kRealAudio},
    /* 26 */ {1, 0x700, -1, kWma}, {1, 0x700, 0x701, kWma}, {1, 0x700, 0x702, kWma},
    /* 29 */ {0, 0x700, 0x703, kWmaDmo}, {0, 0x700, 0x704, kWmaDmo}, {0, 0x700, 0x705, kWmaDmo},
    /* 32 */ {0, 0x300, -1, kAmr}, {0, 0x300, 0x301, kAmr}, {0, 0x300, 0x302, kAmr},
             {0, 0x300, 0x303, kAmr},
    /* 36 */ {1, 0xA00, -1, kApe}, {1, 0xA00, 0xA01, kApe},
    /* 38 */ {1, 0xB00, -1, kFlac}, {1, 0xB00, 0xB01, kFlac},
    /* 40 */ {1, 0x900, -1, kAudioCommon}, {1, 0x900, 0x902, kAudioCommon},
    /* 42 */ {1, 0, 2, kAudioCommon}, {1, 0, 3, kAudioCommon}, {1, 0, -1, kAudioCommon},
             {1, 0, 1, kAudioCommon}, {1, 0, 4, kAudioCommon}, {1, 0, 5, kAudioCommon},
             {1, 0, 6, kAudioCommon}, {1, 0, 7, kAudioCommon}, {1, 0, 8, kAudioCommon},
             {1, 0, 0xA, kAudioCommon}, {1, 0, 9, kAudioCommon}, {1, 0, 0xF, kAudioCommon},
    /* 54 */ {0, -1, -1, nullptr},
};

const CNCodecManager::CodecMappingRuleInfoTag CNCodecManager::s_stVideoMappingRule[] = {
    /*  0 */ {1, 0x1000, -1, kMpeg12}, {1, 0x1000, 0x1001, kMpeg12},
    /*  2 */ {1, 0x1100, -1, kMpeg12}, {1, 0x1100, 0x1101, kMpeg12},
    /*  4 */ {1, 0x1200, -1, kMpeg4}, {1, 0x1200, 0x1201, kMpeg4}, {1, 0x1200, 0x1202, kMpeg4},
    /*  7 */ {1, 0x1400, -1, k263}, {1, 0x1400, 0x1401, k263}, {1, 0x1400, 0x1402, k263},
             {1, 0x1400, 0x1403, k263}, {1, 0x1400, 0x1404, k263}, {1, 0x1400, 0x1405, k263},
             {1, 0x1400, 0x1406, k263}, {1, 0x1400, 0x1407, k263},
    /* 15 */ {1, 0x1500, -1, k264}, {1, 0x1500, 0x1501, k264}, {1, 0x1500, 0x1502, k264},
             {1, 0x1500, 0x1503, k264}, {1, 0x1500, 0x1504, k264},
    /* 20 */ {1, 0x1600, -1, kRealVideo}, {1, 0x1600, 0x1601, kRealVideo},
             {1, 0x1600, 0x1602, kRealVideo},
    /* 23 */ {1, 0x1700, -1, kVc1}, {1, 0x1700, 0x1701, kVc1}, {1, 0x1700, 0x1702, kVc1},
             {1, 0x1700, 0x1704, kVc1},
    /* 27 */ {1, 0x1800, -1, kWmv}, {1, 0x1800, 0x1801, kWmv}, {1, 0x1800, 0x1802, kWmv},
             {1, 0x1800, 0x1803, kWmv}, {1, 0x1800, 0x1804, kWmv}, {1, 0x1800, 0x1805, kWmv},
    /* 33 */ {0, 0x1800, 0x1806, kWmvDmo}, {0, 0x1800, 0x1807, kWmvDmo},
             {0, 0x1800, 0x1808, kWmvDmo}, {0, 0x1800, 0x1809, kWmvDmo},
             {0, 0x1800, 0x180A, kWmvDmo},
    /* 38 */ {1, 0x1D00, -1, kVideoCommon}, {1, 0x1D00, 0x1D01, kVideoCommon},
             {1, 0x1D00, 0x1D02, kVideoCommon},
    /* 41 */ {1, 0x200, -1, kVideoCommon}, {1, 0x200, 0x201, kVideoCommon},
             {1, 0x200, 0x203, kVideoCommon}, {1, 0x200, 0x204, kVideoCommon},
             {1, 0x200, 0x205, kVideoCommon},
    /* 46 */ {1, 0x300, -1, kVideoCommon}, {1, 0x300, 0x301, kVideoCommon},
             {1, 0x300, 0x302, kVideoCommon},
    /* 49 */ {1, 0x500, -1, kVideoCommon}, {1, 0x500, 0x501, kVideoCommon},
             {1, 0x500, 0x502, kVideoCommon},
    /* 52 */ {1, 0x100, -1, kVideoCommon}, {1, 0x100, 0x100, kVideoCommon},
             {1, 0x100, 0x101, kVideoCommon}, {1, 0x100, 0x102, kVideoCommon},
             {1, 0x100, 0x103, kVideoCommon}, {1, 0x100, 0x104, kVideoCommon},
             {1, 0x100, 0x105, kVideoCommon}, {1, 0x100, 0x106, kVideoCommon},
             {1, 0x100, 0x107, kVideoCommon}, {1, 0x100, 0x108, kVideoCommon},
             {1, 0x100, 0x109, kVideoCommon}, {1, 0x100, 0x10B, kVideoCommon},
             {1, 0x100, 0x10C, kVideoCommon},
    /* 65 */ {1, 0, -1, kVideoCommon}, {1, 0, 0, kVideoCommon}, {1, 0, 1, kVideoCommon},
             {1, 0, 2, kVideoCommon}, {1, 0, 3, kVideoCommon}, {1, 0, 4, kVideoCommon},
             {1, 0, 6, kVideoCommon}, {1, 0, 7, kVideoCommon}, {1, 0, 8, kVideoCommon},
             {1, 0, 9, kVideoCommon}, {1, 0, 0xA, kVideoCommon}, {1, 0, 0xB, kVideoCommon},
             {1, 0, 0xC, kVideoCommon}, {1, 0, 0xD, kVideoCommon}, {1, 0, 0x11, kVideoCommon},
             {1, 0, 0x12, kVideoCommon}, {1, 0, 0x13, kVideoCommon}, {1, 0, 0x14, kVideoCommon},
             {1, 0, 0x15, kVideoCommon},
    /* 84 */ {0, -1, -1, nullptr},
};
// clang-format on

static_assert(std::size(CNCodecManager::s_stAudioMappingRule) == 55);
static_assert(std::size(CNCodecManager::s_stVideoMappingRule) == 85);
