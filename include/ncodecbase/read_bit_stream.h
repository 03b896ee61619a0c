// CNReadBitStream: the bit reader under every entropy decoder. Reads bits
// most significant first from a chain of caller blocks
// (NDataStreamBufferInfoTag), removing the escape bytes of the chosen mode
// while loading: 0 plain, 1 H.264 emulation prevention (00 00 03),
// 2 AVS pseudo-start-code prevention (00 00 02, whose six high zero bits stay
// payload), 3 JPEG byte stuffing (FF 00). Each byte may be bit-reversed as it
// is loaded so LSB-first formats (deflate, GIF) use the same machinery.
// On top: H.264 Exp-Golomb (ue, se, te), the interleaved Exp-Golomb code of
// RealGetOneVLC, multi-level Huffman look-ups, and the H.264 CABAC engine.
//
// Loading: a 64-bit window holds the bits loaded so far; 32 payload bits
// (AVS: four raw bytes) are appended exactly when a request needs more bits
// than the window holds, so escape bytes are met, and the bit limit lowered,
// at the same points whatever the caller's mix of peeks and reads.
// Peeks and reads that the window can serve touch no memory but the object.
//
// The reader never stops: past the end it delivers pad-buffer bits (the pad
// repeats) and reports trouble in a sticky error flag that ClearError and
// Init clear and Uninit reports. Causes: consuming past the bit limit (total
// bits minus the escape bits removed inside the chain so far), a JPEG marker
// inside the data, Exp-Golomb codes with more than 32 leading zeros or out of
// range, unterminated RealGetOneVLC codes, invalid Huffman codes, SetCurPos
// past the end.
//
// Ownership: the chain, blocks and pad belong to the caller; the reader never
// copies, allocates or touches memory outside them. One thread at a time.
//
// Choices where callers have no fixed rule:
// - Bit counts outside 1..32: 0 or less reads nothing (and returns 0), more
//   than 32 counts as 32. firstBits/lastBits outside 1..8 count as 8.
// - A null pad or a pad size below 1 stands for one zero byte.
// - SetCurPos maps positions by raw bytes; escape bytes met again after a
//   backward seek are not subtracted from the bit limit a second time.
//   Positions at or past the total bits go to the pad buffer, at the place
//   the repeating pad would have after the last byte.
// - A negative SetCurPos seeks to 0 and sets the error flag.
// - Huffman look-ups with levels below 1 return invalidValue, consume
//   nothing and set the error flag; CABAC context indices outside 0..459 set
//   the error flag and decode 0.
#pragma once

#include <array>
#include <cstdint>

#include "ncodecbase/data_stream.h"
#include "ncodecbase/export.h"

class NCB_API CNReadBitStream {
  public:
    CNReadBitStream();
    ~CNReadBitStream();
    CNReadBitStream(const CNReadBitStream&) = delete;
    CNReadBitStream& operator=(const CNReadBitStream&) = delete;

    // mode 0 plain, 1 H.264, 2 AVS, 3 JPEG. flags bit 0 (1): bytes as stored,
    // clear: every byte bit-reversed. firstBits: low bits of the first byte
    // that belong to the data; lastBits: high bits of the last byte. Returns 1.
    int Init(int mode, int flags, NDataStreamBufferInfoTag* chain, int count, unsigned char* pad,
             int padSize, int firstBits, int lastBits);
    // Stores the position in bits if asked; 1 when the error flag is clear.
    int Uninit(int* usedBits = nullptr);

    // The next n bits (1..32) without consuming them.
    unsigned int GetBitsUint32(int n) {
        if (n <= 0) return 0;
        if (n > 32) n = 32;
        if (m_nWindowBits < n) Refill(n);
        return static_cast<unsigned int>(m_uWindow >> (64 - n));
    }
    unsigned int GetAndRemoveBitsUint32(int n) {
        if (n <= 0) return 0;
        if (n > 32) n = 32;
        if (m_nWindowBits < n) Refill(n);
        unsigned int v = static_cast<unsigned int>(m_uWindow >> (64 - n));
        Consume(n);
        return v;
    }
    void RemoveBits(int n) {
        if (n <= 0) return;
        if (n > 32) n = 32;
        if (m_nWindowBits < n) Refill(n);
        Consume(n);
    }

