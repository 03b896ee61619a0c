// Bit writer core: accumulator, escape insertion, seeking and the end modes.
//
// Bits collect in a 64-bit accumulator; as soon as it holds 32 they leave as
// four bytes. A group that stays inside the current element and cannot need
// an escape is stored with one 32-bit store; every other byte goes through
// EmitByte (or EmitAvsByte, which works on bit boundaries because an AVS
// escape byte carries six payload bits), the one place that knows the escape
// rules, and StoreByte, the one place that touches the chain. Nothing is
// allocated and no byte is stored outside the caller's elements.
#include "ncodecbase/write_bit_stream.h"

#include "stream/stream_util.h"

using ncb_stream::kBitReverse;

CNWriteBitStream::CNWriteBitStream() = default;

CNWriteBitStream::~CNWriteBitStream() { m_nInited = 0; }

int CNWriteBitStream::Init(int mode, int flags, NDataStreamBufferInfoTag* chain, int count,
                           int startBits) {
    m_nMode = mode >= 0 && mode <= 3 ? mode : 0;
    m_nBitReverse = (flags & 1) ? 0 : 1;
    m_nStoreMode = (m_nMode == 0 && !m_nBitReverse) ? 1 : 2;
    m_pChain = chain;
    m_nGivenCount = count;
    m_nChainCount = ncb_stream::UsableElements(chain, count);
    int64_t bytes = ncb_stream::ChainBytes(chain, m_nChainCount);
    m_nStartBits = startBits >= 0 && startBits <= 7 && bytes > 0 ? startBits : 0;
    int64_t total = 8 * bytes - m_nStartBits;
    m_nTotalBits = total > INT32_MAX ? INT32_MAX : static_cast<int>(total);
    m_nWrittenBits = 0;
    m_nInsertedBits = 0;
    m_nBitStat = 0;
    m_nError = 0;
    m_nZeroRun = 0;
    m_nLastByteZero = 0;
    m_uAcc = 0;
    m_nAccBits = 0;
    m_nElement = 0;
    if (m_nChainCount > 0) {
        m_pCur = chain[0].pBuffer;
        m_nLeft = chain[0].nSize;
    } else {
        EnterEndState();
    }
    if (m_nStartBits > 0) {
        m_uAcc = static_cast<uint64_t>(DestinationByte() >> (8 - m_nStartBits))
                 << (64 - m_nStartBits);
        m_nAccBits = m_nStartBits;
    }
    m_uCabacRange = 510;
    m_uCabacLow = 0;
    m_nCabacFirstBit = 1;
    m_nCabacOutstanding = 0;
    m_nCabacBins = 0;
    m_nCabacEndEnable = 0;
    m_nInited = 1;
    return 1;
}

int CNWriteBitStream::GetBufferInfo(NDataStreamBufferInfoTag** chain) {
    if (chain) *chain = m_pChain;
    return m_nGivenCount;
}

void CNWriteBitStream::EnterEndState() {
    m_nElement = m_nChainCount;
    m_pCur = nullptr;
    m_nLeft = 0;
}

void CNWriteBitStream::NextElement() {
    if (++m_nElement < m_nChainCount) {
        m_pCur = m_pChain[m_nElement].pBuffer;
        m_nLeft = m_pChain[m_nElement].nSize;
    } else {
        EnterEndState();
    }
}

// The byte at the current address as the payload sees it (0 past the end).
uint32_t CNWriteBitStream::DestinationByte() {
    if (!m_pCur) return 0;
    return m_nBitReverse ? kBitReverse[*m_pCur] : *m_pCur;
}

void CNWriteBitStream::StoreByte(uint32_t b) {
    m_nLastByteZero = b == 0;
    if (!m_pCur) {
        m_nError = 1;
        return;
    }
    *m_pCur++ = m_nBitReverse ? kBitReverse[b] : static_cast<unsigned char>(b);
    if (--m_nLeft == 0) NextElement();
}

