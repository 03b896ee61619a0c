// Inflate for the ZIP reader: block headers, stored blocks, the fixed and
// dynamic Huffman codes, and the sliding window.
//
// Why this shape: the input is held in one 32 768-byte buffer that a fresh
// CNReadBitStream (plain mode, bytes bit-reversed) walks; the symbol loop
// runs while at least 64 bits are left in it, which covers the longest
// length/distance pair, and otherwise returns so the consumed bytes are
// dropped and the buffer topped up, keeping the bit position. A block header
// is only read right after a top-up, so the largest dynamic header always
// fits. Output collects in a 64 KiB window; whenever it fills, its oldest
// 32 768 bytes are written and counted into the CRC, so 32 KiB of history
// always stay for the distances.
//
// Codes are looked up in tables of the bit reader's Huffman format (built by
// CNZipDecoder::CreateHuffmanTable, or the fixed tables) with the bit
// reader's own multi-level algorithm, but applied to a 32-bit peek of a
// small cursor that takes the bits from the bit reader 32 at a time and
// lives in registers: a round then costs one peek and one consumption for up
// to two literals, or for a length code with its extra bits. Going through
// GetHuffman16 per symbol, with the reader's state in memory, made
// extraction about 40% slower than zlib; this way it is on par.
//
// What it deliberately does not do: look at anything after the uncompressed
// size is reached (trailing blocks are ignored), or write beyond it.
#include "archive/zip/zip_inflate.h"

#include <array>
#include <cstring>

#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/data_stream.h"
#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/zip_decoder.h"
#include "platform/kernel/heap.h"

namespace ncb::zip {
namespace {

constexpr int kInputSize = 32768;
constexpr int kWindowFull = 65536;
constexpr int kFlushSize = 32768;
constexpr int kMaxMatch = 258;
constexpr int kWindowBytes = kWindowFull + kMaxMatch + 16;  // a match may overrun by 15
constexpr int kLookAheadBits = 64;
constexpr int kMaxLiteralCodes = 286;
constexpr int kMaxDistanceCodes = 32;

constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                      15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                      67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint16_t kDistanceBase[30] = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                        6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// Deflate stores these fields least significant bit first; the reversed
// stream delivers them mirrored, so the swap tables put them right.
const uint8_t kSwap1[2] = {0, 1};
const uint8_t* const kSwap8[9] = {
    nullptr,
    kSwap1,
    CNZipDecoder::s_uBitSwapTable2.data(),
    CNZipDecoder::s_uBitSwapTable3.data(),
    CNZipDecoder::s_uBitSwapTable4.data(),
    CNZipDecoder::s_uBitSwapTable5.data(),
    CNZipDecoder::s_uBitSwapTable6.data(),
    CNZipDecoder::s_uBitSwapTable7.data(),
    CNZipDecoder::s_uBitSwapTable8.data(),
};
const uint16_t* const kSwap16[14] = {
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    CNZipDecoder::s_uBitSwapTable9.data(),
    CNZipDecoder::s_uBitSwapTable10.data(),
    CNZipDecoder::s_uBitSwapTable11.data(),
    CNZipDecoder::s_uBitSwapTable12.data(),
    CNZipDecoder::s_uBitSwapTable13.data(),
};

// An n-bit field (0 .. 13 bits) stored least significant bit first.
inline int ReadField(CNReadBitStream& bs, int n) {
    if (n == 0) return 0;
    uint32_t v = bs.GetAndRemoveBitsUint32(n);
    return n <= 8 ? kSwap8[n][v] : kSwap16[n][v];
}

// What the symbol loop needs of a table in the bit reader's format, to look
// a code up in the top bits of a left-aligned 32-bit peek.
struct TableView {
    const void* table = nullptr;
    int firstShift = 32;  // level 0 index: (peek >> firstShift) & mask0
    uint32_t mask0 = 0;
    int secondShift = 32;  // level 1 index: (peek >> secondShift) & mask1, plus the link's offset
    uint32_t mask1 = 0;
    const int* links = nullptr;
    int dataShift = 0;
    uint32_t lenMask = 0;
    int invalid = 0;
    int bits = 0;  // bits of the peek the look-up reads
};

// The bit reader's multi-level look-up (the table format, shifts and masks
// CreateHuffmanTable returns), on a 32-bit peek the caller already holds:
// the shifts are taken relative to the peek once, when the view is made.
// Returns the symbol (or the invalid value) and its code length.
template <typename Entry>
[[gnu::always_inline]] inline int LookUp(const TableView& t, uint32_t peek, int* length) {
    const auto* table = static_cast<const Entry*>(t.table);
    int entry = table[(peek >> t.firstShift) & t.mask0];
    int len = static_cast<int>(static_cast<uint32_t>(entry) & t.lenMask) + 1;
    int value = entry >> t.dataShift;
    if (value < 0) {
        entry = table[t.links[-value] + static_cast<int>((peek >> t.secondShift) & t.mask1)];
        len += static_cast<int>(static_cast<uint32_t>(entry) & t.lenMask) + 1;
        value = entry >> t.dataShift;
    }
    *length = len;
    return value;
}

// The `n` bits below the top `used` bits of a peek, as deflate stores such
// fields (least significant bit first), put right. Fields of up to 8 bits
// go through their swap table; longer ones (distance extra bits, up to 13)
// through the 8-bit table twice, which gives the same value as the larger
// tables without their 31 KiB of cache footprint in the symbol loop.
inline int FieldFromPeek(uint32_t peek, int used, int n) {
    if (n == 0) return 0;
    const uint32_t v = (peek << used) >> (32 - n);
    if (n <= 8) return kSwap8[n][v];
    const uint8_t* swap = CNZipDecoder::s_uBitSwapTable8.data();
    return static_cast<int>(((uint32_t{swap[v & 0xFF]} << 8) | swap[v >> 8]) >> (16 - n));
}

// A code table built from code lengths by CNZipDecoder::CreateHuffmanTable.
class CodeTable {
  public:
    CodeTable() = default;
    ~CodeTable() {
        if (buffer_) buffer_->Release();
    }
    CodeTable(const CodeTable&) = delete;
    CodeTable& operator=(const CodeTable&) = delete;

