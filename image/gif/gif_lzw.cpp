// GIF LZW decoding and encoding.
//
// Decoding keeps no separate string store: every table entry is a run of the
// indices already written to the output, because a new entry is always the
// previous code's string followed by the first index of the current one, and
// those lie back to back in the output. Emitting a code is then one copy
// from earlier output. The code width grows when the next free code passes
// the current limit; when the table is full at 12 bits the next 12-bit code
// is taken as a clear (the encoders we write for, ours included, put one
// there).
//
// Encoding looks strings up in a direct (prefix, index) table of 16-bit
// codes instead of a hash; a reset clears only the places filled since the
// last one. Rows are as wide as the palette (1 << bits entries), so a frame
// of few colours walks a table small enough to stay in cache (32 colours:
// one cache line per prefix); 256 colours use all 2 MiB.
// The widths follow the same rule as the decoder, and when the table is
// full after the last code a clear goes before the end code, so that the
// decoder above and every other one agree on where the end code lies.
#include "image/gif/gif_lzw.h"

#include <cstring>

#include "ncodecbase/gif_codec.h"
#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/write_bit_stream.h"

namespace ncb::gif {

LzwDecodeResult DecodeLzw(NDataStreamBufferInfoTag* chain, int chainCount, int minCodeSize,
                          uint8_t* out, int64_t capacity) {
    LzwDecodeResult r;
    if (chainCount < 1) {
        r.ranOut = true;
        return r;
    }
    CNReadBitStream bits;
    uint8_t pad[4] = {0, 0, 0, 0};
    bits.Init(0, 0, chain, chainCount, pad, sizeof pad, 8, 8);  // plain, bytes bit-reversed

    const uint16_t* const* cvt = CNGifCodec::s_pGifBitStreamCvtIndex;
    const int clear = 1 << minCodeSize, end = clear + 1;
    int width = minCodeSize + 1;
    int nextFree = clear + 2;
    int prev = -1;  // no code since the last clear
    int64_t prevStart = 0;
    int prevLen = 0;
    uint32_t entryPos[4096];
    uint16_t entryLen[4096];
    int64_t written = 0;

    for (;;) {
        if (bits.GetLeftSize() < width) {
            r.ranOut = true;
            break;
        }
        const int code = cvt[width][bits.GetAndRemoveBitsUint32(width)];
        if (code == clear) {
            width = minCodeSize + 1;
            nextFree = clear + 2;
            prev = -1;
            continue;
        }
        if (code == end) break;
        if (code > nextFree || (code == nextFree && prev < 0) || (prev < 0 && code > end)) break;

        if (written < capacity) {
            const int64_t room = capacity - written;
            const int64_t start = written;
            int len;
            if (code < clear) {
                out[written++] = static_cast<uint8_t>(code);
                len = 1;
            } else if (code < nextFree) {
                len = entryLen[code];
                const int64_t n = len < room ? len : room;
                std::memcpy(out + written, out + entryPos[code], static_cast<size_t>(n));
                written += n;
            } else {  // the string being defined: previous string + its own first index
                len = prevLen + 1;
                const int64_t n = len < room ? len : room;
                std::memcpy(out + written, out + prevStart,
                            static_cast<size_t>(n < prevLen ? n : prevLen));
                if (n > prevLen) out[written + prevLen] = out[prevStart];
                written += n;
            }
            if (prev >= 0) {
                entryPos[nextFree] = static_cast<uint32_t>(prevStart);
                entryLen[nextFree] = static_cast<uint16_t>(prevLen + 1);
            }
            prevStart = start;
            prevLen = len;
        }
        if (prev < 0) {
            // Only a 1-bit code size starts with more codes than its width holds.
            if (clear + 3 > (1 << width)) ++width;
            prev = code;
            continue;
        }
        ++nextFree;
        prev = code;
        if (nextFree >= (1 << width)) {
            if (width < 12) {
                ++width;
            } else {
                if (bits.GetLeftSize() < 12) {
                    r.ranOut = true;
                    break;
                }
                bits.RemoveBits(12);
                width = minCodeSize + 1;
                nextFree = clear + 2;
                prev = -1;
            }
        }
    }
    r.produced = written;
    return r;
}

namespace {

void ResetTable(LzwEncodeTable* table) {
    for (int i = 0; i < table->filledCount; ++i) table->entries[table->filled[i]] = 0xFFFF;
    table->filledCount = 0;
}

}  // namespace

void EncodeLzw(const uint8_t* pixels, int width, const int* rowOrder, int height, int bits,
               LzwEncodeTable* table, CNWriteBitStream* out) {
    const uint16_t* const* cvt = CNGifCodec::s_pGifBitStreamCvtIndex;
    const unsigned int mask = CNGifCodec::s_uInputDataMaskTable[bits];
    const int clear = 1 << bits, end = clear + 1;
    int codeWidth = bits + 1;
    int nextFree = clear + 2;
    auto emit = [&](int code) { out->WriteBitsUint32(cvt[codeWidth][code], codeWidth); };
    auto grow = [&] {
        if (nextFree == (1 << codeWidth) && codeWidth < 12) ++codeWidth;
    };

    ResetTable(table);
    uint16_t* entries = table->entries;
    uint32_t* filled = table->filled;
    emit(clear);
    int prefix = -1;
    for (int i = 0; i < height; ++i) {
        const uint8_t* row = pixels + static_cast<ptrdiff_t>(rowOrder[i]) * width;
        int x = 0;
        if (prefix < 0) prefix = static_cast<int>(row[x++] & mask);
        for (; x < width; ++x) {
            const int p = static_cast<int>(row[x] & mask);
            const uint32_t place = static_cast<uint32_t>(prefix << bits) + static_cast<uint32_t>(p);
            if (entries[place] != 0xFFFF) {
                prefix = entries[place];
                continue;
            }
            emit(prefix);
            grow();
            if (nextFree < 4096) {
                entries[place] = static_cast<uint16_t>(nextFree++);
                filled[table->filledCount++] = place;
            } else {
                emit(clear);
                ResetTable(table);
                codeWidth = bits + 1;
                nextFree = clear + 2;
            }
            prefix = p;
        }
    }
    emit(prefix);
    grow();
    if (nextFree == 4096) {
        emit(clear);
        codeWidth = bits + 1;
    }
    emit(end);
}

void RowOrder(int height, bool interlaced, int* order) {
    if (!interlaced) {
        for (int y = 0; y < height; ++y) order[y] = y;
        return;
    }
    static const int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    int i = 0;
    for (int pass = 0; pass < 4; ++pass)
        for (int y = kStart[pass]; y < height; y += kStep[pass]) order[i++] = y;
}

}  // namespace ncb::gif
