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
bool GenerateCodes(const unsigned char* counts, Code* codes, int* count) {
    int code = 0, n = 0;
    for (int len = 1; len <= 16; ++len) {
        for (int i = 0; i < counts[len - 1]; ++i) {
            if (code >= (1 << len) || n >= 256) return false;
            codes[n++] = {len, code};
            ++code;
        }
        code <<= 1;
    }
    *count = n;
    return true;
}

int SmallestBitsFor(int value, bool strictlyBelow) {
    int bits = 1;
    while (strictlyBelow ? value >= (1 << bits) : (1 << bits) < value) ++bits;
    return bits;
}

// Everything about a record that follows from its counts, before any byte
// of it is written.
struct RecordPlan {
    Code codes[256];
    int codeCount = 0;
    uint8_t subIndexOfPrefix[256] = {};  // first-level prefix -> sub-table (0: none)
    int subTables = 0;
    int entryBits = 0, peek = 0, w0 = 0, w1 = 0, b = 0, levels = 0;
    int level0Entries = 0, subEntries = 0, entries = 0;
    int subTablePos = 0, tablePos = 0, recordSize = 0;
};

bool PlanRecord(const unsigned char* counts, int symbolCount, int tableClass, RecordPlan* p) {
    if (!GenerateCodes(counts, p->codes, &p->codeCount) || p->codeCount != symbolCount)
        return false;
    p->entryBits = tableClass == 0 ? 8 : 16;
    const int longest = p->codeCount ? p->codes[p->codeCount - 1].length : 0;
    // A table without codes still gets a one-bit level that marks every
    // pattern invalid.
    p->peek = longest > 0 ? longest : 1;
    p->w0 = tableClass == 0 ? (p->peek < 8 ? p->peek : 8) : p->peek;
    p->b = SmallestBitsFor(p->w0, false);
    const int m = SmallestBitsFor(symbolCount, true);
    if (p->b + m + 1 > p->entryBits) return false;
    p->levels = (p->peek + p->w0 - 1) / p->w0;
    p->w1 = p->peek - p->w0;
    for (int i = 0; i < p->codeCount; ++i) {
        const Code& c = p->codes[i];
        if (c.length <= p->w0) continue;  // DC tables only: w0 is 8 here
        const int prefix = c.code >> (c.length - p->w0);
        if (!p->subIndexOfPrefix[prefix])
            p->subIndexOfPrefix[prefix] = static_cast<uint8_t>(++p->subTables);
    }
    p->level0Entries = 1 << p->w0;
    p->subEntries = p->levels > 1 ? 1 << p->w1 : 0;
    p->entries = p->level0Entries + p->subTables * p->subEntries;
    p->subTablePos = static_cast<int>(sizeof(HuffmanRecord)) + RoundUp4(symbolCount);
    p->tablePos = p->subTablePos + 4 * (p->subTables + 1);
    p->recordSize = p->tablePos + RoundUp4(p->entries * p->entryBits / 8);
    return true;
}

template <typename Entry>
void FillEntries(const RecordPlan& p, int symbolCount, Entry* table, const int* starts) {
    const int b = p.b;
    for (int i = 0; i < p.entries; ++i) {
        const int width = i < p.level0Entries ? p.w0 : p.w1;
        table[i] = static_cast<Entry>((symbolCount << b) + (width - 1));
    }
    for (int i = 0; i < p.codeCount; ++i) {
        const Code& c = p.codes[i];
        if (c.length <= p.w0) {
            const int first = c.code << (p.w0 - c.length);
            const auto e = static_cast<Entry>((i << b) + (c.length - 1));
            for (int j = 0; j < (1 << (p.w0 - c.length)); ++j) table[first + j] = e;
            continue;
        }
        const int prefix = c.code >> (c.length - p.w0);
        const int k = p.subIndexOfPrefix[prefix];
        table[prefix] =
            static_cast<Entry>(static_cast<int>(static_cast<unsigned>(-k) << b) + (p.w0 - 1));
        const int rest = c.length - p.w0;
        const int first = starts[k] + ((c.code & ((1 << rest) - 1)) << (p.w1 - rest));
        const auto e = static_cast<Entry>((i << b) + (rest - 1));
        for (int j = 0; j < (1 << (p.w1 - rest)); ++j) table[first + j] = e;
    }
}

// Writes the planned record at `base` (4-byte aligned, recordSize bytes).
void WriteRecord(const RecordPlan& p, const unsigned char* counts, const unsigned char* symbols,
                 int symbolCount, int tableClass, uint8_t* base) {
    HuffmanRecord head{};
    head.nSize = p.recordSize;
    head.nEntryBits = p.entryBits;
    head.nPeekBits = p.peek;
    head.nLevels = p.levels;
    head.nShifts[0] = p.peek - p.w0;
    head.uMasks[0] = static_cast<uint32_t>(p.level0Entries - 1);
    head.nShifts[1] = 0;
    head.uMasks[1] = p.levels > 1 ? static_cast<uint32_t>(p.subEntries - 1) : 0;
    head.nDataShift = p.b;
    head.uLenMask = (1u << p.b) - 1;
    head.nClass = tableClass;
    head.nSymbolCount = symbolCount;
    head.nSubTablePos = p.subTablePos;
    head.nTablePos = p.tablePos;
    std::memcpy(head.uCodeCounts, counts, 16);
    std::memcpy(base, &head, sizeof head);
    const int symbolsPos = static_cast<int>(sizeof(HuffmanRecord));
    std::memset(base + symbolsPos, 0, static_cast<size_t>(p.subTablePos - symbolsPos));
    if (symbolCount > 0) std::memcpy(base + symbolsPos, symbols, static_cast<size_t>(symbolCount));

    auto* starts = reinterpret_cast<int*>(base + p.subTablePos);
    starts[0] = 0;
    for (int k = 1; k <= p.subTables; ++k) starts[k] = p.level0Entries + (k - 1) * p.subEntries;
    const int tableBytes = p.entries * p.entryBits / 8;
    std::memset(base + p.tablePos + tableBytes, 0,
                static_cast<size_t>(p.recordSize - p.tablePos - tableBytes));
    if (p.entryBits == 8)
        FillEntries(p, symbolCount, reinterpret_cast<int8_t*>(base + p.tablePos), starts);
    else
        FillEntries(p, symbolCount, reinterpret_cast<int16_t*>(base + p.tablePos), starts);
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

    RecordPlan plan;
    if (!PlanRecord(codeCounts, symbolCount, tableClass, &plan)) return -1;
    const int oldSize = cache->GetDataSize();
    if (oldSize > INT_MAX - plan.recordSize) return -1;
    const int newSize = oldSize + plan.recordSize;
    auto* data = static_cast<uint8_t*>(cache->Allocate(newSize, 4, 1));
    if (!data) return -1;
    WriteRecord(plan, codeCounts, symbols, symbolCount, tableClass, data + oldSize);
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