    bool Create() {
        buffer_ = CNCodecBuffer::CreateBuffer();
        return buffer_ != nullptr;
    }

    bool Build(unsigned char* lengths, int count, int peekBits) {
        int levels = 0;
        int lookupBits = 0;
        int shifts[2];
        unsigned int masks[2];
        unsigned int lenMask = 0;
        if (!CNZipDecoder::CreateHuffmanTable(lengths, count, peekBits, buffer_, &lookupBits,
                                              &entryBits_, &levels, shifts, masks, links_,
                                              &view_.dataShift, &lenMask, &view_.invalid))
            return false;
        view_.table = buffer_->GetAddress();
        view_.bits = lookupBits;
        view_.firstShift = 32 - lookupBits + shifts[0];
        view_.mask0 = masks[0];
        view_.secondShift = levels == 2 ? 32 - lookupBits + shifts[1] : 32;
        view_.mask1 = levels == 2 ? masks[1] : 0;
        view_.links = links_;
        view_.lenMask = lenMask;
        return true;
    }

    int EntryBits() const { return entryBits_; }
    const TableView& View() const { return view_; }

    // One symbol through the bit reader (block headers: not the hot path).
    int Decode(CNReadBitStream& bs) const {
        int length = 0;
        const uint32_t peek = bs.GetBitsUint32(32);
        const int value = entryBits_ == 16 ? LookUp<short>(view_, peek, &length)
                                           : LookUp<signed char>(view_, peek, &length);
        bs.RemoveBits(length);
        if (value == view_.invalid) bs.SetError();
        return value;
    }

