// The JPEG Huffman table cache: decode tables for DHT tables, packed as
// records into a caller-owned CNCodecBuffer so that a motion-JPEG stream that
// repeats its DHT segments builds each table once. Records are found again by
// class, counts and symbols; callers trim the cache with the Huffman...
// functions, using the hit counts the decoder raises per scan.
//
// A record holds the table in the bit reader's look-up format: DC tables
// with 8-bit entries and a second level for codes over 8 bits, AC tables as
// one level of 2^L 16-bit entries. The decoder itself reads symbols through
// faster tables it derives from the same counts and symbols; these records
// are what the plain reader walk and the caller see.
//
// Every function reads the cache through the buffer's accessors and treats
// its contents as untrusted: a record that does not fit stops the walk.
#include "image/jpeg/jpeg_huffman_cache.h"

#include <climits>
#include <cstring>
#include <vector>

#include "ncodecbase/codec_buffer.h"
#include "platform/kernel/heap.h"

namespace ncb::jpeg {

const HuffmanRecord* RecordAt(const uint8_t* data, int size, int offset) {
    if (!data || offset < 0 || size - offset < static_cast<int>(sizeof(HuffmanRecord)))
        return nullptr;
    if (offset % 4) return nullptr;
    const auto* r = reinterpret_cast<const HuffmanRecord*>(data + offset);
    const int64_t recSize = r->nSize;
    if (recSize < static_cast<int64_t>(sizeof(HuffmanRecord)) || recSize % 4 ||
        recSize > size - offset)
        return nullptr;
    if (r->nSymbolCount < 0 || r->nSymbolCount > 256 ||
        sizeof(HuffmanRecord) + r->nSymbolCount > static_cast<uint64_t>(recSize))
        return nullptr;
    if (r->nTablePos < 0 || r->nTablePos > recSize || r->nSubTablePos < 0 ||
        r->nSubTablePos > recSize)
        return nullptr;
    return r;
}

}  // namespace ncb::jpeg