    int GetCurPos() { return m_nPos; }
    void SetCurPos(int bits);
    int GetTotalSize() { return m_nTotalBits; }
    int GetLeftSize() { return m_nLimit > m_nPos ? m_nLimit - m_nPos : 0; }
    int GetUsedBits() {
        return static_cast<int>(static_cast<unsigned>(m_nPos) -
                                static_cast<unsigned>(m_nBitStatBase));
    }
    void ResetBitStat() { m_nBitStatBase = m_nPos; }
    int GetBufferInfo(NDataStreamBufferInfoTag** chain);
    int IsByteAlign() { return ((m_nPos - m_nFirstBits) & 7) == 0; }
    void MakeByteAlign();

    unsigned int H264GetUe(unsigned int max);
    int H264GetSe(int min, int max);
    unsigned int H264GetTe(unsigned int range);
    int H264MoreRbspData();
    unsigned int RealGetOneVLC();

    int IsError() { return m_nError; }
    void SetError() { m_nError = 1; }
    void ClearError() { m_nError = 0; }

    // Huffman look-ups. An entry's low bits (entry & lenMask) hold the bits
    // its level consumes minus one; entry >> dataShift (arithmetic) is the
    // value, or -k for a link to the sub-table at subTableOffsets[k].
    int GetHuffman8(int peekBits, int invalidValue, int levels, const int* shifts,
                    const unsigned int* masks, int dataShift, unsigned char lenMask,
                    const int* subTableOffsets, const signed char* table);
    int GetHuffman16(int peekBits, int invalidValue, int levels, const int* shifts,
                     const unsigned int* masks, int dataShift, unsigned short lenMask,
                     const int* subTableOffsets, const short* table);
    int GetHuffman32(int peekBits, int invalidValue, int levels, const int* shifts,
                     const unsigned int* masks, int dataShift, unsigned int lenMask,
                     const int* subTableOffsets, const int* table);
    // As above, consuming nothing; the length the plain form would consume
    // goes to *length.
    int GetHuffman8Try(int peekBits, int invalidValue, int levels, const int* shifts,
                       const unsigned int* masks, int dataShift, unsigned char lenMask,
                       const int* subTableOffsets, const signed char* table, int* length);
    int GetHuffman16Try(int peekBits, int invalidValue, int levels, const int* shifts,
                        const unsigned int* masks, int dataShift, unsigned short lenMask,
                        const int* subTableOffsets, const short* table, int* length);
    int GetHuffman32Try(int peekBits, int invalidValue, int levels, const int* shifts,
                        const unsigned int* masks, int dataShift, unsigned int lenMask,
                        const int* subTableOffsets, const int* table, int* length);
    // Single-level tables of 2^peekBits entries: one load per symbol.
    int GetHuffman8Once(int peekBits, int invalidValue, int dataShift, unsigned char lenMask,
                        const signed char* table) {
        return HuffmanOnce(peekBits, invalidValue, dataShift, lenMask, table);
    }
    int GetHuffman16Once(int peekBits, int invalidValue, int dataShift, unsigned short lenMask,
                         const short* table) {
        return HuffmanOnce(peekBits, invalidValue, dataShift, lenMask, table);
    }
    int GetHuffman32Once(int peekBits, int invalidValue, int dataShift, unsigned int lenMask,
                         const int* table) {
        return HuffmanOnce(peekBits, invalidValue, dataShift, lenMask, table);
    }
    // Peek only: no consumption and no invalid-value check.
    int GetHuffman8OnceTry(int peekBits, int /*invalidValue*/, int dataShift, unsigned char lenMask,
                           const signed char* table, int* length) {
        return HuffmanOnceTry(peekBits, dataShift, lenMask, table, length);
    }
    int GetHuffman16OnceTry(int peekBits, int /*invalidValue*/, int dataShift,
                            unsigned short lenMask, const short* table, int* length) {
        return HuffmanOnceTry(peekBits, dataShift, lenMask, table, length);
    }
    int GetHuffman32OnceTry(int peekBits, int /*invalidValue*/, int dataShift, unsigned int lenMask,
                            const int* table, int* length) {
        return HuffmanOnceTry(peekBits, dataShift, lenMask, table, length);
    }

    // H.264 CABAC decoding engine (clause 9.3.3.2 of the standard).
    // tableColumn 0: I and SI slices, 1..3: cabac_init_idc 0..2.
    void InitCabacContext(int tableColumn, int qp);
    void InitCabacEngine();
    int CabacDecodeNormal(int context);
    int CabacDecodeBypass();
    int CabacDecodeTerminate();

    static constexpr int kCabacContexts = 460;

