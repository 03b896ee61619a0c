// The standard's CABAC tables, shared by the decoding engine
// (CNReadBitStream) and the encoder (CNWriteBitStream); see cabac_tables.cpp.
#pragma once

#include <cstdint>

namespace ncb_stream {

inline constexpr int kCabacContextCount = 460;

// [context][column][0: m, 1: n]
extern const int8_t kCabacInitMN[kCabacContextCount][4][2];
// [(range >> 6) & 3][state]
extern const uint8_t kCabacRangeLps[4][64];
extern const uint8_t kCabacTransLps[64];
extern const uint8_t kCabacTransMps[64];

// Context initialisation for one slice: pre-state from m, n and the clipped
// QP, clipped to 1..126, split into state index and most probable symbol.
inline void InitCabacContexts(int column, int qp, uint8_t* state, uint8_t* mps) {
    if (column < 0) column = 0;
    if (column > 3) column = 3;
    if (qp < 0) qp = 0;
    if (qp > 51) qp = 51;
    for (int i = 0; i < kCabacContextCount; ++i) {
        int pre = ((kCabacInitMN[i][column][0] * qp) >> 4) + kCabacInitMN[i][column][1];
        if (pre < 1) pre = 1;
        if (pre > 126) pre = 126;
        if (pre <= 63) {
            state[i] = static_cast<uint8_t>(63 - pre);
            mps[i] = 0;
        } else {
            state[i] = static_cast<uint8_t>(pre - 64);
            mps[i] = 1;
        }
    }
}

}  // namespace ncb_stream
