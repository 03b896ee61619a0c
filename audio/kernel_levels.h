// One kernel table per processor level for each audio family. Level 0 starts
// from the scalar twins and takes the SSE2 entries; level 1 starts from level
// 0 and takes the SSSE3 entries; level 2 starts from level 1 and takes the
// SSE4.1 entries. A family without a kernel at some level simply keeps the
// entry of the level below, so no call site ever tests CPU flags.
#pragma once

#include <array>

namespace ncb::audio {

inline constexpr int kLevelCount = 3;

// Callers pass 0, 1 or 2; anything else runs the SSE2 table rather than
// reading outside the array.
inline int LevelIndex(int level) { return level >= 1 && level <= 2 ? level : 0; }

template <typename Table>
using LevelFill = void (*)(Table*);

template <typename Table>
std::array<Table, kLevelCount> BuildLevelTables(const Table& twins, LevelFill<Table> sse2,
                                                LevelFill<Table> ssse3, LevelFill<Table> sse41) {
    std::array<Table, kLevelCount> tables{twins, twins, twins};
    const LevelFill<Table> fills[kLevelCount] = {sse2, ssse3, sse41};
    for (int level = 0; level < kLevelCount; ++level) {
        if (level > 0) tables[level] = tables[level - 1];
        if (fills[level]) fills[level](&tables[level]);
    }
    return tables;
}

}  // namespace ncb::audio
