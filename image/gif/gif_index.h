// The index of a GIF file: what CNGifCodec::Decode learns from one walk over
// the blocks, without decompressing anything. Shared with the command-line
// tool, which describes files from the same walk.
#pragma once

#include <cstdint>

class CNCodecBuffer;

namespace ncb::gif {

// One image block and the graphic control extension before it.
struct FrameRecord {
    int32_t width, height, left, top;
    int32_t interlaced;
    uint32_t startTime;         // ms: the sum of the earlier frames' durations
    int32_t duration;           // ms
    int32_t transparentIndex;   // -1 for none
    int32_t restoreBackground;  // disposal method 2
    int32_t disposal;           // the method as written (0 without an extension)
    int32_t hasControl;         // a graphic control extension came first
    int32_t localColourCount;   // 0: the global palette serves
    int32_t localPalettePos;    // file offset of the local table's RGB triples
    int32_t lzwMinCodeSize;
    int32_t subBlockCount;
    int32_t firstSubBlock;  // into the sub-block table
};

struct SubBlock {
    int32_t position;  // file offset of the first data byte (after the length byte)
    int32_t length;
};

struct FileIndex {
    int width = 0;
    int height = 0;
    int backgroundIndex = 0;
    int aspect = 0;
    int globalColourCount = 0;
    uint32_t globalPalette[256] = {};  // 0x00RRGGBB
    int frameCount = 0;
    int subBlockCount = 0;
    int loopCount = -1;  // NETSCAPE2.0 loop count, -1 when absent
    int comments = 0;
    CNCodecBuffer* frames = nullptr;     // FrameRecord[frameCount]
    CNCodecBuffer* subBlocks = nullptr;  // SubBlock[subBlockCount]
    const char* failure = nullptr;       // why the walk stopped, for people

    FileIndex() = default;
    FileIndex(const FileIndex&) = delete;
    FileIndex& operator=(const FileIndex&) = delete;
    ~FileIndex();
    // Hands the two tables over (the caller releases them).
    void Detach();
    const FrameRecord* Frame(int i) const;
    const SubBlock* SubBlocks(const FrameRecord& f) const;
};

// Walks the file. False (with `failure` set, tables released) on any
// structural error, a read past the end, a screen over maxCanvasBytes or
// when memory runs out.
bool IndexFile(const uint8_t* data, int size, int defaultDuration, int64_t maxCanvasBytes,
               FileIndex* out);

// Palette entries from RGB triples: 0x00RRGGBB, alpha byte 0.
void ReadPalette(const uint8_t* rgb, int count, uint32_t* palette);

}  // namespace ncb::gif
