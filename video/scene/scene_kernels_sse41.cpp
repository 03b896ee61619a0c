// SSE4.1 kernels of the scene detector: the block searches pick their best
// candidate with phminposuw. Every block sum fits 16 bits, so eight
// candidates' sums go into one vector and a single instruction returns the
// smallest and its lane; phminposuw reports the lowest lane among equal
// minima, which keeps the "first smallest" rule of the scalar twin. Unused
// lanes of a last partial group hold 0xFFFF, above any real sum (at most
// 65280).
#include <smmintrin.h>

#include "video/scene/scene_kernels.h"
#include "video/scene/scene_sad_sse2.h"

namespace ncb::video {
namespace {

int PickSmallest_sse41(const uint32_t* sads, int count) {
    int best = 0;
    uint32_t bestSad = 0x10000;
    for (int base = 0; base < count; base += 8) {
        const int n = count - base < 8 ? count - base : 8;
        alignas(16)
            uint16_t packed[8] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};
        for (int j = 0; j < n; ++j) packed[j] = static_cast<uint16_t>(sads[base + j]);
        const __m128i found =
            _mm_minpos_epu16(_mm_load_si128(reinterpret_cast<const __m128i*>(packed)));
        const uint32_t sad = static_cast<uint32_t>(_mm_extract_epi16(found, 0));
        if (sad < bestSad) {
            bestSad = sad;
            best = base + _mm_extract_epi16(found, 1);
        }
    }
    return best;
}

}  // namespace

void InstallSceneSse41(SceneKernels* k) {
    k->search16 = SearchRows<16, PickSmallest_sse41>;
    k->search8 = SearchRows<8, PickSmallest_sse41>;
}

}  // namespace ncb::video
