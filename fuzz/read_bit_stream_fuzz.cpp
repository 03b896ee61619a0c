// Fuzz target for CNReadBitStream. The input picks the mode, bit order,
// first/last-byte bits, pad and how the data is cut into separately
// allocated blocks (so ASan sees every block edge), then runs a program of
// peeks, reads, seeks, Exp-Golomb, interleaved-code, Huffman and CABAC
// decodes. Checks: no memory error or undefined behaviour whatever the
// data; every consumption moves the position by exactly its bit count; in
// plain mode every bit delivered equals the bit of a flat model of chain
// plus repeating pad.
//
// Layout: byte 0 options (bits 0-1 mode, bit 2 flags, bits 3-5 cut style),
// byte 1 first bits (low nibble) and last bits (high nibble), byte 2 cut
// seed, byte 3 program length k, then k program bytes, then the data.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "ncodecbase/read_bit_stream.h"

namespace {

void Check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "mismatch: %s\n", what);
        std::abort();
    }
}

uint8_t Rev(uint8_t v) {
    uint8_t r = 0;
    for (int b = 0; b < 8; ++b) r |= ((v >> b) & 1) << (7 - b);
    return r;
}

// A fixed complete prefix code over 10 symbols (lengths 2..6) in the three
// table widths, two levels (4 + 2 bits) and one level (6 bits).
struct Tables {
    signed char t8[16 + 4 * 4];
    short t16[16 + 4 * 4];
    int t32[16 + 4 * 4];
    short once[64];
    int offsets[5] = {0, 16, 20, 24, 28};
    int shifts[2] = {2, 0};
    unsigned masks[2] = {15, 3};
    Tables() {
        const int length[10] = {2, 2, 3, 3, 4, 5, 5, 6, 6, 6};
        // canonical codes; one 6-bit prefix slot is left invalid (value 15)
        for (auto& e : once) e = static_cast<short>(15 << 4 | 5);
        uint32_t code = 0;
        int prev = length[0];
        std::vector<std::pair<uint32_t, int>> codes;
        for (int s = 0; s < 10; ++s) {
            code <<= (length[s] - prev);
            prev = length[s];
            codes.push_back({code++, length[s]});
        }
        for (int i = 0; i < 16; ++i) t8[i] = t16[i] = t32[i] = static_cast<short>(15 << 3 | 3);
        for (int i = 16; i < 32; ++i) t8[i] = t16[i] = t32[i] = static_cast<short>(15 << 3 | 1);
        int nextSub = 1;
        int subOf[16] = {};
        for (int s = 0; s < 10; ++s) {
            uint32_t c = codes[s].first;
            int l = codes[s].second;
            for (uint32_t i = 0; i < (1u << (6 - l)); ++i)
                once[(c << (6 - l)) | i] = static_cast<short>(s << 4 | (l - 1));
            if (l <= 4) {
                for (uint32_t i = 0; i < (1u << (4 - l)); ++i) {
                    int idx = static_cast<int>((c << (4 - l)) | i);
                    t8[idx] = t16[idx] = t32[idx] = static_cast<short>(s << 3 | (l - 1));
                }
                continue;
            }
            int prefix = static_cast<int>(c >> (l - 4));
            if (!subOf[prefix]) {
                subOf[prefix] = nextSub++;
                t8[prefix] = t16[prefix] = t32[prefix] = static_cast<short>(-subOf[prefix] * 8 + 3);
            }
            int rest = l - 4;
            int base = offsets[subOf[prefix]];
            uint32_t low = c & ((1u << rest) - 1);
            for (uint32_t i = 0; i < (1u << (2 - rest)); ++i) {
                int idx = base + static_cast<int>((low << (2 - rest)) | i);
                t8[idx] = t16[idx] = t32[idx] = static_cast<short>(s << 3 | (rest - 1));
            }
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    static const Tables tables;
    if (size < 5) return 0;
    int mode = input[0] & 3;
    int flags = (input[0] >> 2) & 1;
    int style = (input[0] >> 3) & 7;
    int firstBits = input[1] & 15;
    int lastBits = input[1] >> 4;
    uint32_t cutSeed = input[2] * 2654435761u + 7;
    size_t k = input[3];
    if (4 + k > size) k = size - 4;
    const uint8_t* program = input + 4;
    std::vector<uint8_t> data;
    if (size > 4 + k) {
        data.assign(input + 4 + k, input + size);
    } else {
        data.assign(1, 0x5A);
    }

    std::vector<std::unique_ptr<uint8_t[]>> blocks;
    std::vector<NDataStreamBufferInfoTag> chain;
    for (size_t at = 0; at < data.size();) {
        cutSeed = cutSeed * 1103515245u + 12345u;
        size_t s = style == 0 ? 1 : 1 + (cutSeed >> 16) % (style * 5u);
        if (s > data.size() - at) s = data.size() - at;
        blocks.push_back(std::make_unique<uint8_t[]>(s));
        for (size_t i = 0; i < s; ++i) blocks.back()[i] = data[at + i];
        chain.push_back({blocks.back().get(), static_cast<int32_t>(s)});
        at += s;
    }
    const uint8_t padBytes[3] = {0xFF, 0xD8, 0x00};
    auto pad = std::make_unique<uint8_t[]>(3);
    for (int i = 0; i < 3; ++i) pad[i] = padBytes[i];

    CNReadBitStream r;
    r.Init(mode, flags, chain.data(), static_cast<int>(chain.size()), pad.get(), 3, firstBits,
           lastBits);
    int first = firstBits >= 1 && firstBits <= 8 ? firstBits : 8;
    // Plain-mode model: bit p of the payload.
    auto modelBit = [&](int64_t p) {
        int64_t raw = p + 8 - first;
        int64_t byte = raw >> 3;
        int64_t n = static_cast<int64_t>(data.size());
        uint8_t b = byte < n ? data[byte] : padBytes[(byte - n) % 3];
        if (!flags) b = Rev(b);
        return (b >> (7 - (raw & 7))) & 1;
    };
    auto modelBits = [&](int64_t p, int n) {
        uint32_t v = 0;
        for (int i = 0; i < n; ++i) v = (v << 1) | modelBit(p + i);
        return v;
    };
    int last = lastBits >= 1 && lastBits <= 8 ? lastBits : 8;
    bool seeked = false;
    bool modelOff = false;  // a seek past the end of a short last byte lands at the pad's start
    for (size_t i = 0; i < k; ++i) {
        uint8_t op = program[i];
        int n = 1 + ((op >> 4) & 15) * 2 + (op & 1);  // 1..32
        int before = r.GetCurPos();
        bool exact = mode == 0 && before >= 0 && !modelOff;
        switch (op % 16) {
            case 0:
            case 1: {
                uint32_t v = r.GetBitsUint32(n);
                Check(r.GetCurPos() == before, "peek moved");
                if (exact) Check(v == modelBits(before, n), "peek bits");
                break;
            }
            case 2:
            case 3: {
                uint32_t v = r.GetAndRemoveBitsUint32(n);
                Check(r.GetCurPos() == before + n, "read position");
                if (exact) Check(v == modelBits(before, n), "read bits");
                break;
            }
            case 4:
                r.RemoveBits(n);
                Check(r.GetCurPos() == before + n, "remove position");
                break;
            case 5: {
                int target = (i + 1 < k ? program[++i] : 0) * (r.GetTotalSize() + 40) / 256;
                r.SetCurPos(target);
                Check(r.GetCurPos() == target, "seek");
                seeked = true;
                modelOff = last != 8 && target >= r.GetTotalSize();
                break;
            }
            case 6:
                r.MakeByteAlign();
                if (mode != 2) Check(r.IsByteAlign() || first != 8 || seeked, "align");
                break;
            case 7:
                r.H264GetUe(op);
                break;
            case 8:
                r.H264GetSe(-op, op);
                break;
            case 9:
                r.H264GetTe(op & 3);
                r.H264MoreRbspData();
                break;
            case 10:
                Check(r.RealGetOneVLC() <= 8191, "vlc range");
                break;
            case 11: {
                int length = 0;
                int v = r.GetHuffman8Try(6, 15, 2, tables.shifts, tables.masks, 3, 7,
                                         tables.offsets, tables.t8, &length);
                Check(r.GetCurPos() == before, "try moved");
                int w = r.GetHuffman8(6, 15, 2, tables.shifts, tables.masks, 3, 7, tables.offsets,
                                      tables.t8);
                Check(v == w && r.GetCurPos() == before + length, "huffman8");
                break;
            }
            case 12: {
                int a = r.GetHuffman16(6, 15, 2, tables.shifts, tables.masks, 3, 7, tables.offsets,
                                       tables.t16);
                int b = r.GetHuffman32(6, 15, 2, tables.shifts, tables.masks, 3, 7, tables.offsets,
                                       tables.t32);
                int length = 0;
                int c = r.GetHuffman16OnceTry(6, 15, 4, 15, tables.once, &length);
                int d = r.GetHuffman16Once(6, 15, 4, 15, tables.once);
                Check(a >= 0 && a <= 15 && b >= 0 && b <= 15 && c == d, "huffman16/32");
                break;
            }
            case 13:
                r.InitCabacContext(op & 3, (op >> 2) - 4);
                r.InitCabacEngine();
                break;
            case 14:
                for (int j = 0; j < n; ++j) {
                    int ctx = (op * 37 + j * 101) % 470 - 5;  // a few out of range on purpose
                    r.CabacDecodeNormal(ctx);
                    r.CabacDecodeBypass();
                }
                r.CabacDecodeTerminate();
                break;
            default:
                Check(r.GetLeftSize() >= 0, "left");
                if (op & 0x80) r.ClearError();
                r.ResetBitStat();
                break;
        }
    }
    int used = -1;
    r.Uninit(&used);
    return 0;
}
