// CNWriteBitStream: the writing twin of CNReadBitStream. Packs bit fields,
// most significant bit first, into a chain of caller blocks
// (NDataStreamBufferInfoTag), inserting the escape bytes of the chosen mode
// as bytes leave the accumulator: 0 plain, 1 H.264 emulation prevention
// (03 before a byte <= 03 after two zero bytes), 2 AVS (a 02 byte carrying six
// zero payload bits after two zero bytes), 3 JPEG (00 after every FF). Each
// byte may be bit-reversed as stored, for LSB-first formats (GIF).
// On top: Exp-Golomb (ue, se, te), the interleaved Exp-Golomb code, table
// Huffman codes and an H.264 CABAC encoder with end-of-slice padding.
//
// Bits collect in a 64-bit accumulator and leave in groups of four bytes as
// soon as 32 are held, so the chain fills in step with the writes.
// Overflow is reported only through the sticky error flag (and Uninit
// returning 0): bytes that do not fit are dropped, never stored outside the
// caller's blocks. The writer never allocates.
//
// Counters: written bits are the payload bits accepted (including stop,
// alignment and padding bits that Uninit appends, but not the destination
// bits kept by the merge end mode); inserted bits are the escape bits added.
// After Uninit, start bits + written + inserted bits is eight times the
// number of bytes stored.
//
// Ownership: the chain belongs to the caller. One thread at a time.
//
// Choices where callers have no fixed rule: bit counts outside 1..32 write
// nothing (0 or less) or count as 32; startBits outside 0..7 counts as 0;
// SetCurPos flushes whole bytes with the mode's escape rule; Uninit with an
// end mode the stream mode does not accept stores nothing more and returns 0;
// H264WriteSe codes every 32-bit value with the standard signed mapping
// (code number 2v - 1 for v > 0, -2v otherwise), so H264GetSe reads back
// all of them.
#pragma once

#include <array>
#include <cstdint>

#include "ncodecbase/data_stream.h"
#include "ncodecbase/export.h"

class NCB_API CNWriteBitStream {
  public:
    CNWriteBitStream();
    ~CNWriteBitStream();
    CNWriteBitStream(const CNWriteBitStream&) = delete;
    CNWriteBitStream& operator=(const CNWriteBitStream&) = delete;

    // mode 0 plain, 1 H.264, 2 AVS, 3 JPEG. flags bit 0 (1): bytes as given,
    // clear: each byte bit-reversed. startBits: bits of the first byte
    // already used by earlier data, which are kept. Returns 1.
    int Init(int mode, int flags, NDataStreamBufferInfoTag* chain, int count, int startBits);
    // Flushes per the end mode (H.264: 0 or 5 stop bit and zero alignment,
    // 4 zero alignment then cabac_zero_words; JPEG: 0 or 3 one-padding with
    // stuffing; AVS: 0 or 3; plain: 0 or 1 merge with the destination byte,
    // 2 zero padding, 3 one padding). Stores the counters if asked; 1 when
    // nothing was dropped and the end mode was accepted.
    int Uninit(int endMode, int* writtenBits = nullptr, int* insertedBits = nullptr);

    // Appends the low n bits (1..32) of value.
    void WriteBitsUint32(unsigned int value, int n) {
        if (n <= 0) return;
        if (n > 32) n = 32;
        uint64_t v = static_cast<uint64_t>(value) & (~0ull >> (64 - n));
        m_uAcc |= v << (64 - m_nAccBits - n);
        m_nAccBits += n;
        m_nWrittenBits += n;
        m_nBitStat += n;
        if (static_cast<int64_t>(m_nWrittenBits) + m_nInsertedBits > m_nTotalBits) m_nError = 1;
        if (m_nAccBits >= 32) EmitWord();
    }
    // fill 1: zero bits, anything else: one bits, up to the next byte edge.
    void MakeByteAlign(int fill);
    int IsByteAlign() { return ((m_nStartBits + m_nWrittenBits) & 7) == 0; }
    int GetCurPos() { return m_nWrittenBits; }
    void SetCurPos(int bits);
    int GetTotalSize() { return m_nTotalBits; }
    int GetUsedBits() { return m_nBitStat; }
    void ResetBitStat() { m_nBitStat = 0; }
    int GetBufferInfo(NDataStreamBufferInfoTag** chain);
    int IsError() { return m_nError; }
    void SetError() { m_nError = 1; }

