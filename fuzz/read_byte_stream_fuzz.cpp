// Fuzz target for CNReadByteStream. The input picks the flags, the pad
// buffer and how the data is cut into separately allocated blocks (so ASan
// sees every block edge), then runs a program of reads, seeks and searches
// on the reader and on a flat model of the same stream; any disagreement in
// values, positions or the error flag aborts.
//
// Layout: byte 0 options (bits 0-1 flags, bits 2-4 pad size - 1, bits 5-7
// cut style), byte 1 cut seed, byte 2 program length k, then k program bytes,
// then the stream data.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "ncodecbase/read_byte_stream.h"

namespace {

uint8_t Rev(uint8_t v) {
    uint8_t r = 0;
    for (int b = 0; b < 8; ++b) r |= ((v >> b) & 1) << (7 - b);
    return r;
}

struct Model {
    const std::vector<uint8_t>& data;
    const std::vector<uint8_t>& pad;
    int flags;
    int64_t pos = 0;
    bool error = false;

    uint8_t At(int64_t p) {
        int64_t n = static_cast<int64_t>(data.size());
        uint8_t b;
        if (p < n) {
            b = data[p];
        } else {
            error = true;
            b = pad[(p - n) % static_cast<int64_t>(pad.size())];
        }
        return (flags & 2) ? b : Rev(b);
    }
    uint64_t Read(int bytes) {
        uint64_t v = 0;
        for (int i = 0; i < bytes; ++i) {
            uint64_t b = At(pos + i);
            v = (flags & 1) ? v | (b << (8 * i)) : (v << 8) | b;
        }
        pos += bytes;
        return v;
    }
    template <typename Match>
    int Search(int n, Match match, uint64_t* window) {
        int64_t total = static_cast<int64_t>(data.size());
        if (pos >= total - (n - 1)) {
            if (pos < total) pos = total;
            return -1;
        }
        uint64_t mask = n == 8 ? ~0ull : (1ull << (8 * n)) - 1;
        uint64_t w = 0;
        for (int64_t p = pos; p < total; ++p) {
            w = ((w << 8) | ((flags & 2) ? data[p] : Rev(data[p]))) & mask;
            if (p - pos + 1 >= n && match(w)) {
                *window = w;
                pos = p + 1;
                return static_cast<int>(pos);
            }
        }
        pos = total;
        return -1;
    }
};

void Check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "mismatch: %s\n", what);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    if (size < 4) return 0;
    int flags = input[0] & 3;
    int padSize = 1 + ((input[0] >> 2) & 7);
    int style = input[0] >> 5;
    uint32_t cutSeed = input[1] * 2654435761u + 1;
    size_t k = input[2];
    if (3 + k > size) k = size - 3;
    const uint8_t* program = input + 3;
    std::vector<uint8_t> data;
    if (size > 3 + k) {
        data.assign(input + 3 + k, input + size);
    } else {
        data.assign(1, 0);
    }
    std::vector<uint8_t> pad(padSize);
    for (int i = 0; i < padSize; ++i) pad[i] = static_cast<uint8_t>(0xF0 + i);

    std::vector<std::unique_ptr<uint8_t[]>> blocks;
    std::vector<NDataStreamBufferInfoTag> chain;
    for (size_t at = 0; at < data.size();) {
        cutSeed = cutSeed * 1103515245u + 12345u;
        size_t s = style == 0 ? 1 : 1 + (cutSeed >> 16) % (style * 7u);
        if (s > data.size() - at) s = data.size() - at;
        blocks.push_back(std::make_unique<uint8_t[]>(s));
        for (size_t i = 0; i < s; ++i) blocks.back()[i] = data[at + i];
        chain.push_back({blocks.back().get(), static_cast<int32_t>(s)});
        at += s;
    }
    auto padCopy = std::make_unique<uint8_t[]>(padSize);
    for (int i = 0; i < padSize; ++i) padCopy[i] = pad[i];

    CNReadByteStream r;
    r.Init(flags, chain.data(), static_cast<int>(chain.size()), padCopy.get(), padSize);
    Model m{data, pad, flags};
    const int total = static_cast<int>(data.size());
    for (size_t i = 0; i < k; ++i) {
        uint8_t op = program[i];
        uint8_t arg = i + 1 < k ? program[i + 1] : 0;
        uint64_t w = 0;
        switch (op % 14) {
            case 0:
                Check(r.ReadUint8() == m.Read(1), "u8");
                break;
            case 1:
                Check(r.ReadUint16() == m.Read(2), "u16");
                break;
            case 2:
                Check(r.ReadUint32() == m.Read(4), "u32");
                break;
            case 3:
                Check(r.ReadUint64() == m.Read(8), "u64");
                break;
            case 4: {
                uint8_t got[64], want[64];
                int n = arg % 64;
                r.ReadBuffer(got, n);
                for (int j = 0; j < n; ++j) want[j] = static_cast<uint8_t>(m.Read(1));
                for (int j = 0; j < n; ++j) Check(got[j] == want[j], "buffer");
                ++i;
                break;
            }
            case 5: {
                int p = static_cast<int>(arg) * (total + 16) / 256;
                r.SetCurPos(p);
                if (p > total) m.error = true;
                m.pos = p;
                ++i;
                break;
            }
            case 6: {
                uint8_t v = arg;
                Check(r.FindUint8(v) == m.Search(
                                            1, [v](uint64_t x) { return x == v; }, &w),
                      "find8");
                ++i;
                break;
            }
            case 7: {
                uint16_t v = static_cast<uint16_t>(0xFF00 | arg);
                Check(r.FindUint16(v) == m.Search(
                                             2, [v](uint64_t x) { return x == v; }, &w),
                      "find16");
                ++i;
                break;
            }
            case 8: {
                uint32_t v = 0x00000100u | arg;
                Check(r.FindUint32(v) == m.Search(
                                             4, [v](uint64_t x) { return x == v; }, &w),
                      "find32");
                ++i;
                break;
            }
            case 9: {
                unsigned char code = 0;
                int want = m.Search(
                    4, [](uint64_t x) { return (x & ~0xFFull) == 0x100; }, &w);
                Check(r.MpegNextStartCode(&code) == want, "startcode");
                if (want >= 0) Check(code == (w & 0xFF), "startcode value");
                break;
            }
            case 10: {
                unsigned char mk = 0;
                int want = m.Search(
                    2, [](uint64_t x) { return (x >> 8) == 0xFF && (x & 0xFF); }, &w);
                Check(r.JpegNextMarker(&mk) == want, "marker");
                if (want >= 0) Check(mk == (w & 0xFF), "marker value");
                break;
            }
            case 11: {
                unsigned char mk = 0;
                int want = m.Search(
                    2,
                    [](uint64_t x) { return (x >> 8) == 0xFF && (x & 0xFF) && (x & 0xFF) != 0xFF; },
                    &w);
                Check(r.JpegNextMarkerSkipStuff(&mk) == want, "marker skip");
                break;
            }
            case 12: {
                unsigned int word = 0;
                unsigned int mask = 0xFFF00000u | (static_cast<unsigned>(arg) << 8);
                unsigned int value = 0xFFF00000u;
                int want = m.Search(
                    4, [mask, value](uint64_t x) { return (x & mask) == value; }, &w);
                Check(r.MpegAudioNextSyncWord(&word, mask, value) == want, "sync");
                ++i;
                break;
            }
            default: {
                int left = 0;
                unsigned char* p = r.GetCurDataAddress(&left);
                if (m.pos < total) Check(left > 0 && p[0] == data[m.pos], "address");
                Check(r.FindUint64(0x0001020304050607ull) ==
                          m.Search(
                              8, [](uint64_t x) { return x == 0x0001020304050607ull; }, &w),
                      "find64");
                break;
            }
        }
        Check(r.GetCurPos() == m.pos, "position");
        Check(r.IsError() == (m.error ? 1 : 0), "error flag");
    }
    Check(r.Uninit() == (m.error ? 0 : 1), "uninit");
    return 0;
}