namespace {

using ncb::jpeg::HuffmanRecord;
using ncb::jpeg::RecordAt;

int RoundUp4(int n) { return (n + 3) & ~3; }

struct Code {
    int length;
    int code;
};

// Canonical codes of ITU-T T.81 Annex C; false when some length holds more
// codes than fit.
bool GenerateCodes(const unsigned char* counts, std::vector<Code>* codes) {
    int code = 0;
    for (int len = 1; len <= 16; ++len) {
        for (int i = 0; i < counts[len - 1]; ++i) {
            if (code >= (1 << len)) return false;
            codes->push_back({len, code});
            ++code;
        }
        code <<= 1;
    }
    return true;
}

int SmallestBitsFor(int value, bool strictlyBelow) {
    int bits = 1;
    while (strictlyBelow ? value >= (1 << bits) : (1 << bits) < value) ++bits;
    return bits;
}

// Builds the record for one table into `out` (resized to the record size).
bool BuildRecord(const unsigned char* counts, const unsigned char* symbols, int symbolCount,
                 int tableClass, std::vector<uint8_t>* out) {
    std::vector<Code> codes;
    codes.reserve(static_cast<size_t>(symbolCount));
    if (!GenerateCodes(counts, &codes)) return false;

    const int entryBits = tableClass == 0 ? 8 : 16;
    int longest = 0;
    for (const Code& c : codes) longest = c.length;
    // A table without codes still gets a one-bit level that marks every
    // pattern invalid.
    const int peek = longest > 0 ? longest : 1;
    const int w0 = tableClass == 0 ? (peek < 8 ? peek : 8) : peek;
    const int b = SmallestBitsFor(w0, false);
    const int m = SmallestBitsFor(symbolCount, true);
    if (b + m + 1 > entryBits) return false;
    const int levels = (peek + w0 - 1) / w0;
    const int w1 = peek - w0;

    // Sub-tables, one per distinct first-level prefix of the long codes.
    std::vector<int> subIndexOfPrefix(static_cast<size_t>(1) << w0, 0);
    int subTables = 0;
    for (const Code& c : codes) {
        if (c.length <= w0) continue;
        const int prefix = c.code >> (c.length - w0);
        if (!subIndexOfPrefix[prefix]) subIndexOfPrefix[prefix] = ++subTables;
    }
    const int level0Entries = 1 << w0;
    const int subEntries = levels > 1 ? 1 << w1 : 0;
    const int entries = level0Entries + subTables * subEntries;

    const int symbolsPos = static_cast<int>(sizeof(HuffmanRecord));
    const int subTablePos = symbolsPos + RoundUp4(symbolCount);
    const int tablePos = subTablePos + 4 * (subTables + 1);
    const int recordSize = tablePos + RoundUp4(entries * entryBits / 8);
    out->assign(static_cast<size_t>(recordSize), 0);

    HuffmanRecord head{};
    head.nSize = recordSize;
    head.nEntryBits = entryBits;
    head.nPeekBits = peek;
    head.nLevels = levels;
    head.nShifts[0] = peek - w0;
    head.uMasks[0] = static_cast<uint32_t>(level0Entries - 1);
    head.nShifts[1] = 0;
    head.uMasks[1] = levels > 1 ? static_cast<uint32_t>(subEntries - 1) : 0;
    head.nDataShift = b;
    head.uLenMask = (1u << b) - 1;
    head.nClass = tableClass;
    head.nSymbolCount = symbolCount;
    head.nSubTablePos = subTablePos;
    head.nTablePos = tablePos;
    std::memcpy(head.uCodeCounts, counts, 16);
    uint8_t* base = out->data();
    std::memcpy(base, &head, sizeof head);
    if (symbolCount > 0) std::memcpy(base + symbolsPos, symbols, static_cast<size_t>(symbolCount));

    std::vector<int> starts(static_cast<size_t>(subTables) + 1, 0);
    for (int k = 1; k <= subTables; ++k) starts[k] = level0Entries + (k - 1) * subEntries;
    std::memcpy(base + subTablePos, starts.data(), starts.size() * 4);

    std::vector<int> table(static_cast<size_t>(entries));
    for (int i = 0; i < entries; ++i) {
        const int width = i < level0Entries ? w0 : w1;
        table[i] = (symbolCount << b) + (width - 1);
    }
    for (int i = 0; i < static_cast<int>(codes.size()); ++i) {
        const Code& c = codes[i];
        if (c.length <= w0) {
            const int first = c.code << (w0 - c.length);
            for (int j = 0; j < (1 << (w0 - c.length)); ++j)
                table[first + j] = (i << b) + (c.length - 1);
            continue;
        }
        const int prefix = c.code >> (c.length - w0);
        const int k = subIndexOfPrefix[prefix];
        table[prefix] = static_cast<int>(static_cast<unsigned>(-k) << b) + (w0 - 1);
        const int rest = c.length - w0;
        const int first = starts[k] + ((c.code & ((1 << rest) - 1)) << (w1 - rest));
        for (int j = 0; j < (1 << (w1 - rest)); ++j) table[first + j] = (i << b) + (rest - 1);
    }
    for (int i = 0; i < entries; ++i) {
        if (entryBits == 8)
            base[tablePos + i] = static_cast<uint8_t>(table[i]);
        else {
            const auto v = static_cast<uint16_t>(table[i]);
            std::memcpy(base + tablePos + 2 * i, &v, 2);
        }
    }
    return true;
}

bool SameTable(const HuffmanRecord* r, const unsigned char* counts, const unsigned char* symbols,
               int symbolCount, int tableClass) {
    return r->nClass == tableClass && r->nSymbolCount == symbolCount &&
           std::memcmp(r->uCodeCounts, counts, 16) == 0 &&
           (symbolCount == 0 || std::memcmp(ncb::jpeg::RecordSymbols(r), symbols,
                                            static_cast<size_t>(symbolCount)) == 0);
}

// Visits every readable record; stops at the first one that does not fit.
template <typename Visit>
void ForEachRecord(CNCodecBuffer* cache, Visit visit) {
    auto* data = static_cast<uint8_t*>(cache->GetAddress());
    const int size = cache->GetDataSize();
    int offset = 0;
    while (const HuffmanRecord* r = RecordAt(data, size, offset)) {
        if (!visit(offset, const_cast<HuffmanRecord*>(r))) return;
        offset += r->nSize;
    }
}

void RaiseDefault(const unsigned char* counts, const unsigned char* symbols, int tableClass,
                  int slot, int* defined, int* offsets, CNCodecBuffer* cache) {
    int sum = 0;
    for (int i = 0; i < 16; ++i) sum += counts[i];
    const int offset = CNJpegCodec::DecodeRaiseHuffmanTable(
        const_cast<unsigned char*>(counts), const_cast<unsigned char*>(symbols), sum,
        static_cast<unsigned char>(tableClass), cache);
    defined[slot] = offset >= 0;
    offsets[slot] = offset;
}

}  // namespace

