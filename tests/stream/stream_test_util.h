// Helpers for the stream tests: cut a flat byte vector into a chain of
// separately allocated blocks (so ASan sees every block edge), with the seed
// printed by the tests that use random cuts.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "ncodecbase/data_stream.h"

namespace stream_test {

// Owns the blocks of a chain cut from one byte sequence.
class Chain {
  public:
    Chain() = default;
    Chain(const std::vector<uint8_t>& bytes, const std::vector<int>& sizes) { Cut(bytes, sizes); }

    void Cut(const std::vector<uint8_t>& bytes, const std::vector<int>& sizes) {
        m_blocks.clear();
        m_tags.clear();
        size_t at = 0;
        for (int size : sizes) {
            auto block = std::make_unique<uint8_t[]>(static_cast<size_t>(size));
            for (int i = 0; i < size; ++i) block[i] = bytes[at++];
            m_tags.push_back({block.get(), size});
            m_blocks.push_back(std::move(block));
        }
    }
    // Writes the blocks back into one vector.
    std::vector<uint8_t> Join() const {
        std::vector<uint8_t> out;
        for (const auto& t : m_tags) out.insert(out.end(), t.pBuffer, t.pBuffer + t.nSize);
        return out;
    }
    NDataStreamBufferInfoTag* Tags() { return m_tags.data(); }
    int Count() const { return static_cast<int>(m_tags.size()); }

  private:
    std::vector<std::unique_ptr<uint8_t[]>> m_blocks;
    std::vector<NDataStreamBufferInfoTag> m_tags;
};

// Random block sizes summing to total; many 1-byte blocks on purpose.
inline std::vector<int> RandomCuts(std::mt19937& rng, int total) {
    std::vector<int> sizes;
    int style = static_cast<int>(rng() % 4);
    while (total > 0) {
        int s;
        if (style == 0)
            s = 1;
        else if (style == 1)
            s = 1 + static_cast<int>(rng() % 3);
        else if (style == 2)
            s = 1 + static_cast<int>(rng() % 17);
        else
            s = (rng() % 4 == 0) ? 1 : 1 + static_cast<int>(rng() % 200);
        if (s > total) s = total;
        sizes.push_back(s);
        total -= s;
    }
    return sizes;
}

inline std::vector<int> OneBlock(int total) { return {total}; }

inline uint8_t Reverse8(uint8_t v) {
    uint8_t r = 0;
    for (int b = 0; b < 8; ++b) r |= ((v >> b) & 1) << (7 - b);
    return r;
}

}  // namespace stream_test
