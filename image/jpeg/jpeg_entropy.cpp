// Slow paths of the JPEG bit source and the look-ahead table builder (see
// jpeg_entropy.h for why the scan decoders have their own reader).
#include "image/jpeg/jpeg_entropy.h"

namespace ncb::jpeg {

void BitSource::RefillSlow() {
    while (cnt_ <= 56) {
        if (p_ == end_) {
            if (seg_ + 1 < segCount_) {
                ++seg_;
                p_ = segs_[seg_].data;
                end_ = p_ + segs_[seg_].size;
                continue;
            }
            // Past the data: zero bytes, counted so an overrun shows.
            padBits_ += 8;
            cnt_ += 8;
            continue;
        }
        const uint8_t b = *p_++;
        // Inside a segment every FF is followed by its stuffed 00.
        if (b == 0xFF && p_ != end_) ++p_;
        buf_ |= static_cast<uint64_t>(b) << (56 - cnt_);
        cnt_ += 8;
    }
}

int DecodeSymbolSlow(BitSource& bs, const FastHuffman& h) {
    const uint32_t code16 = bs.Peek(16);
    for (int len = kLookBits + 1; len <= 16; ++len) {
        const int32_t c = static_cast<int32_t>(code16 >> (16 - len));
        if (c <= h.maxCode[len]) {
            bs.Skip(len);
            return h.symbols[(h.valOffset[len] + c) & 0xFF];
        }
    }
    bs.error = true;
    bs.Skip(16);
    return 0;
}

bool BuildFastHuffman(const uint8_t counts[16], const uint8_t* symbols, int symbolCount, bool ac,
                      FastHuffman* out) {
    std::memset(out->look, 0, sizeof out->look);
    std::memset(out->fastAc, 0, sizeof out->fastAc);
    std::memset(out->symbols, 0, sizeof out->symbols);
    if (symbolCount > 0) std::memcpy(out->symbols, symbols, static_cast<size_t>(symbolCount));
    int code = 0;
    int index = 0;
    for (int len = 1; len <= 16; ++len) {
        const int n = counts[len - 1];
        out->valOffset[len] = index - code;
        out->maxCode[len] = n ? code + n - 1 : -1;
        for (int i = 0; i < n; ++i, ++code, ++index) {
            if (code >= (1 << len) || index >= symbolCount) return false;
            if (len > kLookBits) continue;
            const int sym = symbols[index];
            const int shift = kLookBits - len;
            const int first = code << shift;
            for (int j = 0; j < (1 << shift); ++j) {
                out->look[first + j] = static_cast<uint16_t>((len << 8) | sym);
                const int size = sym & 15;
                if (!ac || size == 0 || len + size > kLookBits) continue;
                const uint32_t bits =
                    (static_cast<uint32_t>(j) >> (shift - size)) & ((1u << size) - 1);
                const int value = Extend(bits, size);
                if (value < -128 || value > 127) continue;
                out->fastAc[first + j] =
                    static_cast<int16_t>(value * 256 + ((sym >> 4) << 4) + len + size);
            }
        }
        code <<= 1;
    }
    out->maxCode[0] = -1;
    out->maxCode[17] = 0x7FFFFFFF;
    out->valOffset[0] = 0;
    return true;
}

}  // namespace ncb::jpeg
