// CRC-32 scalar twin (slice-by-8) and the per-level choice of kernel.
//
// Slice-by-8 keeps eight 256-entry tables: table k gives the CRC of a byte
// followed by k zero bytes, so one 64-bit word is folded with eight
// independent look-ups instead of eight dependent ones. The tables are built
// at compile time from the byte table of CNZipDecoder.
#include "archive/zip/crc32_kernels.h"

#include <array>
#include <cstring>

#include "base/cpu_features.h"
#include "base/processor_level.h"

namespace ncb::zip {
namespace {

using SliceTables = std::array<std::array<uint32_t, 256>, 8>;

constexpr SliceTables MakeSliceTables() {
    SliceTables t{};
    for (uint32_t n = 0; n < 256; ++n) {
        uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        t[0][n] = c;
    }
    for (int k = 1; k < 8; ++k)
        for (int n = 0; n < 256; ++n) t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xFF];
    return t;
}

constexpr SliceTables kSlice = MakeSliceTables();

}  // namespace

uint32_t Crc32Update_c(uint32_t reg, const uint8_t* data, size_t length) {
    while (length >= 8) {
        uint64_t word;
        std::memcpy(&word, data, 8);
        word ^= reg;
        reg = kSlice[7][word & 0xFF] ^ kSlice[6][(word >> 8) & 0xFF] ^
              kSlice[5][(word >> 16) & 0xFF] ^ kSlice[4][(word >> 24) & 0xFF] ^
              kSlice[3][(word >> 32) & 0xFF] ^ kSlice[2][(word >> 40) & 0xFF] ^
              kSlice[1][(word >> 48) & 0xFF] ^ kSlice[0][word >> 56];
        data += 8;
        length -= 8;
    }
    while (length--) reg = kSlice[0][(reg ^ *data++) & 0xFF] ^ (reg >> 8);
    return reg;
}

Crc32Kernel Crc32KernelForLevel(int level) {
    if (level == kProcessorLevelSse41 && GetCpuFeatures().pclmul) return Crc32Update_pclmul;
    return Crc32Update_c;
}

Crc32Kernel ActiveCrc32Kernel() {
    static const Crc32Kernel kernel = Crc32KernelForLevel(ProcessorLevel());
    return kernel;
}

}  // namespace ncb::zip
