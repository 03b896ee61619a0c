// Stream benchmarks: bit-field reads, Exp-Golomb decoding and Huffman
// decoding throughput (bytes of coded input per second) in each escape mode,
// over one block and over the same data cut into 64-byte blocks. There is no
// peer library for these classes; the figures track our own regressions.
// Names: stream/<job>/<mode>_<blocks>/ours.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/write_bit_stream.h"

namespace {

enum Job { kBits, kExpGolomb, kHuffman };
const char* kModeNames[] = {"plain", "h264", "avs", "jpeg"};

// A 12-symbol prefix code with lengths 2..9, as a writer table and a
// single-level reader table of 9 bits.
struct Code {
    uint32_t write[12];
    short read[512];
    Code() {
        const int length[12] = {2, 2, 3, 3, 4, 5, 6, 7, 8, 9, 9, 3};
        // canonical assignment in length order
        int order[12];
        for (int i = 0; i < 12; ++i) order[i] = i;
        std::sort(order, order + 12, [&](int a, int b) { return length[a] < length[b]; });
        uint32_t code = 0;
        int prev = length[order[0]];
        for (int i = 0; i < 12; ++i) {
            int s = order[i];
            code <<= (length[s] - prev);
            prev = length[s];
            write[s] = (code << 5) | (length[s] - 1);
            for (uint32_t j = 0; j < (1u << (9 - length[s])); ++j)
                read[(code << (9 - length[s])) | j] = static_cast<short>(s << 4 | (length[s] - 1));
            ++code;
        }
    }
};
const Code kCode;

struct Input {
    std::vector<uint8_t> bytes;
    std::vector<NDataStreamBufferInfoTag> oneBlock, smallBlocks;
    int items = 0;
    std::vector<int> widths;
};

Input Make(Job job, int mode) {
    std::mt19937 rng(1234 + mode * 7 + job);
    const int kBytes = 1 << 20;
    Input in;
    std::vector<uint8_t> buf(kBytes + 4096);
    NDataStreamBufferInfoTag tag{buf.data(), static_cast<int>(buf.size())};
    CNWriteBitStream w;
    w.Init(mode, 1, &tag, 1, 0);
    while (w.GetCurPos() < 8 * (kBytes - 64)) {
        if (job == kBits) {
            int n = 1 + static_cast<int>(rng() % 16);
            // Sparse values make the escape paths busy in every mode.
            w.WriteBitsUint32(rng() % 4 ? 0 : rng(), n);
            in.widths.push_back(n);
        } else if (job == kExpGolomb) {
            w.H264WriteUe(rng() % 8 ? rng() % 16 : rng() % 2000);
        } else {
            w.WriteHuffman32(static_cast<int>(rng() % 12), 5, 31,
                             const_cast<uint32_t*>(kCode.write));
        }
        ++in.items;
    }
    int written = 0, inserted = 0;
    w.Uninit(mode == 1 ? 5 : mode == 0 ? 2 : 3, &written, &inserted);
    in.bytes.assign(buf.begin(), buf.begin() + (written + inserted) / 8);
    int size = static_cast<int>(in.bytes.size());
    in.oneBlock.push_back({in.bytes.data(), size});
    for (int at = 0; at < size; at += 64)
        in.smallBlocks.push_back({in.bytes.data() + at, size - at < 64 ? size - at : 64});
    return in;
}

const Input& Cached(Job job, int mode) {
    static std::unique_ptr<Input> cache[3][4];
    if (!cache[job][mode]) cache[job][mode] = std::make_unique<Input>(Make(job, mode));
    return *cache[job][mode];
}

void Run(benchmark::State& state, Job job, int mode, bool small) {
    const Input& in = Cached(job, mode);
    auto chain = small ? in.smallBlocks : in.oneBlock;
    uint8_t pad[4] = {0xFF, 0xD8, 0xD8, 0xFF};
    uint64_t sink = 0;
    for (auto _ : state) {
        CNReadBitStream r;
        r.Init(mode, 1, chain.data(), static_cast<int>(chain.size()), pad, 4, 8, 8);
        if (job == kBits) {
            for (int n : in.widths) sink += r.GetAndRemoveBitsUint32(n);
        } else if (job == kExpGolomb) {
            for (int i = 0; i < in.items; ++i) sink += r.H264GetUe(0xFFFFFFFFu);
        } else {
            for (int i = 0; i < in.items; ++i) sink += r.GetHuffman16Once(9, 99, 4, 15, kCode.read);
        }
        benchmark::DoNotOptimize(sink);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(in.bytes.size()));
}

void RegisterAll() {
    const char* jobs[] = {"bits", "expgolomb", "huffman"};
    for (int job = 0; job < 3; ++job) {
        for (int mode = 0; mode < 4; ++mode) {
            for (int small = 0; small < 2; ++small) {
                std::string name = std::string("stream/") + jobs[job] + "/" + kModeNames[mode] +
                                   (small ? "_64byte_blocks" : "_1block") + "/ours";
                benchmark::RegisterBenchmark(name.c_str(), [job, mode, small](benchmark::State& s) {
                    Run(s, static_cast<Job>(job), mode, small != 0);
                })->Unit(benchmark::kMillisecond);
            }
        }
    }
}

const int kRegistered = (RegisterAll(), 0);

}  // namespace
