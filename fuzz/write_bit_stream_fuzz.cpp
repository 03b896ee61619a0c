// Encode-then-decode fuzz target for CNWriteBitStream: the input is a
// program of bit fields, Exp-Golomb values, interleaved codes and alignments
// written in one mode and bit order into a chain cut at input-chosen points,
// then read back by CNReadBitStream over a differently cut copy. Every value
// must come back, the output must hold no forbidden escape pattern, and the
// counters must add up to the bytes stored.
//
// Layout: byte 0 options (bits 0-1 mode, bit 2 flags, bits 3-5 cut style),
// byte 1 cut seed, then items of 5 bytes: kind, 4 value bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "ncodecbase/read_bit_stream.h"
#include "ncodecbase/write_bit_stream.h"

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

struct Blocks {
    std::vector<std::unique_ptr<uint8_t[]>> owned;
    std::vector<NDataStreamBufferInfoTag> tags;
    Blocks(const std::vector<uint8_t>& bytes, uint32_t seed, int style) {
        for (size_t at = 0; at < bytes.size();) {
            seed = seed * 1103515245u + 12345u;
            size_t s = style == 0 ? 1 : 1 + (seed >> 16) % (style * 9u);
            if (s > bytes.size() - at) s = bytes.size() - at;
            owned.push_back(std::make_unique<uint8_t[]>(s));
            std::memcpy(owned.back().get(), bytes.data() + at, s);
            tags.push_back({owned.back().get(), static_cast<int32_t>(s)});
            at += s;
        }
    }
    std::vector<uint8_t> Join() const {
        std::vector<uint8_t> out;
        for (const auto& t : tags) out.insert(out.end(), t.pBuffer, t.pBuffer + t.nSize);
        return out;
    }
};

struct Item {
    int kind;
    uint32_t value;
    int bits;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    if (size < 2) return 0;
    int mode = input[0] & 3;
    int flags = (input[0] >> 2) & 1;
    int style = (input[0] >> 3) & 7;
    uint32_t seed = input[1] * 2654435761u + 3;
    std::vector<Item> items;
    for (size_t at = 2; at + 5 <= size && items.size() < 2000; at += 5) {
        uint32_t v = static_cast<uint32_t>(input[at + 1]) << 24 | input[at + 2] << 16 |
                     input[at + 3] << 8 | input[at + 4];
        int kind = input[at] % 6;
        int bits = 1 + (input[at] >> 3) % 32;
        if (kind == 0) v &= ~0u >> (32 - bits);
        if (kind == 3) v %= 8191;
        if (kind == 4) v &= 1;
        items.push_back({kind, v, bits});
    }
    // Worst case 65 bits per item plus escapes (JPEG can double every byte).
    size_t capacity = 32 + items.size() * 20;
    Blocks out(std::vector<uint8_t>(capacity, 0), seed, style);
    CNWriteBitStream w;
    w.Init(mode, flags, out.tags.data(), static_cast<int>(out.tags.size()), 0);
    for (const auto& it : items) {
        switch (it.kind) {
            case 0:
                w.WriteBitsUint32(it.value, it.bits);
                break;
            case 1:
                w.H264WriteUe(it.value);
                break;
            case 2:
                w.H264WriteSe(static_cast<int>(it.value));
                break;
            case 3:
                w.RealWriteOneVLC(static_cast<int>(it.value));
                break;
            case 4:
                w.H264WriteTe(it.value, 1);
                break;
            default:
                if (mode != 2) w.MakeByteAlign(it.value & 1);
                break;
        }
    }
    int payload = w.GetCurPos();
    int written = 0, inserted = 0;
    Check(w.Uninit(mode == 1 ? 5 : mode == 0 ? 3 : 0, &written, &inserted) == 1, "uninit");
    Check((written + inserted) % 8 == 0, "whole bytes");
    size_t bytes = static_cast<size_t>(written + inserted) / 8;
    Check(bytes <= capacity, "capacity");
    std::vector<uint8_t> stream = out.Join();
    stream.resize(bytes);
    std::vector<uint8_t> logical = stream;
    if (!flags)
        for (auto& b : logical) b = Rev(b);
    for (size_t i = 0; i + 2 < logical.size(); ++i) {
        if (logical[i] || logical[i + 1]) continue;
        if (mode == 1) Check(logical[i + 2] > 2, "h264 pattern");
        if (mode == 2) Check(logical[i + 2] == 2 || logical[i + 2] >= 4, "avs pattern");
    }
    if (mode == 3)
        for (size_t i = 0; i < logical.size(); ++i)
            if (logical[i] == 0xFF) Check(i + 1 < logical.size() && logical[i + 1] == 0, "jpeg");
    if (bytes == 0) return 0;

    Blocks in(stream, seed ^ 0x9e3779b9u, (style + 3) & 7);
    uint8_t pad[2] = {0, 0};
    CNReadBitStream r;
    r.Init(mode, flags, in.tags.data(), static_cast<int>(in.tags.size()), pad, 2, 8, 8);
    for (const auto& it : items) {
        switch (it.kind) {
            case 0:
                Check(r.GetAndRemoveBitsUint32(it.bits) == it.value, "bits");
                break;
            case 1:
                Check(r.H264GetUe(0xFFFFFFFFu) == it.value, "ue");
                break;
            case 2:
                Check(r.H264GetSe(INT32_MIN, INT32_MAX) == static_cast<int>(it.value), "se");
                break;
            case 3:
                Check(r.RealGetOneVLC() == it.value, "vlc");
                break;
            case 4:
                Check(r.H264GetTe(1) == it.value, "te");
                break;
            default:
                if (mode != 2) r.MakeByteAlign();
                break;
        }
    }
    Check(r.GetCurPos() == payload, "position");
    Check(r.IsError() == 0, "error");
    return 0;
}