  private:
    CNCodecBuffer* buffer_ = nullptr;
    int entryBits_ = 16;
    TableView view_;
    int links_[kMaxLiteralCodes + 1] = {};
};

// Deflate's fixed codes as table views: the 9-bit literal/length table, and
// the distance codes, which are five bits taken as they come.
constexpr std::array<uint16_t, 32> MakeFixedDistances() {
    std::array<uint16_t, 32> t{};
    for (int i = 0; i < 32; ++i) t[i] = static_cast<uint16_t>((i << 4) | 4);
    return t;
}
constexpr std::array<uint16_t, 32> kFixedDistances = MakeFixedDistances();

TableView FixedLiteralView() {
    TableView v;
    v.table = CNZipDecoder::s_uHuffr16DefalteLengthData.data();
    v.bits = 9;
    v.firstShift = 32 - 9;
    v.mask0 = 511;
    v.dataShift = 4;
    v.lenMask = 15;
    v.invalid = -1;
    return v;
}

TableView FixedDistanceView() {
    TableView v;
    v.table = kFixedDistances.data();
    v.bits = 5;
    v.firstShift = 32 - 5;
    v.mask0 = 31;
    v.dataShift = 4;
    v.lenMask = 15;
    v.invalid = -1;
    return v;
}

// Copies a match forward; with distances of 8 or more whole 16- or 8-byte
// pieces, which may write up to 15 bytes past the match (the window has
// room). Shorter distances repeat a pattern byte by byte, as deflate means.
inline void CopyMatch(unsigned char* dst, int distance, int length) {
    const unsigned char* src = dst - distance;
    if (distance >= 32) {
        for (int i = 0; i < length; i += 16) std::memcpy(dst + i, src + i, 16);
    } else if (distance == 1) {
        std::memset(dst, src[0], static_cast<size_t>(length));
    } else {
        for (int i = 0; i < length; ++i) dst[i] = src[i];
    }
}

enum class SymbolStop { kWindow, kBlockEnd, kInput, kBad };

class Inflater {
  public:
    Inflater(InflateSource* source, uint32_t compressed, uint32_t uncompressed, InflateSink* sink,
             int* blockType)
        : source_(source),
          sink_(sink),
          blockType_(blockType),
          compLeft_(compressed),
          total_(uncompressed) {}
    ~Inflater() {
        nplat::HeapFree(in_);
        nplat::HeapFree(win_);
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    int Run();
    uint32_t Crc() const { return crc_; }

  private:
    enum Step { kGoOn, kNeedInput, kBlockEnd, kDone, kFail };

    bool Allocate();
    bool ReadMore();
    void Drop(int bytes);
    bool ReadBlockHeader(CNReadBitStream& bs);
    bool ReadDynamicTables(CNReadBitStream& bs);
    Step StoredBlock(CNReadBitStream& bs);
    Step Symbols(CNReadBitStream& bs, const TableView& literals, const TableView& distances,
                 int distanceEntryBits, int* position);
    Step WindowFull();
    bool Emit(const unsigned char* data, int count);
    void UpdateStop();

    InflateSource* source_;
    InflateSink* sink_;
    int* blockType_;
    uint32_t compLeft_;
    uint32_t total_;
    uint64_t written_ = 0;
    uint32_t crc_ = 0;

    unsigned char* in_ = nullptr;
    int held_ = 0;
    int bitPos_ = 0;
    unsigned char* win_ = nullptr;
    int winLen_ = 0;
    int stop_ = 0;  // window length at which WindowFull must run

    bool final_ = false;
    bool atBlockStart_ = true;
    int type_ = 0;
    unsigned char pad_[4] = {};
    CodeTable literals_;
    CodeTable distances_;
    CodeTable codeLengths_;
    const TableView fixedLiterals_ = FixedLiteralView();
    const TableView fixedDistances_ = FixedDistanceView();
};

bool Inflater::Allocate() {
    in_ = static_cast<unsigned char*>(nplat::HeapAlloc(kInputSize));
    win_ = static_cast<unsigned char*>(nplat::HeapAlloc(kWindowBytes));
    return in_ && win_ && literals_.Create() && distances_.Create() && codeLengths_.Create();
}

bool Inflater::ReadMore() {
    int want = kInputSize - held_;
    if (compLeft_ < static_cast<uint32_t>(want)) want = static_cast<int>(compLeft_);
    if (want <= 0) return true;
    if (!source_->Read(in_ + held_, want)) return false;
    held_ += want;
    compLeft_ -= static_cast<uint32_t>(want);
    return true;
}

void Inflater::Drop(int bytes) {
    if (bytes > held_) bytes = held_;
    std::memmove(in_, in_ + bytes, static_cast<size_t>(held_ - bytes));
    held_ -= bytes;
}

void Inflater::UpdateStop() {
    uint64_t left = total_ - written_;
    stop_ = left < kWindowFull ? static_cast<int>(left) : kWindowFull;
}

bool Inflater::Emit(const unsigned char* data, int count) {
    if (count <= 0) return true;
    if (!sink_->Write(data, count)) return false;
    crc_ = CNZipDecoder::CalcCRC32(crc_, const_cast<unsigned char*>(data), count);
    written_ += static_cast<uint64_t>(count);
    return true;
}

// The window reached its stop: either the entry is complete (or overshot),
// or the window is full and its oldest half goes out.
Inflater::Step Inflater::WindowFull() {
    const uint64_t produced = written_ + static_cast<uint64_t>(winLen_);
    if (produced >= total_) return produced == total_ ? kDone : kFail;
    if (!Emit(win_, kFlushSize)) return kFail;
    std::memmove(win_, win_ + kFlushSize, static_cast<size_t>(winLen_ - kFlushSize));
    winLen_ -= kFlushSize;
    UpdateStop();
    return kGoOn;
}

bool Inflater::ReadBlockHeader(CNReadBitStream& bs) {
    final_ = bs.GetAndRemoveBitsUint32(1) != 0;
    type_ = ReadField(bs, 2);
    if (blockType_) *blockType_ = type_;
    if (type_ == 3) return false;
    if (type_ == 2 && !ReadDynamicTables(bs)) return false;
    return !bs.IsError();
}

bool Inflater::ReadDynamicTables(CNReadBitStream& bs) {
    const int hlit = ReadField(bs, 5) + 257;
    const int hdist = ReadField(bs, 5) + 1;
    const int hclen = ReadField(bs, 4) + 4;
    if (hlit > kMaxLiteralCodes || hdist > kMaxDistanceCodes) return false;

    unsigned char codeLengthLengths[19] = {};
    for (int i = 0; i < hclen; ++i)
        codeLengthLengths[CNZipDecoder::s_uLenHuffmanMappingTable[i]] =
            static_cast<unsigned char>(ReadField(bs, 3));
    if (!codeLengths_.Build(codeLengthLengths, 19, 7)) return false;

    unsigned char lengths[kMaxLiteralCodes + kMaxDistanceCodes] = {};
    const int total = hlit + hdist;
    int i = 0;
    while (i < total) {
        const int symbol = codeLengths_.Decode(bs);
        if (bs.IsError()) return false;
        if (symbol < 16) {
            lengths[i++] = static_cast<unsigned char>(symbol);
            continue;
        }
        int repeat;
        unsigned char value = 0;
        if (symbol == 16) {
            if (i == 0) return false;
            value = lengths[i - 1];
            repeat = 3 + ReadField(bs, 2);
        } else if (symbol == 17) {
            repeat = 3 + ReadField(bs, 3);
        } else if (symbol == 18) {
            repeat = 11 + ReadField(bs, 7);
        } else {
            return false;
        }
        if (i + repeat > total) return false;
        std::memset(lengths + i, value, static_cast<size_t>(repeat));
        i += repeat;
    }
    return literals_.Build(lengths, hlit, 12) && distances_.Build(lengths + hlit, hdist, 12);
}

Inflater::Step Inflater::StoredBlock(CNReadBitStream& bs) {
    const int misaligned = bs.GetCurPos() & 7;
    if (misaligned) bs.RemoveBits(8 - misaligned);
    uint32_t length = CNZipDecoder::s_uBitSwapTable8[bs.GetAndRemoveBitsUint32(8)];
    length |= static_cast<uint32_t>(CNZipDecoder::s_uBitSwapTable8[bs.GetAndRemoveBitsUint32(8)])
              << 8;
    bs.RemoveBits(16);  // NLEN, not checked
    if (bs.IsError()) return kFail;
    int pos = bs.GetCurPos() >> 3;
    if (length > static_cast<uint32_t>(held_ - pos) + compLeft_) return kFail;

    while (length > 0) {
        if (pos == held_) {
            held_ = 0;
            pos = 0;
            if (!ReadMore()) return kFail;
        }
        int n = held_ - pos;
        if (static_cast<uint32_t>(n) > length) n = static_cast<int>(length);
        if (n > stop_ - winLen_) n = stop_ - winLen_;
        std::memcpy(win_ + winLen_, in_ + pos, static_cast<size_t>(n));
        winLen_ += n;
        pos += n;
        length -= static_cast<uint32_t>(n);
        if (winLen_ >= stop_) {
            const Step step = WindowFull();
            if (step != kGoOn) return step;
        }
    }
    Drop(pos);
    bitPos_ = 0;
    return kBlockEnd;
}

// The bits of the data as the symbol loop reads them: taken from the bit
// reader 32 at a time into a 64-bit buffer that the loop keeps in registers
// (the bit reader's own state lives in memory, and every peek and
// consumption through it would be a load and a store). Past the end of the
// data the buffer fills with zeros; `real` counts the held bits that are
// data, and goes negative once the decoder consumes padding.
struct BitCursor {
    CNReadBitStream* bs;
    uint64_t bits = 0;  // left-aligned
    int count = 0;
    int real = 0;

