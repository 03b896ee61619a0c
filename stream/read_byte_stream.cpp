// Byte reader over a chain of caller blocks.
//
// Reads that fit in the current block take the fast path (one unaligned
// load, a byte swap and optional per-byte bit reversal); everything else goes
// byte by byte through TakeByte, which owns the chain and pad-buffer
// bookkeeping. Searches run a sliding window over each block in a tight loop
// and only touch the bookkeeping at block edges and on a match.
// The reader never allocates, and never dereferences anything but the
// caller's blocks and pad (or its own one-byte stand-in pad).
#include "ncodecbase/read_byte_stream.h"

#include <cstring>

#include "stream/stream_util.h"

using ncb_stream::kBitReverse;

namespace {
unsigned char g_zeroPad[1] = {0};
}

CNReadByteStream::CNReadByteStream() = default;

CNReadByteStream::~CNReadByteStream() { m_nInited = 0; }

int CNReadByteStream::Init(int flags, NDataStreamBufferInfoTag* chain, int count,
                           unsigned char* pad, int padSize) {
    m_nAccessMode = flags & 3;
    m_nBigEndian = (flags & 1) ? 0 : 1;
    m_nBitReverse = (flags & 2) ? 0 : 1;
    m_pChain = chain;
    m_nGivenCount = count;
    m_nChainCount = ncb_stream::UsableElements(chain, count);
    if (pad && padSize >= 1) {
        m_pPad = pad;
        m_nPadSize = padSize;
    } else {
        m_pPad = g_zeroPad;
        m_nPadSize = 1;
    }
    m_nTotalSize = ncb_stream::ChainBytes(chain, m_nChainCount);
    m_nPos = 0;
    m_nError = 0;
    m_nElement = 0;
    if (m_nChainCount > 0) {
        m_pCur = chain[0].pBuffer;
        m_nLeft = chain[0].nSize;
    } else {
        m_pCur = m_pPad;
        m_nLeft = 0;
    }
    m_nInited = 1;
    return 1;
}

int CNReadByteStream::Uninit() {
    m_nInited = 0;
    return m_nError ? 0 : 1;
}

// Called when the current block (or pass over the pad) has just been used up.
void CNReadByteStream::NextElement() {
    if (m_nElement + 1 < m_nChainCount) {
        ++m_nElement;
        m_pCur = m_pChain[m_nElement].pBuffer;
        m_nLeft = m_pChain[m_nElement].nSize;
    } else if (m_nElement + 1 == m_nChainCount) {
        // Left the last element: rest at the end with nothing left.
        m_nElement = m_nChainCount;
        m_pCur = m_pPad;
        m_nLeft = 0;
    } else {
        // A pass over the pad buffer is used up: it repeats.
        m_nElement = m_nChainCount + 1;
        m_pCur = m_pPad;
        m_nLeft = m_nPadSize;
    }
}

uint8_t CNReadByteStream::TakeByte() {
    if (m_nLeft == 0) {
        m_pCur = m_pPad;
        m_nLeft = m_nPadSize;
        m_nError = 1;
    }
    uint8_t b = *m_pCur++;
    if (--m_nLeft == 0) NextElement();
    return m_nBitReverse ? kBitReverse[b] : b;
}

uint64_t CNReadByteStream::ReadSlow(int n) {
    uint64_t v = 0;
    if (m_nBigEndian) {
        for (int i = 0; i < n; ++i) v = (v << 8) | TakeByte();
    } else {
        for (int i = 0; i < n; ++i) v |= static_cast<uint64_t>(TakeByte()) << (8 * i);
    }
    m_nPos = ncb_stream::SatAdd(m_nPos, n);
    return v;
}

uint8_t CNReadByteStream::ReadUint8() {
    if (m_nLeft > 1) {
        uint8_t b = *m_pCur++;
        --m_nLeft;
        ++m_nPos;
        return m_nBitReverse ? kBitReverse[b] : b;
    }
    return static_cast<uint8_t>(ReadSlow(1));
}

