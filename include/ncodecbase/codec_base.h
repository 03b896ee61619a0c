// The descriptors that travel with every media buffer: VideoFormatInfoTag
// (26 words) for pictures and AudioFormatInfoTag (20 words) for sound, and
// the codes and flag bits they use.
//
// Both are flat blocks of signed 32-bit words, always copied whole and kept by
// value; they own nothing (the bytes belong to the CNCodecBuffer they describe).
//
// The codes are namespace-scope constants rather than members so that host
// code can write VIDEO_FORMAT_YUV420 as it always has, and switch statements
// and array sizes can use them; they are `inline constexpr`, so they take no
// storage and export no symbols.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ncodecbase/export.h"

// Video families (nCodecType).
inline constexpr int VIDEO_TYPE_YUV = 0;
inline constexpr int VIDEO_TYPE_RGB = 256;
inline constexpr int VIDEO_TYPE_JPEG = 512;
inline constexpr int VIDEO_TYPE_GIF = 768;
inline constexpr int VIDEO_TYPE_PNG = 1280;

// Video format codes (nCodecSubType).
inline constexpr int VIDEO_FORMAT_Y800 = 1;
inline constexpr int VIDEO_FORMAT_YUV420 = 2;
inline constexpr int VIDEO_FORMAT_YUV422 = 3;
inline constexpr int VIDEO_FORMAT_YUV444 = 4;
inline constexpr int VIDEO_FORMAT_YUV440 = 5;  // only inside the JPEG decoder
inline constexpr int VIDEO_FORMAT_IYUV = 6;
inline constexpr int VIDEO_FORMAT_I420 = 7;  // same layout as IYUV; producers write 6
inline constexpr int VIDEO_FORMAT_YV12 = 8;
inline constexpr int VIDEO_FORMAT_NV12 = 9;
inline constexpr int VIDEO_FORMAT_YUY2 = 10;
inline constexpr int VIDEO_FORMAT_YVYU = 11;
inline constexpr int VIDEO_FORMAT_UYVY = 12;
inline constexpr int VIDEO_FORMAT_VYUY = 13;
inline constexpr int VIDEO_FORMAT_AYUV = 14;
inline constexpr int VIDEO_FORMAT_AI44 = 15;
inline constexpr int VIDEO_FORMAT_IA44 = 16;
inline constexpr int VIDEO_FORMAT_RGB555 = 257;
inline constexpr int VIDEO_FORMAT_RGB565 = 258;
inline constexpr int VIDEO_FORMAT_RGB24 = 259;
inline constexpr int VIDEO_FORMAT_RGB32 = 260;
inline constexpr int VIDEO_FORMAT_JPEG = 513;
inline constexpr int VIDEO_FORMAT_GIF = 769;
inline constexpr int VIDEO_FORMAT_PNG = 1281;

// nFormatFlags: planar YUV codes 2-4 store V before U; RGB codes store rows
// bottom-up.
inline constexpr int FORMAT_FLAG_SWAPPED = 0x40;

// Audio: the uncompressed family and linear PCM inside it.
inline constexpr int AUDIO_TYPE_PCM = 0;
inline constexpr int AUDIO_FORMAT_PCM = 1;
// nFormatFlags: two 16-bit channels with speakers are played as one
// interleaved stereo stream.
inline constexpr int AUDIO_FLAG_JOINT_STEREO = 0x20;
// CNCodecBuffer flag of an audio buffer whose samples are interleaved frame by
// frame (clear: planar, one channel after the other).
inline constexpr int AUDIO_BUFFER_FLAG_INTERLEAVED = 0x100;
// Speaker-mask bits the audio render plays (front L/R/C, LFE, back L/R) and
// the 18 positions the speaker converter counts.
inline constexpr int AUDIO_SPEAKER_MASK_RENDER = 0x3F;
inline constexpr int AUDIO_SPEAKER_MASK_ALL = 0x3FFFF;

class NCB_API CNCodecBase {
  public:
    struct VideoFormatInfoTag {
        int32_t nStructSize;  // 104
        int32_t nCodecType;
        int32_t nCodecSubType;
        int32_t nReserved3;
        int32_t nReserved4;
        int32_t nFormatFlags;
        int32_t nWidth;
        int32_t nHeight;
        int32_t nRectLeft;  // processing rectangle: left, right, top, bottom
        int32_t nRectRight;
        int32_t nRectTop;
        int32_t nRectBottom;
        int32_t nPictureWidth;
        int32_t nPictureHeight;
        int32_t nReserved14;
        int32_t nReserved15;
        int32_t nDisplayWidth;
        int32_t nDisplayHeight;
        int32_t nPadLeft;  // plane 0 padding: bytes per row side, rows
        int32_t nPadRight;
        int32_t nPadTop;
        int32_t nPadBottom;
        int32_t nChromaPadLeft;  // the same for each chroma plane
        int32_t nChromaPadRight;
        int32_t nChromaPadTop;
        int32_t nChromaPadBottom;
    };

    struct AudioFormatInfoTag {
        int32_t nStructSize;
        int32_t nCodecType;
        int32_t nCodecSubType;
        int32_t nReserved3;
        int32_t nReserved4;
        int32_t nFormatFlags;
        int32_t nChannels;
        int32_t nSpeakerInfo;  // channel-mask bits of the first channels
        int32_t nSampleRate;
        int32_t nBitsPerSample;  // 8 (signed), 16 or 24
        int32_t nBitsPerSampleEx;
        int32_t nReserved11;
        int32_t nReserved12;
        int32_t nReserved13;
        int32_t nReserved14;
        int32_t nReserved15;
        int32_t nReserved16;
        int32_t nReserved17;
        int32_t nReserved18;
        int32_t nReserved19;
    };
};

static_assert(sizeof(CNCodecBase::VideoFormatInfoTag) == 104);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nCodecSubType) == 8);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nFormatFlags) == 20);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nWidth) == 24);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nRectLeft) == 32);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nRectBottom) == 44);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nPictureWidth) == 48);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nDisplayWidth) == 64);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nPadLeft) == 72);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nChromaPadLeft) == 88);
static_assert(offsetof(CNCodecBase::VideoFormatInfoTag, nChromaPadBottom) == 100);

static_assert(sizeof(CNCodecBase::AudioFormatInfoTag) == 80);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nCodecSubType) == 8);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nFormatFlags) == 20);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nChannels) == 24);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nSpeakerInfo) == 28);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nSampleRate) == 32);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nBitsPerSample) == 36);
static_assert(offsetof(CNCodecBase::AudioFormatInfoTag, nBitsPerSampleEx) == 40);
