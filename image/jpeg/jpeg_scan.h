// Scan decoders of the JPEG decoder: baseline scans decode and reconstruct
// block by block straight into the output planes; progressive scans only
// accumulate coefficients, reconstructed once the image is complete.
//
// One runner serves every layout. A scan with one component walks that
// component's own block area (one block per restart unit); a scan with more
// walks the layout's MCUs (4:2:0: four luma blocks then U and V; 4:2:2: two;
// 1x2: two luma blocks one above the other; 4:4:4 and mono: one each).
// Chroma of the 1x2 layout is written to every second row; the decoder
// copies those rows down when the image is complete.
#pragma once

#include <cstddef>
#include <cstdint>

#include "image/jpeg/jpeg_entropy.h"
#include "image/jpeg/jpeg_idct.h"

namespace ncb::jpeg {

struct ScanComponent {
    bool present = false;
    const FastHuffman* dc = nullptr;
    const FastHuffman* ac = nullptr;
    const uint16_t* quant = nullptr;  // baseline
    uint8_t* plane = nullptr;         // first pixel of the component's plane
    ptrdiff_t blockRowStride = 0;     // bytes from one block row to the next
    ptrdiff_t storePitch = 0;         // bytes between the rows of one block
    int16_t* coef = nullptr;          // progressive: 64 per block, grid order
    int gridW = 0;                    // stored blocks per row
    int areaW = 0, areaH = 0;         // blocks a one-component scan covers
    int hBlocks = 1, vBlocks = 1;     // blocks per MCU
};

struct ScanSetup {
    int mcuCols = 0, mcuRows = 0;
    int restartInterval = 0;
    ScanComponent comp[3];
    const IdctKernels* kernels = nullptr;
    int16_t* block = nullptr;  // baseline work block, all zero between blocks
    int ss = 0, se = 63, ah = 0, al = 0;
};

// Both return false when the data held an invalid code or ran out.
bool DecodeBaselineScan(BitSource& bs, ScanSetup& scan);
bool DecodeProgressiveScan(BitSource& bs, ScanSetup& scan);

// Progressive completion: every stored block of `c` through the kernel.
void ReconstructComponent(const ScanComponent& c, int gridH, const uint16_t* quant,
                          const IdctKernels& kernels);

// A block whose only non-zero coefficient is the DC: the transform's exact
// result without running it (a constant min(255, (dc + 4) >> 3) block).
void ReconstructDcOnly(int16_t* block, const uint16_t* quant, uint8_t* dst, ptrdiff_t pitch);

// One baseline block with the fast tables (exposed for the tests, which
// compare it with the plain table walk of the cache records).
bool DecodeBlockFast(BitSource& bs, int16_t* block, const FastHuffman& dc, const FastHuffman& ac,
                     int16_t* predictor, bool* dcOnly);

}  // namespace ncb::jpeg
