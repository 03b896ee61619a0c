// CNVideoProcessor's resize operations: thin doors onto the table builder
// and the executor of video/resize/. The frame calls take the kernel set from
// the level stored in the work buffer, never from the caller.
#include "ncodecbase/codec_buffer.h"
#include "ncodecbase/video_processor.h"
#include "video/resize/resize_program.h"

namespace {

namespace rz = ncb::video::resize;

int CreateTable(int bpp, int sw, int sh, int sp, int dw, int dh, int dp, CNCodecBuffer* cmd,
                CNCodecBuffer* horizontal, CNCodecBuffer* vertical, int* rowBytes,
                unsigned int* rows, uint64_t* mask, int* tableWidth, int* verticalCommands) {
    rz::PlaneResult r;
    if (!rz::BuildPlaneTables({sw, sh, sp, dw, dh, dp, bpp}, cmd, horizontal, vertical, &r))
        return 0;
    if (rowBytes) *rowBytes = r.rowBytes;
    if (rows) *rows = r.rows;
    if (mask) *mask = r.storeMask;
    if (tableWidth) *tableWidth = r.tableWidth;
    if (verticalCommands) *verticalCommands = r.verticalCommands;
    return 1;
}

int Frame(CNCodecBuffer* work, int layout, unsigned char* s0, unsigned char* s1, unsigned char* s2,
          unsigned char* d0, unsigned char* d1, unsigned char* d2) {
    ncb::video::KernelSet set;
    if (!work || !work->GetAddress()) return 0;
    if (!rz::WorkKernelSet(work, &set)) return 1;
    const uint8_t* const src[3] = {s0, s1, s2};
    uint8_t* const dst[3] = {d0, d1, d2};
    return rz::Run(work, layout, set, src, dst);
}

}  // namespace

int CNVideoProcessor::ResizeInit(int nLayout, int nLevel, int nSrcWidth, int nSrcHeight,
                                 int nSrcPitch, int nSrcChromaPitch, int nDstWidth, int nDstHeight,
                                 int nDstPitch, int nDstChromaPitch, CNCodecBuffer* pWork) {
    return rz::Init(nLayout, nLevel, nSrcWidth, nSrcHeight, nSrcPitch, nSrcChromaPitch, nDstWidth,
                    nDstHeight, nDstPitch, nDstChromaPitch, pWork);
}

int CNVideoProcessor::ResizeCreateTable_RGB32(int nSrcWidth, int nSrcHeight, int nSrcPitch,
                                              int nDstWidth, int nDstHeight, int nDstPitch,
                                              CNCodecBuffer* pCommand, CNCodecBuffer* pHorizontal,
                                              CNCodecBuffer* pVertical, int* pnRowBytes,
                                              unsigned int* puRows, uint64_t* puStoreMask,
                                              int* pnTableWidth, int* pnVerticalCommands) {
    return CreateTable(4, nSrcWidth, nSrcHeight, nSrcPitch, nDstWidth, nDstHeight, nDstPitch,
                       pCommand, pHorizontal, pVertical, pnRowBytes, puRows, puStoreMask,
                       pnTableWidth, pnVerticalCommands);
}

int CNVideoProcessor::ResizeCreateTable_YUV(int nSrcWidth, int nSrcHeight, int nSrcPitch,
                                            int nDstWidth, int nDstHeight, int nDstPitch,
                                            CNCodecBuffer* pCommand, CNCodecBuffer* pHorizontal,
                                            CNCodecBuffer* pVertical, int* pnRowBytes,
                                            unsigned int* puRows, uint64_t* puStoreMask,
                                            int* pnTableWidth, int* pnVerticalCommands) {
    return CreateTable(1, nSrcWidth, nSrcHeight, nSrcPitch, nDstWidth, nDstHeight, nDstPitch,
                       pCommand, pHorizontal, pVertical, pnRowBytes, puRows, puStoreMask,
                       pnTableWidth, pnVerticalCommands);
}

unsigned int CNVideoProcessor::ResizeGetPixelWeight(int nTaps, unsigned int uDistance) {
    return rz::PixelWeight(nTaps, uDistance);
}

int CNVideoProcessor::ResizeRGB32(unsigned char* pSource, unsigned char* pDestination,
                                  CNCodecBuffer* pWork) {
    return Frame(pWork, rz::kLayoutRgb32, pSource, nullptr, nullptr, pDestination, nullptr,
                 nullptr);
}

int CNVideoProcessor::ResizeYUV420(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                                   unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                                   CNCodecBuffer* pWork) {
    return Frame(pWork, 2, pSrcY, pSrcU, pSrcV, pDstY, pDstU, pDstV);
}

int CNVideoProcessor::ResizeYUV422(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                                   unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                                   CNCodecBuffer* pWork) {
    return Frame(pWork, 3, pSrcY, pSrcU, pSrcV, pDstY, pDstU, pDstV);
}

int CNVideoProcessor::ResizeYUV444(unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV,
                                   unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                                   CNCodecBuffer* pWork) {
    return Frame(pWork, 4, pSrcY, pSrcU, pSrcV, pDstY, pDstU, pDstV);
}

int CNVideoProcessor::ResizeYUVMono(unsigned char* pSource, unsigned char* pDestination,
                                    CNCodecBuffer* pWork) {
    return Frame(pWork, 1, pSource, nullptr, nullptr, pDestination, nullptr, nullptr);
}

int CNVideoProcessor::ResizeUninit(CNCodecBuffer* pWork) {
    if (!pWork) return 0;
    pWork->Free();
    return 1;
}
