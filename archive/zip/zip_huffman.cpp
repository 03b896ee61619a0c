// CNZipDecoder::CreateHuffmanTable: turns deflate code lengths into a look-up
// table that CNReadBitStream's Huffman functions decode.
//
// Codes are the canonical ones of RFC 1951, read most significant bit first
// (the inflater bit-reverses every input byte, so deflate's codes arrive in
// the order they were sent). The first level is indexed by b = min(peekBits,
// longest length) bits; longer codes link to sub-tables of 2^(L - b) entries
// indexed by the rest of an L-bit peek, so every sub-table has the one size a
// single shift and mask describe. More than two levels are refused: with the
// 12-bit first level the inflater asks for, deflate's 15-bit codes need two.
//
// Entry layout: (value << dataShift) | (bits of this level - 1), where the
// length field is just wide enough for b - 1 and the value field holds the
// symbols, the links (negative) and the invalid marker (the largest positive
// value, which no symbol reaches). 8-bit entries when that fits, else 16.
// Incomplete codes are accepted; the positions no code reaches hold the
// invalid marker, which the look-up reports as an error.
#include <cstring>

#include "ncodecbase/zip_decoder.h"

namespace {

constexpr int kMaxLength = 19;

int BitsFor(int value) {
    int bits = 1;
    while ((1 << bits) <= value) ++bits;
    return bits;
}

// Canonical first code per length; false when the lengths over-subscribe.
bool AssignFirstCodes(const int* lengthCount, int maxLength, int* nextCode) {
    int code = 0;
    for (int bits = 1; bits <= maxLength; ++bits) {
        code = (code + lengthCount[bits - 1]) << 1;
        nextCode[bits] = code;
        if (code + lengthCount[bits] > (1 << bits)) return false;
    }
    return true;
}

struct Layout {
    int firstBits;   // b
    int secondBits;  // L - b, 0 for one level
    int links;
    int dataShift;
    int entryBits;
    int invalid;
};

template <typename Entry>
void Fill(const unsigned char* lengths, int count, int maxLength, const Layout& lay,
          const int* firstCode, Entry* table, int* subTableOffsets) {
    const int b = lay.firstBits;
    const int b1 = lay.secondBits;
    const int firstSize = 1 << b;
    const int subSize = 1 << b1;
    auto entry = [&](int value, int bits) {
        return static_cast<Entry>(static_cast<int>(static_cast<unsigned>(value) << lay.dataShift) |
                                  (bits - 1));
    };
    const int total = firstSize + lay.links * subSize;
    for (int i = 0; i < firstSize; ++i) table[i] = entry(lay.invalid, b);
    for (int i = firstSize; i < total; ++i) table[i] = entry(lay.invalid, b1 > 0 ? b1 : 1);

    int nextCode[kMaxLength + 1];
    std::memcpy(nextCode, firstCode, sizeof(nextCode));
    int links = 0;
    subTableOffsets[0] = 0;
    for (int s = 0; s < count; ++s) {
        const int len = lengths[s];
        if (len == 0) continue;
        const int code = nextCode[len]++;
        if (len <= b) {
            const int base = code << (b - len);
            for (int j = 0; j < (1 << (b - len)); ++j) table[base + j] = entry(s, len);
            continue;
        }
        const int prefix = code >> (len - b);
        int value = table[prefix] >> lay.dataShift;
        if (value >= 0) {  // first long code under this prefix: open its sub-table
            ++links;
            subTableOffsets[links] = firstSize + (links - 1) * subSize;
            table[prefix] = entry(-links, b);
            value = -links;
        }
        const int rest = len - b;
        Entry* sub = table + subTableOffsets[-value];
        const int base = (code & ((1 << rest) - 1)) << (b1 - rest);
        for (int j = 0; j < (1 << (b1 - rest)); ++j) sub[base + j] = entry(s, rest);
    }
    (void)maxLength;
}

}  // namespace

int CNZipDecoder::CreateHuffmanTable(unsigned char* lengths, int count, int peekBits,
                                     CNCodecBuffer* table, int* lookupBits, int* entryBits,
                                     int* levels, int* shifts, unsigned int* masks,
                                     int* subTableOffsets, int* dataShift, unsigned int* lenMask,
                                     int* invalidValue) {
    if (!lengths || count < 1 || count > 32768 || peekBits < 1 || !table || !lookupBits ||
        !entryBits || !levels || !shifts || !masks || !subTableOffsets || !dataShift || !lenMask ||
        !invalidValue)
        return 0;

    int lengthCount[kMaxLength + 1] = {};
    int maxLength = 0;
    for (int s = 0; s < count; ++s) {
        if (lengths[s] > kMaxLength) return 0;
        ++lengthCount[lengths[s]];
        if (lengths[s] > maxLength) maxLength = lengths[s];
    }
    if (maxLength == 0) return 0;
    lengthCount[0] = 0;
    int firstCode[kMaxLength + 1] = {};
    if (!AssignFirstCodes(lengthCount, maxLength, firstCode)) return 0;

    Layout lay{};
    lay.firstBits = peekBits < maxLength ? peekBits : maxLength;
    const int nLevels = (maxLength + lay.firstBits - 1) / lay.firstBits;
    if (nLevels > 2) return 0;
    lay.secondBits = maxLength - lay.firstBits;

    // Links: one per distinct first-level prefix of the long codes.
    {
        int nextCode[kMaxLength + 1];
        std::memcpy(nextCode, firstCode, sizeof(nextCode));
        int lastPrefix = -1;
        for (int len = lay.firstBits + 1; len <= maxLength; ++len) {
            for (int s = 0; s < count; ++s) {
                if (lengths[s] != len) continue;
                // Canonical codes grow with (length, symbol), so equal
                // prefixes are adjacent in this order.
                const int prefix = nextCode[len]++ >> (len - lay.firstBits);
                if (prefix != lastPrefix) ++lay.links;
                lastPrefix = prefix;
            }
        }
    }

    const int lenBits = BitsFor(lay.firstBits - 1);
    const int largest = count > lay.links ? count : lay.links;
    const int valueBits = BitsFor(largest) + 1;  // symbols, links and the marker, signed
    if (lenBits + valueBits <= 8) {
        lay.entryBits = 8;
    } else if (lenBits + valueBits <= 16) {
        lay.entryBits = 16;
    } else {
        return 0;
    }
    lay.dataShift = lenBits;
    lay.invalid = ((1 << (lay.entryBits - 1)) - 1) >> lenBits;

    const int entries = (1 << lay.firstBits) + lay.links * (1 << lay.secondBits);
    const int bytes = entries * (lay.entryBits / 8);
    void* memory = table->Allocate(bytes, 2, 0);
    if (!memory) return 0;
    if (lay.entryBits == 8) {
        Fill(lengths, count, maxLength, lay, firstCode, static_cast<signed char*>(memory),
             subTableOffsets);
    } else {
        Fill(lengths, count, maxLength, lay, firstCode, static_cast<short*>(memory),
             subTableOffsets);
    }
    table->SetDataSize(bytes);

    *lookupBits = nLevels == 1 ? lay.firstBits : maxLength;
    *entryBits = lay.entryBits;
    *levels = nLevels;
    shifts[0] = nLevels == 1 ? 0 : lay.secondBits;
    masks[0] = (1u << lay.firstBits) - 1;
    shifts[1] = 0;
    masks[1] = (1u << lay.secondBits) - 1;
    *dataShift = lay.dataShift;
    *lenMask = (1u << lenBits) - 1;
    *invalidValue = lay.invalid;
    return 1;
}
