// Entropy-coded data for the JPEG scan decoders: a bit source over the
// scan's segments and Huffman symbol decoding through look-ahead tables.
//
// Why not CNReadBitStream: its general look-up walk costs several calls per
// symbol. This source reads the same bit sequence (stuffed FF 00 gives FF,
// segments follow each other as one chain, byte alignment drops the bits
// left in the current byte) from a 64-bit buffer refilled eight bytes at a
// time when no FF is among them, and decodes most symbols with one 10-bit
// look-up; AC symbols whose code and value bits fit those 10 bits come out
// decoded, value and all. Symbols are those of the canonical codes the
// cache records describe, so both readers agree on every valid stream (the
// tests decode blocks with both).
//
// Past the last segment the source feeds zero bytes and counts them; a scan
// that consumed any of them overran its data. Invalid codes and sizes set
// the error flag; the decoders check it per MCU and the decode fails.
#pragma once

#include <cstdint>
#include <cstring>

namespace ncb::jpeg {

struct Segment {
    const uint8_t* data;
    int size;
};

inline constexpr int kLookBits = 10;

struct FastHuffman {
    // (length << 8) | symbol for codes of up to kLookBits bits; 0 otherwise.
    uint16_t look[1 << kLookBits];
    // AC tables: (value << 8) | (run << 4) | (code + value bits) when both fit
    // kLookBits and the value fits 8 bits; 0 otherwise.
    int16_t fastAc[1 << kLookBits];
    int32_t maxCode[18];  // per length, -1 when the length has no codes
    int32_t valOffset[17];
    uint8_t symbols[256];
};

// Derives the tables from the DHT counts and symbols; false when the counts
// do not form a prefix code (the cache refuses those first).
bool BuildFastHuffman(const uint8_t counts[16], const uint8_t* symbols, int symbolCount, bool ac,
                      FastHuffman* out);

class BitSource {
  public:
    void Init(const Segment* segments, int count) {
        segs_ = segments;
        segCount_ = count;
        seg_ = 0;
        p_ = count > 0 ? segments[0].data : nullptr;
        end_ = count > 0 ? p_ + segments[0].size : nullptr;
        buf_ = 0;
        cnt_ = 0;
        padBits_ = 0;
        error = false;
    }

    // Afterwards at least 32 bits are buffered.
    void Fill() {
        if (cnt_ < 32) Refill();
    }
    uint32_t Peek(int n) const { return static_cast<uint32_t>(buf_ >> (64 - n)); }
    void Skip(int n) {
        buf_ <<= n;
        cnt_ -= n;
    }
    // n from 1 to 16 with enough bits buffered.
    uint32_t Take(int n) {
        const uint32_t v = Peek(n);
        Skip(n);
        return v;
    }
    uint32_t TakeBit() { return Take(1); }
    void ByteAlign() {
        Fill();
        Skip(cnt_ & 7);
    }
    // Whether more bits were consumed than the segments hold.
    bool Overrun() const { return padBits_ > cnt_; }

    bool error = false;

  private:
    void Refill() {
        if (end_ - p_ >= 8) {
            uint64_t v;
            std::memcpy(&v, p_, 8);
            v = __builtin_bswap64(v);
            // No FF byte among the eight: all of them are payload.
            const uint64_t inv = ~v;
            if (!((inv - 0x0101010101010101ull) & ~inv & 0x8080808080808080ull)) {
                const int n = (64 - cnt_) >> 3;
                buf_ |= (n == 8 ? v : (v >> (64 - 8 * n))) << (64 - cnt_ - 8 * n);
                p_ += n;
                cnt_ += 8 * n;
                return;
            }
        }
        RefillSlow();
    }
    void RefillSlow();

    const Segment* segs_ = nullptr;
    int segCount_ = 0;
    int seg_ = 0;
    const uint8_t* p_ = nullptr;
    const uint8_t* end_ = nullptr;
    uint64_t buf_ = 0;
    int cnt_ = 0;
    int padBits_ = 0;
};

int DecodeSymbolSlow(BitSource& bs, const FastHuffman& h);

// With at least 16 bits buffered.
inline int DecodeSymbol(BitSource& bs, const FastHuffman& h) {
    const uint32_t e = h.look[bs.Peek(kLookBits)];
    if (e) {
        bs.Skip(static_cast<int>(e >> 8));
        return static_cast<int>(e & 0xFF);
    }
    return DecodeSymbolSlow(bs, h);
}

// The JPEG EXTEND rule for an s-bit magnitude field, s from 1 to 16.
inline int Extend(uint32_t v, int s) {
    return v < (1u << (s - 1)) ? static_cast<int>(v) - (1 << s) + 1 : static_cast<int>(v);
}

}  // namespace ncb::jpeg