void CNWriteBitStream::EmitByte(uint32_t b) {
    if (m_nMode == 1) {
        if (m_nZeroRun == 2 && b <= 3) {
            StoreByte(3);
            m_nInsertedBits += 8;
            m_nZeroRun = 0;
        }
        m_nZeroRun = b ? 0 : (m_nZeroRun < 2 ? m_nZeroRun + 1 : 2);
        StoreByte(b);
    } else if (m_nMode == 3) {
        StoreByte(b);
        if (b == 0xFF) {
            StoreByte(0);
            m_nInsertedBits += 8;
        }
    } else {
        StoreByte(b);
    }
}

// One AVS output byte from the front of the accumulator (at least 8 bits).
void CNWriteBitStream::EmitAvsByte() {
    uint32_t top = static_cast<uint32_t>(m_uAcc >> 56);
    if (m_nZeroRun == 2 && top < 4) {
        StoreByte(2);
        m_uAcc <<= 6;
        m_nAccBits -= 6;
        m_nInsertedBits += 2;
        m_nZeroRun = 0;
        return;
    }
    StoreByte(top);
    m_uAcc <<= 8;
    m_nAccBits -= 8;
    m_nZeroRun = top ? 0 : (m_nZeroRun < 2 ? m_nZeroRun + 1 : 2);
}

void CNWriteBitStream::EmitWord() {
    if (m_nMode == 2) {
        // Escape bytes carry only six bits, so go on until fewer than 32
        // remain: the accumulator must keep room for a 32-bit write.
        while (m_nAccBits >= 32) EmitAvsByte();
        return;
    }
    uint32_t w = static_cast<uint32_t>(m_uAcc >> 32);
    m_uAcc <<= 32;
    m_nAccBits -= 32;
    if (m_nLeft > 4) {
        bool direct = m_nMode == 0;
        if (m_nMode == 1) {
            direct = !ncb_stream::HasZeroByte(w) && (m_nZeroRun < 2 || (w >> 24) > 3);
            if (direct) m_nZeroRun = 0;
        } else if (m_nMode == 3) {
            direct = !ncb_stream::HasZeroByte(~w);
        }
        if (direct) {
            ncb_stream::StoreBe32(m_pCur, m_nBitReverse ? ncb_stream::ReverseBitsInBytes32(w) : w);
            m_pCur += 4;
            m_nLeft -= 4;
            m_nLastByteZero = (w & 0xFF) == 0;
            return;
        }
    }
    for (int shift = 24; shift >= 0; shift -= 8) EmitByte((w >> shift) & 0xFF);
}

void CNWriteBitStream::EmitWholeBytes() {
    while (m_nAccBits >= 8) {
        if (m_nMode == 2) {
            EmitAvsByte();
            continue;
        }
        uint32_t b = static_cast<uint32_t>(m_uAcc >> 56);
        m_uAcc <<= 8;
        m_nAccBits -= 8;
        EmitByte(b);
    }
}

void CNWriteBitStream::MakeByteAlign(int fill) {
    int pad = (8 - ((m_nStartBits + m_nWrittenBits) & 7)) & 7;
    if (pad) WriteBitsUint32(fill == 1 ? 0u : 0xFFu, pad);
}

void CNWriteBitStream::SetCurPos(int bits) {
    EmitWholeBytes();
    if (m_nAccBits > 0 && m_pCur) {
        uint32_t keep = (1u << (8 - m_nAccBits)) - 1;
        uint32_t b = static_cast<uint32_t>(m_uAcc >> 56) | (DestinationByte() & keep);
        *m_pCur = m_nBitReverse ? kBitReverse[b] : static_cast<unsigned char>(b);
    }
    m_uAcc = 0;
    m_nAccBits = 0;
    if (bits < 0) {
        m_nError = 1;
        bits = 0;
    }
    if (bits >= m_nTotalBits) {
        EnterEndState();
    } else {
        int64_t raw = static_cast<int64_t>(bits) + m_nStartBits;
        int64_t byte = raw >> 3;
        int lead = static_cast<int>(raw & 7);
        int e = 0;
        while (byte >= m_pChain[e].nSize) byte -= m_pChain[e++].nSize;
        m_nElement = e;
        m_pCur = m_pChain[e].pBuffer + byte;
        m_nLeft = m_pChain[e].nSize - static_cast<int>(byte);
        if (lead) {
            m_uAcc = static_cast<uint64_t>(DestinationByte() >> (8 - lead)) << (64 - lead);
            m_nAccBits = lead;
        }
    }
    m_nWrittenBits = bits;
}

