// CNWriteByteStream: writes bytes and 8/16/32/64-bit integers, in either byte
// order and optionally bit-reversed, into a chain of caller blocks
// (NDataStreamBufferInfoTag), in place.
//
// The writer never allocates. When the chain is full, further writes are
// dropped and a sticky error flag is raised (Uninit then returns 0). The
// position still counts the dropped bytes of multi-byte and buffer writes,
// so a caller can learn how much room it would have needed; a dropped
// single-byte write does not move it.
//
// Ownership: the chain and its blocks belong to the caller. Thread safety: one
// thread at a time.
//
// Choices where callers have no fixed rule: a negative SetCurPos sets the
// error flag and seeks to 0; an element of size 0 (or a null block) ends the
// chain there.
#pragma once

#include <cstdint>

#include "ncodecbase/data_stream.h"
#include "ncodecbase/export.h"

class NCB_API CNWriteByteStream {
  public:
    CNWriteByteStream();
    ~CNWriteByteStream();
    CNWriteByteStream(const CNWriteByteStream&) = delete;
    CNWriteByteStream& operator=(const CNWriteByteStream&) = delete;

    // flags bit 0 (1): little-endian integers, clear: big-endian.
    // flags bit 1 (2): bytes as given, clear: every byte bit-reversed.
    // Returns 1.
    int Init(int flags, NDataStreamBufferInfoTag* chain, int count);
    // 1 when no write was dropped since Init, else 0.
    int Uninit();

    void WriteUint8(uint8_t value);
    void WriteInt8(int8_t value) { WriteUint8(static_cast<uint8_t>(value)); }
    void WriteUint16(uint16_t value);
    void WriteInt16(int16_t value) { WriteUint16(static_cast<uint16_t>(value)); }
    void WriteUint32(uint32_t value);
    void WriteInt32(int32_t value) { WriteUint32(static_cast<uint32_t>(value)); }
    void WriteUint64(uint64_t value);
    void WriteInt64(int64_t value) { WriteUint64(static_cast<uint64_t>(value)); }
    // Copies count bytes across element edges; count below 1 copies nothing.
    void WriteBuffer(unsigned char* source, int count);

    void SetCurPos(int position);
    void Skip(int count);
    int GetCurPos(int* element = nullptr, int* offset = nullptr);
    int GetTotalSize() { return m_nTotalSize; }
    int GetBufferInfo(NDataStreamBufferInfoTag** chain);
    int IsError() { return m_nError; }
    void SetError() { m_nError = 1; }

  private:
    void WriteBytes(uint64_t value, int n);
    void NextElement();
    void EnterEndState();

    int m_nInited = 0;
    int m_nError = 0;
    int m_nBitReverse = 0;
    int m_nAccessMode = 0;
    int m_nBigEndian = 1;
    NDataStreamBufferInfoTag* m_pChain = nullptr;
    int m_nChainCount = 0;  // usable elements
    int m_nTotalSize = 0;
    int m_nPos = 0;
    int m_nElement = 0;
    unsigned char* m_pCur = nullptr;  // null in the end state
    int m_nLeft = 0;
    int m_nGivenCount = 0;
};
