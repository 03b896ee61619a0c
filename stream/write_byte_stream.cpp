// Byte writer over a chain of caller blocks.
//
// Values are split into bytes in stream order once (byte swap and optional
// per-byte bit reversal on the whole word); a write that fits in the current
// element is one store, anything else goes byte by byte so the element
// bookkeeping lives in one place. Nothing is allocated, and no byte is ever
// stored outside the caller's elements: in the end state the current address
// is null and stores are dropped.
#include "ncodecbase/write_byte_stream.h"

#include <cstring>

#include "stream/stream_util.h"

using ncb_stream::kBitReverse;

CNWriteByteStream::CNWriteByteStream() = default;

CNWriteByteStream::~CNWriteByteStream() { m_nInited = 0; }

int CNWriteByteStream::Init(int flags, NDataStreamBufferInfoTag* chain, int count) {
    m_nAccessMode = flags & 3;
    m_nBigEndian = (flags & 1) ? 0 : 1;
    m_nBitReverse = (flags & 2) ? 0 : 1;
    m_pChain = chain;
    m_nGivenCount = count;
    m_nChainCount = ncb_stream::UsableElements(chain, count);
    m_nTotalSize = ncb_stream::ChainBytes(chain, m_nChainCount);
    m_nPos = 0;
    m_nError = 0;
    m_nElement = 0;
    if (m_nChainCount > 0) {
        m_pCur = chain[0].pBuffer;
        m_nLeft = chain[0].nSize;
    } else {
        EnterEndState();
    }
    m_nInited = 1;
    return 1;
}

int CNWriteByteStream::Uninit() {
    m_nInited = 0;
    return m_nError ? 0 : 1;
}

void CNWriteByteStream::EnterEndState() {
    m_nElement = m_nChainCount;
    m_pCur = nullptr;
    m_nLeft = 0;
}

void CNWriteByteStream::NextElement() {
    if (++m_nElement < m_nChainCount) {
        m_pCur = m_pChain[m_nElement].pBuffer;
        m_nLeft = m_pChain[m_nElement].nSize;
    } else {
        EnterEndState();
    }
}

// value holds the n bytes in stream order, first byte in the lowest 8 bits,
// already bit-reversed where asked.
void CNWriteByteStream::WriteBytes(uint64_t value, int n) {
    if (m_nLeft > n) {
        std::memcpy(m_pCur, &value, static_cast<size_t>(n));
        m_pCur += n;
        m_nLeft -= n;
        m_nPos += n;
        return;
    }
    for (int i = 0; i < n; ++i) {
        if (!m_pCur) {
            m_nError = 1;
            break;
        }
        *m_pCur++ = static_cast<unsigned char>(value >> (8 * i));
        if (--m_nLeft == 0) NextElement();
    }
    m_nPos = ncb_stream::SatAdd(m_nPos, n);
}

namespace {
// Puts the low n bytes of v into stream order (first byte lowest).
uint64_t StreamOrder(uint64_t v, int n, int bigEndian, int reverse) {
    if (bigEndian) v = __builtin_bswap64(v) >> (64 - 8 * n);
    if (reverse) v = ncb_stream::ReverseBitsInBytes(v);
    return v;
}
}  // namespace

void CNWriteByteStream::WriteUint8(uint8_t value) {
    if (!m_pCur) {
        m_nError = 1;  // a dropped single byte does not move the position
        return;
    }
    WriteBytes(m_nBitReverse ? kBitReverse[value] : value, 1);
}

void CNWriteByteStream::WriteUint16(uint16_t value) {
    WriteBytes(StreamOrder(value, 2, m_nBigEndian, m_nBitReverse), 2);
}

void CNWriteByteStream::WriteUint32(uint32_t value) {
    WriteBytes(StreamOrder(value, 4, m_nBigEndian, m_nBitReverse), 4);
}

void CNWriteByteStream::WriteUint64(uint64_t value) {
    WriteBytes(StreamOrder(value, 8, m_nBigEndian, m_nBitReverse), 8);
}

void CNWriteByteStream::WriteBuffer(unsigned char* source, int count) {
    if (count < 1 || !source) return;
    int todo = count;
    while (todo > 0) {
        if (!m_pCur) {
            m_nError = 1;
            break;
        }
        int run = todo < m_nLeft ? todo : m_nLeft;
        if (m_nBitReverse) {
            for (int i = 0; i < run; ++i) m_pCur[i] = kBitReverse[source[i]];
        } else {
            std::memcpy(m_pCur, source, static_cast<size_t>(run));
        }
        source += run;
        todo -= run;
        m_pCur += run;
        m_nLeft -= run;
        if (m_nLeft == 0) NextElement();
    }
    m_nPos = ncb_stream::SatAdd(m_nPos, count);
}

void CNWriteByteStream::SetCurPos(int position) {
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
    } else {
        if (position > m_nTotalSize) m_nError = 1;
        EnterEndState();
    }
    m_nPos = position;
}

void CNWriteByteStream::Skip(int count) { SetCurPos(ncb_stream::SatAdd(m_nPos, count)); }

int CNWriteByteStream::GetCurPos(int* element, int* offset) {
    if (element) *element = m_nElement;
    if (offset) {
        *offset = m_nElement < m_nChainCount ? m_pChain[m_nElement].nSize - m_nLeft : 0;
    }
    return m_nPos;
}

int CNWriteByteStream::GetBufferInfo(NDataStreamBufferInfoTag** chain) {
    if (chain) *chain = m_pChain;
    return m_nGivenCount;
}