    [[gnu::always_inline]] uint32_t Peek32() {
        if (count < 32) Fill();
        return static_cast<uint32_t>(bits >> 32);
    }
    [[gnu::always_inline]] void Consume(int n) {
        bits <<= n;
        count -= n;
        real -= n;
    }
    // Bits the decoder may still consume: held data bits and the reader's.
    int Available() const { return bs->GetLeftSize() + real; }
    // Position of the decoder in the reader's bits.
    int Position() const { return bs->GetCurPos() - real; }

  private:
    void Fill() {
        int take = bs->GetLeftSize();
        if (take > 32) take = 32;
        if (take > 0) {
            const uint32_t word = bs->GetAndRemoveBitsUint32(take) << (32 - take);
            bits |= static_cast<uint64_t>(word) << (32 - count);
            real += take;
        }
        count += 32;
    }
};

// Decodes symbols into `win` from length `*length` until the window reaches
// `stop`, the block ends, the input runs short or the stream fails.
//
// Each round peeks 32 bits once and consumes once: a literal and, when its
// code fits in the rest of the peek, a second literal; or a length code with
// its extra bits, then (second peek) a distance code with its extra bits,
// which always fit 32 bits together. The cursor is copied in and out so its
// buffer stays in registers; `win` is restrict-qualified, so the bytes
// written alias neither the cursor nor the tables.
template <typename DistanceEntry>
SymbolStop DecodeSymbols(BitCursor* state, const TableView& literalView,
                         const TableView& distanceView, unsigned char* __restrict win, int* length,
                         int stop, bool moreInput) {
    BitCursor c = *state;
    const TableView literals = literalView;
    const TableView distances = distanceView;
    int n = *length;
    const int pairBits = 32 - literals.bits;  // a second literal fits after this many bits
    SymbolStop result = SymbolStop::kWindow;
    while (n < stop) {
        if (c.Available() < kLookAheadBits) {
            if (moreInput) {
                result = SymbolStop::kInput;
                break;
            }
            if (c.real < 0) {
                result = SymbolStop::kBad;
                break;
            }
        }
        uint32_t peek = c.Peek32();
        int used;
        int symbol = LookUp<short>(literals, peek, &used);
        if (symbol < 256) {
            win[n++] = static_cast<unsigned char>(symbol);
            if (used <= pairBits && n < stop) {
                int more;
                const int next = LookUp<short>(literals, peek << used, &more);
                if (next < 256) {
                    win[n++] = static_cast<unsigned char>(next);
                    used += more;
                }
            }
            c.Consume(used);
            continue;
        }
        if (symbol == 256) {
            c.Consume(used);
            result = SymbolStop::kBlockEnd;
            break;
        }
        if (symbol > 285) {
            result = SymbolStop::kBad;
            break;
        }
        const int li = symbol - 257;
        const int extra = kLengthExtra[li];
        const int matchLength = kLengthBase[li] + FieldFromPeek(peek, used, extra);
        c.Consume(used + extra);  // at most 15 + 5 bits

        peek = c.Peek32();
        const int code = LookUp<DistanceEntry>(distances, peek, &used);
        if (code > 29) {
            result = SymbolStop::kBad;
            break;
        }
        const int distanceExtra = kDistanceExtra[code];
        const int distance = kDistanceBase[code] + FieldFromPeek(peek, used, distanceExtra);
        c.Consume(used + distanceExtra);  // at most 15 + 13 bits
        if (distance > n) {
            result = SymbolStop::kBad;
            break;
        }
        CopyMatch(win + n, distance, matchLength);
        n += matchLength;
    }
    if (c.real < 0) result = SymbolStop::kBad;
    *state = c;
    *length = n;
    return result;
}

Inflater::Step Inflater::Symbols(CNReadBitStream& bs, const TableView& literals,
                                 const TableView& distances, int distanceEntryBits, int* position) {
    const bool moreInput = compLeft_ > 0;
    BitCursor cursor{&bs};
    for (;;) {
        const SymbolStop stop = distanceEntryBits == 16
                                    ? DecodeSymbols<short>(&cursor, literals, distances, win_,
                                                           &winLen_, stop_, moreInput)
                                    : DecodeSymbols<signed char>(&cursor, literals, distances, win_,
                                                                 &winLen_, stop_, moreInput);
        if (bs.IsError() || stop == SymbolStop::kBad) return kFail;
        *position = cursor.Position();
        if (stop == SymbolStop::kBlockEnd) return kBlockEnd;
        if (stop == SymbolStop::kInput) return kNeedInput;
        const Step step = WindowFull();
        if (step != kGoOn) return step;
    }
}

int Inflater::Run() {
    if (!Allocate()) return 0;
    UpdateStop();
    while (written_ + static_cast<uint64_t>(winLen_) < total_) {
        if (held_ < kInputSize && compLeft_ > 0 && !ReadMore()) return 0;
        NDataStreamBufferInfoTag chain{in_, held_};
        CNReadBitStream bs;
        bs.Init(0, 0, &chain, 1, pad_, sizeof(pad_), 8, 8);
        if (bitPos_) bs.RemoveBits(bitPos_);
        if (atBlockStart_) {
            if (!ReadBlockHeader(bs)) return 0;
            atBlockStart_ = false;
        }
        Step step;
        int pos = 0;
        if (type_ == 0) {
            step = StoredBlock(bs);
        } else if (type_ == 1) {
            step = Symbols(bs, fixedLiterals_, fixedDistances_, 16, &pos);
        } else {
            step = Symbols(bs, literals_.View(), distances_.View(), distances_.EntryBits(), &pos);
        }
        if (step == kFail) return 0;
        if (step == kDone) break;
        if (type_ != 0) {
            Drop(pos >> 3);
            bitPos_ = pos & 7;
        }
        if (step == kBlockEnd) {
            if (final_) break;
            atBlockStart_ = true;
        }
    }
    if (!Emit(win_, winLen_)) return 0;
    winLen_ = 0;
    return written_ == total_ ? 1 : 0;
}

}  // namespace

int Inflate(InflateSource* source, uint32_t compressedSize, uint32_t uncompressedSize,
            InflateSink* sink, uint32_t* crc, int* blockType) {
    Inflater inflater(source, compressedSize, uncompressedSize, sink, blockType);
    const int ok = inflater.Run();
    if (crc) *crc = inflater.Crc();
    return ok;
}

}  // namespace ncb::zip
