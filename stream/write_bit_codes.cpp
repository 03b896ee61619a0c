// Variable-length writers on top of the bit writer: H.264 Exp-Golomb (ue,
// se, te), the interleaved Exp-Golomb code, and the H.264 CABAC encoder.
//
// Short codes come from tables generated at compile time from the code's
// definition; long ones are built from the code number in 64 bits, so every
// 32-bit ue and se value has a code that the reader decodes back. The CABAC
// encoder follows the standard's EncodeDecision / RenormE / PutBit procedure
// bit by bit, writing runs of outstanding bits in one call.
#include "ncodecbase/write_bit_stream.h"
#include "stream/cabac_tables.h"

namespace {

constexpr uint16_t UeEntry(uint32_t codeNumber) {
    uint32_t code = codeNumber + 1;
    int bits = 0;
    while ((code >> bits) > 1) ++bits;
    return static_cast<uint16_t>((code << 5) | (2 * bits + 1));
}

constexpr auto MakeUeWriteTable() {
    std::array<uint16_t, 2047> t{};
    for (uint32_t v = 0; v < 2047; ++v) t[v] = UeEntry(v);
    return t;
}

constexpr auto MakeSeWriteTable() {
    std::array<uint16_t, 2047> t{};
    for (int v = -1023; v <= 1023; ++v) {
        uint32_t k = v > 0 ? static_cast<uint32_t>(2 * v - 1) : static_cast<uint32_t>(-2 * v);
        t[v + 1023] = UeEntry(k);
    }
    return t;
}

constexpr auto MakeOneVlcWriteTable() {
    std::array<uint32_t, 8191> t{};
    for (uint32_t v = 0; v < 8191; ++v) {
        int k = 0;
        while (((v + 1) >> (k + 1)) != 0) ++k;
        uint32_t data = v + 1 - (1u << k);
        uint32_t code = 0;
        for (int i = k - 1; i >= 0; --i) code = (code << 2) | ((data >> i) & 1);
        code = (code << 1) | 1;
        t[v] = (code << 5) | static_cast<uint32_t>(2 * k);  // length - 1 = 2k
    }
    return t;
}

}  // namespace

constinit const std::array<uint16_t, 2047> CNWriteBitStream::s_uH264CavlcUeWriteTable =
    MakeUeWriteTable();
constinit const std::array<uint16_t, 2047> CNWriteBitStream::s_uH264CavlcSeWriteTable =
    MakeSeWriteTable();
constinit const std::array<uint32_t, 8191> CNWriteBitStream::s_uHuffw32OneVLCData =
    MakeOneVlcWriteTable();

void CNWriteBitStream::WriteRun(int bit, int count) {
    while (count > 0) {
        int n = count > 32 ? 32 : count;
        WriteBitsUint32(bit ? 0xFFFFFFFFu : 0u, n);
        count -= n;
    }
}

// Exp-Golomb code of a code number up to 2^32: z zeros, then the z + 1 bits
// of codeNumber + 1.
void CNWriteBitStream::WriteUeCode(uint64_t codeNumber) {
    uint64_t m = codeNumber + 1;
    int z = 63 - __builtin_clzll(m);
    WriteRun(0, z);
    if (z + 1 > 32) {
        WriteBitsUint32(static_cast<uint32_t>(m >> 32), z + 1 - 32);
        WriteBitsUint32(static_cast<uint32_t>(m), 32);
    } else {
        WriteBitsUint32(static_cast<uint32_t>(m), z + 1);
    }
}

void CNWriteBitStream::H264WriteUe(unsigned int value) {
    if (value < 2047) {
        unsigned int e = s_uH264CavlcUeWriteTable[value];
        WriteBitsUint32(e >> 5, static_cast<int>(e & 31));
        return;
    }
    WriteUeCode(value);
}

void CNWriteBitStream::H264WriteSe(int value) {
    if (value >= -1023 && value <= 1023) {
        unsigned int e = s_uH264CavlcSeWriteTable[value + 1023];
        WriteBitsUint32(e >> 5, static_cast<int>(e & 31));
        return;
    }
    int64_t v = value;
    WriteUeCode(static_cast<uint64_t>(v > 0 ? 2 * v - 1 : -2 * v));
}