    // Exp-Golomb and interleaved-code decode tables (see read_bit_tables.cpp).
    static const std::array<uint16_t, 512> s_uH264CavlcUeReadTable;
    static const std::array<int16_t, 512> s_uH264CavlcSeReadTable;
    static const std::array<std::array<int16_t, 256>, 3> s_uH264CavlcPrefixReadTable;
    static const std::array<uint32_t, 33> s_uH264UeStartValue;
    static const std::array<uint32_t, 33> s_uH264SeStartValue;
    static const std::array<uint16_t, 2048> s_uHuffr16OneVLCData;
    static const std::array<uint16_t, 7> s_uEscapeBase;

  private:
    void Refill(int n);
    void Consume(int n) {
        m_uWindow <<= n;
        m_nWindowBits -= n;
        if (m_nNextBits > m_nWindowBits) m_nNextBits = 0;
        // Unsigned add: a position seeked near INT_MAX wraps instead of
        // overflowing (the error flag is already set there).
        m_nPos = static_cast<int>(static_cast<unsigned>(m_nPos) + static_cast<unsigned>(n));
        m_nError |= m_nPos > m_nLimit;
    }
    uint32_t NextRawByte(bool* inChain);
    int LoadPayloadByte(uint32_t* value);
    void AppendBits(uint32_t value, int bits) {
        m_uWindow |= static_cast<uint64_t>(value) << (64 - m_nWindowBits - bits);
        m_nWindowBits += bits;
    }
    void LowerLimitForEscape(int bits);
    void StartAtElement(int element, int offset);
    unsigned int UeLong(int zerosSoFar, int* zeros);

    template <typename Entry, typename Mask>
    int HuffmanLevels(int peekBits, int invalidValue, int levels, const int* shifts,
                      const unsigned int* masks, int dataShift, Mask lenMask,
                      const int* subTableOffsets, const Entry* table, int* length, bool consume);
    template <typename Entry, typename Mask>
    int HuffmanOnce(int peekBits, int invalidValue, int dataShift, Mask lenMask,
                    const Entry* table) {
        int entry = table[GetBitsUint32(peekBits)];
        RemoveBits(static_cast<int>(entry & lenMask) + 1);
        int value = entry >> dataShift;
        if (value == invalidValue) m_nError = 1;
        return value;
    }
    template <typename Entry, typename Mask>
    int HuffmanOnceTry(int peekBits, int dataShift, Mask lenMask, const Entry* table, int* length) {
        int entry = table[GetBitsUint32(peekBits)];
        if (length) *length = static_cast<int>(entry & lenMask) + 1;
        return entry >> dataShift;
    }
    void CabacRenorm() {
        // Masked: a caller who keeps decoding terminate bins after the end
        // can drive the range out of its normal 256..510 span.
        int k = s_uCabacRenormShift[m_uCabacRange & 511];
        if (k) {
            m_uCabacRange <<= k;
            m_uCabacOffset = (m_uCabacOffset << k) | GetAndRemoveBitsUint32(k);
        }
    }
    static const std::array<uint8_t, 512> s_uCabacRenormShift;

    int m_nInited = 0;
    int m_nError = 0;
    int m_nBitReverse = 0;
    int m_nLoadMode = 2;  // 1: whole words load directly; 2: bytes are examined
    NDataStreamBufferInfoTag* m_pChain = nullptr;
    int m_nChainCount = 0;  // usable elements
    unsigned char* m_pPad = nullptr;
    int m_nPadSize = 0;
    int m_nFirstBits = 8;
    int m_nLastBits = 8;
    int m_nTotalBits = 0;
    int m_nPos = 0;
    int m_nElement = 0;
    unsigned char* m_pCur = nullptr;
    int m_nLeft = 0;
    int m_nBitStatBase = 0;
    uint64_t m_uWindow = 0;  // loaded bits, left-aligned
    int m_nWindowBits = 0;
    int m_nNextBits = 0;  // trailing window bits that came with the last load
    int m_nLimit = 0;
    int m_nMode = 0;
    int m_nZeroRun = 0;
    int m_nGivenCount = 0;
    int64_t m_nElementStart = 0;  // raw byte index of the current element's first byte
    int64_t m_nEscapeMark = 0;    // raw bytes up to here had their escapes counted
    uint32_t m_uCabacRange = 510;
    uint32_t m_uCabacOffset = 0;
    uint8_t m_uCabacState[kCabacContexts] = {};
    uint8_t m_uCabacMps[kCabacContexts] = {};
};