void CNWriteBitStream::AppendCabacZeroWords() {
    int64_t words = 0;
    if (m_nCabacEndEnable) {
        int64_t bins = static_cast<int64_t>(m_nCabacBins) + m_nCabacExtraBins;
        int64_t need = 3 * (32 * bins - 12 * static_cast<int64_t>(m_nCabacWidth) * m_nCabacHeight);
        int64_t k = need > 0 ? (need + 1023) / 1024 : 0;
        int64_t written =
            (static_cast<int64_t>(m_nStartBits) + m_nWrittenBits + m_nInsertedBits) / 8;
        int64_t missing = k - written - m_nCabacExtraBytes;
        words = missing > 0 ? (missing + 2) / 3 : 0;
    }
    for (int64_t i = 0; i < words && !m_nError; ++i) {
        EmitByte(0);
        EmitByte(0);
        m_nWrittenBits += 16;
        StoreByte(3);
        m_nInsertedBits += 8;
        m_nZeroRun = 0;
    }
    if (words == 0 && m_nLastByteZero) {
        StoreByte(3);
        m_nInsertedBits += 8;
        m_nZeroRun = 0;
    }
}

int CNWriteBitStream::Uninit(int endMode, int* writtenBits, int* insertedBits) {
    bool accepted = true;
    if (m_nMode == 1) {
        if (endMode == 0) endMode = 5;
        if (endMode == 5 || endMode == 4) {
            if (endMode == 5) WriteBitsUint32(1, 1);
            MakeByteAlign(1);
            EmitWholeBytes();
            if (endMode == 4) AppendCabacZeroWords();
        } else {
            accepted = false;
        }
    } else if (m_nMode == 3) {
        if (endMode == 0 || endMode == 3) {
            MakeByteAlign(0);
            EmitWholeBytes();
        } else {
            accepted = false;
        }
    } else if (m_nMode == 2) {
        if (endMode == 0 || endMode == 3) {
            EmitWholeBytes();
            if (m_nZeroRun == 2 && m_nAccBits >= 6 && (m_uAcc >> 58) == 0) {
                StoreByte(2);  // the pending escape carries the six zero bits
                m_uAcc <<= 6;
                m_nAccBits -= 6;
                m_nInsertedBits += 2;
                m_nZeroRun = 0;
            }
            if (m_nAccBits > 0) {
                int pad = 8 - m_nAccBits;
                StoreByte(static_cast<uint32_t>(m_uAcc >> 56) | ((1u << pad) - 1));
                m_nWrittenBits += pad;
            }
        } else {
            accepted = false;
        }
    } else {
        if (endMode == 0) endMode = 1;
        if (endMode >= 1 && endMode <= 3) {
            EmitWholeBytes();
            if (m_nAccBits > 0) {
                int pad = 8 - m_nAccBits;
                uint32_t low = (1u << pad) - 1;
                uint32_t b = static_cast<uint32_t>(m_uAcc >> 56);
                if (endMode == 1) b |= DestinationByte() & low;
                if (endMode == 3) b |= low;
                if (endMode != 1) m_nWrittenBits += pad;
                StoreByte(b);
            }
        } else {
            accepted = false;
        }
    }
    if (accepted) {
        m_uAcc = 0;
        m_nAccBits = 0;
    }
    if (writtenBits) *writtenBits = m_nWrittenBits;
    if (insertedBits) *insertedBits = m_nInsertedBits;
    m_nInited = 0;
    return accepted && !m_nError ? 1 : 0;
}
