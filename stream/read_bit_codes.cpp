// Variable-length decoders on top of the bit reader: H.264 Exp-Golomb (ue,
// se, te), the interleaved Exp-Golomb code, multi-level Huffman look-ups and
// the CABAC decoding engine.
//
// Short Exp-Golomb codes (up to 4 leading zeros) take one 9-bit table
// look-up; longer ones count zeros with a single 24-bit peek instead of a
// bit loop. Every decoder peeks and consumes through the bit reader's public
// operations, so escape removal, limits and the error flag apply unchanged.
// CABAC renormalises with one table look-up and one multi-bit read.
#include "ncodecbase/read_bit_stream.h"
#include "stream/cabac_tables.h"

// Called after a 9-bit peek showed nine zeros. Consumes the zeros and the
// terminating 1 (or 33 zeros when there are more than 32), then reads the
// info bits; *zeros receives the zero count (33: more than 32).
unsigned int CNReadBitStream::UeLong(int zerosSoFar, int* zeros) {
    RemoveBits(zerosSoFar);
    int z = zerosSoFar;
    uint32_t w = GetBitsUint32(24);
    if (w) {
        int k = __builtin_clz(w) - 8;
        z += k;
        RemoveBits(k + 1);
    } else {
        RemoveBits(24);
        z = 33;
    }
    *zeros = z;
    return GetAndRemoveBitsUint32(z > 32 ? 32 : z);
}

unsigned int CNReadBitStream::H264GetUe(unsigned int max) {
    unsigned int e = s_uH264CavlcUeReadTable[GetBitsUint32(9)];
    unsigned int value;
    if (e & 2) {
        RemoveBits((e >> 2) & 15);
        value = e >> 6;
    } else if (e & 1) {
        int z = (e >> 2) & 15;
        RemoveBits(z + 1);
        value = s_uH264UeStartValue[z] + GetAndRemoveBitsUint32(z);
    } else {
        int z;
        unsigned int info = UeLong(9, &z);
        if (z >= 32) {
            value = info - 1;  // 2^32 - 1 + info, wrapped
            if (z > 32 || info != 0) m_nError = 1;
        } else {
            value = s_uH264UeStartValue[z] + info;
        }
    }
    if (value > max) m_nError = 1;
    return value;
}

int CNReadBitStream::H264GetSe(int min, int max) {
    int e = s_uH264CavlcSeReadTable[GetBitsUint32(9)];
    int value;
    if (e & 2) {
        RemoveBits((e >> 2) & 15);
        value = e >> 6;
    } else {
        int z;
        unsigned int info;
        if (e & 1) {
            z = (e >> 2) & 15;
            RemoveBits(z + 1);
            info = GetAndRemoveBitsUint32(z);
        } else {
            info = UeLong(9, &z);
            if (z > 32 || (z == 32 && info != 1)) m_nError = 1;
            if (z > 32) z = 32;
        }
        uint32_t magnitude = s_uH264SeStartValue[z] + (info >> 1);
        value = static_cast<int>((info & 1) ? 0u - magnitude : magnitude);
    }
    if (value < min || value > max) m_nError = 1;
    return value;
}

unsigned int CNReadBitStream::H264GetTe(unsigned int range) {
    if (range == 1) return GetAndRemoveBitsUint32(1) ^ 1u;
    return H264GetUe(range);
}

unsigned int CNReadBitStream::RealGetOneVLC() {
    unsigned int e = s_uHuffr16OneVLCData[GetBitsUint32(11)];
    RemoveBits(static_cast<int>(e & 15) + 1);
    unsigned int value = e >> 4;
    if (value < 63) return value;
    // Past five data bits: go on pair by pair (data bit, then flag bit).
    unsigned int data = value - 63;
    for (int k = 6; k <= 12; ++k) {
        unsigned int pair = GetAndRemoveBitsUint32(2);
        data = (data << 1) | (pair >> 1);
        if (pair & 1) return s_uEscapeBase[k - 6] + data;
    }
    m_nError = 1;
    return 8191;
}

