// The scene detector's kernels: every level (and the AVX2-capable level 2)
// against the scalar twins on random blocks, candidate lists with repeated
// candidates (ties must keep the first), aligned and unaligned current
// blocks, weights over the whole 8.8 range; and the twins themselves on
// small cases worked out by hand.
#include "video/scene/scene_kernels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/kernel_checker.h"

namespace {

using ncb::video::GetSceneKernels;
using ncb::video::KernelSet;
using ncb::video::SceneKernels;
using ncbtest::CaseRandom;
using ncbtest::Plane;

const SceneKernels& AtLevel(int level) {
    KernelSet set = KernelSet::kSse2;
    ncb::video::KernelSetForLevel(level, &set);
    return GetSceneKernels(set);
}

struct SearchCase {
    int size = 16;
    std::vector<int> xs, ys;  // candidate positions in `ref`
    Plane cur, ref, out;      // out: the sums, then the index

    std::vector<const Plane*> Planes() const { return {&cur, &ref, &out}; }
    std::string Describe() const {
        return "block " + std::to_string(size) + ", " + std::to_string(xs.size()) + " candidates";
    }
    void Run(const SceneKernels& k) {
        std::vector<const uint8_t*> refs;
        for (size_t i = 0; i < xs.size(); ++i) refs.push_back(ref.Row(ys[i]) + xs[i]);
        uint32_t* sums = out.As<uint32_t>();
        auto search = size == 16 ? k.search16 : k.search8;
        const int count = static_cast<int>(xs.size());
        sums[count] = static_cast<uint32_t>(
            search(cur.Data(), cur.Pitch(), refs.data(), ref.Pitch(), count, sums));
    }
};

SearchCase MakeSearch(CaseRandom& r) {
    SearchCase c;
    c.size = r.Chance(50) ? 16 : 8;
    const bool aligned = r.Chance(40);
    c.cur = r.MakePlane(c.size, c.size, 1,
                        {.label = "cur", .alignment = aligned ? 16 : 1, .allowBottomUp = !aligned});
    const int w = c.size + r.Uniform(0, 24), h = c.size + r.Uniform(0, 16);
    c.ref = r.MakePlane(w, h, 1, {.label = "ref"});
    // Plant the block itself somewhere so that a perfect match exists, and
    // sometimes make the reference a faint variation of the block.
    const int px = r.Uniform(0, w - c.size), py = r.Uniform(0, h - c.size);
    for (int y = 0; y < c.size; ++y) std::memcpy(c.ref.Row(py + y) + px, c.cur.Row(y), c.size);
    const int count = r.Uniform(1, ncb::video::kSceneMaxCandidates);
    for (int i = 0; i < count; ++i) {
        if (i > 0 && r.Chance(15)) {  // a repeated candidate: a tie
            const int j = r.Uniform(0, i - 1);
            c.xs.push_back(c.xs[j]);
            c.ys.push_back(c.ys[j]);
        } else if (r.Chance(10)) {
            c.xs.push_back(px);
            c.ys.push_back(py);
        } else {
            c.xs.push_back(r.Uniform(0, w - c.size));
            c.ys.push_back(r.Uniform(0, h - c.size));
        }
    }
    c.out = r.MakeSamples<uint32_t>(count + 1, "sums");
    return c;
}

TEST(SceneKernels, BlockSearchMatchesTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<SearchCase>({
        .name = "scene block search",
        .make = MakeSearch,
        .twin = [](SearchCase& c) { c.Run(GetSceneKernels(KernelSet::kScalar)); },
        .atLevel = [](SearchCase& c, int level) { c.Run(AtLevel(level)); },
    });
}

struct BlockCase {
    int size = 16;
    int weight = 256;
    Plane cur, ref, out;  // out: weighted sum, block sum of cur