void CNWriteBitStream::H264WriteTe(unsigned int value, unsigned int range) {
    if (range < 2) {
        WriteBitsUint32(~value & 1u, 1);
        return;
    }
    H264WriteUe(value);
}

void CNWriteBitStream::RealWriteOneVLC(int value) {
    if (value < 0 || value >= 8191) {
        m_nError = 1;
        return;
    }
    uint32_t e = s_uHuffw32OneVLCData[value];
    WriteBitsUint32(e >> 5, static_cast<int>(e & 31) + 1);
}

void CNWriteBitStream::InitCabacContext(int tableColumn, int qp) {
    ncb_stream::InitCabacContexts(tableColumn, qp, m_uCabacState, m_uCabacMps);
    m_nCabacBins = 0;
}

void CNWriteBitStream::InitCabacEngine() {
    m_uCabacRange = 510;
    m_uCabacLow = 0;
    m_nCabacFirstBit = 1;
    m_nCabacOutstanding = 0;
}

void CNWriteBitStream::PutBit(int bit) {
    if (m_nCabacFirstBit) {
        m_nCabacFirstBit = 0;
    } else {
        WriteBitsUint32(static_cast<unsigned>(bit), 1);
    }
    WriteRun(1 - bit, m_nCabacOutstanding);
    m_nCabacOutstanding = 0;
}

void CNWriteBitStream::CabacRenormE() {
    while (m_uCabacRange < 256) {
        if (m_uCabacLow < 256) {
            PutBit(0);
        } else if (m_uCabacLow >= 512) {
            m_uCabacLow -= 512;
            PutBit(1);
        } else {
            m_uCabacLow -= 256;
            ++m_nCabacOutstanding;
        }
        m_uCabacRange <<= 1;
        m_uCabacLow <<= 1;
    }
}

void CNWriteBitStream::CabacEncodeNormal(int context, int bin) {
    if (context < 0 || context >= kCabacContexts) {
        m_nError = 1;
        return;
    }
    int state = m_uCabacState[context];
    uint32_t lps = ncb_stream::kCabacRangeLps[(m_uCabacRange >> 6) & 3][state];
    m_uCabacRange -= lps;
    if ((bin != 0) != (m_uCabacMps[context] != 0)) {
        m_uCabacLow += m_uCabacRange;
        m_uCabacRange = lps;
        if (state == 0) m_uCabacMps[context] ^= 1;
        m_uCabacState[context] = ncb_stream::kCabacTransLps[state];
    } else {
        m_uCabacState[context] = ncb_stream::kCabacTransMps[state];
    }
    CabacRenormE();
    ++m_nCabacBins;
}

void CNWriteBitStream::CabacEncodeBypass(int bin) {
    m_uCabacLow <<= 1;
    if (bin) m_uCabacLow += m_uCabacRange;
    if (m_uCabacLow >= 1024) {
        PutBit(1);
        m_uCabacLow -= 1024;
    } else if (m_uCabacLow < 512) {
        PutBit(0);
    } else {
        m_uCabacLow -= 512;
        ++m_nCabacOutstanding;
    }
    ++m_nCabacBins;
}

void CNWriteBitStream::CabacEncodeTerminate() {
    m_uCabacRange -= 2;
    m_uCabacLow += m_uCabacRange;
    // EncodeFlush: the last bits, ending with the stop bit.
    m_uCabacRange = 2;
    CabacRenormE();
    PutBit((m_uCabacLow >> 9) & 1);
    WriteBitsUint32(((m_uCabacLow >> 7) & 3) | 1, 2);
    ++m_nCabacBins;
}

void CNWriteBitStream::CabacEncodeTerminateNot() {
    m_uCabacRange -= 2;
    CabacRenormE();
    ++m_nCabacBins;
}

int CNWriteBitStream::UninitCabac(int enable, int extraBins, int extraBytes, int width,
                                  int height) {
    m_nCabacEndEnable = enable == 1;
    m_nCabacExtraBins = extraBins;
    m_nCabacExtraBytes = extraBytes;
    m_nCabacWidth = width;
    m_nCabacHeight = height;
    return m_nCabacBins;
}