template <typename Entry, typename Mask>
int CNReadBitStream::HuffmanLevels(int peekBits, int invalidValue, int levels, const int* shifts,
                                   const unsigned int* masks, int dataShift, Mask lenMask,
                                   const int* subTableOffsets, const Entry* table, int* length,
                                   bool consume) {
    if (levels < 1) {
        m_nError = 1;
        if (length) *length = 0;
        return invalidValue;
    }
    uint32_t peek = GetBitsUint32(peekBits);
    int offset = 0;
    int total = 0;
    int value = 0;
    for (int l = 0; l < levels; ++l) {
        uint32_t bits = shifts[l] < 32 ? peek >> shifts[l] : 0;
        int entry = table[static_cast<int>(bits & masks[l]) + offset];
        total += static_cast<int>(static_cast<unsigned>(entry) & lenMask) + 1;
        value = entry >> dataShift;
        if (value >= 0) break;
        offset = subTableOffsets[-value];
    }
    if (consume) {
        RemoveBits(total);
    } else if (length) {
        *length = total;
    }
    if (value == invalidValue) m_nError = 1;
    return value;
}

int CNReadBitStream::GetHuffman8(int peekBits, int invalidValue, int levels, const int* shifts,
                                 const unsigned int* masks, int dataShift, unsigned char lenMask,
                                 const int* subTableOffsets, const signed char* table) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, nullptr, true);
}

int CNReadBitStream::GetHuffman16(int peekBits, int invalidValue, int levels, const int* shifts,
                                  const unsigned int* masks, int dataShift, unsigned short lenMask,
                                  const int* subTableOffsets, const short* table) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, nullptr, true);
}

int CNReadBitStream::GetHuffman32(int peekBits, int invalidValue, int levels, const int* shifts,
                                  const unsigned int* masks, int dataShift, unsigned int lenMask,
                                  const int* subTableOffsets, const int* table) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, nullptr, true);
}

int CNReadBitStream::GetHuffman8Try(int peekBits, int invalidValue, int levels, const int* shifts,
                                    const unsigned int* masks, int dataShift, unsigned char lenMask,
                                    const int* subTableOffsets, const signed char* table,
                                    int* length) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, length, false);
}

int CNReadBitStream::GetHuffman16Try(int peekBits, int invalidValue, int levels, const int* shifts,
                                     const unsigned int* masks, int dataShift,
                                     unsigned short lenMask, const int* subTableOffsets,
                                     const short* table, int* length) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, length, false);
}

int CNReadBitStream::GetHuffman32Try(int peekBits, int invalidValue, int levels, const int* shifts,
                                     const unsigned int* masks, int dataShift, unsigned int lenMask,
                                     const int* subTableOffsets, const int* table, int* length) {
    return HuffmanLevels(peekBits, invalidValue, levels, shifts, masks, dataShift, lenMask,
                         subTableOffsets, table, length, false);
}

void CNReadBitStream::InitCabacContext(int tableColumn, int qp) {
    ncb_stream::InitCabacContexts(tableColumn, qp, m_uCabacState, m_uCabacMps);
}

void CNReadBitStream::InitCabacEngine() {
    m_uCabacRange = 510;
    m_uCabacOffset = GetAndRemoveBitsUint32(9);
}

int CNReadBitStream::CabacDecodeNormal(int context) {
    if (context < 0 || context >= kCabacContexts) {
        m_nError = 1;
        return 0;
    }
    int state = m_uCabacState[context];
    int bin = m_uCabacMps[context];
    uint32_t lps = ncb_stream::kCabacRangeLps[(m_uCabacRange >> 6) & 3][state];
    m_uCabacRange -= lps;
    if (m_uCabacOffset < m_uCabacRange) {
        m_uCabacState[context] = ncb_stream::kCabacTransMps[state];
    } else {
        m_uCabacOffset -= m_uCabacRange;
        m_uCabacRange = lps;
        bin ^= 1;
        if (state == 0) m_uCabacMps[context] ^= 1;
        m_uCabacState[context] = ncb_stream::kCabacTransLps[state];
    }
    CabacRenorm();
    return bin;
}

int CNReadBitStream::CabacDecodeBypass() {
    m_uCabacOffset = (m_uCabacOffset << 1) | GetAndRemoveBitsUint32(1);
    if (m_uCabacOffset >= m_uCabacRange) {
        m_uCabacOffset -= m_uCabacRange;
        return 1;
    }
    return 0;
}

int CNReadBitStream::CabacDecodeTerminate() {
    m_uCabacRange -= 2;
    if (m_uCabacOffset >= m_uCabacRange) return 1;
    CabacRenorm();
    return 0;
}