int CNJpegCodec::DecodeRaiseHuffmanTable(unsigned char* codeCounts, unsigned char* symbols,
                                         int symbolCount, unsigned char tableClass,
                                         CNCodecBuffer* cache) {
    if (!cache || !codeCounts || symbolCount < 0 || symbolCount > 256 || tableClass > 1 ||
        (symbolCount > 0 && !symbols))
        return -1;
    int found = -1;
    ForEachRecord(cache, [&](int offset, HuffmanRecord* r) {
        if (!SameTable(r, codeCounts, symbols, symbolCount, tableClass)) return true;
        found = offset;
        return false;
    });
    if (found >= 0) return found;

    std::vector<uint8_t> record;
    try {
        if (!BuildRecord(codeCounts, symbols, symbolCount, tableClass, &record)) return -1;
    } catch (...) {
        return -1;
    }
    const int oldSize = cache->GetDataSize();
    if (oldSize > INT_MAX - static_cast<int>(record.size())) return -1;
    const int newSize = oldSize + static_cast<int>(record.size());
    auto* data = static_cast<uint8_t*>(cache->Allocate(newSize, 4, 1));
    if (!data) return -1;
    std::memcpy(data + oldSize, record.data(), record.size());
    cache->SetDataSize(newSize);
    return oldSize;
}

void CNJpegCodec::DecodeRaiseDefaultHuffmanTable(int* dcDefined, int* dcOffset, int* acDefined,
                                                 int* acOffset, CNCodecBuffer* cache) {
    for (int i = 0; i < 4; ++i)
        if (dcDefined[i] || acDefined[i]) return;
    RaiseDefault(s_uDefDcHuffmanCodeNumY.data(), s_uDefDcHuffmanCodeValueY.data(), 0, 0, dcDefined,
                 dcOffset, cache);
    RaiseDefault(s_uDefDcHuffmanCodeNumUV.data(), s_uDefDcHuffmanCodeValueUV.data(), 0, 1,
                 dcDefined, dcOffset, cache);
    RaiseDefault(s_uDefAcHuffmanCodeNumY.data(), s_uDefAcHuffmanCodeValueY.data(), 1, 0, acDefined,
                 acOffset, cache);
    RaiseDefault(s_uDefAcHuffmanCodeNumUV.data(), s_uDefAcHuffmanCodeValueUV.data(), 1, 1,
                 acDefined, acOffset, cache);
}

int CNJpegCodec::HuffmanGetCachedTableNumber(CNCodecBuffer* cache) {
    if (!cache) return 0;
    int n = 0;
    ForEachRecord(cache, [&](int, HuffmanRecord*) { return ++n, true; });
    return n;
}

int CNJpegCodec::HuffmanGetCachedTableInfo(int offset, CNCodecBuffer* cache, int* size,
                                           int* hitCount) {
    if (!cache) return 0;
    const auto* data = static_cast<const uint8_t*>(cache->GetAddress());
    const int total = cache->GetDataSize();
    const HuffmanRecord* r = RecordAt(data, total, offset);
    if (!r) return 0;
    if (size) *size = r->nSize;
    if (hitCount) *hitCount = r->nHitCount;
    const int next = offset + r->nSize;
    return RecordAt(data, total, next) ? next : 0;
}

int CNJpegCodec::HuffmanRemoveCachedTableInfo(int offset, CNCodecBuffer* cache) {
    if (!cache) return 1;
    auto* data = static_cast<uint8_t*>(cache->GetAddress());
    const int total = cache->GetDataSize();
    const HuffmanRecord* r = RecordAt(data, total, offset);
    if (!r) return 1;
    const int size = r->nSize;
    if (offset + size < total)
        std::memmove(data + offset, data + offset + size,
                     static_cast<size_t>(total - offset - size));
    cache->SetDataSize(offset + size < total ? total - size : offset);
    return 1;
}

int CNJpegCodec::HuffmanResetHitCount(CNCodecBuffer* cache) {
    if (!cache) return 1;
    ForEachRecord(cache, [](int, HuffmanRecord* r) { return r->nHitCount = 0, true; });
    return 1;
}

int CNJpegCodec::HuffmanAutoRemoveTable(int maxTables, CNCodecBuffer* cache, int byHitCount) {
    if (!cache) return 1;
    if (maxTables < 0) maxTables = 0;
    while (HuffmanGetCachedTableNumber(cache) > maxTables) {
        int victim = -1;
        int64_t best = 0;
        ForEachRecord(cache, [&](int offset, HuffmanRecord* r) {
            const int64_t key = byHitCount == 1 ? r->nHitCount : r->nSize;
            if (victim < 0 || key < best) {
                victim = offset;
                best = key;
            }
            return true;
        });
        if (victim < 0) break;
        HuffmanRemoveCachedTableInfo(victim, cache);
    }
    return 1;
}
