// CNReadByteStream: reads bytes and 8/16/32/64-bit integers from a chain of
// caller blocks (NDataStreamBufferInfoTag), copies runs, seeks, and searches
// for byte patterns (start codes, sync words, JPEG markers).
//
// The reader walks the caller's blocks in place and never copies, allocates
// or frees anything. Reading past the end never fails hard: the reader goes
// on in the caller's pad buffer (repeating it) and raises a sticky error flag
// that only Init clears and Uninit reports. Searches look at chain bytes only,
// never at the pad, and never raise the flag.
//
// Ownership: the chain, its blocks and the pad belong to the caller and must
// outlive the reader's use of them. Thread safety: one thread at a time.
//
// Choices where callers have no fixed rule:
// - A null pad or a pad size below 1 stands for a single zero byte.
// - SetCurPos past the end places the reader where the repeating pad buffer
//   would be at that position (pad byte (p - total) mod pad size); a negative
//   position sets the error flag and seeks to 0.
// - An element of size 0 (or a null block) ends the chain there.
#pragma once

#include <cstdint>

#include "ncodecbase/data_stream.h"
#include "ncodecbase/export.h"

class NCB_API CNReadByteStream {
  public:
    CNReadByteStream();
    ~CNReadByteStream();
    CNReadByteStream(const CNReadByteStream&) = delete;
    CNReadByteStream& operator=(const CNReadByteStream&) = delete;

    // flags bit 0 (1): little-endian integers, clear: big-endian.
    // flags bit 1 (2): bytes as stored, clear: every byte bit-reversed.
    // Returns 1.
    int Init(int flags, NDataStreamBufferInfoTag* chain, int count, unsigned char* pad,
             int padSize);
    // 1 when no error was raised since Init, else 0.
    int Uninit();

    uint8_t ReadUint8();
    int8_t ReadInt8() { return static_cast<int8_t>(ReadUint8()); }
    uint16_t ReadUint16();
    int16_t ReadInt16() { return static_cast<int16_t>(ReadUint16()); }
    uint32_t ReadUint32();
    int32_t ReadInt32() { return static_cast<int32_t>(ReadUint32()); }
    uint64_t ReadUint64();
    int64_t ReadInt64() { return static_cast<int64_t>(ReadUint64()); }
    // Copies count bytes across block edges; count below 1 copies nothing.
    void ReadBuffer(unsigned char* dest, int count);

    void SetCurPos(int position);
    void Skip(int count);
    // The byte position; element and offset (within that element) if given.
    int GetCurPos(int* element = nullptr, int* offset = nullptr);
    // Next byte to read and the bytes left in its block (0 at the end).
    unsigned char* GetCurDataAddress(int* bytesLeft = nullptr);
    int GetTotalSize() { return m_nTotalSize; }
    int GetBufferInfo(NDataStreamBufferInfoTag** chain);
    int IsError() { return m_nError; }
    void SetError() { m_nError = 1; }

    // Searches: each returns the position just after the match and leaves
    // the reader there, or returns -1 and leaves the reader at the end.
    int FindUint8(unsigned char value);
    int FindUint16(unsigned short value);
    int FindUint32(unsigned int value);
    int FindUint64(uint64_t value);
    // 00 00 01 xx; code receives xx.
    int MpegNextStartCode(unsigned char* code);
    // First 4-byte window w with (w & mask) == value; word receives w.
    int MpegAudioNextSyncWord(unsigned int* word, unsigned int mask, unsigned int value);
    // FF followed by anything but 00 (FF FF matches); marker receives it.
    int JpegNextMarker(unsigned char* marker);
    // FF followed by neither 00 nor FF.
    int JpegNextMarkerSkipStuff(unsigned char* marker);

  private:
    uint64_t ReadSlow(int n);
    uint8_t TakeByte();
    void NextElement();
    void MoveToEnd();
    void PlaceAfterMatch(int element, int offsetAfter, int position);
    template <bool kReverse, typename Match>
    int Scan(int n, Match match, uint64_t* window);
    template <typename Match>
    int Search(int n, Match match, uint64_t* window);

    int m_nInited = 0;
    int m_nError = 0;
    int m_nBitReverse = 0;
    int m_nAccessMode = 0;  // flags & 3
    int m_nBigEndian = 1;
    NDataStreamBufferInfoTag* m_pChain = nullptr;
    int m_nChainCount = 0;  // usable elements
    unsigned char* m_pPad = nullptr;
    int m_nPadSize = 0;
    int m_nTotalSize = 0;
    int m_nPos = 0;
    int m_nElement = 0;
    unsigned char* m_pCur = nullptr;
    int m_nLeft = 0;
    int m_nGivenCount = 0;  // chain length as the caller passed it
};
