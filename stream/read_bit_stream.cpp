// Bit reader core: initialisation, loading with escape removal, seeking.
//
// The window (64 bits, left-aligned) is topped up by exactly one load when a
// request needs more bits than it holds: 32 payload bits in the plain, H.264
// and JPEG modes, four raw bytes (28 to 32 payload bits) in AVS mode. Loads
// that stay inside the current block and meet no possible escape take one
// unaligned 32-bit load; all other bytes go through LoadPayloadByte, the one
// place that knows the escape rules, the chain and the pad buffer.
// The bit limit drops by each escape's removed bits only for escape bytes
// inside the chain, and only once per raw byte even after backward seeks.
#include "ncodecbase/read_bit_stream.h"

#include "stream/stream_util.h"

using ncb_stream::kBitReverse;

namespace {
unsigned char g_zeroPad[1] = {0};

int ClampBits(int bits) { return bits >= 1 && bits <= 8 ? bits : 8; }
}  // namespace

CNReadBitStream::CNReadBitStream() = default;

CNReadBitStream::~CNReadBitStream() { m_nInited = 0; }

int CNReadBitStream::Init(int mode, int flags, NDataStreamBufferInfoTag* chain, int count,
                          unsigned char* pad, int padSize, int firstBits, int lastBits) {
    m_nMode = mode >= 0 && mode <= 3 ? mode : 0;
    m_nBitReverse = (flags & 1) ? 0 : 1;
    m_nLoadMode = (m_nMode == 0 && !m_nBitReverse) ? 1 : 2;
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
    m_nFirstBits = ClampBits(firstBits);
    m_nLastBits = ClampBits(lastBits);
    int64_t bytes = ncb_stream::ChainBytes(chain, m_nChainCount);
    int64_t total = bytes > 0 ? 8 * bytes + m_nFirstBits + m_nLastBits - 16 : 0;
    if (total < 0) total = 0;
    m_nTotalBits = total > INT32_MAX ? INT32_MAX : static_cast<int>(total);
    m_nLimit = m_nTotalBits;
    m_nPos = 0;
    m_nBitStatBase = 0;
    m_nError = 0;
    m_uWindow = 0;
    m_nWindowBits = 0;
    m_nNextBits = 0;
    m_nZeroRun = 0;
    m_nEscapeMark = 0;
    m_uCabacRange = 510;
    m_uCabacOffset = 0;
    StartAtElement(0, 0);
    if (m_nFirstBits != 8) {
        uint32_t v;
        int got = LoadPayloadByte(&v);
        int keep = got < m_nFirstBits ? got : m_nFirstBits;
        AppendBits(v & ((1u << keep) - 1), keep);
    }
    m_nInited = 1;
    return 1;
}

int CNReadBitStream::Uninit(int* usedBits) {
    if (usedBits) *usedBits = m_nPos;
    m_nInited = 0;
    return m_nError ? 0 : 1;
}

int CNReadBitStream::GetBufferInfo(NDataStreamBufferInfoTag** chain) {
    if (chain) *chain = m_pChain;
    return m_nGivenCount;
}

// Places the loader at byte `offset` of element `element`, or at the pad
// buffer's start when the element is past the chain.
void CNReadBitStream::StartAtElement(int element, int offset) {
    int64_t start = 0;
    for (int i = 0; i < element && i < m_nChainCount; ++i) start += m_pChain[i].nSize;
    m_nElementStart = start;
    if (element < m_nChainCount) {
        m_nElement = element;
        m_pCur = m_pChain[element].pBuffer + offset;
        m_nLeft = m_pChain[element].nSize - offset;
    } else {
        m_nElement = m_nChainCount;
        m_pCur = m_pPad;
        m_nLeft = m_nPadSize;
    }
}

// Takes the next raw byte (bit-reversed if asked); never rests on an empty
// block: after a block's last byte it moves on, after the chain's last block
// to the pad buffer, which repeats.
uint32_t CNReadBitStream::NextRawByte(bool* inChain) {
    *inChain = m_nElement < m_nChainCount;
    uint32_t b = *m_pCur++;
    if (--m_nLeft == 0) {
        if (m_nElement < m_nChainCount) {
            m_nElementStart += m_pChain[m_nElement].nSize;
            ++m_nElement;
        }
        if (m_nElement < m_nChainCount) {
            m_pCur = m_pChain[m_nElement].pBuffer;
            m_nLeft = m_pChain[m_nElement].nSize;
        } else {
            m_pCur = m_pPad;
            m_nLeft = m_nPadSize;
        }
    }
    return m_nBitReverse ? kBitReverse[b] : b;
}

// `bits` escape bits were just removed from the raw byte before the loader.
void CNReadBitStream::LowerLimitForEscape(int bits) {
    int64_t index = m_nElementStart - 1;
    if (m_nElement < m_nChainCount) index += m_pChain[m_nElement].nSize - m_nLeft;
    if (index < m_nEscapeMark) return;
    m_nEscapeMark = index + 1;
    m_nLimit -= bits;
}