    // entry = table[symbol]; writes entry >> codeShift in (entry & lenMask) + 1 bits.
    void WriteHuffman8(int symbol, int codeShift, unsigned char lenMask, unsigned char* table) {
        unsigned int e = table[symbol];
        WriteBitsUint32(e >> codeShift, static_cast<int>(e & lenMask) + 1);
    }
    void WriteHuffman16(int symbol, int codeShift, unsigned short lenMask, unsigned short* table) {
        unsigned int e = table[symbol];
        WriteBitsUint32(e >> codeShift, static_cast<int>(e & lenMask) + 1);
    }
    void WriteHuffman32(int symbol, int codeShift, unsigned int lenMask, unsigned int* table) {
        unsigned int e = table[symbol];
        WriteBitsUint32(e >> codeShift, static_cast<int>(e & lenMask) + 1);
    }

    void H264WriteUe(unsigned int value);
    void H264WriteSe(int value);
    void H264WriteTe(unsigned int value, unsigned int range);
    // Interleaved Exp-Golomb code; values from 8191 on (and negative ones)
    // cannot be coded and set the error flag.
    void RealWriteOneVLC(int value);

    // H.264 CABAC encoder (clause 9.3.4 of the standard).
    void InitCabacContext(int tableColumn, int qp);
    void InitCabacEngine();
    void CabacEncodeNormal(int context, int bin);
    void CabacEncodeBypass(int bin);
    void CabacEncodeTerminate();     // end_of_slice 1 and flush
    void CabacEncodeTerminateNot();  // terminating bin 0
    // Keeps the values for Uninit(4)'s cabac_zero_words; returns the bin count.
    int UninitCabac(int enable, int extraBins, int extraBytes, int width, int height);
    void CabacRenormE();

    static constexpr int kCabacContexts = 460;

    // Exp-Golomb and interleaved-code write tables (see write_bit_tables.cpp).
    static const std::array<uint16_t, 2047> s_uH264CavlcUeWriteTable;
    static const std::array<uint16_t, 2047> s_uH264CavlcSeWriteTable;
    static const std::array<uint32_t, 8191> s_uHuffw32OneVLCData;

  private:
    void EmitWord();
    void EmitByte(uint32_t b);
    void EmitAvsByte();
    void EmitWholeBytes();
    void StoreByte(uint32_t b);
    void NextElement();
    void EnterEndState();
    void PutBit(int bit);
    void WriteRun(int bit, int count);
    void WriteUeCode(uint64_t codeNumber);
    void AppendCabacZeroWords();
    uint32_t DestinationByte();

    int m_nInited = 0;
    int m_nError = 0;
    int m_nBitReverse = 0;
    int m_nStoreMode = 2;  // 1: whole words may be stored directly; 2: byte by byte
    NDataStreamBufferInfoTag* m_pChain = nullptr;
    int m_nChainCount = 0;  // usable elements
    int m_nStartBits = 0;
    int m_nTotalBits = 0;
    int m_nWrittenBits = 0;
    int m_nInsertedBits = 0;
    int m_nElement = 0;
    unsigned char* m_pCur = nullptr;  // null when the chain is full
    int m_nLeft = 0;
    int m_nBitStat = 0;
    uint64_t m_uAcc = 0;  // pending bits, left-aligned
    int m_nAccBits = 0;
    int m_nMode = 0;
    int m_nZeroRun = 0;
    int m_nLastByteZero = 0;  // the last byte stored was 00
    int m_nGivenCount = 0;
    // CABAC encoder.
    uint32_t m_uCabacRange = 510;
    uint32_t m_uCabacLow = 0;
    int m_nCabacFirstBit = 1;
    int m_nCabacOutstanding = 0;
    int m_nCabacBins = 0;
    int m_nCabacEndEnable = 0;
    int m_nCabacExtraBins = 0;
    int m_nCabacExtraBytes = 0;
    int m_nCabacWidth = 0;
    int m_nCabacHeight = 0;
    uint8_t m_uCabacState[kCabacContexts] = {};
    uint8_t m_uCabacMps[kCabacContexts] = {};
};