namespace {
// Assembles n bytes loaded in stream order (first byte lowest) per the mode.
template <typename T>
T Assemble(T raw, int bigEndian, int reverse) {
    if (reverse) raw = static_cast<T>(ncb_stream::ReverseBitsInBytes(raw));
    if (bigEndian) {
        if constexpr (sizeof(T) == 2) raw = __builtin_bswap16(raw);
        if constexpr (sizeof(T) == 4) raw = __builtin_bswap32(raw);
        if constexpr (sizeof(T) == 8) raw = __builtin_bswap64(raw);
    }
    return raw;
}
}  // namespace

uint16_t CNReadByteStream::ReadUint16() {
    if (m_nLeft > 2) {
        uint16_t raw;
        std::memcpy(&raw, m_pCur, 2);
        m_pCur += 2;
        m_nLeft -= 2;
        m_nPos += 2;
        return Assemble(raw, m_nBigEndian, m_nBitReverse);
    }
    return static_cast<uint16_t>(ReadSlow(2));
}

uint32_t CNReadByteStream::ReadUint32() {
    if (m_nLeft > 4) {
        uint32_t raw;
        std::memcpy(&raw, m_pCur, 4);
        m_pCur += 4;
        m_nLeft -= 4;
        m_nPos += 4;
        return Assemble(raw, m_nBigEndian, m_nBitReverse);
    }
    return static_cast<uint32_t>(ReadSlow(4));
}

uint64_t CNReadByteStream::ReadUint64() {
    if (m_nLeft > 8) {
        uint64_t raw;
        std::memcpy(&raw, m_pCur, 8);
        m_pCur += 8;
        m_nLeft -= 8;
        m_nPos += 8;
        return Assemble(raw, m_nBigEndian, m_nBitReverse);
    }
    return ReadSlow(8);
}

void CNReadByteStream::ReadBuffer(unsigned char* dest, int count) {
    if (count < 1 || !dest) return;
    int todo = count;
    while (todo > 0) {
        if (m_nLeft == 0) {
            m_pCur = m_pPad;
            m_nLeft = m_nPadSize;
            m_nError = 1;
        }
        int run = todo < m_nLeft ? todo : m_nLeft;
        if (m_nBitReverse) {
            for (int i = 0; i < run; ++i) dest[i] = kBitReverse[m_pCur[i]];
        } else {
            std::memcpy(dest, m_pCur, static_cast<size_t>(run));
        }
        dest += run;
        todo -= run;
        m_pCur += run;
        m_nLeft -= run;
        if (m_nLeft == 0) NextElement();
    }
    m_nPos = ncb_stream::SatAdd(m_nPos, count);
}

void CNReadByteStream::MoveToEnd() {
    m_nPos = m_nTotalSize;
    m_nElement = m_nChainCount;
    m_pCur = m_pPad;
    m_nLeft = 0;
}

void CNReadByteStream::SetCurPos(int position) {
    if (position < 0) {
        m_nError = 1;
        position = 0;
    }
    if (position < m_nTotalSize) {
        int rest = position;
        int e = 0;
        while (rest >= m_pChain[e].nSize) rest -= m_pChain[e++].nSize;
        m_nElement = e;
        m_pCur = m_pChain[e].pBuffer + rest;
        m_nLeft = m_pChain[e].nSize - rest;
    } else if (position == m_nTotalSize) {
        MoveToEnd();
    } else {
        m_nError = 1;
        int into = static_cast<int>((static_cast<int64_t>(position) - m_nTotalSize) % m_nPadSize);
        m_nElement = m_nChainCount + 1;
        m_pCur = m_pPad + into;
        m_nLeft = m_nPadSize - into;
    }
    m_nPos = position;
}

void CNReadByteStream::Skip(int count) { SetCurPos(ncb_stream::SatAdd(m_nPos, count)); }

int CNReadByteStream::GetCurPos(int* element, int* offset) {
    if (element) *element = m_nElement;
    if (offset) {
        *offset = m_nElement < m_nChainCount ? m_pChain[m_nElement].nSize - m_nLeft : 0;
    }
    return m_nPos;
}

unsigned char* CNReadByteStream::GetCurDataAddress(int* bytesLeft) {
    if (bytesLeft) *bytesLeft = m_nLeft;
    return m_pCur;
}

