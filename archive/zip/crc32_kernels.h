// CRC-32 kernels behind CNZipDecoder::CalcCRC32, one per processor level.
//
// A kernel updates the raw register (the CRC before post-inversion): callers
// pass ~crc and invert the result. The scalar twin is slice-by-8 (eight table
// look-ups per 8-byte word); level 2 uses carry-less multiplication when the
// processor reports PCLMULQDQ, folding 64 bytes per round and finishing with
// a Barrett reduction. Every kernel gives the twin's result bit for bit; the
// tests check that at every level with the kernel checker.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::zip {

using Crc32Kernel = uint32_t (*)(uint32_t reg, const uint8_t* data, size_t length);

// Scalar twin: slice-by-8, then byte by byte.
uint32_t Crc32Update_c(uint32_t reg, const uint8_t* data, size_t length);
// PCLMULQDQ folding; short inputs and tails go through the twin. Only call it
// when the processor has PCLMULQDQ and SSE4.1.
uint32_t Crc32Update_pclmul(uint32_t reg, const uint8_t* data, size_t length);

// The kernel a processor level runs: the twin at levels 0 and 1 (and for any
// other value), the carry-less kernel at level 2 where the processor has it.
Crc32Kernel Crc32KernelForLevel(int level);
// The running processor's kernel, chosen once.
Crc32Kernel ActiveCrc32Kernel();

}  // namespace ncb::zip