    std::vector<const Plane*> Planes() const { return {&cur, &ref, &out}; }
    std::string Describe() const {
        return "block " + std::to_string(size) + ", weight " + std::to_string(weight);
    }
    void Run(const SceneKernels& k) {
        uint32_t* o = out.As<uint32_t>();
        o[0] = k.weightedSad(cur.Data(), cur.Pitch(), ref.Data(), ref.Pitch(), size, weight);
        o[1] = k.blockSum(ref.Data(), ref.Pitch(), size);
    }
};

BlockCase MakeBlock(CaseRandom& r) {
    BlockCase c;
    c.size = r.Chance(50) ? 16 : 8;
    const int weights[] = {0, 1, 128, 255, 256, 257, 384, 1024, 32767};
    c.weight = r.Chance(50) ? weights[r.Uniform(0, 8)] : r.Uniform(0, 32767);
    c.cur = r.MakePlane(c.size, c.size, 1, {.label = "cur"});
    c.ref = r.MakePlane(c.size, c.size, 1, {.label = "ref"});
    c.out = r.MakeSamples<uint32_t>(2, "sums");
    return c;
}

TEST(SceneKernels, WeightedDifferenceAndSumsMatchTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<BlockCase>({
        .name = "scene weighted block",
        .make = MakeBlock,
        .twin = [](BlockCase& c) { c.Run(GetSceneKernels(KernelSet::kScalar)); },
        .atLevel = [](BlockCase& c, int level) { c.Run(AtLevel(level)); },
    });
}

struct RowCase {
    Plane a, b, out;
    std::vector<const Plane*> Planes() const { return {&a, &b, &out}; }
    void Run(const SceneKernels& k) {
        out.As<uint64_t>()[0] = k.rowDiff(a.Data(), b.Data(), a.Width());
    }
};

TEST(SceneKernels, RowDifferenceMatchesTwinAtEveryLevel) {
    ncbtest::CheckAllLevels<RowCase>({
        .name = "scene row difference",
        .make =
            [](CaseRandom& r) {
                RowCase c;
                const int width = r.Size(1, 4200);
                c.a = r.MakePlane(width, 1, 1, {.label = "a"});
                c.b = r.MakePlane(width, 1, 1, {.label = "b"});
                c.out = r.MakeSamples<uint64_t>(1, "sum");
                return c;
            },
        .twin = [](RowCase& c) { c.Run(GetSceneKernels(KernelSet::kScalar)); },
        .atLevel = [](RowCase& c, int level) { c.Run(AtLevel(level)); },
    });
}

// Worked by hand: a flat 8 x 8 block of 100 against references of 90 (sum
// 64 x 10), 100 (0) and 103 (64 x 3); 100 twice ties and the first wins.
TEST(SceneKernels, TwinSearchArithmeticByHand) {
    std::vector<uint8_t> cur(64, 100), r90(64, 90), r100(64, 100), r103(64, 103);
    const uint8_t* refs[] = {r90.data(), r103.data(), r100.data(), r100.data()};
    uint32_t sums[4];
    EXPECT_EQ(ncb::video::SearchBlock_c(cur.data(), 8, refs, 8, 4, 8, sums), 2);
    EXPECT_EQ(sums[0], 640u);
    EXPECT_EQ(sums[1], 192u);
    EXPECT_EQ(sums[2], 0u);
    EXPECT_EQ(sums[3], 0u);
}

// pred = min(255, (ref x w + 128) >> 8): ref 100 at w 384 (1.5) predicts
// 150; at w 32767 every ref above 1 saturates; w 0 predicts 0.
TEST(SceneKernels, TwinWeightedPredictionByHand) {
    std::vector<uint8_t> cur(64, 150), ref(64, 100), one(64, 1);
    EXPECT_EQ(ncb::video::WeightedSad_c(cur.data(), 8, ref.data(), 8, 8, 384), 0u);
    EXPECT_EQ(ncb::video::WeightedSad_c(cur.data(), 8, ref.data(), 8, 8, 32767), 64u * 105);
    EXPECT_EQ(ncb::video::WeightedSad_c(cur.data(), 8, ref.data(), 8, 8, 0), 64u * 150);
    // 1 x 255 + 128 = 383, >> 8 = 1: rounding to nearest at the half.
    EXPECT_EQ(ncb::video::WeightedSad_c(one.data(), 8, one.data(), 8, 8, 255), 0u);
    EXPECT_EQ(ncb::video::WeightedSad_c(one.data(), 8, one.data(), 8, 8, 127), 64u);
}

}  // namespace