// Next payload byte under the mode's escape rule; returns its bit count (8,
// or 6 for an AVS escape byte, whose payload bits are zero).
int CNReadBitStream::LoadPayloadByte(uint32_t* value) {
    for (;;) {
        bool inChain;
        uint32_t b = NextRawByte(&inChain);
        switch (m_nMode) {
            case 1:
                if (m_nZeroRun == 2 && b == 3) {
                    m_nZeroRun = 0;
                    if (inChain) LowerLimitForEscape(8);
                    continue;
                }
                m_nZeroRun = b ? 0 : (m_nZeroRun < 2 ? m_nZeroRun + 1 : 2);
                break;
            case 2:
                if (m_nZeroRun == 2 && b == 2) {
                    m_nZeroRun = 0;
                    if (inChain) LowerLimitForEscape(2);
                    *value = 0;
                    return 6;
                }
                m_nZeroRun = b ? 0 : (m_nZeroRun < 2 ? m_nZeroRun + 1 : 2);
                break;
            case 3:
                if (b == 0xFF) {
                    bool stuffInChain;
                    uint32_t stuff = NextRawByte(&stuffInChain);
                    if (stuffInChain) LowerLimitForEscape(8);
                    if (stuff != 0 || !inChain) m_nError = 1;
                }
                break;
            default:
                break;
        }
        *value = b;
        return 8;
    }
}

void CNReadBitStream::Refill(int n) {
    if (m_nMode == 2) {
        uint32_t word = 0;
        int got = 0;
        for (int i = 0; i < 4; ++i) {
            uint32_t v;
            int bits = LoadPayloadByte(&v);
            word = (word << bits) | v;
            got += bits;
        }
        AppendBits(word, got);
        m_nNextBits = got;
        if (n > m_nWindowBits) {
            // Shift the next word's front into the cache and top it up by a byte.
            m_nNextBits -= m_nNextBits == 28 ? 4 : 6;
            uint32_t v;
            int bits = LoadPayloadByte(&v);
            AppendBits(v, bits);
            m_nNextBits += bits;
        }
        return;
    }
    if (m_nLeft > 4) {
        uint32_t raw = ncb_stream::LoadBe32(m_pCur);
        if (m_nBitReverse) raw = ncb_stream::ReverseBitsInBytes32(raw);
        bool plain = m_nMode == 0;
        if (m_nMode == 1) {
            plain = !ncb_stream::HasZeroByte(raw) && (m_nZeroRun < 2 || (raw >> 24) != 3);
            if (plain) m_nZeroRun = 0;
        } else if (m_nMode == 3) {
            plain = !ncb_stream::HasZeroByte(~raw);
        }
        if (plain) {
            m_pCur += 4;
            m_nLeft -= 4;
            AppendBits(raw, 32);
            m_nNextBits = 32;
            return;
        }
    }
    uint32_t word = 0;
    for (int i = 0; i < 4; ++i) {
        uint32_t v;
        LoadPayloadByte(&v);
        word = (word << 8) | v;
    }
    AppendBits(word, 32);
    m_nNextBits = 32;
}

void CNReadBitStream::SetCurPos(int bits) {
    if (bits < 0) {
        m_nError = 1;
        bits = 0;
    }
    m_uWindow = 0;
    m_nWindowBits = 0;
    m_nNextBits = 0;
    if (bits > m_nTotalBits) m_nError = 1;
    int64_t raw = static_cast<int64_t>(bits) + 8 - m_nFirstBits;
    int64_t byte = raw >> 3;
    int skip = static_cast<int>(raw & 7);
    if (bits >= m_nTotalBits) {
        // Past the data: where the repeating pad buffer would be.
        StartAtElement(m_nChainCount, 0);
        int64_t bytes = m_nElementStart;
        if (byte >= bytes) {
            int into = static_cast<int>((byte - bytes) % m_nPadSize);
            m_pCur = m_pPad + into;
            m_nLeft = m_nPadSize - into;
        } else {
            skip = 0;
        }
    } else {
        int e = 0;
        while (e < m_nChainCount && byte >= m_pChain[e].nSize) byte -= m_pChain[e++].nSize;
        StartAtElement(e, e < m_nChainCount ? static_cast<int>(byte) : 0);
    }
    uint32_t v;
    int got = LoadPayloadByte(&v);
    if (got > skip) AppendBits(v & ((1u << (got - skip)) - 1), got - skip);
    m_nBitStatBase = static_cast<int>(static_cast<unsigned>(m_nBitStatBase) +
                                      static_cast<unsigned>(bits) - static_cast<unsigned>(m_nPos));
    m_nPos = bits;
}

void CNReadBitStream::MakeByteAlign() {
    int n = (m_nWindowBits - m_nNextBits) & 7;
    if (n) RemoveBits(n);
}

int CNReadBitStream::H264MoreRbspData() {
    int64_t r = static_cast<int64_t>(m_nLimit) - m_nPos;
    if (r > 8) return 1;
    if (r < 2) return 0;
    int n = static_cast<int>(r);
    return GetBitsUint32(n) == (1u << (n - 1)) ? 0 : 1;
}
