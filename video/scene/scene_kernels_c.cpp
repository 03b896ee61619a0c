// Scalar twins of the scene detector's kernels, and the kernel tables.
#include <cstdlib>

#include "video/scene/scene_kernels.h"

namespace ncb::video {

uint32_t BlockSad_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref, ptrdiff_t refPitch,
                    int size) {
    uint32_t sum = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x)
            sum += static_cast<uint32_t>(std::abs(cur[y * curPitch + x] - ref[y * refPitch + x]));
    }
    return sum;
}

int SearchBlock_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
                  ptrdiff_t refPitch, int count, int size, uint32_t* sads) {
    for (int i = 0; i < count; ++i) sads[i] = BlockSad_c(cur, curPitch, refs[i], refPitch, size);
    return FirstSmallest(sads, count);
}

uint32_t WeightedSad_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* ref,
                       ptrdiff_t refPitch, int size, int weight) {
    uint32_t sum = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            int pred = (ref[y * refPitch + x] * weight + 128) >> 8;
            if (pred > 255) pred = 255;
            sum += static_cast<uint32_t>(std::abs(cur[y * curPitch + x] - pred));
        }
    }
    return sum;
}

uint32_t BlockSum_c(const uint8_t* p, ptrdiff_t pitch, int size) {
    uint32_t sum = 0;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) sum += p[y * pitch + x];
    return sum;
}

uint64_t RowDiff_c(const uint8_t* a, const uint8_t* b, int x0, int width) {
    uint64_t sum = 0;
    for (int x = x0; x < width; ++x) sum += static_cast<uint64_t>(std::abs(a[x] - b[x]));
    return sum;
}

namespace {

int Search16_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
               ptrdiff_t refPitch, int count, uint32_t* sads) {
    return SearchBlock_c(cur, curPitch, refs, refPitch, count, 16, sads);
}

int Search8_c(const uint8_t* cur, ptrdiff_t curPitch, const uint8_t* const* refs,
              ptrdiff_t refPitch, int count, uint32_t* sads) {
    return SearchBlock_c(cur, curPitch, refs, refPitch, count, 8, sads);
}

uint64_t RowDiffWhole_c(const uint8_t* a, const uint8_t* b, int width) {
    return RowDiff_c(a, b, 0, width);
}

}  // namespace

void InstallSceneScalar(SceneKernels* k) {
    k->search16 = Search16_c;
    k->search8 = Search8_c;
    k->weightedSad = WeightedSad_c;
    k->blockSum = BlockSum_c;
    k->rowDiff = RowDiffWhole_c;
}

const SceneKernels& GetSceneKernels(KernelSet set) {
    static const auto tables = BuildKernelTables<SceneKernels>(
        InstallSceneScalar, {InstallSceneSse2, InstallSceneSsse3, InstallSceneSse41, nullptr});
    return tables[static_cast<int>(set)];
}

}  // namespace ncb::video