int CNReadByteStream::GetBufferInfo(NDataStreamBufferInfoTag** chain) {
    if (chain) *chain = m_pChain;
    return m_nGivenCount;
}

void CNReadByteStream::PlaceAfterMatch(int element, int offsetAfter, int position) {
    m_nPos = position;
    m_nElement = element;
    if (offsetAfter < m_pChain[element].nSize) {
        m_pCur = m_pChain[element].pBuffer + offsetAfter;
        m_nLeft = m_pChain[element].nSize - offsetAfter;
    } else {
        NextElement();
    }
}

// Slides an n-byte window over the chain bytes from the current position.
// `match` sees the window masked to n bytes, earliest byte most significant.
template <bool kReverse, typename Match>
int CNReadByteStream::Scan(int n, Match match, uint64_t* window) {
    const uint64_t mask = n == 8 ? ~0ull : (1ull << (8 * n)) - 1;
    uint64_t w = 0;
    int taken = 0;
    int e = m_nElement;
    const unsigned char* p = m_pCur;
    int left = m_nLeft;
    int base = m_nPos;  // position of p[0]
    for (;;) {
        for (int i = 0; i < left; ++i) {
            unsigned char b = kReverse ? kBitReverse[p[i]] : p[i];
            w = (w << 8) | b;
            if (++taken >= n && match(w & mask)) {
                *window = w & mask;
                int offsetAfter = static_cast<int>(p + i + 1 - m_pChain[e].pBuffer);
                PlaceAfterMatch(e, offsetAfter, base + i + 1);
                return m_nPos;
            }
        }
        base += left;
        if (++e >= m_nChainCount) break;
        p = m_pChain[e].pBuffer;
        left = m_pChain[e].nSize;
    }
    MoveToEnd();
    return -1;
}

template <typename Match>
int CNReadByteStream::Search(int n, Match match, uint64_t* window) {
    if (m_nPos >= m_nTotalSize - (n - 1)) {
        if (m_nPos < m_nTotalSize) MoveToEnd();
        return -1;
    }
    return m_nBitReverse ? Scan<true>(n, match, window) : Scan<false>(n, match, window);
}

int CNReadByteStream::FindUint8(unsigned char value) {
    uint64_t w;
    return Search(
        1, [value](uint64_t x) { return x == value; }, &w);
}

int CNReadByteStream::FindUint16(unsigned short value) {
    uint64_t w;
    return Search(
        2, [value](uint64_t x) { return x == value; }, &w);
}

int CNReadByteStream::FindUint32(unsigned int value) {
    uint64_t w;
    return Search(
        4, [value](uint64_t x) { return x == value; }, &w);
}

int CNReadByteStream::FindUint64(uint64_t value) {
    uint64_t w;
    return Search(
        8, [value](uint64_t x) { return x == value; }, &w);
}

int CNReadByteStream::MpegNextStartCode(unsigned char* code) {
    uint64_t w;
    int r = Search(
        4, [](uint64_t x) { return (x & ~0xFFull) == 0x100; }, &w);
    if (r >= 0 && code) *code = static_cast<unsigned char>(w);
    return r;
}

int CNReadByteStream::MpegAudioNextSyncWord(unsigned int* word, unsigned int mask,
                                            unsigned int value) {
    uint64_t w;
    int r = Search(
        4, [mask, value](uint64_t x) { return (x & mask) == value; }, &w);
    if (r >= 0 && word) *word = static_cast<unsigned int>(w);
    return r;
}

int CNReadByteStream::JpegNextMarker(unsigned char* marker) {
    uint64_t w;
    int r = Search(
        2, [](uint64_t x) { return (x >> 8) == 0xFF && (x & 0xFF) != 0; }, &w);
    if (r >= 0 && marker) *marker = static_cast<unsigned char>(w);
    return r;
}

int CNReadByteStream::JpegNextMarkerSkipStuff(unsigned char* marker) {
    uint64_t w;
    int r = Search(
        2, [](uint64_t x) { return (x >> 8) == 0xFF && (x & 0xFF) != 0 && (x & 0xFF) != 0xFF; },
        &w);
    if (r >= 0 && marker) *marker = static_cast<unsigned char>(w);
    return r;
}
